// Characters, words and paths.
//
// Where characters are counted, a byte with its high bit set opens a character of
// two bytes (as in GBK). The terminator ends a text also right behind such a byte.
#include <stdkro/str.h>

#include "text_class.h"

#include <cctype>

namespace {

const char* next_character(const char* s)
{
    const bool two_bytes = (static_cast<unsigned char>(*s) & 0x80) != 0;
    return two_bytes && s[1] != '\0' ? s + 2 : s + 1;
}

int same_case(unsigned char c) { return c; }
int lower_case(unsigned char c) { return std::tolower(c); }

// strcmp with the range [b, e) as the second text.
template <int fold(unsigned char)> int compare(const char* s, const char* b, const char* e)
{
    for (; b < e; ++s, ++b) {
        if (*s == '\0')
            return -1;
        const int difference = fold(static_cast<unsigned char>(*s)) - fold(static_cast<unsigned char>(*b));
        if (difference != 0)
            return difference;
    }
    return *s == '\0' ? 0 : 1;
}

} // namespace

unsigned str::strword(const char* s) noexcept
{
    unsigned count = 0;
    if (!s)
        return 0;
    for (; *s; s = next_character(s))
        ++count;
    return count;
}

const char* str::getword(const char* s, unsigned n) noexcept
{
    if (!s)
        return nullptr;
    for (; n && *s; --n)
        s = next_character(s);
    return *s ? s : nullptr;
}

char* str::zstrlwr(char* s) noexcept
{
    for (char* p = s; p && *p; ++p)
        *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
    return s;
}

char* str::zstrupr(char* s) noexcept
{
    for (char* p = s; p && *p; ++p)
        *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    return s;
}

void str::split_path(const char* path, char* name, char* ext) noexcept
{
    const char* const end = path + std::strlen(path);
    const char* dot = end;
    const char* begin = end;
    for (; begin > path && begin[-1] != '/' && begin[-1] != '\\'; --begin) {
        if (begin[-1] == '.' && dot == end)
            dot = begin - 1;
    }
    // A name is never empty: ".profile" has no extension.
    if (dot == begin)
        dot = end;
    if (name) {
        std::memcpy(name, begin, static_cast<std::size_t>(dot - begin));
        name[dot - begin] = '\0';
    }
    if (ext)
        std::memcpy(ext, dot, static_cast<std::size_t>(end - dot) + 1);
}

const char* str::read_para(char* dst, unsigned n, const char* s) noexcept
{
    s = skip_space(s);
    unsigned count = 0;
    while (count < n && *s && !is_space(*s))
        dst[count++] = *s++;
    if (count < n)
        dst[count] = '\0';
    return s;
}

void str::nstrcpy(char* dst, unsigned n, const char* src) noexcept
{
    if (n == 0)
        return;
    unsigned count = 0;
    for (; count < n - 1 && src[count]; ++count)
        dst[count] = src[count];
    dst[count] = '\0';
    dst[n - 1] = '\0';
}

int str::nstrcmp(const char* s, const char* b, const char* e) noexcept { return compare<same_case>(s, b, e); }

int str::nstricmp(const char* s, const char* b, const char* e) noexcept { return compare<lower_case>(s, b, e); }
