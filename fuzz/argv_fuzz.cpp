// Command lines: counting and splitting beside a slow and obvious reader, and words
// written as a line and read back.
//
// The first byte is how many arguments are asked for; the rest is the line.
#include <stdkro/str.h>
#include <stdkro/xcpt.h>

#include "require.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using std::string;

bool space(char c) { return c != '\0' && std::strchr(" \t\n\v\f\r", c) != nullptr; }

/// What a line holds.
struct words_of_line {
    std::vector<string> words;
    /// The quote that is not closed, or the length of the line.
    std::size_t end;
    bool is_closed;
};

words_of_line naive_words(const string& line)
{
    words_of_line found = { {}, line.size(), true };
    bool inside = false;
    bool quoted = false;
    std::size_t quote = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (!quoted && space(c)) {
            inside = false;
            continue;
        }
        if (!inside)
            found.words.push_back("");
        inside = true;
        if (c == '"') {
            quoted = !quoted;
            quote = i;
        } else if (quoted && c == '\\') {
            found.words.back() += i + 1 < line.size() ? line[i + 1] : '\0';
            ++i;
        } else {
            found.words.back() += c;
        }
    }
    if (quoted)
        found.end = quote;
    found.is_closed = !quoted;
    return found;
}

/// A word as a line holds it: between quotes, those inside and backslashes escaped.
string quoted(const string& word)
{
    string text = "\"";
    for (const char c : word) {
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    return text + '"';
}

/// The line in a block of exactly its size.
std::unique_ptr<char[]> exact(const string& line)
{
    std::unique_ptr<char[]> text(new char[line.size() + 1]);
    std::memcpy(text.get(), line.c_str(), line.size() + 1);
    return text;
}

void check_counting(const char* line, const words_of_line& expected)
{
    const char* end = nullptr;
    const int count = str::calc_argv(line, &end);
    CHECK(end == line + expected.end);
    CHECK(count == (expected.is_closed ? static_cast<int>(expected.words.size()) : err::syntax));
    CHECK(str::calc_argv(line, nullptr) == count);
}

// The first words of a line, whatever number is asked for: what is missing is null.
void check_splitting(const char* line, const words_of_line& expected, int wanted)
{
    char** const argv = str::split_argv(line, wanted);
    CHECK(argv);
    for (int i = 0; i <= wanted; ++i) {
        const std::size_t at = static_cast<std::size_t>(i);
        const bool is_there = i < wanted && at < expected.words.size();
        CHECK((argv[i] != nullptr) == is_there);
        const bool is_cut = !expected.is_closed && at + 1 == expected.words.size();
        if (is_there && !is_cut)
            CHECK(expected.words[at] == argv[i]);
    }
    str::free_argv(argv);
}

void check_there_and_back(const std::vector<string>& words)
{
    string line;
    for (const string& word : words)
        line += quoted(word) + ' ';
    const std::unique_ptr<char[]> text = exact(line);
    check_counting(text.get(), { words, line.size(), true });
    check_splitting(text.get(), { words, line.size(), true }, static_cast<int>(words.size()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    string line(reinterpret_cast<const char*>(data + 1), size - 1);
    line.resize(std::min(line.size(), line.find('\0')));
    const std::unique_ptr<char[]> text = exact(line);
    const words_of_line expected = naive_words(line);
    check_counting(text.get(), expected);
    check_splitting(text.get(), expected, static_cast<int>(expected.words.size()));
    check_splitting(text.get(), expected, data[0]);
    CHECK(str::split_argv(text.get(), -1 - data[0]) == nullptr);
    if (expected.is_closed)
        check_there_and_back(expected.words);
    return 0;
}
