// Lines, levels, contexts, numbered messages and replaced formats.
#include <stdkro/logger.h>

#include <stdkro/writer.h>
#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include "virtual_slot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <type_traits>

namespace {

using std::string;

const int syntax_error = static_cast<int>(0x80020005);

class memory_writer : public writer {
public:
    void write(const char* text) override { lines += text + string("|"); }
    bool is_valid() const override { return true; }

    string lines;
};

// A logger that writes to memory, and everything as it was afterwards.
class logger_fixture : public testing::Test {
protected:
    logger_fixture()
    {
        to_memory.set_writer(&sink);
        writer_before = logger::set_writer(&to_memory);
        context_before = logger::set_def_ctx(nullptr);
    }
    ~logger_fixture() override
    {
        logger::set_def_ctx(context_before);
        logger::set_writer(writer_before);
    }

    string taken()
    {
        string lines;
        lines.swap(sink.lines);
        return lines;
    }

    memory_writer sink;
    log_writer to_memory;
    log_writer* writer_before;
    logctx* context_before;
};

using log_line = logger_fixture;
using log_messages = logger_fixture;
using log_overrides = logger_fixture;

// The root element of an XML text.
class xml_text {
public:
    explicit xml_text(const string& text)
    {
        xml_reader in;
        in.load_string(text.c_str(), nullptr, true);
        EXPECT_EQ(0, doc.read(in, false, false)) << text << "\n" << in.get_error();
    }
    xml_node& root() { return *doc.get_doc_node(); }

    xml_doc doc;
};

string message_text(const log_table& table, unsigned code)
{
    return std::to_string(table[code].level) + " " + table[code].fmt;
}

const string default_text = "6 error happen";

class configuration_file {
public:
    explicit configuration_file(const string& text) : path(testing::TempDir() + "stdkro_logger_test.xml")
    {
        std::ofstream(path, std::ios::binary) << text;
    }
    ~configuration_file() { std::remove(path.c_str()); }

    const string path;
};

// ---- levels -----------------------------------------------------------------

TEST(err_level, has_names_for_files_and_for_lines)
{
    static const struct { int level; const char* read; const char* printed; } rows[] = {
        { 0, "none", "noerror" }, { 1, "hint", "hint" },   { 2, "warn", "warn" }, { 3, "failed", "failed" },
        { 4, "error", "error" },  { 5, "bad", "bad" },     { 6, "debug", "debug" },
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.level, read_level(row.read));
        EXPECT_STREQ(row.printed, get_level_name(static_cast<err_level>(row.level)));
    }
    for (const int other : { 7, 9, -1, 1000000, static_cast<int>(0x80000000) })
        EXPECT_STREQ("UNKNOWN", get_level_name(static_cast<err_level>(other)));
    for (const char* const other : { "", "noerror", "Warn", "WARN", "warn ", "warning", "war" })
        EXPECT_EQ(lv_none, read_level(other)) << other;
    EXPECT_EQ(lv_none, read_level(nullptr));
    EXPECT_TRUE((std::is_same<int, std::underlying_type_t<err_level>>::value));
}

// ---- lines ------------------------------------------------------------------

TEST_F(log_line, has_context_level_and_text_and_no_line_end)
{
    const logctx app = { "app" };
    logger::print(app, lv_warn, "x=%d", 5);
    EXPECT_EQ("[app] warn: x=5|", taken());
    logger::print(lv_error, "%s and %s", "one", "two");
    EXPECT_EQ("[stdkro] error: one and two|", taken());
    logger::print(static_cast<err_level>(9), "%s", "x");
    EXPECT_EQ("[stdkro] UNKNOWN: x|", taken());
    logger::print(lv_none, "%s", "x");
    EXPECT_EQ("[stdkro] noerror: x|", taken());
    logger::print(lv_hint, "%s", "");
    EXPECT_EQ("[stdkro] hint: |", taken());
    logger::print(lv_hint, "line\n");
    EXPECT_EQ("[stdkro] hint: line\n|", taken());
}

TEST_F(log_line, takes_templates_as_they_are)
{
    const logctx app = { "app" };
    const logit message = { lv_bad, "value %d of %s" };
    logger::print(message, 7, "nine");
    logger::print(app, message, 8, "ten");
    EXPECT_EQ("[stdkro] bad: value 7 of nine|[app] bad: value 8 of ten|", taken());
}

TEST_F(log_line, is_cut_at_949_characters)
{
    const logctx app = { "app" };
    const string header = "[app] hint: ";
    for (const std::size_t length : { 948u, 949u, 950u, 951u, 2000u }) {
        const string text(length - header.size(), 'x');
        logger::print(app, lv_hint, "%s", text.c_str());
        EXPECT_EQ((header + text).substr(0, 949) + "|", taken());
    }
    const string long_name(2000, 'n');
    const logctx long_context = { long_name.c_str() };
    logger::print(long_context, lv_hint, "text");
    EXPECT_EQ("[" + string(948, 'n') + "|", taken());
}

TEST_F(log_line, bears_missing_texts)
{
    logctx nameless;
    nameless.name = nullptr;
    logger::print(nameless, lv_hint, "x");
    const logit nothing = { lv_hint, nullptr };
    logger::print(nothing);
    EXPECT_EQ("[] hint: x|[stdkro] hint: |", taken());
}

// Calls format with the arguments of a variable list.
int format(char* dst, unsigned size, const logctx& ctx, err_level level, const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    log_formatter formatter;
    const int r = formatter.format(dst, size, ctx, level, fmt, arguments);
    va_end(arguments);
    return r;
}

TEST(log_formatter, cuts_what_does_not_fit)
{
    static const logctx app = { "app" };
    static const string line = "[app] warn: text";
    for (unsigned size = 0; size <= line.size() + 3; ++size) {
        char room[64];
        std::fill(std::begin(room), std::end(room), '#');
        const int r = format(room, size, app, lv_warn, "%s", "text");
        EXPECT_EQ('#', room[size]) << size;
        if (size == 0) {
            EXPECT_LT(r, 0);
            continue;
        }
        // A text fits when it is shorter than the room.
        EXPECT_EQ(size > line.size() ? static_cast<int>(line.size()) : -1, r) << size;
        EXPECT_EQ(line.substr(0, size - 1), room) << size;
    }
}

TEST(log_formatter, is_virtual_in_its_destructor_and_format)
{
    EXPECT_TRUE(std::has_virtual_destructor<log_formatter>::value);
    EXPECT_TRUE(std::has_virtual_destructor<log_writer>::value);
    EXPECT_EQ(2u, slot_of(&log_formatter::format)); // behind the destructor
    EXPECT_EQ(0u, slot_of(&log_writer::write));     // before it
}

// ---- writers and contexts ---------------------------------------------------

TEST_F(log_line, goes_nowhere_without_a_writer)
{
    EXPECT_EQ(&to_memory, logger::get_writer());
    EXPECT_EQ(&to_memory, logger::set_writer(nullptr));
    EXPECT_EQ(nullptr, logger::get_writer());
    logger::print(lv_hint, "x");
    logger::print(lv_hint, 5);
    logger::print(logit { lv_hint, "x" });
    EXPECT_EQ(nullptr, logger::set_writer(&to_memory));
    EXPECT_EQ("", taken());
}

TEST(logger, writes_to_the_debug_channel_by_default)
{
    EXPECT_NE(nullptr, logger::get_writer());
    testing::internal::CaptureStderr();
    logger::print(lv_hint, "to the channel\n");
    EXPECT_EQ("[stdkro] hint: to the channel\n", testing::internal::GetCapturedStderr());
    // The channel is asked for its sinks at each line.
    memory_writer* const sink = new memory_writer;
    DBGDC::dc().get_writer().open(1, sink);
    logger::print(lv_hint, "x");
    EXPECT_EQ("[stdkro] hint: x|", sink->lines);
    DBGDC::dc().get_writer().open(1);
}

TEST(log_writer, gives_what_was_set_before)
{
    log_writer w;
    memory_writer a, b;
    EXPECT_EQ(&DBGDC::dc().get_writer(), w.set_writer(&a));
    EXPECT_EQ(&a, w.set_writer(&b));
    EXPECT_EQ(&b, w.set_writer(nullptr));
    EXPECT_EQ(&DBGDC::dc().get_writer(), w.set_writer(nullptr));
    log_formatter f;
    log_formatter* const first = w.set_formatter(&f);
    EXPECT_NE(nullptr, first);
    EXPECT_EQ(&f, w.set_formatter(nullptr));
    EXPECT_EQ(first, w.set_formatter(first));
}

TEST_F(log_line, comes_from_the_formatter_that_is_set)
{
    // Writes without a terminator: the line's room was zeroed.
    class upper : public log_formatter {
    public:
        int format(char* dst, unsigned size, const logctx& ctx, err_level, const char* fmt, va_list) override
        {
            seen_size = size;
            dst[0] = '<';
            dst[1] = ctx.name[0];
            dst[2] = fmt[0];
            return 3;
        }
        unsigned seen_size = 0;
    };
    upper mine;
    to_memory.set_formatter(&mine);
    logger::print(lv_hint, "long text that came before");
    logger::print(lv_hint, "x");
    EXPECT_EQ("<sl|<sx|", taken());
    EXPECT_EQ(950u, mine.seen_size);
    // One that fills all the room cannot make the sink read on.
    class flood : public log_formatter {
    public:
        int format(char* dst, unsigned size, const logctx&, err_level, const char*, va_list) override
        {
            std::fill(dst, dst + size, 'x');
            return -1;
        }
    };
    flood all;
    to_memory.set_formatter(&all);
    logger::print(lv_hint, "x");
    EXPECT_EQ(string(949, 'x') + "|", taken());
}

TEST_F(log_line, has_the_default_context_unless_one_is_given)
{
    EXPECT_STREQ("stdkro", logger::get_logctx().name);
    EXPECT_EQ(1u, logger::get_logctx().first_word);
    EXPECT_EQ(0u, logger::get_logctx().second_word);
    EXPECT_EQ(nullptr, logger::get_logctx().table);
    EXPECT_EQ(nullptr, logger::get_logctx().map);
    logctx* const built_in = &logger::get_logctx();
    logctx app = { "app" };
    EXPECT_EQ(built_in, logger::set_def_ctx(&app));
    EXPECT_EQ(&app, &logger::get_logctx());
    logger::print(lv_hint, "x");
    EXPECT_EQ("[app] hint: x|", taken());
    EXPECT_EQ(&app, logger::set_def_ctx(nullptr));
    EXPECT_EQ(built_in, logger::set_def_ctx(nullptr));
}

// ---- numbered messages ------------------------------------------------------

const char* const three_messages = "<lang langid=\"english\">"
                                   "<log type=\"hint\" fmt=\"started\"/>"
                                   "<log type=\"error\" id=\"2\" fmt=\"port %d is taken by %s\"/>"
                                   "<log type=\"bad\" fmt=\"last\"/>"
                                   "</lang>";

TEST_F(log_messages, take_level_and_format_from_the_table)
{
    log_table table;
    ASSERT_EQ(0, table.read(xml_text(three_messages).root()));
    logctx app = { "app" };
    app.table = &table;
    logger::print(app, lv_debug, 2, 80, "nobody");
    EXPECT_EQ("[app] error: port 80 is taken by nobody|", taken());
    logger::set_def_ctx(&app);
    logger::print(lv_debug, 1);
    EXPECT_EQ("[app] hint: started|", taken());
}

TEST_F(log_messages, are_the_default_message_for_codes_that_have_none)
{
    log_table table;
    ASSERT_EQ(0, table.read(xml_text(three_messages).root()));
    logctx app = { "app" };
    app.table = &table;
    for (const int code : { 0, 4, 5, 1000000, -1 }) {
        logger::print(app, lv_hint, code);
        EXPECT_EQ("[app] debug: error happen|", taken()) << code;
    }
    const logctx no_table = { "app" };
    logger::print(no_table, lv_hint, 1);
    logger::print(lv_hint, 1);
    EXPECT_EQ("[app] debug: error happen|[stdkro] debug: error happen|", taken());
}

TEST(log_table, begins_empty)
{
    const log_table table;
    EXPECT_EQ(0u, table.count());
    EXPECT_EQ(default_text, message_text(table, 0));
    EXPECT_EQ(default_text, message_text(table, 1));
    EXPECT_EQ(log_table::chinese, table.get_language());
    const log_table copy(table);
    EXPECT_EQ(0u, copy.count());
    EXPECT_EQ(default_text, message_text(copy, 1));
}

// The bound is the count of children, so the last message of a block that holds
// nothing else is out of reach.
TEST(log_table, reaches_messages_below_the_number_of_children)
{
    log_table table;
    ASSERT_EQ(0, table.read_language(xml_text(three_messages).root()));
    EXPECT_EQ(3u, table.count());
    EXPECT_EQ("1 started", message_text(table, 1));
    EXPECT_EQ("4 port %d is taken by %s", message_text(table, 2));
    EXPECT_EQ(default_text, message_text(table, 3));
    ASSERT_EQ(0, table.read_language(xml_text("<lang langid=\"x\"><log type=\"hint\" fmt=\"one\"/><end/></lang>").root()));
    EXPECT_EQ(2u, table.count());
    EXPECT_EQ("1 one", message_text(table, 1));
}

TEST(log_table, refuses_malformed_blocks_and_keeps_what_came_before)
{
    static const struct { const char* what; const char* text; unsigned count; const char* first; } rows[] = {
        { "a gap in the numbers",
          "<lang langid=\"x\"><log id=\"1\" type=\"hint\" fmt=\"a\"/><log id=\"2\" type=\"hint\" fmt=\"b\"/>"
          "<log id=\"4\" type=\"hint\" fmt=\"c\"/><end/></lang>", 4, "1 a" },
        { "a wrong order", "<lang langid=\"x\"><log id=\"2\" type=\"hint\" fmt=\"a\"/><end/></lang>", 2, "6 error happen" },
        { "an id that is no number", "<lang langid=\"x\"><log id=\"x\" type=\"hint\" fmt=\"a\"/><end/></lang>", 2, "6 error happen" },
        { "an empty id", "<lang langid=\"x\"><log id=\"\" type=\"hint\" fmt=\"a\"/><end/></lang>", 2, "6 error happen" },
        { "no fmt", "<lang langid=\"x\"><log type=\"hint\"/><end/></lang>", 2, "6 error happen" },
        { "an empty fmt", "<lang langid=\"x\"><log type=\"hint\" fmt=\"\"/><end/></lang>", 2, "6 error happen" },
        { "no type", "<lang langid=\"x\"><log fmt=\"a\"/><end/></lang>", 2, "6 error happen" },
        { "level none", "<lang langid=\"x\"><log type=\"none\" fmt=\"a\"/><end/></lang>", 2, "6 error happen" },
        { "an unknown level", "<lang langid=\"x\"><log type=\"Hint\" fmt=\"a\"/><end/></lang>", 2, "6 error happen" },
        { "no children", "<lang langid=\"x\"/>", 0, "6 error happen" },
    };
    for (const auto& row : rows) {
        log_table table;
        ASSERT_EQ(0, table.read_language(xml_text(three_messages).root()));
        EXPECT_EQ(syntax_error, table.read_language(xml_text(row.text).root())) << row.what;
        EXPECT_EQ(row.count, table.count()) << row.what;
        EXPECT_EQ(row.first, message_text(table, 1)) << row.what;
    }
    log_table gap;
    EXPECT_EQ(syntax_error, gap.read_language(xml_text(rows[0].text).root()));
    EXPECT_EQ("1 b", message_text(gap, 2));
    EXPECT_EQ(default_text, message_text(gap, 3));
}

TEST(log_table, is_unchanged_by_a_block_without_langid)
{
    log_table table;
    ASSERT_EQ(0, table.read_language(xml_text(three_messages).root()));
    EXPECT_EQ(syntax_error, table.read_language(xml_text("<lang><log type=\"hint\" fmt=\"a\"/></lang>").root()));
    EXPECT_EQ(3u, table.count());
}

TEST(log_table, counts_children_of_any_name_and_numbers_messages_alone)
{
    log_table table;
    ASSERT_EQ(0, table.read_language(xml_text("<lang langid=\"x\"><a/><log type=\"hint\" fmt=\"one\"/><b/>"
                                              "<log type=\"warn\" fmt=\"two\"/></lang>").root()));
    EXPECT_EQ(4u, table.count());
    EXPECT_EQ("1 one", message_text(table, 1));
    EXPECT_EQ("2 two", message_text(table, 2));
    EXPECT_EQ(default_text, message_text(table, 3));
}

TEST(log_table, takes_the_block_of_its_language)
{
    const string file = "<messages language=\"1\">"
                        "<lang langid=\"english\"><log type=\"hint\" fmt=\"hello\"/><end/></lang>"
                        "<other langid=\"chinese\"/>"
                        "<lang langid=\"chinese\"><log type=\"hint\" fmt=\"ni hao\"/><end/></lang>"
                        "<lang langid=\"english\"><log type=\"hint\" fmt=\"second\"/><end/></lang>"
                        "</messages>";
    log_table table;
    EXPECT_EQ(0, table.read(xml_text(file).root()));
    EXPECT_EQ("1 ni hao", message_text(table, 1));
    table.set_language(log_table::english);
    EXPECT_EQ(0, table.read(xml_text(file).root()));
    EXPECT_EQ("1 hello", message_text(table, 1));
    table.set_language(7); // any other number is Chinese
    EXPECT_EQ(0, table.read(xml_text(file).root()));
    EXPECT_EQ("1 ni hao", message_text(table, 1));
    table.set_language(log_table::english);
    EXPECT_EQ(0, table.read(xml_text(file).root()));
    EXPECT_EQ(syntax_error, table.read(xml_text("<messages language=\"\"><lang langid=\"chinese\"/></messages>").root()));
    EXPECT_EQ("1 hello", message_text(table, 1));
    EXPECT_EQ(syntax_error, table.read(xml_text("<messages><lang langid=\"english\"/></messages>").root()))
        << "without the attribute the node is a block itself";
}

string one_message(const char* fmt)
{
    return string("<lang langid=\"x\"><log type=\"hint\" fmt=\"") + fmt + "\"/><end/></lang>";
}

TEST(log_table, refuses_formats_that_write_to_memory)
{
    log_table table;
    EXPECT_EQ(0, table.read_language(xml_text("<lang langid=\"x\"><log type=\"hint\" fmt=\"%d%n\"/>"
                                              "<log type=\"hint\" fmt=\"100%% of %s\"/><end/></lang>").root()));
    EXPECT_EQ(default_text, message_text(table, 1));
    EXPECT_EQ("1 100%% of %s", message_text(table, 2));
    for (const char* fmt : { "%hn", "%-5n", "%lln", "%1$n", "%*.3n", "%%%n", "%d and %I64n" }) {
        EXPECT_EQ(0, table.read_language(xml_text(one_message(fmt)).root())) << fmt;
        EXPECT_EQ(default_text, message_text(table, 1)) << fmt;
    }
}

TEST(log_table, takes_every_other_format)
{
    log_table table;
    const string many(100, '%');
    for (const char* fmt : { "100%%new", "%ls", "%m", "%y", "100%", "% ", "%1$d", "%%n", many.c_str() }) {
        EXPECT_EQ(0, table.read_language(xml_text(one_message(fmt)).root())) << fmt;
        EXPECT_EQ(string("1 ") + fmt, message_text(table, 1)) << fmt;
    }
}

TEST(log_table, copies_deeply_and_clears)
{
    log_table table;
    ASSERT_EQ(0, table.read_language(xml_text(three_messages).root()));
    log_table copy(table);
    log_table assigned;
    assigned = table;
    assigned = *&assigned;
    table.clear();
    EXPECT_EQ(0u, table.count());
    EXPECT_EQ(default_text, message_text(table, 1));
    EXPECT_EQ("1 started", message_text(copy, 1));
    EXPECT_EQ("4 port %d is taken by %s", message_text(assigned, 2));
    EXPECT_EQ(3u, assigned.count());
}

TEST(log_table, reads_its_language_from_a_configuration_file)
{
    static const struct { const char* text; bool found; int language; } rows[] = {
        { "<system language=\"1\"/>", true, 1 },
        { "<system language=\"2\"/>", true, 2 },
        { "<system language=\"english\"/>", true, 2 },
        { "<system language=\"\"/>", true, 2 },
        { "<system/>", true, 2 },
        { "<system><language>1</language></system>", true, 1 },
        { "<conf><other/><system language=\"1\"/></conf>", true, 1 },
        { "<conf><system><language>1</language></system></conf>", true, 1 },
        { "<conf><system><language>3</language></system></conf>", true, 2 },
        { "<conf><deeper><system language=\"1\"/></deeper></conf>", false, 0 },
        { "<conf/>", false, 0 },
        { "", false, 0 },
        { "<system language=\"1\">", false, 0 },
    };
    for (const auto& row : rows) {
        const configuration_file file(row.text);
        for (const int before : { 1, 2 }) {
            log_table table;
            table.set_language(before);
            EXPECT_EQ(row.found, table.read_conf_lang(file.path.c_str())) << row.text;
            EXPECT_EQ(row.found ? row.language : before, table.get_language()) << row.text;
        }
    }
    log_table table;
    EXPECT_FALSE(table.read_conf_lang("no/such/file"));
    EXPECT_FALSE(table.read_conf_lang(nullptr));
}

// ---- replaced formats -------------------------------------------------------

class overriding_context : public logctx {
public:
    explicit overriding_context(const string& logs) : logctx { "app" }
    {
        result = logger::load_map(*this, xml_text("<logs>" + logs + "</logs>").doc);
    }
    ~overriding_context() { logger::clear_map(*this); }

    int result;
};

TEST_F(log_overrides, replace_level_and_text_of_a_format)
{
    overriding_context app("<log name=\"disk %s at %d\" value=\"platte %s: %d\" level=\"bad\"/>"
                           "<log name=\"level only\" level=\"error\"/>"
                           "<log name=\"empty\" value=\"\" level=\"debug\"/>");
    ASSERT_EQ(0, app.result);
    logger::set_def_ctx(&app);
    for (int i = 0; i < 2; ++i) { // the second time from the cache
        logger::print(lv_hint, "disk %s at %d", "a", 90);
        logger::print(lv_hint, "level only");
        logger::print(lv_hint, "empty");
        logger::print(lv_hint, "other %d", 1);
        EXPECT_EQ("[app] bad: platte a: 90|[app] error: level only|[app] debug: empty|[app] hint: other 1|", taken());
    }
}

TEST_F(log_overrides, are_those_of_the_default_context_also_for_another)
{
    overriding_context app("<log name=\"x\" value=\"y\" level=\"bad\"/>");
    overriding_context other("<log name=\"x\" value=\"z\" level=\"warn\"/>");
    logger::set_def_ctx(&app);
    const logctx plain = { "plain" };
    logger::print(other, lv_hint, "x");
    logger::print(plain, lv_hint, "x");
    EXPECT_EQ("[app] bad: y|[plain] bad: y|", taken());
    logger::set_def_ctx(nullptr);
    logger::print(other, lv_hint, "x");
    EXPECT_EQ("[app] hint: x|", taken());
}

TEST_F(log_overrides, leave_templates_and_numbered_messages_alone)
{
    overriding_context app("<log name=\"x\" value=\"y\" level=\"bad\"/><log name=\"error happen\" value=\"z\" level=\"bad\"/>");
    logger::set_def_ctx(&app);
    logger::print(logit { lv_hint, "x" });
    logger::print(app, logit { lv_hint, "x" });
    logger::print(lv_hint, 1);
    EXPECT_EQ("[app] hint: x|[app] hint: x|[app] debug: error happen|", taken());
}

// Calls the forms that all others end in.
void write_format(const logctx& ctx, err_level level, const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    logger::write(ctx, level, fmt, arguments);
    va_end(arguments);
}

void write_code(const logctx& ctx, err_level level, int code, ...)
{
    va_list arguments;
    va_start(arguments, code);
    logger::write(ctx, level, code, arguments);
    va_end(arguments);
}

TEST_F(log_overrides, are_not_asked_by_write)
{
    overriding_context app("<log name=\"x %d\" value=\"y %d\" level=\"bad\"/>");
    log_table table;
    ASSERT_EQ(0, table.read(xml_text(three_messages).root()));
    logger::set_def_ctx(&app);
    app.table = &table;
    write_format(app, lv_hint, "x %d", 1);
    write_code(app, lv_hint, 2, 80, "nobody");
    EXPECT_EQ("[app] hint: x 1|[app] error: port 80 is taken by nobody|", taken());
    logger::set_writer(nullptr);
    write_format(app, lv_hint, "x %d", 1);
    write_code(app, lv_hint, 1);
    logger::set_writer(&to_memory);
    EXPECT_EQ("", taken());
}

TEST_F(log_overrides, know_a_format_by_its_text_and_not_only_by_its_address)
{
    overriding_context app("<log name=\"one\" value=\"ONE\" level=\"bad\"/><log name=\"two\" value=\"TWO\" level=\"bad\"/>");
    logger::set_def_ctx(&app);
    char format[8] = "one";
    const char* const volatile fmt = format;
    logger::print(lv_hint, fmt, 0);
    std::snprintf(format, sizeof format, "two");
    logger::print(lv_hint, fmt, 0);
    std::snprintf(format, sizeof format, "none");
    logger::print(lv_hint, fmt, 0);
    EXPECT_EQ("[app] bad: ONE|[app] bad: TWO|[app] hint: none|", taken());
}

TEST_F(log_overrides, count_as_not_found_when_they_want_other_arguments)
{
    static const struct { const char* name; const char* value; bool taken; } rows[] = {
        { "%d", "%d!", true }, { "%d", "%5d", true }, { "%d", "%x", true }, { "%d", "%-+ #0.3i", true },
        { "%d", "%c", true }, { "%d", "%hhd", true }, { "%d%%", "%%%d", true }, { "%f", "%.2g", true },
        { "%s %d", "%10s %u", true }, { "%ld", "%lx", true }, { "%*d", "%*d", true }, { "%.*f", "%*f", true },
        { "a", "b", true }, { "%lf", "%f", true }, { "%p", "%p", true },
        { "%d", "", true }, // no text: only the level changes
        { "%d", "x", false }, { "x", "%d", false }, { "%d", "%s", false }, { "%s", "%d", false }, { "%s", "%p", false },
        { "%d", "%d %d", false }, { "%s %d", "%d %s", false }, { "%d", "%ld", false }, { "%lld", "%ld", false },
        { "%lld", "%llx", true }, { "%d", "%lld", false }, { "%lld", "%d", false },
        { "%zu", "%u", false }, { "%d", "%f", false }, { "%f", "%Lf", false }, { "%d", "%*d", false },
        { "%d", "%n", false }, { "%n", "%n", false }, { "%d", "%hn", false }, { "%d", "%1$d", false },
        { "%d", "%", false }, { "%", "%", false }, { "%d", "%y", false }, { "%d", "%l", false }, { "%s", "%ls", false },
    };
    for (const auto& row : rows) {
        overriding_context app(string("<log name=\"") + row.name + "\" value=\"" + row.value + "\" level=\"bad\"/>");
        ASSERT_EQ(0, app.result);
        logger::set_def_ctx(&app);
        // The formatter tells what it was given, and formats nothing.
        class teller : public log_formatter {
        public:
            int format(char* dst, unsigned size, const logctx&, err_level level, const char* fmt, va_list) override
            {
                return std::snprintf(dst, size, "%d %s", level, fmt);
            }
        };
        teller formatter;
        to_memory.set_formatter(&formatter);
        const char* const volatile fmt = row.name;
        logger::print(lv_hint, fmt, 0);
        const string replaced = *row.value ? row.value : row.name;
        EXPECT_EQ(row.taken ? "5 " + replaced + "|" : string("1 ") + row.name + "|", taken())
            << row.name << " -> " << row.value;
        to_memory.set_formatter(nullptr);
        logger::set_def_ctx(nullptr);
    }
}

TEST_F(log_overrides, end_at_a_bad_level_and_keep_what_came_before)
{
    for (const char* level : { "", "none", "Bad", "other" }) {
        overriding_context app("<log name=\"a\" value=\"A\" level=\"bad\"/><log name=\"b\" value=\"B\" level=\""
                               + string(level) + "\"/><log name=\"c\" value=\"C\" level=\"bad\"/>");
        EXPECT_EQ(syntax_error, app.result) << level;
        logger::set_def_ctx(&app);
        logger::print(lv_hint, "a");
        logger::print(lv_hint, "b");
        logger::print(lv_hint, "c");
        EXPECT_EQ("[app] bad: A|[app] hint: b|[app] hint: c|", taken());
        logger::set_def_ctx(nullptr);
    }
}

TEST_F(log_overrides, come_from_a_file_and_go)
{
    const configuration_file file("<logs><log name=\"line&#0a;\" value=\"zeile&#0a;\" level=\"warn\"/></logs>");
    logctx app = { "app" };
    EXPECT_EQ(static_cast<int>(0x80020002), logger::load_map(app, "no/such/file"));
    EXPECT_EQ(nullptr, app.map);
    ASSERT_EQ(0, logger::load_map(app, file.path.c_str()));
    logger::set_def_ctx(&app);
    logger::print(lv_hint, "line\n");
    logger::clear_map(app);
    EXPECT_EQ(nullptr, app.map);
    logger::print(lv_hint, "line\n");
    EXPECT_EQ("[app] warn: zeile\n|[app] hint: line\n|", taken());
    logger::clear_map(app);
}

TEST_F(log_overrides, of_a_name_that_repeats_are_the_last_ones)
{
    overriding_context app("<log name=\"a\" value=\"A\" level=\"bad\"/><log name=\"a\" value=\"B\" level=\"warn\"/>");
    logger::set_def_ctx(&app);
    logger::print(lv_hint, "a");
    EXPECT_EQ("[app] warn: B|", taken());
}

TEST_F(log_overrides, bear_formats_from_ever_new_addresses)
{
    overriding_context app("<log name=\"x\" value=\"y\" level=\"bad\"/>");
    logger::set_def_ctx(&app);
    std::vector<string> formats(10000, "x");
    for (const string& format : formats) {
        const char* const volatile fmt = format.c_str();
        logger::print(lv_hint, fmt, 0);
        ASSERT_EQ("[app] bad: y|", taken());
    }
}

} // namespace
