// Memory for what a document makes many of at a time: short texts and their pairs.
//
// Blocks stand one behind the other in pages. A page counts its blocks and is freed
// with the last of them, so that they may be released in any order and by any
// thread. Small pages, so that a single text that outlives its document does not
// hold much.
//
// A page is cut into slices at fixed addresses, and the first word of each slice names
// the page: a block need not. What tells such a block from one of malloc is its
// address: malloc aligns to two words, a block of a page stands one word behind such a
// place.
#ifndef STDKRO_SRC_SHARE_STR_PAGE_H
#define STDKRO_SRC_SHARE_STR_PAGE_H

#include <stdkro/share_str.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

class share_str_page {
    struct page;

public:
    share_str_page() : page_(nullptr), cur_(nullptr), end_(nullptr), page_end_(nullptr), taken_(0), next_size_(first_size) {}
    share_str_page(const share_str_page&) = delete;
    share_str_page& operator=(const share_str_page&) = delete;
    /// The blocks live on.
    ~share_str_page() { leave(); }

    /// `n` bytes, aligned to a word; null without memory. `n` is at most `largest`.
    void* take(std::size_t n)
    {
        const std::size_t whole = (n + 2 * word - 1) & ~(2 * word - 1);
        if (static_cast<std::size_t>(end_ - cur_) < whole && !next_slice(whole))
            return nullptr;
        char* const block = cur_;
        cur_ += whole;
        fetch_to_write(block, 2048);
        ++taken_;
        return block;
    }

    /// The text from `b` up to `e`; empty without memory. A long one gets memory
    /// of its own.
    share_str text(const char* b, const char* e)
    {
        const std::size_t n = static_cast<std::size_t>(e - b);
        if (n == 0 || n > largest_text)
            return share_str(b, e);
        // A block by the rule of share_str: (n + 16) rounded down to a multiple of 4.
        const std::size_t size = (n + 16) & ~std::size_t { 3 };
        KroStringBuf* const buf = static_cast<KroStringBuf*>(take(size));
        if (!buf)
            return share_str();
        buf->refs = 1;
        buf->length = static_cast<unsigned>(n);
        buf->capacity = static_cast<unsigned>(size - 13);
        copy_short(buf->chars, b, n);
        buf->chars[n] = '\0';
        return share_str(buf, share_str::as_it_is());
    }

    static constexpr std::size_t largest = 512;

    /// Asks memory for what stands `distance` bytes behind `place`. Nothing of ours need
    /// stand there: blocks follow each other as they were taken, so it mostly does.
    static void fetch(const void* place, std::ptrdiff_t distance)
    {
        __builtin_prefetch(reinterpret_cast<const void*>(at_distance(place, distance)));
    }

    /// True for a block of a page, false for one of malloc.
    static bool holds(const void* block) { return (reinterpret_cast<std::uintptr_t>(block) & word) != 0; }
    static void release(void* block) noexcept { release(owner_of(block), 1); }

    /// Releases many blocks: those of one page that follow each other at once, and memory is
    /// asked for the blocks behind them.
    class releases {
    public:
        releases() : page_(nullptr), count_(0) {}
        releases(const releases&) = delete;
        releases& operator=(const releases&) = delete;
        ~releases() { flush(); }

        void add(void* block)
        {
            fetch(block, 1024);
            fetch(block, 4096);
            if (owner_of(block) != page_) {
                flush();
                page_ = owner_of(block);
            }
            ++count_;
        }
        /// Ends the life of `s`.
        void add(share_str& s)
        {
            KroStringBuf* const buf = s.buf_;
            if (buf->refs == 1 && buf->capacity && holds(buf))
                add(static_cast<void*>(buf));
            else
                s.~share_str();
        }

    private:
        void flush()
        {
            if (count_)
                release(page_, count_);
            count_ = 0;
        }

        page* page_;
        std::size_t count_;
    };

private:
    static std::uintptr_t at_distance(const void* place, std::ptrdiff_t distance)
    {
        return reinterpret_cast<std::uintptr_t>(place) + static_cast<std::uintptr_t>(distance);
    }
    static void fetch_to_write(const void* place, std::ptrdiff_t distance)
    {
        __builtin_prefetch(reinterpret_cast<const void*>(at_distance(place, distance)), 1);
    }

    // Most texts are shorter than a call is worth: copied by words that overlap.
    static void copy_short(char* to, const char* from, std::size_t n)
    {
        if (n > 16)
            std::memcpy(to, from, n);
        else if (n >= 8)
            copy_ends<8>(to, from, n);
        else if (n >= 4)
            copy_ends<4>(to, from, n);
        else
            for (std::size_t i = 0; i < n; ++i)
                to[i] = from[i];
    }
    template <std::size_t size> static void copy_ends(char* to, const char* from, std::size_t n)
    {
        char first[size], last[size];
        std::memcpy(first, from, size);
        std::memcpy(last, from + n - size, size);
        std::memcpy(to, first, size);
        std::memcpy(to + n - size, last, size);
    }

    struct alignas(2 * sizeof(void*)) page {
        std::atomic<std::size_t> holders; // blocks in use, and many more while blocks are taken
    };

    static constexpr std::size_t word = sizeof(void*);
    static constexpr std::size_t largest_text = largest - 16;
    static constexpr std::size_t slice_size = 2048;
    static constexpr std::size_t first_size = 3072 - 4 * word;
    static constexpr std::size_t largest_size = 16384 - 4 * word; // what malloc adds completes the power of two
    static constexpr std::size_t while_taken = ~std::size_t { 0 } / 2;

    static_assert(sizeof(page) + slice_size - 1 + word + largest <= first_size,
                  "every page has room for the largest block, wherever its first slice begins");

    static page* owner_of(const void* block)
    {
        return *reinterpret_cast<page* const*>(reinterpret_cast<std::uintptr_t>(block) & ~(slice_size - 1));
    }
    static void release(page* p, std::size_t blocks) noexcept;

    bool next_slice(std::size_t needed) noexcept;
    bool turn_page() noexcept;
    void leave() noexcept;

    page* page_; // the one that blocks are taken from; null at first
    char* cur_; // in a slice, whose end is end_
    char* end_;
    char* page_end_;
    std::size_t taken_; // from this page
    std::size_t next_size_;
};

#endif
