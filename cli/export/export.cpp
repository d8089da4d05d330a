#include "cli/export/export.h"

#include <CLI/CLI.hpp>

#include "cli/chosen_command.h"
#include "cli/export/formats.h"
#include "cli/option_values.h"
#include "cli/vrf/vpn_instances.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

constexpr char kExportFooter[] =
    "Each VRF has its route distinguisher, its import and export route targets of all address families, and "
    "its interfaces. docs/export.md describes the forms.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn export --format csv\n"
    "  mplsvpn export --format napalm | jq '.red.interfaces'\n"
    "  mplsvpn export --format netbox | jq .route_targets";

void export_vrfs(const Session& session, const ExportRequest& request) {
  const ExportFormat* const format = find_export_format(request.format);
  if (format == nullptr) throw Failure(kExitUsage, "--format: no such format: " + request.format);
  if (session.json && !format->is_json)
    throw Failure(kExitUsage, "--format " + request.format + " is not JSON: leave out --json");
  const auto client = connect_to_daemon(session);
  format->write(read_vpn_instances(session, *client), session.out);
}

}  // namespace

void add_export(CLI::App& app, ExportRequest* request, ChosenCommand* chosen) {
  CLI::App* command =
      app.add_subcommand("export", "Prints the VRFs in the form of an inventory or a spreadsheet");
  command->add_option("--format", request->format, "The form: " + text::alternatives(export_formats()))
      ->type_name("FORMAT")
      ->required()
      ->transform(one_of(export_formats()));
  command->footer(kExportFooter);
  on_choice(command, chosen, export_vrfs, request);
}

}  // namespace cli
