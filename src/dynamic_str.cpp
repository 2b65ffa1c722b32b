// A fixed-size text on the heap. The buffer comes from std::malloc, so that one
// handed over by set_buf can be freed the same way.
#include <stdkro/share_str.h>

#include <cstdlib>

namespace {

// A copy of `size` bytes; null, and size 0, without memory.
char* copy_of(const char* bytes, unsigned& size)
{
    char* const copy = bytes && size ? static_cast<char*>(std::malloc(size)) : nullptr;
    if (copy)
        std::memcpy(copy, bytes, size);
    else
        size = 0;
    return copy;
}

} // namespace

dynamic_str::dynamic_str(const char* s) noexcept : dynamic_str(s, s ? s + std::strlen(s) : nullptr) {}

dynamic_str::dynamic_str(const char* b, const char* e) noexcept : fixed_str(nullptr, 0)
{
    const std::size_t length = b && b < e ? static_cast<std::size_t>(e - b) : 0;
    if (!b || length >= 0xFFFFFFFF)
        return;
    buf_ = static_cast<char*>(std::malloc(length + 1));
    if (!buf_)
        return;
    size_ = static_cast<unsigned>(length + 1);
    copy(b, static_cast<unsigned>(length));
}

dynamic_str::dynamic_str(const dynamic_str& other) noexcept : fixed_str(nullptr, other.size_)
{
    buf_ = copy_of(other.buf_, size_);
}

dynamic_str& dynamic_str::operator=(const char* s) noexcept
{
    copy(s);
    return *this;
}

dynamic_str& dynamic_str::operator=(char c) noexcept
{
    copy(&c, 1);
    return *this;
}

dynamic_str& dynamic_str::operator+=(const char* s) noexcept
{
    splice(s);
    return *this;
}

dynamic_str& dynamic_str::operator+=(char c) noexcept
{
    splice(&c, 1);
    return *this;
}

void dynamic_str::clear() noexcept
{
    std::free(buf_);
    set_buf(nullptr, 0);
}
