// The loop in the manner of select: three sets of descriptors that are kept from one
// wait to the next.
//
// The sets decide what is waited for; what the system takes is derived from
// them when they have changed (watch_table).
#include <stdkro/poller.h>

#include "time_limit.h"
#include "watch_table.h"

#include <stdkro/platform_types.h>
#include <stdkro/xcpt.h>

#include <algorithm>
#include <new>

// The descriptors of one condition, and how often it was asked for.
struct selector::interest_set {
    sock_fd_set members;
    // KEEP: also counts descriptors for which the set had no room; a loop with only such
    // ones waits instead of sleeping.
    unsigned interest;

    int find(int fd) const
    {
        const unsigned* const end = members.fd_array + members.fd_count;
        const unsigned* const found = std::find(members.fd_array, end, static_cast<unsigned>(fd));
        return found == end ? -1 : static_cast<int>(found - members.fd_array);
    }

    void enter(int fd)
    {
        if (find(fd) < 0 && members.fd_count < 1024)
            members.fd_array[members.fd_count++] = static_cast<unsigned>(fd);
        ++interest;
    }

    // Keeps the order of the others.
    void take_out(int fd)
    {
        const int at = find(fd);
        if (at < 0)
            return;
        std::copy(members.fd_array + at + 1, members.fd_array + members.fd_count, members.fd_array + at);
        --members.fd_count;
        --interest;
    }

    void clear() { members.fd_count = interest = 0; }
};

// A slot's descriptor (-1: none), and its number in the watch table.
struct selector::slot {
    int fd;
    int watched;
};

namespace {

constexpr int set_count = 3; // read, write, exception: ORDER events

// KEEP: an empty loop never blocks for ever; programs poll other things meanwhile.
const timeval pause_of_empty = { 0, 10000 };

// A sleep takes whole milliseconds, rounded down.
timeval pause_of(const timeval& limit)
{
    const unsigned ms = limit_in_ms(&limit, as_microseconds);
    return { static_cast<long>(ms / 1000), static_cast<long>(ms % 1000 * 1000) };
}

} // namespace

selector::selector(unsigned capacity) : waker_(sys_no_socket)
{
    if (capacity != 0)
        create(capacity);
}

selector::~selector() { clear(); }

int selector::create(unsigned capacity)
{
    clear();
    if (capacity == 0)
        return -1;
    const int r = expand(capacity);
    if (r < 0)
        return r;
    waker_ = sys_waker_open();
    return 0;
}

int selector::expand(unsigned capacity)
{
    const unsigned before = objects_.capacity();
    if (capacity <= before)
        return 0;
    slot* const slots = capacity <= 0x7FFFFFF ? new (std::nothrow) slot[capacity] : nullptr;
    watch_table* const watch = watch_table::create(capacity, watch_);
    interest_set* const sets = sets_ ? sets_ : new (std::nothrow) interest_set[set_count];
    if (!slots || !watch || !sets || objects_.expand(capacity) < 0) {
        delete[] slots;
        watch_table::destroy(watch);
        if (!sets_)
            delete[] sets;
        return err::out_of_memory;
    }
    std::copy_n(slots_, before, slots);
    std::fill(slots + before, slots + capacity, slot { -1, -1 });
    if (!sets_)
        std::for_each(sets, sets + set_count, [](interest_set& s) { s.clear(); });
    delete[] slots_;
    watch_table::destroy(watch_);
    slots_ = slots;
    sets_ = sets;
    watch_ = watch;
    is_changed_ = true;
    return 0;
}

void selector::enter(int fd, int events)
{
    for (int k = 0; fd >= 0 && k < set_count; ++k)
        if (events >> k & 1)
            sets_[k].enter(fd);
    is_changed_ = true;
}

void selector::take(int index, int fd, int events)
{
    slots_[index] = { fd, watch_->number_of(fd) };
    enter(fd, events);
}

void selector::take_out(int fd)
{
    for (int k = 0; k < set_count; ++k)
        sets_[k].take_out(fd);
    is_changed_ = true;
}

int selector::add(fdbase& object, int events)
{
    const int index = objects_.add(object);
    if (index < 0)
        return index;
    take(index, object.get_fd(), events);
    return index;
}

int selector::remove(int index)
{
    const int r = objects_.remove(index);
    if (r < 0)
        return r;
    take_out(slots_[index].fd);
    slots_[index] = { -1, -1 };
    return 0;
}

int selector::set_events(int index, int events)
{
    if (!get(index))
        return -1;
    const int fd = slots_[index].fd;
    for (int k = 0; fd >= 0 && k < set_count; ++k) {
        const bool is_member = sets_[k].find(fd) >= 0;
        const bool is_wanted = events >> k & 1;
        if (is_wanted && !is_member)
            sets_[k].enter(fd);
        if (!is_wanted && is_member)
            sets_[k].take_out(fd);
    }
    is_changed_ = true;
    return 0;
}

void selector::clear()
{
    objects_.clear();
    delete[] slots_;
    delete[] sets_;
    watch_table::destroy(watch_);
    slots_ = nullptr;
    sets_ = nullptr;
    watch_ = nullptr;
    sys_socket_close(waker_);
    waker_ = sys_no_socket;
    is_changed_ = true;
}

void selector::destroy()
{
    objects_.destroy();
    clear();
}

bool selector::has_interest() const
{
    return sets_ && std::any_of(sets_, sets_ + set_count, [](const interest_set& s) { return s.interest > 0; });
}

void selector::rebuild_watch()
{
    watch_->clear();
    for (int k = 0; k < set_count; ++k)
        for (unsigned i = 0; i < sets_[k].members.fd_count; ++i)
            watch_->enter(static_cast<int>(sets_[k].members.fd_array[i]), 1 << k);
    for (unsigned i = 0; i < capacity(); ++i)
        slots_[i].watched = watch_->number_of(slots_[i].fd);
    is_changed_ = false;
}

int selector::wait(const timeval* limit)
{
    // What is watched stands fixed before the callback: what it adds or removes takes part from the
    // next wait on.
    const bool is_watching = has_interest();
    if (is_watching && is_changed_)
        rebuild_watch();
    call_before();
    int n = 0;
    if (is_watching && watch_) {
        n = watch_->wait(limit, waker_);
    } else {
        const timeval pause = limit ? pause_of(*limit) : pause_of_empty;
        sys_waker_sleep(waker_, &pause);
    }
    call_after();
    if (n > 0)
        dispatch(n);
    return n;
}

// Three passes, each ending after n calls. Handlers may change everything: each step looks at the
// present arrays; the results of the wait stay until the next one.
void selector::dispatch(int n)
{
    int (fdbase::*const handlers[set_count])() = { &fdbase::do_read, &fdbase::do_write, &fdbase::do_error };
    const int ready = watch_ ? watch_->ready_of_all() : 0;
    for (int k = 0; k < set_count; ++k) {
        int calls = ready >> k & 1 ? 0 : n;
        for (unsigned i = 0; i < capacity() && calls < n; ++i) {
            fdbase* const object = get(static_cast<int>(i));
            if (!object || !(watch_->ready(slots_[i].watched) >> k & 1))
                continue;
            ++calls;
            (object->*handlers[k])();
        }
    }
}

void selector::refresh()
{
    for (int k = 0; sets_ && k < set_count; ++k)
        sets_[k].clear();
    for (unsigned i = 0; i < capacity(); ++i) {
        slots_[i] = { -1, -1 };
        fdbase* const object = get(static_cast<int>(i));
        if (!object)
            continue;
        int events = 0;
        const int fd = object->get_events(events);
        if (fd < 0)
            continue;
        take(static_cast<int>(i), fd, events);
    }
    is_changed_ = true;
}

int selector::wake() { return sys_waker_wake(waker_); }
