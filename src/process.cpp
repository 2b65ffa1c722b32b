// A child process.
#include <stdkro/process.h>

#include "platform.h"

#include <cstdint>

namespace {

constexpr int killed_exit_code = -1;

int launch(const sys_launch& request, void** child, void** main_thread, int* id, std::FILE** stream)
{
    sys_process started;
    if (sys_process_start(&request, &started, stream) != 0)
        return 0;
    *child = started.process;
    *main_thread = started.main_thread;
    *id = started.id;
    return 1;
}

} // namespace

int last_system_error() { return sys_last_error(); }

void* process::none() { return reinterpret_cast<void*>(~static_cast<std::uintptr_t>(0)); }

process::~process() { close(); }

int process::start(const char* application, const char* directory, const char* command_line, bool suspended)
{
    if (is_valid())
        return 0;
    const sys_launch request = { application, directory, command_line, suspended, 0, false };
    return launch(request, &process_, &main_thread_, &id_, nullptr);
}

std::FILE* process::start(const char* application, const char* directory, const char* command_line, const char* mode,
                          bool suspended)
{
    if (is_valid() || !mode || !*mode)
        return nullptr;
    const char direction = *mode == 'r' ? 'r' : 'w';
    const sys_launch request = { application, directory, command_line, suspended, direction, mode[1] == 'b' };
    std::FILE* stream = nullptr;
    return launch(request, &process_, &main_thread_, &id_, &stream) ? stream : nullptr;
}

int process::terminate()
{
    if (!is_valid())
        return 1;
    const sys_process child = { process_, main_thread_, id_ };
    if (sys_process_kill(&child, killed_exit_code) != 0)
        return 0;
    close();
    return 1;
}

bool process::is_done(int* exit_code)
{
    if (!is_valid())
        return true;
    const sys_process child = { process_, main_thread_, id_ };
    int code = 0;
    const int r = sys_process_wait(&child, 0, &code);
    // KEEP: a child that ended with 259 reads as still active; `wait_done` tells.
    if (r == sys_wait_timeout || (r == sys_wait_done && code == sys_still_active))
        return false;
    if (r == sys_wait_done) {
        if (exit_code)
            *exit_code = code;
        close();
    }
    return true;
}

int process::wait_done()
{
    if (!is_valid())
        return 0;
    const sys_process child = { process_, main_thread_, id_ };
    int code = 0;
    if (sys_process_wait(&child, sys_no_limit, &code) != sys_wait_done)
        code = -1;
    close();
    return code;
}

int process::suspend()
{
    const sys_process child = { process_, main_thread_, id_ };
    if (is_valid())
        sys_process_suspend(&child);
    return 0;
}

int process::resume()
{
    const sys_process child = { process_, main_thread_, id_ };
    if (is_valid())
        sys_process_resume(&child);
    return 0;
}

void process::close()
{
    const sys_process child = { process_, main_thread_, id_ };
    if (is_valid())
        sys_process_close(&child);
    process_ = main_thread_ = none();
    id_ = 0;
}
