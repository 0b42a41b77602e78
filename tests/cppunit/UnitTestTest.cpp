#include <gtest/gtest.h>
#include <orvane/UnitTest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/LogCapture.h"

// Sample tests run by the harness under test (never by GoogleTest itself).
namespace {
int failLine = 0;
int fatalLine = 0;
bool afterFatal = false;
}  // namespace

ORVANE_TEST(SampleA, Passes) {
    ORVANE_EXPECT_TRUE(1 + 1 == 2);
    ORVANE_EXPECT_EQ(std::string("x"), "x");
    ORVANE_EXPECT_NE(1, 2);
    ORVANE_EXPECT_LT(-1, 1u);  // by value, not by unsigned conversion
    ORVANE_EXPECT_GE(3u, 3);
    ORVANE_EXPECT_NEAR(0.1 + 0.2, 0.3, 1e-12);
}

ORVANE_TEST(SampleA, FailsAndGoesOn) {
    failLine = __LINE__ + 1;
    ORVANE_EXPECT_EQ(2 + 2, 5);
    ORVANE_EXPECT_NEAR(1.0, 1.5, 0.1);
    std::thread([] { ORVANE_EXPECT_FALSE(true); }).join();
}

ORVANE_TEST(SampleB, StopsAtAFatalAssertion) {
    fatalLine = __LINE__ + 1;
    ORVANE_ASSERT_GT(1, 2);
    afterFatal = true;
}

ORVANE_TEST(SampleB, Throws) { throw std::runtime_error("sensor <gone> & \"lost\""); }

ORVANE_TEST(SampleB, IsSkipped) { ORVANE_SKIP("no CAN bus here"); }

ORVANE_TEST(SampleC, FailsWithAMessage) { ORVANE_FAIL("bad wiring"); }

namespace orvane {
namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

TEST(TestRunner, RunsTheFilteredTestsAndSummarisesThem) {
    test::TestRunner runner;
    runner.setFilter("Sample*-SampleC.*");
    std::ostringstream out;
    EXPECT_EQ(runner.run(out), 3);
    EXPECT_FALSE(afterFatal);
    const auto& results = runner.results();
    ASSERT_EQ(results.size(), 5u);
    EXPECT_TRUE(results[0].passed());
    ASSERT_EQ(results[1].failures.size(), 3u);
    EXPECT_EQ(results[1].failures[0].line, failLine);
    EXPECT_NE(results[1].failures[0].file.find("UnitTestTest.cpp"), std::string::npos);
    EXPECT_EQ(results[1].failures[0].message, "expected 2 + 2 == 5, got 4 vs 5");
    EXPECT_EQ(results[1].failures[1].message,
              "expected 1.0 within 0.1 of 1.5, got 1 vs 1.5 (difference 0.5)");
    EXPECT_EQ(results[1].failures[2].message, "expected true to be false");
    ASSERT_EQ(results[2].failures.size(), 1u);
    EXPECT_EQ(results[2].failures[0].line, fatalLine);
    EXPECT_EQ(results[3].failures.at(0).message, "uncaught exception: sensor <gone> & \"lost\"");
    EXPECT_TRUE(results[4].skipped);

    std::vector<std::string> lines = linesOf(out.str());
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[1].rfind("FAIL SampleA.FailsAndGoesOn (", 0), 0u);
    EXPECT_NE(out.str().find("UnitTestTest.cpp:" + std::to_string(failLine) +
                             ": expected 2 + 2 == 5, got 4 vs 5\n"),
              std::string::npos);
    EXPECT_NE(out.str().find(": no CAN bus here\n"), std::string::npos);
    EXPECT_EQ(lines[lines.size() - 2], "1 skipped");
    EXPECT_EQ(lines.back(), "1 passed, 3 failed");
}

TEST(TestRunner, FiltersLikeGoogleTest) {
    struct Case {
        std::string name, filter;
        bool runs;
    };
    // clang-format off
    const std::vector<Case> cases = {
        {"A.b", "", true}, {"A.b", "*", true}, {"A.b", "A.*", true}, {"AB.b", "A.*", false},
        {"A.b", "B.*:A.b", true}, {"A.b", "?.b", true}, {"A.b", "*-A.b", false},
        {"A.c", "*-A.b", true}, {"A.b", "-A.*", false}, {"A.bc", "A.b", false},
        {"Ab.ab", "A*b.*b", true}};
    // clang-format on
    for (const Case& c : cases) {
        EXPECT_EQ(test::TestRunner::matchesFilter(c.name, c.filter), c.runs)
            << c.name << " with " << c.filter;
    }
}

TEST(TestRunner, WritesAWellFormedJUnitReport) {
    std::string path = test::tempPath("junit") + ".xml";
    test::TestRunner runner;
    runner.setFilter("SampleB.*:SampleA.Passes");
    runner.setJUnitPath(path);
    std::ostringstream out;
    EXPECT_EQ(runner.run(out), 2);
    std::ifstream in(path);
    std::string xml((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(xml, runner.junitXml());
    EXPECT_NE(xml.find("<testsuites tests=\"4\" failures=\"2\""), std::string::npos);
    EXPECT_NE(xml.find("<testsuite name=\"SampleB\" tests=\"3\" failures=\"2\" skipped=\"1\""),
              std::string::npos);
    EXPECT_NE(xml.find("uncaught exception: sensor &lt;gone&gt; &amp; &quot;lost&quot;"),
              std::string::npos);
    EXPECT_NE(xml.find("<skipped message=\"no CAN bus here\"/>"), std::string::npos);
    if (system("command -v python3 > /dev/null") == 0) {
        EXPECT_EQ(system(("python3 -c 'import sys, xml.dom.minidom as m; "
                          "d = m.parse(sys.argv[1]); "
                          "sys.exit(len(d.getElementsByTagName(\"testcase\")) != 4)' " +
                          path)
                             .c_str()),
                  0);
    }
    unlink(path.c_str());

    runner.setJUnitPath("/nonexistent-dir/report.xml");
    auto lines = test::LogCapture::get().linesDuring([&] { EXPECT_EQ(runner.run(out), -1); });
    EXPECT_EQ(lines,
              std::vector<std::string>{"<E>DATE [TestRunner::run,L#] cannot write the JUnit report "
                                       "/nonexistent-dir/report.xml: No such file or directory"});
}

TEST(TestRunner, MainGivesTheExitStatusAndTheClosingLine) {
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string lastLine;
    };
    const std::vector<Case> cases = {
        {{"--filter=SampleA.Passes"}, 0, "1 passed, 0 failed"},
        {{"--filter=SampleC.*"}, 1, "0 passed, 1 failed"},
        {{"--filter=SampleA.*", "--list"}, 0, "SampleA.FailsAndGoesOn"},
        {{"--bogus"}, 2, ""},
    };
    for (const Case& c : cases) {
        std::vector<char*> argv{const_cast<char*>("selftest")};
        for (const std::string& a : c.args) argv.push_back(const_cast<char*>(a.c_str()));
        testing::internal::CaptureStdout();
        int status = test::TestRunner::main(static_cast<int>(argv.size()), argv.data());
        std::vector<std::string> lines = linesOf(testing::internal::GetCapturedStdout());
        EXPECT_EQ(status, c.status) << c.args[0];
        EXPECT_EQ(lines.empty() ? "" : lines.back(), c.lastLine) << c.args[0];
    }
}

}  // namespace
}  // namespace orvane
