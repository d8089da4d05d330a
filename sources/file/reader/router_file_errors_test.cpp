// Every error in a router file is reported with its position, and nothing of the file is used.
#include <gmock/gmock.h>

#include <string>

#include "sources/file/reader/reader_test_support.h"

namespace router_file {
namespace {

using ::testing::StartsWith;

std::string ErrorInVrf(const std::string& keys) {
  return ErrorIn("vrfs:\n  - {" + keys + "}\n");
}
std::string ErrorInInterface(const std::string& keys) {
  return ErrorIn("interfaces:\n  - {" + keys + "}\n");
}

TEST(RouterFileError, TextThatIsNotOneDocumentIsRefused) {
  const std::string expected = "1:1: the file is empty; a router without anything is written \"vrfs: []\"";
  EXPECT_EQ(ErrorIn(""), expected);
  EXPECT_EQ(ErrorIn("# only a comment\n"), expected);
  EXPECT_EQ(ErrorIn("~\n"), expected);
  EXPECT_EQ(ErrorIn("vrfs:\n"), expected);
  EXPECT_EQ(ErrorIn("interfaces:\nvrfs: ~\n"), expected);
  EXPECT_EQ(ErrorIn("vrfs: [\n  {name: red\n"),
            "3:1: did not find expected ',' or '}' while parsing a flow mapping (from 2:3)");
  EXPECT_EQ(ErrorIn("vrfs: []\n---\nvrfs: []\n"), "3:1: a second document; the file is one");
}

TEST(RouterFileError, TabInTheIndentationIsNamed) {
  const std::string what = "found character that cannot start any token while scanning for the next token";
  EXPECT_EQ(ErrorIn("vrfs:\n\t- name: a\n"), "2:1: " + what + "; write blanks instead of the tab");
  EXPECT_EQ(ErrorIn("vrfs: @"), "1:7: " + what);
}

// Other parsers accept these; the messages name the place and what to write.
TEST(RouterFileError, NotationsThatOtherParsersAcceptAreRefusedWithTheirPlace) {
  EXPECT_EQ(
      ErrorIn("vrfs: []\n\t\ninterfaces: []\n"),
      "2:1: found character that cannot start any token while scanning for the next token; write blanks "
      "instead of the tab");
  const std::string colon = "found unexpected ':' while scanning a plain scalar (from 2:";
  const std::string blank = "); write a blank after the colon, or the word in quotes";
  EXPECT_EQ(ErrorInVrf("name:"), "2:10: " + colon + "6" + blank);
  EXPECT_EQ(ErrorInVrf("name: red, table:"), "2:22: " + colon + "17" + blank);
  const std::string value =
      "did not find expected node content while parsing a flow node; a value is missing before this place";
  EXPECT_EQ(ErrorInVrf("name: red, table: 10, route_targets: {both: [65000:1,,65000:2]}"), "2:59: " + value);
  EXPECT_EQ(ErrorIn("vrfs: [,]\n"), "1:8: " + value);
  EXPECT_EQ(ErrorInVrf("name: red,, table: 10"), "2:16: " + value);
}

TEST(RouterFileError, TextThatIsNotUtf8HasAPosition) {
  const std::string what = "; the file is text in UTF-8";
  EXPECT_EQ(ErrorIn("{\xff"), "1:2: invalid leading UTF-8 octet" + what);
  EXPECT_EQ(ErrorIn("vrfs: []\n# \xc3\xa4\xc3\xa4\xc0\n"), "2:6: invalid trailing UTF-8 octet" + what);
  EXPECT_EQ(ErrorIn(std::string("vrfs: []\n\0", 10)), "2:1: control characters are not allowed" + what);
}

std::string Repeated(const std::string& text, std::size_t times) {
  std::string all;
  all.reserve(text.size() * times);
  for (std::size_t each = 0; each < times; ++each) all += text;
  return all;
}

// A parser that keeps all tokens of what could be a key takes gigabytes for these.
TEST(RouterFileError, LongTextInBracketsDoesNotTakeMemoryAsAKey) {
  EXPECT_EQ(ErrorIn(Repeated("[", 1'200'000)), "1:17: more than 16 levels of nesting");
  EXPECT_EQ(ErrorIn("vrfs:\n- [" + Repeated("'a' ", 600'000)),
            "2:8: did not find expected ',' or ']' while parsing a flow sequence (from 2:3)");
  EXPECT_THAT(ErrorIn("vrfs: [" + Repeated("a, ", 3000) + "\n[" + Repeated("a,", 1'100'000) + "]]"),
              StartsWith("1:8: a VRF is written as keys"));
  EXPECT_EQ(ErrorIn("[" + Repeated("a,", 1'100'000) + "]: b"),
            "1:2200003: mapping values are not allowed in this context");
}

// The parser compares each of these lines with all before it.
TEST(RouterFileError, TagDirectivesAreBounded) {
  EXPECT_EQ(ErrorIn(Repeated("%TAG !a! tag:x\n", 1'000'000) + "---\nvrfs: []\n"),
            "1:1: more than 100 times \"%TAG\"; remove these directives");
}

TEST(RouterFileError, AliasesCountAsAllTheyReferTo) {
  const std::string list = "vrfs: &a [" + Repeated("a,", 9999) + "a]\n";  // 10,001 values
  EXPECT_EQ(ErrorIn(list + "interfaces: [" + Repeated("*a,", 700) + "]\n"),
            "2:1808: the file has more than 6000000 values");
  EXPECT_THAT(ErrorIn(list + "interfaces: *a\n"), StartsWith("1:11: a VRF is written as keys"));
  EXPECT_EQ(ErrorIn("vrfs: &a [*a]\n"), "1:11: an alias refers to a value that contains it");
  EXPECT_EQ(ErrorIn("vrfs: *a\ninterfaces: &a []\n"), "1:7: no value above has the anchor of this alias");
}

TEST(RouterFileError, NestingIsBounded) {
  EXPECT_EQ(ErrorIn("vrfs: " + Repeated("[", 100) + Repeated("]", 100)),
            "1:22: more than 16 levels of nesting");
}

TEST(RouterFileError, KeysAreKnownAndWrittenOnce) {
  EXPECT_EQ(ErrorIn("vrf: []\n"),
            "1:1: a router file has no key \"vrf\"; did you mean \"vrfs\"? the keys are vrfs, interfaces, "
            "generate, as_format, traps");
  EXPECT_EQ(
      ErrorInVrf("name: red, colour: red"),
      "2:17: a VRF has no key \"colour\"; the keys are name, id, table, tables, description, rd, big, state, "
      "routes, route_targets, policies, thresholds, bgp, ospf, rip, eigrp, static");
  EXPECT_EQ(ErrorInVrf("name: red, tables: {ipv5: 1}"),
            "2:26: tables has no key \"ipv5\"; did you mean \"ipv4\"? the keys are ipv4, ipv6, "
            "ipv4-multicast, ipv6-multicast");
  EXPECT_EQ(
      ErrorInInterface("name: ge0, mtu: 9000"),
      "2:17: an interface has no key \"mtu\"; the keys are name, index, description, state, addresses, vrf");
  EXPECT_EQ(ErrorIn("generate: {interfaces: 1}\n"),
            "1:12: generate has no key \"interfaces\"; the keys are vrfs, interfaces_per_vrf, first_id, "
            "first_index, routes_per_vrf");
  EXPECT_EQ(ErrorInVrf("name: red, id: 2, id: 3"), "2:24: the key \"id\" is written twice");
  EXPECT_EQ(ErrorIn("? [a]\n: b\n"), "1:3: a key of a router file is one word");
}

TEST(RouterFileError, WrongTypesAreRefused) {
  EXPECT_EQ(ErrorIn("- a\n"),
            "1:1: a router file is written as keys with values; the keys are vrfs, interfaces, generate, "
            "as_format, traps");
  EXPECT_EQ(ErrorIn("vrfs: red\n"), "1:7: VRFs are written as a list");
  EXPECT_EQ(ErrorIn("vrfs: {name: red}\n"), "1:7: VRFs are written as a list");
  EXPECT_EQ(ErrorInVrf("name: [red]"), "2:12: a VRF's name is a text");
  EXPECT_EQ(ErrorInVrf("name: "), "2:12: a VRF's name is a text");
  EXPECT_EQ(ErrorInVrf("name: red, id: [1]"), "2:21: a VRF's id is a number from 2 to 4294967295");
  EXPECT_EQ(ErrorInVrf("name: red, id: '7'"), "2:21: a VRF's id is a number from 2 to 4294967295");
  EXPECT_EQ(ErrorInVrf("name: red, big: yes"), "2:22: big is true or false, not \"yes\"");
  EXPECT_EQ(ErrorInInterface("name: ge0, addresses: 10.0.0.1/24"), "2:28: addresses are written as a list");
}

TEST(RouterFileError, NumbersOutOfRangeAreRefused) {
  EXPECT_EQ(ErrorInVrf("name: red, id: 1"), "2:21: a VRF's id is a number from 2 to 4294967295, not \"1\"");
  EXPECT_EQ(ErrorInVrf("name: red, id: 4294967296"),
            "2:21: a VRF's id is a number from 2 to 4294967295, not \"4294967296\"");
  EXPECT_EQ(ErrorInVrf("name: red, id: 0x10"),
            "2:21: a VRF's id is a number from 2 to 4294967295, not \"0x10\"");
  EXPECT_EQ(ErrorInVrf("name: red, table: 0"), "2:24: a table is a number from 1 to 4294967295, not \"0\"");
  EXPECT_EQ(ErrorInInterface("name: ge0, index: 0"),
            "2:24: an interface's index is a number from 1 to 2147483647, not \"0\"");
  EXPECT_EQ(ErrorInInterface("name: ge0, index: -1"),
            "2:24: an interface's index is a number from 1 to 2147483647, not \"-1\"");
  EXPECT_EQ(ErrorInInterface("name: ge0, index: 2147483648"),
            "2:24: an interface's index is a number from 1 to 2147483647, not \"2147483648\"");
}

TEST(RouterFileError, NamesAndDescriptionsAreBoundedLines) {
  EXPECT_EQ(ErrorInVrf("name: " + std::string(32, 'v') + ", id: 2"),
            "2:12: a VRF's name has 32 octets, more than 31");
  EXPECT_EQ(ErrorInVrf("name: '', id: 2"), "2:12: \"\" is not a VRF name");
  EXPECT_EQ(ErrorInVrf("name: \"a\\0b\", id: 2"),
            "2:12: a VRF's name is one line without control characters");
  EXPECT_EQ(ErrorInInterface("name: " + std::string(64, 'i') + ", index: 2"),
            "2:12: an interface's name has 64 octets, more than 63");
  EXPECT_EQ(ErrorInInterface("name: ge0, index: 2, vrf: " + std::string(32, 'v')),
            "2:32: a VRF's name has 32 octets, more than 31");
  EXPECT_EQ(ErrorInVrf("name: red, id: 2, description: \"a\\nb\""),
            "2:37: a description is one line without control characters");
  EXPECT_EQ(ErrorInVrf("name: red, id: 2, description: " + std::string(256, 'd')),
            "2:37: a description has 256 octets, more than 255");
}

TEST(RouterFileError, DefaultVrfCannotBeWritten) {
  EXPECT_EQ(ErrorInVrf("name: default, id: 2"), "2:12: the VRF \"default\" exists always");
}

TEST(RouterFileError, MissingKeysAreNamed) {
  EXPECT_EQ(ErrorInVrf("id: 2"), "2:5: a VRF needs a name");
  EXPECT_EQ(ErrorInVrf("name: red"), "2:5: the VRF \"red\" needs an id or a table");
  EXPECT_EQ(ErrorInVrf("name: red, tables: {}"), "2:5: the VRF \"red\" needs an id or a table");
  EXPECT_EQ(ErrorInInterface("index: 2"), "2:5: an interface needs a name");
  EXPECT_EQ(ErrorInInterface("name: ge0"), "2:5: the interface \"ge0\" needs an index");
  EXPECT_EQ(ErrorIn("generate: {vrfs: 1}\n"), "1:11: generate needs vrfs and interfaces_per_vrf");
}

TEST(RouterFileError, TableOrTablesGiveAnId) {
  EXPECT_EQ(ErrorInVrf("name: red, table: 2, tables: {ipv4: 2}"),
            "2:35: a VRF has a table or tables, not both");
  EXPECT_EQ(ErrorInVrf("name: red, tables: {ipv4: 2}, table: 2"),
            "2:43: a VRF has a table or tables, not both");
  EXPECT_EQ(ErrorInVrf("name: red, table: 1"),
            "2:24: table 1 gives no id (1 is the id of \"default\"): write an id");
}

TEST(RouterFileError, ReferencedVrfHasNoIdentity) {
  for (const char* key : {"id: 2", "table: 2", "tables: {}", "big: false", "routes: []"}) {
    EXPECT_EQ(
        ErrorInVrf("name: later, state: referenced, " + std::string(key)),
        "2:5: the VRF \"later\" is only named: it has configuration, but no id, no tables and no routes");
  }
}

TEST(RouterFileError, UnknownStatesAreRefused) {
  EXPECT_EQ(ErrorInVrf("name: red, state: deleted"),
            "2:24: a VRF's state is one of created, referenced, not \"deleted\"");
  EXPECT_EQ(ErrorInInterface("name: ge0, state: UP"),
            "2:24: an interface's state is one of down, up, not \"UP\"");
}

TEST(RouterFileError, BadRouteDistinguisherIsRefused) {
  EXPECT_EQ(ErrorInVrf("name: red, rd: '65000'"),
            "2:21: \"65000\" is not a route distinguisher such as 65000:100 or 192.0.2.1:100");
  EXPECT_EQ(
      ErrorInVrf("name: red, rd: '192.0.2.1:65536'"),
      "2:21: \"192.0.2.1:65536\": the number after \":\" must be 0-4294967295 (0-65535 after an address "
      "or a large AS)");
}

TEST(RouterFileError, AddressesAreValidAndWrittenOnce) {
  for (const char* text : {"10.0.0.1/33", "10.0.0/24", "2001:db8::1/129", "ge1"}) {
    EXPECT_EQ(ErrorInInterface("name: ge0, addresses: ['" + std::string(text) + "']"),
              "2:29: \"" + std::string(text) + "\" is not an address such as 192.0.2.1/24 or 2001:db8::1/64");
  }
  EXPECT_EQ(ErrorInInterface("name: ge0, addresses: [10.0.0.1/24, 10.0.0.1/30]"),
            "2:42: the address \"10.0.0.1/30\" is written twice");
}

TEST(RouterFileError, DuplicatesNameTheLineOfTheFirst) {
  EXPECT_EQ(ErrorIn("vrfs:\n- {name: red, id: 2}\n- {id: 3, name: red}\n"),
            "3:17: the VRF name \"red\" is used already, in line 2");
  EXPECT_EQ(ErrorIn("vrfs:\n- {name: red, id: 2}\n- {name: red, state: referenced}\n"),
            "3:10: the VRF name \"red\" is used already, in line 2");
  EXPECT_EQ(ErrorIn("vrfs:\n- {name: a, id: 2}\n- {name: b, table: 2}\n"),
            "3:20: the VRF id 2 (taken from the table) is used already, in line 2; write an id");
  EXPECT_EQ(ErrorIn("vrfs:\n- {name: a, id: 2}\n- {name: b, id: 2}\n"),
            "3:17: the VRF id 2 is used already, in line 2");
  EXPECT_EQ(ErrorIn("interfaces:\n- {name: a, index: 2}\n- {name: a, index: 3}\n"),
            "3:10: the interface name \"a\" is used already, in line 2");
  EXPECT_EQ(ErrorIn("interfaces:\n- {name: a, index: 2}\n- {name: b, index: 2}\n"),
            "3:20: the interface index 2 is used already, in line 2");
}

TEST(RouterFileError, GeneratedEntriesClashWithWrittenOnes) {
  EXPECT_EQ(ErrorIn("vrfs: [{name: customer-00001, id: 2}]\ngenerate: {vrfs: 1, interfaces_per_vrf: 0}\n"),
            "2:11: the VRF name \"customer-00001\" is used already, in line 1");
  EXPECT_EQ(ErrorIn("interfaces: [{name: a, index: 9}]\n"
                    "generate: {vrfs: 1, interfaces_per_vrf: 1, first_index: 9}\n"),
            "2:11: the interface index 9 is used already, in line 1");
}

TEST(RouterFileError, GeneratorIsBounded) {
  EXPECT_EQ(ErrorIn("generate: {vrfs: 100001, interfaces_per_vrf: 1}\n"),
            "1:18: the number of generated VRFs is a number from 0 to 100000, not \"100001\"");
  EXPECT_EQ(ErrorIn("generate: {vrfs: 100000, interfaces_per_vrf: 11}\n"),
            "1:11: generate makes 1100000 interfaces, more than 1000000");
  EXPECT_EQ(ErrorIn("generate: {vrfs: 1, interfaces_per_vrf: 2, first_index: 2147483647}\n"),
            "1:11: generate passes the largest index");
}

TEST(RouterFileError, DeepNestingIsRefusedWithoutACrash) {
  EXPECT_NE(ErrorIn(std::string(100'000, '[')), "");
}

}  // namespace
}  // namespace router_file
