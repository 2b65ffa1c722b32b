// What a loop's time limit becomes before the system gets it.
#include "loop_time.h"
#include "platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using seconds_t = decltype(timeval::tv_sec);
using fraction_t = decltype(timeval::tv_usec);

void expect_limit(const timeval& given, fraction_unit unit, long seconds, long fraction)
{
    const loop_time time(&given, unit);
    ASSERT_NE(nullptr, time.limit());
    EXPECT_EQ(seconds, time.limit()->tv_sec) << given.tv_sec << ' ' << given.tv_usec;
    EXPECT_EQ(fraction, time.limit()->tv_usec) << given.tv_sec << ' ' << given.tv_usec;
}

} // namespace

TEST(loop_time, none_stays_none) { EXPECT_EQ(nullptr, loop_time(nullptr, one_microsecond).limit()); }

TEST(loop_time, is_rounded_up_to_milliseconds_and_bounded)
{
    static const struct {
        long long seconds, microseconds;
        long milliseconds;
    } rows[] = {
        { 0, 0, 0 },
        { 0, 1, 1 },
        { 0, 1000, 1 },
        { 0, 1001, 2 },
        { 0, 999999, 1000 },
        { 3, 999000, 3999 },
        { 1, 2500000, 3500 }, // more than a second of microseconds counts
        { -1, 0, 0 },         // a negative limit is none at all
        { 1, -1, 0 },
        { 2147483, 646000, 0x7FFFFFFE }, // the longest
        { 2147483, 646001, 0x7FFFFFFE },
        { 2147483, 999999, 0x7FFFFFFE },
        { 2147484, 0, 0x7FFFFFFE },
        { 2147483647, 0, 0x7FFFFFFE },
        { 2147483647, 2147483647, 0x7FFFFFFE },
    };
    for (const auto& row : rows) {
        const timeval given = { static_cast<seconds_t>(row.seconds), static_cast<fraction_t>(row.microseconds) };
        const long seconds = row.milliseconds / 1000;
        const long rest = row.milliseconds % 1000;
        expect_limit(given, one_microsecond, seconds, rest);
        expect_limit(given, microseconds_of_fraction, seconds, rest * 1000);
    }
}

// As many milliseconds as there are numbers of 32 bits: none, for who counts in these.
TEST(a_sleep_without_a_waker, is_not_over_early_however_long)
{
    static std::atomic<bool> is_over { false };
    std::thread([] {
        const timeval long_time = { 4294967, 296000 };
        sys_waker_sleep(sys_no_socket, &long_time);
        is_over = true;
    }).detach(); // the end of the program ends it
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(is_over);
}
