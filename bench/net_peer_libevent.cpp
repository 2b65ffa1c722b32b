#include "net_peer_libevent.h"

#include <event2/event.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

struct libevent_loop::events {
    struct registration {
        read_handler handler;
        void* argument;
        event* readable;
    };
    event_base* base;
    std::vector<std::unique_ptr<registration>> registrations;
};

namespace {

// The base that waits by this method and no other.
event_base* base_of(const char* method)
{
    event_config* const config = event_config_new();
    const char** const methods = event_get_supported_methods();
    for (int i = 0; methods[i]; ++i)
        if (std::strcmp(methods[i], method) != 0)
            event_config_avoid_method(config, methods[i]);
    event_base* const base = event_base_new_with_config(config);
    event_config_free(config);
    if (!base || std::strcmp(event_base_get_method(base), method) != 0) {
        std::fprintf(stderr, "net_bench: libevent has no %s\n", method);
        std::exit(1);
    }
    return base;
}

} // namespace

libevent_loop::libevent_loop(const char* method, unsigned capacity) : events_(new events { base_of(method), {} })
{
    events_->registrations.reserve(capacity);
}

libevent_loop::~libevent_loop()
{
    for (const auto& r : events_->registrations)
        event_free(r->readable);
    event_base_free(events_->base);
    delete events_;
}

int libevent_loop::add(int fd, read_handler handler, void* argument)
{
    std::unique_ptr<events::registration> r(new events::registration { handler, argument, nullptr });
    const auto call = [](evutil_socket_t, short, void* self) {
        const auto* const registered = static_cast<events::registration*>(self);
        registered->handler(registered->argument);
    };
    r->readable = event_new(events_->base, fd, EV_READ | EV_PERSIST, call, r.get());
    event_add(r->readable, nullptr);
    events_->registrations.push_back(std::move(r));
    return static_cast<int>(events_->registrations.size()) - 1;
}

void libevent_loop::remove_and_add(int index)
{
    event* const readable = events_->registrations[static_cast<unsigned>(index)]->readable;
    event_del(readable);
    event_add(readable, nullptr);
}

void libevent_loop::wait() { event_base_loop(events_->base, EVLOOP_ONCE); }
