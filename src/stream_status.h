// Writing to a stream, as a status code.
#ifndef STDKRO_SRC_STREAM_STATUS_H
#define STDKRO_SRC_STREAM_STATUS_H

#include <stdkro/xcpt.h>

#include "memory_status.h"

/// Calls `write`, which tells whether the stream took everything. A stream that was told to
/// throw lets pass whatever its buffer throws: that becomes a status code too.
template <class write_t> int stream_status(write_t&& write)
{
    try {
        return memory_status([&] { return write() ? err::ok : err::file_system; });
    } catch (...) {
        return err::file_system;
    }
}

#endif
