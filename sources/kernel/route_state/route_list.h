// The kernel's list of the routes of one prefix, and what an announcement makes of it.
//
// Pure functions. IPv4 routes of one type of service and priority are in the order in which the kernel tries
// them. IPv6 routes of one source prefix and priority are, too; those with a gateway are the paths of one
// route, and an announcement has all of them.
#pragma once

#include <cstdint>
#include <vector>

#include "sources/kernel/route_state/route_message.h"

namespace kernel {

using RouteList = std::vector<KernelRoute>;  // of one family and prefix, which are not compared

// Equal but for the state of the paths, which the kernel changes without an announcement, and the protocols
// of those after the first, which it does not show.
bool same_route(const KernelRoute& left, const KernelRoute& right);
// ... and the state is equal, too.
bool looks_same(const KernelRoute& left, const KernelRoute& right);

// Into the order of keys; routes of one key stay in their order.
void sort_routes(RouteList* list);
// Whether the list, which is sorted, has a route that is the same_route().
bool lists(const RouteList& sorted, const KernelRoute& route);

// An announced route, with the flags of the announcement (RouteSeen). False when the list cannot have been
// the kernel's: it has a route that the announcement excludes. The list is corrected.
bool announce(KernelRoute route, std::uint16_t flags, RouteList* list);
// An announced deletion; of an IPv6 route possibly of some of its paths. Ignores a route that is not listed:
// the kernel also announces deletions that were derived before (route_history.h).
void withdraw(const KernelRoute& route, RouteList* list);

}  // namespace kernel
