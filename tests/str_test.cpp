// The text functions of class str.
#include <stdkro/platform_types.h>
#include <stdkro/str.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using bytes = std::vector<unsigned char>;

bytes bytes_of(const std::string& s) { return bytes(s.begin(), s.end()); }

bytes random_bytes(std::mt19937& random, std::size_t n)
{
    bytes b(n);
    for (unsigned char& byte : b)
        byte = static_cast<unsigned char>(random());
    return b;
}

/// A buffer that shows how much of it was written.
struct marked {
    std::vector<char> data;

    explicit marked(std::size_t n) : data(n + 16, '#') {}
    char* text() { return data.data(); }
    unsigned char* raw() { return reinterpret_cast<unsigned char*>(data.data()); }
    std::string first(std::size_t n) const { return std::string(data.data(), n); }
    bool untouched_from(std::size_t n) const
    {
        return std::string(data.data() + n, data.size() - n) == std::string(data.size() - n, '#');
    }
};

// ---- characters, words, paths ------------------------------------------------------

TEST(strword, counts_a_high_byte_and_the_next_as_one_character)
{
    struct {
        const char* text;
        unsigned count;
    } const rows[] = {
        { nullptr, 0 },
        { "", 0 },
        { "abc", 3 },
        { "\xC4\xDA", 1 },
        { "a\xC4\xDA" "b", 3 },
        { "\xC4\xDA\xB2\xBF", 2 },
        { "\x80" "a", 1 },
        { "\x7F" "a", 2 },
        // A high byte may be followed by a plain one.
        { "\xC4" "ab", 2 },
        // Alone at the end it is one character, and nothing behind it is read.
        { "\xC4", 1 },
        { "ab\xC4", 3 },
        { "\xC4\xDA\xFF", 2 },
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.count, str::strword(row.text)) << (row.text ? row.text : "null");
}

TEST(getword, points_at_a_character)
{
    const char text[] = "a\xC4\xDA" "b\xB2\xBF";
    EXPECT_EQ(text, str::getword(text, 0));
    EXPECT_EQ(text + 1, str::getword(text, 1));
    EXPECT_EQ(text + 3, str::getword(text, 2));
    EXPECT_EQ(text + 4, str::getword(text, 3));
    EXPECT_EQ(nullptr, str::getword(text, 4)) << "the end is no character";
    EXPECT_EQ(nullptr, str::getword(text, 5));
    EXPECT_EQ(nullptr, str::getword(text, 0xFFFFFFFF));
    EXPECT_EQ(nullptr, str::getword("", 0));
    EXPECT_EQ(nullptr, str::getword(nullptr, 0));
    const char lone[] = "a\xC4";
    EXPECT_EQ(lone + 1, str::getword(lone, 1));
    EXPECT_EQ(nullptr, str::getword(lone, 2));
}

TEST(zstrlwr, and_zstrupr_convert_in_place)
{
    char text[] = "aBc-12\xC0\xE0";
    EXPECT_EQ(text, str::zstrupr(text));
    EXPECT_STREQ("ABC-12\xC0\xE0", text);
    EXPECT_EQ(text, str::zstrlwr(text));
    EXPECT_STREQ("abc-12\xC0\xE0", text);
    EXPECT_EQ(nullptr, str::zstrlwr(nullptr));
    EXPECT_EQ(nullptr, str::zstrupr(nullptr));
}

TEST(split_path, gives_name_and_extension_of_the_last_component)
{
    struct {
        const char* path;
        const char* name;
        const char* ext;
    } const rows[] = {
        { "/usr/lib/libkrodll.so", "libkrodll", ".so" },
        { "C:\\Program Files\\kro.exe", "kro", ".exe" },
        { "a/b\\c.d", "c", ".d" },
        { "a\\b/c.d", "c", ".d" },
        { "name.ext", "name", ".ext" },
        { "name", "name", "" },
        { "", "", "" },
        { "/", "", "" },
        { "dir/", "", "" },
        { "dir.d/", "", "" },
        // The last point counts, and only behind the last separator.
        { "archive.tar.gz", "archive.tar", ".gz" },
        { "dir.d/name", "name", "" },
        { "dir.d\\name", "name", "" },
        { "name.", "name", "." },
        // A name is never empty.
        { ".profile", ".profile", "" },
        { "/home/.profile", ".profile", "" },
        { ".", ".", "" },
        { "..", ".", "." },
        { ".a.b", ".a", ".b" },
    };
    for (const auto& row : rows) {
        char name[64];
        char ext[64];
        str::split_path(row.path, name, ext);
        EXPECT_STREQ(row.name, name) << row.path;
        EXPECT_STREQ(row.ext, ext) << row.path;
        std::strcpy(name, "?");
        str::split_path(row.path, name, nullptr);
        EXPECT_STREQ(row.name, name) << row.path;
        std::strcpy(ext, "?");
        str::split_path(row.path, nullptr, ext);
        EXPECT_STREQ(row.ext, ext) << row.path;
        str::split_path(row.path, nullptr, nullptr);
    }
}

TEST(read_para, copies_the_next_run)
{
    struct {
        const char* text;
        unsigned n;
        const char* run;
        int stop;
        bool terminated;
    } const rows[] = {
        { "abc def", 10, "abc", 3, true },
        { " \t\r\n\v\fabc", 10, "abc", 9, true },
        { "abc", 4, "abc", 3, true },
        // Terminated only when fewer than n were copied.
        { "abc", 3, "abc", 3, false },
        { "abcdef", 3, "abc", 3, false },
        { "  abcdef", 2, "ab", 4, false },
        { "", 4, "", 0, true },
        { "   ", 4, "", 3, true },
        { "  abc", 0, "", 2, false },
        { "\xC4\xDA \xB2", 9, "\xC4\xDA", 2, true },
    };
    for (const auto& row : rows) {
        marked to(16);
        EXPECT_EQ(row.text + row.stop, str::read_para(to.text(), row.n, row.text)) << row.text;
        const std::size_t length = std::strlen(row.run);
        EXPECT_EQ(row.run, to.first(length)) << row.text;
        EXPECT_EQ(row.terminated ? '\0' : '#', to.data[length]) << row.text;
        EXPECT_TRUE(to.untouched_from(length + 1)) << row.text;
    }
}

TEST(nstrcpy, always_terminates)
{
    for (unsigned n = 0; n < 8; ++n) {
        marked to(8);
        str::nstrcpy(to.text(), n, "abcd");
        EXPECT_TRUE(to.untouched_from(n)) << n;
        if (n == 0)
            continue;
        EXPECT_EQ(std::string("abcd").substr(0, n - 1), to.text()) << n;
        EXPECT_EQ('\0', to.data[n - 1]) << n;
    }
}

TEST(nstrcmp, orders_a_text_and_a_range)
{
    struct {
        const char* text;
        const char* range;
        int sign, sign_without_case;
    } const rows[] = {
        { "", "", 0, 0 },      { "abc", "abc", 0, 0 }, { "abc", "abd", -1, -1 }, { "abd", "abc", 1, 1 },
        { "ab", "abc", -1, -1 }, { "abc", "ab", 1, 1 }, { "", "a", -1, -1 },      { "a", "", 1, 1 },
        { "abc", "ABC", 1, 0 }, { "ABC", "abc", -1, 0 }, { "Abd", "aBC", -1, 1 },
        // Bytes are unsigned.
        { "\x7F", "\x80", -1, -1 }, { "\xFF", "a", 1, 1 },
    };
    const auto sign = [](int n) { return (n > 0) - (n < 0); };
    for (const auto& row : rows) {
        const std::string range = std::string(row.range) + "tail";
        const char* const b = range.c_str();
        const char* const e = b + std::strlen(row.range);
        EXPECT_EQ(row.sign, sign(str::nstrcmp(row.text, b, e))) << row.text << " " << row.range;
        EXPECT_EQ(row.sign, sign(std::strcmp(row.text, row.range))) << row.text << " " << row.range;
        EXPECT_EQ(row.sign_without_case, sign(str::nstricmp(row.text, b, e))) << row.text << " " << row.range;
    }
    const char with_nul[] = { 'a', '\0', 'b' };
    EXPECT_EQ(-1, sign(str::nstrcmp("a", with_nul, with_nul + 3)));
}

// ---- hexadecimal ----------------------------------------------------------------------

TEST(read_hex, reads_pairs_with_white_space_between)
{
    struct {
        const char* text;
        unsigned n;
        std::string data;
        int stop;
    } const rows[] = {
        { " 0a FF zz", 9, "\x0A\xFF", 7 },
        { "0aFF", 9, "\x0A\xFF", 4 },
        { "", 9, "", 0 },
        { "  ", 9, "", 2 },
        { "aBcD", 9, "\xAB\xCD", 4 },
        { "0123456789abcdefABCDEF", 99, "\x01\x23\x45\x67\x89\xAB\xCD\xEF\xAB\xCD\xEF", 22 },
        // The first that is no pair ends it.
        { "0ag1", 9, "\x0A", 2 },
        { "0a f", 9, "\x0A", 3 },
        { "0a f g", 9, "\x0A", 3 },
        { "1", 9, "", 0 },
        { "1 2", 9, "", 0 },
        { "0x12", 9, "", 0 },
        { "\xB0\xB1", 9, "", 0 },
        // So does a full destination, behind white space.
        { "0a FF 11", 2, "\x0A\xFF", 6 },
        { "0aFF11", 2, "\x0A\xFF", 4 },
        { " 0a", 0, "", 1 },
        { "12\t\n\r\v\f34", 9, "\x12\x34", 9 },
    };
    for (const auto& row : rows) {
        marked to(100);
        const char* end = nullptr;
        EXPECT_EQ(static_cast<int>(row.data.size()), str::read_hex(to.raw(), row.n, row.text, &end)) << row.text;
        EXPECT_EQ(row.text + row.stop, end) << row.text;
        EXPECT_EQ(row.data, to.first(row.data.size())) << row.text;
        EXPECT_TRUE(to.untouched_from(row.data.size())) << row.text;
        EXPECT_EQ(static_cast<int>(row.data.size()), str::read_hex(to.raw(), row.n, row.text, nullptr));
    }
}

TEST(read_hex, without_a_destination_only_finds_the_end)
{
    const char text[] = " 0a FF 11 zz";
    const char* end = nullptr;
    EXPECT_EQ(0, str::read_hex(nullptr, 2, text, &end)) << "no count in this form";
    EXPECT_EQ(text + 10, end);
    EXPECT_EQ(0, str::read_hex(nullptr, 0, text, nullptr));
}

TEST(write_hex, writes_upper_case_digits)
{
    const unsigned char data[] = { 0x0A, 0xFF, 0x12 };
    struct {
        unsigned n, len;
        const char* text;
    } const rows[] = {
        { 6, 3, "0AFF12" }, { 9, 3, "0AFF12" }, { 4, 2, "0AFF" },
        // An odd room ends with a lone high nibble.
        { 3, 2, "0AF" },    { 5, 3, "0AFF1" },  { 1, 1, "0" },   { 2, 3, "0A" },
        { 0, 3, "" },       { 9, 0, "" },
    };
    for (const auto& row : rows) {
        marked to(16);
        const std::size_t length = std::strlen(row.text);
        EXPECT_EQ(static_cast<int>(length), str::write_hex(to.text(), row.n, data, row.len)) << row.n;
        EXPECT_EQ(row.text, to.first(length)) << row.n;
        EXPECT_TRUE(to.untouched_from(length)) << row.n << ": no terminator";
    }
    EXPECT_EQ(6, str::write_hex(nullptr, 0, data, 3));
    EXPECT_EQ(0, str::write_hex(nullptr, 0, data, 0));
    EXPECT_EQ(0x7FFFFFFF, str::write_hex(nullptr, 0, data, 0xFFFFFFFF)) << "lengths saturate";
}

TEST(hex, survives_a_round_trip)
{
    std::mt19937 random(1);
    for (std::size_t n = 0; n < 300; ++n) {
        const bytes data = random_bytes(random, n);
        std::string text(2 * n, '?');
        EXPECT_EQ(static_cast<int>(2 * n), str::write_hex(&text[0], static_cast<unsigned>(2 * n), data.data(), static_cast<unsigned>(n)));
        std::string expected;
        for (unsigned char byte : data) {
            char pair[3];
            std::snprintf(pair, sizeof pair, "%02X", byte);
            expected += pair;
        }
        ASSERT_EQ(expected, text);
        bytes back(n + 1);
        const char* end;
        ASSERT_EQ(static_cast<int>(n), str::read_hex(back.data(), static_cast<unsigned>(n) + 1, text.c_str(), &end));
        EXPECT_EQ('\0', *end);
        back.resize(n);
        ASSERT_EQ(data, back);
    }
}

// ---- base64 -------------------------------------------------------------------------------

const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Bit by bit, as the definition has it.
std::string naive_base64(const bytes& data)
{
    std::string text;
    for (std::size_t bit = 0; bit < data.size() * 8; bit += 6) {
        unsigned digit = 0;
        for (std::size_t i = bit; i < bit + 6; ++i)
            digit = digit << 1 | (i / 8 < data.size() ? data[i / 8] >> (7 - i % 8) & 1u : 0u);
        text += alphabet[digit];
    }
    while (text.size() % 4)
        text += '=';
    return text;
}

TEST(write_base64, writes_the_known_examples)
{
    const char* const rows[][2] = { { "", "" },           { "f", "Zg==" },       { "fo", "Zm8=" },
                                    { "foo", "Zm9v" },     { "foob", "Zm9vYg==" }, { "fooba", "Zm9vYmE=" },
                                    { "foobar", "Zm9vYmFy" }, { "hello", "aGVsbG8=" } };
    for (const auto& row : rows) {
        const bytes data = bytes_of(row[0]);
        const std::string text = row[1];
        const auto length = static_cast<unsigned>(data.size());
        marked to(32);
        EXPECT_EQ(static_cast<int>(text.size()), str::write_base64(to.text(), 32, data.data(), length)) << row[0];
        EXPECT_EQ(text, to.first(text.size()));
        EXPECT_TRUE(to.untouched_from(text.size())) << "no terminator";
        EXPECT_EQ(static_cast<int>(text.size()), str::write_base64(nullptr, 0, data.data(), length));
        EXPECT_EQ(text, naive_base64(data));
    }
    EXPECT_EQ(0x7FFFFFFF, str::write_base64(nullptr, 0, nullptr, 0xFFFFFFFF)) << "lengths saturate";
}

TEST(write_base64, writes_whole_groups_as_long_as_they_fit)
{
    const unsigned char data[] = "abcdefgh";
    for (unsigned len = 0; len <= 8; ++len) {
        const std::string whole = naive_base64(bytes(data, data + len));
        for (unsigned n = 0; n <= 16; ++n) {
            marked to(32);
            const std::string expected = whole.substr(0, n / 4 * 4);
            EXPECT_EQ(static_cast<int>(expected.size()), str::write_base64(to.text(), n, data, len)) << len << " " << n;
            EXPECT_EQ(expected, to.first(expected.size())) << len << " " << n;
            EXPECT_TRUE(to.untouched_from(expected.size())) << len << " " << n;
        }
    }
}

TEST(read_base64, reads_the_longest_run)
{
    struct {
        const char* text;
        int size;
        int stop;
        const char* data;
    } const rows[] = {
        { "aGVsbG8=", 5, 7, "hello" },
        { "aGVsbG8", 5, 7, "hello" },
        { "Zg==", 1, 2, "f" },
        { "Zm8=", 2, 3, "fo" },
        { "Zm9v", 3, 4, "foo" },
        { "", 0, 0, "" },
        { "=", 0, 0, "" },
        { "Zm9v YmFy", 3, 4, "foo" },
        { "Zm9v\nYmFy", 3, 4, "foo" },
        { "Zm9v-", 3, 4, "foo" },
        { "Zm9v\xFF", 3, 4, "foo" },
        { "Zm=9v", 1, 2, "f" },
        { "++//", 3, 4, "\xFB\xEF\xFF" },
        // A remainder of one counts no byte.
        { "Zm9vY", 3, 5, "foo" },
        { "Y", 0, 1, "" },
    };
    for (const auto& row : rows) {
        const char* end = nullptr;
        EXPECT_EQ(row.size, str::read_base64(nullptr, 0, row.text, &end)) << row.text;
        EXPECT_EQ(row.text + row.stop, end) << row.text;
        const auto size = static_cast<unsigned>(row.size);
        marked to(32);
        end = nullptr;
        EXPECT_EQ(row.size, str::read_base64(to.raw(), size, row.text, &end)) << row.text;
        EXPECT_EQ(row.text + row.stop, end) << row.text;
        EXPECT_EQ(std::string(row.data, size), to.first(size)) << row.text;
        EXPECT_TRUE(to.untouched_from(size)) << row.text;
        EXPECT_EQ(row.size, str::read_base64(to.raw(), size, row.text, nullptr));
    }
}

TEST(read_base64, writes_the_byte_of_a_lone_remainder_behind_the_decoded_size)
{
    struct {
        const char* text;
        unsigned n;
        int size;
        std::string data;
    } const rows[] = {
        { "Y", 0, 0, "" },           { "Y", 1, 0, "\x60" },         { "Y", 9, 0, "\x60" },
        { "Zm9vY", 3, 3, "foo" },    { "Zm9vY", 4, 3, "foo\x60" },  { "Zm9v/", 4, 3, "foo\xFC" },
    };
    for (const auto& row : rows) {
        marked to(16);
        EXPECT_EQ(row.size, str::read_base64(to.raw(), row.n, row.text, nullptr)) << row.text << row.n;
        EXPECT_EQ(row.data, to.first(row.data.size())) << row.text << row.n;
        EXPECT_TRUE(to.untouched_from(row.data.size())) << row.text << row.n;
    }
}

TEST(read_base64, writes_whole_groups_when_not_all_fits)
{
    const std::string whole = "foobarba";
    const char text[] = "Zm9vYmFyYmE=";
    for (unsigned n = 0; n < 8; ++n) {
        marked to(16);
        const char* end;
        EXPECT_EQ(8, str::read_base64(to.raw(), n, text, &end)) << "always the size of the whole run";
        EXPECT_EQ(text + 11, end);
        EXPECT_EQ(whole.substr(0, n / 3 * 3), to.first(n / 3 * 3)) << n;
        EXPECT_TRUE(to.untouched_from(n / 3 * 3)) << n;
    }
}

TEST(read_base64, knows_the_64_characters_only)
{
    for (unsigned c = 1; c < 256; ++c) {
        const char text[] = { static_cast<char>(c), '\0' };
        const char* end;
        str::read_base64(nullptr, 0, text, &end);
        EXPECT_EQ(std::strchr(alphabet, static_cast<int>(c)) ? 1 : 0, end - text) << c;
    }
}

TEST(base64, survives_a_round_trip)
{
    std::mt19937 random(2);
    for (std::size_t n = 0; n < 300; ++n) {
        const bytes data = random_bytes(random, n);
        std::string text((n + 2) / 3 * 4, '?');
        const auto room = static_cast<unsigned>(text.size());
        ASSERT_EQ(static_cast<int>(room), str::write_base64(&text[0], room, data.data(), static_cast<unsigned>(n)));
        ASSERT_EQ(naive_base64(data), text);
        bytes back(n);
        ASSERT_EQ(static_cast<int>(n), str::read_base64(back.data(), static_cast<unsigned>(n), text.c_str(), nullptr));
        ASSERT_EQ(data, back);
    }
}

// ---- quoting ----------------------------------------------------------------------------------

TEST(to_single, escapes_six_bytes_and_leaves_the_others)
{
    for (unsigned c = 0; c < 256; ++c) {
        std::string expected(1, static_cast<char>(c));
        switch (c) {
        case 0: expected = ""; break;
        case 9: expected = "\\t"; break;
        case 10: expected = "\\n"; break;
        case 13: expected = "\\r"; break;
        case '"': expected = "\\\""; break;
        case '\\': expected = "\\\\"; break;
        default: break;
        }
        EXPECT_EQ(expected, str::to_single(static_cast<unsigned char>(c))) << c;
    }
}

TEST(write_quote, writes_escapes_and_a_terminator)
{
    struct {
        const char* text;
        const char* quoted;
    } const rows[] = {
        { "", "" }, { "abc", "abc" }, { "a\"b", "a\\\"b" }, { "\t\n\r\"\\", "\\t\\n\\r\\\"\\\\" },
        { "\xC4\xDA\x01", "\xC4\xDA\x01" },
    };
    for (const auto& row : rows) {
        const std::string quoted = row.quoted;
        const int length = static_cast<int>(quoted.size());
        EXPECT_EQ(length, str::write_quote(nullptr, 0, row.text));
        EXPECT_EQ(length, str::write_triple(nullptr, 0, row.text));
        EXPECT_EQ(quoted, str::write_quote(row.text).c_str());
        EXPECT_EQ(length + 2, str::write_value(nullptr, 0, row.text));
        for (unsigned n = 0; n < quoted.size() + 6; ++n) {
            // Each needs room for its terminator.
            marked to(32);
            const bool fits = n > quoted.size();
            EXPECT_EQ(fits ? length : -1, str::write_quote(to.text(), n, row.text)) << quoted << " " << n;
            EXPECT_TRUE(to.untouched_from(n)) << quoted << " " << n;
            if (fits) {
                EXPECT_STREQ(row.quoted, to.text());
            }
            marked triple(32);
            EXPECT_EQ(fits ? length : -1, str::write_triple(triple.text(), n, row.text));
            EXPECT_EQ(to.data, triple.data);

            marked value(32);
            const bool value_fits = n > quoted.size() + 2;
            EXPECT_EQ(value_fits ? length + 2 : -1, str::write_value(value.text(), n, row.text)) << quoted << " " << n;
            EXPECT_TRUE(value.untouched_from(n)) << quoted << " " << n;
            if (value_fits) {
                EXPECT_EQ("\"" + quoted + "\"", value.text());
            }
            marked shared(32);
            EXPECT_EQ(value_fits ? length + 2 : -1, str::write_value(shared.text(), n, share_str(row.text)));
            EXPECT_EQ(value.data, shared.data);
        }
    }
}

TEST(write_quote, into_a_string_has_any_length)
{
    EXPECT_GE(str::write_quote("abc").capacity(), 256u);
    const std::string text(10000, '"');
    std::string expected;
    for (int i = 0; i < 10000; ++i)
        expected += "\\\"";
    EXPECT_EQ(expected, str::write_quote(text.c_str()).c_str());
}

TEST(skip_value, finds_the_end_of_a_value)
{
    struct {
        const char* text;
        int stop;
    } const rows[] = {
        { "abc,d", 3 },  { "abc;d", 3 },   { "abc d", 3 },     { "abc\td", 3 },  { "abc", 3 },       { "", 0 },
        { ",", 0 },      { "a\"b,c", 3 },  { "\"abc\",d", 5 }, { "\"a,;b\"", 6 }, { "\"\"x", 2 },
        { "\"a\\\"b\"c", 6 }, { "\"a\\\\\"c", 5 },
        // A quote that is not closed ends with the text.
        { "\"abc", 4 },  { "\"", 1 },      { "\"a\\", 3 },     { "\"a\\\"", 4 },
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.text + row.stop, str::skip_value(row.text)) << row.text;
}

TEST(skip_value, ends_what_write_value_wrote)
{
    std::mt19937 random(3);
    const char letters[] = "ab\"\\\n\t ,;\xC4";
    for (int i = 0; i < 500; ++i) {
        std::string text;
        for (auto n = random() % 20; n; --n)
            text += letters[random() % (sizeof letters - 1)];
        char value[64];
        const int length = str::write_value(value, sizeof value - 4, text.c_str());
        ASSERT_GT(length, 0);
        std::strcpy(value + length, "\",x");
        EXPECT_EQ(value + length, str::skip_value(value)) << value;
    }
}

// ---- numbers ------------------------------------------------------------------------------------

TEST(write_multi, lists_ints)
{
    const int numbers[] = { 1, -23, 0, 2147483647, -2147483647 - 1 };
    struct {
        unsigned n, count;
        char sep;
        int result;
        const char* text;
    } const rows[] = {
        { 64, 5, ',', 30, "1,-23,0,2147483647,-2147483648" },
        { 64, 1, ',', 1, "1" },
        { 64, 3, '\0', 5, "1-230" },
        { 64, 3, ' ', 7, "1 -23 0" },
        // The separator is a plain character.
        { 64, 2, '%', 5, "1%-23" },
        { 31, 5, ',', 30, "1,-23,0,2147483647,-2147483648" },
        // Text that does not fit is cut and terminated, and the result counts
        // the whole numbers before the cut.
        { 30, 5, ',', -19, "1,-23,0,2147483647,-214748364" },
        { 20, 5, ',', -19, "1,-23,0,2147483647," },
        { 19, 5, ',', -8, "1,-23,0,2147483647" },
        { 7, 2, ',', 5, "1,-23" },
        { 6, 2, ',', 5, "1,-23" },
        { 5, 2, ',', -2, "1,-2" },
        { 2, 2, ',', 0, "1" },
        { 1, 2, ',', 0, "" },
    };
    for (const auto& row : rows) {
        marked to(64);
        EXPECT_EQ(row.result, str::write_multi(to.text(), row.n, numbers, row.count, row.sep)) << row.n;
        EXPECT_STREQ(row.text, to.text()) << row.n;
        EXPECT_TRUE(to.untouched_from(std::strlen(row.text) + 1)) << row.n;
    }
    marked to(8);
    EXPECT_EQ(0, str::write_multi(to.text(), 8, numbers, 0, ','));
    EXPECT_TRUE(to.untouched_from(0)) << "no numbers, no text";
    EXPECT_EQ(0, str::write_multi(to.text(), 0, numbers, 2, ','));
    EXPECT_TRUE(to.untouched_from(0));
    EXPECT_EQ(0, str::write_multi(nullptr, 0, numbers, 2, ','));
}

TEST(write_multi, lists_doubles_by_a_format)
{
    const double numbers[] = { 1.5, -0.25, 1e10 };
    char text[64];
    EXPECT_EQ(15, str::write_multi(text, sizeof text, numbers, 3, "%g", ','));
    EXPECT_STREQ("1.5,-0.25,1e+10", text);
    EXPECT_EQ(10, str::write_multi(text, sizeof text, numbers, 2, "%.2f", ' '));
    EXPECT_STREQ("1.50 -0.25", text);
    struct {
        unsigned n;
        int result;
        const char* text;
    } const rows[] = { { 16, 15, "1.5,-0.25,1e+10" }, { 15, -10, "1.5,-0.25,1e+1" }, { 10, -4, "1.5,-0.25" },
                       { 9, -4, "1.5,-0.2" },         { 4, 0, "1.5" },               { 3, 0, "1." } };
    for (const auto& row : rows) {
        EXPECT_EQ(row.result, str::write_multi(text, row.n, numbers, 3, "%g", ',')) << row.n;
        EXPECT_STREQ(row.text, text) << row.n;
    }
    EXPECT_EQ(0, str::write_multi(text, sizeof text, numbers, 0, "%g", ','));
}

TEST(str2int, reads_c_style_integers)
{
    struct {
        const char* text;
        long value;
        int stop;
    } const rows[] = {
        { "0x1F", 31, 4 }, { "0X1f", 31, 4 }, { "017", 15, 3 }, { "0", 0, 1 }, { "42", 42, 2 }, { "-42", -42, 3 },
        { "+42", 42, 3 }, { " \t42", 42, 4 }, { "42abc", 42, 2 }, { "", 0, 0 }, { "abc", 0, 0 }, { "-", 0, 0 },
        { "  ", 0, 0 },
        // Digits end a number that are not of its radix.
        { "0x1G", 1, 3 }, { "018", 1, 2 }, { "08", 0, 1 }, { "09", 0, 1 }, { "0a", 0, 1 },
        // A prefix needs a digit.
        { "0x", 0, 1 }, { "0xg", 0, 1 }, { "0x-1", 0, 1 }, { "0x 1", 0, 1 },
        // Signs and white space belong to decimal numbers only.
        { "-0x10", 0, 2 }, { " 017", 17, 4 }, { "-017", -17, 4 },
        // Values outside 32 bits become the nearest one inside.
        { "2147483647", 2147483647L, 10 }, { "2147483648", 2147483647L, 10 }, { "99999999999999999999", 2147483647L, 20 },
        { "-2147483648", -2147483647L - 1, 11 }, { "-99999999999999999999", -2147483647L - 1, 21 },
        { "0x7FFFFFFF", 2147483647L, 10 }, { "0xFFFFFFFF", 2147483647L, 10 }, { "037777777777", 2147483647L, 12 },
    };
    for (const auto& row : rows) {
        const char* end = nullptr;
        EXPECT_EQ(row.value, str::str2int(row.text, &end)) << row.text;
        EXPECT_EQ(row.text + row.stop, end) << row.text;
        EXPECT_EQ(row.value, str::str2int(row.text, nullptr)) << row.text;
    }
}

TEST(str2num, reads_a_number_and_tells_its_radix)
{
    struct {
        const char* text;
        double value;
        int radix, stop;
    } const rows[] = {
        { "0x1F", 31, 16, 4 }, { "0X1f", 31, 16, 4 }, { "017", 15, 8, 3 }, { "42", 42, 10, 2 }, { "-42", -42, 10, 3 },
        { "0", 0, 10, 1 }, { "0x", 0, 16, 1 }, { "08", 0, 8, 1 },
        // A "." behind the integer makes it floating-point.
        { "1.5", 1.5, 0, 3 }, { "-1.5", -1.5, 0, 4 }, { "0.5", 0.5, 0, 3 }, { ".5", 0.5, 0, 2 }, { "-.5", -0.5, 0, 3 },
        { "5.", 5, 0, 2 }, { " 2.25x", 2.25, 0, 5 }, { "1.5e2", 150, 0, 5 }, { "1.5e", 1.5, 0, 3 }, { "1.e2", 100, 0, 4 },
        { "9999999999.0", 9999999999.0, 0, 12 },
        // And nothing else does.
        { "1e5", 1, 10, 1 }, { "0x1.8", 1, 16, 3 }, { "017.5", 15, 8, 3 }, { "1 .5", 1, 10, 1 },
        { "9999999999", 2147483647, 10, 10 }, { "0xFFFFFFFF", 2147483647, 16, 10 },
        { "", 0, 10, 0 }, { ".", 0, 10, 0 }, { "-.", 0, 10, 0 }, { "abc", 0, 10, 0 },
        { "inf", 0, 10, 0 }, { "nan", 0, 10, 0 }, { "1.#INF", 1, 0, 2 }, { "1,5", 1, 10, 1 },
    };
    for (const auto& row : rows) {
        const char* end = nullptr;
        int radix = -1;
        EXPECT_EQ(row.value, str::str2num(row.text, &end, &radix)) << row.text;
        EXPECT_EQ(row.text + row.stop, end) << row.text;
        EXPECT_EQ(row.radix, radix) << row.text;
        EXPECT_EQ(row.value, str::str2num(row.text, nullptr, nullptr)) << row.text;
    }
}

TEST(read_int, reads_the_whole_text)
{
    struct {
        const char* text;
        int value;
    } const rows[] = { { "42", 42 },  { "-42", -42 }, { "+42", 42 }, { " 42", 42 }, { "017", 17 },
                       { "9999999999", 2147483647 },  { "-9999999999", -2147483647 - 1 },
                       { nullptr, 7 }, { "", 7 },     { "42 ", 7 },  { "42x", 7 },  { "x", 7 },
                       { "0x1F", 7 },  { "4.2", 7 },  { " ", 7 },    { "-", 7 } };
    for (const auto& row : rows)
        EXPECT_EQ(row.value, str::read_int(row.text, 7)) << (row.text ? row.text : "null");
}

TEST(read_double, reads_the_whole_text)
{
    struct {
        const char* text;
        double value;
    } const rows[] = { { "1.5", 1.5 },  { "-1.5", -1.5 }, { "+1.5", 1.5 }, { " 1.5", 1.5 }, { "42", 42 },
                       { ".5", 0.5 },   { "5.", 5 },      { "1e3", 1000 }, { "1E-2", 0.01 }, { "017", 17 },
                       { "1e999", HUGE_VAL }, { "-1e999", -HUGE_VAL },     { "1e-999", 0 },
                       { nullptr, 7 },  { "", 7 },        { "1.5 ", 7 },   { "1.5x", 7 },   { "x", 7 },
                       { "0x1F", 7 },   { "inf", 7 },     { "nan", 7 },    { "1,5", 7 },    { ".", 7 },
                       { "e5", 7 },     { "1e", 7 },      { "--1", 7 } };
    for (const auto& row : rows)
        EXPECT_EQ(row.value, str::read_double(row.text, 7)) << (row.text ? row.text : "null");
}

TEST(numbers, do_not_follow_the_locale)
{
    // Those that the system has: "C" always.
    for (const char* name : { "C", "de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "German", "de-DE" }) {
        if (!std::setlocale(LC_NUMERIC, name))
            continue;
        const double numbers[] = { 1.5, 2.5 };
        char text[32];
        const int length = str::write_multi(text, sizeof text, numbers, 2, "%g", ';');
        const double read = str::read_double("1.5", 0);
        std::setlocale(LC_NUMERIC, "C");
        EXPECT_EQ(7, length) << name;
        EXPECT_STREQ("1.5;2.5", text) << name;
        EXPECT_EQ(1.5, read) << name;
    }
}

unsigned address_of(const in_addr& address)
{
    unsigned char b[4];
    std::memcpy(b, &address, sizeof b);
    return static_cast<unsigned>(b[0]) << 24 | static_cast<unsigned>(b[1] << 16 | b[2] << 8 | b[3]);
}

TEST(read_value_of_an_address, takes_digits_and_points)
{
    struct {
        const char* text;
        unsigned address;
        int stop;
    } const rows[] = {
        { "127.0.0.1", 0x7F000001, 9 },
        { "192.168.10.255:80", 0xC0A80AFF, 14 },
        { "0.0.0.0", 0, 7 },
        { "255.255.255.255", 0xFFFFFFFF, 15 },
        // The standard conversion: fewer parts, and octal ones.
        { "1", 1, 1 },
        { "4294967295", 0xFFFFFFFF, 10 },
        { "1.2", 0x01000002, 3 },
        { "1.16777215", 0x01FFFFFF, 10 },
        { "1.2.3", 0x01020003, 5 },
        { "1.2.65535", 0x0102FFFF, 9 },
        { "010.1.1.1", 0x08010101, 9 },
        // What is no address gives all ones, the position is behind what was taken.
        { "", 0xFFFFFFFF, 0 },
        { "abc", 0xFFFFFFFF, 0 },
        { " 1.2.3.4", 0xFFFFFFFF, 0 },
        { "256.1.1.1", 0xFFFFFFFF, 9 },
        { "1.2.3.256", 0xFFFFFFFF, 9 },
        { "1.2.65536", 0xFFFFFFFF, 9 },
        { "1.16777216", 0xFFFFFFFF, 10 },
        { "4294967296", 0xFFFFFFFF, 10 },
        { "1.2.3.4.5", 0xFFFFFFFF, 9 },
        { "1.2.3.4.", 0xFFFFFFFF, 8 },
        { "1..2.3", 0xFFFFFFFF, 6 },
        { ".1.2.3", 0xFFFFFFFF, 6 },
        { "...", 0xFFFFFFFF, 3 },
        { "08.1.1.1", 0xFFFFFFFF, 8 },
        // At most 15 bytes.
        { "255.255.255.2551", 0xFFFFFFFF, 15 },
        { "192.168.100.1001", 0xC0A86464, 15 },
    };
    for (const auto& row : rows) {
        in_addr address;
        EXPECT_EQ(row.text + row.stop, str::read_value(row.text, address)) << row.text;
        EXPECT_EQ(row.address, address_of(address)) << row.text;
    }
}

// ---- command lines ----------------------------------------------------------------------------------

std::string joined(const char* line)
{
    const int count = str::calc_argv(line, nullptr);
    char** const argv = str::split_argv(line, count);
    std::string text;
    for (int i = 0; i < count; ++i)
        text += std::string("[") + argv[i] + "]";
    EXPECT_EQ(nullptr, argv[count]);
    str::free_argv(argv);
    return text;
}

TEST(argv, is_split_at_white_space_and_grouped_by_quotes)
{
    struct {
        const char* line;
        int count;
        const char* arguments;
    } const rows[] = {
        { "", 0, "" },
        { " \t\r\n\v\f", 0, "" },
        { "a", 1, "[a]" },
        { "one two  three ", 3, "[one][two][three]" },
        { "\ta\nb\rc", 3, "[a][b][c]" },
        { "\"a b\" c", 2, "[a b][c]" },
        { "a\" \"b", 1, "[a b]" },
        { "a\"b c\"d\"e f\"", 1, "[ab cde f]" },
        // Empty quotes are an empty argument.
        { "\"\"", 1, "[]" },
        { "a \"\" b", 3, "[a][][b]" },
        { "a\"\"b", 1, "[ab]" },
        // Inside quotes a backslash takes the next byte; outside it is a byte.
        { "\"a\\\"b\"", 1, "[a\"b]" },
        { "\"a\\\\\" b", 2, "[a\\][b]" },
        { "\"\\n\"", 1, "[n]" },
        { "a\\ b", 2, "[a\\][b]" },
        { "C:\\dir\\file", 1, "[C:\\dir\\file]" },
        { "a\\\"b c\"", 1, "[a\\b c]" },
        { "'a b'", 2, "['a][b']" },
        // Bytes of 128 and more are ordinary.
        { "\xC4\xDA \xB2\xA0\xBF", 2, "[\xC4\xDA][\xB2\xA0\xBF]" },
    };
    for (const auto& row : rows) {
        const char* end = nullptr;
        EXPECT_EQ(row.count, str::calc_argv(row.line, &end)) << row.line;
        EXPECT_EQ(row.line + std::strlen(row.line), end) << row.line;
        EXPECT_EQ(row.arguments, joined(row.line)) << row.line;
    }
}

TEST(argv, needs_its_quotes_closed)
{
    struct {
        const char* line;
        int stop;
    } const rows[] = { { "\"", 0 },          { "a \"b", 2 },   { "a\"b c", 1 }, { "\"a\" b\"c\" d\"", 10 },
                       { "\"a\\\"", 0 },     { "\"a\\", 0 },   { "a \"b\\\\\\\"", 2 } };
    for (const auto& row : rows) {
        const char* end = nullptr;
        EXPECT_EQ(err::syntax, str::calc_argv(row.line, &end)) << row.line;
        EXPECT_EQ(row.line + row.stop, end) << row.line << ": at the quote";
        EXPECT_LT(str::calc_argv(row.line, nullptr), 0);
        char** const argv = str::split_argv(row.line, 3);
        ASSERT_NE(nullptr, argv);
        str::free_argv(argv);
    }
}

TEST(split_argv, gives_as_many_as_it_is_asked_for)
{
    char** argv = str::split_argv("a b c", 2);
    EXPECT_STREQ("a", argv[0]);
    EXPECT_STREQ("b", argv[1]);
    EXPECT_EQ(nullptr, argv[2]);
    str::free_argv(argv);
    argv = str::split_argv("a", 3);
    EXPECT_STREQ("a", argv[0]);
    for (int i = 1; i <= 3; ++i)
        EXPECT_EQ(nullptr, argv[i]);
    str::free_argv(argv);
    argv = str::split_argv("a b", 0);
    EXPECT_EQ(nullptr, argv[0]);
    str::free_argv(argv);
    argv = str::split_argv("a", 1000000);
    EXPECT_STREQ("a", argv[0]);
    EXPECT_EQ(nullptr, argv[1]);
    EXPECT_EQ(nullptr, argv[1000000]);
    str::free_argv(argv);
    EXPECT_EQ(nullptr, str::split_argv("a", -1));
    EXPECT_EQ(nullptr, str::split_argv("a", err::syntax));
    str::free_argv(nullptr);
}

TEST(split_argv, gives_back_what_was_quoted)
{
    std::mt19937 random(4);
    const char letters[] = "ab \t\"\\\xC4";
    for (int round = 0; round < 300; ++round) {
        std::vector<std::string> arguments(random() % 6);
        std::string line;
        for (std::string& argument : arguments) {
            line += " \"";
            for (auto n = random() % 10; n; --n) {
                const char c = letters[random() % (sizeof letters - 1)];
                argument += c;
                if (c == '"' || c == '\\')
                    line += '\\';
                line += c;
            }
            line += "\"";
        }
        const int count = static_cast<int>(arguments.size());
        ASSERT_EQ(count, str::calc_argv(line.c_str(), nullptr)) << line;
        char** const argv = str::split_argv(line.c_str(), count);
        for (std::size_t i = 0; i < arguments.size(); ++i)
            EXPECT_EQ(arguments[i], argv[i]) << line;
        str::free_argv(argv);
    }
}

} // namespace
