// What a loop watches: each descriptor once, in the form that the system takes.
//
// Entering obeys the rules of descriptor sets: a descriptor is in the set of a
// condition once, each set holds 1,024 of them, and what is beyond that is silently left
// out. The table is filled when registrations have changed and then waited on as
// it stands, so a wait neither builds a set nor allocates.
#ifndef STDKRO_SRC_WATCH_TABLE_H
#define STDKRO_SRC_WATCH_TABLE_H

#include "platform.h"

class watch_table {
public:
    /// A table for up to `capacity` descriptors with those of `before` (which may be null) and what they
    /// are ready for; null without memory. Free it with `destroy`.
    static watch_table* create(unsigned capacity, const watch_table* before);
    static void destroy(watch_table* table);

    /// Forgets every descriptor.
    void clear();
    /// Watches `fd` for the event bits (EV_READ, EV_WRITE, EV_ERROR); a negative
    /// descriptor is never entered.
    void enter(int fd, int events);
    /// How many descriptors are watched.
    unsigned count() const { return count_; }
    /// Waits; the result is that of sys_poll.
    int wait(const timeval* limit, unsigned waker);
    /// The event bits that a descriptor was ready for at the last successful wait, whoever asked for them;
    /// 0 for one that is not watched.
    int ready(int fd) const;

private:
    watch_table() = default;
    unsigned slot_of(int fd) const;
    sys_poll_record* find_or_add(int fd);

    static constexpr unsigned set_limit = 1024;

    sys_poll_record* records_ = nullptr;
    // Open addressing: the number of a record by its descriptor, -1 where there is none.
    int* slots_ = nullptr;
    unsigned slot_mask_ = 0;
    unsigned capacity_ = 0;
    unsigned count_ = 0;
    unsigned members_[3] = { 0, 0, 0 };
};

#endif
