// A set of configuration changes that somebody collected (platform/store/cfgmgr), and the search in it. Main
// thread.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/store/configuration/config.h"

struct KvChangeSet {
  std::vector<KvConfigCommitChange> changes;
};

// Looks for the first change of the item or of anything below it. The item is a path of plain texts below
// /cfg/ ("gl/vmap/vrf/red"): its components are encoded as keys are, so a component that has a '/' cannot be
// named. `below`, when not empty, is what follows the item's path, encoded. *found is 1 or 0; *value is what
// the change set, without a type for a deletion, its text cut to `max_text` octets. No flag is known.
// kStatusInvalid for null and for flags. Fault point "kvtree_event_find".
[[nodiscard]] Status kvtree_event_find(const KvChangeSet* changes, const char* item, const char* below,
                                       std::uint32_t* found, KvValue* value, std::uint32_t max_text,
                                       std::uint32_t flags);
