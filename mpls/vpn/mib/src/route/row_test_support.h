// For tests of route rows: reads of the route table, and rows as texts.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "mpls/vpn/mib/src/route/entry.h"
#include "mpls/vpn/mib/src/route/route_test_support.h"

inline constexpr std::uint32_t kExactRead = 0;
inline constexpr std::uint32_t kNextRead = 1;
inline constexpr const char* kNone = "none";

class RouteRow : public RouteTablesTest {
 protected:
  void SetUp() override {
    RouteTablesTest::SetUp();
    AddVrf("red");
    Connect();
  }
  struct Key {
    const char* vrf = "red";
    std::uint32_t dest_type = 1;
    std::uint32_t length = 0;
    std::uint32_t hop_type = 1;
    const char* dest = "0";
    const char* hop = "0";
  };
  Status Read(std::uint32_t form, const Key& key) {
    Run();
    ClearPrints();
    return mpls_vpn_mib_prov_get_route(reply_.Place(), Arguments(form, 6)
                                                           .Text(0, key.vrf)
                                                           .Number(1, key.dest_type)
                                                           .Number(2, key.length)
                                                           .Number(3, key.hop_type)
                                                           .Text(4, key.dest)
                                                           .Text(5, key.hop)
                                                           .Block());
  }
  // The row that a next read answers.
  Decoded<mpls_vpn_mib_route> Row(const Key& key) {
    EXPECT_EQ(Read(kNextRead, key), kStatusOk);
    return {kMibRouteParcel, reply_.Get()};
  }
  // The row as text, "none", or the failure.
  std::string Answer(std::uint32_t form, const Key& key) {
    const Status rc = Read(form, key);
    if (rc == kStatusNoSuchRow) return kNone;
    if (rc != kStatusOk) return err_text(rc);
    const Decoded<mpls_vpn_mib_route> row(kMibRouteParcel, reply_.Get());
    return RouteText(*row.operator->());
  }
  std::string Next(const Key& key) { return Answer(kNextRead, key); }
  std::string Exact(const Key& key) { return Answer(kExactRead, key); }
  std::string Octets(const ParcelArray& array) {
    const auto* octets = static_cast<const std::uint8_t*>(array.elements);
    std::string text;
    for (std::uint64_t i = 0; i < array.count; ++i) text += std::to_string(octets[i]) + ".";
    return text;
  }
  // The last `count` records of the error buffer, and the code of the very last.
  std::vector<std::string> LastTraced(std::size_t count, Status* code) const {
    std::vector<std::string> records = Traced("mpls_vpn/error", code);
    const std::size_t size = std::min(count, records.size());
    records.erase(records.begin(), records.end() - static_cast<std::ptrdiff_t>(size));
    return records;
  }
  Reply reply_;
};
