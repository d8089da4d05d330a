#include "daemon/metrics/families.h"

#include "daemon/metrics/process_families.h"
#include "daemon/metrics/vrf_families.h"

namespace daemon_metrics {

namespace {

using metrics::Samples;
using metrics::Type;

template <void (*kAdd)(const Facts& facts, Samples* samples)>
bool add_once(const Facts& facts, Position* /*position*/, Room* /*room*/, Samples* samples) {
  kAdd(facts, samples);
  return true;
}

void add_up(const Facts& /*facts*/, Samples* samples) {
  samples->add({}, 1);
}

void add_build_info(const Facts& facts, Samples* samples) {
  samples->add({{"version", facts.version}}, 1);
}

constexpr FamilyRow kFamilyRows[] = {
    {{"mplsvpn_up", Type::kGauge, "1 while the daemon runs."}, add_once<add_up>},
    {{"mplsvpn_build_info", Type::kGauge, "Version of the daemon; the value is 1."},
     add_once<add_build_info>},
    {{"mplsvpn_source_up", Type::kGauge,
      "1 if the last answer of a source of the router was complete, else 0."},
     add_once<add_sources_up>},
    {{"mplsvpn_source_last_answer_timestamp_seconds", Type::kGauge,
      "When a source of the router answered last, in seconds since 1970."},
     add_once<add_source_answers>},
    {{"mplsvpn_notifications_total", Type::kCounter, "SNMP notifications that were raised, by type."},
     add_once<add_notifications>},
    {{"mplsvpn_notifications_waiting", Type::kGauge, "SNMP notifications that snmpd has not received yet."},
     add_once<add_waiting_notifications>},
    {{"mplsvpn_request_duration_seconds", Type::kHistogram,
      "Time from the beginning of a request of a command or an SNMP front end to its answer, by kind."},
     add_once<add_request_durations>},
    {{"mplsvpn_route_check_corrections_total", Type::kCounter,
      "Routes and next-hop objects that a check of the kernel's tables had to correct, by table."},
     add_once<add_corrections>},
    {{"mplsvpn_vrf_info", Type::kGauge,
      "Route distinguisher and unicast tables of a VRF; the value is 1. A table 0 is none."},
     add_vrfs<add_vrf_info>},
    {{"mplsvpn_vrf_up", Type::kGauge, "1 while a VRF has an active interface, else 0."},
     add_vrfs<add_vrf_up>},
    {{"mplsvpn_vrf_interfaces", Type::kGauge,
      "Interfaces of a VRF by state. An active one is up and has an address of the family in which it is "
      "up."},
     add_vrfs<add_vrf_interfaces>},
    {{"mplsvpn_vrf_routes", Type::kGauge, "Routes of a VRF's unicast tables by address family and protocol."},
     add_vrfs<add_vrf_routes>},
    {{"mplsvpn_vrf_route_changes_total", Type::kCounter,
      "Routes added to and removed from a VRF's unicast tables. One that changes counts as both."},
     add_vrfs<add_vrf_route_changes>},
    {{"mplsvpn_vrf_routes_threshold", Type::kGauge,
      "Configured thresholds of a VRF's unicast tables, in routes."},
     add_watched<add_thresholds>},
    {{"mplsvpn_watched_prefix_present", Type::kGauge,
      "1 if a watched prefix has a route in the VRF, else 0."},
     add_watched<add_watched_prefixes>},
    {{"mplsvpn_vrf_created_timestamp_seconds", Type::kGauge,
      "When a VRF was created, in seconds since 1970."},
     add_vrfs<add_vrf_created>},
    {{"mplsvpn_vrf_last_change_timestamp_seconds", Type::kGauge,
      "When a VRF's configuration or interfaces changed last, in seconds since 1970."},
     add_vrfs<add_vrf_last_change>},
    {{"mplsvpn_vrf_interface_info", Type::kGauge, "Network device in a VRF; the value is 1."},
     add_vrf_devices},
    {{"mplsvpn_route_target_changes_total", Type::kCounter,
      "Changes of a VRF's effective route targets by direction."},
     add_vrfs<add_route_target_changes>},
    {{"mplsvpn_rd_changes_total", Type::kCounter, "Changes of a VRF's effective route distinguisher."},
     add_vrfs<add_rd_changes>},
};

}  // namespace

std::span<const FamilyRow> families() {
  return kFamilyRows;
}

bool Scrape::add_part(Room room, std::string* text) {
  while (family_ < families().size() && room.rows > 0 && text->size() < room.octets) {
    const FamilyRow& row = families()[family_];
    Samples samples(row.family, text);
    if (!has_begun_) samples.add_header();
    has_begun_ = !row.add_some(*facts_, &position_, &room, &samples);
    if (has_begun_) continue;
    position_ = {};
    ++family_;
  }
  return family_ < families().size();
}

}  // namespace daemon_metrics
