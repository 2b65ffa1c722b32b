// Reading XML: the events, the codes and messages of failures, and the levels.
#include <stdkro/xml_doc.h>

#include <stdkro/xcpt.h>

#include "document_text.h"
#include "guarded_text.h"
#include "name_characters.h"
#include "virtual_slot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using std::string;

// Prints line feeds and bytes that are not ASCII so that a row of a table shows them.
string shown(const share_str& s)
{
    string text;
    for (unsigned i = 0; i < s.length(); ++i) {
        char escaped[8];
        const auto c = static_cast<unsigned char>(s[i]);
        std::snprintf(escaped, sizeof escaped, c < ' ' || c > '~' ? "\\x%02x" : "%c", c);
        text += c == '\n' ? "\\n" : escaped;
    }
    return text;
}

string shown(const attributes& list)
{
    string text;
    for (unsigned i = 0; i < list.count(); ++i)
        text += " " + shown(list[i].get_name()) + "=" + shown(list[i].get_value());
    return text;
}

// Prints events: "@name=value" as it is read, "<name pairs" with its "4>" at the end,
// "?name pairs?", "!comment!", "'text'", "[cdata]", "(" and ")" for the document.
class event_printer : public xml_handler {
public:
    int onBeginDocument() override { return note("("); }
    int onEndDocument() override { return note(")"); }
    void onError(int code, const char* text) override
    {
        events += " " + hex(code);
        message = text;
        line = get_reader()->get_line();
        ++errors;
    }
    int onBeginNode(const share_str& name, attributes& attrs) override { return note("<" + shown(name) + shown(attrs)); }
    int onEndNode(xml_node_t kind) override { return note(std::to_string(kind) + ">"); }
    int onAttribute(const share_str& name, const share_str& value) override
    {
        return note("@" + shown(name) + "=" + shown(value));
    }
    int onPI(const share_str& name, attributes& attrs) override { return note("?" + shown(name) + shown(attrs) + "?"); }
    int onComment(const share_str& text) override { return note("!" + shown(text) + "!"); }
    int onText(const share_str& text) override { return note("'" + shown(text) + "'"); }
    int onCDATA(const share_str& text) override { return note("[" + shown(text) + "]"); }

    string events;
    string message = "none";
    int line = 0;
    int errors = 0;
    int stop_at = 0; // the event, counted from 1, that answers with `stop_code`
    int stop_code = -5;

private:
    int note(const string& event)
    {
        events += (events.empty() ? "" : " ") + event;
        return stop_at > 0 && --stop_at == 0 ? stop_code : 1;
    }
};

// The events of reading a text that ends where memory ends, and the result behind "->"
// where it is not 0 and was not reported.
string events_of(const string& text, int (xml_reader::*read)(xml_handler*) = &xml_reader::read_doc)
{
    const guarded_text guarded(text);
    xml_reader in;
    EXPECT_EQ(0, in.load_string(guarded.begin(), guarded.end(), false));
    event_printer printer;
    const int r = (in.*read)(&printer);
    EXPECT_EQ(r < 0 ? 1 : 0, printer.errors) << text;
    if (r < 0)
        EXPECT_THAT(printer.events, testing::EndsWith(hex(r)));
    else
        EXPECT_EQ(0, r);
    EXPECT_EQ(nullptr, in.get_handler());
    EXPECT_EQ(nullptr, in.get_para());
    return printer.events;
}

struct reading {
    const char* text;
    const char* events;
};

const reading sound_documents[] = {
    { "<a/>", "( <a 4> )" },
    { "<a></a>", "( <a 4> )" },
    { "<a />", "( <a 4> )" },
    { "<a\n\t\v\f\r />", "( <a 4> )" },
    { "<a><b/></a>", "( <a <b 4> 4> )" },
    { "<a><b></b><b/><c/></a>", "( <a <b 4> <b 4> <c 4> 4> )" },
    // Every name character.
    { "<#$%-.0123456789@AZ_`az~/>", "( <#$%-.0123456789@AZ_`az~ 4> )" },
    // The declaration is an instruction like others.
    { "<?xml version=\"1.0\" encoding=\"gb2312\"?><a/>",
      "( @version=1.0 @encoding=gb2312 ?xml version=1.0 encoding=gb2312? <a 4> )" },
    { "<a><?p?><?q a=\"1\" ?></a>", "( <a ?p? @a=1 ?q a=1? 4> )" },
    { "<a/><?p?><!--c-->", "( <a 4> ?p? !c! )" },
    // Attributes: in order, duplicates kept, white space only where it is allowed.
    { "<a b=\"1\"/>", "( @b=1 <a b=1 4> )" },
    { "<a b=\"1\" c=\"2\" b=\"3\"/>", "( @b=1 @c=2 @b=3 <a b=1 c=2 b=3 4> )" },
    { "<a b = \"1\"/>", "( @b=1 <a b=1 4> )" },
    { "<a b\n=\n\"1\"\n/>", "( @b=1 <a b=1 4> )" },
    { "<a b=\"1\"c=\"2\"/>", "( @b=1 @c=2 <a b=1 c=2 4> )" },
    { "<a b=\"\"/>", "( @b= <a b= 4> )" },
    { "<a b=\" <'> \"/>", "( @b= <'>  <a b= <'>  4> )" },
    { "<a b=\"1\"></a>", "( @b=1 <a b=1 4> )" },
    // Text keeps its white space, outside the root too.
    { "<a> x </a>", "( <a ' x ' 4> )" },
    { "\n<a>\n</a>\n", "( '\\n' <a '\\n' 4> '\\n' )" },
    { "x<a/>y", "( 'x' <a 4> 'y' )" },
    { "<a>x<b/>y</a>", "( <a 'x' <b 4> 'y' 4> )" },
    { "<a>]]>--></a>", "( <a ']]>-->' 4> )" },
    { "<a>\"'</a>", "( <a '\"'' 4> )" },
    { "<a>\xd6\xd0\x80</a>", "( <a '\\xd6\\xd0\\x80' 4> )" },
    // Comments and CDATA sections end at the first end.
    { "<!----><a/>", "( !! <a 4> )" },
    { "<!--a-b--c- --><a/>", "( !a-b--c- ! <a 4> )" },
    { "<a><!--&lt;<b>\n--></a>", "( <a !&lt;<b>\\n! 4> )" },
    { "<a><!----->--></a>", "( <a !-! '-->' 4> )" },
    { "<a><![CDATA[]]></a>", "( <a [] 4> )" },
    { "<a><![CDATA[<b>&lt;]] ]>\n]]></a>", "( <a [<b>&lt;]] ]>\\n] 4> )" },
    { "<a><![CDATA[]]]></a>", "( <a []] 4> )" },
    { "<![CDATA[x]]><a/>", "( [x] <a 4> )" },
    // Escapes.
    { "<a>&lt;&gt;&amp;&apos;&quot;</a>", "( <a '<>&'\"' 4> )" },
    { "<a b=\"&lt;&gt;&amp;&apos;&quot;\"/>", "( @b=<>&'\" <a b=<>&'\" 4> )" },
    { "<a>x&amp;y&amp;z</a>", "( <a 'x&y&z' 4> )" },
    { "<a>&amp;lt;</a>", "( <a '&lt;' 4> )" },
    { "<a>x\n&amp;y\nz</a>", "( <a 'x\\n&y\\nz' 4> )" }, // one run
    { "<a>&#65;&#10;&#9;</a>", "( <a 'A\\n\\x09' 4> )" },
    { "<a>&#x41;&#x6a;&#x6A;&#xff;</a>", "( <a 'Ajj\\xff' 4> )" },
    { "<a>&#065;&#010;&#00a;</a>", "( <a 'e\\x10\\n' 4> )" }, // a leading zero: hexadecimal
    { "<a>&#255;&#1;&#127;</a>", "( <a '\\xff\\x01\\x7f' 4> )" },
    { "<a>&#x000000000000000000041;&#000000000000000041;</a>", "( <a 'AA' 4> )" },
    // Character 0 is nothing.
    { "<a>x&#x0;y&#00;</a>", "( <a 'xy' 4> )" },
    { "<a>&#x0;</a>", "( <a '' 4> )" },
    { "<a b=\"&#x0;\"/>", "( @b= <a b= 4> )" },
    // A byte 255 is the end of the text.
    { "<a/>\xff<b/>", "( <a 4> )" },
    { "<a/>x\xffy", "( <a 4> 'x' )" },
    // An embedded NUL is a character of text.
};

const reading broken_documents[] = {
    // There must be one root element, and only one.
    { "", "( 80000008" },
    { " ", "( ' ' 80000008" },
    { "<!--c-->", "( !c! 80000008" },
    { "<?p?>", "( ?p? 80000008" },
    { "text", "( 'text' 80000008" },
    { "<![CDATA[x]]>", "( [x] 80000008" },
    { "\xff<a/>", "( 80000008" },
    // The second fails at its start, whatever it is.
    { "<a/><b/>", "( <a 4> 80000008" },
    { "<a/><b c=\"1\"/>", "( <a 4> 80000008" },
    { "<a></a>x<b></b>", "( <a 4> 'x' 80000008" },
    { "<a/><", "( <a 4> 80000008" },
    { "<a/><=", "( <a 4> 80000008" },
    { "<a/><!--c--><b", "( <a 4> !c! 80000008" },
    // End tags.
    { "</a>", "( 80020007" },
    { "</", "( 80020007" },
    { "<a/></a>", "( <a 4> 80020007" },
    { "<a></b>", "( <a 80020006" },
    { "<a></aa>", "( <a 80020006" },
    { "<aa></a>", "( <aa 80020006" },
    { "<a></A>", "( <a 80020006" },
    { "<a><b></a></b>", "( <a <b 80020006" },
    { "<a></a >", "( <a 80020007" },
    { "<a></b ", "( <a 80020007" },
    { "<a></a/>", "( <a 80020007" },
    { "<a></>", "( <a 80020001" },
    { "<a></ a>", "( <a 80020001" },
    { "<a>", "( <a 80020007" },
    { "<a>x", "( <a 'x' 80020007" },
    { "<a><b></b>", "( <a <b 4> 80020007" },
    { "<a>x\xff</a>", "( <a 'x' 80020007" },
    // Start tags.
    { "<>", "( 80020001" },
    { "< a/>", "( 80020001" },
    { "<:a/>", "( 80020001" },
    { "<a:b/>", "( 80020005" },
    { "<a\x80/>", "( 80020005" },
    { "<a\xff/>", "( 80020005" },
    { "<a<", "( 80020005" },
    { "<a/ >", "( 80020005" },
    { "<a/b>", "( 80020005" },
    { "<a ? >", "( 80020005" },
    // Attributes.
    { "<a b>", "( 80020005" },
    { "<a b/>", "( 80020005" },
    { "<a b c=\"1\"/>", "( 80020005" },
    { "<a b=1/>", "( 80020005" },
    { "<a b='1'/>", "( 80020005" },
    { "<a =\"1\"/>", "( 80020005" },
    { "<a b==\"1\"/>", "( 80020005" },
    { "<a b=\"1/>", "( 80020005" },
    { "<a b=\"1\n\"/>", "( 80020005" },
    { "<a b=\"&amp;\n\"/>", "( 80020005" },
    { "<a b=\"1\xff\"/>", "( 80020005" },
    { "<a b=\"1\" c=\"2/>", "( @b=1 80020005" },
    { "<a b=\"1\" ,/>", "( @b=1 80020005" },
    // Other markup.
    { "<!", "( 80020005" },
    { "<!-", "( 80020005" },
    { "<!- x -->", "( 80020005" },
    { "<!DOCTYPE a><a/>", "( 80020005" },
    { "<![cdata[x]]><a/>", "( 80020005" },
    { "<a><!ELEMENT b></a>", "( <a 80020005" },
    { "<!-->", "( 80020007" },
    { "<!--->", "( 80020007" },
    { "<!-- -- >", "( 80020007" },
    { "<!--x\xff-->", "( 80020007" },
    { "<a><![CDATA[]>]</a>", "( <a 80020007" },
    { "<a><![CDATA[x\xff]]></a>", "( <a 80020007" },
    { "<?\?>", "( 80020001" },
    { "<? p?>", "( 80020001" },
    { "<?p>", "( 80020005" },
    { "<?p ?", "( 80020005" },
    { "<?p ? >", "( 80020005" },
    { "<?p a?>", "( 80020005" },
    { "<?p some text?>", "( 80020005" },
    // Escapes.
    { "<a>&</a>", "( <a 80020006" },
    { "<a>&;</a>", "( <a 80020006" },
    { "<a>&nbsp;</a>", "( <a 80020006" },
    { "<a>&LT;</a>", "( <a 80020006" },
    { "<a>&lt ;</a>", "( <a 80020006" },
    { "<a>&ltt;</a>", "( <a 80020006" },
    { "<a>&l;</a>", "( <a 80020006" },
    { "<a>& x</a>", "( <a 80020006" },
    { "<a>&lt\n;</a>", "( <a 80020006" },
    { "<a>&lt\";</a>", "( <a 80020006" },
    { "<a>&lt\xff;</a>", "( <a 80020006" },
    { "<a b=\"&lt\"/>", "( 80020006" },
    { "<a b=\"&lt", "( 80020006" },
    { "<a>&#;</a>", "( <a 80020006" },
    { "<a>&#x;</a>", "( <a 80020006" },
    { "<a>&#0;</a>", "( <a 80020006" }, // the zero is the sign of the base
    { "<a>&#X41;</a>", "( <a 80020006" },
    { "<a>&#4a;</a>", "( <a 80020006" },
    { "<a>&#x4g;</a>", "( <a 80020006" },
    { "<a>&#x 4;</a>", "( <a 80020006" },
    { "<a>&#-1;</a>", "( <a 80020006" },
    { "<a>&#+1;</a>", "( <a 80020006" },
    { "<a>&# 1;</a>", "( <a 80020006" },
    { "<a>&#300a;</a>", "( <a 80020006" },
    { "<a>&#256;</a>", "( <a 80000008" },
    { "<a>&#300;</a>", "( <a 80000008" },
    { "<a>&#x100;</a>", "( <a 80000008" },
    { "<a>&#0100;</a>", "( <a 80000008" },
    { "<a>&#4294967361;</a>", "( <a 80000008" },
    { "<a>&#18446744073709551681;</a>", "( <a 80000008" },
};

TEST(xml_reader, reports_what_a_document_holds)
{
    for (const reading& r : sound_documents)
        EXPECT_EQ(r.events, events_of(r.text)) << r.text;
    EXPECT_EQ("( <a 'x\\x00y' 4> )", events_of(string("<a>x\0y</a>", 10)));
}

TEST(xml_reader, reports_a_failure_once_and_returns_its_code)
{
    for (const reading& r : broken_documents)
        EXPECT_EQ(r.events, events_of(r.text)) << r.text;
}

// Every beginning of a text, with the code that reading it gives: "." none, "o"
// 0x80000008, "n" 0x80020001, "s" 0x80020005, "u" 0x80020006, "e" 0x80020007.
TEST(xml_reader, each_truncation_has_its_code)
{
    const struct {
        const char* text;
        const char* codes;
    } cases[] = {
        { "<a/>", "onss." },
        { "<ab />", "onssss." },
        { "<a></a>", "onsenne." },
        { "<a>x</a>", "onseenne." },
        { "<a b=\"v\"/>", "onssssssss." },
        { "<a b = \"\">t</a>", "onsssssssseenne." },
        { "<a c=\"&lt;\"/>", "onsssssuuusss." },
        { "<a>&#65;</a>", "onseuuuuenne." },
        { "<a>&lt;</a>", "onseuuuenne." },
        { "<!--c--><a/>", "onsseeeeonss." },
        { "<a><!----></a>", "onsensseeeenne." },
        { "<a><![CDATA[]]></a>", "onsenssssssseeeenne." },
        { "<?p?><a/>", "onnssonss." },
        { "<?p a=\"v\" ?><a/>", "onnsssssssssonss." },
        { "<a><b/></a>", "onsenssenne." },
        { "<a/>\n", "onss.." },
        { "<a/><!---->", "onss.osseee." },
        { "<a/><?p?>", "onss.onss." },
    };
    for (const auto& c : cases) {
        const string text = c.text;
        string codes;
        for (std::size_t n = 0; n <= text.size(); ++n) {
            const guarded_text guarded(text.substr(0, n));
            xml_reader in;
            in.load_string(guarded.begin(), guarded.end(), false);
            xml_handler handler;
            switch (static_cast<unsigned>(in.read_doc(&handler))) {
            case 0: codes += '.'; break;
            case 0x80000008: codes += 'o'; break;
            case 0x80020001: codes += 'n'; break;
            case 0x80020005: codes += 's'; break;
            case 0x80020006: codes += 'u'; break;
            case 0x80020007: codes += 'e'; break;
            default: codes += '?';
            }
        }
        EXPECT_EQ(c.codes, codes) << text;
    }
}

TEST(xml_reader, a_name_is_made_of_71_characters)
{
    const auto begins_with = [](const string& start, const string& text) { return events_of(text).rfind(start, 0) == 0; };
    EXPECT_EQ(71, walk_bytes([&](char c) {
        const bool is_name = is_name_character(c);
        const string one(1, c), name = "n" + one;
        EXPECT_EQ(is_name, begins_with("( <" + one + " 4> )", "<" + one + "/>")) << testing::PrintToString(one);
        EXPECT_EQ(is_name, begins_with("( <" + name + " 4> )", "<" + name + "/>")) << testing::PrintToString(one);
        EXPECT_EQ(is_name, begins_with("( @" + name + "=1", "<a " + name + "=\"1\"/>")) << testing::PrintToString(one);
        EXPECT_EQ(is_name, begins_with("( ?" + name + "?", "<?" + name + "?><a/>")) << testing::PrintToString(one);
    }));
}

TEST(xml_reader, a_name_has_at_most_127_characters)
{
    const string longest(127, 'n');
    const string longer = longest + "n";
    EXPECT_EQ("( <" + longest + " 4> )", events_of("<" + longest + "/>"));
    EXPECT_EQ("( <" + longest + " 4> )", events_of("<" + longest + "></" + longest + ">"));
    EXPECT_EQ("( @" + longest + "=1 <a " + longest + "=1 4> )", events_of("<a " + longest + "=\"1\"/>"));
    EXPECT_EQ("( ?" + longest + "? <a 4> )", events_of("<?" + longest + "?><a/>"));
    for (const string& text : { "<" + longer + "/>", "<a " + longer + "=\"1\"/>", "<?" + longer + "?><a/>" })
        EXPECT_EQ("( 80000008", events_of(text)) << text;
    EXPECT_EQ("( <a 80000008", events_of("<a></" + longer + ">"));
    EXPECT_EQ("( 80020005", events_of("<" + longest)); // not cut short: the end, not the length
    EXPECT_EQ("( 80000008", events_of("<" + longer));
}

// Names repeat, and a reader may expect the next one: not behind the end of the text.
TEST(xml_reader, a_name_that_repeats_may_end_with_the_text)
{
    for (std::size_t n = 1; n <= 20; ++n) {
        const string name(n, 'n');
        EXPECT_EQ("( <" + name + " <" + name + " 80020005", events_of("<" + name + "><" + name + "><" + name)) << n;
        const string longer = name + "n";
        EXPECT_EQ("( <" + name + " <" + name + " <" + longer + " 4> 80020007",
                  events_of("<" + name + "><" + name + "><" + longer + "/>"))
            << n;
    }
}

TEST(xml_reader, messages)
{
    const struct {
        const char* text;
        int code;
        const char* message; // GBK
    } cases[] = {
        // met an unmatched end tag
        { "</a>", err::abnormal_end, "\xd3\xf6\xb5\xbd\xb2\xbb\xc6\xa5\xc5\xe4\xb5\xc4\xbd\xe1\xca\xf8\xb1\xea\xc7\xa9" },
        // unrecognised node type
        { "<!D", err::syntax, "\xce\xde\xb7\xa8\xca\xb6\xb1\xf0\xb5\xc4\xbd\xda\xb5\xe3\xc0\xe0\xd0\xcd" },
        // an XML file may have only one root node
        { "<a/><b/>", err::overflow,
          "XML\xce\xc4\xbc\xfe\xd6\xbb\xc4\xdc\xd3\xd0\xd2\xbb\xb8\xf6\xb8\xf9\xbd\xda\xb5\xe3" },
        // an XML file must have exactly one root node
        { "", err::overflow,
          "XML\xce\xc4\xbc\xfe\xb1\xd8\xd0\xeb\xd3\xd0\xc7\xd2\xd6\xbb\xd3\xd0\xd2\xbb\xb8\xf6\xb8\xf9\xbd\xda\xb5\xe3" },
        // the XML node ended abnormally
        { "<a", err::syntax, "XML\xbd\xda\xb5\xe3\xd2\xec\xb3\xa3\xbd\xe1\xca\xf8" },
        { "<a>", err::abnormal_end, "XML\xbd\xda\xb5\xe3\xd2\xec\xb3\xa3\xbd\xe1\xca\xf8" },
        { "<a></a", err::abnormal_end, "XML\xbd\xda\xb5\xe3\xd2\xec\xb3\xa3\xbd\xe1\xca\xf8" },
        // the start tag [%s] and the end tag [%s] of the XML node differ
        { "<a></b>", err::unexpected,
          "XML\xbd\xda\xb5\xe3\xbf\xaa\xca\xbc\xb1\xea\xc7\xa9[a]\xba\xcd\xbd\xe1\xca\xf8\xb1\xea\xc7\xa9[b]"
          "\xb2\xbb\xd2\xbb\xd6\xc2" },
        // an XML attribute must have the form Key = "XXX"
        { "<a b", err::syntax,
          "XML\xca\xf4\xd0\xd4\xb1\xd8\xd0\xeb\xca\xc7Key = \"XXX\"\xb5\xc4\xd0\xce\xca\xbd" },
        { "<a b='", err::syntax,
          "XML\xca\xf4\xd0\xd4\xb1\xd8\xd0\xeb\xca\xc7Key = \"XXX\"\xb5\xc4\xd0\xce\xca\xbd" },
        // the XML attribute string ended abnormally
        { "<a b=\"", err::syntax, "XML\xca\xf4\xd0\xd4\xd7\xd6\xb7\xfb\xb4\xae\xd2\xec\xb3\xa3\xbd\xe1\xca\xf8" },
        // XML name definition error
        { "<>", err::failed, "XML\xc3\xfb\xb3\xc6\xb6\xa8\xd2\xe5\xb4\xed\xce\xf3" },
        // an XML comment must end with -->
        { "<!--", err::abnormal_end, "XML\xd7\xa2\xca\xcd\xb1\xd8\xd0\xeb\xd2\xd4-->\xbd\xe1\xca\xf8" },
        // an XML CDATA node must end with ]]>
        { "<![CDATA[", err::abnormal_end, "XML CDATA\xbd\xda\xb5\xe3\xb1\xd8\xd0\xeb\xd2\xd4]]>\xbd\xe1\xca\xf8" },
        // an XML PI node must end with ?>
        { "<?p>", err::syntax, "XML PI\xbd\xda\xb5\xe3\xb1\xd8\xd0\xeb\xd2\xd4\?>\xbd\xe1\xca\xf8" },
        { "<a>&nbsp;</a>", err::unexpected, "invalid escape character sequences: nbsp" },
        { "<a>&</a>", err::unexpected, "invalid escape character sequences: </a>" },
        { "<a>&am\n", err::unexpected, "invalid escape character sequences: am" },
        { "<a>&am\"", err::unexpected, "invalid escape character sequences: am" },
        { "<a>&am", err::unexpected, "invalid escape character sequences: am" },
        { "<a>&#x4g;</a>", err::unexpected, "invalid escape character sequences: #x4g" },
        { "<a>&#300;</a>", err::overflow, "character value [300] overflow, range [0, 256)" },
        { "<a>&#x100;</a>", err::overflow, "character value [x100] overflow, range [0, 256)" },
    };
    for (const auto& c : cases) {
        xml_reader in;
        in.load_string(c.text);
        event_printer printer;
        EXPECT_EQ(c.code, in.read_doc(&printer)) << c.text;
        EXPECT_EQ(c.message, printer.message) << c.text;
    }
    // exceeds the maximum length of an XML name
    event_printer printer;
    xml_reader in;
    in.load_string(("<" + string(128, 'n')).c_str());
    in.read_doc(&printer);
    EXPECT_EQ("\xb3\xac\xb3\xf6XML\xc3\xfb\xb3\xc6\xb5\xc4\xd7\xee\xb4\xf3\xb3\xa4\xb6\xc8", printer.message);
    // an XML node must begin with <
    in.load_string("a");
    in.read_node(&printer);
    EXPECT_EQ("XML\xbd\xda\xb5\xe3\xb1\xd8\xd0\xeb\xd2\xd4<\xbf\xaa\xca\xbc", printer.message);
}

TEST(xml_reader, a_long_message_is_cut_at_255_characters)
{
    event_printer printer;
    xml_reader in;
    in.load_string(("<a>&" + string(1000, 'x') + ";").c_str());
    EXPECT_EQ(err::unexpected, in.read_doc(&printer));
    EXPECT_EQ("invalid escape character sequences: " + string(255 - 36, 'x'), printer.message);
    in.load_string(("<a>&#" + string(1000, '9') + ";").c_str());
    EXPECT_EQ(err::overflow, in.read_doc(&printer));
    EXPECT_THAT(printer.message, testing::StartsWith("character value [999"));
    in.load_string(("<" + string(127, 'a') + "></" + string(127, 'b') + ">").c_str());
    EXPECT_EQ(err::unexpected, in.read_doc(&printer));
    EXPECT_EQ(255u, printer.message.size());
}

TEST(xml_reader, keeps_the_line_of_the_last_failure_and_prints_it_nowhere)
{
    const struct {
        const char* text;
        int line;
        const char* error;
    } cases[] = {
        { "<a>&nbsp;", 1, "line(1): error(0x80020006): invalid escape character sequences: nbsp\n" },
        { "<a>&lt;\n\n&nbsp;", 3, "line(3): error(0x80020006): invalid escape character sequences: nbsp\n" },
        { "<a>\n\n&nbsp;", 3, "line(3): error(0x80020006): invalid escape character sequences: nbsp\n" },
        { "<!--\n--><?p\na=\"\"\n?>\n<a\nb=\n\"\">\n<![CDATA[\n]]>&x;", 9,
          "line(9): error(0x80020006): invalid escape character sequences: x\n" },
    };
    for (const auto& c : cases) {
        xml_reader in;
        EXPECT_STREQ("", in.get_error());
        in.load_string(c.text);
        event_printer printer;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        in.read_doc(&printer);
        EXPECT_EQ("", testing::internal::GetCapturedStdout());
        EXPECT_EQ("", testing::internal::GetCapturedStderr());
        EXPECT_EQ(c.line, printer.line) << c.text;
        EXPECT_STREQ(c.error, in.get_error());
    }
}

TEST(xml_reader, a_negative_result_of_the_handler_stops_it)
{
    const char* const text = "<?p a=\"1\"?><!--c--><a b=\"2\">t<![CDATA[d]]><c/></a>";
    xml_reader in;
    in.load_string(text);
    event_printer whole;
    ASSERT_EQ(0, in.read_doc(&whole));
    ASSERT_EQ("( @a=1 ?p a=1? !c! @b=2 <a b=2 't' [d] <c 4> 4> )", whole.events);
    for (int n = 1; n <= 12; ++n) {
        in.seek(0);
        event_printer printer;
        printer.stop_at = n;
        EXPECT_EQ(-5, in.read_doc(&printer)) << n;
        const string error = " FFFFFFFB";
        ASSERT_THAT(printer.events, testing::EndsWith(error)) << n;
        EXPECT_EQ("", printer.message);
        EXPECT_EQ(1, printer.errors);
        EXPECT_THAT(whole.events, testing::StartsWith(printer.events.substr(0, printer.events.size() - error.size())));
        EXPECT_STREQ("line(1): error(0xFFFFFFFB): \n", in.get_error());
    }
}

TEST(xml_reader, the_base_handler_accepts_everything)
{
    xml_handler handler;
    xml_reader in;
    in.load_string("<?p a=\"1\"?><!--c--><a b=\"2\">t<![CDATA[d]]><c/></a>");
    EXPECT_EQ(0, in.read_doc(&handler));
    EXPECT_EQ(&in, handler.get_reader());
    in.load_string("<a");
    EXPECT_EQ(err::syntax, in.read_doc(&handler));
}

TEST(xml_handler, has_its_functions_in_this_order)
{
    EXPECT_EQ(0u, slot_of(&xml_handler::onBeginDocument));
    EXPECT_EQ(1u, slot_of(&xml_handler::onEndDocument));
    EXPECT_EQ(2u, slot_of(&xml_handler::onError));
    EXPECT_EQ(3u, slot_of(&xml_handler::onBeginNode));
    EXPECT_EQ(4u, slot_of(&xml_handler::onEndNode));
    EXPECT_EQ(5u, slot_of(&xml_handler::onAttribute));
    EXPECT_EQ(6u, slot_of(&xml_handler::onPI));
    EXPECT_EQ(7u, slot_of(&xml_handler::onComment));
    EXPECT_EQ(8u, slot_of(&xml_handler::onText));
    EXPECT_EQ(9u, slot_of(&xml_handler::onCDATA));
    EXPECT_TRUE(std::has_virtual_destructor<xml_handler>::value);
}

TEST(xml_reader, wants_a_handler)
{
    xml_reader in;
    in.load_string("<a/>");
    EXPECT_EQ(err::invalid_parameter, in.read_doc(nullptr));
    EXPECT_EQ(err::invalid_parameter, in.read_node(nullptr));
    event_printer printer;
    in.set_handler(&printer);
    EXPECT_EQ(&in, printer.get_reader());
    EXPECT_EQ(0, in.read_doc(nullptr));
    EXPECT_EQ("( <a 4> )", printer.events);
    EXPECT_EQ(&printer, in.get_handler());
}

TEST(xml_reader, a_handler_that_throws_fails_the_read)
{
    struct thrower : event_printer {
        int onText(const share_str& text) override
        {
            if (text == "xcpt")
                throw xcpt(err::conflict, nullptr);
            if (text == "memory")
                throw std::bad_alloc();
            if (text == "own")
                throw std::runtime_error("own");
            throw xrterror(err::timeout, "%s", "late");
        }
    };
    xml_reader in;
    thrower handler;
    in.load_string("<a>xcpt</a>");
    EXPECT_EQ(err::conflict, in.read_doc(&handler));
    EXPECT_EQ("", handler.message);
    in.load_string("<a>runtime</a>");
    EXPECT_EQ(err::timeout, in.read_doc(&handler));
    EXPECT_EQ("late", handler.message);
    in.load_string("<a>memory</a>");
    EXPECT_EQ(err::out_of_memory, in.read_doc(&handler));
    EXPECT_EQ("out of memory", handler.message);
    // Exceptions of others pass, and the reader can be used again.
    in.load_string("<a>own</a>");
    EXPECT_THROW(in.read_doc(&handler), std::runtime_error);
    in.load_string("<a/>");
    handler.events = "";
    EXPECT_EQ(0, in.read_doc(&handler));
    EXPECT_EQ("( <a 4> )", handler.events);
}

TEST(xml_reader, read_node_reads_one_element_and_stops_behind_it)
{
    xml_reader in;
    in.load_string("<a><b/>x</a><c/> <d/>");
    event_printer printer;
    EXPECT_EQ(0, in.read_node(&printer));
    EXPECT_EQ("<a <b 4> 'x' 4>", printer.events);
    EXPECT_EQ(12u, in.get_pos());
    EXPECT_EQ(0, in.read_node(&printer));
    EXPECT_EQ(16u, in.get_pos());
    printer.events = "";
    EXPECT_EQ(err::syntax, in.read_node(&printer)); // a blank does not begin an element
    EXPECT_EQ(" 80020005", printer.events);
    in.getch();
    EXPECT_EQ(0, in.read_node(&printer));
    EXPECT_EQ(err::syntax, in.read_node(&printer));

    const reading cases[] = {
        { "", " 80020005" },
        { "a", " 80020005" },
        { "<", " 80020001" },
        { "<!---->", " 80020001" },
        { "<?p?>", " 80020001" },
        { "</a>", " 80020001" },
        { "<a>", "<a 80020007" },
        { "<a/>junk", "<a 4>" },
    };
    for (const reading& r : cases)
        EXPECT_EQ(r.events, events_of(r.text, &xml_reader::read_node)) << r.text;
}

TEST(xml_reader, a_document_is_read_from_the_position_on)
{
    xml_reader in;
    in.load_string("junk<a/>");
    in.seek(4);
    event_printer printer;
    EXPECT_EQ(0, in.read_doc(&printer));
    EXPECT_EQ("( <a 4> )", printer.events);
    EXPECT_EQ(8u, in.get_pos());
}

TEST(xml_reader, a_copy_has_the_text_and_not_the_handler)
{
    xml_reader in;
    event_printer printer;
    in.set_handler(&printer);
    in.load_string("<a/>");
    xml_reader copy(in);
    EXPECT_EQ(nullptr, copy.get_handler());
    EXPECT_EQ(0, copy.read_doc(&printer));
    xml_reader assigned;
    assigned = in;
    in.clear();
    EXPECT_EQ(0, assigned.read_doc(&printer));
    EXPECT_EQ("( <a 4> ) ( <a 4> )", printer.events);
}

// ---- levels

// Gives each level a number, and notes what it sees at each event.
struct level_printer : xml_handler {
    string seen;
    int depth = 0;
    std::vector<int> numbers = std::vector<int>(10);

    string number(void* p) { return p ? std::to_string(static_cast<int*>(p) - numbers.data()) : "-"; }
    int note(const char* event)
    {
        char path[100];
        EXPECT_LE(0, get_reader()->get_path(path, sizeof path));
        seen += string(event) + path + ":" + number(get_reader()->get_para()) + number(get_reader()->get_parent_para()) + " ";
        return 0;
    }
    int onBeginDocument() override
    {
        get_reader()->set_para(&numbers[0]);
        return note("(");
    }
    int onEndDocument() override { return note(")"); }
    int onBeginNode(const share_str&, attributes&) override
    {
        note("<");
        get_reader()->set_para(&numbers[static_cast<std::size_t>(++depth)]);
        return 0;
    }
    int onEndNode(xml_node_t) override { return note(">"); }
    int onAttribute(const share_str&, const share_str&) override { return note("@"); }
    int onText(const share_str&) override { return note("'"); }
    int onPI(const share_str&, attributes&) override { return note("?"); }
};

TEST(xml_reader, each_level_has_a_pointer_and_a_name)
{
    level_printer handler;
    xml_reader in;
    in.load_string("<?p?><a n=\"\">t<b/><c><d/></c></a>");
    ASSERT_EQ(0, in.read_doc(&handler));
    EXPECT_EQ("(:0- ?:0- @/a:-0 </a:-0 '/a:10 </a/b:-1 >/a/b:21 </a/c:-1 </a/c/d:-3 >/a/c/d:43 >/a/c:31 >/a:10 ):0- ",
              handler.seen);
    // Without a read there are no levels.
    in.set_para(&handler);
    EXPECT_EQ(nullptr, in.get_para());
    EXPECT_EQ(nullptr, in.get_parent_para());
    char path[4] = "x";
    EXPECT_EQ(0, in.get_path(path, sizeof path));
    EXPECT_STREQ("", path);

    handler.seen = "";
    handler.depth = 0;
    in.seek(5);
    ASSERT_EQ(0, in.read_node(&handler));
    EXPECT_EQ("@/a:-- </a:-- '/a:1- </a/b:-1 >/a/b:21 </a/c:-1 </a/c/d:-3 >/a/c/d:43 >/a/c:31 >/a:1- ", handler.seen);
}

TEST(xml_reader, a_path_is_cut_to_its_buffer_and_terminated)
{
    struct path_printer : xml_handler {
        string paths;
        int onText(const share_str&) override
        {
            for (unsigned size = 0; size <= 9; ++size) {
                char path[10];
                std::memset(path, '#', sizeof path);
                const int r = get_reader()->get_path(path, size);
                if (size > 0)
                    paths += string(path) + (r < 0 ? "!" : "=") + " ";
                else
                    EXPECT_EQ(err::invalid_parameter, r);
                EXPECT_EQ('#', path[size]);
            }
            EXPECT_EQ(err::invalid_parameter, get_reader()->get_path(nullptr, 5));
            return 0;
        }
    } handler;
    xml_reader in;
    in.load_string("<ab><c><de>t</de></c></ab>");
    ASSERT_EQ(0, in.read_doc(&handler));
    EXPECT_EQ("! /! /a! /ab! /ab/! /ab/c! /ab/c/! /ab/c/d! /ab/c/de= ", handler.paths);
}

TEST(xml_reader, a_handler_may_read_on_by_itself)
{
    // At each "include" it reads the element that follows for another handler.
    struct delegating_handler : event_printer {
        event_printer inner;
        string path;
        int onPI(const share_str& name, attributes& attrs) override
        {
            event_printer::onPI(name, attrs);
            const int r = get_reader()->read_node(&inner);
            char text[20];
            get_reader()->get_path(text, sizeof text);
            path = text;
            return r;
        }
    } handler;
    xml_reader in;
    in.load_string("<a x=\"1\"><?include y=\"2\"?><b z=\"3\"><c/></b><d/></a>");
    EXPECT_EQ(0, in.read_doc(&handler));
    EXPECT_EQ("( @x=1 <a x=1 @y=2 ?include y=2? <d 4> 4> )", handler.events);
    EXPECT_EQ("@z=3 <b z=3 <c 4> 4>", handler.inner.events);
    EXPECT_EQ("/a", handler.path);

    struct swapping_handler : event_printer {
        event_printer next;
        int onBeginNode(const share_str& name, attributes& attrs) override
        {
            get_reader()->set_handler(&next);
            return event_printer::onBeginNode(name, attrs);
        }
    } swapping;
    in.seek(0);
    EXPECT_EQ(0, in.read_doc(&swapping));
    EXPECT_EQ("( @x=1 <a x=1", swapping.events);
    EXPECT_EQ("@y=2 ?include y=2? @z=3 <b z=3 <c 4> 4> <d 4> 4> )", swapping.next.events);
}

TEST(xml_reader, a_handler_may_replace_the_text)
{
    struct replacing_handler : event_printer {
        int onBeginNode(const share_str& name, attributes& attrs) override
        {
            if (name == "a")
                get_reader()->load_string("<b/></a>");
            return event_printer::onBeginNode(name, attrs);
        }
        int onPI(const share_str&, attributes&) override
        {
            get_reader()->clear();
            throw xcpt(-1, "");
        }
    } handler;
    xml_reader in;
    in.load_string("<a>never read");
    EXPECT_EQ(0, in.read_doc(&handler));
    EXPECT_EQ("( <a <b 4> 4> )", handler.events);
    in.load_string("<?p?>");
    EXPECT_EQ(-1, in.read_doc(&handler));
    EXPECT_EQ(0u, in.get_size());
}

TEST(xml_reader, nesting_is_limited_by_memory_only)
{
    struct depth_handler : xml_handler {
        unsigned depth = 0, deepest = 0;
        int onBeginNode(const share_str&, attributes&) override
        {
            deepest = std::max(deepest, ++depth);
            return 0;
        }
        int onEndNode(xml_node_t) override
        {
            --depth;
            return 0;
        }
    } handler;
    const unsigned depth = 100000;
    const string text = nested(depth, "<a>", "", "</a>");
    xml_reader in;
    in.load_string(text.data(), text.data() + depth * 3);
    EXPECT_EQ(err::abnormal_end, in.read_doc(&handler));
    EXPECT_EQ(depth, handler.deepest);
    handler.depth = 0;
    in.load_string(text.data(), text.data() + text.size());
    EXPECT_EQ(0, in.read_doc(&handler));
    EXPECT_EQ(0u, handler.depth);
}

} // namespace
