// Long answers are made in steps, and a client sees and an operator reads what one made at once would show.
#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>

#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "platform/store/client/client.h"
#include "platform/store/tree/lists.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsSupersetOf;

const std::string kSubtree = "/oper/mpls_vpn/gl/";
constexpr unsigned kVrfs = 200;
constexpr std::uint64_t kReading = 100'000;  // nanoseconds
// A slice of two milliseconds visits at most 20 VRFs when each costs a reading.
constexpr unsigned kFewestIterations = kVrfs / 20;

std::string VrfName(unsigned number) {
  return "vrf" + std::to_string(1000 + number);
}

struct Items {
  std::vector<std::string> keys;
  std::vector<std::vector<std::uint8_t>> records;
  bool operator==(const Items&) const = default;
};

class AnswersInSteps : public RouteTablesTest {
 protected:
  void SetUp() override {
    RouteTablesTest::SetUp();
    for (unsigned number = 0; number < kVrfs; ++number) AddVrfWithTables(VrfName(number), true, true);
    Connect();
    Provide();
    ASSERT_EQ(kvtree_serve(manager_), kStatusOk);
    LetReadingsTake(kReading);
  }
  void TearDown() override {
    LetReadingsTake(0);
    kvtree_stop_serving(manager_);
    RouteTablesTest::TearDown();
  }

  // Runs the event loop while a client asks. The number of iterations, before each of which the function is
  // called.
  unsigned Serve(
      const std::function<void(kvtree::Client&)>& ask,
      const std::function<void(unsigned)>& before = [](unsigned) {}) {
    std::atomic<bool> is_answered{false};
    std::thread asking([&] {
      kvtree::Client client(kvtree::Client::default_socket(), std::chrono::milliseconds(20000));
      EXPECT_EQ(client.connect(), kStatusOk);
      ask(client);
      is_answered = true;
    });
    unsigned iterations = 0;
    std::array<unsigned char, 1024> buffer;
    while (!is_answered) {
      EventContext context{manager_, buffer.data(), buffer.size(), 0};
      if (event_wait_for(&context, 0) != 0) {
        std::this_thread::yield();
        continue;
      }
      before(++iterations);
      event_dispatch(&context);
    }
    asking.join();
    return iterations;
  }
  // The items that a client gets, in at least so many iterations.
  Items Served(const std::string& path, bool is_datalist, unsigned fewest = kFewestIterations) {
    Items items;
    const unsigned iterations = Serve([&](kvtree::Client& client) {
      const kvtree::ListResult result =
          is_datalist ? client.datalist(kSubtree + path, 1000) : client.list(kSubtree + path, 1000);
      EXPECT_EQ(result.status, kStatusOk);
      for (const kvtree::ListItem& item : result.items) {
        items.keys.push_back(item.key);
        if (is_datalist) items.records.push_back(item.record);
      }
    });
    EXPECT_GE(iterations, fewest) << path;
    return items;
  }
  // Those of an answer made at once.
  static Items AtOnce(const std::string& path, bool is_datalist) {
    Items items;
    KvListReply reply{1000, 0, nullptr, nullptr};
    EXPECT_EQ((is_datalist ? kvtree_datalist : kvtree_list)(kSubtree + path, false, &reply), kStatusOk);
    if (is_datalist) {
      for (const KvDatalistItem& item : reply.datalist->items) {
        items.keys.push_back(item.key);
        items.records.emplace_back(item.value.begin(), item.value.end());
      }
    } else {
      for (const KvListItem& item : reply.list->items) items.keys.push_back(item.key);
    }
    kvtree_list_free(reply.list);
    kvtree_datalist_free(reply.datalist);
    return items;
  }
  // In steps and at once alike; the number of items.
  std::size_t Compare(const std::string& path, bool is_datalist) {
    SCOPED_TRACE(path);
    ClearPrints();
    const Items expected = AtOnce(path, is_datalist);
    const SaidLines prints = Prints();
    ClearPrints();
    const Items served = Served(path, is_datalist);
    EXPECT_EQ(served, expected);
    EXPECT_THAT(Prints(), ElementsAreArray(prints));
    return served.keys.size();
  }
  // The first row from this path on, as text, or the failure's.
  std::string NextRoute(const std::string& path, unsigned fewest = kFewestIterations) {
    std::string text;
    const unsigned iterations = Serve([&](kvtree::Client& client) {
      const kvtree::GetResult result = client.get(kSubtree + path);
      text = err_text(result.status);
      if (result.status != kStatusOk) return;
      const Decoded<mpls_vpn_mib_route> row(
          kMibRouteParcel,
          {kKvKindRecord, const_cast<std::uint8_t*>(result.record.data()), result.record.size()});
      text = RouteText(*row.operator->());
    });
    EXPECT_GE(iterations, fewest) << path;
    return text;
  }
};

// --- Lists

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
