// Where a virtual function stands in the table of its class: programs that were built
// against a class rely on it.
#ifndef STDKRO_TESTS_VIRTUAL_SLOT_H
#define STDKRO_TESTS_VIRTUAL_SLOT_H

#include <cstdint>
#include <cstring>

/// The entry, counted from 0, as the C++ ABI of both platforms notes it in a pointer to
/// a virtual member function. A virtual destructor takes two entries.
template <class function> unsigned slot_of(function member)
{
    std::uintptr_t word = 0;
    std::memcpy(&word, &member, sizeof word);
    return static_cast<unsigned>((word - 1) / sizeof(void*));
}

#endif
