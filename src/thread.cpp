// A worker thread.
//
// Id, handle and running bit stand before the first instruction of the function.
// Once it may run, `start` touches the object no more: the function may delete it.
#include <stdkro/thread.h>

#include "bug.h"
#include "platform.h"
#include "time_limit.h"

#include <algorithm>
#include <cstring>
#include <stdkro/xcpt.h>

namespace {

constexpr int killed_exit_code = -1;
constexpr unsigned most_waited_for = 63;

// What a thread begins with. The platform keeps it, so that nothing of a thread
// that is killed before it begins is left.
struct start_record {
    thread* self;
    thread::function run;
    void* first;
    void* second;
};
static_assert(sizeof(start_record) <= sys_most_thread_argument, "the platform has room for it");

// The object whose function the calling thread runs.
thread_local thread* current_thread = nullptr;

} // namespace

thread::thread(long tag) : tag_(static_cast<int>(tag)) {}

// KEEP: kills a running thread. Programs drop workers by deleting them.
thread::~thread() { terminate(); }

int thread::start(void* first, function run, void* second)
{
    if (id_ != 0)
        return err::overrun;
    if (!run)
        return err::bad_argument;
    states_.store(0, std::memory_order_relaxed); // KEEP: the slot number goes too
    set_states(state_running);
    const start_record record = { this, run, first, second };
    const int r = sys_thread_start(enter, &record, sizeof record, &handle_, &id_);
    if (r == 0)
        return 0;
    id_ = 0;
    clr_states(state_running);
    return r == sys_no_memory ? err::out_of_memory : err::failed;
}

int thread::start(void* argument) { return start(nullptr, execute, argument); }

void thread::execute(thread* self, void*, void* argument) { self->doExecute(argument); }

void thread::doExecute(void*) {}

// The first function of the new thread.
void thread::enter(void* argument)
{
    const start_record& work = *static_cast<const start_record*>(argument);
    current_thread = work.self;
    work.self->set_states(state_running);
    try {
        work.run(work.self, work.first, work.second);
    } catch (...) {
        // A thread has nobody above it: whatever it throws ends it, and only it.
    }
    work.self->clr_states(state_running);
}

void thread::end(int exit_code)
{
    if (current_thread != this)
        return report_bug("src/thread", __LINE__);
    clr_states(state_running);
    sys_thread_exit(exit_code);
}

void thread::terminate()
{
    if (id_ == 0)
        return;
    const bool self = current_thread == this;
    if (!self)
        sys_thread_kill(handle_, killed_exit_code);
    set_freed();
    clr_states(state_running);
    if (self)
        sys_thread_exit(killed_exit_code);
}

int thread::wait_done() { return wait_done(nullptr); }

// KEEP: after a time-out too the thread is no longer tracked, and the result is
// 0. Callers wait once and start the object again.
int thread::wait_done(const timeval* limit)
{
    if (id_ != 0) {
        sys_thread_wait(handle_, limit_in_ms(limit, as_microseconds));
        set_freed();
    }
    return 0;
}

void thread::set_freed()
{
    sys_thread_close(handle_);
    handle_ = nullptr;
    id_ = 0;
}

bool thread::is_activated() const { return handle_ && sys_thread_exit_code(handle_) == sys_still_active; }

int thread::suspend() { return handle_ ? sys_thread_suspend(handle_) : -1; }

int thread::resume() { return handle_ ? sys_thread_resume(handle_) : -1; }

int thread::get_self_id() { return sys_thread_self(); }

// KEEP: only an index below the last one is a success, and the platform gives
// the first: a completed wait for a single thread reports 0x80020001.
int thread::wait_all_done(thread* const* list, unsigned count, const timeval* limit)
{
    if (count > most_waited_for)
        return err::overflow;
    void* handles[most_waited_for];
    for (unsigned i = 0; i < count; ++i) {
        handles[i] = list && list[i] ? list[i]->handle_ : nullptr;
        if (!handles[i] || std::find(handles, handles + i, handles[i]) != handles + i)
            return err::failed;
    }
    if (count == 0)
        return err::failed;
    const int r = sys_thread_wait_all(handles, count, limit_in_ms(limit, as_milliseconds));
    if (r == sys_wait_timeout)
        return err::timeout;
    return r >= 0 && static_cast<unsigned>(r) < count - 1 ? 0 : err::failed;
}

char* thread::get_tag(char* text) const
{
    std::memcpy(text, &tag_, sizeof tag_);
    text[sizeof tag_] = '\0';
    return text;
}

void thread::set_no(unsigned no)
{
    unsigned states = get_states();
    while (!states_.compare_exchange_weak(states, (states & 0xFFFF) | no << 16, std::memory_order_relaxed)) {
    }
}
