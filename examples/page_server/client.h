// A connection that never blocks: what has come, what is to be sent, and a time limit.
#pragma once
#include "server.h"

class client : public fdbase {
public:
    client(server& of, unsigned handle, const SockAddr& peer);
    /// The index in the loop; negative when it is full.
    int join() { return index_ = server_.loop.add(*this, events_); }
    void on_tick();
    void on_stop();
    int get_fd() override { return static_cast<int>(socket_.get_socket()); }
    int get_events(int& events) override { return events = events_, get_fd(); }
    int do_read() override;
    int do_write() override;

protected:
    /// Handles what it can of `in_`, while `may_go_on`.
    virtual void on_input() = 0;
    /// What was begun was not there in time.
    virtual void on_late() {}
    /// While the peer does not take its answers no more of them are made.
    bool may_go_on() const { return !is_ending_ && out_.count() < 1 << 18; }

    server& server_;
    const share_str peer_;
    packet in_, out_;
    bool is_ending_ = false; // closes when all is sent
    double since_;           // when the present phase began

private:
    int proceed();
    int settle();
    int finish();

    Socket socket_;
    int index_ = -1, events_ = EV_READ;
    enum { idle, reading, answering, draining } phase_ = idle;
    bool is_at_end_ = false;
};
