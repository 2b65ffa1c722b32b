// The door to the operating system: POSIX (Linux). Time, files, the console, and the error
// of the last call.
//
// The functions stand in the order of platform.h, its sections in files of their own:
//   platform_posix_socket.cpp   sockets, names of hosts
//   platform_posix_loop.cpp     waiting for sockets
//   platform_posix_lock.cpp     critical sections and semaphores
//   platform_posix_names.cpp    objects that processes share by name
//   platform_posix_thread.cpp   threads
//   platform_posix_process.cpp  processes
//   platform_posix_memory.cpp   shared memory and modules
#include "platform_posix.h"
#include "platform.h"

#include <cerrno>
#include <csignal>
#include <optional>

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

using namespace posix;

namespace {

thread_local int last_error = 0;

} // namespace

int posix::fail_with(int error)
{
    last_error = error;
    return -1;
}

int posix::fail() { return fail_with(errno); }

int sys_last_error() { return last_error; }

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

double sys_ticks()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * sys_ticks_per_second() + static_cast<double>(now.tv_nsec);
}

double sys_ticks_per_second() { return 1e9; }

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
