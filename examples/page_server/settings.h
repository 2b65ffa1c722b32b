// What the INI file says: see site/page_server.ini. Files in it are relative to its folder.
#pragma once
#include <stdkro/ini_doc.h>

struct settings {
    /// Reads and checks the file. 0, or the status of what is wrong; `fault` then names it.
    int load(const char* path);
    /// The value as it stands, "" where there is none.
    share_str text(const char* section, const char* name) const;
    share_str file(const share_str& name) const;

    ini_doc ini;
    share_str folder, fault;
    int port, admin_port;      // 0: chosen by the system
    int connections;           // open at a time
    int head, body, page;      // bytes of a request's head and body, and of a page
    int idle, request, answer; // seconds between requests, for one, and for its answer

private:
    int number(const char* section, const char* name, int by_default, int least, int most);
};
