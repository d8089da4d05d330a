// Packed rows: what was written is read, unchanged values cost nothing, and malformed octets end the reading.
#include "platform/store/tree/columns.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace kvtree {
namespace {

using Octets = std::vector<std::uint8_t>;

struct Row {
  std::uint32_t number;
  std::string text;
  std::uint32_t other;
};

constexpr std::array<bool, 3> kIsOctets = {false, true, false};

std::span<const std::uint8_t> octets_of(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

Octets Pack(const std::vector<Row>& rows) {
  Octets packed;
  ColumnPacker packer(3);
  for (const Row& row : rows) {
    packer.begin_row(&packed);
    packer.number(row.number);
    packer.octets(octets_of(row.text));
    packer.number(row.other);
  }
  return packed;
}

std::string Unpack(const Octets& packed) {
  ColumnUnpacker unpacker(packed, kIsOctets);
  std::string text;
  while (unpacker.next_row()) {
    const auto values = unpacker.values();
    text += std::to_string(values[0].number) + " " +
            std::string(values[1].octets.begin(), values[1].octets.end()) + " " +
            std::to_string(values[2].number) + "\n";
  }
  return text + (unpacker.finished() ? "" : "malformed");
}

TEST(Columns, AreReadAsTheyWereWritten) {
  EXPECT_EQ(Unpack(Pack({{1, "red", 0}, {4294967295, "red", 128}, {4294967295, "", 127}, {0, "blue", 127}})),
            "1 red 0\n4294967295 red 128\n4294967295  127\n0 blue 127\n");
  EXPECT_EQ(Unpack({}), "");
}

TEST(Columns, ValuesThatDoNotChangeCostNothing) {
  EXPECT_EQ(Pack({{0, "", 0}}), (Octets{0}));
  EXPECT_EQ(Pack({{7, "red", 300}, {7, "red", 300}, {7, "red", 301}}),
            (Octets{7, 7, 3, 'r', 'e', 'd', 0xac, 2, 0, 4, 0xad, 2}));
}

TEST(Columns, RandomRowsAreReadAsTheyWereWritten) {
  std::minstd_rand random(5);
  std::vector<Row> rows;
  std::string expected;
  for (int i = 0; i < 2000; ++i) {
    rows.push_back({static_cast<std::uint32_t>(random()) >> random() % 32,
                    std::string(random() % 3 * 100, 'a'), static_cast<std::uint32_t>(random() % 2)});
    expected += std::to_string(rows.back().number) + " " + rows.back().text + " " +
                std::to_string(rows.back().other) + "\n";
  }
  EXPECT_EQ(Unpack(Pack(rows)), expected);
}

TEST(Columns, NoColumnsAreNoRows) {
  EXPECT_FALSE(ColumnUnpacker(Octets{}, {}).next_row());
}

TEST(Columns, MalformedOctetsEndTheRows) {
  const Octets whole = Pack({{300, "red", 1}});
  for (std::size_t size = 1; size < whole.size(); ++size) {
    const Octets cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(ColumnUnpacker(cut, kIsOctets).next_row()) << size;
  }
  EXPECT_EQ(Unpack({1, 0xff, 0xff, 0xff, 0xff, 0xff, 1}), "malformed") << "a number of more than 32 bits";
  EXPECT_FALSE(ColumnUnpacker(Octets{2, 0xff, 0xff, 0xff, 0xff, 0x0f}, kIsOctets).next_row())
      << "a length beyond the end";
}

}  // namespace
}  // namespace kvtree
