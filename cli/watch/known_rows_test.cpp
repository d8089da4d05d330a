// Rows of a table, compared from reading to reading.
#include "cli/watch/known_rows.h"

#include <gmock/gmock.h>

#include <map>
#include <random>
#include <vector>

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Rows = std::map<std::string, std::string>;

class Known : public ::testing::Test {
 protected:
  std::vector<std::string> Read(const Rows& rows) {
    differences_.clear();
    for (const auto& [key, value] : rows) EXPECT_TRUE(Take(key, value));
    known_.end(note_);
    return differences_;
  }
  bool Take(const std::string& key, const std::string& value) { return known_.take({key, value}, note_); }

  KnownRows known_;
  std::vector<std::string> differences_;  // "+key=value", "-key=value", "key=value>value"
  const RowDifference note_ = [this](const KnownRow* before, const KnownRow* now) {
    const KnownRow& row = now == nullptr ? *before : *now;
    const std::string key(row.key);
    const std::string value(row.value);
    if (before == nullptr) {
      differences_.push_back("+" + key + "=" + value);
    } else if (now == nullptr) {
      differences_.push_back("-" + key + "=" + value);
    } else {
      differences_.push_back(key + "=" + std::string(before->value) + ">" + value);
    }
  };
};

TEST_F(Known, AddedChangedAndRemovedRowsDiffer) {
  EXPECT_THAT(Read({{"b", "1"}, {"c", "1"}, {"e", "1"}}), ElementsAre("+b=1", "+c=1", "+e=1"));
  EXPECT_THAT(Read({{"b", "1"}, {"c", "1"}, {"e", "1"}}), IsEmpty());
  EXPECT_THAT(Read({{"a", "1"}, {"c", "2"}, {"d", "1"}, {"e", "1"}}),
              ElementsAre("+a=1", "-b=1", "c=1>2", "+d=1"));
  EXPECT_EQ(known_.size(), 4U);
  EXPECT_THAT(Read({}), ElementsAre("-a=1", "-c=2", "-d=1", "-e=1"));
  EXPECT_EQ(known_.size(), 0U);
}

TEST_F(Known, AbandonedReadingKeepsWhatItDidNotReach) {
  Read({{"a", "1"}, {"b", "1"}, {"c", "1"}, {"d", "1"}});
  differences_.clear();
  EXPECT_TRUE(Take("b", "2"));
  known_.abandon();
  EXPECT_THAT(differences_, ElementsAre("-a=1", "b=1>2"));
  EXPECT_THAT(Read({{"b", "2"}, {"d", "1"}, {"e", "1"}}), ElementsAre("-c=1", "+e=1"));
}

TEST_F(Known, RowsOutOfOrderAreRefused) {
  EXPECT_TRUE(Take("b", "1"));
  EXPECT_FALSE(Take("b", "2"));
  EXPECT_FALSE(Take("a", "1"));
  known_.end(note_);
  EXPECT_TRUE(Take("a", "1"));
}

TEST_F(Known, ManyBlocksOfRowsAreComparedAsAMapIs) {
  std::mt19937 random(7);
  Rows rows;
  for (int reading = 0; reading < 5; ++reading) {
    const Rows before = rows;
    for (int change = 0; change < 5000; ++change) {
      const std::string key = std::to_string(random() % 20000);
      if (random() % 3 == 0) {
        rows.erase(key);
      } else {
        rows[key] = std::string(random() % 90, 'x');
      }
    }
    std::size_t differing = 0;
    for (const auto& [key, value] : rows)
      differing += before.contains(key) && before.at(key) == value ? 0 : 1;
    for (const auto& [key, value] : before) differing += rows.contains(key) ? 0 : 1;
    EXPECT_EQ(Read(rows).size(), differing);
  }
}

}  // namespace
}  // namespace cli
