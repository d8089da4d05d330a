// Notifications of the configuration say which VRFs have items. Items of protocols are stored by VRF and
// interface, because they are replayed; of the other items (below kVrfScope, where the items of a VRF are
// together) only the existence matters. A deletion counts only if the item is not effective when it is
// delivered, because a replay deletes items first. Whether a VRF still has items is looked up in the tree,
// once for all the deletions of one iteration of the event loop.
//
// Joins and creations of VRFs are notifications of the change feed, after those of the services, so that an
// item is replayed after its interface was announced. A timer without delay replays them in bounded steps.
#include "platform/router/config_references/config_references.h"

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/config/vrf_config.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/router/feed/feed.h"
#include "platform/router/vmap/vmap.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/server/followed_nodes.h"
#include "platform/store/tree/kvtree.h"

namespace {

using router::ReferenceHolder;

constexpr std::size_t kJoinsPerStep = 100;

struct VrfItems {
  bool is_referenced = false;
  bool has_own_items = false;                              // below kVrfScope
  std::map<std::string, std::set<std::string>> protocols;  // paths by interface; "" for the whole VRF
};

struct Join {
  std::string vrf;
  std::string interface;  // empty: the VRF itself was created
};

class Follower : public router::Observer {
 public:
  Follower(router::Router* model, EventManager* manager)
      : model_(model), manager_(manager), receiver_{manager} {}
  ~Follower() override;

  Status start();

  // Whether items are counted under this name, or were since the change feed was last empty.
  bool is_name_of_items(const std::string& vrf, const std::string& interface) const;

  void vrf_created(const router::Vrf& vrf) override {
    if (model_->is_referenced(vrf.name)) append({vrf.name, {}});
  }
  void interface_added(const router::Interface& interface) override { joined(interface); }
  void interface_moved(const router::Interface& now, const std::string&) override { joined(now); }
  void interface_changed(const router::Interface& before, const router::Interface& now) override {
    if (before.name != now.name || before.index != now.index) joined(now);
  }

 private:
  Status follow(std::string_view scope);
  void notified(const std::string& path, std::uint32_t events);
  void item_set(const std::string& path, const std::string& vrf);
  void item_deleted(const std::string& path, const std::string& vrf);
  void refer(const std::string& vrf, VrfItems* items);
  void check_later(const std::string& vrf);
  void check_unsure();
  void check(const std::string& vrf);

  void joined(const router::Interface& interface);
  void append(Join join);
  void start_replay();
  void replay_some();
  void add_items(const Join& join, std::set<std::string>* paths) const;
  void replay_description(const std::string& vrf) const;

  router::Router* model_;
  EventManager* manager_;
  feed::Receiver receiver_;
  FollowedNodes configuration_;
  std::unordered_map<std::string, VrfItems> vrfs_;
  std::set<std::string> unsure_;  // VRFs that lost an item
  // VRFs with the names of interfaces whose last item was deleted. During renames two interfaces may have the
  // same known name, and then the last deletion may have been counted for the other one.
  std::set<std::pair<std::string, std::string>> former_names_;
  std::deque<Join> joins_;
  EventTimerId checking_ = 0;
  EventTimerId replaying_ = 0;
};

std::unique_ptr<Follower>& follower() {
  static std::unique_ptr<Follower> the_follower;
  return the_follower;
}

bool is_effective(const std::string& path) {
  bool found = false;
  kvtree_config_effective(path, [&](const KvConfigNode& node) { found = found || node.path == path; });
  return found;
}

bool has_own_items(const std::string& vrf) {
  bool found = false;
  const std::string place = std::string(vrf_config::kVrfScope) + "vrf/" + kvtree_encode_text(vrf) + "/";
  kvtree_config_effective(place, [&](const KvConfigNode&) { found = true; });
  return found;
}

bool must_end(const char* vrf_name, const char* if_name) {
  return follower() != nullptr && follower()->is_name_of_items(vrf_name, if_name);
}

Follower::~Follower() {
  vmap_on_rename(nullptr);
  feed::drop(&receiver_);
  model_->stop_observing(this);
  if (checking_ != 0) event_timer_cancel(manager_, checking_);
  if (replaying_ != 0) event_timer_cancel(manager_, replaying_);
  for (const auto& [vrf, items] : vrfs_) {
    if (items.is_referenced) static_cast<void>(model_->unreference_vrf(vrf, ReferenceHolder::kConfiguration));
  }
}

Status Follower::start() {
  for (const std::string_view scope : vrf_config::scopes_of_vrfs()) {
    if (const Status status = follow(scope)) return status;
  }
  model_->observe(router::ObserverRank::kOther, this);
  vmap_on_rename(must_end);
  return kStatusOk;
}

Status Follower::follow(std::string_view scope) {
  return configuration_.follow(scope, manager_, [this, scope](const KvNotification* notification) {
    notified(std::string(scope).append(kvtree_notify_path(notification)),
             kvtree_notify_info(notification)->whichevent);
  });
}

void Follower::notified(const std::string& path, std::uint32_t events) {
  const std::optional<std::string> vrf = vrf_config::vrf_of(path);
  if (!vrf || *vrf == router::kDefaultVrf || !router::valid_vrf_name(*vrf)) return;
  if ((events & kKvEventDeleted) != 0) {
    item_deleted(path, *vrf);
  } else {
    item_set(path, *vrf);
  }
}

void Follower::item_set(const std::string& path, const std::string& vrf) {
  VrfItems& items = vrfs_[vrf];
  if (path.starts_with(vrf_config::kVrfScope)) {
    items.has_own_items = true;
  } else {
    items.protocols[vrf_config::interface_of(path).value_or("")].insert(path);
  }
  refer(vrf, &items);
}

void Follower::item_deleted(const std::string& path, const std::string& vrf) {
  const auto found = vrfs_.find(vrf);
  if (found == vrfs_.end()) return;
  if (!path.starts_with(vrf_config::kVrfScope)) {
    if (is_effective(path)) return;
    auto& protocols = found->second.protocols;
    const auto on_interface = protocols.find(vrf_config::interface_of(path).value_or(""));
    if (on_interface == protocols.end()) return;
    on_interface->second.erase(path);
    if (on_interface->second.empty()) {
      former_names_.emplace(vrf, on_interface->first);
      protocols.erase(on_interface);
    }
  }
  check_later(vrf);
}

// A refused reference is retried at the VRF's next item.
void Follower::refer(const std::string& vrf, VrfItems* items) {
  if (items->is_referenced) return;
  const Status status = model_->reference_vrf(vrf, ReferenceHolder::kConfiguration);
  items->is_referenced = status == kStatusOk;
  if (status != kStatusOk) {
    log_error("configuration", "VRF %s: its name cannot be referenced: %s", vrf.c_str(), err_text(status));
  }
}

void Follower::check_later(const std::string& vrf) {
  unsure_.insert(vrf);
  if (checking_ == 0) checking_ = event_timer_start(manager_, 0, [this] { check_unsure(); });
}

void Follower::check_unsure() {
  checking_ = 0;
  for (const std::string& vrf : std::exchange(unsure_, {})) check(vrf);
  if (feed::is_empty()) former_names_.clear();
}

bool Follower::is_name_of_items(const std::string& vrf, const std::string& interface) const {
  if (former_names_.contains({vrf, interface})) return true;
  const auto found = vrfs_.find(vrf);
  return found != vrfs_.end() && found->second.protocols.contains(interface);
}

void Follower::check(const std::string& vrf) {
  VrfItems& items = vrfs_[vrf];
  items.has_own_items = items.has_own_items && has_own_items(vrf);
  if (items.has_own_items || !items.protocols.empty()) return;
  if (items.is_referenced) {
    if (const Status status = model_->unreference_vrf(vrf, ReferenceHolder::kConfiguration)) {
      log_error("configuration", "VRF %s: its name cannot be released: %s", vrf.c_str(), err_text(status));
      return;
    }
  }
  vrfs_.erase(vrf);
}

void Follower::joined(const router::Interface& interface) {
  if (interface.vrf != router::kDefaultVrf) append({interface.vrf, interface.name});
}

void Follower::append(Join join) {
  feed::append(model_->changes(), feed::Phase::kFollowUp, &receiver_, [this, join = std::move(join)] {
    joins_.push_back(join);
    start_replay();
  });
}

void Follower::start_replay() {
  if (replaying_ == 0) replaying_ = event_timer_start(manager_, 0, [this] { replay_some(); });
}

// Each item once, however often its interface joined: an item that is set twice is counted twice.
void Follower::replay_some() {
  replaying_ = 0;
  std::set<std::string> paths;
  for (std::size_t count = 0; count < kJoinsPerStep && !joins_.empty(); ++count) {
    if (joins_.front().interface.empty()) {
      replay_description(joins_.front().vrf);
    } else {
      add_items(joins_.front(), &paths);
    }
    joins_.pop_front();
  }
  if (!paths.empty()) {
    if (const Status status = kvtree_config_replay({paths.begin(), paths.end()}))
      log_error("configuration", "the items of VRFs cannot be announced again: %s", err_text(status));
  }
  if (!joins_.empty()) start_replay();
}

void Follower::replay_description(const std::string& vrf) const {
  if (model_->find_vrf(vrf) == nullptr) return;  // deleted again
  if (const Status status = kvtree_config_announce(vrf_config::description(vrf, {}).path))
    log_error("configuration", "VRF %s: its description cannot be announced again: %s", vrf.c_str(),
              err_text(status));
}

void Follower::add_items(const Join& join, std::set<std::string>* paths) const {
  const auto vrf = vrfs_.find(join.vrf);
  if (vrf == vrfs_.end()) return;
  const auto items = vrf->second.protocols.find(join.interface);
  if (items != vrf->second.protocols.end()) paths->insert(items->second.begin(), items->second.end());
}

}  // namespace

Status config_references_start(router::Router* model, EventManager* manager) {
  if (const Status status = fault_check("config_references_start")) return status;
  if (model == nullptr || manager == nullptr) return kStatusInvalid;
  if (follower() != nullptr) return kStatusExists;
  follower() = std::make_unique<Follower>(model, manager);
  const Status status = follower()->start();
  if (status != kStatusOk) follower().reset();
  return status;
}

void config_references_stop() {
  follower().reset();
}
