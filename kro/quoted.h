// Words in quotes, for whoever reads them back.
#ifndef STDKRO_KRO_QUOTED_H
#define STDKRO_KRO_QUOTED_H

#include <string>

/// As the library's shell reads it, and a drawing's label: a backslash before quotes and backslashes.
inline std::string quoted(const std::string& word)
{
    std::string text = "\"";
    for (const char c : word) {
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    return text + '"';
}

/// As a child's command line has it: quotes, and the backslashes before them, escaped.
inline std::string command_line_word(const std::string& word)
{
    std::string text = "\"";
    std::size_t backslashes = 0;
    for (const char c : word) {
        if (c == '"')
            text.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        text += c;
    }
    return text.append(backslashes, '\\') + '"';
}

#endif
