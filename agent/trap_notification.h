// From the daemon's trap record to the variables of an SNMP notification: snmpTrapOID.0, then the OBJECTS of
// the notification in their order, with instances that name the VRF and the interface (RFC 4382 section 6,
// the NOTIFICATION-TYPEs; RFC 3416 section 4.2.6).
#pragma once

#include "agent/agentx/pdu.h"
#include "platform/core/base/status.h"
#include "platform/store/client/client.h"

namespace agent {

// Appends the variables. kStatusBadEncoding when the octets are not a trap record, kStatusInvalid when the
// trap is of an unknown type or its VRF has a name that does not fit an index; then nothing is appended.
[[nodiscard]] Status write_trap(const kvtree::Octets& record, agentx::Writer* writer);

}  // namespace agent
