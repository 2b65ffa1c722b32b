// kro debug: a script, line by line.
//
// The commands are those of the library's shell; the debugger reads the lines
// itself because "print" wants its expression as it was written.
#include "commands.h"
#include "console.h"
#include "debugger.h"
#include "progress.h"

#include <stdkro/shell.h>
#include <stdkro/xcpt.h>

#include <cstdio>
#include <iostream>

namespace {

class debug_shell : public shell {
public:
    explicit debug_shell(debugger& d) : target(d) {}

    /// An abbreviation of several commands is the first of them in the list.
    int doDefault(int argc, char** argv) override
    {
        const cmd* first = nullptr;
        if (find_match(argv[0], &first, 1) == 1)
            return first->handler(this, argc, argv);
        std::printf("no command '%s'; 'help' lists the commands\n", argv[0]);
        return err::ok;
    }

    debugger& target;
    /// The line that is being executed.
    std::string line;
};

debug_shell& shell_of(shell* sh) { return *static_cast<debug_shell*>(sh); }

int refuse(const char* command, const char* what)
{
    std::printf("%s: %s\n", command, what);
    return err::ok;
}

int refuse_word(char** argv, int most)
{
    std::printf("%s: '%s' is not expected\n", argv[0], argv[most]);
    return err::ok;
}

/// A command without words.
template <void (debugger::*ACTION)()> int plain(shell* sh, int argc, char** argv)
{
    if (argc > 1)
        return refuse_word(argv, 1);
    (shell_of(sh).target.*ACTION)();
    return err::ok;
}

/// A command that may have one word.
template <void (debugger::*WITHOUT)(), void (debugger::*WITH)(const std::string&)>
int optional_word(shell* sh, int argc, char** argv)
{
    if (argc > 2)
        return refuse_word(argv, 2);
    debugger& target = shell_of(sh).target;
    if (argc == 2)
        (target.*WITH)(argv[1]);
    else
        (target.*WITHOUT)();
    return err::ok;
}

/// What stands behind the first word, as it was written.
std::string rest_of(const std::string& line)
{
    const char* const blanks = " \t";
    const size_t word = line.find_first_not_of(blanks);
    const size_t blank = line.find_first_of(blanks, word);
    const size_t rest = blank == std::string::npos ? blank : line.find_first_not_of(blanks, blank);
    return rest == std::string::npos ? "" : line.substr(rest);
}

int print(shell* sh, int argc, char** argv)
{
    if (argc == 1)
        return refuse(argv[0], "no expression");
    debug_shell& own = shell_of(sh);
    own.target.print_value(rest_of(own.line));
    return err::ok;
}

int set(shell* sh, int argc, char** argv)
{
    if (argc > 2)
        return refuse_word(argv, 2);
    if (argc == 1)
        return refuse(argv[0], "no NAME=VALUE");
    shell_of(sh).target.set_variable(argv[1]);
    return err::ok;
}

int help(shell* sh, int, char**)
{
    sh->print_help();
    return err::ok;
}

int quit(shell*, int, char**) { return err::exit; }

const shell::cmd debug_commands[] = {
    { "step", plain<&debugger::step>, "goes to the next line, also into procedures" },
    { "next", plain<&debugger::next>, "goes to the next line of this procedure or its caller" },
    { "finish", plain<&debugger::finish>, "goes on until this procedure has returned" },
    { "continue", plain<&debugger::go_on>, "goes on to the next breakpoint or the end" },
    { "break", optional_word<&debugger::print_breakpoints, &debugger::add_breakpoint>,
      "LINE or PROC: stops there; alone: lists the breakpoints" },
    { "delete", optional_word<&debugger::delete_breakpoints, &debugger::delete_breakpoint>,
      "NUMBER: deletes that breakpoint; alone: all" },
    { "print", print, "EXPR: evaluates an expression with the script's names" },
    { "set", set, "NAME=VALUE: changes or makes a variable" },
    { "list", optional_word<&debugger::print_source, &debugger::print_source_at>,
      "shows the lines around this one, or around LINE" },
    { "locals", plain<&debugger::print_locals>, "shows the variables of this procedure" },
    { "globals", plain<&debugger::print_globals>, "shows the names that all procedures see" },
    { "code", plain<&debugger::print_code>, "shows the instructions around the current ones" },
    { "trace", plain<&debugger::print_trace>, "shows the active procedures, innermost first" },
    { "restart", plain<&debugger::restart>, "begins the script again" },
    { "help", help, "shows this list" },
    { "quit", quit, "leaves the debugger" },
    { nullptr, nullptr, nullptr },
};

void read_commands(debugger& target)
{
    const lent_terminal typing(is_typed_input());
    debug_shell sh(target);
    sh.set_cmds(debug_commands);
    sh.half_done(true);
    while (read_line("(debug) ", sh.line)) {
        if (sh.execute(sh.line.c_str()) == err::exit)
            return;
    }
}

} // namespace

int debug_command(const command_words& words)
{
    const std::string& file = words.operands[0];
    if (file == "-")
        throw usage_error { "standard input is for the commands" };
    const std::vector<definition> definitions = read_definitions(words);
    script source;
    const int loaded = source.load(file);
    if (loaded < 0)
        return report_unreadable(source, loaded);
    xpp::xmachine machine;
    define(machine.get_field(), definitions);
    const int status = compile(machine, source);
    if (status != exit_success)
        return status;
    debugger target(machine, source, definitions);
    target.restart();
    read_commands(target);
    return target.has_failed() ? exit_failure : exit_success;
}
