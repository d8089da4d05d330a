// The history of configuration commits, in the form that the daemon uses: a list of commits, and a target
// into which the changes of some of them are loaded. It reads the data store's history
// (platform/store/configuration/config.h).
//
// Main thread. Every operation that answers a status is a fault point of its own name; the data store's
// failures are passed on.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/store/configuration/change_set.h"

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

// A container for changes. `client` and `label` name it (texts, not null), `comment` may be empty; the other
// arguments are the platform's word for further properties, of which there is none: 0 (kStatusInvalid).
// *changes is what is loaded; it lives as long as the target.
struct CfgmgrTarget;
[[nodiscard]] Status cfgmgr_target_create(CfgmgrTarget** target, KvChangeSet** changes, const char* client,
                                          const char* label, const char* comment, std::uint32_t first,
                                          std::uint32_t second, std::uint32_t third, std::uint32_t fourth);
// Adds the changes of the commits from the one to the other, both included, oldest first. The kind is 1, what
// was committed; `room` is how many changes the caller expects, no limit. kStatusNoSuchRow, with nothing
// added, for a commit that is not, or no longer, in the history, kStatusInvalid for another kind.
[[nodiscard]] Status cfgmgr_target_load_changes(CfgmgrTarget* target, const char* first_commit,
                                                const char* last_commit, std::uint32_t kind,
                                                std::uint32_t room);
// Removes the loaded changes. There are no flags.
[[nodiscard]] Status cfgmgr_target_clear(CfgmgrTarget* target, std::uint32_t flags);
// A target whose destruction fails by its fault point is destroyed all the same.
[[nodiscard]] Status cfgmgr_target_destroy(CfgmgrTarget* target);
