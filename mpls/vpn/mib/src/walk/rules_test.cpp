// The walk rules: the following name, the path after a row, and the answers that are replaced.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/walk/walk.h"
#include "platform/core/base/memory.h"

namespace {

template <typename Record>
class Rule : public testing::Test {
 protected:
  explicit Rule(const ParcelDescription& description) : description_(description) {}
  ~Rule() override { std::free(reply_.data); }
  const KvReply* Encode(Record row) {
    std::free(reply_.data);
    reply_ = {};
    EXPECT_EQ(parcel_encode(&description_, &row, &reply_.data, &reply_.length), kStatusOk);
    EXPECT_EQ(parcel_free_indirections(&description_, &row), kStatusOk);
    return &reply_;
  }
  // The path, or the status as text.
  std::string After(Status (*rule)(const KvReply*, std::string*), const KvReply* row) {
    std::string path;
    const Status rc = rule(row, &path);
    return rc == kStatusOk ? path : err_text(rc);
  }
  // The path to read instead, or "accepted".
  std::string Answer(bool (*rule)(std::string_view, const KvReply*, std::string*), const char* asked,
                     const KvReply* row) {
    std::string path;
    return rule(asked, row, &path) ? path : "accepted";
  }
  const KvReply* Truncated(const KvReply* row) {
    truncated_ = {row->kind, row->data, row->length - 1};
    return &truncated_;
  }

 private:
  const ParcelDescription& description_;
  KvReply reply_{};
  KvReply truncated_{};
};

const char* const kBad = err_text(kStatusBadEncoding);
const char* const kEnd = err_text(kStatusEndOfList);

// --- Names

TEST(FollowingName, IsTheNextOfTheSameLength) {
  EXPECT_EQ(following_vrf_name("red"), "ree");
  EXPECT_EQ(following_vrf_name("re\x7f"), "re\x80");
}

TEST(FollowingName, CarriesAndNeverContainsAnEndingOctet) {
  EXPECT_EQ(following_vrf_name("re\xff"), "rf\x01");
  EXPECT_EQ(following_vrf_name("r\xff\xff"), "s\x01\x01");
}

TEST(FollowingName, OfTheLastOfALengthIsTheFirstOfTheNext) {
  EXPECT_EQ(following_vrf_name("\xff\xff"), "\x01\x01\x01");
  EXPECT_EQ(following_vrf_name(""), "\x01");
}

TEST(FollowingName, OfTheVeryLastIsNone) {
  EXPECT_EQ(following_vrf_name(std::string(63, '\xff')), "");
  EXPECT_EQ(following_vrf_name(std::string(62, '\xff')), std::string(63, '\x01'));
}

TEST(FollowingName, OrdersAfterItsNameInTheDatabases) {
  for (const char* name : {"a", "red", "re\xff", "\xff\xff", "vrf9", ""}) {
    EXPECT_EQ(mpls_vpn_name_compare(name, following_vrf_name(name).c_str()), 0U) << name;
  }
}

// --- Interfaces

class InterfaceRule : public Rule<mpls_vpn_mib_interface> {
 protected:
  InterfaceRule() : Rule(kMibInterfaceParcel) {}
  const KvReply* Row(const char* vrf, std::int32_t index) {
    mpls_vpn_mib_interface row{};
    row.vrfName = text_copy(vrf);
    row.ifConfIndex = index;
    return Encode(row);
  }
  std::string Following(const KvReply* row) { return After(interface_following_path, row); }
};

TEST_F(InterfaceRule, AfterARowIsTheFollowingIndex) {
  EXPECT_EQ(Following(Row("red", 7)), "interface-next/red/8");
  EXPECT_EQ(Following(Row("a/b", 7)), "interface-next/a%2Fb/8");
  EXPECT_EQ(Following(Row("red", 0x7ffffffe)), "interface-next/red/2147483647");
}

TEST_F(InterfaceRule, AfterTheGreatestIndexIsTheFollowingName) {
  EXPECT_EQ(Following(Row("red", 0x7fffffff)), "interface-next/ree/0");
  EXPECT_EQ(Following(Row("red", -1)), "interface-next/ree/0") << "above the greatest";
  EXPECT_EQ(Following(Row(std::string(63, '\xff').c_str(), 0x7fffffff)), kEnd);
}

TEST_F(InterfaceRule, RowWithoutANameEndsTheWalk) {
  EXPECT_EQ(Following(Row(nullptr, 7)), kBad);
  EXPECT_EQ(Following(Truncated(Row("red", 7))), kBad);
}

// --- VRFs

class VrfRule : public Rule<mpls_vpn_mib_vrf> {
 protected:
  VrfRule() : Rule(kMibVrfParcel) {}
  const KvReply* Row(const char* name) {
    mpls_vpn_mib_vrf row{};
    row.name = text_copy(name);
    return Encode(row);
  }
};

TEST_F(VrfRule, AfterARowIsTheFollowingName) {
  EXPECT_EQ(After(vrf_following_path, Row("red")), "vrf-next/ree");
  EXPECT_EQ(After(vrf_following_path, Row("a.")), "vrf-next/a%2F");
}

TEST_F(VrfRule, AfterTheVeryLastNameIsNone) {
  EXPECT_EQ(After(vrf_following_path, Row(std::string(63, '\xff').c_str())), kEnd);
}

TEST_F(VrfRule, RowWithoutANameEndsTheWalk) {
  EXPECT_EQ(After(vrf_following_path, Row(nullptr)), kBad);
  EXPECT_EQ(After(vrf_following_path, Truncated(Row("red"))), kBad);
}

// --- Route targets

class RtRule : public Rule<mpls_vpn_mib_rt> {
 protected:
  RtRule() : Rule(kMibRtParcel) {}
  const KvReply* Row(const char* vrf, std::uint32_t index) {
    mpls_vpn_mib_rt row{};
    row.vrfName = text_copy(vrf);
    row.index = index;
    row.type = 1;
    return Encode(row);
  }
  std::string Redirected(const char* asked, const KvReply* row) { return Answer(rt_redirect, asked, row); }
};

TEST_F(RtRule, AfterARowIsItsNumberPastEveryType) {
  EXPECT_EQ(After(rt_following_path, Row("a/b", 7)), "rt-next/a%2Fb/7/3");
}

TEST_F(RtRule, RowWithoutANameEndsTheWalk) {
  EXPECT_EQ(After(rt_following_path, Row(nullptr, 7)), kBad);
  EXPECT_EQ(After(rt_following_path, Truncated(Row("red", 7))), kBad);
}

TEST_F(RtRule, AnswerOfTheRequestedVrfIsAccepted) {
  EXPECT_EQ(Redirected("rt-next/a%2Fb/7/3", Row("a/b", 8)), "accepted");
}

TEST_F(RtRule, AnswerOfAnotherVrfIsReadFromTheStartOfTheFollowingVrfs) {
  EXPECT_EQ(Redirected("rt-next/red/7/3", Row("reds", 8)), "rt-next/ree/0/0");
}

TEST_F(RtRule, NoAnswerIsReadFromTheStartOfTheFollowingVrfs) {
  EXPECT_EQ(Redirected("rt-next/red/7/3", nullptr), "rt-next/ree/0/0");
}

TEST_F(RtRule, AnswerToAStartIsAccepted) {
  EXPECT_EQ(Redirected("rt-next/red/0/0", Row("reds", 1)), "accepted");
  EXPECT_EQ(Redirected("rt-next/red/0/0", nullptr), "accepted");
}

TEST_F(RtRule, AnswersToPathsOfAnotherShapeAreAccepted) {
  EXPECT_EQ(Redirected("rt-next/red/7", nullptr), "accepted");
  EXPECT_EQ(Redirected("rt-next/re%2/7/3", nullptr), "accepted");
  EXPECT_EQ(Redirected(("rt-next/" + kvtree_encode_text(std::string(63, '\xff')) + "/7/3").c_str(), nullptr),
            "accepted");
}

TEST_F(RtRule, RowsThatCannotBeDecodedAreAccepted) {
  EXPECT_EQ(Redirected("rt-next/red/7/3", Truncated(Row("red", 8))), "accepted");
  EXPECT_EQ(Redirected("rt-next/red/7/3", Row(nullptr, 8)), "accepted");
}

// --- Routes

class RouteRule : public Rule<mpls_vpn_mib_route> {
 protected:
  RouteRule() : Rule(kMibRouteParcel) {}
  static ParcelOctets Octets(const std::vector<std::uint8_t>& octets) {
    ParcelOctets copy{octets.size(), nullptr};
    if (octets.empty()) return copy;
    copy.octets = static_cast<std::uint8_t*>(std::malloc(octets.size()));
    std::memcpy(copy.octets, octets.data(), octets.size());
    return copy;
  }
  const KvReply* Row(const char* vrf, std::int32_t type, const std::vector<std::uint8_t>& destination,
                     std::uint32_t length, const std::vector<std::uint8_t>& next_hop) {
    mpls_vpn_mib_route row{};
    row.vrfName = text_copy(vrf);
    row.destType = type;
    row.dest = Octets(destination);
    row.mask = length;
    row.nextHopType = next_hop.empty() ? 0 : type;
    row.nextHop = Octets(next_hop);
    return Encode(row);
  }
  const KvReply* SomeRow(const char* vrf) { return Row(vrf, 1, {10, 0, 0, 0}, 8, {}); }
  const KvReply* DefaultRow(const char* vrf) { return Row(vrf, 1, {0, 0, 0, 0}, 0, {}); }
  std::string Following(const KvReply* row) { return After(route_following_path, row); }
  std::string Redirected(const std::string& asked, const KvReply* row) {
    return Answer(route_redirect, asked.c_str(), row);
  }
  const std::vector<std::uint8_t> no_address6 = std::vector<std::uint8_t>(16);
  const std::string zeros = std::string(32, '0');
};

TEST_F(RouteRule, AfterARowIsItsKey) {
  EXPECT_EQ(Following(Row("a/b", 1, {10, 1, 0, 0}, 16, {192, 0, 2, 255})),
            "route-next/a%2Fb/1/16/1/0a010000/c00002ff");
  std::vector<std::uint8_t> destination(16);
  destination[0] = 0x20;
  std::vector<std::uint8_t> next_hop(16);
  next_hop[15] = 1;
  EXPECT_EQ(Following(Row("red", 2, destination, 3, next_hop)),
            "route-next/red/2/3/2/20" + std::string(30, '0') + "/" + std::string(31, '0') + "1");
}

TEST_F(RouteRule, AfterARowWithoutNextHopAreTheOthersOfItsPrefix) {
  EXPECT_EQ(Following(SomeRow("red")), "route-next/red/1/8/1/0a000000/00000000");
  EXPECT_EQ(Following(Row("red", 2, no_address6, 0, {})), "route-next/red/2/0/2/" + zeros + "/" + zeros);
}

TEST_F(RouteRule, RowWithoutItsKeyEndsTheWalk) {
  EXPECT_EQ(Following(SomeRow(nullptr)), kBad);
  EXPECT_EQ(Following(Row("red", 3, {10, 0, 0, 0}, 8, {})), kBad);
  EXPECT_EQ(Following(Row("red", 2, {10, 0, 0, 0}, 8, {})), kBad);
  EXPECT_EQ(Following(Row("red", 1, {}, 8, {})), kBad);
  EXPECT_EQ(Following(Truncated(SomeRow("red"))), kBad);
}

TEST_F(RouteRule, AnswerOfTheRequestedVrfIsAccepted) {
  EXPECT_EQ(Redirected("route-next/red/1/8/1/09000000/00000000", SomeRow("red")), "accepted");
}

TEST_F(RouteRule, AnswerOfAnotherVrfIsReadFromTheStartOfTheFollowingVrfs) {
  EXPECT_EQ(Redirected("route-next/red/2/0/2/" + zeros + "/" + zeros, SomeRow("reds")),
            "route-next/ree/1/0/1/0/0");
}

TEST_F(RouteRule, NoAnswerIsReadFromTheStartOfTheFollowingVrfs) {
  EXPECT_EQ(Redirected("route-next/red/1/8/1/0a000000/00000000", nullptr), "route-next/ree/1/0/1/0/0");
}

TEST_F(RouteRule, AnswerToAStartIsAccepted) {
  EXPECT_EQ(Redirected("route-next/red/1/0/1/0/0", SomeRow("reds")), "accepted");
  EXPECT_EQ(Redirected("route-next/red/1/0/1/0/0", nullptr), "accepted");
  EXPECT_EQ(Redirected("route-next/red/1/0/1/0/0", DefaultRow("red")), "accepted");
}

TEST_F(RouteRule, StartOfOneFamilyIsNotAStart) {
  EXPECT_EQ(Redirected("route-next/red/2/0/2/0/0", nullptr), "route-next/ree/1/0/1/0/0");
  EXPECT_EQ(Redirected("route-next/red/1/0/2/0/0", nullptr), "route-next/ree/1/0/1/0/0");
}

TEST_F(RouteRule, DefaultRouteAnsweredToItsOwnKeyIsFollowedByAProbe) {
  EXPECT_EQ(Redirected("route-next/a%2Fb/1/0/1/00000000/00000000", DefaultRow("a/b")),
            "route/a%2Fb/1/0/1/00000000/00000001");
  EXPECT_EQ(Redirected("route-next/red/1/0/0/00000000/0", DefaultRow("red")),
            "route/red/1/0/1/00000000/00000001");
  EXPECT_EQ(
      Redirected("route-next/red/1/0/1/00000000/00000000", Row("red", 1, {0, 0, 0, 0}, 0, {0, 0, 0, 0})),
      "route/red/1/0/1/00000000/00000001");
  EXPECT_EQ(Redirected("route-next/red/2/0/2/" + zeros + "/" + zeros, Row("red", 2, no_address6, 0, {})),
            "route/red/2/0/2/" + zeros + "/" + std::string(31, '0') + "1");
}

TEST_F(RouteRule, OtherAnswersToTheKeyOfTheDefaultRouteAreAccepted) {
  const std::string asked = "route-next/red/1/0/1/00000000/00000000";
  EXPECT_EQ(Redirected(asked, SomeRow("red")), "accepted");
  EXPECT_EQ(Redirected(asked, Row("red", 1, {0, 0, 0, 0}, 0, {0, 0, 0, 1})), "accepted");
  EXPECT_EQ(Redirected(asked, Row("red", 1, {0, 0, 0, 0}, 8, {})), "accepted");
  EXPECT_EQ(Redirected(asked, Row("red", 2, no_address6, 0, {})), "accepted") << "the IPv6 routes begin here";
}

TEST_F(RouteRule, ProbeThatFindsNoRowContinuesAfterItsKey) {
  EXPECT_EQ(Redirected("route/a%2Fb/1/0/1/00000000/00000001", nullptr),
            "route-next/a%2Fb/1/0/1/00000000/00000001");
  EXPECT_EQ(Redirected("route/red/1/0/1/00000000/00000001", Row("red", 1, {0, 0, 0, 0}, 0, {0, 0, 0, 1})),
            "accepted");
}

TEST_F(RouteRule, AnswersToPathsOfAnotherShapeAreAccepted) {
  EXPECT_EQ(Redirected("route-next/red/1/0/1/0", nullptr), "accepted");
  EXPECT_EQ(Redirected("route-next/re%2/1/8/1/0a000000/0", nullptr), "accepted");
  EXPECT_EQ(Redirected("route-next/red/1/8/1/0a000000/0", Truncated(SomeRow("reds"))), "accepted");
  EXPECT_EQ(
      Redirected("route-next/" + kvtree_encode_text(std::string(63, '\xff')) + "/1/8/1/0a000000/0", nullptr),
      "accepted");
}

TEST_F(RouteRule, TableOfRulesNamesThePathsThatAreWalked) {
  ASSERT_EQ(mpls_vpn_mib_walk_rule_count, 4U);
  EXPECT_STREQ(mpls_vpn_mib_walk_rules[0].first_component, "interface-next");
  EXPECT_EQ(mpls_vpn_mib_walk_rules[0].following, interface_following_path);
  EXPECT_STREQ(mpls_vpn_mib_walk_rules[1].first_component, "vrf-next");
  EXPECT_EQ(mpls_vpn_mib_walk_rules[1].following, vrf_following_path);
  EXPECT_STREQ(mpls_vpn_mib_walk_rules[2].first_component, "rt-next");
  EXPECT_EQ(mpls_vpn_mib_walk_rules[2].following, rt_following_path);
  EXPECT_EQ(mpls_vpn_mib_walk_rules[2].redirect, rt_redirect);
  EXPECT_STREQ(mpls_vpn_mib_walk_rules[3].first_component, "route-next");
  EXPECT_EQ(mpls_vpn_mib_walk_rules[3].following, route_following_path);
  EXPECT_EQ(mpls_vpn_mib_walk_rules[3].redirect, route_redirect);
}

}  // namespace
