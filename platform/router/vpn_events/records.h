// The record that reports changes of route distinguishers and route targets: a contract with every process
// that decodes it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/core/parcel/parcel.h"

namespace vpn_events {

// The provider that sends the records as notifications.
inline constexpr char kProviderPath[] = "/oper/vpn_changes/";
inline constexpr char kItemName[] = "changes";
// A node of the data store: the owner of the RDs in the router model, a text. Empty if its source sets none.
inline constexpr char kRdOwnerPath[] = "/oper/router/rd_owner";

enum class Item : std::uint32_t { kRouteDistinguisher = 1, kImportTarget = 2, kExportTarget = 3 };

// A missing value is an empty text, and so is its owner; an owner is one of kConfigOwners.
struct VpnChange {
  char* vrf;
  std::uint32_t item;
  std::uint32_t family;  // vrf_config::Family; 0: the RD of the VRF
  char* old_value;
  char* old_owner;
  char* new_value;
  char* new_owner;
};
static_assert(sizeof(VpnChange) == 48);

// Changes are numbered modulo 2^32. `first` is the number of the first one in this record, so that a reader
// that missed a record knows how many changes it missed.
struct VpnChanges {
  std::uint32_t first;
  ParcelArray changes;  // of VpnChange
};
static_assert(sizeof(VpnChanges) == 24);

extern const ParcelDescription kVpnChangesParcel;

}  // namespace vpn_events
