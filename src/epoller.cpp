// The loop in the manner of epoll: only what is ready comes back, each with its object and
// slot.
//
// A result may name an object that an earlier handler has removed. The shadow table says
// which object a slot has now; and because an object never gets its old slot back
// at once, a stale result cannot reach it under its new registration.
#include <stdkro/poller.h>

#include "loop_time.h"
#include "ready_list.h"

#include <algorithm>
#include <new>

struct epoller::ready_record : ep_record { };

// The object that a slot has and the one that it had before.
struct epoller::shadow {
    fdbase* current;
    fdbase* previous;
};

namespace {

// Accepted beside EP_ERR; the lists never produce it.
constexpr unsigned hang_up_bit = 8;

unsigned list_events(int events)
{
    unsigned bits = 0;
    if (events & EV_READ)
        bits |= EP_IN;
    if (events & EV_WRITE)
        bits |= EP_OUT;
    if (events & EV_ERROR)
        bits |= EP_ERR;
    return bits;
}

} // namespace

epoller::epoller(unsigned capacity)
{
    if (capacity != 0)
        create(capacity);
}

epoller::~epoller() { clear(); }

int epoller::create(unsigned capacity)
{
    clear();
    if (capacity == 0 || expand(capacity) < 0)
        return -1;
    list_ = ep_create(capacity);
    if (list_ >= 0)
        return 0;
    clear();
    return -1;
}

// KEEP: the readiness list keeps its size; what is added beyond it is not watched.
int epoller::expand(unsigned capacity)
{
    const unsigned before = objects_.capacity();
    if (capacity <= before)
        return 0;
    ready_record* const results = capacity <= 0x7FFFFFF ? new (std::nothrow) ready_record[capacity] : nullptr;
    shadow* const shadows = results ? new (std::nothrow) shadow[capacity] : nullptr;
    if (!shadows || objects_.expand(capacity) < 0) {
        delete[] results;
        delete[] shadows;
        return -1;
    }
    std::copy_n(results_, before, results);
    std::copy_n(shadows_, before, shadows);
    std::fill(results + before, results + capacity, ready_record());
    std::fill(shadows + before, shadows + capacity, shadow());
    delete[] results_;
    delete[] shadows_;
    results_ = results;
    shadows_ = shadows;
    return 0;
}

int epoller::add(fdbase& object, int events)
{
    int index = objects_.add(object);
    if (index < 0)
        return index;
    if (shadows_[index].previous == &object) {
        const int other = objects_.add(object);
        if (other >= 0) {
            objects_.remove(index);
            index = other;
        }
    }
    ep_ctl(list_, EP_ADD, object.get_fd(), { list_events(events), index, &object });
    shadows_[index].current = &object;
    return index;
}

int epoller::remove(int index)
{
    fdbase* const object = get(index);
    if (!object)
        return -1;
    ep_ctl(list_, EP_DELETE, object->get_fd(), { 0, -1, nullptr });
    objects_.remove(index);
    shadows_[index] = { nullptr, shadows_[index].current };
    return 0;
}

int epoller::set_events(int index, int events)
{
    fdbase* const object = get(index);
    return object ? ep_ctl(list_, EP_MODIFY, object->get_fd(), { list_events(events), index, object }) : -1;
}

void epoller::clear()
{
    objects_.clear();
    delete[] results_;
    delete[] shadows_;
    results_ = nullptr;
    shadows_ = nullptr;
    ep_close(list_);
    list_ = -1;
}

void epoller::destroy()
{
    objects_.destroy();
    clear();
}

int epoller::wait(const timeval* limit)
{
    // KEEP: what is below a second passes as so many microseconds, not milliseconds; programs are
    // tuned to the shorter waits.
    const loop_time time(limit, one_microsecond);
    call_before();
    const int n = ep_wait(list_, results_, capacity(), time.limit());
    call_after();
    if (n > 0)
        dispatch(n);
    return n;
}

bool epoller::is_current(const ready_record& record) const
{
    const unsigned index = static_cast<unsigned>(record.index); // negative: beyond every capacity
    // A handler that makes the loop anew leaves records of nobody: they must not be taken for free slots.
    return record.object && index < capacity() && shadows_[index].current == record.object;
}

void epoller::serve(const ready_record& record)
{
    fdbase* const object = static_cast<fdbase*>(record.object);
    if (!is_current(record) || ((record.events & EP_IN) && object->do_read() < 0))
        return;
    if (!is_current(record) || ((record.events & EP_OUT) && object->do_write() < 0))
        return;
    if (!is_current(record) || ((record.events & (EP_ERR | hang_up_bit)) && object->do_error() < 0))
        return;
    if (get_exec_object())
        call_exec();
}

// Handlers may change everything: each step looks at the present arrays, and works on a copy of its
// result.
void epoller::dispatch(int n)
{
    for (int i = 0; i < n && static_cast<unsigned>(i) < capacity(); ++i) {
        const ready_record record = results_[i];
        serve(record);
    }
}

void epoller::refresh()
{
    for (unsigned i = 0; i < capacity(); ++i) {
        fdbase* const object = get(static_cast<int>(i));
        if (!object)
            continue;
        int events = 0;
        object->get_events(events);
        set_events(static_cast<int>(i), events);
    }
}

int epoller::wake() { return ep_wake(list_); }
