#include "definition.h"

definition read_definition(const std::string& word)
{
    const size_t equals = word.find('=');
    if (equals == std::string::npos || equals == 0)
        throw usage_error { "'" + word + "' is not NAME=VALUE" };
    definition d = { word.substr(0, equals), base_var() };
    d.value.from_string(word.c_str() + equals + 1);
    return d;
}
