// kro automaton: the automaton of patterns, as a graph, a table or a C++ source.
#include "commands.h"
#include "patterns.h"
#include "quoted.h"

#include <stdkro/xcpt.h>

#include <bitset>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

using byte_set = std::bitset<256>;

/// Where a state leads: for each target the bytes that lead there. No byte at all
/// stands for a move that reads nothing.
using ways = std::map<unsigned, byte_set>;

/// Both kinds of automata in one form, for printing.
struct graph {
    struct state {
        int rule; // -1 for none
        ways next;
        bool reachable;
    };
    std::vector<state> states;
    unsigned start;
};

void mark_reachable(graph& g)
{
    std::vector<unsigned> waiting { g.start };
    g.states[g.start].reachable = true;
    while (!waiting.empty()) {
        const ways next = g.states[waiting.back()].next;
        waiting.pop_back();
        for (const auto& way : next) {
            if (!g.states[way.first].reachable)
                waiting.push_back(way.first);
            g.states[way.first].reachable = true;
        }
    }
}

graph graph_of(const rnfa& nfa)
{
    graph g { {}, static_cast<unsigned>(nfa.start()) };
    for (unsigned s = 0; s < nfa.num_state(); ++s) {
        const rnfa::state& state = *nfa.get_state(static_cast<short>(s));
        ways next;
        for (short a = state.first; a < state.end; ++a) {
            byte_set& bytes = next[nfa.get_arc(a)->target];
            if (nfa.get_arc(a)->symbol < bytes.size())
                bytes.set(nfa.get_arc(a)->symbol);
        }
        g.states.push_back({ state.expr, next, false });
    }
    mark_reachable(g);
    return g;
}

graph graph_of(const rdfa& dfa)
{
    graph g { {}, 0 };
    for (short r = 0; r < dfa.num_row(); ++r) {
        ways next;
        for (short byte = 0; byte < dfa.num_col(); ++byte) {
            if (dfa.get_state(r, byte) >= 0)
                next[static_cast<unsigned>(dfa.get_state(r, byte))].set(static_cast<unsigned short>(byte));
        }
        g.states.push_back({ dfa.get_accept(r), next, true });
    }
    return g;
}

/// A byte as the notation writes it; blanks and what is no ASCII as numbers.
std::string byte_text(unsigned byte)
{
    if (byte == ' ' || byte > 126)
        return "\\" + std::to_string(byte);
    const char c = static_cast<char>(byte);
    return c == '-' ? "\\-" : visible(&c, 1);
}

/// Bytes as ranges: "a-z _".
std::string ranges(const byte_set& bytes)
{
    std::string text;
    for (unsigned i = 0; i < bytes.size(); ++i) {
        if (!bytes[i])
            continue;
        unsigned last = i;
        while (last + 1 < bytes.size() && bytes[last + 1])
            ++last;
        text += text.empty() ? "" : " ";
        text += byte_text(i);
        if (last > i)
            text += "-" + byte_text(last);
        i = last;
    }
    return text;
}

void print_dot(const graph& g)
{
    std::printf("digraph automaton {\n"
                "    rankdir=LR;\n"
                "    node [shape=circle];\n"
                "    begin [shape=point];\n"
                "    begin -> %u;\n",
                g.start);
    for (unsigned s = 0; s < g.states.size(); ++s) {
        const graph::state& state = g.states[s];
        if (!state.reachable)
            continue;
        if (state.rule >= 0)
            std::printf("    %u [shape=doublecircle, label=\"%u\\nrule %d\"];\n", s, s, state.rule);
        for (const auto& way : state.next) {
            if (way.second.none())
                std::printf("    %u -> %u [style=dashed];\n", s, way.first);
            else
                std::printf("    %u -> %u [label=%s];\n", s, way.first, quoted(ranges(way.second)).c_str());
        }
    }
    std::printf("}\n");
}

void print_table(const graph& g)
{
    std::printf("state  rule  next  on\n");
    for (unsigned s = 0; s < g.states.size(); ++s) {
        const graph::state& state = g.states[s];
        if (!state.reachable)
            continue;
        const std::string rule = state.rule >= 0 ? std::to_string(state.rule) : "-";
        std::printf("%c%4u  %4s", s == g.start ? '>' : ' ', s, rule.c_str());
        if (state.next.empty())
            std::printf("     -\n");
        bool first = true;
        for (const auto& way : state.next) {
            std::printf("%s  %4u  %s\n", first ? "" : "           ", way.first,
                        way.second.none() ? "nothing" : ranges(way.second).c_str());
            first = false;
        }
    }
}

template <class value_t> void print_numbers(unsigned count, value_t value)
{
    for (unsigned i = 0; i < count; ++i)
        std::printf("%s%d,%s", i % 16 == 0 ? "    " : " ", value(i), i % 16 == 15 || i + 1 == count ? "\n" : "");
}

void print_cpp(const arguments& patterns, rdfa& dfa)
{
    dfa.merge_col();
    const int rows = dfa.num_row();
    const int columns = dfa.num_ecs();
    std::printf("// Made by `kro automaton --cpp` of these patterns:\n//\n");
    for (std::size_t i = 0; i < patterns.size(); ++i)
        std::printf("//     rule %u: '%s'\n", static_cast<unsigned>(i + 1),
                    visible(patterns[i].data(), patterns[i].size()).c_str());
    std::printf("//\n"
                "// With NO_MAIN defined, only match_text is left: include it in a program.\n"
                "#include <cstdio>\n#include <cstring>\n\n"
                "namespace {\n\n"
                "const unsigned char column_of[256] = {\n");
    print_numbers(256, [&](unsigned i) { return int { dfa.ccl2ecs(static_cast<short>(i)) }; });
    std::printf("};\n\n// A row for each state, -1 where there is no way on.\nconst short next_state[%d * %d] = {\n", rows,
                columns);
    print_numbers(static_cast<unsigned>(rows * columns), [&](unsigned i) { return int { dfa.get_table()[i] }; });
    std::printf("};\n\n// The rule that each state accepts, -1 for none.\nconst short rule_of[%d] = {\n", rows);
    print_numbers(static_cast<unsigned>(rows), [&](unsigned i) { return int { dfa.get_accepts()[i] }; });
    std::printf("};\n\n} // namespace\n\n"
                "/// The rule that accepts the whole text, the highest if several do; -1 for none.\n"
                "int match_text(const char* begin, const char* end)\n"
                "{\n"
                "    int state = 0;\n"
                "    for (; begin != end; ++begin) {\n"
                "        state = next_state[state * %d + column_of[static_cast<unsigned char>(*begin)]];\n"
                "        if (state < 0)\n"
                "            return -1;\n"
                "    }\n"
                "    return rule_of[state];\n"
                "}\n\n"
                "#ifndef NO_MAIN\n"
                "int main(int argc, char** argv)\n"
                "{\n"
                "    for (int i = 1; i < argc; ++i)\n"
                "        std::printf(\"%%d %%s\\n\", match_text(argv[i], argv[i] + std::strlen(argv[i])), argv[i]);\n"
                "    return 0;\n"
                "}\n"
                "#endif\n",
                columns);
}

int print(const command_words& words)
{
    rnfa nfa;
    short rule = 0;
    for (const std::string& pattern : words.operands)
        add_whole_rule(nfa, pattern, ++rule);
    const bool is_nfa = words.has("nfa");
    rdfa dfa;
    if (!is_nfa)
        build(dfa, nfa);
    if (words.has("cpp")) {
        print_cpp(words.operands, dfa);
        return exit_success;
    }
    const graph g = is_nfa ? graph_of(nfa) : graph_of(dfa);
    if (words.has("dot"))
        print_dot(g);
    else
        print_table(g);
    return exit_success;
}

} // namespace

int automaton_command(const command_words& words)
{
    if (words.has("nfa") && words.has("cpp"))
        throw usage_error { "--cpp wants --dfa" };
    if (words.operands.size() > 32767)
        throw usage_error { "too many patterns" };
    try {
        return print(words);
    } catch (const xcpt& e) {
        return report_error(e.get_err(), e.what());
    }
}
