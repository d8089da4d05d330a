// Follows the kernel's routes of the model's VRFs into the route store.
//
// From start() on, reads every table of a VRF of the model in bounded steps, and applies the kernel's
// announcements to it from then on. Reads it again at long intervals, and when what happened to it cannot be
// derived from announcements. Observes the model for VRFs. Main thread only. The model must outlive the
// follower, which must be destroyed before the event manager.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "sources/kernel/links/link_message.h"
#include "sources/kernel/netlink/listener.h"
#include "sources/kernel/route_state/link_states.h"
#include "sources/kernel/route_state/route_history.h"
#include "sources/kernel/route_state/route_rows.h"
#include "sources/kernel/routes/retired_tables.h"
#include "sources/kernel/routes/route_changes.h"
#include "sources/kernel/routes/table_reading.h"
#include "sources/kernel/routes/table_routes.h"
#include "sources/kernel/settings.h"

namespace kernel {

class RouteFollower final : public router::Observer, private EventListener::Client {
 public:
  RouteFollower(router::Router* model, const KernelSourceSettings& settings);
  ~RouteFollower() override;
  RouteFollower(const RouteFollower&) = delete;
  RouteFollower& operator=(const RouteFollower&) = delete;

  // Begins to listen. Fault points "netlink_route_open", "netlink_route_join".
  [[nodiscard]] Status start(EventManager* manager);
  void stop();

  const KernelRouteCounters& counters() const { return counters_; }
  // Of the last reading of the next-hop objects, or since a table was last read; empty for none.
  const std::string& problem() const { return basis_problem_.empty() ? problem_ : basis_problem_; }
  // The corrections of each table that has had some since it was opened.
  using Corrections = std::map<router::RouteTableId, std::uint64_t>;
  const Corrections& table_corrections() const { return table_corrections_; }
  // True when the store has everything that the kernel had announced when its messages were last read.
  bool settled() const;
  // Whether the table is that of a VRF and has been read once.
  bool has_read(router::RouteTableId table) const;

  void vrf_created(const router::Vrf& vrf) override;
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override;
  void vrf_deleted(const router::Vrf& vrf) override;

 private:
  enum class Phase { kIdle, kBasis, kBasisEnd, kObjects, kTable, kDelivery, kSweep, kReplay };
  enum class Knowledge {
    kNone,         // announcements are ignored, or held during a reading
    kUnconfirmed,  // they are applied; the table was read, but the reading may lack routes
    kComplete,     // ... and a difference that a reading finds is a correction
  };
  struct Held {
    RouteEvent event;
    RouteHistory::Moment moment;
  };
  struct Table {
    TableRoutes routes;
    Knowledge knowledge = Knowledge::kNone;
    std::uint64_t losses = 0;  // of announcements, when `knowledge` was set
    std::deque<Held> held{};
    bool held_lost = false;          // there were too many, or a malformed one
    std::uint64_t not_before = 0;    // clock_monotonic(): the next reading at the earliest
    std::uint64_t due = 0;           // ... at the latest
    unsigned doubts = 0;             // consecutive readings that were in doubt
    std::uint64_t doubts_since = 0;  // losses of announcements before the first of them
    bool doubts_lost_one = false;    // an announcement was malformed since the first of them began
  };
  using Tables = std::map<router::RouteTableId, Table>;
  static constexpr unsigned kDoubtsMax = 5;  // consecutive readings in doubt

  void on_datagram(std::span<const std::uint8_t> datagram) override;
  void on_batch_end() override;
  void on_events_lost() override;
  void on_listener_failure(EventListener::Failure failure, Status status) override;
  void take_malformed(const nlmsghdr* message);
  void take_malformed_route(router::RouteTableId id);
  static std::string text_of(router::RouteTableId id);
  void count_malformed(std::uint64_t messages, const std::string& where);
  void take_event(const Event& event);
  void take_event(const RouteEvent& event);
  void take_link_change(std::uint32_t index, const LinkStates::Change& change);
  void take_removed_address(const router::Address& address);
  void take_ipv6_address(const LinkAddress& address, bool is_removed);
  void take_object(const NextHopSeen& seen);
  void take_affected(const NextHopObjects::Affected& affected);
  void disturb_walk(router::RouteTableId id);
  void take_route(const KernelRoute& route, const RouteEvent& event);
  void hold(const RouteEvent& event, Table* table);
  void apply(const RouteEvent& event, RouteHistory::Moment moment, Tables::iterator table);
  bool repeats_object(const RouteSeen& seen) const;

  void add_tables(const router::Vrf& vrf);
  void drop_tables(const router::Vrf& vrf);
  void commit();
  bool account(Table* table);
  void mark_soon();
  void begin_marking();
  bool find_hiding(std::uint64_t end);
  bool mark_tables(std::uint64_t end);
  void start_marking(std::uint64_t delay);
  void mark_some();
  void mark(router::RouteTableId id, Table* table);
  void mark_overdue();
  Knowledge knowledge_of(const Table& table) const;
  void set_knowledge(Knowledge knowledge, Table* table);
  static void doubt(Table* table);

  void walk_soon();
  void walk();
  void forget_history();
  void limit_history();

  void wake(std::uint64_t delay);
  void step_soon();
  void step();
  bool begin_something();
  Tables::iterator next_dirty(std::uint64_t now, std::uint64_t* earliest);
  std::uint64_t rest() const;
  void reread_later(Tables::iterator table, std::uint64_t delay);
  void reread_soon(Tables::iterator table);
  bool drain_events();

  void begin_basis();
  void continue_basis();
  bool read_basis(const nlmsghdr* message);
  void end_basis();
  void repeat_basis();
  void adopt_basis(bool in_doubt);
  void compare_objects();
  bool compare_some_objects();
  void count_object_corrections(std::uint64_t count);
  void count_table_corrections(router::RouteTableId table, std::uint64_t count);
  void basis_failed(Status status);
  void begin_table(Tables::iterator table);
  void continue_table();
  void deliver();
  void finish_table();
  void end_in_doubt(Tables::iterator table);
  void settle_table(Tables::iterator table);
  void table_failed(Status status);
  void sweep();
  void replay();
  bool is_verifiable(const Table& table) const;
  bool is_outdated(const Table& table) const;
  bool is_being_read(router::RouteTableId table) const;
  bool is_reading_basis() const {
    return phase_ == Phase::kBasis || phase_ == Phase::kBasisEnd || phase_ == Phase::kObjects;
  }
  void become_idle();
  // Announcements belong to what was read of the basis until it is adopted or given up.
  bool keeps_basis_seen() const {
    return phase_ == Phase::kBasis || phase_ == Phase::kBasisEnd || (phase_ == Phase::kObjects && compares_);
  }
  void close_dumps();
  void abandon_reading();
  void log_failure(const char* what, Status status, std::string* problem);
  static void log_correction(const std::string& what);
  unsigned dump_batch() const;

  router::Router* model_;
  const KernelSourceSettings settings_;
  EventListener events_;
  RouteHistory history_;
  LinkStates links_;
  NextHopObjects objects_;
  absl::btree_set<std::uint32_t> without_ipv6_;  // links that are up
  LinkStates links_seen_;                        // by the running reading of the basis
  NextHopObjects objects_seen_;                  // the same
  NextHopObjects::Comparison comparison_;        // of the two
  bool compares_ = false;                        // they are compared; otherwise `objects_seen_` is released
  bool corrects_ = false;                        // a difference is a correction
  Dump basis_dump_{kRouteDumpFaultPoints};
  TableReading reading_;
  Dump::Progress progress_ = Dump::Progress::kMore;  // of the reading, when it waits for its delivery
  std::vector<RouteEvent> scratch_;                  // of one datagram or message
  std::vector<Event> link_events_;                   // of one datagram
  RequestId object_request_ = 0;                     // that changed an object last

  Tables tables_;
  RetiredTables retired_;                     // of VRFs that were deleted
  std::set<router::RouteTableId> announced_;  // those with announcements to commit
  std::set<router::RouteTableId> dirty_;      // those that must be read
  std::set<router::RouteTableId> walking_;
  bool store_changed_ = false;  // since the observers were notified
  RouteChanges changed_;        // since the last marking began
  RouteChanges marking_;        // dependants of these are being marked
  RouteChanges meanwhile_;      // since the running reading began; links and objects only
  router::RouteTableId last_marked_{router::Family::kIpv4, 0};
  bool all_hide_ = false;  // ignore_routes_with_linkdown is set for all links
  bool in_doubt_ = false;  // the running reading
  bool replayed_ = false;  // announcements that may not fit what it has read
  bool links_dirty_ = false;
  bool objects_dirty_ = false;
  bool objects_known_ = false;  // a difference that a reading finds is a correction
  std::uint64_t basis_not_before_ = 0;
  unsigned basis_doubts_ = 0;
  bool basis_disturbed_ = false;  // something changed while it was read
  bool basis_has_links_ = false;

  Phase phase_ = Phase::kIdle;
  std::uint64_t reading_began_ = 0;
  std::uint64_t reading_losses_ = 0;  // at its beginning
  EventManager* manager_ = nullptr;
  EventTimerId step_timer_ = 0;
  std::uint64_t step_due_ = 0;  // clock_monotonic()
  EventTimerId mark_timer_ = 0;
  EventTimerId walk_timer_ = 0;
  EventTimerId reread_timer_ = 0;
  bool loss_logged_ = false;  // once per series of losses
  bool failure_logged_ = false;
  std::string problem_;
  std::string basis_problem_;
  KernelRouteCounters counters_;
  Corrections table_corrections_;
};

}  // namespace kernel
