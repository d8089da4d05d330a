// Row indexes: for any instance part of an OID, the first index that can follow it is found.
#include "agent/rows/index.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>

#include "agent/tables/route_key.h"
#include "agent/tables/tables_test_support.h"

namespace {

using agent_test::parse_oid;
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

TEST(Index, OctetThatNoNameContainsIsSkipped) {
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

// The index found for the instance follows it, and of the indexes that `random_one` makes none is between.
void expect_first(tables::IndexShape shape, const Oid& instance, std::mt19937* random,
                  Oid (*random_one)(std::mt19937*)) {
  const bool after = (*random)() % 2 == 0;
  const auto follows = [&](const Oid& index) {
    const auto order = oid::compare(index.view(), instance.view());
    return after ? order > 0 : order >= 0;
  };
  Oid found;
  const bool any = tables::first_index(shape, instance.view(), after, &found);
  if (any) {
    ASSERT_TRUE(tables::is_index(shape, found.view())) << oid::to_text(found.view());
    ASSERT_TRUE(follows(found)) << oid::to_text(instance.view()) << " then " << oid::to_text(found.view());
  }
  for (int probe = 0; probe < 20; ++probe) {
    const Oid index = random_one(random);
    ASSERT_TRUE(tables::is_index(shape, index.view())) << oid::to_text(index.view());
    ASSERT_EQ(follows(index), any && oid::compare(index.view(), found.view()) >= 0)
        << oid::to_text(instance.view()) << " then " << oid::to_text(index.view());
  }
}

TEST(Index, NoIndexIsBetweenAnInstanceAndTheIndexFoundForIt) {
  std::mt19937 random(20);
  for (int round = 0; round < 20000; ++round) {
    const Oid instance = round % 3 == 0 ? random_index(&random) : random_instance(&random, 6);
    ASSERT_NO_FATAL_FAILURE(expect_first(kShape, instance, &random, random_index));
  }
}

// --- Indexes of routes

std::string route_at_or_after(const std::string& instance, bool after = false) {
  const Oid start = parse_oid(instance);
  Oid index;
  return tables::first_index(tables::kRouteIndex, start.view(), after, &index) ? oid::to_text(index.view())
                                                                               : "none";
}

const std::string kTen = "1.97.1.4.10.0.0.0.8";  // 10.0.0.0/8 in "a"
const std::string kNoHop = ".2.0.0.0.0";
const std::string kZeros = ".0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0";

TEST(RouteIndex, PartialInstanceIsFollowedByTheSmallestIndexThatBeginsSo) {
  EXPECT_EQ(route_at_or_after("1.97"), "1.97.1.4.0.0.0.0.0" + kNoHop);
  EXPECT_EQ(route_at_or_after("1.97.1.4.10"), "1.97.1.4.10.0.0.0.0" + kNoHop);
  EXPECT_EQ(route_at_or_after(kTen + ".2.0.0.1"), kTen + ".2.0.0.1.4.0.0.0.0");
  EXPECT_EQ(route_at_or_after("1.97.2"), "1.97.2.16" + kZeros + ".0" + kNoHop);
}

TEST(RouteIndex, FirstNextHopOfTheFamilyFollowsNoNextHop) {
  EXPECT_EQ(route_at_or_after(kTen + kNoHop, true), kTen + ".2.0.0.1.4.0.0.0.0");
  EXPECT_EQ(route_at_or_after("1.97.2.16" + kZeros + ".64" + kNoHop, true),
            "1.97.2.16" + kZeros + ".64.2.0.0.2.16" + kZeros);
}

TEST(RouteIndex, NextPrefixLengthThenNextDestinationFollowsTheLastNextHop) {
  EXPECT_EQ(route_at_or_after(kTen + ".2.0.0.1.4.255.255.255.255", true), "1.97.1.4.10.0.0.0.9" + kNoHop);
  EXPECT_EQ(route_at_or_after("1.97.1.4.10.0.0.255.32.2.0.0.1.4.255.255.255.255", true),
            "1.97.1.4.10.0.1.0.0" + kNoHop);
}

TEST(RouteIndex, FirstIpv6IndexFollowsTheLastIpv4Index) {
  EXPECT_EQ(route_at_or_after("1.97.1.4.255.255.255.255.32.2.0.0.1.4.255.255.255.255", true),
            "1.97.2.16" + kZeros + ".0" + kNoHop);
}

TEST(RouteIndex, NextHopOfTheOtherFamilyIsPassedOver) {
  EXPECT_EQ(route_at_or_after("1.97.2.16" + kZeros + ".64.2.0.0.1.4.10.0.0.1"),
            "1.97.2.16" + kZeros + ".64.2.0.0.2.16" + kZeros);
  EXPECT_EQ(route_at_or_after(kTen + ".2.0.0.2.16" + kZeros), "1.97.1.4.10.0.0.0.9" + kNoHop);
}

TEST(RouteIndex, NumbersOutOfRangeAreFollowedByTheNextThatIsInIt) {
  EXPECT_EQ(route_at_or_after("1.97.0.4.10"), "1.97.1.4.0.0.0.0.0" + kNoHop);
  EXPECT_EQ(route_at_or_after("1.97.3.20.10"), "1.98.1.4.0.0.0.0.0" + kNoHop);
  EXPECT_EQ(route_at_or_after("1.97.1.3.10"), "1.97.1.4.0.0.0.0.0" + kNoHop);
  EXPECT_EQ(route_at_or_after("1.97.1.16.10"), "1.97.2.16" + kZeros + ".0" + kNoHop);
  EXPECT_EQ(route_at_or_after("1.97.1.4.10.0.0.256.8"), "1.97.1.4.10.0.1.0.0" + kNoHop);
  EXPECT_EQ(route_at_or_after("1.97.1.4.10.0.0.0.33"), "1.97.1.4.10.0.0.1.0" + kNoHop);
  EXPECT_EQ(route_at_or_after(kTen + ".1.5.0.0"), kTen + kNoHop);
  EXPECT_EQ(route_at_or_after(kTen + ".2.0.1.0.0"), "1.97.1.4.10.0.0.0.9" + kNoHop);
  EXPECT_EQ(route_at_or_after(kTen + ".3.1.2.3.0.0"), "1.97.1.4.10.0.0.0.9" + kNoHop);
  EXPECT_EQ(route_at_or_after(kTen + kNoHop + ".0"), kTen + ".2.0.0.1.4.0.0.0.0");
}

TEST(RouteIndex, NothingFollowsTheLargestOfAll) {
  std::string last = "31";
  for (int i = 0; i < 31; ++i) last += ".255";
  EXPECT_EQ(route_at_or_after(last + ".3"), "none");
  std::string largest = last + ".2.16";
  for (int i = 0; i < 16; ++i) largest += ".255";
  largest += ".128.2.0.0.2.16";
  for (int i = 0; i < 16; ++i) largest += ".255";
  EXPECT_EQ(route_at_or_after(largest), largest);
  EXPECT_EQ(route_at_or_after(largest, true), "none");
}

Oid random_route_index(std::mt19937* random) {
  static constexpr std::array<std::uint32_t, 4> kOctets = {0, 1, 254, 255};
  const auto address = [&](std::uint32_t size, Oid* index) {
    index->append(size);
    const std::uint32_t fill = kOctets[(*random)() % kOctets.size()];
    for (std::uint32_t i = 0; i + 1 < size; ++i) index->append(fill);
    if (size > 0) index->append(kOctets[(*random)() % kOctets.size()]);
  };
  Oid index{1, static_cast<std::uint32_t>(1 + (*random)() % 3)};
  const auto type = static_cast<std::uint32_t>(1 + (*random)() % 2);
  index.append(type);
  address(type == 1 ? 4 : 16, &index);
  index.append((*random)() % 2 == 0 ? 0U : type == 1 ? 32U : 128U);
  index.append(Oid{2, 0, 0}.view());
  const bool has_next_hop = (*random)() % 2 == 0;
  index.append(has_next_hop ? type : 0);
  address(has_next_hop ? (type == 1 ? 4 : 16) : 0, &index);
  return index;
}

TEST(RouteIndex, NoIndexIsBetweenAnInstanceAndTheIndexFoundForIt) {
  std::mt19937 random(21);
  for (int round = 0; round < 20000; ++round) {
    Oid instance = random_route_index(&random);
    if (random() % 2 == 0) instance.truncate(random() % (instance.size() + 1));
    if (!instance.empty() && random() % 2 == 0) {
      const std::size_t place = random() % instance.size();
      instance[place] += static_cast<std::uint32_t>(random() % 3) - 1;
    }
    ASSERT_NO_FATAL_FAILURE(expect_first(tables::kRouteIndex, instance, &random, random_route_index));
  }
}

// --- Keys of the daemon

std::string route_path(const std::string& index) {
  const Oid oid = parse_oid(index);
  EXPECT_TRUE(tables::is_index(tables::kRouteIndex, oid.view())) << index;
  return tables::route_path(tables::kRouteIndex, oid.view());
}

TEST(RoutePath, OfTheFirstIndexOfAVrfIsTheStart) {
  EXPECT_EQ(route_path("1.97.1.4.0.0.0.0.0" + kNoHop), "/a/1/0/1/0/0");
  EXPECT_EQ(route_path("3.47.37.255.1.4.0.0.0.0.0.2.0.0.1.4.0.0.0.0"), "/%2F%25%FF/1/0/1/0/0")
      << "to the daemon, no next hop and 0.0.0.0 are one";
}

TEST(RoutePath, BeginsAfterThePrecedingNextHop) {
  EXPECT_EQ(route_path(kTen + ".2.0.0.1.4.192.0.2.0"), "/a/1/8/1/0a000000/c00001ff");
  EXPECT_EQ(route_path("1.97.1.4.0.0.0.0.0.2.0.0.1.4.0.0.0.1"), "/a/1/0/1/00000000/00000000")
      << "the key of the default route without next hop, and not the start";
}

TEST(RoutePath, BeginsAfterThePrecedingPrefixLength) {
  EXPECT_EQ(route_path(kTen + kNoHop), "/a/1/7/1/0a000000/ffffffff");
  EXPECT_EQ(route_path(kTen + ".2.0.0.1.4.0.0.0.0"), "/a/1/7/1/0a000000/ffffffff");
}

TEST(RoutePath, BeginsAfterThePrecedingDestination) {
  EXPECT_EQ(route_path("1.97.1.4.10.0.0.0.0" + kNoHop), "/a/1/32/1/09ffffff/ffffffff");
}

TEST(RoutePath, OfTheFirstIpv6IndexBeginsAfterTheLastIpv4Key) {
  EXPECT_EQ(route_path("1.97.2.16" + kZeros + ".0" + kNoHop), "/a/1/32/1/ffffffff/ffffffff");
  EXPECT_EQ(route_path("1.97.2.16" + kZeros + ".0.2.0.0.2.16" + kZeros), "/a/1/32/1/ffffffff/ffffffff");
}

TEST(RoutePath, OfIpv6HasAllItsDigits) {
  const std::string f(32, 'f');
  const std::string zeros(32, '0');
  EXPECT_EQ(route_path("1.97.2.16" + kZeros + ".1" + kNoHop), "/a/2/0/2/" + zeros + "/" + f);
  EXPECT_EQ(route_path("1.97.2.16.0.0.0.0.0.0.0.0.0.0.0.0.0.0.1.0.0" + kNoHop),
            "/a/2/128/2/" + std::string(28, '0') + "00ff/" + f);
}

}  // namespace
