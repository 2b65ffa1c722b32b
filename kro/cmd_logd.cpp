// kro logd: receives what UDP sinks send, and shows it with time and sender.
#include "commands.h"
#include "files.h"
#include "progress.h"
#include "sockets.h"

#include <stdkro/socket.h>
#include <stdkro/xcpt.h>

#include <cstdio>
#include <ctime>

namespace {

// What could steer a terminal becomes "?": control characters, and those that UTF-8 has in two bytes.
void make_harmless(std::string& line)
{
    for (std::size_t i = 0; i < line.size(); ++i) {
        const auto c = static_cast<unsigned char>(line[i]);
        const auto next = i + 1 < line.size() ? static_cast<unsigned char>(line[i + 1]) : 0;
        if (c == 0xC2 && next >= 0x80 && next < 0xA0)
            line.replace(i, 2, "?");
        else if ((c < ' ' && c != '\t') || c == 127)
            line[i] = '?';
    }
}

// The lines of one datagram, each with time and sender.
std::string lines_of(const std::string& text, const std::string& origin)
{
    std::string lines;
    std::size_t begin = 0;
    do {
        const std::size_t end = text.find('\n', begin);
        std::string line = text.substr(begin, end - begin);
        make_harmless(line);
        lines += origin + " " + line + "\n";
        begin = end == std::string::npos ? text.size() : end + 1;
    } while (begin < text.size());
    return lines;
}

// Ends after `most` datagrams, or when receiving fails again and again. A single failure
// may tell that an earlier sender has gone.
int receive(Socket& receiver, std::FILE* file, int most)
{
    progress work("receiving");
    work.counts("datagram");
    std::vector<char> datagram(65536);
    int failures = 0;
    for (int received = 0; most == 0 || received < most;) {
        SockAddr sender;
        const int n = receiver.recv_from(&sender, datagram.data(), static_cast<unsigned>(datagram.size()));
        if (n < 0) {
            if (++failures == 100)
                return report_error(err::receive);
            continue;
        }
        failures = 0;
        ++received;
        work.add(1, static_cast<unsigned>(n));
        char time[24];
        print_time(time, static_cast<long>(std::time(nullptr)));
        const std::string lines = lines_of(std::string(datagram.data(), static_cast<std::size_t>(n)),
                                           std::string(time) + " " + sender.get_addr().c_str());
        print_lines(stdout, lines);
        if (file)
            print_lines(file, lines);
    }
    return exit_success;
}

} // namespace

int logd_command(const command_words& words)
{
    start_sockets();
    const std::string place = words.text("host", "127.0.0.1") + ":" + std::to_string(words.number("port", 7906));
    SockAddr address = read_address(place);
    const std::string out = words.text("out");
    const int most = words.number("count", 0); // 0: all
    const file_pointer file(out.empty() ? nullptr : std::fopen(out.c_str(), "a"));
    if (!out.empty() && !file)
        return report_error_in(out, err::file_system);

    Socket receiver;
    int r = receiver.create(2, 2, 0);
    if (r >= 0)
        r = receiver.bind(address);
    if (r >= 0)
        r = receiver.getself(address);
    if (r < 0)
        return report_error_in(place, r);
    print_message("listening on %s\n", address.get_addr().c_str());
    return receive(receiver, file.get(), most);
}
