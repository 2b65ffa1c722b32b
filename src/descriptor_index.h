// Numbers by descriptor, in memory that is taken once.
//
// Open addressing with linear probing over at least twice as many slots as there are
// descriptors. Erasing moves later ones of a run back, so no slot is ever left to be passed over:
// see Knuth, volume 3, section 6.4, algorithm R. That walks to the end of a run, and consecutive
// descriptors that hash to themselves would be one long run; Fibonacci hashing spreads them.
#ifndef STDKRO_SRC_DESCRIPTOR_INDEX_H
#define STDKRO_SRC_DESCRIPTOR_INDEX_H

#include <algorithm>
#include <new>

class descriptor_index {
public:
    descriptor_index() = default;
    descriptor_index(const descriptor_index&) = delete;
    descriptor_index& operator=(const descriptor_index&) = delete;
    ~descriptor_index() { delete[] slots_; }

    /// Room for so many descriptors; false without memory.
    bool create(unsigned capacity)
    {
        unsigned slots = 4;
        for (shift_ = 30; slots < 2 * capacity; --shift_)
            slots *= 2;
        slots_ = new (std::nothrow) slot[slots];
        mask_ = slots - 1;
        if (slots_)
            clear();
        return slots_ != nullptr;
    }

    void clear() { std::fill_n(slots_, mask_ + 1, slot { free_slot, -1 }); }

    /// The number of a descriptor; -1 for one that is not in it.
    int find(int fd) const { return fd < 0 ? -1 : slots_[slot_of(fd)].number; }

    /// Gives a descriptor, which must not be negative, a number.
    void set(int fd, int number) { slots_[slot_of(fd)] = { fd, number }; }

    /// The same unless it has one; false then.
    bool add(int fd, int number)
    {
        slot& place = slots_[slot_of(fd)];
        if (place.fd == fd)
            return false;
        place = { fd, number };
        return true;
    }

    void erase(int fd)
    {
        unsigned hole = slot_of(fd);
        for (unsigned i = (hole + 1) & mask_; slots_[i].fd != free_slot; i = (i + 1) & mask_) {
            const unsigned distance_home = (i - home_of(slots_[i].fd)) & mask_;
            if (distance_home >= ((i - hole) & mask_)) {
                slots_[hole] = slots_[i];
                hole = i;
            }
        }
        slots_[hole] = { free_slot, -1 };
    }

private:
    struct slot {
        int fd;
        int number;
    };
    static constexpr int free_slot = -1;

    unsigned home_of(int fd) const { return static_cast<unsigned>(fd) * 0x9E3779B9u >> shift_; }

    // Where `fd` stands, or the free slot where it would.
    unsigned slot_of(int fd) const
    {
        unsigned i = home_of(fd);
        while (slots_[i].fd != fd && slots_[i].fd != free_slot)
            i = (i + 1) & mask_;
        return i;
    }

    slot* slots_ = nullptr;
    unsigned mask_ = 0;
    int shift_ = 0;
};

#endif
