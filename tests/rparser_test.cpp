// rparser: the notation, told as the sequence of callbacks that it makes.
#include <stdkro/rnfa.h>
#include <stdkro/xcpt.h>

#include "repeated.h"
#include "stack_use.h"
#include "virtual_slot.h"

#include <gtest/gtest.h>

#include <cctype>
#include <memory>
#include <string>
#include <vector>

namespace {

std::string byte_text(unsigned byte)
{
    return byte < 128 && std::isgraph(static_cast<int>(byte)) ? std::string(1, static_cast<char>(byte))
                                                              : "\\" + std::to_string(byte);
}

/// Writes the callbacks down: nodes are numbered in the order in which they are made.
class tracer : public rparser {
public:
    /// The callbacks for `text`, then "-> " and the result; or the error.
    std::string trace(const std::string& text)
    {
        reader in;
        in.load_string(text.data(), text.data() + text.size(), false);
        return trace(in);
    }

    std::string trace(reader& in)
    {
        log_.clear();
        nodes_.clear();
        try {
            rbase* result = nullptr;
            const int r = expr(&result, in);
            EXPECT_EQ(0, r);
            log_ += "-> " + name(result);
        } catch (const xrterror& e) {
            char code[16];
            std::snprintf(code, sizeof code, "%08x ", static_cast<unsigned>(e.get_err()));
            log_ += code + std::string(e.what());
        }
        return log_;
    }

    /// Callbacks of this kind return null.
    std::string null_for;
    /// Where the last name stood.
    const char* last_id = nullptr;

    using rparser::isstop;
    using rparser::to_char;

protected:
    rbase* onID(const char* id, unsigned length) override
    {
        last_id = id;
        return made("id", "'" + std::string(id, length) + "'");
    }
    rbase* onAtom(unsigned char byte) override { return made("atom", byte_text(byte)); }
    rbase* onSet(const unsigned char* set) override { return made("set", set_text(set)); }
    rbase* onRep(rbase* body, int op) override
    {
        return made("rep", name(body) + " " + std::string(1, static_cast<char>(op)));
    }
    rbase* onCat(rbase* left, rbase* right) override { return made("cat", name(left) + " " + name(right)); }
    rbase* onOR(rbase* left, rbase* right) override { return made("or", name(left) + " " + name(right)); }
    rbase* onConnect(rbase* previous, unsigned char byte) override
    {
        return made("connect", name(previous) + " " + byte_text(byte));
    }
    rbase* onEndRule(rbase* whole) override
    {
        log_ += "end(" + name(whole) + ") ";
        return whole;
    }
    void doRevoke(rbase*) override { log_ += "revoke "; }

private:
    struct node : rbase {
        explicit node(std::size_t n) : number(n) {}
        std::size_t number;
    };

    static std::string name(rbase* n) { return n ? std::to_string(static_cast<node*>(n)->number) : "null"; }

    /// Ranges of entries; those that stand for no byte by their number.
    static std::string set_text(const unsigned char* set)
    {
        std::string text;
        for (unsigned i = 0; i < 258; ++i) {
            EXPECT_LE(set[i], 1);
            if (!set[i] || (i > 0 && set[i - 1]))
                continue;
            unsigned last = i;
            while (last < 257 && set[last + 1])
                ++last;
            text += (text.empty() ? "" : " ") + std::to_string(i)
                + (last > i ? "-" + std::to_string(last) : std::string());
        }
        return "{" + text + "}";
    }

    rbase* made(const std::string& what, const std::string& of)
    {
        log_ += what + "(" + of + ")";
        if (what == null_for) {
            log_ += " ";
            return nullptr;
        }
        nodes_.emplace_back(new node(nodes_.size() + 1));
        log_ += "=" + name(nodes_.back().get()) + " ";
        return nodes_.back().get();
    }

    std::string log_;
    std::vector<std::shared_ptr<node>> nodes_;
};

/// Opens the scanner.
class open_parser : public tracer {
public:
    explicit open_parser(const tracer& other) : tracer(other) {}
    using rparser::fallback;
    using rparser::get_next;
};

} // namespace

static const struct {
    const char* pattern;
    const char* callbacks;
} cases[] = {
    // An element is a byte; elements that follow each other are concatenated.
    { "a", "atom(a)=1 end(1) -> 1" },
    { "ab", "atom(a)=1 atom(b)=2 cat(1 2)=3 end(3) -> 3" },
    { "abc", "atom(a)=1 atom(b)=2 cat(1 2)=3 atom(c)=4 cat(3 4)=5 end(5) -> 5" },
    // Alternation binds less tightly, and groups to the left.
    { "a|b", "atom(a)=1 atom(b)=2 or(1 2)=3 end(3) -> 3" },
    { "ab|c", "atom(a)=1 atom(b)=2 cat(1 2)=3 atom(c)=4 or(3 4)=5 end(5) -> 5" },
    { "a|b|c", "atom(a)=1 atom(b)=2 or(1 2)=3 atom(c)=4 or(3 4)=5 end(5) -> 5" },
    // Repetition binds most tightly, and operators stack.
    { "a*", "atom(a)=1 rep(1 *)=2 end(2) -> 2" },
    { "a+", "atom(a)=1 rep(1 +)=2 end(2) -> 2" },
    { "a?", "atom(a)=1 rep(1 ?)=2 end(2) -> 2" },
    { "ab*", "atom(a)=1 atom(b)=2 rep(2 *)=3 cat(1 3)=4 end(4) -> 4" },
    { "a*?", "atom(a)=1 rep(1 *)=2 rep(2 ?)=3 end(3) -> 3" },
    { "a|b*", "atom(a)=1 atom(b)=2 rep(2 *)=3 or(1 3)=4 end(4) -> 4" },
    // Parentheses group and make no node.
    { "(a)", "atom(a)=1 end(1) -> 1" },
    { "(a|b)c", "atom(a)=1 atom(b)=2 or(1 2)=3 atom(c)=4 cat(3 4)=5 end(5) -> 5" },
    { "(ab)*", "atom(a)=1 atom(b)=2 cat(1 2)=3 rep(3 *)=4 end(4) -> 4" },
    { "((a))b", "atom(a)=1 atom(b)=2 cat(1 2)=3 end(3) -> 3" },
    { "a(b|c)", "atom(a)=1 atom(b)=2 atom(c)=3 or(2 3)=4 cat(1 4)=5 end(5) -> 5" },
    // One that is missing is supplied by the end; one too many ends the pattern.
    { "(ab", "atom(a)=1 atom(b)=2 cat(1 2)=3 end(3) -> 3" },
    { "((a|b", "atom(a)=1 atom(b)=2 or(1 2)=3 end(3) -> 3" },
    { "ab)", "atom(a)=1 atom(b)=2 cat(1 2)=3 end(3) -> 3" },
    { "ab)cd", "atom(a)=1 atom(b)=2 cat(1 2)=3 end(3) -> 3" },
    // In element position every other symbol is a byte, operators included.
    { "*", "atom(*)=1 end(1) -> 1" },
    { "**", "atom(*)=1 rep(1 *)=2 end(2) -> 2" },
    { "+a", "atom(+)=1 atom(a)=2 cat(1 2)=3 end(3) -> 3" },
    { "|", "atom(|)=1 end(1) -> 1" },
    { "|a", "atom(|)=1 atom(a)=2 cat(1 2)=3 end(3) -> 3" },
    { "a||b", "atom(a)=1 atom(|)=2 atom(b)=3 cat(2 3)=4 or(1 4)=5 end(5) -> 5" },
    { ")", "atom())=1 end(1) -> 1" },
    { "()", "atom())=1 end(1) -> 1" },
    { "()a", "atom())=1 atom(a)=2 cat(1 2)=3 end(3) -> 3" },
    { "]", "atom(])=1 end(1) -> 1" },
    { "}", "atom(})=1 end(1) -> 1" },
    { "-^$", "atom(-)=1 atom(^)=2 cat(1 2)=3 atom($)=4 cat(3 4)=5 end(5) -> 5" },
    { " a", "atom(\\32)=1 atom(a)=2 cat(1 2)=3 end(3) -> 3" },
    // The end of the input in element position is byte 255.
    { "", "atom(\\255)=1 end(1) -> 1" },
    { "a|", "atom(a)=1 atom(\\255)=2 or(1 2)=3 end(3) -> 3" },
    { "(", "atom(\\255)=1 end(1) -> 1" },
    // The first blank, tab or line end behind an element ends the pattern.
    { "a b", "atom(a)=1 end(1) -> 1" },
    { "a\tb", "atom(a)=1 end(1) -> 1" },
    { "a\nb", "atom(a)=1 end(1) -> 1" },
    { "a\vb", "atom(a)=1 end(1) -> 1" },
    { "a\fb", "atom(a)=1 end(1) -> 1" },
    { "a\rb", "atom(a)=1 end(1) -> 1" },
    { "(a b)c", "atom(a)=1 end(1) -> 1" },
    { "a|b c", "atom(a)=1 atom(b)=2 or(1 2)=3 end(3) -> 3" },
    // Escapes: letters, decimal numbers, and any other byte for itself.
    { "\\r", "atom(\\13)=1 end(1) -> 1" },
    { "\\65", "atom(A)=1 end(1) -> 1" },
    { "\\065b", "atom(A)=1 atom(b)=2 cat(1 2)=3 end(3) -> 3" },
    { "\\0", "atom(\\0)=1 end(1) -> 1" },
    { "\\255", "atom(\\255)=1 end(1) -> 1" },
    { "\\256", "atom(\\255)=1 end(1) -> 1" },
    { "\\300", "atom(\\255)=1 end(1) -> 1" },
    { "\\99999999999999999999a", "atom(\\255)=1 atom(a)=2 cat(1 2)=3 end(3) -> 3" },
    { "\\*\\|\\(\\)\\[\\.", "atom(*)=1 atom(|)=2 cat(1 2)=3 atom(()=4 cat(3 4)=5 atom())=6 cat(5 6)=7 atom([)=8 "
                            "cat(7 8)=9 atom(.)=10 cat(9 10)=11 end(11) -> 11" },
    { "\\\\", "atom(\\)=1 end(1) -> 1" },
    { "\\\"", "atom(\")=1 end(1) -> 1" },
    { "a\\ b", "atom(a)=1 atom(\\32)=2 cat(1 2)=3 atom(b)=4 cat(3 4)=5 end(5) -> 5" },
    { "a\\*", "atom(a)=1 atom(*)=2 cat(1 2)=3 end(3) -> 3" },
    { "a\\|b", "atom(a)=1 atom(|)=2 cat(1 2)=3 atom(b)=4 cat(3 4)=5 end(5) -> 5" },
    { "\\n\\r", "atom(\\10)=1 atom(\\13)=2 cat(1 2)=3 end(3) -> 3" },
    // Escaped bytes 7 to 11 and 30 end a pattern behind an element, though not at its begin.
    { "a\\t", "atom(a)=1 end(1) -> 1" },
    { "a\\nb", "atom(a)=1 end(1) -> 1" },
    { "\\ta", "atom(\\9)=1 atom(a)=2 cat(1 2)=3 end(3) -> 3" },
    { "a\\6b", "atom(a)=1 atom(\\6)=2 cat(1 2)=3 atom(b)=4 cat(3 4)=5 end(5) -> 5" },
    { "a\\7b", "atom(a)=1 end(1) -> 1" },
    { "a\\11b", "atom(a)=1 end(1) -> 1" },
    { "a\\12b", "atom(a)=1 atom(\\12)=2 cat(1 2)=3 atom(b)=4 cat(3 4)=5 end(5) -> 5" },
    { "a\\29b", "atom(a)=1 atom(\\29)=2 cat(1 2)=3 atom(b)=4 cat(3 4)=5 end(5) -> 5" },
    { "a\\30b", "atom(a)=1 end(1) -> 1" },
    { "a\\31b", "atom(a)=1 atom(\\31)=2 cat(1 2)=3 atom(b)=4 cat(3 4)=5 end(5) -> 5" },
    { "a\\32b", "atom(a)=1 atom(\\32)=2 cat(1 2)=3 atom(b)=4 cat(3 4)=5 end(5) -> 5" },
    { "a\\254b", "atom(a)=1 atom(\\254)=2 cat(1 2)=3 atom(b)=4 cat(3 4)=5 end(5) -> 5" },
    // A backslash at the very end vanishes behind an element and is byte 1 as one.
    { "a\\", "atom(a)=1 end(1) -> 1" },
    { "\\", "atom(\\1)=1 end(1) -> 1" },
    { "a|\\", "atom(a)=1 atom(\\1)=2 or(1 2)=3 end(3) -> 3" },
    // Bytes from 128 stand for themselves, escaped or not.
    { "\xE9", "atom(\\233)=1 end(1) -> 1" },
    { "\\\xE9", "atom(\\233)=1 end(1) -> 1" },
    { "a\x80\xFE", "atom(a)=1 atom(\\128)=2 cat(1 2)=3 atom(\\254)=4 cat(3 4)=5 end(5) -> 5" },
    // But a raw byte 255 reads as the end.
    { "a\xFF" "b", "atom(a)=1 end(1) -> 1" },
    { "\xFF" "b", "atom(\\255)=1 atom(b)=2 cat(1 2)=3 end(3) -> 3" },
    { "a\\\xFF" "b", "atom(a)=1 atom(b)=2 cat(1 2)=3 end(3) -> 3" },
    // A point is every byte but the line feed.
    { ".", "set({0-9 11-257})=1 end(1) -> 1" },
    { "\\.", "atom(.)=1 end(1) -> 1" },
    // Sets: bytes and ranges.
    { "[abd]", "set({97-98 100})=1 end(1) -> 1" },
    { "[a-c]", "set({97-99})=1 end(1) -> 1" },
    { "[a-cx-z0]", "set({48 97-99 120-122})=1 end(1) -> 1" },
    { "[a-a]", "set({97})=1 end(1) -> 1" },
    // A range that runs backwards is its first byte, one without an end too.
    { "[c-a]", "set({99})=1 end(1) -> 1" },
    { "[a-]", "set({97})=1 end(1) -> 1" },
    { "[-a]", "set({45 97})=1 end(1) -> 1" },
    { "[a-c-e]", "set({45 97-99 101})=1 end(1) -> 1" },
    { "[--/]", "set({45-47})=1 end(1) -> 1" },
    { "[]", "set({})=1 end(1) -> 1" },
    { "[]a", "set({})=1 atom(a)=2 cat(1 2)=3 end(3) -> 3" },
    // There is no negation inside.
    { "[^a]", "set({94 97})=1 end(1) -> 1" },
    { "~[a]", "set({0-96 98-257})=1 end(1) -> 1" },
    { "~[]", "set({0-257})=1 end(1) -> 1" },
    { "~[\\0-\\255]", "set({256-257})=1 end(1) -> 1" },
    // Only "]" and "-" mean something in a set, and escaped they do not.
    { "[\\]\\-a]", "set({45 93 97})=1 end(1) -> 1" },
    { "[a\\-c]", "set({45 97 99})=1 end(1) -> 1" },
    { "[a-\\]]", "set({97})=1 end(1) -> 1" },
    { "[(|*. \n\"{]", "set({10 32 34 40 42 46 123-124})=1 end(1) -> 1" },
    { "[\\n\\65-\\67]", "set({10 65-67})=1 end(1) -> 1" },
    { "[\\128-\xFE]", "set({128-254})=1 end(1) -> 1" },
    // A set that does not end is no element; neither is what contains it.
    { "[ab", "end(null) -> null" },
    { "[", "end(null) -> null" },
    { "[a-", "end(null) -> null" },
    { "[a\\", "end(null) -> null" },
    { "~[a", "end(null) -> null" },
    { "[a\xFF]", "end(null) -> null" },
    { "x[a", "atom(x)=1 cat(1 null)=2 end(2) -> 2" },
    { "x|[a", "atom(x)=1 or(1 null)=2 end(2) -> 2" },
    // Quoted strings: one callback for each byte.
    { "\"ab\"", "connect(null a)=1 connect(1 b)=2 end(2) -> 2" },
    { "\"a b|*\"", "connect(null a)=1 connect(1 \\32)=2 connect(2 b)=3 connect(3 |)=4 connect(4 *)=5 end(5) -> 5" },
    { "\"a\"*", "connect(null a)=1 rep(1 *)=2 end(2) -> 2" },
    { "\"\\\"\\n\\t\\65\"", "connect(null \")=1 connect(1 \\10)=2 connect(2 \\9)=3 connect(3 A)=4 end(4) -> 4" },
    { "\"a\tb\"", "connect(null a)=1 connect(1 \\9)=2 connect(2 b)=3 end(3) -> 3" },
    // An empty one is no element.
    { "\"\"", "end(null) -> null" },
    { "\"\"a", "end(null) -> null" },
    { "a\"\"", "atom(a)=1 cat(1 null)=2 end(2) -> 2" },
    { "(\"\")a", "end(null) -> null" },
    // Names in braces go to the maker as they stand.
    { "{:digit:}", "id(':digit:')=1 end(1) -> 1" },
    { "{}", "id('')=1 end(1) -> 1" },
    { "{a\\n}b", "id('a\\n')=1 atom(b)=2 cat(1 2)=3 end(3) -> 3" },
    { "{x}*", "id('x')=1 rep(1 *)=2 end(2) -> 2" },
    // Errors. "~" wants a set.
    { "~a", "80020006 must be '['." },
    { "~", "80020006 must be '['." },
    { "a~\\[b]", "atom(a)=1 80020006 must be '['." },
    // A string must end, on its line.
    { "\"ab", "connect(null a)=1 connect(1 b)=2 80020007 regular expression is unabnormal end in the range of a string." },
    { "\"", "80020007 regular expression is unabnormal end in the range of a string." },
    { "\"a\\", "connect(null a)=1 connect(1 \\1)=2 80020007 regular expression is unabnormal end in the range of a string." },
    { "\"a\nb\"", "connect(null a)=1 80020007 unexcepted <CR>." },
    // A name holds no blank, and ends.
    { "{ab c}", "80020007 identifer's declaration invalid." },
    { "{ab\n}", "80020007 identifer's declaration invalid." },
    { "{ab", "80020007 identifer's declaration invalid." },
    { "{", "80020007 identifer's declaration invalid." },
    { "x{\xFF}", "atom(x)=1 80020007 identifer's declaration invalid." },
};

TEST(rparser, has_its_callbacks_in_this_order)
{
    class open_callbacks : public rparser {
    public:
        using rparser::doRevoke;
        using rparser::onAtom;
        using rparser::onCat;
        using rparser::onConnect;
        using rparser::onEndRule;
        using rparser::onID;
        using rparser::onOR;
        using rparser::onRep;
        using rparser::onSet;
    };
    // Behind the destructor.
    EXPECT_EQ(2u, slot_of(&open_callbacks::onID));
    EXPECT_EQ(3u, slot_of(&open_callbacks::onAtom));
    EXPECT_EQ(4u, slot_of(&open_callbacks::onSet));
    EXPECT_EQ(5u, slot_of(&open_callbacks::onRep));
    EXPECT_EQ(6u, slot_of(&open_callbacks::onCat));
    EXPECT_EQ(7u, slot_of(&open_callbacks::onOR));
    EXPECT_EQ(8u, slot_of(&open_callbacks::onConnect));
    EXPECT_EQ(9u, slot_of(&open_callbacks::onEndRule));
    EXPECT_EQ(10u, slot_of(&open_callbacks::doRevoke));
    EXPECT_EQ(sizeof(void*), sizeof(rparser::rbase)); // holds nothing
}

TEST(rparser, reports_each_construct_to_its_callback)
{
    tracer t;
    for (const auto& c : cases)
        EXPECT_EQ(c.callbacks, t.trace(std::string(c.pattern))) << c.pattern;
}

TEST(rparser, a_nul_ends_a_pattern_and_an_escaped_one_does_not)
{
    tracer t;
    EXPECT_EQ("atom(a)=1 end(1) -> 1", t.trace(std::string("a\0b", 3)));
    EXPECT_EQ("atom(\\0)=1 atom(b)=2 cat(1 2)=3 end(3) -> 3", t.trace(std::string("\0b", 2)));
    EXPECT_EQ("atom(a)=1 atom(\\0)=2 cat(1 2)=3 end(3) -> 3", t.trace(std::string("a\\\0", 3)));
    EXPECT_EQ("80020007 identifer's declaration invalid.", t.trace(std::string("{\0}", 3)));
    EXPECT_EQ("connect(null \\0)=1 end(1) -> 1", t.trace(std::string("\"\0\"", 3)));
    EXPECT_EQ("set({0})=1 end(1) -> 1", t.trace(std::string("[\0]", 3)));
}

TEST(rparser, a_callback_that_returns_null_ends_every_level)
{
    tracer t;
    t.null_for = "atom";
    EXPECT_EQ("atom(a) end(null) -> null", t.trace(std::string("a(b|c)*")));
    EXPECT_EQ("atom(a) end(null) -> null", t.trace(std::string("((a))b")));
    t.null_for = "cat";
    EXPECT_EQ("atom(a)=1 atom(b)=2 cat(1 2) end(null) -> null", t.trace(std::string("abc|d")));
    t.null_for = "or";
    EXPECT_EQ("atom(a)=1 atom(b)=2 or(1 2) end(null) -> null", t.trace(std::string("a|b|c")));
    t.null_for = "id";
    EXPECT_EQ("id('x') end(null) -> null", t.trace(std::string("{x}a")));
    // Behind a repetition that gave null, further operators are still reported.
    t.null_for = "rep";
    EXPECT_EQ("atom(a)=1 rep(1 *) rep(null +) end(null) -> null", t.trace(std::string("a*+b")));
    // A null byte of a string is like its begin.
    t.null_for = "connect";
    EXPECT_EQ("connect(null a) connect(null b) end(null) -> null", t.trace(std::string("\"ab\"c")));
}

TEST(rparser, leaves_the_reader_behind_the_last_symbol)
{
    static const struct {
        const char* text;
        unsigned position;
    } rows[] = {
        { "ab", 2 },
        { "a b", 2 },     // behind the blank
        { "a\nb", 2 },
        { "ab)cd", 3 },   // behind the parenthesis
        { "a\\tb", 3 },   // behind the escape
        { "\"x y\" z", 6 },
        { "[ab", 3 },
        { "a\\12 b", 5 },
        { "{ab c}", 4 },  // thrown there
        { "~ab", 2 },
    };
    tracer t;
    for (const auto& row : rows) {
        reader in;
        in.load_string(row.text, nullptr, false);
        t.trace(in);
        EXPECT_EQ(row.position, in.get_pos()) << row.text;
    }
}

TEST(rparser, several_expressions_follow_each_other_in_one_reader)
{
    reader in;
    in.load_string("a b\nc", nullptr, false);
    tracer t;
    EXPECT_EQ("atom(a)=1 end(1) -> 1", t.trace(in));
    EXPECT_EQ("atom(b)=1 end(1) -> 1", t.trace(in));
    EXPECT_EQ(2, in.get_line());
    EXPECT_EQ("atom(c)=1 end(1) -> 1", t.trace(in));
    EXPECT_EQ(0u, in.get_spare());
}

TEST(rparser, names_point_into_the_text)
{
    const char* text = "ab{name}c";
    reader in;
    in.load_string(text, nullptr, false);
    tracer t;
    t.trace(in);
    EXPECT_EQ(text + 3, t.last_id);
}

TEST(rparser, a_text_is_parsed_like_a_reader)
{
    tracer t;
    rparser::rbase* result = nullptr;
    EXPECT_EQ(0, t.expr(&result, "a|b"));
    EXPECT_NE(nullptr, result);
    EXPECT_EQ(0, t.expr(&result, "\"\""));
    EXPECT_EQ(nullptr, result);
    // An error stores nothing.
    rparser::rbase kept;
    result = &kept;
    EXPECT_THROW(t.expr(&result, "~x"), xrterror);
    EXPECT_EQ(&kept, result);
    // After an error the parser begins anew.
    EXPECT_EQ("atom(b)=1 end(1) -> 1", t.trace(std::string("b")));
}

TEST(rparser, refuses_null_pointers)
{
    tracer t;
    rparser::rbase* result = nullptr;
    reader in;
    in.load_string("a", nullptr, false);
    EXPECT_EQ(static_cast<int>(0x8002000e), t.expr(nullptr, "a"));
    EXPECT_EQ(static_cast<int>(0x8002000e), t.expr(&result, static_cast<const char*>(nullptr)));
    EXPECT_EQ(static_cast<int>(0x8002000e), t.expr(nullptr, in));
    EXPECT_EQ(0u, in.get_pos());
}

TEST(rparser, bounds_the_nesting_of_parentheses)
{
    tracer t;
    const std::string deepest = repeated("(", 256) + "a" + repeated(")", 256);
    EXPECT_EQ("atom(a)=1 end(1) -> 1", t.trace(deepest));
    EXPECT_EQ("80010001 overrun", t.trace("(" + deepest + ")"));
    EXPECT_EQ("80010001 overrun", t.trace(repeated("(", 1000000)));
    // What is closed does not count.
    EXPECT_EQ(0u, t.trace(repeated("(a)", 1000)).find("atom(a)=1"));
    EXPECT_EQ("atom(a)=1 end(1) -> 1", t.trace(deepest));
}

/// Remembers between which places of the stack its callbacks for bytes and sets run.
class measuring_parser : public tracer {
public:
    stack_use stack;

protected:
    rbase* onAtom(unsigned char byte) override
    {
        stack.remember();
        return tracer::onAtom(byte);
    }
    rbase* onSet(const unsigned char* set) override
    {
        stack.remember();
        return tracer::onSet(set);
    }
};

TEST(rparser, the_deepest_pattern_uses_less_than_512_KB_of_stack)
{
    for (const char* form : { "a(", "a|(", "[a]*(", "a|b*(" }) {
        measuring_parser parser;
        const std::string log = parser.trace(repeated(form, 100000));
        EXPECT_EQ("80010001 overrun", log.substr(log.rfind("80010001"))) << form;
        EXPECT_LT(parser.stack.bytes(), allowed_stack) << form;
        EXPECT_GT(parser.stack.bytes(), 16u * 1024) << form;
    }
}

TEST(rparser, stop_symbols_are_recognised_by_their_low_byte)
{
    std::string stops;
    for (int symbol = -1; symbol < 514; ++symbol) {
        if (symbol != 257 && tracer::isstop(symbol))
            stops += std::to_string(symbol) + " ";
    }
    EXPECT_EQ("-1 0 9 10 11 12 13 32 265 266 267 268 269 288 ", stops);
}

TEST(rparser, symbols_stand_for_bytes)
{
    EXPECT_EQ(255, tracer::to_char(-1));
    EXPECT_EQ(0, tracer::to_char(0));
    EXPECT_EQ(233, tracer::to_char(233));
    EXPECT_EQ(1, tracer::to_char(257));
    EXPECT_EQ(0, tracer::to_char(258));
    EXPECT_EQ(233, tracer::to_char(258 + 233));
    EXPECT_EQ(255, tracer::to_char(513));
}

TEST(rparser, copies_share_the_reader_and_have_a_symbol_of_their_own)
{
    reader in;
    in.load_string("a bc", nullptr, false);
    tracer a;
    EXPECT_EQ("atom(a)=1 end(1) -> 1", a.trace(in));
    // The blank that ended the expression was pushed back: each parser has it once.
    open_parser b(a);
    open_parser c(b);
    c = b;
    EXPECT_EQ(' ', b.get_next());
    EXPECT_EQ('b', b.get_next());
    EXPECT_EQ(' ', c.get_next());
    EXPECT_EQ('c', c.get_next());
    EXPECT_EQ(-1, b.get_next());
    b.fallback(300);
    EXPECT_EQ(300, b.get_next());
    b.fallback(257); // stands for none
    EXPECT_EQ(-1, b.get_next());
    rparser::rbase node;
    const rparser::rbase copy = node;
    node = copy;
    static_assert(std::has_virtual_destructor<rparser::rbase>::value && std::has_virtual_destructor<rparser>::value,
                  "nodes and makers are deleted through their bases");
}
