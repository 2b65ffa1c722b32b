// The table of served objects and their default handlers, and what loops call besides them.
//
// One array holds the objects by slot, the other the free slots: entries from the number
// of used slots on, the next one to hand out first. Taking and giving back a
// slot moves that boundary by one, so both are constant time.
#include <stdkro/poller.h>

#include <algorithm>
#include <new>

fdbase::~fdbase() = default;
int fdbase::do_read() { return 0; }
int fdbase::do_write() { return 0; }
int fdbase::do_error() { return 0; }

void fdbase::dispatch_events(int events)
{
    // `poller` asks all its objects at every wait, and mostly nothing has happened.
    if (events == 0)
        return;
    if ((events & EV_READ) && do_read() < 0)
        return;
    if ((events & EV_WRITE) && do_write() < 0)
        return;
    if (events & EV_ERROR)
        do_error();
}

exec_object::~exec_object() = default;
int exec_object::exec() { return 0; }

fdset::fdset(unsigned capacity) { create(capacity); }

fdset::~fdset() { clear(); }

int fdset::create(unsigned capacity)
{
    if (capacity == 0)
        return -1;
    clear();
    return expand(capacity);
}

int fdset::expand(unsigned capacity)
{
    if (capacity <= capacity_)
        return 0;
    fdbase** const slots = capacity <= 0x7FFFFFFF ? new (std::nothrow) fdbase*[capacity] : nullptr;
    unsigned* const free = slots ? new (std::nothrow) unsigned[capacity] : nullptr;
    if (!free) {
        delete[] slots;
        return -1;
    }
    std::copy_n(slots_, capacity_, slots);
    std::copy_n(free_, capacity_, free);
    for (unsigned i = capacity_; i < capacity; ++i) {
        slots[i] = nullptr;
        free[i] = i;
    }
    delete[] slots_;
    delete[] free_;
    slots_ = slots;
    free_ = free;
    capacity_ = capacity;
    return 0;
}

int fdset::add(fdbase& object)
{
    if (count_ >= capacity_)
        return -1;
    const unsigned index = free_[count_++];
    slots_[index] = &object;
    return static_cast<int>(index);
}

int fdset::remove(int index)
{
    if (!get(index))
        return -1;
    slots_[index] = nullptr;
    free_[--count_] = static_cast<unsigned>(index);
    return 0;
}

void fdset::clear()
{
    delete[] slots_;
    delete[] free_;
    slots_ = nullptr;
    free_ = nullptr;
    count_ = capacity_ = 0;
}

void fdset::destroy()
{
    // An object may remove others from its loop while it dies, so ask for each slot.
    for (unsigned i = 0; i < capacity_; ++i) {
        fdbase* const object = slots_[i];
        slots_[i] = nullptr;
        delete object;
    }
    clear();
}

void fdset::reset()
{
    for (unsigned i = 0; i < capacity_; ++i) {
        slots_[i] = nullptr;
        free_[i] = i;
    }
    count_ = 0;
}

fdbase* fdset::get(int index) const { return is_index(index) ? slots_[index] : nullptr; }

void fdset::set(int index, fdbase* object)
{
    if (is_index(index))
        slots_[index] = object;
}

void poll_hooks::set_before_poll_cb(poll_callback callback, void* argument)
{
    before_ = callback;
    before_argument_ = argument;
}

void poll_hooks::set_after_poll_cb(poll_callback callback, void* argument)
{
    after_ = callback;
    after_argument_ = argument;
}

void poll_hooks::call_before() const
{
    if (before_)
        before_(before_argument_);
}

void poll_hooks::call_after() const
{
    if (after_)
        after_(after_argument_);
}

void poll_hooks::call_exec() const
{
    if (exec_)
        exec_->exec();
}
