// The lexer of expressions: a table of symbols over the generic lexer.
//
// The table is registered once, in a lexer that lives as long as the library. All
// others share it: registering its symbols for each evaluated text would cost more
// than evaluating a short one.
#include <stdkro/eparser.h>

#include <new>

namespace {

/// A symbol that no rule accepts.
constexpr int no_operator = 2;

// Each prefix of a symbol must stand in the table too: the generic lexer extends
// a symbol by one character at a time.
const struct {
    const char* text;
    int code;
} operators[] = {
    { "(", eparser::OP_OPEN },
    { ")", eparser::OP_CLOSE },
    { "+", eparser::OP_ADD },
    { "-", eparser::OP_SUB },
    { "*", eparser::OP_MUL },
    { "/", eparser::OP_DIV },
    { "%", eparser::OP_MOD },
    { ">", eparser::OP_GREATER },
    { "<", eparser::OP_LESS },
    { "=", eparser::OP_ASSIGN },
    { "*=", eparser::OP_MUL_ASSIGN },
    { "/=", eparser::OP_DIV_ASSIGN },
    { "+=", eparser::OP_ADD_ASSIGN },
    { "-=", eparser::OP_SUB_ASSIGN },
    { "==", eparser::OP_EQUAL },
    { ">=", eparser::OP_GREATER_EQUAL },
    { "<=", eparser::OP_LESS_EQUAL },
    { "!=", eparser::OP_NOT_EQUAL },
    { "&&", eparser::OP_AND },
    { "||", eparser::OP_OR },
    { "!", eparser::OP_NOT },
    { "@", eparser::OP_AT },
    { ",", eparser::OP_COMMA },
    { "|", no_operator },
    { "&", no_operator },
};

/// One token of push-back is all the parser needs.
constexpr int push_back = 1;

} // namespace

eparser::elexer::elexer() : elexer(symbols_of { language() }) {}

eparser::elexer::elexer(symbols_of like) : base_lexer(push_back, like.other) {}

eparser::elexer::elexer(first_of_all) : base_lexer(push_back) { create_lexical(); }

const eparser::elexer& eparser::elexer::language()
{
    // Never destroyed: whatever is made before it may evaluate texts until its own end.
    alignas(elexer) static unsigned char place[sizeof(elexer)];
    static const elexer& first = *new (place) elexer(first_of_all());
    return first;
}

void eparser::elexer::create_lexical()
{
    for (const auto& symbol : operators)
        set_symbol(symbol.text, symbol.code);
}
