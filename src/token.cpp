// Tokens and the ring that holds the look-ahead.
//
// One slot of the ring always stays empty, so that first_ == last_ means empty and
// nothing else. Fetching moves first_ only: the slot keeps its token, and stepping
// back makes it the oldest again.
#include <stdkro/base_lexer.h>

share_str token::get_literal() const
{
    return begin_ && end_ && begin_ < end_ ? share_str(begin_, end_) : share_str();
}

namespace {

token* make_slots(int size)
{
    try {
        return new token[static_cast<std::size_t>(size)];
    } catch (const std::bad_alloc&) {
        throw xrterror(err::out_of_memory, "out of memory");
    }
}

// One slot more than the capacity, which stays below the largest int.
int slots_for(int capacity)
{
    constexpr int max_capacity = 0x7FFFFFFE;
    return (capacity < 0 ? 0 : capacity > max_capacity ? max_capacity : capacity) + 1;
}

} // namespace

token_cache::token_cache(int capacity) : slots_(make_slots(slots_for(capacity))), size_(slots_for(capacity)) {}

token_cache::token_cache(const token_cache& other)
    : slots_(make_slots(other.size_)), size_(other.size_), first_(other.first_), last_(other.last_)
{
    for (int i = 0; i < size_; ++i)
        slots_[i] = other.slots_[i];
}

token_cache& token_cache::operator=(const token_cache& other)
{
    if (this != &other) {
        token_cache copy(other);
        swap(copy);
    }
    return *this;
}

token_cache::~token_cache() { delete[] slots_; }

void token_cache::swap(token_cache& other)
{
    std::swap(slots_, other.slots_);
    std::swap(size_, other.size_);
    std::swap(first_, other.first_);
    std::swap(last_, other.last_);
}

bool token_cache::enter(const token& t)
{
    token& slot = slots_[last_];
    if (!enter())
        return false;
    slot = t;
    return true;
}

bool token_cache::fetch(token& t)
{
    const token& slot = slots_[first_];
    if (!fetch())
        return false;
    t = slot;
    return true;
}

bool token_cache::putback(const token& t)
{
    if (!putback())
        return false;
    slots_[first_] = t;
    return true;
}

void token_cache::reset()
{
    for (int i = 0; i < size_; ++i)
        slots_[i] = token();
    first_ = last_ = 0;
}

void token_cache::set_cached(int capacity)
{
    if (capacity <= 0)
        return;
    if (slots_for(capacity) == size_) {
        reset();
        return;
    }
    token_cache fresh(capacity);
    swap(fresh);
}
