// Lists and datalists: reading in order, and finding an item by its key: what a reader from the start to that
// key would see.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/core/base/test_fault.h"
#include "platform/store/tree/datalist_filler.h"
#include "platform/store/tree/kvtree.h"

namespace {

class DatalistFind : public testing::Test {
 protected:
  DatalistFind() { EXPECT_EQ(kvtree_datalist_create(&list_), kStatusOk); }
  ~DatalistFind() override { kvtree_datalist_free(list_); }

  void Add(const char* key, const char* value) {
    ASSERT_EQ(kvtree_datalist_add(list_, key, 7, 0, *value == '\0' ? nullptr : value, std::strlen(value)),
              kStatusOk);
  }
  // "key=value" of what is found, or the error's text.
  std::string Find(const char* wanted) {
    const char* key = nullptr;
    const void* value = nullptr;
    std::size_t length = 0;
    const Status status = kvtree_datalist_find(list_, wanted, &key, &value, &length);
    return status == kStatusOk ? Item(key, value, length) : err_text(status);
  }
  std::string Next() {
    const char* key = nullptr;
    const void* value = nullptr;
    std::size_t length = 0;
    const Status status = kvtree_datalist_next(list_, &key, &value, &length);
    return status == kStatusOk ? Item(key, value, length) : err_text(status);
  }

  const std::string kEnd = err_text(kStatusEndOfList);
  KvDatalist* list_ = nullptr;

 private:
  static std::string Item(const char* key, const void* value, std::size_t length) {
    return std::string(key) + "=" + std::string(static_cast<const char*>(value), length);
  }
};

TEST_F(DatalistFind, FindsItsKeyWhateverTheReadingPosition) {
  Add("a", "1");
  Add("b", "2");
  Add("c", "3");
  EXPECT_EQ(Find("c"), "c=3");
  EXPECT_EQ(Find("a"), "a=1");
}

TEST_F(DatalistFind, ReadingContinuesAfterTheItemFound) {
  Add("a", "1");
  Add("b", "2");
  Add("c", "3");
  EXPECT_EQ(Find("b"), "b=2");
  EXPECT_EQ(Next(), "c=3");
  EXPECT_EQ(Next(), kEnd);
}

TEST_F(DatalistFind, UnknownKeyIsTheEndOfTheList) {
  EXPECT_EQ(Find("a"), kEnd) << "of an empty list";
  Add("a", "1");
  EXPECT_EQ(Find("b"), kEnd);
  EXPECT_EQ(Next(), kEnd);
}

TEST_F(DatalistFind, ItemWithoutAValueBeforeTheKeyIsFoundInItsPlace) {
  Add("a", "1");
  Add("b", "");
  Add("c", "3");
  EXPECT_EQ(Find("c"), "b=");
  EXPECT_EQ(Find("none"), "b=");
  EXPECT_EQ(Find("b"), "b=");
}

TEST_F(DatalistFind, ItemWithoutAValueAfterTheKeyIsNotSeen) {
  Add("a", "1");
  Add("b", "");
  EXPECT_EQ(Find("a"), "a=1");
}

TEST_F(DatalistFind, ItemAddedAfterAFindIsFound) {
  Add("a", "1");
  EXPECT_EQ(Find("b"), kEnd);
  Add("b", "2");
  EXPECT_EQ(Find("b"), "b=2");
  EXPECT_EQ(Find("a"), "a=1");
}

TEST_F(DatalistFind, OfTwoItemsWithOneKeyTheFirstIsFound) {
  Add("a", "1");
  Add("a", "2");
  EXPECT_EQ(Find("a"), "a=1");
  Add("a", "3");
  EXPECT_EQ(Find("a"), "a=1");
}

TEST_F(DatalistFind, ItemWhoseValueIsTakenBackEndsTheReadingInItsPlace) {
  Add("a", "1");
  Add("b", "2");
  Add("c", "3");
  kvtree_datalist_clear_value(list_, "none");
  EXPECT_EQ(Find("c"), "c=3");
  kvtree_datalist_clear_value(list_, "b");
  EXPECT_EQ(Find("a"), "a=1");
  EXPECT_EQ(Find("b"), "b=");
  EXPECT_EQ(Find("c"), "b=");
  kvtree_datalist_clear_value(list_, "c");
  EXPECT_EQ(Find("c"), "b=") << "the first one counts";
  kvtree_datalist_clear_value(list_, "a");
  EXPECT_EQ(Find("c"), "a=");
  EXPECT_EQ(Next(), "b=");
}

TEST_F(DatalistFind, AllValuesAreTakenBackAtOnce) {
  kvtree_datalist_clear_values(list_);
  EXPECT_EQ(Find("a"), kEnd) << "of an empty list";
  Add("a", "1");
  Add("b", "2");
  kvtree_datalist_clear_values(list_);
  EXPECT_EQ(Find("b"), "a=");
  EXPECT_EQ(Next(), "b=");
}

TEST(Datalist, OwnerIsNotifiedOfTheEndOfItsListOnce) {
  KvDatalist* list = nullptr;
  ASSERT_EQ(kvtree_datalist_create(&list), kStatusOk);
  std::vector<KvDatalist*> freed;
  kvtree_datalist_on_free(list, [&](KvDatalist* ended) { freed.push_back(ended); });
  EXPECT_TRUE(freed.empty());
  kvtree_datalist_free(list);
  EXPECT_EQ(freed, std::vector<KvDatalist*>{list});
  kvtree_datalist_free(nullptr);
}

TEST_F(DatalistFind, ListIsReadInOrderAndAgain) {
  Add("red", "abc");
  Add("blue", "");
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(kvtree_datalist_start(list_), kStatusOk);
    EXPECT_EQ(Next(), "red=abc");
    EXPECT_EQ(Next(), "blue=");
    EXPECT_EQ(Next(), kEnd);
  }
}

TEST_F(DatalistFind, ItemStaysValidWhileTheListGrows) {
  Add("a short key", "value");
  const char* key = nullptr;
  const void* value = nullptr;
  ASSERT_EQ(kvtree_datalist_next(list_, &key, &value, nullptr), kStatusOk);
  for (int i = 0; i < 1000; ++i) Add("more", "m");
  EXPECT_STREQ(key, "a short key");
  EXPECT_EQ(std::memcmp(value, "value", 5), 0);
}

TEST(Lists, MissingArgumentsAreRefused) {
  EXPECT_EQ(kvtree_list_create(nullptr), kStatusInvalid);
  EXPECT_EQ(kvtree_datalist_create(nullptr), kStatusInvalid);
  EXPECT_EQ(kvtree_list_add(nullptr, "a", 3, 0), kStatusInvalid);
  EXPECT_EQ(kvtree_datalist_add(nullptr, "a", 7, 0, nullptr, 0), kStatusInvalid);
  EXPECT_EQ(kvtree_datalist_start(nullptr), kStatusInvalid);
  EXPECT_EQ(kvtree_datalist_next(nullptr, nullptr, nullptr, nullptr), kStatusInvalid);
  KvDatalist* list = nullptr;
  ASSERT_EQ(kvtree_datalist_create(&list), kStatusOk);
  EXPECT_EQ(kvtree_datalist_add(list, nullptr, 7, 0, nullptr, 0), kStatusInvalid);
  EXPECT_EQ(kvtree_datalist_add(list, "a", 7, 0, nullptr, 1), kStatusInvalid);
  kvtree_datalist_free(list);
  kvtree_list_free(nullptr);
  kvtree_datalist_free(nullptr);
}

TEST(Lists, EachOperationFailsAtItsFaultPoint) {
  KvList* list = nullptr;
  KvDatalist* datalist = nullptr;
  ExpectFault("kvtree_list_create", [&] { return kvtree_list_create(&list); });
  ExpectFault("kvtree_datalist_create", [&] { return kvtree_datalist_create(&datalist); });
  ASSERT_EQ(kvtree_list_create(&list), kStatusOk);
  ASSERT_EQ(kvtree_datalist_create(&datalist), kStatusOk);
  ExpectFault("kvtree_list_add", [&] { return kvtree_list_add(list, "a", 3, 0); });
  ExpectFault("kvtree_datalist_add", [&] { return kvtree_datalist_add(datalist, "a", 7, 0, "x", 1); });
  ExpectFault("kvtree_datalist_start", [&] { return kvtree_datalist_start(datalist); });
  ExpectFault("kvtree_datalist_next",
              [&] { return kvtree_datalist_next(datalist, nullptr, nullptr, nullptr); });
  kvtree_list_free(list);
  kvtree_datalist_free(datalist);
}

TEST_F(DatalistFind, MissingArgumentsAreInvalid) {
  EXPECT_EQ(kvtree_datalist_find(nullptr, "a", nullptr, nullptr, nullptr), kStatusInvalid);
  EXPECT_EQ(kvtree_datalist_find(list_, nullptr, nullptr, nullptr, nullptr), kStatusInvalid);
}

}  // namespace
