// Recordings of a kernel with VRF devices, from the datagram to the model: a dump of a router with three VRFs
// and all of its events, applied one datagram at a time and in bursts. tests/data/netlink/README.md describes
// them.
#include <gmock/gmock.h>

#include <map>
#include <string>
#include <vector>

#include "sources/kernel/links/mirror.h"
#include "sources/kernel/links/reconciler.h"
#include "sources/kernel/test_support.h"

namespace kernel {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

class Recording : public ::testing::Test {
 protected:
  void Feed(const Octets& datagram) {
    ParseReport report;
    for (const Event& event : Parse(datagram, &report)) mirror_.apply(event);
    EXPECT_EQ(report.malformed, 0U);
    EXPECT_FALSE(report.interrupted);
  }
  void Feed(const std::string& name) {
    for (const Octets& datagram : ReadRecording(name)) Feed(datagram);
  }
  std::vector<std::string> Settle() {
    reconciler_.run(mirror_, mirror_.take_changes());
    EXPECT_EQ(reconciler_.refused(), 0U);
    EXPECT_FALSE(mirror_.has_ambiguous_names());
    return listener_.TakeLines();
  }
  // The notifications of a step, without its mark. Before each step the recorded router set the alias of lo
  // to "mark: NAME". The model is updated once per step.
  std::vector<std::string> StepLines(const std::string& name) {
    if (steps_.empty()) ReadSteps();
    EXPECT_TRUE(steps_.contains(name)) << name;
    return steps_[name];
  }

 private:
  void ReadSteps() {
    std::string step;
    for (const Octets& datagram : ReadRecording("events.raw")) {
      const std::string before = Mark();
      Feed(datagram);
      const std::string now = Mark();
      if (now == before) continue;
      steps_[step] = Settle();
      std::erase_if(steps_[step], [](const std::string& line) { return line.starts_with("lo "); });
      step = now;
    }
    steps_[step] = Settle();
  }
  std::string Mark() const {
    const std::string prefix = "mark: ";
    const Link* lo = mirror_.find(1);
    return lo == nullptr || !lo->alias.starts_with(prefix) ? "" : lo->alias.substr(prefix.size());
  }
  std::map<std::string, std::vector<std::string>> steps_;

 protected:
  router::Router model_;
  Listener listener_{&model_};
  Mirror mirror_;
  Reconciler reconciler_{&model_};
};

TEST_F(Recording, DumpGivesTheWholeRouter) {
  Feed("dump-link.raw");
  Feed("dump-addr.raw");
  Settle();
  EXPECT_THAT(
      Describe(model_),
      ElementsAre(
          "vrf red id 10 tables 10 10 'customer red, contract 4711'", "vrf blue id 20 tables 20 20 ''",
          "vrf green id 30 tables 30 30 ''", "1 lo in default up 'mark: dumps' 127.0.0.1/8 ::1/128",
          "5 d0 in red up 'to CE red-1' 10.0.0.1/24 2001:db8:10::1/64 fe80::5c26:57ff:fe07:b5f9/64",
          "6 d1 in red up '' 10.1.0.1/24 2001:db8:11::1/64 fe80::605c:4ff:fe3a:bc49/64",
          "7 d2 in blue up '' 10.0.0.1/24 10.0.99.1/24 2001:db8:20::1/64 fe80::4c78:dcff:fef9:51a/64",
          "8 d3 in blue down '' ",
          "9 d4 in default up 'core link to P1' 10.99.0.1/24 2001:db8:99::1/64 fe80::5465:ecff:fe9e:84de/64",
          "10 ve0 in green up '' 10.3.0.1/30 fe80::9417:ff:fe3e:f5e4/64",
          "11 d4.100 in green up '' 10.3.100.1/24 fe80::5465:ecff:fe9e:84de/64"));
}

TEST_F(Recording, AddressesReadBeforeTheirLinksGiveTheSameRouter) {
  Feed("dump-link.raw");
  Feed("dump-addr.raw");
  Settle();
  Mirror reversed;
  for (const char* name : {"dump-addr.raw", "dump-link.raw"}) {
    for (const Octets& datagram : ReadRecording(name)) {
      for (const Event& event : Parse(datagram)) reversed.apply(event);
    }
  }
  router::Router other;
  Reconciler(&other).run(reversed, reversed.take_changes());
  EXPECT_EQ(Describe(model_), Describe(other));
}

TEST_F(Recording, EventsGiveTheFinalRouterInBurstsOfAnySize) {
  for (const Octets& datagram : ReadRecording("events.raw")) {
    Feed(datagram);
    Settle();
  }
  const std::vector<std::string> one_by_one = Describe(model_);
  EXPECT_THAT(one_by_one,
              ElementsAre("vrf red id 10 tables 10 10 'customer red, contract 4711'",
                          "vrf azure id 21 tables 21 21 ''", "vrf green id 30 tables 30 30 ''",
                          "1 lo in default up 'mark: done' ",
                          "6 d1 in red up '' 10.1.0.1/24 fe80::605c:4ff:fe3a:bc49/64",
                          "7 d2 in azure up '' 10.0.0.1/24 10.0.99.1/24 fe80::4c78:dcff:fef9:51a/64",
                          "8 d3 in default down '' ",
                          "9 d4 in default up 'core link to P1' 10.99.0.1/24 2001:db8:99::1/64 "
                          "fe80::5465:ecff:fe9e:84de/64"));
  for (const std::size_t burst : {2U, 3U, 7U, 50U, 100000U}) {
    router::Router model;
    Listener listener(&model);
    Reconciler reconciler(&model);
    Mirror mirror;
    std::size_t count = 0;
    for (const Octets& datagram : ReadRecording("events.raw")) {
      for (const Event& event : Parse(datagram)) mirror.apply(event);
      if (++count % burst == 0) reconciler.run(mirror, mirror.take_changes());
    }
    reconciler.run(mirror, mirror.take_changes());
    EXPECT_EQ(Describe(model), one_by_one) << "bursts of " << burst;
    EXPECT_EQ(reconciler.refused(), 0U);
  }
}

// As in a real start, where dump and events overlap: the events are replayed over a newer dump.
TEST_F(Recording, EventsOlderThanTheDumpHaveNoEffect) {
  Feed("dump-link.raw");
  Feed("dump-addr.raw");
  Settle();
  for (const Octets& datagram : ReadRecording("events.raw")) Feed(datagram);
  Settle();
  EXPECT_THAT(Describe(model_), Contains("7 d2 in azure up '' 10.0.0.1/24 10.0.99.1/24 "
                                         "fe80::4c78:dcff:fef9:51a/64"));
  EXPECT_EQ(model_.find_interface_by_name("d0"), nullptr);
  EXPECT_EQ(model_.find_vrf("blue"), nullptr);
}

TEST_F(Recording, EnslavingAnInterfaceThatIsUpIsOneMove) {
  EXPECT_THAT(
      StepLines("enslave d0 to red"),
      ElementsAre("d0 addresses 10.0.0.1/24 fe80::5c26:57ff:fe07:b5f9/64", "moved d0 from default to red"));
}

TEST_F(Recording, AdministrativeFlapIsSeen) {
  EXPECT_THAT(StepLines("admin down d0"), ElementsAre("d0 down", "d0 addresses 10.0.0.1/24"));
  EXPECT_THAT(StepLines("admin up d0"),
              ElementsAre("d0 up", "d0 addresses 10.0.0.1/24 fe80::5c26:57ff:fe07:b5f9/64"));
}

TEST_F(Recording, CarrierOfThePeerIsFollowed) {
  EXPECT_THAT(StepLines("carrier lost ve0"), ElementsAre("ve0 down"));
  EXPECT_THAT(StepLines("carrier back ve0"), ElementsAre("ve0 up"));
  EXPECT_THAT(StepLines("carrier off dummy"), ElementsAre("d1 down"));
  EXPECT_THAT(StepLines("carrier on dummy"), ElementsAre("d1 up"));
}

TEST_F(Recording, AliasIsTheDescription) {
  EXPECT_THAT(StepLines("alias change d1"), ElementsAre("d1 'new description'"));
  EXPECT_THAT(StepLines("alias removed d1"), ElementsAre("d1 ''"));
}

TEST_F(Recording, AlternativeNameChangesNothing) {
  EXPECT_THAT(StepLines("altname"), IsEmpty());
}

TEST_F(Recording, MoveBetweenVrfsIsOneMove) {
  EXPECT_THAT(StepLines("move d2 from blue to red directly"), Contains("moved d2 from blue to red"));
  EXPECT_THAT(StepLines("nomaster d2"), Contains("moved d2 from red to default"));
  EXPECT_THAT(StepLines("d2 back to blue"), Contains("moved d2 from default to blue"));
}

TEST_F(Recording, RenamedVrfTransfersItsInterfaces) {
  EXPECT_THAT(
      StepLines("rename vrf blue"),
      ElementsAre("moved d2 from blue to default", "moved d3 from blue to default", "deleted blue",
                  "created azure", "moved d2 from default to azure", "moved d3 from default to azure"));
}

TEST_F(Recording, StateOfAVrfDeviceIsNotInTheModel) {
  EXPECT_THAT(StepLines("vrf azure down"), IsEmpty());
  EXPECT_THAT(StepLines("vrf azure up"), IsEmpty());
}

TEST_F(Recording, DeletedInterfaceIsRemovedFromItsVrfThoughTheDeletionHasNoMaster) {
  EXPECT_THAT(StepLines("delete interface d4.100 in green"), ElementsAre("removed d4.100 in green"));
  EXPECT_THAT(StepLines("delete d0"), ElementsAre("removed d0 in red"));
}

TEST_F(Recording, DeletedVrfIsLeftFirst) {
  EXPECT_THAT(
      StepLines("delete vrf azure with members"),
      ElementsAre("moved d2 from azure to default", "moved d3 from azure to default", "deleted azure"));
}

TEST_F(Recording, VrfOfTheSameNameAndAnotherTableIsNew) {
  EXPECT_THAT(StepLines("create vrf with same name and other table"),
              IsSupersetOf({"created azure", "moved d2 from default to azure"}));
}

TEST_F(Recording, MoveToAnotherNamespaceIsADeletion) {
  EXPECT_THAT(StepLines("move interface to other netns"), ElementsAre("removed ve0 in green"));
}

TEST_F(Recording, RoutesAndLabelsAreIgnored) {
  EXPECT_THAT(StepLines("add route"), IsEmpty());
  EXPECT_THAT(StepLines("mpls label change"), IsEmpty());
}

}  // namespace
}  // namespace kernel
