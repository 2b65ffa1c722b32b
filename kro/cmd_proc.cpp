// kro proc: runs a program as the library does.
#include "commands.h"
#include "console.h"
#include "files.h"
#include "progress.h"
#include "quoted.h"

#include <stdkro/process.h>
#include <stdkro/thread.h>
#include <stdkro/xcpt.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

// What to run: the application and its whole command line.
struct program {
    std::string application;
    std::string command_line;
};

bool is_separator(char c) { return c == ' ' || c == '\t'; }

// The file name that begins a command line: quotes keep blanks together.
std::string first_word(const std::string& line)
{
    std::string word;
    bool quoted = false;
    for (char c : line) {
        if (is_separator(c) && !quoted)
            break;
        if (c == '"')
            quoted = !quoted;
        else
            word += c;
    }
    return word;
}

// Behind the action one word is a whole command line, several are its words.
program read_program(const arguments& words)
{
    const std::string& name = words[1];
    if (name.empty())
        throw usage_error { "COMMAND is empty" };
    if (words.size() == 2)
        return { first_word(name), name };
    if (name.find('"') != std::string::npos)
        throw usage_error { "a program's name has no quotes" };
    program p = { name, '"' + name + '"' };
    for (std::size_t i = 2; i < words.size(); ++i)
        p.command_line += ' ' + command_line_word(words[i]);
    return p;
}

int report_system_error(int code)
{
    const std::string number = std::to_string(last_system_error());
    return report_error(code, (get_err_info(code) + (" (system error " + number + ")")).c_str());
}

int report_unreadable(const std::string& path)
{
    return report_error(err::file_system, (path + ": " + get_err_info(err::file_system)).c_str());
}

// Gives the child a file to read; a child that does not want it all is its own affair.
void feed(std::FILE* file, std::FILE* child, progress& work)
{
    char block[1 << 16];
    std::size_t n;
    while ((n = std::fread(block, 1, sizeof block, file)) > 0 && std::fwrite(block, 1, n, child) == n)
        work.add(0, n);
}

int run_with_input(const program& p, const char* directory, const std::string& path)
{
    progress work("running " + p.application, progress::unless_output_is_seen);
    const file_pointer file = open_to_read(path);
    if (!file)
        return report_unreadable(path);
    process child;
    file_pointer input(child.start(p.application.c_str(), directory, p.command_line.c_str(), "wb", false));
    if (!input)
        return report_system_error(err::execute_process);
    feed(file.get(), input.get(), work);
    input.reset(); // the end of what the child reads
    const int exit_code = child.wait_done();
    return std::ferror(file.get()) ? report_unreadable(path) : exit_code;
}

// At a terminal the program may ask a person, who types there.
int run_program(const program& p, const char* directory)
{
    const progress work("running " + p.application, progress::unless_output_is_seen);
    const lent_terminal typing(is_typed_input());
    process child;
    if (!child.start(p.application.c_str(), directory, p.command_line.c_str()))
        return report_system_error(err::execute_process);
    return child.wait_done();
}

int run(const command_words& words)
{
    const std::string directory = words.text("dir");
    const std::string input = words.text("in");
    const program p = read_program(words.operands);
    std::fflush(stdout);
    return input.empty() ? run_program(p, directory.c_str()) : run_with_input(p, directory.c_str(), input);
}

// One run with its output thrown away. False when it did not start.
bool run_silently(const program& p, int& exit_code)
{
    process child;
    file_pointer output(child.start(p.application.c_str(), nullptr, p.command_line.c_str(), "rb", false));
    if (!output)
        return false;
    char block[1 << 16];
    while (std::fread(block, 1, sizeof block, output.get()) > 0) {
    }
    output.reset();
    exit_code = child.wait_done();
    return true;
}

// Runs the program again and again, until one run fails. Returns the exit status.
int measure(const program& p, std::vector<double>& spans)
{
    constexpr std::size_t runs = 9;
    progress work("measuring");
    work.counts("run");
    timer watch;
    while (spans.size() < runs) {
        work.reached(spans.size(), runs);
        watch.reset();
        int exit_code = 0;
        if (!run_silently(p, exit_code))
            return report_system_error(err::execute_process);
        spans.push_back(watch.spend());
        if (exit_code != 0)
            return report_error(err::failed, ("exit code " + std::to_string(exit_code)).c_str());
        work.add(1, 0);
    }
    return exit_success;
}

int time(const command_words& words)
{
    const program p = read_program(words.operands);
    std::vector<double> spans;
    const int status = measure(p, spans);
    if (status != exit_success)
        return status;
    std::sort(spans.begin(), spans.end());
    std::printf("minimum %.3f ms\nmedian %.3f ms\nmaximum %.3f ms\n", spans.front(), spans[spans.size() / 2], spans.back());
    return exit_success;
}

} // namespace

int proc_command(const command_words& words) { return words.operands[0] == "run" ? run(words) : time(words); }
