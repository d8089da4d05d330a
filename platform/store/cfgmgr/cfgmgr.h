// The history of configuration commits, in the form that the daemon uses: a list of commits, a target
// into which changes of them are loaded, and the search in it. It reads the data store's history
// (platform/store/configuration/configuration.h).
//
// Main thread. Every operation that answers a status is a fault point of its own name; the data store's
// failures are passed on.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/store/configuration/configuration.h"

struct CfgmgrCommit {
  char commit_id[24];
  char timestamp[24];  // UTC, "2026-11-21T10:27:09Z"
};

// The newest commits, at most *count of them, oldest first, so the last is the newest. *commits is the
// caller's, to be freed with its count; null when there is none. kStatusInvalid for null and for flags.
[[nodiscard]] Status cfgmgr_config_get_history(std::uint32_t* count, CfgmgrCommit** commits,
                                               std::uint32_t flags);
// Null is allowed.
void cfgmgr_commit_list_free(CfgmgrCommit* commits, std::uint32_t count);

struct KvChangeSet {
  std::vector<KvConfigCommitChange> changes;
};

// A container for changes. `client` and `label` name it (texts, not null), `comment` may be empty; the other
// arguments are the platform's word for further properties, of which there is none: 0 (kStatusInvalid).
// *changes is what is loaded; it lives as long as the target.
struct CfgmgrTarget;
[[nodiscard]] Status cfgmgr_target_create(CfgmgrTarget** target, KvChangeSet** changes, const char* client,
                                          const char* label, const char* comment, std::uint32_t first,
                                          std::uint32_t second, std::uint32_t third, std::uint32_t fourth);
// Adds the changes of one commit, which is both the first and the last. The kind is 1, what was committed;
// `room` is how many changes the caller expects, no limit. kStatusNoSuchRow for a commit that is not, or no
// longer, in the history, kStatusInvalid for a range of commits or another kind.
[[nodiscard]] Status cfgmgr_target_load_changes(CfgmgrTarget* target, const char* first_commit,
                                                const char* last_commit, std::uint32_t kind,
                                                std::uint32_t room);
// Removes the loaded changes. There are no flags.
[[nodiscard]] Status cfgmgr_target_clear(CfgmgrTarget* target, std::uint32_t flags);
// A target whose destruction fails by its fault point is destroyed all the same.
[[nodiscard]] Status cfgmgr_target_destroy(CfgmgrTarget* target);

// Finds the first change of the item or of anything below it. The item is a path of plain texts below /cfg/
// ("gl/vmap/vrf/red"): its components are encoded as keys are, so no component can contain a '/'. `below`, if
// not empty, is the encoded rest of the path. *found is 1 or 0; *value is the value that the change set,
// without a type for a deletion, its text cut to `max_text` octets. There are no flags. kStatusInvalid for
// null and for flags. Fault point "kvtree_event_find".
[[nodiscard]] Status kvtree_event_find(const KvChangeSet* changes, const char* item, const char* below,
                                       std::uint32_t* found, KvValue* value, std::uint32_t max_text,
                                       std::uint32_t flags);
