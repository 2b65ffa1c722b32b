// The log: numbered messages in the chosen language, to the chosen sinks.
#pragma once
#include "settings.h"
#include <stdkro/logger.h>
#include <stdkro/socket.h>
#include <stdkro/writer.h>
#include <stdkro/xml_doc.h>
#include <cstring>

enum message { // ORDER site/messages.xml
    msg_serving = 1, msg_stopping, msg_stopped, msg_compiled, msg_script_error, msg_refused, msg_dropped,
    msg_cannot_listen, msg_loop_failed, msg_count
};

class journal {
public:
    /// Opens the sinks and reads the language file. 0 or a status.
    int open(const settings& from) {
        mixed_writer& sinks = DBGDC::dc().get_writer(); // which begins with the console
        const share_str file = from.text("log", "file"), udp = from.text("log", "udp");
        const SockAddr receiver(udp.c_str());
        if (!file.isempty() && !sinks.open_file(from.file(file.c_str()).c_str(), "a"))
            return err::file_system;
        if (!udp.isempty() && !sinks.open_udp(share_str(receiver.get_ip_s()).c_str(), receiver.get_port_h()))
            return err::network;
        if (from.text("log", "console") == "no")
            sinks.close(1);
        file_ = from.file(from.text("log", "messages").c_str());
        return set_language(from.text("log", "language"));
    }
    /// "english" or "chinese". 0 or a status; then nothing changed.
    int set_language(const share_str& name) {
        xml_doc doc;
        log_table fresh;
        fresh.set_language(name == "english" ? log_table::english : log_table::chinese);
        int r = name == "english" || name == "chinese" ? doc.read(file_.c_str(), false, false) : err::invalid_parameter;
        if (r >= 0)
            r = fresh.read(*doc.get_doc_node());
        for (unsigned i = 1; r >= 0 && i < msg_count; ++i)
            r = i < fresh.count() && is_usable(fresh[i].fmt) ? 0 : err::syntax;
        if (r >= 0)
            messages_.swap(fresh);
        return r;
    }
    /// The texts are cut at 200 bytes.
    void write(message number, share_str a, share_str b = "", share_str c = "", share_str d = "") const {
        for (share_str* text : { &a, &b, &c, &d })
            *text = text->substr(0, 200);
        logger::print(context_, lv_none, int(number), a.c_str(), b.c_str(), c.c_str(), d.c_str());
    }

private:
    // A translation cannot ask for what is not there: at most four conversions, all of them "%s".
    static bool is_usable(const char* format) {
        int texts = 0;
        while ((format = std::strchr(format, '%')) && (format[1] == '%' || (format[1] == 's' && ++texts <= 4)))
            format += 2;
        return !format;
    }
    share_str file_;
    log_table messages_;
    logctx context_ { "pages", 0, 0, &messages_, nullptr };
};
