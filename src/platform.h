// The one door to the operating system.
//
// Everything the library needs of a platform, in the library's own words.
// platform_posix.cpp, with its sections beside it, and platform_win32.cpp provide
// it; the build compiles one of the two. Each comment is a contract that one test
// checks on both systems.
//
// The functions have C linkage so that tests can put failing ones in their
// place at link time.
#ifndef STDKRO_SRC_PLATFORM_H
#define STDKRO_SRC_PLATFORM_H

#include <cstdio>

struct sock_fd_set;
struct sockaddr_in;
struct timeval;

extern "C" {

// ---- time ------------------------------------------------------------------

/// A moment on the local clock; `year` counts from 1900 and `month` from 0.
struct sys_date {
    int year, month, day, hour, minute, second;
};
/// The local time of `t`, in seconds since 1970 (UTC), also before it. False when
/// it has no local form. The time zone is that of the variable TZ where it is set.
bool sys_local_time(long long t, sys_date* date);

// ---- files -----------------------------------------------------------------

/// What stands between the folders of a path.
extern const char sys_path_separator;

// ---- console ---------------------------------------------------------------

/// The next character typed at the terminal, 0..255, without showing it and without waiting
/// for the end of the line; -1 at the end of the input. Enter is 13 and backspace 8; keys that
/// are no characters are passed over. While it waits the terminal is in a mode of
/// its own: Ctrl-C, a signal that ends the program, whichever thread it reaches, and a lost
/// terminal leave it as it was.
int sys_console_getch();
/// Keeps that mode also between keys, so that the terminal never shows what is typed faster
/// than it is taken. For the thread that takes the keys; a second call does nothing.
void sys_console_hold_keys();
/// Ends that and puts the terminal's mode back. Returns whether it was held.
bool sys_console_release_keys();
/// Whether standard input is a terminal.
bool sys_console_is_terminal();

// ---- sockets ---------------------------------------------------------------
//
// A handle is an unsigned number on every system, all ones when there is none.
// No operation raises a signal, and every one goes on after an interruption.
// Children never inherit a handle. Failure is -1 where nothing else is said.

const unsigned sys_no_socket = 0xFFFFFFFFu;

/// A new socket, or sys_no_socket. The three values are those of the BSD interface:
/// 2 is IPv4, types 1 and 2 are stream and datagram.
unsigned sys_socket_open(int family, int type, int protocol);
/// Closes `h`. Closing sys_no_socket does nothing. Cannot fail.
void sys_socket_close(unsigned h);
/// 0 or -1. No address is ever taken over from another socket.
int sys_socket_bind(unsigned h, const sockaddr_in* address);
int sys_socket_listen(unsigned h, int backlog);
int sys_socket_connect(unsigned h, const sockaddr_in* address);
/// The handle of the next connection, or sys_no_socket; `peer` may be null.
unsigned sys_socket_accept(unsigned h, sockaddr_in* peer);
/// The number of bytes taken or given, 0 for the end of a stream, or -1.
/// `n` must not pass 0x7FFFFFFF.
int sys_socket_send(unsigned h, const void* bytes, unsigned n);
int sys_socket_receive(unsigned h, void* bytes, unsigned n);
/// The same for datagrams; a null address passes none.
int sys_socket_send_to(unsigned h, const void* bytes, unsigned n, const sockaddr_in* to);
int sys_socket_receive_from(unsigned h, void* bytes, unsigned n, sockaddr_in* from);
/// `how`: 0 no more receiving, 1 no more sending, 2 neither. 0 or -1.
int sys_socket_shutdown(unsigned h, int how);
/// Whether `h` is an open socket, bound or not.
bool sys_socket_is_open(unsigned h);
/// The own and the peer's address. 0 or -1; the own of a socket that is not bound is 0.0.0.0
/// and port 0 on one system and a failure on the other.
int sys_socket_self(unsigned h, sockaddr_in* address);
int sys_socket_peer(unsigned h, sockaddr_in* address);
/// An input-output control; `command` is the system's own number or one of the
/// Windows numbers 0x8004667E (FIONBIO: non-blocking mode by *argument) and
/// 0x4004667F (FIONREAD: readable bytes into *argument). 0 or -1.
int sys_socket_control(unsigned h, unsigned command, unsigned long* argument);
/// Sends small packets at once (or not). 0 or -1.
int sys_socket_set_nodelay(unsigned h, bool on);

/// Waits until a member of a set is ready: readable, writable, or with an
/// exceptional condition. Null sets are absent. Afterwards each set holds its
/// ready members, each handle once, in the order they had. Returns their number
/// over all sets, 0 after the time limit, or -1: when no set has a member, or
/// when some member is not an open socket (the sets are then unchanged). Null
/// waits without limit; `limit` is never changed, a negative one counts as 0.
int sys_select(sock_fd_set* readable, sock_fd_set* writable, sock_fd_set* exceptional, const timeval* limit);

/// One descriptor to wait for, and what it is ready for.
struct sys_poll_record {
    int fd;
    short wanted;
    short ready;
};
/// The conditions of sys_poll_record.
const short sys_poll_in = 1;
const short sys_poll_exceptional = 2;
const short sys_poll_out = 4;

/// Waits until a record is ready for a condition that it wants. Each descriptor stands in
/// one record. `records` has room for one entry more than `count`. Returns the number of
/// conditions that hold over all records, each of which then has its own in `ready`;
/// 0 after the time limit or when `waker` was woken (sys_no_socket: none); -1 when
/// no record wants anything, or when one that does is not an open socket.
int sys_poll(sys_poll_record* records, unsigned count, const timeval* limit, unsigned waker);

/// A list of what to wait for that the system itself keeps from one wait to the next, so that a
/// wait costs as much as is ready and not as much as is watched. It only replaces sys_poll where
/// nobody can tell: whenever it cannot, its functions say so and sys_poll has to serve.
struct sys_ready_list;
/// One descriptor for such a list, each in one watch. `wanted` holds the conditions that the list waits
/// for, 0 as long as it does not hold the descriptor; `closings` is the list's own.
struct sys_watch {
    int fd;
    short wanted;
    unsigned closings;
};
/// What such a list reports: a descriptor, the conditions that hold, and the mark that the descriptor was
/// set with.
struct sys_ready_event {
    int fd;
    short ready;
    unsigned mark;
};
/// Marks are below this.
const unsigned sys_ready_marks = 1u << 29;
/// What sys_ready_wait gives besides a number.
enum { sys_ready_stale = -1, sys_ready_unsure = -2 };

/// An empty list with room for `capacity` descriptors whose waits end by `waker` too (sys_no_socket: none); null
/// where the system keeps no such lists, or has nothing left for one.
sys_ready_list* sys_ready_open(unsigned capacity, unsigned waker);
/// Null does nothing.
void sys_ready_close(sys_ready_list* list);
/// Makes the list wait for other conditions, 0 for none; the mark comes back with what is reported. 0, or
/// -1: then the list is stale.
int sys_ready_set(sys_ready_list* list, sys_watch* watch, short wanted, unsigned mark);
/// Waits as sys_poll does; `watches` are all those of the list, and some that it does not hold. Returns how
/// many descriptors are ready, and puts them into `ready`, which has room for one more than the list, in any
/// order; 0 after the time limit or when woken. sys_ready_unsure when only sys_poll can tell, now, and
/// sys_ready_stale when some descriptor is no longer the one that was entered: the list is then to be
/// closed. After both `limit` (null: none) is what is left of it.
///
/// Sockets closed by sys_socket_close are missed at once, those closed elsewhere a twentieth of a
/// second later, or a second as long as others are ready.
int sys_ready_wait(sys_ready_list* list, sys_watch* watches, unsigned count, sys_ready_event* ready, timeval* limit);

/// Something to end a wait with from another thread, or sys_no_socket. Close it
/// with sys_socket_close.
unsigned sys_waker_open();
/// Ends the present or the next wait that is given `waker`. 0 or -1.
int sys_waker_wake(unsigned waker);
/// Sleeps for the time limit (null: for ever) or until `waker` is woken.
void sys_waker_sleep(unsigned waker, const timeval* limit);

/// The name of this host, terminated, into `n` bytes. 0 or -1.
int sys_host_name(char* dst, unsigned n);
/// The first IPv4 address of a host name, in network order. 0 or -1.
int sys_host_address(const char* name, unsigned* address);
/// The IPv4 address that a text in numbers and dots means, in network order; all
/// ones where it means none.
unsigned sys_read_address(const char* text);
/// The dotted text of an address in network order, in one buffer of the process.
const char* sys_address_text(unsigned address);

// ---- threads and locks -----------------------------------------------------

/// The system's number of the last failure of a function of this and the next
/// section on the calling thread.
int sys_last_error();

/// A counter that only grows, and its steps in a second.
double sys_ticks();
double sys_ticks_per_second();

/// Time limits are milliseconds, waited for on a clock that nobody sets.
enum : unsigned { sys_no_limit = ~0u };
/// What a wait gives: done or an index is 0 or more.
enum { sys_wait_done = 0, sys_wait_failed = -1, sys_wait_timeout = -2 };

/// A recursive lock of the threads of this process, in memory of six pointers.
/// Leaving a section that another thread or nobody holds does nothing. Both always
/// answer true, as a lock does: nothing is left to do behind the call.
void sys_critical_open(void* section);
bool sys_critical_enter(void* section);
bool sys_critical_leave(void* section);
void sys_critical_close(void* section);

/// A semaphore, or null. Counts must satisfy 0 <= initial <= maximum, 1 <= maximum.
/// All processes of one user share a name, and the first one's counts stand, as
/// long as one of them holds a handle; a process that died holds none. A name
/// of another kind of object fails. A null or empty name is nobody else's.
void* sys_semaphore_open(const char* name, int initial, int maximum);
/// Takes one count.
int sys_semaphore_wait(void* semaphore, unsigned limit);
/// Gives one count back: 0, or -1 at the maximum.
int sys_semaphore_post(void* semaphore);
/// Closing a closed handle or null does nothing; waiting for one and giving it
/// back fail.
void sys_semaphore_close(void* semaphore);

/// Exit code of a thread or process that has not ended.
enum { sys_still_active = 259 };

/// The room for what a thread is given, and what a start gives without memory.
enum : unsigned { sys_most_thread_argument = 4 * sizeof(void*) };
enum { sys_no_memory = -2 };

/// Starts a thread that calls `run` with a copy of the `size` bytes at `argument`,
/// which lasts until `run` returns: 0, or sys_no_memory or -1, and then a null handle.
/// Handle and id, which is what `sys_thread_self` gives there, are set before `run`
/// is called and not touched afterwards. The exit code is 0 when `run` returns.
int sys_thread_start(void (*run)(void*), const void* argument, unsigned size, void** thread, int* id);
/// The thread goes on. Null does nothing.
void sys_thread_close(void* thread);
/// Waits for the end, thread-local objects destroyed.
int sys_thread_wait(void* thread, unsigned limit);
/// Waits for the end of all of at most 63 different threads; gives an index.
int sys_thread_wait_all(void* const* list, unsigned count, unsigned limit);
/// 259 until the end.
int sys_thread_exit_code(void* thread);
/// Stops the thread before it returns, anywhere, and counts: the count before, or
/// -1 for a finished thread and for the 128th time.
int sys_thread_suspend(void* thread);
/// The count before, which at 0 stays, or -1 for a finished thread.
int sys_thread_resume(void* thread);
/// Stops another thread for ever, wherever it is. Nothing of it is unwound, its
/// locks stay held. A thread that has ended keeps its exit code.
void sys_thread_kill(void* thread, int exit_code);
/// Ends the calling thread, made by `sys_thread_start`. Nothing is unwound.
[[noreturn]] void sys_thread_exit(int exit_code);
int sys_thread_self();

// ---- processes, shared memory, modules --------------------------------------

/// What a child is started from. An empty text counts as null.
struct sys_launch {
    const char* application;  // a file, found from our folder, never in a path list
    const char* directory;    // null: ours
    const char* command_line; // split by the rules of the Windows runtime
    bool suspended;           // once, before its first instruction
    char pipe;                // 'r': we read its output, 'w': we write its input, 0: none
    bool binary;              // the pipe's stream does not translate line ends
};

/// Handles of all ones stand for none.
struct sys_process {
    void* process;
    void* main_thread;
    int id;
};

/// Starts a child that has our standard streams, one of them perhaps the pipe,
/// and no other descriptor: 0, or -1 and nothing is held. The caller closes
/// the stream, our end of the pipe.
int sys_process_start(const sys_launch* launch, sys_process* child, std::FILE** stream);
/// Waits at most `limit` (0 or `sys_no_limit`) for the end and reads the exit
/// code, -1 when the child was killed by a signal.
int sys_process_wait(const sys_process* child, unsigned limit, int* exit_code);
/// Kills the child: 0, or -1 when it had ended already.
int sys_process_kill(const sys_process* child, int exit_code);
/// As for threads.
int sys_process_suspend(const sys_process* child);
int sys_process_resume(const sys_process* child);
/// The child goes on. Nothing of it stays behind when it has ended, at the
/// latest after the next process function.
void sys_process_close(const sys_process* child);

/// The file of a stream, for the function below; all ones for null.
void* sys_file_of(std::FILE* stream);
/// Memory of `size` bytes under a name, or null; `protection` is 2 to read, 4 to
/// read and write. Names are those of semaphores; joining one keeps its size.
/// `file` lies behind the memory, unless all ones; it grows when it is shorter.
void* sys_memory_create(void* file, const char* name, unsigned size, unsigned protection);
/// Joins the memory of a name, or null.
void* sys_memory_open(const char* name, unsigned access);
/// Views stay. Closing a closed handle or null does nothing.
void sys_memory_close(void* memory);
/// Maps a part, 0 bytes meaning all behind `offset`, a multiple of 65,536.
/// `access` is 4 to read, 2 or 6 or 0xF001F to read and write. Null when that is
/// more than was granted, or passes the last page.
void* sys_memory_map(void* memory, unsigned offset, unsigned size, unsigned access);
/// 0, or -1 when `address` is not a view.
int sys_memory_unmap(void* address);

/// Null without success.
void* sys_module_load(const char* name);
void sys_module_unload(void* module);
void* sys_module_find(void* module, const char* name);
/// The loader's text for the last failure of the two on this thread.
const char* sys_module_error();

}

#endif
