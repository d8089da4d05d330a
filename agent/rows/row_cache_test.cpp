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
using tables::Slots;

constexpr Slots kFirstSlot = 1;
constexpr Slots kSecondSlot = 2;
constexpr Slots kThirdSlot = 4;

const tables::RowSet& interfaces() {
  return *tables::l3vpn_tables()[1].rows;
}

class RowCacheTest : public testing::Test {
 protected:
  void AddInterfaces(const std::string& vrf, std::uint32_t first, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) daemon_.AddInterface(vrf, first + i);
  }

  // The first index at or after this one; "end" or "failed".
  std::string Find(const std::string& index, Slots slots = kFirstSlot,
                   std::uint32_t rows = tables::kWalkRows) {
    RowRef row;
    cache_.begin_requests(clock_monotonic());
    return Found(index, slots, rows, &row);
  }
  // The same within the request at hand.
  std::string Found(const std::string& index, Slots slots, std::uint32_t rows, RowRef* found) {
    RowRef& row = *found;
    switch (cache_.first_at_or_after(parse_oid(index).view(), slots, rows, &row)) {
      case Lookup::kRow:
        return oid::to_text(row.index());
      case Lookup::kEnd:
        return "end";
      case Lookup::kPending:
        return "pending";
      case Lookup::kFailed:
        break;
    }
    return "failed";
  }

  ManualClock clock_{1000 * kNanosecondsPerSecond};
  FakeDaemon daemon_;
  RowCache cache_{interfaces(), daemon_, kNanosecondsPerSecond};
};

TEST_F(RowCacheTest, OneReadServesAWindowOfRowsAndHalfOfItStartsTheNext) {
  AddInterfaces("a", 1, 1000);
  for (int i = 1; i <= 64; ++i) EXPECT_EQ(Find("1.97." + std::to_string(i)), "1.97." + std::to_string(i));
  EXPECT_EQ(daemon_.reads, 1);
  for (int i = 65; i <= 256; ++i) EXPECT_EQ(Find("1.97." + std::to_string(i)), "1.97." + std::to_string(i));
  EXPECT_EQ(daemon_.rows_asked, (std::vector<std::uint32_t>{128, 256, 512}))
      << "the second one starts the third at once";
}

TEST_F(RowCacheTest, WalkOverTenThousandRowsReadsEachWindowOnceAndTheyGrow) {
  AddInterfaces("a", 1, 10'000);
  int rows = 0;
  for (std::string at = "0.0"; (at = Find(at)) != "end"; ++rows) {
    ASSERT_NE(at, "failed");
    oid::Oid next = parse_oid(at);
    ++next[next.size() - 1];
    at = oid::to_text(next.view());
  }
  EXPECT_EQ(rows, 10'000);
  EXPECT_EQ(daemon_.reads, 2 + (10'000 - 128 - 256 + 511) / 512);
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
  EXPECT_EQ(daemon_.reads, 4 + 4);
}

TEST_F(RowCacheTest, WindowThatWasLongestUnusedMakesRoom) {
  AddInterfaces("a", 1, 9000);
  const auto place = [](std::size_t number) { return "1.97." + std::to_string(1 + 1000 * number); };
  for (std::size_t i = 0; i < tables::kWindows; ++i) Find(place(i));
  Find(place(0));
  EXPECT_EQ(daemon_.reads, 8);
  Find(place(8));
  EXPECT_EQ(daemon_.reads, 9);
  Find(place(0));
  EXPECT_EQ(daemon_.reads, 9);
  Find(place(1));
  EXPECT_EQ(daemon_.reads, 10);
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

TEST_F(RowCacheTest, MalformedBatchFailsTheWindowAndIsLoggedOnce) {
  testing::internal::CaptureStderr();
  AddInterfaces("a", 1, 2);
  daemon_.Spoil({}, 1);
  EXPECT_EQ(Find("0.0"), "failed");
  daemon_.Spoil({0}, 0);
  EXPECT_EQ(Find("0.0"), "failed");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "mplsL3VpnIfConfTable: the daemon's answer is malformed or out of order\n");
  daemon_.Spoil({}, 0);
  EXPECT_EQ(Find("0.0"), "1.97.1");
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

TEST_F(RowCacheTest, MoreRowsThanRequestedFailTheWindow) {
  std::vector<kvtree::Octets> rows;
  for (std::uint32_t index = 1; index <= 17; ++index)
    rows.push_back(FakeDaemon::InterfaceRecord("a", index, 0));
  daemon_.AnswerWalksWith(rows, true);
  EXPECT_EQ(Find("0.0", kFirstSlot, 16), "failed");
  EXPECT_EQ(Find("0.0", kFirstSlot, 17), "1.97.1");
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

TEST_F(RowCacheTest, AgeZeroReadsForEveryRequest) {
  RowCache cache(interfaces(), daemon_, 0);
  AddInterfaces("a", 1, 2);
  RowRef row;
  for (int i = 0; i < 3; ++i) {
    cache.begin_requests(clock_monotonic());
    EXPECT_EQ(cache.first_at_or_after(parse_oid("1.97.1").view(), kFirstSlot, 16, &row), Lookup::kRow);
    EXPECT_EQ(cache.first_at_or_after(parse_oid("1.97.2").view(), kFirstSlot, 16, &row), Lookup::kRow);
  }
  EXPECT_EQ(daemon_.reads, 3);
}

TEST_F(RowCacheTest, AgeZeroReadsNothingAhead) {
  RowCache cache(interfaces(), daemon_, 0);
  AddInterfaces("a", 1, 1000);
  RowRef row;
  cache.begin_requests(clock_monotonic());
  for (int i = 1; i <= 100; ++i) {
    const std::string index = "1.97." + std::to_string(i);
    ASSERT_EQ(cache.first_at_or_after(parse_oid(index).view(), kFirstSlot, tables::kWalkRows, &row),
              Lookup::kRow);
  }
  EXPECT_EQ(daemon_.reads, 1);
}

// --- Columns

class RowCacheColumnsTest : public RowCacheTest {
 protected:
  RowCacheColumnsTest() { AddInterfaces("a", 1, 1000); }
  // The slots of each read: the columns after the two of the index.
  std::vector<std::size_t> SlotsRead() const {
    std::vector<std::size_t> counts;
    for (const auto& columns : daemon_.columns) counts.push_back(columns.size() - 2);
    return counts;
  }
};

TEST_F(RowCacheColumnsTest, WalkOfOneColumnReadsNoOther) {
  for (int i = 1; i <= 1000; ++i) Find("1.97." + std::to_string(i), kSecondSlot);
  EXPECT_GT(daemon_.reads, 2);
  EXPECT_EQ(SlotsRead(), std::vector<std::size_t>(static_cast<std::size_t>(daemon_.reads), 1));
}

TEST_F(RowCacheColumnsTest, ColumnsOfOneRequestAreReadTogether) {
  RowRef row;
  cache_.begin_requests(clock_monotonic());
  cache_.want(kFirstSlot | kThirdSlot);
  EXPECT_EQ(Found("1.97.1", kFirstSlot, tables::kWalkRows, &row), "1.97.1");
  EXPECT_EQ(Found("1.97.1", kThirdSlot, tables::kWalkRows, &row), "1.97.1");
  EXPECT_EQ(daemon_.reads, 1);
  EXPECT_EQ(SlotsRead(), std::vector<std::size_t>{2});
}

TEST_F(RowCacheColumnsTest, ColumnsThatAreWalkedSideBySideShareTheirWindows) {
  for (int i = 1; i <= 1000; ++i) {
    for (const Slots slots : {kFirstSlot, kSecondSlot, kThirdSlot}) {
      EXPECT_EQ(Find("1.97." + std::to_string(i), slots), "1.97." + std::to_string(i));
    }
  }
  // Three at the first row, until it is known what is read together; 128, 256, 512 and 104 rows.
  EXPECT_EQ(SlotsRead(), (std::vector<std::size_t>{1, 2, 3, 3, 3, 3}));
}

TEST_F(RowCacheColumnsTest, WalkersOfTwoColumnsAtOnePlaceDoNotDriveEachOtherOut) {
  for (int i = 1; i <= 60; ++i) {
    Find("1.97." + std::to_string(i), kFirstSlot);
    Find("1.97." + std::to_string(i + 30), kSecondSlot);
  }
  EXPECT_LE(daemon_.reads, 4);
}

TEST_F(RowCacheColumnsTest, SmallTableIsReadWholeForItsSecondColumn) {
  for (std::uint32_t i = 101; i <= 1000; ++i) daemon_.RemoveInterface("a", i);
  for (const Slots slots : {kFirstSlot, kSecondSlot, kThirdSlot}) {
    for (int i = 1; i <= 100; ++i) Find("1.97." + std::to_string(i), slots);
  }
  EXPECT_EQ(SlotsRead(), (std::vector<std::size_t>{1, 4}));
}

// --- A source that answers later

class RowCachePendingTest : public RowCacheTest {
 protected:
  RowCachePendingTest() {
    AddInterfaces("a", 1, 1000);
    daemon_.Delay();
  }
};

TEST_F(RowCachePendingTest, LookUpIsPendingUntilItsBatchArrives) {
  RowRef row;
  EXPECT_EQ(Find("1.97.1"), "pending");
  EXPECT_EQ(Find("1.97.1"), "pending");
  EXPECT_EQ(daemon_.UnderWay(), 1U) << "the same batch serves both";
  daemon_.Deliver();
  EXPECT_EQ(Found("1.97.1", kFirstSlot, tables::kWalkRows, &row), "1.97.1");
}

TEST_F(RowCachePendingTest, AgeOfRowsCountsFromTheirRequest) {
  AddInterfaces("a", 1, 2);
  EXPECT_EQ(Find("1.97.1"), "pending");
  clock_.advance(kNanosecondsPerSecond * 2 / 5);  // the daemon is busy
  daemon_.Deliver();
  clock_.advance(kNanosecondsPerSecond * 3 / 5 - 1);
  EXPECT_EQ(Find("1.97.1"), "1.97.1");
  clock_.advance(1);
  EXPECT_EQ(Find("1.97.1"), "pending");
}

TEST_F(RowCachePendingTest, FailureIsTheAnswerOfTheRequestAndTheNextOneTriesAgain) {
  RowRef row;
  EXPECT_EQ(Find("1.97.1"), "pending");
  daemon_.status = kStatusIo;
  daemon_.Deliver();
  EXPECT_EQ(Found("1.97.1", kFirstSlot, tables::kWalkRows, &row), "failed");
  EXPECT_EQ(Found("1.97.1", kFirstSlot, tables::kWalkRows, &row), "failed");
  EXPECT_EQ(daemon_.UnderWay(), 0U);
  daemon_.status = kStatusOk;
  EXPECT_EQ(Find("1.97.1"), "pending");
  daemon_.Deliver();
  EXPECT_EQ(Find("1.97.1"), "1.97.1");
}

// A second walker is already where the first one reads ahead.
TEST_F(RowCachePendingTest, RowsThatAreReadAlreadyAreNotReadAhead) {
  Find("1.97.129");
  daemon_.Deliver();
  ASSERT_EQ(Find("1.97.129"), "1.97.129");
  Find("1.97.1");
  daemon_.Deliver();
  for (int i = 1; i <= 128; ++i) EXPECT_EQ(Find("1.97." + std::to_string(i)), "1.97." + std::to_string(i));
  EXPECT_EQ(daemon_.UnderWay(), 0U);
  EXPECT_EQ(Find("1.97.129"), "1.97.129");
}

TEST_F(RowCachePendingTest, BatchesUnderWayAreBounded) {
  for (int i = 0; i < 100; ++i) EXPECT_EQ(Find("1.97." + std::to_string(1 + 10 * i)), "pending");
  EXPECT_EQ(daemon_.UnderWay(), tables::kFetches);
  daemon_.Deliver(tables::kFetches);
  EXPECT_EQ(Find("1.97.991"), "pending") << "and it has its turn";
  daemon_.Deliver();
  EXPECT_EQ(Find("1.97.991"), "1.97.991");
}

TEST_F(RowCachePendingTest, WalkContinuesWhileTheNextWindowIsUnderWay) {
  Find("1.97.1");
  daemon_.Deliver();
  for (int i = 1; i <= 128; ++i) EXPECT_EQ(Find("1.97." + std::to_string(i)), "1.97." + std::to_string(i));
  EXPECT_EQ(daemon_.UnderWay(), 1U);
  EXPECT_EQ(Find("1.97.129"), "pending");
  EXPECT_EQ(daemon_.UnderWay(), 1U) << "it waits for the batch that is under way";
  daemon_.Deliver();
  EXPECT_EQ(Find("1.97.129"), "1.97.129");
}

TEST_F(RowCachePendingTest, AgeZeroServesNoRowsThatWereRequestedBefore) {
  RowCache cache(interfaces(), daemon_, 0);
  RowRef row;
  cache.begin_requests(clock_monotonic());
  const oid::Oid index = parse_oid("1.97.1");
  EXPECT_EQ(cache.first_at_or_after(index.view(), kFirstSlot, tables::kWalkRows, &row), Lookup::kPending);
  cache.begin_requests(clock_monotonic());
  EXPECT_EQ(cache.first_at_or_after(index.view(), kFirstSlot, tables::kWalkRows, &row), Lookup::kPending);
  daemon_.Deliver();
  EXPECT_EQ(cache.first_at_or_after(index.view(), kFirstSlot, tables::kWalkRows, &row), Lookup::kPending);
  daemon_.Deliver();
  EXPECT_EQ(cache.first_at_or_after(index.view(), kFirstSlot, tables::kWalkRows, &row), Lookup::kRow);
}

}  // namespace
