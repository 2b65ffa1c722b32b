// An rnfa prepared for those who follow all its paths at once.
#include "nfa_plan.h"

#include <algorithm>

namespace {

constexpr unsigned byte_count = 256;

template <class item_t> unsigned count_of(const std::vector<item_t>& items)
{
    return static_cast<unsigned>(items.size());
}

bool only_leads_on(const nfa_plan::node& n)
{
    return n.expr < 0 && !n.reads() && n.end_empty - n.first_empty == 1;
}

} // namespace

nfa_plan::nfa_plan(const rnfa& nfa)
{
    collect_moves(nfa);
    mark_what_matters();
    shorten_empty_moves();
}

void nfa_plan::collect_moves(const rnfa& nfa)
{
    std::vector<unsigned> arcs; // of one state: target and byte
    nodes.reserve(nfa.num_state());
    moves.reserve(nfa.num_state() / 2);
    bytes.reserve(nfa.num_state() / 2);
    empty_moves.reserve(nfa.num_state());
    for (unsigned s = 0; s < nfa.num_state(); ++s) {
        const rnfa::state& state = *nfa.get_state(static_cast<short>(s));
        node n = { count_of(moves), 0, count_of(empty_moves), 0, state.expr, false };
        arcs.clear();
        for (short a = state.first; a < state.end; ++a) {
            const rnfa::arc& arc = *nfa.get_arc(a);
            if (arc.symbol < byte_count)
                arcs.push_back(static_cast<unsigned>(arc.target) << 8 | arc.symbol);
            else if (arc.symbol == rnfa::epsilon)
                empty_moves.push_back(arc.target);
        }
        if (arcs.size() > 1) {
            std::sort(arcs.begin(), arcs.end());
            arcs.erase(std::unique(arcs.begin(), arcs.end()), arcs.end());
        }
        for (std::size_t i = 0; i < arcs.size();) {
            const unsigned target = arcs[i] >> 8;
            const unsigned first = count_of(bytes);
            for (; i < arcs.size() && arcs[i] >> 8 == target; ++i)
                bytes.push_back(static_cast<unsigned char>(arcs[i]));
            moves.push_back({ first, count_of(bytes), static_cast<unsigned short>(target) });
        }
        n.end_move = count_of(moves);
        n.end_empty = count_of(empty_moves);
        nodes.push_back(n);
    }
}

/// Goes backwards from the states that accept or read, along empty moves.
void nfa_plan::mark_what_matters()
{
    std::vector<unsigned> first(nodes.size() + 1, 0); // of the sources of each state
    for (const unsigned short target : empty_moves)
        ++first[target];
    unsigned sum = 0;
    for (unsigned& f : first)
        f = sum += f;
    std::vector<unsigned short> sources(empty_moves.size());
    std::vector<unsigned short> waiting;
    waiting.reserve(nodes.size());
    for (unsigned s = 0; s < nodes.size(); ++s) {
        node& n = nodes[s];
        for (unsigned e = n.first_empty; e < n.end_empty; ++e)
            sources[--first[empty_moves[e]]] = static_cast<unsigned short>(s);
        n.matters = n.expr >= 0 || n.reads();
        if (n.matters)
            waiting.push_back(static_cast<unsigned short>(s));
    }
    while (!waiting.empty()) {
        const unsigned short s = waiting.back();
        waiting.pop_back();
        for (unsigned i = first[s]; i < first[s + 1u]; ++i) {
            if (!nodes[sources[i]].matters)
                waiting.push_back(sources[i]);
            nodes[sources[i]].matters = true;
        }
    }
}

/// Where a chain of states with one empty move and nothing else leads. The chain is
/// shortened on the way, so that all of them together are walked once or twice.
unsigned short nfa_plan::end_of_chain(unsigned short s)
{
    // A ring has no end, but no state of it matters.
    unsigned short end = s;
    while (only_leads_on(nodes[end]))
        end = empty_moves[nodes[end].first_empty];
    while (s != end) {
        unsigned short& next = empty_moves[nodes[s].first_empty];
        s = next;
        next = end;
    }
    return end;
}

void nfa_plan::shorten_empty_moves()
{
    for (node& n : nodes) {
        unsigned end = n.first_empty;
        for (unsigned e = n.first_empty; e < n.end_empty; ++e) {
            if (nodes[empty_moves[e]].matters)
                empty_moves[end++] = empty_moves[e];
        }
        n.end_empty = end;
    }
    for (const node& n : nodes) {
        for (unsigned e = n.first_empty; e < n.end_empty; ++e)
            empty_moves[e] = end_of_chain(empty_moves[e]);
    }
}
