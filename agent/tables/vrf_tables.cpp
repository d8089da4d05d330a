// mplsL3VpnVrfTable, mplsL3VpnVrfSecTable and mplsL3VpnVrfPerfTable (RFC 4382): the last two augment the
// first, so all three are columns over the same rows, read once.
//
// The router has one configured maximum of routes, which is both the high threshold and the maximum. The
// daemon has no VPN ids: the column is empty.
#include <array>

#include "agent/tables/columns.h"
#include "agent/tables/l3vpn_tables.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace tables {
namespace {

using Vrf = mpls_vpn_mib_vrf;

Taken add_vrf_index(const Vrf& record, Window* window) {
  return window->add_name(text_or_empty(record.name)) ? Taken::kRow : Taken::kNoIndex;
}

constexpr std::array kVrfIndex = {IndexPart{PartKind::kName}};

// Column 1, the name, is not accessible.
constexpr RecordColumn<Vrf> kVrfColumns[] = {
    {2, Syntax::kOctets, no_octets},
    {3, Syntax::kOctets, text<&Vrf::description, kDescriptionMax>},
    {4, Syntax::kOctets, text<&Vrf::rd, kDistinguisherMax>},
    {5, Syntax::kTimeStamp, number<&Vrf::creationTime>},
    {6, Syntax::kInteger, number<&Vrf::operStatus>},
    {7, Syntax::kGauge, number<&Vrf::activeInterfaces>},
    {8, Syntax::kUnsigned, number<&Vrf::associatedInterfaces>},
    {9, Syntax::kUnsigned, number<&Vrf::midThresh>},
    {10, Syntax::kUnsigned, number<&Vrf::highThresh>},
    {11, Syntax::kUnsigned, number<&Vrf::highThresh>},
    {12, Syntax::kTimeStamp, number<&Vrf::confLastChanged>},
    {13, Syntax::kInteger, number<&Vrf::rowStatus>},
    {14, Syntax::kInteger, number<&Vrf::adminStatus>},
    {15, Syntax::kInteger, number<&Vrf::storageType>},
};
constexpr RecordColumn<Vrf> kSecurityColumns[] = {
    {1, Syntax::kCounter, number<&Vrf::illegalLabelViolations>},
    {2, Syntax::kTimeStamp, number<&Vrf::discontinuityTime>},
};
// Without a module of the routing table the records have a count of 0, but reads of routes fail.
constexpr char kAnyRoute[] = "/oper/mpls_vpn/gl/route//1/0/1/0/0";
constexpr RecordColumn<Vrf> kPerformanceColumns[] = {
    {1, Syntax::kCounter, number<&Vrf::routesAdded>},
    {2, Syntax::kCounter, number<&Vrf::routesDeleted>},
    {3, Syntax::kGauge, number<&Vrf::currNumRoutes>, kAnyRoute},
    {4, Syntax::kCounter, number<&Vrf::routesDropped>},
    {5, Syntax::kTimeStamp, number<&Vrf::discTime>},
};
using VrfRows =
    RecordRows<Vrf, kMibVrfParcel, add_vrf_index, kVrfColumns, kSecurityColumns, kPerformanceColumns>;

const RowSet kVrfs = VrfRows::walked("mplsL3VpnVrfTable", "/oper/mpls_vpn/gl/vrf-next", kVrfIndex);

constexpr auto kVrfEntry = l3vpn_oid(2, 2, 1);
constexpr auto kSecurityEntry = l3vpn_oid(2, 6, 1);
constexpr auto kPerformanceEntry = l3vpn_oid(3, 1, 1);

const std::array kVrfTables = {
    Table{kVrfEntry, &kVrfs, VrfRows::columns<0>()},
    Table{kSecurityEntry, &kVrfs, VrfRows::columns<1>()},
    Table{kPerformanceEntry, &kVrfs, VrfRows::columns<2>()},
};

}  // namespace

std::span<const Table> vrf_tables() {
  return kVrfTables;
}

}  // namespace tables
