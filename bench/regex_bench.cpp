// Regular expressions: matching whole texts, naming the rule of a token, building
// automata; against RE2, PCRE2 (compiled, and its DFA matcher) and flex scanners.
#define PCRE2_CODE_UNIT_WIDTH 8

#include "token_rules.h"

#include <stdkro/rdfa.h>

#include <benchmark/benchmark.h>
#include <pcre2.h>
#include <re2/re2.h>
#include <re2/set.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

// The scanners, made by flex. They want texts with two NULs at the end.
struct yy_buffer_state;
#define FLEX_SCANNER(prefix)                                                                                           \
    int prefix##lex();                                                                                                 \
    yy_buffer_state* prefix##_scan_buffer(char* text, std::size_t size);                                               \
    void prefix##_delete_buffer(yy_buffer_state*)
FLEX_SCANNER(scan8_);
FLEX_SCANNER(scan64_);
FLEX_SCANNER(scan512_);

namespace {

using texts = std::vector<std::string>;

[[noreturn]] void differ(const std::string& where)
{
    std::fprintf(stderr, "the two sides differ: %s\n", where.c_str());
    std::abort();
}

const char* end_of(const std::string& text) { return text.data() + text.size(); }

// ---- the library's side ----------------------------------------------------

rnfa nfa_of(const std::vector<token_rule>& rules)
{
    rnfa nfa;
    rnfa_maker maker;
    short id = 1;
    for (const token_rule& rule : rules)
        maker.add_expr(nfa, rule.ours.c_str(), id++);
    return nfa;
}

rdfa dfa_of(const rnfa& nfa)
{
    rdfa dfa;
    rdfa_maker().ntod(dfa, nfa);
    return dfa;
}

// ---- the peers --------------------------------------------------------------

class pcre {
public:
    explicit pcre(const std::string& pattern, bool compiled = true)
    {
        int error = 0;
        PCRE2_SIZE at = 0;
        code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), PCRE2_DOTALL, &error, &at,
                              nullptr);
        if (!code_ || (compiled && pcre2_jit_compile(code_, PCRE2_JIT_COMPLETE) != 0))
            differ("pcre2 does not take " + pattern);
        data_ = pcre2_match_data_create(16, nullptr);
        context_ = pcre2_match_context_create(nullptr);
        stack_ = pcre2_jit_stack_create(1 << 15, 1 << 24, nullptr);
        pcre2_jit_stack_assign(context_, nullptr, stack_);
    }
    pcre(const pcre&) = delete;
    pcre& operator=(const pcre&) = delete;
    ~pcre()
    {
        pcre2_jit_stack_free(stack_);
        pcre2_match_context_free(context_);
        pcre2_match_data_free(data_);
        pcre2_code_free(code_);
    }

    /// By the compiled code, called directly unless told otherwise: "pcre2_match" checks
    /// its arguments and then calls the same code.
    bool match(const std::string& text, decltype(pcre2_match)* call = pcre2_jit_match) const
    {
        return call(code_, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), 0, 0, data_, context_) >= 0;
    }
    bool match_by_dfa(const std::string& text)
    {
        return pcre2_dfa_match(code_, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), 0, 0, data_, context_,
                               workspace_.data(), workspace_.size())
            >= 0;
    }
    /// The number that stands as mark behind the alternative that matched; -1 for none.
    int rule(const std::string& text, decltype(pcre2_match)* call = pcre2_jit_match) const
    {
        if (!match(text, call))
            return -1;
        const auto* mark = reinterpret_cast<const char*>(pcre2_get_mark(data_));
        return (mark[0] - '0') * 100 + (mark[1] - '0') * 10 + (mark[2] - '0');
    }

private:
    pcre2_code* code_;
    pcre2_match_data* data_;
    pcre2_match_context* context_;
    pcre2_jit_stack* stack_;
    std::vector<int> workspace_ = std::vector<int>(20000);
};

RE2::Options re2_options()
{
    RE2::Options options;
    options.set_encoding(RE2::Options::EncodingLatin1);
    options.set_dot_nl(true);
    return options;
}

std::string whole(const std::string& pattern) { return "\\A(?:" + pattern + ")\\z"; }

/// The rules as alternatives, each with its number as mark, the preferred ones first.
std::string marked(const std::vector<token_rule>& rules)
{
    std::string pattern;
    for (std::size_t i = rules.size(); i > 0; --i) {
        char mark[16];
        std::snprintf(mark, sizeof mark, "(*:%03u)", static_cast<unsigned>(i % 1000));
        pattern += (pattern.empty() ? "" : "|") + rules[i - 1].theirs + mark;
    }
    return whole(pattern);
}

class re2_set {
public:
    explicit re2_set(const std::vector<token_rule>& rules) : set_(re2_options(), RE2::ANCHOR_BOTH)
    {
        for (const token_rule& rule : rules)
            set_.Add(rule.theirs, nullptr);
        set_.Compile();
    }
    int rule(const std::string& text)
    {
        found_.clear();
        if (!set_.Match(text, &found_))
            return -1;
        int highest = 0;
        for (const int i : found_)
            highest = i + 1 > highest ? i + 1 : highest;
        return highest;
    }

private:
    RE2::Set set_;
    std::vector<int> found_;
};

// ---- texts --------------------------------------------------------------------

std::mt19937& randomness()
{
    static std::mt19937 random(20260131);
    return random;
}

unsigned below(unsigned n) { return static_cast<unsigned>(randomness()() % n); }

std::string word(unsigned shortest, unsigned longest)
{
    std::string w;
    for (unsigned n = shortest + below(longest - shortest + 1); n > 0; --n)
        w += static_cast<char>('a' + below(26));
    return w;
}

/// Addresses, a fifth of them wrong.
texts addresses()
{
    texts all;
    for (unsigned i = 0; i < 4096; ++i) {
        std::string t = word(3, 12) + (below(2) ? "." + word(3, 8) : "") + "@" + word(4, 10);
        for (unsigned n = 1 + below(2); n > 0; --n)
            t += "." + word(2, 3);
        if (below(5) == 0)
            t[below(static_cast<unsigned>(t.size()))] = '!';
        all.push_back(t);
    }
    return all;
}

/// Lines of prose, of so many bytes altogether.
std::string prose(std::size_t size)
{
    std::string t;
    for (unsigned words = 0; t.size() < size; ++words)
        t += word(1, 9) + (words % 12 == 11 ? ".\n" : " ");
    t.resize(size - 2);
    return t + ".\n";
}

/// Fields "name=12;", of about so many bytes altogether. The state changes every few
/// bytes, each time behind a run of a length that nothing foretells: the hard case for a
/// walk that reads ahead. Measured beside the prose, for which the targets are, so that
/// they are not taken for what every text reaches.
std::string fields(std::size_t size)
{
    std::string t;
    while (t.size() < size)
        t += word(2, 8) + "=" + std::to_string(below(10000)) + ";";
    return t;
}

texts tokens(const std::vector<token_rule>& rules)
{
    texts all;
    for (unsigned i = 0; i < 4096; ++i) {
        const unsigned kind = below(20);
        if (kind < 10)
            all.push_back(rules[4 + below(static_cast<unsigned>(rules.size()) - 4)].theirs);
        else if (kind < 16)
            all.push_back(word(3, 10));
        else if (kind < 19)
            all.push_back(std::to_string(below(100000)) + (below(3) ? "" : ".25"));
        else
            all.push_back("'" + word(2, 12) + "'");
    }
    return all;
}

// ---- registration ---------------------------------------------------------------

using work = std::function<void()>;

void add(const std::string& name, const work& action)
{
    benchmark::RegisterBenchmark(name.c_str(), [action](benchmark::State& state) {
        for (auto _ : state)
            action();
    });
}

/// How many of the texts a matcher accepts.
template <class matcher_t> unsigned accepted(const texts& all, matcher_t&& matches)
{
    unsigned n = 0;
    for (const std::string& text : all)
        n += matches(text);
    return n;
}

template <class matcher_t>
void add_match(const std::string& name, const texts& all, unsigned expected, matcher_t matches)
{
    if (accepted(all, matches) != expected)
        differ(name);
    add(name, [&all, matches] { benchmark::DoNotOptimize(accepted(all, matches)); });
}

/// Whole texts by the DFA, and by the NFA against PCRE2's matcher of the same kind.
void add_whole_texts(const std::string& name, const std::string& pattern, const std::string& theirs, const texts& all)
{
    const auto nfa = new rnfa(nfa_of({ { pattern, "" } }));
    const auto dfa = new rdfa(dfa_of(*nfa));
    const auto jit = new pcre(whole(theirs));
    const auto interpreted = new pcre(whole(theirs), false);
    const auto re2 = new RE2(theirs, re2_options());
    const auto by_dfa = [dfa](const std::string& t) { return dfa->match(t.data(), end_of(t)) >= 0; };
    const unsigned expected = accepted(all, by_dfa);
    if (expected == 0)
        differ("nothing matches " + name);
    add_match("match/" + name + "/ours", all, expected, by_dfa);
    add_match("match/" + name + "/re2", all, expected, [re2](const std::string& t) { return RE2::FullMatch(t, *re2); });
    add_match("match/" + name + "/pcre2-jit", all, expected, [jit](const std::string& t) { return jit->match(t); });
    add_match("nfa/" + name + "/ours", all, expected,
              [nfa](const std::string& t) { return nfa->match(t.data(), end_of(t)); });
    add_match("nfa/" + name + "/pcre2-dfa", all, expected,
              [interpreted](const std::string& t) { return interpreted->match_by_dfa(t); });
}

struct flex_scanner {
    int (*next)();
    yy_buffer_state* (*open)(char*, std::size_t);
    void (*close)(yy_buffer_state*);
};

/// Sums up the rules of all tokens: the same on each side.
template <class matcher_t> void add_tokens(const std::string& name, const texts& all, long expected, matcher_t rule)
{
    const auto sum = [&all, rule] {
        long n = 0;
        for (const std::string& text : all)
            n += rule(text);
        return n;
    };
    if (sum() != expected)
        differ(name);
    add(name, [sum] { benchmark::DoNotOptimize(sum()); });
}

void add_rules(unsigned n, const flex_scanner& flex)
{
    const std::string name = "rule/" + std::to_string(n);
    const auto rules = token_rules(n);
    const auto all = new texts(tokens(rules));
    const auto dfa = new rdfa(dfa_of(nfa_of(rules)));
    const auto re2 = new re2_set(rules);
    const auto jit = new pcre(marked(rules));
    long expected = 0;
    for (const std::string& text : *all) {
        const int rule = dfa->match(text.data(), end_of(text));
        if (rule < 1 || rule != re2->rule(text) || rule != jit->rule(text))
            differ(name + " on " + text);
        expected += rule;
    }
    add_tokens(name + "/ours", *all, expected,
               [dfa](const std::string& t) { return dfa->match(t.data(), end_of(t)); });
    add_tokens(name + "/re2-set", *all, expected, [re2](const std::string& t) { return re2->rule(t); });
    add_tokens(name + "/pcre2-jit", *all, expected, [jit](const std::string& t) { return jit->rule(t); });
    add_tokens(name + "/pcre2-match", *all, expected, [jit](const std::string& t) { return jit->rule(t, pcre2_match); });
    // A scanner finds the ends of tokens itself: they stand in one text, a line each.
    const auto text = new std::string;
    for (const std::string& t : *all)
        *text += t + "\n";
    text->append(2, '\0');
    const auto scan = [flex, text] {
        yy_buffer_state* in = flex.open(&(*text)[0], text->size());
        long sum = 0;
        for (int rule = flex.next(); rule != 0; rule = flex.next())
            sum += rule;
        flex.close(in);
        return sum;
    };
    if (scan() != expected)
        differ(name + "/flex");
    add(name + "/flex", [scan] { benchmark::DoNotOptimize(scan()); });
}

/// Building so many rules and using each of them once: who builds on demand has then
/// built what it needs.
void add_building(unsigned n)
{
    const std::string name = "build/" + std::to_string(n);
    const auto rules = new std::vector<token_rule>(token_rules(n));
    const auto all = new texts { "name", "17", "3.25", "'text'" };
    for (std::size_t i = all->size(); i < rules->size(); ++i)
        all->push_back((*rules)[i].theirs);
    const auto check = [all, name](auto&& rule) {
        for (std::size_t i = 0; i < all->size(); ++i) {
            if (rule((*all)[i]) != static_cast<int>(i + 1))
                differ(name + " on " + (*all)[i]);
        }
    };
    add(name + "/ours", [=] {
        const rdfa dfa = dfa_of(nfa_of(*rules));
        check([&dfa](const std::string& t) { return dfa.match(t.data(), end_of(t)); });
    });
    add(name + "/re2-set", [=] {
        re2_set set(*rules);
        check([&set](const std::string& t) { return set.rule(t); });
    });
    add(name + "/pcre2-jit", [=] {
        const pcre jit(marked(*rules));
        check([&jit](const std::string& t) { return jit.rule(t); });
    });
}

/// Cost against cost of the library itself: how it grows. Twice the text is to take
/// twice the time; the target leaves a twentieth for noise.
void add_growth()
{
    const auto large = new std::vector<token_rule>(token_rules(512));
    const auto small = new std::vector<token_rule>(token_rules(64));
    add("growth/rules/ours", [large] { benchmark::DoNotOptimize(dfa_of(nfa_of(*large)).num_row()); });
    add("growth/rules/8-times-64", [small] {
        for (int i = 0; i < 8; ++i)
            benchmark::DoNotOptimize(dfa_of(nfa_of(*small)).num_row());
    });
    const auto nfa = new rnfa(nfa_of({ { "([a-z]+=[0-9]+;)*", "" } }));
    const auto text = new std::string(fields(1 << 16));
    const auto twice = new std::string(*text + *text);
    if (!nfa->match(twice->data(), end_of(*twice)))
        differ("growth/text");
    add("growth/text/ours", [=] { benchmark::DoNotOptimize(nfa->match(twice->data(), end_of(*twice))); });
    add("growth/text/2-times-half", [=] {
        for (int i = 0; i < 2; ++i)
            benchmark::DoNotOptimize(nfa->match(text->data(), end_of(*text)));
    });
    // What makes backtracking matchers take for ever.
    std::string pattern;
    for (int i = 0; i < 500; ++i)
        pattern += "a?";
    const auto hard = new rnfa(nfa_of({ { pattern + std::string(500, 'a'), "" } }));
    const auto letters = new std::string(500, 'a');
    add("nfa/500-times-a?a/ours", [=] { benchmark::DoNotOptimize(hard->match(letters->data(), end_of(*letters))); });
}

const int registered = [] {
    add_whole_texts("short", "[a-z0-9_.]+@[a-z0-9]+(\\.[a-z]+)+", "[a-z0-9_.]+@[a-z0-9]+(?:\\.[a-z]+)+",
                    *new texts(addresses()));
    add_whole_texts("prose-64k", "([a-z\\32]+\\.[\\n])*", "(?:[a-z ]+\\.\\n)*", *new texts { prose(1 << 16) });
    add_whole_texts("fields-64k", "([a-z]+=[0-9]+;)*", "(?:[a-z]+=[0-9]+;)*", *new texts { fields(1 << 16) });
    add_rules(8, { scan8_lex, scan8__scan_buffer, scan8__delete_buffer });
    add_rules(64, { scan64_lex, scan64__scan_buffer, scan64__delete_buffer });
    add_rules(512, { scan512_lex, scan512__scan_buffer, scan512__delete_buffer });
    add_building(8);
    add_building(64);
    add_building(512);
    add_growth();
    return 0;
}();

} // namespace
