// A nondeterministic automaton in two flat arrays, built from fragments by
// Thompson's construction: each fragment has one start and one finish, a finish
// never has arcs, and fragments are joined by arcs that read nothing. See Aho,
// Sethi, Ullman, "Compilers", section 3.7.
//
// Invariant: both arrays hold at most 32767 entries, so that every number and
// every end of a range fits a signed 16-bit field.
#include <stdkro/rnfa.h>

#include "bug.h"
#include "nfa_walk.h"
#include "no_bad_alloc.h"

#include <stdkro/xcpt.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

namespace {

constexpr unsigned limit = 32767;

/// Where a text ends. A null text is the empty one.
const char* text_end(const char* begin, const char* end) { return end || !begin ? end : begin + std::strlen(begin); }

unsigned char as_byte(char c) { return static_cast<unsigned char>(c); }

short renumber(short s, unsigned by) { return static_cast<short>(s + static_cast<int>(by)); }

template <class item_t> void grow(std::vector<item_t>& items, unsigned by)
{
    const std::size_t needed = items.size() + by;
    if (needed > items.capacity())
        items.reserve(std::max(needed, 2 * items.capacity()));
}

/// The bytes that some state of a set reads.
class readable {
public:
    readable(const rnfa& nfa, const rnfa::state_set& set)
    {
        for (unsigned s = set.next_bit(0); s < set.capacity(); s = set.next_bit(s + 1)) {
            const rnfa::state& state = *nfa.get_state(static_cast<short>(s));
            for (short a = state.first; a < state.end; ++a) {
                if (nfa.get_arc(a)->symbol < rnfa::epsilon)
                    has_[nfa.get_arc(a)->symbol] = true;
            }
        }
    }
    bool has(char c) const { return has_[as_byte(c)]; }

private:
    bool has_[256] = {};
};

rnfa::state_set empty_set(const rnfa& nfa)
{
    rnfa::state_set set;
    if (!set.reserved(nfa.num_state()))
        throw xcpt(err::out_of_memory, "rnfa::state_set");
    return set;
}

} // namespace

rnfa::rnfa() : start_(-1), finish_(-1), walk_plan_(nullptr) {}

rnfa::rnfa(const rnfa& other) : rnfa()
{
    no_bad_alloc("rnfa::rnfa(const rnfa&)", [&] {
        states_ = other.states_;
        arcs_ = other.arcs_;
    });
    start_ = other.start_;
    finish_ = other.finish_;
}

rnfa& rnfa::operator=(const rnfa& other)
{
    if (this != &other)
        rnfa(other).swap(*this);
    return *this;
}

rnfa::~rnfa() { drop_walk_plan(); }

rnfa* rnfa::alloc_nfa()
{
    return no_bad_alloc("rnfa::alloc_nfa", [] {
        std::unique_ptr<rnfa> nfa(new rnfa);
        nfa->begin_fragment();
        return nfa.release();
    });
}

short rnfa::alloc_state()
{
    make_room(1, 0);
    return add_state();
}

void rnfa::set_expr(short id)
{
    if (!is_state(finish_)) {
        report_bug("src/rnfa", __LINE__);
        return;
    }
    drop_walk_plan();
    states_[static_cast<unsigned short>(finish_)].expr = id;
}

void rnfa::clear()
{
    rnfa empty;
    swap(empty);
}

/// Two states, start 0 and finish 1, in the memory that is there.
void rnfa::begin_fragment()
{
    states_.clear();
    arcs_.clear();
    make_room(2, 1);
    start_ = add_state();
    finish_ = add_state();
}

/// Makes sure that so many states and arcs can be added: what comes after cannot fail.
/// Every change of states and arcs begins here.
void rnfa::make_room(unsigned states, unsigned arcs)
{
    if (states > limit - states_.size() || arcs > limit - arcs_.size())
        throw xcpt(err::overrun, "rnfa: too many states or arcs");
    drop_walk_plan();
    no_bad_alloc("rnfa", [&] {
        grow(states_, states);
        grow(arcs_, arcs);
    });
}

short rnfa::add_state()
{
    states_.emplace_back();
    return static_cast<short>(states_.size() - 1);
}

// KEEP: an arc inserted in the middle moves the arcs behind it, but not the ranges
// of their states. The construction inserts only in "?", where the arc that takes
// the moved one's place equals it; programs number their arcs by this rule.
void rnfa::add_arc(int from, int to, int symbol)
{
    if (!is_state(from) || !is_state(to)) {
        report_bug("src/rnfa", __LINE__);
        return;
    }
    state& s = states_[static_cast<unsigned>(from)];
    if (s.end < 0)
        s.first = s.end = static_cast<short>(arcs_.size());
    arcs_.emplace(arcs_.begin() + s.end, static_cast<unsigned short>(symbol), static_cast<unsigned short>(to));
    ++s.end;
}

void rnfa::connect(short from, short to, int symbol)
{
    make_room(0, 1);
    add_arc(from, to, symbol);
}

// KEEP: an empty set becomes an arc that reads nothing, so "[]" matches the empty text.
void rnfa::connect(short from, short to, const unsigned char* set)
{
    const auto members = static_cast<unsigned>(256 - std::count(set, set + 256, 0));
    make_room(0, std::max(members, 1u));
    for (int byte = 0; byte < 256; ++byte) {
        if (set[byte] != 0)
            add_arc(from, to, byte);
    }
    if (members == 0)
        add_arc(from, to, epsilon);
}

void rnfa::splice(const rnfa& other)
{
    make_room(other.num_state(), other.num_arc());
    append(other);
}

/// `splice` where room was made. `other` may be this automaton.
void rnfa::append(const rnfa& other)
{
    const unsigned n = num_state();
    const unsigned m = num_arc();
    const unsigned states = other.num_state();
    const unsigned arcs = other.num_arc();
    for (unsigned i = 0; i < states; ++i) {
        const state& s = other.states_[i];
        const unsigned shift = s.end >= 0 ? m : 0;
        states_.emplace_back(s.expr, renumber(s.first, shift), renumber(s.end, shift));
    }
    for (unsigned i = 0; i < arcs; ++i) {
        const arc& a = other.arcs_[i];
        arcs_.emplace_back(a.symbol, static_cast<unsigned short>(a.target + n));
    }
}

bool rnfa::is_fragment() const { return is_state(start_) && is_state(finish_); }

void rnfa::connect_and(const rnfa& other)
{
    if (!is_fragment() || !other.is_fragment()) {
        report_bug("src/rnfa", __LINE__);
        return;
    }
    const unsigned n = num_state();
    const short their_start = renumber(other.start_, n);
    const short their_finish = renumber(other.finish_, n);
    make_room(other.num_state(), other.num_arc() + 1);
    append(other);
    add_arc(finish_, their_start, epsilon);
    finish_ = their_finish;
}

void rnfa::connect_or(const rnfa& other)
{
    if (!is_fragment() || !other.is_fragment()) {
        report_bug("src/rnfa", __LINE__);
        return;
    }
    // Joined with itself, it is copied with the two states that are added here.
    const unsigned own = this == &other ? 2 : 0;
    make_room(other.num_state() + own + 2, other.num_arc() + 4);
    const short s = add_state();
    const short f = add_state();
    const unsigned n = num_state();
    const short their_start = renumber(other.start_, n);
    const short their_finish = renumber(other.finish_, n);
    append(other);
    add_arc(s, start_, epsilon);
    add_arc(s, their_start, epsilon);
    add_arc(finish_, f, epsilon);
    add_arc(their_finish, f, epsilon);
    start_ = s;
    finish_ = f;
}

void rnfa::connect_repeat(int op)
{
    const bool repeats = op == '*' || op == '+' || op == '?';
    if (repeats && !is_fragment()) {
        report_bug("src/rnfa", __LINE__);
        return;
    }
    make_room(2, 4);
    const short s = add_state();
    const short f = add_state();
    // The order of the arcs is part of the contract.
    if (op == '*')
        add_arc(s, f, epsilon);
    if (repeats) {
        add_arc(s, start_, epsilon);
        add_arc(finish_, f, epsilon);
    }
    if (op == '?')
        add_arc(s, f, epsilon);
    else if (repeats)
        add_arc(finish_, start_, epsilon);
    // KEEP: any other operator leaves the fragment behind, out of reach.
    start_ = s;
    finish_ = f;
}

void rnfa::closure(state_set& set) const
{
    if (!set.reserved(num_state()))
        throw xcpt(err::out_of_memory, "rnfa::closure");
    no_bad_alloc("rnfa::closure", [&] {
        std::vector<unsigned> waiting;
        for (unsigned s = set.next_bit(0); s < num_state(); s = set.next_bit(s + 1))
            waiting.push_back(s);
        while (!waiting.empty()) {
            const state& s = states_[waiting.back()];
            waiting.pop_back();
            for (short a = s.first; a < s.end; ++a) {
                const arc& move = *get_arc(a);
                if (move.symbol == epsilon && set.add_bit(move.target))
                    waiting.push_back(move.target);
            }
        }
    });
}

rnfa::state_set rnfa::move(const state_set& set, int symbol) const
{
    state_set reached = empty_set(*this);
    for (unsigned s = set.next_bit(0); s < set.capacity() && s < num_state(); s = set.next_bit(s + 1)) {
        for (short a = states_[s].first; a < states_[s].end; ++a) {
            if (get_arc(a)->symbol == symbol)
                reached.add_bit(get_arc(a)->target);
        }
    }
    return reached;
}

bool rnfa::match(const char* begin, const char* end) const
{
    if (!is_state(start_))
        return false;
    end = text_end(begin, end);
    return no_bad_alloc("rnfa::match", [&] {
        return nfa_walk(walk_plan(), static_cast<unsigned short>(start_)).run(begin, end);
    });
}

bool rnfa::match(const char* text) const { return match(text, nullptr); }

rnfa::state_set rnfa::search(rnfa_match_result& result, const char* text) const
{
    return search(result, text, nullptr);
}

// KEEP: each later byte is tested against the states behind the first byte and not
// behind the byte before: "abc" finds "abb". Callers use this as a quick filter.
rnfa::state_set rnfa::search(rnfa_match_result& result, const char* begin, const char* end) const
{
    end = text_end(begin, end);
    result.begin = result.end = end;
    state_set initial = empty_set(*this);
    if (!is_state(start_))
        return initial;
    initial.add_bit(static_cast<unsigned short>(start_));
    closure(initial);
    const readable first(*this, initial);
    const char* p = std::find_if(begin, end, [&](char c) { return first.has(c); });
    if (p == end)
        return empty_set(*this);
    state_set reached = move(initial, as_byte(*p));
    closure(reached);
    const readable later(*this, reached);
    result.begin = p;
    result.end = std::find_if(p + 1, end, [&](char c) { return !later.has(c); });
    return reached;
}

const nfa_walk_plan& rnfa::walk_plan() const
{
    const nfa_walk_plan* plan = walk_plan_.load(std::memory_order_acquire);
    if (plan)
        return *plan;
    std::unique_ptr<const nfa_walk_plan> made(new nfa_walk_plan(*this));
    // Another thread may have been faster: then its plan is as good.
    if (walk_plan_.compare_exchange_strong(plan, made.get(), std::memory_order_acq_rel))
        plan = made.release();
    return *plan;
}

void rnfa::drop_walk_plan() const
{
    if (walk_plan_.load(std::memory_order_relaxed))
        delete walk_plan_.exchange(nullptr);
}

void rnfa::swap(rnfa& other) noexcept
{
    drop_walk_plan();
    other.drop_walk_plan();
    std::swap(start_, other.start_);
    std::swap(finish_, other.finish_);
    states_.swap(other.states_);
    arcs_.swap(other.arcs_);
}
