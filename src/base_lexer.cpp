// The table-driven lexer.
//
// Three tables steer it: the classes of the 256 characters, the symbols (spelling
// to code) and the map from generic kinds to the language's codes.
//
// Names and operators are spans of the text until their end is known. Then one
// probe of the table of spellings gives both the shared text that becomes the
// token's value and the code; the symbol table is asked only for a spelling that
// this lexer has not met before. So no text is made per character or per token.
//
// The symbols of a language are the same for all its lexers. They are shared, with
// an atomic count because lexers live in different threads, and copied when one of
// them changes its own. The texts of tokens never share a buffer with a shared
// table: counts of texts are not atomic.
#include <stdkro/base_lexer.h>

#include <algorithm>
#include <atomic>
#include <memory>

namespace {

// Longer names are not worth keeping, nor are more than this many.
constexpr unsigned max_kept_length = 64;
constexpr unsigned max_kept_spellings = 4096;

bool is_end(char c) { return static_cast<signed char>(c) == -1; }

[[noreturn]] void throw_out_of_memory() { throw xrterror(err::out_of_memory, "out of memory"); }

share_str text_of(const char* begin, unsigned length)
{
    share_str text(begin, begin + length);
    if (text.length() != length)
        throw_out_of_memory();
    return text;
}

} // namespace

// Character classes: 1 name, 2 digit, 8 punctuation, 16 white space.
// KEEP: "~" may stand in names, bytes from 0x80 up may not; languages rely on both.
const unsigned char base_lexer::m_charset_def[256] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 16, 16, 16, 16, 0, 0, // tab to carriage return
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, //
    16, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, // blank, ! to /
    3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 8, 8, 8, 8, 8, 8, // 0 to 9, : to ?
    8, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, // @, A to O
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 8, 8, 8, 8, 1, // P to Z, [ \ ] ^ _
    8, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, // `, a to o
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 8, 8, 8, 1, 0, // p to z, { | } ~
};

// ---- symbols -------------------------------------------------------------------

struct base_lexer::symbols {
    std::atomic<unsigned> users { 1 };
    // A caller may hold a reference to `table` and change it at any time: it is
    // not shared any more.
    bool lent = false;
    symbol_table table;
    // Where a byte can stand in a symbol. A byte that has no place ends a symbol
    // without a look into the table.
    static constexpr unsigned char opens = 1;
    static constexpr unsigned char follows = 2;
    unsigned char places[256] = {};
    unsigned places_revision = 0;

    void note(const share_str& spelling)
    {
        for (unsigned i = 0; i < spelling.length(); ++i)
            places[static_cast<unsigned char>(spelling[i])] |= i == 0 ? opens : follows;
    }
    void set(const share_str& spelling, int code)
    {
        // No symbol is empty: this is a text that found no memory.
        if (spelling.isempty())
            throw_out_of_memory();
        refresh();
        // A text of its own: see above.
        table.set(text_of(spelling.c_str(), spelling.length()), code);
        note(spelling);
        places_revision = table.revision();
    }
    void refresh()
    {
        if (places_revision == table.revision())
            return;
        std::fill(places, places + 256, static_cast<unsigned char>(0));
        for (const symbol_table::entry& e : table)
            note(e.key);
        places_revision = table.revision();
    }
    symbols* clone()
    {
        owner copy = make();
        for (const symbol_table::entry& e : table)
            copy->set(e.key, e.value);
        return copy.release();
    }
    symbols* share()
    {
        if (lent)
            return clone();
        users.fetch_add(1, std::memory_order_relaxed);
        return this;
    }
    void release()
    {
        if (users.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }
    bool is_shared() const { return users.load(std::memory_order_acquire) != 1; }

    struct releaser {
        void operator()(symbols* s) const { s->release(); }
    };
    using owner = std::unique_ptr<symbols, releaser>;
    static owner make()
    {
        owner s(new (std::nothrow) symbols);
        if (!s)
            throw_out_of_memory();
        return s;
    }
    // What every lexer starts with. Never released.
    static symbols* defaults()
    {
        static symbols* const made = [] {
            owner s = make();
            s->set("/", 2);
            s->set("//", TK_LINE_COMMENT);
            s->set("/*", TK_BLOCK_COMMENT);
            return s.release();
        }();
        return made;
    }
};

base_lexer::base_lexer(int cache_capacity)
    : cache_(std::max(cache_capacity, 1)), symbols_(symbols::defaults()->share()), charset_(m_charset_def)
{
    for (int i = 0; i < token_kinds; ++i)
        token_map_[i] = i;
}

base_lexer::base_lexer(int cache_capacity, const base_lexer& like)
    : cache_(std::max(cache_capacity, 1)), symbols_(like.symbols_->share()), charset_(like.charset_)
{
    std::copy(like.token_map_, like.token_map_ + token_kinds, token_map_);
}

base_lexer::base_lexer(const base_lexer& other)
    : reader(other), cache_(other.cache_), symbols_(other.symbols_->share()), charset_(other.charset_)
{
    std::copy(other.token_map_, other.token_map_ + token_kinds, token_map_);
    rebase_tokens(other);
}

base_lexer& base_lexer::operator=(const base_lexer& other)
{
    if (this == &other)
        return *this;
    token_cache cache(other.cache_);
    symbols* const theirs = other.symbols_->share();
    symbols_->release();
    symbols_ = theirs;
    forget_spellings();
    reader::operator=(other);
    cache_.swap(cache);
    std::copy(other.token_map_, other.token_map_ + token_kinds, token_map_);
    charset_ = other.charset_;
    rebase_tokens(other);
    return *this;
}

base_lexer::~base_lexer() { symbols_->release(); }

// Makes the spans of copied tokens point into this lexer's copy of the text.
void base_lexer::rebase_tokens(const base_lexer& other)
{
    const auto moved = [&](const char* p) {
        if (!p || !get_buf() || p < other.get_buf() || p > other.get_eof())
            return static_cast<const char*>(nullptr);
        return get_buf() + (p - other.get_buf());
    };
    for (int i = 0; i < cache_.size_; ++i) {
        token& t = cache_.slots_[i];
        t.set_begin(moved(t.get_begin()));
        t.set_end(moved(t.get_end()));
    }
}

base_lexer::symbols& base_lexer::own_symbols()
{
    if (symbols_->is_shared()) {
        symbols* const mine = symbols_->clone();
        symbols_->release();
        symbols_ = mine;
        forget_spellings();
    }
    return *symbols_;
}

void base_lexer::set_token(token_t kind, int code)
{
    if (kind >= 0 && kind < token_kinds)
        token_map_[kind] = code;
}

void base_lexer::set_symbol(const share_str& spelling, int code) { own_symbols().set(spelling, code); }

base_lexer::symbol_table& base_lexer::get_symbol_table()
{
    symbols& mine = own_symbols();
    mine.lent = true;
    return mine.table;
}

const base_lexer::symbol_table& base_lexer::get_symbol_table() const { return symbols_->table; }

int base_lexer::find_type(const share_str& spelling) const
{
    const int* const code = symbols_->table.find(spelling);
    return code ? *code : 0;
}

const int* base_lexer::find_symbol(const char* spelling, unsigned length) const
{
    return symbols_->table.find(spelling, length);
}

// ---- spellings -----------------------------------------------------------------

void base_lexer::forget_spellings()
{
    spellings_.clear();
    spellings_revision_ = symbols_->table.revision();
}

base_lexer::spelling_table::entry* base_lexer::find_spelling(const char* text, unsigned length, unsigned hash)
{
    if (spellings_revision_ != symbols_->table.revision())
        forget_spellings(); // the codes they point at may be gone
    return spellings_.find_entry(text, length, hash);
}

const base_lexer::spelling_table::entry& base_lexer::add_spelling(const char* text, unsigned length, unsigned hash,
                                                                  const int* code)
{
    if (spellings_.count() >= max_kept_spellings)
        forget_spellings();
    return spellings_.add(text_of(text, length), hash, code);
}

// The spelling if it is a symbol, or null.
const base_lexer::spelling_table::entry* base_lexer::symbol_spelling(const char* text, unsigned length)
{
    const unsigned hash = hash_bytes(text, length);
    if (const spelling_table::entry* const met = find_spelling(text, length, hash))
        return met->value ? met : nullptr;
    const symbol_table::entry* const symbol = symbols_->table.find_entry(text, length, hash);
    return symbol ? &add_spelling(text, length, hash, &symbol->value) : nullptr;
}

int base_lexer::make_id(token& t, const char* spelling, unsigned length)
{
    const int* code = nullptr;
    const unsigned hash = hash_bytes(spelling, length);
    const spelling_table::entry* met = find_spelling(spelling, length, hash);
    if (!met) {
        const symbol_table::entry* const symbol = symbols_->table.find_entry(spelling, length, hash);
        code = symbol ? &symbol->value : nullptr;
        if (length <= max_kept_length)
            met = &add_spelling(spelling, length, hash, code);
        else
            t.set_var(text_of(spelling, length));
    }
    if (met) {
        t.set_var(met->key);
        code = met->value;
    }
    t.set_type(code ? *code : token_map_[TK_NAME]);
    return code ? TK_KEYWORD : TK_NAME;
}

// ---- tokens --------------------------------------------------------------------

int base_lexer::do_load()
{
    cache_.reset();
    return err::ok;
}

int base_lexer::get_token(token* out)
{
    if (cache_.first_ == cache_.last_) {
        read_token(cache_.get_last());
        cache_.enter();
    }
    const token& first = cache_.get_first();
    if (out)
        *out = first;
    cache_.fetch();
    return first.get_type();
}

void base_lexer::unget_token() { cache_.putback(); }

// KEEP: only the begin of the span is set; the end stays as the slot's last token left it.
// Languages set it where they need the literal.
int base_lexer::read_token(token& t)
{
    for (;;) {
        t.set_begin(get_cur());
        const int ch = getch();
        if (ch == -1) {
            t.set_var(base_var());
            t.set_type(token_map_[TK_EOF]);
            return TK_EOF;
        }
        const unsigned classes = class_of(static_cast<char>(ch));
        if (classes & cs_space) {
            eat_white();
        } else if (ch == '"') {
            t.set_var(read_triple_string());
            t.set_type(token_map_[TK_STRING]);
            return TK_STRING;
        } else if (ch == '\'') {
            t.set_var(read_c_character());
            t.set_type(token_map_[TK_CHAR]);
            return TK_CHAR;
        } else {
            ungetch(ch);
            if (classes & cs_digit)
                return read_number(t);
            if (classes & cs_name)
                return read_id(t);
            if (const int kind = read_sym(t))
                return kind;
        }
    }
}

// The first character from `p` on that has none of the classes, or ends the text.
const char* base_lexer::skip_class(const char* p, unsigned classes) const
{
    const char* const eof = get_eof();
    while (p < eof && (class_of(*p) & classes) && !is_end(*p))
        ++p;
    return p;
}

// Moves behind characters of a name or number. Only a special table puts line feeds there.
void base_lexer::pass(const char* to)
{
    if (class_of('\n') & (cs_name | cs_digit))
        count_lines(static_cast<unsigned>(std::count(get_cur(), to, '\n')));
    set_cur(to);
}

int base_lexer::read_id(token& t)
{
    const char* const begin = get_cur();
    const char* const end = skip_class(begin, cs_name);
    pass(end);
    return make_id(t, begin, static_cast<unsigned>(end - begin));
}

// Longest match by extension: as long as what was read and the next character are in
// the table together. So "<<=" is found only where "<<" is a symbol too.
int base_lexer::read_sym(token& t)
{
    symbols_->refresh();
    const char* const begin = get_cur();
    const char* const eof = get_eof();
    const spelling_table::entry* found = nullptr;
    unsigned char place = symbols::opens;
    for (const char* p = begin; p < eof && *p != '\0' && !is_end(*p); ++p) {
        if (!(symbols_->places[static_cast<unsigned char>(*p)] & place))
            break;
        const spelling_table::entry* const longer = symbol_spelling(begin, static_cast<unsigned>(p + 1 - begin));
        if (!longer)
            break;
        found = longer;
        getch();
        if (*found->value == TK_LINE_COMMENT) {
            eat_line_comment();
            return TK_NONE;
        }
        if (*found->value == TK_BLOCK_COMMENT) {
            eat_block_comment();
            return TK_NONE;
        }
        place = symbols::follows;
    }
    if (!found) {
        getch(); // KEEP: an unknown character is dropped without a token, as templates expect
        return TK_NONE;
    }
    t.set_var(found->key);
    t.set_type(*found->value);
    return TK_SYMBOL;
}
