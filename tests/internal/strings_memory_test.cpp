// Strings when memory runs out: nothing throws, nothing leaks, and each operation
// gives what it promises, whichever of its allocations fails.
#include "allocation_failure.h"

#include <stdkro/share_str.h>
#include <stdkro/str.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

const std::string long_text(5000, 'x');

/// One operation on a share_str that begins as `before`.
struct change {
    const char* name;
    const char* before;
    std::function<bool(share_str&)> apply;
    /// The text after success and after a failed allocation.
    std::string after, failed;
};

const change changes[] = {
    // What replaces the text leaves the empty string.
    { "assign text", "abc", [](share_str& s) { s = long_text.c_str(); return true; }, long_text, "" },
    { "assign character", "abc", [](share_str& s) { s = 'x'; return true; }, "x", "" },
    { "print", "abc", [](share_str& s) { s.print("%d", 12345); return true; }, "12345", "" },
    // What appends does nothing.
    { "append text", "abc", [](share_str& s) { s += long_text.c_str(); return true; }, "abc" + long_text, "abc" },
    { "append to empty", "", [](share_str& s) { s += "def"; return true; }, "def", "" },
    { "append character", "0123456789a", [](share_str& s) { s += 'x'; return true; },
      "0123456789ax", "0123456789a" },
    { "append own text", "0123456789a", [](share_str& s) { s += s; return true; },
      "0123456789a0123456789a", "0123456789a" },
    // What tells of success gives false and changes nothing.
    { "insert", "abc", [](share_str& s) { return s.insert(1, long_text.c_str()); }, "a" + long_text + "bc", "abc" },
    { "insert character", "0123456789a", [](share_str& s) { return s.insert(0, 'x'); },
      "x0123456789a", "0123456789a" },
    { "reserve", "abc", [](share_str& s) { return s.reserved(5000); }, "abc", "abc" },
    { "lock", "abc", [](share_str& s) {
          const bool locked = s.lock(5000) != nullptr;
          s.unlock();
          return locked;
      }, "abc", "abc" },
};

// A shared buffer is copied before it is changed.
const change shared_changes[] = {
    { "remove", "abcdef", [](share_str& s) { return s.remove(1, 2); }, "adef", "abcdef" },
    { "set", "abcdef", [](share_str& s) { s.set(1, 'x'); return true; }, "axcdef", "abcdef" },
    { "append", "abcdef", [](share_str& s) { s += 'x'; return true; }, "abcdefx", "abcdef" },
    { "insert", "abcdef", [](share_str& s) { return s.insert(1, "x"); }, "axbcdef", "abcdef" },
    { "lock", "abcdef", [](share_str& s) {
          const bool locked = s.lock() != nullptr;
          s.unlock();
          return locked;
      }, "abcdef", "abcdef" },
};

/// Runs `c` with its n-th allocation failing, for every n; returns the number of failures.
int fail_each(const change& c, bool shared)
{
    int failures = 0;
    for (allocation_failure failure; failure.next();) {
        share_str s(c.before);
        const share_str other = shared ? s : share_str(c.before);
        failure.arm();
        const bool done = c.apply(s);
        failure.disarm();
        failures += failure.happened();
        EXPECT_EQ(failure.happened() ? c.failed : c.after, s.c_str()) << c.name;
        EXPECT_EQ(s.length(), std::string(s.c_str()).size()) << c.name;
        EXPECT_STREQ(c.before, other.c_str()) << c.name;
        EXPECT_TRUE(done || failure.happened()) << c.name;
        s = "usable";
        EXPECT_STREQ("usable", s.c_str()) << c.name;
    }
    return failures;
}

TEST(share_str_without_memory, does_nothing_or_becomes_empty)
{
    for (const change& c : changes)
        EXPECT_GT(fail_each(c, false), 0) << c.name;
    for (const change& c : shared_changes)
        EXPECT_GT(fail_each(c, true), 0) << c.name;
}

TEST(share_str_without_memory, tells_of_failure_by_false)
{
    struct {
        const char* name;
        std::function<bool(share_str&)> apply;
    } const rows[] = {
        { "insert text", [](share_str& s) { return s.insert(0, long_text.c_str()); } },
        { "insert range", [](share_str& s) { return s.insert(0, long_text.c_str(), 4000); } },
        { "insert character", [](share_str& s) { return s.insert(0, 'x'); } },
        { "remove", [](share_str& s) { return s.remove(0, 1); } },
        { "reserved", [](share_str& s) { return s.reserved(5000); } },
        { "lock", [](share_str& s) { return s.lock() != nullptr; } },
        { "lock with room", [](share_str& s) { return s.lock(5000) != nullptr; } },
    };
    for (const auto& row : rows) {
        allocation_failure failure;
        ASSERT_TRUE(failure.next());
        share_str s("abc");
        const share_str other(s);
        failure.arm();
        const bool done = row.apply(s);
        failure.disarm();
        EXPECT_TRUE(failure.happened()) << row.name;
        EXPECT_FALSE(done) << row.name;
        EXPECT_STREQ("abc", s.c_str()) << row.name;
        EXPECT_FALSE(s.islock()) << row.name;
        EXPECT_EQ(other.c_str(), s.c_str()) << row.name << ": the buffer is shared as before";
    }
}

const share_str share_str_of_test("abcdef");

TEST(share_str_without_memory, is_constructed_empty)
{
    struct {
        const char* name;
        std::function<share_str()> make;
        std::string text;
    } const rows[] = {
        { "from text", [] { return share_str(long_text.c_str()); }, long_text },
        { "from range", [] { return share_str(long_text.data(), long_text.data() + 10); }, "xxxxxxxxxx" },
        { "from character", [] { return share_str('c'); }, "c" },
        { "substr", [] { return share_str_of_test.substr(1, 3); }, "bc" },
        { "print_str", [] { return share_str::print_str("%s", "abc"); }, "abc" },
        { "write_quote", [] { return str::write_quote("abc"); }, "abc" },
        { "write_quote of much", [] { return str::write_quote(long_text.c_str()); }, long_text },
    };
    for (const auto& row : rows) {
        int failures = 0;
        for (allocation_failure failure; failure.next(); failures += failure.happened()) {
            failure.arm();
            const share_str s = row.make();
            failure.disarm();
            EXPECT_EQ(failure.happened() ? "" : row.text, s.c_str()) << row.name;
        }
        EXPECT_GT(failures, 0) << row.name;
    }
}

// The capacity grows by 4 at a time, but not the memory: otherwise appending would
// copy the text a quarter of a million times here.
TEST(share_str, takes_memory_in_doubling_steps)
{
    allocation_failure more_than(18);
    ASSERT_TRUE(more_than.next());
    share_str by_character;
    more_than.arm();
    for (int i = 0; i < 1000000; ++i)
        by_character += 'x';
    more_than.disarm();
    EXPECT_FALSE(more_than.happened());
    EXPECT_EQ(1000000u, by_character.length());
    share_str by_word;
    more_than.arm();
    for (int i = 0; i < 200000; ++i)
        by_word += "words";
    more_than.disarm();
    EXPECT_FALSE(more_than.happened());
    EXPECT_EQ(1000000u, by_word.length());
    share_str by_insertion;
    more_than.arm();
    for (int i = 0; i < 1000; ++i)
        by_insertion.insert(by_insertion.length(), "words");
    more_than.disarm();
    EXPECT_FALSE(more_than.happened());
}

TEST(share_str_without_memory, copies_a_locked_string_as_empty)
{
    allocation_failure failure;
    ASSERT_TRUE(failure.next());
    share_str locked("abc");
    ASSERT_TRUE(locked.lock());
    failure.arm();
    const share_str copy(locked);
    failure.disarm();
    EXPECT_TRUE(failure.happened());
    EXPECT_STREQ("", copy.c_str());
    locked.unlock();
    EXPECT_STREQ("abc", locked.c_str());
}

TEST(share_str_without_memory, keeps_a_locked_string_that_cannot_grow)
{
    allocation_failure failure;
    ASSERT_TRUE(failure.next());
    share_str locked("abc");
    char* const text = locked.lock();
    failure.arm();
    const bool grown = locked.reserved(5000);
    failure.disarm();
    EXPECT_FALSE(grown);
    EXPECT_TRUE(locked.islock());
    EXPECT_EQ(text, locked.c_str());
}

TEST(dynamic_str_without_memory, has_no_buffer)
{
    dynamic_str whole("abc");
    const char* const abc = "abc";
    const std::function<dynamic_str()> makers[] = {
        [&] { return dynamic_str(abc); },
        [&] { return dynamic_str(abc, abc + 2); },
        [&] { return dynamic_str(whole); },
    };
    for (const auto& make : makers) {
        allocation_failure failure;
        ASSERT_TRUE(failure.next());
        failure.arm();
        dynamic_str s = make();
        failure.disarm();
        EXPECT_TRUE(failure.happened());
        EXPECT_EQ(nullptr, s.c_str());
        EXPECT_EQ(0u, s.capacity());
        EXPECT_FALSE(s.copy("a"));
        s.clear();
    }
    whole.clear();
}

// Where the standard library is a shared one whose allocations cannot be reached
// from here, no allocation fails and the first run is the only one.
TEST(string_str_without_memory, never_throws)
{
    struct {
        const char* name;
        std::function<bool(string_str&)> apply;
        std::string after, failed;
        bool done_when_failed;
    } const rows[] = {
        { "assign text", [](string_str& s) { s = long_text.c_str(); return true; }, long_text, "", true },
        { "assign standard string", [](string_str& s) { s = long_text; return true; }, long_text, "", true },
        { "append text", [](string_str& s) { s += long_text.c_str(); return true; }, "abc" + long_text, "abc", true },
        { "append standard string", [](string_str& s) { s += long_text; return true; }, "abc" + long_text, "abc", true },
        { "insert", [](string_str& s) { return s.insert(1, long_text.c_str()); }, "a" + long_text + "bc", "abc", false },
        { "reserved", [](string_str& s) { return s.reserved(5000); }, "abc", "abc", true },
        { "print", [](string_str& s) { s.print("%s", long_text.c_str()); return true; }, long_text.substr(0, 1023), "",
          true },
        { "substr", [](string_str& s) { s += "0123456789012345678901234567890"; s = s.substr(3, 34); return true; },
          "0123456789012345678901234567890", "abc", true },
    };
    for (const auto& row : rows) {
        for (allocation_failure failure; failure.next();) {
            string_str s("abc");
            failure.arm();
            const bool done = row.apply(s);
            failure.disarm();
            const bool emptied = failure.happened() && s.isempty();
            EXPECT_EQ(emptied ? "" : failure.happened() ? row.failed : row.after, s.c_str()) << row.name;
            EXPECT_EQ(!failure.happened() || row.done_when_failed, done) << row.name;
        }
    }
}

TEST(string_str_without_memory, is_constructed_empty)
{
    for (allocation_failure failure; failure.next();) {
        failure.arm();
        const string_str from_text(long_text.c_str());
        const string_str from_range(long_text.data(), long_text.data() + 100);
        const string_str from_standard(long_text);
        const string_str copy(from_standard);
        failure.disarm();
        const std::string texts[] = { from_text.c_str(), from_range.c_str(), from_standard.c_str(), copy.c_str() };
        const std::string whole[] = { long_text, std::string(100, 'x'), long_text, from_standard.c_str() };
        for (int i = 0; i < 4; ++i) {
            const bool failed_here = failure.happened() && texts[i].empty();
            EXPECT_EQ(failed_here ? "" : whole[i], texts[i]) << i;
        }
    }
}

TEST(split_argv_without_memory, is_null)
{
    allocation_failure failure;
    ASSERT_TRUE(failure.next());
    failure.arm();
    char** const argv = str::split_argv("a b", 2);
    failure.disarm();
    EXPECT_EQ(nullptr, argv);
    str::free_argv(argv);
}

// Nothing of this allocates: the same loop would find it out.
TEST(text_functions, take_no_memory)
{
    char text[64];
    unsigned char bytes[64];
    const int numbers[] = { 1, 2, 3 };
    allocation_failure failure;
    ASSERT_TRUE(failure.next());
    failure.arm();
    str::write_base64(text, sizeof text, bytes, 0);
    str::read_base64(bytes, sizeof bytes, "aGVsbG8=", nullptr);
    str::read_hex(bytes, sizeof bytes, "0aFF", nullptr);
    str::write_multi(text, sizeof text, numbers, 3, ',');
    str::write_value(text, sizeof text, "a\"b");
    str::str2num("1.5", nullptr, nullptr);
    str::calc_argv("a \"b c\"", nullptr);
    failure.disarm();
    EXPECT_FALSE(failure.happened());
}

} // namespace
