#include "cli/completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "cli/arguments.h"
#include "cli/doctor/doctor.h"
#include "cli/export/formats.h"
#include "cli/graph/graph.h"
#include "cli/show/interface_states.h"
#include "cli/show/route_lookup.h"
#include "cli/show/tables.h"
#include "cli/vrf/vrf_selection.h"
#include "cli/watch/watch_command_line.h"
#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/core/debug/debug_client.h"
#include "platform/core/text/words.h"
#include "platform/core/trace/trace.h"
#include "platform/store/tree/kvtree.h"

namespace cli {

namespace {

using Words = std::vector<std::string>;

constexpr char kFiles[] = ":files";
constexpr std::size_t kMostNames = 200;  // no user reads a longer list
constexpr std::uint32_t kCompletedCommits = 20;

// A word that every shell takes as it is.
bool is_plain(const std::string& name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char octet) {
    return std::isalnum(octet) != 0 || octet == '_' || octet == '.' || octet == '-' || octet == '@' ||
           octet == '/' || octet == ':';
  });
}

// One completion: the command of the words before, its own words, and what the user has typed of the next.
struct Request {
  const Session& session;
  Words words;
  std::string begun;
};

Words vrf_names(const Request& request) {
  const auto client = connect_to_daemon(request.session);
  Words names;
  std::string path = provider_path("vrf-detail");
  while (names.size() < kMostNames) {
    const kvtree::ListResult page = client->list(path, kKvMaxListItems);
    if (page.status) throw request_failure(request.session, page.status);
    for (const kvtree::ListItem& item : page.items) {
      if (item.key.starts_with(request.begun) && names.size() < kMostNames) names.push_back(item.key);
    }
    if (page.items.size() < kKvMaxListItems) break;
    path = provider_path("vrf-detail", page.items.back().key);
  }
  return names;
}

Words interface_names(const Request& request) {
  return names_of_interfaces(request.session, *connect_to_daemon(request.session), request.begun, kMostNames);
}

Words first_word_vrf(const Request& request) {
  return request.words.empty() ? vrf_names(request) : Words();
}

Words vrf_and_prefix(const Request& request) {
  if (request.words.empty()) return vrf_names(request);
  if (request.words.size() > 1) return {};
  return destinations_that_begin(request.session, *connect_to_daemon(request.session), request.words[0],
                                 request.begun, kMostNames);
}

Words words_of_show_vrf(const Request& request) {
  Words words = vrf_words();
  std::erase_if(words, [&](const std::string& word) {
    return std::find(request.words.begin(), request.words.end(), word) != request.words.end();
  });
  if (!request.words.empty()) return words;
  words.emplace_back("invalid");
  const Words names = vrf_names(request);
  words.insert(words.end(), names.begin(), names.end());
  return words;
}

// What users choose is in upper case; of that, VRFs and interfaces are known.
Words words_of_items(const Request& request) {
  Words words;
  for (const std::string& word : vrf_config::words_after(vrf_config::whole_words(request.words))) {
    if (word == "NAME" || word == "INTERFACE") {
      const Words names = word == "NAME" ? vrf_names(request) : interface_names(request);
      words.insert(words.end(), names.begin(), names.end());
    } else if (std::isupper(static_cast<unsigned char>(word.front())) == 0) {
      words.push_back(word);
    }
  }
  return words;
}

Words commit_ids(const Request& request) {
  if (!request.words.empty()) return {};
  const auto client = connect_to_daemon(request.session);
  Words ids;
  for (const KvConfigCommit& commit : client->history(kCompletedCommits).commits) ids.push_back(commit.id);
  return ids;
}

Words waiting_commit(const Request& request) {
  if (!request.words.empty()) return {};
  const KvConfigConfirmation waiting = connect_to_daemon(request.session)->confirmation().confirmation;
  return waiting.id.empty() ? Words{} : Words{waiting.id};
}

Words debug_words(const Request& request) {
  if (request.words.size() == 1) return {"on", "off"};
  if (!request.words.empty()) return {};
  Words words = {"list", "watch", "all"};
  DebugClient client(request.session.debug_socket);
  std::vector<DebugFlagState> flags;
  if (client.connect() == kStatusOk && client.list(&flags) == kStatusOk)
    for (const DebugFlagState& flag : flags) words.push_back(flag.name);
  return words;
}

Words trace_words(const Request& request) {
  return request.words.empty() ? trace_names(request.session.run_directory) : Words();
}

Words watch_words(const Request& request) {
  return request.words.empty() ? watched_words() : Words();
}

// The daemon's own help has a line "  router WORD ARGUMENTS" for each command.
Words router_words(const Request& request) {
  const auto client = connect_to_daemon(request.session);
  const kvtree::ActionResult help = client->action({"router", "help"});
  Words commands;
  std::string arguments;  // of the command that was typed
  std::string_view rest = help.text;
  while (!rest.empty()) {
    std::string_view line = text::take_until(&rest, '\n');
    if (!line.starts_with("  router ")) continue;
    line.remove_prefix(std::string_view("  router ").size());
    commands.emplace_back(text::take_until(&line, ' '));
    if (!request.words.empty() && request.words[0] == commands.back()) arguments = line;
  }
  if (request.words.empty()) return commands;
  const std::string& command = request.words[0];
  const bool wants_vrf =
      command.ends_with("-vrf") || command.ends_with("reference") || command.ends_with("-route");
  if (request.words.size() == 1 && wants_vrf && command != "add-vrf") return vrf_names(request);
  if (request.words.size() == 1 && arguments.starts_with("NAME")) return interface_names(request);
  if (request.words.size() == 2 && arguments.starts_with("NAME VRF")) return vrf_names(request);
  return {};
}

Words files(const Request&) {
  return {kFiles};
}

using Completer = Words (*)(const Request&);

const std::map<std::string, Completer>& completers() {
  static const std::map<std::string, Completer> table = {
      {"mplsvpn show vrf", words_of_show_vrf},
      {"mplsvpn show routes", vrf_and_prefix},
      {"mplsvpn show interfaces", first_word_vrf},
      {"mplsvpn show route-targets", first_word_vrf},
      {"mplsvpn show thresholds", first_word_vrf},
      {"mplsvpn config show", words_of_items},
      {"mplsvpn config set", words_of_items},
      {"mplsvpn config delete", words_of_items},
      {"mplsvpn config suppress", words_of_items},
      {"mplsvpn config unsuppress", words_of_items},
      {"mplsvpn config words", words_of_items},
      {"mplsvpn config load", files},
      {"mplsvpn config confirm", waiting_commit},
      {"mplsvpn config history", commit_ids},
      {"mplsvpn config rollback", commit_ids},
      {"mplsvpn debug", debug_words},
      {"mplsvpn trace", trace_words},
      {"mplsvpn watch", watch_words},
      {"mplsvpn router", router_words},
      {"mplsvpn explain", vrf_and_prefix},
  };
  return table;
}

bool takes_file(const CLI::App& command, const std::string& name) {
  const CLI::Option* option = find_option(command, name);
  const std::string kind = option == nullptr ? "" : option->get_type_name();
  return kind == "FILE" || kind == "DIR" || kind == "PATH";
}

Words values_of(const std::string& option, const std::string& command, const Request& request) {
  if (option == "--name" || option == "--vrf") return vrf_names(request);
  if (option == "--state") return vrf_states();
  if (option == "--protocol") return vrf_protocols();
  if (option == "--sort") return vrf_orders();
  if (option == "--format") return command == "mplsvpn graph" ? graph_formats() : export_formats();
  if (option == "--only" || option == "--skip") return doctor_checks();
  if (option == "--owner") return {kConfigOwners.begin(), kConfigOwners.end()};
  return {};
}

// The words before the one that is completed.
class Line {
 public:
  Line(const CLI::App& app, const Words& words) : command_(&app) {
    for (std::size_t at = 0; at + 1 < words.size(); ++at) take(words[at]);
    if (words.empty()) return;
    begun_ = words.back();
    const std::size_t length = begun_.find('=');
    if (option_.empty() && has_options() && begun_.starts_with("--") && length != std::string::npos)
      begin_value(length);
  }

  const CLI::App& command() const { return *command_; }
  const Words& words() const { return words_; }
  const std::string& option() const { return option_; }  // whose value follows; empty: none
  // What the user has typed of the completed word, and what precedes that in the same word: "--state=".
  const std::string& begun() const { return begun_; }
  const std::string& before() const { return before_; }
  bool is_wrong() const { return is_wrong_; }
  bool has_options() const { return !is_plain_ && !command_->get_prefix_command(); }
  std::string value(const std::string& option) const {
    const auto found = values_.find(option);
    return found == values_.end() ? std::string() : found->second;
  }

 private:
  void begin_value(std::size_t length) {
    const std::string name = whole_option(begun_.substr(0, length));
    is_wrong_ = is_wrong_ || !has_value(name);
    option_ = name;
    before_ = begun_.substr(0, length + 1);
    begun_.erase(0, length + 1);
  }

  void take(const std::string& word) {
    if (!option_.empty()) {
      values_[option_] = word;
      option_.clear();
    } else if (has_options() && word == "--") {
      is_plain_ = true;
    } else if (has_options() && word.starts_with("--")) {
      take_option(word);
    } else if (!command_->get_subcommands([](const CLI::App*) { return true; }).empty()) {
      take_command(word);
    } else {
      words_.push_back(word);
    }
  }

  void take_option(const std::string& word) {
    const std::size_t length = word.find('=');
    const std::string name = whole_option(word.substr(0, length));
    if (!has_value(name)) return;
    if (length == std::string::npos) {
      option_ = name;
    } else {
      values_[name] = word.substr(length + 1);
    }
  }

  bool has_value(const std::string& name) const {
    const CLI::Option* option = find_option(*command_, name);
    return option != nullptr && option->get_items_expected_max() > 0;
  }

  std::string whole_option(const std::string& name) const {
    const Words meant = text::candidates(name, option_names(*command_));
    return meant.size() == 1 ? meant[0] : name;
  }

  void take_command(const std::string& word) {
    if (command_->get_parent() == nullptr && word == "help") return;
    const CLI::App* command = find_command(*command_, word);
    if (command == nullptr) command = abbreviated(word);
    is_wrong_ = is_wrong_ || command == nullptr;
    if (command != nullptr) command_ = command;
  }

  const CLI::App* abbreviated(const std::string& word) const {
    std::vector<const CLI::App*> longer = subcommands_of(*command_);
    std::erase_if(longer, [&](const CLI::App* command) { return !command->get_name().starts_with(word); });
    return longer.size() == 1 ? longer[0] : nullptr;
  }

  const CLI::App* command_;
  Words words_;
  std::string option_;
  std::string begun_;
  std::string before_;
  std::map<std::string, std::string> values_;
  bool is_plain_ = false;
  bool is_wrong_ = false;
};

Words candidates(const Line& line, const Request& request) {
  if (line.is_wrong()) return {};
  if (!line.option().empty() && takes_file(line.command(), line.option())) return {kFiles};
  if (!line.option().empty()) return values_of(line.option(), full_name(line.command()), request);
  if (line.has_options() && request.begun.starts_with('-')) return option_names(line.command());
  Words names;
  for (const CLI::App* command : subcommands_of(line.command())) names.push_back(command->get_name());
  if (!names.empty()) return names;
  const auto completer = completers().find(full_name(line.command()));
  return completer == completers().end() ? Words() : completer->second(request);
}

}  // namespace

void complete(const CLI::App& app, const Words& words, std::ostream& out, const MakeSession& make_session) {
  const Line line(app, words);
  const Session session = make_session(line.value("--run-dir"), line.value("--socket"));
  const Request request{session, line.words(), line.begun()};
  std::set<std::string> sorted;
  for (const std::string& word : candidates(line, request)) {
    if (word == kFiles) {
      sorted.insert(word);
    } else if (word.starts_with(request.begun) && is_plain(word)) {
      sorted.insert(line.before() + word);
    }
  }
  for (const std::string& word : sorted) out << word << '\n';
}

}  // namespace cli
