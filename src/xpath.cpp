// Cutting paths into steps.
//
//     path  := { step "/" } [ step ]
//     step  := "/" | ( name | "#" word | "@" [ name ] ) [ "[" number "]" ]
//
// An empty step is the "/" itself: it means the root, and nothing ends it.
#include <stdkro/xpath.h>

#include <stdkro/xcpt.h>

#include "xml_char.h"
#include "xpath_step.h"

#include <climits>
#include <cstring>

namespace {

constexpr unsigned parent_limit = 1024;

struct special_step {
    const char* word;
    int kind;
};

constexpr special_step special_steps[] = {
    { "text", xstep::text },
    { "pi", xstep::pi },
    { "comment", xstep::comment },
};

// Reads the name up to its end, which is left. "[", "/" and NUL stand in no name.
int read_name(path_place& at, path_step& step)
{
    const bool is_near = at.end && at.end - at.p <= xstep::name_limit;
    const char* const limit = is_near ? at.end : at.p + xstep::name_limit + 1;
    const char* const begin = at.p;
    while (at.p != limit && xml_char::is(*at.p, xml_char::name))
        ++at.p;
    const auto length = static_cast<unsigned>(at.p - begin);
    if (length > xstep::name_limit)
        return err::overflow;
    if (!at.at_end() && *at.p != '[' && *at.p != '/')
        return err::syntax;
    step.name = begin;
    step.length = length;
    return err::ok;
}

// The number that strtol reads, clamped to 32 bits; without digits nothing is read.
// KEEP: so "[]" is position 0, and blanks and a sign may stand before the digits.
int read_number(path_place& at)
{
    path_place from = at;
    while (!from.at_end() && xml_char::is(*from.p, xml_char::space))
        ++from.p;
    const bool negative = from.at('-');
    if (negative || from.at('+'))
        ++from.p;
    if (!from.at_digit())
        return 0;
    long long value = 0;
    for (; from.at_digit(); ++from.p) {
        if (value <= INT_MAX)
            value = value * 10 + (*from.p - '0');
    }
    at = from;
    if (negative)
        return value > INT_MAX ? INT_MIN : static_cast<int>(-value);
    return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

int kind_of_word(const path_step& step)
{
    for (const special_step& s : special_steps) {
        if (std::strlen(s.word) == step.length && std::memcmp(s.word, step.name, step.length) == 0)
            return s.kind;
    }
    return xstep::none;
}

// The kind that the first byte announces; a marker is taken.
int read_marker(path_place& at)
{
    const char c = *at.p;
    if (c == '@' || c == '#') {
        ++at.p;
        return c == '@' ? xstep::attr : xstep::text;
    }
    return xml_char::is(c, xml_char::name) ? xstep::element : xstep::none;
}

int read_index(path_place& at, path_step& step)
{
    ++at.p;
    step.index = read_number(at);
    if (!at.at(']'))
        return err::syntax;
    ++at.p;
    return err::ok;
}

int split_one(path_place at, xstep* step, const char** next)
{
    *next = at.p;
    path_step read;
    const int r = read_path_step(at, read);
    if (r >= 0)
        *next = at.p;
    step->kind = read.kind;
    step->index = read.index;
    std::memcpy(step->name, read.name, read.length);
    step->name[read.length] = '\0';
    return r;
}

} // namespace

int read_path_step(path_place& at, path_step& step)
{
    step = path_step();
    if (at.at_end())
        return err::ok;
    if (at.at('/')) {
        ++at.p;
        step.kind = xstep::root;
        return err::ok;
    }
    step.kind = read_marker(at);
    if (step.kind == xstep::none)
        return err::syntax;
    int r = read_name(at, step);
    if (r < 0)
        return r;
    if (step.kind == xstep::text) {
        step.kind = kind_of_word(step);
        if (step.kind == xstep::none)
            return err::unexpected;
    }
    if (at.at('['))
        r = read_index(at, step);
    if (r < 0 || at.at_end())
        return r;
    if (!at.at('/'))
        return err::syntax;
    ++at.p;
    return err::ok;
}

int xpath::split_step(const char* text, xstep* step, const char** next)
{
    if (!text || !step || !next)
        return err::invalid_parameter;
    return split_one(path_place { text, nullptr }, step, next);
}

int xpath::split_step(const char* begin, const char* end, xstep* step, const char** next)
{
    if (!begin || !end || !step || !next)
        return err::invalid_parameter;
    return split_one(path_place { begin, end }, step, next);
}

int xpath::split(const char* begin, const char* end, const char** last, xstep* step)
{
    if (!begin || !end || !last || !step)
        return err::invalid_parameter;
    const char* from = end;
    while (from > begin && from[-1] != '/')
        --from;
    *last = from;
    const char* next = nullptr;
    return split_step(from, end, step, &next);
}

int xpath::split(const char* path, char* parent, xstep* step)
{
    if (!path || !parent || !step)
        return err::invalid_parameter;
    const char* last = nullptr;
    parent[0] = '\0';
    const int r = split(path, path + std::strlen(path), &last, step);
    const auto length = static_cast<std::size_t>(last - path);
    if (length >= parent_limit)
        return err::overflow;
    if (r < 0)
        return r;
    std::memcpy(parent, path, length);
    parent[length] = '\0';
    return err::ok;
}
