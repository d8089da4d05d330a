// The RD is read from the tree itself, so that it is available before the first subscription; notifications
// only trigger another look-up.
#include "platform/router/bgp_vpn/configured_rd.h"

#include <optional>
#include <utility>

#include "platform/config/vrf_config.h"

namespace bgp_vpn {

std::string effective_text(const std::string& path) {
  std::string text;
  kvtree_config_effective(path, [&](const KvConfigNode& node) {
    if (node.path == path && node.value.type == KvValueType::kText) text = node.value.text;
  });
  return text;
}

std::string configured_rd(std::string_view vrf) {
  for (const std::string& path : vrf_config::rd_paths(vrf)) {
    std::string rd = effective_text(path);
    if (!rd.empty()) return rd;
  }
  return {};
}

Status ConfiguredRds::start(EventManager* manager, Changed changed) {
  const Status status =
      nodes_.follow(vrf_config::kVrfScope, manager, [this](const KvNotification* notification) {
        // Most of what changes below the scope is something else.
        if (std::string_view(kvtree_notify_info(notification)->item_name) != "rd") return;
        const std::string path = std::string(vrf_config::kVrfScope).append(kvtree_notify_path(notification));
        if (const std::optional<std::string> vrf = vrf_config::vrf_of(path)) update(*vrf);
      });
  if (status == kStatusOk) {
    changed_ = std::move(changed);
  } else {
    stop();
  }
  return status;
}

void ConfiguredRds::stop() {
  nodes_.stop();
  changed_ = nullptr;
  known_.clear();
}

std::string ConfiguredRds::known(const std::string& vrf) const {
  const auto found = known_.find(vrf);
  return found == known_.end() ? std::string() : found->second;
}

void ConfiguredRds::update(const std::string& vrf) {
  const std::string before = known(vrf);
  const std::string now = configured_rd(vrf);
  if (now == before) return;
  if (now.empty()) {
    known_.erase(vrf);
  } else {
    known_[vrf] = now;
  }
  if (changed_) changed_(vrf, before);
}

}  // namespace bgp_vpn
