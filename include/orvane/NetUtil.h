#pragma once

#include <orvane/Export.h>

#include <string>
#include <vector>

namespace orvane {

// The host's network interfaces: their names, IPv4 address, netmask,
// broadcast address, hardware (MAC) address, MTU, index and link state, and
// the default gateway. Readers use getifaddrs and the SIOCGIF* ioctls on a
// short-lived datagram socket, the gateway comes from "/proc/net/route";
// setters use the SIOCSIF* ioctls and need CAP_NET_ADMIN (a refusal is logged
// and gives false). Only IPv4 is covered; an interface has one primary
// address here, as ifconfig shows it (extra addresses added with "ip addr"
// are not listed).
//
//     NetUtil::Interface eth;
//     if (NetUtil::getInterface("eth0", &eth) && eth.running)
//         printf("%s/%s mac %s\n", eth.address.c_str(), eth.netmask.c_str(), eth.mac.c_str());
//     NetUtil::setAddress("eth0", "192.168.1.20");   // as root
//
// Lookups fail with an empty string, -1 or false after one logged line: an
// empty name or one of IFNAMSIZ characters or more, an interface that does
// not exist, a malformed address. All static, no state; any thread may call.
// Each call opens and closes one socket (a few microseconds) for all its
// ioctls; interfaces() walks the kernel's interface list once, then opens
// one socket per interface.
class ORVANE_API NetUtil {
  public:
    // What getInterface reports about one interface. Address fields are
    // dotted IPv4 ("" when the interface has none), mac is six lower-case
    // hexadecimal pairs joined by ':' ("" for an interface without one).
    struct Interface {
        // The interface name, e.g. "eth0".
        std::string name;
        // The kernel's interface index, -1 when unknown.
        int index = -1;
        // IPv4 address.
        std::string address;
        // IPv4 netmask.
        std::string netmask;
        // IPv4 broadcast address.
        std::string broadcast;
        // Hardware address.
        std::string mac;
        // MTU in bytes, -1 when unknown.
        int mtu = -1;
        bool up = false;        // administratively up (IFF_UP)
        bool running = false;   // link carrier present (IFF_RUNNING)
        bool loopback = false;  // IFF_LOOPBACK
    };

    // The names of all interfaces, with or without an address, in the
    // kernel's index order; empty when they cannot be listed.
    static std::vector<std::string> interfaceNames();
    // getInterface for every interface in interfaceNames().
    static std::vector<Interface> interfaces();
    // Fills *info with everything known about `name`; false when the
    // interface does not exist (the fields then hold their defaults).
    static bool getInterface(const std::string& name, Interface* info);

    // The interface's IPv4 address in dotted form; "" when it has none or
    // does not exist.
    static std::string getAddress(const std::string& name);
    // The interface's IPv4 netmask in dotted form, or "".
    static std::string getNetmask(const std::string& name);
    // The interface's IPv4 broadcast address in dotted form, or "".
    static std::string getBroadcast(const std::string& name);
    // The hardware address as "aa:bb:cc:dd:ee:ff"; "" on failure.
    static std::string getMacAddress(const std::string& name);
    // The MTU in bytes, or -1.
    static int getMtu(const std::string& name);
    // The kernel's interface index (1 or more), or -1.
    static int getIndex(const std::string& name);
    // Whether the interface is administratively up (IFF_UP); false also for
    // an interface that does not exist.
    static bool isUp(const std::string& name);
    // Whether the interface has link carrier (IFF_RUNNING); false also for
    // an interface that does not exist.
    static bool isRunning(const std::string& name);

    // Privileged setters (CAP_NET_ADMIN). Addresses are dotted IPv4;
    // setNetmask refuses a mask whose ones are not contiguous.
    static bool setAddress(const std::string& name, const std::string& address);
    // Sets the IPv4 netmask; false (logged) for a bad or non-contiguous mask or a refused call.
    static bool setNetmask(const std::string& name, const std::string& netmask);
    // Sets the IPv4 broadcast address; false (logged) for a bad address or a refused call.
    static bool setBroadcast(const std::string& name, const std::string& broadcast);
    // mac as six hexadecimal pairs joined by ':' or '-'; the interface must
    // usually be down to take it.
    static bool setMacAddress(const std::string& name, const std::string& mac);
    // mtu from 68 to 65535 (the kernel may narrow the range per device).
    static bool setMtu(const std::string& name, int mtu);
    // Sets or clears IFF_UP, keeping the other flags.
    static bool setUp(const std::string& name, bool up);

    // The gateway of the default IPv4 route with the lowest metric, dotted,
    // from "/proc/net/route" of the caller's network namespace; its interface
    // in *ifName when given. "" (logged) when there is no default route.
    static std::string getDefaultGateway(std::string* ifName = nullptr);
};

}  // namespace orvane
