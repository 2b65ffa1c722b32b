// Lists what the library's own lexer makes of scripts: one token a line, as "KIND SPELLING".
//
//     lexer_listing FILE       the tokens of a script
//     lexer_listing --symbols  keywords, operators and the functions that all scripts have
//
// For check_grammar.py, which compares editors' grammar with it.
#include <stdkro/xpp.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>

namespace {

struct lister : xpp::xlexer {
    lister() : xlexer('$', '[', ']') {}
    const char* end_of_token() const { return get_cur(); }
};

void print(const char* kind, const std::string& spelling)
{
    std::printf("%s ", kind);
    for (const char c : spelling) {
        if (c == '\n')
            std::printf("\\n");
        else if (c == '\\')
            std::printf("\\\\");
        else
            std::printf("%c", c);
    }
    std::printf("\n");
}

bool is_keyword(int code) { return code >= xpp::xlexer::TK_IF && code <= xpp::xlexer::TK_EXIT; }

const char* kind_of(int code)
{
    switch (code) {
    case base_lexer::TK_REAL:
    case base_lexer::TK_INTEGER:
        return "number";
    case base_lexer::TK_CHAR:
        return "character";
    case base_lexer::TK_STRING:
        return "string";
    case base_lexer::TK_NAME:
        return "name";
    default:
        return is_keyword(code) ? "keyword" : "operator";
    }
}

// The tokens of one statement, to its end.
void list_statement(lister& lexer)
{
    print("open", "$[");
    token t;
    for (int code = lexer.get_token(&t); code != base_lexer::TK_EOF; code = lexer.get_token(&t)) {
        if (code == xpp::xlexer::TK_CLOSE) {
            print("close", "]");
            return;
        }
        print(kind_of(code), std::string(t.get_begin(), lexer.end_of_token()));
    }
}

int list(const char* path)
{
    lister lexer;
    if (lexer.load_file(path) < 0)
        return 1;
    token t;
    for (int code = lexer.get_x_token(&t); code != base_lexer::TK_EOF; code = lexer.get_x_token(&t)) {
        if (code == xpp::xlexer::TK_STATEMENT)
            list_statement(lexer);
        else
            print("text", t.get_text().c_str());
    }
    return 0;
}

void list_symbols()
{
    const lister lexer;
    for (const auto& symbol : lexer.get_symbol_table())
        print(is_keyword(symbol.value) ? "keyword" : "operator", symbol.key.c_str());
    // " 1.(2)oct   ": all that a new machine knows are functions.
    std::ostringstream names;
    xpp::xmachine().print_global(names);
    std::istringstream lines(names.str());
    for (std::string line; std::getline(lines, line);) {
        const size_t name = line.find(')') + 1;
        print("function", line.substr(name, line.find(' ', name) - name));
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    if (std::strcmp(argv[1], "--symbols") != 0)
        return list(argv[1]);
    list_symbols();
    return 0;
}
