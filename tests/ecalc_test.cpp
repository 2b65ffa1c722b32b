// The evaluator: values, variables, functions, and what it throws.
#include "naive_expression.h"
#include "repeated.h"
#include "value_text.h"

#include <stdkro/ecalc.h>

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

/// The value, "returns CODE" or "throws CODE MESSAGE".
std::string evaluate(ecalc& calc, const char* text)
{
    base_var result;
    try {
        const int r = calc.calc_expr(result, text);
        return r < 0 ? "returns " + code_text(r) : text_of(result);
    } catch (const xrterror& e) {
        return "throws " + code_text(e.get_err()) + " " + e.what();
    }
}

base_var& variable(ecalc& calc, const char* name) { return *calc.get_var(name); }

void set(ecalc& calc, const char* name, const base_var& value) { calc.get_vars().set(name, value); }

// ---- functions of a host -----------------------------------------------------------

int calls = 0;

int count_call(einterpret&, base_var& result, cycque<base_var>& args)
{
    ++calls;
    result = static_cast<int>(args.count());
    return 0;
}

int fail(einterpret&, base_var& result, cycque<base_var>&)
{
    result = 1;
    return err::timeout;
}

int succeed(einterpret&, base_var& result, cycque<base_var>&)
{
    result = 5;
    return 1;
}

int throw_error(einterpret&, base_var&, cycque<base_var>&) { throw xrterror(err::conflict, "no %s", "peace"); }

/// The arguments as text, in their order.
int list(einterpret&, base_var& result, cycque<base_var>& args)
{
    share_str all;
    for (unsigned i = 0; i < args.count(); ++i) {
        all += text_of(args[i]).c_str();
        all += ';';
    }
    result = all;
    return 0;
}

int make_none(einterpret&, base_var& result, cycque<base_var>&)
{
    result = base_var();
    return 0;
}

int make_const(einterpret&, base_var& result, cycque<base_var>&)
{
    result = 5;
    result.set_const(true);
    return 0;
}

/// Assigns its first argument.
int store_nine(einterpret&, base_var& result, cycque<base_var>& args)
{
    args[0].evaluate(9);
    result = 0;
    return 0;
}

/// Evaluates a text with the evaluator that calls.
int eval(einterpret& interpreter, base_var& result, cycque<base_var>& args)
{
    return static_cast<ecalc&>(interpreter).calc_expr(result, args[0].get_string().c_str());
}

/// Calls a function by name with the rest of the arguments.
int apply(einterpret& interpreter, base_var& result, cycque<base_var>& args)
{
    const share_str name = args[0].get_string();
    args.pop_front();
    return interpreter.call(name, result, args);
}

void add_host_functions(ecalc& calc)
{
    static const char* const names[] = { "count", "fail", "succeed", "throw_error", "list", "make_none", "make_const",
                                         "store_nine", "eval", "apply", nullptr };
    static const method functions[] = { count_call, fail, succeed, throw_error, list, make_none, make_const, store_nine,
                                        eval, apply };
    EXPECT_EQ(0, calc.add_methods(names, functions));
}

/// x = 2, y = 7, d = 0.5, s = "ab", zero = 0, none, bad = an error, fixed = 3 (const).
void add_variables(ecalc& calc)
{
    set(calc, "x", 2);
    set(calc, "y", 7);
    set(calc, "d", 0.5);
    set(calc, "s", "ab");
    set(calc, "zero", 0);
    set(calc, "none", base_var());
    base_var bad;
    bad.set_error(err::conflict);
    set(calc, "bad", bad);
    base_var fixed(3);
    fixed.set_const(true);
    set(calc, "fixed", fixed);
}

// ---- values --------------------------------------------------------------------------

const struct {
    const char* text;
    const char* value;
} cases[] = {
    // A literal is its value.
    { "12", "12" },
    { "1.5", "real 1.5" },
    { "\"text\"", "\"text\"" },
    { "\"\"", "\"\"" },
    { "'A'", "65" },
    // Arithmetic: ints wrap, an int with a double is a double, strings add to strings only.
    { "x * 3 + 1", "7" },
    { "y - x", "5" },
    { "y / x", "3" },
    { "y % x", "1" },
    { "-y / x", "-3" },
    { "-y % x", "-1" },
    { "2147483647 + 1", "-2147483648" },
    { "-2147483647 - 2", "2147483647" },
    { "65536 * 65536", "0" },
    { "7 + 0.5", "real 7.5" },
    { "0.5 + 7", "real 7.5" },
    { "7 / 2.0", "real 3.5" },
    { "x * d", "real 1" },
    { "s + \"cd\"", "\"abcd\"" },
    { "s + 1", "error 80000006" },
    { "1 + s", "error 80000006" },
    { "s - s", "error 80000006" },
    { "s * s", "error 80000006" },
    { "s / s", "error 80000006" },
    { "s % s", "error 80000006" },
    { "d % d", "error 80000006" },
    { "1.0 / 0", "real inf" },
    { "1 / 0", "error 80000002" },
    { "1 % zero", "error 80000002" },
    { "(-2147483647 - 1) / -1", "-2147483648" },
    { "(-2147483647 - 1) % -1", "0" },
    // The first error of a chain survives; an error on the right is no right value.
    { "1 / 0 + 1", "error 80000002" },
    { "(1 / 0) * \"a\" - 2", "error 80000002" },
    { "bad + 1", "error 8002000a" },
    { "1 + bad", "error 80000005" },
    { "1 + none", "error 80000005" },
    { "none + 1", "error 80000003" },
    { "bad", "error 8002000a" },
    { "none", "none" },
    // Assignment changes the variable and yields it.
    { "x = 5", "5" },
    { "x = 1.5", "real 1.5" },
    { "x = s", "\"ab\"" },
    { "x = y = 1", "1" },
    { "(x = 3) = 4", "4" },
    { "x += 0.5", "real 2.5" },
    { "x -= 5", "-3" },
    { "x *= y", "14" },
    { "y /= x", "3" },
    { "y /= zero", "error 80000002" },
    { "s += \"c\"", "\"abc\"" },
    { "s -= \"c\"", "error 80000006" },
    { "x = bad", "error 8002000a" },
    { "x = none", "none" },
    { "none = 4", "4" },
    { "none += 4", "error 80000003" },
    { "bad = 4", "error 8002000a" },
    { "bad += 4", "error 8002000a" },
    { "fixed = 4", "error 80000004" },
    { "fixed += 4", "error 80000004" },
    { "fixed + 4", "7" },
    { "4 + fixed", "7" },
    { "fixed", "3" },
    { "5 = 6", "6" },
    { "5 += 6", "11" },
    { "make_const() + 1", "6" },
    { "make_const() = 1", "error 80000004" },
    // A value is read when its operator runs.
    { "x + (x = 5)", "10" },
    { "(x = 5) + x", "10" },
    { "x * (x += 1) * x", "27" },
    { "x + 1 + (x = 9)", "12" },
    // Logic: 1 or 0, a double when one operand is; both sides are always evaluated.
    { "1 && 2", "1" },
    { "1 && 0", "0" },
    { "0 && 0", "0" },
    { "0 || 2", "1" },
    { "0 || 0", "0" },
    { "0.0 || 2.0", "real 1" },
    { "0.5 && 0.0", "real 0" },
    { "1 && 0.5", "real 1" },
    { "0.5 || 0", "real 1" },
    { "s && s", "error 80000006" },
    { "s || 1", "error 80000006" },
    { "1 && bad", "error 80000005" },
    { "bad && 1", "error 8002000a" },
    { "none && 1", "error 80000003" },
    { "none || 1", "error 80000003" },
    { "fixed && 1", "1" },
    { "1 || 0 && 0", "0" },
    // Comparisons give the int 1 or 0.
    { "1 < 2", "1" },
    { "2 < 1", "0" },
    { "1 < 1", "0" },
    { "2 > 1", "1" },
    { "1 > 2", "0" },
    { "1 > 1", "0" },
    { "1 <= 1", "1" },
    { "2 <= 1", "0" },
    { "1 >= 1", "1" },
    { "1 >= 2", "0" },
    { "1 == 1", "1" },
    { "1 == 2", "0" },
    { "1 != 1", "0" },
    { "1 != 2", "1" },
    { "\"a\" < \"b\"", "1" },
    { "\"a\" == \"a\"", "1" },
    { "\"a\" >= \"b\"", "0" },
    { "x < 3.5", "1" },
    { "x < 2.5", "0" },
    { "3.5 > x", "1" },
    { "fixed == 3", "1" },
    // Doubles less than 1 apart are equal; ints far apart have the wrapped sign.
    { "1.2 == 1.7", "1" },
    { "1.2 < 1.7", "0" },
    { "1.0 == 2.0", "0" },
    { "2147483647 > -2", "0" },
    { "-2147483647 - 1 < 1", "0" },
    // Prefixes.
    { "!0", "1" },
    { "!5", "0" },
    { "!0.0", "1" },
    { "!d", "0" },
    { "!s", "error 80000006" },
    { "!none", "error 80000003" },
    { "!bad", "error 8002000a" },
    { "!(1 < 2)", "0" },
    { "-x", "-2" },
    { "-d", "real -0.5" },
    { "-0.0", "real 0" },
    { "-s", "error 80000006" },
    { "-none", "error 80000005" },
    { "-bad", "error 80000005" },
    { "-(-2147483647 - 1)", "-2147483648" },
    // Calls: the arguments come in the order they were written.
    { "hex(255, 4)", "\"00ff\"" },
    { "list()", "\"\"" },
    { "list(1)", "\"1;\"" },
    { "list(1, 2.5, \"c\", x)", "\"1;real 2.5;\"c\";2;\"" },
    { "list(1, list(2, 3), 4)", "\"1;\"2;3;\";4;\"" },
    { "count(1, 2, 3) + count()", "3" },
    { "make_none()", "none" },
    { "apply(\"hex\", 255)", "\"ff\"" },
    // A variable comes as a reference.
    { "is_ref(x) + is_ref(x + 1) * 2 + is_ref(1) * 4 + is_ref((x)) * 8 + is_ref(x = 1) * 16", "25" },
    { "store_nine(x) + x", "9" },
    { "getvar(\"x\") = 8", "8" },
    // The parser's status is returned.
    { "", "returns 80020006" },
    { "1 +", "returns 80020006" },
    { "(1", "returns 80020005" },
    { "count(1", "returns 80020005" },
    { "!!x", "returns 80020006" },
    // What is left over is ignored.
    { "1 2", "1" },
    { "1 < 2 < 0", "1" },
    // A failure between parentheses is not looked at.
    { "(1 +)", "1" },
    { "count(1,", "returns 80020005" },
    // Comparisons without an order, unknown names and failed calls throw.
    { "\"a\" < 1", "throws 80000006 compare error." },
    { "1 == \"a\"", "throws 80000006 compare error." },
    { "1 > bad", "throws 80000005 compare error." },
    { "bad >= 1", "throws 8002000a compare error." },
    { "none <= 1", "throws 80000003 compare error." },
    { "1 != none", "throws 80000005 compare error." },
    { "q + 1", "throws 80020008 undefined identifier: q" },
    { "q = 1", "throws 80020008 undefined identifier: q" },
    { "nosuch(1)", "throws 80020008 undefined function: nosuch" },
    { "x(1)", "throws 80020008 undefined function: x" },
    { "hex", "throws 80020008 undefined identifier: hex" },
    // Every status that is not negative is success.
    { "succeed()", "5" },
    // A function that fails with a status is called undefined too.
    { "fail()", "throws 80020008 undefined function: fail" },
    { "eval(\"1 +\")", "throws 80020008 undefined function: eval" },
    // What a function throws passes through.
    { "throw_error()", "throws 8002000a no peace" },
    { "is_int(1, 2)", "throws 8002000e argument must be 1." },
    // The @ operation is not implemented, and says so in GBK.
    { "@x", "throws 80000006 @\xd4\xcb\xcb\xe3\xbb\xb9\xc3\xbb\xd3\xd0\xca\xb5\xcf\xd6" },
    // An empty stack is an underflow.
    { "()", "throws 80000009 underflow" },
    { "count(,)", "throws 80000009 underflow" },
    { "() + 1", "throws 80000009 underflow" },
    { "!()", "throws 80000009 underflow" },
    { "-()", "throws 80000009 underflow" },
    // Lexical errors are thrown.
    { "\"open", "throws 80020007 triple string" },
    { "x + 'ab", "throws 80020007 invalid character define" },
    // An evaluation within an evaluation.
    { "eval(\"x = 4\") + x", "8" },
    { "1 + eval(\"2 + eval(\\\"3\\\")\") + 4", "10" },
    { "list(1, eval(\"list(2, 3)\"), 4)", "\"1;\"2;3;\";4;\"" },
};

TEST(ecalc, gives_the_value_the_status_or_the_error)
{
    for (const auto& c : cases) {
        ecalc calc;
        add_host_functions(calc);
        add_variables(calc);
        EXPECT_EQ(c.value, evaluate(calc, c.text)) << "expression: " << c.text;
    }
}

TEST(ecalc, assignment_changes_the_variable_and_nothing_else_does)
{
    const struct {
        const char* text;
        const char* x;
    } rows[] = {
        { "x = x + 1", "3" },
        { "x += 0.5", "real 2.5" },
        { "x -= 1", "1" },
        { "x *= 5", "10" },
        { "x /= 2", "1" },
        { "x = x = 5", "5" },
        { "(x) = 6", "6" },
        { "x + 1", "2" },
        { "x * x", "2" },
        { "-x", "2" },
        { "!x", "2" },
        { "x < 3", "2" },
        { "x && 0", "2" },
        { "x + 1 = 7", "2" },
        { "getvar(\"x\") = 8", "8" },
        { "getvar(\"x\") + 8", "2" },
        { "store_nine(x)", "9" },
        { "x = eval(\"4\")", "4" },
        { "x = eval(\"x = 4\") + 1", "5" },
        { "store_nine(x + 1)", "2" },
        { "x = \"text\"", "\"text\"" },
        { "x = 1 / 0", "error 80000002" },
        { "x += \"a\"", "error 80000006" },
    };
    for (const auto& r : rows) {
        ecalc calc;
        add_host_functions(calc);
        add_variables(calc);
        evaluate(calc, r.text);
        EXPECT_EQ(r.x, text_of(variable(calc, "x"))) << r.text;
    }
}

TEST(ecalc, a_constant_that_is_assigned_becomes_an_error)
{
    ecalc calc;
    add_variables(calc);
    EXPECT_EQ("7", evaluate(calc, "fixed + 4"));
    EXPECT_TRUE(variable(calc, "fixed").is_const());
    evaluate(calc, "fixed = 1");
    EXPECT_EQ(err::non_left_value, variable(calc, "fixed").get_err());
}

TEST(ecalc, the_result_is_a_value_of_its_own)
{
    ecalc calc;
    add_variables(calc);
    base_var result;
    ASSERT_EQ(0, calc.calc_expr(result, "x"));
    EXPECT_FALSE(result.is_ref());
    calc.get_vars().remove("x");
    EXPECT_EQ(2, result.to_int());
    ASSERT_EQ(0, calc.calc_expr(result, "y = 8"));
    EXPECT_FALSE(result.is_ref());
    ASSERT_EQ(0, calc.calc_expr(result, "getvar(\"y\")"));
    EXPECT_FALSE(result.is_ref());
    ASSERT_EQ(0, calc.calc_expr(result, "fixed"));
    EXPECT_FALSE(result.is_const());
}

TEST(ecalc, the_result_may_be_the_variable)
{
    ecalc calc;
    add_variables(calc);
    ASSERT_EQ(0, calc.calc_expr(variable(calc, "x"), "x + 1"));
    EXPECT_EQ(3, variable(calc, "x").to_int());
    ASSERT_EQ(0, calc.calc_expr(variable(calc, "x"), "x"));
    EXPECT_EQ(3, variable(calc, "x").to_int());
}

TEST(ecalc, a_failure_leaves_the_result_alone)
{
    ecalc calc;
    base_var result(42);
    EXPECT_EQ(err::unexpected, calc.calc_expr(result, "1 +"));
    EXPECT_EQ(42, result.to_int());
    EXPECT_THROW(calc.calc_expr(result, "q"), xrterror);
    EXPECT_EQ(42, result.to_int());
}

TEST(ecalc, a_null_text_is_an_invalid_parameter)
{
    ecalc calc;
    base_var result;
    EXPECT_EQ(err::invalid_parameter, calc.calc_expr(result, static_cast<const char*>(nullptr)));
}

TEST(ecalc, reads_on_in_a_lexer)
{
    ecalc calc;
    eparser::elexer lexer;
    ASSERT_EQ(0, lexer.load_string("1 + 2  \"a\" + \"b\" ,", nullptr, false));
    base_var result;
    ASSERT_EQ(0, calc.calc_expr(result, &lexer));
    EXPECT_EQ("3", text_of(result));
    ASSERT_EQ(0, calc.calc_expr(result, &lexer));
    EXPECT_EQ("\"ab\"", text_of(result));
    EXPECT_EQ(err::unexpected, calc.calc_expr(result, &lexer));
    EXPECT_EQ(eparser::OP_COMMA, lexer.get_token(nullptr));
}

// ---- what is always evaluated, what stays ----------------------------------------------

TEST(ecalc, logic_has_no_short_circuit)
{
    ecalc calc;
    add_host_functions(calc);
    calls = 0;
    EXPECT_EQ("0", evaluate(calc, "0 && count(1)"));
    EXPECT_EQ(1, calls);
    EXPECT_EQ("1", evaluate(calc, "1 || count(1)"));
    EXPECT_EQ(2, calls);
}

TEST(ecalc, values_of_a_failed_parse_stay_for_later_expressions)
{
    ecalc calc;
    add_host_functions(calc);
    EXPECT_EQ("returns 80020006", evaluate(calc, "7 +"));
    EXPECT_EQ("\"7;1;\"", evaluate(calc, "list(1,)"));
    EXPECT_EQ("throws 80000009 underflow", evaluate(calc, "list(1,)"));
    // A successful evaluation takes its own value only.
    EXPECT_EQ("returns 80020005", evaluate(calc, "list(5, 6"));
    EXPECT_EQ("1", evaluate(calc, "1"));
    EXPECT_EQ("6", evaluate(calc, "()"));
    EXPECT_EQ("5", evaluate(calc, "()"));
    EXPECT_EQ("throws 80000009 underflow", evaluate(calc, "()"));
}

TEST(ecalc, a_throwing_operator_has_taken_its_operands)
{
    ecalc calc;
    add_variables(calc);
    EXPECT_EQ("throws 80000006 compare error.", evaluate(calc, "\"a\" < 1"));
    EXPECT_EQ("throws 80000009 underflow", evaluate(calc, "()"));
    evaluate(calc, "@x");
    EXPECT_EQ("throws 80000009 underflow", evaluate(calc, "()"));
    evaluate(calc, "nosuch(1, 2)");
    EXPECT_EQ("throws 80000009 underflow", evaluate(calc, "()"));
}

TEST(ecalc, what_stays_does_not_outlive_its_variable)
{
    ecalc calc;
    add_variables(calc);
    EXPECT_EQ("returns 80020006", evaluate(calc, "x +"));
    calc.get_vars().remove("x");
    set(calc, "z", 99); // perhaps in its place
    EXPECT_EQ("2", evaluate(calc, "()"));
}

TEST(ecalc, an_unknown_operator_is_invalid)
{
    // Codes that the parser never reports.
    for (const int op : { 0, 0x11, 0x12, 0x28, 99, -1 }) {
        ecalc calc;
        calc.onLiteral(9, 1);
        calc.onLiteral(9, 2);
        try {
            calc.onOperate(op);
            ADD_FAILURE() << op;
        } catch (const xrterror& e) {
            EXPECT_EQ(err::unexpected, e.get_err());
            EXPECT_STREQ("invalid operator.", e.what());
        }
    }
}

// ---- tables ---------------------------------------------------------------------------

TEST(ecalc, knows_the_built_in_functions_and_no_variable)
{
    ecalc calc;
    EXPECT_EQ(0u, calc.get_vars().count());
    for (unsigned i = 0; i < einterpret::built_in::count; ++i) {
        base_var result;
        cycque<base_var> args;
        // A known function complains of its arguments, or, as `echo`, takes none.
        try {
            EXPECT_EQ(0, calc.call(einterpret::built_in::names[i], result, args));
            EXPECT_STREQ("echo", einterpret::built_in::names[i]);
        } catch (const xrterror& e) {
            EXPECT_EQ(err::invalid_parameter, e.get_err());
        }
    }
}

TEST(ecalc, call_gives_the_status_of_the_function)
{
    ecalc calc;
    add_host_functions(calc);
    base_var result;
    cycque<base_var> args;
    args.push_back(255);
    EXPECT_EQ(0, calc.call("hex", result, args));
    EXPECT_EQ("\"ff\"", text_of(result));
    EXPECT_EQ(err::timeout, calc.call("fail", result, args));
    EXPECT_EQ(err::undefined_symbol, calc.call("nosuch", result, args));
}

TEST(ecalc, a_later_function_replaces_an_earlier_one)
{
    ecalc calc;
    const char* const names[] = { "hex", nullptr };
    const method functions[] = { count_call };
    EXPECT_EQ(0, calc.add_methods(names, functions));
    EXPECT_EQ("3", evaluate(calc, "hex(1, 2, 3)"));
    const method again[] = { list };
    EXPECT_EQ(0, calc.add_methods(names, again));
    EXPECT_EQ("\"1;\"", evaluate(calc, "hex(1)"));
    const char* const none[] = { nullptr };
    EXPECT_EQ(0, calc.add_methods(none, nullptr));
}

TEST(ecalc, get_var_gives_the_stored_variable_or_null)
{
    ecalc calc;
    set(calc, "x", 2);
    EXPECT_EQ(calc.get_vars().find("x"), calc.get_var("x"));
    EXPECT_EQ(nullptr, calc.get_var("y"));
    EXPECT_EQ(nullptr, calc.get_var(""));
}

TEST(ecalc, variables_and_functions_have_names_of_their_own)
{
    ecalc calc;
    set(calc, "hex", 16);
    EXPECT_EQ("\"10\"", evaluate(calc, "hex(hex)"));
}

TEST(ecalc, a_copy_has_variables_and_functions_of_its_own)
{
    ecalc calc;
    add_host_functions(calc);
    set(calc, "x", 2);
    ecalc copy(calc);
    EXPECT_EQ("5", evaluate(copy, "x = 4 + count(1)"));
    EXPECT_EQ("2", evaluate(calc, "x"));
    ecalc assigned;
    assigned = copy;
    EXPECT_EQ("6", evaluate(assigned, "x + count(1)"));
}

/// The copy that `copy_caller` made of the evaluator that called it.
ecalc copied;

int copy_caller(einterpret& interpreter, base_var& result, cycque<base_var>&)
{
    copied = static_cast<ecalc&>(interpreter);
    result = 1;
    return 0;
}

TEST(ecalc, a_copy_made_during_an_evaluation_evaluates)
{
    ecalc calc;
    const char* const names[] = { "copy_caller", nullptr };
    const method functions[] = { copy_caller };
    calc.add_methods(names, functions);
    set(calc, "x", 2);
    EXPECT_EQ("5", evaluate(calc, "x + copy_caller() + x"));
    EXPECT_EQ("3", evaluate(copied, "x + 1"));
    EXPECT_EQ("3", evaluate(calc, "x + 1"));
}

/// Looks variables and functions up in places of its own.
class host : public ecalc {
public:
    base_var answer { 42 };

    int call(const share_str& name, base_var& result, cycque<base_var>& args) override
    {
        if (name != "twice")
            return ecalc::call(name, result, args);
        result = args[0];
        result = result + result;
        return 0;
    }
    base_var* get_var(const share_str& name) override { return name == "answer" ? &answer : ecalc::get_var(name); }
};

TEST(ecalc, a_host_can_answer_names_and_calls_itself)
{
    host calc;
    EXPECT_EQ("84", evaluate(calc, "twice(answer)"));
    EXPECT_EQ("\"2a\"", evaluate(calc, "hex(answer)"));
    EXPECT_EQ("1", evaluate(calc, "exist(\"answer\")"));
    EXPECT_EQ("1", evaluate(calc, "answer = 1"));
    EXPECT_EQ(1, calc.answer.to_int());
    EXPECT_EQ("throws 80020008 undefined identifier: question", evaluate(calc, "question"));
}

// ---- size -------------------------------------------------------------------------------

TEST(ecalc, long_chains_and_deep_nesting_end)
{
    ecalc calc;
    set(calc, "x", 1);
    EXPECT_EQ("100001", evaluate(calc, (repeated("x+", 100000) + "1").c_str()));
    EXPECT_EQ("1", evaluate(calc, (repeated("(", 900) + "x" + repeated(")", 900)).c_str()));
    EXPECT_EQ("returns 80010001", evaluate(calc, (repeated("(", 100000) + "x" + repeated(")", 100000)).c_str()));
    EXPECT_EQ("returns 80010001", evaluate(calc, repeated("(", 100000).c_str()));
    EXPECT_EQ("100001", evaluate(calc, ("echo(" + repeated("\"\",", 100000) + "\"\")").c_str()));
}

TEST(ecalc, an_evaluation_that_evaluates_itself_for_ever_ends)
{
    ecalc calc;
    add_host_functions(calc);
    set(calc, "again", "eval(again)");
    EXPECT_EQ("throws 80020008 undefined function: eval", evaluate(calc, "eval(again)"));
    EXPECT_EQ("3", evaluate(calc, "eval(\"1 + 2\")"));
}

// ---- against an evaluator of another make ---------------------------------------------------

naive::value count_arguments(const std::string& name, const std::vector<naive::value>& arguments)
{
    if (name != "count")
        throw naive::failure { err::undefined_symbol };
    return naive::make_int(static_cast<int>(arguments.size()));
}

/// Both evaluators with the same variables.
struct pair {
    ecalc calc;
    naive::evaluator plain { count_arguments };

    pair()
    {
        add_host_functions(calc);
        add_variables(calc);
        for (const char* name : { "x", "y", "d", "s", "zero", "none", "bad" })
            plain.variables[name] = naive::from_library(*calc.get_var(name));
    }

    std::string by_library(const char* text)
    {
        base_var result;
        try {
            const int r = calc.calc_expr(result, text);
            return r < 0 ? "fails " + code_text(r) : naive::text_of(naive::from_library(result));
        } catch (const xrterror& e) {
            return "fails " + code_text(e.get_err());
        }
    }

    std::string by_the_book(const char* text)
    {
        naive::textbook parser;
        eparser::elexer lexer;
        lexer.load_string(text, nullptr, false);
        try {
            int status;
            try {
                status = parser.read(lexer);
            } catch (const xrterror& e) {
                status = e.get_err();
            }
            return naive::text_of(plain.run(parser.steps, status));
        } catch (const naive::failure& f) {
            return "fails " + code_text(f.code);
        }
    }

    std::string variables_of_library()
    {
        return all([this](const char* name) { return naive::from_library(*calc.get_var(name)); });
    }
    std::string variables_by_the_book()
    {
        return all([this](const char* name) { return plain.variables[name]; });
    }

private:
    template <class get_t> std::string all(get_t get)
    {
        std::string text;
        for (const char* name : { "x", "y", "d", "s", "zero", "none", "bad" })
            text += std::string(name) + " = " + naive::text_of(get(name)) + "\n";
        return text;
    }
};

/// A sound expression `depth` deep, now and then with words dropped or doubled.
class generator {
public:
    explicit generator(unsigned seed) : random_(seed) {}

    std::string make()
    {
        std::string text = expression(2 + below(4));
        if (below(8) == 0)
            text.erase(below(static_cast<unsigned>(text.size())), 1 + below(3));
        return text;
    }
    unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }

private:
    std::mt19937 random_;

    template <unsigned n> std::string any(const char* const (&texts)[n]) { return texts[below(n)]; }

    std::string operand()
    {
        static const char* const operands[]
            = { "x",   "y",   "d",     "s",      "zero", "x",     "y",          "d",         "none", "bad",
                "0",   "1",   "2",     "7",      "1.5",  "0.0",   "2147483647", "\"a\"",     "\"b\"", "'c'",
                "100", "3.0", "65536", "-(1)", "\"\"", "count()", "1000000.5",  "(0-2147483647-1)" };
        return any(operands);
    }

    std::string expression(unsigned depth)
    {
        static const char* const operators[] = { "+", "-", "*", "/", "%",  "+",  "-",  "*",  "<", ">", "<=",
                                                 ">=", "==", "!=", "&&", "||", "=", "+=", "-=", "*=", "/=" };
        static const char* const prefixes[] = { "!", "-", "-", "!", "@" };
        if (depth == 0)
            return operand();
        switch (below(8)) {
        case 0: return "(" + expression(depth - 1) + ")";
        case 1: return any(prefixes) + "(" + expression(depth - 1) + ")";
        case 2: return "count(" + expression(depth - 1) + ", " + operand() + ")";
        case 3: return operand() + " " + any(operators) + " " + expression(depth - 1);
        default: return expression(depth - 1) + " " + any(operators) + " " + expression(depth - 1);
        }
    }
};

TEST(ecalc, agrees_with_an_evaluator_of_another_make)
{
    generator expressions(20260201);
    unsigned values = 0;
    for (unsigned i = 0; i < 2000; ++i) {
        pair both;
        for (unsigned k = 0; k < 5; ++k) {
            const std::string text = expressions.make();
            const std::string got = both.by_library(text.c_str());
            ASSERT_EQ(both.by_the_book(text.c_str()), got) << "expression: " << text;
            ASSERT_EQ(both.variables_by_the_book(), both.variables_of_library()) << "expression: " << text;
            values += got.compare(0, 5, "fails") != 0;
        }
    }
    EXPECT_GT(values, 3000u); // most are sound
}

} // namespace
