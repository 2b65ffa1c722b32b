// The character classes of XML text and of paths, one table of bits by byte.
#ifndef STDKRO_SRC_XML_CHAR_H
#define STDKRO_SRC_XML_CHAR_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace xml_char {

/// What the byte is, or what it ends. Byte 255, the end of the text, ends all.
enum : unsigned char {
    name = 1,      ///< may stand in a name
    space = 2,     ///< white space of the C locale
    ends_text = 4, ///< "<", "&"; line feeds too, for they are counted
    ends_value = 8,
    ends_comment = 16,
    ends_cdata = 32,
    ends_escape = 64,
    is_escaped = 128, ///< written as "&...;"
};

struct bits {
    const char* chars;
    unsigned char bit;
};

constexpr bits members[] = {
    { "#$%-.0123456789@ABCDEFGHIJKLMNOPQRSTUVWXYZ_`abcdefghijklmnopqrstuvwxyz~", name },
    { "\t\n\v\f\r ", space },
    { "<&\n\xff", ends_text },
    { "\"&\n\xff", ends_value },
    { "-\n\xff", ends_comment },
    { "]\n\xff", ends_cdata },
    { ";\"\n\xff", ends_escape },
    { "<>&\"", is_escaped },
};

constexpr std::array<unsigned char, 256> make_classes()
{
    std::array<unsigned char, 256> table {};
    for (const bits& m : members) {
        for (const char* p = m.chars; *p; ++p) {
            unsigned char& entry = table[static_cast<unsigned char>(*p)];
            entry = static_cast<unsigned char>(entry | m.bit);
        }
    }
    return table;
}

inline constexpr std::array<unsigned char, 256> classes = make_classes();

inline bool is(char c, unsigned char bit) { return (classes[static_cast<unsigned char>(c)] & bit) != 0; }

/// The first byte from `p` on that has the bit, or `end`.
inline const char* find(const char* p, const char* end, unsigned char bit)
{
    for (; end - p >= 4; p += 4) {
        if (is(p[0], bit))
            return p;
        if (is(p[1], bit))
            return p + 1;
        if (is(p[2], bit))
            return p + 2;
        if (is(p[3], bit))
            return p + 3;
    }
    while (p < end && !is(*p, bit))
        ++p;
    return p;
}

template <class word> word word_at(const char* p)
{
    word w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

/// Whether `n` bytes are the same. For names: they are short, and compared by words
/// that overlap at the end.
inline bool same(const char* a, const char* b, std::size_t n)
{
    if (n >= 8) {
        for (std::size_t i = 0; i + 8 < n; i += 8) {
            if (word_at<std::uint64_t>(a + i) != word_at<std::uint64_t>(b + i))
                return false;
        }
        return word_at<std::uint64_t>(a + n - 8) == word_at<std::uint64_t>(b + n - 8);
    }
    if (n >= 4)
        return word_at<std::uint32_t>(a) == word_at<std::uint32_t>(b)
            && word_at<std::uint32_t>(a + n - 4) == word_at<std::uint32_t>(b + n - 4);
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] != b[i])
            return false;
    }
    return true;
}

/// A number that tells most names apart, never 0: by the length and the first and last
/// four bytes.
inline std::uint32_t mark_of(const char* name, std::size_t n)
{
    std::uint32_t mark = static_cast<std::uint32_t>(n);
    if (n >= 4)
        mark += word_at<std::uint32_t>(name) * 0x9E3779B1u ^ word_at<std::uint32_t>(name + n - 4) * 0x85EBCA6Bu;
    else if (n > 0)
        mark += static_cast<unsigned char>(name[0]) * 0x9E3779B1u ^ static_cast<unsigned char>(name[n / 2]) * 0x85EBCA6Bu
            ^ static_cast<unsigned char>(name[n - 1]) * 0xC2B2AE35u;
    return mark | 1;
}

/// Narrows the range to what stands between white space.
inline void trim(const char*& begin, const char*& end)
{
    while (begin < end && is(*begin, space))
        ++begin;
    while (begin < end && is(end[-1], space))
        --end;
}

} // namespace xml_char

#endif
