// Paths cut into steps.
#include <stdkro/xpath.h>

#include <stdkro/xcpt.h>

#include "document_text.h"
#include "guarded_text.h"
#include "name_characters.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using std::string;

string print(const xstep& step)
{
    string text = std::to_string(step.kind);
    if (step.name[0])
        text += string(" ") + step.name;
    if (step.index != -1)
        text += "[" + std::to_string(step.index) + "]";
    return text;
}

// All steps of a path, "; " between them, and the code that ends them.
string steps_of(const char* path)
{
    string text;
    for (const char* next = path;;) {
        const char* const from = next;
        xstep step;
        const int r = xpath::split_step(from, &step, &next);
        if (r < 0) {
            EXPECT_EQ(from, next) << path;
            return text + hex(r);
        }
        EXPECT_EQ(0, r);
        if (step.kind == 0) {
            EXPECT_EQ(from, next);
            EXPECT_EQ('\0', *next) << path;
            return text;
        }
        text += print(step) + "; ";
    }
}

const struct {
    const char* path;
    const char* steps;
} paths[] = {
    { "", "" },
    // An empty step is the root, at the start and in "//".
    { "/", "6; " },
    { "//", "6; 6; " },
    { "/a/b[2]/@id", "6; 4 a; 4 b[2]; 7 id; " },
    { "a//b", "4 a; 6; 4 b; " },
    { "a/", "4 a; " },
    { "a", "4 a; " },
    // "#" and "@" are markers where a step begins and name characters behind that.
    { "#text", "1 text; " },
    { "#comment", "3 comment; " },
    { "#pi", "5 pi; " },
    { "#text[3]/#pi[0]", "1 text[3]; 5 pi[0]; " },
    { "@a#b@c", "7 a#b@c; " },
    { "@#", "7 #; " },
    { "@", "7; " },
    { "@[2]", "7[2]; " },
    { "@/a", "7; 4 a; " },
    { "#note", "80020006" },
    { "#", "80020006" },
    { "#Text", "80020006" },
    { "#textx", "80020006" },
    { "#/a", "80020006" },
    { "#note[", "80020006" },
    // Every name character, and its neighbours.
    { "#$%-.", "80020006" },
    { "$%-.#@", "4 $%-.#@; " },
    { "0123456789", "4 0123456789; " },
    { "ABCDEFGHIJKLMNOPQRSTUVWXYZ", "4 ABCDEFGHIJKLMNOPQRSTUVWXYZ; " },
    { "_`abcdefghijklmnopqrstuvwxyz~", "4 _`abcdefghijklmnopqrstuvwxyz~; " },
    { "a b", "80020005" },
    { " a", "80020005" },
    { "a:b", "80020005" },
    { "a^", "80020005" },
    { "a{", "80020005" },
    { "a\x7f", "80020005" },
    { "a\x80", "80020005" },
    { "\xff", "80020005" },
    { "a&", "80020005" },
    { "a,", "80020005" },
    { "[1]", "80020005" },
    { "]", "80020005" },
    // A position is what strtol reads, kept to 32 bits.
    { "a[0]", "4 a[0]; " },
    { "a[]", "4 a[0]; " },
    { "a[007]", "4 a[7]; " },
    { "a[+5]", "4 a[5]; " },
    { "a[ \t\n\v\f\r5]", "4 a[5]; " },
    { "a[-1]", "4 a; " },
    { "a[-2]", "4 a[-2]; " },
    { "a[2147483647]", "4 a[2147483647]; " },
    { "a[2147483648]", "4 a[2147483647]; " },
    { "a[-2147483647]", "4 a[-2147483647]; " },
    { "a[-2147483648]", "4 a[-2147483648]; " },
    { "a[-99999999999999999999]", "4 a[-2147483648]; " },
    { "a[99999999999999999999]", "4 a[2147483647]; " },
    { "a[x]", "80020005" },
    { "a[5 ]", "80020005" },
    { "a[5", "80020005" },
    { "a[", "80020005" },
    { "a[0x5]", "80020005" },
    { "a[+]", "80020005" },
    { "a[ ]", "80020005" },
    { "a[- 1]", "80020005" },
    // Nothing but "/" may follow the brackets.
    { "a[1]b", "80020005" },
    { "a[1][2]", "80020005" },
    { "a[1]/b", "4 a[1]; 4 b; " },
};

TEST(xpath, a_path_is_cut_into_steps)
{
    for (const auto& c : paths)
        EXPECT_EQ(c.steps, steps_of(c.path)) << c.path;
}

TEST(xpath, a_bounded_path_is_cut_alike_and_nothing_behind_it_is_read)
{
    for (const auto& c : paths) {
        const guarded_text text(c.path);
        string steps;
        for (const char* next = text.begin();;) {
            const char* const from = next;
            xstep step;
            const int r = xpath::split_step(from, text.end(), &step, &next);
            if (r < 0) {
                EXPECT_EQ(from, next) << c.path;
                steps += hex(r);
                break;
            }
            if (step.kind == 0) {
                EXPECT_EQ(text.end(), next) << c.path;
                break;
            }
            steps += print(step) + "; ";
        }
        EXPECT_EQ(c.steps, steps) << c.path;
    }
}

TEST(xpath, a_bound_cuts_a_step_short)
{
    const struct {
        const char* path;
        unsigned length;
        const char* step;
    } cases[] = {
        { "abc/d", 2, "4 ab" },
        { "abc/d", 3, "4 abc" },
        { "a[12]", 4, "80020005" }, // before "]"
        { "a[12]", 3, "80020005" },
        { "a[12]", 2, "80020005" },
        { "a[12]", 1, "4 a" },
        { "#text", 4, "80020006" },
        { "@x", 1, "7" },
        { "x", 0, "0" },
    };
    for (const auto& c : cases) {
        xstep step;
        const char* next = nullptr;
        const int r = xpath::split_step(c.path, c.path + c.length, &step, &next);
        EXPECT_EQ(c.step, r < 0 ? hex(r) : print(step)) << c.path << " up to " << c.length;
    }
    // A NUL before the bound is a byte like others, and not one of a name.
    xstep step;
    const char* next = nullptr;
    EXPECT_EQ(err::syntax, xpath::split_step("a\0b", "a\0b" + 3, &step, &next));
}

TEST(xpath, a_name_is_made_of_71_characters)
{
    EXPECT_EQ(71, walk_bytes([](char c) {
        const bool is_marker = c == '#' || c == '@';
        // Bounded, so that a NUL is a byte like others. Behind "[" and "/" the step is another.
        const auto is_whole = [](const string& path, const string& expected) {
            xstep step;
            const char* next = nullptr;
            const int r = xpath::split_step(path.data(), path.data() + path.size(), &step, &next);
            return r == 0 && next == path.data() + path.size() && print(step) == expected;
        };
        const string one(1, c);
        EXPECT_EQ(is_name_character(c) && !is_marker, is_whole(one, "4 " + one)) << testing::PrintToString(one);
        EXPECT_EQ(is_name_character(c), is_whole("n" + one, "4 n" + one)) << testing::PrintToString(one);
        EXPECT_EQ(is_name_character(c), is_whole("@" + one, "7 " + one)) << testing::PrintToString(one);
    }));
}

TEST(xpath, a_name_has_at_most_127_bytes)
{
    for (const char* marker : { "", "@" }) {
        xstep step;
        const char* next = nullptr;
        string path = marker + string(127, 'n');
        EXPECT_EQ(0, xpath::split_step(path.c_str(), &step, &next));
        EXPECT_EQ(string(127, 'n'), step.name);
        EXPECT_EQ(0, xpath::split_step((path + "[3]/x").c_str(), &step, &next));
        EXPECT_EQ(3, step.index);
        EXPECT_EQ(err::syntax, xpath::split_step((path + " ").c_str(), &step, &next));
        path += 'n';
        EXPECT_EQ(err::overflow, xpath::split_step(path.c_str(), &step, &next));
        EXPECT_EQ(path.c_str(), next);
        EXPECT_EQ(err::overflow, xpath::split_step((path + "/").c_str(), &step, &next));
        EXPECT_EQ(err::overflow, xpath::split_step((path + "nnnn ").c_str(), &step, &next));
    }
}

TEST(xpath, reset_empties_a_step)
{
    xstep step;
    const char* next = nullptr;
    ASSERT_EQ(0, xpath::split_step("@abc[3]", &step, &next));
    step.reset();
    EXPECT_EQ(0, step.kind);
    EXPECT_EQ(-1, step.index);
    EXPECT_STREQ("", step.name);
}

TEST(xpath, split_gives_the_parent_part_and_the_last_step)
{
    const struct {
        const char* path;
        const char* parent;
        const char* step;
    } cases[] = {
        { "/cfg/log/@level", "/cfg/log/", "7 level" },
        { "a", "", "4 a" },
        { "/a[3]", "/", "4 a[3]" },
        { "a/b/", "a/b/", "0" },
        { "/", "/", "0" },
        { "//", "//", "0" },
        { "", "", "0" },
        { "a b/c", "a b/", "4 c" }, // the parent part is not looked at
        { "a/b c", "", "80020005" },
        { "a/#x", "", "80020006" },
        { "a/[1]", "", "80020005" },
    };
    for (const auto& c : cases) {
        xstep step;
        char parent[1024] = "unset";
        const int r = xpath::split(c.path, parent, &step);
        EXPECT_EQ(c.parent, string(parent)) << c.path;
        EXPECT_EQ(c.step, r < 0 ? hex(r) : print(step)) << c.path;

        const guarded_text text(c.path);
        const char* last = nullptr;
        const int bounded = xpath::split(text.begin(), text.end(), &last, &step);
        EXPECT_EQ(c.step, bounded < 0 ? hex(bounded) : print(step)) << c.path;
        EXPECT_EQ(string(c.path).rfind('/') + 1, static_cast<std::size_t>(last - text.begin())) << c.path;
    }
}

TEST(xpath, a_parent_part_has_less_than_1024_bytes)
{
    xstep step;
    char parent[1024];
    const string longest = string(1022, 'p') + "/";
    EXPECT_EQ(0, xpath::split((longest + "x").c_str(), parent, &step));
    EXPECT_EQ(longest, parent);
    EXPECT_EQ(err::overflow, xpath::split(("p" + longest + "x").c_str(), parent, &step));
    EXPECT_STREQ("", parent);
    // It wins over a bad step.
    parent[0] = 'x';
    EXPECT_EQ(err::overflow, xpath::split(("p" + longest + "a b").c_str(), parent, &step));
    EXPECT_STREQ("", parent);
}

TEST(xpath, null_is_refused)
{
    xstep step;
    char parent[1024];
    const char* next = nullptr;
    EXPECT_EQ(err::invalid_parameter, xpath::split_step(nullptr, &step, &next));
    EXPECT_EQ(err::invalid_parameter, xpath::split_step("a", nullptr, &next));
    EXPECT_EQ(err::invalid_parameter, xpath::split_step("a", &step, nullptr));
    EXPECT_EQ(err::invalid_parameter, xpath::split_step(nullptr, nullptr, &step, &next));
    EXPECT_EQ(err::invalid_parameter, xpath::split(nullptr, parent, &step));
    EXPECT_EQ(err::invalid_parameter, xpath::split("a", nullptr, &step));
    EXPECT_EQ(err::invalid_parameter, xpath::split(nullptr, nullptr, &next, &step));
}

} // namespace
