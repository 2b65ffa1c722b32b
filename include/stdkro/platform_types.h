// The three system types that public interfaces use, `timeval`, `in_addr` and
// `sockaddr_in`, taken from the platform, and the descriptor set that is the
// same everywhere.
//
// Headers that only name one of them forward-declare it instead: the Windows
// header behind this one brings many macros.
#ifndef STDKRO_PLATFORM_TYPES_H
#define STDKRO_PLATFORM_TYPES_H

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
#else
#include <netinet/in.h>
#include <sys/time.h>
#endif

/// A set of socket handles, in order: the first `fd_count` entries of `fd_array`.
/// Any handle fits, also one above 1,023.
struct sock_fd_set {
    unsigned fd_count;
    unsigned fd_array[1024];
};

#endif
