// The daemon's traps, as "watch" shows them.
#pragma once

#include "cli/session.h"

namespace cli {

// Prints one line. Failure for a record of another kind.
void print_trap(const Session& session, const kvtree::NotificationResult& notification);

}  // namespace cli
