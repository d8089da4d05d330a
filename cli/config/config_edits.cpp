// A deletion deletes the items that its words configure, if one of them is set. Otherwise the words are the
// beginning of what is deleted: "delete vrf red" is everything that the command line sets for the VRF.
#include "cli/config/config_edits.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <span>

#include "cli/output/table.h"
#include "cli/vrf/vrf_origins.h"
#include "platform/config/owners.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

using vrf_config::WordError;
using vrf_config::Words;

// By EditVerb.
constexpr std::array<std::string_view, 4> kVerbs = {"set", "delete", "suppress", "unsuppress"};
constexpr std::size_t kLeastToDelete = 2;  // "vrf red", "traps all"
static_assert(kConfigOwners.front() == kConfigOwnerCli);
constexpr auto kLowerOwners = std::span(kConfigOwners).subspan<1>();

std::string shown(const Words& words) {
  return vrf_config::join_words(words);
}

Failure line_failure(const std::string& place, const std::string& reason) {
  return {kExitFailed, fmt::format("{}: {}", place, reason)};
}

std::optional<ConfigEdit> parse_edit(std::string_view line, const std::string& place) {
  auto split = vrf_config::split_words(line);
  if (const auto* error = std::get_if<WordError>(&split)) throw line_failure(place, error->text);
  Words& words = std::get<Words>(split);
  if (words.empty()) return std::nullopt;
  const std::string verb = words.front();
  const auto* const found = std::ranges::find(kVerbs, verb);
  if (found == kVerbs.end()) {
    const std::vector<std::string> verbs = {kVerbs.begin(), kVerbs.end()};
    throw line_failure(place, fmt::format("unknown word \"{}\"; {}", printable(verb),
                                          text::hint(verb, verbs, "expected " + text::alternatives(verbs))));
  }
  words.erase(words.begin());
  return ConfigEdit{static_cast<EditVerb>(found - kVerbs.begin()), std::move(words), place};
}

std::optional<KvConfigCommitChange> foresee_set(const KvConfigChange& change, const ConfigNodes& effective) {
  KvConfigCommitChange foreseen;
  foreseen.path = change.path;
  foreseen.after = change.value;
  foreseen.owner_after = kConfigOwnerCli;
  const auto found = effective.find(change.path);
  if (found == effective.end()) return foreseen;
  foreseen.before = found->second.value;
  foreseen.owner_before = found->second.owner;
  const bool is_same = foreseen.owner_before == kConfigOwnerCli && *foreseen.before == *foreseen.after;
  return is_same ? std::nullopt : std::optional(foreseen);
}

// The value that the deletion makes effective.
void uncover(const ConfigNodes& others, KvConfigCommitChange* deletion) {
  const auto next = others.find(deletion->path);
  if (next == others.end()) return;
  deletion->after = next->second.value;
  deletion->owner_after = next->second.owner;
}

}  // namespace

void check_deletion(const Words& words) {
  check_beginning(words);
  if (words.size() >= kLeastToDelete) return;
  const auto parsed = vrf_config::parse_words(words);
  throw Failure(kExitUsage, printable(std::get<WordError>(parsed).text));
}

std::string edit_line(const ConfigEdit& edit) {
  return fmt::format("{} {}", kVerbs.at(static_cast<std::size_t>(edit.verb)), shown(edit.words));
}

std::vector<ConfigEdit> parse_edits(std::string_view text, const std::string& name) {
  std::vector<ConfigEdit> edits;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::string_view line = text::take_until(&text, '\n');
    std::optional<ConfigEdit> edit = parse_edit(line, fmt::format("{}:{}", name, number));
    if (edit) edits.push_back(std::move(*edit));
  }
  return edits;
}

void WorkingCopy::apply(const std::vector<ConfigEdit>& edits) {
  for (const ConfigEdit& edit : edits) apply(edit);
}

void WorkingCopy::apply(const ConfigEdit& edit) {
  try {
    constexpr std::array kApply = {&WorkingCopy::set, &WorkingCopy::remove, &WorkingCopy::suppress,
                                   &WorkingCopy::unsuppress};
    (this->*kApply.at(static_cast<std::size_t>(edit.verb)))(edit.words);
  } catch (const Failure& failure) {
    if (edit.place.empty() || failure.exit_status() >= kExitNoDaemon) throw;
    throw line_failure(edit.place, failure.what());
  }
}

void WorkingCopy::set(const Words& words) {
  const auto parsed = vrf_config::parse_words(words);
  if (const auto* error = std::get_if<WordError>(&parsed)) throw Failure(kExitUsage, printable(error->text));
  for (const KvConfigNode& node : std::get<std::vector<KvConfigNode>>(parsed)) {
    items_[node.path] = {node.value, vrf_config::word_list_of(node)};
  }
}

void WorkingCopy::remove(const Words& words) {
  check_deletion(words);
  read_held();
  const auto parsed = vrf_config::parse_words(words);
  const auto* nodes = std::get_if<std::vector<KvConfigNode>>(&parsed);
  if (nodes != nullptr && remove_exactly(words, *nodes)) return;
  if (remove_all_below(words)) return;
  const std::string owner = other_owner(words, nodes);
  if (owner.empty()) throw not_set(words, "");
  throw Failure(
      kExitFailed,
      fmt::format("{} is not set by the command line, but by \"{}\"; \"config suppress\" disables it",
                  shown(words), printable(owner)));
}

Failure WorkingCopy::not_set(const Words& words, const std::string& what) const {
  const std::string outside = text_of_item_outside(session_, client_, words);
  return {kExitFailed, outside.empty() ? fmt::format("{} is not set{}", shown(words), what) : outside};
}

// The other owner of one of the nodes or, when the words are only the beginning of an item, of an item that
// begins with them; empty for none.
std::string WorkingCopy::other_owner(const Words& words, const std::vector<KvConfigNode>* nodes) const {
  for (const auto& [path, node] : read_config(session_, client_)) {
    if (node.owner == kConfigOwnerCli) continue;
    const auto is_meant = [&path = path](const KvConfigNode& each) { return each.path == path; };
    if (nodes != nullptr && std::any_of(nodes->begin(), nodes->end(), is_meant)) return node.owner;
    if (nodes != nullptr) continue;
    const std::optional<Words> item = vrf_config::word_list_of({path, node.value});
    if (item && begins_with(*item, words)) return node.owner;
  }
  return {};
}

// False when none of the nodes is there.
bool WorkingCopy::remove_exactly(const Words& words, const std::vector<KvConfigNode>& nodes) {
  bool is_any = false;
  for (const KvConfigNode& node : nodes) {
    const auto item = items_.find(node.path);
    if (item == items_.end() || item->second.value.is_suppressed) continue;
    if (item->second.value != node.value) {
      throw Failure(kExitFailed, fmt::format("{} is not set, but {}", shown(words),
                                             node_text(item->first, item->second.value)));
    }
    items_.erase(item);
    is_any = true;
  }
  return is_any;
}

bool WorkingCopy::remove_all_below(const Words& words) {
  return std::erase_if(items_, [&](const auto& item) {
           return !item.second.value.is_suppressed && item.second.words &&
                  begins_with(*item.second.words, words);
         }) > 0;
}

// An item that no other owner sets yet can be suppressed, too: a backup is loaded before the router file.
void WorkingCopy::suppress(const Words& words) {
  check_deletion(words);
  read_held();
  if (!others_) others_ = read_others(session_, client_);
  const auto parsed = vrf_config::parse_words(words);
  const auto* nodes = std::get_if<std::vector<KvConfigNode>>(&parsed);
  if (nodes == nullptr) return suppress_below(words);
  const auto is_of_another = [this](const KvConfigNode& node) { return others_->contains(node.path); };
  if (std::ranges::none_of(*nodes, is_of_another)) needless_suppressions_.push_back(shown(words));
  for (const KvConfigNode& node : *nodes) {
    const auto other = others_->find(node.path);
    suppress_node(node.path, other == others_->end() ? node.value : other->second.value,
                  vrf_config::word_list_of(node));
  }
}

// An owner has one value of a node: a suppression would replace the command line's own, and nothing restores
// that.
void WorkingCopy::suppress_node(const std::string& path, KvValue value, std::optional<Words> words) {
  const auto own = items_.find(path);
  if (own != items_.end() && !own->second.value.is_suppressed) {
    throw Failure(kExitFailed, fmt::format("{} is set by the command line: delete it first",
                                           node_text(path, own->second.value)));
  }
  value.is_suppressed = true;
  items_[path] = {std::move(value), std::move(words)};
}

void WorkingCopy::suppress_below(const Words& words) {
  bool is_any = false;
  for (const auto& [path, node] : *others_) {
    std::optional<Words> item = vrf_config::word_list_of({path, node.value});
    if (!item || !begins_with(*item, words)) continue;
    suppress_node(path, node.value, std::move(item));
    is_any = true;
  }
  if (!is_any) throw not_set(words, " by another owner");
}

void WorkingCopy::unsuppress(const Words& words) {
  check_deletion(words);
  read_held();
  const auto parsed = vrf_config::parse_words(words);
  const auto* nodes = std::get_if<std::vector<KvConfigNode>>(&parsed);
  const auto is_meant = [&](const auto& item) {
    if (!item.second.value.is_suppressed) return false;
    if (nodes == nullptr) return item.second.words && begins_with(*item.second.words, words);
    return std::ranges::find(*nodes, item.first, &KvConfigNode::path) != nodes->end();
  };
  if (std::erase_if(items_, is_meant) == 0) throw Failure(kExitFailed, shown(words) + " is not suppressed");
}

void WorkingCopy::clear() {
  read_held();
  items_.clear();
}

void WorkingCopy::read_held() {
  if (is_read_) return;
  held_ = read_config(session_, client_, kConfigOwnerCli);
  is_read_ = true;
  for (const auto& [path, node] : held_) {
    // Earlier edits win.
    items_.try_emplace(path, Item{node.value, vrf_config::word_list_of({path, node.value})});
  }
}

std::vector<KvConfigChange> WorkingCopy::changes() {
  std::vector<KvConfigChange> changes;
  for (const auto& [path, node] : held_) {
    if (items_.find(path) == items_.end()) changes.push_back({path, std::nullopt});
  }
  for (const auto& [path, item] : items_) {
    const auto held = held_.find(path);
    if (held == held_.end() || held->second.value != item.value) changes.push_back({path, item.value});
  }
  return changes;
}

ConfigNodes read_first_values(const Session& session, kvtree::Client& client) {
  ConfigNodes nodes = read_config(session, client);
  for (auto& [path, node] : read_config(session, client, kConfigOwnerCli)) {
    if (node.value.is_suppressed) nodes[path] = std::move(node);
  }
  return nodes;
}

ConfigNodes read_others(const Session& session, kvtree::Client& client) {
  ConfigNodes nodes;
  for (const std::string_view owner : kLowerOwners) nodes.merge(read_config(session, client, owner));
  return nodes;
}

std::vector<KvConfigCommitChange> foresee_changes(const Session& session, kvtree::Client& client,
                                                  const std::vector<KvConfigChange>& changes) {
  std::vector<KvConfigCommitChange> foreseen;
  const ConfigNodes now = read_first_values(session, client);
  std::optional<ConfigNodes> others;  // when there is a deletion
  for (const KvConfigChange& change : changes) {
    if (change.value) {
      if (std::optional<KvConfigCommitChange> one = foresee_set(change, now)) foreseen.push_back(*one);
      continue;
    }
    const auto before = now.find(change.path);
    if (before == now.end()) continue;  // already deleted
    KvConfigCommitChange one{change.path, before->second.value, std::nullopt, before->second.owner, ""};
    if (!others) others = read_others(session, client);
    uncover(*others, &one);
    foreseen.push_back(std::move(one));
  }
  return foreseen;
}

std::string text_of_item_outside(const Session& session, kvtree::Client& client, const Words& words) {
  if (words.size() < 3 || words[0] != "vrf" || words[2] != "rd") return {};
  const std::string owner = owner_of_model_rd(session, client, words[1], words.size() > 3 ? words[3] : "");
  if (owner.empty()) return {};
  return fmt::format(
      "{} is set by \"{}\" with the VRF: change it there, or override it with "
      "\"config set vrf {} rd RD\"",
      shown(words), printable(owner), shown({words[1]}));
}

}  // namespace cli
