// The script machine: each instruction in code made by hand, each failure, and
// what the host sees of it.
#include "script_listing.h"
#include "value_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <sstream>
#include <vector>

using namespace xpp;

namespace {

/// An instruction with an operand of any kind.
struct op {
    op(code_type t) : code(t) {}
    op(code_type t, const base_var& v) : code(t, v) {}
    xcode code;
};

/// A machine with a main text made by hand, writing to a string.
class hand_made {
public:
    hand_made() { machine.set_ostream(&out); }
    explicit hand_made(const std::vector<op>& code) : hand_made() { add("__main__", code); }

    xmethod* add(const char* name, const std::vector<op>& code)
    {
        xmethod* const m = machine.new_method(name);
        for (const op& o : code)
            machine.add_code(o.code.get_type(), o.code.get_operand());
        machine.end_method(*m);
        return m;
    }
    /// What was output, and the error.
    std::string result(int r)
    {
        std::string text = out.str();
        out.str("");
        if (r < 0)
            text += "!" + code_text(r) + " " + machine.get_last_error().what();
        return text;
    }
    std::string run() { return result(machine.run()); }
    /// The same, one instruction at a time.
    std::string run_stepping()
    {
        int r = machine.run_begin();
        while (r >= 0 && machine.is_running())
            r = machine.run_step();
        return result(r);
    }

    std::ostringstream out;
    xmachine machine;
};

base_var error_value(int code)
{
    base_var v;
    v.set_error(code);
    return v;
}

struct row {
    std::vector<op> code;
    const char* result;
};

void expect_results(const std::vector<row>& rows)
{
    for (const row& r : rows) {
        hand_made whole(r.code);
        const std::string code = listing(whole.machine);
        EXPECT_EQ(whole.run(), r.result) << code;
        EXPECT_EQ(hand_made(r.code).run_stepping(), r.result) << code << " (step by step)";
    }
}

/// STORE a, STORE b, the operator, OUTPUT.
void expect_binary(code_type type, const base_var& a, const base_var& b, const char* result)
{
    expect_results({ { { { STORE, a }, { STORE, b }, type, OUTPUT, HALT }, result } });
}

TEST(xmachine, computes_with_two_values)
{
    const struct { code_type type; base_var a; base_var b; const char* result; } rows[] = {
        { PLUS, 7, 5, "12" },
        { PLUS, 7, 0.5, "7.5" },
        { PLUS, "ab", "cd", "abcd" },
        { PLUS, INT_MAX, 1, "-2147483648" },
        { PLUS, "ab", 1, "!80000006 invalid variable." },
        { MINUS, 7, 5, "2" },
        { MINUS, INT_MIN, 1, "2147483647" },
        { MINUS, 0.5, 1, "-0.5" },
        { MINUS, "ab", "b", "!80000006 invalid variable." },
        { MUL, 65536, 65536, "0" },
        { MUL, 1.5, 2, "3" },
        { MUL, "ab", 2, "!80000006 invalid variable." },
        { DIV, 7, -2, "-3" },
        { DIV, INT_MIN, -1, "-2147483648" },
        { DIV, 1, 0, "!80000002 invalid variable." },
        { DIV, 1.0, 0, "inf" },
        { DIV, 7, 2.0, "3.5" },
        { MOD, -7, 3, "-1" },
        { MOD, INT_MIN, -1, "0" },
        { MOD, 1, 0, "!80000002 invalid variable." },
        { MOD, 1.5, 1, "!80000006 invalid variable." },
        { AND, 5, 0, "0" },
        { AND, 5, 1, "1" },
        { AND, 5, 0.0, "0" },
        { AND, "a", 1, "!80000006 invalid variable." },
        { OR, 0, 0, "0" },
        { OR, 0, 2, "1" },
        { OR, 0.0, 2.5, "1" },
        { EQ, 1, 1, "1" },
        { EQ, 1, 2, "0" },
        { EQ, "a", "a", "1" },
        // Doubles less than 1 apart are equal.
        { EQ, 1.2, 1.7, "1" },
        { EQ, "1", 1, "!80000006 invalid variable." },
        { NEQ, 1, 2, "1" },
        { NEQ, "a", "a", "0" },
        { GE, 2, 2, "1" },
        { GE, 1, 2, "0" },
        { GE, "b", "a", "1" },
        { GE, "a", "b", "0" },
        { LE, 2, 2, "1" },
        { LE, 3, 2, "0" },
        { GT, 2, 2, "0" },
        { GT, "b", "a", "1" },
        { LT, 1, 2, "1" },
        { LT, 1, 2.5, "1" },
        // Ints compare by their wrapped difference.
        { LT, INT_MIN, 1, "0" },
        { GT, INT_MAX, -1, "0" },
        { LT, 1, error_value(err::timeout), "!80000005 invalid variable." },
        { PLUS, error_value(err::timeout), 1, "!8002000c invalid variable." },
    };
    for (const auto& r : rows)
        expect_binary(r.type, r.a, r.b, r.result);
}

TEST(xmachine, negates)
{
    expect_results({
        { { { STORE, 5 }, NEG, OUTPUT, HALT }, "-5" },
        { { { STORE, INT_MIN }, NEG, OUTPUT, HALT }, "-2147483648" },
        { { { STORE, 1.5 }, NEG, OUTPUT, HALT }, "-1.5" },
        { { { STORE, "a" }, NEG, HALT }, "!80000006 invalid variable." },
        { { { STORE, 5 }, NOT, OUTPUT, HALT }, "0" },
        { { { STORE, 0 }, NOT, OUTPUT, HALT }, "1" },
        { { { STORE, 0.0 }, NOT, OUTPUT, HALT }, "1" },
        { { { STORE, "" }, NOT, HALT }, "!80000006 invalid variable." },
        { { { GETVAR, "x" }, NOT, HALT }, "!80000003 invalid variable." },
    });
}

TEST(xmachine, assigns_through_references)
{
    const auto with = [](code_type type, const base_var& first, const base_var& second) {
        return std::vector<op> { { GETVAR, "x" }, { STORE, first }, EVAL,   { GETVAR, "x" }, { STORE, second },
                                 type,            OUTPUT,           { STORE, " " }, OUTPUT,  { GETVAR, "x" },
                                 OUTPUT,          HALT };
    };
    expect_results({
        { with(EVAL, 1, 2), "2 2" },
        { with(EVAL, 1, "text"), "text text" },
        { with(EVPLUS, 1, 2), "3 3" },
        { with(EVPLUS, "a", "b"), "ab ab" },
        { with(EVPLUS, 1, 0.5), "1.5 1.5" },
        { with(EVMINUS, 1, 2), "-1 -1" },
        { with(EVMINUS, 1, 0.5), "0.5 0.5" },
        { with(EVMINUS, "b", "a"), "!80000006 invalid variable." },
        { with(EVMUL, 3, 2), "6 6" },
        { with(EVDIV, 7, 2), "3 3" },
        { with(EVMOD, 7, 4), "3 3" },
        { with(EVMOD, 7, 0), "!80000002 invalid variable." },
        { with(EVPLUS, 1, "a"), "!80000006 invalid variable." },
        { with(EVDIV, INT_MIN, -1), "-2147483648 -2147483648" },
    });
    expect_results({
        // A value on the left is assigned and forgotten.
        { { { STORE, 1 }, { STORE, 2 }, EVAL, OUTPUT, HALT }, "2" },
        // The right side's value is read when the operator runs.
        { { { GETVAR, "x" }, { GETVAR, "x" }, { STORE, 5 }, EVAL, PLUS, OUTPUT, HALT }, "10" },
        // The copy that is computed with is not the variable.
        { { { GETVAR, "x" }, { STORE, 5 }, EVAL, { STORE, 1 }, PLUS, { GETVAR, "x" }, OUTPUT, HALT }, "5" },
        // Appending a variable to itself.
        { { { GETVAR, "x" }, { STORE, "ab" }, EVAL, { GETVAR, "x" }, { GETVAR, "x" }, EVPLUS, OUTPUT, HALT }, "abab" },
    });
}

TEST(xmachine, passes_over_instructions_that_do_nothing)
{
    for (const code_type nothing : { NOP, POPARG, REF })
        expect_results({ { { { STORE, 1 }, nothing, OUTPUT, nothing, nothing, HALT }, "1" } });
}

TEST(xmachine, jumps)
{
    expect_results({
        { { { AJMP, 3 }, { STORE, "skipped" }, OUTPUT, { STORE, "here" }, OUTPUT, HALT }, "here" },
        { { { STORE, 0 }, { AJZ, 4 }, { STORE, "no" }, OUTPUT, HALT }, "" },
        { { { STORE, 1 }, { AJZ, 4 }, { STORE, "yes" }, OUTPUT, HALT }, "yes" },
        { { { STORE, 1 }, { AJNZ, 4 }, { STORE, "no" }, OUTPUT, HALT }, "" },
        { { { STORE, 0 }, { AJNZ, 4 }, { STORE, "yes" }, OUTPUT, HALT }, "yes" },
        // Relative jumps count from the next instruction.
        { { { RJMP, 0 }, { STORE, "a" }, OUTPUT, HALT }, "a" },
        { { { RJMP, 2 }, { STORE, "a" }, OUTPUT, HALT }, "" },
        { { { STORE, 0 }, { RJZ, 2 }, { STORE, "a" }, OUTPUT, HALT }, "" },
        { { { STORE, 1 }, { RJZ, 2 }, { STORE, "a" }, OUTPUT, HALT }, "a" },
        { { { STORE, 1 }, { RJNZ, 2 }, { STORE, "a" }, OUTPUT, HALT }, "" },
        { { { STORE, 0 }, { RJNZ, 2 }, { STORE, "a" }, OUTPUT, HALT }, "a" },
        { { { RJMP, 1 }, HALT, { RJMP, -2 } }, "" },
        // The condition must be an int.
        { { { STORE, "1" }, { AJZ, 0 } }, "!8002000f must be int." },
        { { { STORE, 1.0 }, { AJNZ, 0 } }, "!8002000f must be int." },
        { { { GETVAR, "x" }, { RJZ, 0 } }, "!8002000f must be int." },
        { { { STORE, "" }, { RJNZ, 0 } }, "!8002000f must be int." },
        // Addresses outside the code.
        { { { AJMP, 1 } }, "!80000001 address outside the code." },
        { { { AJMP, -1 } }, "!80000001 address outside the code." },
        { { { AJMP, INT_MAX } }, "!80000001 address outside the code." },
        { { { RJMP, -2 } }, "!80000001 address outside the code." },
        { { { RJMP, INT_MAX } }, "!80000001 address outside the code." },
        { { { STORE, 0 }, { AJZ, 9 } }, "!80000001 address outside the code." },
        { { { STORE, 0 }, { STORE, 0 }, EQ, { AJNZ, 9 } }, "!80000001 address outside the code." },
        // A jump that is not taken may point anywhere.
        { { { STORE, 1 }, { AJZ, 99 }, HALT }, "" },
        // Running off the end.
        { { { STORE, 1 } }, "!80000001 address outside the code." },
    });
}

TEST(xmachine, checks_the_stack_and_the_operands)
{
    std::vector<row> rows;
    for (const code_type type : { PUSHARG, RETVAL, OUTPUT, NOT, NEG, PLUS, MINUS, MUL, DIV, MOD, EVAL, EVPLUS, EVMINUS,
                                  EVMUL, EVDIV, EVMOD, AND, OR, EQ, NEQ, GE, LE, GT, LT })
        rows.push_back({ { type, HALT }, "!80000009 underflow" });
    for (const code_type type : { AJZ, AJNZ, RJZ, RJNZ })
        rows.push_back({ { { type, 0 }, HALT }, "!80000009 underflow" });
    for (const code_type type : { PLUS, MINUS, MUL, DIV, MOD, EVAL, EVPLUS, AND, OR, EQ, LT })
        rows.push_back({ { { STORE, 1 }, type, HALT }, "!80000009 underflow" });
    for (const code_type type : { PUSH, AJMP, RJMP }) {
        rows.push_back({ { type }, "!80000001 invalid operand." });
        rows.push_back({ { { type, "0" } }, "!80000001 invalid operand." });
        rows.push_back({ { { type, 1.0 } }, "!80000001 invalid operand." });
    }
    for (const code_type type : { GETVAR, VAR, GETARG, CALL }) {
        rows.push_back({ { type }, "!80000001 invalid operand." });
        rows.push_back({ { { type, 1 } }, "!80000001 invalid operand." });
    }
    for (const code_type type : { AJZ, RJZ })
        rows.push_back({ { { STORE, 0 }, type }, "!80000001 invalid operand." });
    for (const code_type type : { AJNZ, RJNZ })
        rows.push_back({ { { STORE, 1 }, type }, "!80000001 invalid operand." });
    rows.push_back({ { { PUSH, 1 } }, "!80000009 underflow" });
    rows.push_back({ { { STORE, 1 }, { PUSH, 2 } }, "!80000009 underflow" });
    rows.push_back({ { { PUSH, INT_MAX } }, "!80000009 underflow" });
    rows.push_back({ { { PUSH, -1 } }, "!80000001 invalid operand." });
    rows.push_back({ { static_cast<code_type>(43) }, "!80000001 invalid instruction." });
    rows.push_back({ { static_cast<code_type>(64) }, "!80000001 invalid instruction." });
    rows.push_back({ { static_cast<code_type>(67) }, "!80000001 invalid instruction." });
    rows.push_back({ { static_cast<code_type>(-2) }, "!80000001 invalid instruction." });
    rows.push_back({ { static_cast<code_type>(32767) }, "!80000001 invalid instruction." });
    expect_results(rows);
}

TEST(xmachine, declares_and_finds_variables)
{
    expect_results({
        // The first use declares; what was never set has no text.
        { { { GETVAR, "x" }, OUTPUT, HALT }, "!80000003 " },
        { { { VAR, "x" }, { GETVAR, "x" }, { STORE, 1 }, EVAL, OUTPUT, HALT }, "1" },
        { { { VAR, "x" }, { VAR, "x" } }, "!80020009 duplicate variable xname: x" },
        { { { GETVAR, "x" }, { VAR, "x" } }, "!80020009 duplicate variable xname: x" },
        { { { GETARG, "x" }, { GETARG, "x" } }, "!80020009 duplicate variable xname: x" },
        // Arguments: the deepest value is the first; a missing one is empty.
        { { { STORE, 1 }, { STORE, 2 }, { PUSH, 2 }, { GETARG, "a" }, { GETARG, "b" }, { GETVAR, "a" }, OUTPUT,
            { GETVAR, "b" }, OUTPUT, { GETARG, "c" }, { GETVAR, "c" }, OUTPUT, HALT },
          "12!80000003 " },
        { { { STORE, 1 }, PUSHARG, { STORE, 2 }, PUSHARG, { GETARG, "a" }, { GETVAR, "a" }, OUTPUT, { GETARG, "b" },
            { GETVAR, "b" }, OUTPUT, HALT },
          "12" },
        // PUSH forgets the arguments before it.
        { { { STORE, 1 }, PUSHARG, { PUSH, 0 }, { GETARG, "a" }, { GETVAR, "a" }, OUTPUT, HALT }, "!80000003 " },
        { { { STORE, 1 }, { PUSH, 1 }, { STORE, 2 }, PUSHARG, { GETARG, "a" }, { GETARG, "b" }, { GETVAR, "a" }, OUTPUT,
            { GETVAR, "b" }, OUTPUT, HALT },
          "12" },
        { { NOP, POPARG, REF, HALT }, "" },
        // An int stays an argument for a host function and behind it.
        { { { STORE, 7 }, { PUSH, 1 }, { CALL, "print" }, { GETARG, "a" }, { GETVAR, "a" }, OUTPUT, HALT }, "77" },
    });
}

TEST(xmachine, outputs_and_keeps_what_it_output)
{
    expect_results({
        { { { STORE, "a\nb" }, OUTPUT, OUTPUT, HALT }, "a\nba\nb" },
        { { { STORE, -7 }, OUTPUT, HALT }, "-7" },
        { { { STORE, 0.1 }, OUTPUT, HALT }, "0.1" },
        { { { STORE, 1e100 }, OUTPUT, HALT }, "1e+100" },
        { { { STORE, error_value(err::timeout) }, OUTPUT, HALT }, "!8002000c invalid variable." },
        { { { STORE, base_var() }, OUTPUT, HALT }, "!80000003 " },
    });
}

TEST(xmachine, calls_and_returns)
{
    const auto run = [](const std::vector<op>& f, const std::vector<op>& main) {
        hand_made made;
        made.add("f", f);
        made.add("__main__", main);
        return made.run();
    };
    EXPECT_EQ(run({ { STORE, 5 }, RETVAL, RET }, { { CALL, "f" }, OUTPUT, HALT }), "5");
    // Without a return value the last one, here none.
    EXPECT_EQ(run({ RET }, { { CALL, "f" }, OUTPUT, HALT }), "!80000003 ");
    EXPECT_EQ(run({ { STORE, 5 }, RETVAL, RET }, { { STORE, 3 }, RETVAL, { CALL, "f" }, OUTPUT, HALT }), "5");
    EXPECT_EQ(run({ RET }, { { STORE, 3 }, RETVAL, { CALL, "f" }, OUTPUT, HALT }), "3");
    // The values that a procedure leaves go with it.
    EXPECT_EQ(run({ { STORE, 5 }, { STORE, 6 }, RET }, { { STORE, 1 }, { CALL, "f" }, HALT }), "");
    // Arguments one by one, many of them, of which some are taken before the next ones come.
    std::vector<op> main;
    for (int i = 1; i <= 20; ++i)
        main.insert(main.end(), { { STORE, i }, PUSHARG });
    main.insert(main.end(), { { CALL, "f" }, HALT });
    std::vector<op> f = { { GETARG, "a" }, { GETARG, "b" }, { GETARG, "c" }, { STORE, 0 } };
    for (int i = 21; i <= 45; ++i)
        f.insert(f.end(), { { STORE, i }, PUSHARG });
    f.insert(f.end(), { { GETVAR, "c" }, OUTPUT, RET });
    EXPECT_EQ(run(f, main), "3");
    // Surplus arguments are dropped, missing ones are empty.
    EXPECT_EQ(run({ { GETARG, "a" }, { GETVAR, "a" }, OUTPUT, RET },
                  { { STORE, 1 }, { STORE, 2 }, { PUSH, 2 }, { CALL, "f" }, { PUSH, 0 }, { CALL, "f" }, HALT }),
              "1!80000003 ");
    EXPECT_EQ(run({ RETVAL, RET }, { { CALL, "f" } }), "!80000009 underflow");
    EXPECT_EQ(run({ { STORE, error_value(err::timeout) }, RETVAL, RET }, { { CALL, "f" } }),
              "!8002000c invalid variable.");
    EXPECT_EQ(run({ RET }, { { CALL, "g" } }), "!80020008 unevaluated method: g");
    // A variable is no procedure.
    hand_made made({ { CALL, "v" } });
    made.machine.get_field().add_var("v", 1);
    EXPECT_EQ(made.run(), "!80020006 name [v] isn't a method, type: 3");
    // RET in the main text ends it.
    EXPECT_EQ(run({ RET }, { { STORE, "a" }, OUTPUT, RET, { STORE, "b" }, OUTPUT }), "a");
}

TEST(xmachine, returns_onto_a_full_stack)
{
    // The stack grows by 512 places; the values differ, so that none are folded.
    const std::vector<std::vector<op>> procedures = {
        { { STORE, 5 }, RETVAL, RET },
        { { STORE, 2.5 }, RETVAL, RET },
        { { VAR, "x" }, { GETVAR, "x" }, { STORE, 5 }, EVAL, { GETVAR, "x" }, RETVAL, RET },
    };
    for (const auto& procedure : procedures) {
        for (int count = 508; count < 516; ++count) {
            std::vector<op> main;
            for (int i = 0; i < count; ++i)
                main.push_back({ STORE, i * i });
            main.push_back({ CALL, "f" });
            main.push_back(OUTPUT);
            for (int i = 0; i < count; ++i)
                main.push_back(PLUS);
            main.push_back(OUTPUT);
            main.push_back(HALT);
            hand_made made;
            made.add("f", procedure);
            made.add("__main__", main);
            const int squares = (count - 1) * count * (2 * count - 1) / 6;
            const base_var returned = procedure[0].code.get_operand().is_double() ? base_var(2.5) : base_var(5);
            const std::string first = returned.to_string().c_str();
            EXPECT_EQ(made.run(), first + (base_var(squares) + returned).to_string().c_str()) << count;
        }
    }
}

TEST(xmachine, returns_variables)
{
    const std::vector<op> f = { { GETARG, "a" }, { GETVAR, "a" }, RETVAL, RET };
    static const struct {
        base_var value;
        const char* result;
    } rows[] = {
        { 5, "55" },
        { -1, "-1-1" },
        { 2.5, "2.52.5" },
        { "text", "texttext" },
        { base_var(), "!80000003 " },
        { error_value(err::timeout), "!8002000c invalid variable." },
    };
    for (const auto& r : rows) {
        // The value comes back twice: what was returned is kept for a procedure that returns nothing.
        const std::vector<op> main = { { STORE, r.value }, { PUSH, 1 }, { CALL, "f" }, OUTPUT, { CALL, "g" }, OUTPUT, HALT };
        for (const bool by_steps : { false, true }) {
            hand_made made;
            made.add("f", f);
            made.add("g", { RET });
            made.add("__main__", main);
            EXPECT_EQ(by_steps ? made.run_stepping() : made.run(), r.result);
            if (made.machine.get_last_error().get_err() < 0)
                continue;
            // So for the host.
            cycque<base_var> arguments;
            arguments.push_back(r.value);
            base_var result;
            EXPECT_EQ(made.machine.call("f", result, arguments), 0);
            EXPECT_EQ(result.to_string(), base_var(r.value).to_string());
        }
    }
    // A variable of the host; the main text returns too, and ends.
    hand_made made;
    made.add("f", { { GETVAR, "v" }, RETVAL, RET });
    made.add("__main__", { { CALL, "f" }, OUTPUT, { VAR, "x" }, { GETVAR, "x" }, { STORE, 1 }, EVAL, { GETVAR, "x" }, RETVAL, RET,
                           { STORE, 9 }, OUTPUT });
    made.machine.get_field().add_var("v", 7);
    EXPECT_EQ(made.run(), "7");
    // Changed code: other instructions behind the variable.
    hand_made changed;
    changed.add("f", { { GETARG, "a" }, { GETVAR, "a" }, RETVAL, RET, { STORE, 8 }, RETVAL, RET });
    changed.add("__main__", { { STORE, 3 }, { PUSH, 1 }, { CALL, "f" }, OUTPUT, HALT });
    EXPECT_EQ(changed.run(), "3");
    changed.machine.get_code(3).set_type(NOP);
    EXPECT_EQ(changed.run(), "8");
    changed.machine.get_code(2).set_type(OUTPUT);
    EXPECT_EQ(changed.run(), "38");
    changed.machine.get_code(2).set_type(RETVAL);
    changed.machine.get_code(3).set_type(RET);
    EXPECT_EQ(changed.run(), "3");
}

TEST(xmachine, keeps_values_that_statements_leave_until_the_activation_ends)
{
    hand_made made;
    made.add("f", { { STORE, 1 }, { STORE, 2 }, { STORE, 3 }, TRAP, RET });
    made.add("__main__", { { STORE, 7 }, { CALL, "f" }, TRAP, HALT });
    EXPECT_EQ(made.machine.run(), 0);
    ASSERT_EQ(made.machine.count_contexts(), 2u);
    EXPECT_EQ(made.machine.get_context(0)->count_operands(), 1u);
    EXPECT_EQ(made.machine.get_context(1)->count_operands(), 3u);
    EXPECT_EQ(made.machine.run(), 0);
    ASSERT_EQ(made.machine.count_contexts(), 1u);
    EXPECT_EQ(made.machine.get_active()->count_operands(), 2u);
}

TEST(xmachine, halts_traps_and_goes_on)
{
    hand_made made({ { STORE, "a" }, OUTPUT, TRAP, { STORE, "b" }, OUTPUT, HALT, { STORE, "c" }, OUTPUT });
    EXPECT_EQ(made.machine.run(), 0);
    EXPECT_EQ(made.out.str(), "a");
    EXPECT_TRUE(made.machine.is_running());
    EXPECT_EQ(made.machine.get_ip(), 3);
    EXPECT_EQ(made.machine.run(), 0);
    EXPECT_EQ(made.out.str(), "ab");
    EXPECT_FALSE(made.machine.is_running());
    EXPECT_EQ(made.machine.get_ip(), -1);
    EXPECT_EQ(made.machine.count_contexts(), 0u);
    // XRET in ordinary code ends the run and keeps the state.
    hand_made with_xret({ XRET, { STORE, "a" }, OUTPUT, HALT });
    EXPECT_EQ(with_xret.machine.run(), 0);
    EXPECT_TRUE(with_xret.machine.is_running());
    EXPECT_EQ(with_xret.run(), "a");
}

TEST(xmachine, goes_on_behind_a_failed_instruction)
{
    hand_made made({ { STORE, "a" }, NEG, { STORE, "b" }, OUTPUT, HALT });
    EXPECT_EQ(made.run(), "!80000006 invalid variable.");
    EXPECT_TRUE(made.machine.is_running());
    EXPECT_EQ(made.run(), "b");
    EXPECT_EQ(made.machine.get_last_error().get_err(), 0);
    // Or afresh.
    EXPECT_EQ(made.run(), "!80000006 invalid variable.");
    made.machine.clear_runner();
    EXPECT_EQ(made.run(), "!80000006 invalid variable.");
    // Behind the end of the code there is nothing to go on with.
    hand_made endless({ { STORE, 1 } });
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(endless.run(), "!80000001 address outside the code.");
}

TEST(xmachine, wants_a_main_text)
{
    hand_made made;
    EXPECT_EQ(made.run(), "!80020008 can not find procedure __main__.");
    EXPECT_EQ(made.result(made.machine.run_begin()), "!80020008 can not find procedure __main__.");
    made.machine.get_field().add_var("__main__", 1);
    EXPECT_EQ(made.run(), "!80020008 can not find procedure __main__.");
}

TEST(xmachine, bounds_recursion)
{
    hand_made made;
    made.add("f", { { CALL, "f" }, RET });
    made.add("__main__", { { CALL, "f" }, HALT });
    EXPECT_EQ(made.run(), "!80010001 overrun");
    EXPECT_GT(made.machine.count_contexts(), 10000u);
    made.machine.clear_runner();
    // 10,000 deep is not too deep.
    xmachine machine;
    std::ostringstream out;
    machine.set_ostream(&out);
    ASSERT_EQ(compile_text(machine, "$[proc f(n)]$[if n == 0]$[return 0]$[end]$[return 1 + f(n - 1)]$[end]$[@f(10000)]"), 0);
    EXPECT_EQ(machine.run(), 0);
    EXPECT_EQ(out.str(), "10000");
}

TEST(xmachine, executes_changed_code)
{
    // The machine joins instructions that it finds together; a change undoes it.
    xmachine machine;
    std::ostringstream out;
    machine.set_ostream(&out);
    ASSERT_EQ(compile_text(machine, "$[x = 6]$[y = 3]$[@(x + 4)]"), 0);
    const std::string code = listing(machine);
    ASSERT_EQ(code, "GETVAR x; STORE 6; EVAL; GETVAR y; STORE 3; EVAL; GETVAR x; STORE 4; PLUS; OUTPUT; HALT");
    const auto run = [&] {
        out.str("");
        return machine.run() < 0 ? "!" + code_text(machine.get_last_error().get_err()) : out.str();
    };
    EXPECT_EQ(run(), "10");
    xcode& plus = machine.get_code(8);
    xcode& four = machine.get_code(7);
    xcode& x = machine.get_code(6);
    plus.set_type(MUL);
    EXPECT_EQ(run(), "24");
    four.set_operand(base_var(2.5));
    EXPECT_EQ(run(), "15");
    four = xcode(GETVAR, "y");
    EXPECT_EQ(run(), "18");
    x.set_operand(base_var("y"));
    EXPECT_EQ(run(), "9");
    plus.set_type(EVPLUS);
    EXPECT_EQ(run(), "6");
    x.set_type(STORE);
    machine.clear_runner();
    EXPECT_EQ(run(), "!80000006");
    machine.clear_runner();
    // A jump, too.
    machine.clear();
    ASSERT_EQ(compile_text(machine, "$[if 1]a$[else]b$[end]c"), 0);
    EXPECT_EQ(run(), "ac");
    machine.get_code(1).set_operand(base_var(0));
    machine.get_code(4).set_operand(base_var(5));
    EXPECT_EQ(run(), "abc");
    machine.get_code(4).set_operand(base_var(1000));
    EXPECT_EQ(run(), "!80000001");
    // Code added to a paused machine.
    machine.clear();
    ASSERT_EQ(compile_text(machine, "$[x = 1]"), 0);
    machine.get_code(3).set_type(TRAP);
    EXPECT_EQ(run(), "");
    machine.add_code(GETVAR, "fresh");
    machine.add_code(STORE, 5);
    machine.add_code(EVAL);
    machine.add_code(GETVAR, "x");
    machine.add_code(PLUS);
    machine.add_code(OUTPUT);
    machine.add_code(GETVAR, "fresh");
    machine.add_code(OUTPUT);
    machine.add_code(HALT);
    EXPECT_EQ(run(), "65");
}

TEST(xmachine, answers_for_addresses_outside_the_code)
{
    xmachine machine;
    EXPECT_EQ(machine.last_addr(), 0);
    EXPECT_EQ(machine.add_code(NOP), 0);
    EXPECT_EQ(machine.add_code(PUSH, 3), 1);
    EXPECT_EQ(machine.add_code(STORE, 1.5), 2);
    EXPECT_EQ(machine.add_code(GETVAR, share_str("x")), 3);
    EXPECT_EQ(machine.add_code(STORE, base_var(2.5)), 4);
    EXPECT_EQ(machine.last_addr(), 5);
    EXPECT_EQ(machine.get_code(1).get_operand().get_int(), 3);
    EXPECT_EQ(machine.get_code(4).get_operand().get_double(), 2.5);
    for (const int addr : { -1, 5, INT_MAX, INT_MIN }) {
        EXPECT_EQ(machine.get_code(addr).get_type(), NOP);
        machine.get_code(addr).set_type(HALT);
        EXPECT_EQ(machine.get_code(addr).get_type(), NOP);
    }
}

TEST(xmachine, keeps_records_of_procedures)
{
    xmachine machine;
    ASSERT_EQ(compile_text(machine, "one\n$[proc f(a)]\ntwo$[end]\n"), 0);
    std::ostringstream none;
    machine.set_ostream(&none);
    machine.run_begin();
    const xmethod& main = machine.get_active()->get_method();
    EXPECT_EQ(main.get_name(), "__main__");
    EXPECT_EQ(main.get_entry(), 0);
    EXPECT_EQ(main.get_end(), machine.last_addr());
    EXPECT_EQ(main.get_first_line(), 0);
    EXPECT_EQ(machine.get_method_entry(main).get_type(), STORE);
    EXPECT_EQ(machine.new_method("f"), nullptr);
    EXPECT_EQ(machine.new_method("echo"), nullptr);
    EXPECT_EQ(machine.new_method("print_trace"), nullptr);
    xmethod* const g = machine.new_method("g");
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(g->get_entry(), machine.last_addr());
    machine.add_code(RET);
    machine.end_method(*g);
    EXPECT_EQ(g->get_end(), g->get_entry() + 1);
}

TEST(xmachine, finds_lines)
{
    xmachine machine;
    xmethod* const m = machine.new_method("m");
    EXPECT_EQ(machine.find_line(0), -1);
    EXPECT_EQ(machine.find_ip_line(), -1);
    machine.add_code(NOP);
    machine.arrive_line(*m, 10, 100); // address 1
    machine.arrive_line(*m, 11, 110); // the same address: ignored
    machine.add_code(NOP);
    machine.arrive_line(*m, 10, 120); // the same line: ignored
    machine.add_code(NOP);
    machine.arrive_line(*m, 12, 130); // address 3
    machine.end_method(*m);
    machine.arrive_line(*m, 13, 140); // the same address
    machine.add_code(NOP);
    machine.arrive_line(*m, 9, 150); // address 4
    const int expected[] = { -1, 10, 10, 12, 9, 9 };
    for (int addr = 0; addr < 6; ++addr)
        EXPECT_EQ(machine.find_line(addr), expected[addr]) << addr;
    EXPECT_EQ(machine.find_line(-1), -1);
    // Within the procedure's own entries.
    EXPECT_EQ(machine.find_line(*m, 2), 10);
    EXPECT_EQ(machine.find_line(*m, 9), 12);
    EXPECT_EQ(machine.find_line(*m, 0), -1);
}

// ---- names -----------------------------------------------------------------

TEST(xfield, holds_what_the_host_gives)
{
    xmachine machine;
    xfield& names = machine.get_field();
    const unsigned functions = names.count();
    EXPECT_EQ(functions, 24u);
    base_var bound = 5;
    int object = 0;
    EXPECT_EQ(names.add_var("a", 1), 0);
    EXPECT_EQ(names.bind_var("b", bound), 0);
    EXPECT_EQ(names.add_object("o", &object), 0);
    EXPECT_EQ(static_cast<unsigned>(names.add_var("a", 2)), 0x80020009u);
    EXPECT_EQ(static_cast<unsigned>(names.bind_var("a", bound)), 0x80020009u);
    EXPECT_EQ(static_cast<unsigned>(names.add_object("hex", &object)), 0x80020009u);
    base_var* v = nullptr;
    void* o = nullptr;
    EXPECT_EQ(names.get_var("a", &v), 0);
    EXPECT_EQ(v->get_int(), 1);
    EXPECT_EQ(names.get_var("b", &v), 0);
    EXPECT_EQ(v, &bound);
    EXPECT_EQ(names.get_var("b", nullptr), 0);
    EXPECT_EQ(names.get_object("o", &o), 0);
    EXPECT_EQ(o, &object);
    for (const char* other : { "o", "hex", "print" })
        EXPECT_EQ(static_cast<unsigned>(names.get_var(other, &v)), 0x8002000fu) << other;
    EXPECT_EQ(static_cast<unsigned>(names.get_object("a", &o)), 0x8002000fu);
    EXPECT_EQ(static_cast<unsigned>(names.get_var("none", &v)), 0x80020008u);
    EXPECT_EQ(static_cast<unsigned>(names.get_object("none", &o)), 0x80020008u);
    EXPECT_EQ(names.get_kind("a"), xfield::variable);
    EXPECT_EQ(names.get_kind("b"), xfield::bound_variable);
    EXPECT_EQ(names.get_kind("o"), xfield::object);
    EXPECT_EQ(names.get_kind("hex"), xfield::host_function);
    EXPECT_EQ(names.get_kind("none"), xfield::no_name);
    EXPECT_EQ(names.count(), functions + 3);
    EXPECT_EQ(names.remove("a"), 0);
    EXPECT_EQ(static_cast<unsigned>(names.remove("a")), 0x80020008u);
    EXPECT_EQ(static_cast<unsigned>(names.remove("hex")), 0x8002000fu);
    // clear() leaves the functions.
    machine.clear();
    EXPECT_EQ(names.count(), functions);
}

std::string run_text(xmachine& machine, const std::string& text)
{
    std::ostringstream out;
    std::ostream* const before = machine.set_ostream(&out);
    xpp::xcompiler compiler;
    int r = compile_text(machine, compiler, text);
    if (r < 0)
        out << "!" << compiler.get_last_error().what();
    else if ((r = machine.run()) < 0)
        out << "!" << code_text(r) << " " << machine.get_last_error().what();
    machine.set_ostream(before);
    return out.str();
}

TEST(xfield, shows_scripts_the_variables_of_the_host)
{
    xmachine machine;
    base_var bound = 5;
    machine.get_field().add_var("g", "global");
    machine.get_field().bind_var("b", bound);
    machine.get_field().add_object("o", &bound);
    EXPECT_EQ(run_text(machine, "$[proc f()]$[@g]$[b += 1]$[end]$[@g]$[f()]$[f()]$[@b]"), "globalglobalglobal7");
    EXPECT_EQ(bound.get_int(), 7);
    // A local of the same name hides it; an object is no variable.
    machine.clear();
    machine.get_field().add_var("g", "global");
    EXPECT_EQ(run_text(machine, "$[proc f(g)]$[@g]$[end]$[f(1)]$[@g]$[proc h()]$[var g]$[g = 2]$[@g]$[end]$[h()]$[@g]"),
              "1global2global");
}

int remove_global(einterpret& i, base_var& result, cycque<base_var>&)
{
    result = static_cast<xmachine&>(i).get_field().remove("g");
    return 0;
}

int add_global(einterpret& i, base_var& result, cycque<base_var>&)
{
    result = static_cast<xmachine&>(i).get_field().add_var("g", 40);
    return 0;
}

TEST(xfield, keeps_a_removed_variable_for_those_who_refer_to_it)
{
    xmachine machine;
    const char* const names[] = { "remove_global", "add_global", nullptr };
    const ::method functions[] = { remove_global, add_global };
    ASSERT_EQ(machine.add_methods(names, functions), 0);
    machine.get_field().add_var("g", "text that is long enough for a buffer");
    EXPECT_EQ(run_text(machine, "$[proc f(x)]$[remove_global()]$[@x]$[end]$[f(g)]"), "text that is long enough for a buffer");
    machine.clear();
    // Found anew in each state of the table.
    machine.get_field().add_var("g", 2);
    EXPECT_EQ(run_text(machine, "$[proc f()]$[return g]$[end]$[@f()]$[remove_global()]$[add_global()]$[@f()]"), "240");
}

// ---- the host --------------------------------------------------------------

struct called {
    static int count_args(einterpret&, base_var& result, cycque<base_var>& args)
    {
        result = args.count();
        return 0;
    }
    static int failing(einterpret&, base_var& result, cycque<base_var>&)
    {
        result = 9;
        return err::timeout;
    }
    static int throwing(einterpret&, base_var&, cycque<base_var>&) { throw xrterror(err::rejected, "no %s", "way"); }
    static int throwing_plain(einterpret&, base_var&, cycque<base_var>&) { throw xcpt(err::rejected, "plain"); }
    static int throwing_halt(einterpret&, base_var&, cycque<base_var>&) { throw xhalt(); }
    static int throwing_trap(einterpret&, base_var&, cycque<base_var>&) { throw xtrap(xcode(TRAP)); }
    static int throwing_return(einterpret&, base_var&, cycque<base_var>&) { throw xret(); }
    /// back(name, arguments...): calls a procedure of the script.
    static int back(einterpret& i, base_var& result, cycque<base_var>& args)
    {
        cycque<base_var> rest;
        for (unsigned n = 1; n < args.count(); ++n)
            rest.push_back(args[n]);
        const int r = i.call(args[0].get_string(), result, rest);
        if (r < 0)
            result = code_text(r).c_str();
        // The arguments are still there.
        if (args.count() != rest.count() + 1 || !args[0].is_string())
            result = "arguments lost";
        return 0;
    }
    static int set_first(einterpret&, base_var& result, cycque<base_var>& args)
    {
        args[0].evaluate(base_var("set by the host"));
        result.refer(args[0]);
        return 0;
    }
    static int clear_all(einterpret& i, base_var& result, cycque<base_var>&)
    {
        static_cast<xmachine&>(i).clear();
        result = 1;
        return 0;
    }
    static int stop(einterpret& i, base_var&, cycque<base_var>&)
    {
        static_cast<xmachine&>(i).clear_runner();
        return 0;
    }
    static int run_again(einterpret& i, base_var& result, cycque<base_var>&)
    {
        result = static_cast<xmachine&>(i).run();
        return 0;
    }
    static int make_local(einterpret& i, base_var& result, cycque<base_var>& args)
    {
        result = static_cast<xmachine&>(i).create_var(args[0].get_string(), args[1]);
        return 0;
    }
};

void add_functions(xmachine& machine)
{
    const char* const names[] = { "count_args", "failing", "throwing", "throwing_plain", "throwing_halt", "throwing_trap",
                                  "throwing_return", "back", "set_first", "clear_all", "stop", "run_again", "make_local", nullptr };
    const ::method functions[] = { called::count_args, called::failing, called::throwing, called::throwing_plain,
                                   called::throwing_halt, called::throwing_trap, called::throwing_return,
                                   called::back, called::set_first,
                                   called::clear_all, called::stop, called::run_again, called::make_local };
    ASSERT_EQ(machine.add_methods(names, functions), 0);
}

std::string run_with_functions(const std::string& text)
{
    xmachine machine;
    add_functions(machine);
    return run_text(machine, text);
}

TEST(xmachine, calls_with_more_arguments_than_it_passes_directly)
{
    std::string names, values, sum;
    for (int i = 0; i < 20; ++i) {
        const std::string name = "p" + std::to_string(i);
        names += (i ? ", " : "") + name;
        values += (i ? ", " : "") + std::to_string(i);
        sum += (i ? " + " : "") + name;
    }
    xmachine machine;
    EXPECT_EQ(run_text(machine, "$[proc f(" + names + ")]$[return " + sum + "]$[end]$[@f(" + values + ")] $[@f(" + values + ")]"),
              "190 190");
}

TEST(xmachine, keeps_room_for_procedures_with_ever_more_variables)
{
    std::string text;
    for (const int count : { 300, 700, 1500, 300 }) {
        std::string body;
        for (int i = 0; i < count; ++i)
            body += "$[v" + std::to_string(i) + " = " + std::to_string(i) + "]";
        const std::string last = "v" + std::to_string(count - 1);
        text += "$[proc f" + std::to_string(text.size()) + "()]" + body + "$[return " + last + " + v0]$[end]$[@f"
            + std::to_string(text.size()) + "()] ";
    }
    xmachine machine;
    EXPECT_EQ(run_text(machine, text), "299 699 1499 299 ");
}

TEST(xmachine, lets_scripts_call_host_functions)
{
    const struct { const char* script; const char* result; } rows[] = {
        { "$[@count_args()]$[@count_args(1, x, \"a\")]", "03" },
        // The status is ignored; exceptions end the run.
        { "$[@failing()]!", "9!" },
        { "a$[throwing()]b", "a!8002000d no way" },
        { "a$[throwing_plain()]b", "a!8002000d plain" },
        { "a$[throwing_halt()]b", "a" },
        { "a$[throwing_trap()]b", "a" },
        { "a$[throwing_return()]b", "a" },
        { "$[set_first(x)]$[@x]", "set by the host" },
        { "$[x = 1]$[set_first(x) + \"!\"]$[@(set_first(x) + \"!\")]", "set by the host!" },
        // Functions may call back, with their arguments untouched.
        { "$[proc f(a, b)]$[return a * b]$[end]$[@back(\"f\", 6, 7)]", "42" },
        { "$[proc f(n)]$[if n == 0]$[return 0]$[end]$[return n + back(\"f\", n - 1)]$[end]$[@f(50)]", "1275" },
        { "$[@back(\"nothing\")]", "80020008" },
        { "$[proc f()]$[return 1 - \"a\"]$[end]$[@back(\"f\")]$[@back(\"f\")]!", "8000000680000006!" },
        { "$[@back(\"hex\", 255)]", "ff" },
        { "$[@back(\"hex\", \"x\")]", "8002000e" },
        // HALT in the called procedure ends the whole run.
        { "$[proc f()]x$[exit]$[end]a$[back(\"f\")]b", "ax" },
        // The function may end or empty the machine under its own feet.
        { "a$[stop()]b", "a" },
        { "a$[clear_all()]b", "a" },
        { "$[proc f()]$[clear_all()]$[end]a$[back(\"f\")]b", "a" },
        { "$[proc f()]$[stop()]$[end]a$[f()]b", "a" },
        // A run inside a run ends both.
        { "a$[run_again()]b", "ab" },
        // Locals made by the host.
        { "$[make_local(\"x\", 5)]$[@x]", "5" },
        { "$[make_local(\"other name\", 5)]$[@getvar(\"other name\")]", "5" },
        { "$[x = 1]$[@make_local(\"x\", 5)]$[@x]", "-21473525671" },
        { "$[proc f()]$[make_local(\"y\", 5)]$[@getvar(\"y\")]$[@exist(\"x\")]$[end]$[x = 1]$[f()]$[f()]$[@exist(\"y\")]",
          "50500" },
        // The six of the machine, and those of expressions.
        { "$[print(1, \"a\", 2.5)]$[@print()]$[@print(\"x\")]", "1a2.50x1" },
        { "one\n$[@get_cur_line()]\n\n$[@get_cur_line()]", "one\n2\n\n4" },
        { "$[@get_cur_fname()]", "" },
        { "$[print(y)]", "!80000003 " },
        { "$[proc f()]$[print_trace()]$[end]$[f()]", "#1   f\n#0   __main__\n" },
        { "$[@format(\"%[1]-%[2]\", 1, \"x\")]$[@toupper(\"abc\")]", "1-xABC" },
        { "$[x = 1]$[getvar(\"x\") += 5]$[@x]", "6" },
        { "$[@exist(\"x\")]$[x = 1]$[@exist(\"x\")]", "01" },
        { "$[@is_ref(x)]$[@is_ref(1)]$[@is_ref((x))]$[@is_ref(x = 1)]", "1011" },
    };
    for (const auto& r : rows)
        EXPECT_EQ(run_with_functions(r.script), r.result) << r.script;
}

TEST(xmachine, bounds_calls_that_nest_on_the_stack_of_the_host)
{
    // Scripts and host functions in turn, for ever.
    const std::string result = run_with_functions("$[proc f()]$[return back(\"f\")]$[end]$[@f()]");
    EXPECT_EQ(result, "80010001");
    // Each run that fails so gives its status to the function, and the one around it goes on.
    EXPECT_EQ(run_with_functions("$[proc f()]$[run_again()]$[f()]$[end]$[f()]"), "");
}

TEST(xmachine, replaces_host_functions_of_the_same_name)
{
    xmachine machine;
    const char* const names[] = { "hex", "mine", nullptr };
    const ::method functions[] = { called::count_args, called::count_args };
    EXPECT_EQ(machine.add_methods(names, functions), 0);
    EXPECT_EQ(run_text(machine, "$[@hex(1, 2)]$[proc p()]$[end]"), "2");
    const char* const taken[] = { "p", nullptr };
    EXPECT_EQ(static_cast<unsigned>(machine.add_methods(taken, functions)), 0x80020009u);
    // They outlive clear().
    machine.clear();
    EXPECT_EQ(run_text(machine, "$[@mine(1, 2, 3)]"), "3");
}

/// Calls a procedure with int arguments; its result or error as text.
std::string call(xmachine& machine, const char* name, std::initializer_list<int> values)
{
    cycque<base_var> args;
    for (const int v : values)
        args.push_back(v);
    base_var result = "untouched";
    const int r = machine.call(name, result, args);
    if (r < 0)
        return "!" + code_text(r) + " " + machine.get_last_error().what();
    return result.is_rvalue() ? result.to_string().c_str() : "none";
}

TEST(xmachine, answers_calls_of_the_host)
{
    xmachine machine;
    std::ostringstream out;
    machine.set_ostream(&out);
    add_functions(machine);
    machine.get_field().add_var("v", 1);
    ASSERT_EQ(compile_text(machine, "$[proc add(a, b)]$[return a + b]$[end]"
                                    "$[proc show(a)]<$[@a]>$[end]"
                                    "$[proc bad(a)]$[x = a]$[return x - \"text\"]$[end]"
                                    "$[proc deep(a)]$[return bad(a)]$[end]"
                                    "$[proc stops()]$[exit]$[end]"), 0);
    // Balanced, again and again.
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(call(machine, "add", { 2, 3 }), "5");
        EXPECT_EQ(call(machine, "add", { 2, 3, 4 }), "5");
        EXPECT_EQ(call(machine, "add", { 2 }), "!80000005 invalid variable.");
        EXPECT_EQ(call(machine, "deep", { 2 }), "!80000006 invalid variable.");
        EXPECT_EQ(call(machine, "nosuch", {}), "!80020008 unevaluated method: nosuch");
        EXPECT_EQ(call(machine, "v", {}), "!80020006 name [v] isn't a method, type: 3");
        EXPECT_EQ(call(machine, "hex", { 255, 4 }), "00ff");
        EXPECT_EQ(call(machine, "throwing", {}), "!8002000d no way");
        EXPECT_EQ(call(machine, "throwing_plain", {}), "!8002000d plain");
        EXPECT_EQ(call(machine, "stops", {}), "untouched");
        EXPECT_EQ(machine.count_contexts(), 0u);
        EXPECT_FALSE(machine.is_running());
    }
    EXPECT_EQ(call(machine, "show", { 7 }), "5"); // the last value returned
    EXPECT_EQ(out.str(), "<7>");
    base_var result;
    cycque<base_var> none;
    EXPECT_EQ(static_cast<unsigned>(machine.call("failing", result, none)), 0x8002000cu);
    EXPECT_EQ(result.get_int(), 9);
    EXPECT_STREQ(machine.get_last_error().what(), "timeout");
}

TEST(xmachine, tells_the_line_of_its_last_error)
{
    xmachine machine;
    std::ostringstream out;
    machine.set_ostream(&out);
    add_functions(machine);
    EXPECT_EQ(machine.get_last_line(), 0);
    ASSERT_EQ(compile_text(machine, "$[proc bad(a)]\n\n$[@(1 / a)]$[end]"
                                    "$[proc deep(a)]\n\n\n$[bad(a)]$[end]"
                                    "$[proc host()]\n$[throwing()]$[end]"
                                    "$[proc stops()]$[exit]$[end]\n\n$[@(1 / 0)]"), 0);
    const struct {
        const char* name;
        int argument, line;
    } calls[] = {
        { "bad", 0, 3 },
        { "bad", 1, 0 },        // a success forgets it
        { "deep", 0, 3 },       // where it arose, not who called
        { "host", 0, 7 },
        { "nosuch", 0, -1 },    // no instruction was at fault
        { "throwing", 0, -1 },
        { "stops", 0, 0 },
    };
    for (const auto& c : calls) {
        call(machine, c.name, { c.argument });
        EXPECT_EQ(machine.get_last_line(), c.line) << c.name;
        EXPECT_FALSE(machine.is_running());
    }
    EXPECT_LT(machine.run(), 0);
    EXPECT_EQ(machine.get_last_line(), 9);
    EXPECT_EQ(machine.get_last_line(), machine.find_ip_line());
    machine.clear_runner();
    EXPECT_EQ(machine.run_begin(), 0);
    int r = 0;
    while ((r = machine.run_step()) >= 0)
        EXPECT_EQ(machine.get_last_line(), 0);
    EXPECT_EQ(machine.get_last_line(), 9);
}

TEST(xmachine, passes_references_of_the_host)
{
    xmachine machine;
    ASSERT_EQ(compile_text(machine, "$[proc twice(a)]$[a *= 2]$[end]"), 0);
    base_var mine = 21;
    base_var reference;
    reference.refer(mine);
    cycque<base_var> args;
    args.push_back(reference);
    base_var result;
    EXPECT_EQ(machine.call("twice", result, args), 0);
    EXPECT_EQ(mine.get_int(), 42);
}

TEST(xmachine, restores_a_paused_run_behind_a_call)
{
    hand_made made;
    made.add("f", { { GETARG, "a" }, { GETVAR, "a" }, RETVAL, RET });
    made.add("bad", { { STORE, "a" }, NEG });
    made.add("traps", { TRAP, RET });
    made.add("halts", { HALT });
    made.add("__main__", { { STORE, 8 }, PUSHARG, TRAP, { GETARG, "x" }, { GETVAR, "x" }, OUTPUT, HALT });
    EXPECT_EQ(made.machine.run(), 0);
    const int ip = made.machine.get_ip();
    EXPECT_EQ(call(made.machine, "f", { 3 }), "3");
    EXPECT_EQ(call(made.machine, "bad", {}), "!80000006 invalid variable.");
    EXPECT_EQ(call(made.machine, "traps", {}), "!80000006 trap instruction");
    EXPECT_EQ(made.machine.get_ip(), ip);
    EXPECT_EQ(made.machine.count_contexts(), 1u);
    // The argument list of the paused run is still there.
    EXPECT_EQ(made.run(), "8");
    // HALT ends a paused run, too.
    EXPECT_EQ(made.machine.run(), 0);
    EXPECT_EQ(call(made.machine, "halts", {}), "untouched");
    EXPECT_FALSE(made.machine.is_running());
}

struct machine_with_more_variables : xmachine {
    base_var answer = 42;
    unsigned asked = 0;
    base_var* get_var(const share_str& name) override
    {
        ++asked;
        return name == "answer" ? &answer : xmachine::get_var(name);
    }
};

TEST(xmachine, asks_a_derived_class_for_variables)
{
    machine_with_more_variables machine;
    EXPECT_EQ(run_text(machine, "$[proc f(n)]$[return n + answer]$[end]$[@f(1)] $[answer += 1]$[@answer] $[x = 5]$[@x]"),
              "43 43 5");
    EXPECT_GT(machine.asked, 5u);
    EXPECT_EQ(machine.answer.get_int(), 43);
}

struct halting_machine : xmachine {
    void end() { halt(); }
};

TEST(xmachine, raises_its_ends_as_exceptions)
{
    halting_machine machine;
    try {
        machine.end();
        FAIL();
    } catch (const xhalt& e) {
        EXPECT_EQ(e.get_err(), 0);
        EXPECT_STREQ(e.what(), "halt");
    }
    const xtrap trap(xcode(TRAP, 5));
    EXPECT_EQ(static_cast<unsigned>(trap.get_err()), 0x80000006u);
    EXPECT_STREQ(trap.what(), "trap instruction");
    EXPECT_EQ(trap.get_code().get_operand().get_int(), 5);
    EXPECT_EQ(xret().get_err(), 0);
    EXPECT_STREQ(xret().what(), "method return");
}

TEST(xmachine, creates_variables_for_the_host)
{
    xmachine machine;
    EXPECT_EQ(static_cast<unsigned>(machine.create_var("x", 1)), 0x80020011u);
    EXPECT_EQ(machine.get_var("x"), nullptr);
    std::ostringstream out;
    machine.set_ostream(&out);
    ASSERT_EQ(compile_text(machine, "$[@x]$[y = 3]"), 0);
    ASSERT_EQ(machine.run_begin(), 0);
    EXPECT_EQ(machine.create_var("x", 7), 0);
    EXPECT_EQ(machine.create_var("extra"), 0);
    EXPECT_EQ(static_cast<unsigned>(machine.create_var("x", 1)), 0x80020009u);
    EXPECT_EQ(static_cast<unsigned>(machine.create_var("extra", 1)), 0x80020009u);
    base_var* const x = machine.get_var("x");
    base_var* const extra = machine.get_var("extra");
    // Addresses stay while others are made.
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(machine.create_var(("n" + std::to_string(i)).c_str(), i), 0);
    EXPECT_EQ(machine.get_var("x"), x);
    EXPECT_EQ(machine.get_var("extra"), extra);
    EXPECT_EQ(machine.get_var("n999")->get_int(), 999);
    EXPECT_EQ(machine.get_active()->count_vars(), 1002u);
    share_str name;
    unsigned found = 0;
    while (machine.get_active()->get_var_at(found, name))
        ++found;
    EXPECT_EQ(found, 1002u);
    EXPECT_EQ(machine.run(), 0);
    EXPECT_EQ(out.str(), "7");
}

TEST(xmachine, steps)
{
    xmachine machine;
    std::ostringstream out;
    machine.set_ostream(&out);
    ASSERT_EQ(compile_text(machine, "a\n$[proc f()]\nin f\n$[end]\nb\n$[f()]\nc\n"), 0);
    EXPECT_EQ(static_cast<unsigned>(machine.run_step()), 0x80020011u);
    EXPECT_EQ(static_cast<unsigned>(machine.run_next()), 0x80020011u);
    ASSERT_EQ(machine.run_begin(), 0);
    EXPECT_EQ(machine.get_ip(), 0);
    EXPECT_EQ(machine.run_step(), 0);
    EXPECT_EQ(machine.get_ip(), 1);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(machine.run_step(), 0);
    EXPECT_EQ(out.str(), "a\n");
    // Line by line: the call is stepped over.
    std::string lines;
    while (machine.is_running()) {
        lines += std::to_string(machine.find_ip_line()) + " ";
        ASSERT_EQ(machine.run_next(), 0);
    }
    EXPECT_EQ(lines, "2 4 6 8 ");
    EXPECT_EQ(out.str(), "a\n\nb\n\nin f\n\nc\n");
    // Leaving a procedure ends a step, too.
    out.str("");
    ASSERT_EQ(machine.run_begin(), 0);
    while (machine.count_contexts() < 2)
        ASSERT_EQ(machine.run_step(), 0);
    ASSERT_EQ(machine.run_next(), 0);
    ASSERT_EQ(machine.run_next(), 0);
    while (machine.count_contexts() == 2)
        ASSERT_EQ(machine.run_next(), 0);
    EXPECT_EQ(machine.count_contexts(), 1u);
    EXPECT_EQ(machine.run_continue(), 0);
    EXPECT_FALSE(machine.is_running());
    ASSERT_EQ(machine.run_begin(), 0);
    machine.run_end();
    EXPECT_FALSE(machine.is_running());
}

TEST(xmachine, changes_its_output_stream)
{
    xmachine machine;
    std::ostringstream one;
    std::ostringstream two;
    machine.set_ostream(&one);
    EXPECT_EQ(machine.set_ostream(&two), &one);
    EXPECT_EQ(machine.get_ostream(), &two);
    machine.output("text");
    machine.output(share_str("a\0b", "a\0b" + 3));
    base_var v = 5;
    machine.output(v);
    v.set_error(err::timeout);
    machine.output(v);
    machine.output(static_cast<const char*>(nullptr));
    EXPECT_EQ(two.str(), std::string("texta\0b5", 8));
    base_var none;
    EXPECT_THROW(machine.output(none), xrterror);
    EXPECT_EQ(one.str(), "");
}

TEST(xmachine, copies_its_program_and_names)
{
    xmachine machine;
    std::ostringstream out;
    machine.set_ostream(&out);
    add_functions(machine);
    machine.set_src_fname("name");
    machine.get_field().add_var("g", "global");
    ASSERT_EQ(compile_text(machine, "$[proc f(a)]$[g = a]$[return a * 2]$[end]$[@f(21)]$[@g]"), 0);
    ASSERT_EQ(machine.run(), 0);
    xmachine copy(machine);
    EXPECT_EQ(listing(copy), listing(machine));
    EXPECT_EQ(copy.get_src_fname(), "name");
    machine.clear();
    out.str("");
    EXPECT_EQ(copy.run(), 0);
    EXPECT_EQ(out.str(), "4221");
    machine = copy;
    copy = *&copy;
    copy.clear();
    out.str("");
    EXPECT_EQ(machine.run(), 0);
    EXPECT_EQ(out.str(), "4221");
    EXPECT_EQ(call(machine, "count_args", { 1, 2 }), "2");
}

TEST(xmachine, clears)
{
    xmachine machine;
    std::ostringstream out;
    machine.set_ostream(&out);
    machine.get_field().add_var("g", 1);
    ASSERT_EQ(compile_text(machine, "$[proc f()]$[return 5]$[end]$[@f()]\n"), 0);
    ASSERT_EQ(machine.run(), 0);
    ASSERT_EQ(machine.run_begin(), 0);
    machine.clear();
    EXPECT_FALSE(machine.is_running());
    EXPECT_EQ(machine.last_addr(), 0);
    EXPECT_EQ(machine.find_line(0), -1);
    EXPECT_EQ(machine.get_field().get_kind("f"), xfield::no_name);
    EXPECT_EQ(machine.get_field().get_kind("g"), xfield::no_name);
    EXPECT_EQ(machine.get_ostream(), &out);
    // The return value went, too.
    out.str("");
    EXPECT_EQ(compile_text(machine, "$[proc f()]$[end]$[@f()]"), 0);
    EXPECT_EQ(static_cast<unsigned>(machine.run()), 0x80000003u);
}

// ---- printers --------------------------------------------------------------

TEST(xmachine, lists_instructions_under_the_names_that_programs_know)
{
    xmachine machine;
    for (int type = NOP; type <= LT; ++type)
        machine.add_code(static_cast<code_type>(type));
    std::ostringstream out;
    machine.dump(out);
    EXPECT_EQ(out.str(),
              "source file: \n"
              "   0. NOP     \n   1. PUSH    \n   2. STORE   \n   3. GETVAR  \n   4. VAR     \n   5. GETARG  \n"
              "   6. CALL    \n   7. PUSHARG \n   8. POPARG  \n   9. RET     \n  10. RETVAL  \n  11. HALT    \n"
              "  12. TRAP    \n  13. AJMP    \n  14. AJZ     \n  15. AJNZ    \n  16. RJMP    \n  17. RJZ     \n"
              "  18. RJNZ    \n  19. REF     \n  20. OUTPUT  \n  21. NOT     \n  22. NEG     \n  23. PLUS    \n"
              "  24. MINUS   \n  25. MUL     \n  26. DIV     \n  27. MOD     \n  28. EVAL    \n  29. EVPLUS  \n"
              "  30. EVMINUS \n  31. EVMUL   \n  32. EVDIV   \n  33. EVMOD   \n  34. AND     \n  35. OR      \n"
              "  36. EQ      \n  37. NEQ     \n  38. GE      \n  39. LE      \n  40. GT      \n  41. LT      \n"
              "  42. (null)  \n");
}

TEST(xmachine, lists_operands)
{
    const struct { xcode code; const char* text; } rows[] = {
        { xcode(STORE, "text"), "   0. STORE   \"text\"" },
        { xcode(STORE, ""), "   0. STORE   \"\"" },
        { xcode(STORE, "a\r\n\"\\\tb"), "   0. STORE   \"a\\r\\n\\\"\\\tb\"" },
        // Fifty characters, and one more.
        { xcode(STORE, "12345678901234567890123456789012345678901234567890"),
          "   0. STORE   \"12345678901234567890123456789012345678901234567890\"" },
        { xcode(STORE, "12345678901234567890123456789012345678901234567890x"),
          "   0. STORE   \"12345678901234567890123456789012345678901234567890...\"" },
        { xcode(STORE, 5), "   0. STORE    5" },
        { xcode(STORE, 1.5), "   0. STORE    1.5" },
        { xcode(STORE, error_value(err::timeout)), "   0. STORE   " },
        { xcode(GETVAR, "name"), "   0. GETVAR   name" },
        { xcode(CALL, "a long name"), "   0. CALL     a long name" },
        { xcode(PUSH, 2), "   0. PUSH     2" },
        { xcode(static_cast<code_type>(99)), "   0. (null)  " },
    };
    for (const auto& r : rows) {
        xmachine machine;
        machine.add_code(NOP);
        machine.get_code(0) = r.code;
        std::ostringstream out;
        machine.print_dyncode(out, 0);
        EXPECT_EQ(out.str(), r.text);
    }
}

TEST(xmachine, lists_with_the_lines_of_the_source)
{
    xmachine machine;
    xlexer lexer('$', '[', ']');
    lexer.load_string("one $[x]\n$[proc f()]\ntwo$[end]\nlast");
    xcompiler compiler;
    ASSERT_EQ(compiler.compile(machine, &lexer), 0);
    std::ostringstream out;
    machine.print_list(out, &lexer);
    EXPECT_EQ(out.str(), "one $[x]\n"
                         "   0. STORE   \"one \"\n"
                         "   1. NOT     \n"
                         "   2. GETVAR   x\n"
                         "   3. STORE   \"\\n\"\n"
                         "   4. NOT     \n"
                         "$[proc f()]\n"
                         "   5. AJZ      9\n"
                         "   6. STORE   \"\\ntwo\"\n"
                         "   7. NOT     \n"
                         "two$[end]\n"
                         "   8. RET     \n"
                         "   9. STORE   \"\\nlast\"\n"
                         "  10. NOT     \n"
                         "last\n"
                         "  11. HALT    \n");
    std::ostringstream without;
    machine.print_list(without, nullptr);
    EXPECT_EQ(without.str().find("one $["), std::string::npos);
}

TEST(xmachine, prints_its_state)
{
    xmachine machine;
    std::ostringstream out;
    machine.set_ostream(&out);
    machine.print_context(out);
    EXPECT_EQ(out.str(), "IP = 0");
    out.str("");
    machine.print_stack(out);
    machine.print_trace(out);
    machine.print_local(out, nullptr);
    EXPECT_EQ(out.str(), "");

    machine.get_field().add_var("g", "global");
    machine.get_field().add_var("none", base_var());
    ASSERT_EQ(compile_text(machine, "$[proc f(a, a_name_that_is_longer_than_thirty_five)]$[var t]$[t = 1.5]$[trap()]$[end]"
                                    "$[x = \"text\"]$[f(x, 2)]"), 0);
    for (int addr = 0; addr < machine.last_addr(); ++addr) {
        if (machine.get_code(addr).get_operand().get_string() == "trap")
            machine.get_code(addr) = xcode(TRAP);
    }
    ASSERT_EQ(machine.run(), 0);
    out.str("");
    machine.print_trace(out);
    EXPECT_EQ(out.str(), "#1   f\n#0   __main__\n");
    out.str("");
    machine.print_stack(out);
    EXPECT_EQ(out.str(), "  1.a                                   text\n"
                         "  2.a_name_that_is_longer_than_thirty_five 2\n"
                         "  3.t                                   1.5\n");
    out.str("");
    machine.print_local(out, machine.get_context(0));
    EXPECT_EQ(out.str(), "  1.x                                   text\n");
    out.str("");
    machine.print_all(out);
    const std::string all = out.str();
    EXPECT_EQ(all.find("#1   f:\n  1.a "), 0u);
    EXPECT_NE(all.find("#0   __main__:\n  1.x                                   text\n.global:\n  1.(2)oct "), std::string::npos);
    EXPECT_NE(all.find("\n 24.(2)print_global                     \n"), std::string::npos);
    EXPECT_NE(all.find("\n 25.(3)g                                global\n"), std::string::npos);
    EXPECT_NE(all.find("\n 26.(3)none                             \n"), std::string::npos);
    EXPECT_NE(all.find("(1)__main__ "), std::string::npos);
    out.str("");
    machine.print_context(out);
    // Five before up to four after the next instruction, for callers the one they return to.
    EXPECT_EQ(out.str(), "f\n"
                         "      4. GETVAR   t\n"
                         "      5. STORE    1.5\n"
                         "      6. EVPLUS  \n"
                         "      7. PUSH     0\n"
                         "      8. TRAP    \n"
                         "*     9. RET     \n"
                         "     10. GETVAR   x\n"
                         "     11. STORE   \"text\"\n"
                         "     12. EVPLUS  \n"
                         "     13. GETVAR   x\n"
                         "__main__\n"
                         "     12. EVPLUS  \n"
                         "     13. GETVAR   x\n"
                         "     14. STORE    2\n"
                         "     15. PUSH     2\n"
                         "     16. CALL     f\n"
                         "*    17. HALT    \n");
}

int call_inner(einterpret& machine, base_var& result, cycque<base_var>&)
{
    cycque<base_var> none;
    return machine.call("inner", result, none);
}

int print_the_context(einterpret& machine, base_var&, cycque<base_var>&)
{
    xmachine& m = static_cast<xmachine&>(machine);
    m.print_context(*m.get_ostream());
    return 0;
}

TEST(xmachine, prints_where_the_caller_of_a_host_function_goes_on)
{
    xmachine machine;
    std::ostringstream out;
    machine.set_ostream(&out);
    const char* const names[] = { "call", "context", nullptr };
    const method functions[] = { call_inner, print_the_context };
    ASSERT_EQ(machine.add_methods(names, functions), 0);
    ASSERT_EQ(compile_text(machine, "$[proc inner()]$[context()]$[end]$[1]$[2]$[3]$[4]$[call()]$[5]$[6]$[call()]"), 0);
    ASSERT_EQ(machine.run(), 0);
    const std::string inner = "inner\n"
                              "      0. AJZ      4\n"
                              "      1. PUSH     0\n"
                              "*     2. CALL     context\n"
                              "      3. RET     \n"
                              "      4. STORE    1\n"
                              "      5. STORE    2\n"
                              "      6. STORE    3\n"
                              "__main__\n";
    EXPECT_EQ(out.str(), inner + "      5. STORE    2\n"
                                 "      6. STORE    3\n"
                                 "      7. STORE    4\n"
                                 "      8. PUSH     0\n"
                                 "      9. CALL     call\n"
                                 "*    10. STORE    5\n"
                                 "     11. STORE    6\n"
                                 "     12. PUSH     0\n"
                                 "     13. CALL     call\n"
                                 "     14. HALT    \n"
                      + inner + "      9. CALL     call\n"
                                "     10. STORE    5\n"
                                "     11. STORE    6\n"
                                "     12. PUSH     0\n"
                                "     13. CALL     call\n"
                                "*    14. HALT    \n");
}

TEST(xmachine, prints_from_scripts)
{
    const std::string all = run_with_functions("$[x = 1]$[print_local()]");
    EXPECT_EQ(all.find("#0   __main__:\n  1.x                                   1\n.global:\n  1.(2)oct"), 0u);
    const std::string names = run_with_functions("$[print_global()]");
    EXPECT_EQ(names.find("  1.(2)oct"), 0u);
    EXPECT_EQ(names.find(".global:"), std::string::npos);
}

} // namespace
