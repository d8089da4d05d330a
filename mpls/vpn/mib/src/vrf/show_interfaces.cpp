// Stored names have "_" where the interface's name has "/"; this file restores the "/". The interfaces of
// a VRF are its nodes in the interface database; those of no VRF are only in the record service. The walk
// of a VRF's nodes repairs the database on the way and may find nodes that were not counted.
#include <algorithm>
#include <array>
#include <cstdio>

#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/vrf/show.h"
#include "platform/core/base/memory.h"
#include "platform/router/model/default_vrf.h"

namespace {

constexpr std::size_t kNameSize = 64;

void copy_interface_name(mpls_vpn_interfaces* slot, const char* stored, const char* function) {
  std::array<char, kNameSize> name{};
  std::snprintf(name.data(), name.size(), "%s", stored == nullptr ? "" : stored);
  std::replace(name.begin(), name.end(), '_', '/');
  prov_copy_inner_text(&slot->InterfaceName, name.data(), function);
}

bool is_in_default_vrf(const VtabIfRecord* record) {
  return record->vrf_name == router::kDefaultVrf;
}

// Stores the names of the interfaces that the walk visits, at most as many as a first walk has counted. The
// number of names.
template <typename Walk>
std::uint32_t add_names(ParcelArray* interfaces, const char* tag, const char* function, const Walk& walk) {
  *interfaces = {};
  std::uint32_t count = 0;
  walk([&](const char*) { ++count; });
  if (count == 0) return 0;
  auto* slots = static_cast<mpls_vpn_interfaces*>(calloc_tagged(count, sizeof(mpls_vpn_interfaces), tag));
  if (slots == nullptr) {
    mpls_vpn_report_failure(PROV, kStatusNoMemory, "Cannot allocate memory in function %s", function);
    return 0;
  }
  std::uint32_t filled = 0;
  walk([&](const char* name) {
    if (filled < count) copy_interface_name(&slots[filled++], name, function);
  });
  *interfaces = {filled, slots};
  return filled;
}

}  // namespace

void add_default_vrf_ifs(ParcelArray* interfaces) {
  add_names(interfaces, "Def if in VRF", __func__, [](const auto& visit) {
    for (const VtabIfRecord* record = vtab_get_first_if_record(); record != nullptr;
         record = vtab_get_next_if_record(record)) {
      if (is_in_default_vrf(record)) visit(record->if_name);
    }
  });
}

std::uint32_t add_ifs(ParcelArray* interfaces, const char* vrf_name) {
  (void)mpls_vpn_mib_clean_if_dbase();  // nodes that could not be repaired are shown too
  return add_names(interfaces, "If in VRF", __func__, [vrf_name](const auto& visit) {
    for (const IfNode* node = mpls_vpn_mib_get_first_if_of_vrf(vrf_name); node != nullptr;
         node = mpls_vpn_mib_get_next_if_of_vrf(node, vrf_name)) {
      visit(node->if_name);
    }
  });
}
