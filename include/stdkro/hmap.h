// The hash map.
#ifndef STDKRO_HMAP_H
#define STDKRO_HMAP_H

#include <stdkro/cycque.h>
#include <stdkro/share_str.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

/// The hash of a text or of any `n` bytes. The same on every platform.
inline unsigned hash_bytes(const char* p, std::size_t n)
{
    constexpr std::uint64_t factor = 0x9E3779B97F4A7C15u;
    std::uint64_t h = n * factor;
    // Eight bytes at a time; the last step may take some bytes again, so that a
    // rest needs no loop.
    std::uint64_t word = 0;
    if (n >= 8) {
        const char* const last = p + n - 8;
        for (; p < last; p += 8) {
            std::memcpy(&word, p, 8);
            h = (h ^ word) * factor;
            h ^= h >> 32;
        }
        std::memcpy(&word, last, 8);
    } else if (n >= 4) {
        std::uint32_t low = 0;
        std::uint32_t high = 0;
        std::memcpy(&low, p, 4);
        std::memcpy(&high, p + n - 4, 4);
        word = low | static_cast<std::uint64_t>(high) << 32;
    } else if (n > 0) {
        word = static_cast<unsigned char>(p[0]) | static_cast<std::uint64_t>(static_cast<unsigned char>(p[n / 2])) << 8
            | static_cast<std::uint64_t>(static_cast<unsigned char>(p[n - 1])) << 16;
    }
    h = (h ^ word) * factor;
    return static_cast<unsigned>(h ^ h >> 32);
}

/// Are `n` bytes equal? Without a call, because keys are short.
inline bool same_bytes(const char* a, const char* b, std::size_t n)
{
    // The last step may compare some bytes again, as in hash_bytes.
    if (n >= 8) {
        std::uint64_t x = 0;
        std::uint64_t y = 0;
        for (std::size_t i = 0; i < n - 8; i += 8) {
            std::memcpy(&x, a + i, 8);
            std::memcpy(&y, b + i, 8);
            if (x != y)
                return false;
        }
        std::memcpy(&x, a + n - 8, 8);
        std::memcpy(&y, b + n - 8, 8);
        return x == y;
    }
    if (n >= 4) {
        std::uint32_t words[4];
        std::memcpy(&words[0], a, 4);
        std::memcpy(&words[1], b, 4);
        std::memcpy(&words[2], a + n - 4, 4);
        std::memcpy(&words[3], b + n - 4, 4);
        return words[0] == words[1] && words[2] == words[3];
    }
    return n == 0 || (a[0] == b[0] && a[n / 2] == b[n / 2] && a[n - 1] == b[n - 1]);
}

/// The hash of a key: integers, enumerations, pointers and texts. For a key type of
/// your own pass a class of this form as HASH.
template <class K>
struct hash_fun {
    static_assert(std::is_integral<K>::value || std::is_enum<K>::value || std::is_pointer<K>::value,
                  "this key type needs a hash_fun of its own");
    unsigned operator()(const K& key) const
    {
        const std::uint64_t h = number(key) * 0x9E3779B97F4A7C15u;
        return static_cast<unsigned>(h >> 32);
    }

private:
    template <class T>
    static std::uint64_t number(T* key) { return reinterpret_cast<std::uintptr_t>(key); }
    template <class T>
    static std::uint64_t number(const T& key) { return static_cast<std::uint64_t>(key); }
};

template <>
struct hash_fun<share_str> {
    unsigned operator()(const share_str& key) const { return hash_bytes(key.c_str(), key.length()); }
    /// The hash of the text `text` of `length` bytes, the same as that of an equal key.
    unsigned operator()(const char* text, unsigned length) const { return hash_bytes(text, length); }
};

/// A map from keys to values. The address of a stored value never changes while it
/// is stored, and iteration visits the entries in the order in which their keys
/// were first added.
///
/// Maps with `share_str` keys can be asked by a span of characters, without making
/// a string of it. When memory runs out, an `xrterror` with `err::out_of_memory`
/// leaves the map as it was.
template <class K, class V, class HASH = hash_fun<K>>
class hmap {
public:
    /// What iteration gives.
    struct entry {
        const K key;
        V value;
    };

private:
    struct node {
        template <class... ARGUMENTS>
        explicit node(const K& key, ARGUMENTS&&... rest)
            : item { key, V(std::forward<ARGUMENTS>(rest)...) }
        {
        }
        entry item;
        node* prev;
        node* next;
    };

    template <class ENTRY>
    class basic_iterator {
    public:
        basic_iterator() = default;
        ENTRY& operator*() const { return at_->item; }
        ENTRY* operator->() const { return &at_->item; }
        basic_iterator& operator++()
        {
            at_ = at_->next;
            return *this;
        }
        bool operator==(const basic_iterator& other) const { return at_ == other.at_; }
        bool operator!=(const basic_iterator& other) const { return at_ != other.at_; }

    private:
        friend class hmap;
        explicit basic_iterator(node* at) : at_(at) {}
        node* at_ = nullptr;
    };

public:
    using iterator = basic_iterator<entry>;
    using const_iterator = basic_iterator<const entry>;

    hmap() = default;
    hmap(const hmap& other)
    {
        try {
            for (const entry& e : other)
                set(e.key, e.value);
        } catch (...) {
            release(); // the destructor of an unfinished object never runs
            throw;
        }
    }
    hmap(hmap&& other) noexcept { swap(other); }
    ~hmap() { release(); }

    hmap& operator=(const hmap& other)
    {
        if (this != &other) {
            hmap copy(other);
            swap(copy);
        }
        return *this;
    }
    hmap& operator=(hmap&& other) noexcept
    {
        swap(other);
        return *this;
    }

    /// The value of `key`, or null.
    V* find(const K& key)
    {
        const slot* const s = look_up(HASH()(key), key_test { key });
        return s->at ? &s->at->item.value : nullptr;
    }
    const V* find(const K& key) const { return const_cast<hmap*>(this)->find(key); }
    /// By text, for `share_str` keys.
    V* find(const char* text, unsigned length)
    {
        entry* const e = find_entry(text, length, HASH()(text, length));
        return e ? &e->value : nullptr;
    }
    const V* find(const char* text, unsigned length) const
    {
        return const_cast<hmap*>(this)->find(text, length);
    }
    /// The entry of a text whose hash the caller already has, or null.
    entry* find_entry(const char* text, unsigned length, unsigned hash)
    {
        const slot* const s = look_up(hash, text_test { text, length });
        return s->at ? &s->at->item : nullptr;
    }

    /// Inserts the pair or replaces the value of the key, and returns the stored
    /// value. Replacing keeps the address and the place in the order.
    V& set(const K& key, const V& value)
    {
        const unsigned hash = HASH()(key);
        slot* const s = look_up(hash, key_test { key });
        if (!s->at)
            return insert(s, hash, key, value).value;
        s->at->item.value = value;
        return s->at->item.value;
    }
    /// The value of `key`, inserted as `V()` when absent.
    V& operator[](const K& key)
    {
        const unsigned hash = HASH()(key);
        slot* const s = look_up(hash, key_test { key });
        return s->at ? s->at->item.value : insert(s, hash, key).value;
    }
    /// Adds a key known to be absent, with its hash.
    entry& add(const K& key, unsigned hash, const V& value)
    {
        return insert(look_up(hash, never()), hash, key, value);
    }

    /// Removes the pair; false when there is none. `key` may be the stored key.
    bool remove(const K& key)
    {
        slot* const s = look_up(HASH()(key), key_test { key });
        if (!s->at)
            return false;
        node* const gone = s->at;
        close_gap(static_cast<unsigned>(s - slots_));
        (gone->prev ? gone->prev->next : first_) = gone->next;
        (gone->next ? gone->next->prev : last_) = gone->prev;
        give_node(gone);
        --count_;
        ++revision_;
        return true;
    }

    unsigned count() const { return count_; }
    bool isempty() const { return count_ == 0; }
    /// Removes all pairs and gives their memory back.
    void clear()
    {
        const unsigned revision = revision_ + 1;
        hmap empty;
        swap(empty);
        revision_ = revision;
    }
    /// Changes whenever a key is added or removed: what is derived from the keys can
    /// tell by it whether it is still true.
    unsigned revision() const { return revision_; }

    iterator begin() { return iterator(first_); }
    iterator end() { return iterator(nullptr); }
    const_iterator begin() const { return const_iterator(first_); }
    const_iterator end() const { return const_iterator(nullptr); }

    void swap(hmap& other) noexcept
    {
        std::swap(slots_, other.slots_);
        std::swap(mask_, other.mask_);
        std::swap(count_, other.count_);
        std::swap(revision_, other.revision_);
        std::swap(first_, other.first_);
        std::swap(last_, other.last_);
        std::swap(free_, other.free_);
        std::swap(chunks_, other.chunks_);
        std::swap(chunk_size_, other.chunk_size_);
        if (other.slots_ == &no_slot_)
            other.slots_ = &other.no_slot_;
        if (slots_ == &other.no_slot_)
            slots_ = &no_slot_;
    }

private:
    // Open addressing, linear probing. The hash stands beside the pointer, so that a
    // node is touched only when it is very likely the one.
    struct slot {
        node* at;
        unsigned hash;
    };
    // Nodes come from chunks and never move; a free one lies in the list `free_`.
    union room {
        room* next;
        alignas(node) unsigned char bytes[sizeof(node)];
    };
    struct chunk {
        chunk* next;
    };
    static constexpr std::size_t chunk_head = (sizeof(chunk) + alignof(room) - 1) / alignof(room) * alignof(room);

    struct key_test {
        const K& key;
        bool operator()(const entry& e) const { return e.key == key; }
    };
    struct text_test {
        const char* text;
        unsigned length;
        bool operator()(const entry& e) const
        {
            return e.key.length() == length && same_bytes(e.key.c_str(), text, length);
        }
    };
    struct never {
        bool operator()(const entry&) const { return false; }
    };

    // The slot of the key that `test` accepts, or the free slot where it belongs.
    // There always is a free one.
    template <class TEST>
    slot* look_up(unsigned hash, const TEST& test)
    {
        for (unsigned i = hash & mask_;; i = (i + 1) & mask_) {
            slot& s = slots_[i];
            if (!s.at || (s.hash == hash && test(s.at->item)))
                return &s;
        }
    }

    template <class... ARGUMENTS>
    entry& insert(slot* s, unsigned hash, const K& key, ARGUMENTS&&... rest)
    {
        // One slot in four stays free. The size counts as 0 while the table is no_slot_.
        if (count_ + 1 > (mask_ + 1) / 4 * 3) {
            grow();
            s = look_up(hash, never());
        }
        if (!free_)
            take_chunk();
        node* const added = make_node(key, std::forward<ARGUMENTS>(rest)...);
        added->prev = last_;
        added->next = nullptr;
        (last_ ? last_->next : first_) = added;
        last_ = added;
        s->at = added;
        s->hash = hash;
        ++count_;
        ++revision_;
        return added->item;
    }

    // A node in the first free room. Should copying the key or value throw, that stays free.
    template <class... ARGUMENTS>
    node* make_node(const K& key, ARGUMENTS&&... rest)
    {
        room* const place = free_;
        room* const next = place->next; // the node takes its place
        try {
            node* const made = new (place->bytes) node(key, std::forward<ARGUMENTS>(rest)...);
            free_ = next;
            return made;
        } catch (...) {
            place->next = next;
            throw;
        }
    }

    void grow()
    {
        const unsigned size = mask_ == 0 ? 8 : (mask_ + 1) * 2;
        if (size == 0)
            throw xrterror(err::out_of_memory, "out of memory");
        slot* const bigger = static_cast<slot*>(container_memory::take_array(size, sizeof(slot)));
        for (unsigned i = 0; i < size; ++i)
            bigger[i].at = nullptr;
        slot* const old = slots_;
        const unsigned old_size = mask_ + 1;
        slots_ = bigger;
        mask_ = size - 1;
        for (unsigned i = 0; i < old_size; ++i) {
            if (old[i].at)
                *look_up(old[i].hash, never()) = old[i];
        }
        if (old != &no_slot_)
            container_memory::give(old);
    }

    // Moves later entries of a probe sequence forward, so that no look-up ends early.
    void close_gap(unsigned gap)
    {
        for (unsigned i = (gap + 1) & mask_; slots_[i].at; i = (i + 1) & mask_) {
            const unsigned home = slots_[i].hash & mask_;
            if (((i - home) & mask_) >= ((i - gap) & mask_)) {
                slots_[gap] = slots_[i];
                gap = i;
            }
        }
        slots_[gap].at = nullptr;
    }

    void take_chunk()
    {
        const unsigned size = chunk_size_ == 0 ? 4 : chunk_size_ < 512 ? chunk_size_ * 2 : chunk_size_;
        unsigned char* const block
            = static_cast<unsigned char*>(container_memory::take(chunk_head + size * sizeof(room)));
        chunks_ = new (block) chunk { chunks_ };
        chunk_size_ = size;
        room* const rooms = reinterpret_cast<room*>(block + chunk_head);
        for (unsigned i = size; i-- > 0;) {
            rooms[i].next = free_;
            free_ = &rooms[i];
        }
    }

    void give_node(node* gone)
    {
        gone->~node();
        room* const place = reinterpret_cast<room*>(gone);
        place->next = free_;
        free_ = place;
    }

    void release()
    {
        for (node* n = first_; n;) {
            node* const next = n->next;
            n->~node();
            n = next;
        }
        while (chunks_) {
            chunk* const next = chunks_->next;
            container_memory::give(chunks_);
            chunks_ = next;
        }
        if (slots_ != &no_slot_)
            container_memory::give(slots_);
    }

    slot no_slot_ = { nullptr, 0 }; // the table of an empty map
    slot* slots_ = &no_slot_;
    unsigned mask_ = 0;
    unsigned count_ = 0;
    unsigned revision_ = 0;
    node* first_ = nullptr;
    node* last_ = nullptr;
    room* free_ = nullptr;
    chunk* chunks_ = nullptr;
    unsigned chunk_size_ = 0;
};

#endif
