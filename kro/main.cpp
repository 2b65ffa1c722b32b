// kro: the languages of the library from a terminal.
#include "command.h"
#include "usage.h"

#include <stdkro/xcpt.h>

#include <cstdio>

namespace {

// "kro --help" and "kro --version", as people try first.
std::string command_name(const std::string& word)
{
    if (word == "-h" || word == "--help" || (has_slash_options && word == "/?"))
        return "help";
    return word == "--version" ? "version" : word;
}

} // namespace

int run_guarded(const command& c, const arguments& words)
{
    try {
        const command_words read = read_words(c, words);
        if (!read.has(help_option.name))
            return c.run(read);
        print_help(c);
        return exit_success;
    } catch (const usage_error& e) {
        std::fprintf(stderr, "kro %s: %s\n", c.name, e.message.c_str());
        print_usage(stderr, c);
        return exit_usage;
    }
}

int report_error(int code, const char* message)
{
    std::fprintf(stderr, "error 0x%08x: %s\n", static_cast<unsigned>(code),
                 message && *message ? message : get_err_info(code));
    return exit_failure;
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        print_commands(stderr);
        return exit_usage;
    }
    const command* const c = find_command(command_name(argv[1]));
    if (!c) {
        std::fprintf(stderr, "kro: no command '%s'\n", argv[1]);
        print_commands(stderr);
        return exit_usage;
    }
    return run_guarded(*c, arguments(argv + 2, argv + argc));
}
