// Files that open but cannot be read: the reader says so and keeps the text it has.
#include <stdkro/base_lexer.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

// The call, counted from 1, of fseek that fails; 0 for none.
int failing_seek = 0;
// What ftell gives instead of the size; 0 for the size.
long told_size = 0;
bool reading_fails = false;

} // namespace

extern "C" {

int __real_fseek(std::FILE* file, long offset, int from);
int __wrap_fseek(std::FILE* file, long offset, int from)
{
    return failing_seek > 0 && --failing_seek == 0 ? -1 : __real_fseek(file, offset, from);
}

long __real_ftell(std::FILE* file);
long __wrap_ftell(std::FILE* file) { return told_size ? told_size : __real_ftell(file); }

std::size_t __real_fread(void* bytes, std::size_t size, std::size_t count, std::FILE* file);
std::size_t __wrap_fread(void* bytes, std::size_t size, std::size_t count, std::FILE* file)
{
    return __real_fread(bytes, size, reading_fails ? count / 2 : count, file);
}

int __real_ferror(std::FILE* file);
int __wrap_ferror(std::FILE* file) { return reading_fails ? 1 : __real_ferror(file); }

} // extern "C"

namespace {

TEST(a_file_that_cannot_be_read, is_an_error_and_the_old_text_stays)
{
    const std::string path = testing::TempDir() + "stdkro_reader_failure_test.txt";
    std::ofstream(path, std::ios::binary) << "new text";
    const struct {
        const char* what;
        int failing_seek;
        long told_size;
        bool reading_fails;
        int result;
    } cases[] = {
        { "to the end", 1, 0, false, err::file_system },
        { "back", 2, 0, false, err::file_system },
        { "no size", 0, -1, false, err::file_system },
        { "larger than a text may be", 0, static_cast<long>(0xFFFFFFFFul), false,
          sizeof(long) > 4 ? err::out_of_memory : err::file_system },
        { "half of it", 0, 0, true, err::file_system },
        { "nothing wrong", 0, 0, false, 0 },
    };
    for (const auto& c : cases) {
        reader r;
        ASSERT_EQ(0, r.load_string("old", nullptr, true));
        failing_seek = c.failing_seek;
        told_size = c.told_size;
        reading_fails = c.reading_fails;
        const int result = r.load_file(path.c_str(), "rb");
        failing_seek = 0;
        told_size = 0;
        reading_fails = false;
        EXPECT_EQ(c.result, result) << c.what;
        EXPECT_EQ(c.result < 0 ? "old" : "new text", std::string(r.get_cur(), r.get_eof())) << c.what;
    }
    std::remove(path.c_str());
}

} // namespace
