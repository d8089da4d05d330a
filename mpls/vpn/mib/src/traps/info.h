// The notifications of MPLS-L3VPN-STD-MIB (RFC 4382, section 6) with their switches.
//
// A notification is raised while its own switch or the master switch (row kTrapAll) is on. Names and object
// identifiers are the reference for what a manager receives: the sub-agent forms an identifier from the trap
// type in the record, which is the row's number. The daemon reads the other two members only. Main thread.
#pragma once

#include <cstdint>

inline constexpr unsigned kTrapOidLength = 11;

struct MplsVpnTrapInfo {
  const char* notification;           // empty for the two rows without a notification
  std::uint32_t oid[kTrapOidLength];  // all zero for those rows
  const char* item_name;              // of the configuration item that switches the row
  std::uint32_t enabled;              // 0 or 1
};

// Rows; those of the notifications are the values of trapType in a trap record.
enum MplsVpnTrapRow : std::uint32_t {
  kTrapVrfUp,
  kTrapVrfDown,
  kTrapMidThreshExceeded,
  kTrapMaxThreshExceeded,
  kTrapIllegalLabels,
  kTrapMaxThreshCleared,
  kTrapAll,               // the master switch
  kTrapNotifReissueTime,  // not a switch: its item is a time
};
inline constexpr unsigned kMplsVpnTrapRows = 8;

extern MplsVpnTrapInfo mpls_vpn_mib_trap_info[kMplsVpnTrapRows];

// Seconds between re-issued maximum-threshold notifications; 0 when not configured.
extern std::uint32_t notif_reissue_time;
