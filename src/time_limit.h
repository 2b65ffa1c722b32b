// Time limits as the platform door takes them.
#ifndef STDKRO_SRC_TIME_LIMIT_H
#define STDKRO_SRC_TIME_LIMIT_H

struct timeval;

/// Microseconds of one millisecond: what the microseconds of a limit are
/// divided by. Semaphores and `thread::wait_all_done` count them as they are.
enum microsecond_unit { as_microseconds = 1000, as_milliseconds = 1 };

/// Milliseconds of `limit`, at least 0 and at most 49 days; `sys_no_limit` for null.
unsigned limit_in_ms(const timeval* limit, microsecond_unit unit);

#endif
