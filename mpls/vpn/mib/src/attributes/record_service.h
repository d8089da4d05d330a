// The daemon as a client of the record service: the private attribute block in every VRF record, look-up and
// creation of records by name, time stamps, and the two callbacks.
//
// Main thread only. The callbacks hold the record's access and take mpls_vpn_mutex inside it.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/vtab/vtab.h"

// Registers with the record service. 0, or the code of the first step that failed. Fault points: the record
// service's own.
[[nodiscard]] Status mpls_vpn_mib_vtab_init(EventManager* evm);

// The VRF's record; creates it as a forward reference (vrf_id 0) if there is none. Null when the record
// service's database cannot be locked or unlocked, or when the service creates no record.
VtabVrfRecord* get_vrf_record(const char* vrf_name);
// The first record of a greater name; a VRF of this name need not exist.
VtabVrfRecord* vrf_record_after(const char* vrf_name);
// Whether the record service has a complete record of the VRF.
bool vrf_exists(const char* vrf_name);

// Stores the platform clock's time in `field`, a time field of the record's block, and saves the VRF's
// checkpoint record. Does nothing during the initial scan of a later run: the checkpointed times remain
// valid. REQUIRES: both are not null.
void update_timestamp(const VtabVrfRecord* record, std::uint32_t* field);
// The same for conf_last_changed_time of the VRF, if the record service has it. Creates no record.
void update_vrf_last_changed(const char* vrf_name);

// The direction of an interface event, from the change codes of its two protocol states. Up in either state
// outweighs down in the other.
enum class IfChange { kNone, kUp, kDown };
IfChange mpls_vpn_mib_if_change(std::uint32_t first_code, std::uint32_t second_code);

// Called by the record service on the main event manager. The status of ending the record access, else 0.
Status vrf_cb(const char* vrf_name);
Status if_cb(const char* if_name, const char* vrf_name);
