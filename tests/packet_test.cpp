// The byte buffer between a socket and its program, and a model of it.
#include "packet_model.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>

namespace {

std::string unread(const packet& p) { return std::string(p.rptr(), p.count()); }

} // namespace

TEST(packet, begins_empty)
{
    packet p;
    EXPECT_EQ(nullptr, p.bptr());
    EXPECT_EQ(nullptr, p.eptr());
    EXPECT_EQ(0u, p.count());
    EXPECT_EQ(0u, p.capacity());
    char byte;
    EXPECT_EQ(0u, p.read(&byte, 1));
    EXPECT_FALSE(p.wmove(1));
    EXPECT_TRUE(p.wmove(0));
    p.reset();
    p.clear();
    const packet filled("abc", 3);
    EXPECT_EQ("abc", unread(filled));
    EXPECT_EQ(3u, filled.capacity());
}

TEST(packet, is_not_copied)
{
    EXPECT_FALSE(std::is_copy_constructible<packet>::value || std::is_copy_assignable<packet>::value);
}

TEST(packet, makes_exactly_the_room_it_is_asked_for)
{
    packet p;
    EXPECT_EQ(110u, p.reserved(110));
    p.write(std::string(100, 'a').data(), 100);
    char bytes[60];
    EXPECT_EQ(60u, p.read(bytes, 60));
    EXPECT_EQ(50u, p.reserved(50)) << "40 unread, 10 free";
    EXPECT_EQ(90u, p.capacity());
    EXPECT_EQ(0u, p.rpos());
    EXPECT_EQ(40u, p.wpos());
    EXPECT_EQ(50u, p.reserved(10)) << "what is free is returned whole";
    EXPECT_EQ(std::string(40, 'a'), unread(p));
}

TEST(packet, reads_up_to_what_is_unread)
{
    packet p("abcdef", 6);
    char bytes[8] = {};
    EXPECT_EQ(4u, p.read(bytes, 4));
    EXPECT_EQ(2u, p.read(bytes, 8));
    EXPECT_EQ(0u, p.read(bytes, 8));
    EXPECT_EQ(0, std::memcmp(bytes, "efcd", 4));
}

TEST(packet, moves_its_positions_within_their_bounds)
{
    packet p("0123456789", 10);
    EXPECT_TRUE(p.rseek(10));
    EXPECT_FALSE(p.rseek(11));
    EXPECT_TRUE(p.rmove(-10));
    EXPECT_FALSE(p.rmove(-1));
    EXPECT_TRUE(p.rmove(4));
    EXPECT_FALSE(p.rmove(7));
    EXPECT_FALSE(p.rmove(INT_MAX));
    EXPECT_FALSE(p.rmove(INT_MIN));
    EXPECT_EQ("456789", unread(p));
    // The write position takes the read position with it.
    EXPECT_TRUE(p.wseek(2));
    EXPECT_EQ(2u, p.rpos());
    EXPECT_TRUE(p.wmove(8));
    EXPECT_EQ("23456789", unread(p));
    EXPECT_FALSE(p.wseek(11));
    EXPECT_FALSE(p.wmove(1));
    EXPECT_FALSE(p.wmove(-11));
    EXPECT_FALSE(p.wmove(INT_MAX));
    EXPECT_FALSE(p.wmove(INT_MIN));
    EXPECT_TRUE(p.wmove(-9));
    EXPECT_EQ(1u, p.wpos());
    EXPECT_EQ(1u, p.rpos());
    p.reset();
    EXPECT_EQ(10u, p.capacity());
    EXPECT_EQ(0u, p.wpos());
    p.clear();
    EXPECT_EQ(nullptr, p.bptr());
}

TEST(packet, prints_texts_of_1_to_size_bytes)
{
    packet p;
    EXPECT_EQ(5u, p.print(5, "%s", "hello")) << "exactly its size";
    EXPECT_EQ("hello", unread(p));
    EXPECT_EQ(0u, p.print(4, "%s", "hello"));
    EXPECT_EQ(0u, p.print(10, "%s", ""));
    EXPECT_EQ(0u, p.print(0, "%s", "x"));
    EXPECT_EQ("hello", unread(p));
    EXPECT_EQ(3000u, p.print(3000, "%s", std::string(3000, 'x').c_str()));
    EXPECT_EQ("hello" + std::string(3000, 'x'), unread(p));
}

TEST(packet, prints_no_terminator)
{
    packet p;
    p.reserved(8);
    std::memset(p.bptr(), 'z', 8);
    EXPECT_EQ(3u, p.print(8, "%s", "abc"));
    EXPECT_EQ("abczzzzz", std::string(p.bptr(), 8));
}

TEST(packet, takes_a_buffer_over)
{
    packet p("old", 3);
    char* const buffer = static_cast<char*>(std::malloc(10));
    std::memcpy(buffer, "0123456789", 10);
    p.set_buf(buffer, 10);
    EXPECT_EQ(0u, p.count());
    EXPECT_EQ(10u, p.capacity());
    EXPECT_EQ(buffer, p.bptr());
    p.wseek(4);
    EXPECT_EQ("0123", unread(p));
    p.set_buf(buffer, 10);
    EXPECT_EQ(0u, p.count()) << "the same buffer is not freed";
    p.wseek(10);
    EXPECT_EQ("0123456789", unread(p));
    p.set_buf(nullptr, 0);
    EXPECT_EQ(nullptr, p.bptr());
}

TEST(packet, refuses_room_beyond_32_bits)
{
    packet p("abc", 3);
    EXPECT_EQ(0u, p.reserved(0xFFFFFFFF));
    EXPECT_EQ(0u, p.print(0xFFFFFFFF, "x"));
    EXPECT_EQ("abc", unread(p));
    EXPECT_EQ(3u, p.capacity());
}

TEST(packet, agrees_with_a_model_over_random_operations)
{
    std::mt19937 engine(7);
    const auto random = [&] { return static_cast<unsigned>(engine()); };
    packet p;
    packet_model model;
    char bytes[64];
    for (int i = 0; i < 1000000; ++i) {
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        // Emptying is rare, or nothing would ever grow.
        const unsigned most = random() % 64 == 0 ? packet_model::operation_count : 10;
        const unsigned operation = random() % most;
        const unsigned n = random() % (random() % 16 == 0 ? 64 : 24);
        ASSERT_TRUE(model.step(p, operation, n, bytes)) << i << ": operation " << operation << " with " << n;
        ASSERT_TRUE(model.is_like(p)) << i << ": after operation " << operation << " with " << n;
    }
}
