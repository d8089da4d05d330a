// The history of commits, for commands that change the configuration.
#pragma once

#include <string>
#include <vector>

#include "cli/session.h"
#include "platform/store/configuration/configuration.h"

namespace cli {

// The newest commit's id; "0" when there is none.
std::string newest_commit(const Session& session, kvtree::Client& client);

// Failure(kExitFailed) if a commit of the command line after commit `id` set a node of the changes to another
// value than they do. Commits that are no longer in the history, or are made while it is read, are not seen.
// Nothing is checked for an empty id.
void check_unchanged_since(const Session& session, kvtree::Client& client, const std::string& id,
                           const std::vector<KvConfigChange>& changes);

}  // namespace cli
