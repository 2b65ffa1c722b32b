// Threads that stop one another.
#include "../patience.h"
#include "platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>

#include <sys/syscall.h>

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
    return __real_syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
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

} // namespace
