// The readiness lists wait in the system's own list or in a table, and nobody can tell which: the
// same script of events through both, and each thing that a system's list would do differently.
#include "../net_fixture.h"
#include "platform.h"
#include "ready_list.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <csignal>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

// While it is set, the system gives no list of its own.
bool no_system_lists = false;
int table_waits = 0;

} // namespace

extern "C" {

sys_ready_list* __real_sys_ready_open(unsigned capacity, unsigned waker);
sys_ready_list* __wrap_sys_ready_open(unsigned capacity, unsigned waker)
{
    return no_system_lists ? nullptr : __real_sys_ready_open(capacity, waker);
}

int __real_sys_poll(sys_poll_record* records, unsigned count, const timeval* limit, unsigned waker);
int __wrap_sys_poll(sys_poll_record* records, unsigned count, const timeval* limit, unsigned waker)
{
    ++table_waits;
    return __real_sys_poll(records, count, limit, waker);
}

}

namespace {

const timeval at_once = { 0, 0 };
const timeval long_time = { 30, 0 };

int fd_of(const Socket& s) { return static_cast<int>(s.get_socket()); }

/// Whether this system keeps lists at all.
bool has_system_lists()
{
    sys_ready_list* const list = __real_sys_ready_open(1, sys_no_socket);
    sys_ready_close(list);
    return list != nullptr;
}

/// One list and its waits as text: "INDEX:BITS ..." or a number.
class tested_list {
public:
    enum kind { as_it_is, in_table };

    explicit tested_list(unsigned capacity, kind k = as_it_is)
        : kind_(k), list_(ep_create(capacity)), results_(capacity + 1)
    {
        EXPECT_GE(list_, 0);
    }
    ~tested_list() { ep_close(list_); }

    int control(int operation, int fd, unsigned events, int index)
    {
        return ep_ctl(list_, operation, fd, { events, index, this });
    }
    int add(const Socket& s, unsigned events, int index) { return control(EP_ADD, fd_of(s), events, index); }
    int wake() { return ep_wake(list_); }

    std::string wait(const timeval* limit) { return wait(limit, static_cast<unsigned>(results_.size()) - 1); }
    std::string wait(const timeval* limit, unsigned most)
    {
        no_system_lists = kind_ == in_table;
        const int waits = table_waits;
        const int n = ep_wait(list_, results_.data(), most, limit);
        was_in_table_ = table_waits != waits;
        no_system_lists = false;
        if (n <= 0)
            return std::to_string(n);
        std::string text;
        for (int i = 0; i < n; ++i) {
            const ep_record& r = results_[static_cast<unsigned>(i)];
            EXPECT_EQ(this, r.object);
            text += std::to_string(r.index) + ":" + std::to_string(r.events) + " ";
        }
        return text;
    }
    bool was_in_table() const { return was_in_table_; }

private:
    kind kind_;
    int list_;
    std::vector<ep_record> results_;
    bool was_in_table_ = false;
};

/// An unconnected socket that is always writable.
struct datagram_socket : Socket {
    datagram_socket() { EXPECT_EQ(0, create(2, 2, 0)); }
};

double seconds_of(const std::function<void()>& run)
{
    const auto begin = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

} // namespace

TEST(ready_list, waits_in_the_list_of_the_system_where_there_is_one)
{
    socket_pair p;
    tested_list list(4);
    EXPECT_EQ("-1", list.wait(nullptr)) << "nothing to wait for";
    list.add(p.here, EP_IN, 7);
    EXPECT_EQ("0", list.wait(&at_once));
    EXPECT_EQ(!has_system_lists(), list.was_in_table());
    p.make_readable();
    EXPECT_EQ("7:16 ", list.wait(nullptr));
    EXPECT_EQ(!has_system_lists(), list.was_in_table());
    list.control(EP_MODIFY, fd_of(p.here), 0, 7);
    EXPECT_EQ("-1", list.wait(nullptr)) << "nothing is wanted";
    list.control(EP_MODIFY, fd_of(p.here), EP_IN | EP_OUT, 8);
    EXPECT_EQ("8:17 ", list.wait(nullptr));
    EXPECT_EQ(!has_system_lists(), list.was_in_table());
}

TEST(ready_list, gives_results_in_the_order_of_its_entries)
{
    tested_list list(200);
    std::vector<datagram_socket> sockets(200);
    std::string expected;
    for (int i = 199; i >= 0; --i) {
        list.add(sockets[static_cast<unsigned>(i)], EP_OUT, i);
        expected += std::to_string(i) + ":1 ";
    }
    EXPECT_EQ(expected, list.wait(nullptr));
    EXPECT_EQ("199:1 198:1 197:1 ", list.wait(nullptr, 3)) << "cut to the most that are asked for";
    EXPECT_EQ(expected, list.wait(nullptr)) << "and nothing of that stays";
    // The last entry takes the place of a deleted one.
    list.control(EP_DELETE, fd_of(sockets[199]), 0, -1);
    EXPECT_EQ("0:1 198:1 ", list.wait(nullptr, 2));
}

TEST(ready_list, knows_only_the_descriptors_it_was_given)
{
    datagram_socket s;
    datagram_socket other;
    tested_list list(1);
    EXPECT_EQ(-1, list.control(EP_ADD, -1, EP_OUT, 0));
    EXPECT_EQ(-1, list.control(EP_DELETE, -1, EP_OUT, 0));
    EXPECT_EQ(-1, list.control(EP_MODIFY, fd_of(s), EP_OUT, 0));
    EXPECT_EQ(0, list.add(s, EP_OUT, 0));
    EXPECT_EQ(-1, list.add(other, EP_OUT, 1)) << "full";
    EXPECT_EQ(-1, list.control(4, fd_of(s), EP_OUT, 0));
    EXPECT_EQ("0:1 ", list.wait(nullptr));
    EXPECT_EQ(0, list.control(EP_DELETE, fd_of(s), 0, -1));
    EXPECT_EQ(-1, list.control(EP_DELETE, fd_of(s), 0, -1));
    EXPECT_EQ(-1, ep_ctl(9, EP_ADD, fd_of(s), {}));
    EXPECT_EQ(-1, ep_wait(-1, nullptr, 0, nullptr));
}

// Every entry of a descriptor gets what the descriptor is ready for, whoever asked.
TEST(ready_list, serves_several_entries_of_one_descriptor)
{
    datagram_socket s;
    datagram_socket other;
    tested_list list(4);
    list.add(s, EP_IN, 0);
    list.add(other, EP_OUT, 1);
    EXPECT_EQ("1:1 ", list.wait(nullptr));
    list.add(s, EP_OUT, 2);
    EXPECT_EQ("0:1 1:1 2:1 ", list.wait(nullptr));
    EXPECT_TRUE(list.was_in_table());
    EXPECT_EQ(0, list.control(EP_DELETE, fd_of(s), 0, -1)) << "the first of them";
    EXPECT_EQ("2:1 1:1 ", list.wait(nullptr));
    EXPECT_EQ(!has_system_lists(), list.was_in_table()) << "and all is as before";
    EXPECT_EQ(0, list.control(EP_MODIFY, fd_of(s), EP_OUT, 3));
    EXPECT_EQ("3:1 1:1 ", list.wait(nullptr));
}

TEST(ready_list, watches_1024_descriptors_for_one_event)
{
    std::vector<datagram_socket> sockets(1026);
    tested_list list(1026);
    for (unsigned i = 0; i < 1024; ++i)
        list.add(sockets[i], EP_OUT, static_cast<int>(i));
    const auto results = [&] {
        const std::string text = list.wait(nullptr);
        return std::count(text.begin(), text.end(), ' ');
    };
    EXPECT_EQ(1024, results());
    EXPECT_EQ(!has_system_lists(), list.was_in_table());
    list.add(sockets[1024], EP_OUT, 1024);
    list.add(sockets[1025], EP_IN | EP_OUT, 1025);
    EXPECT_EQ(1024, results()) << "the last ones are left out";
    list.control(EP_DELETE, fd_of(sockets[1025]), 0, -1);
    list.control(EP_DELETE, fd_of(sockets[0]), 0, -1);
    EXPECT_EQ("1024:1 1:1 ", list.wait(nullptr, 2));
    EXPECT_EQ(1024, results());
    EXPECT_EQ(!has_system_lists(), list.was_in_table());
}

TEST(ready_list, fails_as_long_as_a_closed_descriptor_stands_in_it)
{
    socket_pair p;
    socket_pair q;
    tested_list list(4);
    list.add(p.here, EP_IN, 0);
    list.add(q.here, EP_IN, 1);
    EXPECT_EQ("0", list.wait(&at_once));
    q.make_readable();
    const int fd = fd_of(p.here);
    p.here.close();
    EXPECT_EQ("-1", list.wait(nullptr));
    EXPECT_EQ("-1", list.wait(&at_once));
    EXPECT_EQ(0, list.control(EP_DELETE, fd, 0, -1));
    EXPECT_EQ("1:16 ", list.wait(nullptr));
    EXPECT_EQ(!has_system_lists(), list.was_in_table());
}

TEST(ready_list, does_not_mind_a_closed_descriptor_that_wants_nothing)
{
    socket_pair p;
    datagram_socket s;
    tested_list list(4);
    list.add(p.here, 0, 0);
    list.add(s, EP_OUT, 1);
    EXPECT_EQ("1:1 ", list.wait(nullptr));
    p.here.close();
    EXPECT_EQ("1:1 ", list.wait(nullptr));
}

TEST(ready_list, watches_whatever_its_descriptors_are_now)
{
    datagram_socket first;
    datagram_socket other;
    tested_list list(4);
    list.add(first, EP_IN | EP_OUT, 0);
    list.add(other, EP_IN, 1);
    EXPECT_EQ("0:1 ", list.wait(nullptr));
    const int fd = fd_of(first);
    first.close();
    datagram_socket next;
    if (fd_of(next) != fd)
        GTEST_SKIP() << "the number was not used again";
    SockAddr own;
    next.bind(SockAddr("127.0.0.1", 0));
    next.getself(own);
    next.send_to(&own, "x", 1);
    EXPECT_EQ(0, next.select(1, &long_time));
    EXPECT_EQ("0:17 ", list.wait(nullptr));
    EXPECT_EQ("0:17 ", list.wait(nullptr));
    EXPECT_EQ(!has_system_lists(), list.was_in_table()) << "back in the system's list";
    next.close();
    EXPECT_EQ("-1", list.wait(nullptr));
}

TEST(ready_list, is_not_disturbed_by_sockets_that_it_does_not_watch)
{
    datagram_socket s;
    tested_list list(4);
    list.add(s, EP_OUT, 0);
    for (int i = 0; i < 10; ++i) {
        socket_pair p;
        list.add(p.here, EP_IN, 1);
        EXPECT_EQ("0:1 ", list.wait(nullptr));
        list.control(EP_DELETE, fd_of(p.here), 0, -1);
    }
    EXPECT_EQ(!has_system_lists(), list.was_in_table());
}

TEST(ready_list, passes_over_a_hang_up_that_nobody_asked_for)
{
    socket_pair p;
    socket_pair q;
    tested_list list(4);
    list.add(p.here, EP_ERR, 0);
    list.add(q.here, EP_IN, 1);
    p.there.close();
    EXPECT_EQ(0, p.here.select(1, &long_time));
    p.here.shutdown(1);
    const timeval limit = { 0, 200000 };
    const double waited = seconds_of([&] { EXPECT_EQ("0", list.wait(&limit)); });
    EXPECT_GE(waited, 0.19) << "the whole time";
    q.make_readable();
    EXPECT_EQ("1:16 ", list.wait(nullptr));
    list.control(EP_MODIFY, fd_of(p.here), EP_IN, 0);
    EXPECT_EQ("0:16 1:16 ", list.wait(nullptr));
}

TEST(ready_list, is_woken)
{
    datagram_socket quiet;
    tested_list list(4);
    list.add(quiet, EP_IN, 0);
    list.wake();
    EXPECT_EQ("0", list.wait(nullptr));
    list.wake();
    list.add(quiet, EP_OUT, 1);
    EXPECT_EQ("0:1 1:1 ", list.wait(nullptr)) << "what is ready comes first";
    list.control(EP_DELETE, fd_of(quiet), 0, -1);
    list.control(EP_MODIFY, fd_of(quiet), EP_IN, 0);
    EXPECT_EQ("0", list.wait(&at_once)) << "that wake was used up";
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        list.wake();
    });
    EXPECT_EQ("0", list.wait(nullptr)) << "also in a wait that has verified its descriptors";
    other.join();
}

TEST(ready_list, keeps_its_time_limit)
{
    datagram_socket quiet;
    tested_list list(4);
    list.add(quiet, EP_IN, 0);
    for (const timeval limit : { timeval { 0, 300 }, timeval { 0, 30000 }, timeval { 0, 130000 } }) {
        const double waited = seconds_of([&] { EXPECT_EQ("0", list.wait(&limit)); });
        EXPECT_GE(waited, static_cast<double>(limit.tv_usec) / 1e6);
        EXPECT_LT(waited, 20);
    }
}

// ---- the system's list against the table ------------------------------------------

namespace {

/// A script of random events, the same for two lists.
class script {
public:
    explicit script(unsigned seed) : random_(seed) {}

    void step()
    {
        const unsigned i = number(pair_count);
        const unsigned bits = EP_IN * number(2) | EP_OUT * number(2) | EP_ERR * number(2);
        socket_pair& p = *pairs_[i];
        switch (number(12)) {
        case 0:
        case 1: add(i, bits); break;
        case 2:
        case 3: control(EP_MODIFY, fds_[i], bits); break;
        case 4:
        case 5: control(EP_DELETE, fds_[i], 0); break;
        case 6:
            if (p.here.is_valid() && p.there.is_valid() && p.there.send("x", 1) == 1)
                p.here.select(1, &long_time);
            break;
        case 7:
            if (p.here.is_valid() && p.here.select(1, &at_once) == 0) {
                char bytes[16];
                p.here.receive(bytes, sizeof bytes);
            }
            break;
        case 8: half_close(p); break;
        case 9: p.here.close(); break; // it may stand in the lists
        case 10: renew(i); break;      // perhaps with the same number
        case 11: p.here.shutdown(1); break;
        }
        if (number(2) == 0)
            forget_dead();
        const std::string expected = table_.wait(&at_once);
        ASSERT_EQ(expected, system_.wait(&at_once));
        system_waits += !system_.was_in_table();
        waits += 1;
        ready_waits += expected.size() > 2;
    }

    int waits = 0;
    int system_waits = 0;
    int ready_waits = 0;

private:
    static constexpr unsigned pair_count = 12;

    unsigned number(unsigned below) { return static_cast<unsigned>(random_() % below); }

    void control(int operation, int fd, unsigned bits)
    {
        ++serial_;
        ASSERT_EQ(table_.control(operation, fd, bits, serial_), system_.control(operation, fd, bits, serial_));
    }

    // Mostly but not always once.
    void add(unsigned i, unsigned bits)
    {
        if (number(16) != 0)
            forget(i);
        control(EP_ADD, fds_[i], bits);
    }

    void forget(unsigned i)
    {
        while (table_.control(EP_DELETE, fds_[i], 0, -1) == 0)
            ASSERT_EQ(0, system_.control(EP_DELETE, fds_[i], 0, -1));
    }

    void half_close(socket_pair& p)
    {
        p.there.shutdown(1);
        if (p.here.is_valid())
            p.here.select(1, &long_time);
    }

    void renew(unsigned i)
    {
        pairs_[i].reset();
        pairs_[i].reset(new socket_pair);
        fds_[i] = fd_of(pairs_[i]->here);
    }

    // Dead descriptors make every wait fail: they are not to stay for long.
    void forget_dead()
    {
        for (unsigned i = 0; i < pair_count; ++i)
            if (!pairs_[i]->here.is_valid())
                forget(i);
    }

    std::mt19937 random_;
    std::vector<std::unique_ptr<socket_pair>> pairs_ = make_pairs();
    std::vector<int> fds_ = descriptors_of(pairs_);
    tested_list system_ { 10 };
    tested_list table_ { 10, tested_list::in_table };
    int serial_ = 0;

    static std::vector<std::unique_ptr<socket_pair>> make_pairs()
    {
        std::vector<std::unique_ptr<socket_pair>> pairs;
        for (unsigned i = 0; i < pair_count; ++i)
            pairs.emplace_back(new socket_pair);
        return pairs;
    }
    static std::vector<int> descriptors_of(const std::vector<std::unique_ptr<socket_pair>>& pairs)
    {
        std::vector<int> descriptors;
        for (const auto& pair : pairs)
            descriptors.push_back(fd_of(pair->here));
        return descriptors;
    }
};

} // namespace

TEST(ready_list, cannot_be_told_from_the_table)
{
    for (unsigned seed = 1; seed <= 4; ++seed) {
        script s(seed);
        for (int i = 0; i < 1500 && !HasFatalFailure(); ++i) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << i);
            s.step();
        }
        EXPECT_GT(s.ready_waits, 100);
        EXPECT_GT(s.system_waits, has_system_lists() ? 100 : -1);
    }
}

// ---- descriptors that change behind the library's back -----------------------------

#ifndef _WIN32

TEST(ready_list, finds_out_about_a_descriptor_closed_elsewhere)
{
    socket_pair p;
    datagram_socket ready;
    tested_list list(4);
    list.add(p.here, EP_IN, 0);
    EXPECT_EQ("0", list.wait(&at_once));
    close(p.here.detach());
    EXPECT_EQ("-1", list.wait(nullptr)) << "before it waits for ever";
    EXPECT_EQ("-1", list.wait(nullptr));

    socket_pair q;
    tested_list busy(4);
    busy.add(q.here, EP_IN, 0);
    busy.add(ready, EP_OUT, 1);
    EXPECT_EQ("1:1 ", busy.wait(nullptr));
    close(q.here.detach());
    std::string last;
    for (int i = 0; i < 3000 && last != "-1"; ++i) {
        last = busy.wait(nullptr);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ("-1", last) << "also when others are ready";
}

TEST(ready_list, does_not_report_what_a_closed_descriptor_has_left_behind)
{
    socket_pair p;
    datagram_socket quiet;
    tested_list list(4);
    list.add(p.here, EP_IN, 0);
    list.add(quiet, EP_IN, 1);
    EXPECT_EQ("0", list.wait(&at_once));
    Socket copy(static_cast<unsigned>(dup(fd_of(p.here)))); // keeps the connection open
    const int fd = fd_of(p.here);
    p.here.close();
    EXPECT_EQ(0, list.control(EP_DELETE, fd, 0, -1));
    datagram_socket next; // never becomes readable
    ASSERT_EQ(fd, fd_of(next));
    list.add(next, EP_IN, 2);
    p.there.send("x", 1);
    EXPECT_EQ(0, copy.select(1, &long_time));
    EXPECT_EQ("0", list.wait(&at_once));
    const timeval limit = { 0, 100000 };
    EXPECT_EQ("0", list.wait(&limit));
}

TEST(ready_list, is_its_own_in_a_forked_child)
{
    socket_pair p;
    socket_pair q;
    tested_list list(4);
    list.add(p.here, EP_IN, 0);
    EXPECT_EQ("0", list.wait(&at_once));
    const pid_t child = fork();
    if (child == 0) {
        list.control(EP_DELETE, fd_of(p.here), 0, -1);
        list.add(q.here, EP_OUT, 1);
        _exit(list.wait(nullptr) == "1:1 " ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    p.make_readable();
    EXPECT_EQ("0:16 ", list.wait(nullptr)) << "the parent's is what it was";
    EXPECT_FALSE(list.was_in_table());
}

// Such a child shares the kernel's list without knowing it.
TEST(ready_list, survives_a_child_that_is_not_made_by_fork)
{
    datagram_socket quiet;
    datagram_socket foreign;
    tested_list list(4);
    list.add(quiet, EP_IN, 0);
    EXPECT_EQ("0", list.wait(&at_once));
    const pid_t child = static_cast<pid_t>(syscall(SYS_fork));
    if (child == 0) {
        list.add(foreign, EP_OUT, 1);
        _exit(0);
    }
    EXPECT_EQ(child, waitpid(child, nullptr, 0));
    EXPECT_EQ("0", list.wait(&at_once));
    EXPECT_TRUE(list.was_in_table());
    EXPECT_EQ("0", list.wait(&at_once));
    EXPECT_FALSE(list.was_in_table()) << "a list of its own again";
}

// A file is always ready, and the kernel takes none into its lists.
TEST(ready_list, serves_what_the_system_does_not_take)
{
    datagram_socket quiet;
    const Socket file(static_cast<unsigned>(open("/proc/self/exe", O_RDONLY | O_CLOEXEC)));
    tested_list list(4);
    list.add(quiet, EP_IN, 0);
    EXPECT_EQ("0", list.wait(&at_once));
    list.add(file, EP_IN, 1);
    EXPECT_EQ("1:16 ", list.wait(nullptr));
    EXPECT_EQ("1:16 ", list.wait(nullptr));
    list.control(EP_DELETE, fd_of(file), 0, -1);
    EXPECT_EQ("0", list.wait(&at_once));
    EXPECT_FALSE(list.was_in_table());
}

TEST(ready_list, waits_without_a_list_when_descriptors_have_run_out)
{
    datagram_socket s;
    tested_list list(4);
    list.add(s, EP_OUT, 0);
    rlimit before;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    const rlimit none_left = { 3, before.rlim_max };
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none_left));
    EXPECT_EQ("0:1 ", list.wait(nullptr));
    EXPECT_TRUE(list.was_in_table());
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    list.control(EP_MODIFY, fd_of(s), EP_OUT, 1);
    EXPECT_EQ("1:1 ", list.wait(nullptr));
    EXPECT_FALSE(list.was_in_table()) << "tried again after a change";
}

TEST(ready_list, goes_on_after_signals)
{
    datagram_socket quiet;
    tested_list list(4);
    list.add(quiet, EP_IN, 0);
    struct sigaction ignored_but_noticed = {};
    ignored_but_noticed.sa_handler = [](int) {};
    struct sigaction before;
    sigaction(SIGALRM, &ignored_but_noticed, &before);
    const itimerval every_20_ms = { { 0, 20000 }, { 0, 20000 } };
    setitimer(ITIMER_REAL, &every_20_ms, nullptr);
    const timeval limit = { 0, 300000 };
    const double waited = seconds_of([&] { EXPECT_EQ("0", list.wait(&limit)); });
    setitimer(ITIMER_REAL, nullptr, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_GE(waited, 0.3);
    EXPECT_LT(waited, 20);
}

#endif
