// The rules of `packet` by the letter: a buffer that is made anew each time it is too small. The
// library's hides room behind its end and moves bytes instead; that must not show.
#ifndef STDKRO_TESTS_PACKET_MODEL_H
#define STDKRO_TESTS_PACKET_MODEL_H

#include <stdkro/socket.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

class packet_model {
public:
    enum { operation_count = 12 };

    /// Does one operation with both. False where they differ.
    bool step(packet& p, unsigned operation, unsigned n, const char* bytes)
    {
        const int delta = static_cast<int>(n);
        switch (operation % operation_count) {
        case 0:
            return p.reserved(n) == reserved(n);
        case 1:
        case 2:
            return p.write(bytes, n) == n && append(std::string(bytes, n));
        case 3:
        case 4:
            return read(p, n);
        case 5:
            return p.rmove(delta) == move_read(static_cast<long long>(read_) + delta);
        case 6:
            return p.wmove(-delta) == move_write(static_cast<long long>(write_) - delta);
        case 7:
            return p.rseek(n) == move_read(n);
        case 8:
            return fill(p, n);
        case 9:
            return print(p, n);
        case 10:
            p.reset();
            read_ = write_ = 0;
            return true;
        default:
            return replace(p, n);
        }
    }

    bool is_like(const packet& p) const
    {
        return buffer_.size() == p.capacity() && read_ == p.rpos() && write_ == p.wpos() && write_ - read_ == p.count()
            && p.rptr() - p.bptr() == static_cast<long>(read_) && p.eptr() - p.bptr() == static_cast<long>(buffer_.size())
            && buffer_.compare(read_, write_ - read_, p.rptr() ? p.rptr() : "", p.count()) == 0;
    }

private:
    unsigned reserved(unsigned n)
    {
        const unsigned room = static_cast<unsigned>(buffer_.size()) - write_;
        if (room >= n)
            return room;
        const std::string kept = buffer_.substr(read_, write_ - read_);
        buffer_ = kept + std::string(n, '?');
        read_ = 0;
        write_ = static_cast<unsigned>(kept.size());
        return n;
    }

    bool append(const std::string& bytes)
    {
        const unsigned n = static_cast<unsigned>(bytes.size());
        if (n > 0)
            reserved(n);
        buffer_.replace(write_, n, bytes);
        write_ += n;
        return true;
    }

    bool read(packet& p, unsigned n)
    {
        const unsigned taken = std::min(n, write_ - read_);
        std::string bytes(n, '!');
        const bool is_same = p.read(&bytes[0], n) == taken && buffer_.compare(read_, taken, bytes, 0, taken) == 0;
        read_ += taken;
        return is_same;
    }

    bool move_read(long long position)
    {
        const bool fits = position >= 0 && position <= write_;
        read_ = fits ? static_cast<unsigned>(position) : read_;
        return fits;
    }

    bool move_write(long long position)
    {
        const bool fits = position >= 0 && position <= static_cast<long long>(buffer_.size());
        write_ = fits ? static_cast<unsigned>(position) : write_;
        read_ = std::min(read_, write_);
        return fits;
    }

    // Bytes put at the write position from outside, as a receive does, and the move over them.
    bool fill(packet& p, unsigned position)
    {
        if (position > write_ && position <= buffer_.size()) {
            std::memset(p.wptr(), 'f', position - write_);
            buffer_.replace(write_, position - write_, position - write_, 'f');
        }
        const int delta = static_cast<int>(position - write_);
        const bool fits = position % 2 == 0 ? p.wseek(position) : p.wmove(delta);
        return fits == move_write(position);
    }

    // A text of `n` bytes for which n, n + 1 or n - 1 are allowed.
    bool print(packet& p, unsigned n)
    {
        const std::string text(n, 'p');
        const unsigned size = n % 3 == 0 ? n : n % 3 == 1 ? n + 1 : n - 1;
        const bool fits = n > 0 && n <= size;
        reserved(size);
        return p.print(size, "%s", text.c_str()) == (fits ? n : 0) && (!fits || append(text));
    }

    // Nothing, or a buffer from outside.
    bool replace(packet& p, unsigned n)
    {
        if (n % 2 == 0)
            p.clear();
        else
            p.set_buf(std::calloc(n, 1), n);
        buffer_.assign(n % 2 == 0 ? 0 : n, '\0');
        read_ = write_ = 0;
        return true;
    }

    std::string buffer_;
    unsigned read_ = 0;
    unsigned write_ = 0;
};

#endif
