// A socket beside bare system calls, and the byte buffer beside libevent's.
#include <stdkro/socket.h>

#include <benchmark/benchmark.h>
#include <event2/buffer.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <sys/socket.h>

namespace {

// ---- ping-pong -------------------------------------------------------------------

constexpr unsigned message_size = 64;

/// Two connected sockets.
struct connection {
    Socket here;
    Socket there;

    connection()
    {
        Socket server;
        SockAddr address;
        if (server.create_server(SockAddr("127.0.0.1", 0)) < 0 || server.listen(1) < 0 || server.getself(address) < 0
            || here.create() < 0 || here.connect(address) < 0 || server.accept(there, nullptr) < 0) {
            std::fprintf(stderr, "packet_bench: no connection\n");
            std::exit(1);
        }
        here.set_nodelay(true);
        there.set_nodelay(true);
    }
};

struct our_calls {
    static int send(Socket& s, const char* bytes) { return s.send(bytes, message_size); }
    static int receive(Socket& s, char* bytes) { return s.receive(bytes, message_size); }
};

struct system_calls {
    static int send(Socket& s, const char* bytes)
    {
        return static_cast<int>(::send(static_cast<int>(s.get_socket()), bytes, message_size, MSG_NOSIGNAL));
    }
    static int receive(Socket& s, char* bytes)
    {
        return static_cast<int>(::recv(static_cast<int>(s.get_socket()), bytes, message_size, 0));
    }
};

// The same for both sides: two connections differ by more than what is measured.
connection& shared_connection()
{
    static connection made;
    return made;
}

template <class calls> void ping_pong(benchmark::State& state)
{
    connection& c = shared_connection();
    char bytes[message_size] = "ping";
    const int size = message_size;
    for (auto _ : state) {
        const bool is_whole = calls::send(c.here, bytes) == size && calls::receive(c.there, bytes) == size
            && calls::send(c.there, bytes) == size && calls::receive(c.here, bytes) == size;
        if (!is_whole) {
            state.SkipWithError("a message was not passed on whole");
            break;
        }
    }
}
// The sides are close, most of the time being the kernel's: many short rounds tell them apart.
BENCHMARK(ping_pong<our_calls>)->Name("socket/ping-pong/ours")->MinTime(0.01)->Repetitions(61);
BENCHMARK(ping_pong<system_calls>)->Name("socket/ping-pong/system calls")->MinTime(0.01)->Repetitions(61);

// ---- buffers ---------------------------------------------------------------------

class our_buffer {
public:
    bool write(const char* bytes, unsigned n) { return buffer_.write(bytes, n) == n; }
    unsigned read(char* bytes, unsigned n) { return buffer_.read(bytes, n); }
    unsigned count() const { return buffer_.count(); }

private:
    packet buffer_;
};

class their_buffer {
public:
    their_buffer() : buffer_(evbuffer_new()) {}
    their_buffer(const their_buffer&) = delete;
    their_buffer& operator=(const their_buffer&) = delete;
    ~their_buffer() { evbuffer_free(buffer_); }
    bool write(const char* bytes, unsigned n) { return evbuffer_add(buffer_, bytes, n) == 0; }
    unsigned read(char* bytes, unsigned n) { return static_cast<unsigned>(evbuffer_remove(buffer_, bytes, n)); }
    unsigned count() const { return static_cast<unsigned>(evbuffer_get_length(buffer_)); }

private:
    evbuffer* buffer_;
};

constexpr unsigned step = 64;
constexpr unsigned most_numbers = 256;
constexpr unsigned longest_piece = 4096;

// Where pieces come from: at every step stands a number, so each begins with one.
const char* piece_with(unsigned number)
{
    static const std::vector<char> bytes = [] {
        std::vector<char> made(most_numbers * step + longest_piece);
        for (unsigned i = 0; i < most_numbers; ++i)
            std::memcpy(&made[i * step], &i, sizeof i);
        return made;
    }();
    return bytes.data() + number % most_numbers * step;
}

// The sum of the numbers that pieces of a stream begin with.
unsigned sum_of(const char* bytes, unsigned n, unsigned piece)
{
    unsigned sum = 0;
    for (unsigned at = 0; at < n; at += piece) {
        unsigned number;
        std::memcpy(&number, bytes + at, sizeof number);
        sum += number;
    }
    return sum;
}

unsigned sum_below(unsigned n)
{
    unsigned sum = 0;
    for (unsigned i = 0; i < n; ++i)
        sum += i % most_numbers;
    return sum;
}

// Pieces are written with nothing read until all are there, then all is read at once: a message that is
// put together.
template <class buffer> void accumulate(benchmark::State& state, unsigned piece, unsigned count)
{
    std::vector<char> all(piece * count);
    const unsigned size = static_cast<unsigned>(all.size());
    const unsigned expected = sum_below(count);
    for (auto _ : state) {
        buffer b;
        bool is_right = true;
        for (unsigned i = 0; i < count; ++i)
            is_right = b.write(piece_with(i), piece) && is_right;
        is_right = is_right && b.count() == size && b.read(all.data(), size) == size && b.count() == 0;
        if (!is_right || sum_of(all.data(), size, piece) != expected) {
            state.SkipWithError("not what was written");
            break;
        }
    }
}

// Each piece is written and the oldest is read, while `kept` of them wait in between: a connection that
// keeps up, or one that has fallen behind.
template <class buffer> void pass_on(benchmark::State& state, unsigned piece, unsigned kept)
{
    constexpr unsigned count = 1000;
    char taken[longest_piece];
    buffer b;
    unsigned written = 0;
    unsigned read = 0;
    while (written < kept)
        b.write(piece_with(written++), piece);
    for (auto _ : state) {
        unsigned sum = 0;
        unsigned expected = 0;
        bool is_right = true;
        for (unsigned i = 0; i < count; ++i) {
            is_right = b.write(piece_with(written++), piece) && b.read(taken, piece) == piece && is_right;
            sum += sum_of(taken, piece, piece);
            expected += read++ % most_numbers;
        }
        if (!is_right || sum != expected || b.count() != kept * piece) {
            state.SkipWithError("not what was written");
            break;
        }
    }
}

template <class buffer> void add_cases(const std::string& who)
{
    const auto add = [&](const char* what, auto* run, unsigned piece, unsigned count) {
        const std::string name = std::string("packet/") + what + "/" + who;
        benchmark::RegisterBenchmark(name.c_str(), run, piece, count);
    };
    add("accumulate 16 pieces", accumulate<buffer>, 64, 16);
    add("accumulate", accumulate<buffer>, 64, 1000);
    add("accumulate 100000 pieces", accumulate<buffer>, 64, 100000);
    add("streaming", pass_on<buffer>, 64, 0);
    add("streaming pieces of 512", pass_on<buffer>, 512, 0);
    add("streaming pieces of 4096", pass_on<buffer>, 4096, 0);
    add("backlog", pass_on<buffer>, 64, 1000);
    add("backlog of pieces of 512", pass_on<buffer>, 512, 1000);
    add("backlog of 1 MB", pass_on<buffer>, 512, 2000);
    add("backlog of 16 MB", pass_on<buffer>, 512, 32000);
}

const bool are_added = [] {
    add_cases<our_buffer>("ours");
    add_cases<their_buffer>("libevent");
    return true;
}();

} // namespace
