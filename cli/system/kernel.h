// What the kernel of this network namespace has, by rtnetlink, for commands that compare it with the daemon
// or the routing suite. A failure is a Failure(kExitFailed).
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "sources/kernel/links/link_message.h"
#include "sources/kernel/route_state/route_message.h"

namespace cli {

// All links, in the kernel's order. `facts.flags` has IFF_UP.
std::vector<kernel::LinkSeen> read_links();

// The IPv4 and IPv6 routes of the table, all or those that are wanted.
using WantedRoute = std::function<bool(const kernel::KernelRoute&)>;
std::vector<kernel::KernelRoute> read_routes(std::uint32_t table, const WantedRoute& is_wanted = {});

// Where a command reads the kernel; a test has a kernel of its own.
struct KernelReader {
  std::function<std::vector<kernel::LinkSeen>()> links = read_links;
  std::function<std::vector<kernel::KernelRoute>(std::uint32_t, const WantedRoute&)> routes = read_routes;
};

// The ifIndexes of links through which packets with MPLS labels leave by the routes of these tables. The
// routing suite leaves next-hop objects for minutes that no route has.
std::set<std::uint32_t> read_label_links(const std::vector<std::uint32_t>& tables);

// How many label routes the kernel has; 0 also for a kernel without MPLS.
std::size_t count_label_routes();

// A rule of ip-rule(8): which table is looked up, or how the lookup ends.
struct LookupRule {
  std::uint32_t priority = 0;
  std::uint8_t action = 0;    // FR_ACT_...
  std::uint32_t table = 0;    // with FR_ACT_TO_TBL; 0: that of the VRF
  bool is_l3mdev = false;     // for packets of VRFs only
  bool has_selector = false;  // for some packets only
};
// REQUIRES: the kernel has routes of the family.
std::vector<LookupRule> read_rules(router::Family family);

// The value of a file below /proc/sys, without its line feed; empty if there is none.
std::string read_sysctl(const std::string& name);

}  // namespace cli
