// Bytes as text: hexadecimal and base64.
//
// Both work by tables that are made while compiling. Writing takes two characters
// at a time: hexadecimal has 256 pairs, one for each byte, and base64 has 4,096,
// one for each 12 bits. Reading base64 ors four tables, one for each place in a
// group, whose entries stand shifted already and mark what is no digit by a bit
// above the 24 of a group.
#include <stdkro/str.h>

#include "text_class.h"
#include "text_length.h"

#include <cstdint>

namespace {

constexpr char hex_digits[] = "0123456789ABCDEF";

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
constexpr char pad = alphabet[64];
constexpr std::uint32_t no_digit = 1u << 24;

template <unsigned count> struct pair_table {
    char pairs[count][2];
};

constexpr pair_table<256> make_hex_pairs()
{
    pair_table<256> table {};
    for (unsigned i = 0; i < 256; ++i) {
        table.pairs[i][0] = hex_digits[i >> 4];
        table.pairs[i][1] = hex_digits[i & 15];
    }
    return table;
}

constexpr pair_table<4096> make_base64_pairs()
{
    pair_table<4096> table {};
    for (unsigned i = 0; i < 4096; ++i) {
        table.pairs[i][0] = alphabet[i >> 6];
        table.pairs[i][1] = alphabet[i & 63];
    }
    return table;
}

struct hex_values {
    unsigned high[256], low[256];
};

constexpr unsigned no_hex = 0x100;

constexpr hex_values make_hex_values()
{
    hex_values values {};
    for (unsigned i = 0; i < 256; ++i)
        values.high[i] = values.low[i] = no_hex;
    for (unsigned i = 0; i < 16; ++i) {
        const auto upper = static_cast<unsigned char>(hex_digits[i]);
        const auto lower = static_cast<unsigned char>(i < 10 ? upper : upper | 0x20);
        values.high[upper] = values.high[lower] = i << 4;
        values.low[upper] = values.low[lower] = i;
    }
    return values;
}

struct base64_values {
    std::uint32_t at[4][256];
};

constexpr base64_values make_base64_values()
{
    base64_values values {};
    for (unsigned place = 0; place < 4; ++place) {
        for (unsigned i = 0; i < 256; ++i)
            values.at[place][i] = no_digit;
        for (unsigned i = 0; i < 64; ++i)
            values.at[place][static_cast<unsigned char>(alphabet[i])] = i << (18 - 6 * place);
    }
    return values;
}

constexpr pair_table<256> hex_pairs = make_hex_pairs();
constexpr hex_values hex_of = make_hex_values();
constexpr pair_table<4096> base64_pairs = make_base64_pairs();
constexpr base64_values base64_of = make_base64_values();

// Whole groups of characters are safe to read at once where the terminator has
// been looked for. That is done piece by piece, so that a short run in a long text
// costs no walk to its end: how many of the next `wanted` groups of `size` stand
// before it, at most as many as a piece has.
unsigned long long groups_before_end(const char* s, unsigned size, unsigned long long wanted)
{
    constexpr unsigned long long piece = 256;
    const unsigned long long looked_at = wanted < piece ? wanted : piece;
    const void* const nul = std::memchr(s, '\0', static_cast<std::size_t>(looked_at * size));
    return nul ? static_cast<unsigned long long>(static_cast<const char*>(nul) - s) / size : looked_at;
}

unsigned hex_high(char c) { return hex_of.high[static_cast<unsigned char>(c)]; }
unsigned hex_low(char c) { return hex_of.low[static_cast<unsigned char>(c)]; }

// The four characters at `s`, the first in the low bits: one load and not four.
std::uint32_t load4(const char* s)
{
    const auto* const c = reinterpret_cast<const unsigned char*>(s);
    return c[0] | static_cast<std::uint32_t>(c[1]) << 8 | static_cast<std::uint32_t>(c[2]) << 16
        | static_cast<std::uint32_t>(c[3]) << 24;
}

// Reads `pairs` pairs, or as many as there are, to `to`; returns how many.
unsigned long long decode_pairs(unsigned char* to, const char* s, unsigned long long pairs)
{
    unsigned long long done = 0;
    for (; done + 2 <= pairs; done += 2) {
        const std::uint32_t four = load4(s + done * 2);
        const unsigned first = hex_of.high[four & 0xFF] | hex_of.low[four >> 8 & 0xFF];
        const unsigned second = hex_of.high[four >> 16 & 0xFF] | hex_of.low[four >> 24];
        if ((first | second) >= no_hex)
            break;
        to[done] = static_cast<unsigned char>(first);
        to[done + 1] = static_cast<unsigned char>(second);
    }
    for (; done < pairs; ++done) {
        const unsigned byte = hex_high(s[done * 2]) | hex_low(s[done * 2 + 1]);
        if (byte >= no_hex)
            break;
        to[done] = static_cast<unsigned char>(byte);
    }
    return done;
}

// Reads pairs to `to` up to `limit` or the first that is none. Returns where it stopped.
const char* read_pairs(const char* s, unsigned char*& to, const unsigned char* limit)
{
    while (to < limit) {
        const unsigned long long whole = groups_before_end(s, 2, static_cast<unsigned long long>(limit - to));
        const unsigned long long done = decode_pairs(to, s, whole);
        s += done * 2;
        to += done;
        if (done < whole || whole == 0)
            break;
    }
    return s;
}

const char* skip_pairs(const char* s)
{
    while (hex_high(s[0]) != no_hex && hex_low(s[1]) != no_hex)
        s += 2;
    return s;
}

std::uint32_t digit(unsigned place, char c) { return base64_of.at[place][static_cast<unsigned char>(c)]; }

// Decodes at most `groups` groups at `s` to `to`, up to one that has a character
// which is no digit. Returns how many.
unsigned long long decode_groups(unsigned char* to, const char* s, unsigned long long groups)
{
    for (unsigned long long done = 0; done < groups; ++done, s += 4, to += 3) {
        const std::uint32_t bits = digit(0, s[0]) | digit(1, s[1]) | digit(2, s[2]) | digit(3, s[3]);
        if (bits >= no_digit)
            return done;
        to[0] = static_cast<unsigned char>(bits >> 16);
        to[1] = static_cast<unsigned char>(bits >> 8);
        to[2] = static_cast<unsigned char>(bits);
    }
    return groups;
}

// The same for a text whose end is not known.
unsigned long long decode_text(unsigned char* to, const char* s, unsigned long long groups)
{
    unsigned long long done = 0;
    while (done < groups) {
        const unsigned long long whole = groups_before_end(s + done * 4, 4, groups - done);
        const unsigned long long decoded = decode_groups(to + done * 3, s + done * 4, whole);
        done += decoded;
        if (decoded < whole || whole == 0)
            break;
    }
    return done;
}

// What a run of `length` characters decodes to. A lone last character counts for nothing.
unsigned long long decoded_size(unsigned long long length)
{
    constexpr unsigned rest[] = { 0, 0, 1, 2 };
    return length / 4 * 3 + rest[length % 4];
}

// Decodes what stands behind the last whole group. KEEP: a lone character writes
// a byte although the size counts none for it; it is written only where there is
// room behind the decoded size.
void decode_rest(unsigned char* to, unsigned long long room, const char* s, unsigned length)
{
    std::uint32_t bits = 0;
    for (unsigned i = 0; i < length; ++i)
        bits |= digit(i, s[i]);
    if (length > 0 && room > 0)
        to[0] = static_cast<unsigned char>(bits >> 16);
    if (length == 3)
        to[1] = static_cast<unsigned char>(bits >> 8);
}

} // namespace

int str::read_hex(unsigned char* dst, unsigned n, const char* s, const char** end) noexcept
{
    unsigned char* to = dst;
    for (;;) {
        s = skip_space(s);
        const char* const before = s;
        s = dst ? read_pairs(s, to, dst + n) : skip_pairs(s);
        if (s == before || !is_space(*s))
            break;
    }
    if (end)
        *end = s;
    // KEEP: without a destination nothing is counted; callers use it to find the end only.
    return result_length(static_cast<unsigned long long>(to - dst));
}

int str::write_hex(char* dst, unsigned n, const unsigned char* data, unsigned len) noexcept
{
    const unsigned long long whole = 2ull * len;
    if (!dst)
        return result_length(whole);
    const unsigned pairs = len < n / 2 ? len : n / 2;
    for (unsigned i = 0; i < pairs; ++i, dst += 2)
        std::memcpy(dst, hex_pairs.pairs[data[i]], 2);
    if (whole <= n)
        return result_length(whole);
    if (n % 2)
        *dst = hex_pairs.pairs[data[pairs]][0];
    return result_length(n);
}

int str::read_base64(void* dst, unsigned n, const char* s, const char** end) noexcept
{
    const char* const begin = s;
    auto* const to = static_cast<unsigned char*>(dst);
    const unsigned long long done = dst ? decode_text(to, s, n / 3) : 0;
    s += done * 4;
    const char* const rest = s;
    while (digit(0, *s) != no_digit)
        ++s;
    if (end)
        *end = s;
    const auto length = static_cast<unsigned long long>(s - begin);
    const unsigned long long size = decoded_size(length);
    if (dst && n >= size)
        decode_rest(to + done * 3, n - done * 3, rest, static_cast<unsigned>(s - rest));
    return result_length(size);
}

int str::write_base64(char* dst, unsigned n, const unsigned char* data, unsigned len) noexcept
{
    const unsigned long long whole = (len + 2ull) / 3 * 4;
    if (!dst)
        return result_length(whole);
    const unsigned groups = len / 3 < n / 4 ? len / 3 : n / 4;
    char* to = dst;
    for (unsigned i = 0; i < groups; ++i, data += 3, to += 4) {
        const unsigned bits = static_cast<unsigned>(data[0] << 16 | data[1] << 8 | data[2]);
        std::memcpy(to, base64_pairs.pairs[bits >> 12], 2);
        std::memcpy(to + 2, base64_pairs.pairs[bits & 0xFFF], 2);
    }
    const unsigned rest = len % 3;
    if (groups == len / 3 && rest && n - groups * 4 >= 4) {
        const unsigned bits = static_cast<unsigned>(data[0] << 16 | (rest == 2 ? data[1] << 8 : 0));
        std::memcpy(to, base64_pairs.pairs[bits >> 12], 2);
        to[2] = rest == 2 ? alphabet[bits >> 6 & 63] : pad;
        to[3] = pad;
        to += 4;
    }
    return result_length(static_cast<unsigned long long>(to - dst));
}
