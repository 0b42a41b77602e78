#include <orvane/StrUtil.h>
#include <orvane/Tracer.h>

#include <climits>
#include <regex>

#include "log/LogLine.h"
#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

// The library's own macros are checked by every refusal test; these are the
// forms no refusal uses.
struct Probe {
    std::string className = "Probe";
    void tell() { ORVANE_NOTE("probe told %s", "x"); }
    void enter() { ORVANE_NOTE_IN("operator()", "[%s] probe entered.", "p"); }
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

// Lines not listed (a filtered duration, a level beyond 0..4) are not logged.
TEST(Tracer, DeliversLibraryLinesInTheirExactShape) {
    Probe probe;
    Tracer& tracer = Tracer::getInstance();
    auto lines = test::LogCapture::get().linesDuring([&] {
        probe.tell();
        probe.enter();
        tracer.printAt(3, "Modem", "open", 42, "code %d", 5);
        tracer.printAt(2, "", "parse", 7, "at %s", "start");
        tracer.printAt(5, "Modem", "open", 1, "beyond the levels");
        EXPECT_EQ(openModem(), 0);
        { TraceDuration never("never scope", 60000); }
        { TraceDuration always("always scope", 0); }
    });
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(std::regex_match(
        lines.back(), std::regex(R"(<I>DATE \[always scope\] trace duration: \d+\.\d{6} s)")))
        << lines.back();
    lines.pop_back();
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "<I>DATE [Probe::tell] probe told x",
                         "<I>DATE [Probe::operator()] [p] probe entered.",
                         "<E>DATE [Modem::open,L#] code 5", "<W>DATE [parse,L#] at start",
                         "<I>DATE [Modem::openModem,L#] opened /dev/ttyS1 at 9600 baud",
                         "<E>DATE [openModem,L#] gave up after 3 tries"}));
}

TEST(Tracer, FiltersByLevelAndClassifiesLinesByTheirTag) {
    Tracer& tracer = Tracer::getInstance();
    auto& capture = test::LogCapture::fresh();
    ASSERT_EQ(tracer.getLevel(), 1);
    tracer.setLevel(5);  // outside 0..4: ignored
    EXPECT_EQ(tracer.getLevel(), 1);
    // The Tracer's level, the print level and the line; what sinks hear (-1: dropped).
    const std::tuple<int, int, const char*, int, const char*> cases[] = {
        {1, 0, "<D>tag debug filtered", -1, nullptr},
        {0, 0, "<D>tag debug", 0, nullptr},
        {1, 4, "<I>tag info", 1, nullptr},  // the print level only filters; the tag decides
        {1, 1, "<W>tag warn", 2, nullptr},
        {3, 3, "<E>tag error", 3, nullptr},
        {1, 1, "<F>tag fatal", 4, nullptr},
        {1, 1, "<C>tag console", 1, "tag console"},
        {1, 1, "<L9>tag user nine", 9, nullptr},
        {1, 1, "<L3>tag user three", -1, nullptr},
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
    tracer.print(1, "<I>classify barrier");  // delivered after every line above
    ASSERT_TRUE(capture.waitFor("classify barrier"));
    for (auto& entry : capture.lines()) {
        if (entry.second.find("tag ") != std::string::npos) got.push_back(entry);
    }
    EXPECT_EQ(got, want);
}

TEST(Tracer, FormatsAsPrintfWouldAndCutsLinesAt4096Bytes) {
    Tracer& tracer = Tracer::getInstance();
    std::vector<std::string> want;
    auto both = [&](const char* format, auto... args) {
        tracer.print(1, format, args...);
        // A line is at most 4096 bytes: a longer one keeps 4092 characters, "..."
        // and a NUL; one of exactly 4095 loses its last character to the NUL.
        std::string line = StrUtil::format(format, args...);
        if (line.size() > 4095) line = line.substr(0, 4092) + std::string("...\0", 4);
        if (line.size() == 4095) line.back() = '\0';
        if (!line.empty()) want.push_back(test::LogCapture::normalise(line));
    };
    const char* volatile none = nullptr;  // hidden from the compiler's format check
    std::string longText(5000, 'w');
    auto got = test::LogCapture::get().linesDuring([&] {
        both("<I>case 0 %s [%s::%s,L%d] text %s", "2024-03-05 07:08:09", "Cls", "method", 42, "x");
        both("<I>case 1 %d|%i|%u|%x|%X|%c|%%|%s|%d%u%x|%s", INT_MIN, -1, UINT_MAX, 0xbeefu, 0xbeefu,
             'q', "", 0, 0u, 0u, static_cast<const char*>(none));
        both("<I>case 2 %ld|%lld|%lu|%llx|%zu|%zd|%lX", LONG_MIN, LLONG_MIN, ULONG_MAX, ULLONG_MAX,
             size_t(12345), ssize_t(-7), 0xabcdefUL);
        // Formats beyond the common conversions take the general path.
        both("<I>case 3 %5d|%-4s|%06.2f|%03x|%hhd|%+d", 42, "ab", 3.14159, 10u, 300, 5);
        both("<I>case 4 %d trailing %", 4);  // invalid: printf fails and nothing is queued
        both("<I>case 5 %d %s", 5, longText.c_str());          // cut on the fast path
        both("<I>case 6 %3d %s", 6, longText.c_str());         // cut on the general path
        both("<I>case 7 %s", std::string(4085, 'e').c_str());  // exactly 4095 characters
    });
    EXPECT_EQ(got, want);
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

// Lines printed before start() wait for the sink thread. A line with an
// unreadable user level ends that thread; what is printed later stays queued
// until the process exits. flush() only tells the sinks.
TEST(TracerDeathTest, StartsOnceDeliversToTheSinksAddedBeforeAndStopsAtAnUnreadableLevel) {
    EXPECT_EXIT(
        {
            Tracer& tracer = Tracer::getInstance();
            tracer.flush();  // no sinks: nothing to tell
            tracer.addSink(std::make_shared<StderrSink>("A"));
            tracer.addSink(std::make_shared<StderrSink>("B"));
            tracer.print(1, "<I>printed before start");
            size_t before = test::threadCount();
            tracer.start();
            tracer.start();
            tracer.addSink(std::make_shared<StderrSink>("late"));  // running: ignored
            tracer.print(2, "<W>new threads: %zu", test::threadCount() - before);
            tracer.print(1, "<Lx>unreadable");
            for (int i = 0; i < 3000 && test::threadCount() > before; ++i) usleep(1000);
            fprintf(stderr, "sink thread %s\n", test::threadCount() > before ? "runs" : "ended");
            tracer.print(1, "<I>after the unreadable line");
            tracer.start();  // still counts as running: does nothing
            tracer.flush();
            usleep(30000);
            fprintf(stderr, "exiting\n");
            exit(0);
        },
        ::testing::ExitedWithCode(0),
        "^A1:<I>printed before start\nB1:<I>printed before start\n"
        "A2:<W>new threads: 1\nB2:<W>new threads: 1\nsink thread ended\n"
        "A flushed\nB flushed\nexiting\n"
        "A1:<I>after the unreadable line\nB1:<I>after the unreadable line\n$");
}

}  // namespace
}  // namespace orvane
