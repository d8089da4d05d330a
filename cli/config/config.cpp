// "config set", "delete", "load", "commit", "discard" and "diff". All edits are checked first, then made as
// one commit.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

#include "cli/commands.h"
#include "cli/config/config_candidate.h"
#include "cli/config/config_edits.h"
#include "cli/config/config_history.h"
#include "cli/config/config_warnings.h"
#include "cli/output/json_list.h"
#include "cli/output/notices.h"
#include "cli/output/table.h"

namespace cli {

namespace {

constexpr char kStandardInput[] = "-";
constexpr char kStandardInputName[] = "<stdin>";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";  // which some editors write

std::string read_file(const std::string& name) {
  const auto failure = [&name] {
    return Failure(kExitFailed, name + ": " + std::generic_category().message(errno));
  };
  const char* path = name == kStandardInputName ? "/dev/stdin" : name.c_str();
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "re"), &std::fclose);
  if (file == nullptr) throw failure();
  std::string text;
  std::array<char, 4096> octets{};
  while (const std::size_t count = std::fread(octets.data(), 1, octets.size(), file.get())) {
    text.append(octets.data(), count);
  }
  if (std::ferror(file.get()) != 0) throw failure();
  if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
  return text;
}

void warn_of_edits(const Session& session, kvtree::Client& client, const std::vector<ConfigEdit>& edits,
                   const WorkingCopy& copy) {
  warn_of_missing_vrfs(session, client, edits);
  warn_of_missing_interfaces(session, client, edits);
  warn_of_default_vrf(session, edits);
  warn_of_needless_suppression(session, copy);
}

void collect(const Session& session, const std::vector<ConfigEdit>& edits) {
  Candidate candidate(session);
  const auto client = connect_to_daemon(session);
  const std::string newest = newest_commit(session, *client);
  WorkingCopy copy(session, *client);
  copy.apply(candidate.edits());
  copy.apply(edits);
  warn_of_edits(session, *client, edits, copy);
  candidate.append(edits, newest);
  if (session.json)
    session.out << json_line({{"candidateLines", candidate.edits().size() + edits.size()}}) << '\n';
}

CommitOrder order_of(const ConfigEditRequest& request, const std::string& what) {
  return {what, request.comment, std::chrono::seconds(request.confirmed)};
}

void make(const Session& session, const std::vector<ConfigEdit>& edits, const ConfigEditRequest& request,
          const std::string& what) {
  if (request.candidate) return collect(session, edits);
  const auto client = connect_to_daemon(session);
  WorkingCopy copy(session, *client);
  if (request.replace) copy.clear();
  copy.apply(edits);
  const std::vector<KvConfigChange> changes = copy.changes();
  warn_of_edits(session, *client, edits, copy);
  const bool are_of_a_file = !edits.empty() && !edits.front().place.empty();
  CommitChanges foreseen;
  if (request.dry_run || are_of_a_file) foreseen = foresee_changes(session, *client, changes);
  if (are_of_a_file) warn_of_taking_over(session, foreseen);
  if (request.dry_run && foreseen.empty()) note(session, "nothing would change");
  if (request.dry_run) return print_changes(session, foreseen);
  make_commit(session, *client, order_of(request, what), changes);
}

// The words are an item, or the beginning of several.
void make_of_beginning(const Session& session, EditVerb verb, const ConfigEditRequest& request) {
  check_deletion(request.words);
  const ConfigEdit edit{verb, request.words, ""};
  make(session, {edit}, request, edit_line(edit));
}

Failure no_candidate() {
  return {kExitFailed, "no edits are collected; begin a candidate with set, delete or load --candidate"};
}

Failure does_not_wait(const std::string& id, const KvConfigConfirmation& waiting) {
  if (id.empty())
    return {kExitFailed, "no commit waits for its confirmation; \"--confirmed MINUTES\" requires one"};
  const std::string other =
      waiting.id.empty() ? "no commit does" : fmt::format("commit {} by {} does", waiting.id, waiting.user);
  return {kExitFailed,
          fmt::format("commit {} does not wait for its confirmation; {}", printable(id), printable(other))};
}

}  // namespace

void config_set(const Session& session, const ConfigEditRequest& request) {
  const auto parsed = vrf_config::parse_words(request.words);
  if (const auto* error = std::get_if<vrf_config::WordError>(&parsed)) {
    throw Failure(kExitUsage, printable(error->text));
  }
  const ConfigEdit edit{EditVerb::kSet, request.words, ""};
  make(session, {edit}, request, edit_line(edit));
}

void config_delete(const Session& session, const ConfigEditRequest& request) {
  make_of_beginning(session, EditVerb::kDelete, request);
}

void config_suppress(const Session& session, const ConfigEditRequest& request) {
  make_of_beginning(session, EditVerb::kSuppress, request);
}

void config_unsuppress(const Session& session, const ConfigEditRequest& request) {
  make_of_beginning(session, EditVerb::kUnsuppress, request);
}

void config_load(const Session& session, const std::string& file, const ConfigEditRequest& request) {
  const std::string name = file == kStandardInput ? kStandardInputName : file;
  make(session, parse_edits(read_file(name), name), request, "load " + file);
}

void config_commit(const Session& session, const ConfigEditRequest& request) {
  Candidate candidate(session);
  if (candidate.edits().empty()) throw no_candidate();
  const auto client = connect_to_daemon(session);
  WorkingCopy copy(session, *client);
  copy.apply(candidate.edits());
  const std::vector<KvConfigChange> changes = copy.changes();
  if (!request.force) check_unchanged_since(session, *client, candidate.begun_after(), changes);
  warn_of_taking_over(session, foresee_changes(session, *client, changes));
  make_commit(session, *client, order_of(request, "commit"), changes);
  candidate.clear();
}

void config_confirm(const Session& session, const std::string& id) {
  const auto client = connect_to_daemon(session);
  const kvtree::ConfirmationResult confirmed = client->confirm(id);
  if (confirmed.status == kStatusNoSuchRow) throw does_not_wait(id, client->confirmation().confirmation);
  if (confirmed.status == kStatusAccess) throw no_right("change the configuration");
  if (confirmed.status) throw request_failure(session, "config confirm", confirmed.status);
  const KvConfigConfirmation& commit = confirmed.confirmation;
  if (session.json) {
    session.out << json_line({{"commit", commit_json(commit.id)}, {"user", user_json(commit.user)}}) << '\n';
  } else {
    fmt::print(session.out, "commit {} by {} is confirmed\n", commit.id, printable(commit.user));
  }
}

// Whatever the candidate has: it may be what no edit can be read of. A script that wants none may find none.
void config_discard(const Session& session) {
  const std::optional<std::size_t> edits = Candidate::discard(session);
  if (session.json) {
    session.out << json_line({{"discardedLines", edits.value_or(0)}}) << '\n';
  } else if (!edits) {
    session.out << "no edits are collected: nothing is discarded\n";
  } else {
    fmt::print(session.out, "candidate discarded ({} line{})\n", *edits, *edits == 1 ? "" : "s");
  }
}

void config_diff(const Session& session) {
  const Candidate candidate(session);
  ConfigEditRequest request;
  request.dry_run = true;
  make(session, candidate.edits(), request, "diff");
}

}  // namespace cli
