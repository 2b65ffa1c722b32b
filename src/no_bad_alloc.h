// The standard library's way to say that memory ran out, in the library's own.
#ifndef STDKRO_SRC_NO_BAD_ALLOC_H
#define STDKRO_SRC_NO_BAD_ALLOC_H

#include <stdkro/xcpt.h>

#include <new>

/// Calls `action`; a std::bad_alloc becomes an `xcpt` with `where` as its text.
template <class action_t> auto no_bad_alloc(const char* where, action_t&& action)
{
    try {
        return action();
    } catch (const std::bad_alloc&) {
        throw xcpt(err::out_of_memory, where);
    }
}

#endif
