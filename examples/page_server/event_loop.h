// The three event loops of the library behind one face.
#pragma once
#include <stdkro/platform_types.h>
#include <stdkro/poller.h>
#include <functional>
#include <memory>

struct event_loop {
    std::function<int(fdbase& object, int events)> add;
    std::function<int(int index)> remove;
    std::function<int(int index, int events)> set_events;
    std::function<int(const timeval* limit)> wait;
};

template <class kind> event_loop make_loop(unsigned capacity)
{
    const auto loop = std::make_shared<kind>(capacity);
    return { [=](fdbase& object, int events) { return loop->add(object, events); },
             [=](int index) { return loop->remove(index); },
             [=](int index, int events) { return loop->set_events(index, events); },
             [=](const timeval* limit) { return loop->wait(limit); } };
}
