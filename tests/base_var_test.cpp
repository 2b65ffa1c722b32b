// The dynamically typed value.
#include "value_text.h"

#include <stdkro/base_var.h>
#include <stdkro/str.h>

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <vector>

namespace {

// A value as text: its type and its content.
std::string show(const base_var& v)
{
    char text[64];
    std::string flags;
    if (v.is_ref())
        flags += "ref ";
    if (v.is_const())
        flags += "const ";
    switch (v.get_type()) {
    case base_var::none:
        return flags + "none";
    case base_var::string:
        return flags + "string " + v.get_string().c_str();
    case base_var::integer:
        return flags + "int " + std::to_string(v.get_int());
    case base_var::real:
        std::snprintf(text, sizeof text, "double %.17g", v.get_double());
        return flags + text;
    case base_var::error:
        return flags + "error " + code_text(v.get_int());
    }
    return flags + "tag " + std::to_string(v.get_type());
}

base_var make_const(base_var v)
{
    v.set_const(true);
    return v;
}
base_var make_error(int code)
{
    base_var v;
    v.set_error(code);
    return v;
}

const base_var none;
const base_var bad = make_error(static_cast<int>(0x80020005));

// ---- construction ---------------------------------------------------------------

TEST(base_var, a_value_takes_its_type_from_what_it_is_made_of)
{
    static const struct {
        base_var value;
        const char* shown;
    } cases[] = {
        { base_var(), "none" },
        { base_var('a'), "int 97" },
        // A char is sign-extended whatever the compiler thinks, an unsigned one is not.
        { base_var(static_cast<char>(0xFE)), "int -2" },
        { base_var(static_cast<unsigned char>(0xFE)), "int 254" },
        { base_var(-1), "int -1" },
        { base_var(INT_MIN), "int -2147483648" },
        { base_var(0xFFFFFFFFu), "int -1" },
        { base_var(7L), "int 7" },
        { base_var(-7L), "int -7" },
        // Of a longer number the low 32 bits.
        { base_var(static_cast<long>(0x180000000ull)), "int -2147483648" },
        { base_var(3000000000ul), "int -1294967296" },
        { base_var(0.5f), "double 0.5" },
        { base_var(-2.25), "double -2.25" },
        { base_var("abc"), "string abc" },
        { base_var(""), "string " },
        { base_var(static_cast<const char*>(nullptr)), "string " },
        { base_var(share_str("abc")), "string abc" },
    };
    for (const auto& c : cases) {
        EXPECT_EQ(show(c.value), c.shown);
        EXPECT_EQ(show(base_var(c.value)), c.shown) << "copied";
        base_var assigned("other text");
        assigned = c.value;
        EXPECT_EQ(show(assigned), c.shown) << "assigned over a string";
        base_var over_int(1);
        over_int.copy(c.value);
        EXPECT_EQ(show(over_int), c.shown) << "copied over an int";
        base_var source(c.value);
        base_var moved(std::move(source));
        EXPECT_EQ(show(moved), c.shown) << "moved";
        base_var moved_over("text");
        moved_over = std::move(moved);
        EXPECT_EQ(show(moved_over), c.shown) << "moved over a string";
        base_var moved_over_int(1);
        moved_over_int = std::move(moved_over);
        EXPECT_EQ(show(moved_over_int), c.shown) << "moved over an int";
    }
}

TEST(base_var, a_copy_shares_the_text)
{
    const base_var a("some text");
    const base_var b(a);
    base_var c;
    c = a;
    EXPECT_EQ(a.get_string().c_str(), b.get_string().c_str());
    EXPECT_EQ(a.get_string().c_str(), c.get_string().c_str());
    EXPECT_EQ(a.get_string().c_str(), a.to_string().c_str());
}

TEST(base_var, a_moved_from_value_is_none)
{
    base_var a("text");
    base_var b(std::move(a));
    EXPECT_EQ(show(a), "none"); // NOLINT
    EXPECT_EQ(show(b), "string text");
}

TEST(base_var, a_value_never_set_is_neither_readable_nor_an_error)
{
    base_var v;
    EXPECT_FALSE(v.is_initialized());
    EXPECT_TRUE(v.is_valid());
    EXPECT_TRUE(v.is_lvalue());
    EXPECT_FALSE(v.is_rvalue());
    EXPECT_EQ(v.get_err(), static_cast<int>(0x80000003));
    EXPECT_EQ(v.to_int(), static_cast<int>(0x80000003));
    EXPECT_EQ(v.get_int(), static_cast<int>(0x80000003));
    EXPECT_EQ(v.to_double(), -2147483645.0);
    EXPECT_TRUE(v.get_string().isempty());
    v += 1;
    EXPECT_EQ(show(v), "error 80000003");
}

TEST(base_var, questions_by_type)
{
    const auto answers = [](const base_var& v) {
        std::string text;
        text += v.is_string() ? 's' : '.';
        text += v.is_int() ? 'i' : '.';
        text += v.is_double() ? 'd' : '.';
        text += v.is_valid() ? 'v' : '.';
        text += v.is_initialized() ? 'n' : '.';
        text += v.is_const() ? 'c' : '.';
        text += v.is_rvalue() ? 'r' : '.';
        text += v.is_lvalue() ? 'l' : '.';
        return text;
    };
    EXPECT_EQ(answers(none), "...v...l");
    EXPECT_EQ(answers("x"), "s..vn.rl");
    EXPECT_EQ(answers(1), ".i.vn.rl");
    EXPECT_EQ(answers(1.5), "..dvn.rl");
    EXPECT_EQ(answers(bad), "....n...");
    EXPECT_EQ(answers(make_const(1)), ".i.vncr.");
    base_var target("x");
    base_var ref;
    ref.refer(target);
    EXPECT_EQ(answers(ref), "s..vn.rl");
    EXPECT_EQ(base_var(1).get_err(), 0);
    EXPECT_EQ(bad.get_err(), static_cast<int>(0x80020005));
    EXPECT_EQ(ref.get_err(), 0);
}

// ---- assignment -------------------------------------------------------------------

TEST(base_var, plain_assignment_replaces_everything_const_and_reference_too)
{
    static const struct {
        const char* what;
        void (*assign)(base_var&);
        const char* shown;
    } cases[] = {
        { "share_str", [](base_var& v) { v = share_str("t"); }, "string t" },
        { "text", [](base_var& v) { v = "t"; }, "string t" },
        { "char", [](base_var& v) { v = static_cast<char>(0xFF); }, "int -1" },
        { "unsigned char", [](base_var& v) { v = static_cast<unsigned char>(0xFF); }, "int 255" },
        { "int", [](base_var& v) { v = 5; }, "int 5" },
        { "unsigned", [](base_var& v) { v = 5u; }, "int 5" },
        { "long", [](base_var& v) { v = 5L; }, "int 5" },
        { "unsigned long", [](base_var& v) { v = 5ul; }, "int 5" },
        { "double", [](base_var& v) { v = 5.5; }, "double 5.5" },
        { "value", [](base_var& v) { v = base_var(12); }, "int 12" },
        { "const value", [](base_var& v) { v = make_const(12); }, "const int 12" },
        { "error", [](base_var& v) { v = bad; }, "error 80020005" },
        { "none", [](base_var& v) { v = none; }, "none" },
    };
    for (const auto& c : cases) {
        base_var target(1);
        base_var reference;
        reference.refer(target);
        std::vector<base_var> targets = { 1, "text", make_const(1), make_const("text"), bad, none };
        targets.push_back(reference);
        for (base_var& v : targets) {
            const std::string before = show(v);
            c.assign(v);
            EXPECT_EQ(show(v), c.shown) << c.what << " over " << before;
            EXPECT_FALSE(v.is_ref());
        }
        EXPECT_EQ(show(target), "int 1") << "the referenced value stays";
    }
}

TEST(base_var, assignment_from_itself_changes_nothing)
{
    base_var v("text");
    v = *&v;
    v.evaluate(v);
    EXPECT_EQ(show(v), "string text");
    base_var ref;
    ref.refer(v);
    v.evaluate(ref);
    EXPECT_EQ(show(v), "string text");
    // Through a reference too: a value cannot come to refer to itself.
    v = ref;
    EXPECT_EQ(show(v), "string text");
    v = std::move(ref);
    EXPECT_EQ(show(v), "string text");
}

TEST(base_var, checked_assignment_wants_an_lvalue)
{
    static const struct {
        base_var target;
        base_var value;
        const char* shown;
    } cases[] = {
        { none, 1, "int 1" },
        { 5, "x", "string x" },
        { "x", 1.5, "double 1.5" },
        { "x", "y", "string y" },
        // The value and the type are copied, not the flags.
        { 5, make_const("k"), "string k" },
        // Errors and values never set are copied as they are.
        { 5, bad, "error 80020005" },
        { 5, none, "none" },
        // A const target becomes an error and stays const; an error keeps its code.
        { make_const(5), 1, "const error 80000004" },
        { make_const("x"), "y", "const error 80000004" },
        { make_const(none), 1, "const error 80000004" },
        { bad, 1, "error 80020005" },
        { make_const(bad), 1, "const error 80020005" },
    };
    for (const auto& c : cases) {
        base_var v(c.target);
        EXPECT_EQ(&v.evaluate(c.value), &v);
        EXPECT_EQ(show(v), c.shown);

        base_var target(c.target);
        base_var ref;
        ref.refer(target);
        EXPECT_EQ(&ref.evaluate(c.value), &target) << "the referenced value is written";
        EXPECT_EQ(show(target), c.shown);
        EXPECT_TRUE(ref.is_ref());
    }
}

TEST(base_var, checked_assignment_of_each_kind)
{
    base_var v;
    base_var ref;
    ref.refer(v);
    EXPECT_EQ(show(v.evaluate(7)), "int 7");
    EXPECT_EQ(show(ref.evaluate(8L)), "int 8");
    EXPECT_EQ(show(v.evaluate(1.25)), "double 1.25");
    EXPECT_EQ(show(ref.evaluate("text")), "string text");
    EXPECT_EQ(show(v.evaluate(share_str("shared"))), "string shared");
    EXPECT_EQ(show(v.evaluate(ref)), "string shared");
    base_var other(3);
    base_var other_ref;
    other_ref.refer(other);
    EXPECT_EQ(show(ref.evaluate(other_ref)), "int 3");
    EXPECT_EQ(show(v), "int 3");
    EXPECT_FALSE(v.is_ref());
    // The raw form acts on the object, even on a reference.
    ref.raw_evaluate(1.5);
    EXPECT_EQ(show(ref), "double 1.5");
    EXPECT_EQ(show(v), "int 3");
    ref.refer(v);
    ref.raw_evaluate(4L);
    EXPECT_EQ(show(ref), "int 4");
    ref.refer(v);
    ref.raw_evaluate(share_str("s"));
    EXPECT_EQ(show(ref), "string s");
    EXPECT_EQ(show(v), "int 3");
}

TEST(base_var, after_set_const_only_plain_assignment_writes)
{
    base_var v(5);
    v.set_const(true);
    EXPECT_EQ(show(v), "const int 5");
    base_var plain(v);
    plain = 1;
    EXPECT_EQ(show(plain), "int 1");
    v.evaluate(1);
    EXPECT_EQ(show(v), "const error 80000004");
    v.set_const(false);
    EXPECT_EQ(show(v), "error 80000004");
}

TEST(base_var, flags_of_the_referenced_value_are_set)
{
    base_var v(5);
    base_var ref;
    ref.refer(v);
    ref.set_const(true);
    EXPECT_EQ(show(v), "const int 5");
    ref.set_error(static_cast<int>(0x80010001));
    EXPECT_EQ(show(v), "const error 80010001");
    ref.set_valid(true);
    EXPECT_EQ(show(v), "const none");
    EXPECT_EQ(v.get_int(), static_cast<int>(0x80000003));
}

TEST(base_var, validity_changes_lose_the_value_and_others_do_nothing)
{
    for (const base_var& original : { base_var("x"), base_var(1), base_var(1.5), none }) {
        base_var v(original);
        v.set_valid(true);
        EXPECT_EQ(show(v), show(original));
        v.set_valid(false);
        EXPECT_EQ(show(v), "error 80000003");
        v.set_error(static_cast<int>(0x80020001));
        v.set_valid(false);
        EXPECT_EQ(show(v), "error 80020001");
        v.set_valid(true);
        EXPECT_EQ(show(v), "none");
        EXPECT_EQ(v.get_err(), static_cast<int>(0x80000003));
    }
}

// ---- references ---------------------------------------------------------------------

TEST(base_var, a_reference_acts_for_its_target)
{
    base_var x(1);
    base_var r;
    r.refer(x);
    EXPECT_TRUE(r.is_ref());
    EXPECT_FALSE(x.is_ref());
    EXPECT_EQ(&r.get_ref(), &x);
    EXPECT_EQ(&x.get_ref(), &x);
    EXPECT_EQ(&static_cast<const base_var&>(r).get_ref(), &x);
    r += 1;
    EXPECT_EQ(show(x), "int 2");
    x += r;
    EXPECT_EQ(show(x), "int 4");
    EXPECT_EQ(show(r + r), "int 8");
    EXPECT_EQ(r.get_int(), 4);
    EXPECT_EQ(r.to_int(), 4);
    EXPECT_TRUE(r.cast_string());
    EXPECT_EQ(show(x), "string 4");
    EXPECT_STREQ(r.get_string().c_str(), "4");
    EXPECT_TRUE(r.cast_double());
    EXPECT_EQ(r.get_double(), 4.0);
    EXPECT_TRUE(r.from_string("abc"));
    EXPECT_EQ(show(x), "string abc");
    base_var copied(r);
    EXPECT_TRUE(copied.is_ref());
    EXPECT_EQ(&copied.get_ref(), &x);
    base_var assigned;
    assigned.copy(r);
    EXPECT_EQ(&assigned.get_ref(), &x);
}

TEST(base_var, a_reference_drops_the_text_const_and_error_it_replaces)
{
    base_var x(1);
    for (base_var r : { base_var("text"), make_const(1), make_const("text"), bad }) {
        r.refer(x);
        EXPECT_EQ(show(r), "ref int 1");
    }
}

TEST(base_var, references_never_form_a_loop)
{
    base_var x(1);
    base_var y;
    base_var z;
    x.refer(x);
    EXPECT_FALSE(x.is_ref());
    y.refer(x);
    z.refer(y);
    EXPECT_EQ(&z.get_ref(), &x);
    x.refer(z); // x is what z refers to
    EXPECT_FALSE(x.is_ref());
    EXPECT_EQ(show(x), "int 1");
    // A value that others refer to becomes a reference itself.
    base_var w(5);
    x.refer(w);
    EXPECT_EQ(&z.get_ref(), &w);
    EXPECT_EQ(show(z), "ref int 5");
    w.refer(z);
    EXPECT_FALSE(w.is_ref());
    w = z;
    EXPECT_FALSE(w.is_ref());
    EXPECT_EQ(show(w), "int 5");
    x = y; // y refers to x, which refers to w: x would refer to itself
    EXPECT_EQ(&x.get_ref(), &w);
    EXPECT_EQ(&y.get_ref(), &w);
}

// ---- two operands ---------------------------------------------------------------------

using compound = base_var& (*)(base_var&, const base_var&);
using binary = base_var (*)(const base_var&, const base_var&);

struct operation {
    const char* name;
    compound apply; // null when there is no compound form
    binary combine;
};
const operation operations[] = {
    { "+", [](base_var& a, const base_var& b) -> base_var& { return a += b; },
      [](const base_var& a, const base_var& b) { return a + b; } },
    { "-", [](base_var& a, const base_var& b) -> base_var& { return a -= b; },
      [](const base_var& a, const base_var& b) { return a - b; } },
    { "*", [](base_var& a, const base_var& b) -> base_var& { return a *= b; },
      [](const base_var& a, const base_var& b) { return a * b; } },
    { "/", [](base_var& a, const base_var& b) -> base_var& { return a /= b; },
      [](const base_var& a, const base_var& b) { return a / b; } },
    { "%", [](base_var& a, const base_var& b) -> base_var& { return a %= b; },
      [](const base_var& a, const base_var& b) { return a % b; } },
    { "cmp", nullptr, base_var::cmp },
    { "or", nullptr, base_var::op_or },
    { "and", nullptr, base_var::op_and },
};
const operation& find_operation(const std::string& name)
{
    for (const operation& o : operations) {
        if (name == o.name)
            return o;
    }
    throw std::runtime_error("no operation " + name);
}

struct row {
    base_var left;
    const char* name;
    base_var right;
    const char* shown;
};

void check(const row& r)
{
    const operation& o = find_operation(r.name);
    const std::string where = show(r.left) + " " + r.name + " " + show(r.right);
    base_var left(r.left);
    base_var right(r.right);
    base_var left_ref;
    base_var right_ref;
    left_ref.refer(left);
    right_ref.refer(right);
    // Const has no say for a left operand that is only read.
    EXPECT_EQ(show(o.combine(left, right)), r.shown) << where;
    EXPECT_EQ(show(o.combine(left_ref, right_ref)), r.shown) << where << ", references";
    EXPECT_EQ(show(o.combine(make_const(left), make_const(right))), r.shown) << where << ", const";
    EXPECT_EQ(show(left), show(r.left)) << where << ": the operands stay";
    EXPECT_EQ(show(right), show(r.right)) << where << ": the operands stay";
    if (!o.apply)
        return;
    base_var target(r.left);
    EXPECT_EQ(&o.apply(target, right_ref), &target);
    EXPECT_EQ(show(target), r.shown) << where << ", in place";
    EXPECT_EQ(&o.apply(left_ref, right), &left) << where;
    EXPECT_EQ(show(left), r.shown) << where << ", in place through a reference";
}

const double inf = std::numeric_limits<double>::infinity();
const double nan_value = std::numeric_limits<double>::quiet_NaN();

TEST(base_var, operations_by_type)
{
    static const row rows[] = {
        // Strings concatenate, and do nothing else.
        { "ab", "+", "cd", "string abcd" },
        { "ab", "+", "", "string ab" },
        { "", "+", "", "string " },
        { "ab", "-", "cd", "error 80000006" },
        { "ab", "*", "cd", "error 80000006" },
        { "ab", "/", "cd", "error 80000006" },
        { "ab", "%", "cd", "error 80000006" },
        { "ab", "and", "cd", "error 80000006" },
        { "ab", "or", "cd", "error 80000006" },
        // Strings and numbers never mix.
        { "ab", "+", 1, "error 80000006" },
        { 1, "+", "ab", "error 80000006" },
        { "1", "+", 1.5, "error 80000006" },
        { 1.5, "cmp", "1", "error 80000006" },
        { "1", "and", 1, "error 80000006" },
        // Ints wrap at 32 bits.
        { 7, "+", 5, "int 12" },
        { INT_MAX, "+", 1, "int -2147483648" },
        { INT_MIN, "+", -1, "int 2147483647" },
        { INT_MIN, "+", INT_MIN, "int 0" },
        { 7, "-", 9, "int -2" },
        { INT_MIN, "-", 1, "int 2147483647" },
        { 0, "-", INT_MIN, "int -2147483648" },
        { 6, "*", 7, "int 42" },
        { 65536, "*", 65536, "int 0" },
        { 65537, "*", 65537, "int 131073" },
        { INT_MIN, "*", -1, "int -2147483648" },
        // Quotients truncate, remainders have the sign of the dividend.
        { 7, "/", 2, "int 3" },
        { -7, "/", 2, "int -3" },
        { 7, "/", -2, "int -3" },
        { 7, "%", 3, "int 1" },
        { -7, "%", 3, "int -1" },
        { 7, "%", -3, "int 1" },
        { -7, "%", -1, "int 0" },
        { INT_MIN, "/", -1, "int -2147483648" },
        { INT_MIN, "%", -1, "int 0" },
        { 1, "/", 0, "error 80000002" },
        { 0, "/", 0, "error 80000002" },
        { 1, "%", 0, "error 80000002" },
        // An int and a double give a double, whichever side the double is on.
        { 7, "+", 0.5, "double 7.5" },
        { 0.5, "+", 7, "double 7.5" },
        { 7, "-", 0.5, "double 6.5" },
        { 0.5, "-", 7, "double -6.5" },
        { 7, "*", 0.5, "double 3.5" },
        { 0.5, "*", 7, "double 3.5" },
        { 7, "/", 0.5, "double 14" },
        { 1.0, "/", 4, "double 0.25" },
        { 1.5, "+", 1.5, "double 3" },
        { 1.5, "-", 0.25, "double 1.25" },
        { 1.5, "*", 1.5, "double 2.25" },
        { 1.5, "/", 0.5, "double 3" },
        { 1.5, "/", 0.0, "double inf" },
        { 1, "/", 0.0, "double inf" },
        { -1.5, "/", 0, "double -inf" },
        { 5.5, "%", 2.0, "error 80000006" },
        { 5, "%", 2.0, "error 80000006" },
        { 5.0, "%", 2, "error 80000006" },
        // Logic gives ints for ints, doubles otherwise.
        { 5, "and", 7, "int 1" },
        { 5, "and", 0, "int 0" },
        { 0, "and", 5, "int 0" },
        { 0, "and", 0, "int 0" },
        { 5, "or", 0, "int 1" },
        { 0, "or", 5, "int 1" },
        { 0, "or", 0, "int 0" },
        { 5, "or", 5, "int 1" },
        { 0.0, "or", 2.0, "double 1" },
        { 0.0, "or", 0.0, "double 0" },
        { -0.0, "or", 0.0, "double 0" },
        { 0.5, "and", 2.0, "double 1" },
        { 0.5, "and", 0.0, "double 0" },
        { 1, "and", 0.5, "double 1" },
        { 0.0, "or", 1, "double 1" },
        { nan_value, "or", 0.0, "double 1" },
        // Comparison gives an int.
        { "a", "cmp", "b", "int -1" },
        { "b", "cmp", "a", "int 1" },
        { "a", "cmp", "a", "int 0" },
        { "", "cmp", "a", "int -1" },
        { "A", "cmp", "a", "int -1" },
        { "\xFF", "cmp", "a", "int 1" },
        { "abc", "cmp", "abcd", "int -1" },
        { 5, "cmp", 3, "int 2" },
        { 3, "cmp", 5, "int -2" },
        { 3, "cmp", 3, "int 0" },
        { INT_MAX, "cmp", -1, "int -2147483648" },
        { INT_MIN, "cmp", 1, "int 2147483647" },
        { 1.2, "cmp", 1.7, "int 0" },
        { 1.7, "cmp", 1.2, "int 0" },
        { 2.5, "cmp", 1.0, "int 1" },
        { 1.0, "cmp", 3.5, "int -2" },
        { 3, "cmp", 1.5, "int 1" },
        { 1.5, "cmp", 3, "int -1" },
        { 1e10, "cmp", 0.0, "int -2147483648" },
        { nan_value, "cmp", 0.0, "int -2147483648" },
        { inf, "cmp", 1, "int -2147483648" },
    };
    for (const row& r : rows)
        check(r);
}

TEST(base_var, operands_without_a_value)
{
    for (const operation& o : operations) {
        for (const base_var& value : { base_var("x"), base_var(1), base_var(1.5) }) {
            // The right side must be readable; that is looked at before the left one is.
            check({ value, o.name, none, "error 80000005" });
            check({ value, o.name, bad, "error 80000005" });
            check({ none, o.name, value, "error 80000003" });
            // The first error of a chain survives.
            check({ bad, o.name, value, "error 80020005" });
        }
        check({ none, o.name, none, "error 80000005" });
        check({ none, o.name, bad, "error 80000005" });
        check({ bad, o.name, none, "error 80020005" });
        check({ bad, o.name, make_error(static_cast<int>(0x80010001)), "error 80020005" });
    }
}

TEST(base_var, a_const_target_of_a_compound_operator_becomes_an_error)
{
    for (const operation& o : operations) {
        if (!o.apply)
            continue;
        for (base_var target : { base_var("x"), base_var(1), base_var(1.5), base_var() }) {
            target.set_const(true);
            o.apply(target, 1);
            EXPECT_EQ(show(target), "const error 80000004") << o.name;
            o.apply(target, none);
            EXPECT_EQ(show(target), "const error 80000004") << o.name;
        }
        base_var target(make_const(bad));
        o.apply(target, 1);
        EXPECT_EQ(show(target), "const error 80020005") << o.name;
    }
}

TEST(base_var, a_value_combines_with_itself)
{
    base_var text("ab");
    text += text;
    EXPECT_EQ(show(text), "string abab");
    base_var number(6);
    number *= number;
    EXPECT_EQ(show(number), "int 36");
    number /= number;
    EXPECT_EQ(show(number), "int 1");
    base_var fraction(1.5);
    fraction -= fraction;
    EXPECT_EQ(show(fraction), "double 0");
    EXPECT_EQ(show(base_var::cmp(text, text)), "int 0");
}

TEST(base_var, not_gives_an_int)
{
    static const struct {
        base_var value;
        const char* shown;
    } cases[] = {
        { 0, "int 1" },
        { 5, "int 0" },
        { make_const(0), "int 1" },
        { 0.0, "int 1" },
        { -0.0, "int 1" },
        { 0.25, "int 0" },
        { nan_value, "int 0" },
        { "x", "error 80000006" },
        { "", "error 80000006" },
        { none, "error 80000003" },
        { bad, "error 80020005" },
    };
    for (const auto& c : cases) {
        base_var v(c.value);
        base_var ref;
        ref.refer(v);
        EXPECT_EQ(show(v.op_not()), c.shown);
        EXPECT_EQ(show(ref.op_not()), c.shown);
        EXPECT_EQ(show(v), show(c.value)) << "the operand stays";
    }
}

TEST(base_var, preparation_gives_the_operand_to_combine_with)
{
    base_var tmp;
    base_var target(1);
    const base_var one(1);
    const base_var half(0.5);
    EXPECT_EQ(target.raw_prepare2(one, tmp), &one);
    base_var ref;
    base_var referenced(3);
    ref.refer(referenced);
    EXPECT_EQ(target.raw_prepare2(ref, tmp), &referenced);
    EXPECT_EQ(target.raw_prepare2(half, tmp), &half);
    EXPECT_EQ(show(target), "double 1");
    EXPECT_EQ(target.raw_prepare2(one, tmp), &tmp);
    EXPECT_EQ(show(tmp), "double 1");
    EXPECT_EQ(show(target), "double 1");
    EXPECT_EQ(target.raw_prepare2("x", tmp), nullptr);
    EXPECT_EQ(show(target), "error 80000006");
}

TEST(base_var, generated_int_arithmetic_agrees_with_64_bits)
{
    std::mt19937 random(5);
    const auto pick = [&]() -> int {
        static const int special[] = { 0, 1, -1, 2, INT_MAX, INT_MIN, INT_MAX - 1, INT_MIN + 1, 65536, -65536 };
        return random() % 2 ? special[random() % 10] : static_cast<int>(random());
    };
    const auto low = [](long long v) { return static_cast<int>(static_cast<unsigned>(v & 0xFFFFFFFF)); };
    for (int i = 0; i < 5000; ++i) {
        const int a = pick();
        const int b = pick();
        const long long x = a;
        const long long y = b;
        ASSERT_EQ((base_var(a) + b).get_int(), low(x + y));
        ASSERT_EQ((base_var(a) - b).get_int(), low(x - y));
        ASSERT_EQ((base_var(a) * b).get_int(), low(x * y)) << a << " " << b;
        ASSERT_EQ(base_var::cmp(a, b).get_int(), low(x - y));
        if (b != 0) {
            ASSERT_EQ((base_var(a) / b).get_int(), low(x / y));
            ASSERT_EQ((base_var(a) % b).get_int(), low(x % y));
        }
    }
}

// ---- conversion ------------------------------------------------------------------------

TEST(base_var, conversions_without_change)
{
    static const struct {
        base_var value;
        const char* text; // null: throws
        int number;
        double fraction;
    } cases[] = {
        { "abc", "abc", 0, 0 },
        { "12", "12", 12, 12 },
        { "12abc", "12abc", 12, 12 },
        { " -3.75x", " -3.75x", -3, -3.75 },
        { "1e3", "1e3", 1, 1000 },
        { "0x10", "0x10", 0, 0 },
        { ".5", ".5", 0, 0.5 },
        { "99999999999", "99999999999", INT_MAX, 99999999999.0 },
        { "-99999999999", "-99999999999", INT_MIN, -99999999999.0 },
        { "inf", "inf", 0, 0 },
        { "", "", 0, 0 },
        { 0, "0", 0, 0 },
        { INT_MIN, "-2147483648", INT_MIN, -2147483648.0 },
        { 1234567, "1234567", 1234567, 1234567 },
        { 0.1, "0.1", 0, 0.1 },
        { 1.9, "1.9", 1, 1.9 },
        { -1.9, "-1.9", -1, -1.9 },
        { 1234567.0, "1.23457e+06", 1234567, 1234567 },
        { 1e100, "1e+100", INT_MIN, 1e100 },
        { 1e-7, "1e-07", 0, 1e-7 },
        { 2147483647.5, "2.14748e+09", INT_MAX, 2147483647.5 },
        { 2147483648.0, "2.14748e+09", INT_MIN, 2147483648.0 },
        { -2147483648.5, "-2.14748e+09", INT_MIN, -2147483648.5 },
        { inf, "inf", INT_MIN, inf },
        { none, nullptr, static_cast<int>(0x80000003), -2147483645.0 },
        { bad, nullptr, static_cast<int>(0x80020005), -2147352571.0 },
    };
    for (const auto& c : cases) {
        const std::string before = show(c.value);
        EXPECT_EQ(c.value.to_int(), c.number) << before;
        EXPECT_EQ(c.value.to_double(), c.fraction) << before;
        std::ostringstream out;
        if (c.text) {
            EXPECT_STREQ(c.value.to_string().c_str(), c.text) << before;
            out << c.value;
            EXPECT_EQ(out.str(), c.text);
        } else {
            try {
                out << c.value;
                ADD_FAILURE() << before << " was written";
            } catch (const xrterror& e) {
                EXPECT_EQ(e.get_err(), c.number);
                EXPECT_STREQ(e.what(), "");
            }
            EXPECT_THROW(c.value.to_string(), xrterror);
            EXPECT_EQ(out.str(), "");
        }
        EXPECT_EQ(show(c.value), before);
    }
    EXPECT_EQ(base_var(nan_value).to_int(), INT_MIN);
    EXPECT_STREQ(base_var(nan_value).to_string().c_str(), "nan");
}

TEST(base_var, conversions_in_place)
{
    static const struct {
        base_var value;
        base_var::type to;
        bool ok;
        const char* shown;
    } cases[] = {
        { none, base_var::string, false, "error 80000003" },
        { none, base_var::integer, false, "error 80000003" },
        { none, base_var::real, false, "error 80000003" },
        { "ab", base_var::string, true, "string ab" },
        { "12", base_var::integer, true, "int 12" },
        { "-12", base_var::integer, true, "int -12" },
        { "99999999999", base_var::integer, true, "int 2147483647" },
        { "-99999999999", base_var::integer, true, "int -2147483648" },
        { "12a", base_var::integer, false, "error 8002000f" },
        { "12 ", base_var::integer, false, "error 8002000f" },
        { "1.5", base_var::integer, false, "error 8002000f" },
        { "0x10", base_var::integer, false, "error 8002000f" },
        { "abc", base_var::integer, false, "error 8002000f" },
        { "-", base_var::integer, false, "error 8002000f" },
        { "", base_var::integer, true, "int 0" },
        { "1.5", base_var::real, true, "double 1.5" },
        { "-2", base_var::real, true, "double -2" },
        { "1e2", base_var::real, true, "double 100" },
        { "1.5x", base_var::real, false, "error 8002000f" },
        { "nan", base_var::real, false, "error 8002000f" },
        { "0x10", base_var::real, false, "error 8002000f" },
        { "", base_var::real, true, "double 0" },
        { 12, base_var::string, true, "string 12" },
        { -12, base_var::string, true, "string -12" },
        { 12, base_var::integer, true, "int 12" },
        { 12, base_var::real, true, "double 12" },
        { 0.1, base_var::string, true, "string 0.1" },
        { 1e20, base_var::string, true, "string 1e+20" },
        { 1.9, base_var::integer, true, "int 1" },
        { -1.9, base_var::integer, true, "int -1" },
        { 1e20, base_var::integer, true, "int -2147483648" },
        { nan_value, base_var::integer, true, "int -2147483648" },
        { 0.1, base_var::real, true, "double 0.10000000000000001" },
        { bad, base_var::string, false, "error 80020005" },
        { bad, base_var::integer, false, "error 80020005" },
        { bad, base_var::real, false, "error 80020005" },
        // Other tags are no conversion at all.
        { 12, base_var::none, false, "int 12" },
        { 12, base_var::error, false, "int 12" },
        { "x", static_cast<base_var::type>(4), false, "string x" },
    };
    for (const auto& c : cases) {
        const std::string where = show(c.value) + " to " + std::to_string(c.to);
        base_var v(c.value);
        EXPECT_EQ(v.cast(c.to), c.ok) << where;
        EXPECT_EQ(show(v), c.shown) << where;

        base_var constant(make_const(c.value));
        EXPECT_EQ(constant.cast(c.to), c.ok) << where;
        EXPECT_EQ(show(constant), std::string("const ") + c.shown) << where << ": const is kept";

        base_var target(c.value);
        base_var ref;
        ref.refer(target);
        EXPECT_EQ(ref.cast(c.to), c.ok) << where;
        EXPECT_EQ(show(target), c.shown) << where << ", through a reference";
    }
}

TEST(base_var, casting_to_string_keeps_the_number)
{
    base_var v(12);
    EXPECT_TRUE(v.cast_string());
    EXPECT_EQ(v.get_int(), 12);
    base_var d(0.5);
    EXPECT_TRUE(d.cast_string());
    EXPECT_EQ(d.get_double(), 0.5);
    // It goes along with the text.
    base_var copied(v);
    base_var assigned;
    assigned = v;
    base_var over_text("text");
    over_text = v;
    base_var evaluated;
    evaluated.evaluate(v);
    base_var source(v);
    base_var moved(std::move(source));
    for (const base_var* const c : { &copied, &assigned, &over_text, &evaluated, &moved })
        EXPECT_EQ(show(*c) + " " + std::to_string(c->get_int()), "string 12 12");
    // Assigning a text does not.
    v = "text";
    EXPECT_EQ(v.get_int(), 0);
}

TEST(base_var, raw_access_converts_nothing)
{
    EXPECT_EQ(base_var(7).get_int(), 7);
    EXPECT_EQ(base_var("12").get_int(), 0);
    EXPECT_EQ(base_var(0.1).get_int(), static_cast<int>(0x9999999A)) << "the low word";
    EXPECT_EQ(base_var(0.1).get_double(), 0.1);
    EXPECT_EQ(bad.get_int(), static_cast<int>(0x80020005));
    EXPECT_TRUE(base_var(7).get_string().isempty());
    EXPECT_TRUE(bad.get_string().isempty());
}

TEST(base_var, from_string_finds_the_narrowest_type)
{
    static const struct {
        const char* text;
        const char* shown;
    } cases[] = {
        { "12", "int 12" },
        { "-7", "int -7" },
        { "+7", "int 7" },
        { " 12", "int 12" },
        { "012", "int 12" },
        { "2147483648", "int 2147483647" },
        { "1.5", "double 1.5" },
        { ".5", "double 0.5" },
        { "5.", "double 5" },
        { "1e3", "double 1000" },
        { "-2.5E-1", "double -0.25" },
        { "1e999", "double inf" },
        { "12a", "string 12a" },
        { "1.5x", "string 1.5x" },
        { "12 ", "string 12 " },
        { "0x1F", "string 0x1F" },
        { "inf", "string inf" },
        { "nan", "string nan" },
        { "-", "string -" },
        { ".", "string ." },
        { "e5", "string e5" },
        { " ", "string  " },
        { "abc", "string abc" },
        { "", "int 0" },
        { nullptr, "int 0" },
    };
    for (const auto& c : cases) {
        base_var v("before");
        EXPECT_TRUE(v.from_string(c.text));
        EXPECT_EQ(show(v), c.shown);
    }
    base_var constant(make_const(1));
    EXPECT_TRUE(constant.from_string("5"));
    EXPECT_EQ(show(constant), "const error 80000004");
    base_var error(bad);
    EXPECT_TRUE(error.from_string("5"));
    EXPECT_EQ(show(error), "error 80020005");
}

TEST(base_var, numbers_have_a_point_in_every_locale)
{
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    for (const char* name : { "de_DE.UTF-8", "de_DE", "German_Germany.1252", "fr_FR.UTF-8" }) {
        if (std::setlocale(LC_NUMERIC, name))
            break;
    }
    base_var v;
    v.from_string("1.5");
    EXPECT_EQ(v.get_type(), base_var::real);
    EXPECT_STREQ(v.to_string().c_str(), "1.5");
    EXPECT_EQ(base_var("2.5").to_double(), 2.5);
    std::setlocale(LC_NUMERIC, before.c_str());
}

TEST(base_var, int_text_and_back_agree)
{
    std::mt19937 random(6);
    for (int i = 0; i < 2000; ++i) {
        const int n = static_cast<int>(random() >> random() % 32) * (random() % 2 ? 1 : -1);
        base_var v(n);
        ASSERT_EQ(v.to_string().c_str(), std::to_string(n));
        base_var back;
        back.from_string(v.to_string().c_str());
        ASSERT_EQ(show(back), show(v));
        char text[64];
        const double d = n / 64.0;
        std::snprintf(text, sizeof text, "%g", d);
        ASSERT_STREQ(base_var(d).to_string().c_str(), text);
    }
}

// ---- str::read_value ---------------------------------------------------------------------

TEST(base_var, read_value_takes_a_quoted_text_or_a_bare_word)
{
    static const struct {
        const char* text;
        const char* shown;
        const char* rest;
    } cases[] = {
        { "12,13", "int 12", ",13" },
        { "1.5;x", "double 1.5", ";x" },
        { "word more", "string word", " more" },
        { "12a\n", "string 12a", "\n" },
        { "", "int 0", "" },
        { ",x", "int 0", ",x" },
        { "\"12\",x", "string 12", ",x" },
        { "\"\"x", "string ", "x" },
        { "\"a,b;c d\" ", "string a,b;c d", " " },
        { "\"\\t\\n\\r\\\"\\\\\\q\"z", "string \t\n\r\"\\q", "z" },
        // A quote that is not closed reaches to the end.
        { "\"abc", "string abc", "" },
        { "\"abc\\", "string abc\\", "" },
        { "\"abc\\\"", "string abc\"", "" },
        { "\"", "string ", "" },
    };
    for (const auto& c : cases) {
        base_var v;
        const char* const end = str::read_value(c.text, v);
        EXPECT_EQ(show(v), c.shown) << c.text;
        EXPECT_STREQ(end, c.rest) << c.text;
        EXPECT_EQ(end, str::skip_value(c.text)) << c.text;
    }
    base_var v(3);
    EXPECT_EQ(str::read_value(static_cast<const char*>(nullptr), v), nullptr);
    EXPECT_EQ(show(v), "int 0");
}

TEST(base_var, read_value_undoes_write_value)
{
    std::mt19937 random(7);
    for (int i = 0; i < 500; ++i) {
        std::string text;
        for (unsigned n = static_cast<unsigned>(random() % 20); n > 0; --n) {
            static const char bytes[] = "ab\"\\\t\n\r ,;1\xB0\xFE";
            text += bytes[random() % (sizeof bytes - 1)];
        }
        char written[128];
        ASSERT_GT(str::write_value(written, sizeof written, text.c_str()), 0);
        base_var v;
        const char* const end = str::read_value(written, v);
        ASSERT_EQ(*end, '\0') << written;
        ASSERT_TRUE(v.is_string());
        ASSERT_EQ(v.get_string().c_str(), text);
    }
}

} // namespace
