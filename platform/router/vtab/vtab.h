// Record service: the VRF, interface and routing-table records of the router, with a client's private
// attribute block in every VRF record.
//
// The service owns the records: it makes them from the router model and hands out pointers. A VRF record
// pointer is valid until the client's VRF callback for the deletion has ended its access, and until every
// membership client was notified of the VRF's deletion. From the deletion on no look-up finds the record. A
// record whose vrf_id is 0 is a forward reference: the VRF is named (by a client through
// vtab_create_vrf_record, or by configuration) but not created; the record becomes complete, in place and
// with its attribute block, when the VRF is created.
//
// Iteration order of VRF records: shorter names first, then by octets. Of interface records: by index. Of
// table records: by AFI, SAFI, table id.
//
// Events. A VRF record is reported as created when the service makes it, and as updated when it becomes
// complete, becomes a forward reference again, or gets other table ids. A VRF that is deleted while
// configuration names it (Router::is_referenced) retains its record and block as a forward reference: that is
// an update, not a deletion.
//
// A family of an interface is up while the interface is operationally up and has an address of that family.
// An interface is reported when this changes for a family, because of the link or of an address; when it is
// added and up, or removed while up; and when it changes its VRF while up, as down in the former VRF and up
// in the new one. While the callback runs, look-ups show every family as down that was down before or is down
// now; only when one family goes down while the other comes up, they show the state before. The record can be
// found, even if the interface was removed: states and addresses change with the delivery of the events, but
// name, VRF and index change at once. These events and those of the membership service are in one order
// (platform/router/feed).
//
// Thread: everything on the main thread. Callbacks are called by the event manager given to vtab_init, in the
// order of the changes, in bounded batches. One client per process. kStatusInvalid for null arguments.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

inline constexpr std::size_t kVtabNameSize = 64;
inline constexpr std::uint8_t kVtabStateUp = 3;  // protocol state "up"
inline constexpr std::uint8_t kVtabStateDown = 1;

struct VtabVrfRecord {
  char vrf_name[kVtabNameSize];  // first, so that the record itself prints as its name
  std::uint32_t vrf_id;          // 0: forward reference
  std::uint32_t ipv4_table_id;
  std::uint32_t ipv6_table_id;
  void* attributes;  // the client's block, zero-filled when the record is made
};

struct VtabIfRecord {
  SharedText if_name;
  SharedText vrf_name;  // "default" for an interface in no VRF
  std::uint32_t if_index = 0;
  std::uint8_t ipv4_state = kVtabStateDown;  // or kVtabStateUp
  std::uint8_t ipv6_state = kVtabStateDown;
};

struct VtabTableRecord {
  char table_name[kVtabNameSize];
  char vrf_name[kVtabNameSize];
  std::uint32_t table_id;
  std::uint32_t afi;   // 1 IPv4, 2 IPv6
  std::uint32_t safi;  // 1 unicast, 2 multicast
};

inline constexpr std::uint32_t kVtabEventCreate = 1;
inline constexpr std::uint32_t kVtabEventDelete = 2;
inline constexpr std::uint32_t kVtabEventUpdate = 3;

// Change codes of an interface's two protocol states (IPv4 first).
inline constexpr std::uint32_t kVtabNoChange = 0;
inline constexpr std::uint32_t kVtabChangedUp = 1;
inline constexpr std::uint32_t kVtabChangedDown = 2;

// Called once by the process; null detaches. A client of the former model is ended.
void vtab_attach(router::Router* model);

using VtabIfCallback = Status (*)(const char* if_name, const char* vrf_name);
using VtabVrfCallback = Status (*)(const char* vrf_name);

// Fault points are named after the operations. The attribute block's memory is "calloc_tagged:vtab
// attributes". kStatusExists while there is a client, kStatusNoMemory. All numbers are accepted.
[[nodiscard]] Status vtab_init(const char* client, EventManager* manager, std::uint32_t reserved,
                               std::size_t attribute_size, std::uint32_t first, std::uint32_t second);
// These four: kStatusInvalid without a client.
[[nodiscard]] Status vtab_specify_if_callback(VtabIfCallback callback);
[[nodiscard]] Status vtab_specify_vrf_callback(VtabVrfCallback callback);
// From here on the client gets VRF events. Records that exist can be looked up and are not reported as
// created.
[[nodiscard]] Status vtab_reg_vrf_attributes(const char* scope, std::uint32_t first, std::uint32_t second,
                                             const char* default_vrf, std::uint32_t third);
[[nodiscard]] Status vtab_reg_if_attributes(const char* scope, const char* vrf_scope, std::uint32_t first,
                                            std::uint32_t second, const char* default_vrf,
                                            std::uint32_t third, std::uint32_t fourth);

// For what is derived from the records: called inside each change after which look-ups show otherwise whether
// the VRF's record is complete, or which record, states and addresses an interface name has; ahead of the
// events, and also without a client. Must not change anything here. Null and vtab_attach end it.
void vtab_observe(void (*vrf_changed)(const char* vrf_name), void (*interface_changed)(const char* if_name));

VtabVrfRecord* vtab_get_vrf_record_by_vrf_name(const char* vrf_name);
VtabVrfRecord* vtab_get_vrf_record_by_vrf_id(std::uint32_t vrf_id);      // null for 0
VtabVrfRecord* vtab_get_vrf_record_by_table_id(std::uint32_t table_id);  // of any family; null for 0
VtabVrfRecord* vtab_get_first_vrf_record();
VtabVrfRecord* vtab_get_next_vrf_record(const VtabVrfRecord* record);
// A forward-reference record, or the existing record; null for a bad name, memory, or a fault point.
// The record is not reported to the client that made it.
VtabVrfRecord* vtab_create_vrf_record(const char* vrf_name);
// For callers that look up and create; no operation needs it. kStatusDeadlock when it is held. A failed
// release releases the lock all the same, so that one failure does not prevent every later creation.
[[nodiscard]] Status vtab_lock_dbase(const char* holder);
[[nodiscard]] Status vtab_unlock_dbase();

// Begins the access that a VRF callback must make: returns the record of the oldest undelivered event of that
// name (null without one) and the event. Ending the access of a deletion ends the record's life when the
// callback returns, or later, as described above. kStatusInvalid for ending an access that was not begun. An
// access that a callback leaves open is closed after it.
[[nodiscard]] Status vtab_lock_begin_access_vrf_record(const char* vrf_name, VtabVrfRecord** record,
                                                       std::uint32_t* event, std::uint32_t* reserved);
[[nodiscard]] Status vtab_unlock_end_access_vrf_record(VtabVrfRecord* record);
// The same for an interface callback, with the change codes of the event. The record may already have another
// name or VRF. Null, with both codes kVtabNoChange, when no event of that interface and VRF is undelivered.
[[nodiscard]] Status vtab_lock_begin_access_if_record(const char* if_name, const char* vrf_name,
                                                      VtabIfRecord** record, std::uint32_t* ipv4_change,
                                                      std::uint32_t* ipv6_change, std::uint32_t* reserved1,
                                                      std::uint32_t* reserved2);
[[nodiscard]] Status vtab_unlock_end_access_if_record(const char* vrf_name, VtabIfRecord* record);

const VtabIfRecord* vtab_get_if_record(const char* if_name);
const VtabIfRecord* vtab_get_first_if_record();
const VtabIfRecord* vtab_get_next_if_record(const VtabIfRecord* record);
// Primary IPv4 address, host order in *address. kStatusNoSuchRow when there is none.
[[nodiscard]] Status vtab_get_if_primary_ipv4_address(const VtabIfRecord* record, std::uint32_t* address);
// IPv6 addresses in order: *cursor starts at 0 and is advanced; kStatusEndOfList after the last. Four 32-bit
// words, most significant first, host order.
[[nodiscard]] Status vtab_get_if_next_ipv6_address(const VtabIfRecord* record, std::uint32_t* cursor,
                                                   std::uint32_t address[4]);

const VtabTableRecord* vtab_get_first_table_record_by_vrf_name(const char* vrf_name);
const VtabTableRecord* vtab_get_next_table_record_by_vrf_name(const char* vrf_name,
                                                              const VtabTableRecord* record);
