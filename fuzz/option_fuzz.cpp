// The option reader beside a slow and obvious one.
//
// The first byte chooses what handlers return, the second how many patterns the table
// has; the rest are arguments, each up to a NUL. Arguments have heap blocks of exactly
// their size.
#include <stdkro/option.h>
#include <stdkro/xcpt.h>

#include "require.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using std::string;

/// Arguments as main receives them, but without a null behind the last.
class vector_of_words {
public:
    explicit vector_of_words(const std::vector<string>& words)
    {
        for (const string& word : words) {
            texts_.emplace_back(new char[word.size() + 1]);
            std::memcpy(texts_.back().get(), word.c_str(), word.size() + 1);
            pointers_.push_back(texts_.back().get());
        }
        pointers_.shrink_to_fit();
    }
    int count() const { return static_cast<int>(pointers_.size()); }
    char** words() { return pointers_.data(); }

private:
    std::vector<std::unique_ptr<char[]>> texts_;
    std::vector<char*> pointers_;
};

/// Everything that a scan leaves behind.
struct outcome {
    int result = 0;
    int position = -1;
    int flag = 0;
    int number = -1;
    int text = -1; // the argument's index
    int calls = 0;

    bool operator==(const outcome& other) const
    {
        return result == other.result && position == other.position && flag == other.flag && number == other.number
            && text == other.text && calls == other.calls;
    }
};

const option_pattern names[] = {
    { "flag", 'f', 0, nullptr },   { "number", 'n', 0, nullptr }, { "text", 't', 0, nullptr },
    { "call", 'c', 0, nullptr },   { "object", 'o', 0, nullptr }, { "drop", '7', 0, nullptr },
    { "flag", 'n', 0, nullptr },   { "", 0, 0, nullptr },         { "wide", 0xE9, 0, nullptr },
    { "far", 0x100 + 'x', 0, nullptr }, { "signed", 0xE8 - 0x100, 0, nullptr },
};
constexpr unsigned most_patterns = sizeof names / sizeof names[0];

int handler_choice;
int handler_calls;

// Before its own index, at it, behind it, behind the end, or an error.
int handler_result(int index, int count)
{
    const int results[] = { index, index + 1, index + 3, 0, count, count + 5, INT_MAX, err::conflict, INT_MIN };
    return results[handler_choice % 9];
}

int handle(int count, char** words, int index, const option_pattern* table, int number)
{
    ++handler_calls;
    CHECK(index >= 0 && index < count);
    CHECK(match_opt(words[index], table) == number);
    return handler_result(index, count);
}

struct functor : option_functor {
    int call(int count, char** words, int index, const option_pattern* table, int number) override
    {
        return handle(count, words, index, table, number);
    }
};

// ---- the reference -------------------------------------------------------------

int naive_match(const string& word, unsigned patterns)
{
    if (word.compare(0, 2, "--") == 0) {
        for (unsigned i = 0; i < patterns; ++i)
            if (word.substr(2) == names[i].name)
                return static_cast<int>(i);
        return err::unexpected;
    }
    const bool has_mark = !word.empty() && (word[0] == '-' || word[0] == '/');
    const string name = word.substr(has_mark);
    const string letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    if (name.size() != 1 || (word[0] == '-' && letters.find(name) == string::npos))
        return err::syntax;
    const int c = static_cast<unsigned char>(name[0]);
    for (unsigned i = 0; i < patterns; ++i)
        if (names[i].short_name == c || (c > 127 && names[i].short_name == c - 256))
            return static_cast<int>(i);
    return err::unexpected;
}

int naive_number(const string& word)
{
    std::size_t i = 0;
    while (i < word.size() && std::strchr(" \t\n\v\f\r", word[i]))
        ++i;
    const bool is_negative = i < word.size() && word[i] == '-';
    i += i < word.size() && (word[i] == '-' || word[i] == '+');
    double value = 0;
    for (; i < word.size() && word[i] >= '0' && word[i] <= '9'; ++i)
        value = value * 10 + (word[i] - '0');
    return static_cast<int>(is_negative ? std::max(-value, -2147483648.0) : std::min(value, 2147483647.0));
}

outcome naive_read(const std::vector<string>& words, unsigned patterns)
{
    outcome o;
    const int count = static_cast<int>(words.size());
    for (int i = 0; i < count; ++i) {
        o.position = i;
        o.result = naive_match(words[static_cast<std::size_t>(i)], patterns);
        if (o.result < 0)
            return o;
        const string kind = names[o.result].name;
        if (o.result == 0) {
            o.flag = 1;
        } else if (kind == "number" || kind == "text" || kind == "drop") {
            if (++i == count) {
                o.result = err::abnormal_end;
                return o;
            }
            if (kind == "number")
                o.number = naive_number(words[static_cast<std::size_t>(i)]);
            if (kind == "text")
                o.text = i;
        } else if (kind == "call" || kind == "object") {
            ++o.calls;
            o.result = handler_result(i, count);
            if (o.result < 0)
                return o;
            i = std::min(std::max(i, o.result), count);
        }
    }
    o.result = o.position = count;
    return o;
}

// ---- the reader ----------------------------------------------------------------

outcome read(const std::vector<string>& words, unsigned patterns, bool with_position)
{
    vector_of_words argv(words);
    outcome o;
    char* text = nullptr;
    functor object;
    option table;
    const auto add = [&](unsigned i) {
        const char* name = names[i].name;
        const int c = names[i].short_name;
        switch (i) {
        case 0: return table.add_bool(name, c, &o.flag);
        case 1: return table.add(name, c, &o.number);
        case 2: return table.add(name, c, &text);
        case 3: return table.add(name, c, handle);
        case 4: return table.add(name, c, &object);
        case 5: return table.add(name, c, static_cast<char**>(nullptr));
        default: return table.add_bool(name, c, nullptr);
        }
    };
    for (unsigned i = 0; i < patterns; ++i) {
        CHECK(add(i) == 0);
        // A table that was used already goes on growing.
        if (i == 1)
            CHECK(table.read_argv(0, nullptr, nullptr) == 0);
    }
    handler_calls = 0;
    o.result = table.read_argv(argv.count(), argv.words(), with_position ? &o.position : nullptr);
    o.calls = handler_calls;
    for (int i = 0; i < argv.count(); ++i)
        if (text == argv.words()[i])
            o.text = i;
    return o;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    handler_choice = data[0] & 15;
    const bool with_position = data[0] < 128;
    const unsigned patterns = data[1] % (most_patterns + 1);
    std::vector<string> words(1);
    for (std::size_t i = 2; i < size; ++i) {
        if (data[i])
            words.back() += static_cast<char>(data[i]);
        else
            words.emplace_back();
    }
    if (words.back().empty())
        words.pop_back();
    outcome expected = naive_read(words, patterns);
    if (words.empty())
        expected.position = 0;
    if (!with_position)
        expected.position = -1;
    CHECK(read(words, patterns, with_position) == expected);
    return 0;
}
