// The AS number format of route targets (RFC 5396).
//
// Subscribers store the texts of route targets and look them up by text. So a change of the format is
// reported as a deletion of each affected route target with its old text and a set with its new text; the
// format that bgp_vpn_extract_rt() uses switches back and forth in between. All of this is posted on the
// manager at once, after everything that was reported in the old format and before everything that will be
// reported in the new one, so that a reader in between misses at most one route target. Two-octet AS numbers,
// addresses and small AS numbers have the same text in every format and are not reported.
//
// Only route targets of the configuration tree are found here. They are delivered in the manager's batches,
// with requests in between, but collected and posted in one iteration of the loop, like a commit: a third of
// a second for 100,000 of them. If they were posted in steps, the format of a change that arrives in between
// would depend on the progress.
#include "platform/router/bgp_vpn/asn_format.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/config/vrf_config.h"
#include "platform/core/base/log.h"
#include "platform/router/bgp_vpn/configured_rd.h"
#include "platform/store/configuration/configuration.h"

namespace bgp_vpn {

namespace {

BgpAsnFormat target_format = BgpAsnFormat::kAsplain;

constexpr BgpAsnFormat kFormats[] = {BgpAsnFormat::kAsplain, BgpAsnFormat::kAsdot, BgpAsnFormat::kAsdotPlus};
static_assert(std::size(kFormats) == vrf_config::kAsFormats.size());

// The paths of the route targets whose text differs.
std::vector<std::string> affected_route_targets(BgpAsnFormat from, BgpAsnFormat to) {
  std::vector<std::string> paths;
  kvtree_config_effective(vrf_config::kVrfScope, [&](const KvConfigNode& node) {
    const std::optional<vrf_config::Target> target = vrf_config::route_target_of(node.path);
    if (target && format_target(*target, from) != format_target(*target, to)) paths.push_back(node.path);
  });
  return paths;
}

}  // namespace

std::string format_target(const vrf_config::Target& target, BgpAsnFormat format) {
  const bool has_two_forms =
      target.type == vrf_config::Target::Type::kFourOctetAs && target.administrator > UINT16_MAX;
  if (!has_two_forms || format == BgpAsnFormat::kAsplain) return vrf_config::target_text(target);
  return std::to_string(target.administrator >> 16) + '.' +
         std::to_string(target.administrator & UINT16_MAX) + ':' + std::to_string(target.assigned);
}

BgpAsnFormat configured_format() {
  const std::string text = effective_text(vrf_config::as_format({}).path);
  if (text.empty()) return BgpAsnFormat::kAsplain;
  const auto& all = vrf_config::kAsFormats;
  const auto found = std::find(all.begin(), all.end(), text);
  if (found != all.end()) return kFormats[found - all.begin()];
  log_warning("bgp_vpn", "\"%s\" is not a format of AS numbers: asplain is used", text.c_str());
  return BgpAsnFormat::kAsplain;
}

BgpAsnFormat route_target_format() {
  return target_format;
}

void set_route_target_format(BgpAsnFormat format) {
  target_format = format;
}

Status replay_route_targets(EventManager* manager, BgpAsnFormat from, BgpAsnFormat to,
                            const std::function<void(BgpAsnFormat)>& use) {
  return kvtree_config_replay_each(
      affected_route_targets(from, to), manager, [use, from] { use(from); }, [use, to] { use(to); });
}

}  // namespace bgp_vpn

std::string bgp_util_format_rd(std::string_view rd, BgpAsnFormat format) {
  const std::optional<vrf_config::Target> target = vrf_config::parse_target(rd);
  return target ? bgp_vpn::format_target(*target, format) : std::string(rd);
}
