// Command lines.
//
// line     := { space } { argument space { space } }
// argument := { byte | '"' { byte | '\' byte } '"' }
//
// One walk over the line serves counting and splitting: it hands every byte of
// every argument to a sink, which counts them or stores them.
#include <stdkro/str.h>
#include <stdkro/xcpt.h>

#include "text_class.h"

#include <cstdint>
#include <cstdlib>

namespace {

// Reads the quoted group behind the quote at `s`, and returns the place behind its
// end, or null when it has none. `to` may be null.
const char* read_group(const char* s, char*& to)
{
    for (++s; *s != '"'; ++s) {
        if (*s == '\\')
            ++s;
        if (*s == '\0')
            return nullptr;
        if (to)
            *to++ = *s;
    }
    return s + 1;
}

// Reads the argument at `s`, writes its text and a terminator to `to` where there
// is one, and returns the place behind it. At a quote that is not closed it stops,
// and `closed` becomes false.
const char* read_argument(const char* s, char*& to, bool& closed)
{
    while (*s && !is_space(*s)) {
        if (*s != '"') {
            if (to)
                *to++ = *s;
            ++s;
            continue;
        }
        const char* const behind = read_group(s, to);
        if (!behind) {
            closed = false;
            break;
        }
        s = behind;
    }
    if (to)
        *to++ = '\0';
    return s;
}

} // namespace

int str::calc_argv(const char* line, const char** end) noexcept
{
    int count = 0;
    bool closed = true;
    char* nowhere = nullptr;
    const char* s = skip_space(line);
    while (*s && closed) {
        const char* const behind = read_argument(s, nowhere, closed);
        s = closed ? skip_space(behind) : behind;
        ++count;
    }
    if (end)
        *end = s;
    return closed ? count : err::syntax;
}

char** str::split_argv(const char* line, int count) noexcept
{
    if (count < 0)
        return nullptr;
    // No argument is longer than its place in the line, the terminator taking the
    // white space behind it; one more byte for the last.
    const std::uint64_t vector_size = (static_cast<std::uint64_t>(count) + 1) * sizeof(char*);
    const std::uint64_t size = vector_size + std::strlen(line) + 2;
    if (size > PTRDIFF_MAX)
        return nullptr;
    // Zeroed: what the line has no argument for stays null.
    char** const argv = static_cast<char**>(std::calloc(static_cast<std::size_t>(size), 1));
    if (!argv)
        return nullptr;
    char* to = reinterpret_cast<char*>(argv + count + 1);
    int i = 0;
    bool closed = true;
    for (const char* s = skip_space(line); *s && i < count && closed; s = skip_space(s)) {
        argv[i++] = to;
        s = read_argument(s, to, closed);
    }
    return argv;
}

void str::free_argv(char** argv) noexcept { std::free(argv); }
