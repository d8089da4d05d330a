#include "platform/router/vpn_events/changes.h"

#include <algorithm>
#include <array>
#include <compare>
#include <map>
#include <tuple>
#include <utility>

#include "platform/config/vrf_config.h"
#include "platform/router/model/router.h"

namespace vpn_events {

namespace {

using vrf_config::Direction;
using vrf_config::Family;
using vrf_config::kFamiliesOfTargets;
using vrf_config::Target;
using vrf_config::TargetPath;

// The RDs that a VRF has.
struct Rds {
  std::array<Held, kFamiliesOfTargets.size()> own;  // of each family
  Held model;

  const Held& of_vrf() const {
    const auto has_text = [](const Held& held) { return !held.text.empty(); };
    const auto found = std::ranges::find_if(own, has_text);
    return found == own.end() ? model : *found;
  }
};

struct TargetBefore {
  bool operator()(const Target& left, const Target& right) const {
    const auto key = [](const Target& each) {
      return std::tuple(each.type, each.administrator, each.assigned);
    };
    return key(left) < key(right);
  }
};
// The owners of targets that are removed or added.
using Owners = std::map<Target, std::string, TargetBefore>;
struct TargetChanges {
  Owners removed;
  Owners added;
};

struct VrfChanges {
  std::map<Family, const KvConfigCommitChange*> rds;
  std::map<std::pair<Direction, Family>, TargetChanges> targets;
};
using ChangesByVrf = std::map<std::string, VrfChanges, router::ShorterFirst>;

Held held_by_model(const Held& rd) {
  if (rd.text.empty()) return {};
  const std::optional<Target> parsed = vrf_config::parse_target(rd.text);
  return {parsed ? vrf_config::target_text(*parsed) : rd.text, rd.owner};
}

Held held(const std::optional<KvValue>& value, std::string_view owner) {
  if (!value || value->type != KvValueType::kText || value->text.empty()) return {};
  return {value->text, std::string(owner)};
}

Rds rds_now(const std::string& vrf, const Held& model_rd) {
  Rds rds;
  for (std::size_t at = 0; at < kFamiliesOfTargets.size(); ++at) {
    const auto found =
        kvtree_config_find(vrf_config::route_distinguisher(vrf, kFamiliesOfTargets[at], {}).path);
    if (found) rds.own[at] = held(found->value, found->owner);
  }
  rds.model = held_by_model(model_rd);
  return rds;
}

Rds rds_before(Rds rds, const std::map<Family, const KvConfigCommitChange*>& changes) {
  for (std::size_t at = 0; at < kFamiliesOfTargets.size(); ++at) {
    const auto change = changes.find(kFamiliesOfTargets[at]);
    if (change != changes.end()) rds.own[at] = held(change->second->before, change->second->owner_before);
  }
  return rds;
}

void add_rd_changes(const std::string& vrf, const Rds& before, const Rds& now, std::vector<Change>* changes) {
  const auto add = [&](std::uint32_t family, const Held& from, const Held& to) {
    if (from.text != to.text) changes->push_back({vrf, Item::kRouteDistinguisher, family, from, to});
  };
  add(0, before.of_vrf(), now.of_vrf());
  const auto is_special = [](const Held& own, const Rds& rds) {
    return !own.text.empty() && own.text != rds.of_vrf().text;
  };
  for (std::size_t at = 0; at < kFamiliesOfTargets.size(); ++at) {
    if (is_special(before.own[at], before) || is_special(now.own[at], now))
      add(static_cast<std::uint32_t>(kFamiliesOfTargets[at]), before.own[at], now.own[at]);
  }
}

void add_target_changes(const Change& item, const TargetChanges& targets, std::vector<Change>* changes) {
  auto removed = targets.removed.begin();
  auto added = targets.added.begin();
  const auto take = [](auto& at, const Owners& all) -> Held {
    if (at == all.end()) return {};
    const auto& [target, owner] = *at++;
    return {vrf_config::target_text(target), owner};
  };
  while (removed != targets.removed.end() || added != targets.added.end()) {
    Change change = item;
    change.before = take(removed, targets.removed);
    change.after = take(added, targets.added);
    changes->push_back(std::move(change));
  }
}

// A target that exists before and after is unchanged; its path is its value.
void take_target(const TargetPath& path, const KvConfigCommitChange& change, VrfChanges* vrf) {
  TargetChanges& targets = vrf->targets[{*path.direction, path.family}];
  if (change.before && !change.after) targets.removed[path.target] = change.owner_before;
  if (change.after && !change.before) targets.added[path.target] = change.owner_after;
}

ChangesByVrf sort_by_vrf(const std::vector<KvConfigCommitChange>& commit) {
  ChangesByVrf by_vrf;
  for (const KvConfigCommitChange& change : commit) {
    const std::optional<TargetPath> path = vrf_config::target_path_of(change.path);
    if (!path) continue;
    VrfChanges& vrf = by_vrf[path->vrf];
    if (path->direction) {
      take_target(*path, change, &vrf);
    } else {
      vrf.rds[path->family] = &change;
    }
  }
  return by_vrf;
}

}  // namespace

std::vector<Change> changes_of_commit(const std::vector<KvConfigCommitChange>& commit,
                                      const ModelRd& model_rd) {
  std::vector<Change> changes;
  for (const auto& [vrf, changed] : sort_by_vrf(commit)) {
    if (!changed.rds.empty()) {
      const Rds now = rds_now(vrf, model_rd(vrf));
      add_rd_changes(vrf, rds_before(now, changed.rds), now, &changes);
    }
    for (const auto& [of, targets] : changed.targets) {
      const Item item = of.first == Direction::kImport ? Item::kImportTarget : Item::kExportTarget;
      add_target_changes({vrf, item, static_cast<std::uint32_t>(of.second), {}, {}}, targets, &changes);
    }
  }
  return changes;
}

std::vector<Change> changes_of_model(const std::string& vrf, const Held& before, const Held& now) {
  const Rds rds = rds_now(vrf, now);
  Rds former = rds;
  former.model = held_by_model(before);
  std::vector<Change> changes;
  add_rd_changes(vrf, former, rds, &changes);
  return changes;
}

}  // namespace vpn_events
