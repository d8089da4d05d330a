// Route targets from the keys of configuration paths.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>

#include "platform/core/base/fault.h"
#include "platform/router/bgp_vpn/asn_format.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"

namespace {

// The arguments 3 to 8 of a path; those that are not given are absent.
struct Keys {
  std::optional<std::uint32_t> type;
  std::optional<std::uint32_t> as_high;
  std::optional<std::uint32_t> as_low;
  std::optional<std::uint32_t> as_number;
  const char* address = nullptr;
  std::optional<std::uint32_t> address_number;
};

class RouteTargetText : public testing::Test {
 protected:
  ~RouteTargetText() override {
    fault_disarm_all();
    bgp_vpn::set_route_target_format(BgpAsnFormat::kAsplain);
  }

  // The route target's text, or the error's.
  std::string Extract(const Keys& keys, std::uint32_t size = 50) {
    Fill(keys);
    const Status status = bgp_vpn_extract_rt(&args_, size, text_.data(), &afi_, &safi_);
    return status == kStatusOk ? text_.data() : err_text(status);
  }
  void Fill(const Keys& keys) {
    args_ = {~0U, 0, 10, {}};
    numbers_ = {std::nullopt,   2U,           1U,
                keys.type,      keys.as_high, keys.as_low,
                keys.as_number, std::nullopt, keys.address_number};
    for (unsigned n = 0; n < numbers_.size(); ++n) {
      if (numbers_[n].has_value()) Place(n, {nullptr, &*numbers_[n]});
    }
    Place(0, {"red", nullptr});
    if (keys.address != nullptr) Place(7, {keys.address, nullptr});
  }
  void Place(unsigned n, KvArgument argument) {
    args_.arg[n] = argument;
    args_.absent_mask &= ~(1U << n);
  }

  RequestArgs args_{};
  std::array<std::optional<std::uint32_t>, 9> numbers_;
  std::array<char, 50> text_{"before"};
  std::uint32_t afi_ = 77;
  std::uint32_t safi_ = 77;
};

const std::string kInvalid = err_text(kStatusInvalid);
const std::string kMissing = err_text(kStatusArgumentMissing);

TEST_F(RouteTargetText, TwoOctetAsHasANumberOf32Bits) {
  EXPECT_EQ(Extract({0, 0, 65000, 100, nullptr, {}}), "65000:100");
  EXPECT_EQ(Extract({0, 0, 65535, 4294967295, nullptr, {}}), "65535:4294967295");
}

TEST_F(RouteTargetText, AddressHasANumberOf16Bits) {
  EXPECT_EQ(Extract({1, {}, {}, {}, "10.0.0.1", 5}), "10.0.0.1:5");
  EXPECT_EQ(Extract({1, {}, {}, {}, "10.0.0.1", 65535}), "10.0.0.1:65535");
  EXPECT_EQ(Extract({1, {}, {}, {}, "10.0.0.1", 65536}), kInvalid);
}

TEST_F(RouteTargetText, FourOctetAsHasANumberOf16Bits) {
  EXPECT_EQ(Extract({2, 64086, 59904, 30, nullptr, {}}), "4200000000:30");
  EXPECT_EQ(Extract({2, 65535, 65535, 65535, nullptr, {}}), "4294967295:65535");
  EXPECT_EQ(Extract({2, 64086, 59904, 65536, nullptr, {}}), kInvalid);
}

TEST_F(RouteTargetText, SmallAsNumberInFourOctetsDiffersFromOneInTwo) {
  EXPECT_EQ(Extract({0, 0, 65000, 100, nullptr, {}}), "65000:100");
  EXPECT_EQ(Extract({2, 0, 65000, 100, nullptr, {}}), "0.65000:100");
  EXPECT_EQ(Extract({2, 1, 0, 100, nullptr, {}}), "65536:100");
}

TEST_F(RouteTargetText, SmallAsNumbersReadTheSameInEveryFormat) {
  for (const BgpAsnFormat format : {BgpAsnFormat::kAsplain, BgpAsnFormat::kAsdot, BgpAsnFormat::kAsdotPlus}) {
    bgp_vpn::set_route_target_format(format);
    EXPECT_EQ(Extract({0, 0, 65000, 100, nullptr, {}}), "65000:100");
    EXPECT_EQ(Extract({2, 0, 65000, 100, nullptr, {}}), "0.65000:100");
    EXPECT_EQ(Extract({0, 0, 65535, 4294967295, nullptr, {}}), "65535:4294967295");
  }
}

TEST_F(RouteTargetText, AsNumbersAreWrittenInTheFormat) {
  bgp_vpn::set_route_target_format(BgpAsnFormat::kAsdot);
  EXPECT_EQ(Extract({2, 64086, 59904, 30, nullptr, {}}), "64086.59904:30");
  EXPECT_EQ(Extract({2, 1, 0, 30, nullptr, {}}), "1.0:30");
  EXPECT_EQ(Extract({1, {}, {}, {}, "10.0.0.1", 5}), "10.0.0.1:5");
  bgp_vpn::set_route_target_format(BgpAsnFormat::kAsdotPlus);
  EXPECT_EQ(Extract({2, 64086, 59904, 30, nullptr, {}}), "64086.59904:30");
}

TEST_F(RouteTargetText, AfiAndSafiAreHandedOut) {
  Extract({0, 0, 65000, 100, nullptr, {}});
  EXPECT_EQ(afi_, 2U);
  EXPECT_EQ(safi_, 1U);
}

TEST_F(RouteTargetText, KeysOfOtherTypesAreNotLookedAt) {
  EXPECT_EQ(Extract({0, 0, 65000, 100, "10.0.0.1", 99999}), "65000:100");
  EXPECT_EQ(Extract({1, 99999, 99999, 7, "10.0.0.1", 5}), "10.0.0.1:5");
}

TEST_F(RouteTargetText, NumbersThatDoNotFitAreInvalid) {
  EXPECT_EQ(Extract({0, 1, 65000, 100, nullptr, {}}), kInvalid);
  EXPECT_EQ(Extract({0, 0, 65536, 100, nullptr, {}}), kInvalid);
  EXPECT_EQ(Extract({2, 65536, 0, 100, nullptr, {}}), kInvalid);
  EXPECT_EQ(Extract({2, 1, 65536, 100, nullptr, {}}), kInvalid);
  EXPECT_EQ(Extract({3, 0, 65000, 100, "10.0.0.1", 5}), kInvalid);
}

TEST_F(RouteTargetText, MissingKeysOfItsTypeAreMissingArguments) {
  EXPECT_EQ(Extract({{}, 0, 65000, 100, "10.0.0.1", 5}), kMissing);
  EXPECT_EQ(Extract({0, {}, 65000, 100, nullptr, {}}), kMissing);
  EXPECT_EQ(Extract({0, 0, {}, 100, nullptr, {}}), kMissing);
  EXPECT_EQ(Extract({2, 0, 1, {}, nullptr, {}}), kMissing);
  EXPECT_EQ(Extract({1, {}, {}, {}, nullptr, 5}), kMissing);
  EXPECT_EQ(Extract({1, {}, {}, {}, "10.0.0.1", {}}), kMissing);
}

TEST_F(RouteTargetText, MissingFamilyIsAMissingArgument) {
  for (const unsigned absent : {1U, 2U}) {
    Fill({0, 0, 65000, 100, nullptr, {}});
    args_.absent_mask |= 1U << absent;
    EXPECT_EQ(bgp_vpn_extract_rt(&args_, 50, text_.data(), &afi_, &safi_), kStatusArgumentMissing);
  }
}

TEST_F(RouteTargetText, FailureChangesNothing) {
  EXPECT_EQ(Extract({0, 0, 65536, 100, nullptr, {}}), kInvalid);
  EXPECT_STREQ(text_.data(), "before");
  EXPECT_EQ(afi_, 77U);
  EXPECT_EQ(safi_, 77U);
}

TEST_F(RouteTargetText, TextThatDoesNotFitIsInvalid) {
  EXPECT_EQ(Extract({0, 0, 65000, 100, nullptr, {}}, 9), kInvalid);
  EXPECT_STREQ(text_.data(), "before");
  EXPECT_EQ(Extract({0, 0, 65000, 100, nullptr, {}}, 10), "65000:100");
}

TEST_F(RouteTargetText, NullArgumentsAreInvalid) {
  Fill({0, 0, 65000, 100, nullptr, {}});
  EXPECT_EQ(bgp_vpn_extract_rt(nullptr, 50, text_.data(), &afi_, &safi_), kStatusInvalid);
  EXPECT_EQ(bgp_vpn_extract_rt(&args_, 50, nullptr, &afi_, &safi_), kStatusInvalid);
  EXPECT_EQ(bgp_vpn_extract_rt(&args_, 50, text_.data(), nullptr, &safi_), kStatusInvalid);
  EXPECT_EQ(bgp_vpn_extract_rt(&args_, 50, text_.data(), &afi_, nullptr), kStatusInvalid);
  Place(3, {nullptr, nullptr});
  EXPECT_EQ(bgp_vpn_extract_rt(&args_, 50, text_.data(), &afi_, &safi_), kStatusInvalid);
}

}  // namespace
