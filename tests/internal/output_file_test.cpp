// An output file that may be written and not read is kept like any other. The system's
// refusal is played: who runs tests may be allowed everything.
#include <stdkro/xpp.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

// Reading this file is refused with this error.
std::string refused;
int refusal = 0;

} // namespace

extern "C" {

std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode)
{
    if (refused != path || *mode != 'r')
        return __real_fopen(path, mode);
    errno = refusal;
    return nullptr;
}

} // extern "C"

namespace {

std::string content(const std::string& path)
{
    std::ostringstream all;
    all << std::ifstream(path).rdbuf();
    return all.str();
}

TEST(output_file, is_kept_when_it_may_not_be_read)
{
    const std::string folder = testing::TempDir();
    const std::string script = folder + "stdkro_output_file_test.xpp";
    const std::string out = folder + "stdkro_output_file_test.out";
    std::ofstream(script) << "new";
    const struct {
        const char* what;
        int refusal;
        int result;
        const char* content;
    } cases[] = {
        { "not allowed", EACCES, err::overrun, "old" },
        { "not there", ENOENT, 0, "new" },
    };
    for (const auto& c : cases) {
        std::ofstream(out) << "old";
        refused = out;
        refusal = c.refusal;
        xpp::xmaker maker;
        EXPECT_EQ(maker.make(script.c_str(), out.c_str(), true), c.result) << c.what;
        refused.clear();
        EXPECT_EQ(content(out), c.content) << c.what;
    }
    std::remove(script.c_str());
    std::remove(out.c_str());
}

} // namespace
