#include "sources/file/apply_router.h"

#include <utility>

namespace router_file {

namespace {

using reconcile::WantedRouter;
using router::Router;
using router::Vrf;

void append_count(std::size_t count, const char* thing, const char* verb, std::string* text) {
  if (count == 0) return;
  if (!text->empty()) *text += ", ";
  *text += std::to_string(count) + " " + thing + (count == 1 ? " " : "s ") + verb;
}

WantedRouter wanted_router(RouterFile* file) {
  WantedRouter wanted;
  wanted.is_complete = true;
  wanted.references = std::exchange(file->references, {});
  wanted.vrfs.reserve(file->vrfs.size());
  for (Vrf& vrf : file->vrfs) wanted.vrfs.push_back({std::move(vrf), {}});
  file->vrfs.clear();
  wanted.interfaces = std::exchange(file->interfaces, {});
  return wanted;
}

}  // namespace

RouterApplication::RouterApplication(RouterFile* file, Router* model)
    : run_(wanted_router(file), model, this) {}

Status RouterApplication::on_refusal(const reconcile::Refusal& refusal) {
  error_ = refusal.text();
  return refusal.status;
}

std::string changes_text(const Changes& changes, const RouteChanges& routes) {
  std::string text;
  append_count(changes.vrfs_created, "VRF", "created", &text);
  append_count(changes.vrfs_changed, "VRF", "changed", &text);
  append_count(changes.vrfs_deleted, "VRF", "deleted", &text);
  append_count(changes.interfaces_added, "interface", "added", &text);
  append_count(changes.interfaces_changed, "interface", "changed", &text);
  append_count(changes.interfaces_moved, "interface", "moved", &text);
  append_count(changes.interfaces_removed, "interface", "removed", &text);
  append_count(routes.added, "route", "added", &text);
  append_count(routes.changed, "route", "changed", &text);
  append_count(routes.removed, "route", "removed", &text);
  return text.empty() ? kNothingChanged : text;
}

}  // namespace router_file
