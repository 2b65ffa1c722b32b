// The three event loops: one suite for what they have in common, with the calls that each
// event leads to as text, then what each does in its own way.
#include "net_fixture.h"

#include <stdkro/poller.h>

#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using clock_type = std::chrono::steady_clock;

std::string calls;

/// A served socket that writes down what it is called for.
struct client : fdbase {
    std::string name;
    Socket& socket;
    int events = EV_READ;
    int read_result = 0;
    int write_result = 0;
    int error_result = 0;
    std::function<void()> on_read;

    client(const char* n, Socket& s) : name(n), socket(s) {}
    int get_events(int& wanted) override
    {
        wanted = events;
        return get_fd();
    }
    int get_fd() override { return static_cast<int>(socket.get_socket()); }
    int do_read() override
    {
        calls += name + ":read ";
        if (on_read)
            on_read();
        return read_result;
    }
    int do_write() override
    {
        calls += name + ":write ";
        return write_result;
    }
    int do_error() override
    {
        calls += name + ":error ";
        return error_result;
    }
};

/// A hook that writes down that it ran. Nobody asks for its result.
struct noting_hook : exec_object {
    int exec() override
    {
        calls += "exec ";
        return -1;
    }
};

const timeval at_once = { 0, 0 };
const timeval long_time = { 20, 0 };

/// What one wait returns and calls.
template <class loop> std::string served(loop& l, const timeval* limit)
{
    calls.clear();
    const int n = l.wait(limit);
    return std::to_string(n) + ": " + calls;
}

void drain(socket_pair& p)
{
    char bytes[64];
    p.here.receive(bytes, sizeof bytes);
}

double seconds_of(const std::function<void()>& run)
{
    const auto begin = clock_type::now();
    run();
    return std::chrono::duration<double>(clock_type::now() - begin).count();
}

} // namespace

TEST(fdbase, dispatches_bits_in_order_until_one_is_negative)
{
    Socket none;
    static const struct {
        int events;
        int read_result;
        const char* calls;
    } cases[] = {
        { 0, 0, "" },
        { EV_READ, 0, "c:read " },
        { EV_WRITE, 0, "c:write " },
        { EV_ERROR, 0, "c:error " },
        { EV_READ | EV_WRITE | EV_ERROR, 0, "c:read c:write c:error " },
        { EV_READ | EV_WRITE | EV_ERROR, -1, "c:read " },
        { 8 | 16, 0, "" },
    };
    for (const auto& c : cases) {
        client object("c", none);
        object.read_result = c.read_result;
        calls.clear();
        object.dispatch_events(c.events);
        EXPECT_EQ(c.calls, calls);
    }
    struct plain : fdbase {
        int get_events(int&) override { return -1; }
        int get_fd() override { return -1; }
    } p;
    EXPECT_EQ(0, p.do_read());
    EXPECT_EQ(0, p.do_write());
    EXPECT_EQ(0, p.do_error());
    EXPECT_EQ(0, exec_object().exec());
}

// The destructor takes the first two places.
TEST(fdbase, keeps_its_operations_in_their_order)
{
    EXPECT_EQ(2u, slot_of(&fdbase::get_events));
    EXPECT_EQ(3u, slot_of(&fdbase::get_fd));
    EXPECT_EQ(4u, slot_of(&fdbase::do_read));
    EXPECT_EQ(5u, slot_of(&fdbase::do_write));
    EXPECT_EQ(6u, slot_of(&fdbase::do_error));
    EXPECT_EQ(7u, slot_of(&fdbase::dispatch_events));
    EXPECT_EQ(2u, slot_of(&exec_object::exec));
    EXPECT_EQ(sizeof(void*), sizeof(fdbase)) << "no data";
    EXPECT_EQ(sizeof(void*), sizeof(exec_object));
}

TEST(loops, are_not_copied)
{
    EXPECT_FALSE(std::is_copy_constructible<fdset>::value || std::is_copy_assignable<fdset>::value);
    EXPECT_FALSE(std::is_copy_constructible<selector>::value || std::is_copy_assignable<selector>::value);
    EXPECT_FALSE(std::is_copy_constructible<poller>::value || std::is_copy_assignable<poller>::value);
    EXPECT_FALSE(std::is_copy_constructible<epoller>::value || std::is_copy_assignable<epoller>::value);
}

TEST(fdset, hands_out_the_slot_that_was_freed_last)
{
    Socket none;
    client a("a", none);
    fdset set(4);
    EXPECT_EQ(4u, set.capacity());
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(i, set.add(a));
    EXPECT_EQ(-1, set.add(a));
    EXPECT_EQ(0, set.remove(1));
    EXPECT_EQ(0, set.remove(3));
    EXPECT_EQ(-1, set.remove(3));
    EXPECT_EQ(-1, set.remove(-1));
    EXPECT_EQ(-1, set.remove(4));
    EXPECT_EQ(2u, set.count());
    EXPECT_EQ(nullptr, set.get(3));
    EXPECT_EQ(3, set.add(a));
    EXPECT_EQ(1, set.add(a));
    client b("b", none);
    set.set(2, &b);
    EXPECT_EQ(&b, set.get(2));
}

TEST(fdset, grows_and_is_emptied)
{
    Socket none;
    client a("a", none);
    fdset set;
    EXPECT_EQ(-1, set.add(a));
    EXPECT_EQ(-1, set.create(0));
    EXPECT_EQ(0, set.create(2));
    set.add(a);
    set.add(a);
    EXPECT_EQ(0, set.expand(2));
    EXPECT_EQ(0, set.expand(1));
    EXPECT_EQ(2u, set.capacity());
    EXPECT_EQ(0, set.remove(0));
    EXPECT_EQ(0, set.expand(4));
    EXPECT_EQ(0, set.add(a)) << "freed slots come before new ones";
    EXPECT_EQ(2, set.add(a));
    EXPECT_EQ(3, set.add(a));
    set.reset();
    EXPECT_EQ(4u, set.capacity());
    EXPECT_EQ(0u, set.count());
    EXPECT_EQ(0, set.add(a));
    EXPECT_EQ(-1, set.expand(0x80000000u)) << "too large";
    EXPECT_EQ(&a, set.get(0));
    set.clear();
    EXPECT_EQ(0u, set.capacity());
}

TEST(fdset, deletes_its_objects_only_when_told)
{
    static int deaths;
    struct mortal : client {
        using client::client;
        ~mortal() override { ++deaths; }
    };
    Socket none;
    deaths = 0;
    fdset set(3);
    set.add(*new mortal("a", none));
    set.add(*new mortal("b", none));
    set.destroy();
    EXPECT_EQ(2, deaths);
    EXPECT_EQ(0u, set.capacity());
}

// ---- what the three loops have in common ------------------------------------------

// The poller has none.
void set_exec(poller&, exec_object&) {}
template <class loop_type> void set_exec(loop_type& loop, exec_object& exec) { loop.set_exec_object(&exec); }

/// A loop that serves one client.
template <class loop_type> struct one_client {
    socket_pair p;
    client a { "a", p.here };
    loop_type loop { 2 };
    int index;

    explicit one_client(int events) : index(loop.add(a, events)) {}
};

/// A loop that serves two, one behind the other.
template <class loop_type> struct two_clients {
    socket_pair p[2];
    client a { "a", p[0].here };
    client b { "b", p[1].here };
    loop_type loop { 4 };
    int second;

    explicit two_clients(int events)
    {
        loop.add(a, events);
        second = loop.add(b, events);
    }
    void make_both_readable()
    {
        p[0].make_readable();
        p[1].make_readable();
    }
};

template <class loop> struct common : testing::Test { };
using loops = testing::Types<selector, poller, epoller>;
TYPED_TEST_SUITE(common, loops);

TYPED_TEST(common, begins_empty_and_takes_as_many_as_it_was_made_for)
{
    socket_pair p;
    client c("c", p.here);
    TypeParam none(0);
    EXPECT_LT(none.add(c, EV_READ), 0);
    EXPECT_EQ(0u, none.capacity());
    EXPECT_LT(none.create(0), 0);
    TypeParam loop(2);
    EXPECT_EQ(2u, loop.capacity());
    EXPECT_EQ(0, loop.add(c, EV_READ));
    EXPECT_EQ(&c, loop.get(0));
    EXPECT_EQ(nullptr, loop.get(1));
    EXPECT_EQ(nullptr, loop.get(-1));
    EXPECT_EQ(nullptr, loop.get(2));
    EXPECT_EQ(1u, loop.count());
    EXPECT_EQ(0, loop.remove(0));
    EXPECT_LT(loop.remove(0), 0);
    EXPECT_LT(loop.remove(7), 0);
    EXPECT_LT(loop.set_events(0, EV_READ), 0);
    EXPECT_EQ(1024u, TypeParam().capacity());
}

TYPED_TEST(common, calls_what_is_ready)
{
    socket_pair p[3];
    client a("a", p[0].here);
    client b("b", p[1].here);
    client c("c", p[2].here);
    TypeParam loop(8);
    loop.add(a, EV_READ);
    loop.add(b, EV_READ);
    loop.add(c, EV_WRITE);
    EXPECT_EQ("1: c:write ", served(loop, &at_once));
    EXPECT_EQ(0, loop.set_events(2, EV_READ));
    EXPECT_EQ(0, loop.wait(&at_once));
    p[1].make_readable();
    p[0].make_readable();
    EXPECT_EQ("2: a:read b:read ", served(loop, nullptr));
    EXPECT_EQ(0, loop.remove(0));
    EXPECT_EQ("1: b:read ", served(loop, nullptr));
}

TYPED_TEST(common, counts_each_condition_of_a_socket)
{
    one_client<TypeParam> of(EV_READ | EV_WRITE);
    of.p.make_readable();
    const bool counts_records = std::is_same<TypeParam, epoller>::value;
    EXPECT_EQ(counts_records ? "1: a:read a:write " : "2: a:read a:write ", served(of.loop, nullptr));
}

TYPED_TEST(common, waits_for_its_time_limit)
{
    one_client<TypeParam> of(EV_READ);
    const timeval limit = { 1, 0 };
    const double waited = seconds_of([&] { EXPECT_EQ(0, of.loop.wait(&limit)); });
    EXPECT_GE(waited, 0.99);
    EXPECT_LT(waited, 5);
    EXPECT_EQ(1, limit.tv_sec);
    const timeval negative = { -5, 0 };
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(0, of.loop.wait(&negative)); }), 0.5);
}

TYPED_TEST(common, asks_its_objects_again)
{
    one_client<TypeParam> of(EV_READ);
    of.a.events = EV_WRITE;
    of.loop.refresh();
    EXPECT_EQ("1: a:write ", served(of.loop, &at_once));
}

TYPED_TEST(common, lets_handlers_remove_others)
{
    two_clients<TypeParam> of(EV_READ);
    of.a.on_read = [&] { of.loop.remove(of.second); };
    of.make_both_readable();
    EXPECT_EQ("2: a:read ", served(of.loop, nullptr));
}

TYPED_TEST(common, lets_handlers_add_grow_and_empty)
{
    two_clients<TypeParam> of(EV_READ);
    of.make_both_readable();
    socket_pair late;
    client c("c", late.here);
    late.make_readable();
    of.a.on_read = [&] {
        of.loop.expand(100);
        EXPECT_EQ(2, of.loop.add(c, EV_READ));
    };
    EXPECT_EQ("2: a:read b:read ", served(of.loop, nullptr));
    of.a.on_read = [&] { of.loop.clear(); };
    EXPECT_EQ("3: a:read ", served(of.loop, nullptr));
    EXPECT_EQ(0u, of.loop.count());
}

TYPED_TEST(common, serves_nobody_any_more_when_a_handler_makes_it_anew)
{
    noting_hook exec;
    two_clients<TypeParam> of(EV_READ);
    set_exec(of.loop, exec);
    of.make_both_readable();
    of.a.on_read = [&] { EXPECT_EQ(0, of.loop.create(4)); };
    EXPECT_EQ("2: a:read ", served(of.loop, nullptr));
    EXPECT_EQ(0u, of.loop.count());
}

TYPED_TEST(common, serves_who_was_added_to_a_loop_made_anew_from_the_next_wait_on)
{
    two_clients<TypeParam> of(EV_READ);
    of.make_both_readable();
    of.a.on_read = [&] {
        of.loop.create(4);
        EXPECT_EQ(0, of.loop.add(of.a, EV_READ));
        EXPECT_EQ(of.second, of.loop.add(of.b, EV_READ));
    };
    EXPECT_EQ("2: a:read ", served(of.loop, nullptr));
    of.a.on_read = nullptr;
    EXPECT_EQ("2: a:read b:read ", served(of.loop, nullptr));
}

TYPED_TEST(common, takes_events_that_a_handler_sets_from_the_next_wait_on)
{
    two_clients<TypeParam> of(EV_READ);
    of.make_both_readable();
    of.a.on_read = [&] { EXPECT_EQ(0, of.loop.set_events(of.second, EV_WRITE)); };
    EXPECT_EQ("2: a:read b:read ", served(of.loop, nullptr));
    drain(of.p[0]);
    EXPECT_EQ("1: b:write ", served(of.loop, nullptr));
}

// The poller's records forget what they returned; the others keep their results apart.
TYPED_TEST(common, may_be_refreshed_by_a_handler)
{
    two_clients<TypeParam> of(EV_READ);
    of.make_both_readable();
    of.a.on_read = [&] {
        of.b.events = EV_WRITE;
        of.loop.refresh();
    };
    const bool is_forgotten = std::is_same<TypeParam, poller>::value;
    EXPECT_EQ(is_forgotten ? "2: a:read " : "2: a:read b:read ", served(of.loop, nullptr));
    drain(of.p[0]);
    EXPECT_EQ("1: b:write ", served(of.loop, nullptr));
}

TYPED_TEST(common, refuses_more_than_it_can_hold)
{
    TypeParam loop(2);
    EXPECT_LT(loop.expand(0xFFFFFFFFu), 0);
    EXPECT_EQ(2u, loop.capacity());
    EXPECT_EQ(0, loop.expand(2));
    EXPECT_EQ(0, loop.expand(1)) << "not larger: nothing to do";
    EXPECT_EQ(2u, loop.capacity());
    EXPECT_LT(loop.create(0xFFFFFFFFu), 0);
    EXPECT_EQ(0u, loop.capacity());
}

TYPED_TEST(common, calls_for_an_exceptional_condition)
{
    one_client<TypeParam> of(EV_ERROR);
    EXPECT_EQ(0, of.loop.wait(&at_once));
    ASSERT_EQ(1, ::send(static_cast<int>(of.p.there.get_socket()), "!", 1, MSG_OOB));
    EXPECT_EQ(0, of.p.here.select(8, nullptr));
    EXPECT_EQ("1: a:error ", served(of.loop, nullptr));
}

// A new descriptor is taken over, except by the epoller, which only changes what it knows.
TYPED_TEST(common, asks_for_descriptors_again)
{
    socket_pair p[3];
    client a("a", p[0].here);
    TypeParam loop(2);
    struct moving : client {
        using client::client;
        Socket* now = nullptr;
        int get_fd() override { return now ? static_cast<int>(now->get_socket()) : -1; }
    } m("m", p[1].here);
    m.now = &p[1].here;
    loop.add(a, EV_WRITE);
    loop.add(m, EV_READ);
    a.events = EV_WRITE;
    p[2].make_readable();
    m.now = &p[2].here;
    loop.refresh();
    const bool is_moved = !std::is_same<TypeParam, epoller>::value;
    const bool is_by_pass = std::is_same<TypeParam, selector>::value;
    const char* const expected = is_by_pass ? "2: m:read a:write " : is_moved ? "2: a:write m:read " : "1: a:write ";
    EXPECT_EQ(expected, served(loop, nullptr));

    m.now = nullptr;
    loop.refresh();
    EXPECT_EQ("1: a:write ", served(loop, nullptr)) << "it has none now";
}

TYPED_TEST(common, does_not_call_who_has_removed_itself)
{
    noting_hook exec;
    one_client<TypeParam> of(EV_READ | EV_WRITE);
    of.a.on_read = [&] { of.loop.remove(of.index); };
    set_exec(of.loop, exec);
    of.p.make_readable();
    calls.clear();
    EXPECT_GT(of.loop.wait(nullptr), 0);
    // dispatch_events goes on unless the result is negative.
    EXPECT_EQ((std::is_same<TypeParam, poller>::value ? "a:read a:write " : "a:read "), calls);
}

// What is added anew from inside takes part at once only where nothing else can be told.
TYPED_TEST(common, keeps_old_events_from_who_was_added_again)
{
    two_clients<TypeParam> of(EV_READ);
    int again = -1;
    of.a.on_read = [&] {
        of.loop.remove(of.second);
        again = of.loop.add(of.b, EV_READ);
    };
    of.make_both_readable();
    const bool is_told = std::is_same<TypeParam, selector>::value;
    EXPECT_EQ(is_told ? "2: a:read b:read " : "2: a:read ", served(of.loop, nullptr));
    EXPECT_EQ((std::is_same<TypeParam, epoller>::value), again != of.second);
    of.a.on_read = nullptr;
    EXPECT_EQ("2: a:read b:read ", served(of.loop, nullptr));
}

TYPED_TEST(common, may_be_destroyed_by_a_handler)
{
    static int deaths;
    struct mortal : client {
        TypeParam& loop;
        mortal(const char* n, Socket& s, TypeParam& l) : client(n, s), loop(l) {}
        ~mortal() override { ++deaths; }
        int do_read() override
        {
            loop.destroy();
            return -1;
        }
    };
    deaths = 0;
    socket_pair p[2];
    TypeParam loop(4);
    for (auto& pair : p) {
        loop.add(*new mortal("m", pair.here, loop), EV_READ | EV_WRITE);
        pair.make_readable();
    }
    calls.clear();
    EXPECT_GT(loop.wait(nullptr), 0);
    EXPECT_EQ(2, deaths);
    EXPECT_EQ("", calls);
    EXPECT_EQ(0u, loop.capacity());
}

TYPED_TEST(common, fails_when_a_watched_socket_is_closed)
{
    two_clients<TypeParam> of(EV_READ);
    EXPECT_EQ(0, of.loop.wait(&at_once));
    of.p[1].make_readable();
    Socket(of.p[0].here.get_socket()).close();
    EXPECT_LT(of.loop.wait(nullptr), 0);
    of.p[0].here.detach();
}

TYPED_TEST(common, reports_a_hang_up_to_readers_only)
{
    one_client<TypeParam> of(EV_ERROR);
    of.p.there.close();
    of.p.here.select(1, nullptr);
    const timeval limit = { 1, 0 };
    EXPECT_EQ("0: ", served(of.loop, &limit)) << "nobody asked for it";
    of.loop.set_events(of.index, EV_READ);
    EXPECT_EQ("1: a:read ", served(of.loop, nullptr));
}

TYPED_TEST(common, is_woken_from_another_thread)
{
    one_client<TypeParam> of(EV_READ);
    EXPECT_EQ(0, of.loop.wake());
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(0, of.loop.wait(&long_time)); }), 10) << "the next wait";
    EXPECT_EQ(0, of.loop.wait(&at_once)) << "once";
    std::thread other([&] { of.loop.wake(); });
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(0, of.loop.wait(&long_time)); }), 10);
    other.join();
    EXPECT_LT(TypeParam(0).wake(), 0);
}

TYPED_TEST(common, destroys_its_objects_only_when_told)
{
    static int deaths;
    struct mortal : client {
        using client::client;
        ~mortal() override { ++deaths; }
    };
    deaths = 0;
    socket_pair p;
    TypeParam loop(2);
    loop.add(*new mortal("m", p.here), EV_READ);
    loop.destroy();
    EXPECT_EQ(1, deaths);
    EXPECT_EQ(0u, loop.capacity());
    EXPECT_EQ(0, loop.create(3));
    EXPECT_EQ(3u, loop.capacity());
}

TYPED_TEST(common, serves_many_sockets_in_slot_order)
{
    const int many = 60;
    std::vector<std::unique_ptr<socket_pair>> pairs;
    std::vector<std::unique_ptr<client>> clients;
    TypeParam loop(many);
    std::string expected;
    for (int i = 0; i < many; ++i) {
        pairs.emplace_back(new socket_pair);
        clients.emplace_back(new client(std::to_string(i).c_str(), pairs.back()->here));
        ASSERT_EQ(i, loop.add(*clients.back(), EV_READ));
    }
    for (int i = 0; i < many; i += 7) {
        pairs[static_cast<unsigned>(i)]->make_readable();
        expected += std::to_string(i) + ":read ";
    }
    EXPECT_EQ("9: " + expected, served(loop, nullptr));
}

// ---- selector --------------------------------------------------------------------

namespace {

void count_call(void* counter) { ++*static_cast<int*>(counter); }

} // namespace

TEST(selector, without_interest_sleeps_between_its_callbacks)
{
    selector loop(2);
    int before = 0;
    int after = 0;
    loop.set_before_poll_cb(count_call, &before);
    loop.set_after_poll_cb(count_call, &after);
    const double ten = seconds_of([&] { EXPECT_EQ(0, loop.wait(nullptr)); });
    EXPECT_GE(ten, 0.005);
    EXPECT_LT(ten, 5);
    const timeval limit = { 0, 50000 };
    EXPECT_GE(seconds_of([&] { EXPECT_EQ(0, loop.wait(&limit)); }), 0.045);
    EXPECT_EQ(2, before);
    EXPECT_EQ(2, after);
    loop.wake();
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(0, loop.wait(&long_time)); }), 10);
}

// The sets are copied before the callback.
TEST(selector, watches_what_its_before_callback_adds_from_the_next_wait_on)
{
    struct late {
        selector loop { 4 };
        socket_pair p[2];
        client a { "a", p[0].here };
        client b { "b", p[1].here };
        int b_index = -1;

        static void add_b(void* self)
        {
            late& l = *static_cast<late*>(self);
            if (l.b_index < 0)
                l.b_index = l.loop.add(l.b, EV_WRITE);
        }
        static void empty(void* self) { static_cast<late*>(self)->loop.clear(); }
    } l;
    l.loop.add(l.a, EV_WRITE);
    l.loop.set_before_poll_cb(late::add_b, &l);
    EXPECT_EQ("1: a:write ", served(l.loop, &at_once));
    EXPECT_EQ(1, l.b_index);
    EXPECT_EQ("2: a:write b:write ", served(l.loop, &at_once));

    l.loop.set_before_poll_cb(late::empty, &l);
    EXPECT_EQ("0: ", served(l.loop, &at_once)) << "emptied before the wait";
}

TEST(selector, makes_three_separate_passes)
{
    two_clients<selector> of(EV_READ | EV_WRITE);
    of.a.read_result = -1;
    of.make_both_readable();
    EXPECT_EQ("4: a:read b:read a:write b:write ", served(of.loop, nullptr)) << "a negative result changes nothing";
}

TEST(selector, only_stores_its_exec_object)
{
    struct counter : exec_object {
        int calls = 0;
        int exec() override { return ++calls; }
    } exec;
    one_client<selector> of(EV_WRITE);
    EXPECT_EQ(nullptr, of.loop.get_exec_object());
    of.loop.set_exec_object(&exec);
    EXPECT_EQ(&exec, of.loop.get_exec_object());
    of.loop.wait(nullptr);
    EXPECT_EQ(0, exec.calls);
}

TEST(selector, takes_a_descriptor_out_for_everybody)
{
    socket_pair p;
    client a("a", p.here);
    client b("b", p.here);
    selector loop(4);
    loop.add(a, EV_WRITE);
    const int second = loop.add(b, EV_WRITE);
    EXPECT_EQ("1: a:write ", served(loop, &at_once)) << "one descriptor: a pass ends after n calls";
    loop.remove(second);
    // The set is empty, but two had asked and one was taken out: the interest stays.
    EXPECT_LT(loop.wait(&at_once), 0);
}

TEST(selector, reports_missing_memory_by_its_own_code)
{
    selector loop(2);
    EXPECT_EQ(err::out_of_memory, loop.expand(0xFFFFFFFFu));
    EXPECT_EQ(2u, loop.capacity());
}

// ---- poller ----------------------------------------------------------------------

namespace {

/// Writes down what it is dispatched with.
struct watcher : client {
    using client::client;
    void dispatch_events(int ready) override
    {
        calls += name + ":" + std::to_string(ready) + " ";
        if (on_read)
            on_read();
    }
};

} // namespace

TEST(poller, dispatches_every_object_also_with_0)
{
    socket_pair p[2];
    Socket none;
    watcher a("a", p[0].here);
    watcher b("b", p[1].here);
    watcher c("c", none);
    poller loop(4);
    loop.add(a, EV_READ);
    loop.add(b, EV_WRITE);
    loop.add(c, EV_READ);
    EXPECT_EQ("1: a:0 b:2 ", served(loop, nullptr)) << "an object without a descriptor is passed over";
    loop.set_events(1, EV_READ);
    EXPECT_EQ("0: ", served(loop, &at_once));
}

TEST(poller, dispatches_with_0_behind_a_handler_that_refreshes)
{
    socket_pair p[2];
    watcher a("a", p[0].here);
    watcher b("b", p[1].here);
    poller loop(2);
    loop.add(a, EV_READ);
    loop.add(b, EV_READ);
    p[0].make_readable();
    p[1].make_readable();
    EXPECT_EQ("2: a:1 b:1 ", served(loop, nullptr));
    a.on_read = [&] { loop.refresh(); };
    EXPECT_EQ("2: a:1 b:0 ", served(loop, nullptr));
}

TEST(poller, with_nothing_to_wait_for_fails_at_once)
{
    poller loop(2);
    int waited = 0;
    loop.setwaitcallback(count_call, &waited);
    EXPECT_EQ(-1, loop.wait(nullptr));
    EXPECT_EQ(1, waited);
    socket_pair p;
    client a("a", p.here);
    loop.add(a, 0);
    EXPECT_EQ(-1, loop.wait(nullptr));
    loop.clear();
    EXPECT_EQ(-1, loop.wait(nullptr)) << "without records too";
    EXPECT_EQ(3, waited);
}

TEST(poller, tells_all_objects_of_one_descriptor)
{
    socket_pair p;
    client a("a", p.here);
    client b("b", p.here);
    poller loop(2);
    loop.add(a, EV_WRITE);
    loop.add(b, EV_READ);
    EXPECT_EQ("1: a:write b:write ", served(loop, nullptr));
}

// What the records returned is replaced by each wait, also while a dispatch goes over them.
TEST(poller, goes_on_with_what_a_wait_inside_a_handler_returned)
{
    static const struct {
        void (*before)(socket_pair* p);
        int result;
        const char* calls;
    } cases[] = {
        { [](socket_pair*) {}, 2, "2: a:read a:read b:read b:read " },
        { [](socket_pair* p) { drain(p[0]); }, 1, "2: a:read b:read b:read " },
        { [](socket_pair* p) { drain(p[0]), drain(p[1]); }, 0, "2: a:read " },
        { [](socket_pair* p) { Socket(p[0].here.detach()).close(); }, -1, "2: a:read " },
    };
    for (const auto& c : cases) {
        two_clients<poller> of(EV_READ);
        of.make_both_readable();
        bool is_inside = false;
        of.a.on_read = [&] {
            if (is_inside)
                return;
            is_inside = true;
            c.before(of.p);
            EXPECT_EQ(c.result, of.loop.wait(&at_once));
        };
        EXPECT_EQ(c.calls, served(of.loop, nullptr));
    }
}

TEST(poller, stops_at_a_negative_result)
{
    one_client<poller> of(EV_READ | EV_WRITE);
    of.a.read_result = -1;
    of.p.make_readable();
    EXPECT_EQ("2: a:read ", served(of.loop, nullptr));
}

TEST(poller, waits_for_fractions_of_a_second)
{
    one_client<poller> of(EV_READ);
    const timeval limit = { 0, 300000 };
    const double waited = seconds_of([&] { EXPECT_EQ(0, of.loop.wait(&limit)); });
    EXPECT_GE(waited, 0.29);
    EXPECT_LT(waited, 5);
}

// ---- epoller ---------------------------------------------------------------------

TEST(epoller, counts_the_fraction_of_a_second_in_microseconds)
{
    one_client<epoller> of(EV_READ);
    const timeval limit = { 0, 900000 };
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(0, of.loop.wait(&limit)); }), 0.5);
}

TEST(epoller, never_gives_an_object_the_slot_it_has_just_left)
{
    socket_pair p;
    client a("a", p.here);
    client b("b", p.here);
    epoller loop(4);
    EXPECT_EQ(0, loop.add(a, EV_READ));
    loop.remove(0);
    EXPECT_EQ(1, loop.add(a, EV_READ));
    EXPECT_EQ(1u, loop.count());
    EXPECT_EQ(0, loop.add(b, EV_READ)) << "others may have it";
    epoller full(1);
    EXPECT_EQ(0, full.add(a, EV_READ));
    full.remove(0);
    EXPECT_EQ(0, full.add(a, EV_READ)) << "when there is no other";
}

TEST(epoller, runs_its_exec_object_behind_every_served_object)
{
    noting_hook exec;
    socket_pair p[2];
    client a("a", p[0].here);
    client b("b", p[1].here);
    epoller loop(4);
    loop.set_exec_object(&exec);
    EXPECT_EQ(&exec, loop.get_exec_object());
    loop.add(a, EV_WRITE);
    loop.add(b, EV_READ | EV_WRITE);
    b.read_result = -1;
    p[1].make_readable();
    EXPECT_EQ("2: a:write exec b:read ", served(loop, nullptr)) << "not behind one that failed";
    b.read_result = 0;
    b.write_result = -1;
    EXPECT_EQ("2: a:write exec b:read b:write ", served(loop, nullptr));
}

TEST(epoller, runs_its_exec_object_not_behind_an_exceptional_condition_that_failed)
{
    one_client<epoller> of(EV_ERROR);
    noting_hook hook;
    of.loop.set_exec_object(&hook);
    ASSERT_EQ(1, ::send(static_cast<int>(of.p.there.get_socket()), "!", 1, MSG_OOB));
    EXPECT_EQ(0, of.p.here.select(8, nullptr));
    EXPECT_EQ("1: a:error exec ", served(of.loop, nullptr));
    of.a.error_result = -1;
    EXPECT_EQ("1: a:error ", served(of.loop, nullptr));
}

TEST(epoller, exists_ten_times_at_most)
{
    std::vector<std::unique_ptr<epoller>> ten;
    for (int i = 0; i < 10; ++i) {
        ten.emplace_back(new epoller(1));
        ASSERT_EQ(1u, ten.back()->capacity());
    }
    epoller eleventh(0);
    EXPECT_EQ(-1, eleventh.create(1));
    EXPECT_EQ(0u, eleventh.capacity());
    ten.pop_back();
    EXPECT_EQ(0, eleventh.create(1));
}

TEST(epoller, does_not_watch_what_lies_beyond_its_first_size)
{
    socket_pair p[2];
    client a("a", p[0].here);
    client b("b", p[1].here);
    epoller loop(1);
    loop.add(a, EV_WRITE);
    EXPECT_EQ(0, loop.expand(2));
    EXPECT_EQ(1, loop.add(b, EV_WRITE));
    EXPECT_EQ("1: a:write ", served(loop, nullptr));
}

// Entries are found by their descriptor: the first is taken for the other.
TEST(epoller, confuses_two_objects_of_one_descriptor)
{
    socket_pair p;
    client a("a", p.here);
    client b("b", p.here);
    epoller loop(4);
    loop.add(a, EV_WRITE);
    const int second = loop.add(b, EV_WRITE);
    EXPECT_EQ("2: a:write b:write ", served(loop, nullptr));
    EXPECT_EQ(0, loop.remove(second));
    EXPECT_EQ("1: ", served(loop, nullptr)) << "what is left is the second entry, whose object is gone";
}

TEST(epoller, removing_after_closing_leaves_the_others_alone)
{
    socket_pair p;
    socket_pair q;
    client a("a", p.here);
    client b("b", q.here);
    epoller loop(4);
    const int first = loop.add(a, EV_READ);
    loop.add(b, EV_WRITE);
    p.here.close();
    EXPECT_EQ(0, loop.remove(first));
    EXPECT_EQ(&b, loop.get(1));
    EXPECT_LT(loop.wait(&at_once), 0) << "the closed descriptor is still in the list";
}

TEST(epoller, calls_its_callbacks_around_the_wait)
{
    epoller loop(1);
    int before = 0;
    int after = 0;
    loop.set_before_poll_cb(count_call, &before);
    loop.set_after_poll_cb(count_call, &after);
    EXPECT_EQ(-1, loop.wait(nullptr)) << "nothing to wait for";
    EXPECT_EQ(1, before);
    EXPECT_EQ(1, after);
}
