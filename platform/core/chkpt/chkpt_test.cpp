// Tests of the store's operations: tables, records, iteration, transactions, failures of a commit.
#include "platform/core/chkpt/chkpt.h"

#include <gmock/gmock.h>

#include "platform/core/base/test_fault.h"
#include "platform/core/chkpt/test_checkpoint.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

// --- Tables

TEST_F(CheckpointTest, TableThatAnEarlierProcessLeftEmptyHasNoEarlierContents) {
  Start();
  EXPECT_FALSE(Restart());
  Put("key1", "one");
  EXPECT_TRUE(Restart());
  EXPECT_EQ(chkpt_delete(table, Map("key1")), kStatusOk);
  EXPECT_FALSE(Restart());
  EXPECT_THAT(Rows(), IsEmpty());
}

TEST_F(CheckpointTest, TablesAreApart) {
  Start();
  ChkptTable* other = nullptr;
  bool had_contents = true;
  ASSERT_EQ(chkpt_register(&descriptor, 101, &other, &had_contents), kStatusOk);
  EXPECT_FALSE(had_contents);
  Put("key1", "one");
  std::uint64_t object_id = 0;
  EXPECT_EQ(chkpt_mapkey(other, "key1", 4, &object_id), kStatusChkptKeyNotFound);
  ASSERT_EQ(chkpt_create(other, "key1", 4, &object_id), kStatusOk);
  EXPECT_NE(object_id, Map("key1"));
  EXPECT_EQ(Save(object_id, "x"), kStatusNoSuchRow);
  Restart();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}));
}

TEST_F(CheckpointTest, ApplicationsAreApart) {
  Start();
  Put("key1", "one");
  chkpt_end();
  chkpt_application_init(&application, 77, "another");
  EXPECT_FALSE(Start());
  EXPECT_THAT(Rows(), IsEmpty());
  Put("key1", "other");
  chkpt_end();
  chkpt_application_init(&application, 1235, "mpls_vpn");
  EXPECT_TRUE(Start());
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}));
}

// The number identifies the application; a damaged name must not prevent the start.
TEST_F(CheckpointTest, ApplicationWhoseStoredNameDiffersKeepsItsRecords) {
  Start();
  Put("key1", "one");
  chkpt_end();
  Sql("UPDATE application SET name = x'6dca6c73'");
  CaptureStderr();
  EXPECT_TRUE(Start());
  EXPECT_EQ(GetCapturedStderr(), "chkpt: the name of application 1235 in " + File() +
                                     " is not \"mpls_vpn\": it is corrected, the records are used\n");
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}));
  CaptureStderr();
  EXPECT_TRUE(Restart());
  EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(CheckpointTest, NameHasAtMostTwentyFourCharacters) {
  chkpt_application_init(&application, 1, "abcdefghijklmnopqrstuvwxy");
  EXPECT_EQ(chkpt_init(&application, manager), kStatusInvalid);
  chkpt_application_init(&application, 1, "abcdefghijklmnopqrstuvwx");
  EXPECT_EQ(chkpt_init(&application, manager), kStatusOk);
}

TEST_F(CheckpointTest, ChangedDescriptorKeepsTheRecords) {
  Start();
  Put("key1", "nine octs");
  descriptor.record_size = 8;
  EXPECT_TRUE(Restart());
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "nine octs"}));
  EXPECT_EQ(Save(Map("key1"), "nine octs"), kStatusInvalid);
  EXPECT_EQ(Save(Map("key1"), "8 octets"), kStatusOk);
}

// --- Records

TEST_F(CheckpointTest, SavedRecordSurvivesARestartWithItsObjectId) {
  Start();
  Put("key1", "one");
  const std::uint64_t object_id = Map("key1");
  EXPECT_NE(object_id, 0U);
  EXPECT_TRUE(Restart());
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}));
  EXPECT_EQ(Map("key1"), object_id);
}

TEST_F(CheckpointTest, KeysAndDataAreOctets) {
  Start();
  const std::string key("\0\xff\0k", 4);
  const std::string data("\0\0\x80z", 4);
  Put(key, data);
  Restart();
  EXPECT_THAT(Rows(), ElementsAre(Row{key, data}));
}

TEST_F(CheckpointTest, UnknownKeyIsNotFound) {
  Start();
  std::uint64_t object_id = 9;
  EXPECT_EQ(chkpt_mapkey(table, "key1", 4, &object_id), kStatusChkptKeyNotFound);
  EXPECT_EQ(object_id, 0U);
  EXPECT_STREQ(err_text(kStatusChkptKeyNotFound), "No checkpoint record of this key");
}

TEST_F(CheckpointTest, InvalidKeyIsAMappingErrorAndCannotBeCreated) {
  Start();
  Create("key1");
  std::uint64_t object_id = 0;
  const std::string long_key(kChkptKeyMax + 1, 'k');
  EXPECT_EQ(chkpt_mapkey(table, "key", 3, &object_id), kStatusChkptMapping);  // not the size of the others
  EXPECT_EQ(chkpt_mapkey(table, "key1", 0, &object_id), kStatusChkptMapping);
  EXPECT_EQ(chkpt_mapkey(table, nullptr, 4, &object_id), kStatusChkptMapping);
  EXPECT_EQ(chkpt_mapkey(table, long_key.data(), long_key.size(), &object_id), kStatusChkptMapping);
  EXPECT_EQ(chkpt_create(table, "key", 3, &object_id), kStatusInvalid);
  EXPECT_EQ(chkpt_create(table, long_key.data(), long_key.size(), &object_id), kStatusInvalid);
}

TEST_F(CheckpointTest, CreatingAKeyTwiceIsRefused) {
  Start();
  const std::uint64_t first = Create("key1");
  std::uint64_t second = 0;
  EXPECT_EQ(chkpt_create(table, "key1", 4, &second), kStatusExists);
  EXPECT_EQ(Map("key1"), first);
}

TEST_F(CheckpointTest, SecondSaveOverwritesTheOneRecord) {
  Start();
  Put("key1", "one");
  Put("key1", "two");
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "two"}));
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  Put("key1", "three");
  Restart();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "three"}));
}

TEST_F(CheckpointTest, RecordThatWasNeverSavedHasSizeZero) {
  Start();
  Create("key1");
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", ""}));
  Restart();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", ""}));
}

TEST_F(CheckpointTest, DeletedRecordStaysAway) {
  Start();
  Put("key1", "one");
  Put("key2", "two");
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  const std::uint64_t object_id = Map("key1");
  EXPECT_EQ(chkpt_delete(table, object_id), kStatusOk);
  EXPECT_EQ(Map("key1"), 0U);
  EXPECT_EQ(chkpt_delete(table, object_id), kStatusNoSuchRow);
  EXPECT_EQ(Save(object_id, "x"), kStatusNoSuchRow);
  Restart();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key2", "two"}));
}

TEST_F(CheckpointTest, RecordDeletedBeforeItWasWrittenIsNeverWritten) {
  Start();
  EXPECT_EQ(chkpt_delete(table, Create("key1")), kStatusOk);
  Restart();
  EXPECT_THAT(Rows(), IsEmpty());
}

TEST_F(CheckpointTest, KeyOfADeletedRecordIsFreeForANewOneInTheSameIteration) {
  Start();
  Put("key1", "old");
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  const std::uint64_t old = Map("key1");
  ASSERT_EQ(chkpt_delete(table, old), kStatusOk);
  Put("key1", "new");
  EXPECT_NE(Map("key1"), old);
  Restart();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "new"}));
}

TEST_F(CheckpointTest, ObjectIdsAreNeverReused) {
  Start();
  Create("key1");
  const std::uint64_t highest = Create("key2");
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  ASSERT_EQ(chkpt_delete(table, highest), kStatusOk);
  Restart();
  EXPECT_GT(Create("key3"), highest);
}

TEST_F(CheckpointTest, DataOfAnotherSizeThanTheTablesIsRefused) {
  descriptor.record_size = 8;
  Start();
  const std::uint64_t object_id = Create("key1");
  EXPECT_EQ(Save(object_id, "7 octet"), kStatusInvalid);
  EXPECT_EQ(Save(object_id, "8 octets"), kStatusOk);
  EXPECT_EQ(Save(object_id, "9 octets."), kStatusInvalid);
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "8 octets"}));
}

TEST_F(CheckpointTest, DataBeyondTheBoundIsRefused) {
  Start();
  const std::uint64_t object_id = Create("key1");
  EXPECT_EQ(Save(object_id, std::string(kChkptDataMax + 1, 'd')), kStatusInvalid);
  EXPECT_EQ(Save(object_id, std::string(kChkptDataMax, 'd')), kStatusOk);
}

// --- Iteration

TEST_F(CheckpointTest, BadArgumentsAreRefused) {
  EXPECT_EQ(chkpt_init(nullptr, manager), kStatusInvalid);
  EXPECT_EQ(chkpt_init(&application, nullptr), kStatusInvalid);
  bool had_contents = false;
  EXPECT_EQ(chkpt_register(&descriptor, kTable, &table, &had_contents), kStatusInvalid);  // not open
  Start();
  EXPECT_EQ(chkpt_init(&application, manager), kStatusExists);
  EXPECT_EQ(chkpt_register(&descriptor, kTable, &table, &had_contents), kStatusExists);
  EXPECT_EQ(chkpt_register(nullptr, 2, &table, &had_contents), kStatusInvalid);
  EXPECT_EQ(chkpt_register(&descriptor, 2, nullptr, &had_contents), kStatusInvalid);
  for (std::uint32_t ChkptTableDescriptor::*member :
       {&ChkptTableDescriptor::reserved, &ChkptTableDescriptor::key_kind,
        &ChkptTableDescriptor::persistent}) {
    ChkptTableDescriptor bad = descriptor;
    bad.*member ^= 1;
    EXPECT_EQ(chkpt_register(&bad, 2, &table, &had_contents), kStatusInvalid);
  }
  EXPECT_EQ(chkpt_save(table, Create("key1"), nullptr, 1), kStatusInvalid);
  EXPECT_EQ(chkpt_save(nullptr, 1, "x", 1), kStatusInvalid);
  EXPECT_EQ(chkpt_delete(nullptr, 1), kStatusInvalid);
  EXPECT_EQ(chkpt_iterate_start(table, nullptr), kStatusInvalid);
  EXPECT_EQ(chkpt_iterate_next(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), kStatusInvalid);
  EXPECT_EQ(chkpt_iterate_end(nullptr), kStatusInvalid);
}

TEST_F(CheckpointTest, EachOperationFailsAtItsFaultPoint) {
  ExpectFault("chkpt_init", [this] { return chkpt_init(&application, manager); });
  EXPECT_FALSE(Exists(File()));
  Start();
  const std::uint64_t object_id = Create("key1");
  ChkptIterator* iterator = nullptr;
  ASSERT_EQ(chkpt_iterate_start(table, &iterator), kStatusOk);
  std::uint64_t found = 0;
  char octets[8];
  std::size_t key_size = sizeof octets;
  std::size_t size = sizeof octets;
  bool had_contents = false;
  ChkptTable* other = nullptr;
  ExpectFault("chkpt_register", [&] { return chkpt_register(&descriptor, 2, &other, &had_contents); });
  ExpectFault("chkpt_mapkey", [&] { return chkpt_mapkey(table, "key1", 4, &found); });
  ExpectFault("chkpt_create", [&] { return chkpt_create(table, "key2", 4, &found); });
  ExpectFault("chkpt_save", [&] { return Save(object_id, "x"); });
  ExpectFault("chkpt_delete", [&] { return chkpt_delete(table, object_id); });
  ExpectFault("chkpt_iterate_start", [&] { return chkpt_iterate_start(table, &iterator); });
  ExpectFault("chkpt_iterate_next",
              [&] { return chkpt_iterate_next(iterator, octets, &key_size, octets, &size, &found); });
  ExpectFault("chkpt_iterate_end", [&] { return chkpt_iterate_end(iterator); });
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", ""}));
}

}  // namespace
