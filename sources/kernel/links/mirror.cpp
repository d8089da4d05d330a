// Names. Events that were queued before a dump describe earlier states, so two links may claim the same name
// for a moment. The later message is correct about its own link; the earlier owner has no name until the next
// message about it. Nothing else here depends on names.
//
// IPv4 order. The kernel lists an interface's primary addresses before the secondary ones. It inserts a new
// primary after the last one whose scope is not wider (RT_SCOPE values grow as the scope narrows) and appends
// a new secondary. The same rule here gives the order of a dump. A repeated message about an address of
// unchanged rank does not move it: lifetimes and renames repeat addresses.
#include "sources/kernel/links/mirror.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace kernel {
namespace {

using AddressList = std::vector<LinkAddress>;

bool is_ipv4(const LinkAddress& address) {
  return address.address.family == router::Family::kIpv4;
}

AddressList::iterator place_of(AddressList* list, const LinkAddress& address) {
  if (!is_ipv4(address) || address.secondary) return list->end();
  auto place = list->begin();
  for (auto each = list->begin(); each != list->end(); ++each) {
    if (is_ipv4(*each) && !each->secondary && address.scope <= each->scope) {
      place = std::next(each);
    }
  }
  return place;
}

bool ipv6_before(const LinkAddress& left, const LinkAddress& right) {
  return std::tie(left.scope, left.address.octets, left.address.prefix_length) <
         std::tie(right.scope, right.address.octets, right.address.prefix_length);
}

void append_once(std::vector<router::Address>* list, const router::Address& address) {
  if (std::ranges::find(*list, address) == list->end()) list->push_back(address);
}

}  // namespace

void Mirror::apply(const Event& event) {
  if (const auto* seen = std::get_if<LinkSeen>(&event)) {
    update_link(seen->link);
  } else if (const auto* removed = std::get_if<LinkRemoved>(&event)) {
    remove_link(removed->index);
  } else if (const auto* address = std::get_if<AddressSeen>(&event)) {
    update_address(address->address);
  } else if (const auto* old_address = std::get_if<AddressRemoved>(&event)) {
    remove_address(old_address->address);
  }
}

void Mirror::claim_name(const Link& link) {
  if (link.name.empty()) {
    nameless_.insert(link.index);
    return;
  }
  nameless_.erase(link.index);
  const auto [owner, fresh] = index_by_name_.try_emplace(link.name, link.index);
  if (fresh || owner->second == link.index) return;
  links_[owner->second].name.clear();
  nameless_.insert(owner->second);
  touch(owner->second);
  owner->second = link.index;
}

void Mirror::release_name(const Link& link) {
  nameless_.erase(link.index);
  const auto owner = index_by_name_.find(link.name);
  if (owner != index_by_name_.end() && owner->second == link.index) {
    index_by_name_.erase(owner);
  }
}

void Mirror::update_link(const Link& link) {
  const auto known = links_.find(link.index);
  if (known != links_.end() && known->second == link) return;
  if (known != links_.end() && known->second.name != link.name) {
    release_name(known->second);
  }
  links_[link.index] = link;
  claim_name(link);
  touch(link.index);
}

void Mirror::remove_link(std::uint32_t index) {
  addresses_.erase(index);
  const auto known = links_.find(index);
  if (known == links_.end()) return;
  release_name(known->second);
  links_.erase(known);
  changes_.removed.insert(index);
  changes_.touched.erase(index);
}

void Mirror::update_address(const LinkAddress& address) {
  AddressList& list = addresses_[address.index];
  const auto known =
      std::ranges::find_if(list, [&](const LinkAddress& each) { return each.same_address(address); });
  if (known != list.end()) {
    if (*known == address) return;
    list.erase(known);
  }
  list.insert(place_of(&list, address), address);
  touch(address.index);
}

void Mirror::remove_address(const LinkAddress& address) {
  const auto list = addresses_.find(address.index);
  if (list == addresses_.end()) return;
  const auto is_it = [&](const LinkAddress& each) { return each.same_address(address); };
  if (std::erase_if(list->second, is_it) == 0) return;
  if (list->second.empty()) {
    addresses_.erase(list);
  }
  touch(address.index);
}

void Mirror::replace(Mirror dump) {
  Adoption all(this, std::move(dump), Adoption::Kind::kReplaces);
  while (!all.is_done()) all.step(SIZE_MAX);
}

void Mirror::merge(Mirror dump) {
  Adoption all(this, std::move(dump), Adoption::Kind::kMerges);
  while (!all.is_done()) all.step(SIZE_MAX);
}

const Link* Mirror::find(std::uint32_t index) const {
  const auto known = links_.find(index);
  return known == links_.end() ? nullptr : &known->second;
}

std::vector<LinkAddress> Mirror::usable_addresses(std::uint32_t index) const {
  const auto known = addresses_.find(index);
  std::vector<LinkAddress> usable = known == addresses_.end() ? std::vector<LinkAddress>{} : known->second;
  std::erase_if(usable, [](const LinkAddress& each) { return !each.usable; });
  return usable;
}

std::vector<router::Address> Mirror::addresses(std::uint32_t index) const {
  std::vector<LinkAddress> usable = usable_addresses(index);
  const auto ipv6 = std::stable_partition(usable.begin(), usable.end(), is_ipv4);
  std::sort(ipv6, usable.end(), ipv6_before);
  std::vector<router::Address> result;
  for (const LinkAddress& address : usable) append_once(&result, address.address);
  return result;
}

std::vector<router::Ipv4Detail> Mirror::ipv4_details(std::uint32_t index) const {
  std::vector<router::Ipv4Detail> result;
  for (const LinkAddress& address : usable_addresses(index)) {
    if (!is_ipv4(address)) continue;
    router::Address peer = address.address;
    peer.octets = address.peer;
    result.push_back({address.address, peer, address.secondary});
  }
  const auto is_plain = [](const router::Ipv4Detail& each) {
    return each.peer == each.address && !each.secondary;
  };
  if (std::all_of(result.begin(), result.end(), is_plain)) return {};
  return result;
}

Changes Mirror::take_changes() {
  return std::exchange(changes_, Changes{});
}

}  // namespace kernel
