// The seven scalars and mplsL3VpnIfConfTable; the other tables have files of their own.
//
// Each record is decoded with the daemon's own description and its values are stored in the row's slots, in
// the order of the slot enumerations below; a column names its slot. For an object that the daemon does not
// track, the value is the MIB's own for "not known".
#include "agent/tables/l3vpn_tables.h"

#include <array>
#include <vector>

#include "agent/rows/decoded_record.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace tables {
namespace {

constexpr std::uint32_t kTruthTrue = 1;
constexpr std::uint32_t kTruthFalse = 2;
// mplsL3VpnVrfConfMaxPossRts: "If this value is not able to be determined, it should be set to 0".
constexpr std::uint32_t kMaximumNotKnown = 0;

// --- Scalars (RFC 4382, mplsL3VpnScalars)

enum ScalarSlot : std::size_t {
  kConfiguredVrfs,
  kActiveVrfs,
  kConnectedInterfaces,
  kNotificationEnable,
  kMaxPossibleRoutes,
  kMaxThresholdTime,
  kIllegalLabelThreshold,
  kScalarSlots,
};

Taken take_scalars(const kvtree::Octets& octets, Window* window) {
  const Decoded<mpls_vpn_mib_scalars> record(kMibScalarsParcel, octets);
  if (!record.good()) return Taken::kBad;
  window->add_index(0);
  window->add_number(record->configuredVrfs);
  window->add_number(record->activeVrfs);
  window->add_number(record->connectedInterfaces);
  window->add_number(record->notificationEnable == 1 ? kTruthTrue : kTruthFalse);
  window->add_number(kMaximumNotKnown);
  window->add_number(record->maxThresholdNotifTime);
  window->add_number(record->illegalLabelsThreshold);
  return Taken::kRow;
}

constexpr std::array kScalarIndex = {IndexPart{PartKind::kNumber, 0, 0}};
constexpr std::array kScalarColumns = {
    Column{1, Syntax::kUnsigned, kConfiguredVrfs},        Column{2, Syntax::kGauge, kActiveVrfs},
    Column{3, Syntax::kGauge, kConnectedInterfaces},      Column{4, Syntax::kInteger, kNotificationEnable},
    Column{5, Syntax::kUnsigned, kMaxPossibleRoutes},     Column{6, Syntax::kUnsigned, kMaxThresholdTime},
    Column{7, Syntax::kUnsigned, kIllegalLabelThreshold},
};

// --- mplsL3VpnIfConfTable

enum InterfaceSlot : std::size_t {
  kClassification,
  kProtocols,
  kInterfaceStorageType,
  kInterfaceRowStatus,
  kInterfaceSlots
};

Taken take_interface(const kvtree::Octets& octets, Window* window) {
  const Decoded<mpls_vpn_mib_interface> record(kMibInterfaceParcel, octets);
  if (!record.good()) return Taken::kBad;
  if (!window->add_name(text_or_empty(record->vrfName))) return Taken::kNoIndex;
  window->add_index(static_cast<std::uint32_t>(record->ifConfIndex));
  window->add_number(static_cast<std::uint32_t>(record->vpnClassification));
  const std::array<std::uint8_t, 1> protocols = {record->protocol};
  window->add_octets(protocols);
  window->add_number(static_cast<std::uint32_t>(record->storageType));
  window->add_number(static_cast<std::uint32_t>(record->rowStatus));
  return Taken::kRow;
}

constexpr std::array kInterfaceIndex = {IndexPart{PartKind::kName}, IndexPart{PartKind::kNumber}};
// Column 1, the interface index, is not accessible.
constexpr std::array kInterfaceColumns = {
    Column{2, Syntax::kInteger, kClassification},
    Column{3, Syntax::kOctets, kProtocols},
    Column{4, Syntax::kInteger, kInterfaceStorageType},
    Column{5, Syntax::kInteger, kInterfaceRowStatus},
};

// --- The module

constexpr std::array<std::uint32_t, 10> kObjects = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1};
constexpr std::array<std::uint32_t, 11> kScalarGroup = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 1};
constexpr std::array<std::uint32_t, 13> kInterfaceEntry = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 1, 1};

const RowSet kScalars = {"mplsL3VpnScalars", "/oper/mpls_vpn/gl/scalars", true, kScalarIndex, kScalarSlots,
                         take_scalars};
const RowSet kInterfaces = {
    "mplsL3VpnIfConfTable", "/oper/mpls_vpn/gl/interface-next", false, kInterfaceIndex, kInterfaceSlots,
    take_interface};

const std::array kScalarAndInterfaceTables = {Table{kScalarGroup, &kScalars, kScalarColumns},
                                              Table{kInterfaceEntry, &kInterfaces, kInterfaceColumns}};

}  // namespace

oid::View l3vpn_subtree() {
  return kObjects;
}

std::span<const Table> l3vpn_tables() {
  static const std::vector<Table> all = [] {
    std::vector<Table> tables(kScalarAndInterfaceTables.begin(), kScalarAndInterfaceTables.end());
    for (const std::span<const Table> more : {vrf_tables(), route_target_tables(), route_tables()}) {
      tables.insert(tables.end(), more.begin(), more.end());
    }
    return tables;
  }();
  return all;
}

}  // namespace tables
