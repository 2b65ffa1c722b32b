// Child processes, shared memory and modules. The program is its own child:
// started with the name of one of the roles below, it plays it.
#include "patience.h"
#include "read_all.h"

#include <stdkro/process.h>
#include <stdkro/thread.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <unistd.h> // dup and close, on both systems

namespace {

namespace fs = std::filesystem;

std::string self; // the path of this program

constexpr int code(unsigned c) { return static_cast<int>(c); }

// ---- what a child does -----------------------------------------------------

using words = std::vector<std::string>;

int show_words(const words& w)
{
    for (std::size_t i = 0; i < w.size(); ++i)
        std::printf("%s[%s]", i ? " " : "", w[i].c_str());
    return 0;
}

int exit_with(const words& w) { return std::atoi(w.at(2).c_str()); }

// Writes so many bytes, in large blocks: under Wine each write is a call of its server.
int write_bytes(const words& w)
{
    const long n = std::atol(w.at(2).c_str());
    std::string block;
    for (int i = 0; i < 23 * 2849; ++i)
        block += static_cast<char>('a' + i % 23);
    std::setvbuf(stdout, nullptr, _IOFBF, block.size());
    for (long done = 0; done < n; done += static_cast<long>(block.size()))
        std::fwrite(block.data(), 1, std::min(block.size(), static_cast<std::size_t>(n - done)), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
}

// Reads all, answers with the number of bytes.
int count_input(const words&)
{
    unsigned n = 0;
    while (std::getchar() != EOF)
        ++n;
    return static_cast<int>(n % 251);
}

int show_lines(const words&)
{
    std::printf("one\ntwo\n");
    return 0;
}

int show_folder(const words&)
{
    std::printf("%s", fs::current_path().generic_string().c_str());
    return 0;
}

// Lets a child of its own read the input that it got itself.
int count_by_another(const words& w)
{
    process p;
    std::FILE* out = p.start(w.at(2).c_str(), nullptr, "child count", "r", false);
    if (!out)
        return 252;
    std::fclose(out);
    return p.wait_done();
}

int show_on_error(const words&)
{
    std::fprintf(stderr, "on standard error\n");
    return 0;
}

// The number of descriptors behind the standard ones.
int count_descriptors(const words&)
{
    int n = 0;
    for (int fd = 3; fd < 200; ++fd) {
        const int copy = dup(fd);
        if (copy >= 0) {
            ++n;
            close(copy);
        }
    }
    return n;
}

// Gives a count of one semaphore back and takes one of the other.
int play(const words& w)
{
    sync_sem ours, theirs;
    if (!ours.create((w.at(2) + " ping").c_str(), 0, 1) || !theirs.create((w.at(2) + " pong").c_str(), 0, 1))
        return 2;
    for (int i = 0; i < 100; ++i) {
        if (!ours.lock() || !theirs.unlock())
            return 3;
    }
    return 0;
}

// Holds names until its input ends, or until it is killed.
int hold_names(const words& w)
{
    sync_sem sem;
    sharemem mem;
    const bool made = sem.create((w.at(2) + " sem").c_str(), 3, 5)
        && mem.create((w.at(2) + " mem").c_str(), 1000, sharemem::page_readwrite) == 0;
    char* text = static_cast<char*>(mem.attach(0, 1000, sharemem::map_write));
    if (!made || !text)
        return 2;
    std::strcpy(text, "written by the child");
    std::printf("ready\n");
    std::fflush(stdout);
    while (std::strcmp(text, "go") != 0)
        std::this_thread::yield();
    return 0;
}

// Writes into memory that exists.
int answer_in_memory(const words& w)
{
    sharemem mem;
    if (mem.open(w.at(2).c_str(), sharemem::map_all_access) != 0)
        return 2;
    char* text = static_cast<char*>(mem.attach(65536, 100, sharemem::map_write));
    if (!text || std::strcmp(text, "question") != 0)
        return 3;
    std::strcpy(text, "answer");
    return mem.detach(text) ? 0 : 4;
}

const std::map<std::string, int (*)(const words&)> roles = {
    { "words", show_words },     { "exit", exit_with },          { "write", write_bytes },
    { "count", count_input },    { "folder", show_folder },      { "error", show_on_error },
    { "files", count_descriptors }, { "play", play },            { "hold", hold_names },
    { "answer", answer_in_memory }, { "relay", count_by_another },
    { "lines", show_lines },
};

// ---- helpers of the tests --------------------------------------------------

// What a child prints.
std::string output_of(const std::string& command_line, const char* directory = nullptr)
{
    process p;
    std::FILE* out = p.start(self.c_str(), directory, command_line.c_str(), "r", false);
    if (!out)
        return "not started";
    const std::string text = read_all(out);
    std::fclose(out);
    const int exit_code = p.wait_done();
    return exit_code == 0 ? text : text + " and exit code " + std::to_string(exit_code);
}

// A child that waits for the end of its input.
struct waiting_child {
    process p;
    std::FILE* in;
    waiting_child() : in(p.start(self.c_str(), nullptr, "child count", "w", false)) {}
    int finish()
    {
        std::fclose(in);
        in = nullptr;
        return p.wait_done();
    }
    ~waiting_child()
    {
        if (in)
            std::fclose(in);
    }
};

// A folder of its own, gone at the end.
struct scratch {
    fs::path folder;
    scratch() : folder(fs::temp_directory_path() / ("stdkro-process-test-" + std::to_string(thread::get_self_id())))
    {
        fs::create_directories(folder);
    }
    ~scratch()
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
    std::string file(const char* name, const std::string& text = "") const
    {
        const fs::path path = folder / name;
        std::ofstream(path, std::ios::binary) << text;
        return path.string();
    }
};

// Wine lets memory that was made to be read be written through a new handle;
// Windows itself does not.
bool runs_under_wine()
{
    module system_library;
    return system_library.load("ntdll.dll") == 0 && system_library.get_func("wine_get_version");
}

// Whether the system still keeps the number of a child that has ended.
bool is_zombie(int id)
{
    std::ifstream stat("/proc/" + std::to_string(id) + "/stat");
    std::stringstream text;
    text << stat.rdbuf();
    return text.str().find(") Z ") != std::string::npos && text.str().find("process_test") != std::string::npos;
}

// ---- process: starting -----------------------------------------------------

TEST(child_process, begins_empty)
{
    EXPECT_TRUE(std::has_virtual_destructor<process>::value);
    EXPECT_TRUE(std::has_virtual_destructor<sharemem>::value);
    EXPECT_TRUE(std::has_virtual_destructor<module>::value);
    process p;
    int exit_code = 7;
    EXPECT_FALSE(p.is_valid());
    EXPECT_EQ(p.get_id(), 0);
    EXPECT_TRUE(p.is_done(&exit_code));
    EXPECT_EQ(exit_code, 7);
    EXPECT_TRUE(p.is_done());
    EXPECT_EQ(p.wait_done(), 0);
    EXPECT_EQ(p.terminate(), 1);
    EXPECT_EQ(p.suspend(), 0);
    EXPECT_EQ(p.resume(), 0);
}

TEST(child_process, gives_its_exit_code)
{
    for (int exit_code : { 0, 3, 255 }) {
        process p;
        ASSERT_EQ(p.start(self.c_str(), nullptr, ("child exit " + std::to_string(exit_code)).c_str()), 1);
        EXPECT_TRUE(p.is_valid());
        EXPECT_GT(p.get_id(), 0);
        EXPECT_EQ(p.wait_done(), exit_code);
        EXPECT_FALSE(p.is_valid());
        EXPECT_EQ(p.wait_done(), 0) << "no process any more";

        int polled = -7;
        ASSERT_EQ(p.start(self.c_str(), "", ("child exit " + std::to_string(exit_code)).c_str(), false), 1);
        EXPECT_TRUE(eventually([&] { return p.is_done(&polled); }));
        EXPECT_EQ(polled, exit_code);
        EXPECT_FALSE(p.is_valid());
    }
    process p;
    ASSERT_EQ(p.start(self.c_str(), nullptr, "child exit 1"), 1);
    EXPECT_TRUE(eventually([&] { return p.is_done(nullptr); }));
}

TEST(child_process, starts_once_at_a_time)
{
    waiting_child child;
    ASSERT_NE(child.in, nullptr);
    const int id = child.p.get_id();
    EXPECT_EQ(child.p.start(self.c_str(), nullptr, "child exit 0"), 0);
    EXPECT_EQ(child.p.start(self.c_str(), nullptr, "child exit 0", "r", false), nullptr);
    EXPECT_EQ(child.p.get_id(), id);
    EXPECT_FALSE(child.p.is_done());
    EXPECT_EQ(child.finish(), 0);
}

TEST(child_process, words_of_the_command_line)
{
    static const struct { const char* line; const char* shown; } cases[] = {
        { "child words", "[child] [words]" },
        { "child  words \t a\tb  ", "[child] [words] [a] [b]" },
        // Double quotes keep blanks, and may stand anywhere.
        { "child words \"a b\" c\" \"d \"\" x\"\"y \"open end", "[child] [words] [a b] [c d] [] [xy] [open end]" },
        { "chi\"ld na\"me words", "[child name] [words]" },
        // Backslashes are literal, except before a quote.
        { "child words \\ a\\b \\\\c\\\\", "[child] [words] [\\] [a\\b] [\\\\c\\\\]" },
        { "child words \\\"a b\\\" \"c\\\\\" d", "[child] [words] [\"a] [b\"] [c\\] [d]" },
        { "child words \"a\\\\\\\" b\" c\\\\\\\\\"d e\"", "[child] [words] [a\\\" b] [c\\\\d e]" },
        // In the first word they are literal even there.
        { "c:\\child\\ words", "[c:\\child\\] [words]" },
        // Nothing else is special: there is no shell.
        { "child words $HOME 'a b' %PATH% | > < & ; ~ # a\nb", "[child] [words] [$HOME] ['a] [b'] [%PATH%] [|] [>] "
                                                              "[<] [&] [;] [~] [#] [a\nb]" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(output_of(c.line), c.shown) << c.line;
}

TEST(child_process, a_missing_command_line_is_the_application)
{
    // Without a role a child shows its words. This program's path has no blanks.
    for (const char* line : { static_cast<const char*>(nullptr), "" }) {
        process p;
        std::FILE* out = p.start(self.c_str(), nullptr, line, "r", false);
        ASSERT_NE(out, nullptr);
        EXPECT_EQ(read_all(out), "[" + self + "]");
        std::fclose(out);
        EXPECT_EQ(p.wait_done(), 0);
    }
}

TEST(child_process, runs_in_the_folder_given)
{
    const scratch s;
    const std::string here = fs::current_path().generic_string();
    const std::string there = fs::canonical(s.folder).generic_string();
    EXPECT_EQ(output_of("child folder"), here);
    EXPECT_EQ(output_of("child folder", ""), here);
    EXPECT_EQ(output_of("child folder", s.folder.string().c_str()), there);
    // The application is found from our folder all the same.
    const fs::path before = fs::current_path();
    const std::string absolute = self;
    fs::current_path(fs::path(self).parent_path());
    self = "./" + fs::path(absolute).filename().string();
    EXPECT_EQ(output_of("child folder", s.folder.string().c_str()), there);
    for (const bool suspended : { false, true }) {
        process p;
        EXPECT_EQ(p.start(self.c_str(), s.folder.string().c_str(), "child exit 5", suspended), 1);
        p.resume();
        EXPECT_EQ(p.wait_done(), 5);
    }
    self = absolute;
    fs::current_path(before);
}

TEST(child_process, what_cannot_be_started)
{
    const scratch s;
    const std::string text_file = s.file("text.txt", "not a program\n");
    const std::string empty_file = s.file("empty");
    const std::string marked_text = s.file("marked", "not a program\n");
    fs::permissions(marked_text, fs::perms::owner_all);
    const std::string folder = s.folder.string();
    const std::string missing = folder + "/missing";
    const struct { const char* application; const char* directory; const char* why; } cases[] = {
        { nullptr, nullptr, "null application" },
        { "", nullptr, "empty application" },
        { missing.c_str(), nullptr, "missing file" },
        { folder.c_str(), nullptr, "a folder" },
        { text_file.c_str(), nullptr, "a text file" },
        { marked_text.c_str(), nullptr, "a text file that may be executed" },
        { empty_file.c_str(), nullptr, "an empty file" },
        { "cmd.exe", nullptr, "in PATH only" },
        { "sh", nullptr, "in PATH only" },
        { self.c_str(), missing.c_str(), "missing working folder" },
        { self.c_str(), text_file.c_str(), "a file as working folder" },
    };
    const fs::path before = fs::current_path();
    fs::current_path(s.folder);
    for (const auto& c : cases) {
        for (const bool suspended : { false, true }) {
            SCOPED_TRACE(testing::Message() << c.why << (suspended ? ", suspended" : ""));
            process p;
            EXPECT_EQ(p.start(c.application, c.directory, "child exit 0", suspended), 0);
            EXPECT_FALSE(p.is_valid());
            EXPECT_NE(last_system_error(), 0);
            for (const char* mode : { "r", "w" })
                EXPECT_EQ(p.start(c.application, c.directory, "child exit 0", mode, suspended), nullptr);
            EXPECT_FALSE(p.is_valid());
        }
    }
    fs::current_path(before);
    for (const char* mode : { static_cast<const char*>(nullptr), "" }) {
        process p;
        EXPECT_EQ(p.start(self.c_str(), nullptr, "child exit 0", mode, false), nullptr);
        EXPECT_FALSE(p.is_valid());
    }
}

// ---- process: the end ------------------------------------------------------

TEST(child_process, terminate_kills)
{
    waiting_child child;
    int exit_code = 7;
    EXPECT_FALSE(child.p.is_done(&exit_code));
    EXPECT_EQ(child.p.terminate(), 1);
    EXPECT_FALSE(child.p.is_valid());
    EXPECT_TRUE(child.p.is_done(&exit_code));
    EXPECT_EQ(exit_code, 7) << "no exit code is stored";
    EXPECT_EQ(child.p.terminate(), 1) << "no process";
}

TEST(child_process, terminate_keeps_what_has_finished)
{
    // A child that has finished cannot be killed; one that has not is, so the
    // start is repeated until it was in time.
    EXPECT_TRUE(eventually([] {
        process p;
        std::FILE* out = p.start(self.c_str(), nullptr, "child exit 9", "r", false);
        if (!out)
            return false;
        read_all(out);
        std::fclose(out);
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield();
        if (p.terminate() == 1)
            return false;
        EXPECT_TRUE(p.is_valid());
        EXPECT_EQ(p.terminate(), 0);
        EXPECT_EQ(p.wait_done(), 9) << "its code can still be read";
        return true;
    }));
}

TEST(child_process, an_exit_code_of_259_reads_as_still_active)
{
    // Where exit codes are that large at all.
    process p;
    ASSERT_EQ(p.start(self.c_str(), nullptr, "child exit 259"), 1);
    const int exit_code = p.wait_done();
    ASSERT_TRUE(exit_code == 259 || exit_code == 259 % 256) << exit_code;
    std::FILE* out = p.start(self.c_str(), nullptr, "child exit 259", "r", false);
    ASSERT_NE(out, nullptr);
    read_all(out);
    std::fclose(out);
    if (exit_code == 259) {
        for (int i = 0; i < 100; ++i) {
            EXPECT_FALSE(p.is_done());
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    EXPECT_EQ(p.wait_done(), exit_code) << "it tells";
}

TEST(child_process, is_done_is_false_while_it_is_suspended)
{
    process p;
    ASSERT_EQ(p.start(self.c_str(), nullptr, "child exit 4", true), 1);
    int exit_code = 7;
    EXPECT_FALSE(p.is_done(&exit_code));
    EXPECT_EQ(p.suspend(), 0);
    EXPECT_EQ(p.resume(), 0);
    EXPECT_FALSE(p.is_done(&exit_code)) << "still suspended once";
    EXPECT_EQ(exit_code, 7);
    EXPECT_EQ(p.resume(), 0);
    EXPECT_EQ(p.wait_done(), 4);
}

TEST(child_process, a_suspended_start_can_be_terminated)
{
    process p;
    ASSERT_EQ(p.start(self.c_str(), nullptr, "child exit 4", true), 1);
    EXPECT_FALSE(p.is_done());
    EXPECT_EQ(p.terminate(), 1);
    int exit_code = 7;
    EXPECT_TRUE(p.is_done(&exit_code));
    EXPECT_EQ(exit_code, 7);
}

TEST(child_process, stands_still_while_it_is_suspended)
{
    process p;
    std::FILE* out = p.start(self.c_str(), nullptr, "child words", "r", true);
    ASSERT_NE(out, nullptr);
    for (int i = 0; i < 3; ++i)
        p.suspend();
    for (int i = 0; i < 3; ++i)
        p.resume();
    EXPECT_FALSE(p.is_done());
    p.resume();
    p.resume(); // at 0 nothing changes
    EXPECT_EQ(read_all(out), "[child] [words]");
    std::fclose(out);
    EXPECT_EQ(p.wait_done(), 0);
}

TEST(child_process, can_be_suspended_later)
{
    waiting_child child;
    child.p.suspend();
    std::fclose(child.in);
    child.in = nullptr;
    EXPECT_FALSE(child.p.is_done()) << "it cannot see that its input has ended";
    child.p.resume();
    EXPECT_EQ(child.p.wait_done(), 0);
}

// ---- process: pipes --------------------------------------------------------

TEST(child_pipe, reads_what_the_child_writes)
{
    static const struct { const char* mode; long n; } cases[]
        = { { "r", 0 }, { "rb", 1 }, { "rt", 4095 }, { "r+", 4096 }, { "rb", 70000 } };
    for (const auto& c : cases) {
        process p;
        std::FILE* out
            = p.start(self.c_str(), nullptr, ("child write " + std::to_string(c.n)).c_str(), c.mode, false);
        ASSERT_NE(out, nullptr);
        const std::string text = read_all(out);
        EXPECT_EQ(text.size(), static_cast<std::size_t>(c.n)) << c.mode;
        for (std::size_t i = 0; i < text.size(); ++i)
            ASSERT_EQ(text[i], static_cast<char>('a' + i % 23));
        EXPECT_EQ(std::fclose(out), 0);
        EXPECT_EQ(p.wait_done(), 0);
    }
}

TEST(child_pipe, writes_what_the_child_reads)
{
    static const struct { const char* mode; unsigned n; } cases[] = {
        { "w", 0 }, { "wb", 1 }, { "wb", 100000 },
        // Any other mode is writing.
        { "a", 250 }, { "x", 7 }, { "+r", 8 },
    };
    for (const auto& c : cases) {
        process p;
        std::FILE* in = p.start(self.c_str(), nullptr, "child count", c.mode, false);
        ASSERT_NE(in, nullptr) << c.mode;
        const std::string text(c.n, 'x');
        EXPECT_EQ(std::fwrite(text.data(), 1, c.n, in), c.n);
        EXPECT_EQ(std::fclose(in), 0);
        EXPECT_EQ(p.wait_done(), static_cast<int>(c.n % 251)) << c.mode;
    }
}

TEST(child_pipe, writing_to_a_child_that_has_gone_fails)
{
    process p;
    std::FILE* in = p.start(self.c_str(), nullptr, "child exit 0", "w", false);
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(p.wait_done(), 0);
    const std::string text(100000, 'x');
    EXPECT_FALSE(std::fwrite(text.data(), 1, text.size(), in) == text.size() && std::fflush(in) == 0);
    std::fclose(in);

    in = p.start(self.c_str(), nullptr, "child exit 0", "w", false);
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(p.wait_done(), 0);
    std::fputs("a little, not written before it is closed", in);
    std::fclose(in);
}

TEST(child_pipe, passes_large_outputs)
{
    constexpr long n = 20L << 20;
    process p;
    std::FILE* out = p.start(self.c_str(), nullptr, ("child write " + std::to_string(n)).c_str(), "rb", false);
    ASSERT_NE(out, nullptr);
    std::vector<char> block(1 << 16);
    long got = 0;
    for (std::size_t r; (r = std::fread(block.data(), 1, block.size(), out)) > 0;)
        got += static_cast<long>(r);
    EXPECT_EQ(got, n);
    std::fclose(out);
    EXPECT_EQ(p.wait_done(), 0);
}

TEST(child_pipe, a_full_pipe_stops_the_child_until_it_is_read)
{
    process p;
    std::FILE* out = p.start(self.c_str(), nullptr, "child write 3000000", "r", false);
    ASSERT_NE(out, nullptr);
    for (int i = 0; i < 200; ++i) {
        ASSERT_FALSE(p.is_done()) << "three million bytes do not fit";
        std::this_thread::yield();
    }
    EXPECT_EQ(read_all(out).size(), 3000000u);
    std::fclose(out);
    EXPECT_EQ(p.wait_done(), 0);
}

TEST(child_pipe, closed_and_open_streams_do_not_mix)
{
    // Whatever a closed stream leaves behind, an open one goes on.
    process slow;
    std::FILE* open_one = slow.start(self.c_str(), nullptr, "child write 200000", "r", false);
    ASSERT_NE(open_one, nullptr);
    std::string text(1, static_cast<char>(std::fgetc(open_one)));
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(output_of("child words"), "[child] [words]");
    text += read_all(open_one);
    std::fclose(open_one);
    EXPECT_EQ(slow.wait_done(), 0);
    ASSERT_EQ(text.size(), 200000u);
    for (std::size_t i = 0; i < text.size(); ++i)
        ASSERT_EQ(text[i], static_cast<char>('a' + i % 23)) << i;
}

TEST(child_pipe, serves_many_children_at_once)
{
    constexpr int n = 12;
    process all[n];
    std::FILE* out[n];
    for (int i = 0; i < n; ++i) {
        const std::string line = "child write " + std::to_string(i * 1000);
        out[i] = all[i].start(self.c_str(), nullptr, line.c_str(), "r", false);
        ASSERT_NE(out[i], nullptr) << i;
    }
    for (int i = n - 1; i >= 0; --i) {
        EXPECT_EQ(read_all(out[i]).size(), static_cast<std::size_t>(i) * 1000);
        std::fclose(out[i]);
    }
    for (process& p : all)
        EXPECT_EQ(p.wait_done(), 0);
}

TEST(child_pipe, of_an_earlier_child_never_reaches_a_later_one)
{
    waiting_child first;
    waiting_child second;
    // A copy of the first pipe in the second child would keep it open.
    EXPECT_EQ(first.finish(), 0);
    EXPECT_FALSE(second.p.is_done());
    EXPECT_EQ(second.finish(), 0);
}

TEST(child_pipe, works_for_a_suspended_start)
{
    process p;
    std::FILE* in = p.start(self.c_str(), nullptr, "child count", "w", true);
    ASSERT_NE(in, nullptr);
    std::fputs("12345", in);
    std::fclose(in);
    EXPECT_FALSE(p.is_done());
    p.resume();
    EXPECT_EQ(p.wait_done(), 5);
}

TEST(child_pipe, other_standard_streams_are_ours)
{
    testing::internal::CaptureStderr();
    process p;
    ASSERT_EQ(p.start(self.c_str(), nullptr, "child error"), 1);
    EXPECT_EQ(p.wait_done(), 0);
    std::FILE* out = p.start(self.c_str(), nullptr, "child error", "r", false);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(read_all(out), "");
    std::fclose(out);
    EXPECT_EQ(p.wait_done(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "on standard error\non standard error\n");

    testing::internal::CaptureStdout();
    ASSERT_EQ(p.start(self.c_str(), nullptr, "child words"), 1);
    EXPECT_EQ(p.wait_done(), 0);
    std::FILE* in = p.start(self.c_str(), nullptr, "child words", "w", false);
    ASSERT_NE(in, nullptr);
    std::fclose(in);
    EXPECT_EQ(p.wait_done(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[child] [words][child] [words]");

    // The relay's input is the pipe, and so is its child's.
    in = p.start(self.c_str(), nullptr, ("child relay \"" + self + '"').c_str(), "w", false);
    ASSERT_NE(in, nullptr);
    std::fputs("1234567", in);
    std::fclose(in);
    EXPECT_EQ(p.wait_done(), 7);
}

// What the C library makes of a text that is written in one mode and read in the other.
std::string through_a_file(const std::string& text, const char* write_mode, const char* read_mode)
{
    const scratch s;
    const std::string path = (s.folder / "text").string();
    std::FILE* f = std::fopen(path.c_str(), write_mode);
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
    f = std::fopen(path.c_str(), read_mode);
    const std::string read = read_all(f);
    std::fclose(f);
    return read;
}

TEST(child_pipe, text_and_binary_are_those_of_files)
{
    // A child's own streams are texts.
    for (const char* mode : { "r", "rt", "r+", "rb" }) {
        process p;
        std::FILE* out = p.start(self.c_str(), nullptr, "child lines", mode, false);
        ASSERT_NE(out, nullptr);
        EXPECT_EQ(read_all(out), through_a_file("one\ntwo\n", "w", mode[1] == 'b' ? "rb" : "r")) << mode;
        std::fclose(out);
        EXPECT_EQ(p.wait_done(), 0);
    }
    for (const char* mode : { "w", "wt", "a", "wb" }) {
        process p;
        std::FILE* in = p.start(self.c_str(), nullptr, "child count", mode, false);
        ASSERT_NE(in, nullptr);
        std::fputs("one\r\n", in);
        std::fclose(in);
        const std::string read = through_a_file("one\r\n", mode[1] == 'b' ? "wb" : "w", "r");
        EXPECT_EQ(p.wait_done(), static_cast<int>(read.size())) << mode;
    }
}

TEST(child_pipe, serves_several_threads)
{
    // A pipe that reached a child of another thread would keep that thread waiting.
    const auto serve = [](::thread*, void* failures, void*) {
        for (int i = 0; i < 3; ++i) {
            process writer, reader;
            std::FILE* out = writer.start(self.c_str(), nullptr, "child write 100000", "r", false);
            std::FILE* in = reader.start(self.c_str(), nullptr, "child count", "w", false);
            const std::string text = out && in ? read_all(out) : "";
            if (in)
                std::fwrite(text.data(), 1, 200, in);
            for (std::FILE* f : { out, in }) {
                if (f)
                    std::fclose(f);
            }
            if (text.size() != 100000 || writer.wait_done() != 0 || reader.wait_done() != 200)
                ++*static_cast<std::atomic<int>*>(failures);
        }
    };
    std::atomic<int> failures { 0 };
    ::thread all[3];
    for (::thread& t : all)
        ASSERT_EQ(t.start(&failures, serve, nullptr), 0);
    for (::thread& t : all)
        t.wait_done();
    EXPECT_EQ(failures, 0);
}

TEST(child_pipe, waits_for_a_slow_reader)
{
    process p;
    std::FILE* out = p.start(self.c_str(), nullptr, "child write 2500000", "rb", false);
    ASSERT_NE(out, nullptr);
    std::vector<char> block(400000);
    std::size_t got = 0;
    for (std::size_t n; (n = std::fread(block.data(), 1, block.size(), out)) > 0; got += n) {
        for (std::size_t i = 0; i < n; ++i)
            ASSERT_EQ(block[i], static_cast<char>('a' + (got + i) % 23));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(got, 2500000u);
    std::fclose(out);
    EXPECT_EQ(p.wait_done(), 0);
}

TEST(child_pipe, leaves_no_descriptor_here)
{
    const int before = count_descriptors({});
    const scratch s;
    const std::string missing = s.folder.string() + "/missing";
    for (const char* mode : { "r", "wb" }) {
        for (const bool suspended : { false, true }) {
            process p;
            EXPECT_EQ(p.start(missing.c_str(), nullptr, "child exit 0", mode, suspended), nullptr);
            std::FILE* pipe = p.start(self.c_str(), nullptr, "child exit 0", mode, suspended);
            ASSERT_NE(pipe, nullptr);
            EXPECT_EQ(p.terminate() == 1 ? 0 : p.wait_done(), 0);
            std::fclose(pipe);
        }
    }
    EXPECT_EQ(count_descriptors({}), before);
}

TEST(child_process, gets_the_standard_descriptors_only)
{
    const scratch s;
    std::FILE* file = std::fopen(s.file("open").c_str(), "r");
    ASSERT_NE(file, nullptr);
    waiting_child other;
    for (const bool suspended : { false, true }) {
        process p;
        ASSERT_EQ(p.start(self.c_str(), nullptr, "child files", suspended), 1);
        p.resume();
        EXPECT_EQ(p.wait_done(), 0);
        std::FILE* out = p.start(self.c_str(), nullptr, "child files", "r", suspended);
        ASSERT_NE(out, nullptr);
        p.resume();
        read_all(out);
        std::fclose(out);
        EXPECT_EQ(p.wait_done(), 0);
    }
    std::fclose(file);
    other.finish();
}

TEST(child_process, none_is_left_behind)
{
    std::vector<int> ids;
    {
        process p;
        ASSERT_EQ(p.start(self.c_str(), nullptr, "child exit 0"), 1);
        ids.push_back(p.get_id());
        p.wait_done();
        ASSERT_EQ(p.start(self.c_str(), nullptr, "child exit 0"), 1);
        ids.push_back(p.get_id());
        EXPECT_TRUE(eventually([&] { return p.is_done(); }));
        waiting_child killed;
        ids.push_back(killed.p.get_id());
        killed.p.terminate();
    }
    for (int id : ids)
        EXPECT_FALSE(is_zombie(id)) << id;

    // One whose object died is reaped by a later operation.
    ids.clear();
    for (int i = 0; i < 5; ++i) {
        process p;
        std::FILE* out = p.start(self.c_str(), nullptr, "child exit 0", "r", false);
        ASSERT_NE(out, nullptr);
        ids.push_back(p.get_id());
        read_all(out);
        std::fclose(out);
    }
    EXPECT_TRUE(eventually([&] {
        process p;
        p.start(self.c_str(), nullptr, "child exit 0");
        p.wait_done();
        for (int id : ids) {
            if (is_zombie(id))
                return false;
        }
        return true;
    }));
}

TEST(child_process, the_destructor_lets_it_run_on)
{
    const std::string name = "stdkro test run on";
    sync_sem ping, pong;
    ASSERT_TRUE(ping.create((name + " ping").c_str(), 0, 1));
    ASSERT_TRUE(pong.create((name + " pong").c_str(), 0, 1));
    {
        process p;
        ASSERT_EQ(p.start(self.c_str(), nullptr, ("child play \"" + name + "\"").c_str()), 1);
    }
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(ping.unlock());
        ASSERT_TRUE(pong.lock());
    }
}

TEST(child_process, failures_without_descriptors_leave_nothing_open)
{
    const auto take_all = [] {
        std::vector<int> taken;
        for (int fd; (fd = dup(0)) >= 0;)
            taken.push_back(fd);
        return taken;
    };
    const auto give_back = [](const std::vector<int>& taken) {
        for (int fd : taken)
            close(fd);
    };
    const std::vector<int> all = take_all();
    process p;
    for (const bool suspended : { false, true })
        EXPECT_EQ(p.start(self.c_str(), nullptr, "child exit 0", "r", suspended), nullptr);
    EXPECT_FALSE(p.is_valid());
    give_back(all);
    const std::vector<int> again = take_all();
    EXPECT_EQ(again.size(), all.size());
    give_back(again);
    EXPECT_EQ(output_of("child words"), "[child] [words]");
}

// ---- sharemem --------------------------------------------------------------

TEST(shared_memory, create_reports_its_failures)
{
    sharemem m;
    static const struct { unsigned size, protection; int r; } cases[] = {
        { 0, 4, code(0x80020002) },    { 100, 0, code(0x80020002) }, { 100, 1, code(0x80020002) },
        { 100, 3, code(0x80020002) },  { 100, 8, code(0x80020002) }, { 100, 0x40, code(0x80020002) },
        { 100, ~0u, code(0x80020002) },
    };
    for (const auto& c : cases)
        EXPECT_EQ(m.create("stdkro test create", c.size, c.protection), c.r) << c.size << " " << c.protection;
    EXPECT_EQ(m.open("stdkro test create", sharemem::map_read), code(0x80020002)) << "missing";
    EXPECT_EQ(m.open(nullptr, sharemem::map_read), code(0x80020002));
    EXPECT_EQ(m.open("", sharemem::map_read), code(0x80020002));
    EXPECT_EQ(m.create("no\\folder", 100, sharemem::page_readwrite), code(0x80020002));
    EXPECT_EQ(m.open("no\\folder", sharemem::map_read), code(0x80020002));

    ASSERT_EQ(m.create("stdkro test create", 100, sharemem::page_readwrite), 0);
    char* text = static_cast<char*>(m.attach(0, 100, sharemem::map_write));
    ASSERT_NE(text, nullptr);
    std::strcpy(text, "kept");
    EXPECT_EQ(m.create("stdkro test other", 100, sharemem::page_readwrite), code(0x80020001));
    EXPECT_EQ(m.create(nullptr, 0, 0), code(0x80020001)) << "holding comes first";
    EXPECT_EQ(m.open("stdkro test create", sharemem::map_read), code(0x80020001));
    char* again = static_cast<char*>(m.attach(0, 100, sharemem::map_read));
    ASSERT_NE(again, nullptr);
    EXPECT_STREQ(again, "kept");
    EXPECT_TRUE(m.detach(text));
    EXPECT_TRUE(m.detach(again));
    for (unsigned access : { 0u, 1u, 8u, 0x20u, ~0u }) {
        sharemem other;
        EXPECT_EQ(other.open("stdkro test create", access), code(0x80020002)) << access;
        EXPECT_EQ(m.attach(0, 100, access), nullptr) << access;
    }
}

TEST(shared_memory, is_zero_at_first_and_lives_with_its_handles)
{
    sharemem first, second;
    ASSERT_EQ(first.create("stdkro test life", 200000, sharemem::page_readwrite), 0);
    char* view = static_cast<char*>(first.attach(0, 200000, sharemem::map_write));
    ASSERT_NE(view, nullptr);
    for (unsigned i = 0; i < 200000; ++i)
        ASSERT_EQ(view[i], 0) << i;
    std::memset(view, 'x', 200000);
    ASSERT_EQ(second.create("stdkro test life", 50, sharemem::page_readwrite), 0) << "joins";
    first.close();
    EXPECT_EQ(view[199999], 'x') << "a view outlives the handle";
    char* other = static_cast<char*>(second.attach(131072, 100, sharemem::map_read));
    ASSERT_NE(other, nullptr) << "the first size stands";
    EXPECT_EQ(*other, 'x');
    second.close();
    EXPECT_EQ(*other, 'x');
    EXPECT_EQ(second.open("stdkro test life", sharemem::map_read), code(0x80020002)) << "views do not hold the name";
    ASSERT_EQ(first.create("stdkro test life", 70000, sharemem::page_readwrite), 0);
    char* fresh = static_cast<char*>(first.attach(0, 70000, sharemem::map_read));
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh[0], 0) << "new memory";
    EXPECT_EQ(view[0], 'x');
    for (char* v : { view, other, fresh })
        EXPECT_TRUE(first.detach(v));
}

TEST(shared_memory, views_stay_inside)
{
    sharemem m, unheld;
    ASSERT_EQ(m.create(nullptr, 70000, sharemem::page_readwrite), 0);
    static const struct { unsigned offset, size; bool mapped; } cases[] = {
        { 0, 1, true },          { 0, 70000, true },     { 0, 73728, true }, // to the end of the last page
        { 0, 73729, false },     { 0, ~0u, false },      { 65536, 1, true },
        { 65536, 8192, true },   { 65536, 8193, false }, { 131072, 1, false },
        { 0xFFFF0000u, 1, false }, { 0xFFFF0000u, 65536, false },
        { 0, 0, true },          { 65536, 0, true },     { 131072, 0, false },
        // Offsets are multiples of 65,536.
        { 1, 1, false },         { 4096, 1, false },     { 32768, 1, false },
    };
    for (const auto& c : cases) {
        void* view = m.attach(c.offset, c.size, sharemem::map_write);
        EXPECT_EQ(view != nullptr, c.mapped) << c.offset << " " << c.size;
        if (view) {
            static_cast<char*>(view)[c.size ? c.size - 1 : 69999 - c.offset] = 'x';
            EXPECT_TRUE(m.detach(view));
            EXPECT_FALSE(m.detach(view)) << "no view any more";
        }
    }
    EXPECT_EQ(unheld.attach(0, 1, sharemem::map_read), nullptr);
    int local;
    EXPECT_FALSE(m.detach(&local));
    EXPECT_FALSE(m.detach(nullptr));
}

TEST(shared_memory, access_is_what_was_granted)
{
    sharemem writable;
    ASSERT_EQ(writable.create("stdkro test access", 100, sharemem::page_readwrite), 0);
    sharemem readonly;
    ASSERT_EQ(readonly.create("stdkro test readonly", 100, sharemem::page_readonly), 0);
    const struct { const char* name; unsigned opened, asked; bool mapped; } cases[] = {
        { "stdkro test access", 4, 4, true },
        { "stdkro test access", 4, 2, false },
        { "stdkro test access", 4, 6, false },
        { "stdkro test access", 4, 0xF001F, false },
        { "stdkro test access", 2, 2, true },
        { "stdkro test access", 2, 4, false },
        { "stdkro test access", 6, 4, true },
        { "stdkro test access", 6, 6, true },
        { "stdkro test access", 0xF001F, 2, true },
        { "stdkro test access", 0xF001F, 4, true },
        { "stdkro test access", 0xF001F, 0xF001F, true },
        { "stdkro test readonly", 4, 4, true },
        { "stdkro test readonly", 4, 2, false },
        { "stdkro test readonly", 0xF001F, 4, true },
        { "stdkro test readonly", 0xF001F, 2, false },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.name << " " << c.opened << " " << c.asked);
        if (std::strcmp(c.name, "stdkro test readonly") == 0 && c.asked == 2 && c.opened != 4 && runs_under_wine())
            continue;
        sharemem m;
        ASSERT_EQ(m.open(c.name, c.opened), 0);
        void* view = m.attach(0, 100, c.asked);
        EXPECT_EQ(view != nullptr, c.mapped);
        EXPECT_EQ(m.detach(view), c.mapped);
    }
    EXPECT_EQ(readonly.attach(0, 100, sharemem::map_write), nullptr);
    sharemem joined;
    ASSERT_EQ(joined.create("stdkro test access", 100, sharemem::page_readonly), 0);
    EXPECT_EQ(joined.attach(0, 100, sharemem::map_write), nullptr) << "this handle asked for less";
    EXPECT_TRUE(joined.detach(joined.attach(0, 100, sharemem::map_read)));
}

TEST(shared_memory, names_are_shared_with_semaphores)
{
    sync_sem sem;
    sharemem mem;
    ASSERT_TRUE(sem.create("stdkro test kind", 1, 1));
    EXPECT_EQ(mem.create("stdkro test kind", 100, sharemem::page_readwrite), code(0x80020002));
    EXPECT_EQ(mem.open("stdkro test kind", sharemem::map_read), code(0x80020002));
    sync_sem again;
    EXPECT_TRUE(again.create("stdkro test kind", 1, 1)) << "which took no harm";
    sem.close();
    again.close();
    ASSERT_EQ(mem.create("stdkro test kind", 100, sharemem::page_readwrite), 0);
    EXPECT_FALSE(sem.create("stdkro test kind", 1, 1));
}

TEST(shared_memory, without_a_name_is_nobody_elses)
{
    sharemem a, b;
    ASSERT_EQ(a.create(nullptr, 10, sharemem::page_readwrite), 0);
    ASSERT_EQ(b.create("", 10, sharemem::page_readwrite), 0);
    char* in_a = static_cast<char*>(a.attach(0, 10, sharemem::map_write));
    char* in_b = static_cast<char*>(b.attach(0, 10, sharemem::map_write));
    ASSERT_TRUE(in_a && in_b);
    *in_a = 'a';
    EXPECT_EQ(*in_b, 0);
    EXPECT_TRUE(a.detach(in_a) && a.detach(in_b)) << "any object detaches any view";
}

TEST(shared_memory, may_have_a_file_behind_it)
{
    const scratch s;
    const std::string path = s.file("behind", "file text");
    for (const char* name : { static_cast<const char*>(nullptr), "stdkro test file" }) {
        std::FILE* f = std::fopen(path.c_str(), "r+b");
        ASSERT_NE(f, nullptr);
        {
            sharemem m(sharemem::file_of(f)), other;
            ASSERT_EQ(m.create(name, 5000, sharemem::page_readwrite), 0);
            char* view = static_cast<char*>(m.attach(0, 5000, sharemem::map_write));
            ASSERT_NE(view, nullptr);
            EXPECT_EQ(std::string(view), "file text");
            view[4999] = '!';
            std::memcpy(view, "FILE", 4);
            if (name) {
                ASSERT_EQ(other.open(name, sharemem::map_read), 0);
                char* same = static_cast<char*>(other.attach(0, 0, sharemem::map_read));
                ASSERT_NE(same, nullptr);
                EXPECT_EQ(std::string(same), "FILE text");
                EXPECT_TRUE(other.detach(same));
            }
            EXPECT_TRUE(m.detach(view));
        }
        std::fclose(f);
        EXPECT_EQ(fs::file_size(path), 5000u) << "it grew";
        s.file("behind", "file text");
    }
    std::FILE* f = std::fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    sharemem m(sharemem::file_of(f));
    EXPECT_EQ(m.create(nullptr, 9, sharemem::page_readwrite), code(0x80020002)) << "opened to read";
    EXPECT_EQ(m.create(nullptr, 10, sharemem::page_readonly), code(0x80020002)) << "cannot grow";
    EXPECT_EQ(m.create(nullptr, 0, sharemem::page_readonly), code(0x80020002));
    EXPECT_EQ(m.create(nullptr, 9, sharemem::page_readonly), 0);
    void* view = m.attach(0, 9, sharemem::map_read);
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(std::memcmp(view, "file text", 9), 0);
    EXPECT_TRUE(m.detach(view));
    m.close();
    std::fclose(f);
}

TEST(shared_memory, is_seen_by_another_process)
{
    sharemem m;
    ASSERT_EQ(m.create("stdkro test seen", 100000, sharemem::page_readwrite), 0);
    char* text = static_cast<char*>(m.attach(65536, 100, sharemem::map_write));
    ASSERT_NE(text, nullptr);
    std::strcpy(text, "question");
    EXPECT_EQ(output_of("child answer \"stdkro test seen\""), "");
    EXPECT_STREQ(text, "answer");
    m.detach(text);
}

TEST(shared_names, live_and_die_with_another_process)
{
    for (const bool killed : { false, true }) {
        SCOPED_TRACE(killed ? "killed" : "ended");
        process p;
        std::FILE* out = p.start(self.c_str(), nullptr, "child hold \"stdkro test held\"", "r", false);
        ASSERT_NE(out, nullptr);
        char line[16] = "";
        ASSERT_NE(std::fgets(line, sizeof line, out), nullptr);
        sharemem mem;
        sync_sem sem;
        ASSERT_EQ(mem.open("stdkro test held mem", sharemem::map_all_access), 0);
        ASSERT_TRUE(sem.create("stdkro test held sem", 0, 1));
        EXPECT_TRUE(sem.lock()) << "the child's counts";
        char* text = static_cast<char*>(mem.attach(0, 0, sharemem::map_write));
        ASSERT_NE(text, nullptr);
        EXPECT_STREQ(text, "written by the child");
        // Let go first: the names are then the child's alone.
        mem.close();
        sem.close();
        if (killed) {
            EXPECT_EQ(p.terminate(), 1);
        } else {
            std::strcpy(text, "go");
        }
        p.wait_done();
        std::fclose(out);
        mem.detach(text);
        EXPECT_TRUE(eventually([&] { return mem.open("stdkro test held mem", sharemem::map_read) != 0; }));
        ASSERT_TRUE(sem.create("stdkro test held sem", 0, 1));
        EXPECT_FALSE(sem.unlock() && sem.unlock()) << "made anew";
    }
}

// ---- module ----------------------------------------------------------------

std::string module_path() { return (fs::path(self).parent_path() / "process_module.mod").string(); }

TEST(loaded_module, gives_its_functions_and_data)
{
    module m;
    EXPECT_FALSE(m.is_valid());
    EXPECT_EQ(m.get_func("process_module_add"), nullptr);
    EXPECT_EQ(m.unload(), 0);
    ASSERT_EQ(m.load(module_path().c_str()), 0) << module::get_load_error();
    EXPECT_TRUE(m.is_valid());
    int (*add)(int, int) = reinterpret_cast<int (*)(int, int)>(m.get_func("process_module_add"));
    ASSERT_NE(add, nullptr);
    EXPECT_EQ(add(20, 22), 42);
    int* counter = static_cast<int*>(m.get_func("process_module_counter"));
    ASSERT_NE(counter, nullptr);
    EXPECT_EQ(*counter, 41);
    EXPECT_EQ(m.get_func("absent"), nullptr);
    EXPECT_STRNE(module::get_load_error(), "");
    EXPECT_EQ(m.get_func(""), nullptr);
    EXPECT_EQ(m.get_func(nullptr), nullptr);
    EXPECT_EQ(m.unload(), 0);
    EXPECT_FALSE(m.is_valid());
    EXPECT_EQ(m.unload(), 0);
}

TEST(loaded_module, goes_with_its_object)
{
    for (int i = 0; i < 2; ++i) {
        module m;
        ASSERT_EQ(m.load(module_path().c_str()), 0);
        int* counter = static_cast<int*>(m.get_func("process_module_counter"));
        ASSERT_NE(counter, nullptr);
        EXPECT_EQ(*counter, 41) << "as it was built: nothing is left of the load before";
        *counter = 7;
    }
}

TEST(loaded_module, a_failed_load_keeps_the_old_one)
{
    const scratch s;
    const std::string text_file = s.file("text.mod", "not a module");
    module m;
    ASSERT_EQ(m.load(module_path().c_str()), 0);
    void* handle = m.get_handle();
    for (const char* name : { static_cast<const char*>(nullptr), "", "missing.mod", text_file.c_str() }) {
        EXPECT_EQ(m.load(name), code(0x80020002));
        EXPECT_EQ(m.get_handle(), handle);
    }
    EXPECT_STRNE(module::get_load_error(), "");
    EXPECT_NE(last_system_error(), 0);
    EXPECT_NE(m.get_func("process_module_add"), nullptr);
}

TEST(loaded_module, a_new_one_replaces_the_old_without_unloading_it)
{
    module m, keeper;
    ASSERT_EQ(m.load(module_path().c_str()), 0);
    void* first = m.get_handle();
    ASSERT_EQ(m.load(module_path().c_str()), 0);
    EXPECT_EQ(m.get_handle(), first) << "the same library, loaded twice";
    m.unload();
    keeper.set_handle(first); // the load that was forgotten
    EXPECT_NE(keeper.get_func("process_module_add"), nullptr) << "still loaded";
    module adopted(keeper.get_handle());
    keeper.set_handle(nullptr);
    EXPECT_TRUE(adopted.is_valid());
}

TEST(loaded_module, errors_are_kept_per_thread)
{
    module m;
    m.load("missing.mod");
    const std::string before = module::get_load_error();
    EXPECT_NE(before, "");
    std::string there = "?";
    ::thread t;
    ASSERT_EQ(t.start(&there, [](::thread*, void* text, void*) {
        *static_cast<std::string*>(text) = module::get_load_error() + std::to_string(last_system_error());
    }, nullptr), 0);
    t.wait_done();
    EXPECT_EQ(there, "0");
    EXPECT_EQ(module::get_load_error(), before);
}

} // namespace

int main(int argc, char** argv)
{
    const words w(argv, argv + argc);
    if (std::getenv("STDKRO_PROCESS_TEST_CHILD"))
        return (argc >= 2 ? roles.at(w[1]) : show_words)(w);
    static char is_child[] = "STDKRO_PROCESS_TEST_CHILD=1";
    putenv(is_child);
    self = fs::absolute(argv[0]).string();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
