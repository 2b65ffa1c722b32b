// A pattern up to a NUL, then a text. The parser's tree, the NFA and the DFA must agree
// on what is a pattern and on what it matches, search must do as it is defined, and a
// compressed table must give the same as a plain one.
#include "../tests/naive_pattern.h"
#include "require.h"

#include <stdkro/rdfa.h>
#include <stdkro/xcpt.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string>

namespace {

/// Larger automata are parsed and matched only: the rest may take seconds.
constexpr unsigned largest_for_naive = 400;
constexpr unsigned largest_for_table = 48;
constexpr short most_rows_for_more = 1000;

/// The status of reading a pattern.
template <class action_t> int status_of(action_t action)
{
    try {
        return action();
    } catch (const xcpt& e) {
        require(e.what() != nullptr, "an error has a text");
        return e.get_err();
    }
}

bool is_known(int status)
{
    static const int known[] = { 0, err::unexpected, err::abnormal_end, err::undefined_symbol, err::overrun };
    return std::find(std::begin(known), std::end(known), status) != std::end(known);
}

/// The bytes that lead on from a set of states.
bool leads_on(const rnfa& nfa, const rnfa::state_set& set, char c)
{
    return nfa.move(set, static_cast<unsigned char>(c)).any();
}

void check_search(const rnfa& nfa, const char* begin, const char* end)
{
    rnfa::state_set initial(nfa.num_state());
    initial.add_bit(static_cast<unsigned>(nfa.start()));
    nfa.closure(initial);
    const char* first = begin;
    while (first != end && !leads_on(nfa, initial, *first))
        ++first;
    const char* last = first;
    rnfa::state_set behind(nfa.num_state());
    if (first != end) {
        behind = nfa.move(initial, static_cast<unsigned char>(*first));
        nfa.closure(behind);
        for (last = first + 1; last != end && leads_on(nfa, behind, *last);)
            ++last;
    }
    rnfa_match_result found;
    require(nfa.search(found, begin, end) == behind, "states of search");
    require(found.begin == first && found.end == last, "place of search");
}

/// False where the table would have too many rows: in ".*a......" each point doubles them.
bool has_table(rdfa& table, const rnfa& nfa)
{
    const int status = rdfa_maker().ntod(table, nfa);
    require(status == 0 || (status == err::little_of_resource && table.num_row() == 0), "a table or a status");
    return status == 0;
}

/// The number of rows; 0 where there is no table to check.
short check_tables(const rnfa& nfa, bool expected, const char* begin, const char* end)
{
    rdfa table;
    if (!has_table(table, nfa))
        return 0;
    require((table.match(begin, end) == 2) == expected, "table");
    if (table.num_row() > most_rows_for_more)
        return table.num_row();
    rdfa merged(table);
    merged.merge_col();
    short state = 0;
    for (const char* p = begin; p != end && state >= 0; ++p)
        state = merged.get_state(state, merged.ccl2ecs(static_cast<unsigned char>(*p)));
    require((state >= 0 && merged.get_accept(state) == 2) == expected, "merged table");
    return table.num_row();
}

/// United with itself under a higher number, the higher one wins.
void check_union(const rnfa& nfa, const char* pattern, bool expected, const char* begin, const char* end)
{
    rnfa united = nfa;
    if (status_of([&] { return rnfa_maker().add_expr(united, pattern, 5); }) < 0)
        return;
    require(united.match(begin, end) == expected, "union");
    rdfa table;
    if (has_table(table, united))
        require((table.match(begin, end) == 5) == expected, "the higher rule wins");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string pattern = input.substr(0, input.find('\0'));
    const std::string text = input.substr(std::min(pattern.size() + 1, size)).substr(0, naive::longest_text);

    rnfa nfa;
    const int status = status_of([&] { return rnfa_maker().read_expr(nfa, pattern.c_str(), 2); });
    require(is_known(status), "status");
    reader in;
    in.load_string(pattern.data(), pattern.data() + pattern.size(), true);
    rnfa other;
    require(status_of([&] { return rnfa_maker().read_expr(other, in, 2); }) == status, "text and reader");
    require(other.num_state() == nfa.num_state(), "text and reader make the same");
    if (status < 0) {
        require(nfa.start() < 0, "an error makes nothing");
        return 0;
    }
    naive::parser parser;
    const naive::tree* tree = parser.parse(pattern.c_str());
    require((tree == nullptr) == (nfa.start() < 0), "a pattern without content");
    if (!tree)
        return 0;
    const char* begin = text.data();
    const char* end = begin + text.size();
    const bool expected = nfa.match(begin, end);
    if (nfa.num_state() > largest_for_naive)
        return 0;
    require(naive::matches(*tree, text) == expected, "NFA");
    check_search(nfa, begin, end);
    if (nfa.num_state() > largest_for_table)
        return 0;
    const short rows = check_tables(nfa, expected, begin, end);
    if (rows > 0 && rows <= most_rows_for_more)
        check_union(nfa, pattern.c_str(), expected, begin, end);
    return 0;
}
