// A recursive-descent parser whose binary levels share one loop.
//
// The four levels of binary operators differ only in their operators, so a table
// gives each operator its level and `chain` lets an operator wait until one comes
// that is no tighter. Chains of any length are loops; only parentheses, arguments and
// the right sides of assignments recurse, and those are counted (see `nesting`).
//
// The lexer gives one token of push-back. Where a level of the textbook parser
// reads a token and gives it back for the next level to read again, the private
// functions hand its code upwards instead: besides a status code they return the
// code of the token that follows and was given back, or `unseen`.
#include <stdkro/eparser.h>

#include "memory_status.h"

#include <stdkro/xcpt.h>

namespace {

/// No token has been looked at: no token code is 0.
constexpr int unseen = 0;

// The levels of binary operators, the loosest first.
constexpr int not_binary = 0; // below any `lowest`
constexpr int logic = 1;
constexpr int comparison = 2;
constexpr int additive = 3;
constexpr int multiplicative = 4;

int level_of(int code)
{
    switch (code) {
    case eparser::OP_AND:
    // KEEP: "||" stands on the level of "&&", so "a || b && c" is "(a || b) && c".
    case eparser::OP_OR: return logic;
    case eparser::OP_GREATER:
    case eparser::OP_LESS:
    case eparser::OP_GREATER_EQUAL:
    case eparser::OP_LESS_EQUAL:
    case eparser::OP_NOT_EQUAL:
    case eparser::OP_EQUAL: return comparison;
    case eparser::OP_ADD:
    case eparser::OP_SUB: return additive;
    case eparser::OP_MUL:
    case eparser::OP_DIV:
    case eparser::OP_MOD: return multiplicative;
    default: return not_binary;
    }
}

bool is_assignment(int code)
{
    return code == eparser::OP_ASSIGN || (code >= eparser::OP_MUL_ASSIGN && code <= eparser::OP_SUB_ASSIGN);
}

bool is_literal(int kind)
{
    return kind == base_lexer::TK_INTEGER || kind == base_lexer::TK_REAL || kind == base_lexer::TK_STRING
        || kind == base_lexer::TK_CHAR;
}

/// What a rule function reports of a private function's result.
int status_of(int code_or_status) { return code_or_status < 0 ? code_or_status : err::ok; }

/// Puts the present lexer back at its end, if asked to.
class restored_lexer {
public:
    restored_lexer(eparser::elexer*& place, bool is_wanted)
        : place_(place), value_(place), is_wanted_(is_wanted)
    {
    }
    ~restored_lexer()
    {
        if (is_wanted_)
            place_ = value_;
    }
    restored_lexer(const restored_lexer&) = delete;
    restored_lexer& operator=(const restored_lexer&) = delete;

private:
    eparser::elexer*& place_;
    eparser::elexer* value_;
    bool is_wanted_;
};

} // namespace

eparser::~eparser() {}

void eparser::onOperate(int) {}
void eparser::onBeginCall(const share_str&) {}
void eparser::onParam() {}
void eparser::onEndCall(const share_str&, unsigned) {}
void eparser::onLiteral(int, const base_var&) {}
void eparser::onID(const share_str&) {}

int eparser::read_expr(elexer* lexer)
{
    // A function that is called by an expression may read another one.
    const bool is_inner = nested_ > 0;
    const nesting level(*this);
    if (level.is_too_deep())
        return err::overrun;
    const restored_lexer outer(lexer_, is_inner);
    lexer_ = lexer;
    return memory_status([this] { return expr(); });
}

// expr := eval_expr
int eparser::expr() { return eval_expr(); }

// eval_expr := logic_expr [ ('=' | '+=' | '-=' | '*=' | '/=') eval_expr ]
int eparser::eval_expr() { return status_of(assignment()); }

// logic_expr := cmp_expr { ('&&' | '||') cmp_expr }
int eparser::logic_expr() { return status_of(chain(logic)); }

// cmp_expr := add_expr [ ('>' | '<' | '>=' | '<=' | '!=' | '==') add_expr ]
int eparser::cmp_expr() { return status_of(chain(comparison)); }

// add_expr := mul_expr { ('+' | '-') mul_expr }
int eparser::add_expr() { return status_of(chain(additive)); }

// mul_expr := not_expr { ('*' | '/' | '%') not_expr }
int eparser::mul_expr() { return status_of(chain(multiplicative)); }

// not_expr := [ '!' | '@' | '-' ] factor
int eparser::not_expr() { return status_of(prefixed()); }

// factor := '(' eval_expr ')' | name [ '(' call_expr ] | literal
int eparser::factor()
{
    token first;
    take(&first);
    return status_of(operand(first));
}

// call_expr := ')' | eval_expr { ',' eval_expr } ')'
int eparser::call_expr(const share_str& name)
{
    const nesting level(*this);
    if (level.is_too_deep())
        return err::overrun;
    unsigned count = 0;
    int next = take();
    if (next != OP_CLOSE) {
        lexer_->unget_token();
        do {
            // KEEP: an argument that cannot be read counts as one; "f(1,)" has two.
            const int r = assignment();
            if (r == err::overrun)
                return r;
            onParam();
            ++count;
            next = take();
        } while (next == OP_COMMA);
        if (next != OP_CLOSE) {
            lexer_->unget_token();
            return err::syntax;
        }
    }
    onEndCall(name, count);
    return err::ok;
}

/// Reads the next token and returns its code.
int eparser::take(token* into) { return lexer_->get_token(into); }

/// The code of the next token, which stays where it is.
int eparser::peek()
{
    const int code = take();
    lexer_->unget_token();
    return code;
}

/// An assignment, or what stands alone.
int eparser::assignment()
{
    const int next = chain(logic);
    if (!is_assignment(next))
        return next;
    const nesting level(*this);
    if (level.is_too_deep())
        return err::overrun;
    take();
    const int behind = assignment();
    if (behind >= 0)
        onOperate(next);
    return behind;
}

/// Operands and the binary operators of level `lowest` and tighter between them.
int eparser::chain(int lowest)
{
    // Operators that wait for their right side. Each is tighter than the one before
    // it, so there are never more than levels.
    int waiting[multiplicative];
    int count = 0;
    bool compared = false;
    for (;;) {
        int next = prefixed();
        if (next < 0)
            return next;
        // A product needs no look at what follows: it is complete.
        if (count > 0 && level_of(waiting[count - 1]) == multiplicative)
            onOperate(waiting[--count]);
        if (next == unseen)
            next = peek();
        const int level = level_of(next);
        while (count > 0 && level_of(waiting[count - 1]) >= level)
            onOperate(waiting[--count]);
        // Comparisons do not chain: in "a < b < c" the second "<" ends the expression.
        if (level < lowest || (level == comparison && compared)) {
            while (count > 0)
                onOperate(waiting[--count]);
            return next;
        }
        if (level <= comparison)
            compared = level == comparison;
        waiting[count++] = next;
        take();
    }
}

/// A factor, perhaps behind one prefix operator.
int eparser::prefixed()
{
    token first;
    const int code = take(&first);
    if (code != OP_NOT && code != OP_AT && code != OP_SUB)
        return operand(first);
    take(&first);
    const int next = operand(first);
    if (next >= 0)
        onOperate(code == OP_SUB ? OP_NEGATE : code);
    return next;
}

/// The factor that begins with the token `first`, which has been taken.
int eparser::operand(const token& first)
{
    const int code = first.get_type();
    if (code == base_lexer::TK_NAME) {
        const int next = take();
        if (next == OP_OPEN) {
            const int r = call_expr(first.get_text());
            return r < 0 ? r : unseen;
        }
        lexer_->unget_token();
        onID(first.get_text());
        return next;
    }
    if (is_literal(code)) {
        onLiteral(code, first.get_var());
        return unseen;
    }
    if (code != OP_OPEN) {
        lexer_->unget_token();
        return err::unexpected;
    }
    const nesting level(*this);
    if (level.is_too_deep())
        return err::overrun;
    // KEEP: what went wrong between the parentheses is not passed on; "(1 +)" is 1.
    if (assignment() == err::overrun)
        return err::overrun;
    if (take() == OP_CLOSE)
        return unseen;
    lexer_->unget_token();
    return err::syntax;
}
