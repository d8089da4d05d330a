// Route distinguishers of the configuration tree: looked up, and followed while somebody wants to be told.
// Not for other folders. Main thread.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/store/server/followed_nodes.h"

namespace bgp_vpn {

// The RD that is configured for the VRF now, of its lowest address family that has one; empty for none.
std::string configured_rd(std::string_view vrf);

// The text of the node of exactly this path that is in force; empty for none, and for another type.
std::string text_in_force(const std::string& path);

// What the notifications of the tree have told so far, by VRF.
class ConfiguredRds {
 public:
  using Changed = std::function<void(const std::string& vrf, const std::string& before)>;

  // Takes in what exists without telling it; from then on `changed` is called on the manager's loop when
  // another RD is configured than was told before. The data store's failures; nothing is followed then.
  [[nodiscard]] Status start(EventManager* manager, Changed changed);
  void stop();
  // As far as it was told; empty for none.
  std::string told(const std::string& vrf) const;
  const std::map<std::string, std::string>& all() const { return told_; }

 private:
  void take_notification(std::string_view path);
  void take_in(const std::string& vrf);

  FollowedNodes nodes_;
  Changed changed_;  // none while what exists is told
  std::map<std::string, std::string> told_;
};

}  // namespace bgp_vpn
