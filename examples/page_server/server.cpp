#include "server.h"

#include "client.h"

#include <cstdio>

int listener::open(int& port)
{
    SockAddr address("127.0.0.1", static_cast<unsigned short>(port));
    int r = socket.create_server(address);
    if (r >= 0)
        r = socket.set_async(true);
    if (r >= 0)
        r = socket.listen(512);
    if (r >= 0)
        r = socket.getself(address);
    if (r < 0)
        owner.log.write(msg_cannot_listen, share_str::print_str("%d", port), get_err_info(r));
    else
        index = owner.loop.add(*this, EV_READ);
    port = address.get_port_h();
    return r;
}

void listener::close()
{
    if (index >= 0)
        owner.loop.remove(index);
    index = -1;
    socket.close();
}

int listener::do_read()
{
    SockAddr peer;
    const unsigned handle = owner.client_count < most ? socket.accept(&peer) : Socket::no_handle;
    if (handle == Socket::no_handle)
        return owner.loop.set_events(index, 0); // until a client leaves or the next tick
    std::unique_ptr<client> fresh = make(owner, handle, peer);
    const int i = fresh->join();
    if (i < 0)
        return -1;
    owner.clients[static_cast<unsigned>(i)] = std::move(fresh);
    ++owner.client_count;
    return 0;
}

constexpr int reserve = 4; // clients of the admin shell when the server is full

server::server(settings& s, journal& j)
    : from(s), log(j), http(*this, make_http_client, s.connections), admin(*this, make_admin_client, s.connections + reserve)
{
}

server::~server()
{
    http.close();
    admin.close();
}

int server::open()
{
    const unsigned capacity = admin.most + 4; // with the listeners; an epoller keeps a slot free for a while
    const share_str name = from.text("server", "loop");
    if (name == "selector")
        loop = make_loop<selector>(capacity);
    else if (name == "poller")
        loop = make_loop<poller>(capacity);
    else
        loop = make_loop<epoller>(capacity);
    clients.resize(capacity);
    const ini_section* const routes = from.ini.find_section("routes");
    for (unsigned i = 0; routes && i < routes->count(); ++i)
        pages.set((*routes)[i].get_name(), std::make_shared<page>((*routes)[i].get_value(), from, log));
    int r = http.open(from.port);
    if (r >= 0)
        r = admin.open(from.admin_port);
    if (r < 0)
        return r;
    std::printf("http 127.0.0.1:%d\nadmin 127.0.0.1:%d\n", from.port, from.admin_port);
    std::fflush(stdout);
    log.write(msg_serving, share_str::print_str("127.0.0.1:%d", from.port), name);
    return 0;
}

int server::run(const std::atomic<bool>& is_interrupted)
{
    const timeval second = { 1, 0 };
    for (double ticked = 0; !is_stopping || client_count > 0; buried.clear()) {
        if (loop.wait(&second) < 0) {
            log.write(msg_loop_failed, get_err_info(err::network));
            return err::network;
        }
        if (is_interrupted)
            stop("Ctrl-C");
        if (now() - ticked < 1)
            continue;
        ticked = now();
        for (const auto& c : clients)
            if (c)
                c->on_tick();
        accept_again();
    }
    log.write(msg_stopped, share_str::print_str("%u", request_count));
    return 0;
}

void server::stop(const share_str& by_whom)
{
    if (is_stopping)
        return;
    is_stopping = true;
    log.write(msg_stopping, by_whom, share_str::print_str("%u", client_count));
    http.close();
    admin.close();
    for (const auto& c : clients)
        if (c)
            c->on_stop();
}

void server::bury(int index)
{
    loop.remove(index);
    buried.push_back(std::move(clients[static_cast<unsigned>(index)]));
    if (client_count-- == http.most)
        accept_again();
}

void server::accept_again()
{
    for (const listener* l : { &http, &admin })
        if (l->index >= 0)
            loop.set_events(l->index, EV_READ);
}
