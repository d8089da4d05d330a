// The interface names of a show record.
//
// Stored names have "_" where the interface's name has "/"; this file restores the "/". The interfaces of a
// VRF are its nodes in the interface database; those of no VRF are only in the record service. Both are
// counted first and then walked. The walk of a VRF's nodes repairs the database on the way and may find nodes
// that were not counted: at most the counted number of names is stored.
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

std::uint32_t count_default_vrf_ifs() {
  std::uint32_t count = 0;
  for (const VtabIfRecord* record = vtab_get_first_if_record(); record != nullptr;
       record = vtab_get_next_if_record(record)) {
    if (is_in_default_vrf(record)) ++count;
  }
  return count;
}

std::uint32_t count_ifs(const char* vrf_name) {
  std::uint32_t count = 0;
  for (const IfNode* node = mpls_vpn_mib_get_first_if_of_vrf(vrf_name); node != nullptr;
       node = mpls_vpn_mib_get_next_if_of_vrf(node, vrf_name)) {
    ++count;
  }
  return count;
}

// Slots for `count` names; null, reported, without memory.
mpls_vpn_interfaces* new_slots(std::uint32_t count, const char* tag, const char* function) {
  void* slots = calloc_tagged(count, sizeof(mpls_vpn_interfaces), tag);
  if (slots == nullptr) {
    mpls_vpn_report_failure(PROV, kStatusNoMemory, "Cannot allocate memory in function %s", function);
  }
  return static_cast<mpls_vpn_interfaces*>(slots);
}

}  // namespace

void add_default_vrf_ifs(ParcelArray* interfaces) {
  *interfaces = {};
  const std::uint32_t count = count_default_vrf_ifs();
  if (count == 0) return;
  mpls_vpn_interfaces* slots = new_slots(count, "Def if in VRF", __func__);
  if (slots == nullptr) return;
  std::uint32_t filled = 0;
  for (const VtabIfRecord* record = vtab_get_first_if_record(); record != nullptr && filled < count;
       record = vtab_get_next_if_record(record)) {
    if (is_in_default_vrf(record)) copy_interface_name(&slots[filled++], record->if_name, __func__);
  }
  *interfaces = {filled, slots};
}

std::uint32_t add_ifs(ParcelArray* interfaces, const char* vrf_name) {
  *interfaces = {};
  (void)mpls_vpn_mib_clean_if_dbase();  // nodes that could not be repaired are shown too
  const std::uint32_t count = count_ifs(vrf_name);
  if (count == 0) return 0;
  mpls_vpn_interfaces* slots = new_slots(count, "If in VRF", __func__);
  if (slots == nullptr) return 0;
  std::uint32_t filled = 0;
  for (const IfNode* node = mpls_vpn_mib_get_first_if_of_vrf(vrf_name); node != nullptr && filled < count;
       node = mpls_vpn_mib_get_next_if_of_vrf(node, vrf_name)) {
    copy_interface_name(&slots[filled++], node->if_name, __func__);
  }
  *interfaces = {filled, slots};
  return filled;
}
