// The line editor, key by key, beside a model that says what the line and the screen
// are after each one.
//
// The first byte chooses the command table and whether names may be abbreviated; each
// byte behind it is a key. Standard output is a scratch file that is read back.
#include <stdkro/shell.h>
#include <stdkro/str.h>
#include <stdkro/xcpt.h>

#include "require.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using std::string;

constexpr const char* prompt = "> ";
constexpr unsigned longest_line = 511;
constexpr std::size_t most_names = 16;

// ---- commands ------------------------------------------------------------------

string joined(int count, char** words)
{
    string text;
    for (int i = 0; i < count; ++i)
        text += string("<") + words[i] + ">";
    return text + "\n";
}

int show_words(shell*, int count, char** words)
{
    std::fputs(joined(count, words).c_str(), stdout);
    return count % 2 ? err::ok : err::conflict;
}

int quit(shell*, int, char**) { return err::exit; }

const string long_name(600, 'n');

const shell::cmd few[] = { { "help", show_words, "" }, { "hello", show_words, "" }, { "quit", quit, "" },
                           { "hello world", show_words, "" }, { nullptr, nullptr, nullptr } };
// More than the editor lists.
const shell::cmd many[] = {
    { "c00", quit, "" }, { "c01", quit, "" }, { "c02", quit, "" }, { "c03", quit, "" }, { "c04", quit, "" },
    { "c05", quit, "" }, { "c06", quit, "" }, { "c07", quit, "" }, { "c08", quit, "" }, { "c09", quit, "" },
    { "c10", quit, "" }, { "c11", quit, "" }, { "c12", quit, "" }, { "c13", quit, "" }, { "c14", quit, "" },
    { "c15", quit, "" }, { "c16", quit, "" }, { "c17", quit, "" }, { nullptr, nullptr, nullptr } };
const shell::cmd longer_than_a_line[]
    = { { long_name.c_str(), show_words, "" }, { "", show_words, "" }, { nullptr, nullptr, nullptr } };
const shell::cmd* const tables[] = { few, many, longer_than_a_line, nullptr };

// ---- the model -----------------------------------------------------------------

class model {
public:
    model(const shell::cmd* commands, bool may_abbreviate) : commands_(commands), may_abbreviate_(may_abbreviate) {}

    /// The editor's result.
    int key(int ch)
    {
        if (ch == '\t')
            complete();
        else if (ch == '\r')
            return execute();
        else if (ch == '\b' && !line.empty()) {
            screen += "\b \b";
            line.pop_back();
        } else if ((ch >= 128 || (ch >= 32 && ch < 127)) && line.size() < longest_line) {
            line += static_cast<char>(ch);
            screen += static_cast<char>(ch);
        }
        return 0;
    }

    string line;
    string screen;

private:
    std::vector<string> names_like(const string& prefix) const
    {
        std::vector<string> found;
        for (const shell::cmd* c = commands_; c && c->name; ++c)
            if (string(c->name).compare(0, prefix.size(), prefix) == 0)
                found.push_back(c->name);
        return found;
    }
    void complete()
    {
        std::vector<string> names = names_like(line);
        if (names.size() == 1) {
            const string whole = (names[0] + " ").substr(0, longest_line);
            screen += whole.substr(line.size());
            line = whole;
        } else if (names.size() > 1) {
            names.resize(std::min(names.size(), most_names));
            screen += "\n";
            for (const string& name : names)
                screen += name + " ";
            screen += "\n" + (prompt + line);
        }
    }
    int execute()
    {
        screen += "\n";
        const int r = run();
        if (r != err::exit) {
            line.clear();
            screen += prompt;
        }
        return r == err::exit ? r : 0;
    }
    int run()
    {
        const int count = str::calc_argv(line.c_str(), nullptr);
        if (count < 0)
            screen += "error: syntax error: " + line + "\n";
        if (count <= 0)
            return count;
        char** const words = str::split_argv(line.c_str(), count);
        const string all = joined(count, words);
        const string name = words[0];
        str::free_argv(words);
        std::vector<string> found;
        for (const string& candidate : names_like(name))
            if (may_abbreviate_ || candidate == name)
                found.push_back(candidate);
        if (found.empty() || (may_abbreviate_ && found.size() > 1)) {
            screen += "? " + all;
            return err::failed;
        }
        if (found[0] == "quit" || found[0][0] == 'c')
            return err::exit;
        screen += all;
        return 0;
    }

    const shell::cmd* commands_;
    bool may_abbreviate_;
};

// ---- the editor ----------------------------------------------------------------

class editor : public shell {
public:
    editor(const cmd* commands, bool may_abbreviate) : line_(new char[max_line + 1])
    {
        static_assert(max_line == longest_line);
        set_cmds(commands);
        half_done(may_abbreviate);
    }
    int key(int ch) { return do_getch(prompt, line_.get(), length_, ch); }
    string line() const { return string(line_.get(), length_); }
    int doDefault(int count, char** words) override
    {
        std::printf("? %s", joined(count, words).c_str());
        return err::failed;
    }

private:
    std::unique_ptr<char[]> line_;
    unsigned length_ = 0;
};

/// Standard output, caught in a file that goes when the program ends.
class screen_file {
public:
    screen_file()
        : path_(std::filesystem::temp_directory_path() / ("editor_fuzz_" + std::to_string(std::random_device()())))
    {
        CHECK(std::freopen(path_.string().c_str(), "w+b", stdout));
    }
    ~screen_file()
    {
        std::fclose(stdout);
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    void clear() { std::rewind(stdout); }
    string read()
    {
        string text(static_cast<std::size_t>(std::ftell(stdout)), '\0');
        std::rewind(stdout);
        CHECK(std::fread(&text[0], 1, text.size(), stdout) == text.size());
        return text;
    }

private:
    std::filesystem::path path_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static screen_file screen;
    if (size < 1)
        return 0;
    const bool may_abbreviate = data[0] & 1;
    const shell::cmd* const commands = tables[data[0] / 2 % 4];
    editor tried(commands, may_abbreviate);
    model expected(commands, may_abbreviate);
    screen.clear();
    for (std::size_t i = 1; i < size; ++i) {
        const int result = expected.key(data[i]);
        CHECK(tried.key(data[i]) == result);
        CHECK(tried.line() == expected.line);
        if (result < 0)
            break;
    }
    CHECK(screen.read() == expected.screen);
    return 0;
}
