// Reports of changes of route distinguishers and route targets.
#include "platform/router/vpn_events/vpn_events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/router/vpn_events/records.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/server/store.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using vpn_events::Item;
using vpn_events::kVpnChangesParcel;
using vpn_events::VpnChange;
using vpn_events::VpnChanges;

struct Decoded {
  explicit Decoded(wire::OctetSpan octets) {
    EXPECT_EQ(parcel_decode(&kVpnChangesParcel, octets.data(), octets.size(), &record), kStatusOk);
  }
  ~Decoded() { EXPECT_EQ(parcel_free_indirections(&kVpnChangesParcel, &record), kStatusOk); }
  Decoded(const Decoded&) = delete;
  Decoded& operator=(const Decoded&) = delete;
  VpnChanges record{};
};

std::string side(const char* value, const char* owner) {
  return *value == '\0' ? std::string("none") + owner : std::string(value) + "(" + owner + ")";
}

// "red rd 65000:1(frr) -> none"
std::string describe(const VpnChange& change) {
  const std::string item = change.item == 1 ? "rd" : change.item == 2 ? "import" : "export";
  const std::string family = change.family == 0 ? "" : " " + std::to_string(change.family);
  return std::string(change.vrf) + " " + item + family + " " + side(change.old_value, change.old_owner) +
         " -> " + side(change.new_value, change.new_owner);
}

class VpnEvents : public ::testing::Test {
 protected:
  VpnEvents() {
    kvtree_reset();
    EXPECT_EQ(vrf_config::register_configuration(), kStatusOk);
    manager_ = event_manager_create("/dev/test/main", 0);
    bgp_vpn_attach(&router_);
    router_.set_rd_owner(kConfigOwnerFile);
  }
  ~VpnEvents() override {
    fault_disarm_all();
    vpn_events_detach();
    bgp_vpn_rd_unregister_cb();
    bgp_vpn_attach(nullptr);
    kvtree_reset();
    event_manager_destroy(manager_);
  }
  void Attach() {
    ASSERT_EQ(kvtree_retain_notifications(vpn_events::kProviderPath, "test", 100), kStatusOk);
    ASSERT_EQ(vpn_events_attach(&router_, manager_), kStatusOk);
  }

  static std::vector<KvConfigChange> Changes(const std::vector<std::string>& lines) {
    std::vector<KvConfigChange> changes;
    for (const std::string& line : lines) {
      const bool is_deletion = line.starts_with("-");
      const auto words =
          std::get<vrf_config::Words>(vrf_config::split_words(line.substr(is_deletion ? 1 : 0)));
      const auto nodes = std::get<std::vector<KvConfigNode>>(vrf_config::parse_words(words));
      for (const KvConfigNode& node : nodes)
        changes.push_back({node.path, is_deletion ? std::nullopt : std::optional(node.value)});
    }
    return changes;
  }
  // One commit of the lines; "-" before one deletes.
  static void Make(std::string_view owner, const std::vector<std::string>& lines) {
    std::string error;
    EXPECT_EQ(kvtree_config_commit(owner, Changes(lines), "", nullptr, &error), kStatusOk) << error;
  }
  std::vector<std::string> Commit(std::string_view owner, const std::vector<std::string>& lines) {
    Make(owner, lines);
    return Reported();
  }
  void AddVrf(const std::string& rd) {
    router::Vrf vrf;
    vrf.name = "red";
    vrf.id = 7;
    vrf.rd = rd;
    ASSERT_EQ(router_.create_vrf(vrf), kStatusOk);
  }
  void ChangeModel(const std::string& rd) {
    router::Vrf vrf = *router_.find_vrf("red");
    vrf.rd = rd;
    ASSERT_EQ(router_.change_vrf(vrf), kStatusOk);
  }

  // What was reported since the last call.
  std::vector<std::string> Reported() {
    event_run_pending(manager_);
    std::vector<std::string> all;
    kvtree::NotificationQueue& queue = *kvtree::store().retained.at(0).queue;
    while (const kvtree::QueuedNotification* next = queue.next()) {
      TakeIn(*next->content, &all);
      queue.acknowledge(next->sequence);
    }
    return all;
  }

  router::Router router_;
  TestRunDirectory directory_;
  EventManager* manager_ = nullptr;
  std::vector<std::pair<std::uint32_t, std::uint64_t>> records_;  // first number and size

 private:
  void TakeIn(const wire::Octets& content, std::vector<std::string>* all) {
    wire::Reader reader(content);
    EXPECT_EQ(reader.text(), vpn_events::kProviderPath);
    EXPECT_EQ(reader.text(), "changes");
    reader.u32();
    EXPECT_EQ(reader.u32(), kKvKindRecord);
    const Decoded decoded(reader.octets());
    const auto* changes = static_cast<const VpnChange*>(decoded.record.changes.elements);
    records_.emplace_back(decoded.record.first, decoded.record.changes.count);
    for (std::uint64_t at = 0; at < decoded.record.changes.count; ++at) all->push_back(describe(changes[at]));
  }
};

class AttachedEvents : public VpnEvents {
 protected:
  void SetUp() override { Attach(); }
};

// --- Route distinguishers

TEST_F(AttachedEvents, RdIsReportedWithValuesAndOwnersOnBothSides) {
  EXPECT_THAT(Commit("frr", {"vrf red rd 65000:1"}), ElementsAre("red rd none -> 65000:1(frr)"));
  EXPECT_THAT(Commit("frr", {"vrf red rd 65000:2"}), ElementsAre("red rd 65000:1(frr) -> 65000:2(frr)"));
  EXPECT_THAT(Commit("cli", {"vrf red rd 65000:9"}), ElementsAre("red rd 65000:2(frr) -> 65000:9(cli)"));
  EXPECT_THAT(Commit("cli", {"- vrf red rd 65000:9"}), ElementsAre("red rd 65000:9(cli) -> 65000:2(frr)"));
  EXPECT_THAT(Commit("frr", {"- vrf red rd 65000:2"}), ElementsAre("red rd 65000:2(frr) -> none"));
}

TEST_F(AttachedEvents, DerivedRdThatChangesWithTheRouterIdIsReported) {
  Commit("frr-derived", {"vrf red rd 10.0.0.1:2"});
  EXPECT_THAT(Commit("frr-derived", {"vrf red rd 10.0.0.9:2"}),
              ElementsAre("red rd 10.0.0.1:2(frr-derived) -> 10.0.0.9:2(frr-derived)"));
}

TEST_F(VpnEvents, WhatChangesNothingThatIsEffectiveIsNotReported) {
  Make("cli", {"vrf red rd 65000:1", "vrf red rt both 65000:1"});
  Attach();
  EXPECT_THAT(Commit("frr", {"vrf red rd 65000:2"}), IsEmpty()) << "it is covered";
  EXPECT_THAT(Commit("frr", {"- vrf red rd 65000:2"}), IsEmpty());
  EXPECT_THAT(Commit("file", {"vrf red rd 65000:1", "vrf red rt both 65000:1"}), IsEmpty())
      << "the same value";
  EXPECT_THAT(Commit("cli", {"- vrf red rd 65000:1", "- vrf red rt both 65000:1"}), IsEmpty());
  EXPECT_THAT(Commit("cli", {"vrf red description x", "vrf red policy import ipv4 p", "traps all"}),
              IsEmpty());
}

TEST_F(AttachedEvents, RdOfTheLowestFamilyIsTheVrfs) {
  EXPECT_THAT(Commit("frr", {"vrf red rd 65000:6 ipv6"}), ElementsAre("red rd none -> 65000:6(frr)"));
  EXPECT_THAT(Commit("frr", {"vrf red rd 65000:4 ipv4"}), ElementsAre("red rd 65000:6(frr) -> 65000:4(frr)"));
  EXPECT_THAT(Commit("frr", {"- vrf red rd 65000:4 ipv4"}),
              ElementsAre("red rd 65000:4(frr) -> 65000:6(frr)"));
}

TEST_F(AttachedEvents, OneRdOfBothFamiliesIsOneChange) {
  EXPECT_THAT(Commit("frr", {"vrf red rd 65000:1 ipv4", "vrf red rd 65000:1 ipv6"}),
              ElementsAre("red rd none -> 65000:1(frr)"));
  EXPECT_THAT(Commit("frr", {"vrf red rd 65000:2 ipv4", "vrf red rd 65000:2 ipv6"}),
              ElementsAre("red rd 65000:1(frr) -> 65000:2(frr)"));
}

TEST_F(AttachedEvents, FamilyWithAnRdOfItsOwnIsReportedByItself) {
  EXPECT_THAT(Commit("frr", {"vrf red rd 65000:4 ipv4", "vrf red rd 65000:25 evpn"}),
              ElementsAre("red rd none -> 65000:4(frr)", "red rd 25 none -> 65000:25(frr)"));
  EXPECT_THAT(Commit("frr", {"vrf red rd 65000:26 evpn"}),
              ElementsAre("red rd 25 65000:25(frr) -> 65000:26(frr)"));
  EXPECT_THAT(Commit("frr", {"vrf red rd 65000:4 evpn"}),
              ElementsAre("red rd 25 65000:26(frr) -> 65000:4(frr)"));
  EXPECT_THAT(Commit("frr", {"- vrf red rd 65000:4 evpn"}), IsEmpty()) << "it was the VRF's";
}

// --- The router model

TEST_F(VpnEvents, RdOfTheRouterFileCountsWhereNoneIsConfigured) {
  AddVrf("65000:1");
  Attach();
  EXPECT_THAT(Reported(), IsEmpty()) << "it was there";
  ChangeModel("65000:2");
  EXPECT_THAT(Reported(), ElementsAre("red rd 65000:1(file) -> 65000:2(file)"));
  EXPECT_THAT(Commit("cli", {"vrf red rd 65000:9"}), ElementsAre("red rd 65000:2(file) -> 65000:9(cli)"));
  ChangeModel("65000:3");
  EXPECT_THAT(Reported(), IsEmpty());
  EXPECT_THAT(Commit("cli", {"- vrf red rd 65000:9"}), ElementsAre("red rd 65000:9(cli) -> 65000:3(file)"));
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  EXPECT_THAT(Reported(), ElementsAre("red rd 65000:3(file) -> none"));
}

TEST_F(VpnEvents, RdInTheModelIsOwnedByTheModelsSource) {
  router_.set_rd_owner(kConfigOwnerKernel);
  Attach();
  AddVrf("65000:1");
  EXPECT_THAT(Reported(), ElementsAre("red rd none -> 65000:1(kernel)"));
  EXPECT_THAT(Commit("cli", {"vrf red rd 65000:9"}), ElementsAre("red rd 65000:1(kernel) -> 65000:9(cli)"));
}

TEST_F(VpnEvents, OwnerOfRdsInTheModelIsPublishedWhileAttached) {
  const auto published = [] { return kvtree::store().nodes.find(vpn_events::kRdOwnerPath); };
  Attach();
  ASSERT_NE(published(), kvtree::store().nodes.end());
  EXPECT_EQ(published()->second.value->text, kConfigOwnerFile);
  vpn_events_detach();
  EXPECT_EQ(published(), kvtree::store().nodes.end());
}

TEST_F(VpnEvents, RdOfTheRouterFileIsTheSameInEveryForm) {
  AddVrf("1.2:3");
  Attach();
  ChangeModel("65538:3");
  EXPECT_THAT(Reported(), IsEmpty());
}

// A router file that creates a VRF which was only named moves its RD from the configuration to the model.
TEST_F(VpnEvents, RdThatMovesBetweenConfigurationAndModelIsNotReported) {
  Make("file", {"vrf red rd 65000:1"});
  Attach();
  Make("file", {"- vrf red rd 65000:1"});
  AddVrf("65000:1");
  EXPECT_THAT(Reported(), IsEmpty());
  Make("file", {"vrf red rd 65000:2"});
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  EXPECT_THAT(Reported(), ElementsAre("red rd 65000:1(file) -> 65000:2(file)"));
}

TEST_F(VpnEvents, VrfDeletedAndCreatedInOneBatchIsNotReported) {
  AddVrf("65000:1");
  Attach();
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  AddVrf("65000:1");
  EXPECT_THAT(Reported(), IsEmpty());
}

// --- Route targets

TEST_F(AttachedEvents, RouteTargetsAreReportedByDirectionAndFamily) {
  EXPECT_THAT(Commit("file", {"vrf red rt both 65000:1"}),
              ElementsAre("red import 1 none -> 65000:1(file)", "red import 2 none -> 65000:1(file)",
                          "red export 1 none -> 65000:1(file)", "red export 2 none -> 65000:1(file)"));
  EXPECT_THAT(Commit("cli", {"vrf red rt import 65000:2 evpn"}),
              ElementsAre("red import 25 none -> 65000:2(cli)"));
  EXPECT_THAT(Commit("file", {"- vrf red rt export 65000:1 ipv6"}),
              ElementsAre("red export 2 65000:1(file) -> none"));
}

TEST_F(AttachedEvents, RouteTargetThatTakesThePlaceOfAnotherIsOneChange) {
  Commit("frr-derived", {"vrf red rt import 10.0.0.1:2 ipv4", "vrf red rt import 10.0.0.1:3 ipv4"});
  EXPECT_THAT(
      Commit("frr-derived", {"- vrf red rt import 10.0.0.1:2 ipv4", "- vrf red rt import 10.0.0.1:3 ipv4",
                             "vrf red rt import 10.0.0.9:3 ipv4", "vrf red rt import 10.0.0.9:2 ipv4"}),
      ElementsAre("red import 1 10.0.0.1:2(frr-derived) -> 10.0.0.9:2(frr-derived)",
                  "red import 1 10.0.0.1:3(frr-derived) -> 10.0.0.9:3(frr-derived)"));
  EXPECT_THAT(
      Commit("frr-derived", {"- vrf red rt import 10.0.0.9:3 ipv4", "- vrf red rt import 10.0.0.9:2 ipv4",
                             "vrf red rt import 65000:5 ipv4"}),
      ElementsAre("red import 1 10.0.0.9:2(frr-derived) -> 65000:5(frr-derived)",
                  "red import 1 10.0.0.9:3(frr-derived) -> none"));
}

// The suite's source commits what is derived before what is configured.
TEST_F(AttachedEvents, ValueThatPassesFromOneOwnerToAnotherAtOnceIsOneChange) {
  Commit("frr-derived",
         {"vrf red rd 10.0.0.1:2", "vrf red rt import 65000:1 ipv4", "vrf red rt import 65000:2 ipv4"});
  Make("frr-derived",
       {"- vrf red rd 10.0.0.1:2", "- vrf red rt import 65000:1 ipv4", "- vrf red rt import 65000:2 ipv4"});
  Make("frr", {"vrf red rd 65000:9", "vrf red rt import 65000:2 ipv4", "vrf red rt import 65000:3 ipv4"});
  EXPECT_THAT(Reported(),
              ElementsAre("red rd 10.0.0.1:2(frr-derived) -> 65000:9(frr)",
                          "red import 1 65000:1(frr-derived) -> none", "red import 1 none -> 65000:3(frr)"));
}

TEST_F(AttachedEvents, EveryCommitOfOneBatchIsReported) {
  Make("cli", {"vrf red rd 65000:1"});
  Make("cli", {"vrf red rd 65000:2"});
  Make("cli", {"vrf red rd 65000:1"});
  EXPECT_THAT(Reported(), ElementsAre("red rd none -> 65000:1(cli)", "red rd 65000:1(cli) -> 65000:2(cli)",
                                      "red rd 65000:2(cli) -> 65000:1(cli)"));
}

// --- All of them

TEST_F(VpnEvents, RestartReportsNothing) {
  ASSERT_EQ(kvtree_keep_configuration(directory_.path()), kStatusOk);
  Make("frr", {"vrf red rd 65000:1", "vrf red rt both 65000:1"});
  kvtree_reset();
  ASSERT_EQ(kvtree_keep_configuration(directory_.path()), kStatusOk);
  Attach();
  std::vector<KvConfigNode> said;
  for (const KvConfigChange& change : Changes({"vrf red rd 65000:1", "vrf red rt both 65000:1"}))
    said.push_back({change.path, *change.value});
  ASSERT_EQ(kvtree_config_replace("frr", said, ""), kStatusOk);
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(AttachedEvents, AnotherFormatOfAsNumbersIsNotReportedButUsedInTheNextReport) {
  ASSERT_EQ(bgp_util_asn_format_init_notify(manager_), kStatusOk);
  Commit("cli", {"vrf red rd 65538:1", "vrf red rt import 65538:1 ipv4"});
  EXPECT_THAT(Commit("cli", {"bgp as-format asdot"}), IsEmpty());
  EXPECT_THAT(Commit("cli", {"vrf red rd 65538:2"}), ElementsAre("red rd 1.2:1(cli) -> 1.2:2(cli)"));
}

TEST_F(AttachedEvents, LargeCommitIsReportedInRecordsThatAreNumbered) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < 2 * kMostVpnChanges + 1; ++at)
    lines.push_back("vrf red rt import 65000:" + std::to_string(at) + " ipv4");
  EXPECT_EQ(Commit("cli", lines).size(), lines.size());
  Commit("cli", {"vrf red rd 65000:1"});
  EXPECT_THAT(records_, ElementsAre(std::pair(0U, 256U), std::pair(256U, 256U), std::pair(512U, 1U),
                                    std::pair(513U, 1U)));
}

// The answer to a client's commit is posted.
TEST_F(AttachedEvents, ManyRecordsAreSentInStepsBeforeAnythingThatIsPostedAfterThem) {
  constexpr std::size_t kRecords = 12;
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < kRecords * kMostVpnChanges; ++at)
    lines.push_back("vrf red rt import 65000:" + std::to_string(at) + " ipv4");
  ManualClock clock(1);
  clock.tick(kNanosecondsPerMillisecond / 2);  // so that a step sends two or three records
  Make("cli", lines);
  std::size_t sent = 0;
  event_post(manager_, [&sent] { sent = kvtree::store().retained.at(0).queue->size(); });
  unsigned iterations = 0;
  for (std::array<unsigned char, 1024> buffer{}; sent == 0 && iterations < 100; ++iterations) {
    EventContext context{manager_, buffer.data(), buffer.size(), 0};
    ASSERT_EQ(event_wait_for(&context, 0), 0);
    event_dispatch(&context);
  }
  EXPECT_EQ(sent, kRecords);
  EXPECT_GE(iterations, kRecords / 3);
}

TEST_F(AttachedEvents, RecordThatCannotBeSentIsLoggedAndLeavesAGap) {
  fault_arm("kvtree_prov_notify", kStatusIo);
  ::testing::internal::CaptureStderr();
  EXPECT_THAT(Commit("cli", {"vrf red rd 65000:1"}), IsEmpty());
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("1 changes are not reported"));
  Commit("cli", {"vrf red rd 65000:2"});
  EXPECT_THAT(records_, ElementsAre(std::pair(1U, 1U)));
}

TEST_F(VpnEvents, AttachingFailsAsItsStepsDo) {
  EXPECT_EQ(vpn_events_attach(nullptr, manager_), kStatusInvalid);
  EXPECT_EQ(vpn_events_attach(&router_, nullptr), kStatusInvalid);
  for (const char* point : {"vpn_events_attach", "kvtree_bind", "kvtree_set"}) {
    fault_arm(point, kStatusIo);
    EXPECT_EQ(vpn_events_attach(&router_, manager_), kStatusIo) << point;
  }
  Attach();
  EXPECT_EQ(vpn_events_attach(&router_, manager_), kStatusExists);
  Make("cli", {"vrf red rd 65000:1"});
  vpn_events_detach();
  EXPECT_THAT(Reported(), IsEmpty()) << "pending reports are dropped";
  EXPECT_THAT(Commit("cli", {"vrf red rd 65000:2"}), IsEmpty());
}

}  // namespace
