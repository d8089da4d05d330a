#include "sources/file/apply_router.h"

#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace router_file {

namespace {

using reconcile::WantedRouter;
using router::Interface;
using router::Router;
using router::Vrf;

void want_references(const RouterFile& file, const Router& model, WantedRouter* wanted) {
  const std::unordered_set<std::string_view> named(file.references.begin(), file.references.end());
  wanted->references = file.references;
  model.for_each_reference([&](const std::string& name) {
    const bool is_ours = model.is_referenced(name, router::ReferenceHolder::kSource);
    if (is_ours && !named.contains(name)) wanted->ended_references.push_back(name);
  });
}

void want_vrfs(RouterFile* file, const Router& model, WantedRouter* wanted) {
  std::unordered_map<std::string_view, std::uint32_t> ids;
  for (const Vrf& vrf : file->vrfs) ids.emplace(vrf.name, vrf.id);
  model.for_each_vrf([&](const Vrf& present) {
    const auto id = ids.find(present.name);
    const bool stays = present.name == router::kDefaultVrf || (id != ids.end() && id->second == present.id);
    if (!stays) wanted->deleted_vrfs.push_back(present.name);
  });
  for (Vrf& vrf : file->vrfs) wanted->vrfs.push_back({std::move(vrf), {}});
  file->vrfs.clear();
}

void want_interfaces(RouterFile* file, const Router& model, WantedRouter* wanted) {
  std::unordered_set<std::uint32_t> indexes;
  indexes.reserve(file->interfaces.size());
  for (const Interface& interface : file->interfaces) indexes.insert(interface.index);
  model.for_each_interface([&](const Interface& present) {
    if (!indexes.contains(present.index)) wanted->removed_interfaces.push_back(present.index);
  });
  wanted->interfaces = std::exchange(file->interfaces, {});
}

void append_count(std::size_t count, const char* thing, const char* verb, std::string* text) {
  if (count == 0) return;
  if (!text->empty()) *text += ", ";
  *text += std::to_string(count) + " " + thing + (count == 1 ? " " : "s ") + verb;
}

WantedRouter wanted_router(RouterFile* file, const Router& model) {
  WantedRouter wanted;
  want_references(*file, model, &wanted);
  want_vrfs(file, model, &wanted);
  want_interfaces(file, model, &wanted);
  return wanted;
}

}  // namespace

RouterApplication::RouterApplication(RouterFile* file, Router* model)
    : run_(wanted_router(file, *model), model, this) {}

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
