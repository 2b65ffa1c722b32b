// The ring queue, and the memory of the containers.
#ifndef STDKRO_CYCQUE_H
#define STDKRO_CYCQUE_H

#include <stdkro/config.h>
#include <stdkro/xcpt.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>

/// Where the containers get their memory. Exhausted memory is an `xrterror`
/// with `err::out_of_memory`, never a `std::bad_alloc`.
namespace container_memory {

inline void* take(std::size_t bytes)
{
    void* block = std::malloc(bytes);
    if (block == nullptr)
        throw xrterror(err::out_of_memory, "out of memory");
    return block;
}

/// Room for `count` items of `item_size` bytes.
inline void* take_array(std::size_t count, std::size_t item_size)
{
    if (count > static_cast<std::size_t>(-1) / 2 / item_size)
        throw xrterror(err::out_of_memory, "out of memory");
    return take(count * item_size);
}

inline void give(void* block) { std::free(block); }

} // namespace container_memory

/// A double-ended queue of values in a ring that grows by doubling.
/// Growing moves the items: a reference to one lasts until the next push.
template <class T>
class cycque {
public:
    cycque() = default;
    cycque(const cycque& other)
    {
        try {
            append_all(other);
        } catch (...) {
            release(); // the destructor of an unfinished object never runs
            throw;
        }
    }
    cycque(cycque&& other) noexcept { swap(other); }
    ~cycque() { release(); }

    cycque& operator=(const cycque& other)
    {
        if (this != &other) {
            cycque copy(other);
            swap(copy);
        }
        return *this;
    }
    cycque& operator=(cycque&& other) noexcept
    {
        swap(other);
        return *this;
    }

    /// Adds at the end. The argument may be an item of this queue. Should
    /// copying throw, the queue stays as it was.
    void push_back(const T& item) { add_back(item); }
    void push_back(T&& item) { add_back(std::move(item)); }
    /// Adds in front, in the same way.
    void push_front(const T& item) { add_front(item); }
    void push_front(T&& item) { add_front(std::move(item)); }

    /// Removes the first item; false when there is none.
    bool pop_front()
    {
        if (count_ == 0)
            return false;
        slot(0)->~T();
        first_ = (first_ + 1) & (size_ - 1);
        --count_;
        return true;
    }
    /// Removes the last item; false when there is none.
    bool pop_back()
    {
        if (count_ == 0)
            return false;
        --count_;
        slot(count_)->~T();
        return true;
    }

    /// The first and the last item. The queue must not be empty.
    T& front() { return *slot(0); }
    const T& front() const { return *slot(0); }
    T& back() { return *slot(count_ - 1); }
    const T& back() const { return *slot(count_ - 1); }

    /// The item `i` places behind the first. `i` must be below `count()`.
    T& operator[](unsigned i) { return *slot(i); }
    const T& operator[](unsigned i) const { return *slot(i); }

    unsigned count() const { return count_; }
    bool isempty() const { return count_ == 0; }

    /// Removes all items and keeps the memory for the next ones.
    void clear()
    {
        for (unsigned i = 0; i < count_; ++i)
            slot(i)->~T();
        first_ = 0;
        count_ = 0;
    }

    void swap(cycque& other) noexcept
    {
        std::swap(ring_, other.ring_);
        std::swap(size_, other.size_);
        std::swap(first_, other.first_);
        std::swap(count_, other.count_);
    }

private:
    // size_ is 0 or a power of two, so that a mask wraps positions.
    T* slot(unsigned i) { return ring_ + ((first_ + i) & (size_ - 1)); }
    const T* slot(unsigned i) const { return ring_ + ((first_ + i) & (size_ - 1)); }

    template <class ITEM>
    void add_back(ITEM&& item)
    {
        if (count_ == size_)
            grow(std::forward<ITEM>(item), count_);
        else
            new (slot(count_)) T(std::forward<ITEM>(item));
        ++count_;
    }
    template <class ITEM>
    void add_front(ITEM&& item)
    {
        if (count_ == size_)
            grow(std::forward<ITEM>(item), larger_size() - 1);
        else
            new (slot(size_ - 1)) T(std::forward<ITEM>(item));
        first_ = (first_ + size_ - 1) & (size_ - 1);
        ++count_;
    }

    unsigned larger_size() const { return size_ == 0 ? 8 : size_ * 2; }

    // Gives back a ring, whose items are gone or were never made.
    struct ring_memory {
        T* ring;
        ~ring_memory() { container_memory::give(ring); }
    };

    // A larger ring with `item` in slot `place`, and the items there are from slot 0 on.
    // `item` goes first: it may be one of them.
    template <class ITEM>
    void grow(ITEM&& item, unsigned place)
    {
        const unsigned size = larger_size();
        if (size == 0)
            throw xrterror(err::out_of_memory, "out of memory");
        ring_memory other { static_cast<T*>(container_memory::take_array(size, sizeof(T))) };
        new (other.ring + place) T(std::forward<ITEM>(item));
        move_items(other.ring, other.ring + place);
        std::swap(ring_, other.ring);
        size_ = size;
        first_ = 0;
    }

    // Moves all items to `to`. Should that throw, they stay, and `added` goes.
    void move_items(T* to, T* added)
    {
        if constexpr (std::is_nothrow_move_constructible<T>::value) {
            for (unsigned i = 0; i < count_; ++i) {
                new (to + i) T(std::move(*slot(i)));
                slot(i)->~T();
            }
        } else {
            copy_items(to, added);
            for (unsigned i = 0; i < count_; ++i)
                slot(i)->~T();
        }
    }

    void copy_items(T* to, T* added)
    {
        unsigned done = 0;
        try {
            for (; done < count_; ++done)
                new (to + done) T(std::move_if_noexcept(*slot(done)));
        } catch (...) {
            while (done > 0)
                to[--done].~T();
            added->~T();
            throw;
        }
    }

    void append_all(const cycque& other)
    {
        for (unsigned i = 0; i < other.count_; ++i)
            push_back(other[i]);
    }

    void release()
    {
        clear();
        container_memory::give(ring_);
    }

    T* ring_ = nullptr;
    unsigned first_ = 0;
    unsigned size_ = 0; // between the two that change together: written as one, they are read late
    unsigned count_ = 0;
};

#endif
