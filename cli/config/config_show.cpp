// "config show": the configuration as lines for "config load", or as a table with the owners. An item that
// words cannot express is a comment among the lines.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <string_view>
#include <tuple>

#include "cli/commands.h"
#include "cli/config/config_edits.h"
#include "cli/config/config_tree.h"
#include "cli/output/notices.h"
#include "cli/output/row_writer.h"
#include "cli/show/tables.h"

namespace cli {

namespace {

using vrf_config::Words;

struct Shown {
  std::string path;
  std::string vrf;  // empty for an item of no VRF
  ConfigNode node;
  std::optional<Words> words;
};

// VRFs in the order of their names, each with its own items before its protocols.
bool is_shown_first(const Shown& left, const Shown& right) {
  const auto place = [](const Shown& shown) {
    return std::tuple(shown.vrf.empty(), std::string_view(shown.vrf),
                      !shown.path.starts_with(vrf_config::kVrfScope));
  };
  return place(left) < place(right);
}

std::vector<Shown> shown_nodes(ConfigNodes&& nodes, const Words& beginning) {
  std::vector<Shown> all;
  for (auto& [path, node] : nodes) {
    std::optional<Words> words = vrf_config::word_list_of({path, node.value});
    if (!beginning.empty() && !(words && begins_with(*words, beginning))) continue;
    all.push_back({path, vrf_config::vrf_of(path).value_or(""), std::move(node), std::move(words)});
  }
  std::stable_sort(all.begin(), all.end(), is_shown_first);
  return all;
}

Json shown_words(const Shown& shown) {
  return shown.words ? Json(vrf_config::join_words(*shown.words)) : Json();
}
std::string shown_text(const Shown& shown) {
  return node_text(shown.path, shown.node.value);
}
std::string marked_text(const Shown& shown) {
  return shown_text(shown) + (shown.node.value.is_suppressed ? " (suppressed)" : "");
}
Json shown_value(const Shown& shown) {
  return value_json(shown.path, shown.node.value);
}
std::string shown_value_text(const Shown& shown) {
  return value_text(shown.path, shown.node.value);
}
Json trap_item(const Shown& shown) {
  return shown.path.substr(vrf_config::kTrapScope.size());
}

// The configuration is the first key in JSON and the last column.
constexpr Column<Shown> kShownColumns[] = {
    {"words", shown_words},
    {"owner", [](const Shown& shown) -> Json { return shown.node.owner; }, {"OWNER"}},
    {.cell = escaped("CONFIGURATION"), .text = marked_text},
    {"path", [](const Shown& shown) -> Json { return shown.path; }},
    {"value", shown_value},
    {"suppressed", [](const Shown& shown) -> Json { return shown.node.value.is_suppressed; }},
};
constexpr Column<Shown> kTrapColumns[] = {
    {"item", trap_item, {"ITEM"}},
    {"value", shown_value, {"VALUE"}, shown_value_text},
};

void write_rows(const Session& session, std::span<const Column<Shown>> columns,
                const std::vector<Shown>& all) {
  RowWriter<Shown> writer(session, columns);
  for (const Shown& shown : all) writer.add(shown);
  writer.end();
}

void print_lines(const Session& session, const std::vector<Shown>& all) {
  for (const Shown& shown : all) {
    const char* verb = shown.node.value.is_suppressed ? "suppress" : "set";
    fmt::print(session.out, "{} {}\n", shown.words ? verb : "#", shown_text(shown));
  }
}

bool asks_for_traps(const ConfigShowRequest& request) {
  return !request.words.empty() && request.words.front() == "traps" && !request.owners &&
         request.owner.empty();
}

// With the owners, what the command line suppresses is shown, too.
ConfigNodes read_shown(const Session& session, kvtree::Client& client, const ConfigShowRequest& request) {
  return request.owners && request.owner.empty() ? read_first_values(session, client)
                                                 : read_config(session, client, request.owner);
}

bool is_configured(const Session& session, kvtree::Client& client, const std::string& vrf) {
  return std::ranges::any_of(read_config(session, client),
                             [&](const auto& node) { return vrf_config::vrf_of(node.first) == vrf; });
}

// An empty output is correct for a VRF that exists, or that another owner configures; any other name is an
// error.
void check_vrf(const Session& session, kvtree::Client& client, const ConfigShowRequest& request) {
  if (request.words.size() < 2 || request.words[0] != "vrf") return;
  const std::string& vrf = request.words[1];
  if (client.get(provider_path("vrf", vrf)).status != kStatusNoSuchRow) return;
  if (request.owner.empty() || !is_configured(session, client, vrf)) require_vrf(session, client, vrf);
}

void note_item_outside(const Session& session, kvtree::Client& client, const ConfigShowRequest& request) {
  if (!request.owner.empty()) return;
  const std::string text = text_of_item_outside(session, client, request.words);
  if (!text.empty()) note(session, text);
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
  const std::vector<Shown> all = shown_nodes(read_shown(session, *client, request), request.words);
  if (all.empty()) {
    check_vrf(session, *client, request);
    note_item_outside(session, *client, request);
  }
  note_confirmation(session, *client);
  if (asks_for_traps(request)) return write_rows(session, kTrapColumns, all);
  if (session.json || request.owners) return write_rows(session, kShownColumns, all);
  print_lines(session, all);
}

}  // namespace cli
