#include <dirent.h>
#include <gtest/gtest.h>
#include <orvane/StrUtil.h>
#include <orvane/Tracer.h>
#include <orvane/TracerSink.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <thread>

#include "log/LogLine.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

// Records everything the Tracer tells it. Each delivered line is also appended,
// with the sink's tag, to a journal shared by all recorders, so tests can see
// the order in which the sinks heard it.
class RecordingSink : public TracerSink {
  public:
    explicit RecordingSink(std::string sinkTag) : tag(std::move(sinkTag)) {}

    void sink(int lineLevel, const std::string& line) override {
        std::lock_guard<std::mutex> lock(journalMutex());
        journal().push_back(tag + ":" + std::to_string(lineLevel) + ":" + line);
    }
    void onLevelChanged(int newLevel) override {
        heardLevel = newLevel;
        ++levelCalls;
    }
    void onFlushed() override { ++flushes; }

    static std::mutex& journalMutex() {
        static std::mutex m;
        return m;
    }
    static std::vector<std::string>& journal() {
        static std::vector<std::string> lines;
        return lines;
    }
    // Journal entries that contain `text`.
    static std::vector<std::string> entries(const std::string& text) {
        std::lock_guard<std::mutex> lock(journalMutex());
        std::vector<std::string> found;
        for (auto& entry : journal()) {
            if (entry.find(text) != std::string::npos) found.push_back(entry);
        }
        return found;
    }

    std::string tag;
    std::atomic<int> heardLevel{-100};
    std::atomic<int> levelCalls{0};
    std::atomic<int> flushes{0};
};

struct Sinks {
    std::shared_ptr<RecordingSink> first = std::make_shared<RecordingSink>("A");
    std::shared_ptr<RecordingSink> second = std::make_shared<RecordingSink>("B");
    test::LogCapture* capture = nullptr;
    // False when another test of this process had started the Tracer first.
    bool recording = false;
};

// The sinks of this test program, in registration order: two recorders, then
// the capture, whose first use starts the Tracer. Every test in the main
// process goes through here so the recorders are added before the start.
Sinks& sinks() {
    static Sinks* all = [] {
        auto* s = new Sinks();
        Tracer::getInstance().addSink(s->first);
        Tracer::getInstance().addSink(s->second);
        s->recording = s->first->levelCalls > 0;  // an accepted sink hears the level
        s->capture = &test::LogCapture::get();
        return s;
    }();
    return *all;
}

// sinks() with what earlier tests left in the capture and the journal dropped.
Sinks& freshSinks() {
    Sinks& all = sinks();
    all.capture->clear();
    std::lock_guard<std::mutex> lock(RecordingSink::journalMutex());
    RecordingSink::journal().clear();
    return all;
}

#define REQUIRE_RECORDERS()                                        \
    if (!sinks().recording)                                        \
    GTEST_SKIP() << "the Tracer was started before the recording " \
                    "sinks were added; run this test on its own"

// The level and line of the first captured line containing `text`, after
// waiting for it; level -1 when it never came.
std::pair<int, std::string> delivered(const std::string& text, int timeoutMs = 3000) {
    test::LogCapture& capture = *sinks().capture;
    if (!capture.waitFor(text, timeoutMs)) return {-1, std::string()};
    for (auto& entry : capture.lines()) {
        if (entry.second.find(text) != std::string::npos) return entry;
    }
    return {-1, std::string()};
}

// Prints a line that every test can wait for: once it has arrived, every line
// printed before it has been delivered too.
void barrier(const std::string& marker) {
    Tracer::getInstance().print(1, "<I>%s", marker.c_str());
    ASSERT_EQ(delivered(marker).first, 1);
}

struct Probe {
    std::string className = "Probe";
    void fail(int code) { ORVANE_ERROR("probe failed: %d", code); }
    void warn() { ORVANE_WARN("probe warned"); }
    void tell() { ORVANE_INFO("probe told %s", "x"); }
    void enter() { ORVANE_NOTE_IN("operator()", "[%s] probe entered.", "p"); }
    static void check() { ORVANE_SERROR("probe checked %d", 2); }
};

TEST(Tracer, DeliversLibraryLinesInTheirExactShape) {
    auto& capture = *freshSinks().capture;
    Probe probe;
    probe.fail(7);
    probe.warn();
    probe.tell();
    probe.enter();
    Probe::check();
    EXPECT_EQ(capture.waitLine("probe failed"), "<E>DATE [Probe::fail,L#] probe failed: 7");
    EXPECT_EQ(capture.waitLine("probe warned"), "<W>DATE [Probe::warn,L#] probe warned");
    EXPECT_EQ(capture.waitLine("probe told"), "<I>DATE [Probe::tell,L#] probe told x");
    EXPECT_EQ(capture.waitLine("probe entered"), "<I>DATE [Probe::operator()] [p] probe entered.");
    EXPECT_EQ(capture.waitLine("probe checked"), "<E>DATE [check,L#] probe checked 2");
    // The date field is the local time, "%d-%02d-%02d %02d:%02d:%02d".
    std::string raw = delivered("probe failed").second;
    EXPECT_TRUE(std::regex_match(raw, std::regex(R"(<E>\d{4}-\d\d-\d\d \d\d:\d\d:\d\d .*)")))
        << raw;
}

TEST(Tracer, ClassifiesLinesByTheirTagLetter) {
    Tracer& tracer = Tracer::getInstance();
    freshSinks();
    ASSERT_EQ(tracer.getLevel(), 1);
    tracer.print(0, "<D>debug filtered");
    tracer.setLevel(0);
    tracer.print(0, "<D>debug shown");
    tracer.setLevel(1);
    tracer.print(1, "<I>info tag");
    // The level argument only filters; the tag decides what sinks hear.
    tracer.print(4, "<W>warn tag");
    tracer.print(1, "<E>error tag");
    tracer.print(1, "<F>fatal tag");
    tracer.print(1, "<C>hello");
    tracer.print(1, "<L9>user nine");
    tracer.print(1, "<L12>user twelve");
    tracer.print(1, "<L3>user three");
    tracer.print(1, "<X>unknown tag");
    tracer.print(1, "no tag at all");
    tracer.print(1, "<");
    barrier("classify barrier");

    EXPECT_EQ(delivered("debug shown"), std::make_pair(0, std::string("<D>debug shown")));
    EXPECT_EQ(delivered("info tag").first, 1);
    EXPECT_EQ(delivered("warn tag").first, 2);
    EXPECT_EQ(delivered("error tag").first, 3);
    EXPECT_EQ(delivered("fatal tag").first, 4);
    EXPECT_EQ(delivered("hello"), std::make_pair(1, std::string("hello")));
    EXPECT_EQ(delivered("user nine"), std::make_pair(9, std::string("<L9>user nine")));
    EXPECT_EQ(delivered("user twelve").first, 12);
    auto& capture = *freshSinks().capture;
    EXPECT_TRUE(capture.matching("debug filtered").empty());
    EXPECT_TRUE(capture.matching("user three").empty());
    EXPECT_TRUE(capture.matching("unknown tag").empty());
    EXPECT_TRUE(capture.matching("no tag at all").empty());
}

TEST(Tracer, CutsLongLinesTo4096BytesEndingInDotsAndNul) {
    Tracer& tracer = Tracer::getInstance();
    freshSinks();
    std::string longText(4997, 'x');  // with the tag: 5000 characters
    tracer.print(1, "<I>%s", longText.c_str());
    std::string edgeText(4092, 'y');  // with the tag: exactly 4095 characters
    tracer.print(1, "<I>%s", edgeText.c_str());
    std::string fitText(4091, 'z');  // with the tag: 4094 characters, fits whole
    tracer.print(1, "<I>%s", fitText.c_str());

    std::string cut = delivered(std::string(64, 'x')).second;
    ASSERT_EQ(cut.size(), 4096u);
    EXPECT_EQ(cut.substr(0, 4092), "<I>" + std::string(4089, 'x'));
    EXPECT_EQ(cut.substr(4092, 3), "...");
    EXPECT_EQ(cut[4095], '\0');

    // At exactly 4095 the formatter wrote 4094 characters and the NUL stays.
    std::string edge = delivered(std::string(64, 'y')).second;
    ASSERT_EQ(edge.size(), 4095u);
    EXPECT_EQ(edge.substr(0, 4094), "<I>" + std::string(4091, 'y'));
    EXPECT_EQ(edge[4094], '\0');

    EXPECT_EQ(delivered(std::string(64, 'z')).second, "<I>" + fitText);
}

TEST(Tracer, FormatsEveryLineExactlyAsPrintfWould) {
    Tracer& tracer = Tracer::getInstance();
    auto& capture = *freshSinks().capture;
    std::vector<std::string> expected;
    auto both = [&](const char* format, auto... args) {
        tracer.print(1, format, args...);
        expected.push_back(StrUtil::format(format, args...));
    };
    both("<I>case 0 %s [%s::%s,L%d] text %s", "2024-03-05 07:08:09", "Cls", "method", 42, "x");
    both("<I>case 1 %d|%i|%u|%x|%X|%c|%%|%s", INT_MIN, -1, UINT_MAX, 0xbeefu, 0xbeefu, 'q', "");
    both("<I>case 2 %ld|%lld|%lu|%llx|%zu|%zd|%lX", LONG_MIN, LLONG_MIN, ULONG_MAX, ULLONG_MAX,
         size_t(12345), ssize_t(-7), 0xabcdefUL);
    both("<I>case 3 %d %u %x", 0, 0u, 0u);
    // Formats beyond the common conversions take the general path.
    both("<I>case 4 %5d|%-4s|%06.2f|%03x|%hhd|%+d", 42, "ab", 3.14159, 10u, 300, 5);
    const char* volatile none = nullptr;  // hidden from the compiler's format check
    both("<I>case 5 %s", static_cast<const char*>(none));
    both("<I>case 6 %%d %c%c", 'a', 'b');
    both("<I>case 7 %d trailing %", 7);  // invalid: printf fails and nothing is queued
    std::string longText(5000, 'w');
    both("<I>case 8 %d %s", 8, longText.c_str());   // cut on the fast path
    both("<I>case 9 %3d %s", 9, longText.c_str());  // cut on the general path
    barrier("printf barrier");
    for (size_t i = 0; i < expected.size(); ++i) {
        std::string key = "case " + std::to_string(i) + " ";
        auto found = capture.matching(key);
        if (expected[i].empty()) {
            EXPECT_TRUE(found.empty()) << key;
            continue;
        }
        ASSERT_EQ(found.size(), 1u) << key;
        std::string want = expected[i];
        if (want.size() > 4095) want = want.substr(0, 4092) + std::string("...\0", 4);
        EXPECT_EQ(found[0], want) << key;
    }
}

TEST(Tracer, QueuesNothingForAnEmptyOrMissingFormat) {
    REQUIRE_RECORDERS();
    Tracer& tracer = Tracer::getInstance();
    freshSinks();
    size_t before = RecordingSink::entries("A:").size();
    tracer.print(1, "%s", "");
    tracer.print(1, nullptr);
    barrier("empty barrier");
    // Only the barrier line reached the first recorder.
    EXPECT_EQ(RecordingSink::entries("A:").size(), before + 1);
}

TEST(Tracer, SetLevelFiltersZeroToFourAndTellsSinksEveryValue) {
    REQUIRE_RECORDERS();
    Tracer& tracer = Tracer::getInstance();
    Sinks& all = freshSinks();
    tracer.setLevel(5);
    EXPECT_EQ(tracer.getLevel(), 1);
    EXPECT_EQ(all.first->heardLevel, 5);
    EXPECT_EQ(all.second->heardLevel, 5);
    tracer.setLevel(-3);
    EXPECT_EQ(tracer.getLevel(), 1);
    EXPECT_EQ(all.first->heardLevel, 0);
    EXPECT_EQ(all.second->heardLevel, 0);

    tracer.setLevel(3);
    EXPECT_EQ(tracer.getLevel(), 3);
    EXPECT_EQ(all.first->heardLevel, 3);
    tracer.print(2, "<W>warning below level three");
    tracer.print(3, "<E>error at level three");
    tracer.setLevel(1);
    EXPECT_EQ(all.second->heardLevel, 1);
    EXPECT_EQ(delivered("error at level three").first, 3);
    EXPECT_TRUE(all.capture->matching("warning below level three").empty());
}

TEST(Tracer, DeliversEachLineToSinksInRegistrationOrder) {
    REQUIRE_RECORDERS();
    Tracer& tracer = Tracer::getInstance();
    freshSinks();
    tracer.print(1, "<I>order-1");
    tracer.print(2, "<W>order-2");
    barrier("ordering barrier");
    EXPECT_EQ(RecordingSink::entries("order-"),
              (std::vector<std::string>{"A:1:<I>order-1", "B:1:<I>order-1", "A:2:<W>order-2",
                                        "B:2:<W>order-2"}));
}

TEST(Tracer, IgnoresSinksAddedAfterStartAndFlushesRegisteredOnes) {
    REQUIRE_RECORDERS();
    Tracer& tracer = Tracer::getInstance();
    Sinks& all = freshSinks();
    barrier("late barrier one");  // the sink thread runs
    auto late = std::make_shared<RecordingSink>("late");
    tracer.addSink(late);
    tracer.addSink(nullptr);
    barrier("late barrier two");
    EXPECT_EQ(late->levelCalls, 0);
    EXPECT_TRUE(RecordingSink::entries("late:").empty());

    int firstFlushes = all.first->flushes;
    int secondFlushes = all.second->flushes;
    tracer.flush();
    EXPECT_EQ(all.first->flushes, firstFlushes + 1);
    EXPECT_EQ(all.second->flushes, secondFlushes + 1);
    EXPECT_EQ(late->flushes, 0);
}

TEST(TraceDuration, LogsTheElapsedTimeWhenTheThresholdIsReached) {
    auto& capture = *freshSinks().capture;
    {
        TraceDuration always("always scope", 0);
        EXPECT_GE(always.duration(), 0.0);
        EXPECT_LT(always.duration(), 5.0);
    }
    { TraceDuration never("never scope", 60000); }
    barrier("duration barrier");
    std::string line = capture.waitLine("always scope");
    EXPECT_TRUE(std::regex_match(
        line, std::regex(R"(<I>DATE \[always scope\] trace duration: \d+\.\d{6} s)")))
        << line;
    EXPECT_TRUE(capture.matching("never scope").empty());
}

// ---- The Tracer's own lifecycle, each in a fresh child process -------------

// Writes each line with its level to standard error, where the death-test
// machinery can match it.
class StderrSink : public TracerSink {
  public:
    void sink(int lineLevel, const std::string& line) override {
        fprintf(stderr, "[%d]%s\n", lineLevel, line.c_str());
    }
};

int taskCount() {
    int n = 0;
    DIR* dir = opendir("/proc/self/task");
    while (dirent* entry = readdir(dir)) n += entry->d_name[0] != '.';
    closedir(dir);
    return n;
}

TEST(TracerDeathTest, DeliversLinesPrintedBeforeStartOnTheFirstPass) {
    EXPECT_EXIT(
        {
            Tracer& tracer = Tracer::getInstance();
            tracer.addSink(std::make_shared<StderrSink>());
            tracer.print(1, "<I>printed before start");
            int before = taskCount();
            tracer.start();
            tracer.start();
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            fprintf(stderr, "new threads: %d\n", taskCount() - before);
            exit(0);
        },
        ::testing::ExitedWithCode(0), "\\[1\\]<I>printed before start\nnew threads: 1\n");
}

TEST(TracerDeathTest, DeliversWhatIsLeftWhenTheProcessExits) {
    EXPECT_EXIT(
        {
            Tracer& tracer = Tracer::getInstance();
            tracer.print(2, "<W>queued without a sink");
            tracer.flush();  // no sinks: does nothing, and does not drain
            tracer.addSink(std::make_shared<StderrSink>());
            tracer.print(3, "<E>never started");
            fprintf(stderr, "exiting\n");
            exit(0);
        },
        ::testing::ExitedWithCode(0),
        "exiting\n\\[2\\]<W>queued without a sink\n\\[3\\]<E>never started\n");
}

TEST(TracerDeathTest, AnUnreadableUserLevelEndsTheSinkThreadButExitStillDelivers) {
    EXPECT_EXIT(
        {
            Tracer& tracer = Tracer::getInstance();
            tracer.addSink(std::make_shared<StderrSink>());
            tracer.start();
            tracer.print(1, "<Lx>not a number");
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            tracer.print(1, "<I>after the bad line");
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            fprintf(stderr, "exiting\n");
            exit(0);
        },
        ::testing::ExitedWithCode(0), "exiting\n\\[1\\]<I>after the bad line\n");
}

}  // namespace
}  // namespace orvane
