// The character source, and the loads.
#include <stdkro/base_lexer.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

namespace {

// A reader whose do_load can be told what to answer.
struct probe : reader {
    int answer = 0;
    int loads = 0;

protected:
    int do_load() override
    {
        ++loads;
        return answer;
    }
};

std::string rest(reader& r)
{
    std::string text(r.get_cur(), r.get_eof());
    return text;
}

void load(reader& r, const std::string& text) { ASSERT_EQ(r.load_string(text.data(), text.data() + text.size(), true), 0); }

std::string scratch(const char* name) { return testing::TempDir() + "stdkro_reader_" + name; }

void write_file(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary);
    out << text;
    ASSERT_TRUE(out.good());
}

TEST(reader, an_empty_reader_is_at_its_end)
{
    reader r;
    EXPECT_EQ(r.getch(), -1);
    EXPECT_EQ(r.peek(), -1);
    r.ungetch('a');
    r.ungetch('\n');
    r.eat_white();
    EXPECT_FALSE(r.eat_until('a'));
    r.seek(5);
    EXPECT_EQ(r.move(3), nullptr);
    EXPECT_EQ(r.get_line(), 1);
    EXPECT_EQ(r.get_pos(), 0u);
    EXPECT_EQ(r.get_size(), 0u);
    EXPECT_EQ(r.get_spare(), 0u);
    EXPECT_EQ(r.get_buf(), nullptr);
    EXPECT_STREQ(r.sread(0, 5).c_str(), "");
}

TEST(reader, characters_come_one_by_one_and_count_lines)
{
    reader r;
    load(r, "a\nb\n\nc");
    const int expected[] = { 'a', '\n', 'b', '\n', '\n', 'c', -1, -1 };
    const int lines[] = { 1, 2, 2, 3, 4, 4, 4, 4 };
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(r.peek(), expected[i]) << i;
        EXPECT_EQ(r.getch(), expected[i]) << i;
        EXPECT_EQ(r.get_line(), lines[i]) << i;
    }
    // And back again.
    for (int i = 5; i >= 0; --i) {
        r.ungetch(expected[i]);
        EXPECT_EQ(r.get_pos(), static_cast<unsigned>(i));
        EXPECT_EQ(r.get_line(), i == 0 ? 1 : lines[i - 1]);
    }
    r.ungetch('\n');
    EXPECT_EQ(r.get_line(), 1) << "at the begin nothing changes, the line included";
    EXPECT_EQ(r.get_pos(), 0u);
}

TEST(reader, stepping_back_over_the_end_does_nothing)
{
    reader r;
    load(r, "ab");
    r.getch();
    r.getch();
    r.ungetch(r.getch());
    EXPECT_EQ(r.get_pos(), 2u);
    r.ungetch('x'); // nothing is written
    EXPECT_EQ(r.getch(), 'b');
}

TEST(reader, bytes_are_signed_and_0xff_looks_like_the_end)
{
    reader r;
    load(r, "\x80\xFE\xFFz");
    EXPECT_EQ(r.getch(), -128);
    EXPECT_EQ(r.getch(), -2);
    EXPECT_EQ(r.peek(), -1);
    EXPECT_EQ(r.getch(), -1);
    EXPECT_EQ(r.get_pos(), 3u) << "but it is read like any other";
    r.ungetch(-1);
    EXPECT_EQ(r.get_pos(), 3u);
    EXPECT_EQ(r.getch(), 'z');
    EXPECT_EQ(r.getch(), -1);
}

TEST(reader, nul_is_an_ordinary_character)
{
    reader r;
    load(r, std::string("a\0b", 3));
    EXPECT_EQ(r.getch(), 'a');
    EXPECT_EQ(r.getch(), 0);
    EXPECT_EQ(r.getch(), 'b');
}

TEST(reader, eat_white_skips_white_space_and_counts_lines)
{
    reader r;
    load(r, " \t\r\n\v\f\nx y");
    r.eat_white();
    EXPECT_EQ(r.peek(), 'x');
    EXPECT_EQ(r.get_line(), 3);
    r.eat_white();
    EXPECT_EQ(r.getch(), 'x');
    r.eat_white();
    EXPECT_EQ(r.getch(), 'y');
    r.eat_white();
    EXPECT_EQ(r.getch(), -1);
    load(r, std::string("\x1c\xA0\xFF \0", 5));
    r.eat_white();
    EXPECT_EQ(r.get_pos(), 0u) << "in the C locale nothing else is white";
}

TEST(reader, eat_until_stands_before_the_character)
{
    reader r;
    load(r, "ab\ncd\n;e");
    EXPECT_TRUE(r.eat_until('a'));
    EXPECT_EQ(r.get_pos(), 0u);
    EXPECT_TRUE(r.eat_until(';'));
    EXPECT_EQ(r.get_pos(), 6u);
    EXPECT_EQ(r.get_line(), 3);
    EXPECT_TRUE(r.eat_until(';'));
    EXPECT_EQ(r.get_pos(), 6u);
    EXPECT_FALSE(r.eat_until('x'));
    EXPECT_EQ(r.get_pos(), 8u);
    EXPECT_EQ(r.get_line(), 3);
    load(r, "ab\n");
    EXPECT_TRUE(r.eat_until('\n'));
    EXPECT_EQ(r.get_line(), 1) << "the line feed itself is not passed";
    load(r, "a\xE4z");
    EXPECT_TRUE(r.eat_until(static_cast<signed char>(0xE4)));
    EXPECT_EQ(r.get_pos(), 1u);
}

TEST(reader, positions_and_sizes)
{
    reader r;
    load(r, "0123456789");
    r.seek(4);
    EXPECT_EQ(r.getch(), '4');
    const char* const before = r.get_cur();
    EXPECT_EQ(r.move(3), before);
    EXPECT_EQ(r.get_pos(), 8u);
    EXPECT_EQ(r.move(-8), r.get_buf() + 8);
    EXPECT_EQ(r.get_pos(), 0u);
    r.set_cur(r.get_buf() + 9);
    EXPECT_EQ(r.get_spare(), 1u);
    EXPECT_EQ(r.get_size(), 10u);
    EXPECT_EQ(r.get_eof() - r.get_buf(), 10);
    r.set_line(7);
    EXPECT_EQ(r.get_line(), 7);
}

TEST(reader, sread_cuts_a_piece)
{
    reader r;
    load(r, "0123456789");
    static const struct {
        unsigned from, to;
        const char* text;
    } cases[] = {
        { 0, 10, "0123456789" }, { 2, 5, "234" },  { 2, 100, "23456789" },   { 9, 10, "9" },
        { 3, 3, "" },            { 5, 2, "" },     { 10, 20, "" },           { 50, 60, "" },
        { 0, 0xFFFFFFFF, "0123456789" }, { 0xFFFFFFFF, 0xFFFFFFFF, "" },
    };
    for (const auto& c : cases)
        EXPECT_STREQ(r.sread(c.from, c.to).c_str(), c.text) << c.from << " " << c.to;
    EXPECT_EQ(r.get_pos(), 0u);
}

// ---- loading ----------------------------------------------------------------------

TEST(reader, load_string_copies_or_points)
{
    char text[] = "hello\nworld";
    probe r;
    EXPECT_EQ(r.load_string(text, text + 5, true), 0);
    EXPECT_NE(r.get_buf(), text);
    text[0] = 'J';
    EXPECT_EQ(rest(r), "hello");
    EXPECT_EQ(r.load_string(text, nullptr, false), 0);
    EXPECT_EQ(r.get_buf(), text);
    EXPECT_EQ(rest(r), "Jello\nworld");
    EXPECT_TRUE(r.eat_until('w'));
    EXPECT_EQ(r.get_line(), 2);
    EXPECT_EQ(r.load_string("x"), 0);
    EXPECT_EQ(r.get_line(), 1);
    EXPECT_EQ(r.get_pos(), 0u);
    EXPECT_EQ(rest(r), "x");
    EXPECT_EQ(r.loads, 3);
    r.answer = -5;
    EXPECT_EQ(r.load_string("y"), -5) << "the result of do_load is the load's";
    EXPECT_EQ(rest(r), "y");
}

TEST(reader, an_empty_text_loads)
{
    reader r;
    for (const bool copy : { true, false }) {
        load(r, "before");
        EXPECT_EQ(r.load_string("", nullptr, copy), 0);
        EXPECT_EQ(r.get_size(), 0u);
        EXPECT_EQ(r.getch(), -1);
        EXPECT_EQ(r.load_string("abc" + 1, "abc" + 1, copy), 0);
        EXPECT_EQ(r.get_size(), 0u);
    }
    std::istringstream empty;
    EXPECT_EQ(r.load_stream(empty), 0);
    EXPECT_EQ(r.get_size(), 0u);
    const std::string path = scratch("empty");
    write_file(path, "");
    EXPECT_EQ(r.load_file(path.c_str(), "rb"), 0);
    EXPECT_EQ(r.get_size(), 0u);
    EXPECT_EQ(*r.get_eof(), '\0');
    std::remove(path.c_str());
}

TEST(reader, a_failed_load_leaves_everything)
{
    probe r;
    load(r, "one\ntwo");
    r.eat_until('t');
    std::istringstream failed("text");
    failed.setstate(std::ios::failbit);
    const std::string folder = testing::TempDir();
    static const char text[] = "abc";
    const struct {
        const char* what;
        int code;
        int got;
    } cases[] = {
        { "null text", static_cast<int>(0x8002000e), r.load_string(nullptr, nullptr, true) },
        { "null text, not copied", static_cast<int>(0x8002000e), r.load_string(nullptr, nullptr, false) },
        { "end before begin", static_cast<int>(0x8002000e), r.load_string(text + 2, text, true) },
        { "null path", static_cast<int>(0x8002000e), r.load_file(nullptr, "rb") },
        { "empty path", static_cast<int>(0x8002000e), r.load_file("", "rb") },
        { "null mode", static_cast<int>(0x8002000e), r.load_file("x", nullptr) },
        { "missing file", static_cast<int>(0x80020002), r.load_file(scratch("nosuch/file").c_str(), "rb") },
        { "mode that cannot read", static_cast<int>(0x80020002), r.load_file(scratch("write_only").c_str(), "wb") },
        { "folder", static_cast<int>(0x80020002), r.load_file(folder.c_str(), "rb") },
        { "failed stream", static_cast<int>(0x80020001), r.load_stream(failed) },
        { "empty reader, copied", static_cast<int>(0x8002000e), r.load_reader(reader(), true) },
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.got, c.code) << c.what;
    std::remove(scratch("write_only").c_str());
    EXPECT_EQ(rest(r), "two");
    EXPECT_EQ(r.get_pos(), 4u);
    EXPECT_EQ(r.get_line(), 2);
    EXPECT_EQ(r.loads, 1);
}

TEST(reader, a_part_of_its_own_text_can_be_loaded)
{
    for (const bool copy : { true, false }) {
        reader r;
        load(r, "abcdef");
        EXPECT_EQ(r.load_string(r.get_buf() + 2, r.get_buf() + 4, copy), 0);
        EXPECT_EQ(rest(r), "cd");
    }
}

std::string every_byte()
{
    std::string text;
    for (int round = 0; round < 40; ++round) {
        for (int c = 0; c < 256; ++c)
            text += static_cast<char>(c);
    }
    return text;
}

TEST(reader, a_file_loads_with_every_byte_and_a_terminator)
{
    const std::string path = scratch("file");
    const std::string text = every_byte();
    write_file(path, text);
    probe r;
    r.set_line(5);
    EXPECT_EQ(r.load_file(path.c_str(), "rb"), 0);
    EXPECT_EQ(rest(r), text);
    EXPECT_EQ(*r.get_eof(), '\0');
    EXPECT_EQ(r.get_line(), 1);
    EXPECT_EQ(r.loads, 1);
    r.answer = 9;
    EXPECT_EQ(r.load_file(path.c_str()), 9);
    std::remove(path.c_str());
}

TEST(reader, in_text_mode_the_text_ends_where_reading_ended)
{
    const std::string path = scratch("lines");
    write_file(path, "a\r\nb\r\n");
    reader r;
    EXPECT_EQ(r.load_file(path.c_str(), "r"), 0);
    // Where text mode means something, line ends shrink; nothing is left behind them.
    EXPECT_TRUE(rest(r) == "a\r\nb\r\n" || rest(r) == "a\nb\n") << rest(r);
    EXPECT_EQ(*r.get_eof(), '\0');
    std::remove(path.c_str());
}

TEST(reader, a_stream_loads_from_where_it_stands)
{
    const std::string text = every_byte();
    std::istringstream in(text);
    probe r;
    EXPECT_EQ(r.load_stream(in), 0);
    EXPECT_EQ(rest(r), text);
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(r.loads, 1);
    std::istringstream words("skip  the rest");
    std::string skipped;
    words >> skipped;
    EXPECT_EQ(r.load_stream(words), 0);
    EXPECT_EQ(rest(r), "  the rest");
    std::istringstream throwing("all of it");
    throwing.exceptions(std::ios::eofbit | std::ios::failbit);
    EXPECT_EQ(r.load_stream(throwing), 0) << "no exception of the stream leaves";
    EXPECT_EQ(rest(r), "all of it");
}

TEST(reader, a_stream_is_asked_for_its_end_once)
{
    // A terminal ends when somebody says so, and begins again when it is read on.
    struct terminal : std::stringbuf {
        explicit terminal(const std::string& text) : std::stringbuf(text) {}
        std::streamsize xsgetn(char* to, std::streamsize n) override
        {
            const std::streamsize got = std::stringbuf::xsgetn(to, n);
            ends += got < n;
            return got;
        }
        int ends = 0;
    };
    for (const std::size_t size : { 0, 5, 4095, 4096, 4097, 20000 }) {
        const std::string text(size, 'x');
        terminal typed(text);
        std::istream in(&typed);
        reader r;
        EXPECT_EQ(r.load_stream(in), 0);
        EXPECT_EQ(rest(r), text) << size;
        EXPECT_EQ(typed.ends, 1) << size;
    }
}

TEST(reader, a_stream_that_has_no_memory_leaves_everything)
{
    struct exhausted : std::streambuf {
        int_type underflow() override { throw std::bad_alloc(); }
    } buffer;
    std::istream in(&buffer);
    reader r;
    ASSERT_EQ(0, r.load_string("kept", nullptr, true));
    EXPECT_EQ(err::out_of_memory, r.load_stream(in));
    EXPECT_EQ('k', r.getch());
}

TEST(reader, a_reader_loads_from_another_by_copy)
{
    reader source;
    load(source, "one\ntwo");
    source.eat_until('t');
    probe r;
    r.answer = 3;
    EXPECT_EQ(r.load_reader(source, true), 3);
    EXPECT_EQ(rest(r), "two") << "what was read already is not copied";
    EXPECT_EQ(r.get_pos(), 0u);
    EXPECT_EQ(r.get_size(), 3u);
    EXPECT_EQ(r.get_line(), 1);
    EXPECT_EQ(r.load_reader(r, true), 0);
    EXPECT_EQ(r.load_reader(r, false), 0);
    EXPECT_EQ(rest(r), "two");
    EXPECT_EQ(r.loads, 1) << "loading from itself does nothing";
}

TEST(reader, a_reader_shares_anothers_text)
{
    reader source;
    load(source, "one\ntwo");
    source.eat_until('t');
    probe r;
    load(r, "before");
    r.answer = 3;
    EXPECT_EQ(r.load_reader(source, false), 3);
    EXPECT_EQ(r.get_buf(), source.get_buf());
    EXPECT_EQ(r.get_pos(), 4u);
    EXPECT_EQ(r.get_line(), 2);
    EXPECT_EQ(r.loads, 2);
    EXPECT_EQ(r.getch(), 't');
    EXPECT_EQ(source.peek(), 't') << "positions are independent";
    reader mapped;
    mapped.mapping(source);
    EXPECT_EQ(mapped.get_buf(), source.get_buf());
    EXPECT_EQ(mapped.get_cur(), source.get_cur());
    EXPECT_EQ(mapped.get_line(), 2);
    mapped.mapping(*&mapped);
    EXPECT_EQ(rest(mapped), "two");
    source.mapping(source);
    EXPECT_EQ(rest(source), "two");
    mapped.clear(); // frees nothing
    EXPECT_EQ(rest(source), "two");
    EXPECT_EQ(mapped.get_buf(), nullptr);
    EXPECT_EQ(mapped.get_line(), 1);
}

TEST(reader, a_reader_takes_over_what_another_reads_of_its_own_text)
{
    const struct {
        const char* what;
        unsigned from, to;
        const char* text;
    } cases[] = {
        { "all of it", 0, 11, "one\ntwo one" },
        { "a part", 4, 7, "two" },
        { "nothing", 11, 11, "" },
    };
    for (const auto& c : cases) {
        reader source, view;
        load(source, "one\ntwo one");
        view.load_string(source.get_buf() + c.from, source.get_buf() + c.to, false);
        view.set_line(7);
        EXPECT_EQ(source.load_reader(view, false), 0) << c.what;
        EXPECT_EQ(source.get_line(), 7) << c.what;
        EXPECT_EQ(rest(source), c.text) << c.what;
    }
    reader source, view;
    load(source, "one\ntwo");
    source.eat_until('t');
    view.mapping(source);
    source.seek(0);
    source.mapping(view);
    EXPECT_EQ(source.get_line(), 2);
    EXPECT_EQ(rest(source), "two");
    EXPECT_EQ(rest(view), "two");
}

TEST(reader, a_copy_has_a_text_of_its_own)
{
    char text[] = "one\ntwo";
    reader source;
    source.load_string(text, nullptr, false);
    source.eat_until('t');
    reader copy(source);
    reader assigned;
    load(assigned, "before");
    assigned = source;
    assigned = *&assigned;
    text[4] = 'T';
    for (reader* r : { &copy, &assigned }) {
        EXPECT_EQ(rest(*r), "two");
        EXPECT_EQ(r->get_pos(), 4u);
        EXPECT_EQ(r->get_size(), 7u);
        EXPECT_EQ(r->get_line(), 2);
    }
    reader empty;
    empty.set_line(9);
    reader of_empty(empty);
    EXPECT_EQ(of_empty.get_line(), 1);
    EXPECT_EQ(of_empty.get_buf(), nullptr);
    assigned = empty;
    EXPECT_EQ(assigned.get_line(), 1);
    EXPECT_EQ(assigned.getch(), -1);
}

// ---- against a model ------------------------------------------------------------------

TEST(reader, random_steps_agree_with_a_naive_reader)
{
    std::mt19937 random(11);
    for (int round = 0; round < 300; ++round) {
        std::string text;
        for (unsigned n = static_cast<unsigned>(random() % 40); n > 0; --n)
            text += "ab \t\n\n\xFF\xE4\0"[random() % 9];
        reader r;
        load(r, text);
        std::size_t pos = 0;
        int line = 1;
        const auto next = [&]() -> int {
            if (pos == text.size())
                return -1;
            const signed char c = static_cast<signed char>(text[pos++]);
            line += c == '\n';
            return c;
        };
        int last = -1;
        for (int step = 0; step < 100; ++step) {
            switch (random() % 5) {
            case 0:
            case 1:
                last = r.getch();
                ASSERT_EQ(last, next());
                break;
            case 2:
                r.ungetch(last);
                if (last != -1 && pos > 0) {
                    --pos;
                    line -= last == '\n';
                }
                last = -1;
                break;
            case 3:
                r.eat_white();
                while (pos < text.size() && std::string(" \t\n").find(text[pos]) != std::string::npos)
                    next();
                last = -1;
                break;
            default:
                if (random() % 4 == 0) {
                    const bool found = r.eat_until('b');
                    while (pos < text.size() && text[pos] != 'b')
                        next();
                    ASSERT_EQ(found, pos < text.size());
                    last = -1;
                }
            }
            ASSERT_EQ(r.get_pos(), pos);
            ASSERT_EQ(r.get_line(), line);
            ASSERT_EQ(r.peek(), pos < text.size() ? static_cast<signed char>(text[pos]) : -1);
        }
    }
}

} // namespace
