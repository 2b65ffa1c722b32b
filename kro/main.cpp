// kro: the languages of the library from a terminal.
#include "command.h"
#include "files.h"
#include "progress.h"
#include "usage.h"

#include <stdkro/xcpt.h>

#include <cstdio>
#include <iostream>
#include <new>

namespace {

// "kro --help" and "kro --version", as people try first.
std::string command_name(const std::string& word)
{
    if (word == "-h" || word == "--help" || (has_slash_options && word == "/?"))
        return "help";
    return word == "--version" ? "version" : word;
}

// Hands on what was printed; false when some of it is lost, as on a full disk. It may take long
// until somebody takes it.
bool flush_output()
{
    std::cout.flush();
    const bool is_done = std::fflush(stdout) == 0 && !std::ferror(stdout) && std::cout.good();
    std::cout.clear();
    std::clearerr(stdout);
    return is_done;
}

int run_shown(const command& c, const command_words& words)
{
    const progress work(c.name, progress::unless_output_is_seen);
    int status = exit_success;
    if (words.has(help_option.name))
        print_help(c);
    else
        status = c.run(words);
    const bool is_done = flush_output();
    return is_done || status != exit_success ? status : report_lost_output();
}

} // namespace

int run_guarded(const command& c, const arguments& words)
{
    try {
        return run_shown(c, read_words(c, words));
    } catch (const usage_error& e) {
        print_message("kro %s: %s\n%s", c.name, e.message.c_str(), usage_of(c).c_str());
        return exit_usage;
    } catch (const xcpt& e) {
        return report_error(e.get_err(), e.what());
    } catch (const std::bad_alloc&) {
        return report_error(err::out_of_memory);
    }
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
