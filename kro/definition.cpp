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

std::vector<definition> read_definitions(const command_words& words)
{
    std::vector<definition> definitions;
    for (const std::string& word : words.all("define"))
        definitions.push_back(read_definition(word));
    return definitions;
}
