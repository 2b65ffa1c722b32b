// A line goes to each sink in one piece, and a sink in trouble is nobody else's: the
// others get their lines and the caller hears nothing.
#include <stdkro/logger.h>
#include <stdkro/writer.h>

#include "record_pipe.h"
#include "udp_receiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using std::string;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace fs = std::filesystem;

constexpr int standard_error = 2;

class noting_writer : public writer {
public:
    explicit noting_writer(string& notes) : notes_(notes) {}
    void write(const char* text) override { notes_ += text; }
    bool is_valid() const override { return true; }

private:
    string& notes_;
};

// A logger with all four sinks: console, file, UDP and one of the test's own.
class four_sinks : public testing::Test {
protected:
    four_sinks() : path(testing::TempDir() + "stdkro_log_trouble_test.log"), file_descriptor(next_descriptor()), sinks(1)
    {
        EXPECT_TRUE(sinks.open_file(path.c_str(), "w"));
        EXPECT_TRUE(sinks.open_udp("127.0.0.1", receiver.port()));
        EXPECT_TRUE(sinks.open(8, new noting_writer(notes)));
        to_sinks.set_writer(&sinks);
        before = logger::set_writer(&to_sinks);
    }
    ~four_sinks() override
    {
        logger::set_writer(before);
        sinks.close(65535);
        std::remove(path.c_str());
    }

    // The file without its banner.
    string file_lines() const
    {
        std::ifstream in(path);
        string text(std::istreambuf_iterator<char>(in), {});
        return text.substr(text.find('\n') + 1);
    }
    string noted()
    {
        string text;
        text.swap(notes);
        return text;
    }

    const string path;
    udp_receiver receiver;
    const int file_descriptor; // found when the receiver has taken its own
    string notes;
    mixed_writer sinks;
    log_writer to_sinks;
    log_writer* before;
};

using each_line = four_sinks;
using sinks_beside = four_sinks;

TEST_F(each_line, is_one_write_or_datagram_for_each_sink)
{
    record_pipe console(standard_error);
    record_pipe file(file_descriptor);
    for (const std::size_t length : { 1u, 50u, 200u, 900u, 2000u }) {
        logger::print(lv_hint, "%s\n", string(length, 'x').c_str());
        const string line = ("[stdkro] hint: " + string(length, 'x') + "\n").substr(0, 949);
        EXPECT_EQ(line, noted());
        EXPECT_EQ(line, console.next()) << length;
        EXPECT_EQ(line, file.next()) << length;
        EXPECT_EQ(line, receiver.next()) << length;
        EXPECT_EQ("<nothing>", console.next()) << length;
        EXPECT_EQ("<nothing>", file.next()) << length;
        EXPECT_FALSE(receiver.has_one()) << length;
    }
}

TEST_F(each_line, of_the_debug_channel_is_one_write_too)
{
    mixed_writer& channel = DBGDC::dc().get_writer();
    record_pipe console(standard_error);
    DBGDC::dc().print("%s", string(2000, 'x').c_str());
    EXPECT_EQ(string(1024, 'x'), console.next());
    EXPECT_EQ("<nothing>", console.next());
    EXPECT_TRUE(channel.is_valid());
}

TEST_F(each_line, keeps_line_feeds_inside_it_in_one_write)
{
    record_pipe console(standard_error);
    record_pipe file(file_descriptor);
    logger::print(lv_hint, "a\nb\n\nc\n");
    EXPECT_EQ("[stdkro] hint: a\nb\n\nc\n", console.next());
    EXPECT_EQ("[stdkro] hint: a\nb\n\nc\n", file.next());
    EXPECT_EQ("<nothing>", console.next());
    EXPECT_EQ("<nothing>", file.next());
}

TEST_F(sinks_beside, a_closed_console_get_their_lines)
{
    {
        const closed_descriptor closed(standard_error);
        for (int i = 0; i < 3; ++i)
            logger::print(lv_hint, "line\n");
    }
    const string line = "[stdkro] hint: line\n";
    EXPECT_EQ(line + line + line, noted());
    EXPECT_EQ(line + line + line, file_lines());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(line, receiver.next());
    // The console comes back with its descriptor.
    record_pipe console(standard_error);
    logger::print(lv_hint, "again\n");
    EXPECT_THAT(console.next(), testing::EndsWith("[stdkro] hint: again\n"));
}

TEST_F(sinks_beside, a_file_whose_descriptor_was_closed_get_their_lines)
{
    record_pipe console(standard_error);
    const string line = "[stdkro] hint: line\n";
    {
        const closed_descriptor closed(file_descriptor);
        for (int i = 0; i < 3; ++i) {
            logger::print(lv_hint, "line\n");
            EXPECT_EQ(line, console.next());
            EXPECT_EQ(line, receiver.next());
            EXPECT_EQ(line, noted());
        }
    }
    EXPECT_TRUE(sinks.is_valid());
}

TEST_F(sinks_beside, a_socket_whose_sends_fail_get_their_lines)
{
    record_pipe console(standard_error);
    const string line = "[stdkro] hint: line\n";
    EXPECT_TRUE(sinks.open_udp("127.0.0.1", 0)); // there is no port 0
    logger::print(lv_hint, "line\n");
    EXPECT_EQ(line, console.next());
    EXPECT_EQ(line, file_lines());
    EXPECT_EQ(line, noted());
}

TEST_F(sinks_beside, a_full_disk_get_their_lines)
{
    if (!fs::exists("/dev/full"))
        GTEST_SKIP() << "no full device here";
    record_pipe console(standard_error);
    EXPECT_TRUE(sinks.open_file("/dev/full", "w"));
    const string line = "[stdkro] hint: line\n";
    for (int i = 0; i < 1000; ++i) {
        logger::print(lv_hint, "line\n");
        ASSERT_EQ(line, console.next());
        ASSERT_EQ(line, receiver.next());
        ASSERT_EQ(line, noted());
    }
    sinks.close(2); // its banner finds no room either
    logger::print(lv_hint, "line\n");
    EXPECT_EQ(line, console.next());
}

TEST_F(sinks_beside, a_directory_in_place_of_the_file_get_their_lines)
{
    record_pipe console(standard_error);
    CaptureStdout();
    const string folder = testing::TempDir();
    EXPECT_FALSE(sinks.open_file(folder.c_str(), "a+"));
    EXPECT_EQ("error: create debug information file [" + folder + "] failed, mode is [a+]\n", GetCapturedStdout());
    CaptureStdout();
    logger::print(lv_hint, "line\n");
    EXPECT_EQ("", GetCapturedStdout()) << "told once, when it was opened";
    EXPECT_EQ("[stdkro] hint: line\n", console.next());
    EXPECT_EQ("[stdkro] hint: line\n", receiver.next());
    EXPECT_EQ("[stdkro] hint: line\n", noted());
}

} // namespace
