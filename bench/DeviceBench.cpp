// SerialPort's data calls against the bare select() + read()/write() they
// wrap, over a pseudo-terminal: the wrapper should cost nothing measurable.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <orvane/SerialPort.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

constexpr int kChunk = 64;

struct PtyLine {
    PtyLine() {
        master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        grantpt(master);
        unlockpt(master);
        char name[64] = {};
        ptsname_r(master, name, sizeof name);
        slavePath = name;
        termios tio{};
        tcgetattr(master, &tio);
        cfmakeraw(&tio);
        tcsetattr(master, TCSANOW, &tio);
    }
    ~PtyLine() { close(master); }

    // Reads exactly n bytes from fd.
    static void drain(int fd, char* buf, int n) {
        while (n > 0) {
            ssize_t got = read(fd, buf, static_cast<size_t>(n));
            if (got <= 0) std::abort();
            n -= static_cast<int>(got);
        }
    }

    int master = -1;
    std::string slavePath;
};

bool waitFor(int fd, bool forWrite) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval limit{1, 0};
    return select(fd + 1, forWrite ? nullptr : &set, forWrite ? &set : nullptr, nullptr, &limit) ==
           1;
}

void BM_SendBareSyscalls(benchmark::State& state) {
    PtyLine line;
    orvane::SerialPort port;  // only configures the line
    port.open(line.slavePath, 2);
    char out[kChunk] = {};
    char in[kChunk];
    for (auto _ : state) {
        if (!waitFor(port.fd(), true)) std::abort();
        if (write(port.fd(), out, kChunk) != kChunk) std::abort();
        PtyLine::drain(line.master, in, kChunk);
    }
}
BENCHMARK(BM_SendBareSyscalls);

void BM_SendSerialPort(benchmark::State& state) {
    PtyLine line;
    orvane::SerialPort port;
    port.open(line.slavePath, 2);
    char out[kChunk] = {};
    char in[kChunk];
    for (auto _ : state) {
        if (port.sendData(out, kChunk, 1000000) != kChunk) std::abort();
        PtyLine::drain(line.master, in, kChunk);
    }
}
BENCHMARK(BM_SendSerialPort);

void BM_RecvBareSyscalls(benchmark::State& state) {
    PtyLine line;
    orvane::SerialPort port;
    port.open(line.slavePath, 2);
    char out[kChunk] = {};
    char in[kChunk];
    for (auto _ : state) {
        if (write(line.master, out, kChunk) != kChunk) std::abort();
        for (int got = 0; got < kChunk;) {
            if (!waitFor(port.fd(), false)) std::abort();
            ssize_t n = read(port.fd(), in, kChunk);
            if (n <= 0) std::abort();
            got += static_cast<int>(n);
        }
    }
}
BENCHMARK(BM_RecvBareSyscalls);

void BM_RecvSerialPort(benchmark::State& state) {
    PtyLine line;
    orvane::SerialPort port;
    port.open(line.slavePath, 2);
    char out[kChunk] = {};
    char in[kChunk];
    for (auto _ : state) {
        if (write(line.master, out, kChunk) != kChunk) std::abort();
        for (int got = 0; got < kChunk;) {
            int n = port.recvData(in, kChunk, 1000000);
            if (n <= 0) std::abort();
            got += n;
        }
    }
}
BENCHMARK(BM_RecvSerialPort);

}  // namespace

BENCHMARK_MAIN();
