// The route targets of VRFs: order, numbering, and what is found by number.
#include "mpls/vpn/mib/src/route_target/database.h"

#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

// --wrap in the build file replaces the tree's function, which never compares an absent node.
Status real_init(WavlTree* tree, unsigned threads,
                 const WavlCompare* compare) __asm__("__real__Z9wavl_initP8WavlTreejPKPFjPKvS2_E");
Status noted_init(WavlTree* tree, unsigned threads,
                  const WavlCompare* compare) __asm__("__wrap__Z9wavl_initP8WavlTreejPKPFjPKvS2_E");

namespace {

WavlCompare last_order = nullptr;  // of the tree that was made last

}  // namespace

Status noted_init(WavlTree* tree, unsigned threads, const WavlCompare* compare) {
  last_order = compare[0];
  return real_init(tree, threads, compare);
}

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class RtDatabase : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    OnlyArea(DBASE);
  }
  static RtNode* Add(const char* vrf, std::int32_t type, const char* value, std::uint32_t afi = 1,
                     std::uint32_t safi = 1) {
    return mpls_vpn_mib_create_rt_wavl_node(vrf, type, value, afi, safi);
  }
  static int Remove(const char* vrf, std::int32_t type, const char* value, std::uint32_t afi = 1,
                    std::uint32_t safi = 1) {
    return mpls_vpn_mib_delete_rt_wavl_node(vrf, type, value, afi, safi);
  }
  static std::string OrNone(const char* text) { return text == nullptr ? "-" : text; }
  // "VRF type afi/safi value" ("-" for a text that is not there), or "none".
  static std::string Text(const RtNode* node) {
    if (node == nullptr) return "none";
    return OrNone(node->vrf_name) + " " + std::to_string(node->type) + " " + std::to_string(node->afi) + "/" +
           std::to_string(node->safi) + " " + OrNone(node->value);
  }
  static std::vector<std::string> EntriesOf(const char* vrf) {
    std::vector<std::string> entries;
    for (const RtNode* node = mpls_vpn_mib_get_first_rt_in_vrf(vrf); node != nullptr;
         node = mpls_vpn_mib_get_next_rt_in_vrf(node, vrf)) {
      entries.push_back(Text(node));
    }
    return entries;
  }
  std::string Get(bool exact, const char* vrf, std::uint32_t index, std::int32_t type) {
    ClearPrints();
    index_ = index;
    return Text(mpls_vpn_mib_get_rt(exact, vrf, &index_, type));
  }
  std::string Exact(const char* vrf, std::uint32_t index, std::int32_t type) {
    return Get(true, vrf, index, type);
  }
  // With the number of the answer in front: "1: red 1 1/1 65000:1".
  std::string Next(const char* vrf, std::uint32_t index, std::int32_t type) {
    const std::string text = Get(false, vrf, index, type);
    return std::to_string(index_) + ": " + text;
  }
  std::uint32_t index_ = 0;
};

TEST_F(RtDatabase, MissingNodeOrdersBeforeAPresentOne) {
  const RtNode* node = Add("red", kRtImport, "1:1");
  EXPECT_EQ(last_order(nullptr, node), kWavlLess);
  EXPECT_EQ(last_order(node, nullptr), kWavlGreater);
  EXPECT_EQ(last_order(nullptr, nullptr), kWavlEqual);
}

TEST_F(RtDatabase, EntriesOfAVrfAreInTheOrderOfTypeFamiliesAndShorterValues) {
  Add("red", kRtExport, "1:1");
  Add("red", kRtImport, "65000:1", 2, 1);
  Add("red", kRtImport, "1:2", 1, 2);
  Add("red", kRtImport, "65000:1");
  Add("red", kRtImport, "9:9");
  Add("red", kRtImport, "1:10");
  EXPECT_THAT(EntriesOf("red"), ElementsAre("red 1 1/1 9:9", "red 1 1/1 1:10", "red 1 1/1 65000:1",
                                            "red 1 1/2 1:2", "red 1 2/1 65000:1", "red 2 1/1 1:1"));
}

TEST_F(RtDatabase, CreatingTheSameTwiceFailsTheSecondTimeAndLeavesOneNode) {
  ASSERT_NE(Add("red", kRtImport, "1:1"), nullptr);
  ClearPrints();
  EXPECT_EQ(Add("red", kRtImport, "1:1"), nullptr);
  EXPECT_THAT(
      Prints(),
      ElementsAre("mpls_vpn_mib_create_rt_wavl_node: vrf_name = red, type = 1, RT = 1:1, afi/safi=1/1",
                  "Error (mpls_vpn_mib_create_rt_wavl_node): Cannot insert node into WAVL tree"));
  ExpectErrorTraced(Prints().back(), kStatusExists);
  EXPECT_EQ(EntriesOf("red").size(), 1U);
}

TEST_F(RtDatabase, EveryFieldOfTheKeyDistinguishesEntries) {
  ASSERT_NE(Add("red", kRtImport, "1:1"), nullptr);
  EXPECT_NE(Add("reds", kRtImport, "1:1"), nullptr);
  EXPECT_NE(Add("red", kRtExport, "1:1"), nullptr);
  EXPECT_NE(Add("red", kRtImport, "1:1", 2), nullptr);
  EXPECT_NE(Add("red", kRtImport, "1:1", 1, 2), nullptr);
  EXPECT_NE(Add("red", kRtImport, "1:2"), nullptr);
}

TEST_F(RtDatabase, TextsAreCopied) {
  std::string vrf = "red";
  std::string value = "1:1";
  const RtNode* node = Add(vrf.c_str(), kRtImport, value.c_str());
  ASSERT_NE(node, nullptr);
  vrf[0] = 'x';
  value[0] = 'x';
  EXPECT_EQ(Text(node), "red 1 1/1 1:1");
}

TEST_F(RtDatabase, CreationWithoutMemoryIsReportedAndChangesNothing) {
  const char* const points[] = {"calloc_tagged:RT node", "text_copy", "text_copy"};
  for (std::uint32_t i = 0; i < 3; ++i) {
    const ScopedFault fault(points[i], kStatusNoMemory, i == 2 ? 2 : 1);
    ClearPrints();
    EXPECT_EQ(Add("red", kRtImport, "1:1"), nullptr);
    EXPECT_TRUE(Printed("Error (mpls_vpn_mib_create_rt_wavl_node): No memory to create if node")) << i;
  }
  Status code = kStatusOk;
  EXPECT_EQ(Traced("mpls_vpn/error", &code).size(), 3U);
  EXPECT_EQ(code, kStatusNoMemory);
  EXPECT_THAT(EntriesOf("red"), IsEmpty());
}

TEST_F(RtDatabase, InsertThatTheTreeRefusesIsReported) {
  const ScopedFault fault("wavl_insert", kStatusIo);
  EXPECT_EQ(Add("red", kRtImport, "1:1"), nullptr);
  EXPECT_TRUE(Printed("Error (mpls_vpn_mib_create_rt_wavl_node): Cannot insert node into WAVL tree"));
  EXPECT_THAT(EntriesOf("red"), IsEmpty());
}

TEST_F(RtDatabase, DeletionTakesTheEqualEntryAndNoOther) {
  Add("red", kRtImport, "1:1");
  Add("red", kRtImport, "1:2");
  ClearPrints();
  EXPECT_EQ(Remove("red", kRtImport, "1:1"), 1);
  EXPECT_THAT(
      Prints(),
      ElementsAre("Entering mpls_vpn_mib_delete_rt_wavl_node: vrf_name=red, type=1, RT=1:1 afi/safi=1/1"));
  EXPECT_THAT(EntriesOf("red"), ElementsAre("red 1 1/1 1:2"));
}

TEST_F(RtDatabase, DeletingAnAbsentEntryIsReported) {
  Add("red", kRtImport, "1:1");
  ClearPrints();
  EXPECT_EQ(Remove("red", kRtExport, "1:1"), 0);
  EXPECT_TRUE(Printed("mpls_vpn_mib_delete_rt_wavl_node: Cannot find matching WAVL node"));
  ExpectErrorTraced("mpls_vpn_mib_delete_rt_wavl_node: Cannot find matching WAVL node\n", kStatusNoSuchRow);
  EXPECT_EQ(EntriesOf("red").size(), 1U);
}

TEST_F(RtDatabase, DeletionThatTheTreeRefusesIsReportedAndLeavesTheEntry) {
  Add("red", kRtImport, "1:1");
  {
    const ScopedFault fault("wavl_delete", kStatusIo);
    EXPECT_EQ(Remove("red", kRtImport, "1:1"), 0);
  }
  EXPECT_TRUE(Printed("mpls_vpn_mib_delete_rt_wavl_node: Cannot delete node from WAVL tree"));
  ExpectErrorTraced("mpls_vpn_mib_delete_rt_wavl_node: Cannot delete node from WAVL tree\n", kStatusIo);
  EXPECT_EQ(EntriesOf("red").size(), 1U);
}

TEST_F(RtDatabase, FirstInVrfNeverAnswersAnotherVrf) {
  Add("abc", kRtImport, "1:1");
  ClearPrints();
  EXPECT_EQ(Text(mpls_vpn_mib_get_first_rt_in_vrf("ab")), "none");
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_get_first_rt_in_vrf: vrf_name = ab",
                                    "No RT found for VRF ab"));
  Add("ab", kRtExport, "9:9");
  ClearPrints();
  EXPECT_EQ(Text(mpls_vpn_mib_get_first_rt_in_vrf("ab")), "ab 2 1/1 9:9");
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_get_first_rt_in_vrf: vrf_name = ab",
                                    "Found RT in VRF = ab, type = 2, value = 9:9, afi/safi=1/1"));
}

TEST_F(RtDatabase, ShorterNamesOrderFirst) {
  Add("abc", kRtImport, "1:1");
  Add("ab", kRtExport, "1:2");
  EXPECT_EQ(Next("", 0, 0), "1: ab 2 1/1 1:2");
  EXPECT_EQ(Next("ac", 0, 0), "1: abc 1 1/1 1:1");
}

TEST_F(RtDatabase, NextInVrfEndsWithTheVrf) {
  Add("ab", kRtImport, "1:1");
  Add("ab", kRtImport, "1:2");
  Add("abc", kRtImport, "1:1");
  const RtNode* first = mpls_vpn_mib_get_first_rt_in_vrf("ab");
  ClearPrints();
  const RtNode* second = mpls_vpn_mib_get_next_rt_in_vrf(first, "ab");
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_get_next_rt_in_vrf",
                                    "Found RT in VRF = ab, type = 1, value = 1:2, afi/safi=1/1"));
  EXPECT_EQ(Text(second), "ab 1 1/1 1:2");
  EXPECT_EQ(mpls_vpn_mib_get_next_rt_in_vrf(second, "ab"), nullptr);
  const RtNode* last = mpls_vpn_mib_get_first_rt_in_vrf("abc");
  EXPECT_EQ(mpls_vpn_mib_get_next_rt_in_vrf(last, "abc"), nullptr);
}

// --- By number, exactly

TEST_F(RtDatabase, ExactGetNeedsTheNumberAndTheType) {
  Add("red", kRtImport, "1:1");
  Add("red", kRtExport, "1:2");
  EXPECT_EQ(Exact("red", 2, kRtExport), "red 2 1/1 1:2");
  EXPECT_EQ(index_, 2U);
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_get_rt: vrf_name = red, index = 2, type = 2",
                          "Found RT in VRF = red, index = 2 type = 2, value = 1:2, afi/safi = 1/1"));
  EXPECT_EQ(Exact("red", 2, kRtImport), "none");
  EXPECT_THAT(Prints(), Contains("No RT found"));
}

TEST_F(RtDatabase, ExactGetNeverAnswersAnotherVrf) {
  Add("red", kRtImport, "1:1");
  Add("reds", kRtImport, "1:1");
  EXPECT_EQ(Exact("red", 2, kRtImport), "none");
  EXPECT_EQ(Exact("re", 1, kRtImport), "none");
  EXPECT_EQ(Exact("red", 3, kRtImport), "none");
  EXPECT_EQ(Exact("zzzzz", 1, kRtImport), "none");
}

TEST_F(RtDatabase, ExactGetOfNumberZeroFindsNothing) {
  Add("red", kRtImport, "1:1");
  EXPECT_EQ(Exact("red", 0, kRtImport), "none");
  EXPECT_EQ(index_, 1U);
}

// --- By number, next

TEST_F(RtDatabase, NextGetCountsAcrossVrfs) {
  for (const char* vrf : {"red", "reds"}) {
    Add(vrf, kRtExport, "1:2");
    Add(vrf, kRtImport, "1:1");
  }
  const struct {
    const char* what;
    const char* vrf;
    std::uint32_t index;
    std::int32_t type;
    const char* answer;
  } cases[] = {
      {"number 0 is the VRF's first entry", "red", 0, 3, "1: red 1 1/1 1:1"},
      {"the key itself", "red", 1, 1, "1: red 1 1/1 1:1"},
      {"the key itself, whose type is greater", "red", 2, 1, "2: red 2 1/1 1:2"},
      {"the type is signed", "red", 1, -1, "1: red 1 1/1 1:1"},
      {"a greater type is the following entry", "red", 1, 2, "2: red 2 1/1 1:2"},
      {"which may be the next VRF's first", "red", 2, 3, "1: reds 1 1/1 1:1"},
      {"or none", "reds", 2, 3, "2: none"},
      {"beyond the last entry the number counts on", "red", 3, 1, "3: reds 1 1/1 1:1"},
      {"and on", "red", 4, 0, "4: reds 2 1/1 1:2"},
      {"a step over the type starts the number again", "red", 3, 2, "1: reds 2 1/1 1:2"},
  };
  for (const auto& [what, vrf, index, type, answer] : cases)
    EXPECT_EQ(Next(vrf, index, type), answer) << what;
}

TEST_F(RtDatabase, NextGetInAVrfWithoutEntriesIsTheFollowingVrfsFirst) {
  Add("reds", kRtExport, "1:2");
  EXPECT_EQ(Next("red", 0, 0), "1: reds 2 1/1 1:2");
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_get_rt: vrf_name = red, index = 0, type = 0",
                          "Found RT in VRF = reds, index = 1, type = 2, value = 1:2, afi/safi = 1/1"));
  EXPECT_EQ(Next("red", 7, 3), "1: reds 2 1/1 1:2");
}

TEST_F(RtDatabase, StoredTypesAreOrderedSignedAndFamiliesUnsigned) {
  Add("red", kRtImport, "1:1", 0xffffffff, 1);
  Add("red", kRtImport, "1:1", 1, 0x80000000);
  Add("red", kRtImport, "1:1", 1, 1);
  EXPECT_THAT(EntriesOf("red"),
              ElementsAre("red 1 1/1 1:1", "red 1 1/2147483648 1:1", "red 1 4294967295/1 1:1"));
  Add("red", -1, "1:1");
  EXPECT_EQ(EntriesOf("red").size(), 3U) << "the negative type lies before the VRF's first";
}

TEST_F(RtDatabase, VrfWhoseFirstEntryLacksATextHasNone) {
  Add("red", kRtImport, nullptr);
  Add("red", kRtExport, "1:2");
  EXPECT_EQ(Exact("red", 1, kRtImport), "none");
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_get_rt: vrf_name = red, index = 1, type = 1",
                                    "No RT found"));
  EXPECT_EQ(Next("red", 0, 0), "1: none");
  EXPECT_EQ(Next("re", 0, 0), "1: none") << "nor is it the first of the VRFs that follow";
}

TEST_F(RtDatabase, EntryWithoutAVrfNameIsTheFirstOfAllAndOfNoVrf) {
  Add("", kRtImport, "2:2");
  Add(nullptr, kRtImport, "1:1");
  Add("red", kRtImport, "3:3");
  ClearPrints();
  mpls_vpn_mib_rt_dbase_walk();
  EXPECT_THAT(Prints(), ElementsAre("Start walk", "RT : vrf = (null), type = 1, value = 1:1, afi/safi = 1/1",
                                    "RT : vrf = , type = 1, value = 2:2, afi/safi = 1/1",
                                    "RT : vrf = red, type = 1, value = 3:3, afi/safi = 1/1", "End walk"));
  EXPECT_EQ(Text(mpls_vpn_mib_get_first_rt_in_vrf("")), " 1 1/1 2:2");
  EXPECT_EQ(Text(mpls_vpn_mib_get_first_rt_in_vrf(nullptr)), "none");
  EXPECT_EQ(Remove(nullptr, kRtImport, "1:1"), 1);
}

TEST_F(RtDatabase, EntryWithoutAValueIsTheFirstOfItsKind) {
  Add("red", kRtImport, "");
  Add("red", kRtImport, nullptr);
  Add("red", kRtImport, "1:1");
  EXPECT_THAT(EntriesOf("red"), ElementsAre("red 1 1/1 -", "red 1 1/1 ", "red 1 1/1 1:1"));
  EXPECT_EQ(Remove("red", kRtImport, nullptr), 1);
  EXPECT_THAT(EntriesOf("red"), ElementsAre("red 1 1/1 ", "red 1 1/1 1:1"));
}

TEST_F(RtDatabase, NextGetBeyondTheDatabaseIsNone) {
  EXPECT_EQ(Next("red", 1, 1), "1: none");
  Add("red", kRtImport, "1:1");
  EXPECT_EQ(Next("red", 2, 1), "2: none");
  EXPECT_EQ(Next("red", 0xffffffff, 1), "4294967295: none");
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_get_rt: vrf_name = red, index = 4294967295, type = 1",
                          "No RT found"));
}

// --- The whole

TEST_F(RtDatabase, WalkPrintsEveryEntry) {
  Add("reds", kRtImport, "1:1", 2, 2);
  Add("red", kRtExport, "1:2");
  ClearPrints();
  mpls_vpn_mib_rt_dbase_walk();
  EXPECT_THAT(Prints(), ElementsAre("Start walk", "RT : vrf = red, type = 2, value = 1:2, afi/safi = 1/1",
                                    "RT : vrf = reds, type = 1, value = 1:1, afi/safi = 2/2", "End walk"));
}

TEST_F(RtDatabase, WalkIsSilentWhileTheFlagIsOff) {
  Add("red", kRtExport, "1:2");
  OnlyArea(PROV);
  ClearPrints();
  mpls_vpn_mib_rt_dbase_walk();
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(RtDatabase, StoppedWalkIsTraced) {
  const ScopedFault fault("wavl_walk", kStatusIo);
  mpls_vpn_mib_rt_dbase_walk();
  EXPECT_THAT(Traced("mpls_vpn/error"), ElementsAre("the walk of the route-target database was stopped"));
}

TEST_F(RtDatabase, InitialisationIsPrintedAndTraced) {
  mpls_vpn_mib_rt_dbase_end();
  ClearPrints();
  ASSERT_EQ(mpls_vpn_mib_rt_dbase_init(), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("Entering (mpls_vpn_mib_rt_dbase_init)"));
  EXPECT_THAT(Traced("mpls_vpn/init"), Contains("mpls_vpn_mib_rt_dbase_init"));
}

TEST_F(RtDatabase, InitialisationFailsWithTheTree) {
  const std::size_t traced = Traced("mpls_vpn/init").size();
  const ScopedFault fault("wavl_init", kStatusIo);
  EXPECT_EQ(mpls_vpn_mib_rt_dbase_init(), kStatusIo);
  EXPECT_EQ(Traced("mpls_vpn/init").size(), traced);
}

TEST_F(RtDatabase, EndFreesEveryEntry) {
  Add("red", kRtImport, "1:1");
  Add("blue", kRtImport, "1:1");
  mpls_vpn_mib_rt_dbase_end();
  EXPECT_EQ(Next("", 0, 0), "1: none");
}

}  // namespace
