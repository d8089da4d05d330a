// The file of a queue of notifications: a header, then a record for each notification that was added, lost or
// acknowledged, each with a checksum. The header's record is there twice, so that no single damage can lose
// it. Only for this folder and the history.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>

#include "platform/core/wire/wire.h"

namespace kvtree {

struct QueuedNotification {
  std::uint64_t sequence;
  std::uint64_t lost_before;                    // notifications missing between the one before and this one
  std::shared_ptr<const wire::Octets> content;  // the message's part that is the same for every subscriber
};

// The numbers of a process begin above all that the former one can have used: of those some are not in the
// file, if it could not be written or power failed. Below this, the numbers of all processes count
// notifications.
inline constexpr std::uint64_t kSequencesOfAProcess = std::uint64_t{1} << 32;

struct QueueState {
  // Distinguishes this queue from others, whose sequence numbers are unrelated.
  std::uint64_t instance = 0;
  std::uint64_t next_sequence = 1;
  std::deque<QueuedNotification> entries;
};

// A new file.
wire::Octets queue_octets(const QueueState& state);
// What follows when the state has changed.
wire::Octets added_octets(const QueuedNotification& entry);
wire::Octets lost_octets(std::uint64_t sequence);
wire::Octets acknowledged_octets(std::uint64_t sequence);

struct QueueReading {
  bool has_header = false;
  bool has_records = false;    // other ones
  std::size_t damaged = 0;     // octets that are ignored, with something valid after them
  std::size_t incomplete = 0;  // ... at the end
};
// Replaces *state by what can be read in a file; without its header, the instance remains. A notification
// whose record is damaged counts as lost before the next one.
QueueReading read_queue(wire::OctetSpan octets, QueueState* state);

}  // namespace kvtree
