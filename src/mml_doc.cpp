// Command records: "INTERFACE.METHOD:name=value,...;" in one line.
//
// Reading walks a pointer along the terminated text; a value without escapes is
// copied whole. Writing sizes the line first and appends it once.
#include <stdkro/mml_doc.h>

#include <stdkro/str.h>
#include <stdkro/xcpt.h>

#include "attribute_builder.h"
#include "text_class.h"

#include <cstring>

namespace {

// Lengths are 32-bit.
constexpr std::size_t longest_record = 0x7FFFFFF0;

// As in the C locale, whatever locale the program chose.
bool is_word(char c) { return is_digit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

struct range {
    const char* begin;
    const char* end;
};

class record_scanner {
public:
    explicit record_scanner(const char* text) : p_(text) {}

    share_str text(range r) { return builder_.text(r.begin, r.end); }

    void skip_space()
    {
        while (is_space(*p_))
            ++p_;
    }

    // word := { letter | digit }
    range word()
    {
        const char* const begin = p_;
        while (is_word(*p_))
            ++p_;
        return { begin, p_ };
    }

    char peek() const { return *p_; }

    bool accept(char c)
    {
        if (*p_ != c)
            return false;
        ++p_;
        return true;
    }

    // pair := name '=' value
    // value := number | '"' text '"' | text '"' | nothing
    // The name and its "=" are read already.
    int pair(range name, attributes& to)
    {
        const char first = *p_;
        if (is_digit(first) || first == '+' || first == '-')
            return append(to, name, number());
        if (first == ',' || first == ';')
            return append(to, name, { p_, p_ });
        accept('"');
        return text_pair(name, to);
    }

private:
    // number := { digit | '.' }
    // KEEP: a sign is not part of a number. It stays unread, which fails the pair:
    // receivers of these records rely on numbers without signs.
    range number()
    {
        const char* const begin = p_;
        while (is_digit(*p_) || *p_ == '.')
            ++p_;
        return { begin, p_ };
    }

    // text := { byte | '\' byte } up to a '"', which is passed
    // KEEP: a text that began without a quote ends at one too, not at "," or ";".
    int text_pair(range name, attributes& to)
    {
        const char* const begin = p_;
        const char* const plain_end = plain_run(begin);
        const char* end = plain_end;
        while (*end == '\\' && end[1] != '\0')
            end = plain_run(end + 2);
        if (*end != '"')
            return err::syntax;
        p_ = end + 1;
        if (end == plain_end)
            return append(to, name, { begin, end });
        share_str name_text = text(name);
        share_str value_text = unescape(begin, end);
        builder_.append(to, name_text, value_text);
        return err::ok;
    }

    int append(attributes& to, range name, range value)
    {
        builder_.append(to, name.begin, name.end, value.begin, value.end);
        return err::ok;
    }

    static const char* plain_run(const char* p)
    {
        while (*p != '"' && *p != '\\' && *p != '\0')
            ++p;
        return p;
    }

    static share_str unescape(const char* begin, const char* end)
    {
        share_str made;
        char* const chars = made.lock(static_cast<unsigned>(end - begin));
        if (!chars)
            throw xcpt(err::out_of_memory, get_err_info(err::out_of_memory));
        char* to = chars;
        for (const char* from = begin; from != end; ++from)
            *to++ = *from == '\\' ? unescaped(*++from) : *from;
        *to = '\0';
        made.unlock(static_cast<unsigned>(to - chars));
        return made;
    }

    const char* p_;
    attribute_builder builder_;
};

// pairs := pair { ',' pair } ';'
// The first name and its "=" are read already.
int read_pairs(record_scanner& in, range name, attributes& to)
{
    for (;;) {
        const int r = in.pair(name, to);
        if (r < 0)
            return r;
        if (in.accept(';'))
            return err::ok;
        if (!in.accept(','))
            return err::syntax;
        name = in.word();
        if (!in.accept('='))
            return err::syntax;
    }
}

char* put(char* to, const share_str& s)
{
    std::memcpy(to, s.c_str(), s.length());
    return to + s.length();
}

char* put(char* to, char c)
{
    *to = c;
    return to + 1;
}

char* put_header(char* to, const share_str& interface_name, const share_str& method)
{
    to = put(to, interface_name);
    if (!interface_name.isempty() && !method.isempty())
        to = put(put(to, '.'), method);
    return put(to, ':');
}

} // namespace

mml_doc& mml_doc::operator=(const mml_doc& other)
{
    attributes::operator=(other);
    interface_ = other.interface_;
    method_ = other.method_;
    return *this;
}

void mml_doc::clear()
{
    interface_.clear();
    method_.clear();
    attributes::clear();
}

// record := [ [ interface '.' ] method ':' ] pairs
int mml_doc::read(const char* text)
try {
    // The text may be one of this record: what was there goes last.
    attributes old_pairs;
    share_str old_interface, old_method;
    swap(old_pairs);
    interface_.swap(old_interface);
    method_.swap(old_method);
    if (!text)
        return err::syntax;
    record_scanner in(text);
    in.skip_space();
    range word = in.word();
    if (in.accept('.')) {
        interface_ = in.text(word);
        word = in.word();
        if (in.peek() != ':')
            return err::syntax;
    }
    if (in.accept(':')) {
        method_ = in.text(word);
        word = in.word();
    }
    return in.accept('=') ? read_pairs(in, word, *this) : err::syntax;
} catch (const xcpt& e) {
    return e.get_err();
}

int mml_doc::write(share_str& out) const
{
    // KEEP: a method without an interface is written without any header; receivers
    // take the bare pairs as belonging to the command at hand.
    const bool has_header = method_.isempty() || !interface_.isempty();

    // Each pair adds "=", two quotes and "," or ";" to its texts.
    std::size_t size = out.length() + (has_header ? interface_.length() + method_.length() + 2u : 0u) + 1u;
    for (unsigned i = 0; i < count(); ++i)
        size += (*this)[i].get_name().length() + 4u
            + static_cast<unsigned>(str::write_quote(nullptr, 0, (*this)[i].get_value().c_str()));
    const unsigned length = out.length();
    const unsigned most = static_cast<unsigned>(size);
    if (size > longest_record || !out.reserved(255))
        return err::out_of_memory;
    char* const chars = out.lock(most);
    if (!chars)
        return err::out_of_memory;
    char* to = chars + length;
    if (has_header)
        to = put_header(to, interface_, method_);
    for (unsigned i = 0; i < count(); ++i) {
        const attribute& pair = (*this)[i];
        to = put(put(put(to, pair.get_name()), '='), '"');
        to += str::write_quote(to, most + 1 - static_cast<unsigned>(to - chars), pair.get_value().c_str());
        to = put(put(to, '"'), i + 1 < count() ? ',' : ';');
    }
    if (count() == 0)
        to = put(to, ';');
    *to = '\0';
    out.unlock(static_cast<unsigned>(to - chars));
    return err::ok;
}

int mml_doc::write(char*, unsigned) { return err::not_implemented; }
