// Patterns become automata: each construct that the parser reports is a fragment.
//
// The maker knows the fragments of the expression being parsed, so that none is
// lost when an error ends it, and keeps released ones for their memory: a pattern
// of n symbols needs two or three fragments at a time, not n.
#include <stdkro/rnfa.h>

#include "no_bad_alloc.h"

#include <stdkro/xcpt.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

namespace {

struct byte_range {
    unsigned char first;
    unsigned char last;
};

struct named_class {
    const char* name;
    byte_range ranges[4];
    unsigned count;
};

// KEEP: the last character of each range is missing ("9", "f", "z", ...). Stored
// rules were written against these classes.
constexpr named_class classes[] = {
    { ":digit:", { { '0', '8' } }, 1 },
    { ":xdigit:", { { '0', '8' }, { 'a', 'e' }, { 'A', 'E' } }, 3 },
    { ":letter:", { { 'a', 'y' }, { 'A', 'Y' } }, 2 },
    { ":whitespace:", { { ' ', ' ' }, { '\n', '\n' }, { '\t', '\t' }, { '\r', '\r' } }, 4 },
};

const named_class* find_class(const char* name, unsigned length)
{
    for (const named_class& c : classes) {
        if (std::strlen(c.name) == length && std::memcmp(c.name, name, length) == 0)
            return &c;
    }
    return nullptr;
}

rnfa* fragment(rparser::rbase* node) { return static_cast<rnfa*>(node); }

} // namespace

rnfa_maker::rnfa_maker() = default;

/// A copy continues nothing: the fragments stay where they are.
rnfa_maker::rnfa_maker(const rnfa_maker& other) : rparser(other) {}

rnfa_maker& rnfa_maker::operator=(const rnfa_maker& other)
{
    rparser::operator=(other);
    return *this;
}

rnfa_maker::~rnfa_maker()
{
    release_all();
    for (rnfa* nfa : spare_)
        delete nfa;
}

int rnfa_maker::read_expr(rnfa& out, reader& in, short id)
{
    rbase* node = nullptr;
    const int r = expr(&node, in);
    if (r >= 0 && node)
        replace(out, node, id);
    return r;
}

int rnfa_maker::read_expr(rnfa& out, const char* text, short id)
{
    rbase* node = nullptr;
    const int r = expr(&node, text);
    if (r >= 0 && node)
        replace(out, node, id);
    return r;
}

int rnfa_maker::add_expr(rnfa& out, const char* text, short id)
{
    rbase* node = nullptr;
    const int r = expr(&node, text);
    if (r < 0 || !node)
        return r;
    if (out.start() < 0) {
        replace(out, node, id);
        return r;
    }
    own(fragment(node)); // released even when the union fails
    fragment(node)->set_expr(id);
    out.connect_or(*fragment(node));
    revoke_nfa(fragment(node));
    return r;
}

/// Whatever `out` held goes with the fragment.
void rnfa_maker::replace(rnfa& out, rbase* node, short id)
{
    out.swap(*fragment(node));
    out.set_expr(id);
    revoke_nfa(fragment(node));
}

rnfa* rnfa_maker::alloc_nfa()
{
    if (spare_.empty())
        return own(rnfa::alloc_nfa());
    rnfa* nfa = spare_.back();
    nfa->begin_fragment();
    spare_.pop_back();
    return own(nfa);
}

/// Enters an automaton into the list; when there is no room for it, it is deleted.
rnfa* rnfa_maker::own(rnfa* nfa)
{
    std::unique_ptr<rnfa> guard(nfa);
    no_bad_alloc("rnfa_maker", [&] {
        if (live_.size() == live_.capacity())
            live_.reserve(2 * live_.size() + 8);
        // Releasing must not fail: there is room for all that live and all that are spare.
        spare_.reserve(std::max(live_.capacity(), live_.size() + spare_.size() + 1));
        live_.push_back(nfa);
    });
    return guard.release();
}

void rnfa_maker::revoke_nfa(rnfa* nfa)
{
    // The newest are released first: search from the end.
    const auto found = std::find(live_.rbegin(), live_.rend(), nfa);
    if (found == live_.rend()) {
        delete nfa;
        return;
    }
    live_.erase(std::next(found).base());
    spare_.push_back(nfa);
}

void rnfa_maker::release_all()
{
    while (!live_.empty())
        revoke_nfa(live_.back());
}

rparser::rbase* rnfa_maker::onID(const char* name, unsigned length)
{
    const named_class* c = find_class(name, length);
    if (!c)
        throw xrterror(err::undefined_symbol, "%.*s", static_cast<int>(length), name);
    rnfa* nfa = alloc_nfa();
    for (unsigned i = 0; i < c->count; ++i) {
        for (int byte = c->ranges[i].first; byte <= c->ranges[i].last; ++byte)
            nfa->connect(nfa->start(), nfa->finish(), byte);
    }
    return nfa;
}

rparser::rbase* rnfa_maker::onAtom(unsigned char byte)
{
    rnfa* nfa = alloc_nfa();
    nfa->connect(nfa->start(), nfa->finish(), int { byte });
    return nfa;
}

rparser::rbase* rnfa_maker::onSet(const unsigned char* set)
{
    rnfa* nfa = alloc_nfa();
    nfa->connect(nfa->start(), nfa->finish(), set);
    return nfa;
}

rparser::rbase* rnfa_maker::onConnect(rbase* previous, unsigned char byte)
{
    if (!previous)
        return rnfa_maker::onAtom(byte);
    rnfa* nfa = fragment(previous);
    const short s = nfa->alloc_state();
    nfa->connect(nfa->finish(), s, int { byte });
    nfa->set_finish(s);
    return nfa;
}

rparser::rbase* rnfa_maker::onRep(rbase* body, int op)
{
    if (!body)
        return nullptr;
    fragment(body)->connect_repeat(op);
    return body;
}

// KEEP: with one operand missing, the other is not released here; `onEndRule` does it.
rparser::rbase* rnfa_maker::onCat(rbase* left, rbase* right)
{
    if (!left || !right)
        return nullptr;
    fragment(left)->connect_and(*fragment(right));
    revoke_nfa(fragment(right));
    return left;
}

rparser::rbase* rnfa_maker::onOR(rbase* left, rbase* right)
{
    if (!left || !right)
        return nullptr;
    fragment(left)->connect_or(*fragment(right));
    revoke_nfa(fragment(right));
    return left;
}

rparser::rbase* rnfa_maker::onEndRule(rbase* whole)
{
    live_.erase(std::remove(live_.begin(), live_.end(), fragment(whole)), live_.end());
    release_all();
    return whole;
}

void rnfa_maker::doRevoke(rbase* node) { revoke_nfa(fragment(node)); }
