// Time limits: computed in 64 bits, clamped to what the platform door takes.
#include "time_limit.h"

#include "platform.h"

#include <algorithm>
#include <stdkro/platform_types.h>

unsigned limit_in_ms(const timeval* limit, microsecond_unit unit)
{
    if (!limit)
        return sys_no_limit;
    // More than any limit, less than what overflows.
    constexpr long long ages = 1LL << 40;
    const long long seconds = std::clamp<long long>(limit->tv_sec, -ages, ages);
    const long long rest = std::clamp<long long>(limit->tv_usec, -ages * 1000, ages * 1000);
    return static_cast<unsigned>(std::clamp<long long>(seconds * 1000 + rest / unit, 0, sys_no_limit - 1));
}
