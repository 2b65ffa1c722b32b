// Following all paths through an automaton at once, a byte at a time.
#ifndef STDKRO_SRC_NFA_WALK_H
#define STDKRO_SRC_NFA_WALK_H

#include "nfa_plan.h"

#include <array>
#include <cstdint>
#include <vector>

/// The plan with what a move reads as one test: a byte, or a set of bytes, so that a
/// negated set of 254 bytes costs as much as one.
struct nfa_walk_plan {
    explicit nfa_walk_plan(const rnfa& nfa);

    struct node {
        unsigned first_move;
        unsigned end_move;
        unsigned first_empty;
        unsigned end_empty;
        bool accepts;
    };
    struct move {
        short byte; // -1: one of a set
        unsigned short target;
        unsigned set;
    };
    /// What one state leads to without reading.
    struct closure {
        unsigned first_move; // in `closure_moves`
        unsigned end_move;
        bool accepts;
    };
    using byte_set = std::array<std::uint32_t, 8>;

    std::vector<node> nodes; // one for each state
    std::vector<move> moves;
    std::vector<byte_set> sets;
    std::vector<unsigned short> empty_moves; // targets
    std::vector<closure> closures;           // one for each state, or none at all
    std::vector<move> closure_moves;

private:
    void close_all();
    bool close(unsigned short s, std::vector<unsigned short>& reached, std::vector<unsigned>& reached_by,
               unsigned& work_left);
};

class nfa_walk {
public:
    nfa_walk(const nfa_walk_plan& plan, unsigned short start);
    nfa_walk(const nfa_walk&) = delete;
    nfa_walk& operator=(const nfa_walk&) = delete;

    /// Whether the rest of the text leads to a state that accepts.
    bool run(const char* p, const char* end);

private:
    bool reach(unsigned short s);
    bool reads(const nfa_walk_plan::move& m, unsigned char byte) const;
    bool step(unsigned char byte);
    void close();
    void close_hits();
    void begin_step();

    static constexpr unsigned small = 256;

    const nfa_walk_plan& plan_;
    unsigned step_ = 0;
    unsigned* reached_;       // the step in which each state was reached last
    unsigned short* closure_; // the hits, and what they reach by empty moves
    const nfa_walk_plan::move* moves_; // of the states in the closure
    nfa_walk_plan::move* own_moves_;   // room for them
    unsigned hit_count_ = 0;
    unsigned move_count_ = 0;
    bool accepting_ = false; // some state in the closure accepts
    // Of a small automaton nothing is allocated.
    std::vector<unsigned> large_reached_;
    std::vector<unsigned short> large_closure_;
    std::vector<nfa_walk_plan::move> large_moves_;
    unsigned small_reached_[small];
    unsigned short small_closure_[small];
    nfa_walk_plan::move small_moves_[small];
};

#endif
