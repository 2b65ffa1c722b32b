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
    bool is_counted;
} actions[] = {
    { "echo", echo, true },
    { "sink", sink, true },
    { "send", send_input, false },
    { "ping", ping, true },
};

const action* find_action(const std::string& name)
{
    for (const action& a : actions)
        if (name == a.name)
            return &a;
    return nullptr;
}

// HOST:PORT, stricter than the library: a slip of the keyboard is not to become a broadcast.
SockAddr read_address(const std::string& word)
{
    const std::size_t colon = word.find(':');
    int port = 0;
    SockAddr address;
    if (colon == std::string::npos || !read_port(word.substr(colon + 1), port) || address.set_addr(word.c_str()) < 0
        || address == SockAddr("255.255.255.255", static_cast<unsigned short>(port)))
        throw usage_error { "'" + word + "' is no HOST:PORT" };
    return address;
}

int read_count(const std::string& word)
{
    int count = 0;
    // Counts have the range of ports, which is ample.
    if (!read_port(word, count) || count == 0)
        throw usage_error { "'" + word + "' is no count" };
    return count;
}

net_task read_task(const action& a, const arguments& words)
{
    if (words.size() < 2)
        throw usage_error { "HOST:PORT is missing" };
    net_task task;
    task.address = read_address(words[1]);
    task.count = a.run == ping ? default_round_trips : 0;
    std::string loop = "epoller";
    for (std::size_t i = 2; i < words.size(); ++i) {
        if (words[i] == "--udp") {
            task.transport = net_transport::datagram;
            continue;
        }
        if (words[i] != "--loop" && !(words[i] == "--count" && a.is_counted))
            throw usage_error { "'" + words[i] + "' is not expected" };
        if (i + 1 == words.size())
            throw usage_error { "'" + words[i] + "' wants a word behind it" };
        const bool is_loop = words[i] == "--loop";
        ++i;
        if (is_loop)
            loop = words[i];
        else
            task.count = read_count(words[i]);
    }
    task.loop = make_loop(loop);
    if (!task.loop)
        throw usage_error { "'" + loop + "' is no loop" };
    return task;
}

int show_addresses(const arguments& words)
{
    if (words.size() < 2)
        throw usage_error { "a text is missing" };
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

int net_command(const arguments& words)
{
    start_sockets();
    if (!words.empty() && words[0] == "addr")
        return show_addresses(words);
    const action* const a = words.empty() ? nullptr : find_action(words[0]);
    if (!a)
        throw usage_error { "'echo', 'sink', 'send', 'ping' or 'addr' is expected" };
    net_task task = read_task(*a, words);
    use_binary_streams();
    return a->run(task);
}
