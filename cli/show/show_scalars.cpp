// "show scalars": the scalar group.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "cli/commands.h"
#include "cli/config/config_tree.h"
#include "cli/output/details.h"
#include "cli/output/mib_json.h"
#include "cli/show/tables.h"

namespace cli {

namespace {

// The MIB has one switch, which is on when all are.
std::string notifications_text(const Session& session, kvtree::Client& client, const mib::Scalars& scalars) {
  const std::vector<std::string> items = read_trap_items(session, client);
  if (scalars.notificationEnable || items.empty())
    return name_of(mib::kTruthValue, scalars.notificationEnable);
  return fmt::format("only {} (disabled for SNMP)", fmt::join(items, ", "));
}

void print_scalars(const Session& session, kvtree::Client& client, const mib::Scalars& scalars) {
  Details details(session.out, 0, 28, session.terminal.width);
  const std::uint32_t seconds = scalars.maxThresholdNotifTime;
  details.line("VRFs configured", std::to_string(scalars.configuredVrfs));
  details.line("VRFs active", std::to_string(scalars.activeVrfs));
  details.line("interfaces connected", std::to_string(scalars.connectedInterfaces));
  details.line("notifications", notifications_text(session, client, scalars));
  details.line("maximum threshold re-issue", seconds == 0 ? "never" : fmt::format("{} s", seconds));
}

}  // namespace

void show_scalars(const Session& session) {
  const std::string path = provider_path("scalars");
  const auto client = connect_to_daemon(session);
  const kvtree::GetResult result = client->get(path);
  if (result.status) throw request_failure(session, result.status);
  const Record<mib::Scalars> scalars(session, path, kMibScalarsParcel, result.record);
  if (!session.json) return print_scalars(session, *client, *scalars);
  session.out << json_line(mib_json(mib::kScalarColumns, *scalars)) << '\n';
}

}  // namespace cli
