// Compiles a script and runs it twice: one instruction at a time with a budget,
// and, when that came to an end, at full speed. Output, status, message, line
// and active procedures must agree. The first byte says how the library is used.
#include <stdkro/xpp.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

// Bits of the first byte.
constexpr unsigned copy_machine = 1; // the full speed is that of a copy
constexpr unsigned other_marks = 2;  // "%{" and "}"
constexpr unsigned derived = 4;      // variables are asked of a derived class
constexpr unsigned run_twice = 8;    // a second run goes on behind the error

constexpr unsigned budget = 4000;
constexpr std::size_t most_text = 1 << 20;

int ignored(einterpret&, base_var& result, cycque<base_var>& args)
{
    result = args.count();
    return 0;
}

void prepare(xpp::xmachine& machine, std::ostream& out)
{
    static const char* const names[] = { "echo", nullptr };
    static const method functions[] = { ignored };
    machine.add_methods(names, functions);
    machine.get_field().add_var("g", 7);
    machine.set_ostream(&out);
}

struct asking_machine : xpp::xmachine {
    base_var* get_var(const share_str& name) override { return xpp::xmachine::get_var(name); }
};

[[noreturn]] void differ(const char* what, const std::string& a, const std::string& b)
{
    std::fprintf(stderr, "%s\n--- step by step\n%s\n--- at full speed\n%s\n", what, a.c_str(), b.c_str());
    std::abort();
}

/// Where a run stands, in words.
std::string place(const xpp::xmachine& machine, int status)
{
    std::ostringstream all;
    all << status << " " << machine.get_last_error().get_err() << " " << machine.get_last_error().what() << " "
        << machine.get_ip() << " " << machine.find_ip_line() << "\n";
    machine.print_trace(all);
    for (unsigned i = 0; i < machine.count_contexts(); ++i) {
        xpp::xcontext* const c = machine.get_context(i);
        all << c->count_operands() << " ";
        machine.print_local(all, c);
    }
    return all.str();
}

bool is_small(const xpp::xmachine& machine, const std::ostringstream& out)
{
    std::size_t text = static_cast<std::size_t>(const_cast<std::ostringstream&>(out).tellp());
    share_str name;
    for (unsigned i = 0; i < machine.count_contexts() && i < 100; ++i) {
        for (unsigned n = 0; n < 20; ++n) {
            const base_var* const v = machine.get_context(i)->get_var_at(n, name);
            if (!v)
                break;
            text += v->get_string().length();
        }
    }
    return text < most_text;
}

/// False when the budget did not reach to the end.
bool run_stepping(xpp::xmachine& machine, const std::ostringstream& out, int& status)
{
    status = machine.is_running() ? 0 : machine.run_begin();
    for (unsigned i = 0; i < budget && status >= 0; ++i) {
        if (!machine.is_running())
            return true;
        if (i % 8 == 0 && !is_small(machine, out))
            return false;
        status = machine.run_step();
    }
    return status < 0;
}

void compare(xpp::xmachine& slow, xpp::xmachine& fast, std::ostringstream& slow_out, std::ostringstream& fast_out,
             bool again)
{
    int status = 0;
    for (unsigned i = 0; i < (again ? 3u : 1u); ++i) {
        if (!run_stepping(slow, slow_out, status))
            return;
        const int fast_status = fast.run();
        if (slow_out.str() != fast_out.str())
            differ("output", slow_out.str(), fast_out.str());
        if (place(slow, status) != place(fast, fast_status))
            differ("place", place(slow, status), place(fast, fast_status));
        if (!slow.is_running())
            return;
    }
}

void run_one(const std::string& text, unsigned how)
{
    std::ostringstream slow_out;
    std::ostringstream fast_out;
    xpp::xmachine slow;
    xpp::xmachine plain;
    asking_machine asking;
    xpp::xmachine& fast = how & derived ? static_cast<xpp::xmachine&>(asking) : plain;
    prepare(slow, slow_out);
    prepare(fast, fast_out);
    xpp::xcompiler compiler;
    for (xpp::xmachine* m : { &slow, &fast }) {
        xpp::xlexer lexer(how & other_marks ? '%' : '$', how & other_marks ? '{' : '[', how & other_marks ? '}' : ']');
        lexer.load_string(text.data(), text.data() + text.size(), false);
        if (compiler.compile(*m, &lexer) < 0) {
            if (m->last_addr() != 0 || m->get_field().get_kind("__main__") != xpp::xfield::no_name)
                std::abort();
            return;
        }
        std::ostringstream listed;
        m->print_list(listed, &lexer);
    }
    if (how & copy_machine) {
        xpp::xmachine copy(fast);
        compare(slow, copy, slow_out, fast_out, how & run_twice);
        return;
    }
    compare(slow, fast, slow_out, fast_out, how & run_twice);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    run_one(std::string(reinterpret_cast<const char*>(data) + 1, size - 1), data[0]);
    return 0;
}
