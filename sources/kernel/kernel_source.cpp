// The event loop's part:
//
//   events --> mirror --(settle)--> reconciler --> router model
//   dump  ---/                                              |
//   route follower, on sockets of its own <-- its VRFs -----/
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
// Losses. When the kernel could not queue an event (ENOBUFS) everything is read again: at once the first
// time, then every `retry` while events are being lost. The model waits for the complete dump, within the
// same bound. A dump is read in small steps between other work. Events that arrive meanwhile are applied to
// the mirror and stored in a log, which is applied to the dump before the dump replaces the mirror. A
// disturbed dump only adds and updates; the next undisturbed one removes what no longer exists.
//
// Limits: a log that exceeds its bound counts as a loss, and so do held events.
#include "sources/kernel/kernel_source.h"

#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/utsname.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "sources/kernel/links/mirror.h"
#include "sources/kernel/links/reconciler.h"
#include "sources/kernel/netlink/dump.h"
#include "sources/kernel/netlink/listener.h"
#include "sources/kernel/routes/route_follower.h"

namespace kernel {

// Reads all links and then all addresses into a mirror.
class LinkDump : public Dump {
 public:
  [[nodiscard]] Status begin() {
    seen_ = Mirror{};
    return Dump::begin({request_links(), request_addresses()});
  }
  Progress step(unsigned datagrams) {
    return Dump::step(datagrams, [this](const nlmsghdr* message) {
      events_.clear();
      const bool good = parse_link_message(message, &events_);
      for (const Event& event : events_) seen_.apply(event);
      return good;
    });
  }
  // What a complete dump has read.
  Mirror take() { return std::exchange(seen_, Mirror{}); }

 private:
  Mirror seen_;
  std::vector<Event> events_;  // of one message
};

}  // namespace kernel

namespace {

constexpr unsigned kLoadAttempts = 5;
constexpr int kLoadPatienceMs = 2000;  // without an answer, per datagram and attempt
constexpr unsigned kMaxPostponements = 10;
constexpr unsigned kMalformedDumpsMax = 5;

const std::vector<int> kLinkGroups{RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR};

}  // namespace

struct KernelSource::State : kernel::EventListener::Client {
  State(router::Router* model, const KernelSourceSettings& wanted)
      : settings(wanted),
        events(this, {kLinkGroups, wanted.receive_buffer, wanted.batch, wanted.retry, {}}),
        reconciler(model, wanted.vrf_ids),
        routes(model, wanted) {}
  ~State() override { stop(); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  Status load_once(std::string* error);
  void reconcile();
  void reconcile_some();
  void reconcile_later();
  void apply_held(std::uint64_t time);
  void finish_reconciling();
  void end_reconciling();

  void stop();
  void on_datagram(std::span<const std::uint8_t> datagram) override;
  void count_malformed(unsigned messages, const char* how);
  void on_events_lost() override;
  void on_listener_failure(kernel::EventListener::Failure failure, Status status) override;
  void schedule_settling();
  void settle();

  void schedule_reread(std::uint64_t delay);
  void begin_dump();
  void continue_dump();
  void end_dump();
  void dump_failed(Status status);
  void finish_dump();
  bool may_lack(const kernel::LinkDump& finished);
  void begin_adopting(kernel::LinkDump* finished);
  void adopt_some();
  void finish_adopting();
  void end_adopting();
  bool holds_events() const { return reconciler.is_reading() || adoption != nullptr || !held.empty(); }
  unsigned dump_batch() const { return std::max(1U, settings.batch / 8); }

  const KernelSourceSettings settings;
  kernel::EventListener events;
  kernel::Mirror mirror;
  kernel::Reconciler reconciler;
  kernel::LinkDump dump;
  kernel::RouteFollower routes;
  std::deque<kernel::Event> log;               // events since the running dump began
  std::vector<kernel::Event> scratch;          // of one datagram
  std::deque<kernel::Event> held;              // events that the mirror does not have yet
  std::unique_ptr<kernel::Adoption> adoption;  // of a complete dump, while it is in progress

  EventManager* manager = nullptr;
  EventTimerId settle_timer = 0;
  EventTimerId reconcile_timer = 0;
  EventTimerId adopt_timer = 0;
  EventTimerId reread_timer = 0;
  std::uint64_t last_dump_began = 0;  // clock_monotonic()
  unsigned postponements = 0;
  unsigned malformed_dumps = 0;  // consecutive ones after a loss
  bool dump_repeats = false;     // the one that is adopted
  bool mirror_stale = false;     // events were lost and no later dump is complete
  bool reread_soon = false;      // the running dump must be repeated
  bool loss_logged = false;      // once per series of losses
  bool failure_logged = false;
  std::string problem;            // since the last complete dump; empty for none
  std::uint64_t last_answer = 0;  // clock_stamp()
  KernelSourceCounters counters;
};

Status KernelSource::State::load_once(std::string* error) {
  kernel::LinkDump once;
  if (Status status = once.begin()) {
    *error = std::string("rtnetlink request: ") + err_text(status);
    return status;
  }
  for (;;) {
    switch (once.step(dump_batch())) {
      case kernel::Dump::Progress::kComplete:
        begin_adopting(&once);
        finish_adopting();
        return kStatusOk;
      case kernel::Dump::Progress::kFailed:
        *error = std::string("rtnetlink dump: ") + err_text(once.error());
        return once.error();
      case kernel::Dump::Progress::kMore:
        break;
      case kernel::Dump::Progress::kWaiting:
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

// For a load, at once.
void KernelSource::State::finish_reconciling() {
  if (adoption) finish_adopting();
  while (!reconciler.is_done()) reconciler.step(SIZE_MAX);
  if (reconcile_timer != 0) event_timer_cancel(manager, std::exchange(reconcile_timer, 0));
  apply_held(UINT64_MAX);
}

void KernelSource::State::reconcile() {
  reconciler.run(mirror, mirror.take_changes());
  end_reconciling();
}

void KernelSource::State::reconcile_some() {
  reconcile_timer = 0;
  const bool was_done = reconciler.is_done();
  if (!was_done) reconciler.step(settings.reconcile_step);
  if (!was_done && reconciler.is_done()) end_reconciling();
  if (!reconciler.is_reading() && !adoption) apply_held(reconcile::kStepTime);
  if (!reconciler.is_done() || (!held.empty() && !adoption)) reconcile_later();
}

void KernelSource::State::reconcile_later() {
  if (reconcile_timer != 0) return;
  reconcile_timer = event_timer_start(manager, 0, [this] { reconcile_some(); });
}

// For up to this time, in nanoseconds.
void KernelSource::State::apply_held(std::uint64_t time) {
  const std::uint64_t start = clock_monotonic();
  for (; !held.empty() && clock_monotonic() - start < time; held.pop_front()) mirror.apply(held.front());
  if (mirror.changed()) schedule_settling();
}

void KernelSource::State::end_reconciling() {
  postponements = 0;
  counters.refused = reconciler.refused();
  if (mirror.has_ambiguous_names() && !dump.is_open()) {
    schedule_reread(settings.retry);
  }
}

void KernelSource::State::stop() {
  if (manager == nullptr) return;
  routes.stop();
  events.stop();
  if (dump.is_open()) {
    end_dump();
  }
  for (EventTimerId* timer : {&settle_timer, &reconcile_timer, &adopt_timer, &reread_timer}) {
    event_timer_cancel(manager, std::exchange(*timer, 0));
  }
  manager = nullptr;
}

void KernelSource::State::on_datagram(std::span<const std::uint8_t> datagram) {
  last_answer = clock_stamp();
  scratch.clear();
  const auto read = [this](const nlmsghdr* message) {
    return fault_check(kernel::NetlinkFaultPoints{}.malformed) == kStatusOk &&
           kernel::parse_link_message(message, &scratch);
  };
  const unsigned malformed = kernel::for_each_message(datagram, read).malformed;
  count_malformed(malformed, "announced; reading all links and addresses");
  if (malformed != 0) on_events_lost();
  const bool holds = holds_events();
  for (kernel::Event& event : scratch) {
    if (dump.is_open()) log.push_back(event);
    if (holds) {
      held.push_back(std::move(event));
    } else {
      mirror.apply(event);
    }
  }
  if (std::max(log.size(), held.size()) > settings.log) {
    log.clear();
    held.clear();
    on_events_lost();
  }
  if (mirror.changed()) {
    schedule_settling();
  }
}

void KernelSource::State::count_malformed(unsigned messages, const char* how) {
  if (messages == 0) return;
  counters.malformed += messages;
  log_warning("kernel", "malformed messages of links and addresses (%llu times so far), the last one %s",
              static_cast<unsigned long long>(counters.malformed), how);
}

// Everything is read again when the socket has been replaced.
void KernelSource::State::on_listener_failure(kernel::EventListener::Failure failure, Status status) {
  ++counters.failures;
  mirror_stale = true;
  problem = std::string("receiving events: ") + err_text(status);
  if (failure == kernel::EventListener::Failure::kReceiving) {
    log_error("kernel", "receiving events: %s", err_text(status));
  } else if (!std::exchange(failure_logged, true)) {
    log_error("kernel", "listening for events: %s", err_text(status));
  }
}

void KernelSource::State::schedule_settling() {
  if (settle_timer == 0 && manager != nullptr) {
    settle_timer = event_timer_start(manager, settings.settle, [this] { settle(); });
  }
}

// A reconciliation in progress ends first.
void KernelSource::State::settle() {
  settle_timer = 0;
  if (!reconciler.is_done() || holds_events()) return schedule_settling();
  events.read();  // what has arrived meanwhile belongs to the same burst
  if ((!events.drained() || mirror_stale) && postponements < kMaxPostponements) {
    ++postponements;
    schedule_settling();
    return;
  }
  event_timer_cancel(manager, std::exchange(settle_timer, 0));
  reconciler.begin(mirror, mirror.take_changes());
  reconcile_some();
}

void KernelSource::State::on_events_lost() {
  ++counters.losses;
  mirror_stale = true;
  if (dump.is_open() || adoption) {
    reread_soon = true;
    return;
  }
  const std::uint64_t now = clock_monotonic();
  const std::uint64_t earliest = last_dump_began + settings.retry;
  schedule_reread(last_dump_began == 0 || now >= earliest ? 0 : earliest - now);
}

void KernelSource::State::schedule_reread(std::uint64_t delay) {
  if (manager == nullptr) return;
  event_timer_cancel(manager, reread_timer);
  reread_timer = event_timer_start(manager, delay, [this] { begin_dump(); });
}

void KernelSource::State::begin_dump() {
  reread_timer = 0;
  if (adoption) return schedule_reread(settings.retry);
  last_dump_began = clock_monotonic();
  reread_soon = false;
  log.clear();
  if (mirror_stale && !std::exchange(loss_logged, true)) {
    log_warning("kernel", "events were lost (%llu times so far), reading all links and addresses",
                static_cast<unsigned long long>(counters.losses));
  }
  Status status = dump.begin();
  if (status == kStatusOk) {
    status = event_fd_add(manager, dump.fd(), EPOLLIN, [this](int, std::uint32_t) { continue_dump(); });
  }
  if (status != kStatusOk) {
    dump.close();
    dump_failed(status);
  }
}

void KernelSource::State::end_dump() {
  event_fd_remove(manager, dump.fd());
  dump.close();
}

// Not while the mirror is read, which the dump changes when it is complete.
void KernelSource::State::continue_dump() {
  if (holds_events()) return;
  switch (dump.step(dump_batch())) {
    case kernel::Dump::Progress::kMore:
    case kernel::Dump::Progress::kWaiting:
      return;
    case kernel::Dump::Progress::kComplete:
      end_dump();
      finish_dump();
      return;
    case kernel::Dump::Progress::kFailed:
      end_dump();
      dump_failed(dump.error());
      return;
  }
}

void KernelSource::State::dump_failed(Status status) {
  ++counters.failures;
  problem = std::string("reading links and addresses: ") + err_text(status);
  if (!std::exchange(failure_logged, true)) {
    log_error("kernel", "reading links and addresses: %s", err_text(status));
  }
  log.clear();
  schedule_reread(settings.retry);
}

void KernelSource::State::finish_dump() {
  begin_adopting(&dump);
  adopt_some();
}

// A link that a dump shows malformed is not removed. After a loss its removal may not have been announced:
// the dump is repeated, and the last repetition removes what it does not show.
bool KernelSource::State::may_lack(const kernel::LinkDump& finished) {
  const bool is_malformed = finished.malformed() != 0;
  malformed_dumps = is_malformed && mirror_stale ? malformed_dumps + 1 : 0;
  const bool retains = is_malformed && malformed_dumps < kMalformedDumpsMax;
  dump_repeats = finished.disturbed() || (retains && mirror_stale);
  return finished.disturbed() || retains;
}

void KernelSource::State::begin_adopting(kernel::LinkDump* finished) {
  using Kind = kernel::Adoption::Kind;
  ++counters.dumps;
  count_malformed(finished->malformed(), "while reading all of them");
  const Kind kind = may_lack(*finished) ? Kind::kMerges : Kind::kReplaces;
  adoption = std::make_unique<kernel::Adoption>(&mirror, finished->take(), kind, std::exchange(log, {}));
}

void KernelSource::State::adopt_some() {
  adopt_timer = 0;
  adoption->step(settings.reconcile_step);
  if (!adoption->is_done()) {
    adopt_timer = event_timer_start(manager, 0, [this] { adopt_some(); });
    return;
  }
  end_adopting();
  schedule_reread(reread_soon ? settings.retry : settings.reread);
  if (!held.empty()) reconcile_later();
  if (mirror.changed()) schedule_settling();
}

void KernelSource::State::finish_adopting() {
  while (!adoption->is_done()) adoption->step(SIZE_MAX);
  if (adopt_timer != 0) event_timer_cancel(manager, std::exchange(adopt_timer, 0));
  end_adopting();
}

void KernelSource::State::end_adopting() {
  adoption.reset();
  last_answer = clock_stamp();
  problem.clear();
  if (dump_repeats) {
    ++counters.disturbed_dumps;
    reread_soon = true;
    return;
  }
  mirror_stale = reread_soon;
  failure_logged = false;
  loss_logged = mirror_stale;
}

KernelSource::KernelSource(router::Router* model, const KernelSourceSettings& settings)
    : state_(std::make_unique<State>(model, settings)) {}

KernelSource::~KernelSource() = default;

Status KernelSource::load(std::string* error) {
  state_->finish_reconciling();
  if (!state_->events.is_open()) {
    if (Status status = state_->events.open()) {
      *error = std::string("rtnetlink socket: ") + err_text(status);
      return status;
    }
  }
  if (state_->dump.is_open()) {  // its log must not be applied to two dumps
    state_->end_dump();
    state_->schedule_reread(state_->settings.reread);
  }
  for (unsigned attempt = 0; attempt < kLoadAttempts; ++attempt) {
    state_->reread_soon = false;
    if (Status status = state_->load_once(error)) return status;
    if (!state_->reread_soon) break;
  }
  state_->reconcile();
  return kStatusOk;
}

Status KernelSource::start(EventManager* manager) {
  state_->manager = manager;
  Status status = state_->events.watch(manager);
  if (status == kStatusOk) status = state_->routes.start(manager);
  if (status != kStatusOk) {
    state_->events.unwatch();
    state_->manager = nullptr;
    return status;
  }
  state_->schedule_reread(state_->reread_soon ? state_->settings.retry : state_->settings.reread);
  return kStatusOk;
}

std::vector<process_status::SourceFact> KernelSource::facts() const {
  utsname system{};
  const char* const version = uname(&system) == 0 ? system.release : "";
  return {{"kernel", version, state_->problem.empty(), state_->last_answer / kNanosecondsPerSecond,
           state_->problem}};
}

std::vector<process_status::CorrectionFact> KernelSource::corrections_by_table() const {
  const kernel::RouteFollower& routes = state_->routes;
  std::vector<process_status::CorrectionFact> all = {
      {process_status::kNextHopObjects, "", routes.counters().object_corrections}};
  for (const auto& [id, count] : routes.table_corrections()) {
    const char* const family = id.family == router::Family::kIpv4 ? "ipv4" : "ipv6";
    all.push_back({std::to_string(id.table), family, count});
  }
  return all;
}

KernelSourceCounters KernelSource::counters() const {
  KernelSourceCounters counters = state_->counters;
  counters.routes = state_->routes.counters();
  return counters;
}

bool KernelSource::settled() const {
  const State& state = *state_;
  return state.events.drained() && !state.holds_events() && !state.mirror.changed() &&
         state.reconciler.is_done() && !state.dump.is_open() && !state.mirror_stale && state.routes.settled();
}
