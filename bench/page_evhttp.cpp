// The peer of tools/page_bench.sh: one page by libevent's HTTP server.
//
//     page_evhttp FILE       prints "http 127.0.0.1:PORT" and serves FILE as /static
#include <event2/buffer.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/keyvalq_struct.h>

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

static void answer(evhttp_request* request, void* text)
{
    const std::string& page = *static_cast<std::string*>(text);
    evbuffer* const body = evbuffer_new();
    evbuffer_add(body, page.data(), page.size());
    evhttp_add_header(evhttp_request_get_output_headers(request), "Content-Type", "text/html; charset=utf-8");
    evhttp_send_reply(request, 200, "OK", body);
    evbuffer_free(body);
}

int main(int argc, char** argv)
{
    std::ifstream file(argc == 2 ? argv[1] : "");
    std::string page(std::istreambuf_iterator<char>(file), {});
    event_base* const base = event_base_new();
    evhttp* const server = evhttp_new(base);
    evhttp_set_cb(server, "/static", answer, &page);
    evhttp_bound_socket* const bound = evhttp_bind_socket_with_handle(server, "127.0.0.1", 0);
    if (page.empty() || !bound)
        return 1;
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(evhttp_bound_socket_get_fd(bound), reinterpret_cast<sockaddr*>(&address), &size);
    std::printf("http 127.0.0.1:%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return event_base_dispatch(base);
}
