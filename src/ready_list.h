// The readiness lists beneath `epoller`: what to watch, in the order it was added.
//
// Ten lists exist, and each keeps the capacity that it was created with.
#ifndef STDKRO_SRC_READY_LIST_H
#define STDKRO_SRC_READY_LIST_H

struct timeval;

/// The event bits of the lists.
enum { EP_OUT = 1, EP_ERR = 4, EP_IN = 16 };
/// The operations of ep_ctl.
enum { EP_ADD = 1, EP_MODIFY = 2, EP_DELETE = 3 };

/// What is watched for, and the user's data that comes back with it.
struct ep_record {
    unsigned events;
    int index;
    void* object;
};

/// A free list for `capacity` entries: its number, or -1.
int ep_create(unsigned capacity);
void ep_close(int list);
/// Adds an entry behind the others, replaces the record of the first entry of a descriptor, or
/// deletes that entry (the last one takes its place). 0; -1 for a full list, an
/// unknown descriptor or another operation, and then nothing changes.
int ep_ctl(int list, int operation, int fd, const ep_record& record);
/// Waits. The entries that are ready, in the order of the list, at most `most`, with the bits they are
/// ready for; their number, 0 after the time limit or when woken, or negative.
int ep_wait(int list, ep_record* results, unsigned most, const timeval* limit);
/// Ends the present or the next wait; from any thread. 0 or -1.
int ep_wake(int list);

#endif
