// Tells which socket handles were seen before, without an allocation.
//
// Open addressing over twice the entries that a descriptor set can hold. Handles
// are mostly small and consecutive, so the handle itself is a good hash.
#ifndef STDKRO_SRC_HANDLE_FILTER_H
#define STDKRO_SRC_HANDLE_FILTER_H

#include <cstring>

class handle_filter {
public:
    handle_filter() { std::memset(slots_, 0xFF, sizeof slots_); }

    /// True the first time `h` is asked for. At most 1,024 different handles; all
    /// ones is never new.
    bool is_new(unsigned h)
    {
        unsigned i = h % slot_count;
        while (slots_[i] != free_slot && slots_[i] != h)
            i = (i + 1) % slot_count;
        const bool is_first = slots_[i] != h;
        slots_[i] = h;
        return is_first;
    }

private:
    static constexpr unsigned slot_count = 2048;
    static constexpr unsigned free_slot = 0xFFFFFFFFu;
    unsigned slots_[slot_count];
};

#endif
