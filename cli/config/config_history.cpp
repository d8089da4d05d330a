// "config history" and "config rollback".
//
// A rollback reads the changes of all later commits; the oldest of these has the value to restore. It
// restores only what the command line had set. The rest belongs to a router file or a routing suite, which
// would set it again.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <charconv>
#include <map>
#include <set>

#include "cli/commands.h"
#include "cli/config/config_edits.h"
#include "cli/config/config_history.h"
#include "cli/config/config_tree.h"
#include "cli/output/notices.h"
#include "cli/output/row_writer.h"
#include "cli/output/times.h"
#include "platform/config/owners.h"
#include "platform/core/base/clock.h"

namespace cli {

namespace {

constexpr std::uint32_t kCommitsPage = 64;
constexpr std::uint32_t kChangesPage = kKvMaxListItems;

Failure no_commit(const std::string& id) {
  return {kExitFailed,
          fmt::format("commit \"{}\" is not in the history; \"mplsvpn config history\" lists the commits",
                      printable(id))};
}

// For other systems it is the configuration before the candidate's edits.
Failure no_commit_zero() {
  return {kExitUsage,
          "there is no commit 0: \"config rollback N\" returns to what commit N left (\"mplsvpn config "
          "history\"), and \"config discard\" drops the candidate"};
}

// Visits the commits, newest first, until the visitor answers false.
template <typename Visit>
void visit_commits(const Session& session, kvtree::Client& client, Visit visit) {
  std::string before;
  while (true) {
    const kvtree::HistoryResult page = client.history(kCommitsPage, before);
    if (page.status) throw request_failure(session, "config history", page.status);
    if (page.commits.empty()) return;
    for (const KvConfigCommit& commit : page.commits) {
      if (!visit(commit)) return;
    }
    before = page.commits.back().id;
  }
}

std::vector<KvConfigCommitChange> read_changes(const Session& session, kvtree::Client& client,
                                               const std::string& id) {
  std::vector<KvConfigCommitChange> changes;
  while (true) {
    const auto first = static_cast<std::uint32_t>(changes.size());
    kvtree::CommitChangesResult page = client.commit_changes(id, kChangesPage, first);
    if (page.status == kStatusNoSuchRow) throw no_commit(id);
    if (page.status) throw request_failure(session, "config history " + id, page.status);
    if (page.changes.empty()) return changes;
    for (KvConfigCommitChange& change : page.changes) changes.push_back(std::move(change));
  }
}

std::string time_of(const KvConfigCommit& commit) {
  return local_time_text(static_cast<std::uint32_t>(commit.time / kNanosecondsPerSecond));
}
Json seconds_of(const KvConfigCommit& commit) {
  return commit.time / kNanosecondsPerSecond;
}
Json time_json(const KvConfigCommit& commit) {
  return local_time_json(commit.time / kNanosecondsPerSecond);
}

std::string user_text(const KvConfigCommit& commit) {
  return commit.user.empty() ? "-" : commit.user;
}

constexpr Column<KvConfigCommit> kCommitColumns[] = {
    {"id", [](const KvConfigCommit& commit) { return commit_json(commit.id); }, number("COMMIT")},
    {"time", seconds_of, {"TIME"}, time_of},
    {"timeText", time_json},
    {"owner", member_json<&KvConfigCommit::owner>, {"OWNER"}},
    {"user", [](const KvConfigCommit& commit) { return user_json(commit.user); }, escaped("USER"), user_text},
    {"changes", member_json<&KvConfigCommit::changes>, number("CHANGES")},
    {"comment", member_json<&KvConfigCommit::comment>, escaped("COMMENT")},
};

void show_commits(const Session& session, kvtree::Client& client, std::uint32_t most) {
  RowWriter<KvConfigCommit> writer(session, kCommitColumns);
  std::uint64_t count = 0;
  visit_commits(session, client, [&](const KvConfigCommit& commit) {
    if (count++ < most) writer.add(commit);
    return true;
  });
  writer.end();
  if (count > most) note(session, fmt::format("{} older: --last all", count - most));
}

// Ids are numbers without leading zeros.
bool is_later(const std::string& id, const std::string& than) {
  return id.size() != than.size() ? id.size() > than.size() : id > than;
}

Failure changed_meanwhile(const KvConfigCommit& commit, const KvConfigCommitChange& change) {
  const bool is_set = change.after.has_value();
  return {kExitFailed,
          fmt::format("{} was {} by commit {} after the candidate was begun: see \"config diff\", then "
                      "\"config commit --force\" or \"config discard\"",
                      node_text(change.path, is_set ? *change.after : *change.before),
                      is_set ? "set" : "deleted", commit.id)};
}

// The commits after this one, newest first.
std::vector<std::string> later_commits(const Session& session, kvtree::Client& client,
                                       const std::string& id) {
  std::vector<std::string> later;
  bool is_found = false;
  visit_commits(session, client, [&](const KvConfigCommit& commit) {
    is_found = commit.id == id;
    if (!is_found) later.push_back(commit.id);
    return !is_found;
  });
  if (!is_found) throw no_commit(id);
  return later;
}

// The effective values, by path, before the commits that changed them.
struct Past {
  std::optional<KvValue> value;
  std::string owner;
};
std::map<std::string, Past> read_past(const Session& session, kvtree::Client& client,
                                      const std::vector<std::string>& later) {
  std::map<std::string, Past> past;
  for (const std::string& id : later) {
    std::set<std::string> seen;  // the first change of a path has the value before the commit
    for (KvConfigCommitChange& change : read_changes(session, client, id)) {
      if (!seen.insert(change.path).second) continue;
      past[change.path] = {std::move(change.before), std::move(change.owner_before)};
    }
  }
  return past;
}

// The command line overrides every owner: it set a node if and only if its value was the effective one.
std::vector<KvConfigChange> undoing_changes(const std::map<std::string, Past>& past,
                                            const ConfigNodes& held) {
  std::vector<KvConfigChange> changes;
  for (const auto& [path, before] : past) {
    const auto now = held.find(path);
    const bool was_held = before.value && before.owner == kConfigOwnerCli;
    if (was_held && (now == held.end() || now->second.value != *before.value)) {
      changes.push_back({path, before.value});
    } else if (!was_held && now != held.end()) {
      changes.push_back({path, std::nullopt});
    }
  }
  return changes;
}

bool is_as_before(const Past& before, const ConfigNodes& nodes, const std::string& path) {
  const auto now = nodes.find(path);
  if (before.value && before.value->is_suppressed) return now == nodes.end();
  if (now == nodes.end() || !before.value) return now == nodes.end() && !before.value;
  return now->second.value == *before.value;
}

// Reports each node that differs from its former value and that the changes do not restore, with its owner.
void report_unchanged(const Session& session, const std::map<std::string, Past>& past, ConfigNodes nodes,
                      const std::vector<KvConfigCommitChange>& changes) {
  for (const KvConfigCommitChange& change : changes) {
    nodes.erase(change.path);
    if (change.after && !change.after->is_suppressed)
      nodes[change.path] = {*change.after, change.owner_after};
  }
  for (const auto& [path, before] : past) {
    if (is_as_before(before, nodes, path)) continue;
    const auto now = nodes.find(path);
    const bool is_there = now != nodes.end();
    note(session, fmt::format("unchanged, as owner \"{}\" {}: {}",
                              printable(is_there ? now->second.owner : before.owner),
                              is_there ? "sets it" : "deleted it",
                              node_text(path, is_there ? now->second.value : *before.value)));
  }
}

}  // namespace

std::string newest_commit(const Session& session, kvtree::Client& client) {
  std::string newest = "0";
  visit_commits(session, client, [&newest](const KvConfigCommit& commit) {
    newest = commit.id;
    return false;
  });
  return newest;
}

// Of the commits that changed a node, the newest counts.
void check_unchanged_since(const Session& session, kvtree::Client& client, const std::string& id,
                           const std::vector<KvConfigChange>& changes) {
  if (id.empty()) return;
  std::map<std::string, std::optional<KvValue>> wanted;
  for (const KvConfigChange& change : changes) wanted[change.path] = change.value;
  visit_commits(session, client, [&](const KvConfigCommit& commit) {
    if (!is_later(commit.id, id)) return false;
    if (commit.owner != kConfigOwnerCli) return true;
    for (const KvConfigCommitChange& change : read_changes(session, client, commit.id)) {
      const auto node = wanted.find(change.path);
      if (node == wanted.end()) continue;
      if (node->second != change.after) throw changed_meanwhile(commit, change);
      wanted.erase(node);
    }
    return true;
  });
}

void config_history(const Session& session, const std::string& id, std::uint32_t most) {
  const auto client = connect_to_daemon(session);
  if (id.empty()) return show_commits(session, *client, most);
  print_changes(session, read_changes(session, *client, id));
}

void config_rollback(const Session& session, const std::string& id, const ConfigEditRequest& request) {
  if (id == "0") throw no_commit_zero();
  const auto client = connect_to_daemon(session);
  const auto past = read_past(session, *client, later_commits(session, *client, id));
  const auto changes = undoing_changes(past, read_config(session, *client, kConfigOwnerCli));
  const auto foreseen = foresee_changes(session, *client, changes);
  report_unchanged(session, past, read_config(session, *client), foreseen);
  if (request.dry_run) return print_changes(session, foreseen);
  make_commit(session, *client, {"rollback " + id, request.comment, std::chrono::seconds(request.confirmed)},
              changes);
}

}  // namespace cli
