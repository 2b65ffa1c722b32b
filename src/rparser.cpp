// The parser of the pattern notation: recursive descent over symbols.
//
// A symbol is a byte, or 258 + b for an escaped byte b, so that the grammar tells
// an operator from the same byte written literally by comparing numbers. One
// symbol may be pushed back; 257 says that none is.
#include <stdkro/rnfa.h>

#include <stdkro/xcpt.h>

namespace {

constexpr int end_symbol = -1;
constexpr int no_symbol = 257;
constexpr int escaped = 258; // plus the byte
constexpr unsigned set_size = 258;

/// Parentheses that may be open at once. Each takes four stack frames, together
/// below a kilobyte, so the deepest pattern needs a quarter of a megabyte.
constexpr unsigned nesting_limit = 256;

/// The set of ".": here and not in the frames of the recursion.
constexpr struct byte_set {
    unsigned char entries[set_size] = {};

    constexpr byte_set()
    {
        for (unsigned i = 0; i < set_size; ++i)
            entries[i] = i != '\n';
    }
} all_but_line_feed;

bool is_repetition(int symbol) { return symbol == '*' || symbol == '+' || symbol == '?'; }
bool is_digit(int byte) { return byte >= '0' && byte <= '9'; }
bool is_space(int byte) { return byte == ' ' || (byte >= 9 && byte <= 13); }

/// A byte of the reader as a symbol. The reader extends signs; its byte 255 is
/// the end value and stays so.
int as_symbol(int ch) { return ch == end_symbol ? end_symbol : ch & 0xFF; }

} // namespace

rparser::rbase::~rbase() = default;

rparser::rparser() : pushback_(no_symbol), rd_(nullptr), depth_(0) {}
rparser::rparser(const rparser& other) = default;
rparser& rparser::operator=(const rparser& other) = default;
rparser::~rparser() = default;

int rparser::expr(rbase** out, reader& in)
{
    if (!out)
        return err::invalid_parameter;
    return parse(out, in);
}

int rparser::expr(rbase** out, const char* text)
{
    if (!out || !text)
        return err::invalid_parameter;
    reader in;
    const int r = in.load_string(text, nullptr, false);
    if (r < 0)
        return r;
    return parse(out, in);
}

int rparser::parse(rbase** out, reader& in)
{
    rd_ = &in;
    pushback_ = no_symbol;
    depth_ = 0;
    *out = onEndRule(regExpr());
    return err::ok;
}

// regExpr := catExpr { '|' catExpr } ( ')' | stop )
rparser::rbase* rparser::regExpr()
{
    rbase* e = catExpr();
    while (e) {
        const int s = get_next();
        if (s == ')')
            return e;
        if (isstop(s)) {
            fallback(s);
            return e;
        }
        rbase* right = catExpr();
        e = onOR(e, right);
    }
    return nullptr;
}

// catExpr := repExpr { repExpr }
rparser::rbase* rparser::catExpr()
{
    rbase* e = repExpr();
    while (e) {
        const int s = get_next();
        fallback(s);
        if (isstop(s) || s == '|' || s == ')')
            return e;
        rbase* right = repExpr();
        e = onCat(e, right);
    }
    return nullptr;
}

// repExpr := repBase { '*' | '+' | '?' }
rparser::rbase* rparser::repExpr()
{
    rbase* e = repBase();
    if (!e)
        return nullptr;
    int s = get_next();
    for (; is_repetition(s); s = get_next())
        e = onRep(e, s);
    fallback(s);
    return e;
}

// repBase := '[' set | '~[' set | '(' regExpr | '"' string | '{' name | '.' | byte
//
// KEEP: every symbol that opens nothing is a literal byte here, operators and the
// end of the input (byte 255) included: patterns such as "*a" and "a|" rely on it.
rparser::rbase* rparser::repBase()
{
    const int s = get_next();
    switch (s) {
    case '~':
        if (get_next() != '[')
            throw xrterror(err::unexpected, "must be '['.");
        return setExpr(true);
    case '[':
        return setExpr(false);
    case '(':
        return group();
    case '"':
        return quoteExpr();
    case '{':
        return idExpr();
    case '.':
        return onSet(all_but_line_feed.entries);
    default:
        return onAtom(to_char(s));
    }
}

rparser::rbase* rparser::group()
{
    if (depth_ == nesting_limit)
        throw xrterror(err::overrun, "%s", get_err_info(err::overrun));
    ++depth_;
    rbase* e = regExpr();
    --depth_;
    return e;
}

// name := { byte } '}'
rparser::rbase* rparser::idExpr()
{
    const char* name = rd_->get_cur();
    for (unsigned length = 0;; ++length) {
        const int ch = as_symbol(rd_->getch());
        if (ch == '}')
            return onID(name, length);
        if (isstop(ch)) {
            fallback(ch);
            throw xrterror(err::abnormal_end, "identifer's declaration invalid."); // KEEP: the spelling
        }
    }
}

// string := { symbol } '"'
rparser::rbase* rparser::quoteExpr()
{
    rbase* e = nullptr;
    for (;;) {
        const int s = get_next();
        if (s == '"')
            return e;
        // KEEP: the wording of both texts; programs show and compare them.
        if (s == end_symbol)
            throw xrterror(err::abnormal_end, "regular expression is unabnormal end in the range of a string.");
        if (s == '\n')
            throw xrterror(err::abnormal_end, "unexcepted <CR>.");
        e = onConnect(e, to_char(s));
    }
}

// set := { symbol [ '-' symbol ] } ']'
//
// KEEP: no "^" here: "[^a]" holds "^" and "a". A "-" before the end is dropped, and
// a range that runs backwards holds its first byte only.
rparser::rbase* rparser::setExpr(bool negate)
{
    unsigned char set[set_size] = {};
    int s = get_next();
    while (s != ']' && s != end_symbol) {
        const unsigned low = to_char(s);
        set[low] = 1;
        s = get_next();
        if (s != '-') {
            fallback(s);
            s = get_next();
            continue;
        }
        s = get_next();
        if (s == ']' || s == end_symbol)
            break;
        for (unsigned i = to_char(s); i > low; --i)
            set[i] = 1;
        s = get_next();
    }
    if (s == end_symbol)
        return nullptr;
    for (unsigned i = 0; negate && i < set_size; ++i)
        set[i] = !set[i];
    return onSet(set);
}

int rparser::get_next()
{
    if (pushback_ != no_symbol) {
        const int s = pushback_;
        pushback_ = no_symbol;
        return s;
    }
    const int ch = as_symbol(rd_->getch());
    return ch == '\\' ? get_escape() : ch;
}

// KEEP: a backslash at the very end gives -1 + 258, which is `no_symbol`: pushed
// back it vanishes, and as an element it is byte 1.
int rparser::get_escape()
{
    int ch = rd_->getch();
    if (is_digit(ch)) {
        int value = 0;
        for (; is_digit(ch); ch = rd_->getch())
            value = value * 10 + (ch - '0') > 255 ? 255 : value * 10 + (ch - '0');
        rd_->ungetch(ch);
        return escaped + value;
    }
    switch (ch) {
    case 'n':
        return escaped + '\n';
    case 'r':
        return escaped + '\r';
    case 't':
        return escaped + '\t';
    default:
        return escaped + as_symbol(ch);
    }
}

unsigned char rparser::to_char(int symbol)
{
    return static_cast<unsigned char>(symbol < escaped ? symbol : symbol - escaped);
}

// KEEP: the low eight bits of an escaped symbol are tested too, so escaped bytes
// that are two below a blank (7..11 and 30) end a pattern behind an element.
bool rparser::isstop(int symbol) { return symbol == end_symbol || symbol == 0 || is_space(symbol & 0xFF); }
