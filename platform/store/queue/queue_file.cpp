#include "platform/store/queue/queue_file.h"

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
#include "platform/core/files/set_aside.h"
#include "platform/core/files/synchronize.h"

namespace kvtree {

namespace {

constexpr std::size_t kMostQueueOctets = 512U << 20;
constexpr std::size_t kWrittenAnewAt = 1U << 20;  // octets, and twice those that were needed
constexpr std::size_t kMostSince = 16U << 20;     // octets, of a process that waits for a slow disk

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
  Status status = fault_check("queue_file_read");
  if (status != kStatusOk) {
    error = err_text(status);
  } else {
    status = read_file(path_, kMostQueueOctets, &text, &error);
  }
  if (status == kStatusNoSuchRow) return kStatusOk;
  if (status != kStatusOk && status != kStatusMessageTooLarge) return store_unreadable(error);
  const wire::OctetSpan octets(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  const QueueReading reading = read_queue(octets, state);
  if (!reading.has_header) return store_aside(reading);
  if (reading.damaged > 0)
    log_error("kvtree", "%s: %zu damaged octets are ignored; what can be read after them is used",
              path_.c_str(), reading.damaged);
  if (reading.incomplete > 0)
    log_notice("kvtree", "%s: the last %zu octets are not complete and are ignored", path_.c_str(),
               reading.incomplete);
  return kStatusOk;
}

// There may be more in it than this release can read.
Status QueueFile::store_aside(const QueueReading& reading) {
  std::string name;
  if (const Status status = set_aside(path_, &name)) return status;
  if (reading.has_records) {
    log_error("kvtree", "%s is damaged and is stored as %s; what can be read in it is used", path_.c_str(),
              name.c_str());
  } else {
    log_warning("kvtree", "%s is not a queue of notifications and is stored as %s", path_.c_str(),
                name.c_str());
  }
  return kStatusOk;
}

// What it has may still be wanted, so nothing may replace it under its name.
Status QueueFile::store_unreadable(const std::string& why) {
  std::string name;
  const Status status = set_aside(path_, &name);
  if (status == kStatusOk) {
    log_error("kvtree", "%s cannot be read (%s) and is stored as %s: the notifications in it are not sent",
              path_.c_str(), why.c_str(), name.c_str());
    return kStatusOk;
  }
  problem_ =
      std::string(kNotUsed) + " (" + why + ") nor set aside (" + err_text(status) + "), and is left as it is";
  log_error("kvtree", "%s is not used: %s; %s are lost if the process ends", path_.c_str(), problem_.c_str(),
            contents_.c_str());
  return status;
}

void QueueFile::added(const QueueState& state) {
  append(added_octets(state.entries.back()), state);
}

void QueueFile::lost(std::uint64_t sequence, const QueueState& state) {
  append(lost_octets(sequence), state);
}

void QueueFile::acknowledged(std::uint64_t sequence, const QueueState& state) {
  append(acknowledged_octets(sequence), state);
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
  if (state_ == nullptr) return;
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
  problem_.clear();
  synchronize_name();
}

// The former file is complete, and an append may succeed on a disk that has no room for a second file.
void QueueFile::continue_former(Status status) {
  since_ = {};
  retry_at_ = clock_monotonic() + kNanosecondsPerSecond;
  problem_ = err_text(status);
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
    if (!grows_) problem_.clear();
    if (std::exchange(fails_, false)) log_notice("kvtree", "%s is written again", path_.c_str());
    return;
  }
  problem_ = err_text(status);
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
