// IPv4 addresses: text to address and back, comparison.
#include <stdkro/socket.h>

#include "platform.h"

#include <stdkro/xcpt.h>

#include <cstring>

namespace {

constexpr unsigned short ipv4_family = 2;
constexpr std::size_t host_limit = 16;

// Network order is the order of the bytes, whatever the machine's is.
template <class number> number swap_order(number value)
{
    unsigned char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    number result = 0;
    for (const unsigned char byte : bytes)
        result = static_cast<number>(static_cast<unsigned>(result) << 8 | byte);
    return result;
}

unsigned short to_network(unsigned short port) { return swap_order(port); }
unsigned short to_host(unsigned short port) { return swap_order(port); }
unsigned to_host(unsigned address) { return swap_order(address); }

unsigned raw_address(const sockaddr_in& a)
{
    unsigned raw;
    std::memcpy(&raw, &a.sin_addr, sizeof raw);
    return raw;
}

void set_raw(sockaddr_in& a, unsigned address, unsigned short port)
{
    a = sockaddr_in();
    a.sin_family = ipv4_family;
    a.sin_port = to_network(port);
    std::memcpy(&a.sin_addr, &address, sizeof address);
}

// Leading blanks, a sign and digits, as atoi reads them; only the low 16 bits count,
// so the sum may wrap.
unsigned short read_port(const char* s)
{
    while (*s == ' ' || (*s >= '\t' && *s <= '\r'))
        ++s;
    const bool is_negative = *s == '-';
    if (*s == '-' || *s == '+')
        ++s;
    unsigned value = 0;
    for (; *s >= '0' && *s <= '9'; ++s)
        value = value * 10 + static_cast<unsigned>(*s - '0');
    return static_cast<unsigned short>(is_negative ? 0 - value : value);
}

} // namespace

static_assert(sizeof(SockAddr) == sizeof(sockaddr_in), "a SockAddr is a sockaddr_in");

SockAddr::SockAddr() { set_raw(address_, 0, 0); }

SockAddr::SockAddr(const sockaddr& address) { std::memcpy(&address_, &address, sizeof address_); }

SockAddr::SockAddr(const char* host, unsigned short port) : SockAddr() { set_addr(host, port); }

SockAddr::SockAddr(const char* text) : SockAddr() { set_addr(text); }

SockAddr::SockAddr(unsigned short port) { set_raw(address_, 0, port); }

SockAddr::SockAddr(const in_addr& address, unsigned short port)
{
    set_raw(address_, 0, port);
    address_.sin_addr = address;
}

SockAddr& SockAddr::operator=(const sockaddr_in& address)
{
    address_ = address;
    return *this;
}

int SockAddr::set_addr(const char* text)
{
    if (!text)
        return set_localhost(0);
    const char* colon = std::strchr(text, ':');
    if (!colon)
        return set_addr(text, 0);
    const std::size_t length = static_cast<std::size_t>(colon - text);
    if (length >= host_limit)
        return err::syntax;
    char host[host_limit];
    std::memcpy(host, text, length);
    host[length] = '\0';
    return set_addr(host, read_port(colon + 1));
}

int SockAddr::set_addr(const char* host, unsigned short port)
{
    if (!host)
        return set_localhost(port);
    set_raw(address_, sys_read_address(host), port);
    return err::ok;
}

int SockAddr::set_localhost(unsigned short port)
{
    set_raw(address_, raw_address(address_), port);
    char name[256];
    unsigned address = 0;
    if (sys_host_name(name, 255) < 0 || sys_host_address(name, &address) < 0)
        return err::network;
    set_raw(address_, address, port);
    return err::ok;
}

share_str SockAddr::get_addr() const { return share_str::print_str("%s:%d", get_ip_s(), get_port_h()); }

unsigned short SockAddr::get_port_h() const { return to_host(static_cast<unsigned short>(address_.sin_port)); }

const char* SockAddr::get_ip_s() const { return sys_address_text(raw_address(address_)); }

sockaddr& SockAddr::cast_sockaddr() { return reinterpret_cast<sockaddr&>(address_); }

const sockaddr& SockAddr::cast_sockaddr() const { return reinterpret_cast<const sockaddr&>(address_); }

bool SockAddr::operator==(const SockAddr& other) const
{
    return address_.sin_port == other.address_.sin_port && raw_address(address_) == raw_address(other.address_);
}

bool SockAddr::operator<(const SockAddr& other) const
{
    const unsigned own = to_host(raw_address(address_));
    const unsigned others = to_host(raw_address(other.address_));
    return own != others ? own < others : get_port_h() < other.get_port_h();
}
