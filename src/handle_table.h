// Handles that stay safe after they were closed.
#ifndef STDKRO_SRC_HANDLE_TABLE_H
#define STDKRO_SRC_HANDLE_TABLE_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>

/// Objects behind opaque handles. A handle is the address of a slot with a serial
/// number in the lower bits, which its alignment leaves free: one that was closed,
/// or closed twice, is told from the ones given out since, up to 255 of them. Slots
/// are never freed, so that looking one up takes no lock and reads no foreign
/// memory. A table stands in static storage.
template <class T> class handle_table {
public:
    /// A handle for `value`, or null without memory.
    void* add(const T& value)
    {
        const std::lock_guard<std::mutex> guard(lock_);
        slot* s = take_slot();
        if (!s)
            return nullptr;
        s->value = value;
        s->serial = (s->serial + 1) % alignment;
        void* handle = reinterpret_cast<char*>(s) + s->serial;
        s->handle.store(handle, std::memory_order_release);
        return handle;
    }

    /// Null for null and for a handle that was closed.
    T* find(void* handle)
    {
        slot* s = slot_of(handle);
        return s && s->handle.load(std::memory_order_acquire) == handle ? &s->value : nullptr;
    }

    /// Closes a handle and gives what stood behind it. False when it is not open.
    bool remove(void* handle, T* value)
    {
        const std::lock_guard<std::mutex> guard(lock_);
        slot* s = slot_of(handle);
        if (!s || s->handle.load(std::memory_order_relaxed) != handle)
            return false;
        *value = s->value;
        s->handle.store(nullptr, std::memory_order_release);
        s->next_free = free_;
        free_ = s;
        return true;
    }

private:
    static constexpr unsigned alignment = 256;

    struct alignas(alignment) slot {
        std::atomic<void*> handle { nullptr };
        unsigned serial = 0;
        slot* next_free = nullptr;
        slot* next_made = nullptr;
        T value {};
    };

    static slot* slot_of(void* handle)
    {
        const std::uintptr_t serial_bits = alignment - 1;
        return reinterpret_cast<slot*>(reinterpret_cast<std::uintptr_t>(handle) & ~serial_bits);
    }

    slot* take_slot()
    {
        slot* s = free_;
        if (s) {
            free_ = s->next_free;
            return s;
        }
        s = new (std::nothrow) slot;
        if (s) {
            s->next_made = made_;
            made_ = s;
        }
        return s;
    }

    std::mutex lock_;
    slot* free_ = nullptr;
    slot* made_ = nullptr; // all slots: handles alone do not count as their owners
};

#endif
