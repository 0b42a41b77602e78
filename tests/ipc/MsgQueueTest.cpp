#include <gtest/gtest.h>
#include <orvane/Directory.h>
#include <orvane/MsgQueue.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "support/PrivateMount.h"
#include "support/Refusal.h"

namespace orvane {
namespace {

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

TEST(MsgQueue, HoldsTenRecordsNeverWaitsRefusesBadOnesAndIsSharedAcrossFork) {
    if (!Directory::exists("/dev/mqueue") && ::geteuid() != 0) {
        GTEST_SKIP() << "/dev/mqueue is missing and mounting it needs root";
    }
    int fds = test::openFdCount();
    {
        MsgQueue queue(0x4f000000 | ::getpid());
        ASSERT_TRUE(queue.initialize());
        // Every queue is named from the key -1, whatever key it was given.
        EXPECT_EQ(::access("/dev/mqueue/mq_ffffffff", F_OK), 0);
        MsgBody got{};
        auto start = std::chrono::steady_clock::now();
        auto silent = test::LogCapture::get().linesDuring([&] {
            EXPECT_EQ(queue.recvMsg(got, 1000000), -1);  // empty: at once, whatever the timeout
            for (int i = 1; i <= 10; ++i) EXPECT_EQ(queue.sendMsg(record(i, "r")), 0);
            EXPECT_EQ(queue.sendMsg(record(11, "one too many")), -1);
        });
        EXPECT_TRUE(silent.empty());
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
        EXPECT_TRUE(test::succeedsInChild([&] {
            MsgBody theirs{};
            return queue.recvMsg(theirs, 0) == 0 && holds(theirs, 1, "r") &&
                   queue.clearMsg(0) == 0 && queue.sendMsg(record(2, "from child")) == 0;
        }));
        EXPECT_TRUE(queue.recvMsg(got, 0) == 0 && holds(got, 2, "from child"));

        test::expectRefusal([&] { return queue.sendMsg(record(0, "x")) != -1; },
                            "<E>DATE [MsgQueue::sendMsg,L#] msg type must be greater than zero!");
        MsgBody body = record(1, "x");
        body.len = -128;  // the byte 128
        test::expectRefusal([&] { return queue.sendMsg(body) != -1; },
                            "<E>DATE [MsgQueue::sendMsg,L#] msg data len must be less than 128!");
        EXPECT_EQ(queue.recvMsg(got, 0), -1);  // neither was queued
    }
    EXPECT_EQ(test::openFdCount(), fds);
    auto& factory = MsgQueueFactory::getInstance();
    std::shared_ptr<MsgQueue> queue = factory.getMsgQueue(0x4e000000 | ::getpid());
    EXPECT_TRUE(queue != nullptr && factory.getMsgQueue(0x4e000000 | ::getpid()) == queue);
}

// Run in a fresh process whose /dev is hidden by an empty tmpfs.
void mountOnDemand() {
    bool ok = test::hideDirectory("/dev");
    MsgQueue queue(1);
    ok = ok && queue.initialize() && queue.sendMsg(record(1, "mounted")) == 0;
    std::string all;
    std::getline(std::ifstream("/proc/self/mounts"), all, '\0');
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
