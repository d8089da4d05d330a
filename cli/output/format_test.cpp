// Tables, JSON lists, the names of numbers, times and addresses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "cli/output/address.h"
#include "cli/output/details.h"
#include "cli/output/json_list.h"
#include "cli/output/names.h"
#include "cli/output/row_writer.h"
#include "cli/output/table.h"
#include "cli/output/times.h"
#include "cli/output/wrap.h"
#include "platform/core/base/clock.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Table, ColumnsLineUp) {
  std::ostringstream out;
  Table table(out, {{"VRF"}, {"INDEX", true}, {"STATUS"}});
  table.add({"red", "7", "active"});
  table.flush();
  table.add({"customer-1", "1234567", "-"});
  EXPECT_EQ(out.str(), "") << "rows wait for the widths of the columns";
  table.end();
  EXPECT_EQ(out.str(),
            "VRF           INDEX  STATUS\n"
            "red               7  active\n"
            "customer-1  1234567  -\n");
}

TEST(Table, LongTableHasItsTitlesOnceAndAWiderCellMovesOnlyItsLine) {
  std::ostringstream out;
  Table table(out, {{"NAME"}, {"N", true}, {"STATUS"}});
  for (int row = 0; row < 1000; ++row) table.add({"abcde", "1", "up"});
  table.flush();
  EXPECT_NE(out.str(), "") << "a long table does not wait for its end";
  out.str("");
  table.add({"a", "1", "up"});
  table.add({"customer", "10", "up"});
  table.add({"b", "2", "up"});
  table.end();
  EXPECT_EQ(out.str(),
            "a      1  up\n"
            "customer  10  up\n"
            "b      2  up\n");
}

TEST(Table, TableWithoutRowsShowsItsTitles) {
  std::ostringstream out;
  Table table(out, {{"NAME"}, {"N", true}});
  table.end();
  EXPECT_EQ(out.str(), "NAME  N\n");
}

TEST(Table, ColumnsOfNamesBeyondAsciiLineUp) {
  std::ostringstream out;
  Table table(out, {{"NAME"}, {"N"}});
  table.add({"caf\xc3\xa9s", "1"});
  table.add({"house", "2"});
  table.end();
  EXPECT_EQ(out.str(), "NAME   N\ncaf\xc3\xa9s  1\nhouse  2\n");
}

TEST(Table, LinesEndAtTheWidthOfTheTerminal) {
  std::ostringstream out;
  Terminal terminal;
  terminal.width = 16;
  {
    Table table(out, {{"NAME"}, {"DESCRIPTION"}}, &terminal);
    table.add({"red", "ten cafes, \xc3\xa9t\xc3\xa9"});
    table.add({"a-name-that-is-too-long", "none"});
  }
  EXPECT_EQ(out.str(), "NAME\nred\na-name-that-i...\n");
}

TEST(Table, DescriptionIsCutAtTheWidthOfTheTerminal) {
  std::ostringstream out;
  Terminal terminal;
  terminal.width = 16;
  Table table(out, {{"NAME"}, {"DESCRIPTION"}}, &terminal);
  table.add({"red", "\xc3\xa9t\xc3\xa9 and winter"});
  table.end();
  EXPECT_EQ(out.str(), "NAME  DESCRIP...\nred   \xc3\xa9t\xc3\xa9 and...\n");
}

TEST(Table, ColumnsWithoutRoomAreNamed) {
  std::ostringstream out;
  Terminal terminal;
  terminal.width = 17;
  Table table(out, {{"NAME"}, {"STATE"}, {"DESCRIPTION"}, {"N"}}, &terminal);
  table.add({"red", "down", "head office", "1"});
  table.end();
  EXPECT_EQ(out.str(), "NAME  STATE\nred   down\nnot shown in 17\ncolumns:\nDESCRIPTION, N\n");
}

TEST(Table, StatesHaveColorsOnATerminalThatHasThem) {
  std::ostringstream out;
  Terminal terminal;
  terminal.has_colors = true;
  Table table(out, {{"NAME"}, state("STATE"), {"N"}}, &terminal);
  table.add({"down", "up", "1"});
  table.add({"up", "down", "2"});
  table.add({"up", "-", "3"});
  table.end();
  EXPECT_EQ(out.str(),
            "NAME  STATE  N\n"
            "down  \x1b[32mup   \x1b[0m  1\n"
            "up    \x1b[31mdown \x1b[0m  2\n"
            "up    -      3\n");
}

TEST(Table, NamesCannotSteerTheTerminal) {
  EXPECT_EQ(printable("\x1b[2Jred\n\x7f"), "\\x1b[2Jred\\x0a\\x7f");
  EXPECT_EQ(printable("a\\x1b"), "a\\\\x1b");
  EXPECT_EQ(printable("caf\xc3\xa9"), "caf\xc3\xa9");
}

TEST(Table, OctetsThatAreNotUtf8AreShownAsNumbers) {
  EXPECT_EQ(printable("caf\xe9"), "caf\\xe9");
  EXPECT_EQ(printable("\x9b"
                      "2J"),
            "\\x9b"
            "2J");
  EXPECT_EQ(printable("\xc2\x9b"
                      "2J"),
            "\\xc2\\x9b"
            "2J")
      << "U+009B begins a control sequence, too";
}

TEST(Table, ColumnOfQuotedTextsKeepsItsBackslashes) {
  std::ostringstream out;
  Table table(out, {{"NAME"}, {"WORDS", false, Backslashes::kUnchanged}});
  table.add({"a\\b", "\"a\\\\b\"\n"});
  table.end();
  EXPECT_EQ(out.str(), "NAME  WORDS\na\\\\b  \"a\\\\b\"\\x0a\n");
}

struct Port {
  char* name;
  std::int32_t state;
};

std::string state_name(std::int32_t state) {
  return state == 1 ? "up" : "down";
}

constexpr Column<Port> kPortColumns[] = {
    {"state", member_json<&Port::state>},
    {"name", member_json<&Port::name>, {"PORT"}, member_or_dash<&Port::name>},
    {.cell = {"STATE"}, .text = [](const Port& port) { return state_name(port.state); }},
    {"number", member_json<&Port::state>, number("NUMBER")},
};

class ColumnsOutput : public ::testing::Test {
 protected:
  std::string Written(bool json) {
    std::ostringstream out;
    const Session session{out, out, json, "", "", ""};
    RowWriter<Port> writer(session, kPortColumns);
    writer.add({name_, 1});
    writer.add({nullptr, 2});
    writer.flush();
    writer.end();
    return out.str();
  }
  char name_[4] = "ge0";
};

TEST_F(ColumnsOutput, TableHasTheColumnsWithATitleInTheirOrder) {
  EXPECT_EQ(Written(false), "PORT  STATE  NUMBER\nge0   up          1\n-     down        2\n");
}

TEST_F(ColumnsOutput, JsonHasTheKeysInTheOrderOfTheColumns) {
  EXPECT_EQ(Written(true),
            "[\n{\"state\":1,\"name\":\"ge0\",\"number\":1},\n"
            "{\"state\":2,\"name\":\"\",\"number\":2}\n]\n");
}

TEST(Details, LinesAreBelowEachOtherAndWordsFillLines) {
  std::ostringstream out;
  Details details(out, 2, 12);
  details.lines("state", {"up", "second line"});
  details.words("words", Lines(20, "12345"));
  details.lines("nothing", {});
  const std::string row =
      "12345 12345 12345 12345 12345 12345 12345 12345 12345 12345 12345 12345 12345 12345";
  EXPECT_EQ(out.str(), "  state     up\n            second line\n  words     " + row + "\n            " +
                           "12345 12345 12345 12345 12345 12345\n  nothing   -\n");
}

TEST(Details, TextsAreBrokenAtTheWidthOfTheTerminal) {
  std::ostringstream out;
  Details details(out, 2, 12, 34);
  details.line("reason", "the first words, and the others below them");
  details.words("words", Lines(6, "12345"));
  details.line("path", "/a/path/that/is/longer/than/the/terminal");
  EXPECT_EQ(out.str(),
            "  reason    the first words, and\n            the others below them\n"
            "  words     12345 12345 12345\n            12345 12345 12345\n"
            "  path      /a/path/that/is/longer/than/the/terminal\n");
}

TEST(Details, TextsWithoutRoomBesideTheirLabelAreBelowIt) {
  std::ostringstream out;
  Details details(out, 2, 12, 26);
  details.line("state", "up");
  details.line("reason", "the first words, and the others");
  details.words("words", Lines(6, "12345"));
  EXPECT_EQ(out.str(),
            "  state     up\n"
            "  reason\n"
            "    the first words, and\n"
            "    the others\n"
            "  words\n"
            "    12345 12345 12345\n"
            "    12345 12345 12345\n");
}

TEST(Details, CharactersOfAnyScriptTakeOneColumn) {
  std::ostringstream out;
  Details(out, 2, 12, 34).line("text", "однадвіт рич отири пять шість");
  EXPECT_EQ(out.str(),
            "  text      однадвіт рич отири\n"
            "            пять шість\n");
  EXPECT_EQ(wrapped("одна два три\nx  чотири пять", 8), "одна два\nтри\nx  чотири\n   пять\n");
}

TEST(JsonList, ItemsAreOneALine) {
  std::ostringstream out;
  JsonList list(out);
  list.add({{"a", 1}});
  list.add({{"b", "x"}});
  list.end();
  EXPECT_EQ(out.str(), "[\n{\"a\":1},\n{\"b\":\"x\"}\n]\n");
}

TEST(JsonList, EmptyListIsAnEmptyArray) {
  std::ostringstream out;
  JsonList(out).end();
  EXPECT_EQ(out.str(), "[]\n");
}

TEST(JsonList, ListThatIsCutShortIsClosed) {
  std::ostringstream out;
  JsonList(out).add({{"a", 1}});
  EXPECT_EQ(Json::parse(out.str()), Json::parse(R"([{"a": 1}])"));
}

TEST(JsonList, TextThatIsNotUtf8IsReplaced) {
  EXPECT_EQ(json_line("a\xff"), "\"a\xef\xbf\xbd\"");
}

TEST(JsonList, KeysKeepTheirOrder) {
  EXPECT_EQ(json_line({{"z", 1}, {"a", 2}}), "{\"z\":1,\"a\":2}");
}

TEST(Names, ProtocolBitsAreReadFromTheLeft) {
  EXPECT_THAT(bit_names(mib::kProtocols, 0x80), ElementsAre("none"));
  EXPECT_THAT(bit_names(mib::kProtocols, 0x44), ElementsAre("bgp", "static"));
  EXPECT_THAT(bit_names(mib::kProtocols, 0xff),
              ElementsAre("none", "bgp", "ospf", "rip", "isis", "static", "other", "bit7"));
  EXPECT_THAT(bit_names(mib::kProtocols, 0), IsEmpty());
}

TEST(Names, ValuesHaveTheNamesOfTheMib) {
  EXPECT_EQ(name_of(mib::kClassification, 1), "carrierOfCarrier");
  EXPECT_EQ(name_of(mib::kClassification, 2), "enterprise");
  EXPECT_EQ(name_of(mib::kClassification, 3), "interProvider");
  EXPECT_EQ(name_of(mib::kStorageType, 1), "other");
  EXPECT_EQ(name_of(mib::kStorageType, 5), "readOnly");
  EXPECT_EQ(name_of(mib::kRowStatus, 1), "active");
  EXPECT_EQ(name_of(mib::kRowStatus, 6), "destroy");
  EXPECT_EQ(name_of(mib::kTruthValue, 0), "disabled");
  EXPECT_EQ(name_of(mib::kTruthValue, 1), "enabled");
}

TEST(Names, NumbersWithoutANameAreShownAsTheyAre) {
  EXPECT_EQ(name_of(mib::kClassification, 0), "0");
  EXPECT_EQ(name_of(mib::kClassification, 4), "4");
  EXPECT_EQ(name_of(mib::kRowStatus, -2147483647 - 1), "-2147483648");
  EXPECT_EQ(name_of(mib::kStorageType, 2147483647), "2147483647");
  EXPECT_EQ(name_of(mib::kTruthValue, 2), "2");
}

TEST(Names, RoutesAndFamiliesHaveTheNamesOfTheMibs) {
  EXPECT_EQ(name_of(mib::kVrfStatus, 1), "up");
  EXPECT_EQ(name_of(mib::kVrfStatus, 2), "down");
  EXPECT_EQ(name_of(mib::kVrfStatus, 3), "testing");
  EXPECT_EQ(name_of(mib::kRouteTargetType, 1), "import");
  EXPECT_EQ(name_of(mib::kRouteTargetType, 3), "both");
  EXPECT_EQ(name_of(mib::kInetAddressType, 0), "unknown");
  EXPECT_EQ(name_of(mib::kInetAddressType, 2), "ipv6");
  EXPECT_EQ(name_of(mib::kRouteType, 1), "other");
  EXPECT_EQ(name_of(mib::kRouteType, 5), "blackhole");
  EXPECT_EQ(name_of(mib::kRouteProtocol, 3), "static");
  EXPECT_EQ(name_of(mib::kRouteProtocol, 8), "rip");
  EXPECT_EQ(name_of(mib::kRouteProtocol, 13), "ospf");
  EXPECT_EQ(name_of(mib::kRouteProtocol, 14), "bgp");
  EXPECT_EQ(name_of(mib::kRouteProtocol, 16), "eigrp");
  EXPECT_EQ(name_of(mib::kRouteProtocol, 19), "dhcp");
  EXPECT_EQ(name_of(mib::kRouteProtocol, 99), "99");
  EXPECT_EQ(afi_name(2), "ipv6");
  EXPECT_EQ(afi_name(4294967295U), "4294967295");
  EXPECT_EQ(safi_name(2), "multicast");
  EXPECT_EQ(safi_name(133), "flow");
  EXPECT_EQ(afi_name(25) + " " + safi_name(70), "l2vpn evpn");
  EXPECT_EQ(safi_name(128), "128");
}

TEST(Times, DurationsAreShortTexts) {
  EXPECT_EQ(duration_text(0), "00:00:00");
  EXPECT_EQ(duration_text(86'399), "23:59:59");
  EXPECT_EQ(duration_text(86'400), "1d00h");
  EXPECT_EQ(duration_text(4'294'967'295U), "49710d06h");
}

TEST(Times, LocalTimeIsThatOfTheTimeZone) {
  setenv("TZ", "EST5", 1);
  EXPECT_EQ(local_time_text(1'700'000'000), "2023-11-14 17:13:20 EST");
  setenv("TZ", "UTC0", 1);
  EXPECT_EQ(local_time_text(1'700'000'000), "2023-11-14 22:13:20 UTC");
  EXPECT_EQ(local_time_text(0), "-");
}

TEST(Times, AgeOfAFutureTimeIsZero) {
  const ManualClock clock(1'700'000'000ULL * kNanosecondsPerSecond);
  EXPECT_EQ(age_text(1'699'999'940), "00:01:00");
  EXPECT_EQ(age_text(1'700'000'060), "00:00:00");
  EXPECT_EQ(age_text(0), "-");
}

TEST(Addresses, PrefixesAreShortenedToTheirBits) {
  const Prefix address = parse_prefix("10.255.255.255");
  EXPECT_TRUE(address.is_address);
  EXPECT_EQ(address_text(address.shortened(9).octets()), "10.128.0.0");
  EXPECT_EQ(address_text(address.shortened(0).octets()), "0.0.0.0");
  EXPECT_EQ(address_text(address.shortened(32).octets()), "10.255.255.255");
  EXPECT_EQ(address_text(parse_prefix("ffff:ffff::1").shortened(17).octets()), "ffff:8000::");
}

TEST(Addresses, OctetsOfAnotherSizeAreDigits) {
  const std::vector<std::uint8_t> octets = {0xab, 0x01, 0};
  EXPECT_EQ(address_text(octets), "ab0100");
  EXPECT_EQ(address_text({}), "");
}

}  // namespace
}  // namespace cli
