#include <gtest/gtest.h>
#include <orvane/NetUtil.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "support/ToolRun.h"

// NetUtil on the dummy and veth drivers. The virtual machine's /init sets up
// dummy0 (10.11.12.1/24) and the pair veth0 (10.11.13.1/24) / veth1, all up,
// and puts iproute2's ip at /usr/sbin/ip.
namespace orvane {
namespace {

std::string sysNet(const std::string& name, const char* attribute) {
    std::ifstream file("/sys/class/net/" + name + "/" + attribute);
    std::string value;
    std::getline(file, value);
    return value;
}

void ip(const std::string& arguments) {
    ASSERT_EQ(std::system(("/usr/sbin/ip " + arguments).c_str()), 0) << arguments;
}

TEST(KernelNetUtil, ReadsWhatTheDriversReport) {
    const struct {
        const char* name;
        const char* address;
        const char* netmask;
        const char* broadcast;
        bool loopback;
    } cases[] = {
        {"lo", "127.0.0.1", "255.0.0.0", "", true},
        {"dummy0", "10.11.12.1", "255.255.255.0", "10.11.12.255", false},
        {"veth1", "", "", "", false},
    };
    for (const auto& c : cases) {
        NetUtil::Interface info;
        ASSERT_TRUE(NetUtil::getInterface(c.name, &info)) << c.name;
        EXPECT_EQ(info.address, c.address) << c.name;
        EXPECT_EQ(info.netmask, c.netmask) << c.name;
        EXPECT_EQ(info.broadcast, c.broadcast) << c.name;
        EXPECT_EQ(info.loopback, c.loopback) << c.name;
        EXPECT_EQ(std::to_string(info.index), sysNet(c.name, "ifindex")) << c.name;
        EXPECT_EQ(std::to_string(info.mtu), sysNet(c.name, "mtu")) << c.name;
        EXPECT_EQ(info.mac, sysNet(c.name, "address")) << c.name;  // lo: all zero
        EXPECT_TRUE(info.up && info.running) << c.name;
    }
}

TEST(KernelNetUtil, SettersReachTheDriver) {
    ASSERT_TRUE(NetUtil::setAddress("dummy0", "10.20.30.40"));
    ASSERT_TRUE(NetUtil::setNetmask("dummy0", "255.255.0.0"));
    ASSERT_TRUE(NetUtil::setBroadcast("dummy0", "10.20.255.255"));
    EXPECT_NE(test::toolOutput("/usr/sbin/ip -o -4 addr show dev dummy0")
                  .find(" inet 10.20.30.40/16 brd 10.20.255.255 "),
              std::string::npos);
    EXPECT_TRUE(NetUtil::setMtu("dummy0", 1280));
    EXPECT_EQ(sysNet("dummy0", "mtu"), "1280");

    // Down, veth1 takes its peer's carrier with it, and a new address.
    ASSERT_TRUE(NetUtil::setUp("veth1", false));
    EXPECT_EQ(sysNet("veth1", "operstate"), "down");
    EXPECT_TRUE(NetUtil::isUp("veth0"));
    EXPECT_FALSE(NetUtil::isRunning("veth0"));
    EXPECT_TRUE(NetUtil::setMacAddress("veth1", "02-11-22-33-44-55"));
    EXPECT_FALSE(NetUtil::setMacAddress("veth1", "01:00:5e:00:00:01"));  // multicast: refused
    ASSERT_TRUE(NetUtil::setUp("veth1", true));
    EXPECT_TRUE(NetUtil::isRunning("veth0"));
    EXPECT_EQ(sysNet("veth1", "address"), "02:11:22:33:44:55");
    EXPECT_EQ(NetUtil::getMacAddress("veth1"), "02:11:22:33:44:55");
}

TEST(KernelNetUtil, FindsTheDefaultRouteWithTheLowestMetric) {
    ip("route add default via 10.11.13.254 dev veth0 metric 20");
    std::string ifName;
    EXPECT_EQ(NetUtil::getDefaultGateway(&ifName), "10.11.13.254");
    EXPECT_EQ(ifName, "veth0");
    ip("addr add 10.11.12.1/24 dev dummy0");  // beside what the setters left
    ip("route add default via 10.11.12.254 dev dummy0 metric 10");
    EXPECT_EQ(NetUtil::getDefaultGateway(&ifName), "10.11.12.254");
    EXPECT_EQ(ifName, "dummy0");
    ip("route del default via 10.11.12.254 dev dummy0");
    ip("route del default via 10.11.13.254 dev veth0");
    EXPECT_EQ(NetUtil::getDefaultGateway(), "");
}

}  // namespace
}  // namespace orvane
