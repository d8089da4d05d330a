// Random changes of interfaces, several at a time: the notifications of every VRF alternate, and the last one
// is the VRF's state. Changes of one moment are delivered after all of them happened, so later ones must not
// affect a decision: a name that another interface has since, an interface that is removed or in another VRF.
#include <map>
#include <random>
#include <sstream>

#include "mpls/vpn/mib/src/traps/trap_test_support.h"

namespace {

constexpr unsigned kSequences = 150;
constexpr unsigned kMoments = 30;

class RandomChanges : public TrapTest {
 protected:
  void SetUp() override {
    TrapTest::SetUp();
    for (const char* name : {"red", "blue"}) AddVrf(name);
    Connect();
    Enable(kTrapVrfUp);
    Enable(kTrapVrfDown);
  }
  unsigned Draw(unsigned bound) { return static_cast<unsigned>(random_() % bound); }
  std::string DrawVrf() { return std::vector<std::string>{"red", "blue", "default"}[Draw(3)]; }
  std::string DrawName() { return "ge" + std::to_string(Draw(6)); }
  const router::Interface* DrawInterface() { return router_.find_interface_by_name(DrawName()); }

  void Add() {
    const std::string name = DrawName();
    if (router_.find_interface_by_name(name) != nullptr) return;
    router::Interface interface;
    interface.name = name;
    interface.vrf = DrawVrf();
    interface.up = Draw(2) != 0;
    interface.addresses = {AddressOf("192.0.2.1/24")};
    do interface.index = 1 + Draw(12);
    while (router_.find_interface_by_index(interface.index) != nullptr);
    Note("add " + name + " in " + interface.vrf + (interface.up ? " up" : " down"));
    ASSERT_EQ(router_.add_interface(interface, nullptr), kStatusOk);
  }
  void Remove(const router::Interface& interface) {
    Note("remove " + interface.name);
    ASSERT_EQ(router_.remove_interface(interface.handle), kStatusOk);
  }
  void Move(const router::Interface& interface) {
    const std::string vrf = DrawVrf();
    Note("move " + interface.name + " to " + vrf);
    ASSERT_EQ(router_.move_interface(interface.handle, vrf), kStatusOk);
  }
  // Name and state in one change, as a source reports them.
  void Change(router::Interface interface) {
    const std::string former = interface.name;
    const std::string name = DrawName();
    if (Draw(2) != 0 && router_.find_interface_by_name(name) == nullptr) interface.name = name;
    interface.up = Draw(2) != 0;
    Note("change " + former + " to " + interface.name + (interface.up ? " up" : " down") + " in " +
         interface.vrf);
    ASSERT_EQ(router_.change_interface(interface), kStatusOk);
  }
  // Through a name in between, as links that take each other's name.
  void Swap(router::Interface one, router::Interface two) {
    if (one.handle == two.handle) return;
    Note("swap " + one.name + " and " + two.name);
    router::Interface aside = two;
    aside.name = "aside";
    std::swap(one.name, two.name);
    one.up = Draw(2) != 0;
    two.up = Draw(2) != 0;
    for (const router::Interface& each : {aside, one, two}) {
      Note("  " + each.name + (each.up ? " up" : " down") + " in " + each.vrf);
      ASSERT_EQ(router_.change_interface(each), kStatusOk);
    }
  }
  void ChangeSomething() {
    const router::Interface* one = DrawInterface();
    const router::Interface* two = DrawInterface();
    const unsigned kind = Draw(10);
    if (one == nullptr || kind < 2) return Add();
    if (kind == 2) return Remove(*one);
    if (kind < 6) return Move(*one);
    if (kind == 6 && two != nullptr) return Swap(*one, *two);
    Change(*one);
  }
  void RemoveAll() {
    for (unsigned number = 0; number < 6; ++number) {
      const router::Interface* interface = router_.find_interface_by_name("ge" + std::to_string(number));
      if (interface != nullptr) Remove(*interface);
    }
  }

  void Note(const std::string& text) { notes_ += text + "\n"; }
  bool IsActive(const std::string& vrf) const {
    bool active = false;
    router_.for_each_interface(
        [&](const router::Interface& each) { active = active || (each.vrf == vrf && each.up); });
    return active;
  }
  void FollowTraps() {
    for (const std::string& trap : Traps()) {
      Note("  " + trap);
      std::istringstream words(trap);
      std::string kind;
      std::string vrf;
      words >> kind >> vrf;
      const bool up = kind == "mplsL3VpnVrfUp";
      EXPECT_NE(is_up_[vrf], up) << "twice in succession\n" << notes_;
      is_up_[vrf] = up;
    }
  }
  void ExpectStates() {
    for (const std::string vrf : {"red", "blue"})
      EXPECT_EQ(is_up_[vrf], IsActive(vrf)) << vrf << '\n' << notes_;
  }

  std::minstd_rand random_{1};
  std::string notes_;
  std::map<std::string, bool> is_up_;
};

TEST_F(RandomChanges, NotificationsAlternateAndEndInTheStateOfTheVrf) {
  for (unsigned sequence = 0; sequence < kSequences && !HasFailure(); ++sequence) {
    notes_ = "sequence " + std::to_string(sequence) + "\n";
    for (unsigned moment = 0; moment < kMoments && !HasFailure(); ++moment) {
      Note("moment");
      for (unsigned left = 1 + Draw(6); left > 0; --left) ChangeSomething();
      Run();
      FollowTraps();
      ExpectStates();
    }
    RemoveAll();
    Run();
    FollowTraps();
  }
}

}  // namespace
