// Threads, processes, shared memory and modules when the system gives nothing:
// no memory, no threads, no descriptors.
#include "allocation_failure.h"
#include "platform.h"

#include <stdkro/process.h>
#include <stdkro/thread.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

namespace {

constexpr int code(unsigned c) { return static_cast<int>(c); }

// While it lives, the functions of the door that are wrapped below fail.
bool system_fails = false;
struct failing_system {
    failing_system() { system_fails = true; }
    ~failing_system() { system_fails = false; }
};

} // namespace

extern "C" {

int __real_sys_thread_start(void (*run)(void*), const void* argument, unsigned size, void** handle, int* id);
int __wrap_sys_thread_start(void (*run)(void*), const void* argument, unsigned size, void** handle, int* id)
{
    if (!system_fails)
        return __real_sys_thread_start(run, argument, size, handle, id);
    *handle = nullptr;
    *id = 77; // whatever a failed call leaves
    return -1;
}

void* __real_sys_semaphore_open(const char* name, int initial, int maximum);
void* __wrap_sys_semaphore_open(const char* name, int initial, int maximum)
{
    return system_fails ? nullptr : __real_sys_semaphore_open(name, initial, maximum);
}

int __real_sys_process_start(const sys_launch* launch, sys_process* child, std::FILE** stream);
int __wrap_sys_process_start(const sys_launch* launch, sys_process* child, std::FILE** stream)
{
    if (!system_fails && launch->suspended) {
        *child = { nullptr, nullptr, 88 };
        return 0;
    }
    if (!system_fails)
        return __real_sys_process_start(launch, child, stream);
    *child = { nullptr, nullptr, 77 };
    return -1;
}

// A child that is there as long as the system does not fail.
int __wrap_sys_process_wait(const sys_process*, unsigned, int*)
{
    return system_fails ? sys_wait_failed : sys_wait_timeout;
}
int __wrap_sys_process_kill(const sys_process*, int) { return -1; }
void __wrap_sys_process_close(const sys_process*) {}

void* __real_sys_memory_create(void* file, const char* name, unsigned size, unsigned protection);
void* __wrap_sys_memory_create(void* file, const char* name, unsigned size, unsigned protection)
{
    return system_fails ? nullptr : __real_sys_memory_create(file, name, size, protection);
}

void* __wrap_sys_memory_open(const char*, unsigned) { return nullptr; }
void* __wrap_sys_memory_map(void*, unsigned, unsigned, unsigned) { return nullptr; }
void* __real_sys_module_load(const char*);
void* __wrap_sys_module_load(const char*) { return nullptr; }
}

namespace {

void no_work(thread*, void*, void*) {}

TEST(without_threads, start_fails_and_can_be_repeated)
{
    thread t;
    t.set_states(0x50001);
    {
        const failing_system now;
        EXPECT_EQ(t.start(nullptr, no_work, nullptr), code(0x80020001));
        EXPECT_EQ(t.start(), code(0x80020001));
    }
    EXPECT_FALSE(t.is_valid());
    EXPECT_FALSE(t.is_activated());
    EXPECT_EQ(t.get_id(), 0);
    EXPECT_EQ(t.get_states(), 0u) << "not running";
    t.terminate();
    EXPECT_EQ(t.start(nullptr, no_work, nullptr), 0);
    t.wait_done();
}

TEST(without_semaphores, create_fails)
{
    sync_sem s;
    const failing_system now;
    EXPECT_FALSE(s.create(1, 1));
    EXPECT_FALSE(s.create("name", 1, 1));
    EXPECT_FALSE(s.is_valid());
    EXPECT_FALSE(sync_sem(1, 1).is_valid());
}

TEST(without_processes, start_fails)
{
    process p;
    const failing_system now;
    EXPECT_EQ(p.start("/application", nullptr, "x"), 0);
    EXPECT_FALSE(p.is_valid());
    EXPECT_EQ(p.start("/application", nullptr, "x", "r", false), nullptr);
    EXPECT_FALSE(p.is_valid());
    EXPECT_EQ(p.get_id(), 0);
}

// A suspended start gives a made-up child here.
TEST(a_child_that_cannot_be_asked, reads_as_done_and_stays)
{
    process p;
    ASSERT_EQ(p.start("/application", nullptr, "x", true), 1);
    EXPECT_EQ(p.get_id(), 88);
    int exit_code = 7;
    EXPECT_FALSE(p.is_done(&exit_code));
    EXPECT_EQ(p.terminate(), 0) << "the kill failed";
    EXPECT_TRUE(p.is_valid());
    const failing_system now;
    EXPECT_TRUE(p.is_done(&exit_code));
    EXPECT_EQ(exit_code, 7);
    EXPECT_TRUE(p.is_valid());
    EXPECT_EQ(p.wait_done(), -1);
    EXPECT_FALSE(p.is_valid());
}

TEST(without_mappings, create_open_and_attach_fail)
{
    sharemem m;
    {
        const failing_system now;
        EXPECT_EQ(m.create("name", 100, sharemem::page_readwrite), code(0x80020002));
        EXPECT_EQ(m.open("name", sharemem::map_read), code(0x80020002));
    }
    EXPECT_EQ(m.create(nullptr, 100, sharemem::page_readwrite), 0) << "nothing was held";
    EXPECT_EQ(m.attach(0, 100, sharemem::map_read), nullptr);
}

TEST(without_libraries, load_fails)
{
    module m;
    EXPECT_EQ(m.load("name"), code(0x80020002));
    EXPECT_FALSE(m.is_valid());
}

// Windows warns of killing a thread that is still in the loader's hands.
bool starts_in_the_loader() { return __real_sys_module_load("kernel32.dll") != nullptr; }

TEST(a_thread_killed_before_it_began, leaves_nothing)
{
    if (starts_in_the_loader())
        GTEST_SKIP();
    const auto run_for_ever = [](thread*, void*, void*) {
        for (;;)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    thread first; // what is made once
    ASSERT_EQ(first.start(nullptr, run_for_ever, nullptr), 0);
    first.terminate();
    const long before = allocation_failure::living();
    for (int i = 0; i < 50; ++i) {
        thread t;
        ASSERT_EQ(t.start(nullptr, run_for_ever, nullptr), 0);
        t.terminate();
    }
    EXPECT_EQ(allocation_failure::living(), before);
}

TEST(without_memory, a_thread_does_not_start)
{
    for (allocation_failure failure; failure.next();) {
        thread t;
        failure.arm();
        const int r = t.start(nullptr, no_work, nullptr);
        failure.disarm();
        // The first is for the start record, the others are the platform's.
        const int without = failure.nth() == 1 ? code(0x80010002) : code(0x80020001);
        EXPECT_EQ(r, failure.happened() ? without : 0) << failure.nth();
        EXPECT_EQ(t.is_valid(), r == 0);
        t.wait_done();
    }
}

TEST(without_memory, a_table_is_not_made)
{
    for (allocation_failure failure; failure.next();) {
        threads t;
        failure.arm();
        const int r = t.create(100);
        failure.disarm();
        EXPECT_EQ(r, failure.happened() ? code(0x80010002) : 0);
        EXPECT_EQ(t.capacity(), failure.happened() ? 0u : 100u);
        EXPECT_EQ(t.create(1), failure.happened() ? 0 : code(0x80010001));
    }
    for (allocation_failure failure; failure.next();) {
        threads t(4);
        failure.arm();
        const thread* made = t.alloc_thread("name");
        failure.disarm();
        EXPECT_EQ(made != nullptr, !failure.happened());
        EXPECT_EQ(t.count(), failure.happened() ? 0u : 1u);
    }
}

TEST(without_memory, semaphores_are_not_made)
{
    for (const char* name : { "", "stdkro test no memory" }) {
        for (allocation_failure failure; failure.next();) {
            sync_sem s;
            failure.arm();
            const bool made = s.create(name, 1, 1);
            failure.disarm();
            EXPECT_EQ(made, !failure.happened()) << failure.nth();
            EXPECT_EQ(s.lock(), made);
        }
    }
}

TEST(without_memory, mappings_are_not_made)
{
    for (const char* name : { "", "stdkro test no memory" }) {
        for (allocation_failure failure; failure.next();) {
            sharemem m;
            failure.arm();
            const int r = m.create(name, 100, sharemem::page_readwrite);
            failure.disarm();
            EXPECT_EQ(r, failure.happened() ? code(0x80020002) : 0) << failure.nth();
        }
    }
}

TEST(without_memory, processes_are_not_started)
{
    // The application is missing: no run may end in anything but a refusal.
    const std::string line(1000, 'x');
    for (allocation_failure failure; failure.next();) {
        process p;
        failure.arm();
        std::FILE* stream = p.start("./missing", "a folder of a longer name", line.c_str(), "r", false);
        failure.disarm();
        EXPECT_EQ(stream, nullptr);
        EXPECT_FALSE(p.is_valid());
    }
}

} // namespace
