#include "tests/kill/trap_subscriber.h"

#include <algorithm>
#include <stdexcept>

#include "platform/store/client/client.h"
#include "tests/kill/small_daemon.h"

namespace kill9 {

namespace {

constexpr std::chrono::milliseconds kPatience(20000);

void process_traps(int fd) {
  kvtree::Client client(kvtree::Client::default_socket(), kPatience);
  if (client.connect() != kStatusOk) return;
  const kvtree::SubscribeResult subscribed = client.subscribe(kTraps, kTrapSubscriber);
  if (subscribed.status != kStatusOk) return;
  for (;;) {
    const kvtree::NotificationResult trap = client.next_notification(kPatience);
    if (trap.status != kStatusOk) return;
    const ProcessedTrap processed{trap.values[0], static_cast<std::uint32_t>(trap.lost_before)};
    if (write(fd, &processed, sizeof processed) != static_cast<ssize_t>(sizeof processed)) return;
    if (trap.sequence % 3 == 0 && client.acknowledge(trap.subscription, trap.sequence) != kStatusOk) return;
  }
}

std::string describe(const ProcessedTrap& trap, std::uint32_t after) {
  return "trap " + std::to_string(trap.number) + " with " + std::to_string(trap.lost_before) +
         " lost after trap " + std::to_string(after);
}

}  // namespace

TrapSubscriber::Pipe::Pipe() {
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
}

TrapSubscriber::TrapSubscriber(const std::string& log)
    : child_(log, [this] { process_traps(pipe_.ends[1]); }) {
  close(pipe_.ends[1]);
}

TrapSubscriber::~TrapSubscriber() {
  child_.kill_now();
  close(pipe_.ends[0]);
}

bool TrapSubscriber::read_one(std::vector<ProcessedTrap>* traps) {
  ProcessedTrap trap;
  if (read(pipe_.ends[0], &trap, sizeof trap) != static_cast<ssize_t>(sizeof trap)) return false;
  traps->push_back(trap);
  return true;
}

std::vector<ProcessedTrap> TrapSubscriber::wait() {
  std::vector<ProcessedTrap> traps;
  while (read_one(&traps)) {
  }
  if (!child_.kill_now()) throw std::runtime_error("a subscriber ended by itself");
  return traps;
}

std::vector<ProcessedTrap> TrapSubscriber::wait_for(std::uint32_t number) {
  std::vector<ProcessedTrap> traps;
  while (read_one(&traps) && traps.back().number != number) {
  }
  child_.kill_now();
  while (read_one(&traps)) {
  }
  return traps;
}

// The numbers in between, except doubtful ones.
std::uint32_t TrapCheck::missing(std::uint32_t after, std::uint32_t before) const {
  if (before <= after) return 0;
  const auto doubtful = std::distance(doubtful_.upper_bound(after), doubtful_.lower_bound(before));
  return before - after - 1 - static_cast<std::uint32_t>(doubtful);
}

void TrapCheck::add(const std::vector<ProcessedTrap>& of_one_subscriber) {
  bool is_first = true;
  for (const ProcessedTrap& trap : of_one_subscriber) {
    std::exchange(is_first, false) ? check_first(trap) : check_next(trap);
    ++processed;
    if (trap.number <= last_) ++repeated;
    lost += missing(last_, trap.number);
    cursor_ = trap.number;
    last_ = std::max(last_, cursor_);
  }
}

void TrapCheck::check_next(const ProcessedTrap& trap) const {
  const bool is_reported = missing(cursor_, trap.number) <= trap.lost_before;
  const bool is_true = trap.lost_before <= trap.number - cursor_ - 1;
  if (trap.number <= cursor_ || !is_reported || !is_true) throw std::runtime_error(describe(trap, cursor_));
}

// It may be repeated, or follow those that a full queue lost, of which some may have been processed already.
void TrapCheck::check_first(const ProcessedTrap& trap) const {
  if (trap.number == 0 || missing(last_, trap.number) > trap.lost_before)
    throw std::runtime_error(describe(trap, last_));
}

}  // namespace kill9
