// Names and values in net-snmp's form.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "agent/oid/oid.h"
#include "agent/snmpd/netsnmp.h"
#include "mpls/vpn/mib/src/records/syntax.h"

namespace snmpd {

// net-snmp's sub-identifiers have another width.
class LongName {
 public:
  explicit LongName(oid::View head, oid::View tail = {}) {
    append(head);
    append(tail);
  }
  const netsnmp_oid* data() const { return numbers_.data(); }
  netsnmp_oid* data() { return numbers_.data(); }
  std::size_t size() const { return size_; }

 private:
  void append(oid::View numbers) {
    for (const std::uint32_t number : numbers) {
      if (size_ < numbers_.size()) numbers_[size_++] = number;
    }
  }
  std::array<netsnmp_oid, oid::kMaxSubIdentifiers> numbers_;
  std::size_t size_ = 0;
};

inline oid::Oid short_name(const netsnmp_oid* numbers, std::size_t count) {
  oid::Oid name;
  for (std::size_t i = 0; i < count; ++i) {
    if (!name.append(static_cast<std::uint32_t>(numbers[i]))) break;
  }
  return name;
}

constexpr std::uint8_t value_type(mib::Type type) {
  switch (type) {
    case mib::Type::kInteger:
    case mib::Type::kTruth:
      return ASN_INTEGER;
    case mib::Type::kUnsigned:  // Unsigned32 and Gauge32 are one type on the wire (RFC 2578 section 7.1.11)
    case mib::Type::kGauge:
      return ASN_GAUGE;
    case mib::Type::kCounter:
      return ASN_COUNTER;
    case mib::Type::kTimeStamp:
      return ASN_TIMETICKS;
    default:
      return ASN_OCTET_STR;
  }
}

// An INTEGER is signed, the other numbers are not.
constexpr long number_value(std::uint8_t type, std::uint32_t number) {
  return type == ASN_INTEGER ? static_cast<long>(static_cast<std::int32_t>(number))
                             : static_cast<long>(number);
}

}  // namespace snmpd
