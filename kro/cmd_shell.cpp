// kro shell: the tool's commands line by line, with variables that stay.
#include "commands.h"
#include "console.h"
#include "definition.h"
#include "evaluation.h"
#include "progress.h"
#include "quoted.h"

#include <stdkro/shell.h>
#include <stdkro/xcpt.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>

namespace {

class tool_shell : public shell {
public:
    ecalc calc;
};

ecalc& calc_of(shell* sh) { return static_cast<tool_shell*>(sh)->calc; }

/// What a shell makes of an exit status.
int status_of(int exit_status) { return exit_status == exit_success ? err::ok : err::failed; }

/// The words behind the first `skipped` ones, as one text.
std::string joined(int argc, char** argv, int skipped)
{
    std::string text;
    for (int i = skipped; i < argc; ++i)
        text += (i == skipped ? "" : " ") + std::string(argv[i]);
    return text;
}

int refuse(const char* command, const char* what)
{
    std::printf("%s: %s\n", command, what);
    return err::failed;
}

int eval(shell* sh, int argc, char** argv)
{
    if (argc == 1)
        return refuse(argv[0], "no expression");
    return status_of(evaluate_and_print(calc_of(sh), joined(argc, argv, 1)));
}

int set(shell* sh, int argc, char** argv)
{
    if (argc == 1)
        return refuse(argv[0], "no NAME=VALUE");
    try {
        const definition d = read_definition(joined(argc, argv, 1));
        calc_of(sh).get_vars().set(d.name.c_str(), d.value);
        return err::ok;
    } catch (const usage_error& e) {
        return refuse(argv[0], e.message.c_str());
    }
}

void print_variable(const std::string& name, const base_var& value)
{
    std::cout << name << '=';
    if (value.is_rvalue())
        std::cout << value << '\n';
    else
        std::cout << "error: " << get_err_info(value.get_err()) << '\n';
}

int vars(shell* sh, int, char**)
{
    std::vector<std::string> names;
    auto& variables = calc_of(sh).get_vars();
    for (const auto& variable : variables)
        names.push_back(variable.key.c_str());
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
        print_variable(name, *variables.find(name.c_str()));
    return err::ok;
}

/// Runs a command of the tool.
int run_tool(command c, int argc, char** argv)
{
    std::fflush(stdout);
    const int status = run_guarded(c, arguments(argv + 1, argv + argc));
    std::fflush(stdout);
    return status_of(status);
}

int run(shell*, int argc, char** argv)
{
    command c = *find_command("run");
    c.run = run_script; // the console is in use
    return run_tool(c, argc, argv);
}

int match(shell*, int argc, char** argv) { return run_tool(*find_command("match"), argc, argv); }
int ini(shell*, int argc, char** argv) { return run_tool(*find_command("ini"), argc, argv); }
int xml(shell*, int argc, char** argv) { return run_tool(*find_command("xml"), argc, argv); }
int err_text(shell*, int argc, char** argv) { return run_tool(*find_command("err"), argc, argv); }

int time(shell* sh, int argc, char** argv)
{
    if (argc == 1)
        return refuse(argv[0], "no command");
    std::string line;
    for (int i = 1; i < argc; ++i)
        line += quoted(argv[i]) + " ";
    const auto begin = std::chrono::steady_clock::now();
    const int r = sh->execute(line.c_str());
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begin;
    std::printf("%.3f ms\n", taken.count());
    return r;
}

int help(shell* sh, int, char**)
{
    sh->print_help();
    return err::ok;
}

int quit(shell*, int, char**) { return err::exit; }

const shell::cmd shell_commands[] = {
    { "eval", eval, "EXPRESSION: prints its value" },
    { "vars", vars, "lists the variables" },
    { "set", set, "NAME=VALUE: changes or makes a variable" },
    { "run", run, "FILE [-o OUT [--keep]] [-D NAME=VALUE]...: runs a script" },
    { "match", match, "PATTERN TEXT...: which texts a pattern accepts" },
    { "ini", ini, "FILE [get|set|unset|list ...]: an INI document" },
    { "xml", xml, "FILE [get|set|rm ...]: an XML document" },
    { "err", err_text, "CODE...: the messages of status codes" },
    { "time", time, "COMMAND...: runs a command and tells how long it took" },
    { "help", help, "shows this list" },
    { "quit", quit, "leaves the shell" },
    { nullptr, nullptr, nullptr },
};

/// Reads lines from a file or a pipe. Returns the status of the last command.
int run_lines(shell& sh)
{
    int r = err::ok;
    sh.batch("autoexec");
    for (std::string line; read_line("", line);) {
        const int status = sh.execute(line.c_str());
        if (status == err::exit)
            break;
        r = status;
    }
    return r;
}

} // namespace

int shell_command(const command_words&)
{
    tool_shell sh;
    sh.set_cmds(shell_commands);
    sh.half_done(true);
    if (!is_typed_input())
        return run_lines(sh) < 0 ? exit_failure : exit_success;
    const lent_terminal typing(true);
    sh.auto_complete(true);
    sh.run("kro> ");
    return exit_success;
}
