#include "platform/store/history/notification_history.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"

namespace notification_history {
namespace {

using kvtree::QueuedNotification;

// What the file has of one, after the time, the type and the counts.
wire::Octets content_of(const Past& past, const std::vector<std::uint64_t>& counts) {
  wire::Octets content;
  wire::Writer writer(&content);
  writer.u64(past.number);
  writer.u64(past.time);
  writer.u32(past.type);
  writer.u32(static_cast<std::uint32_t>(counts.size()));
  for (const std::uint64_t count : counts) writer.u64(count);
  writer.octets(past.record);
  return content;
}

// `counts`, if it is not null: those that the content has. Nothing if the content is that of another version.
std::optional<Past> past_of(const QueuedNotification& entry, std::vector<std::uint64_t>* counts) {
  wire::Reader reader(*entry.content);
  Past past{reader.u64(), reader.u64(), reader.u32(), {}};
  const std::uint32_t types = reader.u32();
  if (types > reader.left() / sizeof(std::uint64_t)) return std::nullopt;
  std::vector<std::uint64_t> stored(types);
  std::ranges::generate(stored, [&reader] { return reader.u64(); });
  const wire::OctetSpan record = reader.octets();
  if (!reader.finished()) return std::nullopt;
  past.record.assign(record.begin(), record.end());
  if (counts != nullptr) *counts = std::move(stored);
  return past;
}

}  // namespace

Status History::store_in(const std::string& path) {
  file_ = std::make_unique<kvtree::QueueFile>(path, "the latest notifications");
  state_.instance = clock_stamp();
  if (const Status status = file_->open_or_retry(&state_)) return status;
  continue_counts();
  return kStatusOk;
}

void History::continue_counts() {
  const std::size_t all = state_.entries.size();
  std::erase_if(state_.entries, [](const auto& entry) { return !past_of(entry, nullptr).has_value(); });
  if (state_.entries.size() != all)
    log_warning("kvtree", "%zu stored notifications are of another version and are not listed",
                all - state_.entries.size());
  if (state_.entries.empty()) return;
  std::vector<std::uint64_t> stored;
  past_of(state_.entries.back(), &stored);
  std::copy_n(stored.begin(), std::min(stored.size(), counts_.size()), counts_.begin());
}

void History::add(std::uint32_t type, wire::OctetSpan record) {
  ++counts_[type];
  const std::uint64_t number = std::accumulate(counts_.begin(), counts_.end(), std::uint64_t{0});
  const Past past{number, clock_stamp(), type, {record.begin(), record.end()}};
  state_.entries.push_back(
      {state_.next_sequence++, 0, std::make_shared<const wire::Octets>(content_of(past, counts_))});
  if (file_ != nullptr) file_->added(state_);
  if (state_.entries.size() <= limit_) return;
  const std::uint64_t oldest = state_.entries.front().sequence;
  state_.entries.pop_front();
  if (file_ != nullptr) file_->acknowledged(oldest, state_);
}

std::vector<Past> History::latest(std::size_t most) const {
  std::vector<Past> all;
  const auto count = static_cast<std::ptrdiff_t>(std::min(most, state_.entries.size()));
  for (auto entry = state_.entries.end() - count; entry != state_.entries.end(); ++entry)
    if (std::optional<Past> past = past_of(*entry, nullptr)) all.push_back(*std::move(past));
  return all;
}

}  // namespace notification_history
