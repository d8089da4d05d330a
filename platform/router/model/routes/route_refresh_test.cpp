// Refreshes of tables, rows of a prefix, and the opening and closing of tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/fault.h"
#include "platform/router/model/route_store.h"
#include "platform/router/model/route_test_support.h"
#include "platform/router/model/routes/route_store_test_support.h"

namespace router {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(RouteStoreRows, RefreshRemovesRowsThatWereNotPutAgain) {
  for (const char* prefix : {"10.0.0.0/8", "11.0.0.0/8", "12.0.0.0/8"}) Put(prefix);
  Wait(60);
  store_.begin_refresh(kRed);
  Put("10.0.0.0/8");
  Put("13.0.0.0/8");
  EXPECT_EQ(EndRefresh(), 2U);
  EXPECT_THAT(Walk(store_, kRed), ElementsAre("10.0.0.0/8", "13.0.0.0/8"));
  EXPECT_EQ(Age("10.0.0.0/8"), 60U);
  EXPECT_EQ(Age("13.0.0.0/8"), 0U);
}

TEST_F(RouteStoreRows, RefreshShowsOldRowsUntilItsEnd) {
  Put("10.0.0.0/8");
  store_.begin_refresh(kRed);
  EXPECT_THAT(Walk(store_, kRed), ElementsAre("10.0.0.0/8"));
}

TEST_F(RouteStoreRows, RefreshEndsInBoundedSteps) {
  for (unsigned octet = 1; octet <= 10; ++octet) Put(std::to_string(octet) + ".0.0.0/8");
  store_.begin_refresh(kRed);
  Put("4.0.0.0/8");
  EXPECT_TRUE(store_.end_refresh(kRed, 3));
  EXPECT_EQ(store_.count(kRed), 7U);
  Put("1.0.0.0/8");  // before the current row
  Put("9.0.0.0/8");  // after it
  EXPECT_EQ(EndRefresh(3), 5U);
  EXPECT_EQ(pauses_, 2);
  EXPECT_THAT(Walk(store_, kRed), ElementsAre("1.0.0.0/8", "4.0.0.0/8", "9.0.0.0/8"));
}

TEST_F(RouteStoreRows, RefreshRemovesRowsThatWereConfirmedAndRejectedAgain) {
  Put("10.0.0.0/8", "192.0.2.1");
  store_.begin_refresh(kRed);
  for (const char* hop : {"192.0.2.1", "192.0.2.2"}) Put("10.0.0.0/8", hop);
  Put("10.0.0.0/9");
  store_.unkeep(kRed, MakeKey("10.0.0.0/8"));
  EXPECT_EQ(EndRefresh(), 2U);
  EXPECT_THAT(Walk(store_, kRed), ElementsAre("10.0.0.0/9"));
}

TEST_F(RouteStoreRows, SecondRefreshAbandonsTheFirst) {
  for (const char* prefix : {"10.0.0.0/8", "11.0.0.0/8"}) Put(prefix);
  store_.begin_refresh(kRed);
  Put("10.0.0.0/8");
  EXPECT_TRUE(store_.end_refresh(kRed, 1));
  store_.begin_refresh(kRed);
  Put("11.0.0.0/8");
  EndRefresh();
  EXPECT_THAT(Walk(store_, kRed), ElementsAre("11.0.0.0/8"));
}

TEST_F(RouteStoreRows, RefreshOfATableThatIsNotOpenDoesNothing) {
  store_.begin_refresh({Family::kIpv4, 99});
  EXPECT_FALSE(store_.end_refresh({Family::kIpv4, 99}, 10));
}

TEST_F(RouteStoreRows, PrefixSurvivesARefreshIfItsRowsHaveTheOrigin) {
  for (const char* hop : {"192.0.2.1", "192.0.2.2"}) PutFrom(7, "10.0.0.0/8", hop);
  PutFrom(7, "10.0.0.0/9", "192.0.2.1");
  store_.begin_refresh(kRed);
  EXPECT_EQ(store_.keep(kRed, MakeKey("10.0.0.0/8"), 8), RouteRetention::kOtherOrigin);
  EXPECT_EQ(store_.keep(kRed, MakeKey("11.0.0.0/8"), 7), RouteRetention::kAbsent);
  EXPECT_EQ(store_.keep(kRed, MakeKey("10.0.0.0/8"), 7), RouteRetention::kRetained);
  EXPECT_EQ(EndRefresh(), 1U);
  EXPECT_EQ(store_.count(kRed), 2U);
}

TEST_F(RouteStoreRows, OriginChangesWithoutARestartOfTheAge) {
  PutFrom(7, "10.0.0.0/8", "192.0.2.1");
  Wait(5);
  EXPECT_EQ(PutFrom(8, "10.0.0.0/8", "192.0.2.1"), RouteChange::kNone);
  EXPECT_EQ(Age("10.0.0.0/8", "192.0.2.1"), 5U);
  EXPECT_EQ(Find(kRed, "10.0.0.0/8", "192.0.2.1").origin, 8U);
}

TEST_F(RouteStoreRows, RowsOfAPrefixAreVisited) {
  PutFrom(1, "10.0.0.0/8", "192.0.2.1");
  PutFrom(2, "10.0.0.0/8", "192.0.2.2");
  PutFrom(3, "10.0.0.0/9", "192.0.2.1");
  std::vector<std::uint32_t> origins;
  const auto note = [&origins](const RouteMark& row) { origins.push_back(row.origin); };
  store_.visit_prefix(kRed, MakeKey("10.0.0.0/8"), note);
  EXPECT_THAT(origins, ElementsAre(1U, 2U));
  origins.clear();
  EXPECT_TRUE(store_.visit_from(kRed, {}, 2, note));
  EXPECT_FALSE(store_.visit_from(kRed, MakeKey("10.0.0.0/9"), 2, note));
  EXPECT_THAT(origins, ElementsAre(1U, 2U, 3U));
}

TEST_F(RouteStoreRows, VisitedRowIsCurrentFromItsPutOn) {
  PutFrom(1, "10.0.0.0/8", "");
  store_.begin_refresh(kRed);
  std::vector<bool> current;
  const auto note = [&current](const RouteMark& row) { current.push_back(row.current); };
  store_.visit_prefix(kRed, MakeKey("10.0.0.0/8"), note);
  PutFrom(1, "10.0.0.0/8", "");
  store_.visit_prefix(kRed, MakeKey("10.0.0.0/8"), note);
  EXPECT_THAT(current, ElementsAre(false, true));
}

// --- Refusals

TEST_F(RouteStoreRows, TableLivesUntilItsLastClose) {
  store_.open(kRed);
  Put("10.0.0.0/8");
  store_.close(kRed);
  EXPECT_EQ(store_.count(kRed), 1U);
  store_.close(kRed);
  EXPECT_FALSE(store_.is_open(kRed));
  store_.open(kRed);
  EXPECT_EQ(store_.count(kRed), 0U);
}

TEST_F(RouteStoreRows, TableZeroIsIgnored) {
  store_.open({Family::kIpv4, 0});
  EXPECT_FALSE(store_.is_open({Family::kIpv4, 0}));
  store_.close({Family::kIpv4, 0});
}

TEST_F(RouteStoreRows, FamiliesOfOneNumberAreTwoTables) {
  Put("0.0.0.0/0");
  EXPECT_EQ(store_.count(kRed6), 0U);
}

TEST_F(RouteStoreRows, ChangedTablesAreTakenOnce) {
  Put("10.0.0.0/8");
  Put("11.0.0.0/8");
  Put(kRed6, MakeRoute("2001:db8::/32"));
  EXPECT_THAT(TakeChanged(), ElementsAre(kRed, kRed6));
  EXPECT_THAT(TakeChanged(), IsEmpty());
  Put("10.0.0.0/8");  // unchanged
  EXPECT_THAT(TakeChanged(), IsEmpty());
}

TEST_F(RouteStoreRows, EveryKindOfChangeMarksItsTable) {
  Put("10.0.0.0/8");
  TakeChanged();
  EXPECT_EQ(store_.erase(kRed, MakeKey("10.0.0.0/8")), kStatusOk);
  EXPECT_THAT(TakeChanged(), ElementsAre(kRed));
  Put("10.0.0.0/8");
  TakeChanged();
  store_.begin_refresh(kRed);
  EXPECT_THAT(TakeChanged(), IsEmpty());
  EndRefresh();
  EXPECT_THAT(TakeChanged(), ElementsAre(kRed));
}

// --- Memory of dropped tables

TEST_F(RouteStoreRows, DroppedRowsAreRemovedAtOnceAndFreedInSteps) {
  int calls = 0;
  store_.defer_releases([&] { ++calls; });
  for (unsigned octet = 1; octet <= 10; ++octet) Put(std::to_string(octet) + ".0.0.0/8");
  Reopen(kRed);
  store_.close(kBlue);
  EXPECT_EQ(store_.count(kRed), 0U);
  EXPECT_EQ(calls, 1) << "called once while rows are pending";
  Put("1.0.0.0/8");
  int steps = 1;
  while (store_.release_some(3)) ++steps;
  EXPECT_EQ(steps, 5);  // ten rows in four steps, and an empty table
  EXPECT_EQ(store_.count(kRed), 1U);
  Reopen(kRed);
  EXPECT_EQ(calls, 2);
}

TEST_F(RouteStoreRows, FreedRowsReleaseTheirLabels) {
  store_.defer_releases([] {});
  Route labelled = Labelled("10.0.0.0/8", "192.0.2.1", {100});
  Put(kRed, labelled);
  Reopen(kRed);
  labelled.key = MakeKey("11.0.0.0/8", "192.0.2.1");
  Put(kRed, labelled);  // shares the labels with the pending row
  EXPECT_FALSE(store_.release_some(100));
  EXPECT_THAT(Find(kRed, "11.0.0.0/8", "192.0.2.1").labels, ElementsAre(100));
}

TEST_F(RouteStoreRows, RowsAreFreedAtOnceWithoutAHook) {
  Put("10.0.0.0/8");
  Reopen(kRed);
  EXPECT_FALSE(store_.release_some(100));
  store_.defer_releases([] {});
  Put("10.0.0.0/8");
  Reopen(kRed);
  store_.defer_releases(nullptr);
  EXPECT_FALSE(store_.release_some(100));
}

}  // namespace
}  // namespace router
