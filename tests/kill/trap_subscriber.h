// The subscriber of the traps, as the sub-agent is: it processes each trap, then acknowledges it, and is
// killed at any moment.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "tests/kill/child.h"

namespace kill9 {

struct ProcessedTrap {
  std::uint32_t number = 0;
  std::uint32_t lost_before = 0;
};

class TrapSubscriber {
 public:
  explicit TrapSubscriber(const std::string& log);
  ~TrapSubscriber();
  TrapSubscriber(const TrapSubscriber&) = delete;
  TrapSubscriber& operator=(const TrapSubscriber&) = delete;

  void kill_after(std::chrono::microseconds time) { child_.kill_after(time); }
  // What it processed until it was killed.
  std::vector<ProcessedTrap> wait();
  // Waits until it has processed the trap of this number, then kills it.
  std::vector<ProcessedTrap> wait_for(std::uint32_t number);

 private:
  struct Pipe {
    Pipe();
    int ends[2] = {-1, -1};
  };
  bool read_one(std::vector<ProcessedTrap>* traps);

  Pipe pipe_;
  Child child_;
};

// Checks what subscribers processed one after the other, each until it was killed: all traps in order, none
// missing beyond those that the queue reported, none repeated except directly after a kill. Throws
// std::runtime_error.
class TrapCheck {
 public:
  void add(const std::vector<ProcessedTrap>& of_one_subscriber);
  // The daemon was killed while it raised this one, which may be missing.
  void doubt(std::uint32_t number) { doubtful_.insert(number); }
  std::uint32_t last() const { return last_; }

  std::size_t processed = 0;
  std::size_t repeated = 0;
  std::size_t lost = 0;

 private:
  std::uint32_t missing(std::uint32_t after, std::uint32_t before) const;
  void check_next(const ProcessedTrap& trap) const;
  void check_first(const ProcessedTrap& trap) const;

  std::uint32_t last_ = 0;    // of all subscribers
  std::uint32_t cursor_ = 0;  // of this one
  std::set<std::uint32_t> doubtful_;
};

}  // namespace kill9
