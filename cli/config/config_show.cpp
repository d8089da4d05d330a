// "config show": the configuration as lines that "config load" reads back, or as a table with the owners. An
// item that words cannot say is a comment among the lines.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <string_view>
#include <tuple>

#include "cli/commands.h"
#include "cli/config/config_tree.h"
#include "cli/output/table.h"

namespace cli {

namespace {

using vrf_config::Words;

struct Shown {
  std::string path;
  std::string vrf;  // empty of what belongs to none
  ConfigNode node;
  std::optional<Words> words;
};

// What is shown first: of the VRFs in the order of their names, of each the VRF itself before its protocols.
bool goes_before(const Shown& left, const Shown& right) {
  const auto place = [](const Shown& shown) {
    return std::tuple(shown.vrf.empty(), std::string_view(shown.vrf),
                      !shown.path.starts_with(vrf_config::kVrfScope));
  };
  return place(left) < place(right);
}

std::vector<Shown> shown_nodes(ConfigNodes nodes, const Words& beginning) {
  std::vector<Shown> all;
  for (auto& [path, node] : nodes) {
    std::optional<Words> words = vrf_config::word_list_of({path, node.value});
    if (!beginning.empty() && !(words && begins_with(*words, beginning))) continue;
    all.push_back({path, vrf_config::vrf_of(path).value_or(""), std::move(node), std::move(words)});
  }
  std::stable_sort(all.begin(), all.end(), goes_before);
  return all;
}

Json shown_json(const Shown& shown) {
  return {{"words", shown.words ? Json(vrf_config::join_words(*shown.words)) : Json()},
          {"owner", shown.node.owner},
          {"path", shown.path},
          {"value", value_json(shown.node.value)}};
}

void print_json(const Session& session, const std::vector<Shown>& all) {
  JsonList list(session.out);
  for (const Shown& shown : all) list.add(shown_json(shown));
  list.end();
}

void print_owners(const Session& session, const std::vector<Shown>& all) {
  Table table(session.out, {{"OWNER"}, {"CONFIGURATION", false, Backslashes::kKept}});
  for (const Shown& shown : all) table.add({shown.node.owner, node_text(shown.path, shown.node.value)});
  table.flush();
}

void print_lines(const Session& session, const std::vector<Shown>& all) {
  for (const Shown& shown : all) {
    fmt::print(session.out, "{} {}\n", shown.words ? "set" : "#", node_text(shown.path, shown.node.value));
  }
}

bool asks_for_traps(const ConfigShowRequest& request) {
  return !request.words.empty() && request.words.front() == "traps" && !request.owners &&
         request.owner.empty();
}

void show_traps(const Session& session, const std::vector<Shown>& all) {
  JsonList list(session.out);
  Table table(session.out, {{"ITEM"}, {"VALUE"}});
  for (const Shown& shown : all) {
    const std::string item = shown.path.substr(vrf_config::kTrapScope.size());
    if (session.json) {
      list.add({{"item", item}, {"value", value_json(shown.node.value)}});
    } else {
      table.add({item, value_text(shown.node.value)});
    }
  }
  session.json ? list.end() : table.flush();
}

}  // namespace

void config_words(const Session& session, const std::vector<std::string>& words) {
  check_beginning(words);
  const std::vector<std::string> following = vrf_config::words_after(words);
  if (session.json) {
    session.out << json_line(following) << '\n';
  } else {
    for (const std::string& word : following) fmt::print(session.out, "{}\n", word);
  }
}

void config_show(const Session& session, const ConfigShowRequest& request) {
  check_beginning(request.words);
  const auto client = connect_to_daemon(session);
  const std::vector<Shown> all = shown_nodes(read_config(session, *client, request.owner), request.words);
  if (asks_for_traps(request)) return show_traps(session, all);
  if (session.json) return print_json(session, all);
  request.owners ? print_owners(session, all) : print_lines(session, all);
}

}  // namespace cli
