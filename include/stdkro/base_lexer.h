// Character sources, tokens and the table-driven lexer of every textual language.
//
// reader       a text in memory with a position and a line number
// token        one lexical item: code, value, and where it came from
// token_cache  the ring of look-ahead tokens
// base_lexer   a reader that cuts its text into tokens
//
// A language derives from base_lexer, registers its keywords and operators with
// `set_symbol`, gives the generic kinds its own codes with `set_token`, and
// overrides only the readers it needs.
#ifndef STDKRO_BASE_LEXER_H
#define STDKRO_BASE_LEXER_H

#include <stdkro/base_var.h>
#include <stdkro/config.h>
#include <stdkro/hmap.h>
#include <stdkro/share_str.h>

#include <iosfwd>

/// A text in memory, a position in it, and the number of the line there.
///
/// Characters are delivered as signed bytes widened to int, and -1 is the end: a
/// byte 0xFF in the text is delivered as -1 too. Whoever reads on after it goes on
/// behind it.
///
/// Loads return 0 or a negative status code. A failed load leaves the reader as it
/// was. Texts are at most 4 GB.
class KRO_API reader {
public:
    /// No text, line 1.
    reader() = default;
    /// A private copy of the other's text, at the same position and line. Without
    /// memory the copy is empty.
    reader(const reader& other);
    reader& operator=(const reader& other);
    virtual ~reader();

    /// Loads the text from `begin` up to `end`; up to the terminator when `end` is
    /// null. Without `copy` the reader points at the caller's memory, which must
    /// outlive its use.
    int load_string(const char* begin, const char* end = nullptr, bool copy = true);
    /// Loads a file, opened by fopen with `mode`.
    int load_file(const char* path, const char* mode = "rb");
    /// Loads what is left of a stream; `err::failed` when the stream has failed before.
    int load_stream(std::istream& in);
    /// Loads from another reader. With `copy`: a copy of the part not yet read.
    /// Without: the other's whole text, at its position and line, not owned.
    /// Loading from itself does nothing.
    int load_reader(const reader& other, bool copy);
    /// Points at the other's text, position and line, without owning it. What points into
    /// the text that this one owns stays owned: it moves to the front.
    void mapping(const reader& other);
    /// Forgets the text, and frees it if it is owned.
    void clear();

    /// The next character, or -1 at the end. A line feed counts a line.
    int getch()
    {
        if (cur_ >= eof_)
            return -1;
        const char c = *cur_++;
        if (c == '\n')
            count_lines(1);
        return static_cast<signed char>(c);
    }
    /// The next character without taking it, or -1 at the end.
    int peek() const { return cur_ < eof_ ? static_cast<signed char>(*cur_) : -1; }
    /// Steps back over `ch`, the character read last; nothing for -1 or at the begin
    /// of the text. A line feed takes its line back. Nothing is written.
    void ungetch(int ch)
    {
        if (ch == -1 || cur_ <= buf_)
            return;
        --cur_;
        if (ch == '\n')
            count_lines(static_cast<unsigned>(-1));
    }
    /// Skips what the runtime's isspace accepts.
    void eat_white();
    /// Moves to the next `ch` and stands before it; false, at the end, when there is none.
    bool eat_until(int ch);

    /// Moves to offset `pos`, or by `delta` characters; `move` returns the place before.
    /// Neither checks bounds or counts lines; without a text nothing happens.
    void seek(unsigned pos)
    {
        if (cur_)
            cur_ = buf_ + pos;
    }
    const char* move(int delta)
    {
        const char* const old = cur_;
        if (cur_)
            cur_ += delta;
        return old;
    }

    int get_line() const { return line_; }
    void set_line(int line) { line_ = line; }
    /// Offset of the position, size of the text, characters not yet read.
    unsigned get_pos() const { return static_cast<unsigned>(cur_ - buf_); }
    unsigned get_size() const { return static_cast<unsigned>(eof_ - buf_); }
    unsigned get_spare() const { return static_cast<unsigned>(eof_ - cur_); }
    /// The begin of the text, the position, and the end (not terminated).
    const char* get_buf() const { return buf_; }
    const char* get_cur() const { return cur_; }
    const char* get_eof() const { return eof_; }
    /// `cur` must lie in the text; lines are not counted.
    void set_cur(const char* cur) { cur_ = cur; }
    /// The text between two offsets, `to` cut to the size.
    share_str sread(unsigned from, unsigned to) const;

protected:
    /// Called at the end of every successful load; its result becomes the load's.
    virtual int do_load();

    /// Replaces the text by a private copy of the other's. False without memory: then
    /// this reader is empty.
    bool copy_reader(const reader& other);
    /// Frees an owned text and points at none.
    void free_buf();
    /// Adds to the line number; it wraps.
    void count_lines(unsigned n) { line_ = static_cast<int>(static_cast<unsigned>(line_) + n); }

private:
    int adopt(char* text, std::size_t length);

    int line_ = 1;
    bool own_ = false;
    const char* buf_ = nullptr;
    const char* eof_ = nullptr;
    const char* cur_ = nullptr;
};

/// One lexical item. Its span points into the text of the lexer.
class KRO_API token {
public:
    /// Code 0, no value, no span.
    token() = default;
    token(int type, const base_var& value, const char* begin, const char* end)
        : type_(type), value_(value), begin_(begin), end_(end)
    {
    }

    /// The language's code.
    int get_type() const { return type_; }
    void set_type(int type) { type_ = type; }
    const base_var& get_var() const { return value_; }
    /// Any value that a `base_var` can be assigned.
    template <class T>
    void set_var(const T& value) { value_ = value; }

    /// The value, converted. `get_string` throws for no value and for errors, as
    /// `base_var::to_string` does; `get_text` gives the text of a string value as it is.
    share_str get_string() const { return value_.to_string(); }
    const share_str& get_text() const { return value_.get_string(); }
    int get_int() const { return value_.to_int(); }
    char get_char() const { return static_cast<char>(value_.to_int()); }
    double get_double() const { return value_.to_double(); }

    /// The source text. Lexers set its begin only.
    const char* get_begin() const { return begin_; }
    const char* get_end() const { return end_; }
    void set_begin(const char* begin) { begin_ = begin; }
    void set_end(const char* end) { end_ = end; }
    /// A copy of the source text; empty unless both ends are set and in order.
    share_str get_literal() const;

private:
    int type_ = 0;
    base_var value_;
    const char* begin_ = nullptr;
    const char* end_ = nullptr;
};

/// The ring of look-ahead tokens. A fetched token stays in its slot until another
/// one is entered there, so it can be put back.
class KRO_API token_cache {
public:
    /// Room for `capacity` tokens; a negative one counts as 0.
    explicit token_cache(int capacity);
    token_cache(const token_cache& other);
    token_cache& operator=(const token_cache& other);
    ~token_cache();

    int count() const { return last_ - first_ + (last_ < first_ ? size_ : 0); }
    int capacity() const { return size_ - 1; }
    /// The `i`-th cached token, the oldest being 0.
    token& get_token(int i) { return slots_[(first_ + i) % size_]; }
    /// The oldest token, and the slot that the next one will fill.
    token& get_first() { return slots_[first_]; }
    token& get_last() { return slots_[last_]; }

    /// Appends a token, or counts in the slot `get_last()` as filled; false when full.
    bool enter(const token& t);
    bool enter()
    {
        const int next = after(last_);
        if (next == first_)
            return false;
        last_ = next;
        return true;
    }
    /// Takes the oldest token; false when there is none.
    bool fetch(token& t);
    bool fetch()
    {
        if (first_ == last_)
            return false;
        first_ = after(first_);
        return true;
    }
    /// Makes the token fetched last the oldest again, or puts `t` there; false when full.
    bool putback()
    {
        const int before = first_ == 0 ? size_ - 1 : first_ - 1;
        if (before == last_)
            return false;
        first_ = before;
        return true;
    }
    bool putback(const token& t);

    /// Empties the ring and all its slots.
    void reset();
    /// Changes the capacity and empties the ring; nothing when `capacity` is not positive.
    void set_cached(int capacity);

private:
    friend class base_lexer;
    int after(int i) const { return i + 1 == size_ ? 0 : i + 1; }
    void swap(token_cache& other);

    token* slots_;
    int size_;
    int first_ = 0;
    int last_ = 0;
};

/// A reader that cuts its text into tokens by tables, with look-ahead.
///
/// A lexical error is thrown as an `xrterror` with `err::abnormal_end`; exhausted
/// memory as one with `err::out_of_memory`.
class KRO_API base_lexer : public reader {
public:
    /// The generic kinds of tokens, and two codes for symbols that open comments.
    enum token_t {
        TK_NONE = 0, ///< nothing was produced
        TK_SYMBOL = 3, ///< an operator of the symbol table
        TK_KEYWORD = 4, ///< a name of the symbol table
        TK_REAL = 5, ///< a number with a fraction part
        TK_NAME = 6, ///< any other name
        TK_STRING = 7,
        TK_CHAR = 8,
        TK_INTEGER = 9, ///< a number without a fraction part
        TK_EOF = 11,
        TK_BLOCK_COMMENT = 12, ///< the code of a symbol that opens a block comment
        TK_LINE_COMMENT = 13 ///< the code of a symbol that opens a line comment
    };
    /// Entries of the token map.
    static constexpr int token_kinds = 15;

    using symbol_table = hmap<share_str, int, hash_fun<share_str>>;

    /// The bits of a character class.
    static constexpr unsigned char cs_name = 1; ///< may stand in a name
    static constexpr unsigned char cs_digit = 2;
    static constexpr unsigned char cs_punctuation = 8;
    static constexpr unsigned char cs_space = 16;
    /// The default classes: letters, digits, "_" and "~" may stand in names; bytes
    /// from 0x80 up have no class.
    static const unsigned char m_charset_def[256];

    /// Look-ahead of `cache_capacity` tokens (at least 1). The symbol table knows "/"
    /// and the comments "//" and "/*"; every kind is its own code.
    explicit base_lexer(int cache_capacity);
    /// A copy goes on independently where the other stands.
    base_lexer(const base_lexer& other);
    base_lexer& operator=(const base_lexer& other);
    ~base_lexer() override;

    /// Sets the language's code for a kind.
    void set_token(token_t kind, int code);
    /// Sets the code of a keyword or operator. An operator is found only when each
    /// of its beginnings is in the table too. An empty one counts as a text that found
    /// no memory.
    void set_symbol(const share_str& spelling, int code);
    symbol_table& get_symbol_table();
    const symbol_table& get_symbol_table() const;
    /// Sets the classes of the 256 characters; the table is not copied. Null sets the default.
    void set_charset(const unsigned char* table) { charset_ = table ? table : m_charset_def; }
    const unsigned char* get_charset() const { return charset_; }
    /// Changes how many tokens can be put back; forgets the look-ahead.
    void set_cached(int capacity) { cache_.set_cached(capacity); }

    /// Reads the next token into `out` (which may be null) and returns its code.
    virtual int get_token(token* out);
    /// Puts the token back that was read last: `get_token` will give it again.
    virtual void unget_token();

protected:
    /// A lexer with the symbols, codes and classes of `like`, and an empty text. The
    /// symbol table is shared until one of the two changes its own: this costs no more
    /// with many symbols than with few.
    base_lexer(int cache_capacity, const base_lexer& like);

    /// Forgets the look-ahead.
    int do_load() override;
    /// Reads one token from the text into `t` and returns its kind. Sets the begin of
    /// its span, not the end.
    virtual int read_token(token& t);
    /// Reads the longest symbol at the position. A comment is skipped, an unknown
    /// character dropped: both give TK_NONE.
    virtual int read_sym(token& t);
    virtual int read_id(token& t);
    virtual int read_number(token& t);

    /// The code of a spelling; 0 when it is not in the symbol table.
    int find_type(const share_str& spelling) const;
    /// The code of a spelling by span; null when it is not in the symbol table.
    const int* find_symbol(const char* spelling, unsigned length) const;
    /// The code of a kind.
    int map_token(token_t kind) const { return token_map_[kind]; }
    /// Makes `t` the name, or the keyword, that the span spells, and returns its kind.
    /// The text is shared by all tokens of this lexer that spell the same.
    int make_id(token& t, const char* spelling, unsigned length);

    bool is_digit(char c) const { return (class_of(c) & cs_digit) != 0; }
    bool is_name(char c) const { return (class_of(c) & cs_name) != 0; }
    bool is_space(char c) const { return (class_of(c) & cs_space) != 0; }

    // The read_ and eat_ functions stand behind the opening mark and leave the
    // position behind the closing one; eat_ skips what read_ would return.

    share_str read_c_string();
    void eat_c_string();
    char read_c_character();
    void eat_c_character();
    /// A string of one or of three quotes, the first of which has been read.
    share_str read_triple_string();
    void eat_triple_string();
    /// To behind the next line feed.
    void eat_line_comment();
    void eat_block_comment();
    /// What stands behind a backslash in a character: a decimal number up to 255, "n",
    /// "r", "t", or any character for itself.
    int read_escape();

private:
    // The symbols of one language, counted by the lexers that share them.
    struct symbols;
    // The spellings met so far, each with its code in the symbol table or null.
    using spelling_table = hmap<share_str, const int*>;

    unsigned class_of(char c) const { return charset_[static_cast<unsigned char>(c)]; }
    const char* skip_class(const char* p, unsigned classes) const;
    void pass(const char* to);
    void rebase_tokens(const base_lexer& other);
    symbols& own_symbols();
    void forget_spellings();
    spelling_table::entry* find_spelling(const char* text, unsigned length, unsigned hash);
    const spelling_table::entry& add_spelling(const char* text, unsigned length, unsigned hash, const int* code);
    const spelling_table::entry* symbol_spelling(const char* text, unsigned length);
    unsigned count_quotes();
    void skip_string(unsigned quotes, const char* message);
    share_str read_string(unsigned quotes, const char* message);

    // The cache first: should making it fail, nothing is shared yet.
    token_cache cache_;
    symbols* symbols_;
    int token_map_[token_kinds];
    const unsigned char* charset_;
    spelling_table spellings_;
    unsigned spellings_revision_ = 0;
};

#endif
