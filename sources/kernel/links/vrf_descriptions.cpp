// An empty description is not stored. A failed commit is retried with the next change.
#include "sources/kernel/links/vrf_descriptions.h"

#include <optional>
#include <utility>
#include <vector>

#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/core/base/log.h"
#include "platform/store/configuration/configuration.h"

namespace {

constexpr char kComment[] = "descriptions of VRF devices";

std::string why(Status status, const std::string& reason) {
  return reason.empty() ? err_text(status) : reason;
}

Status replace(const std::vector<KvConfigNode>& nodes, std::string* error) {
  std::string reason;
  const Status status = kvtree_config_replace(kConfigOwnerKernel, nodes, kComment, nullptr, &reason);
  if (status) *error = "cannot store the descriptions of VRFs: " + why(status, reason);
  return status;
}

}  // namespace

VrfDescriptions::~VrfDescriptions() {
  if (manager_ != nullptr) model_->stop_observing(this);
  if (timer_ != 0) event_timer_cancel(manager_, timer_);
}

Status VrfDescriptions::load(std::string* error) {
  std::map<std::string, std::string> found;
  model_->for_each_vrf([&](const router::Vrf& vrf) {
    if (vrf.name != router::kDefaultVrf && !vrf.description.empty()) found[vrf.name] = vrf.description;
  });
  std::vector<KvConfigNode> nodes;
  for (const auto& [vrf, text] : found) nodes.push_back(vrf_config::description(vrf, text));
  const Status status = replace(nodes, error);
  if (status == kStatusOk) stored_ = std::move(found);
  return status;
}

Status VrfDescriptions::start(EventManager* manager) {
  manager_ = manager;
  model_->observe(router::ObserverRank::kOther, this);
  return kStatusOk;
}

Status VrfDescriptions::remove_configured(std::string* error) {
  return replace({}, error);
}

void VrfDescriptions::changed(const std::string& vrf) {
  if (vrf == router::kDefaultVrf) return;
  changed_.insert(vrf);
  if (timer_ == 0) timer_ = event_timer_start(manager_, 0, [this] { commit(); });
}

void VrfDescriptions::commit() {
  timer_ = 0;
  std::vector<KvConfigChange> changes;
  std::map<std::string, std::string> next = stored_;
  for (const std::string& name : changed_) {
    const router::Vrf* vrf = model_->find_vrf(name);
    const std::string text = vrf == nullptr ? std::string() : vrf->description;
    const auto stored = stored_.find(name);
    if (text == (stored == stored_.end() ? std::string() : stored->second)) continue;
    const KvConfigNode node = vrf_config::description(name, text);
    if (text.empty()) {
      changes.push_back({node.path, std::nullopt});
      next.erase(name);
    } else {
      changes.push_back({node.path, node.value});
      next[name] = text;
    }
  }
  std::string reason;
  const Status status = changes.empty()
                            ? kStatusOk
                            : kvtree_config_commit(kConfigOwnerKernel, changes, kComment, nullptr, &reason);
  if (status != kStatusOk) {
    log_error("kernel", "cannot store the descriptions of VRFs: %s", why(status, reason).c_str());
    return;
  }
  stored_ = std::move(next);
  changed_.clear();
}
