// Texts of route targets and route distinguishers.
#include <gtest/gtest.h>

#include "platform/config/vrf_config.h"

namespace vrf_config {
namespace {

using Type = Target::Type;

TEST(TargetText, ThreeTypesAreReadWithTheirBounds) {
  EXPECT_EQ(parse_target("65000:100"), (Target{Type::kTwoOctetAs, 65000, 100}));
  EXPECT_EQ(parse_target("65535:4294967295"), (Target{Type::kTwoOctetAs, 65535, 4294967295}));
  EXPECT_EQ(parse_target("0:0"), (Target{Type::kTwoOctetAs, 0, 0}));
  EXPECT_EQ(parse_target("10.0.0.1:5"), (Target{Type::kIpv4Address, 0x0a000001, 5}));
  EXPECT_EQ(parse_target("255.255.255.255:65535"), (Target{Type::kIpv4Address, 0xffffffff, 65535}));
  EXPECT_EQ(parse_target("65536:65535"), (Target{Type::kFourOctetAs, 65536, 65535}));
  EXPECT_EQ(parse_target("4294967295:0"), (Target{Type::kFourOctetAs, 4294967295, 0}));
}

TEST(TargetText, AsdotIsAFourOctetAs) {
  EXPECT_EQ(parse_target("64086.59904:30"), (Target{Type::kFourOctetAs, 4200000000, 30}));
  EXPECT_EQ(parse_target("0.65000:30"), (Target{Type::kFourOctetAs, 65000, 30}));
  EXPECT_EQ(parse_target("65535.65535:65535"), (Target{Type::kFourOctetAs, 4294967295, 65535}));
}

TEST(TargetText, NumbersThatDoNotFitAreRefused) {
  for (const char* text : {"65000:4294967296", "10.0.0.1:65536", "65536:65536", "4294967296:1", "65536.0:1",
                           "0.65536:1", "1.1:65536", "256.0.0.1:1"}) {
    EXPECT_EQ(parse_target(text), std::nullopt) << text;
  }
}

TEST(TargetText, EverythingElseIsRefused) {
  for (const char* text : {"", ":", "65000", "65000:", ":1", "65000:1:2", "a:1", "1:a", "-1:1", "1:-1",
                           "+1:1", " 1:1", "1:1 ", "1.2.3:4", "1.:2", ".1:2", "2001:db8::1", "0x10:1"}) {
    EXPECT_EQ(parse_target(text), std::nullopt) << text;
  }
}

TEST(TargetText, IsWrittenInAsplain) {
  EXPECT_EQ(target_text({Type::kTwoOctetAs, 65000, 4294967295}), "65000:4294967295");
  EXPECT_EQ(target_text({Type::kIpv4Address, 0xc0000201, 7}), "192.0.2.1:7");
  EXPECT_EQ(target_text({Type::kFourOctetAs, 4200000000, 30}), "4200000000:30");
  EXPECT_EQ(target_text({Type::kFourOctetAs, 65535, 30}), "0.65535:30");
  EXPECT_EQ(target_text({Type::kFourOctetAs, 65536, 30}), "65536:30");
}

TEST(AsNumberText, IsReadInAsplainAndAsdot) {
  EXPECT_EQ(parse_as_number("65000"), 65000U);
  EXPECT_EQ(parse_as_number("4294967295"), 4294967295U);
  EXPECT_EQ(parse_as_number("1.10"), 65546U);
  EXPECT_EQ(parse_as_number("65535.65535"), 4294967295U);
  for (const char* text : {"", ".", "1.", ".1", "1.65536", "65536.1", "4294967296", "1.1.1", "-1", "x"}) {
    EXPECT_EQ(parse_as_number(text), std::nullopt) << text;
  }
}

TEST(AreaText, IsANumberOrADottedQuad) {
  EXPECT_EQ(parse_area("0"), 0U);
  EXPECT_EQ(parse_area("4294967295"), 4294967295U);
  EXPECT_EQ(parse_area("0.0.1.10"), 266U);
  EXPECT_EQ(parse_area("255.255.255.255"), 4294967295U);
  for (const char* text : {"", "1.2.3", "0.0.0.256", "4294967296", "0.0.0.1/32", "::1", "backbone", "-1"}) {
    EXPECT_EQ(parse_area(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace vrf_config
