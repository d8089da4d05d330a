// The tables of VRFs and route targets as a manager sees them, over a daemon made of lists.
#include "agent/tables/l3vpn_tables.h"

#include <gmock/gmock.h>

#include <array>

#include "agent/rows/text_line.h"
#include "agent/tables/mib_test_fixture.h"

namespace {

using agent_test::cell;
using agent_test::FakeVrf;
using agent_test::kPerformance;
using agent_test::kRt;
using agent_test::kSecurity;
using agent_test::kVrf;
using agent_test::L3vpnTablesTest;
using tables::Answer;
using testing::ElementsAre;

// --- VRFs, security, performance

TEST_F(L3vpnTablesTest, VrfRowHasItsFourteenColumns) {
  FakeVrf vrf{"Red Rail", "65000:100", {}};
  vrf.numbers.operStatus = 1;
  vrf.numbers.activeInterfaces = 2;
  vrf.numbers.associatedInterfaces = 3;
  vrf.numbers.midThresh = 400;
  vrf.numbers.highThresh = 500;
  vrf.numbers.rowStatus = 1;
  vrf.numbers.adminStatus = 2;
  vrf.numbers.storageType = 5;
  daemon_.AddVrf("red", vrf);
  EXPECT_THAT(Row(kVrf, 2, "red"), ElementsAre("", "Red Rail", "65000:100", "0 ticks", "1 integer", "2 gauge",
                                               "3 unsigned", "400 unsigned", "500 unsigned", "500 unsigned",
                                               "0 ticks", "1 integer", "2 integer", "5 integer"));
  EXPECT_EQ(daemon_.reads, 2) << "the first column, then all";
}

TEST_F(L3vpnTablesTest, SecurityAndPerformanceRowsAreTheVrfsRows) {
  FakeVrf vrf;
  vrf.numbers.illegalLabelViolations = 1;
  vrf.numbers.routesAdded = 2;
  vrf.numbers.routesDeleted = 3;
  vrf.numbers.currNumRoutes = 4;
  vrf.numbers.routesDropped = 5;
  daemon_.AddVrf("red", vrf);
  EXPECT_EQ(Text(cell(kVrf, 3, "red")), "");
  EXPECT_THAT(Row(kSecurity, 1, "red"), ElementsAre("1 counter", "0 ticks"));
  EXPECT_THAT(Row(kPerformance, 1, "red"),
              ElementsAre("2 counter", "3 counter", "4 gauge", "5 counter", "0 ticks"));
  EXPECT_EQ(daemon_.reads, 3)
      << "one window for three tables, after that of the first column, and whether routes can be read";
}

TEST_F(L3vpnTablesTest, NumberOfRoutesFailsWhileRoutesCannotBeRead) {
  daemon_.AddVrf("red");
  daemon_.route_status = kStatusNoRouteModule;
  EXPECT_EQ(Get(cell(kPerformance, 3, "red")), Answer::kFailed);
  EXPECT_EQ(Next(cell(kPerformance, 2, "red")), "failed");
  EXPECT_EQ(Get(cell(kPerformance, 3, "blue")), Answer::kNoSuchInstance) << "there is no such row";
  EXPECT_EQ(Shown(cell(kPerformance, 2, "red")), "0 counter");
  EXPECT_EQ(Next(cell(kPerformance, 3, "red")), oid::to_text(cell(kPerformance, 4, "red").view()));
  daemon_.route_status = kStatusNoSuchRow;
  EXPECT_EQ(Get(cell(kPerformance, 3, "red")), Answer::kFailed) << "cached as long as the row";
  clock_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(Shown(cell(kPerformance, 3, "red")), "0 gauge");
  daemon_.route_status = kStatusNoRouteModule;
  EXPECT_EQ(Get(cell(kPerformance, 3, "red")), Answer::kValue);
  clock_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(Get(cell(kPerformance, 3, "red")), Answer::kFailed);
}

TEST_F(L3vpnTablesTest, VrfWithNothingSetHasEveryInstance) {
  daemon_.AddVrf("red");
  const std::vector<std::string> row = Row(kVrf, 2, "red");
  EXPECT_EQ(row.size(), 14U);
  EXPECT_EQ(row[0] + row[1] + row[2], "");
  EXPECT_EQ(Shown(cell(kPerformance, 3, "red")), "0 gauge");
}

TEST_F(L3vpnTablesTest, TextsAreOneLineOfAtMostTheirSize) {
  const auto shown = [](std::string_view text, std::size_t most) {
    std::vector<std::uint8_t> octets = {'x', '\n'};  // of another text
    octets.insert(octets.end(), text.begin(), text.end());
    tables::make_one_line(&octets, 2, most);
    return std::string(octets.begin() + 2, octets.end());
  };
  EXPECT_EQ(shown("to the core", 255), "to the core");
  EXPECT_EQ(shown("two\r\nlines\tand a \x7f", 255), "two  lines and a  ");
  EXPECT_EQ(shown("abcdef", 4), "abcd");
  EXPECT_EQ(shown("abc\xc3\xa9", 4), "abc") << "not half a character";
  EXPECT_EQ(shown("abc\xc3\xa9", 5), "abc\xc3\xa9");
  EXPECT_EQ(shown("\xe2\x82\xac", 2), "");
  daemon_.AddVrf("red", {"two\nlines", std::string(257, 'r'), {}});
  daemon_.AddVrf("blue", {std::string(255, 'd'), "1:1", {}});
  EXPECT_EQ(Text(cell(kVrf, 3, "red")), "two lines");
  EXPECT_EQ(Text(cell(kVrf, 4, "red")), std::string(256, 'r'));
  EXPECT_EQ(Text(cell(kVrf, 3, "blue")), std::string(255, 'd'));
}

// --- Time stamps

TEST_F(L3vpnTablesTest, TimeStampIsSysUpTimeAtThatMoment) {
  FakeVrf vrf;
  vrf.numbers.creationTime = 1'700'000'100;
  vrf.numbers.confLastChanged = 1'700'000'200;
  vrf.numbers.discontinuityTime = 1'700'000'300;
  vrf.numbers.discTime = 1'700'000'400;
  daemon_.AddVrf("red", vrf);
  mib_.set_up_time_zero(1'700'000'000'500'000'000);
  EXPECT_EQ(Shown(cell(kVrf, 5, "red")), "9950 ticks");
  EXPECT_EQ(Shown(cell(kVrf, 12, "red")), "19950 ticks");
  EXPECT_EQ(Shown(cell(kSecurity, 2, "red")), "29950 ticks");
  EXPECT_EQ(Shown(cell(kPerformance, 5, "red")), "39950 ticks");
}

TEST_F(L3vpnTablesTest, TimeStampOfWhatHappenedBeforeTheMasterStartedIsZero) {
  FakeVrf vrf;
  vrf.numbers.creationTime = 1'700'000'000;
  vrf.numbers.confLastChanged = 1'700'000'001;
  daemon_.AddVrf("red", vrf);
  mib_.set_up_time_zero(1'700'000'000'500'000'000);
  EXPECT_EQ(Shown(cell(kVrf, 5, "red")), "0 ticks");
  EXPECT_EQ(Shown(cell(kVrf, 12, "red")), "50 ticks");
  EXPECT_EQ(Shown(cell(kSecurity, 2, "red")), "0 ticks") << "never";
}

TEST_F(L3vpnTablesTest, TimeStampFollowsTheMasterWithoutAnotherRead) {
  FakeVrf vrf;
  vrf.numbers.creationTime = 1'700'000'100;
  daemon_.AddVrf("red", vrf);
  EXPECT_EQ(Shown(cell(kVrf, 5, "red")), "0 ticks") << "sysUpTime is not known yet";
  mib_.set_up_time_zero(1'700'000'000'000'000'000);
  EXPECT_EQ(Shown(cell(kVrf, 5, "red")), "10000 ticks");
  mib_.set_up_time_zero(1'700'000'099'000'000'000);
  EXPECT_EQ(Shown(cell(kVrf, 5, "red")), "100 ticks");
  EXPECT_EQ(daemon_.reads, 1);
}

// --- Route targets

TEST_F(L3vpnTablesTest, RouteTargetRowHasItsFourColumns) {
  daemon_.AddRouteTarget("red", 1, "65000:1", "IPv4 Unicast");
  daemon_.AddRouteTarget("red", 2, "4200000000:7", "");
  EXPECT_EQ(Text(cell(kRt, 4, "red", "1.1")), "65000:1");
  EXPECT_EQ(Text(cell(kRt, 5, "red", "1.1")), "IPv4 Unicast");
  EXPECT_EQ(Shown(cell(kRt, 6, "red", "1.1")), "1 integer");
  EXPECT_EQ(Shown(cell(kRt, 7, "red", "1.1")), "5 integer");
  EXPECT_EQ(Text(cell(kRt, 4, "red", "2.2")), "4200000000:7");
  EXPECT_EQ(Text(cell(kRt, 5, "red", "2.2")), "");
}

TEST_F(L3vpnTablesTest, RouteTargetOfAnotherTypeOrNumberIsNotAnInstance) {
  daemon_.AddRouteTarget("red", 1, "65000:1");
  daemon_.AddRouteTarget("reds", 1, "65000:1");
  for (const char* rest : {"", "1", "0.1", "1.0", "1.2", "1.3", "1.4", "2.1", "4294967295.1", "1.1.0"}) {
    EXPECT_EQ(Get(cell(kRt, 4, "red", rest)), Answer::kNoSuchInstance) << rest;
  }
  EXPECT_EQ(Get(cell(kRt, 4, "red", "1.1")), Answer::kValue);
}

TEST_F(L3vpnTablesTest, RouteTargetsAreInTheOrderOfNameThenNumber) {
  AddEverything();
  EXPECT_EQ(Column(kRt, 4), (std::vector<std::string>{"3.114.101.100.1.1", "3.114.101.100.2.2",
                                                      "3.114.101.100.3.2", "4.98.108.117.101.1.1",
                                                      "4.98.108.117.101.2.2", "4.98.108.117.101.3.2"}));
}

// The counter needs two batches, one after the other.
TEST_F(L3vpnTablesTest, CounterIsAnsweredWithAgeZeroWhileOtherRequestsArrive) {
  AddEverything();
  tables::Mib mib(tables::l3vpn_tables(), daemon_, 0);
  daemon_.Delay();
  const oid::Oid name = cell(kPerformance, 3, "red");
  const std::uint64_t number = mib.begin_requests(clock_monotonic());
  Answer answer = mib.get(name.view(), &variable_);
  for (int i = 0; i < 20 && answer == Answer::kPending; ++i) {
    mib.begin_requests(clock_monotonic());
    daemon_.Deliver();
    mib.resume_requests(clock_monotonic(), number);
    answer = mib.get(name.view(), &variable_);
  }
  EXPECT_EQ(answer, Answer::kValue);
}

}  // namespace
