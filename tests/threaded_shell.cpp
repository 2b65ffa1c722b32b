// A shell in a program with another thread, for shell_terminal.py.
#include <stdkro/shell.h>
#include <stdkro/xcpt.h>

#include <chrono>
#include <thread>

namespace {

int quit(shell*, int, char**) { return err::exit; }

// Signals come to this thread: the other one keeps them from itself while it waits for keys.
[[noreturn]] void wait_for_ever()
{
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

} // namespace

int main()
{
    std::thread(wait_for_ever).detach();
    const shell::cmd commands[] = { { "quit", quit, "leaves" }, { nullptr, nullptr, nullptr } };
    shell sh;
    sh.set_cmds(commands);
    sh.auto_complete(true);
    sh.run("threads> ");
    return 0;
}
