#include "platform/router/vmap/members.h"

namespace vmap {

void Members::join(std::uint32_t handle, const std::string& vrf) {
  OfVrf& of_vrf = by_vrf_[vrf];
  if (of_vrf.name == nullptr) of_vrf.name = std::make_shared<const std::string>(vrf);
  const std::uint64_t order = ++last_order_;
  all_.emplace_hint(all_.end(), order, handle);
  of_vrf.members.emplace_hint(of_vrf.members.end(), order, handle);
  members_[handle] = {order, of_vrf.name};
}

void Members::leave(std::uint32_t handle) {
  const auto member = members_.find(handle);
  if (member == members_.end()) return;
  const auto of_vrf = by_vrf_.find(*member->second.vrf);
  of_vrf->second.members.erase(member->second.order);
  if (of_vrf->second.members.empty()) by_vrf_.erase(of_vrf);
  all_.erase(member->second.order);
  members_.erase(member);
}

const Member* Members::find(std::uint32_t handle) const {
  const auto member = members_.find(handle);
  return member == members_.end() ? nullptr : &member->second;
}

}  // namespace vmap
