// The table of commands.
#include "commands.h"

#include "usage.h"

#include <climits>

namespace {

const command_option define_option
    = { "define", 'D', "NAME=VALUE", "makes a variable; an int, a double or else a string", repeated };
const command_option loop_option
    = { "loop", 'l', "selector|poller|epoller", "the event loop; epoller unless told otherwise" };
const command_option udp_option = { "udp", 'u', nullptr, "datagrams instead of a stream" };
const command_option count_option = { "count", 'n', "N", "ends after N; ping: round trips, 100 unless told otherwise",
                                      once, 1, 65535 };

int help(const command_words& words)
{
    if (words.has("table")) {
        print_table();
        return exit_success;
    }
    if (words.operands.empty()) {
        print_commands(stdout);
        return exit_success;
    }
    const command* const c = find_command(words.operands[0]);
    if (!c)
        throw usage_error { "no command '" + words.operands[0] + "'" };
    print_help(*c);
    return exit_success;
}

int print_version(const command_words&)
{
    std::printf("kro %s\n", STDKRO_VERSION);
    return exit_success;
}

} // namespace

const std::vector<command> commands = {
    { "help", "Tells what the commands do and how they are called.",
      { { "[COMMAND]", "", "" }, { "--table", "", "" } },
      { { "table", 't', nullptr, "lists everything as fields between tabs, for programs" } },
      help },
    { "err", "Prints the messages of status codes, hexadecimal (0x80020005) or decimal.",
      { { "CODE...", "", "" } }, {}, err_command, word_rule::any_words },
    { "eval", "Evaluates an expression and prints its value.",
      { { "EXPRESSION", "-D", "" } }, { define_option }, eval_command, word_rule::any_words },
    { "run", "Runs a script; '-' is standard input.",
      { { "FILE", "-o+--keep -D", "" } },
      { { "out", 'o', "OUT", "writes the output to a file" },
        { "keep", 'k', nullptr, "leaves a file that is there already alone, and fails" },
        define_option },
      run_command },
    { "debug", "Runs a script line by line, with breakpoints and a look at its variables.",
      { { "FILE", "-D", "" } }, { define_option }, debug_command },
    { "list", "Shows the instructions that a script becomes, with its lines between.",
      { { "FILE", "", "" } }, {}, list_command },
    { "match", "Tells which texts a pattern accepts.",
      { { "PATTERN TEXT...", "", "" } }, {}, match_command, word_rule::any_words },
    { "scan", "Cuts a file into the longest pieces that a rule accepts.",
      { { "RULES FILE", "", "" } }, {}, scan_command },
    { "automaton", "Prints the automaton of patterns.",
      { { "PATTERN...", "--nfa|--dfa --dot|--table|--cpp", "" } },
      { { "nfa", 'n', nullptr, "the nondeterministic automaton" },
        { "dfa", 'd', nullptr, "the deterministic automaton, which is usual" },
        { "dot", 'g', nullptr, "as a graph for Graphviz" },
        { "table", 't', nullptr, "as a table, which is usual" },
        { "cpp", 'c', nullptr, "as a C++ source" } },
      automaton_command },
    { "ini", "Prints and changes INI documents.",
      { { "FILE", "", "" },
        { "FILE get SECTION NAME", "", "" },
        { "FILE set SECTION NAME VALUE", "--force", "" },
        { "FILE unset SECTION NAME", "--force", "" },
        { "FILE list [SECTION]", "", "" } },
      { { "force", 'f', nullptr, "writes although comments get lost" } },
      ini_command, word_rule::any_words },
    { "xml", "Prints and changes XML documents.",
      { { "FILE", "--pretty|--compact|--events|--tree", "" },
        { "FILE get PATH", "", "" },
        { "FILE set PATH VALUE", "", "" },
        { "FILE rm PATH", "", "" } },
      { { "pretty", 'p', nullptr, "with lines and indentation, which is usual" },
        { "compact", 'c', nullptr, "without" },
        { "events", 'e', nullptr, "a line for each event of reading" },
        { "tree", 't', nullptr, "a line for each node" } },
      xml_command, word_rule::any_words },
    { "mml", "Takes command records apart and makes them.",
      { { "LINE", "", "" }, { "--make INTERFACE METHOD [NAME=VALUE]...", "", "" } },
      { { "make", 'm', nullptr, "makes a record of its words" } },
      mml_command },
    { "proc", "Runs a program, or one word as a command line; measures how long it takes.",
      { { "run", "--dir --in", "COMMAND [WORD]..." }, { "time", "", "COMMAND [WORD]..." } },
      { { "dir", 'd', "DIR", "the folder that the program starts in" },
        { "in", 'i', "FILE", "what the program reads" } },
      proc_command },
    { "log", "Writes one line of a log.",
      { { "MESSAGE", "--file --udp --context --level", "" } },
      { { "file", 'f', "PATH", "appends the line to a file" },
        { "udp", 'u', "HOST:PORT", "sends the line to 'kro logd'" },
        { "context", 'c', "NAME", "the program that the line names" },
        { "level", 'l', "none|hint|warn|failed|error|bad|debug", "how bad it is; hint unless told otherwise" } },
      log_command, word_rule::any_words },
    { "logd", "Receives log lines by UDP and shows them until interrupted.",
      { { "", "--port --host --out --count", "" } },
      { { "port", 'p', "N", "7906 unless told otherwise; 0 is any that is free", once, 0, 65535 },
        { "host", 'a', "ADDRESS", "127.0.0.1 unless told otherwise" },
        { "out", 'o', "FILE", "appends the lines to a file too" },
        { "count", 'n', "N", "ends after N datagrams", once, 1, INT_MAX } },
      logd_command },
    { "messages", "Checks a language file and lists its numbered messages.",
      { { "FILE", "", "" } }, {}, messages_command },
    { "net", "Serves, sends and measures over sockets; shows how addresses are read.",
      { { "echo HOST:PORT", "--loop --udp --count", "" },
        { "sink HOST:PORT", "--loop --udp --count", "" },
        { "send HOST:PORT", "--loop --udp", "" },
        { "ping HOST:PORT", "--loop --udp --count", "" },
        { "addr TEXT...", "", "" } },
      { loop_option, udp_option, count_option },
      net_command },
    { "shell", "Reads commands line by line and keeps variables between them.", { { "", "", "" } }, {}, shell_command },
    { "version", "Prints the version of the tool and of the library.", { { "", "", "" } }, {}, print_version },
};

const command* find_command(const std::string& name)
{
    for (const command& c : commands)
        if (name == c.name)
            return &c;
    return nullptr;
}
