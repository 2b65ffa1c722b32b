// A script under control: where it stops, and what is seen there.
//
// The debugger executes one instruction after the other and asks behind each
// whether this is a place to stop. Lines and procedures are recognised as
// the machine reports them; nothing in the program is changed.
#ifndef STDKRO_KRO_DEBUGGER_H
#define STDKRO_KRO_DEBUGGER_H

#include "marked_output.h"
#include "script.h"

#include <ostream>
#include <set>
#include <string>
#include <vector>

class debugger {
public:
    /// The machine must hold the compiled script.
    debugger(xpp::xmachine& machine, script& source, const std::vector<definition>& definitions);
    ~debugger();
    debugger(const debugger&) = delete;
    debugger& operator=(const debugger&) = delete;

    // ---- going on; each shows where the script stops

    /// Begins the script and stops before its first instruction.
    void restart();
    /// To the next line, also one of a procedure that is called.
    void step();
    /// To the next line of this procedure or of its caller.
    void next();
    /// To the place behind the call of this procedure.
    void finish();
    void go_on();

    /// Whether the last run of the script ended with an error.
    bool has_failed() const { return state_ == failed; }

    // ---- places to stop

    /// A line, or the first one behind it that has instructions; or a procedure.
    void add_breakpoint(const std::string& place);
    void delete_breakpoint(const std::string& number);
    void delete_breakpoints();
    void print_breakpoints();

    // ---- looking

    void print_source();
    /// The lines around a number.
    void print_source_at(const std::string& number);
    void print_code();
    void print_value(const std::string& expression);
    void set_variable(const std::string& word);
    void print_locals();
    void print_globals();
    void print_trace();

private:
    enum state { stopped, ended, failed };

    struct breakpoint {
        int number;
        /// The procedure's name, or the line where `addresses` are.
        std::string procedure;
        int line;
        std::set<int> addresses;
    };

    template <class CONDITION> void run_until(CONDITION is_there);
    template <class CONDITION> const breakpoint* advance_until(CONDITION is_there);
    bool advance();
    const breakpoint* reached() const;
    bool is_at_body() const;
    bool can_go() const;
    std::set<int> addresses_of(int line) const;
    void add_line_breakpoint(int line);
    void add(const breakpoint& added);
    std::string name_of(const breakpoint& b) const;
    std::string place(int line) const;
    void show_stop(const breakpoint* at);
    void show_end();
    void print_lines_around(int line);
    base_var evaluated(const std::string& expression);

    /// The stream for what the debugger says itself.
    std::ostream& say();

    xpp::xmachine& machine_;
    script& source_;
    std::vector<definition> definitions_;
    marked_output marks_;
    std::ostream script_output_;
    std::vector<breakpoint> breakpoints_;
    int last_number_ = 0;
    state state_ = ended;
    /// A procedure was called and its parameters are still being stored.
    bool is_entering_ = false;
};

#endif
