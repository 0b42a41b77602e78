#include <orvane/SocketPair.h>
#include <orvane/System.h>

#include "net/NetTestUtil.h"
#include "support/Descriptors.h"

namespace orvane {
namespace {

// A stream merges two messages; datagrams keep them apart, one per receive,
// and a peek leaves what it saw queued.
TEST(SocketPair, KeepsBoundariesTimesOutReleasesSharesAnEndRefusesAndLeaksNothing) {
    const std::vector<int> fds = test::openFds();
    for (int type : {SocketPair::STREAM, SocketPair::DATAGRAM}) {
        SocketPair pair;
        char buf[16] = {};
        int first = type == SocketPair::STREAM ? 8 : 5;
        ASSERT_TRUE(pair.open(type) && pair.sendData(1, "first", 5, 1000000) == 5 &&
                    pair.writeData(1, "2nd", 3) == 3);
        EXPECT_EQ(pair.peekData(0, buf, sizeof buf, 0), first) << type;
        EXPECT_EQ(pair.recvData(0, buf, sizeof buf, 0), first) << type;
        EXPECT_EQ(type == SocketPair::DATAGRAM ? pair.readData(0, buf + 5, 8) : 3, 3);
        EXPECT_EQ(std::string(buf), "first2nd") << type;
    }
    {
        SocketPair pair;
        char buf[8];
        ASSERT_TRUE(pair.open(SocketPair::DATAGRAM));
        EXPECT_EQ(pair.recvData(0, buf, sizeof buf, 0), -2);
        int sent = 0;
        for (int i = 0; i < 10000 && sent >= 0; ++i) sent = pair.sendData(0, "x", 1, 0);
        EXPECT_EQ(sent, -2);  // the peer's queue is full
        int released = pair.releaseEnd(1);
        EXPECT_EQ(read(released, buf, sizeof buf), 1);  // still connected, now the caller's
        ::close(released);
        test::expectRefusal([&] { return pair.readData(2, buf, 4) != -1; },
                            "<E>DATE [SocketPair::readData,L#] bad end:2 (0 or 1)");
        test::expectRefusal([&] { return pair.releaseEnd(1) != -1; },
                            "<E>DATE [SocketPair::releaseEnd,L#] end 1 is not open");
        EXPECT_TRUE(pair.open(SocketPair::STREAM));  // reopening closes the old end 0
        EXPECT_EQ(test::fdsOpenedSince(fds).size(), 2u);
        // End 1, handed to an executed program, leaves no copy behind once closed.
        int shared = pair.shareEnd(1);
        EXPECT_EQ(fcntl(pair.fd(0), F_GETFD), FD_CLOEXEC);  // the parent's end stays private
        ASSERT_TRUE(System::execute("printf 'from sh' >&" + std::to_string(shared)));
        ASSERT_TRUE(pair.closeEnd(1));
        EXPECT_EQ(nettest::readSome(pair.fd(0)), "from sh");
        EXPECT_EQ(nettest::readSome(pair.fd(0)), "<eof>");
        test::expectRefusal([&] { return pair.writeData(0, "x", 1) != -1; },
                            "<E>DATE [SocketPair::writeData,L#] write error:Broken pipe");
    }
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
}

}  // namespace
}  // namespace orvane
