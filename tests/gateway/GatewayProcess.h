#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "../support/Eventually.h"

extern char** environ;

namespace orvane::test {

// A program run with its standard output and error collected in a file,
// for tests that check what it logs and how it ends. Killed if still running
// at the end. The gateway benchmark uses it too, so this header needs no
// test support code beyond header-only helpers.
class Program {
  public:
    explicit Program(const std::vector<std::string>& argv) {
        char path[] = "/tmp/orvane_program_XXXXXX";
        int fd = mkostemp(path, O_CLOEXEC);
        if (fd >= 0) ::close(fd);
        log = path;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_APPEND, 0600);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        std::vector<char*> args;
        args.reserve(argv.size() + 1);
        for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);
        if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) != 0) pid = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Program() {
        if (pid > 0 && status < 0) ::kill(pid, SIGKILL), wait(5000);
        ::unlink(log.c_str());
    }
    int processId() const { return pid; }

    // Waits until the output holds `text` `times` times; false on timeout.
    bool waitFor(const std::string& text, int timeoutMs = 5000, size_t times = 1) {
        return eventually([&] { return count(text) >= times; }, timeoutMs);
    }
    size_t count(const std::string& text) {
        std::string output = this->text();
        size_t found = 0;
        for (size_t at = output.find(text); at != std::string::npos; at = output.find(text, at + 1))
            ++found;
        return found;
    }
    std::string text() {
        std::ifstream in(log, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    // The exit status once the program ended, -1 when it did not within
    // timeoutMs, -2 when a signal ended it.
    int wait(int timeoutMs) {
        int raw = 0;
        if (status < 0 && pid > 0 &&
            eventually([&] { return waitpid(pid, &raw, WNOHANG) == pid; }, timeoutMs)) {
            status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -2;
        }
        return status;
    }

  private:
    std::string log;
    pid_t pid = -1;
    int status = -1;
};

// Reads from `fd` until `size` bytes arrived or timeoutMs passed; what arrived.
inline std::string readUntil(int fd, size_t size, int timeoutMs) {
    std::string got;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (got.size() < size) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd ready{fd, POLLIN, 0};
        char buf[1024];
        ssize_t n = left.count() > 0 && poll(&ready, 1, int(left.count())) > 0
                        ? ::read(fd, buf, std::min(sizeof buf, size - got.size()))
                        : 0;
        if (n <= 0) break;
        got.append(buf, size_t(n));
    }
    return got;
}

// A TCP client of a loopback port with plain socket calls.
class Client {
  public:
    explicit Client(unsigned short port) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) close();
    }
    ~Client() { close(); }
    bool send(const std::string& bytes) {
        return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == ssize_t(bytes.size());
    }
    std::string receive(size_t size, int timeoutMs = 3000) {
        return readUntil(fd, size, timeoutMs);
    }
    // True when the gateway closed the connection within timeoutMs.
    bool closedByPeer(int timeoutMs) {
        pollfd ready{fd, POLLIN, 0};
        char c;
        return poll(&ready, 1, timeoutMs) == 1 && ::recv(fd, &c, 1, 0) <= 0;
    }
    // Closes with a reset instead of an orderly end when `abort` is set.
    void close(bool abort = false) {
        linger hard{1, 0};
        if (abort) setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        if (fd >= 0) ::close(fd);
        fd = -1;
    }

  private:
    int fd = -1;
};

}  // namespace orvane::test
