#pragma once

#include <orvane/Export.h>

#include <cmath>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// A small unit-test harness that a device program carries onto its target,
// where GoogleTest is not installed: test cases in suites, assertions that
// record file and line, and a runner with a filter, a summary and a JUnit
// XML report.
//
//     #include <orvane/UnitTest.h>
//
//     ORVANE_TEST(Clock, Moves) {
//         auto a = now();
//         ORVANE_ASSERT_TRUE(a > 0);              // fatal: the test stops here
//         ORVANE_EXPECT_EQ(read(fd, buf, 4), 4);  // records and carries on
//         ORVANE_EXPECT_NEAR(ratio, 1.0, 0.01);
//     }
//
//     int main(int argc, char** argv) { return orvane::test::TestRunner::main(argc, argv); }
//
// The program then takes "--filter=Suite.*" (':'-separated patterns with
// '*' and '?'; a part after '-' excludes), "--junit=report.xml", "--list"
// and "--help". It prints one line per test, the failures with file and
// line, and closes with exactly "N passed, N failed" on its own line (a
// test ended by ORVANE_SKIP counts in neither; an "N skipped" line comes
// before). Its exit status is 0 when nothing failed, 1 when a test failed
// and 2 for a bad option or a report that could not be written.
//
// EXPECT_* assertions record a failure and let the test go on; ASSERT_*
// ones also return from the test function (so use them only in the test
// body itself, which returns void). Values in failure messages are printed
// with operator<< when the type has one. An exception escaping a test is a
// failure of that test. Tests run one after another on the runner's thread,
// in registration order (source order within a file); assertions may also
// be made from other threads while a test runs. Registration happens during
// static initialisation and costs one small allocation per test.
namespace orvane {
namespace test {

// One assertion that did not hold.
struct ORVANE_API TestFailure {
    // The source file of the assertion.
    std::string file;
    // Its line.
    int line = 0;
    // What did not hold.
    std::string message;
};

// The outcome of one test.
struct ORVANE_API TestResult {
    // The test's suite.
    std::string suite;
    // The test's name.
    std::string name;
    // The assertions that did not hold.
    std::vector<TestFailure> failures;
    // True when the test asked to be skipped.
    bool skipped = false;
    // Why it was skipped.
    std::string skipReason;
    // How long the test ran, in seconds.
    double seconds = 0;
    // No failure and not skipped.
    bool passed() const { return failures.empty() && !skipped; }
    // An assertion failed; run() counts such a test as failed even when it
    // also asked to be skipped.
    bool failed() const { return !failures.empty(); }
};

// A registered test: its suite, name, place of definition and body.
struct ORVANE_API TestInfo {
    // The suite the test belongs to.
    std::string suite;
    // The test's name within its suite.
    std::string name;
    // The source file that defines it.
    std::string file;
    // Its line.
    int line = 0;
    // The test itself.
    std::function<void()> body;
    // "Suite.Name", the form the filter matches.
    std::string fullName() const { return suite + "." + name; }
};

// Runs registered tests and reports on them. One runner at a time per
// process (the assertions report to the test that is running).
class ORVANE_API TestRunner {
  public:
    TestRunner();

    // Adds a test to the process-wide list; returns true so a macro can
    // register from a static initialiser. Any thread, though in practice
    // static initialisation.
    static bool add(const std::string& suite, const std::string& name, const char* file, int line,
                    std::function<void()> body);
    // Every registered test, in registration order.
    static const std::vector<TestInfo>& all();
    // True when "Suite.Name" passes a filter: ':'-separated patterns with
    // '*' (any run) and '?' (any one character); patterns after a '-' exclude.
    // An empty filter or "*" passes everything.
    static bool matchesFilter(const std::string& fullName, const std::string& filter);

    // Runs only the tests that pass `filter` (see matchesFilter).
    void setFilter(const std::string& filter) { filter_ = filter; }
    // Writes a JUnit XML report there after run(); "" (the default) writes none.
    void setJUnitPath(const std::string& path) { junitPath_ = path; }
    // Runs every test that passes the filter, printing progress, failures
    // and the summary to `out`. Returns the number of failed tests; -1 when
    // the JUnit report cannot be written (the run itself is complete).
    int run(std::ostream& out);
    // The results of the last run().
    const std::vector<TestResult>& results() const { return results_; }
    // The JUnit XML text of the last run(): <testsuites> with one
    // <testsuite> per suite and one <testcase> per test.
    std::string junitXml() const;

    // A whole test program: parses the options named above, runs, and
    // returns the exit status (0 all passed, 1 a failure, 2 bad options or
    // an unwritable report).
    static int main(int argc, char** argv);

    // For the assertion macros: record a failure of the running test (or
    // print it to stderr when no test runs), or mark it skipped.
    static void recordFailure(const char* file, int line, const std::string& message);
    // Marks the running test skipped for `reason`; nothing when no test runs.
    static void recordSkip(const std::string& reason);
    // For the NEAR macros: true when |a - b| <= tolerance, else records the
    // failure with both texts and values.
    static bool checkNear(const char* file, int line, const char* aText, const char* bText,
                          double a, double b, double tolerance);

    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    std::string filter_;
    std::string junitPath_;
    std::vector<TestResult> results_;
};

namespace detail {

template <typename T, typename = void>
struct Printable : std::false_type {};
template <typename T>
struct Printable<T, decltype(void(std::declval<std::ostream&>() << std::declval<const T&>()))>
    : std::true_type {};

// A value as failure messages show it: through operator<< when there is
// one, else "<unprintable>". Strings are quoted.
template <typename T>
std::string show(const T& value) {
    if constexpr (std::is_pointer<T>::value &&
                  std::is_same<std::remove_cv_t<std::remove_pointer_t<T>>, char>::value) {
        return value == nullptr ? std::string("(null)") : "\"" + std::string(value) + "\"";
    } else if constexpr (std::is_convertible<const T&, std::string>::value &&
                         !std::is_same<T, std::nullptr_t>::value) {
        return "\"" + std::string(value) + "\"";
    } else if constexpr (std::is_same<T, bool>::value) {
        return value ? "true" : "false";
    } else if constexpr (Printable<T>::value) {
        std::ostringstream text;
        text << value;
        return text.str();
    } else {
        return "<unprintable>";
    }
}

enum class Cmp { Eq, Ne, Lt, Le, Gt, Ge };

template <typename T>
constexpr bool isPlainInteger() {
    return std::is_integral<T>::value && !std::is_same<T, bool>::value;
}

// a < b and a == b; integers of mixed signedness compare by value, so
// -1 < 1u holds and no sign-compare warning reaches the test's code.
template <typename A, typename B>
bool less(const A& a, const B& b) {
    if constexpr (isPlainInteger<A>() && isPlainInteger<B>() &&
                  std::is_signed<A>::value != std::is_signed<B>::value) {
        if constexpr (std::is_signed<A>::value) {
            return a < 0 || static_cast<std::make_unsigned_t<A>>(a) < b;
        } else {
            return b >= 0 && a < static_cast<std::make_unsigned_t<B>>(b);
        }
    } else {
        return a < b;
    }
}
template <typename A, typename B>
bool equal(const A& a, const B& b) {
    if constexpr (isPlainInteger<A>() && isPlainInteger<B>() &&
                  std::is_signed<A>::value != std::is_signed<B>::value) {
        return !less(a, b) && !less(b, a);
    } else {
        return a == b;
    }
}

template <Cmp op, typename A, typename B>
bool holds(const A& a, const B& b) {
    constexpr bool mixed = isPlainInteger<A>() && isPlainInteger<B>() &&
                           std::is_signed<A>::value != std::is_signed<B>::value;
    if constexpr (op == Cmp::Eq) return equal(a, b);
    if constexpr (op == Cmp::Ne) return !equal(a, b);
    if constexpr (op == Cmp::Lt) return less(a, b);
    if constexpr (op == Cmp::Gt) return less(b, a);
    if constexpr (op == Cmp::Le) {
        if constexpr (mixed) return !less(b, a);
        if constexpr (!mixed) return a <= b;
    }
    if constexpr (op == Cmp::Ge) {
        if constexpr (mixed) return !less(a, b);
        if constexpr (!mixed) return a >= b;
    }
}

template <Cmp op, typename A, typename B>
bool compare(const char* file, int line, const char* aText, const char* bText, const char* opText,
             const A& a, const B& b) {
    if (holds<op>(a, b)) return true;
    TestRunner::recordFailure(file, line,
                              std::string("expected ") + aText + " " + opText + " " + bText +
                                  ", got " + show(a) + " vs " + show(b));
    return false;
}

}  // namespace detail
}  // namespace test
}  // namespace orvane

// Defines and registers the test Suite.Name; the body follows in braces.
#define ORVANE_TEST(Suite, Name)                                           \
    static void orvaneTest_##Suite##_##Name();                             \
    static const bool orvaneTestAdded_##Suite##_##Name [[maybe_unused]] =  \
        ::orvane::test::TestRunner::add(#Suite, #Name, __FILE__, __LINE__, \
                                        &orvaneTest_##Suite##_##Name);     \
    static void orvaneTest_##Suite##_##Name()

#define ORVANE_TEST_CMP_(a, b, op, opText, onFail)                             \
    do {                                                                       \
        if (!::orvane::test::detail::compare<::orvane::test::detail::Cmp::op>( \
                __FILE__, __LINE__, #a, #b, opText, (a), (b))) {               \
            onFail;                                                            \
        }                                                                      \
    } while (0)

#define ORVANE_TEST_BOOL_(cond, want, onFail)                                            \
    do {                                                                                 \
        if (static_cast<bool>(cond) != (want)) {                                         \
            ::orvane::test::TestRunner::recordFailure(                                   \
                __FILE__, __LINE__, std::string("expected ") + #cond + " to be " #want); \
            onFail;                                                                      \
        }                                                                                \
    } while (0)

#define ORVANE_EXPECT_TRUE(cond) ORVANE_TEST_BOOL_(cond, true, (void)0)
#define ORVANE_EXPECT_FALSE(cond) ORVANE_TEST_BOOL_(cond, false, (void)0)
#define ORVANE_EXPECT_EQ(a, b) ORVANE_TEST_CMP_(a, b, Eq, "==", (void)0)
#define ORVANE_EXPECT_NE(a, b) ORVANE_TEST_CMP_(a, b, Ne, "!=", (void)0)
#define ORVANE_EXPECT_LT(a, b) ORVANE_TEST_CMP_(a, b, Lt, "<", (void)0)
#define ORVANE_EXPECT_LE(a, b) ORVANE_TEST_CMP_(a, b, Le, "<=", (void)0)
#define ORVANE_EXPECT_GT(a, b) ORVANE_TEST_CMP_(a, b, Gt, ">", (void)0)
#define ORVANE_EXPECT_GE(a, b) ORVANE_TEST_CMP_(a, b, Ge, ">=", (void)0)
// |a - b| <= tolerance, for floating point.
#define ORVANE_EXPECT_NEAR(a, b, tolerance) \
    (void)::orvane::test::TestRunner::checkNear(__FILE__, __LINE__, #a, #b, (a), (b), (tolerance))

#define ORVANE_ASSERT_TRUE(cond) ORVANE_TEST_BOOL_(cond, true, return )
#define ORVANE_ASSERT_FALSE(cond) ORVANE_TEST_BOOL_(cond, false, return )
#define ORVANE_ASSERT_EQ(a, b) ORVANE_TEST_CMP_(a, b, Eq, "==", return )
#define ORVANE_ASSERT_NE(a, b) ORVANE_TEST_CMP_(a, b, Ne, "!=", return )
#define ORVANE_ASSERT_LT(a, b) ORVANE_TEST_CMP_(a, b, Lt, "<", return )
#define ORVANE_ASSERT_LE(a, b) ORVANE_TEST_CMP_(a, b, Le, "<=", return )
#define ORVANE_ASSERT_GT(a, b) ORVANE_TEST_CMP_(a, b, Gt, ">", return )
#define ORVANE_ASSERT_GE(a, b) ORVANE_TEST_CMP_(a, b, Ge, ">=", return )
#define ORVANE_ASSERT_NEAR(a, b, tolerance)                                              \
    do {                                                                                 \
        if (!::orvane::test::TestRunner::checkNear(__FILE__, __LINE__, #a, #b, (a), (b), \
                                                   (tolerance)))                         \
            return;                                                                      \
    } while (0)

// Records a failure with the message and carries on (ADD_FAILURE) or
// returns from the test (FAIL).
#define ORVANE_ADD_FAILURE(message) \
    ::orvane::test::TestRunner::recordFailure(__FILE__, __LINE__, (message))
#define ORVANE_FAIL(message)                                                      \
    do {                                                                          \
        ::orvane::test::TestRunner::recordFailure(__FILE__, __LINE__, (message)); \
        return;                                                                   \
    } while (0)
// Ends the test as skipped (neither passed nor failed), with a reason: for
// a check the device cannot make (no such hardware).
#define ORVANE_SKIP(reason)                               \
    do {                                                  \
        ::orvane::test::TestRunner::recordSkip((reason)); \
        return;                                           \
    } while (0)
