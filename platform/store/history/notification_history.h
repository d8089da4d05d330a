// The latest notifications of a provider, and how many of each type there were. Only for this folder.
//
// Stored in a file of notifications (queue_file.h), so that both survive the process, also one that is
// killed; a power cut may lose the last ones. Each notification is stored with the counts up to itself, so
// that they outlive those that are no longer listed. Main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/store/queue/queue_file.h"

namespace notification_history {

struct Past {
  std::uint64_t number;  // of all types, from 1
  std::uint64_t time;    // clock_stamp() when it was raised
  std::uint32_t type;
  wire::Octets record;  // as it was sent
};

class History {
 public:
  // Lists the latest `limit` notifications of types below `types`. REQUIRES: limit > 0.
  History(std::size_t limit, std::size_t types) : limit_(limit), counts_(types) {}

  // Continues with what an earlier process stored. The system's error, which is logged, if the file is not
  // used; then the history is in memory only. A file that cannot be written is written later.
  [[nodiscard]] Status store_in(const std::string& path);
  // Whose thread writes the file anew. Null: again in the caller.
  void use_thread(EventManager* manager) {
    if (file_ != nullptr) file_->use_thread(manager);
  }

  // REQUIRES: type is below `types`.
  void add(std::uint32_t type, wire::OctetSpan record);
  // The latest, at most so many, the oldest of them first.
  std::vector<Past> latest(std::size_t most) const;
  // Why its file cannot be used or written; empty if it can.
  std::string problem() const { return file_ == nullptr ? "" : file_->problem(); }
  // By type, since the file exists.
  const std::vector<std::uint64_t>& counts() const { return counts_; }

 private:
  void continue_counts();

  const std::size_t limit_;
  std::vector<std::uint64_t> counts_;
  kvtree::QueueState state_;
  std::unique_ptr<kvtree::QueueFile> file_;  // may be null
};

}  // namespace notification_history
