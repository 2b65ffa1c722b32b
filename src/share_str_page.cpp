#include "share_str_page.h"

#include <cstdlib>
#include <new>

void share_str_page::release(page* p, std::size_t blocks) noexcept
{
    if (p->holders.fetch_sub(blocks, std::memory_order_acq_rel) == blocks)
        std::free(p);
}

// Where the present slice has no room for `needed` bytes: the next one, of a new page
// after the last.
bool share_str_page::next_slice(std::size_t needed) noexcept
{
    if (static_cast<std::size_t>(page_end_ - end_) < word + needed && !turn_page())
        return false;
    *reinterpret_cast<page**>(end_) = page_;
    cur_ = end_ + word;
    const std::size_t left = static_cast<std::size_t>(page_end_ - end_);
    end_ += left < slice_size ? left : slice_size;
    return true;
}

bool share_str_page::turn_page() noexcept
{
    void* const memory = std::malloc(next_size_);
    if (!memory)
        return false;
    leave();
    page_ = new (memory) page { { while_taken } };
    const auto begin = reinterpret_cast<std::uintptr_t>(page_ + 1);
    end_ = reinterpret_cast<char*>((begin + slice_size - 1) & ~(slice_size - 1));
    page_end_ = static_cast<char*>(memory) + next_size_;
    taken_ = 0;
    next_size_ = next_size_ * 2 < largest_size ? next_size_ * 2 : largest_size;
    return true;
}

void share_str_page::leave() noexcept
{
    if (page_)
        release(page_, while_taken - taken_);
    page_ = nullptr;
}
