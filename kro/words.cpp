#include "words.h"

#include "command.h"
#include "usage.h"

#include <stdkro/option.h>
#include <stdkro/xcpt.h>

#include <algorithm>
#include <charconv>
#include <cstring>

const command_option help_option = { "help", 'h', nullptr, "shows this text" };

namespace {

using given_option = command_words::given_option;

/// Notes an option and its value for the library's scanner.
class taker : public option_functor {
public:
    taker(const command_option& o, std::vector<given_option>& to) : option_(&o), to_(&to) {}
    int call(int argc, char** argv, int index, const option_pattern*, int) override
    {
        if (!option_->value) {
            to_->push_back({ option_, argv[index], "" });
            return index;
        }
        if (index + 1 >= argc)
            return err::abnormal_end;
        to_->push_back({ option_, argv[index], argv[index + 1] });
        return index + 1;
    }

    const command_option& option() const { return *option_; }

private:
    const command_option* option_;
    std::vector<given_option>* to_;
};

/// The number of words that a form takes.
struct span {
    std::size_t least = 0;
    std::size_t most = 0;
};

std::vector<form_word> operand_words(const command_form& form)
{
    std::vector<form_word> words = form_words(form.lead);
    for (const form_word& word : form_words(form.trail))
        words.push_back(word);
    words.erase(std::remove_if(words.begin(), words.end(), [](const form_word& w) { return w.is_option(); }), words.end());
    return words;
}

span span_of(const std::vector<form_word>& words)
{
    span s;
    for (const form_word& word : words) {
        s.least += !word.is_optional;
        s.most = word.is_repeated ? static_cast<std::size_t>(-1) : s.most + 1;
    }
    return s;
}

/// How many of the form's fixed words the operands have; -1 when one is another.
int count_fixed(const command_form& form, const command_words& read)
{
    int fixed = 0;
    const std::vector<form_word> words = operand_words(form);
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (!words[i].is_fixed())
            continue;
        if (i >= read.operands.size() || read.operands[i] != words[i].text)
            return -1;
        ++fixed;
    }
    for (const form_word& word : form_words(form.lead)) {
        if (word.is_option() && !read.has(word.text.c_str() + 2))
            return -1;
        fixed += word.is_option();
    }
    return fixed;
}

/// The form that the words have, of several the one with most fixed words, or null.
const command_form* form_of(const command& c, const command_words& read)
{
    const command_form* best = nullptr;
    int most = -1;
    for (const command_form& form : c.forms) {
        const int fixed = count_fixed(form, read);
        if (fixed > most) {
            most = fixed;
            best = &form;
        }
    }
    return best;
}

/// "a, b or c" of "a|b|c"; a single name is itself.
std::string enumerated(std::string choices)
{
    const std::size_t last = choices.rfind('|');
    if (last != std::string::npos)
        choices.replace(last, 1, " or ");
    for (std::size_t at; (at = choices.find('|')) != std::string::npos;)
        choices.replace(at, 1, ", ");
    return choices;
}

// ---- reading -------------------------------------------------------------------

class word_reader {
public:
    word_reader(const command& c, const arguments& words) : command_(c), words_(words)
    {
        for (std::string& word : words_)
            argv_.push_back(&word[0]);
        for (const command_option& o : c.options)
            takers_.emplace_back(o, read_.options);
        takers_.emplace_back(help_option, read_.options);
        for (taker& t : takers_)
            table_.push_back({ t.option().name, short_name(t.option()), option_object, &t });
        table_.push_back({ nullptr, 0, 0, nullptr });
    }
    word_reader(const word_reader&) = delete;
    word_reader& operator=(const word_reader&) = delete;

    command_words read()
    {
        bool has_options = true;
        for (std::size_t i = 0; i < words_.size();) {
            has_options = has_options && !is_behind_options();
            if (has_options && words_[i] == "--") {
                has_options = false;
                ++i;
            } else if (has_options && !is_literal() && is_option(i)) {
                i += take_option(i);
            } else {
                read_.operands.push_back(words_[i++]);
            }
        }
        return read_;
    }

private:
    int short_name(const command_option& o) const
    {
        const bool is_expression = &o == &help_option && command_.rule == word_rule::any_words;
        return is_expression ? 0 : o.short_name;
    }
    bool is_option(std::size_t i) const
    {
        const std::string& word = words_[i];
        if (has_slash_options && word.size() == 2 && word[0] == '/')
            return word == "/?" || match_opt(argv_[i], table_.data()) >= 0;
        if (word.size() < 2 || word[0] != '-')
            return false;
        return command_.rule == word_rule::plain || match_opt(argv_[i], table_.data()) >= 0;
    }
    /// Whether the words of an action are still to come.
    bool is_literal() const
    {
        if (command_.rule != word_rule::any_words)
            return false;
        const command_form* const form = form_of(command_, read_);
        return form && count_fixed(*form, read_) > 0 && read_.operands.size() < span_of(operand_words(*form)).least;
    }
    /// Whether the first word of a trail was read.
    bool is_behind_options() const
    {
        const command_form* const form = form_of(command_, read_);
        return form && *form->trail && read_.operands.size() > form_words(form->lead).size();
    }
    /// Returns how many words it took.
    std::size_t take_option(std::size_t i)
    {
        if (words_[i] == "/?") {
            read_.options.push_back({ &help_option, words_[i], "" });
            return 1;
        }
        const int number = match_opt(argv_[i], table_.data());
        if (number < 0)
            throw usage_error { "no option '" + words_[i] + "'" };
        const command_option& o = takers_[static_cast<std::size_t>(number)].option();
        const std::size_t size = std::min<std::size_t>(o.value ? 2 : 1, words_.size() - i);
        if (read_argv(static_cast<int>(size), &argv_[i], table_.data(), nullptr) < 0)
            throw usage_error { "'" + words_[i] + "' wants " + enumerated(o.value) };
        return size;
    }

    const command& command_;
    arguments words_;
    std::vector<char*> argv_;
    std::vector<taker> takers_;
    std::vector<option_pattern> table_;
    command_words read_;
};

// ---- checking ------------------------------------------------------------------

bool read_number_of(const command_option& o, const std::string& text, int& number)
{
    return read_number(text, number) && number >= o.least && number <= o.most;
}

bool is_choice(const std::string& text, const std::string& choices)
{
    return text.find('|') == std::string::npos
        && ("|" + choices + "|").find("|" + text + "|") != std::string::npos;
}

void check_value(const given_option& given)
{
    const command_option& o = *given.option;
    if (!o.value)
        return;
    const std::string not_this = ", not '" + given.value + "'";
    int number;
    if (o.is_number() && !read_number_of(o, given.value, number))
        throw usage_error { "'" + given.spelling + "' wants a number from " + std::to_string(o.least) + " to "
                            + std::to_string(o.most) + not_this };
    const bool is_one_of_several = std::strchr(o.value, '|') != nullptr;
    if (is_one_of_several && !is_choice(given.value, o.value))
        throw usage_error { "'" + given.spelling + "' wants " + enumerated(o.value) + not_this };
}

void check_group(const option_group& group, const command_words& read)
{
    const command_option* first = nullptr;
    for (const command_option* o : group.options) {
        if (!read.has(o->name)) {
            if (group.kind == '+' && read.has(group.options.back()->name))
                throw usage_error { std::string("--") + group.options.back()->name + " goes with --" + o->name };
            continue;
        }
        if (group.kind == '|' && first)
            throw usage_error { std::string("--") + first->name + " and --" + o->name + " exclude each other" };
        first = o;
    }
}

void check_options(const command& c, const command_form& form, const command_words& read)
{
    const std::vector<option_group> groups = form_options(c, form);
    for (const given_option& given : read.options) {
        const bool is_allowed = std::any_of(groups.begin(), groups.end(), [&](const option_group& group) {
            return std::count(group.options.begin(), group.options.end(), given.option) > 0;
        });
        if (!is_allowed)
            throw usage_error { "'" + given.spelling + "' is not expected" };
    }
    for (const option_group& group : groups)
        check_group(group, read);
}

/// What to call the operand that a form lacks: "SECTION" of "SECTION...".
std::string missing_word(const std::vector<form_word>& words, std::size_t count)
{
    std::size_t i = std::min(count, words.size() - 1);
    while (words[i].is_optional)
        ++i;
    const std::string& text = words[i].text;
    return text.substr(0, text.find("..."));
}

void check_operands(const command_form& form, const arguments& operands)
{
    const std::vector<form_word> words = operand_words(form);
    const span wanted = span_of(words);
    if (operands.size() < wanted.least)
        throw usage_error { missing_word(words, operands.size()) + " is missing" };
    if (operands.size() > wanted.most)
        throw usage_error { "'" + operands[wanted.most] + "' is not expected" };
}

/// The words that a call may begin with: "'run' or 'time'".
std::string first_words(const command& c)
{
    std::string words;
    for (const command_form& form : c.forms)
        words += (words.empty() ? "'" : "|'") + operand_words(form).front().text + "'";
    return enumerated(words);
}

} // namespace

bool read_number(const std::string& text, int& number)
{
    const char* const end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), end, number);
    return read.ec == std::errc() && read.ptr == end;
}

const given_option* command_words::find(const char* option) const
{
    for (std::size_t i = options.size(); i-- > 0;)
        if (std::strcmp(options[i].option->name, option) == 0)
            return &options[i];
    return nullptr;
}

std::string command_words::text(const char* option, const std::string& otherwise) const
{
    const given_option* const given = find(option);
    return given ? given->value : otherwise;
}

int command_words::number(const char* option, int otherwise) const
{
    const given_option* const given = find(option);
    if (given)
        read_number_of(*given->option, given->value, otherwise);
    return otherwise;
}

arguments command_words::all(const char* option) const
{
    arguments values;
    for (const given_option& given : options)
        if (std::strcmp(given.option->name, option) == 0)
            values.push_back(given.value);
    return values;
}

command_words read_words(const command& c, const arguments& words)
{
    const command_words read = word_reader(c, words).read();
    if (read.has(help_option.name))
        return read;
    for (const given_option& given : read.options)
        check_value(given);
    const command_form* const form = form_of(c, read);
    if (!form)
        throw usage_error { first_words(c) + " is expected" };
    check_operands(*form, read.operands);
    check_options(c, *form, read);
    return read;
}
