// The tally against what a walk over the databases counts.
#include "mpls/vpn/mib/src/tally/tally.h"

#include <algorithm>
#include <random>

#include "mpls/vpn/mib/src/provider/provider_test_support.h"
#include "mpls/vpn/mib/src/provider/scalars.h"
#include "mpls/vpn/mib/src/vrf/counters.h"
#include "platform/core/base/test_time.h"

namespace {

constexpr const char* kNames[] = {"red", "blue", "gray", "later", "default1"};
constexpr const char* kInterfaces[] = {"ge0", "ge1", "ge2", "ge3", "ge4", "ge5.ip"};

struct Counts {
  std::uint32_t configured;
  std::uint32_t active;
  std::uint32_t connected;
  std::vector<std::uint32_t> of_vrfs;
  bool operator==(const Counts&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Counts& counts) {
  out << counts.configured << " configured, " << counts.active << " active, " << counts.connected
      << " connected, of VRFs";
  for (const std::uint32_t one : counts.of_vrfs) out << ' ' << one;
  return out;
}

class TallyTest : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    SwitchPrints(false);
  }
  static void SwitchPrints(bool on) {
    for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(on ? 1 : 0);
  }
  static mpls_vpn_mib_scalars Scalars() {
    Reply reply;
    EXPECT_EQ(mpls_vpn_mib_prov_get_scalars(reply.Place(), nullptr), kStatusOk);
    mpls_vpn_mib_scalars scalars{};
    EXPECT_EQ(parcel_decode(&kMibScalarsParcel, reply.Get().data, reply.Get().length, &scalars), kStatusOk);
    return scalars;
  }
  // As requests read them; with the prints on they are counted in walks.
  static Counts Read(bool in_walk) {
    SwitchPrints(in_walk);
    const mpls_vpn_mib_scalars scalars = Scalars();
    Counts counts = {scalars.configuredVrfs, scalars.activeVrfs, scalars.connectedInterfaces, {}};
    for (const char* vrf : kNames) {
      for (const char* skipped : {static_cast<const char*>(nullptr), "ge1"}) {
        std::uint32_t associated = 0;
        std::uint32_t active = 0;
        fill_vrf_counters(vrf, skipped, &associated, &active);
        counts.of_vrfs.insert(counts.of_vrfs.end(), {associated, active});
      }
    }
    SwitchPrints(false);
    return counts;
  }
  static std::string Shown(const IfNode* node) {
    return node == nullptr ? "" : node->vrf_name + std::to_string(node->if_index);
  }
  // Interfaces by name and handle, the invalid VRFs, and for each VRF the next valid interface after all of
  // its own.
  std::vector<std::string> Iterate() {
    std::vector<std::string> found;
    for (const char* vrf = mpls_vpn_mib_get_first_invalid_vrf(); vrf != nullptr;
         vrf = mpls_vpn_mib_get_next_invalid_vrf(vrf)) {
      found.emplace_back(vrf);
    }
    for (const char* vrf : kNames) {
      const char* invalid = mpls_vpn_mib_get_next_invalid_vrf(vrf);
      found.emplace_back(invalid == nullptr ? "" : invalid);
      for (const std::uint32_t from : {0U, 0x7fffffffU}) {
        const IfNode* node = mpls_vpn_mib_get_next_valid_intf(vrf, from);
        found.push_back(Shown(node));
      }
    }
    for (const char* vrf : kNames) {
      for (const char* name : kInterfaces) {
        found.push_back(Shown(mpls_vpn_mib_get_if_by_vrf_and_name(vrf, name)));
        const router::Interface* interface = router_.find_interface_by_name(name);
        if (interface == nullptr) continue;
        found.push_back(Shown(mpls_vpn_mib_get_if_by_vrf_and_handle(vrf, interface->handle)));
      }
    }
    return found;
  }
  // The same with a node without a name at the end, which makes the look-ups walk.
  std::vector<std::string> IterateInWalk() {
    IfNode* last = CreateIf("zzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz", 0x7fffffff, nullptr, 0xffffffff);
    std::vector<std::string> found = Iterate();
    EXPECT_EQ(DeleteIf(last), 1);
    return found;
  }
  void ExpectAsCounted(const std::string& after) {
    ASSERT_EQ(Read(false), Read(true)) << after;
    ASSERT_EQ(Iterate(), IterateInWalk()) << after;
  }

  std::size_t Random(std::size_t below) { return random_() % below; }
  const char* AnyVrf() { return kNames[Random(std::size(kNames))]; }
  const char* AnyInterface() { return kInterfaces[Random(std::size(kInterfaces))]; }
  // One change of the router, which the model may refuse.
  std::string Change() {
    const std::string vrf = AnyVrf();
    const std::string name = AnyInterface();
    const router::Interface* present = router_.find_interface_by_name(name);
    router::Interface changed = present == nullptr ? router::Interface{} : *present;
    Status status = kStatusOk;
    const std::size_t what = Random(12);
    switch (what) {
      case 0:
        if (router_.find_vrf(vrf) == nullptr) AddVrf(vrf);
        break;
      case 1:
        if (Random(3) == 0) status = router_.delete_vrf(vrf);
        break;
      case 2:
        status = router_.reference_vrf(vrf);
        break;
      case 3:
        status = router_.unreference_vrf(vrf);
        break;
      case 4:
        if (present == nullptr) AddInterface(name, Random(4) == 0 ? "default" : vrf);
        break;
      case 5:
        if (present != nullptr && Random(3) == 0) status = router_.remove_interface(present->handle);
        break;
      case 6:
        if (present != nullptr)
          status = router_.move_interface(present->handle, Random(5) == 0 ? "default" : vrf);
        break;
      case 7:
        changed.name = AnyInterface();
        break;
      case 8:
        changed.index = static_cast<std::uint32_t>(1000 + Random(6));
        break;
      case 9:
        if (Random(3) == 0) changed.addresses = {};
        break;
      case 10: {
        constexpr const char* kAddresses[] = {"192.0.2.1/24", "0.0.0.0/0", "2001:db8::1/64", "::/0"};
        changed.addresses.push_back(AddressOf(kAddresses[Random(4)]));
        break;
      }
      default:
        changed.up = Random(4) != 0;
    }
    if (what > 6 && present != nullptr) status = router_.change_interface(changed);
    return std::to_string(what) + " " + vrf + " " + name + ": " + err_text(status);
  }

  std::mt19937 random_{20261122};
};

TEST_F(TallyTest, IsWhatAWalkCountsAfterEveryChange) {
  Connect();
  std::uint32_t most_active = 0;
  for (int step = 0; step < 4000 && !HasFatalFailure(); ++step) {
    const std::string what = Change();
    ExpectAsCounted("step " + std::to_string(step) + ", " + what + ", not delivered");
    if (Random(3) == 0) Run();
    ExpectAsCounted("step " + std::to_string(step) + ", " + what);
    most_active = std::max(most_active, Scalars().activeVrfs);
  }
  EXPECT_GT(most_active, 1U) << "the changes reach no state that is worth comparing";
}

// Straight into the databases: what the membership service never does, such as nodes without a name or a
// record.
TEST_F(TallyTest, FollowsTheDatabasesWhateverChangesThem) {
  AddVrf("red");
  AddVrf("blue");
  Connect();
  const std::uint32_t handle = AddInterface("ge0");
  AddAddress("ge0", "192.0.2.1/24");
  LinkUp("ge0");
  Run();
  IfNode* unresolved = CreateIf("red", 0, nullptr, handle);
  ExpectAsCounted("repaired by the first look-up");
  EXPECT_EQ(Scalars().activeVrfs, 1U);
  CreateIf("blue", 77, "absent", 900);
  ExpectAsCounted("an interface without a record");
  EXPECT_EQ(CreateIf("blue", 77, "absent", 901), nullptr);
  EXPECT_EQ(CreateIf("blue", 78, "other", 900), nullptr);
  ExpectAsCounted("keys that are taken");
  {
    const ScopedFault fault("wavl_delete", kStatusIo);
    EXPECT_EQ(DeleteIf(unresolved), 0);
  }
  ExpectAsCounted("a node that could not be unlinked");
  EXPECT_EQ(DeleteIf(unresolved), 1);
  ExpectAsCounted("deleted");
  EXPECT_EQ(Scalars().connectedInterfaces, 1U);
  RestartDaemon();
  ExpectAsCounted("another daemon");
  EXPECT_EQ(Scalars().connectedInterfaces, 0U);
}

TEST_F(TallyTest, NamelessNodeIsCountedAndEndsTheWalksThatMeetIt) {
  AddVrf("red");
  Connect();
  CreateIf("red", 4, "ge4", 899);
  CreateIf("red", 5, nullptr, 900);
  CreateIf("later", 6, "ge6", 901);
  EXPECT_EQ(Scalars().connectedInterfaces, 2U);
  EXPECT_EQ(mpls_vpn_mib_get_first_invalid_vrf(), nullptr);
  EXPECT_STREQ(mpls_vpn_mib_get_next_invalid_vrf("red"), "later");
  EXPECT_EQ(Read(false), Read(true));
}

// A walk takes 200 times as long.
TEST_F(TallyTest, RequestsCostTheSameWithManyInterfaces) {
  AddVrf("red");
  Connect();
  const std::function<void()> requests[] = {
      [] { Scalars(); },
      [] { EXPECT_EQ(mpls_vpn_mib_get_first_invalid_vrf(), nullptr); },
      [] { EXPECT_EQ(mpls_vpn_mib_get_next_invalid_vrf("a"), nullptr); },
      [] {
        std::uint32_t associated = 0;
        std::uint32_t active = 0;
        fill_vrf_counters("red", "ge5", &associated, &active);
      },
      [] { EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_name("red", "absent"), nullptr); },
      [] { EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_handle("red", 0xdead), nullptr); }};
  const auto measure = [&] {
    std::vector<std::int64_t> times;
    for (const auto& request : requests) times.push_back(least_time(request));
    return times;
  };
  std::uint32_t joined = 0;
  const auto join = [&](std::uint32_t until) {
    for (; joined < until; ++joined) AddInterface("ge" + std::to_string(joined), "red");
    Run();
  };
  join(50);
  const std::vector<std::int64_t> few = measure();
  join(10000);
  const std::vector<std::int64_t> many = measure();
  for (std::size_t i = 0; i < std::size(requests); ++i) {
    EXPECT_LT(many[i], 20 * few[i] + 20000) << "request " << i << ", nanoseconds";
  }
}

}  // namespace
