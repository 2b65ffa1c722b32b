// A UDP socket on a free port of 127.0.0.1, made with the platform's own functions.
#ifndef STDKRO_TESTS_UDP_RECEIVER_H
#define STDKRO_TESTS_UDP_RECEIVER_H

#include <stdkro/platform_types.h>

#include <cstring>
#include <string>

#if !defined(_WIN32)
#include <arpa/inet.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

class udp_receiver {
public:
    /// Port 0 takes a free one.
    explicit udp_receiver(int wanted = 0)
    {
        start();
        socket_ = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in address;
        std::memset(&address, 0, sizeof address);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = inet_addr("127.0.0.1");
        address.sin_port = htons(static_cast<unsigned short>(wanted));
        is_bound_ = bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        length size = sizeof address;
        getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
    }
    udp_receiver(const udp_receiver&) = delete;
    udp_receiver& operator=(const udp_receiver&) = delete;
    ~udp_receiver() { finish(); }

    int port() const { return port_; }
    bool is_bound() const { return is_bound_; }

    /// The next datagram, or "<nothing>" when none comes.
    std::string next() { return wait(5) ? receive() : "<nothing>"; }
    /// Whether one has come.
    bool has_one() { return wait(0); }

private:
    bool wait(int seconds)
    {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(socket_, &readable);
        timeval limit = { seconds, 0 };
        return select(static_cast<int>(socket_) + 1, &readable, nullptr, nullptr, &limit) == 1;
    }

    std::string receive()
    {
        static char bytes[65536];
        const auto n = recv(socket_, bytes, sizeof bytes, 0);
        return n < 0 ? "<error>" : std::string(bytes, static_cast<std::size_t>(n));
    }

#if defined(_WIN32)
    using length = int;
    SOCKET socket_;
    static void start()
    {
        WSADATA data;
        WSAStartup(0x0101, &data);
    }
    void finish() { closesocket(socket_); }
#else
    using length = socklen_t;
    int socket_;
    static void start() {}
    void finish() { close(socket_); }
#endif
    bool is_bound_;
    int port_;
};

#endif
