// The door to the operating system: POSIX (Linux). Waiting for sockets: by sets, by records,
// and by a list that the kernel keeps.
#include "platform_posix.h"
#include "handle_filter.h"
#include "platform.h"

#include <stdkro/platform_types.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

using namespace posix;

namespace {

/// The time left until a moment, as the kernel takes it.
class countdown {
public:
    explicit countdown(const timeval* limit) : is_limited_(limit)
    {
        if (!limit)
            return;
        clock_gettime(CLOCK_MONOTONIC, &end_);
        const timespec span = span_of(*limit);
        end_ = { end_.tv_sec + span.tv_sec, end_.tv_nsec + span.tv_nsec };
        left_ = span;
    }

    /// Null without a limit.
    const timespec* left() const { return is_limited_ ? &left_ : nullptr; }

    bool is_over() const { return is_limited_ && left_.tv_sec == 0 && left_.tv_nsec == 0; }

    /// Looks at the clock again.
    void refresh()
    {
        if (!is_limited_)
            return;
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        long long ns = (static_cast<long long>(end_.tv_sec) - now.tv_sec) * billion + (end_.tv_nsec - now.tv_nsec);
        if (ns < 0)
            ns = 0;
        left_ = { static_cast<time_t>(ns / billion), static_cast<long>(ns % billion) };
    }

private:
    /// A negative limit is none at all, and a long one 0x7FFFFFFE milliseconds.
    static timespec span_of(const timeval& limit)
    {
        const timespec longest = { 0x7FFFFFFE / 1000, 0x7FFFFFFE % 1000 * 1000000L };
        if (limit.tv_sec < 0 || limit.tv_usec < 0)
            return timespec();
        if (limit.tv_sec > longest.tv_sec || limit.tv_usec / 1000000 > longest.tv_sec - limit.tv_sec)
            return longest;
        const timespec span = { limit.tv_sec + limit.tv_usec / 1000000, limit.tv_usec % 1000000 * 1000L };
        return span.tv_sec == longest.tv_sec && span.tv_nsec > longest.tv_nsec ? longest : span;
    }

    static constexpr long billion = 1000000000;

    bool is_limited_;
    timespec end_ = {};
    timespec left_ = {};
};

/// What the kernel reports, as the conditions that the record wants.
short conditions_of(const pollfd& p)
{
    int conditions = p.revents;
    if (p.revents & (POLLHUP | POLLERR))
        conditions |= p.revents & POLLERR ? POLLIN | POLLOUT : POLLIN;
    return static_cast<short>(conditions & p.events);
}

// What is waited for in each of the three sets, in the order of the arguments of sys_select.
constexpr short wanted_of[3] = { POLLIN, POLLOUT, POLLPRI };

/// The members of up to three sets as poll records, one run for each set.
struct poll_list {
    pollfd records[3 * 1024];
    unsigned begin[4];

    explicit poll_list(sock_fd_set* const (&sets)[3])
    {
        unsigned n = 0;
        for (int k = 0; k < 3; ++k) {
            begin[k] = n;
            const unsigned count = sets[k] ? std::min(sets[k]->fd_count, 1024u) : 0;
            for (unsigned i = 0; i < count; ++i)
                records[n++] = { descriptor_of(sets[k]->fd_array[i]), wanted_of[k], 0 };
        }
        begin[3] = n;
    }

    unsigned size() const { return begin[3]; }

    /// The kernel passes over negative descriptors; here they are errors.
    bool has_negative() const
    {
        return std::any_of(records, records + size(), [](const pollfd& p) { return p.fd < 0; });
    }

    bool has_dead() const
    {
        return std::any_of(records, records + size(), [](const pollfd& p) { return (p.revents & POLLNVAL) != 0; });
    }

    bool is_ready(unsigned i) const { return records[i].fd >= 0 && conditions_of(records[i]) != 0; }

    unsigned count_ready() const
    {
        unsigned ready = 0;
        for (unsigned i = 0; i < size(); ++i)
            ready += is_ready(i);
        return ready;
    }

    /// A hang-up is reported even to who waits for something else only. Such a
    /// record would end every wait at once, so the kernel is to pass over it.
    void drop_unwanted()
    {
        for (unsigned i = 0; i < size(); ++i)
            if (records[i].revents)
                records[i].fd = -1;
    }
};

bool has_lower_descriptor(const pollfd& a, const pollfd& b) { return a.fd < b.fd; }

/// Joins records of one descriptor, which stand together, to one that wants what any of them does. Returns the
/// new end.
pollfd* join_records(pollfd* begin, pollfd* end)
{
    pollfd* last = begin;
    for (const pollfd* p = begin + 1; p < end; ++p) {
        if (p->fd == last->fd)
            last->events = static_cast<short>(last->events | p->events);
        else
            *++last = *p;
    }
    return last + 1;
}

/// Asks the kernel once, with one record for each descriptor.
int poll_joined(poll_list& list, const timespec* limit)
{
    pollfd joined[3 * 1024];
    pollfd* const all = std::copy(list.records, list.records + list.size(), joined);
    std::sort(joined, all, has_lower_descriptor);
    pollfd* const end = join_records(joined, all);
    pollfd* const begin = joined + (joined->fd < 0); // those to be passed over
    const int n = ppoll(begin, static_cast<nfds_t>(end - begin), limit, nullptr);
    for (pollfd* p = list.records; p < list.records + list.size(); ++p) {
        const pollfd& of_all = *std::lower_bound(joined, end, *p, has_lower_descriptor);
        p->revents = static_cast<short>(of_all.revents & (p->events | POLLERR | POLLHUP | POLLNVAL));
    }
    return n;
}

/// Asks the kernel once. It takes no more records (EINVAL) than the program may have descriptors; but three sets
/// hold up to three for each, and a handle may be repeated.
int poll_records(poll_list& list, const timespec* limit)
{
    const int n = ppoll(list.records, list.size(), limit, nullptr);
    return n < 0 && errno == EINVAL ? poll_joined(list, limit) : n;
}

/// Reduces a set to its ready members. Returns how many there are.
unsigned keep_ready(sock_fd_set& set, const poll_list& list, int k)
{
    handle_filter seen;
    unsigned kept = 0;
    for (unsigned i = list.begin[k]; i < list.begin[k + 1]; ++i) {
        const unsigned h = set.fd_array[i - list.begin[k]];
        if (list.is_ready(i) && seen.is_new(h))
            set.fd_array[kept++] = h;
    }
    set.fd_count = kept;
    return kept;
}

} // namespace

// Stands on poll, which has no limit on the number of a descriptor.
int sys_select(sock_fd_set* readable, sock_fd_set* writable, sock_fd_set* exceptional, const timeval* limit)
{
    sock_fd_set* const sets[3] = { readable, writable, exceptional };
    poll_list list(sets);
    if (list.size() == 0 || list.has_negative())
        return -1;

    countdown time(limit);
    for (;;) {
        const int n = poll_records(list, time.left());
        if (n < 0 && errno != EINTR)
            return -1;
        if (n > 0) {
            if (list.has_dead())
                return -1;
            if (list.count_ready() > 0)
                break;
            list.drop_unwanted();
        } else if (n == 0) {
            break;
        }
        time.refresh();
    }

    unsigned ready = 0;
    for (int k = 0; k < 3; ++k)
        if (sets[k])
            ready += keep_ready(*sets[k], list, k);
    return static_cast<int>(ready);
}

namespace {

static_assert(sizeof(sys_poll_record) == sizeof(pollfd) && offsetof(sys_poll_record, ready) == offsetof(pollfd, revents)
                  && sys_poll_in == POLLIN && sys_poll_out == POLLOUT && sys_poll_exceptional == POLLPRI,
              "a sys_poll_record is a pollfd");

/// Empties a waker. True when it was woken.
bool drain(unsigned waker)
{
    std::uint64_t wakes;
    return uninterrupted([&] { return read(descriptor_of(waker), &wakes, sizeof wakes); }) > 0;
}

/// The first `reported` records that the kernel reported something of: their conditions, counted;
/// -1 for a dead descriptor. A record that is reported without anything it wants would end
/// every wait at once: `spurious` is told, and the kernel is to pass over it.
int collect(pollfd* records, unsigned count, int reported, bool& spurious)
{
    int ready = 0;
    for (pollfd* p = records; reported > 0 && p < records + count; ++p) {
        if (!p->revents)
            continue;
        --reported;
        if ((p->revents & POLLNVAL) && p->events)
            return -1;
        p->revents = conditions_of(*p);
        for (const short condition : wanted_of)
            ready += (p->revents & condition) != 0;
        if (!p->revents) {
            spurious = true;
            p->fd = ~p->fd;
        }
    }
    return ready;
}

/// Puts back what `collect` turned around.
void restore(pollfd* records, unsigned count)
{
    for (pollfd* p = records; p < records + count; ++p)
        if (p->fd < 0)
            p->fd = ~p->fd;
}

/// A wait for poll records, of which one more is the waker's.
class poll_wait {
public:
    poll_wait(pollfd* records, unsigned count, unsigned waker) : records_(records), count_(count), waker_(waker)
    {
        records[count] = { descriptor_of(waker), POLLIN, 0 };
    }
    poll_wait(const poll_wait&) = delete;
    poll_wait& operator=(const poll_wait&) = delete;
    ~poll_wait()
    {
        if (is_spurious_)
            restore(records_, count_);
    }

    int ready() const { return ready_; }

    /// Asks the kernel once. True when that ends the wait before its time.
    bool ask(const timespec* limit)
    {
        const int reported = ppoll(records_, count_ + 1, limit, nullptr);
        if (reported < 0 && errno != EINTR)
            ready_ = -1;
        if (reported <= 0)
            return ready_ < 0;
        const bool is_waker_reported = records_[count_].revents != 0;
        const bool is_woken = is_waker_reported && drain(waker_);
        ready_ = collect(records_, count_, reported - is_waker_reported, is_spurious_);
        return ready_ != 0 || is_woken;
    }

private:
    pollfd* records_;
    unsigned count_;
    unsigned waker_;
    bool is_spurious_ = false;
    int ready_ = 0;
};

} // namespace

int sys_poll(sys_poll_record* given, unsigned count, const timeval* limit, unsigned waker)
{
    pollfd* const records = reinterpret_cast<pollfd*>(given);
    if (std::all_of(records, records + count, [](const pollfd& p) { return p.events == 0; }))
        return -1;
    poll_wait wait(records, count, waker);
    // Mostly something is ready, and a look that does not wait costs the kernel half as much.
    const timespec at_once = {};
    countdown time(limit);
    for (bool is_over = wait.ask(&at_once); !is_over && !time.is_over(); time.refresh())
        is_over = wait.ask(time.left());
    return wait.ready();
}

// The kernel's list is of open files and not of descriptors. Three things must not be seen of that:
//
// A descriptor that is closed leaves the list silently, or stays in it as long as a copy of it is
// open somewhere; and its number may come back for another file. So descriptors are verified: entering
// one again fails (EEXIST) exactly as long as it is what was entered. Those that
// sys_socket_close may have closed are verified at once, all of them every now and then, and before
// a wait that lasts.
//
// A child of fork shares the list with its parent and must not touch it.
//
// A hang-up is reported also to who does not wait for it.

namespace {

std::atomic<unsigned> forks { 0 };

/// True from the first fork on that happens behind the first call.
bool is_counting_forks()
{
    static const bool is_counting = pthread_atfork(nullptr, nullptr, [] { ++forks; }) == 0;
    return is_counting;
}

/// A cheap clock.
long long coarse_ms()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

/// Kernels before 5.11 count in milliseconds only: rounded up there.
int wait_for_events(int epoll, epoll_event* events, int room, const timespec* limit)
{
    static std::atomic<bool> has_fine_limits { true };
    if (has_fine_limits.load(std::memory_order_relaxed)) {
        const int n = epoll_pwait2(epoll, events, room, limit, nullptr);
        if (n >= 0 || (errno != ENOSYS && errno != EPERM))
            return n;
        has_fine_limits = false;
    }
    const int ms = limit ? static_cast<int>(limit->tv_sec * 1000 + (limit->tv_nsec + 999999) / 1000000) : -1;
    return epoll_wait(epoll, events, room, ms);
}

} // namespace

struct sys_ready_list {
    // All descriptors are verified that often, the latter as long as some are ready at every wait: then
    // the clock is looked at in one of so many waits.
    static constexpr int period_ms = 50;
    static constexpr int busy_period_ms = 1000;
    static constexpr unsigned waits_per_look = 8;
    static constexpr std::uint64_t waker_data = ~0ull;

    sys_ready_list(unsigned capacity, unsigned waker)
        : waker_(waker), room_(static_cast<int>(capacity) + 1), events_(new (std::nothrow) epoll_event[capacity + 1]),
          epoll_(events_ && is_counting_forks() ? epoll_create1(EPOLL_CLOEXEC) : -1), forks_(forks),
          closings_(all_closings), verified_(coarse_ms())
    {
    }
    sys_ready_list(const sys_ready_list&) = delete;
    sys_ready_list& operator=(const sys_ready_list&) = delete;
    ~sys_ready_list()
    {
        if (epoll_ >= 0)
            close(epoll_);
    }

    bool is_open()
    {
        return epoll_ >= 0
            && (waker_ == sys_no_socket || control(EPOLL_CTL_ADD, descriptor_of(waker_), EPOLLIN, waker_data) == 0);
    }

    int set(sys_watch& watch, short wanted, unsigned mark)
    {
        const int operation = watch.wanted == 0 ? EPOLL_CTL_ADD : wanted == 0 ? EPOLL_CTL_DEL : EPOLL_CTL_MOD;
        if (watch.wanted == wanted)
            return 0;
        if (is_of_other_process())
            return -1;
        watch.wanted = wanted;
        if (operation == EPOLL_CTL_ADD)
            watch.closings = closings_of(watch.fd).load(std::memory_order_relaxed);
        return control(operation, watch, mark);
    }

    int wait(sys_watch* watches, unsigned count, sys_ready_event* ready, timeval* limit)
    {
        if (is_of_other_process() || !verify_closed(watches, count)
            || (is_due_while_busy() && !verify_all(watches, count)))
            return sys_ready_stale;
        // Mostly something is ready, and a look that does not wait costs least.
        const int n = epoll_wait(epoll_, events_.get(), room_, 0);
        if (n > 0)
            return collect(n, ready);
        const bool is_due = ms_since_verified() >= period_ms;
        if ((n < 0 && errno != EINTR) || (is_due && !verify_all(watches, count)))
            return sys_ready_stale;
        if (limit && limit->tv_sec == 0 && limit->tv_usec == 0)
            return 0;
        countdown time(limit);
        const int found = wait_long(watches, count, ready, time, is_due);
        if (found < 0 && limit) {
            time.refresh();
            *limit = { time.left()->tv_sec, (time.left()->tv_nsec + 999) / 1000 };
        }
        return found;
    }

private:
    bool is_of_other_process() const { return forks_ != forks.load(std::memory_order_relaxed); }

    // What comes back with an event: the descriptor, above it the caller's mark, and above that the conditions
    // that it is to be reported for.
    static constexpr int mark_shift = 32;
    static constexpr int wanted_shift = 61;

    static std::uint64_t data_of(const sys_watch& watch, unsigned mark)
    {
        return std::uint64_t { static_cast<unsigned short>(watch.wanted) } << wanted_shift
            | std::uint64_t { mark } << mark_shift | static_cast<std::uint32_t>(watch.fd);
    }

    int control(int operation, int fd, std::uint32_t conditions, std::uint64_t data)
    {
        epoll_event event;
        event.events = conditions;
        event.data.u64 = data;
        return epoll_ctl(epoll_, operation, fd, &event);
    }

    int control(int operation, const sys_watch& watch, unsigned mark)
    {
        return control(operation, watch.fd, static_cast<unsigned short>(watch.wanted), data_of(watch, mark));
    }

    // A success has entered another file under the same number: the list is stale then.
    bool is_same(const sys_watch& watch) { return control(EPOLL_CTL_ADD, watch, 0) < 0 && errno == EEXIST; }

    bool verify_all(sys_watch* watches, unsigned count)
    {
        verified_ = coarse_ms();
        return std::all_of(watches, watches + count, [&](const sys_watch& w) { return w.wanted == 0 || is_same(w); });
    }

    long long ms_since_verified() const { return coarse_ms() - verified_; }
    bool is_due_while_busy() { return ++waits_ % waits_per_look == 0 && ms_since_verified() >= busy_period_ms; }

    bool verify_closed(sys_watch* watches, unsigned count)
    {
        const unsigned closings = all_closings.load(std::memory_order_acquire);
        if (closings == closings_)
            return true;
        closings_ = closings;
        return std::all_of(watches, watches + count, [&](sys_watch& w) {
            const unsigned of_this = closings_of(w.fd).load(std::memory_order_relaxed);
            const bool may_be_closed = w.wanted != 0 && w.closings != of_this;
            w.closings = of_this;
            return !may_be_closed || is_same(w);
        });
    }

    /// Waits first until all descriptors are due to be verified, unless they just were, and then for the rest.
    int wait_long(sys_watch* watches, unsigned count, sys_ready_event* ready, countdown& time, bool is_verified)
    {
        for (;;) {
            const long long due_ms = is_verified ? 0 : period_ms - ms_since_verified();
            if (!is_verified && due_ms <= 0) {
                if (!verify_all(watches, count))
                    return sys_ready_stale;
                is_verified = true;
            }
            const timespec until_due = { 0, static_cast<long>(due_ms) * 1000000 };
            const timespec* const left = time.left();
            const bool is_last = is_verified || (left && left->tv_sec == 0 && left->tv_nsec <= until_due.tv_nsec);
            const int n = wait_for_events(epoll_, events_.get(), room_, is_last ? left : &until_due);
            if (n > 0)
                return collect(n, ready);
            if (n < 0 && errno != EINTR)
                return sys_ready_stale;
            if (n == 0 && is_last)
                return 0;
            time.refresh();
        }
    }

    static short conditions_of(const epoll_event& e)
    {
        const short wanted = static_cast<short>(e.data.u64 >> wanted_shift);
        const pollfd p = { 0, wanted, static_cast<short>(e.events) };
        return ::conditions_of(p);
    }

    /// What has become ready, without the waker. When nothing has, although something was reported, the
    /// kernel would report it again at once.
    int collect(int n, sys_ready_event* ready)
    {
        bool is_woken = false;
        sys_ready_event* next = ready;
        for (const epoll_event* e = events_.get(); e < events_.get() + n; ++e) {
            if (e->data.u64 == waker_data) {
                is_woken = drain(waker_);
                continue;
            }
            const unsigned mark = static_cast<unsigned>(e->data.u64 >> mark_shift) % sys_ready_marks;
            *next = { static_cast<int>(e->data.u64 & 0xFFFFFFFF), conditions_of(*e), mark };
            next += next->ready != 0;
        }
        const int found = static_cast<int>(next - ready);
        return found > 0 || is_woken ? found : static_cast<int>(sys_ready_unsure);
    }

    unsigned waker_;
    int room_;
    std::unique_ptr<epoll_event[]> events_;
    int epoll_;
    unsigned forks_;
    unsigned closings_;
    long long verified_;
    unsigned waits_ = 0;
};

sys_ready_list* sys_ready_open(unsigned capacity, unsigned waker)
{
    std::unique_ptr<sys_ready_list> list(new (std::nothrow) sys_ready_list(capacity, waker));
    return list && list->is_open() ? list.release() : nullptr;
}

void sys_ready_close(sys_ready_list* list) { delete list; }

int sys_ready_set(sys_ready_list* list, sys_watch* watch, short wanted, unsigned mark)
{
    return list->set(*watch, wanted, mark);
}

int sys_ready_wait(sys_ready_list* list, sys_watch* watches, unsigned count, sys_ready_event* ready, timeval* limit)
{
    return list->wait(watches, count, ready, limit);
}

unsigned sys_waker_open() { return static_cast<unsigned>(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)); }

int sys_waker_wake(unsigned waker)
{
    const std::uint64_t one = 1;
    const auto n = uninterrupted([&] { return write(descriptor_of(waker), &one, sizeof one); });
    return n > 0 || errno == EAGAIN ? 0 : -1;
}

void sys_waker_sleep(unsigned waker, const timeval* limit)
{
    pollfd waiting = { descriptor_of(waker), POLLIN, 0 };
    countdown time(limit);
    while (ppoll(&waiting, 1, time.left(), nullptr) < 0 && errno == EINTR)
        time.refresh();
    if (waiting.revents)
        drain(waker);
}
