// Tests that fail, linked into the example suite to see what it does then.
#include <stdkro/testrunner.h>

#include <stdexcept>

namespace {

class broken_fixture : public testcase {
public:
    void setUp() override { throw xcpt(err::file_system, "no data to test with"); }
    void breaks() {}
};

class torn_fixture : public testcase {
public:
    void tearDown() override { throw std::runtime_error("cannot clean up"); }
    void tears() {}
};

// The compiler keeps one text for the names of both.
class failing_twin : public testcase {
public:
    void has_a_twin() { UT_FAIL("the other passes"); }
};

class passing_twin : public testcase {
public:
    void has_a_twin() {}
};

class failing_fixture : public testcase {
public:
    void fails_by_value() { UT_ASSERT_EQ(std::string("<a & b>"), "c"); }
    void fails_by_surprise() { throw std::runtime_error("x"); }
    void fails_never() { UT_ASSERT(true); }
};

} // namespace

UT_SUITE(failing)
{
    UT_CASE(failing_fixture, fails_by_value);
    UT_CASE(failing_fixture, fails_by_surprise);
    UT_CASE(failing_fixture, fails_never);
}

UT_SUITE(twins)
{
    UT_CASE(passing_twin, has_a_twin);
    UT_CASE(failing_twin, has_a_twin);
}

UT_SUITE(broken)
{
    UT_CASE(broken_fixture, breaks);
    UT_CASE(torn_fixture, tears);
}

UT_METHOD(fails_alone) { UT_FAIL("%d of %d", 1, 2); }
