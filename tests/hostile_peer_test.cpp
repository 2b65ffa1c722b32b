// Peers that reset, close half, send a byte now and then, or never read: on each loop every other
// connection is served as if they were not there.
#include "net_fixture.h"

#include <stdkro/poller.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace {

const timeval short_time = { 0, 20000 };

/// One accepted connection: sends back what it gets, and never blocks.
template <class loop_type> struct echo : fdbase {
    loop_type& loop;
    Socket socket;
    packet backlog;
    int index = -1;
    bool has_ended = false; // the peer sends no more
    bool is_broken = false; // the connection failed

    explicit echo(loop_type& l) : loop(l) {}
    int get_fd() override { return static_cast<int>(socket.get_socket()); }
    int get_events(int& events) override
    {
        events = wanted();
        return get_fd();
    }
    int wanted() const
    {
        const bool takes_more = !has_ended && backlog.count() < 0x10000;
        return (takes_more ? EV_READ : 0) | (backlog.count() > 0 ? EV_WRITE : 0);
    }
    int do_read() override
    {
        const unsigned room = backlog.reserved(4096);
        const int n = socket.receive(backlog.wptr(), room);
        if (n > 0)
            backlog.wmove(n);
        has_ended = n == err::shut_up;
        is_broken = n == err::receive;
        if (n < 0 && (!has_ended || backlog.count() == 0))
            return leave();
        return loop.set_events(index, wanted());
    }
    int do_write() override
    {
        const int n = socket.send(backlog.rptr(), backlog.count());
        is_broken = n == err::send;
        if (is_broken)
            return leave();
        backlog.rmove(n);
        if (has_ended && backlog.count() == 0)
            return leave();
        return loop.set_events(index, wanted());
    }
    int do_error() override { return leave(); }
    int leave()
    {
        loop.remove(index);
        index = -1;
        socket.close();
        return -1;
    }
};

/// Accepts for the loop.
template <class loop_type> struct echo_server : fdbase {
    loop_type& loop;
    listener socket;
    std::vector<std::unique_ptr<echo<loop_type>>> accepted;

    explicit echo_server(loop_type& l) : loop(l)
    {
        EXPECT_GE(loop.add(*this, EV_READ), 0);
    }
    int get_fd() override { return static_cast<int>(socket.get_socket()); }
    int get_events(int& events) override
    {
        events = EV_READ;
        return get_fd();
    }
    int do_read() override
    {
        std::unique_ptr<echo<loop_type>> next(new echo<loop_type>(loop));
        if (socket.accept(next->socket, nullptr) < 0)
            return 0;
        EXPECT_EQ(0, next->socket.set_async(true));
        next->index = loop.add(*next, EV_READ);
        EXPECT_GE(next->index, 0);
        accepted.push_back(std::move(next));
        return 0;
    }
    bool is_serving_nobody() const
    {
        return std::all_of(accepted.begin(), accepted.end(), [](const auto& e) { return e->index < 0; });
    }
    auto broken_count() const
    {
        return std::count_if(accepted.begin(), accepted.end(), [](const auto& e) { return e->is_broken; });
    }
};

/// A connection to the server, driven from the same thread: nothing it does blocks.
struct peer {
    Socket socket;

    explicit peer(const SockAddr& server)
    {
        EXPECT_EQ(0, socket.create());
        EXPECT_EQ(0, socket.connect(server));
        EXPECT_EQ(0, socket.set_async(true));
        EXPECT_EQ(0, socket.set_nodelay(true));
    }
    virtual ~peer() = default;
    /// One step; true when there is nothing left to do.
    virtual bool step() = 0;
};

/// Makes round trips.
struct good_peer : peer {
    int round_trips = 0;
    std::string sent;
    std::string received;

    using peer::peer;
    bool step() override
    {
        if (round_trips == 50)
            return true;
        if (sent.empty()) {
            sent = std::to_string(round_trips) + std::string(1000, 'g');
            EXPECT_EQ(static_cast<int>(sent.size()), socket.send(sent.data(), static_cast<unsigned>(sent.size())));
        }
        char bytes[512];
        const int n = socket.receive(bytes, sizeof bytes);
        EXPECT_NE(err::shut_up, n) << "a good connection is never closed";
        if (n > 0)
            received.append(bytes, static_cast<std::size_t>(n));
        if (received.size() < sent.size())
            return false;
        EXPECT_EQ(sent, received);
        sent.clear();
        received.clear();
        if (++round_trips == 50)
            socket.close();
        return round_trips == 50;
    }
};

/// Closes with its echo unread, which resets the connection.
struct resetting_peer : peer {
    int steps = 0;

    using peer::peer;
    bool step() override
    {
        if (steps++ == 0) {
            EXPECT_EQ(5, socket.send("reset", 5));
        }
        const timeval at_once = { 0, 0 };
        if (socket.is_valid() && socket.select(1, &at_once) == 0) {
            socket.send("more", 4);
            socket.close();
        }
        return !socket.is_valid();
    }
};

/// Sends no more at once, and still gets back what it sent.
struct half_closing_peer : peer {
    std::string received;
    bool has_sent = false;

    using peer::peer;
    bool step() override
    {
        if (!has_sent) {
            EXPECT_EQ(4, socket.send("half", 4));
            EXPECT_EQ(0, socket.shutdown(1));
            has_sent = true;
        }
        char bytes[16];
        const int n = socket.is_valid() ? socket.receive(bytes, sizeof bytes) : err::shut_up;
        if (n > 0)
            received.append(bytes, static_cast<std::size_t>(n));
        if (n != err::shut_up)
            return false;
        EXPECT_EQ("half", received) << "and then the end";
        socket.close();
        return true;
    }
};

/// A byte every now and then, as long as the good ones are busy.
struct trickling_peer : peer {
    int steps = 0;
    int bytes_sent = 0;
    int bytes_received = 0;

    using peer::peer;
    bool step() override
    {
        if (++steps % 10 == 0 && bytes_sent < 20)
            bytes_sent += socket.send("t", 1);
        char byte;
        if (bytes_received < 20 && socket.receive(&byte, 1) == 1)
            ++bytes_received;
        if (bytes_received < 20)
            return false;
        socket.close();
        return true;
    }
};

/// Sends until nothing is taken any more, reads nothing, and goes at last.
struct choking_peer : peer {
    int refusals = 0;

    using peer::peer;
    bool step() override
    {
        static const char much[0x10000] = {};
        if (socket.is_valid() && socket.send(much, sizeof much) < 0 && ++refusals == 30)
            socket.close();
        return !socket.is_valid();
    }
};

/// Goes before anybody has looked at it.
struct vanishing_peer : peer {
    using peer::peer;
    bool step() override
    {
        socket.close();
        return true;
    }
};

template <class kind> void add_peers(std::vector<std::unique_ptr<peer>>& peers, int n, const SockAddr& server)
{
    for (int i = 0; i < n; ++i)
        peers.emplace_back(new kind(server));
}

} // namespace

template <class loop> struct hostile_peers : testing::Test { };
using loops = testing::Types<selector, poller, epoller>;
TYPED_TEST_SUITE(hostile_peers, loops);

TYPED_TEST(hostile_peers, harm_no_other_connection)
{
    TypeParam loop(64);
    echo_server<TypeParam> server(loop);
    std::vector<std::unique_ptr<peer>> peers;
    for (int i = 0; i < 2; ++i) {
        add_peers<good_peer>(peers, 2, server.socket.address);
        add_peers<resetting_peer>(peers, 1, server.socket.address);
        add_peers<half_closing_peer>(peers, 1, server.socket.address);
        add_peers<trickling_peer>(peers, 1, server.socket.address);
        add_peers<choking_peer>(peers, 1, server.socket.address);
        add_peers<vanishing_peer>(peers, 1, server.socket.address);
    }
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    bool are_done = false;
    while (!are_done || server.accepted.size() < peers.size() || !server.is_serving_nobody()) {
        ASSERT_LT(std::chrono::steady_clock::now(), give_up) << "somebody waits for ever";
        ASSERT_GE(loop.wait(&short_time), 0);
        are_done = true;
        for (const auto& p : peers)
            are_done = p->step() && are_done;
    }
    EXPECT_EQ(1u, loop.count()) << "only the server is left";
    EXPECT_EQ(4, server.broken_count()) << "those who reset and those who choked";
}
