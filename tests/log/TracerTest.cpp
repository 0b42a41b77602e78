#include <gtest/gtest.h>
#include <orvane/StrUtil.h>
#include <orvane/System.h>
#include <orvane/Tracer.h>
#include <orvane/TracerSink.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <thread>
#include <tuple>

#include "log/LogLine.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

// Prints `marker` and waits for it: every line printed before it has been
// delivered too.
void barrier(test::LogCapture& capture, const char* marker) {
    Tracer::getInstance().print(1, "<I>%s", marker);
    ASSERT_TRUE(capture.waitFor(marker));
}

struct Probe {
    std::string className = "Probe";
    void fail(int code) { ORVANE_ERROR("probe failed: %d", code); }
    void warn() { ORVANE_WARN("probe warned"); }
    void tell() { ORVANE_NOTE("probe told %s", "x"); }
    void enter() { ORVANE_NOTE_IN("operator()", "[%s] probe entered.", "p"); }
    static void check() { ORVANE_SERROR("probe checked %d", 2); }
};

// A program's own lines through the public macros; a filtered one does not
// evaluate its arguments.
int openModem() {
    int evaluated = 0;
    ORVANE_LOG_INFO("Modem", "opened %s at %d baud", "/dev/ttyS1", 9600);
    ORVANE_LOG_ERROR("", "gave up after %d tries", 3);
    ORVANE_LOG_DEBUG("Modem", "filtered %d", ++evaluated);
    return evaluated;
}

TEST(Tracer, DeliversLibraryLinesInTheirExactShape) {
    auto& capture = test::LogCapture::fresh();
    Probe probe;
    probe.fail(7);
    probe.warn();
    probe.tell();
    probe.enter();
    Probe::check();
    EXPECT_EQ(openModem(), 0);
    { TraceDuration always("always scope", 0); }
    { TraceDuration never("never scope", 60000); }
    EXPECT_EQ(capture.waitLine("probe failed"), "<E>DATE [Probe::fail,L#] probe failed: 7");
    EXPECT_EQ(capture.waitLine("probe warned"), "<W>DATE [Probe::warn,L#] probe warned");
    EXPECT_EQ(capture.waitLine("probe told"), "<I>DATE [Probe::tell] probe told x");
    EXPECT_EQ(capture.waitLine("probe entered"), "<I>DATE [Probe::operator()] [p] probe entered.");
    EXPECT_EQ(capture.waitLine("probe checked"), "<E>DATE [check,L#] probe checked 2");
    EXPECT_EQ(capture.waitLine("opened"),
              "<I>DATE [Modem::openModem,L#] opened /dev/ttyS1 at 9600 baud");
    EXPECT_EQ(capture.waitLine("gave up"), "<E>DATE [openModem,L#] gave up after 3 tries");
    std::string line = capture.waitLine("always scope");
    EXPECT_TRUE(std::regex_match(
        line, std::regex(R"(<I>DATE \[always scope\] trace duration: \d+\.\d{6} s)")))
        << line;
    EXPECT_TRUE(capture.matching("never scope").empty());
}

TEST(Tracer, FiltersByLevelAndClassifiesLinesByTheirTag) {
    Tracer& tracer = Tracer::getInstance();
    auto& capture = test::LogCapture::fresh();
    ASSERT_EQ(tracer.getLevel(), 1);
    tracer.setLevel(5);  // outside 0..4: ignored
    tracer.setLevel(-3);
    EXPECT_EQ(tracer.getLevel(), 1);
    // The Tracer's level, the print level and the line; what sinks hear (-1: dropped).
    const std::tuple<int, int, const char*, int, const char*> cases[] = {
        {1, 0, "<D>tag debug filtered", -1, nullptr},
        {0, 0, "<D>tag debug", 0, nullptr},
        {1, 4, "<I>tag info", 1, nullptr},  // the print level only filters; the tag decides
        {3, 2, "<W>tag warn filtered", -1, nullptr},
        {1, 1, "<W>tag warn", 2, nullptr},
        {3, 3, "<E>tag error", 3, nullptr},
        {1, 1, "<F>tag fatal", 4, nullptr},
        {1, 1, "<C>tag console", 1, "tag console"},
        {1, 1, "<L9>tag user nine", 9, nullptr},
        {1, 1, "<L12>tag user twelve", 12, nullptr},
        {1, 1, "<L3>tag user three", -1, nullptr},
        {1, 1, "<X>tag unknown", -1, nullptr},
        {1, 1, "tag untagged", -1, nullptr},
        {1, 1, "<tag unclosed", -1, nullptr},
    };
    std::vector<std::pair<int, std::string>> want, got;
    for (auto& [tracerLevel, printLevel, line, heard, shown] : cases) {
        tracer.setLevel(tracerLevel);
        tracer.print(printLevel, "%s", line);
        if (heard >= 0) want.emplace_back(heard, shown != nullptr ? shown : line);
    }
    tracer.setLevel(1);
    tracer.print(1, nullptr);
    barrier(capture, "classify barrier");
    for (auto& entry : capture.lines()) {
        if (entry.second.find("tag ") != std::string::npos) got.push_back(entry);
    }
    EXPECT_EQ(got, want);
}

TEST(Tracer, FormatsAsPrintfWouldAndCutsLinesAt4096Bytes) {
    Tracer& tracer = Tracer::getInstance();
    auto& capture = test::LogCapture::fresh();
    std::vector<std::string> expected;
    auto both = [&](const char* format, auto... args) {
        tracer.print(1, format, args...);
        expected.push_back(StrUtil::format(format, args...));
    };
    const char* volatile none = nullptr;  // hidden from the compiler's format check
    std::string longText(5000, 'w');
    both("<I>case 0 %s [%s::%s,L%d] text %s", "2024-03-05 07:08:09", "Cls", "method", 42, "x");
    both("<I>case 1 %d|%i|%u|%x|%X|%c|%%|%s|%d%u%x|%s", INT_MIN, -1, UINT_MAX, 0xbeefu, 0xbeefu,
         'q', "", 0, 0u, 0u, static_cast<const char*>(none));
    both("<I>case 2 %ld|%lld|%lu|%llx|%zu|%zd|%lX", LONG_MIN, LLONG_MIN, ULONG_MAX, ULLONG_MAX,
         size_t(12345), ssize_t(-7), 0xabcdefUL);
    // Formats beyond the common conversions take the general path.
    both("<I>case 3 %5d|%-4s|%06.2f|%03x|%hhd|%+d", 42, "ab", 3.14159, 10u, 300, 5);
    both("<I>case 4 %d trailing %", 4);             // invalid: printf fails and nothing is queued
    both("<I>case 5 %d %s", 5, longText.c_str());   // cut on the fast path
    both("<I>case 6 %3d %s", 6, longText.c_str());  // cut on the general path
    both("<I>case 7 %s", std::string(4085, 'e').c_str());  // exactly 4095 characters
    barrier(capture, "printf barrier");
    for (size_t i = 0; i < expected.size(); ++i) {
        // A line is at most 4096 bytes: a longer one keeps 4092 characters, "..."
        // and a NUL; one of exactly 4095 loses its last character to the NUL.
        std::string want = expected[i];
        if (want.size() > 4095) want = want.substr(0, 4092) + std::string("...\0", 4);
        if (want.size() == 4095) want = want.substr(0, 4094) + '\0';
        auto found = capture.matching("case " + std::to_string(i) + " ");
        EXPECT_EQ(found, want.empty() ? std::vector<std::string>{} : std::vector<std::string>{want})
            << "case " << i;
    }
}

// ---- The Tracer's own lifecycle, each in a fresh child process -------------

// Writes each line with its sink's tag and level to standard error, where the
// death-test machinery can match it.
class StderrSink : public TracerSink {
  public:
    explicit StderrSink(const char* sinkTag) : tag(sinkTag) {}
    void sink(int lineLevel, const std::string& line) override {
        fprintf(stderr, "%s%d:%s\n", tag, lineLevel, line.c_str());
    }
    void onFlushed() override { fprintf(stderr, "%s flushed\n", tag); }
    const char* tag;
};

// Starts and joins one thread and waits until it is gone, so that a runtime
// which starts a helper thread of its own along with a process's first thread
// (ThreadSanitizer does) has done so before threads are counted.
void settleRuntimeThreads() {
    int taskId = 0;
    std::thread([&taskId] { taskId = System::getTaskId(); }).join();
    test::eventually([taskId] { return test::threadName(taskId).empty(); });
}

TEST(TracerDeathTest, StartsOnceAndDeliversToTheSinksAddedBeforeInTheirOrder) {
    EXPECT_EXIT(
        {
            Tracer& tracer = Tracer::getInstance();
            tracer.addSink(std::make_shared<StderrSink>("A"));
            tracer.addSink(std::make_shared<StderrSink>("B"));
            tracer.print(1, "<I>printed before start");
            settleRuntimeThreads();
            size_t before = test::threadNames().size();
            tracer.start();
            tracer.start();
            size_t started = test::threadNames().size() - before;
            tracer.addSink(std::make_shared<StderrSink>("late"));  // running: ignored
            tracer.print(2, "<W>new threads: %zu", started);
            exit(0);
        },
        ::testing::ExitedWithCode(0),
        "A1:<I>printed before start\nB1:<I>printed before start\n"
        "A2:<W>new threads: 1\nB2:<W>new threads: 1\n$");
}

TEST(TracerDeathTest, DeliversWhatIsLeftWhenTheProcessExits) {
    EXPECT_EXIT(
        {
            Tracer& tracer = Tracer::getInstance();
            tracer.print(2, "<W>queued without a sink");
            tracer.flush();  // no sinks: nothing to tell
            tracer.addSink(std::make_shared<StderrSink>("A"));
            tracer.print(3, "<E>never started");
            tracer.flush();
            fprintf(stderr, "exiting\n");
            exit(0);
        },
        ::testing::ExitedWithCode(0),
        "A flushed\nexiting\nA2:<W>queued without a sink\nA3:<E>never started\n");
}

TEST(TracerDeathTest, AnUnreadableUserLevelEndsTheSinkThreadUntilExit) {
    EXPECT_EXIT(
        {
            Tracer& tracer = Tracer::getInstance();
            tracer.addSink(std::make_shared<StderrSink>("A"));
            size_t before = test::threadCount();
            tracer.start();
            tracer.print(1, "<Lx>unreadable");
            // The sink thread ends on the line; nothing is delivered after it.
            for (int i = 0; i < 3000 && test::threadCount() > before; ++i) usleep(1000);
            fprintf(stderr, "sink thread %s\n", test::threadCount() > before ? "runs" : "ended");
            tracer.print(1, "<I>after the unreadable line");
            tracer.start();  // still counts as running: does nothing
            usleep(30000);
            fprintf(stderr, "exiting\n");
            exit(0);
        },
        ::testing::ExitedWithCode(0),
        "^sink thread ended\nexiting\nA1:<I>after the unreadable line\n$");
}

}  // namespace
}  // namespace orvane
