// A page server: HTTP/1.1 on 127.0.0.1, each route a script of the library's template language.
//
//     page_server --config site/page_server.ini         (docs/page_server.md tells the rest)
#include "server.h"
#include <stdkro/option.h>
#include <csignal>
#include <cstdio>

static std::atomic<bool> is_interrupted(false);

// The loop looks at it at least once a second. A second Ctrl-C ends the program at once.
static void on_interrupt(int number) {
    is_interrupted = true;
    std::signal(number, SIG_DFL);
}

int main(int argc, char** argv) {
    char *config = nullptr, *port = nullptr, *admin_port = nullptr;
    option options;
    options.add("config", 'c', &config);
    options.add("port", 'p', &port);
    options.add("admin", 'a', &admin_port);
    if (options.read_argv(argc - 1, argv + 1, nullptr) < 0 || !config)
        return std::fprintf(stderr, "usage: page_server --config FILE [--port N] [--admin N]\n"), 2;
    std::signal(SIGINT, on_interrupt);
    std::signal(SIGTERM, on_interrupt);
    journal log;
    try {
        settings from(config, port, admin_port);
        log.open(from);
        server pages(from, log);
        std::printf("http 127.0.0.1:%d\nadmin 127.0.0.1:%d\n", from.port, from.admin_port);
        std::fflush(stdout);
        pages.run(is_interrupted);
    } catch (const xcpt& e) {
        return logger::print(lv_error, "%s (%s)\n", e.what(), get_err_info(e.get_err())), 1;
    }
    return 0;
}
