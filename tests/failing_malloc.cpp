// Stands before the C library's memory in a program that preloads it: the allocation of
// number FAIL_AT, counted from 1, fails. At its end the program tells how many there were.
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);

namespace {

std::atomic<long> allocations { 0 };

bool has_memory()
{
    const char* const wanted = std::getenv("FAIL_AT");
    const bool fails = ++allocations == (wanted ? std::atol(wanted) : 0);
    if (fails)
        errno = ENOMEM;
    return !fails;
}

[[gnu::destructor]] void tell() { std::fprintf(stderr, "%ld allocations\n", allocations.load()); }

} // namespace

void* malloc(std::size_t size) { return has_memory() ? __libc_malloc(size) : nullptr; }
void* calloc(std::size_t count, std::size_t size) { return has_memory() ? __libc_calloc(count, size) : nullptr; }
void* realloc(void* old, std::size_t size) { return has_memory() ? __libc_realloc(old, size) : nullptr; }

} // extern "C"
