// The mirror: order of addresses, ambiguous names, what counts as a change.
#include "sources/kernel/links/mirror.h"

#include <gmock/gmock.h>

#include "platform/core/base/clock.h"
#include "sources/kernel/test_support.h"
#include "sources/reconcile/reconcile.h"

namespace kernel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class KernelMirror : public ::testing::Test {
 protected:
  static Link MakeLink(std::uint32_t index, const std::string& name) {
    return {.index = index, .name = name};
  }
  void See(std::uint32_t index, const std::string& name) { mirror_.apply(LinkSeen{MakeLink(index, name)}); }
  void Delete(std::uint32_t index) { mirror_.apply(LinkRemoved{index}); }
  void Add(const LinkAddress& address) { mirror_.apply(AddressSeen{address}); }
  void Remove(const LinkAddress& address) { mirror_.apply(AddressRemoved{address}); }
  std::vector<std::string> Addresses(std::uint32_t index) const {
    std::vector<std::string> texts;
    for (const router::Address& address : mirror_.addresses(index)) texts.push_back(format_address(address));
    return texts;
  }
  std::string NameOf(std::uint32_t index) const { return mirror_.find(index)->name; }
  void ExpectChanges(const std::set<std::uint32_t>& removed, const std::set<std::uint32_t>& touched) {
    const Changes changes = mirror_.take_changes();
    EXPECT_EQ(changes.removed, removed);
    EXPECT_EQ(changes.touched, touched);
  }

  Mirror mirror_;
};

TEST_F(KernelMirror, RepeatedLinkAndDeletionOfAnUnknownOneChangeNothing) {
  See(5, "d0");
  ExpectChanges({}, {5});
  See(5, "d0");
  EXPECT_FALSE(mirror_.changed());
  Delete(77);
  EXPECT_FALSE(mirror_.changed());
}

TEST_F(KernelMirror, DeletedLinkLosesItsAddresses) {
  See(5, "d0");
  Add(MakeAddress(5, "10.0.0.1/24"));
  Delete(5);
  EXPECT_EQ(mirror_.find(5), nullptr);
  EXPECT_THAT(Addresses(5), IsEmpty());
  ExpectChanges({5}, {});
}

TEST_F(KernelMirror, ReusedIndexIsBothRemovedAndTouched) {
  See(5, "d0");
  (void)mirror_.take_changes();
  Delete(5);
  See(5, "d0");
  ExpectChanges({5}, {5});
}

TEST_F(KernelMirror, RemovedAddressIsNotListed) {
  Add(MakeAddress(5, "10.0.0.1/24"));
  Add(MakeAddress(5, "10.0.1.1/24"));
  (void)mirror_.take_changes();
  Remove(MakeAddress(5, "10.0.0.1/24"));
  EXPECT_THAT(Addresses(5), ElementsAre("10.0.1.1/24"));
  ExpectChanges({}, {5});
  Remove(MakeAddress(5, "10.0.1.1/24"));
  EXPECT_THAT(Addresses(5), IsEmpty());
}

TEST_F(KernelMirror, RemovalOfAnUnknownAddressChangesNothing) {
  Remove(MakeAddress(5, "10.0.0.1/24"));
  Add(MakeAddress(5, "10.0.0.1/24"));
  (void)mirror_.take_changes();
  Remove(MakeAddress(5, "10.0.0.1/25"));
  EXPECT_FALSE(mirror_.changed());
}

TEST_F(KernelMirror, Ipv4PrimariesAreInOrderOfAddition) {
  Add(MakeAddress(5, "10.9.0.1/24"));
  Add(MakeAddress(5, "10.1.0.1/24"));
  EXPECT_THAT(Addresses(5), ElementsAre("10.9.0.1/24", "10.1.0.1/24"));
}

TEST_F(KernelMirror, RepeatedAddressKeepsItsPlace) {
  Add(MakeAddress(5, "10.0.0.1/24"));
  Add(MakeAddress(5, "10.1.0.1/24"));
  (void)mirror_.take_changes();
  Add(MakeAddress(5, "10.0.0.1/24"));
  EXPECT_THAT(Addresses(5), ElementsAre("10.0.0.1/24", "10.1.0.1/24"));
  EXPECT_FALSE(mirror_.changed());
}

TEST_F(KernelMirror, Ipv6OrderIsIndependentOfHistory) {
  LinkAddress of_link = MakeAddress(5, "fe80::1/64");
  of_link.scope = RT_SCOPE_LINK;
  Add(of_link);
  Add(MakeAddress(5, "2001:db8::2/64"));
  Add(MakeAddress(5, "2001:db8::1/128"));
  Add(MakeAddress(5, "10.0.0.1/24"));
  EXPECT_THAT(Addresses(5), ElementsAre("10.0.0.1/24", "2001:db8::1/128", "2001:db8::2/64", "fe80::1/64"));
}

TEST_F(KernelMirror, UnusableAddressIsNotShown) {
  LinkAddress tentative = MakeAddress(5, "2001:db8::1/64");
  tentative.usable = false;
  Add(tentative);
  EXPECT_THAT(Addresses(5), IsEmpty());
  Add(MakeAddress(5, "2001:db8::1/64"));
  EXPECT_THAT(Addresses(5), ElementsAre("2001:db8::1/64"));
  Add(tentative);
  EXPECT_THAT(Addresses(5), IsEmpty());
}

TEST_F(KernelMirror, Ipv4DetailsHaveEveryPeerAndWhatIsSecondary) {
  LinkAddress peer = MakeAddress(5, "10.0.0.1/32");
  peer.peer[3] = 2;
  LinkAddress unusable = MakeAddress(5, "10.9.0.1/24");
  unusable.usable = false;
  Add(MakeAddress(5, "10.0.0.1/32"));
  Add(peer);
  Add(unusable);
  Add(MakeAddress(5, "2001:db8::1/64"));
  Add(MakeAddress(5, "10.1.0.2/24", true));
  std::vector<std::string> texts;
  for (const router::Ipv4Detail& detail : mirror_.ipv4_details(5)) {
    texts.push_back(format_address(detail.address) + " " + format_address(detail.peer) +
                    (detail.secondary ? " secondary" : ""));
  }
  EXPECT_THAT(texts, ElementsAre("10.0.0.1/32 10.0.0.1/32", "10.0.0.1/32 10.0.0.2/32",
                                 "10.1.0.2/24 10.1.0.2/24 secondary"));
  EXPECT_THAT(mirror_.ipv4_details(6), IsEmpty());
}

TEST_F(KernelMirror, Ipv4DetailsThatAddNothingToTheAddressesAreNotStored) {
  Add(MakeAddress(5, "10.0.0.1/24"));
  Add(MakeAddress(5, "10.1.0.1/24"));
  EXPECT_THAT(mirror_.ipv4_details(5), IsEmpty());
  Add(MakeAddress(5, "10.0.0.2/24", true));
  EXPECT_THAT(mirror_.ipv4_details(5), SizeIs(3));
}

TEST_F(KernelMirror, DumpWithAnotherPeerOfAnAddressIsAChange) {
  LinkAddress peer = MakeAddress(5, "10.0.0.1/32");
  peer.peer[3] = 2;
  See(5, "d0");
  Add(peer);
  (void)mirror_.take_changes();
  peer.peer[3] = 3;
  Mirror dump;
  dump.apply(LinkSeen{MakeLink(5, "d0")});
  dump.apply(AddressSeen{peer});
  mirror_.replace(std::move(dump));
  ExpectChanges({}, {5});
}

TEST_F(KernelMirror, SameLocalAddressToTwoPeersIsShownOnce) {
  LinkAddress first = MakeAddress(5, "10.0.0.1/32");
  first.peer[3] = 2;
  LinkAddress second = MakeAddress(5, "10.0.0.1/32");
  second.peer[3] = 3;
  Add(first);
  Add(second);
  EXPECT_THAT(Addresses(5), ElementsAre("10.0.0.1/32"));
  Remove(first);
  EXPECT_THAT(Addresses(5), ElementsAre("10.0.0.1/32"));
  Remove(second);
  EXPECT_THAT(Addresses(5), IsEmpty());
}

TEST_F(KernelMirror, NameClaimedByALaterLinkIsTakenFromTheFormer) {
  See(5, "d0");
  See(6, "d0");
  EXPECT_EQ(NameOf(5), "");
  EXPECT_EQ(NameOf(6), "d0");
  EXPECT_TRUE(mirror_.has_ambiguous_names());
  See(5, "d1");
  EXPECT_EQ(NameOf(5), "d1");
  EXPECT_FALSE(mirror_.has_ambiguous_names());
}

TEST_F(KernelMirror, NamesAreUnambiguousWhenTheNamelessLinkIsRemoved) {
  See(5, "d0");
  See(6, "d0");
  Delete(5);
  EXPECT_FALSE(mirror_.has_ambiguous_names());
  EXPECT_EQ(NameOf(6), "d0");
}

TEST_F(KernelMirror, UndisturbedDumpReplacesAndMarksOnlyDifferences) {
  See(5, "same");
  See(6, "renamed");
  See(7, "deleted");
  See(8, "readdressed");
  (void)mirror_.take_changes();
  Mirror dump;
  dump.apply(LinkSeen{MakeLink(5, "same")});
  dump.apply(LinkSeen{MakeLink(6, "new name")});
  dump.apply(LinkSeen{MakeLink(8, "readdressed")});
  dump.apply(AddressSeen{MakeAddress(8, "10.0.0.1/24")});
  dump.apply(LinkSeen{MakeLink(9, "created")});
  mirror_.replace(std::move(dump));
  ExpectChanges({7}, {6, 8, 9});
  EXPECT_EQ(mirror_.find(7), nullptr);
  EXPECT_EQ(NameOf(9), "created");
}

TEST_F(KernelMirror, DisturbedDumpRemovesNothing) {
  See(5, "missed");
  Add(MakeAddress(5, "10.0.0.1/24"));
  (void)mirror_.take_changes();
  Mirror dump;
  dump.apply(LinkSeen{MakeLink(6, "seen")});
  dump.apply(AddressSeen{MakeAddress(6, "10.0.1.1/24")});
  mirror_.merge(dump);
  EXPECT_EQ(NameOf(5), "missed");
  EXPECT_THAT(Addresses(5), ElementsAre("10.0.0.1/24"));
  EXPECT_THAT(Addresses(6), ElementsAre("10.0.1.1/24"));
  ExpectChanges({}, {6});
}

class LargeDump : public KernelMirror {
 protected:
  LargeDump() {
    for (std::uint32_t index = 1; index <= kLinks; ++index) {
      See(index, "d" + std::to_string(index));
      dump_.apply(LinkSeen{MakeLink(index + 1, "d" + std::to_string(index + 1))});
      dump_.apply(AddressSeen{MakeAddress(index + 1, "10.0.0.1/24")});
    }
    (void)mirror_.take_changes();
  }
  std::size_t Adopt(Adoption::Kind kind, std::deque<Event> later) {
    Adoption adoption(&mirror_, std::move(dump_), kind, std::move(later));
    std::size_t steps = 0;
    for (; !adoption.is_done(); ++steps) adoption.step(kItems);
    return steps;
  }
  static constexpr std::uint32_t kLinks = 1000;
  static constexpr std::size_t kItems = 10;
  Mirror dump_;
};

TEST_F(LargeDump, ReplacesTheMirrorInSteps) {
  EXPECT_GE(Adopt(Adoption::Kind::kReplaces, {LinkSeen{MakeLink(7, "z7")}}), 2 * kLinks / kItems);
  EXPECT_EQ(mirror_.find(1), nullptr);
  EXPECT_EQ(NameOf(7), "z7");
  EXPECT_EQ(NameOf(kLinks + 1), "d1001");
  EXPECT_THAT(Addresses(2), ElementsAre("10.0.0.1/24"));
  const Changes changes = mirror_.take_changes();
  EXPECT_THAT(changes.removed, ElementsAre(1));
  EXPECT_EQ(changes.touched.size(), kLinks);
}

TEST_F(LargeDump, ThatWasDisturbedIsAddedInSteps) {
  EXPECT_GE(Adopt(Adoption::Kind::kMerges, {LinkRemoved{7}}), 2 * kLinks / kItems);
  EXPECT_EQ(NameOf(1), "d1");
  EXPECT_EQ(NameOf(7), "d7");
  EXPECT_EQ(NameOf(kLinks + 1), "d1001");
  EXPECT_THAT(mirror_.take_changes().removed, IsEmpty());
}

TEST_F(LargeDump, StepEndsWhenItsTimeHasPassed) {
  Adoption adoption(&mirror_, std::move(dump_), Adoption::Kind::kReplaces);
  ManualClock clock(1000);
  clock.tick(reconcile::kStepTime / 10);
  std::size_t steps = 0;
  for (; !adoption.is_done(); ++steps) adoption.step(SIZE_MAX);
  EXPECT_GE(steps, 2 * kLinks / 10);
}

}  // namespace
}  // namespace kernel
