// A batch continues where a single next read would: after a key in the tables of one family, IPv4 before
// IPv6, then in the VRFs that follow from their first route. The modules answer an all-zero key with the
// table's first row, so the row after a default route without next hop is looked for after the only key that
// could be in between.
#include "mpls/vpn/mib/src/route/columns.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>
#include <vector>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/records/pack.h"
#include "mpls/vpn/mib/src/route/modules.h"
#include "mpls/vpn/mib/src/route/row.h"
#include "mpls/vpn/mib/src/vrf/database.h"
#include "mpls/vpn/mib/src/walk/internal.h"
#include "platform/core/address/address.h"

namespace {

constexpr std::span<const mib::Column<mib::Route>> kRouteBatchColumns = mib::kRouteColumns;
constexpr char kReader[] = "mpls_vpn_mib_read_route_columns";
constexpr std::uint32_t kRowsPerLook = 16;  // between two looks at the clock

using Address = std::array<std::uint8_t, 16>;

// The key after which to read; without it, from the first row.
struct Key {
  bool is_start = true;
  Address destination{};
  std::uint32_t prefix_length = 0;
  Address next_hop{};

  bool is_zero() const { return prefix_length == 0 && destination == Address{} && next_hop == Address{}; }
};

// A row and what its pointers refer to.
struct FoundRow {
  mpls_vpn_mib_route row{};
  Key key;
  std::uint8_t cross_connect[kLfxIndexMax] = {};
};

struct BatchReading {
  KvColumnBatch* batch;
  bool wants_cross_connect;
};

// --- The families

struct Ipv4Routes {
  static constexpr std::uint32_t kAfi = inet::kIpv4Afi;
  static constexpr std::size_t kSize = 4;
  static bool load() { return mpls_vpn_mib_rib_ipv4_route_load_dll(); }

  static std::uint32_t number(const std::uint8_t* octets) {
    std::uint32_t network_order = 0;
    std::memcpy(&network_order, octets, kSize);
    return network_order;
  }

  static bool find(const BatchReading& reading, std::uint32_t kind, std::uint32_t table, const Key& key,
                   FoundRow* found) {
    const Ipv4RoutePointer route(mpls_vpn_mib_rib_ipv4_find_route()(
        0, kind, table, 0, number(key.destination.data()), number(inet::mask_of(key.prefix_length).data()), 0,
        number(key.next_hop.data())));
    if (route == nullptr) return false;
    std::memcpy(found->key.destination.data(), &route->destination, kSize);
    std::memcpy(found->key.next_hop.data(), &route->next_hop, kSize);
    route_fill_numbers(&found->row, *route, kInetAddressIpv4);
    found->row.mask = route_prefix_length(*route);
    found->row.nextHopAS = 0;
    found->row.metric5 = route->metric4;  // as in the records
    std::size_t length = 0;
    if (reading.wants_cross_connect) length = route_find_cross_connect(*route, table, found->cross_connect);
    found->row.xcPointer = {length, found->cross_connect};
    return true;
  }
};

struct Ipv6Routes {
  static constexpr std::uint32_t kAfi = inet::kIpv6Afi;
  static constexpr std::size_t kSize = 16;
  static bool load() { return mpls_vpn_mib_rib_ipv6_route_load_dll(); }

  static bool find(const BatchReading& /*reading*/, std::uint32_t kind, std::uint32_t table, const Key& key,
                   FoundRow* found) {
    const inet::Octets mask = inet::mask_of(key.prefix_length);
    const Ipv6RoutePointer route(mpls_vpn_mib_rib_ipv6_find_route()(0, kind, table, 0, key.destination.data(),
                                                                    mask.data(), 0, key.next_hop.data()));
    if (route == nullptr) return false;
    std::copy_n(route->destination->octets, kSize, found->key.destination.begin());
    found->key.next_hop = {};
    std::copy_n(route->next_hop->octets, route->next_hop->length, found->key.next_hop.begin());
    route_fill_numbers(&found->row, *route, kInetAddressIpv6);
    found->row.mask = route->prefix_length;
    found->row.nextHopAS = route->next_hop_as;
    found->row.metric5 = route->metric5;
    found->row.xcPointer = {0, found->cross_connect};
    return true;
  }
};

// --- Rows of one VRF

template <typename Family>
bool find_after(const BatchReading& reading, std::uint32_t table, const Key& key, FoundRow* found) {
  if (key.is_start || !key.is_zero()) return Family::find(reading, kForwardmibNext, table, key, found);
  Key between = key;
  between.next_hop[Family::kSize - 1] = 1;
  return Family::find(reading, kForwardmibExact, table, between, found) ||
         Family::find(reading, kForwardmibNext, table, between, found);
}

template <typename Family>
void pack(const BatchReading& reading, const VtabVrfRecord& record, FoundRow* found) {
  mpls_vpn_mib_route* const row = &found->row;
  found->key.is_start = false;
  found->key.prefix_length = row->mask;
  row->dest = {Family::kSize, found->key.destination.data()};
  row->nextHop = {row->nextHopType == 0 ? 0 : Family::kSize, found->key.next_hop.data()};
  row->vrfName = const_cast<char*>(record.vrf_name);
  mib::pack_record(*row, kRouteBatchColumns, reading.batch);
  ++reading.batch->rows;
}

bool is_over(const KvColumnBatch& batch) {
  return batch.steps != nullptr && batch.rows % kRowsPerLook == 0 && batch.rows > 0 && batch.steps->is_over();
}

std::vector<std::uint32_t> tables_of(const VtabVrfRecord& record, std::uint32_t afi) {
  std::vector<std::uint32_t> tables;
  for (const VtabTableRecord* table = vtab_get_first_table_record_by_vrf_name(record.vrf_name);
       table != nullptr; table = vtab_get_next_table_record_by_vrf_name(record.vrf_name, table)) {
    if (table->afi == afi) tables.push_back(table->table_id);
  }
  return tables;
}

// kStatusOk: the batch is full. kStatusNoSuchRow: the tables have no more.
template <typename Family>
Status read_family(const BatchReading& reading, const VtabVrfRecord& record, const Key& start) {
  const std::vector<std::uint32_t> tables = tables_of(record, Family::kAfi);
  if (tables.empty() || !Family::load()) return kStatusNoSuchRow;
  FoundRow found;
  found.key = start;
  while (!reading.batch->is_full()) {
    if (is_over(*reading.batch)) return kStatusUnfinished;
    errno = 0;
    const Key key = found.key;
    const bool is_found = std::ranges::any_of(
        tables, [&](std::uint32_t table) { return find_after<Family>(reading, table, key, &found); });
    if (!is_found) return errno == ENOMEM ? kStatusNoMemory : kStatusNoSuchRow;
    pack<Family>(reading, record, &found);
  }
  return kStatusOk;
}

Status read_vrf(const BatchReading& reading, const VtabVrfRecord& record, bool from_ipv6, const Key& start) {
  Status rc = kStatusNoSuchRow;
  if (!from_ipv6) rc = read_family<Ipv4Routes>(reading, record, start);
  if (rc != kStatusNoSuchRow) return rc;
  return read_family<Ipv6Routes>(reading, record, from_ipv6 ? start : Key{});
}

// --- The request

constexpr std::size_t kComponents = 7;  // route-next, VRF, type, length, next-hop type, destination, next hop

struct Start {
  std::string vrf_name;
  bool is_ipv6 = false;
  Key key;
};

bool read_number(std::string_view text, std::uint32_t* number) {
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), *number);
  return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

bool read_key(const std::string_view (&components)[kComponents], std::size_t size, Key* key) {
  key->is_start = false;
  const std::string destination(components[5]);
  const std::string next_hop(components[6]);
  return read_number(components[3], &key->prefix_length) && key->prefix_length <= 8 * size &&
         destination.size() == 2 * size && next_hop.size() == 2 * size &&
         route_read_address(destination.c_str(), key->destination.data(), kReader) &&
         route_read_address(next_hop.c_str(), key->next_hop.data(), kReader);
}

bool read_start(std::string_view path, Start* start) {
  std::string_view components[kComponents];
  if (!split_path(path, components, kComponents) || !decode_vrf_name(components[1], &start->vrf_name))
    return false;
  start->is_ipv6 = components[2] == "2";
  if (!start->is_ipv6 && components[2] != "1") return false;
  if (components[3] == "0" && components[5] == kNoAddressText && components[6] == kNoAddressText) return true;
  return read_key(components, start->is_ipv6 ? Ipv6Routes::kSize : Ipv4Routes::kSize, &start->key);
}

// The VRF that a step read last.
struct LastVrf {
  std::string name;
};

Status read_vrfs(const BatchReading& reading, const VrfNode* node, Start start) {
  KvSteps* const steps = reading.batch->steps;
  for (; node != nullptr && mpls_vpn_mib_vrf_node_validate(node) == kStatusOk;
       node = mpls_vpn_mib_vrf_dbase_next(node)) {
    const bool is_asked = start.vrf_name == node->vrf_name;
    const Status rc =
        read_vrf(reading, *node->vrf_rec, is_asked && start.is_ipv6, is_asked ? start.key : Key{});
    if (rc != kStatusNoSuchRow) return rc;
    if (steps == nullptr || !steps->is_over()) continue;
    steps->state = LastVrf{node->vrf_name};
    return kStatusUnfinished;
  }
  reading.batch->end = true;
  return reading.batch->rows > 0 ? kStatusOk : kStatusNoSuchRow;
}

}  // namespace

Status mpls_vpn_mib_read_route_columns(const KvRequest* request, KvColumnBatch* batch) {
  if (!mib::has_columns(kRouteBatchColumns, batch->columns)) return kStatusInvalid;
  const BatchReading reading{batch, mib::has_column(kRouteBatchColumns, batch->columns, "xcPointer")};
  const auto* last = batch->steps == nullptr ? nullptr : std::any_cast<LastVrf>(&batch->steps->state);
  if (last != nullptr) return read_vrfs(reading, mpls_vpn_mib_vrf_dbase_after(last->name.c_str()), {});
  Start start;
  if (!read_start(kvtree_request_path(request), &start)) return kStatusBadKey;
  mpls_vpn_debug(RIB, "%s: VRF %s, at most %u rows", kReader, start.vrf_name.c_str(), batch->max_rows);
  return read_vrfs(reading, mpls_vpn_mib_get_vrf_node(false, start.vrf_name.c_str()), start);
}
