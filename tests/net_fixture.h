// What the network tests share: the socket library started, and pairs of connected
// sockets on 127.0.0.1.
#ifndef STDKRO_TESTS_NET_FIXTURE_H
#define STDKRO_TESTS_NET_FIXTURE_H

#include "virtual_slot.h"

#include <stdkro/socket.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>

#ifdef _WIN32
/// The application starts the socket library: here once, before the first test.
struct socket_library : testing::Environment {
    void SetUp() override
    {
        WSADATA data;
        ASSERT_EQ(0, WSAStartup(0x0101, &data));
    }
    void TearDown() override { WSACleanup(); }
};
static testing::Environment* const started = testing::AddGlobalTestEnvironment(new socket_library);

/// How many descriptors and other handles the program has; Wine does not count them.
inline long open_descriptors()
{
    long count = 0;
    DWORD flags;
    for (unsigned h = 4; h < 0x8000; h += 4)
        count += GetHandleInformation(reinterpret_cast<HANDLE>(h), &flags) != 0;
    return count;
}
/// How much longer a wait for many sockets takes than on Linux.
constexpr int cost_of_waits = 100;
#else
inline long open_descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}
constexpr int cost_of_waits = 1;
#endif

/// A listening socket on a free port of 127.0.0.1.
struct listener : Socket {
    SockAddr address;

    listener()
    {
        EXPECT_EQ(0, create_server(SockAddr("127.0.0.1", 0)));
        EXPECT_EQ(0, listen(16));
        EXPECT_EQ(0, getself(address));
    }
};

/// Two connected sockets.
struct socket_pair {
    Socket here;
    Socket there;

    socket_pair()
    {
        listener server;
        EXPECT_EQ(0, here.create());
        EXPECT_EQ(0, here.connect(server.address));
        EXPECT_EQ(0, server.accept(there, nullptr));
        here.set_nodelay(true);
        there.set_nodelay(true);
    }

    /// A byte is there to be read `here`.
    void make_readable()
    {
        EXPECT_EQ(1, there.send("x", 1));
        EXPECT_EQ(0, here.select(1, nullptr));
    }
};

#endif
