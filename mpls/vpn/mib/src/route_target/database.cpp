// One tree with one ordering; all state is in its nodes. The search for a VRF's first entry is
// logarithmic; access by number steps from there, since VRFs have few route targets.
#include "mpls/vpn/mib/src/route_target/database.h"

#include <cstdlib>
#include <cstring>

#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/core/base/memory.h"

namespace {

WavlTree mpls_vpn_mib_rt_dbase;

constexpr unsigned kByKey = 0;

std::uint32_t compare_by_key(const void* left, const void* right) {
  if (left == nullptr || right == nullptr) return mpls_vpn_order(left != nullptr, right != nullptr);
  const auto* first = static_cast<const RtNode*>(left);
  const auto* second = static_cast<const RtNode*>(right);
  for (const std::uint32_t order :
       {mpls_vpn_name_compare(first->vrf_name, second->vrf_name), mpls_vpn_order(first->type, second->type),
        mpls_vpn_order(first->afi, second->afi), mpls_vpn_order(first->safi, second->safi)}) {
    if (order != kWavlEqual) return order;
  }
  return mpls_vpn_name_compare(first->value, second->value);
}

RtNode key_of(const char* vrf_name, std::int32_t type, const char* value, std::uint32_t afi,
              std::uint32_t safi) {
  // The texts are only read by the compare function.
  return {{}, const_cast<char*>(vrf_name), type, afi, safi, const_cast<char*>(value)};
}

// The first entry of the VRF, or of the first one after it that has any: no stored type is below 1.
const RtNode* first_not_before(const char* vrf_name) {
  const RtNode key = key_of(vrf_name, 0, "", 0, 0);
  return static_cast<const RtNode*>(wavl_search_greater_equal(&mpls_vpn_mib_rt_dbase, kByKey, &key));
}

const RtNode* successor(const RtNode* node) {
  return static_cast<const RtNode*>(wavl_next(&mpls_vpn_mib_rt_dbase, kByKey, node));
}

bool is_of_vrf(const RtNode* node, const char* vrf_name) {
  return node->vrf_name != nullptr && vrf_name != nullptr && std::strcmp(node->vrf_name, vrf_name) == 0;
}

void free_rt_node(RtNode* node) {
  std::free(node->vrf_name);
  std::free(node->value);
  std::free(node);
}

// Null without memory for the node and its texts.
RtNode* new_rt_node(const char* vrf_name, std::int32_t type, const char* value, std::uint32_t afi,
                    std::uint32_t safi) {
  auto* node = static_cast<RtNode*>(calloc_tagged(1, sizeof(RtNode), "RT node"));
  if (node == nullptr) return nullptr;
  node->vrf_name = text_copy(vrf_name);
  node->type = type;
  node->afi = afi;
  node->safi = safi;
  node->value = text_copy(value);
  const bool has_name = node->vrf_name != nullptr || vrf_name == nullptr;
  const bool has_value = node->value != nullptr || value == nullptr;
  if (has_name && has_value) return node;
  free_rt_node(node);
  return nullptr;
}

int print_rt_fn(void* visited, void* /*argument*/) {
  const auto* node = static_cast<const RtNode*>(visited);
  mpls_vpn_debug(DBASE, "RT : vrf = %s, type = %d, value = %s, afi/safi = %u/%u\n",
                 mpls_vpn_shown(node->vrf_name), node->type, mpls_vpn_shown(node->value), node->afi,
                 node->safi);
  return 1;
}

const RtNode* report_in_vrf(const RtNode* node) {
  mpls_vpn_debug(DBASE, "Found RT in VRF = %s, type = %d, value = %s, afi/safi=%u/%u\n", node->vrf_name,
                 node->type, mpls_vpn_shown(node->value), node->afi, node->safi);
  return node;
}

// --- By index

const RtNode* report_no_rt() {
  mpls_vpn_debug(DBASE, "No RT found");
  return nullptr;
}

const RtNode* report_found(const RtNode* node, std::uint32_t index) {
  mpls_vpn_debug(DBASE, "Found RT in VRF = %s, index = %d type = %d, value = %s, afi/safi = %u/%u\n",
                 mpls_vpn_shown(node->vrf_name), static_cast<std::int32_t>(index), node->type,
                 mpls_vpn_shown(node->value), node->afi, node->safi);
  return node;
}

// The VRF has no route targets: the walk continues with the following VRF.
const RtNode* enter_following_vrf(const RtNode* node, std::uint32_t* index) {
  *index = 1;
  mpls_vpn_debug(DBASE, "Found RT in VRF = %s, index = %d, type = %d, value = %s, afi/safi = %u/%u\n",
                 node->vrf_name, 1, node->type, node->value, node->afi, node->safi);
  return node;
}

// Steps across VRFs.
const RtNode* node_at(const RtNode* first, std::uint32_t index) {
  const RtNode* node = first;
  for (std::uint32_t position = 1; node != nullptr && position < index; ++position) node = successor(node);
  return node;
}

const RtNode* answer_exact(const RtNode* node, const char* vrf_name, std::uint32_t index, std::int32_t type) {
  if (!is_of_vrf(node, vrf_name) || node->type != type) return report_no_rt();
  return report_found(node, index);
}

const RtNode* answer_next(const RtNode* node, const char* vrf_name, std::uint32_t* index, std::int32_t type) {
  if (type > node->type) {
    node = successor(node);
    if (node == nullptr) return report_no_rt();
    *index = is_of_vrf(node, vrf_name) ? *index + 1 : 1;
  }
  return report_found(node, *index);
}

}  // namespace

Status mpls_vpn_mib_rt_dbase_init() {
  mpls_vpn_debug(DBASE, "Entering (%s)", __func__);
  const WavlCompare compare[] = {compare_by_key};
  const Status rc = wavl_init(&mpls_vpn_mib_rt_dbase, 1, compare);
  if (rc == kStatusOk) mpls_vpn_trace(kTraceInit, kStatusOk, "%s", __func__);
  return rc;
}

void mpls_vpn_mib_rt_dbase_end() {
  while (auto* node = static_cast<RtNode*>(wavl_first(&mpls_vpn_mib_rt_dbase, kByKey))) {
    if (wavl_delete(&mpls_vpn_mib_rt_dbase, kByKey, node) != kStatusOk) break;
    free_rt_node(node);
  }
}

RtNode* mpls_vpn_mib_create_rt_wavl_node(const char* vrf_name, std::int32_t type, const char* value,
                                         std::uint32_t afi, std::uint32_t safi) {
  mpls_vpn_debug(DBASE, "%s: vrf_name = %s, type = %d, RT = %s, afi/safi=%u/%u", __func__,
                 mpls_vpn_shown(vrf_name), type, mpls_vpn_shown(value), afi, safi);
  RtNode* node = new_rt_node(vrf_name, type, value, afi, safi);
  if (node == nullptr) {
    // Deliberate: operators know this text for all databases.
    mpls_vpn_report_failure(DBASE, kStatusNoMemory, "Error (%s): No memory to create if node", __func__);
    return nullptr;
  }
  const Status rc = wavl_insert(&mpls_vpn_mib_rt_dbase, kByKey, node);
  if (rc == kStatusOk) return node;
  free_rt_node(node);
  mpls_vpn_report_failure(DBASE, rc, "Error (%s): Cannot insert node into WAVL tree", __func__);
  return nullptr;
}

int mpls_vpn_mib_delete_rt_wavl_node(const char* vrf_name, std::int32_t type, const char* value,
                                     std::uint32_t afi, std::uint32_t safi) {
  mpls_vpn_debug(DBASE, "Entering %s: vrf_name=%s, type=%d, RT=%s afi/safi=%u/%u", __func__,
                 mpls_vpn_shown(vrf_name), type, mpls_vpn_shown(value), afi, safi);
  const RtNode key = key_of(vrf_name, type, value, afi, safi);
  auto* node = static_cast<RtNode*>(wavl_search(&mpls_vpn_mib_rt_dbase, kByKey, &key));
  if (node == nullptr) {
    mpls_vpn_report_failure(DBASE, kStatusNoSuchRow, "%s: Cannot find matching WAVL node\n", __func__);
    return 0;
  }
  const Status rc = wavl_delete(&mpls_vpn_mib_rt_dbase, kByKey, node);
  if (rc != kStatusOk) {
    mpls_vpn_report_failure(DBASE, rc, "%s: Cannot delete node from WAVL tree\n", __func__);
    return 0;
  }
  free_rt_node(node);
  return 1;
}

const RtNode* mpls_vpn_mib_get_rt(bool exact, const char* vrf_name, std::uint32_t* index, std::int32_t type) {
  mpls_vpn_debug(DBASE, "Entering %s: vrf_name = %s, index = %u, type = %d", __func__,
                 mpls_vpn_shown(vrf_name), *index, type);
  if (*index == 0) {
    *index = 1;
    type = 0;
  }
  const RtNode* first = first_not_before(vrf_name);
  if (first == nullptr || first->vrf_name == nullptr || first->value == nullptr) return report_no_rt();
  if (!exact && !is_of_vrf(first, vrf_name)) return enter_following_vrf(first, index);
  const RtNode* node = node_at(first, *index);
  if (node == nullptr) return report_no_rt();
  return exact ? answer_exact(node, vrf_name, *index, type) : answer_next(node, vrf_name, index, type);
}

const RtNode* mpls_vpn_mib_get_first_rt_in_vrf(const char* vrf_name) {
  mpls_vpn_debug(DBASE, "Entering %s: vrf_name = %s", __func__, mpls_vpn_shown(vrf_name));
  const RtNode* node = first_not_before(vrf_name);
  if (node != nullptr && is_of_vrf(node, vrf_name)) return report_in_vrf(node);
  mpls_vpn_debug(DBASE, "No RT found for VRF %s", mpls_vpn_shown(vrf_name));
  return nullptr;
}

const RtNode* mpls_vpn_mib_get_next_rt_in_vrf(const RtNode* node, const char* vrf_name) {
  mpls_vpn_debug(DBASE, "Entering %s", __func__);
  const RtNode* next = successor(node);
  return next != nullptr && is_of_vrf(next, vrf_name) ? report_in_vrf(next) : nullptr;
}

const RtNode* mpls_vpn_mib_rt_dbase_next(const RtNode* node) {
  return successor(node);
}

bool mpls_vpn_mib_is_same_vrf(const RtNode* node, const RtNode* other) {
  return other != nullptr && is_of_vrf(node, other->vrf_name);
}

void mpls_vpn_mib_rt_dbase_walk() {
  mpls_vpn_debug(DBASE, "Start walk");
  if (wavl_walk(&mpls_vpn_mib_rt_dbase, kByKey, print_rt_fn, nullptr) == 0) {
    mpls_vpn_trace(kTraceError, kStatusInvalid, "the walk of the route-target database was stopped");
  }
  mpls_vpn_debug(DBASE, "End walk");
}
