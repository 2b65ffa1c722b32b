// The rules of the token benchmarks, in the library's notation and in the one that
// its peers share. Rule 1 is the name, 2 to 4 are literals, all others keywords.
#ifndef STDKRO_BENCH_TOKEN_RULES_H
#define STDKRO_BENCH_TOKEN_RULES_H

#include <set>
#include <string>
#include <vector>

struct token_rule {
    std::string ours;
    std::string theirs;
};

/// Words of two to four syllables, all different, the same in every program.
inline std::vector<std::string> keywords(unsigned n)
{
    static const char* const syllables[] = { "ba", "ce", "di", "fo", "gu", "ka", "le", "mi", "no", "pu",
                                             "ra", "se", "ti", "vo", "wu", "za" };
    std::vector<std::string> words;
    std::set<std::string> seen;
    for (unsigned x = 1; words.size() < n;) {
        std::string word;
        for (unsigned i = 0; i < 2 + (x >> 16) % 3; ++i) {
            x = x * 1664525u + 1013904223u;
            word += syllables[x >> 28];
        }
        x = x * 1664525u + 1013904223u;
        if (seen.insert(word).second)
            words.push_back(word);
    }
    return words;
}

inline std::vector<token_rule> token_rules(unsigned n)
{
    std::vector<token_rule> rules = {
        { "[a-z_][a-z_0-9]*", "[a-z_][a-z_0-9]*" },
        { "[0-9]+", "[0-9]+" },
        { "[0-9]+\\.[0-9]*", "[0-9]+\\.[0-9]*" },
        { "'~['\\n]*'", "'[^'\\n]*'" },
    };
    for (const std::string& word : keywords(n - 4))
        rules.push_back({ word, word });
    return rules;
}

#endif
