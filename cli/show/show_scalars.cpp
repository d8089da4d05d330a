// "show scalars": the scalar group.
#include <fmt/format.h>

#include "cli/commands.h"
#include "cli/output/details.h"
#include "cli/output/names.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"

namespace cli {

namespace {

using Scalars = mpls_vpn_mib_scalars;
using ScalarColumns = Columns<Scalars>;

constexpr DetailsLayout kScalarLayout = {0, 28};

template <std::uint32_t Scalars::*kMember>
Lines number_line(const Scalars& scalars) {
  return {std::to_string(scalars.*kMember)};
}

Lines switch_line(const Scalars& scalars) {
  return {notification_switch_name(scalars.notificationEnable)};
}

Lines reissue_line(const Scalars& scalars) {
  const std::uint32_t seconds = scalars.maxThresholdNotifTime;
  return {seconds == 0 ? "never" : fmt::format("{} s", seconds)};
}

constexpr Column<Scalars> kScalarColumns[] = {
    ScalarColumns::member<&Scalars::configuredVrfs>("configuredVrfs")
        .line(1, "VRFs configured", number_line<&Scalars::configuredVrfs>),
    ScalarColumns::member<&Scalars::activeVrfs>("activeVrfs")
        .line(2, "VRFs active", number_line<&Scalars::activeVrfs>),
    ScalarColumns::member<&Scalars::connectedInterfaces>("connectedInterfaces")
        .line(3, "interfaces connected", number_line<&Scalars::connectedInterfaces>),
    ScalarColumns::named<&Scalars::notificationEnable, notification_switch_name>("notificationEnable")
        .line(4, "notifications", switch_line),
    ScalarColumns::member<&Scalars::maxThresholdNotifTime>("maxThresholdNotifTime")
        .line(5, "maximum threshold re-issue", reissue_line),
    ScalarColumns::member<&Scalars::illegalLabelsThreshold>("illegalLabelsThreshold")
        .line(6, "illegal label threshold", number_line<&Scalars::illegalLabelsThreshold>),
};

kvtree::Octets fetch(const Session& session, const std::string& path) {
  kvtree::GetResult result = connect_to_daemon(session)->get(path);
  if (result.status) throw request_failure(session, path, result.status);
  return std::move(result.record);
}

}  // namespace

void show_scalars(const Session& session) {
  const std::string path = std::string(kMplsVpnPath) + "scalars";
  const Record<Scalars> scalars(session, path, kMibScalarsParcel, fetch(session, path));
  const std::span<const Column<Scalars>> columns = kScalarColumns;
  if (session.json) {
    session.out << json_line(row_json(columns, *scalars)) << '\n';
  } else {
    print_details(session.out, kScalarLayout, columns, *scalars);
  }
}

}  // namespace cli
