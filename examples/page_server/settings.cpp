#include "settings.h"

#include <stdkro/xcpt.h>
#include <filesystem>

share_str settings::text(const char* section, const char* name) const
{
    const ini_section* const found = ini.find_section(section);
    return found ? found->read(name, "") : share_str();
}

share_str settings::file(const share_str& name) const
{
    return (std::filesystem::path(folder.c_str()) / name.c_str()).generic_string().c_str();
}

int settings::number(const char* section, const char* name, int by_default, int least, int most)
{
    const ini_section* const found = ini.find_section(section);
    const int n = found && found->find_attr(name) ? found->read(name, least - 1) : by_default;
    if (n < least || n > most)
        fault = name;
    return n;
}

int settings::load(const char* path)
{
    fault = path;
    folder = std::filesystem::path(path).parent_path().generic_string().c_str();
    const int r = ini.read(path);
    if (r < 0)
        return r;
    fault.clear();
    port = number("server", "port", 8080, 0, 65535);
    admin_port = number("server", "admin_port", 8081, 0, 65535);
    connections = number("limits", "connections", 1000, 1, 1000); // no loop watches more than 1,024
    head = number("limits", "head", 8192, 64, 1 << 20);
    body = number("limits", "body", 1 << 20, 0, 1 << 28);
    page = number("limits", "page", 1 << 24, 1, 1 << 28);
    idle = number("limits", "idle_seconds", 15, 1, 86400);
    request = number("limits", "request_seconds", 10, 1, 86400);
    answer = number("limits", "answer_seconds", 60, 1, 86400);
    return fault.isempty() ? 0 : err::invalid_parameter;
}
