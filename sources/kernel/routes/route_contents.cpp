#include "sources/kernel/routes/route_contents.h"

#include <algorithm>

namespace kernel {
namespace {

constexpr int kSourcesLookedAt = 1000;

void mix(std::uint64_t value, std::size_t* hash) {
  *hash = (*hash ^ value) * 0x9e3779b97f4a7c15ULL;
  *hash ^= *hash >> 29;
}

void mix(const router::RouteAddress& address, std::size_t* hash) {
  for (std::size_t at = 0; at < address.size(); at += 4) {
    mix(std::uint64_t{address[at]} << 24 | std::uint64_t{address[at + 1]} << 16 |
            std::uint64_t{address[at + 2]} << 8 | address[at + 3],
        hash);
  }
}

std::size_t hash_of(const KernelRoute& content) {
  std::size_t hash = content.details;
  mix(std::uint64_t{content.priority} << 32 | content.next_hop_object, &hash);
  mix(std::uint64_t{content.tos} << 16 | std::uint64_t{content.type} << 8 | content.protocol, &hash);
  mix(content.preferred_source, &hash);
  if (content.source_length != 0) mix(content.source, &hash);
  for (const RoutePath& path : content.paths) {
    mix(std::uint64_t{path.interface_index} << 2 | (path.dead ? 2U : 0U) | (path.ignored ? 1U : 0U), &hash);
    mix(path.gateway, &hash);
    for (const std::uint32_t label : path.labels) mix(label, &hash);
  }
  return hash;
}

}  // namespace

RouteContents::Id RouteContents::hold(const KernelRoute& content, bool* is_new) {
  const Id found = find(content);
  *is_new = found == 0;
  if (*is_new) return last_ = add(content, hash_of(content));
  ++slot(found).holders;
  return found;
}

// Consecutive routes often have the same content.
RouteContents::Id RouteContents::find(const KernelRoute& content) {
  if (last_ != 0 && slot(last_).holders != 0 && slot(last_).content == content && !is_stale(last_)) {
    return last_;
  }
  return find(content, hash_of(content));
}

RouteContents::Id RouteContents::find(const KernelRoute& content, std::size_t hash) {
  Id id = 0;
  for (auto each = numbers_.lower_bound({hash, id}); each != numbers_.end() && each->first == hash;
       each = numbers_.upper_bound({hash, id})) {
    id = each->second;
    if (slot(id).content == content && !is_stale(id)) return last_ = id;  // is_stale() may remove it
  }
  return 0;
}

RouteContents::Id RouteContents::add(const KernelRoute& content, std::size_t hash) {
  if (unused_.empty()) {
    slots_.emplace_back();
    unused_.push_back(static_cast<Id>(slots_.size()));
  }
  const Id id = unused_.back();
  unused_.pop_back();
  slot(id) = {content, hash, 1, false, history_->now()};
  numbers_.emplace(hash, id);
  if (content.preferred_source != 0) by_source_.emplace(content.preferred_source, id);
  return id;
}

void RouteContents::release(Id id) {
  if (--slot(id).holders > 0) return;
  if (!slot(id).stale) forget(id);
  by_source_.erase({slot(id).content.preferred_source, id});
  slot(id).content = {};
  unused_.push_back(id);
}

void RouteContents::forget(Id id) {
  numbers_.erase({slot(id).hash, id});
}

bool RouteContents::is_stale(Id id) {
  Slot& found = slot(id);
  if (found.stale || found.moment == history_->now()) return found.stale;
  KernelRoute content = found.content;
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
  *content = found.content;
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
    if (each.holders != 0) visit(each.content);
  }
}

}  // namespace kernel
