// IPv4 addresses, stream and datagram sockets, sets of sockets for waiting, and
// the byte buffer between a socket and its program.
//
// Nothing here throws, and no operation raises a signal: every failure is a
// negative status code. The program starts the socket library of a system that
// needs it (WSAStartup on Windows) before the first use.
#ifndef STDKRO_SOCKET_H
#define STDKRO_SOCKET_H

#include <stdkro/config.h>
#include <stdkro/platform_types.h>
#include <stdkro/share_str.h>

struct sockaddr;
class xml_node;

/// An IPv4 address and a port, laid out exactly as the platform's sockaddr_in.
/// Ports given as numbers are in host order.
class KRO_API SockAddr {
public:
    /// Port 0 of address 0 (any).
    SockAddr();
    SockAddr(const sockaddr_in& address) : address_(address) {}
    /// `address` must be an IPv4 address.
    SockAddr(const sockaddr& address);
    /// As `set_addr(host, port)`; a failure is not reported.
    SockAddr(const char* host, unsigned short port);
    /// As `set_addr(text)`; a failure is not reported.
    explicit SockAddr(const char* text);
    /// Any address.
    explicit SockAddr(unsigned short port);
    SockAddr(const in_addr& address, unsigned short port);

    SockAddr& operator=(const sockaddr_in& address);

    /// Reads "HOST:PORT", or "HOST" for port 0; null is this host. HOST is an address in
    /// numbers and dots. A host of 16 characters or more: 0x80020005 and no
    /// change. A host that is no address gives the all-ones address and 0.
    int set_addr(const char* text);
    /// The same with the port apart; a null `host` is this host.
    int set_addr(const char* host, unsigned short port);
    /// The first address that the name of this host resolves to. 0x80030001
    /// when there is none.
    int set_localhost(unsigned short port);

    /// "1.2.3.4:80".
    share_str get_addr() const;
    /// The port in host order.
    unsigned short get_port_h() const;
    /// "1.2.3.4", in a buffer that the next call of the process overwrites.
    const char* get_ip_s() const;

    sockaddr& cast_sockaddr();
    const sockaddr& cast_sockaddr() const;
    operator sockaddr&() { return cast_sockaddr(); }
    operator const sockaddr&() const { return cast_sockaddr(); }
    sockaddr_in& cast_sockaddr_in() { return address_; }
    const sockaddr_in& cast_sockaddr_in() const { return address_; }

    /// Address and port; the family is not compared.
    bool operator==(const SockAddr& other) const;
    bool operator!=(const SockAddr& other) const { return !(*this == other); }
    /// By address, then by port, both as numbers in host order.
    bool operator<(const SockAddr& other) const;

private:
    sockaddr_in address_;
};

/// A channel to another program: what `Socket` and its like have in common.
class KRO_API ipc {
public:
    virtual int send(const void* bytes, unsigned n) = 0;
    virtual int receive(void* bytes, unsigned n) = 0;
    virtual int close() = 0;
    /// Describes the channel as attributes and children of `node`.
    virtual void print(xml_node& node) const = 0;
    virtual bool is_valid() const = 0;
    virtual ~ipc();
};

/// One socket handle, closed when the object dies.
///
/// A copy holds the same handle: let only one of the two close it. Operations
/// without a handle fail with the code that their comment names, or 0x80030001.
class KRO_API Socket : public ipc {
public:
    /// The handle of a Socket that has none.
    enum : unsigned { no_handle = 0xFFFFFFFFu };

    Socket() = default;
    /// Takes the handle over.
    explicit Socket(unsigned handle) : handle_(handle) {}
    Socket(const Socket& other) = default;
    Socket& operator=(const Socket& other) = default;

    /// Sends once. The number of bytes taken, which may be less than `n`; without a handle
    /// 0x80030002, on failure 0x80030005. All lengths: above 0x7FFFFFFF 0x80000007.
    int send(const void* bytes, unsigned n) override;
    /// Receives once. The number of bytes, at least 1; without a handle or when the
    /// peer has closed 0x80030002, on failure 0x80030004.
    int receive(void* bytes, unsigned n) override;
    /// Always 0.
    int close() override;
    /// Adds the attribute "SOCKET" (the handle in decimal) and a child "addr" with the
    /// attributes "self" and "peer" where the socket has those addresses.
    void print(xml_node& node) const override;
    bool is_valid() const override { return handle_ != no_handle; }
    ~Socket() override;
    /// Gives the handle away without closing it.
    virtual unsigned detach();

    /// Closes the present handle and takes over `handle`; nothing when it is the same.
    void attach(unsigned handle);
    unsigned get_socket() const { return handle_; }

    /// A new socket in place of the present one; 0 or 0x80030001. The values are
    /// those of the BSD interface; without them an IPv4 stream socket.
    int create(int family, int type, int protocol);
    int create();
    /// A new stream socket bound to `address`. It does not listen yet, and a port that is taken
    /// is refused; then no handle is held.
    int create_server(const SockAddr& address);
    /// 0 or 0x80030001.
    int bind(const SockAddr& address);
    int listen(int backlog);
    /// `how`: 0 no more receiving, 1 no more sending, 2 neither. Without a handle 0.
    int shutdown(int how);
    /// 0 or 0x80030006.
    int connect(const SockAddr& address);
    /// The addresses of both ends; 0 or 0x80030001.
    int getpeer(SockAddr& address) const;
    int getself(SockAddr& address) const;
    /// An input-output control of the platform (ioctlsocket); the Windows numbers of FIONBIO and
    /// FIONREAD work everywhere. 0 or 0x80030001.
    int sockctl(long command, unsigned long* argument);

    /// The raw handle of the next connection, or `no_handle`. `peer` may be null.
    unsigned accept(SockAddr* peer) const;
    /// The same into `connection`, which closes what it held. 0 or 0x80030001.
    int accept(Socket& connection, SockAddr* peer) const;

    /// One datagram; `to` may be null. Without a handle 0x80030002; otherwise the platform's own
    /// result: the number of bytes, or -1.
    int send_to(const SockAddr* to, const void* bytes, unsigned n);
    int recv_from(SockAddr* from, void* bytes, unsigned n);

    /// Receives exactly `n` bytes, waiting for them. `n`, 0x80030004, or 0x80030002 when the
    /// peer closed first; without a handle 0x80030002.
    int recv_n(void* bytes, unsigned n);
    /// Sends once and returns `n`, also when the platform took fewer bytes: for
    /// blocking sockets, which take all. On failure or without a handle 0x80030005.
    int send_n(const void* bytes, unsigned n);

    /// Non-blocking mode; 0 or 0x80030001.
    int set_async(bool on);
    /// Sends small pieces at once; 0 or 0x80030001.
    int set_nodelay(bool on);

    /// Waits for this socket: bits 1 and 4 until it is readable, 2 until it is writable, 8 for an
    /// exceptional condition. 0, 0x8002000C after the time limit (null: none), or
    /// 0x80030001, also for no known bit.
    int select(int events, const timeval* limit);
    /// Waits for sets of handles; null sets are absent. Afterwards each set holds its ready
    /// members in their order. Returns how many, 0x8002000C or 0x80030001.
    static int select(sock_fd_set* readable, sock_fd_set* writable, sock_fd_set* exceptional, const timeval* limit);

private:
    unsigned handle_ = no_handle;
};

/// Up to 1,024 sockets to wait for, each handle tied to its `Socket`. Keeps
/// pointers: remove a Socket before it dies.
class KRO_API sockset {
public:
    enum : unsigned { max_count = 1024 };

    sockset();
    unsigned count() const { return set_.fd_count; }
    void clear() { set_.fd_count = 0; }
    /// 0, or 0x80000008 when the set is full.
    int add(Socket& socket);
    /// Removes the first match, keeping the order. 0 or 0x80020004.
    int remove(unsigned handle);
    int remove(const Socket& socket);
    /// Whether the handle is a member, also when it was added with another Socket.
    bool test(const Socket& socket) const;
    bool test(unsigned handle) const;
    /// Removes every member whose handle is not an open socket any more. Returns how
    /// many there were.
    int correct();
    /// The Socket at `cursor`, which moves on; null behind the last.
    Socket* get_socket(int& cursor) const;
    /// The same over the handles of a result of `Socket::select`: the Socket that this
    /// set holds for the handle at `cursor`, or null where it holds none.
    Socket* get_socket(const sock_fd_set& result, int& cursor) const;
    /// Keeps only the handles of `result`, in its order, each still tied to its Socket.
    void set_result(const sock_fd_set& result);
    /// To copy and hand to `Socket::select`.
    const sock_fd_set& get_fdset() const { return set_; }

private:
    int find(unsigned handle) const;
    int find(const Socket& socket) const;
    void remove_at(unsigned i);

    sock_fd_set set_;
    Socket* sockets_[max_count];
};

/// A growable buffer that is written at its end and read from its front.
///
/// begin <= read <= write <= end; the unread bytes lie between read and write. The
/// pointers are valid until the next call that makes room.
class KRO_API packet {
public:
    packet() = default;
    packet(const void* bytes, unsigned n);
    packet(const packet&) = delete;
    packet& operator=(const packet&) = delete;
    ~packet();

    char* bptr() const { return begin_; }
    char* rptr() const { return read_; }
    char* wptr() const { return write_; }
    char* eptr() const { return end_; }
    unsigned rpos() const { return static_cast<unsigned>(read_ - begin_); }
    unsigned wpos() const { return static_cast<unsigned>(write_ - begin_); }
    /// Unread bytes.
    unsigned count() const { return static_cast<unsigned>(write_ - read_); }
    unsigned capacity() const { return static_cast<unsigned>(end_ - begin_); }

    /// Makes room for `n` more bytes; the bytes already read may be dropped for it. Returns the
    /// free room, at least `n`, or 0 when it cannot be had: then nothing changes.
    unsigned reserved(unsigned n);
    /// Appends; returns `n`, or 0 when there is no room to be had.
    unsigned write(const void* bytes, unsigned n);
    /// Takes up to `n` bytes from the front; returns how many.
    unsigned read(void* bytes, unsigned n);
    /// Appends a printf-style text of 1 to `size` bytes, without a terminator. Returns its length,
    /// or 0 for an empty or longer text or without memory: then nothing is appended.
    unsigned print(unsigned size, const char* format, ...) KRO_PRINTF(3, 4);

    /// Move the read position: to a distance from the beginning, or by `delta`. Refused (false)
    /// outside [begin, write].
    bool rseek(unsigned position);
    bool rmove(int delta);
    /// Move the write position. Refused (false) outside [begin, end]. A read
    /// position behind the new one is pulled back to it.
    bool wseek(unsigned position);
    bool wmove(int delta);

    /// Forgets the bytes and keeps the buffer.
    void reset() { read_ = write_ = begin_; }
    /// Forgets the bytes and frees the buffer.
    void clear();
    /// Takes over `buffer`, which must come from `malloc`; the old buffer is freed unless it
    /// is the same one.
    void set_buf(void* buffer, unsigned size);

private:
    bool take_block(unsigned long long size);
    void set_positions(char* begin, unsigned unread, unsigned room);

    // Invariant: block_ <= begin_ <= read_ <= write_ <= end_ <= block_end_. What lies outside
    // [begin_, end_) is room that the owner does not see, for growth without a copy.
    char* block_ = nullptr;
    char* begin_ = nullptr;
    char* read_ = nullptr;
    char* write_ = nullptr;
    char* end_ = nullptr;
    char* block_end_ = nullptr;
};

#endif
