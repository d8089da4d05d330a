// sysUpTime.0 is left to the master agent, which puts its own first.
#include "agent/trap_notification.h"

#include <span>
#include <string_view>
#include <type_traits>

#include "agent/tables/mib.h"
#include "agent/value_type.h"
#include "mpls/vpn/mib/src/records/decoded.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace agent {
namespace {

using agentx::ValueType;

const oid::Oid kSnmpTrapOid{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
// mplsL3VpnMIB
const oid::Oid kL3vpn(oid::View(tables::kL3vpnObjects).first(9));

using Trap = mpls_vpn_mib_trap;

// A column of the MIB with a value of the trap.
struct Object {
  std::span<const std::uint32_t> entry;
  std::uint32_t number;
  ValueType type;
  bool of_interface;  // the index has the ifIndex after the VRF's name
  std::uint32_t (*value)(const Trap&);
};

template <auto kMember, typename Record>
consteval Object object(const mib::Column<Record>& column) {
  return {column.entry, column.number, value_type(column.syntax.type), std::is_same_v<Record, mib::Interface>,
          [](const Trap& trap) { return static_cast<std::uint32_t>(trap.*kMember); }};
}

constexpr Object kIfConfRowStatus =
    object<&Trap::ifConfRowStatus>(find_column(mib::kInterfaceColumns, "rowStatus"));
constexpr Object kVrfOperStatus = object<&Trap::vrfOperStatus>(find_column(mib::kVrfColumns, "operStatus"));
constexpr Object kMidRteThresh = object<&Trap::midThresh>(find_column(mib::kVrfColumns, "midThresh"));
constexpr Object kHighRteThresh = object<&Trap::highThresh>(find_column(mib::kVrfColumns, "highThresh"));
constexpr Object kIllegalLblVltns =
    object<&Trap::illegalLabelViolations>(find_column(mib::kVrfColumns, "illegalLabelViolations"));
constexpr Object kCurrNumRoutes =
    object<&Trap::currNumRoutes>(find_column(mib::kVrfColumns, "currNumRoutes"));

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

void write_object(const Object& object, const Trap& trap, std::string_view vrf, agentx::Writer* writer) {
  oid::Oid name{oid::View(tables::kL3vpnObjects)};
  name.append(object.entry);
  name.append(object.number);
  name.append(static_cast<std::uint32_t>(vrf.size()));
  for (const char octet : vrf) name.append(static_cast<std::uint8_t>(octet));
  if (object.of_interface) name.append(static_cast<std::uint32_t>(trap.ifConfIndex));
  writer->var_bind(object.type, name.view());
  writer->number32(object.value(trap));
}

Status write_variables(const Trap& trap, agentx::Writer* writer) {
  const std::string_view vrf = trap.vrfName == nullptr ? "" : trap.vrfName;
  if (trap.trapType >= std::size(kNotifications) || vrf.size() > tables::kMaxNameLength)
    return kStatusInvalid;
  write_trap_oid(trap.trapType, writer);
  for (const Object& object : kNotifications[trap.trapType]) write_object(object, trap, vrf, writer);
  return kStatusOk;
}

}  // namespace

Status write_trap(const kvtree::Octets& record, agentx::Writer* writer) {
  const Decoded<Trap> trap(kMibTrapParcel, record.data(), record.size());
  return trap.status() == kStatusOk ? write_variables(*trap, writer) : kStatusBadEncoding;
}

}  // namespace agent
