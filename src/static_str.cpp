// A fixed-size text in the caller's buffer.
#include <stdkro/share_str.h>

static_str::static_str(char* buf) noexcept
    : fixed_str(buf, buf ? static_cast<unsigned>(std::strlen(buf) + 1) : 0)
{
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
