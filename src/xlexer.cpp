// The lexer of scripts: text mode over the expression lexer's statement mode.
//
// Text mode knows one special character, the mark. Everything between two marks
// is found by a wide search and copied once.
//
// Lexers with the usual three characters share one table of symbols; who changes his
// own, or wants other characters, gets a table made anew.
#include <stdkro/xpp.h>

#include <cstring>
#include <new>

namespace xpp {

namespace {

// Spellings that do not depend on the three characters.
const struct {
    const char* spelling;
    int code;
} keywords[] = {
    { ";", xlexer::TK_SEMICOLON }, { "if", xlexer::TK_IF },       { "elif", xlexer::TK_ELIF },
    { "else", xlexer::TK_ELSE },   { "end", xlexer::TK_END },     { "for", xlexer::TK_FOR },
    { "var", xlexer::TK_VAR },     { "proc", xlexer::TK_PROC },   { "continue", xlexer::TK_CONTINUE },
    { "exit", xlexer::TK_EXIT },   { "break", xlexer::TK_BREAK }, { "return", xlexer::TK_RETURN },
};

share_str spelling_of(int c) { return share_str(static_cast<char>(c)); }

share_str opener_of(int mark, int open)
{
    share_str opener(static_cast<char>(mark));
    opener += static_cast<char>(open);
    return opener;
}

// Not the locale's opinion: a script reads the same everywhere.
bool continues_name(unsigned char c)
{
    return c >= 0x80 || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'
        || c == '.';
}

// KEEP: a byte 0xFF is read as the end of the text, as `getch` delivers it. It stays
// until it is delivered as a token of its own.
constexpr char end_byte = '\xff';

const char* find(const char* begin, const char* end, char c)
{
    if (begin == end)
        return end;
    const void* const at = std::memchr(begin, c, static_cast<size_t>(end - begin));
    return at ? static_cast<const char*>(at) : end;
}

unsigned lines_in(const char* begin, const char* end)
{
    unsigned lines = 0;
    for (; (begin = find(begin, end, '\n')) != end; ++begin)
        ++lines;
    return lines;
}

// Strings do without memory by staying empty; the end of a script must not.
void require_length(const share_str& text, unsigned n)
{
    if (text.length() != n)
        throw xrterror(err::out_of_memory, "%s", get_err_info(err::out_of_memory));
}

void append(share_str& text, const char* begin, const char* end)
{
    const unsigned n = text.length() + static_cast<unsigned>(end - begin);
    if (text.isempty())
        text = share_str(begin, end);
    else
        text.insert(text.length(), begin, static_cast<unsigned>(end - begin));
    require_length(text, n);
}

bool is_usual(int mark, int open, int close) { return mark == '$' && open == '[' && close == ']'; }

} // namespace

xlexer::xlexer(int mark, int open, int close)
    : elexer(symbols_of { is_usual(mark, open, close) ? usual() : language() }), is_text_mode_(false)
{
    if (is_usual(mark, open, close))
        set_brackets(mark, open, close);
    else
        create_lexical(mark, open, close);
}

xlexer::xlexer(first_of_all) : is_text_mode_(false) { create_lexical('$', '[', ']'); }

const xlexer& xlexer::usual()
{
    // Never destroyed, as the one of expressions.
    alignas(xlexer) static unsigned char place[sizeof(xlexer)];
    static const xlexer& first = *new (place) xlexer(first_of_all());
    return first;
}

void xlexer::create_lexical(int mark, int open, int close)
{
    set_brackets(mark, open, close);
    register_brackets();
    for (const auto& k : keywords)
        set_symbol(k.spelling, k.code);
}

void xlexer::set_mark(int mark, int open, int close)
{
    symbol_table& spellings = get_symbol_table();
    spellings.remove(spelling_of(open_));
    spellings.remove(spelling_of(close_));
    spellings.remove(spelling_of(mark_));
    spellings.remove(opener_of(mark_, open_));
    set_brackets(mark, open, close);
    register_brackets();
}

void xlexer::set_brackets(int mark, int open, int close)
{
    // As `getch` delivers them.
    mark_ = static_cast<signed char>(mark);
    open_ = static_cast<signed char>(open);
    close_ = static_cast<signed char>(close);
}

void xlexer::register_brackets()
{
    set_symbol(spelling_of(open_), TK_OPEN);
    set_symbol(spelling_of(close_), TK_CLOSE);
    set_symbol(spelling_of(mark_), TK_MARK);
    set_symbol(opener_of(mark_, open_), TK_STATEMENT);
}

// name := first { letter | digit | '_' | '.' | byte of 0x80 and more }
int xlexer::read_id(token& out)
{
    const char* const begin = get_cur();
    const char* const eof = get_eof();
    const char* p = begin < eof ? begin + 1 : begin;
    while (p < eof && *p != end_byte && continues_name(static_cast<unsigned char>(*p)))
        ++p;
    set_cur(p);
    return make_id(out, begin, static_cast<unsigned>(p - begin));
}

int xlexer::read_token(token& out)
{
    return is_text_mode_ ? read_x_token(out) : eparser::elexer::read_token(out);
}

int xlexer::get_x_token(token* out)
{
    // The look-ahead is filled by read_token; both modes share it.
    struct text_mode {
        bool& flag;
        explicit text_mode(bool& f) : flag(f) { flag = true; }
        ~text_mode() { flag = false; }
    };
    const text_mode mode(is_text_mode_);
    return get_token(out);
}

int xlexer::read_x_token(token& out)
{
    const char* const start = get_cur();
    const char mark = static_cast<char>(mark_);
    share_str text;
    out = token();
    out.set_begin(start);
    for (;;) {
        const char* const begin = get_cur();
        const char* const end = find(begin, find(begin, get_eof(), mark), end_byte);
        append(text, begin, end);
        count_lines(lines_in(begin, end));
        set_cur(end);
        if (end == get_eof() || *end != mark || !text.isempty())
            break;
        getch();
        if (read_mark(text, out) == TK_STATEMENT)
            return TK_STATEMENT;
    }
    if (text.isempty()) {
        getch(); // whoever reads on behind an end byte goes on behind it
        out.set_type(TK_EOF);
        return TK_EOF;
    }
    out.set_type(TK_TEXT);
    out.set_var(text);
    out.set_end(get_cur());
    return TK_TEXT;
}

// What stands behind a mark. Returns TK_NONE to go on collecting text.
int xlexer::read_mark(share_str& text, token& out)
{
    if (peek() == -1) {
        append(text, get_cur() - 1, get_cur());
        return TK_NONE;
    }
    const int c = getch();
    if (c == mark_) {
        append(text, get_cur() - 1, get_cur());
    } else if (c == '.') {
        eat_line_comment();
    } else if (c == open_) {
        out.set_type(TK_STATEMENT);
        out.set_begin(get_cur() - 2);
        out.set_end(get_cur());
        return TK_STATEMENT;
    } else if (is_space(static_cast<char>(c))) {
        eat_white();
    } else {
        append(text, get_cur() - 2, get_cur());
    }
    return TK_NONE;
}

} // namespace xpp
