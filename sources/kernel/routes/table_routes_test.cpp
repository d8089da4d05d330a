// The routes of a table without a kernel: many routes to one prefix.
#include "sources/kernel/routes/table_routes.h"

#include <gmock/gmock.h>
#include <linux/netlink.h>

#include <vector>

#include "sources/kernel/route_state/route_messages_test_support.h"
#include "sources/kernel/routes/route_contents.h"

namespace kernel {
namespace {

constexpr std::uint32_t kMany = 20'000;  // a comparison of each with each takes many seconds
constexpr TableRoutes::Prefix kPrefix{{0x20}, 8};

// Two of four routes have the same next hop.
KernelRoute RouteOf(router::Family family, std::uint32_t number, bool has_metric) {
  KernelRoute route{.family = family, .type = RTN_UNICAST, .protocol = RTPROT_STATIC};
  route.priority = has_metric ? number + 1 : 1;
  const std::uint32_t gateway = number / 2 + 1;
  route.paths.push_back({.interface_index = 5, .has_gateway = true, .gateway_family = family});
  route.paths[0].gateway = {10, static_cast<std::uint8_t>(gateway >> 16),
                            static_cast<std::uint8_t>(gateway >> 8), static_cast<std::uint8_t>(gateway)};
  return route;
}

TEST(RouteContents, NumberIsFoundForItsContentOnly) {
  RouteHistory history;
  RouteContents contents(&history);
  const KernelRoute first = RouteOf(router::Family::kIpv4, 1, true);
  const KernelRoute second = RouteOf(router::Family::kIpv4, 2, true);
  bool is_new = false;
  const RouteContents::Id number = contents.hold(first, &is_new);
  for (int search = 0; search < 2; ++search) EXPECT_EQ(contents.find(second), 0U);
  for (int search = 0; search < 2; ++search) EXPECT_EQ(contents.find(first), number);
  contents.release(number);
  EXPECT_EQ(contents.find(first), 0U);
  EXPECT_EQ(contents.hold(second, &is_new), number);  // which is unused
  EXPECT_TRUE(is_new);
  EXPECT_EQ(contents.find(first), 0U);
  EXPECT_EQ(contents.find(second), number);
}

class ManyRoutesOfAPrefix : public ::testing::TestWithParam<router::Family> {
 protected:
  ManyRoutesOfAPrefix() {
    router::Vrf red;
    red.name = "red";
    red.id = red.ipv4_table = red.ipv6_table = 10;
    EXPECT_EQ(model_.create_vrf(red), kStatusOk);
  }
  // Every `step`-th route.
  void Read(std::uint32_t step, bool additions_only = false) {
    RouteList list;
    for (std::uint32_t number = 0; number < kMany; number += step)
      list.push_back(RouteOf(GetParam(), number, true));
    table_.begin_reading(TableRoutes::Reading::kFirst, false);
    table_.compare(kPrefix, list, additions_only);
    while (table_.end_some(1000)) {
    }
  }
  std::vector<std::int32_t> Metrics() const {
    std::vector<std::int32_t> metrics;
    router::Route row;
    for (bool more = model_.routes().find_first(Table(), &row); more;
         more = model_.routes().find_next(Table(), row.key, &row)) {
      metrics.push_back(row.metrics[0]);
    }
    return metrics;
  }
  static router::RouteTableId Table() { return {GetParam(), 10}; }

  router::Router model_;
  NextHopObjects objects_;
  RouteHistory history_;
  LinkStates links_;
  TableRoutes table_{&model_, {&objects_, &history_, &links_}, Table()};
};

TEST_P(ManyRoutesOfAPrefix, RowsAreTheLowestMetricOfEachNextHop) {
  Read(1);
  const std::vector<std::int32_t> metrics = Metrics();
  ASSERT_EQ(metrics.size(), kMany / 2);
  for (std::size_t at = 0; at < metrics.size(); ++at)
    ASSERT_EQ(metrics[at], static_cast<std::int32_t>(2 * at + 1));
}

TEST_P(ManyRoutesOfAPrefix, RowsThatALaterReadingDoesNotShowAreRemoved) {
  Read(1);
  Read(4);
  EXPECT_EQ(Metrics().size(), kMany / 4);
  Read(1);
  EXPECT_EQ(Metrics().size(), kMany / 2);
}

TEST_P(ManyRoutesOfAPrefix, ReadingInDoubtRemovesNone) {
  Read(1);
  Read(4, true);
  EXPECT_EQ(Metrics().size(), kMany / 2);
}

TEST_P(ManyRoutesOfAPrefix, AnnouncementChangesOneRow) {
  Read(1);
  table_.remove([] {
    KernelRoute route = RouteOf(GetParam(), 2, true);
    route.destination = kPrefix.destination;
    route.prefix_length = kPrefix.length;
    return route;
  }());
  table_.commit();
  const std::vector<std::int32_t> metrics = Metrics();
  ASSERT_EQ(metrics.size(), kMany / 2);
  EXPECT_EQ(metrics[1], 4);  // that of the other route with the next hop
}

INSTANTIATE_TEST_SUITE_P(Families, ManyRoutesOfAPrefix,
                         ::testing::Values(router::Family::kIpv4, router::Family::kIpv6),
                         [](const auto& each) {
                           return each.param == router::Family::kIpv4 ? "IPv4" : "IPv6";
                         });

}  // namespace
}  // namespace kernel
