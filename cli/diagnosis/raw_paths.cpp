#include "cli/diagnosis/raw_paths.h"

#include <fmt/format.h>

namespace cli {

namespace {

constexpr bool kYes = true;
constexpr bool kNo = false;

constexpr RawPath kPaths[] = {
    {"scalars", kYes, kNo, kNo, "scalars of the MIB"},
    {"interface-next/VRF/IFINDEX", kYes, kNo, kNo, "the interface in a VRF after it"},
    {"vrf/VRF", kYes, kNo, kNo, "VRF"},
    {"vrf-next/VRF", kYes, kNo, kNo, "the VRF after it"},
    {"vrf-detail/VRF", kYes, kYes, kYes, "VRF as in \"show vrf detail\"; lists: it and those after it"},
    {"vrf-detail-filter/VRF/AFI/SAFI", kNo, kYes, kYes, "the same, those with the address family only"},
    {"vrf-invalid-detail/VRF", kYes, kYes, kYes, "VRF that does not exist and has interfaces"},
    {"rt/VRF/INDEX/TYPE", kYes, kNo, kNo, "route target"},
    {"rt-next/VRF/INDEX/TYPE", kYes, kNo, kNo, "the route target after it"},
    {"route/VRF/TYPE/LENGTH/TYPE/DESTINATION/NEXTHOP", kYes, kNo, kNo,
     "route; each TYPE is an InetAddressType"},
    {"route-next/VRF/TYPE/LENGTH/TYPE/DESTINATION/NEXTHOP", kYes, kNo, kNo, "the route after it"},
    {"/oper/interfaces/name/NAME", kYes, kYes, kNo, "interface in any VRF or none; list: those after it"},
    {"/oper/interfaces/index/IFINDEX", kYes, kNo, kNo, "the same by ifIndex"},
    {"/oper/interfaces/next/HANDLE", kYes, kNo, kNo, "the one after this handle, 0: the first"},
    {"/oper/notifications/latest/N", kYes, kNo, kNo, "the latest notifications"},
    {"/oper/process/status", kYes, kNo, kNo, "state of the daemon"},
    {"/oper/route_watch/vrf-next/VRF", kYes, kNo, kNo, "watched routes of the next VRF that has some"},
};

}  // namespace

std::span<const RawPath> raw_paths() {
  return kPaths;
}

std::string raw_paths_help() {
  std::string text = "Paths:\n";
  for (const RawPath& each : kPaths) {
    text += fmt::format("  {}\n      {}{}{}: {}\n", each.path, each.is_read ? "get" : "",
                        each.is_listed ? (each.is_read ? ", list" : "list") : "",
                        each.has_records ? ", datalist" : "", each.contents);
  }
  return text;
}

}  // namespace cli
