// Follows the kernel's links and addresses into the router model.
//
// load() reads all of them; from start() on, announcements are applied from the event loop. Reads everything
// again after an overrun, and at intervals, because the kernel does not announce every change (the alias of a
// link that is down). Only differences reach the model. Main thread only. The model must outlive the
// follower, which must be destroyed before the event manager.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "sources/kernel/links/link_message.h"
#include "sources/kernel/links/mirror.h"
#include "sources/kernel/links/reconciler.h"
#include "sources/kernel/netlink/dump.h"
#include "sources/kernel/netlink/listener.h"
#include "sources/kernel/settings.h"

namespace kernel {

class LinkFollower final : private EventListener::Client {
 public:
  LinkFollower(router::Router* model, const KernelSourceSettings& settings);
  ~LinkFollower() override;
  LinkFollower(const LinkFollower&) = delete;
  LinkFollower& operator=(const LinkFollower&) = delete;

  // Begins to listen, then reads all links and addresses and applies the difference. Blocks while the kernel
  // answers, but not longer than 2 s without an answer. A failure leaves the model unchanged and sets *error.
  // May be called again.
  [[nodiscard]] Status load(std::string* error);
  // REQUIRES: load() succeeded.
  [[nodiscard]] Status start(EventManager* manager);
  void stop();

  const KernelLinkCounters& counters() const { return counters_; }
  // Since the last complete reading; empty for none.
  const std::string& problem() const { return problem_; }
  std::uint64_t last_answer() const { return last_answer_; }  // clock_stamp()
  // True when everything that was received is in the model and nothing is being read.
  bool settled() const;

 private:
  // Reads all links and then all addresses into a mirror.
  class Reading : public Dump {
   public:
    [[nodiscard]] Status begin();
    Progress step(unsigned datagrams);
    // What a complete reading has seen.
    Mirror take();

   private:
    Mirror seen_;
    std::vector<Event> events_;  // of one message
  };

  void on_datagram(std::span<const std::uint8_t> datagram) override;
  void on_events_lost() override;
  void on_listener_failure(EventListener::Failure failure, Status status) override;
  void count_malformed(unsigned messages, const char* how);

  void reconcile();
  void reconcile_some();
  void reconcile_later();
  void apply_held(std::uint64_t time);
  void finish_reconciling();
  void end_reconciling();
  void schedule_settling();
  void settle();

  Status load_once(std::string* error);
  void schedule_reread(std::uint64_t delay);
  void begin_dump();
  void continue_dump();
  void end_dump();
  void dump_failed(Status status);
  void finish_dump();
  bool may_lack(const Reading& finished);
  void begin_adopting(Reading* finished);
  void adopt_some();
  void finish_adopting();
  void end_adopting();
  bool holds_events() const { return reconciler_.is_reading() || adoption_ != nullptr || !held_.empty(); }
  unsigned dump_batch() const;

  const KernelSourceSettings settings_;
  EventListener events_;
  Mirror mirror_;
  Reconciler reconciler_;
  Reading dump_;
  std::deque<Event> log_;               // events since the running dump began
  std::vector<Event> scratch_;          // of one datagram
  std::deque<Event> held_;              // events that the mirror does not have yet
  std::unique_ptr<Adoption> adoption_;  // of a complete dump, while it is in progress

  EventManager* manager_ = nullptr;
  EventTimerId settle_timer_ = 0;
  EventTimerId reconcile_timer_ = 0;
  EventTimerId adopt_timer_ = 0;
  EventTimerId reread_timer_ = 0;
  std::uint64_t last_dump_began_ = 0;  // clock_monotonic()
  unsigned postponements_ = 0;
  unsigned malformed_dumps_ = 0;  // consecutive ones after a loss
  bool dump_repeats_ = false;     // the one that is adopted
  bool mirror_stale_ = false;     // events were lost and no later dump is complete
  bool reread_soon_ = false;      // the running dump must be repeated
  bool loss_logged_ = false;      // once per series of losses
  bool failure_logged_ = false;
  std::string problem_;
  std::uint64_t last_answer_ = 0;
  KernelLinkCounters counters_;
};

}  // namespace kernel
