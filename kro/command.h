// What the tool's commands have in common.
#ifndef STDKRO_KRO_COMMAND_H
#define STDKRO_KRO_COMMAND_H

#include <string>
#include <vector>

/// Exit status of the tool.
enum { exit_success = 0, exit_failure = 1, exit_usage = 2 };

/// The words behind the command's name.
using arguments = std::vector<std::string>;

/// Thrown by a command for words that it cannot read: `main` prints the message
/// and the command's usage to standard error and exits with `exit_usage`.
struct usage_error {
    std::string message;
};

struct command {
    const char* name;
    /// The words behind the name, one form a line.
    const char* usage;
    /// One sentence for the list of commands.
    const char* summary;
    /// Returns the exit status.
    int (*run)(const arguments& words);
};

/// All commands in the order of `kro help`, the last with a null name.
extern const command commands[];

/// The command of that name, or null.
const command* find_command(const char* name);

/// Runs a command and returns its exit status; what is wrong with the words goes to standard
/// error, with the command's usage.
int run_guarded(const command& c, const arguments& words);

/// Prints "error 0x...: MESSAGE" to standard error with the text of `code`, or
/// with `message` where there is one. Returns `exit_failure`.
int report_error(int code, const char* message = nullptr);

#endif
