// A connection of HTTP/1.1: reads requests and answers them in their order.
#include "client.h"

#include <cstring>
#include <ctime>

class http_client : public client {
public:
    http_client(server& of, unsigned handle, const SockAddr& peer)
        : client(of, handle, peer), request_(of.from.head, of.from.body) {}

private:
    void on_input() override;
    void on_late() override { fail(408); }
    void serve();
    void fail(int status, const share_str& fields = "");
    void answer(const char* status, const share_str& fields, const char* text, unsigned length);

    http_request request_;
};

std::unique_ptr<client> make_http_client(server& of, unsigned handle, const SockAddr& peer)
{
    return std::make_unique<http_client>(of, handle, peer);
}

static const char* text_of(int status)
{
    switch (status) {
    case 400: return "400 Bad Request";
    case 404: return "404 Not Found";
    case 405: return "405 Method Not Allowed";
    case 408: return "408 Request Timeout";
    case 411: return "411 Length Required";
    case 413: return "413 Content Too Large";
    case 431: return "431 Request Header Fields Too Large";
    default: return "500 Internal Server Error";
    }
}

// The present time as HTTP writes it.
static const char* date()
{
    static std::time_t last = 0;
    static char text[32];
    const std::time_t now = std::time(nullptr);
    if (now != last)
        std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", std::gmtime(&now));
    last = now;
    return text;
}

void http_client::on_input()
{
    while (may_go_on()) {
        const int r = request_.read(in_);
        if (r == http_request::incomplete)
            return;
        since_ = server_.now();
        if (r == http_request::complete) {
            serve();
            continue;
        }
        // What is behind it cannot be understood.
        server_.log.write(msg_refused, peer_, text_of(r));
        is_ending_ = true;
        in_.reset();
        fail(r);
    }
}

// list := word { ", " word }
static bool is_listed(const char* list, const share_str& word)
{
    for (const char* p = list; (p = std::strstr(p, word.c_str())); ++p)
        if ((p == list || p[-1] == ' ') && (p[word.length()] == ',' || !p[word.length()]))
            return true;
    return false;
}

void http_client::serve()
{
    ++server_.request_count;
    is_ending_ = !request_.keeps_alive || (server_.is_stopping && in_.count() == 0);
    const auto* const found = server_.pages.find(request_.path);
    if (!found)
        return fail(404);
    page& p = **found;
    if (!is_listed(p.methods.c_str(), request_.method))
        return fail(405, share_str::print_str("Allow: %s\r\n", p.methods.c_str()));
    p.render(request_) == 200 ? answer("200 OK", "", p.output.text.rptr(), p.output.text.count()) : fail(500);
}

void http_client::fail(int status, const share_str& fields)
{
    const char* const text = text_of(status);
    const share_str page = share_str::print_str("<!DOCTYPE html><title>%s</title><h1>%s</h1>\n", text, text);
    answer(text, fields, page.c_str(), page.length());
}

void http_client::answer(const char* status, const share_str& fields, const char* text, unsigned length)
{
    out_.print(1024, "HTTP/1.1 %s\r\nDate: %s\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: %u\r\n%s%s\r\n",
               status, date(), length, fields.c_str(), is_ending_ ? "Connection: close\r\n" : "");
    if (request_.method != "HEAD")
        out_.write(text, length);
}
