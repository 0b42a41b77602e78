#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/ConsoleIn.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

using Words = std::vector<std::string>;

// Records the words of every "rec" line, from the console thread.
struct Recorder {
    std::mutex mutex;
    std::vector<Words> lines;

    void attach(ConsoleIn* console) {
        console->addCommand("rec", "record the words", [this](ConsoleIn& con, const Words& words) {
            std::lock_guard<std::mutex> lock(mutex);
            lines.push_back(words);
            con.print("recorded\n");
        });
    }
    size_t count() {
        std::lock_guard<std::mutex> lock(mutex);
        return lines.size();
    }
    Words last() {
        std::lock_guard<std::mutex> lock(mutex);
        return lines.empty() ? Words() : lines.back();
    }
};

// Everything readable on fd within timeoutMs of quiet.
std::string drain(int fd, int timeoutMs = 50) {
    std::string text;
    pollfd entry{fd, POLLIN, 0};
    char buf[1024];
    while (poll(&entry, 1, timeoutMs) == 1) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0) break;
        text.append(buf, static_cast<size_t>(n));
    }
    return text;
}

void send(int fd, const std::string& text) {
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// A pseudo-terminal: the console reads the slave side, the test types on the master.
struct Pty {
    int master = -1;
    int slave = -1;
    bool open() {
        master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return false;
        slave = ::open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
        return slave >= 0;
    }
    ~Pty() {
        if (slave >= 0) ::close(slave);
        if (master >= 0) ::close(master);
    }
    tcflag_t localModes() const {
        termios mode{};
        tcgetattr(slave, &mode);
        return mode.c_lflag;
    }
};

TEST(ConsoleIn, SplitsLinesIntoWordsRespectingQuotes) {
    const std::pair<const char*, Words> cases[] = {
        {"a b", {"a", "b"}},
        {"  say \"hello world\"  ", {"say", "hello world"}},
        {"a\\ b 'x \"y\"'", {"a b", "x \"y\""}},
        {"\"\" end", {"", "end"}},
        {"a\"b c\"d", {"ab cd"}},
        {"'no \\escape'", {"no \\escape"}},
        {"", {}},
        {" \t ", {}},
    };
    for (auto& c : cases) {
        Words words{"stale"};
        EXPECT_TRUE(ConsoleIn::splitWords(c.first, &words)) << c.first;
        EXPECT_EQ(words, c.second) << c.first;
    }
    Words words;
    auto lines = test::LogCapture::get().linesDuring(
        [&] { EXPECT_FALSE(ConsoleIn::splitWords("it's", &words)); });
    EXPECT_EQ(lines, Words{"<E>DATE [splitWords,L#] unterminated ' quote in: it's"});
    EXPECT_TRUE(words.empty());
}

// Input that is no terminal: plain lines, no echo or prompt, and the end of
// input ends the thread (the last line needs no line end).
TEST(ConsoleIn, RunsCommandsFromAPipeUntilItsEnd) {
    int in[2], out[2];
    ASSERT_EQ(pipe2(in, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
    ConsoleIn console;
    Recorder recorder;
    recorder.attach(&console);
    ASSERT_TRUE(console.start(in[0], out[1]));
    EXPECT_TRUE(test::eventually([] {
        auto names = test::threadNames();
        return std::find(names.begin(), names.end(), "ConsoleIn") != names.end();
    }));
    auto& capture = test::LogCapture::get();
    send(in[1], "rec 'a b' c\r\nhelp\nnosuch x\nrec \"open\nrec last");
    ::close(in[1]);
    EXPECT_TRUE(test::eventually([&] { return !console.isRunning(); }));
    EXPECT_EQ(recorder.count(), 2u);
    EXPECT_EQ(recorder.lines[0], (Words{"rec", "a b", "c"}));
    EXPECT_EQ(recorder.last(), (Words{"rec", "last"}));
    EXPECT_EQ(drain(out[0]),
              "recorded\ncommands:\n  help  list the commands\n  rec  record the words\n"
              "unknown command: nosuch (try help)\nunterminated quote\nrecorded\n");
    EXPECT_EQ(capture.waitLine("unknown command:"),
              "<W>DATE [ConsoleIn::execute,L#] unknown command:'nosuch'");
    EXPECT_TRUE(console.stop());
    ::close(in[0]);
    ::close(out[0]);
    ::close(out[1]);
}

TEST(ConsoleIn, EditsLinesOnATerminalAndRestoresIt) {
    Pty pty;
    if (!pty.open()) GTEST_SKIP() << "no pseudo-terminal: /dev/ptmx is missing";
    tcflag_t cooked = pty.localModes();
    ASSERT_NE(cooked & ICANON, 0u);
    ConsoleIn console;
    console.setPrompt("gw> ");
    Recorder recorder;
    recorder.attach(&console);
    ASSERT_TRUE(console.start(pty.slave, pty.slave));
    EXPECT_EQ(pty.localModes() & (ICANON | ECHO), 0u);
    EXPECT_NE(pty.localModes() & ISIG, 0u);  // Ctrl-C still interrupts
    // Keys as a terminal sends them, and the line the handler gets.
    const std::pair<const char*, const char*> keys[] = {
        {"rec ab\x1b[Dc\r", "acb"},                          // cursor left, insert
        {"rec xyz\x7f\x7f\r", "x"},                          // backspace
        {"\x1b[A\x1b[A\r", "acb"},                           // two lines back in the history
        {"\x1b[A\x1b[A\x1b[B\r", "acb"},                     // up, up, down: the last line again
        {"hello\x01rec \x05!\r", "hello!"},                  // Ctrl-A home, Ctrl-E end
        {"rec abc\x1b[D\x1b[D\x1b[3~\r", "ac"},              // delete under the cursor
        {"junk\x15rec ok\r\n", "ok"},                        // Ctrl-U clears; CR LF is one line end
        {"rec q\x1b[H\x1b[F\x1bOD\x1b[1~\x1b[4~p\r", "qp"},  // home/end forms, ESC O D left
    };
    size_t expected = 0;
    for (auto& k : keys) {
        send(pty.master, k.first);
        ++expected;
        EXPECT_TRUE(test::eventually([&] { return recorder.count() == expected; })) << k.first;
        EXPECT_EQ(recorder.last(), (Words{"rec", k.second})) << k.first;
    }
    // An escape sequence split between two reads.
    send(pty.master, "rec q\x1b");
    drain(pty.master, 20);
    send(pty.master, "[Dp\r");
    EXPECT_TRUE(test::eventually([&] { return recorder.count() == expected + 1; }));
    EXPECT_EQ(recorder.last(), (Words{"rec", "pq"}));
    std::string shown = drain(pty.master);
    EXPECT_NE(shown.find("gw> rec pq"), std::string::npos) << shown;
    EXPECT_NE(shown.find("recorded\r\n"), std::string::npos) << shown;

    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(console.stop());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_FALSE(console.isRunning());
    EXPECT_EQ(pty.localModes(), cooked);

    // Ctrl-D on an empty line ends the input; a handler may stop the console too.
    ASSERT_TRUE(console.start(pty.slave, pty.slave));
    send(pty.master, "\x04");
    EXPECT_TRUE(test::eventually([&] { return !console.isRunning(); }));
    EXPECT_EQ(pty.localModes(), cooked);
    console.addCommand("quit", "stop the console",
                       [](ConsoleIn& con, const Words&) { con.stop(); });
    ASSERT_TRUE(console.start(pty.slave, pty.slave));
    send(pty.master, "quit\r");
    EXPECT_TRUE(test::eventually([&] { return !console.isRunning(); }));
    EXPECT_EQ(pty.localModes(), cooked);
}

TEST(ConsoleIn, RejectsBadInputWithOneLineEach) {
    ConsoleIn console;
    auto handler = [](ConsoleIn&, const Words&) {};
    int in[2];
    ASSERT_EQ(pipe2(in, O_CLOEXEC), 0);
    const std::pair<std::function<bool()>, const char*> cases[] = {
        {[&] { return console.addCommand("", "", handler); },
         "[ConsoleIn::addCommand,L#] bad command:''"},
        {[&] { return console.addCommand("help", "", handler); },
         "[ConsoleIn::addCommand,L#] bad command:'help'"},
        {[&] { return console.addCommand("a b", "", handler); },
         "[ConsoleIn::addCommand,L#] bad command:'a b'"},
        {[&] { return console.addCommand("x", "", nullptr); },
         "[ConsoleIn::addCommand,L#] bad command:'x' (no handler)"},
        {[&] { return console.start(-1, 1); },
         "[ConsoleIn::start,L#] bad descriptors: in -1, out 1"},
        {[&] { return console.start("/nonexistent/tty"); },
         "[ConsoleIn::start,L#] open /nonexistent/tty error:No such file or directory"},
        {[&] { return console.start(in[0], 1) && console.start(in[0], 1); },
         "[ConsoleIn::start,L#] console already running"},
    };
    for (auto& c : cases) {
        auto lines = test::LogCapture::get().linesDuring([&] { EXPECT_FALSE(c.first()); });
        EXPECT_EQ(lines, Words{std::string("<E>DATE ") + c.second});
    }
    EXPECT_TRUE(console.isRunning());
    EXPECT_TRUE(console.stop());  // wakes the thread blocked on an idle pipe
    EXPECT_TRUE(console.stop());
    ::close(in[0]);
    ::close(in[1]);
}

}  // namespace
}  // namespace orvane
