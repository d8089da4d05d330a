// Names and descriptions of the kernel may have octets that no router file can have.
#include "cli/export/formats.h"

#include <gmock/gmock.h>

#include <sstream>

namespace cli {
namespace {

using ::testing::HasSubstr;

std::string Exported(const char* format, const VpnInstance& vrf) {
  std::ostringstream out;
  find_export_format(format)->write({.vrfs = {vrf}}, out);
  return out.str();
}

TEST(ExportFormats, CsvFieldWithALineEndOrQuotesIsQuoted) {
  EXPECT_THAT(
      Exported("csv", {.name = "a\nb", .description = "\"\r,\"", .rd = "1:1", .interfaces = {"e0", "e1"}}),
      HasSubstr("\r\n\"a\nb\",1:1,\"\"\"\r,\"\"\",,,e0 e1\r\n"));
}

TEST(ExportFormats, OctetsThatAreNotUtf8AreReplacedInJsonOnly) {
  EXPECT_THAT(Exported("napalm", {.name = "\xff"}), HasSubstr("\"name\":\"\xEF\xBF\xBD\""));
  EXPECT_THAT(Exported("csv", {.name = "\xff"}), HasSubstr("\r\n\xff,"));
}

TEST(ExportFormats, UnknownNameHasNoFormat) {
  EXPECT_EQ(find_export_format("xml"), nullptr);
}

}  // namespace
}  // namespace cli
