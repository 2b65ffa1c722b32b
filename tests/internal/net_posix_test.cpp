// Signals, and calls of the system that end too early: what the POSIX side of the door makes
// good.
#include "../net_fixture.h"
#include "interruptions.h"
#include "platform.h"

#include <stdkro/poller.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>

namespace {

// How many calls there were that can end too early.
std::atomic<int> call_count { 0 };

// What the next call of any kind fails with; 0 for nothing.
std::atomic<int> failure { 0 };

// What waits in lists that the kernel keeps fail with.
std::atomic<int> list_failure { 0 };
// The same for the waits of such a list that last.
std::atomic<int> long_wait_failure { 0 };
// What asking for the outcome of a connection, and waiting for it, fail with.
std::atomic<int> getsockopt_failure { 0 };
std::atomic<int> poll_failure { 0 };

// The outcome of a connection that goes on behind an interruption.
std::atomic<int> connect_error { 0 };

// Whatever a test leaves behind, the next begins without.
struct meddling {
    ~meddling()
    {
        interruptions = failure = list_failure = long_wait_failure = connect_error = getsockopt_failure = poll_failure = 0;
    }
};

bool ends_early()
{
    ++call_count;
    if (failure == 0)
        return is_interrupted();
    errno = failure;
    failure = 0;
    return true;
}

} // namespace

extern "C" {

ssize_t __real_send(int fd, const void* bytes, size_t n, int flags);
ssize_t __wrap_send(int fd, const void* bytes, size_t n, int flags)
{
    return ends_early() ? -1 : __real_send(fd, bytes, n, flags);
}

ssize_t __real_recv(int fd, void* bytes, size_t n, int flags);
ssize_t __wrap_recv(int fd, void* bytes, size_t n, int flags)
{
    return ends_early() ? -1 : __real_recv(fd, bytes, n, flags);
}

ssize_t __real_sendto(int fd, const void* bytes, size_t n, int flags, const sockaddr* to, socklen_t size);
ssize_t __wrap_sendto(int fd, const void* bytes, size_t n, int flags, const sockaddr* to, socklen_t size)
{
    return ends_early() ? -1 : __real_sendto(fd, bytes, n, flags, to, size);
}

ssize_t __real_recvfrom(int fd, void* bytes, size_t n, int flags, sockaddr* from, socklen_t* size);
ssize_t __wrap_recvfrom(int fd, void* bytes, size_t n, int flags, sockaddr* from, socklen_t* size)
{
    return ends_early() ? -1 : __real_recvfrom(fd, bytes, n, flags, from, size);
}

int __real_accept4(int fd, sockaddr* peer, socklen_t* size, int flags);
int __wrap_accept4(int fd, sockaddr* peer, socklen_t* size, int flags)
{
    return ends_early() ? -1 : __real_accept4(fd, peer, size, flags);
}

// An interrupted connect goes on by itself.
int __real_connect(int fd, const sockaddr* address, socklen_t size);
int __wrap_connect(int fd, const sockaddr* address, socklen_t size)
{
    if (interruptions == 0)
        return __real_connect(fd, address, size);
    __real_connect(fd, address, size);
    return ends_early() ? -1 : 0;
}

int __real_getsockopt(int fd, int level, int option, void* value, socklen_t* size);
int __wrap_getsockopt(int fd, int level, int option, void* value, socklen_t* size)
{
    if (getsockopt_failure != 0) {
        errno = getsockopt_failure;
        return -1;
    }
    const int r = __real_getsockopt(fd, level, option, value, size);
    if (connect_error != 0)
        *static_cast<int*>(value) = connect_error;
    return r;
}

int __real_poll(pollfd* records, nfds_t count, int ms);
int __wrap_poll(pollfd* records, nfds_t count, int ms)
{
    if (poll_failure != 0) {
        errno = poll_failure;
        return -1;
    }
    return ends_early() ? -1 : __real_poll(records, count, ms);
}

int __real_ppoll(pollfd* records, nfds_t count, const timespec* limit, const sigset_t* mask);
int __wrap_ppoll(pollfd* records, nfds_t count, const timespec* limit, const sigset_t* mask)
{
    return ends_early() ? -1 : __real_ppoll(records, count, limit, mask);
}

int __real_epoll_wait(int list, epoll_event* events, int room, int ms);
int __wrap_epoll_wait(int list, epoll_event* events, int room, int ms)
{
    if (list_failure != 0) {
        errno = list_failure;
        return -1;
    }
    return ends_early() ? -1 : __real_epoll_wait(list, events, room, ms);
}

int __real_epoll_pwait2(int list, epoll_event* events, int room, const timespec* limit, const sigset_t* mask);
int __wrap_epoll_pwait2(int list, epoll_event* events, int room, const timespec* limit, const sigset_t* mask)
{
    if (list_failure != 0) {
        errno = list_failure;
        return -1;
    }
    if (long_wait_failure != 0) {
        errno = long_wait_failure;
        return -1;
    }
    return ends_early() ? -1 : __real_epoll_pwait2(list, events, room, limit, mask);
}

int __real_socket(int family, int type, int protocol);
int __wrap_socket(int family, int type, int protocol)
{
    return ends_early() ? -1 : __real_socket(family, type, protocol);
}

} // extern "C"

namespace {

struct reader : fdbase {
    Socket& socket;
    int reads = 0;

    explicit reader(Socket& s) : socket(s) {}
    int get_events(int& events) override
    {
        events = EV_READ;
        return get_fd();
    }
    int get_fd() override { return static_cast<int>(socket.get_socket()); }
    int do_read() override { return ++reads; }
};

// ---- calls that are interrupted or fail ------------------------------------------------

TEST(an_interruption, is_made_good_by_every_operation)
{
    const meddling until_the_end;
    socket_pair p;
    listener server;
    char bytes[8];
    SockAddr address = server.address;
    Socket client;
    Socket accepted;
    const struct {
        const char* what;
        std::function<int()> operation;
        int result;
    } cases[] = {
        { "send", [&] { return p.here.send("abc", 3); }, 3 },
        { "receive", [&] { return p.there.receive(bytes, 8); }, 3 },
        { "send_n", [&] { return p.here.send_n("abc", 3); }, 3 },
        { "recv_n", [&] { return p.there.recv_n(bytes, 3); }, 3 },
        { "send_to", [&] { return p.here.send_to(nullptr, "abc", 3); }, 3 },
        { "select", [&] { return p.there.select(1, nullptr); }, 0 },
        { "recv_from", [&] { return p.there.recv_from(nullptr, bytes, 8); }, 3 },
        { "connect", [&] { return client.connect(address); }, 0 },
        { "accept", [&] { return server.accept(accepted, nullptr); }, 0 },
    };
    client.create();
    for (const auto& c : cases) {
        interruptions = 3;
        EXPECT_EQ(c.result, c.operation()) << c.what;
        EXPECT_EQ(0, interruptions) << c.what;
    }
}

TEST(an_interruption, does_not_hide_that_a_connection_is_refused)
{
    const meddling until_the_end;
    listener server;
    Socket client;
    client.create();
    interruptions = 1;
    connect_error = ECONNREFUSED;
    EXPECT_EQ(err::connection, client.connect(server.address));
    connect_error = 0;
    EXPECT_TRUE(client.is_valid());
}

TEST(an_interruption, does_not_hide_that_the_outcome_of_a_connection_is_unknown)
{
    const meddling until_the_end;
    listener server;
    for (std::atomic<int>* const failing : { &poll_failure, &getsockopt_failure }) {
        Socket client;
        client.create();
        interruptions = 1;
        *failing = ENOMEM;
        EXPECT_EQ(err::connection, client.connect(server.address));
        *failing = 0;
        EXPECT_EQ(0, interruptions);
    }
}

TEST(an_interruption, does_not_lengthen_a_wait)
{
    const meddling until_the_end;
    socket_pair p;
    const timeval at_once = { 0, 0 };
    interruptions = 5;
    EXPECT_EQ(err::timeout, p.here.select(1, &at_once));
    EXPECT_EQ(0, interruptions);
}

using loops = testing::Types<selector, poller, epoller>;
template <class loop> struct failing_wait : testing::Test { };
TYPED_TEST_SUITE(failing_wait, loops);

TYPED_TEST(failing_wait, is_reported_and_harms_nothing)
{
    const meddling until_the_end;
    socket_pair p;
    TypeParam loop(2);
    reader r(p.here);
    loop.add(r, EV_READ);
    p.make_readable();
    for (const int error : { ENOMEM, EAGAIN, EFAULT }) {
        // Lists that the kernel keeps fail first, and then the way without them.
        list_failure = failure = error;
        EXPECT_EQ(-1, loop.wait(nullptr));
        list_failure = failure = 0;
        EXPECT_EQ(1, loop.wait(nullptr));
    }
    EXPECT_EQ(3, r.reads);
}

// The list that the kernel keeps fails only when it has to wait.
TEST(a_list_that_cannot_wait, leaves_the_rest_of_the_limit_to_the_way_without_it)
{
    const meddling until_the_end;
    socket_pair p;
    epoller loop(2);
    reader r(p.here);
    loop.add(r, EV_READ);
    long_wait_failure = ENOMEM;
    const timeval a_second = { 1, 0 };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(0, loop.wait(&a_second));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(990));
    p.there.send("x", 1);
    const timeval long_time = { 30, 0 };
    EXPECT_EQ(1, loop.wait(&long_time));
    EXPECT_EQ(1, r.reads);
}

TYPED_TEST(failing_wait, is_none_when_interrupted)
{
    const meddling until_the_end;
    socket_pair p;
    TypeParam loop(2);
    reader r(p.here);
    loop.add(r, EV_READ);
    p.make_readable();
    interruptions = 3;
    EXPECT_EQ(1, loop.wait(nullptr));
    EXPECT_EQ(0, interruptions);
    EXPECT_EQ(1, r.reads);
}

TEST(failing_calls, are_reported_and_harm_nothing)
{
    const meddling until_the_end;
    socket_pair p;
    listener server;
    Socket client;
    char bytes[8];
    const struct {
        const char* what;
        int error;
        std::function<int()> operation;
        int result;
    } cases[] = {
        { "create", EMFILE, [&] { return client.create(); }, err::network },
        { "create_server", ENFILE, [&] { return client.create_server(SockAddr("127.0.0.1", 0)); }, err::network },
        { "accept", EMFILE, [&] { return server.accept(client, nullptr); }, err::network },
        { "accept", ECONNABORTED, [&] { return server.accept(client, nullptr); }, err::network },
        { "accept", EAGAIN, [&] { return server.accept(client, nullptr); }, err::network },
        { "send", EAGAIN, [&] { return p.here.send("abc", 3); }, err::send },
        { "send", ENOBUFS, [&] { return p.here.send("abc", 3); }, err::send },
        { "send_n", EAGAIN, [&] { return p.here.send_n("abc", 3); }, err::send },
        { "send_n", EPIPE, [&] { return p.here.send_n("abc", 3); }, err::send },
        { "send_to", EAGAIN, [&] { return p.here.send_to(nullptr, "abc", 3); }, -1 },
        { "receive", EAGAIN, [&] { return p.there.receive(bytes, 8); }, err::receive },
        { "receive", ECONNRESET, [&] { return p.there.receive(bytes, 8); }, err::receive },
        { "recv_n", EAGAIN, [&] { return p.there.recv_n(bytes, 3); }, err::receive },
        { "recv_from", EAGAIN, [&] { return p.there.recv_from(nullptr, bytes, 8); }, -1 },
        { "select", ENOMEM, [&] { return p.there.select(1, nullptr); }, err::network },
    };
    for (const auto& c : cases) {
        failure = c.error;
        EXPECT_EQ(c.result, c.operation()) << c.what;
        EXPECT_EQ(0, failure) << c.what;
    }
    EXPECT_EQ(3, p.here.send("abc", 3));
    EXPECT_EQ(3, p.there.recv_n(bytes, 3)) << "and afterwards everything works";
}

// One call of the system for each send and receive.
TEST(system_calls, are_no_more_than_one_for_each_operation)
{
    socket_pair p;
    char bytes[8];
    call_count = 0;
    p.here.send("abc", 3);
    p.there.receive(bytes, 8);
    p.here.send_n("abc", 3);
    p.there.recv_n(bytes, 3);
    EXPECT_EQ(4, call_count);
}

// ---- what the system's own numbers mean ------------------------------------------------

TEST(sockctl, takes_the_native_numbers_too)
{
    socket_pair p;
    p.there.send("four", 4);
    p.here.select(1, nullptr);
    unsigned long bytes = ~0ul;
    EXPECT_EQ(0, p.here.sockctl(FIONREAD, &bytes));
    EXPECT_EQ(4u, bytes);
    unsigned long on = 1;
    EXPECT_EQ(0, p.here.sockctl(FIONBIO, &on));
    char text[8];
    EXPECT_EQ(4, p.here.receive(text, 8));
    EXPECT_EQ(err::receive, p.here.receive(text, 8)) << "does not block";
}

TEST(set_nodelay, sets_the_option_of_the_system)
{
    Socket s;
    ASSERT_EQ(0, s.create());
    for (const bool on : { true, false, true }) {
        EXPECT_EQ(0, s.set_nodelay(on));
        int value = -1;
        socklen_t size = sizeof value;
        getsockopt(static_cast<int>(s.get_socket()), 6, 1, &value, &size);
        EXPECT_EQ(on, value != 0);
    }
}

TEST(handles, are_not_inherited)
{
    socket_pair p;
    listener server;
    for (const Socket* s : { &p.here, &p.there, static_cast<Socket*>(&server) })
        EXPECT_EQ(FD_CLOEXEC, fcntl(static_cast<int>(s->get_socket()), F_GETFD));
}

/// While it lives the program may have so many descriptors, or as many as the system lets it.
class descriptor_limit {
public:
    explicit descriptor_limit(rlim_t most = RLIM_INFINITY)
    {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit changed = { std::min(most, before_.rlim_max), before_.rlim_max };
        setrlimit(RLIMIT_NOFILE, &changed);
    }
    descriptor_limit(const descriptor_limit&) = delete;
    descriptor_limit& operator=(const descriptor_limit&) = delete;
    ~descriptor_limit() { setrlimit(RLIMIT_NOFILE, &before_); }

    bool reaches(rlim_t descriptors) const { return before_.rlim_max >= descriptors; }

private:
    rlimit before_;
};

// A thousand handles far above what an fd_set of the system could hold.
TEST(handles, of_any_number_can_be_waited_for)
{
    const descriptor_limit limit;
    if (!limit.reaches(6000))
        GTEST_SKIP() << "no such descriptors on this machine";
    socket_pair p;
    p.make_readable();
    std::vector<std::unique_ptr<Socket>> copies;
    sock_fd_set set = { 0, {} };
    while (set.fd_count < 1024) {
        const int copy = fcntl(static_cast<int>(p.here.get_socket()), F_DUPFD_CLOEXEC, 4000);
        ASSERT_GE(copy, 4000);
        copies.emplace_back(new Socket(static_cast<unsigned>(copy)));
        set.fd_array[set.fd_count++] = copies.back()->get_socket();
    }
    EXPECT_EQ(1024, Socket::select(&set, nullptr, nullptr, nullptr));
    EXPECT_EQ(copies.back()->get_socket(), set.fd_array[1023]);
    EXPECT_EQ(0, copies.back()->select(1, nullptr));
}

// Numbers that would share a place in a table of a power of two.
TEST(handles, that_are_powers_of_two_apart_are_told_apart)
{
    const descriptor_limit limit;
    if (!limit.reaches(9000))
        GTEST_SKIP() << "no such descriptors on this machine";
    socket_pair p;
    p.make_readable();
    const int first = static_cast<int>(p.here.get_socket());
    sock_fd_set set = { 1, { p.here.get_socket() } };
    std::vector<std::unique_ptr<Socket>> copies;
    for (const int distance : { 2048, 4096, 8192 }) {
        copies.emplace_back(new Socket(static_cast<unsigned>(fcntl(first, F_DUPFD_CLOEXEC, first + distance))));
        ASSERT_EQ(static_cast<unsigned>(first + distance), copies.back()->get_socket());
        set.fd_array[set.fd_count++] = copies.back()->get_socket();
        set.fd_array[set.fd_count++] = copies.back()->get_socket(); // twice is once
    }
    EXPECT_EQ(4, Socket::select(&set, nullptr, nullptr, nullptr));
    ASSERT_EQ(4u, set.fd_count);
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_EQ(copies[i]->get_socket(), set.fd_array[i + 1]);
}

/// A set of one handle, many times.
sock_fd_set repeated(const Socket& s, unsigned times)
{
    sock_fd_set set = { times, {} };
    std::fill_n(set.fd_array, times, s.get_socket());
    return set;
}

// The kernel takes no more poll records than that.
TEST(sets, may_have_more_members_than_descriptors_are_allowed)
{
    socket_pair pairs[50];
    pairs[7].make_readable();
    sock_fd_set all = { 0, {} };
    for (const socket_pair& p : pairs)
        for (const Socket* s : { &p.here, &p.there })
            all.fd_array[all.fd_count++] = s->get_socket();
    sock_fd_set readable = all;
    sock_fd_set writable = all;
    sock_fd_set exceptional = all;
    const descriptor_limit limit(all.fd_count);
    EXPECT_EQ(101, Socket::select(&readable, &writable, &exceptional, nullptr));
    EXPECT_EQ(1u, readable.fd_count);
    EXPECT_EQ(pairs[7].here.get_socket(), readable.fd_array[0]);
    ASSERT_EQ(all.fd_count, writable.fd_count);
    EXPECT_TRUE(std::equal(all.fd_array, all.fd_array + all.fd_count, writable.fd_array)) << "in their order";
    EXPECT_EQ(0u, exceptional.fd_count);
}

TEST(sets, may_repeat_a_handle_more_often_than_descriptors_are_allowed)
{
    socket_pair p;
    p.make_readable();
    sock_fd_set readable = repeated(p.here, 1024);
    sock_fd_set exceptional = repeated(p.there, 1024);
    const descriptor_limit limit(100);
    EXPECT_EQ(1, Socket::select(&readable, nullptr, &exceptional, nullptr));
    EXPECT_EQ(1u, readable.fd_count);
    EXPECT_EQ(p.here.get_socket(), readable.fd_array[0]);
    EXPECT_EQ(0u, exceptional.fd_count);

    sock_fd_set dead = repeated(p.there, 1024);
    p.there.close();
    EXPECT_EQ(err::network, Socket::select(&dead, nullptr, nullptr, nullptr));
    EXPECT_EQ(1024u, dead.fd_count) << "unchanged";
}

// Nothing ends such a wait early either: no hang-up that nobody asked for, and no interruption.
TEST(sets, with_more_members_than_descriptors_are_allowed_are_waited_for)
{
    const meddling until_the_end;
    socket_pair p;
    socket_pair q;
    p.there.close();
    EXPECT_EQ(0, p.here.select(1, nullptr));
    p.here.shutdown(1);
    const descriptor_limit limit(100);
    sock_fd_set exceptional = repeated(p.here, 500);
    sock_fd_set readable = repeated(q.here, 500);
    const timeval span = { 0, 200000 };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(err::timeout, Socket::select(&readable, nullptr, &exceptional, &span));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(190));
    EXPECT_EQ(0u, readable.fd_count);
    EXPECT_EQ(0u, exceptional.fd_count);

    failure = EINVAL;
    interruptions = 3;
    EXPECT_EQ(0, q.here.select(2, nullptr));
    EXPECT_EQ(0, failure);
    EXPECT_EQ(0, interruptions);
}

TEST(a_limit, of_any_length_is_kept)
{
    socket_pair p;
    const long most = std::numeric_limits<long>::max();
    for (const timeval limit : { timeval { most, 0 }, timeval { 2147483, 999999 }, timeval { 2147484, 0 },
                                 timeval { 0, most }, timeval { most, most } }) {
        std::thread later([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            p.there.send("x", 1);
        });
        EXPECT_EQ(0, p.here.select(1, &limit)) << limit.tv_sec << ' ' << limit.tv_usec;
        later.join();
        char byte;
        p.here.receive(&byte, 1);
    }
}

TEST(a_hang_up, does_not_end_a_wait_for_something_else)
{
    socket_pair p;
    socket_pair q;
    p.there.close();
    EXPECT_EQ(0, p.here.select(1, nullptr));
    p.here.shutdown(1);
    sock_fd_set exceptional = { 2, { p.here.get_socket(), q.here.get_socket() } };
    const timeval limit = { 0, 200000 };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(err::timeout, Socket::select(nullptr, nullptr, &exceptional, &limit));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(190));
    EXPECT_EQ(0u, exceptional.fd_count);
}

TEST(host_names, that_do_not_fit_or_exist_are_refused)
{
    char name[256];
    EXPECT_EQ(0, sys_host_name(name, sizeof name));
    EXPECT_EQ(-1, sys_host_name(name, 0));
    EXPECT_EQ(-1, sys_host_name(name, 1)) << "no room for any";
    unsigned address = 7;
    EXPECT_EQ(-1, sys_host_address(std::string(300, 'x').c_str(), &address)) << "longer than a name may be";
    EXPECT_EQ(7u, address);
}

template <class loop> struct high_handles : testing::Test { };
TYPED_TEST_SUITE(high_handles, loops);

TYPED_TEST(high_handles, are_served)
{
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 3000)
        GTEST_SKIP() << "no such descriptors here";
    socket_pair p;
    const int high = fcntl(static_cast<int>(p.here.get_socket()), F_DUPFD_CLOEXEC, 2000);
    Socket s(static_cast<unsigned>(high));
    reader r(s);
    TypeParam loop(2);
    loop.add(r, EV_READ);
    p.there.send("x", 1);
    EXPECT_EQ(1, loop.wait(nullptr));
    EXPECT_EQ(1, r.reads);
}

// ---- signals ---------------------------------------------------------------------------

std::atomic<int> caught { 0 };
void count_signal(int) { ++caught; }

/// Interrupts the thread that made it again and again, until it dies.
class interrupter {
public:
    interrupter()
    {
        struct sigaction action = {};
        action.sa_handler = count_signal; // without SA_RESTART: waits end
        sigaction(SIGUSR1, &action, &before_);
        caught = 0;
        thread_ = std::thread([this, target = pthread_self()] {
            while (!is_over_) {
                pthread_kill(target, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    ~interrupter()
    {
        is_over_ = true;
        thread_.join();
        sigaction(SIGUSR1, &before_, nullptr);
    }

private:
    struct sigaction before_;
    std::atomic<bool> is_over_ { false };
    std::thread thread_;
};

/// Does something on another thread after at least ten signals were caught.
std::thread after_ten_signals(std::function<void()> f)
{
    return std::thread([=] {
        while (caught < 10)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        f();
    });
}

TEST(signals, do_not_end_blocking_operations)
{
    socket_pair p;
    listener server;
    char bytes[8];
    Socket accepted;
    Socket client;
    client.create();
    const struct {
        const char* what;
        std::function<int()> operation;
        std::function<void()> end;
        int result;
    } cases[] = {
        { "receive", [&] { return p.here.receive(bytes, 8); }, [&] { p.there.send("abc", 3); }, 3 },
        { "recv_n", [&] { return p.here.recv_n(bytes, 3); }, [&] { p.there.send("abc", 3); }, 3 },
        { "recv_from", [&] { return p.here.recv_from(nullptr, bytes, 8); }, [&] { p.there.send("abc", 3); }, 3 },
        { "accept", [&] { return server.accept(accepted, nullptr); }, [&] { client.connect(server.address); }, 0 },
        { "select", [&] { return p.here.select(1, nullptr); }, [&] { p.there.send("abc", 3); }, 0 },
    };
    for (const auto& c : cases) {
        const interrupter interrupting;
        std::thread ending = after_ten_signals(c.end);
        EXPECT_EQ(c.result, c.operation()) << c.what;
        ending.join();
        EXPECT_GE(caught, 10);
    }
}

template <class loop> struct interrupted : testing::Test { };
TYPED_TEST_SUITE(interrupted, loops);

TYPED_TEST(interrupted, waits_go_on)
{
    socket_pair p;
    TypeParam loop(2);
    reader r(p.here);
    loop.add(r, EV_READ);
    const timeval long_time = { 60, 0 };
    for (const timeval* limit : { static_cast<const timeval*>(nullptr), &long_time }) {
        const interrupter interrupting;
        std::thread ending = after_ten_signals([&] { p.there.send("x", 1); });
        EXPECT_EQ(1, loop.wait(limit));
        ending.join();
        char byte;
        p.here.receive(&byte, 1);
    }
    EXPECT_EQ(2, r.reads);

    const interrupter interrupting;
    const timeval limit = { 1, 0 };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(0, loop.wait(&limit));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(990)) << "to the end of its time";
}

TEST(signals, do_not_end_the_sleep_of_an_empty_selector)
{
    selector loop(2);
    const interrupter interrupting;
    const timeval limit = { 0, 200000 };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(0, loop.wait(&limit));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(190));
}

// ---- SIGPIPE ---------------------------------------------------------------------------

/// A socket to whom nobody listens any more, and which knows it.
struct broken_socket : socket_pair {
    broken_socket()
    {
        here.send("unread", 6);
        there.select(1, nullptr);
        there.close();
        here.select(1, nullptr);
    }
};

// A program that does nothing about SIGPIPE would die of one.
TEST(SIGPIPE_DeathTest, is_raised_by_no_operation)
{
    EXPECT_EXIT(
        {
            std::signal(SIGPIPE, SIG_DFL);
            broken_socket s;
            broken_socket to_shut_down;
            to_shut_down.here.shutdown(1);
            bool has_failed = true;
            for (int i = 0; i < 3; ++i) {
                for (Socket* broken : { &s.here, &to_shut_down.here }) {
                    if (i == 0)
                        broken->receive(nullptr, 0); // takes the reset
                    has_failed = has_failed && broken->send("x", 1) == err::send && broken->send_n("x", 1) == err::send
                        && broken->send_to(nullptr, "x", 1) == -1;
                }
            }
            std::exit(has_failed ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            std::signal(SIGPIPE, SIG_DFL);
            broken_socket s;
            for (int i = 0; i < 3; ++i)
                __real_send(static_cast<int>(s.here.get_socket()), "x", 1, 0);
            std::exit(0);
        },
        testing::KilledBySignal(SIGPIPE), "") << "the same without the library's care";
}

} // namespace
