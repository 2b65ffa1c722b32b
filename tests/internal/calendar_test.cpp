// Calendar time beneath its texts: the platform's local time, also where it has none.
#include "platform.h"

#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

namespace {

bool no_local_time = false;

} // namespace

extern "C" {

bool __real_sys_local_time(long long t, sys_date* date);
bool __wrap_sys_local_time(long long t, sys_date* date);

bool __wrap_sys_local_time(long long t, sys_date* date)
{
    return !no_local_time && __real_sys_local_time(t, date);
}

} // extern "C"

namespace {

long long day_number(const sys_date& d)
{
    // Months from March on, so that the leap day is the last of its year.
    const long long month = (d.month + 10) % 12;
    const long long year = d.year + 1900LL - (month >= 10 ? 1 : 0);
    return year * 365 + year / 4 - year / 100 + year / 400 + (month * 306 + 5) / 10 + d.day - 1;
}

TEST(local_time, follows_the_calendar_before_and_after_1970)
{
    sys_date first;
    ASSERT_TRUE(__real_sys_local_time(0, &first));
    for (long long day = -30000; day <= 30000; ++day) {
        sys_date date;
        ASSERT_TRUE(__real_sys_local_time(day * 86400, &date)) << day;
        // A zone may move its clock, at most by a day.
        ASSERT_NEAR(static_cast<double>(day_number(first) + day), static_cast<double>(day_number(date)), 1) << day;
        ASSERT_TRUE(date.month >= 0 && date.month < 12 && date.day >= 1 && date.day <= 31) << day;
        ASSERT_TRUE(date.hour >= 0 && date.hour < 24 && date.minute >= 0 && date.minute < 60) << day;
    }
}

TEST(local_time, is_refused_where_the_calendar_ends)
{
    sys_date date;
    EXPECT_FALSE(__real_sys_local_time(0x7FFFFFFFFFFFFFFFLL, &date));
    EXPECT_FALSE(__real_sys_local_time(-0x7FFFFFFFFFFFFFFFLL, &date));
}

TEST(texts, are_empty_without_a_local_time)
{
    no_local_time = true;
    char text[24] = "###";
    EXPECT_EQ(text, print_time(text, 0));
    EXPECT_STREQ("", text);
    EXPECT_EQ(0, getyear());
    EXPECT_EQ(0, getmonth());
    EXPECT_EQ(0, getday());
    no_local_time = false;
}

} // namespace
