// What the platform does for VRFs because they have configuration.
//
// References. A VRF that effective configuration names is referenced in the router model (by the holder
// "configuration") from its first item to its last, created or not: the record service then keeps its record,
// with what its client learned from the configuration, while an operator takes the VRF's device down and up.
//
// Items announced again. A client that counts a protocol's configuration on the interfaces of a VRF cannot
// count for an interface that is not there, and loses its counts with one that leaves. When an interface has
// joined a VRF (or has another name or index), and the membership service has delivered that, the
// configuration of protocols on the interface is announced again to its subscribers.
//
// Names. What such a client counted under the former name of an interface that is renamed in its VRF must not
// stay. When items were configured under that name, the membership service announces the interface as having
// left before it announces it under the new name. What is configured under the new name is then announced
// again.
//
// Times. A VRF that is created while something names it takes over the record, with the time of its last
// change. That time must not be before the creation of the VRF. So the VRF's description, or that it has
// none, is announced once more after the membership service has delivered the creation.
//
// One for the process; main thread.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

// Follows the configuration from here on; what is in force is taken in before it returns. Call it before
// those who count subscribe: subscribers are told in the order of their registrations, and a VRF's record
// must be there before its items are counted. Model and manager must outlive it. kStatusExists when it was
// started before, or the data store's status. Fault point of its own name.
[[nodiscard]] Status config_references_start(router::Router* model, EventManager* manager);
// Takes its references back.
void config_references_stop();
