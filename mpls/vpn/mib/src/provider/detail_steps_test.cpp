// Details of VRFs that are answered in steps.
#include <functional>

#include "mpls/vpn/mib/src/provider/steps_test_support.h"
#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "platform/store/client/client.h"
#include "platform/store/tree/lists.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

class DetailsInSteps : public AnswersInSteps {
 protected:
  static constexpr unsigned kInterfaces = 400;
  static constexpr unsigned kFewest = 2 * kInterfaces / 20;  // they are counted, then copied
  void SetUp() override {
    AnswersInSteps::SetUp();
    LetReadingsTake(0);
    for (unsigned number = 0; number < kInterfaces; ++number)
      ASSERT_NE(
          CreateIf(kLarge.c_str(), 5000 + number, ("eth" + std::to_string(number)).c_str(), 9000 + number),
          nullptr);
    LetReadingsTake(kReading);
  }
  kvtree::GetResult Get(
      unsigned fewest, const std::function<void(unsigned)>& before = [](unsigned) {}) {
    kvtree::GetResult result;
    const auto ask = [&](kvtree::Client& client) { result = client.get(kSubtree + "vrf-detail/" + kLarge); };
    EXPECT_GE(Serve(ask, before), fewest);
    return result;
  }
  static std::size_t CountInterfaces(const std::vector<std::uint8_t>& record) {
    const Decoded<mpls_vpn_vrf> decoded(
        kShowVrfParcel, {kKvKindRecord, const_cast<std::uint8_t*>(record.data()), record.size()});
    return decoded->Interfaces.count;
  }

  const std::string kLarge = VrfName(7);
};

TEST_F(DetailsInSteps, AreThoseMadeAtOnce) {
  ClearPrints();
  KvReply reply{};
  ASSERT_EQ(kvtree_get(kSubtree + "vrf-detail/" + kLarge, false, &reply), kStatusOk);
  const std::vector<std::uint8_t> expected(reply.data, reply.data + reply.length);
  std::free(reply.data);
  const SaidLines prints = Prints();
  ClearPrints();
  const kvtree::GetResult served = Get(kFewest);
  EXPECT_EQ(served.status, kStatusOk);
  EXPECT_EQ(served.record, expected);
  EXPECT_EQ(CountInterfaces(expected), kInterfaces);
  EXPECT_THAT(Prints(), ElementsAreArray(prints));
}

TEST_F(DetailsInSteps, FollowWhatIsAddedAndRemovedMeanwhile) {
  const kvtree::GetResult served = Get(kFewest, [&](unsigned iteration) {
    if (iteration != kFewest / 2 + 2) return;
    ASSERT_NE(CreateIf(kLarge.c_str(), 9999, "late", 19999), nullptr);
    for (unsigned number = kInterfaces - 10; number < kInterfaces; ++number)
      DeleteIf(mpls_vpn_mib_get_if(true, kLarge.c_str(), 5000 + number));
  });
  EXPECT_EQ(served.status, kStatusOk);
  EXPECT_EQ(CountInterfaces(served.record), kInterfaces - 10 + 1);
}

TEST_F(DetailsInSteps, OfAVrfThatIsDeletedMeanwhileAreNone) {
  const kvtree::GetResult served = Get(kFewest / 2, [&](unsigned iteration) {
    if (iteration == kFewest / 2) DeleteVrf(kLarge);
  });
  EXPECT_EQ(served.status, kStatusNoSuchRow);
}

TEST_F(DetailsInSteps, InAListAreThoseMadeAtOnce) {
  const Items expected = AtOnce("vrf-detail", true);
  ClearPrints();
  EXPECT_EQ(Served("vrf-detail", true, kFewestIterations + kFewest), expected);
  EXPECT_EQ(CountInterfaces(expected.records.at(7)), kInterfaces);
}

TEST_F(DetailsInSteps, OfAVrfThatIsDeletedMeanwhileAreLeftOutOfTheList) {
  std::vector<std::string> keys;
  Serve(
      [&](kvtree::Client& client) {
        for (const kvtree::ListItem& item : client.datalist(kSubtree + "vrf-detail", 1000).items)
          keys.push_back(item.key);
      },
      [&](unsigned iteration) {
        if (iteration == kFewest / 2) DeleteVrf(kLarge);
      });
  EXPECT_EQ(keys.size(), kVrfs - 1);
  EXPECT_THAT(keys, testing::Not(testing::Contains(kLarge)));
}

TEST_F(DetailsInSteps, OfAnInvalidVrfAreThoseMadeAtOnce) {
  LetReadingsTake(0);
  for (unsigned number = 0; number < kInterfaces; ++number)
    ASSERT_NE(CreateIf("absent", 7000 + number, ("ge" + std::to_string(number)).c_str(), 12000 + number),
              nullptr);
  LetReadingsTake(kReading);
  const std::string path = kSubtree + "vrf-invalid-detail/absent";
  KvReply reply{};
  ASSERT_EQ(kvtree_get(path, false, &reply), kStatusOk);
  const std::vector<std::uint8_t> expected(reply.data, reply.data + reply.length);
  std::free(reply.data);
  EXPECT_EQ(CountInterfaces(expected), kInterfaces);
  kvtree::GetResult served;
  EXPECT_GE(Serve([&](kvtree::Client& client) { served = client.get(path); }), kFewest);
  EXPECT_EQ(served.record, expected);
  const Items all = AtOnce("vrf-invalid-detail", true);
  EXPECT_EQ(Served("vrf-invalid-detail", true, kFewest), all);
  EXPECT_THAT(all.keys, ElementsAre("absent"));
}

// --- Routes

}  // namespace
