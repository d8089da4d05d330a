#include "platform/router/vmap/members.h"

namespace vmap {

void Members::join(std::uint32_t handle, const std::string& vrf) {
  OfVrf& of_vrf = by_vrf_[vrf];
  const auto in_all = all_.insert(all_.end(), {handle, vrf});
  places_[handle] = {in_all, of_vrf.insert(of_vrf.end(), &*in_all)};
}

void Members::leave(std::uint32_t handle) {
  const auto place = places_.find(handle);
  if (place == places_.end()) return;
  const auto of_vrf = by_vrf_.find(place->second.in_all->vrf);
  of_vrf->second.erase(place->second.in_vrf);
  if (of_vrf->second.empty()) by_vrf_.erase(of_vrf);
  all_.erase(place->second.in_all);
  places_.erase(place);
}

const Member* Members::find(std::uint32_t handle) const {
  const auto place = places_.find(handle);
  return place == places_.end() ? nullptr : &*place->second.in_all;
}

const std::list<const Member*>& Members::of(const std::string& vrf) const {
  static const OfVrf kNone;
  const auto found = by_vrf_.find(vrf);
  return found == by_vrf_.end() ? kNone : found->second;
}

}  // namespace vmap
