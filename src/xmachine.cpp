// The script machine: program, names, activations and the host's side of it.
// xmachine_state.h tells what stands in which file.
#include "xmachine_state.h"

#include <algorithm>
#include <charconv>
#include <iostream>
#include <new>

namespace xpp {

namespace {

// ---- the host functions of every machine; they are called by machines only

xmachine& machine_of(einterpret& interpreter) { return static_cast<xmachine&>(interpreter); }

int get_cur_fname(einterpret& interpreter, base_var& result, cycque<base_var>&)
{
    result = machine_of(interpreter).get_src_fname();
    return 0;
}

int get_cur_line(einterpret& interpreter, base_var& result, cycque<base_var>&)
{
    result = machine_of(interpreter).find_ip_line();
    return 0;
}

int print(einterpret& interpreter, base_var& result, cycque<base_var>& args)
{
    for (unsigned i = 0; i < args.count(); ++i)
        machine_of(interpreter).output(args[i]);
    result = args.count();
    return 0;
}

int print_trace(einterpret& interpreter, base_var&, cycque<base_var>&)
{
    machine_of(interpreter).print_trace(*machine_of(interpreter).get_ostream());
    return 0;
}

// KEEP: "print_local" prints everything; scripts call it to see the globals too.
int print_local(einterpret& interpreter, base_var&, cycque<base_var>&)
{
    machine_of(interpreter).print_all(*machine_of(interpreter).get_ostream());
    return 0;
}

int print_global(einterpret& interpreter, base_var&, cycque<base_var>&)
{
    machine_of(interpreter).print_global(*machine_of(interpreter).get_ostream());
    return 0;
}

const char* const host_names[]
    = { "get_cur_fname", "get_cur_line", "print", "print_trace", "print_local", "print_global", nullptr };
const ::method host_functions[] = { get_cur_fname, get_cur_line, print, print_trace, print_local, print_global };

} // namespace

void throw_status(int code) { throw xrterror(code, "%s", get_err_info(code)); }

// ---- the state -------------------------------------------------------------

machine_state::machine_state(xmachine& machine)
    : owner(machine), os(&std::cout), ip(no_ip), is_inside(false), is_derived(false), last_end(loop_end::going), epoch(0),
      depth(0), layouts(0), chunk(0), next_slot(nullptr), slots_free(0), retired(nullptr), level(0)
{
    code.emplace_back(no_code);
    levels.push_back(std::unique_ptr<arg_list>(new arg_list));
    add_slot_chunk(slots_per_chunk);
    next_slot = slot_chunks[0].slots.get();
    slots_free = slots_per_chunk;
}

void arg_list::reserve(unsigned n)
{
    if (n <= room_)
        return;
    const unsigned room = n < 8 ? 8 : n + n / 2;
    base_var* const items = static_cast<base_var*>(container_memory::take_array(room, sizeof(base_var)));
    for (unsigned i = taken_; i != count_; ++i) {
        new (items + i) base_var(std::move(items_[i]));
        items_[i].~base_var();
    }
    std::free(items_);
    items_ = items;
    room_ = room;
}

machine_state::~machine_state()
{
    level = 0;
    clear_runner();
    for (xcontext* c : contexts)
        delete c;
}

// The operand may be one of the code's own.
int machine_state::append(code_type type, base_var operand)
{
    return or_status([&] {
        if (code.size() == code.capacity())
            code.reserve(code.size() * 2);
        xcode& added = code.back();
        added.set_type(type);
        new (&added.operand_) base_var(std::move(operand)); // over one without a value
        code.emplace_back(no_code);
        return code_count() - 1;
    });
}

int machine_state::add_methods(const char* const* names, const ::method* functions)
{
    return or_status([&] {
        for (; *names; ++names, ++functions) {
            const share_str name(*names);
            if (name.isempty() && **names)
                return err::out_of_memory;
            xfield::entry* const known = field.find(name);
            if (known && known->what != xfield::host_function)
                return err::duplicated_symbol;
            if (known) {
                known->function = *functions;
                continue;
            }
            xfield::entry e = {};
            e.what = xfield::host_function;
            e.function = *functions;
            field.add(name, e);
        }
        return 0;
    });
}

void machine_state::copy_program(const machine_state& other)
{
    code = other.code;
    lines = other.lines;
    src_fname = other.src_fname;
    os = other.os;
    field.copy_names(other.field);
    for (const auto& theirs : other.methods) {
        std::unique_ptr<xmethod> mine(new xmethod(*theirs));
        for (xmethod::local_name& n : mine->locals_)
            n.global_state = 0;
        mine->layout_ = 0;
        xfield::entry e = {};
        e.what = xfield::procedure;
        e.proc = mine.get();
        field.add(mine->name_, e);
        methods.push_back(std::move(mine));
    }
}

void machine_state::clear_program()
{
    clear_runner();
    code.erase(code.begin(), code.end() - 1);
    methods.clear();
    lines.clear();
    field.drop_program();
    return_value = base_var();
}

// The line of the last entry of [first, last) that is not above `addr`.
int machine_state::find_line(int first, int last, int addr) const
{
    const auto begin = lines.begin() + first;
    const auto behind
        = std::upper_bound(begin, lines.begin() + last, addr, [](int a, const line_entry& e) { return a < e.addr; });
    return behind == begin ? -1 : behind[-1].line;
}

int machine_state::current_addr() const { return is_inside ? ip - 1 : ip; }

// Where the caller of activation `i` goes on.
int machine_state::caller_addr(unsigned i) const
{
    const int addr = contexts[i]->get_return_addr();
    for (const host_call* call = host_calls; addr == xcontext::to_host && call; call = call->outer) {
        if (call->epoch == epoch && call->depth == i)
            return call->ip;
    }
    return addr;
}

// ---- activations -----------------------------------------------------------

void machine_state::add_context()
{
    if (depth == max_contexts)
        throw_status(err::overrun);
    if (contexts.size() == contexts.capacity())
        contexts.reserve(depth + 1 + depth / 2);
    contexts.push_back(new xcontext);
    contexts.back()->machine_ = &owner;
    contexts.back()->index_ = depth;
}

// Goes to a chunk with room for `count` slots, until the activation ends.
void machine_state::open_slot_chunk(unsigned count, xcontext& opener)
{
    unsigned next = chunk + 1;
    while (next < slot_chunks.size() && slot_chunks[next].size < count)
        ++next;
    if (next == slot_chunks.size())
        add_slot_chunk(count);
    opener.opened_chunk_ = true;
    opener.slot_chunk_ = chunk;
    opener.slots_free_ = slots_free;
    chunk = next;
    next_slot = slot_chunks[next].slots.get();
    slots_free = slot_chunks[next].size;
}

void machine_state::add_slot_chunk(unsigned count)
{
    const unsigned size = std::max(count, slots_per_chunk);
    // Not as a temporary of push_back: when that fails, gcc 12 destroys it twice.
    slot_chunk added;
    added.slots.reset(new xcontext::slot[size]);
    added.size = size;
    slot_chunks.push_back(std::move(added));
}

// Numbers the names in the code of a procedure, and looks for instructions that
// can be executed together.
void machine_state::prepare(xmethod& of)
{
    const int end = std::min(of.end_, code_count());
    for (int addr = of.numbered_to_; addr < end; ++addr) {
        xcode& c = code[static_cast<size_t>(addr)];
        c.quick_ = quick_type_at(addr);
        check_jump(c);
        const bool names_local = c.type_ == GETVAR || c.type_ == VAR || c.type_ == GETARG;
        if (names_local && c.operand_.raw_type() == base_var::string)
            of.number_local(c.operand_.get_string());
    }
    of.numbered_to_ = of.end_;
    of.layout_ = ++layouts;
    of.slot_count_ = static_cast<unsigned>(of.locals_.size());
    of.parameters_ = count_parameters(of);
}

// The number of parameters of a procedure, which are the GETARGs that it begins
// with; -1 when there are many or two have the same name.
int machine_state::count_parameters(const xmethod& of) const
{
    int count = 0;
    for (; code[static_cast<size_t>(of.entry_ + count)].type_ == GETARG; ++count) {
        if (count == longest_direct_call)
            return -1;
        const base_var& name = code[static_cast<size_t>(of.entry_ + count)].operand_;
        for (int i = 0; i < count; ++i) {
            if (code[static_cast<size_t>(of.entry_ + i)].operand_.get_string() == name.get_string())
                return -1;
        }
    }
    return count;
}

short machine_state::quick_type_at(int addr) const
{
    const xcode* const c = &code[static_cast<size_t>(addr)];
    const auto is_int = [](const xcode& i) { return i.type_ == STORE && i.operand_.raw_type() == base_var::integer; };
    const auto is_operator = [](const xcode& i) { return i.type_ >= PLUS && i.type_ <= LT; };
    if (c->type_ == GETVAR && is_operator(c[1]))
        return VAR_OPERATOR;
    if (c->type_ == GETVAR && c[1].type_ == GETVAR && is_operator(c[2]))
        return VAR_VAR_OPERATOR;
    if (c->type_ == GETVAR && is_int(c[1]) && is_operator(c[2]))
        return VAR_INT_OPERATOR;
    if (is_int(*c) && is_operator(c[1]))
        return INT_OPERATOR;
    if (c->type_ == GETVAR && c[1].type_ == RETVAL && c[2].type_ == RET)
        return VAR_RETURN;
    return xcode::quick_of(c->type_);
}

// Gives back what only references of finished activations could still need.
void machine_state::trim()
{
    operands.trim();
    if (slot_chunks.size() > 1)
        slot_chunks.erase(slot_chunks.begin() + 1, slot_chunks.end());
    while (xcontext::extra* const gone = retired) {
        retired = gone->next;
        delete gone;
    }
    field.free_removed();
}

void machine_state::clear_runner()
{
    args().clear();
    drop_contexts(0);
    ip = no_ip;
    is_inside = false;
    ++epoch;
}

void machine_state::push_level()
{
    if (level + 1 == max_levels)
        throw_status(err::overrun);
    if (level + 1 == levels.size())
        levels.push_back(std::unique_ptr<arg_list>(new arg_list));
    ++level;
}

void machine_state::pop_level()
{
    args().clear();
    --level;
}

// ---- the machine -----------------------------------------------------------

xmachine::xmachine() : state_(nullptr)
{
    or_throw([&] {
        std::unique_ptr<machine_state> made(new machine_state(*this));
        int r = made->add_methods(einterpret::built_in::names, einterpret::built_in::methods);
        if (r >= 0)
            r = made->add_methods(host_names, host_functions);
        if (r < 0)
            throw_status(r);
        state_ = made.release();
    });
}

xmachine::xmachine(const xmachine& other) : einterpret(other), state_(nullptr)
{
    or_throw([&] {
        std::unique_ptr<machine_state> made(new machine_state(*this));
        made->copy_program(*other.state_);
        state_ = made.release();
    });
}

xmachine& xmachine::operator=(const xmachine& other)
{
    if (this == &other)
        return *this;
    or_throw([&] {
        std::unique_ptr<machine_state> made(new machine_state(*this));
        made->copy_program(*other.state_);
        delete state_;
        state_ = made.release();
    });
    return *this;
}

xmachine::~xmachine() { delete state_; }

// ---- program

int xmachine::add_code(code_type type) { return state_->append(type, base_var()); }
int xmachine::add_code(code_type type, const base_var& operand) { return state_->append(type, operand); }
int xmachine::add_code(code_type type, int operand) { return state_->append(type, base_var(operand)); }
int xmachine::add_code(code_type type, double operand) { return state_->append(type, base_var(operand)); }
int xmachine::add_code(code_type type, const share_str& operand) { return state_->append(type, base_var(operand)); }
int xmachine::add_code(code_type type, const char* operand) { return state_->append(type, base_var(operand)); }

xcode& xmachine::get_code(int addr) { return const_cast<xcode&>(static_cast<const xmachine*>(this)->get_code(addr)); }

const xcode& xmachine::get_code(int addr) const
{
    if (addr < 0 || addr >= state_->code_count())
        return state_->spare = xcode();
    return state_->code[static_cast<size_t>(addr)];
}

int xmachine::last_addr() const { return state_->code_count(); }
const xcode& xmachine::get_method_entry(const xmethod& of) const { return get_code(of.entry_); }

xmethod* xmachine::new_method(const share_str& name)
{
    machine_state& s = *state_;
    if (s.field.find(name))
        return nullptr;
    xmethod* made = nullptr;
    or_throw([&] {
        if (s.methods.size() == s.methods.capacity())
            s.methods.reserve(s.methods.size() + 1 + s.methods.size() / 2);
        std::unique_ptr<xmethod> m(new xmethod(name, s.code_count(), static_cast<int>(s.lines.size())));
        xfield::entry e = {};
        e.what = xfield::procedure;
        e.proc = m.get();
        s.field.add(name, e);
        made = m.get();
        s.methods.push_back(std::move(m));
    });
    return made;
}

void xmachine::end_method(xmethod& of)
{
    of.end_ = state_->code_count();
    of.end_line_ = static_cast<int>(state_->lines.size());
}

void xmachine::arrive_line(xmethod&, int line, int pos)
{
    machine_state& s = *state_;
    if (!s.lines.empty() && (s.lines.back().addr == s.code_count() || s.lines.back().line == line))
        return;
    or_throw([&] { s.lines.push_back({ s.code_count(), line, pos }); });
}

int xmachine::find_line(int addr) const { return state_->find_line(0, static_cast<int>(state_->lines.size()), addr); }
int xmachine::find_line(const xmethod& of, int addr) const
{
    return state_->find_line(of.first_line_, of.end_line_, addr);
}
int xmachine::find_ip_line() const { return is_running() ? find_line(state_->current_addr()) : -1; }

void xmachine::set_src_fname(const share_str& name) { state_->src_fname = name; }
const share_str& xmachine::get_src_fname() const { return state_->src_fname; }

int xmachine::add_methods(const char* const* names, const ::method* fns) { return state_->add_methods(names, fns); }
xfield& xmachine::get_field() { return state_->field; }

// ---- running

int xmachine::run() { return state_->run(); }
int xmachine::run_begin() { return state_->run_begin(); }
int xmachine::run_step() { return state_->step(); }

int xmachine::run_next()
{
    machine_state& s = *state_;
    const unsigned depth = s.depth;
    const int line = find_ip_line();
    for (;;) {
        const int r = s.step();
        if (r < 0 || !is_running() || s.last_end != loop_end::stepped)
            return r;
        if (s.depth < depth || (s.depth == depth && find_ip_line() != line))
            return 0;
    }
}

int xmachine::run_continue() { return run(); }
void xmachine::run_end() { clear_runner(); }
bool xmachine::is_running() const { return state_->ip != machine_state::no_ip; }
int xmachine::get_ip() const { return state_->ip; }

int xmachine::call(const share_str& name, base_var& result, cycque<base_var>& args)
{
    return state_->call(name, result, args);
}

base_var* xmachine::get_var(const share_str& name)
{
    if (xcontext* const c = state_->active()) {
        if (base_var* const local = c->get_var(name))
            return local;
    }
    base_var* global = nullptr;
    state_->field.get_var(name, &global);
    return global;
}

int xmachine::create_var(const share_str& name, const base_var& value)
{
    xcontext* const c = state_->active();
    return c ? c->create_var(name, value) : err::unprepared;
}

int xmachine::create_var(const share_str& name) { return create_var(name, base_var()); }

const xrterror& xmachine::get_last_error() const { return state_->last_error; }
int xmachine::get_last_line() const { return state_->last_line; }

xcontext* xmachine::get_active() const { return state_->active(); }
unsigned xmachine::count_contexts() const { return state_->depth; }
xcontext* xmachine::get_context(unsigned i) const { return i < state_->depth ? state_->contexts[i] : nullptr; }

void xmachine::clear() { state_->clear_program(); }
void xmachine::clear_runner() { state_->clear_runner(); }
void xmachine::halt() { throw xhalt(); }

// ---- output

void xmachine::output(const char* s)
{
    if (s)
        state_->os->write(s, static_cast<std::streamsize>(std::strlen(s)));
}

void xmachine::output(const share_str& s) { state_->os->write(s.c_str(), s.length()); }

void xmachine::output(base_var& v)
{
    switch (v.get_type()) {
    case base_var::error: return;
    case base_var::string: return output(v.get_string());
    case base_var::integer: {
        char text[16];
        const auto end = std::to_chars(text, text + sizeof text, v.get_int());
        state_->os->write(text, end.ptr - text);
        return;
    }
    default: output(v.to_string());
    }
}

std::ostream* xmachine::set_ostream(std::ostream* os) { return std::exchange(state_->os, os); }
std::ostream* xmachine::get_ostream() const { return state_->os; }

} // namespace xpp
