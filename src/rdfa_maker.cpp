// Subset construction: an rnfa becomes a table-driven automaton.
//
// A state of the result is a set of NFA states. Sets wait in creation order until
// they are expanded; a set seen before is reused and never added again: that is why
// construction ends. See Aho, Sethi, Ullman, "Compilers", section 3.6.
//
// What makes it fast: bytes that no arc tells apart are handled as one class. To
// expand a set, its closure is taken once, and all classes begin in one group, "goes
// nowhere"; each move of the closure splits the groups of the classes it reads. What
// is left are a few groups, each with one set of targets. Sets are found by hash.
#include <stdkro/rdfa.h>

#include "nfa_plan.h"
#include "no_bad_alloc.h"

#include <stdkro/xcpt.h>

#include <algorithm>
#include <utility>

namespace {

constexpr unsigned limit = 32767;
constexpr unsigned byte_count = 256;

template <class item_t> unsigned count_of(const std::vector<item_t>& items) { return static_cast<unsigned>(items.size()); }

unsigned hash_of(const std::vector<unsigned short>& members)
{
    unsigned h = 2166136261u;
    for (const unsigned short s : members)
        h = (h ^ s) * 16777619u;
    return h ^ h >> 15;
}

/// The bytes 0..255 in classes, so that each arc of the automaton either reads all
/// of a class or none. Classes are numbered in the order of their first bytes.
class byte_classes {
public:
    byte_classes() : count_(1) { size_[0] = byte_count; }

    /// Splits the classes that `set` holds in part. Its bytes are all different.
    void tell_apart(const unsigned char* set, unsigned n);
    void number_by_first_byte();

    unsigned count() const { return count_; }
    unsigned char operator[](unsigned char byte) const { return class_of_[byte]; }

private:
    unsigned char class_of_[byte_count] = {};
    unsigned size_[byte_count];
    unsigned hits_[byte_count] = {}; // zero between calls
    unsigned count_;
};

void byte_classes::tell_apart(const unsigned char* set, unsigned n)
{
    if (n == 1 && size_[class_of_[*set]] == 1)
        return;
    unsigned char touched[byte_count];
    unsigned char part[byte_count]; // the class of the bytes that are in the set
    unsigned touched_count = 0;
    for (unsigned i = 0; i < n; ++i) {
        const unsigned char c = class_of_[set[i]];
        if (hits_[c]++ == 0)
            touched[touched_count++] = c;
    }
    for (unsigned i = 0; i < touched_count; ++i) {
        const unsigned char c = touched[i];
        part[c] = c;
        if (hits_[c] < size_[c]) {
            part[c] = static_cast<unsigned char>(count_);
            size_[c] -= hits_[c];
            size_[count_++] = hits_[c];
        }
        hits_[c] = 0;
    }
    for (unsigned i = 0; i < n; ++i)
        class_of_[set[i]] = part[class_of_[set[i]]];
}

void byte_classes::number_by_first_byte()
{
    unsigned char number[byte_count];
    bool numbered[byte_count] = {};
    unsigned next = 0;
    for (unsigned char& c : class_of_) {
        if (!numbered[c]) {
            numbered[c] = true;
            number[c] = static_cast<unsigned char>(next++);
        }
        c = number[c];
    }
}

} // namespace

class rdfa_maker::construction {
public:
    construction(rdfa_maker& maker, const rnfa& nfa);
    /// False when there would be too many states.
    bool run();

private:
    /// Classes that go to the same targets: those of the parent and one more.
    struct group {
        unsigned parent;
        unsigned split_by; // the move that split it last,
        unsigned split_to; // and the group of the classes that this move reads
        unsigned short target;
        short state; // -1 until found
    };
    static constexpr unsigned nowhere = 0;

    void turn_bytes_into_classes();
    void list_bytes();

    void close(const members& set);
    void reach(unsigned short s);
    void split_groups(const nfa_plan::move& m);
    bool expand(short state);
    bool find_state_of(unsigned g);

    rdfa_maker& maker_;
    nfa_plan plan_; // its bytes are turned into classes
    byte_classes class_of_;
    unsigned char bytes_[byte_count]; // in the order of their classes
    unsigned first_byte_[byte_count + 1];

    // Of the state being expanded:
    unsigned step_ = 0;
    std::vector<unsigned> reached_; // the step in which each NFA state was reached last
    std::vector<unsigned short> closure_;
    std::vector<group> groups_;
    unsigned group_of_[byte_count]; // by class
    unsigned split_ = 0;
    members targets_;
};

rdfa_maker::construction::construction(rdfa_maker& maker, const rnfa& nfa)
    : maker_(maker), plan_(nfa), reached_(nfa.num_state(), 0)
{
    for (const nfa_plan::move& m : plan_.moves)
        class_of_.tell_apart(&plan_.bytes[m.first], m.end - m.first);
    class_of_.number_by_first_byte();
    turn_bytes_into_classes();
    list_bytes();
    targets_.assign(1, static_cast<unsigned short>(nfa.start()));
}

/// The moves were collected as bytes, before it was known which bytes differ. A
/// move reads no more classes than bytes, so this can be done in place.
void rdfa_maker::construction::turn_bytes_into_classes()
{
    unsigned seen_by[byte_count] = {}; // the move that read each class last, counted from 1
    unsigned number = 0;
    for (nfa_plan::move& m : plan_.moves) {
        ++number;
        unsigned end = m.first;
        for (unsigned i = m.first; i < m.end; ++i) {
            const unsigned char c = class_of_[plan_.bytes[i]];
            if (seen_by[c] != number)
                plan_.bytes[end++] = c;
            seen_by[c] = number;
        }
        m.end = end;
    }
}

void rdfa_maker::construction::list_bytes()
{
    std::fill_n(first_byte_, class_of_.count() + 1, 0);
    for (unsigned byte = 0; byte < byte_count; ++byte)
        ++first_byte_[class_of_[static_cast<unsigned char>(byte)] + 1];
    for (unsigned c = 0; c < class_of_.count(); ++c)
        first_byte_[c + 1] += first_byte_[c];
    unsigned next[byte_count];
    std::copy_n(first_byte_, class_of_.count(), next);
    for (unsigned byte = 0; byte < byte_count; ++byte)
        bytes_[next[class_of_[static_cast<unsigned char>(byte)]]++] = static_cast<unsigned char>(byte);
}

void rdfa_maker::construction::reach(unsigned short s)
{
    if (reached_[s] == step_)
        return;
    reached_[s] = step_;
    closure_.push_back(s);
}

void rdfa_maker::construction::close(const members& set)
{
    ++step_;
    closure_.clear();
    for (const unsigned short s : set)
        reach(s);
    for (std::size_t i = 0; i < closure_.size(); ++i) {
        const nfa_plan::node& n = plan_.nodes[closure_[i]];
        for (unsigned e = n.first_empty; e < n.end_empty; ++e)
            reach(plan_.empty_moves[e]);
    }
}

/// The classes that `m` reads leave their groups for ones with one target more.
void rdfa_maker::construction::split_groups(const nfa_plan::move& m)
{
    ++split_;
    for (unsigned i = m.first; i < m.end; ++i) {
        unsigned& g = group_of_[plan_.bytes[i]];
        if (groups_[g].split_by != split_) {
            groups_[g].split_by = split_;
            groups_[g].split_to = count_of(groups_);
            groups_.push_back({ g, 0, 0, m.target, -1 });
        }
        g = groups_[g].split_to;
    }
}

/// Finds the state for a group's targets, or adds it; false when there are too many.
bool rdfa_maker::construction::find_state_of(unsigned g)
{
    targets_.clear();
    for (unsigned i = g; i != nowhere; i = groups_[i].parent)
        targets_.push_back(groups_[i].target);
    if (targets_.size() > 1) {
        std::sort(targets_.begin(), targets_.end());
        targets_.erase(std::unique(targets_.begin(), targets_.end()), targets_.end());
    }
    const unsigned hash = hash_of(targets_);
    short s = maker_.find(targets_, hash);
    if (s < 0)
        s = maker_.add(targets_, hash);
    groups_[g].state = s;
    return s >= 0;
}

bool rdfa_maker::construction::expand(short state)
{
    const dfa_state& record = *maker_.get_state(state);
    targets_.assign(&maker_.members_[record.first_member], &maker_.members_[record.first_member] + record.member_count);
    close(targets_);
    groups_.assign(1, { nowhere, 0, 0, 0, -1 });
    split_ = 0;
    std::fill_n(group_of_, class_of_.count(), nowhere);
    short accept = -1;
    for (const unsigned short s : closure_) {
        const nfa_plan::node& n = plan_.nodes[s];
        accept = std::max(accept, n.expr);
        for (unsigned m = n.first_move; m < n.end_move; ++m)
            split_groups(plan_.moves[m]);
    }
    maker_.get_state(state)->accept = accept;
    // In the order of bytes, which is the order in which new states are numbered.
    for (unsigned c = 0; c < class_of_.count(); ++c) {
        const unsigned g = group_of_[c];
        if (g != nowhere && groups_[g].state < 0 && !find_state_of(g))
            return false;
    }
    short* const row = maker_.row(state);
    for (unsigned c = 0; c < class_of_.count(); ++c) {
        if (group_of_[c] == nowhere)
            continue;
        for (unsigned i = first_byte_[c]; i < first_byte_[c + 1]; ++i)
            row[bytes_[i]] = groups_[group_of_[c]].state;
    }
    return true;
}

bool rdfa_maker::construction::run()
{
    maker_.add(targets_, hash_of(targets_));
    for (unsigned s = 0; s < maker_.num_state(); ++s) {
        if (!expand(static_cast<short>(s)))
            return false;
    }
    return true;
}

rdfa_maker::rdfa_maker() : rows_(nullptr), row_capacity_(0) {}

rdfa_maker::rdfa_maker(const rdfa_maker& other) : rdfa_maker()
{
    no_bad_alloc("rdfa_maker::rdfa_maker(const rdfa_maker&)", [&] {
        states_ = other.states_;
        members_ = other.members_;
        index_ = other.index_;
    });
    row_capacity_ = other.num_state();
    rows_ = dfa::new_table(row_capacity_ * byte_count);
    std::copy_n(other.rows_, row_capacity_ * byte_count, rows_);
}

rdfa_maker& rdfa_maker::operator=(const rdfa_maker& other)
{
    rdfa_maker copy(other);
    states_.swap(copy.states_);
    members_.swap(copy.members_);
    index_.swap(copy.index_);
    std::swap(rows_, copy.rows_);
    std::swap(row_capacity_, copy.row_capacity_);
    return *this;
}

rdfa_maker::~rdfa_maker() { clear(); }

int rdfa_maker::ntod(rdfa& out, const rnfa& nfa)
{
    struct cleaner {
        rdfa_maker& maker;
        ~cleaner() { maker.clear(); }
    };
    clear();
    if (nfa.start() < 0 || static_cast<unsigned>(nfa.start()) >= nfa.num_state())
        return err::failed;
    const cleaner on_every_way_out { *this };
    return no_bad_alloc("rdfa_maker::ntod", [&] {
        if (!construction(*this, nfa).run())
            return err::little_of_resource;
        distill_dfa(out);
        out.link_rows();
        return err::ok;
    });
}

short rdfa_maker::new_state(const rnfa::state_set& set)
{
    return no_bad_alloc("rdfa_maker::new_state", [&] {
        const members m = members_of(set);
        return add(m, hash_of(m));
    });
}

short rdfa_maker::find_state(const rnfa::state_set& set) const
{
    return no_bad_alloc("rdfa_maker::find_state", [&] {
        const members m = members_of(set);
        return find(m, hash_of(m));
    });
}

rdfa_maker::members rdfa_maker::members_of(const rnfa::state_set& set)
{
    members m;
    for (unsigned s = set.next_bit(0); s < set.capacity(); s = set.next_bit(s + 1))
        m.push_back(static_cast<unsigned short>(s));
    return m;
}

rdfa_maker::dfa_state* rdfa_maker::get_state(short s)
{
    dfa_state* state = &states_[static_cast<unsigned short>(s)];
    state->next = row(s);
    return state;
}

// The index is a hash table with free places (-1), probed one by one. Equal sets are
// entered in creation order and a probe meets the older first.
short rdfa_maker::find(const members& set, unsigned hash) const
{
    if (index_.empty())
        return -1;
    const std::size_t mask = index_.size() - 1;
    for (std::size_t i = hash & mask; index_[i] >= 0; i = (i + 1) & mask) {
        const dfa_state& s = states_[static_cast<unsigned short>(index_[i])];
        if (s.hash == hash && s.member_count == set.size()
            && std::equal(set.begin(), set.end(), members_.begin() + s.first_member))
            return index_[i];
    }
    return -1;
}

short rdfa_maker::add(const members& set, unsigned hash)
{
    if (num_state() == limit)
        return -1;
    if (num_state() == row_capacity_) {
        const unsigned capacity = std::min(limit, std::max(64u, 2 * row_capacity_));
        rows_ = dfa::resize_table(rows_, capacity * byte_count);
        row_capacity_ = capacity;
    }
    if (2 * states_.size() >= index_.size())
        make_index(std::max<std::size_t>(128, 2 * index_.size()));
    const auto s = static_cast<short>(num_state());
    std::fill_n(row(s), byte_count, static_cast<short>(-1));
    const unsigned first_member = count_of(members_);
    members_.insert(members_.end(), set.begin(), set.end());
    states_.push_back({ first_member, count_of(set), hash, -1, nullptr });
    enter(s);
    return s;
}

void rdfa_maker::make_index(std::size_t size)
{
    std::vector<short> fresh(size, -1);
    index_.swap(fresh);
    for (unsigned s = 0; s < num_state(); ++s)
        enter(static_cast<short>(s));
}

void rdfa_maker::enter(short s)
{
    const std::size_t mask = index_.size() - 1;
    std::size_t i = states_[static_cast<unsigned short>(s)].hash & mask;
    while (index_[i] >= 0)
        i = (i + 1) & mask;
    index_[i] = s;
}

// The rows become the table as they stand; `create` is called for what it means to
// the automaton: old rules stay, and its hook runs before the rows are there.
void rdfa_maker::distill_dfa(rdfa& out)
{
    const auto rows = static_cast<short>(num_state());
    out.create(rows, byte_count);
    if (rows > 0)
        rows_ = dfa::resize_table(rows_, num_state() * byte_count);
    out.adopt(rows_, rows, byte_count);
    rows_ = nullptr;
    row_capacity_ = 0;
    for (short i = 0; i < rows; ++i)
        out.set_accept(i, states_[static_cast<unsigned short>(i)].accept);
    clear();
}

void rdfa_maker::clear()
{
    dfa::release_table(rows_);
    rows_ = nullptr;
    row_capacity_ = 0;
    states_.clear();
    members_.clear();
    index_.clear();
}
