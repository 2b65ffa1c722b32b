#include "sockets.h"

#include "words.h"

namespace {

bool read_port(const std::string& word, int& port) { return read_number(word, port) && port >= 0 && port <= 65535; }

} // namespace

SockAddr read_address(const std::string& word)
{
    const std::size_t colon = word.find(':');
    int port = 0;
    SockAddr address;
    if (colon == std::string::npos || !read_port(word.substr(colon + 1), port) || address.set_addr(word.c_str()) < 0
        || address == SockAddr("255.255.255.255", static_cast<unsigned short>(port)))
        throw usage_error { "'" + word + "' is no HOST:PORT" };
    return address;
}
