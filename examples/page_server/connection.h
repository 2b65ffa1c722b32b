// A client that never blocks: what has come, what is to be sent, and a time limit.
#pragma once
#include "server.h"

class connection : public client {
public:
    connection(server& of, unsigned handle, const SockAddr& peer) : server_(of), peer_(peer.get_addr()), socket_(handle) {
        socket_.set_async(true);
        socket_.set_nodelay(true);
    }
    int join() override { return index_ = server_.loop.add(*this, events_); }
    int get_fd() override { return int(socket_.get_socket()); }
    int get_events(int& events) override { return events = events_, get_fd(); }
    int do_read() override {
        constexpr unsigned block = 1 << 14;
        const int n = in_.reserved(block) > 0 ? socket_.receive(in_.wptr(), block) : err::out_of_memory;
        is_at_end_ = n == err::shut_up;
        in_.wmove(std::max(n, 0));
        if (phase_ == draining)
            in_.reset();
        return n < 0 && !is_at_end_ ? finish() : proceed();
    }
    int do_write() override { return send() < 0 ? finish() : proceed(); }
    // However much comes or goes meanwhile, each phase ends in time.
    void on_tick() override {
        const int limits[] = { server_.from.idle, server_.from.request, server_.from.answer, 2 }; // ORDER phase_
        if (server_.clock.spend() - since_ < limits[phase_] * 1000)
            return;
        if (phase_ == reading || phase_ == answering)
            server_.log.write(msg_dropped, peer_, get_err_info(err::timeout));
        is_ending_ = true;
        phase_ == reading ? on_late(), do_write() : finish();
    }
    void on_stop() override { phase_ == idle ? finish() : 0; }

protected:
    virtual void on_input() = 0; ///< handles what it can of `in_`, while `may_go_on`
    virtual void on_late() {}    ///< what was begun has not come in time
    /// While the peer does not take its answers no more of them are made.
    bool may_go_on() const { return !is_ending_ && out_.count() < 1 << 18; }

    server& server_;
    const share_str peer_;
    packet in_, out_;
    bool is_ending_ = false;               // closes when all is sent
    double since_ = server_.clock.spend(); // when the present phase began

private:
    int send() {
        const int n = out_.count() > 0 ? socket_.send(out_.rptr(), out_.count()) : 0;
        out_.rmove(std::max(n, 0));
        return n;
    }
    // Works and sends. What stays in out_ is sent when the loop says so; what stays in in_ is handled then.
    int proceed() {
        for (int n = 1; n > 0 && out_.count() == 0 && !is_ending_ && in_.count() > 0; n = send())
            on_input();
        for (packet* p : { &in_, &out_ })
            if (p->count() == 0)
                p->capacity() > 1 << 16 ? p->clear() : p->reset();
        const bool is_done = is_at_end_ || (server_.is_stopping && in_.count() == 0 && !is_ending_);
        return out_.count() == 0 && is_done ? finish() : settle();
    }
    // Asks the loop for what is of use now, and starts the time of a new phase.
    int settle() {
        // A socket closed before all was received would take the answer back from its peer: it is drained.
        const auto now = out_.count() > 0 ? answering : is_ending_ ? draining : in_.count() > 0 ? reading : idle;
        if (now == draining && phase_ != draining)
            socket_.shutdown(1);
        since_ = now != phase_ ? server_.clock.spend() : since_;
        phase_ = now;
        const bool reads = !is_at_end_ && (now == draining || may_go_on());
        const int events = (reads ? EV_READ : 0) | (now == answering ? EV_WRITE : 0);
        return events == events_ ? 0 : server_.loop.set_events(index_, events_ = events);
    }
    int finish() {
        if (index_ >= 0)
            server_.bury(index_);
        return index_ = -1;
    }
    Socket socket_;
    int index_ = -1, events_ = EV_READ;
    enum { idle, reading, answering, draining } phase_ = idle;
    bool is_at_end_ = false;
};
