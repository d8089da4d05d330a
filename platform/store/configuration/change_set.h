// A set of configuration changes (collected by platform/store/cfgmgr), and the search in it. Main thread.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/store/configuration/config.h"

struct KvChangeSet {
  std::vector<KvConfigCommitChange> changes;
};

// Finds the first change of the item or of anything below it. The item is a path of plain texts below /cfg/
// ("gl/vmap/vrf/red"): its components are encoded as keys are, so no component can contain a '/'. `below`, if
// not empty, is the encoded rest of the path. *found is 1 or 0; *value is the value that the change set,
// without a type for a deletion, its text cut to `max_text` octets. There are no flags. kStatusInvalid for
// null and for flags. Fault point "kvtree_event_find".
[[nodiscard]] Status kvtree_event_find(const KvChangeSet* changes, const char* item, const char* below,
                                       std::uint32_t* found, KvValue* value, std::uint32_t max_text,
                                       std::uint32_t flags);
