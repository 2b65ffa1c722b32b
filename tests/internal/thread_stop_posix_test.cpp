// Threads that stop one another, and threads that are stopped in the moment they are woken.
#include "../patience.h"
#include "platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <fstream>
#include <string>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int kill_code = 7;

// Who sends the signal that stops a thread waits for as many others to do the same.
std::atomic<int> senders_missing { 0 };

void meet_senders()
{
    if (senders_missing > 0) {
        --senders_missing;
        EXPECT_TRUE(eventually([] { return senders_missing == 0; }));
    }
}

// The thread that fell asleep last, and the first one woken while such are caught.
std::atomic<int> fell_asleep { 0 };
std::atomic<bool> catches { false };
std::atomic<int> caught { 0 };

void stay_if_caught()
{
    if (!catches.exchange(false))
        return;
    caught = gettid();
    for (;;)
        breathe();
}

// As if it went to a thread that died with its process.
std::atomic<bool> loses_wake_up { false };

} // namespace

extern "C" {

long __real_syscall(long number, ...);
long __wrap_syscall(long number, ...)
{
    va_list rest;
    va_start(rest, number);
    long a[6];
    for (long& argument : a)
        argument = va_arg(rest, long);
    va_end(rest);
    if (number == SYS_tgkill)
        meet_senders();
    const long command = number == SYS_futex ? a[1] & FUTEX_CMD_MASK : -1;
    if (command == FUTEX_WAIT_BITSET)
        fell_asleep = gettid();
    if (command == FUTEX_WAKE && loses_wake_up.exchange(false))
        return 0;
    const long r = __real_syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
    if (command == FUTEX_WAIT_BITSET && r == 0)
        stay_if_caught();
    return r;
}
}

namespace {

// A thread that calls `work` when it may go, tells when that is done, and lives on until it is killed.
struct stoppable {
    void start(void (*what)(stoppable&))
    {
        work = what;
        stoppable* self = this;
        ASSERT_EQ(sys_thread_start(run, &self, sizeof self, &handle, &id), 0);
        EXPECT_TRUE(eventually([&] { return runs.load(); }));
    }
    bool has_ended() const { return sys_thread_exit_code(handle) != sys_still_active; }
    void kill()
    {
        sys_thread_kill(handle, -1);
        EXPECT_EQ(sys_thread_wait(handle, 0), sys_wait_done);
        sys_thread_close(handle);
    }
    static void run(void* argument)
    {
        stoppable& self = **static_cast<stoppable**>(argument);
        self.runs = true;
        while (!self.may_go)
            breathe();
        self.work(self);
        self.done = true;
        for (;;)
            breathe();
    }

    void* handle = nullptr;
    int id = 0;
    stoppable* other = nullptr;
    void (*work)(stoppable&) = nullptr;
    std::atomic<bool> runs { false };
    std::atomic<bool> may_go { false };
    std::atomic<bool> done { false };
};

void kill_other(stoppable& self) { sys_thread_kill(self.other->handle, kill_code); }
void suspend_other(stoppable& self) { EXPECT_EQ(sys_thread_suspend(self.other->handle), 0); }

// Two that send their signals at the same moment. What hangs is left alone: it would hang us.
struct opponents {
    stoppable a, b;
    opponents(void (*work_of_a)(stoppable&), void (*work_of_b)(stoppable&))
    {
        a.other = &b;
        b.other = &a;
        a.start(work_of_a);
        b.start(work_of_b);
        senders_missing = 2;
        a.may_go = b.may_go = true;
    }
    void kill()
    {
        a.kill();
        b.kill();
    }
};

TEST(two_threads, kill_each_other)
{
    for (int i = 0; i < 5; ++i) {
        opponents& two = *new opponents(kill_other, kill_other);
        ASSERT_TRUE(eventually([&] { return two.a.has_ended() && two.b.has_ended(); }));
        EXPECT_EQ(sys_thread_exit_code(two.a.handle), kill_code);
        EXPECT_EQ(sys_thread_exit_code(two.b.handle), kill_code);
        two.kill();
        delete &two;
    }
}

TEST(two_threads, suspend_and_kill_each_other)
{
    for (int i = 0; i < 5; ++i) {
        opponents& two = *new opponents(suspend_other, kill_other);
        ASSERT_TRUE(eventually([&] { return two.a.has_ended(); }));
        EXPECT_EQ(sys_thread_exit_code(two.a.handle), kill_code);
        EXPECT_FALSE(two.b.has_ended());
        EXPECT_EQ(sys_thread_resume(two.b.handle), 1);
        EXPECT_TRUE(eventually([&] { return two.b.done.load(); }));
        two.kill();
        delete &two;
    }
}

// ---- stopped in the moment they are woken ---------------------------------

bool is_asleep(int id)
{
    std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
    std::string text;
    std::getline(file, text);
    const size_t end_of_name = text.rfind(") ");
    return fell_asleep == id && end_of_name != std::string::npos && text[end_of_name + 2] == 'S';
}

void fall_asleep(stoppable& r, void (*wait)(stoppable&))
{
    r.start(wait);
    fell_asleep = 0;
    r.may_go = true;
    EXPECT_TRUE(eventually([&] { return is_asleep(r.id); }));
}

// Two that sleep for the same. The first one woken is caught before it knows.
struct rivals {
    stoppable both[2];
    explicit rivals(void (*wait)(stoppable&))
    {
        for (stoppable& r : both)
            fall_asleep(r, wait);
        caught = 0;
        catches = true;
    }
    stoppable& first_woken()
    {
        EXPECT_TRUE(eventually([] { return caught != 0; }));
        return both[caught != both[0].id];
    }
};

// One of the two is woken by `give`, and stopped: the other one gets what they wait for.
void expect_other_served(void (*wait)(stoppable&), void (*hold)(), void (*give)())
{
    for (const bool is_killed : { true, false }) {
        SCOPED_TRACE(is_killed ? "killed" : "suspended");
        hold();
        rivals two(wait);
        give();
        stoppable& stopped = two.first_woken();
        if (is_killed)
            sys_thread_kill(stopped.handle, kill_code);
        else
            EXPECT_EQ(sys_thread_suspend(stopped.handle), 0);
        stoppable& other = two.both[&stopped == two.both];
        EXPECT_TRUE(eventually([&] { return other.done.load(); }));
        EXPECT_FALSE(stopped.done);
        stopped.kill();
        other.kill();
    }
}

void* section[6];
void* counts = nullptr;

void enter_and_leave(stoppable&)
{
    sys_critical_enter(section);
    sys_critical_leave(section);
}
void take(stoppable&) { EXPECT_EQ(sys_semaphore_wait(counts, sys_no_limit), sys_wait_done); }

TEST(a_thread_stopped_when_woken, leaves_a_section_to_another)
{
    sys_critical_open(section);
    expect_other_served(enter_and_leave, [] { sys_critical_enter(section); }, [] { sys_critical_leave(section); });
    sys_critical_close(section);
}

TEST(a_thread_stopped_when_woken, leaves_a_count_to_another)
{
    for (const char* name : { "", "stdkro stopped when woken" }) {
        SCOPED_TRACE(name);
        counts = sys_semaphore_open(name, 0, 1);
        expect_other_served(take, [] {}, [] { EXPECT_EQ(sys_semaphore_post(counts), 0); });
        sys_semaphore_close(counts);
    }
}

TEST(a_lost_wake_up, is_made_good_by_the_next_at_the_maximum)
{
    counts = sys_semaphore_open(nullptr, 0, 1);
    stoppable waiter;
    fall_asleep(waiter, take);
    loses_wake_up = true;
    EXPECT_EQ(sys_semaphore_post(counts), 0);
    EXPECT_EQ(sys_semaphore_post(counts), -1);
    EXPECT_TRUE(eventually([&] { return waiter.done.load(); }));
    waiter.kill();
    sys_semaphore_close(counts);
}

} // namespace
