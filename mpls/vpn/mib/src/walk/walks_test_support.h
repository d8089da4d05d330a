// For tests of walks: rows read one after the other and in batches.
#pragma once

#include <algorithm>

#include "mpls/vpn/mib/src/records/pack.h"
#include "mpls/vpn/mib/src/route/route_test_support.h"

// What a walk needs to know of its table: a row as text, and the rule that forms the following path.
template <typename Record>
struct Walked {
  const ParcelDescription& description;
  Status (*following)(const KvReply*, std::string*);
  std::string (*text)(const Record&);
};

class Walks : public RouteTablesTest {
 protected:
  void SetUp() override {
    RouteTablesTest::SetUp();
    Connect();
    Provide();
  }
  // Walks from `path` to the end, `piece` rows at a time; each piece begins where the rule sends a reader
  // after the last row of the piece before.
  template <typename Record>
  std::vector<std::string> WalkAll(const Walked<Record>& table, std::string path, std::uint32_t piece) {
    Run();
    std::vector<std::string> texts;
    bool end = false;
    while (!end && texts.size() < 1000) {
      std::vector<std::vector<std::uint8_t>> rows = WalkOnce(path, piece, &end);
      for (std::vector<std::uint8_t>& row : rows) texts.push_back(Text(table, &row));
      if (rows.empty()) break;
      const KvReply last = {kKvKindRecord, rows.back().data(), rows.back().size()};
      if (table.following(&last, &path) != kStatusOk) break;
    }
    return texts;
  }
  template <typename Record>
  static std::string Text(const Walked<Record>& table, std::vector<std::uint8_t>* row) {
    const Decoded<Record> decoded(table.description, {kKvKindRecord, row->data(), row->size()});
    return table.text(*decoded.operator->());
  }
  // In pieces of every size from 1 up, the rows must be these.
  template <typename Record>
  void ExpectWalk(const Walked<Record>& table, const std::string& path,
                  const std::vector<std::string>& rows) {
    for (const std::uint32_t piece : {1U, 2U, 3U, 100U}) {
      EXPECT_THAT(WalkAll(table, path, piece), testing::ElementsAreArray(rows))
          << path << " in pieces of " << piece;
      ExpectBatch(path, piece);
    }
  }
  // A batch of columns has the columns of the records that a walk shows.
  void ExpectBatch(const std::string& path, std::uint32_t max_rows) {
    const KvColumnRule& rule = *std::find_if(
        mpls_vpn_mib_column_rules, mpls_vpn_mib_column_rules + mpls_vpn_mib_column_rule_count,
        [&](const KvColumnRule& each) { return path.starts_with(std::string(each.first_component) + "/"); });
    KvColumnBatch expected = NewBatch(max_rows);
    const std::vector<std::vector<std::uint8_t>> rows = WalkOnce(path, max_rows, &expected.end);
    for (std::vector<std::uint8_t> row : rows) {
      ASSERT_EQ(rule.pack({kKvKindRecord, row.data(), row.size()}, &expected), kStatusOk);
    }
    KvColumnBatch batch = NewBatch(max_rows);
    const Status rc = kvtree_columns("/oper/mpls_vpn/gl/" + path, &batch);
    EXPECT_EQ(rc, rows.empty() ? kStatusNoSuchRow : kStatusOk) << path << ": " << err_text(rc);
    EXPECT_EQ(batch.octets, expected.octets) << path << ", at most " << max_rows;
    EXPECT_EQ(batch.rows, rows.size());
    EXPECT_EQ(batch.end || rows.empty(), expected.end) << path << ", at most " << max_rows;
  }
  static KvColumnBatch NewBatch(std::uint32_t max_rows) {
    static constexpr std::uint8_t kSome[] = {0, 1, 2, 3,
                                             4, 5, 6};  // the index of every kind of row, and more
    KvColumnBatch batch;
    batch.columns = kSome;
    batch.max_rows = max_rows;
    batch.packer = kvtree::ColumnPacker(std::size(kSome));
    return batch;
  }
};

// --- VRFs
