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
const TrapType* find_type(const Trap& trap) {
  return trap.trapType < std::size(kTrapTypes) ? &kTrapTypes[trap.trapType] : nullptr;
}

std::string trap_name(const Trap& trap) {
  const TrapType* type = find_type(trap);
  return type != nullptr ? type->notification : fmt::format("trap {}", trap.trapType);
}

std::string trap_details(const Trap& trap) {
  const TrapType* type = find_type(trap);
  return type != nullptr ? type->details(trap) : "of an unknown type";
}

Json trap_json(const Trap& trap, std::uint64_t lost_before) {
  return {{"time", now_text()},
          {"notification", trap_name(trap)},
          {"trapType", trap.trapType},
          {"vrfName", text_or_empty(trap.vrfName)},
          {"ifConfIndex", trap.ifConfIndex},
          {"vrfOperStatus", trap.vrfOperStatus},
          {"ifConfRowStatus", trap.ifConfRowStatus},
          {"midThresh", trap.midThresh},
          {"highThresh", trap.highThresh},
          {"currNumRoutes", trap.currNumRoutes},
          {"illegalLabelViolations", trap.illegalLabelViolations},
          {"lostBefore", lost_before}};
}

}  // namespace

void print_trap(const Session& session, const kvtree::NotificationResult& notification) {
  const Record<Trap> trap(session, notification.path + notification.item_name, kMibTrapParcel,
                          notification.record);
  if (session.json) {
    session.out << json_line(trap_json(*trap, notification.lost_before)) << '\n';
    return;
  }
  if (notification.lost_before != 0)
    fmt::print(session.out, "... {} traps missed\n", notification.lost_before);
  fmt::print(session.out, "{} {} {} {}\n", now_text(), trap_name(*trap),
             printable(text_or_empty(trap->vrfName)), trap_details(*trap));
}

}  // namespace cli
