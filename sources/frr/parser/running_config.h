// Parses the layer-3 VPN items of a routing suite's running configuration, as `show running-config` prints
// it, into records.
//
// The text is a list of stanzas. A line in the first column opens one ("router bgp 65000 vrf red"), indented
// lines belong to it, and BGP has address families as nested stanzas. Lines that do not concern VPNs are
// skipped. An invalid line that does is left out and reported with its number and a reason. Items of the
// default VRF are left out, because it is not a VPN.
//
// The text is untrusted: every text is accepted, and none makes more than a few records per word.
// Stateless; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/config/vrf_config.h"
#include "platform/router/model/router.h"

namespace frr {

struct LineError {
  std::size_t line = 0;  // from 1
  std::string what;
  bool operator==(const LineError&) const = default;
};

// `address-family ipv4|ipv6 unicast` and `l2vpn evpn` of a VRF's BGP instance (RFC 4364 sections 4.2 and
// 4.3.1).
struct VpnFamily {
  std::optional<vrf_config::Target> rd{};
  std::vector<vrf_config::Target> imports{};
  std::vector<vrf_config::Target> exports{};
  std::string import_policy{};  // a route map's name; empty: none
  std::string export_policy{};
};

struct BgpNeighbor {
  std::string group{};
  bool is_group = false;
  bool listens = false;  // a group that takes connections from a range of addresses (`bgp listen range`)
  // By family: configured as active or not; none: as its group or the instance's default.
  std::array<std::optional<bool>, 2> active{};
};

struct BgpInstance {
  std::string vrf;
  std::uint32_t as_number = 0;
  std::string router_id{};                          // empty: the suite chooses one
  std::array<bool, 2> default_active{true, false};  // by family
  std::array<VpnFamily, 3> families{};              // in the order of vrf_config::kFamiliesOfTargets
  // By address, by interface (unnumbered) or, a group, by the group's name.
  std::map<std::string, BgpNeighbor, std::less<>> neighbors{};
};

// "10.0.0.0/8" of a `network` line, and the OSPF area that it is in.
struct Network {
  router::Address prefix{};
  std::uint32_t area = 0;
};

// A process of OSPF, RIP, RIPng or EIGRP in a VRF. It is enabled on interfaces whose address is in one of the
// networks, and on named interfaces.
struct IgpProcess {
  std::string vrf;
  std::string process;  // OSPF: the instance, "1" when there is one only; EIGRP: the AS number; else empty
  std::vector<Network> networks{};
  std::vector<std::string> interfaces{};
};

// `ip ospf area` and `ipv6 ospf6 area` of an interface.
struct OspfArea {
  std::string process;
  std::uint32_t area = 0;
};

struct InterfaceConfig {
  std::string description{};
  std::vector<OspfArea> ospf{};
  std::optional<std::uint32_t> ospf6_area{};
};

struct VrfStaticRoute {
  std::string vrf;
  vrf_config::StaticRoute route;
};

struct RunningConfig {
  std::string version{};  // of the program, as its line "frr version" states it
  std::vector<BgpInstance> bgp{};
  std::vector<IgpProcess> ospf{};
  std::vector<IgpProcess> ospf6{};  // without networks: areas are configured on interfaces only
  std::vector<IgpProcess> rip{};
  std::vector<IgpProcess> ripng{};
  std::vector<IgpProcess> eigrp{};
  std::vector<VrfStaticRoute> statics{};
  std::map<std::string, std::uint32_t, std::less<>> vnis{};  // by VRF
  std::string as_notation{};                                 // of the default instance of BGP: "dot"
  bool imports_by_name = false;                              // some VRF has `import vrf`
  bool has_evpn = false;                                     // BGP advertises the VNIs of the router
  std::map<std::string, InterfaceConfig, std::less<>> interfaces{};
  std::vector<LineError> errors{};
};

RunningConfig parse_running_config(std::string_view text);

}  // namespace frr
