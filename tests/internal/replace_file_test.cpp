// How the tool replaces a file: at each step the old content is still there, and where
// a step fails it stays and nothing else does.
#include "files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

namespace {

using std::string;
namespace fs = std::filesystem;

// What is asked before each step; false makes it fail.
struct step_hooks {
    std::function<bool(const char* path)> open = [](const char*) { return true; };
    std::function<bool()> write = [] { return true; };
    std::function<bool()> close = [] { return true; };
};
step_hooks* hooks = nullptr; // null: everything works

} // namespace

extern "C" {

std::FILE* __real_make_file(const char* path);
std::FILE* __wrap_make_file(const char* path)
{
    errno = EACCES;
    return !hooks || hooks->open(path) ? __real_make_file(path) : nullptr;
}

std::size_t __real_fwrite(const void* bytes, std::size_t size, std::size_t count, std::FILE* file);
std::size_t __wrap_fwrite(const void* bytes, std::size_t size, std::size_t count, std::FILE* file)
{
    return __real_fwrite(bytes, size, !hooks || hooks->write() ? count : count / 2, file);
}

int __real_fclose(std::FILE* file);
int __wrap_fclose(std::FILE* file)
{
    const int r = __real_fclose(file);
    return !hooks || hooks->close() ? r : EOF;
}

} // extern "C"

namespace {

const string old_text = "old content\n";
const string new_text(100000, 'n');
const int file_system_error = static_cast<int>(0x80020002);

class replacing : public testing::Test {
protected:
    replacing() : folder_(fs::path(testing::TempDir()) / "stdkro_replace_file_test"), path((folder_ / "file.txt").string())
    {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        std::ofstream(path, std::ios::binary) << old_text;
    }
    ~replacing() override
    {
        hooks = nullptr;
        fs::remove_all(folder_);
    }

    string text(const string& of) const
    {
        std::ifstream in(of, std::ios::binary);
        return string(std::istreambuf_iterator<char>(in), {});
    }
    int replace()
    {
        hooks = &given;
        const int r = replace_file(path, new_text);
        hooks = nullptr;
        return r;
    }
    long count_files() const { return std::distance(fs::directory_iterator(folder_), fs::directory_iterator()); }
    void expect_untouched() const
    {
        EXPECT_EQ(old_text, text(path));
        EXPECT_EQ(1, count_files());
    }

private:
    fs::path folder_;

protected:
    string path;
    step_hooks given;
};

TEST_F(replacing, leaves_the_old_content_until_the_last_step)
{
    int steps = 0;
    const auto look = [&] {
        ++steps;
        return text(path) == old_text;
    };
    string written_to;
    given.open = [&](const char* to) {
        written_to = to;
        return look();
    };
    given.write = look;
    given.close = look;
    EXPECT_EQ(0, replace());
    EXPECT_EQ(3, steps);
    EXPECT_NE(path, written_to);
    EXPECT_EQ(fs::path(path).parent_path().filename(), fs::path(written_to).parent_path().filename());
    EXPECT_EQ(new_text, text(path));
    EXPECT_EQ(1, count_files());
}

TEST_F(replacing, keeps_the_file_when_none_can_be_made_beside_it)
{
    given.open = [](const char*) { return false; };
    EXPECT_EQ(file_system_error, replace());
    expect_untouched();
}

TEST_F(replacing, keeps_the_file_when_the_disk_is_full)
{
    given.write = [] { return false; };
    EXPECT_EQ(file_system_error, replace());
    expect_untouched();
}

TEST_F(replacing, keeps_the_file_when_closing_the_new_one_fails)
{
    given.close = [] { return false; };
    EXPECT_EQ(file_system_error, replace());
    expect_untouched();
}

TEST_F(replacing, keeps_the_file_when_the_new_one_cannot_take_its_name)
{
    string made;
    given.open = [&](const char* to) {
        made = to;
        return true;
    };
    given.close = [&] {
        fs::remove(made);
        return true;
    };
    EXPECT_EQ(file_system_error, replace());
    expect_untouched();
}

TEST_F(replacing, takes_a_name_that_no_file_has)
{
    for (const char* end : { ".new", ".new2" })
        std::ofstream(path + end, std::ios::binary) << "mine";
    EXPECT_EQ(0, replace());
    EXPECT_EQ(new_text, text(path));
    EXPECT_EQ("mine", text(path + ".new"));
    EXPECT_EQ("mine", text(path + ".new2"));
    EXPECT_EQ(3, count_files());
}

TEST_F(replacing, leaves_a_name_that_somebody_takes_meanwhile)
{
    string taken;
    given.open = [&](const char* to) {
        if (taken.empty())
            std::ofstream(taken = to, std::ios::binary) << "mine";
        return true;
    };
    EXPECT_EQ(0, replace());
    EXPECT_EQ(new_text, text(path));
    EXPECT_EQ("mine", text(taken));
    EXPECT_EQ(2, count_files());
}

TEST_F(replacing, wants_a_file_that_is_there)
{
    EXPECT_EQ(file_system_error, replace_file(path + "x", new_text));
    EXPECT_EQ(1, count_files());
}

} // namespace
