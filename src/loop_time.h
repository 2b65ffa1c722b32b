// The time limit of a wait as `poller` and `epoller` pass it on: through whole
// milliseconds, rounded up.
#ifndef STDKRO_SRC_LOOP_TIME_H
#define STDKRO_SRC_LOOP_TIME_H

#include <stdkro/platform_types.h>

/// How many microseconds a millisecond below a full second counts as.
enum fraction_unit { microseconds_of_fraction = 1000, one_microsecond = 1 };

class loop_time {
public:
    loop_time(const timeval* given, fraction_unit unit) : is_limited_(given != nullptr), limit_()
    {
        if (!given || given->tv_sec < 0 || given->tv_usec < 0)
            return;
        const long long longest = 0x7FFFFFFE;
        long long ms = longest;
        if (given->tv_sec <= longest / 1000 && given->tv_usec / 1000 <= longest)
            ms = static_cast<long long>(given->tv_sec) * 1000 + (given->tv_usec + 999LL) / 1000;
        if (ms > longest)
            ms = longest;
        limit_.tv_sec = static_cast<long>(ms / 1000);
        limit_.tv_usec = static_cast<long>(ms % 1000) * unit;
    }

    /// Null for no limit.
    const timeval* limit() const { return is_limited_ ? &limit_ : nullptr; }

private:
    bool is_limited_;
    timeval limit_;
};

#endif
