// Locks, threads, tables of threads, and the stopwatch.
#include "patience.h"
#include "virtual_slot.h"

#include <stdkro/platform_types.h>
#include <stdkro/thread.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using worker = ::thread;

namespace {

constexpr int code(unsigned c) { return static_cast<int>(c); }

timeval limit_of(long seconds, long microseconds)
{
    timeval t;
    t.tv_sec = seconds;
    t.tv_usec = microseconds;
    return t;
}

const timeval no_wait = limit_of(0, 0);

// Counts for as long as it is told to.
class counting_worker : public worker {
public:
    ~counting_worker() override { terminate(); }

    std::atomic<unsigned> turns { 0 };
    std::atomic<bool> goes_on { true };

    bool runs()
    {
        const unsigned before = turns;
        return eventually([&] { return turns != before; });
    }
    void finish()
    {
        goes_on = false;
        wait_done();
    }

protected:
    void doExecute(void*) override
    {
        while (goes_on) {
            ++turns;
            breathe();
        }
    }
};

// A worker that ends at once.
class brief_worker : public worker {
public:
    ~brief_worker() override { terminate(); }
};

// Records how it is called.
class probe : public sync_object {
public:
    bool lock(const timeval* limit) override
    {
        calls += limit ? "lock(limit) " : "lock(null) ";
        return lock_result;
    }
    bool unlock() override
    {
        calls += "unlock ";
        return unlock_result;
    }
    std::string calls;
    bool lock_result = true;
    bool unlock_result = true;
};

// A semaphore lock, tried without waiting.
bool takes(sync_object& s) { return s.lock(&no_wait); }

// The object of a thread that is no longer tracked: the thread touches it until
// its last moment, which nobody can wait for, so it is never destroyed. What
// such a thread did is seen by nobody in order; the sanitizer calls that a race,
// and by the contract it is one.
template <class T> T& kept_for_ever()
{
    static std::vector<T*>& all = *new std::vector<T*>;
    all.push_back(new T);
    return *all.back();
}

// ---- sync_object -----------------------------------------------------------

TEST(sync_object, trylock_is_lock_without_limit)
{
    probe p;
    EXPECT_TRUE(p.trylock());
    p.lock_result = false;
    EXPECT_FALSE(p.trylock());
    EXPECT_EQ(p.calls, "lock(null) lock(null) ");
}

TEST(sync_object, has_its_functions_in_this_order)
{
    EXPECT_EQ(slot_of(&sync_object::lock), 0u);
    EXPECT_EQ(slot_of(&sync_object::unlock), 1u);
    EXPECT_EQ(slot_of(&sync_object::trylock), 2u);
    EXPECT_TRUE(std::has_virtual_destructor<sync_object>::value);
}

// ---- sync_sem --------------------------------------------------------------

TEST(sync_sem, create_checks_its_counts)
{
    static const struct { int initial, maximum; bool made; } cases[] = {
        { 0, 1, true },  { 1, 1, true },   { 0, 2147483647, true }, { 2147483647, 2147483647, true },
        { -1, 1, false }, { 0, 0, false }, { 2, 1, false },         { 0, -1, false }, { -2, -1, false },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.initial << ", " << c.maximum);
        sync_sem s;
        EXPECT_EQ(s.create(c.initial, c.maximum), c.made);
        EXPECT_EQ(s.is_valid(), c.made);
        EXPECT_EQ(sync_sem(c.initial, c.maximum).is_valid(), c.made);
        EXPECT_EQ(s.create("stdkro test counts", c.initial, c.maximum), c.made);
        EXPECT_EQ(s.is_valid(), c.made);
    }
}

TEST(sync_sem, gives_as_many_counts_as_it_has)
{
    sync_sem s(2, 3);
    EXPECT_TRUE(takes(s));
    EXPECT_TRUE(takes(s));
    EXPECT_FALSE(takes(s));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(s.unlock()) << i;
    EXPECT_FALSE(s.unlock()) << "at the maximum";
    EXPECT_TRUE(s.lock());
    EXPECT_TRUE(s.trylock());
    EXPECT_TRUE(takes(s));
    EXPECT_FALSE(takes(s));
}

TEST(sync_sem, without_a_handle_does_nothing_at_once)
{
    sync_sem s;
    EXPECT_FALSE(s.is_valid());
    EXPECT_FALSE(s.lock());
    EXPECT_FALSE(s.trylock());
    EXPECT_FALSE(s.unlock());
    s.close();
    EXPECT_EQ(s.get_handle(), nullptr);
}

TEST(sync_sem, counts_microseconds_as_milliseconds)
{
    constexpr double longest = 25000; // for a busy machine
    sync_sem s(0, 1);
    static const struct { long seconds, microseconds; double least, most; } cases[] = {
        { 0, 500, 490, longest },
        { 0, 30, 25, longest },
        // Negative counts as zero, in the sum.
        { 0, -1, 0, longest },
        { -50, 3, 0, longest },
        { 50, -49980, 15, longest },
    };
    for (const auto& c : cases) {
        const timeval limit = limit_of(c.seconds, c.microseconds);
        timer t;
        EXPECT_FALSE(s.lock(&limit));
        const double spent = t.spend();
        EXPECT_GE(spent, c.least) << c.seconds << "s " << c.microseconds;
        EXPECT_LE(spent, c.most) << c.seconds << "s " << c.microseconds;
    }
}

TEST(sync_sem, takes_limits_of_any_size)
{
    sync_sem s(3, 3);
    const long big = std::numeric_limits<long>::max();
    for (const timeval& limit : { limit_of(big, big), limit_of(big, 0), limit_of(0, big) })
        EXPECT_TRUE(s.lock(&limit));
    const timeval least = limit_of(-big, -big);
    EXPECT_FALSE(s.lock(&least));
}

TEST(sync_sem, adopts_a_handle)
{
    sync_sem original(1, 1);
    sync_sem* adopted = new sync_sem(original.get_handle());
    EXPECT_TRUE(takes(*adopted));
    EXPECT_FALSE(takes(original));
    EXPECT_TRUE(original.unlock());
    EXPECT_TRUE(takes(*adopted));
    original = sync_sem(); // forgets its handle, so that there is one owner
    delete adopted;
    EXPECT_FALSE(sync_sem(nullptr).is_valid());
}

TEST(sync_sem, named_create_forgets_the_present_handle)
{
    sync_sem s(1, 1);
    sync_sem kept(s); // now the owner
    ASSERT_TRUE(s.create(nullptr, 0, 1));
    EXPECT_FALSE(takes(s));
    EXPECT_TRUE(takes(kept)) << "still open";
}

TEST(sync_sem, unnamed_create_and_the_destructor_close_the_present_handle)
{
    sync_sem later;
    {
        sync_sem s;
        ASSERT_TRUE(s.create("stdkro test closed", 1, 1));
        ASSERT_TRUE(s.create(1, 1));
        ASSERT_TRUE(later.create("stdkro test closed", 0, 1));
        EXPECT_FALSE(takes(later)) << "the name had gone with the handle";
        later.close();
        ASSERT_TRUE(s.create("stdkro test closed", 1, 1)); // forgets the unnamed one
    }
    ASSERT_TRUE(later.create("stdkro test closed", 0, 1));
    EXPECT_FALSE(takes(later));
}

TEST(sync_sem, a_failed_create_leaves_no_handle)
{
    sync_sem s(1, 1);
    EXPECT_FALSE(s.create(2, 1));
    EXPECT_FALSE(s.is_valid());
    EXPECT_FALSE(s.lock());
}

TEST(sync_sem, a_name_is_shared_and_its_counts_stand)
{
    sync_sem first, second, other;
    ASSERT_TRUE(first.create("stdkro test shared", 1, 2));
    ASSERT_TRUE(second.create("stdkro test shared", 0, 7));
    ASSERT_TRUE(other.create("stdkro test other", 0, 1));
    EXPECT_TRUE(takes(second));
    EXPECT_FALSE(takes(first));
    EXPECT_FALSE(takes(other));
    EXPECT_TRUE(first.unlock());
    EXPECT_TRUE(first.unlock());
    EXPECT_FALSE(second.unlock()) << "the first maximum stands";
}

TEST(sync_sem, a_name_is_gone_with_its_last_handle)
{
    sync_sem first, second;
    ASSERT_TRUE(first.create("stdkro test gone", 5, 5));
    ASSERT_TRUE(second.create("stdkro test gone", 5, 5));
    first.close();
    ASSERT_TRUE(first.create("stdkro test gone", 0, 1));
    EXPECT_TRUE(takes(first)) << "joined: the second still holds it";
    first.close();
    second.close();
    ASSERT_TRUE(first.create("stdkro test gone", 0, 1));
    EXPECT_FALSE(takes(first)) << "made anew";
}

TEST(sync_sem, names_of_any_shape)
{
    static const struct { std::string name; bool good; } cases[] = {
        { "a/b", true },
        { "../x", true },
        { ".", true },
        { "a b\t%41", true },
        { "\xB2\xE2\xCA\xD4", true },
        { std::string(259, 'n'), true },
        { std::string(259, '/'), true },
        { "Local\\stdkro", true },
        { "Global\\stdkro", true },
        { std::string(260, 'n'), false },
        { "no\\folder", false },
        { "Local\\no\\folder", false },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        sync_sem first, second;
        EXPECT_EQ(first.create(c.name.c_str(), 1, 1), c.good);
        EXPECT_EQ(second.create(c.name.c_str(), 1, 1), c.good);
        if (c.good) {
            EXPECT_TRUE(takes(first));
            EXPECT_FALSE(takes(second)) << "the same";
        }
    }
    sync_sem upper, lower, local;
    ASSERT_TRUE(upper.create("STDKRO case", 1, 1));
    ASSERT_TRUE(lower.create("stdkro case", 0, 1));
    ASSERT_TRUE(local.create("Local\\STDKRO case", 0, 1));
    EXPECT_FALSE(takes(lower)) << "letter case counts";
    EXPECT_TRUE(takes(local)) << "the prefix does not";
}

TEST(sync_sem, without_a_name_is_nobody_elses)
{
    for (const char* name : { static_cast<const char*>(nullptr), "" }) {
        sync_sem first, second;
        ASSERT_TRUE(first.create(name, 1, 1));
        ASSERT_TRUE(second.create(name, 0, 1));
        EXPECT_FALSE(takes(second));
        EXPECT_TRUE(takes(first));
    }
}

TEST(sync_sem, wakes_a_waiter_for_every_count)
{
    constexpr int waiters = 8;
    sync_sem s(0, waiters);
    std::atomic<int> through { 0 };
    const auto wait = [](worker*, void* sem, void* count) {
        if (static_cast<sync_sem*>(sem)->lock())
            ++*static_cast<std::atomic<int>*>(count);
    };
    std::vector<std::unique_ptr<worker>> all;
    for (int i = 0; i < waiters; ++i) {
        all.push_back(std::make_unique<worker>());
        ASSERT_EQ(all.back()->start(&s, wait, &through), 0);
    }
    for (int i = 0; i < waiters; ++i) {
        EXPECT_TRUE(eventually([&] { return s.unlock(); }));
        EXPECT_TRUE(eventually([&] { return through > i; })) << i;
    }
    for (auto& w : all)
        w->wait_done();
    EXPECT_EQ(through, waiters);
}

TEST(sync_sem, hands_over_between_two_threads)
{
    struct table { sync_sem ping { 0, 1 }, pong { 0, 1 }; int ball = 0; } t;
    const auto play = [](worker*, void* argument, void*) {
        table& game = *static_cast<table*>(argument);
        for (int i = 0; i < 2000; ++i) {
            game.ping.lock();
            ++game.ball;
            game.pong.unlock();
        }
    };
    worker w;
    ASSERT_EQ(w.start(&t, play, nullptr), 0);
    for (int i = 0; i < 2000; ++i) {
        t.ping.unlock();
        ASSERT_TRUE(t.pong.lock());
        ASSERT_EQ(t.ball, i + 1);
    }
    w.wait_done();
}

// ---- sync_critical ---------------------------------------------------------

// Whether another thread could enter now: it is started, and given time.
class visitor : public worker {
public:
    explicit visitor(sync_critical& c) : section_(c) { start(); }
    ~visitor() override { terminate(); }
    bool has_been_in() { return been_in_; }
    bool gets_in() { return eventually([this] { return been_in_.load(); }); }

protected:
    void doExecute(void*) override
    {
        section_.lock();
        been_in_ = true;
        section_.unlock();
    }

private:
    sync_critical& section_;
    std::atomic<bool> been_in_ { false };
};

// Long enough for a visitor that could enter to have done so.
void give_time()
{
    sync_sem never(0, 1);
    const timeval limit = limit_of(0, 30);
    never.lock(&limit);
}

TEST(sync_critical, is_left_as_often_as_it_was_entered)
{
    sync_critical c;
    EXPECT_TRUE(c.lock());
    EXPECT_TRUE(c.trylock());
    EXPECT_TRUE(c.lock(&no_wait)) << "the limit is ignored";
    visitor other(c);
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(c.unlock());
        give_time();
        EXPECT_FALSE(other.has_been_in());
    }
    EXPECT_TRUE(c.unlock());
    EXPECT_TRUE(other.gets_in());
    other.wait_done();
}

TEST(sync_critical, ignores_the_limit)
{
    sync_critical c;
    c.lock();
    std::atomic<bool> result { false };
    struct shared { sync_critical& section; std::atomic<bool>& result; } s { c, result };
    const auto enter = [](worker*, void* argument, void*) {
        shared& with = *static_cast<shared*>(argument);
        with.result = with.section.lock(&no_wait);
        with.section.unlock();
    };
    worker w;
    ASSERT_EQ(w.start(&s, enter, nullptr), 0);
    give_time();
    EXPECT_FALSE(result) << "still waiting";
    c.unlock();
    w.wait_done();
    EXPECT_TRUE(result);
}

TEST(sync_critical, a_stranger_cannot_leave_it)
{
    sync_critical c;
    EXPECT_TRUE(c.unlock()) << "nobody holds it";
    c.lock();
    worker stranger;
    const auto leave = [](worker*, void* section, void*) { static_cast<sync_critical*>(section)->unlock(); };
    ASSERT_EQ(stranger.start(&c, leave, nullptr), 0);
    stranger.wait_done();
    visitor other(c);
    give_time();
    EXPECT_FALSE(other.has_been_in());
    c.unlock();
    EXPECT_TRUE(other.gets_in());
    other.wait_done();
}

TEST(sync_critical, copies_are_free_and_assignment_keeps_the_own)
{
    sync_critical held;
    held.lock();
    sync_critical copy(held);
    visitor in_copy(copy);
    EXPECT_TRUE(in_copy.gets_in());
    in_copy.wait_done();

    sync_critical free_one;
    held = free_one;
    visitor in_held(held);
    give_time();
    EXPECT_FALSE(in_held.has_been_in()) << "still held";
    held.unlock();
    EXPECT_TRUE(in_held.gets_in());
    in_held.wait_done();
}

TEST(sync_critical, excludes)
{
    struct shared { sync_critical lock; unsigned count = 0; } s;
    const auto count = [](worker*, void* argument, void*) {
        shared& with = *static_cast<shared*>(argument);
        for (int i = 0; i < 5000; ++i) {
            smart_lock guard(with.lock);
            smart_lock again(with.lock);
            ++with.count;
        }
    };
    worker all[4];
    for (worker& w : all)
        ASSERT_EQ(w.start(&s, count, nullptr), 0);
    for (worker& w : all)
        w.wait_done();
    EXPECT_EQ(s.count, 20000u);
}

// ---- smart_lock ------------------------------------------------------------

TEST(smart_lock, keeps_what_the_object_answered)
{
    static const struct { bool lock_now, lock_result, unlock_result; bool held; const char* calls; } cases[] = {
        { true, true, true, true, "lock(null) unlock " },
        { true, false, true, false, "lock(null) " },
        { false, true, true, false, "" },
        // A failed unlock leaves the guard locked: its destructor tries again.
        { true, true, false, true, "lock(null) unlock unlock " },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.calls);
        probe p;
        p.lock_result = c.lock_result;
        p.unlock_result = c.unlock_result;
        {
            smart_lock guard(p, c.lock_now);
            EXPECT_EQ(guard.islocked(), c.held);
            EXPECT_EQ(guard.unlock(), !c.held || c.unlock_result);
            EXPECT_EQ(guard.islocked(), c.held && !c.unlock_result);
        }
        EXPECT_EQ(p.calls, c.calls);
    }
}

TEST(smart_lock, locks_later)
{
    probe p;
    {
        smart_lock guard(p, false);
        EXPECT_TRUE(guard.lock(&no_wait));
        EXPECT_TRUE(guard.islocked());
        EXPECT_TRUE(guard.trylock());
        p.lock_result = false;
        EXPECT_FALSE(guard.lock());
        EXPECT_FALSE(guard.islocked());
        EXPECT_FALSE(guard.trylock());
    }
    EXPECT_EQ(p.calls, "lock(limit) lock(null) lock(null) lock(null) ");
}

// ---- thread ----------------------------------------------------------------

TEST(thread_object, begins_empty)
{
    worker w(0x44434241);
    EXPECT_EQ(w.get_id(), 0);
    EXPECT_EQ(w.get_states(), 0u);
    EXPECT_EQ(w.get_no(), 0u);
    EXPECT_FALSE(w.is_valid());
    EXPECT_FALSE(w.is_activated());
    EXPECT_EQ(w.get_tag(), 0x44434241L);
    char text[5] = { '?', '?', '?', '?', '?' };
    EXPECT_EQ(w.get_tag(text), text);
    EXPECT_STREQ(text, "ABCD");
    // All that needs a thread does nothing.
    w.terminate();
    w.set_freed();
    EXPECT_EQ(w.wait_done(), 0);
    EXPECT_EQ(w.wait_done(&no_wait), 0);
    EXPECT_EQ(w.suspend(), -1);
    EXPECT_EQ(w.resume(), -1);
    EXPECT_EQ(worker().get_tag(), 0);
    EXPECT_EQ(worker(-1).get_tag(), -1L);
}

TEST(thread_object, states_and_slot_share_a_word)
{
    worker w;
    w.set_states(5);
    EXPECT_TRUE(w.has_states(1));
    EXPECT_TRUE(w.has_states(6)) << "any bit";
    EXPECT_FALSE(w.has_states(2));
    EXPECT_FALSE(w.has_states(0));
    w.set_no(0xABCD);
    EXPECT_EQ(w.get_states(), 0xABCD0005u);
    EXPECT_EQ(w.get_no(), 0xABCDu);
    w.set_no(0x12345);
    EXPECT_EQ(w.get_states(), 0x23450005u);
    w.clr_states(4);
    EXPECT_EQ(w.get_states(), 0x23450001u);
    w.set_no(0);
    EXPECT_EQ(w.get_states(), 1u);
}

TEST(thread_object, runs_the_function_with_its_arguments)
{
    struct seen_by_thread { worker* self; void* second; int id; bool valid, activated; unsigned states; } seen = {};
    const auto look = [](worker* self, void* first, void* second) {
        *static_cast<seen_by_thread*>(first) = { self, second, worker::get_self_id(), self->is_valid(),
                                                 self->is_activated(), self->get_states() };
        EXPECT_EQ(self->get_id(), worker::get_self_id());
    };
    int second;
    worker w;
    w.set_states(0xFFFF0001);
    ASSERT_EQ(w.start(&seen, look, &second), 0);
    const int id = w.get_id();
    EXPECT_GT(id, 0);
    EXPECT_TRUE(w.is_valid());
    w.wait_done();
    EXPECT_EQ(seen.self, &w);
    EXPECT_EQ(seen.second, &second);
    EXPECT_EQ(seen.id, id);
    EXPECT_NE(id, worker::get_self_id());
    EXPECT_TRUE(seen.valid);
    EXPECT_TRUE(seen.activated);
    EXPECT_EQ(seen.states, 2u) << "all else was cleared, the slot number too";
    EXPECT_EQ(w.get_states(), 0u);
    EXPECT_FALSE(w.is_valid());
}

TEST(thread_object, runs_doExecute_with_its_argument)
{
    class echo : public worker {
    public:
        ~echo() override { terminate(); }
        void* seen = nullptr;

    protected:
        void doExecute(void* argument) override { seen = argument; }
    } e;
    int argument;
    ASSERT_EQ(e.start(&argument), 0);
    e.wait_done();
    EXPECT_EQ(e.seen, &argument);
    ASSERT_EQ(e.start(), 0) << "can be started again";
    e.wait_done();
    EXPECT_EQ(e.seen, nullptr);

    brief_worker base;
    ASSERT_EQ(base.start(), 0) << "the base class does nothing";
    base.wait_done();
}

TEST(thread_object, has_its_destructor_first)
{
    struct open_worker : worker {
        using worker::doExecute;
    };
    EXPECT_EQ(slot_of(&open_worker::doExecute), 2u); // the destructor takes two entries
    EXPECT_TRUE(std::has_virtual_destructor<worker>::value);
    EXPECT_FALSE(std::is_copy_constructible<worker>::value || std::is_copy_assignable<worker>::value);
    EXPECT_FALSE(std::is_copy_constructible<threads>::value || std::is_copy_assignable<threads>::value);
    EXPECT_FALSE(std::is_copy_constructible<smart_lock>::value || std::is_copy_assignable<smart_lock>::value);
}

TEST(thread_object, wants_a_function)
{
    worker w;
    EXPECT_EQ(w.start(nullptr, nullptr, nullptr), code(0x80000007));
    EXPECT_FALSE(w.is_valid());
}

TEST(thread_object, starts_once_at_a_time)
{
    counting_worker w;
    ASSERT_EQ(w.start(), 0);
    const int id = w.get_id();
    EXPECT_EQ(w.start(), code(0x80010001));
    EXPECT_EQ(w.start(nullptr, [](worker*, void*, void*) { ADD_FAILURE(); }, nullptr), code(0x80010001));
    EXPECT_EQ(w.get_id(), id);
    EXPECT_TRUE(w.has_states(worker::state_running));
    w.finish();

    // A finished one keeps its id until it was waited for.
    brief_worker b;
    ASSERT_EQ(b.start(), 0);
    EXPECT_TRUE(eventually([&] { return !b.is_activated(); }));
    EXPECT_TRUE(b.is_valid());
    EXPECT_FALSE(b.has_states(worker::state_running));
    EXPECT_EQ(b.start(), code(0x80010001));
    b.set_freed();
    EXPECT_EQ(b.start(), 0);
    b.wait_done();
}

TEST(thread_object, swallows_exceptions)
{
    static const worker::function throwing[] = {
        [](worker*, void*, void*) { throw 1; },
        [](worker*, void*, void*) { throw std::runtime_error("x"); },
        [](worker*, void*, void*) { throw xrterror(-1, "x"); },
    };
    for (worker::function f : throwing) {
        worker w;
        ASSERT_EQ(w.start(nullptr, f, nullptr), 0);
        EXPECT_TRUE(eventually([&] { return !w.is_activated(); }));
        EXPECT_EQ(w.get_states(), 0u);
        w.wait_done();
    }
}

struct tells_its_end {
    std::atomic<bool>& told;
    ~tells_its_end() { told = true; }
};

TEST(thread_object, end_leaves_without_unwinding)
{
    static std::atomic<bool> unwound, after, caught;
    unwound = after = caught = false;
    for (int exit_code : { 0, 1, -1, 259 }) {
        const auto leave = [](worker* self, void* argument, void*) {
            const tells_its_end local { unwound };
            try {
                self->end(*static_cast<int*>(argument));
            } catch (...) {
                caught = true;
            }
            after = true;
        };
        worker w;
        ASSERT_EQ(w.start(&exit_code, leave, nullptr), 0);
        EXPECT_TRUE(eventually([&] { return !w.has_states(worker::state_running); }));
        const bool reads_as_active = exit_code == 259;
        EXPECT_TRUE(eventually([&] { return w.is_activated() == reads_as_active; }));
        w.wait_done();
        EXPECT_FALSE(w.is_activated());
    }
    EXPECT_FALSE(unwound);
    EXPECT_FALSE(after);
    EXPECT_FALSE(caught);
}

TEST(thread_object, a_thread_that_ended_with_259_can_be_waited_for)
{
    worker all[2];
    worker* list[2] = { &all[0], &all[1] };
    for (worker& w : all)
        ASSERT_EQ(w.start(nullptr, [](worker* self, void*, void*) { self->end(259); }, nullptr), 0);
    EXPECT_EQ(worker::wait_all_done(list, 2, nullptr), 0);
    EXPECT_TRUE(all[0].is_activated());
    EXPECT_EQ(all[0].suspend(), -1) << "finished all the same";
}

TEST(thread_object, end_of_another_thread_is_a_bug)
{
    worker w;
    testing::internal::CaptureStdout();
    w.end(1);
    std::fflush(stdout);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(text.substr(0, 18), "BUG at src/thread:") << text;
}

TEST(thread_object, wait_done_gives_the_thread_up_when_time_is_over)
{
    counting_worker& w = kept_for_ever<counting_worker>();
    ASSERT_EQ(w.start(), 0);
    timer t;
    const timeval limit = limit_of(0, 40000);
    EXPECT_EQ(w.wait_done(&limit), 0);
    EXPECT_GE(t.spend(), 35.0);
    EXPECT_LE(t.spend(), 25000.0) << "microseconds are divided here";
    EXPECT_FALSE(w.is_valid());
    EXPECT_FALSE(w.is_activated());
    EXPECT_TRUE(w.has_states(worker::state_running));
    EXPECT_TRUE(w.runs()) << "no longer tracked";
    w.goes_on = false;
    EXPECT_TRUE(eventually([&] { return !w.has_states(worker::state_running); }));
}

TEST(thread_object, set_freed_lets_the_thread_run_on)
{
    counting_worker& w = kept_for_ever<counting_worker>();
    ASSERT_EQ(w.start(), 0);
    w.set_freed();
    EXPECT_EQ(w.get_id(), 0);
    EXPECT_TRUE(w.runs());
    w.terminate();
    EXPECT_TRUE(w.runs()) << "nothing is tracked that could be killed";
    w.goes_on = false;
    EXPECT_TRUE(eventually([&] { return !w.has_states(worker::state_running); }));
}

TEST(thread_object, a_thread_may_free_its_own_object)
{
    static std::atomic<int> done;
    done = 0;
    const auto forget_itself = [](worker* self, void* count, void*) {
        self->set_freed();
        ++*static_cast<std::atomic<int>*>(count);
    };
    for (int i = 0; i < 50; ++i) {
        worker& w = kept_for_ever<worker>();
        ASSERT_EQ(w.start(&done, forget_itself, nullptr), 0);
        ASSERT_TRUE(eventually([&] { return done == i + 1 && !w.has_states(worker::state_running); }));
        EXPECT_EQ(w.get_id(), 0) << "and start did not set it again";
    }
}

TEST(thread_object, suspensions_are_counted)
{
    counting_worker w;
    ASSERT_EQ(w.start(), 0);
    ASSERT_TRUE(w.runs());
    EXPECT_EQ(w.resume(), 0) << "at 0 nothing changes";
    EXPECT_EQ(w.suspend(), 0);
    const unsigned stopped_at = w.turns;
    EXPECT_EQ(w.suspend(), 1);
    EXPECT_EQ(w.resume(), 2);
    give_time();
    EXPECT_EQ(w.turns, stopped_at) << "one is left";
    EXPECT_TRUE(w.is_activated());
    EXPECT_EQ(w.resume(), 1);
    EXPECT_TRUE(w.runs());
    EXPECT_EQ(w.resume(), 0);
    w.finish();
    EXPECT_EQ(w.suspend(), -1);
    EXPECT_EQ(w.resume(), -1);
}

TEST(thread_object, suspensions_have_a_limit)
{
    counting_worker w;
    ASSERT_EQ(w.start(), 0);
    for (int i = 0; i < 127; ++i)
        ASSERT_EQ(w.suspend(), i);
    EXPECT_EQ(w.suspend(), -1);
    for (int i = 127; i > 0; --i)
        ASSERT_EQ(w.resume(), i);
    EXPECT_TRUE(w.runs());
    w.finish();
}

TEST(thread_object, a_finished_thread_is_not_suspended)
{
    brief_worker b;
    ASSERT_EQ(b.start(), 0);
    EXPECT_TRUE(eventually([&] {
        const int r = b.suspend();
        if (r >= 0)
            b.resume();
        return r == -1;
    }));
    EXPECT_EQ(b.resume(), -1);
    b.set_freed();
    EXPECT_EQ(b.suspend(), -1);
}

TEST(thread_object, may_suspend_itself)
{
    std::atomic<int> stage { 0 };
    const auto stop_once = [](worker* self, void* argument, void*) {
        std::atomic<int>& at = *static_cast<std::atomic<int>*>(argument);
        at = 1;
        EXPECT_EQ(self->suspend(), 0);
        at = 2;
    };
    worker w;
    ASSERT_EQ(w.start(&stage, stop_once, nullptr), 0);
    EXPECT_TRUE(eventually([&] { return w.resume() == 1; }));
    w.wait_done();
    EXPECT_EQ(stage, 2);
}

TEST(thread_object, many_stops_and_starts)
{
    counting_worker w;
    ASSERT_EQ(w.start(), 0);
    ASSERT_TRUE(w.runs());
    for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(w.suspend(), 0) << i;
        const unsigned stopped_at = w.turns;
        std::this_thread::yield();
        ASSERT_EQ(w.turns, stopped_at) << i;
        ASSERT_EQ(w.resume(), 1) << i;
    }
    EXPECT_TRUE(w.runs());
    w.finish();
}

TEST(thread_object, is_killed_wherever_it_is)
{
    static sync_sem never(0, 1);
    static std::atomic<bool> there;
    static const struct { const char* name; worker::function run; } places[] = {
        { "busy", [](worker*, void*, void*) {
              there = true;
              for (std::atomic<unsigned> i { 0 };; ++i)
                  breathe();
          } },
        { "sleeping", [](worker*, void*, void*) {
              there = true;
              std::this_thread::sleep_for(std::chrono::hours(1));
          } },
        { "waiting", [](worker*, void*, void*) {
              there = true;
              never.lock();
          } },
        { "waiting for another", [](worker*, void*, void*) {
              counting_worker other;
              other.start();
              there = true;
              other.wait_done();
          } },
    };
    for (const auto& place : places) {
        for (const bool suspended : { false, true }) {
            SCOPED_TRACE(testing::Message() << place.name << (suspended ? ", suspended" : ""));
            there = false;
            worker w;
            ASSERT_EQ(w.start(nullptr, place.run, nullptr), 0);
            ASSERT_TRUE(eventually([] { return there.load(); }));
            if (suspended) {
                EXPECT_EQ(w.suspend(), 0);
            }
            w.terminate();
            EXPECT_EQ(w.get_id(), 0);
            EXPECT_FALSE(w.is_activated());
            EXPECT_EQ(w.get_states(), 0u);
            EXPECT_EQ(w.start(nullptr, [](worker*, void*, void*) {}, nullptr), 0) << "a new thread";
            w.wait_done();
        }
    }
}

TEST(thread_object, a_killed_thread_stands_still_and_keeps_its_locks)
{
    struct shared { sync_sem lock { 1, 1 }; std::atomic<unsigned> turns { 0 }; std::atomic<bool> unwound { false }; };
    shared s;
    const auto hold = [](worker*, void* argument, void*) {
        shared& with = *static_cast<shared*>(argument);
        const tells_its_end local { with.unwound };
        smart_lock guard(with.lock);
        for (;;) {
            ++with.turns;
            breathe();
        }
    };
    {
        worker w;
        ASSERT_EQ(w.start(&s, hold, nullptr), 0);
        ASSERT_TRUE(eventually([&] { return s.turns > 0; }));
        // The destructor kills it.
    }
    const unsigned stopped_at = s.turns;
    give_time();
    EXPECT_EQ(s.turns, stopped_at);
    EXPECT_FALSE(takes(s.lock));
    EXPECT_FALSE(s.unwound);
}

TEST(thread_object, may_terminate_itself)
{
    static std::atomic<bool> unwound;
    unwound = false;
    const auto leave = [](worker* self, void*, void*) {
        const tells_its_end local { unwound };
        self->terminate();
        unwound = true;
    };
    worker& w = kept_for_ever<worker>();
    ASSERT_EQ(w.start(nullptr, leave, nullptr), 0);
    EXPECT_TRUE(eventually([&] { return w.get_states() == 0; }));
#if !defined(__SANITIZE_THREAD__)
    EXPECT_EQ(w.get_id(), 0);
#endif
    EXPECT_FALSE(unwound);
}

TEST(thread_object, waits_go_on_after_an_interruption)
{
    struct shared { sync_sem sem { 0, 1 }; timeval limit; bool result = true; double spent = 0; } s;
    const auto wait = [](worker*, void* argument, void*) {
        shared& with = *static_cast<shared*>(argument);
        timer t;
        with.result = with.sem.lock(&with.limit);
        with.spent = t.spend();
    };
    s.limit = limit_of(0, 300);
    worker w;
    ASSERT_EQ(w.start(&s, wait, nullptr), 0);
    for (int i = 0; i < 20; ++i) {
        if (w.suspend() == 0)
            w.resume();
    }
    w.wait_done();
    EXPECT_FALSE(s.result);
    EXPECT_GE(s.spent, 290.0) << "the whole limit";

    s.limit = limit_of(10, 0);
    ASSERT_EQ(w.start(&s, wait, nullptr), 0);
    for (int i = 0; i < 20; ++i) {
        if (w.suspend() == 0)
            w.resume();
    }
    s.sem.unlock();
    w.wait_done();
    EXPECT_TRUE(s.result);
}

// ---- waiting for several ---------------------------------------------------

TEST(wait_all_done, refuses_what_it_cannot_wait_for)
{
    std::vector<worker*> none(100, nullptr);
    EXPECT_EQ(worker::wait_all_done(nullptr, 64, nullptr), code(0x80000008)) << "without looking at the array";
    EXPECT_EQ(worker::wait_all_done(none.data(), 64, nullptr), code(0x80000008));
    EXPECT_EQ(worker::wait_all_done(nullptr, ~0u, nullptr), code(0x80000008));
    EXPECT_EQ(worker::wait_all_done(nullptr, 0, nullptr), code(0x80020001));
    EXPECT_EQ(worker::wait_all_done(none.data(), 63, nullptr), code(0x80020001)) << "null threads";
    EXPECT_EQ(worker::wait_all_done(nullptr, 1, nullptr), code(0x80020001)) << "null array";

    brief_worker running, idle;
    ASSERT_EQ(running.start(), 0);
    worker* with_idle[2] = { &running, &idle };
    EXPECT_EQ(worker::wait_all_done(with_idle, 2, nullptr), code(0x80020001)) << "one without a handle";
    worker* twice[3] = { &running, &idle, &running };
    ASSERT_EQ(idle.start(), 0);
    EXPECT_EQ(worker::wait_all_done(twice, 3, nullptr), code(0x80020001)) << "the same twice";
    EXPECT_EQ(worker::wait_all_done(twice, 2, nullptr), 0);
    EXPECT_TRUE(running.is_valid()) << "nothing is closed";
}

TEST(wait_all_done, a_single_thread_never_succeeds)
{
    brief_worker b;
    ASSERT_EQ(b.start(), 0);
    worker* list[1] = { &b };
    EXPECT_EQ(worker::wait_all_done(list, 1, nullptr), code(0x80020001));
    EXPECT_FALSE(b.is_activated()) << "though it was waited for";
}

TEST(wait_all_done, waits_for_all_against_one_limit)
{
    constexpr unsigned n = 63;
    std::vector<std::unique_ptr<counting_worker>> all;
    std::vector<worker*> list;
    for (unsigned i = 0; i < n; ++i) {
        all.push_back(std::make_unique<counting_worker>());
        list.push_back(all.back().get());
        ASSERT_EQ(list.back()->start(), 0);
    }
    timer t;
    const timeval limit = limit_of(0, 500); // milliseconds here
    EXPECT_EQ(worker::wait_all_done(list.data(), n, &limit), code(0x8002000C));
    EXPECT_GE(t.spend(), 495.0);
    EXPECT_LE(t.spend(), 25000.0) << "not one limit for each";
    for (unsigned i = 0; i + 1 < n; ++i)
        all[i]->goes_on = false;
    EXPECT_EQ(worker::wait_all_done(list.data(), n, &no_wait), code(0x8002000C)) << "all but one";
    all[n - 1]->goes_on = false;
    EXPECT_EQ(worker::wait_all_done(list.data(), n, nullptr), 0);
    EXPECT_EQ(worker::wait_all_done(list.data(), n, &no_wait), 0) << "and again";
}

// ---- threads ---------------------------------------------------------------

TEST(thread_table, create_makes_one_table)
{
    threads t;
    EXPECT_EQ(t.capacity(), 0u);
    EXPECT_EQ(t.count(), 0u);
    EXPECT_EQ(t.create(0), 0);
    EXPECT_EQ(t.capacity(), 0u);
    EXPECT_EQ(t.create(65537), code(0x80000007));
    EXPECT_EQ(t.create(~0u), code(0x80000007));
    EXPECT_EQ(t.create(65536), 0);
    EXPECT_EQ(t.capacity(), 65536u);
    EXPECT_EQ(t.create(1), code(0x80010001));
    EXPECT_EQ(t.create(0), code(0x80010001));
    ASSERT_NE(t.alloc_thread(1), nullptr);
    ASSERT_NE(t.alloc_thread(2), nullptr);
    t.clear();
    EXPECT_EQ(t.capacity(), 0u);
    EXPECT_EQ(t.count(), 0u);
    EXPECT_EQ(t.get_thread(0), nullptr);
    EXPECT_EQ(t.create(3), 0);
    ASSERT_NE(t.alloc_thread(3), nullptr);
    EXPECT_NE(t.get_thread(0), nullptr) << "the search begins at 0 again";
    EXPECT_EQ(threads(7).capacity(), 7u);
}

TEST(thread_table, gives_slots_behind_the_last_one)
{
    threads t(4);
    worker* w[4];
    for (int i = 0; i < 2; ++i) {
        w[i] = new worker(i);
        EXPECT_EQ(t.attach(w[i]), i);
        EXPECT_EQ(w[i]->get_no(), static_cast<unsigned>(i));
        EXPECT_EQ(t.get_thread(static_cast<unsigned>(i)), w[i]);
    }
    EXPECT_EQ(t.detach(0), w[0]);
    EXPECT_EQ(t.count(), 1u);
    EXPECT_EQ(t.attach(w[0]), 2) << "not the slot just freed";
    w[2] = new worker;
    EXPECT_EQ(t.attach(w[2]), 3);
    w[3] = new worker;
    EXPECT_EQ(t.attach(w[3]), 0) << "from the start after the end";
    EXPECT_EQ(t.count(), 4u);
    worker one_too_many;
    EXPECT_EQ(t.attach(&one_too_many), code(0x80010003));
    EXPECT_EQ(t.attach(nullptr), code(0x80000007));
    EXPECT_EQ(t.detach(2), w[0]);
    EXPECT_EQ(w[0]->get_no(), 0u);
    delete w[0];
}

TEST(thread_table, without_a_table_has_no_room)
{
    threads t;
    worker w;
    EXPECT_EQ(t.attach(&w), code(0x80010003));
    EXPECT_EQ(t.alloc_thread(1), nullptr);
    EXPECT_EQ(t.get_thread(0), nullptr);
    EXPECT_EQ(t.detach(0), nullptr);
    t.free_thread(0);
    EXPECT_EQ(t.stop_all(), 0);
    EXPECT_EQ(t.wait_done(0, nullptr), code(0x80020004));
    EXPECT_EQ(t.wait_all_done(nullptr), code(0x80020001));
}

TEST(thread_table, detach_of_nothing_is_null)
{
    threads t(3);
    t.alloc_thread(1);
    for (unsigned i : { 1u, 2u, 3u, ~0u }) {
        EXPECT_EQ(t.get_thread(i), nullptr) << i;
        EXPECT_EQ(t.detach(i), nullptr) << i;
        t.free_thread(i);
    }
    EXPECT_EQ(t.count(), 1u);
}

TEST(thread_table, tags_are_made_of_names)
{
    static const struct { const char* name; const char* tag; } cases[] = {
        { "work", "work" }, { "worker", "work" }, { "ab", "ab" }, { "", "" }, { nullptr, "" },
    };
    threads t(8);
    for (const auto& c : cases) {
        worker* w = t.alloc_thread(c.name);
        ASSERT_NE(w, nullptr);
        char text[5];
        EXPECT_STREQ(w->get_tag(text), c.tag);
    }
    EXPECT_EQ(t.alloc_thread(77)->get_tag(), 77L);
    EXPECT_EQ(t.alloc_thread(78L)->get_tag(), 78L);
    EXPECT_EQ(t.alloc_thread(0)->get_tag(), 0L);
    EXPECT_EQ(t.alloc_thread("late"), nullptr) << "full";
    EXPECT_EQ(t.count(), 8u);
}

// A thread that counts its living objects.
class counted_worker : public worker {
public:
    counted_worker() { ++alive; }
    ~counted_worker() override
    {
        terminate();
        --alive;
    }
    static int alive;
};
int counted_worker::alive = 0;

TEST(thread_table, owns_its_threads)
{
    {
        threads t(4);
        for (int i = 0; i < 4; ++i)
            ASSERT_EQ(t.attach(new counted_worker), i);
        t.free_thread(3);
        t.free_thread(2u);
        EXPECT_EQ(counted_worker::alive, 2);
        delete t.detach(1);
        EXPECT_EQ(counted_worker::alive, 1);
        EXPECT_EQ(t.count(), 1u);
        t.clear();
        EXPECT_EQ(counted_worker::alive, 0);
        ASSERT_EQ(t.create(1), 0);
        t.attach(new counted_worker);
    }
    EXPECT_EQ(counted_worker::alive, 0);
}

TEST(thread_table, free_thread_by_pointer_spares_number_zero)
{
    threads t(3);
    worker* w[3];
    for (worker*& each : w)
        each = t.alloc_thread(1);
    t.free_thread(w[0]);
    EXPECT_EQ(t.get_thread(0), w[0]) << "slot 0";
    t.free_thread(w[1]);
    EXPECT_EQ(t.get_thread(1), nullptr);
    ASSERT_EQ(w[2]->start(), 0);
    w[2]->wait_done();
    t.free_thread(w[2]);
    EXPECT_EQ(t.get_thread(2), w[2]) << "its number was cleared by the start";
    worker stranger;
    stranger.set_no(2);
    t.free_thread(&stranger);
    EXPECT_EQ(t.count(), 2u) << "not of this table";
    t.free_thread(nullptr);
}

TEST(thread_table, stop_all_asks_every_thread)
{
    threads t(5);
    const auto run_until_asked = [](worker* self, void*, void*) {
        while (!self->has_states(worker::state_stop))
            breathe();
    };
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(t.alloc_thread(i)->start(nullptr, run_until_asked, nullptr), 0);
    EXPECT_EQ(t.stop_thread(0, nullptr), 0);
    EXPECT_TRUE(t.get_thread(0)->is_activated()) << "does nothing";
    EXPECT_EQ(t.stop_all(), 0);
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(t.wait_done(i, nullptr), 0);
        EXPECT_FALSE(t.get_thread(i)->is_valid());
        EXPECT_EQ(t.wait_done(i, &no_wait), 0) << "nothing to wait for";
    }
    EXPECT_EQ(t.wait_done(3, nullptr), code(0x80020004));
    EXPECT_EQ(t.wait_done(9, nullptr), code(0x80020004));
}

TEST(thread_table, wait_done_waits_no_longer_than_its_limit)
{
    threads t(1);
    counting_worker& w = kept_for_ever<counting_worker>();
    ASSERT_EQ(t.attach(&w), 0);
    ASSERT_EQ(w.start(), 0);
    timer watch;
    const timeval limit = limit_of(0, 40000);
    EXPECT_EQ(t.wait_done(0, &limit), 0);
    EXPECT_GE(watch.spend(), 35.0);
    EXPECT_FALSE(w.is_valid());
    EXPECT_TRUE(w.runs()) << "no longer tracked";
    EXPECT_EQ(t.detach(0), &w);
    w.goes_on = false;
    EXPECT_TRUE(eventually([&] { return !w.has_states(worker::state_running); }));
}

TEST(thread_table, wait_all_done_wants_a_full_table)
{
    threads t(2);
    ASSERT_EQ(t.alloc_thread(1)->start(), 0);
    EXPECT_EQ(t.wait_all_done(nullptr), code(0x80020001));
    counting_worker* w = new counting_worker;
    ASSERT_EQ(t.attach(w), 1);
    EXPECT_EQ(t.wait_all_done(nullptr), code(0x80020001)) << "not started";
    ASSERT_EQ(w->start(), 0);
    EXPECT_EQ(t.wait_all_done(&no_wait), code(0x8002000C));
    w->goes_on = false;
    EXPECT_EQ(t.wait_all_done(nullptr), 0);
    EXPECT_EQ(threads(64).wait_all_done(nullptr), code(0x80000008));
}

// The slot search as the table's description gives it.
class naive_table {
public:
    explicit naive_table(unsigned capacity) : taken_(capacity) {}
    int attach()
    {
        const unsigned n = static_cast<unsigned>(taken_.size());
        for (unsigned i = 0; i < n; ++i) {
            const unsigned slot = next_ + i < n ? next_ + i : next_ + i - n;
            if (!taken_[slot]) {
                taken_[slot] = true;
                next_ = slot + 1;
                return static_cast<int>(slot);
            }
        }
        return code(0x80010003);
    }
    bool detach(unsigned slot)
    {
        const bool was = taken_[slot];
        taken_[slot] = false;
        return was;
    }

private:
    std::vector<bool> taken_;
    unsigned next_ = 0;
};

TEST(thread_table, finds_the_slots_of_a_plain_search)
{
    std::mt19937 random(20260101);
    for (unsigned capacity : { 1u, 2u, 31u, 32u, 33u, 64u, 100u, 1024u }) {
        threads t(capacity);
        naive_table naive(capacity);
        for (int turn = 0; turn < 3000; ++turn) {
            if (random() % 5 < 3) {
                worker* w = new worker;
                const int slot = t.attach(w);
                ASSERT_EQ(slot, naive.attach()) << capacity << " " << turn;
                if (slot < 0)
                    delete w;
            } else {
                const unsigned slot = static_cast<unsigned>(random() % capacity);
                std::unique_ptr<worker> w(t.detach(slot));
                ASSERT_EQ(w != nullptr, naive.detach(slot)) << capacity << " " << turn;
            }
        }
    }
}

TEST(thread_table, is_locked_while_slots_change)
{
    threads t(100);
    const auto come_and_go = [](worker*, void* argument, void*) {
        threads& table = *static_cast<threads*>(argument);
        for (int i = 0; i < 1000; ++i) {
            worker* w = table.alloc_thread(i);
            ASSERT_NE(w, nullptr);
            ASSERT_EQ(table.detach(w->get_no()), w);
            delete w;
        }
    };
    worker all[4];
    for (worker& w : all)
        ASSERT_EQ(w.start(&t, come_and_go, nullptr), 0);
    for (int i = 0; i < 100; ++i)
        t.stop_all();
    for (worker& w : all)
        w.wait_done();
    EXPECT_EQ(t.count(), 0u);
}

// ---- timer -----------------------------------------------------------------

TEST(stopwatch, counts_milliseconds)
{
    EXPECT_GT(timer::get_freq(), 1000.0);
    timer t;
    sync_sem never(0, 1);
    const timeval limit = limit_of(0, 50);
    const double before = timer::current();
    never.lock(&limit);
    const double ticks = timer::current() - before;
    const double spent = t.spend();
    EXPECT_GE(spent, 45.0);
    EXPECT_LE(spent, 25000.0);
    EXPECT_LE(ticks * 1000 / timer::get_freq(), spent);
    EXPECT_GE(t.spend(), spent) << "runs on";
    EXPECT_GE(t.spend_reset(), spent);
    // Whoever is kept from the processor meanwhile tries again.
    EXPECT_TRUE(eventually([&] {
        never.lock(&limit);
        const double before_reset = t.spend_reset();
        return t.spend() < before_reset;
    }));
    EXPECT_TRUE(eventually([&] {
        never.lock(&limit);
        t.reset();
        return t.spend() < 45.0;
    }));
}

TEST(stopwatch, never_goes_back)
{
    double last = timer::current();
    for (int i = 0; i < 100000; ++i) {
        const double now = timer::current();
        ASSERT_GE(now, last);
        last = now;
    }
}

} // namespace
