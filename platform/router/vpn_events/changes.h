// What a commit, or another RD in the router model, makes of the route distinguishers and route targets that
// are effective. Not for other folders.
//
// The RD of a VRF is that of its lowest address family that has one, else that of the router model; a change
// of it has the family 0. A family's own RD is reported by itself only where it is not the VRF's. Route
// targets of one VRF, direction and family that one commit removes and adds are paired in their order, so
// that a target that takes the place of another one is one change; the rest are removals or additions.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/router/vpn_events/records.h"
#include "platform/store/configuration/config.h"

namespace vpn_events {

// A value and who holds it; both empty for none.
struct Held {
  std::string text;
  std::string owner;
};

struct Change {
  std::string vrf;
  Item item = Item::kRouteDistinguisher;
  std::uint32_t family = 0;
  Held before;
  Held after;
};

using ModelRd = std::function<std::string(const std::string& vrf)>;

// Of a commit that has been made: VRF by VRF, RDs before route targets. RDs and targets are asplain.
std::vector<Change> changes_of_commit(const std::vector<KvConfigCommitChange>& commit,
                                      const ModelRd& model_rd);
// Of a VRF whose RD in the model changed.
std::vector<Change> changes_of_model(const std::string& vrf, const std::string& before,
                                     const std::string& now);

}  // namespace vpn_events
