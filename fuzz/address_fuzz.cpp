// Addresses as text, against a naive reading of host and port; what is printed reads back
// as the same address; the order is total.
#include <stdkro/socket.h>
#include <stdkro/xcpt.h>

#include "require.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

// The port behind the colon: blanks, a sign, digits; the low 16 bits.
unsigned short naive_port(const std::string& text)
{
    std::size_t i = 0;
    while (i < text.size() && std::strchr(" \t\n\v\f\r", text[i]) != nullptr)
        ++i;
    const bool is_negative = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '-' || text[i] == '+'))
        ++i;
    int value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
        value = (value * 10 + (text[i] - '0')) % 65536;
    return static_cast<unsigned short>(is_negative ? (65536 - value) % 65536 : value);
}

// "D.D.D.D" without leading zeros, each at most 255: what it stands for everywhere.
bool is_plain_quad(const std::string& host)
{
    unsigned parts[4];
    char rest;
    if (std::sscanf(host.c_str(), "%3u.%3u.%3u.%3u%c", &parts[0], &parts[1], &parts[2], &parts[3], &rest) != 4)
        return false;
    char text[32];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", parts[0], parts[1], parts[2], parts[3]);
    return host == text && parts[0] < 256 && parts[1] < 256 && parts[2] < 256 && parts[3] < 256;
}

void check_text(const std::string& text, SockAddr& address)
{
    const SockAddr before("9.8.7.6", 54);
    address = before;
    const std::size_t colon = text.find(':');
    const std::string host = text.substr(0, colon);
    const int r = address.set_addr(text.c_str());
    if (colon != std::string::npos && host.size() >= 16) {
        CHECK(r == err::syntax && address == before);
        return;
    }
    CHECK(r == 0);
    CHECK(address.get_port_h() == (colon == std::string::npos ? 0 : naive_port(text.substr(colon + 1))));
    if (is_plain_quad(host))
        CHECK(host == address.get_ip_s());

    const share_str printed = address.get_addr();
    CHECK(printed == (std::string(address.get_ip_s()) + ":" + std::to_string(address.get_port_h())).c_str());
    SockAddr again;
    CHECK(again.set_addr(printed.c_str()) == 0 && again == address);
    CHECK(SockAddr(address.get_ip_s(), address.get_port_h()) == address);
}

} // namespace

// The input's first line is one address, the rest another.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = input.find('\n');
    SockAddr first, second;
    check_text(input.substr(0, end).c_str(), first);
    check_text(end == std::string::npos ? "" : input.substr(end + 1).c_str(), second);

    CHECK((first < second) + (second < first) + (first == second) == 1);
    CHECK((first != second) == !(first == second));
    CHECK(!(first < first));
    return 0;
}
