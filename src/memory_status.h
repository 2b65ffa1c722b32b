// Exhausted memory as a status code.
#ifndef STDKRO_SRC_MEMORY_STATUS_H
#define STDKRO_SRC_MEMORY_STATUS_H

#include <stdkro/xcpt.h>

#include <new>

/// Calls `action` and returns its status. Exhausted memory, which the containers throw as
/// an `xrterror` and others as std::bad_alloc, becomes `err::out_of_memory`; all else that
/// is thrown passes through.
template <class action_t> int memory_status(action_t&& action)
{
    try {
        return action();
    } catch (const std::bad_alloc&) {
        return err::out_of_memory;
    } catch (const xrterror& e) {
        if (e.get_err() != err::out_of_memory)
            throw;
        return err::out_of_memory;
    }
}

#endif
