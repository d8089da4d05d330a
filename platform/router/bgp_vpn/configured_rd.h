// Route distinguishers of the configuration tree: look-ups, and changes while there is a subscriber. Private
// to this folder. Main thread.
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

// The effective text of the node of exactly this path; empty when there is none or when it has another type.
std::string effective_text(const std::string& path);

// The RDs as of the notifications delivered so far, by VRF.
class ConfiguredRds {
 public:
  using Changed = std::function<void(const std::string& vrf, const std::string& before)>;

  // Reads the RDs that exist without reporting them. From then on `changed` is called on the manager's loop
  // when the configured RD differs from the last known one. On a failure of the data store nothing is
  // followed.
  [[nodiscard]] Status start(EventManager* manager, Changed changed);
  void stop();
  // As of the last notification; empty for none.
  std::string known(const std::string& vrf) const;
  const std::map<std::string, std::string>& all() const { return known_; }

 private:
  void update(const std::string& vrf);

  FollowedNodes nodes_;
  Changed changed_;  // none during the replay of what exists
  std::map<std::string, std::string> known_;
};

}  // namespace bgp_vpn
