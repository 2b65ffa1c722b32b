// kro run: compiles a script and runs it. kro list: shows its instructions.
#include "commands.h"
#include "definition.h"
#include "script.h"

#include <stdkro/xcpt.h>
#include <stdkro/xpp.h>

#include <cstdio>
#include <fstream>
#include <iostream>

namespace {

/// Prints the error of the instruction that failed, and the active procedures.
int report_run_error(const script& s, const xpp::xmachine& machine)
{
    std::cout.flush();
    std::fputs(describe_error(s, machine.find_ip_line(), machine.get_last_error()).c_str(), stderr);
    int line = machine.find_ip_line();
    for (unsigned i = machine.count_contexts(); i-- > 0;) {
        const xpp::xcontext& active = *machine.get_context(i);
        std::fprintf(stderr, "    in %s, %s:%d\n", active.get_method().get_name().c_str(), s.name.c_str(), line);
        // A caller goes on behind its CALL.
        line = machine.find_line(active.get_return_addr() - 1);
    }
    return exit_failure;
}

/// The words of "kro run".
struct run_words {
    std::string file;
    std::string out;
    bool keeps_existing = false;
    std::vector<definition> definitions;
};

run_words read_run_words(const arguments& words)
{
    run_words read;
    const auto value_of = [&](size_t& i, const char* what) {
        if (++i == words.size())
            throw usage_error { words[i - 1] + " wants " + what };
        return words[i];
    };
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "-o")
            read.out = value_of(i, "a file");
        else if (words[i] == "--keep")
            read.keeps_existing = true;
        else if (words[i] == "-D")
            read.definitions.push_back(read_definition(value_of(i, "NAME=VALUE")));
        else if (words[i].size() > 1 && words[i][0] == '-')
            throw usage_error { "no option " + words[i] };
        else if (!read.file.empty())
            throw usage_error { "more than one file" };
        else
            read.file = words[i];
    }
    if (read.file.empty())
        throw usage_error { "no file" };
    if (read.keeps_existing && read.out.empty())
        throw usage_error { "--keep goes with -o" };
    return read;
}

int run(xpp::xmachine& machine, const script& s)
{
    if (machine.run() < 0)
        return report_run_error(s, machine);
    machine.get_ostream()->flush();
    return machine.get_ostream()->good() ? exit_success : report_error(err::file_system, "cannot write the output");
}

int run_to_file(xpp::xmachine& machine, const script& s, const run_words& words)
{
    if (words.keeps_existing && std::ifstream(words.out).is_open())
        return report_error(err::overrun, (words.out + " is there already").c_str());
    std::ofstream out(words.out);
    if (!out)
        return report_error(err::file_system, ("cannot write " + words.out).c_str());
    machine.set_ostream(&out);
    const int status = run(machine, s);
    machine.set_ostream(&std::cout);
    return status;
}

} // namespace

int run_command(const arguments& words)
{
    // Before any output: a template of thousands of rows is written in large pieces.
    std::ios::sync_with_stdio(false);
    return run_script(words);
}

int run_script(const arguments& words)
{
    const run_words read = read_run_words(words);
    xpp::xmachine machine;
    define(machine.get_field(), read.definitions);
    script s;
    const int loaded = s.load(read.file);
    if (loaded < 0)
        return report_unreadable(s, loaded);
    const int status = compile(machine, s);
    if (status != exit_success)
        return status;
    return read.out.empty() ? run(machine, s) : run_to_file(machine, s, read);
}

int list_command(const arguments& words)
{
    if (words.size() != 1 || (words[0].size() > 1 && words[0][0] == '-'))
        throw usage_error { words.empty() ? "no file" : "one file, and no option" };
    script s;
    const int loaded = s.load(words[0]);
    if (loaded < 0)
        return report_unreadable(s, loaded);
    xpp::xmachine machine;
    const int status = compile(machine, s);
    if (status == exit_success)
        machine.print_list(std::cout, &s.lexer);
    return status;
}
