// "config set", "delete", "load", "commit", "discard" and "diff". All edits are checked first, then made as
// one commit.
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>
#include <system_error>

#include "cli/commands.h"
#include "cli/config/config_candidate.h"
#include "cli/config/config_edits.h"
#include "cli/config/config_history.h"
#include "cli/output/table.h"

namespace cli {

namespace {

constexpr char kStandardInput[] = "-";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";  // which some editors write

enum class Answer { kNothing, kCommit };  // printed after a commit

std::string read_file(const std::string& name) {
  const auto failure = [&name] {
    return Failure(kExitFailed, name + ": " + std::generic_category().message(errno));
  };
  const char* path = name == kStandardInput ? "/dev/stdin" : name.c_str();
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

void collect(const Session& session, const std::vector<ConfigEdit>& edits) {
  Candidate candidate(session);
  const auto client = connect_to_daemon(session);
  const std::string newest = newest_commit(session, *client);
  WorkingCopy copy(session, *client);
  copy.apply(candidate.edits());
  copy.apply(edits);
  candidate.append(edits, newest);
}

// The commit's id; empty when there is nothing to change.
std::string commit(const Session& session, kvtree::Client& client, const std::vector<KvConfigChange>& changes,
                   const std::string& comment, const std::string& what) {
  if (changes.empty()) return {};
  return make_commit(session, client, what, changes, comment.empty() ? what : comment);
}

void make(const Session& session, const std::vector<ConfigEdit>& edits, const ConfigEditRequest& request,
          const std::string& what, Answer answer) {
  if (request.candidate) return collect(session, edits);
  const auto client = connect_to_daemon(session);
  WorkingCopy copy(session, *client);
  copy.apply(edits);
  const std::vector<KvConfigChange> changes = copy.changes();
  if (request.dry_run) return print_changes(session, foresee_changes(session, *client, changes));
  const std::string id = commit(session, *client, changes, request.comment, what);
  if (answer == Answer::kCommit) print_commit(session, id);
}

Failure no_candidate() {
  return {kExitFailed, "no edits are collected; begin a candidate with set, delete or load --candidate"};
}

}  // namespace

void config_set(const Session& session, const ConfigEditRequest& request) {
  const auto parsed = vrf_config::parse_words(request.words);
  if (const auto* error = std::get_if<vrf_config::WordError>(&parsed)) {
    throw Failure(kExitUsage, printable(error->text));
  }
  const ConfigEdit edit{true, request.words, ""};
  make(session, {edit}, request, edit_line(edit), Answer::kNothing);
}

void config_delete(const Session& session, const ConfigEditRequest& request) {
  check_deletion(request.words);
  const ConfigEdit edit{false, request.words, ""};
  make(session, {edit}, request, edit_line(edit), Answer::kNothing);
}

void config_load(const Session& session, const std::string& file, const ConfigEditRequest& request) {
  make(session, parse_edits(read_file(file), file), request, "load " + file, Answer::kCommit);
}

void config_commit(const Session& session, const ConfigEditRequest& request) {
  Candidate candidate(session);
  if (candidate.edits().empty()) throw no_candidate();
  const auto client = connect_to_daemon(session);
  WorkingCopy copy(session, *client);
  copy.apply(candidate.edits());
  const std::vector<KvConfigChange> changes = copy.changes();
  if (!request.force) check_unchanged_since(session, *client, candidate.begun_after(), changes);
  print_commit(session, commit(session, *client, changes, request.comment, "commit"));
  candidate.clear();
}

void config_discard(const Session& session) {
  Candidate candidate(session);
  if (candidate.edits().empty()) throw no_candidate();
  candidate.clear();
}

void config_diff(const Session& session) {
  const Candidate candidate(session);
  ConfigEditRequest request;
  request.dry_run = true;
  make(session, candidate.edits(), request, "diff", Answer::kNothing);
}

}  // namespace cli
