// INI documents, lists of pairs and command records when memory runs out: a status
// code or an xcpt with that code, nothing lost that was there, nothing leaked.
#include "allocation_failure.h"

#include <stdkro/mml_doc.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

using std::string;

const int no_memory = static_cast<int>(0x80010002);

// What `work` returns, or the code that it throws.
template <class function> int code_of(function work)
{
    try {
        return work();
    } catch (const xcpt& e) {
        return e.get_err();
    }
}

string text_of(const attributes& list)
{
    string text;
    for (unsigned i = 0; i < list.count(); ++i)
        text += list[i].get_name().c_str() + string("=") + list[i].get_value().c_str() + " ";
    return text;
}

string text_of(const ini_doc& doc)
{
    string text;
    for (const ini_section* section : doc.get_sections())
        text += "[" + string(section->get_name().c_str()) + "] " + text_of(*section);
    return text;
}

TEST(ini_memory, reading_fails_with_a_code_and_keeps_what_was_read)
{
    // Long texts have memory of their own, short ones share it: both must fail.
    string text = "a=1\n";
    for (const char* name : { "section", "another section with a longer name", "third" }) {
        text += "[" + string(name) + "]\nname=value\nother=\n;c\n" + string(600, 'k') + "=" + string(600, 'v') + "\n";
        for (int i = 0; i < 30; ++i)
            text += "key" + std::to_string(i) + "=a value of ordinary length\n";
    }
    ini_reader in;
    ASSERT_EQ(0, in.load_string(text.c_str(), nullptr, false));
    string whole;
    {
        ini_doc doc;
        ASSERT_EQ(0, doc.read(in));
        whole = text_of(doc);
    }
    int runs = 0;
    for (allocation_failure failure; failure.next(); ++runs) {
        in.seek(0);
        ini_doc doc;
        failure.arm();
        const int r = doc.read(in);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r) << failure.nth();
        const string kept = text_of(doc);
        EXPECT_EQ(whole.substr(0, kept.size()), kept);
        EXPECT_EQ(!failure.happened(), kept == whole);
    }
    EXPECT_GT(runs, 15);
}

TEST(ini_memory, sections_without_keys_fail_with_a_code)
{
    string text;
    for (int i = 0; i < 300; ++i)
        text += "[section with a long name, number " + std::to_string(i) + "]\n";
    text += "[" + string(100000, 's') + "]\n";
    int runs = 0;
    for (allocation_failure failure; failure.next(); ++runs) {
        ini_reader in;
        ASSERT_EQ(0, in.load_string(text.c_str(), nullptr, false));
        ini_doc doc;
        failure.arm();
        const int r = doc.read(in);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r) << failure.nth();
        EXPECT_EQ(!failure.happened(), doc.get_sections().size() == 301) << failure.nth();
    }
    EXPECT_GT(runs, 3);
}

TEST(ini_memory, a_failed_change_of_a_list_changes_nothing)
{
    // Made before memory runs out: a text without memory is the caller's matter.
    static const share_str name("c"), value("3");
    static const struct {
        const char* what;
        std::function<int(attributes&)> change;
        const char* after;
    } cases[] = {
        { "append", [](attributes& l) { return l.add_attr(name, value) ? 0 : 1; }, "a=1 b=2 c=3 " },
        { "insert", [](attributes& l) { return l.add_attr(0, name, value) ? 0 : 1; }, "c=3 a=1 b=2 " },
        { "generate", [](attributes& l) { return l.gen_attr("a longer name") ? 0 : 1; }, "a=1 b=2 a longer name= " },
        { "write int", [](attributes& l) { return l.write("a", 12345); }, "a=12345 b=2 " },
        { "write double", [](attributes& l) { return l.write("a", 1.5); }, "a=1.5 b=2 " },
        { "write text", [](attributes& l) { return l.write("c", "text"); }, "a=1 b=2 c=text " },
        { "assign", [](attributes& l) { return (l = attributes(l)).count() == 2 ? 0 : 1; }, "a=1 b=2 " },
    };
    for (const auto& c : cases) {
        for (allocation_failure failure; failure.next();) {
            attributes list;
            list.add_attr("a", "1");
            list.add_attr("b", "2");
            failure.arm();
            const int r = code_of([&] { return c.change(list); });
            failure.disarm();
            EXPECT_EQ(failure.happened() ? no_memory : 0, r) << c.what << " " << failure.nth();
            EXPECT_EQ(r == 0 ? c.after : "a=1 b=2 ", text_of(list)) << c.what << " " << failure.nth();
        }
    }
}

TEST(ini_memory, look_ups_need_no_memory)
{
    for (allocation_failure failure; failure.next();) {
        attributes list;
        ini_doc doc;
        for (int i = 0; i < 100; ++i) {
            const share_str name = share_str::print_str("n%d", i);
            list.add_attr(name, name);
            doc.add_section(name);
        }
        failure.arm();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(77, list.find_attr(0, "n77"));
            EXPECT_EQ(-1, list.find_attr(0, "n777"));
            EXPECT_EQ(77, doc.find_section(0, "n77"));
        }
        failure.disarm();
    }
}

TEST(ini_memory, copies_are_whole_or_throw)
{
    ini_doc doc;
    for (const char* name : { "a", "b", "c" }) {
        ini_section* const section = doc.add_section(name);
        section->add_attr("x", "1");
        section->add_attr("y", "2");
    }
    const string whole = text_of(doc);
    int runs = 0;
    for (allocation_failure failure; failure.next(); ++runs) {
        ini_doc other;
        other.add_section("kept");
        failure.arm();
        const int r = code_of([&] { return other.raw_copy(doc), 0; });
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r);
        EXPECT_EQ(failure.happened() ? "[kept] " : whole, text_of(other));
    }
    for (allocation_failure failure; failure.next();) {
        failure.arm();
        const int r = code_of([&] { return ini_doc(doc).get_section_count() == 3 ? 0 : 1; });
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r);
    }
    EXPECT_GT(runs, 10);
}

TEST(ini_memory, adding_a_section_is_done_or_throws)
{
    for (allocation_failure failure; failure.next();) {
        ini_doc doc;
        doc.add_section("a");
        const share_str name("b");
        failure.arm();
        const int r = code_of([&] { return doc.add_section(0, name) ? 0 : 1; });
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r);
        EXPECT_EQ(failure.happened() ? "[a] " : "[b] [a] ", text_of(doc));
    }
}

TEST(mml_memory, reading_fails_with_a_code_and_keeps_what_was_read)
{
    string line = "IF.get:first=1,second=\"a\\tb\",";
    for (int i = 0; i < 60; ++i)
        line += "d=,e=5,f=\"with\\nescape\",g=\"" + string(i % 10 ? 20 : 700, 'v') + "\",";
    line += "last=1;";
    string whole;
    {
        mml_doc doc;
        ASSERT_EQ(0, doc.read(line.c_str()));
        whole = text_of(doc);
    }
    int runs = 0;
    for (allocation_failure failure; failure.next(); ++runs) {
        mml_doc doc;
        failure.arm();
        const int r = doc.read(line.c_str());
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r) << failure.nth();
        const string kept = text_of(doc);
        EXPECT_EQ(whole.substr(0, kept.size()), kept);
    }
    EXPECT_GT(runs, 10);
}

TEST(mml_memory, writing_appends_all_or_nothing)
{
    mml_doc doc;
    ASSERT_EQ(0, doc.read("IF.get:a=\"x\";"));
    doc.add_attr("long", string(1000, 'y').c_str());
    for (allocation_failure failure; failure.next();) {
        share_str out("before ");
        failure.arm();
        const int r = doc.write(out);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r);
        EXPECT_EQ(failure.happened(), out == "before ");
    }
}

TEST(mml_memory, a_locked_text_cannot_be_appended_to)
{
    share_str out("before");
    ASSERT_NE(nullptr, out.lock());
    EXPECT_EQ(no_memory, mml_doc().write(out));
    out.unlock();
    EXPECT_STREQ("before", out.c_str());
}

} // namespace
