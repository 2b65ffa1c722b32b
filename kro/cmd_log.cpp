// kro log: writes one line through the library's logger.
#include "commands.h"
#include "progress.h"
#include "sockets.h"

#include <stdkro/logger.h>
#include <stdkro/writer.h>

namespace {

struct destination {
    std::string host;
    int port;
};

// HOST:PORT
destination read_destination(const std::string& word)
{
    const std::size_t colon = word.rfind(':');
    destination to = { word.substr(0, colon), 0 };
    if (colon == std::string::npos || !read_port(word.substr(colon + 1), to.port))
        throw usage_error { "'" + word + "' is not HOST:PORT" };
    return to;
}

} // namespace

int log_command(const command_words& words)
{
    const std::string file = words.text("file");
    const std::string udp = words.text("udp");
    const std::string context = words.text("context", logger::get_logctx().name);
    const destination to = udp.empty() ? destination() : read_destination(udp);

    // The sinks that are asked for, or the console.
    mixed_writer& sinks = DBGDC::dc().get_writer();
    bool opened = true;
    if (!file.empty() || !udp.empty())
        sinks.close(1);
    if (!file.empty())
        opened = sinks.open_file(file.c_str(), "a");
    if (!udp.empty()) {
        start_sockets();
        opened = sinks.open_udp(to.host.c_str(), to.port) && opened;
    }
    logctx app;
    app.name = context.c_str();
    const lent_terminal logging(true);
    logger::print(app, read_level(words.text("level", "hint").c_str()), "%s\n", words.operands[0].c_str());
    return opened ? exit_success : exit_failure;
}
