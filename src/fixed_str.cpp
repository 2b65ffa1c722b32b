// A text in a buffer of fixed size: what does not fit is refused.
//
// Sizes include the terminator, so a text of n bytes fits when n is below the size.
// Sources may lie in the buffer itself.
#include <stdkro/share_str.h>

#include "text_format.h"

#include <utility>

namespace {

// What strlen says in 32 bits; a text longer than that fits no buffer.
unsigned length_of(const char* s)
{
    const std::size_t length = s ? std::strlen(s) : 0;
    return length < 0xFFFFFFFF ? static_cast<unsigned>(length) : 0xFFFFFFFF;
}

} // namespace

bool fixed_str::copy(const char* s, unsigned n) noexcept
{
    if (n >= size_)
        return false;
    if (n)
        std::memmove(buf_, s, n);
    buf_[n] = '\0';
    return true;
}

bool fixed_str::copy(const char* s) noexcept { return copy(s, length_of(s)); }

bool fixed_str::splice(const char* s, unsigned n) noexcept
{
    const unsigned long long used = length();
    if (used + n >= size_)
        return false;
    if (n)
        std::memmove(buf_ + used, s, n);
    buf_[used + n] = '\0';
    return true;
}

bool fixed_str::splice(const char* s) noexcept { return splice(s, length_of(s)); }

int fixed_str::print(const char* fmt, ...) noexcept
{
    if (!buf_)
        return -1;
    va_list arguments;
    va_start(arguments, fmt);
    const int length = format_bounded(buf_, size_, fmt, arguments);
    va_end(arguments);
    return length;
}

void fixed_str::swap_buffers(fixed_str& other) noexcept
{
    std::swap(buf_, other.buf_);
    std::swap(size_, other.size_);
}
