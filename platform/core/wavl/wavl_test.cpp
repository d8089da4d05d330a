// The weak-AVL tree against std::map as the model: random histories over two orderings at once, with the rank
// rules checked after every step; what cursors see; fault points.
#include "platform/core/wavl/wavl.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "platform/core/base/test_fault.h"

namespace {

constexpr unsigned kByIndex = 0;
constexpr unsigned kByHandle = 1;

struct Item {
  WavlLink links[2];
  std::uint32_t index;
  std::uint32_t handle;
};

template <std::uint32_t Item::*Key>
std::uint32_t compare_by(const void* left, const void* right) {
  if (left == nullptr || right == nullptr) {
    if (left == right) return kWavlEqual;
    return left == nullptr ? kWavlLess : kWavlGreater;
  }
  const std::uint32_t a = static_cast<const Item*>(left)->*Key;
  const std::uint32_t b = static_cast<const Item*>(right)->*Key;
  if (a == b) return kWavlEqual;
  return a < b ? kWavlLess : kWavlGreater;
}

constexpr WavlCompare kCompare[] = {compare_by<&Item::index>, compare_by<&Item::handle>};

class WavlTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(wavl_init(&tree_, 2, kCompare), kStatusOk); }

  Item* Make(std::uint32_t index, std::uint32_t handle) {
    items_.push_back(std::make_unique<Item>(Item{{}, index, handle}));
    return items_.back().get();
  }

  Item* Insert(std::uint32_t index, std::uint32_t handle) {
    Item* item = Make(index, handle);
    EXPECT_EQ(wavl_insert(&tree_, kByIndex, item), kStatusOk);
    EXPECT_EQ(wavl_insert(&tree_, kByHandle, item), kStatusOk);
    return item;
  }

  void InsertIndexes(std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t i = first; i <= last; ++i) Insert(i, 1000 - i);
  }

  std::vector<std::uint32_t> Indexes() {
    std::vector<std::uint32_t> found;
    for (void* node = wavl_first(&tree_, kByIndex); node != nullptr;
         node = wavl_next(&tree_, kByIndex, node)) {
      found.push_back(static_cast<Item*>(node)->index);
    }
    return found;
  }

  bool Sound() { return wavl_check(&tree_, kByIndex) == 1 && wavl_check(&tree_, kByHandle) == 1; }

  WavlTree tree_{};
  std::vector<std::unique_ptr<Item>> items_;
};

Item key_of(std::uint32_t index, std::uint32_t handle = 0) {
  return Item{{}, index, handle};
}

TEST_F(WavlTest, EmptyTreeFindsNothing) {
  const Item key = key_of(1);
  EXPECT_EQ(wavl_search(&tree_, kByIndex, &key), nullptr);
  EXPECT_EQ(wavl_search_greater_equal(&tree_, kByIndex, &key), nullptr);
  EXPECT_EQ(wavl_first(&tree_, kByIndex), nullptr);
  EXPECT_EQ(wavl_size(&tree_, kByIndex), 0U);
  EXPECT_TRUE(Sound());
}

TEST_F(WavlTest, InitRefusesInvalidArguments) {
  WavlTree tree{};
  const WavlCompare five[] = {kCompare[0], kCompare[0], kCompare[0], kCompare[0], kCompare[0]};
  const WavlCompare missing[] = {kCompare[0], nullptr};
  EXPECT_EQ(wavl_init(&tree, 0, kCompare), kStatusInvalid);
  EXPECT_EQ(wavl_init(&tree, 5, five), kStatusInvalid);
  EXPECT_EQ(wavl_init(&tree, 2, missing), kStatusInvalid);
  EXPECT_EQ(wavl_init(&tree, 1, nullptr), kStatusInvalid);
  EXPECT_EQ(wavl_init(nullptr, 1, kCompare), kStatusInvalid);
  EXPECT_EQ(wavl_init(&tree, 4, five), kStatusOk);
}

TEST_F(WavlTest, EqualKeyIsRefusedAndLeavesTheTreeAsItWas) {
  Insert(7, 1);
  Item* twin = Make(7, 2);
  EXPECT_EQ(wavl_insert(&tree_, kByIndex, twin), kStatusExists);
  EXPECT_EQ(wavl_size(&tree_, kByIndex), 1U);
  EXPECT_EQ(twin->links[kByIndex].linked, 0U);
  EXPECT_TRUE(Sound());
}

TEST_F(WavlTest, LinkedNodeIsNotLinkedTwice) {
  Item* item = Insert(7, 1);
  EXPECT_EQ(wavl_insert(&tree_, kByIndex, item), kStatusExists);
  EXPECT_EQ(wavl_size(&tree_, kByIndex), 1U);
}

TEST_F(WavlTest, NullNodeOrUnknownThreadIsInvalid) {
  Item* item = Make(1, 1);
  EXPECT_EQ(wavl_insert(&tree_, kByIndex, nullptr), kStatusInvalid);
  EXPECT_EQ(wavl_insert(&tree_, 2, item), kStatusInvalid);
  EXPECT_EQ(wavl_delete(&tree_, kByIndex, nullptr), kStatusInvalid);
  EXPECT_EQ(wavl_delete(&tree_, 2, item), kStatusInvalid);
  EXPECT_EQ(wavl_delete_all(&tree_, nullptr), kStatusInvalid);
  EXPECT_EQ(wavl_search(&tree_, 2, item), nullptr);
  EXPECT_EQ(wavl_check(&tree_, 2), 0);
}

TEST_F(WavlTest, NullKeyIsSmallerThanAnyNode) {
  Item* first = Insert(1, 1);
  EXPECT_EQ(wavl_search(&tree_, kByIndex, nullptr), nullptr);
  EXPECT_EQ(wavl_search_greater_equal(&tree_, kByIndex, nullptr), first);
}

TEST_F(WavlTest, EachThreadHasItsOwnOrder) {
  Item* low_index = Insert(1, 20);
  Item* low_handle = Insert(2, 10);
  EXPECT_EQ(wavl_first(&tree_, kByIndex), low_index);
  EXPECT_EQ(wavl_next(&tree_, kByIndex, low_index), low_handle);
  EXPECT_EQ(wavl_first(&tree_, kByHandle), low_handle);
  EXPECT_EQ(wavl_next(&tree_, kByHandle, low_handle), low_index);
}

TEST_F(WavlTest, NodeInOneThreadOnlyIsNotSeenInTheOther) {
  Insert(1, 1);
  Item* by_handle_only = Make(0, 2);
  ASSERT_EQ(wavl_insert(&tree_, kByHandle, by_handle_only), kStatusOk);
  EXPECT_EQ(wavl_size(&tree_, kByIndex), 1U);
  EXPECT_EQ(wavl_size(&tree_, kByHandle), 2U);
  EXPECT_EQ(wavl_next(&tree_, kByIndex, by_handle_only), nullptr);
  EXPECT_EQ(wavl_delete(&tree_, kByIndex, by_handle_only), kStatusNoSuchRow);
  EXPECT_EQ(wavl_delete_all(&tree_, by_handle_only), kStatusOk);
  EXPECT_EQ(wavl_delete_all(&tree_, by_handle_only), kStatusNoSuchRow);
  EXPECT_TRUE(Sound());
}

TEST_F(WavlTest, DeleteFromOneThreadKeepsTheOther) {
  Item* item = Insert(1, 1);
  EXPECT_EQ(wavl_delete(&tree_, kByIndex, item), kStatusOk);
  EXPECT_EQ(wavl_delete(&tree_, kByIndex, item), kStatusNoSuchRow);
  EXPECT_EQ(wavl_first(&tree_, kByHandle), item);
  EXPECT_EQ(wavl_insert(&tree_, kByIndex, item), kStatusOk);
}

TEST_F(WavlTest, GreaterEqualFindsTheKeyOrItsSuccessor) {
  for (const std::uint32_t index : {10U, 20U, 30U}) Insert(index, index);
  const auto found = [&](std::uint32_t index) -> std::uint32_t {
    const Item key = key_of(index);
    const auto* item = static_cast<Item*>(wavl_search_greater_equal(&tree_, kByIndex, &key));
    return item == nullptr ? 0 : item->index;
  };
  EXPECT_EQ(found(5), 10U);
  EXPECT_EQ(found(10), 10U);
  EXPECT_EQ(found(11), 20U);
  EXPECT_EQ(found(30), 30U);
  EXPECT_EQ(found(31), 0U);
}

TEST_F(WavlTest, CursorSurvivesTheDeletionOfOtherNodes) {
  InsertIndexes(1, 9);
  Item* cursor = items_[4].get();
  for (const std::size_t removed : {3U, 5U, 0U, 7U}) {
    ASSERT_EQ(wavl_delete_all(&tree_, items_[removed].get()), kStatusOk);
  }
  EXPECT_EQ(wavl_next(&tree_, kByIndex, cursor), items_[6].get());
}

TEST_F(WavlTest, CursorOfAnUnlinkedNodeHasNoNext) {
  InsertIndexes(1, 3);
  ASSERT_EQ(wavl_delete_all(&tree_, items_[0].get()), kStatusOk);
  EXPECT_EQ(wavl_next(&tree_, kByIndex, items_[0].get()), nullptr);
  EXPECT_EQ(wavl_next(&tree_, kByIndex, nullptr), nullptr);
}

struct WalkLog {
  WavlTree* tree;
  std::vector<std::uint32_t> seen;
  std::uint32_t stop_at;
  bool delete_odd;
};

int visit_item(void* node, void* argument) {
  auto* log = static_cast<WalkLog*>(argument);
  auto* item = static_cast<Item*>(node);
  const std::uint32_t index = item->index;
  log->seen.push_back(index);
  if (log->delete_odd && index % 2 == 1) {
    EXPECT_EQ(wavl_delete_all(log->tree, node), kStatusOk);
    *item = Item{};  // as freed memory would be: nothing of it may be read afterwards
  }
  return index == log->stop_at ? 0 : 1;
}

TEST_F(WavlTest, WalkVisitsInOrderAndAnswersOneAtTheEnd) {
  InsertIndexes(1, 5);
  WalkLog log{&tree_, {}, 0, false};
  EXPECT_EQ(wavl_walk(&tree_, kByIndex, visit_item, &log), 1);
  EXPECT_EQ(log.seen, (std::vector<std::uint32_t>{1, 2, 3, 4, 5}));
}

TEST_F(WavlTest, WalkStopsWhenTheVisitorStopsIt) {
  InsertIndexes(1, 5);
  WalkLog log{&tree_, {}, 3, false};
  EXPECT_EQ(wavl_walk(&tree_, kByIndex, visit_item, &log), 0);
  EXPECT_EQ(log.seen, (std::vector<std::uint32_t>{1, 2, 3}));
}

TEST_F(WavlTest, WalkMayDeleteTheNodeItVisits) {
  InsertIndexes(1, 100);
  WalkLog log{&tree_, {}, 0, true};
  EXPECT_EQ(wavl_walk(&tree_, kByIndex, visit_item, &log), 1);
  EXPECT_EQ(log.seen.size(), 100U);
  EXPECT_EQ(wavl_size(&tree_, kByIndex), 50U);
  EXPECT_EQ(Indexes().front(), 2U);
  EXPECT_TRUE(Sound());
}

TEST_F(WavlTest, CheckSeesEachKindOfDamage) {
  InsertIndexes(1, 20);
  ASSERT_TRUE(Sound());
  WavlLink& root = *tree_.root[kByIndex];
  root.rank += 2;
  EXPECT_EQ(wavl_check(&tree_, kByIndex), 0) << "rank";
  root.rank -= 2;
  tree_.size[kByIndex] += 1;
  EXPECT_EQ(wavl_check(&tree_, kByIndex), 0) << "size";
  tree_.size[kByIndex] -= 1;
  std::swap(items_[3]->index, items_[11]->index);
  EXPECT_EQ(wavl_check(&tree_, kByIndex), 0) << "order";
  std::swap(items_[3]->index, items_[11]->index);
  items_[0]->links[kByIndex].rank = 1;
  EXPECT_EQ(wavl_check(&tree_, kByIndex), 0) << "leaf rank";
  items_[0]->links[kByIndex].rank = 0;
  EXPECT_TRUE(Sound());
}

TEST_F(WavlTest, FaultPointsFailTheirOperationsAndChangeNothing) {
  Item* item = Insert(1, 1);
  Item* other = Make(2, 2);
  WavlTree tree{};
  ExpectFault("wavl_insert", [&] { return wavl_insert(&tree_, kByIndex, other); });
  ExpectFault("wavl_delete", [&] { return wavl_delete(&tree_, kByIndex, item); });
  ExpectFault("wavl_delete", [&] { return wavl_delete_all(&tree_, item); });
  ExpectFault("wavl_init", [&] { return wavl_init(&tree, 1, kCompare); });
  {
    const ScopedFault fault("wavl_walk", kStatusIo);
    WalkLog log{&tree_, {}, 0, false};
    EXPECT_EQ(wavl_walk(&tree_, kByIndex, visit_item, &log), 0);
    EXPECT_TRUE(log.seen.empty());
  }
  EXPECT_EQ(Indexes(), (std::vector<std::uint32_t>{1}));
}

// One random history: both orderings beside their models, every answer compared, every rule checked.
class RandomHistory {
 public:
  explicit RandomHistory(std::uint32_t seed) : random_(seed), pool_(kPoolSize) {
    EXPECT_EQ(wavl_init(&tree_, 2, kCompare), kStatusOk);
    std::uint32_t next = 0;
    for (Item& item : pool_) item = Item{{}, ++next, next * 7919 % 65521};
  }

  void Step() {
    Item& item = pool_[random_() % pool_.size()];
    const unsigned thread = random_() % 2;
    switch (random_() % 4) {
      case 0:
      case 1:
        Insert(thread, item);
        break;
      case 2:
        Delete(thread, item);
        break;
      default:
        DeleteAll(item);
        break;
    }
    CompareSearch(thread, static_cast<std::uint32_t>(random_() % 66000));
  }

  bool Sound() const { return wavl_check(&tree_, 0) == 1 && wavl_check(&tree_, 1) == 1; }

  void CompareWhole(unsigned thread) const {
    void* node = wavl_first(&tree_, thread);
    for (const auto& [key, item] : model_[thread]) {
      ASSERT_EQ(node, item) << key;
      node = wavl_next(&tree_, thread, node);
    }
    ASSERT_EQ(node, nullptr);
    ASSERT_EQ(wavl_size(&tree_, thread), model_[thread].size());
  }

 private:
  static constexpr std::size_t kPoolSize = 400;

  static std::uint32_t Key(unsigned thread, const Item& item) {
    return thread == kByIndex ? item.index : item.handle;
  }

  void Insert(unsigned thread, Item& item) {
    const bool added = model_[thread].emplace(Key(thread, item), &item).second;
    ASSERT_EQ(wavl_insert(&tree_, thread, &item), added ? kStatusOk : kStatusExists);
  }

  void Delete(unsigned thread, Item& item) {
    const bool removed = model_[thread].erase(Key(thread, item)) == 1;
    ASSERT_EQ(wavl_delete(&tree_, thread, &item), removed ? kStatusOk : kStatusNoSuchRow);
  }

  void DeleteAll(Item& item) {
    const std::size_t removed = model_[0].erase(item.index) + model_[1].erase(item.handle);
    ASSERT_EQ(wavl_delete_all(&tree_, &item), removed != 0 ? kStatusOk : kStatusNoSuchRow);
  }

  void CompareSearch(unsigned thread, std::uint32_t key_value) {
    const Item key = key_of(key_value, key_value);
    const auto exact = model_[thread].find(key_value);
    const auto following = model_[thread].lower_bound(key_value);
    void* none = nullptr;
    ASSERT_EQ(wavl_search(&tree_, thread, &key), exact == model_[thread].end() ? none : exact->second);
    ASSERT_EQ(wavl_search_greater_equal(&tree_, thread, &key),
              following == model_[thread].end() ? none : following->second);
  }

  std::mt19937 random_;
  std::vector<Item> pool_;
  WavlTree tree_{};
  std::map<std::uint32_t, void*> model_[2];
};

class WavlHistoryTest : public testing::TestWithParam<std::uint32_t> {};

TEST_P(WavlHistoryTest, BehavesAsAnOrderedMapAndKeepsItsRankRules) {
  RandomHistory history(GetParam());
  for (int step = 0; step < 4000; ++step) {
    ASSERT_NO_FATAL_FAILURE(history.Step()) << "step " << step;
    ASSERT_TRUE(history.Sound()) << "step " << step;
  }
  ASSERT_NO_FATAL_FAILURE(history.CompareWhole(kByIndex));
  ASSERT_NO_FATAL_FAILURE(history.CompareWhole(kByHandle));
}

INSTANTIATE_TEST_SUITE_P(Seeds, WavlHistoryTest, testing::Range(1U, 9U));

// The depth is counted, not timed: sorted input is the worst case of an unbalanced tree.
TEST(WavlComplexity, SortedInsertionAndDeletionStayLogarithmic) {
  constexpr std::uint32_t kCount = 100'000;
  WavlTree tree{};
  ASSERT_EQ(wavl_init(&tree, 1, kCompare), kStatusOk);
  std::vector<Item> items(kCount);
  for (std::uint32_t i = 0; i < kCount; ++i) {
    items[i].index = i;
    ASSERT_EQ(wavl_insert(&tree, 0, &items[i]), kStatusOk);
  }
  // The root's rank bounds the height; with insertions only a weak-AVL tree is an AVL tree: 1.4405 log2(n +
  // 2).
  EXPECT_LE(tree.root[0]->rank, 1.4405 * std::log2(kCount + 2.0));
  for (std::uint32_t i = 0; i + 1 < kCount; ++i) {
    ASSERT_EQ(wavl_delete(&tree, 0, &items[i]), kStatusOk);
    if (i % 10'000 == 0) {
      EXPECT_LE(tree.root[0]->rank, 2 * std::log2(kCount - i));
    }
  }
  EXPECT_EQ(wavl_check(&tree, 0), 1);
}

}  // namespace
