// kro log: writes one line through the library's logger.
#include "commands.h"
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

err_level level_of(const std::string& word)
{
    const err_level level = read_level(word.c_str());
    if (level == lv_none && word != "none")
        throw usage_error { "'" + word + "' is no level (none, hint, warn, failed, error, bad, debug)" };
    return level;
}

} // namespace

int log_command(const arguments& words)
{
    std::string file, udp, context = logger::get_logctx().name, level = "hint", message;
    bool has_message = false;
    const struct { const char* name; std::string* value; } options[]
        = { { "--file", &file }, { "--udp", &udp }, { "--context", &context }, { "--level", &level } };
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::string* value = nullptr;
        for (const auto& option : options)
            value = words[i] == option.name ? option.value : value;
        if (value && i + 1 == words.size())
            throw usage_error { "'" + words[i] + "' wants a word behind it" };
        if (!value && has_message)
            throw usage_error { "'" + words[i] + "' is not expected" };
        has_message = has_message || !value;
        (value ? *value : message) = words[value ? ++i : i];
    }
    if (!has_message)
        throw usage_error { "a message is missing" };
    const err_level chosen = level_of(level);
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
    logger::print(app, chosen, "%s\n", message.c_str());
    return opened ? exit_success : exit_failure;
}
