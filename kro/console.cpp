#include "console.h"

#include <cstdio>
#include <iostream>

bool read_line(const char* prompt, std::string& line)
{
    if (is_typed_input())
        std::fputs(prompt, stdout);
    std::fflush(stdout);
    if (!std::getline(std::cin, line))
        return false;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return true;
}
