// A link that joins or leaves a VRF loses its routes even if it stays up; other masters make no difference.
#include "sources/kernel/route_state/link_states.h"

#include <net/if.h>

#include <cstring>
#include <utility>

namespace kernel {
namespace {

constexpr std::uint32_t kCarrier = IFF_RUNNING | kFlagLowerUp;

bool is_up(std::uint32_t flags) {
  return (flags & IFF_UP) != 0;
}
bool is_running(std::uint32_t flags) {
  return is_up(flags) && (flags & IFF_RUNNING) != 0;
}

std::uint32_t word_of(const std::array<std::uint8_t, 16>& octets) {
  std::uint32_t word = 0;
  std::memcpy(&word, octets.data(), sizeof word);
  return word;
}

}  // namespace

LinkStates::Change LinkStates::seen(const LinkSeen& link) {
  const State now{link.facts.flags, link.link.vrf_master};
  const auto [present, is_new] = links_.try_emplace(link.link.index);
  const State before = std::exchange(present->second, now);
  Change change;
  if (!is_new && now == before) return change;
  const bool has_moved = !is_new && now.vrf != before.vrf;  // a link may be seen before links are read
  change.ipv4_down = change.ipv6_down = !kernel::is_up(now.flags) || has_moved;
  change.objects_lost = !kernel::is_up(now.flags) || (now.flags & kCarrier) == 0;
  change.ipv4_up = kernel::is_up(now.flags) && !kernel::is_up(before.flags) && !change.ipv4_down;
  change.ipv6_up = is_running(now.flags) && !is_running(before.flags) && !change.ipv6_down;
  change.carrier = kernel::is_up(now.flags) && now.flags != before.flags;
  return change;
}

void LinkStates::removed(std::uint32_t index) {
  links_.erase(index);
  const auto begin = addresses_.lower_bound({index, 0, 0, 0});
  addresses_.erase(begin, addresses_.lower_bound({index + 1, 0, 0, 0}));
}

LinkStates::OwnAddress LinkStates::own(const LinkAddress& address) {
  return {address.index, word_of(address.address.octets), word_of(address.peer),
          address.address.prefix_length};
}

bool LinkStates::has_any_address(std::uint32_t index) const {
  const auto found = addresses_.lower_bound({index, 0, 0, 0});
  return found != addresses_.end() && found->index == index;
}

bool LinkStates::is_up(std::uint32_t index) const {
  const auto link = links_.find(index);
  return link != links_.end() && kernel::is_up(link->second.flags);
}

bool LinkStates::ignores_paths(std::uint32_t index) const {
  const auto link = links_.find(index);
  return link != links_.end() && kernel::is_up(link->second.flags) &&
         (link->second.flags & kFlagLowerUp) == 0;
}

LinkStates::Change LinkStates::address_seen(const LinkAddress& address) {
  Change change;
  if (address.address.family != router::Family::kIpv4) return change;
  const bool is_new = addresses_.insert(own(address)).second;
  const auto link = links_.find(address.index);
  change.ipv4_up = is_new && link != links_.end() && kernel::is_up(link->second.flags);
  change.carrier = change.ipv4_up && ignores_paths(address.index);
  return change;
}

LinkStates::Change LinkStates::address_removed(const LinkAddress& address) {
  Change change;
  if (address.address.family != router::Family::kIpv4) return change;
  addresses_.erase(own(address));
  change.ipv4_down = !has_any_address(address.index);
  return change;
}

}  // namespace kernel
