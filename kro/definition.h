// The option "-D NAME=VALUE".
#ifndef STDKRO_KRO_DEFINITION_H
#define STDKRO_KRO_DEFINITION_H

#include "command.h"

#include <stdkro/base_var.h>

struct definition {
    std::string name;
    /// An int, a double, or else a string.
    base_var value;
};

/// Reads "NAME=VALUE"; throws `usage_error` for another shape.
definition read_definition(const std::string& word);

/// All of them, in their order.
std::vector<definition> read_definitions(const command_words& words);

#endif
