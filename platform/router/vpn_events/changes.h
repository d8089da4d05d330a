// The changes of effective route distinguishers and route targets that a commit, or another RD in the router
// model, causes. Private to this folder.
//
// The RD of a VRF is that of its lowest address family that has one, else that of the router model; its
// change has the family 0. A family's own RD is reported separately only where it differs from the VRF's.
// Route targets of one VRF, direction and family that one commit removes and adds are paired in their order,
// so that a replaced target is one change; the rest are removals or additions.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/router/vpn_events/records.h"
#include "platform/store/configuration/configuration.h"

namespace vpn_events {

// A value and its owner; both empty for none.
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

// The RD of a VRF in the router model, in any form.
using ModelRd = std::function<Held(const std::string& vrf)>;

// The changes of a commit, after it was made: VRF by VRF, RDs before route targets. RDs and targets are
// asplain.
std::vector<Change> changes_of_commit(const std::vector<KvConfigCommitChange>& commit,
                                      const ModelRd& model_rd);
// The changes of a VRF whose RD in the model changed.
std::vector<Change> changes_of_model(const std::string& vrf, const Held& before, const Held& now);

}  // namespace vpn_events
