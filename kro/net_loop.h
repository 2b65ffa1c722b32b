// The three event loops behind one face, chosen by name, and the sockets that they serve.
#ifndef STDKRO_KRO_NET_LOOP_H
#define STDKRO_KRO_NET_LOOP_H

#include <stdkro/platform_types.h>
#include <stdkro/poller.h>
#include <stdkro/socket.h>

#include <memory>
#include <string>

class net_loop {
public:
    virtual ~net_loop() = default;
    virtual int add(fdbase& object, int events) = 0;
    virtual int remove(int index) = 0;
    virtual int set_events(int index, int events) = 0;
    virtual int wait(const timeval* limit) = 0;
};

template <class kind> class net_loop_of : public net_loop {
public:
    int add(fdbase& object, int events) override { return loop_.add(object, events); }
    int remove(int index) override { return loop_.remove(index); }
    int set_events(int index, int events) override { return loop_.set_events(index, events); }
    int wait(const timeval* limit) override { return loop_.wait(limit); }

private:
    kind loop_;
};

/// A socket and its place in a loop.
class served_socket : public fdbase {
public:
    int get_fd() override { return static_cast<int>(socket_.get_socket()); }
    int get_events(int& events) override
    {
        events = events_;
        return get_fd();
    }

protected:
    explicit served_socket(net_loop& loop) : loop_(loop) {}

    /// False when the loop is full.
    bool join(int events)
    {
        events_ = events;
        index_ = loop_.add(*this, events);
        return index_ >= 0;
    }
    void leave() { loop_.remove(index_); }
    void want(int events)
    {
        if (events != events_)
            loop_.set_events(index_, events);
        events_ = events;
    }

    net_loop& loop_;
    Socket socket_;

private:
    int events_ = 0;
    int index_ = -1;
};

/// Null for an unknown name.
inline std::unique_ptr<net_loop> make_loop(const std::string& name)
{
    if (name == "selector")
        return std::make_unique<net_loop_of<selector>>();
    if (name == "poller")
        return std::make_unique<net_loop_of<poller>>();
    if (name == "epoller")
        return std::make_unique<net_loop_of<epoller>>();
    return nullptr;
}

#endif
