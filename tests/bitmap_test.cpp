// bitmap: the set of bits, its two text forms, and growth.
#include <stdkro/bitmap.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

/// The bits, highest first.
std::string text_of(const bitmap& b)
{
    std::string text(b.capacity() + 1, '?');
    EXPECT_EQ(static_cast<int>(text.size()), b.to_string(&text[0], b.capacity() + 1));
    EXPECT_EQ('\0', text.back());
    text.pop_back();
    return text;
}

bitmap with_bits(unsigned size, std::initializer_list<unsigned> bits)
{
    bitmap b(size);
    for (const unsigned i : bits)
        b.add_bit(i);
    return b;
}

bitmap from(const char* text) { return bitmap(text); }

} // namespace

TEST(bitmap, words_hold_32_bits_each)
{
    static const struct {
        unsigned bits, words;
    } rows[] = { { 0, 0 }, { 1, 1 }, { 31, 1 }, { 32, 1 }, { 33, 2 }, { 40, 2 }, { 64, 2 }, { 65, 3 },
                 // Near the end of the range nothing wraps.
                 { 0xFFFFFFE0u, 0x7FFFFFF }, { 0xFFFFFFE1u, 0x8000000 }, { 0xFFFFFFFFu, 0x8000000 } };
    for (const auto& row : rows)
        EXPECT_EQ(row.words, bitmap::bit2unit(row.bits)) << row.bits;
}

TEST(bitmap, a_new_set_is_empty)
{
    for (const unsigned size : { 0u, 1u, 31u, 32u, 33u, 40u, 100u }) {
        const bitmap b(size);
        EXPECT_EQ(size, b.capacity());
        EXPECT_EQ(0u, b.count());
        EXPECT_TRUE(b.empty());
        EXPECT_FALSE(b.any());
        EXPECT_EQ(std::string(size, '0'), text_of(b));
    }
    EXPECT_EQ(0u, bitmap().capacity());
}

TEST(bitmap, bits_are_set_and_cleared_one_by_one)
{
    bitmap b(40);
    EXPECT_TRUE(b.add_bit(3));
    EXPECT_FALSE(b.add_bit(3));
    EXPECT_TRUE(b.get_bit(3));
    EXPECT_TRUE(b[3]);
    EXPECT_EQ(1u, b.count());
    EXPECT_TRUE(b.clr_bit(3));
    EXPECT_FALSE(b.clr_bit(3));
    EXPECT_FALSE(b[3]);
    b.set_bit(39, true);
    b.set_bit(39, true);
    EXPECT_TRUE(b[39]);
    b.set_bit(39, false);
    EXPECT_TRUE(b.empty());
    b.flip(32);
    EXPECT_TRUE(b[32]);
    EXPECT_TRUE(b.any());
    b.flip(32);
    EXPECT_FALSE(b[32]);
}

TEST(bitmap, inverting_stays_within_the_size)
{
    static const struct {
        const char* before;
        const char* after; // highest first
    } rows[] = { { "", "" }, { "0", "1" }, { "1", "0" }, { "0011", "0011" },
                 { "1000000000000000000000000000000", "1111111111111111111111111111110" },
                 { "10000000000000000000000000000000", "11111111111111111111111111111110" },
                 { "100000000000000000000000000000000", "111111111111111111111111111111110" } };
    for (const auto& row : rows) {
        bitmap b = from(row.before);
        EXPECT_EQ(row.after, text_of(~b));
        b.flip();
        EXPECT_EQ(row.after, text_of(b));
        EXPECT_EQ(static_cast<unsigned>(std::count(row.after, row.after + std::strlen(row.after), '1')), b.count());
        // What lies above the size stays zero, so growing shows zeros.
        ASSERT_TRUE(b.reserved(b.capacity() + 40));
        EXPECT_EQ(std::string(40, '0') + row.after, text_of(b));
    }
}

TEST(bitmap, reserved_grows_and_never_shrinks)
{
    bitmap b = with_bits(10, { 0, 9 });
    EXPECT_TRUE(b.reserved(5));
    EXPECT_EQ(10u, b.capacity());
    EXPECT_TRUE(b.reserved(32)); // no new word
    EXPECT_EQ(32u, b.capacity());
    EXPECT_TRUE(b.reserved(33));
    EXPECT_EQ(33u, b.capacity());
    EXPECT_EQ(2u, b.count());
    EXPECT_TRUE(b[0] && b[9]);
}

TEST(bitmap, reset_keeps_the_size_and_clear_drops_it)
{
    bitmap b = with_bits(70, { 1, 69 });
    b.reset();
    EXPECT_EQ(70u, b.capacity());
    EXPECT_TRUE(b.empty());
    b.clear();
    EXPECT_EQ(0u, b.capacity());
    b.reset();
    b.flip();
    EXPECT_TRUE(b.empty());
}

TEST(bitmap, next_bit_walks_the_members)
{
    const bitmap b = with_bits(100, { 0, 31, 32, 99 });
    std::string walked;
    for (unsigned i = b.next_bit(0); i < b.capacity(); i = b.next_bit(i + 1))
        walked += std::to_string(i) + " ";
    EXPECT_EQ("0 31 32 99 ", walked);
    EXPECT_EQ(100u, b.next_bit(100));
    EXPECT_EQ(100u, b.next_bit(5000));
    EXPECT_EQ(0u, bitmap().next_bit(0));
    EXPECT_EQ(64u, bitmap(64).next_bit(3));
}

TEST(bitmap, comparison_looks_at_the_words_of_the_left_side)
{
    EXPECT_TRUE(with_bits(40, { 3 }) == with_bits(40, { 3 }));
    EXPECT_FALSE(with_bits(40, { 3 }) == with_bits(40, { 35 }));
    EXPECT_TRUE(with_bits(40, { 3 }) != with_bits(40, { 4 }));
    // The size is not compared.
    EXPECT_TRUE(with_bits(10, { 3 }) == with_bits(32, { 3 }));
    // Words that the right side lacks are zero.
    EXPECT_TRUE(with_bits(100, { 3 }) == with_bits(10, { 3 }));
    EXPECT_FALSE(with_bits(100, { 3, 90 }) == with_bits(10, { 3 }));
    // Words that only the right side has are not looked at: not symmetric.
    EXPECT_TRUE(with_bits(10, { 3 }) == with_bits(100, { 3, 90 }));
    EXPECT_TRUE(bitmap() == with_bits(10, { 3 }));
    EXPECT_FALSE(with_bits(10, { 3 }) == bitmap());
}

TEST(bitmap, set_operations_on_sets_of_different_sizes)
{
    static const struct {
        const char* what;
        bitmap left, right;
        const char* conjunction;
        const char* disjunction;
        const char* difference;
    } rows[] = {
        { "equal sizes", from("0011"), from("0101"), "1000", "1110", "0110" },
        { "empty with empty", bitmap(), bitmap(), "", "", "" },
        { "larger left", from("11"), from("1"), "01", "11", "10" },
        // AND keeps its size, OR and XOR grow to the other's.
        { "larger right", from("1"), from("111"), "1", "111", "110" },
        { "empty left", bitmap(), from("101"), "", "101", "101" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        bitmap b = row.left;
        EXPECT_EQ(row.conjunction, text_of(b &= row.right));
        EXPECT_EQ(row.disjunction, text_of((b = row.left) |= row.right));
        EXPECT_EQ(row.difference, text_of((b = row.left) ^= row.right));
    }
}

TEST(bitmap, or_with_a_larger_set_grows)
{
    bitmap small = with_bits(10, { 9 });
    const bitmap large = with_bits(100, { 0, 99 });
    EXPECT_EQ(100u, (small |= large).capacity());
    EXPECT_TRUE(small == with_bits(100, { 0, 9, 99 }));
    bitmap other = with_bits(10, { 0, 9 });
    EXPECT_TRUE((other ^= large) == with_bits(100, { 9, 99 }));
    // AND clears what the smaller set lacks.
    bitmap wide = with_bits(100, { 0, 9, 99 });
    EXPECT_TRUE((wide &= with_bits(10, { 9 })) == with_bits(100, { 9 }));
    EXPECT_EQ(100u, wide.capacity());
}

TEST(bitmap, a_set_combined_with_itself)
{
    bitmap b = with_bits(40, { 1, 39 });
    b |= b;
    b &= b;
    EXPECT_EQ(2u, b.count());
    b ^= b;
    EXPECT_TRUE(b.empty());
    bitmap& same = b;
    b = same;
    EXPECT_EQ(40u, b.capacity());
}

TEST(bitmap, to_string_tells_the_room_it_needs)
{
    const bitmap b = from("0011");
    EXPECT_EQ(5, b.to_string(nullptr, 0));
    EXPECT_EQ(5, b.to_string(nullptr, 100));
    char buffer[8] = "#######";
    EXPECT_EQ(-5, b.to_string(buffer, 4));
    EXPECT_STREQ("#######", buffer);
    EXPECT_EQ(5, b.to_string(buffer, 5));
    EXPECT_STREQ("1100", buffer);
    EXPECT_EQ('#', buffer[5]);
    EXPECT_EQ(1, bitmap().to_string(nullptr, 0));
    EXPECT_EQ(-1, bitmap().to_string(buffer, 0));
    EXPECT_EQ(1, bitmap().to_string(buffer, 1));
    EXPECT_STREQ("", buffer);
}

TEST(bitmap, from_string_reads_bit_0_first)
{
    bitmap b;
    EXPECT_EQ(0, b.from_string("0011"));
    EXPECT_EQ(4u, b.capacity());
    EXPECT_TRUE(!b[0] && !b[1] && b[2] && b[3]);
    // The two text forms run in opposite directions.
    EXPECT_EQ("1100", text_of(b));
    // A part of a text, and no text.
    const char* text = "10111";
    bitmap part;
    EXPECT_EQ(0, part.from_string(text, text + 2));
    EXPECT_EQ("01", text_of(part));
    EXPECT_EQ(0, part.from_string(text, text));
    EXPECT_EQ(0, part.from_string(""));
    EXPECT_EQ(2u, part.capacity());
    EXPECT_EQ(err::invalid_parameter, part.from_string(nullptr));
}

TEST(bitmap, from_string_clears_nothing_and_stops_at_a_stranger)
{
    bitmap b = with_bits(3, { 0 });
    EXPECT_EQ(0, b.from_string("01"));
    EXPECT_EQ("011", text_of(b));
    EXPECT_EQ(static_cast<int>(0x80020005), b.from_string("0012111"));
    EXPECT_EQ(7u, b.capacity()); // it had grown before
    EXPECT_EQ("0000111", text_of(b));
}

TEST(bitmap, the_text_constructor_throws_what_from_string_returns)
{
    EXPECT_EQ("1100", text_of(bitmap("0011")));
    const char* text = "0111";
    EXPECT_EQ("10", text_of(bitmap(text, text + 2)));
    try {
        const bitmap b("01x");
        FAIL();
    } catch (const xcpt& e) {
        EXPECT_EQ(static_cast<int>(0x80020005), e.get_err());
        EXPECT_STREQ("bitmap::bitmap(const char*, const char*)", e.what());
    }
}

TEST(bitmap, copies_are_independent)
{
    bitmap a = with_bits(40, { 1, 39 });
    bitmap b = a;
    b.flip(0);
    EXPECT_EQ(2u, a.count());
    EXPECT_EQ(3u, b.count());
    a = b;
    EXPECT_EQ(3u, a.count());
    // Assignment takes the other's size, larger or smaller.
    a = with_bits(100, { 99 });
    EXPECT_EQ(100u, a.capacity());
    const bitmap small = with_bits(2, { 1 });
    a = small;
    EXPECT_EQ("10", text_of(a));
    // Room left over from before shows no old bits.
    ASSERT_TRUE(a.reserved(100));
    EXPECT_EQ(1u, a.count());
    const bitmap none;
    a = none;
    EXPECT_EQ(0u, a.capacity());
    const bitmap copy_of_none = none;
    EXPECT_EQ(0u, copy_of_none.capacity());
}

TEST(bitmap, moving_and_swapping_exchange_words_and_size)
{
    bitmap a = with_bits(40, { 39 });
    bitmap b = with_bits(2, { 0 });
    a.swap(b);
    EXPECT_EQ("01", text_of(a));
    EXPECT_EQ(40u, b.capacity());
    const bitmap c = std::move(b);
    EXPECT_TRUE(c[39]);
    a = bitmap(7);
    EXPECT_EQ(7u, a.capacity());
}

TEST(bitmap, agrees_with_a_vector_of_bool)
{
    std::mt19937 random(20260131);
    for (int round = 0; round < 200; ++round) {
        const auto size = static_cast<unsigned>(random() % 200);
        bitmap b(size);
        std::vector<bool> model(size);
        for (unsigned i = 0; i < size; ++i) {
            const auto at = static_cast<unsigned>(random() % size);
            switch (random() % 4) {
            case 0:
                EXPECT_EQ(!model[at], b.add_bit(at));
                model[at] = true;
                break;
            case 1:
                EXPECT_EQ(bool(model[at]), b.clr_bit(at));
                model[at] = false;
                break;
            case 2:
                b.flip(at);
                model[at] = !model[at];
                break;
            default:
                b.flip();
                model.flip();
            }
        }
        std::string expected;
        unsigned count = 0;
        for (unsigned i = 0; i < size; ++i) {
            expected.insert(expected.begin(), model[i] ? '1' : '0');
            count += model[i];
        }
        ASSERT_EQ(expected, text_of(b));
        ASSERT_EQ(count, b.count());
        ASSERT_EQ(count == 0, b.empty());
    }
}
