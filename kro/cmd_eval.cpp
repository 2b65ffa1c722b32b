// kro eval: one expression, evaluated.
#include "commands.h"
#include "definition.h"
#include "evaluation.h"
#include "progress.h"

#include <stdkro/ecalc.h>
#include <stdkro/xcpt.h>

#include <cstdio>
#include <cstring>
#include <iostream>

namespace {

/// Prints the line of `text` that holds position `at`, and a caret below it.
void print_place(const std::string& text, size_t at)
{
    const size_t before = at == 0 ? std::string::npos : text.rfind('\n', at - 1);
    const size_t begin = before == std::string::npos ? 0 : before + 1;
    const std::string line = text.substr(begin, text.find('\n', at) - begin);
    std::string lead;
    for (const char c : line.substr(0, at - begin)) {
        const bool continues_a_character = (static_cast<unsigned char>(c) & 0xC0) == 0x80;
        if (!continues_a_character)
            lead += c == '\t' ? '\t' : ' ';
    }
    print_message("    %s\n    %s^\n", line.c_str(), lead.c_str());
}

/// Reads the next token; where it begins.
size_t next_place(eparser::elexer& lexer, int& kind)
{
    token next;
    kind = lexer.get_token(&next);
    return static_cast<size_t>(next.get_begin() - lexer.get_buf());
}

int calculate(ecalc& calc, eparser::elexer& lexer, base_var& value)
{
    const progress work("evaluating");
    return calc.calc_expr(value, &lexer);
}

int evaluate(ecalc& calc, const std::string& text)
{
    eparser::elexer lexer;
    int r = lexer.load_string(text.c_str(), nullptr, false);
    if (r < 0)
        return report_error(r);
    base_var value;
    r = calculate(calc, lexer, value);
    if (r == err::overrun || r == err::out_of_memory)
        return report_error(r);
    int kind = 0;
    const size_t at = next_place(lexer, kind);
    if (r < 0 || kind != base_lexer::TK_EOF) {
        report_error(r < 0 ? r : err::syntax, r < 0 ? nullptr : "text left over after the expression");
        print_place(text, at);
        return exit_failure;
    }
    if (!value.is_rvalue())
        return report_error(value.get_err());
    std::cout << value << '\n';
    return exit_success;
}

} // namespace

int evaluate_and_print(ecalc& calc, const std::string& text)
{
    try {
        return evaluate(calc, text);
    } catch (const xcpt& e) {
        return report_error(e.get_err(), e.what());
    }
}

int eval_command(const command_words& words)
{
    ecalc calc;
    for (const definition& d : read_definitions(words))
        calc.get_vars().set(d.name.c_str(), d.value);
    return evaluate_and_print(calc, words.operands[0]);
}
