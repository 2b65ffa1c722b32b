// The name table of the script machine.
#include "xmachine_state.h"

namespace xpp {

xfield::xfield() : table_(new table), state_(1) {}

xfield::~xfield()
{
    drop_program();
    free_removed();
    delete table_;
}

xfield::entry* xfield::find(const share_str& name) const { return table_->names.find(name); }
xfield::entry* xfield::find(const char* name, unsigned length) const { return table_->names.find(name, length); }

int xfield::add(const share_str& name, const entry& what)
{
    if (find(name))
        return err::duplicated_symbol;
    table_->names.set(name, what);
    ++state_;
    return 0;
}

int xfield::add_var(const share_str& name, const base_var& value)
{
    return or_status([&] {
        std::unique_ptr<global> own(new global { value, nullptr });
        entry e = {};
        e.what = variable;
        e.own = own.get();
        e.value = &e.own->value;
        const int r = add(name, e);
        if (r >= 0)
            own.release();
        return r;
    });
}

int xfield::bind_var(const share_str& name, base_var& value)
{
    return or_status([&] {
        entry e = {};
        e.what = bound_variable;
        e.value = &value;
        return add(name, e);
    });
}

int xfield::add_object(const share_str& name, void* pointer)
{
    return or_status([&] {
        entry e = {};
        e.what = object;
        e.pointer = pointer;
        return add(name, e);
    });
}

int xfield::get_var(const share_str& name, base_var** out) const
{
    const entry* const e = find(name);
    if (!e)
        return err::undefined_symbol;
    if (e->what != variable && e->what != bound_variable)
        return err::abnormal_cast;
    if (out)
        *out = e->value;
    return 0;
}

int xfield::get_object(const share_str& name, void** out) const
{
    const entry* const e = find(name);
    if (!e)
        return err::undefined_symbol;
    if (e->what != object)
        return err::abnormal_cast;
    if (out)
        *out = e->pointer;
    return 0;
}

xfield::kind xfield::get_kind(const share_str& name) const
{
    const entry* const e = find(name);
    return e ? e->what : no_name;
}

int xfield::remove(const share_str& name)
{
    const entry* const e = find(name);
    if (!e)
        return err::undefined_symbol;
    if (e->what == procedure || e->what == host_function)
        return err::abnormal_cast;
    retire(*e);
    table_->names.remove(name);
    ++state_;
    return 0;
}

// Values on the stacks may still refer to a removed variable.
void xfield::retire(const entry& e)
{
    if (e.what != variable)
        return;
    e.own->next_removed = table_->removed;
    table_->removed = e.own;
}

unsigned xfield::count() const { return table_->names.count(); }

// Leaves the host functions.
void xfield::drop_program()
{
    hmap<share_str, entry>& names = table_->names;
    for (auto at = names.begin(); at != names.end();) {
        const auto& e = *at;
        ++at;
        if (e.value.what == host_function)
            continue;
        retire(e.value);
        names.remove(e.key);
    }
    ++state_;
}

// Everything but procedures, which belong to the other machine.
void xfield::copy_names(const xfield& other)
{
    for (const auto& e : other.table_->names) {
        if (e.value.what == variable)
            add_var(e.key, *e.value.value);
        else if (e.value.what != procedure)
            add(e.key, e.value);
    }
}

void xfield::free_removed()
{
    while (global* const gone = table_->removed) {
        table_->removed = gone->next_removed;
        delete gone;
    }
}

} // namespace xpp
