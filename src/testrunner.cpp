// Suites, cases and functions that run under one runner, and the registry that
// collects them before the program starts.
#include <stdkro/testrunner.h>

#include <cstdarg>
#include <cstring>
#include <new>

namespace {

// Runs one test's body, prints how it ended and counts it.
template <class body> void run_guarded(testrunner& runner, const test& t, body run)
{
    bool has_passed = false;
    try {
        run();
        has_passed = true;
    } catch (const ut_error& e) {
        runner.addError(e, t.getName());
    } catch (...) {
        runner.addError(ut_error(t.getFileName(), t.getLine(), "uncatch exception"), t.getName());
    }
    runner.print(has_passed ? "...\n" : "failed!\n");
    runner.addResult(has_passed);
}

// Registrations go to a suite as long as this lives, then to the one before.
struct current_suite {
    explicit current_suite(testsuite& suite) : registry(ut_registry::getObject()), outer(registry.getCurrentSuite())
    {
        registry.setCurrentSuite(&suite);
    }
    current_suite(const current_suite&) = delete;
    current_suite& operator=(const current_suite&) = delete;
    ~current_suite() { registry.setCurrentSuite(outer); }

    ut_registry& registry;
    testsuite* const outer;
};

} // namespace

ut_error::ut_error(const char* file, int line, const char* format, ...) : file_(file), line_(line)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    xrterror::operator=(xrterror(err::failed, "%s", text));
}

test::~test() = default;

void testsuite::runTest(testrunner& runner)
{
    runner.print("begin  %s ...\n", getName());
    // A test may add or remove others, so ask for the count each time.
    for (int i = 0; i < getTestCount(); ++i)
        children_[static_cast<std::size_t>(i)]->runTest(runner);
    runner.print("end    %s\n", getName());
}

int testsuite::addTest(test& child)
{
    try {
        children_.push_back(&child);
        return getTestCount() - 1;
    } catch (const std::bad_alloc&) {
        return err::out_of_memory;
    }
}

bool testsuite::rmTest(int index)
{
    if (!is_index(index))
        return false;
    children_.erase(children_.begin() + index);
    return true;
}

int testsuite::findTest(const char* name) const
{
    for (int i = 0; i < getTestCount(); ++i)
        if (std::strcmp(getTest(i)->getName(), name) == 0)
            return i;
    return -1;
}

test* testsuite::getTest(int index) const
{
    return is_index(index) ? children_[static_cast<std::size_t>(index)] : nullptr;
}

void testcase::runTest(testrunner& runner)
{
    setUp();
    runner.print("       %s::%s ", class_name_, getName());
    run_guarded(runner, *this, [this] {
        const auto run = run_; // a local pointer: with the sanitizers gcc takes the member for uninitialized
        (this->*run)();
    });
    tearDown();
}

testmethod::testmethod(void (*function)(), const char* name, const char* file, int line) : function_(function)
{
    setName(name);
    setFileName(file);
    setLine(line);
}

void testmethod::runTest(testrunner& runner)
{
    runner.print("       %s ", getName());
    run_guarded(runner, *this, function_);
}

testrunner::~testrunner() = default;

void testrunner::output(const char* text) { std::fputs(text, stderr); }

void testrunner::reportError() { printError(stderr); }

void testrunner::runTest(test& what)
{
    clear();
    what.runTest(*this);
    reportError();
}

void testrunner::clear()
{
    run_ = passed_ = failed_ = 0;
    errors_.clear();
}

void testrunner::addError(const ut_error& error, const char* name)
{
    try {
        errors_.push_back({ error, name });
    } catch (const std::bad_alloc&) {
        // The failure still counts; only its line in the report is lost.
    }
}

void testrunner::addResult(bool has_passed)
{
    ++run_;
    ++(has_passed ? passed_ : failed_);
}

void testrunner::print(const char* format, ...)
{
    char text[1024 + 1];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    output(text);
}

void testrunner::printError(std::FILE* to) const
{
    std::fputs("\n", to);
    for (const failure& f : errors_)
        std::fprintf(to, "%s(%d): %s: %s\n", f.error.getFileName(), f.error.getLine(), f.name, f.error.what());
    std::fprintf(to, "OK(%d)", passed_);
    if (failed_ > 0)
        std::fprintf(to, ", FAILED(%d)", failed_);
    std::fputs("\n", to);
}

ut_registry& ut_registry::getObject()
{
    static ut_registry object;
    return object;
}

testsuite& ut_registry::getSuite()
{
    ut_registry& object = getObject();
    return object.current_ ? *object.current_ : object.root_;
}

void ut_registry::clear()
{
    root_.clear();
    current_ = nullptr;
}

ut_register_testsuite::ut_register_testsuite(const char* name, void (*fill)(testsuite& suite)) : suite_(name)
{
    {
        const current_suite filled(suite_);
        fill(suite_);
    }
    ut_registry::getSuite().addTest(suite_);
}

ut_register_testcase::ut_register_testcase(testcase& object, testcase::method run, const char* class_name,
                                           const char* name, const char* file, int line)
{
    object.setPfnDoTest(run);
    object.setClassName(class_name);
    object.setName(name);
    object.setFileName(file);
    object.setLine(line);
    ut_registry::getSuite().addTest(object);
}

ut_register_testmethod::ut_register_testmethod(testmethod& object) { ut_registry::getSuite().addTest(object); }

std::string ut_code_text(int code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(code));
    return std::string(text) + " \"" + get_err_info(code) + '"';
}

void ut_expect(bool is_true, const char* condition, const char* file, int line)
{
    if (!is_true)
        throw ut_error(file, line, "%s does not hold", condition);
}

void ut_expect_code(int expected, int code, const char* expression, const char* file, int line)
{
    if (code != expected)
        throw ut_error(file, line, "%s: expected %s, got %s", expression, ut_code_text(expected).c_str(),
                       ut_code_text(code).c_str());
}
