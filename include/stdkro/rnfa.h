// Regular expressions, first half: the notation, its parser, and the
// nondeterministic automata that patterns become.
//
// The notation, in short (docs/regex.md tells it at length):
//
//     a          a byte                     .            any byte but the line feed
//     ab         a, then b                  [a-z_]       one of a set
//     a|b        a or b                     ~[a-z_]      any byte but these
//     a* a+ a?   repetition                 "a*b"        a quoted string
//     (a|b)c     grouping                   {:digit:}    a named class
//     \n \65 \*  an escaped byte: a letter, a decimal number, the byte itself
//
// A pattern ends at the first blank, tab, line end or NUL behind an element, outside quotes and sets.
#ifndef STDKRO_RNFA_H
#define STDKRO_RNFA_H

#include <stdkro/base_lexer.h>
#include <stdkro/bitmap.h>
#include <stdkro/config.h>

#include <atomic>
#include <vector>

struct nfa_walk_plan;

/// Parses the notation and builds nothing: each construct goes to a callback,
/// and what the callback returns comes back as operand of later ones. A maker
/// derives from this class and decides what its nodes are.
///
/// A callback that returns null stops the parse: every enclosing level then ends
/// with null. Errors are thrown as `xrterror`; nodes made until then remain the
/// maker's to release.
class KRO_API rparser {
public:
    /// Base of every node. Holds nothing.
    class KRO_API rbase {
    public:
        virtual ~rbase();
    };

    rparser();
    /// A copy reads from the same reader.
    rparser(const rparser& other);
    rparser& operator=(const rparser& other);
    virtual ~rparser();

    /// Parses one expression from where `in` stands and stores what `onEndRule`
    /// returned, which may be null. `in` is left behind the last symbol read: when
    /// a blank ended the expression, behind the blank.
    /// Returns 0, or err::invalid_parameter when `out` is null. Throws `xrterror`.
    int expr(rbase** out, reader& in);
    /// The same on a text of its own.
    /// Returns 0, or err::invalid_parameter when a pointer is null.
    int expr(rbase** out, const char* text);

protected:
    /// A name in braces. It points into the reader's buffer, without terminator.
    virtual rbase* onID(const char* name, unsigned length) = 0;
    /// One literal byte.
    virtual rbase* onAtom(unsigned char byte) = 0;
    /// A set of bytes: 258 entries of 0 or 1, of which the last two stand for no byte.
    virtual rbase* onSet(const unsigned char* set) = 0;
    /// A repetition; `op` is '*', '+' or '?'. `body` is null if the callback for an
    /// operator before this one returned null.
    virtual rbase* onRep(rbase* body, int op) = 0;
    /// `left`, then `right`, which may be null.
    virtual rbase* onCat(rbase* left, rbase* right) = 0;
    /// `left` or `right`, which may be null.
    virtual rbase* onOR(rbase* left, rbase* right) = 0;
    /// The next byte of a quoted string. `previous` is what this callback returned
    /// for the byte before; null for the first.
    virtual rbase* onConnect(rbase* previous, unsigned char byte) = 0;
    /// The whole expression, null if there is none. What it returns is the result.
    virtual rbase* onEndRule(rbase* whole) = 0;
    /// Disposes of a node. The parser never calls it.
    virtual void doRevoke(rbase* node) = 0;

    // The grammar, a function for each rule.
    rbase* regExpr();
    rbase* catExpr();
    rbase* repExpr();
    rbase* repBase();
    rbase* idExpr();
    rbase* quoteExpr();
    rbase* setExpr(bool negate);

    /// The next symbol: -1 at the end, 0..255 a byte, 258 + b an escaped byte b.
    int get_next();
    /// The symbol of what follows a backslash.
    int get_escape();
    /// Makes `symbol` the next one again.
    void fallback(int symbol) { pushback_ = symbol; }
    /// The byte that a symbol stands for.
    static unsigned char to_char(int symbol);
    /// Whether `symbol` ends an expression.
    static bool isstop(int symbol);

private:
    int parse(rbase** out, reader& in);
    rbase* group();

    int pushback_;
    reader* rd_;
    unsigned depth_; // open parentheses
};

/// The stretch of text that `rnfa::search` found.
struct KRO_API rnfa_match_result {
    const char* begin;
    const char* end;
};

/// A nondeterministic automaton over bytes: flat arrays of states and arcs,
/// numbered from 0. At most 32767 of either: whatever would pass that throws an
/// `xcpt` with err::overrun. Memory exhaustion throws err::out_of_memory. The
/// automaton is then as it was before the call.
///
/// A text is [begin, end) or ends at its NUL; a null `end` means the latter, and
/// a null text is the empty one.
class KRO_API rnfa : public rparser::rbase {
public:
    /// Symbol of an arc that reads nothing.
    static constexpr int epsilon = 256;

    struct state {
        state() : state(-1, -1, -1) {}
        state(short rule, short first_arc, short end_arc) : expr(rule), first(first_arc), end(end_arc) {}

        short expr;  ///< The rule accepted here; -1 for none.
        short first; ///< Its first arc; -1 for none.
        short end;   ///< One past its last arc; -1 for none.
    };
    struct arc {
        arc(unsigned short reads, unsigned short leads_to) : symbol(reads), target(leads_to) {}

        unsigned short symbol; ///< A byte, or `epsilon`.
        unsigned short target;
    };
    /// A bit for each state.
    using state_set = bitmap;

    /// Empty: no state, start and finish -1.
    rnfa();
    rnfa(const rnfa& other);
    rnfa& operator=(const rnfa& other);
    ~rnfa() override;

    /// A new automaton of two states, start 0 and finish 1. The caller owns it.
    static rnfa* alloc_nfa();
    /// Adds a state without arcs that accepts nothing; returns its number.
    short alloc_state();

    short start() const { return start_; }
    short finish() const { return finish_; }
    void set_start(short s) { start_ = s; }
    void set_finish(short s) { finish_ = s; }
    /// Makes the finish state accept rule `id`.
    void set_expr(short id);
    const state* get_state(short s) const { return &states_[static_cast<unsigned short>(s)]; }
    const arc* get_arc(short a) const { return &arcs_[static_cast<unsigned short>(a)]; }
    unsigned num_state() const { return static_cast<unsigned>(states_.size()); }
    /// Empties the automaton and frees its memory.
    void clear();

    /// Adds an arc. Where `from` has arcs already, the new one goes behind them and
    /// later arcs move up, but the ranges of other states do not: add all arcs of
    /// one state before those of the next.
    void connect(short from, short to, int symbol);
    /// Adds an arc for each non-zero entry of a set of 256; one that reads nothing
    /// when there is none.
    void connect(short from, short to, const unsigned char* set);
    /// Appends the states and arcs of `other`: its state s becomes s + num_state()
    /// as it was before. Start and finish stay.
    void splice(const rnfa& other);
    /// This, then `other`.
    void connect_and(const rnfa& other);
    /// This or `other`.
    void connect_or(const rnfa& other);
    /// Repeats this: '*', '+' or '?'.
    void connect_repeat(int op);

    /// Adds to `set` all states that its members reach without reading.
    void closure(state_set& set) const;
    /// The states reached from `set` by arcs with this symbol; not closed.
    state_set move(const state_set& set, int symbol) const;

    /// Whether the whole text is accepted.
    bool match(const char* begin, const char* end) const;
    bool match(const char* text) const;

    /// Finds where the automaton can begin to read, and stores how far the text goes
    /// on with bytes that may come second: each later byte is tested against the
    /// states behind the first one. Returns these states. Where nothing begins,
    /// both ends of the result are the end of the text and the set is empty.
    state_set search(rnfa_match_result& result, const char* text) const;
    state_set search(rnfa_match_result& result, const char* begin, const char* end) const;

    void swap(rnfa& other) noexcept;

private:
    friend class rnfa_maker;

    void begin_fragment();
    bool is_state(int s) const { return s >= 0 && static_cast<unsigned>(s) < num_state(); }
    bool is_fragment() const;
    unsigned num_arc() const { return static_cast<unsigned>(arcs_.size()); }
    void make_room(unsigned states, unsigned arcs);
    short add_state();
    void add_arc(int from, int to, int symbol);
    void append(const rnfa& other);

    const nfa_walk_plan& walk_plan() const;
    void drop_walk_plan() const;

    short start_;
    short finish_;
    std::vector<state> states_;
    std::vector<arc> arcs_;
    // Made by the first match and dropped by a change. Atomic, so that several threads
    // may match with one automaton that none of them changes.
    mutable std::atomic<const nfa_walk_plan*> walk_plan_;
};

/// Makes automata of patterns.
class KRO_API rnfa_maker : public rparser {
public:
    rnfa_maker();
    rnfa_maker(const rnfa_maker& other);
    rnfa_maker& operator=(const rnfa_maker& other);
    ~rnfa_maker() override;

    /// Replaces `out` by the automaton of one pattern, accepting rule `id` (0..32767).
    /// Returns 0, or a negative status code. A pattern without content (an empty
    /// quoted string, a set without end) leaves `out` as it was and returns 0 too.
    /// Throws `xrterror` for a pattern that is wrong, `xcpt` for one that is too large.
    int read_expr(rnfa& out, reader& in, short id);
    int read_expr(rnfa& out, const char* text, short id);
    /// The same, but unites the pattern with the rules that `out` holds.
    int add_expr(rnfa& out, const char* text, short id);

protected:
    rnfa* alloc_nfa();
    /// Releases an automaton; null is ignored.
    void revoke_nfa(rnfa* nfa);

    /// One of ":digit:", ":xdigit:", ":letter:", ":whitespace:". Throws
    /// err::undefined_symbol, the name being the message, for any other.
    rbase* onID(const char* name, unsigned length) override;
    rbase* onAtom(unsigned char byte) override;
    rbase* onSet(const unsigned char* set) override;
    rbase* onRep(rbase* body, int op) override;
    rbase* onCat(rbase* left, rbase* right) override;
    rbase* onOR(rbase* left, rbase* right) override;
    rbase* onConnect(rbase* previous, unsigned char byte) override;
    /// Hands the result over and releases what else is left of this expression.
    rbase* onEndRule(rbase* whole) override;
    void doRevoke(rbase* node) override;

private:
    void replace(rnfa& out, rbase* node, short id);
    rnfa* own(rnfa* nfa);
    void release_all();

    std::vector<rnfa*> live_;  // fragments of the expression being parsed
    std::vector<rnfa*> spare_; // released fragments, kept for their memory
};

#endif
