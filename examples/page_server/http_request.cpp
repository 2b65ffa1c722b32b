#include "http_request.h"

#include <stdkro/str.h>
#include <algorithm>
#include <charconv>
#include <cstring>

static bool is_digit(char c) { return c >= '0' && c <= '9'; }
static bool is_blank(char c) { return c == ' ' || c == '\t'; }
static bool is_control(char c) { return (static_cast<unsigned char>(c) < 32 && c != '\t') || c == 127; }
static bool is_token(const char* b, const char* e)
{
    return b != e && std::all_of(b, e, [](char c) {
        return is_digit(c) || ((c | 32) >= 'a' && (c | 32) <= 'z') || (c && std::strchr("!#$%&'*+-.^_`|~", c));
    });
}

bool append_decoded(share_str& to, const char* b, const char* e, char plus)
{
    for (; b != e; ++b) {
        unsigned char c = static_cast<unsigned char>(*b == '+' ? plus : *b);
        if (c == '%') {
            if (e - b < 3 || std::from_chars(b + 1, b + 3, c, 16).ptr != b + 3 || c == 0)
                return false;
            b += 2;
        }
        to += static_cast<char>(c);
    }
    return true;
}

int http_request::read(packet& in)
{
    const int r = stage_ == in_body ? complete : read_head(in);
    if (r != complete)
        return r;
    stage_ = in_body;
    if (in.count() - scanned_ < length_)
        return incomplete;
    const char* const begin = in.rptr() + scanned_;
    body = share_str(begin, begin + length_);
    in.rmove(static_cast<int>(scanned_ + length_));
    stage_ = at_start;
    scanned_ = 0;
    return complete;
}

// head := { CRLF } request_line CRLF { field CRLF } CRLF
int http_request::read_head(const packet& in)
{
    if (stage_ == at_start)
        method.clear(); // that of the request before
    for (;;) {
        const char* const line = in.rptr() + scanned_;
        const unsigned n = std::min(in.count(), most_head_) - scanned_;
        const char* const end = n ? static_cast<const char*>(std::memchr(line, '\n', n)) : nullptr;
        if (!end)
            return scanned_ + n == most_head_ ? 431 : incomplete;
        scanned_ += static_cast<unsigned>(end + 1 - line);
        if (end == line || end[-1] != '\r')
            return 400;
        if (end - line == 1 && stage_ == in_fields)
            return hosts_ < least_hosts_ || hosts_ > 1 ? 400 : length_ > most_body_ ? 413 : complete;
        int r = incomplete;
        if (end - line > 1)
            r = stage_ == at_start ? read_request_line(line, end - 1) : read_field(line, end - 1);
        if (r != incomplete)
            return r;
    }
}

// request_line := token ' ' '/' path [ '?' query ] ' ' "HTTP/1." digit
int http_request::read_request_line(const char* b, const char* e)
{
    const char* const to = std::find(b, e, ' ');
    const char* const version = std::find(std::min(to + 1, e), e, ' ');
    if (!is_token(b, to) || e - version != 9 || std::memcmp(version, " HTTP/1.", 8) != 0 || !is_digit(version[8])
        || to[1] != '/' || std::any_of(to, version, is_control))
        return 400;
    const char* const mark = std::find(to, version, '?');
    method = share_str(b, to);
    query = mark == version ? share_str() : share_str(mark + 1, version);
    path.clear();
    keeps_alive = version[8] != '0'; // HTTP/1.0 gets one answer for a connection
    least_hosts_ = keeps_alive;
    hosts_ = 0;
    length_ = 0;
    stage_ = in_fields;
    return append_decoded(path, to + 1, mark, '+') ? incomplete : 400;
}

int http_request::read_field(const char* b, const char* e)
{
    const char* const colon = std::find(b, e, ':');
    if (colon == e || !is_token(b, colon) || std::any_of(colon, e, is_control))
        return 400;
    const char* const value = std::find_if_not(colon + 1, e, is_blank);
    while (e != value && is_blank(e[-1]))
        --e;
    const auto is_named = [=](const char* name) { return str::nstricmp(name, b, colon) == 0; };
    if (is_named("transfer-encoding"))
        return 411; // bodies come with their length
    if (is_named("host"))
        ++hosts_;
    if (is_named("connection") && str::nstricmp("close", value, e) == 0)
        keeps_alive = false;
    if (!is_named("content-length"))
        return incomplete;
    unsigned long long n = 0;
    const auto r = std::from_chars(value, e, n);
    if (value == e || r.ptr != e || (length_ != 0 && n != length_))
        return 400;
    length_ = r.ec == std::errc() ? n : ~0ULL;
    return incomplete;
}
