// Options, the shell and the unit-test framework when memory runs out.
#include "allocation_failure.h"

#include <stdkro/option.h>
#include <stdkro/shell.h>
#include <stdkro/testrunner.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace {

// An argument vector that a command was lent, and whether it has been freed since.
char** lent_argv;
bool is_argv_freed;

} // namespace

extern "C" void __real_free(void* block);

extern "C" void __wrap_free(void* block)
{
    is_argv_freed |= block == lent_argv;
    __real_free(block);
}

namespace {

TEST(frame_memory, an_option_is_added_or_the_table_stays_as_it_is)
{
    for (allocation_failure failure; failure.next();) {
        option options;
        int added = 0;
        int reads = 0;
        int flag = 0;
        int missed = 0;
        failure.arm();
        // Patterns are added one behind the other: each may be the one without memory.
        for (int i = 0; i < 9; ++i) {
            const int r = options.add_bool(i == 0 ? "flag" : "other", 0, &flag);
            EXPECT_TRUE(r == err::ok || r == err::out_of_memory);
            added += r == err::ok;
            missed += r != err::ok;
        }
        char word[] = "--flag";
        char* words[] = { word };
        reads = options.read_argv(1, words, nullptr);
        failure.disarm();
        EXPECT_EQ(added + missed, 9);
        if (!failure.happened()) {
            EXPECT_EQ(1, reads);
            EXPECT_EQ(1, flag);
        } else if (missed == 0) {
            EXPECT_EQ(err::out_of_memory, reads) << "the end of the table had no room";
        }
        // Whatever failed, the next scan works on what was added.
        const int again = options.read_argv(1, words, nullptr);
        EXPECT_TRUE(again == 1 || again == err::unexpected) << again;
    }
}

int calls;

int count_call(shell*, int argc, char**)
{
    ++calls;
    return argc;
}

TEST(frame_memory, a_line_is_executed_or_refused)
{
    const shell::cmd commands[] = { { "go", count_call, "" }, { nullptr, nullptr, nullptr } };
    for (allocation_failure failure; failure.next();) {
        shell sh;
        sh.set_cmds(commands);
        calls = 0;
        failure.arm();
        const int r = sh.execute("go \"a b\" c");
        failure.disarm();
        EXPECT_EQ(failure.happened() ? static_cast<int>(err::out_of_memory) : 3, r);
        EXPECT_EQ(failure.happened() ? 0 : 1, calls);
    }
}

[[noreturn]] void throw_with(char** argv)
{
    lent_argv = argv;
    is_argv_freed = false;
    throw std::runtime_error(argv[0]);
}

int throw_call(shell*, int, char** argv) { throw_with(argv); }

struct throwing_shell : shell {
    int doDefault(int, char** argv) override { throw_with(argv); }
};

TEST(frame_memory, the_words_of_a_line_are_freed_though_its_command_throws)
{
    const shell::cmd commands[] = { { "go", throw_call, "" }, { nullptr, nullptr, nullptr } };
    throwing_shell sh;
    sh.set_cmds(commands);
    for (const char* line : { "go \"a b\" c", "unknown a" }) {
        EXPECT_THROW(sh.execute(line), std::runtime_error) << line;
        EXPECT_TRUE(is_argv_freed) << line;
    }
}

void pass() {}

TEST(frame_memory, a_suite_takes_a_test_or_says_so)
{
    testmethod t(pass, "t", "", 0);
    for (allocation_failure failure; failure.next();) {
        testsuite suite("s");
        int expected = 0;
        for (int i = 0; i < 9; ++i) {
            failure.arm();
            const int r = suite.addTest(t);
            failure.disarm();
            EXPECT_EQ(failure.happened() && r < 0 ? static_cast<int>(err::out_of_memory) : expected, r);
            expected += r >= 0;
            if (failure.happened())
                break;
        }
        EXPECT_EQ(expected, suite.getTestCount());
    }
}

struct silent : testrunner {
    void output(const char*) override {}
    void reportError() override {}
};

TEST(frame_memory, a_failure_counts_though_its_text_is_lost)
{
    const ut_error error("file", 1, "message");
    for (allocation_failure failure; failure.next();) {
        silent runner;
        failure.arm();
        runner.addError(error, "name");
        failure.disarm();
        runner.addResult(false);
        EXPECT_EQ(1, runner.getFailedCount());
        EXPECT_EQ(failure.happened() ? 0u : 1u, runner.getErrors().size());
    }
}

} // namespace
