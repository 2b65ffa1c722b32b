// A fixed-size text in the caller's buffer.
#include <stdkro/share_str.h>

// The largest size stands for any that has more than 32 bits: such a buffer is full too.
static_str::static_str(char* buf) noexcept : fixed_str(buf, 0xFFFFFFFF)
{
    const unsigned used = length();
    if (!buf)
        size_ = 0;
    else if (used < 0xFFFFFFFF)
        size_ = used + 1;
}

static_str& static_str::operator=(const char* s) noexcept
{
    copy(s);
    return *this;
}

static_str& static_str::operator=(char c) noexcept
{
    copy(&c, 1);
    return *this;
}

static_str& static_str::operator+=(const char* s) noexcept
{
    splice(s);
    return *this;
}

static_str& static_str::operator+=(char c) noexcept
{
    splice(&c, 1);
    return *this;
}

void static_str::clear() noexcept
{
    if (buf_ && size_)
        buf_[0] = '\0';
}
