// Reports every change of an effective route distinguisher or route target, with the values before and after
// and their owners, as notifications (records.h) of a provider of its own. "Effective" is what readers see of
// all that owners hold (platform/store/configuration/config.h), and of the router model's RD where none is
// configured.
//
// Changes come from commits and from the model, never from notifications of subscribers: what is replayed or
// announced again is not a change. Every value that was effective is reported, also when the next commit
// reverts it. A value that one source removes and the next one sets within one pass of the loop, as when a
// VRF moves from a router file's configuration into the model or an RD that the suite derived is configured,
// is one change, or none when it is the same value. What is there when it is attached is not reported.
//
// Reports leave from the event manager's loop, before the answer to a client's commit, in records of
// kMostChanges at most: the queue of a subscriber that reads late (kvtree::kPlainQueue records) has room for
// several commits of the largest size. A record that cannot be sent is logged, and readers notice the gap in
// the changes' numbers. Texts are in the format of AS numbers of that moment. Main thread only.
#pragma once

#include <cstddef>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

inline constexpr std::size_t kMostVpnChanges = 256;  // of one record

// Model and manager must stay until it is detached. kStatusExists when it is attached; kStatusInvalid for
// null; or what binding answers, with nothing attached. Fault point "vpn_events_attach".
[[nodiscard]] Status vpn_events_attach(router::Router* model, EventManager* manager);
// Ends it; what was not sent is forgotten. Nothing when it is not attached.
void vpn_events_detach();
