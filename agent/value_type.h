// The types of the MIB's objects on the wire.
#pragma once

#include "agent/agentx/pdu.h"
#include "mpls/vpn/mib/src/records/syntax.h"

namespace agent {

constexpr agentx::ValueType value_type(mib::Type type) {
  using agentx::ValueType;
  switch (type) {
    case mib::Type::kInteger:
    case mib::Type::kTruth:
      return ValueType::kInteger;
    case mib::Type::kUnsigned:  // Unsigned32 and Gauge32 are one type on the wire (RFC 2578 section 7.1.11)
    case mib::Type::kGauge:
      return ValueType::kGauge32;
    case mib::Type::kCounter:
      return ValueType::kCounter32;
    case mib::Type::kTimeStamp:
      return ValueType::kTimeTicks;
    default:
      return ValueType::kOctetString;
  }
}

}  // namespace agent
