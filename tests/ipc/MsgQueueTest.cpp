#include <orvane/MsgQueue.h>

#include <chrono>

#include "support/ChildProcess.h"
#include "support/Descriptors.h"
#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(MsgQueue, HoldsTenRecordsNeverWaitsRefusesBadOnesAndIsSharedAcrossFork) {
    if (::access("/dev/mqueue", F_OK) != 0 && ::geteuid() != 0)
        GTEST_SKIP() << "/dev/mqueue is missing and mounting it needs root";
    const std::vector<int> fds = test::openFds();
    {
        MsgQueue queue(0x4f000000 | ::getpid());
        ASSERT_TRUE(queue.initialize());
        MsgBody got{};
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(test::LogCapture::get().linesDuring([&] {
            EXPECT_EQ(queue.recvMsg(got, 1000000), -1);  // empty: at once, whatever the timeout
            for (int i = 1; i <= 11; ++i) EXPECT_EQ(queue.sendMsg({i, 1, "r"}), i <= 10 ? 0 : -1);
        }),
                  std::vector<std::string>());
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
        EXPECT_TRUE(test::succeedsInChild([&] {
            return queue.recvMsg(got, 0) == 0 && got.type == 1 && queue.clearMsg(0) == 0 &&
                   queue.sendMsg(MsgBody{2, 10, "from child"}) == 0;
        }));
        EXPECT_TRUE(queue.recvMsg(got, 0) == 0 && got.type == 2 && got.len == 10 &&
                    std::string(got.data) == "from child");

        const char* const zeroType =
            "<E>DATE [MsgQueue::sendMsg,L#] msg type must be greater than zero!";
        test::expectRefusal([&] { return queue.sendMsg({0, 1, "x"}) == 0; }, zeroType);
        // Neither that nor a record of negative length was queued.
        EXPECT_TRUE(queue.sendMsg({1, -128, "x"}) == -1 && queue.recvMsg(got, 0) == -1);
    }
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
    const auto shared = MsgQueueFactory::getInstance().getMsgQueue(0x4e000000 | ::getpid());
    EXPECT_TRUE(shared &&
                MsgQueueFactory::getInstance().getMsgQueue(0x4e000000 | ::getpid()) == shared);
}

}  // namespace
}  // namespace orvane
