// See configured_rd.h. The tree itself is asked for the RD, so that it is there to be got before anybody
// registers; notifications only say when to look again.
#include "platform/bgp_vpn/configured_rd.h"

#include <iterator>
#include <utility>

#include "platform/base/log.h"
#include "platform/vrf_config/vrf_config.h"

namespace bgp_vpn {

namespace {

constexpr char kPattern[] = "vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_b/bgp/ord_a/rd";

ConfiguredRds* follower = nullptr;

void notify_rd(const KvNotifyInfo*, const RequestArgs* args) {
  if (follower != nullptr && !kvtree_absent(args, 0)) follower->take_in(args->arg[0].text);
}

constexpr KvRoute kRoutes[] = {{kPattern, {0, notify_rd, nullptr, nullptr, nullptr}}};
constexpr KvRoutingTable kTable{kRoutes, std::size(kRoutes)};

// Most of what changes below the scope is something else.
void take_configuration(const KvNotification* notification) {
  if (std::string_view(kvtree_notify_info(notification)->item_name) == "rd")
    kvtree_match_notify(notification, &kTable);
}

}  // namespace

std::string text_in_force(const std::string& path) {
  std::string text;
  kvtree_config_in_force(path, [&](const KvConfigNode& node) {
    if (node.path == path && node.value.type == KvValueType::kText) text = node.value.text;
  });
  return text;
}

std::string configured_rd(std::string_view vrf) {
  for (const vrf_config::Family family : {vrf_config::Family::kIpv4, vrf_config::Family::kIpv6}) {
    std::string rd = text_in_force(vrf_config::route_distinguisher(vrf, family, {}).path);
    if (!rd.empty()) return rd;
  }
  return {};
}

Status ConfiguredRds::start(EventManager* manager, Changed changed) {
  const std::string scope(vrf_config::kVrfScope);
  if (const Status status = kvtree_bind(&connection_, scope.c_str(), kKvBindConfiguration)) return status;
  follower = this;
  replaying_ = true;
  const Status status =
      kvtree_register_notification(connection_, "", kKvEventCreated | kKvEventSet | kKvEventDeleted,
                                   take_configuration, manager, 0, 0, 0, nullptr);
  replaying_ = false;
  changed_ = std::move(changed);
  if (status != kStatusOk) stop();
  return status;
}

void ConfiguredRds::stop() {
  if (connection_ == nullptr) return;
  if (const Status status = kvtree_unbind(std::exchange(connection_, nullptr)))
    log_line("bgp_vpn: the configuration is still bound: %s", err_text(status));
  follower = nullptr;
  changed_ = nullptr;
  told_.clear();
}

std::string ConfiguredRds::told(const std::string& vrf) const {
  const auto found = told_.find(vrf);
  return found == told_.end() ? std::string() : found->second;
}

void ConfiguredRds::take_in(const std::string& vrf) {
  const std::string before = told(vrf);
  const std::string now = configured_rd(vrf);
  if (now == before) return;
  if (now.empty()) {
    told_.erase(vrf);
  } else {
    told_[vrf] = now;
  }
  if (!replaying_ && changed_) changed_(vrf, before);
}

}  // namespace bgp_vpn
