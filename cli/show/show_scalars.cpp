// "show scalars": the scalar group.
#include <fmt/format.h>

#include "cli/commands.h"
#include "cli/output/details.h"
#include "cli/output/mib_json.h"
#include "cli/show/tables.h"

namespace cli {

namespace {

void print_scalars(const Session& session, const mib::Scalars& scalars) {
  Details details(session.out, 0, 28);
  const std::uint32_t seconds = scalars.maxThresholdNotifTime;
  details.line("VRFs configured", std::to_string(scalars.configuredVrfs));
  details.line("VRFs active", std::to_string(scalars.activeVrfs));
  details.line("interfaces connected", std::to_string(scalars.connectedInterfaces));
  details.line("notifications", name_of(mib::kTruthValue, scalars.notificationEnable));
  details.line("maximum threshold re-issue", seconds == 0 ? "never" : fmt::format("{} s", seconds));
  details.line("illegal label threshold", std::to_string(scalars.illegalLabelsThreshold));
}

}  // namespace

void show_scalars(const Session& session) {
  const std::string path = provider_path("scalars");
  const kvtree::GetResult result = connect_to_daemon(session)->get(path);
  if (result.status) throw request_failure(session, path, result.status);
  const Record<mib::Scalars> scalars(session, path, kMibScalarsParcel, result.record);
  if (!session.json) return print_scalars(session, *scalars);
  session.out << json_line(mib_json(mib::kScalarColumns, *scalars)) << '\n';
}

}  // namespace cli
