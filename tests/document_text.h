// What the tests of documents print and read.
#ifndef STDKRO_TESTS_DOCUMENT_TEXT_H
#define STDKRO_TESTS_DOCUMENT_TEXT_H

#include "repeated.h"

#include <cstdio>
#include <filesystem>
#include <string>

/// A status code as eight digits.
inline std::string hex(int code)
{
    char text[16];
    std::snprintf(text, sizeof text, "%08X", static_cast<unsigned>(code));
    return text;
}

/// `opening` that many times, `inner`, and as many times `closing`.
inline std::string nested(unsigned depth, const char* opening, const std::string& inner, const char* closing)
{
    return repeated(opening, depth) + inner + repeated(closing, depth);
}

/// Whether "/dev/full" takes no byte that is written to it.
inline bool has_full_device()
{
    return std::filesystem::path::preferred_separator == '/' && std::filesystem::exists("/dev/full");
}

#endif
