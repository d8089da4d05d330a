// A look-up costs a few comparisons whatever the number of records, and so does the step from one record
// to the next: it looks the record's key up again, so a walk survives changes between its steps.
#include "platform/router/vtab/vtab.h"

#include <optional>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/router/vtab/service.h"

namespace {

using vtab::IfNode;
using vtab::service;
using vtab::VrfNode;

Status check_client(const char* operation, bool arguments_are_there) {
  if (Status status = fault_check(operation)) return status;
  return arguments_are_there && service().client.manager != nullptr ? kStatusOk : kStatusInvalid;
}

std::uint32_t word(const std::uint8_t* octets) {
  return std::uint32_t{octets[0]} << 24 | std::uint32_t{octets[1]} << 16 | std::uint32_t{octets[2]} << 8 |
         octets[3];
}

// The n-th address of the family, counted from 0.
std::optional<router::Address> nth_address(const VtabIfRecord* record, router::Family family,
                                           std::uint32_t n) {
  for (const router::Address& address : static_cast<const IfNode*>(record)->addresses) {
    if (address.family == family && n-- == 0) return address;
  }
  return std::nullopt;
}

const VtabTableRecord* table_from(const VrfNode* node, std::size_t place) {
  for (; place < node->tables.size(); ++place) {
    if (node->tables[place].table_id != 0) return &node->tables[place];
  }
  return nullptr;
}

}  // namespace

void vtab_attach(router::Router* model) {
  service().attach(model);
}

Status vtab_init(const char* client, EventManager* manager, std::uint32_t reserved,
                 std::size_t attribute_size, std::uint32_t first, std::uint32_t second) {
  if (Status status = fault_check("vtab_init")) return status;
  if (client == nullptr || manager == nullptr) return kStatusInvalid;
  if (Status status = service().start_client(client, manager, attribute_size)) return status;
  service().client.init_numbers = {reserved, first, second};
  return kStatusOk;
}

Status vtab_specify_if_callback(VtabIfCallback callback) {
  if (Status status = check_client("vtab_specify_if_callback", callback != nullptr)) return status;
  service().client.if_callback = callback;
  return kStatusOk;
}

Status vtab_specify_vrf_callback(VtabVrfCallback callback) {
  if (Status status = check_client("vtab_specify_vrf_callback", callback != nullptr)) return status;
  service().client.vrf_callback = callback;
  return kStatusOk;
}

Status vtab_reg_vrf_attributes(const char* scope, std::uint32_t first, std::uint32_t second,
                               const char* default_vrf, std::uint32_t third) {
  const bool are_there = scope != nullptr && default_vrf != nullptr;
  if (Status status = check_client("vtab_reg_vrf_attributes", are_there)) return status;
  service().client.has_vrf_events = true;
  service().client.vrf_texts = {scope, default_vrf};
  service().client.vrf_numbers = {first, second, third};
  return kStatusOk;
}

Status vtab_reg_if_attributes(const char* scope, const char* vrf_scope, std::uint32_t first,
                              std::uint32_t second, const char* default_vrf, std::uint32_t third,
                              std::uint32_t fourth) {
  const bool are_there = scope != nullptr && vrf_scope != nullptr && default_vrf != nullptr;
  if (Status status = check_client("vtab_reg_if_attributes", are_there)) return status;
  service().client.has_if_events = true;
  service().client.if_texts = {scope, vrf_scope, default_vrf};
  service().client.if_numbers = {first, second, third, fourth};
  return kStatusOk;
}

void vtab_observe(void (*vrf_changed)(const char*), void (*interface_changed)(const char*)) {
  service().vrfs.changed = vrf_changed;
  service().interfaces.changed = interface_changed;
}

VtabVrfRecord* vtab_get_vrf_record_by_vrf_name(const char* vrf_name) {
  return vrf_name == nullptr ? nullptr : service().vrfs.find(vrf_name);
}

VtabVrfRecord* vtab_get_vrf_record_by_vrf_id(std::uint32_t vrf_id) {
  return service().vrfs.find_by_id(vrf_id);
}

VtabVrfRecord* vtab_get_vrf_record_by_table_id(std::uint32_t table_id) {
  return service().vrfs.find_by_table(table_id);
}

VtabVrfRecord* vtab_get_first_vrf_record() {
  return service().vrfs.first();
}

VtabVrfRecord* vtab_get_next_vrf_record(const VtabVrfRecord* record) {
  return record == nullptr ? nullptr : service().vrfs.after(record->vrf_name);
}

VtabVrfRecord* vtab_create_vrf_record(const char* vrf_name) {
  if (fault_check("vtab_create_vrf_record") != kStatusOk) return nullptr;
  if (vrf_name == nullptr || !router::valid_vrf_name(vrf_name)) return nullptr;
  return service().find_or_add(vrf_name);
}

Status vtab_lock_dbase(const char* holder) {
  if (Status status = fault_check("vtab_lock_dbase")) return status;
  if (holder == nullptr || *holder == '\0') return kStatusInvalid;
  if (!service().lock_holder.empty()) {
    log_error("record service", "%s asks for the lock that %s holds", holder, service().lock_holder.c_str());
    return kStatusDeadlock;
  }
  service().lock_holder = holder;
  return kStatusOk;
}

Status vtab_unlock_dbase() {
  const bool was_held = !service().lock_holder.empty();
  service().lock_holder.clear();
  if (Status status = fault_check("vtab_unlock_dbase")) return status;
  return was_held ? kStatusOk : kStatusInvalid;
}

Status vtab_lock_begin_access_vrf_record(const char* vrf_name, VtabVrfRecord** record, std::uint32_t* event,
                                         std::uint32_t* reserved) {
  const bool are_there = vrf_name != nullptr && record != nullptr && event != nullptr && reserved != nullptr;
  if (Status status = check_client("vtab_lock_begin_access_vrf_record", are_there)) return status;
  *record = nullptr;
  *event = 0;
  *reserved = 0;
  const auto matches = [vrf_name](const vtab::VrfEvent& each) {
    return !each.was_taken && std::string_view(vrf_name) == each.node->vrf_name;
  };
  auto* const oldest = feed::find_oldest<vtab::VrfEvent>(matches);
  if (oldest == nullptr) return kStatusOk;
  oldest->was_taken = true;
  service().client.vrf_in_access = oldest->node;
  *record = oldest->node;
  *event = oldest->code;
  return kStatusOk;
}

Status vtab_unlock_end_access_vrf_record(VtabVrfRecord* record) {
  if (Status status = fault_check("vtab_unlock_end_access_vrf_record")) return status;
  VrfNode*& in_access = service().client.vrf_in_access;
  if (record == nullptr || record != in_access) return kStatusInvalid;
  in_access = nullptr;
  return kStatusOk;
}

Status vtab_lock_begin_access_if_record(const char* if_name, const char* vrf_name, VtabIfRecord** record,
                                        std::uint32_t* ipv4_change, std::uint32_t* ipv6_change,
                                        std::uint32_t* reserved1, std::uint32_t* reserved2) {
  const bool are_there = if_name != nullptr && vrf_name != nullptr && record != nullptr &&
                         ipv4_change != nullptr && ipv6_change != nullptr && reserved1 != nullptr &&
                         reserved2 != nullptr;
  if (Status status = check_client("vtab_lock_begin_access_if_record", are_there)) return status;
  *record = nullptr;
  *ipv4_change = *ipv6_change = kVtabNoChange;
  *reserved1 = *reserved2 = 0;
  const auto matches = [&](const vtab::StateEvent& event) {
    return !event.was_taken && service().interfaces.known_name(*event.node) == if_name &&
           event.vrf_name == vrf_name;
  };
  auto* const oldest = feed::find_oldest<vtab::StateEvent>(matches);
  if (oldest == nullptr) return kStatusOk;
  oldest->was_taken = true;
  service().client.interface_in_access = oldest->node;
  *ipv4_change = oldest->change.ipv4;
  *ipv6_change = oldest->change.ipv6;
  *record = oldest->node;
  return kStatusOk;
}

Status vtab_unlock_end_access_if_record(const char* vrf_name, VtabIfRecord* record) {
  if (Status status = fault_check("vtab_unlock_end_access_if_record")) return status;
  IfNode*& in_access = service().client.interface_in_access;
  if (vrf_name == nullptr || record == nullptr || record != in_access) return kStatusInvalid;
  in_access = nullptr;
  return kStatusOk;
}

const VtabIfRecord* vtab_get_if_record(const char* if_name) {
  return if_name == nullptr ? nullptr : service().interfaces.find(if_name);
}

const VtabIfRecord* vtab_get_first_if_record() {
  return service().interfaces.first();
}

const VtabIfRecord* vtab_get_next_if_record(const VtabIfRecord* record) {
  return record == nullptr ? nullptr : service().interfaces.after(record->if_index);
}

Status vtab_get_if_primary_ipv4_address(const VtabIfRecord* record, std::uint32_t* address) {
  if (Status status = fault_check("vtab_get_if_primary_ipv4_address")) return status;
  if (record == nullptr || address == nullptr) return kStatusInvalid;
  const auto primary = nth_address(record, router::Family::kIpv4, 0);
  if (!primary) return kStatusNoSuchRow;
  *address = word(primary->octets.data());
  return kStatusOk;
}

Status vtab_get_if_next_ipv6_address(const VtabIfRecord* record, std::uint32_t* cursor,
                                     std::uint32_t address[4]) {
  if (Status status = fault_check("vtab_get_if_next_ipv6_address")) return status;
  if (record == nullptr || cursor == nullptr || address == nullptr) return kStatusInvalid;
  const auto next = nth_address(record, router::Family::kIpv6, *cursor);
  if (!next) return kStatusEndOfList;
  for (std::size_t n = 0; n < 4; ++n) address[n] = word(next->octets.data() + 4 * n);
  ++*cursor;
  return kStatusOk;
}

const VtabTableRecord* vtab_get_first_table_record_by_vrf_name(const char* vrf_name) {
  const VrfNode* node = vrf_name == nullptr ? nullptr : service().vrfs.find(vrf_name);
  return node == nullptr ? nullptr : table_from(node, 0);
}

const VtabTableRecord* vtab_get_next_table_record_by_vrf_name(const char* vrf_name,
                                                              const VtabTableRecord* record) {
  const VrfNode* node = vrf_name == nullptr ? nullptr : service().vrfs.find(vrf_name);
  if (node == nullptr || record == nullptr) return nullptr;
  return table_from(node, std::size_t{record->afi - 1} * 2 + record->safi);
}
