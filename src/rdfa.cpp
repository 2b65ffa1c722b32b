// A deterministic automaton that reads bytes and names the rule it accepts.
#include <stdkro/rdfa.h>

#include "no_bad_alloc.h"

#include <stdkro/xcpt.h>

#include <cstddef>
#include <cstring>

namespace {

constexpr short byte_columns = 256;

/// Longer texts are worth reading ahead.
constexpr std::ptrdiff_t short_text = 32;

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
        : table_(table), rows_(static_cast<unsigned>(rows)), p_(p), end_(end)
    {
    }

    /// False at the end, and where there is no way on.
    bool step()
    {
        if (p_ == end_)
            return false;
        state_ = static_cast<unsigned short>(table_[state_ * byte_columns | as_byte(*p_++)]);
        return !failed();
    }
    bool failed() const { return state_ >= rows_; } // every negative one too
    unsigned state() const { return state_; }

private:
    const short* const table_;
    const unsigned rows_;
    const char* p_;
    const char* const end_;
    unsigned state_ = 0;
};

} // namespace

rdfa::rdfa()
{
    for (short byte = 0; byte < byte_columns; ++byte)
        ccl2ecs_[byte] = byte;
}

rdfa::rdfa(const rdfa& other) : dfa(other)
{
    no_bad_alloc("rdfa::rdfa(const rdfa&)", [&] { accepts_ = other.accepts_; });
    std::memcpy(ccl2ecs_, other.ccl2ecs_, sizeof ccl2ecs_);
}

rdfa& rdfa::operator=(const rdfa& other)
{
    if (this == &other)
        return *this;
    no_bad_alloc("rdfa::operator=(const rdfa&)", [&] { accepts_ = other.accepts_; });
    dfa::operator=(other);
    std::memcpy(ccl2ecs_, other.ccl2ecs_, sizeof ccl2ecs_);
    return *this;
}

rdfa::~rdfa() = default;

void rdfa::clear()
{
    dfa::clear();
    accepts_.clear();
}

// KEEP: entries of earlier rows stay; a table filled anew keeps their smaller rules.
void rdfa::on_create()
{
    const auto rows = static_cast<std::size_t>(num_row());
    if (accepts_.size() >= rows)
        return;
    try {
        accepts_.resize(rows, -1);
    } catch (const std::bad_alloc&) {
        rdfa::clear();
        throw xcpt(err::out_of_memory, "rdfa::on_create");
    }
}

// KEEP: -1 counts as a rule smaller than the one that a row accepts.
int rdfa::set_accept(short row, short rule)
{
    rdfa::on_create(); // a table that came by assignment or copy brings no rules
    const auto i = static_cast<unsigned short>(row);
    if (i >= accepts_.size())
        return err::invalid_parameter;
    short& accepted = accepts_[i];
    if (accepted == -1 || accepted == rule) {
        accepted = rule;
        return err::ok;
    }
    if (rule < accepted)
        accepted = rule;
    return err::conflict;
}

short rdfa::get_accept(short row) const
{
    const auto i = static_cast<unsigned short>(row);
    return i < accepts_.size() ? accepts_[i] : static_cast<short>(-1);
}

int rdfa::match(const char* text) const { return match(text, text ? text + std::strlen(text) : nullptr); }

// For a token, a call costs as much as the walk: in that case this function calls
// nothing, saves no register and jumps nowhere.
int rdfa::match(const char* begin, const char* end) const
{
    if (__builtin_expect(!end || num_col() != byte_columns || end - begin > short_text, false))
        return match_other(begin, end);
    return run_short(begin, end);
}

[[gnu::noinline]] int rdfa::match_other(const char* begin, const char* end) const
{
    if (!end && begin)
        end = begin + std::strlen(begin);
    return num_col() == byte_columns ? run_long(begin, end) : run_narrow(begin, end);
}

inline int rdfa::accepted_by(std::size_t state) const { return state < accepts_.size() ? accepts_[state] : -1; }

inline int rdfa::run_short(const char* p, const char* end) const
{
    if (num_row() == 0)
        return err::failed;
    waiter at(get_table(), num_row(), p, end);
    while (at.step() && at.step() && at.step() && at.step() && at.step() && at.step() && at.step() && at.step()) {
    }
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

bool rdfa::equ_ccl(short a, short b) const
{
    for (short r = 0; r < num_row(); ++r) {
        if (get_state(r, a) != get_state(r, b))
            return false;
    }
    return true;
}

void rdfa::merge_col()
{
    if (num_col() != byte_columns)
        return;
    // The smallest column equal to a byte's is the first of its class, so comparing
    // with the first column of each class finds it.
    short firsts[byte_columns];
    short map[byte_columns];
    short count = 0;
    for (short byte = 0; byte < byte_columns; ++byte) {
        short c = 0;
        while (c < count && !equ_ccl(byte, firsts[c]))
            ++c;
        if (c == count)
            firsts[count++] = byte;
        map[byte] = c;
    }
    // Into a new table: objects that share the old one keep it as it is.
    short* merged = new_table(static_cast<unsigned>(num_row()) * static_cast<unsigned>(count));
    for (short r = 0; r < num_row(); ++r) {
        for (short c = 0; c < count; ++c)
            merged[r * count + c] = get_state(r, firsts[c]);
    }
    adopt(merged, num_row(), count);
    std::memcpy(ccl2ecs_, map, sizeof ccl2ecs_);
}

// The front class is reserved: a program that needs it combines rnfa_maker, rdfa_maker
// and rdfa::match itself.
int regex::compile(const char*) { return err::not_implemented; }
int regex::match(const char*, const char*) { return err::not_implemented; }
