// A growable set of bits, a word at a time.
//
// The words allocated are exactly those that the size needs (more after an
// assignment that found room enough; they are then forgotten). Bits of the last
// word beyond the size are zero always, so that words can be compared, counted
// and tested whole.
#include <stdkro/bitmap.h>

#include <stdkro/xcpt.h>

#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr unsigned char nibble_bits[16] = { 0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4 };

unsigned count_bits(unsigned unit)
{
    unsigned n = 0;
    for (; unit != 0; unit >>= 4)
        n += nibble_bits[unit & 15];
    return n;
}

unsigned lowest_bit(unsigned unit)
{
    unsigned i = 0;
    for (; (unit & 0xFF) == 0; unit >>= 8)
        i += 8;
    for (; (unit & 1) == 0; unit >>= 1)
        ++i;
    return i;
}

unsigned* new_units(unsigned n) { return new (std::nothrow) unsigned[n](); }

void copy_units(unsigned* to, const unsigned* from, unsigned n)
{
    if (n != 0)
        std::memcpy(to, from, n * sizeof *to);
}

} // namespace

bitmap::bitmap(unsigned n) : bitmap() { reserved(n); }

bitmap::bitmap(const char* text, const char* end) : bitmap()
{
    const int r = from_string(text, end);
    if (r < 0)
        throw xcpt(r, "bitmap::bitmap(const char*, const char*)");
}

bitmap::bitmap(const bitmap& other) : bitmap()
{
    if (!take_words(other))
        throw xcpt(err::out_of_memory, "bitmap::copy_construct(const bitmap&)");
}

bitmap& bitmap::operator=(const bitmap& other)
{
    if (this != &other && !take_words(other))
        throw xcpt(err::out_of_memory, "bitmap::copy_rhs(const bitmap&)");
    return *this;
}

bitmap::bitmap(bitmap&& other) noexcept : bitmap() { swap(other); }

bitmap& bitmap::operator=(bitmap&& other) noexcept
{
    swap(other);
    return *this;
}

bitmap::~bitmap() { delete[] units_; }

bool bitmap::take_words(const bitmap& other)
{
    if (words() < other.words()) {
        unsigned* fresh = new_units(other.words());
        if (!fresh)
            return false;
        delete[] units_;
        units_ = fresh;
    }
    copy_units(units_, other.units_, other.words());
    bits_ = other.bits_;
    return true;
}

bool bitmap::reserved(unsigned n)
{
    if (n <= bits_)
        return true;
    if (bit2unit(n) > words()) {
        unsigned* fresh = new_units(bit2unit(n));
        if (!fresh)
            return false;
        copy_units(fresh, units_, words());
        delete[] units_;
        units_ = fresh;
    }
    bits_ = n;
    return true;
}

void bitmap::flip()
{
    for (unsigned i = words(); i-- > 0;)
        units_[i] = ~units_[i];
    if (bits_ % unit_bits != 0)
        units_[words() - 1] &= mask(bits_) - 1;
}

bitmap bitmap::operator~() const
{
    bitmap inverted(*this);
    inverted.flip();
    return inverted;
}

unsigned bitmap::next_bit(unsigned from) const
{
    if (from >= bits_)
        return bits_;
    unsigned i = from / unit_bits;
    unsigned unit = units_[i] & ~(mask(from) - 1);
    while (unit == 0) {
        if (++i == words())
            return bits_;
        unit = units_[i];
    }
    return i * unit_bits + lowest_bit(unit);
}

unsigned bitmap::count() const
{
    unsigned n = 0;
    for (unsigned i = 0; i < words(); ++i)
        n += count_bits(units_[i]);
    return n;
}

bool bitmap::empty() const
{
    for (unsigned i = 0; i < words(); ++i) {
        if (units_[i] != 0)
            return false;
    }
    return true;
}

void bitmap::reset()
{
    if (units_)
        std::memset(units_, 0, words() * sizeof *units_);
}

void bitmap::clear()
{
    delete[] units_;
    units_ = nullptr;
    bits_ = 0;
}

void bitmap::swap(bitmap& other) noexcept
{
    std::swap(units_, other.units_);
    std::swap(bits_, other.bits_);
}

// KEEP: only this set's words are looked at, whatever the other's size. Equal one
// way round is not always equal the other way; builders of sets rely on the cheap test.
bool bitmap::operator==(const bitmap& other) const
{
    for (unsigned i = words(); i-- > 0;) {
        const unsigned theirs = i < other.words() ? other.units_[i] : 0;
        if (units_[i] != theirs)
            return false;
    }
    return true;
}

bitmap& bitmap::operator&=(const bitmap& other)
{
    for (unsigned i = words(); i-- > 0;)
        units_[i] &= i < other.words() ? other.units_[i] : 0;
    return *this;
}

bitmap& bitmap::operator|=(const bitmap& other)
{
    if (!reserved(other.bits_))
        throw xcpt(err::out_of_memory, "bitmap::operator|=");
    for (unsigned i = other.words(); i-- > 0;)
        units_[i] |= other.units_[i];
    return *this;
}

bitmap& bitmap::operator^=(const bitmap& other)
{
    if (!reserved(other.bits_))
        throw xcpt(err::out_of_memory, "bitmap::operator^=");
    for (unsigned i = other.words(); i-- > 0;)
        units_[i] ^= other.units_[i];
    return *this;
}

int bitmap::to_string(char* buffer, unsigned size) const
{
    const unsigned needed = bits_ + 1;
    if (!buffer)
        return static_cast<int>(needed);
    if (size <= bits_)
        return static_cast<int>(0 - needed);
    for (unsigned i = bits_; i-- > 0;)
        *buffer++ = get_bit(i) ? '1' : '0';
    *buffer = '\0';
    return static_cast<int>(needed);
}

// KEEP: the first character is bit 0, while to_string writes the highest bit first.
// Stored texts exist in both directions.
int bitmap::from_string(const char* text, const char* end)
{
    if (!text)
        return err::invalid_parameter;
    if (!end)
        end = text + std::strlen(text);
    const std::size_t length = end < text ? 0 : static_cast<std::size_t>(end - text);
    if (static_cast<unsigned>(length) != length || !reserved(static_cast<unsigned>(length)))
        return err::out_of_memory;
    for (unsigned i = 0; i < length; ++i) {
        if (text[i] != '0' && text[i] != '1')
            return err::syntax;
        if (text[i] == '1')
            add_bit(i);
    }
    return err::ok;
}
