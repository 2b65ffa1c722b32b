// Objects that processes share by name.
//
// A name is a file in a folder that only its user may use. Whoever holds the
// object holds a lock for reading on byte 0 of the file; the kernel gives it
// back when the holder dies. Joining and leaving happen under a lock for
// writing on byte 1. Who gets byte 0 for writing is alone: when joining, the
// file is a dead one's and made anew; when leaving, the file goes.
#ifndef STDKRO_SRC_PLATFORM_POSIX_NAMES_H
#define STDKRO_SRC_PLATFORM_POSIX_NAMES_H

#include "platform_posix_futex.h"

#include <climits>
#include <cstddef>

namespace posix {

// A semaphore, in memory that processes may share. A waiter counts itself
// before it looks at the count for the last time, a giver looks for waiters
// after it raised the count: one of the two sees the other.
//
// Reading the count just before changing it stalls the processor until the
// change before that one is visible. So the first attempt takes the count for
// what was left there last, which is written plainly beside it.
struct semaphore {
    futex_word count;
    std::atomic<unsigned> waiters;
    std::atomic<unsigned> likely_count;
    unsigned maximum;
};

enum object_kind : unsigned { semaphore_object = 1, memory_object = 2 };
constexpr unsigned longest_name = 259;
constexpr unsigned longest_path = 256;
constexpr size_t page_size = 4096;

struct object_head {
    object_kind kind;
    char name[longest_name + 1];
    semaphore counts;        // of a semaphore
    unsigned size;           // of memory
    unsigned protection;     // of memory
    char file[PATH_MAX];     // behind memory, empty for none
    char path[longest_path]; // of this file, for the last who leaves: he may have no memory to find it
};
// Memory without a file behind it follows the head.
constexpr size_t head_size = 2 * page_size;
static_assert(sizeof(object_head) <= head_size, "the memory begins behind the head");

struct named_object {
    int fd;
    object_head* head; // null: not a named object
};

// Gives the head a kind and the part of a name that counts: "Local\" says what is so
// anyway, "Global\" makes another name, no other backslash may stand in one. False, with
// an error, for a bad name.
bool name_object(const char* name, object_kind kind, object_head* wanted);

// The object of the name and kind that `wanted` has. One that nobody holds is
// made, with `size` bytes behind its head, when `make` says so.
bool open_object(const object_head& wanted, bool make, std::size_t size, named_object* object);
// Whoever keeps the head unmaps it himself.
void close_object(const named_object& object, bool keep_head);

} // namespace posix

#endif
