// A connection of HTTP/1.1: reads requests and answers them in their order.
#pragma once
#include "connection.h"
#include <cstdlib>
#include <ctime>

class http_client : public connection {
public:
    http_client(server& of, unsigned handle, const SockAddr& peer)
        : connection(of, handle, peer), request_(of.from.head, of.from.body) {}

private:
    void on_late() override { fail(408); }
    void on_input() override {
        for (int r; may_go_on() && (r = request_.read(in_)) != http_request::incomplete;) {
            since_ = server_.clock.spend();
            if (r == http_request::complete) {
                serve();
                continue;
            }
            is_ending_ = true;
            in_.reset(); // what is behind it cannot be understood
            server_.log.write(msg_refused, peer_, text_of_status(r));
            fail(r);
        }
    }
    void serve() {
        ++server_.request_count;
        is_ending_ = !request_.keeps_alive || (server_.is_stopping && in_.count() == 0);
        const auto* const found = server_.pages.find(request_.path);
        if (!found)
            return fail(404);
        page& p = **found;
        if (!p.allows(request_.method))
            return fail(405, share_str::print_str("Allow: %s\r\n", p.methods.c_str()));
        p.render(request_) == 200 ? answer(200, "", p.output.text.rptr(), p.output.text.count()) : fail(500);
    }
    void fail(int status, const share_str& fields = "") {
        const char* const text = text_of_status(status);
        const share_str page = share_str::print_str("<!DOCTYPE html><title>%s</title><h1>%s</h1>\n", text, text);
        answer(status, fields, page.c_str(), page.length());
    }
    void answer(int status, const share_str& fields, const char* text, unsigned length) {
        const std::time_t now = std::time(nullptr);
        char date[32];
        std::strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", std::gmtime(&now));
        out_.print(1024, "HTTP/1.1 %s\r\nDate: %s\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: %u\r\n%s%s\r\n",
                   text_of_status(status), date, length, fields.c_str(), is_ending_ ? "Connection: close\r\n" : "");
        if (request_.method != "HEAD")
            out_.write(text, length);
    }
    static const char* text_of_status(int status) {
        static const char* const texts[] = { "200 OK", "400 Bad Request", "404 Not Found", "405 Method Not Allowed",
            "408 Request Timeout", "411 Length Required", "413 Content Too Large", "431 Request Header Fields Too Large" };
        for (const char* text : texts)
            if (std::atoi(text) == status)
                return text;
        return "500 Internal Server Error";
    }
    http_request request_;
};
