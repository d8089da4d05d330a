// A scrape of the daemon's databases as text.
#include "daemon/metrics/families.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "platform/config/items.h"
#include "platform/router/model/route_test_support.h"
#include "platform/router/route_watch/route_watch.h"

namespace daemon_metrics {
namespace {

using testing::HasSubstr;
using testing::Not;

class MetricsOfTheDaemon : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    totals_ = std::make_unique<RouteTotals>(&router_);
    facts_ = {&router_, totals_.get(), "1.2.3", [this] { return corrections_; }, true};
    Connect();
  }
  void TearDown() override {
    totals_.reset();
    DaemonTest::TearDown();
  }
  // In parts that are complete from this many octets or rows on.
  std::string ScrapeInParts(std::size_t octets, std::size_t rows = SIZE_MAX) {
    Scrape scrape(&facts_);
    std::string all;
    for (bool more = true; more;) {
      std::string part;
      more = scrape.add_part({octets, rows}, &part);
      all += part;
      parts_ += 1;
      longest_part_ = std::max(longest_part_, part.size());
    }
    return all;
  }
  std::string ScrapeAtOnce() { return ScrapeInParts(SIZE_MAX); }
  void PutRoute(const std::string& vrf, const std::string& prefix, router::RouteProtocol protocol) {
    router::Route route = router::MakeRoute(prefix);
    route.protocol = protocol;
    ASSERT_EQ(router_.routes().put({router::Family::kIpv4, router_.find_vrf(vrf)->ipv4_table}, route),
              kStatusOk);
  }
  void AddVrfs(int count) {
    for (int i = 0; i < count; ++i) AddVrf("vrf" + std::to_string(i));
    Run();
  }

  std::vector<process_status::CorrectionFact> corrections_;
  std::unique_ptr<RouteTotals> totals_;
  Facts facts_{};
  std::size_t parts_ = 0;
  std::size_t longest_part_ = 0;
};

TEST_F(MetricsOfTheDaemon, ProcessAndVersionAreShownWithoutVrfs) {
  const std::string text = ScrapeAtOnce();
  EXPECT_THAT(text, HasSubstr("# TYPE mplsvpn_up gauge\nmplsvpn_up 1\n"));
  EXPECT_THAT(text, HasSubstr("mplsvpn_build_info{version=\"1.2.3\"} 1\n"));
  EXPECT_THAT(text, Not(HasSubstr("vrf=")));
}

TEST_F(MetricsOfTheDaemon, VrfHasItsStateAndItsInterfaces) {
  AddVrf("red", 0, "65000:10");
  AddInterface("ge0", "red");
  AddInterface("ge1", "red");
  Run();
  EXPECT_THAT(ScrapeAtOnce(), HasSubstr("mplsvpn_vrf_up{vrf=\"red\"} 0\n"));
  AddAddress("ge0", "10.0.0.1/24");
  LinkUp("ge0");
  Run();
  const std::string text = ScrapeAtOnce();
  EXPECT_THAT(text, HasSubstr("mplsvpn_vrf_up{vrf=\"red\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("mplsvpn_vrf_interfaces{vrf=\"red\",state=\"active\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("mplsvpn_vrf_interfaces{vrf=\"red\",state=\"inactive\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("mplsvpn_vrf_interface_info{vrf=\"red\",device=\"ge0\"} 1\n"));
  EXPECT_THAT(text,
              HasSubstr("mplsvpn_vrf_info{vrf=\"red\",rd=\"65000:10\",table4=\"101\",table6=\"101\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("mplsvpn_vrf_created_timestamp_seconds{vrf=\"red\"} 1700000000\n"));
}

TEST_F(MetricsOfTheDaemon, InterfacesAndTheDefaultVrfAreLeftOutWhereTheyAreNotWanted) {
  AddVrf("red");
  AddInterface("ge0", "red");
  AddInterface("ge1");
  Run();
  EXPECT_THAT(ScrapeAtOnce(), Not(HasSubstr("ge1")));
  facts_.with_interfaces = false;
  const std::string text = ScrapeAtOnce();
  EXPECT_THAT(text, Not(HasSubstr("ge0")));
  EXPECT_THAT(text, Not(HasSubstr("default")));
}

// 0 would be an alert for each prefix of a table that the source reads late.
TEST_F(MetricsOfTheDaemon, WatchedPrefixOfATableThatIsNotReadHasNoValue) {
  AddVrf("red");
  Run();
  bool is_read = false;
  route_watch_ask([&is_read](router::RouteTableId) { return is_read; });
  ASSERT_EQ(route_watch_attach(&router_, manager_), kStatusOk);
  const KvConfigNode watched =
      vrf_config::node_of(vrf_config::Kind::kWatchedPrefix, {.vrf = "red", .prefix = "10.1.0.0/16"});
  ASSERT_EQ(kvtree_set(watched.path, watched.value), kStatusOk);
  PassSeconds(1);
  Run();
  EXPECT_THAT(ScrapeAtOnce(), Not(HasSubstr("prefix=")));
  is_read = true;
  PassSeconds(1);
  Run();
  EXPECT_THAT(ScrapeAtOnce(), HasSubstr("prefix=\"10.1.0.0/16\"} 0\n"));
  ASSERT_EQ(kvtree_delete(watched.path), kStatusOk);
  Run();
  route_watch_detach();
  route_watch_ask(nullptr);
}

TEST_F(MetricsOfTheDaemon, ProtocolThatLostItsRoutesIsZeroAndStays) {
  AddVrf("red");
  Run();
  PutRoute("red", "10.1.0.0/16", router::RouteProtocol::kBgp);
  EXPECT_THAT(ScrapeAtOnce(), HasSubstr("mplsvpn_vrf_routes{vrf=\"red\",afi=\"ipv4\",protocol=\"bgp\"} 1\n"));
  ASSERT_EQ(router_.routes().erase({router::Family::kIpv4, 101}, router::MakeKey("10.1.0.0/16")), kStatusOk);
  const std::string text = ScrapeAtOnce();
  EXPECT_THAT(text, HasSubstr("mplsvpn_vrf_routes{vrf=\"red\",afi=\"ipv4\",protocol=\"bgp\"} 0\n"));
  EXPECT_THAT(text,
              HasSubstr("mplsvpn_vrf_route_changes_total{vrf=\"red\",afi=\"ipv4\",change=\"removed\"} 1\n"));
  EXPECT_THAT(text,
              HasSubstr("mplsvpn_vrf_route_changes_total{vrf=\"red\",afi=\"ipv6\",change=\"added\"} 0\n"));
}

TEST_F(MetricsOfTheDaemon, CorrectionsHaveTheirTable) {
  corrections_ = {{process_status::kNextHopObjects, "", 3}, {"101", "ipv6", 2}};
  EXPECT_THAT(ScrapeAtOnce(),
              HasSubstr("mplsvpn_route_check_corrections_total{table=\"nexthop\"} 3\n"
                        "mplsvpn_route_check_corrections_total{table=\"101\",afi=\"ipv6\"} 2\n"));
}

TEST_F(MetricsOfTheDaemon, NamesOfVrfsAreEscaped) {
  AddVrf("a\"b\\c\nd");
  Run();
  EXPECT_THAT(ScrapeAtOnce(), HasSubstr("mplsvpn_vrf_up{vrf=\"a\\\"b\\\\c\\nd\"} 0\n"));
}

TEST_F(MetricsOfTheDaemon, PartsMakeTheSameTextAsOnePart) {
  AddVrfs(30);
  for (int i = 0; i < 30; ++i) AddInterface("ge" + std::to_string(i), "vrf" + std::to_string(i % 3));
  Run();
  const std::string whole = ScrapeAtOnce();
  for (const std::size_t enough : {1U, 100U, 1000U}) EXPECT_EQ(ScrapeInParts(enough), whole) << enough;
}

// VRFs without routes and interfaces of no VRF have no samples in some families.
TEST_F(MetricsOfTheDaemon, PartsVisitABoundedNumberOfRowsWhateverTheirSamples) {
  AddVrfs(30);
  for (int i = 0; i < 30; ++i) AddInterface("ge" + std::to_string(i));
  Run();
  const std::string whole = ScrapeAtOnce();
  parts_ = 0;
  EXPECT_EQ(ScrapeInParts(SIZE_MAX, 10), whole);
  const std::size_t vrf_families = 9;
  EXPECT_GE(parts_, (vrf_families * 30 + 30) / 10);
}

TEST_F(MetricsOfTheDaemon, PartsAreLittleLongerThanWanted) {
  AddVrfs(100);
  ScrapeInParts(1000);
  EXPECT_GT(parts_, 50U);
  EXPECT_LT(longest_part_, 1500U);
}

TEST_F(MetricsOfTheDaemon, VrfsMayBeDeletedDuringAScrape) {
  AddVrfs(20);
  Scrape scrape(&facts_);
  std::string all;
  for (int deleted = 0; scrape.add_part({all.size() + 200, SIZE_MAX}, &all);) {
    if (deleted == 20) continue;
    DeleteVrf("vrf" + std::to_string(deleted++));
    Run();
  }
  EXPECT_THAT(all, HasSubstr("# TYPE mplsvpn_rd_changes_total counter\n"));
}

TEST_F(MetricsOfTheDaemon, VrfHas21SeriesWithoutInterfacesAndThresholds) {
  AddVrf("red");
  Run();
  using router::RouteProtocol;
  const RouteProtocol protocols[] = {RouteProtocol::kLocal, RouteProtocol::kNetmgmt, RouteProtocol::kBgp,
                                     RouteProtocol::kOspf};
  for (const RouteProtocol protocol : protocols) {
    router::Route route = router::MakeRoute("10." + std::to_string(static_cast<int>(protocol)) + ".0.0/16");
    route.protocol = protocol;
    ASSERT_EQ(router_.routes().put({router::Family::kIpv4, 101}, route), kStatusOk);
    route.key = router::MakeKey("2001:db8:" + std::to_string(static_cast<int>(protocol)) + "::/48");
    ASSERT_EQ(router_.routes().put({router::Family::kIpv6, 101}, route), kStatusOk);
  }
  const std::string text = ScrapeAtOnce();
  std::size_t series = 0;
  for (std::size_t at = text.find("vrf=\"red\""); at != std::string::npos;
       at = text.find("vrf=\"red\"", at + 1))
    ++series;
  EXPECT_EQ(series, 21U);
}

// Prometheus' naming rules, as far as promtool does not see them in a scrape without samples.
TEST(MetricNames, OnlyCountersEndInTotalAndEachFamilyIsThereOnceWithAHelp) {
  std::set<std::string_view> names;
  for (const FamilyRow& row : families()) {
    EXPECT_TRUE(names.insert(row.family.name).second) << row.family.name;
    EXPECT_EQ(row.family.name.ends_with("_total"), row.family.type == metrics::Type::kCounter)
        << row.family.name;
    EXPECT_TRUE(row.family.name.starts_with("mplsvpn_")) << row.family.name;
    EXPECT_FALSE(row.family.help.empty());
    EXPECT_EQ(row.family.help.find('\n'), std::string_view::npos);
  }
}

}  // namespace
}  // namespace daemon_metrics
