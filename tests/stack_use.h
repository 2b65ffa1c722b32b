// How much stack a parser takes, told by callbacks at its various depths.
#ifndef STDKRO_TESTS_STACK_USE_H
#define STDKRO_TESTS_STACK_USE_H

#include <algorithm>
#include <cstdint>

class stack_use {
public:
    /// Notes how deep the stack is here.
    void remember()
    {
        char here = 0;
        const char* const volatile place = &here;
        lowest_ = std::min(lowest_, reinterpret_cast<std::uintptr_t>(place));
        highest_ = std::max(highest_, reinterpret_cast<std::uintptr_t>(place));
    }
    /// Bytes between the outermost place and the innermost.
    std::uintptr_t bytes() const { return highest_ - lowest_; }

private:
    std::uintptr_t lowest_ = UINTPTR_MAX;
    std::uintptr_t highest_ = 0;
};

// The sanitizer surrounds every variable with guards.
#if defined(__SANITIZE_ADDRESS__)
constexpr unsigned allowed_stack = 1024 * 1024;
#else
constexpr unsigned allowed_stack = 512 * 1024;
#endif

#endif
