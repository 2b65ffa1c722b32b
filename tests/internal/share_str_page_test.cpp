// Texts that stand in pages are strings like any other.
#include "share_str_page.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using std::string;

share_str text_in(share_str_page& page, const string& s) { return page.text(s.data(), s.data() + s.size()); }

string text_of(const share_str& s) { return string(s.c_str(), s.length()); }

TEST(share_str_page, malloc_aligns_to_two_words)
{
    std::vector<void*> blocks;
    for (std::size_t n = 1; n < 3000; n += 7) {
        blocks.push_back(std::malloc(n));
        EXPECT_FALSE(share_str_page::holds(blocks.back())) << n;
    }
    for (void* block : blocks)
        std::free(block);
}

TEST(share_str_page, gives_blocks_that_are_told_from_those_of_malloc)
{
    share_str_page page;
    for (std::size_t n = 1; n <= share_str_page::largest; n += 3) {
        void* const block = page.take(n);
        ASSERT_NE(nullptr, block);
        EXPECT_TRUE(share_str_page::holds(block)) << n;
        std::fill_n(static_cast<char*>(block), n, 'x');
        share_str_page::release(block);
    }
}

TEST(share_str_page, gives_blocks_that_keep_every_byte_and_are_released_in_any_order)
{
    struct taken {
        unsigned char* block;
        std::size_t size;
        unsigned char fill;
    };
    std::mt19937 random(3);
    std::vector<taken> blocks;
    {
        share_str_page page;
        for (unsigned i = 0; i < 4000; ++i) {
            const std::size_t size = i % 9 ? random() % 80 + 1 : random() % share_str_page::largest + 1;
            blocks.push_back({ static_cast<unsigned char*>(page.take(size)), size, static_cast<unsigned char>(i) });
            ASSERT_NE(nullptr, blocks.back().block);
            EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(blocks.back().block) % sizeof(void*));
            std::fill_n(blocks.back().block, size, blocks.back().fill);
        }
    }
    std::shuffle(blocks.begin(), blocks.end(), random);
    for (const taken& t : blocks) {
        ASSERT_EQ(t.size, static_cast<std::size_t>(std::count(t.block, t.block + t.size, t.fill)));
        share_str_page::release(t.block);
    }
}

TEST(share_str_page, gives_the_text_with_the_capacity_of_any_string)
{
    share_str_page page;
    for (std::size_t n = 0; n < 2000; n += n < 600 ? 1 : 100) {
        const string s(n, 'a');
        const share_str in_page = text_in(page, s);
        const share_str ordinary(s.data(), s.data() + n);
        EXPECT_EQ(s, text_of(in_page));
        EXPECT_EQ(ordinary.capacity(), in_page.capacity()) << n;
    }
    EXPECT_EQ(string("a\0b", 3), text_of(text_in(page, string("a\0b", 3))));
}

TEST(share_str_page, texts_outlive_the_page_and_each_other)
{
    std::mt19937 random(1);
    std::vector<share_str> texts;
    {
        share_str_page page;
        for (int i = 0; i < 5000; ++i)
            texts.push_back(text_in(page, std::to_string(i)));
    }
    std::shuffle(texts.begin(), texts.end(), random);
    while (texts.size() > 1) {
        const share_str copy(texts.back());
        texts.pop_back();
        EXPECT_GT(copy.length(), 0u);
    }
    EXPECT_GT(texts[0].length(), 0u);
}

TEST(share_str_page, texts_change_like_any_string)
{
    for (std::size_t n : { 1, 2, 3, 4, 7, 11, 15, 19, 100, 400 }) {
        share_str_page page;
        const string s(n, 'a');
        share_str neighbour_before = text_in(page, "before");
        share_str appended = text_in(page, s);
        share_str reserved = text_in(page, s);
        share_str inserted = text_in(page, s);
        share_str locked = text_in(page, s);
        share_str cut = text_in(page, s);
        share_str removed = text_in(page, s);
        share_str shared = text_in(page, s);
        share_str neighbour_behind = text_in(page, "behind");

        for (char c = 'b'; c <= 'z'; ++c)
            appended += c;
        EXPECT_EQ(s + "bcdefghijklmnopqrstuvwxyz", text_of(appended));
        EXPECT_TRUE(reserved.reserved(5000));
        EXPECT_EQ(s, text_of(reserved));
        EXPECT_TRUE(inserted.insert(0, "xy"));
        EXPECT_EQ("xy" + s, text_of(inserted));
        char* const chars = locked.lock(static_cast<unsigned>(n) + 50);
        ASSERT_NE(nullptr, chars);
        EXPECT_TRUE(locked.reserved(static_cast<unsigned>(n) + 500));
        locked.unlock();
        EXPECT_EQ(s, text_of(locked));
        cut.set(0, '\0');
        EXPECT_EQ("", text_of(cut));
        EXPECT_TRUE(removed.remove(0, 1));
        EXPECT_EQ(s.substr(1), text_of(removed));
        share_str copy(shared);
        copy += "more";
        EXPECT_EQ(s, text_of(shared));
        EXPECT_EQ(s + "more", text_of(copy));
        shared = "other";
        EXPECT_EQ("before", text_of(neighbour_before));
        EXPECT_EQ("behind", text_of(neighbour_behind));
    }
}

TEST(share_str_page, releases_many_blocks_at_once)
{
    share_str_page page;
    {
        share_str_page::releases released;
        for (int i = 0; i < 2000; ++i) {
            released.add(page.take(static_cast<std::size_t>(i % 200 + 1)));
            auto* const storage = new std::aligned_storage_t<sizeof(share_str), alignof(share_str)>;
            share_str* const s = new (storage) share_str(i % 3 ? text_in(page, "text") : share_str("ordinary"));
            std::unique_ptr<share_str> kept;
            if (i % 5 == 0)
                kept.reset(new share_str(*s));
            released.add(*s);
            delete storage;
            if (kept) {
                EXPECT_STREQ(i % 3 ? "text" : "ordinary", kept->c_str());
            }
        }
        share_str empty;
        auto* const nothing = new std::aligned_storage_t<sizeof(share_str), alignof(share_str)>;
        released.add(*new (nothing) share_str(empty));
        delete nothing;
    }
    EXPECT_STREQ("still", text_in(page, "still").c_str());
}

TEST(share_str_page, texts_of_one_page_may_belong_to_different_threads)
{
    std::vector<share_str> mine, theirs;
    {
        share_str_page page;
        for (int i = 0; i < 20000; ++i)
            (i % 2 ? mine : theirs).push_back(text_in(page, "value"));
    }
    std::thread other([&theirs] { theirs.clear(); });
    mine.clear();
    other.join();
    EXPECT_TRUE(theirs.empty());
}

} // namespace
