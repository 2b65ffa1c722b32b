// The log: numbered messages in the chosen language, with the time, to the chosen sinks.
#pragma once
#include "settings.h"
#include <stdkro/logger.h>
#include <stdkro/socket.h>
#include <stdkro/writer.h>
#include <stdkro/xml_doc.h>
#include <cstring>
#include <ctime>

enum message { // ORDER site/messages.xml
    msg_serving = 1, msg_stopping, msg_stopped, msg_compiled, msg_failed, msg_refused, msg_dropped, msg_count
};

class journal : private log_formatter {
public:
    journal() { logger::get_writer()->set_formatter(this); }
    ~journal() override { logger::get_writer()->set_formatter(nullptr); }
    /// Opens the sinks and reads the language file. Throws an `xrterror`.
    void open(const settings& from) {
        mixed_writer& sinks = DBGDC::dc().get_writer(); // which begins with the console
        const share_str file = from.text("log", "file"), udp = from.text("log", "udp");
        const SockAddr to(udp.c_str());
        if (!file.isempty() && !sinks.open_file(from.file(file).c_str(), "a"))
            from.refuse(err::file_system, "log", "file", file, "a file to append to");
        if (!udp.isempty() && (to.get_port_h() == 0 || !sinks.open_udp(to.get_ip_s(), to.get_port_h())))
            from.refuse(err::network, "log", "udp", udp, "ADDRESS:PORT");
        if (from.text("log", "console") == "no")
            sinks.close(1);
        const share_str messages = from.text("log", "messages"), language = from.text("log", "language");
        xml_doc doc;
        int r = doc.read(from.file(messages).c_str(), false, false);
        for (int i : { log_table::english, log_table::chinese }) {
            tables_[i].set_language(i);
            r = r < 0 ? r : tables_[i].read(*doc.get_doc_node());
            for (unsigned m = 1; r >= 0 && m < msg_count; ++m)
                r = m < tables_[i].count() && is_usable(tables_[i][m].fmt) ? 0 : err::syntax;
        }
        if (r < 0)
            from.refuse(r, "log", "messages", messages, "a language file");
        if (set_language(language) < 0)
            from.refuse(err::invalid_parameter, "log", "language", language, "english or chinese");
    }
    /// "english" or "chinese". 0 or a status.
    int set_language(const share_str& name) {
        if (name != "english" && name != "chinese")
            return err::invalid_parameter;
        context_.table = &tables_[name == "english" ? log_table::english : log_table::chinese];
        return 0;
    }
    void write(message m, const char* a, const char* b = "", const char* c = "", const char* d = "") const {
        logger::print(context_, lv_none, int(m), a, b, c, d);
    }

private:
    // "2026-01-31, 23:59:59 [pages] hint: ..."
    int format(char* dst, unsigned size, const logctx& ctx, err_level level, const char* fmt,
               va_list arguments) override {
        const unsigned length = unsigned(std::strlen(print_time(dst, int(size), long(std::time(nullptr)))));
        dst[length] = ' ';
        const int r = log_formatter::format(dst + length + 1, size - length - 1, ctx, level, fmt, arguments);
        return r < 0 ? std::strcpy(dst + size - 2, "\n"), r : r; // a line that was cut ends, too
    }
    // A translation cannot ask for what is not there: at most four conversions, all of them "%s".
    static bool is_usable(const char* text) {
        int count = text == log_table::get_default().fmt ? 5 : 0; // which stands for what was not usable
        while ((text = std::strchr(text, '%')) && (text[1] == '%' || (text[1] == 's' && ++count <= 4)))
            text += 2;
        return !text && count <= 4;
    }
    log_table tables_[3]; // by language
    logctx context_ { "pages", 0, 0, nullptr, nullptr };
};
