#include <fcntl.h>
#include <orvane/ConsoleIn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "log/LogLine.h"

namespace orvane {

namespace {

// The console whose thread is the calling one, so that stop() called from a
// handler never reads the thread object that start() may still be writing.
thread_local const ConsoleIn* runningHere = nullptr;

constexpr size_t kHistoryMax = 100;
constexpr size_t kEscapeMax = 8;

}  // namespace

ConsoleIn::ConsoleIn()
    : className("ConsoleIn"),
      prompt_("> "),
      in_(-1),
      out_(-1),
      running_(false),
      stopping(false),
      terminal(false),
      restoreNeeded(false),
      savedMode(),
      cursor(0),
      lastWasCr(false),
      historyAt(0) {}

ConsoleIn::~ConsoleIn() { stop(); }

bool ConsoleIn::addCommand(const std::string& name, const std::string& help, Handler handler) {
    if (name.empty() || name.find_first_of(" \t\r\n'\"\\") != std::string::npos || name == "help" ||
        !handler) {
        ORVANE_ERROR("bad command:'%s'%s", name.c_str(), handler ? "" : " (no handler)");
        return false;
    }
    std::lock_guard<std::mutex> lock(commandsMutex);
    commands[name] = Command{help, std::move(handler)};
    return true;
}

void ConsoleIn::setPrompt(const std::string& prompt) {
    std::lock_guard<std::mutex> lock(outMutex);
    prompt_ = prompt;
}

bool ConsoleIn::start(const std::string& path) {
    if (running_) {
        ORVANE_ERROR("console already running");
        return false;
    }
    UniqueFd fd(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!fd) {
        int err = errno;
        ORVANE_ERROR("open %s error:%s", path.c_str(), strerror(err));
        return false;
    }
    if (!start(fd.get(), fd.get())) return false;
    device = std::move(fd);
    return true;
}

bool ConsoleIn::start(int inFd, int outFd) {
    if (running_) {
        ORVANE_ERROR("console already running");
        return false;
    }
    if (thread.joinable()) thread.join();  // a thread that ended by itself
    if (inFd < 0 || outFd < 0 || fcntl(inFd, F_GETFL) < 0 || fcntl(outFd, F_GETFL) < 0) {
        ORVANE_ERROR("bad descriptors: in %d, out %d", inFd, outFd);
        return false;
    }
    wake.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake) {
        int err = errno;
        ORVANE_ERROR("eventfd error:%s", strerror(err));
        return false;
    }
    in_ = inFd;
    out_ = outFd;
    edit.clear();
    cursor = 0;
    escape.clear();
    historyAt = history.size();
    terminal = isatty(inFd) == 1 && rawMode();
    stopping = false;
    running_ = true;
    try {
        thread = std::thread(&ConsoleIn::run, this);
    } catch (const std::system_error& failure) {
        running_ = false;
        restoreMode();
        ORVANE_ERROR("thread start error:%s", failure.what());
        return false;
    }
    return true;
}

bool ConsoleIn::stop() {
    stopping = true;
    if (wake) {
        uint64_t one = 1;
        ssize_t ignored = write(wake.get(), &one, sizeof one);
        (void)ignored;
    }
    if (runningHere == this) return true;  // a handler asked
    if (!thread.joinable()) return true;
    thread.join();
    wake.reset();
    device.reset();
    std::lock_guard<std::mutex> lock(outMutex);
    in_ = -1;
    out_ = -1;
    return true;
}

bool ConsoleIn::rawMode() {
    if (tcgetattr(in_, &savedMode) != 0) return false;
    termios raw = savedMode;
    raw.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ICRNL | INPCK | ISTRIP | IXON);
    raw.c_cflag |= CS8;
    raw.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | IEXTEN);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    // TCSADRAIN, not TCSAFLUSH: input typed ahead (or pasted) is kept.
    if (tcsetattr(in_, TCSADRAIN, &raw) != 0) {
        int err = errno;
        ORVANE_ERROR("tcsetattr error:%s (reading plain lines)", strerror(err));
        return false;
    }
    restoreNeeded = true;
    return true;
}

void ConsoleIn::restoreMode() {
    if (!restoreNeeded) return;
    restoreNeeded = false;
    if (tcsetattr(in_, TCSADRAIN, &savedMode) != 0) {
        int err = errno;
        ORVANE_ERROR("restore terminal error:%s", strerror(err));
    }
}

void ConsoleIn::writeOut(const std::string& text) {
    size_t done = 0;
    while (out_ >= 0 && done < text.size()) {
        ssize_t n = write(out_, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;  // a console that went away: nothing to tell it
        done += static_cast<size_t>(n);
    }
}

void ConsoleIn::print(const std::string& text) {
    std::lock_guard<std::mutex> lock(outMutex);
    writeOut(text);
}

void ConsoleIn::refresh() {
    std::lock_guard<std::mutex> lock(outMutex);
    std::string text = "\r" + prompt_ + edit + "\x1b[0K\r";
    size_t column = prompt_.size() + cursor;
    if (column > 0) text += "\x1b[" + std::to_string(column) + "C";
    writeOut(text);
}

bool ConsoleIn::splitWords(const std::string& line, std::vector<std::string>* words) {
    if (words == nullptr) {
        ORVANE_SERROR("param error: words is null");
        return false;
    }
    words->clear();
    std::string word;
    bool inWord = false;
    char quote = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
            word += line[++i];
            inWord = true;
        } else if (quote != 0) {
            if (c == quote) {
                quote = 0;
            } else {
                word += c;
            }
        } else if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
        } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            if (inWord) words->push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quote != 0) {
        ORVANE_SERROR("unterminated %c quote in: %s", quote, line.c_str());
        words->clear();
        return false;
    }
    if (inWord) words->push_back(word);
    return true;
}

bool ConsoleIn::execute(const std::string& line) {
    std::vector<std::string> words;
    if (!splitWords(line, &words)) {
        print("unterminated quote\n");
        return false;
    }
    if (words.empty()) return true;
    Handler handler;
    {
        std::lock_guard<std::mutex> lock(commandsMutex);
        if (words[0] == "help") {
            std::string text = "commands:\n  help  list the commands\n";
            for (auto& entry : commands)
                text += "  " + entry.first + "  " + entry.second.help + "\n";
            print(text);
            return true;
        }
        auto found = commands.find(words[0]);
        if (found != commands.end()) handler = found->second.handler;
    }
    if (!handler) {
        ORVANE_WARN("unknown command:'%s'", words[0].c_str());
        print("unknown command: " + words[0] + " (try help)\n");
        return false;
    }
    handler(*this, words);
    return true;
}

void ConsoleIn::historyMove(int step) {
    if (history.empty()) return;
    if (step < 0 && historyAt == 0) return;
    if (step > 0 && historyAt >= history.size()) return;
    if (historyAt == history.size()) draft = edit;
    historyAt = step < 0 ? historyAt - 1 : historyAt + 1;
    edit = historyAt == history.size() ? draft : history[historyAt];
    cursor = edit.size();
}

void ConsoleIn::editEscape(const std::string& sequence) {
    // A terminal in keypad mode sends ESC O for ESC [ before a letter.
    std::string key = sequence[0] == 'O' ? "[" + sequence.substr(1) : sequence;
    if (key == "[D" && cursor > 0) {
        --cursor;
    } else if (key == "[C" && cursor < edit.size()) {
        ++cursor;
    } else if (key == "[A") {
        historyMove(-1);
    } else if (key == "[B") {
        historyMove(1);
    } else if (key == "[H" || key == "[1~" || key == "[7~") {
        cursor = 0;
    } else if (key == "[F" || key == "[4~" || key == "[8~") {
        cursor = edit.size();
    } else if (key == "[3~" && cursor < edit.size()) {
        edit.erase(cursor, 1);
    }
}

ConsoleIn::EditResult ConsoleIn::editByte(char byte) {
    auto code = static_cast<unsigned char>(byte);
    bool wasCr = lastWasCr;
    lastWasCr = byte == '\r';
    if (!escape.empty()) {
        escape += byte;
        if (escape.size() == 2) {
            if (byte != '[' && byte != 'O') escape.clear();  // ESC and another key: dropped
        } else if (code >= 0x40 && code <= 0x7e) {
            editEscape(escape.substr(1));
            escape.clear();
            refresh();
        } else if (escape.size() >= kEscapeMax) {
            escape.clear();
        }
        return EDIT_MORE;
    }
    switch (code) {
        case '\r':
            return EDIT_LINE;
        case '\n':
            return wasCr ? EDIT_MORE : EDIT_LINE;  // CR LF is one end of line
        case 0x1b:
            escape = "\x1b";
            return EDIT_MORE;
        case 0x7f:
        case 0x08:
            if (cursor > 0) edit.erase(--cursor, 1);
            break;
        case 0x01:
            cursor = 0;
            break;
        case 0x05:
            cursor = edit.size();
            break;
        case 0x15:
            edit.clear();
            cursor = 0;
            break;
        case 0x04:
            if (edit.empty()) return EDIT_END;
            if (cursor < edit.size()) edit.erase(cursor, 1);
            break;
        default:
            if (code < 0x20) return EDIT_MORE;  // other control keys do nothing
            edit.insert(cursor++, 1, byte);
            break;
    }
    refresh();
    return EDIT_MORE;
}

void ConsoleIn::runLines(std::string* pending, bool atEnd) {
    size_t end;
    while ((end = pending->find('\n')) != std::string::npos) {
        std::string line = pending->substr(0, end);
        pending->erase(0, end + 1);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        execute(line);
    }
    if (atEnd && !pending->empty()) {
        execute(*pending);
        pending->clear();
    }
}

void ConsoleIn::run() {
    runningHere = this;
    pthread_setname_np(pthread_self(), "ConsoleIn");
    if (terminal) refresh();
    std::string pending;
    bool ended = false;
    bool atEnd = false;
    while (!stopping && !ended) {
        pollfd fds[2] = {{in_, POLLIN, 0}, {wake.get(), POLLIN, 0}};
        int n = poll(fds, 2, -1);
        if (n < 0) {
            int err = errno;
            if (err == EINTR) continue;
            ORVANE_ERROR("poll error:%s", strerror(err));
            break;
        }
        if (fds[1].revents != 0) break;
        if (fds[0].revents == 0) continue;
        char buf[256];
        ssize_t got = read(in_, buf, sizeof buf);
        if (got < 0) {
            int err = errno;
            if (err == EINTR || err == EAGAIN) continue;
            if (err != EIO) ORVANE_ERROR("read error:%s", strerror(err));  // EIO: hung up
            break;
        }
        if (got == 0) {
            atEnd = true;
            break;
        }
        if (!terminal) {
            pending.append(buf, static_cast<size_t>(got));
            runLines(&pending, false);
            continue;
        }
        for (ssize_t i = 0; i < got && !stopping && !ended; ++i) {
            EditResult result = editByte(buf[i]);
            ended = result == EDIT_END;
            if (result != EDIT_LINE) continue;
            std::string line = edit;
            print("\r\n");
            if (!line.empty() && (history.empty() || history.back() != line)) {
                history.push_back(line);
                if (history.size() > kHistoryMax) history.erase(history.begin());
            }
            historyAt = history.size();
            edit.clear();
            cursor = 0;
            execute(line);
            if (!stopping) refresh();
        }
    }
    if (!terminal && atEnd) runLines(&pending, true);
    if (terminal) print("\r\n");
    restoreMode();
    running_ = false;
}

}  // namespace orvane
