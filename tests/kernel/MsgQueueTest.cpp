#include <gtest/gtest.h>
#include <orvane/MsgQueue.h>
#include <sys/stat.h>

#include <fstream>

#include "support/ToolRun.h"

// MsgQueue in a fresh machine, which starts without /dev/mqueue.
namespace orvane {
namespace {

std::string mqueueMounts() {
    return test::toolOutput("grep -c ' /dev/mqueue mqueue ' /proc/mounts");
}

// The kernel's line for the queue, up to its first blank: "QSIZE:396".
std::string queueSize() {
    std::ifstream file("/dev/mqueue/mq_ffffffff");
    std::string word;
    file >> word;
    return word;
}

TEST(KernelMsgQueue, MountsTheQueueFileSystemOnFirstUseOnly) {
    struct stat info {};
    ASSERT_NE(stat("/dev/mqueue", &info), 0) << "the machine should start without /dev/mqueue";
    {
        MsgQueue queue(7);
        ASSERT_TRUE(queue.initialize());
        EXPECT_EQ(mqueueMounts(), "1\n");
        EXPECT_EQ(queueSize(), "QSIZE:0");

        // Ten records fit; the kernel counts their bytes (132 each).
        MsgBody msg{};
        msg.len = 8;
        for (msg.type = 1; msg.type <= 10; ++msg.type) {
            snprintf(msg.data, sizeof msg.data, "record %d", msg.type % 10);
            ASSERT_EQ(queue.sendMsg(msg), 0) << msg.type;
        }
        EXPECT_EQ(queueSize(), "QSIZE:1320");
        EXPECT_EQ(queue.sendMsg(msg), -1);

        MsgQueue second(8);  // the same name: it replaces the first queue
        ASSERT_TRUE(second.initialize());
        EXPECT_EQ(mqueueMounts(), "1\n");
        EXPECT_EQ(queueSize(), "QSIZE:0");
        // The first object still holds its queue, unnamed now.
        MsgBody got{};
        EXPECT_EQ(queue.recvMsg(got, 0), 0);
        EXPECT_EQ(got.type, 1);
        EXPECT_EQ(std::string(got.data, static_cast<size_t>(got.len)), "record 1");
        EXPECT_EQ(second.recvMsg(got, 0), -1);
    }
    // Destroyed, the queues leave no name behind.
    EXPECT_NE(stat("/dev/mqueue/mq_ffffffff", &info), 0);
}

}  // namespace
}  // namespace orvane
