// Reports every change of an effective route distinguisher or route target, with the values before and after
// and their owners, as notifications (records.h) of a provider of its own. The effective value is the one
// that readers get (platform/store/configuration/configuration.h), and the router model's RD where none is
// configured.
//
// Changes are taken from commits and from the model, not from notifications of subscribers: a replay is not a
// change. Every value that was effective is reported, even if the next commit reverts it. When one source
// removes a value and another sets one in the same iteration of the loop (a VRF moves from a router file's
// configuration into the model, or an RD that the suite derived is configured), this is one change, or none
// if the value is the same. What exists at the attachment is not reported.
//
// Reports are sent from the event manager's loop, before the answer to a client's commit, in records of at
// most kMostVpnChanges: the queue of a slow subscriber (kvtree::kPlainQueue records) has room for several
// commits of the largest size. Many records are sent in steps of a millisecond. A record that cannot be sent
// is logged, and readers detect the gap in the numbers of the changes. Texts are in the format of AS numbers
// at that moment. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

inline constexpr std::size_t kMostVpnChanges = 256;  // of one record

// While attached, the owner of the model's RDs is published for readers (kRdOwnerPath in records.h).
//
// Model and manager must live until vpn_events_detach. kStatusExists when attached; kStatusInvalid for null;
// or the status of binding or publishing, with nothing attached. Fault point "vpn_events_attach".
[[nodiscard]] Status vpn_events_attach(router::Router* model, EventManager* manager);
// Changes of a VRF of the model since it was created, whether or not a record could be sent. Zero when not
// attached. O(log VRFs).
struct VpnChangeCounts {
  std::uint64_t rd = 0;  // of the VRF, not of a family
  std::uint64_t import_targets = 0;
  std::uint64_t export_targets = 0;
};
VpnChangeCounts vpn_events_counts(std::string_view vrf);
// Stops the reports and drops those that were not sent. Ignored when not attached.
void vpn_events_detach();
