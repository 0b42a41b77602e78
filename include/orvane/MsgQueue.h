#pragma once

#include <orvane/Export.h>
#include <orvane/Singleton.h>
#include <orvane/UniqueFd.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>

namespace orvane {

// One message-queue record, always sent and received whole (132 bytes).
struct MsgBody {
    int32_t type;    // must be greater than 0 to be sent
    int8_t len;      // meaningful bytes in data, 0 to 127
    char data[127];  // payload
};
static_assert(sizeof(MsgBody) == 132, "MsgBody is a 132-byte record");
static_assert(std::is_standard_layout<MsgBody>::value, "MsgBody is a plain record");

// A POSIX message queue of at most 10 MsgBody records, with send and receive
// calls that never wait: a full queue refuses a send, an empty one a receive,
// both at once with -1 and no log line. Only bad records are logged.
//
// Behaviour worth knowing:
// - Every queue is named from the key -1 ("/mq_ffffffff"), whatever key the
//   constructor is given; initialize() unlinks a queue of that name left by
//   an earlier run and creates a fresh one. The queue itself is reached
//   through its descriptor, so a queue created before fork() carries records
//   between parent and child.
// - initialize() mounts the "mqueue" file system on /dev/mqueue when that
//   directory is missing, which needs root.
// - The destructor unlinks the queue name, then closes the descriptor.
// sendMsg and recvMsg may be called from any thread (the kernel queue is
// atomic); initialize belongs to the owner.
class ORVANE_API MsgQueue {
  public:
    // A queue object for `key`; initialize() creates the queue.
    explicit MsgQueue(int key);
    virtual ~MsgQueue();
    MsgQueue(const MsgQueue&) = delete;
    MsgQueue& operator=(const MsgQueue&) = delete;

    // "/mq_%x" of the key: lower-case hexadecimal, no leading zeros.
    static std::string getMqName(int key);
    // Creates a fresh queue (see the class comment); false (logged) when the mount or mq_open
    // fails.
    bool initialize();
    // 0 when the record was queued, -1 otherwise.
    int sendMsg(const MsgBody& msg);
    // Receives the oldest record into `msg` (written through the reference,
    // which must therefore refer to a modifiable record). 0 or -1; the
    // timeout is not used.
    int recvMsg(const MsgBody& msg, int timeout);
    // Receives and drops records until the queue is empty; returns 0.
    int clearMsg(int timeout);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    UniqueFd mqd;  // a message-queue descriptor is a file descriptor on Linux
    // The key given to the constructor.
    int key;
};

class MsgQueueFactory;
extern template class ORVANE_API Singleton<MsgQueueFactory>;

// The process-wide registry of message queues: one queue per key, created
// and initialised on first request and kept until the process ends.
// getMsgQueue may be called from any thread.
class ORVANE_API MsgQueueFactory : public Singleton<MsgQueueFactory> {
  public:
    // The queue of `key`, or an empty pointer when it cannot be created.
    std::shared_ptr<MsgQueue> getMsgQueue(int key);

  private:
    friend class Singleton<MsgQueueFactory>;
    MsgQueueFactory();

    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    std::map<int, std::shared_ptr<MsgQueue>> queues;
    std::mutex mutex;
};

}  // namespace orvane
