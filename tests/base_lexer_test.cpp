// Tokens, the ring of look-ahead, and the table-driven lexer.
#include <stdkro/base_lexer.h>

#include "lexed_value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

// A lexer whose inside can be called.
struct lexer : base_lexer {
    explicit lexer(int capacity = 1) : base_lexer(capacity) {}
    lexer(int capacity, const base_lexer& like) : base_lexer(capacity, like) {}
    using base_lexer::eat_block_comment;
    using base_lexer::eat_c_character;
    using base_lexer::eat_c_string;
    using base_lexer::eat_line_comment;
    using base_lexer::eat_triple_string;
    using base_lexer::find_symbol;
    using base_lexer::find_type;
    using base_lexer::is_digit;
    using base_lexer::is_name;
    using base_lexer::is_space;
    using base_lexer::make_id;
    using base_lexer::map_token;
    using base_lexer::read_c_character;
    using base_lexer::read_c_string;
    using base_lexer::read_escape;
    using base_lexer::read_id;
    using base_lexer::read_number;
    using base_lexer::read_sym;
    using base_lexer::read_token;
    using base_lexer::read_triple_string;

    void text(const std::string& t) { ASSERT_EQ(load_string(t.data(), t.data() + t.size(), true), 0); }
};

// All tokens of a text as "KIND:VALUE", with the code where it is not the kind's own.
std::string tokens(lexer& l, const std::string& text)
{
    l.text(text);
    std::string shown;
    token t;
    try {
        for (;;) {
            const int kind = l.read_token(t);
            if (kind == base_lexer::TK_EOF)
                return shown;
            static const char* const names[]
                = { "?", "?", "?", "symbol", "keyword", "real", "name", "string", "char", "integer", "?", "end" };
            shown += shown.empty() ? "" : " | ";
            shown += names[kind];
            if (t.get_type() != kind)
                shown += "=" + std::to_string(t.get_type());
            shown += " " + show(t.get_var()).substr(2);
        }
    } catch (const xrterror& e) {
        EXPECT_EQ(e.get_err(), static_cast<int>(0x80020007));
        return shown + (shown.empty() ? "" : " | ") + "error " + e.what();
    }
}

void add_symbols(base_lexer& l)
{
    static const struct {
        const char* spelling;
        int code;
    } symbols[] = { { "+", 20 }, { "=", 21 }, { "==", 22 }, { "===", 23 }, { "<", 24 }, { "<<=", 25 },
                    { ".", 26 }, { "(", 27 }, { "if", 30 }, { "$[", 31 }, { "rem", 13 }, { "~not", 32 } };
    for (const auto& s : symbols)
        l.set_symbol(s.spelling, s.code);
}

// ---- tokens -----------------------------------------------------------------------

TEST(token, an_empty_token_has_nothing)
{
    const token t;
    EXPECT_EQ(t.get_type(), 0);
    EXPECT_FALSE(t.get_var().is_initialized());
    EXPECT_EQ(t.get_begin(), nullptr);
    EXPECT_EQ(t.get_end(), nullptr);
    EXPECT_TRUE(t.get_literal().isempty());
    EXPECT_TRUE(t.get_text().isempty());
    EXPECT_THROW(t.get_string(), xrterror);
    EXPECT_EQ(t.get_int(), static_cast<int>(0x80000003));
}

TEST(token, values_are_converted_as_asked)
{
    const char text[] = "some text";
    const token t(5, base_var("66.5"), text, text + 4);
    EXPECT_EQ(t.get_type(), 5);
    EXPECT_STREQ(t.get_string().c_str(), "66.5");
    EXPECT_STREQ(t.get_text().c_str(), "66.5");
    EXPECT_EQ(t.get_int(), 66);
    EXPECT_EQ(t.get_char(), 'B');
    EXPECT_EQ(t.get_double(), 66.5);
    EXPECT_STREQ(t.get_literal().c_str(), "some");
    token copy(t);
    token assigned;
    assigned = t;
    copy.set_var(1.5);
    copy.set_type(-3);
    copy.set_begin(text + 5);
    copy.set_end(text + 9);
    EXPECT_EQ(copy.get_type(), -3);
    EXPECT_EQ(copy.get_double(), 1.5);
    EXPECT_STREQ(copy.get_string().c_str(), "1.5");
    EXPECT_TRUE(copy.get_text().isempty()) << "a number has no text of its own";
    EXPECT_STREQ(copy.get_literal().c_str(), "text");
    EXPECT_STREQ(assigned.get_literal().c_str(), "some");
}

TEST(token, a_span_without_both_ends_in_order_is_empty)
{
    const char text[] = "abc";
    EXPECT_TRUE(token(1, base_var(), text + 2, text).get_literal().isempty());
    EXPECT_TRUE(token(1, base_var(), text, text).get_literal().isempty());
    EXPECT_TRUE(token(1, base_var(), text, nullptr).get_literal().isempty());
    EXPECT_TRUE(token(1, base_var(), nullptr, text).get_literal().isempty());
}

// ---- the ring ----------------------------------------------------------------------

token numbered(int n) { return token(n, base_var(n), nullptr, nullptr); }

TEST(token_cache, the_ring_agrees_with_a_model_of_slots)
{
    std::mt19937 random(21);
    for (const int capacity : { 0, 1, 2, 3, 7 }) {
        token_cache c(capacity);
        const int size = capacity + 1;
        std::vector<int> slots(static_cast<unsigned>(size), 0);
        int first = 0;
        int last = 0;
        const auto count = [&] { return (last + size - first) % size; };
        for (int step = 1; step < 3000; ++step) {
            const bool full = count() == size - 1;
            const bool empty = count() == 0;
            token t;
            switch (random() % 6) {
            case 0:
                ASSERT_EQ(c.enter(numbered(step)), !full);
                if (!full) {
                    slots[static_cast<unsigned>(last)] = step;
                    last = (last + 1) % size;
                }
                break;
            case 1:
                c.get_last() = numbered(step);
                slots[static_cast<unsigned>(last)] = step;
                ASSERT_EQ(c.enter(), !full);
                if (!full)
                    last = (last + 1) % size;
                break;
            case 2:
                ASSERT_EQ(c.fetch(t), !empty);
                ASSERT_EQ(t.get_type(), empty ? 0 : slots[static_cast<unsigned>(first)]);
                if (!empty)
                    first = (first + 1) % size;
                break;
            case 3:
                ASSERT_EQ(c.fetch(), !empty);
                if (!empty)
                    first = (first + 1) % size;
                break;
            case 4:
                ASSERT_EQ(c.putback(), !full);
                if (!full)
                    first = (first + size - 1) % size;
                break;
            default:
                ASSERT_EQ(c.putback(numbered(step)), !full);
                if (!full) {
                    first = (first + size - 1) % size;
                    slots[static_cast<unsigned>(first)] = step;
                }
            }
            ASSERT_EQ(c.count(), count());
            ASSERT_EQ(c.capacity(), capacity);
            ASSERT_EQ(c.get_first().get_type(), slots[static_cast<unsigned>(first)]);
            ASSERT_EQ(c.get_last().get_type(), slots[static_cast<unsigned>(last)]);
            for (int i = 0; i < count(); ++i)
                ASSERT_EQ(c.get_token(i).get_type(), slots[static_cast<unsigned>((first + i) % size)]);
        }
        const token_cache copy(c);
        ASSERT_EQ(copy.count(), c.count());
        c.reset();
        EXPECT_EQ(c.count(), 0);
        EXPECT_EQ(c.get_first().get_type(), 0) << "the slots are fresh";
    }
}

TEST(token_cache, changing_the_capacity_empties_the_ring)
{
    token_cache c(2);
    c.enter(numbered(1));
    c.set_cached(0);
    c.set_cached(-5);
    EXPECT_EQ(c.capacity(), 2);
    EXPECT_EQ(c.count(), 1);
    c.set_cached(2);
    EXPECT_EQ(c.capacity(), 2);
    EXPECT_EQ(c.count(), 0);
    c.enter(numbered(1));
    c.set_cached(5);
    EXPECT_EQ(c.capacity(), 5);
    EXPECT_EQ(c.count(), 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(c.enter(numbered(i)));
    EXPECT_FALSE(c.enter(numbered(9)));
    token_cache copy(1);
    copy = c;
    copy = *&copy;
    EXPECT_EQ(copy.count(), 5);
    EXPECT_EQ(copy.get_token(3).get_type(), 3);
    EXPECT_EQ(token_cache(-3).capacity(), 0);
}

// ---- the default tables ----------------------------------------------------------------

TEST(base_lexer, default_classes_of_the_256_characters)
{
    const lexer l;
    for (int i = 0; i < 256; ++i) {
        const char c = static_cast<char>(i);
        const bool digit = i >= '0' && i <= '9';
        const bool letter = (i >= 'a' && i <= 'z') || (i >= 'A' && i <= 'Z');
        const bool space = i == ' ' || (i >= 9 && i <= 13);
        const bool name = letter || digit || i == '_' || i == '~';
        EXPECT_EQ(l.is_digit(c), digit) << i;
        EXPECT_EQ(l.is_name(c), name) << i;
        EXPECT_EQ(l.is_space(c), space) << i;
        const int punctuation = i > 32 && i < 127 && !name;
        EXPECT_EQ(base_lexer::m_charset_def[i], name + 2 * digit + 8 * punctuation + 16 * space) << i;
    }
    EXPECT_EQ(std::count(base_lexer::m_charset_def, base_lexer::m_charset_def + 256, 8), 30);
    EXPECT_EQ(l.get_charset(), base_lexer::m_charset_def);
}

TEST(base_lexer, default_symbols_and_codes)
{
    lexer l;
    EXPECT_EQ(l.find_type("/"), 2);
    EXPECT_EQ(l.find_type("//"), 13);
    EXPECT_EQ(l.find_type("/*"), 12);
    EXPECT_EQ(l.find_type("*"), 0);
    EXPECT_EQ(l.get_symbol_table().count(), 3u);
    EXPECT_EQ(*l.find_symbol("//x", 2), 13);
    EXPECT_EQ(l.find_symbol("//x", 3), nullptr);
    for (int i = 0; i < base_lexer::token_kinds; ++i)
        EXPECT_EQ(l.map_token(static_cast<base_lexer::token_t>(i)), i);
    l.set_token(base_lexer::TK_NAME, 77);
    l.set_token(static_cast<base_lexer::token_t>(15), 5);
    EXPECT_EQ(tokens(l, "a"), "name=77 a");
}

// ---- scanning ---------------------------------------------------------------------------

TEST(base_lexer, texts_and_their_tokens)
{
    static const struct {
        std::string text;
        const char* shown;
    } cases[] = {
        { "", "" },
        { " \t\n", "" },
        // Names: letters, digits, "_" and "~".
        { "a", "name a" },
        { "a~b", "name a~b" },
        { "_x9 Zz", "name _x9 | name Zz" },
        { "12ab", "integer 12 | name ab" },
        { "a.b", "name a | symbol=26 . | name b" },
        { "a\xE4"
          "b",
          "name a | name b" },
        // Keywords are names of the symbol table; so is one with a comment's code.
        { "if iff If ~not", "keyword=30 if | name iff | name If | keyword=32 ~not" },
        { "rem x", "keyword=13 rem | name x" },
        // Numbers: decimal, no sign, no exponent, no hexadecimal.
        { "0 007 42", "integer 0 | integer 7 | integer 42" },
        { "1.5 2. .5", "real 1.5 | real 2 | symbol=26 . | integer 5" },
        { "1.2.3", "real 1.2 | symbol=26 . | integer 3" },
        { "1e5 0x1F", "integer 1 | name e5 | integer 0 | name x1F" },
        { "-1", "integer 1" },
        { "2147483647 2147483648 99999999999999999999", "integer 2147483647 | integer -2147483648 | integer -2147483648" },
        { "0.3", "real 0.30000000000000004" },
        // Symbols: the longest whose beginnings are all in the table.
        { "+==", "symbol=20 + | symbol=22 ==" },
        { "=== ====", "symbol=23 === | symbol=23 === | symbol=21 =" },
        { "<<=", "symbol=24 < | symbol=24 < | symbol=21 =" },
        { "$[", "" },
        { "a/b", "name a | symbol=2 / | name b" },
        // What nobody registered is dropped.
        { "a # b", "name a | name b" },
        { "#@!\x80\x01", "" },
        { std::string("a\0+\0", 4), "name a | symbol=20 +" },
        // Comments.
        { "a // b\nc", "name a | name c" },
        { "a //", "name a" },
        { "a /* b\n */ c", "name a | name c" },
        { "a /**/ b /***/ c", "name a | name b | name c" },
        { "a /*/ b", "name a | error " },
        { "/*", "error " },
        { "/* *", "error " },
        { "+// x\n+", "symbol=20 + | symbol=20 +" },
        // Strings.
        { "\"\"", "string " },
        { "\"ab\"", "string ab" },
        { "\"a'b\"c", "string a'b | name c" },
        { "\"a\\nb\\\"c\\\\d\"", "string a\nb\"c\\d" },
        { "\"a\\tb\\r\\65\"", "string a\\tb\\r\\65" },
        { "\"a\\\nb\"", "string ab" },
        { "\"a\\\r\nb\"", "error triple string" },
        { "\"a\nb\"", "error triple string" },
        { "\"ab", "error triple string" },
        { "\"ab\\", "error triple string" },
        { "\"ab\\\"", "error triple string" },
        { "\"", "error triple string" },
        { "\"\"x", "string  | name x" },
        { "\"\" \"\"", "string  | string " },
        { std::string("\"a\0b\"", 5), nullptr },
        // Triple strings.
        { "\"\"\"abc\"\"\"", "string abc" },
        { "\"\"\"a\nb\"\"\"", "string a\nb" },
        { "\"\"\"a\"b\"\"c\"\"\"", "string a\"b\"\"c" },
        { "\"\"\"\"\"\"", "string " },
        { "\"\"\"a\"\"\"\"\"", "string a | string " },
        { "\"\"\"\"a\"\"\"", "string \"a" },
        { "\"\"\"a\\\"\"\"\"", "string a\"" },
        { "\"\"\"a\"\"\\\n\"\"\"", "string a\"\"" },
        { "\"\"\"a\"\\\n\"b\"\"\"", "string a\"\"b" },
        { "\"\"\"a\\x\\nb\"\"\"", "string a\\x\nb" },
        { "\"\"\"a\"\"", "error triple string" },
        { "\"\"\"", "error triple string" },
        // Characters.
        { "'a'", "char 97" },
        { "'ab'", "char 97" },
        { "'a\\'", "char 97" },
        { "''", "char 39" },
        { "''a'", "char 39 | name a | error invalid character define" },
        { "'\"'", "char 34" },
        { "'\xE4'", "char -28" },
        { "'\\n''\\r''\\t'", "char 10 | char 13 | char 9" },
        { "'\\65''\\255''\\256''\\99999999999'", "char 65 | char -1 | char -1 | char -1" },
        { "'\\0'", "char 0" },
        { "'\\''", "char 39" },
        { "'\\\\'", "char 92" },
        { "'\\q'", "char 113" },
        { "'\\65a'", "error invalid character define" },
        { "'\\qa'", "error invalid character define" },
        { "'\\\n'", "error invalid character define" },
        { "'\\", "error invalid character define" },
        { "'\\q", "error invalid character define" },
        { "'a", "error invalid character define" },
        { "'a\n'", "error invalid character define" },
        { "'\n'", "error invalid character define" },
        { "'", "error invalid character define" },
    };
    lexer l;
    add_symbols(l);
    for (const auto& c : cases) {
        if (c.shown)
            EXPECT_EQ(tokens(l, c.text), c.shown) << c.text;
        else
            EXPECT_EQ(tokens(l, c.text), "string " + c.text.substr(1, 3));
    }
}

TEST(base_lexer, a_byte_0xff_ends_reading_and_whoever_reads_on_goes_on_behind_it)
{
    static const struct {
        const char* text;
        const char* first;
        const char* second;
    } cases[] = {
        { "ab \xFF cd", "name ab", "name cd" },
        { "ab\xFF"
          "cd",
          "name ab", "name cd" },
        { "12\xFF"
          "34",
          "integer 12", "integer 34" },
        { "1.\xFF"
          "34",
          "real 1", "integer 34" },
        { "=\xFF=", "symbol=21 =", "symbol=21 =" },
        { "\xFFx", "", "name x" },
        { "a // \xFF x\ny", "name a", "name x | name y" },
    };
    for (const auto& c : cases) {
        lexer l;
        add_symbols(l);
        EXPECT_EQ(tokens(l, c.text), c.first);
        const std::string rest(l.get_cur(), l.get_eof());
        EXPECT_EQ(tokens(l, rest), c.second) << c.text;
    }
    lexer l;
    EXPECT_EQ(tokens(l, "\"a\xFF\""), "error triple string");
    EXPECT_EQ(tokens(l, "'a\xFF'"), "error invalid character define");
    EXPECT_EQ(tokens(l, "'\xFF'"), "error invalid character define");
    EXPECT_EQ(tokens(l, "/* \xFF */"), "error ");
    // Even where a table gives the byte a class.
    unsigned char classes[256];
    for (const int cls : { 1, 3, 16 }) {
        std::copy(base_lexer::m_charset_def, base_lexer::m_charset_def + 256, classes);
        classes[255] = static_cast<unsigned char>(cls);
        l.set_charset(classes);
        EXPECT_EQ(tokens(l, "a\xFF"), "name a");
        EXPECT_EQ(tokens(l, "1\xFF"), "integer 1");
        EXPECT_EQ(tokens(l, "\xFF"
                           "a"),
                  "");
    }
}

TEST(base_lexer, lines_are_counted_through_every_kind_of_token)
{
    lexer l;
    add_symbols(l);
    static const struct {
        const char* text;
        int line;
    } cases[] = {
        { "a\nb\nc", 3 },          { "// x\n// y\n", 3 },          { "// x", 1 },
        { "/* \n\n */", 3 },       { "\"\"\"\n\n\n\"\"\"", 4 },    { "\"a\\\nb\"", 2 },
        { "\n \t\n\n+\n", 5 },     { "\"\"\"a\\\nb\\\n\"\"\"", 3 }, { "/*/ \n */ \n", 3 },
    };
    for (const auto& c : cases) {
        EXPECT_EQ(tokens(l, c.text).find("error"), std::string::npos);
        EXPECT_EQ(l.get_line(), c.line) << c.text;
    }
    // An unterminated string reports the line behind the line feed that it met.
    tokens(l, "\n\"ab\ncd");
    EXPECT_EQ(l.get_line(), 3);
    EXPECT_EQ(*l.get_cur(), 'c');
    // A table may give the line feed a class, a symbol may hold one.
    unsigned char classes[256];
    std::copy(base_lexer::m_charset_def, base_lexer::m_charset_def + 256, classes);
    classes['\n'] = 1;
    l.set_charset(classes);
    EXPECT_EQ(tokens(l, "a\n\nb"), "name a\n\nb");
    EXPECT_EQ(l.get_line(), 3);
    classes['\n'] = 0;
    l.set_symbol("\n", 40);
    EXPECT_EQ(tokens(l, "a\nb"), "name a | symbol=40 \n | name b");
    EXPECT_EQ(l.get_line(), 2);
    l.set_charset(nullptr);
    EXPECT_EQ(l.get_charset(), base_lexer::m_charset_def);
}

TEST(base_lexer, only_the_begin_of_a_span_is_set)
{
    lexer l;
    l.text("  abc \"x\" 1");
    token t;
    t.set_end(l.get_buf() + 5);
    l.read_token(t);
    EXPECT_EQ(t.get_begin(), l.get_buf() + 2);
    EXPECT_STREQ(t.get_literal().c_str(), "abc");
    t.set_end(l.get_cur());
    EXPECT_STREQ(t.get_literal().c_str(), "abc");
    l.read_token(t);
    EXPECT_EQ(t.get_begin(), l.get_buf() + 6);
    EXPECT_EQ(t.get_end(), l.get_buf() + 5) << "as the last token left it";
    l.read_token(t);
    l.read_token(t);
    EXPECT_EQ(t.get_type(), 11);
    EXPECT_EQ(t.get_begin(), l.get_eof());
    EXPECT_EQ(show(t.get_var()), "");
}

TEST(base_lexer, a_table_can_make_anything_a_name_digit_or_space)
{
    unsigned char classes[256];
    std::copy(base_lexer::m_charset_def, base_lexer::m_charset_def + 256, classes);
    for (int i = 0x80; i < 0xFF; ++i)
        classes[i] = 1;
    classes[','] = 16;
    classes['a'] = 3;
    lexer l;
    l.set_charset(classes);
    EXPECT_EQ(tokens(l, "\xC4\xD6x,y\x80"), "name \xC4\xD6x | name y\x80");
    EXPECT_EQ(tokens(l, "1a"), "integer 59") << "a digit's value is its distance from \"0\"";
    EXPECT_EQ(tokens(l, "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa1"), "integer -2147483648");
}

TEST(base_lexer, numbers_are_summed_digit_by_digit)
{
    std::mt19937 random(22);
    lexer l;
    for (int i = 0; i < 2000; ++i) {
        std::string text;
        for (unsigned n = 1 + static_cast<unsigned>(random() % (i % 50 == 0 ? 400 : 25)); n > 0; --n)
            text += static_cast<char>('0' + random() % 10);
        const std::size_t whole = text.size();
        if (random() % 3) {
            text += '.';
            for (unsigned n = static_cast<unsigned>(random() % (i % 50 == 0 ? 400 : 25)); n > 0; --n)
                text += static_cast<char>('0' + random() % 10);
        }
        naive::lexer expected(text);
        token t;
        l.text(text);
        l.read_token(t);
        ASSERT_EQ(show(t.get_var()), expected.next().value) << text;
        ASSERT_EQ(t.get_type(), whole < text.size() ? 5 : 9);
    }
}

// ---- the readers called alone -------------------------------------------------------------

template <class CALL> std::string outcome(lexer& l, const char* text, CALL call)
{
    l.text(text);
    std::string shown;
    try {
        shown = call(l);
    } catch (const xrterror& e) {
        EXPECT_EQ(e.get_err(), static_cast<int>(0x80020007));
        shown = std::string("error ") + e.what();
    }
    return shown + " <" + std::string(l.get_cur(), l.get_eof()) + ">";
}

TEST(base_lexer, c_strings_end_at_the_next_quote)
{
    lexer l;
    static const struct {
        const char* text; // behind the opening quote
        const char* read;
        const char* eaten;
    } cases[] = {
        { "ab\"c", "ab <c>", " <c>" },
        { "\"c", " <c>", " <c>" },
        { "\"\"\"c", " <\"\"c>", " <\"\"c>" },
        { "a\\\"b\\\\\"c", "a\"b\\ <c>", " <c>" },
        { "a\\\nb\\n\\t\"c", "ab\n\\t <c>", " <c>" },
        { "ab\nc\"", "error string <c\">", "error string <c\">" },
        { "ab", "error string <>", "error string <>" },
        { "ab\\\"", "error string <>", "error string <>" },
        { "", "error string <>", "error string <>" },
    };
    for (const auto& c : cases) {
        EXPECT_EQ(outcome(l, c.text, [](lexer& x) { return std::string(x.read_c_string().c_str()); }), c.read) << c.text;
        EXPECT_EQ(outcome(l, c.text, [](lexer& x) { return x.eat_c_string(), ""; }), c.eaten) << c.text;
    }
}

TEST(base_lexer, eating_a_triple_string_fails_without_a_message)
{
    lexer l;
    const auto eat = [](lexer& x) { return x.eat_triple_string(), ""; };
    EXPECT_EQ(outcome(l, "ab\"c", eat), " <c>");
    EXPECT_EQ(outcome(l, "\"c", eat), " <c>");
    EXPECT_EQ(outcome(l, "\"\"a\n\"b\"\"\"c", eat), " <c>");
    EXPECT_EQ(outcome(l, "ab\nc", eat), "error  <c>");
    EXPECT_EQ(outcome(l, "\"\"ab", eat), "error  <>");
    EXPECT_EQ(outcome(l, "", eat), "error  <>");
}

TEST(base_lexer, characters_and_escapes_alone)
{
    lexer l;
    const auto read = [](lexer& x) { return std::string(1, x.read_c_character()); };
    const auto eat = [](lexer& x) { return x.eat_c_character(), ""; };
    EXPECT_EQ(outcome(l, "ab'c", read), "a <c>");
    EXPECT_EQ(outcome(l, "'c", read), "' <c>");
    EXPECT_EQ(outcome(l, "ab'c", eat), " <c>");
    EXPECT_EQ(outcome(l, "ab", eat), "error invalid character define <>");
    const auto escape = [](lexer& x) { return std::to_string(x.read_escape()); };
    EXPECT_EQ(outcome(l, "65x", escape), "65 <x>");
    EXPECT_EQ(outcome(l, "1000", escape), "255 <>");
    EXPECT_EQ(outcome(l, "0", escape), "0 <>");
    EXPECT_EQ(outcome(l, "nx", escape), "10 <x>");
    EXPECT_EQ(outcome(l, "rx", escape), "13 <x>");
    EXPECT_EQ(outcome(l, "tx", escape), "9 <x>");
    EXPECT_EQ(outcome(l, "qx", escape), "113 <x>");
    EXPECT_EQ(outcome(l, "", escape), "-1 <>");
    EXPECT_EQ(outcome(l, "7\n", escape), "7 <\n>");
    EXPECT_EQ(l.get_line(), 1) << "the line feed was put back with its line";
}

TEST(base_lexer, comments_alone)
{
    lexer l;
    const auto line = [](lexer& x) { return x.eat_line_comment(), ""; };
    const auto block = [](lexer& x) { return x.eat_block_comment(), ""; };
    EXPECT_EQ(outcome(l, "ab\nc", line), " <c>");
    EXPECT_EQ(outcome(l, "\nc", line), " <c>");
    EXPECT_EQ(outcome(l, "ab", line), " <>");
    EXPECT_EQ(outcome(l, "", line), " <>");
    EXPECT_EQ(outcome(l, "a\xFF" "b", line), " <\xFF" "b>");
    EXPECT_EQ(outcome(l, "/*/c", block), " <c>");
    EXPECT_EQ(outcome(l, "**/c", block), " <c>");
    EXPECT_EQ(outcome(l, "* /", block), "error  <>");
}

TEST(base_lexer, a_symbol_returns_nothing_for_what_it_drops)
{
    lexer l;
    token t;
    l.text("#/");
    EXPECT_EQ(l.read_sym(t), base_lexer::TK_NONE);
    EXPECT_EQ(l.get_pos(), 1u);
    EXPECT_EQ(l.read_sym(t), base_lexer::TK_SYMBOL);
    EXPECT_EQ(t.get_type(), 2);
    l.text("//x\ny");
    EXPECT_EQ(l.read_sym(t), base_lexer::TK_NONE);
    EXPECT_EQ(l.get_pos(), 4u);
    l.text("x");
    EXPECT_EQ(l.make_id(t, "abc", 2), base_lexer::TK_NAME);
    EXPECT_STREQ(t.get_text().c_str(), "ab");
}

// ---- look-ahead -----------------------------------------------------------------------------

TEST(base_lexer, an_empty_text_ends_at_once_and_again)
{
    lexer l;
    token t;
    EXPECT_EQ(l.get_token(&t), 11) << "without a text";
    l.text("");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(l.get_token(&t), 11);
}

TEST(base_lexer, a_token_put_back_comes_again)
{
    lexer l;
    l.text("a 1 b 2");
    token t;
    EXPECT_EQ(l.get_token(&t), 6);
    EXPECT_STREQ(t.get_text().c_str(), "a");
    l.unget_token();
    EXPECT_EQ(l.get_token(nullptr), 6);
    EXPECT_EQ(l.get_token(nullptr), 9);
    l.unget_token();
    EXPECT_EQ(l.get_token(&t), 9);
    EXPECT_EQ(t.get_int(), 1);
    EXPECT_EQ(l.get_token(&t), 6);
    EXPECT_STREQ(t.get_text().c_str(), "b");
}

TEST(base_lexer, several_tokens_can_be_put_back_when_the_cache_has_room)
{
    lexer l;
    l.set_cached(3);
    l.text("a b c d");
    token t;
    std::string seen;
    const auto get = [&](int n) {
        while (n-- > 0) {
            l.get_token(&t);
            seen += t.get_text().c_str();
        }
    };
    get(3);
    for (int i = 0; i < 3; ++i)
        l.unget_token();
    get(4);
    l.unget_token();
    l.unget_token();
    get(2);
    EXPECT_EQ(seen, "abcabcdcd");
    lexer wide(4);
    wide.text("a b c d");
    for (int i = 0; i < 4; ++i)
        wide.get_token(nullptr);
    for (int i = 0; i < 4; ++i)
        wide.unget_token();
    wide.get_token(&t);
    EXPECT_STREQ(t.get_text().c_str(), "a");
    lexer least(-4); // capacity 1 at least
    least.text("a b");
    least.get_token(nullptr);
    least.unget_token();
    least.get_token(&t);
    EXPECT_STREQ(t.get_text().c_str(), "a");
}

TEST(base_lexer, every_load_forgets_the_look_ahead)
{
    lexer l;
    l.text("a\nb");
    l.get_token(nullptr);
    l.get_token(nullptr);
    l.unget_token();
    l.text("x");
    EXPECT_EQ(l.get_line(), 1);
    token t;
    l.get_token(&t);
    EXPECT_STREQ(t.get_text().c_str(), "x");
    l.unget_token();
    lexer other;
    other.text("y");
    EXPECT_EQ(l.load_reader(other, false), 0);
    l.get_token(&t);
    EXPECT_STREQ(t.get_text().c_str(), "y");
}

TEST(base_lexer, after_an_error_reading_goes_on_behind_it)
{
    lexer l;
    l.text("'a\n b");
    token t;
    EXPECT_THROW(l.get_token(&t), xrterror);
    EXPECT_EQ(l.get_token(&t), 6);
    EXPECT_STREQ(t.get_text().c_str(), "b");
    EXPECT_EQ(l.get_token(&t), 11);
}

// A language that overrides the readers; each notes that it was asked.
struct overriding : base_lexer {
    overriding() : base_lexer(1) { set_symbol("+", 20); }
    std::string asked;
    int load_status = 0;

protected:
    int do_load() override
    {
        asked += "load ";
        base_lexer::do_load();
        return load_status;
    }
    int read_token(token& t) override
    {
        asked += "token ";
        return base_lexer::read_token(t);
    }
    int read_sym(token& t) override
    {
        asked += "sym ";
        return base_lexer::read_sym(t);
    }
    int read_id(token& t) override
    {
        // Names of one character.
        asked += "id ";
        const char* const begin = get_cur();
        getch();
        return make_id(t, begin, 1);
    }
    int read_number(token& t) override
    {
        asked += "number ";
        return base_lexer::read_number(t);
    }
};

TEST(base_lexer, a_language_overrides_the_readers_it_needs)
{
    overriding l;
    l.load_status = 7;
    EXPECT_EQ(l.load_string("ab + 12"), 7);
    token t;
    std::string values;
    while (l.get_token(&t) != base_lexer::TK_EOF)
        values += std::string(t.get_string().c_str()) + " ";
    EXPECT_EQ(values, "a b + 12 ");
    EXPECT_EQ(l.asked, "load token id token id token sym token number token ");
}

// ---- symbol tables ----------------------------------------------------------------------------

TEST(base_lexer, a_change_of_the_symbols_counts_at_once)
{
    lexer l;
    EXPECT_EQ(tokens(l, "x + y"), "name x | name y");
    l.set_symbol("+", 20);
    l.set_symbol("x", 21);
    EXPECT_EQ(tokens(l, "x + y"), "keyword=21 x | symbol=20 + | name y");
    l.set_symbol("x", 22);
    EXPECT_EQ(tokens(l, "x + y"), "keyword=22 x | symbol=20 + | name y");
    // The table itself may be changed too, at any time.
    base_lexer::symbol_table& table = l.get_symbol_table();
    EXPECT_EQ(table.count(), 5u);
    table.set("y", 30);
    table.set("++", 31);
    EXPECT_EQ(tokens(l, "x ++ y"), "keyword=22 x | symbol=31 ++ | keyword=30 y");
    *table.find("y") = 33;
    table.remove("x");
    table.remove("++");
    EXPECT_EQ(tokens(l, "x ++ y"), "name x | symbol=20 + | symbol=20 + | keyword=33 y");
    table.clear();
    EXPECT_EQ(tokens(l, "x // y"), "name x | name y");
    EXPECT_EQ(l.find_type("/"), 0);
    table.set("//", 13);
    EXPECT_EQ(tokens(l, "x // y"), "name x | name y") << "without \"/\" there is no way to \"//\"";
    table.set("/", 0);
    EXPECT_EQ(tokens(l, "x // y"), "name x");
    EXPECT_EQ(tokens(l, "x / y"), "name x | symbol=0 / | name y");
}

TEST(base_lexer, no_symbol_is_empty)
{
    lexer l;
    try {
        l.set_symbol("", 5);
        ADD_FAILURE() << "an empty symbol was taken";
    } catch (const xrterror& e) {
        EXPECT_EQ(e.get_err(), static_cast<int>(0x80010002));
    }
    EXPECT_EQ(tokens(l, "a / b"), "name a | symbol=2 / | name b");
}

TEST(base_lexer, other_symbols_can_open_comments)
{
    lexer l;
    l.set_symbol("/", 50);
    l.set_symbol("#", 13);
    l.set_symbol("(", 51);
    l.set_symbol("(*", 12);
    EXPECT_EQ(tokens(l, "a/b // c\nd # e\nf (*/* g */ h ( i"),
              "name a | symbol=50 / | name b | name d | name f | name h | symbol=51 ( | name i");
}

TEST(base_lexer, lexers_of_one_language_share_their_symbols_until_one_changes_its_own)
{
    lexer first;
    add_symbols(first);
    first.set_token(base_lexer::TK_NAME, 60);
    unsigned char classes[256];
    std::copy(base_lexer::m_charset_def, base_lexer::m_charset_def + 256, classes);
    classes['@'] = 1;
    first.set_charset(classes);
    lexer second(2, first);
    EXPECT_EQ(tokens(second, "if @ =="), "keyword=30 if | name=60 @ | symbol=22 ==");
    second.set_symbol("if", 99);
    second.set_symbol("new", 98);
    EXPECT_EQ(tokens(second, "if new"), "keyword=99 if | keyword=98 new");
    EXPECT_EQ(tokens(first, "if new"), "keyword=30 if | name=60 new");
    first.get_symbol_table().remove("if");
    EXPECT_EQ(tokens(first, "if"), "name=60 if");
    EXPECT_EQ(tokens(second, "if"), "keyword=99 if");
    // A table that was handed out can change under its holder's hand: a new lexer gets its own.
    base_lexer::symbol_table& table = first.get_symbol_table();
    lexer third(1, first);
    table.set("late", 97);
    EXPECT_EQ(tokens(first, "late"), "keyword=97 late");
    EXPECT_EQ(tokens(third, "late"), "name=60 late");
    const lexer& constant = second;
    EXPECT_EQ(*constant.get_symbol_table().find("new"), 98);
    // Plain lexers share the default table.
    lexer a;
    lexer b;
    a.set_symbol("+", 1);
    EXPECT_EQ(tokens(b, "+"), "");
    EXPECT_EQ(tokens(a, "+"), "symbol=1 +");
}

TEST(base_lexer, a_copy_goes_on_where_the_other_stands)
{
    lexer l;
    add_symbols(l);
    l.set_token(base_lexer::TK_INTEGER, 61);
    l.text("a b\n1 2");
    token t;
    l.get_token(nullptr);
    l.get_token(nullptr);
    l.unget_token();
    lexer copy(l);
    lexer assigned(4);
    assigned.text("other");
    assigned = l;
    assigned = *&assigned;
    l.text("gone");
    for (lexer* x : { &copy, &assigned }) {
        EXPECT_EQ(x->get_token(&t), 6);
        EXPECT_STREQ(t.get_text().c_str(), "b");
        EXPECT_EQ(t.get_begin(), x->get_buf() + 2) << "spans point into the copy's text";
        EXPECT_EQ(x->get_token(&t), 61);
        EXPECT_EQ(x->get_line(), 2);
        EXPECT_EQ(tokens(*x, "if"), "keyword=30 if");
        x->set_symbol("if", 31);
    }
    EXPECT_EQ(tokens(l, "if"), "keyword=30 if");
}

TEST(base_lexer, equal_spellings_share_one_text)
{
    lexer l;
    add_symbols(l);
    l.text("name + name + if if");
    token t[6];
    for (token& x : t)
        l.get_token(&x);
    EXPECT_EQ(t[0].get_text().c_str(), t[2].get_text().c_str());
    EXPECT_EQ(t[1].get_text().c_str(), t[3].get_text().c_str());
    EXPECT_EQ(t[4].get_text().c_str(), t[5].get_text().c_str());
    // Two lexers never do: they may live in different threads.
    lexer other(1, l);
    other.text("name +");
    token u;
    other.get_token(&u);
    EXPECT_NE(u.get_text().c_str(), t[0].get_text().c_str());
    other.get_token(&u);
    EXPECT_NE(u.get_text().c_str(), t[1].get_text().c_str());
}

TEST(base_lexer, more_names_than_a_lexer_keeps_are_read_all_the_same)
{
    std::string text;
    for (int i = 0; i < 10000; ++i)
        text += "n" + std::to_string(i) + "=" + std::string(i % 100 == 0 ? 100 : 0, 'x') + "if ";
    lexer l;
    add_symbols(l);
    l.text(text);
    token t;
    for (int i = 0; i < 10000; ++i) {
        l.get_token(&t);
        ASSERT_EQ(t.get_text().c_str(), "n" + std::to_string(i));
        ASSERT_EQ(l.get_token(&t), 21);
        ASSERT_EQ(l.get_token(&t), i % 100 == 0 ? 6 : 30);
    }
    EXPECT_EQ(l.get_token(&t), 11);
}

// ---- against the naive lexer ----------------------------------------------------------------------

TEST(base_lexer, generated_texts_agree_with_a_naive_lexer)
{
    static const char* const pieces[] = { "a", "if", "~not", "rem", "x9_", "1", "42", "007", ".", "1.5", "=", "==", "===", "<", "<<=",
                                          "+", "(", "$", "$[", "/", "//", "/*", "*/", "*", "\"", "\"\"", "\"\"\"", "'", "''", "\\", "\\n",
                                          "\\\"", "\\65", "\n", " ", "\t", "\xE4", "\xFF", "#", "'c'", "\"s\"", "0.1", "if" };
    std::mt19937 random(23);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (unsigned n = static_cast<unsigned>(random() % 30); n > 0; --n)
            text += random() % 40 == 0 ? std::string(1, '\0') : pieces[random() % (sizeof pieces / sizeof *pieces)];
        lexer l;
        add_symbols(l);
        naive::lexer expected(text);
        for (const auto& s : l.get_symbol_table())
            expected.symbols[s.key.c_str()] = s.value;
        l.text(text);
        for (int ends = 0; ends < 3;) {
            token t;
            std::string message = "none";
            std::string expected_message = "none";
            int kind = 0;
            const naive::token n = expected.next(expected_message);
            try {
                kind = l.read_token(t);
            } catch (const xrterror& e) {
                message = e.what();
            }
            ASSERT_EQ(message, expected_message) << text;
            ASSERT_EQ(l.get_pos(), expected.pos()) << text;
            ASSERT_EQ(l.get_line(), expected.line()) << text;
            if (message == "none") {
                ASSERT_EQ(kind, n.kind) << text;
                ASSERT_EQ(t.get_type(), n.code) << text;
                ASSERT_EQ(show(t.get_var()), n.value) << text;
                ASSERT_EQ(t.get_begin(), l.get_buf() + n.begin) << text;
            }
            ends += kind == 11;
        }
    }
}

} // namespace
