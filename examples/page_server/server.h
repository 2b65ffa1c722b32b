// The server: two ports, one loop, and the clients.
#pragma once
#include "event_loop.h"
#include "page.h"

#include <stdkro/hmap.h>
#include <stdkro/thread.h>
#include <atomic>
#include <vector>

class client;
struct server;
typedef std::unique_ptr<client> client_maker(server& of, unsigned handle, const SockAddr& peer);
client_maker make_http_client, make_admin_client;

/// A listening socket, which makes clients while there is room for them.
struct listener : fdbase {
    listener(server& of, client_maker* maker, int limit) : owner(of), make(maker), most(unsigned(limit)) {}
    /// Listens on 127.0.0.1. `port` 0 becomes the one that the system chose. 0 or a status.
    int open(int& port);
    void close();
    int get_fd() override { return static_cast<int>(socket.get_socket()); }
    int get_events(int& events) override { return events = EV_READ, get_fd(); }
    int do_read() override;

    server& owner;
    client_maker* const make;
    const unsigned most; // clients of the server
    Socket socket;
    int index = -1;
};

struct server {
    server(settings& s, journal& j);
    ~server();
    /// Opens both ports and tells them on standard output. 0 or a status.
    int open();
    /// Serves until `stop`, or until `is_interrupted`, and all is answered. 0 or a status.
    int run(const std::atomic<bool>& is_interrupted);
    void stop(const share_str& by_whom);
    /// Takes a client out of the loop; it is freed when no handler runs.
    void bury(int index);
    /// What stopped for want of room goes on.
    void accept_again();
    /// Seconds since the start.
    double now() const { return clock.spend() / 1000; }

    settings& from;
    journal& log;
    timer clock;
    event_loop loop;
    listener http, admin;
    hmap<share_str, std::shared_ptr<page>> pages;         // by path
    std::vector<std::unique_ptr<client>> clients, buried; // by their index in the loop; to be freed
    unsigned client_count = 0, request_count = 0;
    bool is_stopping = false;
};
