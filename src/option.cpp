// Command-line options: matching one argument, and the scan over all of them.
#include <stdkro/option.h>

#include <stdkro/xcpt.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Of the C locale, whatever the process chose.
bool is_alphanumeric(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

int match_long(const char* name, const option_pattern* table)
{
    for (int i = 0; table[i].name; ++i)
        if (std::strcmp(table[i].name, name) == 0)
            return i;
    return err::unexpected;
}

// A byte above 127 may stand in the table as itself or as the negative char it is to most compilers.
bool is_short_name(int short_name, char c)
{
    return short_name == static_cast<unsigned char>(c) || short_name == static_cast<signed char>(c);
}

int match_short(const char* name, const option_pattern* table)
{
    if (name[0] == '\0' || name[1] != '\0')
        return err::syntax;
    // The character is not 0, so that a pattern without a short name never is the one.
    for (int i = 0; table[i].name; ++i)
        if (is_short_name(table[i].short_name, name[0]))
            return i;
    return err::unexpected;
}

// As atoi, but a number outside 32 bits becomes the nearest one inside.
int read_decimal(const char* s)
{
    const long value = std::strtol(s, nullptr, 10);
    return static_cast<int>(std::clamp(value, -0x7FFFFFFFL - 1, 0x7FFFFFFFL));
}

// Stores the value of a flag, integer or text. Returns the index of the last argument used.
int store_value(int count, char** argv, int i, const option_pattern& pattern)
{
    if (pattern.kind == option_flag) {
        if (pattern.target)
            *static_cast<int*>(pattern.target) = 1;
        return i;
    }
    if (i + 1 >= count)
        return err::abnormal_end;
    char* const value = argv[i + 1];
    if (pattern.target && pattern.kind == option_integer)
        *static_cast<int*>(pattern.target) = read_decimal(value);
    if (pattern.target && pattern.kind == option_text)
        *static_cast<char**>(pattern.target) = value;
    return i + 1;
}

int use_option(int count, char** argv, int i, const option_pattern* table, int number)
{
    const option_pattern& pattern = table[number];
    int last = i;
    switch (pattern.kind) {
    case option_flag:
    case option_integer:
    case option_text:
        return store_value(count, argv, i, pattern);
    case option_call:
        last = reinterpret_cast<option_handler>(pattern.target)(count, argv, i, table, number);
        break;
    case option_object:
        last = static_cast<option_functor*>(pattern.target)->call(count, argv, i, table, number);
        break;
    default:
        return err::internal;
    }
    return last < 0 ? last : std::max(last, i);
}

} // namespace

option_functor::~option_functor() = default;

int match_opt(const char* argument, const option_pattern* table)
{
    if (argument[0] == '/')
        return match_short(argument + 1, table);
    if (argument[0] != '-')
        return match_short(argument, table);
    if (argument[1] == '-')
        return match_long(argument + 2, table);
    return is_alphanumeric(argument[1]) ? match_short(argument + 1, table) : err::syntax;
}

int read_argv(int count, char** argv, const option_pattern* table, int* position)
{
    int ignored;
    int& at = position ? *position : ignored;
    for (int i = 0; i < count; ++i) {
        at = i;
        const int number = match_opt(argv[i], table);
        if (number < 0)
            return number;
        const int last = use_option(count, argv, i, table, number);
        if (last < 0)
            return last;
        i = std::min(last, count - 1);
    }
    at = count;
    return count;
}

int option::append(const option_pattern& pattern)
{
    try {
        patterns_.insert(is_terminated() ? patterns_.end() - 1 : patterns_.end(), pattern);
        return err::ok;
    } catch (const std::bad_alloc&) {
        return err::out_of_memory;
    }
}

int option::add_bool(const char* name, int short_name, int* target)
{
    return append({ name, short_name, option_flag, target });
}

int option::add(const char* name, int short_name, int* target)
{
    return append({ name, short_name, option_integer, target });
}

int option::add(const char* name, int short_name, char** target)
{
    return append({ name, short_name, option_text, target });
}

int option::add(const char* name, int short_name, option_handler handler)
{
    return append({ name, short_name, option_call, reinterpret_cast<void*>(handler) });
}

int option::add(const char* name, int short_name, option_functor* functor)
{
    return append({ name, short_name, option_object, functor });
}

int option::read_argv(int count, char** argv, int* position)
{
    if (!is_terminated()) {
        const int r = append({ nullptr, 0, 0, nullptr });
        if (r < 0)
            return r;
    }
    return ::read_argv(count, argv, patterns_.data(), position);
}
