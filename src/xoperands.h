// The operand stack of the script machine.
//
// Statements leave values behind, which stay until their activation ends, so a
// loop of a million turns leaves millions of them. The stack therefore grows by
// chunks that are never copied; and when a chunk is full and its newest values
// only repeat themselves with some period, as those of a loop do, one period and
// a count stand for all of them. A loop then runs in the one chunk that is in
// the cache, and needs no more memory than its first turns.
//
// Invariants:
// - Values are alive from the bottom of each chunk to its end, in the newest
//   chunk to `top`. Chunks are left only when full.
// - Between `floor` and `top` lie values of the active procedure that can be
//   popped without a question. `floor` is the highest of: the begin of the chunk,
//   the place where the activation's values begin, the newest repetition.
#ifndef STDKRO_SRC_XOPERANDS_H
#define STDKRO_SRC_XOPERANDS_H

#include <stdkro/xpp.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace xpp {

class operand_stack {
public:
    using mark = operand_mark;

    operand_stack();
    ~operand_stack();
    operand_stack(const operand_stack&) = delete;
    operand_stack& operator=(const operand_stack&) = delete;

    void push(base_var&& v)
    {
        if (top == limit)
            make_room();
        new (top) base_var(std::move(v));
        ++top;
    }
    /// Moves the newest value out. Throws `xrterror` with `err::underflow`.
    base_var pop()
    {
        if (top == floor)
            find_values();
        --top;
        base_var v(std::move(*top));
        top->~base_var();
        return v;
    }
    /// Moves the newest `count` values to `to`, the deepest first.
    void pop(unsigned count, std::vector<base_var>& to);

    /// Begins an activation, whose begin is noted in `mine`; it must stay there.
    void enter(mark& mine)
    {
        mine = { chunk_, top, static_cast<unsigned>(repetitions_.size()) };
        active_ = &mine;
        floor = top;
    }
    /// Ends it: its values are dropped. `caller` is the mark of the one below.
    void leave(const mark& mine, const mark& caller)
    {
        if (mine.chunk != chunk_ || caller.chunk != chunk_ || !repetitions_.empty()) {
            leave_chunks(mine, caller);
            return;
        }
        drop(mine.floor);
        active_ = &caller;
        floor = caller.floor;
    }
    /// The mark of a stack without activations.
    const mark& bottom() const { return bottom_; }

    /// The number of values from `from` up to `to`, null being the top.
    unsigned long long count(const mark& from, const mark* to) const;
    /// Gives back all chunks but the first. The stack must be empty.
    void trim();

    /// Makes room for a value when `top` has reached `limit`.
    void make_room();
    /// Makes a value poppable when `top` has reached `floor`. Throws when the
    /// activation has none.
    void find_values();

    base_var* top;
    base_var* floor;
    base_var* limit;

private:
    struct chunk;
    // Behind the value before `at`, the newest `period` values are repeated
    // `times` times.
    struct repetition {
        chunk* in;
        base_var* at;
        unsigned period;
        unsigned long long times;
    };

    void use(chunk* c);
    void set_floor();
    bool fold();
    base_var* tail_with_period(unsigned period) const;
    bool continues_repetition(const base_var* begin, unsigned period) const;
    void unfold();
    void drop(base_var* down_to)
    {
        while (top != down_to) {
            --top;
            top->~base_var();
        }
    }
    void leave_chunks(const mark& mine, const mark& caller);
    unsigned long long position(const chunk* c, const base_var* at) const;

    chunk* chunk_;
    mark bottom_;
    const mark* active_;
    std::vector<repetition> repetitions_;
};

} // namespace xpp

#endif
