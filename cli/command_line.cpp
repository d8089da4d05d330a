// All words are checked before any request to the daemon.
#include "cli/command_line.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/completion.h"
#include "cli/config/config_command_line.h"
#include "cli/doctor/doctor.h"
#include "cli/export/export.h"
#include "cli/graph/graph.h"
#include "cli/option_values.h"
#include "cli/output/json_list.h"
#include "cli/output/table.h"
#include "cli/output/wrap.h"
#include "cli/session.h"
#include "cli/vrf/vrf_selection.h"
#include "cli/watch/watch_command_line.h"
#include "platform/core/debug/debug_client.h"
#include "platform/core/files/directories.h"
#include "platform/core/text/words.h"
#include "platform/store/history/records.h"
#include "platform/store/tree/kvtree.h"

namespace cli {

namespace {

constexpr char kDescription[] = "Shows and controls mpls_vpn_mib, the daemon of MPLS-L3VPN-STD-MIB.";

// Help is wrapped at this width; a paragraph of a footer is one line here.
constexpr std::size_t kHelpWidth = 80;

constexpr char kFooter[] =
    "Examples:\n"
    "  mplsvpn show status\n"
    "  mplsvpn show vrf\n"
    "  mplsvpn show vrf red detail\n"
    "  mplsvpn show routes red 10.11.0.0/16\n"
    "  mplsvpn show interfaces red\n"
    "  mplsvpn --json show vrf | jq -r '.[] | select(.operStatusName == \"down\").name'\n"
    "  mplsvpn get interface-next/red/0\n"
    "  mplsvpn debug prov on --watch\n"
    "  mplsvpn trace error --last 20\n"
    "  mplsvpn config set vrf red rt both 65000:100\n"
    "  mplsvpn watch --count 1 --timeout 30s\n"
    "  mplsvpn router down ge0\n"
    "  mplsvpn doctor\n"
    "\n"
    "Commands and options may be abbreviated while they are unambiguous: \"mplsvpn sh int\". After -- no "
    "word "
    "is an option.\n"
    "\n"
    "Exit status: 0 done, 1 the request failed, 2 usage error, 3 the daemon is not running, 4 it does not "
    "respond in time, 5 permission denied.\n"
    "\n"
    "With --json an answer is one object on one line, and a list is one array, which a failure may cut "
    "short. "
    "An error is one object on standard error: {\"error\":{\"status\":3,\"name\":\"notRunning\",\"message\":"
    "\"...\"}}. Debug output, traps and changes are one object for each line.\n"
    "\n"
    "Environment: MPLS_VPN_MIB_RUN_DIR, the daemon's run directory (default /run/mpls_vpn_mib).";

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

constexpr char kPathFooter[] =
    "A path is below /oper/mpls_vpn/gl/ unless it begins with /. \"mplsvpn config show --json\" shows the "
    "configuration. In keys write all octets but letters, digits and _ . : - as %XX. A key - is absent.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn get scalars\n"
    "  mplsvpn get vrf/red\n"
    "  mplsvpn get interface-next/%2D/0              of the VRF \"-\"\n"
    "  mplsvpn get rt-next/red/0/0\n"
    "  mplsvpn get route-next/red/1/0/1/0/0\n"
    "  mplsvpn list vrf-detail --max 10\n"
    "  mplsvpn list vrf-detail-filter/-/2/1          the VRFs with IPv6 unicast\n"
    "  mplsvpn datalist vrf-detail/red --structured  what follows red\n"
    "  mplsvpn datalist vrf-invalid-detail";

constexpr char kDebugFooter[] =
    "\"mplsvpn debug list\" lists the areas; \"all\" means each of them. Only root and the administrators' "
    "group may switch areas; every user who may open the socket may list and watch them.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn debug\n"
    "  mplsvpn debug vmap on --watch       switches one area on and shows its output until Ctrl-C\n"
    "  mplsvpn debug watch --count 100     shows the next 100 lines of the areas that are on\n"
    "  mplsvpn debug all off";

constexpr char kRouterFooter[] =
    "The daemon defines the words; write options of mplsvpn before \"router\". Only a daemon whose source is "
    "a "
    "router file has these commands. Their changes last until the file is loaded again.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn router help\n"
    "  mplsvpn router show red\n"
    "  mplsvpn router add-interface ge7 index 51 vrf red address 10.51.0.1/24\n"
    "  mplsvpn router reload";

struct Options {
  bool json = false;
  bool no_pager = false;
  std::string run_directory;
  std::string socket;
  unsigned timeout = 1000;
  std::string vrf;
  std::vector<std::string> vrf_words;
  VrfRequest selection;  // its state, protocol and order
  bool structured = false;
  RoutesRequest routes;
  TrapsRequest traps;
  PathRequest path;
  DebugRequest debug;
  TraceRequest trace;
  WatchOptions watch;
  ConfigOptions config;
  std::vector<std::string> router_words;
  DoctorRequest doctor;
  ExportRequest exported;
  GraphRequest graph;
  std::function<void(const Session&)> command;
};

// The command is called with this member when it is chosen.
template <typename T>
void on_choice(CLI::App* app, Options* options, void (*command)(const Session&, const T&),
               T Options::*request) {
  app->callback(
      [=] { options->command = [=](const Session& session) { command(session, options->*request); }; });
}

void add_general_options(CLI::App& app, Options* options) {
  app.add_flag("--json", options->json, "JSON in place of text");
  app.add_flag("--no-pager", options->no_pager, "Long output is not shown by $PAGER on a terminal");
  app.add_option("--run-dir", options->run_directory, "The daemon's run directory")->type_name("DIR");
  app.add_option("--socket", options->socket, "The daemon's main socket, if not in the run directory")
      ->type_name("PATH");
  app.add_option("--timeout", options->timeout,
                 "Time to wait for an answer: 500ms, 2s; milliseconds without a unit (default 1000)")
      ->type_name("TIME")
      ->transform(duration_of(kWaiting));
}

void add_structured(CLI::App* command, bool* structured) {
  command->add_flag("--structured", *structured, "Requests the structured (XML) form");
}

void take_selection(const VrfRequest& selection, VrfRequest* request) {
  request->state = selection.state;
  request->protocol = selection.protocol;
  request->sort = selection.sort;
  const bool is_table = !request->detail && !request->structured && !request->is_invalid;
  if (is_table || (selection.state + selection.protocol + selection.sort).empty()) return;
  throw Failure(kExitUsage, "--state, --protocol and --sort are for \"show vrf\" without details");
}

void add_show_vrf(CLI::App& show, Options* options) {
  CLI::App* vrf =
      show.add_subcommand("vrf", "Shows VRFs: states, interfaces, routes, route targets, policies");
  vrf->add_option("WORDS", options->vrf_words, "A VRF and what to show of it")->expected(0, 4);
  vrf->add_option("--name", options->vrf, "The VRF, if its name is one of the words")->type_name("VRF");
  vrf->add_option("--state", options->selection.state, "Only VRFs in this state")
      ->check(CLI::IsMember(vrf_states()));
  vrf->add_option("--protocol", options->selection.protocol, "Only VRFs with an interface of this protocol")
      ->check(CLI::IsMember(vrf_protocols()));
  vrf->add_option("--sort", options->selection.sort,
                  "Order of the lines: " + text::alternatives(vrf_orders()))
      ->type_name("ORDER");
  add_structured(vrf, &options->structured);
  vrf->footer(kVrfFooter);
  vrf->callback([options] {
    options->command = [options](const Session& session) {
      VrfRequest request = parse_vrf_words(options->vrf_words, options->vrf);
      request.structured = options->structured;
      take_selection(options->selection, &request);
      show_vrf(session, request);
    };
  });
}

void add_show_routes(CLI::App& show, Options* options) {
  CLI::App* routes = show.add_subcommand("routes", "Shows the routes of a VRF, all or those of a prefix");
  routes->add_option("VRF", options->routes.vrf, "The VRF")->required();
  routes->add_option("PREFIX", options->routes.prefix, "ADDRESS/LENGTH, or an address");
  routes->footer(kRoutesFooter);
  on_choice(routes, options, show_routes, &Options::routes);
}

void add_show_route_targets(CLI::App& show, Options* options) {
  CLI::App* targets = show.add_subcommand("route-targets", "Shows the route targets of all VRFs, or of one");
  targets->add_option("VRF", options->vrf, "Only this VRF's");
  on_choice(targets, options, show_route_targets, &Options::vrf);
}

constexpr char kTrapsFooter[] =
    "The daemon stores the latest 500 and the numbers of each notification, also over restarts, whether or "
    "not "
    "snmpd has sent them. The latest is the last line.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn show traps\n"
    "  mplsvpn --json show traps --last 500 | jq -r '.traps[] | select(.vrfName == \"red\").timeText'";

void add_show_traps(CLI::App& show, Options* options) {
  CLI::App* traps = show.add_subcommand("traps", "Shows how many traps were raised, and the latest of them");
  traps->add_option("--last", options->traps.last, "Only the latest N traps (default 20, at most 500)")
      ->type_name("N")
      ->check(CLI::Range(0U, notification_history::kMostListed).description(""));
  traps->footer(kTrapsFooter);
  on_choice(traps, options, show_traps, &Options::traps);
}

constexpr char kThresholdsFooter[] =
    "A table is low while it has had fewer than LOW routes FOR the configured time; mid and maximum are the "
    "thresholds of the notifications. A prefix is absent while it has no route of its own.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn show thresholds\n"
    "  mplsvpn --json show thresholds | jq -r '.[].prefixes[] | select(.present | not).prefix'\n"
    "  mplsvpn config set vrf red low-water ipv4 1000 60\n"
    "  mplsvpn config set vrf red watch 10.11.0.0/16";

void add_show_thresholds(CLI::App& show, Options* options) {
  CLI::App* thresholds = show.add_subcommand(
      "thresholds", "Shows the thresholds and low-water marks of VRFs, and their watched prefixes");
  thresholds->add_option("VRF", options->vrf, "Only this VRF's");
  thresholds->footer(kThresholdsFooter);
  on_choice(thresholds, options, show_thresholds, &Options::vrf);
}

void add_show(CLI::App& app, Options* options) {
  CLI::App* show = app.add_subcommand("show", "Shows the tables of the MIB, or the daemon");
  show->require_subcommand(1);
  show->add_subcommand("scalars", "Shows the numbers of VRFs and interfaces, and the notification settings")
      ->callback([options] { options->command = show_scalars; });
  show->add_subcommand("status", "Shows the daemon: version, sources, SNMP front end, databases, clients")
      ->callback([options] { options->command = show_status; });
  CLI::App* interfaces = show->add_subcommand("interfaces", "Shows the interfaces of all VRFs, or of one");
  interfaces->add_option("VRF", options->vrf, "Only this VRF's");
  on_choice(interfaces, options, show_interfaces, &Options::vrf);
  add_show_vrf(*show, options);
  add_show_route_targets(*show, options);
  add_show_routes(*show, options);
  add_show_traps(*show, options);
  add_show_thresholds(*show, options);
}

using PathCommand = void (*)(const Session&, const PathRequest&);

CLI::App* add_path_command(CLI::App& app, Options* options, PathCommand command, const char* name,
                           const char* description) {
  CLI::App* words = app.add_subcommand(name, description);
  words->add_option("PATH", options->path.path, "The path in the data store")->required();
  add_structured(words, &options->path.structured);
  words->footer(kPathFooter);
  on_choice(words, options, command, &Options::path);
  return words;
}

void add_list_command(CLI::App& app, Options* options, PathCommand command, const char* name,
                      const char* description) {
  add_path_command(app, options, command, name, description)
      ->add_option("--max", options->path.most, "At most N items (default and maximum 1024)")
      ->type_name("N")
      ->check(CLI::Range(1U, kKvMaxListItems));
}

void add_raw(CLI::App& app, Options* options) {
  add_path_command(app, options, get_record, "get", "Shows one record of the data store");
  add_list_command(app, options, get_list, "list", "Shows the keys of a list of the data store");
  add_list_command(app, options, get_datalist, "datalist", "Shows the keys and records of a list");
}

void add_debug(CLI::App& app, Options* options) {
  CLI::App* command = app.add_subcommand("debug", "Lists, switches and watches the debug areas");
  DebugRequest& request = options->debug;
  command->add_option("WORDS", request.words, "list, watch, AREA on, or AREA off")->expected(0, 2);
  command->add_flag("--watch", request.watch, "Shows the output after switching");
  add_count(command, "--count", &request.most_prints, "Stops after N lines");
  command->add_option("--seconds", request.seconds, "Stops after this time: 90s, 5m; seconds without a unit")
      ->type_name("TIME")
      ->transform(duration_of(kWatching));
  command->footer(kDebugFooter);
  on_choice(command, options, debug, &Options::debug);
}

void add_trace(CLI::App& app, Options* options) {
  CLI::App* command =
      app.add_subcommand("trace", "Lists the trace buffers, or shows one; needs no running daemon");
  command->add_option("BUFFER", options->trace.buffer, "A buffer, with or without \"mpls_vpn/\" before it");
  command->add_option("--last", options->trace.last, "Only the latest N entries")
      ->type_name("N")
      ->check(CLI::Range(1U, kMostCount).description(""));
  command->footer("Examples:\n  mplsvpn trace\n  mplsvpn trace error --last 20");
  on_choice(command, options, trace, &Options::trace);
}

void add_router(CLI::App& app, Options* options) {
  CLI::App* command = app.add_subcommand("router", "Shows and changes the router of a router file");
  // Words that look like options belong to the daemon, too.
  command->prefix_command()->allow_extras()->fallthrough(false);
  command->footer(kRouterFooter);
  command->callback([options, command] {
    options->router_words = command->remaining();
    options->command = [options](const Session& session) { router(session, options->router_words); };
  });
}

void describe(CLI::App& app, Options* options) {
  app.require_subcommand(1);
  app.fallthrough();
  app.set_version_flag("--version", MPLS_VERSION);
  app.footer(kFooter);
  add_general_options(app, options);
  add_show(app, options);
  add_raw(app, options);
  add_debug(app, options);
  add_trace(app, options);
  add_watch(app, &options->watch, &options->command);
  add_config(app, &options->config, &options->command);
  add_router(app, options);
  add_doctor(app, &options->doctor, &options->command);
  add_export(app, &options->exported, &options->command);
  add_graph(app, &options->graph, &options->command);
  app.add_subcommand("help", "Shows the help of a command: help show vrf");
  unmark_words(&app);
}

Session make_session(const Options& options, std::ostream& out, std::ostream& err, const Terminal& terminal) {
  if (!options.run_directory.empty()) setenv("MPLS_VPN_MIB_RUN_DIR", options.run_directory.c_str(), 1);
  return {out,
          err,
          options.json,
          options.socket.empty() ? kvtree::Client::default_socket() : options.socket,
          DebugClient::default_socket(),
          run_directory(),
          std::chrono::milliseconds(options.timeout),
          terminal};
}

int report(const Failure& failure, bool json, std::ostream& err) {
  if (json) {
    err << json_line({{"error",
                       {{"status", failure.exit_status()},
                        {"name", exit_name(failure.exit_status())},
                        {"message", failure.what()}}}})
        << '\n';
  } else {
    err << "mplsvpn: " << failure.what() << '\n';
  }
  return failure.exit_status();
}

// The output of the command may be longer than a screen, and ends without the user.
bool may_be_long(const CLI::App& app) {
  for (const char* name : {"show", "get", "list", "datalist", "trace"}) {
    if (app.got_subcommand(name)) return true;
  }
  const CLI::App* config = app.get_subcommand("config");
  return config->got_subcommand("show") || config->got_subcommand("history") ||
         config->got_subcommand("diff");
}

int run_command(const Options& options, std::ostream& out, std::ostream& err, const Terminal& terminal) {
  int verdict = kExitOk;
  try {
    options.command(make_session(options, out, err, terminal));
  } catch (const Verdict& reached) {
    verdict = reached.exit_status();
  } catch (const Failure& failure) {
    out.flush();
    return report(failure, options.json, err);
  }
  if (out.flush()) return verdict;
  return report({kExitFailed, "the output cannot be written"}, options.json, err);
}

// "complete -- WORDS...": of a user who types, so that nothing waits or explains.
constexpr char kCompleteWord[] = "complete";
constexpr unsigned kCompletionTimeout = 500;  // ms

int run_completion(const CLI::App& app, const std::vector<std::string>& words, std::ostream& out,
                   std::ostream& err) {
  const std::size_t first = words.size() > 1 && words[1] == "--" ? 2 : 1;
  const auto session = [&](const std::string& run_directory, const std::string& socket) {
    Options options;
    options.run_directory = run_directory;
    options.socket = socket;
    options.timeout = kCompletionTimeout;
    return make_session(options, out, err, {});
  };
  try {
    complete(app, {words.begin() + static_cast<std::ptrdiff_t>(first), words.end()}, out, session);
  } catch (const Failure& failure) {
    return failure.exit_status();
  }
  return kExitOk;
}

// Wrong words may end the parsing before --json is seen.
bool wants_json(const Options& options, const std::vector<std::string>& words) {
  return options.json || std::find(words.begin(), words.end(), "--json") != words.end();
}

}  // namespace

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err,
        const Terminal& terminal) {
  Options options;
  CLI::App app(kDescription, "mplsvpn");
  describe(app, &options);
  if (!words.empty() && words[0] == kCompleteWord) return run_completion(app, words, out, err);
  try {
    std::vector<std::string> resolved = resolve_words(app, words);
    std::reverse(resolved.begin(), resolved.end());
    app.parse(std::move(resolved));
  } catch (const Failure& failure) {
    return report(failure, wants_json(options, words), err);
  } catch (const CLI::CallForHelp&) {
    out << wrapped(app.help(), kHelpWidth);
    return kExitOk;
  } catch (const CLI::CallForVersion& version) {
    out << version.what() << '\n';
    return kExitOk;
  } catch (const CLI::ParseError& error) {
    return report({kExitUsage, error.what()}, wants_json(options, words), err);
  }
  if (terminal.start_pager && may_be_long(app) && !options.no_pager && !options.json) terminal.start_pager();
  return run_command(options, out, err, terminal);
}

}  // namespace cli
