// The admin shell: a connection whose lines are commands. A status text ends the output of each.
#pragma once
#include "connection.h"
#include <stdkro/shell.h>

class admin_client : public connection, private shell {
public:
    admin_client(server& of, unsigned handle, const SockAddr& peer) : connection(of, handle, peer) { set_cmds(commands); }

private:
    void on_input() override {
        while (may_go_on()) {
            const char* const end = std::find(in_.rptr(), in_.wptr(), '\n');
            is_ending_ = end - in_.rptr() > 500;
            if (is_ending_ || end == in_.wptr())
                return;
            const share_str line(in_.rptr(), end); // a carriage return counts as a blank
            in_.rmove(int(end + 1 - in_.rptr()));
            int r = str::calc_argv(line.c_str(), nullptr); // the shell would print what is wrong
            if (r >= 0)
                r = execute(line.c_str());
            is_ending_ = r == err::exit;
            out_.print(99, "%s\n", r < 0 && !is_ending_ ? get_err_info(r) : "ok");
            since_ = server_.clock.spend();
        }
    }
    int doDefault(int, char**) override {
        for (const cmd* c = commands; c->name; ++c)
            out_.print(99, "%-10s %s\n", c->name, c->help);
        return err::undefined_symbol;
    }
    static admin_client& self(shell* of) { return *static_cast<admin_client*>(of); }
    static int language(shell* of, int argc, char** argv) { return self(of).server_.log.set_language(argc == 2 ? argv[1] : ""); }
    static int quit(shell*, int, char**) { return err::exit; }
    static int status(shell* of, int, char**) {
        const server& s = self(of).server_;
        return self(of).out_.print(99, "connections %u\nrequests %u\n", s.client_count, s.request_count), 0;
    }
    static int stop(shell* of, int, char**) { return self(of).server_.stop(self(of).peer_), err::exit; }

    static constexpr cmd commands[] = {
        { "language", language, "english|chinese: the language of the log" },
        { "quit", quit, "ends this connection" },
        { "status", status, "what the server does" },
        { "stop", stop, "finishes open requests and ends the server" },
        { nullptr, nullptr, nullptr },
    };
};
