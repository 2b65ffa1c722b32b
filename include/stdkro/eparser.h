// The parser of the expression language and its lexer.
//
// `eparser` recognises one expression and computes nothing: it reports each
// operand and each operator, operands first, through virtual functions. `ecalc`
// overrides them to compute, the script compiler to emit instructions.
//
// From the lowest precedence to the highest:
//     a = b   a += b   a -= b   a *= b   a /= b     from the right
//     a && b   a || b                               one level, from the left
//     a > b   a < b   a >= b   a <= b   a != b   a == b   at most one
//     a + b   a - b                                 from the left
//     a * b   a / b   a % b                         from the left
//     !a   @a   -a                                  one prefix, before a factor
//     (a)   f(a, b)   name   literal
#ifndef STDKRO_EPARSER_H
#define STDKRO_EPARSER_H

#include <stdkro/base_lexer.h>
#include <stdkro/base_var.h>
#include <stdkro/config.h>
#include <stdkro/share_str.h>

/// Reports one expression in postfix order. The base class ignores the reports.
/// One parser serves one thread at a time.
class KRO_API eparser {
public:
    class elexer;

    /// The codes of the operators, as `onOperate` and the lexer give them.
    enum {
        OP_OPEN = 0x11,
        OP_CLOSE = 0x12,
        OP_ADD = 0x13,
        OP_SUB = 0x14,
        OP_MUL = 0x15,
        OP_DIV = 0x16,
        OP_MOD = 0x17,
        OP_GREATER = 0x18,
        OP_LESS = 0x19,
        OP_ASSIGN = 0x1A,
        OP_MUL_ASSIGN = 0x1B,
        OP_DIV_ASSIGN = 0x1C,
        OP_ADD_ASSIGN = 0x1D,
        OP_SUB_ASSIGN = 0x1E,
        OP_EQUAL = 0x1F,
        OP_GREATER_EQUAL = 0x20,
        OP_LESS_EQUAL = 0x21,
        OP_NOT_EQUAL = 0x22,
        OP_AND = 0x23,
        OP_OR = 0x24,
        OP_NOT = 0x25,
        OP_AT = 0x26,
        /// A prefix "-". No symbol has this code: the parser makes it.
        OP_NEGATE = 0x27,
        OP_COMMA = 0x28
    };

    /// How deep parentheses, arguments and right sides of assignments may nest
    /// in one another; one more is the status code `err::overrun`.
    static constexpr unsigned max_nesting = 1000;

    eparser() : lexer_(nullptr), nested_(0) {}
    virtual ~eparser();
    /// A copy reads from the same lexer.
    eparser(const eparser& other) : lexer_(other.lexer_), nested_(0) {}
    eparser& operator=(const eparser& other)
    {
        lexer_ = other.lexer_;
        return *this;
    }

    /// An operator: its operands were reported before.
    virtual void onOperate(int op);
    /// Never called: a call is announced by its end alone.
    virtual void onBeginCall(const share_str& name);
    /// One argument of a call is complete.
    virtual void onParam();
    /// A call is complete; its `count` arguments were reported before.
    virtual void onEndCall(const share_str& name, unsigned count);
    /// A literal; `kind` is the type of its token (real, string, character or
    /// integer). `value` lives until the call returns.
    virtual void onLiteral(int kind, const base_var& value);
    /// A name that is no call. `name` lives until the call returns.
    virtual void onID(const share_str& name);

    /// Reads one expression and leaves what stands behind it in the lexer.
    /// Returns 0, `err::syntax` (a missing ")" or a bad separator),
    /// `err::unexpected` (no operand where one must stand), `err::overrun`
    /// (nested too deeply) or `err::out_of_memory`. What the lexer and the
    /// callbacks throw passes through. The lexer is borrowed and remembered.
    int read_expr(elexer* lexer);

protected:
    /// Counts one level of nesting while it lives. Every recursion over the
    /// input holds one, those of derived parsers too, and asks it first.
    class nesting {
    public:
        explicit nesting(eparser& parser) : parser_(parser) { ++parser_.nested_; }
        ~nesting() { --parser_.nested_; }
        nesting(const nesting&) = delete;
        nesting& operator=(const nesting&) = delete;
        /// Whether to give up with `err::overrun`.
        bool is_too_deep() const { return parser_.nested_ > max_nesting; }

    private:
        eparser& parser_;
    };

    // One function for each level of the grammar; each returns 0 or a status
    // code and reads from `lexer_`.
    int expr();
    int eval_expr();
    int logic_expr();
    int cmp_expr();
    int add_expr();
    int mul_expr();
    int not_expr();
    int factor();
    /// The arguments of a call of `name`, behind its "(".
    int call_expr(const share_str& name);

    elexer* lexer_;

private:
    int take(token* into = nullptr);
    int peek();
    int assignment();
    int chain(int lowest);
    int prefixed();
    int operand(const token& first);

    unsigned nested_;
};

/// The lexer of expressions: `base_lexer` with the symbols of the operators.
/// "//" and "/*" open comments; a character that is no symbol is skipped.
class KRO_API eparser::elexer : public base_lexer {
public:
    elexer();

protected:
    /// A language made of this one gives its own lexers the symbols of one that
    /// already has them.
    struct symbols_of {
        const base_lexer& other;
    };
    explicit elexer(symbols_of);
    /// The lexer whose symbols all lexers of expressions share.
    static const elexer& language();

private:
    struct first_of_all { };
    explicit elexer(first_of_all);
    void create_lexical();
};

#endif
