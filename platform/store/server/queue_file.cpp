#include "platform/store/server/queue_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/files/private_files.h"
#include "platform/core/files/read_file.h"
#include "platform/core/files/replace_file.h"
#include "platform/core/files/synchronize.h"
#include "platform/core/sqlite/row_checksum.h"

namespace kvtree {

namespace {

constexpr std::uint32_t kQueueMagic = 0x5153564d;  // "MVSQ"
constexpr std::size_t kMostQueueOctets = 512U << 20;
constexpr std::size_t kWrittenAnewAt = 1U << 20;  // octets, and twice those that were needed
constexpr std::size_t kMostSince = 16U << 20;     // octets, of a process that waits for a slow disk

enum class QueueChange : std::uint8_t { kAdded = 1, kLost = 2, kAcknowledged = 3 };

struct QueueRecord {
  QueueChange change = QueueChange::kAdded;
  std::uint64_t first = 0;  // the sequence; of the header the instance
  std::uint64_t second = 0;
  wire::OctetSpan content;
};

std::uint64_t queue_checksum(const QueueRecord& record) {
  const std::string_view content(reinterpret_cast<const char*>(record.content.data()), record.content.size());
  sqlite::RowChecksum checksum;
  checksum.integer(static_cast<std::uint64_t>(record.change)).integer(record.first).integer(record.second);
  return static_cast<std::uint64_t>(checksum.blob(content).result());
}

void write_queue_record(const QueueRecord& record, wire::Octets* octets) {
  wire::Writer writer(octets);
  writer.u64(queue_checksum(record));
  writer.u8(static_cast<std::uint8_t>(record.change));
  writer.u64(record.first);
  writer.u64(record.second);
  writer.octets(record.content);
}

// False at the end of the complete records.
bool read_queue_record(wire::Reader* reader, QueueRecord* record) {
  const std::uint64_t checksum = reader->u64();
  record->change = static_cast<QueueChange>(reader->u8());
  record->first = reader->u64();
  record->second = reader->u64();
  record->content = reader->octets();
  return reader->ok() && checksum == queue_checksum(*record);
}

void write_queued(const QueuedNotification& entry, wire::Octets* octets) {
  write_queue_record({QueueChange::kAdded, entry.sequence, entry.lost_before, *entry.content}, octets);
}

void lose_queued(std::uint64_t sequence, QueueState* state) {
  const auto lost = std::ranges::find(state->entries, sequence, &QueuedNotification::sequence);
  if (lost == state->entries.end() || lost + 1 == state->entries.end()) return;
  (lost + 1)->lost_before += lost->lost_before + 1;
  state->entries.erase(lost);
}

void apply_to_queue(const QueueRecord& record, QueueState* state) {
  switch (record.change) {
    case QueueChange::kAdded:
      state->entries.push_back(
          {record.first, record.second,
           std::make_shared<wire::Octets>(record.content.begin(), record.content.end())});
      state->next_sequence = std::max(state->next_sequence, record.first + 1);
      return;
    case QueueChange::kLost:
      return lose_queued(record.first, state);
    case QueueChange::kAcknowledged:
      while (!state->entries.empty() && state->entries.front().sequence <= record.first)
        state->entries.pop_front();
      return;
  }
}

// How many notifications are missing before the next one, if what was before it is damaged.
std::uint64_t count_missing(const QueueState& state, const QueueRecord& next) {
  const std::uint64_t gap = next.first - std::min(next.first, state.next_sequence);
  return gap - std::min(gap, next.second);
}

struct QueueDamage {
  std::size_t octets = 0;
  bool is_before_next = false;  // notification
};

// Looks for the next whole record, octet by octet. False if there is none.
bool skip_damage(wire::OctetSpan rest, std::size_t* skipped) {
  for (*skipped = 1; *skipped < rest.size(); ++*skipped) {
    wire::Reader reader(rest.subspan(*skipped));
    QueueRecord record;
    if (read_queue_record(&reader, &record)) return true;
  }
  return false;
}

// Applies all records that can be read and returns the octets that are incomplete at the end.
std::size_t apply_all(wire::OctetSpan rest, QueueState* state, QueueDamage* damage) {
  while (!rest.empty()) {
    wire::Reader reader(rest);
    QueueRecord record;
    std::size_t used = 0;
    if (read_queue_record(&reader, &record)) {
      used = rest.size() - reader.left();
      if (record.change == QueueChange::kAdded && std::exchange(damage->is_before_next, false))
        record.second += count_missing(*state, record);
      apply_to_queue(record, state);
    } else {
      if (!skip_damage(rest, &used)) break;
      damage->octets += used;
      damage->is_before_next = true;
    }
    rest = rest.subspan(used);
  }
  return rest.size();
}

// The header: the magic number, the instance and the next sequence number.
bool read_queue_header(wire::Reader* reader, QueueState* state) {
  QueueRecord header;
  if (reader->u32() != kQueueMagic || !read_queue_record(reader, &header)) return false;
  *state = {header.first, header.second, {}};
  return true;
}

wire::Octets queue_octets(const QueueState& state) {
  wire::Octets octets;
  wire::Writer(&octets).u32(kQueueMagic);
  write_queue_record({QueueChange::kAdded, state.instance, state.next_sequence, {}}, &octets);
  for (const QueuedNotification& entry : state.entries) write_queued(entry, &octets);
  return octets;
}

}  // namespace

QueueFile::~QueueFile() {
  cancel_retry();
  close_file();
}

void QueueFile::close_file() {
  if (fd_ >= 0) close(std::exchange(fd_, -1));
}

Status QueueFile::open(QueueState* state) {
  if (const Status status = load(state)) return status;
  return write_anew(*state);
}

Status QueueFile::open_or_retry(QueueState* state) {
  if (const Status status = load(state)) return status;
  report(write_anew(*state));
  return kStatusOk;
}

Status QueueFile::load(QueueState* state) {
  if (const Status status = read(state)) return status;
  state_ = state;
  state->next_sequence += kSequencesOfAProcess;
  return kStatusOk;
}

Status QueueFile::read(QueueState* state) {
  std::string text;
  std::string error;
  const Status status = read_file(path_, kMostQueueOctets, &text, &error);
  if (status == kStatusNoSuchRow) return kStatusOk;
  if (status != kStatusOk && status != kStatusMessageTooLarge) return status;
  const wire::OctetSpan octets(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  wire::Reader reader(octets);
  if (!read_queue_header(&reader, state)) {
    log_warning("kvtree", "%s is not a queue of notifications and is stored as %s.unusable", path_.c_str(),
                path_.c_str());
    return std::rename(path_.c_str(), (path_ + ".unusable").c_str()) == 0 ? kStatusOk
                                                                          : static_cast<Status>(errno);
  }
  QueueDamage damage;
  const wire::OctetSpan records = wire::OctetSpan(octets).last(reader.left());
  const std::size_t left = apply_all(records, state, &damage);
  if (damage.octets > 0)
    log_error("kvtree", "%s: %zu damaged octets are ignored; what can be read after them is used",
              path_.c_str(), damage.octets);
  if (left > 0)
    log_notice("kvtree", "%s: the last %zu octets are not complete and are ignored", path_.c_str(), left);
  return kStatusOk;
}

void QueueFile::added(const QueueState& state) {
  wire::Octets record;
  write_queued(state.entries.back(), &record);
  append(record, state);
}

void QueueFile::lost(std::uint64_t sequence, const QueueState& state) {
  wire::Octets record;
  write_queue_record({QueueChange::kLost, sequence, 0, {}}, &record);
  append(record, state);
}

void QueueFile::acknowledged(std::uint64_t sequence, const QueueState& state) {
  wire::Octets record;
  write_queue_record({QueueChange::kAcknowledged, sequence, 0, {}}, &record);
  append(record, state);
}

void QueueFile::use_thread(EventManager* manager) {
  if (worker_ != nullptr) worker_->finish();
  cancel_retry();
  worker_ = manager == nullptr ? nullptr : std::make_unique<EventWorker>(manager);
  if (fails_) retry_later();
}

bool QueueFile::is_to_be_written_anew() const {
  if (is_writing_anew_ || clock_monotonic() < retry_at_) return false;
  return fd_ < 0 || (size_ > kWrittenAnewAt && size_ > 2 * needed_);
}

void QueueFile::append(const wire::Octets& record, const QueueState& state) {
  if (is_writing_anew_) keep_since(record);
  if (is_to_be_written_anew()) {
    if (worker_ == nullptr) return report(write_anew(state));
    begin_writing_anew(state);
  }
  if (fd_ >= 0) report(write_at_end(record));
}

// Without all that was appended since it began, the new file is of no use.
void QueueFile::keep_since(const wire::Octets& record) {
  lacks_since_ = lacks_since_ || since_.size() + record.size() > kMostSince;
  if (lacks_since_) {
    since_ = {};
  } else {
    since_.insert(since_.end(), record.begin(), record.end());
  }
}

// What was written in part is written anew later: nothing could be read after it.
Status QueueFile::write_at_end(const wire::Octets& record) {
  if (const Status status = fault_check("queue_file_append")) return status;
  const ssize_t written = write(fd_, record.data(), record.size());
  if (written < 0) return static_cast<Status>(errno);
  size_ += record.size();
  return static_cast<std::size_t>(written) == record.size() ? kStatusOk : static_cast<Status>(ENOSPC);
}

Status QueueFile::write_anew(const QueueState& state) {
  close_file();
  const wire::Octets octets = queue_octets(state);
  const std::string_view text(reinterpret_cast<const char*>(octets.data()), octets.size());
  if (const Status status = replace_file(path_, text, 0600, Survives::kPowerCut)) return status;
  fd_ = open_private_file(path_, O_WRONLY | O_APPEND);
  size_ = needed_ = octets.size();
  return fd_ >= 0 ? kStatusOk : static_cast<Status>(errno);
}

void QueueFile::begin_writing_anew(const QueueState& state) {
  is_writing_anew_ = true;
  lacks_since_ = false;
  since_.clear();
  const auto octets = std::make_shared<const wire::Octets>(queue_octets(state));
  const auto status = std::make_shared<Status>(kStatusOk);
  worker_->run(
      [path = path_, octets, status] {
        const std::string_view text(reinterpret_cast<const char*>(octets->data()), octets->size());
        *status = write_beside(path, text, 0600, Survives::kPowerCut);
      },
      [this, octets, status] { end_writing_anew(*status, octets->size()); });
}

void QueueFile::end_writing_anew(Status status, std::size_t octets) {
  is_writing_anew_ = false;
  if (lacks_since_ && status == kStatusOk) status = static_cast<Status>(ENOBUFS);
  if (status != kStatusOk && fd_ >= 0) return continue_former(status);
  if (status == kStatusOk) status = replace_by_new(octets);
  report(status);
  if (status != kStatusOk) return;
  grows_ = false;
  synchronize_name();
}

// The former file is complete, and an append may succeed on a disk that has no room for a second file.
void QueueFile::continue_former(Status status) {
  since_ = {};
  retry_at_ = clock_monotonic() + kNanosecondsPerSecond;
  if (std::exchange(grows_, true)) return;
  log_warning("kvtree", "%s cannot be written anew, so it grows: %s", path_.c_str(), err_text(status));
}

// After a failure the former file is still there, with everything that could be appended to it.
Status QueueFile::replace_by_new(std::size_t octets) {
  close_file();
  const std::string beside = path_beside(path_);
  fd_ = open_private_file(beside, O_WRONLY | O_APPEND);
  if (fd_ < 0) return static_cast<Status>(errno);
  size_ = needed_ = octets;
  if (const Status status = write_at_end(std::exchange(since_, {}))) return status;
  return std::rename(beside.c_str(), path_.c_str()) == 0 ? kStatusOk : static_cast<Status>(errno);
}

// A power cut before its end finds the former file.
void QueueFile::synchronize_name() {
  const auto status = std::make_shared<Status>(kStatusOk);
  worker_->run([directory = std::filesystem::path(path_).parent_path().string(),
                status] { *status = synchronize_directory(directory); },
               [this, status] {
                 if (*status != kStatusOk) report(*status);
               });
}

void QueueFile::report(Status status) {
  if (status == kStatusOk) {
    if (std::exchange(fails_, false)) log_notice("kvtree", "%s is written again", path_.c_str());
    return;
  }
  close_file();
  retry_at_ = clock_monotonic() + kNanosecondsPerSecond;
  retry_later();
  if (std::exchange(fails_, true)) return;
  log_error("kvtree", "%s cannot be written: %s are lost if the process ends: %s", path_.c_str(),
            contents_.c_str(), err_text(status));
}

// There may be no further notification.
void QueueFile::retry_later() {
  if (worker_ == nullptr || retry_ != 0) return;
  retry_ = event_timer_start(worker_->manager(), kNanosecondsPerSecond, [this] {
    retry_ = 0;
    if (is_to_be_written_anew()) begin_writing_anew(*state_);
  });
}

void QueueFile::cancel_retry() {
  if (worker_ != nullptr) event_timer_cancel(worker_->manager(), std::exchange(retry_, 0));
}

}  // namespace kvtree
