// Functions on terminated texts: double-byte characters, paths, hexadecimal and
// base64, quoting, numbers, command lines.
//
// Writers take a destination and its size `n` in bytes. Where a function says
// so, a null destination asks only how long the result would be. Texts are bytes:
// neither case (apart from zstrlwr, zstrupr and nstricmp) nor numbers depend on
// the locale.
#ifndef STDKRO_STR_H
#define STDKRO_STR_H

#include <stdkro/config.h>
#include <stdkro/share_str.h>

struct in_addr;
class base_var;
class version;

/// A class only to hold its static functions.
class KRO_API str {
public:
    // ---- characters: a byte with its high bit set opens a character of two bytes

    /// The number of characters; 0 for null.
    static unsigned strword(const char* s) noexcept;
    /// Character `n`, counted from 0; null when the text ends before it, or is null.
    static const char* getword(const char* s, unsigned n) noexcept;
    /// Converts each byte in place, as the current locale has it; returns `s`.
    static char* zstrlwr(char* s) noexcept;
    static char* zstrupr(char* s) noexcept;

    // ---- words and paths

    /// Splits the last component of `path` into its name and its extension, which
    /// keeps its "."; either output may be null and must otherwise hold the
    /// component. ".profile" is a name without extension.
    static void split_path(const char* path, char* name, char* ext) noexcept;
    /// Skips white space and copies the run of other bytes behind it, at most `n`.
    /// Terminates when fewer than `n` were copied. Returns the place behind them.
    static const char* read_para(char* dst, unsigned n, const char* s) noexcept;
    /// Copies at most `n` - 1 bytes; `dst` is terminated, and its last byte is NUL.
    static void nstrcpy(char* dst, unsigned n, const char* src) noexcept;
    /// Compares `s` with the range from `b` up to `e` as strcmp does: negative, zero
    /// or positive.
    static int nstrcmp(const char* s, const char* b, const char* e) noexcept;
    static int nstricmp(const char* s, const char* b, const char* e) noexcept;

    // ---- bytes as text

    /// Reads pairs of hexadecimal digits, with white space allowed before each,
    /// until `n` bytes are stored or no pair follows. Returns the bytes stored: 0
    /// without a destination. `end`, when given, is where reading stopped, behind
    /// white space.
    static int read_hex(unsigned char* dst, unsigned n, const char* s, const char** end) noexcept;
    /// Writes two upper-case digits for each byte, at most `n` characters, without
    /// a terminator. Returns the characters written; without a destination, 2 * `len`.
    static int write_hex(char* dst, unsigned n, const unsigned char* data, unsigned len) noexcept;
    /// Decodes the longest run of base64 characters at `s`, padding not included;
    /// `end`, when given, is where the run ends. Always returns the decoded size of
    /// the whole run. When that is more than `n`, only whole groups of three bytes
    /// that fit are written.
    static int read_base64(void* dst, unsigned n, const char* s, const char** end) noexcept;
    /// Writes groups of four characters as long as they fit, without a terminator.
    /// Returns the characters written; without a destination, those it would take.
    static int write_base64(char* dst, unsigned n, const unsigned char* data, unsigned len) noexcept;

    // ---- quoting

    /// How a byte is written inside quotes: itself, or a backslash and a letter
    /// (tab, line feed, carriage return, double quote, backslash); "" for NUL.
    static const char* to_single(unsigned char c) noexcept;
    /// Writes `s` with every byte as `to_single` gives it, and a terminator. Returns
    /// the length, or -1 when it does not fit (what is in `dst` is not terminated
    /// then). Without a destination, the length it would have.
    static int write_quote(char* dst, unsigned n, const char* s) noexcept;
    static share_str write_quote(const char* s) noexcept;
    /// The same as write_quote.
    static int write_triple(char* dst, unsigned n, const char* s) noexcept;
    /// The same between double quotes, which the length counts.
    static int write_value(char* dst, unsigned n, const char* s) noexcept;
    static int write_value(char* dst, unsigned n, const share_str& s) noexcept;
    /// The end of one value: behind the closing quote of a quoted one, otherwise
    /// the next ",", ";", white space or end.
    static const char* skip_value(const char* s) noexcept;

    // ---- numbers

    /// Writes `count` numbers with `sep` between them (none when NUL). Returns the
    /// length, or, when the text was cut, the negated length of the whole numbers
    /// written before the cut.
    static int write_multi(char* dst, unsigned n, const int* v, unsigned count, char sep) noexcept;
    /// The same with a printf format that takes one double.
    static int write_multi(char* dst, unsigned n, const double* v, unsigned count, const char* fmt,
                           char sep) noexcept;
    /// Reads an integer: hexadecimal behind "0x" or "0X", octal behind "0" and a
    /// digit, otherwise decimal with white space and a sign allowed before it.
    /// Values outside 32 bits become the nearest one inside.
    static long str2int(const char* s, const char** end) noexcept;
    /// Reads a number with the prefixes of str2int and tells its radix: 16, 8, 10,
    /// or 0 for a floating-point number, which is one with a "." behind its
    /// integer part. `end` and `radix` may be null.
    static double str2num(const char* s, const char** end, int* radix) noexcept;
    /// The number that is all of `s`; `def` when `s` is null, empty, or has more or
    /// anything else in it.
    static int read_int(const char* s, int def) noexcept;
    static double read_double(const char* s, double def) noexcept;

    /// Each reads one value at `s` and returns where it stopped.
    /// An IPv4 address of at most 15 digits and points; the all-ones address when
    /// it is not one.
    static const char* read_value(const char* s, in_addr& out) noexcept;
    /// "major.minor.micro" with nothing behind it; any other shape gives 0.
    static const char* read_value(const char* s, version& out) noexcept;
    /// A quoted text, or a bare word that becomes an int, a double or a text.
    static const char* read_value(const char* s, base_var& out);

    // ---- command lines: words between white space, where double quotes group

    /// The number of arguments in `line`, or `err::syntax` for a quote that is not
    /// closed. `end`, when given, is where counting stopped: the end of the line, or
    /// that quote. Inside quotes a backslash takes the next byte as it is.
    static int calc_argv(const char* line, const char** end) noexcept;
    /// The first `count` arguments as one allocation: a vector that ends with a null
    /// pointer, and the texts. Release it with `free_argv`. Null without memory.
    static char** split_argv(const char* line, int count) noexcept;
    static void free_argv(char** argv) noexcept;
};

#endif
