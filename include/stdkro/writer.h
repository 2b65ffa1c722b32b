// Where finished log lines go: the console, a file, a UDP receiver, or several of
// them; and `DBGDC`, the debug channel of the process.
//
// A sink never fails its caller: one that could not open stays invalid and its
// `write` does nothing, and a write that fails is not reported. Sinks add nothing to
// a text; line ends are the caller's. Nothing here locks.
#ifndef STDKRO_WRITER_H
#define STDKRO_WRITER_H

#include <stdkro/config.h>

#include <cstdarg>
#include <cstdio>

/// A sink. Derive from it for one of your own.
class KRO_API writer {
public:
    virtual ~writer();
    /// Puts out the text, which is terminated. Null is nothing.
    virtual void write(const char* text) = 0;
    /// False for a sink that could not open.
    virtual bool is_valid() const = 0;
};

/// The standard error stream, flushed after each text.
class KRO_API con_writer : public writer {
public:
    con_writer() {}
    void write(const char* text) override;
    bool is_valid() const override;
};

/// A file, flushed after each text. It begins and ends with a banner of the local
/// time; a file that cannot be opened is told on standard output.
class KRO_API file_writer : public writer {
public:
    /// Appends to "dbgMMDD.txt" (month and day) in the current folder.
    file_writer();
    /// `mode` is fopen's.
    file_writer(const char* path, const char* mode);
    file_writer(const file_writer&) = delete;
    file_writer& operator=(const file_writer&) = delete;
    ~file_writer() override;

    void write(const char* text) override;
    bool is_valid() const override;

private:
    void open(const char* path, const char* mode);

    std::FILE* file_; // null when opening failed
};

/// A UDP receiver: one datagram for each text, without its terminator. The program
/// starts the socket library where the platform wants it started.
class KRO_API udp_writer : public writer {
public:
    /// To 127.0.0.1, port 7906.
    udp_writer();
    /// `host` is an address in numbers and dots.
    udp_writer(const char* host, int port);
    udp_writer(const udp_writer&) = delete;
    udp_writer& operator=(const udp_writer&) = delete;
    ~udp_writer() override;

    void write(const char* text) override;
    bool is_valid() const override;

protected:
    /// Makes the socket where there is none; a failure is told on standard output.
    void create_socket();

private:
    unsigned socket_; // all ones when there is none
    alignas(4) unsigned char target_[16]; // the platform's sockaddr_in
};

/// Up to four sinks, which it owns, in slots: bit 1 the console, bit 2 a file, bit 4
/// UDP, bit 8 one of the caller's. A text goes to all of them in this order. A sink
/// that stands in two slots gets it twice, and is deleted once.
class KRO_API mixed_writer : public writer {
public:
    /// Opens the default sinks of the mask's bits 1, 2 and 4.
    explicit mixed_writer(int mask);
    mixed_writer(const mixed_writer&) = delete;
    mixed_writer& operator=(const mixed_writer&) = delete;
    ~mixed_writer() override;

    void write(const char* text) override;
    /// Always true.
    bool is_valid() const override;

    /// Puts new default sinks into the slots of bits 1, 4 and 2.
    void open(int mask);
    /// Puts `sink`, made by `new`, into the first slot of the mask that does not hold
    /// it already. False when there is none; `sink` is still the caller's then.
    bool open(int mask, writer* sink);
    /// A new sink into its slot; whether it is valid.
    bool open_udp(const char* host, int port);
    bool open_file(const char* path, const char* mode);
    /// Deletes the sinks of the mask's slots.
    void close(int mask);

private:
    static constexpr unsigned slot_count = 4;

    void put(unsigned slot, writer* sink);

    writer* slots_[slot_count];
};

/// The debug channel: one for the process, made when `dc` is first called, with the
/// console alone. Call that once before there are threads. At the exit of the
/// process its sinks are deleted; what is written later is lost.
class KRO_API DBGDC {
public:
    static DBGDC& dc();
    DBGDC(const DBGDC&) = delete;
    DBGDC& operator=(const DBGDC&) = delete;

    mixed_writer& get_writer() { return *writer_; }
    /// A mark for programs; nothing here looks at it.
    void enable(bool on) { enabled_ = on; }
    bool enable() const { return enabled_; }

    void write(const char* text);
    /// printf-style; cut at 1,024 characters.
    void print(const char* fmt, ...) KRO_PRINTF(2, 3);
    void vprint(const char* fmt, va_list arguments);
    /// Title, message and place between two lines of stars.
    void warning(const char* title, const char* file, int line, const char* message);
    /// The same with `detail` behind the place.
    void warning(const char* title, const char* file, int line, const char* message, const char* detail);

private:
    struct instance;

    explicit DBGDC(mixed_writer* sinks) : enabled_(false), writer_(sinks) {}

    bool enabled_;
    mixed_writer* writer_;
};

#endif
