// No state: every call reads the data store's history again.
#include "platform/store/cfgmgr/cfgmgr.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
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

std::string encoded_path(std::string_view item, std::string_view below) {
  std::string path = "/cfg";
  for (std::size_t start = 0; start <= item.size();) {
    const std::size_t end = std::min(item.find('/', start), item.size());
    path.append("/").append(kvtree_encode_text(item.substr(start, end - start)));
    start = end + 1;
  }
  if (!below.empty()) path.append("/").append(below);
  return path;
}

bool is_at_or_below(std::string_view path, std::string_view item) {
  return path.starts_with(item) && (path.size() == item.size() || path[item.size()] == '/');
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
                                  std::uint32_t kind, std::uint32_t /*room*/) {
  if (const Status status = fault_check("cfgmgr_target_load_changes")) return status;
  if (target == nullptr || first_commit == nullptr || last_commit == nullptr || kind != kCommitted)
    return kStatusInvalid;
  if (std::string_view(first_commit) != last_commit) return kStatusInvalid;
  std::vector<KvConfigCommitChange> changes;
  if (const Status status = kvtree_config_changes(first_commit, &changes)) return status;
  std::ranges::move(changes, std::back_inserter(target->loaded.changes));
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

Status kvtree_event_find(const KvChangeSet* changes, const char* item, const char* below,
                         std::uint32_t* found, KvValue* value, std::uint32_t max_text, std::uint32_t flags) {
  if (const Status status = fault_check("kvtree_event_find")) return status;
  if (changes == nullptr || item == nullptr || below == nullptr || found == nullptr || value == nullptr)
    return kStatusInvalid;
  if (flags != 0) return kStatusInvalid;
  const std::string path = encoded_path(item, below);
  const auto change =
      std::find_if(changes->changes.begin(), changes->changes.end(),
                   [&](const KvConfigCommitChange& each) { return is_at_or_below(each.path, path); });
  *found = change == changes->changes.end() ? 0 : 1;
  *value = {};
  if (*found == 0) return kStatusOk;
  if (change->after) *value = *change->after;
  if (value->text.size() > max_text) value->text.resize(max_text);
  return kStatusOk;
}
