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

class RouterApplication : private reconcile::Policy {
 public:
  // Moves the VRFs and interfaces out of the file. The model must outlive it. REQUIRES: `file` was made by
  // parse().
  RouterApplication(RouterFile* file, router::Router* model);

  // Handles up to `items` (> 0) references, VRFs and interfaces. The first change that the model refuses ends
  // it, with its status and the reason in error(); earlier changes remain, and the next application continues
  // from there, as it does from one that was destroyed early.
  [[nodiscard]] Status step(std::size_t items) { return run_.step(items); }
  bool is_done() const { return run_.is_done(); }
  const Changes& changes() const { return run_.changes(); }
  const std::string& error() const { return error_; }

 private:
  Status on_refusal(const reconcile::Refusal& refusal) override;

  std::string error_;
  reconcile::Run run_;
};

inline constexpr char kNothingChanged[] = "nothing changed";
// "2 VRFs created, 1 interface moved", or kNothingChanged.
std::string changes_text(const Changes& changes, const RouteChanges& routes = {});

}  // namespace router_file
