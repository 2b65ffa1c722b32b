// Locks and threads against POSIX threads and the standard library.
#include <stdkro/thread.h>

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <pthread.h>

namespace {

// The C library leaves atomic operations out as long as there was one thread only:
// locks are measured in a process that has threads.
const bool has_threads = [] {
    std::thread([] {}).join();
    return true;
}();

// ---- an uncontended recursive lock -----------------------------------------

void critical_ours(benchmark::State& state)
{
    sync_critical c;
    sync_object& lock = c;
    for (auto _ : state) {
        lock.lock(nullptr);
        benchmark::ClobberMemory();
        lock.unlock();
    }
}
BENCHMARK(critical_ours)->Name("lock/critical/ours");

void critical_pthread(benchmark::State& state)
{
    pthread_mutexattr_t recursive;
    pthread_mutexattr_init(&recursive);
    pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t m;
    pthread_mutex_init(&m, &recursive);
    for (auto _ : state) {
        pthread_mutex_lock(&m);
        benchmark::ClobberMemory();
        pthread_mutex_unlock(&m);
    }
    pthread_mutex_destroy(&m);
    pthread_mutexattr_destroy(&recursive);
}
BENCHMARK(critical_pthread)->Name("lock/critical/pthread");

// ---- a semaphore with counts to give ---------------------------------------

void semaphore_ours(benchmark::State& state)
{
    sync_sem s(1, 2);
    for (auto _ : state) {
        if (!s.lock(nullptr) || !s.unlock())
            state.SkipWithError("no count");
    }
}
BENCHMARK(semaphore_ours)->Name("lock/semaphore/ours");

// The textbook's: a count under a mutex.
class plain_semaphore {
public:
    plain_semaphore(int count, int maximum) : count_(count), maximum_(maximum) {}
    bool lock()
    {
        std::unique_lock<std::mutex> guard(mutex_);
        given_.wait(guard, [this] { return count_ > 0; });
        --count_;
        return true;
    }
    bool unlock()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (count_ == maximum_)
            return false;
        ++count_;
        given_.notify_one();
        return true;
    }

private:
    std::mutex mutex_;
    std::condition_variable given_;
    int count_;
    int maximum_;
};

void semaphore_mutex(benchmark::State& state)
{
    plain_semaphore s(1, 2);
    for (auto _ : state) {
        if (!s.lock() || !s.unlock())
            state.SkipWithError("no count");
    }
}
BENCHMARK(semaphore_mutex)->Name("lock/semaphore/mutex and condition");

// ---- start and wait --------------------------------------------------------

int turns = 0;

// Very short rounds, and many of them: on a busy machine some take a hundred times as
// long as others, and only a median of many tells the sides apart.
void often(benchmark::internal::Benchmark* b) { b->UseRealTime()->Iterations(20)->Repetitions(301); }

void start_ours(benchmark::State& state)
{
    thread t;
    for (auto _ : state) {
        if (t.start(nullptr, [](thread*, void*, void*) { ++turns; }, nullptr) != 0)
            state.SkipWithError("not started");
        t.wait_done();
    }
}
BENCHMARK(start_ours)->Name("thread/start and wait/ours")->Apply(often);

void start_std(benchmark::State& state)
{
    for (auto _ : state)
        std::thread([] { ++turns; }).join();
}
BENCHMARK(start_std)->Name("thread/start and wait/std-thread")->Apply(often);

// ---- a slot of a table of 1,024 --------------------------------------------

constexpr unsigned capacity = 1024;

void slot_ours(benchmark::State& state)
{
    threads table(capacity);
    for (unsigned i = 0; i < capacity / 2; ++i)
        table.alloc_thread(1);
    thread t;
    for (auto _ : state) {
        const int slot = table.attach(&t);
        if (slot < 0 || table.detach(static_cast<unsigned>(slot)) != &t)
            state.SkipWithError("no slot");
    }
}
BENCHMARK(slot_ours)->Name("thread/slot of 1024/ours");

class free_list {
public:
    free_list() : table_(capacity)
    {
        for (unsigned i = capacity; i-- > 0;)
            free_.push_back(i);
    }
    unsigned attach(thread* t)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const unsigned slot = free_.back();
        free_.pop_back();
        table_[slot] = t;
        t->set_no(slot);
        return slot;
    }
    thread* detach(unsigned slot)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        thread* t = table_[slot];
        table_[slot] = nullptr;
        free_.push_back(slot);
        t->set_no(0);
        return t;
    }

private:
    std::mutex mutex_;
    std::vector<thread*> table_;
    std::vector<unsigned> free_;
};

void slot_free_list(benchmark::State& state)
{
    free_list table;
    std::vector<std::unique_ptr<thread>> others;
    for (unsigned i = 0; i < capacity / 2; ++i) {
        others.push_back(std::make_unique<thread>());
        table.attach(others.back().get());
    }
    thread t;
    for (auto _ : state) {
        if (table.detach(table.attach(&t)) != &t)
            state.SkipWithError("no slot");
    }
}
BENCHMARK(slot_free_list)->Name("thread/slot of 1024/free list");

} // namespace
