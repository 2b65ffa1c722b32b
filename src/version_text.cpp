// Version numbers: three numbers packed into one int.
#include "version_text.h"

#include <stdkro/xcpt.h>

#include "text_class.h"

#include <cstdio>

namespace {

// part := [space] [sign] digits
const char* read_part(const char* s, unsigned& value)
{
    const char* p = skip_space(s);
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    const char* const digits = p;
    value = 0;
    for (; is_digit(*p); ++p)
        value = value * 10 + static_cast<unsigned>(*p - '0');
    if (negative)
        value = 0 - value;
    return p == digits ? s : p;
}

int pack(unsigned major, unsigned minor, unsigned micro)
{
    return static_cast<int>((major & 0xFF) << 24 | (minor & 0xFF) << 16 | (micro & 0xFFFF));
}

} // namespace

const char* read_version(const char* s, int& ver, int& parts)
{
    unsigned part[3] = { 0, 0, 0 };
    const char* stop = s;
    parts = 0;
    for (const char* p = s; parts < 3; p = stop + 1) {
        const char* const behind = read_part(p, part[parts]);
        if (behind == p)
            break;
        stop = behind;
        ++parts;
        if (*stop != '.')
            break;
    }
    ver = pack(part[0], part[1], part[2]);
    return stop;
}

int read_ver(const char* s)
{
    int ver;
    int parts;
    read_version(s, ver, parts);
    return parts == 3 ? ver : 0;
}

char* format_ver(char* dst, int ver)
{
    const version v(ver);
    constexpr int longest = 14;
    std::snprintf(dst, longest, "%d.%d.%d", v.get_major(), v.get_minor(), v.get_micro());
    return dst;
}

version::version(int major, int minor, int micro)
    : ver_(pack(static_cast<unsigned>(major), static_cast<unsigned>(minor), static_cast<unsigned>(micro)))
{
}
