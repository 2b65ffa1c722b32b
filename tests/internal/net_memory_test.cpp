// Buffers, slot tables and loops without memory: for each allocation in turn, the operation fails
// with its code and nothing has changed.
#include "allocation_failure.h"

#include "../net_fixture.h"

#include <stdkro/poller.h>
#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include <memory>
#include <string>

namespace {

struct writable : fdbase {
    Socket socket;
    int writes = 0;

    writable()
    {
        EXPECT_EQ(0, socket.create(2, 2, 0));
        EXPECT_EQ(0, socket.bind(SockAddr("127.0.0.1", 0)));
    }
    int get_events(int& events) override
    {
        events = EV_WRITE;
        return get_fd();
    }
    int get_fd() override { return static_cast<int>(socket.get_socket()); }
    int do_write() override { return ++writes; }
};

/// A packet with six unread bytes, some others of which were read.
struct filled_packet : packet {
    explicit filled_packet(unsigned bytes_read)
    {
        char taken[8];
        write("0123456789", 6 + bytes_read);
        read(taken, bytes_read);
    }
    std::string unread() const { return std::string(rptr(), count()); }
};

const std::string text = "0123456789";

} // namespace

TEST(packet, is_content_with_a_smaller_block)
{
    for (const unsigned bytes_read : { 0u, 3u }) {
        for (allocation_failure failure; failure.next();) {
            filled_packet p(bytes_read);
            failure.arm();
            const unsigned room = p.reserved(10000);
            failure.disarm();
            EXPECT_EQ(10000u, room) << failure.nth();
            EXPECT_EQ(text.substr(bytes_read, 6), p.unread());
        }
    }
}

TEST(packet, is_as_before_when_there_is_no_memory)
{
    for (const unsigned bytes_read : { 0u, 3u }) {
        filled_packet p(bytes_read);
        allocation_failure failure;
        ASSERT_TRUE(failure.next());
        failure.arm_from_there_on();
        const unsigned room = p.reserved(100);
        const unsigned written = p.write(text.data(), 10);
        const unsigned printed = p.print(100, "%d", 5);
        failure.disarm();
        EXPECT_TRUE(failure.happened());
        EXPECT_EQ(0u, room);
        EXPECT_EQ(0u, written);
        EXPECT_EQ(0u, printed);
        EXPECT_EQ(6 + bytes_read, p.capacity());
        EXPECT_EQ(bytes_read, p.rpos());
        EXPECT_EQ(text.substr(bytes_read, 6), p.unread());
    }
}

TEST(packet, prints_a_long_text_or_nothing)
{
    const std::string much(5000, 'x');
    for (allocation_failure failure; failure.next();) {
        packet p;
        failure.arm_from_there_on();
        const unsigned printed = p.print(5000, "%s", much.c_str());
        failure.disarm();
        EXPECT_EQ(failure.happened() ? 0u : 5000u, printed) << failure.nth();
        EXPECT_EQ(printed, p.count());
    }
}

TEST(socket, prints_what_there_is_memory_for)
{
    socket_pair p;
    for (allocation_failure failure; failure.next();) {
        xml_node node("socket", XML_ELEMENT);
        failure.arm();
        try {
            p.here.print(node);
        } catch (const xcpt& e) {
            EXPECT_EQ(err::out_of_memory, e.get_err());
        }
        failure.disarm();
        const xml_node* const addresses = node.find_first(XML_ELEMENT, "addr");
        if (!failure.happened()) {
            ASSERT_NE(nullptr, addresses);
            EXPECT_EQ(2u, addresses->get_attrs().count());
        }
    }
}

TEST(fdset, keeps_its_old_arrays_when_it_cannot_grow)
{
    writable a;
    for (allocation_failure failure; failure.next();) {
        fdset set(2);
        set.add(a);
        failure.arm();
        const int r = set.expand(100);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? -1 : 0, r) << failure.nth();
        EXPECT_EQ(failure.happened() ? 2u : 100u, set.capacity());
        EXPECT_EQ(&a, set.get(0));
        EXPECT_EQ(1, set.add(a));
    }
}

TEST(fdset, is_empty_when_it_cannot_be_made)
{
    writable a;
    for (allocation_failure failure; failure.next();) {
        fdset set(2);
        failure.arm();
        const int r = set.create(100);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? -1 : 0, r) << failure.nth();
        EXPECT_EQ(failure.happened() ? 0u : 100u, set.capacity());
        EXPECT_EQ(r, set.add(a));
    }
}

template <class loop> struct without_memory : testing::Test {
    static int code() { return std::is_same<loop, selector>::value ? err::out_of_memory : -1; }
};
using loops = testing::Types<selector, poller, epoller>;
TYPED_TEST_SUITE(without_memory, loops);

TYPED_TEST(without_memory, a_loop_is_not_made)
{
    writable a;
    for (allocation_failure failure; failure.next();) {
        TypeParam loop(2);
        EXPECT_EQ(0, loop.add(a, EV_WRITE));
        failure.arm();
        const int r = loop.create(100);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? this->code() : 0, r) << failure.nth();
        EXPECT_EQ(failure.happened() ? 0u : 100u, loop.capacity());
        EXPECT_EQ(0u, loop.count());
        EXPECT_EQ(failure.happened(), loop.add(a, EV_WRITE) < 0);
        EXPECT_EQ(0, loop.create(1)) << "and can be made later";
    }
}

TYPED_TEST(without_memory, a_loop_does_not_grow_and_goes_on)
{
    writable a;
    for (allocation_failure failure; failure.next();) {
        TypeParam loop(2);
        EXPECT_EQ(0, loop.add(a, EV_WRITE));
        failure.arm();
        const int r = loop.expand(100);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? this->code() : 0, r) << failure.nth();
        EXPECT_EQ(failure.happened() ? 2u : 100u, loop.capacity());
        a.writes = 0;
        EXPECT_EQ(1, loop.wait(nullptr));
        EXPECT_EQ(1, a.writes);
    }
}

TYPED_TEST(without_memory, loops_wait_all_the_same)
{
    writable a;
    for (allocation_failure failure; failure.next();) {
        TypeParam loop(2);
        const timeval at_once = { 0, 0 };
        a.writes = 0;
        failure.arm_from_there_on();
        const int index = loop.add(a, EV_WRITE);
        const int n = loop.wait(nullptr);
        const int changed = loop.set_events(index, EV_READ);
        const int none = loop.wait(&at_once);
        const int removed = loop.remove(index);
        failure.disarm();
        EXPECT_EQ(0, index);
        EXPECT_EQ(1, n);
        EXPECT_EQ(0, changed);
        EXPECT_EQ(0, none);
        EXPECT_EQ(0, removed);
        EXPECT_EQ(1, a.writes);
    }
}
