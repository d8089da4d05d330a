// Stored names have "_" where the interface's name has "/"; this file restores the "/". The interfaces of
// a VRF are its nodes in the interface database; those of no VRF are only in the record service. The walk
// of a VRF's nodes repairs the database on the way and may find nodes that were not counted.
#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/vrf/show.h"
#include "platform/core/base/memory.h"
#include "platform/router/model/default_vrf.h"

namespace {

constexpr std::size_t kNameSize = 64;
constexpr char kAddIfs[] = "add_ifs";

void copy_interface_name(mpls_vpn_interfaces* slot, const char* stored, const char* function) {
  std::array<char, kNameSize> name{};
  std::snprintf(name.data(), name.size(), "%s", stored == nullptr ? "" : stored);
  std::replace(name.begin(), name.end(), '_', '/');
  prov_copy_inner_text(&slot->InterfaceName, name.data(), function);
}

bool is_in_default_vrf(const VtabIfRecord* record) {
  return record->vrf_name == router::kDefaultVrf;
}

// Null for none, and after a failure, which is reported.
mpls_vpn_interfaces* allocate_names(std::uint32_t count, const char* tag, const char* function) {
  if (count == 0) return nullptr;
  auto* slots = static_cast<mpls_vpn_interfaces*>(calloc_tagged(count, sizeof(mpls_vpn_interfaces), tag));
  if (slots == nullptr)
    mpls_vpn_report_failure(PROV, kStatusNoMemory, "Cannot allocate memory in function %s", function);
  return slots;
}

const IfNode* next_of_walk(const IfNamesWalk& walk, const char* vrf_name) {
  if (walk.if_index == 0) return mpls_vpn_mib_get_first_if_of_vrf(vrf_name);
  const IfNode* node = mpls_vpn_mib_if_dbase_after(vrf_name, walk.if_index);
  const bool is_of_vrf = node != nullptr && node->vrf_name != nullptr && vrf_name != nullptr &&
                         std::string_view(node->vrf_name) == vrf_name;
  return is_of_vrf ? node : nullptr;
}

// Visits the nodes of the VRF that the walk has not visited. False if the step was over before the last.
template <typename Visit>
bool visit_nodes(IfNamesWalk* walk, const char* vrf_name, const KvSteps* steps, const Visit& visit) {
  for (const IfNode* node = next_of_walk(*walk, vrf_name); node != nullptr;
       node = mpls_vpn_mib_get_next_if_of_vrf(node, vrf_name)) {
    visit(*node);
    if (steps == nullptr || !steps->is_over()) continue;
    walk->if_index = node->if_index;
    return false;
  }
  walk->if_index = 0;
  return true;
}

// Stores the names of the interfaces that the walk visits, at most as many as a first walk has counted. The
// number of names.
template <typename Walk>
std::uint32_t add_names(ParcelArray* interfaces, const char* tag, const char* function, const Walk& walk) {
  *interfaces = {};
  std::uint32_t count = 0;
  walk([&](const char*) { ++count; });
  mpls_vpn_interfaces* const slots = allocate_names(count, tag, function);
  if (slots == nullptr) return 0;
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
      if (is_in_default_vrf(record)) visit(record->if_name.c_str());
    }
  });
}

bool add_ifs_some(IfNamesWalk* walk, ParcelArray* interfaces, const char* vrf_name, const KvSteps* steps) {
  if (!std::exchange(walk->has_begun, true)) {
    *interfaces = {};
    (void)mpls_vpn_mib_clean_if_dbase();  // nodes that could not be repaired are shown too
  }
  if (!walk->has_counted) {
    if (!visit_nodes(walk, vrf_name, steps, [walk](const IfNode&) { ++walk->count; })) return false;
    walk->has_counted = true;
    interfaces->elements = allocate_names(walk->count, "If in VRF", kAddIfs);
  }
  if (interfaces->elements == nullptr) return true;
  auto* slots = static_cast<mpls_vpn_interfaces*>(interfaces->elements);
  return visit_nodes(walk, vrf_name, steps, [=](const IfNode& node) {
    if (interfaces->count < walk->count)
      copy_interface_name(&slots[interfaces->count++], node.if_name, kAddIfs);
  });
}

std::uint32_t add_ifs(ParcelArray* interfaces, const char* vrf_name) {
  IfNamesWalk walk;
  (void)add_ifs_some(&walk, interfaces, vrf_name, nullptr);  // without steps it has an end
  return static_cast<std::uint32_t>(interfaces->count);
}
