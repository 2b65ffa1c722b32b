// A test program with a main ready to be copied: filter, list, JUnit report, exit status.
//
//     example_unit_tests [--list] [--filter TEXT] [--junit FILE]
//
// The filter keeps the tests whose names contain the text. The exit status is 0
// when all tests passed, 1 when one failed or the report cannot be written, 2 for
// options that make no sense and a filter that keeps nothing.
#include <stdkro/option.h>
#include <stdkro/str.h>
#include <stdkro/testrunner.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <vector>

// ---- the tests ---------------------------------------------------------------

namespace {

class option_fixture : public testcase {
public:
    void setUp() override
    {
        options_.add("port", 'p', &port_);
        options_.add_bool("verbose", 'v', &verbose_);
    }
    void reads_a_number()
    {
        char name[] = "--port", value[] = "80";
        char* words[] = { name, value };
        UT_ASSERT_EQ(2, options_.read_argv(2, words, nullptr));
        UT_ASSERT_EQ(80, port_);
    }
    void misses_a_value()
    {
        char name[] = "-p";
        char* words[] = { name };
        UT_ASSERT_CODE(err::abnormal_end, options_.read_argv(1, words, nullptr));
    }

private:
    option options_;
    int port_ = 0;
    int verbose_ = 0;
};

void counts_words()
{
    const char* end = nullptr;
    UT_ASSERT_EQ(2, str::calc_argv("one \"two three\"", &end));
}

} // namespace

UT_SUITE(options)
{
    UT_CASE(option_fixture, reads_a_number);
    UT_CASE(option_fixture, misses_a_value);
}

UT_SUITE(words)
{
    UT_ADD(counts_words);
}

// ---- the runner ----------------------------------------------------------------

namespace {

struct leaf {
    const char* suite;
    test* what;
};

// All tests that are no suites.
void collect(testsuite& suite, std::vector<leaf>& found)
{
    for (int i = 0; i < suite.getTestCount(); ++i) {
        test* const child = suite.getTest(i);
        if (child->hasChilds())
            collect(static_cast<testsuite&>(*child), found);
        else
            found.push_back({ suite.getName(), child });
    }
}

std::string escaped(const char* text)
{
    std::string made;
    for (; *text; ++text) {
        switch (*text) {
        case '&': made += "&amp;"; break;
        case '<': made += "&lt;"; break;
        case '>': made += "&gt;"; break;
        case '"': made += "&quot;"; break;
        default: made += *text;
        }
    }
    return made;
}

// Writes the report of JUnit beside the usual one. Tests are told apart by their order:
// several may have one name.
class junit_runner : public testrunner {
public:
    junit_runner(const std::vector<leaf>& tests, const char* path) : tests_(tests), path_(path) {}
    // Every test ends with one of two texts; a failure has been collected then.
    void output(const char* text) override
    {
        testrunner::output(text);
        if (std::strcmp(text, "...\n") == 0)
            messages_.push_back(std::nullopt);
        else if (std::strcmp(text, "failed!\n") == 0)
            messages_.push_back(getErrors().back().error.what());
    }
    void reportError() override
    {
        testrunner::reportError();
        if (path_ && !write()) {
            has_trouble_ = true;
            print("cannot write %s\n", path_);
        }
    }
    bool hasPassed() const { return getFailedCount() == 0 && !has_trouble_; }

private:
    bool write() const
    {
        std::FILE* const to = std::fopen(path_, "w");
        if (!to)
            return false;
        std::fprintf(to, "<testsuite name=\"root\" tests=\"%d\" failures=\"%d\">\n", getRunCount(), getFailedCount());
        for (std::size_t i = 0; i < std::min(tests_.size(), messages_.size()); ++i) {
            std::fprintf(to, "  <testcase classname=\"%s\" name=\"%s\"", tests_[i].suite, tests_[i].what->getName());
            if (messages_[i])
                std::fprintf(to, "><failure message=\"%s\"/></testcase>\n", escaped(messages_[i]->c_str()).c_str());
            else
                std::fprintf(to, "/>\n");
        }
        std::fprintf(to, "</testsuite>\n");
        const bool is_written = !std::ferror(to);
        return std::fclose(to) == 0 && is_written;
    }

    const std::vector<leaf>& tests_; // in the order in which they run
    const char* path_;
    std::vector<std::optional<std::string>> messages_; // of each test that has ended, none when it passed
    bool has_trouble_ = false;
};

int report_fixture(const char* what)
{
    std::fprintf(stderr, "a fixture failed: %s\n", what);
    return 1;
}

// The exit status. What setUp and tearDown throw leaves the runner before its report.
int run(junit_runner& runner, test& what)
{
    try {
        runner.runTest(what);
        return runner.hasPassed() ? 0 : 1;
    } catch (const xcpt& e) {
        return report_fixture(e.what());
    } catch (const std::exception& e) {
        return report_fixture(e.what());
    }
}

} // namespace

int main(int argc, char** argv)
{
    int is_list = 0;
    char* filter = nullptr;
    char* junit = nullptr;
    option options;
    options.add_bool("list", 'l', &is_list);
    options.add("filter", 'f', &filter);
    options.add("junit", 'j', &junit);
    int position = 0;
    if (options.read_argv(argc - 1, argv + 1, &position) < 0) {
        std::fprintf(stderr, "'%s' makes no sense\nusage: [--list] [--filter TEXT] [--junit FILE]\n", argv[1 + position]);
        return 2;
    }
    std::vector<leaf> all;
    collect(ut_registry::getObject().getRootSuite(), all);
    std::vector<leaf> chosen;
    testsuite selection("selected");
    for (const leaf& t : all) {
        if (filter && !std::strstr(t.what->getName(), filter))
            continue;
        chosen.push_back(t);
        selection.addTest(*t.what);
        if (is_list)
            std::printf("%s.%s\n", t.suite, t.what->getName());
    }
    if (is_list)
        return 0;
    if (filter && chosen.empty()) {
        std::fprintf(stderr, "no test contains '%s'\n", filter);
        return 2;
    }
    junit_runner runner(chosen, junit);
    return run(runner, filter ? selection : ut_registry::getObject().getRootSuite());
}
