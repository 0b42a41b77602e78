#include <orvane/UnitTest.h>

#include <stdexcept>

#include "support/LogCapture.h"

// Sample tests run by the harness under test (never by GoogleTest itself).
static int failLine = 0;

ORVANE_TEST(SampleA, Passes) {
    ORVANE_EXPECT_EQ(std::string("x"), "x");
    ORVANE_EXPECT_LT(-1, 1u);  // by value, not by unsigned conversion
    ORVANE_EXPECT_NEAR(0.1 + 0.2, 0.3, 1e-12);
}

ORVANE_TEST(SampleA, FailsAndGoesOn) {
    failLine = __LINE__ + 1;
    ORVANE_EXPECT_EQ(2 + 2, 5);
    ORVANE_EXPECT_NEAR(1.0, 1.5, 0.1);
    std::thread([] { ORVANE_EXPECT_FALSE(true); }).join();
}

ORVANE_TEST(SampleB, StopsAtAFatalAssertion) {
    ORVANE_ASSERT_GT(1, 2);
    ORVANE_FAIL("went on");
}

ORVANE_TEST(SampleB, Throws) { throw std::runtime_error("sensor <gone> & \"lost\""); }

ORVANE_TEST(SampleB, IsSkipped) { ORVANE_SKIP("no CAN bus here"); }

ORVANE_TEST(SampleC, FailsWithAMessage) { ORVANE_FAIL("bad wiring"); }

namespace orvane {
namespace {

TEST(TestRunner, RunsTheFilteredTestsAndReportsThemAsTextAndJUnit) {
    std::string path = test::tempPath("junit") + ".xml";
    test::TestRunner runner;
    runner.setFilter("Sample*-SampleC.*");
    runner.setJUnitPath(path);
    std::ostringstream out;
    EXPECT_EQ(runner.run(out), 3);
    const auto& results = runner.results();
    // One failure from another thread; the fatal one stops its test.
    ASSERT_TRUE(results.size() == 5u && results[0].passed() && results[4].skipped &&
                results[1].failures.size() == 3u && results[2].failures.size() == 1u);
    EXPECT_EQ(results[1].failures[1].message,
              "expected 1.0 within 0.1 of 1.5, got 1 vs 1.5 (difference 0.5)");
    std::string text = out.str();
    EXPECT_TRUE(text.find("\nFAIL SampleA.FailsAndGoesOn (") != std::string::npos &&
                text.find("UnitTestTest.cpp:" + std::to_string(failLine) +
                          ": expected 2 + 2 == 5, got 4 vs 5\n") != std::string::npos)
        << text;
    EXPECT_EQ(text.substr(text.rfind("1 skipped")), "1 skipped\n1 passed, 3 failed\n");

    std::string xml = runner.junitXml();
    EXPECT_NE(xml.find("<testsuite name=\"SampleB\" tests=\"3\" failures=\"2\" skipped=\"1\""),
              std::string::npos);
    EXPECT_NE(xml.find("uncaught exception: sensor &lt;gone&gt; &amp; &quot;lost&quot;"),
              std::string::npos);
    // An independent parser reads the file written and finds the five test cases.
    const std::string parse =
        "python3 -c 'import sys, xml.dom.minidom as m; sys.exit(len(m.parse("
        "sys.argv[1]).getElementsByTagName(\"testcase\")) != 5)' " +
        path + " 2>/dev/null || ! command -v python3";
    EXPECT_EQ(system(parse.c_str()), 0);
    unlink(path.c_str());
}

TEST(TestRunner, FiltersLikeGoogleTestAndGivesTheExitStatusOfAWholeProgram) {
    const std::tuple<const char*, const char*, bool> filters[] = {
        {"A.b", "", true},      {"AB.b", "A.*", false},   {"A.b", "B.*:A.b", true},
        {"A.b", "?.b", true},   {"A.c", "*-A.b", true},   {"A.b", "-A.*", false},
        {"A.bc", "A.b", false}, {"Ab.ab", "A*b.*b", true}};
    for (const auto& [name, filter, runs] : filters)
        EXPECT_EQ(test::TestRunner::matchesFilter(name, filter), runs) << name << " " << filter;
    const std::pair<const char*, int> cases[] = {{"--list", 0},
                                                 {"--filter=SampleC.*", 1},
                                                 {"--bogus", 2},
                                                 {"--junit=/nonexistent/r.xml", 2}};
    std::vector<std::string> lines;
    for (const auto& c : cases) {
        const char* argv[] = {"selftest", "--filter=SampleA.Passes", c.first};
        testing::internal::CaptureStdout();
        lines = test::LogCapture::get().linesDuring([&] {
            EXPECT_EQ(test::TestRunner::main(3, const_cast<char**>(argv)), c.second) << c.first;
        });
        EXPECT_EQ(testing::internal::GetCapturedStdout() == "SampleA.Passes\n", c.second == 0);
    }
    // Only the unwritable report logs.
    EXPECT_EQ(lines,
              std::vector<std::string>{"<E>DATE [TestRunner::run,L#] cannot write the JUnit "
                                       "report /nonexistent/r.xml: No such file or directory"});
}

}  // namespace
}  // namespace orvane
