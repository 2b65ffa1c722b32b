// Addresses, and sockets over 127.0.0.1: every operation, its result and its failures.
#include "net_fixture.h"

#include <stdkro/xml_doc.h>

#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

TEST(SockAddr, reads_host_and_port)
{
    static const struct {
        const char* text;
        int result;
        const char* address;
    } cases[] = {
        { "10.0.0.1:80", 0, "10.0.0.1:80" },
        { "10.0.0.1", 0, "10.0.0.1:0" },
        { "1.2.3.4:", 0, "1.2.3.4:0" },
        // Ports are read as by atoi; the low 16 bits count.
        { "1.2.3.4: 7x", 0, "1.2.3.4:7" },
        { "1.2.3.4:+7", 0, "1.2.3.4:7" },
        { "1.2.3.4:-1", 0, "1.2.3.4:65535" },
        { "1.2.3.4:65536", 0, "1.2.3.4:0" },
        { "1.2.3.4:99999999999999999999", 0, "1.2.3.4:65535" },
        { "1.2.3.4:8:9", 0, "1.2.3.4:8" },
        // A host that is no address.
        { "host:80", 0, "255.255.255.255:80" },
        { ":80", 0, "255.255.255.255:80" },
        { "256.1.1.1", 0, "255.255.255.255:0" },
        // 15 characters fit, 16 do not; without a colon any length does.
        { "123456789012345:1", 0, "255.255.255.255:1" },
        { "1234567890123456:1", err::syntax, "9.9.9.9:9" },
        { "123456789012345678:80", err::syntax, "9.9.9.9:9" },
        { "255.255.255.2559999", 0, "255.255.255.255:0" },
    };
    for (const auto& c : cases) {
        SockAddr a("9.9.9.9", 9);
        EXPECT_EQ(c.result, a.set_addr(c.text)) << c.text;
        EXPECT_STREQ(c.address, a.get_addr().c_str()) << c.text;
    }
}

TEST(SockAddr, keeps_the_port_in_network_order_and_the_family_at_2)
{
    const SockAddr a("1.2.3.4", 0x1234);
    unsigned char bytes[16];
    std::memcpy(bytes, &a, sizeof bytes);
    ASSERT_EQ(16u, sizeof a);
    EXPECT_EQ(0x12, bytes[2]);
    EXPECT_EQ(0x34, bytes[3]);
    EXPECT_EQ(1, bytes[4]);
    EXPECT_EQ(4, bytes[7]);
    for (int i = 8; i < 16; ++i)
        EXPECT_EQ(0, bytes[i]);
    EXPECT_EQ(2, a.cast_sockaddr().sa_family);
    EXPECT_EQ(0x1234, a.get_port_h());
    EXPECT_STREQ("1.2.3.4", a.get_ip_s());
}

TEST(SockAddr, is_an_ipv4_address_whatever_it_was)
{
    SockAddr a("9.9.9.9:9");
    a.cast_sockaddr_in().sin_family = 7;
    EXPECT_EQ(0, a.set_addr("1.2.3.4:5"));
    EXPECT_EQ(2, a.cast_sockaddr_in().sin_family);
    sockaddr& changeable = a;
    const SockAddr& same = a;
    const sockaddr& fixed = same;
    EXPECT_EQ(static_cast<void*>(&a), &changeable);
    EXPECT_EQ(&changeable, &fixed);
    EXPECT_EQ(&same.cast_sockaddr(), &fixed);
}

TEST(SockAddr, shares_one_text_for_all)
{
    const char* const text = SockAddr("1.2.3.4").get_ip_s();
    EXPECT_STREQ("1.2.3.4", text);
    SockAddr("5.6.7.8").get_ip_s();
    EXPECT_STREQ("5.6.7.8", text);
}

TEST(SockAddr, is_made_from_every_form)
{
    EXPECT_STREQ("0.0.0.0:0", SockAddr().get_addr().c_str());
    EXPECT_STREQ("0.0.0.0:80", SockAddr(static_cast<unsigned short>(80)).get_addr().c_str());
    const SockAddr a("1.2.3.4:5");
    EXPECT_STREQ("1.2.3.4:5", a.get_addr().c_str());
    EXPECT_STREQ("1.2.3.4:5", SockAddr(a.cast_sockaddr_in()).get_addr().c_str());
    EXPECT_STREQ("1.2.3.4:5", SockAddr(a.cast_sockaddr()).get_addr().c_str());
    EXPECT_STREQ("1.2.3.4:7", SockAddr(a.cast_sockaddr_in().sin_addr, 7).get_addr().c_str());
    SockAddr b;
    b = a.cast_sockaddr_in();
    EXPECT_EQ(a, b);
}

TEST(SockAddr, null_is_this_host)
{
    SockAddr a;
    const int r = a.set_addr(static_cast<const char*>(nullptr));
    if (r < 0) {
        EXPECT_EQ(err::network, r);
        return;
    }
    EXPECT_EQ(0, a.get_port_h());
    SockAddr b;
    EXPECT_EQ(0, b.set_addr(nullptr, 80));
    EXPECT_EQ(80, b.get_port_h());
    EXPECT_STREQ(a.get_ip_s(), SockAddr(b.cast_sockaddr_in().sin_addr, 0).get_ip_s());
}

TEST(SockAddr, compares_addresses_before_ports)
{
    const SockAddr a("1.2.3.4", 9);
    const SockAddr b("1.2.3.5", 1);
    const SockAddr c("1.2.3.5", 2);
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_TRUE(b < c);
    EXPECT_FALSE(c < c);
    // As numbers in host order, not as bytes in memory.
    EXPECT_TRUE(SockAddr("1.0.0.2", 0) < SockAddr("2.0.0.1", 0));
    EXPECT_TRUE(SockAddr("1.1.1.1", 0x00FF) < SockAddr("1.1.1.1", 0x0100));
    SockAddr other_family = b;
    other_family.cast_sockaddr_in().sin_family = 7;
    EXPECT_TRUE(b == other_family);
    EXPECT_TRUE(b != c);
}

// The destructor takes two places, behind it stands detach.
TEST(ipc, keeps_its_operations_in_their_order)
{
    EXPECT_EQ(0u, slot_of(&ipc::send));
    EXPECT_EQ(1u, slot_of(&ipc::receive));
    EXPECT_EQ(2u, slot_of(&ipc::close));
    EXPECT_EQ(3u, slot_of(&ipc::print));
    EXPECT_EQ(4u, slot_of(&ipc::is_valid));
    EXPECT_EQ(7u, slot_of(&Socket::detach));
    EXPECT_EQ(2 * sizeof(void*), sizeof(Socket)) << "the handle and nothing else";
}

TEST(ipc, is_what_a_socket_can_be_used_as)
{
    socket_pair p;
    ipc& channel = p.here;
    EXPECT_TRUE(channel.is_valid());
    EXPECT_EQ(2, channel.send("ab", 2));
    p.there.send("c", 1);
    char byte = 0;
    EXPECT_EQ(1, channel.receive(&byte, 1));
    EXPECT_EQ('c', byte);
    EXPECT_EQ(0, channel.close());
    EXPECT_FALSE(channel.is_valid());
}

TEST(Socket, without_a_handle_fails_with_the_code_of_each_operation)
{
    Socket s;
    SockAddr a;
    char byte = 0;
    unsigned long value = 0;
    EXPECT_FALSE(s.is_valid());
    EXPECT_EQ(err::shut_up, s.send(&byte, 1));
    EXPECT_EQ(err::shut_up, s.receive(&byte, 1));
    EXPECT_EQ(err::shut_up, s.send_to(&a, &byte, 1));
    EXPECT_EQ(err::shut_up, s.recv_from(&a, &byte, 1));
    EXPECT_EQ(err::shut_up, s.recv_n(&byte, 1));
    EXPECT_EQ(err::send, s.send_n(&byte, 1));
    EXPECT_EQ(err::network, s.select(1, nullptr));
    EXPECT_EQ(err::connection, s.connect(a));
    EXPECT_EQ(err::network, s.bind(a));
    EXPECT_EQ(err::network, s.listen(1));
    EXPECT_EQ(err::network, s.getpeer(a));
    EXPECT_EQ(err::network, s.getself(a));
    EXPECT_EQ(err::network, s.sockctl(static_cast<long>(0x4004667Fu), &value));
    EXPECT_EQ(err::network, s.set_async(true));
    EXPECT_EQ(err::network, s.set_nodelay(true));
    EXPECT_EQ(Socket::no_handle, s.accept(nullptr));
    Socket t;
    EXPECT_EQ(err::network, s.accept(t, nullptr));
    EXPECT_EQ(0, s.shutdown(2));
    EXPECT_EQ(0, s.close());
    EXPECT_EQ(Socket::no_handle, s.detach());
}

TEST(Socket, with_a_dead_handle_fails_with_the_code_of_each_operation)
{
    Socket s;
    ASSERT_EQ(0, s.create());
    const unsigned dead = s.get_socket();
    Socket(dead).close();
    SockAddr a("127.0.0.1", 9);
    char byte = 0;
    unsigned long value = 0;
    Socket t;
    const timeval at_once = { 0, 0 };
    EXPECT_EQ(err::send, s.send(&byte, 1));
    EXPECT_EQ(err::receive, s.receive(&byte, 1));
    EXPECT_EQ(-1, s.send_to(&a, &byte, 1));
    EXPECT_EQ(-1, s.recv_from(&a, &byte, 1));
    EXPECT_EQ(err::receive, s.recv_n(&byte, 1));
    EXPECT_EQ(err::send, s.send_n(&byte, 1));
    EXPECT_EQ(err::network, s.select(1, &at_once));
    EXPECT_EQ(err::connection, s.connect(a));
    EXPECT_EQ(err::network, s.bind(a));
    EXPECT_EQ(err::network, s.listen(1));
    EXPECT_EQ(err::network, s.getpeer(a));
    EXPECT_EQ(err::network, s.getself(a));
    EXPECT_EQ(err::network, s.sockctl(static_cast<long>(0x4004667Fu), &value));
    EXPECT_EQ(err::network, s.set_async(true));
    EXPECT_EQ(err::network, s.set_nodelay(true));
    EXPECT_EQ(err::network, s.shutdown(2));
    EXPECT_EQ(Socket::no_handle, s.accept(nullptr));
    EXPECT_EQ(err::network, s.accept(t, nullptr));
    EXPECT_EQ(dead, s.get_socket()) << "the handle is kept";
    EXPECT_EQ(0, s.close());
}

TEST(Socket, sends_and_receives)
{
    socket_pair p;
    EXPECT_EQ(5, p.here.send("hello", 5));
    char text[8] = {};
    EXPECT_EQ(5, p.there.receive(text, sizeof text));
    EXPECT_STREQ("hello", text);
    EXPECT_EQ(err::bad_argument, p.here.send(text, 0x80000000u));
    EXPECT_EQ(err::bad_argument, p.here.receive(text, 0x80000000u));
    EXPECT_EQ(err::bad_argument, p.here.recv_n(text, 0x80000000u));
    EXPECT_EQ(err::bad_argument, p.here.send_n(text, 0x80000000u));
    p.here.close();
    EXPECT_EQ(err::shut_up, p.there.receive(text, sizeof text));
    EXPECT_FALSE(p.here.is_valid());
}

TEST(Socket, receives_exactly_n_bytes_or_says_why_not)
{
    socket_pair p;
    std::thread slow([&] {
        p.here.send("ab", 2);
        p.here.send("cdef", 4);
        p.here.send("4444", 4);
        p.here.shutdown(1);
    });
    char text[16] = {};
    EXPECT_EQ(6, p.there.recv_n(text, 6));
    EXPECT_STREQ("abcdef", text);
    EXPECT_EQ(err::shut_up, p.there.recv_n(text, 10)) << "four bytes, then the end";
    EXPECT_EQ(0, p.there.recv_n(text, 0));
    slow.join();
}

/// What `send` gives when the system takes nothing more: it may still be making room,
/// by handing to the other end what that does not read.
template <class operation> int at_the_end_of_room(operation send)
{
    int result = send();
    for (int i = 0; i < 1000 && result > 0; ++i)
        result = send();
    return result;
}

TEST(Socket, counts_all_bytes_as_sent_after_one_send)
{
    socket_pair p;
    p.here.set_async(true);
    const std::vector<char> much(16 << 20);
    EXPECT_EQ(16 << 20, p.here.send_n(much.data(), 16 << 20)) << "the system took less";
    EXPECT_EQ(err::send, at_the_end_of_room([&] { return p.here.send_n(much.data(), 16 << 20); }));
    EXPECT_EQ(err::send, at_the_end_of_room([&] { return p.here.send(much.data(), 1 << 20); }));
}

TEST(Socket, to_a_closed_peer_fails_without_a_signal)
{
    socket_pair p;
    p.there.close();
    int r = 0;
    for (int i = 0; i < 1000 && r >= 0; ++i)
        r = p.here.send("x", 1);
    EXPECT_EQ(err::send, r);
    EXPECT_EQ(err::send, p.here.send_n("x", 1));
    EXPECT_LT(p.here.send_to(nullptr, "x", 1), 0);
}

TEST(Socket, knows_both_ends)
{
    listener server;
    Socket client;
    client.create();
    ASSERT_EQ(0, client.connect(server.address));
    SockAddr peer;
    Socket accepted;
    ASSERT_EQ(0, server.accept(accepted, &peer));
    SockAddr self;
    EXPECT_EQ(0, client.getself(self));
    EXPECT_EQ(peer, self);
    SockAddr far_end;
    EXPECT_EQ(0, client.getpeer(far_end));
    EXPECT_EQ(server.address, far_end);
}

TEST(Socket, refuses_a_port_that_is_taken)
{
    listener server;
    Socket second;
    EXPECT_EQ(err::network, second.create_server(server.address));
    EXPECT_FALSE(second.is_valid());
}

TEST(Socket, is_refused_where_nobody_listens)
{
    SockAddr nobody;
    {
        listener server;
        nobody = server.address;
    }
    Socket s;
    s.create();
    EXPECT_EQ(err::connection, s.connect(nobody));
    EXPECT_TRUE(s.is_valid()) << "the handle survives";

    Socket server;
    ASSERT_EQ(0, server.create_server(SockAddr("127.0.0.1", 0)));
    ASSERT_EQ(0, server.getself(nobody));
    s.create();
    EXPECT_EQ(err::connection, s.connect(nobody)) << "bound, but not listening";
    ASSERT_EQ(0, server.listen(1));
    s.create();
    EXPECT_EQ(0, s.connect(nobody));
}

TEST(Socket, exchanges_datagrams)
{
    Socket a;
    Socket b;
    ASSERT_EQ(0, a.create(2, 2, 0));
    ASSERT_EQ(0, b.create(2, 2, 0));
    ASSERT_EQ(0, b.bind(SockAddr("127.0.0.1", 0)));
    SockAddr to;
    ASSERT_EQ(0, b.getself(to));
    EXPECT_EQ(3, a.send_to(&to, "abc", 3));
    SockAddr from;
    char text[8] = {};
    EXPECT_EQ(3, b.recv_from(&from, text, sizeof text));
    EXPECT_STREQ("abc", text);
    EXPECT_STREQ("127.0.0.1", from.get_ip_s());
    EXPECT_EQ(2, b.send_to(&from, "xy", 2));
    EXPECT_EQ(2, a.recv_from(nullptr, text, sizeof text));
    EXPECT_EQ(-1, a.send_to(nullptr, "abc", 3)) << "the platform's own failure: no destination";
    EXPECT_EQ(err::bad_argument, a.send_to(&to, "abc", 0x80000000u));
    EXPECT_EQ(err::bad_argument, a.recv_from(nullptr, text, 0x80000000u));
}

TEST(Socket, copies_its_handle_value)
{
    socket_pair p;
    Socket copy(p.here);
    EXPECT_EQ(p.here.get_socket(), copy.get_socket());
    copy.close();
    char byte;
    EXPECT_EQ(err::shut_up, p.there.receive(&byte, 1));
    p.here.detach();
}

TEST(Socket, owns_its_handle)
{
    socket_pair p;
    const unsigned handle = p.here.get_socket();
    p.here.attach(handle);
    EXPECT_EQ(1, p.here.send("x", 1)) << "attaching the same handle does not close it";
    EXPECT_EQ(handle, p.here.detach());
    EXPECT_FALSE(p.here.is_valid());
    Socket again(handle);
    EXPECT_EQ(1, again.send("x", 1));
    socket_pair q;
    again.attach(q.here.detach());
    char bytes[4];
    EXPECT_EQ(2, p.there.recv_n(bytes, 2));
    EXPECT_EQ(err::shut_up, p.there.receive(bytes, 1)) << "the old handle was closed";
}

TEST(Socket, controls_take_the_windows_numbers)
{
    socket_pair p;
    p.there.send("four", 4);
    const timeval limit = { 10, 0 };
    ASSERT_EQ(0, p.here.select(1, &limit));
    unsigned long bytes = ~0ul;
    EXPECT_EQ(0, p.here.sockctl(static_cast<long>(0x4004667Fu), &bytes));
    EXPECT_EQ(4u, bytes) << "all of it is stored";
    unsigned long on = 1;
    EXPECT_EQ(0, p.here.sockctl(static_cast<long>(0x8004667Eu), &on));
    EXPECT_EQ(0, p.here.sockctl(static_cast<int>(0x8004667Eu), &on)) << "also where it is negative";
    EXPECT_EQ(err::network, p.here.sockctl(12345, &on));
    char text[8];
    EXPECT_EQ(4, p.here.receive(text, 8));
    EXPECT_EQ(err::receive, p.here.receive(text, 8)) << "does not block";
    EXPECT_EQ(0, p.here.set_nodelay(true));
    EXPECT_EQ(0, p.here.set_nodelay(false));
}

TEST(Socket, waits_for_itself)
{
    socket_pair p;
    const timeval none = { 0, 0 };
    const timeval short_time = { 0, 20000 };
    EXPECT_EQ(err::timeout, p.here.select(1, &none));
    EXPECT_EQ(err::timeout, p.here.select(4, &short_time));
    EXPECT_EQ(err::timeout, p.here.select(8, &none));
    EXPECT_EQ(0, p.here.select(2, nullptr));
    EXPECT_EQ(0, p.here.select(1 | 2, &none)) << "writable at once";
    p.there.send("x", 1);
    EXPECT_EQ(0, p.here.select(1, nullptr));
    EXPECT_EQ(0, p.here.select(4, nullptr));
    for (const int unknown : { 0, 16, ~15 })
        EXPECT_EQ(err::network, p.here.select(unknown, &none)) << unknown;
}

TEST(Socket, describes_itself_as_a_node)
{
    socket_pair p;
    xml_node node("socket", XML_ELEMENT);
    p.here.print(node);
    SockAddr self;
    SockAddr peer;
    p.here.getself(self);
    p.here.getpeer(peer);
    std::ostringstream text;
    node.write(text, false);
    const std::string expected = "<socket SOCKET=\"" + std::to_string(p.here.get_socket()) + "\">\n<addr self=\""
        + self.get_addr().c_str() + "\" peer=\"" + peer.get_addr().c_str() + "\"/>\n</socket>";
    EXPECT_EQ(expected, text.str());

    xml_node none("socket", XML_ELEMENT);
    Socket().print(none);
    std::ostringstream without;
    none.write(without, false);
    EXPECT_EQ("<socket SOCKET=\"-1\">\n<addr/>\n</socket>", without.str());
}

TEST(select, keeps_the_ready_members_in_their_order_and_once)
{
    socket_pair pairs[4];
    sock_fd_set set = { 0, {} };
    for (const int i : { 3, 1, 0, 2, 1 })
        set.fd_array[set.fd_count++] = pairs[i].here.get_socket();
    pairs[0].there.send("x", 1);
    pairs[1].there.send("x", 1);
    const timeval limit = { 5, 0 };
    const sock_fd_set before = set;
    while (true) {
        set = before;
        const int n = Socket::select(&set, nullptr, nullptr, &limit);
        ASSERT_GT(n, 0);
        if (n == 2)
            break;
    }
    ASSERT_EQ(2u, set.fd_count);
    EXPECT_EQ(pairs[1].here.get_socket(), set.fd_array[0]);
    EXPECT_EQ(pairs[0].here.get_socket(), set.fd_array[1]);
    EXPECT_EQ(5, limit.tv_sec);

    set = { 3, { pairs[2].here.get_socket(), pairs[0].here.get_socket(), pairs[2].here.get_socket() } };
    EXPECT_EQ(1, Socket::select(&set, nullptr, nullptr, &limit)) << "standing twice makes nobody ready";
    EXPECT_EQ(pairs[0].here.get_socket(), set.fd_array[0]);

    sock_fd_set readable = before;
    sock_fd_set writable = before;
    EXPECT_EQ(2 + 4, Socket::select(&readable, &writable, nullptr, nullptr));
}

TEST(select, fails_at_once_for_nothing_and_for_dead_handles)
{
    sock_fd_set empty = { 0, {} };
    EXPECT_EQ(err::network, Socket::select(nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(err::network, Socket::select(&empty, &empty, &empty, nullptr));
    socket_pair p;
    p.there.send("x", 1);
    unsigned dead;
    {
        socket_pair gone;
        dead = gone.here.get_socket();
    }
    for (const unsigned handle : { dead, 0xFFFFFFFFu }) {
        sock_fd_set set = { 2, { p.here.get_socket(), handle } };
        sock_fd_set ready = { 1, { p.here.get_socket() } };
        EXPECT_EQ(err::network, Socket::select(&set, nullptr, nullptr, nullptr)) << handle;
        EXPECT_EQ(err::network, Socket::select(&ready, &set, nullptr, nullptr)) << handle;
        EXPECT_EQ(err::network, Socket::select(&ready, nullptr, &set, nullptr)) << handle;
        EXPECT_EQ(2u, set.fd_count);
        EXPECT_EQ(handle, set.fd_array[1]);
        EXPECT_EQ(1u, ready.fd_count);
    }
}

TEST(select, looks_at_1024_members_at_most)
{
    socket_pair p;
    p.make_readable();
    sock_fd_set set;
    set.fd_count = 5000;
    for (unsigned& member : set.fd_array)
        member = p.here.get_socket();
    EXPECT_EQ(1, Socket::select(&set, nullptr, nullptr, nullptr));
    EXPECT_EQ(1u, set.fd_count);
}

TEST(sockset, ties_handles_to_their_sockets)
{
    socket_pair p[3];
    sockset set;
    EXPECT_EQ(0u, set.count());
    for (auto& pair : p)
        EXPECT_EQ(0, set.add(pair.here));
    EXPECT_EQ(3u, set.count());
    EXPECT_TRUE(set.test(p[1].here));
    EXPECT_TRUE(set.test(p[1].here.get_socket()));
    EXPECT_FALSE(set.test(p[1].there));
    Socket same_handle(p[1].here.get_socket());
    EXPECT_TRUE(set.test(same_handle)) << "the handle counts, not the object";
    EXPECT_EQ(err::not_exist, set.remove(same_handle)) << "here the object counts";
    same_handle.detach();
    int cursor = 0;
    for (auto& pair : p)
        EXPECT_EQ(&pair.here, set.get_socket(cursor));
    EXPECT_EQ(nullptr, set.get_socket(cursor));
    EXPECT_EQ(3, cursor);
    int negative = -1;
    EXPECT_EQ(nullptr, set.get_socket(negative));
    EXPECT_EQ(nullptr, set.get_socket(set.get_fdset(), negative));
    EXPECT_EQ(-1, negative);

    EXPECT_EQ(0, set.remove(p[0].here));
    EXPECT_EQ(err::not_exist, set.remove(p[0].here));
    EXPECT_EQ(0, set.remove(p[1].here.get_socket()));
    EXPECT_EQ(err::not_exist, set.remove(p[1].here.get_socket()));
    cursor = 0;
    EXPECT_EQ(&p[2].here, set.get_socket(cursor));
    set.clear();
    EXPECT_EQ(0u, set.count());
}

TEST(sockset, keeps_only_a_result_in_its_order)
{
    socket_pair p[3];
    sockset set;
    for (auto& pair : p)
        set.add(pair.here);
    const sock_fd_set result = { 3, { p[2].here.get_socket(), 12345678, p[0].here.get_socket() } };
    int cursor = 0;
    EXPECT_EQ(&p[2].here, set.get_socket(result, cursor));
    EXPECT_EQ(nullptr, set.get_socket(result, cursor));
    EXPECT_EQ(&p[0].here, set.get_socket(result, cursor));
    EXPECT_EQ(nullptr, set.get_socket(result, cursor));
    EXPECT_EQ(3, cursor);
    set.set_result(result);
    EXPECT_EQ(3u, set.count());
    cursor = 0;
    EXPECT_EQ(&p[2].here, set.get_socket(cursor));
    EXPECT_EQ(nullptr, set.get_socket(cursor));
    EXPECT_EQ(2, cursor) << "the cursor moves on over a handle of nobody";
    EXPECT_EQ(&p[0].here, set.get_socket(cursor));
    set.set_result(set.get_fdset());
    EXPECT_EQ(3u, set.count()) << "a result may be the set's own";
}

TEST(sockset, drops_members_that_were_closed)
{
    socket_pair p[3];
    sockset set;
    for (auto& pair : p)
        set.add(pair.here);
    Socket(p[1].here.get_socket()).close();
    EXPECT_EQ(1, set.correct());
    EXPECT_EQ(0, set.correct());
    int cursor = 0;
    EXPECT_EQ(&p[0].here, set.get_socket(cursor));
    EXPECT_EQ(&p[2].here, set.get_socket(cursor));
    p[1].here.detach();
}

TEST(sockset, keeps_open_sockets_that_are_bound_to_nothing)
{
    Socket stream;
    Socket datagram;
    Socket closed;
    for (Socket* s : { &stream, &closed })
        ASSERT_EQ(0, s->create());
    ASSERT_EQ(0, datagram.create(2, 2, 0));
    sockset set;
    for (Socket* s : { &closed, &stream, &closed, &datagram })
        set.add(*s);
    EXPECT_EQ(0, set.correct());
    Socket(closed.get_socket()).close();
    EXPECT_EQ(2, set.correct());
    closed.detach();
    int cursor = 0;
    EXPECT_EQ(&stream, set.get_socket(cursor));
    EXPECT_EQ(&datagram, set.get_socket(cursor));
    EXPECT_EQ(nullptr, set.get_socket(cursor));

    Socket none;
    set.add(none);
    EXPECT_EQ(1, set.correct()) << "no handle is none that is open";
    EXPECT_EQ(2u, set.count());
}

TEST(sockset, is_full_with_1024_members)
{
    socket_pair p;
    sockset set;
    for (int i = 0; i < 1024; ++i)
        ASSERT_EQ(0, set.add(p.here));
    EXPECT_EQ(err::overflow, set.add(p.here));
    EXPECT_EQ(1024u, set.count());
}
