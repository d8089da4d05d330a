// Undoing the commit that is not confirmed in time. Only for the store.
#pragma once

#include "platform/core/evm/evm.h"

namespace kvtree {

// Starts the timer of the commit that waits for its confirmation, if there is one: call when serving begins
// and after a commit that needs a confirmation.
void await_confirmation(EventManager* manager);

}  // namespace kvtree
