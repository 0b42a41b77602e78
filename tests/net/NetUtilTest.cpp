#include <orvane/NetUtil.h>
#include <orvane/System.h>

#include <algorithm>

#include "net/RouteTable.h"
#include "support/LogCapture.h"
#include "support/PrivateMount.h"
#include "support/ToolRun.h"

namespace orvane {
namespace {

// What `ip` (iproute2, independent of the library) prints for a command.
std::string ip(const std::string& args) { return test::toolOutput("ip " + args + " 2>&1"); }

// A private network namespace with the veth pair v0 - v1; false when this
// machine cannot make one. Nothing of the host's network is visible there.
bool enterPrivateNetwork() {
    return unshare(CLONE_NEWNET) == 0 && System::execute("ip link add v0 type veth peer name v1");
}

void configuresAVethPairInAPrivateNamespace() {
    if (!enterPrivateNetwork()) _exit(3);
    std::vector<std::string> names = NetUtil::interfaceNames();
    std::sort(names.begin() + !names.empty(), names.end());  // behind "lo", of index 1
    EXPECT_EQ(names, (std::vector<std::string>{"lo", "v0", "v1"}));

    EXPECT_TRUE(NetUtil::setMtu("v0", 1400) && NetUtil::setMacAddress("v0", "02:11:22:33:44:5A") &&
                NetUtil::setAddress("v0", "10.77.0.1") &&
                NetUtil::setNetmask("v0", "255.255.255.0") &&
                NetUtil::setBroadcast("v0", "10.77.0.127") && NetUtil::setUp("v0", true));
    // Bad values are refused before anything reaches the kernel.
    test::expectRefusal([] { return NetUtil::setNetmask("v0", "255.0.255.0"); },
                        "<E>DATE [setNetmask,L#] netmask 255.0.255.0 is not contiguous");
    std::string shown = ip("-o link show v0") + ip("-o -4 addr show v0");
    for (const char* part :
         {"mtu 1400", "link/ether 02:11:22:33:44:5a", "inet 10.77.0.1/24 brd 10.77.0.127"})
        EXPECT_NE(shown.find(part), std::string::npos) << shown;
    EXPECT_EQ(shown.rfind(std::to_string(NetUtil::getIndex("v0")) + ": v0@v1", 0), 0u) << shown;
    test::exitWithChecks();
}

TEST(NetUtilDeathTest, ConfiguresAVethPairInAPrivateNamespace) {
    if (!test::succeedsInChild(enterPrivateNetwork)) {
        GTEST_SKIP() << "no private network namespace with a veth pair here (needs root, "
                        "iproute2 and veth support)";
    }
    EXPECT_EXIT(configuresAVethPairInAPrivateNamespace(), ::testing::ExitedWithCode(0), "");
}

TEST(NetUtil, RejectsBadNames) {
    EXPECT_EQ(NetUtil::getIndex("a-name-far-too-long"), -1);
    test::expectRefusal([] { return !NetUtil::getAddress("nosuch0").empty(); },
                        "<E>DATE [getAddress,L#] SIOCGIFADDR(nosuch0) error:No such device");
}

// Of three default routes the one with the lowest metric wins, neither the
// first nor the last; the rows of metric 0 would win if they were not
// refused: not a default route, a route without gateway, a route that is
// down, garbage.
TEST(NetUtil, PicksTheDefaultRouteWithTheLowestMetric) {
    const std::string table =
        "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
        "eth0\t00000000\t0100A8C0\t0003\t0\t0\t600\t00000000\t0\t0\t0\n"
        "eth0\t0000A8C0\t0100A8C0\t0003\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
        "ppp0\t00000000\t00000000\t0001\t0\t0\t0\t00000000\t0\t0\t0\n"
        "eth1\t00000000\t0200A8C0\t0002\t0\t0\t0\t00000000\t0\t0\t0\n"
        "garbage\n"
        "wlan0\t00000000\t01010A0A\t0003\t0\t0\t50\t00000000\t0\t0\t0\n"
        "eth2\t00000000\t0300A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n";
    std::string ifName;
    EXPECT_EQ(detail::defaultGateway(table, &ifName) + " " + ifName, "10.10.1.1 wlan0");
}

}  // namespace
}  // namespace orvane
