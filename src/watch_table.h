// What a loop watches: each descriptor once, in the form that the system takes.
//
// Entering obeys the rules of descriptor sets: a descriptor is in the set of a
// condition once, each set holds 1,024 of them, and what is beyond that is silently left
// out. The table is filled when registrations have changed and then waited on as
// it stands, so a wait neither builds a set nor allocates.
#ifndef STDKRO_SRC_WATCH_TABLE_H
#define STDKRO_SRC_WATCH_TABLE_H

#include "descriptor_index.h"
#include "platform.h"

class watch_table {
public:
    /// So many descriptors for one event, and altogether.
    static constexpr unsigned set_limit = 1024;
    static constexpr unsigned most_descriptors = 3 * set_limit;
    /// The conditions in the order of the event bits 1, 2, 4.            ORDER events
    static constexpr short condition_of[3] = { sys_poll_in, sys_poll_out, sys_poll_exceptional };
    /// The event bits of conditions.
    static int events_of(short conditions)
    {
        static_assert(sys_poll_in == 1 && sys_poll_exceptional == 2 && sys_poll_out == 4, "the table's indexes");
        return events_by_conditions[conditions & 7];
    }

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
    /// The number of a descriptor until the next `clear`, -1 for one that is not watched.
    int number_of(int fd) const { return numbers_.find(fd); }
    /// The event bits that a descriptor was ready for at the last successful wait, whoever asked for them;
    /// 0 for the number -1.
    int ready(int number) const
    {
        return number < 0 ? 0 : events_of(records_[number].ready);
    }
    /// Makes all of them 0.
    void forget_ready();
    /// The event bits that any descriptor was ready for then.
    int ready_of_all() const;

private:
    static constexpr unsigned char events_by_conditions[8] = { 0, 1, 4, 5, 2, 3, 6, 7 };

    watch_table() = default;
    sys_poll_record* find_or_add(int fd);

    sys_poll_record* records_ = nullptr;
    descriptor_index numbers_;
    unsigned capacity_ = 0;
    unsigned count_ = 0;
    unsigned members_[3] = { 0, 0, 0 };
};

#endif
