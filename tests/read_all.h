// What a stream still holds.
#ifndef STDKRO_TESTS_READ_ALL_H
#define STDKRO_TESTS_READ_ALL_H

#include <cstdio>
#include <string>

inline std::string read_all(std::FILE* f)
{
    std::string text;
    char block[4096];
    for (std::size_t n; (n = std::fread(block, 1, sizeof block, f)) > 0;)
        text.append(block, n);
    return text;
}

#endif
