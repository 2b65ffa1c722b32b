// Records in the system's form, and their numbers by descriptor.
#include "watch_table.h"

#include <algorithm>
#include <new>

watch_table* watch_table::create(unsigned capacity, const watch_table* before)
{
    watch_table* const table = new (std::nothrow) watch_table;
    if (!table)
        return nullptr;
    table->capacity_ = std::min(capacity, most_descriptors);
    // One more, where the system's side puts the waker.
    table->records_ = new (std::nothrow) sys_poll_record[table->capacity_ + 1];
    if (!table->numbers_.create(table->capacity_) || !table->records_) {
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
    delete table;
}

void watch_table::clear()
{
    numbers_.clear();
    std::fill_n(members_, 3, 0u);
    count_ = 0;
}

sys_poll_record* watch_table::find_or_add(int fd)
{
    const int number = numbers_.find(fd);
    if (number >= 0)
        return records_ + number;
    if (count_ >= capacity_)
        return nullptr;
    numbers_.set(fd, static_cast<int>(count_));
    records_[count_] = { fd, 0, 0 };
    return records_ + count_++;
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

void watch_table::forget_ready()
{
    for (unsigned i = 0; i < count_; ++i)
        records_[i].ready = 0;
}

int watch_table::ready_of_all() const
{
    int conditions = 0;
    for (const sys_poll_record* r = records_; r < records_ + count_; ++r)
        conditions |= r->ready;
    return events_of(static_cast<short>(conditions));
}
