// The printers of the script machine.
#include "xmachine_state.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ostream>

namespace xpp {

namespace {

// KEEP: XRET has no entry and LT meets the null behind the last, so that every
// opcode from XRET on is listed under its successor's name. Programs that read
// listings know these names.                                    ORDER code_type
const char* const mnemonics[] = {
    "NOP",  "PUSH", "STORE", "GETVAR", "VAR", "GETARG", "CALL", "PUSHARG", "POPARG", "RET",    "RETVAL",
    "HALT", "TRAP", "AJMP",  "AJZ",    "AJNZ", "RJMP",  "RJZ",  "RJNZ",    "REF",    "OUTPUT", "NOT",
    "NEG",  "PLUS", "MINUS", "MUL",    "DIV", "MOD",    "EVAL", "EVPLUS",  "EVMINUS", "EVMUL", "EVDIV",
    "EVMOD", "AND", "OR",    "EQ",     "NEQ", "GE",     "LE",   "GT",      "LT",     nullptr,
};
constexpr unsigned mnemonic_count = sizeof mnemonics / sizeof mnemonics[0];

const char* mnemonic(code_type type)
{
    const unsigned number = static_cast<unsigned>(type);
    const char* const name = number < mnemonic_count ? mnemonics[number] : nullptr;
    return name ? name : "(null)";
}

constexpr unsigned longest_text = 50;

void print_text(std::ostream& os, const share_str& text)
{
    os << '"';
    const unsigned shown = std::min(text.length(), longest_text);
    for (unsigned i = 0; i < shown; ++i) {
        switch (text[i]) {
        case '\r': os << "\\r"; break;
        case '\n': os << "\\n"; break;
        case '"': os << "\\\""; break;
        default: os << text[i];
        }
    }
    os << (shown < text.length() ? "...\"" : "\"");
}

// A value without a text form prints as nothing.
void print_value(std::ostream& os, const base_var& v)
{
    if (v.is_rvalue())
        os << v.to_string();
}

void print_name(std::ostream& os, const share_str& name, unsigned width)
{
    os << name;
    for (unsigned n = name.length(); n < width; ++n)
        os << ' ';
    os << ' ';
}

template <class... ARGUMENTS>
void print_format(std::ostream& os, const char* format, ARGUMENTS... arguments)
{
    char text[64];
    std::snprintf(text, sizeof text, format, arguments...);
    os << text;
}

// The whole line around a position.
void print_line_at(std::ostream& os, const reader& source, int pos)
{
    const char* const begin = source.get_buf();
    const char* const end = source.get_eof();
    const char* first = begin + std::min(static_cast<unsigned>(pos), source.get_size());
    const char* last = first;
    while (first != begin && first[-1] != '\n')
        --first;
    while (last != end && *last != '\n')
        ++last;
    os.write(first, last - first);
    os << '\n';
}

} // namespace

void xmachine::dump(std::ostream& os) const
{
    os << "source file: " << state_->src_fname << '\n';
    print_list(os, nullptr);
}

void xmachine::print_list(std::ostream& os, const reader* source) const
{
    auto line = state_->lines.begin();
    for (int addr = 0; addr < last_addr(); ++addr) {
        for (; line != state_->lines.end() && line->addr <= addr; ++line) {
            if (source)
                print_line_at(os, *source, line->pos);
        }
        print_dyncode(os, addr);
        os << '\n';
    }
}

void xmachine::print_dyncode(std::ostream& os, int addr) const
{
    const xcode& c = get_code(addr);
    print_format(os, "%4d. %-8s", addr, mnemonic(c.get_type()));
    const base_var& operand = c.get_operand();
    if (c.get_type() == STORE && operand.is_string()) {
        print_text(os, operand.get_string());
    } else if (operand.is_rvalue()) {
        os << ' ';
        print_value(os, operand);
    }
}

void xmachine::print_context(std::ostream& os) const
{
    if (!is_running()) {
        os << "IP = 0";
        return;
    }
    int current = state_->current_addr();
    for (unsigned i = state_->depth; i-- > 0;) {
        const xcontext& c = *state_->contexts[i];
        os << c.get_method().get_name() << '\n';
        const int end = std::min(current + 5, last_addr());
        for (int addr = std::max(current - 5, 0); addr < end; ++addr) {
            os << (addr == current ? "*  " : "   ");
            print_dyncode(os, addr);
            os << '\n';
        }
        current = state_->caller_addr(i);
    }
}

void xmachine::print_all(std::ostream& os) const
{
    for (unsigned i = state_->depth; i-- > 0;) {
        xcontext* const c = state_->contexts[i];
        os << '#' << i << "   " << c->get_method().get_name() << ":\n";
        print_local(os, c);
    }
    os << ".global:\n";
    print_global(os);
}

void xmachine::print_global(std::ostream& os) const
{
    int number = 0;
    for (const auto& e : state_->field.table_->names) {
        print_format(os, "%3d.(%d)", ++number, static_cast<int>(e.value.what));
        print_name(os, e.key, 32);
        if (e.value.value)
            print_value(os, *e.value.value);
        os << '\n';
    }
}

void xmachine::print_local(std::ostream& os, xcontext* of) const
{
    if (!of)
        return;
    int number = 0;
    const auto print_one = [&](const share_str& name, const base_var& v) {
        print_format(os, "%3d.", ++number);
        print_name(os, name, 35);
        print_value(os, v);
        os << '\n';
    };
    for (unsigned i = 0; i < of->slot_count_; ++i) {
        if (of->slots_[i].is_defined)
            print_one(of->method_->locals_[i].name, of->slots_[i].value);
    }
    for (const xcontext::extra* e = of->extras_; e; e = e->next)
        print_one(e->name, e->value);
}

void xmachine::print_trace(std::ostream& os) const
{
    for (unsigned i = state_->depth; i-- > 0;)
        os << '#' << i << "   " << state_->contexts[i]->get_method().get_name() << '\n';
}

void xmachine::print_stack(std::ostream& os) const { print_local(os, get_active()); }

} // namespace xpp
