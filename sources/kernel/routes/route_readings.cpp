// The readings of the route follower: one at a time, in steps on the event loop.
//
// Next-hop objects are read before tables, because routes name them; links and their addresses at the start
// and after a loss. Dirty tables are read round robin in the order of their numbers. After a reading a table
// is not read again for four times the duration of the reading, so that a table of a million routes costs at
// most a fifth of the loop.
//
// Order. What a step has read is compared when the announcements that precede it have been applied, so that a
// prefix without an announcement since the beginning is in the state that was read. A link or object on which
// the table depends may have deleted routes without an announcement after they were read; then the reading is
// in doubt, or begins again if it only verifies.
//
// A reading is also in doubt when it was disturbed, when a message of it is malformed, when a route names an
// unknown object, or when the store refused a row; a reading of an IPv6 table also when a route of the table
// was announced meanwhile. It adds and updates but does not remove, and is repeated. The
// kDoubtsMax-th consecutive one removes what none of them has read, because deleted routes must not be shown
// for ever, unless it only verifies.
#include <linux/netlink.h>
#include <sys/epoll.h>

#include <algorithm>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "sources/kernel/routes/route_follower.h"
#include "sources/reconcile/reconcile.h"

namespace kernel {
namespace {

constexpr std::uint64_t kRest = 4;  // multiple of the duration of a reading
constexpr std::size_t kPrefixesPerSweep = 1000;
constexpr std::size_t kHeldPerStep = 200;
constexpr int kReadsPerDrain = 4;
constexpr std::uint64_t kSpread = 64;  // slots in the last quarter of the interval

// Spreads tables that were read at the same time.
std::uint64_t spread_of(router::RouteTableId table, std::uint64_t interval) {
  const std::uint64_t place = (table.table * 2ULL + static_cast<std::uint64_t>(table.family)) % kSpread;
  return interval / 4 * place / kSpread;
}

}  // namespace

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
  switch (phase_) {
    case Phase::kBasisEnd:
      return end_basis();
    case Phase::kObjects:
      return compare_objects();
    case Phase::kDelivery:
      return deliver();
    case Phase::kSweep:
      return sweep();
    case Phase::kReplay:
      return replay();
    default:
      break;
  }
  events_.read();
  forget_history();
  if (begin_something()) event_timer_cancel(manager_, std::exchange(step_timer_, 0));
}

bool RouteFollower::begin_something() {
  const std::uint64_t now = clock_monotonic();
  std::uint64_t earliest = UINT64_MAX;
  const bool basis_dirty = links_dirty_ || objects_dirty_;
  if (basis_dirty && basis_not_before_ <= now) {
    begin_basis();
  } else if (const auto table = next_dirty(now, &earliest); table != tables_.end()) {
    begin_table(table);
  } else {
    earliest = basis_dirty ? std::min(earliest, basis_not_before_) : earliest;
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
  table->second.not_before = std::max(table->second.not_before, clock_monotonic() + delay);
  wake(delay);
}

// A stream of reasons does not postpone it.
void RouteFollower::reread_soon(Tables::iterator table) {
  if (!dirty_.contains(table->first)) reread_later(table, settings_.retry);
}

// Before the table that was just read, in doubt or not to the end, is read again.
std::uint64_t RouteFollower::rest() const {
  return std::max(settings_.retry, kRest * (clock_monotonic() - reading_began_));
}

void RouteFollower::step_soon() {
  step_due_ = clock_monotonic();
  step_timer_ = event_timer_start(manager_, 0, [this] { step(); });
}

void RouteFollower::become_idle() {
  phase_ = Phase::kIdle;
  wake(0);
}

bool RouteFollower::is_being_read(router::RouteTableId table) const {
  return phase_ != Phase::kIdle && !is_reading_basis() && reading_.table() == table;
}

void RouteFollower::close_dumps() {
  for (Dump* dump : {&basis_dump_, static_cast<Dump*>(&reading_)}) {
    if (!dump->is_open()) continue;
    event_fd_remove(manager_, dump->fd());
    dump->close();
  }
}

// Also ends a sweep. The caller schedules the next step.
void RouteFollower::abandon_reading() {
  close_dumps();
  const auto table = tables_.find(reading_.table());
  if (table != tables_.end() && is_being_read(table->first)) {
    table->second.routes.abandon_reading();
    table->second.held.clear();
  }
  basis_has_links_ = false;
  phase_ = Phase::kIdle;
}

// False when announcements may be waiting.
bool RouteFollower::drain_events() {
  for (int count = 0; count < kReadsPerDrain; ++count) {
    events_.read();
    if (events_.drained()) return true;
  }
  return false;
}

// A difference that is found is a correction, unless it follows from what has just changed.
bool RouteFollower::is_verifiable(const Table& table) const {
  return knowledge_of(table) == Knowledge::kComplete && !changed_.concerns(table.routes.usage()) &&
         !marking_.concerns(table.routes.usage());
}

// What was announced before the reading begins is a part of it.
void RouteFollower::begin_table(Tables::iterator table) {
  drain_events();
  dirty_.erase(table->first);
  reading_began_ = clock_monotonic();
  reading_losses_ = counters_.losses;
  meanwhile_ = {};
  in_doubt_ = replayed_ = false;
  Status status = reading_.begin(table->first);
  if (status == kStatusOk) {
    status = event_fd_add(manager_, reading_.fd(), EPOLLIN, [this](int, std::uint32_t) { continue_table(); });
  }
  if (status != kStatusOk) {
    reading_.close();
    table_failed(status);
    return;
  }
  const bool continues = table->second.doubts != 0 && table->second.doubts_since == counters_.losses;
  table->second.doubts_since = counters_.losses;
  table->second.doubts_lost_one = table->second.doubts_lost_one && continues;
  table->second.routes.begin_reading(
      is_verifiable(table->second) ? TableRoutes::Reading::kVerify : TableRoutes::Reading::kFirst, continues);
  phase_ = Phase::kTable;
}

// A datagram of 32 kB has about 480 routes. They take half a millisecond, or two if each has a label of its
// own.
void RouteFollower::continue_table() {
  if (phase_ != Phase::kTable) return;
  progress_ = reading_.step(1);
  if (progress_ != Dump::Progress::kFailed) return deliver();
  abandon_reading();
  table_failed(reading_.error());
}

// Something on which the table depends, or too much of the table, changed while a reading verified it.
bool RouteFollower::is_outdated(const Table& table) const {
  return table.routes.announced_meanwhile() > settings_.announced ||
         (knowledge_of(table) != Knowledge::kNone && meanwhile_.concerns(table.routes.usage()));
}

void RouteFollower::deliver() {
  const auto table = tables_.find(reading_.table());
  phase_ = Phase::kDelivery;
  const bool is_complete = progress_ == Dump::Progress::kComplete;
  const bool needs_events = is_complete || knowledge_of(table->second) != Knowledge::kNone ||
                            table->first.family == router::Family::kIpv6;
  if (needs_events && !drain_events()) return step_soon();
  if (is_outdated(table->second)) {
    abandon_reading();
    reread_later(table, rest());
    return become_idle();
  }
  phase_ = Phase::kTable;
  const bool may_remove =
      table->second.doubts + 1 >= kDoubtsMax && knowledge_of(table->second) != Knowledge::kComplete;
  reading_.deliver(is_complete, reading_.is_partial() && !may_remove, &table->second.routes);
  in_doubt_ = account(&table->second) || in_doubt_;
  if (std::exchange(store_changed_, false)) model_->flush_route_changes();
  if (!is_complete) return;
  close_dumps();
  finish_table();
}

void RouteFollower::table_failed(Status status) {
  ++counters_.failures;
  log_failure("reading a table", status, &problem_);
  if (const auto table = tables_.find(reading_.table()); table != tables_.end()) {
    reread_later(table, settings_.retry);
  }
  become_idle();
}

void RouteFollower::finish_table() {
  ++counters_.tables_read;
  const auto table = tables_.find(reading_.table());
  in_doubt_ = in_doubt_ || reading_.is_partial() || table->second.held_lost ||
              meanwhile_.concerns(table->second.routes.usage());
  const bool only_verifies = knowledge_of(table->second) == Knowledge::kComplete;
  const bool rows_remain = in_doubt_ && (++table->second.doubts < kDoubtsMax || only_verifies);
  count_malformed(reading_.malformed(),
                  "while reading " + text_of(table->first) +
                      (rows_remain ? "; its rows remain" : "; rows that it does not show are removed"));
  if (rows_remain) return end_in_doubt(table);
  in_doubt_ = false;
  table->second.doubts = 0;
  phase_ = Phase::kSweep;
  sweep();
}

void RouteFollower::end_in_doubt(Tables::iterator table) {
  ++counters_.disturbed_readings;
  table->second.routes.abandon_reading();
  phase_ = Phase::kReplay;
  replay();
}

void RouteFollower::sweep() {
  const auto table = tables_.find(reading_.table());
  const bool more = table->second.routes.end_some(kPrefixesPerSweep);
  in_doubt_ = account(&table->second) || in_doubt_;
  if (std::exchange(store_changed_, false)) model_->flush_route_changes();
  if (more) return step_soon();
  phase_ = Phase::kReplay;
  replay();
}

// Applies what was announced during the first reading. The reading may have later states, to which a sequence
// of replacements cannot be applied exactly: another reading follows, during which announcements are not
// held.
void RouteFollower::replay() {
  const auto table = tables_.find(reading_.table());
  std::deque<Held>& held = table->second.held;
  for (std::size_t count = 0; count < kHeldPerStep && !held.empty(); ++count, held.pop_front()) {
    const auto* seen = std::get_if<RouteSeen>(&held.front().event);
    replayed_ = replayed_ || (seen != nullptr && (seen->flags & NLM_F_EXCL) == 0);
    apply(held.front().event, held.front().moment, table);
  }
  on_batch_end();
  if (!held.empty()) return step_soon();
  settle_table(table);
  become_idle();
}

void RouteFollower::settle_table(Tables::iterator table) {
  const std::uint64_t now = clock_monotonic();
  const Knowledge knowledge = knowledge_of(table->second);
  const bool events_lost =
      std::exchange(table->second.held_lost, false) || reading_losses_ != counters_.losses;
  // What an earlier reading of a series has shown may have been deleted by a malformed announcement.
  const bool may_list_deleted = !in_doubt_ && std::exchange(table->second.doubts_lost_one, false);
  const bool needs_another = std::exchange(replayed_, false) || may_list_deleted;
  if (needs_another) dirty_.insert(table->first);
  if (!events_lost && !in_doubt_ && !needs_another) {
    set_knowledge(Knowledge::kComplete, &table->second);
  } else if (!events_lost && knowledge == Knowledge::kNone) {
    set_knowledge(Knowledge::kUnconfirmed, &table->second);
  } else if (events_lost) {
    dirty_.insert(table->first);
  }
  if (in_doubt_ && table->second.doubts < kDoubtsMax) return reread_later(table, rest());
  table->second.doubts = 0;
  table->second.not_before = now + std::max(settings_.settle, kRest * (now - reading_began_));
  table->second.due = now + settings_.route_reread - spread_of(table->first, settings_.route_reread);
  failure_logged_ = false;
  problem_.clear();
  loss_logged_ = loss_logged_ && !dirty_.empty();
}

}  // namespace kernel
