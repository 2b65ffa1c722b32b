// The three event loops behind one face, chosen by name.
#ifndef STDKRO_KRO_NET_LOOP_H
#define STDKRO_KRO_NET_LOOP_H

#include <stdkro/platform_types.h>
#include <stdkro/poller.h>

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
