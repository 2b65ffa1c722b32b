// The command interpreter: finding a command, running a line, a file or the
// console, and the line editor.
//
// The editor is a function of one key, so that it can be driven by anything; only
// its loop reads the console.
#include <stdkro/shell.h>

#include "gbk_texts.h"
#include "platform.h"

#include <stdkro/str.h>
#include <stdkro/xcpt.h>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

// Lines of files and of plain input are read in pieces of this size, terminator included.
constexpr int piece_size = 80;
constexpr int max_completions = 16;

enum key { key_backspace = 8, key_tab = 9, key_line_feed = 10, key_return = 13 };

bool is_taken(int ch) { return ch >= 128 || (ch >= ' ' && ch < 127); }

void show(const char* text)
{
    std::fputs(text, stdout);
    std::fflush(stdout);
}

void drop_line_end(char* line)
{
    std::size_t n = std::strlen(line);
    while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r'))
        line[--n] = '\0';
}

void report_end_of_input()
{
    std::fputs("error: ", stdout);
    std::fputs(gbk::stdin_failed, stdout);
    show("\n");
}

// Input that is no terminal: a line end, also of two characters, is one return.
int read_file_key(bool& is_after_return)
{
    int ch = std::getchar();
    if (is_after_return && ch == key_line_feed)
        ch = std::getchar();
    is_after_return = ch == key_return;
    return ch == key_line_feed ? key_return : ch;
}

// Holds the terminal in the editor's mode.
struct key_hold {
    key_hold() { sys_console_hold_keys(); }
    key_hold(const key_hold&) = delete;
    key_hold& operator=(const key_hold&) = delete;
    ~key_hold() { sys_console_release_keys(); }
};

// Gives a command the terminal as it was before the editor.
struct key_pause {
    key_pause() : was_held(sys_console_release_keys()) {}
    key_pause(const key_pause&) = delete;
    key_pause& operator=(const key_pause&) = delete;
    ~key_pause()
    {
        if (was_held)
            sys_console_hold_keys();
    }

    const bool was_held;
};

int execute_typed(shell& sh, const char* line)
{
    const key_pause pause;
    return sh.execute(line);
}

struct argv_deleter {
    void operator()(char** argv) const { str::free_argv(argv); }
};

struct open_file {
    std::FILE* stream;

    explicit open_file(const char* path) : stream(std::fopen(path, "r")) {}
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;
    ~open_file()
    {
        if (stream)
            std::fclose(stream);
    }
};

} // namespace

shell::~shell() = default;

int shell::doDefault(int, char** argv)
{
    std::printf("unknown command: %s.\n", argv[0]);
    print_help();
    return err::unexpected;
}

const shell::cmd* shell::find(const char* name) const
{
    for (const cmd* c = commands_; c && c->name; ++c)
        if (std::strcmp(c->name, name) == 0)
            return c;
    return nullptr;
}

int shell::find_match(const char* prefix, const cmd** found, int capacity) const
{
    const std::size_t length = std::strlen(prefix);
    int count = 0;
    for (const cmd* c = commands_; c && c->name && count < capacity; ++c)
        if (std::strncmp(c->name, prefix, length) == 0)
            found[count++] = c;
    return count;
}

const shell::cmd* shell::command_of(const char* name) const
{
    if (!half_done_)
        return find(name);
    // KEEP: a whole name that begins another one is ambiguous too; a table made for
    // abbreviations has no such pair.
    const cmd* found[2];
    return find_match(name, found, 2) == 1 ? found[0] : nullptr;
}

int shell::execute(const char* line)
{
    const char* end = line;
    const int argc = str::calc_argv(line, &end);
    if (argc < 0 || *end != '\0') {
        std::printf("error: syntax error: %s\n", line);
        return err::syntax;
    }
    if (argc == 0)
        return err::ok;
    const std::unique_ptr<char*[], argv_deleter> argv(str::split_argv(line, argc));
    if (!argv)
        return err::out_of_memory;
    const cmd* const c = command_of(argv[0]);
    return c ? c->handler(this, argc, argv.get()) : doDefault(argc, argv.get());
}

int shell::batch(const char* path)
{
    const open_file file(path);
    // KEEP: a file without a line fails like one that cannot be opened; programs tell by
    // it that no command ran.
    int r = err::file_system;
    if (!file.stream)
        return r;
    char line[piece_size];
    while (std::fgets(line, sizeof line, file.stream)) {
        drop_line_end(line);
        r = execute(line);
        if (r < 0)
            break;
    }
    return r;
}

void shell::print_help() const
{
    int number = 0;
    for (const cmd* c = commands_; c && c->name; ++c)
        std::printf("%2d. %-15s   %s\n", ++number, c->name, c->help);
}

void shell::run(const char* prompt)
{
    batch("autoexec");
    if (auto_complete_)
        run_editor(prompt);
    else
        run_lines(prompt);
}

void shell::run_lines(const char* prompt)
{
    char line[piece_size];
    for (;;) {
        show(prompt);
        if (!std::fgets(line, sizeof line, stdin)) {
            report_end_of_input();
            return;
        }
        drop_line_end(line);
        if (execute(line) == err::exit)
            return;
    }
}

void shell::run_editor(const char* prompt)
{
    char line[max_line + 1];
    unsigned length = 0;
    int r = err::ok;
    const bool is_terminal = sys_console_is_terminal();
    bool is_after_return = false;
    const key_hold hold;
    show(prompt);
    while (r >= 0) {
        const int ch = is_terminal ? sys_console_getch() : read_file_key(is_after_return);
        if (ch < 0) {
            report_end_of_input();
            return;
        }
        r = do_getch(prompt, line, length, ch);
    }
}

int shell::do_getch(const char* prompt, char* line, unsigned& length, int ch)
{
    line[length] = '\0';
    switch (ch) {
    case key_tab:
        complete(prompt, line, length);
        break;
    case key_return:
        show("\n");
        if (execute_typed(*this, line) == err::exit)
            return err::exit;
        length = 0;
        show(prompt);
        break;
    case key_backspace:
        if (length > 0) {
            show("\b \b");
            --length;
        }
        break;
    default:
        if (is_taken(ch) && length < max_line) {
            line[length++] = static_cast<char>(ch);
            std::fputc(ch, stdout);
            std::fflush(stdout);
        }
    }
    return err::ok;
}

// Tab: the rest of the only name that fits, or a list of those that do.
void shell::complete(const char* prompt, char* line, unsigned& length)
{
    const cmd* found[max_completions];
    const int count = find_match(line, found, max_completions);
    if (count == 1) {
        const unsigned before = length;
        length = static_cast<unsigned>(std::snprintf(line, max_line + 1, "%s ", found[0]->name));
        if (length > max_line)
            length = max_line;
        show(line + before);
    } else if (count > 1) {
        std::fputs("\n", stdout);
        for (int i = 0; i < count; ++i)
            std::printf("%s ", found[i]->name);
        std::printf("\n%s%s", prompt, line);
        std::fflush(stdout);
    }
}
