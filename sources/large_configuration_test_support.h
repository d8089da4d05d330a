// For tests and benchmarks: the configuration of many dual-stack VRFs, as the routing suite prints it and as
// a router file. In each family a VRF has two route targets per direction, two policies and a neighbor; the
// suite has an RD, too.
#pragma once

#include <cstdio>
#include <string>

inline std::string vrf_name_of(unsigned number) {
  char name[16];
  std::snprintf(name, sizeof name, "vrf%05u", number);
  return name;
}

inline std::string ipv4_neighbor_of(unsigned number) {
  return "10." + std::to_string(number / 65536) + "." + std::to_string(number / 256 % 256) + "." +
         std::to_string(number % 256);
}

inline std::string ipv6_neighbor_of(unsigned number) {
  return "2001:db8::" + ipv4_neighbor_of(number);
}

inline std::string targets_of(unsigned number, const char* separator) {
  return "65000:" + std::to_string(number) + separator + "64999:" + std::to_string(number);
}

inline constexpr std::size_t kNodesOfSuitesVrf = 16;
inline constexpr std::size_t kNodesOfFilesVrf = 14;

inline std::string suite_family(const char* family, const std::string& neighbor, unsigned number) {
  const std::string targets = targets_of(number, " ");
  return std::string(" address-family ") + family + " unicast\n  neighbor " + neighbor + " activate\n" +
         "  route-map vpn import RM-IN\n  route-map vpn export RM-OUT\n  label vpn export auto\n" +
         "  rd vpn export 65000:" + std::to_string(number) + "\n  rt vpn import " + targets +
         "\n  rt vpn export " + targets + "\n  export vpn\n  import vpn\n exit-address-family\n";
}

// bgpd's running configuration of the VRFs from 1 on.
inline std::string suite_configuration(unsigned vrfs) {
  std::string text;
  for (unsigned number = 1; number <= vrfs; ++number) {
    const std::string ipv4 = ipv4_neighbor_of(number);
    const std::string ipv6 = ipv6_neighbor_of(number);
    text += "router bgp 65000 vrf " + vrf_name_of(number) + "\n no bgp default ipv4-unicast\n neighbor " +
            ipv4 + " remote-as 65101\n neighbor " + ipv6 + " remote-as 65101\n !\n" +
            suite_family("ipv4", ipv4, number) + " !\n" + suite_family("ipv6", ipv6, number) + "exit\n!\n";
  }
  return text;
}

// A router file with the VRFs from 1 on; without `configured` they have no configuration.
inline std::string router_file_text(unsigned vrfs, bool configured = true) {
  std::string text = "vrfs:\n";
  for (unsigned number = 1; number <= vrfs; ++number) {
    text += " - {name: " + vrf_name_of(number) + ", id: " + std::to_string(number + 99);
    if (configured)
      text += ", route_targets: {both: [" + targets_of(number, ", ") +
              "]}, policies: {import: {ipv4: RM-IN, ipv6: RM-IN}, export: {ipv4: RM-OUT, ipv6: RM-OUT}}, " +
              "bgp: {as: 65000, neighbors: [" + ipv4_neighbor_of(number) + ", \"" + ipv6_neighbor_of(number) +
              "\"]}";
    text += "}\n";
  }
  return text;
}
