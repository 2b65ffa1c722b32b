// What `kro net` does once its words are read.
#ifndef STDKRO_KRO_NET_SERVICE_H
#define STDKRO_KRO_NET_SERVICE_H

#include "net_loop.h"

enum class net_transport { stream, datagram };
enum class net_answer { echo, nothing };

struct net_task {
    SockAddr address;
    net_transport transport = net_transport::stream;
    std::unique_ptr<net_loop> loop;
    /// Connections or datagrams to serve, 0 for no limit; round trips to make.
    int count = 0;
};

/// Serves the address. Each returns the exit status of the tool.
int serve(net_task& task, net_answer answer);
/// Sends standard input, and prints what comes back on a stream.
int send_input(net_task& task);
/// Measures round trips to an echo server.
int ping(net_task& task);

#endif
