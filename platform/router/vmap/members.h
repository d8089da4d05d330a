// Which interfaces are in which VRF, in the order they joined: the membership service's copy of the model.
#pragma once

#include <absl/container/btree_map.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "platform/router/model/router.h"

namespace vmap {

// Of a VRF, shared by all that are in it: 100,000 interfaces have 10,000 names of VRFs.
using SharedName = std::shared_ptr<const std::string>;

struct Member {
  std::uint64_t order = 0;  // of joining
  SharedName vrf;
};

// A change costs a look-up of the VRF, whatever the number of interfaces. Trees grow without a pause.
class Members {
 public:
  // REQUIRES: the interface is in no VRF.
  void join(std::uint32_t handle, const std::string& vrf);
  // Ignored for an interface that is in no VRF.
  void leave(std::uint32_t handle);

  // Valid until the next change.
  const Member* find(std::uint32_t handle) const;

  // Calls `visit` with the handle and the VRF of each member.
  template <typename Visit>
  void for_each(const Visit& visit) const {
    for (const auto& [order, handle] : all_) visit(handle, *find(handle)->vrf);
  }
  template <typename Visit>
  void for_each_of(const std::string& vrf, const Visit& visit) const {
    const auto found = by_vrf_.find(vrf);
    if (found == by_vrf_.end()) return;
    for (const auto& [order, handle] : found->second.members) visit(handle, *found->second.name);
  }

 private:
  using Handles = absl::btree_map<std::uint64_t, std::uint32_t>;  // by the order of joining
  struct OfVrf {
    SharedName name;
    Handles members;  // never empty
  };

  Handles all_;
  std::map<std::string, OfVrf, router::ShorterFirst> by_vrf_;
  absl::btree_map<std::uint32_t, Member> members_;  // by handle
  std::uint64_t last_order_ = 0;
};

}  // namespace vmap
