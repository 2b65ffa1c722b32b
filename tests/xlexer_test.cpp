// The script lexer: text mode, statement mode, and both over one look-ahead.
#include <stdkro/xpp.h>

#include <gtest/gtest.h>

#include <string>

namespace {

std::string shown(const token& t)
{
    if (!t.get_var().is_rvalue())
        return std::to_string(t.get_type());
    return std::to_string(t.get_type()) + ":" + t.get_string().c_str();
}

/// All tokens of text mode; behind an opener those of statement mode up to "]".
std::string tokens(const std::string& text)
{
    xpp::xlexer lexer('$', '[', ']');
    EXPECT_EQ(lexer.load_string(text.data(), text.data() + text.size()), 0);
    std::string all;
    token t;
    for (;;) {
        int code = lexer.get_x_token(&t);
        all += (all.empty() ? "" : "|") + shown(t);
        EXPECT_EQ(code, t.get_type());
        if (code == xpp::xlexer::TK_EOF)
            return all;
        if (code != xpp::xlexer::TK_STATEMENT)
            continue;
        do {
            code = lexer.get_token(&t);
            all += " " + shown(t);
            if (code == xpp::xlexer::TK_EOF)
                return all;
        } while (code != xpp::xlexer::TK_CLOSE);
    }
}

struct row {
    const char* text;
    const char* tokens;
};

void expect_all(const row* begin, const row* end)
{
    for (const row* r = begin; r != end; ++r)
        EXPECT_EQ(tokens(r->text), r->tokens) << "text: " << r->text;
}

template <size_t n> void expect_all(const row (&rows)[n]) { expect_all(rows, rows + n); }

TEST(xlexer, collects_text_up_to_the_next_statement)
{
    expect_all({
        { "", "11" },
        { "plain", "14:plain|11" },
        { "two\nlines\n", "14:two\nlines\n|11" },
        { "a [b] c]", "14:a [b] c]|11" },
        { "text$[x]", "14:text|57 6:x 43:]|11" },
        { "$[x]text", "57 6:x 43:]|14:text|11" },
        { "$[]", "57 43:]|11" },
        { "$[", "57 11" },
    });
}

TEST(xlexer, reads_what_stands_behind_a_mark)
{
    expect_all({
        // A doubled mark is one mark, and begins no statement.
        { "$$", "14:$|11" },
        { "$$[x]", "14:$[x]|11" },
        { "$$$[x]", "14:$|57 6:x 43:]|11" },
        { "$$$$", "14:$|14:$|11" },
        // The text before a mark is a token of its own.
        { "a$$b", "14:a|14:$b|11" },
        // A comment takes its line feed with it.
        { "a$. comment\nb", "14:a|14:b|11" },
        { "$.", "11" },
        { "$. to the end", "11" },
        { "$.\n$.\nx", "14:x|11" },
        // White space behind a mark joins.
        { "a$\n    b", "14:a|14:b|11" },
        { "$ \t\n\v\f\r x", "14:x|11" },
        { "$ ", "11" },
        { "$ $ $ x", "14:x|11" },
        // Anything else is text, the mark too.
        { "$5", "14:$5|11" },
        { "$a$]", "14:$a|14:$]|11" },
        // A mark at the end is itself.
        { "$", "14:$|11" },
        { "x$", "14:x|14:$|11" },
    });
}

TEST(xlexer, knows_the_words_of_statements)
{
    expect_all({
        { "$[if elif else end proc var for continue break return exit;]",
          "57 46:if 47:elif 48:else 49:end 50:proc 51:var 52:for 53:continue 54:break 55:return 56:exit 45:; 43:]|11" },
        { "$[ifs endif If _end]", "57 6:ifs 6:endif 6:If 6:_end 43:]|11" },
        { "$[a[1]]", "57 6:a 41:[ 9:1 43:]|14:]|11" },
        { "$[$ $[]", "57 44:$ 57:$[ 43:]|11" },
        { "$[(1 + 2.5) \"s\" 'c']", "57 17:( 9:1 19:+ 5:2.5 18:) 7:s 8:99 43:]|11" },
        // "]" inside a string closes nothing.
        { "$[\"]\"]", "57 7:] 43:]|11" },
        // Comments of expressions.
        { "$[a /* ] */ b // ]\n]", "57 6:a 6:b 43:]|11" },
    });
}

TEST(xlexer, continues_names_with_points_and_high_bytes)
{
    expect_all({
        { "$[if.end for.end a.b.c x.]", "57 6:if.end 6:for.end 6:a.b.c 6:x. 43:]|11" },
        { "$[n\xc3\xa4me a\xe4\xb8\xad]", "57 6:n\xc3\xa4me 6:a\xe4\xb8\xad 43:]|11" },
        { "$[a1_b2]", "57 6:a1_b2 43:]|11" },
        // "~" may begin a name but not continue one.
        { "$[~a a~b]", "57 6:~a 6:a 6:~b 43:]|11" },
        // A high byte begins nothing: it is dropped.
        { "$[\xc3\xa4x]", "57 6:x 43:]|11" },
        { "$[1a]", "57 9:1 6:a 43:]|11" },
    });
}

TEST(xlexer, reads_a_byte_0xff_as_an_end)
{
    expect_all({
        { "\xff" "after", "11" },
        { "before\xff" "after", "14:before|11" },
        { "$\xff" "after", "14:$|11" },
        { "$$\xff" "after", "14:$|11" },
        { "$ \xff" "after", "11" },
        { "$. comment\xff" "after\nafter", "11" },
        { "$[a\xff" "b]", "57 6:a 11" },
        { "$[a \xff" "b]", "57 6:a 11" },
        { "$[1\xff" "b]", "57 9:1 11" },
        { "$[a // \xff" "b\n]", "57 6:a 11" },
    });
}

TEST(xlexer, goes_on_behind_a_byte_0xff_when_asked_to)
{
    xpp::xlexer lexer('$', '[', ']');
    lexer.load_string("a\xff" "b\xff\xff$[c\xff" "d");
    token t;
    std::string all;
    for (int i = 0; i < 6; ++i) {
        lexer.get_x_token(&t);
        all += shown(t) + " ";
    }
    for (int i = 0; i < 4; ++i) {
        lexer.get_token(&t);
        all += shown(t) + " ";
    }
    EXPECT_EQ(all, "14:a 11 14:b 11 11 57 6:c 11 6:d 11 ");
}

TEST(xlexer, keeps_nul_bytes_of_a_text)
{
    const struct { std::string text, shown; } rows[] = {
        { std::string("a\0b", 3), std::string("a\0b", 3) },
        { std::string("$\0b", 3), std::string("$\0b", 3) },
        { std::string("$\0", 2), std::string("$\0", 2) },
    };
    for (const auto& r : rows) {
        xpp::xlexer lexer('$', '[', ']');
        lexer.load_string(r.text.data(), r.text.data() + r.text.size());
        token t;
        EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_TEXT);
        EXPECT_EQ(std::string(t.get_text().c_str(), t.get_text().length()), r.shown);
        EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_EOF);
    }
}

TEST(xlexer, counts_lines_in_both_modes)
{
    const struct { const char* text; int lines[4]; } rows[] = {
        // The line behind each of the first tokens of text mode.
        { "a\nb\n$[", { 3, 3, 3, 3 } },
        { "$\n\n$.x\n$[", { 4, 4, 4, 4 } },
        { "a$\n\nb", { 1, 3, 3, 3 } },
    };
    for (const auto& r : rows) {
        xpp::xlexer lexer('$', '[', ']');
        lexer.load_string(r.text);
        for (const int line : r.lines) {
            lexer.get_x_token(nullptr);
            EXPECT_EQ(lexer.get_line(), line) << r.text;
        }
    }
}

TEST(xlexer, puts_tokens_of_either_mode_back_into_either)
{
    xpp::xlexer lexer('$', '[', ']');
    lexer.load_string("text$[end]tail");
    token t;
    EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_TEXT);
    lexer.unget_token();
    EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_TEXT);
    EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_STATEMENT);
    EXPECT_EQ(std::string(t.get_begin(), t.get_end()), "$[");
    EXPECT_EQ(lexer.get_token(&t), xpp::xlexer::TK_END);
    lexer.unget_token();
    EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_END);
    lexer.unget_token();
    EXPECT_EQ(lexer.get_token(nullptr), xpp::xlexer::TK_END);
    EXPECT_EQ(lexer.get_token(nullptr), xpp::xlexer::TK_CLOSE);
    EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_TEXT);
    EXPECT_EQ(t.get_string(), "tail");
}

TEST(xlexer, spans_the_opener_alone)
{
    xpp::xlexer lexer('$', '[', ']');
    lexer.load_string("$. comment\n$ \n $[x]");
    token t;
    EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_STATEMENT);
    EXPECT_EQ(t.get_literal(), "$[");
    EXPECT_FALSE(t.get_var().is_initialized());
}

TEST(xlexer, changes_its_three_characters)
{
    xpp::xlexer lexer('$', '[', ']');
    lexer.set_mark('%', '{', '}');
    EXPECT_EQ(lexer.get_symbol_table().find("$"), nullptr);
    EXPECT_EQ(lexer.get_symbol_table().find("["), nullptr);
    EXPECT_EQ(lexer.get_symbol_table().find("]"), nullptr);
    EXPECT_EQ(lexer.get_symbol_table().find("$["), nullptr);
    const struct { const char* spelling; int code; } codes[]
        = { { "{", 41 }, { "}", 43 }, { "%", 44 }, { "%{", 57 }, { "if", 46 } };
    for (const auto& c : codes)
        EXPECT_EQ(*lexer.get_symbol_table().find(c.spelling), c.code) << c.spelling;
    lexer.load_string("$[a]%%%{if}");
    token t;
    EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_TEXT);
    EXPECT_EQ(t.get_string(), "$[a]");
    EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_TEXT);
    EXPECT_EQ(t.get_string(), "%");
    EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_STATEMENT);
    EXPECT_EQ(lexer.get_token(&t), xpp::xlexer::TK_IF);
    EXPECT_EQ(lexer.get_token(&t), xpp::xlexer::TK_CLOSE);
}

struct open_lexer : xpp::xlexer {
    using xpp::xlexer::xlexer;
    using base_lexer::find_type;
};

TEST(xlexer, keeps_its_symbols_to_itself)
{
    const open_lexer before('$', '[', ']');
    open_lexer changed('$', '[', ']');
    changed.set_mark('%', '{', '}');
    changed.set_symbol("unless", 77);
    open_lexer lent('$', '[', ']');
    lent.get_symbol_table().remove("if");
    const open_lexer other('%', '{', ']');
    const open_lexer after('$', '[', ']');
    const struct { const char* spelling; int usual, changed, lent, other; } rows[] = {
        { "$", 44, 0, 44, 0 },   { "[", 41, 0, 41, 0 },      { "$[", 57, 0, 57, 0 },
        { "]", 43, 0, 43, 43 },  { "%{", 0, 57, 0, 57 },     { "{", 0, 41, 0, 41 },
        { "if", 46, 46, 0, 46 }, { "unless", 0, 77, 0, 0 },  { "%", 0x17, 44, 0x17, 44 },
        { ";", 45, 45, 45, 45 }, { "&&", 0x23, 0x23, 0x23, 0x23 },
    };
    for (const auto& r : rows) {
        EXPECT_EQ(before.find_type(r.spelling), r.usual) << r.spelling;
        EXPECT_EQ(after.find_type(r.spelling), r.usual) << r.spelling;
        EXPECT_EQ(changed.find_type(r.spelling), r.changed) << r.spelling;
        EXPECT_EQ(lent.find_type(r.spelling), r.lent) << r.spelling;
        EXPECT_EQ(other.find_type(r.spelling), r.other) << r.spelling;
    }
}

TEST(xlexer, copies_with_its_characters_and_position)
{
    xpp::xlexer lexer('%', '{', '}');
    lexer.load_string("one%{two}");
    token t;
    lexer.get_x_token(&t);
    xpp::xlexer copy(lexer);
    EXPECT_EQ(copy.get_x_token(&t), xpp::xlexer::TK_STATEMENT);
    EXPECT_EQ(copy.get_token(&t), base_lexer::TK_NAME);
    EXPECT_EQ(lexer.get_x_token(&t), xpp::xlexer::TK_STATEMENT);
    xpp::xlexer other('$', '[', ']');
    other = lexer;
    EXPECT_EQ(other.get_token(&t), base_lexer::TK_NAME);
    EXPECT_EQ(t.get_string(), "two");
}

TEST(xlexer, throws_lexical_errors)
{
    for (const char* text : { "$[\"open", "$['", "$[/* open", "$[\"line\n\"]" }) {
        xpp::xlexer lexer('$', '[', ']');
        lexer.load_string(text);
        lexer.get_x_token(nullptr);
        try {
            lexer.get_token(nullptr);
            ADD_FAILURE() << text;
        } catch (const xrterror& e) {
            EXPECT_EQ(static_cast<unsigned>(e.get_err()), 0x80020007u) << text;
        }
    }
}

} // namespace
