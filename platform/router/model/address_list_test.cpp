// The addresses of an interface in the size of a number.
#include "platform/router/model/address_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/router/model/router.h"

namespace router {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Address address(std::string_view text) {
  Address parsed;
  EXPECT_TRUE(parse_address(text, &parsed)) << text;
  return parsed;
}

std::vector<std::string> texts(const AddressList& list) {
  std::vector<std::string> result;
  for (const Address& each : list) result.push_back(format_address(each));
  return result;
}

TEST(AddressList, ReturnsTheAddressesInTheirOrder) {
  const std::vector<std::vector<std::string>> lists = {
      {},
      {"192.0.2.1/24"},
      {"0.0.0.0/0"},
      {"255.255.255.255/32"},
      {"2001:db8::1/64"},
      {"::/0"},
      {"192.0.2.1/24", "198.51.100.255/31"},
      {"2001:db8::1/64", "192.0.2.1/24", "fe80::1/64"},
  };
  for (const auto& wanted : lists) {
    std::vector<Address> addresses;
    AddressList pushed;
    for (const std::string& text : wanted) {
      addresses.push_back(address(text));
      pushed.push_back(address(text));
    }
    const AddressList list = addresses;
    EXPECT_EQ(texts(list), wanted);
    EXPECT_EQ(list.values(), addresses);
    EXPECT_EQ(list.size(), wanted.size());
    EXPECT_EQ(list.empty(), wanted.empty());
    EXPECT_EQ(pushed, list);
  }
}

TEST(AddressList, DiffersInAnyPartOfAnAddress) {
  const AddressList list = {address("192.0.2.1/24")};
  EXPECT_EQ(list, AddressList{address("192.0.2.1/24")});
  for (const char* other : {"192.0.2.2/24", "193.0.2.1/24", "192.0.2.1/25", "c000:201::/24"}) {
    EXPECT_FALSE(list == AddressList{address(other)}) << other;
  }
  EXPECT_FALSE(list == AddressList());
  EXPECT_FALSE(list == (AddressList{address("192.0.2.1/24"), address("192.0.2.1/24")}));
}

TEST(AddressList, ReturnsInvalidAddressesUnchanged) {
  const Address long_prefix{.prefix_length = 255, .octets = {1, 2, 3, 4}};
  const Address long_address{.prefix_length = 24, .octets = {1, 2, 3, 4, 5}};
  EXPECT_THAT(AddressList{long_prefix}.values(), ElementsAre(long_prefix));
  EXPECT_THAT(AddressList{long_address}.values(), ElementsAre(long_address));
}

TEST(AddressList, CopiesAreIndependent) {
  for (const char* first : {"192.0.2.1/24", "2001:db8::1/64"}) {
    AddressList list = {address(first)};
    const AddressList copy = list;
    list.push_back(address("192.0.2.9/24"));
    EXPECT_THAT(texts(copy), ElementsAre(first));
    EXPECT_THAT(texts(list), ElementsAre(first, "192.0.2.9/24"));
    const AddressList moved = std::move(list);
    EXPECT_THAT(texts(moved), ElementsAre(first, "192.0.2.9/24"));
    list = copy;
    list = {};
    EXPECT_THAT(texts(list), IsEmpty());
  }
}

// A router has 100,000 interfaces: a member that is added here costs 100,000 times its size. An allocation of
// 56 octets takes a block of 64, and one more octet a block of 80.
TEST(AddressList, InterfaceFitsIntoAnAllocationOf64Octets) {
  EXPECT_EQ(sizeof(AddressList), 8U);
  EXPECT_LE(sizeof(Interface), 56U);
}

}  // namespace
}  // namespace router
