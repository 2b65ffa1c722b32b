// Patterns against RE2, for the part of the notation that has a counterpart there.
#include <stdkro/rdfa.h>

#include <gtest/gtest.h>
#include <re2/re2.h>

#include <random>
#include <string>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const unsigned patterns = 2000;
#else
const unsigned patterns = 10000;
#endif

/// One language in both notations.
struct sample {
    std::string ours;
    std::string theirs;
};

RE2::Options bytes_in_whole_texts()
{
    RE2::Options options;
    options.set_encoding(RE2::Options::EncodingLatin1);
    options.set_log_errors(false);
    return options;
}

class both {
public:
    explicit both(const sample& s) : theirs_(s.theirs, bytes_in_whole_texts())
    {
        EXPECT_TRUE(theirs_.ok()) << s.theirs << ": " << theirs_.error();
        EXPECT_EQ(0, rnfa_maker().read_expr(nfa_, s.ours.c_str(), 1)) << s.ours;
        EXPECT_EQ(0, rdfa_maker().ntod(dfa_, nfa_)) << s.ours;
    }

    /// Three letters: by the NFA, by the DFA, by RE2.
    std::string match(const std::string& text) const
    {
        const char* end = text.data() + text.size();
        return std::string() + letter(nfa_.match(text.data(), end)) + letter(dfa_.match(text.data(), end) == 1)
            + letter(RE2::FullMatch(text, theirs_));
    }

private:
    static char letter(bool yes) { return yes ? 'y' : 'n'; }

    RE2 theirs_;
    rnfa nfa_;
    rdfa dfa_;
};

class generator {
public:
    unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }

    sample pattern(unsigned size)
    {
        if (size <= 1)
            return element();
        if (below(4) == 0) {
            const sample body = pattern(size - 1);
            const char op = "*+?"[below(3)];
            return { "(" + body.ours + ")" + op, "(?:" + body.theirs + ")" + op };
        }
        const unsigned left = 1 + below(size - 1);
        const sample a = pattern(left);
        const sample b = pattern(size - left);
        if (below(3) == 0)
            return { "(" + a.ours + "|" + b.ours + ")", "(?:" + a.theirs + "|" + b.theirs + ")" };
        return { a.ours + b.ours, a.theirs + b.theirs };
    }

    std::string text()
    {
        std::string t;
        for (unsigned n = below(14); n > 0; --n)
            t += "aaabbbccd\n\xE9z"[below(12)];
        return t;
    }

private:
    sample element()
    {
        switch (below(8)) {
        case 0:
            return { ".", "." };
        case 1: {
            const std::string members = set();
            return { "[" + members + "]", "[" + members + "]" };
        }
        case 2: {
            const std::string members = set();
            return { "~[" + members + "]", "[^" + members + "]" };
        }
        case 3:
            return { "\\233", "\\xe9" };
        case 4:
            return { "\"ab\"", "(?:ab)" };
        default: {
            const std::string letter(1, "abc"[below(3)]);
            return { letter, letter };
        }
        }
    }

    std::string set()
    {
        static const char* const sets[] = { "a", "ab", "a-c", "b-d", "ac-dz", "d" };
        return sets[below(6)];
    }

    std::mt19937 random_ { 20260131 };
};

} // namespace

TEST(regex, classes_and_escapes_agree_with_re2)
{
    static const sample samples[] = {
        { ".", "." },
        { "[a-f0-9_]", "[a-f0-9_]" },
        { "~[a-f0-9_]", "[^a-f0-9_]" },
        { "~[\\n]", "[^\\n]" },
        { "\\65\\.\\*", "\\x41\\.\\*" },
        { "[\\128-\\255]", "[\\x80-\\xff]" },
        { "{:digit:}", "[0-8]" },
        { "{:xdigit:}", "[0-8a-eA-E]" },
        { "{:letter:}", "[a-yA-Y]" },
        { "{:whitespace:}", "[ \\n\\t\\r]" },
        { "[^a]", "[\\^a]" },
        { "[c-a]", "c" },
        { "[a-]", "a" },
        { "\"a*|b\"", "a\\*\\|b" },
        { "[]", "(?:)" },
    };
    for (const sample& s : samples) {
        const both automata(s);
        for (int byte = 0; byte < 256; ++byte) {
            const std::string found = automata.match(std::string(1, static_cast<char>(byte)));
            EXPECT_TRUE(found == "yyy" || found == "nnn") << s.ours << " on byte " << byte << ": " << found;
        }
        for (const char* text : { "", "A.*", "a*|b", "ab", "\n\n" }) {
            const std::string found = automata.match(text);
            EXPECT_TRUE(found == "yyy" || found == "nnn") << s.ours << " on " << text << ": " << found;
        }
    }
}

TEST(regex, random_patterns_agree_with_re2)
{
    generator random;
    unsigned accepted = 0;
    for (unsigned i = 0; i < patterns; ++i) {
        const sample s = random.pattern(1 + random.below(9));
        const both automata(s);
        for (unsigned n = 0; n < 20; ++n) {
            const std::string text = random.text();
            const std::string found = automata.match(text);
            ASSERT_TRUE(found == "yyy" || found == "nnn") << s.ours << " on " << text << ": " << found;
            accepted += found == "yyy";
        }
    }
    EXPECT_LT(patterns / 2, accepted);
}
