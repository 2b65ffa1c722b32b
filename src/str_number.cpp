// Numbers, addresses and versions in texts.
//
// Integers are 32-bit and saturate; floating-point text is the same in every
// locale (number_text.h). An address is what the dotted-address conversion of the
// sockets accepts, computed here so that both platforms agree on every text.
#include <stdkro/platform_types.h>
#include <stdkro/str.h>
#include <stdkro/xcpt.h>

#include "number_text.h"
#include "text_class.h"
#include "text_format.h"
#include "text_length.h"
#include "version_text.h"

#include <algorithm>
#include <clocale>
#include <cstdint>

namespace {

// The radix that the prefix of `s` tells, and the digits behind the prefix.
int prefix_radix(const char* s, const char*& digits)
{
    digits = s;
    if (s[0] != '0')
        return 10;
    if (s[1] == 'x' || s[1] == 'X') {
        digits = s + 2;
        return 16;
    }
    if (is_digit(s[1])) {
        digits = s + 1;
        return 8;
    }
    return 10;
}

// Reads an integer with its prefix. A prefix without a digit leaves the "0" before it.
const char* parse_prefixed(const char* s, int& value, int& radix)
{
    const char* digits;
    radix = prefix_radix(s, digits);
    const int first = hex_value(*digits);
    if (radix != 10 && (first < 0 || first >= radix)) {
        value = 0;
        return s + 1;
    }
    return parse_int(digits, value, radix);
}

// Whether a "." stands behind white space, a sign and any number of digits.
bool has_point(const char* s)
{
    s = skip_space(s);
    if (*s == '-' || *s == '+')
        ++s;
    while (is_digit(*s))
        ++s;
    return *s == '.';
}

int format_number(char* dst, unsigned room, const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    const int length = format_bounded(dst, room, fmt, arguments);
    va_end(arguments);
    return length;
}

int format_one(char* dst, unsigned room, int value, const char* fmt)
{
    return format_number(dst, room, fmt, value);
}

// A format of one number, taken apart. What stands around its conversion is plain
// text, in which "%%" is one "%".
struct format_parts {
    const char* conversion;
    const char* behind;
    const char* end;

    explicit format_parts(const char* fmt) : conversion(fmt)
    {
        while (*conversion && (conversion[0] != '%' || conversion[1] == '%'))
            conversion += *conversion == '%' ? 2 : 1;
        behind = conversion + (*conversion != '\0');
        behind += std::strspn(behind, " #+-'.0123456789Ll");
        behind += *behind != '\0';
        end = behind + std::strlen(behind);
    }
};

// As `format_bounded` does it: the length, or -1 when the text was cut.
int put_plain(char* dst, unsigned room, const char* s, const char* end)
{
    if (room == 0)
        return -1;
    unsigned n = 0;
    for (; s < end && n + 1 < room; s += *s == '%' ? 2 : 1)
        dst[n++] = *s;
    dst[n] = '\0';
    return s < end ? -1 : static_cast<int>(n);
}

// The decimal point in the text of a number, or as much of it as stands at its end.
char* find_point(char* text, const char* point)
{
    for (; *text; ++text) {
        std::size_t n = 0;
        while (text[n] && text[n] == point[n])
            ++n;
        if (n && (text[n] == '\0' || point[n] == '\0'))
            return text;
    }
    return nullptr;
}

// The conversion of a format prints the decimal point of the locale; texts have ".".
int put_number(char* dst, unsigned room, double value, const format_parts& fmt, const char* point)
{
    char conversion[64]; // twice what has a meaning
    const std::size_t length = static_cast<std::size_t>(fmt.behind - fmt.conversion);
    if (room == 0 || length >= sizeof conversion)
        return -1;
    std::memcpy(conversion, fmt.conversion, length);
    conversion[length] = '\0';
    const int done = format_number(dst, room, conversion, value);
    if (char* const found = find_point(dst, point)) {
        const std::size_t size = std::min(std::strlen(found), std::strlen(point));
        *found = '.';
        std::memmove(found + 1, found + size, std::strlen(found + size) + 1);
    }
    return done < 0 ? -1 : static_cast<int>(std::strlen(dst));
}

int format_one(char* dst, unsigned room, double value, const char* fmt)
{
    const char* const point = std::localeconv()->decimal_point;
    if (std::strcmp(point, ".") == 0)
        return format_number(dst, room, fmt, value);
    const format_parts parts(fmt);
    unsigned written = 0;
    int length = put_plain(dst, room, fmt, parts.conversion);
    if (length >= 0 && parts.conversion != parts.behind) {
        written += static_cast<unsigned>(length);
        length = put_number(dst + written, room - written, value, parts, point);
    }
    if (length >= 0) {
        written += static_cast<unsigned>(length);
        length = put_plain(dst + written, room - written, parts.behind, parts.end);
    }
    return length < 0 ? -1 : static_cast<int>(written) + length;
}

template <class NUMBER>
int write_list(char* dst, unsigned n, const NUMBER* v, unsigned count, const char* fmt, char sep)
{
    unsigned written = 0;
    for (unsigned i = 0; i < count; ++i) {
        char* const to = dst + written;
        const unsigned room = dst ? n - written : 0;
        const int length = format_one(to, room, v[i], fmt);
        if (length < 0)
            return -result_length(written);
        const bool separated = sep != '\0' && i + 1 < count;
        const unsigned taken = static_cast<unsigned>(length) + (separated ? 1 : 0);
        if (taken >= room)
            return -result_length(written);
        if (separated) {
            to[length] = sep;
            to[length + 1] = '\0';
        }
        written += taken;
    }
    return result_length(written);
}

constexpr std::uint32_t no_address = 0xFFFFFFFF;

// One part of an address as C writes integers: 0x1F, 017, 15.
const char* read_part(const char* s, const char* end, unsigned long long& part)
{
    part = 0;
    const unsigned radix = s < end && *s == '0' ? 8 : 10;
    for (; s < end && *s != '.'; ++s) {
        const unsigned value = static_cast<unsigned>(*s - '0');
        if (value >= radix)
            return nullptr;
        part = part * radix + value;
    }
    return s;
}

// Four parts of 8 bits, or fewer, the last of which fills what is left.
std::uint32_t address_of(const char* s, const char* end)
{
    std::uint32_t high = 0;
    for (unsigned count = 1;; ++count) {
        unsigned long long part;
        const char* const stop = s < end ? read_part(s, end, part) : nullptr;
        if (!stop || stop == s || count > 4)
            return no_address;
        if (stop == end) {
            const unsigned bits = 32 - 8 * (count - 1);
            if (part >> bits != 0)
                return no_address;
            return static_cast<std::uint32_t>(bits == 32 ? 0 : high << bits) | static_cast<std::uint32_t>(part);
        }
        if (part > 255)
            return no_address;
        high = high << 8 | static_cast<std::uint32_t>(part);
        s = stop + 1;
    }
}

} // namespace

int str::write_multi(char* dst, unsigned n, const int* v, unsigned count, char sep) noexcept
{
    return write_list(dst, n, v, count, "%d", sep);
}

int str::write_multi(char* dst, unsigned n, const double* v, unsigned count, const char* fmt, char sep) noexcept
{
    return write_list(dst, n, v, count, fmt, sep);
}

long str::str2int(const char* s, const char** end) noexcept
{
    int value;
    int radix;
    const char* const stop = parse_prefixed(s, value, radix);
    if (end)
        *end = stop;
    return value;
}

double str::str2num(const char* s, const char** end, int* radix) noexcept
{
    int integer;
    int found;
    const char* stop = parse_prefixed(s, integer, found);
    double value = integer;
    if (found == 10 && has_point(s)) {
        const char* const behind = parse_double(s, value);
        if (behind != s) {
            stop = behind;
            found = 0;
        }
    }
    if (end)
        *end = stop;
    if (radix)
        *radix = found;
    return value;
}

int str::read_int(const char* s, int def) noexcept
{
    int value;
    const char* const stop = s ? parse_int(s, value) : nullptr;
    return stop && stop != s && *stop == '\0' ? value : def;
}

double str::read_double(const char* s, double def) noexcept
{
    double value;
    const char* const stop = s ? parse_double(s, value) : nullptr;
    return stop && stop != s && *stop == '\0' ? value : def;
}

const char* str::read_value(const char* s, in_addr& out) noexcept
{
    constexpr int longest = 15;
    const char* end = s;
    while (end - s < longest && (is_digit(*end) || *end == '.'))
        ++end;
    const std::uint32_t address = address_of(s, end);
    const unsigned char bytes[] = { static_cast<unsigned char>(address >> 24), static_cast<unsigned char>(address >> 16),
                                    static_cast<unsigned char>(address >> 8), static_cast<unsigned char>(address) };
    static_assert(sizeof(in_addr) == sizeof bytes, "an IPv4 address");
    std::memcpy(&out, bytes, sizeof bytes);
    return end;
}

const char* str::read_value(const char* s, version& out) noexcept
{
    int ver;
    int parts;
    const char* const stop = read_version(s, ver, parts);
    out = parts == 3 && *stop == '\0' ? ver : 0;
    return stop;
}
