// The character source.
//
// All of a text is in memory, so reading a character is a comparison and a load,
// inline in the header; what can skip many characters at once stands here.
#include <stdkro/base_lexer.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <istream>
#include <limits>
#include <memory>

namespace {

// Positions and sizes are 32 bits wide.
constexpr std::size_t max_size = std::numeric_limits<unsigned>::max() - 1;

struct close_file {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using file_handle = std::unique_ptr<std::FILE, close_file>;

struct free_memory {
    void operator()(char* p) const { std::free(p); }
};
using memory = std::unique_ptr<char, free_memory>;

unsigned line_feeds(const char* begin, const char* end)
{
    return static_cast<unsigned>(std::count(begin, end, '\n'));
}

// Whether [begin, end) lies in another text.
bool is_part(const char* begin, const char* end, const char* text_begin, const char* text_end)
{
    const std::less<const char*> before;
    return !before(begin, text_begin) && !before(text_end, end);
}

// isspace without the call for ASCII, where no locale differs.
bool is_white(char c)
{
    const unsigned char u = static_cast<unsigned char>(c);
    if (u < 0x80)
        return u == ' ' || (u >= '\t' && u <= '\r');
    return std::isspace(u) != 0;
}

// The size of a file that can be read, or a status code. What cannot be read, such as
// a folder or a file opened for writing, shows by a first character that is missing
// before the end; not every system calls that an error.
long long size_of(std::FILE* f)
{
    if (std::fgetc(f) == EOF && !std::feof(f))
        return err::file_system;
    if (std::fseek(f, 0, SEEK_END) != 0)
        return err::file_system;
    const long size = std::ftell(f);
    if (size < 0 || std::fseek(f, 0, SEEK_SET) != 0)
        return err::file_system;
    return size;
}

// Takes what is left of a stream into `text`, doubling it as it fills.
int read_all(std::streambuf& in, memory& text, std::size_t& length)
{
    std::size_t room = 0;
    for (;;) {
        if (length == room) {
            room = std::max<std::size_t>(room * 2, 4096);
            char* const bigger = length > max_size ? nullptr : static_cast<char*>(std::realloc(text.get(), room));
            if (!bigger)
                return err::out_of_memory;
            static_cast<void>(text.release());
            text.reset(bigger);
        }
        const std::streamsize wanted = static_cast<std::streamsize>(room - length);
        const std::streamsize got = in.sgetn(text.get() + length, wanted);
        if (got > 0)
            length += static_cast<std::size_t>(got);
        // Less is the end. Do not ask again: a terminal would wait for a second one.
        if (got < wanted)
            return err::ok;
    }
}

} // namespace

reader::reader(const reader& other) { copy_reader(other); }

reader& reader::operator=(const reader& other)
{
    if (this != &other)
        copy_reader(other);
    return *this;
}

reader::~reader() { free_buf(); }

void reader::free_buf()
{
    if (own_)
        std::free(const_cast<char*>(buf_));
    own_ = false;
    buf_ = eof_ = cur_ = nullptr;
}

bool reader::copy_reader(const reader& other)
{
    const std::size_t size = static_cast<std::size_t>(other.eof_ - other.buf_);
    char* const text = size == 0 ? nullptr : static_cast<char*>(std::malloc(size));
    if (text)
        std::memcpy(text, other.buf_, size);
    const std::ptrdiff_t pos = other.cur_ - other.buf_;
    const int line = other.line_;
    clear();
    if (!text)
        return size == 0;
    own_ = true;
    buf_ = text;
    eof_ = text + size;
    cur_ = text + pos;
    line_ = line;
    return true;
}

void reader::clear()
{
    free_buf();
    line_ = 1;
}

int reader::adopt(char* text, std::size_t length)
{
    free_buf();
    own_ = true;
    buf_ = cur_ = text;
    eof_ = text + length;
    line_ = 1;
    return do_load();
}

int reader::load_string(const char* begin, const char* end, bool copy)
{
    if (!begin)
        return err::invalid_parameter;
    if (!end)
        end = begin + std::strlen(begin);
    if (end < begin)
        return err::invalid_parameter;
    const std::size_t length = static_cast<std::size_t>(end - begin);
    if (length > max_size)
        return err::out_of_memory;
    // A part of the own text would be freed with it.
    const std::less<const char*> before;
    const bool is_part = own_ && !before(begin, buf_) && !before(eof_, begin);
    if (!copy && !is_part) {
        free_buf();
        buf_ = cur_ = begin;
        eof_ = end;
        line_ = 1;
        return do_load();
    }
    char* const text = static_cast<char*>(std::malloc(length == 0 ? 1 : length));
    if (!text)
        return err::out_of_memory;
    std::memcpy(text, begin, length);
    return adopt(text, length);
}

int reader::load_file(const char* path, const char* mode)
{
    if (!path || *path == '\0' || !mode)
        return err::invalid_parameter;
    file_handle file(std::fopen(path, mode));
    if (!file)
        return err::file_system;
    const long long size = size_of(file.get());
    if (size < 0)
        return static_cast<int>(size);
    if (static_cast<unsigned long long>(size) > max_size)
        return err::out_of_memory;
    memory text(static_cast<char*>(std::malloc(static_cast<std::size_t>(size) + 1)));
    if (!text)
        return err::out_of_memory;
    // In text mode fewer characters may come than the file has bytes.
    const std::size_t length = std::fread(text.get(), 1, static_cast<std::size_t>(size), file.get());
    if (std::ferror(file.get()))
        return err::file_system;
    text.get()[length] = '\0';
    return adopt(text.release(), length);
}

int reader::load_stream(std::istream& in)
{
    if (in.fail())
        return err::failed;
    memory text;
    std::size_t length = 0;
    try {
        const int r = read_all(*in.rdbuf(), text, length);
        if (r < 0)
            return r;
        in.setstate(std::ios_base::eofbit);
    } catch (const std::bad_alloc&) {
        return err::out_of_memory;
    } catch (const std::ios_base::failure&) {
        // The host asked its stream to throw at the end; the text is complete.
    }
    return adopt(text.release(), length);
}

int reader::load_reader(const reader& other, bool copy)
{
    if (this == &other)
        return err::ok;
    if (copy) // KEEP: the part already read is not copied; nested readers go on where the outer one stands.
        return load_string(other.cur_, other.eof_, true);
    mapping(other);
    return do_load();
}

void reader::mapping(const reader& other)
{
    if (this == &other)
        return;
    const std::ptrdiff_t size = other.eof_ - other.buf_;
    const std::ptrdiff_t pos = other.cur_ - other.buf_;
    if (own_ && is_part(other.buf_, other.eof_, buf_, eof_)) {
        // Freed, the own text would be gone for both: the part moves to its front.
        std::memmove(const_cast<char*>(buf_), other.buf_, static_cast<std::size_t>(size));
    } else {
        free_buf();
        buf_ = other.buf_;
    }
    eof_ = buf_ + size;
    cur_ = buf_ + pos;
    line_ = other.line_;
}

void reader::eat_white()
{
    const char* p = cur_;
    unsigned lines = 0;
    while (p < eof_ && is_white(*p))
        lines += *p++ == '\n';
    cur_ = p;
    count_lines(lines);
}

bool reader::eat_until(int ch)
{
    if (cur_ >= eof_)
        return false;
    const void* const hit = std::memchr(cur_, static_cast<unsigned char>(ch), static_cast<std::size_t>(eof_ - cur_));
    const char* const stop = hit ? static_cast<const char*>(hit) : eof_;
    count_lines(line_feeds(cur_, stop));
    cur_ = stop;
    return hit != nullptr;
}

share_str reader::sread(unsigned from, unsigned to) const
{
    const unsigned end = std::min(to, get_size());
    return from < end ? share_str(buf_ + from, buf_ + end) : share_str();
}

int reader::do_load() { return err::ok; }
