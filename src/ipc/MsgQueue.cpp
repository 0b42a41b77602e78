#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <orvane/Directory.h>
#include <orvane/MsgQueue.h>
#include <string.h>
#include <sys/mount.h>

#include <ctime>
#include <type_traits>

#include "io/MakeDirs.h"
#include "log/LogLine.h"

namespace orvane {

template class Singleton<MsgQueueFactory>;

// mq_close is close() of that descriptor, so UniqueFd owns it.
static_assert(std::is_same<mqd_t, int>::value, "a queue descriptor is a file descriptor");

namespace {

constexpr long kMaxMessages = 10;
constexpr long kMessageSize = sizeof(MsgBody);
// A deadline that has always passed: send and receive never wait. Each call
// passes its own copy: qemu-user writes the deadline back after a
// successful send and fails with EFAULT on read-only memory.
constexpr timespec kPastDeadline{0, 10};
constexpr const char* kMqueueDir = "/dev/mqueue";

}  // namespace

MsgQueue::MsgQueue(int) : className("MsgQueue"), key(-1) {}

// mqd closes after the body has unlinked the name.
MsgQueue::~MsgQueue() { ::mq_unlink(getMqName(key).c_str()); }

std::string MsgQueue::getMqName(int key) {
    char name[32];
    snprintf(name, sizeof name, "/mq_%x", static_cast<unsigned int>(key));
    return name;
}

bool MsgQueue::initialize() {
    if (!Directory::exists(kMqueueDir)) {
        // A failure here shows as the mount's failure below.
        std::string failedDir;
        detail::makeDirs(kMqueueDir, 0666, false, &failedDir);
        if (::mount("none", kMqueueDir, "mqueue", 0, nullptr) != 0) {
            ORVANE_ERROR("mount mqueue error!");
            return false;
        }
    }
    std::string name = getMqName(key);
    ::mq_unlink(name.c_str());
    // A queue created before replaces the one this object held.
    mqd.reset();
    mq_attr attr{};
    attr.mq_maxmsg = kMaxMessages;
    attr.mq_msgsize = kMessageSize;
    mqd.reset(::mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644, &attr));
    if (!mqd) {
        int err = errno;
        ORVANE_ERROR("MsgQueue(key:0x%x) initialize failed:%s.", static_cast<unsigned int>(key),
                     strerror(err));
        return false;
    }
    return true;
}

int MsgQueue::sendMsg(const MsgBody& msg) {
    if (msg.type < 1) {
        ORVANE_ERROR("msg type must be greater than zero!");
        return -1;
    }
    if (msg.len < 0) {
        ORVANE_ERROR("msg data len must be less than %d!", 128);
        return -1;
    }
    timespec deadline = kPastDeadline;
    int rc =
        ::mq_timedsend(mqd.get(), reinterpret_cast<const char*>(&msg), sizeof msg, 0, &deadline);
    return rc == 0 ? 0 : -1;
}

int MsgQueue::recvMsg(const MsgBody& msg, int) {
    char* into = reinterpret_cast<char*>(const_cast<MsgBody*>(&msg));
    timespec deadline = kPastDeadline;
    ssize_t n = ::mq_timedreceive(mqd.get(), into, sizeof msg, nullptr, &deadline);
    return n < 0 ? -1 : 0;
}

int MsgQueue::clearMsg(int timeout) {
    MsgBody scratch{};
    while (recvMsg(scratch, timeout) == 0) {
    }
    return 0;
}

MsgQueueFactory::MsgQueueFactory() : className("MsgQueueFactory") {}

std::shared_ptr<MsgQueue> MsgQueueFactory::getMsgQueue(int key) {
    std::lock_guard<std::mutex> lock(mutex);
    auto found = queues.find(key);
    if (found != queues.end()) return found->second;
    auto queue = std::make_shared<MsgQueue>(key);
    if (!queue->initialize()) {
        ORVANE_ERROR("create MsgQueue[key=0x%x] failed!", static_cast<unsigned int>(key));
        return nullptr;
    }
    queues.emplace(key, queue);
    return queue;
}

}  // namespace orvane
