#include <gtest/gtest.h>
#include <orvane/MsgQueue.h>
#include <unistd.h>

#include "support/ToolRun.h"

// MsgQueue in a fresh machine, which starts without /dev/mqueue.
namespace orvane {
namespace {

// How often the queue file system is mounted, then the kernel's line for the
// queue up to its first blank: "1\nQSIZE:396\n".
std::string mqueueState() {
    return test::toolOutput(
        "grep -c ' /dev/mqueue mqueue ' /proc/mounts; "
        "grep -o '^QSIZE:[0-9]*' /dev/mqueue/mq_ffffffff");
}

TEST(KernelMsgQueue, MountsTheQueueFileSystemOnFirstUseOnly) {
    ASSERT_NE(access("/dev/mqueue", F_OK), 0) << "the machine should start without /dev/mqueue";
    {
        MsgQueue queue(7);
        ASSERT_TRUE(queue.initialize());
        EXPECT_EQ(mqueueState(), "1\nQSIZE:0\n");
        // Ten records fit; the kernel counts their bytes (132 each).
        for (int type = 1; type <= 11; ++type)
            EXPECT_EQ(queue.sendMsg(MsgBody{type, 8, "record 1"}), type <= 10 ? 0 : -1) << type;
        EXPECT_EQ(mqueueState(), "1\nQSIZE:1320\n");

        MsgQueue second(8);  // the same name: it replaces the first queue
        ASSERT_TRUE(second.initialize());
        EXPECT_EQ(mqueueState(), "1\nQSIZE:0\n");
        // The first object still holds its queue, unnamed now.
        MsgBody got{};
        EXPECT_TRUE(queue.recvMsg(got, 0) == 0 && got.type == 1 &&
                    std::string(got.data, static_cast<size_t>(got.len)) == "record 1");
        EXPECT_EQ(second.recvMsg(got, 0), -1);
    }
    // Destroyed, the queues leave no name behind.
    EXPECT_NE(access("/dev/mqueue/mq_ffffffff", F_OK), 0);
}

}  // namespace
}  // namespace orvane
