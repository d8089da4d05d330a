// What the routing suite says of one prefix. Pure functions over its JSON and text; what they do not know is
// skipped.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "cli/output/json_list.h"

namespace cli::explain {

// A path of BGP, in the VPN table or in that of a VRF.
struct BgpPath {
  std::string prefix{};
  std::string rd{};  // in the VPN table
  std::vector<std::string> targets{};
  std::string next_hop{};      // empty: none
  std::string neighbor{};      // empty: it is of this router
  std::string next_hop_vrf{};  // the next hop is in this VRF; empty: in the same one
  std::optional<std::uint32_t> label{};
  std::string segment{};    // SRv6 (RFC 9252); the label may have a part of it. Empty: none
  std::string selection{};  // of the best path: why it is the best
  bool is_valid = false;
  bool is_best = false;

  // To which the core must have a route: BGP resolves segment identifiers, not next hops.
  const std::string& resolved() const { return segment.empty() ? next_hop : segment; }
  // The route is of this router: of another VRF, or of the same one.
  bool is_of_this_router() const;
};

// "show bgp ipv4 vpn PREFIX json": paths by RD.
std::vector<BgpPath> parse_vpn_paths(const Json& answer);
// "show bgp vrf NAME ipv4 unicast PREFIX json".
std::vector<BgpPath> parse_vrf_paths(const Json& answer);

// An entry of the suite's routing table.
struct RibEntry {
  std::string prefix{};
  std::string protocol{};
  bool is_selected = false;
  bool is_installed = false;
  bool is_rejected = false;  // by the kernel
  bool discards = false;
  bool has_label = false;
  bool has_segment = false;  // a segment identifier (RFC 8986)
  std::string next_hop{};    // "10.12.0.2 core" of the first one that is used; empty: none
};

// "show ip route PREFIX json", of a VRF or not. An address is answered with its longest prefix.
std::vector<RibEntry> parse_rib(const Json& answer);

// "show bgp ipv4 vpn": the routers that export each route target, by the next hops of received routes.
std::map<std::string, std::set<std::string>> parse_exporters(std::string_view table);

inline constexpr char kEstablished[] = "Established";
// "show bgp ipv4 vpn summary json": the states of the neighbors that are activated, by their addresses.
std::map<std::string, std::string> parse_sessions(const Json& answer);

// "show mpls table json": the labels of packets that are looked up in the VRF.
std::set<std::string> parse_vpn_labels(const Json& answer, const std::string& vrf);

}  // namespace cli::explain
