// Links whose cause is only seen with answers that a small network does not give: route targets that the
// suite and the MIB state differently, and prefixes that several customers have.
#include <gmock/gmock.h>

#include "cli/explain/explain_test_fixture.h"

namespace cli::explain {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class ExplainTargets : public ExplainedRouter {};

TEST_F(ExplainTargets, OfTheSuiteDecideAndThoseOfTheMibAreNamed) {
  AddImportOfMib(1, "65000:99");  // an operator's item, which BGP does not have
  AnswerVpn(kPrefix, "65000:122", VpnPath("65000:99"));
  const Judgement targets = Explain(kPrefix)["targets"];
  EXPECT_EQ(targets.state, State::kBroken);
  EXPECT_THAT(targets.text, HasSubstr("that VRF red imports (65000:10; the MIB differs: 65000:99)"));
}

TEST_F(ExplainTargets, ThatTheMibLacksAreImported) {
  AnswerVpn(kPrefix, "65000:110", VpnPath("65000:10"));
  const Judgement targets = Explain(kPrefix)["targets"];
  EXPECT_EQ(targets.state, State::kOk);
  EXPECT_EQ(targets.text,
            "the VRF imports 65000:10, which 10.255.0.2 with RD 65000:110 exports; the MIB differs: none");
}

TEST_F(ExplainTargets, InAnotherFormatAreEqual) {
  AddImportOfMib(1, "64086.59904:30");
  Configure("  rt vpn both 4200000000:30\n  import vpn\n");
  AnswerVpn(kPrefix, "65000:110", VpnPath("64086.59904:30"));
  const Judgement targets = Explain(kPrefix)["targets"];
  EXPECT_EQ(targets.state, State::kOk);
  EXPECT_EQ(targets.text, "the VRF imports 4200000000:30, which 10.255.0.2 with RD 65000:110 exports");
}

TEST_F(ExplainTargets, CorrectionKeepsThoseThatAreThereWithoutACommand) {
  Configure("  rt vpn both 65000:10 65000:11\n  import vpn\n");
  AnswerVpn(kPrefix, "65000:122", VpnPath("65000:99"));
  const Judgement targets = Explain(kPrefix)["targets"];
  EXPECT_THAT(targets.fix, HasSubstr("65000:10 65000:11"));
  EXPECT_THAT(targets.fix, Not(HasSubstr("65000:99")));
  EXPECT_THAT(targets.fix, Not(HasSubstr(" -c ")));
}

TEST_F(ExplainTargets, PrefixOfAnotherCustomerDiffers) {
  AnswerVpn(kPrefix, "65000:122", VpnPath("65000:99"));
  Json path = VpnPath("65000:10", "10.1.0.9");
  path["valid"] = false;
  path.erase("bestpath");
  AnswerVrf(kPrefix, {path});  // the next hop of a customer's router is unreachable
  auto judged = Explain(kPrefix);
  EXPECT_EQ(judged["source"].state, State::kBroken);
  EXPECT_EQ(judged["source"].text, "the suite has 10.21.0.0/24 and does not use it: bgp");
  EXPECT_EQ(judged["targets"].state, State::kNotChecked);
  EXPECT_EQ(judged["next-hop"].state, State::kNotChecked);
}

TEST_F(ExplainTargets, RoutesOfAVrfThatIsImportedByNameNeedNone) {
  Configure("  import vrf blue\n");
  Json path = VpnPath("10.2.0.1:3", "0.0.0.0");
  path["peer"]["peerId"] = "0.0.0.0";
  path["nhVrfName"] = "blue";
  AnswerVpn(kPrefix, "10.2.0.1:3", path);
  auto judged = Explain(kPrefix);
  EXPECT_EQ(judged["source"].text, "BGP has it as VPN route from VRF blue");
  EXPECT_EQ(judged["targets"].state, State::kOk);
}

TEST_F(ExplainTargets, BestPathOfTheVrfIsItsSource) {
  Json other = VpnPath("65000:10", "10.1.0.8");
  other.erase("bestpath");
  AnswerVrf(kPrefix, {other, VpnPath("65000:10", "10.1.0.2")});
  EXPECT_EQ(Explain(kPrefix)["source"].text, "the route is of the VRF itself: BGP from 10.1.0.2");
}

using Links = std::pair<std::string, std::string>;

class ExplainCause : public ExplainedRouter {
 protected:
  void SetUp() override {
    ExplainedRouter::SetUp();
    of_facts_.suite_file = Directory() + "/frr.conf";
  }
};

TEST_F(ExplainCause, IsUnknownAfterALinkThatCouldNotBeLookedAt) {
  Answer("show daemons", " zebra staticd\n");
  auto judged = Explain(kPrefix);
  EXPECT_EQ(judged["source"].text, "bgpd does not run");
  EXPECT_EQ(judged["kernel"].state, State::kBroken);
  EXPECT_EQ(BrokenAndUnknown(), (Links{"kernel", "source"}));
}

TEST_F(ExplainCause, IsTheProgramThatTheSavedConfigurationNeeds) {
  Answer("show daemons", " zebra staticd\n");
  std::ofstream(of_facts_.suite_file) << "router bgp 65000\n";
  auto judged = Explain(kPrefix);
  EXPECT_THAT(judged["source"].text, HasSubstr("bgpd does not run although"));
  EXPECT_THAT(judged["source"].fix, HasSubstr("set bgpd=yes"));
  EXPECT_EQ(BrokenAndUnknown(), (Links{"source", ""}));
}

TEST_F(ExplainCause, IsKnownAfterALinkThatIsOk) {
  std::filesystem::remove(Shell());
  AddKernelRoute(kPrefix);
  Explain(kPrefix);
  EXPECT_EQ(BrokenAndUnknown(), (Links{"row", ""}));
}

TEST_F(ExplainCause, IsUnknownIfNothingShowsThatTheRouteIsThere) {
  std::filesystem::remove(Shell());
  AddKernelRoute(kPrefix);
  socket_ = "nothing";
  Explain(kPrefix);
  EXPECT_EQ(BrokenAndUnknown(), (Links{"", "row"}));
}

// No daemon answers, and no kernel has a device with so long a name.
class ExplainWithoutDaemon : public CommandLine {
 protected:
  const std::vector<std::string> kWords = {"explain", "longer-than-a-device", "--suite-shell",
                                           "/nonexistent"};
};

TEST_F(ExplainWithoutDaemon, FailsAlthoughNoLinkIsKnownToBeBroken) {
  EXPECT_EQ(Run(kWords), kExitFailed) << Err();
  EXPECT_THAT(Out(),
              HasSubstr("\nNo link is known to be broken: device could not be looked at (mpls_vpn_mib"));
  EXPECT_THAT(Out(), Not(HasSubstr("fix:")));
}

TEST_F(ExplainWithoutDaemon, NamesTheUnknownLinkAsJson) {
  std::vector<std::string> words = kWords;
  words.insert(words.begin(), "--json");
  EXPECT_EQ(Run(words), kExitFailed) << Err();
  const Json explained = Json::parse(Out());
  EXPECT_TRUE(explained["firstBroken"].is_null());
  EXPECT_EQ(explained["firstUnknown"], "device");
}

class ExplainKernel : public ExplainedRouter {
 protected:
  Judgement KernelWith(const char* flag, std::uint8_t type) {
    Json entry = Entry(kPrefix, "bgp", {{"ip", "10.255.0.2"}, {"active", true}, {"labels", {17}}});
    entry["installed"] = false;
    entry[flag] = true;
    AnswerRoute(std::string("vrf red ") + kPrefix, kPrefix, entry);
    AnswerVpn(kPrefix, "65000:110", VpnPath("65000:10"));
    if (type != RTN_UNSPEC) AddKernelRoute(kPrefix, type);
    return Explain(kPrefix)["kernel"];
  }
};

TEST_F(ExplainKernel, RouteOfAnotherOwnerIsNotTheOneThatTheSuiteSelected) {
  const Judgement kernel = KernelWith("failed", RTN_BLACKHOLE);
  EXPECT_EQ(kernel.state, State::kBroken);
  EXPECT_THAT(kernel.text, HasSubstr("the suite has selected bgp, and the kernel rejected it"));
}

TEST_F(ExplainKernel, RouteThatTheKernelRejectedIsNamed) {
  EXPECT_EQ(KernelWith("failed", RTN_UNSPEC).text,
            "table 10 of the kernel has no route 10.21.0.0/24: the kernel rejected it");
}

TEST_F(ExplainKernel, RouteOfAnotherOwnerThatDiscardsIsBroken) {
  const Judgement kernel = KernelWith("installed", RTN_BLACKHOLE);
  EXPECT_EQ(kernel.state, State::kBroken);
  EXPECT_THAT(kernel.text, HasSubstr("although the suite has installed bgp"));
  routes_.front().type = RTN_UNICAST;
  EXPECT_EQ(Explain(kPrefix)["kernel"].state, State::kOk);
}

class ExplainSessions : public ExplainedRouter {};

TEST_F(ExplainSessions, ThatAreDownAreNamedWhereThePrefixIsMissing) {
  Answer("show bgp ipv4 vpn summary json",
         R"({"peers":{"10.255.0.2":{"state":"Active"},"10.255.0.3":{"state":"Established"}}})");
  const std::string text = Explain(kPrefix)["source"].text;
  EXPECT_THAT(text, HasSubstr("; the ipv4 vpn session with 10.255.0.2 is Active"));
  EXPECT_THAT(text, Not(HasSubstr("10.255.0.3")));
}

TEST_F(ExplainSessions, OfWhichNoneIsActivatedAreNamed) {
  EXPECT_THAT(Explain(kPrefix)["source"].text, HasSubstr("; no neighbor is activated for ipv4 vpn"));
}

class ExplainDefaultRoute : public ExplainedRouter {
 protected:
  Judgement NextHopWith(bool is_valid) {
    AnswerVpn(kPrefix, "65000:110", VpnPath("65000:10"));
    Json copy = VpnPath("65000:10");
    copy["valid"] = is_valid;
    copy["nhVrfName"] = "default";
    AnswerVrf(kPrefix, {copy});
    AnswerRoute("10.255.0.2", "0.0.0.0/0",
                Entry("0.0.0.0/0", "static", {{"ip", "192.0.2.1"}, {"active", true}, {"fib", true}}));
    return Explain(kPrefix)["next-hop"];
  }
};

TEST_F(ExplainDefaultRoute, IsNamedIfBgpDoesNotReachTheNextHopByIt) {
  const Judgement next_hop = NextHopWith(false);
  EXPECT_EQ(next_hop.state, State::kBroken);
  EXPECT_EQ(next_hop.text, "the core has no route to the next hop 10.255.0.2 but a default route");
}

TEST_F(ExplainDefaultRoute, ReachesTheNextHopIfBgpUsesThePath) {
  EXPECT_EQ(NextHopWith(true).text, "the core reaches 10.255.0.2 by 0.0.0.0/0, static: 192.0.2.1");
}

class ExplainSegments : public ExplainedRouter {
 protected:
  // Version 10 prints the next hop of an IPv4 route as none in the VPN table.
  std::map<std::string, Judgement> ExplainWith(const std::string& core_prefix) {
    Json path = VpnPath("65000:10", "0.0.0.0");
    path["peer"]["peerId"] = "fd00::2";
    path["remoteSid"] = "2001:db8:f2::";
    path["remoteLabel"] = 16;
    AnswerVpn(kPrefix, "65000:110", path);
    if (!core_prefix.empty()) {
      const Json hop = {{"ip", "fd12::2"}, {"active", true}, {"fib", true}};
      Answer("show ipv6 route 2001:db8:f2:: json",
             Json{{core_prefix, Json::array({Entry(core_prefix, "isis", hop)})}}.dump());
    }
    return Explain(kPrefix);
  }
};

TEST_F(ExplainSegments, AreReachedByTheRouteToTheirLocator) {
  auto judged = ExplainWith("2001:db8:f2::/48");
  EXPECT_EQ(judged["next-hop"].text, "the core reaches 2001:db8:f2:: by 2001:db8:f2::/48, isis: fd12::2");
  EXPECT_EQ(judged["label"].text,
            "packets leave with a segment identifier of fd00::2 with RD 65000:110: 2001:db8:f2::");
}

TEST_F(ExplainSegments, WithoutARouteInTheCoreAreTheBrokenLink) {
  auto judged = ExplainWith("");
  EXPECT_EQ(judged["next-hop"].state, State::kBroken);
  EXPECT_EQ(judged["next-hop"].text, "the core has no route to the segment identifier 2001:db8:f2::");
}

}  // namespace
}  // namespace cli::explain
