// The door to the operating system: POSIX (Linux). Processes.
#include "command_words.h"
#include "platform.h"
#include "platform_posix.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

using namespace posix;

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

// Null when it is not known.
child_record* find_child(pid_t id)
{
    const auto found = std::find_if(children().begin(), children().end(), [id](const child_record& c) { return c.id == id; });
    return found == children().end() ? nullptr : &*found;
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

// Null, and the error set, when it is not known or has ended.
child_record* find_running(pid_t id)
{
    child_record* const found = find_child(id);
    if (found && !has_ended_unread(id))
        return found;
    errno = ESRCH;
    return nullptr;
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
    child_record* const found = find_running(child->id);
    if (!found)
        return fail();
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
    child_record* const found = find_running(child->id);
    if (!found)
        return fail();
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
        if (child_record* const found = find_child(child->id))
            found->forgotten = true;
    }
    reap_forgotten();
}

void* sys_file_of(std::FILE* stream) { return handle_of(stream ? fileno(stream) : -1); }
