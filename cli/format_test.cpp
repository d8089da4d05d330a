// Tables, JSON lists and the names of numbers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "cli/json_list.h"
#include "cli/names.h"
#include "cli/table.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Table, ColumnsLineUp) {
  std::ostringstream out;
  Table table(out, {{"VRF"}, {"INDEX", true}, {"STATUS"}});
  table.add({"red", "7", "active"});
  table.add({"customer-1", "1234567", "-"});
  EXPECT_EQ(out.str(), "") << "rows wait for the rest of their batch";
  table.flush();
  EXPECT_EQ(out.str(),
            "VRF           INDEX  STATUS\n"
            "red               7  active\n"
            "customer-1  1234567  -\n");
}

TEST(Table, LaterBatchKeepsTheColumns) {
  std::ostringstream out;
  Table table(out, {{"NAME"}, {"N", true}});
  table.add({"customer", "10"});
  table.flush();
  out.str("");
  table.add({"a", "1"});
  table.flush();
  EXPECT_EQ(out.str(), "a          1\n");
}

TEST(Table, TitlesComeAgainWhenALaterBatchIsWider) {
  std::ostringstream out;
  Table table(out, {{"NAME"}, {"N", true}});
  table.add({"a", "1"});
  table.flush();
  out.str("");
  table.add({"customer", "1"});
  table.flush();
  EXPECT_EQ(out.str(), "NAME      N\ncustomer  1\n");
}

TEST(Table, TableWithoutRowsShowsItsTitles) {
  std::ostringstream out;
  Table table(out, {{"NAME"}, {"N", true}});
  table.flush();
  EXPECT_EQ(out.str(), "NAME  N\n");
}

TEST(Table, NamesCannotSteerTheTerminal) {
  EXPECT_EQ(printable("\x1b[2Jred\n\x7f"), "\\x1b[2Jred\\x0a\\x7f");
  EXPECT_EQ(printable("a\\x1b"), "a\\\\x1b");
  EXPECT_EQ(printable("caf\xc3\xa9"), "caf\xc3\xa9");
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

TEST(JsonList, ListThatWasCutIsNoJson) {
  std::ostringstream out;
  JsonList(out).add({{"a", 1}});
  EXPECT_FALSE(Json::accept(out.str()));
}

TEST(JsonList, TextThatIsNoUtf8IsReplaced) {
  EXPECT_EQ(json_line("a\xff"), "\"a\xef\xbf\xbd\"");
}

TEST(JsonList, KeysKeepTheirOrder) {
  EXPECT_EQ(json_line({{"z", 1}, {"a", 2}}), "{\"z\":1,\"a\":2}");
}

TEST(Names, ProtocolBitsAreReadFromTheLeft) {
  EXPECT_THAT(protocol_names(0x80), ElementsAre("none"));
  EXPECT_THAT(protocol_names(0x44), ElementsAre("bgp", "static"));
  EXPECT_THAT(protocol_names(0xff),
              ElementsAre("none", "bgp", "ospf", "rip", "isis", "static", "other", "bit7"));
  EXPECT_THAT(protocol_names(0), IsEmpty());
}

TEST(Names, ValuesHaveTheNamesOfTheMib) {
  EXPECT_EQ(classification_name(1), "carrierOfCarrier");
  EXPECT_EQ(classification_name(2), "enterprise");
  EXPECT_EQ(classification_name(3), "interProvider");
  EXPECT_EQ(storage_type_name(1), "other");
  EXPECT_EQ(storage_type_name(5), "readOnly");
  EXPECT_EQ(row_status_name(1), "active");
  EXPECT_EQ(row_status_name(6), "destroy");
  EXPECT_EQ(notification_switch_name(0), "disabled");
  EXPECT_EQ(notification_switch_name(1), "enabled");
}

TEST(Names, NumbersWithoutANameAreShownAsTheyAre) {
  EXPECT_EQ(classification_name(0), "0");
  EXPECT_EQ(classification_name(4), "4");
  EXPECT_EQ(row_status_name(-2147483647 - 1), "-2147483648");
  EXPECT_EQ(storage_type_name(2147483647), "2147483647");
  EXPECT_EQ(notification_switch_name(2), "2");
}

}  // namespace
}  // namespace cli
