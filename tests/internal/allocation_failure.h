// Makes the n-th allocation fail, for every n.
//
//     for (allocation_failure failure; failure.next();) {
//         share_str s("abc");
//         failure.arm();
//         const bool done = s.reserved(1000);     // only what is under test
//         failure.disarm();
//         EXPECT_EQ(done, !failure.happened());
//     }
//
// The loop ends with the first run in which nothing failed. Include this header
// in one file of a program; its NAME_test.wrap lists malloc, realloc and calloc.
// The operators new of the program are replaced here.
#ifndef STDKRO_TESTS_ALLOCATION_FAILURE_H
#define STDKRO_TESTS_ALLOCATION_FAILURE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
}

class allocation_failure {
public:
    /// Lets the first `spared` allocations of each run succeed.
    explicit allocation_failure(int spared = 0) : nth_(spared), first_(spared) {}

    /// Starts the next run; false when the last one met no failure.
    bool next()
    {
        if (nth_ > first_ && !happened_)
            return false;
        ++nth_;
        happened_ = false;
        return true;
    }
    void arm()
    {
        current() = this;
        left_ = nth_;
        is_lasting_ = false;
    }
    /// Lets every allocation behind that one fail too.
    void arm_from_there_on()
    {
        arm();
        is_lasting_ = true;
    }
    void disarm() { current() = nullptr; }
    /// Whether an allocation failed since `arm`.
    bool happened() const { return happened_; }
    /// The allocation that fails in this run, counted from 1.
    int nth() const { return nth_; }

    ~allocation_failure() { disarm(); }

    /// The objects that `new` made and nobody has deleted yet.
    static std::atomic<long>& living()
    {
        static std::atomic<long> count { 0 };
        return count;
    }

    /// Counts an allocation; true when it is the one to fail.
    static bool strikes()
    {
        allocation_failure* const armed = current();
        if (!armed || (armed->left_ == 0 && !armed->is_lasting_))
            return false;
        if (armed->left_ > 0 && --armed->left_ > 0)
            return false;
        armed->happened_ = true;
        return true;
    }

private:
    static allocation_failure*& current()
    {
        static allocation_failure* armed = nullptr;
        return armed;
    }

    int nth_;
    int first_;
    int left_ = 0;
    bool happened_ = false;
    bool is_lasting_ = false;
};

extern "C" {

void* __wrap_malloc(std::size_t size) { return allocation_failure::strikes() ? nullptr : __real_malloc(size); }

void* __wrap_realloc(void* block, std::size_t size)
{
    return allocation_failure::strikes() ? nullptr : __real_realloc(block, size);
}

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return allocation_failure::strikes() ? nullptr : __real_calloc(count, size);
}

} // extern "C"

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    void* const block = allocation_failure::strikes() ? nullptr : __real_malloc(size ? size : 1);
    allocation_failure::living() += block != nullptr;
    return block;
}

void* operator new(std::size_t size)
{
    void* const block = operator new(size, std::nothrow);
    if (!block)
        throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept
{
    allocation_failure::living() -= block != nullptr;
    std::free(block);
}

// Of what has an alignment of its own. The block behind it stands just before it.
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    const auto step = static_cast<std::uintptr_t>(alignment);
    void* const block = operator new(size + step + sizeof(void*), std::nothrow);
    if (!block)
        return nullptr;
    void** const aligned
        = reinterpret_cast<void**>((reinterpret_cast<std::uintptr_t>(block) + sizeof(void*) + step - 1) & ~(step - 1));
    aligned[-1] = block;
    return aligned;
}

void operator delete(void* aligned, std::align_val_t) noexcept
{
    if (aligned)
        operator delete(static_cast<void**>(aligned)[-1]);
}

void operator delete(void* aligned, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    operator delete(aligned, alignment);
}

void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete[](void* block) noexcept { operator delete(block); }
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
void operator delete[](void* block, std::size_t) noexcept { operator delete(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { operator delete(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { operator delete(block); }

#endif
