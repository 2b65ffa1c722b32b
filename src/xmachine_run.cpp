// Running and stepping the script machine, and calling its procedures: what the host asks for,
// and the status that it gets.
#include "xmachine_state.h"

#include <new>
#include <typeinfo>

namespace xpp {

// What fails is known by its line before the activations go.
template <bool one_step>
loop_end machine_state::execute_noting_line(unsigned base)
{
    try {
        return execute<one_step>(base);
    } catch (...) {
        last_line = owner.find_ip_line();
        throw;
    }
}

// What ends an action becomes the status that the host gets.
template <class ACTION>
int machine_state::guarded(ACTION action)
{
    is_derived = typeid(owner) != typeid(xmachine);
    last_line = -1;
    try {
        const int r = action();
        last_error = r < 0 ? xrterror(r, "%s", get_err_info(r)) : xrterror();
        last_line = r < 0 ? -1 : 0;
        return r;
    } catch (const xhalt&) {
        clear_runner();
        last_error = xrterror();
        last_line = 0;
        return 0;
    } catch (const xrterror& e) {
        last_error = e;
    } catch (const xcpt& e) {
        last_error = xrterror(e.get_err(), "%s", e.what() ? e.what() : "");
    } catch (const std::bad_alloc&) {
        last_error = xrterror(err::out_of_memory, "%s", get_err_info(err::out_of_memory));
    }
    return last_error.get_err();
}

int machine_state::begin()
{
    static const char name[] = "__main__";
    const xfield::entry* const e = field.find(name, sizeof name - 1);
    if (!e || e->what != xfield::procedure)
        throw xrterror(err::undefined_symbol, "can not find procedure __main__.");
    enter(*e->proc, xcontext::no_address);
    ip = e->proc->entry_;
    is_inside = false;
    return 0;
}

int machine_state::run_begin()
{
    return guarded([&] { return begin(); });
}

// Ends an action on the activations that `run` runs.
int machine_state::end_run(loop_end end)
{
    last_end = end;
    if (end == loop_end::halted)
        clear_runner();
    if (end != loop_end::dropped)
        is_inside = false;
    return 0;
}

int machine_state::run()
{
    return guarded([&] {
        if (ip == no_ip)
            begin();
        return run_loop<false>();
    });
}

int machine_state::step()
{
    last_end = loop_end::going;
    if (ip == no_ip)
        return err::unprepared;
    return guarded([&] { return run_loop<true>(); });
}

template <bool one_step>
int machine_state::run_loop()
{
    try {
        return end_run(execute_noting_line<one_step>(1));
    } catch (const xtrap&) {
        return end_run(loop_end::trapped);
    } catch (const xret&) {
        return end_run(loop_end::xret);
    }
}

int machine_state::call_method(xmethod& of, base_var& result, const cycque<base_var>& arguments)
{
    // Whatever happens, the host finds the machine as it was.
    struct restore : host_call {
        machine_state& s;
        explicit restore(machine_state& of_state)
            : host_call { of_state.epoch, of_state.depth, of_state.ip, of_state.is_inside, of_state.host_calls }, s(of_state)
        {
            s.host_calls = this;
        }
        restore(const restore&) = delete;
        restore& operator=(const restore&) = delete;
        ~restore()
        {
            s.host_calls = outer;
            if (s.epoch != epoch)
                return;
            s.drop_contexts(depth);
            s.ip = ip;
            s.is_inside = is_inside;
        }
    };
    const level_guard inner(*this);
    const restore at_end(*this);
    for (unsigned i = 0; i < arguments.count(); ++i)
        args().add(base_var(arguments[i]));
    enter(of, xcontext::to_host);
    ip = of.entry_;
    switch (execute_noting_line<false>(depth)) {
    case loop_end::halted: clear_runner(); return 0;
    case loop_end::trapped: throw xtrap(owner.get_code(ip - 1));
    default: break;
    }
    if (epoch == at_end.epoch)
        result = return_value;
    return 0;
}

int machine_state::call(const share_str& name, base_var& result, cycque<base_var>& arguments)
{
    return guarded([&] {
        const xfield::entry* const e = field.find(name);
        if (!e)
            throw xrterror(err::undefined_symbol, "unevaluated method: %s", name.c_str());
        if (e->what == xfield::procedure)
            return call_method(*e->proc, result, arguments);
        if (e->what != xfield::host_function)
            throw xrterror(err::unexpected, "name [%s] isn't a method, type: %d", name.c_str(), static_cast<int>(e->what));
        const level_guard inner(*this);
        result = base_var();
        return e->function(owner, result, arguments);
    });
}

} // namespace xpp
