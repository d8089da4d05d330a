#include "cli/config/config_tree.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "cli/output/table.h"
#include "platform/config/owners.h"
#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

using vrf_config::Words;

constexpr char kConfigPath[] = "/cfg/";

kvtree::NodesResult read_page(const Session& session, kvtree::Client& client, std::string_view path,
                              std::uint32_t most, std::string_view after, std::string_view owner) {
  kvtree::NodesResult page = client.nodes(path, most, after, owner);
  if (page.status == kStatusInvalid && !owner.empty()) {
    throw Failure(kExitUsage, fmt::format("unknown owner \"{}\"; expected {}", printable(owner),
                                          text::alternatives({kConfigOwners.begin(), kConfigOwners.end()})));
  }
  if (page.status) throw request_failure(session, "config", page.status);
  return page;
}

std::string owner_mark(const std::string& owner) {
  return owner.empty() || owner == kConfigOwnerCli ? "" : " (" + printable(owner) + ")";
}

bool is_same(const KvConfigCommitChange& change) {
  return change.before && change.before == change.after;
}

void print_change(const Session& session, const KvConfigCommitChange& change) {
  if (is_same(change)) {
    fmt::print(session.out, "= {} ({}, then {})\n", node_text(change.path, *change.after),
               printable(change.owner_before), printable(change.owner_after));
    return;
  }
  if (change.before) {
    fmt::print(session.out, "- {}{}\n", node_text(change.path, *change.before),
               owner_mark(change.owner_before));
  }
  if (change.after) {
    fmt::print(session.out, "+ {}{}\n", node_text(change.path, *change.after),
               owner_mark(change.owner_after));
  }
}

Json owner_json(const std::string& owner) {
  return owner.empty() ? Json() : Json(owner);
}

Json words_json(const std::string& path, const std::optional<KvValue>& value) {
  if (!value) return nullptr;
  const std::optional<std::string> words = vrf_config::words_of({path, *value});
  return words ? Json(*words) : Json();
}

Json change_json(const KvConfigCommitChange& change) {
  return {{"path", change.path},
          {"wordsBefore", words_json(change.path, change.before)},
          {"wordsAfter", words_json(change.path, change.after)},
          {"before", value_json(change.before)},
          {"after", value_json(change.after)},
          {"ownerBefore", owner_json(change.owner_before)},
          {"ownerAfter", owner_json(change.owner_after)}};
}

}  // namespace

ConfigNodes read_config(const Session& session, kvtree::Client& client, std::string_view owner) {
  ConfigNodes nodes;
  std::string after;
  while (true) {
    kvtree::NodesResult page = read_page(session, client, kConfigPath, kKvMaxListItems, after, owner);
    if (page.nodes.empty()) return nodes;
    after = page.nodes.back().path;
    for (kvtree::Node& node : page.nodes) {
      nodes[node.path] = {std::move(node.value), std::move(node.owner)};
    }
  }
}

std::string value_text(const KvValue& value) {
  if (value.type == KvValueType::kText) return value.text;
  if (value.type == KvValueType::kNumber) return std::to_string(value.number);
  if (value.type == KvValueType::kTuple) return fmt::format("({})", fmt::join(value.tuple, ", "));
  return "";
}

Json value_json(const std::optional<KvValue>& value) {
  if (!value) return nullptr;
  if (value->type == KvValueType::kText) return value->text;
  if (value->type == KvValueType::kNumber) return value->number;
  if (value->type == KvValueType::kTuple) return value->tuple;
  return true;
}

std::string node_text(const std::string& path, const KvValue& value) {
  if (const std::optional<std::string> words = vrf_config::words_of({path, value})) return *words;
  return printable(path) + " = " + printable(value_text(value));
}

bool begins_with(const Words& words, const Words& beginning) {
  return words.size() >= beginning.size() && std::equal(beginning.begin(), beginning.end(), words.begin());
}

void check_beginning(const Words& words) {
  const auto parsed = vrf_config::parse_words(words);
  const auto* error = std::get_if<vrf_config::WordError>(&parsed);
  if (error != nullptr && !error->is_incomplete) throw Failure(kExitUsage, printable(error->text));
}

void print_changes(const Session& session, const std::vector<KvConfigCommitChange>& changes) {
  if (!session.json) {
    for (const KvConfigCommitChange& change : changes) print_change(session, change);
    return;
  }
  JsonList list(session.out);
  for (const KvConfigCommitChange& change : changes) list.add(change_json(change));
  list.end();
}

// The daemon is busy with earlier commits for seconds at most.
constexpr int kBusyAttempts = 100;
constexpr std::chrono::milliseconds kBusyPause{100};

std::string make_commit(const Session& session, kvtree::Client& client, const std::string& what,
                        const std::vector<KvConfigChange>& changes, const std::string& comment) {
  kvtree::CommitResult result = client.commit(changes, comment);
  for (int attempt = 0; attempt < kBusyAttempts && result.status == EBUSY; ++attempt) {
    std::this_thread::sleep_for(kBusyPause);
    result = client.commit(changes, comment);
  }
  if (result.status == kStatusAccess) throw no_right("change the configuration");
  if (result.status) {
    const std::string command = "config " + printable(what);
    const std::string reason = result.error.empty() ? "" : command + ": " + printable(result.error);
    throw request_failure(session, command, result.status, reason);
  }
  return std::move(result.id);
}

Json commit_json(const std::string& id) {
  const std::optional<std::uint64_t> number = text::parse_number<std::uint64_t>(id);
  return number ? Json(*number) : Json();
}

void print_commit(const Session& session, const std::string& id) {
  if (session.json) {
    session.out << json_line({{"commit", commit_json(id)}}) << '\n';
  } else if (id.empty()) {
    session.out << "no effective item changed\n";
  } else {
    fmt::print(session.out, "commit {}\n", id);
  }
}

}  // namespace cli
