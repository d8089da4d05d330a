// The daemon as a client of the record service: the private attribute block in every VRF record, records
// found or made by name, the time stamps, and the two callbacks.
//
// Threads: everything on the main thread. Attribute blocks are read and written there without a lock; the
// callbacks hold the record's access first and mpls_vpn_mutex inside it.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/mpls_vpn_mib_if_dbase.h"
#include "platform/base/status.h"
#include "platform/evm/evm.h"
#include "platform/vtab/vtab.h"

inline constexpr unsigned kMplsVpnFamilies = 2;  // element 0 IPv4, element 1 IPv6

// What the daemon knows of a VRF beyond its membership. The record service hands the block over zero-filled
// and keeps it as long as the record. The texts are heap copies; whoever replaces one frees the old copy.
// Times are seconds since 1970-01-01 00:00:00 UTC.
struct mpls_vpn_vrf_attr {
  char* rd;           // route distinguisher, may be null
  char* description;  // may be null
  std::uint32_t creation_time;
  std::uint32_t conf_last_changed_time;
  std::uint32_t protocol_count[kMplsVpnProtocols];  // VRF-wide enablings in force, by routing protocol
  std::uint64_t chkpt_objid;                        // 0: no checkpoint record
  std::uint32_t high_thresh;                        // routes
  std::uint32_t mid_thresh;                         // routes
  char* import_route_policy[kMplsVpnFamilies];
  char* export_route_policy[kMplsVpnFamilies];
  std::uint32_t curr_num_routes;
  std::uint32_t high_thresh_exceeded;                    // 0 or 1
  std::uint32_t is_big_vrf;                              // 0 or 1
  char* flowspec_import_route_policy[kMplsVpnFamilies];  // SAFI 133; never written
  char* flowspec_export_route_policy[kMplsVpnFamilies];
};

// The block of a record. REQUIRES: record is not null, and was made after mpls_vpn_mib_vtab_init.
inline mpls_vpn_vrf_attr* mpls_vpn_vrf_attributes(const VtabVrfRecord* record) {
  return static_cast<mpls_vpn_vrf_attr*>(record->attributes);
}

// Registers with the record service. 0, or the code of the first step that failed. Fault points: the record
// service's own.
[[nodiscard]] Status mpls_vpn_mib_vtab_init(EventManager* evm);

// The VRF's record, made (as a forward reference, vrf_id 0) if there is none. Null when the record service's
// database cannot be locked, unlocked again, or gives no record.
VtabVrfRecord* get_vrf_record(const char* vrf_name);

// Stores the time of the platform clock in `field`, a time field of the record's block, and saves the VRF's
// checkpoint record. Does nothing during the initial scan of a later run: the times of before hold.
// REQUIRES: both not null.
void update_timestamp(const VtabVrfRecord* record, std::uint32_t* field);
// The same for conf_last_changed_time of the VRF, if the record service knows it. Makes no record.
void update_vrf_last_changed(const char* vrf_name);

// Which way an interface went, from the change codes of its two protocol states. One that came up with either
// state is up, also when the other went down.
enum class IfChange { kNone, kUp, kDown };
IfChange mpls_vpn_mib_if_change(std::uint32_t first_code, std::uint32_t second_code);

// Called by the record service on the main event manager. The status of ending the record access, else 0.
Status vrf_cb(const char* vrf_name);
Status if_cb(const char* if_name, const char* vrf_name);
