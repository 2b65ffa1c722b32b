// What the INI file says: see site/page_server.ini. Files in it are relative to its folder.
#pragma once
#include <stdkro/ini_doc.h>
#include <stdkro/xcpt.h>
#include <filesystem>

struct settings {
    ini_doc ini;
    share_str folder, fault;
    int port, admin_port;      // 0: chosen by the system
    int connections;           // open at a time
    int head, body, page;      // bytes of a request's head and body, and of a page
    int idle, request, answer; // seconds between requests, for one, and for its answer

    /// Reads and checks the file. 0, or the status of what is wrong; `fault` then names it.
    int load(const char* path) {
        folder = std::filesystem::path(path).parent_path().generic_string().c_str();
        fault = path;
        if (const int r = ini.read(path); r < 0)
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
        if (const share_str loop = text("server", "loop"); loop != "selector" && loop != "poller" && loop != "epoller")
            fault = "loop";
        return fault.isempty() ? 0 : err::invalid_parameter;
    }
    int number(const char* section, const char* name, int by_default, int least, int most) {
        const int n = text(section, name).isempty() ? by_default : ini.find_section(section)->read(name, least - 1);
        if (n < least || n > most)
            fault = name;
        return n;
    }
    /// The value as it stands, "" where there is none.
    share_str text(const char* section, const char* name) const {
        const ini_section* const found = ini.find_section(section);
        return found ? found->read(name, "") : share_str();
    }
    share_str file(const char* name) const { return (std::filesystem::path(folder.c_str()) / name).generic_string().c_str(); }
};
