// Calendar time and durations as text.
#include <stdkro/xcpt.h>

#include "platform.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr int usual_size = 24;

sys_date today()
{
    sys_date date = {};
    sys_local_time(std::time(nullptr), &date);
    return date;
}

// Copies at most `n` bytes of a text; it is terminated only where it is shorter.
char* deliver(char* dst, int n, const char* text)
{
    if (n <= 0)
        return dst;
    const auto room = static_cast<std::size_t>(n);
    const std::size_t size = std::strlen(text) + 1;
    std::memcpy(dst, text, size < room ? size : room);
    return dst;
}

} // namespace

void gettime(int* year, int* month, int* day)
{
    const sys_date date = today();
    if (year)
        *year = date.year;
    if (month)
        *month = date.month;
    if (day)
        *day = date.day;
}

// KEEP: the fields are raw, years from 1900 and months from 0; callers add what they need.
int getyear() { return today().year; }
int getmonth() { return today().month; }
int getday() { return today().day; }

char* print_time(char* dst, int n, long t)
{
    char text[64] = "";
    sys_date date;
    if (sys_local_time(t, &date))
        std::snprintf(text, sizeof text, "%04lld-%02d-%02d, %02d:%02d:%02d", date.year + 1900LL, date.month + 1,
                      date.day, date.hour, date.minute, date.second);
    return deliver(dst, n, text);
}

char* print_time(char* dst, long t) { return print_time(dst, usual_size, t); }

char* print_time_span(char* dst, int n, long seconds)
{
    char text[64];
    const long minutes = seconds / 60;
    const long hours = minutes / 60;
    std::snprintf(text, sizeof text, "%ldd%ldh%ldm%lds", hours / 24, hours % 24, minutes % 60, seconds % 60);
    return deliver(dst, n, text);
}

char* print_time_span(char* dst, long seconds) { return print_time_span(dst, usual_size, seconds); }
