#include "xoperands.h"

#include <stdkro/cycque.h>
#include <stdkro/xcpt.h>

#include <algorithm>
#include <cstring>

namespace xpp {

namespace {

constexpr unsigned chunk_size = 512;
constexpr unsigned longest_period = 32;
// Fewer repeated values than these are not worth folding.
constexpr std::ptrdiff_t shortest_tail = 128;

} // namespace

// Two places in front of the first value, so that a look at the newest two values
// always stays inside the chunk.
struct operand_stack::chunk {
    chunk* below;
    chunk* above;
    unsigned index;
    alignas(base_var) unsigned char room[(chunk_size + 2) * sizeof(base_var)];

    base_var* begin() { return reinterpret_cast<base_var*>(room) + 2; }
    const base_var* begin() const { return reinterpret_cast<const base_var*>(room) + 2; }
    base_var* end() { return begin() + chunk_size; }

    static chunk* make(chunk* below)
    {
        chunk* const c = static_cast<chunk*>(container_memory::take(sizeof(chunk)));
        c->below = below;
        c->above = nullptr;
        c->index = below ? below->index + 1 : 0;
        if (below)
            below->above = c;
        return c;
    }
};

operand_stack::operand_stack()
    : chunk_(chunk::make(nullptr)), bottom_ { chunk_, chunk_->begin(), 0 }, active_(&bottom_)
{
    use(chunk_);
    top = floor = chunk_->begin();
}

operand_stack::~operand_stack()
{
    leave_chunks(bottom_, bottom_);
    trim();
    container_memory::give(chunk_);
}

void operand_stack::use(chunk* c)
{
    chunk_ = c;
    limit = c->end();
}

void operand_stack::set_floor()
{
    floor = active_->chunk == chunk_ ? active_->floor : chunk_->begin();
    if (!repetitions_.empty() && repetitions_.back().in == chunk_ && repetitions_.back().at > floor)
        floor = repetitions_.back().at;
}

void operand_stack::make_room()
{
    if (fold())
        return;
    chunk* const next = chunk_->above ? chunk_->above : chunk::make(chunk_);
    use(next);
    top = next->begin();
    set_floor();
}

void operand_stack::find_values()
{
    if (!repetitions_.empty() && repetitions_.back().in == chunk_ && repetitions_.back().at == top
        && !(active_->chunk == chunk_ && active_->floor >= top)) {
        unfold();
        return;
    }
    if (active_->chunk == chunk_)
        throw xrterror(err::underflow, "%s", get_err_info(err::underflow));
    use(chunk_->below);
    top = limit;
    set_floor();
    if (top == floor)
        find_values();
}

// Looks for a period in the newest values, and lets a count stand for all
// repetitions but the first and the incomplete last one.
bool operand_stack::fold()
{
    unsigned period = 1;
    base_var* begin = tail_with_period(period);
    while (top - begin < shortest_tail) {
        if (++period > longest_period)
            return false;
        begin = tail_with_period(period);
    }
    if (!continues_repetition(begin, period))
        repetitions_.push_back(repetition { chunk_, begin + period, period, 0 });
    repetition& last = repetitions_.back();
    const unsigned behind = static_cast<unsigned>(top - last.at);
    last.times += behind / period;
    drop(last.at + behind % period);
    floor = last.at;
    return true;
}

// Where the values begin that repeat with `period` up to the top.
base_var* operand_stack::tail_with_period(unsigned period) const
{
    if (top - floor < shortest_tail)
        return top;
    base_var* begin = top - period;
    while (begin > floor && begin[-1].raw_is_identical(begin[period - 1]))
        --begin;
    return begin;
}

bool operand_stack::continues_repetition(const base_var* begin, unsigned period) const
{
    // That of a caller must not take in what lies above the caller's values.
    if (begin != floor || repetitions_.size() == active_->repetitions)
        return false;
    const repetition& last = repetitions_.back();
    if (last.in != chunk_ || last.at != floor || last.period != period)
        return false;
    for (const base_var* v = floor; v != floor + period; ++v) {
        if (!v->raw_is_identical(*(v - period)))
            return false;
    }
    return true;
}

// Writes one repetition out again.
void operand_stack::unfold()
{
    repetition& last = repetitions_.back();
    for (unsigned i = 0; i < last.period; ++i, ++top)
        new (top) base_var(*(top - last.period));
    if (--last.times > 0)
        return;
    repetitions_.pop_back();
    set_floor();
}

void operand_stack::pop(unsigned count, std::vector<base_var>& to)
{
    if (static_cast<size_t>(top - floor) >= count) {
        for (base_var* v = top - count; v != top; ++v)
            to.push_back(std::move(*v));
        drop(top - count);
        return;
    }
    const auto first = static_cast<std::ptrdiff_t>(to.size());
    for (; count > 0; --count)
        to.push_back(pop());
    std::reverse(to.begin() + first, to.end());
}

void operand_stack::leave_chunks(const mark& mine, const mark& caller)
{
    repetitions_.resize(mine.repetitions);
    while (chunk_ != mine.chunk) {
        drop(chunk_->begin());
        use(chunk_->below);
        top = limit;
    }
    drop(mine.floor);
    active_ = &caller;
    set_floor();
}

// The place of `at`, repetitions not counted.
unsigned long long operand_stack::position(const chunk* c, const base_var* at) const
{
    return static_cast<unsigned long long>(c->index) * chunk_size + static_cast<unsigned long long>(at - c->begin());
}

unsigned long long operand_stack::count(const mark& from, const mark* to) const
{
    const unsigned long long begin = position(static_cast<const chunk*>(from.chunk), from.floor);
    const unsigned long long end
        = to ? position(static_cast<const chunk*>(to->chunk), to->floor) : position(chunk_, top);
    unsigned long long values = end - begin;
    const size_t behind = to ? to->repetitions : repetitions_.size();
    for (size_t i = from.repetitions; i < behind; ++i)
        values += repetitions_[i].times * repetitions_[i].period;
    return values;
}

void operand_stack::trim()
{
    while (chunk_->above) {
        chunk* const gone = chunk_->above;
        chunk_->above = gone->above;
        container_memory::give(gone);
    }
}

} // namespace xpp
