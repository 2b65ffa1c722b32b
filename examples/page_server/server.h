// The server: two ports, one loop, and the clients.
#pragma once
#include "event_loop.h"
#include "page.h"
#include <stdkro/hmap.h>
#include <stdkro/thread.h>
#include <atomic>
#include <vector>

/// A connection, which owns its place in the loop.
struct client : fdbase {
    virtual int join() = 0;     ///< the index in the loop; negative when it is full
    virtual void on_tick() = 0; ///< about once a second
    virtual void on_stop() = 0; ///< the server ends when all clients have
};

struct server {
    typedef std::unique_ptr<client> client_maker(server& of, unsigned handle, const SockAddr& peer);

    /// A listening socket, which makes clients while the server has fewer than `most`.
    struct listener : fdbase {
        listener(server& of, client_maker* maker, int limit) : owner(of), make(maker), most(unsigned(limit)) {}
        int get_fd() override { return int(socket.get_socket()); }
        int get_events(int& events) override { return events = EV_READ, get_fd(); }
        int do_read() override {
            SockAddr peer;
            const unsigned handle = owner.client_count < most ? socket.accept(&peer) : Socket::no_handle;
            if (handle == Socket::no_handle)
                return owner.loop.set_events(index, 0); // until a client leaves or the next tick
            std::unique_ptr<client> fresh = make(owner, handle, peer);
            const int i = fresh->join();
            if (i < 0)
                return -1;
            owner.clients[unsigned(i)] = std::move(fresh);
            ++owner.client_count;
            return 0;
        }
        /// Listens on 127.0.0.1. `port` 0 becomes the one that the system chose. 0 or a status.
        int open(int& port) {
            SockAddr address("127.0.0.1", static_cast<unsigned short>(port));
            int r = socket.create_server(address);
            if (r >= 0)
                r = std::min({ socket.set_async(true), socket.listen(512), socket.getself(address) });
            if (r < 0)
                owner.log.write(msg_cannot_listen, share_str::print_str("%d", port), get_err_info(r));
            index = r < 0 ? -1 : owner.loop.add(*this, EV_READ);
            port = address.get_port_h();
            return r;
        }
        void close() {
            if (index >= 0)
                owner.loop.remove(index);
            index = -1;
            socket.close();
        }
        server& owner;
        client_maker* const make;
        const unsigned most;
        Socket socket;
        int index = -1;
    };

    settings& from;
    journal& log;
    timer clock; // milliseconds since the start
    event_loop loop;
    listener http, admin;
    hmap<share_str, std::shared_ptr<page>> pages;         // by path
    std::vector<std::unique_ptr<client>> clients, buried; // by their index in the loop; to be freed
    unsigned client_count = 0, request_count = 0;
    bool is_stopping = false;

    server(settings& s, journal& j, client_maker* make_http, client_maker* make_admin)
        : from(s), log(j), http(*this, make_http, s.connections), admin(*this, make_admin, s.connections + 4) {
        const ini_section* const routes = from.ini.find_section("routes");
        for (unsigned i = 0; routes && i < routes->count(); ++i)
            pages.set((*routes)[i].get_name(), std::make_shared<page>((*routes)[i].get_value().c_str(), from, log));
    }
    ~server() { http.close(), admin.close(); }

    /// Opens both ports. 0 or a status.
    int open() {
        const unsigned capacity = admin.most + 4; // with the listeners; an epoller keeps a slot free for a while
        const share_str name = from.text("server", "loop");
        loop = name == "selector" ? make_loop<selector>(capacity)
            : name == "poller"    ? make_loop<poller>(capacity)
                                  : make_loop<epoller>(capacity);
        clients.resize(capacity);
        const int r = http.open(from.port);
        if (r >= 0)
            log.write(msg_serving, share_str::print_str("127.0.0.1:%d", from.port), name);
        return r < 0 ? r : admin.open(from.admin_port);
    }
    /// Serves until `stop`, or until `is_interrupted`, and all is answered. 0 or a status.
    int run(const std::atomic<bool>& is_interrupted) {
        const timeval second = { 1, 0 };
        for (double ticked = 0; !is_stopping || client_count > 0; buried.clear()) {
            if (loop.wait(&second) < 0)
                return log.write(msg_loop_failed, get_err_info(err::network)), err::network;
            if (is_interrupted)
                stop("Ctrl-C");
            if (clock.spend() - ticked < 1000)
                continue;
            ticked = clock.spend();
            for_clients(&client::on_tick);
            accept_again();
        }
        log.write(msg_stopped, share_str::print_str("%u", request_count));
        return 0;
    }
    void stop(const share_str& by_whom) {
        if (is_stopping)
            return;
        is_stopping = true;
        log.write(msg_stopping, by_whom, share_str::print_str("%u", client_count));
        http.close(), admin.close();
        for_clients(&client::on_stop);
    }
    /// Takes a client out of the loop; it is freed when no handler runs.
    void bury(int index) {
        loop.remove(index);
        buried.push_back(std::move(clients[unsigned(index)]));
        if (client_count-- == http.most)
            accept_again();
    }
    void for_clients(void (client::*handler)()) {
        for (const auto& c : clients)
            if (c)
                (*c.*handler)();
    }
    void accept_again() {
        for (const listener* l : { &http, &admin })
            if (l->index >= 0)
                loop.set_events(l->index, EV_READ);
    }
};
