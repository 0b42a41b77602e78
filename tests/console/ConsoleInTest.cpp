#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/ConsoleIn.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/ProcTasks.h"
#include "support/Refusal.h"

namespace orvane {
namespace {

using Words = std::vector<std::string>;

// Registers "rec", which records the words of its line joined by '|' and
// answers "recorded"; seen() is safe from the test's thread.
struct Recorder {
    std::mutex mutex;
    Words lines;

    explicit Recorder(ConsoleIn* console) {
        console->addCommand("rec", "record the words", [this](ConsoleIn& con, const Words& words) {
            std::string joined = words[0];
            for (size_t i = 1; i < words.size(); ++i) joined += "|" + words[i];
            std::lock_guard<std::mutex> lock(mutex);
            lines.push_back(joined);
            con.print("recorded\n");
        });
    }
    Words seen() {
        std::lock_guard<std::mutex> lock(mutex);
        return lines;
    }
    bool reaches(size_t count) {
        return test::eventually([&] { return seen().size() == count; });
    }
};

// Everything readable on fd until it stays quiet for timeoutMs.
std::string drain(int fd, int timeoutMs = 50) {
    std::string text;
    pollfd entry{fd, POLLIN, 0};
    char buf[1024];
    ssize_t n = 0;
    while (poll(&entry, 1, timeoutMs) == 1 && (n = read(fd, buf, sizeof buf)) > 0) {
        text.append(buf, static_cast<size_t>(n));
    }
    return text;
}

void send(int fd, const std::string& text) {
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

tcflag_t localModes(int fd) {
    termios mode{};
    tcgetattr(fd, &mode);
    return mode.c_lflag;
}

TEST(ConsoleIn, SplitsLinesIntoWordsRespectingQuotes) {
    const std::pair<const char*, Words> cases[] = {
        {"  say \"hello world\"  ", {"say", "hello world"}},
        {"a\\ b 'x \"y\"'", {"a b", "x \"y\""}},
        {"\"\" a\"b c\"d", {"", "ab cd"}},
        {"'no \\escape'", {"no \\escape"}},
        {" \t ", {}},
    };
    for (auto& c : cases) {
        Words words{"stale"};
        EXPECT_TRUE(ConsoleIn::splitWords(c.first, &words)) << c.first;
        EXPECT_EQ(words, c.second) << c.first;
    }
    Words words{"stale"};
    test::expectRefusal([&] { return ConsoleIn::splitWords("it's", &words); },
                        "<E>DATE [splitWords,L#] unterminated ' quote in: it's");
    EXPECT_TRUE(words.empty());
}

// Input that is no terminal: plain lines, no echo or prompt, and the end of
// input ends the thread (the last line needs no line end).
TEST(ConsoleIn, RunsCommandsFromAPipeUntilItsEnd) {
    int in[2], out[2];
    ASSERT_EQ(pipe2(in, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
    ConsoleIn console;
    Recorder recorder(&console);
    ASSERT_TRUE(console.start(in[0], out[1]));
    EXPECT_TRUE(test::eventually([] {
        auto names = test::threadNames();
        return std::find(names.begin(), names.end(), "ConsoleIn") != names.end();
    }));
    auto& capture = test::LogCapture::get();
    send(in[1], "rec 'a b' c\r\nhelp\nnosuch x\nrec \"open\nrec last");
    ::close(in[1]);
    EXPECT_TRUE(test::eventually([&] { return !console.isRunning(); }));
    EXPECT_EQ(recorder.seen(), (Words{"rec|a b|c", "rec|last"}));
    EXPECT_EQ(drain(out[0]),
              "recorded\ncommands:\n  help  list the commands\n  rec  record the words\n"
              "unknown command: nosuch (try help)\nunterminated quote\nrecorded\n");
    EXPECT_EQ(capture.waitLine("unknown command:"),
              "<W>DATE [ConsoleIn::execute,L#] unknown command:'nosuch'");
    EXPECT_TRUE(console.stop());
    for (int fd : {in[0], out[0], out[1]}) ::close(fd);
}

TEST(ConsoleIn, EditsLinesOnATerminalAndRestoresIt) {
    int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
        GTEST_SKIP() << "no pseudo-terminal: /dev/ptmx is missing";
    }
    int slave = ::open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(slave, 0);
    tcflag_t cooked = localModes(slave);
    ConsoleIn console;
    console.setPrompt("gw> ");
    Recorder recorder(&console);
    ASSERT_TRUE(console.start(slave, slave));
    EXPECT_EQ(localModes(slave) & (ICANON | ECHO | ISIG), static_cast<tcflag_t>(ISIG));
    // Keys as a terminal sends them; the lines the handler gets follow.
    send(master,
         "rec ab\x1b[Dc\r"                           // cursor left, insert
         "rec xyz\x7f\x7f\r"                         // backspace
         "\x1b[A\x1b[A\r"                            // two lines back in the history
         "\x1b[A\x1b[A\x1b[B\r"                      // up, up, down: the last line again
         "hello\x01rec \x05!\r"                      // Ctrl-A home, Ctrl-E end
         "rec abc\x1b[D\x1b[D\x1b[3~\r"              // delete under the cursor
         "junk\x15rec ok\r\n"                        // Ctrl-U clears; CR LF is one line end
         "rec q\x1b[H\x1b[F\x1bOD\x1b[1~\x1b[4~p\r"  // home/end forms, ESC O D left
         "rec q\x1b");                               // an escape sequence split between reads
    drain(master, 20);
    send(master, "[Dp\r");
    ASSERT_TRUE(recorder.reaches(9));
    EXPECT_EQ(recorder.seen(), (Words{"rec|acb", "rec|x", "rec|acb", "rec|acb", "rec|hello!",
                                      "rec|ac", "rec|ok", "rec|qp", "rec|pq"}));
    std::string shown = drain(master);
    EXPECT_NE(shown.find("gw> rec pq"), std::string::npos) << shown;
    EXPECT_NE(shown.find("recorded\r\n"), std::string::npos) << shown;

    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(console.stop());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_EQ(localModes(slave), cooked);

    // Ctrl-D on an empty line ends the input; a handler may stop the console too.
    console.addCommand("quit", "stop", [](ConsoleIn& con, const Words&) { con.stop(); });
    for (const char* key : {"\x04", "quit\r"}) {
        ASSERT_TRUE(console.start(slave, slave));
        send(master, key);
        EXPECT_TRUE(test::eventually([&] { return !console.isRunning(); })) << key;
        EXPECT_EQ(localModes(slave), cooked);
    }
    ::close(slave);
    ::close(master);
}

TEST(ConsoleIn, RejectsBadInputWithOneLineEach) {
    ConsoleIn console;
    auto handler = [](ConsoleIn&, const Words&) {};
    int in[2];
    ASSERT_EQ(pipe2(in, O_CLOEXEC), 0);
    const std::pair<std::function<bool()>, const char*> cases[] = {
        {[&] { return console.addCommand("a b", "", handler); },
         "addCommand,L#] bad command:'a b'"},
        {[&] { return console.addCommand("help", "", handler); },
         "addCommand,L#] bad command:'help'"},
        {[&] { return console.addCommand("x", "", nullptr); },
         "addCommand,L#] bad command:'x' (no handler)"},
        {[&] { return console.start(-1, 1); }, "start,L#] bad descriptors: in -1, out 1"},
        {[&] { return console.start("/nonexistent/tty"); },
         "start,L#] open /nonexistent/tty error:No such file or directory"},
        {[&] { return console.start(in[0], 1) && console.start(in[0], 1); },
         "start,L#] console already running"},
    };
    for (auto& c : cases)
        test::expectRefusal(c.first, std::string("<E>DATE [ConsoleIn::") + c.second);
    EXPECT_TRUE(console.isRunning());
    EXPECT_TRUE(console.stop());  // wakes the thread blocked on an idle pipe
    EXPECT_TRUE(console.stop());
    ::close(in[0]);
    ::close(in[1]);
}

}  // namespace
}  // namespace orvane
