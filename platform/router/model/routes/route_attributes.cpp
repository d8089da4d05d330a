// The sets are the keys of an ordered map, whose nodes do not move; an array maps numbers to nodes. Most
// routers need a few sets; a router with a label per route needs as many as routes.
#include "platform/router/model/routes/route_attributes.h"

namespace router {

std::uint32_t RouteAttributeSets::hold(const RouteAttributes& attributes) {
  if (attributes == RouteAttributes{}) return 0;
  const auto [entry, is_new] = numbers_.try_emplace(attributes, 0);
  if (is_new) {
    if (unused_.empty()) {
      slots_.emplace_back();
      unused_.push_back(static_cast<std::uint32_t>(slots_.size()));
    }
    entry->second = unused_.back();
    unused_.pop_back();
    slots_[entry->second - 1].attributes = &entry->first;
  }
  ++slots_[entry->second - 1].holders;
  return entry->second;
}

void RouteAttributeSets::release(std::uint32_t number) {
  if (number == 0) return;
  Slot& slot = slots_[number - 1];
  if (--slot.holders > 0) return;
  numbers_.erase(numbers_.find(*slot.attributes));
  slot.attributes = nullptr;
  unused_.push_back(number);
}

const RouteAttributes& RouteAttributeSets::operator[](std::uint32_t number) const {
  static const RouteAttributes kNone;
  return number == 0 ? kNone : *slots_[number - 1].attributes;
}

}  // namespace router
