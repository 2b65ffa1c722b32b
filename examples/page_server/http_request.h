// Reads HTTP/1.1 requests from the front of a packet, each as far as it has come.
#pragma once
#include <stdkro/socket.h>

class http_request {
public:
    enum { incomplete = 0, complete = 1 };

    /// The most bytes of a head and of a body.
    http_request(int most_head, int most_body) : most_head_(unsigned(most_head)), most_body_(unsigned(most_body)) {}
    /// Takes a whole request out of `in`; otherwise `incomplete`, or the HTTP status that refuses
    /// it: then nothing more can be read.
    int read(packet& in);

    share_str method, path, query, body;
    bool keeps_alive = false;

private:
    int read_head(const packet& in);
    int read_request_line(const char* b, const char* e);
    int read_field(const char* b, const char* e);

    const unsigned most_head_, most_body_;
    enum { at_start, in_fields, in_body } stage_ = at_start;
    unsigned scanned_ = 0; // bytes of the head that were read
    int hosts_ = 0, least_hosts_ = 1;
    unsigned long long length_ = 0;
};

/// Appends text in which "%41" stands for "A" and "+" for `plus`. False for a bad escape.
bool append_decoded(share_str& to, const char* b, const char* e, char plus);
