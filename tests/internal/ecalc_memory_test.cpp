// Expressions when memory runs out: whichever allocation fails, the outcome is the
// right value or `err::out_of_memory`, and the evaluator works again afterwards. Where
// strings are made, one of them may be empty instead.
#include "allocation_failure.h"

#include <stdkro/ecalc.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

/// Runs `action` with the n-th allocation failing.
template <class action_t> int status_with(allocation_failure& failure, action_t action)
{
    failure.arm();
    const int status = action();
    failure.disarm();
    return status;
}

/// Makes an evaluator with each allocation failing; how many there were.
int make_evaluators()
{
    int failures = 0;
    for (allocation_failure failure; failure.next();) {
        std::unique_ptr<ecalc> calc;
        const int status = status_with(failure, [&] {
            try {
                calc.reset(new (std::nothrow) ecalc);
            } catch (const xcpt& e) {
                return e.get_err();
            }
            return calc ? 0 : err::out_of_memory;
        });
        EXPECT_EQ(failure.happened(), status != 0) << failure.nth();
        EXPECT_TRUE(status == 0 || status == err::out_of_memory) << failure.nth();
        failures += failure.happened();
    }
    return failures;
}

// The first lexer of the process makes the table that all others share: this test
// stands first.
TEST(ecalc_memory, an_evaluator_is_made_or_is_out_of_memory)
{
    EXPECT_GT(make_evaluators(), 25); // while there is no table
    EXPECT_GT(make_evaluators(), 18); // and when there is one
    // What failed at first was made later: all symbols are known.
    ecalc calc;
    base_var result;
    EXPECT_EQ(0, calc.calc_expr(result, "(1 + 2) * 3 - 4 / 5 % 6 < 7 && !8 || 9 >= 10"));
    EXPECT_EQ(0, result.to_int());
}

const struct {
    const char* text;
    const char* value;
    bool has_strings;
} expressions[] = {
    { "1 + 2 * 3", "7", false },
    { "(x + long_name_of_a_variable) * 2 - x / 2.0", "9", false },
    { "x = y = long_name_of_a_variable += 1", "4", false },
    { "is_int(is_int(is_int(x))) + is_ref(x) && 1 || 0", "1", false },
    { "(1+(2+(3+(4+(5+(6+(7+(8+(9+(10+(11+(12+(13+(14+(15+(16+(17+18)))))))))))))))))", "171", false },
    { "is_valid(1, 2", "", false },
    { "\"a long text that needs memory \" + \"and another one\"", "a long text that needs memory and another one", true },
    { "format(\"%[1] and %[2] and %[1] again, as a long text\", align(x, 40), toupper(s))",
      "                                       2 and TEXT and                                        2 again, as a long text",
      true },
    { "hex(255, 8) + oct(8) + string(x) + tolower(s) + align(2.5, 3)", "000000ff102text2.500000", true },
};

TEST(ecalc_memory, an_evaluation_gives_the_value_or_is_out_of_memory)
{
    for (const auto& e : expressions) {
        for (allocation_failure failure; failure.next();) {
            ecalc calc;
            calc.get_vars().set("x", 2);
            calc.get_vars().set("y", 5);
            calc.get_vars().set("long_name_of_a_variable", 3);
            calc.get_vars().set("s", "Text");
            base_var result;
            const int status = status_with(failure, [&] { return calc.calc_expr(result, e.text); });
            if (!failure.happened()) {
                EXPECT_EQ(*e.value ? 0 : err::syntax, status) << e.text;
                EXPECT_STREQ(e.value, *e.value ? result.to_string().c_str() : "") << e.text;
            } else if (!e.has_strings) {
                EXPECT_EQ(err::out_of_memory, status) << e.text << ", allocation " << failure.nth();
            } else {
                EXPECT_TRUE(status == 0 || status == err::out_of_memory) << e.text << ", allocation " << failure.nth();
            }
            // The failure is over.
            ASSERT_EQ(0, calc.calc_expr(result, "y * 2")) << e.text << ", allocation " << failure.nth();
            EXPECT_EQ(0, result.to_int() % 2);
        }
    }
}

TEST(ecalc_memory, a_function_is_added_or_not)
{
    const char* const names[] = { "f", "a_function_with_a_long_name", nullptr };
    const method functions[] = { einterpret::built_in::var_hex, einterpret::built_in::var_oct };
    for (allocation_failure failure; failure.next();) {
        ecalc calc;
        const int status = status_with(failure, [&] { return calc.add_methods(names, functions); });
        EXPECT_EQ(failure.happened() ? err::out_of_memory : 0, status) << failure.nth();
        EXPECT_EQ(0, calc.add_methods(names, functions));
        base_var result;
        EXPECT_EQ(0, calc.calc_expr(result, "f(8) + a_function_with_a_long_name(8)"));
        EXPECT_STREQ("810", result.to_string().c_str());
    }
}

int eval(einterpret& interpreter, base_var& result, cycque<base_var>& args)
{
    return static_cast<ecalc&>(interpreter).calc_expr(result, args[0].get_string().c_str());
}

TEST(ecalc_memory, an_evaluation_within_an_evaluation_fails_as_a_call)
{
    const char* const names[] = { "eval", nullptr };
    const method functions[] = { eval };
    for (allocation_failure failure; failure.next();) {
        ecalc calc;
        calc.add_methods(names, functions);
        calc.get_vars().set("text", "1 + 2 * x");
        calc.get_vars().set("x", 4);
        base_var result;
        const int status = status_with(failure, [&] {
            try {
                return calc.calc_expr(result, "eval(text)");
            } catch (const xrterror& e) {
                return e.get_err();
            }
        });
        if (failure.happened())
            EXPECT_TRUE(status == err::out_of_memory || status == err::undefined_symbol) << failure.nth();
        else
            EXPECT_EQ(9, result.to_int());
    }
}

int throw_bad_alloc(einterpret&, base_var&, cycque<base_var>&) { throw std::bad_alloc(); }

TEST(ecalc_memory, bad_alloc_of_a_host_function_becomes_the_status)
{
    ecalc calc;
    const char* const names[] = { "f", nullptr };
    const method functions[] = { throw_bad_alloc };
    calc.add_methods(names, functions);
    base_var result;
    EXPECT_EQ(err::out_of_memory, calc.calc_expr(result, "1 + f()"));
    EXPECT_EQ(0, calc.calc_expr(result, "1 + 2"));
}

} // namespace
