// Documents are written to files that fail: when a byte is refused, and when only
// closing tells.
#include <stdkro/ini_doc.h>
#include <stdkro/xml_doc.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

bool disk_is_full = false;
bool closing_fails = false;
std::string modes; // of the files that were opened
int open_files = 0;

} // namespace

extern "C" {

std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode)
{
    modes += std::string(mode) + " ";
    std::FILE* const file = __real_fopen(path, mode);
    open_files += file != nullptr;
    return file;
}

std::size_t __real_fwrite(const void* bytes, std::size_t size, std::size_t count, std::FILE* file);
std::size_t __wrap_fwrite(const void* bytes, std::size_t size, std::size_t count, std::FILE* file)
{
    return __real_fwrite(bytes, size, disk_is_full ? 0 : count, file);
}

int __real_fclose(std::FILE* file);
int __wrap_fclose(std::FILE* file)
{
    --open_files;
    const int r = __real_fclose(file);
    return closing_fails ? EOF : r;
}

} // extern "C"

namespace {

const int file_system_error = static_cast<int>(0x80020002);

class written_files : public testing::Test {
protected:
    written_files() : path(testing::TempDir() + "stdkro_document_write_test.txt")
    {
        ini.add_section("section")->add_attr("name", "value");
        xml.init("root");
        set(false, false);
        modes.clear();
    }
    ~written_files() override
    {
        set(false, false);
        EXPECT_EQ(0, open_files);
        std::remove(path.c_str());
    }

    static void set(bool full, bool close)
    {
        disk_is_full = full;
        closing_fails = close;
    }
    void expect(int code)
    {
        EXPECT_EQ(code, ini.write(path.c_str()));
        EXPECT_EQ(code, xml.write(path.c_str(), true));
    }

    const std::string path;
    ini_doc ini;
    xml_doc xml;
};

TEST_F(written_files, are_a_success_when_all_bytes_were_taken)
{
    expect(0);
    modes.clear();
    EXPECT_EQ(0, ini.write(path.c_str()));
    EXPECT_EQ(0, ini.read(path.c_str()));
    EXPECT_EQ("w+ r ", modes);
}

TEST_F(written_files, fail_when_a_write_fails)
{
    set(true, false);
    expect(file_system_error);
}

TEST_F(written_files, fail_when_closing_fails)
{
    set(false, true);
    expect(file_system_error);
}

TEST_F(written_files, fail_when_both_fail)
{
    set(true, true);
    expect(file_system_error);
}

} // namespace
