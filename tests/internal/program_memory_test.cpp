// What programs begin with, without memory: a script file is made into another, options are read.
#include "allocation_failure.h"

#include <stdkro/option.h>
#include <stdkro/xcpt.h>
#include <stdkro/xpp.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

std::string content(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(without_memory, a_script_is_not_made_and_can_be_made_later)
{
    const std::string path = "program_memory_test.xpp";
    const std::string made = "program_memory_test.txt";
    std::ofstream(path, std::ios::binary) << "$[for (i = 0; i < 3; i += 1)]$[@i],$[end]";
    for (const bool keep_existing : { false, true }) {
        for (allocation_failure failure; failure.next();) {
            xpp::xmaker maker;
            std::remove(made.c_str());
            failure.arm();
            const int r = maker.make(path.c_str(), made.c_str(), keep_existing);
            failure.disarm();
            if (r == 0) // what failed could be done without
                EXPECT_EQ("0,1,2,", content(made)) << failure.nth();
            else
                EXPECT_EQ(r, err::out_of_memory) << failure.nth();
            EXPECT_TRUE(r == 0 || failure.happened());
            ASSERT_EQ(maker.make(path.c_str(), made.c_str(), false), 0) << failure.nth();
            EXPECT_EQ("0,1,2,", content(made)) << failure.nth();
        }
    }
    std::remove(made.c_str());
    std::remove(path.c_str());
}

TEST(without_memory, options_are_not_read_and_can_be_read_later)
{
    char verbose[] = "-v";
    char* words[] = { verbose, nullptr };
    for (allocation_failure failure; failure.next();) {
        option options;
        int seen = 0;
        int position = -1;
        failure.arm();
        int r = options.add_bool("verbose", 'v', &seen);
        if (r == 0)
            r = options.read_argv(1, words, &position);
        failure.disarm();
        EXPECT_EQ(r, failure.happened() ? err::out_of_memory : 1) << failure.nth();
        EXPECT_EQ(seen, failure.happened() ? 0 : 1);
        if (failure.happened()) {
            if (failure.nth() == 1) {
                EXPECT_EQ(0, options.add_bool("verbose", 'v', &seen));
            }
            EXPECT_EQ(1, options.read_argv(1, words, &position));
            EXPECT_EQ(1, seen);
        }
    }
}

} // namespace
