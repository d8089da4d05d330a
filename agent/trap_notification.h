// From the daemon's trap record to an SNMP notification: its identifier, and the OBJECTS of the notification
// in their order, with instances that name the VRF and the interface (RFC 4382 section 6, the
// NOTIFICATION-TYPEs).
#pragma once

#include <cstdint>
#include <vector>

#include "agent/oid/oid.h"
#include "mpls/vpn/mib/src/records/syntax.h"
#include "platform/core/base/status.h"
#include "platform/store/client/client.h"

namespace agent {

struct TrapVariable {
  oid::Oid name;
  mib::Type type = mib::Type::kInteger;
  std::uint32_t number = 0;
};

struct TrapNotification {
  oid::Oid identifier;  // the value of snmpTrapOID.0
  std::vector<TrapVariable> variables;
};

inline constexpr std::uint32_t kSnmpTrapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};

// kStatusBadEncoding when the octets are not a trap record, kStatusInvalid when the trap is of an unknown
// type or its VRF has a name that does not fit an index.
[[nodiscard]] Status read_trap(const kvtree::Octets& record, TrapNotification* notification);

}  // namespace agent
