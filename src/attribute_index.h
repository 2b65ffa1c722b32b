// Where in a list of named things a name stands first.
//
// A hash table beside the list, made when it pays: short lists are scanned, and
// so is a list at its first look-up after a change. The table follows appended
// items by itself; any other change of the list must be told with `reset`.
// Names can also be changed from outside, through a pointer that a list gave
// out: the count of all such changes tells that a table is out of date.
#ifndef STDKRO_SRC_ATTRIBUTE_INDEX_H
#define STDKRO_SRC_ATTRIBUTE_INDEX_H

#include <stdkro/share_str.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

/// How often any attribute or section was renamed.
extern std::atomic<std::uint64_t> renamed_items;

inline bool is_named(const share_str& have, const char* name, std::size_t length)
{
    return have.length() == length && std::memcmp(have.c_str(), name, length) == 0;
}

/// Asks memory for what a scan will reach: in a long list each item and each text would be
/// waited for. The text is where the item says, so the item comes first.
template <class item> void fetch_names(item* const* items, unsigned count, unsigned i)
{
    constexpr unsigned ahead = 8;
    if (count - i <= 2 * ahead)
        return;
    __builtin_prefetch(&items[i + 2 * ahead]->get_name());
    __builtin_prefetch(items[i + ahead]->get_name().c_str());
}

/// Position of the first item at or after `start` with that name, or -1.
template <class item>
int scan_names(item* const* items, unsigned count, unsigned start, const char* name, std::size_t length)
{
    for (unsigned i = start; i < count; ++i) {
        fetch_names(items, count, i);
        if (is_named(items[i]->get_name(), name, length))
            return static_cast<int>(i);
    }
    return -1;
}

class attribute_index {
public:
    /// Lists below this size are scanned.
    static constexpr unsigned worth_it = 16;

    attribute_index() : slots_(nullptr), slot_count_(0), indexed_(0), renames_(0), asked_(false) {}
    attribute_index(const attribute_index&) = delete;
    attribute_index& operator=(const attribute_index&) = delete;
    ~attribute_index() { std::free(slots_); }

    /// Forgets everything; the list was changed other than at its end.
    void reset()
    {
        indexed_ = 0;
        asked_ = false;
    }

    /// Position of the first item with that name, or -1.
    template <class item> int find(item* const* items, unsigned count, const char* name, std::size_t length)
    {
        const std::uint64_t renames = renamed_items.load(std::memory_order_relaxed);
        if (renames != renames_) {
            reset();
            renames_ = renames;
        }
        // A list that changes between any two look-ups is scanned each time, which
        // costs less than a table for one question.
        if (!asked_ || !follow(items, count)) {
            asked_ = true;
            return scan_names(items, count, 0, name, length);
        }
        const unsigned hash = hash_of(name, length);
        for (std::size_t at = hash & (slot_count_ - 1);; at = (at + 1) & (slot_count_ - 1)) {
            const slot& s = slots_[at];
            if (!s.item)
                return -1;
            if (s.hash == hash && is_named(static_cast<const item*>(s.item)->get_name(), name, length))
                return static_cast<int>(s.position);
        }
    }

private:
    struct slot {
        const void* item; // null marks a free slot
        unsigned hash;
        unsigned position;
    };

    /// The address goes in so that texts made to collide in one table do not in another.
    unsigned hash_of(const char* s, std::size_t n) const
    {
        constexpr std::uint64_t mixer = 0x9E3779B97F4A7C15u;
        std::uint64_t h = (reinterpret_cast<std::uintptr_t>(this) ^ n) * mixer;
        for (; n > 8; s += 8, n -= 8) {
            h = (h ^ read<std::uint64_t>(s)) * mixer;
            h ^= h >> 32;
        }
        return static_cast<unsigned>(((h ^ last_bytes(s, n)) * mixer) >> 32);
    }

    template <class word> static word read(const char* s)
    {
        word w;
        std::memcpy(&w, s, sizeof w);
        return w;
    }

    // At most eight bytes as a number, read as two words that overlap.
    static std::uint64_t last_bytes(const char* s, std::size_t n)
    {
        if (n >= 4)
            return std::uint64_t { read<std::uint32_t>(s) } << 32 | read<std::uint32_t>(s + n - 4);
        if (n >= 2)
            return static_cast<std::uint64_t>(read<std::uint16_t>(s) << 8 | static_cast<unsigned char>(s[n - 1]));
        return n ? static_cast<unsigned char>(*s) : 0;
    }

    /// Takes in the items that came since. False for an empty list and without memory.
    template <class item> bool follow(item* const* items, unsigned count)
    {
        if (count == 0 || (indexed_ != count && !make_room(count)))
            return false;
        for (; indexed_ < count; ++indexed_) {
            const share_str& name = items[indexed_]->get_name();
            enter(items[indexed_], hash_of(name.c_str(), name.length()));
        }
        return true;
    }

    /// Invariant: at most half of the slots are taken, so that probing ends.
    bool make_room(unsigned count)
    {
        if (indexed_ == 0 && slots_)
            std::memset(slots_, 0, slot_count_ * sizeof(slot));
        if (count <= slot_count_ / 2)
            return true;
        std::size_t wanted = 2 * worth_it;
        while (wanted / 2 < count)
            wanted *= 2;
        slot* const made = static_cast<slot*>(std::calloc(wanted, sizeof(slot)));
        if (!made)
            return false;
        std::free(slots_);
        slots_ = made;
        slot_count_ = wanted;
        indexed_ = 0; // the names are entered anew: growth doubles, so this is linear in all
        return true;
    }

    /// Enters the item that is next unless one of its name stands there already: the
    /// first place wins.
    template <class item> void enter(const item* next, unsigned hash)
    {
        std::size_t at = hash & (slot_count_ - 1);
        for (; slots_[at].item; at = (at + 1) & (slot_count_ - 1))
            if (slots_[at].hash == hash
                && static_cast<const item*>(slots_[at].item)->get_name().kroCompare_(next->get_name()))
                return;
        slots_[at] = { next, hash, indexed_ };
    }

    slot* slots_;
    std::size_t slot_count_; // a power of two, or 0
    unsigned indexed_;       // the leading items that were entered
    std::uint64_t renames_;  // `renamed_items` when they were
    bool asked_;             // since the last reset
};

#endif
