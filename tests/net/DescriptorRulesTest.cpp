#include <gtest/gtest.h>
#include <orvane/Socket.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "net/NetTestUtil.h"
#include "support/ChildProcess.h"
#include "support/Descriptors.h"

namespace orvane {
namespace {

// Unlike IODevice and Poller, a socket holds descriptor 0 as its own: close()
// closes it, and fdopen() over it replaces (and closes) it.
TEST(SocketDescriptors, ClosesDescriptorZeroLikeAnyOther) {
    EXPECT_TRUE(test::succeedsInChild([] {
        ::close(0);
        UdpSocket udp;
        bool ok = udp.open("127.0.0.1", 0) && udp.fd() == 0 && udp.isOpen();
        ok = ok && udp.close() && !udp.isOpen() && !test::isOpenFd(0);

        TcpSocket adopter;
        ok = ok && !adopter.fdopen(0);  // 0 is never adopted
        ok = ok && udp.open("127.0.0.1", 0) && udp.fd() == 0;
        int other = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        return ok && udp.fdopen(other) && udp.fd() == other && !test::isOpenFd(0);
    }));
}

// When the bind of open() fails, a TcpSocket or UdpSocket leaves the socket
// it created open and owned by nobody; a LocalTcpSocket closes it.
TEST(SocketDescriptors, AFailedBindLeavesTheNewIpv4SocketOpen) {
    unsigned short taken = 0;
    int holder = nettest::bsdSocket(SOCK_STREAM, &taken);
    TcpSocket tcp;
    UdpSocket udp;
    LocalTcpSocket local;
    struct Case {
        const char* name;
        Socket& socket;
        std::function<bool()> open;
        size_t leftOpen;
    };
    const std::vector<Case> cases = {
        {"tcp to a port in use", tcp, [&] { return tcp.open("127.0.0.1", taken); }, 1},
        {"udp to an address of no interface", udp, [&] { return udp.open("192.0.2.1", 0); }, 1},
        {"local in a missing directory", local,
         [&] { return local.open("/nonexistent-orvane-dir/s.sock", 0); }, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto before = test::openFds();
        EXPECT_FALSE(c.open());
        EXPECT_FALSE(c.socket.isOpen());
        auto left = test::fdsOpenedSince(before);
        EXPECT_EQ(left.size(), c.leftOpen);
        for (int fd : left) {
            EXPECT_EQ(test::fdTarget(fd).rfind("socket:", 0), 0u);
            ::close(fd);
        }
    }
    ::close(holder);
}

}  // namespace
}  // namespace orvane
