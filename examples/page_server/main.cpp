// A page server: HTTP/1.1 on 127.0.0.1, each route a script of the library's template language.
//
//     page_server --config site/page_server.ini         (docs/page_server.md tells the rest)
#include "admin_client.h"
#include "http_client.h"
#include <stdkro/option.h>
#include <csignal>
#include <cstdio>

extern void start_sockets(); // sockets_posix.cpp, sockets_win32.cpp

static std::atomic<bool> is_interrupted(false);

// The loop looks at it at least once a second. A second Ctrl-C ends the program at once.
static void on_interrupt(int number)
{
    is_interrupted = true;
    std::signal(number, SIG_DFL);
}

template <class kind> static std::unique_ptr<client> make_client(server& of, unsigned handle, const SockAddr& peer)
{
    return std::make_unique<kind>(of, handle, peer);
}

int main(int argc, char** argv)
{
    char* config = nullptr;
    int port = -1, admin_port = -1;
    option options;
    options.add("config", 'c', &config);
    options.add("port", 'p', &port);
    options.add("admin", 'a', &admin_port);
    if (options.read_argv(argc - 1, argv + 1, nullptr) < 0 || !config)
        return std::fprintf(stderr, "usage: page_server --config FILE [--port N] [--admin N]\n"), 2;
    start_sockets();
    std::signal(SIGINT, on_interrupt);
    std::signal(SIGTERM, on_interrupt);
    settings from;
    journal log;
    int r = from.load(config);
    if (r >= 0) {
        from.fault = "[log]";
        r = log.open(from);
    }
    if (r < 0)
        return logger::print(lv_error, "%s: %s\n", from.fault.c_str(), get_err_info(r)), 1;
    from.port = port >= 0 ? port : from.port;
    from.admin_port = admin_port >= 0 ? admin_port : from.admin_port;
    server pages(from, log, make_client<http_client>, make_client<admin_client>);
    if (pages.open() < 0)
        return 1;
    std::printf("http 127.0.0.1:%d\nadmin 127.0.0.1:%d\n", from.port, from.admin_port);
    std::fflush(stdout);
    return pages.run(is_interrupted) < 0;
}
