// Read-ahead windows: one round trip for many rows, bounded age, and rows that are added, removed or cannot
// be read.
#include "agent/rows/row_cache.h"

#include <gtest/gtest.h>

#include "agent/tables/l3vpn_tables.h"
#include "agent/tables/tables_test_support.h"
#include "platform/core/base/clock.h"

namespace {

using agent_test::FakeDaemon;
using agent_test::parse_oid;
using tables::Lookup;
using tables::RowCache;
using tables::RowRef;

const tables::RowSet& interfaces() {
  return *tables::l3vpn_tables()[1].rows;
}

class RowCacheTest : public testing::Test {
 protected:
  void AddInterfaces(const std::string& vrf, std::uint32_t first, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) daemon_.AddInterface(vrf, first + i);
  }

  // The first index at or after this one; "end" or "failed".
  std::string Find(const std::string& index, std::uint32_t rows = tables::kWalkRows) {
    RowRef row;
    switch (cache_.first_at_or_after(parse_oid(index).view(), rows, &row)) {
      case Lookup::kRow:
        return oid::to_text(row.index());
      case Lookup::kEnd:
        return "end";
      case Lookup::kFailed:
        break;
    }
    return "failed";
  }

  ManualClock clock_{1000 * kNanosecondsPerSecond};
  FakeDaemon daemon_;
  RowCache cache_{interfaces(), daemon_, kNanosecondsPerSecond};
};

TEST_F(RowCacheTest, OneReadServesAWindowOfRows) {
  AddInterfaces("a", 1, 1000);
  for (int i = 1; i <= 128; ++i) EXPECT_EQ(Find("1.97." + std::to_string(i)), "1.97." + std::to_string(i));
  EXPECT_EQ(daemon_.reads, 1);
  EXPECT_EQ(Find("1.97.129"), "1.97.129");
  EXPECT_EQ(daemon_.reads, 2);
}

TEST_F(RowCacheTest, WalkOverTenThousandRowsReadsOncePerWindow) {
  AddInterfaces("a", 1, 10'000);
  int rows = 0;
  for (std::string at = "0.0"; (at = Find(at)) != "end"; ++rows) {
    ASSERT_NE(at, "failed");
    oid::Oid next = parse_oid(at);
    ++next[next.size() - 1];
    at = oid::to_text(next.view());
  }
  EXPECT_EQ(rows, 10'000);
  EXPECT_EQ(daemon_.reads, (10'000 + 127) / 128);
}

TEST_F(RowCacheTest, RowsAreServedUntilTheirAge) {
  AddInterfaces("a", 1, 2);
  EXPECT_EQ(Find("1.97.1"), "1.97.1");
  daemon_.RemoveInterface("a", 1);
  clock_.advance(kNanosecondsPerSecond - 1);
  EXPECT_EQ(Find("1.97.1"), "1.97.1");
  clock_.advance(1);
  EXPECT_EQ(Find("1.97.1"), "1.97.2");
  EXPECT_EQ(daemon_.reads, 2);
}

TEST_F(RowCacheTest, EndOfTheTableIsRememberedToo) {
  AddInterfaces("a", 1, 3);
  EXPECT_EQ(Find("1.97.3"), "1.97.3");
  EXPECT_EQ(Find("1.97.4"), "end");
  EXPECT_EQ(Find("9.1.1.1.1.1.1.1.1.1.1"), "end");
  EXPECT_EQ(daemon_.reads, 1);
}

TEST_F(RowCacheTest, EmptyTableIsReadOnce) {
  EXPECT_EQ(Find("0.0"), "end");
  EXPECT_EQ(Find("5.1.1.1.1.1.0"), "end");
  EXPECT_EQ(daemon_.reads, 1);
  EXPECT_EQ(daemon_.paths[0], "/oper/mpls_vpn/gl/interface-next//0");
}

TEST_F(RowCacheTest, NothingBeforeTheFirstRequestedIndexIsAssumed) {
  AddInterfaces("a", 1, 10);
  EXPECT_EQ(Find("1.97.5"), "1.97.5");
  EXPECT_EQ(Find("1.97.4"), "1.97.4");
  EXPECT_EQ(daemon_.reads, 2);
}

TEST_F(RowCacheTest, FourWalksAtDifferentPlacesKeepTheirWindows) {
  AddInterfaces("a", 1, 5000);
  for (int step = 0; step < 100; ++step) {
    for (const int start : {1, 1001, 2001, 3001}) Find("1.97." + std::to_string(start + step));
  }
  EXPECT_EQ(daemon_.reads, 4);
}

TEST_F(RowCacheTest, WindowThatWasLongestUnusedMakesRoom) {
  AddInterfaces("a", 1, 5000);
  for (const char* index : {"1.97.1", "1.97.1001", "1.97.2001", "1.97.3001"}) Find(index);
  Find("1.97.1");
  Find("1.97.4001");
  EXPECT_EQ(daemon_.reads, 5);
  Find("1.97.1");
  EXPECT_EQ(daemon_.reads, 5);
  Find("1.97.1001");
  EXPECT_EQ(daemon_.reads, 6);
}

TEST_F(RowCacheTest, OlderWindowDoesNotDenyARowThatANewerOneShowed) {
  AddInterfaces("a", 10, 5);
  daemon_.AddInterface("a", 200);
  EXPECT_EQ(Find("1.97.10"), "1.97.10");
  daemon_.AddInterface("a", 12);
  daemon_.AddInterface("a", 100);
  EXPECT_EQ(Find("1.97.5"), "1.97.10") << "a new window, over the old one";
  EXPECT_EQ(Find("1.97.100"), "1.97.100");
  EXPECT_EQ(daemon_.reads, 2);
}

TEST_F(RowCacheTest, FailedReadIsNotAnEndAndIsNotCached) {
  AddInterfaces("a", 1, 300);
  daemon_.status = kStatusTimedOut;
  EXPECT_EQ(Find("1.97.1"), "failed");
  daemon_.status = kStatusOk;
  EXPECT_EQ(Find("1.97.1"), "1.97.1");
  daemon_.status = kStatusNotConnected;
  EXPECT_EQ(Find("1.97.2"), "1.97.2") << "what is fresh is still served";
  EXPECT_EQ(Find("1.97.129"), "failed");
}

TEST_F(RowCacheTest, RecordOfAnotherTypeFailsTheWindowAndIsLoggedOnce) {
  testing::internal::CaptureStderr();
  kvtree::Octets broken = FakeDaemon::InterfaceRecord("a", 2, 0);
  broken.pop_back();
  daemon_.AnswerWalksWith({FakeDaemon::InterfaceRecord("a", 1, 0), broken}, true);
  EXPECT_EQ(Find("0.0"), "failed");
  EXPECT_EQ(Find("0.0"), "failed");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "mplsL3VpnIfConfTable: the daemon's answer is malformed or out of order\n");
}

TEST_F(RowCacheTest, RowsThatDecreaseRepeatOrPrecedeTheIndexFailTheWindow) {
  const auto row = [](std::uint32_t index) { return FakeDaemon::InterfaceRecord("a", index, 0); };
  daemon_.AnswerWalksWith({row(6), row(5)}, true);
  EXPECT_EQ(Find("1.97.1"), "failed");
  daemon_.AnswerWalksWith({row(6), row(6)}, true);
  EXPECT_EQ(Find("1.97.1"), "failed");
  daemon_.AnswerWalksWith({row(6)}, true);
  EXPECT_EQ(Find("1.97.7"), "failed");
  daemon_.AnswerWalksWith({row(6), row(7)}, true);
  EXPECT_EQ(Find("1.97.1"), "1.97.6");
}

TEST_F(RowCacheTest, AnswerWithoutRowsAndWithoutEndIsAFailure) {
  daemon_.AnswerWalksWith({}, false);
  EXPECT_EQ(Find("0.0"), "failed");
}

TEST_F(RowCacheTest, NamesLongerThanTheMibAllowsEndTheTable) {
  AddInterfaces("a", 1, 1);
  daemon_.AddInterface(std::string(31, 'l'), 1);
  daemon_.AddInterface(std::string(32, 'l'), 1);
  std::string longest = "31";
  for (int i = 0; i < 31; ++i) longest += ".108";
  EXPECT_EQ(Find("1.97.2"), longest + ".1");
  EXPECT_EQ(Find(longest + ".2"), "end");
}

TEST_F(RowCacheTest, WindowOfNamesTooLongIsTheEndThoughMoreRowsFollow) {
  daemon_.AnswerWalksWith({FakeDaemon::InterfaceRecord(std::string(32, 'l'), 1, 0)}, false);
  EXPECT_EQ(Find("0.0"), "end");
  EXPECT_EQ(Find("9.1.1.1.1.1.1.1.1.1.1"), "end");
  EXPECT_EQ(daemon_.reads, 1);
}

TEST_F(RowCacheTest, AbsentVrfNameIsTheZeroLengthName) {
  daemon_.AddInterface("", 3);
  AddInterfaces("a", 1, 1);
  EXPECT_EQ(Find("0.0"), "0.3");
  EXPECT_EQ(Find("0.4"), "1.97.1");
}

TEST_F(RowCacheTest, AgeZeroReadsEveryTime) {
  RowCache cache(interfaces(), daemon_, 0);
  AddInterfaces("a", 1, 2);
  RowRef row;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(cache.first_at_or_after(parse_oid("1.97.1").view(), 16, &row), Lookup::kRow);
  }
  EXPECT_EQ(daemon_.reads, 3);
}

}  // namespace
