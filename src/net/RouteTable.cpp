#include "net/RouteTable.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>

#include <climits>
#include <cstdio>
#include <sstream>

namespace orvane {

namespace detail {

std::string defaultGateway(const std::string& table, std::string* ifName) {
    std::istringstream lines(table);
    std::string line;
    std::getline(lines, line);  // the column titles
    std::string best;
    std::string bestIf;
    long bestMetric = LONG_MAX;
    while (std::getline(lines, line)) {
        char name[IFNAMSIZ + 1] = {};
        unsigned int destination = 0, gateway = 0, flags = 0, mask = 0;
        int refCount = 0, use = 0;
        long metric = 0;
        // The kernel writes the table; a field it cannot hold is not expected.
        // NOLINTNEXTLINE(cert-err34-c)
        int fields = sscanf(line.c_str(), "%16s %x %x %x %d %d %ld %x", name, &destination,
                            &gateway, &flags, &refCount, &use, &metric, &mask);
        if (fields != 8 || destination != 0 || mask != 0) continue;
        if ((flags & (RTF_UP | RTF_GATEWAY)) != (RTF_UP | RTF_GATEWAY)) continue;
        if (metric >= bestMetric) continue;
        in_addr address{gateway};  // the table prints the address as it lies in memory
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &address, text, sizeof text);
        best = text;
        bestIf = name;
        bestMetric = metric;
    }
    if (ifName != nullptr && !best.empty()) *ifName = bestIf;
    return best;
}

}  // namespace detail

}  // namespace orvane
