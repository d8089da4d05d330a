// When a VRF's configuration last changed: which commit decides, what is said, every failure.
#include "mpls/vpn/mib/src/configuration/change_time.h"

#include <cstdlib>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "platform/core/files/directories.h"
#include "platform/core/trace/trace.h"
#include "platform/store/configuration/test_configuration.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kErrorIn = "Error in mpls_vpn_mib_cgfmgr_get_time: ";
const std::string kNoMemory = std::string(": ") + err_text(kStatusNoMemory);

class ConfigurationTime : public ConfigTest {
 protected:
  ConfigurationTime() {
    EXPECT_EQ(mpls_vpn_trace_init(), kStatusOk);
    debug_capture(&prints);
    for (const unsigned area : {CFGMGR, ERR}) mpls_vpn_debug_flags[area].enabled.store(1);
  }
  ~ConfigurationTime() override {
    debug_capture(nullptr);
    for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(0);
    mpls_vpn_trace_end();
  }
  // One second passes before each commit; the first is of 1970-01-01T00:00:01Z.
  void CommitVrf(const std::string& vrf, const std::string& text) {
    clock.advance(kNanosecondsPerSecond);
    Commit("user",
           {SetTo("/cfg/gl/vmap/vrf/" + kvtree_encode_text(vrf) + "/ord_a/vmap/ord_k/vmap/descr", text)});
  }
  // "12" of "1970-01-01T00:00:12Z", or "none".
  std::string Seconds(const char* vrf) {
    prints.clear();
    char* const time = mpls_vpn_mib_cgfmgr_get_time(vrf);
    const std::string text = time == nullptr ? "none" : time;
    std::free(time);
    return text == "none" ? text : text.substr(17, 2);
  }
  std::vector<std::string> Prints() const {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < prints.size();) {
      const std::size_t end = std::min(prints.find('\n', start), prints.size());
      lines.push_back(prints.substr(start, end - start));
      start = end + 1;
    }
    return lines;
  }
  static std::vector<TraceEntry> Traced(const char* buffer) {
    std::vector<TraceEntry> entries;
    EXPECT_EQ(trace_read(run_directory(), buffer, &entries), kStatusOk);
    return entries;
  }
  static void ExpectErrorTraced(const char* what, Status code) {
    const std::vector<TraceEntry> entries = Traced("mpls_vpn/error");
    ASSERT_FALSE(entries.empty());
    EXPECT_THAT(entries.back().text, testing::HasSubstr(what));
    EXPECT_EQ(entries.back().code, code);
  }

  ManualClock clock{0};
  std::string prints;
};

TEST_F(ConfigurationTime, IsThatOfTheCommitThatChangedTheVrf) {
  CommitVrf("red", "1");
  CommitVrf("blue", "1");
  EXPECT_EQ(Seconds("red"), "01");
  EXPECT_THAT(
      Prints(),
      ElementsAre("Looking for item gl/vmap/vrf/red", "Found 2 commits",
                  "Item gl/vmap/vrf/red has changed in commitid 1, timestamp = 1970-01-01T00:00:01Z"));
}

TEST_F(ConfigurationTime, IsThatOfTheCommitNearerTheEndOfTheHistory) {
  CommitVrf("red", "1");
  CommitVrf("red", "2");
  CommitVrf("blue", "1");
  EXPECT_EQ(Seconds("red"), "02");
}

TEST_F(ConfigurationTime, IsThatOfADeletionToo) {
  CommitVrf("red", "1");
  clock.advance(kNanosecondsPerSecond);
  Commit("user", {Withdraw("/cfg/gl/vmap/vrf/red/ord_a/vmap/ord_k/vmap/descr")});
  EXPECT_EQ(Seconds("red"), "02");
}

TEST_F(ConfigurationTime, OfAnEmptyHistoryIsNone) {
  EXPECT_EQ(Seconds("red"), "none");
  EXPECT_THAT(Prints(),
              ElementsAre("Looking for item gl/vmap/vrf/red", "Found 0 commits", "The item was not found"));
  EXPECT_THAT(Traced("mpls_vpn/init").back().text, testing::HasSubstr("was not found"));
}

TEST_F(ConfigurationTime, OfAVrfThatNoCommitChangedIsNone) {
  CommitVrf("redder", "1");
  for (const char* vrf : {"red", "", static_cast<const char*>(nullptr)}) EXPECT_EQ(Seconds(vrf), "none");
  EXPECT_THAT(Prints(), Contains("The item was not found"));
}

TEST_F(ConfigurationTime, LooksAtFifteenCommits) {
  CommitVrf("red", "1");
  for (int i = 0; i < 14; ++i) CommitVrf("blue", std::to_string(i));
  EXPECT_EQ(Seconds("red"), "01");
  CommitVrf("blue", "last");
  EXPECT_EQ(Seconds("red"), "none");
  EXPECT_THAT(Prints(), Contains("Found 15 commits"));
}

// "gl/vmap/vrf/" has 12 characters.
TEST_F(ConfigurationTime, NameThatMakesThePathLongerThan41CharactersIsCut) {
  const std::string longest(29, 'r');
  CommitVrf(longest, "1");
  EXPECT_EQ(Seconds(longest.c_str()), "01");
  EXPECT_EQ(Seconds((longest + "r").c_str()), "01") << "the VRF of the cut name is found";
  const std::string longer(30, 'b');
  CommitVrf(longer, "1");
  EXPECT_EQ(Seconds(longer.c_str()), "none");
  EXPECT_THAT(Prints(), Contains("Looking for item gl/vmap/vrf/" + std::string(29, 'b')));
}

TEST_F(ConfigurationTime, NameIsEncodedInTheTree) {
  CommitVrf("a b", "1");
  EXPECT_EQ(Seconds("a b"), "01");
}

// The item is a path, in which a slash parts one component from the next: such a name cannot be looked for.
TEST_F(ConfigurationTime, OfANameWithASlashIsNone) {
  CommitVrf("a/b", "1");
  EXPECT_EQ(Seconds("a/b"), "none");
  EXPECT_THAT(Prints(), Contains("Looking for item gl/vmap/vrf/a/b"));
}

TEST_F(ConfigurationTime, PrintsNothingWithoutItsFlags) {
  CommitVrf("red", "1");
  for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(0);
  EXPECT_EQ(Seconds("red"), "01");
  EXPECT_THAT(Prints(), IsEmpty());
}

struct FailedStep {
  const char* fault;
  const char* message;
  const char* seconds;  // of the commit that changed the VRF
  std::size_t prints;   // with the message, the last one
};

class FailedSteps : public ConfigurationTime, public testing::WithParamInterface<FailedStep> {};

TEST_P(FailedSteps, AreReportedAndTraced) {
  CommitVrf("red", "1");
  fault_arm(GetParam().fault, kStatusNoMemory);
  EXPECT_EQ(Seconds("red"), GetParam().seconds);
  ASSERT_EQ(Prints().size(), GetParam().prints);
  EXPECT_EQ(Prints().back(), kErrorIn + GetParam().message + kNoMemory);
  ExpectErrorTraced(GetParam().message, kStatusNoMemory);
}

// The commit that has the item is cleared too, after it was found.
constexpr FailedStep kFailedSteps[] = {
    {"cfgmgr_config_get_history", "Failed to do cfgmgr_config_get_history", "none", 1},
    {"cfgmgr_target_create", "Failed to create the cfgmgr target", "none", 3},
    {"cfgmgr_target_clear", "Failed to clear cfgmgr target", "01", 4},
    {"cfgmgr_target_destroy", "Failed to destroy the cfgmgr target", "01", 4},
    {"text_copy", "text_copy", "none", 4},
};
INSTANTIATE_TEST_SUITE_P(Each, FailedSteps, testing::ValuesIn(kFailedSteps),
                         [](const auto& step) { return std::string(step.param.fault); });

TEST_F(ConfigurationTime, FailedLoadEndsTheSearch) {
  CommitVrf("red", "1");
  CommitVrf("blue", "1");
  fault_arm("cfgmgr_target_load_changes", kStatusNoMemory, 2);
  fault_arm("cfgmgr_target_destroy", kStatusIo);
  EXPECT_EQ(Seconds("red"), "none");
  EXPECT_THAT(
      Prints(),
      ElementsAre("Looking for item gl/vmap/vrf/red", "Found 2 commits", "Loading changes for commit id 1",
                  kErrorIn + "Failed to load the config changes" + kNoMemory,
                  kErrorIn + "Failed to destroy the cfgmgr target: " + err_text(kStatusIo)));
  ExpectErrorTraced("Failed to destroy the cfgmgr target", kStatusIo);
}

TEST_F(ConfigurationTime, FailedLoadIsTracedAndNotTakenForNotFound) {
  CommitVrf("red", "1");
  fault_arm("cfgmgr_target_load_changes", kStatusNoMemory);
  EXPECT_EQ(Seconds("red"), "none");
  ExpectErrorTraced("Failed to load the config changes", kStatusNoMemory);
  EXPECT_THAT(Prints(), testing::Not(Contains("The item was not found")));
  EXPECT_THAT(
      Traced("mpls_vpn/init"),
      testing::Each(testing::Field(&TraceEntry::text, testing::Not(testing::HasSubstr("not found")))));
}

TEST_F(ConfigurationTime, FailedSearchOfACommitContinuesWithTheNext) {
  CommitVrf("red", "1");
  CommitVrf("red", "2");
  fault_arm("kvtree_event_find", kStatusIo);
  EXPECT_EQ(Seconds("red"), "01");
}

TEST_F(ConfigurationTime, FailedClearingIsReportedAndTheWalkContinues) {
  CommitVrf("red", "1");
  CommitVrf("blue", "1");
  fault_arm("cfgmgr_target_clear", kStatusNoMemory);
  EXPECT_EQ(Seconds("red"), "01");
  EXPECT_THAT(Prints(), Contains(kErrorIn + "Failed to clear cfgmgr target" + kNoMemory));
  ExpectErrorTraced("Failed to clear cfgmgr target", kStatusNoMemory);
}

TEST_F(ConfigurationTime, AnswerIsACopyThatOutlivesTheHistory) {
  CommitVrf("red", "1");
  char* const time = mpls_vpn_mib_cgfmgr_get_time("red");
  kvtree_reset();
  EXPECT_STREQ(time, "1970-01-01T00:00:01Z");
  std::free(time);
}

}  // namespace
