// kro log: writes one line through the library's logger.
#include "commands.h"
#include "progress.h"
#include "sockets.h"

#include <stdkro/logger.h>
#include <stdkro/writer.h>

#include <cstring>

namespace {

SockAddr read_destination(const std::string& place)
{
    start_sockets();
    return read_address(place);
}

// How much text the header of a line leaves room for: what is longer would lose its line end too.
int room_for_text(const std::string& context, err_level level)
{
    constexpr std::size_t longest_line = 949;
    const std::size_t used = std::strlen("[] : \n") + context.size() + std::strlen(get_level_name(level));
    return used < longest_line ? static_cast<int>(longest_line - used) : 0;
}

} // namespace

int log_command(const command_words& words)
{
    const std::string file = words.text("file");
    const std::string udp = words.text("udp");
    const std::string context = words.text("context", logger::get_logctx().name);
    const err_level level = read_level(words.text("level", "hint").c_str());
    const SockAddr to = udp.empty() ? SockAddr() : read_destination(udp);

    // The sinks that are asked for, or the console.
    mixed_writer& sinks = DBGDC::dc().get_writer();
    bool opened = true;
    if (!file.empty() || !udp.empty())
        sinks.close(1);
    if (!file.empty())
        opened = sinks.open_file(file.c_str(), "a");
    if (!udp.empty())
        opened = sinks.open_udp(to.get_ip_s(), to.get_port_h()) && opened;
    logctx app;
    app.name = context.c_str();
    const lent_terminal logging(true);
    logger::print(app, level, "%.*s\n", room_for_text(context, level), words.operands[0].c_str());
    return opened ? exit_success : exit_failure;
}
