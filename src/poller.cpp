// The loop in the manner of poll: a record for each slot.
//
// The records are the loop's own truth; what the system waits for is derived from them
// when they have changed (watch_table).
#include <stdkro/poller.h>

#include "loop_time.h"
#include "watch_table.h"

#include <algorithm>
#include <new>

// A slot's descriptor (-1: unused), the events wanted, and the descriptor's number in the watch table,
// where the events returned stand: none for the number -1, which a record has until the next wait.
struct poller::record {
    int fd;
    short wanted;
    int watched;
};

namespace {

// Only the low 16 bits of the wanted events are kept.
short low_bits(int events) { return static_cast<short>(events & 0xFFFF); }

} // namespace

poller::poller(unsigned capacity) : waker_(sys_no_socket)
{
    if (capacity != 0)
        create(capacity);
}

poller::~poller() { clear(); }

int poller::create(unsigned capacity)
{
    clear();
    if (expand(capacity) < 0 || capacity == 0)
        return -1;
    waker_ = sys_waker_open();
    return 0;
}

int poller::expand(unsigned capacity)
{
    const unsigned before = objects_.capacity();
    if (capacity <= before)
        return 0;
    record* const records = capacity <= 0x7FFFFFF ? new (std::nothrow) record[capacity] : nullptr;
    watch_table* const watch = watch_table::create(capacity, watch_);
    if (!records || !watch || objects_.expand(capacity) < 0) {
        delete[] records;
        watch_table::destroy(watch);
        return -1;
    }
    std::copy_n(records_, before, records);
    std::fill(records + before, records + capacity, record { -1, 0, -1 });
    delete[] records_;
    watch_table::destroy(watch_);
    records_ = records;
    watch_ = watch;
    is_changed_ = true;
    return 0;
}

int poller::add(fdbase& object, int events)
{
    const int index = objects_.add(object);
    if (index < 0)
        return index;
    records_[index] = { object.get_fd(), low_bits(events), -1 };
    is_changed_ = true;
    return index;
}

int poller::remove(int index)
{
    const int r = objects_.remove(index);
    if (r < 0)
        return r;
    records_[index].fd = -1;
    is_changed_ = true;
    return 0;
}

int poller::set_events(int index, int events)
{
    if (!get(index))
        return -1;
    records_[index].wanted = low_bits(events);
    is_changed_ = true;
    return 0;
}

void poller::clear()
{
    objects_.clear();
    delete[] records_;
    records_ = nullptr;
    watch_table::destroy(watch_);
    watch_ = nullptr;
    sys_socket_close(waker_);
    waker_ = sys_no_socket;
    is_changed_ = true;
}

void poller::destroy()
{
    objects_.destroy();
    clear();
}

void poller::rebuild_watch()
{
    watch_->clear();
    for (unsigned i = 0; i < capacity(); ++i)
        watch_->enter(records_[i].fd, records_[i].wanted);
    for (unsigned i = 0; i < capacity(); ++i)
        records_[i].watched = watch_->number_of(records_[i].fd);
    is_changed_ = false;
}

int poller::wait(const timeval* limit)
{
    if (watch_ && is_changed_)
        rebuild_watch();
    const loop_time time(limit, microseconds_of_fraction);
    const int n = watch_ ? watch_->wait(time.limit(), waker_) : -1;
    if (n <= 0 && watch_)
        watch_->forget_ready(); // a handler that waits too goes on with these results
    if (waited_)
        waited_(waited_argument_);
    if (n > 0)
        dispatch();
    return n;
}

// Handlers may change everything: each step looks at the present arrays. This is most of what a wait
// costs besides the system's part.
void poller::dispatch()
{
    for (unsigned i = 0; i < capacity(); ++i) {
        fdbase* const object = at(i);
        if (object && records_[i].fd >= 0)
            object->dispatch_events(watch_->ready(records_[i].watched));
    }
}

void poller::refresh()
{
    for (unsigned i = 0; i < capacity(); ++i) {
        fdbase* const object = get(static_cast<int>(i));
        if (!object)
            continue;
        int events = 0;
        const int fd = object->get_events(events);
        records_[i] = { fd, low_bits(events), -1 };
    }
    is_changed_ = true;
}

int poller::wake() { return sys_waker_wake(waker_); }

void poller::setwaitcallback(poll_callback callback, void* argument)
{
    waited_ = callback;
    waited_argument_ = argument;
}
