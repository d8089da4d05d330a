// Changes the router model to a router file: everything that the file does not name is removed, including
// what was added by other means. Routes are not part of it: route_feeder.h.
#pragma once

#include <cstddef>
#include <string>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"
#include "sources/file/reader/router_file.h"
#include "sources/reconcile/reconcile.h"

namespace router_file {

using reconcile::Changes;

struct RouteChanges {
  std::size_t added = 0;
  std::size_t changed = 0;
  std::size_t removed = 0;
};

// Moves the VRFs and interfaces out of the file. REQUIRES: `file` was made by parse(). The first change that
// the model refuses ends it, with its status and the reason in *error; earlier changes remain, and the next
// call continues from there.
[[nodiscard]] Status apply_router(RouterFile* file, router::Router* model, Changes* changes,
                                  std::string* error);

inline constexpr char kNothingChanged[] = "nothing changed";
// "2 VRFs created, 1 interface moved", or kNothingChanged.
std::string changes_text(const Changes& changes, const RouteChanges& routes = {});

}  // namespace router_file
