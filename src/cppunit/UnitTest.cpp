#include <orvane/StrUtil.h>
#include <orvane/UnitTest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>

#include "log/LogLine.h"

namespace orvane {
namespace test {

namespace {

std::vector<TestInfo>& registry() {
    static std::vector<TestInfo> tests;
    return tests;
}

// The result the assertions write to while a test runs; null between tests.
std::mutex currentMutex;
TestResult* current = nullptr;

// '*' any run, '?' any one character.
bool globMatch(const char* text, const char* pattern) {
    const char* star = nullptr;
    const char* resume = nullptr;
    while (*text != '\0') {
        if (*pattern == '*') {
            star = pattern++;
            resume = text;
        } else if (*pattern == '?' || *pattern == *text) {
            ++pattern;
            ++text;
        } else if (star != nullptr) {
            pattern = star + 1;
            text = ++resume;
        } else {
            return false;
        }
    }
    while (*pattern == '*') ++pattern;
    return *pattern == '\0';
}

bool anyMatches(const std::string& name, const std::string& patterns) {
    for (const std::string& p : StrUtil::splitString(patterns, ":", true)) {
        if (globMatch(name.c_str(), p.c_str())) return true;
    }
    return false;
}

std::string xmlEscape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            default:
                // XML 1.0 allows no other control characters.
                if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t' && c != '\r') {
                    out += '?';
                } else {
                    out += c;
                }
        }
    }
    return out;
}

std::string seconds(double s) { return StrUtil::format("%.3f", s); }

}  // namespace

TestRunner::TestRunner() : className("TestRunner") {}

bool TestRunner::add(const std::string& suite, const std::string& name, const char* file, int line,
                     std::function<void()> body) {
    registry().push_back(TestInfo{suite, name, file, line, std::move(body)});
    return true;
}

const std::vector<TestInfo>& TestRunner::all() { return registry(); }

bool TestRunner::matchesFilter(const std::string& fullName, const std::string& filter) {
    size_t dash = filter.find('-');
    std::string positive = filter.substr(0, dash);
    std::string negative = dash == std::string::npos ? "" : filter.substr(dash + 1);
    if (!positive.empty() && !anyMatches(fullName, positive)) return false;
    return negative.empty() || !anyMatches(fullName, negative);
}

void TestRunner::recordFailure(const char* file, int line, const std::string& message) {
    std::lock_guard<std::mutex> lock(currentMutex);
    if (current == nullptr) {
        fprintf(stderr, "%s:%d: failure outside a test: %s\n", file, line, message.c_str());
        return;
    }
    current->failures.push_back(TestFailure{file, line, message});
}

void TestRunner::recordSkip(const std::string& reason) {
    std::lock_guard<std::mutex> lock(currentMutex);
    if (current == nullptr) return;
    current->skipped = true;
    current->skipReason = reason;
}

int TestRunner::run(std::ostream& out) {
    results_.clear();
    int failed = 0;
    int skipped = 0;
    auto runStart = std::chrono::steady_clock::now();
    for (const TestInfo& info : registry()) {
        if (!matchesFilter(info.fullName(), filter_)) continue;
        results_.push_back(TestResult{info.suite, info.name, {}, false, "", 0});
        TestResult& result = results_.back();
        {
            std::lock_guard<std::mutex> lock(currentMutex);
            current = &result;
        }
        auto start = std::chrono::steady_clock::now();
        try {
            info.body();
        } catch (const std::exception& e) {
            recordFailure(info.file.c_str(), info.line,
                          std::string("uncaught exception: ") + e.what());
        } catch (...) {
            recordFailure(info.file.c_str(), info.line, "uncaught exception of unknown type");
        }
        std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        {
            std::lock_guard<std::mutex> lock(currentMutex);
            current = nullptr;
            result.seconds = took.count();
            // A failure before a skip still counts: the test failed.
            if (!result.failures.empty()) result.skipped = false;
        }
        const char* verdict = result.skipped ? "SKIP" : result.passed() ? "PASS" : "FAIL";
        out << verdict << " " << info.fullName() << " (" << seconds(result.seconds) << " s)";
        if (result.skipped) out << ": " << result.skipReason;
        out << "\n";
        for (const TestFailure& f : result.failures) {
            out << "    " << f.file << ":" << f.line << ": " << f.message << "\n";
        }
        failed += result.failed() ? 1 : 0;
        skipped += result.skipped ? 1 : 0;
    }
    std::chrono::duration<double> took = std::chrono::steady_clock::now() - runStart;
    int total = static_cast<int>(results_.size());
    out << total << " tests ran in " << seconds(took.count()) << " s\n";
    if (failed > 0) {
        out << "Failed:\n";
        for (const TestResult& r : results_) {
            if (r.failed()) out << "    " << r.suite << "." << r.name << "\n";
        }
    }
    if (skipped > 0) out << skipped << " skipped\n";
    out << (total - failed - skipped) << " passed, " << failed << " failed" << std::endl;
    if (junitPath_.empty()) return failed;
    // errno is read right after the open or the close that failed: building
    // the report text in between may change it.
    std::ofstream report(junitPath_, std::ios::trunc);
    int err = errno;
    if (report) {
        report << junitXml();
        report.close();
        err = errno;
    }
    if (!report) {
        ORVANE_ERROR("cannot write the JUnit report %s: %s", junitPath_.c_str(), strerror(err));
        return -1;
    }
    return failed;
}

std::string TestRunner::junitXml() const {
    // Suites in the order of their first test.
    std::vector<std::string> order;
    std::map<std::string, std::vector<const TestResult*>> bySuite;
    int failures = 0;
    double total = 0;
    for (const TestResult& r : results_) {
        if (bySuite.find(r.suite) == bySuite.end()) order.push_back(r.suite);
        bySuite[r.suite].push_back(&r);
        failures += r.failed() ? 1 : 0;
        total += r.seconds;
    }
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    xml += StrUtil::format("<testsuites tests=\"%zu\" failures=\"%d\" time=\"%s\">\n",
                           results_.size(), failures, seconds(total).c_str());
    for (const std::string& suite : order) {
        int suiteFailures = 0;
        int suiteSkipped = 0;
        double suiteTime = 0;
        for (const TestResult* r : bySuite[suite]) {
            suiteFailures += r->failed() ? 1 : 0;
            suiteSkipped += r->skipped ? 1 : 0;
            suiteTime += r->seconds;
        }
        xml += StrUtil::format(
            "  <testsuite name=\"%s\" tests=\"%zu\" failures=\"%d\" skipped=\"%d\" time=\"%s\">\n",
            xmlEscape(suite).c_str(), bySuite[suite].size(), suiteFailures, suiteSkipped,
            seconds(suiteTime).c_str());
        for (const TestResult* r : bySuite[suite]) {
            xml += StrUtil::format("    <testcase classname=\"%s\" name=\"%s\" time=\"%s\"",
                                   xmlEscape(suite).c_str(), xmlEscape(r->name).c_str(),
                                   seconds(r->seconds).c_str());
            if (r->passed()) {
                xml += "/>\n";
                continue;
            }
            xml += ">\n";
            if (r->skipped) {
                xml += "      <skipped message=\"" + xmlEscape(r->skipReason) + "\"/>\n";
            }
            for (const TestFailure& f : r->failures) {
                std::string where = f.file + ":" + std::to_string(f.line);
                xml += "      <failure message=\"" + xmlEscape(f.message) + "\">" +
                       xmlEscape(where + ": " + f.message) + "</failure>\n";
            }
            xml += "    </testcase>\n";
        }
        xml += "  </testsuite>\n";
    }
    xml += "</testsuites>\n";
    return xml;
}

int TestRunner::main(int argc, char** argv) {
    TestRunner runner;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (StrUtil::startsWith(arg, "--filter=")) {
            runner.setFilter(arg.substr(9));
        } else if (StrUtil::startsWith(arg, "--junit=")) {
            runner.setJUnitPath(arg.substr(8));
        } else if (arg == "--list") {
            for (const TestInfo& t : all()) {
                if (matchesFilter(t.fullName(), runner.filter_)) std::cout << t.fullName() << "\n";
            }
            return 0;
        } else {
            bool help = arg == "--help" || arg == "-h";
            (help ? std::cout : std::cerr)
                << (help ? "" : "unknown option " + arg + "\n") << "usage: " << argv[0]
                << " [--filter=Suite.*:Other.Name-Excluded.*] [--junit=report.xml] [--list]\n";
            return help ? 0 : 2;
        }
    }
    int failed = runner.run(std::cout);
    if (failed < 0) return 2;
    return failed > 0 ? 1 : 0;
}

bool TestRunner::checkNear(const char* file, int line, const char* aText, const char* bText,
                           double a, double b, double tolerance) {
    if (std::fabs(a - b) <= tolerance) return true;
    TestRunner::recordFailure(
        file, line,
        StrUtil::format("expected %s within %g of %s, got %.17g vs %.17g (difference %g)", aText,
                        tolerance, bText, a, b, std::fabs(a - b)));
    return false;
}

}  // namespace test
}  // namespace orvane
