// The functions that every expression can call: results, refusals, messages.
#include "value_text.h"

#include <stdkro/ecalc.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <initializer_list>
#include <iostream>
#include <sstream>
#include <string>

namespace {

/// Catches what is written to standard output while it lives.
class captured_output {
public:
    captured_output() : before_(std::cout.rdbuf(text_.rdbuf())) {}
    ~captured_output() { std::cout.rdbuf(before_); }
    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf* before_;
};

/// x = 2, s = "ab", d = 2.5, none, bad = an error, fixed = 3 (const).
void add_variables(ecalc& calc)
{
    calc.get_vars().set("x", 2);
    calc.get_vars().set("s", "ab");
    calc.get_vars().set("d", 2.5);
    calc.get_vars().set("none", base_var());
    base_var bad;
    bad.set_error(err::conflict);
    calc.get_vars().set("bad", bad);
    base_var fixed(3);
    fixed.set_const(true);
    calc.get_vars().set("fixed", fixed);
}

/// What is printed, then the value, or "throws CODE MESSAGE".
std::string evaluate(const char* text)
{
    ecalc calc;
    add_variables(calc);
    base_var result;
    const captured_output output;
    try {
        const int r = calc.calc_expr(result, text);
        return output.text() + (r < 0 ? "returns " + code_text(r) : text_of(result));
    } catch (const xrterror& e) {
        return output.text() + "throws " + code_text(e.get_err()) + " " + e.what();
    }
}

const struct {
    const char* text;
    const char* value;
} cases[] = {
    // The predicates look through a reference, is_ref does not.
    { "is_string(\"a\")", "1" },
    { "is_string(s)", "1" },
    { "is_string(1)", "0" },
    { "is_string(bad)", "0" },
    { "is_int(1)", "1" },
    { "is_int(x)", "1" },
    { "is_int(1.5)", "0" },
    { "is_int('c')", "1" },
    { "is_int(\"1\")", "0" },
    { "is_lvalue(x)", "1" },
    { "is_lvalue(none)", "1" },
    { "is_lvalue(1)", "1" },
    { "is_lvalue(fixed)", "0" },
    { "is_lvalue(bad)", "0" },
    { "is_rvalue(x)", "1" },
    { "is_rvalue(fixed)", "1" },
    { "is_rvalue(none)", "0" },
    { "is_rvalue(bad)", "0" },
    { "is_rvalue(1 / 0)", "0" },
    { "is_valid(x)", "1" },
    { "is_valid(none)", "1" },
    { "is_valid(bad)", "0" },
    { "is_valid(1 / 0)", "0" },
    { "is_valid(\"a\" - 1)", "0" },
    { "is_const(fixed)", "1" },
    { "is_const(x)", "0" },
    { "is_const(3)", "0" },
    { "is_const(fixed + 0)", "0" },
    { "is_ref(x)", "1" },
    { "is_ref(bad)", "1" },
    { "is_ref(2)", "0" },
    { "is_ref(x + 0)", "0" },
    { "is_ref(getvar(\"x\"))", "1" },
    { "is_string()", "throws 8002000e argument must be 1." },
    { "is_string(1, 2)", "throws 8002000e argument must be 1." },
    { "is_int()", "throws 8002000e argument must be 1." },
    { "is_int(1, 2)", "throws 8002000e argument must be 1." },
    { "is_lvalue()", "throws 8002000e argument must be 1." },
    { "is_lvalue(1, 2)", "throws 8002000e argument must be 1." },
    { "is_rvalue()", "throws 8002000e argument must be 1." },
    { "is_rvalue(1, 2)", "throws 8002000e argument must be 1." },
    { "is_valid()", "throws 8002000e argument must be 1." },
    { "is_valid(1, 2)", "throws 8002000e argument must be 1." },
    { "is_const()", "throws 8002000e argument must be 1." },
    { "is_const(1, 2)", "throws 8002000e argument must be 1." },
    { "is_ref()", "throws 8002000e argument must be 1." },
    { "is_ref(1, 2)", "throws 8002000e argument must be 1." },
    // string and int convert a copy; a failed conversion is an error value.
    { "string(12)", "\"12\"" },
    { "string(-3)", "\"-3\"" },
    { "string(0.1)", "\"0.1\"" },
    { "string(1000000.0 * 10)", "\"1e+07\"" },
    { "string(\"ab\")", "\"ab\"" },
    { "string(s)", "\"ab\"" },
    { "string(none)", "error 80000003" },
    { "string(bad)", "error 8002000a" },
    { "string(fixed) + \"!\"", "\"3!\"" },
    { "string(x) + x", "error 80000006" },
    { "string()", "throws 8002000e 1" },
    { "string(1, 2)", "throws 8002000e 1" },
    { "int(\"12\")", "12" },
    { "int(\"12a\")", "error 8002000f" },
    { "int(\"\")", "0" },
    { "int(-2.9)", "-2" },
    { "int(2.9)", "2" },
    { "int(1.0 / 0)", "-2147483648" },
    { "int(4000000000.0)", "-2147483648" },
    { "int(\"4000000000\")", "2147483647" },
    { "int('A')", "65" },
    { "int(x)", "2" },
    { "int(none)", "error 80000003" },
    { "int(bad)", "error 8002000a" },
    { "int()", "throws 8002000e 1" },
    { "int(1, 2)", "throws 8002000e 1" },
    { "int(d) + d", "real 4.5" },
    // echo prints its arguments without a separator and yields their number.
    { "echo()", "0" },
    { "echo(1, \"a\", 2.5)", "1a2.53" },
    { "echo(x, s, d)", "2ab2.53" },
    { "echo(\"\")", "1" },
    { "echo(1, none)", "1throws 80000003 " },
    { "echo(1, bad, 2)", "1throws 8002000a " },
    // align: "%*d", "%*f", "%*s".
    { "align(5, 3)", "\"  5\"" },
    { "align(5, -3)", "\"5  \"" },
    { "align(5, 0)", "\"5\"" },
    { "align(5, 1)", "\"5\"" },
    { "align(-12345, 3)", "\"-12345\"" },
    { "align(-5, 4)", "\"  -5\"" },
    { "align(\"ab\", -4)", "\"ab  \"" },
    { "align(\"ab\", 4)", "\"  ab\"" },
    { "align(\"abcdef\", 4)", "\"abcdef\"" },
    { "align(\"abcdef\", -4)", "\"abcdef\"" },
    { "align(\"\", 2)", "\"  \"" },
    { "align(\"\", 0)", "\"\"" },
    { "align(2.5, 10)", "\"  2.500000\"" },
    { "align(2.5, -10)", "\"2.500000  \"" },
    { "align(-0.0000004, 0)", "\"-0.000000\"" },
    { "align(1.0 / 3, 0)", "\"0.333333\"" },
    { "align(1000000.0 * 1000000.0, 0)", "\"1000000000000.000000\"" },
    { "align(1.0 / 0, 5)", "\"  inf\"" },
    { "align(-1.0 / 0, 0)", "\"-inf\"" },
    { "align(0.0 / 0, 4)", "\" nan\"" },
    { "align(x, 3)", "\"  2\"" },
    { "align(fixed, x)", "\" 3\"" },
    { "align()", "throws 8002000e argument must be 2." },
    { "align(1)", "throws 8002000e argument must be 2." },
    { "align(1, 2, 3)", "throws 8002000e argument must be 2." },
    { "align(none, 2)", "throws 80000005 first argument must be right value." },
    { "align(bad, 2)", "throws 80000005 first argument must be right value." },
    { "align(bad, \"2\")", "throws 80000005 first argument must be right value." },
    { "align(1, \"2\")", "throws 8002000f second argument must be integer." },
    { "align(1, 2.0)", "throws 8002000f second argument must be integer." },
    { "align(1, none)", "throws 8002000f second argument must be integer." },
    // format replaces "%[N]" by argument N; argument 0 is the format.
    { "format(\"a%[1]b%[2]\", 1, \"x\")", "\"a1bx\"" },
    { "format(\"%[2]%[1]%[2]\", 1, 2)", "\"212\"" },
    { "format(\"%[0]\")", "\"%[0]\"" },
    { "format(\"%[1]\", \"%[1]\")", "\"%[1]\"" },
    { "format(\"%[1]\", 2.5)", "\"2.5\"" },
    { "format(\"%[01]\", 7)", "\"7\"" },
    { "format(\"\")", "\"\"" },
    { "format(s)", "\"ab\"" },
    { "format(\"plain\", 1, 2)", "\"plain\"" },
    // Any other "%" is text.
    { "format(\"50%\")", "\"50%\"" },
    { "format(\"%\")", "\"%\"" },
    { "format(\"%%\")", "\"%%\"" },
    { "format(\"%%[1]\", 7)", "\"%7\"" },
    { "format(\"%d %s\", 1)", "\"%d %s\"" },
    { "format(\"%[\")", "\"%[\"" },
    { "format(\"%[]\", 1)", "\"%[]\"" },
    { "format(\"%[a]\", 1)", "\"%[a]\"" },
    { "format(\"%[-1]\", 1)", "\"%[-1]\"" },
    { "format(\"%[%[1]\", 7)", "\"%[7\"" },
    { "format(\"[1]\", 7)", "\"[1]\"" },
    // A number without its "]" drops the "%[".
    { "format(\"%[1\", 7)", "\"1\"" },
    { "format(\"a%[1b\", 7)", "\"a1b\"" },
    { "format(\"%[12%[1]\", 7)", "\"127\"" },
    { "format(\"%[9\")", "\"9\"" },
    // An argument that is not there throws; so does one without a text.
    { "format(\"%[3]\", 1)", "throws 80020008 " },
    { "format(\"%[1]\")", "throws 80020008 " },
    { "format(\"%[4294967296]\", 1)", "throws 80020008 " },
    { "format(\"%[4294967297]\", 1)", "throws 80020008 " },
    { "format(\"%[99999999999999999999999999]\", 1)", "throws 80020008 " },
    { "format(\"%[1]\", none)", "throws 80000003 " },
    { "format(\"%[1]\", bad)", "throws 8002000a " },
    { "format()", "throws 8002000e argument less than 1 or first isn't string." },
    { "format(1)", "throws 8002000e argument less than 1 or first isn't string." },
    { "format(none)", "throws 8002000e argument less than 1 or first isn't string." },
    // exist asks for a variable by name.
    { "exist(\"x\")", "1" },
    { "exist(\"none\")", "1" },
    { "exist(\"nosuch\")", "0" },
    { "exist(\"\")", "0" },
    { "exist(\"hex\")", "0" },
    { "exist(s)", "0" },
    { "exist()", "throws 8002000e argument must be a string." },
    { "exist(x)", "throws 8002000e argument must be a string." },
    { "exist(\"x\", \"x\")", "throws 8002000e argument must be a string." },
    // getvar gives a reference to it.
    { "getvar(\"x\")", "2" },
    { "getvar(\"x\") = 7", "7" },
    { "(getvar(\"x\") = 7) + x", "14" },
    { "getvar(\"s\") + \"c\"", "\"abc\"" },
    { "getvar(\"nosuch\")", "throws 80020008 undefined symbol: nosuch" },
    { "getvar()", "throws 8002000e argument must be a string." },
    { "getvar(1)", "throws 8002000e argument must be a string." },
    { "getvar(\"x\", 1)", "throws 8002000e argument must be a string." },
    // toupper and tolower change letters and nothing else.
    { "toupper(\"abc XYZ @[`{ 019\")", "\"ABC XYZ @[`{ 019\"" },
    { "tolower(\"abc XYZ @[`{ 019\")", "\"abc xyz @[`{ 019\"" },
    { "toupper(\"\xc3\xa4\xe1\")", "\"\xc3\xa4\xe1\"" },
    { "tolower(\"\xc3\x84\xc1\")", "\"\xc3\x84\xc1\"" },
    { "toupper(\"\")", "\"\"" },
    { "toupper(s) + s", "\"ABab\"" },
    { "toupper()", "throws 8002000e argument must be a string." },
    { "toupper(1)", "throws 8002000e argument must be a string." },
    { "toupper(s, s)", "throws 8002000e argument must be a string." },
    { "tolower()", "throws 8002000e argument must be a string." },
    { "tolower(1)", "throws 8002000e argument must be a string." },
    { "tolower(s, s)", "throws 8002000e argument must be a string." },
    // oct and hex write the 32 bits of an int.
    { "oct(8)", "\"10\"" },
    { "oct(0)", "\"0\"" },
    { "oct(-1)", "\"37777777777\"" },
    { "oct(x)", "\"2\"" },
    { "oct()", "throws 8002000e argument must be a integer." },
    { "oct(1, 2)", "throws 8002000e argument must be a integer." },
    { "oct(\"8\")", "throws 8002000e argument must be a integer." },
    { "oct(8.0)", "throws 8002000e argument must be a integer." },
    { "hex(255)", "\"ff\"" },
    { "hex(0)", "\"0\"" },
    { "hex(-1)", "\"ffffffff\"" },
    { "hex(255, 0)", "\"ff\"" },
    { "hex(255, 1)", "\"ff\"" },
    { "hex(255, 3)", "\"0ff\"" },
    { "hex(255, 4)", "\"00ff\"" },
    { "hex(255, 8)", "\"000000ff\"" },
    { "hex(255, 9)", "\"ff\"" },
    { "hex(255, -4)", "\"ff\"" },
    { "hex(255, 2147483647)", "\"ff\"" },
    { "hex(4660, 2)", "\"1234\"" },
    { "hex(255, 4, \"more\")", "\"00ff\"" },
    { "hex(255, 4.9)", "\"00ff\"" },
    { "hex(255, \"4\")", "\"00ff\"" },
    { "hex(255, \"wide\")", "\"ff\"" },
    { "hex(255, none)", "\"ff\"" },
    { "hex()", "throws 8002000e argument less than 1 or first isn't integer." },
    { "hex(\"255\")", "throws 8002000e argument less than 1 or first isn't integer." },
    { "hex(2.0, 4)", "throws 8002000e argument less than 1 or first isn't integer." },
};

TEST(built_in, results_and_refusals)
{
    for (const auto& c : cases)
        EXPECT_EQ(c.value, evaluate(c.text)) << "expression: " << c.text;
}

// ---- the table ------------------------------------------------------------------------

TEST(built_in, the_table_is_in_its_order)
{
    typedef einterpret::built_in table;
    const struct {
        const char* name;
        method function;
    } rows[] = {
        { "oct", table::var_oct },
        { "hex", table::var_hex },
        { "toupper", table::var_toupper },
        { "tolower", table::var_tolower },
        { "string", table::var_tostring },
        { "int", table::var_toint },
        { "echo", table::var_echo },
        { "align", table::var_align },
        { "format", table::var_format },
        { "exist", table::var_exist },
        { "getvar", table::var_getvar },
        { "is_string", table::var_is_string },
        { "is_int", table::var_is_int },
        { "is_lvalue", table::var_is_lvalue },
        { "is_rvalue", table::var_is_rvalue },
        { "is_valid", table::var_is_valid },
        { "is_const", table::var_is_const },
        { "is_ref", table::var_is_ref },
    };
    ASSERT_EQ(18u, sizeof rows / sizeof *rows);
    for (unsigned i = 0; i < 18; ++i) {
        EXPECT_STREQ(rows[i].name, table::names[i]);
        EXPECT_EQ(rows[i].function, table::methods[i]) << rows[i].name;
    }
    EXPECT_EQ(nullptr, table::names[18]);
}

// ---- called by hand ----------------------------------------------------------------------

/// Calls a function with `result` as it stands; what it throws is caught.
int call(ecalc& calc, method function, base_var& result, std::initializer_list<base_var> values)
{
    cycque<base_var> args;
    for (const base_var& v : values)
        args.push_back(v);
    try {
        return function(calc, result, args);
    } catch (const xrterror& e) {
        return e.get_err();
    }
}

TEST(built_in, success_returns_0)
{
    ecalc calc;
    base_var result;
    EXPECT_EQ(0, call(calc, einterpret::built_in::var_oct, result, { 8 }));
    EXPECT_EQ(0, call(calc, einterpret::built_in::var_is_int, result, { 8 }));
    EXPECT_EQ(0, call(calc, einterpret::built_in::var_toint, result, { "a" }));
    EXPECT_EQ(err::abnormal_cast, result.get_err());
}

TEST(built_in, a_failed_call_leaves_in_the_result)
{
    const struct {
        const char* name;
        method function;
        std::initializer_list<base_var> values;
        const char* left;
    } rows[] = {
        // oct and hex empty it before they look at their arguments.
        { "oct", einterpret::built_in::var_oct, {}, "\"\"" },
        { "hex", einterpret::built_in::var_hex, { "a" }, "\"\"" },
        // getvar marks it invalid, or undefined.
        { "getvar", einterpret::built_in::var_getvar, { 1 }, "error 80000003" },
        { "getvar", einterpret::built_in::var_getvar, { "nosuch" }, "error 80020008" },
        // The others leave it alone.
        { "toupper", einterpret::built_in::var_toupper, { 1 }, "42" },
        { "align", einterpret::built_in::var_align, { 1, "a" }, "42" },
        { "format", einterpret::built_in::var_format, { "%[1]" }, "42" },
        { "exist", einterpret::built_in::var_exist, { 1 }, "42" },
        { "is_ref", einterpret::built_in::var_is_ref, {}, "42" },
        { "string", einterpret::built_in::var_tostring, {}, "42" },
    };
    for (const auto& r : rows) {
        ecalc calc;
        base_var result(42);
        EXPECT_GT(0, call(calc, r.function, result, r.values)) << r.name;
        EXPECT_EQ(r.left, text_of(result)) << r.name;
    }
}

TEST(built_in, getvar_refuses_without_touching_what_the_result_referred_to)
{
    ecalc calc;
    base_var target(5);
    base_var result;
    result.refer(target);
    EXPECT_EQ(err::undefined_symbol, call(calc, einterpret::built_in::var_getvar, result, { "nosuch" }));
    EXPECT_EQ(5, target.to_int());
}

TEST(built_in, the_arguments_stay_as_they_were)
{
    ecalc calc;
    calc.get_vars().set("s", "ab");
    base_var result;
    calc.calc_expr(result, "toupper(s) + string(s) + align(s, 5) + format(s)");
    EXPECT_STREQ("ABab   abab", result.to_string().c_str());
    EXPECT_STREQ("ab", calc.get_var("s")->to_string().c_str());
}

TEST(built_in, align_ends_at_4096)
{
    for (const int width : { 4096, 4097, 2147483647 }) {
        ecalc calc;
        base_var result;
        EXPECT_EQ(0, call(calc, einterpret::built_in::var_align, result, { "ab", width }));
        EXPECT_EQ(std::string(4094, ' ') + "ab", result.to_string().c_str());
        EXPECT_EQ(0, call(calc, einterpret::built_in::var_align, result, { 7, -width }));
        EXPECT_EQ("7" + std::string(4095, ' '), result.to_string().c_str());
    }
    ecalc calc;
    base_var result;
    EXPECT_EQ(0, call(calc, einterpret::built_in::var_align, result, { 7, -2147483647 - 1 }));
    EXPECT_EQ(4096u, result.to_string().length());
    const std::string longer(5000, 'x');
    EXPECT_EQ(0, call(calc, einterpret::built_in::var_align, result, { longer.c_str(), 4999 }));
    EXPECT_EQ(longer, result.to_string().c_str());
}

TEST(built_in, align_writes_the_largest_double_whole)
{
    ecalc calc;
    base_var result;
    EXPECT_EQ(0, call(calc, einterpret::built_in::var_align, result, { -1.7976931348623157e308, 0 }));
    const share_str text = result.to_string();
    EXPECT_EQ(317u, text.length());
    EXPECT_EQ(0, std::string(text.c_str()).compare(0, 18, "-17976931348623157"));
}

TEST(built_in, align_agrees_with_the_c_formatter)
{
    ecalc calc;
    for (int width = -12; width <= 12; ++width) {
        char expected[64];
        base_var result;
        for (const int value : { 0, 7, -7, 123456789, -2147483647 - 1 }) {
            std::snprintf(expected, sizeof expected, "%*d", width, value);
            call(calc, einterpret::built_in::var_align, result, { value, width });
            EXPECT_STREQ(expected, result.to_string().c_str());
        }
        for (const double value : { 0.0, -0.0, 0.5, 1.0 / 3, -1234.5678905, 0.0000005, 1e15 }) {
            std::snprintf(expected, sizeof expected, "%*f", width, value);
            call(calc, einterpret::built_in::var_align, result, { value, width });
            EXPECT_STREQ(expected, result.to_string().c_str());
        }
        for (const char* value : { "", "a", "abcdefg" }) {
            std::snprintf(expected, sizeof expected, "%*s", width, value);
            call(calc, einterpret::built_in::var_align, result, { value, width });
            EXPECT_STREQ(expected, result.to_string().c_str());
        }
    }
}

TEST(built_in, align_and_format_take_a_text_up_to_its_nul_and_whole)
{
    const char bytes[] = "a\0b";
    const share_str text(bytes, bytes + 3);
    ecalc calc;
    base_var result;
    EXPECT_EQ(0, call(calc, einterpret::built_in::var_align, result, { text, 3 }));
    EXPECT_TRUE(result.get_string() == "  a");
    EXPECT_EQ(0, call(calc, einterpret::built_in::var_align, result, { text, 1 }));
    EXPECT_TRUE(result.get_string() == "a");
    EXPECT_EQ(0, call(calc, einterpret::built_in::var_format, result, { text }));
    EXPECT_TRUE(result.get_string() == text);
}

TEST(built_in, a_long_format_is_copied_whole)
{
    std::string text;
    std::string expected;
    for (int i = 0; i < 20000; ++i) {
        text += "item %[1], ";
        expected += "item 7, ";
    }
    ecalc calc;
    base_var result;
    EXPECT_EQ(0, call(calc, einterpret::built_in::var_format, result, { text.c_str(), 7 }));
    EXPECT_EQ(expected, result.to_string().c_str());
}

// ---- the output ------------------------------------------------------------------------------

/// Counts how often it is flushed.
class counting_buffer : public std::stringbuf {
public:
    int flushes = 0;

protected:
    int sync() override
    {
        ++flushes;
        return std::stringbuf::sync();
    }
};

TEST(built_in, echo_flushes)
{
    counting_buffer buffer;
    std::streambuf* const before = std::cout.rdbuf(&buffer);
    ecalc calc;
    base_var result;
    const int r = call(calc, einterpret::built_in::var_echo, result, { "a", 1 });
    std::cout.rdbuf(before);
    EXPECT_EQ(0, r);
    EXPECT_EQ("a1", buffer.str());
    EXPECT_EQ(1, buffer.flushes);
    EXPECT_EQ(2, result.to_int());
}

/// An interpreter without a function or a variable.
class empty_interpreter : public einterpret {
public:
    int call(const share_str&, base_var&, cycque<base_var>&) override { return err::undefined_symbol; }
    base_var* get_var(const share_str& name) override
    {
        asked = name;
        return nullptr;
    }
    share_str asked;
};

TEST(built_in, variables_are_found_through_the_interpreter_alone)
{
    empty_interpreter interpreter;
    base_var result;
    cycque<base_var> args;
    args.push_back("name");
    EXPECT_EQ(0, einterpret::built_in::var_exist(interpreter, result, args));
    EXPECT_EQ(0, result.to_int());
    EXPECT_TRUE(interpreter.asked == "name");
    EXPECT_THROW(einterpret::built_in::var_getvar(interpreter, result, args), xrterror);
    empty_interpreter copy(interpreter);
    copy = interpreter;
    EXPECT_EQ(nullptr, copy.get_var("x"));
}

} // namespace
