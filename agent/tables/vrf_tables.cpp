// mplsL3VpnVrfTable, mplsL3VpnVrfSecTable and mplsL3VpnVrfPerfTable (RFC 4382): the last two augment the
// first, so all three are columns over the same rows, read once.
//
// The router has one configured maximum of routes, which is both the high threshold and the maximum. The
// daemon has no VPN ids: the column is empty.
#include <array>

#include "agent/rows/decoded_record.h"
#include "agent/tables/l3vpn_tables.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace tables {
namespace {

enum VrfSlot : std::size_t {
  kVpnId,
  kVrfDescription,
  kRd,
  kCreationTime,
  kOperStatus,
  kActiveInterfaces,
  kAssociatedInterfaces,
  kMidThreshold,
  kHighThreshold,
  kMaxRoutes,
  kLastChanged,
  kVrfRowStatus,
  kAdminStatus,
  kVrfStorageType,
  kIllegalLabels,
  kIllegalLabelsDiscontinuity,
  kRoutesAdded,
  kRoutesDeleted,
  kCurrentRoutes,
  kRoutesDropped,
  kRoutesDiscontinuity,
  kVrfSlots,
};

Taken take_vrf(const kvtree::Octets& octets, Window* window) {
  const Decoded<mpls_vpn_mib_vrf> record(kMibVrfParcel, octets);
  if (!record.good()) return Taken::kBad;
  if (!window->add_name(text_or_empty(record->name))) return Taken::kNoIndex;
  window->add_octets({});  // VPN id
  add_text(window, record->description, kDescriptionMax);
  add_text(window, record->rd, kDistinguisherMax);
  window->add_number(record->creationTime);
  add_signed(window, record->operStatus);
  window->add_number(record->activeInterfaces);
  window->add_number(record->associatedInterfaces);
  window->add_number(record->midThresh);
  window->add_number(record->highThresh);
  window->add_number(record->highThresh);  // kMaxRoutes
  window->add_number(record->confLastChanged);
  add_signed(window, record->rowStatus);
  add_signed(window, record->adminStatus);
  add_signed(window, record->storageType);
  window->add_number(record->illegalLabelViolations);
  window->add_number(record->discontinuityTime);
  window->add_number(record->routesAdded);
  window->add_number(record->routesDeleted);
  window->add_number(record->currNumRoutes);
  window->add_number(record->routesDropped);
  window->add_number(record->discTime);
  return Taken::kRow;
}

constexpr std::array kVrfIndex = {IndexPart{PartKind::kName}};

const RowSet kVrfs = {
    "mplsL3VpnVrfTable", "/oper/mpls_vpn/gl/vrf-next", false, kVrfIndex, kVrfSlots, take_vrf};

// Column 1, the name, is not accessible.
constexpr std::array kVrfColumns = {
    Column{2, Syntax::kOctets, kVpnId},
    Column{3, Syntax::kOctets, kVrfDescription},
    Column{4, Syntax::kOctets, kRd},
    Column{5, Syntax::kTimeStamp, kCreationTime},
    Column{6, Syntax::kInteger, kOperStatus},
    Column{7, Syntax::kGauge, kActiveInterfaces},
    Column{8, Syntax::kUnsigned, kAssociatedInterfaces},
    Column{9, Syntax::kUnsigned, kMidThreshold},
    Column{10, Syntax::kUnsigned, kHighThreshold},
    Column{11, Syntax::kUnsigned, kMaxRoutes},
    Column{12, Syntax::kTimeStamp, kLastChanged},
    Column{13, Syntax::kInteger, kVrfRowStatus},
    Column{14, Syntax::kInteger, kAdminStatus},
    Column{15, Syntax::kInteger, kVrfStorageType},
};
constexpr std::array kSecurityColumns = {
    Column{1, Syntax::kCounter, kIllegalLabels},
    Column{2, Syntax::kTimeStamp, kIllegalLabelsDiscontinuity},
};
// Without a module of the routing table the records have a count of 0, but reads of routes fail.
constexpr char kAnyRoute[] = "/oper/mpls_vpn/gl/route//1/0/1/0/0";
constexpr std::array kPerformanceColumns = {
    Column{1, Syntax::kCounter, kRoutesAdded},
    Column{2, Syntax::kCounter, kRoutesDeleted},
    Column{3, Syntax::kGauge, kCurrentRoutes, kAnyRoute},
    Column{4, Syntax::kCounter, kRoutesDropped},
    Column{5, Syntax::kTimeStamp, kRoutesDiscontinuity},
};

constexpr std::array<std::uint32_t, 13> kVrfEntry = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 2, 1};
constexpr std::array<std::uint32_t, 13> kSecurityEntry = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 6, 1};
constexpr std::array<std::uint32_t, 13> kPerformanceEntry = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 3, 1, 1};

const std::array kVrfTables = {Table{kVrfEntry, &kVrfs, kVrfColumns},
                               Table{kSecurityEntry, &kVrfs, kSecurityColumns},
                               Table{kPerformanceEntry, &kVrfs, kPerformanceColumns}};

}  // namespace

std::span<const Table> vrf_tables() {
  return kVrfTables;
}

}  // namespace tables
