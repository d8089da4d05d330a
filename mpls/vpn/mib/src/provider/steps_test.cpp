// Long answers are made in steps, and a client sees and an operator reads what one made at once would show.
#include <functional>

#include "mpls/vpn/mib/src/provider/steps_test_support.h"
#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "platform/store/client/client.h"
#include "platform/store/tree/lists.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsSupersetOf;

TEST_F(AnswersInSteps, OfWholeListsAreThoseMadeAtOnce) {
  EXPECT_EQ(Compare("vrf-detail", true), kVrfs);
  EXPECT_EQ(Compare("vrf-detail", false), kVrfs);
  EXPECT_EQ(Compare("vrf-detail-filter/-/1/1", true), kVrfs);
}

TEST_F(AnswersInSteps, OfFiltersThatFindNothingAreThoseMadeAtOnce) {
  EXPECT_EQ(Compare("vrf-detail-filter/-/2/2", true), 0U);
  EXPECT_EQ(Compare("vrf-detail-filter/-/1/2", false), 0U);
}

TEST_F(AnswersInSteps, OfInvalidVrfsAreThoseMadeAtOnce) {
  for (unsigned number = 0; number < kVrfs; ++number) {
    const std::string vrf = "absent" + std::to_string(1000 + number);
    ASSERT_NE(CreateIf(vrf.c_str(), 5000 + number, ("eth" + std::to_string(number)).c_str(), 9000 + number),
              nullptr);
  }
  EXPECT_EQ(Compare("vrf-invalid-detail", true), kVrfs);
  EXPECT_EQ(Compare("vrf-invalid-detail", false), kVrfs);
}

TEST_F(AnswersInSteps, MadeInOneStepNeedNoOther) {
  EXPECT_THAT(Served("vrf-detail-filter/" + VrfName(7), true, 1).keys, ElementsAre(VrfName(7)));
}

TEST_F(AnswersInSteps, HaveEveryVrfThatExistsMeanwhileOnceAndInOrder) {
  constexpr unsigned kApart = 20;  // few: the notifications are delivered in steps, too
  std::vector<std::string> keys;
  Serve(
      [&](kvtree::Client& client) {
        for (const kvtree::ListItem& item : client.datalist(kSubtree + "vrf-detail", 1000).items)
          keys.push_back(item.key);
      },
      [&](unsigned iteration) {
        if (iteration != 2) return;
        AddVrfWithTables("vrf1000a", true, true);  // longer, and so after all others
        for (unsigned number = 0; number < kVrfs; number += kApart) DeleteVrf(VrfName(number));
      });
  std::vector<std::string> remaining{"vrf1000a"};
  for (unsigned number = 0; number < kVrfs; ++number) {
    if (number % kApart != 0) remaining.push_back(VrfName(number));
  }
  EXPECT_THAT(keys, IsSupersetOf(remaining));
  EXPECT_LT(keys.size(), kVrfs);
  EXPECT_EQ(keys.back(), "vrf1000a");
  EXPECT_EQ(std::adjacent_find(keys.begin(), keys.end() - 1, std::greater_equal<>()), keys.end() - 1);
}

// --- Details of a VRF with many interfaces

TEST_F(AnswersInSteps, FindTheNextRouteBeyondVrfsWithoutRoutes) {
  AddRoute(VrfName(kVrfs - 1), "10.1.0.0/16", "192.0.2.1");
  const std::string path = "route-next/" + VrfName(0) + "/1/0/1/0/0";
  ClearPrints();
  EXPECT_EQ(NextRoute(path), VrfName(kVrfs - 1) + " 10.1.0.0/16 via 192.0.2.1");
  const SaidLines served = Prints();
  ClearPrints();
  KvReply reply{};
  ASSERT_EQ(kvtree_get(kSubtree + path, false, &reply), kStatusOk);
  std::free(reply.data);
  EXPECT_THAT(served, ElementsAreArray(Prints()));
}

TEST_F(AnswersInSteps, FindNoRouteWhereNoneFollows) {
  EXPECT_EQ(NextRoute("route-next/" + VrfName(0) + "/1/0/1/0/0"), err_text(kStatusNoSuchRow));
}

TEST_F(AnswersInSteps, GoOnAfterAVrfThatIsDeletedMeanwhile) {
  AddRoute(VrfName(kVrfs - 1), "10.1.0.0/16", "192.0.2.1");
  Status status = kStatusInvalid;
  Serve(
      [&](kvtree::Client& client) {
        status = client.get(kSubtree + "route-next/" + VrfName(0) + "/1/0/1/0/0").status;
      },
      [&](unsigned iteration) {
        if (iteration != kFewestIterations / 2) return;
        for (unsigned number = 0; number < kVrfs - 1; ++number) DeleteVrf(VrfName(number));
      });
  EXPECT_EQ(status, kStatusOk);
}

TEST_F(AnswersInSteps, OfABatchedWalkHaveItsRows) {
  AddRoute(VrfName(kVrfs / 2), "10.1.0.0/16", "192.0.2.1");
  AddRoute(VrfName(kVrfs - 1), "10.2.0.0/16", "192.0.2.1");
  std::vector<std::string> rows;
  const unsigned iterations = Serve([&](kvtree::Client& client) {
    const kvtree::WalkResult result = client.walk(kSubtree + "route-next/" + VrfName(0) + "/1/0/1/0/0", 100);
    EXPECT_EQ(result.status, kStatusOk);
    EXPECT_TRUE(result.end);
    for (const kvtree::Octets& row : result.rows) {
      const Decoded<mpls_vpn_mib_route> decoded(
          kMibRouteParcel, {kKvKindRecord, const_cast<std::uint8_t*>(row.data()), row.size()});
      rows.push_back(RouteText(*decoded.operator->()));
    }
  });
  EXPECT_THAT(rows, ElementsAre(VrfName(kVrfs / 2) + " 10.1.0.0/16 via 192.0.2.1",
                                VrfName(kVrfs - 1) + " 10.2.0.0/16 via 192.0.2.1"));
  EXPECT_GE(iterations, kFewestIterations);
}

// --- Scalars, whose walk is made while its prints are switched on

class PrintedScalars : public AnswersInSteps {
 protected:
  void SetUp() override {
    AnswersInSteps::SetUp();
    LetReadingsTake(0);
    for (unsigned number = 0; number < kVrfs; number += 2) {
      AddActiveInterface("eth" + std::to_string(number), VrfName(number));
      AddInterface("spare" + std::to_string(number), VrfName(number));
    }
    Run();
    OnlyArea(DBASE);
    mpls_vpn_debug_flags[PROV].enabled.store(1);
    LetReadingsTake(kReading);
  }
  // As "configured active connected".
  static std::string Text(const std::uint8_t* octets, std::size_t length) {
    mpls_vpn_mib_scalars scalars{};
    EXPECT_EQ(parcel_decode(&kMibScalarsParcel, octets, length, &scalars), kStatusOk);
    return std::to_string(scalars.configuredVrfs) + " " + std::to_string(scalars.activeVrfs) + " " +
           std::to_string(scalars.connectedInterfaces);
  }
  std::string Read(
      unsigned fewest, const std::function<void(unsigned)>& before = [](unsigned) {}) {
    kvtree::GetResult result;
    iterations_ = Serve([&](kvtree::Client& client) { result = client.get(kSubtree + "scalars"); }, before);
    EXPECT_GE(iterations_, fewest);
    EXPECT_EQ(result.status, kStatusOk);
    return Text(result.record.data(), result.record.size());
  }

  unsigned iterations_ = 0;
};

TEST_F(PrintedScalars, AreThoseCountedAtOnce) {
  KvReply reply{};
  ASSERT_EQ(kvtree_get(kSubtree + "scalars", false, &reply), kStatusOk);
  const std::string expected = Text(reply.data, reply.length);
  std::free(reply.data);
  EXPECT_EQ(expected, "200 100 200");
  const SaidLines prints = Prints();
  ClearPrints();
  EXPECT_EQ(Read(2 * kFewestIterations), expected);
  EXPECT_THAT(Prints(), ElementsAreArray(prints));
}

TEST_F(PrintedScalars, AreThoseOfTheLastStepWhenTheRouterChangesMeanwhile) {
  EXPECT_EQ(Read(kFewestIterations,
                 [&](unsigned iteration) {
                   if (iteration == kFewestIterations / 2) DeleteVrf(VrfName(1));
                   if (iteration == 3 * kFewestIterations / 2) RemoveInterface("eth0");
                 }),
            "199 99 199");
}

TEST_F(PrintedScalars, NeedNoFurtherStepOnceThePrintsAreSwitchedOff) {
  EXPECT_EQ(Read(1,
                 [&](unsigned iteration) {
                   if (iteration != 5) return;
                   for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(0);
                   LetReadingsTake(kNanosecondsPerSecond);  // as many steps as a walk has VRFs and interfaces
                 }),
            "200 100 200");
  EXPECT_LT(iterations_, kFewestIterations);
}

TEST_F(PrintedScalars, AreNotWalkedForPrintsThatAreDropped) {
  LetReadingsTake(0);
  debug_capture(nullptr);
  testing::internal::CaptureStderr();
  while (!debug_prints_are_dropped()) debug_printf(mpls_vpn_debug_flags[START], "x");
  LetReadingsTake(kReading);
  EXPECT_EQ(Read(1), "200 100 200");
  testing::internal::GetCapturedStderr();
  EXPECT_LT(iterations_, kFewestIterations);
}

}  // namespace
