// The door to the operating system: POSIX (Linux). Threads.
//
// Each has a block, shared by its handle, itself and whoever starts it. Handle and
// id must be known before its function runs: the starter and the thread both go
// to tell them, and the first one does. Waiting for the starter instead would cost
// two more switches whenever the thread is the first.
//
// Suspension: a signal brings the thread into a handler, where it parks at a gate
// until the count is 0 again. Killing: the thread parks for ever, with all signals
// blocked, and tells its end itself. Who suspends or kills waits until the thread has
// parked, holding nothing and stopped as any other thread: two may stop each other.
// Sanitizers hold signals back from a thread that does not sleep in a function they
// know, so a wait that was interrupted looks at the gate too, and who waits for the
// thread to park sends the signal again after a while.
#include "platform.h"
#include "platform_posix.h"
#include "platform_posix_futex.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csetjmp>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <new>

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace posix;

namespace {

// The gate is one word, so that a thread cannot leave or end while another suspends
// it: four bits, and the number of suspensions above them.
enum gate_bits : unsigned {
    gate_parked = 1,
    gate_doomed = 2,
    gate_dead = 4,
    gate_closed = 8,
    gate_gone = gate_dead | gate_closed,
    one_suspension = 16
};

enum id_states : unsigned { id_untold, id_being_told, id_awaited, id_told };
enum end_states : unsigned { not_ended, not_ended_and_awaited, has_ended };

struct thread_block {
    std::atomic<unsigned> owners { 3 }; // the handle, the thread, its starter
    futex_word gate { 0 };
    futex_word id_state { id_untold };
    futex_word ended { not_ended };
    std::atomic<int> exit_code { sys_still_active };
    std::atomic<int> killed_exit_code { 0 };
    int own_exit_code = 0;
    int id = 0;
    int* id_wanted = nullptr; // where it is told
    void (*run)(void*) = nullptr;
    alignas(std::max_align_t) char argument[sys_most_thread_argument];
    jmp_buf way_out;
};

// The model: see thread_number beside the locks.
__attribute__((tls_model("initial-exec"))) thread_local thread_block* current_block = nullptr;

// Where the calling thread sleeps as one of many; null for nowhere. Read in the signal's handler.
__attribute__((tls_model("initial-exec"))) thread_local std::atomic<futex_word*> crowded_word { nullptr };
__attribute__((tls_model("initial-exec"))) thread_local futex_scope crowded_scope = this_process;

// The signal that stops threads. Nothing is installed before its first use.
std::atomic<int> stop_signal { 0 };
std::mutex stop_signal_lock;

int preferred_stop_signal() { return SIGRTMAX - 7; }

void drop_block(thread_block* block, unsigned shares = 1)
{
    if (block->owners.fetch_sub(shares, std::memory_order_acq_rel) == shares)
        delete block;
}

// The exit code stands before the end is told. Who waited may have the block deleted at once.
void tell_end(thread_block& block, int exit_code)
{
    block.exit_code.store(exit_code, std::memory_order_relaxed);
    if (block.ended.exchange(has_ended, std::memory_order_acq_rel) == not_ended_and_awaited)
        futex_wake(block.ended, all_sleepers);
}

void wake_another()
{
    if (futex_word* const word = crowded_word.load(std::memory_order_acquire))
        futex_wake(*word, 1, crowded_scope);
}

[[noreturn]] void park_for_ever(thread_block& block)
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    wake_another();
    block.gate.fetch_or(gate_dead, std::memory_order_release);
    futex_wake(block.gate, all_sleepers);
    tell_end(block, block.killed_exit_code.load(std::memory_order_relaxed));
    for (;;)
        pause();
}

// Waits until no suspension is left, and leaves with `mark` set.
void pass_gate(thread_block& block, unsigned mark = 0)
{
    unsigned seen = block.gate.load(std::memory_order_acquire);
    for (;;) {
        if (seen & gate_doomed)
            park_for_ever(block);
        if (seen < one_suspension) {
            if (block.gate.compare_exchange_weak(seen, (seen & ~gate_parked) | mark, std::memory_order_acq_rel))
                return;
            continue;
        }
        if (!(seen & gate_parked)) {
            if (!block.gate.compare_exchange_weak(seen, seen | gate_parked, std::memory_order_acq_rel))
                continue;
            wake_another();
            seen |= gate_parked;
            futex_wake(block.gate, all_sleepers);
        }
        futex_sleep(block.gate, seen, deadline(sys_no_limit));
        seen = block.gate.load(std::memory_order_acquire);
    }
}

} // namespace

posix::one_of_many::one_of_many(futex_word& word, futex_scope scope)
{
    crowded_scope = scope;
    crowded_word.store(&word, std::memory_order_release);
}

posix::one_of_many::~one_of_many() { crowded_word.store(nullptr, std::memory_order_release); }

void posix::look_at_gate()
{
    // Before its block is known a thread looks at the gate anyway.
    if (current_block)
        pass_gate(*current_block);
}

namespace {

void on_stop_signal(int)
{
    const int saved = errno;
    look_at_gate();
    errno = saved;
}

bool is_untouched(int signal)
{
    struct sigaction now;
    return sigaction(signal, nullptr, &now) == 0 && !(now.sa_flags & SA_SIGINFO) && now.sa_handler == SIG_DFL;
}

// Takes the preferred signal, or the next one below that nobody uses.
bool prepare_stop_signal()
{
    const std::lock_guard<std::mutex> guard(stop_signal_lock);
    if (stop_signal.load() != 0)
        return true;
    int signal = preferred_stop_signal();
    while (signal >= SIGRTMIN && !is_untouched(signal))
        --signal;
    struct sigaction action = {};
    action.sa_handler = on_stop_signal;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    if (signal < SIGRTMIN || sigaction(signal, &action, nullptr) != 0)
        return false;
    stop_signal.store(signal);
    return true;
}

// Keeps the calling thread from being stopped with the lock above, and before it sent
// the signal to a thread whose gate it raised.
class unstoppable {
public:
    unstoppable()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    unstoppable(const unstoppable&) = delete;
    unstoppable& operator=(const unstoppable&) = delete;
    ~unstoppable() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

bool has_finished(const thread_block& block) { return block.ended.load(std::memory_order_acquire) == has_ended; }
bool was_killed(const thread_block& block) { return has_finished(block) && block.gate.load() & gate_dead; }

// Adds a suspension, if the thread is not gone and has fewer than `limit`. Returns the gate before.
unsigned raise_gate(thread_block& block, unsigned limit)
{
    unsigned seen = block.gate.load(std::memory_order_acquire);
    while (!(seen & gate_gone) && seen < limit
           && !block.gate.compare_exchange_weak(seen, seen + one_suspension, std::memory_order_acq_rel)) {
    }
    return seen;
}

// Of several who kill it one gives the exit code.
void doom(thread_block& block, int exit_code)
{
    unsigned seen = block.gate.load(std::memory_order_acquire);
    if (!(seen & gate_doomed))
        block.killed_exit_code.store(exit_code, std::memory_order_relaxed);
    while (!(seen & gate_closed)
           && !block.gate.compare_exchange_weak(seen, seen | gate_doomed, std::memory_order_acq_rel)) {
    }
    futex_wake(block.gate, all_sleepers);
}

void send_stop_signal(thread_block& block)
{
    if (!(block.gate.load(std::memory_order_acquire) & (gate_parked | gate_gone)))
        syscall(SYS_tgkill, getpid(), block.id, stop_signal.load());
}

// Until `is_there(deadline)`. Meanwhile the calling thread may be stopped itself.
template <class F> void call_to_gate(thread_block& block, F is_there)
{
    constexpr unsigned longest_patience = 1000;
    unsigned patience = 1;
    look_at_gate();
    while (!is_there(deadline(patience))) {
        patience = std::min(2 * patience, longest_patience);
        send_stop_signal(block);
        look_at_gate();
    }
}

// Whether the thread stands still, or nobody wants it to any more.
bool wait_until_stopped(thread_block& block, const deadline& until)
{
    for (;;) {
        const unsigned seen = block.gate.load(std::memory_order_acquire);
        if (seen < one_suspension || seen & (gate_parked | gate_dead))
            return true;
        if (!futex_wait(block.gate, seen, until))
            return false;
    }
}

// The end of a thread is told by the destructor of a thread-specific value: by
// then its thread_local objects are gone. Behind the closed gate nobody stops it.
void finish_thread(void* value)
{
    thread_block* block = static_cast<thread_block*>(value);
    pass_gate(*block, gate_closed);
    tell_end(*block, block->own_exit_code);
    current_block = nullptr;
    drop_block(block);
}

struct thread_setting {
    pthread_key_t end_key;
    pthread_attr_t detached;
    bool sound;
};

const thread_setting& setting()
{
    static const thread_setting made = [] {
        thread_setting s;
        s.sound = pthread_key_create(&s.end_key, finish_thread) == 0 && pthread_attr_init(&s.detached) == 0
            && pthread_attr_setdetachstate(&s.detached, PTHREAD_CREATE_DETACHED) == 0;
        return s;
    }();
    return made;
}

// A thread inherits the mask of its maker, who may have blocked everything.
void let_stop_signal_through()
{
    sigset_t signals;
    sigemptyset(&signals);
    const int taken = stop_signal.load(std::memory_order_relaxed);
    sigaddset(&signals, taken ? taken : preferred_stop_signal());
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

// The kernel's number of a thread that cannot have ended yet. A thread's clock
// is named by the complement of its number, above three bits.
int id_of(pthread_t thread)
{
    clockid_t clock = 0;
    return pthread_getcpuclockid(thread, &clock) == 0 ? ~(clock >> 3) : 0;
}

// Until its id is told a thread cannot end.
void tell_id(thread_block& block, pthread_t thread)
{
    unsigned seen = id_untold;
    if (block.id_state.compare_exchange_strong(seen, id_being_told, std::memory_order_acq_rel)) {
        *block.id_wanted = block.id = id_of(thread);
        if (block.id_state.exchange(id_told, std::memory_order_acq_rel) == id_awaited)
            futex_wake(block.id_state, all_sleepers);
        return;
    }
    while (seen != id_told) {
        if (seen == id_awaited || block.id_state.compare_exchange_strong(seen, id_awaited, std::memory_order_acq_rel))
            futex_wait(block.id_state, id_awaited);
        seen = block.id_state.load(std::memory_order_acquire);
    }
}

void* thread_main(void* argument)
{
    thread_block* block = static_cast<thread_block*>(argument);
    current_block = block;
    const bool finishes = pthread_setspecific(setting().end_key, block) == 0;
    let_stop_signal_through();
    pass_gate(*block); // it may be stopped already
    tell_id(*block, pthread_self());
    if (_setjmp(block->way_out) == 0)
        block->run(block->argument);
    if (!finishes)
        finish_thread(block);
    return nullptr;
}

thread_block* block_of(void* thread) { return static_cast<thread_block*>(thread); }

// Giving way a few times is cheaper than falling asleep for a thread that does
// little: it often ends on this very processor meanwhile. But on a busy machine
// others take the way given, for milliseconds. After such a loss the next waits
// fall asleep at once: the more of them, the more often it happened.
void give_way(const thread_block& block)
{
    constexpr int ways = 4;
    constexpr double dear = 1e5; // nanoseconds
    constexpr unsigned fewest = 64, most = 1 << 16;
    static std::atomic<unsigned> waits_without { 0 };
    static std::atomic<unsigned> penalty { fewest };
    const unsigned without = waits_without.load(std::memory_order_relaxed);
    if (without > 0)
        return waits_without.store(without - 1, std::memory_order_relaxed);
    const double begin = sys_ticks();
    for (int i = 0; i < ways && !has_finished(block); ++i)
        sched_yield();
    const unsigned last = penalty.load(std::memory_order_relaxed);
    if (sys_ticks() - begin > dear) {
        waits_without.store(last, std::memory_order_relaxed);
        penalty.store(std::min(last * 4, most), std::memory_order_relaxed);
    } else {
        penalty.store(std::max(last - last / 64, fewest), std::memory_order_relaxed);
    }
}

int sleep_until_end(thread_block& block, const deadline& until)
{
    for (;;) {
        unsigned seen = not_ended;
        block.ended.compare_exchange_strong(seen, not_ended_and_awaited, std::memory_order_acq_rel);
        if (seen == has_ended)
            return sys_wait_done;
        if (!futex_wait(block.ended, not_ended_and_awaited, until))
            return has_finished(block) ? sys_wait_done : sys_wait_timeout;
    }
}

int wait_for_end(thread_block& block, const deadline& until)
{
    give_way(block);
    return sleep_until_end(block, until);
}

} // namespace

int sys_thread_start(void (*run)(void*), const void* argument, unsigned size, void** thread, int* id)
{
    *thread = nullptr;
    if (!setting().sound)
        return fail_with(EAGAIN);
    thread_block* block = new (std::nothrow) thread_block;
    if (!block) {
        fail_with(ENOMEM);
        return sys_no_memory;
    }
    block->run = run;
    std::memcpy(block->argument, argument, size);
    block->id_wanted = id;
    *thread = block;
    pthread_t made;
    const int r = pthread_create(&made, &setting().detached, thread_main, block);
    if (r != 0) {
        *thread = nullptr;
        delete block;
        return fail_with(r);
    }
    tell_id(*block, made);
    drop_block(block);
    return 0;
}

void sys_thread_close(void* thread)
{
    if (!thread)
        return;
    thread_block* block = block_of(thread);
    drop_block(block, was_killed(*block) ? 2 : 1); // a killed thread never gives its share back
}

int sys_thread_wait(void* thread, unsigned limit) { return wait_for_end(*block_of(thread), deadline(limit)); }

int sys_thread_wait_all(void* const* list, unsigned count, unsigned limit)
{
    const deadline until(limit);
    int r = sys_wait_done;
    for (unsigned i = 0; i < count && r == sys_wait_done; ++i)
        r = wait_for_end(*block_of(list[i]), until);
    return r;
}

int sys_thread_exit_code(void* thread) { return block_of(thread)->exit_code.load(std::memory_order_relaxed); }

int sys_thread_suspend(void* thread)
{
    constexpr unsigned limit = most_suspensions * one_suspension;
    thread_block& block = *block_of(thread);
    unsigned seen;
    {
        const unstoppable here;
        if (has_finished(block) || !prepare_stop_signal())
            return fail_with(ESRCH);
        seen = raise_gate(block, limit);
        if (seen & gate_gone || seen >= limit)
            return fail_with(seen & gate_gone ? ESRCH : EOVERFLOW);
        if (&block != current_block)
            send_stop_signal(block);
    }
    call_to_gate(block, [&](const deadline& until) { return wait_until_stopped(block, until); });
    return static_cast<int>(seen / one_suspension);
}

int sys_thread_resume(void* thread)
{
    thread_block& block = *block_of(thread);
    unsigned seen = block.gate.load(std::memory_order_acquire);
    do {
        if (seen & gate_closed || has_finished(block))
            return fail_with(ESRCH);
        if (seen < one_suspension)
            return 0;
    } while (!block.gate.compare_exchange_weak(seen, seen - one_suspension, std::memory_order_acq_rel));
    if (seen < 2 * one_suspension)
        futex_wake(block.gate, all_sleepers);
    return static_cast<int>(seen / one_suspension);
}

void sys_thread_kill(void* thread, int exit_code)
{
    thread_block& block = *block_of(thread);
    {
        const unstoppable here;
        if (has_finished(block) || !prepare_stop_signal())
            return;
        doom(block, exit_code);
        send_stop_signal(block);
    }
    call_to_gate(block, [&](const deadline& until) { return sleep_until_end(block, until) == sys_wait_done; });
}

void sys_thread_exit(int exit_code)
{
    current_block->own_exit_code = exit_code;
    _longjmp(current_block->way_out, 1);
}

int sys_thread_self() { return gettid(); }
