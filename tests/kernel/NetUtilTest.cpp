#include <gtest/gtest.h>
#include <orvane/NetUtil.h>

#include <cstdlib>

#include "support/ToolRun.h"

// NetUtil on the dummy and veth drivers and the kernel's own route table.
// The virtual machine's /init sets up dummy0 (10.11.12.1/24) and the pair
// veth0 (10.11.13.1/24) / veth1, all up, and puts iproute2's ip at
// /usr/sbin/ip. The namespace test of the net folder covers the rest.
namespace orvane {
namespace {

void ip(const std::string& arguments) {
    ASSERT_EQ(std::system(("/usr/sbin/ip " + arguments).c_str()), 0) << arguments;
}

TEST(KernelNetUtil, ReadsTheDummyDriverAndChangesTheVethsAddress) {
    NetUtil::Interface info;
    ASSERT_TRUE(NetUtil::getInterface("dummy0", &info));
    EXPECT_EQ(info.address + " " + info.netmask + " " + info.broadcast,
              "10.11.12.1 255.255.255.0 10.11.12.255");
    EXPECT_EQ(std::to_string(info.index) + "\n" + std::to_string(info.mtu) + "\n" + info.mac + "\n",
              test::toolOutput("cd /sys/class/net/dummy0 && cat ifindex mtu address"));
    EXPECT_TRUE(info.up && info.running && !info.loopback);

    // Down, veth1 takes a new address in either notation; the kernel refuses
    // a multicast one.
    ASSERT_TRUE(NetUtil::setUp("veth1", false));
    EXPECT_TRUE(NetUtil::setMacAddress("veth1", "02-11-22-33-44-55"));
    EXPECT_FALSE(NetUtil::setMacAddress("veth1", "01:00:5e:00:00:01"));
    ASSERT_TRUE(NetUtil::setUp("veth1", true));
    EXPECT_EQ(test::toolOutput("cat /sys/class/net/veth1/address"), "02:11:22:33:44:55\n");
    EXPECT_EQ(NetUtil::getMacAddress("veth1"), "02:11:22:33:44:55");
}

TEST(KernelNetUtil, FindsTheDefaultRouteWithTheLowestMetric) {
    ip("route add default via 10.11.13.254 dev veth0 metric 20");
    std::string ifName;
    EXPECT_TRUE(NetUtil::getDefaultGateway(&ifName) == "10.11.13.254" && ifName == "veth0");
    ip("route add default via 10.11.12.254 dev dummy0 metric 10");
    EXPECT_TRUE(NetUtil::getDefaultGateway(&ifName) == "10.11.12.254" && ifName == "dummy0");
    ip("route del default via 10.11.12.254 dev dummy0");
    ip("route del default via 10.11.13.254 dev veth0");
    EXPECT_EQ(NetUtil::getDefaultGateway(), "");
}

}  // namespace
}  // namespace orvane
