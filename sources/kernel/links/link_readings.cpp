// Losses. When the kernel could not queue an event (ENOBUFS) everything is read again: at once the first
// time, then every `retry` while events are being lost. The model waits for the complete dump, within the
// same bound. A dump is read in small steps between other work. Events that arrive meanwhile are applied to
// the mirror and stored in a log, which is applied to the dump before the dump replaces the mirror. A
// disturbed dump only adds and updates; the next undisturbed one removes what no longer exists.
#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <string>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "sources/kernel/links/link_follower.h"

namespace kernel {

namespace {

constexpr unsigned kLoadAttempts = 5;
constexpr int kLoadPatienceMs = 2000;  // without an answer, per datagram and attempt
constexpr unsigned kMalformedDumpsMax = 5;

}  // namespace

Status LinkFollower::Reading::begin() {
  seen_ = Mirror{};
  return Dump::begin({request_links(), request_addresses()});
}

Dump::Progress LinkFollower::Reading::step(unsigned datagrams) {
  return Dump::step(datagrams, [this](const nlmsghdr* message) {
    events_.clear();
    const bool good = parse_link_message(message, &events_);
    for (const Event& event : events_) seen_.apply(event);
    return good;
  });
}

Mirror LinkFollower::Reading::take() {
  return std::exchange(seen_, Mirror{});
}

unsigned LinkFollower::dump_batch() const {
  return std::max(1U, settings_.batch / 8);
}

Status LinkFollower::load(std::string* error) {
  finish_reconciling();
  if (!events_.is_open()) {
    if (Status status = events_.open()) {
      *error = std::string("rtnetlink socket: ") + err_text(status);
      return status;
    }
  }
  if (dump_.is_open()) {  // its log must not be applied to two dumps
    end_dump();
    schedule_reread(settings_.reread);
  }
  for (unsigned attempt = 0; attempt < kLoadAttempts; ++attempt) {
    reread_soon_ = false;
    if (Status status = load_once(error)) return status;
    if (!reread_soon_) break;
  }
  reconcile();
  return kStatusOk;
}

Status LinkFollower::load_once(std::string* error) {
  Reading once;
  if (Status status = once.begin()) {
    *error = std::string("rtnetlink request: ") + err_text(status);
    return status;
  }
  for (;;) {
    switch (once.step(dump_batch())) {
      case Dump::Progress::kComplete:
        begin_adopting(&once);
        finish_adopting();
        return kStatusOk;
      case Dump::Progress::kFailed:
        *error = std::string("rtnetlink dump: ") + err_text(once.error());
        return once.error();
      case Dump::Progress::kMore:
        break;
      case Dump::Progress::kWaiting:
        pollfd waiting{once.fd(), POLLIN, 0};
        const bool silent =
            fault_check("netlink_poll") != kStatusOk || poll(&waiting, 1, kLoadPatienceMs) == 0;
        if (silent) {
          *error = "rtnetlink dump: the kernel does not answer";
          return kStatusTimedOut;
        }
    }
  }
}

void LinkFollower::on_events_lost() {
  ++counters_.losses;
  mirror_stale_ = true;
  if (dump_.is_open() || adoption_) {
    reread_soon_ = true;
    return;
  }
  const std::uint64_t now = clock_monotonic();
  const std::uint64_t earliest = last_dump_began_ + settings_.retry;
  schedule_reread(last_dump_began_ == 0 || now >= earliest ? 0 : earliest - now);
}

void LinkFollower::schedule_reread(std::uint64_t delay) {
  if (manager_ == nullptr) return;
  event_timer_cancel(manager_, reread_timer_);
  reread_timer_ = event_timer_start(manager_, delay, [this] { begin_dump(); });
}

void LinkFollower::begin_dump() {
  reread_timer_ = 0;
  if (adoption_) return schedule_reread(settings_.retry);
  last_dump_began_ = clock_monotonic();
  reread_soon_ = false;
  log_.clear();
  if (mirror_stale_ && !std::exchange(loss_logged_, true)) {
    log_warning("kernel", "events were lost (%llu times so far), reading all links and addresses",
                static_cast<unsigned long long>(counters_.losses));
  }
  Status status = dump_.begin();
  if (status == kStatusOk) {
    status = event_fd_add(manager_, dump_.fd(), EPOLLIN, [this](int, std::uint32_t) { continue_dump(); });
  }
  if (status != kStatusOk) {
    dump_.close();
    dump_failed(status);
  }
}

void LinkFollower::end_dump() {
  event_fd_remove(manager_, dump_.fd());
  dump_.close();
}

// Not while the mirror is read, which the dump changes when it is complete.
void LinkFollower::continue_dump() {
  if (holds_events()) return;
  switch (dump_.step(dump_batch())) {
    case Dump::Progress::kMore:
    case Dump::Progress::kWaiting:
      return;
    case Dump::Progress::kComplete:
      end_dump();
      finish_dump();
      return;
    case Dump::Progress::kFailed:
      end_dump();
      dump_failed(dump_.error());
      return;
  }
}

void LinkFollower::dump_failed(Status status) {
  ++counters_.failures;
  problem_ = std::string("reading links and addresses: ") + err_text(status);
  if (!std::exchange(failure_logged_, true)) {
    log_error("kernel", "reading links and addresses: %s", err_text(status));
  }
  log_.clear();
  schedule_reread(settings_.retry);
}

void LinkFollower::finish_dump() {
  begin_adopting(&dump_);
  adopt_some();
}

// A link that a dump shows malformed is not removed. After a loss its removal may not have been announced:
// the dump is repeated, and the last repetition removes what it does not show.
bool LinkFollower::may_lack(const Reading& finished) {
  const bool is_malformed = finished.malformed() != 0;
  malformed_dumps_ = is_malformed && mirror_stale_ ? malformed_dumps_ + 1 : 0;
  const bool retains = is_malformed && malformed_dumps_ < kMalformedDumpsMax;
  dump_repeats_ = finished.disturbed() || (retains && mirror_stale_);
  return finished.disturbed() || retains;
}

void LinkFollower::begin_adopting(Reading* finished) {
  using Kind = Adoption::Kind;
  ++counters_.dumps;
  count_malformed(finished->malformed(), "while reading all of them");
  const Kind kind = may_lack(*finished) ? Kind::kMerges : Kind::kReplaces;
  adoption_ = std::make_unique<Adoption>(&mirror_, finished->take(), kind, std::exchange(log_, {}));
}

void LinkFollower::adopt_some() {
  adopt_timer_ = 0;
  adoption_->step(settings_.reconcile_step);
  if (!adoption_->is_done()) {
    adopt_timer_ = event_timer_start(manager_, 0, [this] { adopt_some(); });
    return;
  }
  end_adopting();
  schedule_reread(reread_soon_ ? settings_.retry : settings_.reread);
  if (!held_.empty()) reconcile_later();
  if (mirror_.changed()) schedule_settling();
}

void LinkFollower::finish_adopting() {
  while (!adoption_->is_done()) adoption_->step(SIZE_MAX);
  if (adopt_timer_ != 0) event_timer_cancel(manager_, std::exchange(adopt_timer_, 0));
  end_adopting();
}

void LinkFollower::end_adopting() {
  adoption_.reset();
  last_answer_ = clock_stamp();
  problem_.clear();
  if (dump_repeats_) {
    ++counters_.disturbed_dumps;
    reread_soon_ = true;
    return;
  }
  mirror_stale_ = reread_soon_;
  failure_logged_ = false;
  loss_logged_ = mirror_stale_;
}

}  // namespace kernel
