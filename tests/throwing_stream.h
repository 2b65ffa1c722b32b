// A stream that lets through what its buffer throws.
#ifndef STDKRO_TESTS_THROWING_STREAM_H
#define STDKRO_TESTS_THROWING_STREAM_H

#include <ostream>
#include <streambuf>

/// Throws a copy of `what` at the first byte.
template <class thrown> class throwing_stream : public std::ostream {
public:
    explicit throwing_stream(const thrown& what) : std::ostream(nullptr), buffer_(what)
    {
        rdbuf(&buffer_);
        exceptions(std::ios::badbit);
    }

private:
    struct throwing_buffer : std::streambuf {
        explicit throwing_buffer(const thrown& w) : what(w) {}
        int overflow(int) override { throw what; }
        std::streamsize xsputn(const char*, std::streamsize) override { throw what; }
        thrown what;
    };

    throwing_buffer buffer_;
};

/// What `write` returns for such a stream.
template <class thrown, class function> int status_of_throwing(const thrown& what, function write)
{
    throwing_stream<thrown> out(what);
    return write(out);
}

#endif
