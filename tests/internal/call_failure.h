// Makes the n-th of the system calls that a program replaces fail, for every n.
//
//     for (call_failure failure; failure.next();) {
//         failure.arm();
//         const int r = ...;                      // only what is under test
//         failure.disarm();
//         EXPECT_EQ(r == 0, !failure.happened()) << failure.name();
//     }
//
// The replacements, listed in the program's NAME_test.wrap, ask `call_failure::strikes`.
#ifndef STDKRO_TESTS_CALL_FAILURE_H
#define STDKRO_TESTS_CALL_FAILURE_H

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>

// What a child on its way to its program does counts too: its memory is ours, or a copy under
// ThreadSanitizer, so what is counted stands in shared memory.
class call_failure {
public:
    /// False when the last run met no failure.
    bool next()
    {
        if (nth_ > 0 && !happened())
            return false;
        ++nth_;
        struck().name = nullptr;
        return true;
    }
    void arm() { struck().left = nth_; }
    void disarm() { struck().left = 0; }
    bool happened() const { return struck().name != nullptr; }
    const char* name() const { return happened() ? struck().name : "nothing"; }
    bool was(const char* name) const { return std::strcmp(this->name(), name) == 0; }
    ~call_failure() { disarm(); }

    /// Counts a call; true, with ENFILE, when it is the one to fail.
    static bool strikes(const char* name)
    {
        if (struck().left == 0 || --struck().left > 0)
            return false;
        struck().name = name;
        errno = ENFILE;
        return true;
    }

private:
    struct counted {
        int left;
        const char* name;
    };
    static counted& struck()
    {
        static counted* const shared = static_cast<counted*>(
            ::mmap64(nullptr, sizeof(counted), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        return *shared;
    }

    int nth_ = 0;
};

inline int open_descriptors()
{
    int n = 0;
    for (int fd = 0; fd < 256; ++fd)
        n += fcntl(fd, F_GETFD, 0) >= 0;
    return n;
}

#endif
