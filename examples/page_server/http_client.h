// A connection of HTTP/1.1: reads requests and answers them in their order.
#pragma once
#include "connection.h"

class http_client : public connection {
public:
    http_client(common& c, unsigned h, const SockAddr& peer) : connection(c, h, peer), request_(c.from) {}

private:
    void on_late() override { fail("408 Request Timeout"); }
    bool on_input() override {
        const char* const status = request_.read(in_);
        if (status == ok) {
            serve();
        } else if (status == go_on) { // which takes none of the time of the request
            return out_.print(99, "HTTP/1.1 %s\r\n\r\n", status), false;
        } else if (status) {
            is_ending_ = true; // what is behind it cannot be understood
            common_.log.write(msg_refused, peer_.c_str(), status);
            fail(status);
        }
        return status != nullptr;
    }
    void serve() {
        ++common_.request_count;
        is_ending_ = !request_.keeps_alive || (common_.is_stopping() && in_.count() == 0);
        const auto* const found = common_.pages.find(request_.path);
        if (!found)
            return fail("404 Not Found");
        page& p = **found;
        if (!p.allows(request_.method))
            return fail("405 Method Not Allowed", (share_str("Allow: ") += p.methods) += "\r\n");
        p.render(request_) ? answer(ok, { p.out.rptr(), p.out.count() }) : fail("500 Internal Server Error");
    }
    void fail(const char* status, const share_str& fields = "") {
        const char* const form = "<!DOCTYPE html><title>%s</title><h1>%s</h1>\n";
        answer(status, share_str::print_str(form, status, status).c_str(), fields);
    }
    void answer(const char* status, std::string_view text, const share_str& fields = "") {
        const std::time_t now = std::time(nullptr);
        char date[32];
        std::strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", std::gmtime(&now));
        out_.print(1024 + fields.length(), "HTTP/1.1 %s\r\nDate: %s\r\nContent-Type: text/html; charset="
                                           "utf-8\r\nContent-Length: %u\r\n%s%s\r\n", status, date,
                   unsigned(text.size()), fields.c_str(), is_ending_ ? "Connection: close\r\n" : "");
        if (request_.method != "HEAD")
            out_.write(text.data(), unsigned(text.size()));
    }
    http_request request_;
};
