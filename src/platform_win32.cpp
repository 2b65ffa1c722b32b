// The door to the operating system: Win32 and Winsock.
//
// Same functions in the same order as platform.h and as the other platform's
// files, so that the two compare side by side.
#include "platform.h"

#include "handle_filter.h"
#include "time_limit.h"

#include <stdkro/platform_types.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include <conio.h>
#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <windows.h>

// ---- time ------------------------------------------------------------------

bool sys_local_time(long long t, sys_date* date)
{
    // The C library refuses what lies before 1970; the calendar repeats itself
    // every 400 years.
    constexpr long long cycle = 146097LL * 24 * 60 * 60;
    const bool early = t < 0 && t >= -cycle;
    const __time64_t seconds = early ? t + cycle : t;
    const tm* const local = _localtime64(&seconds);
    if (!local)
        return false;
    const int year = local->tm_year - (early ? 400 : 0);
    *date = { year, local->tm_mon, local->tm_mday, local->tm_hour, local->tm_min, local->tm_sec };
    return true;
}

// ---- files -----------------------------------------------------------------

const char sys_path_separator = '\\';

// ---- console ---------------------------------------------------------------

namespace {

constexpr int key_interrupt = 3;
constexpr int key_end_of_input = 4;

} // namespace

// The console gives a key that is no character as 0 and the key's number.
int sys_console_getch()
{
    for (;;) {
        const int key = _getch();
        if (key == 0)
            _getch();
        else if (key == key_interrupt)
            std::raise(SIGINT);
        else
            return key == key_end_of_input ? -1 : key;
    }
}

// The console shows nothing that is typed while nobody reads a line.
void sys_console_hold_keys() {}
bool sys_console_release_keys() { return false; }

bool sys_console_is_terminal()
{
    DWORD mode;
    return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

// ---- sockets ---------------------------------------------------------------

namespace {

static_assert(sizeof(SOCKET) == sizeof(unsigned), "handles are 32 bits wide");
static_assert(offsetof(fd_set, fd_array) == offsetof(sock_fd_set, fd_array), "a sock_fd_set is an fd_set");

sockaddr* generic(sockaddr_in* address) { return reinterpret_cast<sockaddr*>(address); }
const sockaddr* generic(const sockaddr_in* address) { return reinterpret_cast<const sockaddr*>(address); }

/// Winsock looks at the counts of its sets only, not at FD_SETSIZE.
fd_set* native(sock_fd_set* set) { return reinterpret_cast<fd_set*>(set); }

bool is_empty(const sock_fd_set* set) { return !set || set->fd_count == 0; }

/// Winsock gives the members back in an order of its own, each as often as it was a
/// member; here they keep their order, and each counts once.
unsigned restore_order(sock_fd_set& set, const sock_fd_set& before)
{
    handle_filter ready;
    for (unsigned i = 0; i < set.fd_count; ++i)
        ready.is_new(set.fd_array[i]);
    handle_filter seen;
    unsigned kept = 0;
    for (unsigned i = 0; i < before.fd_count; ++i) {
        const unsigned h = before.fd_array[i];
        if (seen.is_new(h) && !ready.is_new(h))
            set.fd_array[kept++] = h;
    }
    return set.fd_count = kept;
}

} // namespace

unsigned sys_socket_open(int family, int type, int protocol)
{
    const SOCKET h = socket(family, type, protocol);
    if (h != INVALID_SOCKET)
        SetHandleInformation(reinterpret_cast<HANDLE>(h), HANDLE_FLAG_INHERIT, 0);
    return h;
}

void sys_socket_close(unsigned h)
{
    if (h != sys_no_socket)
        closesocket(h);
}

int sys_socket_bind(unsigned h, const sockaddr_in* address) { return bind(h, generic(address), sizeof *address); }

int sys_socket_listen(unsigned h, int backlog) { return listen(h, backlog); }

int sys_socket_connect(unsigned h, const sockaddr_in* address)
{
    return connect(h, generic(address), sizeof *address);
}

unsigned sys_socket_accept(unsigned h, sockaddr_in* peer)
{
    int size = sizeof *peer;
    const SOCKET accepted = accept(h, generic(peer), peer ? &size : nullptr);
    if (accepted != INVALID_SOCKET)
        SetHandleInformation(reinterpret_cast<HANDLE>(accepted), HANDLE_FLAG_INHERIT, 0);
    return accepted;
}

int sys_socket_send(unsigned h, const void* bytes, unsigned n)
{
    return send(h, static_cast<const char*>(bytes), static_cast<int>(n), 0);
}

int sys_socket_receive(unsigned h, void* bytes, unsigned n)
{
    return recv(h, static_cast<char*>(bytes), static_cast<int>(n), 0);
}

int sys_socket_send_to(unsigned h, const void* bytes, unsigned n, const sockaddr_in* to)
{
    return sendto(h, static_cast<const char*>(bytes), static_cast<int>(n), 0, generic(to), to ? sizeof *to : 0);
}

int sys_socket_receive_from(unsigned h, void* bytes, unsigned n, sockaddr_in* from)
{
    int size = sizeof *from;
    return recvfrom(h, static_cast<char*>(bytes), static_cast<int>(n), 0, generic(from), from ? &size : nullptr);
}

int sys_socket_shutdown(unsigned h, int how) { return shutdown(h, how); }

// Winsock does not tell the address of an open socket that is not bound.
bool sys_socket_is_open(unsigned h)
{
    sockaddr_in address;
    return sys_socket_self(h, &address) == 0 || WSAGetLastError() == WSAEINVAL;
}

int sys_socket_self(unsigned h, sockaddr_in* address)
{
    int size = sizeof *address;
    return getsockname(h, generic(address), &size);
}

int sys_socket_peer(unsigned h, sockaddr_in* address)
{
    int size = sizeof *address;
    return getpeername(h, generic(address), &size);
}

int sys_socket_control(unsigned h, unsigned command, unsigned long* argument)
{
    return ioctlsocket(h, static_cast<long>(command), argument);
}

int sys_socket_set_nodelay(unsigned h, bool on)
{
    const int value = on;
    return setsockopt(h, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&value), sizeof value);
}

int sys_select(sock_fd_set* readable, sock_fd_set* writable, sock_fd_set* exceptional, const timeval* limit)
{
    if (is_empty(readable) && is_empty(writable) && is_empty(exceptional))
        return -1;
    sock_fd_set* const sets[3] = { readable, writable, exceptional };
    sock_fd_set before[3];
    for (int k = 0; k < 3; ++k) {
        if (!sets[k])
            continue;
        sets[k]->fd_count = std::min(sets[k]->fd_count, 1024u);
        before[k] = *sets[k];
    }

    timeval capped = limit ? *limit : timeval();
    if (capped.tv_sec < 0 || capped.tv_usec < 0)
        capped = timeval();
    const int n = select(0, native(readable), native(writable), native(exceptional), limit ? &capped : nullptr);
    if (n == SOCKET_ERROR) {
        for (int k = 0; k < 3; ++k)
            if (sets[k])
                *sets[k] = before[k];
        return -1;
    }
    unsigned ready = 0;
    for (int k = 0; k < 3; ++k)
        if (sets[k])
            ready += restore_order(*sets[k], before[k]);
    return static_cast<int>(ready);
}

namespace {

/// The sets that a wait is made of: those of the library, and one place more for the waker.
struct waiting_set {
    unsigned fd_count;
    unsigned fd_array[1024 + 1];
};

constexpr short poll_conditions[3] = { sys_poll_in, sys_poll_out, sys_poll_exceptional };

/// Marks the records that stand in a result. Both are in the same order once restored.
unsigned mark_ready(sys_poll_record* records, unsigned count, short condition, const waiting_set& ready)
{
    handle_filter members;
    for (unsigned i = 0; i < ready.fd_count; ++i)
        members.is_new(ready.fd_array[i]);
    unsigned marked = 0;
    for (sys_poll_record* r = records; r < records + count; ++r) {
        if (!(r->wanted & condition) || r->fd < 0 || members.is_new(static_cast<unsigned>(r->fd)))
            continue;
        r->ready = static_cast<short>(r->ready | condition);
        ++marked;
    }
    return marked;
}

timeval not_negative(const timeval& limit)
{
    return limit.tv_sec < 0 || limit.tv_usec < 0 ? timeval() : limit;
}

fd_set* native(waiting_set& set) { return set.fd_count ? reinterpret_cast<fd_set*>(&set) : nullptr; }

/// Empties a waker. True when it was woken.
bool drain(unsigned waker)
{
    char byte;
    bool is_woken = false;
    while (recv(waker, &byte, 1, 0) > 0)
        is_woken = true;
    return is_woken;
}

} // namespace

int sys_poll(sys_poll_record* records, unsigned count, const timeval* limit, unsigned waker)
{
    waiting_set sets[3];
    for (int k = 0; k < 3; ++k) {
        sets[k].fd_count = 0;
        for (const sys_poll_record* r = records; r < records + count; ++r)
            if (r->fd >= 0 && (r->wanted & poll_conditions[k]) && sets[k].fd_count < 1024)
                sets[k].fd_array[sets[k].fd_count++] = static_cast<unsigned>(r->fd);
    }
    if (sets[0].fd_count + sets[1].fd_count + sets[2].fd_count == 0)
        return -1;
    if (waker != sys_no_socket)
        sets[0].fd_array[sets[0].fd_count++] = waker;

    timeval capped = limit ? not_negative(*limit) : timeval();
    if (select(0, native(sets[0]), native(sets[1]), native(sets[2]), limit ? &capped : nullptr) == SOCKET_ERROR)
        return -1;
    if (waker != sys_no_socket)
        drain(waker);
    unsigned ready = 0;
    for (unsigned i = 0; i < count; ++i)
        records[i].ready = 0;
    for (int k = 0; k < 3; ++k)
        ready += mark_ready(records, count, poll_conditions[k], sets[k]);
    return static_cast<int>(ready);
}

// Winsock keeps no such lists.
sys_ready_list* sys_ready_open(unsigned, unsigned) { return nullptr; }
void sys_ready_close(sys_ready_list*) {}
int sys_ready_set(sys_ready_list*, sys_watch*, short, unsigned) { return -1; }
int sys_ready_wait(sys_ready_list*, sys_watch*, unsigned, sys_ready_event*, timeval*) { return sys_ready_stale; }

// A datagram socket that is connected to itself.
unsigned sys_waker_open()
{
    const unsigned waker = sys_socket_open(AF_INET, SOCK_DGRAM, 0);
    if (waker == sys_no_socket)
        return waker;
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    unsigned long on = 1;
    if (sys_socket_bind(waker, &own) < 0 || sys_socket_self(waker, &own) < 0 || sys_socket_connect(waker, &own) < 0
        || ioctlsocket(waker, static_cast<long>(FIONBIO), &on) < 0) {
        sys_socket_close(waker);
        return sys_no_socket;
    }
    return waker;
}

int sys_waker_wake(unsigned waker)
{
    const char byte = 1;
    return send(waker, &byte, 1, 0) == 1 ? 0 : -1;
}

void sys_waker_sleep(unsigned waker, const timeval* limit)
{
    if (waker == sys_no_socket) {
        Sleep(limit_in_ms(limit, as_microseconds));
        return;
    }
    waiting_set set = { 1, { waker } };
    timeval capped = limit ? not_negative(*limit) : timeval();
    select(0, native(set), nullptr, nullptr, limit ? &capped : nullptr);
    drain(waker);
}

int sys_host_name(char* dst, unsigned n) { return gethostname(dst, static_cast<int>(n)); }

int sys_host_address(const char* name, unsigned* address)
{
    const hostent* found = gethostbyname(name);
    if (!found || found->h_addrtype != AF_INET || !found->h_addr_list[0])
        return -1;
    std::memcpy(address, found->h_addr_list[0], sizeof *address);
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

int fail_with(DWORD error)
{
    last_error = static_cast<int>(error);
    return -1;
}

int fail() { return fail_with(GetLastError()); }

void* keep_handle(void* handle)
{
    if (!handle)
        fail();
    return handle;
}

static_assert(sizeof(CRITICAL_SECTION) <= 6 * sizeof(void*), "sync_critical has room for it");
static_assert(sys_no_limit == INFINITE && sys_still_active == STILL_ACTIVE, "our numbers are the system's");

CRITICAL_SECTION* section_of(void* section) { return static_cast<CRITICAL_SECTION*>(section); }

bool is_own(const CRITICAL_SECTION& section)
{
    return reinterpret_cast<std::uintptr_t>(section.OwningThread) == GetCurrentThreadId();
}

bool has_ended(void* handle) { return WaitForSingleObject(handle, 0) == WAIT_OBJECT_0; }

int wait_result(DWORD r)
{
    if (r == WAIT_TIMEOUT)
        return sys_wait_timeout;
    return r == WAIT_FAILED ? fail() : static_cast<int>(r - WAIT_OBJECT_0);
}

// Also for a process: its main thread counts.
int suspend_thread(void* thread, void* whole)
{
    if (has_ended(whole))
        return fail_with(ERROR_INVALID_HANDLE);
    const DWORD count = SuspendThread(thread);
    return count == ~0u ? fail() : static_cast<int>(count);
}

int resume_thread(void* thread, void* whole)
{
    if (has_ended(whole))
        return fail_with(ERROR_INVALID_HANDLE);
    const DWORD count = ResumeThread(thread);
    return count == ~0u ? fail() : static_cast<int>(count);
}

struct thread_entry {
    void (*run)(void*);
    alignas(std::max_align_t) char argument[sys_most_thread_argument];
};

unsigned __stdcall enter_thread(void* argument)
{
    thread_entry entry = *static_cast<thread_entry*>(argument);
    delete static_cast<thread_entry*>(argument);
    entry.run(entry.argument);
    return 0;
}

} // namespace

int sys_last_error() { return last_error; }

double sys_ticks()
{
    LARGE_INTEGER ticks;
    QueryPerformanceCounter(&ticks);
    return static_cast<double>(ticks.QuadPart);
}

double sys_ticks_per_second()
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(frequency.QuadPart);
}

void sys_critical_open(void* section) { InitializeCriticalSection(section_of(section)); }

bool sys_critical_enter(void* section)
{
    EnterCriticalSection(section_of(section));
    return true;
}

bool sys_critical_leave(void* section)
{
    if (is_own(*section_of(section)))
        LeaveCriticalSection(section_of(section));
    return true;
}

void sys_critical_close(void* section) { DeleteCriticalSection(section_of(section)); }

void* sys_semaphore_open(const char* name, int initial, int maximum)
{
    return keep_handle(CreateSemaphoreA(nullptr, initial, maximum, name && *name ? name : nullptr));
}

int sys_semaphore_wait(void* semaphore, unsigned limit) { return wait_result(WaitForSingleObject(semaphore, limit)); }

int sys_semaphore_post(void* semaphore) { return ReleaseSemaphore(semaphore, 1, nullptr) ? 0 : fail(); }

void sys_semaphore_close(void* semaphore)
{
    if (semaphore)
        CloseHandle(semaphore);
}

int sys_thread_start(void (*run)(void*), const void* argument, unsigned size, void** thread, int* id)
{
    *thread = nullptr;
    thread_entry* entry = new (std::nothrow) thread_entry { run, {} };
    if (!entry) {
        fail_with(ERROR_NOT_ENOUGH_MEMORY);
        return sys_no_memory;
    }
    std::memcpy(entry->argument, argument, size);
    unsigned made = 0;
    const std::uintptr_t handle = _beginthreadex(nullptr, 0, enter_thread, entry, CREATE_SUSPENDED, &made);
    if (handle == 0) {
        fail();
        delete entry;
        return -1;
    }
    *thread = reinterpret_cast<void*>(handle);
    *id = static_cast<int>(made);
    ResumeThread(reinterpret_cast<HANDLE>(handle));
    return 0;
}

void sys_thread_close(void* thread)
{
    if (thread)
        CloseHandle(thread);
}

int sys_thread_wait(void* thread, unsigned limit) { return wait_result(WaitForSingleObject(thread, limit)); }

int sys_thread_wait_all(void* const* list, unsigned count, unsigned limit)
{
    return wait_result(WaitForMultipleObjects(count, list, TRUE, limit));
}

int sys_thread_exit_code(void* thread)
{
    DWORD code = 0;
    return GetExitCodeThread(thread, &code) ? static_cast<int>(code) : fail();
}

int sys_thread_suspend(void* thread) { return suspend_thread(thread, thread); }

int sys_thread_resume(void* thread) { return resume_thread(thread, thread); }

void sys_thread_kill(void* thread, int exit_code)
{
    // The kill is only asked for: it is done when the handle says so.
    if (!has_ended(thread) && TerminateThread(thread, static_cast<DWORD>(exit_code)))
        WaitForSingleObject(thread, INFINITE);
}

void sys_thread_exit(int exit_code)
{
    _endthreadex(static_cast<unsigned>(exit_code));
    for (;;) // not reached: the function above is not declared to never return
        Sleep(INFINITE);
}

int sys_thread_self() { return static_cast<int>(GetCurrentThreadId()); }

// ---- processes, shared memory, modules --------------------------------------

namespace {

const char* text_or_null(const char* text) { return text && *text ? text : nullptr; }

// Our end of a pipe as a stream, which owns it. Null without success, the end closed.
std::FILE* stream_of(HANDLE end, bool reading, bool binary)
{
    const int flags = (reading ? _O_RDONLY : 0) | (binary ? _O_BINARY : _O_TEXT);
    const int fd = _open_osfhandle(reinterpret_cast<std::intptr_t>(end), flags);
    if (fd < 0) {
        CloseHandle(end);
        return nullptr;
    }
    const char* const modes[2][2] = { { "wt", "wb" }, { "rt", "rb" } };
    std::FILE* stream = _fdopen(fd, modes[reading][binary]);
    if (stream)
        std::setvbuf(stream, nullptr, _IOFBF, 1 << 16); // only faster
    else
        _close(fd);
    return stream;
}

struct child_pipe {
    HANDLE child_end;
    std::FILE* stream;
};

bool make_pipe(const sys_launch& launch, child_pipe& pipe)
{
    constexpr DWORD roomy = 1 << 20;
    HANDLE ends[2];
    if (!CreatePipe(&ends[0], &ends[1], nullptr, roomy))
        return false;
    const bool reading = launch.pipe == 'r';
    pipe.child_end = ends[reading ? 1 : 0];
    pipe.stream = stream_of(ends[reading ? 0 : 1], reading, launch.binary);
    if (!pipe.stream) {
        CloseHandle(pipe.child_end);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    return pipe.stream != nullptr;
}

// The handles that a child inherits, and only they: copies that can be
// inherited, named in the list of the start-up record.
class inheritance {
public:
    inheritance() = default;
    inheritance(const inheritance&) = delete;
    inheritance& operator=(const inheritance&) = delete;
    ~inheritance()
    {
        if (attributes_)
            DeleteProcThreadAttributeList(attributes_);
        for (unsigned i = 0; i < count_; ++i)
            CloseHandle(handles_[i]);
    }

    // Null for a handle that cannot be passed on: the child goes without it.
    HANDLE add(HANDLE original)
    {
        const HANDLE self = GetCurrentProcess();
        HANDLE copy = nullptr;
        if (!original || original == INVALID_HANDLE_VALUE
            || !DuplicateHandle(self, original, self, &copy, 0, TRUE, DUPLICATE_SAME_ACCESS))
            return nullptr;
        handles_[count_++] = copy;
        return copy;
    }

    bool enter_into(STARTUPINFOEXA& startup)
    {
        SIZE_T size = sizeof room_;
        LPPROC_THREAD_ATTRIBUTE_LIST list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(room_);
        if (!InitializeProcThreadAttributeList(list, 1, 0, &size))
            return false;
        attributes_ = startup.lpAttributeList = list;
        return count_ == 0
            || UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles_,
                                         count_ * sizeof *handles_, nullptr, nullptr);
    }

    bool is_empty() const { return count_ == 0; }

private:
    HANDLE handles_[3];
    unsigned count_ = 0;
    LPPROC_THREAD_ATTRIBUTE_LIST attributes_ = nullptr;
    alignas(void*) char room_[256];
};

bool create_process(const sys_launch& launch, HANDLE child_end, PROCESS_INFORMATION* made)
{
    STARTUPINFOEXA startup {};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    inheritance handles;
    const auto standard = [&](DWORD which, char piped) {
        return handles.add(child_end && launch.pipe == piped ? child_end : GetStdHandle(which));
    };
    startup.StartupInfo.hStdInput = standard(STD_INPUT_HANDLE, 'w');
    startup.StartupInfo.hStdOutput = standard(STD_OUTPUT_HANDLE, 'r');
    startup.StartupInfo.hStdError = standard(STD_ERROR_HANDLE, 0);
    if (!handles.enter_into(startup))
        return false;
    // The system writes into the line.
    std::string line = text_or_null(launch.command_line) ? launch.command_line : launch.application;
    return CreateProcessA(launch.application, line.data(), nullptr, nullptr, !handles.is_empty(),
                          CREATE_SUSPENDED | EXTENDED_STARTUPINFO_PRESENT, nullptr, text_or_null(launch.directory),
                          &startup.StartupInfo, made);
}

int start_child(const sys_launch& launch, sys_process* child, std::FILE** stream)
{
    child_pipe pipe = { nullptr, nullptr };
    if (launch.pipe && !make_pipe(launch, pipe))
        return fail();
    PROCESS_INFORMATION made;
    const bool started = create_process(launch, pipe.child_end, &made);
    const DWORD error = GetLastError();
    if (pipe.child_end)
        CloseHandle(pipe.child_end);
    if (!started) {
        if (pipe.stream)
            std::fclose(pipe.stream);
        return fail_with(error);
    }
    if (!launch.suspended)
        ResumeThread(made.hThread);
    *child = { made.hProcess, made.hThread, static_cast<int>(made.dwProcessId) };
    if (stream)
        *stream = pipe.stream;
    return 0;
}

thread_local char loader_text[512] = "";

void* keep_loader_text(void* result)
{
    if (result)
        return result;
    fail();
    const DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    DWORD n = FormatMessageA(flags, nullptr, GetLastError(), 0, loader_text, sizeof loader_text, nullptr);
    while (n > 0 && (loader_text[n - 1] == '\n' || loader_text[n - 1] == '\r' || loader_text[n - 1] == ' '))
        loader_text[--n] = '\0';
    if (n == 0)
        std::snprintf(loader_text, sizeof loader_text, "error %d", last_error);
    return result;
}

} // namespace

int sys_process_start(const sys_launch* launch, sys_process* child, std::FILE** stream)
{
    if (!text_or_null(launch->application))
        return fail_with(ERROR_FILE_NOT_FOUND);
    try {
        return start_child(*launch, child, stream);
    } catch (const std::bad_alloc&) {
        return fail_with(ERROR_NOT_ENOUGH_MEMORY);
    }
}

int sys_process_wait(const sys_process* child, unsigned limit, int* exit_code)
{
    const DWORD r = WaitForSingleObject(child->process, limit);
    DWORD code = 0;
    if (r != WAIT_OBJECT_0)
        return wait_result(r);
    if (!GetExitCodeProcess(child->process, &code))
        return fail();
    *exit_code = static_cast<int>(code);
    return sys_wait_done;
}

int sys_process_kill(const sys_process* child, int exit_code)
{
    if (has_ended(child->process))
        return fail_with(ERROR_ACCESS_DENIED);
    return TerminateProcess(child->process, static_cast<UINT>(exit_code)) ? 0 : fail();
}

int sys_process_suspend(const sys_process* child) { return suspend_thread(child->main_thread, child->process); }

int sys_process_resume(const sys_process* child) { return resume_thread(child->main_thread, child->process); }

void sys_process_close(const sys_process* child)
{
    CloseHandle(child->main_thread);
    CloseHandle(child->process);
}

void* sys_file_of(std::FILE* stream)
{
    return reinterpret_cast<void*>(stream ? _get_osfhandle(_fileno(stream)) : -1);
}

void* sys_memory_create(void* file, const char* name, unsigned size, unsigned protection)
{
    return keep_handle(CreateFileMappingA(file, nullptr, protection, 0, size, text_or_null(name)));
}

void* sys_memory_open(const char* name, unsigned access) { return keep_handle(OpenFileMappingA(access, FALSE, name)); }

void sys_memory_close(void* memory)
{
    if (memory)
        CloseHandle(memory);
}

void* sys_memory_map(void* memory, unsigned offset, unsigned size, unsigned access)
{
    return keep_handle(MapViewOfFile(memory, access, 0, offset, size));
}

int sys_memory_unmap(void* address) { return UnmapViewOfFile(address) ? 0 : fail(); }

void* sys_module_load(const char* name)
{
    // A library that cannot be read is an error here, not a dialogue.
    DWORD mode = 0;
    SetThreadErrorMode(SEM_FAILCRITICALERRORS, &mode);
    void* loaded = keep_loader_text(LoadLibraryA(name));
    SetThreadErrorMode(mode, nullptr);
    return loaded;
}

void sys_module_unload(void* module) { FreeLibrary(static_cast<HMODULE>(module)); }

void* sys_module_find(void* module, const char* name)
{
    return keep_loader_text(reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name)));
}

const char* sys_module_error() { return loader_text; }
