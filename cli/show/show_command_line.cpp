#include "cli/show/show_command_line.h"

#include "cli/option_values.h"
#include "cli/vrf/vrf_selection.h"
#include "platform/core/text/words.h"
#include "platform/store/history/records.h"

namespace cli {

namespace {

constexpr char kVrfFooter[] =
    "Words: [NAME] [brief|detail] [ipv4|ipv6] [unicast|multicast], or invalid. With a family only VRFs that "
    "have a "
    "table of it are shown. \"invalid\" shows VRFs that do not exist, though interfaces are bound to them. "
    "--structured reads details in the form for XML, with the address families that have route targets or "
    "policies.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn show vrf\n"
    "  mplsvpn show vrf red\n"
    "  mplsvpn show vrf red detail\n"
    "  mplsvpn show vrf detail ipv6 unicast\n"
    "  mplsvpn show vrf brief --state down --sort routes\n"
    "  mplsvpn show vrf invalid\n"
    "  mplsvpn show vrf --name detail      the VRF that has this name\n"
    "  mplsvpn --json show vrf | jq -r '.[] | select(.operStatusName == \"down\").name'";

constexpr char kRoutesFooter[] =
    "A PREFIX shows its routes, one for each next hop; an address shows those of the longest matching "
    "prefix. "
    "An INTERFACE of another VRF is shown by its ifIndex, as #2. CROSS-CONNECT is the index of the route's "
    "labels in the label switching MIB.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn show routes red\n"
    "  mplsvpn show routes red 10.11.0.0/16\n"
    "  mplsvpn show routes red 2001:db8:21::7";

constexpr char kTrapsFooter[] =
    "The daemon stores the latest 500 and the numbers of each notification, also over restarts, whether or "
    "not "
    "snmpd has sent them. The latest is the last line.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn show traps\n"
    "  mplsvpn --json show traps --last 500 | jq -r '.traps[] | select(.vrfName == \"red\").timeText'";

constexpr char kThresholdsFooter[] =
    "A table is low while it has had fewer than LOW routes FOR the configured time; mid and maximum are the "
    "thresholds of the notifications. A prefix is absent while it has no route of its own.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn show thresholds\n"
    "  mplsvpn --json show thresholds | jq -r '.[].prefixes[] | select(.present | not).prefix'\n"
    "  mplsvpn config set vrf red low-water ipv4 1000 60\n"
    "  mplsvpn config set vrf red watch 10.11.0.0/16";

void take_selection(const VrfRequest& selection, VrfRequest* request) {
  request->state = selection.state;
  request->protocol = selection.protocol;
  request->sort = selection.sort;
  const bool is_table = !request->detail && !request->structured && !request->is_invalid;
  if (is_table || (selection.state + selection.protocol + selection.sort).empty()) return;
  throw Failure(kExitUsage, "--state, --protocol and --sort are for \"show vrf\" without details");
}

void add_show_vrf(CLI::App& show, ShowOptions* options, ChosenCommand* chosen) {
  CLI::App* vrf =
      show.add_subcommand("vrf", "Shows VRFs: states, interfaces, routes, route targets, policies");
  vrf->add_option("WORDS", options->vrf_words, "A VRF and what to show of it")->expected(0, 4);
  vrf->add_option("--name", options->vrf, "The VRF, if its name is one of the words")->type_name("VRF");
  vrf->add_option("--state", options->selection.state,
                  "Only VRFs in this state: " + text::alternatives(vrf_states()))
      ->type_name("STATE")
      ->transform(one_of(vrf_states()));
  vrf->add_option("--protocol", options->selection.protocol,
                  "Only VRFs with an interface of this protocol: " + text::alternatives(vrf_protocols()))
      ->type_name("PROTOCOL")
      ->transform(one_of(vrf_protocols()));
  vrf->add_option("--sort", options->selection.sort,
                  "Order of the lines: " + text::alternatives(vrf_orders()))
      ->type_name("ORDER")
      ->transform(one_of(vrf_orders()));
  add_structured(vrf, &options->structured);
  vrf->footer(kVrfFooter);
  vrf->callback([options, chosen] {
    *chosen = [options](const Session& session) {
      VrfRequest request = parse_vrf_words(options->vrf_words, options->vrf);
      request.structured = options->structured;
      take_selection(options->selection, &request);
      show_vrf(session, request);
    };
  });
}

void add_show_routes(CLI::App& show, ShowOptions* options, ChosenCommand* chosen) {
  CLI::App* routes = show.add_subcommand("routes", "Shows the routes of a VRF, all or those of a prefix");
  routes->add_option("VRF", options->routes.vrf, "The VRF")->required();
  routes->add_option("PREFIX", options->routes.prefix, "ADDRESS/LENGTH, or an address");
  routes->footer(kRoutesFooter);
  on_choice(routes, chosen, show_routes, &options->routes);
}

void add_show_route_targets(CLI::App& show, ShowOptions* options, ChosenCommand* chosen) {
  CLI::App* targets = show.add_subcommand("route-targets", "Shows the route targets of all VRFs, or of one");
  targets->add_option("VRF", options->vrf, "Only this VRF's");
  on_choice(targets, chosen, show_route_targets, &options->vrf);
}

void add_show_traps(CLI::App& show, ShowOptions* options, ChosenCommand* chosen) {
  CLI::App* traps = show.add_subcommand("traps", "Shows how many traps were raised, and the latest of them");
  traps->add_option("--last", options->traps.last, "Only the latest N traps (default 20, at most 500)")
      ->type_name("N")
      ->check(number_from(1, notification_history::kMostListed));
  traps->footer(kTrapsFooter);
  on_choice(traps, chosen, show_traps, &options->traps);
}

void add_show_thresholds(CLI::App& show, ShowOptions* options, ChosenCommand* chosen) {
  CLI::App* thresholds = show.add_subcommand(
      "thresholds", "Shows the thresholds and low-water marks of VRFs, and their watched prefixes");
  thresholds->add_option("VRF", options->vrf, "Only this VRF's");
  thresholds->footer(kThresholdsFooter);
  on_choice(thresholds, chosen, show_thresholds, &options->vrf);
}

}  // namespace

void add_show(CLI::App& app, ShowOptions* options, ChosenCommand* chosen) {
  CLI::App* show = app.add_subcommand("show", "Shows the tables of the MIB, or the daemon");
  show->require_subcommand(1);
  show->add_subcommand("scalars", "Shows the numbers of VRFs and interfaces, and the notification settings")
      ->callback([chosen] { *chosen = show_scalars; });
  show->add_subcommand("status", "Shows the daemon: version, sources, SNMP front end, databases, clients")
      ->callback([chosen] { *chosen = show_status; });
  CLI::App* interfaces = show->add_subcommand("interfaces", "Shows the interfaces of all VRFs, or of one");
  interfaces->add_option("VRF", options->vrf, "Only this VRF's");
  on_choice(interfaces, chosen, show_interfaces, &options->vrf);
  add_show_vrf(*show, options, chosen);
  add_show_route_targets(*show, options, chosen);
  add_show_routes(*show, options, chosen);
  add_show_traps(*show, options, chosen);
  add_show_thresholds(*show, options, chosen);
}

}  // namespace cli
