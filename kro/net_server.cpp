// The servers of `kro net`: one thread and one loop for all connections.
//
// Sockets do not block, and each connection keeps what its peer has not taken yet. While that is
// much nothing more is read from this peer, so a slow one costs bounded memory and
// nobody else's time.
#include "command.h"
#include "net_service.h"
#include "progress.h"

#include <stdkro/xcpt.h>

#include <cstdio>
#include <map>
#include <vector>

namespace {

constexpr unsigned most_pending = 1 << 18;
constexpr int backlog = 128;

void tell(const SockAddr& peer, unsigned long long bytes)
{
    print_lines(stdout, std::string(peer.get_addr().c_str()) + ": " + std::to_string(bytes) + " bytes\n");
}

class stream_server;

class connection : public fdbase {
public:
    connection(stream_server& server, Socket& accepted, const SockAddr& peer) : server_(server), peer_(peer)
    {
        socket_.attach(accepted.detach());
        socket_.set_async(true);
        socket_.set_nodelay(true);
    }

    /// False when the loop is full.
    bool join();
    int get_fd() override { return static_cast<int>(socket_.get_socket()); }
    int get_events(int& events) override
    {
        events = events_;
        return get_fd();
    }
    int do_read() override;
    int do_write() override;
    int finish();

private:
    bool flush();
    int settle();

    stream_server& server_;
    Socket socket_;
    SockAddr peer_;
    packet pending_;
    unsigned long long received_ = 0;
    int index_ = -1;
    int events_ = EV_READ;
    bool is_at_end_ = false;
};

class stream_server : public fdbase {
public:
    stream_server(net_task& task, net_answer answer) : task_(task), answer_(answer) { work_.counts("connection"); }

    int run();
    net_loop& loop() { return *task_.loop; }
    bool echoes() const { return answer_ == net_answer::echo; }
    progress& work() { return work_; }
    /// Takes a connection that has left the loop; it is freed when no handler runs.
    void bury(connection* dead);

    int get_fd() override { return static_cast<int>(socket_.get_socket()); }
    int get_events(int& events) override
    {
        events = EV_READ;
        return get_fd();
    }
    int do_read() override;

private:
    int listen();

    net_task& task_;
    net_answer answer_;
    progress work_ { "serving" };
    Socket socket_;
    std::map<connection*, std::unique_ptr<connection>> connections_;
    std::vector<std::unique_ptr<connection>> dead_;
    int index_ = -1;
    int served_ = 0;
    bool is_paused_ = false;
};

bool connection::join()
{
    index_ = server_.loop().add(*this, events_);
    return index_ >= 0;
}

int connection::do_read()
{
    char block[1 << 16];
    const int n = socket_.receive(block, sizeof block);
    if (n < 0 && n != err::shut_up)
        return finish();
    is_at_end_ = n == err::shut_up;
    if (is_at_end_)
        return settle();
    received_ += static_cast<unsigned>(n);
    server_.work().add(0, static_cast<unsigned>(n));
    if (server_.echoes()) {
        if (pending_.write(block, static_cast<unsigned>(n)) == 0)
            return finish();
        // It may be that nothing can be taken at present; then do_write goes on.
        flush();
    }
    return settle();
}

int connection::do_write() { return flush() ? settle() : finish(); }

bool connection::flush()
{
    if (pending_.count() == 0)
        return true;
    const int n = socket_.send(pending_.rptr(), pending_.count());
    return n >= 0 && pending_.rmove(n);
}

// Asks the loop for what is of use now.
int connection::settle()
{
    if (is_at_end_ && pending_.count() == 0)
        return finish();
    int events = pending_.count() > 0 ? EV_WRITE : 0;
    if (!is_at_end_ && pending_.count() < most_pending)
        events |= EV_READ;
    if (events != events_)
        server_.loop().set_events(index_, events);
    events_ = events;
    return 0;
}

int connection::finish()
{
    server_.loop().remove(index_);
    socket_.close();
    if (!server_.echoes())
        tell(peer_, received_);
    server_.bury(this);
    return -1;
}

int stream_server::listen()
{
    int r = socket_.create_server(task_.address);
    if (r >= 0)
        r = socket_.set_async(true);
    if (r >= 0)
        r = socket_.listen(backlog);
    return r >= 0 ? socket_.getself(task_.address) : r;
}

int stream_server::run()
{
    const int r = listen();
    if (r < 0)
        return report_error(r);
    index_ = loop().add(*this, EV_READ);
    print_message("listening on %s\n", task_.address.get_addr().c_str());
    while (task_.count == 0 || served_ < task_.count) {
        const timeval pause = { 1, 0 };
        if (loop().wait(is_paused_ ? &pause : nullptr) < 0)
            return report_error(err::network);
        dead_.clear();
        if (is_paused_)
            loop().set_events(index_, EV_READ);
        is_paused_ = false;
    }
    return exit_success;
}

// A connection that cannot be accepted, for want of handles say, would keep the loop turning: it
// gets a pause from new ones while there are others to serve.
int stream_server::do_read()
{
    Socket accepted;
    SockAddr peer;
    if (socket_.accept(accepted, &peer) < 0) {
        is_paused_ = !connections_.empty();
        if (is_paused_)
            loop().set_events(index_, 0);
        return 0;
    }
    auto fresh = std::make_unique<connection>(*this, accepted, peer);
    connection* const key = fresh.get();
    if (fresh->join()) {
        connections_[key] = std::move(fresh);
        work_.add(1, 0);
    }
    return 0;
}

void stream_server::bury(connection* dead)
{
    const auto found = connections_.find(dead);
    dead_.push_back(std::move(found->second));
    connections_.erase(found);
    ++served_;
}

class datagram_server : public fdbase {
public:
    datagram_server(net_task& task, net_answer answer) : task_(task), answer_(answer), datagram_(1 << 16)
    {
        work_.counts("datagram");
    }

    int run();
    int get_fd() override { return static_cast<int>(socket_.get_socket()); }
    int get_events(int& events) override
    {
        events = EV_READ;
        return get_fd();
    }
    int do_read() override;

private:
    int open();

    net_task& task_;
    net_answer answer_;
    progress work_ { "serving" };
    Socket socket_;
    std::vector<char> datagram_;
    int served_ = 0;
};

int datagram_server::open()
{
    int r = socket_.create(2, 2, 0);
    if (r >= 0)
        r = socket_.bind(task_.address);
    if (r >= 0)
        r = socket_.set_async(true);
    return r >= 0 ? socket_.getself(task_.address) : r;
}

int datagram_server::run()
{
    const int r = open();
    if (r < 0)
        return report_error(r);
    task_.loop->add(*this, EV_READ);
    print_message("listening on %s\n", task_.address.get_addr().c_str());
    while (task_.count == 0 || served_ < task_.count)
        if (task_.loop->wait(nullptr) < 0)
            return report_error(err::network);
    return exit_success;
}

// A failure may tell of an earlier datagram that could not be delivered: it is nobody else's.
int datagram_server::do_read()
{
    SockAddr peer;
    const int n = socket_.recv_from(&peer, datagram_.data(), static_cast<unsigned>(datagram_.size()));
    if (n < 0)
        return 0;
    if (answer_ == net_answer::echo)
        socket_.send_to(&peer, datagram_.data(), static_cast<unsigned>(n));
    else
        tell(peer, static_cast<unsigned>(n));
    ++served_;
    work_.add(1, static_cast<unsigned>(n));
    return 0;
}

} // namespace

int serve(net_task& task, net_answer answer)
{
    if (task.transport == net_transport::datagram)
        return datagram_server(task, answer).run();
    return stream_server(task, answer).run();
}
