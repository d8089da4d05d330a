#include "cli/config/config_command_line.h"

#include <fmt/format.h>

#include "cli/option_values.h"
#include "cli/output/table.h"
#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"
#include "platform/store/configuration/configuration.h"

namespace cli {

namespace {

constexpr char kChanging[] =
    "Changes are for root and the group mpls_vpn_admin, and outlive the daemon. What the command line sets "
    "overrides what a router file or a routing suite sets for the same item.\n"
    "\n";

constexpr char kExamples[] =
    "Examples:\n"
    "  mplsvpn config show vrf red\n"
    "  mplsvpn config set vrf red rt both 65000:100\n"
    "  mplsvpn config set traps vrf-up\n"
    "  mplsvpn config delete vrf red rt import           every import route target of red\n"
    "  mplsvpn config suppress vrf red description       whatever a router file or routing suite sets\n"
    "  mplsvpn config show --owner cli > backup.conf     what the command line sets, to be loaded again\n"
    "  mplsvpn config load --dry-run red.conf            lines \"set WORDS\" and \"delete WORDS\"\n"
    "  mplsvpn config set --candidate vrf red rd 65000:1\n"
    "  mplsvpn config diff\n"
    "  mplsvpn config commit --comment \"new customer\"\n"
    "  mplsvpn config load --confirmed 10 red.conf       undone after 10 minutes, unless you\n"
    "  mplsvpn config confirm 12                         confirm it\n"
    "  mplsvpn config history 12\n"
    "  mplsvpn config rollback 11";

std::string config_footer() {
  return "Words:\n" + vrf_config::words_help() + "\n" + kChanging + kExamples;
}

std::string owner_names() {
  return text::alternatives({kConfigOwners.begin(), kConfigOwners.end()});
}

constexpr double kSecondsPerMinute = 60;

// Turns a duration, in minutes without a unit, into seconds.
CLI::Validator time_to_confirm() {
  const auto convert = [](std::string& text) -> std::string {
    const std::optional<double> seconds = text::parse_duration(text, kSecondsPerMinute);
    if (!seconds || *seconds < 1 || *seconds > kLongestConfirmation)
      return fmt::format("{} is not a time from 1s to 24h, such as 10 (minutes) or 90s", printable(text));
    text = fmt::format("{:.0f}", *seconds);
    return {};
  };
  return {convert, ""};
}

// "all", also abbreviated, becomes the largest number.
CLI::Validator number_or_all() {
  const auto convert = [](std::string& text) -> std::string {
    if (!text::candidates(text, {"all"}).empty()) text = std::to_string(UINT32_MAX);
    if (text::parse_number(text).value_or(0) > 0) return {};
    return fmt::format("{} is neither a number from 1 to {} nor \"all\"", printable(text), UINT32_MAX);
  };
  return {convert, ""};
}

struct Builder {
  CLI::App* config;
  ConfigOptions* options;
  ChosenCommand* command;

  // With the words of items in its help.
  CLI::App* add_with_words(const char* name, const char* description, const ChosenCommand& action) const {
    CLI::App* app = add(name, description, action);
    app->footer(config_footer());
    return app;
  }
  CLI::App* add(const char* name, const char* description, const ChosenCommand& action) const {
    CLI::App* app = config->add_subcommand(name, description);
    app->callback([target = command, action] { *target = action; });
    return app;
  }
  void add_comment(CLI::App* app) const {
    app->add_option("--comment", options->edit.comment, "Stored with the commit")->type_name("TEXT");
  }
  void add_dry_run(CLI::App* app) const {
    app->add_flag("--dry-run", options->edit.dry_run, "Shows what would change, and changes nothing");
  }
  void add_confirmed(CLI::App* app) const {
    app->add_option("--confirmed", options->edit.confirmed,
                    "Undoes the commit after so many minutes, unless \"config confirm\" confirms it")
        ->type_name("MINUTES")
        ->transform(time_to_confirm());
  }
  void add_candidate(CLI::App* app) const {
    app->add_flag("--candidate", options->edit.candidate, "Adds it to the candidate, for \"config commit\"")
        ->excludes(app->get_option("--dry-run"), app->get_option("--comment"),
                   app->get_option("--confirmed"));
  }
};

void add_show(const Builder& builder) {
  ConfigOptions* options = builder.options;
  CLI::App* app =
      builder.add_with_words("show", "Shows the effective configuration, as lines for \"config load\"",
                             [options](const Session& session) {
                               options->show.words = vrf_config::whole_words(options->show.words);
                               config_show(session, options->show);
                             });
  app->add_option("WORDS", options->show.words, "The beginning of items; none: everything");
  app->add_flag("--owners", options->show.owners, "Shows the owner of each item");
  app->add_option("--owner", options->show.owner, "What this owner sets, effective or not: " + owner_names())
      ->type_name("OWNER")
      ->transform(one_of({kConfigOwners.begin(), kConfigOwners.end()}));
}

using Edit = void (*)(const Session&, const ConfigEditRequest&);

void add_edit(const Builder& builder, const char* name, const char* description, Edit edit) {
  ConfigOptions* options = builder.options;
  CLI::App* app = builder.add_with_words(name, description, [options, edit](const Session& session) {
    options->edit.words = vrf_config::whole_words(options->edit.words);
    edit(session, options->edit);
  });
  app->add_option("WORDS", options->edit.words, "An item of the configuration")->required();
  builder.add_comment(app);
  builder.add_dry_run(app);
  builder.add_confirmed(app);
  builder.add_candidate(app);
}

void add_load(const Builder& builder) {
  ConfigOptions* options = builder.options;
  CLI::App* app = builder.add_with_words(
      "load", "Commits the lines of a file together: set WORDS, delete WORDS and others",
      [options](const Session& session) { config_load(session, options->file, options->edit); });
  app->add_option("FILE", options->file, "Lines, and comments after #; - is the standard input")->required();
  CLI::Option* replace = app->add_flag("--replace", options->edit.replace,
                                       "Deletes what the command line has set and the file does not set");
  builder.add_comment(app);
  builder.add_dry_run(app);
  builder.add_confirmed(app);
  builder.add_candidate(app);
  replace->excludes(app->get_option("--candidate"));
}

void add_candidate_commands(const Builder& builder) {
  ConfigOptions* options = builder.options;
  builder.add("diff", "Shows what the candidate would change", config_diff);
  CLI::App* commit = builder.add("commit", "Commits the candidate", [options](const Session& session) {
    config_commit(session, options->edit);
  });
  builder.add_comment(commit);
  builder.add_confirmed(commit);
  commit->add_flag("--force", options->edit.force,
                   "Overwrites what was committed since the candidate was begun");
  builder.add("discard", "Drops the candidate", config_discard);
  CLI::App* confirm =
      builder.add("confirm", "Confirms the commit that --confirmed would undo",
                  [options](const Session& session) { config_confirm(session, options->commit); });
  confirm->add_option("COMMIT", options->commit, "Its number, so that no other one is confirmed");
}

void add_words(const Builder& builder) {
  ConfigOptions* options = builder.options;
  CLI::App* app = builder.add("words", "Shows which words may follow; what you choose is in upper case",
                              [options](const Session& session) {
                                config_words(session, vrf_config::whole_words(options->show.words));
                              });
  app->add_option("WORDS", options->show.words, "The beginning of an item; none: every first word");
}

void add_history(const Builder& builder) {
  ConfigOptions* options = builder.options;
  CLI::App* history = builder.add(
      "history", "Shows the latest commits, or the changes of one",
      [options](const Session& session) { config_history(session, options->commit, options->most); });
  CLI::Option* commit = history->add_option("COMMIT", options->commit, "A commit's number");
  history->add_option("--last,--max", options->most, "The latest N commits, or all of them (default 20)")
      ->type_name("N|all")
      ->transform(number_or_all())
      ->excludes(commit);
  CLI::App* rollback = builder.add(
      "rollback", "Undoes all later commits, as one commit",
      [options](const Session& session) { config_rollback(session, options->commit, options->edit); });
  rollback->add_option("COMMIT", options->commit, "The commit to return to")->required();
  builder.add_comment(rollback);
  builder.add_dry_run(rollback);
  builder.add_confirmed(rollback);
}

}  // namespace

void add_config(CLI::App& app, ConfigOptions* options, ChosenCommand* command) {
  CLI::App* config = app.add_subcommand(
      "config", "Shows and changes the configuration: VRFs, AS number format, trap switches");
  config->require_subcommand(1);
  config->footer(config_footer());
  const Builder builder{config, options, command};
  add_show(builder);
  add_edit(builder, "set", "Sets an item", config_set);
  add_edit(builder, "delete", "Deletes an item, or all that begin with the words", config_delete);
  add_edit(builder, "suppress", "Disables items of other owners, until \"unsuppress\"", config_suppress);
  add_edit(builder, "unsuppress", "Makes suppressed items effective again", config_unsuppress);
  add_load(builder);
  add_candidate_commands(builder);
  add_history(builder);
  add_words(builder);
}

}  // namespace cli
