// A token's value as the naive lexer shows it.
#ifndef STDKRO_TESTS_LEXED_VALUE_H
#define STDKRO_TESTS_LEXED_VALUE_H

#include "naive_lexer.h"

#include <stdkro/base_var.h>

inline std::string show(const base_var& v)
{
    switch (v.get_type()) {
    case base_var::string:
        return naive::show(std::string(v.get_string().c_str(), v.get_string().length()));
    case base_var::integer:
        return naive::show(v.get_int());
    case base_var::real:
        return naive::show(v.get_double());
    default:
        return "";
    }
}

#endif
