// How announcements reach the model:
//
//   events --> mirror --(settle)--> reconciler --> router model
//   dump  ---/
//
// Listening begins before the first dump, so no event is missed between the two. Events that are older than
// the dump are applied after it. Each describes its object at that time, and the last one its current state,
// so the mirror is correct when the queue has been read to its end.
//
// Settling. One command often causes several messages: a link that is up and is enslaved is announced with
// its new master, then as down, then as up; a move consists of a leave and a join of this kind. The mirror is
// updated at once, but the model only when `settle` has passed since the first change and the queue is empty,
// so that observers see one move and no flap. A real flap that is shorter is not seen either. A queue that
// never becomes empty delays the model by at most kMaxPostponements periods.
//
// The model is changed in steps between other work. While the first of them read the mirror, and while a dump
// replaces it, which takes steps, too, events are held. Changes of the mirror during the others wait for the
// next settling, which begins when the steps are done.
//
// Limits: a log that exceeds its bound counts as a loss, and so do held events.
#include "sources/kernel/links/link_follower.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"

namespace kernel {

namespace {

constexpr unsigned kMaxPostponements = 10;

const std::vector<int> kLinkGroups{RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR};

}  // namespace

LinkFollower::LinkFollower(router::Router* model, const KernelSourceSettings& settings)
    : settings_(settings),
      events_(this, {kLinkGroups, settings.receive_buffer, settings.batch, settings.retry, {}}),
      reconciler_(model, settings.vrf_ids) {}

LinkFollower::~LinkFollower() {
  stop();
}

Status LinkFollower::start(EventManager* manager) {
  manager_ = manager;
  if (const Status status = events_.watch(manager)) {
    events_.unwatch();
    manager_ = nullptr;
    return status;
  }
  schedule_reread(reread_soon_ ? settings_.retry : settings_.reread);
  return kStatusOk;
}

// For a load, at once.
void LinkFollower::finish_reconciling() {
  if (adoption_) finish_adopting();
  while (!reconciler_.is_done()) reconciler_.step(SIZE_MAX);
  if (reconcile_timer_ != 0) event_timer_cancel(manager_, std::exchange(reconcile_timer_, 0));
  apply_held(UINT64_MAX);
}

void LinkFollower::reconcile() {
  reconciler_.run(mirror_, mirror_.take_changes());
  end_reconciling();
}

void LinkFollower::reconcile_some() {
  reconcile_timer_ = 0;
  const bool was_done = reconciler_.is_done();
  if (!was_done) reconciler_.step(settings_.reconcile_step);
  if (!was_done && reconciler_.is_done()) end_reconciling();
  if (!reconciler_.is_reading() && !adoption_) apply_held(reconcile::kStepTime);
  if (!reconciler_.is_done() || (!held_.empty() && !adoption_)) reconcile_later();
}

void LinkFollower::reconcile_later() {
  if (reconcile_timer_ != 0) return;
  reconcile_timer_ = event_timer_start(manager_, 0, [this] { reconcile_some(); });
}

// For up to this time, in nanoseconds.
void LinkFollower::apply_held(std::uint64_t time) {
  const std::uint64_t start = clock_monotonic();
  for (; !held_.empty() && clock_monotonic() - start < time; held_.pop_front()) mirror_.apply(held_.front());
  if (mirror_.changed()) schedule_settling();
}

void LinkFollower::end_reconciling() {
  postponements_ = 0;
  counters_.refused = reconciler_.refused();
  if (mirror_.has_ambiguous_names() && !dump_.is_open()) {
    schedule_reread(settings_.retry);
  }
}

void LinkFollower::stop() {
  if (manager_ == nullptr) return;
  events_.stop();
  if (dump_.is_open()) {
    end_dump();
  }
  for (EventTimerId* timer : {&settle_timer_, &reconcile_timer_, &adopt_timer_, &reread_timer_}) {
    event_timer_cancel(manager_, std::exchange(*timer, 0));
  }
  manager_ = nullptr;
}

void LinkFollower::on_datagram(std::span<const std::uint8_t> datagram) {
  last_answer_ = clock_stamp();
  scratch_.clear();
  const auto read = [this](const nlmsghdr* message) {
    return fault_check(NetlinkFaultPoints{}.malformed) == kStatusOk && parse_link_message(message, &scratch_);
  };
  const unsigned malformed = for_each_message(datagram, read).malformed;
  count_malformed(malformed, "announced; reading all links and addresses");
  if (malformed != 0) on_events_lost();
  const bool holds = holds_events();
  for (Event& event : scratch_) {
    if (dump_.is_open()) log_.push_back(event);
    if (holds) {
      held_.push_back(std::move(event));
    } else {
      mirror_.apply(event);
    }
  }
  if (std::max(log_.size(), held_.size()) > settings_.log) {
    log_.clear();
    held_.clear();
    on_events_lost();
  }
  if (mirror_.changed()) {
    schedule_settling();
  }
}

void LinkFollower::count_malformed(unsigned messages, const char* how) {
  if (messages == 0) return;
  counters_.malformed += messages;
  log_warning("kernel", "malformed messages of links and addresses (%llu times so far), the last one %s",
              static_cast<unsigned long long>(counters_.malformed), how);
}

// Everything is read again when the socket has been replaced.
void LinkFollower::on_listener_failure(EventListener::Failure failure, Status status) {
  ++counters_.failures;
  mirror_stale_ = true;
  problem_ = std::string("receiving events: ") + err_text(status);
  if (failure == EventListener::Failure::kReceiving) {
    log_error("kernel", "receiving events: %s", err_text(status));
  } else if (!std::exchange(failure_logged_, true)) {
    log_error("kernel", "listening for events: %s", err_text(status));
  }
}

void LinkFollower::schedule_settling() {
  if (settle_timer_ == 0 && manager_ != nullptr) {
    settle_timer_ = event_timer_start(manager_, settings_.settle, [this] { settle(); });
  }
}

// A reconciliation in progress ends first.
void LinkFollower::settle() {
  settle_timer_ = 0;
  if (!reconciler_.is_done() || holds_events()) return schedule_settling();
  events_.read();  // what has arrived meanwhile belongs to the same burst
  if ((!events_.drained() || mirror_stale_) && postponements_ < kMaxPostponements) {
    ++postponements_;
    schedule_settling();
    return;
  }
  event_timer_cancel(manager_, std::exchange(settle_timer_, 0));
  reconciler_.begin(mirror_, mirror_.take_changes());
  reconcile_some();
}

bool LinkFollower::settled() const {
  return events_.drained() && !holds_events() && !mirror_.changed() && reconciler_.is_done() &&
         !dump_.is_open() && !mirror_stale_;
}

}  // namespace kernel
