// The instruction loop of the script machine, and the activations that it enters and leaves.
//
// `execute` handles the ordinary case of each instruction in place: ints, names
// that the instruction found before, procedures. Whatever is not ordinary
// (other types, a first look-up, the end of a chunk, an error) leaves the switch
// and goes to `general`, which handles every case of every instruction
// (xmachine_general.cpp). The two agree: tests run the same programs through both.
//
// What holds no text needs no destructor: the loop writes over it. A value that was
// moved away holds none, and neither does the slot of a local that is not defined.
#include "xmachine_state.h"

#include <new>

namespace xpp {

namespace {

int wrap(unsigned v) { return static_cast<int>(v); }
int sum(int a, int b) { return wrap(static_cast<unsigned>(a) + static_cast<unsigned>(b)); }
int difference(int a, int b) { return wrap(static_cast<unsigned>(a) - static_cast<unsigned>(b)); }
int product(int a, int b) { return wrap(static_cast<unsigned>(a) * static_cast<unsigned>(b)); }

// Division by zero and the smallest int divided by -1 are left to base_var.
bool is_plain_division(int, int b) { return b != 0 && b != -1; }

bool get_int(const base_var& v, int& out)
{
    const base_var& target = v.get_ref();
    if (target.raw_type() != base_var::integer)
        return false;
    out = target.get_int();
    return true;
}

bool get_number(const base_var& v, double& out)
{
    const base_var& target = v.get_ref();
    if (target.raw_type() == base_var::real)
        out = target.get_double();
    else if (target.raw_type() == base_var::integer)
        out = target.get_int();
    else
        return false;
    return true;
}

// Appends in place; false for what is no text, or const.
bool append_text(base_var& to, const base_var& text)
{
    if (to.raw_type() != base_var::string || text.raw_type() != base_var::string || !to.raw_is_lvalue())
        return false;
    to += text;
    return true;
}

bool is_assignable_int(const base_var& v) { return v.raw_type() == base_var::integer && v.raw_is_lvalue(); }

} // namespace

// ---- activations -----------------------------------------------------------

void machine_state::enter(xmethod& of, int return_addr)
{
    if (depth == contexts.size())
        add_context();
    if (of.numbered_to_ < of.end_ || of.layout_ == 0)
        prepare(of);
    if (slots_free < of.slot_count_)
        open_slot_chunk(of.slot_count_, *contexts[depth]);
    activate(of, return_addr);
}

// The part of `enter` that is always needed and cannot fail. Returns the activation.
[[gnu::always_inline]] inline xcontext* machine_state::activate(xmethod& of, int return_addr)
{
    xcontext& c = *contexts[depth++];
    const unsigned slots = of.slot_count_;
    c.method_ = &of;
    c.return_addr_ = return_addr;
    c.slots_ = next_slot;
    c.slot_count_ = slots;
    c.layout_ = of.layout_;
    operands.enter(c.operands_);
    next_slot += slots;
    slots_free -= slots;
    return &c;
}

// Returns the activation below; null when there is none.
[[gnu::always_inline]] inline xcontext* machine_state::leave()
{
    xcontext& c = *contexts[--depth];
    xcontext* const below = active();
    operands.leave(c.operands_, below ? below->operands_ : operands.bottom());
    for (xcontext::slot* s = c.slots_; s != next_slot; ++s) {
        s->is_defined = false;
        if (s->value.raw_type() == base_var::string)
            s->value = base_var();
        else
            new (&s->value) base_var();
    }
    slots_free += c.slot_count_;
    next_slot = c.slots_;
    if (c.extras_ || c.opened_chunk_)
        leave_extras(c);
    return below;
}

void machine_state::leave_extras(xcontext& c)
{
    while (xcontext::extra* const e = c.extras_) {
        c.extras_ = e->next;
        e->next = retired;
        retired = e;
    }
    if (!c.opened_chunk_)
        return;
    c.opened_chunk_ = false;
    chunk = c.slot_chunk_;
    slots_free = c.slots_free_;
    next_slot = slot_chunks[chunk].slots.get() + (slot_chunks[chunk].size - slots_free);
}

void machine_state::drop_contexts(unsigned to)
{
    while (depth > to)
        leave();
    if (depth == 0 && level == 0)
        trim();
}

// Whether a call with `count` arguments can go straight from the operand stack
// into the parameters: there are as many, nothing must be prepared, and nothing
// on the way can fail.
[[gnu::always_inline]] inline bool machine_state::takes(const xmethod& of, const xcode* entry, int count) const
{
    if (of.parameters_ != count || of.layout_ == 0 || of.numbered_to_ < of.end_)
        return false;
    for (int i = 0; i < count; ++i, ++entry) {
        if (entry->type_ != GETARG || entry->state_ != of.layout_)
            return false;
    }
    return entry->type_ != GETARG && depth != contexts.size() && slots_free >= of.slot_count_;
}

// Moves the arguments from `from` on into the slots that the instructions name.
[[gnu::noinline]] void machine_state::take_arguments(const xcode* c, const xcode* end, base_var* from,
                                                     xcontext::slot* slots)
{
    for (; c != end; ++c, ++from) {
        xcontext::slot& s = slots[c->found_.slot];
        new (&s.value) base_var(std::move(*from));
        s.is_defined = true;
    }
}

// Out of the main text, or of a procedure that the host called: the loop itself goes back into code.
loop_end machine_state::return_from()
{
    if (active()->return_addr_ == xcontext::no_address)
        return loop_end::halted;
    leave();
    ip = code_count();
    return loop_end::xret;
}

// ---- the loop --------------------------------------------------------------

// `base` is the number of activations when the loop began: when there are fewer,
// what it ran is gone.
template <bool one_step>
loop_end machine_state::execute(unsigned base)
{
    xcode* begin;
    xcode* next;
    base_var* top;
    base_var* floor;
    base_var* limit;
    xcontext* context;
    xcontext::slot* slots;
    unsigned layout;
    arg_list* list;

    // Everything that other functions may change is written back before a call
    // and read again behind it.
    const auto store = [&]() __attribute__((always_inline)) {
        ip = static_cast<int>(next - begin);
        operands.top = top;
    };
    const auto use = [&](xcontext* c) __attribute__((always_inline)) {
        context = c;
        slots = c->slots_;
        layout = c->layout_;
        top = operands.top;
        floor = operands.floor;
        limit = operands.limit;
    };
    const auto use_active = [&]() __attribute__((always_inline)) { use(contexts[depth - 1]); };
    const auto load = [&]() __attribute__((always_inline)) {
        begin = code.data();
        next = begin + ip;
        list = &args();
        use_active();
    };
    const auto return_to = [&](int addr) __attribute__((always_inline)) {
        operands.top = top;
        leave();
        operands.push(base_var(return_value));
        use_active();
        next = begin + addr;
    };
    // The same when `return_value` is this int.
    const auto return_int_to = [&](int addr, int value) __attribute__((always_inline)) {
        operands.top = top;
        use(leave());
        if (top == limit) {
            operands.make_room();
            use_active();
        }
        new (top++) base_var(value);
        next = begin + addr;
    };
    const auto one_int = [&](int& a) __attribute__((always_inline)) { return top - 1 >= floor && get_int(top[-1], a); };
    const auto two_ints = [&](int& a, int& b) __attribute__((always_inline)) {
        return top - 2 >= floor && get_int(top[-1], b) && get_int(top[-2], a);
    };
    // Called when two_ints has said no: at least one is a double.
    const auto two_numbers = [&](double& a, double& b) __attribute__((always_inline)) {
        return top - 2 >= floor && get_number(top[-1], b) && get_number(top[-2], a);
    };
    const auto replace_two = [&](auto v) __attribute__((always_inline)) {
        --top;
        new (top - 1) base_var(v);
    };
    // The target of a jump whose operand has been checked.
    const auto jump_to = [&](const xcode& c) __attribute__((always_inline)) {
        if (c.state_ == 0)
            return false;
        next = begin + c.found_.slot;
        return true;
    };
    const auto assign_int = [&](base_var* variable, int value, base_var* place) __attribute__((always_inline)) {
        if (!variable || !variable->raw_is_lvalue())
            return false;
        *variable = value;
        new (place) base_var(base_var::reference_to(*variable));
        top = place + 1;
        ++next;
        return true;
    };
    const auto decide = [&](bool is_true, base_var* place) __attribute__((always_inline)) {
        const xcode& jump = next[1];
        if ((jump.type_ == AJZ || jump.type_ == AJNZ) && jump.state_ != 0) {
            next = is_true == (jump.type_ == AJNZ) ? begin + jump.found_.slot : next + 2;
            top = place;
            return true;
        }
        new (place) base_var(is_true ? 1 : 0);
        top = place + 1;
        ++next;
        return true;
    };
    // The variable of a GETVAR when it is a local int, and its value.
    const auto int_variable = [&](const xcode& c, int& value) __attribute__((always_inline)) -> base_var* {
        if (c.state_ != layout)
            return nullptr;
        base_var& v = slots[c.found_.slot].value.get_ref();
        if (v.raw_type() != base_var::integer)
            return nullptr;
        value = v.get_int();
        return &v;
    };
    // Executes the operator at `next` on a and b, and the jump that may follow a
    // comparison. The result goes to `place`, which becomes the top value. False,
    // with nothing done, for what is not ordinary. `variable` is that of a, null
    // when there is none.
    const auto operate = [&](base_var* variable, int a, int b, base_var* place) __attribute__((always_inline)) {
        int result;
        switch (next->type_) {
        case PLUS: result = sum(a, b); break;
        case MINUS: result = difference(a, b); break;
        case MUL: result = product(a, b); break;
        case DIV:
            if (!is_plain_division(a, b))
                return false;
            result = a / b;
            break;
        case MOD:
            if (!is_plain_division(a, b))
                return false;
            result = a % b;
            break;
        case AND: result = a != 0 && b != 0; break;
        case OR: result = a != 0 || b != 0; break;
        case EVAL: return assign_int(variable, b, place);
        case EVPLUS: return assign_int(variable, sum(a, b), place);
        case EVMINUS: return assign_int(variable, difference(a, b), place);
        case EVMUL: return assign_int(variable, product(a, b), place);
        case EQ: return decide(a == b, place);
        case NEQ: return decide(a != b, place);
        case GE: return decide(difference(a, b) >= 0, place);
        case LE: return decide(difference(a, b) <= 0, place);
        case GT: return decide(difference(a, b) > 0, place);
        case LT: return decide(difference(a, b) < 0, place);
        default: return false;
        }
        new (place) base_var(result);
        top = place + 1;
        ++next;
        return true;
    };

    is_inside = true;
    load();
    do {
        xcode& c = *next++;
        int a = 0;
        int b = 0;
        double x = 0;
        double y = 0;
        switch (one_step ? xcode::quick_of(c.type_) : c.quick_) {
        case NOP:
        case POPARG:
        case REF: continue;

        case INT_OPERATOR:
            if (one_int(a) && c.operand_.raw_type() == base_var::integer
                && operate(nullptr, a, c.operand_.get_int(), top - 1))
                continue;
            [[fallthrough]];
        case STORE:
            if (top == limit)
                break;
            new (top++) base_var(c.operand_);
            continue;

        case VAR_INT_OPERATOR:
            if (top != limit && next->type_ == STORE && next->operand_.raw_type() == base_var::integer) {
                base_var* const v = int_variable(c, a);
                b = next->operand_.get_int();
                ++next;
                if (v && operate(v, a, b, top))
                    continue;
                --next;
            }
            [[fallthrough]];
        case VAR_VAR_OPERATOR:
            if (top != limit && next->type_ == GETVAR) {
                base_var* const v = int_variable(c, a);
                const bool is_int = int_variable(*next, b) != nullptr;
                ++next;
                if (v && is_int && operate(v, a, b, top))
                    continue;
                --next;
            }
            [[fallthrough]];
        case VAR_OPERATOR:
            if (one_int(a) && int_variable(c, b) && operate(nullptr, a, b, top - 1))
                continue;
            [[fallthrough]];
        case VAR_RETURN:
            if (next->type_ == RETVAL && next[1].type_ == RET && context->return_addr_ >= 0 && int_variable(c, a)) {
                return_value = a;
                return_int_to(context->return_addr_, a);
                continue;
            }
            [[fallthrough]];
        case GETVAR: {
            if (c.state_ != layout || top == limit)
                break;
            xcontext::slot& s = slots[c.found_.slot];
            if (s.is_defined) {
                new (top++) base_var(base_var::reference_to(s.value));
                continue;
            }
            const xmethod::local_name& n = context->method_->locals_[c.found_.slot];
            if (!n.global || n.global_state != field.state_)
                break;
            new (top++) base_var(base_var::reference_to(*n.global));
            continue;
        }

        case GETARG: {
            if (c.state_ != layout)
                break;
            xcontext::slot& s = slots[c.found_.slot];
            if (s.is_defined || !list->take_plain(s.value))
                break;
            s.is_defined = true;
            continue;
        }

        case PUSH: {
            if (c.operand_.raw_type() != base_var::integer)
                break;
            const int count = c.operand_.get_int();
            if (count < 0 || top - floor < count)
                break;
            top -= count;
            if (!one_step && next->type_ == CALL && next->state_ == field.state_) {
                const xfield::entry& e = *static_cast<const xfield::entry*>(next->found_.entry);
                if (e.what == xfield::procedure && takes(*e.proc, begin + e.proc->entry_, count)) {
                    if (!list->is_empty())
                        list->clear();
                    base_var* argument = top;
                    operands.top = top;
                    use(activate(*e.proc, static_cast<int>(next + 1 - begin)));
                    next = begin + e.proc->entry_;
                    xcode* const body = next + count;
                    for (; next != body && argument->raw_type() != base_var::string; ++next, ++argument) {
                        xcontext::slot& s = slots[next->found_.slot];
                        new (&s.value) base_var(std::move(*argument));
                        s.is_defined = true;
                    }
                    if (next != body) // a text; out of the way of the loop's registers
                        take_arguments(next, body, argument, slots);
                    next = body;
                    continue;
                }
            }
            list->fill(top, static_cast<unsigned>(count));
            continue;
        }

        case CALL: {
            if (c.state_ != field.state_)
                break;
            const xfield::entry& e = *static_cast<const xfield::entry*>(c.found_.entry);
            if (e.what != xfield::procedure)
                break;
            store();
            enter(*e.proc, ip);
            use_active();
            next = begin + e.proc->entry_;
            continue;
        }

        case RET: {
            const int back = context->return_addr_;
            if (back < 0)
                break;
            return_to(back);
            continue;
        }

        case RETVAL:
            if (!one_int(a))
                break;
            return_value = a;
            --top;
            if (one_step || next->type_ != RET || context->return_addr_ < 0)
                continue;
            return_int_to(context->return_addr_, a);
            continue;

        case AJMP:
            if (jump_to(c))
                continue;
            break;
        case AJZ:
            if (!one_int(a) || (a == 0 && !jump_to(c)))
                break;
            --top;
            continue;
        case AJNZ:
            if (!one_int(a) || (a != 0 && !jump_to(c)))
                break;
            --top;
            continue;

        case PLUS:
            if (two_ints(a, b))
                replace_two(sum(a, b));
            else if (two_numbers(x, y))
                replace_two(x + y);
            else
                break;
            continue;
        case MINUS:
            if (two_ints(a, b))
                replace_two(difference(a, b));
            else if (two_numbers(x, y))
                replace_two(x - y);
            else
                break;
            continue;
        case MUL:
            if (two_ints(a, b))
                replace_two(product(a, b));
            else if (two_numbers(x, y))
                replace_two(x * y);
            else
                break;
            continue;
        case DIV:
            if (!two_ints(a, b) || !is_plain_division(a, b))
                break;
            replace_two(a / b);
            continue;
        case MOD:
            if (!two_ints(a, b) || !is_plain_division(a, b))
                break;
            replace_two(a % b);
            continue;
        case NEG:
            if (!one_int(a))
                break;
            new (top - 1) base_var(difference(0, a));
            continue;
        case NOT:
            if (!one_int(a))
                break;
            new (top - 1) base_var(a == 0 ? 1 : 0);
            continue;
        case AND:
            if (!two_ints(a, b))
                break;
            replace_two(a != 0 && b != 0 ? 1 : 0);
            continue;
        case OR:
            if (!two_ints(a, b))
                break;
            replace_two(a != 0 || b != 0 ? 1 : 0);
            continue;

        // KEEP: ints compare by their wrapped difference, as base_var::cmp does.
        case EQ:
            if (!two_ints(a, b))
                break;
            replace_two(a == b ? 1 : 0);
            continue;
        case NEQ:
            if (!two_ints(a, b))
                break;
            replace_two(a != b ? 1 : 0);
            continue;
        case GE:
            if (!two_ints(a, b))
                break;
            replace_two(difference(a, b) >= 0 ? 1 : 0);
            continue;
        case LE:
            if (!two_ints(a, b))
                break;
            replace_two(difference(a, b) <= 0 ? 1 : 0);
            continue;
        case GT:
            if (!two_ints(a, b))
                break;
            replace_two(difference(a, b) > 0 ? 1 : 0);
            continue;
        case LT:
            if (!two_ints(a, b))
                break;
            replace_two(difference(a, b) < 0 ? 1 : 0);
            continue;

        case EVAL:
        case EVPLUS:
        case EVMINUS:
        case EVMUL: {
            if (!two_ints(a, b)) {
                if (c.type_ != EVPLUS || top - 2 < floor || !append_text(top[-2].get_ref(), top[-1].get_ref()))
                    break;
                --top;
                top->~base_var();
                continue;
            }
            base_var& target = top[-2].get_ref();
            if (!is_assignable_int(target))
                break;
            if (c.type_ == EVAL)
                target = b;
            else if (c.type_ == EVPLUS)
                target = sum(a, b);
            else if (c.type_ == EVMINUS)
                target = difference(a, b);
            else
                target = product(a, b);
            --top;
            continue;
        }

        default: break;
        }
        store();
        const loop_end end = general(c, base);
        if (end != loop_end::going)
            return end;
        load();
    } while (!one_step);
    store();
    return loop_end::stepped;
}

template loop_end machine_state::execute<false>(unsigned base);
template loop_end machine_state::execute<true>(unsigned base);

} // namespace xpp
