// The switches are members of the table in info.cpp, which also lists the known items.
#include "mpls/vpn/mib/src/traps/switches.h"

#include <cstring>
#include <limits>

#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/traps/info.h"
#include "mpls/vpn/mib/src/traps/reissue_timer.h"

namespace {

// The deletion alone decides here; the handlers of configuration/ look for a set first.
bool is_deleted(const KvNotifyInfo* info) {
  return (info->whichevent & kKvEventDeleted) != 0;
}

// 0 for a value that is not a 32-bit number.
std::int32_t number_of(const KvValue* value) {
  using Limits = std::numeric_limits<std::int32_t>;
  if (value == nullptr || value->type != KvValueType::kNumber) return 0;
  if (value->number < Limits::min() || value->number > Limits::max()) return 0;
  return static_cast<std::int32_t>(value->number);
}

void set_reissue_time(const KvNotifyInfo* info) {
  const std::int32_t seconds = is_deleted(info) ? 0 : number_of(info->value);
  if (seconds > 0) {
    notif_reissue_time = static_cast<std::uint32_t>(seconds);
    mpls_vpn_mib_timer_start(notif_reissue_time);
    return;
  }
  notif_reissue_time = 0;
  mpls_vpn_mib_timer_stop();
}

MplsVpnTrapInfo* find_switch(const char* item_name) {
  for (std::uint32_t row = kTrapVrfUp; row <= kTrapAll; ++row) {
    MplsVpnTrapInfo* info = &mpls_vpn_mib_trap_info[row];
    if (std::strcmp(info->item_name, item_name) == 0) return info;
  }
  return nullptr;
}

void set_switch(const char* item_name, bool on) {
  mpls_vpn_debug(TRAPS, on ? "Enabling trap %s" : "Disabling trap %s", item_name);
  MplsVpnTrapInfo* info = find_switch(item_name);
  if (info == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusNoSuchRow, "%s: item_name does not match any trap type",
                            "traps_notify");
    return;
  }
  info->enabled = on ? 1 : 0;
}

}  // namespace

void traps_notify(const KvNotifyInfo* info) {
  mpls_vpn_debug(TRAPS, "Entering %s. info->item_name = %s, info->whichevent = %u", "traps_notify",
                 info->item_name, info->whichevent);
  if (std::strcmp(info->item_name, mpls_vpn_mib_trap_info[kTrapNotifReissueTime].item_name) == 0) {
    set_reissue_time(info);
  } else {
    set_switch(info->item_name, !is_deleted(info));
  }
}
