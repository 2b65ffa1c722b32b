// Numbers as text and back: beside the C library, which is right in its "C" locale,
// and under a locale whose decimal point is a comma.
#include "number_text.h"

#include "text_class.h"

#include <stdkro/str.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>

namespace {

// The decimal point of the locale that is stood in for; null for that of the C library.
const char* locale_point = nullptr;

} // namespace

extern "C" {

lconv* __real_localeconv();
int __real_vsnprintf(char* dst, std::size_t size, const char* fmt, va_list arguments);

lconv* __wrap_localeconv()
{
    static char point[4];
    static lconv with_point;
    if (!locale_point)
        return __real_localeconv();
    with_point = *__real_localeconv();
    with_point.decimal_point = std::strcpy(point, locale_point);
    return &with_point;
}

// Stands in for a C library that follows such a locale.
int __wrap_vsnprintf(char* dst, std::size_t size, const char* fmt, va_list arguments)
{
    if (!locale_point)
        return __real_vsnprintf(dst, size, fmt, arguments);
    char whole[64];
    __real_vsnprintf(whole, sizeof whole, fmt, arguments);
    std::string text;
    for (const char* p = whole; *p; ++p)
        text += *p == '.' ? locale_point : std::string(1, *p);
    if (size > 0)
        dst[text.copy(dst, size - 1)] = '\0';
    return static_cast<int>(text.size());
}

} // extern "C"

namespace {

TEST(parse_double, reads_decimal_notation_only)
{
    struct {
        const char* text;
        double value;
        int stop;
    } const rows[] = {
        { "0", 0, 1 },         { "1", 1, 1 },          { "-1", -1, 2 },        { "+1", 1, 2 },       { " \t1", 1, 3 },
        { "1.5", 1.5, 3 },     { "1.", 1, 2 },         { ".5", 0.5, 2 },       { "-.5", -0.5, 3 },   { "1.5.2", 1.5, 3 },
        { "1e3", 1000, 3 },    { "1E3", 1000, 3 },     { "1e+3", 1000, 4 },    { "1e-3", 0.001, 4 }, { "1.e3", 1000, 4 },
        { ".5e1", 5, 4 },      { "1e", 1, 1 },         { "1e+", 1, 1 },        { "1ex", 1, 1 },      { "1e5x", 1e5, 3 },
        { "007.25", 7.25, 6 }, { "0x1F", 0, 1 },       { "1,5", 1, 1 },        { "1 2", 1, 1 },
        // Nothing that is no number.
        { "", 0, 0 },          { " ", 0, 0 },          { "-", 0, 0 },          { ".", 0, 0 },        { "-.", 0, 0 },
        { ".e5", 0, 0 },       { "e5", 0, 0 },         { "inf", 0, 0 },        { "-inf", 0, 0 },     { "nan", 0, 0 },
        { "infinity", 0, 0 },  { "--1", 0, 0 },        { "+-1", 0, 0 },        { "x", 0, 0 },
        // Too large is infinite, too small 0, whatever way it is written.
        { "1e308", 1e308, 5 }, { "1e309", HUGE_VAL, 5 }, { "-1e309", -HUGE_VAL, 6 }, { "1e-400", 0, 6 },
        { "0e999", 0, 5 },     { "0.0e99999999999999999999", 0, 24 },          { "1e99999999999999999999", HUGE_VAL, 22 },
        { "1e-99999999999999999999", 0, 23 },          { "0.00001e310", 1e305, 11 },
        { "4.9e-324", 4.9406564584124654e-324, 8 },    { "2.2250738585072014e-308", 2.2250738585072014e-308, 23 },
        { "1.7976931348623157e308", 1.7976931348623157e308, 22 },
        { "179769313486231570000000000000000000000000000000000000000e252", 1.7976931348623157e308, 61 },
    };
    for (const auto& row : rows) {
        double value = 99;
        EXPECT_EQ(row.text + row.stop, parse_double(row.text, value)) << row.text;
        EXPECT_EQ(row.value, value) << row.text;
        EXPECT_EQ(row.stop ? std::signbit(std::strtod(row.text, nullptr)) : false, std::signbit(value)) << row.text;
    }
    const std::string huge = std::string(400, '9');
    double value;
    parse_double(huge.c_str(), value);
    EXPECT_EQ(HUGE_VAL, value);
    const std::string tiny = "0." + std::string(400, '0') + "1";
    parse_double(tiny.c_str(), value);
    EXPECT_EQ(0, value);
    const std::string padded = std::string(400, '0') + "7.5";
    parse_double(padded.c_str(), value);
    EXPECT_EQ(7.5, value);
}

TEST(parse_double, stays_inside_an_unterminated_text)
{
    const char text[] = "  -1.5e12";
    const double values[] = { 0, 0, 0, 0, -1, -1, -1.5, -1.5, -15, -1.5e12 };
    const int stops[] = { 0, 0, 0, 0, 4, 5, 6, 6, 8, 9 };
    for (int n = 0; n < 10; ++n) {
        double value = 99;
        EXPECT_EQ(text + stops[n], parse_double(text, text + n, value)) << n;
        EXPECT_EQ(values[n], value) << n;
    }
}

TEST(parse_double, agrees_with_the_c_library)
{
    std::mt19937_64 random(5);
    const char letters[] = "0123456789012345678901234567890123456789+-.eE x";
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (auto n = random() % 24; n; --n)
            text += letters[random() % (sizeof letters - 1)];
        char* expected_end;
        const double expected = std::strtod(text.c_str(), &expected_end);
        double value;
        const char* const end = parse_double(text.c_str(), value);
        if (text.find("0x") != std::string::npos)
            continue; // hexadecimal for strtod
        ASSERT_EQ(expected_end, end) << text;
        ASSERT_EQ(expected, value) << text;
    }
}

TEST(format_double_g, writes_what_printf_writes_with_two_digit_exponents)
{
    struct {
        double value;
        const char* text;
    } const rows[] = {
        { 0, "0" },             { -0.0, "-0" },         { 1, "1" },          { 1.5, "1.5" },        { -2.25, "-2.25" },
        { 123456, "123456" },   { 1234567, "1.23457e+06" }, { 1e6, "1e+06" }, { 999999.5, "1e+06" }, { 1e15, "1e+15" },
        { 1e100, "1e+100" },    { 1e-4, "0.0001" },     { 1e-5, "1e-05" },   { 1e-100, "1e-100" },  { 0.1, "0.1" },
        { 1.0 / 3, "0.333333" }, { 5e-324, "4.94066e-324" }, { HUGE_VAL, "inf" }, { -HUGE_VAL, "-inf" },
        { std::numeric_limits<double>::quiet_NaN(), "nan" }, { -std::numeric_limits<double>::quiet_NaN(), "nan" },
    };
    for (const auto& row : rows) {
        char text[number_text_size];
        EXPECT_EQ(static_cast<int>(std::strlen(row.text)), format_double_g(text, row.value));
        EXPECT_STREQ(row.text, text);
    }
    std::mt19937_64 random(6);
    for (int i = 0; i < 20000; ++i) {
        const double value = std::ldexp(static_cast<double>(static_cast<std::int64_t>(random())), static_cast<int>(random() % 2000) - 1060);
        char text[number_text_size];
        char expected[64];
        std::snprintf(expected, sizeof expected, "%g", value);
        EXPECT_EQ(static_cast<int>(std::strlen(expected)), format_double_g(text, value));
        ASSERT_STREQ(expected, text);
    }
}

TEST(parse_int, saturates_to_32_bits)
{
    struct {
        const char* text;
        int radix, value, stop;
    } const rows[] = {
        { "42", 10, 42, 2 },    { "-42", 10, -42, 3 },  { "+42", 10, 42, 3 },  { " \n42", 10, 42, 4 }, { "42x", 10, 42, 2 },
        { "ff", 16, 255, 2 },   { "-FF", 16, -255, 3 }, { "fg", 16, 15, 1 },   { "17", 8, 15, 2 },     { "18", 8, 1, 1 },
        { "", 10, 0, 0 },       { "-", 10, 0, 0 },      { " ", 10, 0, 0 },     { "x", 10, 0, 0 },      { "- 1", 10, 0, 0 },
        { "2147483647", 10, 2147483647, 10 },           { "2147483648", 10, 2147483647, 10 },
        { "-2147483648", 10, -2147483647 - 1, 11 },     { "-2147483649", 10, -2147483647 - 1, 11 },
        { "99999999999999999999999999", 10, 2147483647, 26 },
        { "ffffffffffffffffffff", 16, 2147483647, 20 },
    };
    for (const auto& row : rows) {
        int value = 99;
        EXPECT_EQ(row.text + row.stop, parse_int(row.text, value, row.radix)) << row.text;
        EXPECT_EQ(row.value, value) << row.text;
    }
}

TEST(format_int, writes_every_int)
{
    for (int value : { 0, 1, -1, 42, 2147483647, -2147483647 - 1 }) {
        char text[number_text_size];
        EXPECT_EQ(std::to_string(value).size(), static_cast<std::size_t>(format_int(text, value)));
        EXPECT_EQ(std::to_string(value), text);
    }
}

TEST(double_to_int, truncates_inside_the_ints_and_marks_the_rest)
{
    const int outside = std::numeric_limits<int>::min();
    struct {
        double value;
        int result;
    } const rows[] = {
        { 0, 0 }, { 1.9, 1 }, { -1.9, -1 }, { 2147483647.0, 2147483647 }, { 2147483647.9, 2147483647 },
        { -2147483648.0, outside }, { -2147483648.9, outside }, { 2147483648.0, outside }, { -2147483649.0, outside },
        { 1e300, outside }, { -1e300, outside }, { HUGE_VAL, outside }, { -HUGE_VAL, outside },
        { std::numeric_limits<double>::quiet_NaN(), outside },
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.result, double_to_int(row.value)) << row.value;
}

TEST(text_class, knows_bytes_of_the_C_locale_only)
{
    for (int c = 0; c < 256; ++c) {
        const char byte = static_cast<char>(c);
        EXPECT_EQ(c != 0 && std::strchr(" \t\n\v\f\r", c) != nullptr, is_space(byte)) << c;
        EXPECT_EQ(c >= '0' && c <= '9', is_digit(byte)) << c;
        const char* const digits = "0123456789abcdef";
        const char* const digit = c ? std::strchr(digits, c >= 'A' && c <= 'F' ? c + 32 : c) : nullptr;
        EXPECT_EQ(digit ? static_cast<int>(digit - digits) : -1, hex_value(byte)) << c;
    }
}

// A C library in a DLL cannot be stood in for, but it has locales of its own.
bool begin_comma_locale()
{
    locale_point = ",";
    if (std::strcmp(std::localeconv()->decimal_point, ",") == 0)
        return true;
    locale_point = nullptr;
    return std::setlocale(LC_NUMERIC, "German") != nullptr;
}

void end_comma_locale()
{
    locale_point = nullptr;
    std::setlocale(LC_NUMERIC, "C");
}

TEST(a_locale_with_a_point_of_two_bytes, changes_no_number)
{
    static const struct {
        unsigned room;
        int result;
        const char* text;
    } cases[] = {
        { 16, 9, "<1.5>\xD9\xAB\xD9\xAB" },
        { 10, 9, "<1.5>\xD9\xAB\xD9\xAB" },
        { 6, 0, "<1.5>" },
        // A number that is cut in its point, or behind it, ends with the point.
        { 5, 0, "<1." },
        { 4, 0, "<1." },
        { 3, 0, "<1" },
    };
    for (const auto& c : cases) {
        const double number = 1.5;
        char text[16];
        locale_point = "\xD9\xAB";
        const bool is_known = std::strcmp(std::localeconv()->decimal_point, locale_point) == 0;
        const int result = str::write_multi(text, c.room, &number, 1, "<%g>\xD9\xAB\xD9\xAB", '\0');
        locale_point = nullptr;
        if (!is_known)
            GTEST_SKIP() << "this C library cannot be stood in for";
        EXPECT_EQ(c.result, result) << c.room;
        EXPECT_STREQ(c.text, text) << c.room;
    }
}

TEST(a_locale_with_a_comma, changes_the_conversion_of_no_format)
{
    static const struct {
        double value;
        const char* fmt;
        unsigned room;
        const char* text;
    } cases[] = {
        // What the format itself says stays, commas too.
        { 1.5, "%g, ", 64, "1.5, " },
        { 1.5, "x, %g", 64, "x, 1.5" },
        { 1.5, ",%g,%%", 64, ",1.5,%" },
        { 1.5, "%%,%.2f.", 64, "%,1.50." },
        { 1.5, "%%%g%%", 64, "%1.5%" },
        { 2, "%g, ", 64, "2, " },
        { 2, "%.0f,5", 64, "2,5" },
        { 1.5, "%+08.2f|", 64, "+0001.50|" },
        { 1.5, "%-6.1f|", 64, "1.5   |" },
        { 1.5e10, "%.1e", 64, "1.5e+10" },
        { 1.5, "no number, none", 64, "no number, none" },
        { 1.5, "", 64, "" },
        // Cut in any place.
        { 1.5, "%g", 4, "1.5" },
        { 1.5, "%g", 3, "1." },
        { 1.5, "%g", 2, "1" },
        { 1.5, "%g", 1, "" },
        { 1.5, "%g, ", 6, "1.5, " },
        { 1.5, "%g, ", 5, "1.5," },
        { 1.5, "%g, ", 4, "1.5" },
        { 1.5, "%g, ", 3, "1." },
        { 2, "%g, ", 3, "2," },
        { 1.5, "x, %g", 6, "x, 1." },
        { 1.5, "x, %g", 3, "x," },
        { 1.5, "%%%g%%", 5, "%1.5" },
    };
    for (const auto& c : cases) {
        char text[64];
        std::memset(text, '#', sizeof text);
        ASSERT_TRUE(begin_comma_locale());
        const int length = str::write_multi(text, c.room, &c.value, 1, c.fmt, '\0');
        end_comma_locale();
        char whole[64];
        const int needed = std::snprintf(whole, sizeof whole, c.fmt, c.value);
        EXPECT_STREQ(c.text, text) << c.fmt << " in " << c.room;
        EXPECT_EQ(static_cast<unsigned>(needed) < c.room ? needed : 0, length) << c.fmt << " in " << c.room;
        EXPECT_TRUE(c.room == sizeof text || text[c.room] == '#') << c.fmt << " in " << c.room;
    }
    char text[8] = "#";
    const double numbers[] = { 1.5, 2.5 };
    ASSERT_TRUE(begin_comma_locale());
    const int none = str::write_multi(text, 0, numbers, 2, "%g", ';');
    const std::string untouched = text;
    const int first = str::write_multi(text, 7, numbers, 2, "%g", ';');
    end_comma_locale();
    EXPECT_EQ(0, none);
    EXPECT_EQ("#", untouched);
    EXPECT_EQ(-4, first);
    EXPECT_STREQ("1.5;2.", text);
}

TEST(a_locale_with_a_comma, changes_no_number)
{
    const double numbers[] = { 1.5, -2.25 };
    char text[64];
    char own[number_text_size];
    double value = 0;
    ASSERT_TRUE(begin_comma_locale());
    const int length = str::write_multi(text, sizeof text, numbers, 2, "%g", ';');
    const std::string list = text;
    // A comma of the format itself stays.
    str::write_multi(text, sizeof text, numbers, 1, "%.0f, ", '\0');
    const std::string with_comma = text;
    str::write_multi(text, sizeof text, numbers, 1, "<%.0f>", '\0');
    const std::string without_point = text;
    format_double_g(own, 1.5);
    const char* const end = parse_double("1.5", value);
    end_comma_locale();
    EXPECT_EQ(9, length);
    EXPECT_EQ("1.5;-2.25", list);
    EXPECT_EQ("2, ", with_comma);
    EXPECT_EQ("<2>", without_point);
    EXPECT_STREQ("1.5", own);
    EXPECT_EQ(1.5, value);
    EXPECT_STREQ("", end);
}

} // namespace
