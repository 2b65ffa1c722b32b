// dfa, rdfa and rdfa_maker: the table, the rules, subset construction, compression.
#include <stdkro/rdfa.h>

#include <stdkro/xcpt.h>

#include "guarded_text.h"
#include "virtual_slot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

const int failed = static_cast<int>(0x80020001);
const int conflict = static_cast<int>(0x8002000a);

/// One automaton of several rules, numbered from 1.
rnfa united(std::initializer_list<const char*> patterns)
{
    rnfa nfa;
    rnfa_maker maker;
    short id = 1;
    for (const char* pattern : patterns)
        EXPECT_EQ(0, maker.add_expr(nfa, pattern, id++));
    return nfa;
}

rdfa built(std::initializer_list<const char*> patterns)
{
    rdfa automaton;
    rdfa_maker maker;
    EXPECT_EQ(0, maker.ntod(automaton, united(patterns)));
    return automaton;
}

/// For each row its number, rule and ways on: "0(a>1) 1:7(b-d>2)".
std::string text_of(const rdfa& automaton)
{
    std::string text;
    for (short r = 0; r < automaton.num_row(); ++r) {
        text += (r ? " " : "") + std::to_string(r);
        if (automaton.get_accept(r) != -1)
            text += ":" + std::to_string(automaton.get_accept(r));
        std::string ways;
        for (short c = 0; c < automaton.num_col(); ++c) {
            const short to = automaton.get_state(r, c);
            if (to == -1 || (c > 0 && automaton.get_state(r, static_cast<short>(c - 1)) == to))
                continue;
            short last = c;
            while (last + 1 < automaton.num_col() && automaton.get_state(r, static_cast<short>(last + 1)) == to)
                ++last;
            ways += (ways.empty() ? "" : " ") + std::string(1, static_cast<char>(c))
                + (last > c ? "-" + std::string(1, static_cast<char>(last)) : std::string()) + ">"
                + std::to_string(to);
        }
        text += ways.empty() ? "" : "(" + ways + ")";
    }
    return text;
}

/// The entries of a table, row by row.
std::string entries(const dfa& table)
{
    std::string text;
    for (short r = 0; r < table.num_row(); ++r) {
        text += r ? " / " : "";
        for (short c = 0; c < table.num_col(); ++c)
            text += (c ? " " : "") + std::to_string(table.get_state(r, c));
    }
    return text;
}

/// So many states in a row, each leading to the next by "a".
rnfa chain_of(short states)
{
    rnfa chain;
    for (short i = 0; i < states; ++i)
        chain.alloc_state();
    chain.set_start(0);
    for (short i = 1; i < states; ++i)
        chain.connect(static_cast<short>(i - 1), i, 'a');
    return chain;
}

/// Opens what a maker keeps to itself.
class open_maker : public rdfa_maker {
public:
    using rdfa_maker::clear;
    using rdfa_maker::distill_dfa;
    using rdfa_maker::find_state;
    using rdfa_maker::get_state;
    using rdfa_maker::new_state;
    using rdfa_maker::num_state;
};

rnfa::state_set set_of(unsigned size, std::initializer_list<unsigned> members)
{
    rnfa::state_set set(size);
    for (const unsigned i : members)
        set.add_bit(i);
    return set;
}

} // namespace

TEST(dfa, a_new_table_is_empty)
{
    dfa table;
    EXPECT_EQ(0, table.num_row());
    EXPECT_EQ(0, table.num_col());
    EXPECT_EQ(nullptr, table.get_table());
    static_assert(std::has_virtual_destructor<dfa>::value, "automata are deleted through their base");
}

TEST(dfa, has_its_functions_in_this_order)
{
    struct open_dfa : dfa {
        using dfa::on_create;
    };
    EXPECT_EQ(0u, slot_of(&dfa::clear)); // before the destructor
    EXPECT_EQ(3u, slot_of(&open_dfa::on_create));
}

TEST(dfa, create_makes_rows_and_columns)
{
    dfa table;
    table.create(2, 3, -1);
    EXPECT_EQ("-1 -1 -1 / -1 -1 -1", entries(table));
    table.set_state(1, 2, 7);
    table.set_state(0, 0, -32768);
    EXPECT_EQ("-32768 -1 -1 / -1 -1 7", entries(table));
    EXPECT_EQ(7, table.get_row(1)[2]);
    EXPECT_EQ(7, table.get_table()[5]);
    table.create(1, 1, 5);
    EXPECT_EQ("5", entries(table));
    table.create(2, 2);
    EXPECT_EQ(2, table.num_row());
    EXPECT_NE(nullptr, table.get_table());
    table.create(0, 4, 1);
    EXPECT_EQ(0, table.num_row());
    EXPECT_EQ(4, table.num_col());
    table.clear();
    EXPECT_EQ(0, table.num_col());
}

TEST(rdfa, without_rows_matches_nothing)
{
    const std::string texts[] = { "", "a", std::string(1000, 'a') };
    for (const short columns : { short { 0 }, short { 4 }, short { 256 } }) {
        rdfa table;
        table.create(0, columns);
        for (const std::string& text : texts) {
            EXPECT_EQ(err::failed, table.match(text.c_str())) << columns;
            EXPECT_EQ(err::failed, table.match(text.data(), text.data() + text.size())) << columns;
        }
    }
}

TEST(dfa, a_negative_size_is_reported_and_taken_as_0)
{
    dfa table;
    testing::internal::CaptureStdout();
    table.create(-1, 3, 1);
    EXPECT_EQ(0u, testing::internal::GetCapturedStdout().find("BUG at src/dfa:"));
    EXPECT_EQ(0, table.num_row());
}

TEST(dfa, copies_are_deep)
{
    dfa a;
    a.create(1, 2, 3);
    dfa b(a);
    dfa c;
    c.create(5, 5, 5);
    c.copy(a);
    a.set_state(0, 0, 9);
    EXPECT_EQ("9 3", entries(a));
    EXPECT_EQ("3 3", entries(b));
    EXPECT_EQ("3 3", entries(c));
    c.copy(c);
    EXPECT_EQ("3 3", entries(c));
    c.copy(dfa());
    EXPECT_EQ(0, c.num_row());
    const dfa d { dfa() };
    EXPECT_EQ(nullptr, d.get_table());
}

TEST(dfa, assignment_shares_the_table)
{
    dfa a;
    a.create(1, 2, 3);
    dfa b;
    b.create(4, 4, 0);
    b = a;
    EXPECT_EQ(a.get_table(), b.get_table());
    b.set_state(0, 1, 8);
    EXPECT_EQ("3 8", entries(a));
    // Nothing dangles when one of the sharers goes, and nothing is freed twice.
    {
        dfa c;
        c = b;
        c = b;
        dfa& same = c;
        c = same;
        EXPECT_EQ("3 8", entries(c));
    }
    a.clear();
    EXPECT_EQ("3 8", entries(b));
    a = b;
    b.create(1, 1, 1);
    EXPECT_EQ("3 8", entries(a));
    b = a;
    a.copy(dfa());
    EXPECT_EQ("3 8", entries(b));
    b = dfa();
    EXPECT_EQ(0, b.num_row());
    b = a;
    EXPECT_EQ(nullptr, b.get_table());
}

TEST(dfa, create_calls_the_hook_and_fills_after_it)
{
    struct hooked : dfa {
        std::string seen;
        void on_create() override
        {
            seen += std::to_string(num_row()) + "x" + std::to_string(num_col()) + " ";
            if (num_row() > 0)
                set_state(0, 0, 77);
        }
    };
    hooked table;
    table.create(1, 2);
    EXPECT_EQ(77, table.get_state(0, 0));
    table.create(1, 3, 4);
    EXPECT_EQ("4 4 4", entries(table));
    table.create(0, 0);
    EXPECT_EQ("1x2 1x3 0x0 ", table.seen);
    // Copying and assigning are no creation.
    hooked other;
    other.copy(table);
    other = table;
    EXPECT_EQ("1x2 1x3 0x0 ", other.seen);
}

TEST(rdfa, a_row_keeps_the_smaller_rule_of_a_conflict)
{
    rdfa automaton;
    automaton.create(2, 256, -1);
    EXPECT_EQ(-1, automaton.get_accept(0));
    EXPECT_EQ(0, automaton.set_accept(0, 5));
    EXPECT_EQ(0, automaton.set_accept(0, 5));
    EXPECT_EQ(conflict, automaton.set_accept(0, 3));
    EXPECT_EQ(3, automaton.get_accept(0));
    EXPECT_EQ(0, automaton.set_accept(0, 3));
    EXPECT_EQ(conflict, automaton.set_accept(0, 4));
    EXPECT_EQ(3, automaton.get_accept(0));
    // No rule counts as a smaller one.
    EXPECT_EQ(conflict, automaton.set_accept(0, -1));
    EXPECT_EQ(-1, automaton.get_accept(0));
    EXPECT_EQ(0, automaton.set_accept(0, 9));
    EXPECT_EQ(0, automaton.set_accept(1, -1));
    EXPECT_EQ(9, automaton.get_accepts()[0]);
    EXPECT_EQ(-1, automaton.get_accepts()[1]);
    // Rows that are not there.
    EXPECT_EQ(static_cast<int>(0x8002000e), automaton.set_accept(2, 1));
    EXPECT_EQ(static_cast<int>(0x8002000e), automaton.set_accept(-1, 1));
    EXPECT_EQ(-1, automaton.get_accept(2));
}

TEST(rdfa, rules_outlive_a_new_table_but_not_clear)
{
    rdfa automaton;
    automaton.create(2, 256, -1);
    automaton.set_accept(1, 6);
    automaton.create(3, 256, -1);
    EXPECT_EQ(6, automaton.get_accept(1));
    EXPECT_EQ(-1, automaton.get_accept(2));
    automaton.create(1, 256, -1);
    automaton.create(2, 256, -1);
    EXPECT_EQ(6, automaton.get_accept(1));
    static_cast<dfa&>(automaton).clear();
    EXPECT_EQ(0, automaton.num_row());
    automaton.create(2, 256, -1);
    EXPECT_EQ(-1, automaton.get_accept(1));
}

TEST(rdfa, copies_bring_rules_and_map)
{
    rdfa a = built({ "[ab]" });
    a.merge_col();
    rdfa b(a);
    rdfa c;
    c = a;
    rdfa& same = c;
    c = same;
    for (const rdfa* copy : { &b, &c }) {
        EXPECT_EQ(1, copy->get_accept(1));
        EXPECT_EQ(a.num_ecs(), copy->num_ecs());
        EXPECT_EQ(a.ccl2ecs('b'), copy->ccl2ecs('b'));
        EXPECT_EQ(entries(a), entries(*copy));
    }
    EXPECT_NE(a.get_table(), b.get_table());
    EXPECT_EQ(a.get_table(), c.get_table());
    // Rules and map are each one's own.
    a.set_accept(0, 8);
    a.ccl2ecs('b', 5);
    EXPECT_EQ(-1, c.get_accept(0));
    EXPECT_NE(5, c.ccl2ecs('b'));
    // A table that comes alone brings no rules.
    rdfa d;
    static_cast<dfa&>(d) = a;
    EXPECT_EQ(-1, d.get_accept(1));
    EXPECT_EQ(0, d.set_accept(1, 4));
    EXPECT_EQ(4, d.get_accept(1));
}

TEST(rdfa, matches_whole_texts_and_names_the_rule)
{
    const rdfa automaton = built({ "ab", "[0-8]+", "a~[b]*" });
    EXPECT_EQ(1, automaton.match("ab"));
    EXPECT_EQ(2, automaton.match("123"));
    EXPECT_EQ(3, automaton.match("a"));
    EXPECT_EQ(3, automaton.match("a\xFF\x80"));
    EXPECT_EQ(-1, automaton.match(""));
    EXPECT_EQ(failed, automaton.match("abc"));
    EXPECT_EQ(failed, automaton.match("x"));
    const std::string text("a\0c", 3);
    EXPECT_EQ(3, automaton.match(text.data(), text.data() + 3));
    EXPECT_EQ(3, automaton.match(text.data()));
    EXPECT_EQ(3, automaton.match(text.data(), nullptr));
    EXPECT_EQ(-1, automaton.match(nullptr));
    EXPECT_EQ(-1, automaton.match(nullptr, nullptr));
    EXPECT_EQ(0, [] {
        rdfa zero;
        rdfa_maker maker;
        rnfa nfa;
        rnfa_maker().add_expr(nfa, "z", 0);
        maker.ntod(zero, nfa);
        return zero.match("z");
    }());
}

TEST(rdfa, a_text_of_any_length_is_walked_as_its_table_says)
{
    // A table that stays, goes on or, seldom, ends; its states also name rows that are not there.
    std::mt19937 random(20260131);
    rdfa automaton;
    automaton.create(7, 256);
    for (short row = 0; row < 7; ++row) {
        automaton.set_accept(row, static_cast<short>(row * 10));
        for (short byte = 0; byte < 256; ++byte) {
            const auto way = static_cast<short>(random() % 60);
            static const short nowhere[] = { -1, 7, -32768, 32767 };
            automaton.set_state(row, byte, way < 7 ? way : way < 11 && byte >= 128 ? nowhere[way - 7] : row);
        }
    }
    unsigned ends = 0;
    for (unsigned round = 0; round < 3000; ++round) {
        std::string bytes;
        const unsigned alphabet = round % 3 ? 128 : 256; // a way out is rare, or is not there
        for (unsigned n = round % 150; n > 0; --n)
            bytes += static_cast<char>(random() % alphabet);
        int expected = 0;
        for (const char c : bytes) {
            expected = automaton.get_state(static_cast<short>(expected), static_cast<unsigned char>(c));
            if (expected < 0 || expected >= 7)
                break;
        }
        const bool ended = expected < 0 || expected >= 7;
        ends += ended;
        const guarded_text text(bytes); // and not a byte further
        ASSERT_EQ(ended ? failed : expected * 10, automaton.match(text.begin(), text.end())) << bytes.size();
    }
    EXPECT_GT(ends, 300u);
    EXPECT_LT(ends, 1000u);
}

namespace {

/// What a walk by `get_state` and `get_accept` gives.
int walked(const rdfa& automaton, const std::string& text)
{
    short state = 0;
    for (const char c : text) {
        state = automaton.get_state(state, static_cast<unsigned char>(c));
        if (state < 0)
            return failed;
    }
    return automaton.get_accept(state);
}

/// Texts of `letters`, so many of each length up to 40.
std::vector<std::string> texts_of(const std::string& letters, unsigned of_each)
{
    std::mt19937 random(20260131);
    std::vector<std::string> texts;
    for (unsigned i = 0; i < 41 * of_each; ++i) {
        std::string text;
        for (unsigned n = i % 41; n > 0; --n)
            text += letters[random() % letters.size()];
        texts.push_back(text);
    }
    return texts;
}

} // namespace

TEST(rdfa, small_and_large_automata_match_texts_of_any_length)
{
    // As many rows as links are made for, and one more: a chain of letters has one row more.
    const std::string row_48 = std::string(47, 'a');
    const std::string row_49 = std::string(48, 'a');
    const std::vector<rdfa> automata = {
        built({ "[ab]*c", "(a|b)*a(a|b)(a|b)", "b+", "\\0*" }),
        built({ "(a|b)*a(a|b)(a|b)(a|b)(a|b)(a|b)" }), // 65 rows
        built({ row_48.c_str(), "a*b", "~[a]*" }),
        built({ "a*b" }),
        built({ row_48.c_str() }),
        built({ row_49.c_str() }),
        built({ "" }),
        built({ "[]" }),
    };
    unsigned matches = 0;
    for (const rdfa& automaton : automata) {
        for (const char* letters : { "a", "ab", "aab", "abcd", "b\xFF" }) {
            for (const std::string& bytes : texts_of(letters, 20)) {
                const guarded_text text(bytes); // and not a byte further
                const int rule = walked(automaton, bytes);
                matches += rule > 0;
                ASSERT_EQ(rule, automaton.match(text.begin(), text.end()))
                    << automaton.num_row() << " " << bytes;
            }
        }
        const std::string zeros(40, '\0');
        for (const std::size_t n : { 0, 1, 3, 4, 5, 8, 9, 40 })
            ASSERT_EQ(walked(automaton, zeros.substr(0, n)), automaton.match(zeros.data(), zeros.data() + n)) << n;
    }
    EXPECT_GT(matches, 1000u);
}

TEST(rdfa, a_change_of_table_or_rules_shows_in_the_next_match)
{
    static const struct {
        const char* by;
        void (*change)(rdfa&);
        int becomes;
    } rows[] = {
        { "set_state", [](rdfa& a) { a.set_state(0, 'a', 2); }, failed },
        { "a row", [](rdfa& a) { a.get_row(3)['d'] = 1; }, -1 },
        { "the table", [](rdfa& a) { a.get_table()[3 * 256 + 'd'] = 0; }, -1 },
        { "an entry that is no row", [](rdfa& a) { a.get_row(3)['d'] = 32767; }, failed },
        { "a negative entry", [](rdfa& a) { a.get_row(3)['d'] = -300; }, failed },
        { "a smaller rule", [](rdfa& a) { a.set_accept(4, 0); }, 0 },
        { "no rule", [](rdfa& a) { a.set_accept(4, -1); }, -1 },
        { "a copy", [](rdfa& a) { static_cast<dfa&>(a).copy(built({ "abce" })); }, failed },
        { "the table alone",
          [](rdfa& a) {
              static_cast<dfa&>(a) = built({ "x", "abcd" });
          },
          -1 },
        { "clear", [](rdfa& a) { a.clear(); }, failed },
        { "a new table", [](rdfa& a) { a.create(2, 256, 1); }, -1 },
        { "merged columns", [](rdfa& a) { a.merge_col(); }, failed },
    };
    for (const auto& row : rows) {
        rdfa automaton = built({ "abcd" });
        rdfa copy(automaton);
        ASSERT_EQ(1, automaton.match("abcd"));
        row.change(automaton);
        EXPECT_EQ(row.becomes, automaton.match("abcd")) << row.by;
        EXPECT_EQ(1, copy.match("abcd")) << row.by;
        row.change(copy);
        EXPECT_EQ(row.becomes, copy.match("abcd")) << row.by;
    }
}

TEST(rdfa, a_pointer_into_the_table_may_be_written_to_later)
{
    rdfa automaton = built({ "abcd" });
    short* const row = automaton.get_row(3);
    EXPECT_EQ(1, automaton.match("abcd"));
    row['d'] = 3;
    EXPECT_EQ(-1, automaton.match("abcd"));
    row['d'] = 4;
    EXPECT_EQ(1, automaton.match("abcd"));
    // Who shares the table sees the change, but keeps rules of its own.
    rdfa sharer;
    sharer = built({ "abcd" });
    rdfa other;
    other = sharer;
    EXPECT_EQ(1, other.match("abcd"));
    sharer.set_accept(4, 0);
    EXPECT_EQ(0, sharer.match("abcd"));
    EXPECT_EQ(1, other.match("abcd"));
    sharer.set_state(0, 'a', -1);
    EXPECT_EQ(failed, other.match("abcd"));
    // A table that comes alone brings no rules; whoever has rules keeps them.
    rdfa bare;
    const rdfa full = built({ "abcd" });
    static_cast<dfa&>(bare) = full;
    EXPECT_EQ(-1, bare.match("abcd"));
    EXPECT_EQ(1, full.match("abcd"));
}

TEST(rdfa, without_rows_nothing_matches)
{
    EXPECT_EQ(failed, rdfa().match(""));
    EXPECT_EQ(failed, rdfa().match("a"));
    rdfa automaton = built({ "a" });
    automaton.clear();
    EXPECT_EQ(failed, automaton.match("a"));
}

TEST(rdfa, a_byte_is_its_own_column)
{
    rdfa automaton;
    automaton.create(2, 3, -1);
    automaton.set_state(0, 1, 1);
    automaton.set_state(1, 2, 0);
    automaton.set_accept(1, 4);
    automaton.ccl2ecs('a', 1); // not consulted
    EXPECT_EQ(4, automaton.match("\1"));
    EXPECT_EQ(-1, automaton.match("\1\2"));
    EXPECT_EQ(failed, automaton.match("\2"));
    // A byte without a column, and a way out of the table, have no way on.
    EXPECT_EQ(failed, automaton.match("a"));
    EXPECT_EQ(failed, automaton.match("\1\3"));
    automaton.set_state(0, 1, 2);
    EXPECT_EQ(failed, automaton.match("\1"));
    rdfa wide = built({ "ab" });
    wide.set_state(0, 'a', 3);
    EXPECT_EQ(failed, wide.match("ab"));
    wide.set_state(0, 'a', -32768);
    EXPECT_EQ(failed, wide.match("ab"));
}

TEST(rdfa, equal_columns_are_merged)
{
    rdfa automaton = built({ "[a-c]x" });
    EXPECT_EQ('q', automaton.ccl2ecs('q')); // until then, each byte has its own
    EXPECT_TRUE(automaton.equ_ccl('a', 'b'));
    EXPECT_TRUE(automaton.equ_ccl('y', 0));
    EXPECT_FALSE(automaton.equ_ccl('a', 'x'));
    automaton.merge_col();
    EXPECT_EQ(3, automaton.num_ecs());
    EXPECT_EQ(3, automaton.num_row());
    std::string map;
    for (const char c : std::string("0abcdxyz\xFF"))
        map += std::to_string(automaton.ccl2ecs(static_cast<unsigned char>(c)));
    EXPECT_EQ("011102000", map);
    EXPECT_EQ("-1 1 -1 / -1 -1 2 / -1 -1 -1", entries(automaton));
    EXPECT_EQ(automaton.ccl2ecs(200), automaton.get_ccl2ecs()[200]);
    // Once is enough.
    automaton.merge_col();
    EXPECT_EQ(3, automaton.num_ecs());
    EXPECT_EQ("-1 1 -1 / -1 -1 2 / -1 -1 -1", entries(automaton));
}

TEST(rdfa, merging_needs_256_columns)
{
    rdfa automaton;
    automaton.merge_col();
    automaton.create(2, 255, 0);
    automaton.merge_col();
    EXPECT_EQ(255, automaton.num_col());
    EXPECT_EQ(7, automaton.ccl2ecs(7));
    // All columns equal; all different.
    automaton.create(2, 256, 0);
    automaton.merge_col();
    EXPECT_EQ(1, automaton.num_col());
    EXPECT_EQ("0 / 0", entries(automaton));
    automaton.create(1, 256);
    for (short c = 0; c < 256; ++c)
        automaton.set_state(0, c, static_cast<short>(-c));
    automaton.merge_col();
    EXPECT_EQ(256, automaton.num_col());
    EXPECT_EQ(-255, automaton.get_state(0, 255));
    EXPECT_EQ(255, automaton.ccl2ecs(255));
}

TEST(rdfa, merging_leaves_who_shares_the_table_alone)
{
    rdfa a = built({ "[a-c]x" });
    rdfa b;
    b = a;
    a.merge_col();
    EXPECT_EQ(256, b.num_col());
    EXPECT_EQ(1, b.match("bx"));
}

TEST(rdfa, a_compressed_table_gives_the_same_through_the_map)
{
    const rdfa plain = built({ "while", "[a-z_]+", "[0-8]+(\\.[0-8]*)?", "\"<=\"|\"<\"", "~[a-z]~[0-8]" });
    rdfa merged(plain);
    merged.merge_col();
    EXPECT_LT(merged.num_ecs(), 32);
    for (short r = 0; r < plain.num_row(); ++r) {
        for (short c = 0; c < 256; ++c)
            ASSERT_EQ(plain.get_state(r, c), merged.get_state(r, merged.ccl2ecs(c))) << r << " " << c;
    }
}

TEST(rdfa_maker, numbers_states_breadth_first)
{
    EXPECT_EQ("0(a>1) 1(b>2) 2:1", text_of(built({ "ab" })));
    const rdfa ab = built({ "ab" });
    EXPECT_EQ(3, ab.num_row());
    EXPECT_EQ(1, ab.match("ab"));
    EXPECT_EQ(-1, ab.match("a"));
    EXPECT_EQ(failed, ab.match("b"));
    static const struct {
        const char* pattern;
        const char* automaton;
    } rows[] = {
        { "a", "0(a>1) 1:1" },
        { "[]", "0:1" },
        { "a*", "0:1(a>1) 1:1(a>1)" }, // the same closure, but found as another set
        { "[a-c]*x", "0(a-c>1 x>2) 1(a-c>1 x>2) 2:1" },
        // In the order of bytes, whatever the order of the rules.
        { "cx|bx|ax", "0(a>1 b>2 c>3) 1(x>4) 2(x>5) 3(x>6) 4:1 5:1 6:1" },
        { "(a|b)*abb", "0(a>1 b>2) 1(a>1 b>3) 2(a>1 b>2) 3(a>1 b>4) 4:1(a>1 b>2)" },
        { "(a|b)?c", "0(a>1 b>2 c>3) 1(c>3) 2(c>3) 3:1" },
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.automaton, text_of(built({ row.pattern }))) << row.pattern;
}

TEST(rdfa_maker, the_highest_rule_wins)
{
    EXPECT_EQ(2, built({ "ab", "a[b-d]" }).match("ab"));
    EXPECT_EQ(2, built({ "a[b-d]", "ab" }).match("ab"));
    EXPECT_EQ(1, built({ "a[b-d]", "ab" }).match("ac"));
    EXPECT_EQ(4, built({ "x", "[a-z]+", "while", "while" }).match("while"));
    EXPECT_EQ(2, built({ "x", "[a-z]+", "while", "while" }).match("whil"));
}

TEST(rdfa_maker, an_automaton_that_was_filled_keeps_smaller_rules)
{
    rdfa automaton;
    rdfa_maker maker;
    rnfa nfa;
    rnfa_maker patterns;
    patterns.read_expr(nfa, "ab", 5);
    maker.ntod(automaton, nfa);
    EXPECT_EQ(5, automaton.match("ab"));
    // The old rule of a row stays when it is smaller than the new one,
    patterns.read_expr(nfa, "cd", 7);
    EXPECT_EQ(0, maker.ntod(automaton, nfa));
    EXPECT_EQ(5, automaton.match("cd"));
    // gives way to a smaller one,
    patterns.read_expr(nfa, "cd", 3);
    maker.ntod(automaton, nfa);
    EXPECT_EQ(3, automaton.match("cd"));
    // and to none.
    patterns.read_expr(nfa, "def", 9);
    maker.ntod(automaton, nfa);
    EXPECT_EQ(9, automaton.match("def"));
    EXPECT_EQ(-1, automaton.match("de"));
    // An automaton that was cleared begins anew.
    automaton.clear();
    patterns.read_expr(nfa, "ab", 8);
    maker.ntod(automaton, nfa);
    EXPECT_EQ(8, automaton.match("ab"));
}

TEST(rdfa_maker, refuses_an_automaton_without_start)
{
    rdfa automaton = built({ "a" });
    rdfa_maker maker;
    EXPECT_EQ(failed, maker.ntod(automaton, rnfa()));
    EXPECT_EQ(1, automaton.match("a"));
    rnfa nfa = united({ "a" });
    nfa.set_start(2);
    EXPECT_EQ(failed, maker.ntod(automaton, nfa));
}

TEST(rdfa_maker, stops_at_32767_states)
{
    // n bytes behind an "a" need 2 to the power of n + 1 states.
    std::string pattern = "(a|b)*a";
    for (int n = 1; n <= 15; ++n) {
        pattern += "(a|b)";
        rdfa automaton;
        rdfa_maker maker;
        const int r = maker.ntod(automaton, united({ pattern.c_str() }));
        if (n < 14) {
            EXPECT_EQ(0, r);
            EXPECT_LE(2 << n, automaton.num_row());
        } else if (n == 15) {
            EXPECT_EQ(static_cast<int>(0x80010003), r);
            EXPECT_EQ(0, automaton.num_row());
            EXPECT_EQ(0, maker.ntod(automaton, united({ "a" }))); // it holds nothing over
            EXPECT_EQ("0(a>1) 1:1", text_of(automaton));
        }
    }
    // A chain of exactly so many states, and of one more.
    rdfa automaton;
    rdfa_maker maker;
    EXPECT_EQ(0, maker.ntod(automaton, chain_of(32767)));
    EXPECT_EQ(32767, automaton.num_row());
    EXPECT_EQ(-1, automaton.match(std::string(32766, 'a').c_str()));
    EXPECT_EQ(failed, automaton.match(std::string(32767, 'a').c_str()));
    // Its end leads to two states of the begin at once, and these pairs are too many.
    rnfa ring = chain_of(32765);
    ring.connect(32764, 0, 'b');
    ring.connect(32764, 1, 'b');
    EXPECT_EQ(static_cast<int>(0x80010003), maker.ntod(automaton, ring));
    EXPECT_EQ(32767, automaton.num_row()); // as it was
}

TEST(rdfa_maker, states_are_found_by_their_sets)
{
    open_maker maker;
    EXPECT_EQ(0u, maker.num_state());
    EXPECT_EQ(-1, maker.find_state(set_of(40, { 3 })));
    EXPECT_EQ(0, maker.new_state(set_of(40, { 3 })));
    EXPECT_EQ(1, maker.new_state(set_of(40, { 3, 39 })));
    EXPECT_EQ(2, maker.new_state(set_of(40, {})));
    EXPECT_EQ(3, maker.new_state(set_of(40, { 3 }))); // again
    EXPECT_EQ(4u, maker.num_state());
    // The first in creation order is found.
    EXPECT_EQ(0, maker.find_state(set_of(40, { 3 })));
    EXPECT_EQ(1, maker.find_state(set_of(40, { 3, 39 })));
    EXPECT_EQ(2, maker.find_state(set_of(40, {})));
    EXPECT_EQ(-1, maker.find_state(set_of(40, { 39 })));
    EXPECT_EQ(-1, maker.get_state(1)->accept);
    EXPECT_EQ(256, std::count(maker.get_state(1)->next, maker.get_state(1)->next + 256, -1));
    // Many of them, so that the index grows.
    for (unsigned i = 4; i < 1000; ++i)
        EXPECT_EQ(static_cast<short>(i), maker.new_state(set_of(1000, { i, 0 })));
    for (unsigned i = 4; i < 1000; ++i)
        EXPECT_EQ(static_cast<short>(i), maker.find_state(set_of(1000, { 0, i })));
    maker.clear();
    EXPECT_EQ(0u, maker.num_state());
    EXPECT_EQ(-1, maker.find_state(set_of(40, { 3 })));
}

TEST(rdfa_maker, the_records_become_the_table)
{
    open_maker maker;
    maker.new_state(set_of(4, { 0 }));
    maker.new_state(set_of(4, { 1 }));
    maker.get_state(0)->next['x'] = 1;
    maker.get_state(1)->accept = 6;
    open_maker copy(maker);
    rdfa automaton;
    maker.distill_dfa(automaton);
    EXPECT_EQ("0(x>1) 1:6", text_of(automaton));
    EXPECT_EQ(256, automaton.num_col());
    EXPECT_EQ(0u, maker.num_state());
    // A copy has records of its own.
    EXPECT_EQ(1, copy.find_state(set_of(4, { 1 })));
    maker = copy;
    copy.clear();
    EXPECT_EQ(2u, maker.num_state());
    maker.distill_dfa(automaton);
    EXPECT_EQ(6, automaton.match("x"));
}

TEST(rdfa_maker, building_drops_what_the_maker_held)
{
    open_maker maker;
    rdfa automaton;
    // Records from before have no part in the next table,
    maker.new_state(set_of(4, { 3 }));
    maker.new_state(set_of(4, { 2 }));
    EXPECT_EQ(0, maker.ntod(automaton, united({ "ab" })));
    EXPECT_EQ("0(a>1) 1(b>2) 2:1", text_of(automaton));
    EXPECT_EQ(0u, maker.num_state());
    // and a build that is refused drops them too.
    maker.new_state(set_of(4, { 3 }));
    EXPECT_EQ(failed, maker.ntod(automaton, rnfa()));
    EXPECT_EQ(0u, maker.num_state());
}

TEST(rdfa_maker, the_table_is_created_like_any_other)
{
    struct hooked : rdfa {
        std::string seen;
        void on_create() override
        {
            seen += std::to_string(num_row()) + "x" + std::to_string(num_col()) + " ";
            rdfa::on_create();
        }
    };
    hooked automaton;
    rdfa_maker maker;
    EXPECT_EQ(0, maker.ntod(automaton, united({ "ab" })));
    EXPECT_EQ("3x256 ", automaton.seen);
    EXPECT_EQ(1, automaton.match("ab"));
    EXPECT_EQ(failed, maker.ntod(automaton, rnfa()));
    EXPECT_EQ("3x256 ", automaton.seen);
}

TEST(regex, is_reserved)
{
    regex front;
    EXPECT_EQ(static_cast<int>(0x8002000b), front.compile("a"));
    const char* text = "a";
    EXPECT_EQ(static_cast<int>(0x8002000b), front.match(text, text + 1));
    EXPECT_EQ(static_cast<int>(0x8002000b), front.compile(nullptr));
    regex other(front);
    other = front;
    EXPECT_EQ(static_cast<int>(0x8002000b), other.compile("a"));
}
