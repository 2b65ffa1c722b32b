// The admin shell: a connection whose lines are commands. A status text ends the output of each.
#include "client.h"

#include <stdkro/shell.h>
#include <stdkro/str.h>
#include <algorithm>

class admin_client : public client, private shell {
public:
    admin_client(server& of, unsigned handle, const SockAddr& peer) : client(of, handle, peer) { set_cmds(commands); }

private:
    static int language(shell* of, int argc, char** argv)
    {
        return argc == 2 ? static_cast<admin_client*>(of)->server_.log.set_language(argv[1]) : err::invalid_parameter;
    }
    static int status(shell* of, int, char**)
    {
        admin_client& self = *static_cast<admin_client*>(of);
        self.out_.print(99, "connections %u\nrequests %u\n", self.server_.client_count, self.server_.request_count);
        return 0;
    }
    static int stop(shell* of, int, char**)
    {
        static_cast<admin_client*>(of)->server_.stop(static_cast<admin_client*>(of)->peer_);
        return err::exit;
    }
    int doDefault(int, char**) override
    {
        for (const cmd* c = commands; c->name; ++c)
            out_.print(99, "%-10s %s\n", c->name, c->help);
        return err::undefined_symbol;
    }
    void on_input() override;

    static constexpr cmd commands[] = {
        { "language", language, "english|chinese: the language of the log" },
        { "status", status, "what the server does" },
        { "stop", stop, "finishes open requests and ends the server" },
        { nullptr, nullptr, nullptr },
    };
};

std::unique_ptr<client> make_admin_client(server& of, unsigned handle, const SockAddr& peer)
{
    return std::make_unique<admin_client>(of, handle, peer);
}

void admin_client::on_input()
{
    while (may_go_on()) {
        const char* const end = std::find(in_.rptr(), in_.wptr(), '\n');
        is_ending_ = end - in_.rptr() > 500;
        if (is_ending_ || end == in_.wptr())
            return;
        const share_str line(in_.rptr(), end); // a carriage return counts as a blank
        in_.rmove(static_cast<int>(end + 1 - in_.rptr()));
        int r = str::calc_argv(line.c_str(), nullptr); // the shell would print what is wrong
        if (r >= 0)
            r = execute(line.c_str());
        is_ending_ = r == err::exit;
        out_.print(99, "%s\n", r < 0 && !is_ending_ ? get_err_info(r) : "ok");
        since_ = server_.now();
    }
}
