// For tests of routes: encoded rtnetlink route and next-hop messages, and rows as texts.
#pragma once

#include <gtest/gtest.h>
#include <linux/lwtunnel.h>
#include <linux/mpls_iptunnel.h>
#include <linux/nexthop.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/router/model/route_test_support.h"
#include "sources/kernel/route_state/route_message.h"
#include "sources/kernel/route_state/route_rows.h"
#include "sources/kernel/test_support.h"

namespace kernel {

inline constexpr router::RouteTableId kRed4{router::Family::kIpv4, 10};
inline constexpr router::RouteTableId kRed6{router::Family::kIpv6, 10};

// One path; attributes that are not set are left out.
struct HopMessage {
  std::optional<std::uint32_t> interface_index{};
  std::string gateway{};  // of the route's own family
  std::string via{};      // RTA_VIA
  std::vector<std::uint32_t> labels{};
  std::optional<std::uint16_t> encap_type{};  // MPLS when there are labels
  bool type_after = false;                    // RTA_ENCAP before RTA_ENCAP_TYPE
  std::uint8_t flags = 0;                     // RTNH_F_...
  std::uint8_t weight = 0;                    // less one
};

struct RouteMessage {
  std::uint16_t message_type = RTM_NEWROUTE;
  std::string prefix = "10.0.0.0/24";
  std::optional<std::uint32_t> table{10};  // RTA_TABLE
  std::uint8_t short_table = RT_TABLE_COMPAT;
  std::uint8_t protocol = RTPROT_STATIC;
  std::uint8_t type = RTN_UNICAST;
  std::uint32_t flags = 0;
  std::uint16_t announcement = 0;  // NLM_F_...
  std::uint8_t scope = RT_SCOPE_UNIVERSE;
  std::optional<std::uint32_t> priority{};
  std::optional<std::uint32_t> object{};
  HopMessage hop{};
  std::vector<HopMessage> hops{};  // RTA_MULTIPATH
  bool without_destination = false;
};

struct ObjectMessage {
  std::uint16_t message_type = RTM_NEWNEXTHOP;
  std::uint8_t family = AF_INET;
  std::optional<std::uint32_t> id{};
  HopMessage hop{};
  bool blackhole = false;
  std::vector<std::uint32_t> members{};
};

inline std::size_t SizeOf(router::Family family) {
  return family == router::Family::kIpv4 ? 4 : 16;
}

inline void PutLabels(nlmsghdr* message, std::uint16_t attribute, const std::vector<std::uint32_t>& labels) {
  Octets entries;
  for (std::size_t at = 0; at < labels.size(); ++at) {
    const std::uint32_t entry = labels[at] << 12 | (at + 1 == labels.size() ? 0x100U : 0U);
    for (int shift = 24; shift >= 0; shift -= 8) entries.push_back(static_cast<std::uint8_t>(entry >> shift));
  }
  nlattr* encap = mnl_attr_nest_start(message, attribute);
  mnl_attr_put(message, MPLS_IPTUNNEL_DST, entries.size(), entries.data());
  mnl_attr_nest_end(message, encap);
}

inline void PutVia(nlmsghdr* message, const std::string& text) {
  const router::Address address = router::MakeAddress(text);
  const std::uint16_t family = address.family == router::Family::kIpv4 ? AF_INET : AF_INET6;
  Octets via(2);
  std::memcpy(via.data(), &family, 2);
  via.insert(via.end(), address.octets.begin(),
             address.octets.begin() + static_cast<std::ptrdiff_t>(SizeOf(address.family)));
  mnl_attr_put(message, RTA_VIA, via.size(), via.data());
}

// The attribute numbers of routes and next-hop objects differ.
struct HopAttributes {
  std::uint16_t interface_index, gateway, encap_type, encap;
};
inline constexpr HopAttributes kOfRoutes{RTA_OIF, RTA_GATEWAY, RTA_ENCAP_TYPE, RTA_ENCAP};
inline constexpr HopAttributes kOfObjects{NHA_OIF, NHA_GATEWAY, NHA_ENCAP_TYPE, NHA_ENCAP};

inline void PutHop(nlmsghdr* message, const HopMessage& hop, const HopAttributes& numbers) {
  if (hop.interface_index) mnl_attr_put_u32(message, numbers.interface_index, *hop.interface_index);
  if (!hop.gateway.empty()) {
    const router::Address address = router::MakeAddress(hop.gateway);
    mnl_attr_put(message, numbers.gateway, SizeOf(address.family), address.octets.data());
  }
  if (!hop.via.empty()) PutVia(message, hop.via);
  const std::uint16_t type = hop.encap_type.value_or(LWTUNNEL_ENCAP_MPLS);
  const bool has_type = !hop.labels.empty() || hop.encap_type;
  if (has_type && !hop.type_after) mnl_attr_put_u16(message, numbers.encap_type, type);
  if (!hop.labels.empty()) PutLabels(message, numbers.encap, hop.labels);
  if (has_type && hop.type_after) mnl_attr_put_u16(message, numbers.encap_type, type);
}

inline void PutMultipath(nlmsghdr* message, const std::vector<HopMessage>& hops) {
  nlattr* nest = mnl_attr_nest_start(message, RTA_MULTIPATH);
  for (const HopMessage& each : hops) {
    auto* hop = static_cast<rtnexthop*>(mnl_nlmsg_get_payload_tail(message));
    *hop = {sizeof(rtnexthop), each.flags, each.weight, static_cast<int>(each.interface_index.value_or(0))};
    message->nlmsg_len += static_cast<std::uint32_t>(sizeof(rtnexthop));
    HopMessage rest = each;
    rest.interface_index.reset();
    PutHop(message, rest, kOfRoutes);
    const auto* end = static_cast<const std::uint8_t*>(mnl_nlmsg_get_payload_tail(message));
    const void* begin = hop;
    hop->rtnh_len = static_cast<std::uint16_t>(end - static_cast<const std::uint8_t*>(begin));
  }
  mnl_attr_nest_end(message, nest);
}

inline Octets Encode(const RouteMessage& route) {
  MessageBuffer buffer;
  nlmsghdr* message = buffer.Begin(route.message_type, route.announcement);
  const router::Address destination = router::MakeAddress(route.prefix);
  auto* header = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
  header->rtm_family = destination.family == router::Family::kIpv4 ? AF_INET : AF_INET6;
  header->rtm_dst_len = destination.prefix_length;
  header->rtm_table = route.short_table;
  header->rtm_protocol = route.protocol;
  header->rtm_type = route.type;
  header->rtm_scope = route.scope;
  header->rtm_flags = route.flags | route.hop.flags;
  if (route.table) mnl_attr_put_u32(message, RTA_TABLE, *route.table);
  if (destination.prefix_length != 0 && !route.without_destination) {
    mnl_attr_put(message, RTA_DST, SizeOf(destination.family), destination.octets.data());
  }
  if (route.priority) mnl_attr_put_u32(message, RTA_PRIORITY, *route.priority);
  if (route.object) mnl_attr_put_u32(message, RTA_NH_ID, *route.object);
  PutHop(message, route.hop, kOfRoutes);
  if (!route.hops.empty()) PutMultipath(message, route.hops);
  return buffer.Take(message);
}

inline Octets Encode(const ObjectMessage& object) {
  MessageBuffer buffer;
  nlmsghdr* message = buffer.Begin(object.message_type, 0);
  auto* header = static_cast<nhmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(nhmsg)));
  header->nh_family = object.family;
  header->nh_flags = object.hop.flags;
  if (object.id) mnl_attr_put_u32(message, NHA_ID, *object.id);
  std::vector<nexthop_grp> members;
  for (const std::uint32_t id : object.members) members.push_back({id, 0, 0, 0});
  if (!members.empty()) mnl_attr_put(message, NHA_GROUP, 8 * members.size(), members.data());
  if (object.blackhole) mnl_attr_put(message, NHA_BLACKHOLE, 0, nullptr);
  PutHop(message, object.hop, kOfObjects);
  return buffer.Take(message);
}

inline std::vector<RouteEvent> ParseRoutes(const Octets& datagram, ParseReport* report = nullptr) {
  std::vector<RouteEvent> events;
  const ParseReport result = parse_route_datagram(datagram, &events);
  if (report != nullptr) *report = result;
  return events;
}

// "10.0.0.0/24 via 10.0.0.2 if 5 remote proto 14 metric 20 labels 100,200".
inline std::string RowText(router::Family family, const router::Route& row) {
  static const std::map<router::RouteType, std::string> kTypes{{router::RouteType::kOther, "other"},
                                                               {router::RouteType::kReject, "reject"},
                                                               {router::RouteType::kLocal, "local"},
                                                               {router::RouteType::kRemote, "remote"},
                                                               {router::RouteType::kBlackhole, "blackhole"}};
  std::string text = router::Text(family, row.key) + " if " + std::to_string(row.interface_index) + " " +
                     kTypes.at(row.type) + " proto " + std::to_string(static_cast<unsigned>(row.protocol)) +
                     " metric " + std::to_string(row.metrics[0]);
  for (std::size_t at = 0; at < row.labels.size(); ++at) {
    text += (at == 0 ? " labels " : ",") + std::to_string(row.labels[at]);
  }
  return text;
}

inline std::vector<std::string> TableText(const router::RouteStore& store, router::RouteTableId table) {
  std::vector<std::string> lines;
  router::Route row;
  for (bool more = store.find_first(table, &row); more; more = store.find_next(table, row.key, &row)) {
    lines.push_back(RowText(table.family, row));
  }
  return lines;
}

}  // namespace kernel
