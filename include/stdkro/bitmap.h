// A growable set of bits.
#ifndef STDKRO_BITMAP_H
#define STDKRO_BITMAP_H

#include <stdkro/config.h>

/// A set of small numbers, kept as 32-bit words, the lowest bit of a word first.
/// Its size grows with `reserved`, with OR and XOR and with `from_string`, and
/// never shrinks but in `clear` and in assignment. Bits are not range-checked:
/// an index must be below `capacity()`.
class KRO_API bitmap {
public:
    /// Empty, of size 0.
    bitmap() : units_(nullptr), bits_(0) {}
    /// `n` bits, all zero; left empty, of size 0, when memory runs out.
    explicit bitmap(unsigned n);
    /// The bits that `from_string` reads from the text.
    /// Throws an `xcpt` with its code when it fails.
    explicit bitmap(const char* text, const char* end = nullptr);
    /// Copying throws an `xcpt` (out of memory) when it fails; an assignment
    /// that fails leaves this set as it was.
    bitmap(const bitmap& other);
    bitmap& operator=(const bitmap& other);
    bitmap(bitmap&& other) noexcept;
    bitmap& operator=(bitmap&& other) noexcept;
    ~bitmap();

    /// The words that `n` bits need.
    static unsigned bit2unit(unsigned n) { return n / unit_bits + (n % unit_bits != 0); }

    /// Grows to at least `n` bits, the new ones zero. Never shrinks.
    /// False when memory runs out; the set is then unchanged.
    bool reserved(unsigned n);

    bool get_bit(unsigned i) const { return (units_[i / unit_bits] & mask(i)) != 0; }
    bool operator[](unsigned i) const { return get_bit(i); }
    void set_bit(unsigned i, bool on);
    /// False if the bit was already set.
    bool add_bit(unsigned i);
    /// False if the bit was not set.
    bool clr_bit(unsigned i);
    /// Inverts every bit.
    void flip();
    /// Inverts one bit.
    void flip(unsigned i) { units_[i / unit_bits] ^= mask(i); }
    bitmap operator~() const;

    /// The first set bit at or above `from`; `capacity()` when there is none.
    unsigned next_bit(unsigned from) const;
    /// The number of set bits.
    unsigned count() const;
    bool empty() const;
    bool any() const { return !empty(); }
    /// Clears every bit and keeps the size.
    void reset();
    /// Frees the memory: size 0.
    void clear();
    /// The size in bits.
    unsigned capacity() const { return bits_; }
    void swap(bitmap& other) noexcept;

    /// Compares the words of this set with the same words of `other`. Words that
    /// `other` lacks count as zero; words that only `other` has are not looked
    /// at, so sets of different sizes may compare unequal one way round only.
    bool operator==(const bitmap& other) const;
    bool operator!=(const bitmap& other) const { return !(*this == other); }

    /// The size stays; what is beyond the other's size becomes zero.
    bitmap& operator&=(const bitmap& other);
    /// These two grow to the other's size where it is larger. They throw an
    /// `xcpt` (out of memory) when they cannot; this set is then unchanged.
    bitmap& operator|=(const bitmap& other);
    bitmap& operator^=(const bitmap& other);

    /// Writes a "1" or "0" for each bit, the highest first, and a NUL.
    /// Returns the bytes this takes; or minus that number, nothing written, when
    /// `size` is smaller. A null buffer only asks.
    int to_string(char* buffer, unsigned size) const;
    /// Sets bit i for each "1" at offset i: the first character is bit 0, so this
    /// is not the inverse of `to_string`. Grows as needed; clears no bit. A null
    /// `end` stands for the terminating NUL.
    /// Returns 0; err::out_of_memory; err::syntax at the first character that is
    /// neither "0" nor "1", the bits before it being set.
    int from_string(const char* text, const char* end = nullptr);

private:
    static constexpr unsigned unit_bits = 32;
    static unsigned mask(unsigned i) { return 1u << i % unit_bits; }

    unsigned words() const { return bit2unit(bits_); }
    bool take_words(const bitmap& other);

    unsigned* units_; // null when empty
    unsigned bits_;   // bits of the last word above it are always zero
};

inline void bitmap::set_bit(unsigned i, bool on)
{
    if (on)
        units_[i / unit_bits] |= mask(i);
    else
        units_[i / unit_bits] &= ~mask(i);
}

inline bool bitmap::add_bit(unsigned i)
{
    unsigned& unit = units_[i / unit_bits];
    const bool added = (unit & mask(i)) == 0;
    unit |= mask(i);
    return added;
}

inline bool bitmap::clr_bit(unsigned i)
{
    unsigned& unit = units_[i / unit_bits];
    const bool cleared = (unit & mask(i)) != 0;
    unit &= ~mask(i);
    return cleared;
}

#endif
