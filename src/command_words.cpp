// Splitting a command line by the rules of the Windows runtime.
//
// Words are separated by blanks and tabs outside double quotes. The first word,
// a file name, knows only quotes: a backslash in it is always literal. In the
// others 2n backslashes before a quote are n backslashes and the quote works;
// 2n+1 are n backslashes and a literal quote; elsewhere they are literal. Two
// quotes in a row inside quotes are one literal quote.
#include "command_words.h"

namespace {

bool is_separator(char c) { return c == ' ' || c == '\t'; }

// name := { character | '"' }
const char* read_name(const char* p, std::string& word)
{
    bool quoted = false;
    for (; *p && (quoted || !is_separator(*p)); ++p) {
        if (*p == '"')
            quoted = !quoted;
        else
            word += *p;
    }
    return p;
}

// Takes a run of backslashes and gives what it stands for. A quote behind an odd
// run is literal and taken with it.
const char* read_backslashes(const char* p, std::string& word)
{
    std::size_t run = 0;
    while (p[run] == '\\')
        ++run;
    p += run;
    if (*p != '"') {
        word.append(run, '\\');
        return p;
    }
    word.append(run / 2, '\\');
    if (run % 2 == 0)
        return p;
    word += '"';
    return p + 1;
}

// word := { character | backslashes | '"' }
const char* read_word(const char* p, std::string& word)
{
    bool quoted = false;
    while (*p && (quoted || !is_separator(*p))) {
        if (*p == '\\') {
            p = read_backslashes(p, word);
        } else if (*p != '"') {
            word += *p++;
        } else if (quoted && p[1] == '"') {
            word += '"';
            p += 2;
        } else {
            quoted = !quoted;
            ++p;
        }
    }
    return p;
}

const char* skip_separators(const char* p)
{
    while (is_separator(*p))
        ++p;
    return p;
}

} // namespace

std::vector<std::string> split_command_line(const char* line)
{
    std::vector<std::string> words(1);
    const char* p = skip_separators(read_name(line, words[0]));
    while (*p) {
        words.emplace_back();
        p = skip_separators(read_word(p, words.back()));
    }
    return words;
}
