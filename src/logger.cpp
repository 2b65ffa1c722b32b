// The logger: one writer and one context for the process.
//
// The state is constant-initialised and never destroyed, so that constructors and
// destructors of other statics can log.
#include <stdkro/logger.h>

#include <stdkro/writer.h>

#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include "logger_map.h"
#include "text_format.h"

#include <cstring>

namespace {

struct level_text {
    const char* read;
    const char* printed;
};

// ORDER err_level
// KEEP: level 0 is read as "none" and printed as "noerror"; files and readers of logs
// know it by these two names.
const level_text levels[] = {
    { "none", "noerror" }, { "hint", "hint" }, { "warn", "warn" },   { "failed", "failed" },
    { "error", "error" },  { "bad", "bad" },   { "debug", "debug" },
};

logctx builtin_context = { "stdkro", 1, 0, nullptr, nullptr };
logctx* current_context = &builtin_context;

log_writer* current_writer = nullptr;
bool is_writer_set = false; // before, it is the default one

// Made at the first use and never destroyed: a program may log until its very end.
template <class OBJECT> OBJECT* the_default()
{
    alignas(OBJECT) static unsigned char place[sizeof(OBJECT)];
    static OBJECT* const made = new (place) OBJECT;
    return made;
}

const logit* find_replacement(const char* fmt)
{
    return current_context->map && fmt ? current_context->map->find(fmt) : nullptr;
}

void write_replaced(const logctx& ctx, err_level level, const char* fmt, va_list arguments)
{
    const logit* const replacement = find_replacement(fmt);
    if (replacement) {
        level = replacement->level;
        fmt = replacement->fmt ? replacement->fmt : fmt;
    }
    logger::write(ctx, level, fmt, arguments);
}

// Appends what fits before `end`. The texts of a header are short: a loop is done
// before a search for their end and a copy have begun.
char* put(char* dst, const char* end, const char* text)
{
    while (*text != '\0' && dst != end)
        *dst++ = *text++;
    return dst;
}

} // namespace

const char* get_level_name(err_level level)
{
    return level >= lv_none && level <= lv_debug ? levels[level].printed : "UNKNOWN";
}

err_level read_level(const char* name)
{
    for (int i = lv_none; name && i <= lv_debug; ++i)
        if (std::strcmp(name, levels[i].read) == 0)
            return static_cast<err_level>(i);
    return lv_none;
}

log_formatter::~log_formatter() {}

int log_formatter::format(char* dst, unsigned size, const logctx& ctx, err_level level, const char* fmt,
                          va_list arguments)
{
    if (size == 0)
        return -1;
    const char* const end = dst + size;
    char* p = put(dst, end, "[");
    p = put(p, end, ctx.name ? ctx.name : "");
    p = put(p, end, "] ");
    p = put(p, end, get_level_name(level));
    p = put(p, end, ": ");
    // A header that fills all bytes did not fit.
    if (p == end) {
        dst[size - 1] = '\0';
        return -1;
    }
    const int length = format_bounded(p, static_cast<unsigned>(end - p), fmt ? fmt : "", arguments);
    return length < 0 ? length : static_cast<int>(p - dst) + length;
}

log_writer::~log_writer() {}

void log_writer::write(const logctx& ctx, err_level level, const char* fmt, va_list arguments)
{
    char line[950];
    line[0] = '\0';
    if (formatter_)
        std::memset(line, 0, sizeof line); // a user's formatter may not terminate
    log_formatter* const formatter = formatter_ ? formatter_ : the_default<log_formatter>();
    formatter->format(line, sizeof line, ctx, level, fmt, arguments);
    line[sizeof line - 1] = '\0';
    writer* const sink = writer_ ? writer_ : &DBGDC::dc().get_writer();
    sink->write(line);
}

writer* log_writer::set_writer(writer* sink)
{
    writer* const before = writer_ ? writer_ : &DBGDC::dc().get_writer();
    writer_ = sink;
    return before;
}

log_formatter* log_writer::set_formatter(log_formatter* formatter)
{
    log_formatter* const before = formatter_ ? formatter_ : the_default<log_formatter>();
    formatter_ = formatter;
    return before;
}

log_writer* logger::set_writer(log_writer* w)
{
    log_writer* const before = get_writer();
    current_writer = w;
    is_writer_set = true;
    return before;
}

log_writer* logger::get_writer() { return is_writer_set ? current_writer : the_default<log_writer>(); }

logctx* logger::set_def_ctx(logctx* ctx)
{
    logctx* const before = current_context;
    current_context = ctx ? ctx : &builtin_context;
    return before;
}

logctx& logger::get_logctx() { return *current_context; }

void logger::print(err_level level, const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    write_replaced(*current_context, level, fmt, arguments);
    va_end(arguments);
}

// KEEP: the map asked is the default context's, not that of `ctx`: one file of
// replacements serves all contexts of a program.
void logger::print(const logctx& ctx, err_level level, const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    write_replaced(ctx, level, fmt, arguments);
    va_end(arguments);
}

void logger::print(err_level level, int code, ...)
{
    va_list arguments;
    va_start(arguments, code);
    write(*current_context, level, code, arguments);
    va_end(arguments);
}

void logger::print(const logctx& ctx, err_level level, int code, ...)
{
    va_list arguments;
    va_start(arguments, code);
    write(ctx, level, code, arguments);
    va_end(arguments);
}

void logger::print(logit message, ...)
{
    va_list arguments;
    va_start(arguments, message);
    write(*current_context, message.level, message.fmt, arguments);
    va_end(arguments);
}

void logger::print(const logctx& ctx, logit message, ...)
{
    va_list arguments;
    va_start(arguments, message);
    write(ctx, message.level, message.fmt, arguments);
    va_end(arguments);
}

void logger::write(const logctx& ctx, err_level level, const char* fmt, va_list arguments)
{
    if (log_writer* const w = get_writer())
        w->write(ctx, level, fmt, arguments);
}

// KEEP: the level given is ignored; the table decides it, so that a language file can
// change how grave a message is.
void logger::write(const logctx& ctx, err_level, int code, va_list arguments)
{
    const logit message = ctx.table ? (*ctx.table)[static_cast<unsigned>(code)] : log_table::get_default();
    write(ctx, message.level, message.fmt, arguments);
}

int logger::load_map(logctx& ctx, const char* path)
{
    xml_doc doc;
    const int r = doc.read(path, false, false);
    return r < 0 ? r : load_map(ctx, doc);
}

int logger::load_map(logctx& ctx, const xml_doc& doc)
{
    clear_map(ctx);
    return log_map::make(ctx.map, doc.get_doc_node());
}

void logger::clear_map(logctx& ctx)
{
    delete ctx.map;
    ctx.map = nullptr;
}
