// A text whose last byte is the last of readable memory: whoever reads behind it
// ends the test program.
#ifndef STDKRO_TESTS_GUARDED_TEXT_H
#define STDKRO_TESTS_GUARDED_TEXT_H

#include <cstddef>
#include <cstring>
#include <string>

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <sys/mman.h>
#endif

class guarded_text {
public:
    /// A copy of `text`, not terminated.
    explicit guarded_text(const std::string& text) : size_(text.size())
    {
        const std::size_t page = 65536; // a multiple of the page size everywhere
        room_ = (size_ + page - 1) / page * page;
        block_ = take(room_ + page);
        protect(block_ + room_, page);
        std::memcpy(block_ + room_ - size_, text.data(), size_);
    }
    guarded_text(const guarded_text&) = delete;
    guarded_text& operator=(const guarded_text&) = delete;
    ~guarded_text() { give_back(block_, room_ + 65536); }

    const char* begin() const { return block_ + room_ - size_; }
    const char* end() const { return block_ + room_; }

private:
#if defined(_WIN32)
    static char* take(std::size_t n)
    {
        return static_cast<char*>(VirtualAlloc(nullptr, n, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    }
    static void protect(char* p, std::size_t n)
    {
        DWORD before = 0;
        VirtualProtect(p, n, PAGE_NOACCESS, &before);
    }
    static void give_back(char* p, std::size_t) { VirtualFree(p, 0, MEM_RELEASE); }
#else
    static char* take(std::size_t n)
    {
        return static_cast<char*>(mmap(nullptr, n, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    }
    static void protect(char* p, std::size_t n) { mprotect(p, n, PROT_NONE); }
    static void give_back(char* p, std::size_t n) { munmap(p, n); }
#endif

    std::size_t size_;
    std::size_t room_;
    char* block_;
};

#endif
