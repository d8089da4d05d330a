// What a configuration of the routing suite says of VPN routes, running or saved.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace cli::doctor {

// "address-family ipv4 unicast" of "router bgp 65000 vrf red".
struct SuiteFamily {
  std::string instance{};  // "router bgp 65000 vrf red"
  std::string vrf{};
  std::string family{};  // "ipv4 unicast"
  std::string rd{};
  std::set<std::string> targets{};      // "import 65000:1", "export 65000:1"
  bool exports = false;                 // VPN routes
  bool imports = false;                 // VPN routes, or those of another VRF
  std::set<std::string> import_vrfs{};  // VRFs of this router, with route targets that the suite derives
  bool has_label = false;
  bool has_segment = false;  // a segment identifier, which needs no label
};

struct SuiteConfiguration {
  std::set<std::string> vrfs{};  // that a "vrf" or "router" line names
  // That a "router" line names, or a "vrf" line with lines below it. Version 10 prints a "vrf" line for every
  // VRF of the kernel.
  std::set<std::string> used_vrfs{};
  std::vector<SuiteFamily> families{};
  bool has_bgp = false;  // an instance of BGP, of a VRF or not
};

// Reads any text; what it does not know is skipped.
SuiteConfiguration parse_suite_configuration(std::string_view text);

}  // namespace cli::doctor
