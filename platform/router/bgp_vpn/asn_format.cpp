// See asn_format.h (RFC 5396).
//
// Whoever keeps the texts of route targets keeps them in the format of the time when it was told of them, and
// finds them again by their text. So a change of the format is told as a deletion and a set of each route
// target that it concerns, and the format that they are extracted in changes to and fro in between: all of it
// is posted in one go on the manager, behind what was told in the old format and before what will be told in
// the new one. A reader in between misses one route target at most. Route targets of two octets, addresses
// and small AS numbers read the same in every format and are not told.
//
// Route targets that are not in the configuration tree are not found here. They are told in the manager's
// batches with requests in between, but found and posted in one turn of the loop, as a commit is: a third of
// a second for 100,000 of them. In steps, what others change in between would have to be told in the one
// format or the other by how far the steps have come.
#include "platform/router/bgp_vpn/asn_format.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/config/vrf_config.h"
#include "platform/core/base/log.h"
#include "platform/router/bgp_vpn/configured_rd.h"
#include "platform/store/configuration/config.h"

namespace bgp_vpn {

namespace {

BgpAsnFormat target_format = BgpAsnFormat::kAsplain;

constexpr BgpAsnFormat kFormats[] = {BgpAsnFormat::kAsplain, BgpAsnFormat::kAsdot, BgpAsnFormat::kAsdotPlus};
static_assert(std::size(kFormats) == vrf_config::kAsFormats.size());

std::string format_path() {
  return vrf_config::as_format({}).path;
}

// The paths of the route targets that read differently.
std::vector<std::string> concerned_route_targets(BgpAsnFormat from, BgpAsnFormat to) {
  std::vector<std::string> paths;
  kvtree_config_in_force(vrf_config::kVrfScope, [&](const KvConfigNode& node) {
    const std::optional<vrf_config::Target> target = vrf_config::route_target_of(node.path);
    if (target && format_target(*target, from) != format_target(*target, to)) paths.push_back(node.path);
  });
  return paths;
}

}  // namespace

BgpAsnFormat configured_format() {
  const std::string text = text_in_force(format_path());
  if (text.empty()) return BgpAsnFormat::kAsplain;
  const auto& all = vrf_config::kAsFormats;
  const auto found = std::find(all.begin(), all.end(), text);
  if (found != all.end()) return kFormats[found - all.begin()];
  log_line("bgp_vpn: \"%s\" is not a format of AS numbers: asplain is used", text.c_str());
  return BgpAsnFormat::kAsplain;
}

// What exists is told before this returns, and is no change.
Status ConfiguredFormat::start(EventManager* manager, const std::function<void()>& changed) {
  const auto is_replaying = std::make_shared<bool>(true);
  const auto take = [is_replaying, changed](const KvNotification* notification) {
    const std::string path =
        std::string(vrf_config::kBgpCommonScope).append(kvtree_notify_path(notification));
    if (!*is_replaying && path == format_path()) changed();
  };
  const Status status = nodes_.follow(vrf_config::kBgpCommonScope, manager, take);
  *is_replaying = false;
  return status;
}

BgpAsnFormat route_target_format() {
  return target_format;
}

void set_route_target_format(BgpAsnFormat format) {
  target_format = format;
}

Status retell_route_targets(EventManager* manager, BgpAsnFormat from, BgpAsnFormat to,
                            const std::function<void(BgpAsnFormat)>& use) {
  return kvtree_config_retell_each(
      concerned_route_targets(from, to), manager, [use, from] { use(from); }, [use, to] { use(to); });
}

}  // namespace bgp_vpn
