// Schema texts and descriptions: what parses, what is refused, and the agreement of the three forms.
#include "platform/core/parcel/schema.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/core/parcel/parcel.h"
#include "platform/core/parcel/test_records.h"

namespace {

using namespace parcel_detail;
using test_records::kEverything;

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

class DescriptionTest : public testing::Test {
 protected:
  // The good description, in parts that a test may spoil.
  ParcelDescription Description() {
    layout_ = {structures_, 3};
    ParcelDescription description = kEverything;
    description.layout = &layout_;
    return description;
  }
  Status Check() {
    const ParcelDescription description = Description();
    return parcel_check_description(&description);
  }

  // The nested structures are not in the order of the schema text, which is allowed.
  const ParcelStructLayout* generated_ = kEverything.layout->structures;
  std::vector<std::uint32_t> offsets_{generated_[0].offsets,
                                      generated_[0].offsets + generated_[0].offset_count};
  ParcelStructLayout structures_[3] = {
      {7, 88, offsets_.data(), static_cast<std::uint32_t>(offsets_.size())}, generated_[2], generated_[1]};
  ParcelLayout layout_{};
};

TEST_F(DescriptionTest, GoodDescriptionPasses) {
  EXPECT_EQ(Check(), kStatusOk);
}

TEST_F(DescriptionTest, AnyWrongOffsetIsRefused) {
  for (std::uint32_t& offset : offsets_) {
    offset += 4;
    EXPECT_EQ(Check(), kStatusBadDescription);
    offset -= 4;
  }
  EXPECT_EQ(Check(), kStatusOk);
}

TEST_F(DescriptionTest, WrongSizeIsRefused) {
  structures_[0].size = 96;
  EXPECT_EQ(Check(), kStatusBadDescription);
}

TEST_F(DescriptionTest, WrongNumberOfOffsetsIsRefused) {
  structures_[0].offset_count -= 1;
  EXPECT_EQ(Check(), kStatusBadDescription);
  structures_[0].offset_count += 1;
  offsets_.push_back(88);
  structures_[0].offsets = offsets_.data();
  structures_[0].offset_count += 1;
  EXPECT_EQ(Check(), kStatusBadDescription);
}

TEST_F(DescriptionTest, TopStructureMustBeFirst) {
  std::swap(structures_[0], structures_[1]);
  EXPECT_EQ(Check(), kStatusBadDescription);
}

TEST_F(DescriptionTest, MissingNestedLayoutIsRefused) {
  structures_[2].number = 5;
  EXPECT_EQ(Check(), kStatusBadDescription);
  structures_[2].number = 1;
  structures_[2].offsets = nullptr;
  EXPECT_EQ(Check(), kStatusBadDescription);
}

TEST_F(DescriptionTest, LayoutCountMustBeTheSchemas) {
  ParcelDescription description = Description();
  layout_.structure_count = 2;
  EXPECT_EQ(parcel_check_description(&description), kStatusBadDescription);
  layout_.structures = nullptr;
  EXPECT_EQ(parcel_check_description(&description), kStatusBadDescription);
}

TEST_F(DescriptionTest, SchemasMustAgreeWithEachOther) {
  ParcelDescription description = Description();
  for (const char* compact :
       {"$7=sDDCbeya($2)4a(C)s;$1=es;$2=Da($1)s;", "$7=sdDCbeya($2)5a(C)s;$1=es;$2=Da($1)s;",
        "$7=sdDCbeya($2)4a(C)s;$1=es;", "$7=sdDCbeya($1)4a(C)s;$1=es;$2=Da($1)s;",
        "$7={text}sdDCbeya($2)4a(C)s;$1=es;$2=Da($1)s;", "$7=sdDCb[kind]eya($2)4a(C)s;$1=es;$2=Da($1)s;",
        "x"}) {
    description.compact_schema = compact;
    EXPECT_EQ(parcel_check_description(&description), kStatusBadDescription) << compact;
  }
  description.compact_schema = kEverything.compact_schema;
  description.annotated_schema = kEverything.compact_schema;
  EXPECT_EQ(parcel_check_description(&description), kStatusBadDescription) << "names are missing";
}

TEST_F(DescriptionTest, IncompleteDescriptionIsRefused) {
  const auto refused = [this](auto spoil) {
    ParcelDescription description = Description();
    spoil(&description);
    return parcel_check_description(&description) == kStatusBadDescription;
  };
  EXPECT_EQ(parcel_check_description(nullptr), kStatusBadDescription);
  EXPECT_TRUE(refused([](ParcelDescription* one) { one->format = 2; }));
  EXPECT_TRUE(refused([](ParcelDescription* one) { one->type_name = nullptr; }));
  EXPECT_TRUE(refused([](ParcelDescription* one) { one->type_name = ""; }));
  EXPECT_TRUE(refused([](ParcelDescription* one) { one->type_name = "two words"; }));
  EXPECT_TRUE(refused([](ParcelDescription* one) { one->layout = nullptr; }));
  EXPECT_TRUE(refused([](ParcelDescription* one) { one->annotated_schema = nullptr; }));
  EXPECT_TRUE(refused([](ParcelDescription* one) { one->compact_schema = nullptr; }));
}

}  // namespace
