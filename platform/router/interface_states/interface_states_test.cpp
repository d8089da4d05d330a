// States and addresses of interfaces, as their readers get them.
#include "platform/router/interface_states/interface_states.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>

#include "platform/core/evm/test_run_directory.h"
#include "platform/router/interface_states/records.h"
#include "platform/router/model/router.h"
#include "platform/store/tree/kvtree.h"
#include "platform/store/tree/lists.h"

namespace {

using interface_states::InterfaceState;
using interface_states::kInterfaceStateParcel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class InterfaceStates : public ::testing::Test {
 protected:
  InterfaceStates() { EXPECT_EQ(interface_states_start(&router_, manager_), kStatusOk); }
  ~InterfaceStates() override {
    interface_states_stop();
    kvtree_reset();
    event_manager_destroy(manager_);
  }

  void Add(const std::string& name, std::uint32_t index, bool up, const std::vector<std::string>& addresses) {
    router::Interface interface;
    interface.name = name;
    interface.index = index;
    interface.up = up;
    interface.vrf = "red";
    for (const std::string& text : addresses) {
      router::Address address;
      ASSERT_TRUE(router::parse_address(text, &address));
      interface.addresses.push_back(address);
    }
    ASSERT_EQ(router_.add_interface(interface), kStatusOk);
  }
  static std::string TextOf(const std::vector<std::uint8_t>& octets) {
    InterfaceState state{};
    EXPECT_EQ(parcel_decode(&kInterfaceStateParcel, octets.data(), octets.size(), &state), kStatusOk);
    const std::string text = std::to_string(state.index) + " " + state.name + " " + state.vrf +
                             (state.up != 0 ? " up " : " down ") + state.addresses;
    EXPECT_EQ(parcel_free_indirections(&kInterfaceStateParcel, &state), kStatusOk);
    return text;
  }
  static std::vector<std::string> Walk(std::uint32_t most) {
    std::vector<std::vector<std::uint8_t>> rows;
    bool end = false;
    last_status = kvtree_walk("/oper/interfaces/next/0", false, most, &rows, &end);
    std::vector<std::string> texts;
    for (const auto& row : rows) texts.push_back(TextOf(row));
    return texts;
  }
  static Status Get(const std::string& path, std::string* text) {
    KvReply reply{};
    const Status status = kvtree_get("/oper/interfaces/" + path, false, &reply);
    const std::unique_ptr<std::uint8_t, decltype(&std::free)> owned(reply.data, &std::free);
    if (status == kStatusOk) *text = TextOf({reply.data, reply.data + reply.length});
    return status;
  }
  static std::vector<std::string> List(const std::string& path, std::uint32_t most) {
    KvListReply reply{.max_items = most, .count = 0, .list = nullptr, .datalist = nullptr};
    last_status = kvtree_list("/oper/interfaces/" + path, false, &reply);
    std::vector<std::string> names;
    if (reply.list != nullptr) {
      for (const KvListItem& item : reply.list->items) names.push_back(item.key);
    }
    kvtree_list_free(reply.list);
    return names;
  }
  const TestRunDirectory directory_;
  EventManager* const manager_ = event_manager_create("/dev/mpls/vpn/main", 0);
  router::Router router_;
  static inline Status last_status = kStatusOk;
};

TEST_F(InterfaceStates, EachInterfaceIsWalkedOnce) {
  EXPECT_THAT(Walk(10), IsEmpty());
  EXPECT_EQ(last_status, kStatusNoSuchRow);
  Add("ge2", 7, true, {"10.0.0.1/24", "2001:db8::1/64"});
  Add("ge1", 3, false, {});
  EXPECT_THAT(Walk(10), ElementsAre("7 ge2 red up 10.0.0.1/24 2001:db8::1/64", "3 ge1 red down "));
  EXPECT_THAT(Walk(1), ElementsAre("7 ge2 red up 10.0.0.1/24 2001:db8::1/64"));
}

TEST_F(InterfaceStates, InterfaceIsFoundByItsIndex) {
  Add("ge1", 3, true, {"10.0.0.1/24"});
  std::string text;
  EXPECT_EQ(Get("index/3", &text), kStatusOk);
  EXPECT_EQ(text, "3 ge1 red up 10.0.0.1/24");
  EXPECT_EQ(Get("index/4", &text), kStatusNoSuchRow);
  EXPECT_EQ(Get("index/x", &text), kStatusBadKey);
  EXPECT_EQ(Get("index", &text), kStatusBadKey);
  EXPECT_EQ(Get("nosuch/ge1", &text), kStatusUnknownPath);
}

TEST_F(InterfaceStates, InterfaceIsFoundByItsName) {
  Add("ge-0/0/1", 3, true, {});
  std::string text;
  EXPECT_EQ(Get("name/ge-0%2F0%2F1", &text), kStatusOk);
  EXPECT_EQ(text, "3 ge-0/0/1 red up ");
  EXPECT_EQ(Get("name/ge-0", &text), kStatusNoSuchRow);
  EXPECT_EQ(Get("name/%0", &text), kStatusBadKey);
  EXPECT_EQ(Get("name", &text), kStatusNoSuchRow);
}

TEST_F(InterfaceStates, NamesThatBeginAlikeFollowEachOther) {
  std::uint32_t index = 0;
  for (const char* name : {"ge2", "ge10", "lo", "ge1"}) Add(name, ++index, true, {});
  EXPECT_THAT(List("name", 10), ElementsAre("ge1", "ge10", "ge2", "lo"));
  EXPECT_THAT(List("name/ge1", 10), ElementsAre("ge10", "ge2", "lo"));
  EXPECT_THAT(List("name/ge", 2), ElementsAre("ge1", "ge10"));
  EXPECT_THAT(List("name/lo", 10), IsEmpty());
  EXPECT_THAT(List("next", 10), IsEmpty());
  EXPECT_EQ(last_status, kStatusUnknownPath);
}

TEST_F(InterfaceStates, IsProvidedOnce) {
  EXPECT_EQ(interface_states_start(&router_, manager_), kStatusExists);
}

}  // namespace
