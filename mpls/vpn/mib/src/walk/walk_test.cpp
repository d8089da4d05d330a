// The key after a key.
#include "mpls/vpn/mib/src/walk/walk.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "platform/core/base/memory.h"

namespace {

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

class FollowingPath : public testing::Test {
 protected:
  ~FollowingPath() override { std::free(reply_.data); }
  void Row(const char* vrf_name, std::int32_t if_index) {
    mpls_vpn_mib_interface row{};
    row.vrfName = text_copy(vrf_name);
    row.ifConfIndex = if_index;
    std::free(reply_.data);
    ASSERT_EQ(parcel_encode(&kMibInterfaceParcel, &row, &reply_.data, &reply_.length), kStatusOk);
    ASSERT_EQ(parcel_free_indirections(&kMibInterfaceParcel, &row), kStatusOk);
  }
  Status Follow() { return interface_following_path(&reply_, &path_); }
  KvReply reply_{};
  std::string path_;
};

TEST_F(FollowingPath, HasTheFollowingIndex) {
  Row("red", 7);
  ASSERT_EQ(Follow(), kStatusOk);
  EXPECT_EQ(path_, "interface-next/red/8");
}

TEST_F(FollowingPath, ReachesTheGreatestIndex) {
  Row("red", 0x7ffffffe);
  ASSERT_EQ(Follow(), kStatusOk);
  EXPECT_EQ(path_, "interface-next/red/2147483647");
}

TEST_F(FollowingPath, AfterTheGreatestIndexIsTheFollowingName) {
  Row("red", 0x7fffffff);
  ASSERT_EQ(Follow(), kStatusOk);
  EXPECT_EQ(path_, "interface-next/ree/0");
}

TEST_F(FollowingPath, AfterAnIndexAboveTheGreatestIsTheFollowingName) {
  Row("red", -1);
  ASSERT_EQ(Follow(), kStatusOk);
  EXPECT_EQ(path_, "interface-next/ree/0");
}

TEST_F(FollowingPath, EncodesTheName) {
  Row("a/b", 7);
  ASSERT_EQ(Follow(), kStatusOk);
  EXPECT_EQ(path_, "interface-next/a%2Fb/8");
}

TEST_F(FollowingPath, AfterTheVeryLastKeyIsNone) {
  Row(std::string(63, '\xff').c_str(), 0x7fffffff);
  EXPECT_EQ(Follow(), kStatusEndOfList);
}

TEST_F(FollowingPath, RowWithoutAVrfNameEndsTheWalk) {
  Row(nullptr, 7);
  EXPECT_EQ(Follow(), kStatusBadEncoding);
  EXPECT_EQ(path_, "");
}

TEST_F(FollowingPath, RowThatDoesNotDecodeEndsTheWalk) {
  Row("red", 7);
  reply_.length -= 1;
  EXPECT_EQ(Follow(), kStatusBadEncoding);
}

}  // namespace
