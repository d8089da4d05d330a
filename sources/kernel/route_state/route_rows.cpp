// Types and protocols as in RFC 4292 and IANAipRouteProtocol.
//
// A next hop of the other family (an IPv4 prefix with an IPv6 gateway) does not fit into a row's index: the
// row is remote, its next hop is zero, and it has the interface.
#include "sources/kernel/route_state/route_rows.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <limits>

namespace kernel {
namespace {

using router::RouteProtocol;
using router::RouteType;

struct ProtocolName {
  std::uint8_t kernel;
  RouteProtocol row;
};

// Others are kOther. RTPROT_ values of routing daemons are registered in rtnetlink.h; 190 and 196 (RIPng and
// static routes of a routing suite) are those of the suite in /etc/iproute2/rt_protos.d.
constexpr RouteProtocol kDhcp{19};
constexpr std::array kProtocols{ProtocolName{RTPROT_REDIRECT, RouteProtocol::kIcmp},
                                ProtocolName{RTPROT_KERNEL, RouteProtocol::kLocal},
                                ProtocolName{RTPROT_BOOT, RouteProtocol::kNetmgmt},
                                ProtocolName{RTPROT_STATIC, RouteProtocol::kNetmgmt},
                                ProtocolName{RTPROT_DHCP, kDhcp},
                                ProtocolName{RTPROT_BGP, RouteProtocol::kBgp},
                                ProtocolName{RTPROT_ISIS, RouteProtocol::kIsIs},
                                ProtocolName{RTPROT_OSPF, RouteProtocol::kOspf},
                                ProtocolName{RTPROT_RIP, RouteProtocol::kRip},
                                ProtocolName{190, RouteProtocol::kRip},
                                ProtocolName{RTPROT_EIGRP, RouteProtocol::kEigrp},
                                ProtocolName{196, RouteProtocol::kNetmgmt}};

RouteProtocol protocol_of(std::uint8_t kernel) {
  const auto* found = std::find_if(kProtocols.begin(), kProtocols.end(),
                                   [kernel](const ProtocolName& each) { return each.kernel == kernel; });
  return found == kProtocols.end() ? RouteProtocol::kOther : found->row;
}

// The type of a route that discards packets.
RouteType discard_type(std::uint8_t type) {
  switch (type) {
    case RTN_BLACKHOLE:
      return RouteType::kBlackhole;
    case RTN_UNREACHABLE:
    case RTN_PROHIBIT:
      return RouteType::kReject;
    default:
      return RouteType::kOther;  // RTN_THROW: the search continues in the next table
  }
}

bool is_link_local_or_multicast(const KernelRoute& route) {
  const auto& octets = route.destination;
  if (route.family == router::Family::kIpv4) return route.prefix_length >= 4 && (octets[0] & 0xf0) == 0xe0;
  const bool link_local = route.prefix_length >= 10 && octets[0] == 0xfe && (octets[1] & 0xc0) == 0x80;
  return link_local || (route.prefix_length >= 8 && octets[0] == 0xff);
}

router::Route row_of(const KernelRoute& route) {
  router::Route row;
  row.key.destination = route.destination;
  row.key.prefix_length = route.prefix_length;
  row.protocol = protocol_of(route.protocol);
  constexpr std::uint32_t kLargest = std::numeric_limits<std::int32_t>::max();
  row.metrics[0] = static_cast<std::int32_t>(std::min(route.priority, kLargest));
  return row;
}

void append_path(const KernelRoute& route, const RoutePath& path, std::vector<router::Route>* rows) {
  if (path.dead || path.ignored) return;
  router::Route row = row_of(route);
  row.type = path.has_gateway || path.tunnel ? RouteType::kRemote : RouteType::kLocal;
  if (path.has_gateway && path.gateway_family == route.family) {
    row.key.next_hop = path.gateway;
  }
  row.interface_index = path.interface_index;
  row.labels = path.labels;
  rows->push_back(std::move(row));
}

void append_discard(const KernelRoute& route, std::uint8_t type, std::vector<router::Route>* rows) {
  router::Route row = row_of(route);
  row.type = discard_type(type);
  rows->push_back(std::move(row));
}

void append_object(const KernelRoute& route, const NextHopObject& object, std::vector<router::Route>* rows) {
  if (object.discards) {
    append_discard(route, RTN_BLACKHOLE, rows);
  } else {
    append_path(route, object.path, rows);
  }
}

// The members of a group are not groups.
bool append_by_object(const KernelRoute& route, const NextHopObjects& objects,
                      std::vector<router::Route>* rows) {
  const NextHopObject* named = objects.find(route.next_hop_object);
  if (named == nullptr) return false;
  std::vector<const NextHopObject*> members;
  for (const std::uint32_t id : named->members) {
    members.push_back(objects.find(id));
  }
  if (std::find(members.begin(), members.end(), nullptr) != members.end()) return false;
  if (members.empty()) {
    members.push_back(named);
  }
  for (const NextHopObject* each : members) {
    append_object(route, *each, rows);
  }
  return true;
}

}  // namespace

void NextHopObjects::enter(const NextHopObject& object) {
  if (object.path.interface_index != 0) over_.emplace(object.path.interface_index, object.id);
  for (const std::uint32_t member : object.members) groups_.emplace(member, object.id);
}

void NextHopObjects::withdraw(const NextHopObject& object) {
  over_.erase({object.path.interface_index, object.id});
  for (const std::uint32_t member : object.members) groups_.erase({member, object.id});
}

bool NextHopObjects::update(const NextHopObject& object) {
  const auto [present, is_new] = objects_.try_emplace(object.id, object);
  if (!is_new && present->second == object) return false;
  withdraw(present->second);
  present->second = object;
  enter(object);
  return true;
}

void NextHopObjects::remove(std::uint32_t id, Affected* affected) {
  const auto found = objects_.find(id);
  if (found == objects_.end()) return;
  std::set<std::uint32_t> groups = users(id);
  groups.erase(id);
  withdraw(found->second);
  objects_.erase(found);
  affected->removed.insert(id);
  for (const std::uint32_t group : groups) {
    NextHopObject rest = objects_.at(group);
    std::erase(rest.members, id);
    if (rest.members.empty()) {
      remove(group, affected);
    } else {
      update(rest);
      affected->changed.insert(group);
    }
  }
}

NextHopObjects::Affected NextHopObjects::remove(std::uint32_t id) {
  Affected affected;
  remove(id, &affected);
  return affected;
}

NextHopObjects::Affected NextHopObjects::remove_over(std::uint32_t interface_index) {
  Affected affected;
  for (auto each = over_.lower_bound({interface_index, 0});
       each != over_.end() && each->first == interface_index;
       each = over_.lower_bound({interface_index, 0})) {
    remove(each->second, &affected);
  }
  return affected;
}

const NextHopObject* NextHopObjects::find(std::uint32_t id) const {
  const auto found = objects_.find(id);
  return found == objects_.end() ? nullptr : &found->second;
}

std::set<std::uint32_t> NextHopObjects::users(std::uint32_t id) const {
  std::set<std::uint32_t> ids{id};
  for (auto each = groups_.lower_bound({id, 0}); each != groups_.end() && each->first == id; ++each) {
    ids.insert(each->second);
  }
  return ids;
}

// A group that loses its last member here has none in `read` either, or is changed when it is compared.
void NextHopObjects::adopt(std::uint32_t id, const NextHopObject* read, Comparison* comparison) {
  const NextHopObject* present = find(id);
  if (read != nullptr && present != nullptr && *present == *read) return;
  ++comparison->differences;
  if (read == nullptr) {
    remove(id, &comparison->affected);
  } else {
    update(*read);
    comparison->affected.changed.merge(users(id));
  }
}

bool NextHopObjects::adopt_some(const NextHopObjects& read, std::size_t count, Comparison* comparison) {
  constexpr std::uint64_t kNone = UINT64_MAX;
  const auto first_of = [comparison](const NextHopObjects& objects) {
    const auto found = objects.objects_.lower_bound(static_cast<std::uint32_t>(comparison->next));
    return found == objects.objects_.end() ? kNone : found->first;
  };
  for (; count > 0 && comparison->next <= UINT32_MAX; --count) {
    const std::uint64_t id = std::min(first_of(*this), first_of(read));
    if (id == kNone) return false;
    adopt(static_cast<std::uint32_t>(id), read.find(static_cast<std::uint32_t>(id)), comparison);
    comparison->next = id + 1;
  }
  return comparison->next <= UINT32_MAX;
}

bool NextHopObjects::release_some(std::size_t count) {
  const auto free_some = [count](auto* container) {
    for (std::size_t freed = 0; freed < count && !container->empty(); ++freed)
      container->erase(container->begin());
    return !container->empty();
  };
  const std::array left{free_some(&objects_), free_some(&over_), free_some(&groups_)};
  return std::ranges::find(left, true) != left.end();
}

bool is_shown(const KernelRoute& route) {
  switch (route.type) {
    case RTN_UNICAST:
    case RTN_BLACKHOLE:
    case RTN_UNREACHABLE:
    case RTN_PROHIBIT:
    case RTN_THROW:
      return !route.cached && !is_link_local_or_multicast(route);
    default:
      return false;
  }
}

bool append_rows(const KernelRoute& route, const NextHopObjects& objects, std::vector<router::Route>* rows) {
  if (route.type != RTN_UNICAST) {
    append_discard(route, route.type, rows);
    return true;
  }
  if (route.paths.empty() && route.next_hop_object != 0) return append_by_object(route, objects, rows);
  for (const RoutePath& path : route.paths) {
    append_path(route, path, rows);
  }
  return true;
}

}  // namespace kernel
