// Searches the newest commits, newest first: loads each one and looks for a change of the VRF's item.
//
// The commits and the target are the
// platform's and are released on every return path; the timestamp belongs to the list of commits and is
// returned as a copy. Main thread.
#include "mpls/vpn/mib/src/configuration/change_time.h"

#include <cstdint>
#include <cstdio>

#include "mpls/vpn/mib/src/support/report.h"
#include "platform/core/base/memory.h"
#include "platform/store/cfgmgr/cfgmgr.h"

namespace {

constexpr char kGetTime[] = "mpls_vpn_mib_cgfmgr_get_time";
constexpr char kVrfItem[] = "gl/vmap/vrf/";
constexpr std::size_t kItemSize = 42;
constexpr std::uint32_t kCommits = 15;
constexpr std::uint32_t kCommitted = 1;  // kind of changes to load
constexpr std::uint32_t kChanges = 128;  // expected in a commit
constexpr std::uint32_t kValueOctets = 256;

struct CommitList {
  CommitList() = default;
  ~CommitList() { cfgmgr_commit_list_free(commits, count); }
  CommitList(const CommitList&) = delete;
  CommitList& operator=(const CommitList&) = delete;
  std::uint32_t count = kCommits;
  CfgmgrCommit* commits = nullptr;
};

struct Target {
  CfgmgrTarget* target = nullptr;
  KvChangeSet* changes = nullptr;
};

bool get_history(CommitList* list) {
  return mpls_vpn_checked(kGetTime, "Failed to do cfgmgr_config_get_history",
                          cfgmgr_config_get_history(&list->count, &list->commits, 0)) == kStatusOk;
}

bool create_target(Target* target) {
  const Status rc =
      cfgmgr_target_create(&target->target, &target->changes, "mpls_vpn", "lab", "", 0, 0, 0, 0);
  return mpls_vpn_checked(kGetTime, "Failed to create the cfgmgr target", rc) == kStatusOk;
}

bool load_commit(const Target& target, const char* commit_id) {
  const Status rc = cfgmgr_target_load_changes(target.target, commit_id, commit_id, kCommitted, kChanges);
  if (rc == kStatusOk) return true;
  mpls_vpn_debug(CFGMGR, "Loading changes for commit id %s", commit_id);
  mpls_vpn_error(kGetTime, "Failed to load the config changes", rc);
  return false;
}

// A search that fails has not found it.
bool has_changed(const Target& target, const char* item) {
  std::uint32_t found = 0;
  KvValue value;
  const Status rc = kvtree_event_find(target.changes, item, "", &found, &value, kValueOctets, 0);
  return rc == kStatusOk && found != 0;
}

// From the last commit of the list to the first. False after a failure that ends the search; *found is null
// when no commit has the item.
bool find_commit(const CommitList& list, const Target& target, const char* item, const CfgmgrCommit** found) {
  for (std::uint32_t i = list.count; i > 0 && *found == nullptr; --i) {
    const CfgmgrCommit& commit = list.commits[i - 1];
    if (!load_commit(target, commit.commit_id)) return false;
    if (has_changed(target, item)) {
      mpls_vpn_debug(CFGMGR, "Item %s has changed in commitid %s, timestamp = %s", item, commit.commit_id,
                     commit.timestamp);
      *found = &commit;
    }
    mpls_vpn_checked(kGetTime, "Failed to clear cfgmgr target", cfgmgr_target_clear(target.target, 0));
  }
  return true;
}

char* copy_timestamp(const CfgmgrCommit& commit) {
  char* const timestamp = text_copy(commit.timestamp);
  if (timestamp == nullptr) mpls_vpn_error(kGetTime, "text_copy", kStatusNoMemory);
  return timestamp;
}

}  // namespace

char* mpls_vpn_mib_cgfmgr_get_time(const char* vrf_name) {
  char item[kItemSize];
  std::snprintf(item, sizeof item, "%s%s", kVrfItem, vrf_name == nullptr ? "" : vrf_name);
  CommitList list;
  if (!get_history(&list)) return nullptr;
  mpls_vpn_debug(CFGMGR, "Looking for item %s", item);
  mpls_vpn_debug(CFGMGR, "Found %d commits", static_cast<int>(list.count));
  Target target;
  if (!create_target(&target)) return nullptr;
  const CfgmgrCommit* found = nullptr;
  const bool searched = find_commit(list, target, item, &found);
  if (searched && found == nullptr) {
    mpls_vpn_debug(CFGMGR, "The item was not found");
    mpls_vpn_trace(kTraceInit, kStatusOk, "The item %s was not found", item);
  }
  mpls_vpn_checked(kGetTime, "Failed to destroy the cfgmgr target", cfgmgr_target_destroy(target.target));
  return searched && found != nullptr ? copy_timestamp(*found) : nullptr;
}
