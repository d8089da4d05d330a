// Which of a client's queued octets may leave, when output waits for something to be stored (wire.h,
// set_output_gate). Only for this folder.
//
// Octets get a number of the gate when they are about to leave for the first time, and keep it: later changes
// do not delay them. They wait for at most two numbers at a time, the commit that is being written and the
// next one.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <vector>

namespace wire {

class Connection;

// Of the calling thread.
struct OutputGate {
  std::function<std::uint64_t()> next_number;  // null: everything may leave
  std::uint64_t opened = 0;                    // what has this number, or a lower one, may leave
  std::vector<std::weak_ptr<Connection>> waiting;
};
inline OutputGate& output_gate() {
  thread_local OutputGate gate;  // each server belongs to one thread
  return gate;
}

// Positions count all octets that were ever queued for the client.
class GatedOutput {
 public:
  // Returns the position up to which octets may leave, of those up to `end`.
  std::uint64_t release(std::uint64_t end);
  // Whether nothing may leave of the octets from `sent` to `end`, because all of them wait for the gate.
  bool is_held(std::uint64_t sent, std::uint64_t end) const;
  // The octets that wait for the gate.
  std::uint64_t count_held() const { return parts_.empty() ? 0 : parts_.back().end - released_; }
  // The gate has opened for some of them.
  void update();

 private:
  struct Part {
    std::uint64_t number;
    std::uint64_t end;
  };

  std::uint64_t released_ = 0;
  std::vector<Part> parts_;  // after `released_`
};

inline void GatedOutput::update() {
  const auto held =
      std::ranges::find_if(parts_, [](const Part& part) { return part.number > output_gate().opened; });
  if (held != parts_.begin()) released_ = std::prev(held)->end;
  parts_.erase(parts_.begin(), held);
}

inline std::uint64_t GatedOutput::release(std::uint64_t end) {
  update();
  const bool is_new = end > (parts_.empty() ? released_ : parts_.back().end);
  if (!is_new) return released_;
  const OutputGate& gate = output_gate();
  const std::uint64_t number = gate.next_number ? gate.next_number() : 0;
  if (number > gate.opened && (parts_.empty() || number > parts_.back().number)) {
    parts_.push_back({number, end});
  } else if (parts_.empty()) {
    released_ = end;
  } else {
    parts_.back().end = end;
  }
  return released_;
}

inline bool GatedOutput::is_held(std::uint64_t sent, std::uint64_t end) const {
  return sent == released_ && !parts_.empty() && parts_.back().end == end &&
         parts_.front().number > output_gate().opened;
}

}  // namespace wire
