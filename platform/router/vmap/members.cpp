// Both lists are linked by the same two functions; a pointer to member selects the pair of links.
#include "platform/router/vmap/members.h"

namespace vmap {
namespace {

using Which = Member::Links Member::*;

void append(MemberList* list, Member* member, Which which) {
  (member->*which).before = list->last;
  (list->last == nullptr ? list->first : (list->last->*which).after) = member;
  list->last = member;
}

void unlink(MemberList* list, const Member& member, Which which) {
  const Member::Links& links = member.*which;
  (links.before == nullptr ? list->first : (links.before->*which).after) = links.after;
  (links.after == nullptr ? list->last : (links.after->*which).before) = links.before;
}

}  // namespace

VrfMembers* Members::entry_of(const std::string& vrf) {
  VrfMembers& entry = by_vrf_[vrf];
  if (entry.name == nullptr) entry.name = std::make_shared<const std::string>(vrf);
  return &entry;
}

void Members::join(std::uint32_t handle, const std::string& vrf) {
  Member& member = by_handle_[handle];
  member.handle = handle;
  member.vrf = entry_of(vrf);
  append(&all_, &member, &Member::of_all);
  append(&member.vrf->list, &member, &Member::of_vrf);
}

void Members::leave(std::uint32_t handle) {
  const auto found = by_handle_.find(handle);
  if (found == by_handle_.end()) return;
  VrfMembers* const vrf = found->second.vrf;
  unlink(&all_, found->second, &Member::of_all);
  unlink(&vrf->list, found->second, &Member::of_vrf);
  by_handle_.erase(found);
  if (vrf->list.first == nullptr) by_vrf_.erase(by_vrf_.find(*vrf->name));
}

void Members::clear() {
  by_handle_.clear();
  by_vrf_.clear();
  all_ = {};
}

const Member* Members::find(std::uint32_t handle) const {
  const auto found = by_handle_.find(handle);
  return found == by_handle_.end() ? nullptr : &found->second;
}

const Member* Members::first_of(std::string_view vrf) const {
  const auto found = by_vrf_.find(vrf);
  return found == by_vrf_.end() ? nullptr : found->second.list.first;
}

}  // namespace vmap
