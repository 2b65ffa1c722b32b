// The four string classes. All are 8-bit and terminated by NUL.
//
// share_str    reference-counted, copy-on-write: the string of the library
// dynamic_str  a heap buffer of fixed size; what does not fit is refused
// static_str   the same operations over a buffer of the caller
// string_str   std::string under the library's operation names
//
// None of them throws, not even when memory runs out: an operation that needs
// memory it cannot get yields the empty string, does nothing, or returns false.
#ifndef STDKRO_SHARE_STR_H
#define STDKRO_SHARE_STR_H

#include <stdkro/config.h>

#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string>

/// The buffer that equal `share_str` objects share: one block, three counters
/// and the characters.
struct KroStringBuf {
    /// The number of owners, or `locked`.
    unsigned refs;
    /// Characters, terminator not counted.
    unsigned length;
    /// Characters that fit, terminator not counted; 0 only in the null string.
    unsigned capacity;
    /// The characters and their terminator; the block goes on behind this field.
    char chars[1];

    /// The value of `refs` while one owner writes through a raw pointer.
    static constexpr unsigned locked = 0xFFFFFFFFu;
};

class share_str_page;

/// Reference-counted, copy-on-write text. Never null: an empty one is "".
///
/// Copying is cheap, and a change to a copy leaves the others alone. Growth is
/// exact: the capacity is what the text needs, rounded up to 3, 7, 11, ...
/// (see `capacity`).
///
/// Counts are plain integers: all strings that share a buffer belong to one
/// thread at a time.
class KRO_API share_str {
public:
    share_str() noexcept : buf_(ref_null_string()) {}
    /// A copy of `s`; null is the empty text.
    share_str(const char* s) noexcept : buf_(allocate(s)) {}
    /// One character; NUL too gives a text of length 1.
    share_str(char c) noexcept : buf_(allocate(1, &c, 1)) {}
    /// A copy of the characters from `b` up to `e`.
    share_str(const char* b, const char* e) noexcept;
    /// Shares the other's buffer, or copies its text while it is locked.
    share_str(const share_str& other) noexcept : buf_(other.addRef()) {}
    /// Takes the other's buffer and leaves it empty.
    share_str(share_str&& other) noexcept : buf_(other.buf_) { other.buf_ = ref_null_string(); }
    ~share_str() { releaseRef(buf_); }

    share_str& operator=(const share_str& other) noexcept
    {
        if (buf_ != other.buf_) {
            KroStringBuf* const theirs = other.addRef();
            releaseRef(buf_);
            buf_ = theirs;
        }
        return *this;
    }
    share_str& operator=(share_str&& other) noexcept
    {
        swap(other);
        return *this;
    }
    /// `s` may point into the present text; null is the empty text.
    share_str& operator=(const char* s) noexcept { return adopt(allocate(s)); }
    /// As `share_str(c)`.
    share_str& operator=(char c) noexcept { return adopt(allocate(1, &c, 1)); }

    /// Appends. Null appends nothing; the text may be this string's own.
    share_str& operator+=(const char* s) noexcept
    {
        if (s)
            append(s, std::strlen(s));
        return *this;
    }
    share_str& operator+=(const share_str& other) noexcept
    {
        append(other.buf_->chars, other.buf_->length);
        return *this;
    }
    /// Appends one character; NUL appends nothing.
    share_str& operator+=(char c) noexcept
    {
        KroStringBuf* const b = buf_;
        const unsigned length = b->length;
        if (c == '\0')
            return *this;
        if (b->refs != 1 || (length == b->capacity && !widen(b)))
            return append(c);
        b->chars[length] = c;
        b->chars[length + 1] = '\0';
        b->length = length + 1;
        return *this;
    }

    /// The character at `i`, which must not be behind the terminator: not checked.
    char operator[](unsigned i) const { return text()[i]; }
    char get(unsigned i) const { return text()[i]; }
    /// Writes `c` at `i` when `i` is below the length, else does nothing.
    /// Writing NUL cuts the text there.
    void set(unsigned i, char c) noexcept;

    /// Inserts before position `pos`. False when `pos` is past the length, the
    /// string is locked, or memory is short; the text is unchanged then.
    bool insert(unsigned pos, const char* s, unsigned n) noexcept;
    bool insert(unsigned pos, const char* s) noexcept;
    /// Inserts one character, NUL too.
    bool insert(unsigned pos, char c) noexcept { return insert(pos, &c, 1); }
    /// Removes `n` characters from `pos` on, all of which must exist: not checked.
    /// False when the string is locked or memory is short.
    bool remove(unsigned pos, unsigned n) noexcept;
    /// The characters from `begin` up to `end`; `end` is cut to the length.
    share_str substr(unsigned begin, unsigned end) const noexcept;

    /// Gives the characters for writing, this object their only owner until
    /// `unlock`. Null when already locked or without memory.
    char* lock() noexcept { return lock(buf_->length); }
    /// The same with room for `n` characters and a terminator; `n` must not be
    /// below the length.
    char* lock(unsigned n) noexcept;
    /// Ends the lock; the text ends at its first NUL.
    void unlock() noexcept;
    /// Ends the lock with `n` characters written.
    void unlock(unsigned n) noexcept;
    // The null string is never locked, although unlocked counting by several threads may
    // leave it any count.
    bool islock() const { return buf_->refs == KroStringBuf::locked && buf_->capacity != 0; }

    /// Makes room for `n` characters. False without memory; unchanged then. A lock
    /// stays, but the characters may have moved: ask again by `c_str`.
    bool reserved(unsigned n) noexcept;
    void clear() noexcept { adopt(ref_null_string()); }

    /// Size in bytes, terminator not counted.
    unsigned length() const { return buf_->length; }
    bool isempty() const { return buf_->length == 0; }
    /// Terminated text, owned by this object, valid until its next change.
    const char* c_str() const { return text(); }
    /// Characters that fit without a new buffer: 0 for the null string, otherwise
    /// what was asked for, rounded up to a number that leaves 3 when divided by 4.
    unsigned capacity() const { return buf_->capacity; }
    /// Equality, byte by byte. There is no order.
    bool kroCompare_(const share_str& other) const noexcept
    {
        return buf_ == other.buf_
            || (buf_->length == other.buf_->length && std::memcmp(text(), other.text(), buf_->length) == 0);
    }

    /// Formats as printf does and assigns; cut at 1,023 characters.
    void print(const char* fmt, ...) KRO_PRINTF(2, 3);
    static share_str print_str(const char* fmt, ...) KRO_PRINTF(1, 2);

    void swap(share_str& other) noexcept
    {
        KroStringBuf* const mine = buf_;
        buf_ = other.buf_;
        other.buf_ = mine;
    }

private:
    friend class share_str_page;
    struct as_it_is {};

    /// Takes a buffer with its one reference.
    share_str(KroStringBuf* buf, as_it_is) noexcept : buf_(buf) {}

    static KroStringBuf m_nullString;

    /// A new buffer with room for `n`, holding the first `len` bytes of `src`;
    /// the null string without memory.
    static KroStringBuf* allocate(unsigned n, const char* src, unsigned len) noexcept;
    static KroStringBuf* allocate(const char* s) noexcept;
    /// A new buffer without content; null for `n` = 0 or without memory.
    static KroStringBuf* allocate(unsigned n) noexcept;

    static KroStringBuf* ref_null_string() noexcept
    {
        ++m_nullString.refs;
        return &m_nullString;
    }
    KroStringBuf* addRef() const noexcept
    {
        // The last count below `locked` is never reached by counting up.
        if (buf_->refs >= KroStringBuf::locked - 1)
            return copy_of_locked();
        ++buf_->refs;
        return buf_;
    }
    static void releaseRef(KroStringBuf* buf) noexcept
    {
        if (buf->refs == KroStringBuf::locked || --buf->refs == 0)
            destroy(buf);
    }
    KroStringBuf* copy_of_locked() const noexcept;
    static void destroy(KroStringBuf* buf) noexcept;

    /// Raises the capacity to the next the rule gives, where the memory beneath (8 bytes
    /// short of a power of two) has that room already. Never for the null string, nor
    /// for a text in a page (src/share_str_page.h), which an odd address tells.
    static bool widen(KroStringBuf* b) noexcept
    {
        const unsigned power = b->capacity + 13 + 8;
        const bool in_page = (reinterpret_cast<std::uintptr_t>(b) & sizeof(void*)) != 0;
        if (in_page || (power & (power - 1)) == 0 || b->capacity - 1 >= (1u << 30) - 64)
            return false;
        b->capacity += 4;
        return true;
    }
    /// The characters of a buffer that only this object has, with room for `n`; null
    /// when locked or without memory. Every change begins with it.
    char* edit(unsigned long long n) noexcept;
    bool grow(unsigned long long n) noexcept;
    void append(const char* s, std::size_t n) noexcept;
    share_str& append(char c) noexcept;
    share_str& adopt(KroStringBuf* buf) noexcept
    {
        releaseRef(buf_);
        buf_ = buf;
        return *this;
    }
    const char* text() const { return buf_->chars; }

    KroStringBuf* buf_;
};

inline bool operator==(const share_str& a, const share_str& b) noexcept { return a.kroCompare_(b); }
inline bool operator!=(const share_str& a, const share_str& b) noexcept { return !a.kroCompare_(b); }
/// Equality with a terminated text; null equals the empty text.
KRO_API bool operator==(const share_str& a, const char* b) noexcept;
inline bool operator!=(const share_str& a, const char* b) noexcept { return !(a == b); }
inline bool operator==(const char* a, const share_str& b) noexcept { return b == a; }
inline bool operator!=(const char* a, const share_str& b) noexcept { return !(b == a); }

/// Writes the text up to its first NUL.
KRO_API std::ostream& operator<<(std::ostream& out, const share_str& s);

/// What `dynamic_str` and `static_str` have in common: a buffer of fixed size
/// that holds a terminated text. What does not fit is refused, and the text stays
/// as it was. There may be no buffer, which holds nothing and has size 0.
class KRO_API fixed_str {
public:
    fixed_str(const fixed_str&) = delete;
    fixed_str& operator=(const fixed_str&) = delete;

    /// Replaces the text. False, and unchanged, unless it fits with its terminator.
    bool copy(const char* s, unsigned n) noexcept;
    bool copy(const char* s) noexcept;
    /// Appends. False, and unchanged, unless the result fits with its terminator.
    bool splice(const char* s, unsigned n) noexcept;
    bool splice(const char* s) noexcept;
    /// Formats as printf does. The length, or -1 when the text was cut to fit or
    /// there is no buffer.
    int print(const char* fmt, ...) noexcept KRO_PRINTF(2, 3);

    /// The byte at `i`, NUL from `capacity()` on.
    char get(unsigned i) const { return i < size_ ? buf_[i] : '\0'; }
    /// Not checked.
    void set(unsigned i, char c) { buf_[i] = c; }
    char& operator[](unsigned i) { return buf_[i]; }
    const char& operator[](unsigned i) const { return buf_[i]; }

    char* get_buf() const { return buf_; }
    /// The buffer, or null when it has fewer than `n` bytes.
    char* get_buf(unsigned n) const { return n <= size_ ? buf_ : nullptr; }
    /// Takes another buffer and its size as they are; the present one is forgotten.
    void set_buf(char* buf, unsigned size)
    {
        buf_ = buf;
        size_ = size;
    }

    /// Characters before the first NUL; 0xFFFFFFFF when there are more.
    unsigned length() const noexcept
    {
        const std::size_t n = buf_ ? std::strlen(buf_) : 0;
        return n < 0xFFFFFFFF ? static_cast<unsigned>(n) : 0xFFFFFFFF;
    }
    /// Bytes in the buffer, the terminator's included.
    unsigned capacity() const { return size_; }
    /// The buffer; null when there is none.
    const char* c_str() const { return buf_; }

protected:
    fixed_str(char* buf, unsigned size) noexcept : buf_(buf), size_(size) {}
    ~fixed_str() = default;
    void swap_buffers(fixed_str& other) noexcept;

    char* buf_;
    unsigned size_;
};

/// A `fixed_str` on the heap, its size chosen at construction.
///
/// The destructor frees nothing: an owner that wants the memory back calls
/// `clear()`.
class KRO_API dynamic_str : public fixed_str {
public:
    dynamic_str() noexcept : fixed_str(nullptr, 0) {}
    /// Owns a copy, with no room to spare. Null, or no memory: no buffer.
    dynamic_str(const char* s) noexcept;
    dynamic_str(const char* b, const char* e) noexcept;
    /// Owns a copy of all `capacity()` bytes.
    dynamic_str(const dynamic_str& other) noexcept;
    // KEEP: no destructor. Owners hand the buffer on and call clear() when it is theirs to free.

    /// As `copy` and `splice`: the text is copied, not the buffer. A refusal is silent.
    dynamic_str& operator=(const dynamic_str& other) noexcept { return *this = other.c_str(); }
    dynamic_str& operator=(const char* s) noexcept;
    dynamic_str& operator=(char c) noexcept;
    dynamic_str& operator+=(const dynamic_str& other) noexcept { return *this += other.c_str(); }
    dynamic_str& operator+=(const char* s) noexcept;
    dynamic_str& operator+=(char c) noexcept;

    void swap(dynamic_str& other) noexcept { swap_buffers(other); }
    /// Frees the buffer with std::free; none is left.
    void clear() noexcept;
};

/// A `fixed_str` over a buffer that the caller owns and that outlives this
/// object. Nothing is allocated or freed.
class KRO_API static_str : public fixed_str {
public:
    static_str() noexcept : fixed_str(nullptr, 0) {}
    /// Over the text in `buf`, without room to grow.
    static_str(char* buf) noexcept;
    /// Over `size` bytes that hold a terminated text.
    static_str(char* buf, unsigned size) noexcept : fixed_str(buf, size) {}
    /// Over the same buffer.
    static_str(const static_str& other) noexcept : fixed_str(other.buf_, other.size_) {}

    /// As `copy` and `splice`: the text is copied, not the buffer. A refusal is silent.
    static_str& operator=(const static_str& other) noexcept { return *this = other.c_str(); }
    static_str& operator=(const char* s) noexcept;
    static_str& operator=(char c) noexcept;
    static_str& operator+=(const static_str& other) noexcept { return *this += other.c_str(); }
    static_str& operator+=(const char* s) noexcept;
    static_str& operator+=(char c) noexcept;

    void swap(static_str& other) noexcept { swap_buffers(other); }
    /// Empties the text; the buffer stays.
    void clear() noexcept;
};

/// std::string under the library's operation names. A position past the end is
/// reported as a BUG line on standard output, and the call still ends safely.
class KRO_API string_str {
public:
    string_str() noexcept {}
    /// Null is the empty text.
    string_str(const char* s) noexcept;
    string_str(char c) noexcept;
    string_str(const char* b, const char* e) noexcept;
    string_str(const std::string& s) noexcept;
    string_str(const string_str& other) noexcept;

    /// Without memory the result is empty.
    string_str& operator=(const string_str& other) noexcept;
    string_str& operator=(const std::string& s) noexcept;
    string_str& operator=(const char* s) noexcept;
    string_str& operator=(char c) noexcept;
    /// Without memory nothing is appended.
    string_str& operator+=(const char* s) noexcept;
    string_str& operator+=(const string_str& other) noexcept;
    string_str& operator+=(const std::string& s) noexcept;
    string_str& operator+=(char c) noexcept;

    /// Formats as printf does and assigns; cut at 1,023 characters.
    void print(const char* fmt, ...) KRO_PRINTF(2, 3);
    static string_str print_str(const char* fmt, ...) KRO_PRINTF(1, 2);

    /// Makes room where it can; always true.
    bool reserved(unsigned n) noexcept;
    /// Lower and upper case by byte, as the current locale has it.
    void strlwr() noexcept;
    void strupr() noexcept;

    /// Writes `c` at `i` when `i` is below the length.
    void set(unsigned i, char c) noexcept;
    /// The character at `i`; NUL from the length on.
    char get(unsigned i) const noexcept { return i < text_.size() ? text_[i] : '\0'; }
    char operator[](unsigned i) const noexcept { return get(i); }

    /// Inserts before position `pos`. A `pos` past the length is a BUG and false;
    /// false too without memory.
    bool insert(unsigned pos, const char* s, unsigned n) noexcept;
    bool insert(unsigned pos, const char* s) noexcept;
    bool insert(unsigned pos, char c) noexcept;
    /// Removes `n` characters from `pos` on. Characters that are not there are a
    /// BUG; those that are there are removed. Always true.
    bool remove(unsigned pos, unsigned n) noexcept;
    /// The characters from `begin` up to `end`, cut to the length. An `end`
    /// before `begin` is a BUG and empty.
    string_str substr(unsigned begin, unsigned end) const noexcept;

    void swap(string_str& other) noexcept { text_.swap(other.text_); }
    /// Equality, byte by byte.
    bool kroCompare_(const string_str& other) const noexcept { return this == &other || text_ == other.text_; }
    const std::string& str() const noexcept { return text_; }
    void clear() noexcept { text_.clear(); }
    unsigned length() const noexcept { return static_cast<unsigned>(text_.size()); }
    bool isempty() const noexcept { return text_.empty(); }
    const char* c_str() const noexcept { return text_.c_str(); }

private:
    std::string text_;
};

#endif
