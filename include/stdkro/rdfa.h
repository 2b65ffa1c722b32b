// Regular expressions, second half: table-driven deterministic automata.
#ifndef STDKRO_RDFA_H
#define STDKRO_RDFA_H

#include <stdkro/config.h>
#include <stdkro/rnfa.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

/// A table of 16-bit next states: a row for each state, a column for each input;
/// -1 where there is no way on. Rows and columns are not range-checked.
class KRO_API dfa {
public:
    dfa();
    /// A table of its own. Throws `xcpt` (out of memory).
    dfa(const dfa& other);
    /// Shares the table: afterwards a change through one object shows in both,
    /// until one of them makes a new table. `copy` gives a table of its own.
    /// The count of sharers is a plain integer: do not let two threads share.
    dfa& operator=(const dfa& other);

    /// Back to no rows and no columns.
    virtual void clear();
    virtual ~dfa();

    /// Makes a new table, contents undefined, and calls `on_create`. Throws `xcpt`
    /// (out of memory); the automaton is then empty. A negative size counts as 0.
    void create(short rows, short cols);
    /// The same with every entry set to `fill`.
    void create(short rows, short cols, short fill);
    /// Makes this a duplicate of `other`. Throws `xcpt` (out of memory), this then
    /// being unchanged.
    void copy(const dfa& other);

    short num_row() const { return rows_; }
    short num_col() const { return cols_; }
    short get_state(short row, short col) const { return get_row(row)[col]; }
    void set_state(short row, short col, short value) { get_row(row)[col] = value; }
    const short* get_row(short row) const { return table_ + row * cols_; }
    short* get_row(short row) { return get_table() + row * cols_; }
    const short* get_table() const { return table_; }
    short* get_table()
    {
        unlink();
        return table_;
    }

protected:
    /// Called at the end of every `create`, before a fill.
    virtual void on_create();

private:
    friend class rdfa;
    friend class rdfa_maker;

    // By byte, the next row, and the rule of a text that ends behind the byte: so the last
    // step of a walk needs no row. See rdfa::link_rows.
    struct linked_row {
        const linked_row* next[256];
        int rule[256];

        const linked_row* step_3(std::size_t bytes) const
        {
            return next[bytes & 255]->next[bytes >> 8 & 255]->next[bytes >> 16 & 255];
        }
        const linked_row* step_4(std::size_t bytes) const { return step_3(bytes)->next[bytes >> 24]; }
        int last_4(std::size_t bytes) const { return step_3(bytes)->rule[bytes >> 24]; }
    };
    // Stands before the first entry of a table.
    struct table_head {
        const linked_row* start[5]; // by how many bytes the text lacks
        std::size_t linked;         // 5; 0 without links, and once the table or the rules may have changed
        unsigned sharers;
    };
    static table_head* head_of(short* table) { return reinterpret_cast<table_head*>(table) - 1; }

    static short* new_table(unsigned entries);
    static short* resize_table(short* table, unsigned entries);
    static void release_table(short* table);
    void adopt(short* table, short rows, short cols);
    void share(const dfa& other);
    bool is_linked() const { return table_ && head_of(table_)->linked != 0; }
    void unlink()
    {
        if (table_)
            head_of(table_)->linked = 0;
    }

    short rows_;
    short cols_;
    short* table_;
};

/// A `dfa` that reads bytes and knows which rule each row accepts.
class KRO_API rdfa : public dfa {
public:
    rdfa();
    /// The table is duplicated by the copy constructor and shared by assignment, as
    /// in `dfa`; the rules and the column map are copied by both.
    rdfa(const rdfa& other);
    rdfa& operator=(const rdfa& other);
    ~rdfa() override;

    void clear() override;

    /// Makes `row` accept `rule`; -1 is no rule. A row that accepts another rule keeps
    /// the smaller of the two, and err::conflict is returned; otherwise 0.
    /// err::invalid_parameter when there is no such row.
    int set_accept(short row, short rule);
    /// The rule that `row` accepts; -1 for none.
    short get_accept(short row) const;
    /// One entry for each row.
    const short* get_accepts() const { return accepts_.data(); }

    /// The number of columns.
    short num_ecs() const { return num_col(); }
    /// The column of a byte (0..255), as `merge_col` left it: until then, the byte.
    short ccl2ecs(short byte) const { return ccl2ecs_[byte]; }
    void ccl2ecs(short byte, short column) { ccl2ecs_[byte] = column; }
    const short* get_ccl2ecs() const { return ccl2ecs_; }

    /// Reads the whole text. Returns the rule accepted; -1 when the text ends where no
    /// rule does; err::failed when a byte has no way on, or there are no rows.
    /// A byte is its own column here, so this is for tables that were not compressed.
    /// A null `end` stands for the terminating NUL, a null text for the empty one.
    ///
    /// Automata of up to 48 rows come from their maker with 256 pointers and numbers a row
    /// beside the table, which makes short texts quick. These are out of use once table or
    /// rules may change: by `set_state`, `set_accept`, or a row or table asked for without `const`.
    int match(const char* text) const;
    int match(const char* begin, const char* end) const;

    /// Whether two columns are equal in every row.
    bool equ_ccl(short a, short b) const;
    /// Merges equal columns and fills the map from bytes to the columns that are left.
    /// Does nothing unless there are 256 columns. Throws `xcpt` (out of memory), this
    /// then being unchanged.
    void merge_col();

protected:
    /// Grows the rules to the number of rows; present entries stay.
    void on_create() override;

private:
    friend class rdfa_maker;

    static std::size_t length_of(const char* begin, const char* end);
    static std::uint32_t bytes_at(const char* p);
    static std::uint32_t bytes_behind(std::size_t zeros, const char* p);
    void link_rows();
    KRO_DIRECT_CALL int match_short(const char* begin, const char* end) const;
    int match_other(const char* begin, const char* end) const;
    int accepted_by(std::size_t state) const;
    int run_linked(const char* p, const char* end) const;
    int run_short(const char* p, const char* end) const;
    int run_long(const char* p, const char* end) const;
    int run_narrow(const char* p, const char* end) const;

    std::vector<short> accepts_;
    short ccl2ecs_[256];
};

// More than that of any text when only `end` is null.
inline std::size_t rdfa::length_of(const char* begin, const char* end)
{
    return reinterpret_cast<std::uintptr_t>(end) - reinterpret_cast<std::uintptr_t>(begin);
}

// 4 bytes, the first one lowest.
inline std::uint32_t rdfa::bytes_at(const char* p)
{
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "elsewhere, turn them round here");
    std::uint32_t bytes;
    std::memcpy(&bytes, p, sizeof bytes);
    return bytes;
}

// So many zeros, at most 4, and of the bytes at `p` as many as complete 4.
inline std::uint32_t rdfa::bytes_behind(std::size_t zeros, const char* p)
{
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(bytes_at(p)) << 8 * zeros);
}

// The usual token, of 4 to 8 bytes, takes 8 steps through linked rows whatever its length is:
// lengths cannot be foreseen, and a wrong guess of the processor would cost more than all
// the steps. A call would cost as much as 4 of them, so the walk stands here.
inline int rdfa::match(const char* begin, const char* end) const
{
    const std::size_t missing = 8 - length_of(begin, end);
    if (__builtin_expect(table_ && missing < head_of(table_)->linked, true)) {
        const linked_row* const start = head_of(table_)->start[missing];
        return start->step_4(bytes_behind(missing, begin))->last_4(bytes_at(end - 4));
    }
    return match_short(begin, end);
}

/// Makes an `rdfa` of an `rnfa`.
class KRO_API rdfa_maker {
public:
    rdfa_maker();
    rdfa_maker(const rdfa_maker& other);
    rdfa_maker& operator=(const rdfa_maker& other);
    ~rdfa_maker();

    /// Builds `out`. State 0 is the start; states are numbered breadth first. Where
    /// several rules end in one state, the highest number wins.
    ///
    /// An `out` that already had rows keeps the rules of these rows where they are
    /// smaller than the new ones: give an empty one.
    ///
    /// Returns 0; err::failed for an automaton without start; err::little_of_resource
    /// when more than 32767 states are needed: `out` is then unchanged. Throws `xcpt`
    /// (out of memory); `out` may then be empty.
    int ntod(rdfa& out, const rnfa& nfa);

protected:
    /// A state under construction. It stands for a set of NFA states, as found: not
    /// closed. The set is kept as ascending numbers and not as a bit for each state:
    /// sets are small, and large automata would cost the square of their size.
    struct dfa_state {
        unsigned first_member;
        unsigned member_count;
        unsigned hash; // of the members
        short accept;  ///< The rule accepted; -1 for none.
        short* next;   ///< 256 states, -1 where there is no way on.
    };

    /// Adds a state for a set; returns its number, or -1 when there are 32767 already.
    short new_state(const rnfa::state_set& set);
    /// The first state made for this set; -1 if there is none.
    short find_state(const rnfa::state_set& set) const;
    unsigned num_state() const { return static_cast<unsigned>(states_.size()); }
    /// Valid until the next state is added.
    dfa_state* get_state(short s);
    /// Turns the states into the table of `out` and removes them.
    void distill_dfa(rdfa& out);
    /// Removes all states.
    void clear();

private:
    class construction;
    using members = std::vector<unsigned short>;

    static members members_of(const rnfa::state_set& set);
    short find(const members& set, unsigned hash) const;
    short add(const members& set, unsigned hash);
    void make_index(std::size_t size);
    void enter(short s);
    short* row(short s) const { return rows_ + s * 256; }

    std::vector<dfa_state> states_; // in creation order
    members members_;               // of all states
    short* rows_;                   // of all states: the table, as far as it goes
    unsigned row_capacity_;
    std::vector<short> index_; // hash table of state numbers, -1 for free
};

/// Reserved for a front class; its operations are not implemented yet.
class KRO_API regex {
public:
    /// Returns err::not_implemented and does nothing.
    int compile(const char* pattern);
    /// Returns err::not_implemented and does nothing.
    int match(const char* begin, const char* end);

private:
    rnfa nfa_;
    rdfa dfa_;
};

#endif
