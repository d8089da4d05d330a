// For tests of the lists of VRFs: their requests and answers.
#pragma once

#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "mpls/vpn/mib/src/vrf/lists.h"
#include "platform/core/base/memory.h"
#include "platform/store/tree/lists.h"

inline constexpr std::uint32_t kName = 0;
inline constexpr std::uint32_t kNameAfiSafi = 1;
inline constexpr std::uint32_t kEncodedName = 2;
inline constexpr std::uint32_t kEncodedNameAfiSafi = 3;
inline constexpr std::uint32_t kMany = 100;

class VrfLists : public RouteTablesTest {
 protected:
  void SetUp() override {
    RouteTablesTest::SetUp();
    Connect();
  }
  void TearDown() override {
    Free();
    RouteTablesTest::TearDown();
  }
  using Handler = Status (*)(KvListReply*, const RequestArgs*);
  Status Ask(Handler handler, const Arguments& arguments, std::uint32_t max_items = kMany) {
    Run();
    Free();
    ClearPrints();
    reply_ = {max_items, 77, nullptr, nullptr};
    return handler(&reply_, arguments.Block());
  }
  static Arguments Named(std::uint32_t form, const char* vrf) { return Arguments(form, 4).Text(0, vrf); }
  static Arguments Unnamed(std::uint32_t form) { return Arguments(form, 4); }
  std::vector<std::string> List(const Arguments& arguments, std::uint32_t max_items = kMany) {
    EXPECT_EQ(Ask(mpls_vpn_prov_list_vrf, arguments, max_items), kStatusOk);
    return Keys();
  }
  std::vector<std::string> Datalist(const Arguments& arguments, std::uint32_t max_items = kMany) {
    EXPECT_EQ(Ask(mpls_vpn_prov_datalist_vrf, arguments, max_items), kStatusOk);
    return Keys();
  }
  std::vector<std::string> ListInvalid(const Arguments& arguments, std::uint32_t max_items = kMany) {
    EXPECT_EQ(Ask(mpls_vpn_prov_list_vrf_invalid, arguments, max_items), kStatusOk);
    return Keys();
  }
  std::vector<std::string> DatalistInvalid(const Arguments& arguments, std::uint32_t max_items = kMany) {
    EXPECT_EQ(Ask(mpls_vpn_prov_datalist_vrf_invalid, arguments, max_items), kStatusOk);
    return Keys();
  }
  // The keys of the last answer; kinds, flags and the count are checked.
  std::vector<std::string> Keys() {
    std::vector<std::string> keys;
    if (reply_.list != nullptr) {
      for (const KvListItem& item : reply_.list->items) {
        EXPECT_EQ(item.kind, 3U);
        EXPECT_EQ(item.flags, 0U);
        keys.push_back(item.key);
      }
    }
    if (reply_.datalist != nullptr) {
      for (const KvDatalistItem& item : reply_.datalist->items) {
        EXPECT_EQ(item.kind, 7U);
        EXPECT_EQ(item.flags, 0U);
        keys.push_back(item.key);
      }
    }
    EXPECT_EQ(reply_.count, keys.size());
    return keys;
  }
  // An item of the last datalist, as "name interfaces tables".
  std::string Item(std::size_t place) {
    KvDatalistItem& item = reply_.datalist->items.at(place);
    const Decoded<mpls_vpn_vrf> show(kShowVrfParcel, {kKvKindRecord, item.value.data(), item.value.size()});
    return std::string(show->VRFName) + " " + std::to_string(show->Interfaces.count) + " " +
           std::to_string(show->AF.count);
  }
  void AddVrfs(std::initializer_list<const char*> names) {
    for (const char* name : names) AddVrf(name, 0, "65000:1");  // one without would be looked up each time
  }
  void Free() {
    kvtree_list_free(reply_.list);
    kvtree_datalist_free(reply_.datalist);
    reply_ = {};
  }
  KvListReply reply_{};
};

// --- Which VRFs
