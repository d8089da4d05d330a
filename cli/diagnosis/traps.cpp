#include "cli/diagnosis/traps.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <string>

#include "cli/output/json_list.h"
#include "cli/output/names.h"
#include "cli/output/record.h"
#include "cli/output/table.h"
#include "cli/output/times.h"

namespace cli {

namespace {

using Trap = mpls_vpn_mib_trap;

std::string state_details(const Trap& trap) {
  return fmt::format("interface {} vrf {}", trap.ifConfIndex, name_of(mib::kVrfStatus, trap.vrfOperStatus));
}
std::string mid_details(const Trap& trap) {
  return fmt::format("routes {} mid threshold {}", trap.currNumRoutes, trap.midThresh);
}
std::string high_details(const Trap& trap) {
  return fmt::format("routes {} high threshold {}", trap.currNumRoutes, trap.highThresh);
}
std::string label_details(const Trap& trap) {
  return fmt::format("violations {}", trap.illegalLabelViolations);
}

struct TrapType {
  const char* notification;             // RFC 4382 section 6
  std::string (*details)(const Trap&);  // the members that the type uses; the others are 0
};

// By Trap::trapType.
constexpr TrapType kTrapTypes[] = {
    {"mplsL3VpnVrfUp", state_details},
    {"mplsL3VpnVrfDown", state_details},
    {"mplsL3VpnVrfRouteMidThreshExceeded", mid_details},
    {"mplsL3VpnVrfNumVrfRouteMaxThreshExceeded", high_details},
    {"mplsL3VpnNumVrfSecIllglLblThrshExcd", label_details},
    {"mplsL3VpnNumVrfRouteMaxThreshCleared", high_details},
};

// Null for an unknown type.
const TrapType* find_type(std::uint32_t type) {
  return type < std::size(kTrapTypes) ? &kTrapTypes[type] : nullptr;
}

// Types without such a member have 0.
Json name_or_null(const mib::Syntax& syntax, std::int32_t value) {
  return value == 0 ? Json() : Json(name_of(syntax, value));
}

}  // namespace

std::string trap_name(std::uint32_t type) {
  const TrapType* known = find_type(type);
  return known != nullptr ? known->notification : fmt::format("trap {}", type);
}

// The MIB numbers its notifications from 1, in the order of the trap types.
std::string trap_oid(std::uint32_t type) {
  return find_type(type) != nullptr ? fmt::format("1.3.6.1.2.1.10.166.11.0.{}", type + 1) : std::string();
}

std::string trap_details(const Trap& trap) {
  const TrapType* type = find_type(trap.trapType);
  return type != nullptr ? type->details(trap) : "of an unknown type";
}

Json trap_json(const Trap& trap) {
  return {{"notification", trap_name(trap.trapType)},
          {"notificationOid", trap_oid(trap.trapType)},
          {"trapType", trap.trapType},
          {"vrfName", text_or_empty(trap.vrfName)},
          {"ifConfIndex", trap.ifConfIndex},
          {"vrfOperStatus", trap.vrfOperStatus},
          {"vrfOperStatusName", name_or_null(mib::kVrfStatus, trap.vrfOperStatus)},
          {"ifConfRowStatus", trap.ifConfRowStatus},
          {"ifConfRowStatusName", name_or_null(mib::kRowStatus, trap.ifConfRowStatus)},
          {"midThresh", trap.midThresh},
          {"highThresh", trap.highThresh},
          {"currNumRoutes", trap.currNumRoutes},
          {"illegalLabelViolations", trap.illegalLabelViolations}};
}

bool print_trap(const Session& session, const kvtree::NotificationResult& notification,
                const std::string& vrf) {
  const Record<Trap> trap(session, notification.path + notification.item_name, kMibTrapParcel,
                          notification.record);
  if (!vrf.empty() && vrf != text_or_empty(trap->vrfName)) return false;
  if (session.json) {
    Json json = now_json();
    json.update(trap_json(*trap));
    json["lostBefore"] = notification.lost_before;
    session.out << json_line(json) << '\n';
    return true;
  }
  if (notification.lost_before != 0)
    fmt::print(session.out, "... {} traps missed\n", notification.lost_before);
  fmt::print(session.out, "{} {} {} {}\n", now_text(), trap_name(trap->trapType),
             printable(text_or_empty(trap->vrfName)), trap_details(*trap));
  return true;
}

}  // namespace cli
