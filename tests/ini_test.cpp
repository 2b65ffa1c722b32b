// INI text and documents: what the reader reports, what the document keeps, what
// it writes.
#include <stdkro/ini_doc.h>

#include <stdkro/xcpt.h>

#include "document_text.h"
#include "guarded_text.h"
#include "throwing_stream.h"
#include "virtual_slot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <new>
#include <random>
#include <sstream>
#include <stdexcept>
#include <type_traits>

namespace {

using std::string;

// Writes each event as a line's worth of text: "s[name]", "k[key|value]",
// "c[comment]", "e[code]", and the result behind "end".
class event_printer : public ini_handler {
public:
    int onBegin() override
    {
        events += "begin";
        return begin_result;
    }
    int onEnd(int result) override
    {
        events += " end " + (result < 0 ? hex(result) : std::to_string(result));
        return end_result ? end_result : result;
    }
    int onError(int code, const char* message) override
    {
        events += " e[" + hex(code) + "]";
        last_message = message;
        return error_result ? error_result : ini_handler::onError(code, message);
    }
    int onSection(const char* begin, const char* end) override { return note("s[" + string(begin, end) + "]"); }
    int onKeyValue(const char* key, const char* key_end, const char* value, const char* value_end) override
    {
        return note("k[" + string(key, key_end) + "|" + string(value, value_end) + "]");
    }
    int onComment(const char* begin, const char* end) override { return note("c[" + string(begin, end) + "]"); }

    string events;
    string last_message;
    int begin_result = 0;
    int end_result = 0;   // 0: what it was given
    int error_result = 0; // 0: the code
    int stop_after = -1;  // events until `stop_result` is returned
    int stop_result = err::rejected;
    std::vector<int> lines; // the reader's line at each event

private:
    int note(const string& event)
    {
        events += " " + event;
        lines.push_back(get_reader()->get_line());
        return stop_after >= 0 && stop_after-- == 0 ? stop_result : 0;
    }
};

string events_of(const string& text)
{
    const guarded_text guarded(text);
    ini_reader in;
    EXPECT_EQ(0, in.load_string(guarded.begin(), guarded.end(), false));
    event_printer printer;
    const int r = in.read_ini(&printer);
    EXPECT_THAT(printer.events, testing::EndsWith(" end " + (r < 0 ? hex(r) : std::to_string(r))));
    return printer.events;
}

// The reader once more, one character at a time, as plainly as its rules can be
// put: the independent answer for generated input.
class naive_reader {
public:
    explicit naive_reader(const string& text) : text_(text), at_(0) {}

    string read()
    {
        events_ = "begin";
        while (item()) {
        }
        return events_ + " end " + result_;
    }

private:
    int getch() { return at_ < text_.size() ? static_cast<signed char>(text_[at_++]) : -1; }

    static bool space(int ch) { return ch == ' ' || (ch >= 9 && ch <= 13); }

    string trim(string s)
    {
        while (!s.empty() && space(s.front()))
            s.erase(0, 1);
        while (!s.empty() && space(s.back()))
            s.pop_back();
        return s;
    }

    // The text from `begin` to the position minus one.
    string piece(std::size_t begin) { return at_ <= begin ? "" : text_.substr(begin, at_ - 1 - begin); }

    bool fail()
    {
        events_ += " e[80020005]";
        result_ = "80020005";
        return false;
    }

    bool item()
    {
        while (at_ < text_.size() && space(text_[at_]))
            ++at_;
        std::size_t begin = at_;
        int ch = getch();
        if (ch == -1)
            return false;
        if (ch == '[') {
            begin = at_;
            do
                ch = getch();
            while (ch != ']' && ch != '\n' && ch != -1);
            const string name = trim(piece(begin));
            if (ch != ']' || name.empty())
                return fail();
            events_ += " s[" + name + "]";
        } else if (ch == '=') {
            return fail();
        } else if (ch == ';') {
            events_ += " c[" + rest_of_line() + "]";
        } else {
            do
                ch = getch();
            while (ch != '=' && ch != '\n' && ch != -1);
            if (ch != '=')
                return fail();
            const string key = trim(piece(begin));
            events_ += " k[" + key + "|" + trim(rest_of_line()) + "]";
        }
        return true;
    }

    string rest_of_line()
    {
        const std::size_t begin = at_;
        int ch;
        do
            ch = getch();
        while (ch != '\n' && ch != -1);
        return piece(begin);
    }

    string text_;
    std::size_t at_;
    string events_;
    string result_ = "0";
};

string written(const ini_doc& doc)
{
    std::ostringstream out;
    EXPECT_EQ(0, doc.write(out));
    return out.str();
}

int read_text(ini_doc& doc, const string& text)
{
    ini_reader in;
    EXPECT_EQ(0, in.load_string(text.data(), text.data() + text.size(), false));
    return doc.read(in);
}

ini_doc doc_of(const string& text)
{
    ini_doc doc;
    EXPECT_EQ(0, read_text(doc, text));
    return doc;
}

string text_of(const share_str& s) { return string(s.c_str(), s.length()); }

string text_of(const attributes& list)
{
    string text;
    for (unsigned i = 0; i < list.count(); ++i)
        text += (i ? " " : "") + text_of(list[i].get_name()) + "=" + text_of(list[i].get_value());
    return text;
}

string temporary_path(const char* name) { return testing::TempDir() + "stdkro_" + name; }

string bytes_of(const string& path)
{
    std::ifstream in(path, std::ios::binary);
    return string(std::istreambuf_iterator<char>(in), {});
}

void save(const string& path, const string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

// ---- the reader -------------------------------------------------------------

struct event_case {
    string text;
    const char* events;
};

void expect_events(std::initializer_list<event_case> cases)
{
    for (const event_case& c : cases)
        EXPECT_EQ(c.events, events_of(c.text)) << "text: " << testing::PrintToString(c.text);
}

TEST(ini_reader, reports_sections_pairs_and_comments_in_order)
{
    expect_events({
        { "", "begin end 0" },
        { "\n", "begin end 0" },
        { " \t\v\f\r\n\n", "begin end 0" },
        { "[a]\n", "begin s[a] end 0" },
        { "a=1\n", "begin k[a|1] end 0" },
        { "[a]\nx=1\ny=2\n[b]\n", "begin s[a] k[x|1] k[y|2] s[b] end 0" },
        { "; hello\n", "begin c[ hello] end 0" },
        { "a=1\n;c\nb=2\n", "begin k[a|1] c[c] k[b|2] end 0" },
    });
}

TEST(ini_reader, reads_the_value_up_to_the_line_end_whatever_it_holds)
{
    expect_events({
        { "k = v = w\n", "begin k[k|v = w] end 0" },
        { "k=v ;c\n", "begin k[k|v ;c] end 0" },
        { "k=[v]\n", "begin k[k|[v]] end 0" },
        { "k==\n", "begin k[k|=] end 0" },
        { "k=\n", "begin k[k|] end 0" },
        { "k= \t \n", "begin k[k|] end 0" },
        { "k=\"v\"\n", "begin k[k|\"v\"] end 0" },
    });
}

TEST(ini_reader, goes_on_behind_a_header_on_the_same_line)
{
    expect_events({
        { "[s] x=1\n", "begin s[s] k[x|1] end 0" },
        { "[a][b]\n", "begin s[a] s[b] end 0" },
        { "[a] ;c\n", "begin s[a] c[c] end 0" },
        { "[a]x\n", "begin s[a] e[80020005] end 80020005" },
        { "[a]=\n", "begin s[a] e[80020005] end 80020005" },
        { "[a]]=1\n", "begin s[a] k[]|1] end 0" },
        { "[a[b]\n", "begin s[a[b] end 0" },
        { "[a;b=c]\n", "begin s[a;b=c] end 0" },
    });
}

TEST(ini_reader, trims_white_space_but_never_the_bytes_of_multi_byte_text)
{
    expect_events({
        { "[ \t\v\f\ra\r\f\v\t ]\n", "begin s[a] end 0" },
        { "  k\t = \t v w \r\n", "begin k[k|v w] end 0" },
        { "k=\xA0v\xA0\n", "begin k[k|\xA0v\xA0] end 0" },
        { "k= \xC4\xDA \n", "begin k[k|\xC4\xDA] end 0" },
        { "[\x85 a \x85]\n", "begin s[\x85 a \x85] end 0" },
        { ";  a  \n", "begin c[  a  ] end 0" },
        { ";\n", "begin c[] end 0" },
        { ";a\r\n", "begin c[a\r] end 0" },
    });
}

TEST(ini_reader, reports_each_syntax_error_and_ends)
{
    static const struct { const char* text; const char* events; const char* message; } cases[] = {
        // GBK: the section name has no end
        { "[a\n]\n", "begin e[80020005] end 80020005", "\xb6\xce\xc3\xfb\xc3\xbb\xd3\xd0\xbd\xe1\xca\xf8\xa3\xba\xc8\xb1\xc9\xd9]" },
        { "[a", "begin e[80020005] end 80020005", "\xb6\xce\xc3\xfb\xc3\xbb\xd3\xd0\xbd\xe1\xca\xf8\xa3\xba\xc8\xb1\xc9\xd9]" },
        { "[", "begin e[80020005] end 80020005", "\xb6\xce\xc3\xfb\xc3\xbb\xd3\xd0\xbd\xe1\xca\xf8\xa3\xba\xc8\xb1\xc9\xd9]" },
        // GBK: the section name is empty
        { "[]\n", "begin e[80020005] end 80020005", "\xb6\xce\xc3\xfb\xce\xaa\xbf\xd5" },
        { "[ \t]\n", "begin e[80020005] end 80020005", "\xb6\xce\xc3\xfb\xce\xaa\xbf\xd5" },
        // GBK: the key name is empty
        { "=1\n", "begin e[80020005] end 80020005", "\xbc\xfc\xc3\xfb\xce\xaa\xbf\xd5" },
        { "  =1\n", "begin e[80020005] end 80020005", "\xbc\xfc\xc3\xfb\xce\xaa\xbf\xd5" },
        // GBK: the key has no value
        { "k\nx=1\n", "begin e[80020005] end 80020005", "\xbc\xfc\xc3\xbb\xd3\xd0\xd6\xb5\xa3\xba\xc8\xb1\xc9\xd9=" },
        { "k", "begin e[80020005] end 80020005", "\xbc\xfc\xc3\xbb\xd3\xd0\xd6\xb5\xa3\xba\xc8\xb1\xc9\xd9=" },
        // What came before was reported.
        { "a=1\n[b]\nc\nd=1\n", "begin k[a|1] s[b] e[80020005] end 80020005", "\xbc\xfc\xc3\xbb\xd3\xd0\xd6\xb5\xa3\xba\xc8\xb1\xc9\xd9=" },
    };
    for (const auto& c : cases) {
        ini_reader in;
        in.load_string(c.text, nullptr, false);
        event_printer printer;
        EXPECT_EQ(err::syntax, in.read_ini(&printer)) << c.text;
        EXPECT_EQ(c.events, printer.events) << c.text;
        EXPECT_EQ(c.message, printer.last_message) << c.text;
    }
}

TEST(ini_reader, loses_the_last_byte_of_a_last_line_without_a_line_end)
{
    expect_events({
        { "k=value", "begin k[k|valu] end 0" },
        { "k=v", "begin k[k|] end 0" },
        { "k=", "begin k[k|] end 0" },
        { "k = v ", "begin k[k|v] end 0" },
        { ";comment", "begin c[commen] end 0" },
        { ";", "begin c[] end 0" },
        { "[s]", "begin s[s] end 0" }, // the "]" was passed: nothing is lost
    });
}

TEST(ini_reader, takes_a_byte_255_for_the_end_of_the_text)
{
    expect_events({
        { "\xFF" "a=1\n", "begin end 0" },
        { " \xFF", "begin end 0" },
        { "[a\xFF]\n", "begin e[80020005] end 80020005" },
        { "a\xFF=1\n", "begin e[80020005] end 80020005" },
        // In a value or comment it cuts nothing, and reading goes on behind it.
        { "a=1\xFF" "b=2\n", "begin k[a|1] k[b|2] end 0" },
        { ";c\xFF" "b=2\n", "begin c[c] k[b|2] end 0" },
        { "a=1\xFF", "begin k[a|1] end 0" },
        { "a=\xFF\xFF" "b=1\n", "begin k[a|] end 0" },
        { "0123456789=0123456789\xFF" "b=2\n", "begin k[0123456789|0123456789] k[b|2] end 0" },
    });
}

TEST(ini_reader, keeps_nul_bytes)
{
    EXPECT_EQ(string("begin k[a\0b|c\0d] end 0", 22), events_of(string("a\0b=c\0d\n", 8)));
    EXPECT_EQ(string("begin s[a\0] end 0", 17), events_of(string("[a\0]\n", 5)));
}

TEST(ini_reader, does_not_ask_the_locale_what_white_space_is)
{
    const char* const was = std::setlocale(LC_CTYPE, nullptr);
    const string before = was ? was : "C";
    for (const char* name : { "", "en_US.ISO-8859-1", "C.UTF-8" })
        std::setlocale(LC_CTYPE, name);
    EXPECT_EQ("begin k[\xA0k\x85|\xA0v\x85] end 0", events_of("\xA0k\x85=\xA0v\x85\n"));
    std::setlocale(LC_CTYPE, before.c_str());
}

TEST(ini_reader, finds_ends_at_every_distance)
{
    for (std::size_t n = 1; n < 40; ++n) {
        const string key(n, 'k');
        const string value(40 - n, 'v');
        EXPECT_EQ("begin s[" + key + "] k[" + key + "|" + value + "] end 0",
                  events_of("[" + key + "]" + key + "=" + value + "\n"));
        EXPECT_EQ("begin k[" + key + "|" + value + "] end 0", events_of(key + "=" + value + "\xFF"));
        EXPECT_EQ("begin e[80020005] end 80020005", events_of(key + "\n="));
        EXPECT_EQ("begin e[80020005] end 80020005", events_of(key + "\xFF="));
    }
}

TEST(ini_reader, is_ended_by_a_negative_result)
{
    const string text = "a=1\n[s]\n;c\nb=2\n";
    static const char* const ends[] = {
        "begin k[a|1] end 8002000D",
        "begin k[a|1] s[s] end 8002000D",
        "begin k[a|1] s[s] c[c] end 8002000D",
        "begin k[a|1] s[s] c[c] k[b|2] end 8002000D",
    };
    for (int i = 0; i < 4; ++i) {
        ini_reader in;
        in.load_string(text.c_str(), nullptr, false);
        event_printer printer;
        printer.stop_after = i;
        EXPECT_EQ(err::rejected, in.read_ini(&printer));
        EXPECT_EQ(ends[i], printer.events);
    }
}

TEST(ini_reader, gives_onEnd_the_last_result_and_returns_what_it_returns)
{
    ini_reader in;
    in.load_string("a=1\n", nullptr, false);
    event_printer positive;
    positive.stop_after = 0;
    positive.stop_result = 7;
    EXPECT_EQ(7, in.read_ini(&positive));
    EXPECT_EQ("begin k[a|1] end 7", positive.events);

    in.load_string("", nullptr, false);
    event_printer begun;
    begun.begin_result = 3;
    EXPECT_EQ(3, in.read_ini(&begun));

    in.load_string("a=1\n", nullptr, false);
    event_printer ended;
    ended.end_result = 5;
    EXPECT_EQ(5, in.read_ini(&ended));
}

TEST(ini_reader, ends_at_an_error_even_if_onError_takes_it_well)
{
    ini_reader in;
    in.load_string("=\na=1\n", nullptr, false);
    event_printer printer;
    printer.error_result = 9;
    EXPECT_EQ(9, in.read_ini(&printer));
    EXPECT_EQ("begin e[80020005] end 9", printer.events);
}

TEST(ini_reader, returns_a_failed_onBegin_without_onEnd)
{
    ini_reader in;
    in.load_string("a=1\n", nullptr, false);
    event_printer printer;
    printer.begin_result = err::rejected;
    EXPECT_EQ(err::rejected, in.read_ini(&printer));
    EXPECT_EQ("begin", printer.events);
    EXPECT_EQ(&in, printer.get_reader());
}

TEST(ini_handler, has_its_functions_in_this_order)
{
    EXPECT_EQ(0u, slot_of(&ini_handler::onBegin));
    EXPECT_EQ(1u, slot_of(&ini_handler::onEnd));
    EXPECT_EQ(2u, slot_of(&ini_handler::onError));
    EXPECT_EQ(3u, slot_of(&ini_handler::onSection));
    EXPECT_EQ(4u, slot_of(&ini_handler::onKeyValue));
    EXPECT_EQ(5u, slot_of(&ini_handler::onComment));
    EXPECT_TRUE(std::has_virtual_destructor<ini_handler>::value);
    EXPECT_TRUE(std::has_virtual_destructor<ini_doc>::value);
}

TEST(ini_handler, may_be_made_with_a_reader_and_gets_the_one_that_drives_it)
{
    struct idle : ini_handler {
        using ini_handler::ini_handler;
        int onBegin() override { return 0; }
        int onEnd(int result) override { return result; }
        int onSection(const char*, const char*) override { return 0; }
        int onKeyValue(const char*, const char*, const char*, const char*) override { return 0; }
    };
    EXPECT_EQ(nullptr, idle().get_reader());
    ini_reader first, second;
    idle handler(&first);
    EXPECT_EQ(&first, handler.get_reader());
    EXPECT_EQ(0, second.read_ini(&handler));
    EXPECT_EQ(&second, handler.get_reader());
    handler.set_reader(nullptr);
    EXPECT_EQ(nullptr, handler.get_reader());
}

TEST(ini_reader, refuses_a_null_handler)
{
    ini_reader in;
    EXPECT_EQ(static_cast<int>(0x8002000e), in.read_ini(nullptr));
}

TEST(ini_reader, reads_nothing_from_a_reader_without_text)
{
    ini_reader in;
    event_printer printer;
    EXPECT_EQ(0, in.read_ini(&printer));
    EXPECT_EQ("begin end 0", printer.events);
}

TEST(ini_reader, stands_at_the_end_when_it_is_done)
{
    for (const string text : { "a=1\n", "a=1\n \n ", "[s]", " ", ";c" }) {
        ini_reader in;
        in.load_string(text.data(), text.data() + text.size(), true);
        event_printer printer;
        EXPECT_EQ(0, in.read_ini(&printer));
        EXPECT_EQ(in.get_size(), in.get_pos()) << text;
    }
}

TEST(ini_reader, counts_lines)
{
    ini_reader in;
    in.load_string("\n\na=1\n[s] b=2\n;c\nd=4", nullptr, false);
    event_printer printer;
    EXPECT_EQ(0, in.read_ini(&printer));
    // Behind a value or comment its line feed was passed, behind a header not.
    EXPECT_THAT(printer.lines, testing::ElementsAre(4, 4, 5, 6, 6));
}

TEST(ini_reader, agrees_with_a_naive_reader_on_every_truncation)
{
    static const char* const texts[] = {
        "[section]\n", "[ s ] x = 1 ; y\n", "key = value = more\n", "; comment\n", "[a][b];c\n",
        " k=v\r\n\r\n[s]\r\n", "k=\nk= \n", "[\xC4\xDA]\xC4=\xDA\n", "[a\xFF]k\xFF=v\xFF;c\xFF\n",
    };
    for (const string text : texts)
        for (std::size_t n = 0; n <= text.size(); ++n)
            EXPECT_EQ(naive_reader(text.substr(0, n)).read(), events_of(text.substr(0, n)))
                << testing::PrintToString(text.substr(0, n));
}

TEST(ini_reader, agrees_with_a_naive_reader_on_random_text)
{
    std::mt19937 random(20260131);
    const string alphabet("[]=;\n\n \tab\r\xFF\xA0\0x", 16);
    for (int i = 0; i < 4000; ++i) {
        string text;
        for (std::size_t n = random() % 40; n > 0; --n)
            text += alphabet[random() % (i % 2 ? alphabet.size() : 10)];
        ini_reader in;
        in.load_string(text.data(), text.data() + text.size(), true);
        event_printer printer;
        in.read_ini(&printer);
        ASSERT_EQ(naive_reader(text).read(), printer.events) << testing::PrintToString(text);
    }
}

// ---- pairs and lists --------------------------------------------------------

TEST(attribute, holds_a_name_and_a_value)
{
    attribute none;
    EXPECT_TRUE(none.get_name().isempty());
    EXPECT_TRUE(none.get_value().isempty());
    attribute pair("n", "v");
    attribute copy(pair);
    copy.set_name("m");
    copy.set_value("w");
    EXPECT_EQ("n", text_of(pair.get_name()));
    EXPECT_EQ("v", text_of(pair.get_value()));
    none = copy;
    EXPECT_EQ("m", text_of(none.get_name()));
    EXPECT_EQ("w", text_of(none.get_value()));
}

TEST(attributes, keeps_order_and_repeated_names)
{
    attributes list;
    EXPECT_EQ(0u, list.count());
    attribute* const first = list.add_attr("b", "1");
    list.add_attr(attribute("a", "2"));
    list.add_attr("b", "3");
    EXPECT_EQ("b=1 a=2 b=3", text_of(list));
    EXPECT_EQ(first, list.find_attr("b"));
    EXPECT_EQ(0, list.find_attr(0, "b"));
    EXPECT_EQ(2, list.find_attr(1, "b"));
    EXPECT_EQ(-1, list.find_attr(3, "b"));
    EXPECT_EQ(-1, list.find_attr(4000000000u, "b"));
    EXPECT_EQ(-1, list.find_attr(0, "B"));
    EXPECT_EQ(-1, list.find_attr(0, "bb"));
    EXPECT_EQ(-1, list.find_attr(0, ""));
}

TEST(attributes, inserts_at_an_index_and_appends_past_the_end)
{
    attributes list;
    list.add_attr(5, "b", "2");
    list.add_attr(0, "a", "1");
    list.add_attr(2, "d", "4");
    list.add_attr(2, "c", "3");
    list.add_attr(UINT_MAX, "e", "5");
    EXPECT_EQ("a=1 b=2 c=3 d=4 e=5", text_of(list));
}

TEST(attributes, has_no_match_for_a_null_name)
{
    attributes list;
    list.add_attr("", "empty");
    const char* const null = nullptr;
    EXPECT_EQ(nullptr, list.find_attr(null));
    EXPECT_EQ(-1, list.find_attr(0, null));
    EXPECT_EQ(4, list.read(null, 4));
    EXPECT_EQ(0, list.find_attr(0, ""));
}

TEST(attributes, generates_a_pair_that_is_missing)
{
    attributes list;
    list.add_attr("a", "1");
    list.add_attr("a", "2");
    EXPECT_EQ(list.get_attr(0), list.gen_attr("a"));
    attribute* const made = list.gen_attr("b");
    EXPECT_EQ(list.get_attr(2), made);
    EXPECT_EQ("a=1 a=2 b=", text_of(list));
}

TEST(attributes, gives_null_past_the_end)
{
    attributes list;
    EXPECT_EQ(nullptr, list.get_attr(0));
    list.remove_attr(0);
    list.add_attr("a", "1");
    EXPECT_NE(nullptr, list.get_attr(0));
    EXPECT_EQ(nullptr, list.get_attr(1));
    EXPECT_EQ(nullptr, static_cast<const attributes&>(list).get_attr(1));
    EXPECT_EQ(nullptr, static_cast<const attributes&>(list).get_attr(UINT_MAX));
    list.remove_attr(1);
    EXPECT_EQ(1u, list.count());
}

TEST(attributes, reports_a_bug_for_an_index_past_the_end)
{
    attributes list;
    testing::internal::CaptureStdout();
    list[3].set_name("stray");
    const string printed = testing::internal::GetCapturedStdout();
    EXPECT_THAT(printed, testing::StartsWith("BUG at src/attribute:"));
    EXPECT_THAT(printed, testing::EndsWith("!\n"));
    EXPECT_EQ(0u, list.count());
    testing::internal::CaptureStdout();
    EXPECT_TRUE(static_cast<const attributes&>(list)[0].get_name().isempty());
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::StartsWith("BUG at "));
}

TEST(attributes, removes_and_clears)
{
    attributes list;
    for (const char* name : { "a", "b", "c", "d" })
        list.add_attr(name, "");
    list.remove_attr(1);
    EXPECT_EQ("a= c= d=", text_of(list));
    list.remove_attr(2);
    list.remove_attr(0);
    EXPECT_EQ("c=", text_of(list));
    list.clear();
    EXPECT_EQ(0u, list.count());
    list.add_attr("e", "5");
    EXPECT_EQ("e=5", text_of(list));
}

TEST(attributes, copies_deeply_and_swaps)
{
    attributes list;
    list.add_attr("a", "1");
    list.add_attr("b", "2");
    attributes copy(list);
    copy.get_attr(0)->set_value("9");
    EXPECT_EQ("a=1 b=2", text_of(list));
    EXPECT_EQ("a=9 b=2", text_of(copy));

    attributes assigned;
    assigned.add_attr("z", "0");
    assigned = list;
    assigned = *&assigned;
    EXPECT_EQ("a=1 b=2", text_of(assigned));

    attribute* const kept = list.get_attr(0);
    attributes other;
    other.swap(list);
    EXPECT_EQ(kept, other.get_attr(0));
    EXPECT_EQ(0u, list.count());
}

TEST(attributes, keeps_the_addresses_of_its_pairs)
{
    attributes list;
    attribute* const first = list.add_attr("first", "1");
    for (int i = 0; i < 1000; ++i)
        list.add_attr(0, "n", "v");
    EXPECT_EQ(first, list.get_attr(1000));
    EXPECT_EQ(first, list.find_attr("first"));
}

TEST(attributes, may_be_given_its_own_texts)
{
    attributes list;
    list.add_attr("name", "value");
    for (int i = 0; i < 100; ++i)
        list.add_attr(list[0].get_value(), list[0].get_name());
    EXPECT_EQ("value", text_of(list[100].get_name()));
    list.add_attr(list[100]);
    EXPECT_EQ("name", text_of(list[101].get_value()));
}

TEST(attributes, is_virtual_only_in_its_destructor)
{
    EXPECT_TRUE(std::has_virtual_destructor<attributes>::value);
    EXPECT_TRUE(std::has_virtual_destructor<ini_doc>::value);
    EXPECT_TRUE(std::has_virtual_destructor<ini_handler>::value);
    attributes* const section = new ini_section("s");
    section->add_attr("a", "b");
    delete section;
}

// Look-ups in long lists go through an index: it must see every kind of change.
TEST(attributes, finds_the_first_match_after_any_change)
{
    std::mt19937 random(7);
    attributes list;
    std::vector<std::pair<string, string>> plain;
    const auto name_of = [&] { return "n" + std::to_string(random() % 60); };
    for (int step = 0; step < 6000; ++step) {
        const string name = name_of();
        const unsigned at = plain.empty() ? 0 : static_cast<unsigned>(random() % plain.size());
        switch (random() % 12) {
        case 0:
            list.add_attr(at, name.c_str(), "v");
            plain.insert(plain.begin() + at, { name, "v" });
            break;
        case 1:
            if (plain.size() > 40) {
                list.remove_attr(at);
                plain.erase(plain.begin() + at);
            }
            break;
        case 2:
            if (!plain.empty()) {
                list.get_attr(at)->set_name(name.c_str());
                plain[at].first = name;
            }
            break;
        case 3:
            if (!plain.empty()) {
                *list.get_attr(at) = attribute(name.c_str(), "w");
                plain[at] = { name, "w" };
            }
            break;
        case 4:
            if (plain.size() > 150 || random() % 500 == 0) {
                list.clear();
                plain.clear();
            }
            break;
        case 5: {
            attributes copy(list);
            copy.swap(list);
            break;
        }
        case 6:
        case 7:
            list.add_attr(name.c_str(), "a");
            plain.push_back({ name, "a" });
            break;
        default: {
            int expected = -1;
            for (std::size_t i = 0; i < plain.size() && expected < 0; ++i)
                if (plain[i].first == name)
                    expected = static_cast<int>(i);
            ASSERT_EQ(expected, list.find_attr(0, name.c_str())) << "step " << step;
            ASSERT_EQ(expected < 0 ? nullptr : list.get_attr(static_cast<unsigned>(expected)),
                      list.find_attr(name.c_str()));
            int later = -1;
            for (std::size_t i = at; i < plain.size() && later < 0; ++i)
                if (plain[i].first == name)
                    later = static_cast<int>(i);
            ASSERT_EQ(later, list.find_attr(at, name.c_str())) << "step " << step;
        }
        }
        ASSERT_EQ(plain.size(), list.count());
    }
}

// ---- typed reads and writes -------------------------------------------------

TEST(attributes, reads_an_int_when_nothing_is_left_over)
{
    static const struct { const char* text; int value; } cases[] = {
        { "12", 12 }, { "-12", -12 }, { "+12", 12 }, { " 12", 12 }, { "\t\n\v\f\r 12", 12 },
        { "012", 12 }, { "0", 0 }, { "-0", 0 },
        // An empty value is 0.
        { "", 0 },
        // Leftovers give the default.
        { "12x", -7 }, { "12 ", -7 }, { "x", -7 }, { " ", -7 }, { "+", -7 }, { "-", -7 }, { "0x10", -7 },
        { "1.5", -7 }, { "--1", -7 }, { "1e3", -7 },
        // Beyond 32 bits the nearest value.
        { "2147483647", INT_MAX }, { "2147483648", INT_MAX }, { "99999999999999999999", INT_MAX },
        { "-2147483648", INT_MIN }, { "-2147483649", INT_MIN }, { "-99999999999999999999", INT_MIN },
    };
    for (const auto& c : cases) {
        attributes list;
        list.add_attr("n", c.text);
        EXPECT_EQ(c.value, list.read("n", -7)) << "text: '" << c.text << "'";
        EXPECT_EQ(-7, list.read("m", -7));
    }
}

TEST(attributes, reads_a_double_when_nothing_is_left_over)
{
    const double infinite = std::numeric_limits<double>::infinity();
    static const struct { const char* text; double value; } cases[] = {
        { "1.5", 1.5 }, { "-1.5", -1.5 }, { "+1.5", 1.5 }, { " 1.5", 1.5 }, { "1e3", 1000.0 }, { "1E-2", 0.01 },
        { ".5", 0.5 }, { "5.", 5.0 }, { "12", 12.0 }, { "0.1", 0.1 }, { "1e400", infinite }, { "-1e400", -infinite },
        { "1e-400", 0.0 }, { "123456789012345678", 123456789012345678.0 },
        { "", 0.0 },
        { "inf", infinite }, { "-INF", -infinite }, { "Infinity", infinite }, { " \t\n\v\f\r inf", infinite },
        { "0x10", 16.0 }, { "-0X1.8p1", -3.0 }, { "0x.8", 0.5 },
        { "0x1p99999", infinite }, { "-0x1p99999", -infinite }, { "0x1p-99999", 0.0 },
        { "1.5x", -7.0 }, { "1.5 ", -7.0 }, { "x", -7.0 }, { " ", -7.0 }, { "1,5", -7.0 }, { ".", -7.0 }, { "1e", -7.0 },
        { "infx", -7.0 }, { "in", -7.0 }, { "0x", -7.0 }, { "0xg", -7.0 }, { "0x1g", -7.0 }, { "i", -7.0 }, { "n", -7.0 },
    };
    for (const auto& c : cases) {
        attributes list;
        list.add_attr("n", c.text);
        EXPECT_EQ(c.value, list.read("n", -7.0)) << "text: '" << c.text << "'";
        EXPECT_EQ(-7.0, list.read("m", -7.0));
    }
    // Hexadecimal numbers too large are infinite and those too small 0, however they are written.
    const string zeros(300, '0');
    const string fs(400, 'f');
    const struct { string text; double value; } hexadecimal[] = {
        { "0x0." + zeros + "1", 0.0 }, { "-0x." + zeros + "1p-1", 0.0 }, { "0x0." + zeros + "1p1204", 1.0 },
        { "0x0." + zeros + "1p+99999", infinite }, { "0x" + fs, infinite }, { "0x" + fs + "p-1", infinite },
        { "-0x" + fs + "." + fs + "p-1", -infinite }, { "0x" + fs + "p-99999", 0.0 }, { "0x1" + zeros + "p-1200", 1.0 },
        { "0x" + zeros + "1p-1", 0.5 }, { "0x" + zeros + "." + zeros + "p-1", 0.0 },
        { "0x1p99999999999999999999", infinite }, { "0x1p-99999999999999999999", 0.0 },
        { "-0X.8P+18446744073709551617", -infinite }, { "0x0p99999999999999999999", 0.0 },
        { "0x0.0p-99999999999999999999", 0.0 }, { "0x10p1020", infinite }, { "0x0.01p-1070", 0.0 },
        { "0x1.fffffffffffff8p1023", infinite },
    };
    for (const auto& c : hexadecimal) {
        attributes list;
        list.add_attr("n", c.text.c_str());
        EXPECT_EQ(c.value, list.read("n", -7.0)) << c.text;
        list.write("n", (c.text + "x").c_str());
        EXPECT_EQ(-7.0, list.read("n", -7.0)) << c.text;
    }
    attributes list;
    list.add_attr("n", "nan");
    EXPECT_TRUE(std::isnan(list.read("n", 1.0)));
}

TEST(attributes, reads_a_text_as_it_stands)
{
    attributes list;
    list.add_attr("n", " v ");
    list.add_attr("e", "");
    EXPECT_EQ(" v ", text_of(list.read("n", "d")));
    EXPECT_EQ("", text_of(list.read("e", "d")));
    EXPECT_EQ("d", text_of(list.read("m", "d")));
    EXPECT_EQ("", text_of(list.read("m", static_cast<const char*>(nullptr))));
    EXPECT_EQ(" v ", text_of(list.read("n", share_str("d"))));
    EXPECT_EQ("d", text_of(list.read("m", share_str("d"))));
}

TEST(attributes, writes_the_first_pair_of_the_name_or_a_new_one)
{
    attributes list;
    list.add_attr("a", "old");
    list.add_attr("a", "second");
    EXPECT_EQ(0, list.write("a", "new"));
    EXPECT_EQ(0, list.write("b", 12));
    EXPECT_EQ(0, list.write("c", share_str("text")));
    EXPECT_EQ("a=new a=second b=12 c=text", text_of(list));
}

TEST(attributes, formats_numbers_as_printf_does)
{
    attributes list;
    const auto as_int = [&](int v) { list.write("n", v); return text_of(list.read("n", "")); };
    const auto as_double = [&](double v) { list.write("n", v); return text_of(list.read("n", "")); };
    EXPECT_EQ("0", as_int(0));
    EXPECT_EQ("-2147483648", as_int(INT_MIN));
    EXPECT_EQ("2147483647", as_int(INT_MAX));
    EXPECT_EQ("0", as_double(0.0));
    EXPECT_EQ("1.5", as_double(1.5));
    EXPECT_EQ("0.1", as_double(0.1));
    EXPECT_EQ("1.23457e+06", as_double(1234567.0));
    EXPECT_EQ("123457", as_double(123456.7));
    EXPECT_EQ("1e-05", as_double(0.00001));
    EXPECT_EQ("inf", as_double(std::numeric_limits<double>::infinity()));
    EXPECT_EQ(std::numeric_limits<double>::infinity(), list.read("n", 0.0));
}

TEST(attributes, numbers_do_not_depend_on_the_locale)
{
    const string before = std::setlocale(LC_ALL, nullptr);
    bool changed = false;
    for (const char* name : { "de_DE.UTF-8", "de_DE", "German" })
        changed = changed || std::setlocale(LC_ALL, name);
    attributes list;
    list.write("n", 1.5);
    EXPECT_EQ("1.5", text_of(list.read("n", "")));
    EXPECT_EQ(1.5, list.read("n", 0.0));
    list.write("h", "0x1.8");
    EXPECT_EQ(1.5, list.read("h", 0.0));
    std::setlocale(LC_ALL, before.c_str());
}

// ---- documents --------------------------------------------------------------

TEST(ini_doc, reads_what_the_reader_reports)
{
    EXPECT_EQ("[a]\nx=1\ny=2\n[b]\n", written(doc_of("[a]\nx=1\ny=2\n[b]\n")));
    EXPECT_EQ("[s]\nx=1\n", written(doc_of(" ; comment\n [ s ] x = 1\n")));
    EXPECT_EQ("", written(doc_of("")));
}

TEST(ini_doc, puts_pairs_before_any_header_in_a_section_with_the_empty_name)
{
    const ini_doc doc = doc_of("a=1\nb=2\n[s]\nc=3\n");
    ASSERT_EQ(2u, doc.get_section_count());
    EXPECT_TRUE(doc.get_section(0)->get_name().isempty());
    EXPECT_EQ("a=1 b=2", text_of(*doc.get_section(0)));
    EXPECT_EQ(doc.get_section(0), doc.find_section(""));
}

TEST(ini_doc, never_merges_sections)
{
    const ini_doc doc = doc_of("[s]\nx=1\n[t]\n[s]\nx=2\n");
    ASSERT_EQ(3u, doc.get_section_count());
    EXPECT_EQ(1, doc.find_section("s")->read("x", 0));
    EXPECT_EQ(0, doc.find_section(0, "s"));
    EXPECT_EQ(2, doc.find_section(1, "s"));
    EXPECT_EQ(-1, doc.find_section(3, "s"));
    EXPECT_EQ(-1, doc.find_section(0, "S"));
    EXPECT_EQ(nullptr, doc.find_section("none"));
    EXPECT_EQ(nullptr, doc.find_section(static_cast<const char*>(nullptr)));
    EXPECT_EQ(-1, doc.find_section(0, nullptr));
}

TEST(ini_doc, is_cleared_before_it_is_read)
{
    ini_doc doc;
    doc.add_section("old");
    EXPECT_EQ(0, read_text(doc, "[new]\n"));
    EXPECT_EQ("[new]\n", written(doc));
}

TEST(ini_doc, keeps_what_came_before_an_error)
{
    static const struct { const char* text; const char* kept; } cases[] = {
        { "[a]\nx=1\n[b\n", "[a]\nx=1\n" },
        { "[a]\nx=1\n[]\n", "[a]\nx=1\n" },
        { "[a]\nx=1\n=2\n", "[a]\nx=1\n" },
        { "[a]\nx=1\ny\nz=1\n", "[a]\nx=1\n" },
    };
    for (const auto& c : cases) {
        ini_doc doc;
        EXPECT_EQ(err::syntax, read_text(doc, c.text)) << c.text;
        EXPECT_EQ(c.kept, written(doc)) << c.text;
    }
}

TEST(ini_doc, inserts_gets_and_removes_sections)
{
    ini_doc doc;
    ini_section* const b = doc.add_section("b");
    ini_section* const a = doc.add_section(0, "a");
    doc.add_section(9, "c");
    EXPECT_EQ("[a]\n[b]\n[c]\n", written(doc));
    EXPECT_EQ(a, doc.get_section(0));
    EXPECT_EQ(b, doc.get_section(1));
    EXPECT_EQ(nullptr, doc.get_section(3));
    EXPECT_EQ(nullptr, static_cast<const ini_doc&>(doc).get_section(UINT_MAX));
    EXPECT_EQ(3u, doc.get_sections().size());
    doc.remove_section(3);
    doc.remove_section(0);
    EXPECT_EQ("[b]\n[c]\n", written(doc));
    EXPECT_EQ(b, doc.find_section("b"));
    b->set_name("d");
    EXPECT_EQ("[d]\n[c]\n", written(doc));
    doc.clear();
    EXPECT_EQ(0u, doc.get_section_count());
    EXPECT_EQ("", written(doc));
}

TEST(ini_doc, copies_deeply)
{
    ini_doc doc = doc_of("[a]\nx=1\n[b]\n");
    ini_doc copy(doc);
    copy.get_section(0)->write("x", 2);
    copy.get_section(1)->set_name("c");
    EXPECT_EQ("[a]\nx=1\n[b]\n", written(doc));
    EXPECT_EQ("[a]\nx=2\n[c]\n", written(copy));
    ini_doc assigned;
    assigned.add_section("old");
    assigned = copy;
    assigned = *&assigned;
    EXPECT_EQ("[a]\nx=2\n[c]\n", written(assigned));
    assigned.raw_copy(doc);
    assigned.raw_copy(assigned);
    EXPECT_EQ("[a]\nx=1\n[b]\n", written(assigned));
}

TEST(ini_section, copies_name_and_pairs)
{
    ini_section section("s");
    section.add_attr("a", "1");
    ini_section copy(section);
    copy.set_name("t");
    copy.write("a", 2);
    EXPECT_EQ("s", text_of(section.get_name()));
    EXPECT_EQ("a=1", text_of(section));
    section = copy;
    EXPECT_EQ("t", text_of(section.get_name()));
    EXPECT_EQ("a=2", text_of(section));
}

TEST(ini_doc, finds_the_first_section_among_many_after_any_change)
{
    std::mt19937 random(11);
    ini_doc doc;
    std::vector<string> plain;
    for (int step = 0; step < 3000; ++step) {
        const string name = "s" + std::to_string(random() % 50);
        const unsigned at = plain.empty() ? 0 : static_cast<unsigned>(random() % plain.size());
        switch (random() % 8) {
        case 0:
            doc.add_section(at, name.c_str());
            plain.insert(plain.begin() + at, name);
            break;
        case 1:
            doc.add_section(name.c_str());
            plain.push_back(name);
            break;
        case 2:
            if (plain.size() > 30) {
                doc.remove_section(at);
                plain.erase(plain.begin() + at);
            }
            break;
        case 3:
            if (!plain.empty()) {
                doc.get_section(at)->set_name(name.c_str());
                plain[at] = name;
            }
            break;
        default: {
            const auto it = std::find(plain.begin(), plain.end(), name);
            ASSERT_EQ(it == plain.end() ? -1 : static_cast<int>(it - plain.begin()), doc.find_section(0, name.c_str()));
        }
        }
    }
}

TEST(ini_doc, writes_nothing_quoted_and_texts_up_to_their_first_nul)
{
    ini_doc doc;
    ini_section* const s = doc.add_section("a]b");
    s->add_attr("k=", " v;\"w\" ");
    const char with_nul[] = "x\0y";
    s->add_attr(share_str(with_nul, with_nul + 3), share_str(with_nul, with_nul + 3));
    EXPECT_EQ("[a]b]\nk== v;\"w\" \nx=x\n", written(doc));
}

TEST(ini_doc, writes_texts_of_any_size)
{
    ini_doc doc;
    string expected;
    for (unsigned n : { 1u, 100u, 8190u, 8191u, 8192u, 8193u, 20000u }) {
        const string text(n, 'x');
        doc.add_section(text.c_str())->add_attr(text.c_str(), text.c_str());
        expected += "[" + text + "]\n" + text + "=" + text + "\n";
    }
    EXPECT_EQ(expected, written(doc));
}

TEST(ini_doc, tells_that_a_stream_failed)
{
    ini_doc doc;
    doc.add_section("a");
    std::ostringstream out;
    out.setstate(std::ios::badbit);
    EXPECT_EQ(static_cast<int>(0x80020002), doc.write(out));
    std::ofstream throwing;
    throwing.exceptions(std::ios::badbit);
    EXPECT_EQ(static_cast<int>(0x80020002), doc.write(throwing));
}

TEST(ini_doc, turns_what_a_stream_throws_into_a_code)
{
    ini_doc doc;
    doc.add_section("a");
    const auto write = [&](std::ostream& out) { return doc.write(out); };
    EXPECT_EQ(err::out_of_memory, status_of_throwing(std::bad_alloc(), write));
    EXPECT_EQ(err::file_system, status_of_throwing(std::runtime_error("full"), write));
    EXPECT_EQ(err::file_system, status_of_throwing(xcpt(err::timeout, "slow"), write));
    EXPECT_EQ(err::file_system, status_of_throwing(1, write));
}

TEST(ini_doc, tells_that_a_disk_is_full)
{
    if (!has_full_device())
        GTEST_SKIP() << "no full device here";
    ini_doc doc;
    doc.add_section("a");
    EXPECT_EQ(err::file_system, doc.write("/dev/full")) << "closing tells";
    doc.add_section(string(100000, 's').c_str());
    EXPECT_EQ(err::file_system, doc.write("/dev/full"));
}

TEST(ini_doc, reads_and_writes_files)
{
    const string path = temporary_path("document.ini");
    ini_doc doc;
    doc.add_section("a")->add_attr("x", "1");
    EXPECT_EQ(0, doc.write(path.c_str()));
    const string bytes = bytes_of(path);
    // Text mode: Windows puts a carriage return before each line feed.
    EXPECT_TRUE(bytes == "[a]\nx=1\n" || bytes == "[a]\r\nx=1\r\n") << bytes;
    ini_doc back;
    EXPECT_EQ(0, back.read(path.c_str()));
    EXPECT_EQ("[a]\nx=1\n", written(back));
    EXPECT_EQ(0, ini_doc().write(path.c_str()));
    EXPECT_EQ("", bytes_of(path));
    std::remove(path.c_str());
}

TEST(ini_doc, reads_files_with_carriage_returns_and_without_a_last_line_end)
{
    const string path = temporary_path("lines.ini");
    save(path, "[a]\r\nx=1\r\ny=22");
    ini_doc doc;
    EXPECT_EQ(0, doc.read(path.c_str()));
    EXPECT_EQ("[a]\nx=1\ny=2\n", written(doc));
    std::remove(path.c_str());
}

TEST(ini_doc, returns_the_code_of_a_file_that_cannot_be_opened)
{
    ini_doc doc;
    doc.add_section("kept");
    EXPECT_EQ(static_cast<int>(0x80020002), doc.read("no/such/folder/x.ini"));
    EXPECT_EQ(static_cast<int>(0x8002000e), doc.read(""));
    EXPECT_EQ("[kept]\n", written(doc));
    EXPECT_EQ(static_cast<int>(0x80020002), doc.write("no/such/folder/x.ini"));
    EXPECT_EQ(static_cast<int>(0x80020002), doc.write(static_cast<const char*>(nullptr)));
}

// A document made at random, as the text it is written as and the tree it is.
struct generated_document {
    string text;
    string tree;
};

generated_document generate(std::mt19937& random)
{
    static const char letters[] = "abcXYZ019_.-\xC4\xDA ";
    const auto word = [&](bool may_be_empty) {
        string w;
        for (std::size_t n = random() % 12 + (may_be_empty ? 0u : 1u); n > 0; --n)
            w += letters[random() % (sizeof letters - 2)];
        return w;
    };
    const auto space = [&] { return string(random() % 3, random() % 2 ? ' ' : '\t'); };
    generated_document made;
    const unsigned lines = static_cast<unsigned>(random() % 60);
    bool in_section = false;
    for (unsigned i = 0; i < lines; ++i) {
        switch (random() % 6) {
        case 0: {
            const string name = word(false);
            made.text += space() + "[" + space() + name + space() + "]" + space() + "\n";
            made.tree += "[" + name + "]\n";
            in_section = true;
            break;
        }
        case 1:
            made.text += space() + ";" + word(true) + "=" + "\n";
            break;
        case 2:
            made.text += space() + (random() % 2 ? "\r\n" : "\n");
            break;
        default: {
            const string key = word(false);
            const string value = word(true) + (random() % 3 ? "" : "=;[x]");
            if (!in_section)
                made.tree += "[]\n";
            in_section = true;
            made.text += space() + key + space() + "=" + space() + value + space() + "\n";
            made.tree += key + "=" + value + "\n";
        }
        }
    }
    return made;
}

TEST(ini_doc, equals_the_tree_that_a_generated_text_was_made_from)
{
    std::mt19937 random(42);
    for (int i = 0; i < 500; ++i) {
        const generated_document made = generate(random);
        EXPECT_EQ(made.tree, written(doc_of(made.text))) << made.text;
    }
}

TEST(ini_doc, write_read_write_is_a_fixed_point)
{
    std::mt19937 random(43);
    for (int i = 0; i < 300; ++i) {
        const ini_doc doc = doc_of("[first]\n" + generate(random).text);
        const string once = written(doc);
        EXPECT_EQ(once, written(doc_of(once)));
    }
}

// Nothing is escaped: such a document is written as it is and reads back as another,
// or not at all.
TEST(ini_doc, does_not_restore_names_that_look_like_syntax)
{
    ini_doc doc;
    doc.add_section("")->add_attr("a=b", "c");
    EXPECT_EQ("[]\na=b=c\n", written(doc));
    ini_doc back;
    EXPECT_EQ(err::syntax, read_text(back, written(doc)));
}

TEST(ini_doc, is_linear_in_sections_of_one_name)
{
    string text;
    for (int i = 0; i < 20000; ++i)
        text += "[s]\nk=v\n";
    ini_doc doc = doc_of(text);
    ASSERT_EQ(20000u, doc.get_section_count());
    for (int i = 0; i < 20000; ++i)
        ASSERT_EQ(0, doc.find_section(0, "s"));
    unsigned seen = 0;
    for (int i = doc.find_section(0, "s"); i >= 0; i = doc.find_section(static_cast<unsigned>(i) + 1, "s"))
        ++seen;
    EXPECT_EQ(20000u, seen);
    EXPECT_EQ(text, written(doc));
}

} // namespace
