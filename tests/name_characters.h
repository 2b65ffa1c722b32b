// The characters of XML names and path steps, told once more.
#ifndef STDKRO_TESTS_NAME_CHARACTERS_H
#define STDKRO_TESTS_NAME_CHARACTERS_H

#include <string>

inline bool is_name_character(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')
        || std::string("#$%-.@_`~").find(c) != std::string::npos;
}

/// Calls `each` with all 256 bytes; how many of them are name characters.
template <class function> int walk_bytes(function each)
{
    int names = 0;
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        each(c);
        names += is_name_character(c);
    }
    return names;
}

#endif
