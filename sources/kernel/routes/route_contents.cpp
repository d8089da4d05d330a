#include "sources/kernel/routes/route_contents.h"

#include <algorithm>
#include <functional>

#include "sources/kernel/routes/packed_route.h"

namespace kernel {
namespace {

constexpr int kSourcesLookedAt = 1000;

}  // namespace

RouteContents::Id RouteContents::hold(const KernelRoute& content, bool* is_new) {
  const Id found = find(content);
  *is_new = found == 0;
  if (*is_new) return hold_new();
  ++slot(found).holders;
  return found;
}

// Consecutive routes often have the same content, which need not be packed then.
RouteContents::Id RouteContents::find(const KernelRoute& content) {
  if (last_ != 0 && last_content_ == content && slot(last_).holders != 0 && !is_stale(last_)) return last_;
  last_ = 0;
  last_content_ = content;
  wanted_ = pack(content);
  wanted_hash_ = static_cast<Hash>(std::hash<std::string>()(wanted_));
  return find_by_hash();
}

RouteContents::Id RouteContents::find_by_hash() {
  Id id = 0;
  auto each = numbers_.lower_bound({wanted_hash_, id});
  for (; each != numbers_.end() && each->first == wanted_hash_;
       each = numbers_.upper_bound({wanted_hash_, id})) {
    id = each->second;
    if (slot(id).content == wanted_ && !is_stale(id)) return last_ = id;  // is_stale() may remove it
  }
  wanted_place_ = each;
  return 0;
}

RouteContents::Id RouteContents::hold_new() {
  if (unused_.empty()) {
    slots_.emplace_back();
    unused_.push_back(static_cast<Id>(slots_.size()));
  }
  const Id id = unused_.back();
  unused_.pop_back();
  numbers_.emplace_hint(wanted_place_, wanted_hash_, id);
  if (const std::uint32_t source = preferred_source_of(wanted_); source != 0) by_source_.emplace(source, id);
  slot(id) = {wanted_, history_->now(), wanted_hash_, 1, false};
  return last_ = id;
}

void RouteContents::release(Id id) {
  if (--slot(id).holders > 0) return;
  if (!slot(id).stale) forget(id);
  if (!by_source_.empty()) by_source_.erase({preferred_source_of(slot(id).content), id});
  std::string().swap(slot(id).content);  // with its memory
  unused_.push_back(id);
}

void RouteContents::forget(Id id) {
  numbers_.erase({slot(id).hash, id});
}

bool RouteContents::is_stale(Id id) {
  Slot& found = slot(id);
  if (found.stale || found.moment == history_->now()) return found.stale;
  KernelRoute content = unpack(found.content);
  if (history_->apply(found.moment, &content) == RouteHistory::Verdict::kSame) {
    found.moment = history_->now();
    return false;
  }
  found.stale = true;
  forget(id);
  return true;
}

RouteHistory::Verdict RouteContents::current(Id id, KernelRoute* content) const {
  const Slot& found = slots_[id - 1];
  *content = unpack(found.content);
  return history_->apply(found.moment, content);
}

bool RouteContents::has_preferred_source(std::uint32_t address) const {
  int looked_at = 0;
  for (auto each = by_source_.lower_bound({address, 0}); each != by_source_.end() && each->first == address;
       ++each) {
    KernelRoute content;
    if (++looked_at > kSourcesLookedAt || current(each->second, &content) != RouteHistory::Verdict::kDeleted)
      return true;
  }
  return false;
}

bool RouteContents::release_some(std::size_t count) {
  unused_.clear();
  for (std::size_t freed = 0; freed < count && !numbers_.empty(); ++freed) numbers_.erase(numbers_.begin());
  for (std::size_t freed = 0; freed < count && !by_source_.empty(); ++freed)
    by_source_.erase(by_source_.begin());
  for (std::size_t freed = 0; freed < count && !slots_.empty(); ++freed) slots_.pop_back();
  return !numbers_.empty() || !by_source_.empty() || !slots_.empty();
}

void RouteContents::for_each(const std::function<void(const KernelRoute&)>& visit) const {
  for (const Slot& each : slots_) {
    if (each.holders != 0) visit(unpack(each.content));
  }
}

}  // namespace kernel
