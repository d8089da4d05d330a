// Follows the kernel's routes of the model's VRFs into the route store.
//
// From start() on, reads every table of a VRF of the model in bounded steps. Reads it again after each event
// that may have changed it, and at long intervals. Observes the model for VRFs. Main thread only. The model
// must outlive the follower, which must be destroyed before the event manager.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "sources/kernel/links/link_message.h"
#include "sources/kernel/netlink/listener.h"
#include "sources/kernel/routes/route_rows.h"
#include "sources/kernel/routes/table_reading.h"
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
  // True when the store has everything that the kernel had announced when its messages were last read.
  bool settled() const;

  void vrf_created(const router::Vrf& vrf) override;
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override;
  void vrf_deleted(const router::Vrf& vrf) override;

 private:
  enum class Phase { kIdle, kObjects, kTable, kSweep };
  struct Table {
    RouteUsage usage;
    std::uint64_t not_before = 0;  // clock_monotonic(): the next reading at the earliest
    std::uint64_t due = 0;         // ... at the latest
    unsigned doubts = 0;           // consecutive readings that were in doubt
  };
  using Tables = std::map<router::RouteTableId, Table>;

  void on_datagram(std::span<const std::uint8_t> datagram) override;
  void on_events_lost() override;
  void on_listener_failure(EventListener::Failure failure, Status status) override;
  void take_event(const Event& event);
  void take_event(const RouteEvent& event);

  void add_tables(const router::Vrf& vrf);
  void drop_tables(const router::Vrf& vrf);
  void mark_everything();
  void begin_marking();
  bool mark_some();
  void mark_overdue();

  void wake(std::uint64_t delay);
  void step();
  bool begin_something();
  Tables::iterator next_dirty(std::uint64_t now, std::uint64_t* earliest);
  void reread_later(Tables::iterator table, std::uint64_t delay);

  void begin_objects();
  void continue_objects();
  bool read_object(const nlmsghdr* message);
  void finish_objects();
  void objects_failed(Status status);
  void begin_table(Tables::iterator table);
  void continue_table();
  void finish_table();
  void settle_table(Tables::iterator table);
  void table_failed(Status status);
  void sweep();
  void become_idle();
  void abandon_reading();
  void log_failure(const char* what, Status status);
  unsigned dump_batch() const;

  router::Router* model_;
  const KernelSourceSettings settings_;
  EventListener events_;
  NextHopObjects objects_;
  NextHopObjects objects_seen_;  // by the running reading of the objects
  Dump objects_dump_{kRouteDumpFaultPoints};
  TableReading reading_;
  std::vector<RouteEvent> scratch_;  // of one datagram or message
  std::vector<Event> link_events_;   // of one datagram

  Tables tables_;
  std::set<router::RouteTableId> dirty_;      // those of tables_ that must be read
  std::map<std::uint32_t, LinkFacts> links_;  // as announced since the start
  // What has changed, and that of it whose dependants are being marked. Objects are with their groups.
  struct Changed {
    std::set<std::uint32_t> links;
    std::set<std::uint32_t> objects;
    bool everything = false;
    bool is_empty() const { return links.empty() && objects.empty() && !everything; }
    bool concerns(const RouteUsage& usage) const;
  };
  Changed changed_;
  Changed marking_;
  router::RouteTableId last_marked_{router::Family::kIpv4, 0};
  bool objects_dirty_ = false;
  std::uint64_t objects_not_before_ = 0;
  unsigned objects_doubts_ = 0;
  bool objects_disturbed_ = false;  // one changed while they were read

  Phase phase_ = Phase::kIdle;
  std::uint64_t reading_began_ = 0;
  EventManager* manager_ = nullptr;
  EventTimerId step_timer_ = 0;
  std::uint64_t step_due_ = 0;  // clock_monotonic()
  EventTimerId reread_timer_ = 0;
  bool loss_logged_ = false;  // once per series of losses
  bool failure_logged_ = false;
  KernelRouteCounters counters_;
};

}  // namespace kernel
