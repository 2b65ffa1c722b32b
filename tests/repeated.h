// A text so many times over, for what is long or deep.
#ifndef STDKRO_TESTS_REPEATED_H
#define STDKRO_TESTS_REPEATED_H

#include <string>

inline std::string repeated(const char* text, unsigned times)
{
    std::string all;
    for (unsigned i = 0; i < times; ++i)
        all += text;
    return all;
}

#endif
