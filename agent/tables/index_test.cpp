// Row indexes: whatever stands behind a column's OID, the first index that can follow it is found.
#include "agent/tables/index.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>

namespace {

using oid::Oid;
using tables::IndexPart;
using tables::PartKind;

constexpr std::array kShape = {IndexPart{PartKind::kName}, IndexPart{PartKind::kNumber}};
constexpr std::array kScalar = {IndexPart{PartKind::kNumber, 0, 0}};
constexpr std::uint32_t kMost = 0xffffffff;

std::string at_or_after(const Oid& instance, bool after = false) {
  Oid index;
  return tables::first_index(kShape, instance.view(), after, &index) ? oid::to_text(index.view()) : "none";
}

Oid name_of(std::size_t length, std::uint32_t octet) {
  Oid instance{static_cast<std::uint32_t>(length)};
  for (std::size_t i = 0; i < length; ++i) instance.append(octet);
  return instance;
}

TEST(Index, EmptyInstanceIsFollowedByTheFirstIndexOfAll) {
  EXPECT_EQ(at_or_after({}), "0.0");
  EXPECT_EQ(at_or_after({}, true), "0.0");
}

TEST(Index, WholeIndexIsItselfOrFollowedByItsSuccessor) {
  EXPECT_EQ(at_or_after({3, 82, 69, 68, 7}), "3.82.69.68.7");
  EXPECT_EQ(at_or_after({3, 82, 69, 68, 7}, true), "3.82.69.68.8");
}

TEST(Index, InstanceCutShortIsFollowedByTheSmallestIndexThatBeginsSo) {
  EXPECT_EQ(at_or_after({3}), "3.1.1.1.0");
  EXPECT_EQ(at_or_after({3, 82}), "3.82.1.1.0");
  EXPECT_EQ(at_or_after({3, 82, 69, 68}), "3.82.69.68.0");
  EXPECT_EQ(at_or_after({3, 82, 69, 68}, true), "3.82.69.68.0");
}

TEST(Index, OverlongInstanceIsFollowedByTheSuccessorOfItsIndex) {
  EXPECT_EQ(at_or_after({3, 82, 69, 68, 7, 0}), "3.82.69.68.8");
  EXPECT_EQ(at_or_after({3, 82, 69, 68, kMost, 1, 2, 3}), "3.82.69.69.0");
}

TEST(Index, LargestInterfaceIndexIsFollowedByTheNextName) {
  EXPECT_EQ(at_or_after({3, 82, 69, 68, kMost}, true), "3.82.69.69.0");
  EXPECT_EQ(at_or_after({3, 82, 69, 255, kMost}, true), "3.82.70.1.0");
  EXPECT_EQ(at_or_after({1, 255, kMost}, true), "2.1.1.0");
}

TEST(Index, OctetThatNoNameHoldsIsPassedOver) {
  EXPECT_EQ(at_or_after({3, 0}), "3.1.1.1.0");
  EXPECT_EQ(at_or_after({3, 82, 0, 99, 99}), "3.82.1.1.0");
  EXPECT_EQ(at_or_after({3, 82, 256}), "3.83.1.1.0");
  EXPECT_EQ(at_or_after({3, 255, 255, kMost, 5}), "4.1.1.1.1.0");
}

TEST(Index, NameOf31OctetsIsTheLongest) {
  Oid name = name_of(31, 97);
  name.append(11);
  EXPECT_EQ(at_or_after(name), oid::to_text(name.view()));
  EXPECT_EQ(at_or_after(name_of(32, 97)), "none");
  EXPECT_EQ(at_or_after({kMost}), "none");
}

TEST(Index, NothingFollowsTheLargestIndexOfAll) {
  Oid last = name_of(31, 255);
  last.append(kMost);
  EXPECT_EQ(at_or_after(last), oid::to_text(last.view()));
  EXPECT_EQ(at_or_after(last, true), "none");
}

TEST(Index, ZeroLengthNameHasIndexesToo) {
  EXPECT_EQ(at_or_after({0}), "0.0");
  EXPECT_EQ(at_or_after({0, 11}), "0.11");
  EXPECT_EQ(at_or_after({0, kMost}, true), "1.1.0");
  EXPECT_EQ(tables::index_path(kShape, Oid{0, 11}.view()), "//11");
}

TEST(Index, ScalarHasTheOneInstanceZero) {
  Oid index;
  EXPECT_TRUE(tables::first_index(kScalar, {}, true, &index));
  EXPECT_EQ(oid::to_text(index.view()), "0");
  EXPECT_FALSE(tables::first_index(kScalar, Oid{0}.view(), true, &index));
  EXPECT_FALSE(tables::first_index(kScalar, Oid{0, 0}.view(), false, &index));
  EXPECT_FALSE(tables::first_index(kScalar, Oid{1}.view(), false, &index));
  EXPECT_TRUE(tables::is_index(kScalar, Oid{0}.view()));
  EXPECT_FALSE(tables::is_index(kScalar, {}));
}

TEST(Index, OnlyAWholeIndexIsAnIndex) {
  EXPECT_TRUE(tables::is_index(kShape, Oid{3, 82, 69, 68, 7}.view()));
  for (const Oid& instance : {Oid{}, Oid{3}, Oid{3, 82, 69, 68}, Oid{3, 82, 69, 68, 7, 0},
                              Oid{3, 82, 0, 68, 7}, Oid{3, 82, 256, 68, 7}, Oid{kMost, 7}}) {
    EXPECT_FALSE(tables::is_index(kShape, instance.view())) << oid::to_text(instance.view());
  }
  Oid too_long = name_of(32, 97);
  too_long.append(7);
  EXPECT_FALSE(tables::is_index(kShape, too_long.view()));
}

TEST(Index, PathIsTheKeyInTheDaemonsTextForm) {
  EXPECT_EQ(tables::index_path(kShape, Oid{3, 82, 69, 68, 4294967295}.view()), "/RED/4294967295");
  EXPECT_EQ(tables::index_path(kShape, Oid{3, 47, 37, 255, 7}.view()), "/%2F%25%FF/7");
  EXPECT_EQ(tables::index_path(kShape, Oid{1, 45, 7}.view()), "/%2D/7");
}

// Sub-identifiers near the edges of what is allowed, so that many instances are almost indexes.
Oid random_instance(std::mt19937* random, std::size_t most) {
  static constexpr std::array<std::uint32_t, 10> kNumbers = {0, 1, 2, 3, 30, 31, 32, 255, 256, kMost};
  Oid instance;
  const std::size_t length = (*random)() % (most + 1);
  for (std::size_t i = 0; i < length; ++i) instance.append(kNumbers[(*random)() % kNumbers.size()]);
  return instance;
}

Oid random_index(std::mt19937* random) {
  static constexpr std::array<std::uint32_t, 4> kOctets = {1, 2, 254, 255};
  Oid index{static_cast<std::uint32_t>((*random)() % 4)};
  for (std::uint32_t left = index[0]; left > 0; --left) index.append(kOctets[(*random)() % kOctets.size()]);
  index.append((*random)() % 3 == 0 ? kMost : static_cast<std::uint32_t>((*random)() % 3));
  return index;
}

TEST(Index, NoIndexLiesBetweenAnInstanceAndWhatIsFoundForIt) {
  std::mt19937 random(20);
  for (int round = 0; round < 20000; ++round) {
    const bool after = random() % 2 == 0;
    const Oid instance = round % 3 == 0 ? random_index(&random) : random_instance(&random, 6);
    Oid found;
    const bool any = tables::first_index(kShape, instance.view(), after, &found);
    if (any) {
      ASSERT_TRUE(tables::is_index(kShape, found.view()));
      ASSERT_TRUE(after ? oid::compare(found.view(), instance.view()) > 0
                        : oid::compare(found.view(), instance.view()) >= 0);
    }
    for (int probe = 0; probe < 20; ++probe) {
      const Oid index = random_index(&random);
      const bool behind = after ? oid::compare(index.view(), instance.view()) > 0
                                : oid::compare(index.view(), instance.view()) >= 0;
      ASSERT_EQ(behind, any && oid::compare(index.view(), found.view()) >= 0)
          << oid::to_text(instance.view()) << " then " << oid::to_text(index.view());
    }
  }
}

}  // namespace
