#include <orvane/System.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace orvane {

int System::getTaskId(unsigned int* pthreadId) {
    if (pthreadId != nullptr) {
        *pthreadId = static_cast<unsigned int>(pthread_self());
    }
    return static_cast<int>(syscall(SYS_gettid));
}

}  // namespace orvane
