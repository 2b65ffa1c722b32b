// The server: two ports, one loop, and the way from the start to the end.
#pragma once
#include "admin_client.h"
#include "http_client.h"
#include <atomic>

/// A port of 127.0.0.1, which makes a client of each that connects.
template <class client> struct listener : channel {
    const unsigned most;
    /// Accepts while there are fewer than `limit` channels. `port` 0 becomes the one that the
    /// system chose. Throws an `xrterror`.
    listener(common& of, int limit, int& port) : channel(of, Socket::no_handle), most(unsigned(limit)) {
        SockAddr address("127.0.0.1", static_cast<unsigned short>(port));
        const int r = std::min({ socket_.create_server(address), socket_.set_async(true), socket_.listen(512),
                                 socket_.getself(address) });
        if (r < 0)
            throw xrterror(r, "cannot listen on port %d", port);
        port = address.get_port_h();
        watch(EV_READ);
    }
    int do_read() override {
        SockAddr peer;
        const bool has_room = common_.channels().count() < most;
        const unsigned handle = has_room ? socket_.accept(&peer) : Socket::no_handle;
        if (handle == Socket::no_handle)
            return common_.is_full = true, watch(0); // until the next tick
        channel* const fresh = new client(common_, handle, peer);
        return fresh->watch(EV_READ) < 0 ? fresh->finish() : 0;
    }
    void on_tick() override { common_.is_stopping() ? finish() : watch(EV_READ); }
};

struct server : private common {
    /// Opens both ports. Throws an `xrterror`.
    server(settings& s, journal& j) : common { s, j } {
        const ini_section* const list = s.ini.find_section("routes");
        for (unsigned i = 0; list && i < list->count(); ++i)
            pages.set((*list)[i].get_name(), std::make_shared<page>((*list)[i].get_value().c_str(), s, j));
        const share_str name = s.text("server", "loop");
        if (name == "poller")
            loop.emplace<poller>();
        else if (name == "epoller")
            loop.emplace<epoller>();
        else if (name != "selector")
            s.refuse(err::invalid_parameter, "server", "loop", name, "selector, poller or epoller");
        new listener<http_client>(*this, s.connections + 2, s.port);
        new listener<admin_client>(*this, s.connections + 6, s.admin_port);
        log.write(msg_serving, share_str::print_str("127.0.0.1:%d", s.port).c_str(), name.c_str());
    }
    /// Serves until it is told to stop and all is answered. Throws an `xrterror`.
    void run(const std::atomic<bool>& is_interrupted) {
        const timeval second = { 1, 0 };
        for (double ticked = 0; channels().count() > 0; ended.clear()) {
            if (std::visit([&](auto& l) { return l.wait(&second); }, loop) < 0)
                throw xrterror(err::network, "cannot wait for clients");
            if (is_interrupted)
                stop("Ctrl-C");
            if (is_stopping() || (is_full && !ended.empty()) || clock.spend() - ticked >= 1000) {
                ticked = clock.spend();
                is_full = false;
                for (unsigned i = 0; i < channels().capacity(); ++i)
                    if (fdbase* const c = channels().get(int(i)))
                        static_cast<channel*>(c)->on_tick();
            }
        }
        log.write(msg_stopped, share_str::print_str("%u", request_count).c_str());
    }
};
