// Command records: what lines are read, what they are written as.
#include <stdkro/mml_doc.h>

#include <stdkro/xcpt.h>

#include "guarded_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <random>

namespace {

using std::string;

string text_of(const share_str& s) { return string(s.c_str(), s.length()); }

// "interface|method|name=value|..." and, where reading failed, "!" and the code.
string shape_of(const mml_doc& doc, int r)
{
    string text = text_of(doc.get_interface()) + "|" + text_of(doc.get_method()) + "|";
    for (unsigned i = 0; i < doc.count(); ++i)
        text += text_of(doc[i].get_name()) + "=" + text_of(doc[i].get_value()) + "|";
    char code[16];
    std::snprintf(code, sizeof code, "!%08X", static_cast<unsigned>(r));
    return r == 0 ? text : text + code;
}

string shape_of(const string& line)
{
    const guarded_text guarded(line + '\0');
    mml_doc doc;
    const int r = doc.read(guarded.begin());
    return shape_of(doc, r);
}

string written(const mml_doc& doc)
{
    share_str out;
    EXPECT_EQ(0, doc.write(out));
    return text_of(out);
}

struct read_case {
    const char* line;
    const char* shape;
};

void expect_shapes(std::initializer_list<read_case> cases)
{
    for (const read_case& c : cases)
        EXPECT_EQ(c.shape, shape_of(string(c.line))) << "line: " << c.line;
}

TEST(mml_read, takes_interface_method_and_pairs)
{
    expect_shapes({
        { "IF.get:a=\"x\",b=12;", "IF|get|a=x|b=12|" },
        { "get:a=1;", "|get|a=1|" }, // one word names the method
        { "a=1;", "||a=1|" },        // no header: the first word is a name
        { "a=1,b=2,a=3;", "||a=1|b=2|a=3|" },
        { "0if.1get:2a=3;", "0if|1get|2a=3|" },
        { "run:a=,b=;", "|run|a=|b=|" },
        { "a=;", "||a=|" },
    });
}

TEST(mml_read, accepts_empty_words)
{
    expect_shapes({
        { ".get:a=1;", "|get|a=1|" },
        { "IF.:a=1;", "IF||a=1|" },
        { ".:a=1;", "||a=1|" },
        { ":a=1;", "||a=1|" },
        { "=1;", "||=1|" },
        { "a=1,=2;", "||a=1|=2|" },
    });
}

TEST(mml_read, skips_white_space_only_at_the_very_start)
{
    expect_shapes({
        { " \t\n\v\f\ra=1;", "||a=1|" },
        { "IF .get:a=1;", "||!80020005" },
        { "IF. get:a=1;", "IF||!80020005" },
        { "IF.get :a=1;", "IF||!80020005" },
        { "IF.get: a=1;", "IF|get|!80020005" },
        { "a =1;", "||!80020005" },
        { "a=1 ;", "||a=1|!80020005" },
        { "a=1, b=2;", "||a=1|!80020005" },
        { "\xA0" "a=1;", "||!80020005" },
    });
}

TEST(mml_read, ends_words_at_anything_but_letters_and_digits)
{
    expect_shapes({
        { "a_b=1;", "||!80020005" },
        { "a-b=1;", "||!80020005" },
        { "I_F.get:a=1;", "||!80020005" },
        { "IF.g_t:a=1;", "IF||!80020005" },
        { "\xC4\xDA=1;", "||!80020005" },
        { "run:a_b=1;", "|run|!80020005" },
    });
}

TEST(mml_read, refuses_headers_without_pairs)
{
    expect_shapes({
        { "", "||!80020005" },
        { ";", "||!80020005" },
        { "run", "||!80020005" },
        { "run;", "||!80020005" },
        { "run:", "|run|!80020005" },
        { "run:;", "|run|!80020005" },
        { ":;", "||!80020005" },
        { "IF.get:;", "IF|get|!80020005" },
        { "IF.get=1;", "IF||!80020005" },
        { "IF.get.x:a=1;", "IF||!80020005" },
        { "run:a;", "|run|!80020005" },
        { "run:get:a=1;", "|run|!80020005" },
    });
}

TEST(mml_read, takes_digits_and_points_for_a_number)
{
    expect_shapes({
        { "a=12;", "||a=12|" },
        { "a=1.5;", "||a=1.5|" },
        { "a=1..2.;", "||a=1..2.|" },
        { "a=007;", "||a=007|" },
        { "a=1x;", "||a=1|!80020005" },
        { "a=1\";", "||a=1|!80020005" },
        { "a=1", "||a=1|!80020005" },
        // A value that begins with a point is text.
        { "a=.5;", "||!80020005" },
        { "a=.5\";", "||a=.5|" },
    });
}

TEST(mml_read, refuses_signed_numbers_and_leaves_an_empty_value)
{
    expect_shapes({
        { "x=-1;", "||x=|!80020005" },
        { "x=+1;", "||x=|!80020005" },
        { "x=-;", "||x=|!80020005" },
        { "y=2,x=-1;", "||y=2|x=|!80020005" },
    });
}

TEST(mml_read, reads_quoted_text_with_escapes)
{
    expect_shapes({
        { "a=\"\";", "||a=|" },
        { "a=\"x,y;z=\";", "||a=x,y;z=|" },
        { "a=\"1\\t2\";", "||a=1\t2|" },
        { "a=\"\\n\\r\\t\";", "||a=\n\r\t|" },
        { "a=\"\\\"\\\\\\q\\0\";", "||a=\"\\q0|" },
        { "a=\"line\nfeed\";", "||a=line\nfeed|" },
        { "a=\"\xC4\xDA\";", "||a=\xC4\xDA|" },
        { "a=\"-1\";", "||a=-1|" },
    });
}

TEST(mml_read, ends_unquoted_text_at_a_double_quote)
{
    expect_shapes({
        { "x=abc;", "||!80020005" },
        { "x=abc\";", "||x=abc|" },
        { "x=abc,y=1\";", "||x=abc,y=1|" },
        { "x=a\\\"b\",y=1;", "||x=a\"b|y=1|" },
        { "x=\\n\";", "||x=\n|" },
        { "x= \";", "||x= |" },
    });
}

TEST(mml_read, refuses_text_that_does_not_end)
{
    expect_shapes({
        { "a=\"x", "||!80020005" },
        { "a=\"", "||!80020005" },
        { "a=", "||!80020005" },
        { "a=\"x\\", "||!80020005" },
        { "a=\"x\\\"", "||!80020005" },
        { "a=1,b=\"x", "||a=1|!80020005" },
    });
}

TEST(mml_read, wants_a_comma_or_semicolon_behind_each_pair)
{
    expect_shapes({
        { "a=\"x\"", "||a=x|!80020005" },
        { "a=\"x\"b=1;", "||a=x|!80020005" },
        { "a=1,", "||a=1|!80020005" },
        { "a=1,;", "||a=1|!80020005" },
        { "a=1,b;", "||a=1|!80020005" },
    });
}

TEST(mml_read, ignores_what_follows_the_semicolon)
{
    expect_shapes({
        { "a=1;b=2;", "||a=1|" },
        { "a=1;\"\\", "||a=1|" },
    });
}

TEST(mml_read, clears_the_record_first)
{
    mml_doc doc;
    ASSERT_EQ(0, doc.read("IF.get:a=1;"));
    EXPECT_EQ(0, doc.read("b=2;"));
    EXPECT_EQ("||b=2|", shape_of(doc, 0));
    EXPECT_EQ(static_cast<int>(0x80020005), doc.read(nullptr));
    EXPECT_EQ("||", shape_of(doc, 0));
}

TEST(mml_read, may_be_given_a_text_of_the_record_itself)
{
    const string inner = "IF.get:a=1,b=\"" + string(600, 'v') + "\";";
    mml_doc doc;
    doc.add_attr("inner", inner.c_str());
    EXPECT_EQ(0, doc.read(doc.find_attr("inner")->get_value().c_str()));
    EXPECT_EQ(shape_of(inner), shape_of(doc, 0));
    // As it is read, too.
    ASSERT_EQ(0, doc.read("c=\"first=1,second=\\\"a\\tb\\\";\";"));
    EXPECT_EQ(0, doc.read(doc[0].get_value().c_str()));
    EXPECT_EQ("||first=1|second=a\tb|", shape_of(doc, 0));
    const string name = string(300, 'n') + ".m:x=2;";
    doc.set_interface(name.c_str());
    EXPECT_EQ(0, doc.read(doc.get_interface().c_str()));
    EXPECT_EQ(string(300, 'n') + "|m|x=2|", shape_of(doc, 0));
}

TEST(mml_read, ends_at_each_truncation_with_a_syntax_error)
{
    for (const string line : { " IF.get:a=12,b=\"x\\ty\",c=,d=z\\\"w\";", "run:a=1.5;", "n=\"\";" })
        for (std::size_t n = 0; n < line.size(); ++n)
            EXPECT_THAT(shape_of(line.substr(0, n)), testing::EndsWith("!80020005")) << line.substr(0, n);
}

// ---- writing ----------------------------------------------------------------

mml_doc record(const char* interface_name, const char* method, std::initializer_list<attribute> pairs)
{
    mml_doc doc;
    doc.set_interface(interface_name);
    doc.set_method(method);
    for (const attribute& pair : pairs)
        doc.add_attr(pair);
    return doc;
}

TEST(mml_write, writes_header_pairs_and_semicolon)
{
    EXPECT_EQ("IF.get:;", written(record("IF", "get", {})));
    EXPECT_EQ("IF.get:a=\"x\",b=\"12\";", written(record("IF", "get", { { "a", "x" }, { "b", "12" } })));
    EXPECT_EQ("IF.get:a=\"\";", written(record("IF", "get", { { "a", "" } })));
    EXPECT_EQ(":;", written(mml_doc()));
    EXPECT_EQ(":a=\"1\";", written(record("", "", { { "a", "1" } })));
    EXPECT_EQ("IF:;", written(record("IF", "", {})));
    EXPECT_EQ("IF:a=\"1\";", written(record("IF", "", { { "a", "1" } })));
}

TEST(mml_write, writes_a_method_without_interface_without_any_header)
{
    EXPECT_EQ(";", written(record("", "get", {})));
    EXPECT_EQ("a=\"1\";", written(record("", "get", { { "a", "1" } })));
}

TEST(mml_write, escapes_values_and_nothing_else)
{
    EXPECT_EQ("I F.g:t:a=b=\"\\t\\n\\r\\\"\\\\\";", written(record("I F", "g:t", { { "a=b", "\t\n\r\"\\" } })));
    EXPECT_EQ("IF.get:a=\"\xC4\xDA\";", written(record("IF", "get", { { "a", "\xC4\xDA" } })));
}

TEST(mml_write, ends_a_value_at_its_first_nul)
{
    const char value[] = "x\0y";
    mml_doc doc;
    doc.add_attr("a", share_str(value, value + 3));
    EXPECT_EQ(":a=\"x\";", written(doc));
}

TEST(mml_write, appends)
{
    share_str out("first ");
    EXPECT_EQ(0, record("IF", "get", {}).write(out));
    EXPECT_EQ("first IF.get:;", text_of(out));
    EXPECT_GE(out.capacity(), 255u);
    const share_str shared(out);
    EXPECT_EQ(0, record("IF", "get", {}).write(out));
    EXPECT_EQ("first IF.get:;IF.get:;", text_of(out));
    EXPECT_EQ("first IF.get:;", text_of(shared));
}

TEST(mml_write, writes_records_of_any_length)
{
    const string long_text(100000, '"');
    mml_doc doc = record("IF", "get", {});
    doc.add_attr(long_text.c_str(), long_text.c_str());
    doc.add_attr("b", "2");
    const string line = written(doc);
    EXPECT_EQ(7u + 100000 + 2 + 200000 + 1 + 1 + 5 + 1, line.size());
    EXPECT_THAT(line, testing::EndsWith("\\\"\",b=\"2\";"));
}

TEST(mml_write, into_a_buffer_is_not_implemented)
{
    char buffer[64] = "untouched";
    EXPECT_EQ(static_cast<int>(0x8002000b), record("IF", "get", {}).write(buffer, 64u));
    EXPECT_STREQ("untouched", buffer);
}

TEST(mml_doc, is_copied_and_cleared_whole)
{
    const mml_doc doc = record("IF", "get", { { "a", "1" } });
    mml_doc copy(doc);
    copy.get_attrs().write("a", 2);
    copy.set_method("set");
    EXPECT_EQ("IF|get|a=1|", shape_of(doc, 0));
    mml_doc assigned;
    assigned.add_attr("old", "");
    assigned = copy;
    assigned = *&assigned;
    EXPECT_EQ("IF|set|a=2|", shape_of(assigned, 0));
    assigned.clear();
    EXPECT_EQ("||", shape_of(assigned, 0));
}

TEST(mml_doc, is_its_own_list_of_pairs)
{
    mml_doc doc;
    ASSERT_EQ(0, doc.read("IF.get:a=12,b=\"x\";"));
    EXPECT_EQ(&doc, &doc.get_attrs());
    EXPECT_EQ(&doc, &static_cast<const mml_doc&>(doc).get_attrs());
    EXPECT_EQ(12, doc.read("a", 0));
    EXPECT_EQ("x", text_of(doc.read("b", "")));
    EXPECT_EQ(0, doc.write("c", 1.5));
    EXPECT_EQ(0, doc.write("a", 13));
    EXPECT_EQ("IF|get|a=13|b=x|c=1.5|", shape_of(doc, 0));
}

// Pairs and values come back from what is written wherever a name is a word; the
// header comes back unless only one of its words is there.
TEST(mml_doc, reads_back_what_it_wrote)
{
    std::mt19937 random(3);
    const auto word = [&] {
        static const char letters[] = "abzAZ019";
        string w;
        for (std::size_t n = random() % 9 + 1; n > 0; --n)
            w += letters[random() % 8];
        return w;
    };
    for (int i = 0; i < 2000; ++i) {
        mml_doc doc;
        doc.set_interface(word().c_str());
        doc.set_method(word().c_str());
        for (std::size_t n = random() % 6 + 1; n > 0; --n) {
            string value;
            for (std::size_t bytes = random() % 20; bytes > 0; --bytes)
                value += static_cast<char>(random() % 255 + 1);
            doc.add_attr(word().c_str(), value.c_str());
        }
        const string line = written(doc);
        mml_doc back;
        ASSERT_EQ(0, back.read(line.c_str())) << line;
        EXPECT_EQ(shape_of(doc, 0), shape_of(back, 0));
        EXPECT_EQ(line, written(back));
    }
}

TEST(mml_doc, does_not_restore_headers_of_one_word)
{
    EXPECT_EQ("|IF|a=1|", shape_of(written(record("IF", "", { { "a", "1" } }))));
    EXPECT_EQ("||a=1|", shape_of(written(record("", "get", { { "a", "1" } }))));
}

} // namespace
