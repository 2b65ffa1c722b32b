// Makes calls of the system end as if a signal had interrupted them. The replacements of a
// program, listed in its NAME_test.wrap, ask `is_interrupted`.
#ifndef STDKRO_TESTS_INTERRUPTIONS_H
#define STDKRO_TESTS_INTERRUPTIONS_H

#include <atomic>
#include <cerrno>

/// How many of the next calls end so.
inline std::atomic<int> interruptions { 0 };

/// Counts a call; true, with EINTR, when it ends so.
inline bool is_interrupted()
{
    if (interruptions == 0)
        return false;
    --interruptions;
    errno = EINTR;
    return true;
}

#endif
