#pragma once

// How NetUtil reads the kernel's IPv4 routing table in the text form of
// "/proc/net/route", apart from the fixed file, so the rules can be checked
// on any table.

#include <orvane/Export.h>

#include <string>

namespace orvane {
namespace detail {

// The gateway (dotted) of the default route with the lowest metric in
// `table`: a line whose destination and mask are 0 and whose flags hold
// RTF_UP and RTF_GATEWAY. Its interface goes to *ifName when given. "" when
// there is none; malformed lines are skipped.
ORVANE_API std::string defaultGateway(const std::string& table, std::string* ifName);

}  // namespace detail
}  // namespace orvane
