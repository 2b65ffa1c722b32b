#include "journal.h"

#include <stdkro/socket.h>
#include <stdkro/writer.h>
#include <stdkro/xml_doc.h>

int journal::open(const settings& from)
{
    mixed_writer& sinks = DBGDC::dc().get_writer(); // which begins with the console
    const share_str file = from.text("log", "file"), udp = from.text("log", "udp");
    if (!file.isempty() && !sinks.open_file(from.file(file).c_str(), "a"))
        return err::file_system;
    const SockAddr receiver(udp.c_str());
    if (!udp.isempty() && !sinks.open_udp(share_str(receiver.get_ip_s()).c_str(), receiver.get_port_h()))
        return err::network;
    if (from.text("log", "console") == "no")
        sinks.close(1);
    file_ = from.file(from.text("log", "messages"));
    return set_language(from.text("log", "language"));
}

// A translation cannot ask for what is not there: at most four conversions, all of them "%s".
static bool is_usable(const char* format)
{
    int texts = 0;
    for (; *format; ++format)
        if (*format == '%' && *++format != '%' && (*format != 's' || ++texts > 4))
            return false;
    return true;
}

int journal::set_language(const share_str& name)
{
    if (name != "english" && name != "chinese")
        return err::invalid_parameter;
    xml_doc doc;
    log_table fresh;
    fresh.set_language(name == "english" ? log_table::english : log_table::chinese);
    int r = doc.read(file_.c_str(), false, false);
    if (r >= 0)
        r = fresh.read(*doc.get_doc_node());
    for (unsigned i = 1; r >= 0 && i < msg_count; ++i)
        if (i >= fresh.count() || !is_usable(fresh[i].fmt))
            r = err::syntax;
    if (r >= 0)
        messages_.swap(fresh);
    return r;
}

void journal::write(message number, share_str a, share_str b, share_str c, share_str d) const
{
    for (share_str* text : { &a, &b, &c, &d })
        *text = text->substr(0, 200);
    logger::print(context_, lv_none, static_cast<int>(number), a.c_str(), b.c_str(), c.c_str(), d.c_str());
}
