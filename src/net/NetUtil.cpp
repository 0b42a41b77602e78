#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <net/route.h>
#include <orvane/NetUtil.h>
#include <orvane/UniqueFd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "io/SmallFile.h"
#include "log/LogLine.h"
#include "net/RouteTable.h"
#include "net/SocketIo.h"

namespace orvane {

namespace {

// The interface requests of one NetUtil call: the name is checked once (a
// bad one is logged at construction and fails every request), and all
// requests go through one datagram socket, opened by the first of them.
// Lines are logged for `method`.
struct Query {
    Query(const std::string& name, const char* caller) : method(caller), req() {
        if (name.empty() || name.size() >= IFNAMSIZ || name.find('/') != std::string::npos) {
            ORVANE_SERROR_IN(method, "bad interface name:'%s'", name.c_str());
            return;
        }
        memcpy(req.ifr_name, name.c_str(), name.size());
        named = true;
    }

    // One ioctl on `req`. A failure is logged as "<what>(<name>) error:<reason>"
    // unless `quiet`; a socket that cannot be opened always is.
    bool run(unsigned long request, const char* what, bool quiet = false) {
        if (!named) return false;
        if (!sock) sock.reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        if (!sock) {
            int err = errno;
            ORVANE_SERROR_IN(method, "open socket error:%s", strerror(err));
            return false;
        }
        if (ioctl(sock.get(), request, &req) == 0) return true;
        int err = errno;
        if (!quiet) ORVANE_SERROR_IN(method, "%s(%s) error:%s", what, req.ifr_name, strerror(err));
        return false;
    }

    bool named = false;  // false after a bad name was logged
    const char* method;
    ifreq req;
    UniqueFd sock;
};

std::string dotted(const sockaddr& address) {
    if (address.sa_family != AF_INET) return "";
    return detail::dotted(reinterpret_cast<const sockaddr_in*>(&address)->sin_addr);
}

// A dotted IPv4 address as the sockaddr the SIOCSIF* requests take.
bool parseAddress(const std::string& text, sockaddr* out, const char* method) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    if (inet_pton(AF_INET, text.c_str(), &in.sin_addr) != 1) {
        ORVANE_SERROR_IN(method, "bad IPv4 address:'%s'", text.c_str());
        return false;
    }
    memcpy(out, &in, sizeof in);
    return true;
}

// One address-valued request; quiet lookups give "" without a line.
std::string readAddress(Query& query, unsigned long request, const char* what, bool quiet = false) {
    return query.run(request, what, quiet) ? dotted(query.req.ifr_addr) : "";
}

bool writeAddress(const std::string& name, const std::string& text, unsigned long request,
                  const char* method, const char* what) {
    Query query(name, method);
    return query.named && parseAddress(text, &query.req.ifr_addr, method) &&
           query.run(request, what);
}

// IFF_* flags, or -1 (logged unless quiet).
int readFlags(Query& query, bool quiet = false) {
    return query.run(SIOCGIFFLAGS, "SIOCGIFFLAGS", quiet) ? query.req.ifr_flags & 0xffff : -1;
}

// The MTU or the index (the same field of the request), or -1.
int readInt(Query& query, unsigned long request, const char* what, bool quiet = false) {
    if (!query.run(request, what, quiet)) return -1;
    return request == SIOCGIFMTU ? query.req.ifr_mtu : query.req.ifr_ifindex;
}

std::string readMac(Query& query, bool quiet = false) {
    if (!query.run(SIOCGIFHWADDR, "SIOCGIFHWADDR", quiet)) return "";
    int family = query.req.ifr_hwaddr.sa_family;
    if (family != ARPHRD_ETHER && family != ARPHRD_LOOPBACK) {
        if (!quiet) {
            ORVANE_SERROR_IN(query.method, "%s has no MAC address (type %d)", query.req.ifr_name,
                             family);
        }
        return "";
    }
    const auto* b = reinterpret_cast<const unsigned char*>(query.req.ifr_hwaddr.sa_data);
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4],
             b[5]);
    return text;
}

// Six hexadecimal pairs separated by ':' or '-'.
bool parseMac(const std::string& text, unsigned char* bytes) {
    if (text.size() != 17) return false;
    for (int i = 0; i < 6; ++i) {
        size_t at = static_cast<size_t>(i) * 3;
        if (i > 0 && text[at - 1] != ':' && text[at - 1] != '-') return false;
        if (!isxdigit(static_cast<unsigned char>(text[at])) ||
            !isxdigit(static_cast<unsigned char>(text[at + 1]))) {
            return false;
        }
        bytes[i] = static_cast<unsigned char>(std::stoi(text.substr(at, 2), nullptr, 16));
    }
    return true;
}

}  // namespace

std::vector<std::string> NetUtil::interfaceNames() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        int err = errno;
        ORVANE_SERROR("getifaddrs error:%s", strerror(err));
        return {};
    }
    std::vector<std::pair<unsigned int, std::string>> found;
    for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        std::string name = entry->ifa_name;
        bool known = std::any_of(found.begin(), found.end(),
                                 [&name](const auto& item) { return item.second == name; });
        if (!known) found.emplace_back(if_nametoindex(name.c_str()), name);
    }
    freeifaddrs(list);
    std::sort(found.begin(), found.end());
    std::vector<std::string> names;
    names.reserve(found.size());
    for (auto& item : found) names.push_back(item.second);
    return names;
}

std::vector<NetUtil::Interface> NetUtil::interfaces() {
    std::vector<Interface> all;
    for (auto& name : interfaceNames()) {
        Interface info;
        if (getInterface(name, &info)) all.push_back(info);
    }
    return all;
}

bool NetUtil::getInterface(const std::string& name, Interface* info) {
    if (info == nullptr) {
        ORVANE_SERROR("param error: info is null");
        return false;
    }
    *info = Interface();
    Query query(name, __func__);
    int index = readInt(query, SIOCGIFINDEX, "SIOCGIFINDEX");
    if (index < 0) return false;
    info->name = name;
    info->index = index;
    // The remaining facts may be missing (no address, no hardware address):
    // their fields then keep their defaults without a line.
    info->address = readAddress(query, SIOCGIFADDR, "SIOCGIFADDR", true);
    if (!info->address.empty()) {
        info->netmask = readAddress(query, SIOCGIFNETMASK, "SIOCGIFNETMASK", true);
        info->broadcast = readAddress(query, SIOCGIFBRDADDR, "SIOCGIFBRDADDR", true);
        if (info->broadcast == "0.0.0.0") info->broadcast.clear();
    }
    info->mac = readMac(query, true);
    info->mtu = readInt(query, SIOCGIFMTU, "SIOCGIFMTU", true);
    int flags = readFlags(query, true);
    if (flags >= 0) {
        info->up = (flags & IFF_UP) != 0;
        info->running = (flags & IFF_RUNNING) != 0;
        info->loopback = (flags & IFF_LOOPBACK) != 0;
    }
    return true;
}

std::string NetUtil::getAddress(const std::string& name) {
    Query query(name, __func__);
    return readAddress(query, SIOCGIFADDR, "SIOCGIFADDR");
}

std::string NetUtil::getNetmask(const std::string& name) {
    Query query(name, __func__);
    return readAddress(query, SIOCGIFNETMASK, "SIOCGIFNETMASK");
}

std::string NetUtil::getBroadcast(const std::string& name) {
    Query query(name, __func__);
    return readAddress(query, SIOCGIFBRDADDR, "SIOCGIFBRDADDR");
}

std::string NetUtil::getMacAddress(const std::string& name) {
    Query query(name, __func__);
    return readMac(query);
}

int NetUtil::getMtu(const std::string& name) {
    Query query(name, __func__);
    return readInt(query, SIOCGIFMTU, "SIOCGIFMTU");
}

int NetUtil::getIndex(const std::string& name) {
    Query query(name, __func__);
    return readInt(query, SIOCGIFINDEX, "SIOCGIFINDEX");
}

bool NetUtil::isUp(const std::string& name) {
    Query query(name, __func__);
    int flags = readFlags(query);
    return flags >= 0 && (flags & IFF_UP) != 0;
}

bool NetUtil::isRunning(const std::string& name) {
    Query query(name, __func__);
    int flags = readFlags(query);
    return flags >= 0 && (flags & IFF_RUNNING) != 0;
}

bool NetUtil::setAddress(const std::string& name, const std::string& address) {
    return writeAddress(name, address, SIOCSIFADDR, __func__, "SIOCSIFADDR");
}

bool NetUtil::setNetmask(const std::string& name, const std::string& netmask) {
    in_addr mask{};
    if (inet_pton(AF_INET, netmask.c_str(), &mask) == 1) {
        uint32_t hostZeros = ~ntohl(mask.s_addr);
        if ((hostZeros & (hostZeros + 1)) != 0) {
            ORVANE_SERROR("netmask %s is not contiguous", netmask.c_str());
            return false;
        }
    }
    return writeAddress(name, netmask, SIOCSIFNETMASK, __func__, "SIOCSIFNETMASK");
}

bool NetUtil::setBroadcast(const std::string& name, const std::string& broadcast) {
    return writeAddress(name, broadcast, SIOCSIFBRDADDR, __func__, "SIOCSIFBRDADDR");
}

bool NetUtil::setMacAddress(const std::string& name, const std::string& mac) {
    Query query(name, __func__);
    if (!query.named) return false;
    unsigned char bytes[6];
    if (!parseMac(mac, bytes)) {
        ORVANE_SERROR("bad MAC address:'%s'", mac.c_str());
        return false;
    }
    query.req.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    memcpy(query.req.ifr_hwaddr.sa_data, bytes, sizeof bytes);
    return query.run(SIOCSIFHWADDR, "SIOCSIFHWADDR");
}

bool NetUtil::setMtu(const std::string& name, int mtu) {
    Query query(name, __func__);
    if (!query.named) return false;
    if (mtu < 68 || mtu > 65535) {
        ORVANE_SERROR("bad MTU:%d (68 to 65535)", mtu);
        return false;
    }
    query.req.ifr_mtu = mtu;
    return query.run(SIOCSIFMTU, "SIOCSIFMTU");
}

// The flags read are written back through the same request, IFF_UP changed.
bool NetUtil::setUp(const std::string& name, bool up) {
    Query query(name, __func__);
    int flags = readFlags(query);
    if (flags < 0) return false;
    query.req.ifr_flags = static_cast<short>(up ? (flags | IFF_UP) : (flags & ~IFF_UP));
    return query.run(SIOCSIFFLAGS, "SIOCSIFFLAGS");
}

std::string NetUtil::getDefaultGateway(std::string* ifName) {
    std::string table;
    int err = detail::readSmallFile("/proc/net/route", &table);
    if (err != 0) {
        ORVANE_SERROR("read /proc/net/route error:%s", strerror(err));
        return "";
    }
    std::string gateway = detail::defaultGateway(table, ifName);
    if (gateway.empty()) ORVANE_SERROR("no default route");
    return gateway;
}

}  // namespace orvane
