// The walks of an automaton through a text.
#include <stdkro/rdfa.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace {

constexpr short byte_columns = 256;

/// Longer texts are worth reading ahead.
constexpr std::size_t short_text = 32;

/// Automata of more rows are not linked: what a walk touches is to stay in the nearest cache,
/// and linking is to take but a part of the time that construction takes.
constexpr unsigned most_linked_rows = 48;

unsigned char as_byte(char c) { return static_cast<unsigned char>(c); }

/// One step after the other through a table of 256 columns.
///
/// The row stays in its register until the state changes: the branch is predicted,
/// and the processor reads ahead instead of waiting for each state.
class stepper {
public:
    stepper(const short* table, short rows) : table_(table), row_(table), rows_(static_cast<unsigned>(rows)) {}

    /// False where there is no way on.
    bool step(char c)
    {
        const auto next = static_cast<unsigned>(row_[as_byte(c)]);
        if (next == state_)
            return true;
        if (next >= rows_)
            return false;
        state_ = next;
        row_ = table_ + next * byte_columns;
        return true;
    }
    bool step_4(const char* p) { return step(p[0]) && step(p[1]) && step(p[2]) && step(p[3]); }
    /// Whether each of the next 8 bytes leads back to the present state.
    bool stays_for_8(const char* p) const
    {
        unsigned changes = 0;
        for (int i = 0; i < 8; ++i)
            changes |= static_cast<unsigned>(row_[as_byte(p[i])]) ^ state_;
        return changes == 0;
    }
    short state() const { return static_cast<short>(state_); }

private:
    const short* const table_;
    const short* row_;
    const unsigned rows_;
    unsigned state_ = 0;
};

/// The same for short texts: waits for each state, since a change of the state that the
/// processor did not foresee costs more there than what it gains by reading ahead.
///
/// Take several steps in one turn of a loop: each then has a test for the end of its
/// own, and the processor foresees how long tokens are. With one step a turn, the jumps
/// back crowd out what it knows of the tokens before, and a token takes twice the time.
class waiter {
public:
    waiter(const short* table, short rows, const char* p, const char* end)
        : table_(table), rows_(static_cast<unsigned>(rows)), p_(p), left_(static_cast<std::size_t>(end - p))
    {
    }

    /// Takes byte `i`. False at the end, and where there is no way on.
    bool step(unsigned i)
    {
        if (left_ == i)
            return false;
        state_ = static_cast<unsigned short>(table_[state_ * byte_columns | as_byte(p_[i])]);
        return !failed();
    }
    bool step_8()
    {
        if (!(step(0) && step(1) && step(2) && step(3) && step(4) && step(5) && step(6) && step(7)))
            return false;
        p_ += 8;
        left_ -= 8;
        return true;
    }
    bool failed() const { return state_ >= rows_; } // every negative one too
    unsigned state() const { return state_; }

private:
    const short* const table_;
    const unsigned rows_;
    const char* p_;
    std::size_t left_;
    unsigned state_ = 0;
};

} // namespace

// Links the rows of a small automaton: behind the table of numbers, of which programs see
// every entry, stand rows that hold the addresses of the next ones. They need no test, as
// there is a row for nowhere, which leads to itself; and they know the rules.
//
// Where a text lacks bytes to a number of steps that suits the walk, zeros are put before it,
// and the walk starts that many rows earlier: in rows that know byte 0 only.
//
// Whoever may change numbers or rules takes the links out of use for good: who writes through
// a pointer tells nobody. So this is for numbers that come from the maker.
void rdfa::link_rows()
{
    const auto rows = static_cast<unsigned>(num_row());
    const unsigned entries = rows * byte_columns;
    if (rows == 0 || rows > most_linked_rows)
        return;
    table_ = resize_table(table_, entries + (rows + 1) * static_cast<unsigned>(sizeof(linked_row) / sizeof *table_));
    const auto nowhere = reinterpret_cast<linked_row*>(table_ + entries);
    const auto first = nowhere + 1; // behind nowhere, which is number -1
    std::fill(std::begin(nowhere->next), std::end(nowhere->next), nowhere);
    std::fill(std::begin(nowhere->rule), std::end(nowhere->rule), err::failed);
    const short* number = table_;
    for (linked_row* row = first; row != first + rows; ++row) {
        for (unsigned byte = 0; byte < byte_columns; ++byte, ++number) {
            row->next[byte] = first + *number;
            row->rule[byte] = *number < 0 ? err::failed : accepts_[static_cast<unsigned short>(*number)];
        }
    }
    table_head& head = *head_of(table_);
    head.start[0] = first;
    for (auto at = std::begin(head.start) + 1; at != std::end(head.start); ++at)
        *at = reinterpret_cast<const linked_row*>(at - 1);
    head.linked = std::size(head.start);
}

int rdfa::match(const char* text) const { return match(text, text ? text + std::strlen(text) : nullptr); }

// As a call costs much beside the walk of a short text, there is no second one, and no
// register is saved.
int rdfa::match_short(const char* begin, const char* end) const
{
    if (length_of(begin, end) <= short_text) {
        if (is_linked())
            return run_linked(begin, end);
        if (num_col() == byte_columns)
            return run_short(begin, end);
    }
    return match_other(begin, end);
}

[[gnu::noinline]] int rdfa::match_other(const char* begin, const char* end) const
{
    if (!end && begin)
        end = begin + std::strlen(begin);
    return num_col() == byte_columns ? run_long(begin, end) : run_narrow(begin, end);
}

inline int rdfa::accepted_by(std::size_t state) const { return state < accepts_.size() ? accepts_[state] : -1; }

/// For texts of up to 3 bytes, and of more than 8.
inline int rdfa::run_linked(const char* p, const char* end) const
{
    const table_head& head = *head_of(table_);
    std::size_t left = length_of(p, end);
    if (left == 0)
        return accepted_by(0);
    if (left < 4) {
        const linked_row* row = head.start[0];
        for (; left != 1; --left)
            row = row->next[as_byte(*p++)];
        return row->rule[as_byte(*p)];
    }
    const std::size_t missing = (0 - left) % 4;
    const linked_row* row = head.start[missing]->step_4(bytes_behind(missing, p));
    p += 4 - missing;
    for (; end - p > 4; p += 4)
        row = row->step_4(bytes_at(p));
    return row->last_4(bytes_at(p));
}

inline int rdfa::run_short(const char* p, const char* end) const
{
    if (num_row() == 0)
        return err::failed;
    waiter at(get_table(), num_row(), p, end);
    while (at.step_8()) { }
    return at.failed() ? err::failed : accepted_by(at.state());
}

int rdfa::run_long(const char* p, const char* end) const
{
    if (num_row() == 0)
        return err::failed;
    stepper at(get_table(), num_row());
    for (; end - p >= 4; p += 4) {
        const short before = at.state();
        if (!at.step_4(p))
            return err::failed;
        while (before == at.state() && end - p >= 12 && at.stays_for_8(p + 4))
            p += 8;
    }
    for (; p != end; ++p) {
        if (!at.step(*p))
            return err::failed;
    }
    return accepted_by(static_cast<std::size_t>(at.state()));
}

/// The same where some bytes have no column.
int rdfa::run_narrow(const char* p, const char* end) const
{
    short state = 0;
    if (num_row() == 0)
        return err::failed;
    for (; p != end; ++p) {
        if (as_byte(*p) >= num_col())
            return err::failed;
        state = get_state(state, as_byte(*p));
        if (state < 0 || state >= num_row())
            return err::failed;
    }
    return accepted_by(static_cast<std::size_t>(state));
}
