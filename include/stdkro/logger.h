// The logger of the process: lines of the form "[context] level: text".
//
//     logger::print(lv_warn, "queue is %d%% full\n", 90);      // [stdkro] warn: queue is 90% full
//
// A message is a printf format with its arguments, or the number of a message in a
// table that was read from a language file. There is no filtering by level: every
// message is written. Sinks are those of <stdkro/writer.h>; by default lines go to
// the debug channel. The logger fails nobody: what does not fit is cut.
//
// Nothing here locks: set writer and context at start-up.
#ifndef STDKRO_LOGGER_H
#define STDKRO_LOGGER_H

#include <stdkro/config.h>

#include <cstdarg>

class attributes;
class log_map;
class log_table;
class writer;
class xml_doc;
class xml_node;

/// Stored in tables and files as these numbers.
enum err_level : int {
    lv_none = 0, // printed "noerror", read "none"
    lv_hint = 1,
    lv_warn = 2,
    lv_failed = 3,
    lv_error = 4,
    lv_bad = 5,
    lv_debug = 6
};

/// The name as it is printed; "UNKNOWN" for any other number.
KRO_API const char* get_level_name(err_level level);
/// The level that a file names so; `lv_none` for an unknown name.
KRO_API err_level read_level(const char* name);

/// A message template.
struct logit {
    err_level level;
    const char* fmt;
};

/// Where messages come from. The caller owns it, and it lives as long as it is used.
struct logctx {
    const char* name = "";
    /// Two words for the program; the logger reads neither.
    unsigned first_word = 1;
    unsigned second_word = 0;
    /// The numbered messages, or null.
    log_table* table = nullptr;
    /// Replacements of formats, made by `logger::load_map`, or null.
    log_map* map = nullptr;
};

/// The numbered messages of one language. It owns their texts.
class KRO_API log_table {
public:
    /// Empty. The language comes from the configuration file
    /// "/etc/quorval/tolmek/tolmek.conf"; without one it is Chinese.
    log_table();
    log_table(const log_table& other);
    log_table& operator=(const log_table& other);
    ~log_table();

    enum { english = 1, chinese = 2 };
    int get_language() const { return language_; }
    void set_language(int language) { language_ = language; }
    /// Reads the language from the element "system" (the root or a child of it) of an
    /// XML file: its "language", attribute or element, is "1" for English. False, and
    /// unchanged, when there is no such element or file.
    bool read_conf_lang(const char* path);

    /// Reads the messages of the chosen language: from a node with the attribute
    /// "language" the child "lang" whose "langid" is "english" or "chinese", from any
    /// other node its own. 0x80020005 for anything malformed.
    int read(xml_node& node);
    /// Reads one language block: children "log" with "type" (a level), "fmt" and "id",
    /// numbered from 1 without gaps. Messages before a malformed one stay.
    int read_language(xml_node& node);

    /// The message, or "error happen" at level debug where there is none: for code 0,
    /// a code from `count()` on, and a message that was not read or has no usable text.
    const logit& operator[](unsigned code) const;
    /// The number of children of the language block that was read, of any name.
    unsigned count() const { return count_; }
    void clear();
    void swap(log_table& other);

    /// The message of codes that have none.
    static const logit& get_default();

private:
    int read_message(const attributes& from, unsigned number);

    logit* entries_; // one more than there are children
    logit default_;
    unsigned count_;
    int language_;
};

/// Builds lines.
class KRO_API log_formatter {
public:
    virtual ~log_formatter();
    /// Writes "[context] level: text" into `size` bytes and returns its length. When it
    /// does not fit it is cut and terminated in the last byte, and the result is
    /// negative. Size 0 writes nothing.
    virtual int format(char* dst, unsigned size, const logctx& ctx, err_level level, const char* fmt,
                       va_list arguments);
};

/// Hands each line to a sink. It owns neither formatter nor sink.
class KRO_API log_writer {
public:
    log_writer() : formatter_(nullptr), writer_(nullptr) {}
    /// Lines are cut at 949 characters.
    virtual void write(const logctx& ctx, err_level level, const char* fmt, va_list arguments);
    virtual ~log_writer();

    /// These return what was set before; null means the debug channel's sink and the
    /// built-in formatter.
    writer* set_writer(writer* sink);
    log_formatter* set_formatter(log_formatter* formatter);

private:
    log_formatter* formatter_; // null: the built-in one
    writer* writer_;           // null: the debug channel's, asked for at each write
};

/// The logger.
class KRO_API logger {
public:
    /// Returns the previous one. Null turns logging off.
    static log_writer* set_writer(log_writer* w);
    static log_writer* get_writer();
    /// The context of messages without one; returns the previous one. Null means the
    /// built-in context "stdkro".
    static logctx* set_def_ctx(logctx* ctx);
    static logctx& get_logctx();

    /// A printf format. The map of the default context may replace level and format,
    /// also for another context.
    static void print(err_level level, const char* fmt, ...) KRO_PRINTF(2, 3);
    static void print(const logctx& ctx, err_level level, const char* fmt, ...) KRO_PRINTF(3, 4);
    /// A numbered message: the context's table gives level and format.
    static void print(err_level level, int code, ...);
    static void print(const logctx& ctx, err_level level, int code, ...);
    /// A template as it is.
    static void print(logit message, ...);
    static void print(const logctx& ctx, logit message, ...);

    static void write(const logctx& ctx, err_level level, const char* fmt, va_list arguments);
    static void write(const logctx& ctx, err_level level, int code, va_list arguments);

    /// Gives `ctx` a map read from XML: children "log" of the root with "name" (the
    /// format to replace), "value" (the replacement, may be empty) and "level". A bad
    /// level ends reading with 0x80020005; what came before counts. A replacement that
    /// wants other arguments than its format, or holds "%n", is as if it were not there.
    static int load_map(logctx& ctx, const char* path);
    static int load_map(logctx& ctx, const xml_doc& doc);
    /// Deletes the context's map.
    static void clear_map(logctx& ctx);
};

#endif
