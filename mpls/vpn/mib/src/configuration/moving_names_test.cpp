// Counts of protocols on interfaces whose names change while their configuration changes: whatever the order,
// an interface ends with the items that are configured for it under its present name in its present VRF.
//
// The configuration's followers run beside the daemon, as they do in the process. What is expected is read
// from the configuration tree and from the router.
#include <array>
#include <random>

#include "mpls/vpn/mib/src/configuration/config_test_support.h"
#include "mpls/vpn/mib/src/configuration/protocols.h"
#include "mpls/vpn/mib/src/interface/database_internal.h"
#include "mpls/vpn/mib/src/traps/info.h"
#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/router/config_references/config_references.h"
#include "platform/store/configuration/configuration.h"

namespace {

using Counts = std::array<std::uint32_t, kMplsVpnProtocols>;

// What can be configured on an interface of a VRF; OSPF in two areas, so that one protocol has two items.
KvConfigNode item_of(unsigned kind, const std::string& vrf, const std::string& name) {
  switch (kind) {
    case 0:
      return vrf_config::rip_interface(vrf, name);
    case 1:
      return vrf_config::ospf_interface(vrf, "1", 0, name);
    case 2:
      return vrf_config::ospf_interface(vrf, "1", 7, name);
    case 3:
      return vrf_config::eigrp_interface(vrf, 100, name);
    default:
      return vrf_config::static_route(vrf, {vrf_config::Family::kIpv4, "198.51.100.0/24", name, ""});
  }
}
constexpr std::array kProtocolOfKind = {kProtocolRip, kProtocolOspf, kProtocolOspf, kProtocolOther,
                                        kProtocolStatic};

class MovingNames : public Configured<DaemonTest> {
 protected:
  MovingNames() { registers_at_once_ = false; }
  void SetUp() override {
    Configured::SetUp();
    ASSERT_EQ(config_references_start(&router_, manager_), kStatusOk);
    Register();
    AddVrf("red");
    AddVrf("blue");
    Run();
  }
  void TearDown() override {
    config_references_stop();
    Configured::TearDown();
  }

  // Without delivering what follows.
  void Commit(const KvConfigNode& node, bool is_set) {
    const KvConfigChange change{node.path, is_set ? std::optional(node.value) : std::nullopt};
    EXPECT_EQ(kvtree_config_commit(kConfigOwnerCli, {change}, ""), kStatusOk) << node.path;
  }
  void SetItem(unsigned kind, const std::string& name) { Commit(item_of(kind, "red", name), true); }
  void DeleteItem(unsigned kind, const std::string& name) { Commit(item_of(kind, "red", name), false); }
  static bool IsConfigured(const KvConfigNode& item) {
    bool found = false;
    kvtree_config_effective(item.path,
                            [&](const KvConfigNode& node) { found = found || node.path == item.path; });
    return found;
  }
  void SwapNames(const std::string& one, const std::string& other) {
    Rename(one, "aside");
    Rename(other, one);
    Rename("aside", other);
  }

  static Counts Expected(const router::Interface& interface) {
    Counts counts{};
    for (unsigned kind = 0; kind < kProtocolOfKind.size(); ++kind) {
      if (IsConfigured(item_of(kind, interface.vrf, interface.name))) ++counts[kProtocolOfKind[kind]];
    }
    return counts;
  }
  static Counts Counted(const router::Interface& interface) {
    const IfNode* node = mpls_vpn_mib_get_if(true, interface.vrf.c_str(), interface.index);
    EXPECT_NE(node, nullptr) << interface.name;
    if (node == nullptr) return {};
    EXPECT_EQ(node->if_name, interface.name);
    EXPECT_EQ(node->if_handle, interface.handle);
    return std::to_array(node->protocol_count);
  }
  // Delivers everything, then compares.
  void ExpectCountsAsConfigured(const std::string& story = "") {
    Run();
    std::uint32_t members = 0;
    router_.for_each_interface([&](const router::Interface& interface) {
      if (interface.vrf == router::kDefaultVrf) return;
      ++members;
      EXPECT_EQ(Counted(interface), Expected(interface))
          << interface.name << " in " << interface.vrf << story;
    });
    EXPECT_EQ(wavl_size(mpls_vpn_mib_if_tree(), kIfByHandle), members) << story;
  }
};

TEST_F(MovingNames, EveryOrderOfARenameAndAnEditEndsAsConfigured) {
  AddInterface("old", "red");
  AddInterface("other", "red");
  const std::string names[] = {"old", "new"};
  for (const std::string& edited : names) {
    for (const bool is_set_first : {false, true}) {
      for (unsigned order = 0; order < 8; ++order) {
        if (is_set_first) SetItem(0, edited);
        Run();
        const auto edit = [&] { Commit(item_of(0, "red", edited), !is_set_first); };
        if ((order & 1) == 0) edit();
        if ((order & 2) != 0) event_run_pending(manager_);
        Rename(names[0], names[1]);
        if ((order & 4) != 0) event_run_pending(manager_);
        if ((order & 1) != 0) edit();
        ExpectCountsAsConfigured(" order " + std::to_string(order) + " of " + edited);
        Rename(names[1], names[0]);
        if (IsConfigured(item_of(0, "red", edited))) DeleteItem(0, edited);
        ExpectCountsAsConfigured(" and back");
      }
    }
  }
}

TEST_F(MovingNames, RenameRaisesNoNotificationAndKeepsTheRow) {
  AddInterface("old", "red");
  AddAddress("old", "10.0.0.1/24");
  LinkUp("old");
  SetItem(0, "old");
  Run();
  for (MplsVpnTrapInfo& info : mpls_vpn_mib_trap_info) info.enabled = 1;
  ClearPrints();
  Rename("old", "new");
  ExpectCountsAsConfigured();
  for (const std::string& line : Prints()) EXPECT_EQ(line.find("generating trap"), std::string::npos) << line;
  for (MplsVpnTrapInfo& info : mpls_vpn_mib_trap_info) info.enabled = 0;
}

// An interface of this name would not have been entered, so one that gets it leaves: its VRF is down.
TEST_F(MovingNames, InterfaceThatGetsASubscribersNameLeavesAndReturnsUnderAnother) {
  AddInterface("old", "red");
  AddAddress("old", "10.0.0.1/24");
  LinkUp("old");
  ExpectCountsAsConfigured();
  const std::uint32_t index = router_.find_interface_by_name("old")->index;
  for (MplsVpnTrapInfo& info : mpls_vpn_mib_trap_info) info.enabled = 1;
  for (const char* name : {"old.ip1", "old.pppoe2"}) {
    ClearPrints();
    Rename("old", name);
    Run();
    EXPECT_EQ(mpls_vpn_mib_get_if(true, "red", index), nullptr) << name;
    EXPECT_EQ(wavl_size(mpls_vpn_mib_if_tree(), kIfByHandle), 0U) << name;
    EXPECT_TRUE(Printed("active=0 conn=1 generating trap VRF-Down")) << name;
    ClearPrints();
    Rename(name, "old");
    ExpectCountsAsConfigured();
    EXPECT_TRUE(Printed("active=0 conn=1 generating trap VRF-Up")) << name;
    SetItem(0, "old");
    ExpectCountsAsConfigured();
  }
  for (MplsVpnTrapInfo& info : mpls_vpn_mib_trap_info) info.enabled = 0;
}

TEST_F(MovingNames, RenameWithoutConfigurationDoesNotTouchTheVrf) {
  AddInterface("old", "red");
  Run();
  const std::uint32_t changed = ChangedAt("red");
  PassSeconds(10);
  Rename("old", "new");
  ExpectCountsAsConfigured();
  EXPECT_EQ(ChangedAt("red"), changed);
}

// A VRF that is created again under its name, and its times in the daemon.
class VrfMadeAgain : public MovingNames {
 protected:
  void MakeGreenAgain() {
    AddVrf("green");
    AddInterface("ge9", "green");
    Run();
    Leave("ge9");
    Run();
    PassSeconds(10);
    DeleteVrf("green");
    Run();
    PassSeconds(10);
    AddVrf("green");
    Run();
  }
};

TEST_F(VrfMadeAgain, WasNotChangedBeforeItWasCreated) {
  for (const KvConfigNode& item :
       {vrf_config::bgp_neighbor("green", 65000, "192.0.2.9", vrf_config::Family::kIpv4),
        vrf_config::description("green", "Green Grocers")}) {
    Commit(item, true);
    MakeGreenAgain();
    EXPECT_EQ(AttributesOf("green")->creation_time, Now());
    EXPECT_EQ(ChangedAt("green"), Now()) << item.path;
    DeleteVrf("green");
    RemoveInterface("ge9");
  }
  AddVrf("green");
  Run();
  EXPECT_STREQ(AttributesOf("green")->description, "Green Grocers");
}

TEST_F(VrfMadeAgain, WasNotChangedBeforeItWasCreatedThoughOnlyTheRouterNamesIt) {
  NameVrf("green");
  MakeGreenAgain();
  EXPECT_EQ(AttributesOf("green")->creation_time, Now());
  EXPECT_EQ(ChangedAt("green"), Now());
}

TEST_F(VrfMadeAgain, WithoutAnythingThatNamesItIsANewOne) {
  MakeGreenAgain();
  EXPECT_EQ(ChangedAt("green"), 0U);
}

// Random changes, partly delivered in between.
class RandomChanges : public MovingNames, public testing::WithParamInterface<unsigned> {
 protected:
  static constexpr unsigned kNames = 4;
  unsigned Pick(unsigned end) { return std::uniform_int_distribution<unsigned>(0, end - 1)(random_); }
  static std::string Name(unsigned number) { return "n" + std::to_string(number); }
  const router::Interface* Some() { return router_.find_interface_by_name(Name(Pick(kNames))); }
  std::string SomeVrf() { return std::array{"red", "blue", "default"}[Pick(3)]; }

  void Edit() {
    const KvConfigNode item = item_of(Pick(5), Pick(4) != 0 ? "red" : "blue", Name(Pick(kNames)));
    Commit(item, !IsConfigured(item));
  }
  void RenameSome() {
    const std::string to = Name(Pick(kNames));
    const router::Interface* some = Some();
    if (some == nullptr || some->name == to) return;
    const std::string from = some->name;
    if (router_.find_interface_by_name(to) != nullptr) return SwapNames(from, to);
    Rename(from, to);
  }
  void Reindex() {
    if (const router::Interface* some = Some()) SetIndex(some->name, 1000 + ++last_index_);
  }
  void MoveSome() {
    if (const router::Interface* some = Some()) Join(some->name, SomeVrf());
  }
  void AddOrRemove() {
    const std::string name = Name(Pick(kNames));
    if (router_.find_interface_by_name(name) != nullptr) return RemoveInterface(name);
    AddInterface(name, SomeVrf());
  }
  void Step() {
    const unsigned kind = Pick(20);
    if (kind < 8) return Edit();
    if (kind < 13) return RenameSome();
    if (kind < 14) return Reindex();
    if (kind < 15) return MoveSome();
    if (kind < 17) return AddOrRemove();
    event_run_pending(manager_);
  }

  std::mt19937 random_{GetParam()};
  std::uint32_t last_index_ = 0;
};

TEST_P(RandomChanges, EndWithCountsAsConfigured) {
  for (unsigned number = 0; number < kNames - 1; ++number) AddInterface(Name(number), "red");
  for (unsigned round = 0; round < 100 && !HasFailure(); ++round) {
    for (unsigned step = 0; step < 1 + Pick(12); ++step) Step();
    ExpectCountsAsConfigured(" in round " + std::to_string(round));
  }
}
INSTANTIATE_TEST_SUITE_P(Seeds, RandomChanges, testing::Range(1U, 21U));

}  // namespace
