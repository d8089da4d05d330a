#include "daemon/metrics/vrf_families.h"

#include <array>
#include <charconv>
#include <iterator>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/records/syntax.h"
#include "mpls/vpn/mib/src/vrf/counters.h"
#include "platform/router/model/address.h"
#include "platform/router/vpn_events/vpn_events.h"

namespace daemon_metrics {

namespace {

using metrics::Samples;

class NumberText {
 public:
  explicit NumberText(std::uint32_t number)
      : end_(std::to_chars(digits_.data(), digits_.data() + digits_.size(), number).ptr) {}
  std::string_view get() const { return {digits_.data(), static_cast<std::size_t>(end_ - digits_.data())}; }

 private:
  std::array<char, 10> digits_;
  const char* end_;
};

struct InterfaceCounts {
  std::uint32_t associated = 0;
  std::uint32_t active = 0;
};

InterfaceCounts interfaces_of(const VrfFacts& vrf) {
  InterfaceCounts counts;
  fill_vrf_counters(vrf.record.vrf_name, nullptr, &counts.associated, &counts.active);
  return counts;
}

std::string_view text_of(const char* text) {
  return text == nullptr ? std::string_view() : std::string_view(text);
}

// A family in which the VRF has, or had, a table.
bool is_counted(const VrfFacts& vrf, const RouteFamily& family, const router::RouteCounts& counts) {
  return vrf.model.*family.table != 0 || counts.protocols_seen != 0;
}

template <typename Visit>
void for_each_family(const VrfFacts& vrf, Visit visit) {
  for (std::size_t family = 0; family < kFamilies; ++family) {
    const router::RouteCounts counts = vrf.all.routes->of(vrf.model, family);
    if (is_counted(vrf, kRouteFamilies[family], counts)) visit(kRouteFamilies[family].label, counts);
  }
}

}  // namespace

bool add_each_vrf(const Facts& facts, Position* position, Room* room, Samples* samples, AddVrf add) {
  const VrfNode* node = mpls_vpn_mib_get_next_vrf(position->vrf.c_str());
  for (; node != nullptr && room->is_left(*samples); node = mpls_vpn_mib_get_following_vrf(node)) {
    --room->rows;
    const router::Vrf* const model = facts.model->find_vrf(node->vrf_name);
    // Between the deletion of a VRF and its notification the database has it and the model does not.
    if (model != nullptr) add({facts, *node->vrf_rec, *model}, samples);
  }
  if (node != nullptr) position->vrf = node->vrf_name;
  return node == nullptr;
}

void add_vrf_info(const VrfFacts& vrf, Samples* samples) {
  samples->add({{"vrf", vrf.model.name},
                {"rd", text_of(mpls_vpn_vrf_attributes(&vrf.record)->rd)},
                {"table4", NumberText(vrf.model.ipv4_table).get()},
                {"table6", NumberText(vrf.model.ipv6_table).get()}},
               1);
}

void add_vrf_up(const VrfFacts& vrf, Samples* samples) {
  samples->add({{"vrf", vrf.model.name}}, interfaces_of(vrf).active != 0 ? 1 : 0);
}

void add_vrf_interfaces(const VrfFacts& vrf, Samples* samples) {
  const InterfaceCounts counts = interfaces_of(vrf);
  samples->add({{"vrf", vrf.model.name}, {"state", "active"}}, counts.active);
  samples->add({{"vrf", vrf.model.name}, {"state", "inactive"}}, counts.associated - counts.active);
}

void add_vrf_routes(const VrfFacts& vrf, Samples* samples) {
  for_each_family(vrf, [&](std::string_view afi, const router::RouteCounts& counts) {
    for (std::uint32_t protocol = 1; protocol < router::kCountedProtocols; ++protocol) {
      if ((counts.protocols_seen >> protocol & 1U) == 0) continue;
      samples->add(
          {{"vrf", vrf.model.name}, {"afi", afi}, {"protocol", mib::kRouteProtocolNames[protocol - 1]}},
          counts.by_protocol[protocol]);
    }
  });
}

void add_vrf_route_changes(const VrfFacts& vrf, Samples* samples) {
  for_each_family(vrf, [&](std::string_view afi, const router::RouteCounts& counts) {
    samples->add({{"vrf", vrf.model.name}, {"afi", afi}, {"change", "added"}}, counts.added);
    samples->add({{"vrf", vrf.model.name}, {"afi", afi}, {"change", "removed"}}, counts.removed);
  });
}

void add_vrf_created(const VrfFacts& vrf, Samples* samples) {
  samples->add({{"vrf", vrf.model.name}}, mpls_vpn_vrf_attributes(&vrf.record)->creation_time);
}

void add_vrf_last_change(const VrfFacts& vrf, Samples* samples) {
  samples->add({{"vrf", vrf.model.name}}, mpls_vpn_vrf_attributes(&vrf.record)->conf_last_changed_time);
}

void add_route_target_changes(const VrfFacts& vrf, Samples* samples) {
  const VpnChangeCounts counts = vpn_events_counts(vrf.model.name);
  samples->add({{"vrf", vrf.model.name}, {"direction", "import"}}, counts.import_targets);
  samples->add({{"vrf", vrf.model.name}, {"direction", "export"}}, counts.export_targets);
}

void add_rd_changes(const VrfFacts& vrf, Samples* samples) {
  samples->add({{"vrf", vrf.model.name}}, vpn_events_counts(vrf.model.name).rd);
}

bool add_each_watched(const Facts& facts, Position* position, Room* room, Samples* samples, AddWatched add) {
  while (const route_watch::WatchedVrf* const next = route_watch::watched_after(position->vrf)) {
    if (!room->is_left(*samples)) return false;
    --room->rows;
    position->vrf = next->name();
    add(facts, *next, samples);
  }
  return true;
}

void add_thresholds(const Facts& facts, const route_watch::WatchedVrf& vrf, Samples* samples) {
  if (facts.model->find_vrf(vrf.name()) == nullptr) return;
  for (std::size_t family = 0; family < kFamilies; ++family) {
    const auto add = [&](std::string_view level, std::uint32_t routes) {
      if (routes == 0) return;
      samples->add({{"vrf", vrf.name()}, {"afi", kRouteFamilies[family].label}, {"level", level}}, routes);
    };
    add("low", vrf.table(family).low);
    add("mid", vrf.table(family).mid);
    add("maximum", vrf.table(family).maximum);
  }
}

void add_watched_prefixes(const Facts& /*facts*/, const route_watch::WatchedVrf& vrf, Samples* samples) {
  vrf.for_each_prefix([&](const router::Address& prefix, const route_watch::WatchedPrefix& watched) {
    if (vrf.table(prefix.family == router::Family::kIpv4 ? 0 : 1).unread_since != 0) return;
    samples->add({{"vrf", vrf.name()}, {"prefix", router::format_address(prefix)}},
                 watched.is_present ? 1 : 0);
  });
}

// Interface by interface, so that a VRF with many of them is divided, too.
bool add_vrf_devices(const Facts& facts, Position* position, Room* room, Samples* samples) {
  if (!facts.with_interfaces) return true;
  while (const router::Interface* const next = facts.model->interface_after(position->interface)) {
    if (!room->is_left(*samples)) return false;
    --room->rows;
    position->interface = next->handle;
    if (next->vrf == router::kDefaultVrf || facts.model->find_vrf(next->vrf.view()) == nullptr) continue;
    samples->add({{"vrf", next->vrf.view()}, {"device", next->name.view()}}, 1);
  }
  return true;
}

}  // namespace daemon_metrics
