// A notification as the variables of a Notify PDU. sysUpTime.0 is left to the master agent, which puts its
// own first (RFC 3416 section 4.2.6).
#pragma once

#include "agent/agentx/pdu.h"
#include "agent/trap_notification.h"
#include "agent/value_type.h"

namespace agent {

inline void write_notification(const TrapNotification& notification, agentx::Writer* writer) {
  writer->var_bind(agentx::ValueType::kObjectIdentifier, kSnmpTrapOid);
  writer->name(notification.identifier.view());
  for (const TrapVariable& variable : notification.variables) {
    writer->var_bind(value_type(variable.type), variable.name.view());
    writer->number32(variable.number);
  }
}

}  // namespace agent
