// Reading INI text.
//
// The reader's position moves past one item at a time, and the handler is called
// between items with the position behind the item: it may ask for the line. Ends
// of names and lines are found eight bytes at a time.
#include <stdkro/ini_doc.h>

#include <stdkro/xcpt.h>

#include "gbk_texts.h"

#include <cstdint>
#include <cstring>

namespace {

// KEEP: the reader's characters are signed, so a byte 255 equals its mark for the
// end of the text; files that end in such a byte are read up to it.
constexpr char end_mark = '\xFF';

// As in the C locale, whatever locale the program chose.
bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr std::uint64_t in_each_byte(unsigned char c) { return 0x0101010101010101u * c; }

// The lowest bit set in the result lies in the first byte of `word` that is 0.
std::uint64_t zero_bytes(std::uint64_t word) { return (word - in_each_byte(1)) & ~word & in_each_byte(0x80); }

// The first line feed, end mark or `stop` from `p` on, or `end`.
const char* find_stop(const char* p, const char* end, char stop)
{
    const std::uint64_t stops = in_each_byte(static_cast<unsigned char>(stop));
    for (std::uint64_t word; end - p >= static_cast<std::ptrdiff_t>(sizeof word); p += sizeof word) {
        std::memcpy(&word, p, sizeof word);
        const std::uint64_t found
            = zero_bytes(word ^ in_each_byte('\n')) | zero_bytes(word ^ stops) | zero_bytes(~word);
        if (found)
            return p + __builtin_ctzll(found) / 8; // both platforms are little-endian
    }
    while (p != end && *p != '\n' && *p != stop && *p != end_mark)
        ++p;
    return p;
}

struct range {
    const char* begin;
    const char* end;
};

// White space off both ends. Bytes of 128 and above are never white space.
range trimmed(range r)
{
    while (r.begin != r.end && is_space(*r.begin))
        ++r.begin;
    while (r.begin != r.end && is_space(r.end[-1]))
        --r.end;
    return r;
}

class ini_scanner {
public:
    ini_scanner(ini_reader& in, ini_handler& to, int result) : in_(in), to_(to), result_(result) {}

    /// The last handler result.
    int result() const { return result_; }

    // item := section | comment | key-value
    // False when reading is to end.
    bool item()
    {
        const char* const begin = skip_white();
        if (begin == in_.get_eof())
            return false;
        switch (*begin) {
        case '[':
            return section(begin + 1);
        case ';':
            return comment(begin + 1);
        case '=':
            in_.set_cur(begin + 1);
            return error(gbk::ini_key_empty);
        case end_mark:
            in_.set_cur(begin + 1);
            return false;
        default:
            return key_value(begin);
        }
    }

private:
    // Not eat_white, which asks the locale about bytes of 128 and above.
    const char* skip_white()
    {
        const char* p = in_.get_cur();
        unsigned lines = 0;
        while (p != in_.get_eof() && is_space(*p))
            lines += *p++ == '\n';
        count_lines(lines);
        in_.set_cur(p);
        return p;
    }

    // section := '[' name ']'
    bool section(const char* begin)
    {
        const char* const stop = pass(begin, ']');
        if (stop == in_.get_eof() || *stop != ']')
            return error(gbk::ini_section_open);
        const range name = trimmed({ begin, stop });
        if (name.begin == name.end)
            return error(gbk::ini_section_empty);
        return go_on(to_.onSection(name.begin, name.end));
    }

    // comment := ';' rest-of-line
    bool comment(const char* begin)
    {
        const range text = rest_of_line(begin);
        return go_on(to_.onComment(text.begin, text.end));
    }

    // key-value := key '=' rest-of-line
    bool key_value(const char* begin)
    {
        const char* const stop = pass(begin, '=');
        if (stop == in_.get_eof() || *stop != '=')
            return error(gbk::ini_value_missing);
        const range key = trimmed({ begin, stop });
        const range value = trimmed(rest_of_line(stop + 1));
        return go_on(to_.onKeyValue(key.begin, key.end, value.begin, value.end));
    }

    range rest_of_line(const char* begin)
    {
        const char* const end = in_.get_eof();
        const char* const stop = pass(begin, '\n');
        // KEEP: a range ends one byte before the position behind its terminator, and
        // the end of the text is no byte that is passed: a last line without a line
        // end loses its last byte. Documents written by this library end in one.
        return { begin, stop == end && stop != begin ? stop - 1 : stop };
    }

    // Moves behind the next `stop`, line feed or end mark and gives its place; the
    // end of the text is not passed.
    const char* pass(const char* begin, char stop)
    {
        const char* const end = in_.get_eof();
        const char* const found = find_stop(begin, end, stop);
        if (found != end && *found == '\n')
            count_lines(1);
        in_.set_cur(found == end ? end : found + 1);
        return found;
    }

    void count_lines(unsigned n) { in_.set_line(static_cast<int>(static_cast<unsigned>(in_.get_line()) + n)); }

    bool go_on(int result)
    {
        result_ = result;
        return result >= 0;
    }

    bool error(const char* message)
    {
        result_ = to_.onError(err::syntax, message);
        return false;
    }

    ini_reader& in_;
    ini_handler& to_;
    int result_;
};

} // namespace

int ini_handler::onError(int code, const char*) { return code; }

int ini_handler::onComment(const char*, const char*) { return 0; }

ini_handler::~ini_handler() {}

int ini_reader::read_ini(ini_handler* handler)
{
    if (!handler)
        return err::invalid_parameter;
    handler->set_reader(this);
    const int begun = handler->onBegin();
    if (begun < 0)
        return begun;
    ini_scanner scanner(*this, *handler, begun);
    while (scanner.item()) {
    }
    return handler->onEnd(scanner.result());
}
