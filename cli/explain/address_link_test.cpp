// Which route explains an address: what the kernel's lookup and the suite's answer for an address say.
#include <gmock/gmock.h>

#include "cli/explain/explain_test_fixture.h"

namespace cli::explain {
namespace {

using ::testing::HasSubstr;

constexpr char kAddress[] = "10.21.0.77";

class ExplainAddress : public ExplainedRouter {
 protected:
  void AnswerRib(const std::string& prefix) {
    const Json entry = Entry(prefix, "bgp", {{"ip", "10.255.0.2"}, {"active", true}, {"labels", {17}}});
    AnswerRoute(std::string("vrf red ") + kAddress, prefix, entry);
    AnswerRoute("vrf red " + prefix, prefix, entry);
  }
  // For the address and for its prefix.
  void AnswerPaths(const std::string& target, bool is_imported) {
    Json copy = VpnPath(target);
    copy["valid"] = false;
    copy.erase("bestpath");
    copy["nhVrfName"] = "default";
    for (const std::string asked : {kAddress, kPrefix}) {
      AnswerVpn(asked, "65000:110", VpnPath(target));
      if (is_imported) AnswerVrf(asked, {copy});
    }
  }
};

TEST_F(ExplainAddress, LongestRouteOfTheKernelDecides) {
  AddKernelRoute("0.0.0.0/0");
  AddKernelRoute(kPrefix);
  AddKernelRoute("10.21.0.64/26");
  AddKernelRoute("10.21.0.128/26");
  AnswerRib(kPrefix);
  auto judged = Explain(kAddress);
  EXPECT_EQ(judged["address"].text, "the longest route to 10.21.0.77 is that of 10.21.0.64/26");
  EXPECT_EQ(judged["source"].text, "the kernel has it, not from the suite");
}

TEST_F(ExplainAddress, ThatIsARouteOfItsOwnHasNoRow) {
  AddKernelRoute("10.21.0.77/32", RTN_LOCAL);
  auto judged = Explain(kAddress);
  EXPECT_EQ(judged["kernel"].state, State::kOk);
  EXPECT_EQ(judged["row"].state, State::kNotChecked);
  EXPECT_THAT(judged["row"].text, HasSubstr("no rows for addresses of this router"));
}

TEST_F(ExplainAddress, RouteThatOnlyTheSuiteHasSelectedDecides) {
  AddKernelRoute("10.0.0.0/8");
  AnswerRib(kPrefix);
  auto judged = Explain(kAddress);
  EXPECT_EQ(judged["address"].text, "the longest route to 10.21.0.77 is that of 10.21.0.0/24");
  EXPECT_THAT(judged["kernel"].text, HasSubstr("table 10 of the kernel has no route 10.21.0.0/24"));
}

TEST_F(ExplainAddress, DefaultRouteThatRejectsIsNotItsRoute) {
  AddKernelRoute("0.0.0.0/0", RTN_UNREACHABLE);
  AnswerPaths("65000:10", true);
  auto judged = Explain(kAddress);
  EXPECT_EQ(judged["address"].text,
            "10.21.0.77 is in 10.21.0.0/24, which BGP has; the VRF has 0.0.0.0/0, which rejects packets "
            "(unreachable) for it");
  EXPECT_EQ(judged["next-hop"].text, "the core has no route to the next hop 10.255.0.2");
}

TEST_F(ExplainAddress, DefaultRouteIsNotItsRouteIfTheVrfImportsALongerOne) {
  AddKernelRoute("0.0.0.0/0");
  AnswerPaths("65000:10", true);
  EXPECT_EQ(Explain(kAddress)["address"].text,
            "10.21.0.77 is in 10.21.0.0/24, which BGP has; the VRF has 0.0.0.0/0 for it");
}

TEST_F(ExplainAddress, PrefixOfAnotherVpnIsNamedIfTheVrfHasNone) {
  AddKernelRoute("0.0.0.0/0", RTN_UNREACHABLE);
  AnswerPaths("65000:99", false);
  EXPECT_THAT(Explain(kAddress)["targets"].text,
              HasSubstr("10.21.0.0/24 is not announced with a route target"));
  routes_.front().type = RTN_UNICAST;
  EXPECT_EQ(Explain(kAddress)["address"].text, "the longest route to 10.21.0.77 is that of 0.0.0.0/0");
}

TEST_F(ExplainAddress, WithoutARouteIsItsOwnPrefix) {
  AddKernelRoute("10.22.0.0/16");
  auto judged = Explain(kAddress);
  EXPECT_EQ(judged["address"].state, State::kNotChecked);
  EXPECT_EQ(judged["address"].text, "the VRF has no route for 10.21.0.77");
  EXPECT_THAT(judged["source"].text, HasSubstr("have 10.21.0.77/32"));
}

TEST_F(ExplainAddress, KernelDecidesWhileTheSuiteDoesNotAnswer) {
  std::filesystem::remove(Shell());
  AddKernelRoute(kPrefix);
  EXPECT_EQ(Explain(kAddress)["address"].text, "the longest route to 10.21.0.77 is that of 10.21.0.0/24");
}

TEST_F(ExplainAddress, IsNotLookedUpForAPrefix) {
  EXPECT_FALSE(Explain(kPrefix).contains("address"));
}

}  // namespace
}  // namespace cli::explain
