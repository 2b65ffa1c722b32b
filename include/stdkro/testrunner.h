// A unit-test framework: tests register themselves, a runner walks their tree and
// reports.
//
//     UT_METHOD(addition_is_commutative)
//     {
//         UT_ASSERT_EQ(1 + 2, 2 + 1);
//     }
//
//     int main()
//     {
//         testrunner runner;
//         runner.runTest(ut_registry::getObject().getRootSuite());
//         return runner.getFailedCount() == 0 ? 0 : 1;
//     }
//
// Tests form a tree of suites, cases (a method of a fixture, between `setUp` and
// `tearDown`) and plain functions. Nothing here owns a test: registered tests are
// static objects. One thread registers and runs them.
#ifndef STDKRO_TESTRUNNER_H
#define STDKRO_TESTRUNNER_H

#include <stdkro/config.h>
#include <stdkro/xcpt.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

class testrunner;

/// A failed assertion: code 0x80020001, a message and the place.
class KRO_API ut_error : public xrterror {
public:
    /// printf-style; the message is cut at 255 characters. `file` is not copied.
    ut_error(const char* file, int line, const char* format, ...) KRO_PRINTF(4, 5);

    const char* getFileName() const { return file_; }
    int getLine() const { return line_; }

private:
    const char* file_;
    int line_;
};

/// Anything that can be run. The texts are not owned.
class KRO_API test {
public:
    virtual ~test();
    virtual bool hasChilds() const = 0;
    virtual void runTest(testrunner& runner) = 0;

    const char* getName() const { return name_; }
    void setName(const char* name) { name_ = name; }
    const char* getFileName() const { return file_; }
    void setFileName(const char* file) { file_ = file; }
    int getLine() const { return line_; }
    void setLine(int line) { line_ = line; }

private:
    const char* name_ = "";
    const char* file_ = "";
    int line_ = 0;
};

/// Tests in the order they were added; they are not owned.
class KRO_API testsuite : public test {
public:
    explicit testsuite(const char* name) { setName(name); }
    bool hasChilds() const override { return true; }
    void runTest(testrunner& runner) override;

    /// The new test's index, or 0x80010002 without memory.
    int addTest(test& child);
    /// False when there is no test at `index`. Later tests move down.
    bool rmTest(int index);
    /// The index of the first test of that name, or -1.
    int findTest(const char* name) const;
    /// The test at `index`, or null.
    test* getTest(int index) const;
    int getTestCount() const { return static_cast<int>(children_.size()); }
    void clear() { children_.clear(); }

private:
    bool is_index(int index) const { return index >= 0 && index < getTestCount(); }

    std::vector<test*> children_;
};

/// One method of a fixture. Derive the fixture from this class; `setUp` runs before the
/// method, `tearDown` behind it, also when it failed. Exceptions of these
/// two leave the runner.
class KRO_API testcase : public test {
public:
    typedef void (testcase::*method)();

    bool hasChilds() const override { return false; }
    void runTest(testrunner& runner) override;
    virtual void setUp() {}
    virtual void tearDown() {}

    const char* getClassName() const { return class_name_; }
    void setClassName(const char* name) { class_name_ = name; }
    void setPfnDoTest(method run) { run_ = run; }

private:
    const char* class_name_ = "";
    method run_ = nullptr;
};

/// One plain function.
class KRO_API testmethod : public test {
public:
    testmethod(void (*function)(), const char* name, const char* file, int line);
    bool hasChilds() const override { return false; }
    void runTest(testrunner& runner) override;

private:
    void (*function_)();
};

/// Runs a tree of tests, prints a line for each, and reports the failures.
/// Override `output` and `reportError` to send them elsewhere.
class KRO_API testrunner {
public:
    testrunner() = default;
    virtual ~testrunner();
    /// Receives every text that is printed; writes it to standard error.
    virtual void output(const char* text);
    /// Called once behind all tests; prints the report to standard error.
    virtual void reportError();

    /// Forgets earlier results, runs `what` and reports.
    void runTest(test& what);
    void clear();
    /// Collects a failure; counts nothing.
    void addError(const ut_error& error, const char* name);
    /// Counts one test.
    void addResult(bool has_passed);
    /// printf-style, cut at 1,024 characters, to `output`.
    void print(const char* format, ...) KRO_PRINTF(2, 3);
    /// Writes the report: "FILE(LINE): NAME: MESSAGE" for each failure, then the totals.
    void printError(std::FILE* to) const;

    int getRunCount() const { return run_; }
    int getPassedCount() const { return passed_; }
    int getFailedCount() const { return failed_; }

    /// A collected failure and the name of the test that it belongs to.
    struct failure {
        ut_error error;
        const char* name;
    };
    const std::vector<failure>& getErrors() const { return errors_; }

private:
    int run_ = 0;
    int passed_ = 0;
    int failed_ = 0;
    std::vector<failure> errors_;
};

/// All tests of the program: a suite "root", and the suite that registrations go to now.
class KRO_API ut_registry {
public:
    static ut_registry& getObject();
    /// The current suite, or the root when none is set.
    static testsuite& getSuite();

    void setCurrentSuite(testsuite* suite) { current_ = suite; }
    testsuite* getCurrentSuite() const { return current_; }
    testsuite& getRootSuite() { return root_; }
    /// Empties the root and selects no suite.
    void clear();

private:
    ut_registry() : root_("root") {}

    testsuite root_;
    testsuite* current_ = nullptr;
};

/// Makes a suite, fills it, and adds it to the current suite. Tests that register
/// while `fill` runs land in it. Construct it as a static object: it holds the suite.
class KRO_API ut_register_testsuite {
public:
    ut_register_testsuite(const char* name, void (*fill)(testsuite& suite));

private:
    testsuite suite_;
};

/// Adds a case to the current suite.
class KRO_API ut_register_testcase {
public:
    ut_register_testcase(testcase& object, testcase::method run, const char* class_name, const char* name,
                         const char* file, int line);
};

/// Adds a plain test function to the current suite.
class KRO_API ut_register_testmethod {
public:
    explicit ut_register_testmethod(testmethod& object);
};

// ---- what the macros below call -----------------------------------------------

/// How a value stands in the message of a failed comparison.
template <class value> std::string ut_text(const value& v)
{
    std::ostringstream text;
    text << v;
    return text.str();
}
inline std::string ut_text(const char* text) { return text ? '"' + std::string(text) + '"' : "null"; }
inline std::string ut_text(char* text) { return ut_text(static_cast<const char*>(text)); }
inline std::string ut_text(bool b) { return b ? "true" : "false"; }

/// Two C strings are equal when their texts are, everything else when == says so.
inline bool ut_is_equal(const char* left, const char* right)
{
    return left == right || (left && right && std::strcmp(left, right) == 0);
}
template <class left, class right> bool ut_is_equal(const left& l, const right& r)
{
    if constexpr ((std::is_same_v<std::decay_t<left>, char*> || std::is_same_v<std::decay_t<left>, const char*>)
                  && (std::is_same_v<std::decay_t<right>, char*> || std::is_same_v<std::decay_t<right>, const char*>))
        return ut_is_equal(static_cast<const char*>(l), static_cast<const char*>(r));
    else
        return l == r;
}

/// A status code with its message.
KRO_API std::string ut_code_text(int code);

/// Each throws an ut_error when what it says is not so.
KRO_API void ut_expect(bool is_true, const char* condition, const char* file, int line);
KRO_API void ut_expect_code(int expected, int code, const char* expression, const char* file, int line);

template <class left, class right>
void ut_expect_equal(const left& expected, const right& value, const char* expression, const char* file, int line)
{
    if (!ut_is_equal(expected, value))
        throw ut_error(file, line, "%s: expected %s, got %s", expression, ut_text(expected).c_str(),
                       ut_text(value).c_str());
}

template <class body> void ut_expect_throw(int code, body run, const char* statement, const char* file, int line)
{
    try {
        run();
    } catch (const xcpt& thrown) {
        ut_expect_code(code, thrown.get_err(), statement, file, line);
        return;
    }
    throw ut_error(file, line, "%s: expected %s to be thrown, nothing was", statement, ut_code_text(code).c_str());
}

/// Fails unless `condition` holds.
#define UT_ASSERT(condition) ut_expect((condition) ? true : false, #condition, __FILE__, __LINE__)
/// Fails unless `expected == value`, of C strings their texts; the message shows both.
#define UT_ASSERT_EQ(expected, value) ut_expect_equal((expected), (value), #value, __FILE__, __LINE__)
/// Fails unless `expression` is the status code `code`; the message shows both with their texts.
#define UT_ASSERT_CODE(code, expression) ut_expect_code((code), (expression), #expression, __FILE__, __LINE__)
/// Fails unless `statement` throws an xcpt with the status code `code`.
#define UT_ASSERT_THROWS(code, statement)                                                                             \
    ut_expect_throw((code), [&] { statement; }, #statement, __FILE__, __LINE__)
/// Fails with a printf-style message.
#define UT_FAIL(...) throw ut_error(__FILE__, __LINE__, __VA_ARGS__)

/// Defines and registers a plain test: UT_METHOD(name) { ... }
#define UT_METHOD(name)                                                                                               \
    static void name();                                                                                               \
    static testmethod ut_method_##name(name, #name, __FILE__, __LINE__);                                              \
    static const ut_register_testmethod ut_registrar_##name(ut_method_##name);                                        \
    static void name()

/// Registers a method of a fixture: UT_CASE(fixture, method);
#define UT_CASE(fixture, name)                                                                                        \
    static fixture ut_case_##fixture##_##name;                                                                        \
    static const ut_register_testcase ut_registrar_##fixture##_##name(                                                \
        ut_case_##fixture##_##name, static_cast<testcase::method>(&fixture::name), #fixture, #name, __FILE__, __LINE__)

/// Defines and registers a suite; UT_CASE and UT_ADD inside its body land in it:
/// UT_SUITE(name) { UT_CASE(fixture, method); UT_ADD(function); }
#define UT_SUITE(name)                                                                                                \
    static void ut_fill_##name(testsuite& suite);                                                                     \
    static const ut_register_testsuite ut_suite_##name(#name, ut_fill_##name);                                        \
    static void ut_fill_##name([[maybe_unused]] testsuite& suite)

/// Registers a function that is defined elsewhere: UT_ADD(function);
#define UT_ADD(function)                                                                                              \
    static testmethod ut_method_##function(function, #function, __FILE__, __LINE__);                                  \
    static const ut_register_testmethod ut_registrar_##function(ut_method_##function)

#endif
