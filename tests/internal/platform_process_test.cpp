// The platform door: processes, shared memory and modules, as far as the tests of
// the classes do not already reach every sentence of it; and the splitting of
// command lines.
#include "../../kro/quoted.h"
#include "command_words.h"
#include "platform.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

using words = std::vector<std::string>;

// ---- command lines ---------------------------------------------------------

TEST(command_line, first_word)
{
    static const struct { const char* line; words expected; } cases[] = {
        { "", { "" } },
        { "name", { "name" } },
        { " name", { "", "name" } }, // it ends at once
        { "\tname", { "", "name" } },
        { "\"a b\"c d", { "a bc", "d" } },
        { "\"open", { "open" } },
        { "a\"\"b", { "ab" } },
        // Backslashes mean nothing in it.
        { "c:\\dir\\ x", { "c:\\dir\\", "x" } },
        { "\"c:\\dir\\\" x", { "c:\\dir\\", "x" } },
        { "a\\\"b c\\\" d", { "a\\b c\\", "d" } },
    };
    for (const auto& c : cases)
        EXPECT_EQ(split_command_line(c.line), c.expected) << c.line;
}

TEST(command_line, further_words)
{
    static const struct { const char* line; words expected; } cases[] = {
        { "x", {} },
        { "x ", {} },
        { "x \t ", {} },
        { "x a\t b", { "a", "b" } },
        { "x \"\"", { "" } },
        { "x \"\" \"\"", { "", "" } },
        { "x \"a b\"", { "a b" } },
        { "x a\"b c\"d", { "ab cd" } },
        { "x \"a", { "a" } },
        { "x \"", { "" } },
        // Two quotes inside quotes are a literal one.
        { "x \"a\"\"b\"", { "a\"b" } },
        { "x \"\"\"\"", { "\"" } },
        { "x \"a\"\" b\"", { "a\" b" } },
        { "x a\"\"b", { "ab" } },
        // Backslashes.
        { "x \\", { "\\" } },
        { "x a\\\\b", { "a\\\\b" } },
        { "x \\\"", { "\"" } },
        { "x \\\\\"a b\"", { "\\a b" } },
        { "x \\\\\\\"a b", { "\\\"a", "b" } },
        { "x \"a\\\\\\\\\"", { "a\\\\" } },
        { "x \"a\\\"b\"", { "a\"b" } },
        { "x \"\\\\server\\path\\\\\"", { "\\\\server\\path\\" } },
        { "x a\nb\rc", { "a\nb\rc" } },
    };
    for (const auto& c : cases) {
        words expected = c.expected;
        expected.insert(expected.begin(), "x");
        EXPECT_EQ(split_command_line(c.line), expected) << c.line;
    }
}

TEST(command_line, gives_back_what_the_tool_quoted)
{
    std::mt19937 random(7);
    const char alphabet[] = "ab \t\\\\\"\"'\n";
    for (int turn = 0; turn < 20000; ++turn) {
        words expected = { "x" };
        std::string line = "x";
        for (unsigned n = static_cast<unsigned>(random() % 4); n > 0; --n) {
            std::string word;
            for (unsigned length = static_cast<unsigned>(random() % 9); length > 0; --length)
                word += alphabet[random() % (sizeof alphabet - 1)];
            line += ' ' + command_line_word(word);
            expected.push_back(word);
        }
        ASSERT_EQ(split_command_line(line.c_str()), expected) << line;
    }
}

TEST(command_line, of_any_bytes_ends)
{
    std::mt19937 random(8);
    for (int turn = 0; turn < 5000; ++turn) {
        std::string line;
        for (unsigned length = static_cast<unsigned>(random() % 60); length > 0; --length)
            line += "\" \\a\t\x80"[random() % 6];
        std::size_t size = 0;
        for (const std::string& word : split_command_line(line.c_str()))
            size += word.size();
        EXPECT_LE(size, line.size()) << line;
    }
}

// ---- processes -------------------------------------------------------------

const sys_process nobody = { reinterpret_cast<void*>(~static_cast<std::uintptr_t>(0)),
                             reinterpret_cast<void*>(~static_cast<std::uintptr_t>(0)), 0x7FFFFFF0 };

TEST(process_door, a_failed_start_tells_why_and_touches_nothing)
{
    sys_process child = nobody;
    std::FILE* stream = nullptr;
    const sys_launch requests[] = {
        { nullptr, nullptr, "x", false, 0, false }, { "", nullptr, "x", false, 'r', false },
        { "./missing", nullptr, "x", true, 0, false }, { "./missing", "./missing", nullptr, false, 'w', true },
    };
    for (const sys_launch& request : requests) {
        EXPECT_EQ(sys_process_start(&request, &child, &stream), -1);
        EXPECT_NE(sys_last_error(), 0);
    }
    EXPECT_EQ(child.id, nobody.id);
    EXPECT_EQ(stream, nullptr);
}

// ---- shared memory ---------------------------------------------------------

TEST(memory_door, a_closed_handle_fails)
{
    void* const no_file = reinterpret_cast<void*>(~static_cast<std::uintptr_t>(0));
    void* m = sys_memory_create(no_file, nullptr, 100, 4);
    ASSERT_NE(m, nullptr);
    sys_memory_close(m);
    sys_memory_close(m);
    sys_memory_close(nullptr);
    EXPECT_EQ(sys_memory_map(m, 0, 0, 4), nullptr);
    EXPECT_EQ(sys_file_of(nullptr), no_file);
    EXPECT_EQ(sys_memory_unmap(&m), -1);
}

TEST(memory_door, many_objects_at_once)
{
    void* const no_file = reinterpret_cast<void*>(~static_cast<std::uintptr_t>(0));
    std::vector<void*> all;
    for (int i = 0; i < 200; ++i) {
        const std::string name = "stdkro door " + std::to_string(i % 100);
        all.push_back(sys_memory_create(no_file, name.c_str(), 4096, 4));
        ASSERT_NE(all.back(), nullptr) << i;
    }
    for (int i = 0; i < 100; ++i) {
        int* first = static_cast<int*>(sys_memory_map(all[static_cast<unsigned>(i)], 0, 0, 2));
        int* second = static_cast<int*>(sys_memory_map(all[static_cast<unsigned>(i) + 100], 0, 0, 4));
        ASSERT_TRUE(first && second);
        EXPECT_EQ(*second, 0);
        *first = i + 1;
        EXPECT_EQ(*second, i + 1);
        EXPECT_EQ(sys_memory_unmap(first), 0);
        EXPECT_EQ(sys_memory_unmap(second), 0);
    }
    for (void* m : all)
        sys_memory_close(m);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(sys_memory_open(("stdkro door " + std::to_string(i)).c_str(), 4), nullptr);
}

} // namespace
