// kro run: compiles a script and runs it. kro list: shows its instructions.
#include "commands.h"
#include "definition.h"
#include "files.h"
#include "progress.h"
#include "script.h"

#include <stdkro/xcpt.h>
#include <stdkro/xpp.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <optional>

namespace {

/// Prints the error of the instruction that failed, and the active procedures.
int report_run_error(const script& s, const xpp::xmachine& machine)
{
    std::cout.flush();
    print_lines(stderr, describe_error(s, machine.find_ip_line(), machine.get_last_error()));
    int line = machine.find_ip_line();
    for (unsigned i = machine.count_contexts(); i-- > 0;) {
        const xpp::xcontext& active = *machine.get_context(i);
        print_message("    in %s, %s:%d\n", active.get_method().get_name().c_str(), s.name.c_str(), line);
        // A caller goes on behind its CALL.
        line = machine.find_line(active.get_return_addr() - 1);
    }
    return exit_failure;
}

int run_shown(xpp::xmachine& machine, const script& s)
{
    progress work("running " + s.name);
    const watched_stream standard(std::cout, work); // "echo" writes there, whatever the output is
    std::optional<watched_stream> file;
    if (machine.get_ostream() != &std::cout)
        file.emplace(*machine.get_ostream(), work);
    return machine.run();
}

int run(xpp::xmachine& machine, const script& s)
{
    if (run_shown(machine, s) < 0)
        return report_run_error(s, machine);
    std::ostream& output = machine.get_ostream()->flush();
    if (output.good())
        return exit_success;
    return &output == &std::cout ? report_lost_output() : report_error(err::file_system, "cannot write the output");
}

int run_to_file(xpp::xmachine& machine, const script& s, const command_words& words)
{
    const std::string path = words.text("out");
    if (words.has("keep") && is_there(path))
        return report_error(err::overrun, (path + " is there already").c_str());
    std::ofstream out(path);
    if (!out)
        return report_error(err::file_system, ("cannot write " + path).c_str());
    machine.set_ostream(&out);
    const int status = run(machine, s);
    machine.set_ostream(&std::cout);
    return status;
}

/// Fills the machine with the script of that path, or prints what is wrong. Returns the exit status.
int load_and_compile(xpp::xmachine& machine, script& s, const std::string& path)
{
    const int loaded = s.load(path);
    return loaded < 0 ? report_unreadable(s, loaded) : compile(machine, s);
}

} // namespace

int run_command(const command_words& words)
{
    // Before any output: a template of thousands of rows is written in large pieces.
    std::ios::sync_with_stdio(false);
    return run_script(words);
}

int run_script(const command_words& words)
{
    xpp::xmachine machine;
    define(machine.get_field(), read_definitions(words));
    script s;
    const int status = load_and_compile(machine, s, words.operands[0]);
    if (status != exit_success)
        return status;
    return words.has("out") ? run_to_file(machine, s, words) : run(machine, s);
}

int list_command(const command_words& words)
{
    script s;
    xpp::xmachine machine;
    const int status = load_and_compile(machine, s, words.operands[0]);
    if (status == exit_success)
        machine.print_list(std::cout, &s.lexer);
    return status;
}
