// The sinks beneath: no socket to be had, a chosen date, a failing send, and the
// configuration file that only an installed system has.
#include "../udp_receiver.h"
#include "gbk_texts.h"
#include "platform.h"

#include <stdkro/logger.h>
#include <stdkro/writer.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

using std::string;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace fs = std::filesystem;

bool has_sockets = true;
bool can_send = true;
int opened_sockets = 0;
int sends = 0;
sockaddr_in sent_to;
const char* configuration = nullptr; // what is opened in place of the system's file
string opened_files;                 // "[PATH MODE]" of each

} // namespace

extern "C" {

std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode)
{
    opened_files += string("[") + path + " " + mode + "]";
    if (configuration && std::strcmp(path, "/etc/quorval/tolmek/tolmek.conf") == 0)
        path = configuration;
    return __real_fopen(path, mode);
}

unsigned __real_sys_socket_open(int family, int type, int protocol);
unsigned __wrap_sys_socket_open(int family, int type, int protocol)
{
    ++opened_sockets;
    return has_sockets ? __real_sys_socket_open(family, type, protocol) : sys_no_socket;
}

int __real_sys_socket_send_to(unsigned h, const void* bytes, unsigned n, const sockaddr_in* to);
int __wrap_sys_socket_send_to(unsigned h, const void* bytes, unsigned n, const sockaddr_in* to)
{
    ++sends;
    sent_to = *to;
    return can_send ? __real_sys_socket_send_to(h, bytes, n, to) : -1;
}

bool __wrap_sys_local_time(long long, sys_date* date)
{
    *date = {};
    date->year = 126;
    date->month = 1;
    date->day = 3;
    date->hour = 4;
    date->minute = 5;
    date->second = 6;
    return true;
}

} // extern "C"

namespace {

string text_of(const char* path)
{
    std::ifstream in(path);
    return string(std::istreambuf_iterator<char>(in), {});
}

// An empty folder that is the current one, and everything works.
class sinks_beneath : public testing::Test {
protected:
    sinks_beneath() : before_(fs::current_path()), folder_(fs::path(testing::TempDir()) / "stdkro_writer_failure_test")
    {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        fs::current_path(folder_);
        has_sockets = can_send = true;
        opened_sockets = sends = 0;
        configuration = nullptr;
        opened_files.clear();
    }
    ~sinks_beneath() override
    {
        fs::current_path(before_);
        fs::remove_all(folder_);
    }

    udp_receiver receiver; // starts the socket library too

private:
    fs::path before_;
    fs::path folder_;
};

const string dated_name = string(".") + sys_path_separator + "dbg0203.txt";
const string begin_banner = "******begin:2026/02/03-04:05:06*****\n";
const string end_banner = "******end:2026/02/03-04:05:06*****\n";
const string no_socket_text = string("error: ") + gbk::udp_socket_failed + "\n";

TEST_F(sinks_beneath, a_file_made_on_3_february_is_dbg0203_and_appended_to)
{
    {
        file_writer sink;
        sink.write("one\n");
    }
    EXPECT_EQ("[" + dated_name + " a+]", opened_files);
    { file_writer sink; }
    EXPECT_EQ(begin_banner + "one\n" + end_banner + begin_banner + end_banner, text_of("dbg0203.txt"));
}

TEST_F(sinks_beneath, a_missing_socket_is_told_in_gbk_and_leaves_the_sink_invalid)
{
    has_sockets = false;
    CaptureStdout();
    udp_writer sink("127.0.0.1", 9);
    EXPECT_EQ("error: \xb4\xb4\xbd\xa8SOCKET\xca\xa7\xb0\xdc\xa3\xac\xb5\xf7\xca\xd4\xd0\xc5\xcf\xa2\xce\xde\xb7\xa8\xca\xe4\xb3\xf6"
              "\xb5\xbdudp\n",
              GetCapturedStdout());
    EXPECT_FALSE(sink.is_valid());
    sink.write("lost");
    EXPECT_EQ(0, sends);
    mixed_writer mixed(0);
    CaptureStdout();
    EXPECT_FALSE(mixed.open_udp("127.0.0.1", 9));
    EXPECT_EQ(no_socket_text, GetCapturedStdout());
}

TEST_F(sinks_beneath, a_socket_is_made_only_where_there_is_none)
{
    class patient_writer : public udp_writer {
    public:
        patient_writer() : udp_writer("127.0.0.1", 9) {}
        using udp_writer::create_socket;
    };
    patient_writer sink;
    sink.create_socket();
    EXPECT_EQ(1, opened_sockets);
    has_sockets = false;
    CaptureStdout();
    patient_writer late;
    EXPECT_EQ(no_socket_text, GetCapturedStdout());
    has_sockets = true;
    late.create_socket();
    EXPECT_TRUE(late.is_valid());
    EXPECT_EQ(3, opened_sockets);
}

TEST_F(sinks_beneath, a_line_is_one_send_also_when_it_fails)
{
    udp_writer sink("127.0.0.1", receiver.port());
    sink.write("one");
    EXPECT_EQ(1, sends);
    EXPECT_EQ("one", receiver.next());
    can_send = false;
    sink.write("two");
    EXPECT_EQ(2, sends);
    EXPECT_TRUE(sink.is_valid());
    sink.write(nullptr);
    EXPECT_EQ(2, sends);
}

TEST_F(sinks_beneath, the_target_is_an_ip_address_and_a_port_in_network_order)
{
    udp_writer named("127.1.2.3", 0x1234);
    named.write("x");
    const unsigned char expected[] = { 0x12, 0x34, 127, 1, 2, 3 };
    EXPECT_EQ(2, sent_to.sin_family);
    EXPECT_EQ(0, std::memcmp(expected, &sent_to.sin_port, 2));
    EXPECT_EQ(0, std::memcmp(expected + 2, &sent_to.sin_addr, 4));
    udp_writer usual;
    usual.write("x");
    const unsigned char usual_target[] = { 7906 >> 8, 7906 & 255, 127, 0, 0, 1 };
    EXPECT_EQ(0, std::memcmp(usual_target, &sent_to.sin_port, 2));
    EXPECT_EQ(0, std::memcmp(usual_target + 2, &sent_to.sin_addr, 4));
    // What is no address is all ones, as inet_addr has it.
    udp_writer nowhere("not an address", 1);
    nowhere.write("x");
    EXPECT_EQ(0, std::memcmp("\xff\xff\xff\xff", &sent_to.sin_addr, 4));
}

TEST_F(sinks_beneath, default_sinks_open_in_the_order_console_udp_file)
{
    has_sockets = false;
    fs::create_directory("dbg0203.txt");
    CaptureStdout();
    const mixed_writer sinks(7);
    EXPECT_EQ(no_socket_text + "error: create debug information file [" + dated_name + "] failed, mode is [a+]\n",
              GetCapturedStdout());
}

TEST_F(sinks_beneath, a_table_takes_its_language_from_the_file_of_the_system)
{
    configuration = "conf.xml";
    EXPECT_EQ(log_table::chinese, log_table().get_language()) << "no such file";
    EXPECT_EQ(0u, opened_files.find("[/etc/quorval/tolmek/tolmek.conf ")) << opened_files;
    std::ofstream(configuration) << "<conf><system language=\"1\"/></conf>";
    EXPECT_EQ(log_table::english, log_table().get_language());
    std::ofstream(configuration) << "<conf><system language=\"2\"/></conf>";
    EXPECT_EQ(log_table::chinese, log_table().get_language());
}

} // namespace
