// Cross-connect indexes of labelled routes.
#include "platform/router/lfx/lfx.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/core/base/fault.h"
#include "platform/router/model/route_test_support.h"

namespace {

using router::MakeRoute;
using ::testing::ElementsAre;

using Index = std::vector<std::uint8_t>;

class LabelDatabase : public ::testing::Test {
 protected:
  LabelDatabase() {
    for (const std::uint32_t table : {10U, 0x01020304U}) {
      router::Vrf vrf;
      vrf.name = "vrf" + std::to_string(table);
      vrf.id = vrf.ipv4_table = table;
      EXPECT_EQ(router_.create_vrf(vrf), kStatusOk);
    }
    lfx_attach(&router_);
  }
  ~LabelDatabase() override { lfx_attach(nullptr); }

  void Put(std::uint32_t table, const std::string& prefix, const std::string& next_hop,
           const std::vector<std::uint32_t>& labels) {
    router::Route route = MakeRoute(prefix, next_hop);
    route.labels = labels;
    ASSERT_EQ(router_.routes().put({router::Family::kIpv4, table}, route), kStatusOk);
  }

  static LfxRequest Request(std::uint32_t table, const std::string& destination, std::uint32_t length) {
    LfxRequest request{kLfxIpv4Route, table, 0, length};
    EXPECT_EQ(inet_pton(AF_INET, destination.c_str(), &request.destination), 1);
    return request;
  }
  static Status Ask(const LfxRequest& request, Index* index) {
    std::uint8_t buffer[kLfxIndexMax];
    std::size_t length = 0;
    const Status status = lfx_c_lsr_xc_idx(buffer, sizeof buffer, &length, &request);
    index->assign(buffer, buffer + length);
    return status;
  }
  static Index IndexOf(std::uint32_t table, const std::string& destination, std::uint32_t length) {
    Index index;
    EXPECT_EQ(Ask(Request(table, destination, length), &index), kStatusOk);
    return index;
  }
  static Status StatusOf(std::uint32_t table, const std::string& destination, std::uint32_t length) {
    Index index;
    const Status status = Ask(Request(table, destination, length), &index);
    EXPECT_TRUE(index.empty());
    return status;
  }

  router::Router router_;
};

TEST_F(LabelDatabase, IndexIsMadeOfTableRouteAndLabels) {
  Put(0x01020304, "10.11.12.0/24", "192.0.2.1", {0x12345, 16});
  EXPECT_THAT(IndexOf(0x01020304, "10.11.12.0", 24),
              ElementsAre(1, 1, 2, 3, 4, 10, 11, 12, 0, 24, 192, 0, 2, 1, 2, 0x01, 0x23, 0x45, 0, 0, 16));
}

TEST_F(LabelDatabase, DeepStackFillsTheIndexAndNoMore) {
  Put(10, "10.0.0.0/8", "192.0.2.1", {1, 2, 3, 4, 5});
  const Index index = IndexOf(10, "10.0.0.0", 8);
  EXPECT_EQ(index.size(), kLfxIndexMax);
  EXPECT_EQ(index[14], 5);
}

TEST_F(LabelDatabase, IndexStaysWhileTheRouteAndItsLabelsStay) {
  Put(10, "10.0.0.0/8", "192.0.2.1", {100});
  const Index before = IndexOf(10, "10.0.0.0", 8);
  Put(10, "11.0.0.0/8", "192.0.2.1", {200});
  EXPECT_EQ(IndexOf(10, "10.0.0.0", 8), before);
  Put(10, "10.0.0.0/8", "192.0.2.1", {101});
  EXPECT_NE(IndexOf(10, "10.0.0.0", 8), before);
}

TEST_F(LabelDatabase, EveryLabelledRouteHasItsOwnIndex) {
  std::set<Index> indexes;
  for (const std::uint32_t table : {10U, 0x01020304U}) {
    for (const char* destination : {"10.0.0.0", "11.0.0.0"}) {
      for (const unsigned length : {8U, 9U}) {
        Put(table, std::string(destination) + "/" + std::to_string(length), "192.0.2.1", {100});
        EXPECT_TRUE(indexes.insert(IndexOf(table, destination, length)).second);
      }
    }
  }
  EXPECT_EQ(indexes.size(), 8U);
}

TEST_F(LabelDatabase, FirstLabelledPathOfSeveralCounts) {
  Put(10, "10.0.0.0/8", "192.0.2.1", {});
  Put(10, "10.0.0.0/8", "192.0.2.2", {100});
  Put(10, "10.0.0.0/8", "192.0.2.3", {101});
  EXPECT_EQ(IndexOf(10, "10.0.0.0", 8)[13], 2);
}

TEST_F(LabelDatabase, RouteWithoutLabelsHasNoCrossConnect) {
  Put(10, "10.0.0.0/8", "192.0.2.1", {});
  EXPECT_EQ(StatusOf(10, "10.0.0.0", 8), 0xa2d38002U);
}

TEST_F(LabelDatabase, RouteThatIsNotThereHasNoCrossConnect) {
  Put(10, "10.0.0.0/8", "192.0.2.1", {100});
  EXPECT_EQ(StatusOf(10, "10.0.0.0", 9), kStatusNoCrossConnect);
  EXPECT_EQ(StatusOf(10, "11.0.0.0", 8), kStatusNoCrossConnect);
  EXPECT_EQ(StatusOf(11, "10.0.0.0", 8), kStatusNoCrossConnect);
  EXPECT_EQ(StatusOf(10, "10.0.0.0", 264), kStatusNoCrossConnect);
}

TEST_F(LabelDatabase, BadCallsAreRefused) {
  Put(10, "10.0.0.0/8", "192.0.2.1", {100});
  LfxRequest request = Request(10, "10.0.0.0", 8);
  std::uint8_t buffer[kLfxIndexMax];
  std::size_t length = 0;
  EXPECT_EQ(lfx_c_lsr_xc_idx(nullptr, sizeof buffer, &length, &request), kStatusInvalid);
  EXPECT_EQ(lfx_c_lsr_xc_idx(buffer, sizeof buffer - 1, &length, &request), kStatusInvalid);
  EXPECT_EQ(lfx_c_lsr_xc_idx(buffer, sizeof buffer, nullptr, &request), kStatusInvalid);
  EXPECT_EQ(lfx_c_lsr_xc_idx(buffer, sizeof buffer, &length, nullptr), kStatusInvalid);
  request.kind = 2;
  EXPECT_EQ(lfx_c_lsr_xc_idx(buffer, sizeof buffer, &length, &request), kStatusInvalid);
}

TEST_F(LabelDatabase, WithoutAModelItIsNotConnected) {
  lfx_attach(nullptr);
  EXPECT_EQ(StatusOf(10, "10.0.0.0", 8), kStatusNotConnected);
}

TEST_F(LabelDatabase, MissingCrossConnectHasItsText) {
  EXPECT_STREQ(err_text(kStatusNoCrossConnect), "No cross-connect forwards the route");
}

}  // namespace
