// The lock family: the platform's semaphore and critical section behind one
// interface.
#include <stdkro/thread.h>

#include "platform.h"
#include "time_limit.h"

// KEEP: `trylock` waits. Callers use it as a `lock` without arguments.
bool sync_object::trylock() { return lock(nullptr); }

sync_object::~sync_object() = default;

sync_sem::sync_sem(int initial, int maximum) { create(initial, maximum); }

sync_sem::~sync_sem() { close(); }

bool sync_sem::create(int initial, int maximum)
{
    close();
    return create(nullptr, initial, maximum);
}

// KEEP: the present handle is not closed. A caller that keeps a copy of the
// semaphore goes on using it.
bool sync_sem::create(const char* name, int initial, int maximum)
{
    const bool sound = initial >= 0 && maximum >= 1 && initial <= maximum;
    handle_ = sound ? sys_semaphore_open(name, initial, maximum) : nullptr;
    return handle_ != nullptr;
}

void sync_sem::close()
{
    sys_semaphore_close(handle_);
    handle_ = nullptr;
}

// KEEP: microseconds count as milliseconds. Limits in the field are tuned to it.
bool sync_sem::lock(const timeval* limit)
{
    const unsigned ms = limit ? limit_in_ms(limit, as_milliseconds) : sys_no_limit;
    return sys_semaphore_wait(handle_, ms) == sys_wait_done;
}

bool sync_sem::unlock() { return sys_semaphore_post(handle_) == 0; }

sync_critical::sync_critical() { sys_critical_open(section_); }

sync_critical::sync_critical(const sync_critical& other) : sync_object(other) { sys_critical_open(section_); }

sync_critical::~sync_critical() { sys_critical_close(section_); }

bool sync_critical::lock(const timeval*) { return sys_critical_enter(section_); }

bool sync_critical::unlock() { return sys_critical_leave(section_); }

smart_lock::smart_lock(sync_object& object, bool lock_now) : object_(object), locked_(lock_now && object.lock(nullptr))
{
}

smart_lock::~smart_lock() { unlock(); }

bool smart_lock::lock(const timeval* limit) { return locked_ = object_.lock(limit); }

bool smart_lock::trylock() { return locked_ = object_.trylock(); }

bool smart_lock::unlock()
{
    if (locked_)
        locked_ = !object_.unlock();
    return !locked_;
}
