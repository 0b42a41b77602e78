// Requests through the whole orvane-gateway chain (client -> TCP -> client
// loop -> task queue worker -> pseudo-terminal -> simulated device and back)
// against a baseline in the same run: the same client exchanging the same
// frames with a bare echo thread on a pseudo-terminal. Both serve one request
// on the line at a time; with 8 clients they take turns.
//   items/s     answered requests per second (all clients together)
//   p50_us      median latency of one request, microseconds
//   p99_us      99th percentile latency
//
//     build/bench/orvane_bench_gateway --benchmark_repetitions=5 --benchmark_report_aggregates_only

#include <benchmark/benchmark.h>
#include <orvane/AnyPacket.h>
#include <termios.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "../tests/gateway/GatewayProcess.h"

namespace {

using orvane::test::Client;
using orvane::test::Program;
using Clock = std::chrono::steady_clock;

const std::string kPayload = std::string("\x01", 1) + "0123456789abcdef";

std::string frameOf(const std::string& payload) {
    return orvane::AnyPacket::Frame().encode(payload);
}

// Runs `exchange` once per iteration and reports the latency percentiles
// (per thread, averaged over the threads).
template <class Exchange>
void measure(benchmark::State& state, Exchange exchange) {
    const std::string request = frameOf(kPayload);
    std::vector<double> latencies;
    for (auto _ : state) {
        auto sent = Clock::now();
        if (!exchange(request)) {
            state.SkipWithError("no answer");
            break;
        }
        latencies.push_back(std::chrono::duration<double, std::micro>(Clock::now() - sent).count());
    }
    state.SetItemsProcessed(state.iterations());
    if (latencies.empty()) return;
    std::sort(latencies.begin(), latencies.end());
    using benchmark::Counter;
    state.counters["p50_us"] = Counter(latencies[latencies.size() / 2], Counter::kAvgThreads);
    state.counters["p99_us"] =
        Counter(latencies[latencies.size() * 99 / 100], Counter::kAvgThreads);
}

// The gateway, started once for every run.
Program& gateway() {
    static Program program({ORVANE_GATEWAY_PATH, "--listen", "127.0.0.1:0", "--status-interval",
                            "0", "--max-clients", "64"});
    return program;
}

unsigned short gatewayPort() {
    static unsigned short port = []() -> unsigned short {
        if (!gateway().waitFor("gateway listening on 127.0.0.1:")) return 0;
        std::string text = gateway().text();
        return static_cast<unsigned short>(
            std::stoi(text.substr(text.find("gateway listening on 127.0.0.1:") + 31)));
    }();
    return port;
}

void BM_Gateway(benchmark::State& state) {
    if (gatewayPort() == 0) {
        state.SkipWithError("gateway did not start");
        return;
    }
    Client client(gatewayPort());
    measure(state, [&](const std::string& request) {
        if (!client.send(request)) return false;
        return client.receive(request.size()) == request;  // echo: the answer is the request
    });
}
BENCHMARK(BM_Gateway)->Threads(1)->Threads(8)->UseRealTime();

// A pseudo-terminal with an echo thread on its far end, shared by all threads.
class PtyEcho {
  public:
    PtyEcho() {
        master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        char name[64] = "";
        grantpt(master);
        unlockpt(master);
        ptsname_r(master, name, sizeof name);
        slave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios raw{};
        tcgetattr(slave, &raw);
        cfmakeraw(&raw);
        tcsetattr(slave, TCSANOW, &raw);
        echo = std::thread([this] {
            char buf[512];
            ssize_t n;
            while ((n = ::read(slave, buf, sizeof buf)) > 0) {
                if (::write(slave, buf, size_t(n)) != n) break;
            }
        });
    }
    ~PtyEcho() {
        ::close(master);  // the echo thread's read ends with EIO
        echo.join();
        ::close(slave);
    }
    bool exchange(const std::string& request) {
        std::lock_guard<std::mutex> lock(line);
        if (::write(master, request.data(), request.size()) != ssize_t(request.size())) {
            return false;
        }
        return orvane::test::readUntil(master, request.size(), 3000) == request;
    }

  private:
    int master = -1, slave = -1;
    std::thread echo;
    std::mutex line;
};

void BM_PtyEchoBaseline(benchmark::State& state) {
    static PtyEcho pty;
    measure(state, [&](const std::string& request) { return pty.exchange(request); });
}
BENCHMARK(BM_PtyEchoBaseline)->Threads(1)->Threads(8)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
