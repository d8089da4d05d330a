// The seven scalars and mplsL3VpnIfConfTable; the other tables have files of their own.
//
// Each record is decoded with the daemon's own description. For an object that the daemon does not track, the
// value is the MIB's own for "not known".
#include "agent/tables/l3vpn_tables.h"

#include <array>
#include <vector>

#include "agent/tables/columns.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace tables {
namespace {

// --- Scalars (RFC 4382, mplsL3VpnScalars)

using Scalars = mpls_vpn_mib_scalars;

Taken add_scalar_index(const Scalars& /*record*/, Window* window) {
  window->add_index(0);
  return Taken::kRow;
}

void notification_enable(const Scalars& record, Window* window) {
  window->add_number(record.notificationEnable == 1 ? kTruthTrue : kTruthFalse);
}

constexpr std::array kScalarIndex = {IndexPart{PartKind::kNumber, 0, 0}};
constexpr RecordColumn<Scalars> kScalarColumns[] = {
    {1, Syntax::kUnsigned, number<&Scalars::configuredVrfs>},
    {2, Syntax::kGauge, number<&Scalars::activeVrfs>},
    {3, Syntax::kGauge, number<&Scalars::connectedInterfaces>},
    {4, Syntax::kInteger, notification_enable},
    // mplsL3VpnVrfConfMaxPossRts: "If this value is not able to be determined, it should be set to 0".
    {5, Syntax::kUnsigned, zero},
    {6, Syntax::kUnsigned, number<&Scalars::maxThresholdNotifTime>},
    {7, Syntax::kUnsigned, number<&Scalars::illegalLabelsThreshold>},
};
using ScalarRows = RecordRows<Scalars, kMibScalarsParcel, add_scalar_index, kScalarColumns>;

// --- mplsL3VpnIfConfTable

using Interface = mpls_vpn_mib_interface;

Taken add_interface_index(const Interface& record, Window* window) {
  if (!window->add_name(text_or_empty(record.vrfName))) return Taken::kNoIndex;
  window->add_index(static_cast<std::uint32_t>(record.ifConfIndex));
  return Taken::kRow;
}

void protocols(const Interface& record, Window* window) {
  window->add_octets({&record.protocol, 1});
}

constexpr std::array kInterfaceIndex = {IndexPart{PartKind::kName}, IndexPart{PartKind::kNumber}};
// Column 1, the interface index, is not accessible.
constexpr RecordColumn<Interface> kInterfaceColumns[] = {
    {2, Syntax::kInteger, number<&Interface::vpnClassification>},
    {3, Syntax::kOctets, protocols},
    {4, Syntax::kInteger, number<&Interface::storageType>},
    {5, Syntax::kInteger, number<&Interface::rowStatus>},
};
using InterfaceRows = RecordRows<Interface, kMibInterfaceParcel, add_interface_index, kInterfaceColumns>;

// --- The module

constexpr auto kObjects = l3vpn_oid();
constexpr auto kScalarGroup = l3vpn_oid(1);
constexpr auto kInterfaceEntry = l3vpn_oid(2, 1, 1);

const RowSet kScalars = ScalarRows::single("mplsL3VpnScalars", "/oper/mpls_vpn/gl/scalars", kScalarIndex);
const RowSet kInterfaces =
    InterfaceRows::walked("mplsL3VpnIfConfTable", "/oper/mpls_vpn/gl/interface-next", kInterfaceIndex);

const std::array kScalarAndInterfaceTables = {
    Table{kScalarGroup, &kScalars, ScalarRows::columns<0>()},
    Table{kInterfaceEntry, &kInterfaces, InterfaceRows::columns<0>()},
};

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
