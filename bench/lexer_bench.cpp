// The lexer beside a scanner made by flex and beside GLib's, on one source text.
#include <stdkro/base_lexer.h>

#include "lexer_peer_flex.h"

#include <benchmark/benchmark.h>
#include <glib.h>

#include <cmath>
#include <random>
#include <string>

// What flex's reentrant scanner offers.
using yyscan_t = void*;
struct yy_buffer_state;
int yylex_init_extra(flex_value*, yyscan_t*);
int yylex(yyscan_t);
int yylex_destroy(yyscan_t);
yy_buffer_state* yy_scan_bytes(const char*, int, yyscan_t);

namespace {

// A program of about `size` bytes: declarations, conditions, calls, comments.
std::string source_text(std::size_t size)
{
    std::mt19937 random(3);
    const auto pick = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    const auto name = [&] {
        static const char* const words[] = { "count", "index", "total_length", "x", "y2", "buffer", "name", "result_of", "entry" };
        return std::string(words[pick(9)]) + (pick(3) ? "" : "_" + std::to_string(pick(50)));
    };
    std::string text;
    while (text.size() < size) {
        switch (pick(6)) {
        case 0:
            text += "    " + name() + " = " + name() + " * " + std::to_string(pick(1000)) + " + 0." + std::to_string(pick(90)) + ";\n";
            break;
        case 1:
            text += "if (" + name() + " <= " + std::to_string(pick(100000)) + ") {\n    " + name() + " += " + name() + ";\n} else {\n}\n";
            break;
        case 2:
            text += "    print(" + name() + ", \"text of item " + std::to_string(pick(10)) + "\", " + name() + "(1, 2));\n";
            break;
        case 3:
            text += "# a comment to the end of its line\n";
            break;
        case 4:
            text += "while (" + name() + " == " + name() + ") " + name() + " = " + name() + " - 1;\n";
            break;
        default:
            text += "/* a comment\n   of two lines */ return " + name() + ";\n";
        }
    }
    return text;
}

// The same for every scanner that reads the text right. Operators are left out:
// GLib's scanner delivers single characters.
struct summary {
    unsigned names = 0;
    std::size_t name_lengths = 0;
    long long integers = 0;
    double reals = 0;
    std::size_t string_lengths = 0;

    void name(std::size_t length)
    {
        ++names;
        name_lengths += length;
    }
    bool operator==(const summary& o) const
    {
        return names == o.names && name_lengths == o.name_lengths && integers == o.integers
            && std::fabs(reals - o.reals) < 1e-6 && string_lengths == o.string_lengths;
    }
};

struct language : base_lexer {
    language() : base_lexer(1)
    {
        int code = 20;
        for (const char* s : { "+", "-", "*", "/", "=", "<", ">", "==", "<=", ">=", "+=", "(", ")", "{", "}", ";", "," })
            set_symbol(s, code++);
        code = 40;
        for (const char* s : { "if", "else", "while", "return" })
            set_symbol(s, code++);
        set_symbol("#", TK_LINE_COMMENT);
    }
};

summary scan_ours(language& l, const std::string& text)
{
    summary s;
    token t;
    l.load_string(text.data(), text.data() + text.size(), true);
    for (;;) {
        const int code = l.get_token(&t);
        switch (code) {
        case base_lexer::TK_EOF:
            return s;
        case base_lexer::TK_INTEGER:
            s.integers += t.get_var().get_int();
            break;
        case base_lexer::TK_REAL:
            s.reals += t.get_var().get_double();
            break;
        case base_lexer::TK_STRING:
            s.string_lengths += t.get_text().length();
            break;
        default:
            if (code == base_lexer::TK_NAME || code >= 40)
                s.name(t.get_text().length());
        }
    }
}

summary scan_flex(const std::string& text)
{
    summary s;
    flex_value value;
    yyscan_t scanner;
    yylex_init_extra(&value, &scanner);
    yy_scan_bytes(text.data(), static_cast<int>(text.size()), scanner);
    for (;;) {
        const int code = yylex(scanner);
        switch (code) {
        case 11:
            yylex_destroy(scanner);
            return s;
        case 9:
            s.integers += value.integer;
            break;
        case 5:
            s.reals += value.real;
            break;
        case 7:
            s.string_lengths += value.text.size();
            break;
        default:
            if (code == 6 || code >= 40)
                s.name(value.text.size());
        }
    }
}

summary scan_glib(GScanner* scanner, const std::string& text)
{
    summary s;
    g_scanner_input_text(scanner, text.data(), static_cast<guint>(text.size()));
    for (;;) {
        const int code = g_scanner_get_next_token(scanner);
        const GTokenValue& value = scanner->value;
        switch (code) {
        case G_TOKEN_EOF:
            return s;
        case G_TOKEN_INT:
            s.integers += static_cast<long long>(value.v_int);
            break;
        case G_TOKEN_FLOAT:
            s.reals += value.v_float;
            break;
        case G_TOKEN_STRING:
            s.string_lengths += std::string(value.v_string).size();
            break;
        case G_TOKEN_IDENTIFIER:
            s.name(std::string(value.v_identifier).size());
            break;
        default:
            if (code > G_TOKEN_LAST) // a keyword: its token is its length
                s.name(static_cast<std::size_t>(code - G_TOKEN_LAST));
        }
    }
}

GScanner* make_glib_scanner()
{
    GScanner* const scanner = g_scanner_new(nullptr);
    static char first[] = G_CSET_A_2_Z G_CSET_a_2_z "_~";
    static char others[] = G_CSET_A_2_Z G_CSET_a_2_z G_CSET_DIGITS "_~";
    scanner->config->cset_identifier_first = first;
    scanner->config->cset_identifier_nth = others;
    scanner->config->scan_identifier_1char = TRUE;
    scanner->config->scan_octal = FALSE;
    scanner->config->scan_hex = FALSE;
    scanner->config->case_sensitive = TRUE;
    scanner->config->symbol_2_token = TRUE;
    for (const char* word : { "if", "else", "while", "return" }) {
        const std::size_t code = static_cast<std::size_t>(G_TOKEN_LAST) + std::string(word).size();
        g_scanner_scope_add_symbol(scanner, 0, word, GSIZE_TO_POINTER(code));
    }
    return scanner;
}

const std::size_t sizes[] = { 1000, 30000, 1000000 };

bool agree(const std::string& text)
{
    language l;
    GScanner* const scanner = make_glib_scanner();
    const summary ours = scan_ours(l, text);
    const bool same = ours.names > 10 && ours == scan_flex(text) && ours == scan_glib(scanner, text);
    g_scanner_destroy(scanner);
    return same;
}

void bytes(benchmark::State& state, const std::string& text)
{
    state.SetBytesProcessed(state.iterations() * static_cast<long long>(text.size()));
}

void ours(benchmark::State& state, std::size_t size)
{
    const std::string text = source_text(size);
    if (!agree(text))
        state.SkipWithError("the scanners differ");
    language l;
    for (auto _ : state)
        benchmark::DoNotOptimize(scan_ours(l, text));
    bytes(state, text);
}
void flex(benchmark::State& state, std::size_t size)
{
    const std::string text = source_text(size);
    for (auto _ : state)
        benchmark::DoNotOptimize(scan_flex(text));
    bytes(state, text);
}
void glib(benchmark::State& state, std::size_t size)
{
    const std::string text = source_text(size);
    GScanner* const scanner = make_glib_scanner();
    for (auto _ : state)
        benchmark::DoNotOptimize(scan_glib(scanner, text));
    g_scanner_destroy(scanner);
    bytes(state, text);
}

BENCHMARK_CAPTURE(ours, small, sizes[0])->Name("lexer/1 KB/ours");
BENCHMARK_CAPTURE(flex, small, sizes[0])->Name("lexer/1 KB/flex");
BENCHMARK_CAPTURE(glib, small, sizes[0])->Name("lexer/1 KB/GScanner");
BENCHMARK_CAPTURE(ours, middle, sizes[1])->Name("lexer/30 KB/ours");
BENCHMARK_CAPTURE(flex, middle, sizes[1])->Name("lexer/30 KB/flex");
BENCHMARK_CAPTURE(glib, middle, sizes[1])->Name("lexer/30 KB/GScanner");
BENCHMARK_CAPTURE(ours, large, sizes[2])->Name("lexer/1 MB/ours");
BENCHMARK_CAPTURE(flex, large, sizes[2])->Name("lexer/1 MB/flex");
BENCHMARK_CAPTURE(glib, large, sizes[2])->Name("lexer/1 MB/GScanner");

} // namespace
