// One socket handle and its operations: each makes one call through the platform
// door and turns its failure into a status code.
#include <stdkro/socket.h>

#include "platform.h"

#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

namespace {

constexpr int ipv4_family = 2;
constexpr int stream_type = 1;
constexpr unsigned longest = 0x7FFFFFFF;
constexpr unsigned control_async = 0x8004667Eu;

// Bits of Socket::select.
constexpr int wait_readable = 1 | 4;
constexpr int wait_writable = 2;
constexpr int wait_exceptional = 8;

int code_of(int result, int failure) { return result < 0 ? failure : err::ok; }

} // namespace

ipc::~ipc() = default;

Socket::~Socket() { Socket::close(); }

int Socket::send(const void* bytes, unsigned n)
{
    if (handle_ == no_handle)
        return err::shut_up;
    if (n > longest)
        return err::bad_argument;
    const int sent = sys_socket_send(handle_, bytes, n);
    return sent < 0 ? err::send : sent;
}

int Socket::receive(void* bytes, unsigned n)
{
    if (handle_ == no_handle)
        return err::shut_up;
    if (n > longest)
        return err::bad_argument;
    const int received = sys_socket_receive(handle_, bytes, n);
    if (received < 0)
        return err::receive;
    return received == 0 ? err::shut_up : received;
}

int Socket::close()
{
    sys_socket_close(handle_);
    handle_ = no_handle;
    return err::ok;
}

void Socket::print(xml_node& node) const
{
    node.get_attrs().add_attr("SOCKET", share_str::print_str("%d", static_cast<int>(handle_)));
    xml_node* const addresses = node.add("addr", XML_ELEMENT);
    if (!addresses)
        return;
    SockAddr address;
    if (getself(address) >= 0)
        addresses->get_attrs().add_attr("self", address.get_addr());
    if (getpeer(address) >= 0)
        addresses->get_attrs().add_attr("peer", address.get_addr());
}

unsigned Socket::detach()
{
    const unsigned handle = handle_;
    handle_ = no_handle;
    return handle;
}

void Socket::attach(unsigned handle)
{
    if (handle == handle_)
        return;
    close();
    handle_ = handle;
}

int Socket::create(int family, int type, int protocol)
{
    close();
    handle_ = sys_socket_open(family, type, protocol);
    return is_valid() ? err::ok : err::network;
}

int Socket::create() { return create(ipv4_family, stream_type, 0); }

int Socket::create_server(const SockAddr& address)
{
    int r = create();
    if (r >= 0)
        r = bind(address);
    if (r < 0)
        close();
    return r;
}

int Socket::bind(const SockAddr& address)
{
    return code_of(sys_socket_bind(handle_, &address.cast_sockaddr_in()), err::network);
}

int Socket::listen(int backlog) { return code_of(sys_socket_listen(handle_, backlog), err::network); }

int Socket::shutdown(int how) { return is_valid() ? code_of(sys_socket_shutdown(handle_, how), err::network) : err::ok; }

int Socket::connect(const SockAddr& address)
{
    return code_of(sys_socket_connect(handle_, &address.cast_sockaddr_in()), err::connection);
}

int Socket::getpeer(SockAddr& address) const
{
    return code_of(sys_socket_peer(handle_, &address.cast_sockaddr_in()), err::network);
}

int Socket::getself(SockAddr& address) const
{
    return code_of(sys_socket_self(handle_, &address.cast_sockaddr_in()), err::network);
}

int Socket::sockctl(long command, unsigned long* argument)
{
    return code_of(sys_socket_control(handle_, static_cast<unsigned>(command), argument), err::network);
}

unsigned Socket::accept(SockAddr* peer) const
{
    return sys_socket_accept(handle_, peer ? &peer->cast_sockaddr_in() : nullptr);
}

int Socket::accept(Socket& connection, SockAddr* peer) const
{
    const unsigned handle = accept(peer);
    if (handle == no_handle)
        return err::network;
    connection.attach(handle);
    return err::ok;
}

int Socket::send_to(const SockAddr* to, const void* bytes, unsigned n)
{
    if (handle_ == no_handle)
        return err::shut_up;
    if (n > longest)
        return err::bad_argument;
    return sys_socket_send_to(handle_, bytes, n, to ? &to->cast_sockaddr_in() : nullptr);
}

int Socket::recv_from(SockAddr* from, void* bytes, unsigned n)
{
    if (handle_ == no_handle)
        return err::shut_up;
    if (n > longest)
        return err::bad_argument;
    return sys_socket_receive_from(handle_, bytes, n, from ? &from->cast_sockaddr_in() : nullptr);
}

int Socket::recv_n(void* bytes, unsigned n)
{
    if (handle_ == no_handle)
        return err::shut_up;
    if (n > longest)
        return err::bad_argument;
    char* p = static_cast<char*>(bytes);
    for (unsigned left = n; left > 0;) {
        const int received = receive(p, left);
        if (received < 0)
            return received;
        p += received;
        left -= static_cast<unsigned>(received);
    }
    return static_cast<int>(n);
}

int Socket::send_n(const void* bytes, unsigned n)
{
    if (handle_ == no_handle)
        return err::send;
    if (n > longest)
        return err::bad_argument;
    // KEEP: one send, then all bytes count as sent; callers of blocking sockets rely on
    // exactly one message for each call.
    return n > 0 && sys_socket_send(handle_, bytes, n) < 0 ? err::send : static_cast<int>(n);
}

int Socket::set_async(bool on)
{
    unsigned long value = on;
    return code_of(sys_socket_control(handle_, control_async, &value), err::network);
}

int Socket::set_nodelay(bool on) { return code_of(sys_socket_set_nodelay(handle_, on), err::network); }

int Socket::select(int events, const timeval* limit)
{
    sock_fd_set sets[3];
    const int wanted[3] = { wait_readable, wait_writable, wait_exceptional };
    sock_fd_set* present[3];
    for (int k = 0; k < 3; ++k) {
        present[k] = is_valid() && (events & wanted[k]) ? &sets[k] : nullptr;
        sets[k].fd_count = 1;
        sets[k].fd_array[0] = handle_;
    }
    const int ready = select(present[0], present[1], present[2], limit);
    return ready < 0 ? ready : err::ok;
}

int Socket::select(sock_fd_set* readable, sock_fd_set* writable, sock_fd_set* exceptional, const timeval* limit)
{
    const int ready = sys_select(readable, writable, exceptional, limit);
    if (ready == 0)
        return err::timeout;
    return ready < 0 ? err::network : ready;
}
