// The clients of `kro net`.
#include "command.h"
#include "console.h"
#include "net_service.h"
#include "progress.h"

#include <stdkro/thread.h>
#include <stdkro/xcpt.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

namespace {

int connect_to(const net_task& task, Socket& socket)
{
    const int type = task.transport == net_transport::stream ? 1 : 2;
    const int r = socket.create(2, type, 0);
    return r >= 0 ? socket.connect(task.address) : r;
}

// Waits for standard input and takes what is there, at most `size` bytes; 0 at its end.
unsigned read_input(char* dst, unsigned size)
{
    std::streambuf& input = *std::cin.rdbuf();
    if (input.sgetc() == std::char_traits<char>::eof())
        return 0;
    const std::streamsize there = std::max<std::streamsize>(input.in_avail(), 1);
    return static_cast<unsigned>(input.sgetn(dst, std::min<std::streamsize>(there, size)));
}

// Sends and receives at once: an echo of a long text would fill both directions.
class sender : public served_socket {
public:
    sender(net_loop& loop, progress& work) : served_socket(loop), work_(work) {}

    int run(const net_task& task);
    int do_read() override;
    int do_write() override;

private:
    int end(int code)
    {
        result_ = code;
        is_over_ = true;
        return -1;
    }

    progress& work_;
    packet pending_;
    int result_ = 0;
    bool is_over_ = false;
    bool is_sent_ = false;
};

int sender::do_read()
{
    char block[1 << 16];
    const int n = socket_.receive(block, sizeof block);
    if (n < 0)
        return end(is_sent_ && n == err::shut_up ? 0 : n);
    before_output();
    std::fwrite(block, 1, static_cast<std::size_t>(n), stdout);
    std::fflush(stdout);
    return 0;
}

int sender::do_write()
{
    if (is_sent_)
        return 0;
    if (pending_.count() == 0) {
        pending_.reset();
        char block[1 << 14];
        pending_.write(block, read_input(block, sizeof block));
    }
    if (pending_.count() == 0) {
        is_sent_ = true;
        socket_.shutdown(1);
        want(EV_READ);
        return 0;
    }
    const int n = socket_.send(pending_.rptr(), pending_.count());
    if (n < 0)
        return end(n);
    pending_.rmove(n);
    work_.add(0, static_cast<unsigned>(n));
    return 0;
}

int sender::run(const net_task& task)
{
    int r = connect_to(task, socket_);
    if (r >= 0)
        r = socket_.set_async(true);
    if (r < 0)
        return r;
    join(EV_READ | EV_WRITE);
    while (!is_over_)
        if (loop_.wait(nullptr) < 0)
            return err::network;
    leave();
    return result_;
}

// Each line becomes a datagram, without its end.
int send_datagrams(const net_task& task, progress& work)
{
    work.counts("datagram");
    Socket socket;
    int r = connect_to(task, socket);
    for (std::string line; r >= 0 && std::getline(std::cin, line);) {
        r = socket.send(line.data(), static_cast<unsigned>(line.size()));
        work.add(1, line.size());
    }
    return r;
}

struct ping_message {
    unsigned number;
    char filling[60];
};

// Waits for the answers of an echo server.
class pinger : public served_socket {
public:
    explicit pinger(net_task& task) : served_socket(*task.loop), task_(task) {}
    ~pinger() override { leave(); }

    int open();
    /// Sends a message and waits for it to come back. 0, 0x8002000C, or another code.
    int round_trip(unsigned number);
    int do_read() override;

private:
    bool is_back() const { return has_failed() || answer_.count() == sizeof(ping_message); }
    bool has_failed() const { return result_ < 0; }

    net_task& task_;
    packet answer_;
    ping_message message_ = {};
    int result_ = 0;
};

int pinger::open()
{
    int r = connect_to(task_, socket_);
    if (r >= 0 && task_.transport == net_transport::stream)
        r = socket_.set_nodelay(true);
    if (r < 0)
        return r;
    join(EV_READ);
    return 0;
}

int pinger::round_trip(unsigned number)
{
    message_.number = number;
    answer_.reset();
    result_ = socket_.send_n(&message_, sizeof message_);
    const timeval patience = { 2, 0 };
    while (!is_back()) {
        const int n = loop_.wait(&patience);
        if (n <= 0)
            return n == 0 ? err::timeout : err::network;
    }
    return std::min(result_, 0);
}

int pinger::do_read()
{
    answer_.reserved(sizeof message_);
    result_ = socket_.receive(answer_.wptr(), static_cast<unsigned>(sizeof message_) - answer_.count());
    if (has_failed())
        return result_;
    answer_.wmove(result_);
    // A datagram may be the late answer to an earlier message.
    if (answer_.count() == sizeof message_ && std::memcmp(answer_.rptr(), &message_, sizeof message_) != 0)
        answer_.reset();
    return 0;
}

// Makes the round trips and notes how long each took; a lost datagram took none.
int measure(net_task& task, std::vector<double>& spans)
{
    progress work("measuring");
    work.counts("round trip");
    pinger client(task);
    const int opened = client.open();
    if (opened < 0)
        return opened;
    timer watch;
    for (int i = 0; i < task.count; ++i) {
        work.reached(static_cast<unsigned>(i), static_cast<unsigned>(task.count));
        watch.reset();
        const int r = client.round_trip(static_cast<unsigned>(i));
        const double span = watch.spend();
        if (r >= 0)
            spans.push_back(span);
        else if (r != err::timeout || task.transport == net_transport::stream)
            return r;
        work.add(r >= 0 ? 1 : 0, 0);
    }
    return 0;
}

int report(int code) { return code < 0 ? report_error(code) : exit_success; }

} // namespace

int send_input(net_task& task)
{
    // With a buffer of its own the stream gives what is there without waiting for more.
    std::ios::sync_with_stdio(false);
    progress work("sending");
    const lent_terminal typing(is_typed_input());
    const bool is_stream = task.transport == net_transport::stream;
    const int r = is_stream ? sender(*task.loop, work).run(task) : send_datagrams(task, work);
    return report(r);
}

int ping(net_task& task)
{
    std::vector<double> spans;
    const int r = measure(task, spans);
    if (r < 0)
        return report_error(r);
    std::printf("%d of %d came back\n", static_cast<int>(spans.size()), task.count);
    if (spans.empty())
        return report_error(err::timeout);
    std::sort(spans.begin(), spans.end());
    const std::size_t n = spans.size();
    std::printf("minimum %.3f ms\nmedian %.3f ms\n99th percentile %.3f ms\n", spans[0], spans[n / 2],
                spans[(n * 99 + 99) / 100 - 1]);
    return exit_success;
}
