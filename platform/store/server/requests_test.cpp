// Requests from within the process: reads, walks and actions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/test_fault.h"
#include "platform/store/server/store.h"
#include "platform/store/server/test_store.h"
#include "platform/store/tree/actions.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Requests : public StoreTest {
 protected:
  Requests() { Provide(); }
  static std::string Get(std::string_view path, bool structured = false) {
    KvReply reply{};
    const Status status = kvtree_get(path, structured, &reply);
    std::string text = status == kStatusOk ? text_of(reply) : err_text(status);
    std::free(reply.data);
    return text;
  }
  Status Walk(std::string_view path, std::uint32_t max_rows) {
    rows.clear();
    std::vector<std::vector<std::uint8_t>> encoded;
    const Status status = kvtree_walk(path, false, max_rows, &encoded, &end);
    for (const auto& row : encoded) rows.emplace_back(row.begin(), row.end());
    return status;
  }
  ManualClock clock{1000};
  std::vector<std::string> rows;
  bool end = false;
};

TEST_F(Requests, ReachTheProviderBelowItsBindPoint) {
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/interface/red/7"), "get/0 'red' 7");
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/interface-next/red/7", true), "get/3 'red' 7");
}

TEST_F(Requests, GuardedPathsAreAnsweredByTheGuardWhileItFails) {
  static Status answer = kStatusOk;
  answer = kStatusIo;
  kvtree_guard("/oper/mpls_vpn/gl/interface", [] { return answer; });
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/interface/red/7"), err_text(kStatusIo));
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/interface-next/red/7"), err_text(kStatusIo));
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/interface-next/red/7", 3), kStatusIo);
  KvListReply lists = {10, 0, nullptr, nullptr};
  EXPECT_EQ(kvtree_list("/oper/mpls_vpn/gl/interface/red/7", false, &lists), kStatusIo);
  EXPECT_EQ(kvtree_datalist("/oper/mpls_vpn/gl/interface/red/7", false, &lists), kStatusIo);
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/scalars"), "get/0");
  answer = kStatusOk;
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/interface/red/7"), "get/0 'red' 7");
}

TEST_F(Requests, GuardMayEndItself) {
  kvtree_guard("/oper/mpls_vpn/gl/interface", [] {
    kvtree_guard("/oper/mpls_vpn/gl/interface", nullptr);
    return kStatusIo;
  });
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/interface/red/7"), err_text(kStatusIo));
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/interface/red/7"), "get/0 'red' 7");
}

TEST_F(Requests, PathsWithoutAProviderAreUnknown) {
  for (const char* path : {"", "/", "/oper", "/oper/mpls_vpn/gl", "/cfg/a", "oper/mpls_vpn/gl/scalars"}) {
    EXPECT_EQ(Get(path), err_text(kStatusUnknownPath)) << path;
  }
}

TEST_F(Requests, OverlongPathsAndNulsAreRefused) {
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/vrf/" + std::string(kKvMaxPath, 'a')), err_text(kStatusMessageTooLarge));
  EXPECT_EQ(Get(std::string_view("/oper/mpls_vpn/gl/interface/a\0b/1", 33)), err_text(kStatusBadKey));
}

TEST_F(Requests, MostSpecificProviderAnswers) {
  KvConnection* special = nullptr;
  ASSERT_EQ(kvtree_bind(&special, "/oper/mpls_vpn/gl/special", kKvBindProvider), kStatusOk);
  KvProviderFunctions functions{};
  functions.get = [](const KvRequest* request, KvReply* reply) {
    put_text(reply, "special " + std::string(request->path));
    return kStatusOk;
  };
  ASSERT_EQ(kvtree_register_prov2(special, "", manager, &functions, 0, 1), kStatusOk);
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/special/a"), "special a");
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/scalars"), "get/0");
  ASSERT_EQ(kvtree_unbind(special), kStatusOk);
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/special/a"), err_text(kStatusUnknownPath));
}

TEST_F(Requests, ProviderRegistrationIsChecked) {
  KvProviderFunctions functions{};
  EXPECT_EQ(kvtree_register_prov2(provider, "", manager, &functions, 0, 1), kStatusExists);
  EXPECT_EQ(kvtree_register_prov2(nullptr, "", manager, &functions, 0, 1), kStatusInvalid);
  EXPECT_EQ(kvtree_register_prov2(Bind("/oper/other/"), "", manager, &functions, 0, 1), kStatusInvalid);
  EXPECT_EQ(kvtree_register_prov2(provider, "below", nullptr, &functions, 0, 1), kStatusInvalid);
  EXPECT_EQ(kvtree_register_prov2(provider, "below", manager, nullptr, 0, 1), kStatusInvalid);
}

TEST_F(Requests, ProviderWithoutAFunctionHasNoHandler) {
  KvProviderFunctions functions{};
  ASSERT_EQ(kvtree_register_prov2(provider, "empty", manager, &functions, 0, 1), kStatusOk);
  EXPECT_EQ(Get("/oper/mpls_vpn/gl/empty/a"), err_text(kStatusNoHandler));
  KvListReply reply{};
  EXPECT_EQ(kvtree_list("/oper/mpls_vpn/gl/empty/a", false, &reply), kStatusNoHandler);
  EXPECT_EQ(kvtree_datalist("/oper/mpls_vpn/gl/empty/a", false, &reply), kStatusNoHandler);
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/empty/a", 1), kStatusNoHandler);
}

TEST_F(Requests, WalkReadsRowsUntilTheMaximum) {
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/rows-next/5", 3), kStatusOk);
  EXPECT_THAT(rows, ElementsAre("5", "6", "7"));
  EXPECT_FALSE(end);
}

TEST_F(Requests, WalkEndsWithTheLastRow) {
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/rows-next/2499", 10), kStatusOk);
  EXPECT_THAT(rows, ElementsAre("2499", "2500"));
  EXPECT_TRUE(end);
}

TEST_F(Requests, WalkEndsWhereTheRuleEndsIt) {
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/short-next/1", 3), kStatusOk);
  EXPECT_THAT(rows, ElementsAre("1", "2", "3"));
  EXPECT_TRUE(end);
}

TEST_F(Requests, WalkWithoutAFirstRowHasNoSuchRow) {
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/rows-next/2501", 10), kStatusNoSuchRow);
  EXPECT_THAT(rows, IsEmpty());
}

TEST_F(Requests, WalkThatFailsMidwayReturnsTheFailureAndNoRows) {
  TestProvider::failing_row = 7;
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/rows-next/5", 10), kStatusIo);
  EXPECT_THAT(rows, IsEmpty());
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/broken-next/1", 10), kStatusBadEncoding);
}

TEST_F(Requests, WalkReadsWhereTheRuleSendsItInstead) {
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/gap-next/2", 3), kStatusOk);
  EXPECT_THAT(rows, ElementsAre("2", "4", "5"));
  EXPECT_THAT(TestProvider::redirected_from,
              ElementsAre("gap-next/2", "gap-next/3", "gap-next/4", "gap-next/5"));
}

TEST_F(Requests, RuleIsAskedWhenThereIsNoRowToo) {
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/gap-next/9999", 1), kStatusOk);
  EXPECT_THAT(rows, ElementsAre("2500"));
}

TEST_F(Requests, RuleIsNotAskedAboutAFailure) {
  TestProvider::failing_row = 5;
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/gap-next/5", 1), kStatusIo);
  EXPECT_THAT(TestProvider::redirected_from, IsEmpty());
}

TEST_F(Requests, RedirectsOfOneRowAreBoundedAndThenTheAnswerCounts) {
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/lost-next/1", 1), kStatusOk);
  EXPECT_THAT(rows, ElementsAre("7"));
  EXPECT_EQ(TestProvider::redirected_from.size(), kKvMaxRedirects);
}

TEST_F(Requests, RedirectToAnOverlongPathIsRefused) {
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/lost-next/9", 1), kStatusMessageTooLarge);
  EXPECT_THAT(rows, IsEmpty());
}

TEST_F(Requests, WalkIsBoundedWhateverIsAskedFor) {
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/rows-next/1", 1000000), kStatusOk);
  EXPECT_EQ(rows.size(), kKvMaxListItems);
  EXPECT_FALSE(end);
}

TEST_F(Requests, WalkOfSlowRowsEndsEarlyAndSaysThatRowsFollow) {
  TestProvider::reading_row = [this] { clock.advance(kKvStepTime / 100); };
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/rows-next/1", 1000), kStatusOk);
  EXPECT_EQ(rows.size(), 100U);
  EXPECT_FALSE(end);
}

TEST_F(Requests, WalkHasAFewRowsHoweverSlowTheyAre) {
  TestProvider::reading_row = [this] { clock.advance(10 * kKvStepTime); };
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/rows-next/1", 1000), kStatusOk);
  EXPECT_EQ(rows.size(), kKvFewestRows);
  EXPECT_FALSE(end);
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/rows-next/2490", 1000), kStatusOk);
  EXPECT_EQ(rows.size(), 11U);
  EXPECT_TRUE(end);
}

TEST_F(Requests, WalkNeedsARuleAMaximumAndAKnownPath) {
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/scalars", 1), kStatusNoHandler);
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/rows-next/1", 0), kStatusInvalid);
  EXPECT_EQ(Walk("/nowhere/rows-next/1", 1), kStatusUnknownPath);
  EXPECT_EQ(Walk("/oper/mpls_vpn/gl/rows-next/x", 1), kStatusBadKey);
}

TEST_F(Requests, EachOperationFailsAtItsFaultPoint) {
  KvReply reply{};
  KvListReply lists{};
  ExpectFault("kvtree_get", [&] { return kvtree_get("/oper/mpls_vpn/gl/scalars", false, &reply); });
  ExpectFault("kvtree_list", [&] { return kvtree_list("/oper/mpls_vpn/gl/vrf-detail/a", false, &lists); });
  ExpectFault("kvtree_datalist",
              [&] { return kvtree_datalist("/oper/mpls_vpn/gl/vrf-detail/a", false, &lists); });
  ExpectFault("kvtree_walk", [&] { return Walk("/oper/mpls_vpn/gl/rows-next/1", 1); });
}

// --- Actions

using Actions = StoreTest;

Status echo_action(const KvActionContext& context, const std::vector<std::string>& words, std::string* text,
                   void* argument) {
  *text = *static_cast<std::string*>(argument) + (context.may_change ? " may" : " may not");
  for (const std::string& word : words) *text += " " + word;
  return context.may_change ? kStatusOk : kStatusAccess;
}

TEST_F(Actions, RunWithTheirWordsAndArgument) {
  std::string argument = "here";
  std::string text;
  ASSERT_EQ(kvtree_register_action("router", echo_action, &argument), kStatusOk);
  EXPECT_EQ(kvtree_run_action({true}, {"router", "up", "ge0"}, &text), kStatusOk);
  EXPECT_EQ(text, "here may router up ge0");
  EXPECT_EQ(kvtree_run_action({false}, {"router"}, &text), kStatusAccess);
  kvtree_unregister_action("router");
  EXPECT_EQ(kvtree_run_action({true}, {"router"}, &text), kStatusUnknownPath);
}

TEST_F(Actions, RegistrationAndWordsAreChecked) {
  std::string text;
  EXPECT_EQ(kvtree_register_action(nullptr, echo_action, nullptr), kStatusInvalid);
  EXPECT_EQ(kvtree_register_action("", echo_action, nullptr), kStatusInvalid);
  EXPECT_EQ(kvtree_register_action("a", nullptr, nullptr), kStatusInvalid);
  EXPECT_EQ(kvtree_register_action("a", echo_action, nullptr), kStatusOk);
  EXPECT_EQ(kvtree_register_action("a", echo_action, nullptr), kStatusExists);
  EXPECT_EQ(kvtree_run_action({true}, {}, &text), kStatusInvalid);
  kvtree_unregister_action(nullptr);
  fault_arm("kvtree_register_action", kStatusIo);
  EXPECT_EQ(kvtree_register_action("b", echo_action, nullptr), kStatusIo);
  fault_arm("kvtree_run_action", kStatusIo);
  EXPECT_EQ(kvtree_run_action({true}, {"a"}, &text), kStatusIo);
}

}  // namespace
