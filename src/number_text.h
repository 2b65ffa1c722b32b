// Numbers as text and back, the same on every platform and in every locale.
//
// Integers are signed 32-bit and saturate. Floating-point text is decimal
// notation with a "."; no "inf", "nan" or hexadecimal is read.
#ifndef STDKRO_SRC_NUMBER_TEXT_H
#define STDKRO_SRC_NUMBER_TEXT_H

/// Reads white space, a sign and digits of `radix` (8, 10 or 16, without prefix) in
/// a terminated text. Values beyond 32 bits become the nearest one inside. Returns
/// where the digits end, or `s` when there is none; `value` is 0 then.
const char* parse_int(const char* s, int& value, int radix = 10);

/// Reads white space, a sign, digits with an optional "." among, before or behind
/// them, and an optional exponent ("e" or "E", a sign, digits). Too large is
/// infinite, too small 0. Returns where the number ends, or `s` when there is none;
/// `value` is 0 then.
const char* parse_double(const char* s, double& value);

/// The same for an unterminated text that ends at `end`.
const char* parse_double(const char* s, const char* end, double& value);

/// Reads the sign and digits of an exponent, whose letter `s` points at, and stays
/// far from where a long long ends. Returns where the digits end, or `s` without any.
const char* parse_exponent(const char* s, const char* end, long long& exponent);

/// What the formatters below write at most, terminator included.
constexpr int number_text_size = 32;

/// Writes "%d" and a terminator; returns the length.
int format_int(char* dst, int value);

/// Writes "%g" (six digits, at least two in the exponent) and a terminator;
/// returns the length. Not-a-number is "nan" whatever its sign.
int format_double_g(char* dst, double value);

/// Truncates toward zero; what lies outside the ints, and not-a-number, gives 0x80000000.
inline int double_to_int(double value)
{
    constexpr int outside = -2147483647 - 1;
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int>(value) : outside;
}

#endif
