#include "logger_map.h"

#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include <cstring>
#include <new>

namespace {

// Formats made at run time come from ever new addresses: the cache starts anew then.
constexpr unsigned most_remembered = 4096;

const char* skip(const char* p, const char* any_of) { return p + std::strspn(p, any_of); }

// The length in front of a conversion as one letter, blank for none. What is
// shorter than an int is passed as one.
const char* read_length(const char* p, char& length)
{
    length = ' ';
    if (*p == 'h')
        return skip(p, "h");
    if (p[0] == 'l' && p[1] == 'l') {
        length = 'q';
        return p + 2;
    }
    if (*p != '\0' && std::strchr("ljztL", *p))
        length = *p++;
    return p;
}

// The letter of what a conversion takes, or NUL for one that is not known.
char argument_of(char conversion, char length)
{
    if (conversion == '\0')
        return '\0';
    if (std::strchr("diouxX", conversion))
        return length == 'L' ? '\0' : 'i';
    if (std::strchr("fFeEgGaA", conversion))
        return length == ' ' || length == 'L' || length == 'l' ? 'd' : '\0';
    if (std::strchr("csp", conversion))
        return length == ' ' ? conversion == 'c' ? 'i' : conversion : '\0';
    return '\0';
}

} // namespace

void format_arguments::add(char letter)
{
    if (count_ < sizeof letters_)
        letters_[count_++] = letter;
}

// number := { digit } | '*'
const char* format_arguments::read_number(const char* p)
{
    if (*p != '*')
        return skip(p, "0123456789");
    add('i');
    return p + 1;
}

// conversion := '%' { flag } [ number ] [ '.' [ number ] ] [ length ] letter | '%%'
bool format_arguments::read(const char* fmt)
{
    for (const char* p = std::strchr(fmt, '%'); p; p = std::strchr(p + 1, '%')) {
        if (p[1] == '%') {
            ++p;
            continue;
        }
        p = read_number(skip(p + 1, "-+ #0"));
        if (*p == '.')
            p = read_number(p + 1);
        char length = ' ';
        p = read_length(p, length);
        const char argument = argument_of(*p, length);
        if (argument == '\0')
            return false;
        add(argument);
        const bool matters = length != ' ' && (argument == 'i' || length == 'L');
        if (matters)
            add(length);
    }
    return letters_[sizeof letters_ - 1] == '\0';
}

// Wider than the conversions that are known: whatever may stand between '%' and its letter.
bool writes_to_memory(const char* fmt)
{
    for (const char* p = std::strchr(fmt, '%'); p; p = std::strchr(p, '%')) {
        p = skip(p + 1, "-+ #0123456789'*.$hljztLqIw");
        if (*p == 'n')
            return true;
        if (*p == '%')
            ++p;
    }
    return false;
}

void log_map::add(const share_str& name, err_level level, const share_str& value)
{
    const format_arguments wanted(name.c_str()), given(value.c_str());
    const bool is_usable = value.isempty() || (wanted.is_known() && given.is_known() && wanted == given);
    cache_.clear();
    if (!is_usable) {
        entries_.remove(name);
        return;
    }
    entry made = { value, { level, nullptr } };
    entries_.set(name, made);
}

const logit* log_map::find(const char* fmt)
try {
    if (const remembered* known = cache_.find(fmt))
        if (known->text == fmt)
            return known->found ? &known->found->replacement : nullptr;
    const share_str text(fmt);
    entry* const found = entries_.find(text);
    if (found)
        found->replacement.fmt = found->value.isempty() ? nullptr : found->value.c_str();
    if (cache_.count() >= most_remembered)
        cache_.clear();
    cache_.set(fmt, remembered { text, found });
    return found ? &found->replacement : nullptr;
} catch (const xcpt&) {
    return nullptr;
}

int log_map::make(log_map*& map, const xml_node* root)
try {
    map = new log_map;
    for (const xml_node* node = root ? root->find_first(XML_ELEMENT, "log") : nullptr; node;
         node = node->find_next(XML_ELEMENT, "log")) {
        const attributes& from = node->get_attrs();
        const err_level level = read_level(from.read("level", "").c_str());
        if (level == lv_none)
            return err::syntax;
        map->add(from.read("name", ""), level, from.read("value", ""));
    }
    return err::ok;
} catch (const xcpt& e) {
    return e.get_err();
} catch (const std::bad_alloc&) {
    return err::out_of_memory;
}
