// rnfa and rnfa_maker: fragments, arcs, matching and searching.
#include <stdkro/rnfa.h>
#include <stdkro/xcpt.h>

#include "repeated.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

/// "start>finish" and for each state its number, rule and arcs: "0(a>1 >2) 1:7(...)".
/// An arc that reads nothing has no symbol.
std::string text_of(const rnfa& nfa)
{
    std::string text = std::to_string(nfa.start()) + ">" + std::to_string(nfa.finish());
    for (unsigned i = 0; i < nfa.num_state(); ++i) {
        const rnfa::state& s = *nfa.get_state(static_cast<short>(i));
        text += " " + std::to_string(i);
        if (s.expr != -1)
            text += ":" + std::to_string(s.expr);
        if (s.end < 0)
            continue;
        text += "(";
        for (short a = s.first; a < s.end; ++a) {
            const rnfa::arc& arc = *nfa.get_arc(a);
            text += (a > s.first ? " " : "");
            if (arc.symbol != 256)
                text += static_cast<char>(arc.symbol);
            text += ">" + std::to_string(arc.target);
        }
        text += ")";
    }
    return text;
}

/// The automaton of rule 1.
rnfa automaton(const char* pattern)
{
    rnfa nfa;
    rnfa_maker maker;
    EXPECT_EQ(0, maker.read_expr(nfa, pattern, 1));
    return nfa;
}

rnfa::state_set states(const rnfa& nfa, std::initializer_list<unsigned> members)
{
    rnfa::state_set set(nfa.num_state());
    for (const unsigned s : members)
        set.add_bit(s);
    return set;
}

std::string text_of(const rnfa::state_set& set)
{
    std::string text;
    for (unsigned i = set.next_bit(0); i < set.capacity(); i = set.next_bit(i + 1))
        text += (text.empty() ? "" : " ") + std::to_string(i);
    return text;
}

template <class action_t> int thrown_by(action_t action)
{
    try {
        action();
    } catch (const xcpt& e) {
        return e.get_err();
    }
    return 0;
}

} // namespace

TEST(rnfa, a_new_automaton_is_empty)
{
    rnfa nfa;
    EXPECT_EQ("-1>-1", text_of(nfa));
    EXPECT_EQ(0u, nfa.num_state());
    const std::unique_ptr<rnfa> fragment(rnfa::alloc_nfa());
    EXPECT_EQ("0>1 0 1", text_of(*fragment));
    fragment->set_expr(5);
    EXPECT_EQ("0>1 0 1:5", text_of(*fragment));
    fragment->clear();
    EXPECT_EQ("-1>-1", text_of(*fragment));
}

TEST(rnfa, states_and_arcs_are_numbers_of_16_bits_in_this_order)
{
    EXPECT_EQ(0u, offsetof(rnfa::state, expr));
    EXPECT_EQ(2u, offsetof(rnfa::state, first));
    EXPECT_EQ(4u, offsetof(rnfa::state, end));
    EXPECT_EQ(6u, sizeof(rnfa::state));
    EXPECT_EQ(0u, offsetof(rnfa::arc, symbol));
    EXPECT_EQ(2u, offsetof(rnfa::arc, target));
    EXPECT_EQ(4u, sizeof(rnfa::arc));
    EXPECT_EQ(0u, offsetof(rnfa_match_result, begin));
    EXPECT_EQ(sizeof(char*), offsetof(rnfa_match_result, end));
    static_assert(std::is_base_of<rparser::rbase, rnfa>::value, "fragments travel through the parser");
}

TEST(rnfa, a_new_state_has_nothing)
{
    rnfa nfa;
    EXPECT_EQ(0, nfa.alloc_state());
    EXPECT_EQ(1, nfa.alloc_state());
    const rnfa::state& s = *nfa.get_state(1);
    EXPECT_EQ(-1, s.expr);
    EXPECT_EQ(-1, s.first);
    EXPECT_EQ(-1, s.end);
    EXPECT_EQ("-1>-1 0 1", text_of(nfa));
    nfa.set_start(1);
    nfa.set_finish(0);
    nfa.set_expr(32767);
    EXPECT_EQ("1>0 0:32767 1", text_of(nfa));
}

TEST(rnfa, arcs_of_a_state_stand_together)
{
    rnfa nfa;
    for (int i = 0; i < 3; ++i)
        nfa.alloc_state();
    nfa.connect(0, 1, 'a');
    nfa.connect(0, 2, 'b');
    nfa.connect(1, 2, 256);
    EXPECT_EQ("-1>-1 0(a>1 b>2) 1(>2) 2", text_of(nfa));
    EXPECT_EQ(0, nfa.get_state(0)->first);
    EXPECT_EQ(2, nfa.get_state(0)->end);
    EXPECT_EQ(2, nfa.get_state(1)->first);
    // An arc inserted in the middle moves the arcs behind it, but not their ranges.
    nfa.connect(0, 1, 'c');
    EXPECT_EQ("-1>-1 0(a>1 b>2 c>1) 1(c>1) 2", text_of(nfa));
    EXPECT_EQ(256, nfa.get_arc(3)->symbol);
}

TEST(rnfa, a_set_becomes_parallel_arcs_in_ascending_order)
{
    rnfa nfa;
    nfa.alloc_state();
    nfa.alloc_state();
    unsigned char set[258] = {};
    for (const unsigned char byte : { 'x', 'b', 'c' })
        set[byte] = 1;
    set[256] = set[257] = 1; // not read
    nfa.connect(0, 1, set);
    EXPECT_EQ("-1>-1 0(b>1 c>1 x>1) 1", text_of(nfa));
    // An empty one becomes an arc that reads nothing.
    const unsigned char none[256] = {};
    nfa.connect(1, 0, none);
    EXPECT_EQ("-1>-1 0(b>1 c>1 x>1) 1(>0)", text_of(nfa));
}

TEST(rnfa, patterns_become_fragments)
{
    static const struct {
        const char* pattern;
        const char* automaton;
    } rows[] = {
        { "a", "0>1 0(a>1) 1:1" },
        { "[bax]", "0>1 0(a>1 b>1 x>1) 1:1" },
        { "[]", "0>1 0(>1) 1:1" },
        { "~[\\0-\\255]", "0>1 0(>1) 1:1" }, // no byte is left of it
        { "ab", "0>3 0(a>1) 1(>2) 2(b>3) 3:1" },
        { "abc", "0>5 0(a>1) 1(>2) 2(b>3) 3(>4) 4(c>5) 5:1" },
        { "\"abc\"", "0>3 0(a>1) 1(b>2) 2(c>3) 3:1" },
        { "a|b", "2>3 0(a>1) 1(>3) 2(>0 >4) 3:1 4(b>5) 5(>3)" },
        { "a*", "2>3 0(a>1) 1(>3 >0) 2(>3 >0) 3:1" },
        { "a+", "2>3 0(a>1) 1(>3 >0) 2(>0) 3:1" },
        // The last arc of "?" is inserted in the middle; what follows is another arc to the same state.
        { "a?", "2>3 0(a>1) 1(>3) 2(>0 >3) 3:1" },
        { "a?b", "2>5 0(a>1) 1(>3) 2(>0 >3) 3(>4) 4(b>5) 5:1" },
        { "(a?)?", "4>5 0(a>1) 1(>3) 2(>0 >3) 3(>5) 4(>2 >5) 5:1" },
        { "(a|b)?c", "6>9 0(a>1) 1(>3) 2(>0 >4) 3(>7) 4(b>5) 5(>3) 6(>2 >7) 7(>8) 8(c>9) 9:1" },
        { "{:whitespace:}", "0>1 0( >1 \n>1 \t>1 \r>1) 1:1" },
        { "{:digit:}", "0>1 0(0>1 1>1 2>1 3>1 4>1 5>1 6>1 7>1 8>1) 1:1" },
        { "{:xdigit:}", "0>1 0(0>1 1>1 2>1 3>1 4>1 5>1 6>1 7>1 8>1 a>1 b>1 c>1 d>1 e>1 A>1 B>1 C>1 D>1 E>1) 1:1" },
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.automaton, text_of(automaton(row.pattern))) << row.pattern;
}

TEST(rnfa, a_repetition_by_another_operator_leaves_the_fragment_out_of_reach)
{
    rnfa nfa = automaton("a");
    nfa.connect_repeat('x');
    EXPECT_EQ("2>3 0(a>1) 1:1 2 3", text_of(nfa));
    EXPECT_FALSE(nfa.match("a"));
    EXPECT_FALSE(nfa.match(""));
}

TEST(rnfa, splice_renumbers_states_and_arcs)
{
    rnfa a = automaton("a");
    const rnfa b = automaton("b*");
    a.splice(b);
    EXPECT_EQ("0>1 0(a>1) 1:1 2(b>3) 3(>5 >2) 4(>5 >2) 5:1", text_of(a));
    // Arcs without a state stay in the count.
    rnfa c = automaton("c?");
    c.splice(automaton("d"));
    EXPECT_EQ("2>3 0(c>1) 1(>3) 2(>0 >3) 3:1 4(d>5) 5:1", text_of(c));
}

TEST(rnfa, joining_an_automaton_with_itself)
{
    rnfa a = automaton("a");
    a.splice(a);
    EXPECT_EQ("0>1 0(a>1) 1:1 2(a>3) 3:1", text_of(a));
    rnfa b = automaton("b");
    b.connect_and(b);
    EXPECT_EQ("0>3 0(b>1) 1:1(>2) 2(b>3) 3:1", text_of(b));
    EXPECT_TRUE(b.match("bb"));
    rnfa c = automaton("c");
    c.connect_or(c);
    EXPECT_EQ("2>3 0(c>1) 1:1(>3) 2(>0 >4) 3 4(c>5) 5:1(>3) 6 7", text_of(c));
    EXPECT_TRUE(c.match("c") && !c.match("cc"));
}

TEST(rnfa, an_empty_operand_is_reported_and_ignored)
{
    rnfa a = automaton("a");
    rnfa empty;
    testing::internal::CaptureStdout();
    a.connect_and(empty);
    a.connect_or(empty);
    empty.connect_repeat('*');
    empty.connect_and(a);
    empty.set_expr(1);
    a.connect(0, 2, 'x');
    a.connect(-1, 0, 'x');
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ("0>1 0(a>1) 1:1", text_of(a));
    EXPECT_EQ("-1>-1", text_of(empty));
    EXPECT_EQ(0u, printed.find("BUG at src/rnfa:")) << printed;
    EXPECT_EQ(7, std::count(printed.begin(), printed.end(), '\n')) << printed;
}

TEST(rnfa, copies_and_swaps_are_deep)
{
    rnfa a = automaton("a");
    rnfa b = a;
    b.connect_repeat('*');
    EXPECT_EQ("0>1 0(a>1) 1:1", text_of(a));
    a.swap(b);
    EXPECT_EQ("0>1 0(a>1) 1:1", text_of(b));
    EXPECT_TRUE(a.num_state() == 4);
    b = a;
    EXPECT_EQ(text_of(a), text_of(b));
    const rnfa& same = b;
    b = same;
    EXPECT_EQ(text_of(a), text_of(b));
}

TEST(rnfa, closure_adds_what_is_reached_without_reading)
{
    const rnfa nfa = automaton("(a|b)*c"); // 6>9
    rnfa::state_set set = states(nfa, { 6 });
    nfa.closure(set);
    EXPECT_EQ("0 2 4 6 7 8", text_of(set));
    set = states(nfa, { 1 });
    nfa.closure(set);
    EXPECT_EQ("0 1 2 3 4 7 8", text_of(set));
    // A set that is too small grows; an empty one stays empty.
    rnfa::state_set none;
    nfa.closure(none);
    EXPECT_EQ(10u, none.capacity());
    EXPECT_TRUE(none.empty());
}

TEST(rnfa, move_reads_one_symbol)
{
    const rnfa nfa = automaton("(a|b)*a");
    rnfa::state_set set = states(nfa, { static_cast<unsigned short>(nfa.start()) });
    nfa.closure(set);
    EXPECT_EQ("1 9", text_of(nfa.move(set, 'a')));
    EXPECT_EQ("5", text_of(nfa.move(set, 'b')));
    EXPECT_EQ("", text_of(nfa.move(set, 'c')));
    EXPECT_EQ("", text_of(nfa.move(set, -1)));
    EXPECT_EQ(nfa.num_state(), nfa.move(set, 'c').capacity());
    // It compares what it gets: 256 are the arcs that read nothing.
    EXPECT_EQ("0 4", text_of(nfa.move(states(nfa, { 2 }), 256)));
}

TEST(rnfa, matches_whole_texts)
{
    static const struct {
        const char* pattern;
        const char* accepted; // texts, each ended by "/"
        const char* refused;
    } rows[] = {
        { "a", "a/", "/b/aa/ab/" },
        { "ab", "ab/", "/a/b/abb/" },
        { "a|b", "a/b/", "/ab/c/" },
        { "a*", "/a/aaaa/", "b/ab/" },
        { "a+", "a/aaaa/", "/b/ab/" },
        { "a?", "/a/", "aa/b/" },
        { "a?b", "b/ab/", "a/aab/" },
        { "(a?)?b", "b/ab/", "aab/" },
        { "(ab)*", "/ab/abab/", "a/aba/" },
        { "(a|b)*abb", "abb/aabb/babb/", "ab/abba/" },
        { "a*?", "/a/aa/", "b/" },
        { "[]", "/", "a/" },
        { "[]a", "a/", "/aa/" },
        { "[a-c]+", "a/cab/", "/d/abd/" },
        { "[^a]", "^/a/", "b/" },
        { "~[a-y]", "z/A/\xE9/\n/", "a/y//zz/" },
        { ".", "a/ /\xFF/", "\n//ab/" },
        { "\"a*b\"", "a*b/", "ab/aab/" },
        { "{:digit:}", "0/8/", "9//a/" },
        { "{:xdigit:}+", "0/8/a/e/A/E/8eE/", "9/f/F/g/" },
        { "{:letter:}+", "a/y/A/Y/aYb/", "z/Z/0/" },
        { "{:whitespace:}", " /\n/\t/\r/", "\v/\f/a//" },
        { "a b", "a/", "a b/" },
        { "\\233", "\xE9/", "e/" },
        { "", "\xFF/", "/a/" }, // the end of the pattern as an element
    };
    for (const auto& row : rows) {
        const rnfa nfa = automaton(row.pattern);
        for (const char* texts : { row.accepted, row.refused }) {
            for (std::string rest = texts; !rest.empty(); rest.erase(0, rest.find('/') + 1)) {
                const std::string text = rest.substr(0, rest.find('/'));
                EXPECT_EQ(texts == row.accepted, nfa.match(text.c_str())) << row.pattern << " on " << text;
                EXPECT_EQ(texts == row.accepted, nfa.match(rest.data(), rest.data() + text.size()))
                    << row.pattern << " on a part, " << text;
            }
        }
    }
}

TEST(rnfa, a_text_with_bounds_may_hold_any_byte)
{
    const std::string text("a\0b\xFF", 4);
    EXPECT_TRUE(automaton("a\\0b\\255").match(text.data(), text.data() + text.size()));
    EXPECT_FALSE(automaton("a\\0b\\255").match(text.data()));
    EXPECT_TRUE(automaton("a").match(text.data()));
    // Without an end it goes to the NUL; no text at all is the empty one.
    EXPECT_TRUE(automaton("a").match(text.data(), nullptr));
    EXPECT_TRUE(automaton("a*").match(nullptr, nullptr));
    EXPECT_FALSE(automaton("a").match(nullptr));
}

TEST(rnfa, automata_made_by_hand_may_branch_as_they_like)
{
    rnfa nfa;
    for (int i = 0; i < 4; ++i)
        nfa.alloc_state();
    // One byte to several states, several bytes to several states, beside an empty move.
    nfa.connect(0, 1, 'a');
    nfa.connect(0, 2, 'a');
    nfa.connect(0, 2, 'b');
    nfa.connect(0, 3, 256);
    nfa.connect(1, 1, 'c');
    nfa.connect(2, 3, 'd');
    nfa.connect(2, 3, 'd');
    nfa.set_start(0);
    nfa.set_finish(3);
    nfa.set_expr(0);
    for (const char* text : { "", "ad", "bd" })
        EXPECT_TRUE(nfa.match(text)) << text;
    for (const char* text : { "a", "b", "ac", "acd", "d" })
        EXPECT_FALSE(nfa.match(text)) << text;
    // The start is where set_start says; a rule below 0 does not accept.
    nfa.set_start(2);
    EXPECT_TRUE(nfa.match("d"));
    nfa.set_expr(-2);
    EXPECT_FALSE(nfa.match("d"));
    nfa.set_start(4);
    EXPECT_FALSE(nfa.match(""));
}

TEST(rnfa, search_finds_where_reading_can_begin)
{
    static const struct {
        const char* pattern;
        const char* text;
        int begin, end;
    } rows[] = {
        { "ab", "xxabab", 2, 4 },
        // Each later byte is tested against the states behind the first one.
        { "abc", "abb", 0, 3 },
        { "abc", "abcb", 0, 2 },
        { "abc", "ac", 0, 1 },
        { "a", "bab", 1, 2 },
        { "a", "aa", 0, 1 },
        { "a*", "xaax", 1, 3 },
        { "a*b", "xaab", 1, 4 },
        // Nothing begins: both ends are the end.
        { "a", "", 0, 0 },
        { "a", "xyz", 3, 3 },
        { "[]", "xyz", 3, 3 },
        { "\\233+", "x\xE9\xE9", 1, 3 },
    };
    for (const auto& row : rows) {
        const rnfa nfa = automaton(row.pattern);
        const std::string what = std::string(row.pattern) + " in " + row.text;
        rnfa_match_result found;
        const rnfa::state_set set = nfa.search(found, row.text);
        EXPECT_EQ(row.begin, found.begin - row.text) << what;
        EXPECT_EQ(row.end, found.end - row.text) << what;
        EXPECT_EQ(row.begin == row.end, set.empty()) << what;
        EXPECT_EQ(nfa.num_state(), set.capacity()) << what;
        // The same within bounds, and no further.
        const std::string longer = std::string(row.text) + "abc";
        rnfa_match_result bounded;
        EXPECT_TRUE(set == nfa.search(bounded, longer.data(), longer.data() + std::strlen(row.text))) << what;
        EXPECT_EQ(row.begin, bounded.begin - longer.data()) << what;
        EXPECT_EQ(row.end, bounded.end - longer.data()) << what;
    }
}

TEST(rnfa, search_returns_the_closed_states_behind_the_first_byte)
{
    const rnfa nfa = automaton("ab*c"); // 0(a>1) 1(>4) ... b* is 4>5 around 2(b>3), c is 6(c>7)
    rnfa_match_result found;
    EXPECT_EQ("1 2 4 5 6", text_of(nfa.search(found, "xxabbc")));
}

TEST(rnfa, an_empty_automaton_matches_nothing)
{
    const rnfa nfa;
    EXPECT_FALSE(nfa.match(""));
    EXPECT_FALSE(nfa.match("a"));
    rnfa_match_result found;
    const char* text = "abc";
    EXPECT_TRUE(nfa.search(found, text).empty());
    EXPECT_EQ(text + 3, found.begin);
    EXPECT_EQ(text + 3, found.end);
}

TEST(rnfa, several_threads_may_match_with_one_automaton)
{
    for (int round = 0; round < 20; ++round) {
        const rnfa nfa = automaton("([a-z]+=[0-9]+;)*");
        std::vector<std::thread> threads;
        std::vector<int> matched(4, 0); // each thread has one
        for (int& mine : matched)
            threads.emplace_back([&nfa, &mine] { mine = nfa.match("ab=12;c=3;") && !nfa.match("ab=12"); });
        for (std::thread& t : threads)
            t.join();
        EXPECT_EQ(4, std::count(matched.begin(), matched.end(), 1));
    }
}

TEST(rnfa, a_change_shows_in_the_next_match)
{
    rnfa nfa = automaton("ab");
    EXPECT_TRUE(nfa.match("ab"));
    nfa.connect_repeat('+');
    EXPECT_TRUE(nfa.match("abab")); // by the old finish, which has kept its rule
    nfa.connect_and(automaton("c"));
    EXPECT_FALSE(nfa.match("ababd"));
    EXPECT_TRUE(nfa.match("ababc"));
    rnfa other = automaton("x");
    EXPECT_TRUE(other.match("x"));
    nfa.swap(other);
    EXPECT_TRUE(nfa.match("x") && !nfa.match("ab"));
    EXPECT_TRUE(other.match("ab") && !other.match("x"));
    nfa = other;
    EXPECT_TRUE(nfa.match("ab") && !nfa.match("x"));
    nfa.set_start(2);
    EXPECT_TRUE(nfa.match("b"));
    nfa.clear();
    EXPECT_FALSE(nfa.match("b"));
    rnfa_maker().add_expr(nfa, "y", 1);
    EXPECT_TRUE(nfa.match("y"));
    rnfa_maker().add_expr(nfa, "z", 2);
    EXPECT_TRUE(nfa.match("y") && nfa.match("z"));
    nfa.connect(nfa.start(), nfa.finish(), 'w');
    nfa.set_expr(3);
    EXPECT_TRUE(nfa.match("w"));
}

TEST(rnfa, matching_takes_time_in_proportion_to_the_text)
{
    // Backtracking would take 2 to the power of 500 steps.
    const unsigned n = 500;
    const rnfa nfa = automaton((repeated("a?", n) + repeated("a", n)).c_str());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(nfa.match(repeated("a", n).c_str()));
    EXPECT_TRUE(nfa.match(repeated("a", 2 * n).c_str()));
    EXPECT_FALSE(nfa.match(repeated("a", n - 1).c_str()));
    EXPECT_FALSE(nfa.match(repeated("a", 2 * n + 1).c_str()));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST(rnfa, numbers_stay_within_16_bits)
{
    rnfa nfa;
    for (int i = 0; i < 32767; ++i)
        nfa.alloc_state();
    EXPECT_EQ(static_cast<int>(0x80010001), thrown_by([&] { nfa.alloc_state(); }));
    EXPECT_EQ(32767u, nfa.num_state());
    for (int i = 0; i < 32767; ++i)
        nfa.connect(0, 32766, 'a');
    EXPECT_EQ(static_cast<int>(0x80010001), thrown_by([&] { nfa.connect(0, 1, 'a'); }));
    EXPECT_EQ(static_cast<int>(0x80010001), thrown_by([&] { nfa.connect(1, 1, 'a'); }));
    EXPECT_EQ(32767, nfa.get_state(0)->end);
    nfa.set_start(0);
    nfa.set_finish(32766);
    nfa.set_expr(1);
    EXPECT_TRUE(nfa.match("a"));
    EXPECT_EQ(static_cast<int>(0x80010001), thrown_by([&] { nfa.splice(nfa); }));
    EXPECT_EQ(static_cast<int>(0x80010001), thrown_by([&] { nfa.connect_repeat('*'); }));
    EXPECT_EQ(32767u, nfa.num_state());
}

TEST(rnfa, a_join_that_finds_no_room_changes_nothing)
{
    static void (*const joins[])(rnfa&) = {
        [](rnfa& nfa) { nfa.connect_and(nfa); },
        [](rnfa& nfa) { nfa.connect_or(nfa); },
        [](rnfa& nfa) { nfa.splice(nfa); },
        [](rnfa& nfa) { nfa.connect_repeat('+'); },
    };
    for (const auto join : joins) {
        rnfa nfa = automaton("ab");
        int code = 0;
        while (code == 0) {
            const unsigned states = nfa.num_state();
            const short start = nfa.start();
            const short finish = nfa.finish();
            code = thrown_by([&] { join(nfa); });
            if (code != 0) {
                EXPECT_EQ(states, nfa.num_state());
                EXPECT_EQ(start, nfa.start());
                EXPECT_EQ(finish, nfa.finish());
            }
        }
        EXPECT_EQ(static_cast<int>(0x80010001), code);
    }
}

TEST(rnfa_maker, read_expr_replaces_the_automaton)
{
    rnfa nfa = automaton("abc");
    rnfa_maker maker;
    EXPECT_EQ(0, maker.read_expr(nfa, "a|b", 7));
    EXPECT_EQ("2>3 0(a>1) 1(>3) 2(>0 >4) 3:7 4(b>5) 5(>3)", text_of(nfa));
    reader in;
    in.load_string("x y", nullptr, false);
    EXPECT_EQ(0, maker.read_expr(nfa, in, 8));
    EXPECT_EQ("0>1 0(x>1) 1:8", text_of(nfa));
    EXPECT_EQ(0, maker.read_expr(nfa, in, 9));
    EXPECT_EQ("0>1 0(y>1) 1:9", text_of(nfa));
    EXPECT_EQ(static_cast<int>(0x8002000e), maker.read_expr(nfa, static_cast<const char*>(nullptr), 1));
    EXPECT_EQ("0>1 0(y>1) 1:9", text_of(nfa));
}

TEST(rnfa_maker, add_expr_unites_rules)
{
    rnfa nfa;
    rnfa_maker maker;
    EXPECT_EQ(0, maker.add_expr(nfa, "a", 1));
    EXPECT_EQ("0>1 0(a>1) 1:1", text_of(nfa));
    EXPECT_EQ(0, maker.add_expr(nfa, "b", 2));
    EXPECT_EQ("2>3 0(a>1) 1:1(>3) 2(>0 >4) 3 4(b>5) 5:2(>3)", text_of(nfa));
    EXPECT_EQ(6u, nfa.num_state());
    EXPECT_TRUE(nfa.match("a") && nfa.match("b"));
    EXPECT_EQ(static_cast<int>(0x8002000e), maker.add_expr(nfa, nullptr, 3));
    EXPECT_EQ(6u, nfa.num_state());
}

TEST(rnfa_maker, a_pattern_without_content_changes_nothing)
{
    rnfa nfa = automaton("a");
    rnfa_maker maker;
    for (const char* pattern : { "\"\"", "[ab", "x\"\"", "x|[a", "(x|\"\")*", "x(y(z\"\"))" }) {
        EXPECT_EQ(0, maker.read_expr(nfa, pattern, 2)) << pattern;
        EXPECT_EQ(0, maker.add_expr(nfa, pattern, 2)) << pattern;
        EXPECT_EQ("0>1 0(a>1) 1:1", text_of(nfa)) << pattern;
    }
}

TEST(rnfa_maker, an_unknown_class_is_an_error_that_names_it)
{
    rnfa nfa = automaton("a");
    rnfa_maker maker;
    for (const char* name : { ":digits:", ":digit", "digit", "", ":DIGIT:", ":letter:x", "%s%n" }) {
        try {
            maker.add_expr(nfa, ("xy(z|{" + std::string(name) + "})").c_str(), 2);
            ADD_FAILURE() << name;
        } catch (const xrterror& e) {
            EXPECT_EQ(static_cast<int>(0x80020008), e.get_err());
            EXPECT_STREQ(name, e.what());
        }
    }
    EXPECT_EQ("0>1 0(a>1) 1:1", text_of(nfa));
    // The maker is ready for the next pattern.
    EXPECT_EQ(0, maker.read_expr(nfa, "b", 1));
    EXPECT_TRUE(nfa.match("b"));
    // A long name is cut by the error.
    const std::string longest = "{" + std::string(1000, 'n') + "}";
    try {
        maker.read_expr(nfa, longest.c_str(), 2);
        ADD_FAILURE();
    } catch (const xrterror& e) {
        EXPECT_EQ(std::string(255, 'n'), e.what());
    }
}

TEST(rnfa_maker, huge_patterns_end_with_a_status)
{
    rnfa nfa = automaton("a");
    rnfa_maker maker;
    EXPECT_EQ(static_cast<int>(0x80010001), thrown_by([&] { maker.read_expr(nfa, repeated("a", 40000).c_str(), 1); }));
    EXPECT_EQ(static_cast<int>(0x80010001), thrown_by([&] { maker.read_expr(nfa, repeated(".", 200).c_str(), 1); }));
    EXPECT_EQ(static_cast<int>(0x80010001), thrown_by([&] { maker.add_expr(nfa, repeated("(", 1000).c_str(), 1); }));
    EXPECT_EQ("0>1 0(a>1) 1:1", text_of(nfa));
    // The union of rules too.
    const std::string large = "\"" + repeated("a", 20000) + "\"";
    EXPECT_EQ(0, maker.add_expr(nfa, large.c_str(), 2));
    const unsigned before = nfa.num_state();
    EXPECT_EQ(static_cast<int>(0x80010001), thrown_by([&] { maker.add_expr(nfa, large.c_str(), 3); }));
    EXPECT_EQ(before, nfa.num_state());
    EXPECT_EQ(0, maker.add_expr(nfa, "b", 3));
    EXPECT_TRUE(nfa.match("b"));
}

TEST(rnfa_maker, a_copy_makes_automata_of_its_own)
{
    rnfa_maker maker;
    rnfa nfa;
    maker.read_expr(nfa, "a|\"\"", 1);
    rnfa_maker copy(maker);
    EXPECT_EQ(0, copy.read_expr(nfa, "ab", 1));
    maker = copy;
    EXPECT_EQ(0, maker.read_expr(nfa, "ab", 1));
    EXPECT_TRUE(nfa.match("ab"));
}

TEST(rnfa_maker, fragments_of_its_own_kind_travel_through_the_parser)
{
    // A maker that counts: what the callbacks return belongs to whoever called `expr`.
    class counting : public rnfa_maker {
    public:
        int atoms = 0;

        void release(rbase* node) { doRevoke(node); }
        using rnfa_maker::alloc_nfa;
        using rnfa_maker::onConnect;
        using rnfa_maker::onRep;
        using rnfa_maker::revoke_nfa;

    protected:
        rbase* onAtom(unsigned char byte) override
        {
            ++atoms;
            return rnfa_maker::onAtom(byte);
        }
    };
    counting maker;
    rparser::rbase* node = nullptr;
    EXPECT_EQ(0, maker.expr(&node, "ab|c"));
    EXPECT_EQ(3, maker.atoms);
    ASSERT_NE(nullptr, dynamic_cast<rnfa*>(node));
    maker.release(node);
    maker.release(nullptr);
    EXPECT_EQ(0, maker.expr(&node, "d"));
    delete node;
    node = maker.onConnect(maker.onConnect(nullptr, 'a'), 'b'); // behind nothing a byte is an atom
    const auto two_atoms = dynamic_cast<rnfa*>(node);
    ASSERT_NE(nullptr, two_atoms);
    two_atoms->set_expr(1);
    EXPECT_TRUE(two_atoms->match("ab"));
    EXPECT_FALSE(two_atoms->match("b"));
    EXPECT_EQ(node, maker.onRep(node, '+'));
    EXPECT_TRUE(two_atoms->match("abab"));
    for (const char op : { '*', '+', '?' })
        EXPECT_EQ(nullptr, maker.onRep(nullptr, op)); // nothing repeated is nothing
    maker.release(node);
    rnfa* fragment = maker.alloc_nfa();
    EXPECT_EQ("0>1 0 1", text_of(*fragment));
    fragment->connect_repeat('*');
    maker.revoke_nfa(fragment);
    maker.revoke_nfa(nullptr);
    fragment = maker.alloc_nfa();
    EXPECT_EQ("0>1 0 1", text_of(*fragment)); // whatever its memory held before
    maker.revoke_nfa(fragment);
    maker.revoke_nfa(rnfa::alloc_nfa());
}
