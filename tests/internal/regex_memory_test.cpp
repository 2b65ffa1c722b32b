// Bitmaps, patterns and automata when memory runs out: the status that the header
// promises, the objects as they were or empty, and nothing leaked. And what the plan
// of an automaton leaves out.
#include "allocation_failure.h"

#include "nfa_plan.h"

#include <stdkro/rdfa.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

/// What an action that is to fail throws or returns; 0 when it did not.
struct outcome {
    int code = 0;
    std::string text;
};

outcome run(allocation_failure& failure, const std::function<int()>& action)
{
    outcome result;
    failure.arm();
    try {
        result.code = action();
    } catch (const xcpt& e) {
        result.code = e.get_err();
        failure.disarm();
        result.text = e.what();
    }
    failure.disarm();
    return result;
}

/// Runs `action` with each allocation failing; it must report each failure. Returns how
/// many there were.
int fail_each(const std::function<int()>& action)
{
    int failures = 0;
    for (allocation_failure failure; failure.next();) {
        const outcome result = run(failure, action);
        EXPECT_EQ(failure.happened() ? err::out_of_memory : 0, result.code) << failure.nth();
        failures += failure.happened();
    }
    return failures;
}

rnfa automaton(const char* pattern)
{
    rnfa nfa;
    rnfa_maker().read_expr(nfa, pattern, 1);
    return nfa;
}

const char* const pattern = "([a-z]+=[0-9]+;)*|\"quoted string\"|(a|b)?x{:digit:}";

} // namespace

TEST(regex_memory, a_bitmap_that_cannot_grow_stays_as_it_is)
{
    const std::string ones(200, '1');
    for (allocation_failure failure; failure.next();) {
        bitmap b(10);
        b.add_bit(9);
        failure.arm();
        const bool grown = b.reserved(100);
        failure.disarm();
        EXPECT_EQ(!failure.happened(), grown);
        EXPECT_EQ(grown ? 100u : 10u, b.capacity());
        EXPECT_TRUE(b[9]);
        failure.arm();
        const int read = b.from_string(ones.c_str());
        failure.disarm();
        EXPECT_TRUE(read == 0 || read == err::out_of_memory);
    }
    for (allocation_failure failure; failure.next();) {
        failure.arm();
        const bitmap b(100);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? 0u : 100u, b.capacity());
    }
}

TEST(regex_memory, a_closure_names_itself_where_it_failed)
{
    rnfa nfa;
    for (int i = 0; i < 200; ++i)
        nfa.alloc_state();
    nfa.connect(0, 150, rnfa::epsilon);
    for (allocation_failure failure; failure.next();) {
        bitmap set(10);
        set.add_bit(0);
        std::string failed;
        failure.arm();
        try {
            nfa.closure(set);
        } catch (const xcpt& e) {
            failure.disarm();
            EXPECT_EQ(err::out_of_memory, e.get_err());
            failed = e.what();
        }
        failure.disarm();
        EXPECT_EQ(failure.happened() ? "rnfa::closure" : "", failed);
        EXPECT_TRUE(set[0]);
        EXPECT_EQ(!failure.happened(), set.capacity() >= 200 && set[150]);
    }
}

TEST(regex_memory, bitmaps_name_the_operation_that_failed)
{
    bitmap small(10);
    small.add_bit(3);
    const bitmap large(100);
    const struct {
        const char* name;
        std::function<int()> action;
    } rows[] = {
        { "bitmap::copy_construct(const bitmap&)", [&] { return static_cast<int>(bitmap(large).count()); } },
        { "bitmap::copy_rhs(const bitmap&)", [&] { return static_cast<int>((small = large).count()); } },
        { "bitmap::operator|=", [&] { return (small |= large).capacity() == 100 ? 0 : 1; } },
        { "bitmap::operator^=", [&] { return (small ^= large).capacity() == 100 ? 0 : 1; } },
        { "bitmap::bitmap(const char*, const char*)", [&] { return static_cast<int>(bitmap("00").count()); } },
    };
    for (const auto& row : rows) {
        allocation_failure failure;
        ASSERT_TRUE(failure.next());
        const outcome result = run(failure, row.action);
        EXPECT_EQ(static_cast<int>(0x80010002), result.code) << row.name;
        EXPECT_EQ(row.name, result.text);
        EXPECT_EQ(10u, small.capacity());
        EXPECT_TRUE(small[3]);
    }
}

TEST(regex_memory, a_pattern_becomes_an_automaton_or_leaves_it_alone)
{
    const int failures = fail_each([] {
        rnfa nfa = automaton("a");
        const int r = rnfa_maker().read_expr(nfa, pattern, 2);
        EXPECT_TRUE(nfa.num_state() > 2);
        return r;
    });
    EXPECT_GT(failures, 10);
    // The maker survives, and what it held is released.
    rnfa_maker maker;
    rnfa nfa;
    for (allocation_failure failure; failure.next();) {
        const unsigned before = nfa.num_state();
        const outcome result = run(failure, [&] { return maker.add_expr(nfa, pattern, 3); });
        EXPECT_EQ(failure.happened() ? err::out_of_memory : 0, result.code);
        EXPECT_EQ(failure.happened(), nfa.num_state() == before);
    }
    EXPECT_TRUE(nfa.match("quoted string"));
}

TEST(regex_memory, automata_are_joined_or_stay_as_they_are)
{
    static void (*const joins[])(rnfa&, const rnfa&) = {
        [](rnfa& a, const rnfa& b) { a.connect_and(b); },
        [](rnfa& a, const rnfa& b) { a.connect_or(b); },
        [](rnfa& a, const rnfa& b) { a.splice(b); },
        [](rnfa& a, const rnfa&) { a.connect_repeat('*'); },
        [](rnfa& a, const rnfa&) { a.alloc_state(); },
        [](rnfa& a, const rnfa&) { a.connect(0, 1, 'x'); },
        [](rnfa& a, const rnfa& b) { a = b; },
    };
    const rnfa other = automaton(pattern);
    for (const auto join : joins) {
        rnfa nfa;
        int failures = 0;
        for (allocation_failure failure; failure.next();) {
            nfa = automaton("ab");
            const outcome result = run(failure, [&] {
                join(nfa, other);
                return 0;
            });
            EXPECT_EQ(failure.happened() ? err::out_of_memory : 0, result.code);
            if (failure.happened()) {
                EXPECT_EQ(4u, nfa.num_state());
                EXPECT_TRUE(nfa.match("ab"));
            }
            failures += failure.happened();
        }
        EXPECT_GT(failures, 0);
    }
}

TEST(regex_memory, matching_and_searching_report_it)
{
    const rnfa nfa = automaton(pattern);
    EXPECT_GT(fail_each([&] { return rnfa(nfa).match("ab=12;x=0;") ? 0 : 1; }), 5);
    EXPECT_GT(fail_each([&] {
                  rnfa_match_result found;
                  return nfa.search(found, "--ab=12").any() ? 0 : 1;
              }),
              3);
    // Above 256 states the walk needs memory of its own.
    const rnfa large = automaton((std::string("\"") + std::string(300, 'a') + "\"*").c_str());
    EXPECT_TRUE(large.match(""));
    EXPECT_EQ(3, fail_each([&] { return large.match("") ? 0 : 1; }));
}

TEST(regex_memory, a_small_automaton_matches_without_memory)
{
    const rnfa nfa = automaton(pattern);
    EXPECT_TRUE(nfa.match("ab=12;")); // the first match prepares it
    EXPECT_EQ(0, fail_each([&] { return nfa.match("ab=12;x=3;") ? 0 : 1; }));
}

TEST(regex_memory, a_table_is_built_or_is_out_of_memory)
{
    const rnfa nfa = automaton(pattern);
    EXPECT_GT(fail_each([&] {
                  rdfa automaton;
                  const int r = rdfa_maker().ntod(automaton, nfa);
                  EXPECT_EQ(1, automaton.match("ab=12;"));
                  return r;
              }),
              10);
    // A maker that failed builds the next one.
    rdfa_maker maker;
    rdfa table;
    for (allocation_failure failure; failure.next();) {
        const outcome result = run(failure, [&] { return maker.ntod(table, nfa); });
        EXPECT_EQ(failure.happened() ? err::out_of_memory : 0, result.code);
        EXPECT_TRUE(table.match("ab=12;") == 1 || failure.happened());
    }
}

TEST(regex_memory, tables_are_copied_and_merged_or_stay_as_they_are)
{
    rdfa table;
    rdfa_maker().ntod(table, automaton(pattern));
    // Its table, its rules, its links.
    EXPECT_EQ(3, fail_each([&] { return rdfa(table).match("ab=12;") == 1 ? 0 : 1; }));
    for (allocation_failure failure; failure.next();) {
        rdfa copy(table);
        const outcome result = run(failure, [&] {
            copy.merge_col();
            return 0;
        });
        EXPECT_EQ(failure.happened() ? err::out_of_memory : 0, result.code);
        EXPECT_EQ(failure.happened() ? 256 : copy.num_ecs(), copy.num_col());
        EXPECT_EQ(failure.happened(), copy.match("ab=12;") == 1);
    }
    // A table that cannot be made is empty, rules included.
    for (allocation_failure failure; failure.next();) {
        rdfa copy(table);
        const auto rows = static_cast<short>(table.num_row() + 1000);
        const outcome result = run(failure, [&] {
            copy.create(rows, 256, -1);
            return 0;
        });
        EXPECT_EQ(failure.happened() ? err::out_of_memory : 0, result.code);
        EXPECT_EQ(failure.happened() ? 0 : rows, copy.num_row());
    }
    for (allocation_failure failure; failure.next();) {
        rdfa copy;
        const outcome result = run(failure, [&] {
            copy = table;
            return 0;
        });
        EXPECT_EQ(failure.happened() ? err::out_of_memory : 0, result.code);
        EXPECT_EQ(failure.happened() ? 0 : table.num_row(), copy.num_row());
    }
}

TEST(nfa_plan, empty_moves_go_straight_to_where_something_happens)
{
    // Rules 1 to 4 end in a chain of unions: nothing happens on it.
    rnfa nfa;
    rnfa_maker maker;
    for (const char* rule : { "a", "b", "c", "d" })
        maker.add_expr(nfa, rule, 1);
    const nfa_plan plan(nfa);
    unsigned ends = 0;
    for (const nfa_plan::node& n : plan.nodes) {
        if (n.expr < 0)
            continue;
        ++ends;
        EXPECT_EQ(n.first_empty, n.end_empty);
    }
    EXPECT_EQ(4u, ends);
    EXPECT_FALSE(plan.nodes[static_cast<unsigned short>(nfa.finish())].matters);
    EXPECT_TRUE(plan.nodes[static_cast<unsigned short>(nfa.start())].matters);
}

TEST(nfa_plan, chains_and_rings_end)
{
    rnfa nfa;
    for (int i = 0; i < 6; ++i)
        nfa.alloc_state();
    nfa.connect(0, 1, rnfa::epsilon); // a chain of 0, 1 and 2 to 3
    nfa.connect(1, 2, rnfa::epsilon);
    nfa.connect(2, 3, rnfa::epsilon);
    nfa.connect(3, 3, 'x');
    nfa.connect(4, 5, rnfa::epsilon); // a ring
    nfa.connect(5, 4, rnfa::epsilon);
    const nfa_plan plan(nfa);
    for (unsigned s = 0; s < 3; ++s)
        EXPECT_EQ(3, plan.empty_moves[plan.nodes[s].first_empty]) << s;
    for (unsigned s = 4; s < 6; ++s) {
        EXPECT_FALSE(plan.nodes[s].matters) << s;
        EXPECT_EQ(plan.nodes[s].first_empty, plan.nodes[s].end_empty) << s;
    }
}
