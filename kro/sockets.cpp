#include "sockets.h"

#include <charconv>

bool read_port(const std::string& word, int& port)
{
    const char* const end = word.data() + word.size();
    const std::from_chars_result read = std::from_chars(word.data(), end, port);
    return read.ec == std::errc() && read.ptr == end && port >= 0 && port <= 65535;
}
