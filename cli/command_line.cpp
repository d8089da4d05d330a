// All words are checked before any request to the daemon.
#include "cli/command_line.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>

#include "cli/arguments.h"
#include "cli/chosen_command.h"
#include "cli/commands.h"
#include "cli/completion.h"
#include "cli/config/config_command_line.h"
#include "cli/diagnosis/raw_paths.h"
#include "cli/doctor/doctor.h"
#include "cli/explain/explain.h"
#include "cli/export/export.h"
#include "cli/graph/graph.h"
#include "cli/option_values.h"
#include "cli/output/json_list.h"
#include "cli/output/table.h"
#include "cli/output/wrap.h"
#include "cli/session.h"
#include "cli/show/show_command_line.h"
#include "cli/watch/watch_command_line.h"
#include "platform/core/debug/debug_client.h"
#include "platform/core/files/directories.h"
#include "platform/core/text/words.h"
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
    "  mplsvpn explain red 10.11.0.0/16\n"
    "\n"
    "Commands, options and other words may be abbreviated while they are unambiguous: \"mplsvpn sh int\", "
    "\"mplsvpn show vrf red det\". Lines of files have whole words. After -- no word is an option.\n"
    "\n"
    "Exit status: 0 done, 1 the request failed, 2 usage error, 3 the daemon is not running, 4 it does not "
    "respond in time, 5 permission denied.\n"
    "\n"
    "With --json an answer is one object on one line, and a list is one array, which is valid "
    "though shorter after a failure. "
    "An error is one object on standard error: {\"error\":{\"status\":3,\"name\":\"notRunning\",\"message\":"
    "\"...\"}}. Debug output, traps and changes are one object for each line.\n"
    "\n"
    "Environment: MPLS_VPN_MIB_RUN_DIR, the daemon's run directory (default /run/mpls_vpn_mib).";

constexpr char kPathFooter[] =
    "A path is below /oper/mpls_vpn/gl/ unless it begins with /. \"mplsvpn config show --json\" shows the "
    "configuration. In keys write all octets but letters, digits and _ . : - as %XX. A key - is absent, as "
    "are those left out at the end. Addresses are in hexadecimal digits.\n"
    "\n";

constexpr char kPathExamples[] =
    "\nExamples:\n"
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
    "\"mplsvpn debug list\" lists the areas; \"all\" means each of them. Only root and the group "
    "mpls_vpn_admin may switch areas; every user who may open the socket may list and watch them.\n"
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
    "  mplsvpn router show red --json\n"
    "  mplsvpn router add-interface ge7 index 51 vrf red address 10.51.0.1/24\n"
    "  mplsvpn router reload";

struct Options {
  bool json = false;
  bool no_pager = false;
  std::string run_directory;
  std::string socket;
  unsigned timeout = 1000;
  ShowOptions show;
  PathRequest path;
  DebugRequest debug;
  TraceRequest trace;
  WatchOptions watch;
  ConfigOptions config;
  std::vector<std::string> router_words;
  DoctorRequest doctor;
  ExplainRequest explanation;
  ExportRequest exported;
  GraphRequest graph;
  ChosenCommand command;
  std::string typed;  // its words
};

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

using PathCommand = void (*)(const Session&, const PathRequest&);

CLI::App* add_path_command(CLI::App& app, Options* options, PathCommand command, const char* name,
                           const char* description) {
  CLI::App* words = app.add_subcommand(name, description);
  words->add_option("PATH", options->path.path,
                    "The path in the data store; without it the paths are shown that the command reads");
  add_structured(words, &options->path.structured);
  words->footer(std::string(kPathFooter) + raw_paths_help() + kPathExamples);
  on_choice(words, &options->command, command, &options->path);
  return words;
}

void add_list_command(CLI::App& app, Options* options, PathCommand command, const char* name,
                      const char* description) {
  add_path_command(app, options, command, name, description)
      ->add_option("--max", options->path.most, "At most N items (default and maximum 1024)")
      ->type_name("N")
      ->check(number_from(1, kKvMaxListItems));
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
  on_choice(command, &options->command, debug, &options->debug);
}

void add_trace(CLI::App& app, Options* options) {
  CLI::App* command =
      app.add_subcommand("trace", "Lists the trace buffers, or shows one; needs no running daemon");
  command->add_option("BUFFER", options->trace.buffer, "A buffer, with or without \"mpls_vpn/\" before it");
  command->add_option("--last", options->trace.last, "Only the latest N entries")
      ->type_name("N")
      ->check(number_from(1, kMostCount));
  command->footer("Examples:\n  mplsvpn trace\n  mplsvpn trace error --last 20");
  on_choice(command, &options->command, trace, &options->trace);
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
  add_show(app, &options->show, &options->command);
  add_raw(app, options);
  add_debug(app, options);
  add_trace(app, options);
  add_watch(app, &options->watch, &options->command);
  add_config(app, &options->config, &options->command);
  add_router(app, options);
  add_doctor(app, &options->doctor, &options->command);
  add_explain(app, &options->explanation, &options->command);
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
          terminal,
          options.typed};
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
bool may_be_long(const CLI::App& app, const Options& options) {
  if (app.got_subcommand("router"))
    return !options.router_words.empty() && std::string("show").starts_with(options.router_words[0]);
  for (const char* name :
       {"show", "get", "list", "datalist", "trace", "doctor", "explain", "export", "graph"}) {
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

// "show vrf red" of "--json show vrf red".
std::string typed_command(const CLI::App& app, const std::vector<std::string>& words) {
  const auto chosen = app.get_subcommands();
  const auto first =
      chosen.empty() ? words.begin() : std::find(words.begin(), words.end(), chosen[0]->get_name());
  std::string typed;
  for (auto word = first; word != words.end(); ++word)
    typed += (typed.empty() ? "" : " ") + printable(unmarked(*word));
  return typed;
}

// What CLI11 refuses, such as a missing word, with the help of the command, or of the one above it that has
// the option.
Failure usage_failure(const CLI::App& app, const CLI::ParseError& error) {
  const std::string what = error.what();
  const std::string option = what.starts_with("--") ? what.substr(0, what.find(':')) : "";
  const CLI::App* command = &app;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
  if (find_option(*command, option) != nullptr) {
    while (command->get_option_no_throw(option) == nullptr) command = command->get_parent();
  }
  return {kExitUsage, fmt::format("{} ({} --help)", what, full_name(*command))};
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
    const std::vector<std::string> resolved = resolve_words(app, words);
    app.parse(std::vector<std::string>(resolved.rbegin(), resolved.rend()));
    options.typed = typed_command(app, resolved);
  } catch (const Failure& failure) {
    return report(failure, wants_json(options, words), err);
  } catch (const CLI::CallForHelp&) {
    out << wrapped(app.help(), kHelpWidth);
    return kExitOk;
  } catch (const CLI::CallForVersion& version) {
    out << version.what() << '\n';
    return kExitOk;
  } catch (const CLI::ParseError& error) {
    return report(usage_failure(app, error), wants_json(options, words), err);
  }
  if (terminal.start_pager && may_be_long(app, options) && !options.no_pager && !options.json)
    terminal.start_pager();
  return run_command(options, out, err, terminal);
}

}  // namespace cli
