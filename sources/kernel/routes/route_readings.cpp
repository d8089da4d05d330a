// The order of the readings (see route_follower.h): one at a time, in turns of the event loop.
//
// Next-hop objects come before tables, because routes name them. Dirty tables take turns in the order of
// their numbers. After a reading a table rests four times as long as the reading took, so that a table of a
// million routes in which something happens all the time costs a fifth of the loop and no more.
//
// A reading is in doubt when the kernel says that it was disturbed, when a route names an object that is not
// known, or when the store refused a row. It adds and corrects but takes nothing away, and is repeated after
// `retry`; after kDoubtsMax in a row it is believed all the same, because rows that are gone must not be
// shown for ever.
#include <sys/epoll.h>

#include <algorithm>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "sources/kernel/routes/route_follower.h"

namespace kernel {
namespace {

constexpr unsigned kDoubtsMax = 5;
constexpr std::uint64_t kRest = 4;           // times the duration of a reading
constexpr std::size_t kRowsPerSweep = 5000;  // about a millisecond
constexpr std::uint64_t kSpread = 64;        // places in the last quarter of the interval

// Tables that were read together are not due together.
std::uint64_t spread_of(router::RouteTableId table, std::uint64_t interval) {
  const std::uint64_t place = (table.table * 2ULL + static_cast<std::uint64_t>(table.family)) % kSpread;
  return interval / 4 * place / kSpread;
}

}  // namespace

// A datagram of 32 kB has some 480 routes, which take the store about a third of a millisecond.
unsigned RouteFollower::dump_batch() const {
  return std::max(1U, settings_.batch / 16);
}

// While something is being read nothing has to be woken: its end is followed by a turn.
void RouteFollower::wake(std::uint64_t delay) {
  if (manager_ == nullptr || phase_ != Phase::kIdle) {
    return;
  }
  const std::uint64_t due = clock_monotonic() + delay;
  if (turn_timer_ != 0 && turn_due_ <= due) {
    return;
  }
  if (turn_timer_ != 0) {
    event_timer_cancel(manager_, turn_timer_);
  }
  turn_due_ = due;
  turn_timer_ = event_timer_start(manager_, delay, [this] { turn(); });
}

// What has been said by now is read first: the reading knows it already.
void RouteFollower::turn() {
  turn_timer_ = 0;
  if (phase_ == Phase::kSweep) {
    sweep();
    return;
  }
  events_.read();
  mark_dependants();
  if (begin_something() && turn_timer_ != 0) {
    event_timer_cancel(manager_, std::exchange(turn_timer_, 0));
  }
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

// The first one behind the table that was read last.
RouteFollower::Tables::iterator RouteFollower::next_dirty(std::uint64_t now, std::uint64_t* earliest) {
  auto place = dirty_.upper_bound(reading_.table());
  for (std::size_t count = 0; count < dirty_.size(); ++count, ++place) {
    if (place == dirty_.end()) {
      place = dirty_.begin();
    }
    const auto table = tables_.find(*place);
    if (table->second.not_before <= now) {
      return table;
    }
    *earliest = std::min(*earliest, table->second.not_before);
  }
  return tables_.end();
}

void RouteFollower::come_back_to(Tables::iterator table, std::uint64_t delay) {
  dirty_.insert(table->first);
  table->second.not_before = clock_monotonic() + delay;
}

void RouteFollower::become_idle() {
  phase_ = Phase::kIdle;
  wake(0);
}

// Also the sweep, if there is one. The caller sees to the next turn.
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
    if (const auto* seen = std::get_if<NextHopSeen>(&event)) objects_seen_.see(seen->object);
  }
  return good;
}

void RouteFollower::continue_objects() {
  const Dump::Progress progress =
      objects_dump_.step(dump_batch(), [this](const nlmsghdr* message) { return read_object(message); });
  if (progress == Dump::Progress::kMore || progress == Dump::Progress::kWaiting) {
    return;
  }
  abandon_reading();
  if (progress == Dump::Progress::kFailed) {
    objects_failed(objects_dump_.error());
  } else {
    finish_objects();
  }
  become_idle();
}

void RouteFollower::finish_objects() {
  counters_.malformed += objects_dump_.malformed();
  const bool in_doubt = objects_dump_.disturbed() || objects_disturbed_;
  if (in_doubt && ++objects_doubts_ < kDoubtsMax) {
    objects_dirty_ = true;
    objects_not_before_ = clock_monotonic() + settings_.retry;
    return;
  }
  objects_doubts_ = 0;
  changed_objects_.merge(objects_.differences(objects_seen_));
  objects_ = std::exchange(objects_seen_, NextHopObjects{});
}

void RouteFollower::objects_failed(Status status) {
  ++counters_.failures;
  tell_failure("reading next-hop objects", status);
  objects_dirty_ = true;
  objects_not_before_ = clock_monotonic() + settings_.retry;
  wake(0);  // the tables do not wait for the objects
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
  if (progress == Dump::Progress::kMore || progress == Dump::Progress::kWaiting) {
    return;
  }
  abandon_reading();
  if (progress == Dump::Progress::kFailed) {
    table_failed(reading_.error());
  } else {
    finish_table();
  }
}

void RouteFollower::table_failed(Status status) {
  ++counters_.failures;
  tell_failure("reading a table", status);
  if (const auto table = tables_.find(reading_.table()); table != tables_.end()) {
    table->second.usage.merge(reading_.usage());
    come_back_to(table, settings_.retry);
  }
  become_idle();
}

void RouteFollower::finish_table() {
  ++counters_.tables_read;
  counters_.malformed += reading_.malformed();
  counters_.refused += reading_.refused();
  counters_.unresolved += reading_.unresolved();
  const auto table = tables_.find(reading_.table());
  if (reading_.in_doubt() && ++table->second.doubts < kDoubtsMax) {
    ++counters_.disturbed_readings;
    objects_dirty_ = objects_dirty_ || reading_.unresolved() != 0;
    table->second.usage.merge(reading_.usage());
    come_back_to(table, settings_.retry);
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
    turn_due_ = clock_monotonic();
    turn_timer_ = event_timer_start(manager_, 0, [this] { turn(); });
    return;
  }
  settle_table(tables_.find(reading_.table()));
  become_idle();
}

void RouteFollower::settle_table(Tables::iterator table) {
  const std::uint64_t now = clock_monotonic();
  table->second.not_before = now + std::max(settings_.settle, kRest * (now - reading_began_));
  table->second.due = now + settings_.route_reread - spread_of(table->first, settings_.route_reread);
  failure_told_ = false;
  loss_told_ = loss_told_ && !dirty_.empty();
}

}  // namespace kernel
