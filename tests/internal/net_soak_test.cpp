// A thousand sockets and millions of events through each loop: the memory stays flat, and no
// descriptor is left open.
#include "../net_fixture.h"

#include <stdkro/poller.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <random>
#include <vector>

// ---- what is in use ------------------------------------------------------------------

namespace {

// Blocks taken and not given back.
std::atomic<long> live_blocks { 0 };

} // namespace

extern "C" {

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size)
{
    void* const block = __real_malloc(size);
    live_blocks += block != nullptr;
    return block;
}

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size)
{
    void* const block = __real_calloc(count, size);
    live_blocks += block != nullptr;
    return block;
}

void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size)
{
    void* const grown = __real_realloc(block, size);
    live_blocks += !block && grown;
    return grown;
}

void __real_free(void* block);
void __wrap_free(void* block)
{
    live_blocks -= block != nullptr;
    __real_free(block);
}

} // extern "C"

// Kept out of line: compilers take a known free for the wrong half of a pair.
__attribute__((noinline)) void* operator new(std::size_t size)
{
    void* const block = __wrap_malloc(size ? size : 1);
    if (!block)
        throw std::bad_alloc();
    return block;
}
__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return __wrap_malloc(size ? size : 1);
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
__attribute__((noinline)) void operator delete(void* block) noexcept { __wrap_free(block); }
void operator delete[](void* block) noexcept { operator delete(block); }
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
void operator delete[](void* block, std::size_t) noexcept { operator delete(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { operator delete(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { operator delete(block); }

namespace {

constexpr unsigned socket_count = 1000;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int cost_of_checks = 3;
#else
constexpr int cost_of_checks = 1;
#endif
// The full count where waits are cheap, and fewer where they are not.
constexpr long long events_of_each_loop = 10000000 / cost_of_checks / cost_of_waits;

/// A datagram socket; reads what comes and counts how often it is called.
struct member : fdbase {
    Socket socket;
    SockAddr address;
    int index = -1;
    int events = EV_READ;
    long long reads = 0;
    long long writes = 0;

    bool open()
    {
        return socket.create(2, 2, 0) == 0 && socket.bind(SockAddr("127.0.0.1", 0)) == 0 && socket.getself(address) == 0;
    }
    int get_fd() override { return static_cast<int>(socket.get_socket()); }
    int get_events(int& wanted) override
    {
        wanted = events;
        return get_fd();
    }
    int do_read() override
    {
        char byte;
        reads += socket.receive(&byte, 1) == 1;
        return 0;
    }
    int do_write() override
    {
        ++writes;
        return 0;
    }
};

/// The thousand in a loop. Most of them wait until they can be written to, which is always; all of
/// them to be read, which is when somebody sends. All the while sockets are closed and
/// others opened in their place.
template <class loop_type> class crowd {
public:
    crowd() : loop_(socket_count + 1)
    {
        EXPECT_EQ(0, sender_.create(2, 2, 0));
        for (unsigned i = 0; i < socket_count; ++i) {
            members_[i].events = any_events();
            enter(members_[i]);
        }
    }

    /// One wait, and how many events it brought.
    long long round()
    {
        for (int i = 0; i < 16; ++i)
            sent_ += sender_.send_to(&any().address, "x", 1) == 1;
        replace(any());
        change(any());
        const long long before = served();
        EXPECT_GT(loop_.wait(nullptr), 0);
        return served() - before;
    }

    /// Reads on until nothing comes any more. Datagrams that wait in a socket that is
    /// closed are lost with it.
    void finish()
    {
        for (member& m : members_)
            EXPECT_EQ(0, loop_.set_events(m.index, EV_READ));
        const timeval at_once = { 0, 0 };
        while (loop_.wait(&at_once) > 0) {
        }
        for (const member& m : members_)
            reads_ += m.reads;
        EXPECT_LE(reads_, sent_);
        EXPECT_GE(reads_, sent_ - sent_ / 100);
        EXPECT_EQ(socket_count, loop_.count());
    }

private:
    member& any() { return members_[random_() % socket_count]; }

    int any_events() { return random_() % 8 == 0 ? EV_READ : EV_READ | EV_WRITE; }

    void enter(member& m)
    {
        EXPECT_TRUE(m.open());
        m.index = loop_.add(m, m.events);
        EXPECT_GE(m.index, 0);
    }

    void replace(member& m)
    {
        EXPECT_EQ(0, loop_.remove(m.index));
        m.socket.close();
        enter(m);
    }

    void change(member& m)
    {
        m.events = any_events();
        EXPECT_EQ(0, loop_.set_events(m.index, m.events));
    }

    long long served() const
    {
        long long all = 0;
        for (const member& m : members_)
            all += m.reads + m.writes;
        return all;
    }

    loop_type loop_;
    Socket sender_;
    member members_[socket_count];
    std::mt19937 random_ { 5 };
    long long sent_ = 0;
    long long reads_ = 0;
};

} // namespace

template <class loop> struct soak : testing::Test { };
using loops = testing::Types<selector, poller, epoller>;
TYPED_TEST_SUITE(soak, loops);

TYPED_TEST(soak, leaves_memory_and_descriptors_as_they_were)
{
    // What the system and the libraries set up once.
    std::unique_ptr<crowd<TypeParam>>(new crowd<TypeParam>)->round();
    const long blocks = live_blocks;
    const long descriptors = open_descriptors();
    {
        std::unique_ptr<crowd<TypeParam>> all(new crowd<TypeParam>);
        long long events = 0;
        for (int i = 0; i < 20; ++i)
            events += all->round();
        const long blocks_in_use = live_blocks;
        const long descriptors_in_use = open_descriptors();
        EXPECT_GE(descriptors_in_use, descriptors + static_cast<long>(socket_count));
        while (events < events_of_each_loop) {
            events += all->round();
            ASSERT_FALSE(this->HasFailure());
            ASSERT_EQ(blocks_in_use, live_blocks) << "after " << events << " events";
        }
        EXPECT_EQ(descriptors_in_use, open_descriptors());
        all->finish();
    }
    EXPECT_EQ(descriptors, open_descriptors());
    EXPECT_EQ(blocks, live_blocks);
}
