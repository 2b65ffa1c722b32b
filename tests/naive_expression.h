// A second reading of the expression language, slow and plain, to compare the
// library with: the grammar one function a level, each reading a token and giving
// it back as the rule says, and an evaluator over values of its own.
#ifndef STDKRO_TESTS_NAIVE_EXPRESSION_H
#define STDKRO_TESTS_NAIVE_EXPRESSION_H

#include <stdkro/ecalc.h>
#include <stdkro/xcpt.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace naive {

// ---- reports of a parser ----------------------------------------------------

/// One report of a parser.
struct step {
    enum kind_t { literal, name, parameter, call, operation } kind;
    int code;
    base_var value;
    std::string text;
    unsigned count;
};

inline step literal_step(int kind, const base_var& value) { return { step::literal, kind, value, "", 0 }; }
inline step name_step(const std::string& name) { return { step::name, 0, base_var(), name, 0 }; }
inline step parameter_step() { return { step::parameter, 0, base_var(), "", 0 }; }
inline step call_step(const std::string& name, unsigned count) { return { step::call, 0, base_var(), name, count }; }
inline step operation_step(int op) { return { step::operation, op, base_var(), "", 0 }; }

inline std::string operator_text(int op)
{
    static const char* const texts[] = { "(",  ")",  "+",  "-",  "*",  "/",  "%",  ">", "<", "=",   "*=", "/=",
                                         "+=", "-=", "==", ">=", "<=", "!=", "&&", "||", "!", "@", "neg", "," };
    const int index = op - eparser::OP_OPEN;
    return index >= 0 && index < 24 ? texts[index] : "op" + std::to_string(op);
}

/// A literal as its value, a string in quotes, a parameter as ",", a call as
/// "name/count", an operator as its symbol.
inline std::string text_of(const step& s)
{
    switch (s.kind) {
    case step::literal:
        return s.code == base_lexer::TK_STRING
            ? "\"" + std::string(s.value.to_string().c_str()) + "\""
            : std::string(s.value.to_string().c_str());
    case step::name: return s.text;
    case step::parameter: return ",";
    case step::call: return s.text + "/" + std::to_string(s.count);
    default: return operator_text(s.code);
    }
}

inline std::string text_of(const std::vector<step>& steps)
{
    std::string all;
    for (const step& s : steps)
        all += (all.empty() ? "" : " ") + text_of(s);
    return all;
}

/// Records what `eparser` reports.
class recorder : public eparser {
public:
    std::vector<step> steps;

    void onOperate(int op) override { steps.push_back(operation_step(op)); }
    // No parser calls this, so it spoils every comparison.
    void onBeginCall(const share_str&) override { steps.push_back(name_step("BEGIN")); }
    void onParam() override { steps.push_back(parameter_step()); }
    void onEndCall(const share_str& name, unsigned count) override { steps.push_back(call_step(name.c_str(), count)); }
    void onLiteral(int kind, const base_var& value) override { steps.push_back(literal_step(kind, value)); }
    void onID(const share_str& name) override { steps.push_back(name_step(name.c_str())); }
};

/// The grammar by the book.
class textbook {
public:
    std::vector<step> steps;

    int read(eparser::elexer& lexer)
    {
        lexer_ = &lexer;
        depth_ = 1;
        return eval_expr();
    }

private:
    eparser::elexer* lexer_ = nullptr;
    unsigned depth_ = 0;

    int next() { return lexer_->get_token(nullptr); }
    void back() { lexer_->unget_token(); }
    void report(const step& s) { steps.push_back(s); }

    int eval_expr()
    {
        const int r = logic_expr();
        if (r < 0)
            return r;
        const int op = next();
        if (op != 0x1A && op != 0x1B && op != 0x1C && op != 0x1D && op != 0x1E) {
            back();
            return 0;
        }
        if (depth_ == eparser::max_nesting)
            return err::overrun;
        ++depth_;
        const int right = eval_expr();
        --depth_;
        if (right < 0)
            return right;
        report(operation_step(op));
        return 0;
    }

    int logic_expr()
    {
        int r = cmp_expr();
        while (r >= 0) {
            const int op = next();
            if (op != 0x23 && op != 0x24) {
                back();
                break;
            }
            r = cmp_expr();
            if (r >= 0)
                report(operation_step(op));
        }
        return r;
    }

    int cmp_expr()
    {
        const int r = add_expr();
        if (r < 0)
            return r;
        const int op = next();
        if (op != 0x18 && op != 0x19 && !(op >= 0x1F && op <= 0x22)) {
            back();
            return 0;
        }
        const int right = add_expr();
        if (right >= 0)
            report(operation_step(op));
        return right;
    }

    int add_expr()
    {
        int r = mul_expr();
        while (r >= 0) {
            const int op = next();
            if (op != 0x13 && op != 0x14) {
                back();
                break;
            }
            r = mul_expr();
            if (r >= 0)
                report(operation_step(op));
        }
        return r;
    }

    int mul_expr()
    {
        int r = not_expr();
        while (r >= 0) {
            const int op = next();
            if (op != 0x15 && op != 0x16 && op != 0x17) {
                back();
                break;
            }
            r = not_expr();
            if (r >= 0)
                report(operation_step(op));
        }
        return r;
    }

    int not_expr()
    {
        const int op = next();
        if (op != 0x25 && op != 0x26 && op != 0x14) {
            back();
            return factor();
        }
        const int r = factor();
        if (r >= 0)
            report(operation_step(op == 0x14 ? 0x27 : op));
        return r;
    }

    int factor()
    {
        token t;
        const int code = lexer_->get_token(&t);
        if (code == 0x11) {
            if (depth_ == eparser::max_nesting)
                return err::overrun;
            ++depth_;
            const int inner = eval_expr();
            --depth_;
            if (inner == err::overrun)
                return inner;
            if (next() == 0x12)
                return 0;
            back();
            return err::syntax;
        }
        if (code == 6) {
            const std::string name = t.get_text().c_str();
            if (next() == 0x11)
                return call_expr(name);
            back();
            report(name_step(name));
            return 0;
        }
        if (code == 5 || code == 7 || code == 8 || code == 9) {
            report(literal_step(code, t.get_var()));
            return 0;
        }
        back();
        return err::unexpected;
    }

    int call_expr(const std::string& name)
    {
        if (depth_ == eparser::max_nesting)
            return err::overrun;
        ++depth_;
        const int r = arguments(name);
        --depth_;
        return r;
    }

    int arguments(const std::string& name)
    {
        unsigned count = 0;
        int code = next();
        if (code != 0x12) {
            back();
            do {
                if (eval_expr() == err::overrun)
                    return err::overrun;
                report(parameter_step());
                ++count;
                code = next();
            } while (code == 0x28);
            if (code != 0x12) {
                back();
                return err::syntax;
            }
        }
        report(call_step(name, count));
        return 0;
    }
};

// ---- values -----------------------------------------------------------------

struct value {
    enum type_t { none = 0, text = 1, integer = 2, real = 3, error = 128 } type = none;
    std::int32_t i = 0;
    double d = 0;
    std::string s;
};

inline value make_int(std::int64_t i)
{
    value v;
    v.type = value::integer;
    v.i = static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(i)));
    return v;
}

inline value make_real(double d)
{
    value v;
    v.type = value::real;
    v.d = d;
    return v;
}

inline value make_text(const std::string& s)
{
    value v;
    v.type = value::text;
    v.s = s;
    return v;
}

inline value make_error(int code)
{
    value v;
    v.type = value::error;
    v.i = code;
    return v;
}

inline value from_library(const base_var& v)
{
    if (!v.is_initialized())
        return value();
    if (!v.is_valid())
        return make_error(v.get_err());
    if (v.is_string())
        return make_text(std::string(v.get_string().c_str(), v.get_string().length()));
    return v.is_int() ? make_int(v.get_int()) : make_real(v.get_double());
}

inline bool same(const value& a, const value& b)
{
    if (a.type != b.type)
        return false;
    switch (a.type) {
    case value::none: return true;
    case value::text: return a.s == b.s;
    case value::real: return a.d == b.d || (std::isnan(a.d) && std::isnan(b.d));
    default: return a.i == b.i;
    }
}

inline std::string text_of(const value& v)
{
    switch (v.type) {
    case value::none: return "none";
    case value::text: return "\"" + v.s + "\"";
    case value::integer: return std::to_string(v.i);
    case value::real: return "real " + std::to_string(v.d);
    default: {
        char code[32];
        std::snprintf(code, sizeof code, "error 0x%08x", static_cast<unsigned>(v.i));
        return code;
    }
    }
}

inline std::int32_t truncated(double d)
{
    return d > -2147483649.0 && d < 2147483648.0 ? static_cast<std::int32_t>(d) : INT32_MIN;
}

/// Makes the operands of one type, or the target an error; true when there is
/// something to compute.
inline bool prepare(value& target, value& right)
{
    if (target.type == value::error)
        return false;
    if (right.type == value::none || right.type == value::error) {
        target = make_error(err::non_right_value);
        return false;
    }
    if (target.type == value::none) {
        target = make_error(err::not_initialized);
        return false;
    }
    if (target.type == right.type)
        return true;
    if (target.type == value::text || right.type == value::text) {
        target = make_error(err::illegal_operator);
        return false;
    }
    if (target.type == value::integer)
        target = make_real(target.i);
    else
        right = make_real(right.i);
    return true;
}

/// Thrown for a text longer than a megabyte: no answer is worth its memory.
struct too_long { };

inline value of_texts(int op, const std::string& a, const std::string& b)
{
    if (op != 0x13)
        return make_error(err::illegal_operator);
    if (a.size() + b.size() > 1000000)
        throw too_long();
    return make_text(a + b);
}

inline value of_ints(int op, std::int64_t a, std::int64_t b)
{
    switch (op) {
    case 0x13: return make_int(a + b);
    case 0x14: return make_int(a - b);
    case 0x15: return make_int(a * b);
    case 0x16: return b ? make_int(a / b) : make_error(err::divide_zero);
    case 0x17: return b ? make_int(a % b) : make_error(err::divide_zero);
    case 0x23: return make_int(a && b);
    default: return make_int(a || b);
    }
}

inline value of_reals(int op, double a, double b)
{
    switch (op) {
    case 0x13: return make_real(a + b);
    case 0x14: return make_real(a - b);
    case 0x15: return make_real(a * b);
    case 0x16: return make_real(a / b);
    case 0x17: return make_error(err::illegal_operator);
    case 0x23: return make_real(a != 0 && b != 0 ? 1 : 0);
    default: return make_real(a != 0 || b != 0 ? 1 : 0);
    }
}

/// + - * / % && ||
inline value combine(int op, value a, value b)
{
    if (!prepare(a, b))
        return a;
    switch (a.type) {
    case value::text: return of_texts(op, a.s, b.s);
    case value::integer: return of_ints(op, a.i, b.i);
    default: return of_reals(op, a.d, b.d);
    }
}

/// What a failed evaluation throws.
struct failure {
    int code;
};

inline value compare(int op, value a, value b)
{
    if (!prepare(a, b))
        throw failure { a.i };
    std::int32_t order;
    if (a.type == value::text)
        order = std::strcmp(a.s.c_str(), b.s.c_str()); // a NUL ends a text here
    else if (a.type == value::integer)
        order = make_int(static_cast<std::int64_t>(a.i) - b.i).i;
    else
        order = truncated(a.d - b.d);
    switch (op) {
    case 0x18: return make_int(order > 0);
    case 0x19: return make_int(order < 0);
    case 0x1F: return make_int(order == 0);
    case 0x20: return make_int(order >= 0);
    case 0x21: return make_int(order <= 0);
    default: return make_int(order != 0);
    }
}

inline value negate(const value& v) { return combine(0x14, make_int(0), v); }

inline value invert(const value& v)
{
    switch (v.type) {
    case value::none: return make_error(err::not_initialized);
    case value::text: return make_error(err::illegal_operator);
    case value::integer: return make_int(v.i == 0);
    case value::real: return make_int(v.d == 0);
    default: return v;
    }
}

// ---- evaluation -------------------------------------------------------------

/// Computes the reports of a parser. `function` answers calls: it gives the
/// result, or throws a `failure`.
class evaluator {
public:
    typedef value (*function_t)(const std::string& name, const std::vector<value>& arguments);

    std::map<std::string, value> variables;

    explicit evaluator(function_t function) : function_(function) {}

    /// The value of one expression whose reading ended with `status`; throws a
    /// `failure`. A status of the parser is thrown like an error of evaluation.
    value run(const std::vector<step>& steps, int status)
    {
        const settled at_the_end { *this, stack_.size() };
        for (const step& s : steps)
            perform(s);
        if (status < 0)
            throw failure { status };
        return read(pop());
    }

private:
    /// A value, or a variable.
    struct operand {
        value own;
        std::string variable;
    };

    struct settled {
        evaluator& owner;
        std::size_t depth;
        ~settled()
        {
            for (std::size_t i = depth; i < owner.stack_.size(); ++i)
                owner.stack_[i] = { owner.read(owner.stack_[i]), "" };
        }
    };

    function_t function_;
    std::vector<operand> stack_;

    value read(const operand& o) { return o.variable.empty() ? o.own : variables[o.variable]; }

    void push(const value& v) { stack_.push_back({ v, "" }); }

    operand pop()
    {
        if (stack_.empty())
            throw failure { err::underflow };
        const operand o = stack_.back();
        stack_.pop_back();
        return o;
    }

    void perform(const step& s)
    {
        switch (s.kind) {
        case step::literal: push(from_library(s.value)); break;
        case step::name:
            if (variables.count(s.text) == 0)
                throw failure { err::undefined_symbol };
            stack_.push_back({ value(), s.text });
            break;
        case step::parameter: break;
        case step::call: call(s); break;
        default: operate(s.code); break;
        }
    }

    void call(const step& s)
    {
        std::vector<value> arguments(s.count);
        for (unsigned i = s.count; i > 0; --i)
            arguments[i - 1] = read(pop());
        push(function_(s.text, arguments));
    }

    void operate(int op)
    {
        if (op == 0x25 || op == 0x27) {
            const value v = read(pop());
            push(op == 0x25 ? invert(v) : negate(v));
            return;
        }
        if (op == 0x26) {
            pop();
            throw failure { err::illegal_operator };
        }
        const operand right = pop();
        const operand left = pop();
        if (op == 0x18 || op == 0x19 || (op >= 0x1F && op <= 0x22))
            push(compare(op, read(left), read(right)));
        else if (op >= 0x1A && op <= 0x1E)
            assign(op, left, read(right));
        else
            push(combine(op, read(left), read(right)));
    }

    void assign(int op, operand left, const value& right)
    {
        static const std::map<int, int> arithmetic = { { 0x1B, 0x15 }, { 0x1C, 0x16 }, { 0x1D, 0x13 }, { 0x1E, 0x14 } };
        value& target = left.variable.empty() ? left.own : variables[left.variable];
        if (op != 0x1A)
            target = combine(arithmetic.at(op), target, right);
        else if (target.type != value::error)
            target = right;
        stack_.push_back(left);
    }
};

} // namespace naive

#endif
