// Iterations over the records of a table.
#include <gmock/gmock.h>

#include "platform/core/base/test_fault.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/chkpt/test_checkpoint.h"

namespace {

using ::testing::IsEmpty;

TEST_F(CheckpointTest, RecordsComeInObjectIdOrder) {
  Start();
  for (const char* key : {"zzzz", "aaaa", "mmmm"}) Put(key, key);
  const std::vector<Row> expected{{"zzzz", "zzzz"}, {"aaaa", "aaaa"}, {"mmmm", "mmmm"}};
  EXPECT_EQ(Rows(), expected);
  Restart();
  EXPECT_EQ(Rows(), expected);
}

TEST_F(CheckpointTest, RecordsMayBeDeletedDuringAnIteration) {
  Start();
  for (int i = 0; i < 10; ++i) Put("key" + std::to_string(i), "data");
  ChkptIterator* iterator = nullptr;
  ASSERT_EQ(chkpt_iterate_start(table, &iterator), kStatusOk);
  int seen = 0;
  for (;;) {
    char key[8];
    char data[8];
    std::size_t key_size = sizeof key;
    std::size_t size = sizeof data;
    std::uint64_t object_id = 0;
    ASSERT_EQ(chkpt_iterate_next(iterator, key, &key_size, data, &size, &object_id), kStatusOk);
    if (object_id == 0) break;
    ++seen;
    EXPECT_EQ(chkpt_delete(table, object_id), kStatusOk);
  }
  EXPECT_EQ(chkpt_iterate_end(iterator), kStatusOk);
  EXPECT_EQ(seen, 10);
  EXPECT_THAT(Rows(), IsEmpty());
}

TEST_F(CheckpointTest, IterationContinuesAfterItsLastRecordWhateverIsCreatedOrDeletedMeanwhile) {
  Start();
  for (const char* key : {"key1", "key2", "key3", "key4"}) Put(key, "data");
  ChkptIterator* iterator = nullptr;
  ASSERT_EQ(chkpt_iterate_start(table, &iterator), kStatusOk);
  const auto next = [&iterator] {
    char key[8] = {};
    std::size_t key_size = sizeof key;
    std::size_t size = 0;
    std::uint64_t object_id = 0;
    EXPECT_EQ(chkpt_iterate_next(iterator, key, &key_size, key, &size, &object_id), kStatusOk);
    return object_id == 0 ? "end" : std::string(key, key_size);
  };
  EXPECT_EQ(next(), "key1");
  for (const char* key : {"key1", "key2"}) EXPECT_EQ(chkpt_delete(table, Map(key)), kStatusOk);
  EXPECT_EQ(next(), "key3");
  Put("key5", "data");
  EXPECT_EQ(next(), "key4");
  EXPECT_EQ(next(), "key5");
  EXPECT_EQ(next(), "end");
  Put("key6", "data");
  EXPECT_EQ(next(), "key6");
  EXPECT_EQ(next(), "end");
  EXPECT_EQ(chkpt_iterate_end(iterator), kStatusOk);
}

TEST_F(CheckpointTest, IterationCopiesWhatTheBuffersTakeAndSetsTheTrueSizes) {
  Start();
  Put("key1", "long data");
  ChkptIterator* iterator = nullptr;
  ASSERT_EQ(chkpt_iterate_start(table, &iterator), kStatusOk);
  char key[5] = "....";
  char data[5] = "....";
  std::size_t key_size = 2;
  std::size_t size = 3;
  std::uint64_t object_id = 0;
  ASSERT_EQ(chkpt_iterate_next(iterator, key, &key_size, data, &size, &object_id), kStatusOk);
  EXPECT_STREQ(key, "ke..");
  EXPECT_STREQ(data, "lon.");
  EXPECT_EQ(key_size, 4U);
  EXPECT_EQ(size, 9U);
  EXPECT_EQ(chkpt_iterate_end(iterator), kStatusOk);
}

// --- Transactions

}  // namespace
