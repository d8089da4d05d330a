// What was committed, for those who change the configuration.
#pragma once

#include <string>
#include <vector>

#include "cli/session.h"
#include "platform/store/configuration/config.h"

namespace cli {

// The newest commit's id; "0" when there is none.
std::string newest_commit(const Session& session, kvtree::Client& client);

// Failure(kExitFailed) when a later commit of the command line than this one gave a node of the changes
// another value than they do. Only the history tells: commits that are not in it any more, or come while it
// is read, are not seen. An empty id is passed over.
void check_unchanged_since(const Session& session, kvtree::Client& client, const std::string& id,
                           const std::vector<KvConfigChange>& changes);

}  // namespace cli
