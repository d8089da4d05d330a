// Tests of path patterns: kinds of keys, absent keys, order and backtracking, forms, malformed patterns.
#include "platform/store/tree/matcher.h"

#include "platform/core/base/test_fault.h"
#include "platform/store/server/store.h"
#include "platform/store/server/test_store.h"

namespace {

using kvtree::compile_table;
using kvtree::match_path;
using kvtree::PathMatch;
using ::testing::HasSubstr;

// The outcome of one match against these patterns: "index: arguments", or the error's text.
std::string Match(const std::vector<const char*>& patterns, std::string_view path, bool encoded = false) {
  std::vector<KvPathRow> rows;
  for (const char* pattern : patterns) rows.push_back({pattern, {}});
  const kvtree::CompiledTable table = compile_table({rows.data(), rows.size()});
  EXPECT_TRUE(table.valid);
  PathMatch match;
  const Status status = match_path(table, path, encoded, &match);
  if (status != kStatusOk) return err_text(status);
  return std::to_string(match.row) + ":" + describe("", &match.args);
}

const std::string kUnknown = err_text(kStatusUnknownPath);
const std::string kBadKey = err_text(kStatusBadKey);

TEST(PathMatcher, LiteralPathMatchesItselfOnly) {
  EXPECT_EQ(Match({"scalars"}, "scalars"), "0:/0");
  for (const char* path : {"", "scalar", "scalarss", "scalars/", "/scalars", "scalars/x"}) {
    EXPECT_EQ(Match({"scalars"}, path), kUnknown) << path;
  }
}

TEST(PathMatcher, TextAndNumberKeysAreDecoded) {
  EXPECT_EQ(Match({"interface/<s>/<n>"}, "interface/red/7"), "0:/0 'red' 7");
  EXPECT_EQ(Match({"interface/<s>/<n>"}, "interface/a%2Fb%20c/4294967295"), "0:/0 'a/b c' 4294967295");
  EXPECT_EQ(Match({"if/<i>"}, "if/ge%2F0%2F1"), "0:/0 'ge/0/1'");
}

TEST(PathMatcher, EmptyComponentIsTheEmptyText) {
  EXPECT_EQ(Match({"vrf/<s>"}, "vrf/"), "0:/0 ''");
  EXPECT_EQ(Match({"interface/<s>/<n>"}, "interface//5"), "0:/0 '' 5");
}

TEST(PathMatcher, DashIsAnAbsentKeyAndItsEscapeIsNot) {
  EXPECT_EQ(Match({"interface/<s>/<n>"}, "interface/-/5"), "0:/0 absent 5");
  EXPECT_EQ(Match({"interface/<s>/<n>"}, "interface/red/-"), "0:/0 'red' absent");
  EXPECT_EQ(Match({"vrf/<s>"}, "vrf/%2D"), "0:/0 '-'");
  EXPECT_EQ(Match({"vrf/<s>"}, "vrf/--"), "0:/0 '--'");
}

TEST(PathMatcher, KeysThatThePathEndsBeforeAreAbsent) {
  EXPECT_EQ(Match({"vrf-detail-filter/<s>/<n>/<n>/<s>"}, "vrf-detail-filter/red"),
            "0:/0 'red' absent absent absent");
  EXPECT_EQ(Match({"vrf-detail-filter/<s>/<n>/<n>/<s>"}, "vrf-detail-filter"),
            "0:/0 absent absent absent absent");
}

TEST(PathMatcher, PathMayNotEndBeforeALiteral) {
  EXPECT_EQ(Match({"vrf/<s>/descr"}, "vrf/red"), kUnknown);
  EXPECT_EQ(Match({"vrf/<s>/descr"}, "vrf"), kUnknown);
}

TEST(PathMatcher, ShorterPatternIsPreferredToOneWithAbsentKeys) {
  EXPECT_EQ(Match({"vrf/<s>/<n>", "vrf/<s>"}, "vrf/red"), "1:/0 'red'");
  EXPECT_EQ(Match({"vrf/<s>/<n>", "vrf/<s>"}, "vrf/red/1"), "0:/0 'red' 1");
}

TEST(PathMatcher, NumbersThatAreNoneAreBadKeys) {
  for (const char* number : {"", "x", "1x", "+1", "%31", "4294967296", "1.0", " 1"}) {
    EXPECT_EQ(Match({"n/<n>"}, std::string("n/") + number), kBadKey) << number;
  }
  EXPECT_EQ(Match({"n/<n>"}, "n/-1"), kBadKey);
  EXPECT_EQ(Match({"n/<n>"}, "n/007"), "0:/0 7");
}

TEST(PathMatcher, MalformedEscapesAreBadKeys) {
  for (const char* text : {"%", "%4", "a%", "%zz", "%0g", "%00"}) {
    EXPECT_EQ(Match({"s/<s>"}, std::string("s/") + text), kBadKey) << text;
  }
}

TEST(PathMatcher, BadKeyOfAPathThatWouldNotFitAnywayIsUnknown) {
  EXPECT_EQ(Match({"if/<s>/<n>"}, "if/red/x/more"), kUnknown);
  EXPECT_EQ(Match({"if/<s>/<n>"}, "if/%zz/1/more"), kUnknown);
  EXPECT_EQ(Match({"scalars", "<s>/event"}, "%zz/other"), kUnknown);
  EXPECT_EQ(Match({"scalars", "<s>/event"}, "%zz/event"), kBadKey);
  EXPECT_EQ(Match({"if/<s>/<n>"}, "if/%zz/x"), kBadKey) << "two of them";
  EXPECT_EQ(Match({"if/<s>/<n>"}, "if/%zz"), kBadKey) << "and one that is absent";
  EXPECT_EQ(Match({"a/<n>/b", "a/<s>/c"}, "a/x/c"), "1:/0 'x'");
}

TEST(PathMatcher, Ipv4KeysComeAsTextAndAsNumber) {
  const KvPathRow row{"ip/<ip4>", {}};
  const kvtree::CompiledTable table = compile_table({&row, 1});
  PathMatch match;
  ASSERT_EQ(match_path(table, "ip/10.1.2.3", false, &match), kStatusOk);
  EXPECT_STREQ(match.args.arg[0].text, "10.1.2.3");
  ASSERT_NE(match.args.arg[0].number, nullptr);
  EXPECT_EQ(*match.args.arg[0].number, 0x0a010203U);
  for (const char* bad : {"ip/10.1.2", "ip/10.1.2.256", "ip/::1", "ip/"}) {
    EXPECT_EQ(Match({"ip/<ip4>"}, bad), kBadKey) << bad;
  }
}

TEST(PathMatcher, AddressKeysAreIpv4OrIpv6) {
  EXPECT_EQ(Match({"a/<ad>"}, "a/10.1.2.3"), "0:/0 '10.1.2.3'");
  EXPECT_EQ(Match({"a/<ad>"}, "a/2001:db8::1"), "0:/0 '2001:db8::1'");
  EXPECT_EQ(Match({"a/<ad>"}, "a/here"), kBadKey);
}

TEST(PathMatcher, AnyKeysAreNotDecoded) {
  EXPECT_EQ(Match({"x/<x>"}, "x/a%zz b"), "0:/0 'a%zz b'");
}

TEST(PathMatcher, UnreadKeysAreNotArguments) {
  EXPECT_EQ(Match({"af/<s>/<*>/if/<i>"}, "af/red/a%zz b/if/ge0"), "0:/0 'red' 'ge0'");
  EXPECT_EQ(Match({"af/<s>/<*>/if/<i>"}, "af/red/-/if/ge0"), "0:/0 'red' 'ge0'");
  EXPECT_EQ(Match({"af/<s>/<*>/if/<i>"}, "af/red/if/ge0"), kUnknown);
  EXPECT_EQ(Match({"af/<s>/<*>/<n>"}, "af/red"), "0:/0 'red' absent");
  EXPECT_EQ(Match({"<*>/<*>/<*>/<*>/<*>/<*>/<*>/<*>/<*>/<*>/<*>/<*>/<*>/<*>/<*>/<*>/<*>/<s>"},
                  "1/2/3/4/5/6/7/8/9/10/11/12/13/14/15/16/17/last"),
            "0:/0 'last'");
}

TEST(PathMatcher, StructuredRequestsGetTheirTextKeysEncoded) {
  EXPECT_EQ(Match({"vrf/<s>/<n>"}, "vrf/a%20b/4", true), "0:/0 'a%20b' 4");
  EXPECT_EQ(Match({"vrf/<s>"}, "vrf/%zz", true), "0:/0 '%zz'");  // the handler decodes, and notices
}

// Route targets and policies want the table "default", thresholds any table name.
const std::vector<const char*> kVrfPatterns = {
    "vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_b/bgp/ord_c/import-rt/<n>",
    "vrf/<s>/ord_z/afi_safi/<n>/<n>/<s>/ord_e/rib/table-prefix-limit",
    "vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_b/bgp/ord_b/import-policy",
};

TEST(PathMatcher, LiteralIsTriedBeforeAKeyAtTheSameDepth) {
  EXPECT_EQ(Match({"<s>/a", "default/a"}, "default/a"), "1:/0");
  EXPECT_EQ(Match({"<s>/a", "default/a"}, "other/a"), "0:/0 'other'");
}

TEST(PathMatcher, BranchThatFailsFurtherDownIsGivenUpForTheNext) {
  EXPECT_EQ(Match(kVrfPatterns, "vrf/red/ord_z/afi_safi/1/1/default/ord_e/rib/table-prefix-limit"),
            "1:/0 'red' 1 1 'default'");
  EXPECT_EQ(Match(kVrfPatterns, "vrf/red/ord_z/afi_safi/1/1/other/ord_e/rib/table-prefix-limit"),
            "1:/0 'red' 1 1 'other'");
  EXPECT_EQ(Match(kVrfPatterns, "vrf/red/ord_z/afi_safi/1/1/default/ord_b/bgp/ord_b/import-policy"),
            "2:/0 'red' 1 1");
  EXPECT_EQ(Match(kVrfPatterns, "vrf/red/ord_z/afi_safi/1/1/other/ord_b/bgp/ord_b/import-policy"), kUnknown);
}

TEST(PathMatcher, ArgumentsOfAGivenUpBranchLeaveNoTrace) {
  // The first branch takes two keys, one of them absent, before it fails.
  EXPECT_EQ(Match({"a/<s>/<n>/b", "a/<x>"}, "a/%41"), "1:/0 '%41'");
  EXPECT_EQ(Match({"a/x/<s>/b", "a/<s>/<n>"}, "a/x/-"), "1:/0 'x' absent");
  const KvPathRow rows[] = {{"a/<s>/<n>/b", {}}, {"a/<x>/-", {}}};
  const kvtree::CompiledTable table = compile_table({rows, 2});
  PathMatch match;
  ASSERT_EQ(match_path(table, "a/q/-", false, &match), kStatusOk);
  EXPECT_EQ(match.args.count, 1U);
  EXPECT_EQ(match.args.absent_mask, ~1U) << "every key after the last is absent";
  EXPECT_EQ(match.args.arg[1].text, nullptr);
  EXPECT_EQ(match.args.arg[1].number, nullptr);
}

TEST(PathMatcher, FirstOfTwoEqualPatternsCounts) {
  EXPECT_EQ(Match({"a/<s>", "a/<s>"}, "a/b"), "0:/0 'b'");
}

TEST(PathMatcher, KeysAreTriedInTableOrder) {
  EXPECT_EQ(Match({"<n>/a", "<s>/a"}, "5/a"), "0:/0 5");
  EXPECT_EQ(Match({"<s>/a", "<n>/a"}, "5/a"), "0:/0 '5'");
  EXPECT_EQ(Match({"<n>/a", "<s>/a"}, "x/a"), "1:/0 'x'");
}

TEST(PathMatcher, LongestPathWithAllItsKeysFits) {
  const std::string key((kKvMaxPath - 15) / 16, 'k');
  std::string pattern = "<s>";
  std::string path = key;
  std::string expected = "0:/0 '" + key + "'";
  for (int i = 1; i < 16; ++i) {
    pattern += "/<s>";
    path += "/" + key;
    expected += " '" + key + "'";
  }
  EXPECT_EQ(Match({pattern.c_str()}, path), expected);
}

TEST(PathMatcher, BranchesThatAreGivenUpTakeNoRoomFromTheNext) {
  const std::string key(kKvMaxPath - 2, 'k');
  EXPECT_EQ(Match({"<s>/a", "<i>/b", "<x>/c"}, key + "/c"), "2:/0 '" + key + "'");
}

TEST(PathMatcher, PathDeeperThanAnyPatternIsUnknown) {
  std::string path = "a";
  for (int i = 0; i < 500; ++i) path += "/a";
  EXPECT_EQ(Match({"a/<s>"}, path), kUnknown);
}

// "a/a/.../a".
std::string Deep(std::size_t components) {
  std::string path = "a";
  while (--components > 0) path += "/a";
  return path;
}

TEST(PathMatcher, PathHasAsManyComponentsAsADeepestPattern) {
  const std::string deepest = Deep(kvtree::kMaxComponents);
  EXPECT_EQ(Match({deepest.c_str()}, deepest), "0:/0");
  EXPECT_EQ(Match({deepest.c_str()}, Deep(kvtree::kMaxComponents + 1)), kUnknown);
  EXPECT_EQ(Match({deepest.c_str()}, Deep(kvtree::kMaxComponents - 1)), kUnknown);
}

TEST(PathMatcher, MalformedPatternsMakeTheTableInvalidAndAreLogged) {
  std::string too_many_keys = "<s>";
  for (int i = 0; i < 16; ++i) too_many_keys += "/<s>";
  const std::string too_deep = Deep(kvtree::kMaxComponents + 1);
  for (const char* pattern : {"", "a//b", "<q>", "a/<s", too_many_keys.c_str(), too_deep.c_str(),
                              static_cast<const char*>(nullptr)}) {
    const KvPathRow row{pattern, {}};
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(compile_table({&row, 1}).valid);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("malformed path pattern"));
  }
}

// --- Routing

class Routing : public StoreTest {
 protected:
  static Status Get(std::string_view path, bool structured, std::string* text) {
    const KvRequest request{path, structured};
    KvReply reply{};
    const Status status = kvtree_match_get(&request, &TestProvider::table, &reply);
    *text = reply.data == nullptr ? "" : text_of(reply);
    std::free(reply.data);
    return status;
  }
};

TEST_F(Routing, FormsDistinguishNextAndStructuredRequests) {
  std::string text;
  EXPECT_EQ(Get("interface/a%20b/1", false, &text), kStatusOk);
  EXPECT_EQ(text, "get/0 'a b' 1");
  EXPECT_EQ(Get("interface-next/a%20b/1", false, &text), kStatusOk);
  EXPECT_EQ(text, "get/1 'a b' 1");
  EXPECT_EQ(Get("interface/a%20b/1", true, &text), kStatusOk);
  EXPECT_EQ(text, "get/2 'a%20b' 1");
  EXPECT_EQ(Get("interface-next/a%20b/1", true, &text), kStatusOk);
  EXPECT_EQ(text, "get/3 'a%20b' 1");
}

TEST_F(Routing, HandlersAnswerIsPassedOn) {
  TestProvider::get_answer = kStatusNoSuchRow;
  std::string text;
  EXPECT_EQ(Get("scalars", false, &text), kStatusNoSuchRow);
}

TEST_F(Routing, MissingHandlerUnknownPathAndBadKeyAreReported) {
  std::string text;
  EXPECT_EQ(Get("vrf-detail/red", false, &text), kStatusNoHandler);
  EXPECT_EQ(Get("nowhere", false, &text), kStatusUnknownPath);
  EXPECT_EQ(Get("interface/red/x", false, &text), kStatusBadKey);
  const KvRequest request{"scalars", false};
  KvListReply reply{};
  EXPECT_EQ(kvtree_match_list(&request, &TestProvider::table, &reply), kStatusNoHandler);
  EXPECT_EQ(kvtree_match_datalist(&request, &TestProvider::table, &reply), kStatusNoHandler);
}

TEST_F(Routing, TableWithAMalformedPatternIsInvalid) {
  static const KvPathRow row{"<what>", {0, nullptr, TestProvider::describe_get, nullptr, nullptr}};
  const KvPathTable table{&row, 1};
  const KvRequest request{"what", false};
  KvReply reply{};
  EXPECT_EQ(kvtree_match_get(&request, &table, &reply), kStatusInvalid);
}

TEST_F(Routing, FaultPointsFailTheMatch) {
  std::string text;
  const KvRequest request{"vrf-detail/red", false};
  KvListReply reply{};
  ExpectFault("kvtree_match_get", [&] { return Get("scalars", false, &text); });
  ExpectFault("kvtree_match_list", [&] { return kvtree_match_list(&request, &TestProvider::table, &reply); });
  ExpectFault("kvtree_match_datalist",
              [&] { return kvtree_match_datalist(&request, &TestProvider::table, &reply); });
}

// --- Notifications through a table

std::vector<std::string>& handled() {
  static std::vector<std::string> all;
  return all;
}

void handle_change(const KvNotifyInfo* info, const RequestArgs* args) {
  handled().push_back(describe(info->item_name, args) + " scan=" + std::to_string(info->scan));
}

const KvPathRow kChangePaths[] = {
    {"vrf/<s>/descr", {3, handle_change, nullptr, nullptr, nullptr}},
    {"vrf/<s>/unhandled", {1, nullptr, nullptr, nullptr, nullptr}},
};
const KvPathTable kChangeTable{kChangePaths, 2};

TEST_F(Routing, NotificationReachesTheHandlerOfItsPattern) {
  handled().clear();
  backend_scan_in_progress = 1;
  KvNotification notification{"vrf/a%20b/descr", {"descr", kKvEventSet, nullptr}};
  kvtree_match_notify(&notification, &kChangeTable);
  backend_scan_in_progress = 0;
  kvtree_match_notify(&notification, &kChangeTable);
  EXPECT_THAT(handled(), ::testing::ElementsAre("descr/0 'a b' scan=1", "descr/0 'a b' scan=0"));
}

TEST_F(Routing, NotificationWithoutPatternOrHandlerIsDropped) {
  handled().clear();
  for (const char* path : {"vrf/red/unhandled", "vrf/red/other", "vrf/%zz/descr"}) {
    const KvNotification notification{path, {"x", kKvEventSet, nullptr}};
    kvtree_match_notify(&notification, &kChangeTable);
  }
  EXPECT_TRUE(handled().empty());
}

}  // namespace
