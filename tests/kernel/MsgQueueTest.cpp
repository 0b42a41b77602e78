#include <gtest/gtest.h>
#include <orvane/MsgQueue.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

// MsgQueue in a fresh machine, which starts without /dev/mqueue.
namespace orvane {
namespace {

int mqueueMounts() {
    std::ifstream mounts("/proc/mounts");
    int count = 0;
    for (std::string line; std::getline(mounts, line);)
        if (line.find(" /dev/mqueue mqueue ") != std::string::npos) ++count;
    return count;
}

// The kernel's line for a queue: "QSIZE:396  NOTIFY:0 SIGNO:0 NOTIFY_PID:0".
std::string queueStatus() {
    std::ifstream file("/dev/mqueue/mq_ffffffff");
    std::string line;
    std::getline(file, line);
    return line.substr(0, line.find(' '));
}

MsgBody record(int type, const char* text) {
    MsgBody msg{};
    msg.type = type;
    msg.len = static_cast<int8_t>(strlen(text));
    memcpy(msg.data, text, strlen(text));
    return msg;
}

TEST(KernelMsgQueue, MountsTheQueueFileSystemOnFirstUseOnly) {
    struct stat info {};
    ASSERT_NE(stat("/dev/mqueue", &info), 0) << "the machine should start without /dev/mqueue";
    {
        MsgQueue queue(7);
        ASSERT_TRUE(queue.initialize());
        EXPECT_EQ(mqueueMounts(), 1);
        EXPECT_EQ(queueStatus(), "QSIZE:0");

        // Ten records fit; the kernel counts their bytes (132 each).
        for (int i = 1; i <= 10; ++i)
            ASSERT_EQ(queue.sendMsg(record(i, ("record " + std::to_string(i)).c_str())), 0) << i;
        EXPECT_EQ(queueStatus(), "QSIZE:1320");
        EXPECT_EQ(queue.sendMsg(record(11, "one too many")), -1);

        MsgQueue second(8);  // the same name: it replaces the first queue
        ASSERT_TRUE(second.initialize());
        EXPECT_EQ(mqueueMounts(), 1);
        EXPECT_EQ(queueStatus(), "QSIZE:0");
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
