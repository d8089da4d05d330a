// Words to nodes and back.
#include <gmock/gmock.h>

#include "platform/config/items.h"
#include "platform/config/test_support.h"
#include "platform/core/text/words.h"

namespace vrf_config {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Type = Target::Type;

constexpr Target kTarget = {Type::kTwoOctetAs, 65000, 100};

// What may follow "vrf NAME", in the order of the items.
std::vector<std::string> words_of_vrfs() {
  std::vector<std::string> words;
  for (const Item& item : all_items()) {
    const Words all = split(item.words);
    if (all[0] == "vrf" && (words.empty() || words.back() != all[2])) words.push_back(all[2]);
  }
  return words;
}

TEST(ConfigurationWords, EachItemIsRead) {
  const std::vector<std::pair<const char*, KvConfigNode>> items = {
      {"vrf red description \"Customer Red\"", description("red", "Customer Red")},
      {"vrf red description Customer Red", description("red", "Customer Red")},
      {"vrf red rd 10.0.0.1:5 ipv6",
       route_distinguisher("red", Family::kIpv6, {Type::kIpv4Address, 0x0a000001, 5})},
      {"vrf red rt import 65000:100 ipv4", route_target("red", Family::kIpv4, Direction::kImport, kTarget)},
      {"vrf red rd 10.0.0.1:5 evpn",
       route_distinguisher("red", Family::kEvpn, {Type::kIpv4Address, 0x0a000001, 5})},
      {"vrf red rt export 65000:100 evpn", route_target("red", Family::kEvpn, Direction::kExport, kTarget)},
      {"vrf red vni 16777215", vni("red", 16777215)},
      {"vrf red policy export ipv6 out", route_policy("red", Family::kIpv6, Direction::kExport, "out")},
      {"vrf red threshold ipv4 100 80", route_threshold("red", Family::kIpv4, 100, 80)},
      {"vrf red bgp 65000 neighbor 192.0.2.1 ipv4", bgp_neighbor("red", 65000, "192.0.2.1", Family::kIpv4)},
      {"vrf red bgp 65000 neighbor ge0 ipv6", bgp_neighbor("red", 65000, "ge0", Family::kIpv6)},
      {"vrf red ospf 1 area 0 interface ge0", ospf_interface("red", "1", 0, "ge0")},
      {"vrf red ospf 1 area 0.0.1.1 interface ge0", ospf_interface("red", "1", 257, "ge0")},
      {"vrf red rip interface ge0", rip_interface("red", "ge0")},
      {"vrf red ripng interface ge0", ripng_interface("red", "ge0")},
      {"vrf red eigrp 100 interface ge0", eigrp_interface("red", 100, "ge0")},
      {"vrf red static 10.1.0.0/16", static_route("red", {Family::kIpv4, "10.1.0.0/16", "", ""})},
      {"vrf red static 2001:db8::/32 interface ge0 via fe80::1",
       static_route("red", {Family::kIpv6, "2001:db8::/32", "ge0", "fe80::1"})},
      {"traps max-thresh-exc", trap_switch("max-thresh-exc", 1)},
      {"traps all", trap_switch("all", 1)},
      {"traps notif-reissue-time 2147483647", trap_switch("notif-reissue-time", 2147483647)},
  };
  for (const auto& [line, node] : items) {
    EXPECT_THAT(shown(read(line)), ElementsAre(shown(node))) << line;
  }
}

TEST(ConfigurationWords, RouteTargetWithoutAFamilyIsForBoth) {
  EXPECT_THAT(shown(read("vrf red rt export 65000:100")),
              ElementsAre(shown(route_target("red", Family::kIpv4, Direction::kExport, kTarget)),
                          shown(route_target("red", Family::kIpv6, Direction::kExport, kTarget))));
  EXPECT_THAT(shown(read("vrf red rt both 65000:100 ipv6")),
              ElementsAre(shown(route_target("red", Family::kIpv6, Direction::kImport, kTarget)),
                          shown(route_target("red", Family::kIpv6, Direction::kExport, kTarget))));
  EXPECT_EQ(read("vrf red rt both 65000:100").size(), 4U);
}

TEST(ConfigurationWords, RouteDistinguisherWithoutAFamilyIsForIpv4) {
  EXPECT_THAT(shown(read("vrf red rd 65000:100")),
              ElementsAre(shown(route_distinguisher("red", Family::kIpv4, kTarget))));
}

TEST(ConfigurationWords, RipAndRipngOfAnInterfaceAreTwoItems) {
  const KvConfigNode rip = rip_interface("red", "ge0/1");
  const KvConfigNode ripng = ripng_interface("red", "ge0/1");
  EXPECT_NE(rip.path, ripng.path);
  EXPECT_EQ(kind_of(rip.path), Kind::kRip);
  EXPECT_EQ(kind_of(ripng.path), Kind::kRipng);
  EXPECT_EQ(interface_of(ripng.path), interface_of(rip.path));
  EXPECT_EQ(kind_of(eigrp_interface("red", 1, "ge0").path), Kind::kEigrp);
}

TEST(ConfigurationWords, WordsOfANodeParseToTheSameNode) {
  for (const char* line : {
           "vrf red description \"Customer Red\"",
           "vrf red description \"\"",
           "vrf \"a b\" description \"say \\\"x\\\" \\\\ \\x0a # caf\xc3\xa9\"",
           "vrf - description -",
           "vrf red description \"#\"",
           "vrf red description \"a\\\"b\"",
           "vrf red description \"a\\\\b\"",
           "vrf red description \"\\x7f\"",
           "vrf vrf description description",
           "vrf red rd 65000:100 ipv4",
           "vrf red rd 10.0.0.1:5 ipv6",
           "vrf red rt import 65000:100 ipv4",
           "vrf red rt export 10.0.0.1:5 ipv6",
           "vrf red rt import 4200000000:30 ipv4",
           "vrf red rd 65000:100 evpn",
           "vrf red rt import 65000:100 evpn",
           "vrf red vni 100",
           "vrf red ripng interface ge0/1",
           "vrf red rt import 0.65000:30 ipv4",
           "vrf red policy import ipv4 in",
           "vrf red policy export ipv6 \"p q\"",
           "vrf red threshold ipv6 4294967295 0",
           "vrf red bgp 4200000000 neighbor 192.0.2.1 ipv6",
           "vrf red bgp 65000 neighbor fe80::1 ipv6",
           "vrf red bgp 65000 neighbor ge0:1 ipv4",
           "vrf red bgp 65000 neighbor default ipv4",
           "vrf red ospf customer area 0.0.0.0 interface ge0",
           "vrf red ospf 1 area 255.255.255.255 interface ge/0/0",
           "vrf red rip interface -",
           "vrf red eigrp 100 interface ge0",
           "vrf red static 10.1.0.0/16",
           "vrf red static 0.0.0.0/0 interface ge0",
           "vrf red static ::/0 via fe80::1",
           "vrf red static 10.1.0.0/16 interface ge0 via 192.0.2.1",
           "bgp as-format asplain",
           "bgp as-format asdot+",
           "traps vrf-up",
           "traps all",
           "traps notif-reissue-time 60",
       }) {
    const std::vector<KvConfigNode> nodes = read(line);
    ASSERT_EQ(nodes.size(), 1U) << line;
    EXPECT_EQ(words_of(nodes.front()), line);
  }
}

TEST(ConfigurationWords, NodesThatWordsCannotExpressHaveNone) {
  KvConfigNode node = route_policy("red", Family::kIpv4, Direction::kImport, "in");
  node.value.type = KvValueType::kNumber;
  EXPECT_EQ(words_of(node), std::nullopt);
  EXPECT_EQ(words_of(rip_interface(std::string(32, 'a'), "ge0")), std::nullopt);
  EXPECT_EQ(words_of(as_format("dot")), std::nullopt);
  node = as_format("asdot");
  node.value = {};
  EXPECT_EQ(words_of(node), std::nullopt);
  EXPECT_EQ(words_of(trap_switch("sideways", 1)), std::nullopt);
  EXPECT_EQ(words_of(trap_switch(kTrapReissueTime, -1)), std::nullopt);
  EXPECT_EQ(words_of(route_threshold("red", Family::kIpv4, 5, 6)), std::nullopt);
  node = route_threshold("red", Family::kIpv4, 5, 4);
  node.value.tuple.push_back(3);
  EXPECT_EQ(words_of(node), std::nullopt);
  EXPECT_EQ(words_of(description("red", std::string("a\0b", 3))), std::nullopt) << "no line has a zero octet";
  node = description("red", "x");
  for (const char* path :
       {"/cfg/gl/vmap/", "/cfg/gl/vmap/vrf/red", "/cfg/gl/vmap/vrf/red/ord_a/vmap/ord_k/vmap/descr/more",
        "/cfg/gl/vmap/vrf/%ZZ/ord_a/vmap/ord_k/vmap/descr", "/cfg/gl/vmap/vrf/-/ord_a/vmap/ord_k/vmap/descr",
        "/cfg/gl/vmap/vrf/red/ord_z/afi_safi/1/2/default/ord_b/bgp/ord_a/rd",
        "/cfg/gl/vmap/vrf/red/ord_z/afi_safi/3/1/default/ord_b/bgp/ord_a/rd", "/cfg/other", ""}) {
    node.path = path;
    EXPECT_EQ(words_of(node), std::nullopt) << path;
  }
}

TEST(ConfigurationWords, ErrorsNameTheWordAndWhatIsExpected) {
  EXPECT_EQ(error_in(""), "expected vrf, bgp or traps");
  EXPECT_EQ(error_in("router red"), "unknown word \"router\"; expected vrf, bgp or traps");
  EXPECT_EQ(error_in("vrf"), "after \"vrf\": expected the VRF");
  const std::string words = text::alternatives(words_of_vrfs());
  EXPECT_THAT(words, StartsWith("description, rd, rt, policy, "));
  EXPECT_EQ(error_in("vrf red"), "after \"vrf red\": expected " + words);
  EXPECT_EQ(error_in("vrf red colour blue"), "unknown word \"colour\"; expected " + words);
  EXPECT_EQ(error_in("vrf red rt in 1:1"), "unknown word \"in\"; expected import, export or both");
  const std::string range =
      "the number after \":\" must be 0-4294967295 (0-65535 after an address or a large AS)";
  for (const char* target : {"65000:4294967296", "4200000000:65536", "10.0.0.1:99999999999", "1.1:70000"}) {
    EXPECT_EQ(error_in("vrf red rt import " + std::string(target)),
              '"' + std::string(target) + "\": " + range);
    EXPECT_EQ(error_in("vrf red rd " + std::string(target)), '"' + std::string(target) + "\": " + range);
  }
  EXPECT_EQ(error_in("vrf red rd 65000:1x"),
            "\"65000:1x\" is not a route distinguisher (65000:1, 10.0.0.1:1)");
  EXPECT_EQ(error_in("vrf red rd none:99999999999"),
            "\"none:99999999999\" is not a route distinguisher (65000:1, 10.0.0.1:1)");
  EXPECT_EQ(error_in("vrf red rt import 1"), "\"1\" is not a route target (65000:1, 10.0.0.1:1)");
  EXPECT_EQ(error_in("vrf red rt import 1:1 ipv5"), "unknown word \"ipv5\"; did you mean \"ipv4\"?");
  EXPECT_EQ(error_in("vrf red policy import evpn in"), "unknown word \"evpn\"; expected ipv4 or ipv6");
  EXPECT_EQ(error_in("vrf red vni 0"), "\"0\" is not a VNI (1 to 16777215)");
  EXPECT_EQ(error_in("vrf red vni 16777216"), "\"16777216\" is not a VNI (1 to 16777215)");
  EXPECT_EQ(error_in("vrf red rt import 1:1 ipv4 now"), "\"now\" is one word too many");
  EXPECT_EQ(error_in("vrf red rd"),
            "after \"vrf red rd\": expected a route distinguisher (65000:1, 10.0.0.1:1)");
  EXPECT_EQ(error_in("vrf red description"), "after \"vrf red description\": expected the text");
  EXPECT_EQ(error_in("vrf red policy both ipv4 x"), "unknown word \"both\"; expected import or export");
  EXPECT_EQ(error_in("vrf red threshold ipv4 10 20"), "the mid threshold 20 is above the maximum of 10");
  EXPECT_EQ(error_in("vrf red threshold ipv4 4294967296 1"), "\"4294967296\" is not the maximum of routes");
  EXPECT_EQ(error_in("vrf red bgp 0 neighbor x ipv4"), "\"0\" is not an AS number");
  EXPECT_EQ(error_in("vrf red bgp 1 neighbour x ipv4"),
            "unknown word \"neighbour\"; did you mean \"neighbor\"?");
  EXPECT_EQ(error_in("vrf red ospf 1 area x interface ge0"), "\"x\" is not an area (0, 0.0.0.0)");
  EXPECT_EQ(error_in("vrf red rip interface"), "after \"vrf red rip interface\": expected the interface");
  EXPECT_EQ(error_in("vrf red rip interface \"\""), "the interface is empty");
  EXPECT_EQ(error_in("vrf red static 10.1.0.0"), "\"10.1.0.0\" is not a prefix (10.1.0.0/16)");
  EXPECT_EQ(error_in("vrf red static 10.1.0.0/33"), "\"10.1.0.0/33\" is not a prefix (10.1.0.0/16)");
  EXPECT_EQ(error_in("vrf red static 10.1.0.1/16"),
            "10.1.0.1/16 has host bits set; did you mean 10.1.0.0/16?");
  EXPECT_EQ(error_in("vrf red static 10.1.0.0/16 via ge0"), "\"ge0\" is not an address");
  EXPECT_EQ(error_in("vrf red static 10.1.0.0/16 10.0.0.1"),
            "unknown word \"10.0.0.1\"; expected interface or via");
  EXPECT_EQ(error_in("bgp 65000"), "unknown word \"65000\"; expected as-format");
  EXPECT_EQ(error_in("bgp as-format"), "after \"bgp as-format\": expected asplain, asdot or asdot+");
  EXPECT_EQ(error_in("bgp as-format dot"), "unknown word \"dot\"; expected asplain, asdot or asdot+");
  EXPECT_EQ(error_in("bgp as-format asdot now"), "\"now\" is one word too many");
  EXPECT_EQ(
      error_in("traps sideways"),
      "unknown word \"sideways\"; expected vrf-up, vrf-down, mid-thresh-exc, max-thresh-exc, ilg-lbl-exc, "
      "max-thresh-clr, all or notif-reissue-time");
  EXPECT_EQ(error_in("traps vrf-up off"), "\"off\" is one word too many");
  EXPECT_EQ(error_in("traps notif-reissue-time 2147483648"),
            "\"2147483648\" is not a time of whole seconds (300, 5m), at most 2147483647");
  EXPECT_EQ(error_in("vrf red low-water ipv4 10 25h"),
            "\"25h\" is not a time of whole seconds (60, 1m), at most 24h");
  for (const char* time : {"1500ms", "1e1", "-1", "nan", "1x", "m"})
    EXPECT_THAT(error_in(std::string("traps notif-reissue-time ") + time), HasSubstr("is not a time"))
        << time;
}

TEST(ConfigurationWords, TimesMayHaveAUnit) {
  EXPECT_THAT(shown(read("traps notif-reissue-time 5m")),
              ElementsAre(shown(trap_switch("notif-reissue-time", 300))));
  EXPECT_THAT(shown(read("traps notif-reissue-time 2000ms")),
              ElementsAre(shown(trap_switch("notif-reissue-time", 2))));
  EXPECT_THAT(shown(read("vrf red low-water ipv4 10 24h")), shown(read("vrf red low-water ipv4 10 86400")));
}

TEST(ConfigurationWords, AbbreviationsAreWrittenOut) {
  const auto whole = [](const char* line) { return join_words(whole_words(split(line))); };
  EXPECT_EQ(whole("v red desc t"), "vrf red description t");
  EXPECT_EQ(whole("vrf red pol imp ipv4 in"), "vrf red policy import ipv4 in");
  EXPECT_EQ(whole("vrf red st 10.1.0.0/16 int ge0 v 192.0.2.1"),
            "vrf red static 10.1.0.0/16 interface ge0 via 192.0.2.1");
  EXPECT_EQ(whole("tr notif 60"), "traps notif-reissue-time 60");
  EXPECT_EQ(whole("vrf rip rip int ge0"), "vrf rip rip interface ge0") << "a word and a name";
  EXPECT_EQ(whole("vrf red r 1:1"), "vrf red r 1:1") << "ambiguous";
  EXPECT_EQ(whole("vrf red descr vrf"), "vrf red description vrf") << "a text is not abbreviated";
  EXPECT_EQ(error_in("vrf red low ipv4 3 2m"),
            "\"low\" abbreviates \"low-water\"; lines of files have whole words");
  EXPECT_EQ(error_in("vrf red r 1:1"), "\"r\" is ambiguous: rd, rt, rip or ripng");
}

TEST(ConfigurationWords, WordsThatEndTooEarlyAreIncomplete) {
  const auto is_incomplete = [](const char* line) {
    const auto result = parse_words(split(line));
    return std::holds_alternative<WordError>(result) && std::get<WordError>(result).is_incomplete;
  };
  for (const char* line : {"", "vrf", "vrf red", "vrf red rt", "vrf red rt import", "vrf red rip interface",
                           "bgp", "bgp as-format", "traps"}) {
    EXPECT_TRUE(is_incomplete(line)) << line;
  }
  for (const char* line :
       {"router", "vrf red colour", "vrf red rt in", "vrf red rip", "vrf red rt import 1:1"}) {
    EXPECT_EQ(is_incomplete(line), std::string(line) == "vrf red rip") << line;
  }
}

TEST(ConfigurationWords, WordsThatMayFollowAreKnown) {
  EXPECT_THAT(words_after({}), ElementsAre("vrf", "bgp", "traps"));
  EXPECT_THAT(words_after({"vrf"}), ElementsAre("NAME"));
  EXPECT_EQ(words_after({"vrf", "red"}), words_of_vrfs());
  EXPECT_THAT(words_after(split("vrf red rt")), ElementsAre("import", "export", "both"));
  EXPECT_THAT(words_after(split("vrf red rt both")), ElementsAre("RT"));
  EXPECT_THAT(words_after(split("vrf red rt both 1:1")), ElementsAre("ipv4", "ipv6", "evpn"));
  EXPECT_THAT(words_after(split("vrf red policy import")), ElementsAre("ipv4", "ipv6"));
  EXPECT_THAT(words_after(split("vrf red bgp 1")), ElementsAre("neighbor"));
  EXPECT_THAT(words_after(split("vrf red static 10.0.0.0/8")), ElementsAre("interface", "via"));
  EXPECT_THAT(words_after(split("vrf red static 10.0.0.0/8 interface")), ElementsAre("INTERFACE"));
  EXPECT_THAT(words_after(split("vrf red static 10.0.0.0/8 interface ge0")), ElementsAre("via"));
  EXPECT_THAT(words_after({"bgp", "as-format"}), ElementsAre("asplain", "asdot", "asdot+"));
  EXPECT_THAT(words_after({"traps"}),
              ElementsAre("vrf-up", "vrf-down", "mid-thresh-exc", "max-thresh-exc", "ilg-lbl-exc",
                          "max-thresh-clr", "all", "notif-reissue-time"));
  for (const char* line :
       {"traps all", "router", "vrf red rt in", "vrf red rt both 1:1 ipv4", "vrf red rt both 1"}) {
    EXPECT_TRUE(words_after(split(line)).empty()) << line;
  }
}

TEST(ConfigurationWords, NamesAreBounded) {
  const std::string longest(31, 'a');
  const std::string longest_interface(63, 'i');
  EXPECT_EQ(error_in("vrf " + longest + " rip interface " + longest_interface), "");
  EXPECT_EQ(error_in("vrf " + longest + "a rip interface ge0"), "the VRF is longer than 31 octets");
  EXPECT_EQ(error_in("vrf red rip interface " + longest_interface + "i"),
            "the interface is longer than 63 octets");
  EXPECT_EQ(error_in("vrf \"\" rip interface ge0"), "the VRF is empty");
  EXPECT_EQ(error_in("vrf red description " + std::string(255, 'x')), "");
  EXPECT_EQ(error_in("vrf red description " + std::string(256, 'x')), "a description has at most 255 octets");
}

TEST(ConfigurationWords, LineIsSplitAtBlanksAndQuotes) {
  EXPECT_THAT(split("  vrf\tred  \"a b\" \"\" \"\\\"\\\\\\x41\"\r"),
              ElementsAre("vrf", "red", "a b", "", "\"\\A"));
  EXPECT_THAT(split("vrf red # not this"), ElementsAre("vrf", "red"));
  EXPECT_THAT(split("vrf re#d \"#\""), ElementsAre("vrf", "re#d", "#"));
  EXPECT_TRUE(split("").empty());
  EXPECT_TRUE(split("  # only this").empty());
}

TEST(ConfigurationWords, OctetsThatAreNotPrintableUtf8AreEscaped) {
  EXPECT_EQ(join_words({"caf\xc3\xa9", "caf\xe9", "\xc2\x9b", "\x01"}),
            "caf\xc3\xa9 \"caf\\xe9\" \"\\xc2\\x9b\" \"\\x01\"");
  EXPECT_THAT(split("\"caf\\xe9\" \"\\xc2\\x9b\""), ElementsAre("caf\xe9", "\xc2\x9b"));
}

TEST(ConfigurationWords, BrokenQuotesAreErrors) {
  EXPECT_EQ(split_error("vrf \"red"), "the quotes do not end");
  EXPECT_EQ(split_error("vrf \"red\\"), "the quotes do not end");
  EXPECT_EQ(split_error("vrf \"red\"blue"), "a blank is missing after the quotes");
  EXPECT_THAT(split_error("vrf re\"d"), HasSubstr("needs double quotes"));
  EXPECT_THAT(split_error("vrf \"\\n\""), HasSubstr("a backslash is before"));
  for (const char* escape : {"\"\\x0\"", "\"\\x00\"", "\"\\xgg\"", "\"\\x"}) {
    EXPECT_THAT(split_error(escape), HasSubstr("hexadecimal")) << escape;
  }
  EXPECT_EQ(split_error(std::string_view("a\0b", 3)), "an octet is 0");
}

TEST(ConfigurationPaths, NameTheirVrf) {
  EXPECT_EQ(vrf_of(description("a b", "x").path), "a b");
  EXPECT_EQ(vrf_of(route_target("red", Family::kIpv4, Direction::kImport, kTarget).path), "red");
  EXPECT_EQ(vrf_of(bgp_neighbor("red", 1, "192.0.2.1", Family::kIpv4).path), "red");
  EXPECT_EQ(vrf_of(rip_interface("red", "ge0").path), "red");
  EXPECT_EQ(vrf_of(ospf_interface("red", "1", 0, "ge0").path), "red");
  EXPECT_EQ(vrf_of(eigrp_interface("red", 1, "ge0").path), "red");
  EXPECT_EQ(vrf_of(static_route("red", {Family::kIpv4, "10.0.0.0/8", "", ""}).path), "red");
  // Words cannot express another table than "default", but its path belongs to the VRF.
  EXPECT_EQ(vrf_of("/cfg/gl/vmap/vrf/red/ord_z/afi_safi/1/2/other/ord_e/rib/table-prefix-limit"), "red");
  EXPECT_EQ(vrf_of(as_format("asdot").path), std::nullopt);
  EXPECT_EQ(vrf_of(trap_switch("vrf-up", 1).path), std::nullopt);
  EXPECT_EQ(vrf_of("/cfg/gl/vmap/vrf/red"), std::nullopt);
  EXPECT_EQ(vrf_of("/oper/rib_threshold/red"), std::nullopt);
}

TEST(ConfigurationPaths, NameTheirRouteTarget) {
  for (const char* text :
       {"65000:100", "65535:4294967295", "10.0.0.1:5", "0.65000:100", "4200000000:30", "4294967295:65535"}) {
    const Target target = parse_target(text).value();
    EXPECT_EQ(route_target_of(route_target("red", Family::kIpv4, Direction::kImport, target).path), target);
    EXPECT_EQ(route_target_of(route_target("a b", Family::kIpv6, Direction::kExport, target).path), target);
  }
  EXPECT_EQ(route_target_of(route_distinguisher("red", Family::kIpv4, kTarget).path), std::nullopt);
  EXPECT_EQ(route_target_of(description("-rt/", "x").path), std::nullopt);
  for (const Family family : kFamiliesOfTargets) {
    const std::string path = route_target("a b", family, Direction::kExport, kTarget).path;
    const std::optional<TargetPath> target = target_path_of(path);
    ASSERT_TRUE(target) << path;
    EXPECT_EQ(target->vrf, "a b");
    EXPECT_EQ(target->family, family);
    EXPECT_EQ(target->direction, Direction::kExport);
    EXPECT_EQ(target->target, kTarget);
    const std::optional<TargetPath> rd = target_path_of(route_distinguisher("red", family, kTarget).path);
    ASSERT_TRUE(rd);
    EXPECT_EQ(rd->vrf, "red");
    EXPECT_EQ(rd->family, family);
    EXPECT_EQ(rd->direction, std::nullopt);
  }
  EXPECT_FALSE(target_path_of(description("-rt/", "x").path));
  EXPECT_FALSE(target_path_of(route_policy("red", Family::kIpv4, Direction::kImport, "rd").path));
  const std::string imported = "/cfg/gl/vmap/vrf/red/ord_z/afi_safi/1/1/default/ord_b/bgp/ord_c/import-rt/";
  for (const char* keys : {"3/0/1/1/0.0.0.0/0/0", "-/0/1/1/0.0.0.0/0/0", "0/1/1/1/0.0.0.0/0/0",
                           "2/65536/1/1/0.0.0.0/0/0", "2/1/-/1/0.0.0.0/0/0", "2/1/1/65536/0.0.0.0/0/0",
                           "1/0/0/0/-/5/0", "1/0/0/0/10.0.0.1/65536/0", "0/0/1/1/0.0.0.0/0"}) {
    EXPECT_EQ(route_target_of(imported + keys), std::nullopt) << keys;
  }
}

TEST(ConfigurationPaths, NameTheirInterface) {
  EXPECT_EQ(interface_of(rip_interface("red", "ge/0").path), "ge/0");
  EXPECT_EQ(interface_of(ospf_interface("red", "1", 0, "ge0").path), "ge0");
  EXPECT_EQ(interface_of(eigrp_interface("red", 1, "ge0").path), "ge0");
  EXPECT_EQ(interface_of(static_route("red", {Family::kIpv4, "10.0.0.0/8", "ge0", ""}).path), "ge0");
  EXPECT_EQ(interface_of(static_route("red", {Family::kIpv4, "10.0.0.0/8", "", "192.0.2.1"}).path),
            std::nullopt);
  EXPECT_EQ(interface_of(bgp_neighbor("red", 1, "ge0", Family::kIpv4).path), std::nullopt);
  EXPECT_EQ(interface_of(description("red", "x").path), std::nullopt);
}

}  // namespace
}  // namespace vrf_config
