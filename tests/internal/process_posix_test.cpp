// Children when single system calls fail or are interrupted: what the
// POSIX side of the door gives back then.
#include "../read_all.h"
#include "../record_pipe.h"
#include "allocation_failure.h"
#include "call_failure.h"
#include "interruptions.h"
#include "platform.h"
#include "replaced_fcntl.h"

#include <stdkro/process.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

// What only makes a pipe faster does not fail here.
bool fcntl_fails(int command, const void*) { return command == F_DUPFD_CLOEXEC && call_failure::strikes("lift"); }

extern "C" {

int __real_pipe2(int* ends, int flags);
int __wrap_pipe2(int* ends, int flags) { return call_failure::strikes("pipe2") ? -1 : __real_pipe2(ends, flags); }

std::FILE* __real_fdopen(int fd, const char* mode);
std::FILE* __wrap_fdopen(int fd, const char* mode)
{
    return call_failure::strikes("fdopen") ? nullptr : __real_fdopen(fd, mode);
}

std::FILE* __real_fopencookie(void* cookie, const char* mode, cookie_io_functions_t functions);
std::FILE* __wrap_fopencookie(void* cookie, const char* mode, cookie_io_functions_t functions)
{
    return call_failure::strikes("fopencookie") ? nullptr : __real_fopencookie(cookie, mode, functions);
}

using actions = posix_spawn_file_actions_t;

int __real_posix_spawn(pid_t* id, const char* path, const actions* a, const posix_spawnattr_t* b, char* const* words,
                       char* const* environment);
int __wrap_posix_spawn(pid_t* id, const char* path, const actions* a, const posix_spawnattr_t* b, char* const* words,
                       char* const* environment)
{
    return call_failure::strikes("posix_spawn") ? ENFILE : __real_posix_spawn(id, path, a, b, words, environment);
}

int __real_posix_spawn_file_actions_init(actions* a);
int __wrap_posix_spawn_file_actions_init(actions* a)
{
    const int r = __real_posix_spawn_file_actions_init(a);
    return call_failure::strikes("file_actions_init") ? ENFILE : r;
}

int __real_posix_spawn_file_actions_addchdir_np(actions* a, const char* path);
int __wrap_posix_spawn_file_actions_addchdir_np(actions* a, const char* path)
{
    return call_failure::strikes("addchdir") ? ENFILE : __real_posix_spawn_file_actions_addchdir_np(a, path);
}

int __real_posix_spawn_file_actions_adddup2(actions* a, int from, int to);
int __wrap_posix_spawn_file_actions_adddup2(actions* a, int from, int to)
{
    return call_failure::strikes("adddup2") ? ENFILE : __real_posix_spawn_file_actions_adddup2(a, from, to);
}

int __real_posix_spawn_file_actions_addclosefrom_np(actions* a, int from);
int __wrap_posix_spawn_file_actions_addclosefrom_np(actions* a, int from)
{
    return call_failure::strikes("addclosefrom") ? ENFILE : __real_posix_spawn_file_actions_addclosefrom_np(a, from);
}

int __real_dup2(int from, int to);
int __wrap_dup2(int from, int to) { return call_failure::strikes("dup2") ? -1 : __real_dup2(from, to); }

int __real_dup3(int from, int to, int flags);
int __wrap_dup3(int from, int to, int flags) { return call_failure::strikes("dup3") ? -1 : __real_dup3(from, to, flags); }

int __real_chdir(const char* path);
int __wrap_chdir(const char* path) { return call_failure::strikes("chdir") ? -1 : __real_chdir(path); }

long __real_ptrace(enum __ptrace_request request, ...);
long __wrap_ptrace(enum __ptrace_request request, ...)
{
    va_list list;
    va_start(list, request);
    const pid_t id = va_arg(list, pid_t);
    void* const address = va_arg(list, void*);
    void* const data = va_arg(list, void*);
    va_end(list);
    // Once it is traced the child must be let go.
    if (request == PTRACE_TRACEME && call_failure::strikes("ptrace"))
        return -1;
    return __real_ptrace(request, id, address, data);
}

pid_t __real_waitpid(pid_t id, int* status, int options);
pid_t __wrap_waitpid(pid_t id, int* status, int options)
{
    return is_interrupted() ? -1 : __real_waitpid(id, status, options);
}

int __real_waitid(idtype_t kind, id_t id, siginfo_t* info, int options);
int __wrap_waitid(idtype_t kind, id_t id, siginfo_t* info, int options)
{
    // A question that does not wait is not interrupted.
    return !(options & WNOHANG) && is_interrupted() ? -1 : __real_waitid(kind, id, info, options);
}

int __real_kill(pid_t id, int number);
int __wrap_kill(pid_t id, int number) { return call_failure::strikes("kill") ? -1 : __real_kill(id, number); }

}

namespace {

bool has_children() { return __real_waitpid(-1, nullptr, WNOHANG) >= 0; }

std::string output_of(const char* application, const char* line, bool suspended)
{
    process p;
    std::FILE* out = p.start(application, nullptr, line, "r", suspended);
    if (!out)
        return "not started";
    p.resume();
    const std::string text = read_all(out);
    std::fclose(out);
    p.wait_done();
    return text;
}

// ---- children ----------------------------------------------------------------------

TEST(a_start_without_means, gives_nothing_and_leaves_nothing)
{
    static const struct { const char* mode; bool suspended; const char* last; } cases[] = {
        { nullptr, false, "posix_spawn" },
        { nullptr, true, "ptrace" },
        { "r", false, "posix_spawn" },
        { "w", false, "posix_spawn" },
        { "r", true, "ptrace" },
        { "w", true, "ptrace" },
    };
    for (const auto& c : cases) {
        const int before = open_descriptors();
        std::string last;
        for (call_failure failure; failure.next();) {
            SCOPED_TRACE(testing::Message() << (c.mode ? c.mode : "no pipe") << c.suspended << ' ' << failure.name());
            process p;
            std::FILE* stream = nullptr;
            failure.arm();
            const bool started = c.mode
                ? (stream = p.start("/bin/true", "/", "true", c.mode, c.suspended)) != nullptr
                : p.start("/bin/true", "/", "true", c.suspended) == 1;
            failure.disarm();
            EXPECT_EQ(started, !failure.happened());
            EXPECT_EQ(p.is_valid(), started);
            if (failure.happened()) {
                last = failure.name();
                EXPECT_EQ(last_system_error(), ENFILE) << last;
                EXPECT_FALSE(has_children()) << last;
            } else {
                p.resume();
                if (stream)
                    std::fclose(stream);
                EXPECT_EQ(p.wait_done(), 0);
            }
            EXPECT_EQ(open_descriptors(), before) << failure.name();
        }
        EXPECT_EQ(last, c.last) << "the last call that can fail";
    }
}

TEST(a_child, that_a_signal_ended_reports_minus_one)
{
    process p;
    ASSERT_EQ(p.start("/bin/sh", nullptr, "sh -c \"kill -KILL $$\""), 1);
    EXPECT_EQ(p.wait_done(), -1);
    ASSERT_EQ(p.start("/bin/sleep", nullptr, "sleep 1000"), 1);
    int exit_code = 7;
    EXPECT_FALSE(p.is_done(&exit_code));
    kill(p.get_id(), SIGTERM);
    while (!p.is_done(&exit_code))
        usleep(1000);
    EXPECT_EQ(exit_code, -1);
    EXPECT_FALSE(p.is_valid());
    EXPECT_FALSE(has_children());
}

TEST(a_child, that_is_killed_while_it_is_suspended_reports_minus_one)
{
    for (const bool from_the_start : { true, false }) {
        process p;
        ASSERT_EQ(p.start("/bin/sleep", nullptr, "sleep 1000", from_the_start), 1);
        p.suspend();
        kill(p.get_id(), SIGKILL);
        EXPECT_EQ(p.wait_done(), -1);
    }
    EXPECT_FALSE(has_children());
}

TEST(a_child, gets_the_same_signals_started_suspended_or_not)
{
    sigset_t some, before;
    sigemptyset(&some);
    sigaddset(&some, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &some, &before);
    const char line[] = "grep -E ^Sig(Blk|Cgt) /proc/self/status";
    const std::string plain = output_of("/bin/grep", line, false);
    const std::string suspended = output_of("/bin/grep", line, true);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_NE(plain.find("SigBlk:\t0000000000000200"), std::string::npos) << plain;
    EXPECT_EQ(plain, suspended);
}

TEST(a_child, is_suspended_127_times_at_the_most)
{
    const sys_launch request = { "/bin/sleep", nullptr, "sleep 1000", true, 0, false };
    sys_process child;
    ASSERT_EQ(sys_process_start(&request, &child, nullptr), 0);
    for (int i = 1; i < 127; ++i)
        ASSERT_EQ(sys_process_suspend(&child), i);
    EXPECT_EQ(sys_process_suspend(&child), -1);
    for (int i = 127; i > 0; --i)
        ASSERT_EQ(sys_process_resume(&child), i);
    EXPECT_EQ(sys_process_resume(&child), 0);
    EXPECT_EQ(sys_process_kill(&child, -1), 0);
    EXPECT_EQ(sys_process_suspend(&child), -1) << "it is gone";
    EXPECT_EQ(sys_process_resume(&child), -1);
    EXPECT_EQ(sys_process_kill(&child, -1), -1);
    sys_process_close(&child);
    EXPECT_FALSE(has_children());
}

TEST(a_pipe, stays_away_from_standard_descriptors_that_are_closed)
{
    for (const bool suspended : { false, true }) {
        const closed_descriptor input(STDIN_FILENO);
        const int before = open_descriptors();
        process p;
        std::FILE* out = p.start("/bin/echo", nullptr, "echo \"a word\"", "r", suspended);
        const int fd = out ? fileno(out) : -1;
        std::string text;
        if (out) {
            p.resume();
            text = read_all(out);
            std::fclose(out);
        }
        EXPECT_EQ(p.wait_done(), 0);
        EXPECT_GT(fd, STDERR_FILENO);
        EXPECT_EQ(text, "a word\n");
        EXPECT_EQ(open_descriptors(), before);
    }
}

TEST(a_wait_for_a_child, goes_on_after_an_interruption)
{
    process p;
    ASSERT_EQ(p.start("/bin/true", nullptr, "true"), 1);
    interruptions = 3;
    EXPECT_EQ(p.wait_done(), 0);
    interruptions = 5;
    ASSERT_EQ(p.start("/bin/sh", nullptr, "sh -c \"exit 5\"", true), 1);
    EXPECT_EQ(interruptions, 0);
    interruptions = 2;
    p.suspend();
    p.resume();
    EXPECT_FALSE(p.is_done()) << "still suspended once";
    p.resume();
    EXPECT_EQ(p.wait_done(), 5);
    ASSERT_EQ(p.start("/bin/sleep", nullptr, "sleep 1000"), 1);
    interruptions = 2;
    EXPECT_EQ(p.terminate(), 1);
    interruptions = 0;
    EXPECT_FALSE(has_children());
}

TEST(a_child, of_a_program_that_wants_no_children_cannot_be_asked)
{
    // The system reaps them itself then.
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    process p;
    ASSERT_EQ(p.start("/bin/sh", nullptr, "sh -c \"exit 5\""), 1);
    EXPECT_EQ(p.wait_done(), -1);
    EXPECT_FALSE(p.is_valid());
    std::signal(SIGCHLD, before);
}

TEST(a_child, that_no_signal_reaches_goes_on_as_it_was)
{
    const sys_launch request = { "/bin/sleep", nullptr, "sleep 1000", false, 0, false };
    sys_process child;
    ASSERT_EQ(sys_process_start(&request, &child, nullptr), 0);
    call_failure failure;
    ASSERT_TRUE(failure.next());
    failure.arm();
    EXPECT_EQ(sys_process_suspend(&child), -1);
    EXPECT_EQ(sys_last_error(), ENFILE);
    EXPECT_EQ(sys_process_resume(&child), 0) << "it was not counted";
    EXPECT_EQ(sys_process_suspend(&child), 0);
    failure.arm();
    EXPECT_EQ(sys_process_resume(&child), -1);
    EXPECT_EQ(sys_process_suspend(&child), 1) << "still suspended once";
    EXPECT_EQ(sys_process_resume(&child), 2);
    failure.arm();
    EXPECT_EQ(sys_process_kill(&child, -1), -1);
    EXPECT_EQ(sys_last_error(), ENFILE);
    EXPECT_TRUE(has_children());
    EXPECT_EQ(sys_process_kill(&child, -1), 0);
    EXPECT_FALSE(has_children());
    sys_process_close(&child);
}

TEST(a_pipe, is_not_made_when_it_cannot_stay_away_from_standard_descriptors)
{
    const closed_descriptor input(STDIN_FILENO);
    const int before = open_descriptors();
    for (const char* mode : { "r", "w" }) {
        std::string calls;
        for (call_failure failure; failure.next();) {
            process p;
            failure.arm();
            std::FILE* stream = p.start("/bin/true", nullptr, "true", mode, false);
            failure.disarm();
            EXPECT_EQ(stream == nullptr, failure.happened()) << failure.name();
            if (stream)
                std::fclose(stream);
            else
                calls += std::string(failure.name()) + " ";
            p.wait_done();
            EXPECT_EQ(open_descriptors(), before) << failure.name();
        }
        EXPECT_EQ(calls.substr(0, 11), "pipe2 lift ") << calls;
    }
}

TEST(a_writer_of_a_pipe, leaves_the_signals_of_its_thread_alone)
{
    sigset_t before, after, waiting;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    process p;
    std::FILE* in = p.start("/bin/true", nullptr, "true", "w", false);
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(p.wait_done(), 0);
    const std::string text(1 << 20, 'x');
    EXPECT_FALSE(std::fwrite(text.data(), 1, text.size(), in) == text.size() && std::fflush(in) == 0);
    std::fclose(in);
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    sigpending(&waiting);
    EXPECT_EQ(sigismember(&after, SIGPIPE), sigismember(&before, SIGPIPE));
    EXPECT_EQ(sigismember(&waiting, SIGPIPE), 0);
}

TEST(a_start_without_memory, gives_nothing_and_leaves_nothing)
{
    const int before = open_descriptors();
    for (const char* mode : { "r", "w" }) {
        for (allocation_failure failure; failure.next();) {
            process p;
            failure.arm();
            std::FILE* stream = p.start("/bin/true", "/", "true with words that are longer", mode, false);
            failure.disarm();
            if (stream)
                std::fclose(stream);
            else
                EXPECT_EQ(last_system_error(), ENOMEM) << failure.nth();
            EXPECT_TRUE(stream || failure.happened());
            EXPECT_EQ(p.is_valid(), stream != nullptr);
            p.wait_done();
            EXPECT_FALSE(has_children()) << failure.nth();
            EXPECT_EQ(open_descriptors(), before) << failure.nth();
        }
    }
}

} // namespace
