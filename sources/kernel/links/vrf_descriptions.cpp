// An empty description is not stored. A failed commit is retried every second: the disk may be full for a
// while.
#include "sources/kernel/links/vrf_descriptions.h"

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/store/configuration/configuration.h"

namespace {

constexpr std::uint64_t kRetry = kNanosecondsPerSecond;
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
  Texts found;
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
  commit_later(0);
}

void VrfDescriptions::commit_later(std::uint64_t pause) {
  if (timer_ == 0 && !is_committing_) timer_ = event_timer_start(manager_, pause, [this] { commit(); });
}

std::string VrfDescriptions::text_of(const std::string& name) const {
  const router::Vrf* vrf = model_->find_vrf(name);
  return vrf == nullptr ? std::string() : vrf->description;
}

// What changes while this is written is in the next commit.
void VrfDescriptions::commit() {
  timer_ = 0;
  auto changes = std::make_shared<std::vector<KvConfigChange>>();
  Texts next;
  for (const std::string& name : std::exchange(changed_, {})) {
    const std::string text = text_of(name);
    const auto stored = stored_.find(name);
    if (text == (stored == stored_.end() ? std::string() : stored->second)) continue;
    const KvConfigNode node = vrf_config::description(name, text);
    changes->push_back({node.path, text.empty() ? std::nullopt : std::optional(node.value)});
    next[name] = text;
  }
  if (changes->empty()) return;
  is_committing_ = true;
  kvtree_config_begin_commit(manager_, kConfigOwnerKernel, std::move(changes), kComment,
                             [weak = std::weak_ptr(self_), next](Status status, const std::string& /*id*/,
                                                                 const std::string& error) {
                               if (!weak.expired()) (*weak.lock())->end_commit(status, error, next);
                             });
}

void VrfDescriptions::end_commit(Status status, const std::string& error, const Texts& committed) {
  is_committing_ = false;
  for (const auto& [name, text] : committed) {
    if (status != kStatusOk) {
      changed_.insert(name);
    } else if (text.empty()) {
      stored_.erase(name);
    } else {
      stored_[name] = text;
    }
  }
  if (status != kStatusOk && status != failure_)
    log_error("kernel", "cannot store the descriptions of VRFs and tries again every second: %s",
              why(status, error).c_str());
  failure_ = status;
  if (!changed_.empty()) commit_later(status == kStatusOk ? 0 : kRetry);
}
