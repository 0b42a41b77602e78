#pragma once

#include <orvane/Export.h>
#include <orvane/UniqueFd.h>
#include <termios.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvane {

// An interactive command console for a running device program: a thread of
// its own ("ConsoleIn") reads lines from standard input or any terminal (a
// serial console included), splits each into words (single and double
// quotes group words, a backslash escapes the next character), and runs the
// registered command named by the first word. "help" is built in and lists
// the commands with their help texts.
//
//     ConsoleIn console;
//     console.addCommand("baud", "baud N: change the serial speed",
//         [&](ConsoleIn& con, const std::vector<std::string>& words) {
//             con.print(words.size() == 2 ? "ok\n" : "usage: baud N\n");
//         });
//     console.start();                  // standard input and output
//     ...
//     console.stop();                   // from the application's stop path
//
// When the input is a terminal the console switches it to raw mode and edits
// lines itself: backspace, delete, cursor left/right, home/end (also Ctrl-A,
// Ctrl-E), Ctrl-U clears the line, up/down walk the last 100 lines, Ctrl-D on
// an empty line ends the input. Editing works on bytes (no wide characters).
// The terminal's settings are restored by stop(). Signal keys stay on, so
// Ctrl-C still interrupts a program run from a shell. Input that is not a
// terminal (a pipe, a file) is read as plain lines, without echo or prompt.
// End of input ends the thread; isRunning() then turns false.
// Handlers run on the console thread, one at a time, and may call print();
// the console reads nothing while a handler runs. addCommand and print may be
// called from any thread (a print from another thread while a line is being
// typed lands in the middle of it; the next key redraws the line); start and stop from one
// controlling thread (stop from a handler only asks the thread to end; the next stop or the
// destructor joins it). stop() wakes the thread through an eventfd at once.
// Failures are logged once and give false.
class ORVANE_API ConsoleIn {
  public:
    // A command: called on the console's thread with the words of the line typed.
    using Handler = std::function<void(ConsoleIn& console, const std::vector<std::string>& words)>;

    ConsoleIn();
    ~ConsoleIn();
    ConsoleIn(const ConsoleIn&) = delete;
    ConsoleIn& operator=(const ConsoleIn&) = delete;

    // Registers `name` (no blanks, not "help") with its help line and
    // handler; the handler gets the words of the line, the name first.
    // Registering a name again replaces it.
    bool addCommand(const std::string& name, const std::string& help, Handler handler);
    // Text shown before each line on a terminal; default "> ".
    void setPrompt(const std::string& prompt);

    // Starts reading `inFd` and writing prompts, echo and print() to
    // `outFd`. The descriptors stay the caller's and must stay open until
    // stop(). False when already running or the thread cannot start.
    bool start(int inFd = 0, int outFd = 1);
    // Opens the terminal device `path` (a serial console, "/dev/ttyS0") for
    // reading and writing, owned until stop(), and starts on it.
    bool start(const std::string& path);
    // Ends the thread, restores the terminal, closes a device opened by
    // start(path); true (also when not running).
    bool stop();
    // True between start() and stop(). Any thread.
    bool isRunning() const { return running_; }

    // Runs one line as if it had been typed: false for an unknown command
    // or a line with an open quote (both also printed to the console).
    bool execute(const std::string& line);
    // Writes `text` to the console's output (nothing when not started).
    void print(const std::string& text);

    // The words of `line`, or false (logged) for an unterminated quote.
    static bool splitWords(const std::string& line, std::vector<std::string>* words);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    struct Command {
        std::string help;
        Handler handler;
    };

    void run();
    enum EditResult { EDIT_MORE, EDIT_LINE, EDIT_END };
    // One input byte of the line editor.
    EditResult editByte(char byte);
    // Runs the complete lines of non-terminal input held in *pending.
    void runLines(std::string* pending, bool atEnd);
    // A complete escape sequence of the editor (the bytes after ESC).
    void editEscape(const std::string& sequence);
    void historyMove(int step);
    void refresh();
    void writeOut(const std::string& text);
    bool rawMode();
    void restoreMode();

    std::mutex commandsMutex;
    std::map<std::string, Command> commands;
    std::mutex outMutex;
    std::string prompt_;
    int in_;
    int out_;
    UniqueFd device;
    UniqueFd wake;
    std::thread thread;
    std::atomic<bool> running_;
    std::atomic<bool> stopping;
    bool terminal;
    bool restoreNeeded;
    termios savedMode;  // the terminal's settings while raw mode is on

    // Line editor state (console thread only).
    std::string edit;
    size_t cursor;
    std::string escape;  // bytes of an escape sequence being read; empty when none
    bool lastWasCr;
    std::vector<std::string> history;
    size_t historyAt;
    std::string draft;  // the line being typed while walking the history
};

}  // namespace orvane
