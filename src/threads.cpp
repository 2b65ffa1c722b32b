// A table of threads.
//
// One bit for each slot tells whether it is taken: the next free one behind the
// search position is found a word at a time.
#include <stdkro/thread.h>

#include <cstring>
#include <new>
#include <stdkro/xcpt.h>

namespace {

// Slot numbers have 16 bits.
constexpr unsigned most_slots = 65536;
constexpr unsigned word_bits = 32;

unsigned word_count(unsigned capacity) { return (capacity + word_bits - 1) / word_bits; }

// The number of zeros below the lowest bit of `word`, which is not 0: a product
// with a de Bruijn sequence has another upper five bits for each of them.
unsigned lowest_bit(unsigned word)
{
    static const unsigned char position[word_bits]
        = { 0,  1,  28, 2,  29, 14, 24, 3, 30, 22, 20, 15, 25, 17, 4,  8,
            31, 27, 13, 23, 21, 19, 16, 7, 26, 12, 18, 6,  11, 5,  10, 9 };
    return position[(word & (0u - word)) * 0x077CB531u >> 27];
}

int pack_tag(const char* name)
{
    char text[sizeof(int)] = {};
    for (unsigned i = 0; i < sizeof text && name && name[i]; ++i)
        text[i] = name[i];
    int tag;
    std::memcpy(&tag, text, sizeof tag);
    return tag;
}

} // namespace

threads::threads(unsigned capacity) { create(capacity); }

threads::~threads() { clear(); }

int threads::create(unsigned capacity)
{
    if (table_)
        return err::overrun;
    if (capacity > most_slots)
        return err::bad_argument;
    if (capacity == 0)
        return 0;
    table_ = new (std::nothrow) thread* [capacity] {};
    taken_ = new (std::nothrow) unsigned[word_count(capacity)] {};
    if (!table_ || !taken_) {
        clear();
        return err::out_of_memory;
    }
    capacity_ = capacity;
    return 0;
}

void threads::clear()
{
    for (unsigned i = 0; i < capacity_; ++i)
        delete table_[i];
    delete[] table_;
    delete[] taken_;
    table_ = nullptr;
    taken_ = nullptr;
    capacity_ = count_ = next_ = 0;
}

thread* threads::get_thread(unsigned index) const { return index < capacity_ ? table_[index] : nullptr; }

// The first free slot in [begin, end), or `end`.
unsigned threads::find_free(unsigned begin, unsigned end) const
{
    for (unsigned slot = begin; slot < end; slot = (slot / word_bits + 1) * word_bits) {
        const unsigned free_here = ~taken_[slot / word_bits] & ~0u << slot % word_bits;
        if (free_here) {
            const unsigned found = slot / word_bits * word_bits + lowest_bit(free_here);
            return found < end ? found : end;
        }
    }
    return end;
}

int threads::attach(thread* t)
{
    if (!t)
        return err::bad_argument;
    smart_lock guard(lock_);
    if (count_ == capacity_)
        return err::little_of_resource;
    unsigned slot = find_free(next_, capacity_);
    if (slot == capacity_)
        slot = find_free(0, next_); // there is one: not all are counted
    table_[slot] = t;
    taken_[slot / word_bits] |= 1u << slot % word_bits;
    t->set_no(slot);
    next_ = slot + 1;
    ++count_;
    return static_cast<int>(slot);
}

thread* threads::detach(unsigned index)
{
    smart_lock guard(lock_);
    thread* t = get_thread(index);
    if (!t)
        return nullptr;
    table_[index] = nullptr;
    taken_[index / word_bits] &= ~(1u << index % word_bits);
    --count_;
    t->set_no(0);
    return t;
}

thread* threads::alloc_thread(long tag)
{
    thread* t = new (std::nothrow) thread(tag);
    if (t && attach(t) < 0) {
        delete t;
        return nullptr;
    }
    return t;
}

thread* threads::alloc_thread(const char* name) { return alloc_thread(static_cast<long>(pack_tag(name))); }

void threads::free_thread(unsigned index) { delete detach(index); }

// KEEP: number 0 means "in no table" here, so a thread in slot 0 stays. Callers
// keep their oldest worker there.
void threads::free_thread(thread* t)
{
    if (t && t->get_no() != 0 && get_thread(t->get_no()) == t)
        free_thread(t->get_no());
}

int threads::stop_all()
{
    smart_lock guard(lock_);
    for (unsigned i = 0; i < capacity_; ++i) {
        if (table_[i])
            table_[i]->set_states(thread::state_stop);
    }
    return 0;
}

int threads::stop_thread(unsigned, const timeval*) { return 0; }

int threads::wait_done(unsigned index, const timeval* limit)
{
    thread* t = get_thread(index);
    if (!t)
        return err::not_exist;
    t->wait_done(limit);
    return 0;
}

int threads::wait_all_done(const timeval* limit) { return thread::wait_all_done(table_, capacity_, limit); }
