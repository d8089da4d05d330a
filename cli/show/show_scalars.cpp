// "show scalars": the scalar group.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include "cli/commands.h"
#include "cli/output/json_list.h"
#include "cli/output/names.h"
#include "cli/output/record.h"

namespace cli {

namespace {

Json scalars_json(const mpls_vpn_mib_scalars& scalars) {
  return {{"configuredVrfs", scalars.configuredVrfs},
          {"activeVrfs", scalars.activeVrfs},
          {"connectedInterfaces", scalars.connectedInterfaces},
          {"notificationEnable", scalars.notificationEnable},
          {"notificationEnableName", notification_switch_name(scalars.notificationEnable)},
          {"maxThresholdNotifTime", scalars.maxThresholdNotifTime},
          {"illegalLabelsThreshold", scalars.illegalLabelsThreshold}};
}

void print_scalars(std::ostream& out, const mpls_vpn_mib_scalars& scalars) {
  const auto line = [&out](const char* title, const auto& value) {
    fmt::print(out, "{:<28}{}\n", title, value);
  };
  line("VRFs configured", scalars.configuredVrfs);
  line("VRFs active", scalars.activeVrfs);
  line("interfaces connected", scalars.connectedInterfaces);
  line("notifications", notification_switch_name(scalars.notificationEnable));
  line("maximum threshold re-issue", scalars.maxThresholdNotifTime == 0
                                         ? std::string("never")
                                         : fmt::format("{} s", scalars.maxThresholdNotifTime));
  line("illegal label threshold", scalars.illegalLabelsThreshold);
}

kvtree::Octets fetch(const Session& session, const std::string& path) {
  kvtree::GetResult result = connect_to_daemon(session)->get(path);
  if (result.status) throw request_failure(session, path, result.status);
  return std::move(result.record);
}

}  // namespace

void show_scalars(const Session& session) {
  const std::string path = std::string(kProviderPath) + "scalars";
  const Record<mpls_vpn_mib_scalars> scalars(session, path, kMibScalarsParcel, fetch(session, path));
  if (session.json) {
    session.out << json_line(scalars_json(*scalars)) << '\n';
  } else {
    print_scalars(session.out, *scalars);
  }
}

}  // namespace cli
