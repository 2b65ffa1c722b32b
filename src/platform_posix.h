// What the files of the POSIX door share.
#ifndef STDKRO_SRC_PLATFORM_POSIX_H
#define STDKRO_SRC_PLATFORM_POSIX_H

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace posix {

/// Repeats a system call until no signal interrupts it.
template <class call> auto uninterrupted(call f)
{
    for (;;) {
        const auto result = f();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

/// Keep the error that sys_last_error gives this thread, and return -1.
int fail_with(int error);
int fail(); // errno

/// Of a thread or a process.
constexpr unsigned most_suspensions = 127;

inline void* handle_of(int id) { return reinterpret_cast<void*>(static_cast<std::intptr_t>(id)); }
inline int descriptor_of(unsigned h) { return static_cast<int>(h); }

/// How often sockets were closed, all and those of a descriptor and a few others: a list that the
/// kernel keeps (sys_ready_list) sees by them which of its descriptors may have become another.
extern std::atomic<unsigned> all_closings;
extern std::atomic<unsigned> closings_by_descriptor[4096];

inline std::atomic<unsigned>& closings_of(int fd) { return closings_by_descriptor[static_cast<unsigned>(fd) % 4096]; }

} // namespace posix

#endif
