#include <gtest/gtest.h>
#include <orvane/Directory.h>
#include <orvane/MsgQueue.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "support/LogCapture.h"

namespace orvane {
namespace {

// Creating a queue mounts /dev/mqueue when it is missing, which needs root.
#define SKIP_WITHOUT_MQUEUE()                                                    \
    do {                                                                         \
        if (!Directory::exists("/dev/mqueue") && ::geteuid() != 0)               \
            GTEST_SKIP() << "/dev/mqueue is missing and mounting it needs root"; \
    } while (0)

MsgBody record(int type, const std::string& text) {
    MsgBody msg{};
    msg.type = type;
    msg.len = static_cast<int8_t>(text.size());
    memcpy(msg.data, text.data(), text.size());
    return msg;
}

std::string textOf(const MsgBody& msg) {
    return std::string(msg.data, static_cast<size_t>(msg.len));
}

int uniqueKey() { return 0x4f000000 | ::getpid(); }

TEST(MsgQueue, NamesQueuesFromTheKeyInHexadecimal) {
    EXPECT_EQ(MsgQueue::getMqName(0x1a2b), "/mq_1a2b");
    EXPECT_EQ(MsgQueue::getMqName(0), "/mq_0");
    EXPECT_EQ(MsgQueue::getMqName(-1), "/mq_ffffffff");
    EXPECT_EQ(sizeof(MsgBody), 132u);
}

TEST(MsgQueue, HoldsTenRecordsAndNeverWaits) {
    SKIP_WITHOUT_MQUEUE();
    auto& capture = test::LogCapture::get();
    capture.clear();
    int fds = test::openFdCount();
    {
        MsgQueue queue(uniqueKey());
        ASSERT_TRUE(queue.initialize());
        EXPECT_TRUE(Directory::exists("/dev/mqueue"));

        MsgBody got{};
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(queue.recvMsg(got, 1000000), -1);  // empty: at once, whatever the timeout
        for (int i = 1; i <= 10; ++i) {
            EXPECT_EQ(queue.sendMsg(record(i, "msg " + std::to_string(i))), 0) << i;
        }
        EXPECT_EQ(queue.sendMsg(record(11, "one too many")), -1);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));

        for (int i = 1; i <= 3; ++i) {
            ASSERT_EQ(queue.recvMsg(got, 0), 0);
            EXPECT_EQ(got.type, i);
            EXPECT_EQ(textOf(got), "msg " + std::to_string(i));
        }
        EXPECT_EQ(queue.clearMsg(0), 0);
        EXPECT_EQ(queue.recvMsg(got, 0), -1);

        MsgBody full = record(5, "");
        full.len = 127;
        EXPECT_EQ(queue.sendMsg(full), 0);
        EXPECT_EQ(queue.recvMsg(got, 0), 0);
        EXPECT_EQ(got.len, 127);
    }
    EXPECT_EQ(test::openFdCount(), fds);
    EXPECT_TRUE(capture.matching("[MsgQueue::").empty());
}

TEST(MsgQueue, RefusesRecordsWithABadTypeOrLength) {
    SKIP_WITHOUT_MQUEUE();
    auto& capture = test::LogCapture::get();
    capture.clear();
    MsgQueue queue(uniqueKey());
    ASSERT_TRUE(queue.initialize());
    EXPECT_EQ(queue.sendMsg(record(0, "x")), -1);
    EXPECT_EQ(capture.waitLine("msg type"),
              "<E>DATE [MsgQueue::sendMsg,L#] msg type must be greater than zero!");
    EXPECT_EQ(queue.sendMsg(record(-4, "x")), -1);
    MsgBody tooLong = record(1, "x");
    tooLong.len = -128;  // the byte 128
    EXPECT_EQ(queue.sendMsg(tooLong), -1);
    EXPECT_EQ(capture.waitLine("msg data len"),
              "<E>DATE [MsgQueue::sendMsg,L#] msg data len must be less than 128!");
    MsgBody got{};
    EXPECT_EQ(queue.recvMsg(got, 0), -1);  // nothing was queued
}

TEST(MsgQueue, OperationsOnAQueueNeverCreatedFailQuietly) {
    MsgQueue queue(7);
    MsgBody got{};
    EXPECT_EQ(queue.sendMsg(record(1, "x")), -1);
    EXPECT_EQ(queue.recvMsg(got, 0), -1);
    EXPECT_EQ(queue.clearMsg(0), 0);
}

TEST(MsgQueue, CarriesRecordsBetweenParentAndChildAcrossFork) {
    SKIP_WITHOUT_MQUEUE();
    MsgQueue queue(uniqueKey());
    ASSERT_TRUE(queue.initialize());
    ASSERT_EQ(queue.sendMsg(record(1, "to child")), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        MsgBody got{};
        bool ok = queue.recvMsg(got, 0) == 0 && got.type == 1 && textOf(got) == "to child" &&
                  queue.sendMsg(record(2, "from " + std::to_string(::getpid()))) == 0;
        ::_exit(ok ? 0 : 1);  // no destructors: the parent's queue keeps its name
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    MsgBody got{};
    ASSERT_EQ(queue.recvMsg(got, 0), 0);
    EXPECT_EQ(got.type, 2);
    EXPECT_EQ(textOf(got), "from " + std::to_string(child));
    EXPECT_EQ(queue.recvMsg(got, 0), -1);
}

TEST(MsgQueueFactory, HandsOutOneQueuePerKey) {
    SKIP_WITHOUT_MQUEUE();
    auto& factory = MsgQueueFactory::getInstance();
    auto first = factory.getMsgQueue(uniqueKey());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(factory.getMsgQueue(uniqueKey()), first);
    auto other = factory.getMsgQueue(uniqueKey() + 1);
    ASSERT_NE(other, nullptr);
    EXPECT_NE(other, first);
    // Each keeps its own kernel queue, although both carry the same name.
    ASSERT_EQ(first->sendMsg(record(3, "first")), 0);
    MsgBody got{};
    EXPECT_EQ(other->recvMsg(got, 0), -1);
    ASSERT_EQ(first->recvMsg(got, 0), 0);
    EXPECT_EQ(textOf(got), "first");
}

// Run in a fresh process: a message-queue limit of 0 bytes makes creation fail.
void createWithoutQueueMemory() {
    rlimit none{0, 0};
    ::setrlimit(RLIMIT_MSGQUEUE, &none);
    auto& capture = test::LogCapture::get();
    auto& factory = MsgQueueFactory::getInstance();
    bool ok = factory.getMsgQueue(0x51) == nullptr &&
              capture.waitLine("initialize failed") ==
                  "<E>DATE [MsgQueue::initialize,L#] MsgQueue(key:0xffffffff) "
                  "initialize failed:Too many open files." &&
              capture.waitLine("create MsgQueue") ==
                  "<E>DATE [MsgQueueFactory::getMsgQueue,L#] create MsgQueue[key=0x51] failed!" &&
              factory.getMsgQueue(0x51) == nullptr;
    fprintf(stderr, ok ? "refused as expected\n" : "unexpected result\n");
    ::_exit(ok ? 0 : 1);
}

TEST(MsgQueueFactory, ReportsAQueueTheKernelRefusesAndKeepsNothing) {
    SKIP_WITHOUT_MQUEUE();
    EXPECT_EXIT(createWithoutQueueMemory(), ::testing::ExitedWithCode(0), "refused as expected");
}

// True when this process may enter a mount namespace of its own (root in
// most containers and hosts); probed in a child so nothing here changes.
bool canUnshareMounts() {
    pid_t child = ::fork();
    if (child == 0) ::_exit(::unshare(CLONE_NEWNS) == 0 ? 0 : 1);
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

bool mqueueMounted() {
    std::ifstream in("/proc/self/mounts");
    std::stringstream all;
    all << in.rdbuf();
    return all.str().find(" /dev/mqueue mqueue ") != std::string::npos;
}

// Run in a fresh process with a private mount namespace whose /dev is an
// empty tmpfs: first read-only, so the mount fails, then writable.
void mountOnDemand() {
    bool ok = ::unshare(CLONE_NEWNS) == 0 &&
              ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
              ::mount("tmpfs", "/dev", "tmpfs", MS_RDONLY, "size=64k") == 0 &&
              !Directory::exists("/dev/mqueue");
    auto& capture = test::LogCapture::get();
    {
        MsgQueue queue(1);
        ok = ok && !queue.initialize() &&
             capture.waitLine("mount mqueue") ==
                 "<E>DATE [MsgQueue::initialize,L#] mount mqueue error!";
    }
    ok = ok && ::mount("tmpfs", "/dev", "tmpfs", MS_REMOUNT, "size=64k") == 0;
    MsgQueue queue(1);
    ok = ok && queue.initialize() && Directory::exists("/dev/mqueue") && mqueueMounted() &&
         queue.sendMsg(record(1, "mounted")) == 0;
    fprintf(stderr, ok ? "mounted on demand\n" : "unexpected result\n");
    ::_exit(ok ? 0 : 1);
}

TEST(MsgQueue, MountsTheQueueFileSystemWhenItsDirectoryIsMissing) {
    if (::geteuid() != 0 || !canUnshareMounts()) {
        GTEST_SKIP() << "mounting needs root and a private mount namespace";
    }
    EXPECT_EXIT(mountOnDemand(), ::testing::ExitedWithCode(0), "mounted on demand");
}

}  // namespace
}  // namespace orvane
