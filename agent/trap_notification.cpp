#include "agent/trap_notification.h"

#include <span>
#include <string_view>
#include <type_traits>

#include "agent/tables/mib.h"
#include "mpls/vpn/mib/src/records/decoded.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace agent {
namespace {

// mplsL3VpnMIB
const oid::Oid kL3vpn(oid::View(tables::kL3vpnObjects).first(9));

using Trap = mpls_vpn_mib_trap;

// A column of the MIB with a value of the trap.
struct Object {
  std::span<const std::uint32_t> entry;
  std::uint32_t number;
  mib::Type type;
  bool of_interface;  // the index has the ifIndex after the VRF's name
  std::uint32_t (*value)(const Trap&);
};

template <auto kMember, typename Record>
consteval Object object(const mib::Column<Record>& column) {
  return {column.entry, column.number, column.syntax.type, std::is_same_v<Record, mib::Interface>,
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

TrapVariable make_variable(const Object& object, const Trap& trap, std::string_view vrf) {
  TrapVariable variable{oid::Oid(oid::View(tables::kL3vpnObjects)), object.type, object.value(trap)};
  variable.name.append(object.entry);
  variable.name.append(object.number);
  variable.name.append(static_cast<std::uint32_t>(vrf.size()));
  for (const char octet : vrf) variable.name.append(static_cast<std::uint8_t>(octet));
  if (object.of_interface) variable.name.append(static_cast<std::uint32_t>(trap.ifConfIndex));
  return variable;
}

}  // namespace

Status read_trap(const kvtree::Octets& record, TrapNotification* notification) {
  const Decoded<Trap> trap(kMibTrapParcel, record.data(), record.size());
  if (trap.status() != kStatusOk) return kStatusBadEncoding;
  const std::string_view vrf = trap->vrfName == nullptr ? "" : trap->vrfName;
  if (trap->trapType >= std::size(kNotifications) || vrf.size() > tables::kMaxNameLength)
    return kStatusInvalid;
  notification->identifier = kL3vpn;
  notification->identifier.append(0);
  notification->identifier.append(trap->trapType + 1);
  notification->variables.clear();
  for (const Object& object : kNotifications[trap->trapType]) {
    notification->variables.push_back(make_variable(object, *trap, vrf));
  }
  return kStatusOk;
}

}  // namespace agent
