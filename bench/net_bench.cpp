// The event loops against libevent and libuv.
//
// Each benchmark watches the same connected pairs for reading through one loop: a few bytes
// that are passed on from pair to pair, one pair that stays readable, and registrations that
// come and go.
#include <stdkro/poller.h>
#include <stdkro/platform_types.h>

#include "net_peer_libevent.h"

#include <benchmark/benchmark.h>
#include <uv.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr unsigned most_pairs = 1000;

// Connected pairs. The watched ends have low numbers, which select wants.
struct pairs {
    int watched[most_pairs];
    int other[most_pairs];

    pairs()
    {
        for (unsigned i = 0; i < most_pairs; ++i) {
            int ends[2];
            if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) < 0) {
                std::fprintf(stderr, "net_bench: no more descriptors\n");
                std::exit(1);
            }
            watched[i] = ends[0];
            other[i] = fcntl(ends[1], F_DUPFD_CLOEXEC, 2000);
            close(ends[1]);
        }
        if (watched[most_pairs - 1] >= 1024 || other[most_pairs - 1] < 0) {
            std::fprintf(stderr, "net_bench: descriptors are taken\n");
            std::exit(1);
        }
    }
    pairs(const pairs&) = delete;
    pairs& operator=(const pairs&) = delete;
    ~pairs()
    {
        for (unsigned i = 0; i < most_pairs; ++i) {
            close(watched[i]);
            close(other[i]);
        }
    }
};

pairs& sockets()
{
    static pairs made;
    return made;
}

// The bytes on their way: each that arrives is passed on to the next pair as long as any are left to write.
struct relay {
    unsigned pair_count;
    unsigned to_write = 0;
    unsigned written = 0;
    unsigned arrived = 0;

    void write_to(unsigned pair) { written += ::write(sockets().other[pair % pair_count], "x", 1) == 1; }

    void read_from(unsigned pair)
    {
        char byte;
        arrived += ::read(sockets().watched[pair], &byte, 1) == 1;
        if (to_write == 0)
            return;
        --to_write;
        write_to(pair + 1);
    }
};

// What is watched: pair `number`, and what its reader does.
struct end {
    relay* bytes;
    unsigned number;
    bool leaves_unread;
    unsigned calls;

    void serve()
    {
        ++calls;
        if (!leaves_unread)
            bytes->read_from(number);
    }
};

// ---- the loops ------------------------------------------------------------------

template <class loop> class our_loop {
public:
    explicit our_loop(const char*, unsigned capacity) : loop_(capacity + 1), served_(capacity) {}
    void add(unsigned i, end& e)
    {
        served_[i].watched = &e;
        served_[i].index = loop_.add(served_[i], EV_READ);
    }
    void remove_and_add(unsigned i)
    {
        loop_.remove(served_[i].index);
        served_[i].index = loop_.add(served_[i], EV_READ);
    }
    void wait() { loop_.wait(nullptr); }

private:
    struct served : fdbase {
        end* watched = nullptr;
        int index = -1;

        int get_fd() override { return sockets().watched[watched->number]; }
        int get_events(int& events) override
        {
            events = EV_READ;
            return get_fd();
        }
        int do_read() override
        {
            watched->serve();
            return 0;
        }
    };
    loop loop_;
    std::vector<served> served_;
};

class libevent {
public:
    libevent(const char* method, unsigned capacity) : loop_(method, capacity) {}
    void add(unsigned, end& e)
    {
        loop_.add(sockets().watched[e.number], [](void* watched) { static_cast<end*>(watched)->serve(); }, &e);
    }
    void remove_and_add(unsigned i) { loop_.remove_and_add(static_cast<int>(i)); }
    void wait() { loop_.wait(); }

private:
    libevent_loop loop_;
};

class libuv {
public:
    libuv(const char*, unsigned capacity) : polls_(capacity) { uv_loop_init(&loop_); }
    libuv(const libuv&) = delete;
    libuv& operator=(const libuv&) = delete;
    ~libuv()
    {
        for (uv_poll_t& p : polls_)
            uv_close(reinterpret_cast<uv_handle_t*>(&p), nullptr);
        uv_run(&loop_, UV_RUN_DEFAULT);
        uv_loop_close(&loop_);
    }
    void add(unsigned i, end& e)
    {
        uv_poll_init(&loop_, &polls_[i], sockets().watched[e.number]);
        polls_[i].data = &e;
        start(i);
    }
    void remove_and_add(unsigned i)
    {
        uv_poll_stop(&polls_[i]);
        start(i);
    }
    void wait() { uv_run(&loop_, UV_RUN_ONCE); }

private:
    void start(unsigned i)
    {
        uv_poll_start(&polls_[i], UV_READABLE, [](uv_poll_t* p, int, int) { static_cast<end*>(p->data)->serve(); });
    }

    uv_loop_t loop_;
    std::vector<uv_poll_t> polls_;
};

// ---- the work -------------------------------------------------------------------

template <class loop> struct watched_pairs {
    relay bytes;
    loop served;
    std::vector<end> ends;

    watched_pairs(const char* method, unsigned pair_count)
        : bytes { pair_count }, served(method, pair_count), ends(pair_count)
    {
        for (unsigned i = 0; i < pair_count; ++i) {
            ends[i] = { &bytes, i, false, 0 };
            served.add(i, ends[i]);
        }
    }
};

// `active` bytes start at pairs evenly apart and are passed on until `writes` more have been written. How many
// arrived.
template <class loop> unsigned relay_once(watched_pairs<loop>& w, unsigned active, unsigned writes)
{
    w.bytes.to_write = writes;
    w.bytes.written = w.bytes.arrived = 0;
    for (unsigned i = 0; i < active; ++i)
        w.bytes.write_to(i * (w.bytes.pair_count / active));
    while (w.bytes.arrived < w.bytes.written)
        w.served.wait();
    return w.bytes.arrived;
}

template <class loop>
void relay_bytes(benchmark::State& state, const char* method, unsigned pair_count, unsigned active, unsigned writes)
{
    watched_pairs<loop> w(method, pair_count);
    // Some loops enter what they watch into the kernel when it is added, others at their first wait.
    relay_once(w, active, writes);
    for (auto _ : state)
        if (relay_once(w, active, writes) != active + writes)
            state.SkipWithError("bytes were lost");
}

// One pair stays readable: the cost of a wait and one call.
template <class loop> void find_one_ready(benchmark::State& state, const char* method)
{
    watched_pairs<loop> w(method, most_pairs);
    end& ready = w.ends[most_pairs / 2];
    ready.leaves_unread = true;
    w.bytes.write_to(ready.number);
    unsigned waits = 0;
    for (auto _ : state) {
        w.served.wait();
        ++waits;
    }
    if (ready.calls != waits)
        state.SkipWithError("not one call for each wait");
    w.bytes.read_from(ready.number);
}

// Registrations that come and go, in every part of the table.
template <class loop> void remove_and_add(benchmark::State& state, const char* method)
{
    watched_pairs<loop> w(method, most_pairs);
    w.bytes.write_to(0);
    w.served.wait();
    unsigned at = 0;
    for (auto _ : state) {
        at = (at + 389) % most_pairs;
        w.served.remove_and_add(at);
    }
    for (unsigned i = 0; i < most_pairs; ++i)
        w.bytes.write_to(i);
    while (w.bytes.arrived < w.bytes.written)
        w.served.wait();
    for (const end& e : w.ends)
        if (e.calls == 0)
            state.SkipWithError("a registration was lost");
}

// The sides are close, most of the time being the kernel's: many short rounds tell them apart.
void often(benchmark::internal::Benchmark* b) { b->MinTime(0.01)->Repetitions(61); }

template <class loop> void register_relays(const std::string& subject, const std::string& who, const char* method)
{
    for (const unsigned n : { 100u, 500u, 1000u }) {
        const std::string pairs = subject + "/" + std::to_string(n) + " pairs, ";
        often(benchmark::RegisterBenchmark((pairs + "1 active/" + who).c_str(), relay_bytes<loop>, method, n, 1u, 100u));
        often(benchmark::RegisterBenchmark((pairs + "a tenth active/" + who).c_str(), relay_bytes<loop>, method, n,
                                           n / 10, n));
    }
}

template <class loop> void register_epoll(const std::string& who, const char* method)
{
    register_relays<loop>("epoller", who, method);
    often(benchmark::RegisterBenchmark(("epoller/1 ready of 1000/" + who).c_str(), find_one_ready<loop>, method));
    often(benchmark::RegisterBenchmark(("epoller/remove and add among 1000/" + who).c_str(), remove_and_add<loop>,
                                       method));
}

const bool is_registered = [] {
    register_relays<our_loop<selector>>("selector", "ours", nullptr);
    register_relays<libevent>("selector", "libevent", "select");
    register_relays<our_loop<poller>>("poller", "ours", nullptr);
    register_relays<libevent>("poller", "libevent", "poll");
    register_epoll<our_loop<epoller>>("ours", nullptr);
    register_epoll<libevent>("libevent", "epoll");
    register_epoll<libuv>("libuv", nullptr);
    return true;
}();

} // namespace
