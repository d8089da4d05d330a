// Which interfaces are in which VRF, in the order they joined: the membership service's copy of the model.
//
// An interface that is in a VRF has one node, linked into two lists: all members, and the members of its VRF.
// Joining appends to both, so the lists are in joining order and every change has constant cost. The links do
// not own: the nodes live in the table of handles, the VRF entries in the table of names, which has an entry
// while the VRF has members. The name is shared with pending notifications and with what was announced.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/router/model/router.h"

namespace vmap {

using SharedName = std::shared_ptr<const std::string>;

struct Member;

struct MemberList {
  Member* first = nullptr;
  Member* last = nullptr;
};

struct VrfMembers {
  SharedName name;
  MemberList list;
};

struct Member {
  struct Links {
    Member* before = nullptr;
    Member* after = nullptr;
  };
  std::uint32_t handle = 0;
  VrfMembers* vrf = nullptr;
  Links of_all;
  Links of_vrf;
};

class Members {
 public:
  // REQUIRES: the interface is in no VRF.
  void join(std::uint32_t handle, const std::string& vrf);
  // Ignored for an interface that is in no VRF.
  void leave(std::uint32_t handle);
  void clear();

  const Member* find(std::uint32_t handle) const;
  const Member* first() const { return all_.first; }
  // The first member of the VRF (the next one is of_vrf.after), or null.
  const Member* first_of(std::string_view vrf) const;

 private:
  VrfMembers* entry_of(const std::string& vrf);

  std::unordered_map<std::uint32_t, Member> by_handle_;
  std::map<std::string, VrfMembers, router::ShorterFirst> by_vrf_;
  MemberList all_;
};

}  // namespace vmap
