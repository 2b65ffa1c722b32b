// Stands in the place of a file descriptor and keeps each `write` to it apart; and a
// descriptor that is closed for a while.
#ifndef STDKRO_TESTS_RECORD_PIPE_H
#define STDKRO_TESTS_RECORD_PIPE_H

#include <stdkro/platform_types.h>

#include <cstdio>
#include <string>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#else
#include <sys/socket.h>
#include <unistd.h>
#endif

#if defined(_WIN32)
inline int number_of(std::FILE* file) { return _fileno(file); }
inline int copy_descriptor(int fd) { return _dup(fd); }
inline void put_descriptor(int from, int to) { _dup2(from, to); }
inline void close_descriptor(int fd) { _close(fd); }
#else
inline int number_of(std::FILE* file) { return fileno(file); }
inline int copy_descriptor(int fd) { return dup(fd); }
inline void put_descriptor(int from, int to) { dup2(from, to); }
inline void close_descriptor(int fd) { close(fd); }
#endif

/// The descriptor that the next file to be opened gets.
inline int next_descriptor()
{
    std::FILE* const probe = std::tmpfile();
    const int fd = number_of(probe);
    std::fclose(probe);
    return fd;
}

/// The descriptor is closed while the object lives.
class closed_descriptor {
public:
    explicit closed_descriptor(int fd) : fd_(fd), kept_(copy_descriptor(fd)) { close_descriptor(fd); }
    closed_descriptor(const closed_descriptor&) = delete;
    closed_descriptor& operator=(const closed_descriptor&) = delete;
    ~closed_descriptor()
    {
        put_descriptor(kept_, fd_);
        close_descriptor(kept_);
    }

private:
    int fd_;
    int kept_;
};

/// What is written to the descriptor comes here while the object lives.
class record_pipe {
public:
    explicit record_pipe(int fd) : fd_(fd), kept_(copy_descriptor(fd))
    {
        const int end = open();
        put_descriptor(end, fd);
        close_descriptor(end);
    }
    record_pipe(const record_pipe&) = delete;
    record_pipe& operator=(const record_pipe&) = delete;
    ~record_pipe()
    {
        put_descriptor(kept_, fd_);
        close_descriptor(kept_);
        finish();
    }

    /// What one `write` brought, without carriage returns; "<nothing>" when there was none.
    std::string next()
    {
        char bytes[65536];
        const int n = receive(bytes, sizeof bytes);
        std::string text;
        for (int i = 0; i < n; ++i)
            if (bytes[i] != '\r')
                text += bytes[i];
        return n < 0 ? "<nothing>" : text;
    }

private:
#if defined(_WIN32)
    int open()
    {
        const std::string name = "\\\\.\\pipe\\stdkro_record_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(fd_);
        pipe_ = CreateNamedPipeA(name.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1, 0, 1 << 16, 0,
                                 nullptr);
        HANDLE const end = CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        return _open_osfhandle(reinterpret_cast<intptr_t>(end), _O_TEXT);
    }
    int receive(char* bytes, unsigned size)
    {
        DWORD there = 0, n = 0;
        if (!PeekNamedPipe(pipe_, nullptr, 0, nullptr, &there, nullptr) || there == 0)
            return -1;
        return ReadFile(pipe_, bytes, size, &n, nullptr) ? static_cast<int>(n) : -1;
    }
    void finish() { CloseHandle(pipe_); }

    HANDLE pipe_;
#else
    int open()
    {
        int pair[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair) != 0)
            return -1;
        pipe_ = pair[0];
        return pair[1];
    }
    int receive(char* bytes, unsigned size)
    {
        return static_cast<int>(recv(pipe_, bytes, size, MSG_DONTWAIT));
    }
    void finish() { close(pipe_); }

    int pipe_ = -1;
#endif
    int fd_;
    int kept_;
};

#endif
