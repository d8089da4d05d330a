// Which routes become rows and of which type, next-hop objects, and two recorded dumps of a router.
#include "sources/kernel/route_state/route_rows.h"

#include <gmock/gmock.h>

#include "sources/kernel/route_state/route_messages_test_support.h"
#include "sources/kernel/routes/table_routes.h"

namespace kernel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

KernelRoute Route(const std::string& prefix, std::vector<RoutePath> paths = {}) {
  const router::Address destination = router::MakeAddress(prefix);
  return {.family = destination.family,
          .table = 10,
          .destination = destination.octets,
          .prefix_length = destination.prefix_length,
          .type = RTN_UNICAST,
          .protocol = RTPROT_STATIC,
          .paths = std::move(paths)};
}

RoutePath Path(std::uint32_t interface_index, const std::string& gateway = "") {
  if (gateway.empty()) return {.interface_index = interface_index};
  const router::Address address = router::MakeAddress(gateway);
  return {.interface_index = interface_index,
          .has_gateway = true,
          .gateway_family = address.family,
          .gateway = address.octets};
}

NextHopObject Object(std::uint32_t id, const RoutePath& path) {
  return {.id = id, .path = path};
}
NextHopObject Group(std::uint32_t id, std::vector<std::uint32_t> members) {
  return {.id = id, .members = std::move(members)};
}

std::vector<std::string> Rows(const KernelRoute& route, const NextHopObjects& objects = {}) {
  std::vector<router::Route> rows;
  EXPECT_TRUE(append_rows(route, objects, &rows));
  std::vector<std::string> texts;
  for (const router::Route& row : rows) texts.push_back(RowText(route.family, row));
  return texts;
}
std::string OneRow(const KernelRoute& route) {
  const std::vector<std::string> rows = Rows(route);
  EXPECT_EQ(rows.size(), 1U);
  return rows.empty() ? "" : rows[0];
}
unsigned ProtocolOf(std::uint8_t kernel) {
  KernelRoute route = Route("10.0.0.0/24", {Path(5)});
  route.protocol = kernel;
  std::vector<router::Route> rows;
  EXPECT_TRUE(append_rows(route, {}, &rows));
  return static_cast<unsigned>(rows.at(0).protocol);
}

TEST(KernelRows, LocalBroadcastMulticastAndLinkLocalRowsAreLeftOut) {
  for (const std::uint8_t type : {RTN_LOCAL, RTN_BROADCAST, RTN_ANYCAST, RTN_MULTICAST, RTN_UNSPEC}) {
    KernelRoute route = Route("10.0.0.1/32", {Path(5)});
    route.type = type;
    EXPECT_FALSE(is_shown(route)) << unsigned{type};
  }
  for (const char* prefix :
       {"fe80::/64", "fe80::/10", "febf::/16", "ff00::/8", "ff02::1/128", "224.0.0.0/4", "239.1.0.0/16"}) {
    EXPECT_FALSE(is_shown(Route(prefix, {Path(5)}))) << prefix;
  }
  for (const char* prefix : {"::/0", "fe00::/9", "fec0::/10", "fe80::/9", "0.0.0.0/0", "128.0.0.0/1",
                             "224.0.0.0/3", "169.254.0.0/16", "2001:db8::/32"}) {
    EXPECT_TRUE(is_shown(Route(prefix, {Path(5)}))) << prefix;
  }
}

TEST(KernelRows, CachedExceptionsAreLeftOut) {
  KernelRoute route = Route("10.0.0.1/32", {Path(5)});
  route.cached = true;
  EXPECT_FALSE(is_shown(route));
}

TEST(KernelRows, ProtocolsAsRfc4292NamesThem) {
  const std::map<unsigned, unsigned> expected{{RTPROT_UNSPEC, 1},
                                              {RTPROT_REDIRECT, 4},
                                              {RTPROT_KERNEL, 2},
                                              {RTPROT_BOOT, 3},
                                              {RTPROT_STATIC, 3},
                                              {RTPROT_RA, 1},
                                              {11, 1},
                                              {RTPROT_DHCP, 19},
                                              {186, 14},
                                              {187, 9},
                                              {188, 13},
                                              {189, 8},
                                              {190, 8},
                                              {192, 16},
                                              {193, 1},
                                              {196, 3},
                                              {255, 1}};
  for (const auto& [kernel, row] : expected) {
    EXPECT_EQ(ProtocolOf(static_cast<std::uint8_t>(kernel)), row) << kernel;
  }
}

TEST(KernelRows, PriorityIsTheFirstMetricUpToItsMaximum) {
  KernelRoute route = Route("10.0.0.0/24", {Path(5)});
  route.priority = 2147483647;
  EXPECT_EQ(OneRow(route), "10.0.0.0/24 if 5 local proto 3 metric 2147483647");
  route.priority = 4278198272;
  EXPECT_EQ(OneRow(route), "10.0.0.0/24 if 5 local proto 3 metric 2147483647");
  std::vector<router::Route> rows;
  ASSERT_TRUE(append_rows(route, {}, &rows));
  EXPECT_THAT(rows.at(0).metrics, ElementsAre(2147483647, -1, -1, -1, -1));
}

TEST(KernelRows, EveryPathInUseIsARow) {
  RoutePath dead = Path(7, "10.9.0.4");
  dead.dead = true;
  RoutePath labelled = Path(6, "10.9.0.3");
  labelled.labels = {100, 200};
  EXPECT_THAT(Rows(Route("10.0.0.0/24", {Path(5, "10.9.0.2"), labelled, dead})),
              ElementsAre("10.0.0.0/24 via 10.9.0.2 if 5 remote proto 3 metric 0",
                          "10.0.0.0/24 via 10.9.0.3 if 6 remote proto 3 metric 0 labels 100,200"));
}

TEST(KernelRows, ObjectThatDiscardsMakesABlackhole) {
  NextHopObjects objects;
  objects.update({.id = 5, .discards = true});
  KernelRoute route = Route("10.0.0.0/24");
  route.next_hop_object = 5;
  EXPECT_THAT(Rows(route, objects), ElementsAre("10.0.0.0/24 if 0 blackhole proto 3 metric 0"));
}

TEST(KernelRows, UnknownObjectOrMemberGivesNoRowAndIsReported) {
  NextHopObjects objects;
  objects.update(Object(5, Path(9)));
  objects.update(Group(7, {5, 6}));
  KernelRoute route = Route("10.0.0.0/24");
  std::vector<router::Route> rows;
  for (const std::uint32_t unknown : {4U, 7U}) {
    route.next_hop_object = unknown;
    EXPECT_FALSE(append_rows(route, objects, &rows));
    EXPECT_THAT(rows, IsEmpty());
  }
}

TEST(KernelNextHopObjects, ChangeAndRemovalAreReportedOnce) {
  NextHopObjects objects;
  EXPECT_TRUE(objects.empty());
  EXPECT_TRUE(objects.update(Object(5, Path(9))));
  EXPECT_FALSE(objects.update(Object(5, Path(9))));
  EXPECT_TRUE(objects.update(Object(5, Path(8))));
  EXPECT_EQ(objects.find(5)->path.interface_index, 8U);
  EXPECT_THAT(objects.remove(5).removed, ElementsAre(5U));
  EXPECT_THAT(objects.remove(5).removed, IsEmpty());
  EXPECT_EQ(objects.find(5), nullptr);
}

TEST(KernelNextHopObjects, UsersAreTheObjectAndItsGroups) {
  NextHopObjects objects;
  for (const NextHopObject& each :
       {Object(5, Path(9)), Object(6, Path(8)), Group(7, {5, 6}), Group(3, {6})}) {
    objects.update(each);
  }
  EXPECT_THAT(objects.users(5), ElementsAre(5U, 7U));
  EXPECT_THAT(objects.users(6), ElementsAre(3U, 6U, 7U));
  EXPECT_THAT(objects.users(99), ElementsAre(99U));
}

// The groups precede their members.
TEST(KernelNextHopObjects, AdoptedDifferencesIncludeGroupsOfWhatDiffers) {
  NextHopObjects before;
  NextHopObjects now;
  for (NextHopObjects* each : {&before, &now}) {
    each->update(Object(6, Path(8)));
    each->update(Group(2, {5}));
    each->update(Group(3, {6}));
  }
  before.update(Object(5, Path(9)));
  now.update(Object(5, Path(10)));
  before.update(Object(20, Path(9)));
  now.update(Object(21, Path(9)));
  NextHopObjects::Comparison comparison;
  EXPECT_FALSE(before.adopt_some(now, 100, &comparison));
  EXPECT_THAT(comparison.affected.changed, ElementsAre(2U, 5U, 21U));
  EXPECT_THAT(comparison.affected.removed, ElementsAre(20U));
  EXPECT_EQ(comparison.differences, 3U);
  NextHopObjects::Comparison again;
  EXPECT_FALSE(before.adopt_some(now, 100, &again));
  EXPECT_EQ(again.differences, 0U);
  EXPECT_THAT(again.affected.changed, IsEmpty());
}

TEST(KernelNextHopObjects, GroupOfARemovedObjectIsAdoptedAsItWasRead) {
  NextHopObjects before;
  NextHopObjects now;
  for (const std::uint32_t id : {5U, 6U, UINT32_MAX}) before.update(Object(id, Path(9)));
  before.update(Group(3, {5}));
  before.update(Group(4, {5, 6}));
  before.update(Group(7, {5}));
  now.update(Object(6, Path(9)));
  now.update(Group(3, {6}));
  now.update(Group(4, {6}));
  NextHopObjects::Comparison comparison;
  EXPECT_FALSE(before.adopt_some(now, 100, &comparison));
  EXPECT_THAT(comparison.affected.removed, ElementsAre(5U, 7U, UINT32_MAX));
  EXPECT_THAT(comparison.affected.changed, ElementsAre(3U, 4U));
  EXPECT_EQ(before.find(3)->members, std::vector<std::uint32_t>{6});
  EXPECT_EQ(before.find(4)->members, std::vector<std::uint32_t>{6});
}

TEST(KernelNextHopObjects, AreAdoptedAndReleasedInSteps) {
  NextHopObjects objects;
  NextHopObjects read;
  for (std::uint32_t id = 1; id <= 10; ++id) read.update(Object(id, Path(9)));
  NextHopObjects::Comparison comparison;
  EXPECT_TRUE(objects.adopt_some(read, 4, &comparison));
  EXPECT_EQ(comparison.differences, 4U);
  EXPECT_EQ(objects.find(5), nullptr);
  objects.remove(2);  // an announcement between the steps
  read.remove(2);
  EXPECT_TRUE(objects.adopt_some(read, 4, &comparison));
  EXPECT_FALSE(objects.adopt_some(read, 4, &comparison));
  EXPECT_EQ(comparison.differences, 10U);
  EXPECT_EQ(objects.find(2), nullptr);
  EXPECT_NE(objects.find(10), nullptr);
  EXPECT_TRUE(read.release_some(8));
  EXPECT_FALSE(read.release_some(8));
  EXPECT_TRUE(read.empty());
}

// Every route of the recorded router's table 10, as its store would have it.
class RecordedTable : public ::testing::Test {
 protected:
  RecordedTable() {
    router::Vrf red;
    red.name = "red";
    red.id = red.ipv4_table = red.ipv6_table = 10;
    EXPECT_EQ(model_.create_vrf(red), kStatusOk);
  }
  void Add(const std::string& recording, router::RouteTableId table) {
    TableRoutes routes(&model_, {&objects_, &history_, &links_}, table);
    for (const Octets& datagram : ReadRecording(recording)) {
      ParseReport report;
      for (const RouteEvent& event : ParseRoutes(datagram, &report)) {
        const auto* seen = std::get_if<RouteSeen>(&event);
        if (seen == nullptr || seen->route.table != table.table || !is_shown(seen->route)) continue;
        routes.add(seen->route, NLM_F_CREATE | NLM_F_APPEND, history_.now());
      }
      EXPECT_EQ(report.malformed, 0U);
    }
    routes.commit();
    EXPECT_EQ(routes.take_counters().unresolved, 0U);
  }
  router::Router model_;
  NextHopObjects objects_;
  RouteHistory history_;
  LinkStates links_;
};

TEST_F(RecordedTable, Ipv4RoutesOfEveryKind) {
  Add("dump-route.raw", kRed4);
  EXPECT_THAT(
      TableText(model_.routes(), kRed4),
      ElementsAre("0.0.0.0/0 via 10.0.0.2 if 5 remote proto 3 metric 2147483647",
                  "10.0.0.0/24 if 5 local proto 2 metric 0", "10.1.0.0/24 if 6 local proto 2 metric 0",
                  "10.9.0.0/16 via 10.99.0.2 if 9 remote proto 14 metric 0 labels 200",
                  "10.10.0.0/16 via 10.99.0.2 if 9 remote proto 14 metric 0 labels 300,200",
                  "10.11.0.0/16 via 10.99.0.2 if 9 remote proto 14 metric 0 labels 201",
                  "10.11.0.0/16 via 10.99.0.3 if 9 remote proto 14 metric 0 labels 202",
                  "172.31.0.0/16 if 7 local proto 3 metric 0",
                  "192.168.1.0/24 via 10.0.0.2 if 5 remote proto 3 metric 0",
                  "192.168.2.0/24 via 10.0.0.2 if 5 remote proto 3 metric 50",
                  "192.168.3.0/24 if 6 local proto 3 metric 0",
                  "192.168.4.0/24 if 0 blackhole proto 3 metric 0",
                  "192.168.5.0/24 if 0 reject proto 3 metric 0",
                  "192.168.6.0/24 if 0 reject proto 3 metric 0", "192.168.7.0/24 if 0 other proto 3 metric 0",
                  "192.168.8.0/24 via 10.0.0.2 if 5 remote proto 3 metric 0",
                  "192.168.8.0/24 via 10.1.0.2 if 6 remote proto 3 metric 0",
                  "192.168.9.0/24 via 10.0.0.2 if 5 remote proto 3 metric 10",
                  "192.168.9.0/24 via 10.1.0.2 if 6 remote proto 3 metric 0",
                  "192.168.10.0/24 via 10.0.0.2 if 5 remote proto 14 metric 20",
                  "192.168.11.0/24 via 10.0.0.2 if 5 remote proto 13 metric 20",
                  "192.168.12.0/24 via 10.0.0.2 if 5 remote proto 8 metric 20",
                  "192.168.13.0/24 via 10.0.0.2 if 5 remote proto 16 metric 20",
                  "192.168.14.0/24 via 10.0.0.2 if 5 remote proto 3 metric 0",
                  "192.168.15.0/24 via 10.0.0.2 if 5 remote proto 3 metric 0",
                  "192.168.16.0/24 via 10.0.0.2 if 5 remote proto 3 metric 0",
                  "192.168.16.0/24 via 10.1.0.2 if 6 remote proto 3 metric 0",
                  "192.168.17.0/24 if 5 remote proto 3 metric 0"));
}

TEST_F(RecordedTable, Ipv6RoutesOfEveryKind) {
  Add("dump-route6.raw", kRed6);
  EXPECT_THAT(
      TableText(model_.routes(), kRed6),
      ElementsAre("2001:db8:10::/64 if 5 local proto 2 metric 256",
                  "2001:db8:11::/64 if 6 local proto 2 metric 256",
                  "2001:db8:aaaa::/48 via 2001:db8:10::2 if 5 remote proto 3 metric 30",
                  "2001:db8:bbbb::/48 if 0 blackhole proto 3 metric 1024",
                  "2001:db8:cccc::/48 via 2001:db8:10::2 if 5 remote proto 3 metric 1024",
                  "2001:db8:cccc::/48 via 2001:db8:11::2 if 6 remote proto 3 metric 1024",
                  "2001:db8:dddd::/48 via 2001:db8:10::2 if 5 remote proto 3 metric 1024",
                  "2001:db8:eeee::/48 via 2001:db8:99::2 if 9 remote proto 3 metric 1024 labels 203"));
}

// All events of that router. The kernel never announces the deletion of the guard route of a deleted VRF.
TEST_F(RecordedTable, EveryEventIsDecoded) {
  std::map<router::RouteTableId, int> seen;
  int removed = 0;
  for (const Octets& datagram : ReadRecording("events.raw")) {
    ParseReport report;
    for (const RouteEvent& event : ParseRoutes(datagram, &report)) {
      if (const auto* route = std::get_if<RouteSeen>(&event))
        ++seen[{route->route.family, route->route.table}];
      removed += std::holds_alternative<RouteRemoved>(event) ? 1 : 0;
    }
    EXPECT_EQ(report.malformed, 0U);
  }
  EXPECT_GT(seen[kRed4], 20);
  EXPECT_GT(seen[kRed6], 5);
  EXPECT_GT(removed, 10);
}

}  // namespace
}  // namespace kernel
