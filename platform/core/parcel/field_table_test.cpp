// Descriptions generated from field tables, against texts and numbers written by hand.
#include "platform/core/parcel/field_table.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

#include "platform/core/parcel/description.h"
#include "platform/core/parcel/test_records.h"

namespace {

using test_records::kEverything;
using test_records::kRow;
using Numbers = std::vector<std::uint32_t>;

Numbers offsets_of(const ParcelStructLayout& layout) {
  return {layout.offsets, layout.offsets + layout.offset_count};
}

TEST(FieldTable, AnnotatedTextHasNamesAndTypesOfEveryKind) {
  EXPECT_STREQ(kEverything.annotated_schema,
               "$7={text}s{number}d{count}D{octet}C{flag}b{enumeration}[kind]e{octets}y{branches}a($2)"
               "{pointer}4a(C){last}s;"
               "$1={kind}[kind]e{value}s;$2={family}D{leaves}a($1){policy}s;");
  EXPECT_STREQ(kRow.annotated_schema,
               "$1={name}s{index}d{classification}d{protocol}C{storage}d{status}d{vrf}s;");
}

TEST(FieldTable, CompactTextHasTypesOnly) {
  EXPECT_STREQ(kEverything.compact_schema, "$7=sdDCbeya($2)4a(C)s;$1=es;$2=Da($1)s;");
  EXPECT_STREQ(kRow.compact_schema, "$1=sddCdds;");
}

TEST(FieldTable, LayoutHasTheOffsetOfEverySlot) {
  ASSERT_EQ(kEverything.layout->structure_count, 3U);
  const ParcelStructLayout* structures = kEverything.layout->structures;
  EXPECT_EQ((Numbers{structures[0].number, structures[1].number, structures[2].number}), (Numbers{7, 1, 2}));
  EXPECT_EQ((Numbers{structures[0].size, structures[1].size, structures[2].size}), (Numbers{88, 16, 32}));
  EXPECT_EQ(offsets_of(structures[0]), (Numbers{0, 8, 12, 16, 20, 24, 32, 40, 48, 56, 64, 72, 80}));
  EXPECT_EQ(offsets_of(structures[1]), (Numbers{0, 8}));
  EXPECT_EQ(offsets_of(structures[2]), (Numbers{0, 8, 16, 24}));
}

TEST(FieldTable, DescriptionHasTheGivenIdentity) {
  EXPECT_EQ(kEverything.format, 1U);
  EXPECT_STREQ(kEverything.type_name, "test_everything");
  EXPECT_EQ(kEverything.version, 3U);
  EXPECT_EQ(kEverything.reader_version, 2U);
  EXPECT_STREQ(kEverything.library, "none");
}

struct Octet {
  std::uint8_t first;
  std::uint8_t last;
};
constexpr std::array kSwapped = {PARCEL_FIELD(Octet, last), PARCEL_FIELD(Octet, first)};
constexpr std::array kInOrder = {PARCEL_FIELD(Octet, first), PARCEL_FIELD(Octet, last)};
static_assert(parcel_detail::covers(kInOrder, sizeof(Octet)));
static_assert(!parcel_detail::covers(kSwapped, sizeof(Octet)));
static_assert(!parcel_detail::covers(kInOrder, sizeof(Octet) + 1));
static_assert(parcel_detail::has_members<test_records::Row, 7>());
static_assert(!parcel_detail::has_members<test_records::Row, 8>());
static_assert(!parcel_detail::fits<std::int32_t>(kParcelBoolean));
static_assert(!parcel_detail::fits<ParcelOctets>(parcel_octet_array(4)));

constexpr auto kOctetStructure = parcel_structure<Octet>(120, kInOrder);
constexpr ParcelDescription kOctet = parcel_description<kOctetStructure>("test_octet", 1, 0, "none");

TEST(FieldTable, NumberOfSeveralDigitsIsWrittenInFull) {
  EXPECT_STREQ(kOctet.annotated_schema, "$120={first}C{last}C;");
}

}  // namespace
