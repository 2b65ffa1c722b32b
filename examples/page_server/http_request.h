// Reads HTTP/1.1 requests from the front of a packet, each as far as it has come.
#pragma once
#include <stdkro/socket.h>
#include <stdkro/str.h>
#include <algorithm>
#include <charconv>
#include <cstring>

/// Appends text in which "%41" stands for "A" and "+" for `plus`. False for a bad escape.
inline bool append_decoded(share_str& to, const char* b, const char* e, char plus)
{
    for (; b != e; ++b) {
        unsigned char c = static_cast<unsigned char>(*b == '+' ? plus : *b);
        if (c == '%' && (e - b < 3 || std::from_chars(b + 1, b + 3, c, 16).ptr != b + 3 || c == 0))
            return false;
        b += *b == '%' ? 2 : 0;
        to += char(c);
    }
    return true;
}

class http_request {
public:
    enum { incomplete = 0, complete = 1 };
    share_str method, path, query, body;
    bool keeps_alive = false;

    /// The most bytes of a head and of a body.
    http_request(int most_head, int most_body) : most_head_(unsigned(most_head)), most_body_(unsigned(most_body)) {}
    /// Takes a whole request out of `in`; otherwise `incomplete`, or the HTTP status that refuses
    /// it: then nothing more can be read.
    int read(packet& in) {
        const int r = stage_ == in_body ? complete : read_head(in);
        if (r != complete)
            return r;
        stage_ = in_body;
        if (in.count() - scanned_ < length_)
            return incomplete;
        body = share_str(in.rptr() + scanned_, in.rptr() + scanned_ + length_);
        in.rmove(int(scanned_ + length_));
        stage_ = at_start;
        scanned_ = 0;
        return complete;
    }

private:
    // head := { CRLF } request_line CRLF { field CRLF } CRLF
    int read_head(const packet& in) {
        if (stage_ == at_start)
            method.clear(); // that of the request before
        int r = incomplete;
        while (r == incomplete) {
            const char* const line = in.rptr() + scanned_;
            const char* const limit = in.rptr() + std::min(in.count(), most_head_);
            const char* const end = std::find(line, limit, '\n');
            if (end == limit)
                return in.count() >= most_head_ ? 431 : incomplete;
            scanned_ = unsigned(end + 1 - in.rptr());
            if (end == line || end[-1] != '\r')
                r = 400;
            else if (end - line > 1)
                r = stage_ == at_start ? read_request_line(line, end - 1) : read_field(line, end - 1);
            else if (stage_ == in_fields)
                return hosts_ != 1 ? 400 : length_ > most_body_ ? 413 : complete;
        }
        return r;
    }
    // request_line := token ' ' '/' path [ '?' query ] " HTTP/1.1"
    int read_request_line(const char* b, const char* e) {
        const char* const to = std::find(b, e, ' ');
        const char* const version = std::find(std::min(to + 1, e), e, ' ');
        const char* const mark = std::find(to, version, '?');
        if (!is_token(b, to) || e - version != 9 || std::memcmp(version, " HTTP/1.1", 9) != 0 || to[1] != '/'
            || std::any_of(to, version, is_control))
            return 400;
        method = share_str(b, to);
        query = share_str(std::min(mark + 1, version), version);
        path.clear();
        keeps_alive = true;
        hosts_ = 0;
        length_ = 0;
        stage_ = in_fields;
        return append_decoded(path, to + 1, mark, '+') ? incomplete : 400;
    }
    // field := token ':' { blank } value { blank }
    int read_field(const char* b, const char* e) {
        const char* const colon = std::find(b, e, ':');
        if (colon == e || !is_token(b, colon) || std::any_of(colon, e, is_control))
            return 400;
        const char* const value = std::find_if_not(colon + 1, e, is_blank);
        while (e != value && is_blank(e[-1]))
            --e;
        const auto is_named = [=](const char* name) { return str::nstricmp(name, b, colon) == 0; };
        hosts_ += is_named("host");
        keeps_alive &= !is_named("connection") || str::nstricmp("close", value, e) != 0;
        if (is_named("transfer-encoding"))
            return 411; // bodies come with their length
        if (!is_named("content-length"))
            return incomplete;
        unsigned long long n = 0;
        const auto r = std::from_chars(value, e, n);
        if (value == e || r.ptr != e || (length_ != 0 && n != length_))
            return 400;
        length_ = r.ec == std::errc() ? n : ~0ULL;
        return incomplete;
    }
    static bool is_blank(char c) { return c == ' ' || c == '\t'; }
    static bool is_control(char c) { return (static_cast<unsigned char>(c) < 32 && c != '\t') || c == 127; }
    static bool is_token_char(char c) {
        return (c >= '0' && c <= '9') || ((c | 32) >= 'a' && (c | 32) <= 'z') || (c && std::strchr("!#$%&'*+-.^_`|~", c));
    }
    static bool is_token(const char* b, const char* e) { return b != e && std::all_of(b, e, is_token_char); }

    const unsigned most_head_, most_body_;
    enum { at_start, in_fields, in_body } stage_ = at_start;
    unsigned scanned_ = 0; // bytes of the head that were read
    int hosts_ = 0;
    unsigned long long length_ = 0;
};
