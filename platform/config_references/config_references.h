// What the platform does for VRFs because they have configuration.
//
// References. A VRF that configuration in force names is referenced in the router model (by the holder
// "configuration") from its first item to its last, created or not: the record service then keeps its record,
// with what its client learned from the configuration, while an operator takes the VRF's device down and up.
//
// Retelling. A client that counts a protocol's configuration on the interfaces of a VRF has no place to count
// for an interface that is not there, and loses its counts with one that leaves. When an interface has come
// to a VRF (or comes to be known by another name or index), and the membership service's clients were told of
// it, the subscribers of its protocols' configuration in that VRF are told again.
//
// Names. What such a client counted under the former name of an interface that is renamed in its VRF must not
// stay: the membership service is told to announce the interface as having left, when items were configured
// under that name, before it announces it under the new name. What is configured under the new name is then
// told again.
//
// Times. A VRF that is created while something names it goes on with the record, and the time of the last
// change, of before. It must not be older than the VRF, so the subscribers are told the VRF's description
// once more, or that it has none, when the membership service's clients were told of the creation.
//
// One for the process; main thread.
#pragma once

#include "platform/base/status.h"
#include "platform/evm/evm.h"
#include "platform/router/router.h"

// Follows the configuration from here on; what is in force is taken in before it returns. Call it before
// those who count subscribe: subscribers are told in the order of their registrations, and a VRF's record
// must be there before its items are counted. Model and manager must outlive it. kStatusExists when it was
// started before, or the data store's status. Fault point of its own name.
[[nodiscard]] Status config_references_start(router::Router* model, EventManager* manager);
// Takes its references back.
void config_references_stop();
