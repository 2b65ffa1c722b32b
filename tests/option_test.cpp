// Command-line options: matching one argument, scanning all of them, the table that grows.
#include <stdkro/option.h>
#include <stdkro/xcpt.h>

#include "virtual_slot.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <string>
#include <vector>

namespace {

/// Arguments as main receives them.
class words {
public:
    words(std::initializer_list<const char*> list) : texts_(list.begin(), list.end())
    {
        for (std::string& text : texts_)
            pointers_.push_back(&text[0]);
        pointers_.push_back(nullptr);
    }
    int count() const { return static_cast<int>(texts_.size()); }
    char** vector() { return pointers_.data(); }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

const option_pattern table[] = {
    { "verbose", 'v', option_flag, nullptr }, { "port", 'p', option_integer, nullptr },
    { "long-only", 0, option_flag, nullptr }, { "verbose", 'p', option_flag, nullptr },
    { "", '9', option_flag, nullptr },        { "text", 't', option_text, nullptr },
    { nullptr, 'x', option_flag, nullptr },
};

struct settings {
    int verbose = 0;
    int port = -1;
    char* file = nullptr;
    int position = -1;
    option options;

    settings()
    {
        options.add_bool("verbose", 'v', &verbose);
        options.add("port", 'p', &port);
        options.add("file", 'f', &file);
    }
    int read(words&& w) { return options.read_argv(w.count(), w.vector(), &position); }
};

} // namespace

TEST(option_pattern, has_its_fields_in_this_order)
{
    EXPECT_EQ(0u, offsetof(option_pattern, name));
    EXPECT_EQ(sizeof(char*), offsetof(option_pattern, short_name));
    EXPECT_EQ(sizeof(char*) + sizeof(int), offsetof(option_pattern, kind));
    EXPECT_EQ(sizeof(char*) + 2 * sizeof(int), offsetof(option_pattern, target));
    EXPECT_TRUE(std::has_virtual_destructor<option_functor>::value);
    EXPECT_EQ(2u, slot_of(&option_functor::call)); // behind the destructor
}

TEST(match_opt, follows_the_form_of_the_argument)
{
    static const struct {
        const char* argument;
        int result;
    } cases[] = {
        // Short names: behind "/", behind "-", or alone.
        { "-v", 0 }, { "/v", 0 }, { "v", 0 }, { "-p", 1 }, { "/p", 1 },
        // A digit may be a short name.
        { "-9", 4 }, { "9", 4 },
        // Long names are compared exactly; the first pattern wins.
        { "--verbose", 0 }, { "--port", 1 }, { "--long-only", 2 }, { "--", 4 },
        { "--Verbose", err::unexpected }, { "--verb", err::unexpected }, { "--none", err::unexpected },
        // "/" takes short names only.
        { "/verbose", err::syntax },
        // Short options are not grouped, and a word is no option.
        { "-vp", err::syntax }, { "file.txt", err::syntax }, { "", err::syntax }, { "/", err::syntax },
        // Behind "-" stands a letter or a digit.
        { "-", err::syntax }, { "-?", err::syntax }, { "-\xE9", err::syntax },
        // Names that no pattern has; behind the null name there is nothing.
        { "-q", err::unexpected }, { "x", err::unexpected }, { "/?", err::unexpected },
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.result, match_opt(c.argument, table)) << c.argument;
}

TEST(match_opt, compares_a_short_name_as_a_whole)
{
    static const struct {
        int short_name;
        const char* argument;
        int result;
    } cases[] = {
        { 1, "\x01", 0 }, { 127, "\x7F", 0 },
        // A byte above 127: as itself, or as a negative char.
        { 0x80, "\x80", 0 }, { -0x80, "\x80", 0 }, { 0xE9, "/\xE9", 0 }, { 0xE9 - 0x100, "/\xE9", 0 },
        { 0xFF, "\xFF", 0 }, { -1, "\xFF", 0 },
        // What no char can be is no character's name, whatever its lower bits are.
        { 0x100 + 'v', "-v", err::unexpected }, { 'v' - 0x100, "-v", err::unexpected },
        { 0x10000 + 'v', "v", err::unexpected }, { INT_MIN + 'v', "/v", err::unexpected },
        { 0x1E9, "\xE9", err::unexpected }, { 0xE9 - 0x200, "\xE9", err::unexpected },
        { 0x7F - 0x100, "\x7F", err::unexpected }, { 0x100, "v", err::unexpected }, { 0, "v", err::unexpected },
    };
    for (const auto& c : cases) {
        const option_pattern one[] = { { "name", c.short_name, option_flag, nullptr }, { nullptr, 0, 0, nullptr } };
        EXPECT_EQ(c.result, match_opt(c.argument, one)) << c.short_name << " " << c.argument;
    }
}

TEST(read_argv, stores_values_into_their_targets)
{
    settings s;
    EXPECT_EQ(3, s.read({ "-v", "-p", "80" }));
    EXPECT_EQ(1, s.verbose);
    EXPECT_EQ(80, s.port);
    EXPECT_EQ(3, s.position);
    for (const char* form : { "-p", "--port", "/p", "p" }) {
        settings t;
        EXPECT_EQ(2, t.read({ form, "80" })) << form;
        EXPECT_EQ(80, t.port) << form;
    }
}

TEST(read_argv, refuses_a_pattern_of_no_kind)
{
    int seen = 7;
    const option_pattern unknown[] = { { "odd", 'o', 99, &seen }, { nullptr, 0, 0, nullptr } };
    words w { "-o", "5" };
    int position = -1;
    EXPECT_EQ(err::internal, read_argv(w.count(), w.vector(), unknown, &position));
    EXPECT_EQ(0, position);
    EXPECT_EQ(7, seen);
}

TEST(read_argv, sets_a_flag_to_1_whatever_it_was)
{
    settings s;
    EXPECT_EQ(3, s.read({ "-v", "--verbose", "v" }));
    EXPECT_EQ(1, s.verbose);
    s.verbose = -5;
    EXPECT_EQ(1, s.read({ "/v" }));
    EXPECT_EQ(1, s.verbose);
}

TEST(read_argv, reads_numbers_as_atoi_and_keeps_them_in_range)
{
    static const struct {
        const char* text;
        int value;
    } cases[] = { { "12x", 12 },         { "x", 0 },      { "", 0 },     { " -7", -7 },
                  { "99999999999", INT_MAX }, { "-99999999999", INT_MIN }, { "-v", 0 } };
    for (const auto& c : cases) {
        settings s;
        EXPECT_EQ(2, s.read({ "-p", c.text }));
        EXPECT_EQ(c.value, s.port) << c.text;
        EXPECT_EQ(0, s.verbose) << "the value of an option is no option";
    }
}

TEST(read_argv, points_text_targets_at_the_argument_itself)
{
    settings s;
    words w { "--file", "a b" };
    EXPECT_EQ(2, s.options.read_argv(w.count(), w.vector(), &s.position));
    EXPECT_EQ(w.vector()[1], s.file);
}

TEST(read_argv, stops_at_the_first_argument_it_cannot_use)
{
    static const struct {
        std::initializer_list<const char*> arguments;
        int result;
        int position;
    } cases[] = {
        { { "-v", "file.txt", "-p", "1" }, err::syntax, 1 },
        { { "-vp" }, err::syntax, 0 },
        { { "-v", "--none" }, err::unexpected, 1 },
        // A missing value leaves the position at its option.
        { { "-v", "-p" }, err::abnormal_end, 1 },
        { { "--file" }, err::abnormal_end, 0 },
        { {}, 0, 0 },
    };
    for (const auto& c : cases) {
        settings s;
        EXPECT_EQ(c.result, s.read(words(c.arguments)));
        EXPECT_EQ(c.position, s.position);
        EXPECT_EQ(-1, s.port);
    }
    settings kept;
    kept.read({ "-v", "-p", "5", "?" });
    EXPECT_EQ(1, kept.verbose);
    EXPECT_EQ(5, kept.port);
}

TEST(read_argv, needs_neither_position_nor_targets)
{
    words w { "-v", "--port", "80", "-t", "dropped", "--long-only" };
    EXPECT_EQ(6, read_argv(w.count(), w.vector(), table, nullptr));
}

namespace {

std::string seen;
int handler_result = 0;

int remember(int argc, char** argv, int index, const option_pattern* patterns, int number)
{
    seen += std::to_string(argc) + ":" + argv[index] + ":" + patterns[number].name + " ";
    return handler_result == INT_MIN ? index : handler_result;
}

struct functor : option_functor {
    int calls = 0;
    int call(int, char**, int index, const option_pattern*, int) override
    {
        ++calls;
        return index + 1;
    }
};

} // namespace

TEST(read_argv, calls_handlers_and_goes_on_behind_what_they_used)
{
    static const struct {
        int result;
        const char* seen;
        int status;
        int position;
    } cases[] = {
        // The handler used its own argument only, two, or all.
        { INT_MIN, "3:-h:handle 3:-h:handle 3:-h:handle ", 3, 3 },
        { 1, "3:-h:handle 3:-h:handle ", 3, 3 },
        { 2, "3:-h:handle ", 3, 3 },
        // An index behind the end ends the scan; one before its own counts as its own.
        { INT_MAX, "3:-h:handle ", 3, 3 },
        { 0, "3:-h:handle 3:-h:handle 3:-h:handle ", 3, 3 },
        // A negative result is the result.
        { err::conflict, "3:-h:handle ", err::conflict, 0 },
    };
    for (const auto& c : cases) {
        seen.clear();
        handler_result = c.result;
        option o;
        o.add("handle", 'h', remember);
        words w { "-h", "-h", "-h" };
        int position = -1;
        EXPECT_EQ(c.status, o.read_argv(w.count(), w.vector(), &position));
        EXPECT_EQ(c.seen, seen);
        EXPECT_EQ(c.position, position);
    }
    functor f;
    option o;
    o.add("call", 'c', &f);
    words w { "--call", "used", "-c", "used" };
    EXPECT_EQ(4, o.read_argv(w.count(), w.vector(), nullptr));
    EXPECT_EQ(2, f.calls);
}

TEST(option, may_grow_after_it_was_used)
{
    settings s;
    EXPECT_EQ(err::unexpected, s.read({ "-n" }));
    int number = 0;
    EXPECT_EQ(0, s.options.add("number", 'n', &number));
    EXPECT_EQ(2, s.read({ "-n", "3" }));
    EXPECT_EQ(3, number);
}

TEST(option, without_patterns_refuses_the_first_argument)
{
    option o;
    int position = -1;
    words word { "word" };
    EXPECT_EQ(err::syntax, o.read_argv(1, word.vector(), &position));
    EXPECT_EQ(0, position);
    words flag { "-x" };
    EXPECT_EQ(err::unexpected, o.read_argv(1, flag.vector(), &position));
    EXPECT_EQ(0, o.read_argv(0, flag.vector(), &position));
}
