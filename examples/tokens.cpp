// A program that cuts its input into tokens: the rules are patterns, united in one
// automaton, and the loop below is all that a scanner needs.
//
//     echo 'total = 12 * (price + 3.5)' | example_tokens
#include <stdkro/rdfa.h>
#include <stdkro/xcpt.h>

#include <iostream>
#include <iterator>
#include <string>

namespace {

enum kind : short { blank, name, number, real, symbol, keyword };

// Where several rules accept the same text, the highest number wins.
const struct {
    kind rule;
    const char* pattern;
    const char* title;
} rules[] = {
    { blank, "[\\32\\t\\r\\n]+", "" },
    { name, "[a-zA-Z_][a-zA-Z_0-9]*", "name" },
    { number, "[0-9]+", "number" },
    { real, "[0-9]+\\.[0-9]+", "real" },
    { symbol, "[-=<>()+*/]|\"<=\"|\">=\"", "symbol" },
    { keyword, "\"if\"|\"then\"|\"else\"", "keyword" },
};

/// Makes the table; throws for a pattern that is wrong.
rdfa table_of_rules()
{
    rnfa nfa;
    rnfa_maker maker;
    for (const auto& r : rules)
        maker.add_expr(nfa, r.pattern, r.rule);
    rdfa table;
    const int r = rdfa_maker().ntod(table, nfa);
    if (r < 0)
        throw xcpt(r, "too many states");
    return table;
}

/// The end of the longest token at `begin`, and its rule; `begin` where there is none.
const char* find_token(const rdfa& table, const char* begin, const char* end, short& rule)
{
    const char* longest = begin;
    short state = 0;
    for (const char* p = begin; p != end;) {
        state = table.get_state(state, static_cast<unsigned char>(*p++));
        if (state < 0)
            break;
        if (table.get_accept(state) >= 0) {
            rule = table.get_accept(state);
            longest = p;
        }
    }
    return longest;
}

} // namespace

int main()
{
    const std::string text(std::istreambuf_iterator<char>(std::cin), {});
    const rdfa table = table_of_rules();
    const char* const end = text.data() + text.size();
    for (const char* p = text.data(); p != end;) {
        short rule = blank;
        const char* const token_end = find_token(table, p, end, rule);
        if (token_end == p) {
            std::cerr << "no token begins at byte " << p - text.data() << "\n";
            return 1;
        }
        if (rule != blank)
            std::cout << rules[rule].title << " " << std::string(p, token_end) << "\n";
        p = token_end;
    }
    return 0;
}
