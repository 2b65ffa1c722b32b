// The stopwatch.
#include <stdkro/thread.h>

#include "platform.h"

timer::timer() : start_(current()), frequency_(get_freq()) {}

double timer::spend_reset()
{
    const double now = current();
    const double span = span_to(now);
    start_ = now;
    return span;
}

double timer::current() { return sys_ticks(); }

double timer::get_freq() { return sys_ticks_per_second(); }
