// Status codes, their messages, the exceptions, calendar time and versions.
#include <stdkro/str.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <type_traits>

namespace {

int code(unsigned bits) { return static_cast<int>(bits); }

const char* const bug_texts[] = { "<BUG NONE>", "internal error", "divide zero", "not initialized", "non left-value",
                                  "non right-value", "illegal operator", "bad argument", "overflow", "underflow" };
const char* const panic_texts[] = { "<PANIC NONE>", "overrun", "out of memory", "little of resource" };
const char* const runtime_texts[] = { "<RUNTIME NONE>", "failed", "file system error", "execute process failed",
                                      "not exist", "syntax error", "unexcepted", "abnormal end", "undefined symbol",
                                      "duplicated symbol", "conflict", "not implement", "timeout",
                                      "reject required", "invalidate parameter", "abnormal type cast", "exit",
                                      "unprepared" };
const char* const network_texts[] = { "<NETWORK NONE>", "network error", "have been shut up", "connection reset",
                                      "receive error", "send error", "connection error", "unblock socket fail",
                                      "interrupted by signal", "connection have been shut up by the peer",
                                      "setsockopt failed" };

template <unsigned n> void expect_class(unsigned major, const char* const (&texts)[n])
{
    for (unsigned minor = 0; minor < n; ++minor)
        EXPECT_STREQ(texts[minor], get_err_info(code(0x80000000u | major << 16 | minor))) << major << " " << minor;
    for (unsigned minor : { n, n + 1, 0x7FFFu, 0xFFFFu })
        EXPECT_STREQ("<MINOR ERROR>", get_err_info(code(0x80000000u | major << 16 | minor))) << major << " " << minor;
}

TEST(status_codes, have_the_messages_of_their_class)
{
    expect_class(0, bug_texts);
    expect_class(1, panic_texts);
    expect_class(2, runtime_texts);
    expect_class(3, network_texts);
}

TEST(status_codes, without_a_message_give_a_marker)
{
    struct {
        unsigned code;
        const char* text;
    } const rows[] = {
        // Zero and above is success.
        { 0, "<OK>" },
        { 1, "<OK>" },
        { 0x7FFFFFFF, "<OK>" },
        // There are 16 classes.
        { 0x80100000, "<MAJOR ERROR>" },
        { 0x80100001, "<MAJOR ERROR>" },
        { 0xFFFF0000, "<MAJOR ERROR>" },
        { 0xFFFFFFFF, "<MAJOR ERROR>" },
        // Classes without a table.
        { 0x80040000, "<MAJOR NONE>" },
        { 0x80040001, "<MAJOR NONE>" },
        { 0x800F0000, "<MAJOR NONE>" },
        { 0x800FFFFF, "<MAJOR NONE>" },
        // Numbers past the table.
        { 0x8000000A, "<MINOR ERROR>" },
        { 0x80010004, "<MINOR ERROR>" },
        { 0x80020012, "<MINOR ERROR>" },
        { 0x8003000B, "<MINOR ERROR>" },
    };
    for (const auto& row : rows)
        EXPECT_STREQ(row.text, get_err_info(code(row.code))) << std::hex << row.code;
}

TEST(status_codes, have_names)
{
    struct {
        int name;
        unsigned code;
    } const rows[] = {
        { err::ok, 0 },
        { err::internal, 0x80000001 },
        { err::divide_zero, 0x80000002 },
        { err::not_initialized, 0x80000003 },
        { err::non_left_value, 0x80000004 },
        { err::non_right_value, 0x80000005 },
        { err::illegal_operator, 0x80000006 },
        { err::bad_argument, 0x80000007 },
        { err::overflow, 0x80000008 },
        { err::underflow, 0x80000009 },
        { err::overrun, 0x80010001 },
        { err::out_of_memory, 0x80010002 },
        { err::little_of_resource, 0x80010003 },
        { err::failed, 0x80020001 },
        { err::file_system, 0x80020002 },
        { err::execute_process, 0x80020003 },
        { err::not_exist, 0x80020004 },
        { err::syntax, 0x80020005 },
        { err::unexpected, 0x80020006 },
        { err::abnormal_end, 0x80020007 },
        { err::undefined_symbol, 0x80020008 },
        { err::duplicated_symbol, 0x80020009 },
        { err::conflict, 0x8002000A },
        { err::not_implemented, 0x8002000B },
        { err::timeout, 0x8002000C },
        { err::rejected, 0x8002000D },
        { err::invalid_parameter, 0x8002000E },
        { err::abnormal_cast, 0x8002000F },
        { err::exit, 0x80020010 },
        { err::unprepared, 0x80020011 },
        { err::network, 0x80030001 },
        { err::shut_up, 0x80030002 },
        { err::connection_reset, 0x80030003 },
        { err::receive, 0x80030004 },
        { err::send, 0x80030005 },
        { err::connection, 0x80030006 },
        { err::unblock, 0x80030007 },
        { err::interrupted, 0x80030008 },
        { err::shut_up_by_peer, 0x80030009 },
        { err::setsockopt, 0x8003000A },
    };
    for (const auto& row : rows)
        EXPECT_EQ(code(row.code), row.name) << std::hex << row.code;
}

TEST(status_codes, take_the_messages_a_program_registers)
{
    static const char* const own[] = { "<GAME NONE>", "lost" };
    set_err_info(4, own, 2);
    EXPECT_EQ(own[1], get_err_info(err::make(4, 1))) << "the registered text itself";
    EXPECT_STREQ("<GAME NONE>", get_err_info(err::make(4, 0)));
    EXPECT_STREQ("<MINOR ERROR>", get_err_info(err::make(4, 2)));
    set_err_info(15, own, 1);
    EXPECT_STREQ("<GAME NONE>", get_err_info(err::make(15, 0)));
    EXPECT_STREQ("<MINOR ERROR>", get_err_info(err::make(15, 1)));
    set_err_info(4, nullptr, 0);
    set_err_info(15, nullptr, 0);
    EXPECT_STREQ("<MAJOR NONE>", get_err_info(err::make(4, 1)));
    // The library's own classes can be replaced.
    set_err_info(2, own, 1);
    EXPECT_STREQ("<GAME NONE>", get_err_info(code(0x80020000)));
    for (unsigned minor = 1; minor < 18; ++minor)
        EXPECT_STREQ("<MINOR ERROR>", get_err_info(err::make(2, minor))) << minor;
    set_err_info(2, runtime_texts, 18);
    expect_class(2, runtime_texts);
}

TEST(status_codes, without_a_table_or_without_messages_in_it_give_a_marker)
{
    static const char* const own[] = { "<GAME NONE>" };
    set_err_info(5, own, 0);
    set_err_info(6, nullptr, 3);
    const std::string empty = get_err_info(err::make(5, 0));
    const std::string absent = get_err_info(err::make(6, 0));
    set_err_info(5, nullptr, 0);
    set_err_info(6, nullptr, 0);
    EXPECT_EQ("<MINOR ERROR>", empty);
    EXPECT_EQ("<MAJOR NONE>", absent);
}

TEST(xcpt, holds_a_code_and_borrows_its_text)
{
    const char text[] = "bitmap::operator|=";
    const xcpt e(err::out_of_memory, text);
    EXPECT_EQ(err::out_of_memory, e.get_err());
    EXPECT_EQ(text, e.what());
    xcpt copy(0, nullptr);
    EXPECT_EQ(nullptr, copy.what());
    copy = e;
    EXPECT_EQ(err::out_of_memory, copy.get_err());
    EXPECT_EQ(text, copy.what());
    static_assert(!std::is_polymorphic_v<xcpt>, "no virtual operations");
}

TEST(xcpt, crosses_the_library_and_is_caught_by_value)
{
    try {
        throw xcpt(err::failed, "thrown");
    } catch (xcpt e) {
        EXPECT_EQ(err::failed, e.get_err());
        EXPECT_STREQ("thrown", e.what());
    }
}

TEST(xrterror, formats_its_text_into_itself)
{
    const xrterror empty;
    EXPECT_EQ(0, empty.get_err());
    EXPECT_STREQ("", empty.what());
    const xrterror e(err::syntax, "line %d: %s", 7, "bad");
    EXPECT_EQ(err::syntax, e.get_err());
    EXPECT_STREQ("line 7: bad", e.what());
    const char* const begin = reinterpret_cast<const char*>(&e);
    EXPECT_TRUE(e.what() > begin && e.what() < begin + sizeof e);
}

TEST(xrterror, cuts_its_text_at_255_characters)
{
    for (std::size_t length : { 254u, 255u, 256u, 2000u }) {
        const std::string text(length, 'x');
        const xrterror e(err::failed, "%s", text.c_str());
        EXPECT_EQ(text.substr(0, 255), e.what()) << length;
    }
}

TEST(xrterror, copies_point_at_their_own_text)
{
    xrterror target;
    {
        const xrterror source(err::syntax, "gone soon");
        const xrterror copy(source);
        target = source;
        EXPECT_NE(source.what(), copy.what());
        EXPECT_STREQ("gone soon", copy.what());
        EXPECT_EQ(err::syntax, copy.get_err());
        EXPECT_NE(source.what(), target.what());
    }
    EXPECT_STREQ("gone soon", target.what());
    EXPECT_EQ(err::syntax, target.get_err());
    const xrterror& same = target;
    target = same;
    EXPECT_STREQ("gone soon", target.what());
    // Whatever text was borrowed in between.
    static_cast<xcpt&>(target) = xcpt(err::failed, "borrowed");
    EXPECT_STREQ("borrowed", target.what());
    target = xrterror(err::syntax, "gone soon");
    EXPECT_STREQ("gone soon", target.what());
    try {
        throw target;
    } catch (const xcpt& e) {
        EXPECT_STREQ("gone soon", e.what());
    }
}

// ---- calendar ----------------------------------------------------------------

TEST(calendar, gives_raw_fields_of_the_local_date)
{
    std::tm before;
    std::tm after;
    int year;
    int month;
    int day;
    // A day may end between two readings of the clock: once more then.
    do {
        std::time_t now = std::time(nullptr);
        before = *std::localtime(&now);
        gettime(&year, &month, &day);
        EXPECT_EQ(before.tm_year, getyear());
        EXPECT_EQ(before.tm_mon, getmonth());
        now = std::time(nullptr);
        after = *std::localtime(&now);
    } while (before.tm_mday != after.tm_mday);
    EXPECT_EQ(before.tm_year, year);
    EXPECT_EQ(before.tm_mon, month);
    EXPECT_EQ(before.tm_mday, day);
    EXPECT_EQ(before.tm_mday, getday());
    EXPECT_GE(year, 126) << "years count from 1900";
}

TEST(calendar, skips_null_pointers)
{
    int year = -1;
    int month = -1;
    int day = -1;
    gettime(&year, nullptr, nullptr);
    gettime(nullptr, &month, nullptr);
    gettime(nullptr, nullptr, &day);
    gettime(nullptr, nullptr, nullptr);
    EXPECT_TRUE(year > 0 && month >= 0 && month < 12 && day >= 1 && day <= 31);
}

std::string time_text(long t)
{
    char text[64];
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(text, print_time(text, static_cast<int>(sizeof text), t));
    return text;
}

TEST(print_time, shows_the_local_time)
{
    for (long t : { 0L, 1L, 951826553L, 1709210096L, 1767225599L, 2147483647L }) {
        const std::time_t seconds = t;
        char expected[64];
        std::strftime(expected, sizeof expected, "%Y-%m-%d, %H:%M:%S", std::localtime(&seconds));
        EXPECT_EQ(expected, time_text(t)) << t;
    }
}

// Days since 1970 in the proleptic Gregorian calendar, counted year by year.
long long seconds_of(const std::string& text)
{
    int year;
    int month;
    int day;
    int hour;
    int minute;
    int second;
    EXPECT_EQ(6, std::sscanf(text.c_str(), "%d-%d-%d, %d:%d:%d", &year, &month, &day, &hour, &minute, &second)) << text;
    const auto leap = [](int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; };
    const int lengths[] = { 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31 };
    long long days = day - 1;
    for (int y = year; y < 1970; ++y)
        days -= leap(y) ? 366 : 365;
    for (int y = 1970; y < year; ++y)
        days += leap(y) ? 366 : 365;
    for (int m = 0; m < month - 1; ++m)
        days += lengths[m] + (m == 1 && leap(year) ? 1 : 0);
    return ((days * 24 + hour) * 60 + minute) * 60 + second;
}

TEST(print_time, shows_times_before_1970)
{
    const long long zone = seconds_of(time_text(0));
    EXPECT_EQ(zone - 1, seconds_of(time_text(-1)));
    // Summer time and the zone's history can move the clock, but not by a day.
    for (long t : { -86400L, -1000000000L, -2147483647L })
        EXPECT_NEAR(static_cast<double>(zone + t), static_cast<double>(seconds_of(time_text(t))), 86399) << t;
}

TEST(print_time, is_empty_for_a_time_without_local_form)
{
    const long latest = sizeof(long) > 4 ? static_cast<long>(0x7FFFFFFFFFFFFFFFll) : 0x7FFFFFFFL;
    const bool representable = sizeof(long) == 4;
    EXPECT_EQ(representable, !time_text(latest).empty());
    EXPECT_EQ(representable, !time_text(-latest).empty());
}

TEST(print_time, writes_at_most_n_bytes)
{
    const std::string whole = time_text(1000000000);
    ASSERT_EQ(20u, whole.size());
    for (int n : { -1, 0, 1, 10, 19, 20, 21, 24 }) {
        char text[32];
        std::memset(text, '#', sizeof text);
        EXPECT_EQ(text, print_time(text, n, 1000000000));
        const std::size_t room = n > 0 ? static_cast<std::size_t>(n) : 0;
        std::string expected = whole.substr(0, room);
        // Terminated only where it is shorter than n.
        if (room > whole.size())
            expected += '\0';
        expected.resize(sizeof text, '#');
        EXPECT_EQ(expected, std::string(text, sizeof text)) << n;
    }
}

// What stands in the first 24 bytes, behind which nothing may be written.
template <class PRINT> std::string first_24(const PRINT& print)
{
    char room[64];
    std::memset(room, '#', sizeof room);
    EXPECT_EQ(room, print(room));
    EXPECT_EQ(std::string(40, '#'), std::string(room + 24, 40));
    return std::string(room, 24);
}

TEST(print_time, takes_24_bytes_by_default)
{
    char text[24];
    EXPECT_EQ(text, print_time(text, 1000000000));
    EXPECT_EQ(time_text(1000000000), text);
    if (sizeof(long) == 4)
        return; // no time needs more
    const long late = static_cast<long>(67767976200000000ll);
    const std::string whole = time_text(late);
    ASSERT_EQ(0u, whole.find("2147483646-12-")) << whole;
    EXPECT_EQ(whole.substr(0, 24), first_24([late](char* to) { return print_time(to, late); }));
}

TEST(print_time_span, counts_days_hours_minutes_and_seconds)
{
    struct {
        long seconds;
        const char* text;
    } const rows[] = {
        { 0, "0d0h0m0s" },
        { 59, "0d0h0m59s" },
        { 60, "0d0h1m0s" },
        { 3599, "0d0h59m59s" },
        { 3600, "0d1h0m0s" },
        { 86399, "0d23h59m59s" },
        { 86400, "1d0h0m0s" },
        { 90061, "1d1h1m1s" },
        { 2147483647, "24855d3h14m7s" },
        { -1, "0d0h0m-1s" },
        { -90061, "-1d-1h-1m-1s" },
        { -2147483647, "-24855d-3h-14m-7s" },
    };
    for (const auto& row : rows) {
        char text[24];
        EXPECT_EQ(text, print_time_span(text, row.seconds));
        EXPECT_STREQ(row.text, text);
    }
    if (sizeof(long) > 4) {
        char text[64];
        const long longest = static_cast<long>(0x7FFFFFFFFFFFFFFFll);
        print_time_span(text, 64, longest);
        EXPECT_STREQ("106751991167300d15h30m7s", text);
        // The usual 24 bytes hold it without a terminator.
        EXPECT_EQ("106751991167300d15h30m7s", first_24([longest](char* to) { return print_time_span(to, longest); }));
    }
}

TEST(print_time_span, writes_at_most_n_bytes)
{
    for (int n : { -5, 0, 1, 7, 8, 9, 12 }) {
        char text[16];
        std::memset(text, '#', sizeof text);
        EXPECT_EQ(text, print_time_span(text, n, 90061));
        const std::size_t room = n > 0 ? static_cast<std::size_t>(n) : 0;
        std::string expected = std::string("1d1h1m1s").substr(0, room);
        if (room > 8)
            expected += '\0';
        expected.resize(sizeof text, '#');
        EXPECT_EQ(expected, std::string(text, sizeof text)) << n;
    }
}

// ---- versions ------------------------------------------------------------------

TEST(version, is_packed_into_one_int)
{
    const version v(1, 2, 3);
    EXPECT_EQ(0x01020003, v.get_ver());
    EXPECT_EQ(0x01020003, static_cast<int>(v));
    EXPECT_EQ(1, v.get_major());
    EXPECT_EQ(2, v.get_minor());
    EXPECT_EQ(3, v.get_micro());
    EXPECT_TRUE(v.is_beta());
    EXPECT_FALSE(version(1, 2, 4).is_beta());
    // Each part is cut to its width.
    const version cut(0x1FF, 0x1FE, 0x1FFFD);
    EXPECT_EQ(code(0xFFFEFFFD), cut.get_ver());
    EXPECT_EQ(255, cut.get_major());
    EXPECT_EQ(254, cut.get_minor());
    EXPECT_EQ(65533, cut.get_micro());
    EXPECT_EQ(code(0xFFFFFFFF), version(-1, -1, -1).get_ver());
}

TEST(version, keeps_an_int_as_it_is)
{
    version v(code(0xFEDCBA98));
    EXPECT_EQ(code(0xFEDCBA98), v.get_ver());
    EXPECT_EQ(0xFE, v.get_major());
    EXPECT_EQ(0xDC, v.get_minor());
    EXPECT_EQ(0xBA98, v.get_micro());
    v = 0x01000002;
    EXPECT_EQ(0x01000002, v.get_ver());
    const version other(3, 4, 5);
    v = other;
    EXPECT_EQ(0x03040005, v.get_ver());
}

TEST(read_ver, reads_three_numbers)
{
    struct {
        const char* text;
        unsigned packed;
    } const rows[] = {
        { "2.10.7", 0x020A0007 },
        { "0.0.0", 0 },
        { "255.255.65535", 0xFFFFFFFF },
        // Only the low bits of a part are kept.
        { "300.1.1", 0x2C010001 },
        { "1.256.65536", 0x01000000 },
        { "4294967297.1.1", 0x01010001 },
        // White space and a sign may stand before each number, as for %u.
        { " 1. 2.\t3", 0x01020003 },
        { "+1.+2.+3", 0x01020003 },
        { "-1.0.0", 0xFF000000 },
        // What follows does not matter.
        { "1.2.3x", 0x01020003 },
        { "1.2.3.4", 0x01020003 },
        // Fewer than three numbers are no version.
        { "2.10", 0 },
        { "2.10.", 0 },
        { "2", 0 },
        { "", 0 },
        { ".1.2", 0 },
        { "1..2", 0 },
        { "1 .2.3", 0 },
        { "a.b.c", 0 },
    };
    for (const auto& row : rows)
        EXPECT_EQ(code(row.packed), read_ver(row.text)) << row.text;
}

TEST(format_ver, writes_what_read_ver_reads)
{
    struct {
        unsigned packed;
        const char* text;
    } const rows[] = {
        { 0, "0.0.0" },
        { 0x020A0007, "2.10.7" },
        { 0xFFFFFFFF, "255.255.65535" },
        { 0x80000000, "128.0.0" },
    };
    for (const auto& row : rows) {
        char text[14];
        EXPECT_EQ(text, format_ver(text, code(row.packed)));
        EXPECT_STREQ(row.text, text);
        EXPECT_EQ(code(row.packed), read_ver(text));
    }
}

TEST(read_value_of_a_version, needs_three_numbers_and_nothing_else)
{
    struct {
        const char* text;
        unsigned packed;
        int stop;
    } const rows[] = {
        { "1.2.3", 0x01020003, 5 },
        { "300.1.1", 0x2C010001, 7 },
        { " +1.-1.65537", 0x01FF0001, 12 },
        { "4294967298.0.0", 0x02000000, 14 },
        // Anything behind it leaves 0 and is where parsing stopped.
        { "1.2.3x", 0, 5 },
        { "1.2.3.", 0, 5 },
        { "1.2.3 ", 0, 5 },
        { "1.2", 0, 3 },
        { "1", 0, 1 },
        // A part without digits ends parsing behind the last digit.
        { "1..3", 0, 1 },
        { "1.2.", 0, 3 },
        { "1.2.x", 0, 3 },
        { "1.-", 0, 1 },
        { "1 .2.3", 0, 1 },
        { "", 0, 0 },
        { "x", 0, 0 },
        { " x", 0, 0 },
    };
    for (const auto& row : rows) {
        version v(7);
        EXPECT_EQ(row.text + row.stop, str::read_value(row.text, v)) << row.text;
        EXPECT_EQ(code(row.packed), v.get_ver()) << row.text;
    }
}

} // namespace
