// Traps as they are shown.
#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <sstream>
#include <utility>

#include "cli/output/json_list.h"
#include "cli/served_test_fixture.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/router/vpn_events/vpn_events.h"
#include "platform/store/configuration/configuration.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

// Says, to another thread, that something was written and flushed.
class AnnouncingBuffer : public std::stringbuf {
 public:
  std::atomic<bool> flushed = false;

 protected:
  int sync() override {
    flushed = true;
    return 0;
  }
};

class Watch : public ServedCommandLine {
 protected:
  // Runs the command, and raises the traps when it has said that it watches.
  int Ask(const std::vector<std::string>& words) {
    std::atomic<bool> done = false;
    int exit_status = -1;
    std::thread command([&] {
      std::ostream err(&err_buffer_);
      exit_status = run(words, out_, err);
      done = true;
      event_post(manager_, [] {});
    });
    while (!done) {
      event_run_pending(manager_, kNanosecondsPerMillisecond);
      if (!err_buffer_.flushed) continue;
      for (const mpls_vpn_mib_trap& trap : std::exchange(traps, {})) Notify(trap);
      for (const auto& change : std::exchange(changes, {})) change();
    }
    command.join();
    return exit_status;
  }
  std::string Out() const { return out_.str(); }
  std::string Err() const { return err_buffer_.str(); }
  void Notify(const mpls_vpn_mib_trap& trap) {
    std::uint8_t* data = nullptr;
    std::size_t length = 0;
    ASSERT_EQ(parcel_encode(&kMibTrapParcel, &trap, &data, &length), kStatusOk);
    const KvProviderNotification notification{"trap_msg", 2, kKvKindRecord, {}, data, length};
    EXPECT_EQ(kvtree_prov_notify(provider_, &notification), kStatusOk);
    std::free(data);
  }
  // The lines of the output, without their times.
  std::vector<std::string> Lines() const {
    std::istringstream in(Out());
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
      EXPECT_THAT(line, ::testing::MatchesRegex("[0-9-]+T[0-9:.]+Z .*"));
      lines.push_back(line.substr(line.find(' ') + 1));
    }
    return lines;
  }

  std::string vrf_ = "red";
  std::vector<mpls_vpn_mib_trap> traps;
  std::vector<std::function<void()>> changes;  // made after the traps

 private:
  std::ostringstream out_;
  AnnouncingBuffer err_buffer_;
};

TEST_F(Watch, EveryTypeIsShownWithWhatItIsAbout) {
  traps = {{0, vrf_.data(), 7, 1, 1, 0, 0, 0, 0},   {1, vrf_.data(), 7, 2, 1, 0, 0, 0, 0},
           {2, vrf_.data(), 0, 0, 0, 80, 0, 81, 0}, {3, vrf_.data(), 0, 0, 0, 0, 100, 101, 0},
           {4, vrf_.data(), 0, 0, 0, 0, 0, 0, 6},   {5, vrf_.data(), 0, 0, 0, 0, 100, 99, 0},
           {9, vrf_.data(), 0, 0, 0, 0, 0, 0, 0}};
  EXPECT_EQ(Ask({"watch", "--count", "7", "--timeout", "20"}), kExitOk) << Err();
  EXPECT_THAT(
      Lines(),
      ElementsAre("mplsL3VpnVrfUp red interface 7 vrf up", "mplsL3VpnVrfDown red interface 7 vrf down",
                  "mplsL3VpnVrfRouteMidThreshExceeded red routes 81 mid threshold 80",
                  "mplsL3VpnVrfNumVrfRouteMaxThreshExceeded red routes 101 high threshold 100",
                  "mplsL3VpnNumVrfSecIllglLblThrshExcd red violations 6",
                  "mplsL3VpnNumVrfRouteMaxThreshCleared red routes 99 high threshold 100",
                  "trap 9 red of an unknown type"));
  EXPECT_EQ(Err(), "watching for traps and changes\n");
}

TEST_F(Watch, JsonIsOneObjectALine) {
  traps = {{0, vrf_.data(), 7, 1, 1, 2, 3, 4, 5}, {1, vrf_.data(), 8, 2, 1, 0, 0, 0, 0}};
  EXPECT_EQ(Ask({"--json", "watch", "--count", "2", "--timeout", "20"}), kExitOk) << Err();
  std::istringstream in(Out());
  std::string line;
  std::getline(in, line);
  Json first = Json::parse(line);
  EXPECT_THAT(first["timeText"].get<std::string>(), EndsWith("Z"));
  EXPECT_GT(first["time"], 1'700'000'000);
  first.erase("time");
  first.erase("timeText");
  EXPECT_EQ(first, (Json{{"notification", "mplsL3VpnVrfUp"},
                         {"notificationOid", "1.3.6.1.2.1.10.166.11.0.1"},
                         {"trapType", 0},
                         {"vrfName", "red"},
                         {"ifConfIndex", 7},
                         {"vrfOperStatus", 1},
                         {"vrfOperStatusName", "up"},
                         {"ifConfRowStatus", 1},
                         {"ifConfRowStatusName", "active"},
                         {"midThresh", 2},
                         {"highThresh", 3},
                         {"currNumRoutes", 4},
                         {"illegalLabelViolations", 5},
                         {"lostBefore", 0}}));
  std::getline(in, line);
  EXPECT_EQ(Json::parse(line)["ifConfIndex"], 8);
}

TEST_F(Watch, FewerTrapsThanCountedAreAFailure) {
  traps = {{0, vrf_.data(), 7, 1, 1, 0, 0, 0, 0}};
  EXPECT_EQ(Ask({"watch", "--count", "2", "--timeout", "1"}), kExitFailed);
  EXPECT_EQ(Lines().size(), 1U);
  EXPECT_THAT(Err(), EndsWith("mplsvpn: received 1 of 2 events within 1 s\n"));
}

TEST_F(Watch, VrfSelectsItsTraps) {
  std::string blue = "blue";
  traps = {{0, blue.data(), 7, 1, 1, 0, 0, 0, 0},
           {0, vrf_.data(), 8, 1, 1, 0, 0, 0, 0},
           {1, blue.data(), 7, 2, 1, 0, 0, 0, 0},
           {1, vrf_.data(), 8, 2, 1, 0, 0, 0, 0}};
  EXPECT_EQ(Ask({"watch", "--vrf", "red", "--count", "2", "--timeout", "20"}), kExitOk) << Err();
  EXPECT_THAT(Lines(), ElementsAre("mplsL3VpnVrfUp red interface 8 vrf up",
                                   "mplsL3VpnVrfDown red interface 8 vrf down"));
}

TEST_F(Watch, TimeoutAloneEndsIt) {
  EXPECT_EQ(Ask({"watch", "--timeout", "0.2"}), kExitOk) << Err();
  EXPECT_EQ(Out(), "");
}

TEST_F(Watch, NamesCannotSteerTheTerminal) {
  vrf_ = "a\x1b[2J";
  traps = {{0, vrf_.data(), 7, 1, 1, 0, 0, 0, 0}};
  EXPECT_EQ(Ask({"watch", "--count", "1", "--timeout", "20"}), kExitOk) << Err();
  EXPECT_THAT(Out(), HasSubstr("a\\x1b[2J interface"));
}

// --- Changes of route distinguishers and route targets

class WatchChanges : public Watch {
 protected:
  void SetUp() override {
    Watch::SetUp();
    ASSERT_EQ(vpn_events_attach(&router_, manager_), kStatusOk);
  }
  void TearDown() override {
    vpn_events_detach();
    Watch::TearDown();
  }
  // A commit of an owner: the nodes that are set and those that are removed.
  void Change(std::string_view owner, std::vector<KvConfigNode> set, std::vector<KvConfigNode> unset = {}) {
    changes.emplace_back([owner, set = std::move(set), unset = std::move(unset)] {
      std::vector<KvConfigChange> all;
      for (const KvConfigNode& node : unset) all.push_back({node.path, std::nullopt});
      for (const KvConfigNode& node : set) all.push_back({node.path, node.value});
      EXPECT_EQ(kvtree_config_commit(owner, all, ""), kStatusOk);
    });
  }
  static KvConfigNode Rd(std::uint32_t number, vrf_config::Family family = vrf_config::Family::kIpv4) {
    return vrf_config::route_distinguisher("red", family, Target(number));
  }
  static KvConfigNode Import(std::uint32_t number) {
    return vrf_config::route_target("red", vrf_config::Family::kIpv6, vrf_config::Direction::kImport,
                                    Target(number));
  }
  static vrf_config::Target Target(std::uint32_t number) {
    return {vrf_config::Target::Type::kTwoOctetAs, 65000, number};
  }
  router::Router router_;
};

TEST_F(WatchChanges, ChangesHaveBothValuesAndTheirOrigins) {
  traps = {{0, vrf_.data(), 7, 1, 1, 0, 0, 0, 0}};
  Change(kConfigOwnerFrrDerived, {Rd(1), Import(1)});
  Change(kConfigOwnerFrrDerived, {Rd(2)});
  Change(kConfigOwnerFrr, {Rd(3), Rd(25, vrf_config::Family::kEvpn)});
  Change(kConfigOwnerFile, {Rd(4)});
  Change(kConfigOwnerCli, {Rd(5)});
  Change(kConfigOwnerFile, {Rd(6)});
  Change(kConfigOwnerCli, {}, {Rd(5)});
  Change(kConfigOwnerFrrDerived, {}, {Import(1)});
  EXPECT_EQ(Ask({"watch", "--count", "10", "--timeout", "20"}), kExitOk) << Err();
  EXPECT_THAT(Lines(),
              ElementsAre("mplsL3VpnVrfUp red interface 7 vrf up", "rd red none -> 65000:1 (derived)",
                          "rt import red ipv6 none -> 65000:1 (derived)",
                          "rd red 65000:1 (derived) -> 65000:2 (derived)",
                          "rd red 65000:2 (derived) -> 65000:3 (configured)",
                          "rd red evpn none -> 65000:25 (configured)",
                          "rd red 65000:3 (configured) -> 65000:4 (router file)",
                          "rd red 65000:4 (router file) -> 65000:5 (operator)",
                          "rd red 65000:5 (operator) -> 65000:6 (router file)",
                          "rt import red ipv6 65000:1 (derived) -> none"));
}

TEST_F(WatchChanges, JsonIsOneObjectALine) {
  Change(kConfigOwnerFrr, {Rd(1), Import(1)});
  Change(kConfigOwnerCli, {Rd(2)});
  Change(kConfigOwnerFrr, {}, {Import(1)});
  EXPECT_EQ(Ask({"--json", "watch", "changes", "--count", "4", "--timeout", "20"}), kExitOk) << Err();
  std::istringstream in(Out());
  std::vector<Json> all;
  for (std::string line; std::getline(in, line);) {
    all.push_back(Json::parse(line));
    EXPECT_THAT(all.back()["timeText"].get<std::string>(), EndsWith("Z"));
    all.back().erase("time");
    all.back().erase("timeText");
  }
  const auto object = [](const char* item, const Json& family, const Json& old_value, const Json& old_origin,
                         const Json& new_value, const Json& new_origin, const char* origin) {
    return Json{{"change", item},          {"vrfName", "red"},        {"family", family},
                {"oldValue", old_value},   {"oldOrigin", old_origin}, {"newValue", new_value},
                {"newOrigin", new_origin}, {"origin", origin},        {"lostBefore", 0}};
  };
  EXPECT_THAT(
      all, ElementsAre(object("rd", nullptr, nullptr, nullptr, "65000:1", "configured", "configured"),
                       object("rt import", "ipv6", nullptr, nullptr, "65000:1", "configured", "configured"),
                       object("rd", nullptr, "65000:1", "configured", "65000:2", "operator", "operator"),
                       object("rt import", "ipv6", "65000:1", "configured", nullptr, nullptr, "configured")));
}

TEST_F(WatchChanges, TrapsAndChangesAreShownAlone) {
  traps = {{0, vrf_.data(), 7, 1, 1, 0, 0, 0, 0}};
  Change(kConfigOwnerFrr, {Rd(1), Import(1)});
  EXPECT_EQ(Ask({"watch", "traps", "--timeout", "1"}), kExitOk) << Err();
  EXPECT_THAT(Lines(), ElementsAre("mplsL3VpnVrfUp red interface 7 vrf up"));
}

TEST_F(WatchChanges, VrfSelectsItsChanges) {
  const auto rd_of_blue = vrf_config::route_distinguisher("blue", vrf_config::Family::kIpv4, Target(9));
  Change(kConfigOwnerFrr, {rd_of_blue, Rd(1), Import(1)});
  EXPECT_EQ(Ask({"watch", "--vrf", "red", "--count", "2", "--timeout", "20"}), kExitOk) << Err();
  EXPECT_THAT(Lines(), ElementsAre("rd red none -> 65000:1 (configured)",
                                   "rt import red ipv6 none -> 65000:1 (configured)"));
}

TEST_F(WatchChanges, CountEndsAmongTheChangesOfOneCommit) {
  traps = {{0, vrf_.data(), 7, 1, 1, 0, 0, 0, 0}};
  Change(kConfigOwnerFrr, {Rd(1), Import(1)});
  EXPECT_EQ(Ask({"watch", "changes", "--count", "1", "--timeout", "20"}), kExitOk) << Err();
  EXPECT_EQ(Err(), "watching for changes\n");
  EXPECT_THAT(Lines(), ElementsAre("rd red none -> 65000:1 (configured)"));
}

TEST_F(WatchChanges, MissedChangesAreCounted) {
  Change(kConfigOwnerFrr, {Rd(1)});
  changes.emplace_back([this] {
    event_run_pending(manager_, 0);
    fault_arm("kvtree_prov_notify", kStatusIo);
  });
  Change(kConfigOwnerFrr, {Rd(2), Import(1)});
  changes.emplace_back([this] { event_run_pending(manager_, 0); });
  Change(kConfigOwnerFrr, {Rd(3)});
  EXPECT_EQ(Ask({"watch", "changes", "--count", "2", "--timeout", "20"}), kExitOk) << Err();
  EXPECT_THAT(Out(), HasSubstr("... 2 changes missed\n"));
}

TEST_F(WatchChanges, OtherRecordsThanChangesAreAFailure) {
  changes.emplace_back([] {
    KvConnection* other = nullptr;
    ASSERT_EQ(kvtree_bind(&other, "/oper/vpn_changes/", kKvBindProvider), kStatusOk);
    const std::uint8_t octets[] = {1, 2, 3};
    const KvProviderNotification notification{"changes", 0, kKvKindRecord, {}, octets, sizeof octets};
    EXPECT_EQ(kvtree_prov_notify(other, &notification), kStatusOk);
    EXPECT_EQ(kvtree_unbind(other), kStatusOk);
  });
  EXPECT_EQ(Ask({"watch", "--count", "1", "--timeout", "20"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("is not of the type vpn_changes"));
}

}  // namespace
}  // namespace cli
