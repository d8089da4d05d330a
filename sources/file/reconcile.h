// Brings the router model to what a router file says, as a difference: what is the same is not touched and no
// observer hears of it.
//
// A VRF is the same while its name and id are, an interface while its index is (a new name is a rename, a new
// index another interface, as for the host's IF-MIB). What the file does not name goes, including what was
// added by other means.
// Routes are not part of it: route_feeder.h.
#pragma once

#include <cstddef>
#include <string>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"
#include "sources/file/reader/router_file.h"

namespace router_file {

struct Changes {
  std::size_t vrfs_created = 0;
  std::size_t vrfs_changed = 0;
  std::size_t vrfs_deleted = 0;
  std::size_t interfaces_added = 0;
  std::size_t interfaces_changed = 0;
  std::size_t interfaces_moved = 0;
  std::size_t interfaces_removed = 0;
};

struct RouteChanges {
  std::size_t added = 0;
  std::size_t changed = 0;
  std::size_t removed = 0;
};

// REQUIRES: `file` came out of parse(). The first change that the model refuses ends it, with its status and,
// in *error, what was refused; what was done until then stays, and the next reconcile() goes on from there.
// Fault point "router_file_reconcile" (before each change).
[[nodiscard]] Status reconcile(const RouterFile& file, router::Router* model, Changes* changes,
                               std::string* error);

inline constexpr char kNothingChanged[] = "nothing changed";
// "2 VRFs created, 1 interface moved", or kNothingChanged.
std::string changes_text(const Changes& changes, const RouteChanges& routes = {});

}  // namespace router_file
