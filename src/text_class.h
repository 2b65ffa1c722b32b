// Classes of bytes, the same in every locale: bytes of 128 and more are in none.
#ifndef STDKRO_SRC_TEXT_CLASS_H
#define STDKRO_SRC_TEXT_CLASS_H

inline bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
inline bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// The value of a hexadecimal digit, -1 for any other byte.
inline int hex_value(char c)
{
    if (is_digit(c))
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// The byte that stands behind a backslash as `c`, where texts escape line ends and
/// tabs; any other byte stands for itself.
inline char unescaped(char c)
{
    switch (c) {
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    default:
        return c;
    }
}

inline const char* skip_space(const char* s)
{
    while (is_space(*s))
        ++s;
    return s;
}

#endif
