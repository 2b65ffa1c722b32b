// Quoting: bytes that would end or break a quoted text are written as a backslash
// and a letter.
#include <stdkro/str.h>

#include "text_class.h"
#include "text_length.h"

namespace {

// Every byte as a text of its own, and the length of that text.
struct escape_table {
    char text[256][3];
    unsigned char length[256];
};

constexpr escape_table make_escapes()
{
    escape_table table {};
    for (unsigned i = 0; i < 256; ++i) {
        table.text[i][0] = static_cast<char>(i);
        table.length[i] = i ? 1 : 0;
    }
    constexpr char escaped[][2] = { { '\t', 't' }, { '\n', 'n' }, { '\r', 'r' }, { '"', '"' }, { '\\', '\\' } };
    for (const auto& e : escaped) {
        const auto byte = static_cast<unsigned char>(e[0]);
        table.text[byte][0] = '\\';
        table.text[byte][1] = e[1];
        table.length[byte] = 2;
    }
    return table;
}

constexpr escape_table escapes = make_escapes();

unsigned long long quoted_length(const char* s)
{
    unsigned long long length = 0;
    for (; *s; ++s)
        length += escapes.length[static_cast<unsigned char>(*s)];
    return length;
}

} // namespace

const char* str::to_single(unsigned char c) noexcept { return escapes.text[c]; }

int str::write_quote(char* dst, unsigned n, const char* s) noexcept
{
    if (!dst)
        return result_length(quoted_length(s));
    unsigned long long pos = 0;
    for (; *s; ++s) {
        const auto byte = static_cast<unsigned char>(*s);
        const unsigned length = escapes.length[byte];
        if (pos + length >= n)
            return -1;
        std::memcpy(dst + pos, escapes.text[byte], length);
        pos += length;
    }
    if (pos >= n)
        return -1;
    dst[pos] = '\0';
    return result_length(pos);
}

share_str str::write_quote(const char* s) noexcept
{
    constexpr unsigned usual_length = 256;
    const unsigned long long length = quoted_length(s);
    share_str quoted;
    if (length > 0xFFFFFFFF || !quoted.reserved(usual_length) || !quoted.reserved(static_cast<unsigned>(length)))
        return share_str();
    // Bytes that stay as they are go over in runs.
    const char* run = s;
    for (; *s; ++s) {
        const auto byte = static_cast<unsigned char>(*s);
        if (escapes.length[byte] == 1)
            continue;
        quoted.insert(quoted.length(), run, static_cast<unsigned>(s - run));
        quoted += escapes.text[byte];
        run = s + 1;
    }
    quoted.insert(quoted.length(), run, static_cast<unsigned>(s - run));
    return quoted;
}

int str::write_triple(char* dst, unsigned n, const char* s) noexcept { return write_quote(dst, n, s); }

int str::write_value(char* dst, unsigned n, const char* s) noexcept
{
    if (!dst)
        return result_length(quoted_length(s) + 2);
    if (n < 2)
        return -1;
    const int length = write_quote(dst + 1, n - 2, s);
    if (length < 0)
        return -1;
    dst[0] = '"';
    dst[length + 1] = '"';
    dst[length + 2] = '\0';
    return length + 2;
}

int str::write_value(char* dst, unsigned n, const share_str& s) noexcept { return write_value(dst, n, s.c_str()); }

const char* str::skip_value(const char* s) noexcept
{
    if (*s != '"') {
        while (*s && *s != ',' && *s != ';' && !is_space(*s))
            ++s;
        return s;
    }
    for (++s; *s && *s != '"'; ++s) {
        if (*s == '\\' && *++s == '\0')
            return s;
    }
    return *s ? s + 1 : s;
}
