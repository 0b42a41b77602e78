#include <gtest/gtest.h>
#include <orvane/Directory.h>
#include <orvane/MsgQueue.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/PrivateMount.h"

namespace orvane {
namespace {

// Creating a queue mounts /dev/mqueue when it is missing, which needs root.
class MsgQueueTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!Directory::exists("/dev/mqueue") && ::geteuid() != 0)
            GTEST_SKIP() << "/dev/mqueue is missing and mounting it needs root";
    }
};

MsgBody record(int type, const std::string& text) {
    MsgBody msg{};
    msg.type = type;
    msg.len = static_cast<int8_t>(text.size());
    memcpy(msg.data, text.data(), text.size());
    return msg;
}

bool holds(const MsgBody& msg, int type, const std::string& text) {
    return msg.type == type && std::string(msg.data, static_cast<size_t>(msg.len)) == text;
}

int uniqueKey() { return 0x4f000000 | ::getpid(); }

TEST_F(MsgQueueTest, HoldsTenRecordsInOrderNeverWaitsAndIsSharedAcrossFork) {
    test::LogCapture::get().clear();
    auto& factory = MsgQueueFactory::getInstance();
    std::shared_ptr<MsgQueue> queue = factory.getMsgQueue(uniqueKey() + 1);
    ASSERT_NE(queue, nullptr);
    EXPECT_EQ(factory.getMsgQueue(uniqueKey() + 1), queue);  // one queue per key
    MsgBody got{};
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(queue->recvMsg(got, 1000000), -1);  // empty: at once, whatever the timeout
    for (int i = 1; i <= 10; ++i) EXPECT_EQ(queue->sendMsg(record(i, std::to_string(i))), 0);
    EXPECT_EQ(queue->sendMsg(record(11, "one too many")), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_TRUE(test::succeedsInChild([&] {
        MsgBody theirs{};
        return queue->recvMsg(theirs, 0) == 0 && holds(theirs, 1, "1") && queue->clearMsg(0) == 0 &&
               queue->sendMsg(record(2, "from child")) == 0;
    }));
    ASSERT_EQ(queue->recvMsg(got, 0), 0);
    EXPECT_TRUE(holds(got, 2, "from child"));
    EXPECT_EQ(queue->recvMsg(got, 0), -1);
    EXPECT_TRUE(test::LogCapture::get().matching("[MsgQueue::").empty());
}

TEST_F(MsgQueueTest, RefusesRecordsWithABadTypeOrLengthWithoutLeaking) {
    auto& capture = test::LogCapture::get();
    int fds = test::openFdCount();
    {
        MsgBody got{};
        MsgQueue queue(uniqueKey());
        ASSERT_TRUE(queue.initialize());
        // Every queue is named from the key -1, whatever key it was given.
        EXPECT_EQ(::access("/dev/mqueue/mq_ffffffff", F_OK), 0);
        EXPECT_EQ(queue.sendMsg(record(0, "x")), -1);
        EXPECT_EQ(capture.waitLine("msg type"),
                  "<E>DATE [MsgQueue::sendMsg,L#] msg type must be greater than zero!");
        MsgBody body = record(1, "x");
        body.len = -128;  // the byte 128
        EXPECT_EQ(queue.sendMsg(body), -1);
        EXPECT_EQ(capture.waitLine("msg data len"),
                  "<E>DATE [MsgQueue::sendMsg,L#] msg data len must be less than 128!");
        body.len = 127;
        EXPECT_EQ(queue.sendMsg(body), 0);
        EXPECT_EQ(queue.recvMsg(got, 0), 0);  // only the good one was queued
        EXPECT_EQ(got.len, 127);
    }
    EXPECT_EQ(test::openFdCount(), fds);
}

// Run in a fresh process whose /dev is hidden by an empty tmpfs.
void mountOnDemand() {
    bool ok = test::hideDirectory("/dev");
    MsgQueue queue(1);
    ok = ok && queue.initialize() && queue.sendMsg(record(1, "mounted")) == 0;
    std::ifstream mounts("/proc/self/mounts");
    std::string all(std::istreambuf_iterator<char>(mounts), {});
    ok = ok && all.find(" /dev/mqueue mqueue ") != std::string::npos;
    fprintf(stderr, ok ? "mounted on demand\n" : "unexpected result\n");
    ::_exit(ok ? 0 : 1);
}

TEST(MsgQueue, MountsTheQueueFileSystemWhenItsDirectoryIsMissing) {
    if (::geteuid() != 0 || !test::canHideDirectory("/dev"))
        GTEST_SKIP() << "mounting needs root and a private mount namespace";
    EXPECT_EXIT(mountOnDemand(), ::testing::ExitedWithCode(0), "mounted on demand");
}

}  // namespace
}  // namespace orvane
