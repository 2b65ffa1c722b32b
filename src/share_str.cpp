// Reference-counted, copy-on-write text.
//
// One block holds three counters and the characters. A block for n characters
// has (n + 16) bytes rounded down to a multiple of 4, and its capacity is what
// that leaves beside counters and terminator: 3, 7, 11, ... The memory beneath
// is the next power of two (less the 8 bytes that allocators put before a block),
// which the capacity alone determines, so that most growth only raises the
// capacity and the rest is one realloc: appending stays linear although the
// capacity grows by 4 at a time.
//
// The null string is one static buffer of capacity 0. All empty strings count
// themselves in it, and it is never freed, whatever its count says.
#include <stdkro/share_str.h>

#include "share_str_page.h"
#include "text_format.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <ostream>

namespace {

// Sizes are computed in 64 bits, so that none wraps; what is too large for the
// counters or for the machine counts as a failed allocation.
using wide = unsigned long long;

constexpr wide counters = offsetof(KroStringBuf, chars);
constexpr wide max_length = std::numeric_limits<unsigned>::max() - 3;

static_assert(counters == 12, "the block rule counts three words of 32 bits");

constexpr wide block_for(wide n) { return (n + counters + 4) & ~wide { 3 }; }
constexpr wide capacity_of(wide block) { return block - counters - 1; }

// The bytes taken for a block: 24, 56, 120, ... up to 1 GB, then steps of 64 MB.
// share_str::widen knows this too.
wide memory_for(wide block)
{
    constexpr wide largest_power = wide { 1 } << 30;
    constexpr wide step = wide { 1 } << 26;
    constexpr wide allocator_word = 8;
    wide below = block + allocator_word - 1;
    if (below >= largest_power)
        return (block + step - 1) & ~(step - 1);
    for (unsigned shift = 1; shift < 32; shift *= 2)
        below |= below >> shift;
    return below + 1 - allocator_word;
}

// Gives `buf` (or, for null, nothing) the memory for `block` bytes.
KroStringBuf* resize(KroStringBuf* buf, wide block)
{
    const wide bytes = memory_for(block);
    if (bytes > static_cast<wide>(std::numeric_limits<std::ptrdiff_t>::max()))
        return nullptr;
    const auto size = static_cast<std::size_t>(bytes);
    return static_cast<KroStringBuf*>(buf ? std::realloc(buf, size) : std::malloc(size));
}

// Whether `n` characters fit into the memory of `buf`, which must not be shared; the
// capacity is raised to what the rule gives for them. The null string has no memory, and
// a text in a page none to spare.
bool fits(KroStringBuf* buf, wide n)
{
    if (n <= buf->capacity)
        return true;
    const wide block = block_for(n);
    const bool has_memory = buf->capacity != 0 && !share_str_page::holds(buf);
    if (!has_memory || n > max_length || block > memory_for(buf->capacity + counters + 1))
        return false;
    buf->capacity = static_cast<unsigned>(capacity_of(block));
    return true;
}

// Where `s` lies in the text of `buf`, or -1.
std::ptrdiff_t place_in(const KroStringBuf* buf, const char* s)
{
    const std::less<const char*> before;
    const char* const text = buf->chars;
    return before(s, text) || before(text + buf->length, s) ? -1 : s - text;
}

void end_text(KroStringBuf* buf, unsigned length)
{
    buf->chars[length] = '\0';
    buf->length = length;
}

} // namespace

KroStringBuf share_str::m_nullString = { 1, 0, 0, { '\0' } };

share_str::share_str(const char* b, const char* e) noexcept : buf_(nullptr)
{
    const std::size_t n = b && b < e ? static_cast<std::size_t>(e - b) : 0;
    buf_ = n <= max_length ? allocate(static_cast<unsigned>(n), b, static_cast<unsigned>(n)) : ref_null_string();
}

KroStringBuf* share_str::allocate(unsigned n, const char* src, unsigned len) noexcept
{
    KroStringBuf* const buf = allocate(n);
    if (!buf)
        return ref_null_string();
    std::memcpy(buf->chars, src, len);
    end_text(buf, len);
    return buf;
}

KroStringBuf* share_str::allocate(const char* s) noexcept
{
    const std::size_t n = s ? std::strlen(s) : 0;
    if (n > max_length)
        return ref_null_string();
    return allocate(static_cast<unsigned>(n), s, static_cast<unsigned>(n));
}

KroStringBuf* share_str::allocate(unsigned n) noexcept
{
    if (n == 0 || n > max_length)
        return nullptr;
    const wide block = block_for(n);
    KroStringBuf* const buf = resize(nullptr, block);
    if (!buf)
        return nullptr;
    buf->refs = 1;
    buf->capacity = static_cast<unsigned>(capacity_of(block));
    end_text(buf, 0);
    return buf;
}

// A locked buffer is never shared. A count that can go no higher is treated alike.
KroStringBuf* share_str::copy_of_locked() const noexcept
{
    return buf_->capacity ? allocate(buf_->length, buf_->chars, buf_->length) : buf_;
}

void share_str::destroy(KroStringBuf* buf) noexcept
{
    if (!buf->capacity)
        buf->refs = 1;
    else if (share_str_page::holds(buf))
        share_str_page::release(buf);
    else
        std::free(buf);
}

// Gives a buffer that is not shared room for `n`, in place where its memory suffices.
bool share_str::grow(unsigned long long n) noexcept
{
    if (fits(buf_, n))
        return true;
    const wide block = block_for(n);
    KroStringBuf* buf;
    if (share_str_page::holds(buf_)) {
        // Texts of documents have no memory to spare: the buffer leaves its page.
        buf = resize(nullptr, block);
        if (!buf)
            return false;
        std::memcpy(buf, buf_, counters + buf_->capacity + 1);
        share_str_page::release(buf_);
    } else {
        buf = resize(buf_, block);
        if (!buf)
            return false;
    }
    buf_ = buf;
    buf->capacity = static_cast<unsigned>(capacity_of(block));
    return true;
}

// `n` is never 0, so that the null string is never the buffer given.
char* share_str::edit(unsigned long long n) noexcept
{
    if (buf_->refs == 1 && n <= buf_->capacity)
        return buf_->chars;
    if (n > max_length || islock())
        return nullptr;
    if (buf_->refs == 1 && buf_->capacity)
        return grow(n) ? buf_->chars : nullptr;
    KroStringBuf* const own = allocate(static_cast<unsigned>(n));
    if (!own)
        return nullptr;
    std::memcpy(own->chars, buf_->chars, buf_->length + std::size_t { 1 });
    own->length = buf_->length;
    adopt(own);
    return own->chars;
}

void share_str::append(const char* s, std::size_t n) noexcept
{
    if (n == 0)
        return;
    const std::size_t length = buf_->length;
    if (buf_->refs == 1 && fits(buf_, wide { length } + n)) {
        std::memcpy(buf_->chars + length, s, n);
        end_text(buf_, static_cast<unsigned>(length + n));
        return;
    }
    const std::ptrdiff_t place = place_in(buf_, s);
    char* const to = edit(wide { length } + n);
    if (!to)
        return;
    std::memcpy(to + length, place < 0 ? s : to + place, n);
    end_text(buf_, static_cast<unsigned>(length + n));
}

share_str& share_str::append(char c) noexcept
{
    append(&c, 1);
    return *this;
}

void share_str::set(unsigned i, char c) noexcept
{
    const unsigned length = buf_->length;
    if (i >= length)
        return;
    char* const to = edit(length);
    if (!to)
        return;
    to[i] = c;
    if (c == '\0')
        buf_->length = i;
}

bool share_str::insert(unsigned pos, const char* s, unsigned n) noexcept
{
    const std::size_t length = buf_->length;
    if (pos > length)
        return false;
    if (n == 0)
        return true;
    const std::ptrdiff_t place = place_in(buf_, s);
    char* const to = edit(wide { length } + n);
    if (!to)
        return false;
    std::memmove(to + pos + n, to + pos, length - pos + 1);
    if (place < 0) {
        std::memcpy(to + pos, s, n);
    } else {
        // This string's own text: what stood behind `pos` has moved by n.
        const auto from = static_cast<std::size_t>(place);
        const std::size_t before = from < pos ? (pos - from < n ? pos - from : n) : 0;
        std::memcpy(to + pos, to + from, before);
        std::memcpy(to + pos + before, to + from + before + n, n - before);
    }
    buf_->length = static_cast<unsigned>(length + n);
    return true;
}

bool share_str::insert(unsigned pos, const char* s) noexcept
{
    const std::size_t n = s ? std::strlen(s) : 0;
    return n <= max_length && insert(pos, s, static_cast<unsigned>(n));
}

// KEEP: the range is not checked; every caller has just found it in the text.
bool share_str::remove(unsigned pos, unsigned n) noexcept
{
    if (n == 0)
        return !islock();
    const unsigned length = buf_->length;
    char* const to = edit(length);
    if (!to)
        return false;
    std::memmove(to + pos, to + pos + n, std::size_t { length } - pos - n + 1);
    buf_->length = length - n;
    return true;
}

share_str share_str::substr(unsigned begin, unsigned end) const noexcept
{
    if (end > length())
        end = length();
    if (begin == 0 && end == length())
        return *this;
    if (begin >= end)
        return share_str();
    return share_str(text() + begin, text() + end);
}

char* share_str::lock(unsigned n) noexcept
{
    const unsigned needed = n < buf_->length ? buf_->length : n;
    char* const to = edit(needed ? needed : 1);
    if (to)
        buf_->refs = KroStringBuf::locked;
    return to;
}

void share_str::unlock() noexcept
{
    const char* const nul = static_cast<const char*>(std::memchr(text(), '\0', buf_->capacity));
    unlock(nul ? static_cast<unsigned>(nul - text()) : buf_->capacity);
}

void share_str::unlock(unsigned n) noexcept
{
    if (!islock())
        return;
    buf_->refs = 1;
    end_text(buf_, n < buf_->capacity ? n : buf_->capacity);
}

bool share_str::reserved(unsigned n) noexcept
{
    if (n <= buf_->capacity)
        return true;
    if (n > max_length)
        return false;
    if (islock())
        return grow(n);
    return edit(n) != nullptr;
}

void share_str::print(const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    const printed_text made(fmt, arguments);
    va_end(arguments);
    *this = made.text;
}

share_str share_str::print_str(const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    const printed_text made(fmt, arguments);
    va_end(arguments);
    return share_str(made.text);
}

bool operator==(const share_str& a, const char* b) noexcept
{
    const std::size_t length = b ? std::strlen(b) : 0;
    return a.length() == length && (length == 0 || std::memcmp(a.c_str(), b, length) == 0);
}

std::ostream& operator<<(std::ostream& out, const share_str& s) { return out << s.c_str(); }
