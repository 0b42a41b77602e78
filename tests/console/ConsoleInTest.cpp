#include <fcntl.h>
#include <orvane/ConsoleIn.h>
#include <poll.h>
#include <termios.h>

#include <algorithm>

#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

using Words = std::vector<std::string>;

// Registers "rec", which answers with the words of its line joined by '|'.
void addRecorder(ConsoleIn* console) {
    console->addCommand("rec", "record the words", [](ConsoleIn& con, const Words& words) {
        std::string joined = words[0];
        for (size_t i = 1; i < words.size(); ++i) joined += "|" + words[i];
        con.print(joined + "\n");
    });
}

// The answers of "rec" in what the console showed, in order.
Words recorded(const std::string& shown) {
    Words found;
    for (size_t at = shown.find("rec|"); at != std::string::npos; at = shown.find("rec|", at + 1))
        found.push_back(shown.substr(at, shown.find_first_of("\r\n", at) - at));
    return found;
}

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
    ASSERT_TRUE(pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0);
    ConsoleIn console;
    addRecorder(&console);
    ASSERT_TRUE(console.start(in[0], out[1]));
    EXPECT_TRUE(test::eventually([] {
        auto names = test::threadNames();
        return std::find(names.begin(), names.end(), "ConsoleIn") != names.end();
    }));
    test::expectRefusal([&] { return console.start(in[0], out[1]); },
                        "<E>DATE [ConsoleIn::start,L#] console already running");
    EXPECT_FALSE(console.addCommand("a b", "", [](ConsoleIn&, const Words&) {}) ||
                 ConsoleIn().start("/nonexistent/tty"));
    auto& capture = test::LogCapture::get();
    send(in[1], "rec 'a b' c\r\nhelp\nnosuch x\nrec \"open\nrec last");
    ::close(in[1]);
    EXPECT_TRUE(test::eventually([&] { return !console.isRunning(); }));
    EXPECT_EQ(drain(out[0]),
              "rec|a b|c\ncommands:\n  help  list the commands\n  rec  record the words\n"
              "unknown command: nosuch (try help)\nunterminated quote\nrec|last\n");
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
    addRecorder(&console);
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
         "rec q\x1b[H\x1b[F\x1b[1~\x1b[4~\x1bODp\r"  // home/end forms, ESC O D left
         "rec q\x1b");                               // an escape sequence split between reads
    std::string shown = drain(master, 20);
    send(master, "[Dp\r");
    EXPECT_TRUE(test::eventually([&] { return recorded(shown += drain(master, 10)).size() >= 9; }));
    EXPECT_EQ(recorded(shown), (Words{"rec|acb", "rec|x", "rec|acb", "rec|acb", "rec|hello!",
                                      "rec|ac", "rec|ok", "rec|pq", "rec|pq"}));
    EXPECT_NE(shown.find("gw> rec pq"), std::string::npos) << shown;
    EXPECT_NE(shown.find("rec|pq\r\n"), std::string::npos) << shown;

    EXPECT_TRUE(console.stop() && localModes(slave) == cooked);
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

}  // namespace
}  // namespace orvane
