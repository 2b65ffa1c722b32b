// A table of next states that several objects may share.
//
// What the sharers have in common, their number first of all, stands before the first
// entry, so that the object itself stays two sizes and a pointer.
#include <stdkro/rdfa.h>

#include "bug.h"

#include <stdkro/xcpt.h>

#include <algorithm>
#include <cstdlib>

namespace {

unsigned entries_of(short rows, short cols) { return static_cast<unsigned>(rows) * static_cast<unsigned>(cols); }

} // namespace

dfa::dfa() : rows_(0), cols_(0), table_(nullptr) {}

dfa::dfa(const dfa& other) : dfa() { copy(other); }

// KEEP: assignment shares the table; `copy` duplicates it. Programs hand tables on
// this way without paying for a copy.
dfa& dfa::operator=(const dfa& other)
{
    share(other);
    unlink(); // linked rows know the rules, which do not come along
    return *this;
}

void dfa::share(const dfa& other)
{
    if (other.table_)
        ++head_of(other.table_)->sharers;
    adopt(other.table_, other.rows_, other.cols_);
}

void dfa::clear() { adopt(nullptr, 0, 0); }

dfa::~dfa() { release_table(table_); }

void dfa::on_create() {}

void dfa::create(short rows, short cols)
{
    if (rows < 0 || cols < 0) {
        report_bug("src/dfa", __LINE__);
        rows = cols = 0;
    }
    adopt(nullptr, 0, 0);
    adopt(new_table(entries_of(rows, cols)), rows, cols);
    on_create();
}

void dfa::create(short rows, short cols, short fill)
{
    create(rows, cols);
    std::fill_n(table_, entries_of(rows_, cols_), fill);
}

void dfa::copy(const dfa& other)
{
    if (this == &other)
        return;
    const unsigned entries = entries_of(other.rows_, other.cols_);
    short* table = new_table(entries);
    std::copy_n(other.table_, entries, table);
    adopt(table, other.rows_, other.cols_);
}

/// Room for so many entries, null for none.
short* dfa::new_table(unsigned entries) { return entries == 0 ? nullptr : resize_table(nullptr, entries); }

/// Keeps the entries as far as there is room for them. The table must not be shared.
short* dfa::resize_table(short* table, unsigned entries)
{
    void* memory = std::realloc(table ? head_of(table) : nullptr, sizeof(table_head) + entries * sizeof(short));
    if (!memory)
        throw xcpt(err::out_of_memory, "dfa");
    auto* head = static_cast<table_head*>(memory);
    head->linked = 0;
    head->sharers = 1;
    return reinterpret_cast<short*>(head + 1);
}

void dfa::release_table(short* table)
{
    if (table && --head_of(table)->sharers == 0)
        std::free(head_of(table));
}

/// Takes the table over from whoever made it.
void dfa::adopt(short* table, short rows, short cols)
{
    release_table(table_);
    table_ = table;
    rows_ = rows;
    cols_ = cols;
}
