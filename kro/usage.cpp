#include "usage.h"

#include <algorithm>

namespace {

std::vector<std::string> split(const std::string& text, const char* separators)
{
    std::vector<std::string> parts;
    for (std::size_t begin = 0; (begin = text.find_first_not_of(separators, begin)) != std::string::npos;) {
        const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
        parts.push_back(text.substr(begin, end - begin));
        begin = end;
    }
    return parts;
}

bool ends_with(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string long_spelling(const command_option& o) { return std::string("--") + o.name; }
std::string short_spelling(const command_option& o)
{
    return o.short_name ? std::string("-") + o.short_name : "";
}

std::string with_value(const std::string& spelling, const command_option& o)
{
    return o.value ? spelling + " " + o.value : spelling;
}

// One word of `command_form::options`: "-o+--keep" is "[-o OUT [--keep]]".
std::string group_usage(const command& c, const std::string& group)
{
    std::string text;
    std::string end;
    for (const std::string& spelling : split(group, "|+")) {
        const command_option& o = *find_option(c, spelling);
        if (text.empty())
            text = "[";
        else if (group.find('|') != std::string::npos)
            text += "|";
        else {
            text += " [";
            end += "]";
        }
        text += with_value(spelling, o);
        end += end.empty() ? "]" : "";
        if (o.use == repeated)
            end += "...";
    }
    return text + end;
}

void append(std::string& text, const std::string& word)
{
    if (!word.empty())
        text += (text.empty() ? "" : " ") + word;
}

void print_option(const std::string& spelling, const std::string& help)
{
    constexpr std::size_t width = 24;
    const bool is_wide = spelling.size() > width;
    std::printf("  %-24s%s %s\n", spelling.c_str(), is_wide ? ("\n" + std::string(2 + width, ' ')).c_str() : "", help.c_str());
}

std::string both_spellings(const command_option& o)
{
    const std::string name = long_spelling(o);
    return o.short_name ? short_spelling(o) + ", " + name : "    " + name;
}

} // namespace

bool form_word::is_fixed() const
{
    return text.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos;
}

std::vector<form_word> form_words(const char* words)
{
    std::vector<form_word> found;
    for (const std::string& text : split(words, " "))
        found.push_back({ text, text[0] == '[', ends_with(text, "...") });
    return found;
}

const command_option* find_option(const command& c, const std::string& spelling)
{
    for (const command_option& o : c.options)
        if (spelling == long_spelling(o) || spelling == short_spelling(o))
            return &o;
    return nullptr;
}

std::vector<option_group> form_options(const command& c, const command_form& form)
{
    std::vector<option_group> groups;
    for (const std::string& text : split(form.options, " ")) {
        option_group group = { text.find('|') != std::string::npos ? '|' : text.find('+') != std::string::npos ? '+' : '\0', {} };
        for (const std::string& spelling : split(text, "|+"))
            group.options.push_back(find_option(c, spelling));
        groups.push_back(group);
    }
    for (const form_word& word : form_words(form.lead))
        if (word.is_option())
            groups.push_back({ '\0', { find_option(c, word.text) } });
    return groups;
}

std::string usage_of(const command& c, const command_form& form)
{
    std::string text = form.lead;
    for (const std::string& group : split(form.options, " "))
        append(text, group_usage(c, group));
    append(text, form.trail);
    return text;
}

std::string usage_of(const command& c)
{
    std::string lines;
    for (const command_form& form : c.forms) {
        const std::string words = usage_of(c, form);
        lines += std::string(lines.empty() ? "usage:" : "      ") + " kro " + c.name + (words.empty() ? "" : " ") + words + "\n";
    }
    return lines;
}

void print_help(const command& c)
{
    std::printf("%s%s\n\noptions:\n", usage_of(c).c_str(), c.summary);
    for (const command_option& o : c.options)
        print_option(with_value(both_spellings(o), o), o.help);
    const bool has_short_help = c.rule == word_rule::plain;
    print_option(has_short_help ? both_spellings(help_option) : "    " + long_spelling(help_option), help_option.help);
}

void print_commands(std::FILE* to)
{
    std::fprintf(to, "usage: kro COMMAND [WORD]...\n\ncommands:\n");
    for (const command& c : commands)
        std::fprintf(to, "  %-10s %s\n", c.name, c.summary);
    std::fprintf(to, "\n'kro COMMAND --help' tells how a command is called.\n");
}

void print_table()
{
    for (const command& c : commands) {
        std::printf("command\t%s\t%s\n", c.name, c.summary);
        for (const command_form& form : c.forms)
            std::printf("form\t%s\t%s\n", c.name, usage_of(c, form).c_str());
        for (const command_option& o : c.options)
            std::printf("option\t%s\t%s\t%s\t%s\t%s\n", c.name, short_spelling(o).c_str(), long_spelling(o).c_str(),
                        o.value ? o.value : "", o.help);
        std::printf("option\t%s\t%s\t%s\t\t%s\n", c.name,
                    c.rule == word_rule::plain ? short_spelling(help_option).c_str() : "",
                    long_spelling(help_option).c_str(), help_option.help);
    }
}
