// The sinks and the debug channel.
#include <stdkro/writer.h>

#include <stdkro/platform_types.h>

#include "gbk_texts.h"
#include "platform.h"
#include "text_format.h"

#include <cstring>
#include <ctime>
#include <new>

namespace {

// "******begin:2026/02/03-04:05:06*****" and a line feed.
void put_banner(std::FILE* file, const char* word)
{
    sys_date now = {};
    sys_local_time(std::time(nullptr), &now);
    std::fprintf(file, "******%s:%4d/%02d/%02d-%02d:%02d:%02d*****\n", word, now.year + 1900, now.month + 1,
                 now.day, now.hour, now.minute, now.second);
}

} // namespace

writer::~writer() {}

void con_writer::write(const char* text)
{
    if (!text)
        return;
    std::fputs(text, stderr);
    std::fflush(stderr);
}

bool con_writer::is_valid() const { return true; }

file_writer::file_writer() : file_(nullptr)
{
    sys_date now = {};
    sys_local_time(std::time(nullptr), &now);
    char name[64];
    std::snprintf(name, sizeof name, ".%cdbg%02d%02d.txt", sys_path_separator, now.month + 1, now.day);
    open(name, "a+");
}

file_writer::file_writer(const char* path, const char* mode) : file_(nullptr)
{
    open(path ? path : "", mode ? mode : "");
}

void file_writer::open(const char* path, const char* mode)
{
    file_ = *path && *mode ? std::fopen(path, mode) : nullptr;
    if (!file_) {
        std::printf("error: create debug information file [%s] failed, mode is [%s]\n", path, mode);
        return;
    }
    put_banner(file_, "begin");
    std::fflush(file_);
}

file_writer::~file_writer()
{
    if (!file_)
        return;
    put_banner(file_, "end");
    std::fclose(file_);
}

void file_writer::write(const char* text)
{
    if (!file_ || !text)
        return;
    std::fputs(text, file_);
    std::fflush(file_);
}

bool file_writer::is_valid() const { return file_ != nullptr; }

udp_writer::udp_writer() : udp_writer("127.0.0.1", 7906) {}

udp_writer::udp_writer(const char* host, int port) : socket_(sys_no_socket)
{
    sockaddr_in target = {};
    static_assert(sizeof target == sizeof target_, "room for the platform's address");
    const unsigned address = sys_read_address(host ? host : "");
    const unsigned char port_bytes[2] = { static_cast<unsigned char>(port >> 8), static_cast<unsigned char>(port) };
    target.sin_family = 2;
    std::memcpy(&target.sin_addr, &address, sizeof address);
    std::memcpy(&target.sin_port, port_bytes, sizeof port_bytes);
    std::memcpy(target_, &target, sizeof target);
    create_socket();
}

udp_writer::~udp_writer() { sys_socket_close(socket_); }

void udp_writer::create_socket()
{
    if (socket_ != sys_no_socket)
        return;
    socket_ = sys_socket_open(2, 2, 0);
    if (socket_ == sys_no_socket)
        std::printf("error: %s\n", gbk::udp_socket_failed);
}

void udp_writer::write(const char* text)
{
    if (socket_ == sys_no_socket || !text)
        return;
    sockaddr_in target;
    std::memcpy(&target, target_, sizeof target);
    sys_socket_send_to(socket_, text, static_cast<unsigned>(std::strlen(text)), &target);
}

bool udp_writer::is_valid() const { return socket_ != sys_no_socket; }

mixed_writer::mixed_writer(int mask) : slots_() { open(mask); }

mixed_writer::~mixed_writer() { close(65535); }

void mixed_writer::write(const char* text)
{
    for (writer* sink : slots_)
        if (sink)
            sink->write(text);
}

bool mixed_writer::is_valid() const { return true; }

// The order shows where sinks tell on standard output that they could not open. Each old sink is
// deleted first: its file may be the same one.
void mixed_writer::open(int mask)
{
    close(mask & 1);
    if (mask & 1)
        put(0, new (std::nothrow) con_writer);
    close(mask & 4);
    if (mask & 4)
        put(2, new (std::nothrow) udp_writer);
    close(mask & 2);
    if (mask & 2)
        put(1, new (std::nothrow) file_writer);
}

bool mixed_writer::open(int mask, writer* sink)
{
    for (unsigned slot = 0; slot < slot_count; ++slot) {
        if ((mask & 1 << slot) == 0 || slots_[slot] == sink)
            continue;
        put(slot, sink);
        return true;
    }
    return false;
}

bool mixed_writer::open_udp(const char* host, int port)
{
    put(2, nullptr);
    put(2, new (std::nothrow) udp_writer(host, port));
    return slots_[2] && slots_[2]->is_valid();
}

bool mixed_writer::open_file(const char* path, const char* mode)
{
    put(1, nullptr);
    put(1, new (std::nothrow) file_writer(path, mode));
    return slots_[1] && slots_[1]->is_valid();
}

void mixed_writer::close(int mask)
{
    for (unsigned slot = 0; slot < slot_count; ++slot)
        if (mask & 1 << slot)
            put(slot, nullptr);
}

// Deletes the slot's sink unless another slot holds it too.
void mixed_writer::put(unsigned slot, writer* sink)
{
    writer* const old = slots_[slot];
    slots_[slot] = sink;
    for (const writer* other : slots_)
        if (other == old)
            return;
    delete old;
}

// The channel and its mixed sink are never destroyed, only emptied: destructors of
// other statics may still write, and find no sink.
struct DBGDC::instance {
    instance() : channel(new (channel_place) DBGDC(new (sinks_place) mixed_writer(1))) {}
    ~instance() { channel->writer_->close(65535); }

    alignas(mixed_writer) static unsigned char sinks_place[sizeof(mixed_writer)];
    static unsigned char channel_place[];
    DBGDC* const channel;
};

alignas(mixed_writer) unsigned char DBGDC::instance::sinks_place[sizeof(mixed_writer)];
alignas(DBGDC) unsigned char DBGDC::instance::channel_place[sizeof(DBGDC)];

DBGDC& DBGDC::dc()
{
    static const instance only;
    return *only.channel;
}

void DBGDC::write(const char* text) { writer_->write(text); }

void DBGDC::print(const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    vprint(fmt, arguments);
    va_end(arguments);
}

void DBGDC::vprint(const char* fmt, va_list arguments)
{
    if (!fmt)
        return;
    char text[1024 + 1];
    format_bounded(text, sizeof text, fmt, arguments);
    write(text);
}

namespace {

const char stars[] = "***********************************************\n";

} // namespace

void DBGDC::warning(const char* title, const char* file, int line, const char* message)
{
    warning(title, file, line, message, message);
}

void DBGDC::warning(const char* title, const char* file, int line, const char* message, const char* detail)
{
    print("%s", stars);
    print("%s: %s\n", title, message);
    print("%s(%d): %s\n", file, line, detail);
    print("%s", stars);
}
