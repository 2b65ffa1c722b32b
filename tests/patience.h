// Waiting for what other threads and processes do.
#ifndef STDKRO_TESTS_PATIENCE_H
#define STDKRO_TESTS_PATIENCE_H

#include <chrono>
#include <stdkro/thread.h>
#include <thread>

/// Lets others run. Under ThreadSanitizer also the signal that stops a busy thread is
/// delivered here.
inline void breathe()
{
#if defined(__SANITIZE_THREAD__)
    std::this_thread::sleep_for(std::chrono::microseconds(50));
#else
    std::this_thread::yield();
#endif
}

/// Whether `condition` comes true within half a minute.
template <class F> bool eventually(F condition)
{
    timer t;
    while (!condition()) {
        if (t.spend() > 30000)
            return false;
        breathe();
    }
    return true;
}

#endif
