// The platform door: threads and locks. One test for each contract.
#include "../patience.h"
#include "handle_table.h"
#include "platform.h"
#include "time_limit.h"

#include <stdkro/platform_types.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstring>
#include <thread>

namespace {

struct call {
    void (*run)(void*);
    void* argument;
};

// Starts a thread that calls `run(argument)`.
int start(void (*run)(void*), void* argument, void** handle, int* id)
{
    const call made = { run, argument };
    const auto make_call = [](void* copy) { static_cast<call*>(copy)->run(static_cast<call*>(copy)->argument); };
    return sys_thread_start(make_call, &made, sizeof made, handle, id);
}

struct running {
    void* handle = nullptr;
    int id = 0;
    running(void (*run)(void*), void* argument) { EXPECT_EQ(start(run, argument, &handle, &id), 0); }
    running(const running&) = delete;
    running& operator=(const running&) = delete;
    ~running()
    {
        sys_thread_wait(handle, sys_no_limit);
        sys_thread_close(handle);
    }
};

TEST(door, ticks_only_grow)
{
    const double before = sys_ticks();
    EXPECT_GT(sys_ticks_per_second(), 0.0);
    EXPECT_TRUE(eventually([&] { return sys_ticks() > before; }));
}

TEST(door, the_last_error_belongs_to_the_thread)
{
    EXPECT_EQ(sys_semaphore_post(nullptr), -1);
    EXPECT_NE(sys_last_error(), 0);
    int there = 1;
    running t([](void* seen) { *static_cast<int*>(seen) = sys_last_error(); }, &there);
    sys_thread_wait(t.handle, sys_no_limit);
    EXPECT_EQ(there, 0);
}

TEST(door, a_critical_section_is_recursive_and_only_its_holder_leaves)
{
    struct shared { void* section[6]; std::atomic<int> stage { 0 }; } s;
    sys_critical_open(s.section);
    sys_critical_leave(s.section); // nobody holds it
    sys_critical_enter(s.section);
    sys_critical_enter(s.section);
    {
        running t([](void* argument) {
            shared& with = *static_cast<shared*>(argument);
            sys_critical_leave(with.section); // not its own
            with.stage = 1;
            sys_critical_enter(with.section);
            with.stage = 2;
            sys_critical_leave(with.section);
        }, &s);
        EXPECT_TRUE(eventually([&] { return s.stage == 1; }));
        sys_critical_leave(s.section);
        EXPECT_EQ(sys_thread_wait(t.handle, 20), sys_wait_timeout);
        EXPECT_EQ(s.stage, 1) << "entered twice, left once";
        sys_critical_leave(s.section);
    }
    EXPECT_EQ(s.stage, 2);
    sys_critical_close(s.section);
}

TEST(door, a_semaphore_counts_up_to_its_maximum)
{
    void* s = sys_semaphore_open(nullptr, 1, 2);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(sys_semaphore_wait(s, 0), sys_wait_done);
    EXPECT_EQ(sys_semaphore_wait(s, 0), sys_wait_timeout);
    EXPECT_EQ(sys_semaphore_wait(s, 5), sys_wait_timeout);
    EXPECT_EQ(sys_semaphore_post(s), 0);
    EXPECT_EQ(sys_semaphore_post(s), 0);
    EXPECT_EQ(sys_semaphore_post(s), -1);
    EXPECT_EQ(sys_semaphore_wait(s, sys_no_limit), sys_wait_done);
    sys_semaphore_close(s);
}

TEST(door, a_closed_semaphore_fails)
{
    // The first failure lets the runtime open handles for this thread: later it could take the
    // closed one.
    EXPECT_EQ(sys_semaphore_wait(nullptr, 0), sys_wait_failed);
    void* s = sys_semaphore_open("", 1, 1);
    ASSERT_NE(s, nullptr);
    sys_semaphore_close(s);
    sys_semaphore_close(s);
    sys_semaphore_close(nullptr);
    EXPECT_EQ(sys_semaphore_wait(s, 0), sys_wait_failed);
    EXPECT_EQ(sys_semaphore_post(s), -1);
}

TEST(door, who_waits_for_a_closed_semaphore_is_left_alone)
{
    struct shared { void* sem; std::atomic<int> stage { 0 }; } s;
    s.sem = sys_semaphore_open("stdkro door closed", 0, 1);
    ASSERT_NE(s.sem, nullptr);
    running t([](void* argument) {
        shared& with = *static_cast<shared*>(argument);
        with.stage = 1;
        EXPECT_EQ(sys_semaphore_wait(with.sem, 1000), sys_wait_timeout);
    }, &s);
    EXPECT_TRUE(eventually([&] { return s.stage == 1; }));
    EXPECT_EQ(sys_thread_wait(t.handle, 20), sys_wait_timeout) << "asleep by now";
    sys_semaphore_close(s.sem);
}

TEST(door, handle_and_id_stand_before_a_thread_runs)
{
    struct shared { void* handle = nullptr; int id = 0; int seen_id = 0; bool same = false; } s;
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(start([](void* argument) {
            shared& with = *static_cast<shared*>(argument);
            with.seen_id = with.id;
            with.same = with.id == sys_thread_self() && with.handle;
        }, &s, &s.handle, &s.id), 0);
        EXPECT_EQ(sys_thread_wait(s.handle, sys_no_limit), sys_wait_done);
        EXPECT_TRUE(s.same);
        EXPECT_EQ(s.seen_id, s.id);
        EXPECT_GT(s.id, 0);
        EXPECT_EQ(sys_thread_exit_code(s.handle), 0);
        sys_thread_close(s.handle);
        s = shared();
    }
}

TEST(door, a_thread_gets_a_copy_of_what_it_is_given)
{
    struct given { const char* text; std::atomic<bool>* go; std::atomic<int>* sum; const char* other; };
    static_assert(sizeof(given) == sys_most_thread_argument, "the most that may be given");
    std::atomic<bool> go { false };
    std::atomic<int> sum { 0 };
    given g = { "abc", &go, &sum, "d" };
    void* handle = nullptr;
    int id = 0;
    ASSERT_EQ(sys_thread_start([](void* argument) {
        const given& mine = *static_cast<given*>(argument);
        while (!*mine.go)
            breathe();
        *mine.sum = static_cast<int>(std::strlen(mine.text) * 10 + std::strlen(mine.other));
    }, &g, sizeof g, &handle, &id), 0);
    g = given();
    go = true;
    EXPECT_EQ(sys_thread_wait(handle, sys_no_limit), sys_wait_done);
    EXPECT_EQ(sum, 31);
    sys_thread_close(handle);
}

TEST(door, handle_and_id_are_not_touched_afterwards)
{
    struct shared { void* handle; int id; std::atomic<bool> taken { false }; };
    for (int i = 0; i < 200; ++i) {
        shared s;
        ASSERT_EQ(start([](void* argument) {
            shared& with = *static_cast<shared*>(argument);
            sys_thread_close(with.handle);
            with.handle = nullptr;
            with.id = 0;
            with.taken = true;
        }, &s, &s.handle, &s.id), 0);
        EXPECT_TRUE(eventually([&] { return s.taken.load(); }));
        EXPECT_EQ(s.handle, nullptr);
        EXPECT_EQ(s.id, 0);
    }
}

TEST(door, a_finished_thread_stays_as_it_is)
{
    running t([](void*) {}, nullptr);
    EXPECT_EQ(sys_thread_wait(t.handle, sys_no_limit), sys_wait_done);
    EXPECT_EQ(sys_thread_resume(t.handle), -1);
    EXPECT_EQ(sys_thread_suspend(t.handle), -1);
    sys_thread_kill(t.handle, 5);
    EXPECT_EQ(sys_thread_exit_code(t.handle), 0);
    sys_thread_close(nullptr);
}

// Windows warns of killing a thread that is still in the loader's hands.
bool starts_in_the_loader() { return sys_module_load("kernel32.dll") != nullptr; }

TEST(door, a_thread_can_be_killed_before_it_began)
{
    if (starts_in_the_loader())
        GTEST_SKIP();
    static std::atomic<unsigned> turns;
    for (int i = 0; i < 200; ++i) {
        running t([](void* count) {
            for (;; breathe())
                ++*static_cast<std::atomic<unsigned>*>(count);
        }, &turns);
        sys_thread_kill(t.handle, 5);
        EXPECT_EQ(sys_thread_wait(t.handle, sys_no_limit), sys_wait_done);
        EXPECT_EQ(sys_thread_exit_code(t.handle), 5);
    }
}

// It is not to look at itself: where thread-local memory is emulated, as on 32-bit Windows,
// the runtime frees the object before it calls the destructor.
std::atomic<int> ends { 0 };
struct counts_its_end {
    void touch() {}
    ~counts_its_end() { ++ends; }
};
thread_local counts_its_end at_thread_end;

TEST(door, a_wait_sees_thread_local_objects_destroyed)
{
    for (void (*leave)() : { +[] {}, +[] { sys_thread_exit(3); } }) {
        ends = 0;
        for (int i = 1; i <= 20; ++i) {
            running t([](void* argument) {
                at_thread_end.touch();
                (*static_cast<void (**)()>(argument))();
            }, &leave);
            EXPECT_EQ(sys_thread_wait(t.handle, sys_no_limit), sys_wait_done);
            EXPECT_EQ(ends, i);
        }
    }
}

TEST(door, exit_codes)
{
    for (int code : { 0, 1, -1, 259, INT_MIN, INT_MAX }) {
        running t([](void* argument) { sys_thread_exit(*static_cast<int*>(argument)); }, &code);
        EXPECT_EQ(sys_thread_wait(t.handle, sys_no_limit), sys_wait_done);
        EXPECT_EQ(sys_thread_exit_code(t.handle), code);
    }
    std::atomic<unsigned> turns { 0 };
    running busy([](void* argument) {
        for (;; breathe())
            ++*static_cast<std::atomic<unsigned>*>(argument);
    }, &turns);
    EXPECT_TRUE(eventually([&] { return turns > 0; }));
    EXPECT_EQ(sys_thread_exit_code(busy.handle), sys_still_active);
    sys_thread_kill(busy.handle, -1);
    EXPECT_EQ(sys_thread_exit_code(busy.handle), -1);
    EXPECT_EQ(sys_thread_wait(busy.handle, 0), sys_wait_done);
}

TEST(door, waits_for_many_threads)
{
    std::atomic<bool> go { false };
    void* list[63];
    for (void*& t : list) {
        int id;
        ASSERT_EQ(start([](void* argument) {
            while (!*static_cast<std::atomic<bool>*>(argument))
                breathe();
        }, &go, &t, &id), 0);
    }
    EXPECT_EQ(sys_thread_wait_all(list, 63, 5), sys_wait_timeout);
    go = true;
    EXPECT_EQ(sys_thread_wait_all(list, 63, sys_no_limit), 0);
    for (void* t : list) {
        EXPECT_NE(sys_thread_exit_code(t), sys_still_active);
        sys_thread_close(t);
    }
}

TEST(door, a_killed_thread_sends_nobody_to_sleep)
{
    // Killing again and again, at whatever point of its work the thread is.
    for (int i = 0; i < 100; ++i) {
        std::atomic<unsigned> turns { 0 };
        int id;
        void* t;
        ASSERT_EQ(start([](void* argument) {
            for (;; breathe())
                ++*static_cast<std::atomic<unsigned>*>(argument);
        }, &turns, &t, &id), 0);
        ASSERT_TRUE(eventually([&] { return turns > 0; }));
        if (i % 3 == 0)
            sys_thread_suspend(t);
        sys_thread_kill(t, -1);
        const unsigned stopped_at = turns;
        EXPECT_EQ(sys_thread_wait(t, 0), sys_wait_done);
        sys_thread_close(t);
        EXPECT_EQ(turns, stopped_at);
    }
}

// ---- limits ----------------------------------------------------------------

TEST(time_limit, is_computed_wide_and_clamped)
{
    constexpr unsigned most = sys_no_limit - 1;
    static const struct { long seconds, microseconds; unsigned divided, as_they_are; } cases[] = {
        { 0, 0, 0, 0 },
        { 0, 999, 0, 999 },
        { 0, 1000, 1, 1000 },
        { 2, 500000, 2500, 502000 },
        // Negative counts as zero, in the sum.
        { -1, 0, 0, 0 },
        { -1, 999999, 0, 998999 },
        { 1, -1, 1000, 999 },
        { 1, -5000000, 0, 0 },
        { LONG_MIN, LONG_MIN, 0, 0 },
        // 49 days are the end.
        { 4294967, 294000, most, most },
        { 4294967, 293000, 4294967293u, most },
        { LONG_MAX, 0, most, most },
    };
    for (const auto& c : cases) {
        timeval t;
        t.tv_sec = c.seconds;
        t.tv_usec = c.microseconds;
        EXPECT_EQ(limit_in_ms(&t, as_microseconds), c.divided) << c.seconds << " " << c.microseconds;
        EXPECT_EQ(limit_in_ms(&t, as_milliseconds), c.as_they_are) << c.seconds << " " << c.microseconds;
    }
    EXPECT_EQ(limit_in_ms(nullptr, as_microseconds), sys_no_limit);
}

// ---- handles that stay safe ------------------------------------------------

TEST(handle_table, tells_closed_handles_from_open_ones)
{
    static handle_table<int> table;
    EXPECT_EQ(table.find(nullptr), nullptr);
    void* first = table.add(1);
    void* second = table.add(2);
    ASSERT_TRUE(first && second);
    ASSERT_NE(table.find(first), nullptr);
    EXPECT_EQ(*table.find(first), 1);
    EXPECT_EQ(*table.find(second), 2);
    int value = 0;
    EXPECT_TRUE(table.remove(first, &value));
    EXPECT_EQ(value, 1);
    EXPECT_FALSE(table.remove(first, &value)) << "twice";
    EXPECT_EQ(table.find(first), nullptr);
    void* third = table.add(3);
    EXPECT_NE(third, first) << "the same slot, another handle";
    EXPECT_EQ(table.find(first), nullptr);
    EXPECT_EQ(*table.find(third), 3);
}

TEST(handle_table, knows_a_closed_handle_for_a_long_time)
{
    static handle_table<int> table;
    void* closed = table.add(1);
    int value = 0;
    ASSERT_TRUE(table.remove(closed, &value));
    for (int i = 0; i < 255; ++i) {
        void* handle = table.add(i);
        EXPECT_EQ(table.find(closed), nullptr) << i;
        EXPECT_FALSE(table.remove(closed, &value)) << i;
        ASSERT_TRUE(table.remove(handle, &value));
        EXPECT_EQ(value, i);
    }
}

} // namespace
