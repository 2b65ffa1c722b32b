// An interactive command interpreter for consoles.
//
// The program gives a table of commands. `run` reads the start-up file "autoexec" of
// the current folder, then lines from the console until a command returns
// 0x80020010 ("exit"); `execute` runs one line.
//
//     int quit(shell*, int, char**) { return err::exit; }
//
//     const shell::cmd commands[] = { { "quit", quit, "leaves" }, { nullptr, nullptr, nullptr } };
//     shell sh;
//     sh.set_cmds(commands);
//     sh.run("> ");
//
// White space separates the words of a line; double quotes group, and inside
// them a backslash takes the next character as it is.
#ifndef STDKRO_SHELL_H
#define STDKRO_SHELL_H

#include <stdkro/config.h>

class KRO_API shell {
public:
    /// A command. `handler` receives the words of the line, the command's name first,
    /// and returns a status code.
    struct cmd {
        const char* name;
        int (*handler)(shell* sh, int argc, char** argv);
        const char* help;
    };

    /// Runs what no command is named for: prints "unknown command: WORD." and the list of
    /// commands, and returns 0x80020006.
    virtual int doDefault(int argc, char** argv);
    virtual ~shell();

    /// `table` ends with a null name; it is not copied.
    void set_cmds(const cmd* table) { commands_ = table; }
    const cmd* get_cmds() const { return commands_; }

    /// Whether `run` edits the line itself and completes names at Tab. Off at first.
    bool auto_complete() const { return auto_complete_; }
    void auto_complete(bool on) { auto_complete_ = on; }
    /// Whether a command may be abbreviated as long as one command only begins like
    /// that. Off at first.
    bool half_done() const { return half_done_; }
    void half_done(bool on) { half_done_ = on; }

    /// The first command of that name, or null.
    const cmd* find(const char* name) const;
    /// The commands whose names begin with `prefix`, in table order, at most `capacity`.
    /// Returns how many.
    int find_match(const char* prefix, const cmd** found, int capacity) const;

    /// Runs one line: the handler's result, 0 for an empty line, 0x80020005 for a quote that
    /// is not closed, 0x80010002 without memory.
    int execute(const char* line);
    /// Runs the lines of a file (each cut into pieces of at most 79 characters) until one fails.
    /// Returns the last result; 0x80020002 when the file cannot be opened or is empty.
    int batch(const char* path);
    /// The interactive loop; returns at "exit" and at the end of the input.
    void run(const char* prompt);
    /// Prints the commands, one a line.
    void print_help() const;

protected:
    /// The longest line that the editor takes.
    static constexpr unsigned max_line = 511;

    /// One step of the line editor: what the key `ch` does to `line` (of `max_line` characters and
    /// a terminator) of `length` characters. Returns 0x80020010 when the line
    /// was executed and ends the shell, otherwise 0.
    int do_getch(const char* prompt, char* line, unsigned& length, int ch);

private:
    const cmd* command_of(const char* name) const;
    void complete(const char* prompt, char* line, unsigned& length);
    void run_lines(const char* prompt);
    void run_editor(const char* prompt);

    const cmd* commands_ = nullptr;
    bool auto_complete_ = false;
    bool half_done_ = false;
};

#endif
