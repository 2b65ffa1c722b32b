#include "debugger.h"

#include "progress.h"
#include "words.h"

#include <stdkro/ecalc.h>

#include <algorithm>
#include <iostream>

namespace {

constexpr int lines_around = 5;

/// The expressions of "print": they see the script's variables and procedures.
class evaluator : public ecalc {
public:
    explicit evaluator(xpp::xmachine& machine) : machine_(machine) {}
    base_var* get_var(const share_str& name) override { return machine_.get_var(name); }
    int call(const share_str& name, base_var& result, cycque<base_var>& args) override
    {
        if (machine_.get_field().get_kind(name) == xpp::xfield::no_name)
            return ecalc::call(name, result, args);
        const int r = machine_.call(name, result, args);
        if (r < 0)
            throw machine_.get_last_error();
        return r;
    }

private:
    xpp::xmachine& machine_;
};

/// The function "echo" of scripts; the library's own writes past the marks.
int marked_echo(einterpret& interpreter, base_var& result, cycque<base_var>& args)
{
    xpp::xmachine& machine = static_cast<xpp::xmachine&>(interpreter);
    for (unsigned i = 0; i < args.count(); ++i)
        *machine.get_ostream() << args[i];
    result = static_cast<int>(args.count());
    return err::ok;
}

} // namespace

debugger::debugger(xpp::xmachine& machine, script& source, const std::vector<definition>& definitions)
    : machine_(machine), source_(source), definitions_(definitions), script_output_(&marks_)
{
    static const char* const names[] = { "echo", nullptr };
    static const method functions[] = { marked_echo };
    machine_.add_methods(names, functions); // a procedure of that name stays what it is
    machine_.set_ostream(&script_output_);
}

debugger::~debugger() { machine_.set_ostream(&std::cout); }

std::ostream& debugger::say()
{
    marks_.break_line();
    return std::cout;
}

// ---- going on ----------------------------------------------------------------

void debugger::restart()
{
    marks_.begin_line();
    machine_.clear_runner();
    define(machine_.get_field(), definitions_);
    is_entering_ = false;
    if (machine_.run_begin() < 0) {
        state_ = failed;
        return show_end();
    }
    state_ = stopped;
    show_stop(reached());
}

// Executes one instruction. False when it was the last.
bool debugger::advance()
{
    const unsigned depth = machine_.count_contexts();
    const int r = machine_.run_step();
    if (r < 0)
        state_ = failed;
    else if (!machine_.is_running())
        state_ = ended;
    else
        is_entering_ = machine_.count_contexts() > depth || (is_entering_ && machine_.count_contexts() == depth);
    return state_ == stopped;
}

// Parameters are no place to stop: the body begins behind them.
bool debugger::is_at_body() const
{
    return machine_.get_code(machine_.get_ip()).get_type() != xpp::GETARG;
}

template <class CONDITION> void debugger::run_until(CONDITION is_there)
{
    if (!can_go())
        return;
    const breakpoint* const at = advance_until(is_there);
    if (state_ == stopped)
        show_stop(at);
    else
        show_end();
}

// Goes to the place, to a breakpoint, which is given, or to the end.
template <class CONDITION> const debugger::breakpoint* debugger::advance_until(CONDITION is_there)
{
    const progress work("running " + source_.name);
    while (advance()) {
        const breakpoint* const at = reached();
        const bool is_done = (!is_entering_ || is_at_body()) && is_there();
        if (at || is_done)
            return at;
        is_entering_ = is_entering_ && !is_at_body();
    }
    return nullptr;
}

void debugger::step()
{
    const unsigned depth = machine_.count_contexts();
    const int line = machine_.find_ip_line();
    run_until([=] { return machine_.count_contexts() != depth || machine_.find_ip_line() != line; });
}

void debugger::next()
{
    const unsigned depth = machine_.count_contexts();
    const int line = machine_.find_ip_line();
    run_until([=] {
        const unsigned now = machine_.count_contexts();
        return now < depth || (now == depth && machine_.find_ip_line() != line);
    });
}

void debugger::finish()
{
    const unsigned depth = machine_.count_contexts();
    run_until([=] { return machine_.count_contexts() < depth; });
}

void debugger::go_on()
{
    run_until([] { return false; });
}

bool debugger::can_go() const
{
    if (state_ != stopped)
        std::cout << "the script does not run; 'restart' begins it again\n";
    return state_ == stopped;
}

// ---- places to stop ------------------------------------------------------------

// Behind the instruction before: what is reached here is stopped at.
const debugger::breakpoint* debugger::reached() const
{
    const int ip = machine_.get_ip();
    const xpp::xcontext* const active = machine_.get_active();
    const bool is_entered = is_entering_ && is_at_body();
    for (const breakpoint& b : breakpoints_) {
        if (b.addresses.count(ip) || (is_entered && active->get_method().get_name() == b.procedure.c_str()))
            return &b;
    }
    return nullptr;
}

// Where the instructions of the line begin: a loop's line has several such places.
std::set<int> debugger::addresses_of(int line) const
{
    std::set<int> found;
    int before = -1;
    for (int addr = 0; addr < machine_.last_addr(); ++addr) {
        const int now = machine_.find_line(addr);
        if (now == line && before != line)
            found.insert(addr);
        before = now;
    }
    return found;
}

void debugger::add(const breakpoint& added)
{
    breakpoints_.push_back(added);
    breakpoints_.back().number = ++last_number_;
    say() << "breakpoint " << last_number_ << ": " << name_of(added) << '\n';
}

void debugger::add_line_breakpoint(int line)
{
    const int last = source_.count_lines();
    for (int i = std::max(line, 1); line > 0 && i <= last; ++i) {
        const std::set<int> addresses = addresses_of(i);
        if (!addresses.empty())
            return add({ 0, "", i, addresses });
    }
    say() << "no instruction at line " << line << " or behind it\n";
}

void debugger::add_breakpoint(const std::string& place)
{
    int line = 0;
    if (read_number(place, line))
        return add_line_breakpoint(line);
    if (machine_.get_field().get_kind(place.c_str()) == xpp::xfield::procedure && place != "__main__")
        return add({ 0, place, 0, {} });
    say() << "'" << place << "' is no line and no procedure\n";
}

void debugger::delete_breakpoint(const std::string& number)
{
    int wanted = 0;
    const bool is_number = read_number(number, wanted);
    const auto found = std::find_if(breakpoints_.begin(), breakpoints_.end(),
                                    [=](const breakpoint& b) { return is_number && b.number == wanted; });
    if (found == breakpoints_.end())
        say() << "no breakpoint '" << number << "'\n";
    else
        breakpoints_.erase(found);
}

void debugger::delete_breakpoints() { breakpoints_.clear(); }

void debugger::print_breakpoints()
{
    for (const breakpoint& b : breakpoints_)
        say() << "breakpoint " << b.number << ": " << name_of(b) << '\n';
    if (breakpoints_.empty())
        say() << "no breakpoints\n";
}

// ---- what is shown ---------------------------------------------------------------

std::string debugger::place(int line) const { return source_.name + ":" + std::to_string(line); }

std::string debugger::name_of(const breakpoint& b) const
{
    return b.procedure.empty() ? place(b.line) : "procedure " + b.procedure;
}

void debugger::show_stop(const breakpoint* at)
{
    std::ostream& out = say();
    is_entering_ = false;
    const int line = machine_.find_ip_line();
    if (at)
        out << "breakpoint " << at->number << ", ";
    out << place(line) << " in " << machine_.get_active()->get_method().get_name() << "\n    " << source_.line(line)
        << '\n';
}

void debugger::show_end()
{
    if (state_ == failed)
        say() << describe_error(source_, machine_.find_ip_line(), machine_.get_last_error());
    else
        say() << "the script has ended\n";
}

void debugger::print_lines_around(int line)
{
    const int last = std::min(line + lines_around, source_.count_lines());
    for (int i = std::max(line - lines_around, 1); i <= last; ++i) {
        const bool has_stop = std::any_of(breakpoints_.begin(), breakpoints_.end(),
                                          [=](const breakpoint& b) { return b.line == i; });
        say() << (i == machine_.find_ip_line() ? '>' : ' ') << (has_stop ? '*' : ' ');
        std::cout.width(4);
        std::cout << i << "  " << source_.line(i) << '\n';
    }
}

void debugger::print_source() { print_lines_around(std::max(machine_.find_ip_line(), 1)); }

void debugger::print_source_at(const std::string& number)
{
    int line = 0;
    if (read_number(number, line) && line >= 1 && line <= source_.count_lines())
        print_lines_around(line);
    else
        say() << "no line '" << number << "'\n";
}

void debugger::print_code()
{
    machine_.print_context(say());
    if (!machine_.is_running())
        say() << '\n';
}

// Throws `xcpt` for an expression that is wrong.
base_var debugger::evaluated(const std::string& expression)
{
    const progress work("evaluating");
    evaluator calc(machine_);
    eparser::elexer lexer;
    base_var value;
    int r = lexer.load_string(expression.c_str(), nullptr, false);
    if (r >= 0)
        r = calc.calc_expr(value, &lexer);
    if (r >= 0 && lexer.get_token(nullptr) != base_lexer::TK_EOF)
        r = err::syntax;
    if (r >= 0 && !value.is_rvalue())
        r = value.get_err();
    if (r < 0)
        throw xrterror(r, "%s", get_err_info(r));
    return value;
}

void debugger::print_value(const std::string& expression)
{
    const bool was_running = machine_.is_running();
    try {
        const base_var value = evaluated(expression); // may write itself
        say() << value << '\n';
    } catch (const xcpt& e) {
        say() << "error: " << (*e.what() ? e.what() : get_err_info(e.get_err())) << '\n';
    }
    if (was_running && !machine_.is_running()) { // a procedure that was called left the script
        state_ = ended;
        show_end();
    }
}

void debugger::set_variable(const std::string& word)
{
    try {
        const definition d = read_definition(word);
        const share_str name = d.name.c_str();
        base_var* const known = machine_.get_var(name);
        if (known)
            known->evaluate(d.value);
        else if (machine_.get_field().get_kind(name) != xpp::xfield::no_name)
            say() << "'" << d.name << "' is the name of a function\n";
        else if (machine_.create_var(name, d.value) < 0)
            say() << "no procedure is active\n";
    } catch (const usage_error& e) {
        say() << e.message << '\n';
    }
}

void debugger::print_locals() { machine_.print_local(say(), machine_.get_active()); }
void debugger::print_globals() { machine_.print_global(say()); }

void debugger::print_trace()
{
    int line = machine_.find_ip_line();
    for (unsigned i = machine_.count_contexts(); i-- > 0;) {
        const xpp::xcontext& active = *machine_.get_context(i);
        say() << '#' << i << "   " << active.get_method().get_name() << ", " << place(line) << '\n';
        // A caller goes on behind its CALL.
        line = machine_.find_line(active.get_return_addr() - 1);
    }
}
