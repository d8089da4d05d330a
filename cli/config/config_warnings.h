// What an operator may not expect of a change: lines on standard error before it is made.
#pragma once

#include <vector>

#include "cli/config/config_edits.h"
#include "cli/session.h"

namespace cli {

using CommitChanges = std::vector<KvConfigCommitChange>;

// VRFs that do not exist and of which an edit sets an item. That is legal: the item waits for the VRF.
void warn_of_missing_vrfs(const Session& session, kvtree::Client& client,
                          const std::vector<ConfigEdit>& edits);
// The same of interfaces that do not exist.
void warn_of_missing_interfaces(const Session& session, kvtree::Client& client,
                                const std::vector<ConfigEdit>& edits);
// Conditions on the routes of the default VRF, which are never met.
void warn_of_default_vrf(const Session& session, const std::vector<ConfigEdit>& edits);
// Items that an edit suppresses although no other owner sets them, such as those of a misspelled VRF. That is
// legal: a backup is loaded before the router file.
void warn_of_needless_suppression(const Session& session, const WorkingCopy& copy);
// How many items of which other owners the command line overrides from now on.
void warn_of_taking_over(const Session& session, const CommitChanges& foreseen);

}  // namespace cli
