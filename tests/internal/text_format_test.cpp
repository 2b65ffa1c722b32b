// Bounded formatting beside the C library's: the plain conversions are done without it.
#include "text_format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cwchar>
#include <string>

namespace {

int ours(char* dst, unsigned size, const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    const int length = format_bounded(dst, size, fmt, arguments);
    va_end(arguments);
    return length;
}

// Compares with snprintf in every size up to the whole text and two more.
template <class... argument_types> void expect_same(const char* fmt, argument_types... arguments)
{
    char expected[256];
    const int length = std::snprintf(expected, sizeof expected, fmt, arguments...);
    ASSERT_GE(length, 0) << fmt;
    for (unsigned size = 1; size <= static_cast<unsigned>(length) + 2; ++size) {
        char room[260];
        std::fill(std::begin(room), std::end(room), '#');
        const int r = ours(room, size, fmt, arguments...);
        EXPECT_EQ(static_cast<unsigned>(length) < size ? length : -1, r) << fmt << " in " << size;
        const std::string text(expected, static_cast<std::size_t>(length));
        EXPECT_EQ(text.substr(0, size - 1), std::string(room, std::min<std::size_t>(size - 1, text.size()))) << fmt;
        EXPECT_EQ('\0', room[std::min<std::size_t>(size - 1, text.size())]) << fmt;
        EXPECT_EQ('#', room[size]) << fmt;
    }
}

TEST(format_bounded, gives_what_snprintf_gives)
{
    expect_same("%s", "");
    expect_same("%s", "text");
    expect_same("plain text");
    expect_same("100%%");
    expect_same("%%%d%%", 5);
    expect_same("%c%c", 'a', 'b');
    expect_same("a%cb", 0);
    expect_same("%s and %s", "one", "two");
    for (const int value : { 0, 1, -1, 42, INT_MAX, INT_MIN }) {
        expect_same("%d", value);
        expect_same("%i|%u|%x", value, static_cast<unsigned>(value), static_cast<unsigned>(value));
        expect_same("%ld %lu %lx", static_cast<long>(value), static_cast<unsigned long>(value), static_cast<unsigned long>(value));
        expect_same("%lld %llu %llx", static_cast<long long>(value), static_cast<unsigned long long>(value),
                    static_cast<unsigned long long>(value));
    }
    expect_same("%lld %lld %llu", LLONG_MIN, LLONG_MAX, ULLONG_MAX);
    expect_same("\xC4\xDA%s\xFF", "\xB2\xBF");
}

TEST(format_bounded, leaves_other_conversions_to_the_c_library)
{
    expect_same("%5d|%-5d|%05d|%+d", 42, 42, 42, 42);
    expect_same("%X %o %#x", 255u, 255u, 255u);
    expect_same("%s %.2f %g %e", "x", 1.5, 0.1, 1e10);
    expect_same("%d %s %.3s|%10s|%-10s|", 1, "a", "abcdef", "b", "c");
    expect_same("%*d %.*s", 6, 42, 2, "abc");
    expect_same("%hd %hhd", 70000, 300);
    expect_same("%d %lc", 1, static_cast<std::wint_t>(L'c'));
    expect_same("%d %ls", 1, L"wide");
}

TEST(format_bounded, tells_when_the_text_was_cut)
{
    char text[8] = "#######";
    EXPECT_EQ(-1, ours(text, 0, "%d", 1));
    EXPECT_STREQ("#######", text);
    EXPECT_EQ(-1, ours(text, 1, "%d", 1));
    EXPECT_STREQ("", text);
    EXPECT_EQ(0, ours(text, 1, "%s", ""));
    EXPECT_EQ(3, ours(text, 4, "%d", 123));
    EXPECT_STREQ("123", text);
    EXPECT_EQ(-1, ours(text, 3, "%d", 123));
    EXPECT_STREQ("12", text);
}

TEST(format_bounded, writes_nothing_into_no_room)
{
    char room = '#';
    EXPECT_EQ(-1, ours(&room, 0, "%d", 1));
    EXPECT_EQ('#', room);
}

} // namespace
