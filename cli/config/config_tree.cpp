#include "cli/config/config_tree.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "cli/output/notices.h"
#include "cli/output/table.h"
#include "cli/output/times.h"
#include "platform/config/owners.h"
#include "platform/core/base/clock.h"
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
  if (page.status) throw request_failure(session, page.status);
  return page;
}

std::string owner_mark(const std::string& owner) {
  return owner.empty() || owner == kConfigOwnerCli ? "" : " (" + printable(owner) + ")";
}

bool is_same(const KvConfigCommitChange& change) {
  return change.before && change.before == change.after;
}

void print_side(const Session& session, char mark, const std::string& path,
                const std::optional<KvValue>& value, const std::string& owner) {
  if (!value) return;
  fmt::print(session.out, "{} {}{}{}\n", mark, value->is_suppressed ? "suppress " : "",
             node_text(path, *value), owner_mark(owner));
}

void print_change(const Session& session, const KvConfigCommitChange& change) {
  if (is_same(change)) {
    fmt::print(session.out, "= {} ({}, then {})\n", node_text(change.path, *change.after),
               printable(change.owner_before), printable(change.owner_after));
    return;
  }
  print_side(session, '-', change.path, change.before, change.owner_before);
  print_side(session, '+', change.path, change.after, change.owner_after);
}

Json owner_json(const std::string& owner) {
  return owner.empty() ? Json() : Json(owner);
}

Json words_json(const std::string& path, const std::optional<KvValue>& value) {
  if (!value) return nullptr;
  const std::optional<std::string> words = vrf_config::words_of({path, *value});
  return words ? Json(*words) : Json();
}

bool is_suppressed(const std::optional<KvValue>& value) {
  return value && value->is_suppressed;
}

Json change_json(const KvConfigCommitChange& change) {
  return {{"path", change.path},
          {"wordsBefore", words_json(change.path, change.before)},
          {"wordsAfter", words_json(change.path, change.after)},
          {"before", value_json(change.path, change.before)},
          {"after", value_json(change.path, change.after)},
          {"ownerBefore", owner_json(change.owner_before)},
          {"ownerAfter", owner_json(change.owner_after)},
          {"suppressedBefore", is_suppressed(change.before)},
          {"suppressedAfter", is_suppressed(change.after)}};
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

std::vector<std::string> read_trap_items(const Session& session, kvtree::Client& client) {
  std::string_view scope = vrf_config::kTrapScope;
  scope.remove_suffix(1);  // the last "/"
  std::vector<std::string> items;
  for (const kvtree::Node& node : read_page(session, client, scope, kKvMaxListItems, "", "").nodes) {
    const std::string item = node.path.substr(vrf_config::kTrapScope.size());
    if (item != vrf_config::kTrapReissueTime) items.push_back(item);
  }
  return items;
}

namespace {

bool is_switch(const std::string& path) {
  return path.starts_with(vrf_config::kTrapScope) && !path.ends_with(vrf_config::kTrapReissueTime);
}

}  // namespace

std::string value_text(const std::string& path, const KvValue& value) {
  if (is_switch(path)) return value.number != 0 ? "true" : "false";
  if (value.type == KvValueType::kText) return value.text;
  if (value.type == KvValueType::kNumber) return std::to_string(value.number);
  if (value.type == KvValueType::kTuple) return fmt::format("({})", fmt::join(value.tuple, ", "));
  return "";
}

Json value_json(const std::string& path, const std::optional<KvValue>& value) {
  if (!value) return nullptr;
  if (is_switch(path)) return value->number != 0;
  if (value->type == KvValueType::kText) return value->text;
  if (value->type == KvValueType::kNumber) return value->number;
  if (value->type == KvValueType::kTuple) return value->tuple;
  return true;
}

std::string node_text(const std::string& path, const KvValue& value) {
  if (const std::optional<std::string> words = vrf_config::words_of({path, value})) return *words;
  return printable(path) + " = " + printable(value_text(path, value));
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

namespace {

// The daemon is busy with earlier commits for seconds at most.
constexpr int kBusyAttempts = 100;
constexpr std::chrono::milliseconds kBusyPause{100};

kvtree::CommitResult ask_for_commit(const Session& session, kvtree::Client& client, const CommitOrder& order,
                                    const std::vector<KvConfigChange>& changes) {
  const std::string& comment = order.comment.empty() ? order.what : order.comment;
  kvtree::CommitResult result = client.commit(changes, comment, order.confirmed);
  for (int attempt = 0; attempt < kBusyAttempts && result.status == EBUSY; ++attempt) {
    std::this_thread::sleep_for(kBusyPause);
    result = client.commit(changes, comment, order.confirmed);
  }
  if (result.status == kStatusAccess) throw no_right("change the configuration");
  if (result.status) {
    const std::string command = "config " + printable(order.what);
    const std::string reason = result.error.empty() ? "" : command + ": " + printable(result.error);
    throw request_failure(session, command, result.status, reason);
  }
  return result;
}

std::string deadline_text(std::uint64_t deadline) {
  return local_time_text(static_cast<std::uint32_t>(deadline / kNanosecondsPerSecond));
}

// Null if it does not wait for a confirmation.
Json commit_result_json(const kvtree::CommitResult& made, const KvConfigConfirmation& waiting) {
  const bool is_waiting = !made.id.empty() && waiting.id == made.id;
  const std::uint64_t deadline = is_waiting ? waiting.deadline / kNanosecondsPerSecond : 0;
  return {{"commit", commit_json(made.id)},
          {"user", user_json(made.user)},
          {"confirmBefore", is_waiting ? Json(deadline) : Json(nullptr)},
          {"confirmBeforeText", local_time_json(deadline)}};
}

void print_commit(const Session& session, const kvtree::CommitResult& made,
                  const KvConfigConfirmation& waiting) {
  if (session.json) {
    session.out << json_line(commit_result_json(made, waiting)) << '\n';
    return;
  }
  if (made.id.empty()) {
    session.out << "nothing changed\n";
    return;
  }
  fmt::print(session.out, "commit {} by {}\n", made.id, printable(made.user));
  if (waiting.id != made.id) return;
  fmt::print(session.out, "it is undone at {} unless \"mplsvpn config confirm {}\" confirms it\n",
             deadline_text(waiting.deadline), waiting.id);
}

// Later commits changed all that it set, this one the last of it.
void note_end_of_waiting(const Session& session, const KvConfigConfirmation& before) {
  note(session, fmt::format("commit {} by {} no longer waits for its confirmation", before.id,
                            printable(before.user)));
}

}  // namespace

void make_commit(const Session& session, kvtree::Client& client, const CommitOrder& order,
                 const std::vector<KvConfigChange>& changes) {
  kvtree::CommitResult made;
  KvConfigConfirmation before;
  if (!changes.empty()) {
    before = client.confirmation().confirmation;
    made = ask_for_commit(session, client, order, changes);
  }
  KvConfigConfirmation waiting;
  const bool may_have_changed = order.confirmed.count() > 0 || !before.id.empty();
  if (may_have_changed && !made.id.empty()) waiting = client.confirmation().confirmation;
  print_commit(session, made, waiting);
  if (!made.id.empty() && !before.id.empty() && waiting.id != before.id) note_end_of_waiting(session, before);
}

Json commit_json(const std::string& id) {
  const std::optional<std::uint64_t> number = text::parse_number<std::uint64_t>(id);
  return number ? Json(*number) : Json();
}

Json user_json(const std::string& user) {
  return user.empty() ? Json() : Json(user);
}

// A user who may not ask for it sees none.
void note_confirmation(const Session& session, kvtree::Client& client) {
  const kvtree::ConfirmationResult asked = client.confirmation();
  if (asked.status || asked.confirmation.id.empty()) return;
  const auto& [id, user, deadline] = asked.confirmation;
  note(session,
       fmt::format("commit {} by {} is undone at {} unless \"mplsvpn config confirm {}\" confirms it", id,
                   printable(user), deadline_text(deadline), id));
}

}  // namespace cli
