// Bounded formatting with one meaning everywhere: the C library's own functions
// disagree about what they return when the text does not fit.
#ifndef STDKRO_SRC_TEXT_FORMAT_H
#define STDKRO_SRC_TEXT_FORMAT_H

#include <cstdarg>

/// The buffer behind the `print` functions: a longer text is cut to fit it.
constexpr unsigned print_size = 1024;

/// Formats into `size` bytes. Returns the length, or -1 when the text needs `size`
/// or more characters: it is cut and terminated then. Writes nothing for size 0.
int format_bounded(char* dst, unsigned size, const char* fmt, va_list arguments);

/// What the `print` functions make of a format.
struct printed_text {
    char text[print_size];
    printed_text(const char* fmt, va_list arguments) { format_bounded(text, sizeof text, fmt, arguments); }
};

#endif
