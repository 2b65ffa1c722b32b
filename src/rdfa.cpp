// A deterministic automaton that reads bytes and names the rule it accepts.
#include <stdkro/rdfa.h>

#include "no_bad_alloc.h"

#include <stdkro/xcpt.h>

#include <cstring>

namespace {

constexpr short byte_columns = 256;

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
    if (other.is_linked())
        link_rows();
}

rdfa& rdfa::operator=(const rdfa& other)
{
    if (this == &other)
        return *this;
    no_bad_alloc("rdfa::operator=(const rdfa&)", [&] { accepts_ = other.accepts_; });
    share(other);
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
    unlink();
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
