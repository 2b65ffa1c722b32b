// kro mml: takes command records apart and makes them.
#include "commands.h"

#include <stdkro/mml_doc.h>
#include <stdkro/xcpt.h>

#include <algorithm>
#include <cstdio>

namespace {

int print_record(const std::string& line)
{
    mml_doc doc;
    const int r = doc.read(line.c_str());
    if (r < 0)
        return report_error(r);
    std::printf("interface %s\nmethod %s\n", doc.get_interface().c_str(), doc.get_method().c_str());
    for (unsigned i = 0; i < doc.count(); ++i)
        std::printf("%s=%s\n", doc[i].get_name().c_str(), doc[i].get_value().c_str());
    return exit_success;
}

// The library writes any name; a reader takes words of letters and digits only.
void expect_word(const std::string& word)
{
    const auto is_plain = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    };
    if (!std::all_of(word.begin(), word.end(), is_plain))
        throw usage_error { "'" + word + "' is not of letters and digits" };
}

int make_record(const arguments& words)
{
    expect_word(words[0]);
    expect_word(words[1]);
    mml_doc doc;
    doc.set_interface(words[0].c_str());
    doc.set_method(words[1].c_str());
    for (std::size_t i = 2; i < words.size(); ++i) {
        const std::size_t equals = words[i].find('=');
        if (equals == std::string::npos)
            throw usage_error { "'" + words[i] + "' is not NAME=VALUE" };
        const std::string name = words[i].substr(0, equals);
        expect_word(name);
        doc.add_attr(name.c_str(), words[i].c_str() + equals + 1);
    }
    share_str line;
    const int r = doc.write(line);
    if (r < 0)
        return report_error(r);
    std::printf("%s\n", line.c_str());
    return exit_success;
}

} // namespace

int mml_command(const command_words& words)
{
    return words.has("make") ? make_record(words.operands) : print_record(words.operands[0]);
}
