// The file of a queue of notifications, so that they outlive the process. Only for this folder and the
// history.
//
// What was appended (queue_format.h) survives the death of the process at any moment. A power cut may lose
// the last records: then some notifications are lost, or sent again although they were acknowledged. The file
// is written anew when it is opened and when most of it is no longer needed, and from memory once a second
// after a failure. A thread does that while the process serves; meanwhile, and if it fails, the former file
// is continued.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/core/evm/worker.h"
#include "platform/core/wire/wire.h"
#include "platform/store/queue/queue_format.h"

namespace kvtree {

// How the problem of a file begins that is left as it is and not used until the next start. With any other
// one the file cannot be written.
inline constexpr std::string_view kNotUsed = "it cannot be read";

class QueueFile {
 public:
  // `contents`: what is lost if the file cannot be written and the process ends, for the log.
  explicit QueueFile(std::string path, std::string contents = "the waiting notifications")
      : path_(std::move(path)), contents_(std::move(contents)) {}
  ~QueueFile();
  QueueFile(const QueueFile&) = delete;
  QueueFile& operator=(const QueueFile&) = delete;

  // Replaces *state by what the file has; a missing file gets *state. A damaged record is skipped and logged,
  // and a notification that it had counts as lost. A file without a header is also stored as
  // FILE.unusable.N (platform/core/files/set_aside.h) and logged, and what can be read in it gets the
  // instance of *state; so is one that cannot be read at all, whose notifications are not sent. The system's
  // error, which is logged, for a file that can be neither read nor stored aside: it is left as it is, and
  // nothing is written. The system's error if the file cannot be written. The state must outlive this.
  [[nodiscard]] Status open(QueueState* state);
  // The same, but a file that was read and cannot be written is logged and written later, as after any other
  // failure to write.
  [[nodiscard]] Status open_or_retry(QueueState* state);
  // From now on no call waits for the disk; the manager must exist until another one is set. Null: again in
  // the caller.
  void use_thread(EventManager* manager);

  // Why it is not used (kNotUsed), cannot be written, or not written anew; empty if it can.
  const std::string& problem() const { return problem_; }

  // After the change of the state. Failures are logged, and the queue continues in memory.
  void added(const QueueState& state);  // its last entry
  void lost(std::uint64_t sequence, const QueueState& state);
  void acknowledged(std::uint64_t sequence, const QueueState& state);

 private:
  Status load(QueueState* state);
  Status read(QueueState* state);
  Status store_aside(const QueueReading& reading);
  Status store_unreadable(const std::string& why);
  void append(const wire::Octets& record, const QueueState& state);
  void keep_since(const wire::Octets& record);
  Status write_at_end(const wire::Octets& record);
  bool is_to_be_written_anew() const;
  Status write_anew(const QueueState& state);
  void begin_writing_anew(const QueueState& state);
  void end_writing_anew(Status status, std::size_t octets);
  void continue_former(Status status);
  Status replace_by_new(std::size_t octets);
  void synchronize_name();
  void close_file();
  void report(Status status);
  void retry_later();
  void cancel_retry();

  std::string path_;
  std::string contents_;
  const QueueState* state_ = nullptr;  // of open(); null: nothing is written
  int fd_ = -1;                        // none after a failure
  std::size_t size_ = 0;
  std::size_t needed_ = 0;  // octets when it was last written anew
  std::uint64_t retry_at_ = 0;
  EventTimerId retry_ = 0;
  bool fails_ = false;
  std::string problem_;
  bool grows_ = false;            // it could not be written anew
  bool is_writing_anew_ = false;  // on the thread
  wire::Octets since_;            // what was appended since that began
  bool lacks_since_ = false;      // it was too much
  std::unique_ptr<EventWorker> worker_;
};

}  // namespace kvtree
