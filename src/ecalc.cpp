// An evaluator: the parser's reports drive a stack of values.
//
// A literal is pushed as a value, a variable as a reference to it, so that an
// assignment can reach the variable and a value is read only when its operator
// runs. An arithmetic operator works in the place of its left operand, which is
// turned into a value of its own first.
#include <stdkro/ecalc.h>

#include "gbk_texts.h"
#include "memory_status.h"

#include <stdkro/xcpt.h>

#include <utility>

namespace {

/// Replaces a reference or a constant by a value that may be changed.
void make_own(base_var& slot)
{
    if (slot.is_ref() || slot.is_const())
        slot = base_var::fresh(slot);
}

/// What a comparison `op` says of `order`, the left operand minus the right.
bool holds(int op, int order)
{
    switch (op) {
    case eparser::OP_GREATER: return order > 0;
    case eparser::OP_LESS: return order < 0;
    case eparser::OP_EQUAL: return order == 0;
    case eparser::OP_GREATER_EQUAL: return order > -1;
    case eparser::OP_LESS_EQUAL: return order < 1;
    default: return order != 0;
    }
}

/// The order of two values; throws for values without one.
int compare(const base_var& left, const base_var& right)
{
    const base_var order = base_var::cmp(left, right);
    if (!order.is_valid())
        throw xrterror(order.get_err(), "compare error.");
    return order.to_int();
}

/// Sets a mark while it lives.
class marked {
public:
    explicit marked(bool& mark) : mark_(mark) { mark_ = true; }
    ~marked() { mark_ = false; }
    marked(const marked&) = delete;
    marked& operator=(const marked&) = delete;

private:
    bool& mark_;
};

} // namespace

einterpret::~einterpret() {}

/// Turns references that an evaluation leaves on the stack into values when it
/// ends: the host may remove their variables before they are popped.
class ecalc::settled {
public:
    explicit settled(ecalc& calc) : calc_(calc), depth_(calc.stack_.count()) {}
    ~settled()
    {
        for (unsigned i = depth_; i < calc_.stack_.count(); ++i)
            make_own(calc_.stack_[i]);
    }
    settled(const settled&) = delete;
    settled& operator=(const settled&) = delete;

private:
    ecalc& calc_;
    unsigned depth_;
};

ecalc::ecalc()
{
    if (add_methods(built_in::names, built_in::methods) < 0)
        throw xcpt(err::out_of_memory, get_err_info(err::out_of_memory));
}

ecalc::~ecalc() {}

int ecalc::add_methods(const char* const* names, const method* fns)
{
    return memory_status([&] {
        for (unsigned i = 0; names[i]; ++i) {
            const share_str name(names[i]);
            // A text that found no memory is empty.
            if (name.isempty() && *names[i])
                return err::out_of_memory;
            methods_.set(name, fns[i]);
        }
        return err::ok;
    });
}

int ecalc::calc_expr(base_var& result, eparser::elexer* lexer)
{
    const settled values(*this);
    const int r = read_expr(lexer);
    if (r < 0)
        return r;
    result = base_var::fresh(top());
    stack_.pop_back();
    return err::ok;
}

int ecalc::calc_expr(base_var& result, const char* text)
{
    if (!kept_lexer_.is_used) {
        const marked use(kept_lexer_.is_used);
        return calc_text(result, kept_lexer_.lexer, text);
    }
    // A function that is being called evaluates a text of its own.
    return memory_status([&] {
        eparser::elexer lexer;
        return calc_text(result, lexer, text);
    });
}

int ecalc::calc_text(base_var& result, eparser::elexer& lexer, const char* text)
{
    const int r = lexer.load_string(text, nullptr, false);
    return r < 0 ? r : calc_expr(result, &lexer);
}

int ecalc::call(const share_str& name, base_var& result, cycque<base_var>& args)
{
    const method* const found = methods_.find(name);
    return found ? (*found)(*this, result, args) : err::undefined_symbol;
}

base_var* ecalc::get_var(const share_str& name) { return vars_.find(name); }

void ecalc::onLiteral(int, const base_var& value) { stack_.push_back(value); }

void ecalc::onID(const share_str& name)
{
    base_var* const variable = get_var(name);
    if (!variable)
        throw xrterror(err::undefined_symbol, "undefined identifier: %s", name.c_str());
    base_var reference;
    reference.refer(*variable);
    stack_.push_back(std::move(reference));
}

void ecalc::onBeginCall(const share_str&) {}

void ecalc::onParam() {}

void ecalc::onEndCall(const share_str& name, unsigned count)
{
    // The queue is taken for the time of the call: the function may evaluate too.
    cycque<base_var> args(std::move(spare_args_));
    for (unsigned i = 0; i < count; ++i)
        args.push_front(pop());
    base_var result;
    // KEEP: a function that returns an error is called undefined, like an unknown name.
    if (call(name, result, args) < 0)
        throw xrterror(err::undefined_symbol, "undefined function: %s", name.c_str());
    stack_.push_back(std::move(result));
    args.clear();
    spare_args_ = std::move(args);
}

void ecalc::onOperate(int op)
{
    switch (op) {
    case OP_NOT: {
        base_var& operand = top();
        operand = operand.op_not();
        return;
    }
    case OP_NEGATE: {
        base_var difference(0);
        difference -= top();
        top() = std::move(difference);
        return;
    }
    case OP_AT: pop(); throw xrterror(err::illegal_operator, "%s", gbk::at_not_implemented);
    case OP_GREATER:
    case OP_LESS:
    case OP_EQUAL:
    case OP_GREATER_EQUAL:
    case OP_LESS_EQUAL:
    case OP_NOT_EQUAL: {
        const base_var right = pop();
        const base_var left = pop();
        stack_.push_back(holds(op, compare(left, right)) ? 1 : 0);
        return;
    }
    default: operate_on_left(op);
    }
}

/// The operators whose result takes the place of their left operand.
void ecalc::operate_on_left(int op)
{
    if (op < OP_ADD || op > OP_OR)
        throw xrterror(err::unexpected, "invalid operator.");
    const base_var right = pop();
    base_var& left = top();
    if (op <= OP_MOD)
        make_own(left);
    switch (op) {
    case OP_ADD:
    case OP_ADD_ASSIGN: left += right; break;
    case OP_SUB:
    case OP_SUB_ASSIGN: left -= right; break;
    case OP_MUL:
    case OP_MUL_ASSIGN: left *= right; break;
    case OP_DIV:
    case OP_DIV_ASSIGN: left /= right; break;
    case OP_MOD: left %= right; break;
    case OP_ASSIGN: left.evaluate(right); break;
    // KEEP: both operands have been evaluated already; there is no short-circuit.
    case OP_AND: left = base_var::op_and(left, right); break;
    default: left = base_var::op_or(left, right); break;
    }
}

/// The value on top of the stack.
base_var& ecalc::top()
{
    if (stack_.isempty())
        throw xrterror(err::underflow, "%s", get_err_info(err::underflow));
    return stack_.back();
}

base_var ecalc::pop()
{
    base_var value(std::move(top()));
    stack_.pop_back();
    return value;
}
