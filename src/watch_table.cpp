// Records in the system's form and a small hash from descriptor to record.
#include "watch_table.h"

#include <algorithm>
#include <new>

namespace {

// The conditions in the order of the event bits 1, 2, 4.            ORDER events
constexpr short condition_of[3] = { sys_poll_in, sys_poll_out, sys_poll_exceptional };

// Three sets of 1,024 hold at most so many different descriptors.
constexpr unsigned most_descriptors = 3 * 1024;

unsigned slots_for(unsigned capacity)
{
    unsigned slots = 4;
    while (slots < 2 * capacity)
        slots *= 2;
    return slots;
}

} // namespace

watch_table* watch_table::create(unsigned capacity, const watch_table* before)
{
    watch_table* const table = new (std::nothrow) watch_table;
    if (!table)
        return nullptr;
    table->capacity_ = std::min(capacity, most_descriptors);
    const unsigned slots = slots_for(table->capacity_);
    table->slot_mask_ = slots - 1;
    // One more, where the system's side puts the waker.
    table->records_ = new (std::nothrow) sys_poll_record[table->capacity_ + 1];
    table->slots_ = new (std::nothrow) int[slots];
    if (!table->records_ || !table->slots_) {
        destroy(table);
        return nullptr;
    }
    table->clear();
    for (unsigned i = 0; before && i < before->count_; ++i)
        *table->find_or_add(before->records_[i].fd) = before->records_[i];
    return table;
}

void watch_table::destroy(watch_table* table)
{
    if (!table)
        return;
    delete[] table->records_;
    delete[] table->slots_;
    delete table;
}

void watch_table::clear()
{
    std::fill_n(slots_, slot_mask_ + 1, -1);
    std::fill_n(members_, 3, 0u);
    count_ = 0;
}

// Where `fd` stands, or the empty slot where it would.
unsigned watch_table::slot_of(int fd) const
{
    unsigned i = static_cast<unsigned>(fd) & slot_mask_;
    while (slots_[i] >= 0 && records_[slots_[i]].fd != fd)
        i = (i + 1) & slot_mask_;
    return i;
}

sys_poll_record* watch_table::find_or_add(int fd)
{
    int& number = slots_[slot_of(fd)];
    if (number < 0) {
        if (count_ >= capacity_)
            return nullptr;
        number = static_cast<int>(count_);
        records_[count_++] = { fd, 0, 0 };
    }
    return records_ + number;
}

void watch_table::enter(int fd, int events)
{
    for (int k = 0; fd >= 0 && k < 3; ++k) {
        if (!(events >> k & 1) || members_[k] >= set_limit)
            continue;
        sys_poll_record* const record = find_or_add(fd);
        if (!record)
            return;
        members_[k] += !(record->wanted & condition_of[k]);
        record->wanted = static_cast<short>(record->wanted | condition_of[k]);
    }
}

int watch_table::wait(const timeval* limit, unsigned waker) { return sys_poll(records_, count_, limit, waker); }

int watch_table::ready(int fd) const
{
    const int record = fd < 0 ? -1 : slots_[slot_of(fd)];
    if (record < 0)
        return 0;
    const short conditions = records_[record].ready;
    int events = 0;
    for (int k = 0; k < 3; ++k)
        if (conditions & condition_of[k])
            events |= 1 << k;
    return events;
}
