// The AS number format: what is written in it, what is configured, and the telling of a change. Not for other
// folders. Main thread.
#pragma once

#include <functional>
#include <string>

#include "platform/config/vrf_config.h"
#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/store/server/followed_nodes.h"

namespace bgp_vpn {

// The configured format; asplain when there is none.
BgpAsnFormat configured_format();

// Says when to look at configured_format() again.
class ConfiguredFormat {
 public:
  // `changed` is called on the manager's loop. The data store's failures; nothing is followed then.
  [[nodiscard]] Status start(EventManager* manager, const std::function<void()>& changed);
  void stop() { nodes_.stop(); }

 private:
  FollowedNodes nodes_;
};

// The text of a target or distinguisher.
std::string format_target(const vrf_config::Target& target, BgpAsnFormat format);

// The format that route targets are extracted in.
BgpAsnFormat route_target_format();
void set_route_target_format(BgpAsnFormat format);
// Tells every route target in force that reads differently in the two formats as deleted and set on this
// manager, and has the format that goes with it used before each. `from` is the format of all that was posted
// there so far.
[[nodiscard]] Status retell_route_targets(EventManager* manager, BgpAsnFormat from, BgpAsnFormat to,
                                          const std::function<void(BgpAsnFormat)>& use);

}  // namespace bgp_vpn
