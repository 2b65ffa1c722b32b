// Memory that runs out while a script is compiled, run or called; and the operand
// stack against a plain vector.
#include "allocation_failure.h"

#include "xoperands.h"

#include <stdkro/xpp.h>

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <streambuf>
#include <string>
#include <vector>

namespace {

/// Keeps what is written without ever asking for memory.
class fixed_output : public std::streambuf {
public:
    fixed_output() { clear(); }
    void clear() { setp(text_, text_ + sizeof text_); }
    std::string text() const { return std::string(pbase(), pptr()); }

private:
    char text_[4096];
};

struct program {
    xpp::xmachine machine;
    fixed_output buffer;
    std::ostream out { &buffer };

    program() { machine.set_ostream(&out); }
    int compile(const char* text)
    {
        xpp::xlexer lexer('$', '[', ']');
        lexer.load_string(text, nullptr, false);
        xpp::xcompiler compiler;
        return compiler.compile(machine, &lexer);
    }
};

const char script[] = "text $$ $.\n$[proc f(a, b)]$[var c]$[c = a * b]$[if c > 5]$[return c]$[elif c]more$[else]$[return 0]"
                      "$[end]$[end]$[for (i = 0; i < 3; i += 1)]$[@f(i, 3)] $[end]$[1.5 + 'c']$[print(1, 2, 3)]$[g()]"
                      "$[proc g()]$[long_name_of_a_variable = 7]$[@getvar(\"long_name_of_a_variable\")]$[end]";
const char output[] = "text $ 0 more0 6 1237";

TEST(script_memory, compiles_or_says_that_memory_ran_out)
{
    for (allocation_failure failure; failure.next();) {
        program p;
        xpp::xlexer lexer('$', '[', ']');
        lexer.load_string(script, nullptr, false);
        xpp::xcompiler compiler;
        failure.arm();
        const int r = compiler.compile(p.machine, &lexer);
        failure.disarm();
        ASSERT_EQ(r, failure.happened() ? err::out_of_memory : 0) << "allocation " << failure.nth();
        if (r < 0) {
            EXPECT_EQ(p.machine.last_addr(), 0);
            EXPECT_EQ(compiler.get_last_error().get_err(), err::out_of_memory);
            // The machine is as good as new.
            ASSERT_EQ(p.compile(script), 0);
        }
        ASSERT_EQ(p.machine.run(), 0) << p.machine.get_last_error().what();
        EXPECT_EQ(p.buffer.text(), output);
    }
}

TEST(script_memory, runs_or_says_that_memory_ran_out)
{
    for (allocation_failure failure; failure.next();) {
        program p;
        ASSERT_EQ(p.compile(script), 0);
        failure.arm();
        const int r = p.machine.run();
        failure.disarm();
        if (r < 0) {
            EXPECT_EQ(r, err::out_of_memory) << "allocation " << failure.nth();
            p.machine.clear_runner();
            p.buffer.clear();
            ASSERT_EQ(p.machine.run(), 0);
        }
        EXPECT_EQ(p.buffer.text(), output) << "allocation " << failure.nth();
    }
}

TEST(script_memory, runs_deep_recursion_or_says_that_memory_ran_out)
{
    for (allocation_failure failure; failure.next();) {
        program p;
        ASSERT_EQ(p.compile("$[proc f(n)]$[x = n]$[y = n]$[if n]$[f(n - 1)]$[end]$[return x]$[end]$[@f(300)]"), 0);
        failure.arm();
        const int r = p.machine.run();
        failure.disarm();
        ASSERT_EQ(r, failure.happened() ? err::out_of_memory : 0) << "allocation " << failure.nth();
        if (r == 0) {
            EXPECT_EQ(p.buffer.text(), "300");
        }
    }
}

TEST(script_memory, leaves_many_different_values_or_says_that_memory_ran_out)
{
    for (allocation_failure failure; failure.next();) {
        program p;
        ASSERT_EQ(p.compile("$[for (i = 0; i < 2000; i += 1)]$[i * i]$[end]$[@i]"), 0);
        failure.arm();
        const int r = p.machine.run();
        failure.disarm();
        ASSERT_EQ(r, failure.happened() ? err::out_of_memory : 0) << "allocation " << failure.nth();
    }
}

// A string that cannot grow stays as it is: the run goes on.
TEST(script_memory, survives_strings_that_cannot_grow)
{
    for (allocation_failure failure; failure.next();) {
        program p;
        ASSERT_EQ(p.compile("$[s = \"a\"]$[for (i = 0; i < 20; i += 1)]$[s += \"some text\"]$[t = s + string(i)]$[end]$[@s]"), 0);
        failure.arm();
        const int r = p.machine.run();
        failure.disarm();
        EXPECT_TRUE(r == 0 || r == err::out_of_memory) << "allocation " << failure.nth();
    }
}

TEST(script_memory, calls_or_says_that_memory_ran_out)
{
    for (allocation_failure failure; failure.next();) {
        program p;
        ASSERT_EQ(p.compile("$[proc f(a, b)]$[return a + b]$[end]"), 0);
        base_var result;
        cycque<base_var> args;
        args.push_back(2);
        args.push_back(3);
        failure.arm();
        const int r = p.machine.call("f", result, args);
        failure.disarm();
        if (failure.happened() && r == 0)
            continue; // the string of the name: nothing else was needed
        ASSERT_TRUE(r == 0 || r == err::out_of_memory || r == err::undefined_symbol) << "allocation " << failure.nth();
        EXPECT_EQ(p.machine.count_contexts(), 0u);
        ASSERT_EQ(p.machine.call("f", result, args), 0);
        EXPECT_EQ(result.get_int(), 5);
    }
}

TEST(script_memory, gives_hosts_a_status)
{
    for (allocation_failure failure; failure.next();) {
        program p;
        const share_str name = "name";
        base_var value = 1;
        ASSERT_EQ(p.compile("$[@x]"), 0);
        ASSERT_EQ(p.machine.run_begin(), 0);
        failure.arm();
        const int statuses[] = { p.machine.create_var(name, value), p.machine.get_field().add_var(name, value),
                                 p.machine.get_field().bind_var("bound", value), p.machine.add_code(xpp::NOP) };
        failure.disarm();
        for (const int s : statuses)
            EXPECT_TRUE(s >= 0 || s == err::out_of_memory) << s;
    }
}

TEST(script_memory, copies_a_machine_or_throws_the_library_s_exception)
{
    for (allocation_failure failure; failure.next();) {
        program p;
        ASSERT_EQ(p.compile(script), 0);
        bool has_thrown = false;
        failure.arm();
        try {
            xpp::xmachine copy(p.machine);
            xpp::xmachine fresh;
        } catch (const xrterror& e) {
            has_thrown = e.get_err() == err::out_of_memory;
        }
        failure.disarm();
        EXPECT_EQ(has_thrown, failure.happened()) << "allocation " << failure.nth();
    }
}

// ---- the operand stack -------------------------------------------------------

class naive_stack {
public:
    std::vector<base_var> values;
    std::vector<size_t> floors { 0 };
    size_t here() const { return values.size() - floors.back(); }
};

bool is_equal(const base_var& a, const base_var& b) { return a.raw_is_identical(b); }

TEST(operand_stack, behaves_like_a_vector)
{
    base_var variables[4];
    const share_str text = "a shared text";
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        xpp::operand_stack stack;
        naive_stack naive;
        std::deque<xpp::operand_mark> marks; // they stay where they are
        const auto push = [&](const base_var& v) {
            stack.push(base_var(v));
            naive.values.push_back(v);
        };
        for (int round = 0; round < 60; ++round) {
            const unsigned kind = static_cast<unsigned>(random() % 8);
            const unsigned n = static_cast<unsigned>(random() % 3000);
            if (kind < 3) { // a loop: a period, repeated
                const unsigned period = 1 + static_cast<unsigned>(random() % 40);
                for (unsigned i = 0; i < n; ++i) {
                    switch (i % period % 4) {
                    case 0: push(base_var::reference_to(variables[period % 4])); break;
                    case 1: push(base_var(static_cast<int>(i % period))); break;
                    case 2: push(base_var(text)); break;
                    default: push(base_var(0.5 * (i % period)));
                    }
                }
            } else if (kind == 3) { // all different
                for (unsigned i = 0; i < n; ++i)
                    push(base_var(static_cast<int>(i)));
            } else if (kind < 6) {
                for (unsigned i = 0; i < n && naive.here() > 0; ++i) {
                    ASSERT_TRUE(is_equal(stack.pop(), naive.values.back())) << "seed " << seed;
                    naive.values.pop_back();
                }
                if (naive.here() == 0) {
                    EXPECT_THROW(stack.pop(), xrterror);
                }
            } else if (kind == 6) {
                marks.emplace_back();
                stack.enter(marks.back());
                naive.floors.push_back(naive.values.size());
            } else if (!marks.empty()) {
                stack.leave(marks.back(), marks.size() == 1 ? stack.bottom() : marks[marks.size() - 2]);
                marks.pop_back();
                naive.values.resize(naive.floors.back());
                naive.floors.pop_back();
            }
            const xpp::operand_mark begin = marks.empty() ? stack.bottom() : marks.back();
            ASSERT_EQ(stack.count(begin, nullptr), naive.here()) << "seed " << seed << " round " << round;
        }
        // Several at once, across whatever lies between.
        const size_t all = naive.here();
        std::vector<base_var> got;
        stack.pop(static_cast<unsigned>(all), got);
        ASSERT_EQ(got.size(), all);
        for (size_t i = 0; i < all; ++i)
            ASSERT_TRUE(is_equal(got[i], naive.values[naive.floors.back() + i])) << "seed " << seed << " value " << i;
    }
}

TEST(operand_stack, tells_a_repetition_from_the_next_wherever_one_ends)
{
    for (int first = 480; first < 1100; ++first) {
        xpp::operand_stack stack;
        for (int i = 0; i < 10; ++i)
            stack.push(base_var(i));
        for (int i = 0; i < first; ++i)
            stack.push(base_var(100));
        for (int i = 0; i < 1000; ++i)
            stack.push(base_var(200));
        ASSERT_EQ(stack.count(stack.bottom(), nullptr), static_cast<unsigned>(1010 + first));
        for (int i = 0; i < 1000; ++i)
            ASSERT_EQ(200, stack.pop().get_int()) << first;
        for (int i = 0; i < first; ++i)
            ASSERT_EQ(100, stack.pop().get_int()) << first;
        for (int i = 10; i-- > 0;)
            ASSERT_EQ(i, stack.pop().get_int()) << first;
        EXPECT_THROW(stack.pop(), xrterror);
    }
}

TEST(operand_stack, of_a_procedure_ends_at_its_own_values_wherever_they_begin)
{
    for (int below = 500; below < 530; ++below) {
        xpp::operand_stack stack;
        for (int i = 0; i < below; ++i)
            stack.push(base_var(i));
        xpp::operand_mark here;
        stack.enter(here);
        for (int n : { 0, 1, 2, 600 }) {
            for (int i = 0; i < n; ++i)
                stack.push(base_var(-i));
            for (int i = n; i-- > 0;)
                ASSERT_EQ(-i, stack.pop().get_int()) << below;
            EXPECT_THROW(stack.pop(), xrterror) << below;
        }
        stack.leave(here, stack.bottom());
        for (int i = below; i-- > 0;)
            ASSERT_EQ(i, stack.pop().get_int()) << below;
    }
}

TEST(operand_stack, needs_little_memory_for_repeated_values)
{
    base_var i;
    base_var s;
    xpp::operand_stack stack;
    for (int turn = 0; turn < 3000000; ++turn) {
        stack.push(base_var::reference_to(s));
        stack.push(base_var(turn % 3));
        stack.push(base_var::reference_to(i));
    }
    EXPECT_EQ(stack.count(stack.bottom(), nullptr), 9000000u);
    // All of them lie within the first chunk.
    xpp::operand_mark here;
    stack.enter(here);
    EXPECT_EQ(stack.bottom().chunk, here.chunk);
}

} // namespace
