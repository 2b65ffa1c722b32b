// kro: the languages of the library from a terminal.
#include "command.h"
#include "commands.h"

#include <stdkro/xcpt.h>

#include <cstdio>
#include <cstring>

namespace {

void print_usage(std::FILE* to, const command& c)
{
    const char* lead = "usage:";
    for (const char* form = c.usage; form;) {
        const char* end = std::strchr(form, '\n');
        const std::string words = end ? std::string(form, end) : std::string(form);
        std::fprintf(to, "%s kro %s%s%s\n", lead, c.name, words.empty() ? "" : " ", words.c_str());
        lead = "      ";
        form = end ? end + 1 : nullptr;
    }
}

void print_commands(std::FILE* to)
{
    std::fprintf(to, "usage: kro COMMAND [WORD...]\n\ncommands:\n");
    for (const command* c = commands; c->name; ++c)
        std::fprintf(to, "  %-10s %s\n", c->name, c->summary);
    std::fprintf(to, "\n'kro help COMMAND' tells how a command is called.\n");
}

int help(const arguments& words)
{
    if (words.size() > 1)
        throw usage_error { "one command at a time" };
    if (words.empty()) {
        print_commands(stdout);
        return exit_success;
    }
    const command* c = find_command(words[0].c_str());
    if (!c)
        throw usage_error { "no command '" + words[0] + "'" };
    print_usage(stdout, *c);
    std::printf("%s\n", c->summary);
    return exit_success;
}

int print_version(const arguments& words)
{
    if (!words.empty())
        throw usage_error { "'" + words[0] + "' is not expected" };
    std::printf("kro %s\n", STDKRO_VERSION);
    return exit_success;
}

} // namespace

const command commands[] = {
    { "help", "[COMMAND]", "Tells what the commands do and how they are called.", help },
    { "err", "CODE...", "Prints the messages of status codes, hexadecimal (0x80020005) or decimal.", err_command },
    { "eval", "EXPRESSION [-D NAME=VALUE]...", "Evaluates an expression and prints its value.", eval_command },
    { "run", "FILE [-o OUT [--keep]] [-D NAME=VALUE]...", "Runs a script; '-' is standard input.", run_command },
    { "debug", "FILE [-D NAME=VALUE]...", "Runs a script line by line, with breakpoints and a look at its variables.",
      debug_command },
    { "list", "FILE", "Shows the instructions that a script becomes, with its lines between.", list_command },
    { "match", "PATTERN TEXT...", "Tells which texts a pattern accepts.", match_command },
    { "scan", "RULES FILE", "Cuts a file into the longest pieces that a rule accepts.", scan_command },
    { "automaton", "PATTERN... [--nfa|--dfa] [--dot|--table|--cpp]", "Prints the automaton of patterns.",
      automaton_command },
    { "ini",
      "FILE\nFILE get SECTION NAME\nFILE set SECTION NAME VALUE [--force]\nFILE unset SECTION NAME [--force]\n"
      "FILE list [SECTION]",
      "Prints and changes INI documents.", ini_command },
    { "xml", "FILE [--pretty|--compact|--events|--tree]\nFILE get PATH\nFILE set PATH VALUE\nFILE rm PATH",
      "Prints and changes XML documents.", xml_command },
    { "mml", "LINE\n--make INTERFACE METHOD [NAME=VALUE]...", "Takes command records apart and makes them.",
      mml_command },
    { "proc", "run [--dir DIR] [--in FILE] COMMAND LINE\ntime COMMAND LINE",
      "Runs a program and passes its output on; measures how long it takes.", proc_command },
    { "log", "[--file PATH] [--udp HOST:PORT] [--context NAME] [--level NAME] MESSAGE",
      "Writes one line of a log.", log_command },
    { "logd", "[--port N] [--host ADDRESS] [--out FILE] [--count N]",
      "Receives log lines by UDP and shows them until interrupted.", logd_command },
    { "messages", "FILE", "Checks a language file and lists its numbered messages.", messages_command },
    { "net",
      "echo HOST:PORT [--loop selector|poller|epoller] [--udp] [--count N]\n"
      "sink HOST:PORT [--loop selector|poller|epoller] [--udp] [--count N]\n"
      "send HOST:PORT [--loop selector|poller|epoller] [--udp]\n"
      "ping HOST:PORT [--loop selector|poller|epoller] [--udp] [--count N]\naddr TEXT...",
      "Serves, sends and measures over sockets; shows how addresses are read.", net_command },
    { "shell", "", "Reads commands line by line and keeps variables between them.", shell_command },
    { "version", "", "Prints the version of the tool and of the library.", print_version },
    { nullptr, nullptr, nullptr, nullptr },
};

const command* find_command(const char* name)
{
    const command* c = commands;
    while (c->name && std::strcmp(c->name, name) != 0)
        ++c;
    return c->name ? c : nullptr;
}

int run_guarded(const command& c, const arguments& words)
{
    try {
        return c.run(words);
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
    const command* c = find_command(argv[1]);
    if (!c) {
        std::fprintf(stderr, "kro: no command '%s'\n", argv[1]);
        print_commands(stderr);
        return exit_usage;
    }
    return run_guarded(*c, arguments(argv + 2, argv + argc));
}
