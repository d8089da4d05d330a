// How the kernel's messages are interpreted:
//   - rtm_table has eight bits; RTA_TABLE, where present, has the number.
//   - A route with one path has it in RTA_OIF, RTA_GATEWAY or RTA_VIA (a gateway of the other family) and
//     RTA_ENCAP. Several paths are in RTA_MULTIPATH, each with its own attributes; or RTA_NH_ID names an
//     object that has them. With the sysctl nexthop_compat_mode, which is the default, both are present; then
//     the route's own paths count. In IPv6 the device of a discarding route is the loopback.
//   - RTA_ENCAP has MPLS labels if RTA_ENCAP_TYPE is MPLS, in either order. Other encapsulations (SRv6, BPF,
//     IP tunnels) have no labels. Some of them lead to another router.
//   - IPv4 omits RTA_PRIORITY if it is 0.
// Everything is copied. Any thread.
#include "sources/kernel/route_state/route_message.h"

#include <linux/lwtunnel.h>
#include <linux/mpls_iptunnel.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace kernel {
namespace {

constexpr unsigned kLabelShift = 12;  // of a label stack entry: label 20, class 3, bottom 1, time to live 8

// The attributes of one path, before it is checked as a whole.
struct PathDraft {
  RoutePath path;
  router::Family family = router::Family::kIpv4;
  std::uint16_t encap_type = LWTUNNEL_ENCAP_NONE;
  std::vector<std::uint32_t> labels;
};

struct RouteDraft {
  KernelRoute route;
  PathDraft path;
  std::vector<RoutePath> multipath;
  bool has_destination = false;
};

struct ObjectDraft {
  NextHopObject object;
  PathDraft path;
};

// Label stack entries in network order. False for an attribute of another form.
bool read_labels(const nlattr* attribute, std::vector<std::uint32_t>* labels) {
  const std::size_t size = mnl_attr_get_payload_len(attribute);
  const auto* octets = static_cast<const std::uint8_t*>(mnl_attr_get_payload(attribute));
  if (size == 0 || size % 4 != 0) return false;
  for (std::size_t at = 0; at < size; at += 4) {
    const std::uint32_t entry = std::uint32_t{octets[at]} << 24 | std::uint32_t{octets[at + 1]} << 16 |
                                std::uint32_t{octets[at + 2]} << 8 | octets[at + 3];
    labels->push_back(entry >> kLabelShift);
  }
  return true;
}

// Reads the destination of an MPLS encapsulation. In other encapsulations the same number may mean anything,
// so finish_path() decides whether invalid content makes the message malformed.
int read_encap_attribute(const nlattr* attribute, void* data) {
  auto* labels = static_cast<std::vector<std::uint32_t>*>(data);
  if (mnl_attr_get_type(attribute) == MPLS_IPTUNNEL_DST) {
    labels->clear();
    return verdict(read_labels(attribute, labels));
  }
  return MNL_CB_OK;
}

void read_encap(const nlattr* attribute, PathDraft* draft) {
  if (mnl_attr_parse_nested(attribute, read_encap_attribute, &draft->labels) != MNL_CB_OK) {
    draft->labels.clear();
  }
}

bool read_gateway(const nlattr* attribute, router::Family family, RoutePath* path) {
  path->has_gateway = true;
  path->gateway_family = family;
  path->gateway = {};
  return read_octets(attribute, family, &path->gateway);
}

// struct rtvia: a family of two octets, then the address.
bool read_via(const nlattr* attribute, RoutePath* path) {
  const std::size_t size = mnl_attr_get_payload_len(attribute);
  std::uint16_t family = 0;
  if (size < sizeof family) return false;
  const auto* octets = static_cast<const std::uint8_t*>(mnl_attr_get_payload(attribute));
  std::memcpy(&family, octets, sizeof family);
  if (family != AF_INET && family != AF_INET6) return true;
  path->has_gateway = true;
  path->gateway_family = family == AF_INET ? router::Family::kIpv4 : router::Family::kIpv6;
  path->gateway = {};
  if (size - sizeof family != inet::octets_of(path->gateway_family)) return false;
  std::copy(octets + sizeof family, octets + size, path->gateway.begin());
  return true;
}

bool read_path_attribute(const nlattr* attribute, PathDraft* draft) {
  switch (mnl_attr_get_type(attribute)) {
    case RTA_OIF:
      return read_number(attribute, &draft->path.interface_index);
    case RTA_GATEWAY:
      return read_gateway(attribute, draft->family, &draft->path);
    case RTA_VIA:
      return read_via(attribute, &draft->path);
    case RTA_ENCAP_TYPE:
      return read_number(attribute, &draft->encap_type);
    case RTA_ENCAP:
      read_encap(attribute, draft);
      return true;
    default:
      return true;
  }
}

int read_hop_attribute(const nlattr* attribute, void* data) {
  return verdict(read_path_attribute(attribute, static_cast<PathDraft*>(data)));
}

// Segments of SRv6 that end here (LWTUNNEL_ENCAP_SEG6_LOCAL), programs and translations do not lead to
// another router.
bool is_tunnel(std::uint16_t encap_type) {
  return encap_type == LWTUNNEL_ENCAP_MPLS || encap_type == LWTUNNEL_ENCAP_IP ||
         encap_type == LWTUNNEL_ENCAP_IP6 || encap_type == LWTUNNEL_ENCAP_SEG6;
}

// An interface index beyond the range of ifIndex is invalid.
bool finish_path(PathDraft* draft) {
  if (draft->encap_type == LWTUNNEL_ENCAP_MPLS) {
    if (draft->labels.empty()) return false;
    draft->path.labels = std::move(draft->labels);
  }
  draft->path.tunnel = is_tunnel(draft->encap_type);
  return draft->path.interface_index <= 0x7fffffff;
}

bool read_hop(const rtnexthop* hop, router::Family family, RoutePath* path) {
  PathDraft draft;
  draft.family = family;
  draft.path.interface_index = static_cast<std::uint32_t>(hop->rtnh_ifindex);
  draft.path.dead = (hop->rtnh_flags & RTNH_F_DEAD) != 0;
  draft.path.weight = family == router::Family::kIpv4 ? hop->rtnh_hops : std::uint8_t{0};
  if (mnl_attr_parse_payload(hop + 1, hop->rtnh_len - sizeof(rtnexthop), read_hop_attribute, &draft) !=
          MNL_CB_OK ||
      !finish_path(&draft)) {
    return false;
  }
  *path = std::move(draft.path);
  return true;
}

// Hops follow one another, each preceded by its length.
bool read_multipath(const nlattr* attribute, router::Family family, std::vector<RoutePath>* paths) {
  std::span<const std::uint8_t> rest(static_cast<const std::uint8_t*>(mnl_attr_get_payload(attribute)),
                                     mnl_attr_get_payload_len(attribute));
  while (rest.size() >= sizeof(rtnexthop)) {
    const void* here = rest.data();
    const auto* hop = static_cast<const rtnexthop*>(here);
    if (hop->rtnh_len < sizeof(rtnexthop) || hop->rtnh_len > rest.size() ||
        !read_hop(hop, family, &paths->emplace_back())) {
      return false;
    }
    rest = rest.subspan(std::min<std::size_t>(RTNH_ALIGN(hop->rtnh_len), rest.size()));
  }
  return rest.empty();
}

// FNV-1a.
void digest(std::uint8_t octet, KernelRoute* route) {
  route->details = (route->details ^ octet) * 16777619U;
}

void digest(const nlattr* attribute, KernelRoute* route) {
  if (route->family != router::Family::kIpv4) return;
  const auto* octets = static_cast<const std::uint8_t*>(mnl_attr_get_payload(attribute));
  digest(static_cast<std::uint8_t>(mnl_attr_get_type(attribute)), route);
  std::for_each_n(octets, mnl_attr_get_payload_len(attribute),
                  [route](std::uint8_t octet) { digest(octet, route); });
}

int read_route_attribute(const nlattr* attribute, void* data) {
  auto* draft = static_cast<RouteDraft*>(data);
  KernelRoute& route = draft->route;
  switch (mnl_attr_get_type(attribute)) {
    case RTA_TABLE:
      return verdict(read_number(attribute, &route.table));
    case RTA_DST:
      draft->has_destination = true;
      return verdict(read_octets(attribute, route.family, &route.destination));
    case RTA_PRIORITY:
      return verdict(read_number(attribute, &route.priority));
    case RTA_NH_ID:
      return verdict(read_number(attribute, &route.next_hop_object));
    case RTA_MULTIPATH:
      draft->multipath.clear();
      return verdict(read_multipath(attribute, route.family, &draft->multipath));
    case RTA_SRC:
      return verdict(read_octets(attribute, route.family, &route.source));
    case RTA_PREFSRC:
      return verdict(route.family != router::Family::kIpv4 ||
                     read_number(attribute, &route.preferred_source));
    case RTA_METRICS:
    case RTA_FLOW:
      digest(attribute, &route);
      return MNL_CB_OK;
    default:
      return verdict(read_path_attribute(attribute, &draft->path));
  }
}

bool discards(std::uint8_t type) {
  return type == RTN_BLACKHOLE || type == RTN_UNREACHABLE || type == RTN_PROHIBIT || type == RTN_THROW;
}

router::Family family_of(const rtmsg& header) {
  return header.rtm_family == AF_INET ? router::Family::kIpv4 : router::Family::kIpv6;
}

int read_table(const nlattr* attribute, void* data) {
  if (mnl_attr_get_type(attribute) != RTA_TABLE) return MNL_CB_OK;
  return verdict(read_number(attribute, static_cast<std::uint32_t*>(data)));
}

void begin_route(const rtmsg& header, RouteDraft* draft) {
  KernelRoute& route = draft->route;
  route.family = family_of(header);
  route.table = header.rtm_table;
  route.prefix_length = header.rtm_dst_len;
  route.type = header.rtm_type;
  route.protocol = header.rtm_protocol;
  route.cached = (header.rtm_flags & RTM_F_CLONED) != 0;
  if (route.family == router::Family::kIpv4) {
    route.tos = header.rtm_tos;
    digest(header.rtm_scope, &route);
  } else {
    route.source_length = header.rtm_src_len;
  }
  draft->path.family = route.family;
  draft->path.path.dead = (header.rtm_flags & RTNH_F_DEAD) != 0;
}

bool finish_route(RouteDraft* draft) {
  KernelRoute& route = draft->route;
  if (route.table == 0 || (route.prefix_length != 0 && !draft->has_destination) ||
      route.prefix_length > inet::bits_of(route.family) ||
      inet::has_host_bits(route.destination, route.prefix_length) || !finish_path(&draft->path)) {
    return false;
  }
  if (discards(route.type)) return true;
  const RoutePath& path = draft->path.path;
  if (!draft->multipath.empty()) {
    route.paths = std::move(draft->multipath);
  } else if (path.interface_index != 0 || path.has_gateway) {
    route.paths.push_back(std::move(draft->path.path));
  }
  if (route.family == router::Family::kIpv6) {
    for (RoutePath& each : route.paths) each.protocol = route.protocol;
  }
  return true;
}

RequestId request_of(const nlmsghdr* message) {
  return RequestId{message->nlmsg_pid} << 32 | message->nlmsg_seq;
}

bool parse_route(const nlmsghdr* message, std::vector<RouteEvent>* events) {
  if (mnl_nlmsg_get_payload_len(message) < sizeof(rtmsg)) return false;
  const auto* header = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
  if (header->rtm_family != AF_INET && header->rtm_family != AF_INET6) return true;
  RouteDraft draft;
  begin_route(*header, &draft);
  if (mnl_attr_parse(message, sizeof(rtmsg), read_route_attribute, &draft) != MNL_CB_OK ||
      !finish_route(&draft)) {
    return false;
  }
  if (message->nlmsg_type == RTM_DELROUTE) {
    events->emplace_back(RouteRemoved{std::move(draft.route)});
  } else {
    events->emplace_back(RouteSeen{std::move(draft.route), message->nlmsg_flags, request_of(message)});
  }
  return true;
}

bool read_members(const nlattr* attribute, std::vector<std::uint32_t>* members) {
  const std::size_t size = mnl_attr_get_payload_len(attribute);
  if (size == 0 || size % sizeof(nexthop_grp) != 0) return false;
  const auto* octets = static_cast<const std::uint8_t*>(mnl_attr_get_payload(attribute));
  members->clear();
  for (std::size_t at = 0; at < size; at += sizeof(nexthop_grp)) {
    std::memcpy(&members->emplace_back(), octets + at, sizeof(std::uint32_t));  // the id is the first field
  }
  return true;
}

int read_object_attribute(const nlattr* attribute, void* data) {
  auto* draft = static_cast<ObjectDraft*>(data);
  switch (mnl_attr_get_type(attribute)) {
    case NHA_ID:
      return verdict(read_number(attribute, &draft->object.id));
    case NHA_GROUP:
      return verdict(read_members(attribute, &draft->object.members));
    case NHA_BLACKHOLE:
      draft->object.discards = true;
      return MNL_CB_OK;
    case NHA_OIF:
      return verdict(read_number(attribute, &draft->path.path.interface_index));
    case NHA_GATEWAY:
      return verdict(read_gateway(attribute, draft->path.family, &draft->path.path));
    case NHA_ENCAP_TYPE:
      return verdict(read_number(attribute, &draft->path.encap_type));
    case NHA_ENCAP:
      read_encap(attribute, &draft->path);
      return MNL_CB_OK;
    default:
      return MNL_CB_OK;
  }
}

bool parse_next_hop(const nlmsghdr* message, std::vector<RouteEvent>* events) {
  if (mnl_nlmsg_get_payload_len(message) < sizeof(nhmsg)) return false;
  const auto* header = static_cast<const nhmsg*>(mnl_nlmsg_get_payload(message));
  ObjectDraft draft;
  draft.path.family = header->nh_family == AF_INET6 ? router::Family::kIpv6 : router::Family::kIpv4;
  draft.path.path.dead = (header->nh_flags & RTNH_F_DEAD) != 0;
  if (mnl_attr_parse(message, sizeof(nhmsg), read_object_attribute, &draft) != MNL_CB_OK ||
      !finish_path(&draft.path) || draft.object.id == 0) {
    return false;
  }
  if (message->nlmsg_type == RTM_DELNEXTHOP) {
    events->emplace_back(NextHopRemoved{draft.object.id});
    return true;
  }
  draft.object.path = std::move(draft.path.path);
  events->emplace_back(NextHopSeen{std::move(draft.object), request_of(message)});
  return true;
}

}  // namespace

bool parse_route_message(const nlmsghdr* message, std::vector<RouteEvent>* events) {
  switch (message->nlmsg_type) {
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
      return parse_route(message, events);
    case RTM_NEWNEXTHOP:
    case RTM_DELNEXTHOP:
      return parse_next_hop(message, events);
    default:
      return true;
  }
}

std::optional<router::RouteTableId> find_table(const nlmsghdr* message) {
  const bool is_route = message->nlmsg_type == RTM_NEWROUTE || message->nlmsg_type == RTM_DELROUTE;
  if (!is_route || mnl_nlmsg_get_payload_len(message) < sizeof(rtmsg)) return std::nullopt;
  const auto* header = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
  std::uint32_t table = header->rtm_table == RT_TABLE_COMPAT ? 0 : header->rtm_table;
  mnl_attr_parse(message, sizeof(rtmsg), read_table, &table);  // up to the attribute that is malformed
  if (table == 0) return std::nullopt;
  return router::RouteTableId{family_of(*header), table};
}

ParseReport parse_route_datagram(std::span<const std::uint8_t> datagram, std::vector<RouteEvent>* events) {
  return for_each_message(datagram,
                          [events](const nlmsghdr* message) { return parse_route_message(message, events); });
}

}  // namespace kernel
