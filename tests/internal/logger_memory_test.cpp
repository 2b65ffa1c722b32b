// The logger when memory runs out: lines are written all the same, files give a
// status code.
#include "allocation_failure.h"

#include <stdkro/logger.h>
#include <stdkro/writer.h>
#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>

namespace {

const int no_memory = static_cast<int>(0x80010002);

// Keeps the last line without taking memory.
class last_line : public writer {
public:
    void write(const char* text) override { std::strncpy(line, text, sizeof line - 1); }
    bool is_valid() const override { return true; }

    char line[1000] = "";
};

void read(xml_doc& doc, const char* text)
{
    xml_reader in;
    in.load_string(text, nullptr, true);
    ASSERT_EQ(0, doc.read(in, false, false));
}

TEST(logger_memory, a_language_block_is_read_or_gives_a_code)
{
    xml_doc doc;
    read(doc, "<lang langid=\"x\"><log type=\"hint\" fmt=\"one %d\"/><log type=\"warn\" fmt=\"two\"/><end/></lang>");
    for (allocation_failure failure; failure.next();) {
        log_table table;
        failure.arm();
        const int r = table.read_language(*doc.get_doc_node());
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r) << failure.nth();
        for (unsigned code = 0; code < 4; ++code)
            EXPECT_NE(nullptr, table[code].fmt);
        EXPECT_TRUE(failure.happened() || std::string(table[2].fmt) == "two");
    }
}

TEST(logger_memory, a_table_is_copied_whole_or_throws)
{
    xml_doc doc;
    read(doc, "<lang langid=\"x\"><log type=\"hint\" fmt=\"one %d\"/><log type=\"warn\" fmt=\"two\"/><end/></lang>");
    log_table table;
    ASSERT_EQ(0, table.read_language(*doc.get_doc_node()));
    for (allocation_failure failure; failure.next();) {
        int code = 0;
        failure.arm();
        try {
            const log_table copy(table);
            failure.disarm();
            EXPECT_STREQ("two", copy[2].fmt);
        } catch (const xcpt& e) {
            code = e.get_err();
        }
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, code);
    }
}

TEST(logger_memory, a_map_is_loaded_or_gives_a_code_and_lines_are_written_all_the_same)
{
    xml_doc doc;
    read(doc, "<logs><log name=\"value %d of a longer format\" value=\"%d: a longer replacement of it\" level=\"bad\"/></logs>");
    last_line sink;
    log_writer to_sink;
    to_sink.set_writer(&sink);
    log_writer* const before = logger::set_writer(&to_sink);
    for (allocation_failure failure; failure.next();) {
        logctx app = { "app" };
        failure.arm();
        const int r = logger::load_map(app, doc);
        logger::set_def_ctx(&app);
        logger::print(lv_hint, "value %d of a longer format", 5);
        failure.disarm();
        EXPECT_TRUE(r == 0 || r == no_memory) << r;
        EXPECT_TRUE(r == 0 || failure.happened());
        const std::string line = sink.line;
        EXPECT_TRUE(line == "[app] bad: 5: a longer replacement of it"
                    || (failure.happened() && line == "[app] hint: value 5 of a longer format"))
            << line;
        logger::set_def_ctx(nullptr);
        logger::clear_map(app);
    }
    logger::set_writer(before);
}

TEST(logger_memory, sinks_that_cannot_be_made_leave_their_slots_empty)
{
    for (allocation_failure failure; failure.next();) {
        failure.arm();
        mixed_writer mixed(1 | 4);
        const bool has_file = mixed.open_file("/nonexistent/folder/x", "w");
        failure.disarm();
        EXPECT_FALSE(has_file);
        mixed.write("");
    }
}

} // namespace
