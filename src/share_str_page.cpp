#include "share_str_page.h"

#include <cstdlib>
#include <new>

void share_str_page::release(page* p, std::size_t blocks) noexcept
{
    if (p->holders.fetch_sub(blocks, std::memory_order_acq_rel) == blocks)
        std::free(p);
}

bool share_str_page::turn_page() noexcept
{
    void* const memory = std::malloc(next_size_);
    if (!memory)
        return false;
    leave();
    page_ = new (memory) page { { while_taken } };
    cur_ = reinterpret_cast<char*>(page_ + 1);
    end_ = static_cast<char*>(memory) + next_size_;
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
