// The door to the operating system: POSIX (Linux). Sockets and the names of hosts.
#include "platform_posix.h"
#include "platform.h"

#include <stdkro/platform_types.h>

#include <atomic>
#include <cerrno>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace posix;

std::atomic<unsigned> posix::all_closings { 0 };
std::atomic<unsigned> posix::closings_by_descriptor[4096];

namespace {

sockaddr* generic(sockaddr_in* address) { return reinterpret_cast<sockaddr*>(address); }
const sockaddr* generic(const sockaddr_in* address) { return reinterpret_cast<const sockaddr*>(address); }

void count_closing(int fd)
{
    closings_of(fd).fetch_add(1, std::memory_order_relaxed);
    all_closings.fetch_add(1, std::memory_order_release);
}

/// A connection that a signal interrupted goes on by itself: wait for its end.
int finish_connecting(int fd)
{
    pollfd waiting = { fd, POLLOUT, 0 };
    if (uninterrupted([&] { return poll(&waiting, 1, -1); }) < 0)
        return -1;
    int failure = 0;
    socklen_t size = sizeof failure;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &failure, &size) < 0)
        return -1;
    errno = failure;
    return failure == 0 ? 0 : -1;
}

} // namespace

unsigned sys_socket_open(int family, int type, int protocol)
{
    return static_cast<unsigned>(socket(family, type | SOCK_CLOEXEC, protocol));
}

void sys_socket_close(unsigned h)
{
    if (h == sys_no_socket)
        return;
    close(descriptor_of(h));
    count_closing(descriptor_of(h));
}

int sys_socket_bind(unsigned h, const sockaddr_in* address)
{
    return bind(descriptor_of(h), generic(address), sizeof *address);
}

int sys_socket_listen(unsigned h, int backlog) { return listen(descriptor_of(h), backlog); }

int sys_socket_connect(unsigned h, const sockaddr_in* address)
{
    const int fd = descriptor_of(h);
    if (connect(fd, generic(address), sizeof *address) == 0)
        return 0;
    return errno == EINTR ? finish_connecting(fd) : -1;
}

unsigned sys_socket_accept(unsigned h, sockaddr_in* peer)
{
    return static_cast<unsigned>(uninterrupted([&] {
        socklen_t size = sizeof *peer;
        return accept4(descriptor_of(h), generic(peer), peer ? &size : nullptr, SOCK_CLOEXEC);
    }));
}

int sys_socket_send(unsigned h, const void* bytes, unsigned n)
{
    return static_cast<int>(uninterrupted([&] { return send(descriptor_of(h), bytes, n, MSG_NOSIGNAL); }));
}

int sys_socket_receive(unsigned h, void* bytes, unsigned n)
{
    return static_cast<int>(uninterrupted([&] { return recv(descriptor_of(h), bytes, n, 0); }));
}

int sys_socket_send_to(unsigned h, const void* bytes, unsigned n, const sockaddr_in* to)
{
    return static_cast<int>(uninterrupted([&] {
        return sendto(descriptor_of(h), bytes, n, MSG_NOSIGNAL, generic(to), to ? sizeof *to : 0);
    }));
}

int sys_socket_receive_from(unsigned h, void* bytes, unsigned n, sockaddr_in* from)
{
    return static_cast<int>(uninterrupted([&] {
        socklen_t size = sizeof *from;
        return recvfrom(descriptor_of(h), bytes, n, 0, generic(from), from ? &size : nullptr);
    }));
}

int sys_socket_shutdown(unsigned h, int how) { return shutdown(descriptor_of(h), how); }

bool sys_socket_is_open(unsigned h)
{
    sockaddr_in address;
    return sys_socket_self(h, &address) == 0;
}

int sys_socket_self(unsigned h, sockaddr_in* address)
{
    socklen_t size = sizeof *address;
    return getsockname(descriptor_of(h), generic(address), &size);
}

int sys_socket_peer(unsigned h, sockaddr_in* address)
{
    socklen_t size = sizeof *address;
    return getpeername(descriptor_of(h), generic(address), &size);
}

int sys_socket_control(unsigned h, unsigned command, unsigned long* argument)
{
    const unsigned windows_fionbio = 0x8004667Eu;
    const unsigned windows_fionread = 0x4004667Fu;
    int value = static_cast<int>(*argument);
    switch (command) {
    case windows_fionbio:
        return ioctl(descriptor_of(h), FIONBIO, &value);
    case windows_fionread:
    case static_cast<unsigned>(FIONREAD):
        if (ioctl(descriptor_of(h), FIONREAD, &value) < 0)
            return -1;
        *argument = static_cast<unsigned long>(value);
        return 0;
    case static_cast<unsigned>(FIONBIO):
        return ioctl(descriptor_of(h), FIONBIO, &value);
    default:
        return ioctl(descriptor_of(h), command, argument) < 0 ? -1 : 0;
    }
}

int sys_socket_set_nodelay(unsigned h, bool on)
{
    const int value = on;
    return setsockopt(descriptor_of(h), IPPROTO_TCP, TCP_NODELAY, &value, sizeof value);
}

int sys_host_name(char* dst, unsigned n)
{
    if (n == 0 || gethostname(dst, n) < 0)
        return -1;
    dst[n - 1] = '\0';
    return 0;
}

int sys_host_address(const char* name, unsigned* address)
{
    addrinfo wanted = {};
    wanted.ai_family = AF_INET;
    addrinfo* found = nullptr;
    if (getaddrinfo(name, nullptr, &wanted, &found) != 0)
        return -1;
    *address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr.s_addr;
    freeaddrinfo(found);
    return 0;
}

unsigned sys_read_address(const char* text) { return inet_addr(text); }

const char* sys_address_text(unsigned address)
{
    in_addr a;
    a.s_addr = address;
    return inet_ntoa(a);
}
