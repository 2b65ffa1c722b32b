// Sockets when the system fails or does less than it was asked for: each call through the door
// answers by a script, and the calls are written down.
#include "platform.h"

#include <stdkro/poller.h>
#include <stdkro/socket.h>
#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Handles that no system has: only the script knows them.
constexpr unsigned handle = 1000001;
constexpr unsigned other_handle = 1000002;

// While `is_scripted`, what the next calls return, and the calls so far.
bool is_scripted = false;
std::deque<int> answers;
std::string calls;

void write_down(const std::string& call) { calls += calls.empty() ? call : " " + call; }

int answer()
{
    if (answers.empty()) {
        ADD_FAILURE() << "one call more than expected: " << calls;
        return -1;
    }
    const int next = answers.front();
    answers.pop_front();
    return next;
}

int answer_to(const std::string& call)
{
    write_down(call);
    return answer();
}

struct scripted_door {
    explicit scripted_door(std::deque<int> a = {})
    {
        answers = std::move(a);
        calls.clear();
        is_scripted = true;
    }
    ~scripted_door()
    {
        EXPECT_TRUE(answers.empty()) << answers.size() << " calls fewer than expected: " << calls;
        is_scripted = false;
    }
};

std::string text_of(const timeval* t)
{
    return t ? std::to_string(t->tv_sec) + "." + std::to_string(t->tv_usec) : "unlimited";
}

std::string text_of(const sockaddr_in* a) { return a ? SockAddr(*a).get_addr().c_str() : "null"; }

void fill(sockaddr_in* address)
{
    if (address)
        *address = SockAddr("1.2.3.4", 5).cast_sockaddr_in();
}

} // namespace

extern "C" {

unsigned __real_sys_socket_open(int family, int type, int protocol);
unsigned __wrap_sys_socket_open(int family, int type, int protocol)
{
    if (!is_scripted)
        return __real_sys_socket_open(family, type, protocol);
    const std::string values = std::to_string(family) + "," + std::to_string(type) + "," + std::to_string(protocol);
    return static_cast<unsigned>(answer_to("open(" + values + ")"));
}

void __real_sys_socket_close(unsigned h);
void __wrap_sys_socket_close(unsigned h)
{
    if (!is_scripted)
        __real_sys_socket_close(h);
    else if (h != sys_no_socket)
        write_down("close(" + std::to_string(h % 10) + ")");
}

int __wrap_sys_socket_bind(unsigned, const sockaddr_in* a) { return answer_to("bind(" + text_of(a) + ")"); }
int __wrap_sys_socket_listen(unsigned, int backlog) { return answer_to("listen(" + std::to_string(backlog) + ")"); }
int __wrap_sys_socket_connect(unsigned, const sockaddr_in* a) { return answer_to("connect(" + text_of(a) + ")"); }

unsigned __wrap_sys_socket_accept(unsigned, sockaddr_in* peer)
{
    fill(peer);
    return static_cast<unsigned>(answer_to("accept"));
}

int __wrap_sys_socket_send(unsigned, const void*, unsigned n) { return answer_to("send(" + std::to_string(n) + ")"); }

int __wrap_sys_socket_receive(unsigned, void* bytes, unsigned n)
{
    const int r = answer_to("receive(" + std::to_string(n) + ")");
    if (r > 0)
        std::memset(bytes, 'a' + static_cast<int>(n), static_cast<std::size_t>(r));
    return r;
}

int __wrap_sys_socket_send_to(unsigned, const void*, unsigned n, const sockaddr_in* to)
{
    return answer_to("send_to(" + std::to_string(n) + "," + text_of(to) + ")");
}

int __wrap_sys_socket_receive_from(unsigned, void*, unsigned n, sockaddr_in* from)
{
    fill(from);
    return answer_to("receive_from(" + std::to_string(n) + (from ? ")" : ",null)"));
}

int __wrap_sys_socket_shutdown(unsigned, int how) { return answer_to("shutdown(" + std::to_string(how) + ")"); }

int __wrap_sys_socket_self(unsigned, sockaddr_in* address)
{
    fill(address);
    return answer_to("self");
}

int __wrap_sys_socket_peer(unsigned, sockaddr_in* address)
{
    fill(address);
    return answer_to("peer");
}

int __wrap_sys_socket_control(unsigned, unsigned command, unsigned long* argument)
{
    std::ostringstream call;
    call << "control(" << std::hex << command << "," << *argument << ")";
    return answer_to(call.str());
}

int __wrap_sys_socket_set_nodelay(unsigned, bool on) { return answer_to(on ? "nodelay(on)" : "nodelay(off)"); }

int __wrap_sys_select(sock_fd_set* readable, sock_fd_set* writable, sock_fd_set* exceptional, const timeval* limit)
{
    std::string sets;
    for (const auto& s : { std::make_pair("r", readable), std::make_pair("w", writable), std::make_pair("e", exceptional) })
        if (s.second)
            sets += s.first;
    return answer_to("select(" + sets + "," + text_of(limit) + ")");
}

int __real_sys_poll(sys_poll_record* records, unsigned count, const timeval* limit, unsigned waker);
int __wrap_sys_poll(sys_poll_record* records, unsigned count, const timeval* limit, unsigned waker)
{
    if (!is_scripted)
        return __real_sys_poll(records, count, limit, waker);
    const int r = answer_to("poll(" + std::to_string(count) + "," + text_of(limit) + ")");
    for (unsigned i = 0; r > 0 && i < count; ++i)
        records[i].ready = records[i].wanted;
    return r;
}

// The system keeps no lists of its own: all loops wait by sys_poll.
void* __wrap_sys_ready_open(unsigned, unsigned) { return nullptr; }

unsigned __real_sys_waker_open();
unsigned __wrap_sys_waker_open()
{
    return is_scripted ? static_cast<unsigned>(answer_to("waker")) : __real_sys_waker_open();
}

void __wrap_sys_waker_sleep(unsigned, const timeval* limit) { write_down("sleep(" + text_of(limit) + ")"); }

int __wrap_sys_host_name(char* name, unsigned n)
{
    std::strcpy(name, "myself");
    return answer_to("host_name(" + std::to_string(n) + ")");
}

int __wrap_sys_host_address(const char* name, unsigned* address)
{
    std::memcpy(address, "\x0A\x01\x02\x03", 4);
    return answer_to("host_address(" + std::string(name) + ")");
}

} // extern "C"

namespace {

// ---- Socket ------------------------------------------------------------------------

char room[16];
const SockAddr place("9.8.7.6", 54);
SockAddr found;
const timeval some_time = { 3, 7 };
unsigned long control_value = 77;

struct row {
    const char* what;
    std::function<int(Socket&)> operation;
    std::deque<int> answers;
    const char* calls;
    int result;
};

// Runs each row on a Socket with a handle, which it keeps.
void check(const std::vector<row>& rows)
{
    for (const row& r : rows) {
        Socket s(handle);
        {
            const scripted_door door(r.answers);
            EXPECT_EQ(r.result, r.operation(s)) << r.what;
            EXPECT_EQ(r.calls, calls) << r.what;
        }
        EXPECT_EQ(handle, s.detach()) << r.what << ": the handle survives";
    }
}

TEST(Socket, turns_each_failure_into_its_code_and_keeps_the_handle)
{
    const int fails = -1;
    check({
        { "bind", [](Socket& s) { return s.bind(place); }, { 0 }, "bind(9.8.7.6:54)", 0 },
        { "bind", [](Socket& s) { return s.bind(place); }, { fails }, "bind(9.8.7.6:54)", err::network },
        { "listen", [](Socket& s) { return s.listen(7); }, { 0 }, "listen(7)", 0 },
        { "listen", [](Socket& s) { return s.listen(7); }, { fails }, "listen(7)", err::network },
        { "connect", [](Socket& s) { return s.connect(place); }, { 0 }, "connect(9.8.7.6:54)", 0 },
        { "connect", [](Socket& s) { return s.connect(place); }, { fails }, "connect(9.8.7.6:54)", err::connection },
        { "shutdown", [](Socket& s) { return s.shutdown(1); }, { 0 }, "shutdown(1)", 0 },
        { "shutdown", [](Socket& s) { return s.shutdown(1); }, { fails }, "shutdown(1)", err::network },
        { "getself", [](Socket& s) { return s.getself(found); }, { fails }, "self", err::network },
        { "getpeer", [](Socket& s) { return s.getpeer(found); }, { fails }, "peer", err::network },
        { "sockctl", [](Socket& s) { return s.sockctl(5, &control_value); }, { 0 }, "control(5,4d)", 0 },
        { "sockctl", [](Socket& s) { return s.sockctl(5, &control_value); }, { fails }, "control(5,4d)", err::network },
        { "set_async", [](Socket& s) { return s.set_async(true); }, { 0 }, "control(8004667e,1)", 0 },
        { "set_async", [](Socket& s) { return s.set_async(false); }, { 0 }, "control(8004667e,0)", 0 },
        { "set_async", [](Socket& s) { return s.set_async(true); }, { fails }, "control(8004667e,1)", err::network },
        { "set_nodelay", [](Socket& s) { return s.set_nodelay(true); }, { 0 }, "nodelay(on)", 0 },
        { "set_nodelay", [](Socket& s) { return s.set_nodelay(false); }, { fails }, "nodelay(off)", err::network },
    });
}

TEST(Socket, sends_and_receives_as_much_as_the_system_does)
{
    check({
        { "send all", [](Socket& s) { return s.send(room, 5); }, { 5 }, "send(5)", 5 },
        { "send less", [](Socket& s) { return s.send(room, 5); }, { 3 }, "send(5)", 3 },
        { "send nothing", [](Socket& s) { return s.send(room, 5); }, { 0 }, "send(5)", 0 },
        { "send fails", [](Socket& s) { return s.send(room, 5); }, { -1 }, "send(5)", err::send },
        { "receive all", [](Socket& s) { return s.receive(room, 5); }, { 5 }, "receive(5)", 5 },
        { "receive less", [](Socket& s) { return s.receive(room, 5); }, { 1 }, "receive(5)", 1 },
        { "receive the end", [](Socket& s) { return s.receive(room, 5); }, { 0 }, "receive(5)", err::shut_up },
        { "receive fails", [](Socket& s) { return s.receive(room, 5); }, { -1 }, "receive(5)", err::receive },
        // The platform's own results, whatever they are.
        { "send_to", [](Socket& s) { return s.send_to(&place, room, 5); }, { 5 }, "send_to(5,9.8.7.6:54)", 5 },
        { "send_to nobody", [](Socket& s) { return s.send_to(nullptr, room, 5); }, { 0 }, "send_to(5,null)", 0 },
        { "send_to fails", [](Socket& s) { return s.send_to(nullptr, room, 5); }, { -1 }, "send_to(5,null)", -1 },
        { "recv_from", [](Socket& s) { return s.recv_from(nullptr, room, 5); }, { 2 }, "receive_from(5,null)", 2 },
        { "recv_from", [](Socket& s) { return s.recv_from(nullptr, room, 5); }, { 0 }, "receive_from(5,null)", 0 },
        { "recv_from fails", [](Socket& s) { return s.recv_from(nullptr, room, 5); }, { -1 }, "receive_from(5,null)", -1 },
    });
    Socket s(handle);
    const scripted_door door({ 4 });
    SockAddr from;
    EXPECT_EQ(4, s.recv_from(&from, room, 4));
    EXPECT_STREQ("1.2.3.4:5", from.get_addr().c_str());
    s.detach();
}

TEST(Socket, goes_on_receiving_until_all_has_come)
{
    const auto five = [](Socket& s) { return s.recv_n(room, 5); };
    check({
        { "at once", five, { 5 }, "receive(5)", 5 },
        { "in pieces", five, { 3, 1, 1 }, "receive(5) receive(2) receive(1)", 5 },
        { "a failure", five, { -1 }, "receive(5)", err::receive },
        { "a late failure", five, { 3, -1 }, "receive(5) receive(2)", err::receive },
        { "the end", five, { 0 }, "receive(5)", err::shut_up },
        { "an early end", five, { 4, 0 }, "receive(5) receive(1)", err::shut_up },
        { "nothing", [](Socket& s) { return s.recv_n(room, 0); }, {}, "", 0 },
    });
    Socket s(handle);
    const scripted_door door({ 3, 1, 1 });
    s.recv_n(room, 5);
    EXPECT_EQ("fffcb", std::string(room, 5)) << "each piece behind the one before";
    s.detach();
}

// One send only, after which all counts as sent.
TEST(Socket, counts_all_as_sent_after_one_send)
{
    const auto five = [](Socket& s) { return s.send_n(room, 5); };
    check({
        { "all", five, { 5 }, "send(5)", 5 },
        { "less", five, { 2 }, "send(5)", 5 },
        { "nothing", five, { 0 }, "send(5)", 5 },
        { "a failure", five, { -1 }, "send(5)", err::send },
        { "none to send", [](Socket& s) { return s.send_n(room, 0); }, {}, "", 0 },
    });
}

TEST(Socket, waits_as_its_events_say)
{
    check({
        { "read", [](Socket& s) { return s.select(1, nullptr); }, { 1 }, "select(r,unlimited)", 0 },
        { "accept", [](Socket& s) { return s.select(4, &some_time); }, { 1 }, "select(r,3.7)", 0 },
        { "write", [](Socket& s) { return s.select(2, &some_time); }, { 1 }, "select(w,3.7)", 0 },
        { "exception", [](Socket& s) { return s.select(8, &some_time); }, { 1 }, "select(e,3.7)", 0 },
        { "all", [](Socket& s) { return s.select(15, &some_time); }, { 3 }, "select(rwe,3.7)", 0 },
        { "time", [](Socket& s) { return s.select(1, &some_time); }, { 0 }, "select(r,3.7)", err::timeout },
        { "failure", [](Socket& s) { return s.select(1, &some_time); }, { -1 }, "select(r,3.7)", err::network },
    });
    sock_fd_set set = { 0, {} };
    static const struct {
        int answer;
        int result;
    } cases[] = { { 5, 5 }, { 0, err::timeout }, { -1, err::network } };
    for (const auto& c : cases) {
        const scripted_door door({ c.answer });
        EXPECT_EQ(c.result, Socket::select(nullptr, &set, &set, nullptr));
        EXPECT_EQ("select(we,unlimited)", calls);
    }
}

TEST(Socket, without_a_handle_asks_the_system_for_nothing)
{
    const scripted_door door;
    Socket s;
    EXPECT_EQ(err::shut_up, s.send(room, 1));
    EXPECT_EQ(err::shut_up, s.receive(room, 1));
    EXPECT_EQ(err::shut_up, s.send_to(&place, room, 1));
    EXPECT_EQ(err::shut_up, s.recv_from(&found, room, 1));
    EXPECT_EQ(err::shut_up, s.recv_n(room, 1));
    EXPECT_EQ(err::send, s.send_n(room, 1));
    EXPECT_EQ(0, s.shutdown(2));
    EXPECT_EQ(0, s.close());
    EXPECT_EQ("", calls);
}

TEST(Socket, closes_before_it_opens_another)
{
    Socket s(handle);
    {
        const scripted_door door({ static_cast<int>(other_handle) });
        EXPECT_EQ(0, s.create());
        EXPECT_EQ("close(1) open(2,1,0)", calls);
    }
    EXPECT_EQ(other_handle, s.get_socket());
    {
        const scripted_door door({ -1 });
        EXPECT_EQ(err::network, s.create(2, 2, 17)) << "no descriptors";
        EXPECT_EQ("close(2) open(2,2,17)", calls);
        EXPECT_FALSE(s.is_valid());
    }
    {
        const scripted_door door;
        s.attach(handle);
        s.attach(handle);
        EXPECT_EQ("", calls);
        s.attach(other_handle);
        EXPECT_EQ("close(1)", calls);
        EXPECT_EQ(0, s.close());
        EXPECT_EQ("close(1) close(2)", calls);
        { const Socket dying(handle); }
        EXPECT_EQ("close(1) close(2) close(1)", calls);
    }
}

TEST(Socket, gives_its_handle_up_when_a_server_cannot_be_made)
{
    static const struct {
        std::deque<int> answers;
        const char* calls;
        int result;
        unsigned handle;
    } cases[] = {
        { { static_cast<int>(handle), 0 }, "open(2,1,0) bind(9.8.7.6:54)", 0, handle },
        { { static_cast<int>(handle), -1 }, "open(2,1,0) bind(9.8.7.6:54) close(1)", err::network, Socket::no_handle },
        { { -1 }, "open(2,1,0)", err::network, Socket::no_handle },
    };
    for (const auto& c : cases) {
        const scripted_door door(c.answers);
        Socket s;
        EXPECT_EQ(c.result, s.create_server(place));
        EXPECT_EQ(c.calls, calls);
        EXPECT_EQ(c.handle, s.detach());
    }
}

TEST(Socket, keeps_the_given_socket_when_nothing_is_accepted)
{
    Socket server(handle);
    Socket connection(other_handle);
    SockAddr peer;
    {
        const scripted_door door({ -1, -1 });
        EXPECT_EQ(err::network, server.accept(connection, nullptr)) << "no descriptors, or nobody there any more";
        EXPECT_EQ(Socket::no_handle, server.accept(&peer));
        EXPECT_EQ("accept accept", calls);
    }
    EXPECT_EQ(other_handle, connection.get_socket());
    {
        const scripted_door door({ 1000003, 1000004 });
        EXPECT_EQ(0, server.accept(connection, &peer));
        EXPECT_EQ("accept close(2)", calls);
        EXPECT_EQ(1000004u, server.accept(nullptr));
    }
    EXPECT_STREQ("1.2.3.4:5", peer.get_addr().c_str());
    EXPECT_EQ(1000003u, connection.detach());
    server.detach();
}

TEST(Socket, prints_the_addresses_that_it_has)
{
    static const struct {
        std::deque<int> answers;
        const char* text;
    } cases[] = {
        { { 0, 0 }, "<s SOCKET=\"1000001\">\n<addr self=\"1.2.3.4:5\" peer=\"1.2.3.4:5\"/>\n</s>" },
        { { 0, -1 }, "<s SOCKET=\"1000001\">\n<addr self=\"1.2.3.4:5\"/>\n</s>" },
        { { -1, 0 }, "<s SOCKET=\"1000001\">\n<addr peer=\"1.2.3.4:5\"/>\n</s>" },
        { { -1, -1 }, "<s SOCKET=\"1000001\">\n<addr/>\n</s>" },
    };
    for (const auto& c : cases) {
        Socket s(handle);
        const scripted_door door(c.answers);
        xml_node node("s", XML_ELEMENT);
        s.print(node);
        EXPECT_EQ("self peer", calls);
        std::ostringstream text;
        node.write(text, false);
        EXPECT_EQ(c.text, text.str());
        s.detach();
    }
}

TEST(SockAddr, is_this_host_when_its_name_resolves)
{
    static const struct {
        std::deque<int> answers;
        const char* calls;
        int result;
        const char* address;
    } cases[] = {
        { { 0, 0 }, "host_name(255) host_address(myself)", 0, "10.1.2.3:80" },
        { { 0, -1 }, "host_name(255) host_address(myself)", err::network, "9.8.7.6:80" },
        { { -1 }, "host_name(255)", err::network, "9.8.7.6:80" },
    };
    for (const auto& c : cases) {
        for (const bool by_null : { false, true }) {
            const scripted_door door(c.answers);
            SockAddr a("9.8.7.6", 54);
            a.cast_sockaddr_in().sin_family = 7;
            EXPECT_EQ(c.result, by_null ? a.set_addr(nullptr, 80) : a.set_localhost(80));
            EXPECT_EQ(c.calls, calls);
            EXPECT_STREQ(c.address, a.get_addr().c_str());
            EXPECT_EQ(2, a.cast_sockaddr_in().sin_family);
        }
    }
    const scripted_door door({ 0, 0 });
    EXPECT_STREQ("10.1.2.3:0", SockAddr(static_cast<const char*>(nullptr)).get_addr().c_str());
}

// ---- the loops --------------------------------------------------------------

struct served : fdbase {
    int fd = static_cast<int>(handle);
    int get_events(int& events) override
    {
        events = EV_READ;
        return fd;
    }
    int get_fd() override { return fd; }
    int do_read() override
    {
        write_down("read");
        return 0;
    }
};

void note_before(void*) { write_down("before"); }
void note_after(void*) { write_down("after"); }

void set_callbacks(selector& loop)
{
    loop.set_before_poll_cb(note_before, nullptr);
    loop.set_after_poll_cb(note_after, nullptr);
}
void set_callbacks(epoller& loop)
{
    loop.set_before_poll_cb(note_before, nullptr);
    loop.set_after_poll_cb(note_after, nullptr);
}
void set_callbacks(poller& loop) { loop.setwaitcallback(note_after, nullptr); }

void set_no_callbacks(poller& loop) { loop.setwaitcallback(nullptr, nullptr); }
template <class loop_type> void set_no_callbacks(loop_type& loop)
{
    loop.set_before_poll_cb(nullptr, nullptr);
    loop.set_after_poll_cb(nullptr, nullptr);
}

template <class loop> struct failing_wait : testing::Test {
    std::string before() const { return std::is_same<loop, poller>::value ? "" : "before "; }
};
using loops = testing::Types<selector, poller, epoller>;
TYPED_TEST_SUITE(failing_wait, loops);

TYPED_TEST(failing_wait, returns_what_the_system_does_and_calls_nobody)
{
    static const struct {
        int answer;
        const char* calls;
    } cases[] = { { -1, "after" }, { 0, "after" }, { 1, "after read" } };
    for (const auto& c : cases) {
        TypeParam loop(2);
        served object;
        loop.add(object, EV_READ);
        set_callbacks(loop);
        {
            const scripted_door door({ c.answer });
            EXPECT_EQ(c.answer, loop.wait(nullptr));
            EXPECT_EQ(this->before() + "poll(1,unlimited) " + c.calls, calls);
        }
    }
}

// Without descriptors for it a loop works, and only cannot be woken.
TYPED_TEST(failing_wait, works_without_a_waker)
{
    TypeParam loop(0);
    {
        const scripted_door door({ -1 });
        EXPECT_EQ(0, loop.create(2));
        EXPECT_EQ("waker", calls);
    }
    EXPECT_LT(loop.wake(), 0);
    served object;
    EXPECT_EQ(0, loop.add(object, EV_READ));
    const scripted_door door({ 1 });
    EXPECT_EQ(1, loop.wait(nullptr));
    EXPECT_EQ("poll(1,unlimited) read", calls);
}

// More than 1,024 that want to read: the 1,025th is left out, silently. What it wants besides is
// watched.
TYPED_TEST(failing_wait, leaves_out_what_a_set_has_no_room_for)
{
    TypeParam loop(1100);
    std::vector<served> objects(1030);
    for (unsigned i = 0; i < 1025; ++i) {
        objects[i].fd += static_cast<int>(i);
        ASSERT_EQ(static_cast<int>(i), loop.add(objects[i], EV_READ));
    }
    {
        const scripted_door door({ 0 });
        loop.wait(nullptr);
        EXPECT_EQ("poll(1024,unlimited)", calls);
    }
    EXPECT_EQ(0, loop.set_events(1024, EV_READ | EV_WRITE));
    {
        const scripted_door door({ 0 });
        loop.wait(nullptr);
        EXPECT_EQ("poll(1025,unlimited)", calls);
    }
    EXPECT_EQ(0, loop.remove(0));
    {
        const scripted_door door({ 0 });
        loop.wait(nullptr);
        EXPECT_EQ("poll(1024,unlimited)", calls);
    }
}

TYPED_TEST(failing_wait, never_enters_a_negative_descriptor)
{
    TypeParam loop(4);
    served none;
    none.fd = -1;
    served some;
    EXPECT_EQ(0, loop.add(none, EV_READ));
    EXPECT_EQ(1, loop.add(some, EV_READ));
    loop.set_events(0, EV_READ | EV_WRITE);
    const scripted_door door({ 1 });
    EXPECT_EQ(1, loop.wait(nullptr));
    EXPECT_EQ("poll(1,unlimited) read", calls) << "and nobody is called for it";
}

TYPED_TEST(failing_wait, takes_a_null_callback_for_none)
{
    TypeParam loop(2);
    served object;
    loop.add(object, EV_READ);
    set_callbacks(loop);
    set_no_callbacks(loop);
    const scripted_door door({ 1 });
    EXPECT_EQ(1, loop.wait(nullptr));
    EXPECT_EQ("poll(1,unlimited) read", calls);
}

// The counter of a set counts also who found no room in it, and goes down only for members.
TEST(selector, counts_the_interest_of_who_is_not_watched)
{
    selector loop(1100);
    std::vector<served> objects(1025);
    for (unsigned i = 0; i < 1025; ++i) {
        objects[i].fd += static_cast<int>(i);
        loop.add(objects[i], EV_READ);
    }
    for (int i = 0; i < 1024; ++i)
        EXPECT_EQ(0, loop.remove(i));
    {
        const scripted_door door({ -1 });
        EXPECT_EQ(-1, loop.wait(nullptr));
        EXPECT_EQ("poll(0,unlimited)", calls) << "nobody is watched, and still it waits";
    }
    EXPECT_EQ(0, loop.remove(1024));
    {
        const scripted_door door({ -1 });
        EXPECT_EQ(-1, loop.wait(nullptr)) << "it was no member";
    }
    loop.refresh();
    const scripted_door door;
    EXPECT_EQ(0, loop.wait(nullptr));
    EXPECT_EQ("sleep(0.10000)", calls) << "refresh counts afresh";
}

TEST(selector, counts_interest_once_for_what_is_wanted_already)
{
    selector loop(2);
    served object;
    const int index = loop.add(object, EV_READ);
    for (const int events : { +EV_READ, EV_READ | EV_WRITE, +EV_WRITE, 0, +EV_READ, +EV_READ })
        EXPECT_EQ(0, loop.set_events(index, events));
    {
        const scripted_door door({ 0 });
        loop.wait(nullptr);
        EXPECT_EQ("poll(1,unlimited)", calls);
    }
    EXPECT_EQ(0, loop.remove(index));
    const scripted_door door;
    loop.wait(nullptr);
    EXPECT_EQ("sleep(0.10000)", calls);
}

TEST(selector, passes_the_time_limit_on_as_it_is)
{
    selector loop(2);
    served object;
    loop.add(object, EV_READ);
    for (const timeval limit : { timeval { 1, 500000 }, timeval { 0, 1 }, timeval { -1, 0 }, timeval { 3000000, 0 } }) {
        const scripted_door door({ 0 });
        EXPECT_EQ(0, loop.wait(&limit));
        EXPECT_EQ("poll(1," + text_of(&limit) + ")", calls);
    }
}

TEST(selector, sleeps_ten_milliseconds_without_interest_and_limit)
{
    selector loop(2);
    set_callbacks(loop);
    const scripted_door door;
    EXPECT_EQ(0, loop.wait(nullptr));
    EXPECT_EQ("before sleep(0.10000) after", calls);
}

TEST(selector, sleeps_whole_milliseconds_without_interest)
{
    static const struct {
        timeval limit;
        const char* slept;
    } cases[] = {
        { { 1, 500000 }, "1.500000" },
        { { 0, 0 }, "0.0" },
        { { 0, 999 }, "0.0" },
        { { 0, 1000 }, "0.1000" },
        { { 2, 1999 }, "2.1000" },
        { { 1, 2500999 }, "3.500000" },
        { { -1, 0 }, "0.0" },
        { { 2147483647, 0 }, "4294967.294000" }, // 49 days are the end
    };
    selector loop(2);
    for (const auto& c : cases) {
        const scripted_door door;
        EXPECT_EQ(0, loop.wait(&c.limit));
        EXPECT_EQ("sleep(" + std::string(c.slept) + ")", calls);
    }
}

// Rounded up to milliseconds; what is below a second counts as microseconds in one loop, and as
// so many of its own unit in the other.
static const struct {
    timeval limit;
    const char* of_poller;
    const char* of_epoller;
} limits[] = {
    { { 1, 500000 }, "1.500000", "1.500" },
    { { 0, 0 }, "0.0", "0.0" },
    { { 0, 1 }, "0.1000", "0.1" },
    { { 0, 1000 }, "0.1000", "0.1" },
    { { 0, 1001 }, "0.2000", "0.2" },
    { { 0, 999000 }, "0.999000", "0.999" },
    { { 0, 999001 }, "1.0", "1.0" },
    { { 2, 3000001 }, "5.1000", "5.1" },
    { { -1, 0 }, "0.0", "0.0" },
    { { 0, -1 }, "0.0", "0.0" },
    { { 3000000, 0 }, "2147483.646000", "2147483.646" },
    { { 0x7FFFFFFF, 0x7FFFFFFF }, "2147483.646000", "2147483.646" },
};

template <class loop_type> void check_limits(const char* (*expected)(int))
{
    loop_type loop(2);
    served object;
    loop.add(object, EV_READ);
    for (int i = 0; i < static_cast<int>(sizeof limits / sizeof *limits); ++i) {
        const scripted_door door({ 0 });
        EXPECT_EQ(0, loop.wait(&limits[i].limit));
        EXPECT_EQ(std::string("poll(1,") + expected(i) + ")", calls);
    }
}

TEST(poller, keeps_the_low_16_bits_of_events)
{
    poller loop(2);
    served object;
    const int index = loop.add(object, 0x10000);
    {
        const scripted_door door({ -1 });
        EXPECT_EQ(-1, loop.wait(nullptr));
        EXPECT_EQ("poll(0,unlimited)", calls);
    }
    loop.set_events(index, 0x10000 | EV_READ);
    const scripted_door door({ 1 });
    EXPECT_EQ(1, loop.wait(nullptr));
    EXPECT_EQ("poll(1,unlimited) read", calls);
}

TEST(poller, passes_its_time_limit_in_milliseconds)
{
    check_limits<poller>([](int i) { return limits[i].of_poller; });
}

TEST(epoller, passes_milliseconds_below_a_second_as_microseconds)
{
    check_limits<epoller>([](int i) { return limits[i].of_epoller; });
}

} // namespace
