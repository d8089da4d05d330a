// Which interfaces are in which VRF, in the order they joined: the membership service's copy of the model.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>

#include "platform/router/model/router.h"

namespace vmap {

struct Member {
  std::uint32_t handle = 0;
  std::string vrf;
};

// A change costs a look-up of the VRF, whatever the number of interfaces.
class Members {
 public:
  // REQUIRES: the interface is in no VRF.
  void join(std::uint32_t handle, const std::string& vrf);
  // Ignored for an interface that is in no VRF.
  void leave(std::uint32_t handle);

  const Member* find(std::uint32_t handle) const;
  const std::list<Member>& all() const { return all_; }
  const std::list<const Member*>& of(const std::string& vrf) const;

 private:
  using OfVrf = std::list<const Member*>;
  struct Place {
    std::list<Member>::const_iterator in_all;
    OfVrf::const_iterator in_vrf;
  };

  std::list<Member> all_;
  std::map<std::string, OfVrf, router::ShorterFirst> by_vrf_;  // no list is empty
  std::map<std::uint32_t, Place> places_;                      // by handle; grows without a pause
};

}  // namespace vmap
