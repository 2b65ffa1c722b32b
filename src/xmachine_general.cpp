// Every case of every instruction, by the operations of `base_var`: what the instruction loop
// does not do in place.
#include "xmachine_state.h"

namespace xpp {

namespace {

[[noreturn]] void fail_invalid(const base_var& v) { throw xrterror(v.get_err(), "invalid variable."); }
[[noreturn]] void fail_operand() { throw xrterror(err::internal, "invalid operand."); }

int int_operand(const base_var& operand)
{
    if (operand.is_ref() || operand.raw_type() != base_var::integer)
        fail_operand();
    return operand.get_int();
}

const share_str& name_operand(const base_var& operand)
{
    if (operand.is_ref() || operand.raw_type() != base_var::string)
        fail_operand();
    return operand.get_string();
}

} // namespace

loop_end machine_state::general(xcode& c, unsigned base)
{
    switch (c.type_) {
    case NOP:
    case POPARG:
    case REF: return loop_end::going;

    case PUSH: {
        const int count = int_operand(c.operand_);
        if (count < 0)
            fail_operand();
        args().clear();
        std::vector<base_var> values;
        operands.pop(static_cast<unsigned>(count), values);
        args().clear();
        for (base_var& v : values)
            args().add(std::move(v));
        return loop_end::going;
    }
    case STORE: operands.push(base_var(c.operand_)); return loop_end::going;
    case GETVAR: operands.push(base_var::reference_to(variable(c))); return loop_end::going;
    case VAR: new_local(c, base_var()); return loop_end::going;
    case GETARG: {
        base_var v;
        args().take(v);
        new_local(c, std::move(v));
        return loop_end::going;
    }
    case CALL: return call_name(c, base);
    case PUSHARG: args().add(operands.pop()); return loop_end::going;
    case RET: return return_from();
    case RETVAL: {
        base_var v;
        v.evaluate(operands.pop());
        if (!v.is_valid())
            fail_invalid(v);
        return_value = std::move(v);
        return loop_end::going;
    }
    case HALT: return loop_end::halted;
    case TRAP: return loop_end::trapped;
    case XRET: return loop_end::xret;

    case AJMP:
        check_jump(c);
        jump(int_operand(c.operand_));
        return loop_end::going;
    case RJMP: jump(static_cast<long long>(ip) + int_operand(c.operand_)); return loop_end::going;
    case AJZ: jump_if(c, true, 0); return loop_end::going;
    case AJNZ: jump_if(c, false, 0); return loop_end::going;
    case RJZ: jump_if(c, true, ip); return loop_end::going;
    case RJNZ: jump_if(c, false, ip); return loop_end::going;

    case OUTPUT: write_top(); return loop_end::going;
    case NOT: push_valid(operands.pop().op_not()); return loop_end::going;
    case NEG: push_valid(base_var(0) - operands.pop()); return loop_end::going;
    case PLUS:
    case MINUS:
    case MUL:
    case DIV:
    case MOD:
    case AND:
    case OR: compute(c.type_); return loop_end::going;
    case EVAL:
    case EVPLUS:
    case EVMINUS:
    case EVMUL:
    case EVDIV:
    case EVMOD: assign(c.type_); return loop_end::going;
    case EQ:
    case NEQ:
    case GE:
    case LE:
    case GT:
    case LT: compare(c.type_); return loop_end::going;
    }
    if (c.type_ != no_code)
        throw xrterror(err::internal, "invalid instruction.");
    --ip;
    throw xrterror(err::internal, "address outside the code.");
}

void machine_state::push_valid(base_var&& v)
{
    if (!v.is_valid())
        fail_invalid(v);
    operands.push(std::move(v));
}

void machine_state::compute(code_type type)
{
    const base_var b = operands.pop();
    const base_var a = operands.pop();
    switch (type) {
    case PLUS: return push_valid(a + b);
    case MINUS: return push_valid(a - b);
    case MUL: return push_valid(a * b);
    case DIV: return push_valid(a / b);
    case MOD: return push_valid(a % b);
    case AND: return push_valid(base_var::op_and(a, b));
    default: return push_valid(base_var::op_or(a, b));
    }
}

void machine_state::compare(code_type type)
{
    const base_var b = operands.pop();
    const base_var a = operands.pop();
    const base_var order = base_var::cmp(a, b);
    if (!order.is_valid())
        fail_invalid(order);
    const int c = order.get_int();
    bool is_true = false;
    switch (type) {
    case EQ: is_true = c == 0; break;
    case NEQ: is_true = c != 0; break;
    case GE: is_true = c >= 0; break;
    case LE: is_true = c <= 0; break;
    case GT: is_true = c > 0; break;
    default: is_true = c < 0;
    }
    operands.push(base_var(is_true ? 1 : 0));
}

void machine_state::assign(code_type type)
{
    const base_var b = operands.pop();
    base_var a = operands.pop();
    switch (type) {
    case EVAL: a.evaluate(b); break;
    case EVPLUS: a += b; break;
    case EVMINUS: a -= b; break;
    case EVMUL: a *= b; break;
    case EVDIV: a /= b; break;
    default: a %= b;
    }
    push_valid(std::move(a));
}

// The value stays on the stack unless it is an error, or cannot be written.
void machine_state::write_top()
{
    base_var v = operands.pop();
    owner.output(v);
    push_valid(std::move(v));
}

// Notes the target of an absolute jump when it is good: the loop then takes it
// without a test. Code never becomes shorter while it stays.
void machine_state::check_jump(xcode& c)
{
    const bool is_absolute = c.type_ == AJMP || c.type_ == AJZ || c.type_ == AJNZ;
    if (!is_absolute || c.operand_.raw_type() != base_var::integer)
        return;
    const unsigned target = static_cast<unsigned>(c.operand_.get_int());
    if (target >= static_cast<unsigned>(code_count()))
        return;
    c.found_.slot = target;
    c.state_ = 1;
}

void machine_state::jump(long long addr)
{
    if (addr < 0 || addr >= code_count())
        throw xrterror(err::internal, "address outside the code.");
    ip = static_cast<int>(addr);
}

void machine_state::jump_if(xcode& c, bool when_zero, int origin)
{
    const base_var condition = operands.pop();
    if (!condition.is_int())
        throw xrterror(err::abnormal_cast, "must be int.");
    check_jump(c);
    if ((condition.get_int() == 0) == when_zero)
        jump(static_cast<long long>(origin) + int_operand(c.operand_));
}

// ---- variables -------------------------------------------------------------

// The slot of the name in an instruction, which remembers it; null when the
// activation has none for it.
xcontext::slot* machine_state::slot_of(xcode& c)
{
    const xcontext& context = *active();
    if (c.state_ != context.layout_) {
        const unsigned number = context.method_->number_local(name_operand(c.operand_));
        if (number >= context.slot_count_)
            return nullptr;
        c.found_.slot = number;
        c.state_ = context.layout_;
    }
    return &context.slots_[c.found_.slot];
}

base_var& machine_state::variable(xcode& c)
{
    const share_str& name = name_operand(c.operand_);
    if (is_derived) {
        base_var* const known = owner.get_var(name);
        return known ? *known : declare(name, base_var());
    }
    xcontext::slot* const s = slot_of(c);
    if (s && s->is_defined)
        return s->value;
    xmethod& of = *active()->method_;
    if (base_var* const extra = s ? nullptr : active()->get_var(name))
        return *extra;
    xmethod::local_name& n = of.locals_[s ? c.found_.slot : of.number_local(name)];
    if (n.global_state != field.state_) {
        n.global = nullptr;
        field.get_var(name, &n.global);
        n.global_state = field.state_;
    }
    return n.global ? *n.global : new_local(c, base_var());
}

base_var& machine_state::new_local(xcode& c, base_var&& value)
{
    const share_str& name = name_operand(c.operand_);
    xcontext::slot* const s = slot_of(c);
    if (!s || s->is_defined)
        return declare(name, std::move(value));
    s->value = std::move(value);
    s->is_defined = true;
    return s->value;
}

base_var& machine_state::declare(const share_str& name, base_var&& value)
{
    const int r = owner.create_var(name, value);
    if (r == err::duplicated_symbol)
        throw xrterror(r, "duplicate variable xname: %s", name.c_str());
    if (r < 0)
        throw_status(r);
    return *active()->get_var(name);
}

// ---- calls -----------------------------------------------------------------

loop_end machine_state::call_name(xcode& c, unsigned base)
{
    const share_str& name = name_operand(c.operand_);
    if (c.state_ != field.state_) {
        c.found_.entry = field.find(name);
        if (!c.found_.entry)
            throw xrterror(err::undefined_symbol, "unevaluated method: %s", name.c_str());
        c.state_ = field.state_;
    }
    const xfield::entry* const e = static_cast<const xfield::entry*>(c.found_.entry);
    if (e->what == xfield::host_function)
        return call_host(e->function, base);
    if (e->what != xfield::procedure)
        throw xrterror(err::unexpected, "name [%s] isn't a method, type: %d", name.c_str(), static_cast<int>(e->what));
    enter(*e->proc, ip);
    ip = e->proc->entry_;
    return loop_end::going;
}

// The function may do anything to the machine, clear it included: then neither
// the instruction nor the activation is there any more.
loop_end machine_state::call_host(::method function, unsigned base)
{
    const unsigned epoch_before = epoch;
    cycque<base_var>& arguments = args().as_queue();
    base_var result;
    {
        const level_guard inner(*this);
        // KEEP: the status is ignored; functions throw to end the run.
        function(owner, result, arguments);
    }
    if (epoch != epoch_before || depth < base)
        return loop_end::dropped;
    operands.push(std::move(result));
    return loop_end::going;
}

} // namespace xpp
