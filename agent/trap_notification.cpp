// sysUpTime.0 is left to the master agent, which puts its own first.
#include "agent/trap_notification.h"

#include <array>
#include <span>
#include <string_view>

#include "agent/oid/oid.h"
#include "agent/rows/index.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/core/parcel/parcel.h"

namespace agent {
namespace {

using agentx::ValueType;

const oid::Oid kSnmpTrapOid{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
const oid::Oid kL3vpn{1, 3, 6, 1, 2, 1, 10, 166, 11};

struct Object {
  std::array<std::uint32_t, 5> column;  // below mplsL3VpnMIB
  ValueType type;
  bool of_interface;  // the index has the ifIndex after the VRF's name
  std::uint32_t (*value)(const mpls_vpn_mib_trap&);
};

using Trap = mpls_vpn_mib_trap;

template <auto kMember>
std::uint32_t value(const Trap& trap) {
  return static_cast<std::uint32_t>(trap.*kMember);
}

constexpr Object kIfConfRowStatus = {
    {1, 2, 1, 1, 5}, ValueType::kInteger, true, value<&Trap::ifConfRowStatus>};
constexpr Object kVrfOperStatus = {{1, 2, 2, 1, 6}, ValueType::kInteger, false, value<&Trap::vrfOperStatus>};
constexpr Object kMidRteThresh = {{1, 2, 2, 1, 9}, ValueType::kGauge32, false, value<&Trap::midThresh>};
constexpr Object kHighRteThresh = {{1, 2, 2, 1, 10}, ValueType::kGauge32, false, value<&Trap::highThresh>};
constexpr Object kIllegalLblVltns = {
    {1, 2, 6, 1, 1}, ValueType::kCounter32, false, value<&Trap::illegalLabelViolations>};
constexpr Object kCurrNumRoutes = {{1, 3, 1, 1, 3}, ValueType::kGauge32, false, value<&Trap::currNumRoutes>};

constexpr Object kStatusObjects[] = {kIfConfRowStatus, kVrfOperStatus};
constexpr Object kMidObjects[] = {kCurrNumRoutes, kMidRteThresh};
constexpr Object kHighObjects[] = {kCurrNumRoutes, kHighRteThresh};
constexpr Object kIllegalLabelObjects[] = {kIllegalLblVltns};

// By trap type; the notification's own number is one more.
constexpr std::span<const Object> kNotifications[] = {kStatusObjects, kStatusObjects,       kMidObjects,
                                                      kHighObjects,   kIllegalLabelObjects, kHighObjects};

void write_trap_oid(std::uint32_t type, agentx::Writer* writer) {
  oid::Oid notification = kL3vpn;
  notification.append(0);
  notification.append(type + 1);
  writer->var_bind(ValueType::kObjectIdentifier, kSnmpTrapOid.view());
  writer->name(notification.view());
}

void write_object(const Object& object, const mpls_vpn_mib_trap& trap, std::string_view vrf,
                  agentx::Writer* writer) {
  oid::Oid name = kL3vpn;
  name.append(object.column);
  name.append(static_cast<std::uint32_t>(vrf.size()));
  for (const char octet : vrf) name.append(static_cast<std::uint8_t>(octet));
  if (object.of_interface) name.append(static_cast<std::uint32_t>(trap.ifConfIndex));
  writer->var_bind(object.type, name.view());
  writer->number32(object.value(trap));
}

Status write_variables(const mpls_vpn_mib_trap& trap, agentx::Writer* writer) {
  const std::string_view vrf = trap.vrfName == nullptr ? "" : trap.vrfName;
  if (trap.trapType >= std::size(kNotifications) || vrf.size() > tables::kMaxNameLength)
    return kStatusInvalid;
  write_trap_oid(trap.trapType, writer);
  for (const Object& object : kNotifications[trap.trapType]) write_object(object, trap, vrf, writer);
  return kStatusOk;
}

}  // namespace

Status write_trap(const kvtree::Octets& record, agentx::Writer* writer) {
  mpls_vpn_mib_trap trap{};
  if (parcel_decode(&kMibTrapParcel, record.data(), record.size(), &trap) != kStatusOk)
    return kStatusBadEncoding;
  const Status status = write_variables(trap, writer);
  const Status released = parcel_free_indirections(&kMibTrapParcel, &trap);
  return status != kStatusOk ? status : released;
}

}  // namespace agent
