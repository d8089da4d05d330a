#include "agent/tables/tables_test_support.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>

#include "agent/tables/l3vpn_tables.h"
#include "mpls/vpn/mib/src/records/pack.h"
#include "platform/store/tree/kvtree.h"

namespace agent_test {
namespace {

constexpr std::string_view kRoot = "/oper/mpls_vpn/gl/";
constexpr std::int32_t kLocal = 3;  // a route without next hop
constexpr std::string_view kScalars = "/oper/mpls_vpn/gl/scalars";
constexpr std::string_view kExactRoutes = "/oper/mpls_vpn/gl/route/";

std::string decode_component(const std::string& component) {
  char* text = nullptr;
  EXPECT_EQ(kvtree_string_decode(component.c_str(), &text), kStatusOk) << component;
  std::string decoded = text == nullptr ? "" : text;
  std::free(text);
  return decoded;
}

std::uint32_t number(const std::string& text) {
  std::uint32_t value = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
  EXPECT_TRUE(parsed.ec == std::errc() && parsed.ptr == text.data() + text.size()) << text;
  return value;
}

std::vector<std::string> split(std::string_view path) {
  std::vector<std::string> components(1);
  for (const char octet : path) {
    if (octet == '/') {
      components.emplace_back();
    } else {
      components.back() += octet;
    }
  }
  return components;
}

std::vector<std::uint8_t> from_hexadecimal(const std::string& text) {
  std::vector<std::uint8_t> octets;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    octets.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return octets;
}

std::vector<std::uint8_t> address(const std::string& text) {
  const bool is_ipv6 = text.find(':') != std::string::npos;
  std::vector<std::uint8_t> octets(is_ipv6 ? 16 : 4);
  EXPECT_EQ(inet_pton(is_ipv6 ? AF_INET6 : AF_INET, text.c_str(), octets.data()), 1) << text;
  return octets;
}

using PackRow = Status (*)(const KvReply&, KvColumnBatch*);

PackRow packer_of(std::string_view path) {
  path.remove_prefix(kRoot.size());
  if (path.starts_with("scalars"))
    return mib::pack_reply<mib::Scalars, kMibScalarsParcel, mib::kScalarColumns>;
  if (path.starts_with("interface"))
    return mib::pack_reply<mib::Interface, kMibInterfaceParcel, mib::kInterfaceColumns>;
  if (path.starts_with("vrf")) return mib::pack_reply<mib::Vrf, kMibVrfParcel, mib::kVrfColumns>;
  if (path.starts_with("rt"))
    return mib::pack_reply<mib::RouteTarget, kMibRtParcel, mib::kRouteTargetColumns>;
  return mib::pack_reply<mib::Route, kMibRouteParcel, mib::kRouteColumns>;
}

// In network order, so that octets have the order of the numbers.
void append(std::vector<std::uint8_t>* octets, std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8) octets->push_back(static_cast<std::uint8_t>(number >> shift));
}

}  // namespace

kvtree::Octets encode(const ParcelDescription& description, const void* record) {
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  EXPECT_EQ(parcel_encode(&description, record, &data, &length), kStatusOk);
  kvtree::Octets octets(data, data + length);
  std::free(data);
  return octets;
}

kvtree::Octets FakeDaemon::InterfaceRecord(const std::string& vrf, std::uint32_t index,
                                           std::uint8_t protocols) {
  std::string interface_name = "ge" + std::to_string(index);
  std::string vrf_name = vrf;
  const mpls_vpn_mib_interface record = {
      interface_name.data(), static_cast<std::int32_t>(index), 2, protocols, 5, 1, vrf_name.data()};
  return encode(kMibInterfaceParcel, &record);
}

FakeDaemon::Key FakeDaemon::MakeKey(const std::string& name, std::vector<std::uint8_t> rest) {
  return {name.size(), name, std::move(rest)};
}

FakeDaemon::Key FakeDaemon::MakeKey(const std::string& name, std::initializer_list<std::uint32_t> numbers) {
  std::vector<std::uint8_t> rest;
  for (const std::uint32_t number : numbers) append(&rest, number);
  return MakeKey(name, std::move(rest));
}

FakeDaemon::Key FakeDaemon::MakeKey(const RouteKey& route) {
  Key key = MakeKey(route.vrf, {route.type});
  key.rest.insert(key.rest.end(), route.destination.begin(), route.destination.end());
  append(&key.rest, route.prefix_length);
  key.rest.insert(key.rest.end(), route.next_hop.begin(), route.next_hop.end());
  return key;
}

void FakeDaemon::AddInterface(const std::string& vrf, std::uint32_t index, std::uint8_t protocols) {
  rows_["interface-next"][MakeKey(vrf, {index})] = InterfaceRecord(vrf, index, protocols);
}

void FakeDaemon::RemoveInterface(const std::string& vrf, std::uint32_t index) {
  rows_["interface-next"].erase(MakeKey(vrf, {index}));
}

void FakeDaemon::AddVrf(const std::string& name, const FakeVrf& vrf) {
  rows_["vrf-next"][MakeKey(name)] = VrfRecord(name, vrf);
}

void FakeDaemon::RemoveVrf(const std::string& name) {
  rows_["vrf-next"].erase(MakeKey(name));
  std::erase_if(rows_["route-next"], [&](const auto& route) { return route.first.name == name; });
}

void FakeDaemon::AddRouteTarget(const std::string& vrf, std::int32_t type, const std::string& text,
                                const std::string& description) {
  const std::uint32_t index = ++route_targets_[vrf];
  std::string name = vrf;
  std::string value = text;
  std::string family = description;
  const mpls_vpn_mib_rt record = {index, type, value.data(), family.data(), 1, 5, name.data()};
  rows_["rt-next"][MakeKey(vrf, {index, static_cast<std::uint32_t>(type)})] = encode(kMibRtParcel, &record);
}

void FakeDaemon::AddRoute(const std::string& vrf, const std::string& prefix, const std::string& next_hop,
                          std::int32_t type, std::vector<std::uint8_t> cross_connect) {
  const RouteKey key = route_key(vrf, prefix, next_hop);
  rows_["route-next"][MakeKey(key)] = RouteRecord(key, type, std::move(cross_connect));
}

void FakeDaemon::RemoveRoute(const std::string& vrf, const std::string& prefix, const std::string& next_hop) {
  rows_["route-next"].erase(MakeKey(route_key(vrf, prefix, next_hop)));
}

void FakeDaemon::AnswerWalksWith(std::vector<kvtree::Octets> rows, bool end) {
  canned_ = true;
  canned_walk_ = {kStatusOk, std::move(rows), end};
}

bool FakeDaemon::fails() {
  ++reads;
  if (fail_after == 0) status = kStatusIo;
  if (fail_after > 0) --fail_after;
  return status != kStatusOk;
}

void FakeDaemon::Spoil(std::vector<std::uint8_t> more, std::size_t cut) {
  spoiled_more_ = std::move(more);
  spoiled_cut_ = cut;
}

void FakeDaemon::read(const tables::BatchRequest& request, Done done) {
  paths.emplace_back(request.path);
  columns.emplace_back(request.columns.begin(), request.columns.end());
  rows_asked.push_back(request.max_rows);
  if (!delayed_) return Answer(request, done);
  under_way_.push_back({request.path, request.max_rows, columns.back(), std::move(done)});
}

void FakeDaemon::Deliver(std::size_t count) {
  for (; count > 0 && !under_way_.empty(); --count) {
    const DelayedRead read = std::move(under_way_.front());
    under_way_.pop_front();
    Answer({read.path, read.max_rows, read.columns}, read.done);
  }
}

kvtree::WalkResult FakeDaemon::Find(const tables::BatchRequest& request) {
  if (fails()) return {status, {}, false};
  if (request.path.starts_with(kExactRoutes)) return {route_status, {}, false};
  if (request.path == kScalars) return {kStatusOk, {encode(kMibScalarsParcel, &scalars)}, true};
  return canned_ ? canned_walk_ : Walk(request.path, request.max_rows);
}

void FakeDaemon::Answer(const tables::BatchRequest& request, const Done& done) {
  const kvtree::WalkResult found = Find(request);
  KvColumnBatch batch;
  batch.columns = request.columns;
  batch.packer = kvtree::ColumnPacker(request.columns.size());
  for (const kvtree::Octets& row : found.rows) {
    kvtree::Octets copy = row;
    const KvReply reply{kKvKindRecord, copy.data(), copy.size()};
    EXPECT_EQ(packer_of(request.path)(reply, &batch), kStatusOk) << request.path;
    ++batch.rows;
  }
  batch.octets.insert(batch.octets.end(), spoiled_more_.begin(), spoiled_more_.end());
  batch.octets.resize(batch.octets.size() - std::min(spoiled_cut_, batch.octets.size()));
  done({found.status, found.end, batch.rows, batch.octets});
}

kvtree::WalkResult FakeDaemon::Walk(std::string_view path, std::uint32_t max_rows) {
  EXPECT_TRUE(path.starts_with(kRoot)) << path;
  std::vector<std::string> key = split(path.substr(kRoot.size()));
  const std::string kind = key[0];
  key.erase(key.begin());
  key.at(0) = decode_component(key.at(0));
  kvtree::WalkResult result;
  result.end = true;
  for (auto row = First(kind, key); row != rows_[kind].end() && result.end; ++row) {
    result.end = result.rows.size() < max_rows;
    if (result.end) result.rows.push_back(row->second);
  }
  result.status = result.rows.empty() ? kStatusNoSuchRow : kStatusOk;
  return result;
}

// The row at or after the key; of routes the row after it, and after the start of a VRF its first.
FakeDaemon::Rows::const_iterator FakeDaemon::First(const std::string& kind,
                                                   const std::vector<std::string>& key) {
  const Rows& rows = rows_[kind];
  const std::string& name = key.at(0);
  if (kind == "vrf-next") return rows.lower_bound(MakeKey(name));
  if (kind == "interface-next") return rows.lower_bound(MakeKey(name, {number(key.at(1))}));
  if (kind == "rt-next") return rows.lower_bound(MakeKey(name, {number(key.at(1)), number(key.at(2))}));
  EXPECT_EQ(kind, "route-next");
  if (std::vector(key.begin() + 1, key.end()) == std::vector<std::string>{"1", "0", "1", "0", "0"}) {
    return rows.lower_bound(MakeKey(name));
  }
  EXPECT_EQ(key.at(1), key.at(3)) << "the family's next-hop type";
  const RouteKey after = {name, number(key.at(1)), from_hexadecimal(key.at(4)), number(key.at(2)),
                          from_hexadecimal(key.at(5))};
  EXPECT_EQ(after.destination.size(), after.type == 1 ? 4U : 16U);
  EXPECT_EQ(after.next_hop.size(), after.destination.size());
  EXPECT_LE(after.prefix_length, 8 * after.destination.size());
  return rows.upper_bound(MakeKey(after));
}

kvtree::Octets FakeDaemon::VrfRecord(const std::string& name, const FakeVrf& vrf) {
  std::string name_copy = name;
  std::string description = vrf.description;
  std::string rd = vrf.rd;
  mpls_vpn_mib_vrf record = vrf.numbers;
  record.name = name_copy.data();
  record.description = description.empty() ? nullptr : description.data();
  record.rd = rd.empty() ? nullptr : rd.data();
  return encode(kMibVrfParcel, &record);
}

kvtree::Octets FakeDaemon::RouteRecord(const RouteKey& key, std::int32_t type,
                                       std::vector<std::uint8_t> cross_connect) {
  RouteKey copy = key;
  mpls_vpn_mib_route record{};
  record.destType = static_cast<std::int32_t>(key.type);
  record.dest = {copy.destination.size(), copy.destination.data()};
  record.mask = key.prefix_length;
  record.nextHopType = type == kLocal ? 0 : record.destType;
  if (type != kLocal) record.nextHop = {copy.next_hop.size(), copy.next_hop.data()};
  record.ifIndex = 7;
  record.type = type;
  record.proto = 14;
  record.age = 60;
  record.nextHopAS = 65010;
  record.metric1 = 10;
  record.metric2 = 20;
  record.metric3 = 30;
  record.metric4 = 40;
  record.metric5 = -1;
  record.xcPointer = {cross_connect.size(), cross_connect.data()};
  record.rowStatus = 1;
  record.vrfName = copy.vrf.data();
  return encode(kMibRouteParcel, &record);
}

RouteKey route_key(const std::string& vrf, const std::string& prefix, const std::string& next_hop) {
  const std::size_t slash = prefix.find('/');
  RouteKey key;
  key.vrf = vrf;
  key.destination = address(prefix.substr(0, slash));
  key.type = key.destination.size() == 4 ? 1 : 2;
  key.prefix_length = number(prefix.substr(slash + 1));
  key.next_hop = next_hop.empty() ? std::vector<std::uint8_t>(key.destination.size()) : address(next_hop);
  return key;
}

oid::Oid parse_oid(const std::string& text) {
  oid::Oid result;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    std::uint32_t number = 0;
    at = std::from_chars(at, end, number).ptr;
    EXPECT_TRUE(result.append(number));
    if (at != end) ++at;
  }
  return result;
}

oid::Oid if_conf(std::uint32_t column, const std::string& instance) {
  oid::Oid result = parse_oid("1.3.6.1.2.1.10.166.11.1.2.1.1");
  EXPECT_TRUE(result.append(column) && result.append(parse_oid(instance).view()));
  return result;
}

oid::Oid if_conf(std::uint32_t column, const std::string& vrf, std::uint32_t index) {
  oid::Oid result = if_conf(column);
  EXPECT_TRUE(result.append(static_cast<std::uint32_t>(vrf.size())));
  for (const char octet : vrf) EXPECT_TRUE(result.append(static_cast<std::uint8_t>(octet)));
  EXPECT_TRUE(result.append(index));
  return result;
}

oid::Oid cell(const std::string& entry, std::uint32_t column, const std::string& vrf,
              const std::string& rest) {
  oid::Oid result = parse_oid("1.3.6.1.2.1.10.166.11.1." + entry);
  EXPECT_TRUE(result.append(column) && result.append(static_cast<std::uint32_t>(vrf.size())));
  for (const char octet : vrf) EXPECT_TRUE(result.append(static_cast<std::uint8_t>(octet)));
  EXPECT_TRUE(result.append(parse_oid(rest).view()));
  return result;
}

oid::Oid scalar(std::uint32_t number, const std::string& instance) {
  oid::Oid result = parse_oid("1.3.6.1.2.1.10.166.11.1.1");
  EXPECT_TRUE(result.append(number) && result.append(parse_oid(instance).view()));
  return result;
}

}  // namespace agent_test
