// The byte buffer between a socket and its program.
//
// Its owner sees a buffer that is made exactly as large as it is asked for. The
// block beneath is larger: asking for more moves the visible end, and the bytes already
// read are dropped by moving the visible beginning. Bytes are copied only
// when the block is used up, and then it at least doubles, so that a byte is copied a
// constant number of times however large the backlog is.
#include <stdkro/socket.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned long long longest = 0xFFFFFFFFull;

} // namespace

packet::packet(const void* bytes, unsigned n) { write(bytes, n); }

packet::~packet() { std::free(block_); }

void packet::set_positions(char* begin, unsigned unread, unsigned room)
{
    begin_ = read_ = begin;
    write_ = begin + unread;
    end_ = write_ + room;
}

// A block of at least `size` bytes with the unread bytes at its start: an ample one, or
// one that is just enough.
bool packet::take_block(unsigned long long size)
{
    const unsigned unread = count();
    const bool is_unread = read_ == block_; // then it may grow in place
    const unsigned long long ample = std::min(longest, std::max(size, 2ull * static_cast<unsigned>(block_end_ - block_)));
    for (const unsigned long long taken : { ample, size }) {
        void* const fresh = is_unread ? std::realloc(block_, static_cast<std::size_t>(taken))
                                      : std::malloc(static_cast<std::size_t>(taken));
        if (!fresh)
            continue;
        if (!is_unread) {
            std::memcpy(fresh, read_, unread);
            std::free(block_);
        }
        block_ = static_cast<char*>(fresh);
        block_end_ = block_ + taken;
        set_positions(block_, unread, 0);
        return true;
    }
    return false;
}

unsigned packet::reserved(unsigned n)
{
    const unsigned room = static_cast<unsigned>(end_ - write_);
    if (room >= n)
        return room;
    const unsigned unread = count();
    const unsigned long long needed = static_cast<unsigned long long>(unread) + n;
    if (needed > longest)
        return 0;

    const unsigned long long block_size = static_cast<unsigned long long>(block_end_ - block_);
    if (unread == 0 && n <= block_size) {
        // What comes next goes where the processor has the memory at hand.
        set_positions(block_, 0, n);
    } else if (static_cast<unsigned>(block_end_ - write_) >= n) {
        set_positions(read_, unread, n);
    } else if (needed <= block_size / 2) {
        // At least half of the block is free: moving costs less than what was read.
        std::memmove(block_, read_, unread);
        set_positions(block_, unread, n);
    } else {
        if (!take_block(needed))
            return 0;
        set_positions(block_, unread, n);
    }
    return n;
}

unsigned packet::write(const void* bytes, unsigned n)
{
    if (n == 0 || (static_cast<unsigned>(end_ - write_) < n && reserved(n) == 0))
        return 0;
    std::memcpy(write_, bytes, n);
    write_ += n;
    return n;
}

unsigned packet::read(void* bytes, unsigned n)
{
    const unsigned taken = std::min(n, count());
    if (taken > 0)
        std::memcpy(bytes, read_, taken);
    read_ += taken;
    return taken;
}

unsigned packet::print(unsigned size, const char* format, ...)
{
    const unsigned room = reserved(size);
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);

    // The formatter writes a terminator, for which the room need not suffice: format elsewhere.
    char few[1024];
    const int length = std::vsnprintf(few, sizeof few, format, arguments);
    va_end(arguments);
    const unsigned n = length < 0 ? 0 : static_cast<unsigned>(length);
    unsigned printed = 0;
    if (n > 0 && n <= size && n <= room) {
        if (n < sizeof few) {
            printed = write(few, n);
        } else if (char* many = static_cast<char*>(std::malloc(n + std::size_t(1)))) {
            std::vsnprintf(many, n + std::size_t(1), format, again);
            printed = write(many, n);
            std::free(many);
        }
    }
    va_end(again);
    return printed;
}

bool packet::rseek(unsigned position)
{
    if (position > wpos())
        return false;
    read_ = begin_ + position;
    return true;
}

bool packet::rmove(int delta)
{
    const long long position = static_cast<long long>(rpos()) + delta;
    return position >= 0 && position <= wpos() && rseek(static_cast<unsigned>(position));
}

bool packet::wseek(unsigned position)
{
    if (position > capacity())
        return false;
    write_ = begin_ + position;
    read_ = std::min(read_, write_);
    return true;
}

bool packet::wmove(int delta)
{
    const long long position = static_cast<long long>(wpos()) + delta;
    return position >= 0 && position <= capacity() && wseek(static_cast<unsigned>(position));
}

void packet::clear()
{
    std::free(block_);
    block_ = begin_ = read_ = write_ = end_ = block_end_ = nullptr;
}

void packet::set_buf(void* buffer, unsigned size)
{
    char* const given = static_cast<char*>(buffer);
    if (given != begin_ || !given) {
        std::free(block_);
        block_ = given;
    }
    begin_ = read_ = write_ = given;
    end_ = block_end_ = given + size;
}
