#include "cli/watch/watch_command_line.h"

#include <fmt/format.h>

#include "cli/option_values.h"
#include "cli/output/address.h"
#include "cli/watch/watched_table.h"
#include "platform/config/owners.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

constexpr Duration kInterval = {1, 0.1, 3600, "from 100ms to 1h"};

constexpr char kTrapsWord[] = "traps";
constexpr char kChangesWord[] = "changes";
constexpr char kRoutesWord[] = "routes";

constexpr char kTablesHelp[] =
    "vrf, interfaces and routes show what is added, changed with its values before and after, and removed. "
    "The "
    "daemon does not announce that: the table is read every --interval, but at most a quarter of the time, "
    "and "
    "compared. What changes and changes back between two readings is not seen, and neither are the ages of "
    "routes, "
    "the times of VRFs and their numbers of routes. When the daemon is restarted, what differs afterwards is "
    "shown. "
    "Routes are those of one VRF, at most 2,000,000.";

std::string watch_footer() {
  std::vector<std::string> origins;
  for (const vrf_config::Owner& owner : vrf_config::kOwners) origins.emplace_back(owner.origin);
  return "A change has the values before and after with their origins: " + text::alternatives(origins) +
         ". What the routing suite sets is configured or derived. When the daemon is restarted, the watch "
         "continues "
         "and says so on standard error; what happened meanwhile is in \"mplsvpn show traps\".\n"
         "\n" +
         kTablesHelp +
         "\n"
         "\n"
         "Examples:\n"
         "  mplsvpn watch\n"
         "  mplsvpn watch changes --vrf red\n"
         "  mplsvpn watch interfaces\n"
         "  mplsvpn watch routes --vrf red --prefix 10.0.0.0/8 --interval 5s\n"
         "  mplsvpn --json watch traps --count 1 --timeout 30s";
}

WatchRequest watch_request_of(const WatchOptions& options) {
  WatchRequest request = options.request;
  request.traps = options.watched != kChangesWord;
  request.changes = options.watched != kTrapsWord;
  if (find_watched_table(options.watched) != nullptr) request.table = options.watched;
  const bool is_routes = options.watched == kRoutesWord;
  if (is_routes && request.vrf.empty())
    throw Failure(kExitUsage, "the routes of one VRF are watched; add --vrf NAME");
  if (!is_routes && !request.prefix.empty()) throw Failure(kExitUsage, "--prefix is for \"watch routes\"");
  if (!request.prefix.empty()) parse_prefix(request.prefix);  // wrong words are reported before any request
  return request;
}

}  // namespace

std::vector<std::string> watched_words() {
  std::vector<std::string> words = watched_table_names();
  words.insert(words.begin(), {kTrapsWord, kChangesWord});
  return words;
}

void add_watch(CLI::App& app, WatchOptions* options, ChosenCommand* command) {
  CLI::App* watch = app.add_subcommand(
      "watch", "Shows traps, and changes of RDs, route targets or tables as they arrive, until Ctrl-C");
  WatchRequest& request = options->request;
  watch
      ->add_option("WHAT", options->watched,
                   text::alternatives(watched_words()) + "; traps and changes when left out")
      ->transform(one_of(watched_words()));
  watch->add_option("--vrf", request.vrf, "Only this VRF's")->type_name("NAME");
  watch->add_option("--prefix", request.prefix, "Only routes inside this prefix, and its own");
  watch->add_option("--interval", request.interval, "Time between two readings of a table (default 1s)")
      ->type_name("TIME")
      ->transform(duration_of(kInterval));
  // --timeout after the command limits the watch, not the wait for an answer.
  add_count(watch, "--count", &request.most_events, "Stops after N traps and changes");
  watch
      ->add_option(
          "--timeout", request.seconds,
          "Stops after this time (90s, 5m; seconds without a unit); fails if fewer than --count arrived")
      ->type_name("TIME")
      ->transform(duration_of(kWatching));
  watch->footer(watch_footer());
  watch->callback([options, command] {
    *command = [options](const Session& session) { cli::watch(session, watch_request_of(*options)); };
  });
}

}  // namespace cli
