// The sinks and the debug channel.
#include <stdkro/writer.h>

#include "udp_receiver.h"
#include "virtual_slot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <type_traits>

namespace {

using std::string;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace fs = std::filesystem;

// An empty folder that is the current one while the object lives.
class scratch_folder {
public:
    scratch_folder() : before_(fs::current_path()), path_(fs::path(testing::TempDir()) / "stdkro_writer_test")
    {
        fs::remove_all(path_);
        fs::create_directories(path_);
        fs::current_path(path_);
    }
    ~scratch_folder()
    {
        fs::current_path(before_);
        fs::remove_all(path_);
    }

private:
    fs::path before_;
    fs::path path_;
};

// What a file holds, with line feeds alone at line ends.
string text_of(const string& path)
{
    std::ifstream in(path);
    return string(std::istreambuf_iterator<char>(in), {});
}

bool matches(const string& text, const string& pattern) { return std::regex_match(text, std::regex(pattern)); }

const char* const date = "[0-9]{4}/[0-9]{2}/[0-9]{2}-[0-9]{2}:[0-9]{2}:[0-9]{2}";
const string begin_banner = string("\\*{6}begin:") + date + "\\*{5}\n";
const string end_banner = string("\\*{6}end:") + date + "\\*{5}\n";

string dated_name()
{
    const std::time_t now = std::time(nullptr);
    char name[32];
    std::strftime(name, sizeof name, "dbg%m%d.txt", std::localtime(&now));
    return name;
}

// Adds "TAG:text " to a log of the test, and tells there when it goes.
class noting_writer : public writer {
public:
    noting_writer(string& notes, const char* tag) : notes_(notes), tag_(tag) {}
    ~noting_writer() override { notes_ += "~" + tag_ + " "; }
    void write(const char* text) override { notes_ += tag_ + ":" + text + " "; }
    bool is_valid() const override { return true; }

private:
    string& notes_;
    string tag_;
};

TEST(writer, has_its_destructor_first)
{
    EXPECT_EQ(2u, slot_of(&writer::write)); // the destructor takes two entries
    EXPECT_EQ(3u, slot_of(&writer::is_valid));
}

TEST(con_writer, writes_to_standard_error)
{
    CaptureStdout();
    CaptureStderr();
    con_writer sink;
    sink.write("one\n");
    sink.write("");
    sink.write(nullptr);
    sink.write("two");
    EXPECT_EQ("one\ntwo", GetCapturedStderr());
    EXPECT_EQ("", GetCapturedStdout());
    EXPECT_TRUE(sink.is_valid());
}

TEST(file_writer, begins_and_ends_with_a_banner)
{
    const scratch_folder folder;
    {
        file_writer sink("log.txt", "w");
        EXPECT_TRUE(sink.is_valid());
        EXPECT_TRUE(matches(text_of("log.txt"), begin_banner)) << text_of("log.txt");
        sink.write("line\n");
        EXPECT_TRUE(matches(text_of("log.txt"), begin_banner + "line\n")) << "each text is flushed";
        sink.write("no line end");
        sink.write(nullptr);
    }
    EXPECT_TRUE(matches(text_of("log.txt"), begin_banner + "line\nno line end" + end_banner)) << text_of("log.txt");
}

TEST(file_writer, banners_have_the_local_time)
{
    const scratch_folder folder;
    char before[32], after[32];
    const std::time_t first = std::time(nullptr);
    std::strftime(before, sizeof before, "%Y/%m/%d-%H:%M:%S", std::localtime(&first));
    {
        file_writer sink("log.txt", "w");
    }
    const std::time_t last = std::time(nullptr);
    std::strftime(after, sizeof after, "%Y/%m/%d-%H:%M:%S", std::localtime(&last));
    const string written = text_of("log.txt").substr(12, 19);
    EXPECT_LE(before, written);
    EXPECT_LE(written, after);
}

TEST(file_writer, appends_or_replaces_as_its_mode_says)
{
    const scratch_folder folder;
    { file_writer sink("log.txt", "a+"); }
    { file_writer sink("log.txt", "a+"); }
    EXPECT_TRUE(matches(text_of("log.txt"), begin_banner + end_banner + begin_banner + end_banner));
    { file_writer sink("log.txt", "w"); }
    EXPECT_TRUE(matches(text_of("log.txt"), begin_banner + end_banner));
}

TEST(file_writer, names_its_file_by_month_and_day)
{
    const scratch_folder folder;
    const string before = dated_name();
    {
        file_writer sink;
        EXPECT_TRUE(sink.is_valid());
        sink.write("x\n");
    }
    { file_writer sink; }
    const string name = fs::exists(before) ? before : dated_name();
    EXPECT_TRUE(matches(text_of(name), begin_banner + "x\n" + end_banner + begin_banner + end_banner)) << name;
}

TEST(file_writer, tells_on_standard_output_that_it_could_not_open)
{
    const scratch_folder folder;
    CaptureStdout();
    file_writer missing("no/such/folder/log.txt", "w");
    file_writer nothing("", "w");
    file_writer null(nullptr, nullptr);
    fs::create_directory("folder");
    file_writer directory("folder", "a+");
    const string printed = GetCapturedStdout();
    EXPECT_EQ("error: create debug information file [no/such/folder/log.txt] failed, mode is [w]\n"
              "error: create debug information file [] failed, mode is [w]\n"
              "error: create debug information file [] failed, mode is []\n"
              "error: create debug information file [folder] failed, mode is [a+]\n",
              printed);
    for (file_writer* sink : { &missing, &nothing, &null, &directory }) {
        EXPECT_FALSE(sink->is_valid());
        sink->write("lost\n");
    }
}

TEST(file_writer, tells_the_dated_name_when_that_cannot_be_opened)
{
    const scratch_folder folder;
    fs::create_directory(dated_name());
    CaptureStdout();
    const file_writer sink;
    const string printed = GetCapturedStdout();
    const string separator(1, static_cast<char>(fs::path::preferred_separator));
    EXPECT_EQ("error: create debug information file [." + separator + dated_name() + "] failed, mode is [a+]\n", printed);
    EXPECT_FALSE(sink.is_valid());
}

TEST(file_writer, does_not_mind_a_full_disk)
{
    if (!fs::exists("/dev/full") || fs::path::preferred_separator != '/')
        GTEST_SKIP() << "no full device here";
    file_writer sink("/dev/full", "w");
    EXPECT_TRUE(sink.is_valid());
    for (int i = 0; i < 1000; ++i)
        sink.write("a line that finds no room\n");
}

TEST(udp_writer, sends_one_datagram_for_each_text_without_its_terminator)
{
    udp_receiver receiver;
    udp_writer sink("127.0.0.1", receiver.port());
    EXPECT_TRUE(sink.is_valid());
    sink.write("one\n");
    sink.write(nullptr);
    sink.write("two");
    sink.write("");
    const string long_text(10000, 'x');
    sink.write(long_text.c_str());
    EXPECT_EQ("one\n", receiver.next());
    EXPECT_EQ("two", receiver.next());
    EXPECT_EQ("", receiver.next());
    EXPECT_EQ(long_text, receiver.next());
    EXPECT_FALSE(receiver.has_one());
}

TEST(udp_writer, sends_to_port_7906_of_this_host_by_default)
{
    udp_receiver receiver(7906);
    if (!receiver.is_bound())
        GTEST_SKIP() << "port 7906 is taken";
    udp_writer sink;
    sink.write("default");
    EXPECT_EQ("default", receiver.next());
}

TEST(udp_writer, does_not_mind_that_nobody_listens)
{
    int port;
    {
        udp_receiver receiver;
        port = receiver.port();
    }
    udp_writer sink("127.0.0.1", port);
    for (int i = 0; i < 10; ++i)
        sink.write("lost");
    EXPECT_TRUE(sink.is_valid());
    udp_writer nowhere("not an address", port);
    nowhere.write("lost");
    udp_writer null(nullptr, port);
    null.write("lost");
}

TEST(mixed_writer, writes_to_its_slots_in_order)
{
    string notes;
    {
        mixed_writer mixed(0);
        EXPECT_TRUE(mixed.is_valid());
        mixed.write("nobody");
        EXPECT_TRUE(mixed.open(8, new noting_writer(notes, "d")));
        EXPECT_TRUE(mixed.open(4, new noting_writer(notes, "c")));
        EXPECT_TRUE(mixed.open(1, new noting_writer(notes, "a")));
        EXPECT_TRUE(mixed.open(2, new noting_writer(notes, "b")));
        mixed.write("x");
        EXPECT_EQ("a:x b:x c:x d:x ", notes);
        notes.clear();
    }
    EXPECT_EQ("~a ~b ~c ~d ", notes);
}

TEST(mixed_writer, takes_the_first_slot_of_the_mask_that_does_not_hold_the_sink)
{
    string notes;
    mixed_writer mixed(0);
    writer* const sink = new noting_writer(notes, "s");
    EXPECT_FALSE(mixed.open(0, sink));
    EXPECT_FALSE(mixed.open(16, sink));
    EXPECT_TRUE(mixed.open(8, sink));
    EXPECT_FALSE(mixed.open(8, sink));
    EXPECT_TRUE(mixed.open(15, sink)); // slot 0
    EXPECT_TRUE(mixed.open(15, sink)); // slot 1: slot 0 holds it
    mixed.write("x");
    EXPECT_EQ("s:x s:x s:x ", notes);
    notes.clear();
    mixed.close(8 | 1);
    EXPECT_EQ("", notes) << "slot 1 still has it";
    mixed.close(2);
    EXPECT_EQ("~s ", notes);
}

TEST(mixed_writer, deletes_a_sink_that_is_replaced)
{
    string notes;
    mixed_writer mixed(0);
    EXPECT_TRUE(mixed.open(8, new noting_writer(notes, "a")));
    EXPECT_TRUE(mixed.open(8, new noting_writer(notes, "b")));
    EXPECT_EQ("~a ", notes);
    EXPECT_TRUE(mixed.open(8, nullptr));
    EXPECT_EQ("~a ~b ", notes);
    EXPECT_FALSE(mixed.open(8, nullptr));
}

TEST(mixed_writer, closes_the_slots_of_a_mask)
{
    string notes;
    mixed_writer mixed(0);
    for (int slot = 0; slot < 4; ++slot)
        mixed.open(1 << slot, new noting_writer(notes, string(1, static_cast<char>('a' + slot)).c_str()));
    mixed.close(0);
    mixed.close(16);
    EXPECT_EQ("", notes);
    mixed.close(2 | 8);
    EXPECT_EQ("~b ~d ", notes);
    mixed.close(65535);
    EXPECT_EQ("~b ~d ~a ~c ", notes);
}

TEST(mixed_writer, opens_default_sinks_by_mask)
{
    const scratch_folder folder;
    udp_receiver receiver(7906);
    CaptureStderr();
    {
        mixed_writer mixed(7);
        mixed.write("line\n");
    }
    EXPECT_EQ("line\n", GetCapturedStderr());
    EXPECT_TRUE(matches(text_of(dated_name()), begin_banner + "line\n" + end_banner));
    if (receiver.is_bound()) {
        EXPECT_EQ("line\n", receiver.next());
    }
}

TEST(mixed_writer, replaces_default_sinks_when_they_are_opened_again)
{
    string notes;
    mixed_writer mixed(0);
    mixed.open(1, new noting_writer(notes, "a"));
    mixed.open(8, new noting_writer(notes, "d"));
    CaptureStderr();
    mixed.open(1 | 8);
    mixed.write("x");
    EXPECT_EQ("x", GetCapturedStderr());
    EXPECT_EQ("~a d:x ", notes);
    mixed.close(65535);
}

TEST(mixed_writer, ends_the_old_file_before_the_new_one_begins)
{
    const scratch_folder folder;
    mixed_writer mixed(2);
    mixed.write("a\n");
    mixed.open(2);
    mixed.write("b\n");
    mixed.close(2);
    const string text = text_of(dated_name());
    EXPECT_TRUE(matches(text, begin_banner + "a\n" + end_banner + begin_banner + "b\n" + end_banner)) << text;
}

TEST(mixed_writer, opens_a_file_and_a_receiver_of_the_callers_choice)
{
    const scratch_folder folder;
    udp_receiver receiver;
    mixed_writer mixed(0);
    EXPECT_TRUE(mixed.open_file("mine.txt", "w"));
    EXPECT_TRUE(mixed.open_udp("127.0.0.1", receiver.port()));
    mixed.write("x\n");
    EXPECT_EQ("x\n", receiver.next());
    EXPECT_TRUE(mixed.open_file("mine.txt", "a"));
    mixed.close(2);
    EXPECT_TRUE(matches(text_of("mine.txt"), begin_banner + "x\n" + end_banner + begin_banner + end_banner));
    CaptureStdout();
    EXPECT_FALSE(mixed.open_file("no/such/folder/x", "w"));
    EXPECT_THAT(GetCapturedStdout(), testing::StartsWith("error: create debug information file ["));
    mixed.write("y\n"); // the others still write
    EXPECT_EQ("y\n", receiver.next());
}

TEST(writer, owning_sinks_and_the_channel_are_not_copied)
{
    EXPECT_FALSE(std::is_copy_constructible<file_writer>::value);
    EXPECT_FALSE(std::is_copy_constructible<udp_writer>::value);
    EXPECT_FALSE(std::is_copy_constructible<mixed_writer>::value);
    EXPECT_FALSE(std::is_copy_constructible<DBGDC>::value);
    EXPECT_FALSE(std::is_copy_assignable<mixed_writer>::value);
    EXPECT_FALSE(std::is_copy_assignable<DBGDC>::value);
    EXPECT_TRUE(std::has_virtual_destructor<writer>::value);
}

// Sends the debug channel into a text for one test.
class channel_fixture : public testing::Test {
protected:
    channel_fixture()
    {
        DBGDC::dc().get_writer().close(1);
        DBGDC::dc().get_writer().open(8, new noting_writer(notes, "c"));
    }
    ~channel_fixture() override
    {
        DBGDC::dc().get_writer().close(8);
        DBGDC::dc().get_writer().open(1);
    }

    string notes;
};

using debug_channel = channel_fixture;

TEST(DBGDC, is_one_object_that_begins_with_the_console)
{
    EXPECT_EQ(&DBGDC::dc(), &DBGDC::dc());
    EXPECT_EQ(&DBGDC::dc().get_writer(), &DBGDC::dc().get_writer());
    CaptureStderr();
    DBGDC::dc().write("text\n");
    EXPECT_EQ("text\n", GetCapturedStderr());
}

TEST(DBGDC, has_a_mark_that_changes_nothing)
{
    EXPECT_FALSE(DBGDC::dc().enable());
    CaptureStderr();
    DBGDC::dc().enable(true);
    EXPECT_TRUE(DBGDC::dc().enable());
    DBGDC::dc().write("x");
    DBGDC::dc().enable(false);
    DBGDC::dc().write("y");
    EXPECT_EQ("xy", GetCapturedStderr());
}

TEST_F(debug_channel, prints_nothing_without_a_format)
{
    const auto print = [](const char* fmt, ...) {
        va_list arguments;
        va_start(arguments, fmt);
        DBGDC::dc().vprint(fmt, arguments);
        va_end(arguments);
    };
    print(nullptr, 5);
    EXPECT_EQ("", notes);
    print("%d", 5);
    EXPECT_NE(string::npos, notes.find("5"));
}

TEST_F(debug_channel, prints_formatted_text)
{
    DBGDC::dc().print("%s=%d", "x", 5);
    DBGDC::dc().print("%s", "");
    EXPECT_EQ("c:x=5 c: ", notes);
}

TEST_F(debug_channel, cuts_at_1024_characters)
{
    for (std::size_t n : { 1023u, 1024u, 1025u, 2000u }) {
        notes.clear();
        const string text(n, 'x');
        DBGDC::dc().print("%s", text.c_str());
        EXPECT_EQ("c:" + string(n < 1024 ? n : 1024, 'x') + " ", notes);
    }
}

TEST_F(debug_channel, warns_between_lines_of_stars)
{
    const string stars = "c:" + string(47, '*') + "\n ";
    DBGDC::dc().warning("title", "file.cpp", 12, "message");
    EXPECT_EQ(stars + "c:title: message\n c:file.cpp(12): message\n " + stars, notes);
    notes.clear();
    DBGDC::dc().warning("title", "file.cpp", 12, "message", "detail");
    EXPECT_EQ(stars + "c:title: message\n c:file.cpp(12): detail\n " + stars, notes);
}

} // namespace
