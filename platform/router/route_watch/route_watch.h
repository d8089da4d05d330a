// Watches what is missing: tables with fewer routes than their low-water mark, and prefixes without a route.
//
//   vrf NAME low-water ipv4|ipv6 LOW HOLD   the table has been below LOW routes for HOLD seconds: it is low,
//                                           until it has LOW routes or more
//   vrf NAME watch PREFIX                   the VRF's table has a route to the prefix itself, or none
//
// Routes to a watched prefix that discard packets do not count. A VRF that does not exist has no routes. Each
// change of a state is logged: a table that becomes low, or no longer is; a prefix that loses its last route,
// or has one again. A prefix that never had one is not logged. No SNMP notification is raised: the MIB has
// none for this. The route thresholds, which do raise some (platform/router/rib_threshold), are listed as
// well.
//
// At most kMostPrefixes prefixes are watched. A further one is logged, answered as not watched, and watched
// when others are no longer configured, in the order of the configuration.
//
// With a file (route_watch_store_in), states and their times outlive the process: a prefix that lost its
// route while no daemon ran is reported by the next one, and the time below a mark continues. A process that
// is killed loses the changes of its last second, or two.
//
// Cost: a change of routes marks the watched VRFs of its table, in O(log VRFs). Marked VRFs are compared at
// most every kCheckInterval, in steps on the event loop, a prefix in O(log routes): what changes and returns
// meanwhile is not seen. Only a table that was not read yet is polled. Main thread only.
//
// A table is compared once its routes have been read: before, all of them look lost. One that is not read
// after kLongReading is logged, and answered as not read for as long as it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "platform/router/route_watch/watched_vrf.h"

namespace route_watch {

// The watched VRFs in the order of their names. `routes_of(vrf, family)` of watched_vrf.h has their numbers.
void for_each_watched(const std::function<void(const WatchedVrf&)>& visit);
// The first one after this name, for walks in steps; null at the end. Valid until the next change.
const WatchedVrf* watched_after(const std::string& vrf);

}  // namespace route_watch

// Follows the configuration on this manager. Model and manager must live until route_watch_detach.
// kStatusExists when attached, or the status of binding or subscribing, with nothing attached.
[[nodiscard]] Status route_watch_attach(router::Router* model, EventManager* manager);
// The file of the next attachment. Empty: none.
void route_watch_store_in(const std::string& file);
// How the next attachment asks whether a table has been read since the start. Null: each one is.
void route_watch_ask(route_watch::HasRead has_read);
// Writes what has changed and waits for the disk: for the end of the process.
void route_watch_write_states();
void route_watch_detach();  // ignored when it is not attached
