// The texts that are made from the table of commands.
#ifndef STDKRO_KRO_USAGE_H
#define STDKRO_KRO_USAGE_H

#include "command.h"

#include <cstdio>

/// A word of a form: "SECTION", "[NAME=VALUE]...", "set", "--make".
struct form_word {
    std::string text;
    bool is_optional;
    bool is_repeated;

    bool is_option() const { return text[0] == '-'; }
    /// To be written as it is.
    bool is_fixed() const;
};

/// Options that stand together: alternatives, or one that the others need.
struct option_group {
    char kind; // '|', '+', or 0 for a single option
    std::vector<const command_option*> options;
};

std::vector<form_word> form_words(const char* words);
/// The options of a form; `words` alone tells for those that stand among its words.
std::vector<option_group> form_options(const command& c, const command_form& form);
/// The option written like that, or null.
const command_option* find_option(const command& c, const std::string& spelling);

/// The words behind the command's name: "FILE [-o OUT [--keep]] [-D NAME=VALUE]...".
std::string usage_of(const command& c, const command_form& form);
/// "usage: kro ...", a line for each form.
std::string usage_of(const command& c);
/// The usage, what the command does, and its options.
void print_help(const command& c);
/// "usage: kro COMMAND", and a line for each command.
void print_commands(std::FILE* to);
/// The table as lines of fields between tabs, for programs:
///     command  NAME  SENTENCE
///     form     NAME  WORDS                         the words behind the command's name
///     option   NAME  SHORT  LONG  VALUE  HELP      "-x" or empty, "--long", VALUE may be empty
void print_table();

#endif
