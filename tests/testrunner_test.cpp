// The unit-test framework: its reports compared as whole texts.
#include <stdkro/testrunner.h>

#include "virtual_slot.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

/// Collects what a runner prints, the report included.
struct recorder : testrunner {
    std::string text;

    void output(const char* t) override { text += t; }
    void reportError() override
    {
        std::FILE* const file = std::tmpfile();
        printError(file);
        std::rewind(file);
        for (int ch; (ch = std::fgetc(file)) != EOF;)
            text += static_cast<char>(ch);
        std::fclose(file);
    }
};

std::string steps;

struct fixture : testcase {
    void setUp() override { steps += "setUp "; }
    void tearDown() override { steps += "tearDown "; }
    void passes() { steps += "passes "; }
    void fails() { throw ut_error("fixture.cpp", 7, "%d is not %s", 1, "two"); }
    void throws_other() { throw std::runtime_error("x"); }
    void throws_code() { throw xcpt(err::timeout, "late"); }
};

void plain() { steps += "plain "; }
void plain_fails() { UT_FAIL("number %d", 5); }

template <class method> fixture make_case(method run, const char* name)
{
    fixture f;
    f.setPfnDoTest(static_cast<testcase::method>(run));
    f.setClassName("fixture");
    f.setName(name);
    f.setFileName("registered.cpp");
    f.setLine(11);
    return f;
}

std::string report_of(test& t)
{
    recorder r;
    r.runTest(t);
    return r.text;
}

} // namespace

TEST(testrunner, has_its_functions_in_this_order)
{
    // Behind the destructor.
    EXPECT_EQ(2u, slot_of(&test::hasChilds));
    EXPECT_EQ(3u, slot_of(&test::runTest));
    EXPECT_EQ(4u, slot_of(&testcase::setUp));
    EXPECT_EQ(5u, slot_of(&testcase::tearDown));
    EXPECT_EQ(2u, slot_of(&testrunner::output));
    EXPECT_EQ(3u, slot_of(&testrunner::reportError));
    EXPECT_TRUE(std::has_virtual_destructor<test>::value);
    EXPECT_TRUE(std::has_virtual_destructor<testrunner>::value);
}

TEST(testrunner, reports_a_suite_of_passing_cases)
{
    fixture first = make_case(&fixture::passes, "first");
    fixture second = make_case(&fixture::passes, "second");
    testsuite math("math");
    EXPECT_EQ(0, math.addTest(first));
    EXPECT_EQ(1, math.addTest(second));
    EXPECT_EQ("begin  math ...\n"
              "       fixture::first ...\n"
              "       fixture::second ...\n"
              "end    math\n"
              "\n"
              "OK(2)\n",
              report_of(math));
}

TEST(testrunner, reports_a_tree_with_every_kind_of_end)
{
    fixture fails = make_case(&fixture::fails, "fails");
    fixture other = make_case(&fixture::throws_other, "other");
    fixture code = make_case(&fixture::throws_code, "code");
    testmethod good(plain, "good", "m.cpp", 1);
    testmethod bad(plain_fails, "bad", "m.cpp", 2);
    testsuite inner("inner");
    testsuite empty("empty");
    testsuite root("root");
    inner.addTest(fails);
    inner.addTest(other);
    root.addTest(inner);
    root.addTest(empty);
    root.addTest(code);
    root.addTest(good);
    root.addTest(bad);
    recorder r;
    r.runTest(root);
    std::string expected = "begin  root ...\n"
                           "begin  inner ...\n"
                           "       fixture::fails failed!\n"
                           "       fixture::other failed!\n"
                           "end    inner\n"
                           "begin  empty ...\n"
                           "end    empty\n"
                           "       fixture::code failed!\n"
                           "       good ...\n"
                           "       bad failed!\n"
                           "end    root\n"
                           "\n"
                           "fixture.cpp(7): fails: 1 is not two\n"
                           "registered.cpp(11): other: uncatch exception\n"
                           "registered.cpp(11): code: uncatch exception\n";
    expected += std::string(__FILE__) + "(" + std::to_string(r.getErrors()[3].error.getLine()) + "): bad: number 5\n";
    expected += "OK(1), FAILED(4)\n";
    EXPECT_EQ(expected, r.text);
    EXPECT_EQ(5, r.getRunCount());
    EXPECT_EQ(1, r.getPassedCount());
    EXPECT_EQ(4, r.getFailedCount());
}

TEST(testrunner, reports_a_single_test_without_a_suite)
{
    fixture alone = make_case(&fixture::passes, "alone");
    EXPECT_EQ("       fixture::alone ...\n\nOK(1)\n", report_of(alone));
    testmethod other([] { throw 5; }, "other", "m.cpp", 9);
    EXPECT_EQ("       other failed!\n\nm.cpp(9): other: uncatch exception\nOK(0), FAILED(1)\n", report_of(other));
}

TEST(testrunner, reports_nothing_run_as_ok_0)
{
    testsuite empty("root");
    EXPECT_EQ("begin  root ...\nend    root\n\nOK(0)\n", report_of(empty));
}

TEST(testrunner, forgets_the_run_before)
{
    testmethod bad(plain_fails, "bad", "m.cpp", 2);
    testmethod good(plain, "good", "m.cpp", 1);
    recorder r;
    r.runTest(bad);
    r.text.clear();
    r.runTest(good);
    EXPECT_EQ("       good ...\n\nOK(1)\n", r.text);
    EXPECT_EQ(1, r.getRunCount());
    EXPECT_EQ(0, r.getFailedCount());
}

TEST(testrunner, tears_down_behind_every_end_of_a_method)
{
    steps.clear();
    fixture good = make_case(&fixture::passes, "good");
    fixture bad = make_case(&fixture::fails, "bad");
    fixture other = make_case(&fixture::throws_other, "other");
    testsuite suite("s");
    suite.addTest(good);
    suite.addTest(bad);
    suite.addTest(other);
    report_of(suite);
    EXPECT_EQ("setUp passes tearDown setUp tearDown setUp tearDown ", steps);
}

TEST(testrunner, lets_exceptions_of_setUp_and_tearDown_through)
{
    struct bad_set_up : testcase {
        void setUp() override { throw std::runtime_error("setUp"); }
    } set_up;
    struct bad_tear_down : testcase {
        void run() {}
        void tearDown() override { throw std::runtime_error("tearDown"); }
    } tear_down;
    tear_down.setPfnDoTest(static_cast<testcase::method>(&bad_tear_down::run));
    recorder r;
    EXPECT_THROW(r.runTest(set_up), std::runtime_error);
    EXPECT_EQ("", r.text) << "setUp comes first, and there is no report";
    EXPECT_EQ(0, r.getRunCount());
    EXPECT_THROW(r.runTest(tear_down), std::runtime_error);
    EXPECT_EQ(1, r.getPassedCount()) << "the test itself had been counted";
}

TEST(testrunner, prints_at_most_1024_characters)
{
    recorder r;
    r.print("%s", std::string(1024, 'a').c_str());
    EXPECT_EQ(1024u, r.text.size());
    r.text.clear();
    r.print("%s", std::string(3000, 'b').c_str());
    EXPECT_EQ(std::string(1024, 'b'), r.text);
}

TEST(testrunner, writes_to_standard_error_by_default)
{
    testmethod bad(plain_fails, "bad", "m.cpp", 2);
    testing::internal::CaptureStderr();
    testrunner runner;
    runner.runTest(bad);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(0u, text.find("       bad failed!\n\n")) << text;
    EXPECT_NE(std::string::npos, text.find("OK(0), FAILED(1)\n")) << text;
}

TEST(testrunner, collects_without_counting)
{
    testrunner r;
    r.addError(ut_error("f", 1, "m"), "name");
    EXPECT_EQ(1u, r.getErrors().size());
    EXPECT_EQ(0, r.getRunCount());
    EXPECT_EQ(0, r.getFailedCount());
}

TEST(ut_error, carries_code_place_and_a_message_of_255_characters)
{
    const ut_error e("file.cpp", 42, "%s", std::string(300, 'x').c_str());
    EXPECT_EQ(err::failed, e.get_err());
    EXPECT_STREQ("file.cpp", e.getFileName());
    EXPECT_EQ(42, e.getLine());
    EXPECT_EQ(std::string(255, 'x'), e.what());
    const ut_error copy(e);
    EXPECT_EQ(std::string(255, 'x'), copy.what());
    EXPECT_NE(e.what(), copy.what()) << "each points at its own text";
}

TEST(testsuite, finds_and_removes_its_tests)
{
    testmethod a(plain, "a", "", 0);
    testmethod b(plain, "b", "", 0);
    testsuite s("s");
    EXPECT_TRUE(s.hasChilds());
    EXPECT_FALSE(a.hasChilds());
    EXPECT_FALSE(fixture().hasChilds());
    s.addTest(a);
    s.addTest(b);
    s.addTest(a);
    EXPECT_EQ(3, s.getTestCount());
    EXPECT_EQ(1, s.findTest("b"));
    EXPECT_EQ(0, s.findTest("a"));
    EXPECT_LT(s.findTest("c"), 0);
    EXPECT_EQ(&b, s.getTest(1));
    EXPECT_EQ(nullptr, s.getTest(3));
    EXPECT_EQ(nullptr, s.getTest(-1));
    EXPECT_FALSE(s.rmTest(3));
    EXPECT_FALSE(s.rmTest(-1));
    EXPECT_TRUE(s.rmTest(0));
    EXPECT_EQ(0, s.findTest("b"));
    s.clear();
    EXPECT_EQ(0, s.getTestCount());
}

// ---- registration and macros, as a program uses them ---------------------------

namespace {

void added() {}

struct registered : testcase {
    void equal() { UT_ASSERT_EQ(4, 2 + 2); }
    void unequal() { UT_ASSERT_EQ(std::string("four"), "five"); }
};

UT_METHOD(in_root) { UT_ASSERT(1 < 2); }

UT_SUITE(outer)
{
    UT_CASE(registered, equal);
    UT_ADD(added);
    static const ut_register_testsuite nested("nested", [](testsuite&) { UT_CASE(registered, unequal); });
}

UT_METHOD(in_root_again) { UT_ASSERT_CODE(err::timeout, err::ok); }

} // namespace

TEST(ut_registry, holds_what_registered_itself_in_the_order_of_the_source)
{
    testsuite& root = ut_registry::getObject().getRootSuite();
    EXPECT_STREQ("root", root.getName());
    EXPECT_EQ(nullptr, ut_registry::getObject().getCurrentSuite());
    EXPECT_EQ(&root, &ut_registry::getSuite());
    recorder r;
    r.runTest(root);
    EXPECT_EQ(0u,
              r.text.find("begin  root ...\n"
                          "       in_root ...\n"
                          "begin  outer ...\n"
                          "       registered::equal ...\n"
                          "       added ...\n"
                          "begin  nested ...\n"
                          "       registered::unequal failed!\n"
                          "end    nested\n"
                          "end    outer\n"
                          "       in_root_again failed!\n"
                          "end    root\n"))
        << r.text;
    ASSERT_EQ(2u, r.getErrors().size());
    EXPECT_STREQ("\"five\": expected four, got \"five\"", r.getErrors()[0].error.what());
    EXPECT_STREQ("err::ok: expected 0x8002000c \"timeout\", got 0x00000000 \"<OK>\"", r.getErrors()[1].error.what());
}

TEST(ut_registry, takes_registrations_into_the_current_suite)
{
    testsuite mine("mine");
    ut_registry& registry = ut_registry::getObject();
    registry.setCurrentSuite(&mine);
    EXPECT_EQ(&mine, &ut_registry::getSuite());
    fixture f;
    const ut_register_testcase registrar(f, static_cast<testcase::method>(&fixture::passes), "class", "name", "file", 3);
    registry.setCurrentSuite(nullptr);
    EXPECT_EQ(&f, mine.getTest(0));
    EXPECT_STREQ("class", f.getClassName());
    EXPECT_STREQ("name", f.getName());
    EXPECT_STREQ("file", f.getFileName());
    EXPECT_EQ(3, f.getLine());
}

TEST(ut_registry, fills_a_suite_before_it_is_added)
{
    testsuite mine("mine");
    ut_registry& registry = ut_registry::getObject();
    registry.setCurrentSuite(&mine);
    static const testsuite* filled;
    static int count_while_filling;
    const ut_register_testsuite made("made", [](testsuite& suite) {
        filled = &suite;
        count_while_filling = ut_registry::getObject().getRootSuite().findTest("made");
        EXPECT_EQ(&suite, ut_registry::getObject().getCurrentSuite());
        EXPECT_STREQ("made", suite.getName());
    });
    EXPECT_EQ(&mine, registry.getCurrentSuite()) << "what was current is current again";
    registry.setCurrentSuite(nullptr);
    EXPECT_EQ(1, mine.getTestCount());
    EXPECT_EQ(filled, mine.getTest(0));
    EXPECT_LT(count_while_filling, 0);
}

TEST(ut_registry, forgets_a_suite_whose_filling_throws)
{
    testsuite mine("mine");
    ut_registry& registry = ut_registry::getObject();
    registry.setCurrentSuite(&mine);
    EXPECT_THROW(ut_register_testsuite("bad", [](testsuite&) { throw std::runtime_error("fill"); }), std::runtime_error);
    EXPECT_EQ(&mine, registry.getCurrentSuite());
    EXPECT_EQ(0, mine.getTestCount());
    registry.setCurrentSuite(nullptr);
}

TEST(ut_registry, is_emptied_by_clear)
{
    ut_registry& registry = ut_registry::getObject();
    testsuite& root = registry.getRootSuite();
    std::vector<test*> registered;
    for (int i = 0; i < root.getTestCount(); ++i)
        registered.push_back(root.getTest(i));
    testsuite mine("mine");
    registry.setCurrentSuite(&mine);
    registry.clear();
    EXPECT_EQ(0, root.getTestCount());
    EXPECT_EQ(nullptr, registry.getCurrentSuite());
    EXPECT_EQ(&root, &ut_registry::getSuite());
    for (test* const t : registered)
        root.addTest(*t);
}

TEST(assertions, say_what_was_expected_and_what_was_there)
{
    static const struct {
        void (*run)();
        const char* message;
    } cases[] = {
        { [] { UT_ASSERT(1 == 1); }, nullptr },
        { [] { UT_ASSERT(1 == 2); }, "1 == 2 does not hold" },
        { [] { UT_ASSERT_EQ(3, 1 + 2); }, nullptr },
        { [] { UT_ASSERT_EQ(3, 1 + 3); }, "1 + 3: expected 3, got 4" },
        { [] { UT_ASSERT_EQ(true, false); }, "false: expected true, got false" },
        // C strings are compared as texts.
        { [] {
             const std::string text = "four";
             char buffer[] = "four";
             UT_ASSERT_EQ("four", text.c_str());
             UT_ASSERT_EQ("four", buffer);
             UT_ASSERT_EQ(&buffer[0], text.c_str());
             UT_ASSERT_EQ(text, buffer);
         },
          nullptr },
        { [] { UT_ASSERT_EQ("four", "five"); }, "\"five\": expected \"four\", got \"five\"" },
        { [] { UT_ASSERT_EQ("", static_cast<const char*>(nullptr)); },
          "static_cast<const char*>(nullptr): expected \"\", got null" },
        { [] { UT_ASSERT_CODE(err::ok, 0); }, nullptr },
        { [] { UT_ASSERT_CODE(0, err::syntax); },
          "err::syntax: expected 0x00000000 \"<OK>\", got 0x80020005 \"syntax error\"" },
        { [] { UT_ASSERT_THROWS(err::syntax, throw xrterror(err::syntax, "x")); }, nullptr },
        { [] { UT_ASSERT_THROWS(err::syntax, (void)0); },
          "(void)0: expected 0x80020005 \"syntax error\" to be thrown, nothing was" },
        { [] { UT_ASSERT_THROWS(err::syntax, throw xcpt(err::failed, nullptr)); },
          "throw xcpt(err::failed, nullptr): expected 0x80020005 \"syntax error\", got 0x80020001 \"failed\"" },
        { [] { UT_FAIL("%d of %d", 1, 2); }, "1 of 2" },
    };
    for (const auto& c : cases) {
        std::string message = "nothing";
        try {
            c.run();
        } catch (const ut_error& e) {
            message = e.what();
            EXPECT_STREQ(__FILE__, e.getFileName());
        }
        EXPECT_EQ(c.message ? c.message : "nothing", message);
    }
}
