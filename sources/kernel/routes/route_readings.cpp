// The readings of the route follower: one at a time, in steps on the event loop.
//
// Next-hop objects are read before tables, because routes name them. Dirty tables are read round robin in the
// order of their numbers. After a reading a table is not read again for four times the duration of the
// reading, so that a table of a million routes with permanent changes costs at most a fifth of the loop.
//
// A reading is in doubt when it was disturbed, when a route names an unknown object, or when the store
// refused a row. It adds and updates but does not remove, and is repeated after `retry`. The kDoubtsMax-th
// consecutive one does remove, because deleted routes must not be shown for ever.
#include <sys/epoll.h>

#include <algorithm>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "sources/kernel/routes/route_follower.h"

namespace kernel {
namespace {

constexpr unsigned kDoubtsMax = 5;
constexpr std::uint64_t kRest = 4;           // multiple of the duration of a reading
constexpr std::size_t kRowsPerSweep = 5000;  // about a millisecond
constexpr std::uint64_t kSpread = 64;        // slots in the last quarter of the interval

// Spreads tables that were read at the same time.
std::uint64_t spread_of(router::RouteTableId table, std::uint64_t interval) {
  const std::uint64_t place = (table.table * 2ULL + static_cast<std::uint64_t>(table.family)) % kSpread;
  return interval / 4 * place / kSpread;
}

}  // namespace

// A datagram of 32 kB has about 480 routes, which the store processes in a third of a millisecond.
unsigned RouteFollower::dump_batch() const {
  return std::max(1U, settings_.batch / 16);
}

// During a reading no timer is needed: a step follows its end.
void RouteFollower::wake(std::uint64_t delay) {
  if (manager_ == nullptr || phase_ != Phase::kIdle) return;
  const std::uint64_t due = clock_monotonic() + delay;
  if (step_timer_ != 0 && step_due_ <= due) return;
  event_timer_cancel(manager_, step_timer_);
  step_due_ = due;
  step_timer_ = event_timer_start(manager_, delay, [this] { step(); });
}

// Waiting events are read first, because the reading will include their changes.
void RouteFollower::step() {
  step_timer_ = 0;
  if (phase_ == Phase::kSweep) {
    sweep();
    return;
  }
  events_.read();
  if (!mark_some()) return wake(0);
  if (begin_something()) event_timer_cancel(manager_, std::exchange(step_timer_, 0));
}

bool RouteFollower::begin_something() {
  const std::uint64_t now = clock_monotonic();
  std::uint64_t earliest = UINT64_MAX;
  if (objects_dirty_ && objects_not_before_ <= now) {
    begin_objects();
  } else if (const auto table = next_dirty(now, &earliest); table != tables_.end()) {
    begin_table(table);
  } else {
    earliest = objects_dirty_ ? std::min(earliest, objects_not_before_) : earliest;
    if (earliest != UINT64_MAX) {
      wake(earliest - now);
    }
  }
  return phase_ != Phase::kIdle;
}

// The first one after the table that was read last.
RouteFollower::Tables::iterator RouteFollower::next_dirty(std::uint64_t now, std::uint64_t* earliest) {
  auto place = dirty_.upper_bound(reading_.table());
  for (std::size_t count = 0; count < dirty_.size(); ++count, ++place) {
    if (place == dirty_.end()) {
      place = dirty_.begin();
    }
    const auto table = tables_.find(*place);
    if (table->second.not_before <= now) return table;
    *earliest = std::min(*earliest, table->second.not_before);
  }
  return tables_.end();
}

void RouteFollower::reread_later(Tables::iterator table, std::uint64_t delay) {
  dirty_.insert(table->first);
  table->second.not_before = clock_monotonic() + delay;
}

void RouteFollower::become_idle() {
  phase_ = Phase::kIdle;
  wake(0);
}

// Also ends a sweep. The caller schedules the next step.
void RouteFollower::abandon_reading() {
  if (objects_dump_.is_open()) {
    event_fd_remove(manager_, objects_dump_.fd());
    objects_dump_.close();
  }
  if (reading_.is_open()) {
    event_fd_remove(manager_, reading_.fd());
    reading_.close();
  }
  phase_ = Phase::kIdle;
}

void RouteFollower::begin_objects() {
  objects_dirty_ = false;
  objects_disturbed_ = false;
  objects_seen_ = NextHopObjects{};
  Status status = objects_dump_.begin({request_next_hops()});
  if (status == kStatusOk) {
    status = event_fd_add(manager_, objects_dump_.fd(), EPOLLIN,
                          [this](int, std::uint32_t) { continue_objects(); });
  }
  if (status != kStatusOk) {
    objects_dump_.close();
    objects_failed(status);
    return;
  }
  phase_ = Phase::kObjects;
}

bool RouteFollower::read_object(const nlmsghdr* message) {
  scratch_.clear();
  const bool good = parse_route_message(message, &scratch_);
  for (const RouteEvent& event : scratch_) {
    if (const auto* seen = std::get_if<NextHopSeen>(&event)) objects_seen_.update(seen->object);
  }
  return good;
}

void RouteFollower::continue_objects() {
  const Dump::Progress progress =
      objects_dump_.step(dump_batch(), [this](const nlmsghdr* message) { return read_object(message); });
  if (progress == Dump::Progress::kMore || progress == Dump::Progress::kWaiting) return;
  abandon_reading();
  if (progress == Dump::Progress::kFailed) {
    objects_failed(objects_dump_.error());
  } else {
    finish_objects();
  }
  become_idle();
}

void RouteFollower::finish_objects() {
  const bool in_doubt = objects_dump_.disturbed() || objects_disturbed_;
  if (in_doubt && ++objects_doubts_ < kDoubtsMax) {
    objects_dirty_ = true;
    objects_not_before_ = clock_monotonic() + settings_.retry;
    return;
  }
  objects_doubts_ = 0;
  changed_.objects.merge(objects_.differences(objects_seen_));
  objects_ = std::exchange(objects_seen_, NextHopObjects{});
}

void RouteFollower::objects_failed(Status status) {
  ++counters_.failures;
  log_failure("reading next-hop objects", status);
  objects_dirty_ = true;
  objects_not_before_ = clock_monotonic() + settings_.retry;
  wake(0);  // tables are read without the objects
}

void RouteFollower::begin_table(Tables::iterator table) {
  dirty_.erase(table->first);
  reading_began_ = clock_monotonic();
  Status status = reading_.begin(table->first);
  if (status == kStatusOk) {
    status = event_fd_add(manager_, reading_.fd(), EPOLLIN, [this](int, std::uint32_t) { continue_table(); });
  }
  if (status != kStatusOk) {
    reading_.close();
    table_failed(status);
    return;
  }
  phase_ = Phase::kTable;
}

void RouteFollower::continue_table() {
  const Dump::Progress progress = reading_.step(dump_batch());
  if (progress == Dump::Progress::kMore || progress == Dump::Progress::kWaiting) return;
  abandon_reading();
  if (progress == Dump::Progress::kFailed) {
    table_failed(reading_.error());
  } else {
    finish_table();
  }
}

void RouteFollower::table_failed(Status status) {
  ++counters_.failures;
  log_failure("reading a table", status);
  if (const auto table = tables_.find(reading_.table()); table != tables_.end()) {
    table->second.usage.merge(reading_.usage());
    reread_later(table, settings_.retry);
  }
  become_idle();
}

void RouteFollower::finish_table() {
  ++counters_.tables_read;
  counters_.refused += reading_.refused();
  counters_.unresolved += reading_.unresolved();
  const auto table = tables_.find(reading_.table());
  if (reading_.in_doubt() && ++table->second.doubts < kDoubtsMax) {
    ++counters_.disturbed_readings;
    objects_dirty_ = objects_dirty_ || reading_.unresolved() != 0;
    table->second.usage.merge(reading_.usage());
    reread_later(table, settings_.retry);
    become_idle();
    return;
  }
  table->second.doubts = 0;
  table->second.usage = reading_.usage();
  phase_ = Phase::kSweep;
  sweep();
}

void RouteFollower::sweep() {
  if (reading_.sweep(kRowsPerSweep)) {
    step_due_ = clock_monotonic();
    step_timer_ = event_timer_start(manager_, 0, [this] { step(); });
    return;
  }
  settle_table(tables_.find(reading_.table()));
  become_idle();
}

void RouteFollower::settle_table(Tables::iterator table) {
  const std::uint64_t now = clock_monotonic();
  table->second.not_before = now + std::max(settings_.settle, kRest * (now - reading_began_));
  table->second.due = now + settings_.route_reread - spread_of(table->first, settings_.route_reread);
  failure_logged_ = false;
  loss_logged_ = loss_logged_ && !dirty_.empty();
}

}  // namespace kernel
