#include <gtest/gtest.h>

#include <cstdlib>

namespace {

// Every test here changes devices, clocks and interfaces of the machine it
// runs on: only the disposable virtual machine of scripts/kernel-vm.sh,
// which sets ORVANE_KERNEL_VM, lets them run.
class GuestOnly : public ::testing::Environment {
  public:
    void SetUp() override {
        if (std::getenv("ORVANE_KERNEL_VM") == nullptr)
            GTEST_SKIP() << "runs only inside the virtual machine of scripts/kernel-vm.sh "
                            "(ctest -L kernel)";
    }
};

[[maybe_unused]] ::testing::Environment* const guestOnly =
    ::testing::AddGlobalTestEnvironment(new GuestOnly);

}  // namespace
