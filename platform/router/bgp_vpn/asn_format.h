// The AS number format: texts in a format, the configured format, and the notification of a change. Private
// to this folder. Main thread.
#pragma once

#include <functional>
#include <string>

#include "platform/config/vrf_config.h"
#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"

namespace bgp_vpn {

// The configured format; asplain when there is none.
BgpAsnFormat configured_format();

// The text of a target or distinguisher.
std::string format_target(const vrf_config::Target& target, BgpAsnFormat format);

// The format that route targets are extracted in.
BgpAsnFormat route_target_format();
void set_route_target_format(BgpAsnFormat format);
// Posts a deletion and a set on this manager for every effective route target whose text differs between the
// two formats, and calls `use` with the matching format before each. `from` is the format of everything
// posted there so far.
[[nodiscard]] Status replay_route_targets(EventManager* manager, BgpAsnFormat from, BgpAsnFormat to,
                                          const std::function<void(BgpAsnFormat)>& use);

}  // namespace bgp_vpn
