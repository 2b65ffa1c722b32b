// The door to the operating system: POSIX (Linux). Critical sections and semaphores.
#include "handle_table.h"
#include "platform.h"
#include "platform_posix.h"
#include "platform_posix_names.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>

#include <sys/mman.h>

using namespace posix;

namespace {

// The number of the calling thread, given with its first lock and never again: an address would
// be the next thread's, who would own what this one left locked. The model makes it a constant
// distance from the thread's register, without a call.
enum : std::uint64_t { not_numbered = 0, nobody = ~std::uint64_t { 0 } };
__attribute__((tls_model("initial-exec"))) thread_local std::uint64_t thread_number = not_numbered;

__attribute__((noinline)) void number_thread()
{
    static std::atomic<std::uint64_t> last { 0 };
    thread_number = last.fetch_add(1, std::memory_order_relaxed) + 1;
}

// A recursive lock.
struct critical {
    enum : unsigned { is_free, is_taken, has_sleepers };
    futex_word state { is_free };
    unsigned again = 0; // how often the owner entered beyond the first time
    std::atomic<std::uint64_t> owner { nobody };
};
static_assert(sizeof(critical) <= 6 * sizeof(void*), "sync_critical has room for it");

bool own(critical& c, std::uint64_t self)
{
    c.owner.store(self, std::memory_order_relaxed);
    return true;
}

__attribute__((noinline)) bool enter_contended(critical& c, std::uint64_t self)
{
    const one_of_many here(c.state, this_process);
    while (c.state.exchange(critical::has_sleepers, std::memory_order_acquire) != critical::is_free)
        futex_wait(c.state, critical::has_sleepers);
    return own(c, self);
}

__attribute__((noinline)) bool wake_next(critical& c)
{
    futex_wake(c.state, 1);
    return true;
}

bool take_count(semaphore& s)
{
    unsigned count = s.likely_count.load(std::memory_order_relaxed);
    if (count == 0)
        count = s.count.load(std::memory_order_relaxed);
    while (count > 0) {
        if (s.count.compare_exchange_weak(count, count - 1, std::memory_order_acquire, std::memory_order_relaxed)) {
            s.likely_count.store(count - 1, std::memory_order_relaxed);
            return true;
        }
    }
    return false;
}

void wake_waiter(semaphore& s, futex_scope scope)
{
    if (s.waiters.load() > 0)
        futex_wake(s.count, 1, scope);
}

// A waiter is woken at the maximum too: the one before may have died with its process.
int give_count(semaphore& s, futex_scope scope)
{
    unsigned count = s.likely_count.load(std::memory_order_relaxed);
    if (count >= s.maximum)
        count = s.count.load(std::memory_order_relaxed);
    do {
        if (count >= s.maximum) {
            wake_waiter(s, scope);
            return fail_with(EOVERFLOW);
        }
    } while (!s.count.compare_exchange_weak(count, count + 1));
    s.likely_count.store(count + 1, std::memory_order_relaxed);
    wake_waiter(s, scope);
    return 0;
}

__attribute__((noinline)) int wait_for_count(semaphore& s, unsigned limit, futex_scope scope)
{
    const deadline until(limit);
    const one_of_many here(s.count, scope);
    s.waiters.fetch_add(1);
    bool in_time = true;
    bool taken = take_count(s);
    while (!taken && in_time) {
        in_time = futex_wait(s.count, 0, until, scope);
        taken = take_count(s);
    }
    s.waiters.fetch_sub(1);
    return taken ? sys_wait_done : sys_wait_timeout;
}

// An unnamed semaphore, or what this process keeps of a named one.
struct semaphore_block {
    semaphore counts;
    std::atomic<unsigned> users; // its handle, and who sleeps on it in this process
};

struct semaphore_record {
    semaphore_block* block;
    semaphore* counts;
    named_object object;
};

handle_table<semaphore_record> semaphores;

futex_scope scope_of(const semaphore_record& record) { return record.object.head ? all_processes : this_process; }

// Whoever sleeps on a closed semaphore sleeps on: the last user takes its memory away.
void drop_semaphore(const semaphore_record& record)
{
    if (record.block->users.fetch_sub(1) > 1)
        return;
    if (record.object.head)
        munmap(record.object.head, head_size);
    delete record.block;
}

// The slot may be another semaphore's when this one is closed meanwhile: a copy stays.
__attribute__((noinline)) int wait_asleep(semaphore_record record, unsigned limit)
{
    record.block->users.fetch_add(1);
    const int r = wait_for_count(*record.counts, limit, scope_of(record));
    drop_semaphore(record);
    return r;
}

bool open_named_semaphore(const char* name, const semaphore_block& block, named_object* object)
{
    object_head wanted {};
    if (!name_object(name, semaphore_object, &wanted))
        return false;
    wanted.counts.count.store(block.counts.count.load());
    wanted.counts.maximum = block.counts.maximum;
    try {
        return open_object(wanted, true, 0, object);
    } catch (const std::bad_alloc&) {
        fail_with(ENOMEM);
        return false;
    }
}

} // namespace

void sys_critical_open(void* section) { new (section) critical; }

bool sys_critical_enter(void* section)
{
    critical& c = *static_cast<critical*>(section);
    if (thread_number == not_numbered)
        number_thread();
    const std::uint64_t self = thread_number;
    if (c.owner.load(std::memory_order_relaxed) == self) {
        ++c.again;
        return true;
    }
    unsigned expected = critical::is_free;
    if (!c.state.compare_exchange_strong(expected, critical::is_taken, std::memory_order_acquire))
        return enter_contended(c, self);
    return own(c, self);
}

bool sys_critical_leave(void* section)
{
    critical& c = *static_cast<critical*>(section);
    if (c.owner.load(std::memory_order_relaxed) != thread_number)
        return true;
    if (c.again > 0) {
        --c.again;
        return true;
    }
    c.owner.store(nobody, std::memory_order_relaxed);
    const bool awaited = c.state.exchange(critical::is_free, std::memory_order_release) == critical::has_sleepers;
    return awaited ? wake_next(c) : true;
}

void sys_critical_close(void*) {}

void* sys_semaphore_open(const char* name, int initial, int maximum)
{
    std::unique_ptr<semaphore_block> block(new (std::nothrow) semaphore_block {});
    if (!block) {
        fail_with(ENOMEM);
        return nullptr;
    }
    block->counts.count.store(static_cast<unsigned>(initial));
    block->counts.likely_count.store(static_cast<unsigned>(initial));
    block->counts.maximum = static_cast<unsigned>(maximum);
    block->users.store(1);
    named_object object = { -1, nullptr };
    if (name && *name && !open_named_semaphore(name, *block, &object))
        return nullptr;
    semaphore* counts = object.head ? &object.head->counts : &block->counts;
    void* handle = semaphores.add({ block.get(), counts, object });
    if (!handle) {
        if (object.head)
            close_object(object, false);
        fail_with(ENOMEM);
        return nullptr;
    }
    block.release();
    return handle;
}

int sys_semaphore_wait(void* handle, unsigned limit)
{
    const semaphore_record* found = semaphores.find(handle);
    if (!found)
        return fail_with(EBADF);
    return take_count(*found->counts) ? sys_wait_done : wait_asleep(*found, limit);
}

int sys_semaphore_post(void* handle)
{
    const semaphore_record* found = semaphores.find(handle);
    return found ? give_count(*found->counts, scope_of(*found)) : fail_with(EBADF);
}

void sys_semaphore_close(void* handle)
{
    semaphore_record record;
    if (!semaphores.remove(handle, &record))
        return;
    if (record.object.head)
        close_object(record.object, true);
    drop_semaphore(record);
}
