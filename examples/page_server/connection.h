// A client that never blocks: what has come, what is to be sent, and a time limit for each phase.
#pragma once
#include "channel.h"

class connection : public channel {
public:
    connection(common& c, unsigned h, const SockAddr& peer) : channel(c, h), peer_(peer.get_addr()) {
        socket_.set_async(true);
        socket_.set_nodelay(true);
    }
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
    // However much comes or goes meanwhile, each phase ends in time; an idle one also when the server stops.
    void on_tick() override {
        int most[] = { common_.from.idle, common_.from.request, common_.from.answer, 2 }; // ORDER phase_
        if (common_.clock.spend() - since_ < 1e3 * most[phase_] && !(phase_ == idle && common_.is_stopping()))
            return;
        if (phase_ == reading || phase_ == answering)
            common_.log.write(msg_dropped, peer_.c_str(), get_err_info(err::timeout));
        is_ending_ = true;
        phase_ == reading ? on_late(), do_write() : finish();
    }

protected:
    virtual bool on_input() = 0; ///< handles what comes first in `in_`; false when it is not all there
    virtual void on_late() {}    ///< what was begun has not come in time

    const share_str peer_;
    packet in_, out_;
    bool is_ending_ = false; // closes when all is sent

private:
    int send() {
        const int n = out_.count() > 0 ? socket_.send(out_.rptr(), out_.count()) : 0;
        out_.rmove(std::max(n, 0));
        return n;
    }
    // While the peer does not take its answers no more of them are made.
    bool may_go_on() const { return !is_ending_ && out_.count() < 1 << 18; }
    // Works and sends. What stays in out_ is sent when the loop says so; what stays in in_ is handled then.
    int proceed() {
        for (int n = 1; n > 0 && out_.count() == 0; n = send())
            while (may_go_on() && on_input())
                since_ = common_.clock.spend();
        for (packet* p : { &in_, &out_ })
            if (p->count() == 0)
                p->capacity() > 1 << 16 ? p->clear() : p->reset();
        is_ending_ |= common_.is_stopping() && in_.count() == 0 && out_.count() == 0;
        return out_.count() == 0 && is_at_end_ ? finish() : settle();
    }
    // Asks the loop for what is of use now, and starts the time of a new phase.
    int settle() {
        // A socket closed before all was received would take the answer back from its peer: it is drained.
        const auto now = out_.count() ? answering : is_ending_ ? draining : in_.count() ? reading : idle;
        if (now == draining && phase_ != draining)
            socket_.shutdown(1);
        since_ = std::exchange(phase_, now) != now ? common_.clock.spend() : since_;
        const bool reads = !is_at_end_ && (now == draining || may_go_on());
        return watch((reads ? EV_READ : 0) | (now == answering ? EV_WRITE : 0));
    }
    enum { idle, reading, answering, draining } phase_ = idle;
    double since_ = common_.clock.spend(); // when the phase, or the present request, began
    bool is_at_end_ = false;
};
