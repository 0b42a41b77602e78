#pragma once

#include <orvane/Export.h>

namespace orvane {

// Process and thread facts from the kernel.
class ORVANE_API System {
  public:
    // The kernel task id of the calling thread; stores the low 32 bits of
    // pthread_self() in *pthreadId when given.
    static int getTaskId(unsigned int* pthreadId = nullptr);
};

}  // namespace orvane
