// The inside of the script machine, shared by the files that are it:
//
// xmachine.cpp          the program, the names, and the host's side
// xmachine_run.cpp      running, stepping and calling, and what status comes of it
// xmachine_loop.cpp     the ordinary case of each instruction, fast
// xmachine_general.cpp  every case of every instruction
// xmachine_print.cpp    listings
#ifndef STDKRO_SRC_XMACHINE_STATE_H
#define STDKRO_SRC_XMACHINE_STATE_H

#include "xoperands.h"

#include <stdkro/xpp.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

namespace xpp {

// ---- names -----------------------------------------------------------------

struct xfield::global {
    base_var value;
    global* next_removed;
};

struct xfield::entry {
    kind what;
    xmethod* proc;
    ::method function;
    base_var* value;
    /// What holds `value`, when it is the field's.
    global* own;
    void* pointer;
};

struct xfield::table {
    hmap<share_str, entry> names;
    global* removed = nullptr;
};

// ---- locals ----------------------------------------------------------------

// A slot is a constructed value all its life, so that a reference to a local of
// a finished activation (only code made by hand can keep one) reads a stale
// value and nothing worse.
struct xcontext::slot {
    base_var value;
    bool is_defined = false;
};

struct xcontext::extra {
    share_str name;
    base_var value;
    extra* next;
};

// ---- arguments -------------------------------------------------------------

// The argument list. Values wait in a plain array, from which procedures take
// them; they move into the queue when a host function is called.
class arg_list {
public:
    arg_list() = default;
    ~arg_list()
    {
        clear();
        std::free(items_);
    }
    arg_list(const arg_list&) = delete;
    arg_list& operator=(const arg_list&) = delete;

    bool is_empty() const { return taken_ == count_ && !is_queued_; }
    void clear()
    {
        for (; taken_ != count_; ++taken_)
            items_[taken_].~base_var();
        taken_ = count_ = 0;
        if (is_queued_) {
            queue_.clear();
            is_queued_ = false;
        }
    }
    /// Empties the list and moves `n` values into it, which are then dead.
    void fill(base_var* from, unsigned n)
    {
        clear();
        reserve(n);
        for (; count_ != n; ++count_, ++from) {
            new (items_ + count_) base_var(std::move(*from));
            from->~base_var();
        }
    }
    void add(base_var&& v)
    {
        if (is_queued_) {
            queue_.push_back(std::move(v));
            return;
        }
        reserve(count_ + 1);
        new (items_ + count_) base_var(std::move(v));
        ++count_;
    }
    /// Takes the first argument out of the array; false when none is left there.
    bool take_plain(base_var& out)
    {
        if (taken_ == count_)
            return false;
        out = std::move(items_[taken_]);
        items_[taken_++].~base_var();
        return true;
    }
    bool take(base_var& out)
    {
        if (!is_queued_)
            return take_plain(out);
        if (queue_.isempty())
            return false;
        out = std::move(queue_.front());
        queue_.pop_front();
        return true;
    }
    cycque<base_var>& as_queue()
    {
        if (is_queued_)
            return queue_;
        is_queued_ = true;
        base_var v;
        while (take_plain(v))
            queue_.push_back(std::move(v));
        return queue_;
    }

private:
    void reserve(unsigned n);

    base_var* items_ = nullptr;
    unsigned room_ = 0;
    unsigned taken_ = 0;
    unsigned count_ = 0;
    bool is_queued_ = false;
    cycque<base_var> queue_;
};

// ---- the machine -----------------------------------------------------------

// The opcode of what stands behind the last instruction.
constexpr code_type no_code = static_cast<code_type>(-1);

// An instruction may be executed together with those behind it, when these are
// what they usually are; each stays an instruction of its own for listings,
// jumps and single steps. The head says what to expect and looks each time
// whether it is there, so that a change of the code needs no care.
enum quick_type : short {
    VAR_INT_OPERATOR = 64, // GETVAR, STORE of an int, an operator
    VAR_VAR_OPERATOR,      // GETVAR, GETVAR, an operator
    VAR_OPERATOR,          // GETVAR, an operator
    INT_OPERATOR,          // STORE of an int, an operator
    VAR_RETURN             // GETVAR, RETVAL, RET
};

struct line_entry {
    int addr;
    int line;
    int pos;
};

// Why a loop of instructions ended.
enum class loop_end {
    going,   // not yet
    halted,  // HALT
    trapped, // TRAP
    xret,    // XRET, or the return of a procedure that the host called
    stepped, // one instruction was asked for
    dropped  // the activation that the loop ran is gone: a host function cleared it
};

// What a call from the host interrupted, to be found and put back at its end.
struct host_call {
    unsigned epoch;
    unsigned depth;
    int ip;
    bool is_inside;
    const host_call* outer;
};

struct machine_state {
    static constexpr int no_ip = -1;
    static constexpr unsigned max_contexts = 12000;
    // Calls from host functions, and host functions: they nest on the host's stack.
    static constexpr unsigned max_levels = 400;
    static constexpr unsigned slots_per_chunk = 256;
    static constexpr int longest_direct_call = 16;

    struct slot_chunk {
        std::unique_ptr<xcontext::slot[]> slots;
        unsigned size;
    };

    explicit machine_state(xmachine& machine);
    ~machine_state();
    machine_state(const machine_state&) = delete;
    machine_state& operator=(const machine_state&) = delete;

    // ---- program
    int code_count() const { return static_cast<int>(code.size()) - 1; }
    int append(code_type type, base_var operand);
    int add_methods(const char* const* names, const ::method* functions);
    int find_line(int first, int last, int addr) const;
    int current_addr() const;
    int caller_addr(unsigned i) const;
    void copy_program(const machine_state& other);
    void clear_program();

    // ---- activations
    xcontext* active() const { return depth ? contexts[depth - 1] : nullptr; }
    void enter(xmethod& of, int return_addr);
    xcontext* leave();
    xcontext* activate(xmethod& of, int return_addr);
    static void take_arguments(const xcode* c, const xcode* end, base_var* from, xcontext::slot* slots);
    void leave_extras(xcontext& c);
    bool takes(const xmethod& of, const xcode* entry, int count) const;
    void drop_contexts(unsigned to);
    void clear_runner();
    void prepare(xmethod& of);
    short quick_type_at(int addr) const;
    int count_parameters(const xmethod& of) const;
    void add_context();
    void open_slot_chunk(unsigned count, xcontext& opener);
    void add_slot_chunk(unsigned count);
    void trim();
    void push_level();
    void pop_level();
    arg_list& args() { return *levels[level]; }
    /// An argument list of one's own while it lives.
    struct level_guard {
        machine_state& of;
        explicit level_guard(machine_state& s) : of(s) { of.push_level(); }
        ~level_guard() { of.pop_level(); }
        level_guard(const level_guard&) = delete;
        level_guard& operator=(const level_guard&) = delete;
    };

    // ---- execution
    int begin();
    int run_begin();
    int run();
    int step();
    int call(const share_str& name, base_var& result, cycque<base_var>& arguments);
    int call_method(xmethod& of, base_var& result, const cycque<base_var>& arguments);
    template <bool one_step> loop_end execute(unsigned base);
    template <bool one_step> loop_end execute_noting_line(unsigned base);
    template <bool one_step> int run_loop();
    loop_end general(xcode& c, unsigned base);
    loop_end call_name(xcode& c, unsigned base);
    loop_end call_host(::method function, unsigned base);
    loop_end return_from();
    xcontext::slot* slot_of(xcode& c);
    base_var& variable(xcode& c);
    base_var& new_local(xcode& c, base_var&& value);
    base_var& declare(const share_str& name, base_var&& value);
    void jump(long long addr);
    void check_jump(xcode& c);
    void jump_if(xcode& c, bool when_zero, int origin);
    void compute(code_type type);
    void compare(code_type type);
    void assign(code_type type);
    void push_valid(base_var&& v);
    void write_top();
    int end_run(loop_end end);
    template <class ACTION> int guarded(ACTION action);

    xmachine& owner;

    // The program. One instruction behind the last, which is none, catches
    // execution that runs off the end.
    std::vector<xcode> code;
    std::vector<std::unique_ptr<xmethod>> methods;
    std::vector<line_entry> lines;
    // What `get_code` gives for an address outside.
    xcode spare;
    xfield field;
    share_str src_fname;
    std::ostream* os;
    xrterror last_error;
    int last_line = 0;

    // The run.
    int ip;
    // An instruction is being executed, or has failed: it is the one before `ip`.
    bool is_inside;
    // A derived class may know more variables than `get_var` does here.
    bool is_derived;
    loop_end last_end;
    // Counts the times the activations were dropped.
    unsigned epoch;
    // Activations, and behind `depth` used ones for the next calls.
    std::vector<xcontext*> contexts;
    unsigned depth;
    unsigned layouts; // given out so far
    operand_stack operands;
    std::vector<slot_chunk> slot_chunks;
    // The chunk in use, its first free slot, and how many are free.
    unsigned chunk;
    xcontext::slot* next_slot;
    unsigned slots_free;
    // Extra locals of activations that ended: values may still refer to them.
    xcontext::extra* retired;
    // Argument lists: a host function reads one while what it calls uses the next.
    std::vector<std::unique_ptr<arg_list>> levels;
    unsigned level;
    base_var return_value;
    // Calls from the host that have not returned, the newest first.
    const host_call* host_calls = nullptr;
};

[[noreturn]] void throw_status(int code);

/// Calls `action`, which returns a status. What it throws becomes one.
template <class ACTION>
int or_status(ACTION action)
{
    try {
        return action();
    } catch (const xcpt& e) {
        return e.get_err();
    } catch (const std::bad_alloc&) {
        return err::out_of_memory;
    }
}

/// Calls `action`, which returns nothing. Exhausted memory becomes an `xrterror`.
template <class ACTION>
void or_throw(ACTION action)
{
    try {
        action();
    } catch (const std::bad_alloc&) {
        throw_status(err::out_of_memory);
    }
}

} // namespace xpp

#endif
