// What a script became, as one line: "GETVAR i; STORE 3; LT; AJZ 7; ...".
#ifndef STDKRO_TESTS_SCRIPT_LISTING_H
#define STDKRO_TESTS_SCRIPT_LISTING_H

#include <stdkro/xpp.h>

#include <string>

inline const char* opcode_name(xpp::code_type type)
{
    // The true names; listings of the library shift them.
    static const char* const names[]
        = { "NOP",   "PUSH", "STORE", "GETVAR", "VAR",  "GETARG", "CALL",    "PUSHARG", "POPARG", "RET",   "RETVAL",
            "HALT",  "TRAP", "XRET",  "AJMP",   "AJZ",  "AJNZ",   "RJMP",    "RJZ",     "RJNZ",   "REF",   "OUTPUT",
            "NOT",   "NEG",  "PLUS",  "MINUS",  "MUL",  "DIV",    "MOD",     "EVAL",    "EVPLUS", "EVMINUS", "EVMUL",
            "EVDIV", "EVMOD", "AND",  "OR",     "EQ",   "NEQ",    "GE",      "LE",      "GT",     "LT" };
    const unsigned number = static_cast<unsigned>(type);
    return number < sizeof names / sizeof names[0] ? names[number] : "?";
}

inline std::string listing(const xpp::xmachine& machine)
{
    std::string all;
    for (int addr = 0; addr < machine.last_addr(); ++addr) {
        const xpp::xcode& c = machine.get_code(addr);
        all += std::string(addr ? "; " : "") + opcode_name(c.get_type());
        if (c.get_operand().is_rvalue())
            all += std::string(" ") + c.get_operand().to_string().c_str();
    }
    return all;
}

/// Compiles a text; the status of the compiler.
inline int compile_text(xpp::xmachine& machine, xpp::xcompiler& compiler, const std::string& text)
{
    xpp::xlexer lexer('$', '[', ']');
    lexer.load_string(text.data(), text.data() + text.size());
    return compiler.compile(machine, &lexer);
}

inline int compile_text(xpp::xmachine& machine, const std::string& text)
{
    xpp::xcompiler compiler;
    return compile_text(machine, compiler, text);
}

#endif
