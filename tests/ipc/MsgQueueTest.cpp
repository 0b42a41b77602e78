#include <gtest/gtest.h>
#include <orvane/Directory.h>
#include <orvane/MsgQueue.h>

#include <chrono>

#include "support/ChildProcess.h"
#include "support/Descriptors.h"
#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(MsgQueue, HoldsTenRecordsNeverWaitsRefusesBadOnesAndIsSharedAcrossFork) {
    if (!Directory::exists("/dev/mqueue") && ::geteuid() != 0) {
        GTEST_SKIP() << "/dev/mqueue is missing and mounting it needs root";
    }
    const std::vector<int> fds = test::openFds();
    {
        MsgQueue queue(0x4f000000 | ::getpid());
        ASSERT_TRUE(queue.initialize());
        MsgBody got{};
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(test::LogCapture::get().linesDuring([&] {
            EXPECT_EQ(queue.recvMsg(got, 1000000), -1);  // empty: at once, whatever the timeout
            for (int i = 1; i <= 10; ++i) EXPECT_EQ(queue.sendMsg(MsgBody{i, 1, "r"}), 0);
            EXPECT_EQ(queue.sendMsg(MsgBody{11, 1, "r"}), -1);
        }),
                  std::vector<std::string>());
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
        EXPECT_TRUE(test::succeedsInChild([&] {
            MsgBody theirs{};
            return queue.recvMsg(theirs, 0) == 0 && theirs.type == 1 && queue.clearMsg(0) == 0 &&
                   queue.sendMsg(MsgBody{2, 10, "from child"}) == 0;
        }));
        EXPECT_TRUE(queue.recvMsg(got, 0) == 0 && got.type == 2 && got.len == 10 &&
                    std::string(got.data) == "from child");

        test::expectRefusal(
            [&] {
                return queue.sendMsg(MsgBody{0, 1, "x"}) != -1;
            },
            "<E>DATE [MsgQueue::sendMsg,L#] msg type must be greater than zero!");
        EXPECT_EQ(queue.sendMsg(MsgBody{1, -128, "x"}), -1);
        EXPECT_EQ(queue.recvMsg(got, 0), -1);  // neither was queued
    }
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
    auto& factory = MsgQueueFactory::getInstance();
    std::shared_ptr<MsgQueue> queue = factory.getMsgQueue(0x4e000000 | ::getpid());
    EXPECT_TRUE(queue != nullptr && factory.getMsgQueue(0x4e000000 | ::getpid()) == queue);
}

}  // namespace
}  // namespace orvane
