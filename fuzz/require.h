// What a target demands: where it does not hold, the target says so and aborts.
#ifndef STDKRO_FUZZ_REQUIRE_H
#define STDKRO_FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

inline void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "not so: %s\n", what);
    std::abort();
}

inline void require_at(bool holds, const char* what, const char* file, int line)
{
    if (holds)
        return;
    std::fprintf(stderr, "%s:%d: not so: %s\n", file, line, what);
    std::abort();
}

#define CHECK(...) require_at(static_cast<bool>(__VA_ARGS__), #__VA_ARGS__, __FILE__, __LINE__)

#endif
