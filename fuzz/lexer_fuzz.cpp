// The lexer and a naive one read the same text: tokens, values, places, lines and
// errors must agree. The first byte says how the library is used.
#include <stdkro/base_lexer.h>

#include "../tests/lexed_value.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Bits of the first byte.
constexpr unsigned no_symbols = 1; // only the default ones
constexpr unsigned put_back = 2; // every third token is put back and read again
constexpr unsigned no_copy = 4; // the text is not copied
constexpr unsigned copy_lexer = 8; // a copy of the lexer takes over after some tokens
constexpr unsigned from_other = 16; // the symbols are another lexer's

const struct {
    const char* spelling;
    int code;
} symbols[] = { { "+", 20 }, { "=", 21 }, { "==", 22 }, { "===", 23 }, { "<", 24 }, { "<<=", 25 }, { ".", 26 }, { "(", 27 }, { "if", 30 },
                { "#", 13 }, { "(*", 12 }, { "*", 28 }, { "rem", 13 }, { "\n", 40 } };

struct lexer : base_lexer {
    lexer() : base_lexer(1) {}
    explicit lexer(const base_lexer& like) : base_lexer(1, like) {}
};

const lexer& language()
{
    static const lexer made = [] {
        lexer l;
        for (const auto& s : symbols)
            l.set_symbol(s.spelling, s.code);
        return l;
    }();
    return made;
}

void require(bool agreed, const char* what, std::size_t place)
{
    if (agreed)
        return;
    std::fprintf(stderr, "the lexers disagree on the %s of the token before offset %zu\n", what, place);
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const unsigned how = data[0];
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

    lexer first = how & from_other ? lexer(language()) : lexer();
    if (!(how & (no_symbols | from_other))) {
        for (const auto& s : symbols)
            first.set_symbol(s.spelling, s.code);
    }
    naive::lexer expected(text);
    if (!(how & no_symbols) || how & from_other) {
        for (const auto& s : symbols)
            expected.symbols[s.spelling] = s.code;
    }
    if (first.load_string(text.data(), text.data() + text.size(), !(how & no_copy)) != 0)
        std::abort();

    lexer* l = &first;
    lexer copy;
    unsigned count = 0;
    for (int ends = 0; ends < 2; ++count) {
        std::string message = "none";
        std::string expected_message = "none";
        token t;
        const naive::token n = expected.next(expected_message);
        try {
            const int code = l->get_token(&t);
            if (how & put_back && count % 3 == 0) {
                token again;
                l->unget_token();
                require(l->get_token(&again) == code && show(again.get_var()) == show(t.get_var()), "repetition",
                        expected.pos());
            }
        } catch (const xrterror& e) {
            require(e.get_err() == err::abnormal_end, "status", expected.pos());
            message = e.what();
        }
        require(message == expected_message, "error", expected.pos());
        require(l->get_pos() == expected.pos(), "end", expected.pos());
        require(l->get_line() == expected.line(), "line", expected.pos());
        if (message == "none") {
            require(t.get_type() == n.code, "code", expected.pos());
            require(show(t.get_var()) == n.value, "value", expected.pos());
            require(t.get_begin() == l->get_buf() + n.begin, "begin", expected.pos());
        }
        ends += n.kind == 11 && l->get_spare() == 0;
        if (how & copy_lexer && count == 5) {
            copy = *l;
            l = &copy;
        }
    }
    return 0;
}
