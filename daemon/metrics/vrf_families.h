// The families with samples of each VRF. Only for this folder.
//
// At most 25 samples for a VRF with both address families, four routing protocols in each, and two
// thresholds; besides one for each watched prefix, and for each interface, if they are wanted.
#pragma once

#include <cstddef>

#include "daemon/metrics/facts.h"
#include "mpls/vpn/mib/src/vrf/entry.h"
#include "platform/core/metrics/text_format.h"
#include "platform/router/route_watch/route_watch.h"

namespace daemon_metrics {

// Valid during one call.
struct VrfFacts {
  const Facts& all;
  const VtabVrfRecord& record;
  const router::Vrf& model;
};

using AddVrf = void (*)(const VrfFacts& vrf, metrics::Samples* samples);

// Visits the VRFs of the MIB in its order, each with `add`.
bool add_each_vrf(const Facts& facts, Position* position, Room* room, metrics::Samples* samples, AddVrf add);

template <AddVrf kAdd>
bool add_vrfs(const Facts& facts, Position* position, Room* room, metrics::Samples* samples) {
  return add_each_vrf(facts, position, room, samples, kAdd);
}

void add_vrf_info(const VrfFacts& vrf, metrics::Samples* samples);
void add_vrf_up(const VrfFacts& vrf, metrics::Samples* samples);
void add_vrf_interfaces(const VrfFacts& vrf, metrics::Samples* samples);
void add_vrf_routes(const VrfFacts& vrf, metrics::Samples* samples);
void add_vrf_route_changes(const VrfFacts& vrf, metrics::Samples* samples);
void add_vrf_created(const VrfFacts& vrf, metrics::Samples* samples);
void add_vrf_last_change(const VrfFacts& vrf, metrics::Samples* samples);
void add_route_target_changes(const VrfFacts& vrf, metrics::Samples* samples);
void add_rd_changes(const VrfFacts& vrf, metrics::Samples* samples);

// The VRFs whose routes are watched.
using AddWatched = void (*)(const Facts& facts, const route_watch::WatchedVrf& vrf,
                            metrics::Samples* samples);
bool add_each_watched(const Facts& facts, Position* position, Room* room, metrics::Samples* samples,
                      AddWatched add);

template <AddWatched kAdd>
bool add_watched(const Facts& facts, Position* position, Room* room, metrics::Samples* samples) {
  return add_each_watched(facts, position, room, samples, kAdd);
}

// Of VRFs that exist.
void add_thresholds(const Facts& facts, const route_watch::WatchedVrf& vrf, metrics::Samples* samples);
void add_watched_prefixes(const Facts& facts, const route_watch::WatchedVrf& vrf, metrics::Samples* samples);

bool add_vrf_devices(const Facts& facts, Position* position, Room* room, metrics::Samples* samples);

}  // namespace daemon_metrics
