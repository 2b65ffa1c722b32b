// Texts longer than four gigabytes, which no class here takes: refused, not cut. The text is one
// file of a few megabytes, mapped again and again.
#include <stdkro/base_lexer.h>
#include <stdkro/rnfa.h>
#include <stdkro/share_str.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

namespace {

/// 4 GiB of letters with a terminator behind them; null where there is no room for the address space.
class huge_text {
public:
    huge_text()
    {
        void* const place = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (place == MAP_FAILED)
            return;
        text_ = static_cast<char*>(place);
        is_complete_ = fill();
    }
    huge_text(const huge_text&) = delete;
    huge_text& operator=(const huge_text&) = delete;
    ~huge_text()
    {
        if (text_)
            munmap(text_, size);
    }

    char* get() const { return is_complete_ ? text_ : nullptr; }
    static constexpr std::size_t length = std::size_t { 1 } << 32;

private:
    static constexpr std::size_t piece = std::size_t { 1 } << 26;
    static constexpr std::size_t size = length + piece;

    bool fill()
    {
        const int file = memfd_create("stdkro test", MFD_CLOEXEC);
        if (file < 0 || ftruncate(file, piece) != 0)
            return false;
        bool all = true;
        for (std::size_t at = 0; at < length && all; at += piece)
            all = mmap(text_ + at, piece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0) != MAP_FAILED;
        close(file);
        if (all)
            std::memset(text_, 'a', piece);
        // The terminator is the first zero of fresh memory behind it.
        return all
            && mmap(text_ + length, piece, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED | MAP_NORESERVE, -1, 0)
            != MAP_FAILED;
    }

    char* text_ = nullptr;
    bool is_complete_ = false;
};

TEST(a_text_of_four_gigabytes, is_refused_everywhere)
{
    const huge_text huge;
    if (!huge.get())
        GTEST_SKIP() << "no room for it here";
    reader r;
    ASSERT_EQ(0, r.load_string("old", nullptr, true));
    EXPECT_EQ(err::out_of_memory, r.load_string(huge.get(), huge.get() + huge.length, false));
    EXPECT_EQ(3u, r.get_size());
    const share_str whole(huge.get());
    EXPECT_EQ(0u, whole.length());
    const dynamic_str part(huge.get(), huge.get() + huge.length);
    EXPECT_EQ(0u, part.capacity());
    string_str standard("old");
    EXPECT_FALSE(standard.insert(1, huge.get()));
    EXPECT_STREQ("old", standard.c_str());
    // A buffer of that size is taken for the largest there is, and is full.
    static_str lent(huge.get());
    EXPECT_EQ(0xFFFFFFFF, lent.capacity());
    EXPECT_EQ(0xFFFFFFFF, lent.length());
    EXPECT_FALSE(lent.splice("b"));
    EXPECT_EQ('a', lent.get(0));
    rnfa_maker parser;
    rparser::rbase* parsed = nullptr;
    EXPECT_EQ(err::out_of_memory, parser.expr(&parsed, huge.get()));
    EXPECT_EQ(nullptr, parsed);
}

} // namespace
