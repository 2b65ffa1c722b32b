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
#include <utility>
#include <vector>

namespace {

constexpr unsigned most_pending = 1 << 18;
constexpr int backlog = 128;

void tell(const SockAddr& peer, unsigned long long bytes)
{
    print_lines(stdout, std::string(peer.get_addr().c_str()) + ": " + std::to_string(bytes) + " bytes\n");
}

// What both servers are: a bound socket in a loop, until enough is served.
class server : public served_socket {
public:
    int run();

protected:
    server(net_task& task, net_answer answer, const char* unit)
        : served_socket(*task.loop), task_(task), answer_(answer)
    {
        work_.counts(unit);
    }

    /// Binds the socket. 0 or a status code.
    virtual int open() = 0;
    virtual int wait() { return loop_.wait(nullptr); }

    net_task& task_;
    const net_answer answer_;
    progress work_ { "serving" };
    int served_ = 0;
};

int server::run()
{
    int r = open();
    if (r >= 0)
        r = socket_.set_async(true);
    if (r >= 0)
        r = socket_.getself(task_.address);
    if (r < 0)
        return report_error(r);
    join(EV_READ);
    print_message("listening on %s\n", task_.address.get_addr().c_str());
    while (task_.count == 0 || served_ < task_.count)
        if (wait() < 0)
            return report_error(err::network);
    return exit_success;
}

class connection;

class stream_server : public server {
public:
    stream_server(net_task& task, net_answer answer) : server(task, answer, "connection") {}

    net_loop& loop() { return loop_; }
    bool echoes() const { return answer_ == net_answer::echo; }
    progress& work() { return work_; }
    /// Takes a connection that has left the loop; it is freed when no handler runs.
    void bury(connection* dead);

    int do_read() override;

private:
    int open() override;
    int wait() override;

    std::map<connection*, std::unique_ptr<connection>> connections_;
    std::vector<std::unique_ptr<connection>> dead_;
    bool has_refused_ = false;
};

class connection : public served_socket {
public:
    connection(stream_server& server, Socket& accepted, const SockAddr& peer)
        : served_socket(server.loop()), server_(server), peer_(peer)
    {
        socket_.attach(accepted.detach());
        socket_.set_async(true);
        socket_.set_nodelay(true);
    }

    /// False when the loop is full.
    bool begin() { return join(EV_READ); }
    int do_read() override;
    int do_write() override;

private:
    bool flush();
    int settle();
    int finish();

    stream_server& server_;
    SockAddr peer_;
    packet pending_;
    unsigned long long received_ = 0;
    bool is_at_end_ = false;
};

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
    want(events);
    return 0;
}

int connection::finish()
{
    leave();
    socket_.close();
    if (!server_.echoes())
        tell(peer_, received_);
    server_.bury(this);
    return -1;
}

int stream_server::open()
{
    const int r = socket_.create_server(task_.address);
    return r >= 0 ? socket_.listen(backlog) : r;
}

// A connection that cannot be accepted, for want of handles say, would keep the loop turning: it
// gets a pause from new ones, for one wait, while there are others to serve.
int stream_server::wait()
{
    const timeval second = { 1, 0 };
    const bool is_pause = std::exchange(has_refused_, false) && !connections_.empty();
    want(is_pause ? 0 : EV_READ);
    const int n = loop_.wait(is_pause ? &second : nullptr);
    dead_.clear();
    return n;
}

int stream_server::do_read()
{
    Socket accepted;
    SockAddr peer;
    has_refused_ = socket_.accept(accepted, &peer) < 0;
    if (has_refused_)
        return 0;
    auto fresh = std::make_unique<connection>(*this, accepted, peer);
    connection* const key = fresh.get();
    if (fresh->begin()) {
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

class datagram_server : public server {
public:
    datagram_server(net_task& task, net_answer answer) : server(task, answer, "datagram"), datagram_(1 << 16) {}

    int do_read() override;

private:
    int open() override;

    std::vector<char> datagram_;
};

int datagram_server::open()
{
    const int r = socket_.create(2, 2, 0);
    return r >= 0 ? socket_.bind(task_.address) : r;
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
