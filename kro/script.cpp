#include "script.h"

#include "command.h"
#include "console.h"
#include "progress.h"

#include <stdkro/xcpt.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

int script::load(const std::string& path)
{
    name = path;
    const progress work("reading " + name);
    if (path != "-")
        return lexer.load_file(path.c_str(), "r");
    const lent_terminal typing(is_typed_input());
    return lexer.load_stream(std::cin);
}

std::string script::line(int number) const
{
    const char* at = lexer.get_buf();
    const char* const end = lexer.get_eof();
    for (; number > 1 && at != end; ++at)
        number -= *at == '\n';
    const char* behind = at;
    while (behind != end && *behind != '\n' && *behind != '\r')
        ++behind;
    return std::string(at, behind);
}

int script::count_lines() const
{
    const char* const end = lexer.get_eof();
    const bool is_open = lexer.get_buf() == end || end[-1] != '\n';
    return static_cast<int>(std::count(lexer.get_buf(), end, '\n')) + is_open;
}

std::string describe_error(const script& s, int line, const xrterror& e)
{
    char code[16];
    std::snprintf(code, sizeof code, "0x%08x", static_cast<unsigned>(e.get_err()));
    return s.name + ":" + std::to_string(line) + ": error " + code + ": "
        + (*e.what() ? e.what() : get_err_info(e.get_err())) + "\n" + s.line(line) + "\n";
}

void define(xpp::xfield& names, const std::vector<definition>& definitions)
{
    for (const definition& d : definitions) {
        const share_str name = d.name.c_str();
        if (names.get_kind(name) == xpp::xfield::variable)
            names.remove(name);
        if (names.add_var(name, d.value) < 0)
            throw usage_error { "'" + d.name + "' is the name of a function" };
    }
}

int compile(xpp::xmachine& machine, script& s)
{
    const progress work("compiling " + s.name);
    xpp::xcompiler compiler;
    if (compiler.compile(machine, &s.lexer) < 0) {
        print_lines(stderr, describe_error(s, compiler.get_last_line(), compiler.get_last_error()));
        return exit_failure;
    }
    machine.set_src_fname(s.name.c_str());
    return exit_success;
}

int report_unreadable(const script& s, int status)
{
    return report_error(status, ("cannot read " + s.name).c_str());
}
