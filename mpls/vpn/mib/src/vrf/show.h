// The show form of a VRF: what operators see of it, with its interfaces, routing tables and route targets.
// The lists of VRFs carry the same record.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/route_target/database.h"
#include "platform/core/base/status.h"
#include "platform/router/vtab/vtab.h"
#include "platform/store/tree/kvtree.h"

// Get handler of "vrf-detail": argument 0 the VRF name as given; form 2 asks for the structured form. 0 with
// a mpls_vpn_vrf record, kStatusArgumentMissing, kStatusNoSuchRow (not in the VRF database, or a forward
// reference), kStatusNoVrfRecord when the record service does not know the name, kStatusNoMemory when not
// even the name could be copied, or the encoding's status.
Status mpls_vpn_mib_prov_get_vrf_show(KvReply* reply, const RequestArgs* args);

// Get handler of "vrf-invalid-detail": a VRF that has interfaces but does not exist. kStatusNoSuchRow when it
// exists, or has no interfaces that could be shown; otherwise as above.
//
// Both take the name as it is given, in every form: where a structured request encodes it, a VRF whose name
// has octets to escape is not found. Its plain name finds it.
Status mpls_vpn_mib_prov_get_vrf_invalid(KvReply* reply, const RequestArgs* args);

// All fill functions clear the record first and put heap copies into it, which parcel_free_indirections
// releases. An array or text that finds no memory is left out, which is reported and traced; the record
// remains usable unless the VRF's name is missing. A missing argument is reported and fills nothing.

// The two walks over the interfaces of a VRF that add_ifs makes, in steps: the interfaces are counted, then
// their names are filled in. What changes meanwhile may be left out.
struct IfNamesWalk {
  bool has_begun = false;
  bool has_counted = false;
  std::uint32_t count = 0;
  std::uint32_t if_index = 0;  // of the interface visited last; 0 before the first
};

// A show record that is filled in steps. It is released with its owner until it is taken.
struct ShowInSteps {
  ShowInSteps() = default;
  ~ShowInSteps();
  ShowInSteps(const ShowInSteps&) = delete;
  ShowInSteps& operator=(const ShowInSteps&) = delete;
  mpls_vpn_vrf* take();

  mpls_vpn_vrf show{};
  IfNamesWalk names;
  bool is_filled = false;
};

// afi_index: 0 all address families, 1 IPv4, 2 IPv6. second_selector: 2 (multicast) takes no table of a given
// address family.
// False if the step was over before the end; then to be called again.
bool fill_show_vrf_parcel(ShowInSteps* filling, const VtabVrfRecord* record, std::uint32_t afi_index,
                          std::uint32_t second_selector, bool is_xml, const KvSteps* steps);
// Name and interfaces only. False if the step was over before the end; then to be called again.
bool fill_vrf_invalid_parcel(ShowInSteps* filling, const char* vrf_name, const KvSteps* steps);
void fill_table_parcel(mpls_vpn_afi_safi* entry, const VtabTableRecord* table, const VtabVrfRecord* record);
void fill_show_rt_parcel(mpls_vpn_rt* entry, const RtNode* node);

// The names of the VRF's interfaces (mpls_vpn_interfaces), "_" shown as "/". The number of names.
std::uint32_t add_ifs(ParcelArray* interfaces, const char* vrf_name);
// The same in steps: false if the step was over before the last interface.
bool add_ifs_some(IfNamesWalk* walk, ParcelArray* interfaces, const char* vrf_name, const KvSteps* steps);
// Those of the interfaces that are in no VRF.
void add_default_vrf_ifs(ParcelArray* interfaces);
// At most `slots` of the VRF's unicast and flow-rule tables (mpls_vpn_afi_safi).
void add_tables(ParcelArray* tables, const VtabVrfRecord* record, std::uint32_t afi_index,
                std::uint32_t second_selector, std::uint32_t slots);
