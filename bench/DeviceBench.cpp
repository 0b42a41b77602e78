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

// The baseline: what sendData and recvData do, spelled out with select().
int bareCall(int fd, char* buf, bool forWrite) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval limit{1, 0};
    if (select(fd + 1, forWrite ? nullptr : &set, forWrite ? &set : nullptr, nullptr, &limit) !=
        1) {
        return -1;
    }
    return static_cast<int>(forWrite ? write(fd, buf, kChunk) : read(fd, buf, kChunk));
}

// Port to peer: one 64-byte write by the port (viaPort) or by bare syscalls.
template <bool viaPort>
void BM_Send(benchmark::State& state) {
    PtyLine line;
    orvane::SerialPort port;  // configures the line for both variants
    port.open(line.slavePath, 2);
    char out[kChunk] = {};
    char in[kChunk];
    for (auto _ : state) {
        int n = viaPort ? port.sendData(out, kChunk, 1000000) : bareCall(port.fd(), out, true);
        if (n != kChunk) std::abort();
        PtyLine::drain(line.master, in, kChunk);
    }
}
BENCHMARK_TEMPLATE(BM_Send, false);
BENCHMARK_TEMPLATE(BM_Send, true);

// Peer to port: 64 bytes, taken in as many waits and reads as they arrive in.
template <bool viaPort>
void BM_Recv(benchmark::State& state) {
    PtyLine line;
    orvane::SerialPort port;
    port.open(line.slavePath, 2);
    char out[kChunk] = {};
    char in[kChunk];
    for (auto _ : state) {
        if (write(line.master, out, kChunk) != kChunk) std::abort();
        for (int got = 0; got < kChunk;) {
            int n = viaPort ? port.recvData(in, kChunk, 1000000) : bareCall(port.fd(), in, false);
            if (n <= 0) std::abort();
            got += n;
        }
    }
}
BENCHMARK_TEMPLATE(BM_Recv, false);
BENCHMARK_TEMPLATE(BM_Recv, true);

}  // namespace

BENCHMARK_MAIN();
