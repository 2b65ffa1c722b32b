// The door to the operating system: POSIX (Linux).
//
// Same functions in the same order as platform.h and as the other platform's
// file, so that the two compare side by side.
#include "platform.h"

#include "command_words.h"
#include "handle_filter.h"
#include "handle_table.h"

#include <stdkro/platform_types.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csetjmp>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

namespace {

/// Repeats a system call until no signal interrupts it.
template <class call> auto uninterrupted(call f)
{
    for (;;) {
        const auto result = f();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

} // namespace

// ---- time ------------------------------------------------------------------

bool sys_local_time(long long t, sys_date* date)
{
    const auto seconds = static_cast<time_t>(t);
    tm local;
    tzset();
    if (!localtime_r(&seconds, &local))
        return false;
    *date = { local.tm_year, local.tm_mon, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec };
    return true;
}

// ---- files -----------------------------------------------------------------

const char sys_path_separator = '/';

// ---- console ---------------------------------------------------------------

namespace {

constexpr int key_interrupt = 3;
constexpr int key_end_of_input = 4;
constexpr int key_backspace = 8;
constexpr int key_line_feed = 10;
constexpr int key_return = 13;
constexpr int key_suspend = 26;
constexpr int key_quit = 28;
constexpr int key_escape = 27;
constexpr int key_delete = 127;

/// The next byte of standard input; -1 at its end.
int read_byte()
{
    unsigned char byte;
    const auto n = uninterrupted([&] { return read(STDIN_FILENO, &byte, 1); });
    return n == 1 ? byte : -1;
}

/// Whether a byte follows at once, as the rest of a key's sequence does.
bool follows_soon()
{
    pollfd input = { STDIN_FILENO, POLLIN, 0 };
    return poll(&input, 1, 25) > 0;
}

/// Arrow and function keys send an escape sequence: ESC [ parameters letter, or ESC O letter.
void skip_sequence()
{
    if (!follows_soon())
        return;
    const int kind = read_byte();
    if (kind != '[' && kind != 'O')
        return;
    int byte;
    do
        byte = read_byte();
    while (byte >= 0 && byte < '@');
}

/// What a terminal's byte means: a character, -1 for the end, 0 for none.
int key_of(int byte)
{
    switch (byte) {
    case key_end_of_input:
        return -1;
    case key_delete:
        return key_backspace;
    case key_line_feed:
        return key_return;
    case key_escape:
        skip_sequence();
        return 0;
    default:
        return byte;
    }
}

constexpr int ending_signals[] = { SIGINT, SIGTERM, SIGHUP, SIGQUIT };

termios mode_before_keys;
pthread_t key_thread;

/// A signal that ends the program, come to another thread, goes on to the one that holds the mode: it waits
/// there until the mode is back. Two threads that put it back would not know which is the last.
void pass_on(int number)
{
    const int before = errno;
    pthread_kill(key_thread, number);
    errno = before;
}

/// Where nobody handles a signal that ends the program, `pass_on` does, and stops to do so.
void handle_ending_signals()
{
    struct sigaction ours = {};
    ours.sa_handler = pass_on;
    for (const int number : ending_signals) {
        struct sigaction before;
        if (sigaction(number, nullptr, &before) == 0 && before.sa_handler == SIG_DFL)
            sigaction(number, &ours, nullptr);
    }
}

void leave_ending_signals()
{
    for (const int number : ending_signals) {
        struct sigaction now;
        if (sigaction(number, nullptr, &now) == 0 && now.sa_handler == pass_on)
            signal(number, SIG_DFL);
    }
}

/// The terminal's mode for reading single keys, put back when the object dies. Signals that
/// end the program wait meanwhile, and keys that would send one arrive as characters, so
/// that the mode is back before anything is delivered.
class key_mode {
public:
    key_mode()
    {
        is_on_ = tcgetattr(STDIN_FILENO, &mode_before_keys) == 0;
        if (!is_on_)
            return;
        sigset_t ending;
        sigemptyset(&ending);
        for (const int number : ending_signals)
            sigaddset(&ending, number);
        pthread_sigmask(SIG_BLOCK, &ending, &signals_before_);
        ending_signals_ = signalfd(-1, &ending, SFD_CLOEXEC);
        key_thread = pthread_self();
        handle_ending_signals();
        apply();
    }
    key_mode(const key_mode&) = delete;
    key_mode& operator=(const key_mode&) = delete;
    ~key_mode()
    {
        if (!is_on_)
            return;
        tcsetattr(STDIN_FILENO, TCSANOW, &mode_before_keys);
        leave_ending_signals();
        if (ending_signals_ >= 0)
            close(ending_signals_);
        pthread_sigmask(SIG_SETMASK, &signals_before_, nullptr);
    }

    bool is_on() const { return is_on_; }

    /// The next key, -1 at the end of the input, 0 when a signal came first.
    int next_key() const
    {
        int key = 0;
        while (key == 0 && wait()) {
            const int byte = read_byte();
            key = byte < 0 ? -1 : key_of(byte);
        }
        return key;
    }

private:
    void apply() const
    {
        termios keys = mode_before_keys;
        keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
        keys.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IGNCR | ISTRIP);
        keys.c_cc[VMIN] = 1;
        keys.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &keys);
    }

    /// Waits for a key; false when a signal came first.
    bool wait() const
    {
        pollfd inputs[2] = { { STDIN_FILENO, POLLIN, 0 }, { ending_signals_, POLLIN, 0 } };
        int ready;
        while ((ready = poll(inputs, 2, -1)) < 0 && errno == EINTR)
            apply(); // the program may have been stopped, and a shell may have set its own mode
        return ready > 0 && inputs[0].revents != 0;
    }

    sigset_t signals_before_;
    int ending_signals_;
    bool is_on_;
};

/// The mode while it is held. There is one standard input, and at `exit` its mode is
/// put back too.
std::optional<key_mode> held_keys;

int signal_of(int key)
{
    return key == key_interrupt ? SIGINT : key == key_suspend ? SIGTSTP : key == key_quit ? SIGQUIT : 0;
}

} // namespace

void sys_console_hold_keys()
{
    if (!held_keys)
        held_keys.emplace();
}

bool sys_console_release_keys()
{
    const bool was_held = held_keys.has_value();
    held_keys.reset();
    return was_held;
}

int sys_console_getch()
{
    const bool is_held = held_keys.has_value();
    int key = 0;
    while (key == 0) {
        sys_console_hold_keys();
        key = held_keys->is_on() ? held_keys->next_key() : -1;
        const int signal = signal_of(key);
        if (key != 0 && signal == 0)
            break;
        // What waits is delivered here, the mode being back.
        sys_console_release_keys();
        if (signal != 0)
            raise(signal);
        key = 0;
    }
    if (!is_held)
        sys_console_release_keys();
    return key;
}

bool sys_console_is_terminal() { return isatty(STDIN_FILENO) == 1; }

// ---- sockets ---------------------------------------------------------------

namespace {

int descriptor_of(unsigned h) { return static_cast<int>(h); }

sockaddr* generic(sockaddr_in* address) { return reinterpret_cast<sockaddr*>(address); }
const sockaddr* generic(const sockaddr_in* address) { return reinterpret_cast<const sockaddr*>(address); }

/// How often sockets were closed, all and those of a descriptor and a few others: a list that the
/// kernel keeps (sys_ready_list) sees by them which of its descriptors may have become another.
std::atomic<unsigned> all_closings { 0 };
std::atomic<unsigned> closings_by_descriptor[4096];

std::atomic<unsigned>& closings_of(int fd) { return closings_by_descriptor[static_cast<unsigned>(fd) % 4096]; }

void count_closing(int fd)
{
    closings_of(fd).fetch_add(1, std::memory_order_relaxed);
    all_closings.fetch_add(1, std::memory_order_release);
}

/// A connection that a signal interrupted goes on by itself: wait for its end.
int finish_connecting(int fd)
{
    pollfd waiting = { fd, POLLOUT, 0 };
    if (uninterrupted([&] { return poll(&waiting, 1, -1); }) < 0)
        return -1;
    int failure = 0;
    socklen_t size = sizeof failure;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &failure, &size) < 0)
        return -1;
    errno = failure;
    return failure == 0 ? 0 : -1;
}

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

unsigned sys_socket_open(int family, int type, int protocol)
{
    return static_cast<unsigned>(socket(family, type | SOCK_CLOEXEC, protocol));
}

void sys_socket_close(unsigned h)
{
    if (h == sys_no_socket)
        return;
    close(descriptor_of(h));
    count_closing(descriptor_of(h));
}

int sys_socket_bind(unsigned h, const sockaddr_in* address)
{
    return bind(descriptor_of(h), generic(address), sizeof *address);
}

int sys_socket_listen(unsigned h, int backlog) { return listen(descriptor_of(h), backlog); }

int sys_socket_connect(unsigned h, const sockaddr_in* address)
{
    const int fd = descriptor_of(h);
    if (connect(fd, generic(address), sizeof *address) == 0)
        return 0;
    return errno == EINTR ? finish_connecting(fd) : -1;
}

unsigned sys_socket_accept(unsigned h, sockaddr_in* peer)
{
    return static_cast<unsigned>(uninterrupted([&] {
        socklen_t size = sizeof *peer;
        return accept4(descriptor_of(h), generic(peer), peer ? &size : nullptr, SOCK_CLOEXEC);
    }));
}

int sys_socket_send(unsigned h, const void* bytes, unsigned n)
{
    return static_cast<int>(uninterrupted([&] { return send(descriptor_of(h), bytes, n, MSG_NOSIGNAL); }));
}

int sys_socket_receive(unsigned h, void* bytes, unsigned n)
{
    return static_cast<int>(uninterrupted([&] { return recv(descriptor_of(h), bytes, n, 0); }));
}

int sys_socket_send_to(unsigned h, const void* bytes, unsigned n, const sockaddr_in* to)
{
    return static_cast<int>(uninterrupted([&] {
        return sendto(descriptor_of(h), bytes, n, MSG_NOSIGNAL, generic(to), to ? sizeof *to : 0);
    }));
}

int sys_socket_receive_from(unsigned h, void* bytes, unsigned n, sockaddr_in* from)
{
    return static_cast<int>(uninterrupted([&] {
        socklen_t size = sizeof *from;
        return recvfrom(descriptor_of(h), bytes, n, 0, generic(from), from ? &size : nullptr);
    }));
}

int sys_socket_shutdown(unsigned h, int how) { return shutdown(descriptor_of(h), how); }

bool sys_socket_is_open(unsigned h)
{
    sockaddr_in address;
    return sys_socket_self(h, &address) == 0;
}

int sys_socket_self(unsigned h, sockaddr_in* address)
{
    socklen_t size = sizeof *address;
    return getsockname(descriptor_of(h), generic(address), &size);
}

int sys_socket_peer(unsigned h, sockaddr_in* address)
{
    socklen_t size = sizeof *address;
    return getpeername(descriptor_of(h), generic(address), &size);
}

int sys_socket_control(unsigned h, unsigned command, unsigned long* argument)
{
    const unsigned windows_fionbio = 0x8004667Eu;
    const unsigned windows_fionread = 0x4004667Fu;
    int value = static_cast<int>(*argument);
    switch (command) {
    case windows_fionbio:
        return ioctl(descriptor_of(h), FIONBIO, &value);
    case windows_fionread:
    case static_cast<unsigned>(FIONREAD):
        if (ioctl(descriptor_of(h), FIONREAD, &value) < 0)
            return -1;
        *argument = static_cast<unsigned long>(value);
        return 0;
    case static_cast<unsigned>(FIONBIO):
        return ioctl(descriptor_of(h), FIONBIO, &value);
    default:
        return ioctl(descriptor_of(h), command, argument) < 0 ? -1 : 0;
    }
}

int sys_socket_set_nodelay(unsigned h, bool on)
{
    const int value = on;
    return setsockopt(descriptor_of(h), IPPROTO_TCP, TCP_NODELAY, &value, sizeof value);
}

// Stands on poll, which has no limit on the number of a descriptor.
int sys_select(sock_fd_set* readable, sock_fd_set* writable, sock_fd_set* exceptional, const timeval* limit)
{
    sock_fd_set* const sets[3] = { readable, writable, exceptional };
    poll_list list(sets);
    if (list.size() == 0 || list.has_negative())
        return -1;

    countdown time(limit);
    for (;;) {
        const int n = ppoll(list.records, list.size(), time.left(), nullptr);
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

int sys_host_name(char* dst, unsigned n)
{
    if (n == 0 || gethostname(dst, n) < 0)
        return -1;
    dst[n - 1] = '\0';
    return 0;
}

int sys_host_address(const char* name, unsigned* address)
{
    addrinfo wanted = {};
    wanted.ai_family = AF_INET;
    addrinfo* found = nullptr;
    if (getaddrinfo(name, nullptr, &wanted, &found) != 0)
        return -1;
    *address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr.s_addr;
    freeaddrinfo(found);
    return 0;
}

unsigned sys_read_address(const char* text) { return inet_addr(text); }

const char* sys_address_text(unsigned address)
{
    in_addr a;
    a.s_addr = address;
    return inet_ntoa(a);
}

// ---- threads and locks -----------------------------------------------------

namespace {

thread_local int last_error = 0;

int fail_with(int error)
{
    last_error = error;
    return -1;
}

int fail() { return fail_with(errno); }

// What sleepers look at: they enter the kernel only when the word holds what
// they saw.
using futex_word = std::atomic<unsigned>;
enum futex_scope { this_process = FUTEX_PRIVATE_FLAG, all_processes = 0 };

// A moment on the monotonic clock, or one that never comes. Waits begun anew
// after an interruption keep it.
class deadline {
public:
    explicit deadline(unsigned limit)
    {
        if (limit == sys_no_limit)
            return;
        clock_gettime(CLOCK_MONOTONIC, &at_);
        at_.tv_sec += limit / 1000;
        at_.tv_nsec += limit % 1000 * 1000000L;
        if (at_.tv_nsec >= 1000000000) {
            at_.tv_nsec -= 1000000000;
            ++at_.tv_sec;
        }
    }
    // Never null: a wait without any deadline would be begun again by the kernel
    // itself after a signal, and never look at the gate.
    const timespec* get() const { return &at_; }

private:
    timespec at_ { std::numeric_limits<time_t>::max(), 0 };
};

// 0 or the error. Sleeps for no reason may end.
int futex_sleep(futex_word& word, unsigned seen, const deadline& until, futex_scope scope = this_process)
{
    const long r = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET | scope, seen, until.get(), nullptr,
                           FUTEX_BITSET_MATCH_ANY);
    return r == 0 ? 0 : errno;
}

void look_at_gate();

// False when the deadline passed. May return for no reason. A thread that is to
// be stopped stops in here at the latest.
bool futex_wait(futex_word& word, unsigned seen, const deadline& until, futex_scope scope = this_process)
{
    const int error = futex_sleep(word, seen, until, scope);
    if (error == EINTR)
        look_at_gate();
    return error != ETIMEDOUT;
}

void futex_wait(futex_word& word, unsigned seen) { futex_wait(word, seen, deadline(sys_no_limit)); }

__attribute__((noinline)) void futex_wake(futex_word& word, int sleepers, futex_scope scope = this_process)
{
    syscall(SYS_futex, &word, FUTEX_WAKE | scope, sleepers, nullptr, nullptr, 0);
}

constexpr int all_sleepers = INT_MAX;

// The address of this names the calling thread. The model makes it a constant
// distance from the thread's register, without a call.
__attribute__((tls_model("initial-exec"))) thread_local char thread_mark;

// A recursive lock. The owner is known by its mark, null for none.
struct critical {
    enum : unsigned { is_free, is_taken, has_sleepers };
    futex_word state { is_free };
    unsigned again = 0; // how often the owner entered beyond the first time
    std::atomic<const char*> owner { nullptr };
};
static_assert(sizeof(critical) <= 6 * sizeof(void*), "sync_critical has room for it");

bool own(critical& c, const char* self)
{
    c.owner.store(self, std::memory_order_relaxed);
    return true;
}

__attribute__((noinline)) bool enter_contended(critical& c, const char* self)
{
    while (c.state.exchange(critical::has_sleepers, std::memory_order_acquire) != critical::is_free)
        futex_wait(c.state, critical::has_sleepers);
    return own(c, self);
}

__attribute__((noinline)) bool wake_next(critical& c)
{
    futex_wake(c.state, 1);
    return true;
}

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

bool take_count(semaphore& s)
{
    unsigned count = s.likely_count.load(std::memory_order_relaxed);
    if (count == 0)
        count = s.count.load(std::memory_order_relaxed);
    while (count > 0) {
        if (s.count.compare_exchange_weak(count, count - 1, std::memory_order_acquire, std::memory_order_relaxed)) {
            s.likely_count.store(count - 1, std::memory_order_relaxed);
            return true;
        }
    }
    return false;
}

int give_count(semaphore& s, futex_scope scope)
{
    unsigned count = s.likely_count.load(std::memory_order_relaxed);
    if (count >= s.maximum)
        count = s.count.load(std::memory_order_relaxed);
    do {
        if (count >= s.maximum)
            return fail_with(EOVERFLOW);
    } while (!s.count.compare_exchange_weak(count, count + 1));
    s.likely_count.store(count + 1, std::memory_order_relaxed);
    if (s.waiters.load() > 0)
        futex_wake(s.count, 1, scope);
    return 0;
}

__attribute__((noinline)) int wait_for_count(semaphore& s, unsigned limit, futex_scope scope)
{
    const deadline until(limit);
    s.waiters.fetch_add(1);
    bool in_time = true;
    bool taken = take_count(s);
    while (!taken && in_time) {
        in_time = futex_wait(s.count, 0, until, scope);
        taken = take_count(s);
    }
    s.waiters.fetch_sub(1);
    return taken ? sys_wait_done : sys_wait_timeout;
}

// Objects that processes share by name.
//
// A name is a file in a folder that only its user may use. Whoever holds the
// object holds a lock for reading on byte 0 of the file; the kernel gives it
// back when the holder dies. Joining and leaving happen under a lock for
// writing on byte 1. Who gets byte 0 for writing is alone: when joining, the
// file is a dead one's and made anew; when leaving, the file goes.

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

enum lock_byte : off_t { holder_byte = 0, gate_byte = 1 };

bool lock_file(int fd, lock_byte byte, int type, int command)
{
    struct flock range = {};
    range.l_type = static_cast<short>(type);
    range.l_whence = SEEK_SET;
    range.l_start = byte;
    range.l_len = 1;
    int r;
    do {
        r = fcntl(fd, command, &range);
    } while (r != 0 && errno == EINTR);
    return r == 0;
}

bool close_gate(int fd) { return lock_file(fd, gate_byte, F_WRLCK, F_OFD_SETLKW); }
void open_gate(int fd) { lock_file(fd, gate_byte, F_UNLCK, F_OFD_SETLK); }
bool is_alone(int fd) { return lock_file(fd, holder_byte, F_WRLCK, F_OFD_SETLK); }
bool hold(int fd) { return lock_file(fd, holder_byte, F_RDLCK, F_OFD_SETLK); }
void let_go(int fd) { lock_file(fd, holder_byte, F_UNLCK, F_OFD_SETLK); }

// The folder of this user's names, made when it is missing; empty when it is not ours alone.
std::string names_folder()
{
    const std::string folder = "/dev/shm/stdkro-" + std::to_string(geteuid());
    mkdir(folder.c_str(), S_IRWXU);
    struct stat info;
    const bool ours = lstat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid()
        && (info.st_mode & (S_IRWXG | S_IRWXO)) == 0;
    return ours ? folder + "/" : std::string();
}

bool is_plain(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

// A name as a file name. Long ones are cut and get a hash; the head tells
// whether two of them met.
std::string file_name_of(const char* name)
{
    constexpr size_t longest_file_name = 200;
    std::string text;
    unsigned long long hash = 14695981039346656037u;
    for (const char* p = name; *p; ++p) {
        const unsigned byte = static_cast<unsigned char>(*p);
        hash = (hash ^ byte) * 1099511628211u;
        if (is_plain(*p)) {
            text += *p;
        } else {
            text += '%';
            text += "0123456789ABCDEF"[byte >> 4];
            text += "0123456789ABCDEF"[byte & 15];
        }
    }
    if (text.size() > longest_file_name) {
        text.resize(longest_file_name);
        text += '~' + std::to_string(hash);
    }
    return text;
}

// The part of a name that counts: "Local\" says what is so anyway, "Global\"
// makes another name, no other backslash may stand in one. Null for a bad name.
const char* name_proper(const char* name)
{
    constexpr char local[] = "Local\\";
    constexpr char global[] = "Global\\";
    if (std::strlen(name) > longest_name)
        return nullptr;
    if (std::strncmp(name, local, sizeof local - 1) == 0)
        name += sizeof local - 1;
    const bool is_global = std::strncmp(name, global, sizeof global - 1) == 0;
    return std::strchr(is_global ? name + sizeof global - 1 : name, '\\') ? nullptr : name;
}

// Opens the file of a name with its gate closed: -1 without success.
int open_object_file(const std::string& path, int flags)
{
    for (;;) {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | flags, S_IRUSR | S_IWUSR);
        if (fd < 0)
            return fail();
        struct stat info;
        if (!close_gate(fd) || fstat(fd, &info) != 0) {
            fail();
            close(fd);
            return -1;
        }
        if (info.st_nlink > 0)
            return fd;
        close(fd); // its last holder left between the two calls
    }
}

object_head* map_head(int fd)
{
    void* p = mmap(nullptr, head_size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return p == MAP_FAILED ? nullptr : static_cast<object_head*>(p);
}

// Gives the file its head and `size` bytes of zeros behind it.
object_head* make_object(int fd, const std::string& path, const object_head& wanted, size_t size)
{
    if (ftruncate(fd, 0) != 0)
        return nullptr;
    const int r = posix_fallocate(fd, 0, static_cast<off_t>(head_size + size));
    object_head* head = r == 0 ? map_head(fd) : nullptr;
    if (r != 0)
        errno = r;
    if (head) {
        head->kind = wanted.kind;
        std::strcpy(head->name, wanted.name);
        std::strcpy(head->file, wanted.file);
        std::strcpy(head->path, path.c_str());
        head->size = wanted.size;
        head->protection = wanted.protection;
        head->counts.count.store(wanted.counts.count.load());
        head->counts.likely_count.store(wanted.counts.count.load());
        head->counts.waiters.store(0);
        head->counts.maximum = wanted.counts.maximum;
    }
    return head;
}

object_head* join_object(int fd, const object_head& wanted)
{
    object_head* head = map_head(fd);
    if (head && (head->kind != wanted.kind || std::strcmp(head->name, wanted.name) != 0)) {
        munmap(head, head_size);
        head = nullptr;
        errno = EEXIST;
    }
    return head;
}

// The object of the name and kind that `wanted` has. One that nobody holds is
// made, with `size` bytes behind its head, when `make` says so.
bool open_object(const object_head& wanted, bool make, size_t size, named_object* object)
{
    const std::string folder = names_folder();
    if (folder.empty()) {
        fail_with(EACCES);
        return false;
    }
    const std::string path = folder + file_name_of(wanted.name);
    const int fd = open_object_file(path, make ? O_CREAT : 0);
    if (fd < 0)
        return false;
    const bool alone = is_alone(fd);
    object_head* head = nullptr;
    if (alone && make)
        head = make_object(fd, path, wanted, size);
    else if (alone)
        errno = ENOENT;
    else if (errno == EAGAIN) // somebody holds it
        head = join_object(fd, wanted);
    if (head && hold(fd)) {
        open_gate(fd);
        *object = { fd, head };
        return true;
    }
    fail();
    if (head)
        munmap(head, head_size);
    if (alone)
        unlink(path.c_str());
    close(fd);
    return false;
}

void close_object(const named_object& object, bool keep_head)
{
    if (close_gate(object.fd) && is_alone(object.fd))
        unlink(object.head->path);
    // Closing alone would not do: a view keeps the open file, and its locks.
    let_go(object.fd);
    open_gate(object.fd);
    if (!keep_head)
        munmap(object.head, head_size);
    close(object.fd);
}

// An unnamed semaphore, or what this process keeps of a named one.
struct semaphore_block {
    semaphore counts;
    std::atomic<unsigned> users; // its handle, and who sleeps on it in this process
};

struct semaphore_record {
    semaphore_block* block;
    semaphore* counts;
    named_object object;
};

handle_table<semaphore_record> semaphores;

futex_scope scope_of(const semaphore_record& record) { return record.object.head ? all_processes : this_process; }

// Whoever sleeps on a closed semaphore sleeps on: the last user takes its memory away.
void drop_semaphore(const semaphore_record& record)
{
    if (record.block->users.fetch_sub(1) > 1)
        return;
    if (record.object.head)
        munmap(record.object.head, head_size);
    delete record.block;
}

// The slot may be another semaphore's when this one is closed meanwhile: a copy stays.
__attribute__((noinline)) int wait_asleep(semaphore_record record, unsigned limit)
{
    record.block->users.fetch_add(1);
    const int r = wait_for_count(*record.counts, limit, scope_of(record));
    drop_semaphore(record);
    return r;
}

bool open_named_semaphore(const char* name, const semaphore_block& block, named_object* object)
{
    name = name_proper(name);
    if (!name) {
        fail_with(ENOENT);
        return false;
    }
    object_head wanted {};
    wanted.kind = semaphore_object;
    std::strcpy(wanted.name, name);
    wanted.counts.count.store(block.counts.count.load());
    wanted.counts.maximum = block.counts.maximum;
    try {
        return open_object(wanted, true, 0, object);
    } catch (const std::bad_alloc&) {
        fail_with(ENOMEM);
        return false;
    }
}

// Threads.
//
// Each has a block, shared by its handle, itself and whoever starts it. Handle and
// id must be known before its function runs: the starter and the thread both go
// to tell them, and the first one does. Waiting for the starter instead would cost
// two more switches whenever the thread is the first.
//
// Suspension: a signal brings the thread into a handler, where it parks at a gate
// until the count is 0 again. Killing: the thread parks for ever, with
// all signals blocked. Who suspends or kills waits until the thread has parked.
// Sanitizers hold signals back from a thread that does not sleep in a function they
// know, so a wait that was interrupted looks at the gate too, and who waits
// for the thread to park sends the signal again after a while.

// The gate is one word, so that a thread cannot leave or end while another suspends
// it: four bits, and the number of suspensions above them.
enum gate_bits : unsigned { gate_parked = 1, gate_doomed = 2, gate_dead = 4, gate_closed = 8, one_suspension = 16 };
constexpr unsigned most_suspensions = 127;

enum id_states : unsigned { id_untold, id_being_told, id_awaited, id_told };
enum end_states : unsigned { not_ended, not_ended_and_awaited, has_ended };

struct thread_block {
    std::atomic<unsigned> owners { 3 }; // the handle, the thread, its starter
    futex_word gate { 0 };
    futex_word id_state { id_untold };
    futex_word ended { not_ended };
    std::atomic<int> exit_code { sys_still_active };
    int own_exit_code = 0;
    int id = 0;
    int* id_wanted = nullptr; // where it is told
    void (*run)(void*) = nullptr;
    alignas(std::max_align_t) char argument[sys_most_thread_argument];
    std::mutex control; // one suspends or kills it at a time; never taken by itself
    jmp_buf way_out;
};

// The model: see thread_mark.
__attribute__((tls_model("initial-exec"))) thread_local thread_block* current_block = nullptr;

// The signal that stops threads. Nothing is installed before its first use.
std::atomic<int> stop_signal { 0 };
std::mutex stop_signal_lock;

int preferred_stop_signal() { return SIGRTMAX - 7; }

void drop_block(thread_block* block)
{
    if (block->owners.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete block;
}

// The exit code stands before the end is told.
void tell_end(thread_block& block, int exit_code)
{
    block.exit_code.store(exit_code, std::memory_order_relaxed);
    if (block.ended.exchange(has_ended, std::memory_order_acq_rel) == not_ended_and_awaited)
        futex_wake(block.ended, all_sleepers);
}

[[noreturn]] void park_for_ever(thread_block& block)
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    block.gate.fetch_or(gate_dead, std::memory_order_release);
    futex_wake(block.gate, all_sleepers);
    for (;;)
        pause();
}

// Waits until no suspension is left, and leaves with `mark` set.
void pass_gate(thread_block& block, unsigned mark = 0)
{
    unsigned seen = block.gate.load(std::memory_order_acquire);
    for (;;) {
        if (seen & gate_doomed)
            park_for_ever(block);
        if (seen < one_suspension) {
            if (block.gate.compare_exchange_weak(seen, (seen & ~gate_parked) | mark, std::memory_order_acq_rel))
                return;
            continue;
        }
        if (!(seen & gate_parked)) {
            if (!block.gate.compare_exchange_weak(seen, seen | gate_parked, std::memory_order_acq_rel))
                continue;
            seen |= gate_parked;
            futex_wake(block.gate, all_sleepers);
        }
        futex_sleep(block.gate, seen, deadline(sys_no_limit));
        seen = block.gate.load(std::memory_order_acquire);
    }
}

void look_at_gate()
{
    // Before its block is known a thread looks at the gate anyway.
    if (current_block)
        pass_gate(*current_block);
}

void on_stop_signal(int)
{
    const int saved = errno;
    look_at_gate();
    errno = saved;
}

bool is_untouched(int signal)
{
    struct sigaction now;
    return sigaction(signal, nullptr, &now) == 0 && !(now.sa_flags & SA_SIGINFO) && now.sa_handler == SIG_DFL;
}

// Takes the preferred signal, or the next one below that nobody uses.
bool prepare_stop_signal()
{
    const std::lock_guard<std::mutex> guard(stop_signal_lock);
    if (stop_signal.load() != 0)
        return true;
    int signal = preferred_stop_signal();
    while (signal >= SIGRTMIN && !is_untouched(signal))
        --signal;
    struct sigaction action = {};
    action.sa_handler = on_stop_signal;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    if (signal < SIGRTMIN || sigaction(signal, &action, nullptr) != 0)
        return false;
    stop_signal.store(signal);
    return true;
}

// Keeps the calling thread from being stopped while it holds another's block.
class unstoppable {
public:
    unstoppable()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    unstoppable(const unstoppable&) = delete;
    unstoppable& operator=(const unstoppable&) = delete;
    ~unstoppable() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

bool has_finished(const thread_block& block) { return block.ended.load(std::memory_order_acquire) == has_ended; }

// Adds to a gate that is not closed and below `limit`. Returns what was there before.
unsigned raise_gate(thread_block& block, unsigned addition, unsigned limit)
{
    unsigned seen = block.gate.load(std::memory_order_acquire);
    while (!(seen & gate_closed) && seen < limit
           && !block.gate.compare_exchange_weak(seen, seen + addition, std::memory_order_acq_rel)) {
    }
    return seen;
}

// Sends the thread to its gate and waits until it is there, or nobody wants it there any more.
void send_to_gate(thread_block& block, bool (*is_settled)(unsigned gate))
{
    constexpr unsigned longest_patience = 1000;
    for (unsigned patience = 1;; patience = std::min(2 * patience, longest_patience)) {
        const deadline until(patience);
        unsigned seen = block.gate.load(std::memory_order_acquire);
        if (!is_settled(seen) && !(seen & gate_parked))
            syscall(SYS_tgkill, getpid(), block.id, stop_signal.load());
        bool in_time = true;
        while (!is_settled(seen) && in_time) {
            in_time = futex_sleep(block.gate, seen, until) != ETIMEDOUT;
            seen = block.gate.load(std::memory_order_acquire);
        }
        if (is_settled(seen))
            return;
    }
}

// The end of a thread is told by the destructor of a thread-specific value: by
// then its thread_local objects are gone. Behind the closed gate nobody stops it.
void finish_thread(void* value)
{
    thread_block* block = static_cast<thread_block*>(value);
    pass_gate(*block, gate_closed);
    tell_end(*block, block->own_exit_code);
    current_block = nullptr;
    drop_block(block);
}

struct thread_setting {
    pthread_key_t end_key;
    pthread_attr_t detached;
    bool sound;
};

const thread_setting& setting()
{
    static const thread_setting made = [] {
        thread_setting s;
        s.sound = pthread_key_create(&s.end_key, finish_thread) == 0 && pthread_attr_init(&s.detached) == 0
            && pthread_attr_setdetachstate(&s.detached, PTHREAD_CREATE_DETACHED) == 0;
        return s;
    }();
    return made;
}

// A thread inherits the mask of its maker, who may have blocked everything.
void let_stop_signal_through()
{
    sigset_t signals;
    sigemptyset(&signals);
    const int taken = stop_signal.load(std::memory_order_relaxed);
    sigaddset(&signals, taken ? taken : preferred_stop_signal());
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

// The kernel's number of a thread that cannot have ended yet. A thread's clock
// is named by the complement of its number, above three bits.
int id_of(pthread_t thread)
{
    clockid_t clock = 0;
    return pthread_getcpuclockid(thread, &clock) == 0 ? ~(clock >> 3) : 0;
}

// Until its id is told a thread cannot end.
void tell_id(thread_block& block, pthread_t thread)
{
    unsigned seen = id_untold;
    if (block.id_state.compare_exchange_strong(seen, id_being_told, std::memory_order_acq_rel)) {
        *block.id_wanted = block.id = id_of(thread);
        if (block.id_state.exchange(id_told, std::memory_order_acq_rel) == id_awaited)
            futex_wake(block.id_state, all_sleepers);
        return;
    }
    while (seen != id_told) {
        if (seen == id_awaited || block.id_state.compare_exchange_strong(seen, id_awaited, std::memory_order_acq_rel))
            futex_wait(block.id_state, id_awaited);
        seen = block.id_state.load(std::memory_order_acquire);
    }
}

void* thread_main(void* argument)
{
    thread_block* block = static_cast<thread_block*>(argument);
    current_block = block;
    const bool finishes = pthread_setspecific(setting().end_key, block) == 0;
    let_stop_signal_through();
    pass_gate(*block); // it may be stopped already
    tell_id(*block, pthread_self());
    if (_setjmp(block->way_out) == 0)
        block->run(block->argument);
    if (!finishes)
        finish_thread(block);
    return nullptr;
}

thread_block* block_of(void* thread) { return static_cast<thread_block*>(thread); }

// Giving way a few times is cheaper than falling asleep for a thread that does
// little: it often ends on this very processor meanwhile. But on a busy machine
// others take the way given, for milliseconds. After such a loss the next waits
// fall asleep at once: the more of them, the more often it happened.
void give_way(const thread_block& block)
{
    constexpr int ways = 4;
    constexpr double dear = 1e5; // nanoseconds
    constexpr unsigned fewest = 64, most = 1 << 16;
    static std::atomic<unsigned> waits_without { 0 };
    static std::atomic<unsigned> penalty { fewest };
    const unsigned without = waits_without.load(std::memory_order_relaxed);
    if (without > 0)
        return waits_without.store(without - 1, std::memory_order_relaxed);
    const double begin = sys_ticks();
    for (int i = 0; i < ways && !has_finished(block); ++i)
        sched_yield();
    const unsigned last = penalty.load(std::memory_order_relaxed);
    if (sys_ticks() - begin > dear) {
        waits_without.store(last, std::memory_order_relaxed);
        penalty.store(std::min(last * 4, most), std::memory_order_relaxed);
    } else {
        penalty.store(std::max(last - last / 64, fewest), std::memory_order_relaxed);
    }
}

int wait_for_end(thread_block& block, const deadline& until)
{
    give_way(block);
    for (;;) {
        unsigned seen = not_ended;
        block.ended.compare_exchange_strong(seen, not_ended_and_awaited, std::memory_order_acq_rel);
        if (seen == has_ended)
            return sys_wait_done;
        if (!futex_wait(block.ended, not_ended_and_awaited, until))
            return has_finished(block) ? sys_wait_done : sys_wait_timeout;
    }
}

} // namespace

int sys_last_error() { return last_error; }

double sys_ticks()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * sys_ticks_per_second() + static_cast<double>(now.tv_nsec);
}

double sys_ticks_per_second() { return 1e9; }

void sys_critical_open(void* section) { new (section) critical; }

bool sys_critical_enter(void* section)
{
    critical& c = *static_cast<critical*>(section);
    const char* self = &thread_mark;
    if (c.owner.load(std::memory_order_relaxed) == self) {
        ++c.again;
        return true;
    }
    unsigned expected = critical::is_free;
    if (!c.state.compare_exchange_strong(expected, critical::is_taken, std::memory_order_acquire))
        return enter_contended(c, self);
    return own(c, self);
}

bool sys_critical_leave(void* section)
{
    critical& c = *static_cast<critical*>(section);
    if (c.owner.load(std::memory_order_relaxed) != &thread_mark)
        return true;
    if (c.again > 0) {
        --c.again;
        return true;
    }
    c.owner.store(nullptr, std::memory_order_relaxed);
    const bool awaited = c.state.exchange(critical::is_free, std::memory_order_release) == critical::has_sleepers;
    return awaited ? wake_next(c) : true;
}

void sys_critical_close(void*) {}

void* sys_semaphore_open(const char* name, int initial, int maximum)
{
    std::unique_ptr<semaphore_block> block(new (std::nothrow) semaphore_block {});
    if (!block) {
        fail_with(ENOMEM);
        return nullptr;
    }
    block->counts.count.store(static_cast<unsigned>(initial));
    block->counts.likely_count.store(static_cast<unsigned>(initial));
    block->counts.maximum = static_cast<unsigned>(maximum);
    block->users.store(1);
    named_object object = { -1, nullptr };
    if (name && *name && !open_named_semaphore(name, *block, &object))
        return nullptr;
    semaphore* counts = object.head ? &object.head->counts : &block->counts;
    void* handle = semaphores.add({ block.get(), counts, object });
    if (!handle) {
        if (object.head)
            close_object(object, false);
        fail_with(ENOMEM);
        return nullptr;
    }
    block.release();
    return handle;
}

int sys_semaphore_wait(void* handle, unsigned limit)
{
    const semaphore_record* found = semaphores.find(handle);
    if (!found)
        return fail_with(EBADF);
    return take_count(*found->counts) ? sys_wait_done : wait_asleep(*found, limit);
}

int sys_semaphore_post(void* handle)
{
    const semaphore_record* found = semaphores.find(handle);
    return found ? give_count(*found->counts, scope_of(*found)) : fail_with(EBADF);
}

void sys_semaphore_close(void* handle)
{
    semaphore_record record;
    if (!semaphores.remove(handle, &record))
        return;
    if (record.object.head)
        close_object(record.object, true);
    drop_semaphore(record);
}

int sys_thread_start(void (*run)(void*), const void* argument, unsigned size, void** thread, int* id)
{
    *thread = nullptr;
    if (!setting().sound)
        return fail_with(EAGAIN);
    thread_block* block = new (std::nothrow) thread_block;
    if (!block) {
        fail_with(ENOMEM);
        return sys_no_memory;
    }
    block->run = run;
    std::memcpy(block->argument, argument, size);
    block->id_wanted = id;
    *thread = block;
    pthread_t made;
    const int r = pthread_create(&made, &setting().detached, thread_main, block);
    if (r != 0) {
        *thread = nullptr;
        delete block;
        return fail_with(r);
    }
    tell_id(*block, made);
    drop_block(block);
    return 0;
}

void sys_thread_close(void* thread)
{
    if (thread)
        drop_block(block_of(thread));
}

int sys_thread_wait(void* thread, unsigned limit) { return wait_for_end(*block_of(thread), deadline(limit)); }

int sys_thread_wait_all(void* const* list, unsigned count, unsigned limit)
{
    const deadline until(limit);
    int r = sys_wait_done;
    for (unsigned i = 0; i < count && r == sys_wait_done; ++i)
        r = wait_for_end(*block_of(list[i]), until);
    return r;
}

int sys_thread_exit_code(void* thread) { return block_of(thread)->exit_code.load(std::memory_order_relaxed); }

int sys_thread_suspend(void* thread)
{
    constexpr unsigned limit = most_suspensions * one_suspension;
    thread_block& block = *block_of(thread);
    const bool self = &block == current_block;
    unsigned seen;
    {
        const unstoppable here;
        const std::lock_guard<std::mutex> guard(block.control);
        if (has_finished(block) || !prepare_stop_signal())
            return fail_with(ESRCH);
        seen = raise_gate(block, one_suspension, limit);
        if (seen & gate_closed || seen >= limit)
            return fail_with(seen & gate_closed ? ESRCH : EOVERFLOW);
        if (!self)
            send_to_gate(block, [](unsigned gate) { return gate < one_suspension || (gate & gate_parked); });
    }
    if (self)
        pass_gate(block);
    return static_cast<int>(seen / one_suspension);
}

int sys_thread_resume(void* thread)
{
    thread_block& block = *block_of(thread);
    unsigned seen = block.gate.load(std::memory_order_acquire);
    do {
        if (seen & gate_closed || has_finished(block))
            return fail_with(ESRCH);
        if (seen < one_suspension)
            return 0;
    } while (!block.gate.compare_exchange_weak(seen, seen - one_suspension, std::memory_order_acq_rel));
    if (seen < 2 * one_suspension)
        futex_wake(block.gate, all_sleepers);
    return static_cast<int>(seen / one_suspension);
}

void sys_thread_kill(void* thread, int exit_code)
{
    thread_block& block = *block_of(thread);
    {
        const unstoppable here;
        const std::lock_guard<std::mutex> guard(block.control);
        if (has_finished(block) || !prepare_stop_signal())
            return;
        if (raise_gate(block, gate_doomed, ~0u) & gate_closed) {
            wait_for_end(block, deadline(sys_no_limit));
            return;
        }
        futex_wake(block.gate, all_sleepers);
        send_to_gate(block, [](unsigned gate) { return (gate & gate_dead) != 0; });
        tell_end(block, exit_code);
    }
    drop_block(&block); // on behalf of the thread, which never will
}

void sys_thread_exit(int exit_code)
{
    current_block->own_exit_code = exit_code;
    _longjmp(current_block->way_out, 1);
}

int sys_thread_self() { return gettid(); }

// ---- processes, shared memory, modules --------------------------------------

namespace {

// Children that may still run, with the suspensions of each. A forgotten one is
// reaped when a later function finds it ended.
struct child_record {
    pid_t id;
    unsigned suspensions;
    bool forgotten;
};

std::mutex children_lock;

// Lives until the process ends, whatever is destroyed before.
std::list<child_record>& children()
{
    static std::list<child_record>& list = *new std::list<child_record>;
    return list;
}

void* handle_of(pid_t id) { return reinterpret_cast<void*>(static_cast<std::intptr_t>(id)); }

std::list<child_record>::iterator find_child(pid_t id)
{
    return std::find_if(children().begin(), children().end(), [id](const child_record& c) { return c.id == id; });
}

// waitpid, gone on after an interruption.
pid_t reap(pid_t id, int* status, int options)
{
    pid_t r;
    do {
        r = waitpid(id, status, options);
    } while (r < 0 && errno == EINTR);
    return r;
}

// Whether the child has ended; its status can still be read.
bool has_ended_unread(pid_t id)
{
    siginfo_t info {};
    return waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == id;
}

// Waits until a child stops or ends.
void wait_for_stop(pid_t id)
{
    siginfo_t info {};
    while (waitid(P_PID, static_cast<id_t>(id), &info, WSTOPPED | WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
}

void reap_forgotten()
{
    const std::lock_guard<std::mutex> guard(children_lock);
    children().remove_if([](const child_record& c) { return c.forgotten && reap(c.id, nullptr, WNOHANG) != 0; });
}

void forget_child(pid_t id)
{
    const std::lock_guard<std::mutex> guard(children_lock);
    children().remove_if([id](const child_record& c) { return c.id == id; });
}

int exit_code_of(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

// Everything exec needs, made before the child exists.
struct launch_plan {
    std::string application;
    std::string directory; // empty: ours
    std::vector<std::string> words;
    std::vector<char*> arguments;
    int standard_end = -1; // which of the child's standard descriptors is the pipe
    int child_end = -1;
    int our_end = -1;
};

// Relative to our folder, whatever the child's.
std::string absolute_path(const char* path)
{
    char folder[PATH_MAX];
    if (*path == '/' || !getcwd(folder, sizeof folder))
        return path;
    return std::string(folder) + "/" + path;
}

void plan_command(const sys_launch& launch, launch_plan& plan)
{
    plan.directory = launch.directory ? launch.directory : "";
    plan.application = plan.directory.empty() ? launch.application : absolute_path(launch.application);
    const bool has_line = launch.command_line && *launch.command_line;
    plan.words = split_command_line(has_line ? launch.command_line : launch.application);
    for (std::string& word : plan.words)
        plan.arguments.push_back(word.data());
    plan.arguments.push_back(nullptr);
}

// Ends of pipes stay away from the standard descriptors, even where those are closed.
bool lift_above_standard(int& fd)
{
    if (fd > STDERR_FILENO)
        return true;
    const int lifted = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(fd);
    fd = lifted;
    return fd >= 0;
}

void close_pipe(int ends[2])
{
    for (int i = 0; i < 2; ++i) {
        if (ends[i] >= 0)
            close(ends[i]);
    }
}

bool make_pipe(int ends[2])
{
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    if (lift_above_standard(ends[0]) && lift_above_standard(ends[1]))
        return true;
    const int error = errno;
    close_pipe(ends);
    errno = error;
    return false;
}

// Our end of a pipe to write into. A child that has gone makes writing fail,
// as on Windows, instead of raising SIGPIPE; the buffer goes with the stream.
struct writing_end {
    int fd;
    char buffer[1 << 16];
};

// Takes the signal that a failed write left for this thread, unless one waited before.
void drop_pipe_signal(const sigset_t& pipe_signal, bool waited_before)
{
    const timespec at_once = { 0, 0 };
    if (!waited_before) {
        while (sigtimedwait(&pipe_signal, nullptr, &at_once) < 0 && errno == EINTR) {
        }
    }
}

ssize_t write_quietly(void* cookie, const char* bytes, size_t n)
{
    sigset_t pipe_signal, before, waiting;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);
    sigpending(&waiting);
    ssize_t r;
    do {
        r = write(static_cast<writing_end*>(cookie)->fd, bytes, n);
    } while (r < 0 && errno == EINTR);
    const int error = errno;
    if (r < 0 && error == EPIPE)
        drop_pipe_signal(pipe_signal, sigismember(&waiting, SIGPIPE) == 1);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return r < 0 ? 0 : r; // 0 is a stream's failure
}

int close_writing_end(void* cookie)
{
    writing_end* end = static_cast<writing_end*>(cookie);
    const int r = close(end->fd);
    delete end;
    return r;
}

std::FILE* open_writing_end(int fd)
{
    writing_end* end = new (std::nothrow) writing_end;
    if (!end) {
        errno = ENOMEM;
        return nullptr;
    }
    end->fd = fd;
    std::FILE* stream = fopencookie(end, "w", { nullptr, write_quietly, nullptr, close_writing_end });
    if (stream)
        std::setvbuf(stream, end->buffer, _IOFBF, sizeof end->buffer);
    else
        delete end;
    return stream;
}

// The GNU library's mark of a stream whose buffer is its user's. Without it the stream
// frees its buffer when it is closed, as it does with one that it made itself.
constexpr int user_buffer = 1; // _IO_USER_BUF

// Our end of a pipe to read from: an ordinary stream, so that its descriptor can
// be waited for, with a large buffer of its own. Nobody else learns of its end.
std::FILE* open_reading_end(int fd)
{
    constexpr size_t roomy = 1 << 16;
    std::FILE* stream = fdopen(fd, "r");
#if defined(__GLIBC__)
    // Without memory for it the stream takes a small one.
    char* const buffer = stream ? static_cast<char*>(std::malloc(roomy)) : nullptr;
    if (buffer && std::setvbuf(stream, buffer, _IOFBF, roomy) == 0)
        stream->_flags &= ~user_buffer;
#endif
    return stream;
}

// The pipe between us and the child, with our end as a stream.
std::FILE* plan_pipe(const sys_launch& launch, launch_plan& plan)
{
    constexpr int roomy = 1 << 20;
    int ends[2];
    if (!make_pipe(ends))
        return nullptr;
    const bool reading = launch.pipe == 'r';
    fcntl(ends[0], F_SETPIPE_SZ, roomy); // only faster
    plan.standard_end = reading ? STDOUT_FILENO : STDIN_FILENO;
    plan.our_end = ends[reading ? 0 : 1];
    plan.child_end = ends[reading ? 1 : 0];
    std::FILE* stream = reading ? open_reading_end(plan.our_end) : open_writing_end(plan.our_end);
    if (!stream) {
        const int error = errno;
        close_pipe(ends);
        errno = error;
    }
    return stream;
}

// Starts the child and returns its id, or -1 with errno.
pid_t spawn(const launch_plan& plan)
{
    posix_spawn_file_actions_t actions;
    int r = posix_spawn_file_actions_init(&actions);
    if (r == 0 && !plan.directory.empty())
        r = posix_spawn_file_actions_addchdir_np(&actions, plan.directory.c_str());
    if (r == 0 && plan.child_end >= 0)
        r = posix_spawn_file_actions_adddup2(&actions, plan.child_end, plan.standard_end);
    if (r == 0)
        r = posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    pid_t id = -1;
    if (r == 0)
        r = posix_spawn(&id, plan.application.c_str(), &actions, nullptr, plan.arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    errno = r;
    return r == 0 ? id : -1;
}

// Moves `report` to the descriptor behind the standard ones.
bool keep_only_standard(int& report)
{
    constexpr int report_end = STDERR_FILENO + 1;
    if (report != report_end) {
        if (dup3(report, report_end, O_CLOEXEC) < 0)
            return false;
        report = report_end;
    }
    return syscall(SYS_close_range, report_end + 1, ~0u, 0) == 0;
}

// The child of `spawn_stopped`, in its parent's memory: it ends in exec or tells
// its error through `report`. All signals but the one of the trace are blocked:
// any other that came while it is traced would stop it for ever.
[[noreturn]] void become_traced(const launch_plan& plan, int report)
{
    if ((plan.child_end < 0 || dup2(plan.child_end, plan.standard_end) >= 0) && keep_only_standard(report)
        && (plan.directory.empty() || chdir(plan.directory.c_str()) == 0)
        && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0)
        execv(plan.application.c_str(), plan.arguments.data());
    const int error = errno;
    const bool told = write(report, &error, sizeof error) == sizeof error;
    _exit(told ? 127 : 126);
}

// Hands a child that was traced into its program over to SIGSTOP.
void leave_stopped(pid_t id, const sigset_t& mask)
{
    constexpr std::intptr_t kernel_mask_size = 8;
    reap(id, nullptr, 0); // the stop behind exec
    ptrace(PTRACE_SETSIGMASK, id, kernel_mask_size, &mask);
    ptrace(PTRACE_DETACH, id, nullptr, SIGSTOP);
    wait_for_stop(id);
}

// Starts the child stopped before its first instruction: it asks to be traced,
// which stops it when exec has succeeded.
pid_t spawn_stopped(const launch_plan& plan)
{
    int report[2];
    if (!make_pipe(report))
        return -1;
    sigset_t all_but_trace, before;
    sigfillset(&all_but_trace);
    sigdelset(&all_but_trace, SIGTRAP);
    pthread_sigmask(SIG_SETMASK, &all_but_trace, &before);
    pid_t id = vfork();
    if (id == 0)
        become_traced(plan, report[1]);
    int error = errno;
    close(report[1]);
    report[1] = -1;
    if (id > 0 && read(report[0], &error, sizeof error) == sizeof error) {
        reap(id, nullptr, 0);
        id = -1;
    } else if (id > 0) {
        leave_stopped(id, before);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    close_pipe(report);
    errno = error;
    return id;
}

int start_child(const sys_launch& launch, sys_process* child, std::FILE** stream)
{
    launch_plan plan;
    plan_command(launch, plan);
    std::list<child_record> fresh(1);
    std::FILE* our_stream = launch.pipe ? plan_pipe(launch, plan) : nullptr;
    if (launch.pipe && !our_stream)
        return fail();
    const pid_t id = launch.suspended ? spawn_stopped(plan) : spawn(plan);
    const int error = errno;
    if (plan.child_end >= 0)
        close(plan.child_end);
    if (id < 0) {
        if (our_stream)
            std::fclose(our_stream);
        return fail_with(error);
    }
    fresh.front() = { id, launch.suspended ? 1u : 0u, false };
    const std::lock_guard<std::mutex> guard(children_lock);
    children().splice(children().end(), fresh);
    *child = { handle_of(id), handle_of(id), id };
    if (stream)
        *stream = our_stream;
    return 0;
}

// Shared memory.

struct memory_record {
    int fd;
    size_t base; // of the memory in the file
    unsigned size;
    unsigned protection;
    unsigned rights;     // of this handle
    named_object object; // its descriptor is `fd` unless a file lies behind
};

enum memory_flags : unsigned { readable = 4, writable = 2, page_readwrite = 4 };

handle_table<memory_record> memories;

std::mutex views_lock;

// Sizes of the views, which outlive their handles. Lives until the process ends, and needs no memory
// before there is a view.
std::map<void*, size_t>& views()
{
    using map = std::map<void*, size_t>;
    alignas(map) static char place[sizeof(map)];
    static map& all = *new (place) map;
    return all;
}

unsigned rights_of(unsigned protection) { return protection == page_readwrite ? readable | writable : readable; }

bool is_no_file(void* file) { return file == handle_of(-1); }

// A descriptor of our own for the file behind the memory, made large enough; -1 without success.
int take_file(void* file, unsigned size, unsigned protection)
{
    const int fd = static_cast<int>(reinterpret_cast<std::intptr_t>(file));
    const int mode = fcntl(fd, F_GETFL) & O_ACCMODE;
    struct stat info;
    if (fstat(fd, &info) != 0)
        return fail();
    const bool granted = mode == O_RDWR || (mode == O_RDONLY && protection != page_readwrite);
    if (!granted || !S_ISREG(info.st_mode))
        return fail_with(EACCES);
    if (info.st_size < static_cast<off_t>(size) && (mode != O_RDWR || ftruncate(fd, size) != 0))
        return fail_with(ENOSPC);
    const int own = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    return own >= 0 ? own : fail();
}

int make_anonymous(unsigned size)
{
    const int fd = memfd_create("stdkro", MFD_CLOEXEC);
    if (fd < 0)
        return fail();
    const int r = posix_fallocate(fd, 0, size);
    if (r == 0)
        return fd;
    close(fd);
    return fail_with(r);
}

// The path of an open file, so that other processes can open it too.
bool read_path(int fd, char* path)
{
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t n = readlink(link.c_str(), path, PATH_MAX - 1);
    if (n <= 0) {
        fail();
        return false;
    }
    path[n] = '\0';
    return true;
}

// Closes a descriptor when it dies.
struct closing_descriptor {
    const int fd; // negative: none

    explicit closing_descriptor(int descriptor) : fd(descriptor) {}
    closing_descriptor(const closing_descriptor&) = delete;
    closing_descriptor& operator=(const closing_descriptor&) = delete;
    ~closing_descriptor()
    {
        if (fd >= 0)
            close(fd);
    }
};

void close_record(const memory_record& record)
{
    if (record.object.head)
        close_object(record.object, false);
    if (!record.object.head || record.fd != record.object.fd)
        close(record.fd);
}

void* add_memory(const memory_record& record)
{
    void* handle = memories.add(record);
    if (!handle) {
        close_record(record);
        fail_with(ENOMEM);
    }
    return handle;
}

// A handle for a named object that was joined or made.
void* add_named_memory(const named_object& object, unsigned rights)
{
    const object_head& head = *object.head;
    memory_record record = { object.fd, head_size, head.size, head.protection, rights, object };
    if (*head.file) {
        record.base = 0;
        record.fd = open(head.file, O_CLOEXEC | (head.protection == page_readwrite ? O_RDWR : O_RDONLY));
        if (record.fd < 0) {
            fail();
            close_object(object, false);
            return nullptr;
        }
    }
    return add_memory(record);
}

void* create_named_memory(void* file, const char* name, unsigned size, unsigned protection)
{
    object_head wanted {};
    name = name_proper(name);
    if (!name) {
        fail_with(ENOENT);
        return nullptr;
    }
    wanted.kind = memory_object;
    std::strcpy(wanted.name, name);
    wanted.size = size;
    wanted.protection = protection;
    const bool has_file = !is_no_file(file);
    const closing_descriptor behind(has_file ? take_file(file, size, protection) : -1);
    if (has_file && (behind.fd < 0 || !read_path(behind.fd, wanted.file)))
        return nullptr;
    named_object object;
    const bool opened = open_object(wanted, true, has_file ? 0 : size, &object);
    return opened ? add_named_memory(object, rights_of(protection)) : nullptr;
}

void* open_named_memory(const char* name, unsigned access)
{
    object_head wanted {};
    named_object object;
    name = name_proper(name);
    if (!name) {
        fail_with(ENOENT);
        return nullptr;
    }
    wanted.kind = memory_object;
    std::strcpy(wanted.name, name);
    return open_object(wanted, false, 0, &object) ? add_named_memory(object, access & (readable | writable)) : nullptr;
}

void* create_anonymous_memory(void* file, unsigned size, unsigned protection)
{
    const int fd = is_no_file(file) ? make_anonymous(size) : take_file(file, size, protection);
    if (fd < 0)
        return nullptr;
    return add_memory({ fd, 0, size, protection, rights_of(protection), { -1, nullptr } });
}

// The length of a view, or 0 when it may not be.
size_t view_length(const memory_record& memory, unsigned offset, unsigned size, unsigned access)
{
    const size_t end = (static_cast<size_t>(memory.size) + page_size - 1) / page_size * page_size;
    const bool writes = (access & writable) != 0;
    const bool granted = writes ? (memory.rights & writable) && memory.protection == page_readwrite
                                : (memory.rights & readable) != 0;
    if (!granted || offset >= end || size > end - offset)
        return 0;
    return size ? size : memory.size - offset;
}

bool remember_view(void* address, size_t length)
{
    try {
        const std::lock_guard<std::mutex> guard(views_lock);
        views()[address] = length;
        return true;
    } catch (const std::bad_alloc&) {
        munmap(address, length);
        fail_with(ENOMEM);
        return false;
    }
}

thread_local char loader_text[512] = "";

// Keeps what the loader says of a failure; says nothing of a success.
void* keep_loader_text(void* result)
{
    const char* text = result ? nullptr : dlerror();
    if (!result) {
        std::snprintf(loader_text, sizeof loader_text, "%s", text ? text : "null entry");
        fail_with(errno ? errno : ENOENT);
    }
    return result;
}

} // namespace

int sys_process_start(const sys_launch* launch, sys_process* child, std::FILE** stream)
{
    if (!launch->application || !*launch->application)
        return fail_with(ENOENT);
    try {
        reap_forgotten();
        return start_child(*launch, child, stream);
    } catch (const std::bad_alloc&) {
        return fail_with(ENOMEM);
    }
}

int sys_process_wait(const sys_process* child, unsigned limit, int* exit_code)
{
    reap_forgotten();
    int status = 0;
    const pid_t r = reap(child->id, &status, limit == 0 ? WNOHANG : 0);
    if (r == 0)
        return sys_wait_timeout;
    if (r < 0)
        return fail();
    *exit_code = exit_code_of(status);
    forget_child(r);
    return sys_wait_done;
}

int sys_process_kill(const sys_process* child, int)
{
    reap_forgotten();
    if (has_ended_unread(child->id))
        return fail_with(ESRCH);
    if (kill(child->id, SIGKILL) != 0)
        return fail();
    reap(child->id, nullptr, 0);
    forget_child(child->id);
    return 0;
}

int sys_process_suspend(const sys_process* child)
{
    reap_forgotten();
    const std::lock_guard<std::mutex> guard(children_lock);
    const auto found = find_child(child->id);
    if (found == children().end() || has_ended_unread(child->id))
        return fail_with(ESRCH);
    if (found->suspensions == most_suspensions)
        return fail_with(EOVERFLOW);
    if (found->suspensions == 0) {
        if (kill(child->id, SIGSTOP) != 0)
            return fail();
        wait_for_stop(child->id);
    }
    return static_cast<int>(found->suspensions++);
}

int sys_process_resume(const sys_process* child)
{
    reap_forgotten();
    const std::lock_guard<std::mutex> guard(children_lock);
    const auto found = find_child(child->id);
    if (found == children().end() || has_ended_unread(child->id))
        return fail_with(ESRCH);
    if (found->suspensions == 0)
        return 0;
    if (found->suspensions == 1 && kill(child->id, SIGCONT) != 0)
        return fail();
    return static_cast<int>(found->suspensions--);
}

void sys_process_close(const sys_process* child)
{
    {
        const std::lock_guard<std::mutex> guard(children_lock);
        const auto found = find_child(child->id);
        if (found != children().end())
            found->forgotten = true;
    }
    reap_forgotten();
}

void* sys_file_of(std::FILE* stream) { return handle_of(stream ? fileno(stream) : -1); }

void* sys_memory_create(void* file, const char* name, unsigned size, unsigned protection)
{
    try {
        return name && *name ? create_named_memory(file, name, size, protection)
                             : create_anonymous_memory(file, size, protection);
    } catch (const std::bad_alloc&) {
        fail_with(ENOMEM);
        return nullptr;
    }
}

void* sys_memory_open(const char* name, unsigned access)
{
    try {
        return open_named_memory(name, access);
    } catch (const std::bad_alloc&) {
        fail_with(ENOMEM);
        return nullptr;
    }
}

void sys_memory_close(void* memory)
{
    memory_record record;
    if (memories.remove(memory, &record))
        close_record(record);
}

void* sys_memory_map(void* memory, unsigned offset, unsigned size, unsigned access)
{
    const memory_record* found = memories.find(memory);
    const size_t length = found ? view_length(*found, offset, size, access) : 0;
    if (length == 0) {
        fail_with(found ? EACCES : EBADF);
        return nullptr;
    }
    const int protection = access & writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void* address = mmap(nullptr, length, protection, MAP_SHARED, found->fd, static_cast<off_t>(found->base + offset));
    if (address == MAP_FAILED) {
        fail();
        return nullptr;
    }
    return remember_view(address, length) ? address : nullptr;
}

int sys_memory_unmap(void* address)
{
    const std::lock_guard<std::mutex> guard(views_lock);
    const auto found = views().find(address);
    if (found == views().end())
        return fail_with(EINVAL);
    munmap(address, found->second);
    views().erase(found);
    return 0;
}

void* sys_module_load(const char* name)
{
    errno = 0;
    return keep_loader_text(dlopen(name, RTLD_NOW | RTLD_LOCAL));
}

void sys_module_unload(void* module) { dlclose(module); }

void* sys_module_find(void* module, const char* name)
{
    errno = 0;
    return keep_loader_text(dlsym(module, name));
}

const char* sys_module_error() { return loader_text; }
