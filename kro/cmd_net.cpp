// kro net: small servers and clients on the library's sockets and loops.
#include "commands.h"
#include "net_service.h"
#include "sockets.h"

#include <stdkro/xcpt.h>

#include <cstdio>

namespace {

constexpr int default_round_trips = 100;

int echo(net_task& task) { return serve(task, net_answer::echo); }
int sink(net_task& task) { return serve(task, net_answer::nothing); }

const struct action {
    const char* name;
    int (*run)(net_task& task);
} actions[] = { { "echo", echo }, { "sink", sink }, { "send", send_input }, { "ping", ping } };

net_task read_task(const action& a, const command_words& words)
{
    net_task task;
    task.address = read_address(words.operands[1]);
    task.count = words.number("count", a.run == ping ? default_round_trips : 0);
    if (words.has("udp"))
        task.transport = net_transport::datagram;
    task.loop = make_loop(words.text("loop", "epoller"));
    return task;
}

int show_addresses(const arguments& words)
{
    int status = exit_success;
    for (std::size_t i = 1; i < words.size(); ++i) {
        SockAddr address;
        const int r = address.set_addr(words[i].c_str());
        if (r < 0)
            status = report_error(r, (words[i] + ": " + get_err_info(r)).c_str());
        else
            std::printf("%s\n", address.get_addr().c_str());
        std::fflush(stdout);
    }
    return status;
}

} // namespace

int net_command(const command_words& words)
{
    start_sockets();
    if (words.operands[0] == "addr")
        return show_addresses(words.operands);
    const action* chosen = actions;
    while (words.operands[0] != chosen->name)
        ++chosen;
    net_task task = read_task(*chosen, words);
    use_binary_streams();
    return chosen->run(task);
}
