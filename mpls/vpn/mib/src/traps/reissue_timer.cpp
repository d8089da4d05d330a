// The re-issue timer (mplsL3VpnVrfConfRteMxThrshTime, RFC 4382: the time after which the maximum-threshold
// notification is issued again while the VRF stays above its maximum).
//
// One interval applies to all VRFs, so one leaf timer is enough. Its expiry raises an asynchronous event of
// the main event manager; the event's routine walks all VRFs and restarts the leaf. The restart makes it
// periodic, so an interval begins when the previous round is complete.
//
// The parts are created and released together. Main thread; O(VRFs) per round.
#include "mpls/vpn/mib/src/traps/reissue_timer.h"

#include <cerrno>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/traps/procedures.h"
#include "platform/core/timer/timer.h"
#include "platform/router/vtab/vtab.h"

namespace {

constexpr std::uint32_t kTimerEventCode = 128;

struct ReissueTimer {
  EventManager* manager;  // the event is attached there; null: not attached
  TimerSignal signal;
  TimerTree* tree;
  TimerParent* parent;
  TimerLeaf* leaf;
  std::uint32_t seconds;      // interval; 0 while stopped
  std::uint32_t nanoseconds;  // always 0
};
ReissueTimer reissue{};

// Null, or what failed, with errno set.
const char* create_timer(EventManager* evm) {
  if (event_async_attach(evm, kTimerEventCode, mpls_vpn_mib_timer_wakeup) != 0) {
    return "Failed to attach async timer event";
  }
  reissue.manager = evm;
  if (timer_signal_init(&reissue.signal, evm, kTimerEventCode) != 0) return "Failed to init timer event";
  reissue.tree = timer_tree_new(&reissue.signal);
  if (reissue.tree == nullptr) return "Failed to create master timer";
  reissue.parent = timer_parent_new(reissue.tree);
  if (reissue.parent == nullptr) return "Failed to create parent timer";
  reissue.leaf = timer_leaf_new(reissue.parent, nullptr);
  return reissue.leaf == nullptr ? "Failed to create leaf timer" : nullptr;
}

bool start_leaf(const char* function) {
  const Status rc = timer_leaf_start(reissue.leaf, reissue.seconds, reissue.nanoseconds);
  return mpls_vpn_checked(function, "timer_leaf_start", rc) == kStatusOk;
}

// The record service creates no record without a block; the report covers a service that breaks this.
void reissue_for(const VtabVrfRecord* record) {
  if (record->attributes == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusNoVrfRecord, "Found a NULL vrf record");
    return;
  }
  const mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  if (attributes->high_thresh_exceeded == 0) return;
  mpls_vpn_mib_trap_high_thresh_exc(record->vrf_name, attributes->high_thresh, attributes->curr_num_routes);
}

}  // namespace

Status mpls_vpn_mib_timer_init(EventManager* evm) {
  if (const char* failure = create_timer(evm)) {
    const auto rc = static_cast<Status>(errno);
    mpls_vpn_error(__func__, failure, rc);
    mpls_vpn_mib_timer_deinit();
    return rc;
  }
  mpls_vpn_report(START, kTraceInit, "Timers initialized");
  return kStatusOk;
}

void mpls_vpn_mib_timer_start(std::uint32_t seconds) {
  mpls_vpn_debug(TRAPS, "Entering %s with timeout %d", __func__, static_cast<std::int32_t>(seconds));
  reissue.seconds = seconds;
  reissue.nanoseconds = 0;
  (void)start_leaf(__func__);  // reported there; the next start tries again
}

void mpls_vpn_mib_timer_stop() {
  mpls_vpn_debug(TRAPS, "Entering %s ", __func__);
  reissue.seconds = 0;
  reissue.nanoseconds = 0;
  if (reissue.leaf != nullptr) timer_leaf_stop(reissue.leaf);
}

void mpls_vpn_mib_timer_wakeup() {
  mpls_vpn_debug(TRAPS, "Timer wakeup");
  for (const VtabVrfRecord* record = vtab_get_first_vrf_record(); record != nullptr;
       record = vtab_get_next_vrf_record(record)) {
    reissue_for(record);
  }
  if (reissue.leaf == nullptr || reissue.seconds < 1) return;
  if (start_leaf(__func__)) mpls_vpn_debug(TRAPS, "Timer restart");
}

void mpls_vpn_mib_timer_deinit() {
  timer_leaf_free(reissue.leaf);
  timer_parent_free(reissue.parent);
  timer_tree_free(reissue.tree);
  if (reissue.manager != nullptr) event_async_detach(reissue.manager, kTimerEventCode);
  reissue = {};
  mpls_vpn_debug(TRAPS, "Timers de-initialized");
}
