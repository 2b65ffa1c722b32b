// Bounded formatting.
//
// The plain conversions of nearly all formats (%d %i %u %x %c %s %%, with l or ll) are
// done here: the C library takes twice the time over them. Any other sends the whole
// format to the C library.
#include "text_format.h"

#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

// Room that takes what fits, and one terminator.
class bounded_text {
public:
    bounded_text(char* dst, unsigned size) : begin_(dst), p_(dst), last_(dst + size - 1), is_cut_(false) {}

    void put(const char* s, std::size_t n)
    {
        const std::size_t room = static_cast<std::size_t>(last_ - p_);
        if (n > room) {
            is_cut_ = true;
            n = room;
        }
        std::memcpy(p_, s, n);
        p_ += n;
    }
    template <class number> void put_number(number value, int base)
    {
        char digits[24];
        const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value, base);
        put(digits, static_cast<std::size_t>(end.ptr - digits));
    }
    // Everything up to the next "%" or the end, and where that is. Such pieces are
    // short: a loop is done before a search and a copy have begun.
    const char* put_plain(const char* s)
    {
        for (; *s != '%' && *s != '\0'; ++s) {
            if (p_ == last_)
                is_cut_ = true;
            else
                *p_++ = *s;
        }
        return s;
    }
    int finish()
    {
        *p_ = '\0';
        return is_cut_ ? -1 : static_cast<int>(p_ - begin_);
    }

private:
    char* const begin_;
    char* p_;
    char* const last_;
    bool is_cut_;
};

// How many "l" stand before a conversion; more than two are none that is known here.
int count_longs(const char* p) { return p[0] != 'l' ? 0 : p[1] != 'l' ? 1 : 2; }

// Formats with `arguments`, which are used up. False at a conversion that is not plain.
bool format_plain(bounded_text& out, const char* fmt, va_list* arguments)
{
    for (const char* p = out.put_plain(fmt); *p; p = out.put_plain(p)) {
        const int longs = count_longs(++p);
        p += longs;
        switch (*p++) {
        case 'd':
        case 'i':
            if (longs == 0)
                out.put_number(va_arg(*arguments, int), 10);
            else if (longs == 1)
                out.put_number(va_arg(*arguments, long), 10);
            else
                out.put_number(va_arg(*arguments, long long), 10);
            continue;
        case 'u':
        case 'x': {
            const int base = p[-1] == 'u' ? 10 : 16;
            if (longs == 0)
                out.put_number(va_arg(*arguments, unsigned), base);
            else if (longs == 1)
                out.put_number(va_arg(*arguments, unsigned long), base);
            else
                out.put_number(va_arg(*arguments, unsigned long long), base);
            continue;
        }
        case 'c': {
            if (longs != 0)
                return false;
            const char c = static_cast<char>(va_arg(*arguments, int));
            out.put(&c, 1);
            continue;
        }
        case 's': {
            if (longs != 0)
                return false;
            const char* const s = va_arg(*arguments, const char*);
            out.put(s ? s : "(null)", s ? std::strlen(s) : 6);
            continue;
        }
        case '%':
            if (longs != 0)
                return false;
            out.put("%", 1);
            continue;
        default:
            return false;
        }
    }
    return true;
}

int format_any(char* dst, unsigned size, const char* fmt, va_list arguments)
{
    dst[0] = '\0';
    const int length = std::vsnprintf(dst, size, fmt, arguments);
    if (length >= 0 && static_cast<unsigned>(length) < size)
        return length;
    dst[size - 1] = '\0';
    return -1;
}

} // namespace

int format_bounded(char* dst, unsigned size, const char* fmt, va_list arguments)
{
    if (size == 0)
        return -1;
    bounded_text out(dst, size);
    va_list copy;
    va_copy(copy, arguments);
    const bool done = format_plain(out, fmt, &copy);
    va_end(copy);
    return done ? out.finish() : format_any(dst, size, fmt, arguments);
}
