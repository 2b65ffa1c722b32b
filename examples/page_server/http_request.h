// Reads HTTP/1.1 requests from the front of a packet, each as far as it has come.
#pragma once
#include "settings.h"
#include <stdkro/socket.h>
#include <algorithm>
#include <charconv>
#include <string_view>

/// Takes what stands before the first `end` off the front, with `end`; all where there is none.
inline std::string_view take(std::string_view& rest, char end) {
    const std::string_view piece = rest.substr(0, rest.find(end));
    rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
    return piece;
}

inline share_str text_of(std::string_view piece) { return { piece.data(), piece.data() + piece.size() }; }

/// The text in which "%41" stands for "A" and "+" for `plus`. False for a bad escape.
inline bool decode(std::string_view from, char plus, share_str& to) {
    to.clear();
    for (const char *p = from.data(), *end = p + from.size(); p != end; ++p) {
        unsigned char c = static_cast<unsigned char>(*p == '+' ? plus : *p);
        if (*p == '%' && (end - p < 3 || std::from_chars(p + 1, p + 3, c, 16).ptr != p + 3 || c == 0))
            return false;
        p += *p == '%' ? 2 : 0;
        to += char(c);
    }
    return true;
}

constexpr char ok[] = "200 OK", go_on[] = "100 Continue", bad_request[] = "400 Bad Request";

class http_request {
public:
    share_str method, path, query, body;
    bool keeps_alive = false;

    explicit http_request(const settings& most) : most_(most) {}
    /// Takes a whole request out of `in`: `ok`. Null where it is not all there, otherwise the
    /// status that refuses it: then nothing more can be read.
    const char* read(packet& in) {
        if (stage_ == at_start)
            method.clear(); // that of the request before
        const std::string_view all(in.rptr(), in.count()), head = all.substr(0, unsigned(most_.head));
        while (stage_ != in_body) {
            const std::size_t end = head.find('\n', line_);
            if (end == head.npos)
                return head.size() < unsigned(most_.head) ? nullptr : "431 Request Header Fields Too Large";
            if (const char* const refusal = read_line(head.substr(line_, end - line_)))
                return refusal;
            line_ = end + 1;
        }
        if (all.size() - line_ < length_)
            return std::exchange(expects_, 0) ? go_on : nullptr;
        body = text_of(all.substr(line_, length_));
        in.rmove(int(line_ + length_));
        stage_ = at_start;
        line_ = 0;
        return ok;
    }

private:
    // head := { CRLF } request_line CRLF { field CRLF } CRLF
    const char* read_line(std::string_view line) {
        if (line.empty() || line.back() != '\r' || std::any_of(line.begin(), line.end() - 1, is_control))
            return bad_request;
        line.remove_suffix(1);
        if (!line.empty())
            return stage_ == at_start ? read_request_line(line) : read_field(line);
        if (stage_ == at_start)
            return nullptr;
        stage_ = in_body;
        return hosts_ != 1 ? bad_request : length_ > unsigned(most_.body) ? "413 Content Too Large" : nullptr;
    }
    // request_line := token ' ' '/' path [ '?' query ] " HTTP/1.1"
    const char* read_request_line(std::string_view line) {
        const std::string_view verb = take(line, ' ');
        std::string_view target = take(line, ' ');
        if (!is_token(verb) || target.substr(0, 1) != "/" || line != "HTTP/1.1")
            return bad_request;
        const std::string_view place = take(target, '?');
        method = text_of(verb);
        query = text_of(target);
        keeps_alive = true;
        expects_ = hosts_ = lengths_ = length_ = 0;
        stage_ = in_fields;
        return decode(place, '+', path) ? nullptr : bad_request;
    }
    // field := token ':' { blank } value { blank }
    const char* read_field(std::string_view line) {
        std::string_view value = line;
        const std::string_view name = take(value, ':');
        if (name == line || !is_token(name))
            return bad_request;
        value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
        value = value.substr(0, value.find_last_not_of(" \t") + 1);
        hosts_ += is(name, "host");
        for (std::size_t i = 0; is(name, "connection") && i < value.size(); ++i) // among others, too
            keeps_alive &= !is(value.substr(i, 5), "close");
        expects_ |= is(name, "expect") && is(value, "100-continue");
        if (is(name, "transfer-encoding"))
            return "411 Length Required";
        if (!is(name, "content-length"))
            return nullptr;
        const auto r = std::from_chars(value.data(), value.data() + value.size(), length_);
        if (value.empty() || r.ptr != value.data() + value.size() || ++lengths_ > 1)
            return bad_request;
        length_ = r.ec == std::errc() ? length_ : ~0u; // more than fits is more than is allowed
        return nullptr;
    }
    static bool is(std::string_view piece, const char* name) {
        return str::nstricmp(name, piece.data(), piece.data() + piece.size()) == 0;
    }
    static bool is_control(char c) { return (static_cast<unsigned char>(c) < 32 && c != '\t') || c == 127; }
    static bool is_token(std::string_view s) {
        auto fits = [](unsigned char c) { return std::isalnum(c) || std::strchr("!#$%&'*+-.^_`|~", c); };
        return !s.empty() && std::all_of(s.begin(), s.end(), fits);
    }
    const settings& most_;
    enum { at_start, in_fields, in_body } stage_ = at_start;
    std::size_t line_ = 0;                          // where the line to be read begins
    unsigned expects_ = 0, hosts_ = 0, lengths_ = 0, length_ = 0; // how often they came, the body's length
};
