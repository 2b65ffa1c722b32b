// An rnfa prepared for those who follow all its paths at once.
#ifndef STDKRO_SRC_NFA_PLAN_H
#define STDKRO_SRC_NFA_PLAN_H

#include <stdkro/rnfa.h>

#include <vector>

/// What each state can do, found out once. Parallel arcs are one move; empty moves
/// go straight to where something happens, and not at all to where nothing does: a
/// union of n rules ends in a chain of n states that only lead to the next, and who
/// walks along it at every step pays for the square of n.
struct nfa_plan {
    explicit nfa_plan(const rnfa& nfa);

    /// Reads any of these bytes and goes to one target.
    struct move {
        unsigned first; // in `bytes`
        unsigned end;
        unsigned short target;
    };
    struct node {
        unsigned first_move; // in `moves`
        unsigned end_move;
        unsigned first_empty; // in `empty_moves`
        unsigned end_empty;
        short expr;
        bool matters; // it accepts, reads, or leads to a state that does

        bool reads() const { return first_move < end_move; }
    };

    std::vector<node> nodes; // one for each state
    std::vector<move> moves;
    std::vector<unsigned char> bytes;
    std::vector<unsigned short> empty_moves; // targets

private:
    void collect_moves(const rnfa& nfa);
    void mark_what_matters();
    void shorten_empty_moves();
    unsigned short end_of_chain(unsigned short s);
};

#endif
