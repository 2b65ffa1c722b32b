// Signals, and a system without threads: what the POSIX side of the door makes of them.
#include "../patience.h"
#include "allocation_failure.h"
#include "platform.h"

#include <stdkro/platform_types.h>
#include <stdkro/thread.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>
#include <vector>

#include <pthread.h>

namespace {

bool no_threads = false;
std::atomic<bool> slow_ids { false };
std::atomic<bool> no_values { false };

} // namespace

extern "C" {

int __real_pthread_create(pthread_t* made, const pthread_attr_t* how, void* (*run)(void*), void* argument);
int __wrap_pthread_create(pthread_t* made, const pthread_attr_t* how, void* (*run)(void*), void* argument)
{
    return no_threads ? EAGAIN : __real_pthread_create(made, how, run, argument);
}

// Asked for the number of a thread.
int __real_pthread_getcpuclockid(pthread_t thread, clockid_t* clock);
int __wrap_pthread_getcpuclockid(pthread_t thread, clockid_t* clock)
{
    if (slow_ids)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return __real_pthread_getcpuclockid(thread, clock);
}

// Asked for a value whose destructor tells the end of a thread.
int __real_pthread_setspecific(pthread_key_t key, const void* value);
int __wrap_pthread_setspecific(pthread_key_t key, const void* value)
{
    return no_values ? ENOMEM : __real_pthread_setspecific(key, value);
}
}

namespace {

using worker = ::thread;

// Counts for as long as it is told to, and watches its errno.
struct counter {
    std::atomic<unsigned> turns { 0 };
    std::atomic<bool> goes_on { true };
    std::atomic<bool> errno_changed { false };
    worker w;

    static void run(worker*, void* argument, void*)
    {
        counter& with = *static_cast<counter*>(argument);
        while (with.goes_on) {
            errno = 77;
            const unsigned last = with.turns;
            for (int i = 0; i < 1000; ++i)
                ++with.turns;
            if (errno != 77 || with.turns == last)
                with.errno_changed = true;
            breathe();
        }
    }
    int start() { return w.start(this, run, nullptr); }
    bool runs()
    {
        const unsigned before = turns;
        return eventually([&] { return turns != before; });
    }
    ~counter()
    {
        goes_on = false;
        w.wait_done();
    }
};

std::atomic<int> signals_seen { 0 };
void see_signal(int) { ++signals_seen; }

// Handles a signal while it lives; system calls that it interrupts fail.
class handled_signal {
public:
    explicit handled_signal(int number) : number_(number)
    {
        struct sigaction action = {};
        action.sa_handler = see_signal;
        sigaction(number, &action, &before_);
    }
    ~handled_signal() { sigaction(number_, &before_, nullptr); }

private:
    int number_;
    struct sigaction before_;
};

bool is_default(int number)
{
    struct sigaction now;
    return sigaction(number, nullptr, &now) == 0 && now.sa_handler == SIG_DFL;
}

// First of all: the others use the signal.
TEST(without_a_free_signal, a_thread_is_not_suspended_and_goes_on)
{
    std::vector<std::unique_ptr<handled_signal>> all;
    for (int number = SIGRTMIN; number <= SIGRTMAX; ++number)
        all.emplace_back(new handled_signal(number));
    counter c;
    ASSERT_EQ(c.start(), 0);
    EXPECT_EQ(c.w.suspend(), -1);
    EXPECT_EQ(sys_last_error(), ESRCH);
    EXPECT_EQ(c.w.resume(), 0) << "it was not counted";
    EXPECT_TRUE(c.runs());
}

TEST(stop_signal, is_taken_at_the_first_use_and_never_from_somebody)
{
    const int preferred = SIGRTMAX - 7;
    {
        counter c;
        ASSERT_EQ(c.start(), 0);
        EXPECT_TRUE(c.runs());
    }
    EXPECT_TRUE(is_default(preferred)) << "nobody was stopped yet";
    const handled_signal other(preferred);
    counter c;
    ASSERT_EQ(c.start(), 0);
    EXPECT_EQ(c.w.suspend(), 0);
    EXPECT_FALSE(is_default(preferred - 1)) << "the next one below";
    EXPECT_TRUE(is_default(preferred - 2));
    EXPECT_EQ(c.w.resume(), 1);
    signals_seen = 0;
    raise(preferred);
    EXPECT_EQ(signals_seen, 1) << "still its owner's";
}

TEST(stop_signal, leaves_errno_alone)
{
    counter c;
    ASSERT_EQ(c.start(), 0);
    ASSERT_TRUE(c.runs());
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(c.w.suspend(), 0);
        ASSERT_EQ(c.w.resume(), 1);
    }
    EXPECT_TRUE(c.runs());
    EXPECT_FALSE(c.errno_changed);
}

TEST(stop_signal, reaches_a_thread_whose_maker_blocks_all)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    counter c;
    const int r = c.start();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ASSERT_EQ(r, 0);
    EXPECT_EQ(c.w.suspend(), 0);
    EXPECT_EQ(c.w.resume(), 1);
    EXPECT_TRUE(c.runs());
    c.w.terminate();
}

TEST(a_thread, inherits_what_its_maker_blocks)
{
    sigset_t some, before, seen;
    sigemptyset(&some);
    sigaddset(&some, SIGUSR2);
    sigemptyset(&seen);
    pthread_sigmask(SIG_BLOCK, &some, &before);
    worker w;
    const auto look = [](worker*, void* mask, void*) {
        pthread_sigmask(SIG_SETMASK, nullptr, static_cast<sigset_t*>(mask));
    };
    ASSERT_EQ(w.start(&seen, look, nullptr), 0);
    w.wait_done();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(sigismember(&seen, SIGUSR2), 1);
    EXPECT_EQ(sigismember(&seen, SIGUSR1), 0);
}

TEST(a_thread, knows_its_id_however_long_telling_it_takes)
{
    // The starter and the thread both go to tell it: the second one waits for the first.
    slow_ids = true;
    for (int i = 0; i < 5; ++i) {
        struct seen_by_thread { int id = 0; bool valid = false; } seen;
        const auto look = [](worker* self, void* argument, void*) {
            *static_cast<seen_by_thread*>(argument) = { self->get_id(), self->is_activated() };
        };
        worker w;
        ASSERT_EQ(w.start(&seen, look, nullptr), 0);
        const int id = w.get_id();
        w.wait_done();
        EXPECT_GT(id, 0);
        EXPECT_EQ(seen.id, id);
        EXPECT_TRUE(seen.valid);
    }
    slow_ids = false;
}

// Sends a signal to its maker again and again.
class pestering {
public:
    pestering() : handled_(SIGUSR1), victim_(pthread_self()), sender_([this] {
                      while (goes_on_) {
                          pthread_kill(victim_, SIGUSR1);
                          std::this_thread::sleep_for(std::chrono::milliseconds(1));
                      }
                  })
    {
    }
    ~pestering()
    {
        goes_on_ = false;
        sender_.join();
    }

private:
    handled_signal handled_;
    pthread_t victim_;
    std::atomic<bool> goes_on_ { true };
    std::thread sender_;
};

TEST(waits, go_on_after_a_signal_of_the_program)
{
    timeval limit = {};
    limit.tv_usec = 200; // milliseconds here
    counter c;
    sync_sem never(0, 1);
    ASSERT_EQ(c.start(), 0);
    signals_seen = 0;
    {
        const pestering signals;
        timer t;
        EXPECT_FALSE(never.lock(&limit));
        EXPECT_GE(t.spend(), 195.0) << "the whole limit";
        worker* both[2] = { &c.w, nullptr };
        worker idle;
        both[1] = &idle;
        ASSERT_EQ(idle.start(), 0);
        t.reset();
        EXPECT_EQ(worker::wait_all_done(both, 2, &limit), err::timeout);
        EXPECT_GE(t.spend(), 195.0);
        EXPECT_TRUE(eventually([] { return signals_seen > 10; }));
    }
    EXPECT_TRUE(c.runs());
}

TEST(waits, for_a_section_go_on_after_a_signal_of_the_program)
{
    struct shared { sync_critical section; std::atomic<int> stage { 0 }; } s;
    const auto hold = [](worker*, void* argument, void*) {
        shared& with = *static_cast<shared*>(argument);
        smart_lock guard(with.section);
        with.stage = 1;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        with.stage = 2;
    };
    worker w;
    ASSERT_EQ(w.start(&s, hold, nullptr), 0);
    EXPECT_TRUE(eventually([&] { return s.stage > 0; }));
    {
        const pestering signals;
        smart_lock guard(s.section);
        EXPECT_EQ(s.stage, 2);
    }
    w.wait_done();
}

TEST(a_section, left_locked_by_a_thread_that_ended_is_nobody_elses)
{
    struct shared { sync_critical section; std::atomic<bool> entered { false }; } s;
    const auto run = [&](worker::function f) {
        worker w;
        ASSERT_EQ(w.start(&s, f, nullptr), 0);
        w.wait_done();
    };
    run([](worker*, void* argument, void*) { static_cast<shared*>(argument)->section.lock(); });
    // Some of them get the stack of the first one, and its thread-local memory.
    for (int i = 0; i < 50; ++i)
        run([](worker*, void* argument, void*) { static_cast<shared*>(argument)->section.unlock(); });
    worker late;
    const auto enter = [](worker*, void* argument, void*) {
        shared& with = *static_cast<shared*>(argument);
        with.section.lock();
        with.entered = true;
    };
    ASSERT_EQ(late.start(&s, enter, nullptr), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(s.entered);
    late.terminate();
}

TEST(suspend, is_not_hung_by_a_resume_that_overtakes_it)
{
    counter c;
    ASSERT_EQ(c.start(), 0);
    std::atomic<bool> goes_on { true };
    std::thread resuming([&] {
        while (goes_on)
            c.w.resume();
    });
    for (int i = 0; i < 120; ++i) // below the most that are counted, should nobody resume
        EXPECT_GE(c.w.suspend(), 0);
    goes_on = false;
    resuming.join();
    while (c.w.resume() > 0) {
    }
    EXPECT_TRUE(c.runs());
}

TEST(suspend, counts_what_several_threads_ask_for)
{
    counter c;
    ASSERT_EQ(c.start(), 0);
    const auto suspend_often = [&] {
        for (int i = 0; i < 30; ++i)
            EXPECT_GE(c.w.suspend(), 0);
    };
    std::thread first(suspend_often), second(suspend_often);
    first.join();
    second.join();
    for (int i = 60; i > 0; --i)
        ASSERT_EQ(c.w.resume(), i);
    EXPECT_EQ(c.w.resume(), 0);
    EXPECT_TRUE(c.runs());
}

TEST(without_threads, start_fails_and_leaves_nothing)
{
    counter c;
    const long before = allocation_failure::living();
    no_threads = true;
    EXPECT_EQ(c.start(), err::failed);
    no_threads = false;
    EXPECT_EQ(sys_last_error(), EAGAIN);
    EXPECT_FALSE(c.w.is_valid());
    EXPECT_EQ(allocation_failure::living(), before);
    EXPECT_EQ(c.start(), 0);
    EXPECT_TRUE(c.runs());
}

TEST(without_thread_values, threads_tell_their_ends_and_leave_nothing)
{
    const long before = allocation_failure::living();
    no_values = true;
    for (int i = 0; i < 50; ++i) {
        worker w;
        std::atomic<bool> ran { false };
        const auto run = [](worker*, void* argument, void*) { *static_cast<std::atomic<bool>*>(argument) = true; };
        ASSERT_EQ(w.start(&ran, run, nullptr), 0);
        EXPECT_TRUE(eventually([&] { return !w.is_activated(); }));
        EXPECT_TRUE(ran);
        EXPECT_EQ(w.suspend(), -1) << "it has ended";
        w.wait_done();
    }
    no_values = false;
    // Threads of other tests may have ended meanwhile.
    EXPECT_TRUE(eventually([&] { return allocation_failure::living() <= before; }));
}

} // namespace
