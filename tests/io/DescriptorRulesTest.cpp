#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/IODevice.h>
#include <unistd.h>

#include <string>

#include "support/ChildProcess.h"
#include "support/Descriptors.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

// IODevice takes descriptor 0 (which open() gets when standard input is
// closed) as "not open": isOpen() is false and neither close() nor the
// destructor closes it, while the data calls still use it.
TEST(IODeviceDescriptors, NeverClosesDescriptorZero) {
    std::string path = test::tempPath("iodevice-fd0");
    int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    ASSERT_EQ(::write(file, "abc", 3), 3);
    ::close(file);
    EXPECT_TRUE(test::succeedsInChild([&] {
        ::close(0);
        bool ok = false;
        {
            IODevice dev;
            char byte = 0;
            ok = dev.open(path, IO_READ) && dev.fd() == 0 && !dev.isOpen() &&
                 dev.readData(&byte, 1) == 1 && byte == 'a';
            ok = ok && dev.close() && dev.fd() == 0 && test::isOpenFd(0);
        }
        return ok && test::isOpenFd(0);  // the destructor left it too
    }));
    ::unlink(path.c_str());
}

}  // namespace
}  // namespace orvane
