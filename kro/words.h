// The words of a command line, read as the table of commands says.
//
// Options may stand anywhere; "--" ends them. A word that begins with a dash and has
// more behind it is an option, on Windows also "/" and one character.
#ifndef STDKRO_KRO_WORDS_H
#define STDKRO_KRO_WORDS_H

#include <string>
#include <vector>

struct command;
struct command_option;

using arguments = std::vector<std::string>;

/// Thrown for words that make no sense: the caller prints the message and the usage.
struct usage_error {
    std::string message;
};

struct command_words {
    struct given_option {
        const command_option* option;
        /// As it was written.
        std::string spelling;
        std::string value;
    };

    /// What is no option, actions included.
    arguments operands;
    std::vector<given_option> options;

    /// Options go by their long name; the last of several counts.
    bool has(const char* option) const { return find(option) != nullptr; }
    std::string text(const char* option, const std::string& otherwise = "") const;
    int number(const char* option, int otherwise) const;
    /// The values of an option that may be repeated.
    arguments all(const char* option) const;

private:
    const given_option* find(const char* option) const;
};

/// The option that every command has.
extern const command_option help_option;

/// Reads the words behind the command's name; throws `usage_error`. Where `help_option` is among the options,
/// nothing else is checked.
command_words read_words(const command& c, const arguments& words);

/// The decimal number that the whole text is; false for anything else, and beyond an int.
bool read_number(const std::string& text, int& number);

/// Whether "/x" is an option on this system.
extern const bool has_slash_options;

#endif
