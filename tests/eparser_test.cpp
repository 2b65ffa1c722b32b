// The expression parser: what it reports, with which status it ends, and what it
// leaves unread.
#include "naive_expression.h"
#include "repeated.h"
#include "stack_use.h"
#include "value_text.h"

#include <stdkro/eparser.h>

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

std::string status_text(int status) { return status == 0 ? "" : " error " + code_text(status); }

/// The reports, the status, and behind "|" the next token that was left unread.
template <class read_t> std::string outcome(const char* text, const std::vector<naive::step>& steps, read_t read)
{
    eparser::elexer lexer;
    EXPECT_EQ(0, lexer.load_string(text, nullptr, false));
    int status;
    try {
        status = read(lexer);
    } catch (const xrterror& e) {
        return naive::text_of(steps) + " throws" + status_text(e.get_err());
    }
    std::string all = naive::text_of(steps) + status_text(status);
    token rest;
    if (lexer.get_token(&rest) != base_lexer::TK_EOF)
        all += std::string(" | ") + (text + (rest.get_begin() - lexer.get_buf()));
    return all;
}

std::string parse(const char* text)
{
    naive::recorder parser;
    return outcome(text, parser.steps, [&](eparser::elexer& lexer) { return parser.read_expr(&lexer); });
}

std::string parse_by_the_book(const char* text)
{
    naive::textbook parser;
    return outcome(text, parser.steps, [&](eparser::elexer& lexer) { return parser.read(lexer); });
}

const struct {
    const char* text;
    const char* reports;
} cases[] = {
    // A call is announced by its end alone; operands come before their operator.
    { "a = b + f(1, c) * -2", "a b 1 , c , f/2 2 neg * + =" },
    // Each operator has its code.
    { "a + b", "a b +" },
    { "a - b", "a b -" },
    { "a * b", "a b *" },
    { "a / b", "a b /" },
    { "a % b", "a b %" },
    { "a > b", "a b >" },
    { "a < b", "a b <" },
    { "a = b", "a b =" },
    { "a *= b", "a b *=" },
    { "a /= b", "a b /=" },
    { "a += b", "a b +=" },
    { "a -= b", "a b -=" },
    { "a == b", "a b ==" },
    { "a >= b", "a b >=" },
    { "a <= b", "a b <=" },
    { "a != b", "a b !=" },
    { "a && b", "a b &&" },
    { "a || b", "a b ||" },
    { "!a", "a !" },
    { "@a", "a @" },
    { "-a", "a neg" },
    // Multiplication binds tighter than addition, addition than comparison,
    // comparison than logic, logic than assignment.
    { "a + b * c", "a b c * +" },
    { "a * b + c", "a b * c +" },
    { "a < b + c", "a b c + <" },
    { "a + b < c", "a b + c <" },
    { "a && b == c", "a b c == &&" },
    { "a == b && c", "a b == c &&" },
    { "a = b && c", "a b c && =" },
    { "a = b || c == d + e * f", "a b c d e f * + == || =" },
    { "a * b + c == d || e", "a b * c + d == e ||" },
    { "(a + b) * c", "a b + c *" },
    // The levels of one precedence group from the left.
    { "a - b + c - d", "a b - c + d -" },
    { "a / b * c % d", "a b / c * d %" },
    { "a || b && c", "a b || c &&" },
    { "a && b || c", "a b && c ||" },
    // Assignment groups from the right and takes anything on its left.
    { "a = b = 1", "a b 1 = =" },
    { "a += b -= c", "a b c -= +=" },
    { "1 + 2 = 3", "1 2 + 3 =" },
    { "a == b = c", "a b == c =" },
    // Comparisons do not chain: the second ends the expression.
    { "1 < 2 < 3", "1 2 < | < 3" },
    { "a == b != c && d", "a b == | != c && d" },
    { "a && b < c < d", "a b c < && | < d" },
    { "a < b && c < d", "a b < c d < &&" },
    { "a < b = c", "a b < c =" },
    { "(a < b) < c", "a b < c <" },
    // A prefix applies to one factor and stands alone.
    { "-a * b", "a neg b *" },
    { "a * -b", "a b neg *" },
    { "a - -b", "a b neg -" },
    { "-(-a)", "a neg neg" },
    { "!(a && b)", "a b && !" },
    { "-f(a)", "a , f/1 neg" },
    { "!!a", " error 80020006 | !a" },
    { "- -a", " error 80020006 | -a" },
    { "!", " error 80020006" },
    // A factor is a group, a name, a call or a literal.
    { "a", "a" },
    { "(a)", "a" },
    { "((((a))))", "a" },
    { "f()", "f/0" },
    { "f(a)", "a , f/1" },
    { "f(a, b, c)", "a , b , c , f/3" },
    { "f(a)(b)", "a , f/1 | (b)" },
    { "f(g(a), h(), b + c)", "a , g/1 , h/0 , b c + , f/3" },
    { "f(a = 1, b < c)", "a 1 = , b c < , f/2" },
    { "f (a)", "a , f/1" },
    { "1.5 + \"s\" + 'c' + 12", "1.5 \"s\" + 99 + 12 +" },
    // Nothing that can start an operand.
    { "", " error 80020006" },
    { "   \n ", " error 80020006" },
    { "// only a comment", " error 80020006" },
    { ")", " error 80020006 | )" },
    { "*a", " error 80020006 | *a" },
    { "a +", "a error 80020006" },
    { "a + * b", "a error 80020006 | * b" },
    { "a =", "a error 80020006" },
    { "a <", "a error 80020006" },
    { "a &&", "a error 80020006" },
    { "a *", "a error 80020006" },
    { "a + b = ", "a b + error 80020006" },
    { "& a", " error 80020006 | & a" },
    // A missing ")" is a syntax error, and what stands there is given back.
    { "(1", "1 error 80020005" },
    { "(a b)", "a error 80020005 | b)" },
    { "((a)", "a error 80020005" },
    { "(a, b)", "a error 80020005 | , b)" },
    // What went wrong between balanced parentheses is not passed on.
    { "(1 +)", "1" },
    { "()", "" },
    { "(1 +) * 2", "1 2 *" },
    { "(a b) + 1", "a error 80020005 | b) + 1" },
    { "(+", " error 80020005 | +" },
    // A bad separator in an argument list is a syntax error without the call.
    { "f(", ", error 80020005" },
    { "f(a", "a , error 80020005" },
    { "f(a b)", "a , error 80020005 | b)" },
    { "f(a; b)", "a , error 80020005 | b)" },
    { "1 + f(a", "1 a , error 80020005" },
    // An empty argument counts, because its failure is not looked at.
    { "f(1,)", "1 , , f/2" },
    { "f(,)", ", , f/2" },
    { "f(a +, b)", "a , b , f/2" },
    { "f((a, b)", "a , b , f/2" },
    // What fits no rule is left for the caller.
    { "a b", "a | b" },
    { "a & b", "a | & b" },
    { "a | b", "a | | b" },
    { "a, b", "a | , b" },
    { "a)", "a | )" },
    { "1 2", "1 | 2" },
    { "a !b", "a | !b" },
    { "a @", "a | @" },
    // Comments and unknown characters are skipped.
    { "a /* b */ + // c\n d", "a d +" },
    { "a # + $ b", "a b +" },
    { "a /= b / c", "a b c / /=" },
    // Errors of the lexer pass through, after what was reported before them.
    { "\"abc", " throws error 80020007" },
    { "a + 'b", "a throws error 80020007" },
    { "(a + \"b", "a throws error 80020007" },
    { "f(a, /* b", "a , throws error 80020007" },
    { "1 \"b", "1 throws error 80020007" },
    { "1 * 2 \"b", "1 2 * throws error 80020007" },
    { "1 + 2 \"b", "1 2 throws error 80020007" },
    { "1 + 2 * a \"b", "1 2 throws error 80020007" },
};

TEST(eparser, reports_in_postfix_order)
{
    for (const auto& c : cases)
        EXPECT_EQ(c.reports, parse(c.text)) << "expression: " << c.text;
}

TEST(eparser, gives_the_kind_of_each_literal)
{
    naive::recorder parser;
    eparser::elexer lexer;
    lexer.load_string("f(1.5, \"s\", 'c', 12)", nullptr, false);
    ASSERT_EQ(0, parser.read_expr(&lexer));
    const struct {
        unsigned at;
        int kind;
        base_var::type type;
    } literals[] = {
        { 0, 5, base_var::real },
        { 2, 7, base_var::string },
        { 4, 8, base_var::integer },
        { 6, 9, base_var::integer },
    };
    for (const auto& l : literals) {
        EXPECT_EQ(l.kind, parser.steps[l.at].code);
        EXPECT_EQ(l.type, parser.steps[l.at].value.get_type());
    }
}

TEST(eparser, reads_one_expression_after_another)
{
    naive::recorder parser;
    eparser::elexer lexer;
    lexer.load_string("a + 1 f(b) (c", nullptr, false);
    EXPECT_EQ(0, parser.read_expr(&lexer));
    EXPECT_EQ("a 1 +", naive::text_of(parser.steps));
    parser.steps.clear();
    EXPECT_EQ(0, parser.read_expr(&lexer));
    EXPECT_EQ("b , f/1", naive::text_of(parser.steps));
    EXPECT_EQ(err::syntax, parser.read_expr(&lexer));
    EXPECT_EQ(err::unexpected, parser.read_expr(&lexer));
}

// ---- the base class and the lexer -----------------------------------------------

/// Opens what only derived parsers can call.
class levels : public naive::recorder {
public:
    using eparser::add_expr;
    using eparser::call_expr;
    using eparser::cmp_expr;
    using eparser::eval_expr;
    using eparser::expr;
    using eparser::factor;
    using eparser::logic_expr;
    using eparser::mul_expr;
    using eparser::not_expr;

    void attach(eparser::elexer& lexer) { lexer_ = &lexer; }
    eparser::elexer* attached() const { return lexer_; }
};

TEST(eparser, each_rule_reads_its_own_level)
{
    const struct {
        const char* name;
        int (*rule)(levels&);
        const char* reports;
    } rules[] = {
        { "factor", [](levels& p) { return p.factor(); }, "a | * b + c < d && e = f" },
        { "not_expr", [](levels& p) { return p.not_expr(); }, "a | * b + c < d && e = f" },
        { "mul_expr", [](levels& p) { return p.mul_expr(); }, "a b * | + c < d && e = f" },
        { "add_expr", [](levels& p) { return p.add_expr(); }, "a b * c + | < d && e = f" },
        { "cmp_expr", [](levels& p) { return p.cmp_expr(); }, "a b * c + d < | && e = f" },
        { "logic_expr", [](levels& p) { return p.logic_expr(); }, "a b * c + d < e && | = f" },
        { "eval_expr", [](levels& p) { return p.eval_expr(); }, "a b * c + d < e && f =" },
        { "expr", [](levels& p) { return p.expr(); }, "a b * c + d < e && f =" },
    };
    for (const auto& r : rules) {
        levels parser;
        const std::string got = outcome("a * b + c < d && e = f", parser.steps, [&](eparser::elexer& lexer) {
            parser.attach(lexer);
            return r.rule(parser);
        });
        EXPECT_EQ(r.reports, got) << r.name;
    }
    levels parser;
    EXPECT_EQ("1 , 2 , g/2", outcome("1, 2)", parser.steps, [&](eparser::elexer& lexer) {
        parser.attach(lexer);
        return parser.call_expr("g");
    }));
}

TEST(eparser, a_rule_function_returns_0_or_a_status)
{
    // The private functions hand token codes upwards; none may leak out.
    eparser::elexer lexer;
    levels parser;
    parser.attach(lexer);
    for (const char* text : { "a )", "a = b )", "a + b ,", "f(a) b" }) {
        lexer.load_string(text, nullptr, false);
        EXPECT_EQ(0, parser.expr()) << text;
    }
}

TEST(eparser, ignores_the_reports_itself)
{
    eparser parser;
    eparser::elexer lexer;
    lexer.load_string("f(a, 1) + -b", nullptr, false);
    EXPECT_EQ(0, parser.read_expr(&lexer));
    parser.onBeginCall("f");
}

/// Throws at the name "bad".
class refusing : public naive::recorder {
public:
    void onID(const share_str& name) override
    {
        if (name == "bad")
            throw xrterror(err::conflict, "bad name");
        naive::recorder::onID(name);
    }
};

TEST(eparser, what_a_callback_throws_passes_through)
{
    refusing parser;
    eparser::elexer lexer;
    lexer.load_string("a + f((bad) + 1) c", nullptr, false);
    try {
        parser.read_expr(&lexer);
        ADD_FAILURE();
    } catch (const xrterror& e) {
        EXPECT_EQ(err::conflict, e.get_err());
        EXPECT_STREQ("bad name", e.what());
    }
    EXPECT_EQ("a", naive::text_of(parser.steps));
    // The lexer stands where the parser left it, and both go on.
    EXPECT_EQ(eparser::OP_CLOSE, lexer.get_token(nullptr));
    EXPECT_EQ(eparser::OP_ADD, lexer.get_token(nullptr));
    EXPECT_EQ(0, parser.read_expr(&lexer));
    EXPECT_EQ("a 1", naive::text_of(parser.steps));
}

TEST(eparser, a_copy_has_the_same_lexer)
{
    eparser::elexer lexer;
    lexer.load_string("a", nullptr, false);
    levels parser;
    EXPECT_EQ(nullptr, parser.attached());
    parser.read_expr(&lexer);
    EXPECT_EQ(&lexer, parser.attached());
    const levels copy(parser);
    EXPECT_EQ(&lexer, copy.attached());
    levels assigned;
    assigned = parser;
    EXPECT_EQ(&lexer, assigned.attached());
}

TEST(elexer, gives_each_symbol_its_code)
{
    const struct {
        const char* text;
        int code;
    } symbols[] = {
        { "(", 0x11 },  { ")", 0x12 },  { "+", 0x13 },  { "-", 0x14 },  { "*", 0x15 },  { "/", 0x16 },
        { "%", 0x17 },  { ">", 0x18 },  { "<", 0x19 },  { "=", 0x1A },  { "*=", 0x1B }, { "/=", 0x1C },
        { "+=", 0x1D }, { "-=", 0x1E }, { "==", 0x1F }, { ">=", 0x20 }, { "<=", 0x21 }, { "!=", 0x22 },
        { "&&", 0x23 }, { "||", 0x24 }, { "!", 0x25 },  { "@", 0x26 },  { ",", 0x28 },  { "|", 2 },
        { "&", 2 },
    };
    eparser::elexer lexer;
    for (const auto& s : symbols) {
        lexer.load_string(s.text, nullptr, false);
        EXPECT_EQ(s.code, lexer.get_token(nullptr)) << s.text;
        EXPECT_EQ(base_lexer::TK_EOF, lexer.get_token(nullptr)) << s.text;
        const int* const stored = lexer.get_symbol_table().find(s.text);
        ASSERT_NE(nullptr, stored) << s.text;
        EXPECT_EQ(s.code, *stored) << s.text;
    }
}

TEST(elexer, takes_the_longest_symbol)
{
    eparser::elexer lexer;
    lexer.load_string("<==!=&&&", nullptr, false);
    for (const int code : { 0x21, 0x1A, 0x22, 0x23, 2, 11 })
        EXPECT_EQ(code, lexer.get_token(nullptr));
}

TEST(elexer, a_symbol_of_one_lexer_is_not_known_to_another)
{
    eparser::elexer one;
    one.set_symbol("?", 77);
    one.set_symbol("+", 78);
    eparser::elexer other;
    one.load_string("?+", nullptr, false);
    EXPECT_EQ(77, one.get_token(nullptr));
    EXPECT_EQ(78, one.get_token(nullptr));
    other.load_string("?+", nullptr, false);
    EXPECT_EQ(0x13, other.get_token(nullptr));
    EXPECT_EQ(base_lexer::TK_EOF, other.get_token(nullptr));
}

TEST(elexer, a_copy_reads_on_from_the_same_place)
{
    eparser::elexer lexer;
    lexer.load_string("1 + 2", nullptr, false);
    lexer.get_token(nullptr);
    eparser::elexer copy(lexer);
    EXPECT_EQ(0x13, copy.get_token(nullptr));
    EXPECT_EQ(0x13, lexer.get_token(nullptr));
}

// ---- depth and length -------------------------------------------------------------

int status_of(const std::string& text)
{
    eparser parser;
    eparser::elexer lexer;
    lexer.load_string(text.data(), text.data() + text.size(), false);
    return parser.read_expr(&lexer);
}

TEST(eparser, nesting_is_bounded)
{
    const struct {
        const char* open;
        const char* inside;
        const char* close;
    } forms[] = {
        { "(", "a", ")" },
        { "-(", "a", ")" },
        { "f(", "a", ")" },
        { "f(1, ", "a", ")" },
        { "a=", "a", "" },
        { "1+(2*(", "a", "))" },
        { "a=f((", "a", "))" },
    };
    for (const auto& f : forms) {
        EXPECT_EQ(err::overrun, status_of(repeated(f.open, 100000))) << f.open;
        EXPECT_EQ(err::overrun, status_of(repeated(f.open, 100000) + f.inside + repeated(f.close, 100000)))
            << f.open;
        EXPECT_EQ(0, status_of(repeated(f.open, 250) + f.inside + repeated(f.close, 250))) << f.open;
    }
    EXPECT_EQ(0, status_of(repeated("(", 500) + "a" + repeated(")", 500)));
    EXPECT_EQ(0, status_of(repeated("(", eparser::max_nesting - 1) + "a" + repeated(")", eparser::max_nesting - 1)));
    EXPECT_EQ(err::overrun, status_of(repeated("(", eparser::max_nesting) + "a" + repeated(")", eparser::max_nesting)));
}

/// Remembers how deep in the stack its tokens are asked for.
class measuring_lexer : public eparser::elexer {
public:
    int get_token(token* out) override
    {
        stack.remember();
        return elexer::get_token(out);
    }

    stack_use stack;
};

TEST(eparser, the_deepest_expression_uses_less_than_512_KB_of_stack)
{
    for (const char* form : { "(", "-(", "a*(", "a<b*(", "a&&b<c+d*-(", "f(", "a&&b<c+d*-f(1, ", "a=", "a=b+f((" }) {
        const std::string text = repeated(form, 100000);
        measuring_lexer lexer;
        lexer.load_string(text.c_str(), nullptr, false);
        eparser parser;
        EXPECT_EQ(err::overrun, parser.read_expr(&lexer)) << form;
        EXPECT_LT(lexer.stack.bytes(), allowed_stack) << form;
        EXPECT_GT(lexer.stack.bytes(), 16u * 1024) << form;
    }
}

TEST(eparser, a_parser_is_whole_after_an_overrun)
{
    eparser parser;
    eparser::elexer lexer;
    const std::string deep = repeated("(", 2000);
    lexer.load_string(deep.data(), nullptr, false);
    EXPECT_EQ(err::overrun, parser.read_expr(&lexer));
    const std::string unclosed = repeated("(", 900) + "'";
    lexer.load_string(unclosed.data(), nullptr, false);
    EXPECT_THROW(parser.read_expr(&lexer), xrterror);
    const std::string sound = repeated("(", 900) + "a" + repeated(")", 900);
    lexer.load_string(sound.data(), nullptr, false);
    EXPECT_EQ(0, parser.read_expr(&lexer));
}

TEST(eparser, chains_have_no_limit)
{
    for (const char* link : { "a+", "a*", "a&&", "-a-", "a<b||", "f(a)/", "(a)%" })
        EXPECT_EQ(0, status_of(repeated(link, 100000) + "a")) << link;
    EXPECT_EQ(0, status_of("f(" + repeated("a,", 100000) + "a)"));
}

// ---- against the grammar by the book ------------------------------------------------

std::string random_text(std::mt19937& random)
{
    static const char* const words[] = {
        "a",  "b",  "f(", "g(", "1",  "2.5", "\"s\"", "'c'", "(",  ")",  ")",  ",", "+", "-", "*", "/",
        "%",  ">",  "<",  "=",  "*=", "/=",  "+=",    "-=",  "==", ">=", "<=", "!=", "&&", "||", "!", "@",
        "|",  "&",  "#",  "\n", "/*c*/", "\"", "a", "b", "1", "(", "+", ")",
    };
    const unsigned count = static_cast<unsigned>(random() % 24);
    std::string text;
    for (unsigned i = 0; i < count; ++i)
        text += std::string(words[random() % (sizeof words / sizeof *words)]) + " ";
    return text;
}

TEST(eparser, agrees_with_the_grammar_by_the_book)
{
    std::mt19937 random(20260131);
    for (unsigned i = 0; i < 20000; ++i) {
        const std::string text = random_text(random);
        ASSERT_EQ(parse_by_the_book(text.c_str()), parse(text.c_str())) << "expression: " << text;
    }
}

} // namespace
