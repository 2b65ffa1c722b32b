// Sleeping until a word changes, which locks and threads stand on.
#ifndef STDKRO_SRC_PLATFORM_POSIX_FUTEX_H
#define STDKRO_SRC_PLATFORM_POSIX_FUTEX_H

#include "platform.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <limits>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace posix {

// What sleepers look at: they enter the kernel only when the word holds what
// they saw.
using futex_word = std::atomic<unsigned>;
enum futex_scope { this_process = FUTEX_PRIVATE_FLAG, all_processes = 0 };

// A moment on the monotonic clock, or one that never comes. Waits begun anew
// after an interruption keep it.
class deadline {
public:
    explicit deadline(unsigned limit)
    {
        if (limit == sys_no_limit)
            return;
        clock_gettime(CLOCK_MONOTONIC, &at_);
        at_.tv_sec += limit / 1000;
        at_.tv_nsec += limit % 1000 * 1000000L;
        if (at_.tv_nsec >= 1000000000) {
            at_.tv_nsec -= 1000000000;
            ++at_.tv_sec;
        }
    }
    // Never null: a wait without any deadline would be begun again by the kernel
    // itself after a signal, and never look at the gate.
    const timespec* get() const { return &at_; }

private:
    timespec at_ { std::numeric_limits<time_t>::max(), 0 };
};

// 0 or the error. Sleeps for no reason may end.
inline int futex_sleep(futex_word& word, unsigned seen, const deadline& until, futex_scope scope = this_process)
{
    const long r = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET | scope, seen, until.get(), nullptr,
                           FUTEX_BITSET_MATCH_ANY);
    return r == 0 ? 0 : errno;
}

// Where a thread stops that was suspended or killed.
void look_at_gate();

// False when the deadline passed. May return for no reason. A thread that is to
// be stopped stops in here at the latest.
inline bool futex_wait(futex_word& word, unsigned seen, const deadline& until, futex_scope scope = this_process)
{
    const int error = futex_sleep(word, seen, until, scope);
    if (error == EINTR)
        look_at_gate();
    return error != ETIMEDOUT;
}

inline void futex_wait(futex_word& word, unsigned seen) { futex_wait(word, seen, deadline(sys_no_limit)); }

// While it lives, the thread sleeps on a word whose sleepers are woken one at a time. Stopped
// meanwhile, it may have been the one: at the gate it wakes another.
class one_of_many {
public:
    one_of_many(futex_word& word, futex_scope scope);
    one_of_many(const one_of_many&) = delete;
    one_of_many& operator=(const one_of_many&) = delete;
    ~one_of_many();
};

constexpr int all_sleepers = INT_MAX;
[[gnu::noinline]] inline void futex_wake(futex_word& word, int sleepers, futex_scope scope = this_process)
{
    syscall(SYS_futex, &word, FUTEX_WAKE | scope, sleepers, nullptr, nullptr, 0);
}

} // namespace posix

#endif
