// How values and status codes look in the tables of tests.
#ifndef STDKRO_TESTS_VALUE_TEXT_H
#define STDKRO_TESTS_VALUE_TEXT_H

#include <cstdio>
#include <stdkro/base_var.h>
#include <string>

inline std::string code_text(int code)
{
    char text[32];
    std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(code));
    return text;
}

/// A value with its type: 7, 7.5 as "real 7.5", a string in quotes, an error.
inline std::string text_of(const base_var& v)
{
    if (!v.is_initialized())
        return "none";
    if (!v.is_valid())
        return "error " + code_text(v.get_err());
    const std::string text = v.to_string().c_str();
    return v.is_string() ? "\"" + text + "\"" : (v.is_double() ? "real " : "") + text;
}

#endif
