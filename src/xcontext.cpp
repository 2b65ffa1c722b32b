// Activations and the numbers of their locals.
//
// A procedure numbers the names in its code, and an activation holds one slot for
// each number, so that an instruction which knows its number finds the variable
// without a look-up. A name that gets its number later (the host created it, or
// code was added) has no slot in the activations that run already: there it
// becomes an extra local.
#include "xmachine_state.h"

namespace xpp {

unsigned xmethod::number_local(const share_str& name)
{
    const unsigned* const known = numbers_.find(name);
    if (known)
        return *known;
    const unsigned number = static_cast<unsigned>(locals_.size());
    locals_.push_back({ name, nullptr, 0 });
    try {
        numbers_.set(name, number);
    } catch (...) {
        locals_.pop_back();
        throw;
    }
    layout_ = 0;
    return number;
}

xcontext::xcontext()
    : machine_(nullptr), method_(nullptr), return_addr_(no_address), index_(0), slots_(nullptr), slot_count_(0),
      layout_(0), extras_(nullptr), opened_chunk_(false), slot_chunk_(0), slots_free_(0), operands_ { nullptr, nullptr, 0 }
{
}

xcontext::~xcontext() {}

base_var* xcontext::get_var(const share_str& name)
{
    const unsigned* const number = method_->numbers_.find(name);
    if (!number)
        return nullptr;
    if (*number < slot_count_)
        return slots_[*number].is_defined ? &slots_[*number].value : nullptr;
    for (extra* e = extras_; e; e = e->next) {
        if (e->name == name)
            return &e->value;
    }
    return nullptr;
}

int xcontext::create_var(const share_str& name, const base_var& value)
{
    if (get_var(name))
        return err::duplicated_symbol;
    return or_status([&] {
        const unsigned number = method_->number_local(name);
        if (number < slot_count_) {
            slots_[number].value = value;
            slots_[number].is_defined = true;
            return 0;
        }
        extras_ = new extra { name, value, extras_ };
        return 0;
    });
}

unsigned xcontext::count_vars() const
{
    unsigned n = 0;
    for (unsigned i = 0; i < slot_count_; ++i)
        n += slots_[i].is_defined;
    for (const extra* e = extras_; e; e = e->next)
        ++n;
    return n;
}

base_var* xcontext::get_var_at(unsigned i, share_str& name)
{
    for (unsigned number = 0; number < slot_count_; ++number) {
        if (!slots_[number].is_defined || i-- > 0)
            continue;
        name = method_->locals_[number].name;
        return &slots_[number].value;
    }
    for (extra* e = extras_; e; e = e->next) {
        if (i-- > 0)
            continue;
        name = e->name;
        return &e->value;
    }
    return nullptr;
}

unsigned xcontext::count_operands() const
{
    const machine_state& s = *machine_->state_;
    const operand_mark* const behind = index_ + 1 < s.depth ? &s.contexts[index_ + 1]->operands_ : nullptr;
    return static_cast<unsigned>(s.operands.count(operands_, behind));
}

} // namespace xpp
