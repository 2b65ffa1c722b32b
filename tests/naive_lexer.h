// A second lexer, written straight from the rules, a character at a time and with
// nothing shared with the library. Tests and the fuzz target compare the two.
#ifndef STDKRO_TESTS_NAIVE_LEXER_H
#define STDKRO_TESTS_NAIVE_LEXER_H

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

namespace naive {

struct lexical_error {
    std::string message;
};

struct token {
    int kind; // 3 symbol .. 11 end
    int code;
    std::string value; // "s text", "i number" or "d number"; empty at the end
    std::size_t begin;
};

inline std::string show(double v)
{
    char text[64];
    std::snprintf(text, sizeof text, "d %.17g", v);
    return text;
}
inline std::string show(int v) { return "i " + std::to_string(v); }
inline std::string show(const std::string& v) { return "s " + v; }

class lexer {
public:
    explicit lexer(const std::string& text) : text_(text) {}

    std::map<std::string, int> symbols = { { "/", 2 }, { "//", 13 }, { "/*", 12 } };

    std::size_t pos() const { return pos_; }
    int line() const { return line_; }

    /// The next token; where there is none but an error, `message` tells it.
    token next(std::string& message)
    {
        try {
            return next();
        } catch (const lexical_error& e) {
            message = e.message;
            return { 0, 0, "", 0 };
        }
    }

    token next()
    {
        for (;;) {
            const std::size_t begin = pos_;
            const int ch = get();
            if (ch == -1)
                return { 11, 11, "", begin };
            if (is_space(ch)) {
                while (!at_end() && is_space(text_[pos_]))
                    get();
                continue;
            }
            if (ch == '"')
                return { 7, 7, show(read_string()), begin };
            if (ch == '\'')
                return { 8, 8, show(static_cast<int>(static_cast<signed char>(read_character()))), begin };
            back(ch);
            token t = { 0, 0, "", begin };
            if (is_digit(ch))
                read_number(t);
            else if (is_name(ch))
                read_name(t);
            else
                read_symbol(t);
            if (t.kind != 0)
                return t;
        }
    }

private:
    bool at_end() const { return pos_ >= text_.size() || text_[pos_] == '\xFF'; }
    int get()
    {
        if (pos_ >= text_.size())
            return -1;
        const signed char c = static_cast<signed char>(text_[pos_++]);
        if (c == '\n')
            ++line_;
        return c;
    }
    void back(int ch)
    {
        if (ch == -1)
            return;
        --pos_;
        if (ch == '\n')
            --line_;
    }

    static bool is_space(int ch) { return ch == ' ' || (ch >= 9 && ch <= 13); }
    static bool is_digit(int ch) { return ch >= '0' && ch <= '9'; }
    static bool is_name(int ch)
    {
        return is_digit(ch) || (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || ch == '_' || ch == '~';
    }

    void read_name(token& t)
    {
        std::string name;
        while (!at_end() && is_name(text_[pos_]))
            name += static_cast<char>(get());
        t.value = show(name);
        const auto found = symbols.find(name);
        t.kind = found == symbols.end() ? 6 : 4;
        t.code = found == symbols.end() ? 6 : found->second;
    }

    void read_number(token& t)
    {
        double value = 0;
        while (!at_end() && is_digit(text_[pos_]))
            value = value * 10 + (get() - '0');
        if (at_end() || text_[pos_] != '.') {
            t.kind = t.code = 9;
            t.value = show(value < 2147483648.0 ? static_cast<int>(value) : -2147483647 - 1);
            return;
        }
        get();
        double factor = 1;
        while (!at_end() && is_digit(text_[pos_])) {
            factor /= 10;
            value += (get() - '0') * factor;
        }
        t.kind = t.code = 5;
        t.value = show(value);
    }

    void read_symbol(token& t)
    {
        std::string s;
        while (!at_end() && text_[pos_] != '\0') {
            const auto found = symbols.find(s + text_[pos_]);
            if (found == symbols.end())
                break;
            s += static_cast<char>(get());
            t.kind = 0;
            if (found->second == 13)
                return skip_line();
            if (found->second == 12)
                return skip_block();
            t.kind = 3;
            t.code = found->second;
            t.value = show(s);
        }
        if (s.empty())
            get();
    }

    void skip_line()
    {
        while (!at_end() && get() != '\n') { }
    }
    void skip_block()
    {
        int before = 0;
        for (;;) {
            const int ch = get();
            if (ch == -1)
                throw lexical_error { "" };
            if (before == '*' && ch == '/')
                return;
            before = ch;
        }
    }

    std::string read_string()
    {
        std::size_t quotes = 1;
        while (quotes < 3 && pos_ < text_.size() && text_[pos_] == '"') {
            get();
            ++quotes;
        }
        std::string value;
        if (quotes == 2)
            return value;
        std::size_t run = 0;
        for (;;) {
            const int ch = get();
            if (ch == '"') {
                if (++run == quotes)
                    return value;
                continue;
            }
            value.append(run, '"');
            run = 0;
            if (ch == -1 || (ch == '\n' && quotes == 1))
                throw lexical_error { "triple string" };
            if (ch != '\\') {
                value += static_cast<char>(ch);
                continue;
            }
            const int escaped = get();
            if (escaped == 'n')
                value += '\n';
            else if (escaped == '"' || escaped == '\\')
                value += static_cast<char>(escaped);
            else if (escaped != '\n') {
                value += '\\';
                if (escaped == -1)
                    throw lexical_error { "triple string" };
                back(escaped);
            }
        }
    }

    char read_character()
    {
        const lexical_error bad { "invalid character define" };
        const int first = get();
        if (first == -1 || first == '\n')
            throw bad;
        if (first == '\\') {
            int value = get();
            if (value == -1 || value == '\n')
                throw bad;
            if (is_digit(value)) {
                int number = value - '0';
                while (pos_ < text_.size() && is_digit(text_[pos_]))
                    number = std::min(number * 10 + (get() - '0'), 255);
                value = number;
            } else if (value == 'n' || value == 'r' || value == 't') {
                value = value == 'n' ? '\n' : value == 'r' ? '\r' : '\t';
            }
            if (get() != '\'')
                throw bad;
            return static_cast<char>(value);
        }
        for (int ch = first == '\'' ? first : 0; ch != '\'';) {
            ch = get();
            if (ch == -1 || ch == '\n')
                throw bad;
        }
        return static_cast<char>(first);
    }

    std::string text_;
    std::size_t pos_ = 0;
    int line_ = 1;
};

} // namespace naive

#endif
