// A loop of libevent. In a source of its own: its header gives one of our names another meaning.
#ifndef STDKRO_BENCH_NET_PEER_LIBEVENT_H
#define STDKRO_BENCH_NET_PEER_LIBEVENT_H

class libevent_loop {
public:
    typedef void (*read_handler)(void* argument);

    /// `method` is one of libevent's: "select", "poll", "epoll".
    libevent_loop(const char* method, unsigned capacity);
    libevent_loop(const libevent_loop&) = delete;
    libevent_loop& operator=(const libevent_loop&) = delete;
    ~libevent_loop();

    /// Calls `handler` whenever the descriptor is readable.
    int add(int fd, read_handler handler, void* argument);
    void remove_and_add(int index);
    /// Waits and serves once.
    void wait();

private:
    struct events;
    events* events_;
};

#endif
