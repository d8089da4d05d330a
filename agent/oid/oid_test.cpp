// Object identifiers: order, prefixes and the bound of 128 sub-identifiers.
#include "agent/oid/oid.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using oid::Oid;

TEST(Oid, ShorterPrecedesItsExtension) {
  EXPECT_TRUE(oid::compare(Oid{1, 3}.view(), Oid{1, 3, 0}.view()) < 0);
  EXPECT_TRUE(oid::compare(Oid{1, 3, 0}.view(), Oid{1, 3}.view()) > 0);
  EXPECT_TRUE(oid::compare(Oid{}.view(), Oid{0}.view()) < 0);
}

TEST(Oid, SubIdentifiersCompareAsUnsignedNumbers) {
  EXPECT_TRUE(oid::compare(Oid{1, 0x7fffffff}.view(), Oid{1, 0x80000000}.view()) < 0);
  EXPECT_TRUE(oid::compare(Oid{1, 0xffffffff}.view(), Oid{1, 0xffffffff}.view()) == 0);
}

TEST(Oid, TwoPartsCompareAsTheirConcatenation) {
  const Oid whole{1, 3, 6, 1};
  for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
    const oid::View head = whole.view().first(cut);
    const oid::View tail = whole.view().subspan(cut);
    for (const Oid& other : {Oid{}, Oid{1}, Oid{1, 3, 5, 9}, Oid{1, 3, 6, 1}, Oid{1, 3, 6, 1, 0}, Oid{2}}) {
      EXPECT_EQ(oid::compare(head, tail, other.view()) < 0, oid::compare(whole.view(), other.view()) < 0);
      EXPECT_EQ(oid::compare(head, tail, other.view()) > 0, oid::compare(whole.view(), other.view()) > 0);
    }
  }
}

TEST(Oid, AppendStopsAtOneHundredAndTwentyEight) {
  Oid value(std::vector<std::uint32_t>(127, 5));
  EXPECT_FALSE(value.append(Oid{1, 2}.view()));
  EXPECT_EQ(value.size(), 127U);
  EXPECT_TRUE(value.append(9));
  EXPECT_FALSE(value.append(10));
  EXPECT_EQ(value.size(), 128U);
  EXPECT_EQ(value[127], 9U);
}

TEST(Oid, PrefixIsNoLongerThanTheWhole) {
  EXPECT_TRUE(oid::starts_with(Oid{1, 3, 6}.view(), Oid{1, 3}.view()));
  EXPECT_TRUE(oid::starts_with(Oid{1, 3}.view(), Oid{1, 3}.view()));
  EXPECT_FALSE(oid::starts_with(Oid{1}.view(), Oid{1, 3}.view()));
  EXPECT_FALSE(oid::starts_with(Oid{1, 4, 6}.view(), Oid{1, 3}.view()));
}

TEST(Oid, TextIsDotted) {
  EXPECT_EQ(oid::to_text(Oid{1, 3, 4294967295}.view()), "1.3.4294967295");
  EXPECT_EQ(oid::to_text({}), "");
}

}  // namespace
