// What the INI file says: see site/page_server.ini. Files in it are relative to its folder.
#pragma once
#include <stdkro/ini_doc.h>
#include <stdkro/str.h>
#include <filesystem>

struct settings {
    const std::filesystem::path folder;
    const ini_doc ini;
    int port, admin_port; // 0: chosen by the system
    const int connections = number("limits", "connections", 1000, 1, 1000); // no loop watches more than 1,024
    const int head = number("limits", "head", 8192, 64, 1 << 20);           // bytes of a request's head
    const int body = number("limits", "body", 1 << 20, 0, 1 << 28);         // and of its body
    const int page = number("limits", "page", 1 << 24, 1, 1 << 28);         // and of a page
    const int idle = number("limits", "idle_seconds", 15, 1, 86400);        // between requests
    const int request = number("limits", "request_seconds", 10, 1, 86400);  // until a request is there
    const int answer = number("limits", "answer_seconds", 60, 1, 86400);    // until its answer is taken

    /// Reads and checks the file; ports that are not null go before its own. Throws an `xrterror`.
    settings(const char* path, const char* http, const char* admin)
        : folder(std::filesystem::path(path).parent_path()), ini(read(path)),
          port(number("server", "port", 8080, 0, 65535, http)),
          admin_port(number("server", "admin_port", 8081, 0, 65535, admin)) {}
    /// The value as it stands, "" where there is none.
    share_str text(const char* section, const char* name) const {
        const ini_section* const found = ini.find_section(section);
        return found ? found->read(name, "") : share_str();
    }
    share_str file(const share_str& name) const { return (folder / name.c_str()).generic_string().c_str(); }
    /// Throws: the value is not what is wanted.
    static void refuse(int status, const char* section, const char* name, const share_str& value,
                       const share_str& wanted) {
        throw xrterror(status, "[%s] %s=%s is not %s", section, name, value.c_str(), wanted.c_str());
    }

private:
    static ini_doc read(const char* path) {
        ini_doc made;
        if (const int r = made.read(path); r < 0)
            throw xrterror(r, "%s", path);
        return made;
    }
    int number(const char* section, const char* name, int by_default, int low, int high,
               const char* given = nullptr) const {
        const share_str value = given ? given : text(section, name);
        const int n = value.isempty() && !given ? by_default : str::read_int(value.c_str(), low - 1);
        if (n < low || n > high)
            refuse(err::invalid_parameter, section, name, value, share_str::print_str("%d to %d", low, high));
        return n;
    }
};
