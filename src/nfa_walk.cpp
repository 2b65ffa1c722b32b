// Following all paths through an automaton at once, a byte at a time.
//
// What reading a byte reaches directly (the hits) decides everything: equal hits have
// equal closures. While a text runs through a loop, the hits stay the same from byte
// to byte, and nothing but the reading itself is done.
//
// Mostly there is one hit. The closures of single states are made beforehand, unless
// they are large altogether: in patterns such as a?a?a?... each holds all later states,
// and their size would be the square of the pattern's.
#include "nfa_walk.h"

#include <algorithm>

nfa_walk_plan::nfa_walk_plan(const rnfa& nfa)
{
    nfa_plan plan(nfa);
    nodes.reserve(plan.nodes.size());
    moves.reserve(plan.moves.size());
    for (const nfa_plan::node& n : plan.nodes) {
        const auto first = static_cast<unsigned>(moves.size());
        for (unsigned m = n.first_move; m < n.end_move; ++m) {
            const nfa_plan::move& way = plan.moves[m];
            if (!plan.nodes[way.target].matters)
                continue;
            if (way.end - way.first == 1) {
                moves.push_back({ plan.bytes[way.first], way.target, 0 });
                continue;
            }
            byte_set set {};
            for (unsigned i = way.first; i < way.end; ++i)
                set[plan.bytes[i] / 32] |= std::uint32_t { 1 } << plan.bytes[i] % 32;
            moves.push_back({ -1, way.target, static_cast<unsigned>(sets.size()) });
            sets.push_back(set);
        }
        nodes.push_back({ first, static_cast<unsigned>(moves.size()), n.first_empty, n.end_empty, n.expr >= 0 });
    }
    empty_moves.swap(plan.empty_moves);
    close_all();
}

void nfa_walk_plan::close_all()
{
    std::vector<unsigned short> reached;
    std::vector<unsigned> reached_by(nodes.size(), 0);
    unsigned work_left = 16 * static_cast<unsigned>(nodes.size());
    closures.assign(nodes.size(), { 0, 0, false });
    for (const move& m : moves) {
        const closure& known = closures[m.target];
        if (known.accepts || known.first_move < known.end_move)
            continue;
        if (!close(m.target, reached, reached_by, work_left)) {
            closures.clear();
            closure_moves.clear();
            return;
        }
    }
}

/// False when this takes more work than is left.
bool nfa_walk_plan::close(unsigned short s, std::vector<unsigned short>& reached, std::vector<unsigned>& reached_by,
                          unsigned& work_left)
{
    closure c = { static_cast<unsigned>(closure_moves.size()), 0, false };
    const unsigned mark = s + 1u;
    reached.assign(1, s);
    reached_by[s] = mark;
    for (std::size_t i = 0; i < reached.size(); ++i) {
        const node& n = nodes[reached[i]];
        const unsigned work = 1 + (n.end_move - n.first_move) + (n.end_empty - n.first_empty);
        if (work > work_left)
            return false;
        work_left -= work;
        c.accepts = c.accepts || n.accepts;
        closure_moves.insert(closure_moves.end(), moves.begin() + n.first_move, moves.begin() + n.end_move);
        for (unsigned e = n.first_empty; e < n.end_empty; ++e) {
            if (reached_by[empty_moves[e]] != mark)
                reached.push_back(empty_moves[e]);
            reached_by[empty_moves[e]] = mark;
        }
    }
    c.end_move = static_cast<unsigned>(closure_moves.size());
    closures[s] = c;
    return true;
}

nfa_walk::nfa_walk(const nfa_walk_plan& plan, unsigned short start)
    : plan_(plan), reached_(small_reached_), closure_(small_closure_), own_moves_(small_moves_)
{
    const std::size_t nodes = plan.nodes.size();
    if (nodes <= small && plan.moves.size() <= small) {
        std::fill_n(reached_, nodes, 0);
    } else {
        large_reached_.resize(nodes);
        large_closure_.resize(nodes);
        large_moves_.resize(plan.moves.size());
        reached_ = large_reached_.data();
        closure_ = large_closure_.data();
        own_moves_ = large_moves_.data();
    }
    begin_step();
    reach(start);
    closure_[hit_count_++] = start;
    close_hits(); // the start may be no target, and have no closure made
}

inline void nfa_walk::begin_step()
{
    if (++step_ != 0)
        return;
    std::fill_n(reached_, plan_.nodes.size(), 0); // a text of four gigabytes: start the numbers again
    step_ = 1;
}

/// Marks a state; false if it was reached in this step already.
inline bool nfa_walk::reach(unsigned short s)
{
    if (reached_[s] == step_)
        return false;
    reached_[s] = step_;
    return true;
}

inline bool nfa_walk::reads(const nfa_walk_plan::move& m, unsigned char byte) const
{
    return m.byte >= 0 ? m.byte == byte : (plan_.sets[m.set][byte / 32] >> byte % 32 & 1) != 0;
}

inline void nfa_walk::close()
{
    if (hit_count_ != 1 || plan_.closures.empty()) {
        close_hits();
        return;
    }
    const nfa_walk_plan::closure& c = plan_.closures[closure_[0]];
    moves_ = plan_.closure_moves.data() + c.first_move;
    move_count_ = c.end_move - c.first_move;
    accepting_ = c.accepts;
}

void nfa_walk::close_hits()
{
    moves_ = own_moves_;
    unsigned count = hit_count_;
    accepting_ = false;
    move_count_ = 0;
    for (unsigned i = 0; i < count; ++i) {
        const nfa_walk_plan::node& n = plan_.nodes[closure_[i]];
        accepting_ = accepting_ || n.accepts;
        for (unsigned m = n.first_move; m < n.end_move; ++m)
            own_moves_[move_count_++] = plan_.moves[m];
        for (unsigned e = n.first_empty; e < n.end_empty; ++e) {
            const unsigned short s = plan_.empty_moves[e];
            if (reach(s))
                closure_[count++] = s;
        }
    }
}

/// The new hits go where the old ones were, and are compared with them on the way.
/// Whether they are the same.
inline bool nfa_walk::step(unsigned char byte)
{
    begin_step();
    unsigned hits = 0;
    bool same = true;
    for (unsigned i = 0; i < move_count_; ++i) {
        if (!reads(moves_[i], byte) || !reach(moves_[i].target))
            continue;
        same = same && hits < hit_count_ && closure_[hits] == moves_[i].target;
        closure_[hits++] = moves_[i].target;
    }
    same = same && hits == hit_count_;
    hit_count_ = hits;
    return same;
}

bool nfa_walk::run(const char* p, const char* end)
{
    for (; p != end; ++p) {
        if (move_count_ == 0)
            return false;
        if (!step(static_cast<unsigned char>(*p)))
            close();
    }
    return accepting_;
}
