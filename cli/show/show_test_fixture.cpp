#include "cli/show/show_test_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <tuple>

#include "cli/output/address.h"
#include "mpls/vpn/mib/src/records/decoded.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/core/parcel/parcel.h"

namespace cli {

FakeDaemon fake;

bool FakeRouteKey::operator<(const FakeRouteKey& other) const {
  return std::tie(vrf, type, destination, length, next_hop) <
         std::tie(other.vrf, other.type, other.destination, other.length, other.next_hop);
}

namespace {

Status encode(const ParcelDescription& description, const void* record, KvReply* reply) {
  ++fake.requests;
  if (fake.failure != kStatusOk) return fake.failure;
  if (fake.gets_until_failure != 0 && --fake.gets_until_failure == 0) return kStatusIo;
  reply->kind = kKvKindRecord;
  return parcel_encode(&description, record, &reply->data, &reply->length);
}

std::vector<std::uint8_t> octets_from(const std::string& digits) {
  std::vector<std::uint8_t> octets;
  for (std::size_t at = 0; at + 1 < digits.size(); at += 2) {
    octets.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(at, 2), nullptr, 16)));
  }
  return octets;
}

std::string name_of(const RequestArgs* args) {
  if (kvtree_absent(args, 0)) return {};
  if (args->form < 2) return args->arg[0].text;
  char* decoded = nullptr;
  const Status status = kvtree_string_decode(args->arg[0].text, &decoded);
  const std::string name = status == kStatusOk ? decoded : "";
  std::free(decoded);
  return name;
}

// --- Rows of the VRF table

Status encode_vrf(const std::string& name, const FakeVrf& from, KvReply* reply) {
  FakeVrf vrf = from;
  std::string name_text = name;
  mpls_vpn_mib_vrf row{};
  row.name = name_text.data();
  row.description = vrf.description.empty() ? nullptr : vrf.description.data();
  row.rd = vrf.rd.empty() ? nullptr : vrf.rd.data();
  row.creationTime = vrf.created;
  row.confLastChanged = vrf.changed;
  row.operStatus = vrf.active == 0 ? 2 : 1;
  row.adminStatus = row.operStatus;
  row.activeInterfaces = vrf.active;
  row.associatedInterfaces = static_cast<std::uint32_t>(vrf.interfaces.size());
  row.midThresh = vrf.mid_threshold;
  row.currNumRoutes = vrf.routes;
  row.rowStatus = 1;
  row.storageType = 5;
  return encode(kMibVrfParcel, &row, reply);
}

Status get_vrf(KvReply* reply, const RequestArgs* args) {
  fake.last_form = args->form;
  const std::string name = name_of(args);
  if (name == fake.hidden_row && !name.empty()) return kStatusNoSuchRow;
  const auto vrf = fake.vrfs.find(name);
  if (vrf == fake.vrfs.end()) return fake.failure != kStatusOk ? fake.failure : kStatusNoSuchRow;
  return encode_vrf(vrf->first, vrf->second, reply);
}

Status get_vrf_next(KvReply* reply, const RequestArgs* args) {
  auto vrf = fake.vrfs.lower_bound(name_of(args));
  if (vrf != fake.vrfs.end() && vrf->first == fake.hidden_row) ++vrf;
  if (vrf == fake.vrfs.end()) return kStatusNoSuchRow;
  return encode_vrf(vrf->first, vrf->second, reply);
}

// --- Show records

// A show record with the storage of its arrays.
struct Shown {
  FakeVrf vrf;
  std::string name;
  std::vector<mpls_vpn_interfaces> interfaces;
  std::vector<std::vector<mpls_vpn_rt>> targets;
  std::vector<mpls_vpn_afi_safi> tables;
  mpls_vpn_vrf record{};

  Shown(const std::string& vrf_name, const FakeVrf& from) : vrf(from), name(vrf_name) {
    for (std::string& interface : vrf.interfaces) interfaces.push_back({interface.data()});
    for (FakeTable& table : vrf.tables) add_table(&table);
    record.VRFName = name.data();
    record.VRFDescription = vrf.description.data();
    record.RouteDistinguisher = vrf.rd.data();
    record.Interfaces = {interfaces.size(), interfaces.data()};
    record.AF = {tables.size(), tables.data()};
    record.isBigVrf = vrf.is_big ? 1 : 0;
  }

  void add_table(FakeTable* table) {
    std::vector<mpls_vpn_rt>& rows = targets.emplace_back();
    for (auto& [type, value] : table->targets) rows.push_back({type, value.data(), table->afi, table->safi});
    mpls_vpn_afi_safi& row = tables.emplace_back();
    row = {table->afi, table->safi, {rows.size(), rows.data()}, nullptr, nullptr};
    if (!table->import_policy.empty()) row.ImportRoutePolicy = table->import_policy.data();
    if (!table->export_policy.empty()) row.ExportRoutePolicy = table->export_policy.data();
  }
};

Status get_detail(KvReply* reply, const RequestArgs* args) {
  fake.last_form = args->form;
  const auto vrf = fake.vrfs.find(FakeName(args->arg[0].text));
  if (vrf == fake.vrfs.end()) return kStatusNoVrfRecord;
  const Shown shown(vrf->first, vrf->second);
  return encode(kShowVrfParcel, &shown.record, reply);
}

Status get_invalid(KvReply* reply, const RequestArgs* args) {
  const auto vrf = fake.invalid.find(name_of(args));
  if (vrf == fake.invalid.end()) return kStatusNoSuchRow;
  FakeVrf only_interfaces;
  only_interfaces.interfaces = vrf->second;
  const Shown shown(vrf->first, only_interfaces);
  return encode(kShowVrfParcel, &shown.record, reply);
}

bool passes(const FakeVrf& vrf, const RequestArgs* args) {
  const bool has_afi = args->count > 1 && !kvtree_absent(args, 1);
  const bool has_safi = args->count > 2 && !kvtree_absent(args, 2);
  bool passed = !has_afi && !has_safi;
  for (const FakeTable& table : vrf.tables) {
    if ((!has_afi || table.afi == *args->arg[1].number) && (!has_safi || table.safi == *args->arg[2].number))
      passed = true;
  }
  return passed;
}

Status add_item(const std::string& name, const FakeVrf& vrf, bool structured, KvDatalist* datalist) {
  const Shown shown(name, vrf);
  KvReply encoded{};
  if (const Status status = encode(kShowVrfParcel, &shown.record, &encoded)) return status;
  const std::string key = structured ? kvtree_encode_text(name) : name;
  const Status status =
      kvtree_datalist_add(datalist, key.c_str(), kKvKindRecord, 0, encoded.data, encoded.length);
  std::free(encoded.data);
  return status;
}

void note_list(const KvListReply* reply, const RequestArgs* args) {
  fake.last_form = args->form;
  ++fake.requests;
  fake.largest_page = std::max(fake.largest_page, reply->max_items);
}

// From the VRF of this name or the next one; with a filter that VRF alone.
Status list_details(KvListReply* reply, const RequestArgs* args) {
  note_list(reply, args);
  if (const Status status = kvtree_list_create(&reply->list)) return status;
  for (auto vrf = fake.vrfs.lower_bound(name_of(args)); vrf != fake.vrfs.end(); ++vrf) {
    const bool is_filter = args->count > 1 && !kvtree_absent(args, 0);
    if (is_filter && vrf->first != name_of(args)) break;
    if (!passes(vrf->second, args)) continue;
    if (const Status status = kvtree_list_add(reply->list, vrf->first.c_str(), 3, 0)) return status;
    if (++reply->count == reply->max_items) break;
  }
  return kStatusOk;
}

Status datalist_details(KvListReply* reply, const RequestArgs* args) {
  note_list(reply, args);
  ++fake.datalists;
  if (const Status status = kvtree_datalist_create(&reply->datalist)) return status;
  if (reply->max_items > fake.most_items) return kStatusMessageTooLarge;
  const bool is_filter = args->count > 1;
  const std::string name = fake.repeats ? "" : name_of(args);
  auto vrf = is_filter || name.empty() ? fake.vrfs.lower_bound(name) : fake.vrfs.upper_bound(name);
  for (; vrf != fake.vrfs.end(); ++vrf) {
    if (is_filter && !kvtree_absent(args, 0) && vrf->first != name) break;
    if (!passes(vrf->second, args)) continue;
    if (const Status status = add_item(vrf->first, vrf->second, args->form >= 2, reply->datalist))
      return status;
    if (++reply->count == reply->max_items) break;
  }
  return kStatusOk;
}

Status datalist_invalid(KvListReply* reply, const RequestArgs* args) {
  note_list(reply, args);
  if (const Status status = kvtree_datalist_create(&reply->datalist)) return status;
  for (auto vrf = fake.invalid.upper_bound(name_of(args)); vrf != fake.invalid.end(); ++vrf) {
    FakeVrf only_interfaces;
    only_interfaces.interfaces = vrf->second;
    if (const Status status = add_item(vrf->first, only_interfaces, false, reply->datalist)) return status;
    if (++reply->count == reply->max_items) break;
  }
  return kStatusOk;
}

// --- Interfaces, route targets, routes

Status get_scalars(KvReply* reply, const RequestArgs* /*args*/) {
  const mpls_vpn_mib_trap trap{};
  return fake.answers_traps ? encode(kMibTrapParcel, &trap, reply)
                            : encode(kMibScalarsParcel, &fake.scalars, reply);
}

Status get_interface_next(KvReply* reply, const RequestArgs* args) {
  if (kvtree_absent(args, 1)) return kStatusArgumentMissing;
  auto found = fake.interfaces.lower_bound({name_of(args), *args->arg[1].number});
  if (fake.repeats) found = fake.interfaces.begin();
  if (found == fake.interfaces.end()) return kStatusNoSuchRow;
  std::string vrf = found->first.first;
  mpls_vpn_mib_interface row{};
  row.vrfName = vrf.data();
  row.name = found->second.name.data();
  row.protocol = found->second.protocol;
  row.ifConfIndex = static_cast<std::int32_t>(found->first.second);
  row.vpnClassification = 2;
  row.storageType = 5;
  row.rowStatus = 1;
  return encode(kMibInterfaceParcel, &row, reply);
}

Status get_rt_next(KvReply* reply, const RequestArgs* args) {
  const auto found = fake.targets.lower_bound({name_of(args), *args->arg[1].number});
  if (found == fake.targets.end()) return kStatusNoSuchRow;
  std::string vrf = found->first.first;
  FakeRouteTarget target = found->second;
  mpls_vpn_mib_rt row{};
  row.vrfName = vrf.data();
  row.index = found->first.second;
  row.type = target.type;
  row.rt = target.value.data();
  if (!target.family.empty()) row.description = target.family.data();
  row.rowStatus = 1;
  row.storageType = 5;
  return encode(kMibRtParcel, &row, reply);
}

Status encode_route(const FakeRouteKey& key, const FakeRoute& from, KvReply* reply) {
  FakeRoute route = from;
  std::string vrf = key.vrf;
  std::vector<std::uint8_t> destination = octets_from(key.destination);
  std::vector<std::uint8_t> next_hop = octets_from(key.next_hop);
  const bool is_local = route.type == 3;
  mpls_vpn_mib_route row{};
  row.vrfName = vrf.data();
  row.destType = key.type;
  row.dest = {destination.size(), destination.data()};
  row.mask = key.length;
  row.nextHopType = is_local ? 0 : key.type;
  if (!is_local) row.nextHop = {next_hop.size(), next_hop.data()};
  row.ifIndex = route.if_index;
  row.type = route.type;
  row.proto = route.protocol;
  row.age = route.age;
  row.metric1 = route.metric;
  row.metric2 = row.metric3 = row.metric4 = row.metric5 = -1;
  row.xcPointer = {route.cross_connect.size(), route.cross_connect.data()};
  row.rowStatus = 1;
  return encode(kMibRouteParcel, &row, reply);
}

FakeRouteKey route_key(const RequestArgs* args) {
  return {name_of(args), static_cast<std::int32_t>(*args->arg[1].number), args->arg[4].text,
          *args->arg[2].number, args->arg[5].text};
}

// A read of a route that is not there is answered with another one, as the daemon may.
Status get_route(KvReply* reply, const RequestArgs* args) {
  auto found = fake.routes.find(route_key(args));
  if (found == fake.routes.end()) found = fake.routes.begin();
  if (found == fake.routes.end()) return kStatusNoSuchRow;
  return encode_route(found->first, found->second, reply);
}

// An all-zero key is the start of a table, whose first row is answered even if its key is that one.
Status get_route_next(KvReply* reply, const RequestArgs* args) {
  const FakeRouteKey key = route_key(args);
  const bool is_start = key.destination.find_first_not_of('0') == std::string::npos && key.length == 0 &&
                        key.next_hop.find_first_not_of('0') == std::string::npos;
  const auto found = is_start ? fake.routes.lower_bound(key) : fake.routes.upper_bound(key);
  if (found == fake.routes.end()) return kStatusNoSuchRow;
  return encode_route(found->first, found->second, reply);
}

// --- Walks: the following path by the row's own key, and one more

std::string next_name(std::string name) {
  name.back() = static_cast<char>(name.back() + 1);
  return name;
}

template <typename Row, const ParcelDescription& kDescription, std::string (*kNext)(const Row&)>
Status after(const KvReply* row, std::string* path) {
  const Decoded<Row> record(kDescription, row->data, row->length);
  if (record.status() == kStatusOk) *path = kNext(*record);
  return record.status();
}

std::string after_vrf(const mpls_vpn_mib_vrf& row) {
  return "vrf-next/" + kvtree_encode_text(next_name(row.name));
}
std::string after_interface(const mpls_vpn_mib_interface& row) {
  return "interface-next/" + kvtree_encode_text(row.vrfName) + "/" +
         std::to_string(static_cast<std::uint32_t>(row.ifConfIndex) + 1);
}
std::string after_rt(const mpls_vpn_mib_rt& row) {
  return "rt-next/" + kvtree_encode_text(row.vrfName) + "/" + std::to_string(row.index + 1) + "/0";
}

// The default route without next hop is followed by the default route with the smallest address.
std::string after_route(const mpls_vpn_mib_route& row) {
  const std::string destination = hexadecimal(octets_of(row.dest));
  std::string next_hop = hexadecimal(octets_of(row.nextHop));
  if (next_hop.find_first_not_of('0') == std::string::npos)
    next_hop = std::string(destination.size() - 1, '0') + "1";
  const std::string type = std::to_string(row.destType);
  return "route-next/" + kvtree_encode_text(row.vrfName) + "/" + type + "/" + std::to_string(row.mask) + "/" +
         type + "/" + destination + "/" + next_hop;
}

constexpr KvPathRow kPaths[] = {
    {"vrf/<s>", {.mode = 0, .get = get_vrf}},
    {"vrf-next/<s>", {.mode = kKvModeNext, .get = get_vrf_next}},
    {"vrf-detail/<s>", {.mode = 0, .get = get_detail, .list = list_details, .datalist = datalist_details}},
    {"vrf-detail-filter/<s>/<n>/<n>/<s>",
     {.mode = kKvModeNext, .list = list_details, .datalist = datalist_details}},
    {"vrf-invalid-detail/<s>", {.mode = 0, .get = get_invalid, .datalist = datalist_invalid}},
    {"scalars", {.mode = 0, .get = get_scalars}},
    {"interface-next/<s>/<n>", {.mode = kKvModeNext, .get = get_interface_next}},
    {"rt-next/<s>/<n>/<n>", {.mode = kKvModeNext, .get = get_rt_next}},
    {"route/<s>/<n>/<n>/<n>/<s>/<s>", {.mode = 0, .get = get_route}},
    {"route-next/<s>/<n>/<n>/<n>/<s>/<s>", {.mode = kKvModeNext, .get = get_route_next}},
};
constexpr KvPathTable kTable = {kPaths, std::size(kPaths)};
constexpr KvWalkRule kWalkRules[] = {
    {"vrf-next", after<mpls_vpn_mib_vrf, kMibVrfParcel, after_vrf>},
    {"interface-next", after<mpls_vpn_mib_interface, kMibInterfaceParcel, after_interface>},
    {"rt-next", after<mpls_vpn_mib_rt, kMibRtParcel, after_rt>},
    {"route-next", after<mpls_vpn_mib_route, kMibRouteParcel, after_route>}};

Status provide(const KvRequest* request, KvReply* reply) {
  return kvtree_match_get(request, &kTable, reply);
}
Status provide_list(const KvRequest* request, KvListReply* reply) {
  return kvtree_match_list(request, &kTable, reply);
}
Status provide_datalist(const KvRequest* request, KvListReply* reply) {
  return kvtree_match_datalist(request, &kTable, reply);
}

}  // namespace

void ShowCommand::SetUp() {
  ServedCommandLine::SetUp();
  fake = FakeDaemon{};
  const KvProviderFunctions functions = {provide, provide_list, provide_datalist, kWalkRules,
                                         std::size(kWalkRules)};
  ASSERT_EQ(kvtree_register_prov2(provider_, "", manager_, &functions, 0, 1), kStatusOk);
  ASSERT_EQ(mpls_vpn_mib_parcel_register(), kStatusOk);
  ASSERT_EQ(mpls_vpn_parcel_register(), kStatusOk);
}

void ShowCommand::TearDown() {
  ServedCommandLine::TearDown();
  parcel_registry_reset();
}

std::vector<std::string> ShowCommand::NamesOf(const Json& list) const {
  std::vector<std::string> names;
  for (const Json& item : list) names.push_back(item["name"]);
  return names;
}

void ShowCommand::AddRoute(const std::string& vrf, const std::string& destination, std::uint32_t length,
                           const std::string& next_hop, FakeRoute route) {
  const std::int32_t type = destination.size() == 8 ? 1 : 2;
  const std::string zeros(destination.size(), '0');
  fake.routes[{vrf, type, destination, length, next_hop.empty() ? zeros : next_hop}] = std::move(route);
}

}  // namespace cli
