// The lexer's readers of numbers, strings, characters and comments.
//
// A string is scanned once to find its end; only one that holds escapes is gone
// through again, to copy it without them.
#include <stdkro/base_lexer.h>

#include <algorithm>
#include <array>

namespace {

[[noreturn]] void lexical_error(const char* message) { throw xrterror(err::abnormal_end, "%s", message); }
[[noreturn]] void bad_character() { lexical_error("invalid character define"); }

bool is_decimal(int ch) { return ch >= '0' && ch <= '9'; }
bool is_end(char c) { return static_cast<signed char>(c) == -1; }

// The bytes at which the scan of a string looks closer.
constexpr std::array<bool, 256> make_stops()
{
    std::array<bool, 256> stops {};
    stops['"'] = stops['\\'] = stops['\n'] = stops[0xFF] = true;
    return stops;
}
constexpr std::array<bool, 256> stops = make_stops();

bool stops_at(char c) { return stops[static_cast<unsigned char>(c)]; }

// What the digits behind a point count: 1/10, divided by 10 again and again, until
// nothing is left of it.
constexpr unsigned factor_count = 326;
constexpr std::array<double, factor_count> make_factors()
{
    std::array<double, factor_count> factors {};
    double factor = 1;
    for (double& f : factors) {
        factor /= 10;
        f = factor;
    }
    return factors;
}
constexpr std::array<double, factor_count> factors = make_factors();

// Digits as a double, by value * 10 + digit. The first ones are counted in an integer,
// which is the same while a double holds them exactly.
double digits_value(const char* p, const char* end)
{
    constexpr int exact_digits = 13;
    const char* const exact_end = end - p > exact_digits ? p + exact_digits : end;
    long long exact = 0;
    for (; p < exact_end; ++p)
        exact = exact * 10 + (*p - '0');
    double value = static_cast<double>(exact);
    for (; p < end; ++p)
        value = value * 10 + (*p - '0');
    return value;
}

// KEEP: the sum of scaled digits, not the nearest double: 0.3 is 3 * 0.1.
double with_fraction(double value, const char* p, const char* end)
{
    const char* const last = static_cast<unsigned long long>(end - p) > factor_count ? p + factor_count : end;
    for (const double* factor = factors.data(); p < last; ++p, ++factor)
        value += (*p - '0') * *factor;
    return value;
}

int truncated(double v)
{
    return v > -2147483649.0 && v < 2147483648.0 ? static_cast<int>(v) : -2147483647 - 1;
}

// Copies what stands between the quotes without its escapes; returns the end.
// KEEP: strings know \n, \" and \\ only; \r, \t and decimal escapes are for characters.
char* copy_unescaped(char* to, const char* p, const char* end)
{
    while (p < end) {
        if (*p == '\\' && p + 1 < end) {
            const char c = p[1];
            if (c == 'n' || c == '"' || c == '\\' || c == '\n') {
                if (c != '\n')
                    *to++ = c == 'n' ? '\n' : c;
                p += 2;
                continue;
            }
        }
        *to++ = *p++;
    }
    return to;
}

share_str unescaped(const char* begin, const char* end)
{
    share_str text;
    char* const to = text.lock(static_cast<unsigned>(end - begin));
    if (!to)
        throw xrterror(err::out_of_memory, "out of memory");
    char* const to_end = copy_unescaped(to, begin, end);
    *to_end = '\0';
    text.unlock(static_cast<unsigned>(to_end - to));
    return text;
}

share_str plain(const char* begin, const char* end)
{
    share_str text(begin, end);
    if (text.isempty() && begin != end)
        throw xrterror(err::out_of_memory, "out of memory");
    return text;
}

} // namespace

// number := digit { digit } [ "." { digit } ]
int base_lexer::read_number(token& t)
{
    const char* const begin = get_cur();
    const char* const whole_end = skip_class(begin, cs_digit);
    const double whole = digits_value(begin, whole_end);
    if (whole_end >= get_eof() || *whole_end != '.') {
        pass(whole_end);
        t.set_var(truncated(whole));
        t.set_type(token_map_[TK_INTEGER]);
        return TK_INTEGER;
    }
    const char* const end = skip_class(whole_end + 1, cs_digit);
    pass(end);
    t.set_var(with_fraction(whole, whole_end + 1, end));
    t.set_type(token_map_[TK_REAL]);
    return TK_REAL;
}

// Goes behind the run of `quotes` quotes that closes a string. An escaped quote, and
// any other character, breaks a run.
void base_lexer::skip_string(unsigned quotes, const char* message)
{
    const char* p = get_cur();
    const char* const eof = get_eof();
    unsigned run = 0;
    unsigned lines = 0;
    bool closed = false;
    while (!closed && p < eof) {
        if (!stops_at(*p)) {
            run = 0;
            do
                ++p;
            while (p < eof && !stops_at(*p));
            continue;
        }
        const char c = *p++;
        if (c == '"') {
            closed = ++run == quotes;
            continue;
        }
        run = 0;
        if (c == '\n') {
            ++lines;
            if (quotes == 1)
                break;
        } else if (c == '\\') {
            if (p < eof && (*p == '"' || *p == '\\' || *p == '\n'))
                lines += *p++ == '\n';
        } else {
            break; // 0xFF
        }
    }
    set_cur(p);
    count_lines(lines);
    if (!closed)
        lexical_error(message);
}

share_str base_lexer::read_string(unsigned quotes, const char* message)
{
    const char* const begin = get_cur();
    skip_string(quotes, message);
    const char* const end = get_cur() - quotes;
    const bool has_escapes = std::memchr(begin, '\\', static_cast<std::size_t>(end - begin)) != nullptr;
    return has_escapes ? unescaped(begin, end) : plain(begin, end);
}

// The quotes that open a string, the first of which has been read: 1 to 3.
unsigned base_lexer::count_quotes()
{
    unsigned quotes = 1;
    while (quotes < 3 && peek() == '"') {
        getch();
        ++quotes;
    }
    return quotes;
}

share_str base_lexer::read_triple_string()
{
    const unsigned quotes = count_quotes();
    return quotes == 2 ? share_str() : read_string(quotes, "triple string");
}

void base_lexer::eat_triple_string()
{
    const unsigned quotes = count_quotes();
    if (quotes != 2)
        skip_string(quotes, "");
}

share_str base_lexer::read_c_string() { return read_string(1, "string"); }

void base_lexer::eat_c_string() { skip_string(1, "string"); }

int base_lexer::read_escape()
{
    const int ch = getch();
    if (ch == 'n')
        return '\n';
    if (ch == 'r')
        return '\r';
    if (ch == 't')
        return '\t';
    if (!is_decimal(ch))
        return ch;
    int value = ch - '0';
    while (is_decimal(peek()))
        value = std::min(value * 10 + (getch() - '0'), 255);
    return value;
}

// KEEP: the first character counts, whatever follows it up to the closing apostrophe;
// an empty literal is the apostrophe itself.
char base_lexer::read_c_character()
{
    const int first = getch();
    if (first == -1 || first == '\n')
        bad_character();
    if (first == '\\') {
        const int next = peek();
        const int value = read_escape();
        if (next == -1 || next == '\n' || getch() != '\'')
            bad_character();
        return static_cast<char>(value);
    }
    for (int ch = first == '\'' ? first : getch(); ch != '\''; ch = getch()) {
        if (ch == -1 || ch == '\n')
            bad_character();
    }
    return static_cast<char>(first);
}

void base_lexer::eat_c_character() { read_c_character(); }

void base_lexer::eat_line_comment()
{
    const char* p = get_cur();
    const char* const eof = get_eof();
    while (p < eof && *p != '\n' && !is_end(*p))
        ++p;
    const bool at_line_feed = p < eof && *p == '\n';
    set_cur(at_line_feed ? p + 1 : p); // a byte 0xFF is left: it ends more than the comment
    count_lines(at_line_feed);
}

// The star of the opener does not count: "/*/" is still open.
void base_lexer::eat_block_comment()
{
    const char* p = get_cur();
    const char* const eof = get_eof();
    unsigned lines = 0;
    bool star = false;
    bool closed = false;
    while (!closed && p < eof) {
        const char c = *p++;
        closed = star && c == '/';
        star = c == '*';
        lines += c == '\n';
        if (is_end(c))
            break;
    }
    set_cur(p);
    count_lines(lines);
    if (!closed)
        lexical_error("");
}
