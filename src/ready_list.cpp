// The readiness lists: two parallel arrays, records and descriptors, in the order of
// registration.
#include "ready_list.h"

#include "watch_table.h"

#include <algorithm>
#include <new>

namespace {

struct ready_list {
    ep_record* records = nullptr;
    int* descriptors = nullptr;
    unsigned capacity = 0;
    unsigned count = 0;
    watch_table* watch = nullptr;
    unsigned waker = sys_no_socket;
    bool is_changed = false;
};

constexpr int list_count = 10;
ready_list lists[list_count];

// The bits of the lists in the order of the event bits 1, 2, 4.            ORDER events
constexpr unsigned list_bits[3] = { EP_IN, EP_OUT, EP_ERR };

int events_of(unsigned bits)
{
    int events = 0;
    for (int k = 0; k < 3; ++k)
        if (bits & list_bits[k])
            events |= 1 << k;
    return events;
}

unsigned bits_of(int events)
{
    unsigned bits = 0;
    for (int k = 0; k < 3; ++k)
        if (events >> k & 1)
            bits |= list_bits[k];
    return bits;
}

ready_list* list_at(int number)
{
    return number >= 0 && number < list_count && lists[number].records ? lists + number : nullptr;
}

void free_list(ready_list& list)
{
    delete[] list.records;
    delete[] list.descriptors;
    watch_table::destroy(list.watch);
    sys_socket_close(list.waker);
    list = ready_list();
}

int find(const ready_list& list, int fd)
{
    const int* const begin = list.descriptors;
    const int* const end = begin + list.count;
    const int* const found = fd < 0 ? end : std::find(begin, end, fd);
    return found == end ? -1 : static_cast<int>(found - begin);
}

void rebuild_watch(ready_list& list)
{
    list.watch->clear();
    for (unsigned i = 0; i < list.count; ++i)
        list.watch->enter(list.descriptors[i], events_of(list.records[i].events));
    list.is_changed = false;
}

} // namespace

int ep_create(unsigned capacity)
{
    ready_list* const list = std::find_if(lists, lists + list_count, [](const ready_list& l) { return !l.records; });
    if (list == lists + list_count || capacity > 0x7FFFFFF)
        return -1;
    list->waker = sys_waker_open();
    list->records = new (std::nothrow) ep_record[capacity];
    list->descriptors = new (std::nothrow) int[capacity];
    list->watch = watch_table::create(capacity, nullptr);
    if (!list->records || !list->descriptors || !list->watch) {
        free_list(*list);
        return -1;
    }
    std::fill_n(list->descriptors, capacity, -1);
    list->capacity = capacity;
    list->is_changed = true;
    return static_cast<int>(list - lists);
}

void ep_close(int number)
{
    if (ready_list* const list = list_at(number))
        free_list(*list);
}

int ep_ctl(int number, int operation, int fd, const ep_record& record)
{
    ready_list* const list = list_at(number);
    if (!list)
        return -1;
    if (operation == EP_ADD) {
        if (fd < 0 || list->count >= list->capacity)
            return -1;
        list->records[list->count] = record;
        list->descriptors[list->count++] = fd;
    } else {
        const int at = find(*list, fd);
        if (at < 0 || (operation != EP_MODIFY && operation != EP_DELETE))
            return -1;
        if (operation == EP_MODIFY) {
            list->records[at] = record;
        } else {
            --list->count;
            list->records[at] = list->records[list->count];
            list->descriptors[at] = list->descriptors[list->count];
        }
    }
    list->is_changed = true;
    return 0;
}

int ep_wait(int number, ep_record* results, unsigned most, const timeval* limit)
{
    ready_list* const list = list_at(number);
    if (!list)
        return -1;
    if (list->is_changed)
        rebuild_watch(*list);
    const int n = list->watch->wait(limit, list->waker);
    if (n <= 0)
        return n;
    unsigned made = 0;
    for (unsigned i = 0; i < list->count && made < most; ++i) {
        const unsigned bits = bits_of(list->watch->ready(list->descriptors[i]));
        if (bits == 0)
            continue;
        results[made] = list->records[i];
        results[made++].events = bits;
    }
    return static_cast<int>(made);
}

int ep_wake(int number)
{
    const ready_list* const list = list_at(number);
    return list ? sys_waker_wake(list->waker) : -1;
}
