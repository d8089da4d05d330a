// See tables_test_support.h.
#include "agent/tables/tables_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <tuple>

#include "agent/tables/l3vpn_tables.h"
#include "platform/kvtree/kvtree.h"

namespace agent_test {
namespace {

constexpr std::string_view kInterfaces = "/oper/mpls_vpn/gl/interface-next/";
constexpr std::string_view kScalars = "/oper/mpls_vpn/gl/scalars";

kvtree::Octets encode(const ParcelDescription& description, const void* record) {
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  EXPECT_EQ(parcel_encode(&description, record, &data, &length), kStatusOk);
  kvtree::Octets octets(data, data + length);
  std::free(data);
  return octets;
}

InterfaceKey key_of(std::string_view path) {
  EXPECT_TRUE(path.starts_with(kInterfaces)) << path;
  const std::string key(path.substr(kInterfaces.size()));
  const std::size_t slash = key.find('/');
  EXPECT_NE(slash, std::string::npos) << path;
  InterfaceKey result;
  char* name = nullptr;
  EXPECT_EQ(kvtree_string_decode(key.substr(0, slash).c_str(), &name), kStatusOk) << path;
  result.vrf = name == nullptr ? "" : name;
  std::free(name);
  const char* const end = key.data() + key.size();
  const auto parsed = std::from_chars(key.data() + slash + 1, end, result.index);
  EXPECT_TRUE(parsed.ec == std::errc() && parsed.ptr == end) << path;
  return result;
}

}  // namespace

kvtree::Octets FakeDaemon::InterfaceRecord(const std::string& vrf, std::uint32_t index,
                                           std::uint8_t protocols) {
  std::string interface_name = "ge" + std::to_string(index);
  std::string vrf_name = vrf;
  const mpls_vpn_mib_interface record = {
      interface_name.data(), static_cast<std::int32_t>(index), 2, protocols, 5, 1, vrf_name.data()};
  return encode(kMibInterfaceParcel, &record);
}

void FakeDaemon::AddInterface(const std::string& vrf, std::uint32_t index, std::uint8_t protocols) {
  interfaces_[{vrf, index}] = protocols;
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

kvtree::GetResult FakeDaemon::get(std::string_view path) {
  paths.emplace_back(path);
  if (fails()) return {status, {}};
  if (path != kScalars) return {kStatusUnknownPath, {}};
  return {kStatusOk, encode(kMibScalarsParcel, &scalars)};
}

kvtree::WalkResult FakeDaemon::walk(std::string_view path, std::uint32_t max_rows) {
  paths.emplace_back(path);
  if (fails()) return {status, {}, false};
  if (canned_) return canned_walk_;
  kvtree::WalkResult result;
  auto next = interfaces_.lower_bound(key_of(path));
  for (; next != interfaces_.end() && result.rows.size() < max_rows; ++next) {
    result.rows.push_back(InterfaceRecord(next->first.vrf, next->first.index, next->second));
  }
  result.status = result.rows.empty() ? kStatusNoSuchRow : kStatusOk;
  result.end = next == interfaces_.end();
  return result;
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

oid::Oid scalar(std::uint32_t number, const std::string& instance) {
  oid::Oid result = parse_oid("1.3.6.1.2.1.10.166.11.1.1");
  EXPECT_TRUE(result.append(number) && result.append(parse_oid(instance).view()));
  return result;
}

}  // namespace agent_test
