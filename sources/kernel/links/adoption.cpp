// A replacement first compares both, then exchanges them, and then frees what the mirror had, which takes as
// long as the comparison for a large router.
#include <algorithm>
#include <utility>

#include "platform/core/base/clock.h"
#include "sources/kernel/links/mirror.h"
#include "sources/reconcile/reconcile.h"

namespace kernel {

Adoption::Adoption(Mirror* mirror, Mirror dump, Kind kind, std::deque<Event> later)
    : mirror_(mirror), dump_(std::move(dump)), kind_(kind), later_(std::move(later)) {}

const std::vector<Adoption::Phase>& Adoption::phases() const {
  static const std::vector<Phase> replacement{
      &Adoption::apply_later, &Adoption::find_removed, &Adoption::find_touched,  &Adoption::exchange,
      &Adoption::free_link,   &Adoption::free_name,    &Adoption::free_addresses};
  static const std::vector<Phase> merge{&Adoption::apply_later,     &Adoption::merge_link,
                                        &Adoption::merge_addresses, &Adoption::free_link,
                                        &Adoption::free_name,       &Adoption::free_addresses};
  return kind_ == Kind::kReplaces ? replacement : merge;
}

void Adoption::step(std::size_t items) {
  const std::uint64_t start = clock_monotonic();
  for (; items > 0 && !is_done() && clock_monotonic() - start < reconcile::kStepTime; --items) {
    if ((this->*phases()[phase_])()) continue;
    ++phase_;
    next_ = 0;
  }
}

template <typename Map>
typename Map::const_iterator Adoption::next_of(const Map& map) {
  if (next_ > UINT32_MAX) return map.end();
  const auto each = map.lower_bound(static_cast<std::uint32_t>(next_));
  if (each != map.end()) next_ = std::uint64_t{each->first} + 1;
  return each;
}

bool Adoption::apply_later() {
  if (later_.empty()) return false;
  dump_.apply(later_.front());
  later_.pop_front();
  return true;
}

bool Adoption::find_removed() {
  const auto each = next_of(mirror_->links_);
  if (each == mirror_->links_.end()) return false;
  if (dump_.links_.contains(each->first)) return true;
  mirror_->changes_.removed.insert(each->first);
  mirror_->changes_.touched.erase(each->first);
  return true;
}

bool Adoption::find_touched() {
  const auto each = next_of(dump_.links_);
  if (each == dump_.links_.end()) return false;
  const auto& [index, link] = *each;
  const Link* known = mirror_->find(index);
  if (known == nullptr || *known != link || mirror_->addresses(index) != dump_.addresses(index) ||
      mirror_->ipv4_details(index) != dump_.ipv4_details(index)) {
    mirror_->touch(index);
  }
  return true;
}

// A single item.
bool Adoption::exchange() {
  std::swap(mirror_->links_, dump_.links_);
  std::swap(mirror_->index_by_name_, dump_.index_by_name_);
  std::swap(mirror_->nameless_, dump_.nameless_);
  std::swap(mirror_->addresses_, dump_.addresses_);
  return false;
}

bool Adoption::merge_link() {
  const auto each = next_of(dump_.links_);
  if (each == dump_.links_.end()) return false;
  mirror_->update_link(each->second);
  return true;
}

bool Adoption::merge_addresses() {
  const auto each = next_of(dump_.addresses_);
  if (each == dump_.addresses_.end()) return false;
  for (const LinkAddress& address : each->second) mirror_->update_address(address);
  return true;
}

bool Adoption::free_link() {
  if (dump_.links_.empty()) return false;
  dump_.links_.erase(dump_.links_.begin());
  return true;
}

bool Adoption::free_name() {
  if (dump_.index_by_name_.empty()) return false;
  dump_.index_by_name_.erase(dump_.index_by_name_.begin());
  return true;
}

bool Adoption::free_addresses() {
  if (dump_.addresses_.empty()) return false;
  dump_.addresses_.erase(dump_.addresses_.begin());
  return true;
}

}  // namespace kernel
