// What the platform does for VRFs that have configuration.
//
// References. A VRF that effective configuration names is referenced in the router model (holder
// "configuration") from its first item to its last, created or not: the record service retains its record,
// with what its client learned from the configuration, while an operator removes and adds the VRF's device.
//
// Replay of items. A client that counts a protocol's configuration on the interfaces of a VRF cannot count
// for an interface that is not there, and loses the counts of an interface that leaves. When an interface has
// joined a VRF (or has another name or index) and the membership service has delivered that, the
// configuration of protocols on the interface is replayed to its subscribers.
//
// Renames. What such a client counted under the former name of an interface must be removed. When items were
// configured under that name, the membership service announces that the interface left before it announces
// the new name. Then the configuration under the new name is replayed.
//
// Times. A VRF that is created while configuration names it takes over the existing record, with the time of
// its last change, which must not be before the creation of the VRF. So the VRF's description, or its
// absence, is announced once more after the membership service has delivered the creation.
//
// One for the process; main thread.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

// Follows the configuration; effective items are read before it returns. Call it before the clients that
// count subscribe: subscribers are notified in the order of their registrations, and the record of a VRF must
// exist before its items are counted. Model and manager must outlive it. kStatusExists when it was started
// before, or the data store's status. Fault point of its own name.
[[nodiscard]] Status config_references_start(router::Router* model, EventManager* manager);
// Releases its references.
void config_references_stop();
