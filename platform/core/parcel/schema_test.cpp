// Schema texts: what parses and what is refused.
#include "platform/core/parcel/schema.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace parcel_detail;

Schema parsed(const char* text) {
  Schema schema;
  EXPECT_EQ(parse_schema(text, &schema), kStatusOk) << text;
  return schema;
}

TEST(Schema, EveryTypeCodeIsItsFieldKind) {
  const Schema schema = parsed("$9=sdDCbeya($2)24a(C);$2=s;");
  ASSERT_EQ(schema.structures.size(), 2U);
  EXPECT_EQ(schema.structures[0].number, 9U);
  const std::vector<FieldKind> expected = {
      FieldKind::kText,   FieldKind::kSigned,     FieldKind::kUnsigned,
      FieldKind::kOctet,  FieldKind::kBoolean,    FieldKind::kEnumeration,
      FieldKind::kOctets, FieldKind::kStructures, FieldKind::kOctetArray};
  std::vector<FieldKind> kinds;
  for (const SchemaField& field : schema.structures[0].fields) kinds.push_back(field.kind);
  EXPECT_EQ(kinds, expected);
  EXPECT_EQ(schema.structures[0].fields[7].nested, 1U);
  EXPECT_EQ(schema.structures[0].fields[8].max, 24U);
}

TEST(Schema, AnnotationsGiveNamesAndEnumerations) {
  const Schema schema = parsed("$1={RouteTargetType}[mpls_vpn_rt_type]e{RouteTargetValue}s;");
  EXPECT_EQ(schema.structures[0].fields[0].name, "RouteTargetType");
  EXPECT_EQ(schema.structures[0].fields[0].enumeration, "mpls_vpn_rt_type");
  EXPECT_EQ(schema.structures[0].fields[1].name, "RouteTargetValue");
}

class BadSchema : public testing::TestWithParam<const char*> {};

TEST_P(BadSchema, IsRefused) {
  Schema schema;
  EXPECT_EQ(parse_schema(GetParam(), &schema), kStatusBadDescription);
  EXPECT_TRUE(schema.structures.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Texts, BadSchema,
    testing::Values("", "$", "$1", "$1=", "$1=;", "$0=s;", "$1=s", "$1=x;", "$1=s;rest", "1=s;", "$1={}s;",
                    "$1={a s;", "$1={a b}s;", "$1={a};", "$1=[t]d;", "$1=[]e;", "$1=a(C);", "$1=0a(C);",
                    "$1=4a(D);", "$1=a($);", "$1=a($2);", "$1=a($2;$2=s;", "$1=s;$1=d;", "$1=a($1);",
                    "$1=a($2);$2=a($1);", "$99999999999=s;", "$1=99999999999a(C);",
                    "$1=a($2);$2=a($3);$3=a($4);$4=a($5);$5=a($6);$6=a($7);$7=a($8);$8=a($9);$9=s;"));

TEST(Schema, NestingUpToItsBoundIsAccepted) {
  parsed("$1=a($2);$2=a($3);$3=a($4);$4=a($5);$5=a($6);$6=a($7);$7=a($8);$8=s;");
  parsed("$8=a($7);$7=a($6);$6=s;$9=a($8);");
}

TEST(Schema, TextBeyondItsBoundIsRefused) {
  std::string text = "$1=";
  text.append(kMaxSchemaText, 's');
  Schema schema;
  EXPECT_EQ(parse_schema(text + ";", &schema), kStatusBadDescription);
}

}  // namespace
