// The module as a manager sees it: scalars and the interface table, GET and GETNEXT, over a simulated daemon.
#include "agent/tables/mib.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "agent/tables/mib_test_fixture.h"

namespace {

using agent_test::cell;
using agent_test::if_conf;
using agent_test::MibTest;
using agent_test::name_of;
using agent_test::parse_oid;
using agent_test::scalar;
using oid::Oid;
using tables::Answer;

TEST_F(MibTest, ScalarsShowTheDaemonsNumbers) {
  daemon_.scalars = {4, 2, 5, 0, 30, 6};
  EXPECT_EQ(Number(scalar(1)), 4U);
  EXPECT_EQ(variable_.type, mib::Type::kUnsigned);
  EXPECT_EQ(Number(scalar(2)), 2U);
  EXPECT_EQ(variable_.type, mib::Type::kGauge);
  EXPECT_EQ(Number(scalar(3)), 5U);
  EXPECT_EQ(variable_.type, mib::Type::kGauge);
  EXPECT_EQ(Number(scalar(6)), 30U);
  EXPECT_EQ(Number(scalar(7)), 6U);
  EXPECT_EQ(daemon_.reads, 1) << "one read serves all seven";
}

TEST_F(MibTest, NotificationEnableIsATruthValue) {
  daemon_.scalars.notificationEnable = 1;
  EXPECT_EQ(Number(scalar(4)), 1U);
  EXPECT_EQ(variable_.type, mib::Type::kTruth);
  for (const int off : {0, 2, -1}) {
    daemon_.scalars.notificationEnable = off;
    clock_.advance(kNanosecondsPerSecond);
    EXPECT_EQ(Number(scalar(4)), 2U) << off;
  }
}

TEST_F(MibTest, MaximumOfRoutesIsNotKnown) {
  EXPECT_EQ(Number(scalar(5)), 0U);
}

TEST_F(MibTest, InterfaceRowHasItsFourColumns) {
  AddMembers();
  EXPECT_EQ(Number(if_conf(2, "RED", 300000)), 2U);
  ASSERT_EQ(Get(if_conf(3, "RED", 300000)), Answer::kValue);
  EXPECT_TRUE(is_octet_string(variable_.type));
  EXPECT_EQ(std::vector<std::uint8_t>(variable_.cell.octets.begin(), variable_.cell.octets.end()),
            std::vector<std::uint8_t>{0x44});
  EXPECT_EQ(Number(if_conf(4, "RED", 300000)), 5U);
  EXPECT_EQ(Number(if_conf(5, "RED", 300000)), 1U);
}

TEST_F(MibTest, WalkVisitsScalarsThenColumnsInNameLengthOrder) {
  AddMembers();
  std::vector<std::string> expected;
  for (std::uint32_t number = 1; number <= 7; ++number) expected.push_back(Text(scalar(number)));
  for (std::uint32_t column = 2; column <= 5; ++column) {
    expected.push_back(Text(if_conf(column, "IP", 14)));
    expected.push_back(Text(if_conf(column, "RED", 11)));
    expected.push_back(Text(if_conf(column, "RED", 300000)));
    expected.push_back(Text(if_conf(column, "LONG", 15)));
  }
  std::vector<std::string> walked;
  for (const Oid& name : Walk()) walked.push_back(Text(name));
  EXPECT_EQ(walked, expected);
}

TEST_F(MibTest, GetFindsWhatGetNextFinds) {
  std::mt19937 random(5);
  for (int i = 0; i < 400; ++i) {
    daemon_.AddInterface(std::string(random() % 5, static_cast<char>('a' + random() % 20)),
                         static_cast<std::uint32_t>(1 + random() % 400));
  }
  const std::vector<Oid> names = Walk();
  EXPECT_GT(names.size(), 1000U);
  for (const Oid& name : names) EXPECT_EQ(Get(name), Answer::kValue) << Text(name);
}

TEST_F(MibTest, GetNextFromAnywhereFindsTheFollowingName) {
  AddMembers();
  const std::vector<Oid> names = Walk();
  std::mt19937 random(6);
  for (int round = 0; round < 3000; ++round) {
    Oid start = names[random() % names.size()];
    start.truncate(8 + random() % (start.size() - 7));
    if (random() % 2 == 0) start[start.size() - 1] += static_cast<std::uint32_t>(random() % 3) - 1;
    if (random() % 4 == 0) {
      ASSERT_TRUE(start.append(static_cast<std::uint32_t>(random() % 2)));
    }
    const bool include = random() % 2 == 0;
    const auto expected = std::find_if(names.begin(), names.end(), [&](const Oid& name) {
      const auto order = oid::compare(name.view(), start.view());
      return include ? order >= 0 : order > 0;
    });
    ASSERT_EQ(Next(start, include), expected == names.end() ? "end" : Text(*expected)) << Text(start);
  }
}

TEST_F(MibTest, SearchRangeEndIsRespected) {
  AddMembers();
  EXPECT_EQ(Next(scalar(7), false, if_conf(2)), "end");
  EXPECT_EQ(Next(scalar(7), false, if_conf(2, "IP", 14)), "end") << "the end itself is not in the range";
  EXPECT_EQ(Next(scalar(7), false, if_conf(2, "IP", 15)), Text(if_conf(2, "IP", 14)));
  EXPECT_EQ(Next(if_conf(2, "LONG", 15), false, if_conf(3)), "end");
  EXPECT_EQ(Next(if_conf(2, "LONG", 15), false, if_conf(4)), Text(if_conf(3, "IP", 14)));
  EXPECT_EQ(Next(scalar(3), true, scalar(3)), "end");
}

TEST_F(MibTest, RangeThatEndsBeforeTheTableDoesNotAskTheDaemon) {
  EXPECT_EQ(Next(scalar(7), false, if_conf(2)), "end");
  EXPECT_EQ(daemon_.reads, 0);
}

TEST_F(MibTest, IncludeBitMakesTheStartPartOfTheRange) {
  AddMembers();
  EXPECT_EQ(Next(scalar(3), true), Text(scalar(3)));
  EXPECT_EQ(Next(scalar(3), false), Text(scalar(4)));
  EXPECT_EQ(Next(if_conf(4, "RED", 11), true), Text(if_conf(4, "RED", 11)));
  EXPECT_EQ(Next(if_conf(4, "RED", 12), true), Text(if_conf(4, "RED", 300000)));
}

TEST_F(MibTest, OnlyAccessibleObjectsAreObjects) {
  AddMembers();
  for (const Oid& name : {if_conf(1, "RED", 11), if_conf(6, "RED", 11), if_conf(0), scalar(8), scalar(0),
                          parse_oid("1.3.6.1.2.1.10.166.11.1.1"), parse_oid("1.3.6.1.2.1.10.166.11.1.2.1.1"),
                          cell("2.2.1", 1, "RED"), cell("2.2.1", 16, "RED"), cell("2.3.1", 2, "RED", "1.1"),
                          cell("2.3.1", 3, "RED", "1.1"), cell("2.4.1", 1, "RED"), cell("2.6.1", 3, "RED"),
                          cell("3.1.1", 6, "RED"), cell("4.1.1", 6, "RED"), cell("4.1.1", 19, "RED"),
                          parse_oid("1.3"), Oid{}}) {
    EXPECT_EQ(Get(name), Answer::kNoSuchObject) << Text(name);
  }
  EXPECT_EQ(daemon_.reads, 0);
}

TEST_F(MibTest, PartialOverlongAndOutOfRangeIndexesHaveNoInstance) {
  AddMembers();
  for (const Oid& name :
       {scalar(1, ""), scalar(1, "1"), scalar(1, "0.0"), if_conf(5), if_conf(5, "3"),
        if_conf(5, "3.82.69.68"), if_conf(5, "3.82.69.68.11.0"), if_conf(5, "3.82.69.325.11"),
        if_conf(5, "4294967295.1"), if_conf(5, std::string(32, 'a'), 11)}) {
    EXPECT_EQ(Get(name), Answer::kNoSuchInstance) << Text(name);
  }
  EXPECT_EQ(daemon_.reads, 0) << "what can be no index is not looked up";
  for (const Oid& name : {if_conf(5, "RED", 12), if_conf(5, "RED", 0), if_conf(5, "RED", 4294967295),
                          if_conf(5, "", 11), if_conf(5, std::string(31, 'a'), 11)}) {
    EXPECT_EQ(Get(name), Answer::kNoSuchInstance) << Text(name);
  }
}

TEST_F(MibTest, AwayDaemonIsAFailureAndNeverAMissingRow) {
  AddMembers();
  daemon_.status = kStatusNotConnected;
  EXPECT_EQ(Get(scalar(1)), Answer::kFailed);
  EXPECT_EQ(Get(if_conf(5, "RED", 11)), Answer::kFailed);
  EXPECT_EQ(Next(parse_oid("1.3.6.1.2.1.10.166.11.1")), "failed");
  EXPECT_EQ(Next(scalar(7)), "failed");
  EXPECT_EQ(Next(if_conf(5, "LONG", 15)), "failed");
}

TEST_F(MibTest, TableIsNeverTruncatedWhenTheDaemonDisconnectsInTheMiddle) {
  for (std::uint32_t i = 1; i <= 1000; ++i) daemon_.AddInterface("RED", i);
  daemon_.fail_after = 4;  // the scalars and three windows
  Oid at = parse_oid("1.3.6.1.2.1.10.166.11");
  Answer answer = Answer::kValue;
  int found = 0;
  while ((answer = mib_.next(at.view(), false, {}, &variable_)) == Answer::kValue) {
    at = name_of(variable_);
    ++found;
  }
  EXPECT_EQ(answer, Answer::kFailed);
  EXPECT_EQ(found, 7 + 128 + 256 + 512);
}

TEST_F(MibTest, RowsAddedAndRemovedBetweenWindowsNeverStepAWalkBack) {
  std::mt19937 random(9);
  for (std::uint32_t i = 1; i <= 2000; ++i) daemon_.AddInterface("RED", i);
  Oid at = if_conf(2);
  int steps = 0;
  while (mib_.next(at.view(), false, if_conf(3).view(), &variable_) == Answer::kValue) {
    const Oid found = name_of(variable_);
    ASSERT_TRUE(oid::compare(found.view(), at.view()) > 0);
    at = found;
    for (int i = 0; i < 5; ++i) {
      const auto index = static_cast<std::uint32_t>(1 + random() % 2500);
      if (random() % 2 == 0) {
        daemon_.AddInterface("RED", index);
      } else {
        daemon_.RemoveInterface("RED", index);
      }
    }
    if (random() % 50 == 0) clock_.advance(kNanosecondsPerSecond);
    ASSERT_LT(++steps, 3000);
  }
  EXPECT_GT(steps, 500);
}

TEST_F(MibTest, GetNextOfARemovedRowsNameFindsTheFollowingRow) {
  AddMembers();
  EXPECT_EQ(Next(if_conf(2)), Text(if_conf(2, "IP", 14)));
  daemon_.RemoveInterface("IP", 14);
  daemon_.RemoveInterface("RED", 11);
  clock_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(Next(if_conf(2, "IP", 14)), Text(if_conf(2, "RED", 300000)));
}

TEST_F(MibTest, EmptyTablesEndAfterTheScalars) {
  EXPECT_EQ(Next(scalar(7)), "end");
  EXPECT_EQ(daemon_.reads, 4) << "all columns of a kind of rows are empty by one read";
}

}  // namespace
