// No state: every call reads the data store's history again.
#include "platform/store/cfgmgr/cfgmgr.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/memory.h"

struct CfgmgrTarget {
  KvChangeSet loaded;
};

namespace {

constexpr std::uint32_t kCommitted = 1;  // kind of changes

void write_commit(const KvConfigCommit& from, CfgmgrCommit* to) {
  const auto seconds = static_cast<std::time_t>(from.time / kNanosecondsPerSecond);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::snprintf(to->commit_id, sizeof to->commit_id, "%s", from.id.c_str());
  std::strftime(to->timestamp, sizeof to->timestamp, "%Y-%m-%dT%H:%M:%SZ", &utc);
}

// The ids from the one to the other, oldest first; empty when either is not there or they are reversed.
std::vector<std::string> ids_between(const std::vector<KvConfigCommit>& newest_first, const char* first,
                                     const char* last) {
  const auto is = [](const char* id) { return [id](const KvConfigCommit& each) { return each.id == id; }; };
  const auto newest = std::find_if(newest_first.begin(), newest_first.end(), is(last));
  const auto oldest = std::find_if(newest, newest_first.end(), is(first));
  std::vector<std::string> ids;
  if (oldest == newest_first.end()) return ids;
  for (auto commit = newest; commit != oldest + 1; ++commit) ids.insert(ids.begin(), commit->id);
  return ids;
}

}  // namespace

Status cfgmgr_config_get_history(std::uint32_t* count, CfgmgrCommit** commits, std::uint32_t flags) {
  if (const Status status = fault_check("cfgmgr_config_get_history")) return status;
  if (count == nullptr || commits == nullptr || flags != 0) return kStatusInvalid;
  std::vector<KvConfigCommit> newest_first;
  if (const Status status = kvtree_config_history(*count, {}, &newest_first)) return status;
  *commits = nullptr;
  *count = static_cast<std::uint32_t>(newest_first.size());
  if (newest_first.empty()) return kStatusOk;
  *commits =
      static_cast<CfgmgrCommit*>(calloc_tagged(newest_first.size(), sizeof(CfgmgrCommit), "cfgmgr commits"));
  if (*commits == nullptr) return kStatusNoMemory;
  std::size_t place = newest_first.size();
  for (const KvConfigCommit& commit : newest_first) write_commit(commit, &(*commits)[--place]);
  return kStatusOk;
}

void cfgmgr_commit_list_free(CfgmgrCommit* commits, std::uint32_t /*count*/) {
  std::free(commits);
}

Status cfgmgr_target_create(CfgmgrTarget** target, KvChangeSet** changes, const char* client,
                            const char* label, const char* comment, std::uint32_t first, std::uint32_t second,
                            std::uint32_t third, std::uint32_t fourth) {
  if (const Status status = fault_check("cfgmgr_target_create")) return status;
  if (target == nullptr || changes == nullptr || client == nullptr || label == nullptr || comment == nullptr)
    return kStatusInvalid;
  if ((first | second | third | fourth) != 0) return kStatusInvalid;
  *target = std::make_unique<CfgmgrTarget>().release();
  *changes = &(*target)->loaded;
  return kStatusOk;
}

Status cfgmgr_target_load_changes(CfgmgrTarget* target, const char* first_commit, const char* last_commit,
                                  std::uint32_t kind, std::uint32_t room) {
  if (const Status status = fault_check("cfgmgr_target_load_changes")) return status;
  if (target == nullptr || first_commit == nullptr || last_commit == nullptr || kind != kCommitted)
    return kStatusInvalid;
  std::vector<KvConfigCommit> history;
  if (const Status status = kvtree_config_history(kMaxCommits, {}, &history)) return status;
  const std::vector<std::string> ids = ids_between(history, first_commit, last_commit);
  if (ids.empty()) return kStatusNoSuchRow;
  std::vector<KvConfigCommitChange> all;
  all.reserve(std::min<std::size_t>(room, kMaxConfigChanges));
  for (const std::string& id : ids) {
    std::vector<KvConfigCommitChange> changes;
    if (const Status status = kvtree_config_changes(id, &changes)) return status;
    std::move(changes.begin(), changes.end(), std::back_inserter(all));
  }
  std::move(all.begin(), all.end(), std::back_inserter(target->loaded.changes));
  return kStatusOk;
}

Status cfgmgr_target_clear(CfgmgrTarget* target, std::uint32_t flags) {
  if (const Status status = fault_check("cfgmgr_target_clear")) return status;
  if (target == nullptr || flags != 0) return kStatusInvalid;
  target->loaded.changes.clear();
  return kStatusOk;
}

Status cfgmgr_target_destroy(CfgmgrTarget* target) {
  const std::unique_ptr<CfgmgrTarget> owned(target);
  if (const Status status = fault_check("cfgmgr_target_destroy")) return status;
  return target == nullptr ? kStatusInvalid : kStatusOk;
}
