// What the tool's commands have in common.
//
// One table (commands.cpp) describes them: from it come the usage lines, `--help`,
// `kro help`, and what the reader of words (words.h) accepts.
#ifndef STDKRO_KRO_COMMAND_H
#define STDKRO_KRO_COMMAND_H

#include "words.h"

#include <string>
#include <vector>

/// Exit status of the tool.
enum { exit_success = 0, exit_failure = 1, exit_usage = 2 };

enum option_use { once, repeated };

struct command_option {
    /// The long name, without dashes.
    const char* name;
    /// A character, or 0 for none.
    char short_name;
    /// What the value is called; null for an option without one. Names with "|" between are all
    /// values there are.
    const char* value;
    /// What the option does: "writes the output to a file".
    const char* help;
    option_use use = once;
    /// Where `least <= most` the value is a number in this range.
    int least = 0;
    int most = -1;

    bool is_number() const { return least <= most; }
};

/// One way to call a command: words, options, words. In capital letters a word stands for
/// one that the user chooses; "[X]" may be missing, "X..." be several.
/// Behind the first word of `trail` nothing is an option.
struct command_form {
    const char* lead;
    /// Options in the spelling that the usage shows, between blanks: "--a|--b" exclude each
    /// other, "-a+-b" allows -b with -a only.
    const char* options;
    const char* trail;
};

enum class word_rule {
    /// A word that begins with a dash is an option, or a mistake.
    plain,
    /// Only the command's own options are options: texts, numbers and expressions may begin
    /// with a dash. Behind an action such as "set" all its words are what they are.
    any_words
};

struct command {
    const char* name;
    /// One sentence for the list of commands.
    const char* summary;
    std::vector<command_form> forms;
    std::vector<command_option> options;
    /// Returns the exit status.
    int (*run)(const command_words& words);
    word_rule rule = word_rule::plain;
};

/// All commands in the order of `kro help`.
extern const std::vector<command> commands;

/// The command of that name, or null.
const command* find_command(const std::string& name);

/// Reads the words behind the command's name, runs the command and returns its exit status. What is wrong
/// with the words goes to standard error, with the command's usage.
int run_guarded(const command& c, const arguments& words);

/// Prints "error 0x...: MESSAGE" to standard error with the text of `code`, or
/// with `message` where there is one. Returns `exit_failure`.
int report_error(int code, const char* message = nullptr);

#endif
