// The admin shell: a connection whose lines are commands. A status text ends the output of each.
#pragma once
#include "connection.h"
#include <stdkro/shell.h>

class admin_client : public connection, private shell {
public:
    admin_client(common& c, unsigned h, const SockAddr& peer) : connection(c, h, peer) { set_cmds(commands); }

private:
    bool on_input() override {
        std::string_view rest(in_.rptr(), in_.count());
        const share_str line = text_of(take(rest, '\n')); // a carriage return counts as a blank
        is_ending_ = line.length() > 500 || std::strstr(line.c_str(), " HTTP/"); // a browser, misled
        if (is_ending_ || line.length() == in_.count()) // too long, or not all there
            return false;
        in_.rmove(int(line.length() + 1));
        const int wrong = str::calc_argv(line.c_str(), nullptr); // the shell would print what it is
        const int r = wrong < 0 ? wrong : execute(line.c_str());
        is_ending_ = r == err::exit;
        return out_.print(99, "%s\n", r < 0 && !is_ending_ ? get_err_info(r) : "ok") > 0;
    }
    int doDefault(int, char**) override {
        for (const cmd* c = commands; c->name; ++c)
            out_.print(99, "%-10s %s\n", c->name, c->help);
        return err::undefined_symbol;
    }
    static admin_client& self(shell* of) { return *static_cast<admin_client*>(of); }
    static int language(shell* of, int argc, char** argv) {
        return self(of).common_.log.set_language(argc == 2 ? argv[1] : "");
    }
    static int status(shell* of, int, char**) {
        const common& c = self(of).common_;
        self(of).out_.print(99, "connections %u\nrequests %u\n", c.channels().count() - 2, c.request_count);
        return 0;
    }
    static int stop(shell* of, int, char**) {
        self(of).common_.stop(self(of).peer_);
        return err::exit;
    }
    static constexpr cmd commands[] = {
        { "language", language, "english|chinese: the language of the log" },
        { "quit", [](shell*, int, char**) { return int(err::exit); }, "ends this connection" },
        { "status", status, "what the server does" },
        { "stop", stop, "finishes open requests and ends the server" },
        { nullptr, nullptr, nullptr },
    };
};
