// Patterns, from the text to the rule: the automata against an independent matcher
// and against each other, over all small patterns and many random ones.
#include "naive_pattern.h"

#include <stdkro/rdfa.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define STDKRO_SANITIZED 1
#else
#define STDKRO_SANITIZED 0
#endif

namespace {

using naive::grove;
using naive::tree;

/// Sanitized programs and the 32-bit ones, which run in an emulator, take a part of
/// the work: every twentieth or every fourth pattern.
const unsigned part = STDKRO_SANITIZED ? 20 : sizeof(void*) == 4 ? 4 : 1;

/// A pattern and what it means, made together: the tree does not come from the parser.
struct sample {
    std::string pattern;
    const tree* meaning;
    int level; // 0 a repetition's operand, 1 an element of a sequence, 2 an alternative
};

std::string within(const sample& s, int level) { return s.level > level ? "(" + s.pattern + ")" : s.pattern; }

sample letter(grove& trees, char c) { return { std::string(1, c), trees.byte(static_cast<unsigned char>(c)), 0 }; }

sample join(grove& trees, const sample& a, const sample& b)
{
    return { within(a, 1) + within(b, 0), trees.make(tree::sequence, a.meaning, b.meaning), 1 };
}

sample choose(grove& trees, const sample& a, const sample& b)
{
    return { within(a, 2) + "|" + within(b, 1), trees.make(tree::choice, a.meaning, b.meaning), 2 };
}

sample repeat(grove& trees, const sample& a, char op)
{
    const tree::kind_t kind = op == '*' ? tree::star : op == '+' ? tree::plus : tree::option;
    return { within(a, 0) + op, trees.make(kind, a.meaning), 0 };
}

/// All patterns over a, b and c with this many letters and at most so many operators.
std::vector<sample> all_patterns(grove& trees, unsigned letters, unsigned operators)
{
    // found[n][k]: those with n letters and exactly k operators.
    std::vector<std::vector<std::vector<sample>>> found(letters + 1);
    for (unsigned n = 1; n <= letters; ++n) {
        found[n].resize(operators + 1);
        for (unsigned k = 0; k <= operators; ++k) {
            std::vector<sample>& list = found[n][k];
            if (n == 1 && k == 0)
                list = { letter(trees, 'a'), letter(trees, 'b'), letter(trees, 'c') };
            for (unsigned m = 1; m < n; ++m) {
                for (unsigned left = 0; left <= k; ++left) {
                    for (const sample& a : found[m][left]) {
                        for (const sample& b : found[n - m][k - left])
                            list.push_back(join(trees, a, b));
                        if (left == k)
                            continue;
                        for (const sample& b : found[n - m][k - left - 1])
                            list.push_back(choose(trees, a, b));
                    }
                }
            }
            if (k == 0)
                continue;
            for (const sample& body : found[n][k - 1]) {
                for (const char op : { '*', '+', '?' })
                    list.push_back(repeat(trees, body, op));
            }
        }
    }
    std::vector<sample> all;
    for (const auto& list : found[letters])
        all.insert(all.end(), list.begin(), list.end());
    return all;
}

/// All texts over a, b and c of at most this length.
std::vector<std::string> all_texts(unsigned length)
{
    std::vector<std::string> texts { "" };
    for (std::size_t i = 0; texts[i].size() < length; ++i) {
        for (const char c : { 'a', 'b', 'c' })
            texts.push_back(texts[i] + c);
    }
    return texts;
}

/// A pattern with its two automata.
class automata {
public:
    explicit automata(const std::string& pattern)
    {
        EXPECT_EQ(0, rnfa_maker().read_expr(nfa_, pattern.c_str(), 3)) << pattern;
        EXPECT_EQ(0, rdfa_maker().ntod(dfa_, nfa_)) << pattern;
    }

    /// "yes" or "no"; or how the two differ.
    std::string match(const std::string& text) const
    {
        const bool by_nfa = nfa_.match(text.data(), text.data() + text.size());
        const int by_dfa = dfa_.match(text.data(), text.data() + text.size());
        if (by_dfa != (by_nfa ? 3 : by_dfa) || (!by_nfa && by_dfa >= 0))
            return "nfa " + std::to_string(by_nfa) + " dfa " + std::to_string(by_dfa);
        return by_nfa ? "yes" : "no";
    }

private:
    rnfa nfa_;
    rdfa dfa_;
};

/// Random patterns over a few letters, with everything that the notation has.
class generator {
public:
    explicit generator(unsigned seed) : random_(seed) {}

    unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }

    sample pattern(unsigned size)
    {
        if (size <= 1)
            return element();
        switch (below(5)) {
        case 0:
            return repeat(trees, pattern(size - 1), "*+?"[below(3)]);
        case 1: {
            const unsigned left = 1 + below(size - 1);
            const sample a = pattern(left);
            return choose(trees, a, pattern(size - left));
        }
        default: {
            const unsigned left = 1 + below(size - 1);
            const sample a = pattern(left);
            return join(trees, a, pattern(size - left));
        }
        }
    }

    std::string text(unsigned longest)
    {
        std::string t;
        for (unsigned n = below(longest + 1); n > 0; --n)
            t += "aaabbbccd\n"[below(10)];
        return t;
    }

    /// A text that the tree matches, mostly: it is cut to a length.
    std::string instance(const tree& t, unsigned longest)
    {
        std::string text = derive(t);
        return text.substr(0, longest);
    }

    grove trees;

private:
    std::string derive(const tree& t)
    {
        switch (t.kind) {
        case tree::nothing:
            return "";
        case tree::bytes: {
            for (unsigned tries = 0; tries < 20; ++tries) {
                const char c = "abcd\nx"[below(6)];
                if (t.set[static_cast<unsigned char>(c)])
                    return std::string(1, c);
            }
            return "";
        }
        case tree::sequence: {
            const std::string left = derive(*t.left);
            return left + derive(*t.right);
        }
        case tree::choice:
            return derive(below(2) ? *t.left : *t.right);
        default: {
            std::string text;
            const unsigned most = t.kind == tree::option ? 1 : 3;
            for (unsigned n = below(most + 1) + (t.kind == tree::plus); n > 0; --n)
                text += derive(*t.left);
            return text;
        }
        }
    }

    char any_letter() { return "abcd"[below(4)]; }

    sample element()
    {
        switch (below(8)) {
        case 0:
            return set("[", false);
        case 1:
            return set("~[", true);
        case 2: {
            tree* t = trees.make(tree::bytes);
            t->set.set();
            t->set.reset('\n');
            return { ".", t, 0 };
        }
        case 3:
            return quoted();
        default:
            return letter(trees, any_letter());
        }
    }

    sample set(const char* open, bool negated)
    {
        std::string text = open;
        tree* t = trees.make(tree::bytes);
        for (unsigned n = 1 + below(3); n > 0; --n) {
            const char from = any_letter();
            text += from;
            t->set.set(static_cast<unsigned char>(from));
            if (below(2) == 0)
                continue;
            const char to = any_letter();
            text += std::string("-") + to;
            for (char c = from; c <= to; ++c)
                t->set.set(static_cast<unsigned char>(c));
        }
        if (negated)
            t->set.flip();
        return { text + "]", t, 0 };
    }

    sample quoted()
    {
        std::string text = "\"";
        const tree* t = nullptr;
        for (unsigned n = 1 + below(3); n > 0; --n) {
            const char c = any_letter();
            text += c;
            const tree* one = trees.byte(static_cast<unsigned char>(c));
            t = t ? trees.make(tree::sequence, t, one) : one;
        }
        return { text + "\"", t, 0 };
    }

    std::mt19937 random_;
};

} // namespace

TEST(regex, all_small_patterns_match_what_they_mean)
{
    const std::vector<std::string> texts = all_texts(6);
    ASSERT_EQ(1093u, texts.size());
    unsigned patterns = 0;
    for (unsigned letters = 1; letters <= 3; ++letters) {
        grove trees;
        for (const sample& s : all_patterns(trees, letters, 2)) {
            if (patterns++ % part != 0)
                continue;
            const automata both(s.pattern);
            for (const std::string& text : texts)
                ASSERT_EQ(naive::matches(*s.meaning, text) ? "yes" : "no", both.match(text))
                    << s.pattern << " on " << text;
        }
    }
    EXPECT_EQ(10641u, patterns);
}

TEST(regex, random_patterns_match_what_they_mean)
{
    const unsigned texts = 20;
    generator random(20260131);
    unsigned accepted = 0;
    for (unsigned pairs = 0; pairs < 1000000 / part; pairs += texts) {
        random.trees.clear();
        const sample s = random.pattern(1 + random.below(10));
        const automata both(s.pattern);
        for (unsigned i = 0; i < texts; ++i) {
            const std::string text = i % 2 ? random.text(12) : random.instance(*s.meaning, 40);
            const bool expected = naive::matches(*s.meaning, text);
            accepted += expected;
            ASSERT_EQ(expected ? "yes" : "no", both.match(text)) << s.pattern << " on " << text;
        }
    }
    EXPECT_LT(400000 / part, accepted); // both answers are well represented
}

TEST(regex, the_tree_of_the_parser_is_the_one_meant)
{
    // So that the trees of other tests, which come from the parser, can be trusted.
    generator random(7);
    naive::parser parser;
    for (unsigned i = 0; i < 2000; ++i) {
        random.trees.clear();
        const sample s = random.pattern(1 + random.below(8));
        const tree* parsed = parser.parse(s.pattern.c_str());
        ASSERT_NE(nullptr, parsed) << s.pattern;
        for (unsigned n = 0; n < 10; ++n) {
            const std::string text = random.text(10);
            ASSERT_EQ(naive::matches(*s.meaning, text), naive::matches(*parsed, text)) << s.pattern << " on " << text;
        }
    }
}

TEST(regex, rules_united_in_one_automaton_name_the_highest_that_matches)
{
    generator random(99);
    for (unsigned round = 0; round < 3000 / part; ++round) {
        random.trees.clear();
        rnfa nfa;
        rnfa_maker patterns;
        std::vector<std::pair<int, sample>> rules;
        for (unsigned n = 1 + random.below(6); n > 0; --n) {
            rules.emplace_back(static_cast<int>(random.below(100)), random.pattern(1 + random.below(5)));
            ASSERT_EQ(0, patterns.add_expr(nfa, rules.back().second.pattern.c_str(),
                                           static_cast<short>(rules.back().first)));
        }
        rdfa automaton;
        ASSERT_EQ(0, rdfa_maker().ntod(automaton, nfa));
        for (unsigned i = 0; i < 20; ++i) {
            const std::string text
                = i % 2 ? random.text(8) : random.instance(*rules[random.below(static_cast<unsigned>(rules.size()))].second.meaning, 40);
            int winner = -1;
            for (const auto& rule : rules) {
                if (naive::matches(*rule.second.meaning, text))
                    winner = std::max(winner, rule.first);
            }
            const int found = automaton.match(text.data(), text.data() + text.size());
            ASSERT_EQ(winner, std::max(found, -1)) << rules[0].second.pattern << " and others on " << text;
        }
    }
}

TEST(regex, random_bytes_are_a_pattern_or_an_error)
{
    static const char alphabet[] = "ab(|)*+?.[]-~\"{}:digt\\ 019\n\xFF\xE9";
    std::mt19937 random(5);
    unsigned patterns = 0;
    naive::parser parser;
    rnfa_maker makers;
    for (unsigned i = 0; i < 200000 / part; ++i) {
        std::string pattern;
        for (auto n = random() % 12; n > 0; --n)
            pattern += alphabet[random() % (sizeof alphabet - 1)];
        rnfa nfa;
        int code = 0;
        try {
            code = makers.read_expr(nfa, pattern.c_str(), 1);
        } catch (const xrterror& e) {
            code = e.get_err();
        }
        if (code < 0) {
            EXPECT_TRUE(code == err::unexpected || code == err::abnormal_end || code == err::undefined_symbol)
                << pattern;
            continue;
        }
        const tree* meaning = parser.parse(pattern.c_str());
        ASSERT_EQ(meaning == nullptr, nfa.start() < 0) << pattern;
        if (!meaning)
            continue;
        ++patterns;
        rdfa automaton;
        ASSERT_EQ(0, rdfa_maker().ntod(automaton, nfa)) << pattern;
        for (const char* text : { "", "a", "b", "ab", "a(", "\xE9", "01" }) {
            const bool expected = naive::matches(*meaning, text);
            ASSERT_EQ(expected, nfa.match(text)) << pattern << " on " << text;
            ASSERT_EQ(expected, automaton.match(text) == 1) << pattern << " on " << text;
        }
    }
    EXPECT_LT(50000 / part, patterns);
}
