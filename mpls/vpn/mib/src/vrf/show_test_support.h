// For tests of a VRF's show record: requests for it, and its parts as texts.
#pragma once

#include <string>
#include <vector>

#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "mpls/vpn/mib/src/vrf/show.h"

inline constexpr std::uint32_t kPlain = 0;
inline constexpr std::uint32_t kWithFamilies = 1;
inline constexpr std::uint32_t kStructured = 2;
inline constexpr std::uint32_t kStructuredWithFamilies = 3;

class VrfShow : public RouteTablesTest {
 protected:
  using Handler = Status (*)(KvReply*, const RequestArgs*);
  Status Read(Handler handler, const char* vrf, std::uint32_t form = kPlain) {
    Run();
    ClearPrints();
    return handler(reply_.Place(), Arguments(form, 1).Text(0, vrf).Block());
  }
  Status Show(const char* vrf, std::uint32_t form = kPlain) {
    return Read(mpls_vpn_mib_prov_get_vrf_show, vrf, form);
  }
  Status ShowInvalid(const char* vrf, std::uint32_t form = kPlain) {
    return Read(mpls_vpn_mib_prov_get_vrf_invalid, vrf, form);
  }
  // Of a VRF that is shown.
  Decoded<mpls_vpn_vrf> Shown(const char* vrf, std::uint32_t form = kPlain) {
    EXPECT_EQ(Show(vrf, form), kStatusOk);
    return {kShowVrfParcel, reply_.Get()};
  }
  // The last answer as one line: "name description rd", its interfaces, its tables.
  std::string ShownInFull() {
    const Decoded<mpls_vpn_vrf> show(kShowVrfParcel, reply_.Get());
    std::string text =
        OrNone(show->VRFName) + " " + OrNone(show->VRFDescription) + " " + OrNone(show->RouteDistinguisher);
    for (const std::string& name : InterfacesOf(*show.operator->())) text += ", " + name;
    for (const std::string& table : TablesOf(*show.operator->())) text += ", " + table;
    return text;
  }
  void ExpectNoArrayReported(const std::string& function) {
    EXPECT_TRUE(Printed("Cannot allocate memory in function " + function)) << function;
    ExpectErrorTraced("Cannot allocate memory in function " + function, kStatusNoMemory);
  }
  void ExpectNoCopyReported(const std::string& function) {
    EXPECT_TRUE(Printed(Failure(function, "text_copy failed", kStatusNoMemory))) << function;
    ExpectErrorTraced(function + ": text_copy failed", kStatusNoMemory);
  }
  static std::vector<std::string> InterfacesOf(const mpls_vpn_vrf& show) {
    const auto* entries = static_cast<const mpls_vpn_interfaces*>(show.Interfaces.elements);
    std::vector<std::string> names;
    for (std::uint64_t i = 0; i < show.Interfaces.count; ++i) {
      names.emplace_back(entries[i].InterfaceName == nullptr ? "(null)" : entries[i].InterfaceName);
    }
    return names;
  }
  static std::string OrNone(const char* text) { return text == nullptr ? "-" : text; }
  // "afi/safi import export value(type)...", a table each.
  static std::vector<std::string> TablesOf(const mpls_vpn_vrf& show) {
    const auto* tables = static_cast<const mpls_vpn_afi_safi*>(show.AF.elements);
    std::vector<std::string> texts;
    for (std::uint64_t i = 0; i < show.AF.count; ++i) {
      std::string text = std::to_string(tables[i].AFName) + "/" + std::to_string(tables[i].SAFName) + " " +
                         OrNone(tables[i].ImportRoutePolicy) + " " + OrNone(tables[i].ExportRoutePolicy);
      const auto* targets = static_cast<const mpls_vpn_rt*>(tables[i].RouteTarget.elements);
      for (std::uint64_t j = 0; j < tables[i].RouteTarget.count; ++j) {
        text += " " + OrNone(targets[j].RouteTargetValue) + "(" + std::to_string(targets[j].RouteTargetType) +
                ")";
        EXPECT_EQ(targets[j].AFName, tables[i].AFName);
        EXPECT_EQ(targets[j].SAFName, tables[i].SAFName);
      }
      texts.push_back(text);
    }
    return texts;
  }
  std::vector<std::string> ShownInterfaces(const char* vrf) {
    const auto show = Shown(vrf);
    return InterfacesOf(*show.operator->());
  }
  std::vector<std::string> ShownTables(const char* vrf, std::uint32_t form = kPlain) {
    const auto show = Shown(vrf, form);
    return TablesOf(*show.operator->());
  }
  // Fills a record without a request, and takes its tables.
  std::vector<std::string> FilledTables(const char* vrf, std::uint32_t afi_index, std::uint32_t selector = 0,
                                        bool is_xml = false) {
    Run();
    ClearPrints();
    ShowInSteps filling;
    EXPECT_TRUE(fill_show_vrf_parcel(&filling, vtab_get_vrf_record_by_vrf_name(vrf), afi_index, selector,
                                     is_xml, nullptr));
    return TablesOf(filling.show);
  }
  // What fill_table_parcel makes of a table that the record service does not have.
  std::string Table(const char* vrf, std::uint32_t afi, std::uint32_t safi) {
    VtabTableRecord table{};
    table.afi = afi;
    table.safi = safi;
    mpls_vpn_vrf show{};
    show.AF = {1, std::calloc(1, sizeof(mpls_vpn_afi_safi))};
    fill_table_parcel(static_cast<mpls_vpn_afi_safi*>(show.AF.elements), &table,
                      vtab_get_vrf_record_by_vrf_name(vrf));
    const std::string text = TablesOf(show).front();
    EXPECT_EQ(parcel_free_indirections(&kShowVrfParcel, &show), kStatusOk);
    return text;
  }
  // The record service makes no tables of flow rules; this makes one of a multicast table.
  static void MakeLastTableOneOfFlowRules(const char* vrf) {
    const VtabTableRecord* last = nullptr;
    for (const VtabTableRecord* table = vtab_get_first_table_record_by_vrf_name(vrf); table != nullptr;
         table = vtab_get_next_table_record_by_vrf_name(vrf, table)) {
      last = table;
    }
    ASSERT_NE(last, nullptr);
    const_cast<VtabTableRecord*>(last)->safi = 133;
  }
  Reply reply_;
};
