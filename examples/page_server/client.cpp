#include "client.h"

client::client(server& of, unsigned handle, const SockAddr& peer)
    : server_(of), peer_(peer.get_addr()), since_(of.now()), socket_(handle)
{
    socket_.set_async(true);
    socket_.set_nodelay(true);
}

int client::do_read()
{
    constexpr unsigned block = 1 << 14;
    const int n = in_.reserved(block) > 0 ? socket_.receive(in_.wptr(), block) : err::out_of_memory;
    is_at_end_ = n == err::shut_up;
    if (n < 0 && !is_at_end_)
        return finish();
    in_.wmove(n > 0 ? n : 0);
    if (phase_ == draining)
        in_.reset();
    return proceed();
}

int client::do_write()
{
    const int n = out_.count() > 0 ? socket_.send(out_.rptr(), out_.count()) : 0;
    out_.rmove(n > 0 ? n : 0);
    return n < 0 ? finish() : proceed();
}

// Works and sends. What stays in out_ is sent when the loop says so; what stays in in_ is handled then.
int client::proceed()
{
    for (int n = 1; n > 0 && out_.count() == 0 && !is_ending_ && in_.count() > 0;) {
        on_input();
        n = out_.count() > 0 ? socket_.send(out_.rptr(), out_.count()) : 0;
        out_.rmove(n > 0 ? n : 0);
    }
    return settle();
}

// Asks the loop for what is of use now, and starts the time of a new phase.
int client::settle()
{
    for (packet* p : { &in_, &out_ })
        if (p->count() == 0)
            p->capacity() > 1 << 16 ? p->clear() : p->reset();
    if (out_.count() == 0 && (is_at_end_ || (server_.is_stopping && in_.count() == 0 && !is_ending_)))
        return finish();
    // A socket closed before all was received would take the answer back from its peer: it is drained.
    const auto now = out_.count() > 0 ? answering : is_ending_ ? draining : in_.count() > 0 ? reading : idle;
    if (now == draining && phase_ != draining)
        socket_.shutdown(1);
    if (now != phase_)
        since_ = server_.now();
    phase_ = now;
    const bool reads = !is_at_end_ && (now == draining || may_go_on());
    const int events = (reads ? EV_READ : 0) | (now == answering ? EV_WRITE : 0);
    if (events != events_)
        server_.loop.set_events(index_, events);
    events_ = events;
    return 0;
}

// However much comes or goes meanwhile, each phase ends in time.
void client::on_tick()
{
    const int limits[] = { server_.from.idle, server_.from.request, server_.from.answer, 2 }; // ORDER phase_
    if (server_.now() - since_ < limits[phase_])
        return;
    if (phase_ == reading || phase_ == answering)
        server_.log.write(msg_dropped, peer_, get_err_info(err::timeout));
    is_ending_ = true;
    if (phase_ == reading)
        on_late();
    phase_ == reading ? do_write() : finish();
}

void client::on_stop()
{
    if (phase_ == idle)
        finish();
}

int client::finish()
{
    if (index_ >= 0)
        server_.bury(index_);
    return index_ = -1;
}
