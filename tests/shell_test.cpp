// The command interpreter: lines, files, the line editor key by key, and the loop over
// redirected input.
#include <stdkro/shell.h>
#include <stdkro/xcpt.h>

#include "virtual_slot.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <string>

namespace {

std::string called;

std::string joined(int argc, char** argv)
{
    std::string text;
    for (int i = 0; i < argc; ++i)
        text += "<" + std::string(argv[i]) + ">";
    EXPECT_EQ(nullptr, argv[argc]);
    return text;
}

int record(shell*, int argc, char** argv)
{
    called += joined(argc, argv) + " ";
    return 7;
}
int quit(shell*, int, char**) { return err::exit; }
int fail(shell*, int, char**)
{
    called += "fail ";
    return err::conflict;
}

const shell::cmd commands[] = {
    { "help", record, "tells" }, { "hello", record, "greets" }, { "quit", quit, "leaves" },
    { "fail", fail, "fails" },   { nullptr, nullptr, nullptr },
};

const char* const help_text = " 1. help              tells\n"
                              " 2. hello             greets\n"
                              " 3. quit              leaves\n"
                              " 4. fail              fails\n";

/// A shell whose editor can be driven key by key.
struct editor : shell {
    char line[max_line + 1];
    unsigned length = 0;

    editor() { set_cmds(commands); }
    int key(int ch) { return do_getch("> ", line, length, ch); }
    int type(const std::string& keys)
    {
        int r = 0;
        for (const char ch : keys)
            r = key(static_cast<unsigned char>(ch));
        return r;
    }
    std::string edited() const { return std::string(line, length); }
};

template <class body> std::string printed(body run)
{
    testing::internal::CaptureStdout();
    run();
    std::fflush(stdout);
    std::string text = testing::internal::GetCapturedStdout();
    for (std::size_t at; (at = text.find("\r\n")) != std::string::npos;)
        text.erase(at, 1);
    return text;
}

void write_file(const char* path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

/// Standard input read from a text for as long as the object lives.
struct typed_input {
    explicit typed_input(const std::string& text)
    {
        write_file("shell_input", text);
        if (!std::freopen("shell_input", "r", stdin))
            ADD_FAILURE() << "no input";
    }
    ~typed_input()
    {
        std::fclose(stdin);
        std::remove("shell_input");
    }
};

} // namespace

TEST(shell, has_its_functions_and_fields_in_this_order)
{
    EXPECT_EQ(0u, slot_of(&shell::doDefault)); // before the destructor
    EXPECT_TRUE(std::has_virtual_destructor<shell>::value);
    EXPECT_EQ(0u, offsetof(shell::cmd, name));
    EXPECT_EQ(sizeof(void*), offsetof(shell::cmd, handler));
    EXPECT_EQ(2 * sizeof(void*), offsetof(shell::cmd, help));
}

TEST(shell, runs_the_command_that_a_line_names)
{
    static const struct {
        const char* line;
        int result;
        const char* called;
        const char* printed;
    } cases[] = {
        { "hello", 7, "<hello> ", "" },
        { "  hello  a \"b c\" \"\" ", 7, "<hello><a><b c><> ", "" },
        { "hello \"a\\\"b\"", 7, "<hello><a\"b> ", "" },
        // Nothing to do.
        { "", 0, "", "" },
        { "   \t ", 0, "", "" },
        // A quote that is not closed.
        { "hello \"a", err::syntax, "", "error: syntax error: hello \"a\n" },
        // No such command; names are exact.
        { "hel", err::unexpected, "", "unknown command: hel.\n" },
        { "Hello", err::unexpected, "", "unknown command: Hello.\n" },
        { "\"\"", err::unexpected, "", "unknown command: .\n" },
        { "quit", err::exit, "", "" },
    };
    for (const auto& c : cases) {
        shell sh;
        sh.set_cmds(commands);
        called.clear();
        int r = 0;
        std::string expected = c.printed;
        if (c.result == err::unexpected)
            expected += help_text;
        EXPECT_EQ(expected, printed([&] { r = sh.execute(c.line); })) << c.line;
        EXPECT_EQ(c.result, r) << c.line;
        EXPECT_EQ(c.called, called) << c.line;
    }
}

TEST(shell, takes_abbreviations_that_only_one_command_begins_with)
{
    static const struct {
        const char* line;
        const char* called;
        int result;
    } cases[] = {
        { "hell x", "<hell><x> ", 7 }, { "hello", "<hello> ", 7 }, { "fai", "fail ", err::conflict },
        { "he", "", err::unexpected }, { "hel", "", err::unexpected }, { "z", "", err::unexpected },
    };
    for (const auto& c : cases) {
        shell sh;
        sh.set_cmds(commands);
        sh.half_done(true);
        EXPECT_TRUE(sh.half_done());
        called.clear();
        int r = 0;
        printed([&] { r = sh.execute(c.line); });
        EXPECT_EQ(c.result, r) << c.line;
        EXPECT_EQ(c.called, called) << c.line;
    }
}

TEST(shell, takes_a_name_that_begins_another_for_ambiguous)
{
    const shell::cmd pair[] = { { "run", record, "" }, { "runall", record, "" }, { nullptr, nullptr, nullptr } };
    shell sh;
    sh.set_cmds(pair);
    called.clear();
    EXPECT_EQ(7, sh.execute("run"));
    sh.half_done(true);
    EXPECT_EQ(0u, printed([&] { EXPECT_EQ(err::unexpected, sh.execute("run")); }).find("unknown command: run.\n"));
    EXPECT_EQ(7, sh.execute("runa"));
    EXPECT_EQ("<run> <runa> ", called);
}

TEST(shell, runs_the_first_of_two_commands_with_one_name)
{
    const shell::cmd twice[] = { { "a", record, "" }, { "a", fail, "" }, { nullptr, nullptr, nullptr } };
    shell sh;
    sh.set_cmds(twice);
    EXPECT_EQ(twice, sh.find("a"));
    EXPECT_EQ(7, sh.execute("a"));
    const shell::cmd empty_table[] = { { nullptr, record, "" }, { "behind", record, "" }, { nullptr, nullptr, nullptr } };
    sh.set_cmds(empty_table);
    EXPECT_EQ(nullptr, sh.find("behind")) << "the null name ends the table";
}

TEST(shell, hands_itself_to_the_command)
{
    static const shell* seen;
    const shell::cmd own[] = { { "who",
                                 [](shell* sh, int, char**) {
                                     seen = sh;
                                     return sh->execute("quit");
                                 },
                                 "" },
                               { "quit", quit, "" },
                               { nullptr, nullptr, nullptr } };
    shell sh;
    sh.set_cmds(own);
    EXPECT_EQ(err::exit, sh.execute("who")) << "a command may execute others";
    EXPECT_EQ(&sh, seen);
}

TEST(shell, without_commands_knows_none)
{
    shell sh;
    EXPECT_EQ(nullptr, sh.find("help"));
    const shell::cmd* found[4];
    EXPECT_EQ(0, sh.find_match("", found, 4));
    int r = 0;
    EXPECT_EQ("unknown command: x.\n", printed([&] { r = sh.execute("x"); }));
    EXPECT_EQ(err::unexpected, r);
}

TEST(shell, finds_commands_by_name_and_by_beginning)
{
    shell sh;
    sh.set_cmds(commands);
    EXPECT_EQ(commands + 2, sh.find("quit"));
    EXPECT_EQ(nullptr, sh.find("qui"));
    const shell::cmd* found[4];
    EXPECT_EQ(2, sh.find_match("hel", found, 4));
    EXPECT_EQ(commands, found[0]);
    EXPECT_EQ(commands + 1, found[1]);
    EXPECT_EQ(1, sh.find_match("hel", found, 1));
    EXPECT_EQ(4, sh.find_match("", found, 4));
    EXPECT_EQ(0, sh.find_match("hellooo", found, 4));
    EXPECT_FALSE(sh.auto_complete());
    EXPECT_FALSE(sh.half_done());
}

TEST(shell, prints_its_commands)
{
    shell sh;
    sh.set_cmds(commands);
    EXPECT_EQ(help_text, printed([&] { sh.print_help(); }));
}

TEST(shell, lets_a_program_answer_unknown_commands)
{
    struct own : shell {
        int doDefault(int argc, char** argv) override
        {
            called += joined(argc, argv);
            return 3;
        }
    } sh;
    called.clear();
    EXPECT_EQ(3, sh.execute("what is \"this one\""));
    EXPECT_EQ("<what><is><this one>", called);
}

TEST(shell, runs_files_until_a_command_fails)
{
    static const struct {
        const char* text;
        int result;
        const char* called;
    } cases[] = {
        { "hello 1\nhello 2\n", 7, "<hello><1> <hello><2> " },
        { "hello 1\r\nhello 2", 7, "<hello><1> <hello><2> " },
        { "hello\nfail\nhello\n", err::conflict, "<hello> fail " },
        { "hello\nquit\nhello\n", err::exit, "<hello> " },
        { "\n\n", 0, "" },
        // No line was read: that is no success.
        { "", err::file_system, "" },
    };
    for (const auto& c : cases) {
        shell sh;
        sh.set_cmds(commands);
        write_file("shell_batch", c.text);
        called.clear();
        EXPECT_EQ(c.result, sh.batch("shell_batch")) << c.text;
        EXPECT_EQ(c.called, called) << c.text;
    }
    shell sh;
    write_file("shell_batch", "hello \"\r\n");
    EXPECT_EQ("error: syntax error: hello \"\n", printed([&] { sh.batch("shell_batch"); })) << "without the line's end";
    EXPECT_EQ(err::file_system, sh.batch("shell_no_such_file"));
    std::remove("shell_batch");
}

TEST(shell, reads_lines_of_files_in_pieces_of_79_characters)
{
    shell sh;
    sh.set_cmds(commands);
    const std::string word(73, 'a');
    write_file("shell_batch", "hello " + word + "\n" + "hello " + word + "hello b\n");
    called.clear();
    EXPECT_EQ(7, sh.batch("shell_batch"));
    EXPECT_EQ("<hello><" + word + "> <hello><" + word + "> <hello><b> ", called);
    std::remove("shell_batch");
}

TEST(line_editor, takes_characters_and_backspace)
{
    editor e;
    EXPECT_EQ("heX\b \b", printed([&] { e.type("heX\b"); }));
    EXPECT_EQ("he", e.edited());
    // Backspace on an empty line does nothing.
    EXPECT_EQ("\b \b\b \b", printed([&] { e.type("\b\b\b"); }));
    EXPECT_EQ("", e.edited());
    // What is neither printable nor 128 or more is passed over.
    EXPECT_EQ("a\xC4\xE3~", printed([&] { e.type("\x01" "a\x1B\x7F\xC4\xE3~\n"); }));
    EXPECT_EQ("a\xC4\xE3~", e.edited());
    editor edge;
    EXPECT_EQ("\x80\xFF ", printed([&] { edge.type("\x1F\x80\xFF \x7F"); }));
}

TEST(line_editor, executes_at_return)
{
    editor e;
    called.clear();
    EXPECT_EQ("hello x\n> ", printed([&] { EXPECT_EQ(0, e.type("hello x\r")); }));
    EXPECT_EQ("<hello><x> ", called);
    EXPECT_EQ(0u, e.length);
    printed([&] { EXPECT_EQ(0, e.type("fail\r")); });
    EXPECT_EQ("quit\n", printed([&] { EXPECT_EQ(err::exit, e.type("quit\r")); }));
}

TEST(line_editor, completes_at_tab)
{
    editor one;
    EXPECT_EQ("quit ", printed([&] { one.type("q\t"); }));
    EXPECT_EQ("quit ", one.edited());
    editor several;
    EXPECT_EQ("h\nhelp hello \n> h", printed([&] { several.type("h\t"); }));
    EXPECT_EQ("h", several.edited());
    EXPECT_EQ("ellhe", printed([&] { several.type("ellhe"); }));
    EXPECT_EQ("", printed([&] { several.type("\t"); })) << "no command begins like that";
    editor all;
    EXPECT_EQ("\nhelp hello quit fail \n> ", printed([&] { all.type("\t"); }));
    editor full;
    EXPECT_EQ("hello ", printed([&] { full.type("hello\t"); }));
}

TEST(line_editor, lists_16_names_at_most)
{
    const shell::cmd many[] = {
        { "a00", record, "" }, { "a01", record, "" }, { "a02", record, "" }, { "a03", record, "" }, { "a04", record, "" },
        { "a05", record, "" }, { "a06", record, "" }, { "a07", record, "" }, { "a08", record, "" }, { "a09", record, "" },
        { "a10", record, "" }, { "a11", record, "" }, { "a12", record, "" }, { "a13", record, "" }, { "a14", record, "" },
        { "a15", record, "" }, { "a16", record, "" }, { nullptr, nullptr, nullptr }
    };
    editor e;
    e.set_cmds(many);
    EXPECT_EQ("a\na00 a01 a02 a03 a04 a05 a06 a07 a08 a09 a10 a11 a12 a13 a14 a15 \n> a", printed([&] { e.type("a\t"); }));
}

TEST(line_editor, completes_only_the_command)
{
    editor e;
    EXPECT_EQ("hello h", printed([&] { e.type("hello h\t"); })) << "no command begins like the whole line";
}

TEST(line_editor, clips_a_completed_name)
{
    const std::string name(600, 'n');
    const shell::cmd long_command[] = { { name.c_str(), record, "" }, { nullptr, nullptr, nullptr } };
    editor e;
    e.set_cmds(long_command);
    EXPECT_EQ(std::string(511, 'n'), printed([&] { e.type("n\t"); }));
    EXPECT_EQ(511u, e.length);
}

TEST(line_editor, takes_511_characters_and_no_more)
{
    editor e;
    const std::string text(511, 'x');
    printed([&] { e.type(text); });
    EXPECT_EQ(text, e.edited());
    EXPECT_EQ("", printed([&] { e.key('y'); }));
    EXPECT_EQ(text, e.edited());
}

TEST(shell_run, reads_lines_and_ends_at_exit)
{
    const typed_input input("hello 1\nquit\nhello 2\n");
    shell sh;
    sh.set_cmds(commands);
    called.clear();
    EXPECT_EQ("> > ", printed([&] { sh.run("> "); }));
    EXPECT_EQ("<hello><1> ", called);
}

TEST(shell_run, reads_lines_in_pieces_of_79_characters)
{
    const std::string word(73, 'a');
    const typed_input input("hello " + word + "hello b\nquit\n");
    shell sh;
    sh.set_cmds(commands);
    called.clear();
    EXPECT_EQ("> > > ", printed([&] { sh.run("> "); }));
    EXPECT_EQ("<hello><" + word + "> <hello><b> ", called);
}

TEST(shell_run, goes_on_behind_every_result_but_exit)
{
    for (const bool edits : { false, true }) {
        const typed_input input("fail\nhello\nwhat\nhello \"\nhello\nquit\nhello\n");
        const std::string error = "error: syntax error: hello \"\n> ";
        shell sh;
        sh.set_cmds(commands);
        sh.auto_complete(edits);
        called.clear();
        EXPECT_NE(std::string::npos, printed([&] { sh.run("> "); }).find(error)) << edits;
        EXPECT_EQ("fail <hello> <hello> ", called) << edits;
    }
}

TEST(shell_run, says_so_at_the_end_of_the_input)
{
    const std::string end = "error: \xB6\xC1\xC8\xA1\xB1\xEA\xD7\xBC\xCA\xE4\xC8\xEB\xCA\xA7\xB0\xDC\xA3\xAC\xB3\xCC\xD0\xF2"
                            "\xCD\xCB\xB3\xF6\n";
    for (const bool edits : { false, true }) {
        const typed_input input("");
        shell sh;
        sh.auto_complete(edits);
        EXPECT_EQ("> " + end, printed([&] { sh.run("> "); }));
    }
}

TEST(shell_run, edits_what_comes_through_a_pipe)
{
    const typed_input input("hellq\b\t1\r\nq\t\n");
    shell sh;
    sh.set_cmds(commands);
    sh.auto_complete(true);
    called.clear();
    EXPECT_EQ("> hellq\b \bo 1\n> quit \n", printed([&] { sh.run("> "); }));
    EXPECT_EQ("<hello><1> ", called);
}

TEST(shell_run, runs_autoexec_first_and_ignores_its_result)
{
    write_file("autoexec", "hello start\nfail\n");
    const typed_input input("quit\n");
    shell sh;
    sh.set_cmds(commands);
    called.clear();
    printed([&] { sh.run(""); });
    EXPECT_EQ("<hello><start> fail ", called);
    // Even "exit" there ends the file only.
    write_file("autoexec", "quit\nhello start\n");
    for (const bool edits : { false, true }) {
        const typed_input more("hello 1\nquit\n");
        sh.auto_complete(edits);
        called.clear();
        printed([&] { sh.run(""); });
        EXPECT_EQ("<hello><1> ", called) << edits;
    }
    std::remove("autoexec");
}
